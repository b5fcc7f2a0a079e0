#pragma once

#include "tools/model/Model.h"

#include <map>

namespace Python {

/// What the agent knows, as recipes get it.
struct SharedState {
    Cairn::CairnCommonSmData::Ptr data;
    /// By unit.
    std::map<int, CairnCentral::ChipInfo> chips;
};

/// Makes the model the one that recipes ask.
SharedState apply( const Tool::Model & model );

} // namespace Python
