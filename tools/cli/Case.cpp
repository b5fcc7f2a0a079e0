#include "tools/cli/Case.h"

#include "tools/model/ChipOptions.h"
#include "tools/model/Errors.h"
#include "tools/model/Files.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace Tool {

namespace {

// A line of a report that is longer is taken to be two.
constexpr std::size_t longestLine = 1 << 20;

// A report that goes on beyond this is no report.
constexpr std::uint64_t longestReport = std::uint64_t( 16 ) << 30;

// An empty report tells neither that a process was stopped nor that none was.
void refuseEmpty( const ReportReader & report, const std::string & path ) {
    if ( report.isEmpty() )
        throw InputError( nameOf( path ), 0, "is empty",
                          "give what the process wrote to standard error, as a file or by a pipe" );
}

// The chips of a bundle, as chips of a model.
Model modelOfUnits( const std::vector<SavedUnit> & units, const std::string & source ) {
    std::vector<ChipDescription> chips;
    for ( const SavedUnit & unit : units )
        chips.push_back( defaultChip( unit.unit, unit.schema, source ) );
    return defaultModel( std::move( chips ) );
}

} // namespace

std::string nameOf( const std::string & report ) {
    return report == "-" ? "standard input" : report;
}

ReportReader readText( std::string_view text ) {
    ReportReader report;
    while ( !text.empty() ) {
        const std::size_t end = std::min( text.find( '\n' ), text.size() );
        report.add( text.substr( 0, end ) );
        text.remove_prefix( std::min( end + 1, text.size() ) );
    }
    return report;
}

ReportReader readReport( const std::string & path, std::string * whole ) {
    const bool isInput = path == "-";
    const auto refuse = [&]( int error ) {
        return InputError( nameOf( path ), 0,
                           fmt::format( "cannot be read: {}", std::strerror( error ) ) );
    };
    const std::unique_ptr<std::FILE, void ( * )( std::FILE * )> file(
        isInput ? stdin : std::fopen( path.c_str(), "rbe" ), []( std::FILE * each ) {
            if ( each != nullptr && each != stdin )
                std::fclose( each );
        } );
    if ( !file )
        throw refuse( errno );
    ReportReader report;
    std::string rest;
    std::array<char, 1 << 16> buffer;
    std::uint64_t sizeSoFar = 0;
    while ( const std::size_t size = std::fread( buffer.data(), 1, buffer.size(), file.get() ) ) {
        sizeSoFar += size;
        if ( sizeSoFar > longestReport )
            throw InputError( nameOf( path ), 0, "is larger than 16 GiB",
                              "give a part of it, \"tail -c 1G FILE | cairn-lt diagnose\"" );
        std::string_view chunk( buffer.data(), size );
        if ( whole != nullptr && sizeSoFar > Bundle::largest )
            throw InputError( nameOf( path ), 0, "is larger than a bundle may be",
                              "give a part of it, \"tail -c 100M FILE | cairn-lt diagnose\"" );
        if ( whole != nullptr )
            *whole += chunk;
        for ( std::size_t end = chunk.find( '\n' ); end != std::string_view::npos;
              end = chunk.find( '\n' ) ) {
            if ( rest.empty() ) {
                report.add( chunk.substr( 0, end ) );
            } else {
                report.add( rest += chunk.substr( 0, end ) );
                rest.clear();
            }
            chunk.remove_prefix( end + 1 );
        }
        rest += chunk;
        if ( rest.size() > longestLine ) {
            report.add( rest );
            rest.clear();
        }
    }
    if ( std::ferror( file.get() ) )
        throw refuse( errno );
    if ( !rest.empty() )
        report.add( rest );
    if ( isInput )
        refuseEmpty( report, path );
    return report;
}

SiteTable tableOf( const DiagnoseOptions & options ) {
    return options.library.empty() ? SiteTable::own() : SiteTable::fromLibrary( options.library );
}

Model modelFor( const DiagnoseOptions & options ) {
    ChipOptions chips = options.chips;
    chips.state = options.from;
    return modelOf( chips );
}

Case caseOf( const std::string & file, const DiagnoseOptions & options ) {
    Case given{ .name = file };
    const bool saysChips = !options.chips.chips.empty() || !options.chips.model.empty();
    if ( isBundle( file ) ) {
        const Bundle bundle = readBundle( file );
        given.text = bundle.report;
        given.report = readText( bundle.report );
        given.table = options.library.empty() && !bundle.sites.empty()
                          ? SiteTable::parse( bundle.sites, file )
                          : tableOf( options );
        given.traces = bundle.traces;
        if ( !bundle.traces->empty() )
            given.trace = traceIn( bundle, file );
        if ( options.from.empty() && !saysChips && !bundle.chips.empty() ) {
            given.savedFile = file + ":chips.json";
            given.saved = parseState( bundle.chips, given.savedFile );
        }
    } else {
        given.report = readReport( file, options.bundle.empty() ? nullptr : &given.text );
        refuseEmpty( given.report, file );
        given.table = tableOf( options );
    }
    if ( !options.trace.empty() ) {
        given.trace = traceAt( options.trace );
        given.traces = options.bundle.empty() ? nullptr : readTraces( options.trace );
    }
    if ( !options.from.empty() ) {
        given.savedFile = options.from;
        given.saved = parseState( readFile( options.from ), options.from );
    }
    given.model = options.from.empty() && !given.saved.empty()
                      ? modelOfUnits( given.saved, given.savedFile )
                      : modelFor( options );
    return given;
}

void Case::setUp( Sim::Chip & chip ) const {
    addUnits( chip, model );
    restoreDescribed( chip, saved, savedFile );
}

} // namespace Tool
