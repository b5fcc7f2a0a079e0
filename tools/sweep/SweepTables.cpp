#include "tools/sweep/SweepTables.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <utility>

namespace Tool {

TableId tableOf( const Interpose::Event & operation ) {
    return { operation.unit, operation.table };
}

TableRows rowsOf( const Sim::Chip & chip, const TableId & id ) {
    TableRows rows;
    for ( Sim::RowImage & image : chip.rows( id.unit, id.table, Sim::Rows::stored ) )
        rows.push_back( { std::move( image.id ), std::move( image.values ) } );
    return rows;
}

SweepTables tablesOf( const Sim::Chip & chip ) {
    SweepTables tables;
    for ( const int unit : chip.units() ) {
        for ( const Sim::Table & table : chip.schema( unit )->tables() ) {
            const TableId id{ unit, table.name };
            TableRows rows = rowsOf( chip, id );
            if ( !rows.empty() )
                tables[id] = std::move( rows );
        }
    }
    return tables;
}

const TableRows & rowsIn( const SweepTables & tables, const TableId & id ) {
    static const TableRows none;
    const auto found = tables.find( id );
    return found == tables.end() ? none : found->second;
}

const Sim::Table * findTable( const Model & model, const TableId & id ) {
    const ChipDescription * chip =
        id.unit < 0 ? nullptr : model.findUnit( static_cast<std::uint64_t>( id.unit ) );
    return chip == nullptr ? nullptr : chip->schema.find( id.table );
}

std::string toText( const TableId & id ) { return fmt::format( "unit {} {}", id.unit, id.table ); }

std::string toText( const Sim::Table & table, const TableRow & row ) {
    std::vector<std::string> place;
    std::string data;
    if ( table.isPhysical() )
        place.push_back( fmt::format( "index={} instance={} port={}", row.id.index, row.id.instance,
                                      row.id.port ) );
    auto element = row.values.begin();
    for ( const Sim::Field & field : table.fields ) {
        const auto end = element + field.length;
        const std::string text = fmt::format( "{}={}", field.name, fmt::join( element, end, "," ) );
        if ( field.role == Sim::FieldRole::key )
            place.push_back( text );
        else
            data += " " + text;
        element = end;
    }
    return fmt::format( "[{}]{}", fmt::join( place, " " ), data );
}

void dropField( SweepTables & tables, const SweepTables & before, const Model & model,
                const Interpose::Event & add ) {
    const TableId id = tableOf( add );
    const Sim::Table * table = findTable( model, id );
    const auto rows = tables.find( id );
    if ( table == nullptr || rows == tables.end() )
        return;
    std::ptrdiff_t first = 0;
    for ( const Sim::Field & field : table->fields ) {
        for ( TableRow & row : rows->second ) {
            if ( field.name != add.field )
                break;
            const auto & rowsBefore = rowsIn( before, id );
            const auto old = std::find_if( rowsBefore.begin(), rowsBefore.end(),
                                           [&]( const auto & each ) { return each.id == row.id; } );
            const auto values = row.values.begin() + first;
            if ( old == rowsBefore.end() )
                std::fill_n( values, field.length, field.reset );
            else
                std::copy_n( old->values.begin() + first, field.length, values );
        }
        first += field.length;
    }
}

} // namespace Tool
