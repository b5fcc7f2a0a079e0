#include "tracereader/Ring.h"

#include "text/Numbers.h"

#include <fmt/format.h>

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
    find();
}

bool Ring::next( Entry & record ) {
    for ( ;; ) {
        if ( isStarted_ && nextInBlock( record ) )
            return true;
        if ( nextBlock_ < blocks_.size() )
            enterBlock();
        else if ( !listMore() )
            return false;
    }
}

bool Ring::poll() {
    blocks_.clear();
    nextBlock_ = chunkBegin_ = chunkEnd_ = 0;
    if ( !isStarted_ ) {
        find();
        return !blocks_.empty() || listMore();
    }
    unlisted_ = {};
    isRestListed_ = true;
    // The following block is asked for first: if it is there, the current one is complete when it
    // is read again.
    const auto following = readBlockHeader( blockIndex( highest_ + 1 ) );
    bool isOvertaken = following && following->sequence > highest_ + 1;
    if ( !readAgain() )
        isOvertaken = true;
    if ( isOvertaken )
        limit_ = position_;

    if ( isOvertaken ) {
        wasOvertaken_ = true;
        scanBlocks( highest_ );
    } else if ( following && following->sequence == highest_ + 1 )
        followBlocks( highest_ + 1 );
    return isAtRecord() || !blocks_.empty();
}

// --- Finding blocks

std::uint64_t Ring::blockIndex( std::uint64_t sequence ) const noexcept {
    return ( sequence - 1 ) % info_.blockCount;
}

std::uint64_t Ring::blockOffset( std::uint64_t index ) const noexcept {
    return ringOffset_ + index * info_.blockBytes;
}

