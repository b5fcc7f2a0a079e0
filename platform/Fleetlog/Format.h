#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

// The layout of a trace file, version 3, as docs/trace-format.md describes it. Written by
// Fleetlog::TraceFile, decoded by TraceReader (tracereader) from these same declarations: a change
// here is a new version of the format and needs a reader that knows all of them. What versions 1 and
// 2 lack is said where it stands.
//
//     FileHeader | descriptors, which never wrap | blocks, which do
//
// All numbers are in the byte order of the machine that wrote them; byteOrderMark tells which.

namespace Fleetlog {

/// What the time of a record is taken from; a property of the file.
enum class Timestamps : std::uint32_t {
    none = 0,    ///< nothing; the reader knows when the record's block was begun
    tick = 1,    ///< a word that the host refreshes (Fleetlog::refreshTick)
    counter = 2, ///< the processor's time-stamp counter, read for each record
};

} // namespace Fleetlog

namespace Fleetlog::Format {

inline constexpr char magic[8] = { 'F', 'L', 'E', 'E', 'T', 'L', 'O', 'G' };
inline constexpr std::uint32_t version = 3;
inline constexpr std::uint32_t oldestVersion = 1;
inline constexpr std::uint32_t byteOrderMark = 0x01020304;

/// The file header, the region of descriptors and each block begin at a multiple of this.
inline constexpr std::size_t pageBytes = 4096;

/// How much of a program's name is kept.
inline constexpr std::size_t maxProgramLength = 63;

enum class State : std::uint32_t {
    open = 1,   ///< being written, or its writer ended without closing it
    closed = 2, ///< closed by its writer
};

struct FileHeader {
    char magic[8];
    std::uint32_t version;
    std::uint32_t byteOrder;
    std::uint32_t headerBytes;     ///< offset of the descriptors
    std::uint32_t blockBytes;      ///< size of a block
    std::uint64_t descriptorBytes; ///< size of the region of descriptors; the blocks follow it
    std::uint64_t blockCount;
    std::uint32_t timestamps;  ///< a Fleetlog::Timestamps
    std::uint32_t process;     ///< process id of the writer
    std::uint32_t thread;      ///< thread id of the writer; 0: any thread of the process
    std::uint32_t recordRoom;  ///< a block with less room than this left is full
    std::uint64_t baseCounter; ///< the counter at baseTime
    std::int64_t baseTime;     ///< nanoseconds since 1970, UTC
    std::uint64_t counterRate; ///< counts a second
    char program[64];          ///< name of the writer's program, cut to maxProgramLength bytes
    std::uint32_t checksum;    ///< of all bytes before it
    // What follows changes while the file is written.
    std::uint32_t state;        ///< a State
    std::uint32_t unregistered; ///< sites whose descriptor found no room
    // What follows is not in version 1.
    std::uint32_t interrupting; ///< records that were dropped: of signal handlers within a record
    std::uint32_t lock;         ///< a Lock
    /// From 1: the place of the file among those that one writer filled one after the other; 0: there
    /// is but this one, a ring. Not in version 2.
    std::uint32_t segment;
};
static_assert( sizeof( FileHeader ) == 168 );
inline constexpr std::size_t headerBytesVersion1 = 160;

/// Whether the file's writer is alive can be told from a lock on the file (an exclusive one by
/// fcntl( F_OFD_SETLK ), on all of it), which the kernel drops when the process ends.
enum class Lock : std::uint32_t {
    unknown = 0, ///< the file system has no such locks, or version 1
    held = 1,    ///< while the writer lives
};

/// A message site. Texts follow, each a 16-bit length and its bytes: the source file, the format
/// letters, the pieces. Zero bytes fill it up to a multiple of 8.
struct DescriptorHeader {
    std::uint32_t size;     ///< of the whole descriptor; 0 ends the list. Written last.
    std::uint32_t checksum; ///< of the bytes after it
    std::uint32_t id;
    std::uint32_t line;
    std::uint32_t pieceCount;
    std::uint32_t reserved; ///< 0
};
static_assert( sizeof( DescriptorHeader ) == 24 );

struct BlockHeader {
    std::uint64_t sequence; ///< 1 for the first block ever written; 0: not in use. Written last.
    std::uint64_t counter;  ///< the counter at `time`; only with Timestamps::counter
    std::int64_t time;      ///< nanoseconds since 1970, UTC; see docs/trace-format.md
    /// Of the whole header, with 0 in this place. In version 1: of the 24 bytes before it.
    std::uint32_t checksum;
    std::uint32_t thread; ///< thread id of the block's writer; 0: any thread. Not in version 1.
};
static_assert( sizeof( BlockHeader ) == 32 );

/// A record. The values follow in argument order without padding: "i" 4 bytes, "s" 2, "b" 1, "p" a
/// 16-bit length (top bit: the text was cut) and the bytes; from version 3 on also "n" 4 bytes, "l" 8,
/// "a" a 16-bit number of elements and 8 bytes for each. The record's size is a multiple of 8.
struct RecordHeader {
    std::uint32_t size; ///< of the whole record; 0 ends the block. Written last.
    std::uint32_t id;   ///< of the site's descriptor
    std::uint64_t time; ///< by the file's timestamps: counter, nanoseconds since 1970, or 0
};
static_assert( sizeof( RecordHeader ) == 16 );

/// The id of a record without values, the last of its block: the writer has left the rest unused.
/// Not in version 1.
inline constexpr std::uint32_t restUnusedId = 0;

inline constexpr std::uint16_t textCutFlag = 0x8000;

/// The checksum of `size` bytes, a multiple of 8: FNV-1a with 64-bit words in place of bytes,
/// folded to 32 bits.
inline std::uint32_t checksum( const void * bytes, std::size_t size ) noexcept {
    std::uint64_t sum = 0xcbf29ce484222325;
    for ( std::size_t at = 0; at + sizeof( std::uint64_t ) <= size;
          at += sizeof( std::uint64_t ) ) {
        std::uint64_t word;
        std::memcpy( &word, static_cast<const unsigned char *>( bytes ) + at, sizeof word );
        sum = ( sum ^ word ) * 0x100000001b3;
    }
    return static_cast<std::uint32_t>( sum ^ sum >> 32 );
}

} // namespace Fleetlog::Format
