#include "tools/run/Session.h"

#include "interpose/Fault.h"
#include "interpose/FaultInjector.h"
#include "interpose/Recorder.h"
#include "interpose/TraceRecorder.h"
#include "sim/Chip.h"
#include "text/NearestName.h"
#include "tools/model/Arguments.h"
#include "tools/model/Errors.h"
#include "tools/model/StateFile.h"
#include "tools/run/StopHandler.h"

#include <ChipModel/BringupStage.h>
#include <Fleetlog/TraceHandle.h>
#include <Kiln/ActivityLock.h>
#include <Kiln/TraceHandle.h>
#include <Kiln/TraceSink.h>

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <mutex>
#include <system_error>
#include <utility>

namespace Tool {

namespace {

void checkNames( const Interpose::Fault & fault, const Model & model, const std::string & option ) {
    if ( fault.unit && model.findUnit( static_cast<uint64_t>( *fault.unit ) ) == nullptr )
        throw InputError( fmt::format( "{}: there is no unit {}", option, *fault.unit ) );
    // An allocate of a table that a chip lacks can fail, too: the reference chip's names count.
    const Sim::Schema reference = Sim::referenceSchema();
    std::vector<const Sim::Schema *> schemas{ &reference };
    for ( const ChipDescription & chip : model.chips )
        schemas.push_back( &chip.schema );
    std::vector<std::string_view> tables;
    std::vector<std::string_view> fields;
    const auto addNew = []( std::vector<std::string_view> & names, std::string_view name ) {
        if ( std::find( names.begin(), names.end(), name ) == names.end() )
            names.push_back( name );
    };
    for ( const Sim::Schema * schema : schemas ) {
        for ( const Sim::Table & table : schema->tables() ) {
            addNew( tables, table.name );
            if ( fault.table && *fault.table != table.name )
                continue;
            if ( table.isPhysical() ) {
                for ( const auto & field : { Sim::indexField, Sim::instanceField, Sim::portField } )
                    addNew( fields, field );
            }
            for ( const Sim::Field & field : table.fields )
                addNew( fields, field.name );
        }
    }
    const auto check = [&]( const std::optional<std::string> & name, const std::string & lacking,
                            const std::vector<std::string_view> & names ) {
        if ( name && std::find( names.begin(), names.end(), *name ) == names.end() )
            throw InputError( fmt::format( "{}: {} \"{}\"", option, lacking, *name ),
                              Text::nameHint( *name, names ) );
    };
    check( fault.table, "there is no table", tables );
    check( fault.field,
           fault.table ? fmt::format( "{} has no field", *fault.table ) : "there is no field",
           fields );
}

// Kiln also takes settings of facilities that are made later.
void checkFacility( std::string_view name ) {
    const std::span facilities = traceFacilities();
    const bool isPattern = name.ends_with( '*' );
    if ( isPattern )
        name.remove_suffix( 1 );
    const bool isKnown =
        std::any_of( facilities.begin(), facilities.end(), [&]( std::string_view each ) {
            return isPattern ? each.starts_with( name ) : each == name;
        } );
    if ( !isKnown )
        throw InputError(
            fmt::format( "--trace: there is no facility \"{}{}\"", name, isPattern ? "*" : "" ),
            Text::nameHint( name, facilities ) );
}

void changeStages( const StageStep & step ) {
    for ( const uint32_t stage : step.block )
        CairnCentral::setStageBlocked( step.chip, CairnCentral::BringupStage( stage ), true );
    for ( const uint32_t stage : step.unblock )
        CairnCentral::setStageBlocked( step.chip, CairnCentral::BringupStage( stage ), false );
}

} // namespace

std::span<const std::string_view> traceFacilities() {
    static constexpr std::string_view facilities[] = { "ApiCairn", "CairnLtHelper" };
    return facilities;
}

std::optional<Result> StepOutcome::wanted() const {
    const auto * recipe = std::get_if<RecipeStep>( &step->what );
    if ( recipe == nullptr )
        return {};
    const bool verifies = recipe->recipe->name.starts_with( "verify" );
    return recipe->expected || !verifies ? recipe->expected : Result( true );
}

bool StepOutcome::isGood() const {
    const auto want = wanted();
    return isFinished && ( !want || result == *want );
}

class Session::Impl {
  public:
    Impl( const Session & session, Bringup bringup, SessionOptions options,
          SessionListener & listener )
        : bringup_( std::move( bringup ) ), faults_( chip_ ), session_( session ),
          options_( std::move( options ) ), listener_( listener ), recorder_( faults_ ) {
        addFaults();
        setUpChips();
        setUpTrace();
        openRecording();
        recorder_.keepConstants( false );
        recorder_.observe( [this]( Interpose::Recorder::Moment moment,
                                   const Interpose::Event & event ) { watch( moment, event ); } );
        sharedState_ = applyModel( bringup_.model );
        Shim::Sdk * const outermost =
            traceRecorder_ ? static_cast<Shim::Sdk *>( &*traceRecorder_ ) : &recorder_;
        previousSdk_ = std::exchange( Shim::sdk_, outermost );
    }

