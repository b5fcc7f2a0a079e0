#include "tools/recording/RecipeOfThread.h"

#include "tools/recipes/Registry.h"

namespace Tool {

void RecipeOfThread::take( const TraceReader::Event & event ) {
    using Moment = TraceReader::Event::Moment;
    if ( event.moment == Moment::message ) {
        if ( event.record.site == nullptr )
            return;
        const auto [known, isNew] = recipesOfSites_.try_emplace( event.record.site );
        if ( isNew ) {
            const Recipe * recipe = findRecipe( event.record.site->function );
            known->second = recipe != nullptr ? recipe->name : std::string_view();
        }
        if ( !known->second.empty() )
            threads_[event.record.thread] = { .recipe = known->second };
        return;
    }
    if ( threads_.empty() )
        return;
    const auto thread = threads_.find( event.call->thread );
    if ( thread == threads_.end() )
        return;
    const bool isFree = event.call->call == TraceReader::SdkCall::entryFree;
    if ( event.moment == Moment::after && isFree )
        thread->second.isOver = true;
    else if ( thread->second.isOver && event.moment == Moment::before && !isFree )
        threads_.erase( thread );
}

std::string_view RecipeOfThread::of( std::uint32_t thread ) const {
    const auto found = threads_.find( thread );
    return found == threads_.end() ? std::string_view() : found->second.recipe;
}

} // namespace Tool
