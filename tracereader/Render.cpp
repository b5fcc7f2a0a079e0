#include "tracereader/TraceReader.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <ctime>

namespace TraceReader {

namespace {

void appendNumber( std::string & out, std::uint64_t number ) {
    char digits[20];
    const auto end = std::to_chars( digits, digits + sizeof digits, number ).ptr;
    out.append( digits, end );
}

void appendBytes( std::string & out, std::span<const std::byte> bytes ) {
    constexpr char hex[] = "0123456789abcdef";
    for ( const std::byte byte : bytes ) {
        out += hex[std::to_integer<unsigned>( byte ) >> 4];
        out += hex[std::to_integer<unsigned>( byte ) & 15];
    }
}

// The length of the UTF-8 character at the front of a text that is not empty; 0 if there is none.
// In the order of RFC 3629: no overlong forms, no surrogates, nothing beyond U+10FFFF.
std::size_t characterLength( std::string_view text ) {
    const auto byte = [&]( std::size_t at ) { return static_cast<unsigned char>( text[at] ); };
    const auto isBetween = [&]( std::size_t at, unsigned low, unsigned high ) {
        return at < text.size() && byte( at ) >= low && byte( at ) <= high;
    };
    const unsigned first = byte( 0 );
    if ( first < 0x80 )
        return 1;
    if ( first >= 0xc2 && first <= 0xdf )
        return isBetween( 1, 0x80, 0xbf ) ? 2 : 0;
    if ( first >= 0xe0 && first <= 0xef ) {
        const unsigned low = first == 0xe0 ? 0xa0 : 0x80;
        const unsigned high = first == 0xed ? 0x9f : 0xbf;
        return isBetween( 1, low, high ) && isBetween( 2, 0x80, 0xbf ) ? 3 : 0;
    }
    if ( first >= 0xf0 && first <= 0xf4 ) {
        const unsigned low = first == 0xf0 ? 0x90 : 0x80;
        const unsigned high = first == 0xf4 ? 0x8f : 0xbf;
        return isBetween( 1, low, high ) && isBetween( 2, 0x80, 0xbf ) && isBetween( 3, 0x80, 0xbf )
                   ? 4
                   : 0;
    }
    return 0;
}

// Which characters stand for themselves in a printed line, and which in a JSON string.
enum : unsigned char { inLine = 1, inJson = 2 };

constexpr auto plainness = [] {
    std::array<unsigned char, 256> table{};
    for ( std::size_t each = 0x20; each < 0x7f; ++each )
        table[each] = each == '"' || each == '\\' ? inLine : inLine | inJson;
    return table;
}();

// Takes the characters off the front of a text that stand for themselves.
std::string_view takePlain( std::string_view & text, unsigned char where ) {
    std::size_t length = 0;
    while ( length < text.size() &&
            ( plainness[static_cast<unsigned char>( text[length] )] & where ) != 0 )
        ++length;
    const std::string_view plain = text.substr( 0, length );
    text.remove_prefix( length );
    return plain;
}

void appendByte( std::string & out, char byte ) {
    appendBytes( out, std::as_bytes( std::span( &byte, 1 ) ) );
}

// Escapes what would break the line or the terminal: "\n", "\t", "\x1b".
void appendPrintable( std::string & out, std::string_view text ) {
    for ( ;; ) {
        out += takePlain( text, inLine );
        if ( text.empty() )
            return;
        const char first = text.front();
        const std::size_t length = characterLength( text );
        if ( length > 1 )
            out += text.substr( 0, length );
        else if ( first == '\n' )
            out += "\\n";
        else if ( first == '\t' )
            out += "\\t";
        else {
            out += "\\x";
            appendByte( out, first );
        }
        text.remove_prefix( length == 0 ? 1 : length );
    }
}

void appendJsonText( std::string & out, std::string_view text ) {
    for ( ;; ) {
        out += takePlain( text, inJson );
        if ( text.empty() )
            return;
        const char first = text.front();
        const std::size_t length = characterLength( text );
        if ( length > 1 )
            out += text.substr( 0, length );
        else if ( length == 0 )
            out += "\\ufffd";
        else if ( first == '"' || first == '\\' ) {
            out += '\\';
            out += first;
        } else {
            out += "\\u00";
            appendByte( out, first );
        }
        text.remove_prefix( length == 0 ? 1 : length );
    }
}

void appendAsItIs( std::string & out, std::string_view text ) { out += text; }

// How a text is put into the output: appendAsItIs or one that escapes.
using AppendText = void ( * )( std::string & out, std::string_view text );

template <AppendText appendText>
void appendValue( std::string & out, const Value & value ) {
    switch ( value.letter ) {
    case 'b':
        out += value.number != 0 ? "true" : "false";
        break;
    case 'p':
        appendText( out, value.text );
        if ( value.isCut )
            out += "...";
        break;
    default:
        appendNumber( out, value.number );
    }
}

// The message with the values in their places. `appendText` is for the values, `appendPiece` for
// the rest.
template <AppendText appendText, AppendText appendPiece>
void appendMessage( std::string & out, const Site & site, const std::vector<Value> & values ) {
    for ( std::size_t i = 0; i < values.size(); ++i ) {
        appendPiece( out, site.texts[i] );
        appendValue<appendText>( out, values[i] );
    }
    appendPiece( out, site.texts.back() );
}

void appendRaw( std::string & out, const Record & record ) {
    out += "message ";
    appendNumber( out, record.id );
    out += " with bytes ";
    appendBytes( out, record.payload );
}

} // namespace

void appendText( std::string & out, const Record & record ) {
    if ( record.site == nullptr ) {
        appendRaw( out, record );
        return;
    }
    std::vector<Value> values;
    decode( record, values );
    appendMessage<appendAsItIs, appendAsItIs>( out, *record.site, values );
}

bool Filter::accepts( const Record & record ) const {
    if ( !recipe.empty() && ( record.site == nullptr || record.site->function != recipe ) )
        return false;
    if ( !file.empty() && ( record.site == nullptr || record.site->file != file ) )
        return false;
    if ( line && ( record.site == nullptr || record.site->line != *line ) )
        return false;
    if ( ( from && record.time < *from ) || ( to && record.time >= *to ) )
        return false;
    if ( thread ) {
        const Info & info = record.file->info();
        if ( ( info.thread != 0 ? info.thread : info.process ) != *thread )
            return false;
    }
    if ( !text.empty() ) {
        std::string whole;
        appendText( whole, record );
        return whole.find( text ) != whole.npos;
    }
    return true;
}

void Renderer::appendTime( std::string & out, std::int64_t time ) {
    constexpr std::int64_t perSecond = 1'000'000'000;
    std::int64_t second = time / perSecond;
    std::int64_t nanoseconds = time % perSecond;
    if ( nanoseconds < 0 ) {
        nanoseconds += perSecond;
        --second;
    }
    if ( second != second_ ) {
        const auto wanted = static_cast<std::time_t>( second );
        std::tm utc{};
        ::gmtime_r( &wanted, &utc );
        char text[64];
        const std::size_t length = std::strftime( text, sizeof text, "%Y-%m-%dT%H:%M:%S.", &utc );
        secondText_.assign( text, length );
        second_ = second;
    }
    out += secondText_;
    char digits[] = "000000000Z";
    for ( std::size_t i = 9; nanoseconds != 0; nanoseconds /= 10 )
        digits[--i] = static_cast<char>( '0' + nanoseconds % 10 );
    out.append( digits, sizeof digits - 1 );
}

void Renderer::append( std::string & out, const Record & record ) {
    decode( record, values_ );
    if ( format_ == Format::json )
        appendJson( out, record );
    else
        appendLine( out, record );
    out += '\n';
}

void Renderer::appendLine( std::string & out, const Record & record ) {
    const Info & info = record.file->info();
    const Site * const site = record.site;
    if ( info.isTimeOfBlock )
        out += '~';
    appendTime( out, record.time );
    out += ' ';
    if ( format_ == Format::text ) {
        appendNumber( out, info.process );
        if ( info.thread != 0 ) {
            out += '/';
            appendNumber( out, info.thread );
        }
        out += ' ';
        if ( site != nullptr ) {
            site->isPlain ? appendAsItIs( out, site->file ) : appendPrintable( out, site->file );
            out += ':';
            appendNumber( out, site->line );
            out += ' ';
        }
    }
    if ( site == nullptr )
        appendRaw( out, record );
    else if ( site->isPlain )
        appendMessage<appendPrintable, appendAsItIs>( out, *site, values_ );
    else
        appendMessage<appendPrintable, appendPrintable>( out, *site, values_ );
}

void Renderer::appendJson( std::string & out, const Record & record ) {
    const Info & info = record.file->info();
    out += "{\"time\":\"";
    appendTime( out, record.time );
    out += info.isTimeOfBlock ? "\",\"timeOfBlock\":true,\"process\":" : "\",\"process\":";
    appendNumber( out, info.process );
    if ( info.thread != 0 ) {
        out += ",\"thread\":";
        appendNumber( out, info.thread );
    }
    if ( record.site == nullptr ) {
        out += ",\"message\":";
        appendNumber( out, record.id );
        out += ",\"bytes\":\"";
        appendBytes( out, record.payload );
        out += "\"}";
        return;
    }
    const Site & site = *record.site;
    const AppendText appendPiece = site.isPlain ? appendAsItIs : appendJsonText;
    out += ",\"file\":\"";
    appendPiece( out, site.file );
    out += "\",\"line\":";
    appendNumber( out, site.line );
    out += ",\"function\":\"";
    appendPiece( out, site.function );
    out += "\",\"text\":\"";
    if ( site.isPlain )
        appendMessage<appendJsonText, appendAsItIs>( out, site, values_ );
    else
        appendMessage<appendJsonText, appendJsonText>( out, site, values_ );
    out += "\",\"values\":[";
    for ( std::size_t i = 0; i < values_.size(); ++i ) {
        if ( i != 0 )
            out += ',';
        const bool isText = values_[i].letter == 'p';
        if ( isText )
            out += '"';
        appendValue<appendJsonText>( out, values_[i] );
        if ( isText )
            out += '"';
    }
    out += "]}";
}

} // namespace TraceReader
