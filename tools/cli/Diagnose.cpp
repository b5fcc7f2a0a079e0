#include "text/Escape.h"
#include "text/Time.h"
#include "tools/cli/DiagnoseOutput.h"
#include "tools/cli/Tables.h"
#include "tools/cli/Verbs.h"
#include "tools/diagnose/Bundle.h"
#include "tools/diagnose/CrashScene.h"
#include "tools/diagnose/Diagnosis.h"
#include "tools/diagnose/Fleet.h"
#include "tools/diagnose/LastRecords.h"
#include "tools/diagnose/Report.h"
#include "tools/model/Errors.h"
#include "tools/model/Files.h"
#include "tools/model/StateFile.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
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

// What is not UTF-8 in a report is escaped.
std::string valid( std::string_view text ) { return Text::printable( text ); }

// A line of a report that is longer is taken to be two.
constexpr std::size_t longestLine = 1 << 20;

// A report that goes on beyond this is no report.
constexpr std::uint64_t longestReport = std::uint64_t( 16 ) << 30;

std::string nameOf( const std::string & report ) {
    return report == "-" ? "standard input" : report;
}

// A bundle is small enough to be kept; so is a report that goes into one.
ReportReader readText( std::string_view text ) {
    ReportReader report;
    while ( !text.empty() ) {
        const std::size_t end = std::min( text.find( '\n' ), text.size() );
        report.add( text.substr( 0, end ) );
        text.remove_prefix( std::min( end + 1, text.size() ) );
    }
    return report;
}

// An empty report tells neither that a process was stopped nor that none was.
void refuseEmpty( const ReportReader & report, const std::string & path ) {
    if ( report.isEmpty() )
        throw InputError( nameOf( path ), 0, "is empty",
                          "give what the process wrote to standard error, as a file or by a pipe" );
}

