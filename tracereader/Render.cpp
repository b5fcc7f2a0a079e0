#include "tracereader/TraceReader.h"

#include "text/Escape.h"
#include "text/Time.h"

#include <charconv>
#include <cstdlib>

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

void appendAsItIs( std::string & out, std::string_view text ) { out += text; }

// How a text is put into the output: appendAsItIs or one that escapes.
using AppendText = void ( * )( std::string & out, std::string_view text );

template <AppendText appendText>
void appendValue( std::string & out, const Value & value ) {
    switch ( value.letter ) {
    case 'b':
        out += value.number != 0 ? "true" : "false";
        break;
    case 'n':
        if ( static_cast<std::int32_t>( value.number ) < 0 )
            out += '-';
        appendNumber( out, static_cast<std::uint64_t>( std::abs(
                               std::int64_t( static_cast<std::int32_t>( value.number ) ) ) ) );
        break;
    case 'l':
        appendNumber( out, value.wide );
        break;
    case 'a':
        out += '[';
        for ( std::size_t i = 0; i < value.elementCount(); ++i ) {
            if ( i != 0 )
                out += ',';
            appendNumber( out, value.element( i ) );
        }
        out += ']';
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
        if ( ( record.thread != 0 ? record.thread : record.file->info().process ) != *thread )
            return false;
    }
    if ( !text.empty() ) {
        std::string whole;
        appendText( whole, record );
        return whole.find( text ) != std::string::npos;
    }
    return true;
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
    Text::appendUtc( out, record.time );
    out += ' ';
    if ( format_ == Format::text ) {
        appendNumber( out, info.process );
        if ( record.thread != 0 ) {
            out += '/';
            appendNumber( out, record.thread );
        }
        out += ' ';
        if ( site != nullptr ) {
            out += site->place;
            out += ' ';
        }
    }
    if ( site == nullptr )
        appendRaw( out, record );
    else if ( site->isPlain )
        appendMessage<Text::appendPrintable, appendAsItIs>( out, *site, values_ );
    else
        appendMessage<Text::appendPrintable, Text::appendPrintable>( out, *site, values_ );
}

void Renderer::appendJson( std::string & out, const Record & record ) {
    const Info & info = record.file->info();
    out += "{\"time\":\"";
    Text::appendUtc( out, record.time );
    out += info.isTimeOfBlock ? "\",\"timeOfBlock\":true,\"process\":" : "\",\"process\":";
    appendNumber( out, info.process );
    if ( record.thread != 0 ) {
        out += ",\"thread\":";
        appendNumber( out, record.thread );
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
    out += ',';
    out += site.json;
    out += ",\"text\":\"";
    if ( site.isPlain )
        appendMessage<Text::appendJson, appendAsItIs>( out, site, values_ );
    else
        appendMessage<Text::appendJson, Text::appendJson>( out, site, values_ );
    out += "\",\"values\":[";
    for ( std::size_t i = 0; i < values_.size(); ++i ) {
        if ( i != 0 )
            out += ',';
        const bool isText = values_[i].letter == 'p';
        if ( isText )
            out += '"';
        appendValue<Text::appendJson>( out, values_[i] );
        if ( isText )
            out += '"';
    }
    out += "]}";
}

} // namespace TraceReader
