#include "tools/show/Report.h"

#include "text/Escape.h"
#include "tools/cli/BundleStops.h"
#include "tools/cli/Case.h"
#include "tools/cli/RecordingInput.h"
#include "tools/cli/Verbs.h"
#include "tools/diagnose/Bundle.h"
#include "tools/diagnose/ErrorPages.h"
#include "tools/model/Arguments.h"
#include "tools/model/ChipFile.h"
#include "tools/model/Errors.h"
#include "tools/model/Files.h"
#include "tools/model/Interrupts.h"
#include "tools/model/State.h"
#include "tools/recording/OpenRecording.h"
#include "tools/recording/Replay.h"
#include "tools/run/Session.h"
#include "tools/show/ReportDocument.h"
#include "tools/show/ReportFailure.h"
#include "tools/show/ReportPage.h"
#include "tools/show/ReportRecording.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <vector>

namespace Tool {

namespace {

enum class InputKind { trace, document, bringup, bundle };

struct Input {
    InputKind kind;
    /// Of what is no regular file, all: what was read from a pipe is gone.
    std::optional<std::string> contents = {};
};

std::string beginningOf( const std::string & path ) {
    std::ifstream file( path, std::ios::binary );
    if ( !file )
        throw InputError( path, 0, std::string( "cannot be read: " ) + std::strerror( errno ) );
    std::string head( 64, '\0' );
    file.read( head.data(), static_cast<std::streamsize>( head.size() ) );
    head.resize( static_cast<std::size_t>( file.gcount() ) );
    return head;
}

// By what it begins with.
Input lookAt( const std::string & path ) {
    std::error_code error;
    const auto status = std::filesystem::status( path, error );
    if ( std::filesystem::is_directory( status ) )
        return { InputKind::trace };
    if ( isBundle( path ) )
        return { InputKind::bundle };
    Input input{ InputKind::bringup };
    if ( std::filesystem::exists( status ) && !std::filesystem::is_regular_file( status ) )
        input.contents = readFile( path );
    const std::string head = input.contents ? input.contents->substr( 0, 64 ) : beginningOf( path );
    const std::size_t first = head.find_first_not_of( " \t\r\n" );
    if ( head.starts_with( "FLEETLOG" ) )
        input.kind = InputKind::trace;
    else if ( first != std::string::npos && head[first] == '{' )
        input.kind = InputKind::document;
    else if ( head.find( '\0' ) != std::string::npos || head.empty() )
        throw InputError( path, 0, "neither a trace, nor a bundle, nor a bring-up file, nor JSON",
                          "\"cairn-lt report --help\" tells what can be shown" );
    return input;
}

// A folder of its own for the recording of a run, removed at the end.
class ScratchFolder {
  public:
    ScratchFolder()
        : path_( ( std::filesystem::temp_directory_path() / "cairn-lt-report-XXXXXX" ).string() ) {
        if ( ::mkdtemp( path_.data() ) == nullptr )
            throw Trouble( fmt::format( "{}: cannot be made: {}", path_, std::strerror( errno ) ) );
    }
    ~ScratchFolder() { remove(); }
    ScratchFolder( const ScratchFolder & ) = delete;
    ScratchFolder & operator=( const ScratchFolder & ) = delete;

    void remove() const {
        std::error_code ignored;
        std::filesystem::remove_all( path_, ignored );
    }

    const std::string & path() const { return path_; }

