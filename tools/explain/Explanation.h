#pragma once

#include "interpose/Recorder.h"
#include "tools/model/Model.h"
#include "tools/model/State.h"
#include "tools/recipes/Registry.h"

#include <cstdint>
#include <functional>
#include <string>
#include <variant>
#include <vector>

// What a recipe does, seen by running it on a scratch chip between a recorder, a trace sink and a
// bring-up stage service that write down everything they are asked.

namespace Tool {

/// An SDK operation, or the check of a code that an operation left behind.
struct SeenCall {
    /// The operation as recorded, with its result. `event.returned` is false for a check.
    Interpose::Event event;
    /// The call as the library spells it, and its line in the library's source.
    std::string text;
    int line = 0;
    /// The pre-call hook ran, and a negative code stops the process.
    bool guarded = false;
    /// The activity lock was held during the operation.
    bool lockHeld = false;
    /// No line tells the code of this call: the recipe does not look at it.
    bool ignored = false;
    /// Constants that were asked for the call, in order.
    std::vector<std::string> constants;
    /// The SDK's text for a negative code.
    std::string errorText;

    bool isCheck() const { return !event.returned; }
};

/// A constant that was asked outside any call.
struct SeenConstant {
    std::string name;
};

/// A question to the bring-up stage service.
struct SeenQuestion {
    std::string chip;
    uint32_t stage = 0;
    bool askedUnblocked = false; ///< isUnblocked() rather than isBlocked()
    bool answer = false;
};

/// A line that the recipe traced.
struct SeenMessage {
    std::string facility;
    uint32_t level = 0;
    std::string text;
};

using Seen = std::variant<SeenCall, SeenConstant, SeenQuestion, SeenMessage>;

struct Explanation {
    const Recipe * recipe = nullptr;
    std::vector<Argument> arguments;
    /// The recipe that ran before, unseen, with the same arguments; null if none did.
    const Recipe * preparedBy = nullptr;
    /// In the order in which it happened.
    std::vector<Seen> seen;
    Result result;
    /// The recipe stopped the process here.
    bool stopped = false;
};

/// Runs a recipe on a scratch chip of the model's units and returns what was seen. `kept`, if it is
/// not null, is what the chip holds; otherwise it is fresh, and the recipe that prepares this one
/// runs first. `onStop` is called if the recipe stops the process, which dies when it returns.
Explanation explainRecipe( const Recipe & recipe, const std::vector<Argument> & arguments,
                           const Model & model, const std::vector<KeptUnit> * kept,
                           const std::function<void( const Explanation & )> & onStop );

} // namespace Tool
