#include "tools/run/Session.h"

#include "interpose/Fault.h"
#include "interpose/FaultInjector.h"
#include "interpose/Recorder.h"
#include "sim/Chip.h"
#include "text/NearestName.h"
#include "tools/model/Arguments.h"
#include "tools/model/Errors.h"
#include "tools/model/State.h"
#include "tools/run/StopHandler.h"
#include "tools/run/Tables.h"

#include <ChipModel/BringupStage.h>
#include <Fleetlog/TraceHandle.h>
#include <Kiln/ActivityLock.h>
#include <Kiln/TraceHandle.h>
#include <Kiln/TraceSink.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <mutex>
#include <system_error>
#include <utility>

namespace Tool {

namespace {

using Json = nlohmann::ordered_json;

void checkNames( const Interpose::Fault & fault, const Model & model, const std::string & option ) {
    if ( fault.unit && model.findUnit( static_cast<uint64_t>( *fault.unit ) ) == nullptr )
        throw InputError( fmt::format( "{}: there is no unit {}", option, *fault.unit ) );
    // An allocate of a table that a chip lacks can fail, too: the reference chip's names count.
    const Sim::Schema reference = Sim::referenceSchema();
    std::vector<const Sim::Schema *> schemas{ &reference };
    for ( const ChipDescription & chip : model.chips )
        schemas.push_back( &chip.schema );
    std::vector<std::string_view> tables;
    std::vector<std::string_view> fields{ Sim::indexField, Sim::instanceField, Sim::portField };
    const auto addNew = []( std::vector<std::string_view> & names, std::string_view name ) {
        if ( std::find( names.begin(), names.end(), name ) == names.end() )
            names.push_back( name );
    };
    for ( const Sim::Schema * schema : schemas ) {
        for ( const Sim::Table & table : schema->tables() ) {
            addNew( tables, table.name );
            if ( fault.table && *fault.table != table.name )
                continue;
            for ( const Sim::Field & field : table.fields )
                addNew( fields, field.name );
        }
    }
    const auto check = [&]( const std::optional<std::string> & name, const char * what,
                            const std::vector<std::string_view> & names ) {
        if ( name && std::find( names.begin(), names.end(), *name ) == names.end() )
            throw InputError( fmt::format( "{}: there is no {} \"{}\"", option, what, *name ),
                              Text::nameHint( *name, names ) );
    };
    check( fault.table, "table", tables );
    check( fault.field, "field", fields );
}

Json argumentJson( const Argument & argument ) {
    if ( const auto * number = std::get_if<uint64_t>( &argument ) )
        return *number;
    if ( const auto * flag = std::get_if<bool>( &argument ) )
        return *flag;
    return toText( argument );
}

Json resultJson( const Result & result ) {
    if ( const auto * flag = std::get_if<bool>( &result ) )
        return *flag;
    return std::get<uint16_t>( result );
}

bool hasResult( const Result & result ) {
    return !std::holds_alternative<std::monostate>( result );
}

void changeStages( const StageStep & step ) {
    for ( const uint32_t stage : step.block )
        CairnCentral::setStageBlocked( step.chip, CairnCentral::BringupStage( stage ), true );
    for ( const uint32_t stage : step.unblock )
        CairnCentral::setStageBlocked( step.chip, CairnCentral::BringupStage( stage ), false );
}

} // namespace

class Session::Impl {
  public:
    Impl( Bringup bringup, SessionOptions options, Style style )
        : bringup_( std::move( bringup ) ), options_( std::move( options ) ), style_( style ),
          faults_( chip_ ), recorder_( faults_ ) {
        if ( options_.format == Format::json && options_.dump == Format::text )
            throw InputError( "--dump: with --format json the tables are part of the document",
                              "leave \"=text\" out" );
        addFaults();
        setUpChips();
        setUpTrace();
        recorder_.keepConstants( false );
        recorder_.observe( [this]( Interpose::Recorder::Moment moment,
                                   const Interpose::Event & event ) { watch( moment, event ); } );
        sharedState_ = applyModel( bringup_.model );
        previousSdk_ = std::exchange( Shim::sdk_, &recorder_ );
    }

