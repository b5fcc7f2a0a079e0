#include "tools/show/Folded.h"

#include "text/Escape.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string_view>

namespace Tool {

using Moment = TraceReader::Event::Moment;

namespace {

// Calls of a thread within each other. A damaged recording may have any number of them.
constexpr std::size_t maxDepth = 16;

// A name between the separators of a line.
void appendFrame( std::string & out, std::string_view name ) {
    if ( !out.empty() )
        out += ';';
    for ( const char each : Text::printable( name ) )
        out += each == ';' || each == ' ' ? '_' : each;
}

} // namespace

void Folded::take( const TraceReader::Event & event, bool isWanted ) {
    const auto ended = spans_.take( event );
    if ( event.moment == Moment::before )
        begin( *event.call );
    else if ( event.moment == Moment::after )
        end( *event.call, isWanted );
    else if ( event.moment == Moment::neverReturned && isWanted )
        ++withoutTime_;
    if ( ended )
        addSpan( *ended );
}

void Folded::begin( const TraceReader::RecordedCall & call ) {
    auto & open = open_[{ call.process, call.thread }];
    std::string frames = open.empty() ? std::string() : open.back().frames;
    if ( !TraceReader::isHook( call.call ) )
        appendFrame( frames, call.table.empty() ? "(table not known)" : call.table );
    appendFrame( frames, name( call.call ) );
    if ( open.size() == maxDepth )
        open.erase( open.begin() );
    open.push_back( { call.number, std::move( frames ), 0 } );
}

void Folded::end( const TraceReader::RecordedCall & call, bool isWanted ) {
    auto & open = open_[{ call.process, call.thread }];
    const auto found = std::find_if( open.begin(), open.end(), [&]( const OpenCall & each ) {
        return each.number == call.number;
    } );
    if ( found == open.end() ) {
        withoutTime_ += isWanted ? 1 : 0;
        return;
    }
    const std::string frames = std::move( found->frames );
    const auto nanoseconds =
        static_cast<std::uint64_t>( elapsed( call.before.time, call.after.time ) );
    const std::uint64_t own = nanoseconds - std::min( nanoseconds, found->nanosecondsWithin );
    open.erase( found, open.end() ); // those behind it never returned
    if ( !open.empty() )
        open.back().nanosecondsWithin += nanoseconds;
    const RecipeSpan * span = spans_.of( call.process, call.thread );
    if ( isWanted && span != nullptr )
        timesOfSpans_[span->number][frames] += own;
}

void Folded::addSpan( const RecipeSpan & span ) {
    const auto found = timesOfSpans_.find( span.number );
    if ( found == timesOfSpans_.end() )
        return;
    for ( const auto & [frames, nanoseconds] : found->second ) {
        const std::string_view recipe = span.recipe.empty() ? "(recipe_not_known)" : span.recipe;
        times_[fmt::format( "{};{}", recipe, frames )] += nanoseconds;
    }
    timesOfSpans_.erase( found );
}

std::string Folded::text() {
    while ( const auto span = spans_.takeOpen() )
        addSpan( *span );
    std::string text;
    for ( const auto & [stack, nanoseconds] : times_ )
        fmt::format_to( std::back_inserter( text ), "{} {}\n", stack, nanoseconds );
    return text;
}

} // namespace Tool
