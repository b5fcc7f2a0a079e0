#include "interpose/TraceRecorder.h"

#include "interpose/SdkCall.h"

#include <Fleetlog/CallFormat.h>
#include <Fleetlog/MsgDesc.h>
#include <Fleetlog/TraceHandle.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <mutex>
#include <span>
#include <stdexcept>
#include <string_view>

#if defined( __SSE2__ )
#include <emmintrin.h>
#endif

#if defined( __SANITIZE_ADDRESS__ ) || defined( __SANITIZE_THREAD__ )
#define CAIRN_SANITIZED
#elif defined( __has_feature )
#if __has_feature( address_sanitizer ) || __has_feature( thread_sanitizer )
#define CAIRN_SANITIZED
#endif
#endif

namespace Interpose {

namespace {

namespace Format = Fleetlog::Format;
static_assert( Format::callTextPieceBytes == Fleetlog::maxTextBytes );
using Fleetlog::RecordWriter;
using Fleetlog::TraceFile;

// The place of a call in Format::callLayouts: the operations are in the same order.
constexpr std::size_t layoutOf( SdkCall call ) noexcept {
    constexpr std::size_t operations = 9;
    switch ( call ) {
    case SdkCall::preCallHook:
        return operations;
    case SdkCall::failureHook:
        return operations + 1;
    default:
        return static_cast<std::size_t>( call ) -
               static_cast<std::size_t>( SdkCall::entryAllocate );
    }
}
static_assert( layoutOf( SdkCall::ptEntryCommit ) + 1 == layoutOf( SdkCall::preCallHook ) &&
               layoutOf( SdkCall::failureHook ) + 1 == Format::callCount );

// The sites, which all recorders of the process share. This copy of the writer has no others, and gives
// them their identifiers in order when the first recorder is made.
constexpr std::size_t siteCount = 2 * Format::callCount + 3;
constexpr std::size_t hardwareSite = siteCount - 3;
constexpr std::size_t textSite = siteCount - 2;
constexpr std::size_t valuesSite = siteCount - 1;
std::array<int, siteCount> siteIds{};

constexpr int idOf( std::size_t site ) noexcept { return static_cast<int>( site ) + 1; }
constexpr int beforeId( SdkCall call ) noexcept { return idOf( 2 * layoutOf( call ) ); }
constexpr int afterId( SdkCall call ) noexcept { return idOf( 2 * layoutOf( call ) + 1 ); }

void registerSite( TraceFile & file, std::size_t site, const char * name, const char * letters,
                   const char * text, Format::CallPart part,
                   const char * source = Format::callSource ) {
    Fleetlog::MsgDesc descriptor( &file, &siteIds[site], source, static_cast<int>( part ) );
    descriptor.formatString().put( letters );
    descriptor << name << text;
    descriptor.finish();
}

[[gnu::cold, gnu::noinline]] void registerSites( TraceFile & file ) noexcept {
    for ( std::size_t i = 0; i < Format::callCount; ++i ) {
        const auto & call = Format::callLayouts[i];
        registerSite( file, 2 * i, call.name, call.before, call.beforeText,
                      Format::CallPart::before );
        registerSite( file, 2 * i + 1, call.name, call.after, call.afterText,
                      Format::CallPart::after );
    }
    registerSite( file, hardwareSite, Format::hardwareName, Format::hardwareLetters,
                  Format::hardwareText, Format::CallPart::before, Format::hardwareSource );
    registerSite( file, textSite, Format::callPieceName, Format::callTextLetters,
                  Format::callTextText, Format::CallPart::text );
    registerSite( file, valuesSite, Format::callPieceName, Format::callValuesLetters,
                  Format::callValuesText, Format::CallPart::values );
}

// What of a text does not fit into its call's own record.
void writePieces( TraceFile & file, std::size_t which, std::string_view text ) noexcept {
    for ( std::size_t start = Fleetlog::maxTextBytes; start < text.size();
          start += Fleetlog::maxTextBytes ) {
        RecordWriter record;
        if ( !record.start( *file.ringBuf(), file, idOf( textSite ) ) )
            return;
        // A text that goes on would be marked as cut.
        char piece[Fleetlog::maxTextBytes] = {};
        const std::size_t length = std::min( text.size() - start, sizeof piece );
        std::memcpy( piece, text.data() + start, length );
        record.put4( static_cast<std::uint32_t>( which ) );
        record.put4( static_cast<std::uint32_t>( start ) );
        record.put4( static_cast<std::uint32_t>( text.size() ) );
        record.putText( piece, length );
        record.end();
    }
}

// An array that a call adds; null if the caller gave none.
using Array = std::span<const std::uint64_t>;

[[gnu::always_inline]] inline void putArray( RecordWriter & record, Array values ) noexcept {
    record.put2( static_cast<std::uint16_t>( values.size() ) );
    for ( const std::uint64_t value : values )
        record.put8( value );
}

void writePieces( TraceFile & file, Array values ) noexcept {
    for ( std::size_t start = Format::maxCallValues; start < values.size();
          start += Format::maxCallValues ) {
        RecordWriter record;
        if ( !record.start( *file.ringBuf(), file, idOf( valuesSite ) ) )
            return;
        record.put4( static_cast<std::uint32_t>( start ) );
        record.put4( static_cast<std::uint32_t>( values.size() ) );
        putArray( record, values.subspan(
                              start, std::min( values.size() - start, Format::maxCallValues ) ) );
        record.end();
    }
}

// A text that a caller gives.
struct Text {
    std::string_view view() const noexcept { return given != nullptr ? given : "(null)"; }

