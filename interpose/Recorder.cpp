#include "interpose/Recorder.h"

#include "interpose/HandleDirectory.h"

#include <algorithm>
#include <mutex>
#include <utility>

namespace Interpose {

namespace {

// The name of a constant, or the number where it has none.
std::string nameOr( const std::string & constantName, uint32_t number ) {
    return constantName.empty() ? std::to_string( number ) : constantName;
}

std::string valuesText( const Event & event ) {
    std::string text;
    for ( const uint64_t value : event.values ) {
        text += " " + std::to_string( value );
    }
    return text;
}

std::string operationText( const Event & event ) {
    std::string text( name( event.call ) );
    if ( event.call == SdkCall::entryAllocate ) {
        return text + " unit " + std::to_string( event.unit ) + " " + event.table;
    }
    text += " entry " + std::to_string( event.handle );
    if ( !event.table.empty() ) {
        text += " " + event.table;
    }
    switch ( event.call ) {
    case SdkCall::entryAttribSet:
        return text + " " + nameOr( event.attributeName, event.attribute );
    case SdkCall::entryCommit:
    case SdkCall::ptEntryCommit:
        return text + " " + nameOr( event.opcodeName, event.opcode ) + " " +
               nameOr( event.priorityName, event.priority );
    case SdkCall::entryFieldAdd:
        return text + " " + event.field + " =" + valuesText( event );
    case SdkCall::entryFieldArrayAdd:
        text += " " + event.field + " from " + std::to_string( event.startIndex ) + " count " +
                std::to_string( event.count ) + " =" + valuesText( event );
        return event.values.size() < event.count ? text + " ..." : text;
    case SdkCall::entryFieldGet:
        return text + " " + event.field;
    case SdkCall::entryFieldSymbolAdd:
        return text + " " + event.field + " = " + event.symbol;
    default:
        return text;
    }
}

std::string operationResult( const Event & event ) {
    std::string text;
    if ( event.rc >= 0 && event.call == SdkCall::entryAllocate ) {
        text = " entry " + std::to_string( event.handle );
    }
    if ( event.call == SdkCall::entryFieldGet ) {
        text = valuesText( event );
    }
    return text + " rc " + std::to_string( event.rc );
}

} // namespace

std::string toText( const Event & event ) {
    std::string text( name( event.call ) );
    std::string result;
    switch ( kind( event.call ) ) {
    case SdkCallKind::operation:
        text = operationText( event );
        result = operationResult( event );
        break;
    case SdkCallKind::text:
        text += " " + std::to_string( event.rc );
        result = " \"" + event.text + "\"";
        break;
    case SdkCallKind::constant:
        result = " " + ( event.text.empty() ? std::to_string( event.result ) : event.text );
        break;
    case SdkCallKind::hook:
        return text;
    }
    return event.returned ? text + " ->" + result : text;
}

struct Recorder::State {
    mutable std::mutex mutex;
    std::vector<Event> events;
    bool keepConstants = true;
    HandleDirectory entries;

    Observer observer; // set while no call is under way

    // The numbers of the inner SDK's constants. Those of different kinds may be equal.
    struct Constant {
        uint32_t number;
        SdkCall call;
    };
    std::vector<Constant> opcodes;
    std::vector<Constant> ptOpcodes;
    std::vector<Constant> priorities;
    std::vector<Constant> attributes;
    uint32_t invalidHandle = 0;

    static std::string nameOf( const std::vector<Constant> & constants, uint32_t number ) {
        const auto it = std::find_if( constants.begin(), constants.end(),
                                      [&]( const Constant & c ) { return c.number == number; } );
        return it == constants.end() ? std::string() : std::string( name( it->call ) );
    }

    Event entryEvent( SdkCall call, uint32_t handle ) const {
        const std::lock_guard lock( mutex );
        HandleDirectory::Entry entry = entries.find( handle );
        return {
            .call = call, .handle = handle, .unit = entry.unit, .table = std::move( entry.table ) };
    }

