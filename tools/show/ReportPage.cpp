#include "tools/show/ReportPage.h"

#include "text/Escape.h"
#include "tools/model/Errors.h"
#include "tools/show/ReportTemplate.h"
#include "tracereader/Recording.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <zlib.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <optional>
#include <string_view>
#include <type_traits>

namespace Tool {

namespace {

using Json = nlohmann::ordered_json;
using Text::printable;

// --- Columns
//
// The page reads numbers as arrays of them, in the order of the machine, which is little-endian as
// those of all browsers. Each column begins at a multiple of eight bytes and takes as few bytes for
// a number as its largest one needs.

static_assert( std::endian::native == std::endian::little );

class Packing {
  public:
    // `numberOf( item )` is not negative.
    template <class Items, class NumberOf>
    void addColumn( const char * name, const Items & items, const NumberOf & numberOf ) {
        std::uint64_t largest = 0;
        for ( const auto & item : items )
            largest = std::max<std::uint64_t>( largest, numberOf( item ) );
        const auto add = [&]( auto type ) {
            using Number = decltype( type );
            begin( name, sizeof( Number ), items.size() );
            for ( const auto & item : items ) {
                const auto number = static_cast<Number>( numberOf( item ) );
                bytes_.append( reinterpret_cast<const char *>( &number ), sizeof number );
            }
        };
        if ( largest <= 0xFF )
            // NOLINTNEXTLINE( bugprone-branch-clone ): the types differ
            add( std::uint8_t() );
        else if ( largest <= 0xFFFF )
            add( std::uint16_t() );
        else if ( largest <= 0xFFFF'FFFF )
            add( std::uint32_t() );
        else
            add( std::uint64_t() );
    }

    // Numbers that are close to the one before them: differences, seven bits a byte.
    template <class Items, class NumberOf>
    void addRun( const char * name, const Items & items, const NumberOf & numberOf ) {
        begin( name, 0, items.size() );
        std::uint64_t before = 0;
        for ( const auto & item : items ) {
            const auto number = static_cast<std::uint64_t>( numberOf( item ) );
            addNumber( zigzag( static_cast<std::int64_t>( number - before ) ) );
            before = number;
        }
    }

    void addText( const char * name, std::string_view text ) {
        begin( name, 1, text.size() );
        bytes_ += text;
    }

    static std::uint64_t zigzag( std::int64_t number ) {
        return ( static_cast<std::uint64_t>( number ) << 1 ) ^
               static_cast<std::uint64_t>( number >> 63 );
    }

    const Json & columns() const { return columns_; }
    const std::string & bytes() const { return bytes_; }

  private:
    void begin( const char * name, std::size_t width, std::size_t count ) {
        bytes_.resize( ( bytes_.size() + 7 ) / 8 * 8 );
        columns_[name] = { bytes_.size(), width, count };
    }

    void addNumber( std::uint64_t number ) {
        for ( ; number > 0x7F; number >>= 7 )
            bytes_ += static_cast<char>( ( number & 0x7F ) | 0x80 );
        bytes_ += static_cast<char>( number );
    }

    Json columns_ = Json::object();
    std::string bytes_;
};

// --- What the page reads

Json factsJson( const std::vector<Report::Fact> & facts ) {
    Json json = Json::array();
    for ( const auto & [name, text] : facts )
        json.push_back( { printable( name ), printable( text ) } );
    return json;
}

Json textsJson( const std::vector<std::string> & texts ) {
    Json json = Json::array();
    for ( const std::string & text : texts )
        json.push_back( printable( text ) );
    return json;
}

// From one time to another. Times of a damaged file may be any.
std::uint64_t timeBetween( std::int64_t from, std::int64_t to ) {
    return static_cast<std::uint64_t>( to ) - static_cast<std::uint64_t>( from );
}

class PageData {
  public:
    explicit PageData( const Report & report ) : report_( report ) {}

    std::string run() {
        findBase();
        packTexts();
        packCalls();
        packSpans();
        packMessages();
        const std::string head = headJson().dump( -1, ' ', false, Json::error_handler_t::replace );
        // The head with its length before it, filled up so that the columns begin at a multiple of
        // eight.
        const auto length = static_cast<std::uint32_t>( ( head.size() + 8 + 7 ) / 8 * 8 - 8 );
        std::string data( sizeof length, '\0' );
        std::memcpy( data.data(), &length, sizeof length );
        data.resize( 8 );
        data += head;
        data.resize( 8 + length, ' ' );
        return data + packing_.bytes();
    }

