#include "tools/cli/Output.h"

#include "text/Escape.h"
#include "tools/model/Errors.h"
#include "tools/model/Files.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace Tool {

namespace {

bool coloured() {
    const char * noColor = std::getenv( "NO_COLOR" );
    return ::isatty( STDOUT_FILENO ) != 0 && ( noColor == nullptr || *noColor == '\0' );
}

// Leaves what is UTF-8 as it is; the document escapes the rest of what needs it.
std::string asUtf8( std::string_view text ) {
    std::string result;
    while ( !text.empty() ) {
        const std::size_t length = Text::characterLength( text );
        if ( length == 0 )
            result += fmt::format( "\\x{:02x}", static_cast<unsigned char>( text.front() ) );
        else
            result += text.substr( 0, length );
        text.remove_prefix( std::max<std::size_t>( length, 1 ) );
    }
    return result;
}

void escapeTexts( nlohmann::ordered_json & json ) {
    if ( json.is_structured() ) {
        for ( auto & item : json )
            escapeTexts( item );
    } else if ( json.is_string() ) {
        json = asUtf8( json.get_ref<const std::string &>() );
    }
}

} // namespace

void claimStandardStreams() {
    // A new descriptor is the lowest that is free. Of one that is only a path, nothing can be read
    // or written.
    for ( const int stream : { STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO } ) {
        if ( ::fcntl( stream, F_GETFD ) < 0 && ::open( "/", O_PATH | O_CLOEXEC ) != stream )
            std::_Exit( 2 );
    }
}

void print( std::string_view text ) {
    if ( !writeAll( STDOUT_FILENO, text ) )
        throw Trouble(
            fmt::format( "standard output cannot be written: {}", std::strerror( errno ) ) );
}

void complain( std::string_view message ) {
    writeAll( STDERR_FILENO, "cairn-lt: " + Text::printable( message ) + "\n" );
}

std::string documentText( nlohmann::ordered_json document ) {
    escapeTexts( document );
    return document.dump( 2 ) + "\n";
}

std::string heading( std::string_view text ) {
    if ( !coloured() )
        return std::string( text );
    return "\033[1m" + std::string( text ) + "\033[0m";
}

} // namespace Tool
