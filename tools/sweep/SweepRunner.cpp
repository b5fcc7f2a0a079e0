#include "tools/sweep/SweepRunner.h"

#include "interpose/FaultInjector.h"
#include "interpose/Recorder.h"
#include "sim/Chip.h"
#include "tools/model/Arguments.h"
#include "tools/model/Files.h"
#include "tools/model/Input.h"
#include "tools/run/Output.h"
#include "tools/run/StopHandler.h"

#include <Kiln/ActivityLock.h>
#include <Kiln/TraceHandle.h>
#include <Kiln/TraceSink.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <deque>
#include <exception>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace Tool {

// What a run has to say goes from its process to the sweep's as JSON.
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE( SweepCall, operation, isCheck, entry, unit, table, field,
                                    opcode, details, rc, hook, hookLocked, operationLocked, text,
                                    ending, line )
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE( SweepMessage, afterCalls, text )

namespace {

using Json = nlohmann::json;

Json toJson( const SweepRun & run ) {
    Json calls = run.calls;
    for ( std::size_t i = 0; i < run.calls.size(); ++i ) {
        if ( run.calls[i].rows )
            calls[i]["rows"] = *run.calls[i].rows;
    }
    return { { "prepared", run.prepared },
             { "returned", run.returned },
             { "result", run.result },
             { "calls", std::move( calls ) },
             { "messages", run.messages },
             { "functions", run.functions },
             { "preCallHooks", run.preCallHooks },
             { "failureHooks", run.failureHooks },
             { "failureHookLocked", run.failureHookLocked },
             { "reportedBeforeHook", run.reportedBeforeHook },
             { "errorTexts", run.errorTexts },
             { "tablesBefore", run.tablesBefore },
             { "tables", run.tables },
             { "liveEntries", run.liveEntries } };
}

// What a process left; nothing but "incomplete" if it did not get to leave anything.
SweepRun fromJson( const std::string & text ) {
    SweepRun run;
    const Json json = Json::parse( text, nullptr, false );
    if ( !json.is_object() )
        return run;
    run.complete = true;
    json.at( "prepared" ).get_to( run.prepared );
    json.at( "returned" ).get_to( run.returned );
    json.at( "result" ).get_to( run.result );
    json.at( "calls" ).get_to( run.calls );
    for ( std::size_t i = 0; i < run.calls.size(); ++i ) {
        if ( json.at( "calls" )[i].contains( "rows" ) )
            run.calls[i].rows = json.at( "calls" )[i].at( "rows" ).get<std::string>();
    }
    json.at( "messages" ).get_to( run.messages );
    json.at( "functions" ).get_to( run.functions );
    json.at( "preCallHooks" ).get_to( run.preCallHooks );
    json.at( "failureHooks" ).get_to( run.failureHooks );
    json.at( "failureHookLocked" ).get_to( run.failureHookLocked );
    json.at( "reportedBeforeHook" ).get_to( run.reportedBeforeHook );
    json.at( "errorTexts" ).get_to( run.errorTexts );
    json.at( "tablesBefore" ).get_to( run.tablesBefore );
    json.at( "tables" ).get_to( run.tables );
    json.at( "liveEntries" ).get_to( run.liveEntries );
    return run;
}

// --- In the process of a run

// --- Tables as text

void addElements( std::string & text, const Sim::Field & field,
                  std::vector<uint64_t>::const_iterator first ) {
    text += field.name + "=";
    for ( uint32_t i = 0; i < field.length; ++i, ++first )
        text += ( i == 0 ? "" : "," ) + std::to_string( *first );
}

std::string rowText( const Sim::Table & table, const Sim::RowImage & row ) {
    std::string id;
    std::string data;
    if ( table.isPhysical() )
        id = "index=" + std::to_string( row.id.index ) +
             " instance=" + std::to_string( row.id.instance ) +
             " port=" + std::to_string( row.id.port );
    auto element = row.values.begin();
    for ( const Sim::Field & field : table.fields ) {
        std::string & part = field.role == Sim::FieldRole::key ? id : data;
        if ( !id.empty() || &part == &data )
            part += " ";
        addElements( part, field, element );
        element += field.length;
    }
    return "[" + id + "]" + data + "\n";
}

std::string rowsText( const Sim::Chip & chip, int unit, const Sim::Table & table ) {
    std::string text;
    for ( const Sim::RowImage & row : chip.rows( unit, table.name, Sim::Rows::stored ) )
        text += rowText( table, row );
    return text;
}

SweepTables tablesOf( const Sim::Chip & chip ) {
    SweepTables tables;
    for ( const int unit : chip.units() ) {
        for ( const Sim::Table & table : chip.schema( unit )->tables() ) {
            std::string rows = rowsText( chip, unit, table );
            if ( !rows.empty() )
                tables["unit " + std::to_string( unit ) + " " + table.name] = std::move( rows );
        }
    }
    return tables;
}

// Puts hooks, operations and trace lines together again as the calls they belong to.
class Collector {
  public:
    Collector( const Sim::Chip & chip, bool watchRows ) : chip_( chip ), watchRows_( watchRows ) {}

