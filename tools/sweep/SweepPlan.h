#pragma once

#include "interpose/Event.h"
#include "tools/model/Model.h"
#include "tools/recipes/Registry.h"

#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// The cases of the sweep, and what the library promises about each call. All of it is stated by
// hand, from the recipes' manual; nothing is taken from a run.

namespace Tool {

/// How a recipe deals with the return code of one of its calls.
enum class CallKind : std::uint8_t {
    guarded,     ///< pre-call hook; a negative code is reported and stops the process
    lookup,      ///< unchecked: a negative code means that the row is absent
    ignored,     ///< unchecked, and the recipe does not look at the code
    tolerated,   ///< unchecked: a negative code is traced as a message, and the recipe goes on
    mustMiss,    ///< unchecked: a code that is not negative stops by the assertion "rc < 0"
    endsRecipe,  ///< unchecked: any code but 0 means an absent instance: a message, and the end
    skipsTable,  ///< unchecked: any code but 0 means an absent table: on to the next one
    checkedNext, ///< unchecked, but the recipe checks the code right afterwards, as a call "rc"
};

/// A call is known by its operation, and by the opcode or the field that it names.
CallKind kindOf( const Recipe & recipe, const Interpose::Event & operation );

/// Whether the recipe stops by the assertion "ent_hdl != BCMLT_INVALID_HDL" if an allocate succeeds
/// and leaves the handle invalid.
bool assertsHandle( const Recipe & recipe );

/// Whether the recipe keeps the activity lock during its SDK calls.
bool keepsLock( const Recipe & recipe );

/// The recipe under whose name the output of this one appears: itself, unless it only calls
/// another.
const Recipe & outputOf( const Recipe & recipe );

/// The signature as assertions print it: "void Cairn::setOpaqueTagIngress(uint32_t, uint8_t)".
std::string signatureOf( const Recipe & recipe );

/// One branch of a recipe: what makes the recipe take it, and how it ends if nothing is disturbed.
struct SweepCase {
    /// Arguments as text, by the names of their parameters.
    using Given = std::map<std::string_view, std::string>;
    /// A recipe that runs before, with the arguments of the case for parameters of the same name.
    struct Before {
        std::string_view recipe;
        Given arguments = {};
    };
    /// A field that holds this before the recipe begins. The row is the first one of a physical
    /// table, or the row of a logical table without a key.
    struct Holds {
        const char * table;
        const char * field;
        std::uint64_t value = 0;
    };

    std::string_view name = {};
    /// On the reference chip: parts of call texts and messages that must occur.
    std::vector<std::string_view> with = {};
    /// What it returns, as text; empty for a recipe that returns nothing.
    std::string_view returns = {};
    /// Arguments that differ from the samples.
    Given arguments = {};
    std::vector<Before> before = {};
    std::vector<Holds> holds = {};
    /// Changes chips, modules and ports of the model.
    std::function<void( Model & )> vary = {};
    /// The assertion that stops it; empty if it returns.
    std::string_view stopsBy = {};

    std::string_view recipe = {};
    /// On the reference chip: parts of call texts and messages that must not occur.
    std::vector<std::string_view> without = {};
    /// The case that goes on as this one does after its lookup answered the opposite.
    std::string_view fallback = {};
};

/// All cases, in the order of the registry; each recipe has at least one.
std::span<const SweepCase> sweepCases();

} // namespace Tool
