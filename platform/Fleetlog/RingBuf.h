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
// or, with the state of the record on the stack, where compilers keep it in registers:
//
//     Fleetlog::RecordWriter record;
//     if ( record.start( *ring, *file, msgId ) ) {
//         record.put4( unit );
//         record.putText( "L3_HDR_ERROR" );
//         record.end();
//     }
//
// A record becomes visible by one store, made when it ends. A process that is killed at any
// instruction leaves every record whose end was reached, and none in half.
//
// Threads: one writer at a time. A ring of a thread's own file belongs to that thread; a ring that
// a process shares is written with the activity lock held.
//
// Signals: a handler may write to the ring of the thread that it interrupts; to one that the process
// shares, if that thread holds the activity lock. If it interrupts a record of that ring, its own
// record is dropped and counted (the reader says so), and the interrupted record is whole. A handler
// uses a RecordWriter, as the library's messages do, or looks at what startMsg() returns: without an
// open record of its own it must not call put...() and endMsg(), which would go to the record that it
// interrupted. The first message of a thread, and the first of a process after fork(), make a file,
// and so does one with Keep::all when the file is full; a handler must not write these. A site that a
// handler registers while another is being registered in the same file is registered at its next
// message.

namespace CairnPlatform {
struct Layout;
}

namespace Fleetlog {

class TraceFile;

/// The longest text value, in bytes. What is beyond is cut, and the reader shows that it was.
inline constexpr std::size_t maxTextBytes = 126;

/// What the values of one record may take up: 8, 4, 2 or 1 byte for a number and maxTextBytes + 2 for
/// each text, however short.
inline constexpr std::size_t maxPayloadBytes = 304;

/// The counter that records are stamped with: the processor's time-stamp counter, or where there is
/// none that a program may read, the nanoseconds of the steady clock.
#if defined( __x86_64__ )
inline std::uint64_t readCounter() noexcept { return __builtin_ia32_rdtsc(); }
#else
std::uint64_t readCounter() noexcept;
#endif

class RingBuf;

/// One record while it is being written. Made on the stack for one record; it has no destructor, so
/// a record that was started must be ended: until then the ring takes no other.
class RecordWriter {
  public:
    /// Begins a record of the site `msgId`. `file` is the file that the ring belongs to. False if the
    /// ring has no file, or if the caller is a signal handler that interrupted a record of the same
    /// ring: then nothing is written. The values that follow must fit into maxPayloadBytes; this is
    /// not checked.
    [[gnu::always_inline]] bool start( RingBuf & ring, TraceFile & file, int msgId ) noexcept;

    /// The same, but false also if the record does not go into the block that is being written; then
    /// the other start() is called. Calls nothing.
    [[gnu::always_inline]] bool startInBlock( RingBuf & ring, int msgId ) noexcept;

    /// Appends a value to the record; without one, drops it.
    void put8( std::uint64_t value ) noexcept { putValue( value ); }
    void put4( std::uint32_t value ) noexcept { putValue( value ); }
    void put2( std::uint16_t value ) noexcept { putValue( value ); }
    void put1( std::uint8_t value ) noexcept { putValue( Octet{ value } ); }

    /// Appends a text of at most maxTextBytes; what is longer is cut. Null is written as "(null)",
    /// as in a trace line. Without a record, drops it.
    [[gnu::always_inline]] void putText( const char * text ) noexcept {
        if ( cursor_ == nullptr )
            return;
        if ( text == nullptr ) [[unlikely]]
            text = "(null)";
        putText( text, std::strlen( text ) );
    }

