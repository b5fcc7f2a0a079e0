#include "tools/recording/Replay.h"

#include "interpose/Operation.h"
#include "tools/model/Errors.h"

#include <fmt/format.h>

#include <algorithm>

namespace Tool {

namespace {

using Moment = TraceReader::Event::Moment;
using Recorded = TraceReader::SdkCall;
using Interpose::SdkCall;

// How many freed entries are kept in mind.
constexpr std::size_t maxFreed = 1 << 20;

// No chip gives this handle: its entries are numbered upwards.
constexpr std::uint32_t handleOfNobody = 0xFFFF'FFFF;

constexpr std::array<SdkCall, 9> operations = {
    SdkCall::entryAllocate,       SdkCall::entryAttribSet,     SdkCall::entryCommit,
    SdkCall::entryFieldAdd,       SdkCall::entryFieldArrayAdd, SdkCall::entryFieldGet,
    SdkCall::entryFieldSymbolAdd, SdkCall::entryFree,          SdkCall::ptEntryCommit,
};

// The recorder writes a text that was null as "(null)".
const char * textOf( const std::string & recorded ) {
    return recorded == "(null)" ? nullptr : recorded.c_str();
}

} // namespace

Replay::Replay( Sim::Chip & chip, const ReplayRules & rules, std::string name,
                OnDivergence onDivergence )
    : chip_( chip ), rules_( rules ), name_( std::move( name ) ),
      onDivergence_( std::move( onDivergence ) ) {}

void Replay::take( const TraceReader::Event & event ) {
    recipes_.take( event );
    if ( event.moment == Moment::message ) {
        if ( const auto hardware = TraceReader::hardwareChangeOf( event.record ) )
            change( *hardware );
        return;
    }
    const Call & call = *event.call;
    if ( TraceReader::isHook( call.call ) ) {
        isGuarded_[call.thread] = call.call == Recorded::preCallHook;
        return;
    }
    switch ( event.moment ) {
    case Moment::before:
        if ( call.call == Recorded::entryFree ) {
            if ( const auto entry = entries_.find( call.handle ); entry != entries_.end() )
                entry->second.freeCall = call.number;
        }
        break;
    case Moment::after:
        if ( !call.hasInputs() || !call.isWhole )
            ++counts_.withoutInputs;
        else if ( std::erase( freedEarly_, call.number ) == 0 )
            perform( call );
        isGuarded_[call.thread] = false;
        remember( call );
        break;
    default:
        ++counts_.neverReturned;
    }
}

void Replay::change( const TraceReader::HardwareChange & change ) {
    const Sim::RowId row{ .index = change.index, .instance = change.instance, .port = change.port };
    if ( chip_.pokeHardware( change.unit, change.table, row, change.field, change.value,
                             change.element ) != Sim::Rc::ok )
        throw InputError( name_, 0, "the hardware changed a row by itself: " + chip_.lastError(),
                          "say with --chip what the chips are" );
}

void Replay::perform( const Call & call ) {
    if ( call.call == Recorded::entryAllocate ) {
        allocate( call );
        return;
    }
    std::uint32_t handle = handleOfNobody;
    const auto entry = entries_.find( call.handle );
    const bool isLive = entry != entries_.end();
    if ( isLive ) {
        handle = entry->second.handle;
        if ( handle == 0 ) {
            ++counts_.ofLostEntries;
            if ( call.call == Recorded::entryFree && call.rc >= 0 )
                forget( call.handle );
            return;
        }
    } else if ( const auto freed = freed_.find( call.handle ); freed != freed_.end() ) {
        handle = freed->second;
    } else if ( call.rc >= 0 ) {
        ++counts_.ofOlderEntries;
        return;
    }
    const Outcome outcome =
        isLive && call.rc < 0 ? judge( handle, call ) : performOn( handle, call );
    settle( call, outcome, isLive ? std::optional( handle ) : std::nullopt );
    if ( isLive && call.call == Recorded::entryFree && call.rc >= 0 )
        forget( call.handle );
}

void Replay::allocate( const Call & call ) {
    checkTable( call );
    std::uint32_t handle = 0;
    const int rc = chip_.bcmlt_entry_allocate( *call.unit, textOf( call.table ), &handle );
    // An entry that nobody got then, because the call failed or left its handle invalid.
    if ( rc >= 0 && ( call.rc < 0 || call.handle == 0 ) )
        chip_.bcmlt_entry_free( handle );
    if ( call.rc >= 0 && call.handle != 0 ) {
        finishEarlyFree( call.handle );
        entries_[call.handle] = { .handle = rc >= 0 ? handle : 0 };
    }
    settle( call, { .rc = rc } );
}

// Performs the operation on an entry of the chip.
Replay::Outcome Replay::performOn( std::uint32_t handle, const Call & call ) {
    std::uint64_t result = 0;
    const int rc = Interpose::perform(
        chip_,
        { .call = operations[static_cast<std::size_t>( call.call )],
          .handle = handle,
          .field = textOf( call.field ),
          .symbol = textOf( call.symbol ),
          .values = call.values.data(),
          .startIndex = call.startIndex,
          .count = call.count,
          .result = &result,
          .opcode = isCommit( call.call ) ? numberOf( call.opcode ) : 0,
          .priority = isCommit( call.call ) ? numberOf( call.priority ) : 0,
          .attribute = call.call == Recorded::entryAttribSet ? numberOf( call.attribute ) : 0 } );
    Outcome outcome{ .rc = rc };
    if ( call.call == Recorded::entryFieldGet && rc >= 0 )
        outcome.value = result;
    return outcome;
}

// What the chip would return; neither its rows nor the entry change.
Replay::Outcome Replay::judge( std::uint32_t handle, const Call & call ) {
    switch ( call.call ) {
    case Recorded::entryFieldGet:
        return performOn( handle, call );
    case Recorded::entryCommit:
        return {
            .rc = chip_.judgeCommit( handle, numberOf( call.opcode ), numberOf( call.priority ) ) };
    case Recorded::ptEntryCommit:
        return { .rc = chip_.judgePtCommit( handle, numberOf( call.opcode ),
                                            numberOf( call.priority ) ) };
    case Recorded::entryFree:
        return {};
    default:
        break;
    }
    // What an entry takes does not depend on what it carries: another one of the table will do.
    std::uint32_t scratch = 0;
    if ( !call.unit || chip_.bcmlt_entry_allocate( *call.unit, call.table.c_str(), &scratch ) < 0 )
        return { .rc = call.rc };
    const Outcome outcome = performOn( scratch, call );
    chip_.bcmlt_entry_free( scratch );
    return outcome;
}

// Compares what came with what was recorded.
void Replay::settle( const Call & call, const Outcome & outcome,
                     std::optional<std::uint32_t> liveHandle ) {
    ++counts_.operations;
    if ( onJudgement_ )
        onJudgement_( { .call = call, .rc = outcome.rc, .value = outcome.value } );
    const bool isOtherCode =
        rules_.ignoresCodes ? ( outcome.rc < 0 ) != ( call.rc < 0 ) : outcome.rc != call.rc;
    const bool isOtherHandle =
        call.call == Recorded::entryAllocate && call.rc >= 0 && outcome.rc >= 0 && call.handle == 0;
    const bool isOtherValue =
        !rules_.ignoresValues && call.rc >= 0 && outcome.value && *outcome.value != call.value;
    if ( !isOtherCode && !isOtherHandle && !isOtherValue )
        return;
    if ( isOtherHandle || ( outcome.rc >= 0 && call.rc < 0 && isGuarded_[call.thread] ) ) {
        ++counts_.failuresFromOutside;
        return;
    }
    const std::string chipSays = outcome.rc < 0 ? chip_.lastError() : std::string();
    if ( liveHandle && rules_.hasLostBeginning && rules_.hasLostBeginning() &&
         isOnUnknownRow( call, *liveHandle ) ) {
        ++counts_.onUnknownRows;
        return;
    }
    ++counts_.divergences;
    onDivergence_( { .call = call,
                     .rc = outcome.rc,
                     .value = call.rc >= 0 ? outcome.value : std::nullopt,
                     .chipSays = chipSays,
                     .recipe = recipes_.of( call.thread ) } );
}

// Whether the operation is about a row, or a field, that no operation of the replay has written.
bool Replay::isOnUnknownRow( const Call & call, std::uint32_t handle ) {
    if ( !call.unit || ( !isCommit( call.call ) && call.call != Recorded::entryFieldGet ) )
        return false;
    const Sim::Schema * schema = chip_.schema( *call.unit );
    const Sim::Table * table = schema != nullptr ? schema->find( call.table ) : nullptr;
    if ( table == nullptr )
        return false;
    // The entry carries what addresses its row.
    const auto carried = [&]( std::string_view field, std::uint64_t & value ) {
        return chip_.bcmlt_entry_field_get( handle, std::string( field ).c_str(), &value ) >= 0;
    };
    Sim::RowId id;
    std::uint64_t value = 0;
    if ( table->isPhysical() ) {
        const std::array parts = { std::pair( Sim::indexField, &id.index ),
                                   std::pair( Sim::instanceField, &id.instance ),
                                   std::pair( Sim::portField, &id.port ) };
        for ( const auto & [name, part] : parts ) {
            if ( carried( name, value ) )
                *part = static_cast<std::uint32_t>( value );
        }
    }
    for ( const Sim::Field & field : table->fields ) {
        if ( field.role != Sim::FieldRole::key )
            continue;
        if ( !carried( field.name, value ) )
            return false;
        id.key.push_back( value );
    }
    const auto row = chip_.row( *call.unit, call.table, id );
    if ( !row || !row->touched )
        return true;
    if ( call.call != Recorded::entryFieldGet )
        return false;
    std::size_t element = 0;
    for ( const Sim::Field & field : table->fields ) {
        if ( field.name == call.field )
            return !row->written[element];
        element += field.length;
    }
    return false;
}

// The entry was being freed by another thread when an allocate gave its handle again.
void Replay::finishEarlyFree( std::uint32_t recorded ) {
    const auto entry = entries_.find( recorded );
    if ( entry == entries_.end() )
        return;
    if ( entry->second.handle != 0 )
        chip_.bcmlt_entry_free( entry->second.handle );
    if ( entry->second.freeCall != 0 )
        freedEarly_.push_back( entry->second.freeCall );
    entries_.erase( entry );
}

void Replay::forget( std::uint32_t recorded ) {
    const auto entry = entries_.find( recorded );
    if ( freed_.insert_or_assign( recorded, entry->second.handle ).second )
        freedInOrder_.push_back( recorded );
    entries_.erase( entry );
    if ( freedInOrder_.size() > maxFreed ) {
        freed_.erase( freedInOrder_.front() );
        freedInOrder_.pop_front();
    }
}

// What was allocated then has to be there now.
void Replay::checkTable( const Call & call ) const {
    if ( call.rc < 0 )
        return;
    const Sim::Schema * schema = chip_.schema( *call.unit );
    const auto refuse = [&]( const std::string & what ) {
        return InputError( name_, 0,
                           fmt::format( "call {} allocates an entry of {} on unit {}, {}",
                                        call.number, call.table, *call.unit, what ),
                           "say with --chip what the chips are" );
    };
    if ( schema == nullptr )
        throw refuse( "which is not there" );
    if ( schema->find( call.table ) == nullptr )
        throw refuse( "which has no such table" );
}

// The chip's number for what was a constant then.
std::uint32_t Replay::numberOf( const TraceReader::SdkConstant & constant ) {
    const auto known =
        std::find_if( constants_.begin(), constants_.end(),
                      [&]( const auto & pair ) { return pair.first == constant.number; } );
    if ( known != constants_.end() )
        return known->second;
    constexpr std::array names = {
        SdkCall::attrGetFromHw, SdkCall::opcodeDelete,   SdkCall::opcodeInsert,
        SdkCall::opcodeLookup,  SdkCall::opcodeUpdate,   SdkCall::priorityNormal,
        SdkCall::ptOpcodeGet,   SdkCall::ptOpcodeModify, SdkCall::ptOpcodeSet };
    // A number that was none of the SDK's constants is none of the chip's.
    std::uint32_t number = 0xFFFF'FFFF;
    for ( const SdkCall name : names ) {
        if ( Interpose::name( name ) == constant.name )
            number = Interpose::askNumber( chip_, name );
    }
    constants_.emplace_back( constant.number, number );
    return number;
}

void Replay::remember( const Call & call ) { latest_[remembered_++ % maxLatest] = call; }

std::vector<const TraceReader::RecordedCall *> Replay::latest() const {
    std::vector<const Call *> calls;
    for ( std::size_t i = remembered_ - std::min( remembered_, maxLatest ); i < remembered_; ++i )
        calls.push_back( &latest_[i % maxLatest] );
    return calls;
}

} // namespace Tool