    ~Impl() {
        Shim::sdk_ = previousSdk_;
        Fleetlog::closeDefault();
    }

    void run() {
        const StopHandler stop( [this] { stopped(); },
                                [this]( int signal ) { interrupted( signal ); } );
        try {
            for ( const Step & step : bringup_.steps )
                runStep( step );
        } catch ( ... ) {
            const std::lock_guard change( change_ );
            saveChips();
            throw;
        }
        const std::lock_guard change( change_ );
        saveChips();
        stateFile_.reset(); // nobody waits for what is printed
    }

    Bringup bringup_;
    Sim::Chip chip_;
    Interpose::FaultInjector faults_;
    std::vector<StepOutcome> outcomes_;
    std::string saveError_;
    // The SDK operation under way, or the last one.
    std::optional<Interpose::Event> lastCall_;
    bool lastCallIsStruck_ = false;
    std::string lastRefusal_;
    std::vector<Strike> strikes_;

  private:
    // --- Setting up

    void addFaults() {
        for ( const std::string & text : options_.inject ) {
            const Interpose::ParsedFault parsed = Interpose::parseFault( text );
            if ( !parsed.fault )
                throw InputError( fmt::format( "--inject \"{}\": {}", text, parsed.error ) );
            checkNames( *parsed.fault, bringup_.model, fmt::format( "--inject \"{}\"", text ) );
            faults_.add( *parsed.fault );
        }
        strikeCounts_.resize( options_.inject.size() );
    }

    void setUpChips() {
        addUnits( chip_, bringup_.model );
        if ( options_.state.empty() )
            return;
        stateFile_.emplace( options_.state, [this] { listener_.waitsFor( options_.state ); } );
        const std::vector<SavedUnit> saved = stateFile_->load();
        for ( const SavedUnit & unit : saved ) {
            const Sim::Schema * schema = chip_.schema( unit.unit );
            if ( schema == nullptr )
                refuseState(
                    fmt::format( "it keeps a unit {}, which is not described", unit.unit ) );
            if ( !( *schema == unit.schema ) )
                refuseState(
                    fmt::format( "unit {} is another chip than the one described", unit.unit ) );
        }
        restore( chip_, saved, options_.state );
    }

    [[noreturn]] void refuseState( const std::string & why ) const {
        throw InputError( options_.state, 0, why,
                          "name another state file, or remove this one to start afresh" );
    }

    void setUpTrace() {
        for ( const std::string & text : options_.trace ) {
            std::string error;
            const auto settings = Kiln::parseTraceSettings( text, error );
            if ( !error.empty() )
                throw InputError( fmt::format( "--trace: {}", error ) );
            for ( const Kiln::TraceSetting & setting : settings )
                checkFacility( setting.name );
            Kiln::traceSettings( settings );
        }
        openTraceDir();
        if ( options_.traceFile.empty() )
            return;
        try {
            Kiln::traceToFile( options_.traceFile );
        } catch ( const std::system_error & error ) {
            throw InputError( fmt::format( "--trace-file: {}: cannot be written: {}",
                                           options_.traceFile, error.code().message() ) );
        }
        strikeCounts_.resize( options_.inject.size() );
    }

    // What recipes see is recorded: with the faults.
    void openRecording() {
        if ( options_.recordTo.empty() )
            return;
        try {
            std::filesystem::create_directories( options_.recordTo );
            traceRecorder_.emplace( recorder_,
                                    Interpose::TraceRecorder::Options{
                                        .directory = options_.recordTo,
                                        .keep = Interpose::TraceRecorder::Keep::everything,
                                        .isLockHeld = Kiln::holdsActivityLock } );
        } catch ( const std::system_error & error ) {
            throw InputError(
                fmt::format( "--record-to: {}: {}", options_.recordTo, error.code().message() ),
                "name a folder that can be written to" );
        }
    }

    void openTraceDir() {
        if ( options_.traceDir.empty() )
            return;
        try {
            std::filesystem::create_directories( options_.traceDir );
            Fleetlog::OpenOptions open;
            open.directory = options_.traceDir;
            Fleetlog::openDefault( open );
        } catch ( const std::system_error & error ) {
            throw InputError(
                fmt::format( "--trace-dir: {}: {}", options_.traceDir, error.code().message() ),
                "name a folder that can be written to" );
        }
    }

    // --- Running

    void runStep( const Step & step ) {
        {
            const std::lock_guard change( change_ );
            outcomes_.push_back( { .step = &step, .number = outcomes_.size() + 1 } );
        }
        StepOutcome & outcome = outcomes_.back();
        listener_.stepBegins( session_, outcome );
        perform( step, outcome );
        {
            const std::lock_guard change( change_ );
            outcome.isFinished = true;
        }
        collectRecord();
        listener_.stepEnded( session_, outcome );
    }