    /// The same for a text whose length is known; only with a record.
    [[gnu::always_inline]] void putText( const char * text, std::size_t length ) noexcept {
        std::byte * const to = cursor_ + sizeof( std::uint16_t );
        // Like memcpy(), for which compilers put a call or a slow string instruction. The last
        // words overlap those before them, so that nothing beyond the text is read.
        const std::size_t last = length - sizeof( Words );
        if ( last > maxTextBytes - sizeof( Words ) ) [[unlikely]] {
            const std::size_t lastWord = length - sizeof( Word );
            if ( lastWord > sizeof( Word ) ) {
                cursor_ = putShortOrLongText( cursor_, text, length );
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

    /// The same for a text of fewer than 32 bytes where 32 can be read; only with a record.
    [[gnu::always_inline]] void putTextOf32( const char * text, std::size_t length ) noexcept {
        std::byte * const to = cursor_ + sizeof( std::uint16_t );
        store<std::uint16_t>( cursor_, static_cast<std::uint16_t>( length ) );
        copy<Words>( to, text );
        copy<Words>( to + sizeof( Words ), text + sizeof( Words ) );
        cursor_ = to + length;
    }

    /// Ends the record: from here on it is in the file. Without one, does nothing.
    [[gnu::always_inline]] void end() noexcept;

  private:
    friend class RingBuf;

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

    static void storeTime( std::byte * record, std::uint64_t time ) noexcept {
        store<std::uint64_t>( record + offsetof( Format::RecordHeader, time ), time );
    }

    static void storeCounter( std::byte * record ) noexcept {
#if defined( __x86_64__ )
        // As the processor gives it, in two halves.
        std::uint32_t low;
        std::uint32_t high;
        asm volatile( "rdtsc" : "=a"( low ), "=d"( high ) );
        std::byte * const at = record + offsetof( Format::RecordHeader, time );
        store<std::uint32_t>( at, low );
        store<std::uint32_t>( at + sizeof low, high );
#else
        storeTime( record, readCounter() );
#endif
    }

    void begin( RingBuf & ring, std::byte * record, int msgId ) noexcept {
        if ( record == nullptr )
            __builtin_unreachable();
        store<std::uint32_t>( record + offsetof( Format::RecordHeader, id ),
                              static_cast<std::uint32_t>( msgId ) );
        ring_ = &ring;
        record_ = record;
        cursor_ = record + sizeof( Format::RecordHeader );
    }

    typedef std::uint64_t Word;
    typedef std::uint64_t Words __attribute__( ( vector_size( 16 ) ) );

    template <class Value>
    static void copy( std::byte * to, const char * from ) noexcept {
        Value value;
        std::memcpy( &value, from, sizeof value );
        store<Value>( to, value );
    }

    /// A text that is shorter than a Word, or too long and to be cut. Returns where it ends.
    static std::byte * putShortOrLongText( std::byte * cursor, const char * text,
                                           std::size_t length ) noexcept;

    template <class Value>
    void putValue( Value value ) noexcept {
        if ( cursor_ == nullptr )
            return;
        store<Value>( cursor_, value );
        cursor_ += sizeof( Value );
    }

    RingBuf * ring_ = nullptr;
    std::byte * record_ = nullptr;
    std::byte * cursor_ = nullptr; ///< where the next value goes; null: no record is being written
};

class RingBuf {
  public:
    RingBuf() = default;
    RingBuf( const RingBuf & ) = delete;
    RingBuf & operator=( const RingBuf & ) = delete;

    /// Begins a record, and returns whether it did, as RecordWriter::start(). Each record that was
    /// begun must be ended.
    bool startMsg( TraceFile * file, int msgId ) noexcept {
        return open_.start( *this, *file, msgId );
    }

    /// Appends a value to the record that is being written; without one, drops it.
    void put4( std::uint32_t value ) noexcept { open_.put4( value ); }
    void put2( std::uint16_t value ) noexcept { open_.put2( value ); }
    void put1( std::uint8_t value ) noexcept { open_.put1( value ); }
    [[gnu::always_inline]] void putText( const char * text ) noexcept { open_.putText( text ); }

    /// Ends the record: from here on it is in the file. Without one, does nothing.
    void endMsg() noexcept { open_.end(); }

  private:
    friend struct CairnPlatform::Layout;
    friend class RecordWriter;
    friend class TraceFile;

    /// Takes the place where the next record begins, and leaves a mark there that keeps everybody
    /// else away: one instruction, so that no signal comes between.
    std::byte * claim() noexcept {
#if defined( __x86_64__ )
        auto * place = reinterpret_cast<std::byte *>( claimed );
        asm volatile( "xaddq %0, %1" : "+r"( place ), "+m"( place_ ) : : "cc" );
        return place;
#else
        return std::atomic_ref( place_ ).fetch_add( claimed, std::memory_order_relaxed );
#endif
    }

    /// Takes back a claim that another one, who is interrupted, had made before, or that cannot be
    /// used.
    void unclaim() noexcept {
#if defined( __x86_64__ )
        // From the upper half: an instruction takes no longer number than that.
        typedef std::uint32_t Half __attribute__( ( may_alias ) );
        Half & upper = reinterpret_cast<Half *>( &place_ )[1];
        asm volatile( "subl %2, %0"
                      : "+m"( upper ), "+m"( place_ )
                      : "i"( static_cast<std::uint32_t>( claimed >> 32 ) )
                      : "cc" );
#else
        std::atomic_ref( place_ ).fetch_sub( claimed, std::memory_order_relaxed );
#endif
    }

    /// Lets the next record begin at `place`.
    void release( std::byte * place ) noexcept {
        std::atomic_signal_fence( std::memory_order_seq_cst ); // after all that was stored
        place_ = place;
    }

    /// From here on records go to these blocks, which are all zero.
    void begin( std::byte * blocks, std::uint64_t blockCount, Timestamps timestamps,
                std::uint32_t thread ) noexcept;

    /// From here on records go where those of the other ring, which was just begun, would go.
    void goOnAs( const RingBuf & begun ) noexcept;

    /// From here on records go nowhere.
    void end() noexcept;

    /// From here on records are those of another thread: in a block of their own.
    void handOver( std::uint32_t thread ) noexcept;

    /// Claims the place of a record, in the next block or in a new file, and stores its time. Null if
    /// the ring has no file, or if a record is being written, which the caller has interrupted.
    [[gnu::cold, gnu::noinline]] std::byte * claimSlowly( TraceFile & file ) noexcept;
    std::byte * beginBlock() noexcept;
    /// Whether each block has been used since begin(), and the next one would be the first of them.
    bool isLastBlock() const noexcept { return block_ == 0; }
    bool hasRoomAt( const std::byte * place ) const noexcept {
        return place <= limit_ || place <= counterLimit_;
    }
    void readClocks() noexcept;

    /// Room that a record needs: its header, its values, and the size of the record after it.
    static constexpr std::size_t recordRoom =
        sizeof( Format::RecordHeader ) + maxPayloadBytes + sizeof( std::uint64_t );

    /// What a claim adds to a place: more than any address has.
    static constexpr std::uintptr_t claimed = std::uintptr_t( 1 ) << 56;
    static bool isClaimed( const std::byte * place ) noexcept {
        return reinterpret_cast<std::uintptr_t>( place ) >= claimed;
    }

    /// A place beyond every limit, which no record begins at.
    static std::byte * nowhere() noexcept {
        return reinterpret_cast<std::byte *>( std::uintptr_t( 1 ) << 55 );
    }

    std::byte * place_ = nowhere();      ///< where the next record begins; see claim()
    std::byte * limit_ = nullptr;        ///< the last place in the block where a record may begin
    std::byte * counterLimit_ = nullptr; ///< the same if records have the counter; else limit_
    std::uint64_t tick_ = 0;
    RecordWriter open_; ///< for startMsg()

    Timestamps timestamps_ = Timestamps::none;
    std::uint32_t thread_ = 0;
    std::byte * blocks_ = nullptr;
    std::uint64_t blockCount_ = 0;
    std::uint64_t block_ = 0;        ///< the next one
    std::uint64_t sequence_ = 0;     ///< of the block that is being written
    std::uint64_t clockCounter_ = 0; ///< the counter at clockTime_
    std::int64_t clockTime_ = 0;     ///< the wall clock, as it was last read
};

inline bool RecordWriter::startInBlock( RingBuf & ring, int msgId ) noexcept {
    std::byte * const record = ring.claim();
    if ( record <= ring.limit_ ) {
        storeTime( record, ring.tick_ );
    } else if ( record <= ring.counterLimit_ ) {
        storeCounter( record );
    } else [[unlikely]] {
        ring.unclaim();
        return false;
    }
    begin( ring, record, msgId );
    return true;
}

inline bool RecordWriter::start( RingBuf & ring, TraceFile & file, int msgId ) noexcept {
    std::byte * record = ring.claim();
    if ( record <= ring.limit_ ) {
        storeTime( record, ring.tick_ );
    } else if ( record <= ring.counterLimit_ ) {
        storeCounter( record );
    } else [[unlikely]] {
        ring.unclaim();
        record = ring.claimSlowly( file );
        if ( record == nullptr )
            return false;
    }
    begin( ring, record, msgId );
    return true;
}

inline void RecordWriter::end() noexcept {
    if ( cursor_ == nullptr )
        return;
    const std::size_t size = ( reinterpret_cast<std::uintptr_t>( cursor_ ) -
                               reinterpret_cast<std::uintptr_t>( record_ ) + 7 ) &
                             ~std::size_t( 7 );
    std::byte * const next = record_ + size;
    // A reader walks from record to record until a size of 0: the end is moved on before the record
    // is let in.
    store<std::uint32_t>( next, 0 );
    cursor_ = nullptr;
    publish( record_, static_cast<std::uint32_t>( size ) );
    ring_->release( next );
}

/// The text writer of a record.
[[gnu::always_inline]] inline void put( RingBuf * ring, const char * text ) noexcept {
    ring->putText( text );
}

} // namespace Fleetlog
