#include "tracereader/Recording.h"

#include <Fleetlog/CallFormat.h>

#include <algorithm>
#include <functional>
#include <map>
#include <set>
#include <tuple>
#include <unordered_map>
#include <utility>

namespace TraceReader {

namespace {

namespace Layout = Fleetlog::Format;
static_assert( Layout::callCount == sdkCallCount );

// What a recording can make its reader keep. Agents stay far below.
constexpr std::size_t maxDepth = 16; // calls of a thread within each other
constexpr std::size_t maxLongText = 1 << 16;
constexpr std::size_t maxLongArray = 1 << 20;
constexpr std::size_t maxEntries = 1 << 20;
constexpr std::size_t maxThreads = 1 << 16;

// What the records of a site are.
struct Role {
    enum class Kind {
        message,
        unknown, ///< of a recorder, and not understood
        before,
        after,
        text,
        values,
    };
    Kind kind = Kind::message;
    SdkCall call = SdkCall::entryFree;
};

// A later version may have more values behind those that are known.
bool beginsWith( std::string_view letters, std::string_view known ) noexcept {
    return letters.substr( 0, known.size() ) == known;
}

Role roleOf( const Site & site ) noexcept {
    if ( site.file != Layout::callSource )
        return {};
    const auto part = static_cast<Layout::CallPart>( site.line );
    if ( part == Layout::CallPart::text && beginsWith( site.letters, Layout::callTextLetters ) )
        return { Role::Kind::text };
    if ( part == Layout::CallPart::values && beginsWith( site.letters, Layout::callValuesLetters ) )
        return { Role::Kind::values };
    const auto call = sdkCallByName( site.function );
    if ( call ) {
        const auto & layout = Layout::callLayouts[static_cast<std::size_t>( *call )];
        if ( part == Layout::CallPart::before && beginsWith( site.letters, layout.before ) )
            return { Role::Kind::before, *call };
        if ( part == Layout::CallPart::after && beginsWith( site.letters, layout.after ) )
            return { Role::Kind::after, *call };
    }
    return { Role::Kind::unknown };
}

std::optional<bool> lockOf( std::uint32_t state ) noexcept {
    switch ( static_cast<Layout::LockState>( state ) ) {
    case Layout::LockState::free:
        return false;
    case Layout::LockState::held:
        return true;
    default:
        return std::nullopt;
    }
}

Stamp stampOf( const Record & record ) noexcept {
    return { record.file, record.offset, record.time, record.counter };
}

// Makes a call as if it were new, but for the memory that it has.
void reset( RecordedCall & call ) {
    RecordedCall fresh;
    const auto keep = []( auto & kept, auto & to ) {
        kept.clear();
        to = std::move( kept );
    };
    keep( call.table, fresh.table );
    keep( call.field, fresh.field );
    keep( call.symbol, fresh.symbol );
    keep( call.values, fresh.values );
    keep( call.opcode.name, fresh.opcode.name );
    keep( call.priority.name, fresh.priority.name );
    keep( call.attribute.name, fresh.attribute.name );
    call = std::move( fresh );
}

// What the next call of a thread has beyond the room of its own record.
struct Pieces {
    struct Text {
        std::string rest;
        std::size_t length = 0; ///< of all, by the last piece
    };
    Text texts[2];
    std::vector<std::uint64_t> values;
    std::size_t count = 0; ///< of all, by the last piece
};

} // namespace

std::string_view name( SdkCall call ) noexcept {
    return Layout::callLayouts[static_cast<std::size_t>( call )].name;
}

std::optional<SdkCall> sdkCallByName( std::string_view name ) noexcept {
    for ( std::size_t i = 0; i < Layout::callCount; ++i ) {
        if ( name == Layout::callLayouts[i].name )
            return static_cast<SdkCall>( i );
    }
    return std::nullopt;
}

class CallAssembler::Impl {
  public:
    bool take( const Record & record, Event & event );
    bool takeUnreturned( Event & event );

    std::vector<Finding> findings;
    std::uint64_t callsWithoutBefore = 0;

  private:
    struct ThreadState {
        std::size_t depth = 0;           ///< of the calls that have not returned
        std::vector<RecordedCall> calls; ///< these, and behind them memory for the next
        std::optional<Pieces> pieces;
    };

    // Threads of files with the same base of time, which are those of a process and its children.
    using ThreadKey = std::tuple<std::int64_t, std::uint32_t, std::uint32_t>;

