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
#include <map>
#include <mutex>
#include <new>
#include <numeric>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <system_error>
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

// Observes a recipe and the tables that it changes.
class Watcher {
  public:
    Watcher( const Sim::Chip & chip, Shim::Sdk & sdk, bool watchRows )
        : chip_( chip ), watchRows_( watchRows ),
          observer_( sdk, [this]( std::size_t call ) { noteWrite( call ); } ) {}

    Shim::Sdk & sdk() { return observer_.sdk(); }

    // Observes what happens from now on.
    void begin() {
        run_.prepared = true;
        if ( watchRows_ )
            run_.tablesBefore = tables_ = tablesOf( chip_ );
        observer_.begin();
    }

    void returned( const Result & result ) {
        run_.returned = true;
        run_.result = toText( result );
    }

    // What was observed. The run is over or stops.
    const SweepRun & finish() {
        static_cast<Observation &>( run_ ) = observer_.finish();
        for ( const Note & note : run_.notes ) {
            if ( const auto * message = std::get_if<ObservedMessage>( &note.what ) )
                run_.messages.push_back( { note.afterCalls, message->text } );
        }
        run_.tables = tablesOf( chip_ );
        for ( const Sim::LiveEntry & entry : chip_.liveEntries() )
            run_.liveEntries.push_back( entry.table );
        run_.complete = true;
        return run_;
    }

  private:
    // A commit changes no table but that of its entry.
    void noteWrite( std::size_t call ) {
        const Interpose::Event & operation = observer_.seen().calls[call].operation;
        if ( !watchRows_ || !operation.opcode.constant )
            return;
        const TableId id{ operation.unit, operation.table };
        TableRows rows = rowsOf( chip_, id );
        TableRows & known = tables_[id];
        if ( rows == known )
            return;
        known = rows;
        run_.writes[call] = std::move( rows );
    }

    const Sim::Chip & chip_;
    const bool watchRows_;
    SweepRun run_;
    SweepTables tables_;
    Observer observer_;
};

