#include "text/Escape.h"
#include "text/Numbers.h"
#include "text/Time.h"
#include "tools/cli/Case.h"
#include "tools/cli/DiagnoseOutput.h"
#include "tools/cli/Investigation.h"
#include "tools/cli/Tables.h"
#include "tools/cli/Verbs.h"
#include "tools/diagnose/Bundle.h"
#include "tools/diagnose/Diagnosis.h"
#include "tools/diagnose/Fleet.h"
#include "tools/diagnose/Report.h"
#include "tools/model/Errors.h"
#include "tools/model/StateFile.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <utility>
#include <vector>

namespace Tool {

namespace {

using Json = nlohmann::ordered_json;

// --- A line for each stop, for data stores

constexpr int lineSchema = 1;

std::string jsonLine( const Diagnosis & diagnosis, const std::string & report,
                      std::optional<std::int64_t> time, const SiteTable & table ) {
    const Stop & stop = diagnosis.stop;
    const Site * const site = diagnosis.sites.size() == 1 ? &diagnosis.sites.front() : nullptr;
    const bool isError = stop.kind == Stop::Kind::apiError;
    const auto process = stop.process();
    const auto orNull = [&]( bool isKnown, const Json & value ) {
        return isKnown ? value : Json();
    };
    Json json{
        { "schema", lineSchema },
        { "report", Text::printable( report ) },
        { "report_line", stop.reportLine },
        { "time", orNull( time.has_value(), Text::utc( time.value_or( 0 ) ) ) },
        { "program", orNull( !stop.program.empty(), Text::printable( stop.program ) ) },
        { "process", orNull( process.has_value(), process.value_or( 0 ) ) },
        { "release", table.version() },
        { "kind", nameOf( stop.kind ) },
        { "found", nameOf( diagnosis.found ) },
        { "recipe", orNull( !diagnosis.function.empty(), Text::printable( diagnosis.function ) ) },
        { "call", orNull( site != nullptr && site->isCall(), site != nullptr ? site->call : 0 ) },
        { "line", orNull( stop.kind != Stop::Kind::lockMisuse, stop.line ) },
        { "text", Text::printable( stop.text ) },
        { "rc", orNull( isError, stop.rc ) },
        { "words", orNull( isError, Text::printable( stop.words ) ) },
        { "in_words", orNull( !diagnosis.inWords.empty(), diagnosis.inWords ) } };
    return json.dump() + "\n";
}

// --- Many reports: stops by what they have in common

std::string timeText( std::optional<std::int64_t> time ) {
    constexpr std::size_t toTheSecond = 19;
    return time ? Text::utc( *time ).substr( 0, toTheSecond ) + "Z" : "-";
}

// "0.1.0 (3), unknown (1)"
std::string releasesText( const StopGroup & group ) {
    std::string text;
    for ( const auto & [release, count] : group.releases )
        text += fmt::format( "{}{} ({})", text.empty() ? "" : ", ",
                             release.empty() ? "unknown" : release, count );
    return text;
}

std::string groupsText( const Fleet & fleet, std::size_t reports ) {
    const auto groups = fleet.groups();
    std::string text = heading( fmt::format( "{} in {}, {}", Text::counted( fleet.stops(), "stop" ),
                                             Text::counted( reports, "report" ),
                                             Text::counted( groups.size(), "kind" ) ) ) +
                       "\n";
    for ( const StopGroup * group : groups ) {
        const Diagnosis & first = group->first;
        const Stop & stop = first.stop;
        text += fmt::format( "\n{} in {}, {} to {}: {}{}\n", group->count,
                             Text::counted( group->reports, "report" ), timeText( group->earliest ),
                             timeText( group->latest ),
                             first.function.empty() ? "" : Text::printable( first.function ) + ", ",
                             endText( stop ) );
        Sheet sheet;
        sheet.add( stop.kind == Stop::Kind::assertion ? "expected" : "call",
                   stop.text == "0" ? "" : stop.text );
        sheet.add( "step", first.inWords );
        if ( stop.kind == Stop::Kind::apiError )
            sheet.add( "SDK", fmt::format( "{} ({})", stop.words, stop.rc ) );
        sheet.add( "meaning", first.meaning );
        sheet.add( "releases", releasesText( *group ) );
        sheet.add( "example", fmt::format( "{}:{}", group->report, stop.reportLine ) );
        text += sheet.text();
    }
    return text;
}

Json groupsJson( const Fleet & fleet, std::size_t reports, const SiteTable & table ) {
    Json groups = Json::array();
    for ( const StopGroup * group : fleet.groups() ) {
        Json json{ { "count", group->count }, { "reports", group->reports } };
        if ( group->earliest ) {
            json["first"] = Text::utc( *group->earliest );
            json["last"] = Text::utc( *group->latest );
        }
        Json releases = Json::object();
        for ( const auto & [release, count] : group->releases )
            releases[release.empty() ? "unknown" : Text::printable( release )] = count;
        json["releases"] = std::move( releases );
        json["example"] = stopJson( group->first, {} );
        json["example"]["report"] = Text::printable( group->report );
        groups.push_back( std::move( json ) );
    }
    return { { "release", table.version() },
             { "reports", reports },
             { "stops", fleet.stops() },
             { "not_kept", fleet.notKept() },
             { "groups", std::move( groups ) } };
}

// --- The reports

// When a file was written last: for stops whose lines have no time.
std::optional<std::int64_t> timeOfFile( const std::string & path ) {
    struct stat status {};
    if ( path == "-" || ::stat( path.c_str(), &status ) != 0 )
        return {};
    constexpr std::int64_t nanoseconds = 1'000'000'000;
    return status.st_mtim.tv_sec * nanoseconds + status.st_mtim.tv_nsec;
}

// The files of what was given: files, folders with all that lies in them, by name.
std::vector<std::string> filesOf( const std::vector<std::string> & reports ) {
    namespace fs = std::filesystem;
    std::vector<std::string> files;
    for ( const std::string & report : reports ) {
        std::error_code error;
        if ( report == "-" || !fs::is_directory( report, error ) ) {
            files.push_back( report );
            continue;
        }
        const std::size_t first = files.size();
        for ( fs::recursive_directory_iterator each(
                  report, fs::directory_options::skip_permission_denied, error );
              !error && each != fs::recursive_directory_iterator(); each.increment( error ) ) {
            std::error_code ignored;
            if ( each->is_regular_file( ignored ) )
                files.push_back( each->path().string() );
        }
        if ( error )
            throw InputError( report, 0, fmt::format( "cannot be read: {}", error.message() ) );
        std::sort( files.begin() + static_cast<std::ptrdiff_t>( first ), files.end() );
    }
    return files;
}

// Reports that are taken one after the other, each stop to a group or to a line.
class FleetReader {
  public:
    FleetReader( const SiteTable & table, const Sim::Schema & schema, DiagnoseFormat format )
        : table_( table ), schema_( schema ), format_( format ) {}

