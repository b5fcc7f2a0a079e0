#include "tools/sweep/SweepRunner.h"

#include "interpose/FaultInjector.h"
#include "sim/Chip.h"
#include "tools/model/Arguments.h"
#include "tools/model/Errors.h"
#include "tools/model/Files.h"
#include "tools/run/StopHandler.h"

#include <Kiln/ActivityLock.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <deque>
#include <exception>
#include <mutex>
#include <new>
#include <optional>
#include <string_view>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>

// What was observed in a run goes from its process to the sweep's as JSON.

template <class T>
struct nlohmann::adl_serializer<std::optional<T>> {
    static void to_json( json & to, const std::optional<T> & from ) {
        to = from ? json( *from ) : json();
    }
    static void from_json( const json & from, std::optional<T> & to ) {
        to = from.is_null() ? std::optional<T>() : from.get<T>();
    }
};

namespace Sim {
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE( RowId, index, instance, port, key )
}

namespace Interpose {
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE( SdkNumber, number, constant )
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE( Event, call, handle, unit, table, field, symbol, values,
                                    startIndex, count, opcode, priority, attribute, rc, returned )
} // namespace Interpose

namespace Tool {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE( ObservedCall, operation, hook, hookLocked, operationLocked,
                                    text, ending, line )
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE( SweepMessage, afterCalls, text )
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE( TableId, unit, table )
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE( TableRow, id, values )
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE( SweepRun, prepared, returned, result, complete, calls, messages,
                                    functions, preCallHooks, failureHooks, failureHookLocked,
                                    reportedBeforeHook, errorTexts, tablesBefore, writes, tables,
                                    liveEntries )

namespace {

// --- In the process of a run

// Makes a field hold a value. A table or a field that the chip lacks holds nothing.
void put( Sim::Chip & chip, int unit, const SweepCase::Holds & holds ) {
    std::uint32_t entry = 0;
    if ( chip.bcmlt_entry_allocate( unit, holds.table, &entry ) < 0 )
        return;
    chip.bcmlt_entry_field_add( entry, holds.field, holds.value );
    const std::uint32_t priority = chip.BCMLT_PRIORITY_NORMAL();
    if ( chip.schema( unit )->find( holds.table )->isPhysical() )
        chip.bcmlt_pt_entry_commit( entry, chip.BCMLT_PT_OPCODE_MODIFY(), priority );
    else
        chip.bcmlt_entry_commit( entry, chip.BCMLT_OPCODE_INSERT(), priority );
    chip.bcmlt_entry_free( entry );
}

// The fault as the injector counts: by the operations of a kind.
Interpose::Fault injectedBy( const SweptCase & swept, const SweepFault & fault ) {
    const auto struck = swept.undisturbed.calls.begin() + static_cast<std::ptrdiff_t>( fault.call );
    const Interpose::SdkCall operation = struck->operation.call;
    const auto before =
        std::count_if( swept.undisturbed.calls.begin(), struck,
                       [&]( const ObservedCall & call ) { return call.is( operation ); } );
    const int code = codeOf( fault.kind );
    const bool invalid = fault.kind == SweepFault::Kind::invalidHandle;
    return { .operation = operation,
             .occurrence = static_cast<std::uint64_t>( before ) + 1,
             .rc = code,
             .overridesRefusal = code >= 0 && !invalid,
             .invalidHandle = invalid };
}

// The exit code of a run that the system did not let finish. No recipe exits.
constexpr int unfinished = 3;

// What the recipe has reported until then is nobody's concern.
[[noreturn]] void endUnfinished( const char * why ) {
    if ( ::ftruncate( STDERR_FILENO, 0 ) != 0 || ::lseek( STDERR_FILENO, 0, SEEK_SET ) != 0 )
        ::_exit( unfinished );
    writeAll( STDERR_FILENO, why );
    ::_exit( unfinished );
}

void runHere( const SweptCase & swept, const std::optional<SweepFault> & fault,
              const SweepSetup & setup, int log ) {
    Sim::Chip chip;
    addUnits( chip, swept.model );
    const auto sharedState = applyModel( swept.model );
    Interpose::FaultInjector faults( chip );
    if ( fault )
        faults.add( injectedBy( swept, *fault ) );
    SweepRun run;
    // A commit changes no table but that of its entry.
    Observer observer( faults, [&]( const Observation & seen ) {
        const Interpose::Event & operation = seen.calls.back().operation;
        if ( operation.opcode.constant )
            run.writes[seen.calls.size() - 1] = rowsOf( chip, tableOf( operation ) );
    } );
    Shim::Sdk & seenByLibrary = setup.around ? setup.around( observer.sdk() ) : observer.sdk();
    // The run is over, or stops.
    const auto report = [&] {
        static_cast<Observation &>( run ) = observer.finish();
        for ( const Note & note : run.notes ) {
            if ( const auto * message = std::get_if<ObservedMessage>( &note.what ) )
                run.messages.push_back( { note.afterCalls, message->text } );
        }
        run.tables = tablesOf( chip );
        for ( const Sim::LiveEntry & entry : chip.liveEntries() )
            run.liveEntries.push_back( entry.table );
        run.complete = true;
        if ( !writeAll( log, nlohmann::json( run ).dump() ) )
            endUnfinished( std::strerror( errno ) );
    };

    const StopHandler stop( report );
    const std::lock_guard lock( Kiln::activityLock() );
    Shim::sdk_ = &chip;
    for ( const auto & [recipe, arguments] : swept.before )
        recipe->invoke( arguments, sharedState );
    for ( const SweepCase::Holds & holds : swept.plan->holds )
        put( chip, swept.unit, holds );
    run.prepared = true;
    run.tablesBefore = tablesOf( chip );
    observer.begin();
    Shim::sdk_ = &seenByLibrary;
    run.result = toText( swept.recipe->invoke( swept.arguments, sharedState ) );
    run.returned = true;
    report();
}

// --- In the process of the sweep

[[noreturn]] void throwTrouble( const char * what ) {
    throw Trouble( fmt::format( "the sweep cannot {}: {}", what, std::strerror( errno ) ) );
}

// A file in memory that a child writes and its parent reads.
class MemoryFile {
  public:
    explicit MemoryFile( const char * name ) : descriptor_( ::memfd_create( name, MFD_CLOEXEC ) ) {
        if ( descriptor_ < 0 )
            throwTrouble( "make a file in memory" );
    }
    ~MemoryFile() { ::close( descriptor_ ); }
    MemoryFile( const MemoryFile & ) = delete;
    MemoryFile & operator=( const MemoryFile & ) = delete;

