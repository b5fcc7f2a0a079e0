#pragma once

#include "tools/model/Model.h"

#include <string>
#include <vector>

// The chips of the simulation, as the options of a verb name them.

namespace Tool {

/// Which chips a verb works on when it is not given a bring-up to run.
struct ChipOptions {
    /// "[UNIT=]SOURCE", where SOURCE is "reference" or a chip file. A chip without a unit gets the
    /// one after that of the chip before it.
    std::vector<std::string> chips;
    /// A bring-up file whose chips, modules and ports are taken and whose steps are not run.
    std::string model;
    /// A state file, whose chips are taken if nothing else says what the chips are.
    std::string state;
};

/// What the options describe: the model of the bring-up file, or else the default model of the
/// chips given, of the chips saved, or of the reference chip as unit 0.
Model modelOf( const ChipOptions & options );

} // namespace Tool