    Event fieldEvent( SdkCall call, uint32_t handle, const char * field ) const {
        Event event = entryEvent( call, handle );
        event.field = field ? field : "";
        return event;
    }

    Event commitEvent( SdkCall call, uint32_t handle, uint32_t opcode, uint32_t priority ) const {
        Event event = entryEvent( call, handle );
        event.opcode = opcode;
        event.opcodeName = nameOf( call == SdkCall::entryCommit ? opcodes : ptOpcodes, opcode );
        event.priority = priority;
        event.priorityName = nameOf( priorities, priority );
        return event;
    }

    // Makes one call between the two looks of the observer, and writes it down. `make` puts what
    // the call returns into the event.
    template <typename Make>
    Event record( Event event, Make && make ) {
        if ( observer ) {
            observer( Moment::before, event );
        }
        make( event );
        event.returned = true;
        if ( observer ) {
            observer( Moment::after, event );
        }
        const std::lock_guard lock( mutex );
        if ( keepConstants || kind( event.call ) != SdkCallKind::constant ) {
            events.push_back( event );
        }
        return event;
    }

    // The same for each kind of call; `make` returns what the call returns.
    template <typename Make>
    int operation( Event event, Make && make ) {
        return record( std::move( event ), [&]( Event & e ) { e.rc = make( e ); } ).rc;
    }

    template <typename Make>
    uint32_t number( SdkCall call, Make && make ) {
        return record( { .call = call }, [&]( Event & e ) { e.result = make(); } ).result;
    }

