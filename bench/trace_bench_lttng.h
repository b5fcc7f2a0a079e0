#pragma once

#include <cstdint>

// The same records through lttng-ust, where it is installed.

namespace TraceBenchLttng {

/// Whether a tracing session records these events. Without one they cost nothing, and are not measured.
bool isTraced();

void twoValues( std::uint32_t unit, std::uint32_t seed );
void text( std::uint32_t unit, const char * text );

} // namespace TraceBenchLttng
