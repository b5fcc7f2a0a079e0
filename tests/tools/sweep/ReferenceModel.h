#pragma once

#include "sim/Chip.h"
#include "tools/model/Model.h"

namespace ToolTest {

/// One reference chip and what goes with it.
inline Tool::Model referenceModel() {
    return Tool::defaultModel( { Tool::defaultChip( 0, Sim::referenceSchema(), "reference" ) } );
}

} // namespace ToolTest
