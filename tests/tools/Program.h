#pragma once

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
/// `out`, if that is given, and is then not returned.
Outcome cairnLt( const std::vector<std::string> & arguments, const std::string & out = {} );

/// The same on a terminal, with NO_COLOR set to a value: what the terminal shows.
std::string cairnLtOnTerminal( const std::vector<std::string> & arguments, const char * noColor );

/// The lines of a text, without their ends.
std::vector<std::string> lines( const std::string & text );

/// The lines that contain `part`.
std::vector<std::string> linesWith( const std::string & text, const std::string & part );

/// A folder that is gone when the test is over.
class TemporaryFolder {
  public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder( const TemporaryFolder & ) = delete;
    TemporaryFolder & operator=( const TemporaryFolder & ) = delete;

    std::string path( const std::string & name ) const { return path_ + "/" + name; }
    /// Writes a file and returns its path.
    std::string write( const std::string & name, const std::string & contents ) const;

  private:
    std::string path_;
};

/// The contents of a file; empty if there is none.
std::string contents( const std::string & path );

} // namespace ToolTest
