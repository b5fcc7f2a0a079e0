#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Texts of unknown content in a line of output. What is not UTF-8 is escaped byte by byte, so that
// the output is UTF-8 whatever the text is.

namespace Text {

/// The length in bytes of the UTF-8 character at the front of a text that is not empty; 0 if there
/// is none. As RFC 3629 has it: no overlong forms, no surrogates, nothing beyond U+10FFFF.
std::size_t characterLength( std::string_view text );

/// Appends the text with all that would break the line or disturb a terminal escaped: "\n", "\t",
/// "\x1b". A backslash stands for itself.
void appendPrintable( std::string & out, std::string_view text );
std::string printable( std::string_view text );

/// Appends the text as it stands between the quotes of a JSON string. Bytes that are not UTF-8
/// become the replacement character.
void appendJson( std::string & out, std::string_view text );

} // namespace Text
