#pragma once

#include <Fleetlog/Format.h>

#include <atomic>
#include <cstring>

// The ring of a trace file: where records are written. This is the hot path, all of it inline but
// for the change of block.
//
//     ring->startMsg( file, msgId );
//     ring->put4( unit );
//     Fleetlog::put( ring, "L3_HDR_ERROR" );
//     ring->endMsg();
//
// A record becomes visible by the one store that endMsg() makes last. A process that is killed at
// any instruction leaves every record whose endMsg() was reached, and none in half.
//
// Threads: one writer at a time. A ring of a thread's own file belongs to that thread; a ring that
// a process shares is written with the activity lock held.

namespace CairnPlatform {
struct Layout;
}

namespace Fleetlog {

class TraceFile;

/// The longest text value, in bytes. What is beyond is cut, and the reader shows that it was.
inline constexpr std::size_t maxTextBytes = 126;

/// What the values of one record may take up: 4, 2 or 1 byte for a number and maxTextBytes + 2 for
/// each text, however short.
inline constexpr std::size_t maxPayloadBytes = 304;

/// The counter that records are stamped with: the processor's time-stamp counter, or where there is
/// none that a program may read, the nanoseconds of the steady clock.
#if defined( __x86_64__ )
inline std::uint64_t readCounter() noexcept { return __builtin_ia32_rdtsc(); }
#else
std::uint64_t readCounter() noexcept;
#endif

class RingBuf {
  public:
    RingBuf() = default;
    RingBuf( const RingBuf & ) = delete;
    RingBuf & operator=( const RingBuf & ) = delete;

    /// Whether the next record goes into the block that is being written, so that startMsg() will
    /// not have to change it.
    bool hasRoom() const noexcept { return record_ <= limit_; }

    /// Begins a record of the site `msgId`. `file` is the file that this ring belongs to. A record
    /// that was begun and not ended is given up. The values that follow must fit into
    /// maxPayloadBytes; this is not checked.
    void startMsg( TraceFile * file, int msgId ) noexcept {
        std::byte * record = record_;
        if ( !hasRoom() ) [[unlikely]]
            record = changeBlock( *file );
        if ( record == nullptr )
            __builtin_unreachable();
        store<std::uint64_t>( record + offsetof( Format::RecordHeader, time ),
                              timestamps_ == Timestamps::counter ? readCounter() : tick_ );
        store<std::uint32_t>( record + offsetof( Format::RecordHeader, id ),
                              static_cast<std::uint32_t>( msgId ) );
        record_ = record;
        cursor_ = record + sizeof( Format::RecordHeader );
    }

    /// Appends a value to the record that is being written; without one, drops it.
    void put4( std::uint32_t value ) noexcept { putValue( value ); }
    void put2( std::uint16_t value ) noexcept { putValue( value ); }
    void put1( std::uint8_t value ) noexcept { putValue( Octet{ value } ); }

    /// Appends a text of at most maxTextBytes; what is longer is cut. Null is written as "(null)",
    /// as in a trace line. Without a record that is being written, drops it.
    [[gnu::always_inline]] void putText( const char * text ) noexcept {
        if ( cursor_ == nullptr )
            return;
        if ( text == nullptr ) [[unlikely]]
            text = "(null)";
        const std::size_t length = std::strlen( text );
        std::byte * const to = cursor_ + sizeof( std::uint16_t );
        // Like memcpy(), for which compilers put a call or a slow string instruction. The last
        // words overlap those before them, so that nothing beyond the text is read.
        const std::size_t last = length - sizeof( Words );
        if ( last > maxTextBytes - sizeof( Words ) ) [[unlikely]] {
            const std::size_t lastWord = length - sizeof( Word );
            if ( lastWord > sizeof( Word ) ) {
                putShortOrLongText( text, length );
                return;
            }
            store<std::uint16_t>( cursor_, static_cast<std::uint16_t>( length ) );
            copy<Word>( to, text );
            copy<Word>( to + lastWord, text + lastWord );
        } else {
            store<std::uint16_t>( cursor_, static_cast<std::uint16_t>( length ) );
            copy<Words>( to, text );
            for ( std::size_t at = sizeof( Words ); at < last; at += sizeof( Words ) )
                copy<Words>( to + at, text + at );
            copy<Words>( to + last, text + last );
        }
        cursor_ = to + length;
    }

