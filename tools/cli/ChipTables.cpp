#include "text/Columns.h"
#include "text/NearestName.h"
#include "text/Numbers.h"
#include "tools/cli/Verbs.h"
#include "tools/model/Errors.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Tool {

namespace {

using Json = nlohmann::ordered_json;

const char * roleName( const Sim::Field & field ) {
    return field.role == Sim::FieldRole::key ? "key" : "data";
}

// A value of a field, by its symbol if it has one.
std::string valueText( const Sim::Field & field, std::uint64_t value ) {
    const Sim::Symbol * symbol = field.findSymbol( value );
    return symbol != nullptr ? symbol->name : Text::numberForTable( value );
}

// --- Text

std::string sizeText( const Sim::Table & table ) {
    const auto rows = [&]( const char * prefix ) {
        return prefix + Text::counted( table.size.rows, "row" );
    };
    if ( !table.isPhysical() )
        return table.preloaded ? rows( "" ) + ", there from the start" : rows( "at most " );
    std::string text = rows( "" );
    if ( table.size.rows > 1 )
        text += fmt::format( ", {} 0 to {}", Sim::indexField, table.size.rows - 1 );
    if ( table.size.instances > 1 )
        text += fmt::format( "; {} 0 to {}", Sim::instanceField, table.size.instances - 1 );
    if ( table.size.ports > 0 )
        text += fmt::format( "; {} 0 to {}", Sim::portField, table.size.ports - 1 );
    return text;
}

std::string symbolsText( const Sim::Field & field ) {
    std::vector<std::string> symbols;
    for ( const Sim::Symbol & symbol : field.symbols )
        symbols.push_back( fmt::format( "{}={}", symbol.name, symbol.value ) );
    return fmt::format( "{}", fmt::join( symbols, ", " ) );
}

std::string tableText( int unit, const Sim::Table & table ) {
    std::string text =
        heading( fmt::format( "{}: {} of unit {}, {}", table.name, Sim::kindName( table.kind ),
                              unit, sizeText( table ) ) ) +
        "\n";
    Text::Columns columns;
    columns.add( { "field", "role", "bits", "elements", "reset", "power-on", "symbols" } );
    for ( const Sim::Field & field : table.fields ) {
        const bool isKey = field.role == Sim::FieldRole::key;
        columns.add( { field.name, roleName( field ), fmt::to_string( field.width ),
                       fmt::to_string( field.length ),
                       isKey ? "-" : valueText( field, field.reset ),
                       isKey ? "-" : valueText( field, field.initial() ), symbolsText( field ) } );
    }
    return text + columns.text();
}

std::string chipText( const ChipDescription & chip ) {
    std::string text = heading( fmt::format( "unit {}: {}, {} tables", chip.unit, chip.source,
                                             chip.schema.tables().size() ) ) +
                       "\n";
    Text::Columns columns;
    columns.add( { "table", "kind", "rows", "instances", "ports", "fields" } );
    for ( const Sim::Table & table : chip.schema.tables() ) {
        const auto size = [&]( std::uint32_t number ) {
            return table.isPhysical() && number > 0 ? fmt::to_string( number ) : "-";
        };
        columns.add( { table.name, Sim::kindName( table.kind ), fmt::to_string( table.size.rows ),
                       size( table.size.instances ), size( table.size.ports ),
                       fmt::to_string( table.fields.size() ) } );
    }
    return text + columns.text();
}

// --- JSON

Json fieldJson( const Sim::Field & field ) {
    Json json{ { "name", field.name },
               { "role", roleName( field ) },
               { "width", field.width },
               { "length", field.length } };
    if ( field.role != Sim::FieldRole::key ) {
        json["reset"] = field.reset;
        json["power_on"] = field.initial();
    }
    Json symbols = Json::object();
    for ( const Sim::Symbol & symbol : field.symbols )
        symbols[symbol.name] = symbol.value;
    json["symbols"] = std::move( symbols );
    return json;
}

Json tableJson( const Sim::Table & table ) {
    Json json{ { "name", table.name },
               { "kind", Sim::kindName( table.kind ) },
               { "rows", table.size.rows } };
    if ( table.isPhysical() ) {
        json["instances"] = table.size.instances;
        json["ports"] = table.size.ports;
    } else {
        json["preloaded"] = table.preloaded;
    }
    Json fields = Json::array();
    for ( const Sim::Field & field : table.fields )
        fields.push_back( fieldJson( field ) );
    json["fields"] = std::move( fields );
    return json;
}

// --- What is asked for

// Each name must be that of a table of one of the chips.
void checkNames( const std::vector<const ChipDescription *> & chips,
                 const std::vector<std::string> & wanted ) {
    std::vector<std::string_view> names;
    for ( const ChipDescription * chip : chips ) {
        const auto tables = chip->schema.tableNames();
        names.insert( names.end(), tables.begin(), tables.end() );
    }
    for ( const std::string & table : wanted ) {
        if ( std::find( names.begin(), names.end(), table ) != names.end() )
            continue;
        const std::string hint = Text::nameHint( table, names );
        throw InputError(
            fmt::format( "there is no table \"{}\"", table ),
            fmt::format( "{}{}\"cairn-lt tables\" shows all", hint, hint.empty() ? "" : "; " ) );
    }
}

std::vector<const ChipDescription *> wantedChips( const Model & model, std::optional<int> unit ) {
    std::vector<const ChipDescription *> chips;
    for ( const ChipDescription & chip : model.chips ) {
        if ( !unit || chip.unit == *unit )
            chips.push_back( &chip );
    }
    if ( chips.empty() )
        throw InputError( fmt::format( "--unit: there is no unit {}", *unit ),
                          "\"cairn-lt tables\" without --unit shows all" );
    return chips;
}

std::vector<const Sim::Table *> wantedTables( const ChipDescription & chip,
                                              const std::vector<std::string> & wanted ) {
    std::vector<const Sim::Table *> tables;
    for ( const Sim::Table & table : chip.schema.tables() ) {
        if ( wanted.empty() ||
             std::find( wanted.begin(), wanted.end(), table.name ) != wanted.end() )
            tables.push_back( &table );
    }
    return tables;
}

} // namespace

int tables( const TablesOptions & options ) {
    const Model model = modelOf( options.chips );
    const auto chips = wantedChips( model, options.unit );
    checkNames( chips, options.tables );
    Json units = Json::array();
    std::string text;
    const auto addText = [&]( const std::string & part ) {
        text += ( text.empty() ? "" : "\n" ) + part;
    };
    for ( const ChipDescription * chip : chips ) {
        Json all = Json::array();
        for ( const Sim::Table * table : wantedTables( *chip, options.tables ) ) {
            all.push_back( tableJson( *table ) );
            if ( !options.tables.empty() )
                addText( tableText( chip->unit, *table ) );
        }
        if ( options.tables.empty() )
            addText( chipText( *chip ) );
        units.push_back( { { "unit", chip->unit },
                           { "chip", chip->name() },
                           { "source", chip->source },
                           { "tables", std::move( all ) } } );
    }
    print( options.format == Format::json ? documentText( { { "units", std::move( units ) } } )
                                          : text );
    return 0;
}

} // namespace Tool
