#include "tools/cli/Output.h"

#include "text/Escape.h"
#include "tools/model/Errors.h"
#include "tools/model/Files.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace Tool {

namespace {

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
    throw InputError( fmt::format( "{}: there is no format \"{}\"", option, text ),
                      "write text or json" );
}

void print( std::string_view text ) {
    if ( !writeAll( STDOUT_FILENO, text ) )
        throw Trouble(
            fmt::format( "standard output cannot be written: {}", std::strerror( errno ) ) );
}

void complain( std::string_view message ) {
    writeAll( STDERR_FILENO, "cairn-lt: " + Text::printable( message ) + "\n" );
}

std::string heading( std::string_view text ) {
    if ( !coloured() )
        return std::string( text );
    return "\033[1m" + std::string( text ) + "\033[0m";
}

} // namespace Tool
