#pragma once

#include <charconv>
#include <concepts>
#include <cstddef>
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
        std::memcpy( room( text.size() ), text.data(), text.size() );
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

    std::string_view text() const noexcept { return { at_, length_ }; }

    /// The text with a zero byte behind it.
    const char * c_str() {
        *room( 1 ) = '\0';
        return at_;
    }

  private:
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