    // InputError if it cannot be read.
    void read( const std::string & file ) {
        if ( isBundle( file ) ) {
            // It brings the list of sites of its own release.
            const Bundle bundle = readBundle( file, BundleParts::withoutTraces );
            const SiteTable own =
                bundle.sites.empty() ? table_ : SiteTable::parse( bundle.sites, file );
            take( readText( bundle.report ), file, own, bundle.release );
        } else {
            take( readReport( file ), file, table_, {} );
        }
    }

    const Fleet & fleet() const { return fleet_; }
    std::size_t reports() const { return reports_; }

    void find( const std::string & finding ) { findings_.push_back( finding ); }
    const std::vector<std::string> & findings() const { return findings_; }

    void finish() {
        printLines( 0 );
        if ( fleet_.notKept() != 0 )
            find(
                fmt::format( "{} stops are of more kinds than are told apart", fleet_.notKept() ) );
    }

  private:
    // `release`: of the library that wrote it; empty: not known, but where the line tells.
    void take( const ReportReader & report, const std::string & file, const SiteTable & table,
               const std::string & release ) {
        ++reports_;
        const auto written = timeOfFile( file );
        for ( const Stop & stop : report.stops() ) {
            const Diagnosis diagnosis = diagnose( stop, table, schema_ );
            const auto itsTime = timeOf( stop );
            const auto time = itsTime ? itsTime : written;
            const bool isExact = diagnosis.found == Diagnosis::Found::exactly;
            fleet_.add( diagnosis, nameOf( file ), time,
                        !release.empty() ? release
                        : isExact        ? table.version()
                                         : std::string() );
            if ( format_ == DiagnoseFormat::ndjson )
                lines_ += jsonLine( diagnosis, nameOf( file ), time, table );
        }
        if ( report.count() > report.stops().size() )
            find( fmt::format( "{}: {} of {} stops are taken; divide the report", nameOf( file ),
                               report.stops().size(), report.count() ) );
        printLines( outputChunk );
    }

    void printLines( std::size_t ifMoreThan ) {
        if ( lines_.size() > ifMoreThan ) {
            print( lines_ );
            lines_.clear();
        }
    }