    struct Entry {
        std::int32_t unit;
        const std::string * table; ///< in tables_
    };

    static std::uint64_t entryKey( const RecordedCall & call ) noexcept {
        return std::uint64_t( call.process ) << 32 | call.handle;
    }

    ThreadState * threadOf( const Record & record );
    void takeTextPiece( ThreadState & thread );
    void takeValuesPiece( ThreadState & thread );
    bool takeBefore( ThreadState & thread, const Record & record, SdkCall made, Event & event );
    bool takeAfter( ThreadState & thread, const Record & record, SdkCall made, Event & event );
    void takeInputs( RecordedCall & call, std::optional<Pieces> & pieces );
    void takeText( RecordedCall & call, std::string & text, const Value & value,
                   std::optional<Pieces> & pieces, std::size_t which ) const;
    void setEntry( RecordedCall & call );
    void addEntry( const Record & record, const RecordedCall & call );
    void find( const Record & record, std::string what );

    std::map<ThreadKey, ThreadState> threads_;
    ThreadKey lastKey_{}; // most records are of the thread of the one before
    ThreadState * lastThread_ = nullptr;
    std::unordered_map<const Site *, Role> roles_;
    std::set<const Site *> unknownSites_; ///< that a finding names
    std::unordered_map<std::uint64_t, Entry> entries_;
    std::set<std::string, std::less<>> tables_;
    std::vector<Value> values_; // of the record
    RecordedCall lone_;         ///< a call without a first half
    std::uint64_t number_ = 0;
    std::optional<std::vector<const RecordedCall *>> unreturned_; ///< the last is the next
};

bool CallAssembler::Impl::take( const Record & record, Event & event ) {
    Role role;
    if ( record.site != nullptr ) {
        const auto [known, isNew] = roles_.try_emplace( record.site );
        if ( isNew )
            known->second = roleOf( *record.site );
        role = known->second;
    }
    if ( role.kind == Role::Kind::message ) {
        event = { Event::Moment::message, nullptr, record };
        return true;
    }
    if ( role.kind == Role::Kind::unknown ) {
        if ( unknownSites_.insert( record.site ).second )
            find( record, "a call that this version does not know, " + record.site->function +
                              " (" + record.site->letters +
                              "); it is passed over. Read it with the version that recorded it" );
        return false;
    }
    ThreadState * const thread = threadOf( record );
    if ( thread == nullptr ) {
        find( record,
              "more threads than a recording can have; it and those after it are passed over" );
        return false;
    }
    decode( record, values_ );
    switch ( role.kind ) {
    case Role::Kind::before:
        return takeBefore( *thread, record, role.call, event );
    case Role::Kind::after:
        return takeAfter( *thread, record, role.call, event );
    case Role::Kind::text:
        takeTextPiece( *thread );
        return false;
    default:
        takeValuesPiece( *thread );
        return false;
    }
}

CallAssembler::Impl::ThreadState * CallAssembler::Impl::threadOf( const Record & record ) {
    const ThreadKey key{ record.file->clock().baseTime, record.file->info().process,
                         record.thread };
    if ( lastThread_ != nullptr && key == lastKey_ )
        return lastThread_;
    auto found = threads_.find( key );
    if ( found == threads_.end() ) {
        if ( threads_.size() == maxThreads )
            return nullptr;
        found = threads_.try_emplace( key ).first;
    }
    lastKey_ = key;
    lastThread_ = &found->second;
    return lastThread_;
}

// Pieces come in order. If one is missing, those before it are worth nothing, and neither are those
// after it: the call's text keeps what its own record has.
void CallAssembler::Impl::takeTextPiece( ThreadState & thread ) {
    const std::uint32_t which = values_[0].number;
    if ( which > 1 )
        return;
    if ( !thread.pieces )
        thread.pieces.emplace();
    auto & text = thread.pieces->texts[which];
    const std::uint32_t start = values_[1].number;
    if ( start == Layout::callTextPieceBytes )
        text.rest.clear();
    if ( start != Layout::callTextPieceBytes + text.rest.size() ||
         start + values_[3].text.size() > maxLongText ) {
        text = {};
        return;
    }
    text.length = values_[2].number;
    text.rest += values_[3].text;
}

void CallAssembler::Impl::takeValuesPiece( ThreadState & thread ) {
    if ( !thread.pieces )
        thread.pieces.emplace();
    Pieces & pieces = *thread.pieces;
    const std::uint32_t start = values_[0].number;
    if ( start == Layout::maxCallValues )
        pieces.values.clear();
    const std::size_t count = values_[2].elementCount();
    if ( start != Layout::maxCallValues + pieces.values.size() || start + count > maxLongArray ) {
        pieces.values.clear();
        pieces.count = 0;
        return;
    }
    pieces.count = values_[1].number;
    for ( std::size_t i = 0; i < count; ++i )
        pieces.values.push_back( values_[2].element( i ) );
}

void CallAssembler::Impl::takeText( RecordedCall & call, std::string & text, const Value & value,
                                    std::optional<Pieces> & pieces, std::size_t which ) const {
    text = value.text;
    if ( !value.isCut )
        return;
    if ( pieces && pieces->texts[which].length == text.size() + pieces->texts[which].rest.size() )
        text += pieces->texts[which].rest;
    else
        call.isWhole = false;
}

// By the layouts in CallFormat.h.
void CallAssembler::Impl::takeInputs( RecordedCall & call, std::optional<Pieces> & pieces ) {
    const auto constant = []( SdkConstant & to, const Value & number, const Value & named ) {
        to.number = number.number;
        to.name = named.text;
    };
    call.isLockHeld = lockOf( values_[0].number );
    if ( isHook( call.call ) )
        return;
    if ( call.call == SdkCall::entryAllocate ) {
        call.unit = static_cast<std::int32_t>( values_[1].number );
        takeText( call, call.table, values_[2], pieces, 0 );
        return;
    }
    call.handle = values_[1].number;
    switch ( call.call ) {
    case SdkCall::entryAttribSet:
        constant( call.attribute, values_[2], values_[3] );
        break;
    case SdkCall::entryCommit:
    case SdkCall::ptEntryCommit:
        constant( call.opcode, values_[2], values_[4] );
        constant( call.priority, values_[3], values_[5] );
        break;
    case SdkCall::entryFieldAdd:
        call.values.assign( 1, values_[2].wide );
        takeText( call, call.field, values_[3], pieces, 0 );
        break;
    case SdkCall::entryFieldArrayAdd:
        call.startIndex = values_[2].number;
        call.count = values_[3].number;
        takeText( call, call.field, values_[4], pieces, 0 );
        for ( std::size_t i = 0; i < std::min<std::size_t>( values_[5].elementCount(), call.count );
              ++i )
            call.values.push_back( values_[5].element( i ) );
        if ( pieces && pieces->count == call.count &&
             call.values.size() + pieces->values.size() <= call.count )
            call.values.insert( call.values.end(), pieces->values.begin(), pieces->values.end() );
        call.isWhole = call.isWhole && call.values.size() == call.count;
        break;
    case SdkCall::entryFieldGet:
        takeText( call, call.field, values_[2], pieces, 0 );
        break;
    case SdkCall::entryFieldSymbolAdd:
        takeText( call, call.field, values_[2], pieces, 0 );
        takeText( call, call.symbol, values_[3], pieces, 1 );
        break;
    default:
        break;
    }
}

void CallAssembler::Impl::setEntry( RecordedCall & call ) {
    const auto found = entries_.find( entryKey( call ) );
    if ( found == entries_.end() )
        return;
    call.unit = found->second.unit;
    call.table = *found->second.table;
}

void CallAssembler::Impl::addEntry( const Record & record, const RecordedCall & call ) {
    if ( entries_.size() >= maxEntries || tables_.size() >= maxEntries ) {
        find( record, "more entries than a recording can have; further ones are without table" );
        return;
    }
    const auto table = tables_.insert( call.table ).first;
    entries_.insert_or_assign( entryKey( call ), Entry{ *call.unit, &*table } );
}

bool CallAssembler::Impl::takeBefore( ThreadState & thread, const Record & record, SdkCall made,
                                      Event & event ) {
    if ( thread.depth == maxDepth ) {
        find( record,
              "the thread's calls before this one never returned, or the records after them "
              "are lost; the first of them is passed over" );
        std::rotate( thread.calls.begin(), thread.calls.begin() + 1, thread.calls.end() );
        --thread.depth;
    }
    if ( thread.depth == thread.calls.size() )
        thread.calls.emplace_back();
    RecordedCall & call = thread.calls[thread.depth++];
    reset( call );
    call.call = made;
    call.number = ++number_;
    call.process = record.file->info().process;
    call.thread = record.thread;
    call.before = stampOf( record );
    takeInputs( call, thread.pieces );
    thread.pieces.reset();
    if ( made != SdkCall::entryAllocate && !isHook( made ) ) {
        setEntry( call );
        // Once an entry is freed, another thread may be given its handle, which may be recorded before
        // the free has returned. A free that fails brings it back.
        if ( made == SdkCall::entryFree )
            entries_.erase( entryKey( call ) );
    }
    event = { Event::Moment::before, &call, record };
    return true;
}

bool CallAssembler::Impl::takeAfter( ThreadState & thread, const Record & record, SdkCall made,
                                     Event & event ) {
    const bool hasResults = !isHook( made );
    const std::uint32_t handle = hasResults ? values_[1].number : 0;
    std::size_t place = thread.depth;
    while ( place > 0 ) {
        const RecordedCall & each = thread.calls[place - 1];
        if ( each.call == made &&
             ( !hasResults || made == SdkCall::entryAllocate || each.handle == handle ) )
            break;
        --place;
    }
    RecordedCall * call = &lone_;
    if ( place > 0 ) {
        if ( place != thread.depth )
            find( record,
                  "calls that this one made have no record after them; they are passed over" );
        thread.depth = place - 1;
        call = &thread.calls[place - 1];
    } else {
        ++callsWithoutBefore;
        reset( lone_ );
        lone_.call = made;
        lone_.number = ++number_;
        lone_.process = record.file->info().process;
        lone_.thread = record.thread;
    }
    call->after = stampOf( record );
    if ( hasResults ) {
        call->rc = static_cast<std::int32_t>( values_[0].number );
        call->handle = handle;
        if ( made == SdkCall::entryFieldGet )
            call->value = values_[2].wide;
        if ( !call->hasInputs() && made != SdkCall::entryAllocate )
            setEntry( *call );
        if ( made == SdkCall::entryAllocate && call->rc >= 0 ) {
            if ( call->hasInputs() )
                addEntry( record, *call );
            else
                entries_.erase( entryKey( *call ) );
        } else if ( made == SdkCall::entryFree && call->hasInputs() && call->unit && call->rc < 0 &&
                    !entries_.contains( entryKey( *call ) ) )
            addEntry( record, *call );
        else if ( made == SdkCall::entryFree && !call->hasInputs() && call->rc >= 0 )
            entries_.erase( entryKey( *call ) );
    }
    event = { Event::Moment::after, call, record };
    return true;
}

bool CallAssembler::Impl::takeUnreturned( Event & event ) {
    if ( !unreturned_ ) {
        unreturned_.emplace();
        for ( const auto & [key, thread] : threads_ ) {
            for ( std::size_t i = 0; i < thread.depth; ++i )
                unreturned_->push_back( &thread.calls[i] );
        }
        std::sort( unreturned_->begin(), unreturned_->end(),
                   []( const RecordedCall * one, const RecordedCall * other ) {
                       return one->number > other->number;
                   } );
    }
    if ( unreturned_->empty() )
        return false;
    event = { Event::Moment::neverReturned, unreturned_->back(), {} };
    unreturned_->pop_back();
    return true;
}

void CallAssembler::Impl::find( const Record & record, std::string what ) {
    if ( findings.size() >= File::maxFindings )
        return;
    if ( findings.size() == File::maxFindings - 1 )
        what = "and more: further findings are left out";
    findings.push_back(
        { Finding::Kind::damage, record.file->info().path, record.offset, std::move( what ) } );
}

CallAssembler::CallAssembler() : impl_( std::make_unique<Impl>() ) {}
CallAssembler::~CallAssembler() = default;

bool CallAssembler::isOfRecorder( const Site & site ) noexcept {
    return std::string_view( site.file ) == Layout::callSource; // asked for each record
}

bool CallAssembler::take( const Record & record, Event & event ) {
    return impl_->take( record, event );
}

bool CallAssembler::takeUnreturned( Event & event ) { return impl_->takeUnreturned( event ); }

const std::vector<Finding> & CallAssembler::findings() const noexcept { return impl_->findings; }

std::uint64_t CallAssembler::callsWithoutBefore() const noexcept {
    return impl_->callsWithoutBefore;
}

} // namespace TraceReader
