#include "tools/explain/Explanation.h"

#include "sim/Chip.h"
#include "tools/run/StopHandler.h"

#include <ChipModel/BringupStage.h>
#include <Kiln/ActivityLock.h>

#include <mutex>
#include <string_view>
#include <utility>

namespace Tool {

namespace {

// Answers as the start service does and writes the questions down.
class SeeingStageService final : public CairnCentral::BringupStageService {
  public:
    SeeingStageService( const Model & model, Observer & observer )
        : model_( model ), observer_( observer ) {
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
        observer_.note( StageQuestion{ std::string( chip.name().view() ),
                                       static_cast<uint32_t>( stage ), askedUnblocked, answer } );
        return answer;
    }

    const Model & model_;
    Observer & observer_;
    CairnCentral::BringupStageService * previous_ = nullptr;
};

} // namespace

Explanation explainRecipe( const Recipe & recipe, const std::vector<Argument> & arguments,
                           const Model & model, const std::vector<SavedUnit> * kept,
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

    Observer observer( chip );
    const SeeingStageService stages( model, observer );
    const StopHandler stop( [&] {
        explanation.stopped = true;
        explanation.seen = observer.seen();
        onStop( explanation );
    } );

    Shim::Sdk * const previousSdk = std::exchange( Shim::sdk_, &observer.sdk() );
    {
        const std::lock_guard lock( Kiln::activityLock() );
        if ( explanation.preparedBy != nullptr )
            explanation.preparedBy->invoke( arguments, sharedState );
        observer.begin();
        explanation.result = recipe.invoke( arguments, sharedState );
    }
    Shim::sdk_ = previousSdk;
    explanation.seen = observer.seen();
    return explanation;
}

} // namespace Tool
