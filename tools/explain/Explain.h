#pragma once

#include "tools/model/ChipOptions.h"

#include <string>
#include <vector>

// The verb "explain".

namespace Tool {

enum class ExplainFormat { text, markdown, json };

struct ExplainOptions {
    std::string recipe;
    /// Empty: sample arguments.
    std::vector<std::string> arguments;
    /// All recipes, with sample arguments, instead of one.
    bool all = false;
    /// The chips; a state file is only read.
    ChipOptions chips;
    ExplainFormat format = ExplainFormat::text;
};

/// What recipes do, step by step, seen by running them on a scratch chip. 1 if a recipe stops
/// there.
int explain( const ExplainOptions & options );

} // namespace Tool
