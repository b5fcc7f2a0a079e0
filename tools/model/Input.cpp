#include "tools/model/Input.h"

#include "text/NearestName.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <iterator>
#include <vector>

namespace Tool {

std::string nameHint( std::string_view wanted, std::span<const std::string_view> names ) {
    const std::string_view nearest = Text::nearestName( wanted, names );
    if ( !nearest.empty() )
        return "; the nearest is " + std::string( nearest );
    // Half a name is not near by the letters that are missing.
    std::vector<std::string_view> candidates;
    std::copy_if( names.begin(), names.end(), std::back_inserter( candidates ),
                  [&]( std::string_view name ) { return name.starts_with( wanted ); } );
    if ( candidates.empty() )
        candidates.assign( names.begin(), names.end() );
    constexpr std::size_t few = 12;
    if ( candidates.empty() || candidates.size() > few )
        return {};
    std::string text = candidates.size() == 1 ? "; there is " : "; there are ";
    for ( std::size_t i = 0; i < candidates.size(); ++i ) {
        text += i == 0 ? "" : i + 1 == candidates.size() ? " and " : ", ";
        text += candidates[i];
    }
    return text;
}

bool parseNumber( std::string_view text, uint64_t & number ) {
    int base = 10;
    if ( text.starts_with( "0x" ) || text.starts_with( "0X" ) ) {
        base = 16;
        text.remove_prefix( 2 );
    }
    const auto result = std::from_chars( text.data(), text.data() + text.size(), number, base );
    return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

} // namespace Tool
