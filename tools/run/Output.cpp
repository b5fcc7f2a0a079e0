#include "tools/run/Output.h"

#include "tools/model/Files.h"
#include "tools/model/Input.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace Tool {

namespace {

// The text as one line, whatever names it quotes.
std::string onOneLine( std::string_view text ) {
    std::string line;
    for ( const char c : text ) {
        const auto byte = static_cast<unsigned char>( c );
        if ( byte >= 0x20 && byte != 0x7F ) {
            line += c;
        } else if ( c == '\n' ) {
            line += "\\n";
        } else {
            constexpr const char * digits = "0123456789abcdef";
            line += "\\x";
            line += digits[byte >> 4];
            line += digits[byte & 0xF];
        }
    }
    return line;
}

bool coloured() {
    const char * noColor = std::getenv( "NO_COLOR" );
    return ::isatty( STDOUT_FILENO ) != 0 && ( noColor == nullptr || *noColor == '\0' );
}

} // namespace

Format parseFormat( std::string_view text, std::string_view option ) {
    if ( text == "text" )
        return Format::text;
    if ( text == "json" )
        return Format::json;
    throw BadInput( std::string( option ) + ": there is no format \"" + std::string( text ) +
                    "\"; write text or json" );
}

void print( std::string_view text ) {
    if ( !writeAll( STDOUT_FILENO, text ) )
        throw BadInput( std::string( "standard output can not be written: " ) +
                        std::strerror( errno ) );
}

void complain( std::string_view message ) {
    writeAll( STDERR_FILENO, "cairn-lt: " + onOneLine( message ) + "\n" );
}

std::string heading( std::string_view text ) {
    if ( !coloured() )
        return std::string( text );
    return "\033[1m" + std::string( text ) + "\033[0m";
}

} // namespace Tool
