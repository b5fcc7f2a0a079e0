#include "tracereader/Header.h"

#include "text/Numbers.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <span>
#include <string>

namespace TraceReader {

namespace {

namespace Layout = Fleetlog::Format;

// What a writer makes at most. What is beyond was never written by one, and is refused, so that
// reading takes no more time and memory than the file is worth.
constexpr std::uint64_t maxRegionBytes = std::uint64_t( 1 ) << 40;

bool isZero( std::span<const std::byte> bytes ) noexcept {
    return std::all_of( bytes.begin(), bytes.end(),
                        []( std::byte each ) { return each == std::byte{ 0 }; } );
}

} // namespace

Header::Header( Source & source )
    : source_( source ), bytes_( *source.bytes ), info_( source.info ) {
    read();
    checkSize();
}

void Header::read() {
    const auto refuse = [this]( const std::string & why ) { throw Error( info_.path, why ); };

    Layout::FileHeader header{};
    const std::size_t got = bytes_.read( 0, &header, sizeof header );
    if ( got == 0 )
        refuse( "is empty: its writer was stopped before it had made it" );
    if ( got < sizeof header.magic ||
         std::memcmp( header.magic, Layout::magic, sizeof header.magic ) != 0 ) {
        if ( isZero( { reinterpret_cast<const std::byte *>( &header ), got } ) )
            refuse( "begins with zeros: its writer was stopped before it had written the header" );
        refuse( "not a trace file: it does not begin with \"FLEETLOG\"" );
    }
    const auto endsWithin = [&]( std::size_t bytes ) {
        if ( got < bytes )
            refuse( "ends within its header, after " + Text::counted( got, "byte" ) +
                    "; nothing can be read" );
    };
    endsWithin( Layout::headerBytesVersion1 );
    if ( header.byteOrder == __builtin_bswap32( Layout::byteOrderMark ) )
        refuse( "written on a machine of the other byte order; read it on such a machine" );
    if ( header.version < Layout::oldestVersion || header.version > Layout::version )
        refuse( fmt::format(
            "has format version {}; this reader knows versions {} to {}: use the reader "
            "that belongs to the program that wrote it",
            header.version, Layout::oldestVersion, Layout::version ) );
    if ( header.version > 1 )
        endsWithin( sizeof header );
    const auto isRegion = []( std::uint64_t bytes ) {
        return bytes % Layout::pageBytes == 0 && bytes >= Layout::pageBytes &&
               bytes <= maxRegionBytes;
    };
    if ( header.byteOrder != Layout::byteOrderMark || header.headerBytes != Layout::pageBytes ||
         !isRegion( header.descriptorBytes ) || header.blockBytes != Layout::pageBytes ||
         header.blockCount < 2 || header.blockCount > maxRegionBytes / Layout::pageBytes )
        refuse( "has a damaged header: header of " + Text::counted( header.headerBytes, "byte" ) +
                ", " + Text::counted( header.descriptorBytes, "byte" ) + " of descriptors, " +
                Text::counted( header.blockCount, "block" ) + " of " +
                Text::counted( header.blockBytes, "byte" ) +
                "; no writer makes such a file, and nothing can be found in it" );

    if ( header.checksum != Layout::checksum( &header, offsetof( Layout::FileHeader, checksum ) ) )
        source_.damage( 0, "the header is damaged; program, process and times may be wrong" );
    descriptorOffset_ = header.headerBytes;
    ringOffset_ = header.headerBytes + header.descriptorBytes;

    recordRoom_ = header.recordRoom;

    info_.version = header.version;
    const auto end = std::find( std::begin( header.program ), std::end( header.program ), '\0' );
    info_.program.assign( std::begin( header.program ), end );
    info_.process = header.process;
    info_.thread = header.thread;
    timestamps_ = static_cast<Fleetlog::Timestamps>( header.timestamps );
    switch ( timestamps_ ) {
    case Fleetlog::Timestamps::counter:
        info_.timestamps = "counter";
        break;
    case Fleetlog::Timestamps::tick:
        info_.timestamps = "tick";
        break;
    case Fleetlog::Timestamps::none:
        info_.timestamps = "none";
        break;
    default:
        source_.damage( offsetof( Layout::FileHeader, timestamps ),
                        fmt::format( "unknown timestamps {}; records are shown with the times of "
                                     "their blocks",
                                     header.timestamps ) );
        timestamps_ = Fleetlog::Timestamps::none;
        info_.timestamps = "none";
    }
    info_.isTimeOfBlock = timestamps_ == Fleetlog::Timestamps::none;
    info_.counterRate = header.counterRate;
    info_.openTime = header.baseTime;
    info_.descriptorBytes = header.descriptorBytes;
    info_.blockBytes = header.blockBytes;
    info_.blockCount = header.blockCount;

    clock_.baseCounter = header.baseCounter;
    clock_.baseTime = header.baseTime;
    if ( header.counterRate != 0 )
        clock_.nanosecondsPerCount = 1e9 / static_cast<double>( header.counterRate );
    readAgain();
}

void Header::readAgain() {
    Layout::FileHeader header{};
    if ( bytes_.read( 0, &header, sizeof header ) < Layout::headerBytesVersion1 )
        return;
    info_.isClosed = header.state == static_cast<std::uint32_t>( Layout::State::closed );
    info_.unregistered = header.unregistered;
    if ( info_.version == 1 )
        return;
    info_.interrupting = header.interrupting;
    info_.segment = info_.version < 3 ? 0 : header.segment;
    info_.hasLock = header.lock == static_cast<std::uint32_t>( Layout::Lock::held );
}

void Header::checkSize() {
    const std::uint64_t size = size_ = bytes_.size();
    const std::uint64_t whole = ringOffset_ + info_.blockCount * info_.blockBytes;
    if ( size < ringOffset_ )
        source_.damage( size, "the file ends here, before its records; it should have " +
                                  Text::counted( whole, "byte" ) );
    else if ( size < whole )
        source_.damage(
            size,
            fmt::format( "the file ends here; it should have {}. {} of {} missing or cut",
                         Text::counted( whole, "byte" ),
                         Text::counted( ( whole - size + info_.blockBytes - 1 ) / info_.blockBytes,
                                        "block" ),
                         info_.blockCount ) );
    else if ( size > whole )
        source_.damage( whole, Text::counted( size - whole, "byte" ) + " after the end" );
}

void Header::checkNotCut() {
    const std::uint64_t size = bytes_.size();
    if ( size >= size_ )
        return;
    source_.damage( size, "the file was cut here, from " + Text::counted( size_, "byte" ) +
                              ", while it was read; what was behind is lost" );
    size_ = size;
    info_.isCut = true;
}

Writer Header::writer() const {
    if ( info_.isCut )
        return Writer::ended;
    if ( !info_.hasLock )
        return info_.isClosed ? Writer::ended : Writer::unknown;
    const auto isLocked = bytes_.isLocked();
    return !isLocked ? Writer::unknown : *isLocked ? Writer::lives : Writer::ended;
}

} // namespace TraceReader
