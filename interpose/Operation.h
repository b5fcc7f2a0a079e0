#pragma once

#include "interpose/SdkCall.h"

#include <Shim/Sdk.h>

#include <cstdint>

// An SDK operation as a value.

namespace Interpose {

/// One operation on its way to an SDK. Texts, values and places for results are the caller's and
/// live as long as the call; they are null where the caller gave null. Members that the operation
/// does not have keep their defaults.
struct Operation {
    SdkCall call = SdkCall::entryFree; ///< one of sdkOperations()
    std::uint32_t handle = 0;          ///< all but the allocate

    /// Allocate.
    int unit = -1;
    const char * table = nullptr;
    std::uint32_t * newHandle = nullptr;

    /// Field operations. An add of a scalar has one value.
    const char * field = nullptr;
    const char * symbol = nullptr;
    const std::uint64_t * values = nullptr;
    std::uint32_t startIndex = 0;
    std::uint32_t count = 0;
    std::uint64_t * result = nullptr;

    /// Commits; attribute set.
    std::uint32_t opcode = 0;
    std::uint32_t priority = 0;
    std::uint32_t attribute = 0;
};

/// Performs the operation and returns its code.
int perform( Shim::Sdk & sdk, const Operation & operation ) noexcept;

} // namespace Interpose
