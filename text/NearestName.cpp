#include "text/NearestName.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <iterator>
#include <vector>

namespace Text {

namespace {

bool sameLetter( char a, char b ) {
    return std::toupper( static_cast<unsigned char>( a ) ) ==
           std::toupper( static_cast<unsigned char>( b ) );
}

// Insertions, deletions, replacements and swaps of neighbours that turn one text into the other.
std::size_t editDistance( std::string_view from, std::string_view to ) {
    std::vector<std::size_t> beforeLast( to.size() + 1 );
    std::vector<std::size_t> last( to.size() + 1 );
    std::vector<std::size_t> row( to.size() + 1 );
    for ( std::size_t j = 0; j <= to.size(); ++j ) {
        row[j] = j;
    }
    for ( std::size_t i = 1; i <= from.size(); ++i ) {
        beforeLast.swap( last );
        last.swap( row );
        row[0] = i;
        for ( std::size_t j = 1; j <= to.size(); ++j ) {
            const bool same = sameLetter( from[i - 1], to[j - 1] );
            row[j] = std::min( { last[j] + 1, row[j - 1] + 1, last[j - 1] + ( same ? 0u : 1u ) } );
            if ( i > 1 && j > 1 && sameLetter( from[i - 1], to[j - 2] ) &&
                 sameLetter( from[i - 2], to[j - 1] ) ) {
                row[j] = std::min( row[j], beforeLast[j - 2] + 1 );
            }
        }
    }
    return row[to.size()];
}

} // namespace

std::string_view nearestName( std::string_view wanted, std::span<const std::string_view> names ) {
    std::string_view nearest;
    std::size_t nearestDistance = std::max<std::size_t>( 1, wanted.size() / 3 ) + 1;
    for ( const std::string_view name : names ) {
        const std::size_t distance = editDistance( wanted, name );
        if ( distance < nearestDistance ) {
            nearestDistance = distance;
            nearest = name;
        }
    }
    return nearest;
}

std::string nearestHint( std::string_view wanted, std::span<const std::string_view> names ) {
    const std::string_view nearest = nearestName( wanted, names );
    return nearest.empty() ? std::string() : "; the nearest name is " + std::string( nearest );
}

std::string nameHint( std::string_view wanted, std::span<const std::string_view> names ) {
    const std::string_view nearest = nearestName( wanted, names );
    if ( !nearest.empty() )
        return "the nearest is " + std::string( nearest );
    // For the beginning of a name, the missing characters do not count.
    std::vector<std::string_view> candidates;
    std::copy_if( names.begin(), names.end(), std::back_inserter( candidates ),
                  [&]( std::string_view name ) { return name.starts_with( wanted ); } );
    if ( candidates.empty() )
        candidates.assign( names.begin(), names.end() );
    constexpr std::size_t few = 16;
    if ( candidates.empty() || candidates.size() > few )
        return {};
    std::string text = candidates.size() == 1 ? "there is " : "there are ";
    for ( std::size_t i = 0; i < candidates.size(); ++i ) {
        text += i == 0 ? "" : i + 1 == candidates.size() ? " and " : ", ";
        text += candidates[i];
    }
    return text;
}

} // namespace Text
