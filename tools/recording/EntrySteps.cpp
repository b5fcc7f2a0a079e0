#include "tools/recording/EntrySteps.h"

#include "text/Numbers.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <utility>

namespace Tool {

namespace {

using Moment = TraceReader::Event::Moment;
using TraceReader::SdkCall;

std::string valuesText( const TraceReader::RecordedCall & call ) {
    std::string text;
    for ( std::size_t i = 0; i < call.values.size(); ) {
        std::size_t end = i + 1;
        while ( end < call.values.size() && call.values[end] == call.values[i] )
            ++end;
        fmt::format_to( std::back_inserter( text ), "{}{}", i == 0 ? "" : ", ",
                        Text::numberForTable( call.values[i] ) );
        if ( end - i > 1 )
            fmt::format_to( std::back_inserter( text ), " x{}", end - i );
        i = end;
    }
    return text;
}

std::string inputsText( const TraceReader::RecordedCall & call ) {
    switch ( call.call ) {
    case SdkCall::entryAllocate:
        return "allocate";
    case SdkCall::entryAttribSet:
        return "attribute " + call.attribute.text();
    case SdkCall::entryCommit:
    case SdkCall::ptEntryCommit:
        return fmt::format( "commit {} {}", call.opcode.text(), call.priority.text() );
    case SdkCall::entryFieldAdd:
        return fmt::format( "add {} = {}", call.field,
                            call.values.empty() ? "" : Text::numberForTable( call.values[0] ) );
    case SdkCall::entryFieldArrayAdd:
        return fmt::format( "add {}[{}..{}] = {}", call.field, call.startIndex,
                            call.startIndex + call.count - 1, valuesText( call ) );
    case SdkCall::entryFieldGet:
        return "get " + call.field;
    case SdkCall::entryFieldSymbolAdd:
        return fmt::format( "add {} = {}", call.field, call.symbol );
    case SdkCall::entryFree:
        return "free";
    default:
        return std::string( TraceReader::name( call.call ) );
    }
}

void mix( std::uint64_t & hash, std::string_view text ) {
    hash = ( hash ^ std::hash<std::string_view>()( text ) ) * 0x9E37'79B9'7F4A'7C15;
    hash ^= hash >> 29;
}

} // namespace

std::string operationText( const TraceReader::RecordedCall & call ) {
    if ( !call.hasInputs() )
        return std::string( TraceReader::name( call.call ) ) + ", its inputs are lost";
    std::string text = inputsText( call );
    if ( !call.isWhole )
        text += " ...";
    if ( !call.hasReturned() )
        return text + ", never returned";
    if ( call.rc != 0 )
        fmt::format_to( std::back_inserter( text ), " -> rc {}", call.rc );
    else if ( call.call == SdkCall::entryFieldGet )
        text += " -> " + Text::numberForTable( call.value );
    return text;
}

bool EntrySteps::next( EntryStep & step ) {
    TraceReader::Event event;
    while ( ready_.empty() && !isAtEnd_ ) {
        if ( source_( event ) ) {
            take( event );
            continue;
        }
        isAtEnd_ = true;
        // In the order in which they were begun, so that it is the same each time.
        std::vector<EntryStep> left;
        for ( auto & [handle, open] : open_ )
            left.push_back( std::move( open.step ) );
        std::sort( left.begin(), left.end(), []( const EntryStep & one, const EntryStep & other ) {
            return one.operations.front().number < other.operations.front().number;
        } );
        for ( EntryStep & each : left )
            finish( std::move( each ) );
    }
    if ( ready_.empty() )
        return false;
    step = std::move( ready_.front() );
    ready_.pop_front();
    return true;
}

void EntrySteps::take( const TraceReader::Event & event ) {
    recipes_.take( event );
    if ( ( event.moment != Moment::after && event.moment != Moment::neverReturned ) ||
         TraceReader::isHook( event.call->call ) )
        return;
    const TraceReader::RecordedCall & call = *event.call;
    const bool isNew = call.call == SdkCall::entryAllocate;
    const bool isFree = call.call == SdkCall::entryFree;
    const bool isWithoutEntry = isNew && ( call.rc < 0 || !call.hasReturned() );
    OpenStep alone;
    auto open = isWithoutEntry ? open_.end() : open_.find( call.handle );
    if ( open != open_.end() &&
         ( isNew || open->second.step.operations.size() >= EntryStep::maxOperations ||
           ( open->second.isCommitted && !isFree && call.call != SdkCall::entryFieldGet ) ) ) {
        finish( std::move( open->second.step ) );
        open->second = {};
    } else if ( open == open_.end() && !isWithoutEntry ) {
        open = open_.try_emplace( call.handle ).first;
    }
    OpenStep & current = isWithoutEntry ? alone : open->second;
    EntryStep & step = current.step;
    if ( step.operations.empty() ) {
        step.unit = call.unit;
        step.table = call.table;
        step.thread = call.thread;
    }
    if ( step.recipe.empty() )
        step.recipe = recipes_.of( call.thread );
    step.operations.push_back( { .number = call.number, .text = operationText( call ) } );
    current.isCommitted = current.isCommitted || isCommit( call.call );
    if ( isWithoutEntry ) {
        finish( std::move( step ) );
    } else if ( isFree && call.rc >= 0 && call.hasReturned() ) {
        finish( std::move( step ) );
        open_.erase( open );
    }
}

void EntrySteps::finish( EntryStep && step ) {
    step.hash = step.unit ? static_cast<std::uint64_t>( *step.unit ) + 1 : 0;
    mix( step.hash, step.table );
    for ( const EntryStep::Operation & operation : step.operations )
        mix( step.hash, operation.text );
    ready_.push_back( std::move( step ) );
}

} // namespace Tool
