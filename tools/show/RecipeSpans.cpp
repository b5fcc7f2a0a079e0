#include "tools/show/RecipeSpans.h"

#include "tools/recipes/Registry.h"

#include <algorithm>

namespace Tool {

using Moment = TraceReader::Event::Moment;
using TraceReader::SdkCall;

std::optional<RecipeSpan> RecipeSpans::take( const TraceReader::Event & event ) {
    if ( event.moment == Moment::message )
        return event.record.site == nullptr ? std::nullopt : takeMessage( event.record );
    return event.moment == Moment::neverReturned ? std::nullopt : takeCall( event );
}

std::optional<RecipeSpan> RecipeSpans::takeMessage( const TraceReader::Record & record ) {
    const std::string_view recipe = recipeOf( *record.site );
    if ( recipe.empty() )
        return std::nullopt;
    const std::uint32_t id = record.file->info().process;
    Process & process = processes_[id];
    std::uint32_t threadId = record.thread;
    if ( threadId == 0 ) {
        if ( process.threads.size() > 1 )
            return std::nullopt;
        if ( process.threads.empty() ) {
            process.recipe = recipe;
            process.time = record.time;
            return std::nullopt;
        }
        threadId = process.threads.begin()->first;
    }
    Thread & thread = process.threads[threadId];
    std::optional<RecipeSpan> ended;
    if ( thread.isOpen && !thread.span.recipe.empty() && thread.span.recipe != recipe ) {
        ended = thread.span;
        thread.isOpen = false;
        thread.entries = 0;
    }
    if ( !thread.isOpen )
        open( thread, id, threadId, record.time );
    thread.span.recipe = recipe;
    thread.span.end = std::max( thread.span.end, record.time );
    return ended;
}

std::optional<RecipeSpan> RecipeSpans::takeCall( const TraceReader::Event & event ) {
    const TraceReader::RecordedCall & call = *event.call;
    Process & process = processes_[call.process];
    Thread & thread = process.threads[call.thread];
    const std::int64_t time = event.record.time;
    if ( !thread.isOpen ) {
        open( thread, call.process, call.thread, time );
        if ( !process.recipe.empty() ) {
            thread.span.recipe = process.recipe;
            thread.span.begin = std::min( thread.span.begin, process.time );
            process.recipe = {};
        }
    }
    thread.span.end = std::max( thread.span.end, time );
    if ( event.moment == Moment::before ) {
        ++thread.calls;
        if ( call.call == SdkCall::entryAllocate && thread.span.table.empty() )
            thread.span.table = call.table;
        return std::nullopt;
    }
    thread.calls -= std::min<std::size_t>( thread.calls, 1 );
    if ( call.call == SdkCall::entryAllocate && call.rc >= 0 )
        ++thread.entries;
    if ( call.call != SdkCall::entryFree || call.rc < 0 )
        return std::nullopt;
    thread.entries -= std::min<std::size_t>( thread.entries, 1 );
    if ( thread.entries != 0 || thread.calls != 0 )
        return std::nullopt;
    thread.isOpen = false;
    return thread.span;
}

const RecipeSpan * RecipeSpans::of( std::uint32_t process, std::uint32_t thread ) const {
    const auto found = processes_.find( process );
    if ( found == processes_.end() )
        return nullptr;
    const auto inProcess = found->second.threads.find( thread );
    return inProcess == found->second.threads.end() || inProcess->second.span.number == 0
               ? nullptr
               : &inProcess->second.span;
}

std::optional<RecipeSpan> RecipeSpans::takeOpen() {
    for ( auto & [id, process] : processes_ ) {
        for ( auto & [threadId, thread] : process.threads ) {
            if ( thread.isOpen ) {
                thread.isOpen = false;
                return thread.span;
            }
        }
    }
    return std::nullopt;
}

void RecipeSpans::open( Thread & thread, std::uint32_t process, std::uint32_t id,
                        std::int64_t time ) {
    thread.isOpen = true;
    thread.calls = 0;
    thread.span = { .number = ++number_,
                    .process = process,
                    .thread = id,
                    .begin = time,
                    .end = time,
                    .recipe = {},
                    .table = {} };
}

std::string_view RecipeSpans::recipeOf( const TraceReader::Site & site ) {
    const auto [known, isNew] = recipesOfSites_.try_emplace( &site );
    if ( isNew ) {
        const Recipe * recipe = findRecipe( site.function );
        known->second = recipe != nullptr ? recipe->name : std::string_view();
    }
    return known->second;
}

} // namespace Tool
