#include "tools/cli/CommandLine.h"

#include "interpose/SdkCall.h"
#include "text/NearestName.h"
#include "tools/cli/Completion.h"
#include "tools/cli/Verbs.h"
#include "tools/model/Errors.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <new>
#include <optional>
#include <span>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Tool {

namespace {

constexpr const char * about =
    "Runs the recipes of libCairnLtHelper on simulated forwarding chips.\n"
    "Exit codes: 0 yes, 1 the answer is no, 2 bad input or trouble. A recipe that the SDK refuses "
    "stops the process (SIGABRT).";

constexpr const char * recipeHelp =
    "Arguments stand in the order of the recipe's signature (see \"cairn-lt "
    "list\"): integers in decimal or after 0x; bool as true, false, 1, 0, on "
    "or off; a ChipInfo by the name of a chip; the shared state is not given.\n"
    "Without --chip and --model, unit 0 is a reference chip called chip0, with "
    "a module, a CPU port and a recirculation port, blocked at stage 106.\n";

// What an option may say, and what that means.
template <class Value>
using Choices = std::vector<std::pair<std::string_view, Value>>;

const Choices<Format> formats{ { "text", Format::text }, { "json", Format::json } };
const Choices<ExplainFormat> explainFormats{ { "text", ExplainFormat::text },
                                             { "markdown", ExplainFormat::markdown },
                                             { "json", ExplainFormat::json } };
const Choices<TraceFormat> traceFormats{
    { "text", TraceFormat::text }, { "brief", TraceFormat::brief }, { "json", TraceFormat::json } };
const Choices<ExportFormat> exportFormats{ { "ctf", ExportFormat::ctf },
                                           { "chrome", ExportFormat::chrome },
                                           { "folded", ExportFormat::folded } };
const Choices<DiagnoseFormat> diagnoseFormats{ { "text", DiagnoseFormat::text },
                                               { "json", DiagnoseFormat::json },
                                               { "ndjson", DiagnoseFormat::ndjson },
                                               { "markdown", DiagnoseFormat::markdown } };

template <class Value>
Value chosen( std::string_view option, std::string_view text, const Choices<Value> & choices ) {
    std::string remedy = "write ";
    for ( std::size_t i = 0; i < choices.size(); ++i ) {
        if ( choices[i].first == text )
            return choices[i].second;
        remedy += i == 0 ? "" : i + 1 == choices.size() ? " or " : ", ";
        remedy += choices[i].first;
    }
    throw InputError( fmt::format( "{}: there is no format \"{}\"", option, text ), remedy );
}

// The short names of the operations that can fail.
std::string operationNames() {
    std::vector<std::string_view> names;
    for ( const Interpose::SdkCall call : Interpose::sdkOperations() )
        names.push_back( Interpose::shortName( call ) );
    return fmt::format( "{}", fmt::join( names, ", " ) );
}

class CommandLine {
  public:
    CommandLine() : app_( about, "cairn-lt" ) {
        app_.set_version_flag( "--version", "cairn-lt " CAIRN_VERSION );
        app_.require_subcommand( 1 );
        app_.footer( "\"cairn-lt VERB --help\" tells more of each, with examples." );
        addList();
        addRun();
        addBringup();
        addExplain();
        addSweep();
        addTables();
        addDump();
        addTrace();
        addDiff();
        addReplay();
        addCheck();
        addDiagnose();
        addReport();
    }

    int run( int argc, const char * const * argv ) {
        try {
            // The scripts of the shells ask; it is no verb for people.
            if ( argc > 1 && std::string_view( argv[1] ) == "complete" ) {
                print( completionText( app_, std::vector<std::string>( argv + 2, argv + argc ) ) );
                return 0;
            }
            checkWords( { argv + std::min( argc, 1 ), argv + argc } );
            app_.parse( argc, argv );
            for ( const auto & choose : choices_ )
                choose();
            return verb_();
        } catch ( const CLI::Success & help ) {
            return show( help );
        } catch ( const CLI::ParseError & error ) {
            complain( explain( error ).what() );
        } catch ( const std::bad_alloc & ) {
            complain( "not enough memory" );
        } catch ( const std::exception & error ) {
            complain( error.what() );
        }
        return 2;
    }

