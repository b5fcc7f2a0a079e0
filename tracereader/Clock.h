#pragma once

#include "tracereader/Ring.h"
#include "tracereader/TraceReader.h"

#include <cstdint>

namespace TraceReader {

/// Measures the rate of the counter anew. The writer measures it in milliseconds; a block that was
/// begun long after that tells it better, unless the wall clock was set meanwhile. Returns the span
/// over which it was measured, in nanoseconds; 0 if the clock is as the writer left it.
std::int64_t measure( Clock & clock, const Ring::Block & last );

} // namespace TraceReader
