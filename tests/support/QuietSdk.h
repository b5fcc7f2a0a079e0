#pragma once

#include <Shim/Sdk.h>

namespace Support {

/// An SDK that does next to nothing, for measuring what stands around its operations: everything
/// succeeds but the LOOKUPs, every field reads 1, and nothing is kept. Its class is not seen by its
/// users, so that the compiler calls it as it calls a host's.
Shim::Sdk & quietSdk();

} // namespace Support
