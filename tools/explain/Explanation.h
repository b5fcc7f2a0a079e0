#pragma once

#include "tools/model/Model.h"
#include "tools/model/State.h"
#include "tools/recipes/Registry.h"
#include "tools/run/Observation.h"

#include <functional>
#include <vector>

// What a recipe does, seen by running it on a scratch chip with a bring-up stage service that
// writes down what it is asked.

namespace Tool {

struct Explanation {
    const Recipe * recipe = nullptr;
    std::vector<Argument> arguments;
    /// The recipe that ran before, unseen, with the same arguments; null if none did.
    const Recipe * preparedBy = nullptr;
    Observation seen;
    Result result;
    /// The recipe stopped the process here.
    bool stopped = false;
};

/// Runs a recipe on a scratch chip of the model's units and returns what was seen. `kept`, if it is
/// not null, is what the chip holds; otherwise it is fresh, and the recipe that prepares this one
/// runs first. `onStop` is called if the recipe stops the process, which dies when it returns.
Explanation explainRecipe( const Recipe & recipe, const std::vector<Argument> & arguments,
                           const Model & model, const std::vector<SavedUnit> * kept,
                           const std::function<void( const Explanation & )> & onStop );

} // namespace Tool
