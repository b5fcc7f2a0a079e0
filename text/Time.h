#pragma once

#include <cstdint>
#include <optional>
#include <string>

// Times in UTC, as nanoseconds since 1970.

namespace Text {

/// "2026-03-01T07:30:00.250000000Z"
std::string utc( std::int64_t nanoseconds );

/// Reads what utc() writes; the fraction may have fewer digits, and it and the Z may be left out.
std::optional<std::int64_t> parseUtc( const std::string & text );

} // namespace Text
