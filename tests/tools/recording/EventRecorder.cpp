#include "tests/tools/recording/EventRecorder.h"

#include "interpose/SdkCall.h"

#include <array>

namespace ToolTest {

namespace {

using Interpose::SdkCall;
using TraceReader::RecordedCall;

TraceReader::SdkCall recorded( SdkCall call ) {
    return *TraceReader::sdkCallByName( Interpose::name( call ) );
}

// A half of a call is there if it has a file. No test reads the file.
const TraceReader::File * someFile() {
    static const char place = 0;
    return reinterpret_cast<const TraceReader::File *>( &place );
}

std::string textOf( const char * text ) { return text != nullptr ? text : ""; }

} // namespace

EventRecorder::EventRecorder( Shim::Sdk & inner ) : Interposer( inner ) {}

TraceReader::Event EventRecorder::eventAt( std::size_t i ) const {
    TraceReader::Event event;
    event.moment = events_[i].first;
    event.call = &events_[i].second;
    return event;
}

void EventRecorder::preCallHook() noexcept { hook( TraceReader::SdkCall::preCallHook ); }

void EventRecorder::failureHook() noexcept { hook( TraceReader::SdkCall::failureHook ); }

void EventRecorder::hook( TraceReader::SdkCall call ) {
    RecordedCall made = newCall( call );
    events_.emplace_back( Moment::before, made );
    made.after = made.before;
    events_.emplace_back( Moment::after, made );
}

RecordedCall EventRecorder::newCall( TraceReader::SdkCall call ) {
    RecordedCall made;
    made.call = call;
    made.number = ++calls_;
    made.process = 1;
    made.thread = thread_;
    made.before = { .file = someFile(),
                    .offset = calls_,
                    .time = static_cast<std::int64_t>( 10 * calls_ ),
                    .counter = static_cast<std::int64_t>( calls_ ) };
    made.isLockHeld = askLock_ != nullptr ? askLock_() : isLockHeld_;
    return made;
}

int EventRecorder::operate( const Interpose::Operation & operation ) noexcept {
    RecordedCall call = newCall( recorded( operation.call ) );
    call.handle = operation.handle;
    if ( operation.call == SdkCall::entryAllocate ) {
        call.unit = operation.unit;
        call.table = textOf( operation.table );
    } else if ( const auto entry = entries_.find( operation.handle ); entry != entries_.end() ) {
        call.unit = entry->second.first;
        call.table = entry->second.second;
    }
    call.field = textOf( operation.field );
    call.symbol = textOf( operation.symbol );
    if ( operation.values != nullptr )
        call.values.assign( operation.values, operation.values + operation.count );
    call.startIndex = operation.startIndex;
    call.count = operation.count;
    call.opcode = constantOf( operation.opcode );
    call.priority = constantOf( operation.priority );
    call.attribute = constantOf( operation.attribute );
    events_.emplace_back( Moment::before, call );
    if ( std::exchange( isNextLost_, false ) ) {
        events_.back().first = Moment::neverReturned;
        return 0;
    }
    call.rc = perform( inner(), operation );
    call.after = call.before;
    call.after.time += 5;
    if ( call.rc >= 0 && operation.result != nullptr )
        call.value = *operation.result;
    if ( call.rc >= 0 && operation.newHandle != nullptr ) {
        call.handle = *operation.newHandle;
        entries_[call.handle] = { operation.unit, call.table };
    }
    if ( call.rc >= 0 && operation.call == SdkCall::entryFree )
        entries_.erase( operation.handle );
    events_.emplace_back( Moment::after, call );
    return call.rc;
}

TraceReader::SdkConstant EventRecorder::constantOf( std::uint32_t number ) {
    for ( const SdkCall name :
          { SdkCall::attrGetFromHw, SdkCall::opcodeDelete, SdkCall::opcodeInsert,
            SdkCall::opcodeLookup, SdkCall::opcodeUpdate, SdkCall::priorityNormal,
            SdkCall::ptOpcodeGet, SdkCall::ptOpcodeModify, SdkCall::ptOpcodeSet } ) {
        if ( Interpose::askNumber( inner(), name ) == number )
            return { number, std::string( Interpose::name( name ) ) };
    }
    return { number, {} };
}

} // namespace ToolTest