  private:
    std::string path_;
};

// The files of a trace, with SDK calls or without; of all processes, or of one.
TraceReader::Merge filesAt( const std::string & path, std::optional<std::uint32_t> process ) {
    std::error_code error;
    const bool isFolder = std::filesystem::is_directory( path, error );
    TraceReader::Merge merge;
    for ( const std::string & name :
          isFolder ? TraceReader::findFiles( path ) : std::vector{ path } ) {
        try {
            auto file = std::make_unique<TraceReader::File>( name );
            if ( !process || file->info().process == *process )
                merge.add( std::move( file ) );
        } catch ( const TraceReader::Error & ) {
            merge.add( name ); // is refused again, and a finding
        }
    }
    return merge;
}

// InputError if there is nothing to show.
TraceReader::Recording openTrace( TraceReader::Merge merge, const std::string & path,
                                  std::optional<std::uint32_t> process ) {
    if ( merge.files().empty() ) {
        if ( !merge.findings().empty() )
            throw InputError( merge.findings().front().file, 0, merge.findings().front().what );
        throw InputError( path, 0,
                          process ? fmt::format( "it holds nothing of process {}", *process )
                                  : "no trace files (*.fleetlog) in this directory" );
    }
    TraceReader::Recording recording( std::move( merge ), { .wantsMessages = true } );
    needOneProcess( recording, path );
    return recording;
}

// A message that names no thread is of the only thread that makes calls, if there is only one.
void nameThreads( ReportRecording & events, const TraceReader::Recording & recording ) {
    std::map<std::uint32_t, std::set<std::uint32_t>> threads;
    for ( const auto & file : recording.merge().files() ) {
        const auto & sites = file->sites();
        if ( std::any_of( sites.begin(), sites.end(), TraceReader::CallAssembler::isOfRecorder ) )
            threads[file->info().process].insert( file->info().thread );
    }
    for ( const auto & [process, those] : threads ) {
        if ( those.size() == 1 )
            events.nameThread( process, *those.begin() );
    }
}

class ReportVerb final : SessionListener {
  public:
    explicit ReportVerb( const ReportOptions & options )
        : options_( options ), output_( linkTarget( options.output ) ) {
        std::error_code error;
        if ( std::filesystem::exists( output_, error ) &&
             !std::filesystem::is_regular_file( output_, error ) )
            throw InputError( options.output, 0, "is no regular file",
                              "name another file with -o" );
        for ( const std::string & read : { options.input, options.from, options.chips.model } )
            needOtherFile( options.output, read );
        report_.input = options.input;
    }

    int run() {
        const Input input = lookAt( options_.input );
        switch ( input.kind ) {
        case InputKind::document:
            refuseForDocument();
            addDocument( report_, input.contents ? *input.contents : readFile( options_.input ),
                         options_.input );
            write();
            return 0;
        case InputKind::bringup:
            return runBringup( input );
        case InputKind::bundle:
            return showBundle();
        default:
            return showTrace();
        }
    }

  private:
    void write() const { replaceFile( output_, pageOf( report_ ) ); }

    void refuse( bool isGiven, const char * option, const char * what ) const {
        if ( isGiven )
            throw InputError(
                fmt::format( "{} is for {}, and {} is none", option, what, options_.input ),
                "leave it out" );
    }

    void refuseForDocument() const {
        refuseChips();
        refuse( options_.process.has_value(), "--process", "a trace" );
        refuse( !options_.inject.empty(), "--inject", "a bring-up file" );
    }

    void refuseChips() const {
        refuse( !options_.chips.chips.empty(), "--chip", "a trace" );
        refuse( !options_.chips.model.empty(), "--model", "a trace" );
        refuse( !options_.from.empty(), "--from", "a trace" );
    }

    // --- Traces

    int showTrace() {
        refuse( !options_.inject.empty(), "--inject", "a bring-up file" );
        Sim::Chip before;
        Sim::Chip chip;
        setUpChips( before );
        setUpChips( chip );
        TraceReader::Recording recording = openTrace( filesAt( options_.input, options_.process ),
                                                      options_.input, options_.process );
        report_.kind = recording.processes().empty() ? "Trace" : "Recording";
        ReportRecording events( report_, chip );
        showEvents( recording, before, chip, events );
        tellEnding( recording, events );
        const bool isDamaged = tellLosses( recording );
        write();
        return isDamaged ? 1 : 0;
    }

    void showEvents( TraceReader::Recording & recording, const Sim::Chip & before, Sim::Chip & chip,
                     ReportRecording & events ) {
        for ( const auto & file : recording.merge().files() )
            needOtherFile( output_, file->info().path );
        nameThreads( events, recording );
        perform( recording, chip, events );
        events.finish();
        if ( !recording.processes().empty() && replay_ )
            events.addTables( before, chip );
        for ( const TraceReader::Finding & finding : recording.findings() )
            addNote( finding.text() );
    }

    void setUpChips( Sim::Chip & chip ) const {
        ChipOptions chips = options_.chips;
        chips.state = options_.from;
        addUnits( chip, modelOf( chips ) );
        if ( options_.from.empty() )
            return;
        const auto kept = parseState( readFile( options_.from ), options_.from );
        restoreDescribed( chip, kept, options_.from );
    }

