#pragma once

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <string>
#include <string_view>

// What the verbs print.

namespace Tool {

enum class Format { text, json };

/// Makes sure that no file that is opened takes the place of a standard stream that is closed.
/// What is written to such a stream fails. Before anything else is opened.
void claimStandardStreams();

/// Writes to standard output at once, so that nothing is left behind when the process stops.
/// Trouble if it cannot be written.
void print( std::string_view text );

/// A verb that prints many lines collects about this much before it prints.
inline constexpr std::size_t outputChunk = 1 << 16;

/// A JSON document as it is printed. JSON is UTF-8: bytes that are not are escaped, as "\xff".
std::string documentText( nlohmann::ordered_json document );

/// Writes "cairn-lt: MESSAGE" as one line to standard error; control characters in it are escaped.
void complain( std::string_view message );

/// A heading, in bold if standard output is a terminal and NO_COLOR is not set.
std::string heading( std::string_view text );

} // namespace Tool