    // Nothing that happens before is seen.
    void begin() {
        run_.prepared = true;
        if ( watchRows_ )
            run_.tablesBefore = tables_ = tablesOf( chip_ );
    }

    void onEvent( Interpose::Recorder::Moment moment, const Interpose::Event & event ) {
        const bool before = moment == Interpose::Recorder::Moment::before;
        switch ( Interpose::kind( event.call ) ) {
        case Interpose::SdkCallKind::hook:
            if ( before )
                onHook( event.call );
            break;
        case Interpose::SdkCallKind::text:
            if ( before )
                run_.errorTexts.push_back( event.rc );
            break;
        case Interpose::SdkCallKind::operation:
            if ( before )
                operationLocked_ = Kiln::activityLock().heldByThisThread();
            else
                onOperation( event );
            break;
        case Interpose::SdkCallKind::constant:
            break;
        }
    }

    void onTraceLine( const Kiln::TraceLine & line ) {
        if ( !run_.prepared )
            return;
        if ( std::find( run_.functions.begin(), run_.functions.end(), line.function ) ==
             run_.functions.end() )
            run_.functions.emplace_back( line.function );
        if ( line.facility == "ApiCairn" )
            onCallTrace( line );
        else
            run_.messages.push_back( { run_.calls.size(), std::string( line.text ) } );
    }

    void returned( const Result & result ) {
        run_.returned = true;
        run_.result = toText( result );
    }

    // What was seen. The run is over or stops.
    const SweepRun & finish() {
        if ( hookPending_ )
            addCheck();
        run_.tables = tablesOf( chip_ );
        for ( const Sim::LiveEntry & entry : chip_.liveEntries() )
            run_.liveEntries.push_back( entry.table );
        return run_;
    }

  private:
    void onHook( Interpose::SdkCall hook ) {
        const bool locked = Kiln::activityLock().heldByThisThread();
        if ( hook == Interpose::SdkCall::preCallHook ) {
            ++run_.preCallHooks;
            hookPending_ = true;
            hookLocked_ = locked;
            return;
        }
        ++run_.failureHooks;
        run_.failureHookLocked = locked;
        struct stat status {};
        run_.reportedBeforeHook = ::fstat( STDERR_FILENO, &status ) == 0 && status.st_size > 0;
    }

    void onOperation( const Interpose::Event & event ) {
        SweepCall call;
        call.operation = event.call;
        call.unit = event.unit;
        call.table = event.table;
        call.field = event.field;
        call.opcode = event.opcode.constant ? toText( event.opcode ) : "";
        call.rc = event.rc;
        call.hook = std::exchange( hookPending_, false );
        call.hookLocked = call.hook && hookLocked_;
        call.operationLocked = operationLocked_;
        if ( event.call == Interpose::SdkCall::entryAllocate ) {
            entries_[event.handle] = ++allocates_;
        } else {
            // The recorder knows no table of an invalid handle.
            const auto entry = entries_.find( event.handle );
            call.entry = entry == entries_.end() || event.table.empty() ? 0 : entry->second;
            call.details = detailsOf( event );
        }
        if ( watchRows_ && !call.opcode.empty() )
            noteRows( call );
        run_.calls.push_back( std::move( call ) );
    }

    // What an operation is told beside its entry.
    static std::string detailsOf( Interpose::Event event ) {
        event.handle = 0;
        event.table.clear();
        event.returned = false;
        const std::string beginning = std::string( Interpose::name( event.call ) ) + " entry 0";
        return Interpose::toText( event ).substr( beginning.size() );
    }

