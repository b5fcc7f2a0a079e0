#include "tools/model/ChipFile.h"

#include "tools/model/Errors.h"
#include "tools/model/Files.h"
#include "tools/model/Model.h"
#include "tools/model/Toml.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>
#include <utility>
#include <vector>

namespace Tool {

namespace {

class ChipFileReader {
  public:
    explicit ChipFileReader( const std::string & file ) : toml_( file ) {}

    Sim::Schema read( const TomlNode & root ) {
        toml_.expectKeys( root, { "description", "base", "remove", "resize", "tables" },
                          "a chip file" );
        if ( const TomlNode * description = root.find( "description" ) )
            toml_.text( *description, "description" );
        readBase( toml_.need( root, "base", "a chip file" ) );
        if ( const TomlNode * remove = root.find( "remove" ) )
            readRemove( *remove );
        for ( const TomlNode & resize : toml_.tables( root, "resize" ) )
            readResize( resize );
        for ( const TomlNode & table : toml_.tables( root, "tables" ) )
            readTable( table );
        return std::move( schema_ );
    }

  private:
    void readBase( const TomlNode & node ) {
        const std::string & base = toml_.text( node, "base" );
        if ( base == "reference" )
            schema_ = Sim::referenceSchema();
        else if ( base != "nothing" )
            toml_.refuse( node.line, fmt::format( "there is no base \"{}\"", base ),
                          "write \"reference\" or \"nothing\"" );
    }

    void readRemove( const TomlNode & node ) {
        toml_.expectKind( node, TomlNode::Kind::array, "remove" );
        for ( const TomlNode & table : node.items ) {
            const std::string problem = schema_.remove( toml_.text( table, "a table to remove" ) );
            if ( !problem.empty() )
                toml_.refuse( table.line, problem );
        }
    }

    void readResize( const TomlNode & node ) {
        toml_.expectKeys( node, { "table", "rows", "instances", "ports" }, "[[resize]]" );
        const TomlNode & name = toml_.need( node, "table", "[[resize]]" );
        const std::string & table = toml_.text( name, "table" );
        const Sim::Table * found = schema_.find( table );
        const std::string problem = schema_.resize(
            table, readSize( node, found == nullptr ? Sim::TableSize() : found->size ) );
        if ( !problem.empty() )
            toml_.refuse( name.line, problem );
    }

    Sim::TableSize readSize( const TomlNode & node, const Sim::TableSize & fallback ) {
        return { .rows = toml_.number( node, "rows", fallback.rows ),
                 .instances = toml_.number( node, "instances", fallback.instances ),
                 .ports = toml_.number( node, "ports", fallback.ports ) };
    }

    void readTable( const TomlNode & node ) {
        toml_.expectKeys( node,
                          { "name", "kind", "rows", "instances", "ports", "preloaded", "fields" },
                          "[[tables]]" );
        Sim::Table table;
        const TomlNode & name = toml_.need( node, "name", "[[tables]]" );
        table.name = toml_.text( name, "name" );
        table.kind = readKind( toml_.need( node, "kind", "table " + table.name ) );
        table.size = readSize( node, {} );
        if ( const TomlNode * preloaded = node.find( "preloaded" ) )
            table.preloaded = toml_.boolean( *preloaded, "preloaded" );
        const TomlNode & fields = toml_.need( node, "fields", "table " + table.name );
        toml_.expectKind( fields, TomlNode::Kind::array, "fields" );
        std::map<std::string, int> fieldLines; // of two of one name, that of the second
        for ( const TomlNode & field : fields.items ) {
            table.fields.push_back( readField( field ) );
            fieldLines[table.fields.back().name] = field.line;
        }
        const std::vector<Sim::Problem> problems = Sim::problemsOf( table );
        for ( const Sim::Problem & problem : problems ) {
            if ( !problem.field.empty() )
                toml_.refuse( fieldLines.at( problem.field ), problem.text );
        }
        if ( !problems.empty() )
            toml_.refuse( name.line, problems.front().text );
        if ( schema_.tables().size() == mostTables )
            toml_.refuse( name.line, fmt::format( "more than {} tables", mostTables ),
                          "describe fewer" );
        const std::string problem = schema_.add( std::move( table ) );
        if ( !problem.empty() )
            toml_.refuse( name.line, problem );
    }

    Sim::TableKind readKind( const TomlNode & node ) {
        const std::string & kind = toml_.text( node, "kind" );
        if ( kind == "logical" )
            return Sim::TableKind::logical;
        if ( kind == "register" )
            return Sim::TableKind::physicalRegister;
        if ( kind == "memory" )
            return Sim::TableKind::physicalMemory;
        toml_.refuse( node.line, fmt::format( "there is no kind \"{}\"", kind ),
                      "write \"logical\", \"register\" or \"memory\"" );
    }

    Sim::Field readField( const TomlNode & node ) {
        toml_.expectKeys(
            node, { "name", "width", "key", "length", "reset", "power_on", "symbols" }, "a field" );
        constexpr uint64_t any = ~uint64_t( 0 );
        Sim::Field field;
        field.name = toml_.text( toml_.need( node, "name", "a field" ), "name" );
        const std::string what = "field " + field.name;
        field.width = toml_.number<uint32_t>( toml_.need( node, "width", what ), "width" );
        field.length = toml_.number( node, "length", field.length );
        if ( const TomlNode * key = node.find( "key" );
             key != nullptr && toml_.boolean( *key, "key" ) )
            field.role = Sim::FieldRole::key;
        if ( const TomlNode * reset = node.find( "reset" ) )
            field.reset = toml_.number( *reset, any, what + ": reset" );
        if ( const TomlNode * powerOn = node.find( "power_on" ) )
            field.powerOn = toml_.number( *powerOn, any, what + ": power_on" );
        if ( const TomlNode * symbols = node.find( "symbols" ) )
            readSymbols( *symbols, field );
        return field;
    }

    // A list numbers its symbols from 0; a table gives each its value.
    void readSymbols( const TomlNode & node, Sim::Field & field ) {
        const std::string what = "field " + field.name + ": symbols";
        if ( node.kind == TomlNode::Kind::table ) {
            for ( const auto & [name, value] : node.members )
                field.symbols.push_back(
                    { name, toml_.number( value, ~uint64_t( 0 ),
                                          fmt::format( "{}: {}", what, name ) ) } );
            return;
        }
        toml_.expectKind( node, TomlNode::Kind::array, what );
        for ( const TomlNode & symbol : node.items )
            field.symbols.push_back( { toml_.text( symbol, "a symbol" ), field.symbols.size() } );
    }

    TomlReader toml_;
    Sim::Schema schema_;
};

} // namespace

Sim::Schema parseChipFile( std::string_view contents, const std::string & file ) {
    return ChipFileReader( file ).read( TomlFile( contents, file ).root() );
}

Sim::Schema loadChip( const std::string & source ) {
    if ( source == "reference" )
        return Sim::referenceSchema();
    return parseChipFile( readFile( source ), source );
}

} // namespace Tool