    // Reads the events, and performs them on the chip as long as it is one that they may be of.
    void perform( TraceReader::Recording & recording, Sim::Chip & chip, ReportRecording & events ) {
        replay_.emplace(
            chip, ReplayRules{ .hasLostBeginning = [&] { return recording.hasLostBeginning(); } },
            Text::printable( options_.input ), []( const Divergence & ) {} );
        TraceReader::Event event;
        while ( recording.next( event ) ) {
            // The events first: what they point to is as it was read.
            events.take( event );
            if ( !replay_ )
                continue;
            const std::uint64_t odd =
                replay_->counts().divergences + replay_->counts().failuresFromOutside;
            try {
                replay_->take( event );
            } catch ( const InputError & error ) {
                report_.notes.push_back(
                    fmt::format( "The tables are not shown: {}", error.what() ) );
                replay_.reset();
                continue;
            }
            if ( event.moment == TraceReader::Event::Moment::after &&
                 !TraceReader::isHook( event.call->call ) && !events.stop() )
                reason_ = event.call->rc < 0 && odd == replay_->counts().divergences +
                                                           replay_->counts().failuresFromOutside
                              ? chip.lastError()
                              : "";
        }
        if ( !replay_ )
            return;
        const ReplayCounts & counts = replay_->counts();
        if ( counts.operations != 0 )
            report_.facts.emplace_back( "Faults from outside",
                                        fmt::to_string( counts.failuresFromOutside ) );
        if ( counts.divergences != 0 )
            report_.notes.push_back( fmt::format(
                "On the simulated chip {} of {} calls do something else than they did; "
                "its tables may not be those of the chip. \"cairn-lt replay\" shows "
                "which.",
                counts.divergences, counts.operations ) );
        if ( counts.operations != 0 && recording.hasLostBeginning() )
            report_.notes.emplace_back(
                "The beginning is lost: what the chip held then is not known." );
        if ( counts.ofOlderEntries != 0 )
            report_.notes.push_back( fmt::format(
                "{} calls are left out of the tables: their entries are older than the recording.",
                counts.ofOlderEntries ) );
    }

    void tellEnding( const TraceReader::Recording & recording, ReportRecording & events ) {
        if ( const auto stop = events.stop() ) {
            report_.ending = Report::Ending::bad;
            report_.endingText = "An SDK call failed and stopped the process.";
            addFailure( *stop, events, {}, reason_ );
            return;
        }
        using TraceReader::Writer;
        const auto & files = recording.merge().files();
        const auto isAny = [&]( Writer writer ) {
            return std::any_of( files.begin(), files.end(), [&]( const auto & file ) {
                return !file->info().isClosed && file->writer() == writer;
            } );
        };
        if ( isAny( Writer::lives ) ) {
            report_.endingText = "The process was still writing.";
        } else if ( isAny( Writer::ended ) || isAny( Writer::unknown ) ) {
            report_.endingText = "The process ended without closing its trace.";
        } else {
            report_.ending = Report::Ending::good;
            report_.endingText = "The process closed its trace.";
        }
    }

    // --- Failures

    void addFailure( std::size_t place, ReportRecording & events, std::vector<Report::Fact> first,
                     const std::string & chipSays ) {
        const ReportCall * call = report_.calls.find( place );
        if ( call == nullptr )
            return;
        std::string recipe = events.recipeOf( place );
        // Not known: the one that spoke last, if it makes such a call; or the only one that does.
        if ( recipe.empty() &&
             !sourcesOf( report_, *call, std::string( events.lastRecipe() ) ).empty() )
            recipe = events.lastRecipe();
        const std::vector<Site> sources = sourcesOf( report_, *call, recipe );
        if ( recipe.empty() && sources.size() == 1 )
            recipe = sources.front().recipe;
        Report::Failure failure{ .title = recipe.empty() ? "An SDK call failed"
                                                         : "An SDK call failed in " + recipe,
                                 .facts = std::move( first ),
                                 .call = place };
        for ( const Site & source : sources )
            failure.facts.emplace_back(
                sources.size() == 1 ? "Place" : "Possible place",
                fmt::format( "Cairn/CairnLtHelper:{} {}{}", source.line, source.text,
                             source.recipe == recipe ? "" : " in " + source.recipe ) );
        failure.facts.emplace_back(
            "Call",
            fmt::format( "number {}, {} on {}", call->number,
                         name( static_cast<TraceReader::SdkCall>( call->operation ) ),
                         report_.texts[call->table].empty() ? "an unknown table"
                                                            : report_.texts[call->table] ) );
        failure.facts.emplace_back( "Code", fmt::to_string( call->rc ) );
        if ( !chipSays.empty() )
            failure.facts.emplace_back( "The chip says", chipSays );
        if ( const auto meaning = meaningOfCode( call->rc ); !meaning.empty() )
            failure.facts.emplace_back( "Meaning", std::string( meaning ) );
        report_.failure = std::move( failure );
    }

