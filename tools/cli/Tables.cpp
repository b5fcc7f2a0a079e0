#include "tools/cli/Tables.h"

#include "text/Columns.h"
#include "text/NearestName.h"
#include "text/Numbers.h"
#include "tools/cli/Output.h"
#include "tools/model/Errors.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>

namespace Tool {

namespace {

using Json = nlohmann::ordered_json;

// Calls `show( unit, table, rows )` for each table that is selected.
template <class Show>
void forEachTable( const Sim::Chip & chip, const TableSelection & selection, const Show & show ) {
    for ( const int unit : chip.units() ) {
        if ( selection.unit && *selection.unit != unit )
            continue;
        for ( const Sim::Table & table : chip.schema( unit )->tables() ) {
            const auto & wanted = selection.tables;
            const bool named =
                std::find( wanted.begin(), wanted.end(), table.name ) != wanted.end();
            if ( !wanted.empty() && !named )
                continue;
            const auto rows = chip.rows( unit, table.name, selection.rows );
            if ( named || !rows.empty() )
                show( unit, table, rows );
        }
    }
}

// What addresses the rows of a physical table, where there is more than one.
std::vector<std::pair<const char *, uint32_t>> placeOf( const Sim::Table & table,
                                                        const Sim::RowId & id ) {
    std::vector<std::pair<const char *, uint32_t>> place;
    if ( !table.isPhysical() )
        return place;
    if ( table.size.rows > 1 )
        place.emplace_back( "index", id.index );
    if ( table.size.instances > 1 )
        place.emplace_back( "instance", id.instance );
    if ( table.size.ports > 0 )
        place.emplace_back( "port", id.port );
    return place;
}

// --- Text

std::string elementText( const Sim::Field & field, uint64_t value, bool written ) {
    const Sim::Symbol * symbol = field.findSymbol( value );
    const std::string text = symbol != nullptr ? symbol->name : Text::numberForTable( value );
    return written ? text : "(" + text + ")";
}

// The elements of a field from `first` on in a row.
std::string fieldText( const Sim::Field & field, const std::vector<uint64_t> & values,
                       const std::vector<bool> & written, std::size_t first ) {
    std::string text;
    for ( std::size_t i = 0; i < field.length; ) {
        const std::string element = elementText( field, values[first + i], written[first + i] );
        std::size_t run = 1;
        while ( i + run < field.length &&
                elementText( field, values[first + i + run], written[first + i + run] ) == element )
            ++run;
        text += ( text.empty() ? "" : ", " ) + element;
        if ( run > 1 )
            text += fmt::format( " x{}", run );
        i += run;
    }
    return text;
}

std::string tableTitle( int unit, const Sim::Table & table ) {
    const Sim::TableSize & size = table.size;
    std::string text =
        fmt::format( "{}  unit {}, {}, {}", heading( table.name ), unit,
                     Sim::kindName( table.kind ), Text::counted( size.rows, "row" ) );
    if ( size.instances > 1 )
        text += fmt::format( ", {} instances", size.instances );
    if ( size.ports > 0 )
        text += fmt::format( ", {} ports", size.ports );
    return text + "\n";
}

std::string tableText( int unit, const Sim::Table & table,
                       const std::vector<Sim::RowImage> & images ) {
    if ( images.empty() )
        return tableTitle( unit, table ) + "  no rows\n";

    Text::Columns::Line names;
    for ( const auto & [name, value] : placeOf( table, images.front().id ) )
        names.emplace_back( name );
    for ( const Sim::Field & field : table.fields )
        names.push_back( field.name );

    // A row a line or, where that is too wide, a field a line.
    Text::Columns rows;
    Text::Columns blocks;
    rows.add( names );
    const auto addRow = [&]( const Sim::RowImage & image, const std::vector<uint64_t> & values,
                             const char * note ) {
        Text::Columns::Line cells;
        for ( const auto & [name, value] : placeOf( table, image.id ) )
            cells.push_back( fmt::to_string( value ) );
        std::size_t element = 0;
        for ( const Sim::Field & field : table.fields ) {
            cells.push_back( fieldText( field, values, image.written, element ) );
            element += field.length;
        }
        if ( &image != &images.front() || values.data() != image.values.data() )
            blocks.addRemark( "--" );
        for ( std::size_t i = 0; i < names.size(); ++i )
            blocks.add( { names[i], cells[i] } );
        if ( *note != '\0' ) {
            blocks.addRemark( note );
            cells.emplace_back( note );
        }
        rows.add( std::move( cells ) );
    };
    for ( const Sim::RowImage & image : images ) {
        addRow( image, image.values, image.hardware.empty() ? "" : "in the SDK's cache" );
        if ( !image.hardware.empty() )
            addRow( image, image.hardware, "in the hardware" );
    }

    constexpr std::size_t lineWidth = 100;
    return tableTitle( unit, table ) +
           ( rows.width( names.size() ) <= lineWidth ? rows : blocks ).text();
}

// --- JSON

Json elementJson( const Sim::Field & field, uint64_t value ) {
    const Sim::Symbol * symbol = field.findSymbol( value );
    return symbol != nullptr ? Json( symbol->name ) : Json( value );
}

Json fieldsJson( const Sim::Table & table, const std::vector<uint64_t> & values ) {
    Json fields = Json::object();
    std::size_t element = 0;
    for ( const Sim::Field & field : table.fields ) {
        if ( field.length == 1 ) {
            fields[field.name] = elementJson( field, values[element] );
        } else {
            Json array = Json::array();
            for ( std::size_t i = 0; i < field.length; ++i )
                array.push_back( elementJson( field, values[element + i] ) );
            fields[field.name] = std::move( array );
        }
        element += field.length;
    }
    return fields;
}

Json rowJson( const Sim::Table & table, const Sim::RowImage & image ) {
    Json row;
    for ( const auto & [name, value] : placeOf( table, image.id ) )
        row[name] = value;
    row["fields"] = fieldsJson( table, image.values );
    Json written = Json::array();
    std::size_t element = 0;
    for ( const Sim::Field & field : table.fields ) {
        const auto begin = image.written.begin() + static_cast<std::ptrdiff_t>( element );
        if ( std::find( begin, begin + field.length, true ) != begin + field.length )
            written.push_back( field.name );
        element += field.length;
    }
    row["written"] = std::move( written );
    if ( !image.hardware.empty() )
        row["hardware"] = fieldsJson( table, image.hardware );
    return row;
}

} // namespace

void checkSelection( const Sim::Chip & chip, const TableSelection & selection ) {
    if ( selection.unit && chip.schema( *selection.unit ) == nullptr )
        throw InputError( fmt::format( "there is no unit {}", *selection.unit ) );
    std::vector<std::string_view> names;
    for ( const int unit : chip.units() ) {
        if ( selection.unit && *selection.unit != unit )
            continue;
        const auto tables = chip.schema( unit )->tableNames();
        names.insert( names.end(), tables.begin(), tables.end() );
    }
    for ( const std::string & table : selection.tables ) {
        if ( std::find( names.begin(), names.end(), table ) == names.end() )
            throw InputError( fmt::format( "there is no table \"{}\"", table ),
                              Text::nameHint( table, names ) );
    }
}

std::string tablesText( const Sim::Chip & chip, const TableSelection & selection ) {
    std::string text;
    forEachTable( chip, selection, [&]( int unit, const Sim::Table & table, const auto & rows ) {
        text += ( text.empty() ? "" : "\n" ) + tableText( unit, table, rows );
    } );
    return text.empty() ? "no rows\n" : text;
}

Json tablesJson( const Sim::Chip & chip, const TableSelection & selection ) {
    Json units = Json::array();
    for ( const int unit : chip.units() ) {
        if ( !selection.unit || *selection.unit == unit )
            units.push_back( { { "unit", unit }, { "tables", Json::array() } } );
    }
    forEachTable( chip, selection, [&]( int unit, const Sim::Table & table, const auto & images ) {
        Json rows = Json::array();
        for ( const Sim::RowImage & image : images )
            rows.push_back( rowJson( table, image ) );
        const auto place = std::find_if(
            units.begin(), units.end(), [&]( const Json & each ) { return each["unit"] == unit; } );
        ( *place )["tables"].push_back( { { "table", table.name },
                                          { "kind", Sim::kindName( table.kind ) },
                                          { "rows", std::move( rows ) } } );
    } );
    return { { "units", std::move( units ) } };
}

} // namespace Tool
