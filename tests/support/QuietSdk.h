#pragma once

#include <Shim/Sdk.h>

namespace Support {

/// An SDK that does almost nothing, for measuring what surrounds its operations: everything but the
/// LOOKUPs succeeds, every field reads 1, and nothing is kept. Its class is hidden from its users, so
/// that the compiler cannot devirtualise the calls.
Shim::Sdk & quietSdk();

} // namespace Support
