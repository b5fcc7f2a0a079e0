#pragma once

#include "tests/support/TemporaryFolder.h"

#include <functional>
#include <string>
#include <vector>

// The built cairn-lt, run as a shell runs it.

namespace ToolTest {

/// How a run ended, and what it wrote.
struct Outcome {
    int exitCode = -1; ///< -1 if a signal ended it
    int signal = 0;    ///< 0 if it exited
    std::string out;
    std::string err;
};

/// Runs cairn-lt with these arguments, in the root of the source tree. Standard output goes to
/// `out`, if that is given, and is then not returned. `prepare` is called in the process before it
/// becomes cairn-lt.
Outcome cairnLt( const std::vector<std::string> & arguments, const std::string & out = {},
                 const std::function<void()> & prepare = {} );

/// The same on a terminal, with NO_COLOR set to a value: what the terminal shows.
std::string cairnLtOnTerminal( const std::vector<std::string> & arguments, const char * noColor );

/// The lines of a text, without their ends.
std::vector<std::string> lines( const std::string & text );

/// The lines that contain `part`.
std::vector<std::string> linesWith( const std::string & text, const std::string & part );

} // namespace ToolTest