    // --- Bundles

    int showBundle() {
        refuse( !options_.inject.empty(), "--inject", "a bring-up file" );
        report_.kind = "Diagnosis";
        DiagnoseOptions chips;
        chips.chips = options_.chips;
        chips.from = options_.from;
        const Case given = caseOf( options_.input, chips );
        const BundleStops stops( given, options_.process );
        const bool isDamaged = given.trace && showTraceOf( given, stops );
        if ( !given.trace )
            stops.addTo( report_, {} );
        write();
        return isDamaged ? 1 : 0;
    }

    // True if the trace is damaged.
    bool showTraceOf( const Case & given, const BundleStops & stops ) {
        Sim::Chip before;
        Sim::Chip chip;
        given.setUp( before );
        given.setUp( chip );
        TraceReader::Merge files = given.trace( stops.process() );
        if ( files.files().empty() && !options_.process )
            return showWithoutTrace( files, stops );
        TraceReader::Recording recording =
            openTrace( std::move( files ), options_.input, stops.process() );
        ReportRecording events( report_, chip );
        showEvents( recording, before, chip, events );
        if ( !stops.areThereAny() )
            tellEnding( recording, events );
        stops.addTo( report_, events.stop() );
        return tellLosses( recording );
    }

    // The bundle has traces, but none of the process that was stopped, or none that can be read.
    bool showWithoutTrace( const TraceReader::Merge & files, const BundleStops & stops ) {
        report_.notes.push_back(
            stops.process()
                ? fmt::format( "The bundle has no trace of process {} that can be read.",
                               *stops.process() )
                : "The bundle has no trace that can be read." );
        for ( const TraceReader::Finding & finding : files.findings() ) {
            addNote( finding.text() );
            complain( finding.text() );
        }
        stops.addTo( report_, {} );
        return !files.findings().empty();
    }

    void addNote( std::string note ) {
        if ( report_.notes.size() < mostNotes )
            report_.notes.push_back( std::move( note ) );
    }

    // --- Bring-ups

    int runBringup( const Input & input ) {
        refuseChips();
        refuse( options_.process.has_value(), "--process", "a trace" );
        Bringup bringup = input.contents
                              ? parseBringup( *input.contents, options_.input, &loadChip )
                              : loadBringup( options_.input );
        // The session takes interrupts while it runs; what is left then is short.
        const InterruptsHeld held;
        SessionOptions session;
        session.recordTo = folder_.emplace().path();
        session.traceDir = folder_->path();
        session.inject = options_.inject;
        session.record = true;
        Session steps( std::move( bringup ), session, *this );
        steps.run();
        showBringup( steps );
        write();
        folder_->remove();
        const auto & outcomes = steps.outcomes();
        return std::all_of( outcomes.begin(), outcomes.end(),
                            []( const StepOutcome & outcome ) { return outcome.isGood(); } )
                   ? 0
                   : 1;
    }

    static std::vector<ReportStep> stepsOf( const Session & session ) {
        std::vector<ReportStep> steps;
        for ( const StepOutcome & outcome : session.outcomes() ) {
            const auto * recipe = std::get_if<RecipeStep>( &outcome.step->what );
            std::string text = toText( *outcome.step );
            steps.push_back( { .recipe = recipe != nullptr ? std::string( recipe->recipe->name )
                                                           : text.substr( 0, text.find( ' ' ) ),
                               .text = text,
                               .operations = outcome.operations.size(),
                               .isBad = !outcome.isGood() } );
        }
        return steps;
    }