// `whole`, if it is not null, gets the text.
ReportReader readReport( const std::string & path, std::string * whole = nullptr ) {
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

// --- One report: each stop in full

// The stops of a report, one after the other, with what a trace tells of them.
class Investigation {
  public:
    /// `source` may be empty.
    Investigation( const SiteTable & table, const Model & model, TraceSource source )
        : table_( table ), model_( model ), source_( std::move( source ) ) {
        if ( source_ )
            records_.emplace( source_ );
    }

    /// The chips as they were when recording began, and the file that says so; without, they are new.
    void beginWith( std::vector<SavedUnit> saved, const std::string & file ) {
        saved_ = std::move( saved );
        from_ = file;
    }

    std::pair<Diagnosis, Context> look( const Stop & stop ) {
        const Sim::Schema & schema = model_.chips.front().schema;
        Diagnosis diagnosis = diagnose( stop, table_, schema );
        Context context;
        if ( records_ )
            context.found = records_->find( diagnosis, table_ );
        const ThreadRecords * const thread = context.found.thread;
        const bool isTheThread = thread != nullptr && context.found.others == 0 &&
                                 context.found.how != ThreadFound::How::byProcess;
        if ( isTheThread && thread->lastCall )
            diagnosis = diagnose( stop, table_, schema, &*thread->lastCall );
        if ( isTheThread )
            context.scene =
                thread->lastCall ? rebuildFor( *thread, diagnosis ) : sceneOf( *thread, diagnosis );
        if ( isTheThread && thread->lastCall )
            lookForOthers( *thread->lastCall, context );
        const auto [known, isNew] = stops_.try_emplace( signatureOf( diagnosis ) );
        if ( isNew )
            known->second.firstLine = stop.reportLine;
        context.stopsLikeIt = known->second.count++;
        context.firstLikeIt = known->second.firstLine;
        return { std::move( diagnosis ), std::move( context ) };
    }

    /// As it was when the last process stopped whose recording is there; null if none is.
    const Sim::Chip * chip() const { return chip_.get(); }

    const std::vector<std::string> & findings() const {
        static const std::vector<std::string> none;
        return records_ ? records_->findings() : none;
    }

  private:
    struct Alike {
        std::size_t count = 0;
        std::size_t firstLine = 0;
    };

    // A report that holds the same twice is about one stop of the thread.
    CrashScene rebuildFor( const ThreadRecords & thread, const Diagnosis & diagnosis ) {
        const auto known = scenes_.find( { &thread, diagnosis.function } );
        if ( known != scenes_.end() )
            return known->second;
        auto chip = std::make_unique<Sim::Chip>();
        addUnits( *chip, model_ );
        restoreSaved( *chip );
        CrashScene scene = rebuild( source_, thread, diagnosis, table_, *chip );
        chip_ = std::move( chip );
        return scenes_[{ &thread, diagnosis.function }] = std::move( scene );
    }

    void restoreSaved( Sim::Chip & chip ) const {
        for ( const SavedUnit & unit : saved_ ) {
            const Sim::Schema * const schema = chip.schema( unit.unit );
            if ( schema == nullptr || !( *schema == unit.schema ) )
                throw InputError(
                    from_, 0,
                    fmt::format( "unit {} is another chip than the one described", unit.unit ),
                    "leave --chip and --model out, or name another state file" );
        }
        restore( chip, saved_, from_ );
    }

    void lookForOthers( const TraceReader::RecordedCall & call, Context & context ) const {
        const auto alike = records_->failuresLike( call );
        context.failuresLikeIt = alike.size();
        if ( !alike.empty() )
            context.lastLikeIt = *alike.front();
    }

    const SiteTable & table_;
    const Model & model_;
    const TraceSource source_;
    std::optional<LastRecords> records_;
    std::string from_;
    std::vector<SavedUnit> saved_;
    std::map<std::pair<const ThreadRecords *, std::string>, CrashScene> scenes_;
    std::map<std::string, Alike> stops_;
    std::unique_ptr<Sim::Chip> chip_;
};

// --- A line for each stop, for data stores

constexpr int lineSchema = 1;

std::string jsonLine( const Diagnosis & diagnosis, const std::string & report,
                      std::optional<std::int64_t> time, const SiteTable & table ) {
    const Stop & stop = diagnosis.stop;
    const Site * const site = diagnosis.sites.size() == 1 ? &diagnosis.sites.front() : nullptr;
    const bool isError = stop.kind == Stop::Kind::apiError;
    const auto process = stop.process();
    const auto orNull = [&]( bool isKnown, Json value ) { return isKnown ? value : Json(); };
    Json json{ { "schema", lineSchema },
               { "report", valid( report ) },
               { "report_line", stop.reportLine },
               { "time", orNull( time.has_value(), Text::utc( time.value_or( 0 ) ) ) },
               { "program", orNull( !stop.program.empty(), valid( stop.program ) ) },
               { "process", orNull( process.has_value(), process.value_or( 0 ) ) },
               { "release", table.version() },
               { "kind", nameOf( stop.kind ) },
               { "found", nameOf( diagnosis.found ) },
               { "recipe", orNull( !diagnosis.function.empty(), valid( diagnosis.function ) ) },
               { "call", orNull( site != nullptr && site->isCall(), site ? site->call : 0 ) },
               { "line", orNull( stop.kind != Stop::Kind::lockMisuse, stop.line ) },
               { "text", valid( stop.text ) },
               { "rc", orNull( isError, stop.rc ) },
               { "words", orNull( isError, valid( stop.words ) ) },
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
    std::string text =
        heading( fmt::format( "{} stop{} in {} report{}, {} kind{}", fleet.stops(),
                              fleet.stops() == 1 ? "" : "s", reports, reports == 1 ? "" : "s",
                              groups.size(), groups.size() == 1 ? "" : "s" ) ) +
        "\n";
    for ( const StopGroup * group : groups ) {
        const Diagnosis & first = group->first;
        const Stop & stop = first.stop;
        text += fmt::format( "\n{} in {} report{}, {} to {}: {}{}\n", group->count, group->reports,
                             group->reports == 1 ? "" : "s", timeText( group->earliest ),
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
            releases[release.empty() ? "unknown" : valid( release )] = count;
        json["releases"] = std::move( releases );
        json["example"] = stopJson( group->first, {} );
        json["example"]["report"] = valid( group->report );
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
        constexpr std::size_t outputChunk = 1 << 16;
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

// All that is given of one report, by itself or as a bundle.
struct Case {
    std::string name;
    std::string text = {}; ///< if it is to be kept
    ReportReader report = {};
    SiteTable table = {};
    Model model = {};
    TraceSource trace = {};
    std::shared_ptr<const Bundle::Traces> traces = {};
    std::vector<SavedUnit> saved = {};
    std::string savedFile = {};
};

SiteTable tableOf( const DiagnoseOptions & options ) {
    return options.library.empty() ? SiteTable::own() : SiteTable::fromLibrary( options.library );
}

Model modelFor( const DiagnoseOptions & options ) {
    ChipOptions chips = options.chips;
    chips.state = options.from;
    return modelOf( chips );
}

// The chips of a bundle, as chips of a model.
Model modelOfUnits( const std::vector<SavedUnit> & units, const std::string & source ) {
    std::vector<ChipDescription> chips;
    for ( const SavedUnit & unit : units )
        chips.push_back( defaultChip( unit.unit, unit.schema, source ) );
    return defaultModel( std::move( chips ) );
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

// The chips as they were when recording began.
std::string chipsText( const Case & given ) {
    Sim::Chip chip;
    addUnits( chip, given.model );
    restore( chip, given.saved, given.savedFile );
    return stateText( chip );
}

int diagnoseOne( const std::string & file, const DiagnoseOptions & options ) {
    std::optional<StateFile> stateFile;
    if ( !options.state.empty() )
        stateFile.emplace( options.state, [&] {
            complain( fmt::format( "waiting for {}, which another process uses", options.state ) );
        } );
    const Case given = caseOf( file, options );
    Investigation investigation( given.table, given.model, given.trace );
    investigation.beginWith( given.saved, given.savedFile );
    Json stops = Json::array();
    std::string text;
    for ( const Stop & stop : given.report.stops() ) {
        const auto [diagnosis, context] = investigation.look( stop );
        stops.push_back( stopJson( diagnosis, context ) );
        text += ( text.empty() ? "" : "\n" ) + stopText( diagnosis, given.table, context );
    }
    if ( text.empty() )
        text = "nothing in the report says that this library stopped a process\n";
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
                       .text = text,
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
