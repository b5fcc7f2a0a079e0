#include <Fleetlog/RingBuf.h>

#include <Fleetlog/TraceFile.h>
#include <Fleetlog/internal/Clock.h>

#include <algorithm>

namespace Fleetlog {

void RingBuf::begin( std::byte * blocks, std::uint64_t blockCount, Timestamps timestamps,
                     std::uint32_t thread ) noexcept {
    blocks_ = blocks;
    blockCount_ = blockCount;
    timestamps_ = timestamps;
    thread_ = thread;
    block_ = 0;
    sequence_ = 0;
    tick_ = 0;
    clockCounter_ = clockBase().base.counter;
    clockTime_ = clockBase().base.time;
    release( beginBlock() );
}

void RingBuf::goOnAs( const RingBuf & begun ) noexcept {
    timestamps_ = begun.timestamps_;
    thread_ = begun.thread_;
    blocks_ = begun.blocks_;
    blockCount_ = begun.blockCount_;
    block_ = begun.block_;
    sequence_ = begun.sequence_;
    tick_ = begun.tick_;
    clockCounter_ = begun.clockCounter_;
    clockTime_ = begun.clockTime_;
    limit_ = begun.limit_;
    counterLimit_ = begun.counterLimit_;
    release( begun.place_ );
}

void RingBuf::end() noexcept {
    blocks_ = nullptr;
    limit_ = nullptr;
    counterLimit_ = nullptr;
    open_ = {};
    release( nowhere() );
}

// The rest of the current block stays unused, and a record that says so tells it from one that was
// lost.
void RingBuf::handOver( std::uint32_t thread ) noexcept {
    thread_ = thread;
    open_ = {};
    // Where a record was begun and never ended, too.
    auto * const record =
        reinterpret_cast<std::byte *>( reinterpret_cast<std::uintptr_t>( claim() ) % claimed );
    if ( hasRoomAt( record ) ) {
        auto * const next = record + sizeof( Format::RecordHeader );
        RecordWriter::store<std::uint64_t>( record + offsetof( Format::RecordHeader, time ), 0 );
        RecordWriter::store<std::uint32_t>( record + offsetof( Format::RecordHeader, id ),
                                            Format::restUnusedId );
        RecordWriter::store<std::uint32_t>( next, 0 );
        RecordWriter::publish( record, sizeof( Format::RecordHeader ) );
    }
    release( beginBlock() );
}

std::byte * RecordWriter::putShortOrLongText( std::byte * cursor, const char * text,
                                              std::size_t length ) noexcept {
    const bool isCut = length > maxTextBytes;
    const std::size_t kept = isCut ? maxTextBytes : length;
    store<std::uint16_t>( cursor,
                          static_cast<std::uint16_t>( isCut ? kept | Format::textCutFlag : kept ) );
    std::memcpy( cursor + sizeof( std::uint16_t ), text, kept );
    return cursor + sizeof( std::uint16_t ) + kept;
}

std::byte * RingBuf::claimSlowly( TraceFile & file ) noexcept {
    std::byte * record = claim();
    if ( isClaimed( record ) ) {
        unclaim();
        file.countInterrupting();
        return nullptr;
    }
    if ( blocks_ == nullptr ) {
        if ( !file.makeInChild() ) {
            release( record );
            return nullptr;
        }
        record = claim();                // making the file has begun its first block
    } else if ( !hasRoomAt( record ) ) { // or a signal handler has begun the next block meanwhile
        record = isLastBlock() && file.beginSegment() ? claim() : beginBlock();
    }
    if ( timestamps_ == Timestamps::counter )
        RecordWriter::storeCounter( record );
    else
        RecordWriter::storeTime( record, tick_ );
    return record;
}

std::byte * RingBuf::beginBlock() noexcept {
    std::byte * const block = blocks_ + block_ * Format::pageBytes;
    if ( ++block_ == blockCount_ )
        block_ = 0;
    ++sequence_;
    readClocks();

    Format::BlockHeader made{};
    made.sequence = sequence_;
    made.counter = clockCounter_;
    made.time = clockTime_;
    made.thread = thread_;
    made.checksum = Format::checksum( &made, sizeof made );

    // While the block is made anew, what it held is gone and what it will hold is not there yet.
    // Each store releases, so that none is seen before the one that takes the block out of use.
    auto & header = *reinterpret_cast<Format::BlockHeader *>( block );
    const auto set = []( auto & field, auto value ) {
        std::atomic_ref( field ).store( value, std::memory_order_release );
    };
    set( header.sequence, std::uint64_t( 0 ) );
    RecordWriter::publish( block + sizeof header, 0 );
    set( header.counter, made.counter );
    set( header.time, made.time );
    set( header.thread, made.thread );
    set( header.checksum, made.checksum );
    set( header.sequence, made.sequence );
    ( timestamps_ == Timestamps::counter ? counterLimit_ : limit_ ) =
        block + Format::pageBytes - recordRoom;
    return block + sizeof( Format::BlockHeader );
}

// Called for each block, which at full speed is every few hundred nanoseconds. With a counter in
// each record, the wall clock only serves to measure the counter's rate, so it is read now and
// then. Otherwise it is the time of the block, for which a few milliseconds are near enough.
void RingBuf::readClocks() noexcept {
    constexpr std::uint64_t blocksBetween = 16;
    if ( timestamps_ == Timestamps::counter ) {
        if ( sequence_ % blocksBetween != 0 )
            return;
        const ClockSample now = sampleClocks( CLOCK_REALTIME, 2 );
        clockCounter_ = now.counter;
        clockTime_ = now.time;
    } else {
        clockTime_ = coarseWallClock();
        if ( timestamps_ == Timestamps::tick )
            tick_ = std::max( tick_, static_cast<std::uint64_t>( clockTime_ ) );
    }
}

} // namespace Fleetlog
