#pragma once

#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

// Bad input: one line that names what is wrong, where, and the remedy.

namespace Tool {

/// Something the user gave is wrong. what() is the whole line, without an end of line; the tool
/// prints it to standard error and exits with code 2. Thrown before anything is programmed.
class BadInput : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// What to append to a message about a name that does not exist: "; the nearest is NAME", or the
/// names there are, if none is near and there are few of them.
std::string nameHint( std::string_view wanted, std::span<const std::string_view> names );

/// Reads an unsigned number in decimal or, after "0x", in hexadecimal. False if the text is not
/// one, or is larger than 64 bits hold.
bool parseNumber( std::string_view text, uint64_t & number );

} // namespace Tool