    ~Impl() {
        Shim::sdk_ = previousSdk_;
        Fleetlog::closeDefault();
    }

    int run() {
        const StopHandler stop( [this] { stopped(); } );
        for ( const Step & step : bringup_.steps ) {
            ++stepNumber_;
            outcomes_.push_back( { .step = &step } );
            tellStep( step );
            perform( step, outcomes_.back() );
            outcomes_.back().done = true;
            collectRecord();
            tellResult( outcomes_.back() );
        }
        return finish();
    }

  private:
    struct Outcome {
        const Step * step = nullptr;
        Result result = {};
        bool done = false;
        std::vector<std::string> record = {};

        // Whether this is what was hoped for.
        bool good() const {
            const auto * recipe = std::get_if<RecipeStep>( &step->what );
            if ( recipe == nullptr )
                return true;
            if ( recipe->expected )
                return result == *recipe->expected;
            const bool verifies = recipe->recipe->name.starts_with( "verify" );
            return !verifies || result == Result( true );
        }
    };

    // --- Setting up

    void addFaults() {
        for ( const std::string & text : options_.inject ) {
            const Interpose::ParsedFault parsed = Interpose::parseFault( text );
            if ( !parsed.fault )
                throw InputError( fmt::format( "--inject \"{}\": {}", text, parsed.error ) );
            checkNames( *parsed.fault, bringup_.model, fmt::format( "--inject \"{}\"", text ) );
            faults_.add( *parsed.fault );
        }
    }

    void setUpChips() {
        addUnits( chip_, bringup_.model );
        if ( options_.state.empty() )
            return;
        const std::vector<SavedUnit> kept = loadState( options_.state );
        for ( const SavedUnit & unit : kept ) {
            const Sim::Schema * schema = chip_.schema( unit.unit );
            if ( schema == nullptr )
                refuseState( "it keeps a unit " + std::to_string( unit.unit ) +
                             ", which is not described" );
            if ( !( *schema == unit.schema ) )
                refuseState( "unit " + std::to_string( unit.unit ) +
                             " is another chip than the one described" );
        }
        restore( chip_, kept, options_.state );
    }

    [[noreturn]] void refuseState( const std::string & why ) {
        throw InputError( options_.state, 0, why,
                          "name another state file, or remove this one to start afresh" );
    }