    // A commit changes no table but that of its entry.
    void noteRows( SweepCall & call ) {
        const Sim::Schema * schema = chip_.schema( call.unit );
        const Sim::Table * table = schema == nullptr ? nullptr : schema->find( call.table );
        if ( table == nullptr )
            return;
        std::string & known = tables_["unit " + std::to_string( call.unit ) + " " + call.table];
        std::string rows = rowsText( chip_, call.unit, *table );
        if ( rows == known )
            return;
        known = rows;
        call.rows = std::move( rows );
    }

    void addCheck() {
        SweepCall check;
        check.isCheck = true;
        check.hook = std::exchange( hookPending_, false );
        check.hookLocked = check.hook && hookLocked_;
        run_.calls.push_back( std::move( check ) );
    }

    // "FILE:LINE CALL (rc:CODE)" or "FILE:LINE CALL no rc check". It follows its operation; a line
    // whose hook no operation used up is that of a check.
    void onCallTrace( const Kiln::TraceLine & line ) {
        if ( hookPending_ || run_.calls.empty() )
            addCheck();
        SweepCall & call = run_.calls.back();
        std::string_view text = line.text;
        const std::string position =
            std::string( line.file ) + ":" + std::to_string( line.line ) + " ";
        if ( text.starts_with( position ) )
            text.remove_prefix( position.size() );
        std::size_t end = text.rfind( " no rc check" );
        if ( end == std::string_view::npos )
            end = std::min( text.rfind( " (rc:" ), text.size() );
        call.text += text.substr( 0, end );
        call.ending += text.substr( end );
        call.line = line.line;
    }

    const Sim::Chip & chip_;
    bool watchRows_;
    SweepRun run_;
    SweepTables tables_;
    std::map<uint32_t, uint32_t> entries_;
    uint32_t allocates_ = 0;
    bool hookPending_ = false;
    bool hookLocked_ = false;
    bool operationLocked_ = false;
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

void runHere( const PreparedCase & prepared, const std::optional<Interpose::Fault> & fault,
              const SweepSetup & setup, int log ) {
    Sim::Chip chip;
    addUnits( chip, prepared.model );
    const auto sharedState = applyModel( prepared.model );
    Collector collector( chip, !fault );
    const auto tell = [&] { writeAll( log, toJson( collector.finish() ).dump() ); };
    Kiln::traceToCallback( [&]( const Kiln::TraceLine & line ) { collector.onTraceLine( line ); } );
    std::string error;
    Kiln::traceSettings( Kiln::parseTraceSettings( "ApiCairn/4,CairnLtHelper/*", error ) );

    Interpose::FaultInjector faults( chip );
    if ( fault )
        faults.add( *fault );
    Interpose::Recorder recorder( faults );
    recorder.observe( [&]( Interpose::Recorder::Moment moment, const Interpose::Event & event ) {
        collector.onEvent( moment, event );
    } );
    Shim::Sdk & seenByLibrary = setup.around ? setup.around( recorder ) : recorder;

    const StopHandler stop( tell );
    const std::lock_guard lock( Kiln::activityLock() );
    Shim::sdk_ = &chip;
    for ( const auto & [recipe, arguments] : prepared.before )
        recipe->invoke( arguments, sharedState );
    for ( const SweepCase::Holds & holds : prepared.plan->holds )
        put( chip, prepared.unit, holds );
    collector.begin();
    Shim::sdk_ = &seenByLibrary;
    collector.returned( prepared.recipe->invoke( prepared.arguments, sharedState ) );
    tell();
}

[[noreturn]] void beTheRun( const PreparedCase & prepared,
                            const std::optional<Interpose::Fault> & fault, const SweepSetup & setup,
                            int log, int standardError ) {
    constexpr unsigned patience = 60; // seconds, of a recipe that hangs
    const rlimit noCore{ 0, 0 };
    ::setrlimit( RLIMIT_CORE, &noCore );
    ::dup2( standardError, STDERR_FILENO );
    ::alarm( patience );
    try {
        runHere( prepared, fault, setup, log );
    } catch ( const std::exception & trouble ) {
        complain( trouble.what() );
        ::_exit( 2 );
    }
    ::_exit( 0 );
}

// --- In the process of the sweep

[[noreturn]] void refuseTrouble( const char * what ) {
    throw BadInput( std::string( "the sweep can not " ) + what + ": " + std::strerror( errno ) );
}

// A file in memory that a child writes and its parent reads.
class MemoryFile {
  public:
    explicit MemoryFile( const char * name ) : descriptor_( ::memfd_create( name, MFD_CLOEXEC ) ) {
        if ( descriptor_ < 0 )
            refuseTrouble( "make a file in memory" );
    }
    ~MemoryFile() {
        if ( descriptor_ >= 0 )
            ::close( descriptor_ );
    }
    MemoryFile( MemoryFile && other ) noexcept
        : descriptor_( std::exchange( other.descriptor_, -1 ) ) {}
    MemoryFile & operator=( MemoryFile && ) = delete;

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
    int descriptor_;
};

// What the standard streams still hold would be written by each child as well, as soon as one of
// them reports.
pid_t forkClean() {
    std::fflush( nullptr );
    return ::fork();
}

// A run under way in a process of its own.
class ChildRun {
  public:
    ChildRun( const PreparedCase & prepared, const std::optional<Interpose::Fault> & fault,
              const SweepSetup & setup )
        : log_( "run" ), standardError_( "standard error" ), process_( forkClean() ) {
        if ( process_ < 0 )
            refuseTrouble( "start a process" );
        if ( process_ == 0 )
            beTheRun( prepared, fault, setup, log_.descriptor(), standardError_.descriptor() );
    }
    ~ChildRun() {
        if ( process_ > 0 )
            wait();
    }
    ChildRun( ChildRun && other ) noexcept
        : log_( std::move( other.log_ ) ), standardError_( std::move( other.standardError_ ) ),
          process_( std::exchange( other.process_, -1 ) ) {}
    ChildRun & operator=( ChildRun && ) = delete;

