#include "sim/TableState.h"

#include <algorithm>
#include <utility>

namespace Sim {

TableState::TableState( const Table & t )
    : table( t ), layout( t ), logicalRows( layout ), physicalRows( layout ),
      scratch( layout.words() ) {
    const std::vector<Layout::FieldPlace> & places = layout.fields();
    symbols.resize( places.size() );
    for ( std::uint32_t i = 0; i < places.size(); ++i ) {
        fieldNumbers.emplace( places[i].field->name, i );
        for ( const Symbol & symbol : places[i].field->symbols ) {
            symbols[i].byName.emplace( symbol.name, symbol.value );
            symbols[i].byValue.emplace( symbol.value, symbol.name );
        }
    }
    for ( std::uint32_t part = 0; part < addressParts; ++part )
        fieldNumbers.emplace( addressNames[part], firstAddressField + part );
    if ( table.preloaded )
        preload();
}

void TableState::preload() {
    layout.fillInitial( scratch.data() );
    const std::vector<std::uint32_t> & keys = layout.keyElements();
    if ( keys.empty() ) {
        logicalRows.insert( scratch.data() );
        return;
    }
    for ( const Symbol & symbol : layout.fieldOf( keys.front() ).symbols ) {
        layout.put( scratch.data(), keys.front(), symbol.value );
        logicalRows.insert( scratch.data() );
    }
}

bool TableState::has( const Address & address ) const {
    return address[indexPart] < table.size.rows && address[instancePart] < table.size.instances &&
           address[portPart] < std::max( table.size.ports, 1u );
}

std::uint64_t TableState::rowNumber( const Address & address ) const {
    const std::uint64_t ports = std::max( table.size.ports, 1u );
    return ( address[instancePart] * ports + address[portPart] ) * table.size.rows +
           address[indexPart];
}

RowImage TableState::imageOf( const std::uint64_t * row ) const {
    RowImage image;
    image.values.reserve( layout.elementCount() );
    image.written.reserve( layout.elementCount() );
    for ( std::uint32_t element = 0; element < layout.elementCount(); ++element ) {
        image.values.push_back( layout.get( row, element ) );
        image.written.push_back( Layout::isMarked( row, element ) );
    }
    for ( const std::uint32_t element : layout.keyElements() )
        image.id.key.push_back( layout.get( row, element ) );
    image.touched = Layout::isTouched( row );
    return image;
}

RowImage TableState::physicalImage( std::uint64_t number ) const {
    RowImage image;
    if ( const std::uint64_t * row = physicalRows.find( number ) ) {
        image = imageOf( row );
    } else {
        std::vector<std::uint64_t> initial( layout.words() );
        layout.fillInitial( initial.data() );
        image = imageOf( initial.data() );
    }
    if ( const std::uint64_t * hardware = physicalRows.hardware( number ) )
        image.hardware = imageOf( hardware ).values;
    const std::uint64_t rowOfPort = number / table.size.rows;
    const std::uint64_t ports = std::max( table.size.ports, 1u );
    image.id.index = static_cast<std::uint32_t>( number % table.size.rows );
    image.id.port = static_cast<std::uint32_t>( rowOfPort % ports );
    image.id.instance = static_cast<std::uint32_t>( rowOfPort / ports );
    return image;
}

std::vector<RowImage> TableState::images( Rows which ) const {
    std::vector<RowImage> images;
    if ( table.isPhysical() ) {
        images.reserve( physicalRows.size() );
        for ( const std::uint64_t number : physicalRows.numbers() )
            images.push_back( physicalImage( number ) );
        return images;
    }
    std::vector<const std::uint64_t *> rows = logicalRows.all();
    std::sort( rows.begin(), rows.end(), [&]( const std::uint64_t * a, const std::uint64_t * b ) {
        for ( const std::uint32_t element : layout.keyElements() ) {
            const std::uint64_t left = layout.get( a, element );
            const std::uint64_t right = layout.get( b, element );
            if ( left != right )
                return left < right;
        }
        return false;
    } );
    images.reserve( rows.size() );
    for ( const std::uint64_t * row : rows ) {
        if ( which == Rows::stored || Layout::isTouched( row ) )
            images.push_back( imageOf( row ) );
    }
    return images;
}

std::optional<RowImage> TableState::image( const RowId & id ) {
    if ( table.isPhysical() ) {
        if ( !id.key.empty() || !has( addressOf( id ) ) )
            return {};
        return physicalImage( rowNumber( addressOf( id ) ) );
    }
    const std::vector<std::uint32_t> & keys = layout.keyElements();
    if ( id.key.size() != keys.size() )
        return {};
    for ( std::size_t i = 0; i < keys.size(); ++i ) {
        if ( id.key[i] > layout.fieldOf( keys[i] ).maximum() )
            return {};
        layout.put( scratch.data(), keys[i], id.key[i] );
    }
    const std::uint64_t * row = logicalRows.find( scratch.data() );
    return row != nullptr ? std::optional( imageOf( row ) ) : std::nullopt;
}

UnitState::UnitState( Schema s ) : schema( std::move( s ) ) {
    for ( const Table & table : schema.tables() )
        tables.emplace( table.name, std::make_unique<TableState>( table ) );
}

} // namespace Sim