    void setUpTrace() {
        for ( const std::string & text : options_.trace ) {
            std::string error;
            const auto settings = Kiln::parseTraceSettings( text, error );
            if ( !error.empty() )
                throw InputError( fmt::format( "--trace: {}", error ) );
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

    void perform( const Step & step, Outcome & outcome ) {
        if ( const auto * recipe = std::get_if<RecipeStep>( &step.what ) ) {
            const std::lock_guard lock( Kiln::activityLock() );
            outcome.result = recipe->recipe->invoke( recipe->arguments, sharedState_ );
        } else if ( const auto * stages = std::get_if<StageStep>( &step.what ) ) {
            changeStages( *stages );
        } else {
            const auto & poke = std::get<PokeStep>( step.what );
            const Sim::RowId row{
                .index = poke.index, .instance = poke.instance, .port = poke.port };
            if ( chip_.pokeHardware( poke.unit, poke.table, row, poke.field, poke.value ) !=
                 Sim::Rc::ok )
                throw InputError( bringup_.file, step.line, chip_.lastError() );
        }
    }

    void watch( Interpose::Recorder::Moment moment, const Interpose::Event & event ) {
        if ( Interpose::kind( event.call ) != Interpose::SdkCallKind::operation )
            return;
        lastCall_ = event;
        if ( moment == Interpose::Recorder::Moment::before )
            return;
        std::size_t strikes = 0;
        if ( !options_.inject.empty() ) {
            for ( const Interpose::FaultReport & report : faults_.reports() )
                strikes += report.strikes;
        }
        lastCallInjected_ = strikes != strikes_;
        strikes_ = strikes;
        lastFailure_ = event.rc < 0 ? chip_.lastError() : "";
    }

    void collectRecord() {
        if ( options_.record ) {
            for ( const Interpose::Event & event : recorder_.events() ) {
                if ( Interpose::kind( event.call ) == Interpose::SdkCallKind::operation )
                    outcomes_.back().record.push_back( Interpose::toText( event ) );
            }
            if ( options_.format == Format::text ) {
                const std::string indent =
                    style_ == Style::results ? "" : std::string( numberWidth() + 2, ' ' );
                for ( const std::string & line : outcomes_.back().record )
                    print( indent + line + "\n" );
            }
        }
        recorder_.clear();
    }

    // --- Telling

    // "FILE:LINE: ", or nothing for a step of the command line.
    std::string place( const Step & step ) const {
        return step.line == 0 ? std::string()
                              : bringup_.file + ":" + std::to_string( step.line ) + ": ";
    }

    // Before the step, so that its trace lines follow.
    void tellStep( const Step & step ) const {
        if ( options_.format == Format::json || style_ == Style::results )
            return;
        std::string number = std::to_string( stepNumber_ );
        number.insert( 0, numberWidth() - number.size(), ' ' );
        print( number + "  " + toText( step ) + "\n" );
    }

    void tellResult( const Outcome & outcome ) const {
        const std::string result = toText( outcome.result );
        if ( options_.format == Format::json || result.empty() )
            return;
        if ( style_ == Style::results )
            print( result + "\n" );
        else
            print( std::string( numberWidth() + 2, ' ' ) + "returns " + result +
                   ( outcome.good() ? "\n" : ", " + wanted( outcome ) + " is wanted\n" ) );
    }

    std::size_t numberWidth() const { return std::to_string( bringup_.steps.size() ).size(); }

    static std::string wanted( const Outcome & outcome ) {
        const auto & expected = std::get<RecipeStep>( outcome.step->what ).expected;
        return toText( expected ? *expected : Result( true ) );
    }

    int finish() {
        keepChips();
        warnOfFaults();
        warnOfLeaks();
        printTables();
        const bool good = std::all_of( outcomes_.begin(), outcomes_.end(),
                                       []( const Outcome & each ) { return each.good(); } );
        if ( style_ == Style::steps && !good ) {
            const auto bad = std::find_if( outcomes_.begin(), outcomes_.end(),
                                           []( const Outcome & each ) { return !each.good(); } );
            complain( place( *bad->step ) + toText( *bad->step ) + " = " + toText( bad->result ) +
                      ", " + wanted( *bad ) + " is wanted" );
        }
        return good ? 0 : 1;
    }

    void warnOfFaults() {
        for ( const Interpose::Fault & fault : faults_.unfired() )
            complain( "warning: the fault \"" + Interpose::toText( fault ) + "\" never struck" );
    }

    void warnOfLeaks() {
        for ( const Sim::LiveEntry & entry : chip_.liveEntries() )
            complain( "warning: an entry of " + entry.table + " on unit " +
                      std::to_string( entry.unit ) + " was never freed" );
    }

    void printTables() {
        if ( options_.format == Format::json ) {
            print( document().dump( 2 ) + "\n" );
        } else if ( options_.dump == Format::json ) {
            print( tablesJson( chip_, {} ).dump( 2 ) + "\n" );
        } else if ( options_.dump ) {
            print( tablesText( chip_, {} ) );
        }
    }

    void keepChips() {
        if ( !options_.state.empty() )
            saveState( chip_, options_.state );
    }

    Json document() const {
        Json steps = Json::array();
        for ( const Outcome & outcome : outcomes_ )
            steps.push_back( outcomeJson( outcome ) );
        Json json;
        if ( !bringup_.file.empty() )
            json["file"] = bringup_.file;
        json["steps"] = std::move( steps );
        if ( !outcomes_.empty() && !outcomes_.back().done )
            json["stopped_at"] = { { "call", lastCall_ ? Interpose::toText( *lastCall_ ) : "" },
                                   { "reason", stopReason() } };
        Json unfired = Json::array();
        for ( const Interpose::Fault & fault : faults_.unfired() )
            unfired.push_back( Interpose::toText( fault ) );
        json["faults_that_never_struck"] = std::move( unfired );
        json["entries_never_freed"] = chip_.liveEntryCount();
        if ( options_.dump )
            json["tables"] = tablesJson( chip_, {} );
        return json;
    }

    Json outcomeJson( const Outcome & outcome ) const {
        Json json;
        if ( outcome.step->line != 0 )
            json["line"] = outcome.step->line;
        json["step"] = toText( *outcome.step );
        if ( const auto * recipe = std::get_if<RecipeStep>( &outcome.step->what ) ) {
            json["recipe"] = recipe->recipe->name;
            Json arguments = Json::object();
            const auto parameters = recipe->recipe->parameters();
            for ( std::size_t i = 0; i < parameters.size(); ++i )
                arguments[std::string( parameters[i].name )] = argumentJson( recipe->arguments[i] );
            json["arguments"] = std::move( arguments );
            if ( hasResult( outcome.result ) )
                json["result"] = resultJson( outcome.result );
            if ( recipe->expected )
                json["expected"] = resultJson( *recipe->expected );
        }
        json["good"] = outcome.done && outcome.good();
        if ( options_.record )
            json["record"] = outcome.record;
        return json;
    }

    // --- The stop

    // Why the last call failed; empty if it did not.
    std::string stopReason() const {
        return lastCallInjected_ ? "a fault that was injected" : lastFailure_;
    }

    void stopped() {
        std::string notKept;
        try {
            keepChips();
        } catch ( const std::exception & trouble ) {
            notKept = trouble.what();
        }
        const Step & step = *outcomes_.back().step;
        complain( place( step ) + "stopped in step " + std::to_string( stepNumber_ ) + " of " +
                  std::to_string( bringup_.steps.size() ) + ": " + toText( step ) );
        if ( lastCall_ )
            complain( ( lastCall_->returned ? "last SDK call: " : "in the SDK call: " ) +
                      Interpose::toText( *lastCall_ ) );
        const std::string reason = stopReason();
        if ( !reason.empty() )
            complain( ( lastCallInjected_ ? "it is " : "the chip says: " ) + reason );
        if ( !notKept.empty() )
            complain( notKept );
        try {
            collectRecord();
            printTables();
        } catch ( const std::exception & trouble ) {
            complain( trouble.what() );
        }
    }

    Bringup bringup_;
    SessionOptions options_;
    Style style_;

    Sim::Chip chip_;
    Interpose::FaultInjector faults_;
    Interpose::Recorder recorder_;
    Cairn::CairnCommonSmData::Ptr sharedState_;
    Shim::Sdk * previousSdk_ = nullptr;

    std::vector<Outcome> outcomes_;
    std::size_t stepNumber_ = 0;
    // The SDK operation under way, or the last one.
    std::optional<Interpose::Event> lastCall_;
    bool lastCallInjected_ = false;
    std::string lastFailure_; // the chip's words for it
    std::size_t strikes_ = 0;
};

Session::Session( Bringup bringup, SessionOptions options, Style style )
    : impl_( std::make_unique<Impl>( std::move( bringup ), std::move( options ), style ) ) {}

Session::~Session() = default;

int Session::run() { return impl_->run(); }

} // namespace Tool
