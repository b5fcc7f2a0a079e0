#pragma once

#include <stdexcept>
#include <string>

// Bad input: one line that names what is wrong, where, and the remedy.

namespace Tool {

/// Something the user gave is wrong. what() is the whole line, without an end of line; the tool
/// prints it to standard error and exits with code 2. Thrown before anything is programmed.
class BadInput : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

} // namespace Tool
