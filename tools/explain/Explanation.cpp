#include "tools/explain/Explanation.h"

#include "sim/Chip.h"
#include "tools/run/StopHandler.h"

#include <ChipModel/BringupStage.h>
#include <Kiln/ActivityLock.h>
#include <Kiln/TraceHandle.h>
#include <Kiln/TraceSink.h>

#include <mutex>
#include <string_view>
#include <utility>

namespace Tool {

namespace {

// Answers as the start service does and writes the questions down.
class SeeingStageService final : public CairnCentral::BringupStageService {
  public:
    explicit SeeingStageService( const Model & model, std::vector<Seen> & seen )
        : model_( model ), seen_( seen ) {
        previous_ = CairnCentral::setBringupStageService( this );
    }
    ~SeeingStageService() { CairnCentral::setBringupStageService( previous_ ); }
    SeeingStageService( const SeeingStageService & ) = delete;
    SeeingStageService & operator=( const SeeingStageService & ) = delete;

    bool isBlocked( const CairnCentral::ChipInfo & chip,
                    CairnCentral::BringupStage stage ) noexcept override {
        return note( chip, stage, false, blocked( chip, stage ) );
    }
    bool isUnblocked( const CairnCentral::ChipInfo & chip,
                      CairnCentral::BringupStage stage ) noexcept override {
        return note( chip, stage, true, !blocked( chip, stage ) );
    }

  private:
    bool blocked( const CairnCentral::ChipInfo & chip, CairnCentral::BringupStage stage ) const {
        const ChipDescription * description = model_.findChip( chip.name().view() );
        if ( description == nullptr )
            return false;
        for ( const uint32_t each : description->blockedStages ) {
            if ( CairnCentral::BringupStage( each ) == stage )
                return true;
        }
        return false;
    }

    bool note( const CairnCentral::ChipInfo & chip, CairnCentral::BringupStage stage,
               bool askedUnblocked, bool answer ) {
        seen_.push_back( SeenQuestion{ std::string( chip.name().view() ),
                                       static_cast<uint32_t>( stage ), askedUnblocked, answer } );
        return answer;
    }

    const Model & model_;
    std::vector<Seen> & seen_;
    CairnCentral::BringupStageService * previous_ = nullptr;
};

// Puts hooks, constants, operations and trace lines together again as the calls they belong to.
class Watcher {
  public:
    explicit Watcher( Sim::Chip & chip, std::vector<Seen> & seen ) : chip_( chip ), seen_( seen ) {}

    // Nothing that happens before is seen.
    void begin() { watching_ = true; }

    void onEvent( Interpose::Recorder::Moment moment, const Interpose::Event & event ) {
        if ( !watching_ )
            return;
        const bool before = moment == Interpose::Recorder::Moment::before;
        switch ( Interpose::kind( event.call ) ) {
        case Interpose::SdkCallKind::hook:
            hookRan_ = hookRan_ || ( before && event.call == Interpose::SdkCall::preCallHook );
            break;
        case Interpose::SdkCallKind::constant:
            if ( before )
                onConstant( std::string( Interpose::name( event.call ) ) );
            break;
        case Interpose::SdkCallKind::operation:
            if ( before )
                operationLockHeld_ = Kiln::activityLock().heldByThisThread();
            else
                onOperation( event );
            break;
        case Interpose::SdkCallKind::text:
            break;
        }
    }

    void onTraceLine( const Kiln::TraceLine & line ) {
        if ( !watching_ )
            return;
        if ( line.facility == "ApiCairn" )
            onCallTrace( line );
        else
            seen_.push_back( SeenMessage{ std::string( line.facility ),
                                          static_cast<uint32_t>( line.level ),
                                          std::string( line.text ) } );
    }

  private:
    // A constant belongs to a call if it is asked between the hook and the operation, or with the
    // lock released.
    void onConstant( std::string name ) {
        if ( hookRan_ || !Kiln::activityLock().heldByThisThread() )
            constants_.push_back( std::move( name ) );
        else
            seen_.push_back( SeenConstant{ std::move( name ) } );
    }

