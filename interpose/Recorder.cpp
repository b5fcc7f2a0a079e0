#include "interpose/Recorder.h"

#include "interpose/HandleDirectory.h"

#include <algorithm>
#include <initializer_list>
#include <mutex>
#include <utility>

namespace Interpose {

struct Recorder::State {
    explicit State( Shim::Sdk & sdk )
        : opcodes( numbersOf( sdk, { SdkCall::opcodeDelete, SdkCall::opcodeInsert,
                                     SdkCall::opcodeLookup, SdkCall::opcodeUpdate } ) ),
          ptOpcodes( numbersOf(
              sdk, { SdkCall::ptOpcodeGet, SdkCall::ptOpcodeModify, SdkCall::ptOpcodeSet } ) ),
          priorities( numbersOf( sdk, { SdkCall::priorityNormal } ) ),
          attributes( numbersOf( sdk, { SdkCall::attrGetFromHw } ) ), entries( sdk ) {}

    // The numbers of the inner SDK's constants. Those of different kinds may be equal.
    using Numbers = std::vector<SdkNumber>;
    const Numbers opcodes;
    const Numbers ptOpcodes;
    const Numbers priorities;
    const Numbers attributes;

    mutable std::mutex mutex; // guards the two below
    std::vector<Event> events;
    bool keepConstants = true;

    HandleDirectory entries;
    Observer observer; // set while no call is under way

    static Numbers numbersOf( Shim::Sdk & sdk, std::initializer_list<SdkCall> constants ) {
        Numbers numbers;
        for ( const SdkCall constant : constants )
            numbers.push_back( { askNumber( sdk, constant ), constant } );
        return numbers;
    }

    static SdkNumber find( const Numbers & numbers, std::uint32_t number ) {
        const auto it = std::find_if( numbers.begin(), numbers.end(),
                                      [&]( const SdkNumber & n ) { return n.number == number; } );
        return it == numbers.end() ? SdkNumber{ number } : *it;
    }

    Event eventOf( const Operation & operation ) const {
        const HandleDirectory::Entry entry = entries.find( operation );
        const bool allocates = operation.call == SdkCall::entryAllocate;
        Event event{ .call = operation.call,
                     .handle = allocates ? entries.invalidHandle() : operation.handle,
                     .unit = entry.unit,
                     .table = std::string( entry.table ),
                     .field = operation.field != nullptr ? operation.field : "",
                     .symbol = operation.symbol != nullptr ? operation.symbol : "" };
        if ( operation.values != nullptr ) {
            event.values.assign( operation.values,
                                 operation.values +
                                     std::min( operation.count, maxRecordedValues ) );
        }
        switch ( operation.call ) {
        case SdkCall::entryFieldArrayAdd:
            event.startIndex = operation.startIndex;
            event.count = operation.count;
            break;
        case SdkCall::entryCommit:
        case SdkCall::ptEntryCommit:
            event.opcode = find( operation.call == SdkCall::entryCommit ? opcodes : ptOpcodes,
                                 operation.opcode );
            event.priority = find( priorities, operation.priority );
            break;
        case SdkCall::entryAttribSet:
            event.attribute = find( attributes, operation.attribute );
            break;
        default:
            break;
        }
        return event;
    }

    // Makes one call, shows it to the observer before and after, and writes it down. `make` puts
    // what the call returns into the event.
    template <class Make>
    void record( Event event, Make && make ) {
        if ( observer )
            observer( Moment::before, event );
        make( event );
        event.returned = true;
        if ( observer )
            observer( Moment::after, event );
        const std::lock_guard lock( mutex );
        if ( keepConstants || kind( event.call ) != SdkCallKind::constant )
            events.push_back( std::move( event ) );
    }

    // The same for a call that returns a text.
    template <class Ask>
    const char * recordText( Event event, Ask && ask ) {
        const char * text = nullptr;
        record( std::move( event ), [&]( Event & e ) {
            text = ask();
            e.text = text ? text : "";
        } );
        return text;
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
    int rc = 0;
    state_->record( state_->eventOf( operation ), [&]( Event & event ) {
        rc = event.rc = state_->entries.perform( operation );
        if ( rc >= 0 && operation.newHandle != nullptr )
            event.handle = *operation.newHandle;
        if ( rc >= 0 && operation.result != nullptr )
            event.values = { *operation.result };
    } );
    return rc;
}

std::uint32_t Recorder::number( SdkCall constant ) noexcept {
    std::uint32_t number = 0;
    state_->record( { .call = constant },
                    [&]( Event & e ) { number = e.result = Interposer::number( constant ); } );
    return number;
}

const char * Recorder::text( SdkCall constant ) noexcept {
    return state_->recordText( { .call = constant }, [&] { return Interposer::text( constant ); } );
}

const char * Recorder::errmsg( int rc ) noexcept {
    return state_->recordText( { .call = SdkCall::errmsg, .rc = rc },
                               [&] { return inner().errmsg( rc ); } );
}

void Recorder::preCallHook() noexcept {
    state_->record( { .call = SdkCall::preCallHook }, [&]( Event & ) { inner().preCallHook(); } );
}

void Recorder::failureHook() noexcept {
    state_->record( { .call = SdkCall::failureHook }, [&]( Event & ) { inner().failureHook(); } );
}

} // namespace Interpose
