#include "tools/model/Toml.h"

#include "text/NearestName.h"
#include "text/Numbers.h"
#include "tools/model/Errors.h"

#include <toml++/toml.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <map>
#include <set>
#include <span>
#include <tuple>
#include <utility>

namespace Tool {

namespace {

// As many tables of one key as stand together are parsed at once, up to about this size.
constexpr std::size_t largestPiece = 65'536;

constexpr std::string_view bareKey =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-";

int lineOf( const toml::source_region & source ) {
    return source.begin.line == 0 ? 1 : static_cast<int>( source.begin.line );
}

// `before` is the number of lines before the piece.
TomlNode convert( const toml::node & from, int before ) {
    TomlNode node;
    node.line = before + lineOf( from.source() );
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
            node.members.emplace_back( std::string( place.key->str() ),
                                       convert( *place.value, before ) );
            // A table under a header begins where its key does.
            TomlNode & value = node.members.back().second;
            value.line = before + std::max( 1, static_cast<int>( place.position.line ) );
        }
        break;
    }
    case toml::node_type::array:
        node.kind = TomlNode::Kind::array;
        for ( const toml::node & item : *from.as_array() )
            node.items.push_back( convert( item, before ) );
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

// Reads as much of TOML as it takes to hold a file to the limits before it is parsed, and to find
// its pieces. Where it is not TOML it may count too much or too little; the parser goes no further
// than that place.
class TomlFile::Outline {
  public:
    Outline( std::string_view text, const std::string & file ) : text_( text ), file_( file ) {
        pieces_.push_back( { text, 1, {} } );
    }

    std::vector<Piece> run() {
        while ( at_ < text_.size() )
            readOne();
        endPiece( text_.size() );
        if ( areTablesMixed_ ) {
            if ( lineOfTooMany_ != 0 )
                refuseValues( lineOfTooMany_ );
            pieces_ = { { text_, 1, {} } };
        }
        return std::move( pieces_ );
    }

  private:
    void readOne() {
        const char c = text_[at_++];
        switch ( c ) {
        case '\n':
            ++line_;
            if ( bases_.empty() ) {
                depth_ = header_;
                isLineStart_ = true;
                isHeader_ = false;
            }
            return;
        case ' ':
        case '\t':
        case '\r':
            return;
        case '#':
            at_ = std::min( text_.find( '\n', at_ ), text_.size() );
            return;
        case '"':
        case '\'':
            skipText( c );
            break;
        case '.':
            deepen();
            break;
        case '[':
        case '{':
            if ( c == '[' && isLineStart_ && bases_.empty() )
                beginHeader();
            else
                open();
            break;
        case ']':
        case '}':
            close();
            break;
        case ',':
            depth_ = bases_.empty() ? header_ : bases_.back();
            count();
            break;
        case '=':
            count();
            break;
        default:
            break;
        }
        isLineStart_ = false;
    }

    // "[a.b]", or "[[a.b]]", whose table is an item of an array. The depth holds for what follows.
    void beginHeader() {
        const std::size_t begin = at_ - 1;
        const bool isItem = at_ < text_.size() && text_[at_] == '[';
        isHeader_ = true;
        depth_ = 0;
        deepen();
        if ( isItem ) {
            ++at_;
            deepen();
        }
        beginTable( begin, isItem );
        count();
    }

    void beginTable( std::size_t begin, bool isItem ) {
        const std::size_t from = std::min( text_.find_first_not_of( " \t", at_ ), text_.size() );
        const std::size_t to = std::min( text_.find_first_not_of( bareKey, from ), text_.size() );
        const std::string_view key = text_.substr( from, to - from );
        const std::size_t next = std::min( text_.find_first_not_of( " \t", to ), text_.size() );
        Piece & piece = pieces_.back();
        if ( isItem && !key.empty() && text_.substr( next ).starts_with( "]]" ) ) {
            valuesOfPiece_ = 0;
            if ( key == piece.key && begin - startOfPiece_ < largestPiece )
                return;
            endPiece( begin );
            startOfPiece_ = begin;
            pieces_.push_back( { text_.substr( begin ), line_, key } );
        } else if ( !piece.key.empty() && key != piece.key ) {
            areTablesMixed_ = true;
        }
    }

    void endPiece( std::size_t end ) {
        pieces_.back().contents = text_.substr( startOfPiece_, end - startOfPiece_ );
    }

    void open() {
        deepen();
        bases_.push_back( depth_ );
        count();
    }

