#include <Fleetlog/RingBuf.h>

#include <Fleetlog/internal/Clock.h>
#include <Fleetlog/TraceFile.h>

#include <algorithm>

namespace Fleetlog {

void RingBuf::begin( std::byte * blocks, std::uint64_t blockCount,
                     Timestamps timestamps ) noexcept {
    blocks_ = blocks;
    blockCount_ = blockCount;
    timestamps_ = timestamps;
    block_ = 0;
    sequence_ = 0;
    tick_ = 0;
    clockCounter_ = clockBase().base.counter;
    clockTime_ = clockBase().base.time;
    record_ = beginBlock();
    cursor_ = nullptr;
}

void RingBuf::end() noexcept {
    blocks_ = nullptr;
    record_ = scratch_;
    cursor_ = nullptr;
    limit_ = nullptr;
}

void RingBuf::putShortOrLongText( const char * text, std::size_t length ) noexcept {
    const bool isCut = length > maxTextBytes;
    const std::size_t kept = isCut ? maxTextBytes : length;
    store<std::uint16_t>( cursor_,
                          static_cast<std::uint16_t>( isCut ? kept | Format::textCutFlag : kept ) );
    std::memcpy( cursor_ + sizeof( std::uint16_t ), text, kept );
    cursor_ += sizeof( std::uint16_t ) + kept;
}

std::byte * RingBuf::changeBlock( TraceFile & file ) noexcept {
    if ( blocks_ != nullptr )
        return beginBlock();
    // Making the file begins its first block.
    return file.hasMemory() ? record_ : scratch_;
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
    made.checksum = Format::checksum( &made, offsetof( Format::BlockHeader, checksum ) );

    // While the block is made anew, what it held is gone and what it will hold is not there yet.
    // Each store releases, so that none is seen before the one that takes the block out of use.
    auto & header = *reinterpret_cast<Format::BlockHeader *>( block );
    const auto set = []( auto & field, auto value ) {
        std::atomic_ref( field ).store( value, std::memory_order_release );
    };
    set( header.sequence, std::uint64_t( 0 ) );
    publish( block + sizeof header, 0 );
    set( header.counter, made.counter );
    set( header.time, made.time );
    set( header.checksum, made.checksum );
    set( header.sequence, made.sequence );
    limit_ = block + Format::pageBytes - recordRoom;
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