// Nothing if the block is damaged. One that is not in use, or being made anew, has the sequence 0.
std::optional<Ring::Block> Ring::readBlockHeader( std::uint64_t index ) {
    const std::uint64_t offset = blockOffset( index );
    // A block that is made anew while its header is read looks damaged, but not for long.
    for ( int attempt = 0; attempt < 3; ++attempt ) {
        Layout::BlockHeader header{};
        if ( bytes_.read( offset, &header, sizeof header ) < sizeof header )
            return Block{}; // the end of the file, which is a finding already
        if ( header.sequence == 0 )
            return Block{};
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

std::uint64_t Ring::blocksOnFile() const {
    const std::uint64_t size = bytes_.size();
    const std::uint64_t held =
        size <= ringOffset_ ? 0 : ( size - ringOffset_ - 1 ) / info_.blockBytes + 1;
    return std::min( held, info_.blockCount );
}

void Ring::find() {
    unlisted_ = inOrder_ = {};
    hasOthers_ = false;
    isRestListed_ = false;
    newest_ = {};
    if ( findByOrder() ) {
        unlisted_ = inOrder_;
        return;
    }
    scanBlocks( 0 );
    isRestListed_ = true;
    if ( !blocks_.empty() )
        newest_ = blocks_.back();
}

// Searches for the newest block: up to there, the blocks are of the round of the first, and behind it
// of the one before, or not in use. False if what is met does not fit that.
bool Ring::findByOrder() {
    const std::uint64_t places = blocksOnFile();
    if ( places == 0 )
        return true;
    const auto first = readBlockHeader( 0 );
    if ( !first || first->sequence == 0 || first->sequence > UINT64_MAX / 2 )
        return false;
    const auto isOlder = [&]( const std::optional<Block> & block, std::uint64_t index ) {
        return block && block->sequence + info_.blockCount == first->sequence + index;
    };
    const auto isUnused = []( const std::optional<Block> & block ) {
        return block && block->sequence == 0;
    };
    newest_ = *first;
    std::uint64_t newest = 0;
    std::uint64_t behind = places;
    while ( behind - newest > 1 ) {
        const std::uint64_t middle = newest + ( behind - newest ) / 2;
        const auto block = readBlockHeader( middle );
        if ( block && block->sequence == first->sequence + middle ) {
            newest = middle;
            newest_ = *block;
        } else if ( isUnused( block ) || isOlder( block, middle ) )
            behind = middle;
        else
            return false;
    }
    // In a ring that has gone round, only the block that is made anew is not in use.
    if ( first->sequence > 1 && behind < places ) {
        const auto next = readBlockHeader( behind );
        if ( isUnused( next ) && behind + 1 < places ) {
            if ( !isOlder( readBlockHeader( behind + 1 ), behind + 1 ) )
                return false;
        } else if ( !isUnused( next ) && !isOlder( next, behind ) )
            return false;
    }
    // Of what was never written there may be far more than what is on disk.
    if ( bytes_.nextHole( ringOffset_ ) < blockOffset( newest ) )
        return false;
    inOrder_.end = newest_.sequence + 1;
    inOrder_.begin =
        newest_.sequence > info_.blockCount ? newest_.sequence - info_.blockCount + 1 : 1;
    return true;
}

// Lists the blocks that are to be read next. False if there are none.
bool Ring::listMore() {
    blocks_.clear();
    nextBlock_ = chunkBegin_ = chunkEnd_ = 0;
    while ( blocks_.empty() && !unlisted_.isEmpty() ) {
        const std::uint64_t end = std::min( unlisted_.begin + chunkBlocks_, unlisted_.end );
        for ( ; unlisted_.begin < end; ++unlisted_.begin ) {
            const auto block = readBlockHeader( blockIndex( unlisted_.begin ) );
            if ( block && block->sequence == unlisted_.begin )
                blocks_.push_back( *block );
            else if ( block && block->sequence != 0 )
                hasOthers_ = true;
        }
    }
    if ( blocks_.empty() && !isRestListed_ )
        listRest();
    if ( !blocks_.empty() )
        return true;
    chunk_ = {}; // there may be many files, and this one has been read to its end
    limit_ = position_;
    return false;
}

// Lists what is not in order, by looking at each place: blocks behind places that are not in use, and
// blocks where others should be. The writer may have made them meanwhile, and have filled the current
// one before.
void Ring::listRest() {
    isRestListed_ = true;
    const std::uint64_t placesSeen = inOrder_.end - inOrder_.begin;
    if ( !hasOthers_ && placesSeen >= blocksOnFile() )
        return;
    scanBlocks( 0, hasOthers_ ? 0 : placesSeen );
    std::erase_if( blocks_, [&]( const Block & block ) { return inOrder_.has( block.sequence ); } );
    if ( blocks_.empty() )
        return;
    if ( blocks_.back().sequence > newest_.sequence )
        newest_ = blocks_.back();
    if ( isStarted_ && !readAgain() ) {
        wasOvertaken_ = true;
        limit_ = position_;
    }
}

// Finds the blocks after a sequence number, wherever they are.
void Ring::scanBlocks( std::uint64_t after, std::uint64_t fromIndex ) {
    const std::uint64_t end = blocksOnFile();
    std::uint64_t unused = 0; // blocks one after the other
    for ( std::uint64_t index = fromIndex; index < end; ++index ) {
        const auto block = readBlockHeader( index );
        const bool isInUse = block && block->sequence != 0;
        unused = isInUse ? 0 : unused + 1;
        if ( isInUse && block->sequence > after )
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

void Ring::narrow( const IsTrueOf & isEarly, const IsTrueOf & isLate ) {
    if ( isStarted_ || unlisted_.isEmpty() || !listMore() )
        return;
    countOverwritten( blocks_.front() );
    isLossCounted_ = true;

    const auto isInTime = [&]( const Block & block ) { return !isEarly( block ); };
    Range wanted{ firstThat( isInTime, true ), firstThat( isLate, false ) };
    std::optional<std::uint64_t> counter; // of the last block that is early
    for ( ; wanted.begin > inOrder_.begin; --wanted.begin ) {
        const auto before = readBlockHeader( blockIndex( wanted.begin - 1 ) );
        if ( !before || before->sequence != wanted.begin - 1 )
            continue;
        if ( counter && before->counter != *counter )
            break;
        counter = before->counter;
    }
    if ( wanted.end < inOrder_.end )
        isRestListed_ = true;
    blocks_.clear();
    unlisted_ = wanted;
}

// The first block in order that something is true of, if it is of all that follow; of a block that is
// lost, it is taken for `isLostOne`.
std::uint64_t Ring::firstThat( const IsTrueOf & isTrue, bool isLostOne ) {
    Range left = inOrder_;
    while ( !left.isEmpty() ) {
        const std::uint64_t middle = left.begin + ( left.end - left.begin ) / 2;
        const auto block = readBlockHeader( blockIndex( middle ) );
        const bool isThere = block && block->sequence == middle;
        if ( isThere ? isTrue( *block ) : isLostOne )
            left.end = middle;
        else
            left.begin = middle + 1;
    }
    return left.begin;
}

// --- Reading blocks

bool Ring::isLast( std::size_t block ) const noexcept {
    return block + 1 == blocks_.size() && unlisted_.isEmpty();
}

// Enters the next block, unless it has been overwritten.
void Ring::enterBlock() {
    if ( isStarted_ && !wasOvertaken_ )
        fillGap( highest_ + 1 );
    const Block block = blocks_[nextBlock_];
    const bool isLoaded = isLast( nextBlock_ ) ? loadLast( block ) : loadChunk();
    ++nextBlock_;
    if ( isLoaded )
        startBlock( block );
    else {
        wasOvertaken_ = true;
        limit_ = position_;
    }
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
        while ( chunkEnd_ < blocks_.size() && !isLast( chunkEnd_ ) &&
                chunkEnd_ - chunkBegin_ < chunkBlocks_ &&
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
bool Ring::loadLast( const Block & block ) {
    const std::uint64_t offset = blockOffset( blockIndex( block.sequence ) );
    const bool isCurrent = isStarted_ && block.sequence == block_.sequence;
    const std::size_t committed =
        committedBytes( offset, isCurrent ? position_ : sizeof( Layout::BlockHeader ) );
    lastBlock_.assign( info_.blockBytes, std::byte{ 0 } );
    limit_ = bytes_.read( offset, lastBlock_.data(), lastBlock_.size() );
    isBlockCut_ = limit_ < info_.blockBytes;
    limit_ = std::min( limit_, committed );
    blockBytes_ = lastBlock_.data();
    return isStillThere( block );
}

// Reads the current block once more, for what was written to it since; not if there is nothing to be
// had of it. False if it was overwritten.
bool Ring::readAgain() {
    if ( isBlockDamaged_ || isRestUnused_ || block_.sequence != highest_ ) {
        limit_ = position_;
        return true;
    }
    return loadLast( block_ );
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
    if ( !isStarted_ ) {
        if ( !isLossCounted_ )
            countOverwritten( block );
    } else if ( block.sequence < highest_ )
        source_.damage( offset, "this block is older than those before it; its records come late" );
    else {
        const std::uint64_t blocks = block.sequence - highest_ - 1;
        if ( wasOvertaken_ ) {
            const std::uint64_t bytes = blocks * roomOfBlock + restOfBlock();
            counts_.overwrittenBlocks += blocks;
            counts_.overwrittenBytes += bytes;
            if ( bytes != 0 )
                source_.find(
                    Finding::Kind::overwritten, offset,
                    "overwritten before they could be read: " + Text::counted( blocks, "block" ) +
                        " before this one" +
                        ( bytes == blocks * roomOfBlock ? ""
                                                        : ", and the rest of the one before" ) );
        } else {
            checkEnd();
            counts_.missingBlocks += blocks;
            if ( blocks != 0 )
                source_.damage( offset,
                                "missing before this block: " + Text::counted( blocks, "block" ) );
        }
    }
    wasOvertaken_ = false;
    isStarted_ = true;
    highest_ = std::max( highest_, block.sequence );
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
    const std::uint64_t newest = newest_.sequence;
    const std::uint64_t oldest = newest > info_.blockCount ? newest - info_.blockCount + 1 : 1;
    std::uint64_t missing = first.sequence > oldest ? first.sequence - oldest : 0;
    if ( missing > 0 ) {
        const std::uint64_t offset = blockOffset( blockIndex( first.sequence - 1 ) );
        std::uint64_t before = 0;
        if ( bytes_.read( offset, &before, sizeof before ) < sizeof before )
            before = 1;
        const bool isOverwritten = wasOvertaken_ || before > first.sequence;
        const bool isAboutToBeMadeAnew =
            before == 0 && first.sequence - 1 == oldest && newest >= info_.blockCount;
        if ( isOverwritten || isAboutToBeMadeAnew )
            missing = 0;
    }
    counts_.overwrittenBlocks = first.sequence - 1 - missing;
    counts_.overwrittenBytes = counts_.overwrittenBlocks > UINT64_MAX / roomOfBlock
                                   ? UINT64_MAX
                                   : counts_.overwrittenBlocks * roomOfBlock;
    counts_.missingBlocks = missing;
    if ( missing > 0 )
        source_.damage( blockOffset( blockIndex( first.sequence ) ),
                        "missing before this block, the oldest that can be read: " +
                            Text::counted( missing, "block" ) );
}

// --- Records

bool Ring::isAtRecord() const noexcept {
    return position_ + sizeof( Layout::RecordHeader ) <= limit_ &&
           load<Layout::RecordHeader>( blockBytes_ + position_ ).size != 0;
}

bool Ring::nextInBlock( Entry & record ) {
    if ( !isAtRecord() )
        return false;
    const std::byte * const at = blockBytes_ + position_;
    const auto header = load<Layout::RecordHeader>( at );
    const std::uint64_t offset = blockOffset( blockIndex( block_.sequence ) ) + position_;
    if ( header.size < sizeof header || header.size % 8 != 0 || header.size > limit_ - position_ ) {
        source_.damage( offset, isBlockCut_ && header.size <= info_.blockBytes - position_
                                    ? "the file ends within a record"
                                    : fmt::format( "a record has the impossible size {}; what "
                                                   "follows in its block is lost",
                                                   header.size ) );
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
