#pragma once

#include "tools/model/ChipOptions.h"
#include "tools/run/Output.h"

#include <string>
#include <vector>

// The verb "sweep".

namespace Tool {

struct SweepOptions {
    /// Empty: all.
    std::vector<std::string> recipes;
    ChipOptions chips;
    /// Each fault on a line of its own.
    bool verbose = false;
    Format format = Format::text;
};

/// Disturbs each SDK call of each branch of recipes, and says whether what came of it is what the
/// library promises. 1 if something is not.
int sweep( const SweepOptions & options );

} // namespace Tool
