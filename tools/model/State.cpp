#include "tools/model/State.h"

#include "tools/model/Errors.h"
#include "tools/model/Files.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <sys/stat.h>
#include <utility>

namespace Tool {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char * formatName = "cairn-lt chip state";

const char * kindWord( Sim::TableKind kind ) {
    switch ( kind ) {
    case Sim::TableKind::logical:
        return "logical";
    case Sim::TableKind::physicalRegister:
        return "register";
    case Sim::TableKind::physicalMemory:
        return "memory";
    }
    return "";
}

// --- Writing

Json fieldToJson( const Sim::Field & field ) {
    Json json{ { "name", field.name }, { "width", field.width } };
    if ( field.role == Sim::FieldRole::key )
        json["key"] = true;
    if ( field.length != 1 )
        json["length"] = field.length;
    if ( !field.symbols.empty() ) {
        Json symbols = Json::array();
        for ( const Sim::Symbol & symbol : field.symbols )
            symbols.push_back( Json::array( { symbol.name, symbol.value } ) );
        json["symbols"] = std::move( symbols );
    }
    if ( field.reset != 0 )
        json["reset"] = field.reset;
    if ( field.powerOn )
        json["power_on"] = *field.powerOn;
    return json;
}

Json rowToJson( const Sim::Table & table, const Sim::RowImage & row ) {
    Json json;
    if ( table.isPhysical() )
        json["at"] = Json::array( { row.id.index, row.id.instance, row.id.port } );
    json["values"] = row.values;
    std::string written;
    for ( const bool element : row.written )
        written += element ? '1' : '0';
    json["written"] = written;
    json["touched"] = row.touched;
    if ( !row.hardware.empty() )
        json["hardware"] = row.hardware;
    return json;
}

Json tableToJson( const Sim::Chip & chip, int unit, const Sim::Table & table ) {
    Json fields = Json::array();
    for ( const Sim::Field & field : table.fields )
        fields.push_back( fieldToJson( field ) );
    Json contents = Json::array();
    for ( const Sim::RowImage & row : chip.rows( unit, table.name, Sim::Rows::stored ) )
        contents.push_back( rowToJson( table, row ) );
    return { { "name", table.name },
             { "kind", kindWord( table.kind ) },
             { "rows", table.size.rows },
             { "instances", table.size.instances },
             { "ports", table.size.ports },
             { "preloaded", table.preloaded },
             { "fields", std::move( fields ) },
             { "contents", std::move( contents ) } };
}

// --- Reading

struct Malformed {
    std::string what;
};

const Json & member( const Json & json, const char * name ) {
    if ( !json.is_object() || !json.contains( name ) )
        throw Malformed{ std::string( "\"" ) + name + "\" is missing" };
    return json.at( name );
}

const Json & arrayMember( const Json & json, const char * name ) {
    const Json & array = member( json, name );
    if ( !array.is_array() )
        throw Malformed{ std::string( "\"" ) + name + "\" is not an array" };
    return array;
}

template <class T>
T number( const Json & json, const std::string & what ) {
    if ( !json.is_number_unsigned() || json.get<uint64_t>() > std::numeric_limits<T>::max() )
        throw Malformed{ "\"" + what + "\" is not a number from 0 to " +
                         fmt::to_string( std::numeric_limits<T>::max() ) };
    return json.get<T>();
}

template <class T>
T numberMember( const Json & json, const char * name ) {
    return number<T>( member( json, name ), name );
}

template <class T>
T numberMember( const Json & json, const char * name, T fallback ) {
    return json.contains( name ) ? numberMember<T>( json, name ) : fallback;
}

bool flagMember( const Json & json, const char * name, bool fallback ) {
    if ( !json.contains( name ) )
        return fallback;
    if ( !json.at( name ).is_boolean() )
        throw Malformed{ std::string( "\"" ) + name + "\" is not true or false" };
    return json.at( name ).get<bool>();
}

std::string textMember( const Json & json, const char * name ) {
    const Json & text = member( json, name );
    if ( !text.is_string() )
        throw Malformed{ std::string( "\"" ) + name + "\" is not a text" };
    return text.get<std::string>();
}

std::vector<uint64_t> numbers( const Json & json, const char * name ) {
    std::vector<uint64_t> values;
    for ( const Json & value : arrayMember( json, name ) )
        values.push_back( number<uint64_t>( value, name ) );
    return values;
}

Sim::TableKind kindOf( const std::string & word ) {
    for ( const auto kind : { Sim::TableKind::logical, Sim::TableKind::physicalRegister,
                              Sim::TableKind::physicalMemory } ) {
        if ( word == kindWord( kind ) )
            return kind;
    }
    throw Malformed{ "there is no kind \"" + word + "\"" };
}

Sim::Field fieldFromJson( const Json & json ) {
    Sim::Field field;
    field.name = textMember( json, "name" );
    field.width = numberMember<uint32_t>( json, "width" );
    field.role = flagMember( json, "key", false ) ? Sim::FieldRole::key : Sim::FieldRole::data;
    field.length = numberMember<uint32_t>( json, "length", 1 );
    if ( json.contains( "symbols" ) ) {
        for ( const Json & symbol : arrayMember( json, "symbols" ) ) {
            if ( !symbol.is_array() || symbol.size() != 2 || !symbol[0].is_string() )
                throw Malformed{ "a symbol is not a name and a value" };
            field.symbols.push_back(
                { symbol[0].get<std::string>(), number<uint64_t>( symbol[1], "symbols" ) } );
        }
    }
    field.reset = numberMember<uint64_t>( json, "reset", 0 );
    if ( json.contains( "power_on" ) )
        field.powerOn = numberMember<uint64_t>( json, "power_on" );
    return field;
}

Sim::RowImage rowFromJson( const Json & json, const Sim::Table & table ) {
    Sim::RowImage row;
    if ( table.isPhysical() ) {
        const Json & at = arrayMember( json, "at" );
        if ( at.size() != 3 )
            throw Malformed{ "\"at\" is not an index, an instance and a port" };
        row.id.index = number<uint32_t>( at[0], "at" );
        row.id.instance = number<uint32_t>( at[1], "at" );
        row.id.port = number<uint32_t>( at[2], "at" );
    }
    row.values = numbers( json, "values" );
    for ( const char digit : textMember( json, "written" ) )
        row.written.push_back( digit == '1' );
    row.touched = flagMember( json, "touched", true );
    if ( json.contains( "hardware" ) )
        row.hardware = numbers( json, "hardware" );
    if ( row.values.size() != table.elementCount() || row.written.size() != row.values.size() ||
         ( !row.hardware.empty() && row.hardware.size() != row.values.size() ) )
        throw Malformed{ "table " + table.name + ": a row does not have a value for each element" };
    return row;
}

SavedUnit unitFromJson( const Json & json ) {
    SavedUnit saved;
    saved.unit = static_cast<int>( numberMember<uint16_t>( json, "unit" ) );
    for ( const Json & tableJson : arrayMember( json, "tables" ) ) {
        if ( saved.schema.tables().size() == mostTables )
            throw Malformed{ fmt::format( "a unit of more than {} tables", mostTables ) };
        Sim::Table table;
        table.name = textMember( tableJson, "name" );
        table.kind = kindOf( textMember( tableJson, "kind" ) );
        table.size = { .rows = numberMember<uint32_t>( tableJson, "rows" ),
                       .instances = numberMember<uint32_t>( tableJson, "instances" ),
                       .ports = numberMember<uint32_t>( tableJson, "ports" ) };
        table.preloaded = flagMember( tableJson, "preloaded", false );
        for ( const Json & field : arrayMember( tableJson, "fields" ) )
            table.fields.push_back( fieldFromJson( field ) );
        const std::vector<std::string> problems = Sim::check( table );
        if ( !problems.empty() )
            throw Malformed{ problems.front() };
        SavedUnit::Contents contents{ table.name, {} };
        for ( const Json & row : arrayMember( tableJson, "contents" ) )
            contents.rows.push_back( rowFromJson( row, table ) );
        saved.tables.push_back( std::move( contents ) );
        const std::string problem = saved.schema.add( std::move( table ) );
        if ( !problem.empty() )
            throw Malformed{ problem };
    }
    return saved;
}

std::vector<SavedUnit> unitsFromJson( const Json & json ) {
    if ( !json.is_object() || !json.contains( "format" ) || json.at( "format" ) != formatName )
        throw Malformed{ "it does not begin with the format \"" + std::string( formatName ) +
                         "\"" };
    const int version = numberMember<uint16_t>( json, "version" );
    if ( version != stateVersion )
        throw Malformed{ fmt::format( "version {} is not known, this program reads version {}",
                                      version, stateVersion ) };
    std::vector<SavedUnit> units;
    for ( const Json & unit : arrayMember( json, "units" ) ) {
        if ( units.size() == mostChips )
            throw Malformed{ fmt::format( "more than {} units", mostChips ) };
        units.push_back( unitFromJson( unit ) );
        const int added = units.back().unit;
        if ( std::count_if( units.begin(), units.end(),
                            [&]( const SavedUnit & each ) { return each.unit == added; } ) > 1 )
            throw Malformed{ fmt::format( "unit {} is there twice", added ) };
    }
    return units;
}

InputError notAStateFile( const std::string & file, const std::string & why ) {
    return InputError( file, 0, "not a state file: " + why,
                       "name another file, or remove this one to start afresh" );
}

} // namespace

