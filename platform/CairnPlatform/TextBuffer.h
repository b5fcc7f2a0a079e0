#pragma once

#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <string_view>
#include <utility>

namespace CairnPlatform {

/// An integer that is printed as a number.
template <typename Type>
concept PrintedInteger =
    std::integral<Type> && !std::same_as<Type, char> && !std::same_as<Type, bool>;

/// A text that is being built. It is kept in place and goes to the heap only when it grows beyond
/// what most lines need, so that a line of the trace costs no allocation.
class TextBuffer {
  public:
    static constexpr std::size_t inPlace = 512;

    TextBuffer() = default; // leaves the characters as they are
    TextBuffer( const TextBuffer & ) = delete;
    TextBuffer & operator=( const TextBuffer & ) = delete;

    void append( std::string_view text ) {
        copy( room( text.size() ), text );
        length_ += text.size();
    }

    void append( std::same_as<char> auto character ) {
        *room( 1 ) = character;
        ++length_;
    }

    /// In decimal.
    template <PrintedInteger Number>
    void append( Number number ) {
        constexpr std::size_t longest = std::numeric_limits<Number>::digits10 + 2; // with the sign
        char * const at = room( longest );
        length_ += static_cast<std::size_t>( std::to_chars( at, at + longest, number ).ptr - at );
    }

    /// Lets `write` write as many bytes to the place that it is given, and appends them if it returns
    /// true. Otherwise the text stays as it was.
    template <class Writer>
    bool appendIf( std::size_t bytes, Writer write ) {
        if ( !write( room( bytes ) ) )
            return false;
        length_ += bytes;
        return true;
    }

    std::string_view text() const noexcept { return { at_, length_ }; }

    /// The text with a zero byte behind it.
    const char * c_str() {
        *room( 1 ) = '\0';
        return at_;
    }

  private:
    /// Like memcpy(), for which a call takes as long as the copy of a short text. The last word overlaps
    /// the first, so that nothing beyond the text is read or written.
    static void copy( char * to, std::string_view text ) noexcept {
        const auto copyEnds = [=]<class Word>( Word first, Word last ) {
            const std::size_t lastAt = text.size() - sizeof( Word );
            std::memcpy( &first, text.data(), sizeof first );
            std::memcpy( &last, text.data() + lastAt, sizeof last );
            std::memcpy( to, &first, sizeof first );
            std::memcpy( to + lastAt, &last, sizeof last );
        };
        if ( text.size() > 2 * sizeof( std::uint64_t ) )
            std::memcpy( to, text.data(), text.size() );
        else if ( text.size() >= sizeof( std::uint64_t ) )
            copyEnds( std::uint64_t(), std::uint64_t() );
        else if ( text.size() >= sizeof( std::uint32_t ) )
            copyEnds( std::uint32_t(), std::uint32_t() );
        else
            for ( std::size_t at = 0; at < text.size(); ++at )
                to[at] = text[at];
    }

    /// Where the next bytes go; there is room for as many.
    char * room( std::size_t bytes ) {
        if ( bytes > capacity_ - length_ ) [[unlikely]]
            grow( bytes );
        return at_ + length_;
    }

    [[gnu::cold, gnu::noinline]] void grow( std::size_t bytes ) {
        const std::size_t capacity = 2 * ( length_ + bytes );
        auto larger = std::make_unique_for_overwrite<char[]>( capacity );
        std::memcpy( larger.get(), at_, length_ );
        heap_ = std::move( larger );
        at_ = heap_.get();
        capacity_ = capacity;
    }

    char inPlace_[inPlace];
    char * at_ = inPlace_;
    std::size_t length_ = 0;
    std::size_t capacity_ = inPlace;
    std::unique_ptr<char[]> heap_;
};

} // namespace CairnPlatform
