#include "tools/recording/Check.h"

#include "text/NearestName.h"
#include "tools/model/Errors.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <utility>

namespace Tool {

namespace {

using Moment = TraceReader::Event::Moment;
using TraceReader::SdkCall;

// How many freed entries, and how many rows, are kept in mind.
constexpr std::size_t maxFreed = 1 << 16;
constexpr std::size_t maxWritten = 1 << 20;

constexpr std::array<CheckRuleText, checkRuleCount> ruleTexts = { {
    { "leaked", "An entry is allocated and never freed." },
    { "used-after-free",
      "An operation is made on an entry that is not allocated any more, or never was." },
    { "freed-twice", "An entry is freed that has been freed." },
    { "no-key", "An entry is committed without a field that its row is addressed by." },
    { "not-committed", "Fields are added to an entry, and it is freed without a commit of them." },
    { "lock-held", "The activity lock is held during an operation of a recipe that gives it up." },
    { "no-hook", "An operation that the library guards is made without the pre-call hook." },
    { "after-failure", "A thread goes on after a guarded call that failed." },
    { "stale-modify", "A physical row is read from the SDK's cache, changed and written back: what "
                      "the hardware changed by itself is lost." },
    { "written-twice",
      "A row is written with the values that it was last written with, by the same kind of commit." },
    { "other-thread", "An entry is used by another thread than the one that allocated it." },
} };

// The tables of the two recipes that keep the activity lock.
constexpr std::array<std::string_view, 2> tablesOfKeptLock = { "EGR_TUNNEL_ECN_ENCAPm",
                                                               "ING_TUNNEL_ECN_DECAPm" };

// The operations that the library makes without its guard: it looks at their codes itself.
bool isUnguarded( const TraceReader::RecordedCall & call ) {
    const std::string_view table = call.table;
    const bool isOfSeeds = table.starts_with( "IPOST_LAG_RAND_NUM_" );
    switch ( call.call ) {
    case SdkCall::entryAllocate:
        return isOfSeeds || table.ends_with( "_HASH_CONTROLm" );
    case SdkCall::entryFieldAdd:
        return ( isOfSeeds && call.field == "SEED" ) || call.field == "RANGE_TABLE_INDEX";
    case SdkCall::entryFieldArrayAdd:
        return isOfSeeds && call.field == "SEED";
    case SdkCall::entryCommit:
        return call.opcode.name == "BCMLT_OPCODE_LOOKUP" ||
               ( call.opcode.name == "BCMLT_OPCODE_INSERT" &&
                 table == "R_L2_TUNNEL_DEFAULT_NETWORK_SVP" );
    default:
        return false;
    }
}

// The lookup with which programPacketDropForMtuError sees that the SDK refuses one without a key.
bool isMeantWithoutKey( const TraceReader::RecordedCall & call ) {
    return call.table == "MON_ING_DROP_EVENT" && call.opcode.name == "BCMLT_OPCODE_LOOKUP" &&
           call.rc < 0;
}

CheckedCall placeOf( const TraceReader::RecordedCall & call ) {
    return { .number = call.number,
             .time = call.hasInputs() ? call.before.time : call.after.time,
             .thread = call.thread,
             .call = call.call,
             .rc = call.rc };
}

std::uint64_t mixed( std::uint64_t hash, std::uint64_t value ) {
    hash = ( hash ^ value ) * 0x9E37'79B9'7F4A'7C15;
    return hash ^ ( hash >> 29 );
}

std::uint64_t valuesHash( const TraceReader::RecordedCall & call ) {
    std::uint64_t hash = std::hash<std::string>()( call.symbol );
    for ( const std::uint64_t value : call.values )
        hash = mixed( hash, value );
    return hash;
}

// Whether a commit writes the row, and whether it leaves alone what the entry does not carry.
bool isWrite( const std::string & opcode ) {
    return opcode == "BCMLT_OPCODE_INSERT" || opcode == "BCMLT_OPCODE_UPDATE" ||
           opcode == "BCMLT_PT_OPCODE_SET" || opcode == "BCMLT_PT_OPCODE_MODIFY";
}
bool keepsOthers( const std::string & opcode ) {
    return opcode == "BCMLT_OPCODE_UPDATE" || opcode == "BCMLT_PT_OPCODE_MODIFY";
}

std::vector<std::string> keysOf( const Sim::Table & table ) {
    std::vector<std::string> keys;
    if ( table.isPhysical() ) {
        if ( table.size.rows > 1 )
            keys.emplace_back( Sim::indexField );
        if ( table.size.instances > 1 )
            keys.emplace_back( Sim::instanceField );
        if ( table.size.ports > 0 )
            keys.emplace_back( Sim::portField );
    }
    for ( const Sim::Field & field : table.fields ) {
        if ( field.role == Sim::FieldRole::key )
            keys.push_back( field.name );
    }
    return keys;
}

} // namespace

std::span<const CheckRuleText, checkRuleCount> checkRules() { return ruleTexts; }

CheckRule checkRuleByName( std::string_view name ) {
    std::vector<std::string_view> names;
    for ( std::size_t i = 0; i < checkRuleCount; ++i ) {
        if ( ruleTexts[i].name == name )
            return static_cast<CheckRule>( i );
        names.push_back( ruleTexts[i].name );
    }
    const std::string nearest = Text::nameHint( name, names );
    throw InputError( fmt::format( "there is no rule \"{}\"", name ),
                      fmt::format( "{}{}\"cairn-lt check --list\" shows all", nearest,
                                   nearest.empty() ? "" : "; " ) );
}

Check::Check( Options options, OnFinding onFinding )
    : options_( std::move( options ) ), onFinding_( std::move( onFinding ) ) {}

void Check::take( const TraceReader::Event & event ) {
    if ( event.moment == Moment::message )
        return;
    const Call & call = *event.call;
    if ( TraceReader::isHook( call.call ) ) {
        takeHook( event );
        return;
    }
    if ( event.moment == Moment::before ) {
        if ( call.call == SdkCall::entryFree ) {
            if ( const auto entry = entries_.find( call.handle ); entry != entries_.end() )
                entry->second.freeCall = call.number;
        }
        return;
    }
    ++operations_;
    if ( std::erase( freedEarly_, call.number ) == 0 && call.hasInputs() )
        takeOperation( call );
}

void Check::finish() {
    std::vector<const Entry *> left;
    for ( const auto & [handle, entry] : entries_ )
        left.push_back( &entry );
    std::sort( left.begin(), left.end(), []( const Entry * one, const Entry * other ) {
        return one->allocate.number < other->allocate.number;
    } );
    for ( const Entry * entry : left ) {
        std::vector<CheckedCall> calls{ entry->allocate };
        if ( entry->last.number != entry->allocate.number )
            calls.push_back( entry->last );
        find( CheckRule::leaked,
              fmt::format( "an entry of {} on unit {} is never freed", entry->table->name,
                           entry->table->unit ),
              std::move( calls ) );
    }
}

void Check::takeHook( const TraceReader::Event & event ) {
    Thread & thread = threads_[event.call->thread];
    if ( event.call->call == SdkCall::failureHook ) {
        if ( !thread.failure )
            thread.failure = placeOf( *event.call );
        return;
    }
    thread.isGuarded = true;
    if ( thread.failure && thread.failure->number != 0 ) {
        find( CheckRule::afterFailure, "the thread goes on after a guarded call that failed",
              { *thread.failure, placeOf( *event.call ) } );
        thread.failure->number = 0; // it is said once
    }
}

void Check::takeOperation( const Call & call ) {
    Thread & thread = threads_[call.thread];
    checkGuard( call, thread );
    checkLock( call );
    if ( call.call == SdkCall::entryAllocate ) {
        takeAllocate( call );
        return;
    }
    const auto entry = entries_.find( call.handle );
    if ( entry == entries_.end() )
        takeUnknown( call );
    else
        takeUse( call, entry->second );
}

void Check::checkGuard( const Call & call, Thread & thread ) {
    if ( thread.failure && thread.failure->number != 0 ) {
        find( CheckRule::afterFailure, "the thread goes on after a guarded call that failed",
              { *thread.failure, placeOf( call ) } );
        thread.failure->number = 0;
    }
    if ( !thread.isGuarded && !isUnguarded( call ) )
        find( CheckRule::noHook,
              fmt::format( "{} on {} is made without the pre-call hook",
                           TraceReader::name( call.call ),
                           call.table.empty() ? "an unknown table" : call.table ),
              { placeOf( call ) } );
    if ( thread.isGuarded && call.rc < 0 && !thread.failure )
        thread.failure = placeOf( call );
    thread.isGuarded = false;
}

void Check::checkLock( const Call & call ) {
    if ( !call.isLockHeld )
        isLockUnknown_ = true;
    else if ( *call.isLockHeld && std::find( tablesOfKeptLock.begin(), tablesOfKeptLock.end(),
                                             call.table ) == tablesOfKeptLock.end() )
        find( CheckRule::lockHeld,
              fmt::format( "the activity lock is held during {} on {}",
                           TraceReader::name( call.call ),
                           call.table.empty() ? "an unknown table" : call.table ),
              { placeOf( call ) } );
}

void Check::takeAllocate( const Call & call ) {
    if ( call.rc < 0 || !call.hasReturned() || !call.unit )
        return;
    // Another thread was freeing the entry when its handle was given again.
    if ( const auto old = entries_.find( call.handle ); old != entries_.end() ) {
        if ( old->second.freeCall != 0 )
            freedEarly_.push_back( old->second.freeCall );
        entries_.erase( old );
    }
    freed_.erase( call.handle );
    Entry & entry = entries_[call.handle];
    entry.table = tableOf( call );
    entry.allocate = placeOf( call );
    entry.last = entry.allocate;
}

void Check::takeUse( const Call & call, Entry & entry ) {
    const CheckedCall place = placeOf( call );
    if ( call.thread != entry.allocate.thread && !entry.hasCrossed ) {
        entry.hasCrossed = true;
        find( CheckRule::otherThread,
              fmt::format( "an entry of {} on unit {} is used by another thread than the one that "
                           "allocated it",
                           entry.table->name, entry.table->unit ),
              { entry.allocate, place } );
    }
    entry.last = place;
    if ( call.call == SdkCall::entryFree ) {
        takeFree( call );
    } else if ( call.call == SdkCall::entryAttribSet && call.rc >= 0 ) {
        entry.readsHardware =
            entry.readsHardware || call.attribute.name == "BCMLT_ENT_ATTR_GET_FROM_HW";
    } else if ( isFieldAdd( call.call ) && call.rc >= 0 ) {
        carry( call, entry );
    } else if ( isCommit( call.call ) ) {
        takeCommit( call, entry );
    }
}

void Check::takeFree( const Call & call ) {
    if ( call.rc < 0 || !call.hasReturned() )
        return;
    const auto entry = entries_.find( call.handle );
    if ( entry->second.isFilled )
        find( CheckRule::notCommitted,
              fmt::format( "an entry of {} on unit {} is filled and freed without a commit",
                           entry->second.table->name, entry->second.table->unit ),
              { entry->second.allocate, placeOf( call ) } );
    entries_.erase( entry );
    if ( freed_.insert_or_assign( call.handle, placeOf( call ) ).second )
        freedInOrder_.push_back( call.handle );
    if ( freedInOrder_.size() > maxFreed ) {
        freed_.erase( freedInOrder_.front() );
        freedInOrder_.pop_front();
    }
}

// An operation on an entry that is not there.
void Check::takeUnknown( const Call & call ) {
    const auto freed = freed_.find( call.handle );
    if ( freed != freed_.end() ) {
        const bool isFree = call.call == SdkCall::entryFree;
        find( isFree ? CheckRule::freedTwice : CheckRule::usedAfterFree,
              fmt::format( "{} on an entry that has been freed", TraceReader::name( call.call ) ),
              { freed->second, placeOf( call ) } );
    } else if ( options_.hasLostBeginning && options_.hasLostBeginning() ) {
        ++ofOlderEntries_;
    } else {
        find( CheckRule::usedAfterFree,
              fmt::format( "{} on an entry that is not allocated", TraceReader::name( call.call ) ),
              { placeOf( call ) } );
    }
}

// What is added again replaces what was added before.
void Check::carry( const Call & call, Entry & entry ) {
    entry.isFilled = true;
    const Carried added{ .field = intern( call.field ),
                         .startIndex = call.startIndex,
                         .values = valuesHash( call ) };
    const auto old =
        std::find_if( entry.carried.begin(), entry.carried.end(), [&]( const Carried & each ) {
            return each.field == added.field && each.startIndex == added.startIndex;
        } );
    if ( old != entry.carried.end() )
        *old = added;
    else
        entry.carried.push_back( added );
}

void Check::takeCommit( const Call & call, Entry & entry ) {
    entry.isFilled = false;
    for ( const std::string & key : entry.table->keys ) {
        const bool isThere =
            std::any_of( entry.carried.begin(), entry.carried.end(),
                         [&]( const Carried & each ) { return *each.field == key; } );
        if ( !isThere && !isMeantWithoutKey( call ) )
            find( CheckRule::noKey,
                  fmt::format( "an entry of {} on unit {} is committed without {}",
                               entry.table->name, entry.table->unit, key ),
                  { entry.allocate, placeOf( call ) } );
    }
    if ( call.opcode.name == "BCMLT_PT_OPCODE_GET" && call.rc >= 0 ) {
        entry.isReadFromCache = !entry.readsHardware;
        entry.read = placeOf( call );
        entry.isRead = true;
    }
    if ( !isWrite( call.opcode.name ) ) {
        if ( call.opcode.name == "BCMLT_OPCODE_DELETE" && call.rc >= 0 )
            takeWrite( call, entry );
        return;
    }
    if ( entry.isReadFromCache )
        find( CheckRule::staleModify,
              fmt::format( "a row of {} on unit {} is read from the cache, changed and written "
                           "back",
                           entry.table->name, entry.table->unit ),
              { entry.read, placeOf( call ) } );
    if ( call.rc >= 0 && call.hasReturned() )
        takeWrite( call, entry );
}

// A commit that has changed its row, or removed it.
void Check::takeWrite( const Call & call, const Entry & entry ) {
    const Table & table = *entry.table;
    if ( !table.isKnown )
        return;
    std::uint64_t row = mixed( 0, table.number );
    std::uint64_t values = 0;
    for ( const Carried & each : entry.carried ) {
        const std::uint64_t hash =
            mixed( mixed( std::hash<std::string>()( *each.field ), each.startIndex ), each.values );
        const bool isKey =
            std::find( table.keys.begin(), table.keys.end(), *each.field ) != table.keys.end();
        ( isKey ? row : values ) += hash; // the order in which they were added does not matter
    }
    const auto known = written_.find( row );
    if ( call.opcode.name == "BCMLT_OPCODE_DELETE" ) {
        if ( known != written_.end() )
            known->second = {};
        return;
    }
    const Written now{
        .values = values, .opcode = call.opcode, .isRead = entry.isRead, .call = placeOf( call ) };
    if ( known == written_.end() ) {
        written_.emplace( row, now );
        writtenInOrder_.push_back( row );
        if ( writtenInOrder_.size() > maxWritten ) {
            written_.erase( writtenInOrder_.front() );
            writtenInOrder_.pop_front();
        }
        return;
    }
    const Written & last = known->second;
    const bool isAsLast = last.opcode == now.opcode &&
                          ( keepsOthers( call.opcode.name ) || last.isRead == now.isRead );
    if ( last.call.number != 0 && last.values == now.values && isAsLast )
        find( CheckRule::writtenTwice,
              fmt::format( "a row of {} on unit {} is written with the values that it was last "
                           "written with",
                           table.name, table.unit ),
              { last.call, now.call } );
    known->second = now;
}

const Check::Table * Check::tableOf( const Call & call ) {
    const auto [place, isNew] = tables_.try_emplace( { *call.unit, call.table } );
    Table & table = place->second;
    if ( isNew ) {
        table.name = call.table;
        table.unit = *call.unit;
        table.number = tables_.size();
        const Sim::Schema * schema = options_.schema( *call.unit );
        const Sim::Table * found = schema != nullptr ? schema->find( call.table ) : nullptr;
        table.isKnown = found != nullptr;
        if ( found != nullptr )
            table.keys = keysOf( *found );
        else
            unknownTables_.insert( call.table );
    }
    return &table;
}

const std::string * Check::intern( const std::string & text ) {
    return &*texts_.insert( text ).first;
}

void Check::find( CheckRule rule, std::string what, std::vector<CheckedCall> calls ) {
    if ( !options_.ignored.contains( rule ) )
        onFinding_( { .rule = rule, .what = std::move( what ), .calls = std::move( calls ) } );
}

} // namespace Tool
