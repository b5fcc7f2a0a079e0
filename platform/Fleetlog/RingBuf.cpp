#include <Fleetlog/RingBuf.h>

#include <Fleetlog/Clock.h>
#include <Fleetlog/TraceFile.h>

namespace Fleetlog {

void RingBuf::begin( std::byte * blocks, std::uint64_t blockCount,
                     Timestamps timestamps ) noexcept {
    blocks_ = blocks;
    blockCount_ = blockCount;
    timestamps_ = timestamps;
    sequence_ = 0;
    records_ = 0;
    tick_ = 0;
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
    std::byte * const block = blocks_ + sequence_ % blockCount_ * Format::pageBytes;
    ++sequence_;
    auto & header = *reinterpret_cast<Format::BlockHeader *>( block );
    const std::atomic_ref sequence( header.sequence );
    // While the block is made anew, what it held is gone and what it will hold is not there yet. An
    // exchange keeps the stores that follow from being seen before it.
    sequence.exchange( 0, std::memory_order_acq_rel );
    store<std::uint32_t>( block + sizeof( Format::BlockHeader ), 0 );

    const ClockSample now = sampleClocks( CLOCK_REALTIME, 2 );
    Format::BlockHeader made{};
    made.sequence = sequence_;
    made.firstRecord = records_;
    made.counter = now.counter;
    made.time = now.time;
    made.checksum = Format::checksum( &made, offsetof( Format::BlockHeader, checksum ) );
    std::memcpy( block + sizeof made.sequence,
                 reinterpret_cast<const std::byte *>( &made ) + sizeof made.sequence,
                 sizeof made - sizeof made.sequence );
    sequence.store( sequence_, std::memory_order_release );

    if ( timestamps_ == Timestamps::tick )
        tick_ = static_cast<std::uint64_t>( now.time );
    limit_ = block + Format::pageBytes - recordRoom;
    return block + sizeof( Format::BlockHeader );
}

} // namespace Fleetlog