    int descriptor() const { return descriptor_; }

    std::string contents() const {
        std::string text;
        char buffer[16384];
        for ( ssize_t count = 0; ( count = ::pread( descriptor_, buffer, sizeof buffer,
                                                    static_cast<off_t>( text.size() ) ) ) > 0; )
            text.append( buffer, static_cast<std::size_t>( count ) );
        return text;
    }

  private:
    const int descriptor_;
};

// A case to be run, undisturbed or with a fault.
struct Job {
    SweepCaseReport * of = nullptr;
    std::optional<SweepFault> fault = {};
};

// A job under way in a process of its own.
class ChildRun {
  public:
    ChildRun( const Job & job, const SweepSetup & setup ) : process_( forked() ) {
        if ( process_ < 0 )
            throwTrouble( "start a process" );
        if ( process_ == 0 )
            runInChild( job, setup );
    }
    ~ChildRun() {
        if ( process_ > 0 )
            wait();
    }
    ChildRun( const ChildRun & ) = delete;
    ChildRun & operator=( const ChildRun & ) = delete;

    // Waits until it is over.
    SweepRun result() {
        const int status = wait();
        SweepRun run;
        const nlohmann::json log = nlohmann::json::parse( log_.contents(), nullptr, false );
        if ( log.is_object() )
            log.get_to( run );
        run.standardError = standardError_.contents();
        if ( WIFSIGNALED( status ) )
            run.signal = WTERMSIG( status );
        if ( WIFEXITED( status ) )
            run.exitCode = WEXITSTATUS( status );
        if ( run.exitCode == unfinished )
            throw Trouble( fmt::format( "the sweep cannot run a recipe: {}", run.standardError ) );
        if ( run.signal == SIGKILL )
            throw Trouble( "the sweep cannot run a recipe: its process was killed" );
        return run;
    }

