#include "tools/cli/Verbs.h"
#include "tools/model/Arguments.h"

#include <utility>

namespace Tool {

int run( const RunOptions & options ) {
    Bringup bringup;
    const Recipe & recipe = needRecipe( options.recipe );
    bringup.model = modelOf( options.chips );
    RecipeStep step{ .recipe = &recipe,
                     .arguments = parseArguments( recipe, options.arguments, bringup.model ),
                     .expected = {} };
    bringup.steps.push_back( { .line = 0, .what = std::move( step ) } );
    return runSession( std::move( bringup ), options.session, options.output );
}

} // namespace Tool