    void onOperation( const Interpose::Event & event ) {
        SeenCall call;
        call.event = event;
        call.guarded = std::exchange( hookRan_, false );
        call.lockHeld = operationLockHeld_;
        call.constants = std::exchange( constants_, {} );
        if ( event.rc < 0 )
            call.errorText = chip_.errmsg( event.rc );
        seen_.push_back( std::move( call ) );
    }

    // "FILE:LINE CALL (rc:CODE)" or "FILE:LINE CALL no rc check". It follows its operation; a line
    // whose hook no operation used up is the check of a code.
    void onCallTrace( const Kiln::TraceLine & line ) {
        if ( std::exchange( hookRan_, false ) ) {
            SeenCall check;
            check.guarded = true;
            seen_.push_back( std::move( check ) );
        }
        auto & call = std::get<SeenCall>( seen_.back() );
        std::string_view text = line.text;
        text.remove_prefix( text.find( ' ' ) + 1 );
        constexpr std::string_view noCheck = " no rc check";
        call.ignored = text.ends_with( noCheck );
        text = call.ignored ? text.substr( 0, text.size() - noCheck.size() )
                            : text.substr( 0, text.rfind( " (rc:" ) );
        call.text = text;
        call.line = line.line;
    }

    Sim::Chip & chip_;
    std::vector<Seen> & seen_;
    bool watching_ = false;
    bool hookRan_ = false;
    bool operationLockHeld_ = false;
    std::vector<std::string> constants_;
};

// All lines of all facilities, to a function, for as long as it lives.
class TraceTap {
  public:
    explicit TraceTap( std::function<void( const Kiln::TraceLine & )> callback ) {
        Kiln::traceToCallback( std::move( callback ) );
        std::string error;
        Kiln::traceSettings( Kiln::parseTraceSettings( "*/*", error ) );
    }
    ~TraceTap() {
        Kiln::traceOff();
        Kiln::traceToStandardError();
    }
    TraceTap( const TraceTap & ) = delete;
    TraceTap & operator=( const TraceTap & ) = delete;
};

} // namespace

Explanation explainRecipe( const Recipe & recipe, const std::vector<Argument> & arguments,
                           const Model & model, const std::vector<KeptUnit> * kept,
                           const std::function<void( const Explanation & )> & onStop ) {
    Explanation explanation{ .recipe = &recipe,
                             .arguments = arguments,
                             .preparedBy =
                                 kept == nullptr ? findRecipe( recipe.preparedBy ) : nullptr,
                             .seen = {},
                             .result = {} };
    Sim::Chip chip;
    addUnits( chip, model );
    if ( kept != nullptr )
        restore( chip, *kept, "the state file" );
    const auto sharedState = applyModel( model );

    Interpose::Recorder recorder( chip );
    Watcher watcher( chip, explanation.seen );
    recorder.observe( [&]( Interpose::Recorder::Moment moment, const Interpose::Event & event ) {
        watcher.onEvent( moment, event );
    } );
    const TraceTap tap( [&]( const Kiln::TraceLine & line ) { watcher.onTraceLine( line ); } );
    const SeeingStageService stages( model, explanation.seen );
    const StopHandler stop( [&] {
        explanation.stopped = true;
        onStop( explanation );
    } );

    Shim::Sdk * const previousSdk = std::exchange( Shim::sdk_, &recorder );
    {
        const std::lock_guard lock( Kiln::activityLock() );
        if ( explanation.preparedBy != nullptr )
            explanation.preparedBy->invoke( arguments, sharedState );
        explanation.seen.clear(); // questions of the preparation
        watcher.begin();
        explanation.result = recipe.invoke( arguments, sharedState );
    }
    Shim::sdk_ = previousSdk;
    return explanation;
}

} // namespace Tool