    template <typename Make>
    const char * text( Event event, Make && make ) {
        const char * returned = nullptr;
        record( std::move( event ), [&]( Event & e ) {
            returned = make();
            e.text = returned ? returned : "";
        } );
        return returned;
    }
};

Recorder::Recorder( Shim::Sdk & inner ) : inner_( inner ), state_( std::make_unique<State>() ) {
    state_->opcodes = { { inner.BCMLT_OPCODE_DELETE(), SdkCall::opcodeDelete },
                        { inner.BCMLT_OPCODE_INSERT(), SdkCall::opcodeInsert },
                        { inner.BCMLT_OPCODE_LOOKUP(), SdkCall::opcodeLookup },
                        { inner.BCMLT_OPCODE_UPDATE(), SdkCall::opcodeUpdate } };
    state_->ptOpcodes = { { inner.BCMLT_PT_OPCODE_GET(), SdkCall::ptOpcodeGet },
                          { inner.BCMLT_PT_OPCODE_MODIFY(), SdkCall::ptOpcodeModify },
                          { inner.BCMLT_PT_OPCODE_SET(), SdkCall::ptOpcodeSet } };
    state_->priorities = { { inner.BCMLT_PRIORITY_NORMAL(), SdkCall::priorityNormal } };
    state_->attributes = { { inner.BCMLT_ENT_ATTR_GET_FROM_HW(), SdkCall::attrGetFromHw } };
    state_->invalidHandle = inner.BCMLT_INVALID_HDL();
}

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

const char * Recorder::errmsg( int rc ) noexcept {
    return state_->text( { .call = SdkCall::errmsg, .rc = rc },
                         [&] { return inner_.errmsg( rc ); } );
}

uint32_t Recorder::BCMLT_ENT_ATTR_GET_FROM_HW() noexcept {
    return state_->number( SdkCall::attrGetFromHw,
                           [&] { return inner_.BCMLT_ENT_ATTR_GET_FROM_HW(); } );
}

uint32_t Recorder::BCMLT_OPCODE_DELETE() noexcept {
    return state_->number( SdkCall::opcodeDelete, [&] { return inner_.BCMLT_OPCODE_DELETE(); } );
}

uint32_t Recorder::BCMLT_OPCODE_INSERT() noexcept {
    return state_->number( SdkCall::opcodeInsert, [&] { return inner_.BCMLT_OPCODE_INSERT(); } );
}

uint32_t Recorder::BCMLT_OPCODE_LOOKUP() noexcept {
    return state_->number( SdkCall::opcodeLookup, [&] { return inner_.BCMLT_OPCODE_LOOKUP(); } );
}

uint32_t Recorder::BCMLT_OPCODE_UPDATE() noexcept {
    return state_->number( SdkCall::opcodeUpdate, [&] { return inner_.BCMLT_OPCODE_UPDATE(); } );
}

uint32_t Recorder::BCMLT_PRIORITY_NORMAL() noexcept {
    return state_->number( SdkCall::priorityNormal,
                           [&] { return inner_.BCMLT_PRIORITY_NORMAL(); } );
}

uint32_t Recorder::BCMLT_PT_OPCODE_GET() noexcept {
    return state_->number( SdkCall::ptOpcodeGet, [&] { return inner_.BCMLT_PT_OPCODE_GET(); } );
}

uint32_t Recorder::BCMLT_PT_OPCODE_MODIFY() noexcept {
    return state_->number( SdkCall::ptOpcodeModify,
                           [&] { return inner_.BCMLT_PT_OPCODE_MODIFY(); } );
}

uint32_t Recorder::BCMLT_PT_OPCODE_SET() noexcept {
    return state_->number( SdkCall::ptOpcodeSet, [&] { return inner_.BCMLT_PT_OPCODE_SET(); } );
}

int Recorder::bcmlt_entry_allocate( int unit, const char * table, uint32_t * handle ) noexcept {
    Event event{ .call = SdkCall::entryAllocate,
                 .handle = state_->invalidHandle,
                 .unit = unit,
                 .table = table ? table : "" };
    return state_->operation( std::move( event ), [&]( Event & e ) {
        const int rc = inner_.bcmlt_entry_allocate( unit, table, handle );
        if ( rc >= 0 && handle ) {
            e.handle = *handle;
        }
        if ( e.handle != state_->invalidHandle ) {
            const std::lock_guard lock( state_->mutex );
            state_->entries.add( e.handle, unit, e.table );
        }
        return rc;
    } );
}

int Recorder::bcmlt_entry_attrib_set( uint32_t handle, uint32_t attribute ) noexcept {
    Event event = state_->entryEvent( SdkCall::entryAttribSet, handle );
    event.attribute = attribute;
    event.attributeName = State::nameOf( state_->attributes, attribute );
    return state_->operation( std::move( event ), [&]( Event & ) {
        return inner_.bcmlt_entry_attrib_set( handle, attribute );
    } );
}

int Recorder::bcmlt_entry_commit( uint32_t handle, uint32_t opcode, uint32_t priority ) noexcept {
    return state_->operation(
        state_->commitEvent( SdkCall::entryCommit, handle, opcode, priority ),
        [&]( Event & ) { return inner_.bcmlt_entry_commit( handle, opcode, priority ); } );
}

int Recorder::bcmlt_entry_field_add( uint32_t handle, const char * field,
                                     uint64_t value ) noexcept {
    Event event = state_->fieldEvent( SdkCall::entryFieldAdd, handle, field );
    event.values = { value };
    return state_->operation( std::move( event ), [&]( Event & ) {
        return inner_.bcmlt_entry_field_add( handle, field, value );
    } );
}

int Recorder::bcmlt_entry_field_array_add( uint32_t handle, const char * field, uint32_t startIndex,
                                           const uint64_t * values, uint32_t count ) noexcept {
    Event event = state_->fieldEvent( SdkCall::entryFieldArrayAdd, handle, field );
    event.startIndex = startIndex;
    event.count = count;
    if ( values ) {
        event.values.assign( values, values + std::min( count, maxRecordedValues ) );
    }
    return state_->operation( std::move( event ), [&]( Event & ) {
        return inner_.bcmlt_entry_field_array_add( handle, field, startIndex, values, count );
    } );
}

int Recorder::bcmlt_entry_field_get( uint32_t handle, const char * field,
                                     uint64_t * value ) noexcept {
    return state_->operation(
        state_->fieldEvent( SdkCall::entryFieldGet, handle, field ), [&]( Event & e ) {
            const int rc = inner_.bcmlt_entry_field_get( handle, field, value );
            if ( rc >= 0 && value ) {
                e.values = { *value };
            }
            return rc;
        } );
}

int Recorder::bcmlt_entry_field_symbol_add( uint32_t handle, const char * field,
                                            const char * symbol ) noexcept {
    Event event = state_->fieldEvent( SdkCall::entryFieldSymbolAdd, handle, field );
    event.symbol = symbol ? symbol : "";
    return state_->operation( std::move( event ), [&]( Event & ) {
        return inner_.bcmlt_entry_field_symbol_add( handle, field, symbol );
    } );
}

int Recorder::bcmlt_entry_free( uint32_t handle ) noexcept {
    return state_->operation( state_->entryEvent( SdkCall::entryFree, handle ), [&]( Event & ) {
        HandleDirectory::Entry entry;
        {
            const std::lock_guard lock( state_->mutex );
            entry = state_->entries.take( handle );
        }
        const int rc = inner_.bcmlt_entry_free( handle );
        if ( rc < 0 && entry.unit >= 0 ) {
            const std::lock_guard lock( state_->mutex );
            state_->entries.add( handle, entry.unit, entry.table );
        }
        return rc;
    } );
}

int Recorder::bcmlt_pt_entry_commit( uint32_t handle, uint32_t opcode,
                                     uint32_t priority ) noexcept {
    return state_->operation(
        state_->commitEvent( SdkCall::ptEntryCommit, handle, opcode, priority ),
        [&]( Event & ) { return inner_.bcmlt_pt_entry_commit( handle, opcode, priority ); } );
}

uint32_t Recorder::BCMLT_INVALID_HDL() noexcept {
    return state_->number( SdkCall::invalidHandle, [&] { return inner_.BCMLT_INVALID_HDL(); } );
}

const char * Recorder::ENABLEs() noexcept {
    return state_->text( { .call = SdkCall::enableName }, [&] { return inner_.ENABLEs(); } );
}

const char * Recorder::NUM_LANESs() noexcept {
    return state_->text( { .call = SdkCall::numLanesName }, [&] { return inner_.NUM_LANESs(); } );
}

const char * Recorder::PC_PHYS_PORT_IDs() noexcept {
    return state_->text( { .call = SdkCall::pcPhysPortIdName },
                         [&] { return inner_.PC_PHYS_PORT_IDs(); } );
}

const char * Recorder::PC_PORT_PHYS_MAPs() noexcept {
    return state_->text( { .call = SdkCall::pcPortPhysMapName },
                         [&] { return inner_.PC_PORT_PHYS_MAPs(); } );
}

const char * Recorder::PC_PORTs() noexcept {
    return state_->text( { .call = SdkCall::pcPortName }, [&] { return inner_.PC_PORTs(); } );
}

const char * Recorder::PORT_IDs() noexcept {
    return state_->text( { .call = SdkCall::portIdName }, [&] { return inner_.PORT_IDs(); } );
}

const char * Recorder::SPEEDs() noexcept {
    return state_->text( { .call = SdkCall::speedName }, [&] { return inner_.SPEEDs(); } );
}

void Recorder::preCallHook() noexcept {
    state_->record( { .call = SdkCall::preCallHook }, [&]( Event & ) { inner_.preCallHook(); } );
}

void Recorder::failureHook() noexcept {
    state_->record( { .call = SdkCall::failureHook }, [&]( Event & ) { inner_.failureHook(); } );
}

} // namespace Interpose
