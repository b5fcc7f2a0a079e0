#include "tools/model/Toml.h"

#include "text/NearestName.h"
#include "text/Numbers.h"
#include "tools/model/Errors.h"

#include <toml++/toml.h>

#include <algorithm>
#include <tuple>

namespace Tool {

namespace {

int lineOf( const toml::source_region & source ) {
    return source.begin.line == 0 ? 1 : static_cast<int>( source.begin.line );
}

TomlNode convert( const toml::node & from ) {
    TomlNode node;
    node.line = lineOf( from.source() );
    switch ( from.type() ) {
    case toml::node_type::table: {
        struct Place {
            toml::source_position position;
            const toml::key * key;
            const toml::node * value;
        };
        std::vector<Place> places;
        for ( auto && [key, value] : *from.as_table() )
            places.push_back( { key.source().begin, &key, &value } );
        std::stable_sort( places.begin(), places.end(), []( const Place & a, const Place & b ) {
            return std::tie( a.position.line, a.position.column ) <
                   std::tie( b.position.line, b.position.column );
        } );
        for ( const Place & place : places ) {
            node.members.emplace_back( std::string( place.key->str() ), convert( *place.value ) );
            // A table under a header begins where its key does.
            TomlNode & value = node.members.back().second;
            value.line = std::max( 1, static_cast<int>( place.position.line ) );
        }
        break;
    }
    case toml::node_type::array:
        node.kind = TomlNode::Kind::array;
        for ( const toml::node & item : *from.as_array() )
            node.items.push_back( convert( item ) );
        break;
    case toml::node_type::string:
        node.kind = TomlNode::Kind::text;
        node.text = from.as_string()->get();
        break;
    case toml::node_type::integer:
        node.kind = TomlNode::Kind::integer;
        node.integer = from.as_integer()->get();
        break;
    case toml::node_type::floating_point:
        node.kind = TomlNode::Kind::real;
        break;
    case toml::node_type::boolean:
        node.kind = TomlNode::Kind::boolean;
        node.boolean = from.as_boolean()->get();
        break;
    default:
        node.kind = TomlNode::Kind::date;
        break;
    }
    return node;
}

} // namespace

const TomlNode * TomlNode::find( std::string_view key ) const {
    const auto found = std::find_if( members.begin(), members.end(),
                                     [&]( const auto & member ) { return member.first == key; } );
    return found == members.end() ? nullptr : &found->second;
}

TomlNode parseToml( std::string_view contents, const std::string & file ) {
    try {
        return convert( toml::parse( contents, file ) );
    } catch ( const toml::parse_error & error ) {
        // The parser's texts may quote lines of the file; one line is enough.
        std::string text( error.description() );
        std::replace( text.begin(), text.end(), '\n', ' ' );
        throw InputError( file, lineOf( error.source() ), fmt::format( "not TOML: {}", text ) );
    }
}

const char * kindName( TomlNode::Kind kind ) {
    switch ( kind ) {
    case TomlNode::Kind::table:
        return "a table";
    case TomlNode::Kind::array:
        return "an array";
    case TomlNode::Kind::text:
        return "a text";
    case TomlNode::Kind::integer:
        return "an integer";
    case TomlNode::Kind::real:
        return "a floating-point number";
    case TomlNode::Kind::boolean:
        return "true or false";
    case TomlNode::Kind::date:
        return "a date or time";
    }
    return "";
}

void TomlReader::refuse( int line, std::string problem, std::string remedy ) const {
    throw InputError( file_, line, std::move( problem ), std::move( remedy ) );
}

void TomlReader::expectKind( const TomlNode & node, TomlNode::Kind kind,
                             std::string_view what ) const {
    if ( node.kind != kind )
        refuse( node.line, fmt::format( "{} must be {}, not {}", what, kindName( kind ),
                                        kindName( node.kind ) ) );
}

void TomlReader::expectKeys( const TomlNode & table, std::initializer_list<std::string_view> keys,
                             std::string_view what ) const {
    expectKind( table, TomlNode::Kind::table, what );
    for ( const auto & [key, value] : table.members ) {
        if ( std::find( keys.begin(), keys.end(), key ) == keys.end() )
            refuse( value.line, fmt::format( "{} has no key \"{}\"", what, key ),
                    Text::nameHint( key, { keys.begin(), keys.size() } ) );
    }
}

const TomlNode & TomlReader::need( const TomlNode & table, std::string_view key,
                                   std::string_view what ) const {
    const TomlNode * node = table.find( key );
    if ( node == nullptr )
        refuse( table.line, fmt::format( "{} needs a key \"{}\"", what, key ) );
    return *node;
}

uint64_t TomlReader::number( const TomlNode & node, uint64_t maximum,
                             std::string_view what ) const {
    const std::string range = fmt::format( "write 0 to {}", maximum );
    // TOML's integers end at 63 bits; larger numbers are written as texts.
    uint64_t number = 0;
    if ( node.kind == TomlNode::Kind::text ) {
        if ( !Text::parseNumber( node.text, number ) )
            refuse( node.line,
                    fmt::format( "{}: \"{}\" is not an unsigned number", what, node.text ),
                    "write it in decimal, or in hexadecimal after 0x" );
    } else {
        expectKind( node, TomlNode::Kind::integer, what );
        if ( node.integer < 0 )
            refuse( node.line, fmt::format( "{}: {} is negative", what, node.integer ), range );
        number = static_cast<uint64_t>( node.integer );
    }
    if ( number > maximum )
        refuse( node.line, fmt::format( "{}: {} is too large", what, number ), range );
    return number;
}

const std::string & TomlReader::text( const TomlNode & node, std::string_view what ) const {
    expectKind( node, TomlNode::Kind::text, what );
    return node.text;
}

bool TomlReader::boolean( const TomlNode & node, std::string_view what ) const {
    expectKind( node, TomlNode::Kind::boolean, what );
    return node.boolean;
}

const std::vector<TomlNode> & TomlReader::tables( const TomlNode & table,
                                                  std::string_view key ) const {
    static const std::vector<TomlNode> none;
    const TomlNode * node = table.find( key );
    if ( node == nullptr )
        return none;
    const std::string what = fmt::format( "[[{}]]", key );
    expectKind( *node, TomlNode::Kind::array, what );
    for ( const TomlNode & item : node->items )
        expectKind( item, TomlNode::Kind::table, what );
    return node->items;
}

} // namespace Tool
