#pragma once

#include "tracereader/Header.h"
#include "tracereader/Source.h"

#include <Fleetlog/Format.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

namespace TraceReader {

/// The blocks of a file and the records in them, while a writer may be going round.
///
/// A ring is written round, so its blocks lie in the order of their numbers, and where it begins is
/// found by a search. The header of a block is looked at when it is the block's turn; what lies out of
/// that order, because the file is damaged or is being written, is read after the rest.
class Ring {
  public:
    /// A block that is on file, from its header.
    struct Block {
        std::uint64_t sequence = 0; ///< 0: not in use
        std::uint64_t counter = 0;
        std::int64_t time = 0;
        std::uint32_t thread = 0;
    };

    /// A record as it lies in its block.
    struct Entry {
        Fleetlog::Format::RecordHeader header{};
        std::uint64_t offset = 0; ///< in the file
        std::span<const std::byte> payload;
    };

    Ring( Source & source, const Header & header );

    /// The next record; false when there is none (yet).
    bool next( Entry & record );

    /// When next() has returned false, looks for more. True if next() is worth a call.
    bool poll();

    /// The block that the last record is in.
    const Block & block() const noexcept { return block_; }

    /// The newest block as the ring was found; its sequence is 0 if there is none.
    const Block & newest() const noexcept { return newest_; }

    /// Passes over blocks, before the first call of next(): those before the first that `isEarly` is
    /// not true of, and from the first on that `isLate` is true of. Of the blocks in their order,
    /// `isEarly` is true of the first ones and `isLate` of the last ones. A block of which `isEarly`
    /// is true is kept if it has the counter of the last such block: that was read when the first of
    /// these blocks was begun.
    using IsTrueOf = std::function<bool( const Block & block )>;
    void narrow( const IsTrueOf & isEarly, const IsTrueOf & isLate );

    const Counts & counts() const noexcept { return counts_; }
    void setReadAhead( std::size_t blocks ) noexcept { chunkBlocks_ = blocks; }

  private:
    void find();
    bool findByOrder();
    bool listMore();
    void listRest();
    void scanBlocks( std::uint64_t after, std::uint64_t fromIndex = 0 );
    void followBlocks( std::uint64_t sequence );
    std::uint64_t blocksOnFile() const;
    bool isLast( std::size_t block ) const noexcept;
    std::uint64_t blockOffset( std::uint64_t index ) const noexcept;
    std::uint64_t blockIndex( std::uint64_t sequence ) const noexcept;
    std::optional<Block> readBlockHeader( std::uint64_t index );
    bool isStillThere( const Block & block ) const;
    bool isOverwritten( std::uint64_t sequence );
    std::uint64_t firstThat( const IsTrueOf & isTrue, bool isLostOne );
    void enterBlock();
    void fillGap( std::uint64_t wanted );
    bool loadChunk();
    bool loadLast( const Block & block );
    bool readAgain();
    void startBlock( const Block & block );
    void countOverwritten( const Block & first );
    void checkEnd();
    std::uint64_t restOfBlock() const noexcept;
    std::size_t committedBytes( std::uint64_t offset, std::size_t position ) const;
    bool isAtRecord() const noexcept;
    bool nextInBlock( Entry & record );

    Source & source_;
    const Bytes & bytes_;
    const Info & info_;
    const std::uint64_t ringOffset_;
    const std::uint64_t recordRoom_;
    Counts counts_;

    // Sequence numbers from `begin` up to, without, `end`.
    struct Range {
        std::uint64_t begin = 1;
        std::uint64_t end = 1;

        bool isEmpty() const noexcept { return begin >= end; }
        bool has( std::uint64_t sequence ) const noexcept {
            return begin <= sequence && sequence < end;
        }
    };

    Block newest_;               ///< as the ring was found
    Range inOrder_;              ///< what was found by the order of the numbers
    Range unlisted_;             ///< of these, what is not in blocks_ yet
    bool isRestListed_ = false;  ///< what is not in order, too
    bool hasOthers_ = false;     ///< a place has a block that is not in order
    std::vector<Block> blocks_;  ///< to be read next, by sequence
    std::size_t nextBlock_ = 0;  ///< in blocks_
    std::size_t chunkBegin_ = 0; ///< the part of blocks_ that is in chunk_
    std::size_t chunkEnd_ = 0;
    std::size_t chunkBlocks_ = 64; ///< how many blocks are read at a time
    std::vector<std::byte> chunk_;
    std::size_t chunkBytes_ = 0; ///< of the chunk, that are on file
    bool isChunkWhole_ = false;  ///< none of it was overwritten while it was read
    std::vector<std::byte> lastBlock_;

    bool isStarted_ = false;     ///< block_ is one that was entered
    bool isLossCounted_ = false; ///< what was lost before the first block
    Block block_{};
    std::uint64_t highest_ = 0; ///< sequence of the blocks that were entered
    const std::byte * blockBytes_ = nullptr;
    std::size_t position_ = 0;    ///< in the block: the next record
    std::size_t limit_ = 0;       ///< in the block: what can be read
    bool isBlockCut_ = false;     ///< the file ends within the block
    bool isBlockDamaged_ = false; ///< and what follows position_ is lost
    bool isRestUnused_ = false;   ///< the writer left the block before it was full
    bool wasOvertaken_ = false;   ///< blocks were overwritten before they could be read
};

} // namespace TraceReader