  private:
    // --- The verbs

    void addList() {
        CLI::App & verb = addVerb( "list", "Shows all recipes with their parameters",
                                   "cairn-lt list\n"
                                   "cairn-lt list --format json" );
        addFormat( verb, list_.format );
        onVerb( verb, [this] { return Tool::list( list_ ); } );
    }

    void addRun() {
        CLI::App & verb =
            addVerb( "run", "Runs one recipe on simulated chips",
                     "cairn-lt run setEgrTunnelEcnEncap 0 5 2 --trace ApiCairn/4 --dump\n"
                     "cairn-lt run setOpaqueTagIngress 0 3 --state chip.json\n"
                     "cairn-lt run getOpaqueTagIngress 0 3 --state chip.json\n"
                     "cairn-lt run setEgrTunnelEcnEncap 0 5 2 --inject op=pt_entry_commit,rc=-7",
                     recipeHelp );
        verb.add_option( "recipe", run_.recipe, "The recipe" )->required();
        verb.add_option( "arguments", run_.arguments, "Its arguments" );
        addChips( verb, run_.chips );
        addSession( verb, run_.session, run_.output );
        run_.output.style = SessionOutput::Style::results;
        onVerb( verb, [this] {
            chooseDump( run_.output.dump, run_.output.format );
            run_.chips.state = run_.session.state;
            return Tool::run( run_ );
        } );
    }

    void addBringup() {
        CLI::App & verb = addVerb( "bringup", "Runs the steps of a bring-up file",
                                   "cairn-lt bringup examples/bringup.toml\n"
                                   "cairn-lt bringup examples/bringup.toml --trace 'Cairn*/*' "
                                   "--trace-file trace.log --dump" );
        verb.add_option( "file", bringup_.file, "The bring-up file" )->required();
        addSession( verb, bringup_.session, bringup_.output );
        onVerb( verb, [this] {
            chooseDump( bringup_.output.dump, bringup_.output.format );
            return Tool::bringup( bringup_ );
        } );
    }

    void addExplain() {
        CLI::App & verb = addVerb(
            "explain", "Shows what a recipe does, step by step",
            "cairn-lt explain setLearnCacheEnabled\n"
            "cairn-lt explain setOpaqueTagIngress 0 0\n"
            "cairn-lt explain setMcastV6StrengthProfile --model examples/kova.toml\n"
            "cairn-lt explain --all --format markdown",
            "The recipe runs on a scratch chip, so this is what really happens there, with "
            "these arguments and on this chip. Nothing is kept.\n" );
        verb.add_option( "recipe", explain_.recipe, "The recipe" );
        verb.add_option( "arguments", explain_.arguments, "Its arguments; samples if left out" );
        verb.add_flag( "--all", explain_.all, "All recipes, with sample arguments" );
        addChips( verb, explain_.chips );
        verb.add_option( "--state", explain_.chips.state,
                         "The scratch chip begins as this state file says; it is only read" );
        addChoice( verb, "--format", explain_.format, explainFormats,
                   "text (the default), markdown or json" );
        onVerb( verb, [this] { return Tool::explain( explain_ ); } );
    }

    void addSweep() {
        CLI::App & verb = addVerb(
            "sweep", "Proves what recipes do when SDK calls fail",
            "cairn-lt sweep\n"
            "cairn-lt sweep setLearnCacheEnabled setEmRobustHashDisable --verbose\n"
            "cairn-lt sweep --chip examples/chips/no-seeds.toml\n"
            "cairn-lt sweep --format json",
            "Each branch of a recipe is run on a scratch chip, and again with each of its SDK "
            "calls disturbed: it fails, it returns a positive code, it leaves the handle invalid. "
            "Each run is a process of its own. Calls, hooks, locks, trace lines, messages, "
            "standard error, the stop, live entries and tables are held against what the "
            "library promises for that kind of call. Exit code 1 if anything is unexpected.\n" );
        verb.add_option( "recipes", sweep_.recipes, "The recipes; all of them if left out" );
        addChips( verb, sweep_.chips );
        verb.add_flag( "--verbose", sweep_.verbose, "Shows each fault, not only unexpected ones" );
        addFormat( verb, sweep_.format );
        onVerb( verb, [this] { return Tool::sweep( sweep_ ); } );
    }

