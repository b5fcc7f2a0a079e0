#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// Times in UTC, as nanoseconds since 1970.

namespace Text {

/// "2026-03-01T07:30:00.250000000Z"
std::string utc( std::int64_t nanoseconds );
void appendUtc( std::string & out, std::int64_t nanoseconds );

/// Reads what utc() writes; the fraction may have fewer digits, and it and the Z may be left out. A
/// time beyond those that 64 bits hold is the last, or the first, of them. Nothing for a date or time
/// that there is not.
std::optional<std::int64_t> parseUtc( std::string_view text );

} // namespace Text