    const char * given;
    std::size_t which = 0; ///< of the texts of its call
};

// A short text, of which the bytes of the longest can be read. The end is looked for, and the text
// copied, in steps of 16 bytes: that reads behind its end, but never behind its page. Sanitizers
// object; with them, no text is short.
class ShortText {
  public:
    [[gnu::always_inline]] explicit ShortText( const Text & text ) noexcept {
        constexpr std::size_t pageBytes = 4096; // at least
        // Neither null nor, for that one comparison does for both, the first byte of a page.
        if ( !readsInSteps || ( reinterpret_cast<std::uintptr_t>( text.given ) - 1 ) % pageBytes >=
                                  pageBytes - maxBytes ) [[unlikely]]
            return;
        std::uint32_t ends = endsIn16( text.given );
        if ( ends == 0 )
            ends = endsIn16( text.given + 16 ) << 16;
        if ( ends == 0 ) [[unlikely]]
            return;
        text_ = text.given;
        length_ = static_cast<std::uint32_t>( std::countr_zero( ends ) );
    }

    /// Whether the text is short.
    explicit operator bool() const noexcept { return text_ != nullptr; }

    [[gnu::always_inline]] void putInto( RecordWriter & record ) const noexcept {
        record.putTextOf32( text_, length_ );
    }

    static constexpr std::size_t maxBytes = 32;

  private:
#if defined( __SSE2__ ) && !defined( CAIRN_SANITIZED )
    static constexpr bool readsInSteps = true;

    // A bit for each of 16 bytes that is zero.
    static std::uint32_t endsIn16( const char * from ) noexcept {
        const __m128i bytes = _mm_loadu_si128( reinterpret_cast<const __m128i *>( from ) );
        return static_cast<std::uint32_t>(
            _mm_movemask_epi8( _mm_cmpeq_epi8( bytes, _mm_setzero_si128() ) ) );
    }
#else
    static constexpr bool readsInSteps = false;
    static std::uint32_t endsIn16( const char * ) noexcept { return 0; }
#endif

    const char * text_ = nullptr;
    std::uint32_t length_ = 0;
};

// One of the SDK's constants by its number.
struct Constant {
    Constant() = default;
    Constant( Shim::Sdk & sdk, SdkCall constant )
        : number( askNumber( sdk, constant ) ), length( Interpose::name( constant ).size() ) {
        Interpose::name( constant ).copy( name, sizeof name - 1 );
    }