    void addTables() {
        CLI::App & verb = addVerb( "tables", "Shows the tables of a chip, and their fields",
                                   "cairn-lt tables\n"
                                   "cairn-lt tables EGR_TUNNEL_ECN_ENCAPm PC_PORT\n"
                                   "cairn-lt tables --chip examples/chips/small.toml\n"
                                   "cairn-lt tables PC_PORT --format json",
                                   "A list of all tables with their kinds and sizes; of each "
                                   "table that is named, its fields: role, bits of an element, "
                                   "elements, what a SET or an INSERT writes if the entry does not "
                                   "carry the field (reset), what the field holds before anybody "
                                   "wrote it (power-on), and the names of its values.\n" );
        verb.add_option( "tables", tables_.tables, "The tables; all of them if left out" );
        addChips( verb, tables_.chips );
        verb.add_option( "--state", tables_.chips.state,
                         "The chips of this state file; it is only read" );
        verb.add_option( "--unit", tables_.unit, "One unit only" );
        addFormat( verb, tables_.format );
        onVerb( verb, [this] { return Tool::tables( tables_ ); } );
    }

    void addDump() {
        CLI::App & verb = addVerb( "dump", "Shows tables of a chip that was kept with --state",
                                   "cairn-lt dump --state chip.json\n"
                                   "cairn-lt dump --state chip.json --all PC_PORT SER_PT_CONTROL\n"
                                   "cairn-lt dump --state chip.json --format json" );
        verb.add_option( "--state", dump_.state, "The state file" )->required();
        verb.add_option( "tables", dump_.tables,
                         "The tables; without any, all that have rows to show" );
        verb.add_option( "--unit", dump_.unit, "One unit only" );
        verb.add_flag( "--all", dump_.all,
                       "Also rows that a table has from the start and nobody wrote" );
        addFormat( verb, dump_.format );
        onVerb( verb, [this] { return Tool::dump( dump_ ); } );
    }

