#pragma once

#include <fmt/format.h>

#include <stdexcept>
#include <string>
#include <string_view>

// Why a verb can not do what it is asked. Both kinds are one line, without an end of line, which
// the tool prints to standard error before it exits with code 2. A finding, an answer "no", is no
// error.

namespace Tool {

/// Something the user gave is wrong: what it is, where it stands, and the remedy. Thrown before
/// anything is programmed.
class InputError : public std::runtime_error {
  public:
    explicit InputError( const std::string & what ) : std::runtime_error( what ) {}

    /// In a file: "FILE:LINE: WHAT; REMEDY". Line 0 is the file as a whole.
    InputError( std::string_view file, int line, std::string_view what,
                std::string_view remedy = {} )
        : std::runtime_error( fmt::format( "{}{}: {}{}{}", file,
                                           line == 0 ? "" : fmt::format( ":{}", line ), what,
                                           remedy.empty() ? "" : "; ", remedy ) ),
          line_( line ) {}

    /// 0 if it does not stand in a line of a file.
    int line() const { return line_; }

  private:
    int line_ = 0;
};

/// The system would not: no memory, no process, a full disk.
class Trouble : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

} // namespace Tool
