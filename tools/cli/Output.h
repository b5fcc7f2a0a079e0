#pragma once

#include <string>
#include <string_view>

// What the verbs print.

namespace Tool {

enum class Format { text, json };

/// "text" or "json"; anything else is InputError that begins with `option`.
Format parseFormat( std::string_view text, std::string_view option );

/// Writes to standard output at once, so that nothing is left behind when the process stops.
/// Trouble if it cannot be written.
void print( std::string_view text );

/// Writes "cairn-lt: MESSAGE" as one line to standard error; control characters in it are escaped.
void complain( std::string_view message );

/// A heading, in bold if standard output is a terminal and NO_COLOR is not set.
std::string heading( std::string_view text );

} // namespace Tool