    std::uint32_t number = 0;
    std::size_t length = 0;
    char name[ShortText::maxBytes] = {};
};

template <std::size_t count>
using Constants = std::array<Constant, count>;

template <class... Calls>
Constants<sizeof...( Calls )> ask( Shim::Sdk & sdk, Calls... calls ) {
    return { Constant( sdk, calls )... };
}

template <std::size_t count>
[[gnu::always_inline]] inline const Constant & find( const Constants<count> & constants,
                                                     std::uint32_t number ) noexcept {
    static constexpr Constant unknown;
    for ( std::size_t i = 0; i < count; ++i )
        if ( constants[i].number == number )
            return constants[i];
    return unknown;
}

// The values of a record, as they are put into it.
[[gnu::always_inline]] inline void put( RecordWriter & record, const ShortText & text ) noexcept {
    text.putInto( record );
}
inline void put( RecordWriter & record, const Text & text ) noexcept {
    const auto whole = text.view();
    record.putText( whole.data(), whole.size() );
}
[[gnu::always_inline]] inline void put( RecordWriter & record,
                                        const Constant * constant ) noexcept {
    record.putTextOf32( constant->name, constant->length );
}
[[gnu::always_inline]] inline void put( RecordWriter & record, Array values ) noexcept {
    putArray( record, values.first( std::min( values.size(), Format::maxCallValues ) ) );
}
inline void put( RecordWriter & record, std::uint16_t value ) noexcept { record.put2( value ); }
inline void put( RecordWriter & record, std::uint32_t value ) noexcept { record.put4( value ); }
inline void put( RecordWriter & record, std::uint64_t value ) noexcept { record.put8( value ); }
inline void put( RecordWriter & record, std::int32_t value ) noexcept {
    record.put4( static_cast<std::uint32_t>( value ) );
}

// The values as the quick way takes them, and whether it can.
template <class Value>
const Value & quick( const Value & value ) noexcept {
    return value;
}
[[gnu::always_inline]] inline ShortText quick( const Text & text ) noexcept {
    return ShortText( text );
}
template <class Value>
bool isQuick( const Value & ) noexcept {
    return true;
}
inline bool isQuick( const ShortText & text ) noexcept { return static_cast<bool>( text ); }
inline bool isQuick( Array values ) noexcept { return values.size() <= Format::maxCallValues; }

// What does not fit into the record of the values.
template <class Value>
void writePieces( TraceFile &, const Value & ) noexcept {}
inline void writePieces( TraceFile & file, const Text & text ) noexcept {
    writePieces( file, text.which, text.view() );
}

template <class... Values>
[[gnu::cold, gnu::noinline]] void writeSlowly( TraceFile & file, int id,
                                               Values... values ) noexcept {
    ( writePieces( file, values ), ... );
    RecordWriter record;
    if ( !record.start( *file.ringBuf(), file, id ) )
        return;
    ( put( record, values ), ... );
    record.end();
}

// Writes a record of values, inline if their texts are short and it goes into the block that is being
// written.
template <class... Values>
[[gnu::always_inline]] inline void write( TraceFile & file, int id, Values... values ) noexcept {
    const auto writeQuickly = [&]( const auto &... ready ) __attribute__( ( always_inline ) ) {
        RecordWriter record;
        if ( !( isQuick( ready ) && ... ) || !record.startInBlock( *file.ringBuf(), id ) )
            [[unlikely]]
            return false;
        ( put( record, ready ), ... );
        record.end();
        return true;
    };
    if ( !writeQuickly( quick( values )... ) ) [[unlikely]]
        writeSlowly( file, id, values... );
}

Fleetlog::OpenOptions openOptions( const TraceRecorder::Options & options ) {
    const bool isRing = options.keep == TraceRecorder::Keep::newest;
    Fleetlog::OpenOptions open;
    open.directory = options.directory;
    open.suffix = ".sdk";
    open.files = Fleetlog::Files::perThread;
    open.keep = isRing ? Fleetlog::Keep::newest : Fleetlog::Keep::all;
    open.ringBytes =
        options.fileBytes != 0 ? options.fileBytes : std::size_t( isRing ? 4 : 64 ) << 20;
    open.keepSegments = options.keepFullFiles;
    open.descriptorBytes = 8192; // those of the sites above
    open.keepFiles = options.keepFiles != 0 ? options.keepFiles : isRing ? 1000 : SIZE_MAX;
    open.keepBytes = options.keepBytes != 0 ? options.keepBytes
                     : isRing               ? std::uint64_t( 4 ) << 30
                                            : UINT64_MAX;
    return open;
}

} // namespace

struct TraceRecorder::State {
    State( Shim::Sdk & sdk, const Options & options )
        : opcodes( ask( sdk, SdkCall::opcodeInsert, SdkCall::opcodeLookup, SdkCall::opcodeUpdate,
                        SdkCall::opcodeDelete ) ),
          ptOpcodes(
              ask( sdk, SdkCall::ptOpcodeModify, SdkCall::ptOpcodeSet, SdkCall::ptOpcodeGet ) ),
          priorities( ask( sdk, SdkCall::priorityNormal ) ),
          attributes( ask( sdk, SdkCall::attrGetFromHw ) ),
          invalidHandle( sdk.BCMLT_INVALID_HDL() ), isLockHeld( options.isLockHeld ),
          trace( openOptions( options ) ) {
        static std::mutex givingIds;
        const std::lock_guard lock( givingIds );
        registerSites( *trace.mtTraceFile() );
        if ( siteIds.back() != idOf( valuesSite ) )
            throw std::logic_error( "TraceRecorder: its writer knows other sites" );
    }