    // Waits until it is over.
    SweepRun result() {
        const int status = wait();
        SweepRun run = fromJson( log_.contents() );
        run.standardError = standardError_.contents();
        if ( WIFSIGNALED( status ) )
            run.signal = WTERMSIG( status );
        if ( WIFEXITED( status ) )
            run.exitCode = WEXITSTATUS( status );
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

    MemoryFile log_;
    MemoryFile standardError_;
    pid_t process_;
};

// Runs all, some at a time, and hands the results over in order.
class Crew {
  public:
    using Done = std::function<void( std::size_t number, SweepRun )>;

    explicit Crew( Done done ) : done_( std::move( done ) ) {}

    void add( const PreparedCase & prepared, const std::optional<Interpose::Fault> & fault,
              const SweepSetup & setup ) {
        // One more than can run, so that none waits for the sweep to look.
        if ( running_.size() > std::max( 1u, std::thread::hardware_concurrency() ) )
            takeOne();
        running_.emplace_back( prepared, fault, setup );
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

// BadInput if the model lacks something that the recipe needs.
PreparedCase prepare( const SweepCase & plan, const Model & model, bool isReference ) {
    PreparedCase prepared;
    prepared.plan = &plan;
    prepared.recipe = findRecipe( plan.recipe );
    prepared.isReference = isReference;
    prepared.model = model;
    if ( plan.vary )
        plan.vary( prepared.model );

    Texts given;
    for ( const SweepCase::Given & argument : plan.arguments )
        given[argument.parameter] = argument.value;
    prepared.arguments = argumentsOf( *prepared.recipe, given, prepared.model );
    for ( const SweepCase::Before & before : plan.before ) {
        Texts texts = given;
        for ( const SweepCase::Given & argument : before.arguments )
            texts[argument.parameter] = argument.value;
        const Recipe * recipe = findRecipe( before.recipe );
        prepared.before.emplace_back( recipe, argumentsOf( *recipe, texts, prepared.model ) );
    }
    prepared.unit =
        prepared.recipe->needsModule ? model.modules.front().id : model.chips.front().unit;
    return prepared;
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
            if ( std::find( recipes.begin(), recipes.end(), findRecipe( plan.recipe ) ) ==
                 recipes.end() )
                continue;
            Entry entry;
            entry.report.plan = &plan;
            try {
                entry.prepared = prepare( plan, model, isReference );
            } catch ( const BadInput & lacking ) {
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
        PreparedCase prepared = {};
        SweepRun undisturbed = {};
        SweepCaseReport report = {};

        bool isSweepable() const { return report.leftOut.empty() && report.differences.empty(); }
        SweptCase swept() const { return { &prepared, &undisturbed }; }
    };

    // A fault on its way.
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
        Crew crew( [&]( std::size_t number, SweepRun run ) {
            judgeUndisturbedRun( *runnable[number], std::move( run ) );
            tellProgress();
        } );
        for ( const Entry * entry : runnable )
            crew.add( entry->prepared, {}, setup_ );
        crew.finish();
    }

    void judgeUndisturbedRun( Entry & entry, SweepRun run ) {
        SweepCaseReport & report = entry.report;
        if ( run.complete && !run.prepared ) {
            std::string reason = run.standardError.substr( 0, run.standardError.find( '\n' ) );
            report.leftOut = "what has to come before it stops: " + reason;
            return;
        }
        report.calls = run.calls.size();
        report.expected = toText( expectUndisturbed( entry.prepared, run ) );
        report.differences = judgeUndisturbed( entry.prepared, run );
        if ( const SweepCall * refused = refusedCall( entry.prepared, run ) )
            report.refused = std::string( Interpose::name( refused->operation ) ) + " of " +
                             refused->table + ": " + Sim::Chip().errmsg( refused->rc ) + " (" +
                             std::to_string( refused->rc ) + ")";
        entry.undisturbed = std::move( run );
    }

    void runFaults() {
        std::vector<Order> orders;
        for ( Entry & entry : entries_ ) {
            if ( !entry.isSweepable() )
                continue;
            const std::optional<SweptCase> otherwise = otherwiseOf( entry );
            for ( const SweepFault & fault :
                  faultsOf( entry.swept(), otherwise ? &*otherwise : nullptr ) )
                orders.push_back( { &entry, fault } );
        }
        total_ += orders.size();
        Crew crew( [&]( std::size_t number, SweepRun run ) {
            judgeFaultRun( orders[number], run );
            tellProgress();
        } );
        for ( const Order & order : orders )
            crew.add( order.entry->prepared, injectedBy( order ), setup_ );
        crew.finish();
    }

    std::optional<SweptCase> otherwiseOf( const Entry & entry ) const {
        const auto found =
            std::find_if( entries_.begin(), entries_.end(), [&]( const auto & each ) {
                return each.report.plan->recipe == entry.report.plan->recipe &&
                       each.report.plan->name == entry.report.plan->otherwise;
            } );
        if ( found == entries_.end() || !found->isSweepable() )
            return {};
        return found->swept();
    }

    // The fault as the injector of the run counts: operations, and of these the allocates alone
    // where the handle is left invalid. Checks are calls, but no operations.
    static Interpose::Fault injectedBy( const Order & order ) {
        const bool invalid = order.fault.kind == SweepFault::Kind::invalidHandle;
        const auto & calls = order.entry->undisturbed.calls;
        const auto before = std::count_if(
            calls.begin(), calls.begin() + static_cast<std::ptrdiff_t>( order.fault.call ),
            [&]( const SweepCall & call ) {
                return !call.isCheck &&
                       ( !invalid || call.operation == Interpose::SdkCall::entryAllocate );
            } );
        const int code = codeOf( order.fault.kind );
        return { .occurrence = static_cast<uint64_t>( before ) + 1,
                 .rc = code,
                 .overridesRefusal = code >= 0 && !invalid,
                 .invalidHandle = invalid };
    }

    void judgeFaultRun( const Order & order, const SweepRun & run ) const {
        Entry & entry = *order.entry;
        const std::optional<SweptCase> otherwise = otherwiseOf( entry );
        const SweepExpectation expectation =
            expectFault( entry.swept(), otherwise ? &*otherwise : nullptr, order.fault );
        entry.report.faults.push_back( { order.fault, expectation.calls[order.fault.call].text,
                                         toText( expectation ), judge( expectation, run ) } );
    }

    void tellProgress() {
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
    std::size_t count = 0;
    for ( const SweepCaseReport & each : cases )
        count += each.faults.size();
    return count;
}

std::size_t SweepReport::leftOut() const {
    return static_cast<std::size_t>( std::count_if(
        cases.begin(), cases.end(), []( const auto & each ) { return !each.leftOut.empty(); } ) );
}

std::size_t SweepReport::refused() const {
    return static_cast<std::size_t>( std::count_if(
        cases.begin(), cases.end(), []( const auto & each ) { return !each.refused.empty(); } ) );
}

std::size_t SweepReport::unexpected() const {
    std::size_t count = 0;
    for ( const SweepCaseReport & each : cases ) {
        count += each.differences.empty() ? 0 : 1;
        for ( const SweepFaultReport & fault : each.faults )
            count += fault.differences.empty() ? 0 : 1;
    }
    return count;
}

SweepReport sweepRecipes( const Model & model, const std::vector<const Recipe *> & recipes,
                          const SweepSetup & setup ) {
    return Sweeper( model, recipes, setup ).sweep();
}

} // namespace Tool
