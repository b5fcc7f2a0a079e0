#pragma once

#include "tools/cli/Output.h"
#include "tools/run/Session.h"

#include <optional>

// What `run` and `bringup` print of a session.

namespace Tool {

struct SessionOutput {
    enum class Style {
        results, ///< the result of each recipe that has one, and nothing else
        steps,   ///< each step, with its result
    };
    Style style = Style::steps;
    Format format = Format::text;
    /// Tables that were written are printed after the run. With the format json they are part of
    /// the document.
    std::optional<Format> dump = {};
};

/// Runs a session and prints what is asked for. Returns the exit code: 0, or 1 if a verify... said
/// no or a result was not the one expected. If a recipe stops the process, the step, the SDK call
/// and the chip's own words for the failure are written to standard error, and what is asked for is
/// printed last.
int runSession( Bringup bringup, const SessionOptions & options, const SessionOutput & output );

} // namespace Tool
