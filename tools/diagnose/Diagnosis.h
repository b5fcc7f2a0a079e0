#pragma once

#include "sim/Schema.h"
#include "tools/diagnose/Report.h"
#include "tools/diagnose/Sites.h"
#include "tools/recipes/Registry.h"

#include <string>
#include <string_view>
#include <vector>

// From how a process was stopped to where, with what and why.

namespace Tool {

struct Diagnosis {
    /// How the place was found.
    enum class Found {
        exactly,   ///< one site has this text, and this line or this recipe
        byText,    ///< one site has this text; its line in this release is another
        ambiguous, ///< several sites fit
        nowhere,   ///< no site of the release has this text
        notAsked,  ///< misuse of a lock has no site
    };

    Stop stop;
    Found found = Found::nowhere;
    /// The sites that fit; one unless `ambiguous` or `nowhere`.
    std::vector<Site> sites = {};
    /// Of the site or, where there is none or several, as the signature names it; may be empty.
    std::string function = {};
    /// Null if the function is none of this version's recipes.
    const Recipe * recipe = nullptr;
    int calls = 0; ///< that stand in the source of the recipe

    /// What the call does, in words; empty if it is not known.
    std::string inWords = {};
    /// What is known of its table and its field on the chip; empty if nothing is.
    std::string target = {};
    /// What the code, the assertion or the misuse means, and the usual causes.
    std::string meaning = {};
    /// What the recipe had done by then, as its source stands: sentences.
    std::vector<std::string> leftBehind = {};
    std::vector<std::string> nextActions = {};
};

/// `schema` is that of the chip the process worked on, as far as the caller knows. `lastCall` is the
/// thread's last SDK operation, where a recording tells; it narrows what the text leaves open.
Diagnosis diagnose( const Stop & stop, const SiteTable & table, const Sim::Schema & schema,
                    const TraceReader::RecordedCall * lastCall = nullptr );

/// "an entry of PC_PORT is allocated": a call text of the library as a sentence without its stop.
/// Empty for a text that is no SDK call.
std::string inWords( const Site & call, const SiteTable & table );

} // namespace Tool
