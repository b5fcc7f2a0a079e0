#include "tracereader/Values.h"

namespace TraceReader {

std::uint64_t Value::element( std::size_t index ) const noexcept {
    return load<std::uint64_t>( array.data() + index * sizeof( std::uint64_t ) );
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
    for ( const char letter : record.site->letters )
        if ( !takeValue( cursor, letter, values.emplace_back() ) ) {
            values.pop_back();
            return;
        }
}

} // namespace TraceReader
