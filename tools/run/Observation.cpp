#include "tools/run/Observation.h"

#include <Kiln/ActivityLock.h>
#include <Kiln/TraceHandle.h>

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace Tool {

using Interpose::SdkCall;
using Interpose::SdkCallKind;

Observer::Observer( Shim::Sdk & inner, AfterOperation afterOperation )
    : recorder_( inner ), afterOperation_( std::move( afterOperation ) ) {
    recorder_.observe(
        [this]( Interpose::Recorder::Moment moment, const Interpose::Event & event ) {
            if ( watching_ )
                onEvent( moment, event );
        } );
    Kiln::traceToCallback( [this]( const Kiln::TraceLine & line ) {
        if ( watching_ )
            onTraceLine( line );
    } );
    std::string error;
    Kiln::traceSettings( Kiln::parseTraceSettings( "*/*", error ) );
}

Observer::~Observer() {
    Kiln::traceOff();
    Kiln::traceToStandardError();
}

const Observation & Observer::finish() {
    if ( hookPending_ )
        seen_.calls.push_back( takeHook() );
    return seen_;
}

void Observer::onEvent( Interpose::Recorder::Moment moment, const Interpose::Event & event ) {
    const bool before = moment == Interpose::Recorder::Moment::before;
    switch ( Interpose::kind( event.call ) ) {
    case SdkCallKind::hook:
        if ( before )
            onHook( event.call );
        break;
    case SdkCallKind::constant:
        if ( before )
            onConstant( event.call );
        break;
    case SdkCallKind::text:
        if ( before )
            seen_.errorTexts.push_back( event.rc );
        break;
    case SdkCallKind::operation:
        if ( before )
            operationLocked_ = Kiln::activityLock().heldByThisThread();
        else
            onOperation( event );
        break;
    }
}

void Observer::onHook( SdkCall hook ) {
    const bool locked = Kiln::activityLock().heldByThisThread();
    if ( hook == SdkCall::preCallHook ) {
        ++seen_.preCallHooks;
        hookPending_ = true;
        hookLocked_ = locked;
        return;
    }
    ++seen_.failureHooks;
    seen_.failureHookLocked = locked;
    struct stat status {};
    seen_.reportedBeforeHook = ::fstat( STDERR_FILENO, &status ) == 0 && status.st_size > 0;
}

// A constant belongs to a call if it is asked between the hook and the operation, or with the lock
// released.
void Observer::onConstant( SdkCall constant ) {
    if ( hookPending_ || !Kiln::activityLock().heldByThisThread() )
        constants_.push_back( constant );
    else
        note( ObservedConstant{ constant } );
}

// A call with what is known from its hook. It is a check as long as it has no operation.
ObservedCall Observer::takeHook() {
    ObservedCall call;
    call.hook = std::exchange( hookPending_, false );
    call.hookLocked = call.hook && hookLocked_;
    return call;
}

void Observer::onOperation( const Interpose::Event & event ) {
    ObservedCall call = takeHook();
    call.operation = event;
    call.operationLocked = operationLocked_;
    call.constants = std::exchange( constants_, {} );
    if ( event.call == SdkCall::entryAllocate )
        entries_[event.handle] = ++allocates_;
    // The recorder knows no table of an invalid handle.
    const auto entry = entries_.find( event.handle );
    call.operation.handle = entry == entries_.end() || event.table.empty() ? 0 : entry->second;
    seen_.calls.push_back( std::move( call ) );
    if ( afterOperation_ )
        afterOperation_( seen_ );
}

void Observer::onTraceLine( const Kiln::TraceLine & line ) {
    if ( std::find( seen_.functions.begin(), seen_.functions.end(), line.function ) ==
         seen_.functions.end() )
        seen_.functions.emplace_back( line.function );
    if ( line.facility == "ApiCairn" )
        onCallTrace( line );
    else
        note( ObservedMessage{ std::string( line.facility ),
                               static_cast<std::uint32_t>( line.level ),
                               std::string( line.text ) } );
}

// "FILE:LINE CALL (rc:CODE)" or "FILE:LINE CALL no rc check". It follows its operation; a line
// whose hook no operation used up is that of a check.
void Observer::onCallTrace( const Kiln::TraceLine & line ) {
    if ( hookPending_ || seen_.calls.empty() )
        seen_.calls.push_back( takeHook() );
    ObservedCall & call = seen_.calls.back();
    std::string_view text = line.text;
    const std::string position = fmt::format( "{}:{} ", line.file, line.line );
    if ( text.starts_with( position ) )
        text.remove_prefix( position.size() );
    std::size_t end = text.rfind( ObservedCall::ignoredEnding );
    if ( end == std::string_view::npos )
        end = std::min( text.rfind( " (rc:" ), text.size() );
    call.text += text.substr( 0, end );
    call.ending += text.substr( end );
    call.line = line.line;
}

} // namespace Tool