    void addTrace() {
        CLI::App & verb = addVerb(
            "trace", "Reads the binary trace of a process, also one that was killed",
            "cairn-lt trace trace/\n"
            "cairn-lt trace trace/ --recipe setLoadBalanceRandSeedCtrl --format json\n"
            "cairn-lt trace trace/ --from 2026-03-01T07:30:00 --match 'unit: 3'\n"
            "cairn-lt trace trace/ --follow --wait 60\n"
            "cairn-lt trace trace/ --info\n"
            "cairn-lt trace recording/ trace/ --export chrome -o trace.json",
            "The records of all files are shown in the order of their times. What is missing is "
            "said on standard error. Exit code 1 if a file is damaged or cannot be read; the others "
            "are read.\n"
            "--export writes them for other viewers: ctf is a Common Trace Format directory, chrome a "
            "trace-event document, folded the time of SDK calls as stacks for a flame graph.\n"
            "--from and --to find their place without reading what lies before and after. Files whose times "
            "are ticks or those of blocks are read as a whole, for a wall clock may be set back; recorded SDK "
            "calls are read from their beginning, for the table of an entry is told where it was allocated.\n"
            "Damage is said of what was read; --check reads all.\n"
            "Records carry no checksum: a byte that was changed within a value is not noticed.\n" );
        verb.add_option( "paths", trace_.paths, "Trace files, or folders that hold some" )
            ->required();
        verb.add_option( "--recipe", trace_.recipe, "Only messages of this recipe" );
        verb.add_option( "--site", trace_.site, "Only those of this FILE:LINE, LINE or FILE" );
        verb.add_option( "--from", trace_.from, "Only those from this time on, in UTC" );
        verb.add_option( "--to", trace_.to, "Only those before this time" );
        verb.add_option(
            "--thread", trace_.thread,
            "Only those of this thread, or of this process if its threads share a file" );
        verb.add_option( "--match", trace_.match, "Only those whose text holds this" );
        verb.add_option( "--operation", trace_.operation,
                         "Only recorded SDK calls of this operation, as field_add" );
        verb.add_option( "--table", trace_.table, "Only recorded SDK calls on this table" );
        verb.add_option( "--unit", trace_.unit, "Only recorded SDK calls on this unit" );
        verb.add_option( "--code", trace_.code, "Only recorded SDK calls that returned this code" );
        CLI::Option * follow =
            verb.add_flag( "--follow", trace_.follow,
                           "Waits for more while a process writes, and for new files in a folder" );
        verb.add_option( "--wait", trace_.wait,
                         "How many seconds a folder is followed when no process writes there any "
                         "more: for one that is started anew (default 5)" )
            ->needs( follow )
            ->check( CLI::Range( 0u, 1'000'000'000u ) );
        CLI::Option * info =
            verb.add_flag( "--info", trace_.info,
                           "Shows what the files are: writer, clock, sites, blocks, losses" );
        CLI::Option * check =
            verb.add_flag( "--check", trace_.check, "Says what is damaged, and where" );
        info->excludes( follow, check );
        check->excludes( follow );
        CLI::Option * format =
            addChoice( verb, "--format", trace_.format, traceFormats,
                       "text (the default), brief (time and text) or json (a line each)" );
        CLI::Option * exportAs = addChoice( verb, "--export", trace_.exportAs, exportFormats,
                                            "Writes the records as ctf, chrome or folded" );
        exportAs->excludes( follow, info, check, format );
        verb.add_option( "-o,--output", trace_.output,
                         "The file, or for ctf the directory, that is written; standard output if "
                         "left out" )
            ->needs( exportAs );
        verb.add_option(
                "--jobs", trace_.jobs,
                "On how many processors lines are made (default: all, up to 4); their order "
                "is the same" )
            ->check( CLI::Range( 1u, 64u ) )
            ->excludes( follow, info, check, exportAs );
        onVerb( verb, [this] {
            if ( trace_.exportAs == ExportFormat::ctf && trace_.output.empty() )
                throw InputError( "--export ctf writes a directory", "name it with -o" );
            return Tool::trace( trace_ );
        } );
    }

    void addDiff() {
        CLI::App & verb = addVerb(
            "diff", "Shows what differs between two states, or between two recordings",
            "cairn-lt diff before.json after.json\n"
            "cairn-lt diff before.json after.json --plan plan/\n"
            "cairn-lt diff old-release/ new-release/ --format json",
            "States are files that --state has written: their rows are compared field by field. "
            "Recordings are folders that --record-to has written: what was done with each entry is "
            "compared, unit by unit; handles, times and threads do not matter. What is in the "
            "second alone begins with \"+\", what is in the first alone with \"-\". Values that "
            "nobody wrote stand in parentheses. Exit code 0: no difference; 1: there are some.\n" );
        verb.add_option( "before", diff_.before, "The first state file or recording" )->required();
        verb.add_option( "after", diff_.after, "The second one" )->required();
        verb.add_option(
            "--plan", diff_.plan,
            "Leaves a recording in this folder, made if it is not there: the SDK "
            "operations that turn the first state into the second. \"cairn-lt replay\" "
            "performs it" );
        verb.add_option( "--context", diff_.context,
                         "Recordings: how many operations are shown around those that differ "
                         "(default 3)" )
            ->check( CLI::Range( 0u, 1'000'000u ) );
        addFormat( verb, diff_.format );
        onVerb( verb, [this] { return Tool::diff( diff_ ); } );
    }

    void addDiagnose() {
        CLI::App & verb = addVerb(
            "diagnose", "Tells from a crash report where and why the library stopped a process",
            "cairn-lt diagnose agent.log\n"
            "journalctl -u agent | cairn-lt diagnose --trace /var/lib/agent/trace\n"
            "cairn-lt diagnose agent.log --library libCairnLtHelper.so.old --format json\n"
            "cairn-lt diagnose reports/ --format ndjson\n"
            "cairn-lt diagnose agent.log --trace recording/ --bundle case.tar.zst\n"
            "cairn-lt diagnose case.tar.zst\n"
            "cairn-lt diagnose --error entry-not-found",
            "The report is any text that holds what the process wrote to standard error: a log, a "
            "journal, several processes mixed. Places are known by the text of the call, so that "
            "the report may be of another release. Of several reports, or a folder of them, the "
            "stops are grouped by recipe, call and code. Exit code 1 if nothing is found, or a "
            "report cannot be read.\n" );
        verb.add_option(
            "reports", diagnose_.reports,
            "Reports, bundles, or folders of them; standard input if left out, or \"-\"" );
        verb.add_flag( "--group", diagnose_.group, "Groups the stops of one report, too" );
        verb.add_option( "--trace", diagnose_.trace,
                         "The binary trace of the process: a file, or a folder that holds some" );
        verb.add_option( "--library", diagnose_.library,
                         "The library file of the release that wrote the report" );
        addChips( verb, diagnose_.chips );
        verb.add_option( "--from", diagnose_.from,
                         "With a recording: the chips began as this state file says" );
        verb.add_option(
            "--state", diagnose_.state,
            "With a recording: writes the chips as they were at the stop to this file" );
        verb.add_flag( "--dump{as-format}", dumpText_,
                       "With a recording: shows the tables as they were at the stop, as --format "
                       "says or as --dump=text or --dump=json" );
        verb.add_option( "--bundle", diagnose_.bundle,
                         "Writes all that is known into this file, .tar.gz or .tar.zst, which is a "
                         "report again" );
        verb.add_option( "--error", diagnose_.error,
                         "What an error means and what to do: its name, its code, or the line that "
                         "was printed; \"all\" shows all" );
        addChoice( verb, "--format", diagnose_.format, diagnoseFormats,
                   "text (the default), json, or ndjson: a line for each stop; markdown for "
                   "--error all" );
        onVerb( verb, [this] {
            chooseDump( diagnose_.dump,
                        diagnose_.format == DiagnoseFormat::json ? Format::json : Format::text );
            return Tool::diagnose( diagnose_ );
        } );
    }

    void addReplay() {
        CLI::App & verb = addVerb(
            "replay", "Performs the operations of a recording on simulated chips",
            "cairn-lt replay recording/\n"
            "cairn-lt replay recording/ --state at-the-stop.json --dump\n"
            "cairn-lt replay recording/ --from before.json --until 2026-03-01T07:30:00.25\n"
            "cairn-lt replay recording/ --keep-going --ignore codes",
            "Codes and values read are compared with those that were recorded. The replay ends at "
            "the first operation that does something else, and shows it with those before it. A "
            "guarded call that failed for a reason that is none of the chip's fails as it did. What "
            "cannot be known is said on standard error. Exit code 0: all as recorded; 1: not.\n" );
        verb.add_option( "recording", replay_.recording,
                         "The recording: a folder, or a trace file" )
            ->required();
        addChips( verb, replay_.chips );
        verb.add_option( "--from", replay_.from,
                         "The chips begin as this state file says; it is only read" );
        verb.add_option( "--state", replay_.state,
                         "Keeps the chips in this file: they begin as it says, if there is one and "
                         "no --from, and it is written when the replay is over" );
        verb.add_flag( "--keep-going", replay_.keepGoing,
                       "Goes on after an operation that does something else" );
        verb.add_option( "--until", replay_.until,
                         "Ends after the call of this number, or with the calls that had returned "
                         "by this time, in UTC" );
        addRepeatable( verb, "--ignore", replay_.ignore,
                       "codes: of codes, only whether the operation succeeded is compared; "
                       "values: values read are not compared; repeatable" );
        addDumpFlag( verb );
        addProcess( verb, replay_.process );
        addFormat( verb, replay_.format );
        onVerb( verb, [this] {
            chooseDump( replay_.dump, replay_.format );
            return Tool::replay( replay_ );
        } );
    }

    void addCheck() {
        CLI::App & verb =
            addVerb( "check", "Says which rules the calls of a recording break",
                     "cairn-lt check recording/\n"
                     "cairn-lt check recording/ --ignore written-twice --format json\n"
                     "cairn-lt check --list",
                     "Each finding is shown with the calls that it is about. Exit code 0: none; 1: "
                     "there are some.\n" );
        verb.add_option( "recording", check_.recording,
                         "The recording: a folder, or a trace file" );
        verb.add_flag( "--list", check_.list, "Shows the rules" );
        addRepeatable( verb, "--ignore", check_.ignore, "A rule that is not checked; repeatable" );
        addChips( verb, check_.chips );
        addProcess( verb, check_.process );
        addFormat( verb, check_.format );
        onVerb( verb, [this] { return Tool::check( check_ ); } );
    }

    void addReport() {
        CLI::App & verb = addVerb(
            "report", "Writes a page to look at: what was done, when, and what the chip holds",
            "cairn-lt report examples/bringup.toml -o bringup.html\n"
            "cairn-lt report recording/ -o recording.html\n"
            "cairn-lt report recording/ --from before.json -o recording.html\n"
            "cairn-lt report case.tar.zst -o case.html\n"
            "cairn-lt sweep --format json >sweep.json; cairn-lt report sweep.json -o sweep.html",
            "The page is one file that needs no other and no network. It can be given a trace, with "
            "recorded SDK calls or without; a bundle of diagnose, with the chips that it brings; a "
            "bring-up file, whose steps are run on new chips; or the JSON that sweep or diff has "
            "printed. If a bring-up stops, the page is written before the process ends (SIGABRT).\n" );
        verb.add_option(
                "input", report_.input,
                "A trace folder or file, a recording, a bundle of diagnose, a bring-up file, or "
                "JSON of sweep or diff" )
            ->required();
        verb.add_option( "-o,--output", report_.output, "The page, an HTML file" )->required();
        verb.add_option( "--from", report_.from,
                         "A recording: the chips begin as this state file says; it is only read" );
        addChips( verb, report_.chips );
        addProcess( verb, report_.process );
        addInject( verb, report_.inject );
        onVerb( verb, [this] { return Tool::report( report_ ); } );
    }

    // --- What verbs share

    void addInject( CLI::App & verb, std::vector<std::string> & faults ) {
        addRepeatable( verb, "--inject", faults,
                       "A fault, as op=OPERATION,table=TABLE,field=FIELD,unit=UNIT,rc=CODE,at=N,"
                       "always or handle=invalid; repeatable. OPERATION is one of " +
                           operationNames() );
    }

    CLI::App & addVerb( const char * name, const char * description, const std::string & examples,
                        const std::string & more = {} ) {
        CLI::App & verb = *app_.add_subcommand( name, description );
        std::string indented = "  " + examples;
        for ( auto i = indented.find( '\n' ); i != std::string::npos;
              i = indented.find( '\n', i + 1 ) )
            indented.insert( i + 1, "  " );
        verb.footer( more + ( more.empty() ? "" : "\n" ) + "Examples:\n" + indented );
        return verb;
    }

    void onVerb( CLI::App & verb, std::function<int()> action ) {
        verb.callback( [this, action = std::move( action )] { verb_ = action; } );
    }

    void addRepeatable( CLI::App & verb, const char * name, std::vector<std::string> & values,
                        const std::string & description ) {
        verb.add_option( name, values, description )
            ->expected( 1 )
            ->allow_extra_args( false )
            ->take_all();
    }

    // What is chosen is looked at when all words have been read.
    template <class Value, class Place>
    CLI::Option * addChoice( CLI::App & verb, const char * name, Place & place,
                             const Choices<Value> & choices, const char * description ) {
        const std::string & text = texts_.emplace_back();
        choices_.push_back( [&text, name, &place, &choices] {
            if ( !text.empty() )
                place = chosen( name, text, choices );
        } );
        return verb.add_option( name, texts_.back(), description );
    }

    void addFormat( CLI::App & verb, Format & format ) {
        addChoice( verb, "--format", format, formats, "text (the default) or json" );
    }

    void addDumpFlag( CLI::App & verb ) {
        verb.add_flag( "--dump{as-format}", dumpText_,
                       "Shows the tables that were written, as --format says or as --dump=text or "
                       "--dump=json" );
    }

    void chooseDump( std::optional<Format> & dump, Format asFormat ) const {
        if ( !dumpText_.empty() )
            dump = dumpText_ == "as-format" ? asFormat : chosen( "--dump", dumpText_, formats );
    }

    void addProcess( CLI::App & verb, std::optional<std::uint32_t> & process ) {
        verb.add_option(
            "--process", process,
            "The process whose calls are meant, if the recording has those of several" );
    }

    void addChips( CLI::App & verb, ChipOptions & chips ) {
        addRepeatable( verb, "--chip", chips.chips,
                       "A chip, as [UNIT=]SOURCE: a chip file, or \"reference\"; repeatable, "
                       "units count from 0" );
        verb.add_option( "--model", chips.model,
                         "A bring-up file that describes chips, "
                         "modules and ports; its steps are not run" );
    }

    void addSession( CLI::App & verb, SessionOptions & session, SessionOutput & output ) {
        addRepeatable( verb, "--trace", session.trace,
                       "Trace to standard error: FACILITY/LEVEL, /LOW-HIGH or /*; repeatable. "
                       "ApiCairn/4 shows every SDK call" );
        verb.add_option( "--trace-file", session.traceFile, "Trace to this file instead" );
        verb.add_option( "--record-to", session.recordTo,
                         "Records the SDK calls in this folder, made if it is not there; "
                         "\"cairn-lt trace\" shows them" );
        verb.add_option( "--trace-dir", session.traceDir,
                         "Leaves the binary trace in this folder, made if it is not there; "
                         "\"cairn-lt trace\" reads it" );
        addInject( verb, session.inject );
        addDumpFlag( verb );
        verb.add_option( "--state", session.state,
                         "Keeps the chips in this file: they begin as it says, and it is written "
                         "when the run is over or stops" );
        verb.add_flag( "--record", session.record, "Shows the SDK operations" );
        addFormat( verb, output.format );
    }

    // --- Messages

    // The help or the version. It counts as said only if it was written.
    int show( const CLI::Success & help ) const {
        std::ostringstream text;
        const int code = app_.exit( help, text, text );
        try {
            print( text.str() );
            return code;
        } catch ( const Trouble & error ) {
            complain( error.what() );
            return 2;
        }
    }

    std::vector<std::string_view> verbNames() const {
        static const std::vector<std::string> names = [this] {
            std::vector<std::string> all;
            for ( const CLI::App * verb : app_.get_subcommands( {} ) )
                all.push_back( verb->get_name() );
            return all;
        }();
        return { names.begin(), names.end() };
    }

    // Says of these words what the parser would take in another sense, or say less clearly.
    void checkWords( const std::vector<std::string_view> & words ) const {
        if ( words.empty() )
            throw InputError( "no verb",
                              joined( { Text::nameHint( "", verbNames() ), seeHelp( app_ ) } ) );
        const std::string_view first = words.front();
        if ( first.starts_with( '-' ) )
            return checkOptionOfProgram( first );
        const auto names = verbNames();
        if ( std::find( names.begin(), names.end(), first ) == names.end() )
            throw InputError( fmt::format( "there is no verb \"{}\"", first ),
                              joined( { Text::nameHint( first, names ), seeHelp( app_ ) } ) );
        const CLI::App & verb = *app_.get_subcommand( std::string( first ) );
        checkValues( verb, std::span( words ).subspan( 1 ) );
        if ( std::find( words.begin(), words.end(), "" ) != words.end() )
            throw InputError(
                "an argument is \"\", which names nothing",
                joined( { "write what is meant, or leave it out", seeHelp( verb ) } ) );
    }

    void checkOptionOfProgram( std::string_view word ) const {
        const std::string name( word.substr( 0, word.find( '=' ) ) );
        if ( app_.get_option_no_throw( name ) != nullptr )
            return;
        const auto verbs = app_.get_subcommands( {} );
        const bool isOfVerb =
            std::any_of( verbs.begin(), verbs.end(), [&]( const CLI::App * verb ) {
                return verb->get_option_no_throw( name ) != nullptr;
            } );
        if ( isOfVerb )
            throw InputError(
                fmt::format( "{} is an option of a verb, and no verb is given", name ),
                joined( { "write the verb first", seeHelp( app_ ) } ) );
        throw unknownOption( app_, word );
    }

    // An option is never the value of another one.
    void checkValues( const CLI::App & verb, std::span<const std::string_view> words ) const {
        for ( std::size_t i = 0; i < words.size() && words[i] != "--"; ++i ) {
            if ( !words[i].starts_with( '-' ) )
                continue;
            const std::string name( words[i].substr( 0, words[i].find( '=' ) ) );
            const CLI::Option * option = verb.get_option_no_throw( name );
            if ( option == nullptr || option->get_items_expected_min() == 0 )
                continue;
            const bool isAttached = name.size() < words[i].size();
            const bool isThere = isAttached ? name.size() + 1 < words[i].size()
                                            : i + 1 < words.size() && !words[i + 1].empty();
            if ( !isThere )
                throw InputError( fmt::format( "{} needs a value", name ), seeHelp( verb ) );
            if ( isAttached )
                continue;
            const std::string_view value = words[++i];
            if ( value.size() > 1 && value.starts_with( '-' ) )
                throw InputError(
                    fmt::format( "{} needs a value, and {} follows", name, value ),
                    joined( { fmt::format( "write {}={} if that is the value", name, value ),
                              seeHelp( verb ) } ) );
        }
    }

    // The verb of the command line; the program itself if there is none.
    const CLI::App & current() const {
        const auto parsed = app_.get_subcommands();
        return parsed.empty() ? app_ : *parsed.front();
    }

    InputError explain( const CLI::ParseError & error ) const {
        const CLI::App & verb = current();
        const auto extras = verb.remaining();
        if ( error.get_exit_code() == static_cast<int>( CLI::ExitCodes::ExtrasError ) &&
             !extras.empty() )
            return explainExtra( verb, extras.front() );
        std::string text = error.what();
        std::replace( text.begin(), text.end(), '\n', ' ' );
        return InputError( text, seeHelp( verb ) );
    }

    InputError explainExtra( const CLI::App & verb, const std::string & extra ) const {
        if ( !extra.starts_with( '-' ) )
            return InputError( fmt::format( "one argument too many: \"{}\"", extra ),
                               seeHelp( verb ) );
        if ( extra.find_first_not_of( "0123456789", 1 ) == std::string::npos && extra.size() > 1 )
            return InputError(
                fmt::format( "the argument {} is negative; arguments are not", extra ),
                seeHelp( verb ) );
        return unknownOption( verb, extra );
    }

    InputError unknownOption( const CLI::App & verb, std::string_view word ) const {
        std::vector<std::string> names;
        for ( const CLI::Option * option : verb.get_options() ) {
            if ( option->nonpositional() )
                names.push_back( option->get_name() );
        }
        const std::vector<std::string_view> views( names.begin(), names.end() );
        return InputError( fmt::format( "there is no option \"{}\"", word ),
                           joined( { Text::nameHint( word.substr( 0, word.find( '=' ) ), views ),
                                     seeHelp( verb ) } ) );
    }

    std::string seeHelp( const CLI::App & verb ) const {
        return fmt::format( "\"cairn-lt{}{} --help\" tells more", &verb == &app_ ? "" : " ",
                            &verb == &app_ ? "" : verb.get_name() );
    }

    static std::string joined( std::vector<std::string> remedies ) {
        std::erase( remedies, "" );
        return fmt::format( "{}", fmt::join( remedies, "; " ) );
    }

    CLI::App app_;
    std::function<int()> verb_;
    std::deque<std::string> texts_; // of choices, which are made before the verb runs
    std::vector<std::function<void()>> choices_;
    std::string dumpText_; // likewise
    ListOptions list_;
    RunOptions run_;
    BringupOptions bringup_;
    ExplainOptions explain_;
    SweepOptions sweep_;
    TablesOptions tables_;
    DumpOptions dump_;
    TraceOptions trace_;
    DiffOptions diff_;
    ReplayOptions replay_;
    CheckOptions check_;
    DiagnoseOptions diagnose_;
    ReportOptions report_;
};

} // namespace

int main( int argc, const char * const * argv ) {
    claimStandardStreams();
    std::signal( SIGXFSZ, SIG_IGN ); // a file that grows too large is an error like a full disk
    return CommandLine().run( argc, argv );
}

} // namespace Tool