    // The calling thread's file with all sites in it; null if it has none.
    [[gnu::always_inline]] TraceFile * file() noexcept {
        TraceFile * const known = trace.rememberedFile();
        // A file that is new, also one of a child, lacks the site that is registered last.
        if ( known == nullptr || known->initialised()[idOf( valuesSite )] == 0 ) [[unlikely]]
            return askFile();
        return known;
    }

    [[gnu::cold, gnu::noinline]] TraceFile * askFile() noexcept {
        TraceFile * const file = trace.mtTraceFile();
        if ( file != nullptr ) {
            trace.rememberFile( *file );
            if ( file->initialised()[idOf( valuesSite )] == 0 )
                registerSites( *file );
        }
        return file;
    }

    std::uint16_t lockState() const noexcept {
        const auto state = isLockHeld == nullptr ? Format::LockState::unknown
                           : isLockHeld()        ? Format::LockState::held
                                                 : Format::LockState::free;
        return static_cast<std::uint16_t>( state );
    }

    // Records what is before a call. Returns the file that the calling thread writes to; null if it
    // has none.
    template <class... Values>
    [[gnu::always_inline]] TraceFile * recordBefore( SdkCall call, Values... inputs ) noexcept {
        TraceFile * const where = file();
        if ( where != nullptr ) [[likely]]
            write( *where, beforeId( call ), lockState(), inputs... );
        return where;
    }

    // Records what is after it.
    template <class... Values>
    [[gnu::always_inline]] static void recordAfter( TraceFile * where, SdkCall call,
                                                    Values... outputs ) noexcept {
        if ( where != nullptr ) [[likely]]
            write( *where, afterId( call ), outputs... );
    }

