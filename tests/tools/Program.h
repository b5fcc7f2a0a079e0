#pragma once

#include "tests/support/TemporaryFolder.h"

#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

// The built cairn-lt, run as a shell runs it.

namespace ToolTest {

/// Whether sanitizers are built in, which need descriptors of their own.
#if defined( __SANITIZE_ADDRESS__ ) || defined( __SANITIZE_THREAD__ )
inline constexpr bool isSanitized = true;
#else
inline constexpr bool isSanitized = false;
#endif

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

/// cairn-lt under way.
class StartedProgram {
  public:
    /// As cairnLt().
    explicit StartedProgram( const std::vector<std::string> & arguments,
                             const std::function<void()> & prepare = {} );
    /// Kills it if it was not waited for.
    ~StartedProgram();
    StartedProgram( const StartedProgram & ) = delete;
    StartedProgram & operator=( const StartedProgram & ) = delete;

    pid_t process() const { return process_; }
    /// Waits until standard error holds a text; false if the program ends without it.
    bool says( const std::string & text ) const;
    /// Whether it has ended. It can be waited for still.
    bool hasEnded() const;
    /// Waits for its end.
    Outcome wait();

  private:
    Support::TemporaryFolder folder_;
    pid_t process_;
};

/// The same on a terminal, with NO_COLOR set to a value: what the terminal shows.
std::string cairnLtOnTerminal( const std::vector<std::string> & arguments, const char * noColor );

/// The lines of a text, without their ends.
std::vector<std::string> lines( const std::string & text );

/// The lines that contain `part`.
std::vector<std::string> linesWith( const std::string & text, const std::string & part );

} // namespace ToolTest
