#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string_view>

// Copying a text and looking at each of its bytes at once, some bytes at a time. The texts of lines are
// short: a call to copy one takes as long as the copy.

namespace CairnPlatform {

/// A word with this value in each byte.
template <class Word>
inline constexpr Word inEachByte( unsigned char value ) noexcept {
    return static_cast<Word>( std::numeric_limits<Word>::max() / 0xFF * value );
}

template <class Word, class Predicate>
[[gnu::always_inline]] inline bool copyWords( char * to, std::string_view text,
                                              Predicate isFound ) noexcept {
    const auto copy = [=]( std::size_t at ) {
        Word word;
        std::memcpy( &word, text.data() + at, sizeof word );
        std::memcpy( to + at, &word, sizeof word );
        return isFound( word );
    };
    // The last word overlaps the one before it, so that nothing beyond the text is read or written.
    const std::size_t last = text.size() - sizeof( Word );
    auto found = copy( last );
    for ( std::size_t at = 0; at < last; at += sizeof( Word ) )
        found |= copy( at );
    return found != 0;
}

/// Copies the text, and returns whether `isFound` is not 0 for one of the words that it consists of.
/// The words are of one, four or eight bytes; a byte may be in two of them.
template <class Predicate>
[[gnu::always_inline]] inline bool copyText( char * to, std::string_view text,
                                             Predicate isFound ) noexcept {
    if ( text.size() >= sizeof( std::uint64_t ) )
        return copyWords<std::uint64_t>( to, text, isFound );
    if ( text.size() >= sizeof( std::uint32_t ) )
        return copyWords<std::uint32_t>( to, text, isFound );
    return !text.empty() && copyWords<std::uint8_t>( to, text, isFound );
}

} // namespace CairnPlatform
