#include "tools/diagnose/Report.h"

#include "text/Numbers.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace Tool {

namespace {

constexpr std::string_view sourceFile = "Cairn/CairnLtHelper:";
constexpr std::string_view misuse = "Kiln activity lock: ";

// Takes a decimal number off the front.
std::optional<int> takeNumber( std::string_view & text ) {
    const std::size_t digits = std::min( text.find_first_not_of( "0123456789" ), text.size() );
    std::uint64_t number = 0;
    if ( digits == 0 || digits > 9 || !Text::parseNumber( text.substr( 0, digits ), number ) )
        return {};
    text.remove_prefix( digits );
    return static_cast<int>( number );
}

bool take( std::string_view & text, std::string_view expected ) {
    if ( !text.starts_with( expected ) )
        return false;
    text.remove_prefix( expected.size() );
    return true;
}

// What the rest of a line is, after the source file and the line: " CALL API ERROR:WORDS (CODE)".
bool parseApiError( std::string_view rest, Stop & stop ) {
    constexpr std::string_view mark = " API ERROR:";
    const std::size_t at = rest.find( mark );
    if ( !rest.starts_with( ' ' ) || at == std::string_view::npos || at < 2 )
        return false;
    stop.text = rest.substr( 1, at - 1 );
    rest.remove_prefix( at + mark.size() );
    while ( rest.ends_with( '\r' ) || rest.ends_with( ' ' ) )
        rest.remove_suffix( 1 );
    const std::size_t open = rest.rfind( " (-" );
    if ( open == std::string_view::npos || !rest.ends_with( ')' ) )
        return false;
    std::string_view code = rest.substr( open + 3 );
    code.remove_suffix( 1 );
    std::uint64_t number = 0;
    if ( code.empty() || code.find_first_not_of( "0123456789" ) != std::string_view::npos ||
         !Text::parseNumber( code, number ) || number == 0 ||
         number > std::uint64_t( std::numeric_limits<int>::max() ) + 1 )
        return false;
    stop.kind = Stop::Kind::apiError;
    stop.words = rest.substr( 0, open );
    stop.rc = static_cast<int>( -static_cast<std::int64_t>( number ) );
    return true;
}

// ": SIGNATURE: Assertion `EXPRESSION' failed."
bool parseAssertion( std::string_view rest, Stop & stop ) {
    constexpr std::string_view mark = ": Assertion `";
    constexpr std::string_view end = "' failed.";
    const std::size_t at = rest.find( mark );
    if ( !take( rest, ": " ) || at == std::string_view::npos || at < 2 )
        return false;
    stop.signature = rest.substr( 0, at - 2 );
    rest.remove_prefix( at - 2 + mark.size() );
    const std::size_t close = rest.rfind( end );
    if ( close == std::string_view::npos )
        return false;
    stop.kind = Stop::Kind::assertion;
    stop.text = rest.substr( 0, close );
    return true;
}

// An assertion line has the program before it: "PREFIX PROGRAM: ".
void splitProgram( Stop & stop ) {
    std::string_view prefix = stop.prefix;
    if ( !prefix.ends_with( ": " ) )
        return;
    prefix.remove_suffix( 2 );
    const std::size_t blank = prefix.rfind( ' ' );
    const std::size_t begin = blank == std::string_view::npos ? 0 : blank + 1;
    stop.program = prefix.substr( begin );
    stop.prefix.resize( begin );
}

} // namespace

std::optional<std::uint32_t> Stop::process() const {
    const std::size_t close = prefix.rfind( ']' );
    const std::size_t open = prefix.rfind( '[', close );
    if ( close == std::string::npos || open == std::string::npos )
        return {};
    const std::string_view digits = std::string_view( prefix ).substr( open + 1, close - open - 1 );
    std::uint64_t number = 0;
    if ( digits.find_first_not_of( "0123456789" ) != std::string_view::npos ||
         !Text::parseNumber( digits, number ) || number > UINT32_MAX )
        return {};
    return static_cast<std::uint32_t>( number );
}

void ReportReader::add( std::string_view line ) {
    ++line_;
    for ( std::size_t at = line.find( sourceFile ); at != std::string_view::npos;
          at = line.find( sourceFile, at + 1 ) ) {
        std::string_view rest = line.substr( at + sourceFile.size() );
        const auto number = takeNumber( rest );
        Stop stop{ .kind = Stop::Kind::apiError,
                   .prefix = std::string( line.substr( 0, at ) ),
                   .reportLine = line_ };
        if ( !number )
            continue;
        stop.line = *number;
        if ( parseApiError( rest, stop ) )
            return keep( std::move( stop ) );
        if ( parseAssertion( rest, stop ) ) {
            splitProgram( stop );
            if ( !complete( stop ) )
                keep( std::move( stop ) );
            return;
        }
    }
    const std::size_t at = line.find( misuse );
    if ( at != std::string_view::npos )
        keep( { .kind = Stop::Kind::lockMisuse,
                .prefix = std::string( line.substr( 0, at ) ),
                .reportLine = line_,
                .text = std::string( line.substr( at + misuse.size() ) ) } );
}

void ReportReader::keep( Stop stop ) {
    ++count_;
    if ( stops_.size() < maxStops )
        stops_.push_back( std::move( stop ) );
}

// The assertion `0' is the second line of a failed call: of the last one with this line that has no
// assertion yet, of the same process where that is known.
bool ReportReader::complete( const Stop & assertion ) {
    if ( assertion.text != "0" )
        return false;
    for ( auto stop = stops_.rbegin(); stop != stops_.rend(); ++stop ) {
        if ( stop->kind != Stop::Kind::apiError || stop->line != assertion.line ||
             !stop->signature.empty() || stop->process() != assertion.process() )
            continue;
        stop->program = assertion.program;
        stop->signature = assertion.signature;
        return true;
    }
    // Its first line is not in the report, or is one of those that are not kept.
    return stops_.size() == maxStops;
}

} // namespace Tool
