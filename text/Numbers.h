#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// Unsigned numbers in decimal and hexadecimal.

namespace Text {

/// Reads a number in decimal or, after "0x", in hexadecimal. False if the text is not one, or is
/// larger than 64 bits hold.
bool parseNumber( std::string_view text, std::uint64_t & number );

/// "200", "4660 (0x1234)": large numbers are masks and patterns as often as amounts.
std::string numberBothWays( std::uint64_t value );

/// "99999", "0x1a2b3": small numbers are read in decimal, large ones (bitmaps, patterns) in
/// hexadecimal.
std::string numberForTable( std::uint64_t value );

/// "1 row", "3 rows", "0 rows".
std::string counted( std::uint64_t number, std::string_view noun );

} // namespace Text
