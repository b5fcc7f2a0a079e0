#pragma once

#include <fmt/format.h>

#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

// Why a verb cannot do what it is asked. Both kinds are one line, without an end of line, which the
// tool prints to standard error before it exits with code 2. A finding, an answer "no", is no error.

namespace Tool {

/// Something the user gave is wrong: "FILE:LINE: PROBLEM; REMEDY". Thrown before anything is
/// programmed.
class InputError : public std::runtime_error {
  public:
    /// On the command line, or somewhere that a caller knows (see within()).
    explicit InputError( std::string problem, std::string remedy = {} )
        : InputError( {}, 0, std::move( problem ), std::move( remedy ) ) {}

    /// In a file. Line 0 is the file as a whole.
    InputError( std::string file, int line, std::string problem, std::string remedy = {} )
        : std::runtime_error( text( file, line, problem, remedy ) ), file_( std::move( file ) ),
          line_( line ), problem_( std::move( problem ) ), remedy_( std::move( remedy ) ) {}

    /// Empty if it is not about a file.
    const std::string & file() const { return file_; }
    /// 0 if it is not about a line.
    int line() const { return line_; }
    const std::string & problem() const { return problem_; }
    /// Empty if the problem says it.
    const std::string & remedy() const { return remedy_; }

    /// The same, in this line of a file. If it names a file already, that one is part of the
    /// problem.
    InputError within( const std::string & file, int line ) const {
        return InputError( file, line, text( file_, line_, problem_, {} ), remedy_ );
    }

  private:
    static std::string text( std::string_view file, int line, std::string_view problem,
                             std::string_view remedy ) {
        const std::string place = line == 0 ? "" : fmt::format( ":{}", line );
        return fmt::format( "{}{}{}{}{}{}", file, place, file.empty() ? "" : ": ", problem,
                            remedy.empty() ? "" : "; ", remedy );
    }

    std::string file_;
    int line_ = 0;
    std::string problem_;
    std::string remedy_;
};

/// The system would not: no memory, no process, a full disk.
class Trouble : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

} // namespace Tool