    const SiteTable & table_;
    const Sim::Schema & schema_;
    const DiagnoseFormat format_;
    Fleet fleet_;
    std::size_t reports_ = 0;
    std::string lines_;
    std::vector<std::string> findings_;
};

void complainOf( const std::vector<std::string> & findings ) {
    for ( const std::string & finding : findings )
        complain( finding );
}

int diagnoseMany( const std::vector<std::string> & files, const SiteTable & table,
                  const Sim::Schema & schema, DiagnoseFormat format ) {
    FleetReader reader( table, schema, format );
    for ( const std::string & file : files ) {
        try {
            reader.read( file );
        } catch ( const InputError & error ) {
            if ( files.size() == 1 )
                throw;
            reader.find( error.what() );
        }
    }
    reader.finish();
    const Fleet & fleet = reader.fleet();
    if ( format == DiagnoseFormat::json )
        print( groupsJson( fleet, reader.reports(), table ).dump( 2 ) + "\n" );
    else if ( format == DiagnoseFormat::text )
        print( groupsText( fleet, reader.reports() ) );
    complainOf( reader.findings() );
    return fleet.stops() == 0 || !reader.findings().empty() ? 1 : 0;
}

// --- One report

// The chips as they were when recording began.
std::string chipsText( const Case & given ) {
    Sim::Chip chip;
    given.setUp( chip );
    return stateText( chip );
}

int diagnoseOne( const std::string & file, const DiagnoseOptions & options ) {
    std::optional<StateFile> stateFile;
    if ( !options.state.empty() )
        stateFile.emplace( options.state, [&] {
            complain( fmt::format( "waiting for {}, which another process uses", options.state ) );
        } );
    const Case given = caseOf( file, options );
    Investigation investigation( given );
    Json stops = Json::array();
    std::string text;
    std::string plainText; // without bold headings, for a file
    for ( const Stop & stop : given.report.stops() ) {
        const auto [diagnosis, context] = investigation.look( stop );
        stops.push_back( stopJson( diagnosis, context ) );
        const char * const gap = text.empty() ? "" : "\n";
        const std::string sheet = stopSheet( diagnosis, given.table, context ).text();
        text += gap + heading( stopTitle( stop ) ) + "\n" + sheet;
        plainText += gap + stopTitle( stop ) + "\n" + sheet;
    }
    if ( text.empty() )
        text = plainText = "nothing in the report says that this library stopped a process\n";
    Json json{ { "release", given.table.version() },
               { "count", given.report.count() },
               { "stops", std::move( stops ) } };

    const Sim::Chip * const chip = investigation.chip();
    if ( ( stateFile || options.dump ) && chip == nullptr )
        throw InputError( options.trace.empty() ? nameOf( file ) : options.trace, 0,
                          "has no recording of a process that the report says was stopped, so no "
                          "chip can be rebuilt",
                          "leave --state and --dump out" );
    if ( stateFile )
        stateFile->save( *chip );
    if ( !options.bundle.empty() ) {
        Bundle bundle{ .release = given.table.version(),
                       .tool = CAIRN_VERSION,
                       .report = given.text,
                       .sites = given.table.text(),
                       .chips = chipsText( given ),
                       .text = plainText,
                       .json = json.dump( 2 ) + "\n" };
        if ( chip != nullptr )
            bundle.state = stateText( *chip );
        if ( given.traces )
            bundle.traces = given.traces;
        writeBundle( options.bundle, bundle );
    }
    if ( options.format == DiagnoseFormat::json ) {
        if ( options.dump )
            json["tables"] = tablesJson( *chip, {} );
        text = json.dump( 2 ) + "\n";
    } else if ( options.dump ) {
        text += options.dump == Format::json ? documentText( tablesJson( *chip, {} ) )
                                             : "\n" + tablesText( *chip, {} );
    }
    print( text );
    if ( given.report.count() > given.report.stops().size() )
        complain( fmt::format( "{} of {} stops are shown; give a part of the report",
                               given.report.stops().size(), given.report.count() ) );
    complainOf( investigation.findings() );
    return given.report.count() == 0 ? 1 : 0;
}

} // namespace

int diagnose( const DiagnoseOptions & options ) {
    if ( !options.error.empty() )
        return showErrorPage( options.error, options.format );
    if ( options.format == DiagnoseFormat::markdown )
        throw InputError( "--format: markdown is for --error all", "write text, json or ndjson" );
    const std::vector<std::string> reports =
        options.reports.empty() ? std::vector<std::string>{ "-" } : options.reports;
    const std::vector<std::string> files = filesOf( reports );
    const bool areGrouped = options.group || files != reports || files.size() > 1;
    if ( areGrouped || options.format == DiagnoseFormat::ndjson ) {
        if ( !options.trace.empty() )
            throw InputError( "--trace is for one report; leave it out, or name one report" );
        if ( !options.bundle.empty() )
            throw InputError( "--bundle is for one report; leave it out, or name one report" );
        const Model model = modelFor( options );
        return diagnoseMany( files, tableOf( options ), model.chips.front().schema,
                             options.format );
    }
    const bool wantsChip = !options.from.empty() || !options.state.empty() || options.dump;
    if ( wantsChip && options.trace.empty() && !isBundle( files.front() ) )
        throw InputError( "--from, --state and --dump are about a recording",
                          "name its folder with --trace" );
    if ( !options.bundle.empty() )
        checkBundleName( options.bundle );
    return diagnoseOne( files.front(), options );
}

} // namespace Tool
