#include "tracereader/Values.h"

#include <Fleetlog/Format.h>

namespace TraceReader {

std::uint64_t Value::element( std::size_t index ) const noexcept {
    return load<std::uint64_t>( array.data() + index * sizeof( std::uint64_t ) );
}

bool takeValue( Cursor & cursor, char letter, Value & value ) noexcept {
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

std::optional<std::size_t> fixedSize( std::string_view letters ) noexcept {
    std::size_t size = 0;
    for ( const char letter : letters ) {
        switch ( letter ) {
        case 'l':
            size += 8;
            break;
        case 'i':
        case 'n':
            size += 4;
            break;
        case 's':
            size += 2;
            break;
        case 'b':
            size += 1;
            break;
        default:
            return std::nullopt;
        }
    }
    return size;
}

void decode( const Record & record, std::vector<Value> & values ) {
    values.clear();
    if ( record.site == nullptr )
        return;
    Cursor cursor( record.payload );
    Value value;
    for ( const char letter : record.site->letters ) {
        if ( !takeValue( cursor, letter, value ) )
            return;
        values.push_back( value );
    }
}

} // namespace TraceReader
