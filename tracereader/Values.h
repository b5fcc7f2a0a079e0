#pragma once

#include "tracereader/Source.h"
#include "tracereader/TraceReader.h"

#include <Fleetlog/Format.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace TraceReader {

/// Takes values off the front of bytes; once one does not fit, nothing does.
class Cursor {
  public:
    explicit Cursor( std::span<const std::byte> bytes ) noexcept : bytes_( bytes ) {}

    template <class Number>
    bool take( Number & number ) noexcept {
        if ( bytes_.size() < sizeof number )
            return false;
        number = load<Number>( bytes_.data() );
        bytes_ = bytes_.subspan( sizeof number );
        return true;
    }

    /// A text with its length before it. The top bit of the length may be a flag.
    bool take( std::string_view & text, std::uint16_t flag, bool & isFlagged ) noexcept {
        std::uint16_t prefix = 0;
        if ( !take( prefix ) )
            return false;
        isFlagged = ( prefix & flag ) != 0;
        const std::size_t length = prefix & static_cast<std::uint16_t>( ~flag );
        if ( bytes_.size() < length )
            return false;
        text = { reinterpret_cast<const char *>( bytes_.data() ), length };
        bytes_ = bytes_.subspan( length );
        return true;
    }

    bool take( std::string_view & text ) noexcept {
        bool isFlagged = false;
        return take( text, 0, isFlagged );
    }

    bool take( std::span<const std::byte> & bytes, std::size_t size ) noexcept {
        if ( bytes_.size() < size )
            return false;
        bytes = bytes_.first( size );
        bytes_ = bytes_.subspan( size );
        return true;
    }

    std::size_t left() const noexcept { return bytes_.size(); }

  private:
    std::span<const std::byte> bytes_;
};

/// Takes the value that a format letter stands for.
inline bool takeValue( Cursor & cursor, char letter, Value & value ) noexcept {
    value = {};
    value.letter = letter;
    std::uint16_t two = 0;
    std::uint8_t one = 0;
    switch ( letter ) {
    case 'l':
        return cursor.take( value.wide );
    case 'a':
        return cursor.take( two ) && cursor.take( value.array, two * sizeof( std::uint64_t ) );
    case 'i':
    case 'n':
        return cursor.take( value.number );
    case 's':
        if ( !cursor.take( two ) )
            return false;
        value.number = two;
        return true;
    case 'b':
        if ( !cursor.take( one ) )
            return false;
        value.number = one;
        return true;
    case 'p':
        return cursor.take( value.text, Fleetlog::Format::textCutFlag, value.isCut );
    default:
        return false;
    }
}

/// The bytes of values that always take as many; nothing if there are texts, arrays, or letters that nobody knows.
std::optional<std::size_t> fixedSize( std::string_view letters ) noexcept;

} // namespace TraceReader
