#pragma once

#include "tools/model/Model.h"
#include "tools/recipes/Registry.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Bring-up files: chips, what the agent knows of them, and the recipes to run on them, in order.
// docs/bringup-file.md describes the format.

namespace Tool {

/// A recipe to run.
struct RecipeStep {
    const Recipe * recipe = nullptr;
    std::vector<Argument> arguments;
    /// What a verify... or get... must return.
    std::optional<Result> expected;
};

/// Stages at which a chip becomes blocked or unblocked.
struct StageStep {
    CairnCentral::ChipInfo chip;
    std::vector<uint32_t> block;
    std::vector<uint32_t> unblock;
};

/// A field of a physical table that the chip changes by itself, behind the SDK's cache.
struct PokeStep {
    int unit = 0;
    std::string table;
    uint32_t index = 0;
    uint32_t instance = 0;
    uint32_t port = 0;
    std::string field;
    uint64_t value = 0;
};

struct Step {
    /// Line in the bring-up file; 0 for a step of the command line.
    int line = 0;
    std::variant<RecipeStep, StageStep, PokeStep> what;
};

/// The step for a reader: "setEgrTunnelEcnEncap( unit=0, index=5, outerEcn=2 )",
/// "block chip0 at stage 55".
std::string toText( const Step & step );

struct Bringup {
    std::string file;
    Model model;
    std::vector<Step> steps;
};

/// Reads the schema of a chip by its source (see loadChip).
using ChipLoader = std::function<Sim::Schema( const std::string & source )>;

/// The bring-up that `contents` describe, checked as a whole: InputError, with `file` and the line,
/// for anything unknown, mistyped, out of range or contradictory. `file` is also what relative chip
/// files are relative to.
Bringup parseBringup( std::string_view contents, const std::string & file,
                      const ChipLoader & loadChip );

/// The same of a file.
Bringup loadBringup( const std::string & file );

} // namespace Tool
