#include "interpose/Recorder.h"

#include "interpose/HandleDirectory.h"

#include <algorithm>
#include <mutex>
#include <utility>

namespace Interpose {

namespace {

constexpr SdkCall priorityNames[] = { SdkCall::priorityNormal };
constexpr SdkCall attributeNames[] = { SdkCall::attrGetFromHw };

std::string textOf( const char * text ) { return text != nullptr ? text : ""; }

} // namespace

struct Recorder::State {
    explicit State( Shim::Sdk & sdk )
        : opcodes( numbersOf( sdk, sdkOpcodes ) ), ptOpcodes( numbersOf( sdk, sdkPtOpcodes ) ),
          priorities( numbersOf( sdk, priorityNames ) ),
          attributes( numbersOf( sdk, attributeNames ) ), entries( sdk ) {}

    // The numbers of the inner SDK's constants.
    using Numbers = const std::vector<SdkNumber>;
    Numbers opcodes;
    Numbers ptOpcodes;
    Numbers priorities;
    Numbers attributes;

    mutable std::mutex mutex; // guards the two below
    std::vector<Event> events;
    bool keepConstants = true;

    HandleDirectory entries;
    Observer observer; // set while no call is under way

    Event eventOf( const Operation & operation ) const {
        const HandleDirectory::Entry entry = entries.find( operation );
        const bool allocates = operation.call == SdkCall::entryAllocate;
        Event event{ .call = operation.call,
                     .handle = allocates ? entries.invalidHandle() : operation.handle,
                     .unit = entry.unit,
                     .table = std::string( entry.table ),
                     .field = textOf( operation.field ),
                     .symbol = textOf( operation.symbol ),
                     .startIndex = operation.startIndex };
        if ( operation.values != nullptr )
            event.values.assign( operation.values,
                                 operation.values +
                                     std::min( operation.count, maxRecordedValues ) );
        switch ( operation.call ) {
        case SdkCall::entryFieldArrayAdd:
            event.count = operation.count;
            break;
        case SdkCall::entryCommit:
        case SdkCall::ptEntryCommit:
            event.opcode = findNumber( operation.call == SdkCall::entryCommit ? opcodes : ptOpcodes,
                                       operation.opcode );
            event.priority = findNumber( priorities, operation.priority );
            break;
        case SdkCall::entryAttribSet:
            event.attribute = findNumber( attributes, operation.attribute );
            break;
        default:
            break;
        }
        return event;
    }

    // Makes one call, shows it to the observer before and after, and writes it down. `make` puts
    // what the call returns into the event, and returns it.
    template <class Make>
    auto record( Event event, Make && make ) {
        if ( observer )
            observer( Moment::before, event );
        const auto returned = make( event );
        event.returned = true;
        if ( observer )
            observer( Moment::after, event );
        const std::lock_guard lock( mutex );
        if ( keepConstants || kind( event.call ) != SdkCallKind::constant )
            events.push_back( std::move( event ) );
        return returned;
    }
};

Recorder::Recorder( Shim::Sdk & inner )
    : Interposer( inner ), state_( std::make_unique<State>( inner ) ) {}

Recorder::~Recorder() = default;

void Recorder::keepConstants( bool keep ) {
    const std::lock_guard lock( state_->mutex );
    state_->keepConstants = keep;
}

void Recorder::observe( Observer observer ) { state_->observer = std::move( observer ); }

std::vector<Event> Recorder::events() const {
    const std::lock_guard lock( state_->mutex );
    return state_->events;
}

std::size_t Recorder::eventCount() const {
    const std::lock_guard lock( state_->mutex );
    return state_->events.size();
}

void Recorder::clear() {
    const std::lock_guard lock( state_->mutex );
    state_->events.clear();
}

int Recorder::operate( const Operation & operation ) noexcept {
    return state_->record( state_->eventOf( operation ), [&]( Event & event ) {
        event.rc = state_->entries.perform( operation );
        if ( event.rc >= 0 && operation.newHandle != nullptr )
            event.handle = *operation.newHandle;
        if ( event.rc >= 0 && operation.result != nullptr )
            event.values = { *operation.result };
        return event.rc;
    } );
}

std::uint32_t Recorder::number( SdkCall constant ) noexcept {
    return state_->record( { .call = constant }, [&]( Event & event ) {
        return event.result = Interposer::number( constant );
    } );
}

const char * Recorder::text( SdkCall constant ) noexcept {
    return state_->record( { .call = constant }, [&]( Event & event ) {
        const char * const text = Interposer::text( constant );
        event.text = textOf( text );
        return text;
    } );
}

const char * Recorder::errmsg( int rc ) noexcept {
    return state_->record( { .call = SdkCall::errmsg, .rc = rc }, [&]( Event & event ) {
        const char * const text = inner().errmsg( rc );
        event.text = textOf( text );
        return text;
    } );
}

void Recorder::preCallHook() noexcept {
    state_->record( { .call = SdkCall::preCallHook }, [&]( Event & ) {
        inner().preCallHook();
        return true;
    } );
}

void Recorder::failureHook() noexcept {
    state_->record( { .call = SdkCall::failureHook }, [&]( Event & ) {
        inner().failureHook();
        return true;
    } );
}

} // namespace Interpose
