#pragma once

#include "tools/model/BringupFile.h"
#include "tools/run/Output.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

// Running steps on simulated chips: what `run` and `bringup` have in common.

namespace Tool {

struct SessionOptions {
    /// Kiln settings, "ApiCairn/4".
    std::vector<std::string> trace;
    /// Where trace lines go; empty: standard error.
    std::string traceFile;
    /// The folder of the binary trace; empty: none is written.
    std::string traceDir;
    /// Faults as Interpose::parseFault reads them.
    std::vector<std::string> inject;
    /// Tables that were written are printed after the run.
    std::optional<Format> dump;
    /// Keeps the chips between commands; empty: nothing is kept.
    std::string state;
    /// The SDK's operations are printed.
    bool record = false;
    Format format = Format::text;
};

/// A bring-up on its simulated chips. Makes Shim::sdk_ its own while it lives; one at a time.
class Session {
  public:
    /// How much is said of the steps.
    enum class Style {
        results, ///< the result of each recipe that has one, and nothing else
        steps,   ///< each step, with its result
    };

    /// Checks the options and sets everything up; InputError if something is wrong. Nothing has been
    /// programmed, printed or written then.
    Session( Bringup bringup, SessionOptions options, Style style );
    ~Session();
    Session( const Session & ) = delete;
    Session & operator=( const Session & ) = delete;

    /// Runs the steps, keeps the chips and prints what is asked for. Returns the exit code: 0, or 1
    /// if a verify... said no or a result was not the one expected.
    ///
    /// A recipe may stop the process (SIGABRT). Before it dies, the step, the SDK call and the
    /// chip's own words for the failure are written to standard error; what is asked for is printed
    /// last. The chips are kept as they were at the stop, before any of that.
    int run();

  private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace Tool