    void showBringup( const Session & session ) {
        report_.kind = "Bring-up";
        Sim::Chip before;
        addUnits( before, session.bringup().model );
        TraceReader::Recording recording =
            openTrace( filesAt( folder_->path(), {} ), folder_->path(), {} );
        ReportRecording events( report_, session.chip(), stepsOf( session ) );
        nameThreads( events, recording );
        TraceReader::Event event;
        while ( recording.next( event ) )
            events.take( event );
        events.finish();
        tellSteps( session, events );
        if ( !options_.inject.empty() )
            report_.facts.emplace_back( "Faults",
                                        fmt::format( "{} given, {} struck", options_.inject.size(),
                                                     session.strikes().size() ) );
        for ( const Interpose::FaultReport & idle : session.idleFaults() )
            report_.notes.push_back(
                fmt::format( "The fault \"{}\" never struck.", toText( idle.fault ) ) );
        events.addTables( before, session.chip() );
    }

    static std::string placeOf( const Session & session, const StepOutcome & outcome ) {
        return fmt::format( "{}:{}", session.bringup().file, outcome.step->line );
    }

    void tellSteps( const Session & session, ReportRecording & events ) {
        const auto & outcomes = session.outcomes();
        const std::size_t steps = session.bringup().steps.size();
        if ( !outcomes.empty() && !outcomes.back().isFinished ) {
            const StepOutcome & last = outcomes.back();
            report_.ending = Report::Ending::bad;
            report_.endingText = fmt::format( "Stopped in step {} of {}.", last.number, steps );
            std::vector<Report::Fact> first{
                { "Step",
                  fmt::format( "{} {}", placeOf( session, last ), toText( *last.step ) ) } };
            for ( const Strike & strike : session.strikes() )
                first.emplace_back( "Fault that was injected", toText( strike.fault ) );
            if ( const auto stop = events.stop() )
                addFailure( *stop, events, std::move( first ), session.lastRefusal() );
            else
                report_.failure = { .title = "A recipe stopped by itself",
                                    .facts = std::move( first ) };
            return;
        }
        const auto bad =
            std::find_if( outcomes.begin(), outcomes.end(),
                          []( const StepOutcome & outcome ) { return !outcome.isGood(); } );
        if ( bad == outcomes.end() ) {
            report_.ending = Report::Ending::good;
            report_.endingText = fmt::format( "All {} steps went as they must.", steps );
            return;
        }
        report_.ending = Report::Ending::bad;
        report_.endingText = fmt::format(
            "{} of {} steps returned something else than they must.",
            std::count_if( outcomes.begin(), outcomes.end(),
                           []( const StepOutcome & outcome ) { return !outcome.isGood(); } ),
            steps );
        Report::Failure failure{ .title = "A step did not return what it must", .facts = {} };
        for ( auto each = bad; each != outcomes.end(); ++each ) {
            if ( !each->isGood() && failure.facts.size() < mostBadSteps )
                failure.facts.emplace_back(
                    fmt::format( "Step {}", each->number ),
                    fmt::format( "{} {} returned {}, {} is wanted", placeOf( session, *each ),
                                 toText( *each->step ), toText( each->result ),
                                 toText( *each->wanted() ) ) );
        }
        report_.failure = std::move( failure );
    }

    // --- What comes of the session

    void waitsFor( const std::string & ) override {}
    void stepBegins( const Session &, const StepOutcome & ) override {}
    void stepEnded( const Session &, const StepOutcome & ) override {}

    void stopped( const Session & session ) override {
        const StepOutcome & last = session.outcomes().back();
        try {
            showBringup( session );
            write();
            complain( fmt::format( "{}: stopped in step {}: {}; {} shows where and why",
                                   placeOf( session, last ), last.number, toText( *last.step ),
                                   options_.output ) );
        } catch ( const std::exception & error ) {
            complain( error.what() );
        }
        folder_->remove();
    }

    void interrupted( const Session &, int ) override {
        folder_->remove();
        complain(
            fmt::format( "{} is not written: the bring-up was interrupted", options_.output ) );
    }

    static constexpr std::size_t mostNotes = 20;
    static constexpr std::size_t mostBadSteps = 10;

    const ReportOptions & options_;
    const std::string output_;
    Report report_;
    std::optional<ScratchFolder> folder_;
    std::optional<Replay> replay_;
    std::string reason_; ///< the chip's, of the last call that failed
};

} // namespace

int report( const ReportOptions & options ) { return ReportVerb( options ).run(); }

} // namespace Tool