    void perform( const Step & step, StepOutcome & outcome ) {
        if ( const auto * recipe = std::get_if<RecipeStep>( &step.what ) ) {
            const std::lock_guard lock( Kiln::activityLock() );
            outcome.result = recipe->recipe->invoke( recipe->arguments, sharedState_ );
        } else if ( const auto * stages = std::get_if<StageStep>( &step.what ) ) {
            changeStages( *stages );
        } else {
            const std::lock_guard change( change_ );
            const auto & poke = std::get<PokeStep>( step.what );
            const Sim::RowId row{
                .index = poke.index, .instance = poke.instance, .port = poke.port };
            if ( chip_.pokeHardware( poke.unit, poke.table, row, poke.field, poke.value ) !=
                 Sim::Rc::ok )
                throw InputError( bringup_.file, step.line, chip_.lastError() );
            if ( traceRecorder_ )
                traceRecorder_->noteHardwareChange( { .unit = poke.unit,
                                                      .table = poke.table.c_str(),
                                                      .index = poke.index,
                                                      .instance = poke.instance,
                                                      .port = poke.port,
                                                      .field = poke.field.c_str(),
                                                      .value = poke.value } );
        }
    }

    void watch( Interpose::Recorder::Moment moment, const Interpose::Event & event ) {
        if ( Interpose::kind( event.call ) != Interpose::SdkCallKind::operation )
            return;
        if ( moment == Interpose::Recorder::Moment::before ) {
            change_.lock();
            lastCall_ = event;
            return;
        }
        lastCall_ = event;
        lastCallIsStruck_ = !options_.inject.empty() && noteStrike( event );
        lastRefusal_ = event.rc < 0 && !lastCallIsStruck_ ? chip_.lastError() : "";
        change_.unlock();
    }

    // At most one fault strikes an operation.
    bool noteStrike( const Interpose::Event & event ) {
        const auto reports = faults_.reports();
        for ( std::size_t i = 0; i < reports.size(); ++i ) {
            if ( reports[i].strikes == strikeCounts_[i] )
                continue;
            strikeCounts_[i] = reports[i].strikes;
            std::erase_if( strikes_,
                           [&]( const Strike & each ) { return each.fault == reports[i].fault; } );
            strikes_.push_back( { reports[i].fault, outcomes_.size(), event } );
            return true;
        }
        return false;
    }

    void collectRecord() {
        if ( options_.record ) {
            for ( const Interpose::Event & event : recorder_.events() ) {
                if ( Interpose::kind( event.call ) == Interpose::SdkCallKind::operation )
                    outcomes_.back().operations.push_back( event );
            }
        }
        recorder_.clear();
    }

    void saveChips() noexcept {
        if ( !stateFile_ )
            return;
        try {
            stateFile_->save( chip_ );
        } catch ( const std::exception & error ) {
            saveError_ = error.what();
        }
    }

    void stopped() {
        saveChips();
        collectRecord();
        listener_.stopped( session_ );
    }

    // The steps go no further than to their next change.
    void interrupted( int signal ) {
        change_.lock();
        saveChips();
        listener_.interrupted( session_, signal );
    }

    // Held while the chips or the outcomes change.
    std::mutex change_;
    const Session & session_;
    SessionOptions options_;
    SessionListener & listener_;
    std::optional<StateFile> stateFile_;
    Interpose::Recorder recorder_;
    std::optional<Interpose::TraceRecorder> traceRecorder_;
    Cairn::CairnCommonSmData::Ptr sharedState_;
    Shim::Sdk * previousSdk_ = nullptr;
    std::vector<uint64_t> strikeCounts_; // of each fault
};

Session::Session( Bringup bringup, SessionOptions options, SessionListener & listener )
    : impl_(
          std::make_unique<Impl>( *this, std::move( bringup ), std::move( options ), listener ) ) {}

Session::~Session() = default;

void Session::run() { impl_->run(); }

const Bringup & Session::bringup() const { return impl_->bringup_; }
const Sim::Chip & Session::chip() const { return impl_->chip_; }
const std::vector<StepOutcome> & Session::outcomes() const { return impl_->outcomes_; }
const std::string & Session::saveError() const { return impl_->saveError_; }
const std::optional<Interpose::Event> & Session::lastCall() const { return impl_->lastCall_; }
bool Session::lastCallIsStruck() const { return impl_->lastCallIsStruck_; }
const std::string & Session::lastRefusal() const { return impl_->lastRefusal_; }
const std::vector<Strike> & Session::strikes() const { return impl_->strikes_; }

std::vector<Interpose::FaultReport> Session::idleFaults() const {
    auto reports = impl_->faults_.reports();
    std::erase_if( reports, []( const auto & report ) { return report.strikes != 0; } );
    return reports;
}

} // namespace Tool
