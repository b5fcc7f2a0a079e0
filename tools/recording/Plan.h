#pragma once

#include "tools/recording/StateDiff.h"

#include <Shim/Sdk.h>

#include <cstdint>
#include <string>
#include <vector>

// The SDK operations that turn one state of a chip into another.

namespace Tool {

/// Performs on `sdk`, whose tables are as `before` of the differences says, what makes them as
/// `after` says. Each operation comes after the pre-call hook, as those of a recipe do. Rows are
/// deleted before others are inserted, so that a full table does not get in the way.
///
/// No operation makes the SDK's cache differ from the hardware: where `after` says so, both get the
/// value of the hardware (isWithinReach). Returns how many operations there were. Trouble if one is
/// refused.
std::uint64_t performPlan( Shim::Sdk & sdk, const std::vector<RowDifference> & differences );

/// Whether SDK operations can make the row as it is to be.
bool isWithinReach( const RowDifference & difference );

} // namespace Tool
