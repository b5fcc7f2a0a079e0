#include "text/Numbers.h"

#include <fmt/format.h>

#include <charconv>
#include <system_error>

namespace Text {

bool parseNumber( std::string_view text, std::uint64_t & number ) {
    int base = 10;
    if ( text.starts_with( "0x" ) || text.starts_with( "0X" ) ) {
        base = 16;
        text.remove_prefix( 2 );
    }
    const auto result = std::from_chars( text.data(), text.data() + text.size(), number, base );
    return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

std::string numberBothWays( std::uint64_t value ) {
    constexpr std::uint64_t largestAmount = 255;
    return value <= largestAmount ? fmt::to_string( value ) : fmt::format( "{0} ({0:#x})", value );
}

std::string numberForTable( std::uint64_t value ) {
    constexpr std::uint64_t largestDecimal = 99999;
    return value <= largestDecimal ? fmt::to_string( value ) : fmt::format( "{:#x}", value );
}

std::string counted( std::uint64_t number, std::string_view noun ) {
    return fmt::format( "{} {}{}", number, noun, number == 1 ? "" : "s" );
}

} // namespace Text