  private:
    [[noreturn]] void runInChild( const Job & job, const SweepSetup & setup ) const {
        constexpr unsigned patience = 60; // seconds, then a recipe that hangs is killed
        const rlimit noCore{ 0, 0 };
        ::setrlimit( RLIMIT_CORE, &noCore );
        // However the sweep ends, its runs end, too.
        ::prctl( PR_SET_PDEATHSIG, SIGKILL );
        if ( ::getppid() != sweep_ )
            ::_exit( unfinished );
        ::dup2( standardError_.descriptor(), STDERR_FILENO );
        ::alarm( patience );
        std::set_new_handler( [] { endUnfinished( "no memory" ); } );
        try {
            runHere( *job.of, job.fault, setup, log_.descriptor() );
        } catch ( const std::exception & error ) {
            endUnfinished( error.what() );
        }
        ::_exit( 0 );
    }

    static pid_t forked() {
        std::fflush( nullptr ); // or the child writes what is buffered a second time
        return ::fork();
    }

    int wait() {
        int status = 0;
        while ( ::waitpid( process_, &status, 0 ) < 0 && errno == EINTR ) {
        }
        process_ = -1;
        return status;
    }

    const pid_t sweep_ = ::getpid();
    const MemoryFile log_{ "run" };
    const MemoryFile standardError_{ "standard error" };
    pid_t process_;
};

// --- Preparing

std::vector<Argument> argumentsOf( const Recipe & recipe, const SweepCase::Given & given,
                                   const Model & model ) {
    std::vector<std::string> texts = sampleArguments( recipe, model );
    const auto parameters = recipe.parameters();
    for ( std::size_t i = 0; i < texts.size(); ++i ) {
        const auto found = given.find( parameters[i].name );
        if ( found != given.end() )
            texts[i] = found->second;
    }
    return parseArguments( recipe, texts, model );
}

// InputError if the model lacks something that the recipe needs.
void prepare( SweptCase & swept, const Model & model ) {
    const SweepCase & plan = *swept.plan;
    swept.model = model;
    if ( plan.vary )
        plan.vary( swept.model );
    swept.arguments = argumentsOf( *swept.recipe, plan.arguments, swept.model );
    for ( const SweepCase::Before & before : plan.before ) {
        SweepCase::Given given = before.arguments;
        given.insert( plan.arguments.begin(), plan.arguments.end() );
        const Recipe * recipe = findRecipe( before.recipe );
        swept.before.emplace_back( recipe, argumentsOf( *recipe, given, swept.model ) );
    }
    swept.unit = swept.recipe->needsModule ? model.modules.front().id : model.chips.front().unit;
}

bool allReference( const Model & model ) {
    const Sim::Schema reference = Sim::referenceSchema();
    return std::all_of( model.chips.begin(), model.chips.end(),
                        [&]( const auto & chip ) { return chip.schema == reference; } );
}

class Sweeper {
  public:
    Sweeper( const Model & model, const std::vector<const Recipe *> & recipes,
             const SweepSetup & setup )
        : setup_( setup ) {
        const bool isReference = allReference( model );
        for ( const SweepCase & plan : sweepCases() ) {
            const Recipe * recipe = findRecipe( plan.recipe );
            if ( std::find( recipes.begin(), recipes.end(), recipe ) == recipes.end() )
                continue;
            SweepCaseReport & report = report_.cases.emplace_back();
            report.plan = &plan;
            report.recipe = recipe;
            report.isReference = isReference;
            try {
                prepare( report, model );
            } catch ( const InputError & lacking ) {
                leaveOut( report, lacking.what() );
            }
        }
    }