    const Constants<4> opcodes;
    const Constants<3> ptOpcodes;
    const Constants<1> priorities;
    const Constants<1> attributes;
    const std::uint32_t invalidHandle;
    bool ( *const isLockHeld )();
    Fleetlog::TraceHandle trace;
};

TraceRecorder::TraceRecorder( Shim::Sdk & inner, const Options & options )
    : Interposer( inner ), state_( std::make_unique<State>( inner, options ) ) {}

TraceRecorder::~TraceRecorder() = default;

int TraceRecorder::bcmlt_entry_allocate( int unit, const char * table,
                                         std::uint32_t * handle ) noexcept {
    constexpr auto call = SdkCall::entryAllocate;
    TraceFile * const file = state_->recordBefore( call, unit, Text{ table } );
    const int rc = inner().bcmlt_entry_allocate( unit, table, handle );
    state_->recordAfter( file, call, rc,
                         rc >= 0 && handle != nullptr ? *handle : state_->invalidHandle );
    return rc;
}

int TraceRecorder::bcmlt_entry_attrib_set( std::uint32_t handle,
                                           std::uint32_t attribute ) noexcept {
    constexpr auto call = SdkCall::entryAttribSet;
    TraceFile * const file =
        state_->recordBefore( call, handle, attribute, &find( state_->attributes, attribute ) );
    const int rc = inner().bcmlt_entry_attrib_set( handle, attribute );
    state_->recordAfter( file, call, rc, handle );
    return rc;
}

int TraceRecorder::bcmlt_entry_commit( std::uint32_t handle, std::uint32_t opcode,
                                       std::uint32_t priority ) noexcept {
    constexpr auto call = SdkCall::entryCommit;
    TraceFile * const file =
        state_->recordBefore( call, handle, opcode, priority, &find( state_->opcodes, opcode ),
                              &find( state_->priorities, priority ) );
    const int rc = inner().bcmlt_entry_commit( handle, opcode, priority );
    state_->recordAfter( file, call, rc, handle );
    return rc;
}

int TraceRecorder::bcmlt_entry_field_add( std::uint32_t handle, const char * field,
                                          std::uint64_t value ) noexcept {
    constexpr auto call = SdkCall::entryFieldAdd;
    TraceFile * const file = state_->recordBefore( call, handle, value, Text{ field } );
    const int rc = inner().bcmlt_entry_field_add( handle, field, value );
    state_->recordAfter( file, call, rc, handle );
    return rc;
}

int TraceRecorder::bcmlt_entry_field_array_add( std::uint32_t handle, const char * field,
                                                std::uint32_t startIndex,
                                                const std::uint64_t * values,
                                                std::uint32_t count ) noexcept {
    constexpr auto call = SdkCall::entryFieldArrayAdd;
    TraceFile * const file = state_->recordBefore( call, handle, startIndex, count, Text{ field },
                                                   Array( values, values != nullptr ? count : 0 ) );
    const int rc = inner().bcmlt_entry_field_array_add( handle, field, startIndex, values, count );
    state_->recordAfter( file, call, rc, handle );
    return rc;
}

int TraceRecorder::bcmlt_entry_field_get( std::uint32_t handle, const char * field,
                                          std::uint64_t * value ) noexcept {
    constexpr auto call = SdkCall::entryFieldGet;
    TraceFile * const file = state_->recordBefore( call, handle, Text{ field } );
    const int rc = inner().bcmlt_entry_field_get( handle, field, value );
    const std::uint64_t read = rc >= 0 && value != nullptr ? *value : 0;
    state_->recordAfter( file, call, rc, handle, read );
    return rc;
}

int TraceRecorder::bcmlt_entry_field_symbol_add( std::uint32_t handle, const char * field,
                                                 const char * symbol ) noexcept {
    constexpr auto call = SdkCall::entryFieldSymbolAdd;
    TraceFile * const file = state_->recordBefore( call, handle, Text{ field }, Text{ symbol, 1 } );
    const int rc = inner().bcmlt_entry_field_symbol_add( handle, field, symbol );
    state_->recordAfter( file, call, rc, handle );
    return rc;
}

int TraceRecorder::bcmlt_entry_free( std::uint32_t handle ) noexcept {
    constexpr auto call = SdkCall::entryFree;
    TraceFile * const file = state_->recordBefore( call, handle );
    const int rc = inner().bcmlt_entry_free( handle );
    state_->recordAfter( file, call, rc, handle );
    return rc;
}

int TraceRecorder::bcmlt_pt_entry_commit( std::uint32_t handle, std::uint32_t opcode,
                                          std::uint32_t priority ) noexcept {
    constexpr auto call = SdkCall::ptEntryCommit;
    TraceFile * const file =
        state_->recordBefore( call, handle, opcode, priority, &find( state_->ptOpcodes, opcode ),
                              &find( state_->priorities, priority ) );
    const int rc = inner().bcmlt_pt_entry_commit( handle, opcode, priority );
    state_->recordAfter( file, call, rc, handle );
    return rc;
}

void TraceRecorder::preCallHook() noexcept {
    TraceFile * const file = state_->recordBefore( SdkCall::preCallHook );
    inner().preCallHook();
    state_->recordAfter( file, SdkCall::preCallHook );
}

void TraceRecorder::failureHook() noexcept {
    TraceFile * const file = state_->recordBefore( SdkCall::failureHook );
    inner().failureHook();
    state_->recordAfter( file, SdkCall::failureHook );
}

void TraceRecorder::noteHardwareChange( const HardwareChange & change ) noexcept {
    TraceFile * const file = state_->file();
    if ( file != nullptr )
        write( *file, idOf( hardwareSite ), change.unit, change.index, change.instance, change.port,
               Text{ change.table }, Text{ change.field, 1 }, change.element, change.value );
}

} // namespace Interpose