std::vector<SavedUnit> parseState( std::string_view contents, const std::string & file ) {
    const auto refuse = [&]( const std::string & what ) { return notAStateFile( file, what ); };
    try {
        return unitsFromJson( Json::parse( contents ) );
    } catch ( const Malformed & malformed ) {
        throw refuse( malformed.what );
    } catch ( const Json::parse_error & error ) {
        throw refuse( fmt::format( "it is not JSON at byte {}", error.byte ) );
    } catch ( const Json::out_of_range & ) {
        throw refuse( "it holds a number that is too large" );
    }
}

std::vector<SavedUnit> loadState( const std::string & file ) {
    struct stat status {};
    if ( ::stat( file.c_str(), &status ) != 0 && errno == ENOENT )
        return {};
    if ( status.st_mode != 0 && !S_ISREG( status.st_mode ) )
        throw InputError( file, 0, "is no regular file", "name another state file" );
    return parseState( readFile( file ), file );
}

std::vector<ChipDescription> savedChips( const std::string & stateFile ) {
    std::vector<ChipDescription> chips;
    for ( SavedUnit & saved : loadState( stateFile ) )
        chips.push_back( defaultChip( saved.unit, std::move( saved.schema ), stateFile ) );
    return chips;
}

void restore( Sim::Chip & chip, const std::vector<SavedUnit> & units, const std::string & file ) {
    for ( const SavedUnit & saved : units ) {
        if ( chip.clear( saved.unit ) != Sim::Rc::ok )
            throw InputError( file, 0, chip.lastError() );
        for ( const SavedUnit::Contents & table : saved.tables ) {
            for ( const Sim::RowImage & row : table.rows ) {
                if ( chip.restoreRow( saved.unit, table.table, row ) != Sim::Rc::ok )
                    throw notAStateFile( file, chip.lastError() );
            }
        }
    }
}

void restoreDescribed( Sim::Chip & chip, const std::vector<SavedUnit> & units,
                       const std::string & file ) {
    for ( const SavedUnit & saved : units ) {
        const Sim::Schema * const schema = chip.schema( saved.unit );
        if ( schema == nullptr || !( *schema == saved.schema ) )
            throw InputError(
                file, 0,
                fmt::format( "unit {} is another chip than the one described", saved.unit ),
                "leave --chip and --model out, or name another state file" );
    }
    restore( chip, units, file );
}

std::string stateText( const Sim::Chip & chip ) {
    Json units = Json::array();
    for ( const int unit : chip.units() ) {
        Json tables = Json::array();
        for ( const Sim::Table & table : chip.schema( unit )->tables() )
            tables.push_back( tableToJson( chip, unit, table ) );
        units.push_back( { { "unit", unit }, { "tables", std::move( tables ) } } );
    }
    const Json json{
        { "format", formatName }, { "version", stateVersion }, { "units", std::move( units ) } };
    return json.dump() + "\n";
}

} // namespace Tool