    /// Ends the record: from here on it is in the file. Without one, does nothing.
    void endMsg() noexcept {
        if ( cursor_ == nullptr )
            return;
        std::byte * const record = record_;
        const std::size_t size = ( reinterpret_cast<std::uintptr_t>( cursor_ ) -
                                   reinterpret_cast<std::uintptr_t>( record ) + 7 ) &
                                 ~std::size_t( 7 );
        std::byte * const next = record + size;
        // A reader walks from record to record until a size of 0: the end is moved on before the
        // record is let in.
        store<std::uint32_t>( next, 0 );
        record_ = next;
        cursor_ = nullptr;
        publish( record, static_cast<std::uint32_t>( size ) );
    }

  private:
    friend struct CairnPlatform::Layout;
    friend class TraceFile;

    /// One byte that is not a character: a store of a character could change any object.
    enum class Octet : std::uint8_t {};

    /// A number as it lies in the ring, aligned to nothing. The stores keep their type, so that the
    /// compiler sees that they do not change this object.
    template <class Value>
    static void store( std::byte * at, Value value ) noexcept {
        typedef Value Unaligned __attribute__( ( aligned( 1 ) ) );
        *reinterpret_cast<Unaligned *>( at ) = value;
    }

    static void publish( std::byte * at, std::uint32_t value ) noexcept {
        std::atomic_ref<std::uint32_t>( *reinterpret_cast<std::uint32_t *>( at ) )
            .store( value, std::memory_order_release );
    }

    typedef std::uint64_t Word;
    typedef std::uint64_t Words __attribute__( ( vector_size( 16 ) ) );

    template <class Value>
    static void copy( std::byte * to, const char * from ) noexcept {
        Value value;
        std::memcpy( &value, from, sizeof value );
        store<Value>( to, value );
    }

    /// A text that is shorter than a Word, or too long and to be cut.
    void putShortOrLongText( const char * text, std::size_t length ) noexcept;

    template <class Value>
    void putValue( Value value ) noexcept {
        if ( cursor_ == nullptr )
            return;
        store<Value>( cursor_, value );
        cursor_ += sizeof( Value );
    }

    /// From here on records go to these blocks, which are all zero.
    void begin( std::byte * blocks, std::uint64_t blockCount, Timestamps timestamps ) noexcept;

    /// From here on records go nowhere.
    void end() noexcept;

    /// Begins the next block and returns where its first record goes. Never null: without blocks,
    /// records are written to scratch_, which nobody reads.
    [[gnu::cold, gnu::noinline]] std::byte * changeBlock( TraceFile & file ) noexcept;
    std::byte * beginBlock() noexcept;
    void readClocks() noexcept;

    /// Room that a record needs: its header, its values, and the size of the record after it.
    static constexpr std::size_t recordRoom =
        sizeof( Format::RecordHeader ) + maxPayloadBytes + sizeof( std::uint64_t );

    std::byte * record_ = scratch_; ///< the record that is being written, or where the next begins
    std::byte * cursor_ = nullptr;  ///< where its next value goes; null: none is being written
    std::byte * limit_ = nullptr;   ///< the last place in the block where a record may begin
    Timestamps timestamps_ = Timestamps::none;
    std::uint64_t tick_ = 0;

    std::byte * blocks_ = nullptr;
    std::uint64_t blockCount_ = 0;
    std::uint64_t block_ = 0;        ///< the next one
    std::uint64_t sequence_ = 0;     ///< of the block that is being written
    std::uint64_t clockCounter_ = 0; ///< the counter at clockTime_
    std::int64_t clockTime_ = 0;     ///< the wall clock, as it was last read
    alignas( 8 ) std::byte scratch_[recordRoom];
};

/// The text writer of a record.
[[gnu::always_inline]] inline void put( RingBuf * ring, const char * text ) noexcept {
    ring->putText( text );
}

} // namespace Fleetlog