  private:
    Json headJson() const {
        static constexpr const char * endings[] = { "good", "bad", "unknown" };
        Json json{ { "kind", report_.kind },
                   { "input", printable( report_.input ) },
                   { "ending", endings[static_cast<std::size_t>( report_.ending )] },
                   { "endingText", printable( report_.endingText ) },
                   { "facts", factsJson( report_.facts ) },
                   { "notes", textsJson( report_.notes ) },
                   { "threads", textsJson( report_.threads ) },
                   { "operations", Json::array() },
                   { "callsDropped", report_.calls.dropped() },
                   { "spansDropped", report_.spans.dropped() },
                   { "messagesDropped", report_.messages.dropped() },
                   { "base", fmt::to_string( base_ ) },
                   { "columns", packing_.columns() },
                   { "tables", Json::array() },
                   { "grids", Json::array() } };
        if ( const auto & failure = report_.failure ) {
            json["failure"] = { { "title", printable( failure->title ) },
                                { "facts", factsJson( failure->facts ) } };
            if ( failure->call )
                json["failure"]["call"] = *failure->call;
        }
        for ( std::size_t i = 0; i < TraceReader::sdkCallCount; ++i )
            json["operations"].push_back( name( static_cast<TraceReader::SdkCall>( i ) ) );
        for ( const ReportTable & table : report_.tables )
            json["tables"].push_back( tableJson( table ) );
        for ( const ReportGrid & grid : report_.grids )
            json["grids"].push_back( gridJson( grid ) );
        return json;
    }

    // What is left out at the end of a cell is null.
    static Json cellJson( const ReportCell & cell ) {
        Json json{ printable( cell.text ), cell.isWritten ? 1 : 0 };
        const auto text = []( const std::optional<std::string> & each ) {
            return each ? Json( printable( *each ) ) : Json();
        };
        json.push_back( cell.writer ? Json( *cell.writer ) : Json() );
        json.push_back( text( cell.before ) );
        json.push_back( text( cell.hardware ) );
        while ( json.back().is_null() )
            json.erase( json.size() - 1 );
        return json;
    }

    static Json tableJson( const ReportTable & table ) {
        Json json{ { "unit", table.unit },
                   { "name", printable( table.name ) },
                   { "kind", table.kind },
                   { "place", textsJson( table.placeNames ) },
                   { "fields", textsJson( table.fields ) },
                   { "leftOut", table.rowsLeftOut },
                   { "rows", Json::array() } };
        for ( const ReportRow & row : table.rows ) {
            Json cells = Json::array();
            for ( const ReportCell & cell : row.cells )
                cells.push_back( cellJson( cell ) );
            json["rows"].push_back( { textsJson( row.place ), std::move( cells ), row.isNew } );
        }
        return json;
    }

    static Json gridJson( const ReportGrid & grid ) {
        Json json{ { "title", printable( grid.title ) },
                   { "heads", textsJson( grid.heads ) },
                   { "rows", Json::array() },
                   { "bad", Json::array() } };
        for ( const auto & row : grid.rows )
            json["rows"].push_back( textsJson( row ) );
        for ( const char isBad : grid.isBad )
            json["bad"].push_back( isBad != 0 );
        return json;
    }

    void findBase() {
        std::optional<std::int64_t> first;
        const auto take = [&]( std::int64_t time ) {
            first = std::min( first.value_or( time ), time );
        };
        for ( const ReportCall & call : report_.calls.items() )
            take( call.begin );
        for ( const ReportSpan & span : report_.spans.items() )
            take( span.begin );
        for ( const ReportMessage & message : report_.messages.items() )
            take( message.time );
        base_ = first.value_or( 0 );
    }

    void packTexts() {
        std::string all;
        for ( std::uint32_t i = 0; i < report_.texts.size(); ++i ) {
            Text::appendPrintable( all, report_.texts[i] );
            all += '\n';
        }
        packing_.addText( "texts", all );
    }

