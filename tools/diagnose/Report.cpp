#include "tools/diagnose/Report.h"

#include "text/Numbers.h"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

namespace Tool {

namespace {

constexpr std::string_view sourceFile = "Cairn/CairnLtHelper:";
constexpr std::string_view misuse = "Kiln activity lock: ";
constexpr std::string_view tool = "cairn-lt: ";

// The tool's lines stand right behind those of the library, but for what other processes write.
constexpr std::size_t nearby = 1000;

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
    if ( addOfTool( line ) )
        return;
    const std::size_t at = line.find( misuse );
    if ( at != std::string_view::npos )
        keep( { .kind = Stop::Kind::lockMisuse,
                .prefix = std::string( line.substr( 0, at ) ),
                .reportLine = line_,
                .text = std::string( line.substr( at + misuse.size() ) ) } );
}

// What cairn-lt says of the stop before. Without a stop these lines say nothing.
bool ReportReader::addOfTool( std::string_view line ) {
    if ( stops_.empty() || line_ - stops_.back().reportLine > nearby )
        return false;
    const std::size_t at = line.find( tool );
    if ( at == std::string_view::npos )
        return false;
    const std::string_view text = line.substr( at + tool.size() );
    const Stop said{ .kind = Stop::Kind::assertion, .prefix = std::string( line.substr( 0, at ) ) };
    const auto stop = std::find_if( stops_.rbegin(), stops_.rend(), [&]( const Stop & each ) {
        return each.process() == said.process();
    } );
    if ( stop == stops_.rend() )
        return false;
    // "stopped in step 1 of 1: RECIPE( ... )", with the place in a bring-up file before it.
    constexpr std::string_view stopped = "stopped in step ";
    const std::size_t step = text.find( stopped );
    const std::size_t colon =
        step == std::string_view::npos ? step : text.find( ": ", step + stopped.size() );
    if ( colon != std::string_view::npos && stop->step.empty() ) {
        stop->step = text.substr( colon + 2 );
        return true;
    }
    if ( stop->step.empty() )
        return false;
    const std::array parts = {
        std::pair( std::string_view( "last SDK call: " ), &stop->operation ),
        std::pair( std::string_view( "the chip says: " ), &stop->chipSays ),
        std::pair( std::string_view( "it is a fault that was injected: " ), &stop->fault ) };
    for ( const auto & [mark, part] : parts ) {
        if ( text.starts_with( mark ) && part->empty() ) {
            *part = text.substr( mark.size() );
            return true;
        }
    }
    return false;
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
