#pragma once

#include "tracereader/Header.h"
#include "tracereader/Source.h"

#include <Fleetlog/Format.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace TraceReader {

/// The blocks of a file and the records in them, while a writer may be going round.
class Ring {
  public:
    /// A block that is on file, from its header.
    struct Block {
        std::uint64_t sequence;
        std::uint64_t counter;
        std::int64_t time;
        std::uint32_t thread;
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

    /// The newest block that is still to be read; null if there is none.
    const Block * newest() const noexcept { return blocks_.empty() ? nullptr : &blocks_.back(); }

    const Counts & counts() const noexcept { return counts_; }
    void setReadAhead( std::size_t blocks ) noexcept { chunkBlocks_ = blocks; }

  private:
    void scanBlocks( std::uint64_t after );
    void followBlocks( std::uint64_t sequence );
    std::uint64_t blockOffset( std::uint64_t index ) const noexcept;
    std::uint64_t blockIndex( std::uint64_t sequence ) const noexcept;
    std::optional<Block> readBlockHeader( std::uint64_t index );
    bool isStillThere( const Block & block ) const;
    bool isOverwritten( std::uint64_t sequence );
    bool enterBlock();
    void fillGap( std::uint64_t wanted );
    bool loadChunk();
    bool loadNewest( const Block & block );
    void startBlock( const Block & block );
    void countOverwritten( const Block & first );
    void checkEnd();
    std::uint64_t restOfBlock() const noexcept;
    std::size_t committedBytes( std::uint64_t offset, std::size_t position ) const;
    bool nextInBlock( Entry & record );

    Source & source_;
    const Bytes & bytes_;
    const Info & info_;
    const std::uint64_t ringOffset_;
    const std::uint64_t recordRoom_;
    Counts counts_;

    std::vector<Block> blocks_;  ///< to be read, by sequence
    std::size_t nextBlock_ = 0;  ///< in blocks_
    std::size_t chunkBegin_ = 0; ///< the part of blocks_ that is in chunk_
    std::size_t chunkEnd_ = 0;
    std::size_t chunkBlocks_ = 64; ///< how many blocks are read at a time
    std::vector<std::byte> chunk_;
    std::size_t chunkBytes_ = 0; ///< of the chunk, that are on file
    bool isChunkWhole_ = false;  ///< none of it was overwritten while it was read
    std::vector<std::byte> newest_;

    bool isStarted_ = false; ///< block_ is one that was entered
    Block block_{};
    const std::byte * blockBytes_ = nullptr;
    std::size_t position_ = 0;    ///< in the block: the next record
    std::size_t limit_ = 0;       ///< in the block: what can be read
    bool isBlockCut_ = false;     ///< the file ends within the block
    bool isBlockDamaged_ = false; ///< and what follows position_ is lost
    bool isRestUnused_ = false;   ///< the writer left the block before it was full
    bool wasOvertaken_ = false;   ///< blocks were overwritten before they could be read
};

} // namespace TraceReader
