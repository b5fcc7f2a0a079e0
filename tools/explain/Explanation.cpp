#include "tools/explain/Explanation.h"

#include "sim/Chip.h"
#include "tools/explain/ModelObserver.h"
#include "tools/run/StopHandler.h"

#include <Kiln/ActivityLock.h>

#include <mutex>
#include <utility>

namespace Tool {

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
    const ModelObserver modelObserver( model, observer );
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
