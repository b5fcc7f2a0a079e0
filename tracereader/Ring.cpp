#include "tracereader/Ring.h"

#include <algorithm>
#include <string>

namespace TraceReader {

namespace {

namespace Layout = Fleetlog::Format;

// What a block has for records.
constexpr std::uint64_t roomOfBlock = Layout::pageBytes - sizeof( Layout::BlockHeader );
} // namespace

std::optional<std::uint64_t> Counts::overwrittenRecords() const noexcept {
    if ( overwrittenBytes == 0 )
        return 0;
    if ( recordBytes == 0 )
        return std::nullopt;
    const double average = static_cast<double>( recordBytes ) / static_cast<double>( records );
    const double estimate = static_cast<double>( overwrittenBytes ) / average;
    constexpr double most = 1e18;
    return std::max<std::uint64_t>( 1, static_cast<std::uint64_t>( std::min( estimate, most ) ) );
}

Ring::Ring( Source & source, const Header & header )
    : source_( source ), bytes_( *source.bytes ), info_( source.info ),
      ringOffset_( header.ringOffset() ), recordRoom_( header.recordRoom() ) {
    scanBlocks( 0 );
}

bool Ring::next( Entry & record ) {
    for ( ;; ) {
        if ( isStarted_ && nextInBlock( record ) )
            return true;
        if ( !enterBlock() )
            return false;
    }
}

bool Ring::poll() {
    blocks_.clear();
    nextBlock_ = chunkBegin_ = chunkEnd_ = 0;
    if ( !isStarted_ ) {
        scanBlocks( 0 );
        return !blocks_.empty();
    }
    // The following block is asked for first: if it is there, the current one is complete when it
    // is read again.
    const auto following = readBlockHeader( blockIndex( block_.sequence + 1 ) );
    bool isOvertaken = following && following->sequence > block_.sequence + 1;
    if ( !isBlockDamaged_ && !loadNewest( block_ ) )
        isOvertaken = true;
    if ( isOvertaken || isBlockDamaged_ )
        limit_ = position_;

    if ( isOvertaken ) {
        wasOvertaken_ = true;
        scanBlocks( block_.sequence );
    } else if ( following && following->sequence == block_.sequence + 1 )
        followBlocks( block_.sequence + 1 );
    return position_ < limit_ || !blocks_.empty();
}

// --- Finding blocks

std::uint64_t Ring::blockIndex( std::uint64_t sequence ) const noexcept {
    return ( sequence - 1 ) % info_.blockCount;
}

std::uint64_t Ring::blockOffset( std::uint64_t index ) const noexcept {
    return ringOffset_ + index * info_.blockBytes;
}

// Nothing if the block is not in use, or being made anew, or damaged.
std::optional<Ring::Block> Ring::readBlockHeader( std::uint64_t index ) {
    const std::uint64_t offset = blockOffset( index );
    // A block that is made anew while its header is read looks damaged, but not for long.
    for ( int attempt = 0; attempt < 3; ++attempt ) {
        Layout::BlockHeader header{};
        if ( bytes_.read( offset, &header, sizeof header ) < sizeof header )
            return std::nullopt; // the end of the file, which is a finding already
        if ( header.sequence == 0 )
            return std::nullopt;
        const std::uint32_t checksum = header.checksum;
        header.checksum = 0;
        const std::size_t summed =
            info_.version == 1 ? offsetof( Layout::BlockHeader, checksum ) : sizeof header;
        if ( checksum == Layout::checksum( &header, summed ) &&
             blockIndex( header.sequence ) == index )
            return Block{ header.sequence, header.counter, header.time,
                          info_.version == 1 ? info_.thread : header.thread };
    }
    source_.damage( offset, "the header of a block is damaged; the block is lost" );
    return std::nullopt;
}

bool Ring::isStillThere( const Block & block ) const {
    std::uint64_t sequence = 0;
    return bytes_.read( blockOffset( blockIndex( block.sequence ) ), &sequence, sizeof sequence ) ==
               sizeof sequence &&
           sequence == block.sequence;
}

// Whether the ring has come round to the place of a block: one that is as new as what follows it
// there, or newer, lies at the place before it.
bool Ring::isOverwritten( std::uint64_t sequence ) {
    if ( sequence < 2 )
        return false;
    const auto before = readBlockHeader( blockIndex( sequence - 1 ) );
    return before && before->sequence >= sequence - 1 + info_.blockCount;
}

// Finds the blocks after a sequence number, wherever they are.
void Ring::scanBlocks( std::uint64_t after ) {
    const std::uint64_t size = bytes_.size();
    const std::uint64_t held =
        size <= ringOffset_ ? 0 : ( size - ringOffset_ - 1 ) / info_.blockBytes + 1;
    const std::uint64_t end = std::min( held, info_.blockCount );
    std::uint64_t unused = 0; // blocks one after the other
    for ( std::uint64_t index = 0; index < end; ++index ) {
        const auto block = readBlockHeader( index );
        unused = block ? 0 : unused + 1;
        if ( block && block->sequence > after )
            blocks_.push_back( *block );
        // A file may be far longer than what is on disk of it.
        constexpr std::uint64_t manyUnused = 16;
        if ( unused % manyUnused == manyUnused - 1 ) {
            const std::uint64_t data = bytes_.nextData( blockOffset( index + 1 ) );
            if ( data > blockOffset( index + 1 ) )
                index = std::min( ( data - ringOffset_ ) / info_.blockBytes, end ) - 1;
        }
    }
    std::sort( blocks_.begin(), blocks_.end(), []( const Block & one, const Block & other ) {
        return one.sequence < other.sequence;
    } );
}

// Finds the blocks from a sequence number on, which are one after the other.
void Ring::followBlocks( std::uint64_t sequence ) {
    while ( blocks_.size() < info_.blockCount ) {
        const auto block = readBlockHeader( blockIndex( sequence ) );
        if ( !block || block->sequence != sequence )
            return;
        blocks_.push_back( *block );
        ++sequence;
    }
}

// --- Reading blocks

bool Ring::enterBlock() {
    while ( nextBlock_ < blocks_.size() ) {
        if ( isStarted_ && !wasOvertaken_ )
            fillGap( block_.sequence + 1 );
        const Block block = blocks_[nextBlock_];
        const bool isNewest = nextBlock_ + 1 == blocks_.size();
        const bool isLoaded = isNewest ? loadNewest( block ) : loadChunk();
        ++nextBlock_;
        if ( isLoaded ) {
            startBlock( block );
            return true;
        }
        wasOvertaken_ = true;
    }
    chunk_ = {}; // there may be many files, and this one may have been read to its end
    chunkBegin_ = chunkEnd_ = 0;
    return false;
}

// The headers of the blocks are read one after the other while the writer may be going round, so
// one that it began meanwhile may have been passed by. If the block that is wanted is not the next
// one to be read, looks at its place again.
void Ring::fillGap( std::uint64_t wanted ) {
    if ( blocks_[nextBlock_].sequence <= wanted )
        return;
    const auto there = readBlockHeader( blockIndex( wanted ) );
    if ( there && there->sequence == wanted )
        blocks_.insert( blocks_.begin() + static_cast<std::ptrdiff_t>( nextBlock_ ), *there );
    else if ( ( there && there->sequence > wanted ) || isOverwritten( wanted ) )
        wasOvertaken_ = true;
}

// Reads the next block, and those after it that lie behind it in the file. The writer may be making
// them anew meanwhile, the oldest first: as long as that is still there, they all are.
bool Ring::loadChunk() {
    if ( nextBlock_ >= chunkEnd_ || nextBlock_ < chunkBegin_ ) {
        chunkBegin_ = nextBlock_;
        chunkEnd_ = nextBlock_ + 1;
        while ( chunkEnd_ + 1 < blocks_.size() && chunkEnd_ - chunkBegin_ < chunkBlocks_ &&
                blocks_[chunkEnd_].sequence == blocks_[chunkEnd_ - 1].sequence + 1 &&
                blockIndex( blocks_[chunkEnd_].sequence ) != 0 )
            ++chunkEnd_;
        chunk_.resize( ( chunkEnd_ - chunkBegin_ ) * info_.blockBytes );
        chunkBytes_ = bytes_.read( blockOffset( blockIndex( blocks_[chunkBegin_].sequence ) ),
                                   chunk_.data(), chunk_.size() );
        isChunkWhole_ = isStillThere( blocks_[chunkBegin_] );
    }
    const std::size_t begin = ( nextBlock_ - chunkBegin_ ) * info_.blockBytes;
    blockBytes_ = chunk_.data() + begin;
    limit_ =
        std::min<std::size_t>( info_.blockBytes, chunkBytes_ - std::min( begin, chunkBytes_ ) );
    isBlockCut_ = limit_ < info_.blockBytes;
    return isChunkWhole_ || isStillThere( blocks_[nextBlock_] );
}

// Reads the block that is being written: first how far its records reach, then these.
bool Ring::loadNewest( const Block & block ) {
    const std::uint64_t offset = blockOffset( blockIndex( block.sequence ) );
    const bool isCurrent = isStarted_ && block.sequence == block_.sequence;
    const std::size_t committed =
        committedBytes( offset, isCurrent ? position_ : sizeof( Layout::BlockHeader ) );
    newest_.assign( info_.blockBytes, std::byte{ 0 } );
    limit_ = bytes_.read( offset, newest_.data(), newest_.size() );
    isBlockCut_ = limit_ < info_.blockBytes;
    limit_ = std::min( limit_, committed );
    blockBytes_ = newest_.data();
    return isStillThere( block );
}

// How far the records of a block reach that may be being written: to the end of the last, or, if that
// is damaged, to the end of the block. Each size is read by itself, after the one before it (the lock
// that each read of a file takes keeps them in order): the writer has put a 0 behind a record before
// it let the record in. Of a copy that is made in one go,
// that is not certain: processors copy in an order of their own, and what was left behind the records
// from an earlier round would be taken for records.
std::size_t Ring::committedBytes( std::uint64_t offset, std::size_t position ) const {
    while ( position + sizeof( Layout::RecordHeader ) <= info_.blockBytes ) {
        std::uint32_t size = 0;
        if ( bytes_.read( offset + position, &size, sizeof size ) < sizeof size )
            return info_.blockBytes; // the end of the file, which is a finding already
        if ( size == 0 )
            return position;
        if ( size < sizeof( Layout::RecordHeader ) || size % 8 != 0 ||
             size > info_.blockBytes - position )
            break;
        position += size;
    }
    return info_.blockBytes;
}

void Ring::startBlock( const Block & block ) {
    const std::uint64_t offset = blockOffset( blockIndex( block.sequence ) );
    if ( !isStarted_ )
        countOverwritten( block );
    else {
        const std::uint64_t blocks = block.sequence - block_.sequence - 1;
        if ( wasOvertaken_ ) {
            const std::uint64_t bytes = blocks * roomOfBlock + restOfBlock();
            counts_.overwrittenBlocks += blocks;
            counts_.overwrittenBytes += bytes;
            if ( bytes != 0 )
                source_.find( Finding::Kind::overwritten, offset,
                              "overwritten before they could be read: " + count( blocks, "block" ) +
                                  " before this one" +
                                  ( bytes == blocks * roomOfBlock
                                        ? ""
                                        : ", and the rest of the one before" ) );
        } else {
            checkEnd();
            counts_.missingBlocks += blocks;
            if ( blocks != 0 )
                source_.damage( offset, "missing before this block: " + count( blocks, "block" ) );
        }
    }
    wasOvertaken_ = false;
    isStarted_ = true;
    isBlockDamaged_ = false;
    isRestUnused_ = false;
    block_ = block;
    position_ = sizeof( Layout::BlockHeader );
    ++counts_.blocks;
}

// What a writer may have put behind the records that were read of the block, if it is complete by
// now: nothing if the next one would not have fitted.
std::uint64_t Ring::restOfBlock() const noexcept {
    return isRestUnused_ || position_ + recordRoom_ > info_.blockBytes
               ? 0
               : info_.blockBytes - position_;
}

// The block that was read is followed by another, so it should be full.
void Ring::checkEnd() {
    if ( !isBlockDamaged_ && !isBlockCut_ && restOfBlock() != 0 )
        source_.damage( blockOffset( blockIndex( block_.sequence ) ) + position_,
                        "the records of a block end early; what followed in it is lost" );
}

// What is gone before the first block that can be read. The ring has overwritten what it had no
// room for; if more is gone, that is damage, but for one block that the writer was about to make
// anew.
void Ring::countOverwritten( const Block & first ) {
    const std::uint64_t newest = blocks_.back().sequence;
    const std::uint64_t oldest = newest > info_.blockCount ? newest - info_.blockCount + 1 : 1;
    std::uint64_t missing = first.sequence > oldest ? first.sequence - oldest : 0;
    if ( missing > 0 ) {
        const std::uint64_t offset = blockOffset( blockIndex( first.sequence - 1 ) );
        std::uint64_t before = 0;
        if ( bytes_.read( offset, &before, sizeof before ) < sizeof before )
            before = 1;
        if ( wasOvertaken_ || before > first.sequence )
            missing = 0; // overwritten meanwhile
        else if ( before == 0 && first.sequence - 1 == oldest && newest >= info_.blockCount )
            missing = 0; // about to be made anew
    }
    counts_.overwrittenBlocks = first.sequence - 1 - missing;
    counts_.overwrittenBytes = counts_.overwrittenBlocks > UINT64_MAX / roomOfBlock
                                   ? UINT64_MAX
                                   : counts_.overwrittenBlocks * roomOfBlock;
    counts_.missingBlocks = missing;
    if ( missing > 0 )
        source_.damage( blockOffset( blockIndex( first.sequence ) ),
                        "missing before this block, the oldest that can be read: " +
                            count( missing, "block" ) );
}

// --- Records

bool Ring::nextInBlock( Entry & record ) {
    if ( position_ + sizeof( Layout::RecordHeader ) > limit_ )
        return false;
    const std::byte * const at = blockBytes_ + position_;
    const auto header = load<Layout::RecordHeader>( at );
    if ( header.size == 0 )
        return false;
    const std::uint64_t offset = blockOffset( blockIndex( block_.sequence ) ) + position_;
    if ( header.size < sizeof header || header.size % 8 != 0 || header.size > limit_ - position_ ) {
        source_.damage( offset, isBlockCut_ && header.size <= info_.blockBytes - position_
                                    ? "the file ends within a record"
                                    : "a record has the impossible size " +
                                          std::to_string( header.size ) +
                                          "; what follows in its block is lost" );
        isBlockDamaged_ = true;
        limit_ = position_;
        return false;
    }

    if ( header.id == Layout::restUnusedId && info_.version > 1 ) {
        isRestUnused_ = true;
        limit_ = position_;
        return false;
    }
    record.header = header;
    record.offset = offset;
    record.payload = { at + sizeof header, header.size - sizeof header };
    position_ += header.size;
    ++counts_.records;
    counts_.recordBytes += header.size;
    return true;
}

} // namespace TraceReader