// Makes a field hold a value. A table or a field that the chip lacks holds nothing.
void put( Sim::Chip & chip, int unit, const SweepCase::Holds & holds ) {
    const Sim::Schema * schema = chip.schema( unit );
    const Sim::Table * table = schema == nullptr ? nullptr : schema->find( holds.table );
    if ( table == nullptr )
        return;
    Sim::RowImage image;
    if ( auto row = chip.row( unit, holds.table, {} ) )
        image = std::move( *row );
    const bool isNew = image.values.empty();
    std::size_t element = 0;
    for ( const Sim::Field & field : table->fields ) {
        if ( isNew )
            image.values.insert( image.values.end(), field.length, field.initial() );
        if ( field.name == holds.field )
            image.values[element] = holds.value;
        element += field.length;
    }
    image.written.assign( image.values.size(), true );
    image.touched = true;
    if ( chip.restoreRow( unit, holds.table, image ) != Sim::Rc::ok )
        throw std::runtime_error( chip.lastError() );
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

void runHere( const SweptCase & swept, const std::optional<Interpose::Fault> & fault,
              const SweepSetup & setup, int log ) {
    Sim::Chip chip;
    addUnits( chip, swept.model );
    const auto sharedState = applyModel( swept.model );
    Interpose::FaultInjector faults( chip );
    if ( fault )
        faults.add( *fault );
    Watcher watcher( chip, faults, !fault );
    const auto report = [&] {
        if ( !writeAll( log, nlohmann::json( watcher.finish() ).dump() ) )
            endUnfinished( std::strerror( errno ) );
    };
    Shim::Sdk & seenByLibrary = setup.around ? setup.around( watcher.sdk() ) : watcher.sdk();

    const StopHandler stop( report );
    const std::lock_guard lock( Kiln::activityLock() );
    Shim::sdk_ = &chip;
    for ( const auto & [recipe, arguments] : swept.before )
        recipe->invoke( arguments, sharedState );
    for ( const SweepCase::Holds & holds : swept.plan->holds )
        put( chip, swept.unit, holds );
    watcher.begin();
    Shim::sdk_ = &seenByLibrary;
    watcher.returned( swept.recipe->invoke( swept.arguments, sharedState ) );
    report();
}

[[noreturn]] void runInChild( const SweptCase & swept,
                              const std::optional<Interpose::Fault> & fault,
                              const SweepSetup & setup, pid_t sweep, int log, int standardError ) {
    constexpr unsigned patience = 60; // seconds, then a recipe that hangs is killed
    const rlimit noCore{ 0, 0 };
    ::setrlimit( RLIMIT_CORE, &noCore );
    // However the sweep ends, its runs end, too.
    ::prctl( PR_SET_PDEATHSIG, SIGKILL );
    if ( ::getppid() != sweep )
        ::_exit( unfinished );
    ::dup2( standardError, STDERR_FILENO );
    ::alarm( patience );
    std::set_new_handler( [] { endUnfinished( "no memory" ); } );
    try {
        runHere( swept, fault, setup, log );
    } catch ( const Trouble & error ) {
        endUnfinished( error.what() );
    } catch ( const std::system_error & error ) {
        endUnfinished( error.what() );
    } catch ( const std::exception & error ) {
        writeAll( STDERR_FILENO, error.what() );
        ::_exit( 2 );
    }
    ::_exit( 0 );
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

// Flushes the standard streams first: a child would write what they hold a second time.
pid_t forkClean() {
    std::fflush( nullptr );
    return ::fork();
}

// A run under way in a process of its own.
class ChildRun {
  public:
    ChildRun( const SweptCase & swept, const std::optional<Interpose::Fault> & fault,
              const SweepSetup & setup )
        : process_( forkClean() ) {
        if ( process_ < 0 )
            throwTrouble( "start a process" );
        if ( process_ == 0 )
            runInChild( swept, fault, setup, sweep_, log_.descriptor(),
                        standardError_.descriptor() );
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

// Runs all, some at a time, and hands the results over in order.
class ProcessPool {
  public:
    using Done = std::function<void( std::size_t number, SweepRun )>;

    explicit ProcessPool( Done done ) : done_( std::move( done ) ) {}

    void add( const SweptCase & swept, const std::optional<Interpose::Fault> & fault,
              const SweepSetup & setup ) {
        // One more than there are processors, so that none is idle while a result is judged.
        if ( running_.size() > std::max( 1u, std::thread::hardware_concurrency() ) )
            takeOne();
        running_.emplace_back( swept, fault, setup );
    }

    void finish() {
        while ( !running_.empty() )
            takeOne();
    }

  private:
    void takeOne() {
        SweepRun run = running_.front().result();
        running_.pop_front();
        done_( number_++, std::move( run ) );
    }

    Done done_;
    std::deque<ChildRun> running_;
    std::size_t number_ = 0;
};

// --- Preparing

using Texts = std::map<std::string_view, std::string>;

std::vector<Argument> argumentsOf( const Recipe & recipe, const Texts & given,
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
SweptCase prepare( const SweepCase & plan, const Model & model, bool isReference ) {
    SweptCase swept;
    swept.plan = &plan;
    swept.recipe = findRecipe( plan.recipe );
    swept.isReference = isReference;
    swept.model = model;
    if ( plan.vary )
        plan.vary( swept.model );

    Texts given;
    for ( const SweepCase::Given & argument : plan.arguments )
        given[argument.parameter] = argument.value;
    swept.arguments = argumentsOf( *swept.recipe, given, swept.model );
    for ( const SweepCase::Before & before : plan.before ) {
        Texts texts = given;
        for ( const SweepCase::Given & argument : before.arguments )
            texts[argument.parameter] = argument.value;
        const Recipe * recipe = findRecipe( before.recipe );
        swept.before.emplace_back( recipe, argumentsOf( *recipe, texts, swept.model ) );
    }
    swept.unit = swept.recipe->needsModule ? model.modules.front().id : model.chips.front().unit;
    return swept;
}

bool allReference( const Model & model ) {
    const Sim::Schema reference = Sim::referenceSchema();
    return std::all_of( model.chips.begin(), model.chips.end(),
                        [&]( const auto & chip ) { return chip.schema == reference; } );
}

template <class Items, class Condition>
std::size_t count( const Items & items, const Condition & condition ) {
    return static_cast<std::size_t>( std::count_if( items.begin(), items.end(), condition ) );
}

class Sweeper {
  public:
    Sweeper( const Model & model, const std::vector<const Recipe *> & recipes,
             const SweepSetup & setup )
        : setup_( setup ) {
        const bool isReference = allReference( model );
        for ( const SweepCase & plan : sweepCases() ) {
            if ( std::find( recipes.begin(), recipes.end(), findRecipe( plan.recipe ) ) ==
                 recipes.end() )
                continue;
            Entry entry;
            entry.report.plan = &plan;
            try {
                entry.swept = prepare( plan, model, isReference );
            } catch ( const InputError & lacking ) {
                entry.report.leftOut = lacking.what();
            }
            entries_.push_back( std::move( entry ) );
        }
    }

    SweepReport sweep() {
        runUndisturbed();
        runFaults();
        SweepReport report;
        for ( Entry & entry : entries_ )
            report.cases.push_back( std::move( entry.report ) );
        return report;
    }

  private:
    struct Entry {
        SweptCase swept = {};
        SweepCaseReport report = {};

        bool isSweepable() const { return report.leftOut.empty() && report.differences.empty(); }
    };

    // A fault that is to be run.
    struct Order {
        Entry * entry;
        SweepFault fault;
    };

    void runUndisturbed() {
        std::vector<Entry *> runnable;
        for ( Entry & entry : entries_ ) {
            if ( entry.report.leftOut.empty() )
                runnable.push_back( &entry );
        }
        total_ = runnable.size();
        ProcessPool pool( [&]( std::size_t number, SweepRun run ) {
            judgeUndisturbedRun( *runnable[number], std::move( run ) );
            reportProgress();
        } );
        for ( const Entry * entry : runnable )
            pool.add( entry->swept, {}, setup_ );
        pool.finish();
    }

    void judgeUndisturbedRun( Entry & entry, SweepRun run ) {
        SweepCaseReport & report = entry.report;
        if ( run.complete && !run.prepared ) {
            std::string reason = run.standardError.substr( 0, run.standardError.find( '\n' ) );
            report.leftOut = "what has to come before it stops: " + reason;
            return;
        }
        SweptCase & swept = entry.swept;
        swept.undisturbed = std::move( run );
        report.calls = swept.undisturbed.calls.size();
        report.expected = toText( expectUndisturbed( swept ) );
        report.differences = judgeUndisturbed( swept );
        if ( const ObservedCall * refused = refusedCall( swept ) ) {
            const Interpose::Event & operation = refused->operation;
            report.refused =
                fmt::format( "{} of {}: {} ({})", Interpose::name( operation.call ),
                             operation.table, Sim::Chip().errmsg( operation.rc ), operation.rc );
        }
    }

    void runFaults() {
        std::vector<Order> orders;
        for ( Entry & entry : entries_ ) {
            if ( !entry.isSweepable() )
                continue;
            entry.swept.fallback = fallbackOf( entry );
            for ( const SweepFault & fault : faultsOf( entry.swept ) )
                orders.push_back( { &entry, fault } );
        }
        total_ += orders.size();
        ProcessPool pool( [&]( std::size_t number, SweepRun run ) {
            judgeFaultRun( orders[number], run );
            reportProgress();
        } );
        for ( const Order & order : orders )
            pool.add( order.entry->swept, injectedBy( order ), setup_ );
        pool.finish();
    }

    const SweptCase * fallbackOf( const Entry & entry ) const {
        const auto found =
            std::find_if( entries_.begin(), entries_.end(), [&]( const auto & each ) {
                return each.report.plan->recipe == entry.report.plan->recipe &&
                       each.report.plan->name == entry.report.plan->fallback;
            } );
        return found != entries_.end() && found->isSweepable() ? &found->swept : nullptr;
    }

    // The fault in the injector's counts: it counts operations, or only allocates if the handle is
    // to be invalid. Checks are calls, but no operations.
    static Interpose::Fault injectedBy( const Order & order ) {
        const bool invalid = order.fault.kind == SweepFault::Kind::invalidHandle;
        const auto & calls = order.entry->swept.undisturbed.calls;
        const auto before = std::count_if(
            calls.begin(), calls.begin() + static_cast<std::ptrdiff_t>( order.fault.call ),
            [&]( const ObservedCall & call ) {
                return invalid ? call.is( Interpose::SdkCall::entryAllocate ) : !call.isCheck();
            } );
        const int code = codeOf( order.fault.kind );
        return { .occurrence = static_cast<std::uint64_t>( before ) + 1,
                 .rc = code,
                 .overridesRefusal = code >= 0 && !invalid,
                 .invalidHandle = invalid };
    }

    void judgeFaultRun( const Order & order, const SweepRun & run ) const {
        Entry & entry = *order.entry;
        const SweepExpectation expectation = expectFault( entry.swept, order.fault );
        entry.report.faults.push_back( { order.fault, expectation.calls[order.fault.call].text,
                                         toText( expectation ), judge( expectation, run ) } );
        if ( setup_.onFault )
            setup_.onFault( entry.swept, order.fault, expectation, run );
    }

    void reportProgress() {
        ++done_;
        if ( setup_.progress )
            setup_.progress( done_, total_ );
    }

    const SweepSetup & setup_;
    std::vector<Entry> entries_;
    std::size_t done_ = 0;
    std::size_t total_ = 0;
};

} // namespace

std::size_t SweepReport::faults() const {
    return std::transform_reduce( cases.begin(), cases.end(), std::size_t( 0 ), std::plus<>(),
                                  []( const auto & each ) { return each.faults.size(); } );
}

std::size_t SweepReport::leftOut() const {
    return count( cases, []( const auto & each ) { return !each.leftOut.empty(); } );
}

std::size_t SweepReport::refused() const {
    return count( cases, []( const auto & each ) { return !each.refused.empty(); } );
}

std::size_t SweepReport::unexpected() const {
    const auto differs = []( const auto & each ) { return !each.differences.empty(); };
    std::size_t all = count( cases, differs );
    for ( const SweepCaseReport & each : cases )
        all += count( each.faults, differs );
    return all;
}

SweepReport sweepRecipes( const Model & model, const std::vector<const Recipe *> & recipes,
                          const SweepSetup & setup ) {
    return Sweeper( model, recipes, setup ).sweep();
}

} // namespace Tool