    void close() {
        if ( bases_.empty() )
            return;
        depth_ = bases_.back();
        bases_.pop_back();
    }

    void deepen() {
        if ( ++depth_ > deepestToml )
            throw InputError( file_, line_, fmt::format( "nested more than {} deep", deepestToml ),
                              "make it flat" );
        if ( isHeader_ )
            header_ = depth_;
    }

    void count() {
        if ( ++values_ == mostTomlValues + 1 )
            lineOfTooMany_ = line_;
        if ( ++valuesOfPiece_ > mostTomlValues )
            refuseValues( line_ );
    }

    [[noreturn]] void refuseValues( int line ) const {
        throw InputError( file_, line, fmt::format( "more than {} values", mostTomlValues ),
                          "make several files of it" );
    }

    void skipText( char quote ) {
        const std::string_view triple = quote == '"' ? "\"\"\"" : "'''";
        const bool isLong = text_.substr( at_ - 1 ).starts_with( triple );
        if ( isLong )
            at_ += 2;
        for ( ; at_ < text_.size(); ++at_ ) {
            const char c = text_[at_];
            if ( c == '\\' && quote == '"' ) {
                ++at_; // what follows ends nothing; an end of line is counted below
                if ( at_ < text_.size() && text_[at_] == '\n' )
                    ++line_;
            } else if ( c == '\n' ) {
                if ( !isLong )
                    return; // no TOML: a text of one line that does not end there
                ++line_;
            } else if ( !isLong && c == quote ) {
                ++at_;
                return;
            } else if ( isLong && text_.substr( at_ ).starts_with( triple ) ) {
                // The text may end in up to two quotes of its own.
                at_ = std::min( text_.find_first_not_of( quote, at_ ), at_ + 5 );
                return;
            }
        }
    }

    std::string_view text_;
    const std::string & file_;
    std::size_t at_ = 0;
    int line_ = 1;
    bool isLineStart_ = true;
    bool isHeader_ = false;
    std::size_t header_ = 0; // depth of the table that the last header began
    std::size_t depth_ = 0;
    std::vector<std::size_t> bases_; // depths within the arrays and tables that are open
    std::size_t values_ = 0;
    int lineOfTooMany_ = 0; // as one piece
    std::vector<Piece> pieces_;
    std::size_t startOfPiece_ = 0;
    std::size_t valuesOfPiece_ = 0; // since the last [[table]]
    bool areTablesMixed_ = false;   // parts of a table follow another table
};

TomlFile::TomlFile( std::string_view contents, std::string file, std::string_view streamed )
    : file_( std::move( file ) ) {
    const std::vector<Piece> pieces = Outline( contents, file_ ).run();
    root_ = parse( pieces.front() );
    std::set<std::string, std::less<>> others; // keys of the first piece
    for ( const auto & [key, value] : root_.members )
        others.insert( key );
    std::map<std::string_view, std::size_t> members; // of the root, that are [[tables]]
    for ( const Piece & piece : std::span( pieces ).subspan( 1 ) ) {
        if ( others.contains( piece.key ) )
            throw InputError( file_, piece.line,
                              fmt::format( "not TOML: there is a \"{}\" already", piece.key ) );
        if ( piece.key == streamed ) {
            streamed_.push_back( piece );
            continue;
        }
        TomlNode parsed = parse( piece );
        TomlNode & tables = parsed.members.front().second;
        const auto [known, isNew] = members.emplace( piece.key, root_.members.size() );
        if ( isNew )
            root_.members.push_back( std::move( parsed.members.front() ) );
        else
            std::move( tables.items.begin(), tables.items.end(),
                       std::back_inserter( root_.members[known->second].second.items ) );
    }
}

void TomlFile::forEachStreamed( const std::function<void( const TomlNode & )> & read ) const {
    for ( const Piece & piece : streamed_ ) {
        const TomlNode parsed = parse( piece );
        for ( const TomlNode & table : parsed.members.front().second.items )
            read( table );
    }
}

TomlNode TomlFile::parse( const Piece & piece ) const {
    const int before = piece.line - 1;
    try {
        return convert( toml::parse( piece.contents, file_ ), before );
    } catch ( const toml::parse_error & error ) {
        // The parser's texts may quote lines of the file; one line is enough.
        std::string text( error.description() );
        std::replace( text.begin(), text.end(), '\n', ' ' );
        throw InputError( file_, before + lineOf( error.source() ),
                          fmt::format( "not TOML: {}", text ) );
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