    SweepReport sweep() {
        std::vector<Job> jobs;
        for ( SweepCaseReport & each : report_.cases ) {
            if ( each.leftOut.empty() )
                jobs.push_back( { &each } );
        }
        runAll( jobs );
        jobs.clear();
        for ( SweepCaseReport & each : report_.cases ) {
            if ( !isSweepable( each ) )
                continue;
            each.fallback = fallbackOf( each );
            for ( const SweepFault & fault : faultsOf( each ) )
                jobs.push_back( { &each, fault } );
        }
        runAll( jobs );
        return std::move( report_ );
    }

  private:
    static bool isSweepable( const SweepCaseReport & report ) {
        return report.leftOut.empty() && report.differences.empty();
    }

    const SweptCase * fallbackOf( const SweepCaseReport & report ) const {
        const auto found =
            std::find_if( report_.cases.begin(), report_.cases.end(), [&]( const auto & each ) {
                return each.recipe == report.recipe && each.plan->name == report.plan->fallback;
            } );
        return found != report_.cases.end() && isSweepable( *found ) ? &*found : nullptr;
    }

    // Runs all, some at a time, and judges the runs in order.
    void runAll( const std::vector<Job> & jobs ) {
        total_ += jobs.size();
        // One more than there are processors, so that none is idle while a run is judged.
        const std::size_t most = std::max( 1u, std::thread::hardware_concurrency() ) + 1;
        std::deque<ChildRun> running;
        auto next = jobs.begin();
        for ( const Job & job : jobs ) {
            for ( ; next != jobs.end() && running.size() < most; ++next )
                running.emplace_back( *next, setup_ );
            SweepRun run = running.front().result();
            running.pop_front();
            if ( job.fault )
                judgeFault( *job.of, *job.fault, run );
            else
                judgeUndisturbedRun( *job.of, std::move( run ) );
            ++done_;
            if ( setup_.progress )
                setup_.progress( done_, total_ );
        }
    }

    void leaveOut( SweepCaseReport & report, const std::string & reason ) {
        report.leftOut = reason;
        ++report_.leftOut;
    }

    void judgeUndisturbedRun( SweepCaseReport & report, SweepRun run ) {
        if ( run.complete && !run.prepared )
            return leaveOut( report,
                             "what has to come before it stops: " +
                                 run.standardError.substr( 0, run.standardError.find( '\n' ) ) );
        report.undisturbed = std::move( run );
        report.expected = toText( expectUndisturbed( report ) );
        report.differences = judgeUndisturbed( report );
        report_.unexpected += report.differences.empty() ? 0 : 1;
        if ( const ObservedCall * refused = refusedCall( report ) ) {
            const Interpose::Event & operation = refused->operation;
            report.refused =
                fmt::format( "{} of {}: {} ({})", Interpose::name( operation.call ),
                             operation.table, Sim::Chip().errmsg( operation.rc ), operation.rc );
            ++report_.refused;
        }
    }

    void judgeFault( SweepCaseReport & report, const SweepFault & fault, const SweepRun & run ) {
        const SweepExpectation expectation = expectFault( report, fault );
        report.faults.push_back( { fault, expectation.calls[fault.call].text, toText( expectation ),
                                   judge( expectation, run ) } );
        ++report_.faults;
        report_.unexpected += report.faults.back().differences.empty() ? 0 : 1;
        if ( setup_.onFault )
            setup_.onFault( report, fault, expectation, run );
    }

    const SweepSetup & setup_;
    SweepReport report_;
    std::size_t done_ = 0;
    std::size_t total_ = 0;
};

} // namespace

SweepReport sweepRecipes( const Model & model, const std::vector<const Recipe *> & recipes,
                          const SweepSetup & setup ) {
    return Sweeper( model, recipes, setup ).sweep();
}

} // namespace Tool