    void packCalls() {
        const auto & calls = report_.calls.items();
        using C = ReportCall;
        packing_.addRun( "call.number", calls, []( const C & call ) { return call.number; } );
        packing_.addRun( "call.begin", calls,
                         [this]( const C & call ) { return timeBetween( base_, call.begin ); } );
        packing_.addRun( "call.took", calls,
                         []( const C & call ) { return timeBetween( call.begin, call.end ); } );
        packing_.addColumn( "call.value", calls, []( const C & call ) { return call.value; } );
        packing_.addColumn( "call.thread", calls, []( const C & call ) { return call.thread; } );
        packing_.addColumn( "call.handle", calls, []( const C & call ) { return call.handle; } );
        packing_.addColumn( "call.unit", calls, []( const C & call ) {
            return static_cast<std::uint32_t>( call.unit ) + 1; // 0: not known
        } );
        packing_.addColumn( "call.table", calls, []( const C & call ) { return call.table; } );
        packing_.addColumn( "call.field", calls, []( const C & call ) { return call.field; } );
        packing_.addColumn( "call.arguments", calls,
                            []( const C & call ) { return call.arguments; } );
        packing_.addColumn( "call.rc", calls,
                            []( const C & call ) { return Packing::zigzag( call.rc ); } );
        packing_.addColumn( "call.span", calls, []( const C & call ) { return call.span; } );
        packing_.addColumn( "call.operation", calls,
                            []( const C & call ) { return call.operation; } );
        packing_.addColumn( "call.flags", calls, []( const C & call ) { return call.flags; } );
    }

    void packSpans() {
        const auto & spans = report_.spans.items();
        using S = ReportSpan;
        packing_.addRun( "span.begin", spans,
                         [this]( const S & span ) { return timeBetween( base_, span.begin ); } );
        packing_.addRun( "span.took", spans,
                         []( const S & span ) { return timeBetween( span.begin, span.end ); } );
        packing_.addColumn( "span.thread", spans, []( const S & span ) { return span.thread; } );
        packing_.addColumn( "span.name", spans, []( const S & span ) { return span.name; } );
        packing_.addColumn( "span.detail", spans, []( const S & span ) { return span.detail; } );
        packing_.addColumn( "span.flags", spans, []( const S & span ) {
            return static_cast<unsigned>( span.kind ) | ( span.isBad ? 2u : 0u );
        } );
    }

    void packMessages() {
        const auto & messages = report_.messages.items();
        using M = ReportMessage;
        packing_.addRun( "message.time", messages, [this]( const M & message ) {
            return timeBetween( base_, message.time );
        } );
        packing_.addColumn( "message.thread", messages,
                            []( const M & message ) { return message.thread; } );
        packing_.addColumn( "message.recipe", messages,
                            []( const M & message ) { return message.recipe; } );
        packing_.addColumn( "message.text", messages,
                            []( const M & message ) { return message.text; } );
    }

    const Report & report_;
    Packing packing_;
    std::int64_t base_ = 0;
};

std::string deflated( const std::string & data ) {
    uLongf size = ::compressBound( static_cast<uLong>( data.size() ) );
    std::string out( size, '\0' );
    if ( ::compress2( reinterpret_cast<Bytef *>( out.data() ), &size,
                      reinterpret_cast<const Bytef *>( data.data() ),
                      static_cast<uLong>( data.size() ), 6 ) != Z_OK )
        throw Trouble( "not enough memory" );
    out.resize( size );
    return out;
}

void appendBase64( std::string & out, std::string_view bytes ) {
    static constexpr char digits[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const auto byteAt = [&]( std::size_t i ) -> unsigned {
        return i < bytes.size() ? static_cast<unsigned char>( bytes[i] ) : 0u;
    };
    for ( std::size_t i = 0; i < bytes.size(); i += 3 ) {
        const unsigned group = byteAt( i ) << 16 | byteAt( i + 1 ) << 8 | byteAt( i + 2 );
        out += digits[group >> 18];
        out += digits[group >> 12 & 63];
        out += i + 1 < bytes.size() ? digits[group >> 6 & 63] : '=';
        out += i + 2 < bytes.size() ? digits[group & 63] : '=';
    }
}

} // namespace

std::string pageOf( const Report & report ) {
    static constexpr std::string_view place = "@DATA@";
    const std::string_view page = reportTemplate();
    const std::size_t data = page.find( place );
    const std::string packed = deflated( PageData( report ).run() );
    std::string text;
    text.reserve( page.size() + packed.size() / 3 * 4 + 4 );
    text += page.substr( 0, data );
    appendBase64( text, packed );
    text += page.substr( data + place.size() );
    return text;
}

} // namespace Tool
