#include "tracereader/TraceReader.h"

#include "text/Escape.h"
#include "tracereader/Bytes.h"

#include <Fleetlog/Format.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <unordered_map>
#include <unordered_set>

namespace TraceReader {

namespace {

namespace Layout = Fleetlog::Format;

// What a writer makes at most. What is beyond was never written by one, and is refused, so that
// reading takes no more time and memory than the file is worth.
constexpr std::uint64_t maxDescriptorSize = 2048;
constexpr std::size_t maxLetters = 64;
constexpr std::uint64_t maxRegionBytes = std::uint64_t( 1 ) << 40;
constexpr std::uint32_t maxSiteId = 1 << 20;

template <class Value>
Value load( const std::byte * at ) noexcept {
    Value value;
    std::memcpy( &value, at, sizeof value );
    return value;
}

std::string count( std::uint64_t number, const char * what ) {
    return std::to_string( number ) + " " + what + ( number == 1 ? "" : "s" );
}

// Takes values off the front of bytes; once one does not fit, nothing does.
class Cursor {
  public:
    explicit Cursor( std::span<const std::byte> bytes ) noexcept : bytes_( bytes ) {}

    template <class Number>
    bool take( Number & number ) noexcept {
        if ( bytes_.size() < sizeof number )
            return false;
        number = load<Number>( bytes_.data() );
        bytes_ = bytes_.subspan( sizeof number );
        return true;
    }

    // A text with its length before it. The top bit of the length may be a flag.
    bool take( std::string_view & text, std::uint16_t flag, bool & isFlagged ) noexcept {
        std::uint16_t prefix = 0;
        if ( !take( prefix ) )
            return false;
        isFlagged = ( prefix & flag ) != 0;
        const std::size_t length = prefix & static_cast<std::uint16_t>( ~flag );
        if ( bytes_.size() < length )
            return false;
        text = { reinterpret_cast<const char *>( bytes_.data() ), length };
        bytes_ = bytes_.subspan( length );
        return true;
    }

    bool take( std::string_view & text ) noexcept {
        bool isFlagged = false;
        return take( text, 0, isFlagged );
    }

    std::size_t left() const noexcept { return bytes_.size(); }

  private:
    std::span<const std::byte> bytes_;
};

bool takeValue( Cursor & cursor, char letter, Value & value ) noexcept {
    value = { letter, 0, {}, false };
    std::uint16_t two = 0;
    std::uint8_t one = 0;
    switch ( letter ) {
    case 'i':
        return cursor.take( value.number );
    case 's':
        if ( !cursor.take( two ) )
            return false;
        value.number = two;
        return true;
    case 'b':
        if ( !cursor.take( one ) )
            return false;
        value.number = one;
        return true;
    case 'p':
        return cursor.take( value.text, Layout::textCutFlag, value.isCut );
    default:
        return false;
    }
}

// The bytes of values without texts; nothing if there are texts, or letters that nobody knows.
std::optional<std::size_t> fixedSize( std::string_view letters ) noexcept {
    std::size_t size = 0;
    for ( const char letter : letters ) {
        switch ( letter ) {
        case 'i':
            size += 4;
            break;
        case 's':
            size += 2;
            break;
        case 'b':
            size += 1;
            break;
        default:
            return std::nullopt;
        }
    }
    return size;
}

// What a block has for records.
constexpr std::uint64_t roomOfBlock = Layout::pageBytes - sizeof( Layout::BlockHeader );

bool isZero( std::span<const std::byte> bytes ) noexcept {
    return std::all_of( bytes.begin(), bytes.end(),
                        []( std::byte each ) { return each == std::byte{ 0 }; } );
}

constexpr std::size_t roundUp( std::size_t size ) noexcept { return ( size + 7 ) / 8 * 8; }

// Whether a text can be printed, also within a JSON string, as it is.
bool isPlain( std::string_view text ) noexcept {
    return std::all_of( text.begin(), text.end(), []( char each ) {
        return each >= 0x20 && each < 0x7f && each != '"' && each != '\\';
    } );
}

// Splits the message's text at each "%s". Values and places agree in what this library's writers
// make; otherwise what Twinlog does is done here too: a place without a value stays, a value
// without a place comes last, after a blank.
std::vector<std::string> splitTexts( std::string_view text, std::size_t values ) {
    constexpr std::string_view placeholder = "%s";
    std::vector<std::string> texts;
    while ( texts.size() < values ) {
        const std::size_t at = text.find( placeholder );
        if ( at == text.npos ) {
            texts.push_back( std::string( text ) + " " );
            text = {};
        } else {
            texts.emplace_back( text.substr( 0, at ) );
            text.remove_prefix( at + placeholder.size() );
        }
    }
    texts.emplace_back( text );
    return texts;
}

} // namespace

Error::Error( const std::string & path, const std::string & cause, bool isMissing )
    : std::runtime_error( Text::printable( path + ": " + cause ) ), cause_( cause ),
      isMissing_( isMissing ) {}

std::string Finding::text() const {
    return Text::printable(
        file + ": " + ( offset ? "at byte " + std::to_string( *offset ) + ": " : "" ) + what );
}

std::int64_t Clock::time( std::uint64_t counter ) const noexcept {
    // A damaged counter must not leave the range of the result.
    constexpr double most = 9.2e18;
    const auto counts = static_cast<double>( static_cast<std::int64_t>( counter - baseCounter ) );
    const double time = std::clamp( counts * nanosecondsPerCount, -most, most );
    std::int64_t sum = 0;
    if ( __builtin_add_overflow( baseTime, static_cast<std::int64_t>( time ), &sum ) )
        return time < 0 ? INT64_MIN : INT64_MAX;
    return sum;
}

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

void decode( const Record & record, std::vector<Value> & values ) {
    values.clear();
    if ( record.site == nullptr )
        return;
    Cursor cursor( record.payload );
    Value value;
    for ( const char letter : record.site->letters ) {
        if ( !takeValue( cursor, letter, value ) )
            return;
        values.push_back( value );
    }
}

class File::Impl {
  public:
    Impl( const File & self, std::unique_ptr<Bytes> bytes, std::string path );

    bool next( Record & record );
    bool poll();
    void setReadAhead( std::size_t blocks ) noexcept { chunkBlocks_ = blocks; }
    Writer writer() const;

    Info info;
    std::deque<Site> sites;
    std::vector<Finding> findings;
    Counts counts;
    Clock clock;
    std::int64_t clockSpan = 0;

  private:
    // What reading needs to know of a site.
    struct Plan {
        const Site * site = nullptr;
        bool isReported = false;                ///< that there is no site
        std::optional<std::size_t> payloadSize; ///< if it is always the same
    };

    // A block that is on file, from its header.
    struct Block {
        std::uint64_t sequence;
        std::uint64_t counter;
        std::int64_t time;
        std::uint32_t thread;
    };

    void readHeader();
    void readChangingHeader();
    void checkSize();
    void checkNotCut();
    void readSites();
    bool addSite( const Layout::DescriptorHeader & header, std::span<const std::byte> texts );
    Plan & plan( std::uint32_t id );
    void scanBlocks( std::uint64_t after );
    void followBlocks( std::uint64_t sequence );
    void measureClock();
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
    bool nextInBlock( Record & record );
    bool isSound( const Plan & plan, std::span<const std::byte> payload ) const noexcept;
    void find( Finding::Kind kind, std::uint64_t offset, std::string what );
    void damage( std::uint64_t offset, std::string what ) {
        find( Finding::Kind::damage, offset, std::move( what ) );
    }

    const File & self_;
    std::unique_ptr<Bytes> bytes_;
    std::uint64_t ringOffset_ = 0;
    std::uint64_t recordRoom_ = 0;
    Fleetlog::Timestamps timestamps_{};

    std::uint64_t descriptorOffset_ = 0; ///< where the next descriptor begins
    bool hasMoreDescriptors_ = true;
    std::unordered_map<std::uint32_t, Plan> plans_; ///< by the site's identifier
    std::unordered_set<std::string> found_;         ///< the findings, so that none is told twice
    std::uint64_t size_ = 0;                        ///< of the file, when it was last looked at

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

File::Impl::Impl( const File & self, std::unique_ptr<Bytes> bytes, std::string path )
    : self_( self ), bytes_( std::move( bytes ) ) {
    info.path = std::move( path );
    readHeader();
    checkSize();
    readSites();
    scanBlocks( 0 );
    measureClock();
}

// The header ------------------------------------------------------------------------------------

void File::Impl::readHeader() {
    const auto refuse = [this]( const std::string & why ) { throw Error( info.path, why ); };

    Layout::FileHeader header{};
    const std::size_t got = bytes_->read( 0, &header, sizeof header );
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
            refuse( "ends within its header, after " + count( got, "byte" ) +
                    "; nothing can be read" );
    };
    endsWithin( Layout::headerBytesVersion1 );
    if ( header.byteOrder == __builtin_bswap32( Layout::byteOrderMark ) )
        refuse( "written on a machine of the other byte order; read it on such a machine" );
    if ( header.version < Layout::oldestVersion || header.version > Layout::version )
        refuse( "has format version " + std::to_string( header.version ) +
                "; this reader knows versions " + std::to_string( Layout::oldestVersion ) + " to " +
                std::to_string( Layout::version ) +
                ": use the reader that belongs to the program that wrote it" );
    if ( header.version > 1 )
        endsWithin( sizeof header );
    const auto isRegion = []( std::uint64_t bytes ) {
        return bytes % Layout::pageBytes == 0 && bytes >= Layout::pageBytes &&
               bytes <= maxRegionBytes;
    };
    if ( header.byteOrder != Layout::byteOrderMark || header.headerBytes != Layout::pageBytes ||
         !isRegion( header.descriptorBytes ) || header.blockBytes != Layout::pageBytes ||
         header.blockCount < 2 || header.blockCount > maxRegionBytes / Layout::pageBytes )
        refuse( "has a damaged header: header of " + count( header.headerBytes, "byte" ) + ", " +
                count( header.descriptorBytes, "byte" ) + " of descriptors, " +
                count( header.blockCount, "block" ) + " of " + count( header.blockBytes, "byte" ) +
                "; no writer makes such a file, and nothing can be found in it" );

    if ( header.checksum != Layout::checksum( &header, offsetof( Layout::FileHeader, checksum ) ) )
        damage( 0, "the header is damaged; program, process and times may be wrong" );
    descriptorOffset_ = header.headerBytes;
    ringOffset_ = header.headerBytes + header.descriptorBytes;

    recordRoom_ = header.recordRoom;

    info.version = header.version;
    const auto end = std::find( std::begin( header.program ), std::end( header.program ), '\0' );
    info.program.assign( std::begin( header.program ), end );
    info.process = header.process;
    info.thread = header.thread;
    timestamps_ = static_cast<Fleetlog::Timestamps>( header.timestamps );
    switch ( timestamps_ ) {
    case Fleetlog::Timestamps::counter:
        info.timestamps = "counter";
        break;
    case Fleetlog::Timestamps::tick:
        info.timestamps = "tick";
        break;
    case Fleetlog::Timestamps::none:
        info.timestamps = "none";
        break;
    default:
        damage( offsetof( Layout::FileHeader, timestamps ),
                "unknown timestamps " + std::to_string( header.timestamps ) +
                    "; records are shown with the times of their blocks" );
        timestamps_ = Fleetlog::Timestamps::none;
        info.timestamps = "none";
    }
    info.isTimeOfBlock = timestamps_ == Fleetlog::Timestamps::none;
    info.counterRate = header.counterRate;
    info.openTime = header.baseTime;
    info.descriptorBytes = header.descriptorBytes;
    info.blockBytes = header.blockBytes;
    info.blockCount = header.blockCount;

    clock.baseCounter = header.baseCounter;
    clock.baseTime = header.baseTime;
    if ( header.counterRate != 0 )
        clock.nanosecondsPerCount = 1e9 / static_cast<double>( header.counterRate );
    readChangingHeader();
}

void File::Impl::readChangingHeader() {
    Layout::FileHeader header{};
    if ( bytes_->read( 0, &header, sizeof header ) < Layout::headerBytesVersion1 )
        return;
    info.isClosed = header.state == static_cast<std::uint32_t>( Layout::State::closed );
    info.unregistered = header.unregistered;
    if ( info.version == 1 )
        return;
    info.interrupting = header.interrupting;
    info.hasLock = header.lock == static_cast<std::uint32_t>( Layout::Lock::held );
}

void File::Impl::checkSize() {
    const std::uint64_t size = size_ = bytes_->size();
    const std::uint64_t whole = ringOffset_ + info.blockCount * info.blockBytes;
    if ( size < ringOffset_ )
        damage( size, "the file ends here, before its records; it should have " +
                          count( whole, "byte" ) );
    else if ( size < whole )
        damage( size,
                "the file ends here; it should have " + count( whole, "byte" ) + ". " +
                    count( ( whole - size + info.blockBytes - 1 ) / info.blockBytes, "block" ) +
                    " of " + std::to_string( info.blockCount ) + " missing or cut" );
    else if ( size > whole )
        damage( whole, count( size - whole, "byte" ) + " after the end" );
}

// A file that is being followed may be cut under its writer, which nobody may do.
void File::Impl::checkNotCut() {
    const std::uint64_t size = bytes_->size();
    if ( size >= size_ )
        return;
    damage( size, "the file was cut here, from " + count( size_, "byte" ) +
                      ", while it was read; what was behind is lost" );
    size_ = size;
    info.isCut = true;
}

// Whether somebody may still be writing.
Writer File::Impl::writer() const {
    if ( info.isCut )
        return Writer::ended;
    if ( !info.hasLock )
        return info.isClosed ? Writer::ended : Writer::unknown;
    const auto isLocked = bytes_->isLocked();
    return !isLocked ? Writer::unknown : *isLocked ? Writer::lives : Writer::ended;
}

// Descriptors -----------------------------------------------------------------------------------

// Reads what was registered since the last call. The list is in one piece: what follows a
// descriptor with a damaged size cannot be found.
void File::Impl::readSites() {
    std::vector<std::byte> texts;
    while ( hasMoreDescriptors_ ) {
        Layout::DescriptorHeader header{};
        const std::uint64_t left = ringOffset_ - descriptorOffset_;
        if ( left < sizeof header ) {
            hasMoreDescriptors_ = false;
            return;
        }
        // The size is written last, so it is read first, and by itself.
        if ( bytes_->read( descriptorOffset_, &header.size, sizeof header.size ) ==
                 sizeof header.size &&
             header.size == 0 )
            return; // more may come
        if ( bytes_->read( descriptorOffset_, &header, sizeof header ) < sizeof header ) {
            hasMoreDescriptors_ = false; // the end of the file, which is a finding already
            return;
        }
        if ( header.size < sizeof header || header.size % 8 != 0 || header.size > left ||
             header.size > maxDescriptorSize ) {
            damage( descriptorOffset_,
                    "a descriptor has the impossible size " + std::to_string( header.size ) +
                        "; it and those after it are lost, and records of their sites are "
                        "shown as bytes" );
            hasMoreDescriptors_ = false;
            return;
        }
        texts.resize( header.size - sizeof header );
        if ( bytes_->read( descriptorOffset_ + sizeof header, texts.data(), texts.size() ) <
             texts.size() ) {
            hasMoreDescriptors_ = false;
            return;
        }
        if ( !addSite( header, texts ) )
            damage( descriptorOffset_,
                    "a descriptor is damaged; records of its site are shown as bytes" );
        descriptorOffset_ += header.size;
    }
}

bool File::Impl::addSite( const Layout::DescriptorHeader & header,
                          std::span<const std::byte> texts ) {
    std::vector<std::byte> summed( sizeof header + texts.size() );
    std::memcpy( summed.data(), &header, sizeof header );
    std::copy( texts.begin(), texts.end(), summed.begin() + sizeof header );
    constexpr std::size_t unsummed = offsetof( Layout::DescriptorHeader, id );
    if ( header.checksum !=
             Layout::checksum( summed.data() + unsummed, summed.size() - unsummed ) ||
         header.id == 0 || header.id > maxSiteId )
        return false;

    Cursor cursor( texts );
    std::string_view file;
    std::string_view letters;
    std::string_view piece;
    if ( !cursor.take( file ) || !cursor.take( letters ) || letters.size() > maxLetters ||
         letters.find_first_not_of( "isbp" ) != letters.npos )
        return false;
    std::string function;
    std::string message;
    for ( std::uint32_t i = 0; i < header.pieceCount; ++i ) {
        if ( !cursor.take( piece ) )
            return false;
        if ( i == 0 )
            function = piece;
        message += piece;
    }

    const bool isAllPlain = isPlain( file ) && isPlain( message );
    sites.push_back( { header.id, std::string( file ), header.line, std::string( letters ),
                       std::move( function ), splitTexts( message, letters.size() ), isAllPlain } );
    Plan & plan = plans_[header.id];
    plan.site = &sites.back();
    if ( const auto size = fixedSize( letters ) )
        plan.payloadSize = roundUp( *size );
    return true;
}

File::Impl::Plan & File::Impl::plan( std::uint32_t id ) {
    Plan & known = plans_[id];
    // It may have been registered since the descriptors were read.
    if ( known.site == nullptr && !known.isReported )
        readSites();
    return known;
}

// Blocks ----------------------------------------------------------------------------------------

std::uint64_t File::Impl::blockIndex( std::uint64_t sequence ) const noexcept {
    return ( sequence - 1 ) % info.blockCount;
}

std::uint64_t File::Impl::blockOffset( std::uint64_t index ) const noexcept {
    return ringOffset_ + index * info.blockBytes;
}

// Nothing if the block is not in use, or being made anew, or damaged.
std::optional<File::Impl::Block> File::Impl::readBlockHeader( std::uint64_t index ) {
    const std::uint64_t offset = blockOffset( index );
    // A block that is made anew while its header is read looks damaged, but not for long.
    for ( int attempt = 0; attempt < 3; ++attempt ) {
        Layout::BlockHeader header{};
        if ( bytes_->read( offset, &header, sizeof header ) < sizeof header )
            return std::nullopt; // the end of the file, which is a finding already
        if ( header.sequence == 0 )
            return std::nullopt;
        const std::uint32_t checksum = header.checksum;
        header.checksum = 0;
        const std::size_t summed =
            info.version == 1 ? offsetof( Layout::BlockHeader, checksum ) : sizeof header;
        if ( checksum == Layout::checksum( &header, summed ) &&
             blockIndex( header.sequence ) == index )
            return Block{ header.sequence, header.counter, header.time,
                          info.version == 1 ? info.thread : header.thread };
    }
    damage( offset, "the header of a block is damaged; the block is lost" );
    return std::nullopt;
}

bool File::Impl::isStillThere( const Block & block ) const {
    std::uint64_t sequence = 0;
    return bytes_->read( blockOffset( blockIndex( block.sequence ) ), &sequence,
                         sizeof sequence ) == sizeof sequence &&
           sequence == block.sequence;
}

// Whether the ring has come round to the place of a block: one that is as new as what follows it
// there, or newer, lies at the place before it.
bool File::Impl::isOverwritten( std::uint64_t sequence ) {
    if ( sequence < 2 )
        return false;
    const auto before = readBlockHeader( blockIndex( sequence - 1 ) );
    return before && before->sequence >= sequence - 1 + info.blockCount;
}

// Finds the blocks after a sequence number, wherever they are.
void File::Impl::scanBlocks( std::uint64_t after ) {
    const std::uint64_t size = bytes_->size();
    const std::uint64_t held =
        size <= ringOffset_ ? 0 : ( size - ringOffset_ - 1 ) / info.blockBytes + 1;
    const std::uint64_t end = std::min( held, info.blockCount );
    std::uint64_t unused = 0; // blocks one after the other
    for ( std::uint64_t index = 0; index < end; ++index ) {
        const auto block = readBlockHeader( index );
        unused = block ? 0 : unused + 1;
        if ( block && block->sequence > after )
            blocks_.push_back( *block );
        // A file may be far longer than what is on disk of it.
        constexpr std::uint64_t manyUnused = 16;
        if ( unused % manyUnused == manyUnused - 1 ) {
            const std::uint64_t data = bytes_->nextData( blockOffset( index + 1 ) );
            if ( data > blockOffset( index + 1 ) )
                index = std::min( ( data - ringOffset_ ) / info.blockBytes, end ) - 1;
        }
    }
    std::sort( blocks_.begin(), blocks_.end(), []( const Block & one, const Block & other ) {
        return one.sequence < other.sequence;
    } );
}

// Finds the blocks from a sequence number on, which are one after the other.
void File::Impl::followBlocks( std::uint64_t sequence ) {
    while ( blocks_.size() < info.blockCount ) {
        const auto block = readBlockHeader( blockIndex( sequence ) );
        if ( !block || block->sequence != sequence )
            return;
        blocks_.push_back( *block );
        ++sequence;
    }
}

// The writer measures the counter's rate in milliseconds. A block that was begun long after that
// tells it better, unless the wall clock was set meanwhile.
void File::Impl::measureClock() {
    constexpr std::int64_t leastSpan = 100'000'000;
    constexpr double mostDeviation = 1e-3;
    if ( timestamps_ != Fleetlog::Timestamps::counter || blocks_.empty() )
        return;
    const Block & last = blocks_.back();
    std::int64_t span = 0;
    if ( __builtin_sub_overflow( last.time, clock.baseTime, &span ) || span < leastSpan ||
         last.counter <= clock.baseCounter )
        return;
    const double measured =
        static_cast<double>( span ) / static_cast<double>( last.counter - clock.baseCounter );
    if ( std::abs( measured / clock.nanosecondsPerCount - 1 ) > mostDeviation )
        return;
    clock.nanosecondsPerCount = measured;
    clockSpan = span;
}

bool File::Impl::enterBlock() {
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
void File::Impl::fillGap( std::uint64_t wanted ) {
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
bool File::Impl::loadChunk() {
    if ( nextBlock_ >= chunkEnd_ || nextBlock_ < chunkBegin_ ) {
        chunkBegin_ = nextBlock_;
        chunkEnd_ = nextBlock_ + 1;
        while ( chunkEnd_ + 1 < blocks_.size() && chunkEnd_ - chunkBegin_ < chunkBlocks_ &&
                blocks_[chunkEnd_].sequence == blocks_[chunkEnd_ - 1].sequence + 1 &&
                blockIndex( blocks_[chunkEnd_].sequence ) != 0 )
            ++chunkEnd_;
        chunk_.resize( ( chunkEnd_ - chunkBegin_ ) * info.blockBytes );
        chunkBytes_ = bytes_->read( blockOffset( blockIndex( blocks_[chunkBegin_].sequence ) ),
                                    chunk_.data(), chunk_.size() );
        isChunkWhole_ = isStillThere( blocks_[chunkBegin_] );
    }
    const std::size_t begin = ( nextBlock_ - chunkBegin_ ) * info.blockBytes;
    blockBytes_ = chunk_.data() + begin;
    limit_ = std::min<std::size_t>( info.blockBytes, chunkBytes_ - std::min( begin, chunkBytes_ ) );
    isBlockCut_ = limit_ < info.blockBytes;
    return isChunkWhole_ || isStillThere( blocks_[nextBlock_] );
}

// Reads the block that is being written: first how far its records reach, then these.
bool File::Impl::loadNewest( const Block & block ) {
    const std::uint64_t offset = blockOffset( blockIndex( block.sequence ) );
    const bool isCurrent = isStarted_ && block.sequence == block_.sequence;
    const std::size_t committed =
        committedBytes( offset, isCurrent ? position_ : sizeof( Layout::BlockHeader ) );
    newest_.assign( info.blockBytes, std::byte{ 0 } );
    limit_ = bytes_->read( offset, newest_.data(), newest_.size() );
    isBlockCut_ = limit_ < info.blockBytes;
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
std::size_t File::Impl::committedBytes( std::uint64_t offset, std::size_t position ) const {
    while ( position + sizeof( Layout::RecordHeader ) <= info.blockBytes ) {
        std::uint32_t size = 0;
        if ( bytes_->read( offset + position, &size, sizeof size ) < sizeof size )
            return info.blockBytes; // the end of the file, which is a finding already
        if ( size == 0 )
            return position;
        if ( size < sizeof( Layout::RecordHeader ) || size % 8 != 0 ||
             size > info.blockBytes - position )
            break;
        position += size;
    }
    return info.blockBytes;
}

void File::Impl::startBlock( const Block & block ) {
    const std::uint64_t offset = blockOffset( blockIndex( block.sequence ) );
    if ( !isStarted_ )
        countOverwritten( block );
    else {
        const std::uint64_t blocks = block.sequence - block_.sequence - 1;
        if ( wasOvertaken_ ) {
            const std::uint64_t bytes = blocks * roomOfBlock + restOfBlock();
            counts.overwrittenBlocks += blocks;
            counts.overwrittenBytes += bytes;
            if ( bytes != 0 )
                find( Finding::Kind::overwritten, offset,
                      "overwritten before they could be read: " + count( blocks, "block" ) +
                          " before this one" +
                          ( bytes == blocks * roomOfBlock ? ""
                                                          : ", and the rest of the one before" ) );
        } else {
            checkEnd();
            counts.missingBlocks += blocks;
            if ( blocks != 0 )
                damage( offset, "missing before this block: " + count( blocks, "block" ) );
        }
    }
    wasOvertaken_ = false;
    isStarted_ = true;
    isBlockDamaged_ = false;
    isRestUnused_ = false;
    block_ = block;
    position_ = sizeof( Layout::BlockHeader );
    ++counts.blocks;
}

// What a writer may have put behind the records that were read of the block, if it is complete by
// now: nothing if the next one would not have fitted.
std::uint64_t File::Impl::restOfBlock() const noexcept {
    return isRestUnused_ || position_ + recordRoom_ > info.blockBytes ? 0
                                                                      : info.blockBytes - position_;
}

// The block that was read is followed by another, so it should be full.
void File::Impl::checkEnd() {
    if ( !isBlockDamaged_ && !isBlockCut_ && restOfBlock() != 0 )
        damage( blockOffset( blockIndex( block_.sequence ) ) + position_,
                "the records of a block end early; what followed in it is lost" );
}

// What is gone before the first block that can be read. The ring has overwritten what it had no
// room for; if more is gone, that is damage, but for one block that the writer was about to make
// anew.
void File::Impl::countOverwritten( const Block & first ) {
    const std::uint64_t newest = blocks_.back().sequence;
    const std::uint64_t oldest = newest > info.blockCount ? newest - info.blockCount + 1 : 1;
    std::uint64_t missing = first.sequence > oldest ? first.sequence - oldest : 0;
    if ( missing > 0 ) {
        const std::uint64_t offset = blockOffset( blockIndex( first.sequence - 1 ) );
        std::uint64_t before = 0;
        if ( bytes_->read( offset, &before, sizeof before ) < sizeof before )
            before = 1;
        if ( wasOvertaken_ || before > first.sequence )
            missing = 0; // overwritten meanwhile
        else if ( before == 0 && first.sequence - 1 == oldest && newest >= info.blockCount )
            missing = 0; // about to be made anew
    }
    counts.overwrittenBlocks = first.sequence - 1 - missing;
    counts.overwrittenBytes = counts.overwrittenBlocks > UINT64_MAX / roomOfBlock
                                  ? UINT64_MAX
                                  : counts.overwrittenBlocks * roomOfBlock;
    counts.missingBlocks = missing;
    if ( missing > 0 )
        damage( blockOffset( blockIndex( first.sequence ) ),
                "missing before this block, the oldest that can be read: " +
                    count( missing, "block" ) );
}

bool File::Impl::nextInBlock( Record & record ) {
    if ( position_ + sizeof( Layout::RecordHeader ) > limit_ )
        return false;
    const std::byte * const at = blockBytes_ + position_;
    const auto header = load<Layout::RecordHeader>( at );
    if ( header.size == 0 )
        return false;
    const std::uint64_t offset = blockOffset( blockIndex( block_.sequence ) ) + position_;
    if ( header.size < sizeof header || header.size % 8 != 0 || header.size > limit_ - position_ ) {
        damage( offset, isBlockCut_ && header.size <= info.blockBytes - position_
                            ? "the file ends within a record"
                            : "a record has the impossible size " + std::to_string( header.size ) +
                                  "; what follows in its block is lost" );
        isBlockDamaged_ = true;
        limit_ = position_;
        return false;
    }

    if ( header.id == Layout::restUnusedId && info.version > 1 ) {
        isRestUnused_ = true;
        limit_ = position_;
        return false;
    }
    record.file = &self_;
    record.id = header.id;
    record.thread = block_.thread;
    record.offset = offset;
    record.counter = 0;
    record.payload = { at + sizeof header, header.size - sizeof header };
    switch ( timestamps_ ) {
    case Fleetlog::Timestamps::counter:
        record.time = clock.time( header.time );
        record.counter = static_cast<std::int64_t>( header.time - clock.baseCounter );
        break;
    case Fleetlog::Timestamps::tick:
        record.time = static_cast<std::int64_t>( header.time );
        break;
    case Fleetlog::Timestamps::none:
        record.time = block_.time;
        break;
    }
    Plan & known = plan( header.id );
    record.site = known.site;
    if ( known.site == nullptr ) {
        if ( !known.isReported )
            damage( offset,
                    "message " + std::to_string( header.id ) +
                        " has no descriptor that can be read; its records are shown as bytes" +
                        ( info.unregistered == 0 ? ""
                                                 : ". The writer had no room for " +
                                                       count( info.unregistered, "descriptor" ) +
                                                       ": open the trace with more" ) );
        known.isReported = true;
    } else if ( !isSound( known, record.payload ) ) {
        damage( offset, "a record does not fit its descriptor, " + known.site->file + ":" +
                            std::to_string( known.site->line ) + "; it is shown as bytes" );
        record.site = nullptr;
    }
    position_ += header.size;
    ++counts.records;
    counts.recordBytes += header.size;
    return true;
}

bool File::Impl::isSound( const Plan & known, std::span<const std::byte> payload ) const noexcept {
    if ( known.payloadSize )
        return payload.size() == *known.payloadSize;
    Cursor cursor( payload );
    Value value;
    for ( const char letter : known.site->letters )
        if ( !takeValue( cursor, letter, value ) )
            return false;
    return cursor.left() < 8; // filled up to a multiple of 8
}

bool File::Impl::next( Record & record ) {
    for ( ;; ) {
        if ( isStarted_ && nextInBlock( record ) )
            return true;
        if ( !enterBlock() )
            return false;
    }
}

bool File::Impl::poll() {
    checkNotCut();
    readChangingHeader();
    readSites();
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

void File::Impl::find( Finding::Kind kind, std::uint64_t offset, std::string what ) {
    if ( findings.size() == File::maxFindings ||
         !found_.insert( std::to_string( offset ) + what ).second )
        return;
    if ( findings.size() == File::maxFindings - 1 )
        what = "and more: further findings are left out";
    findings.push_back( { kind, info.path, offset, std::move( what ) } );
}

// File ------------------------------------------------------------------------------------------

File::File( const std::string & path )
    : impl_( std::make_unique<Impl>( *this, openBytes( path ), path ) ) {}

File::File( std::string path, std::vector<std::byte> content )
    : impl_(
          std::make_unique<Impl>( *this, holdBytes( std::move( content ) ), std::move( path ) ) ) {}

File::File( std::string path, std::unique_ptr<Bytes> bytes )
    : impl_( std::make_unique<Impl>( *this, std::move( bytes ), std::move( path ) ) ) {}

File::~File() = default;

const Info & File::info() const noexcept { return impl_->info; }
const std::deque<Site> & File::sites() const noexcept { return impl_->sites; }
bool File::next( Record & record ) { return impl_->next( record ); }
bool File::poll() { return impl_->poll(); }
const std::vector<Finding> & File::findings() const noexcept { return impl_->findings; }
const Counts & File::counts() const noexcept { return impl_->counts; }
const Clock & File::clock() const noexcept { return impl_->clock; }
std::int64_t File::clockSpan() const noexcept { return impl_->clockSpan; }
void File::setClock( const Clock & clock ) noexcept { impl_->clock = clock; }
void File::setReadAhead( std::size_t blocks ) noexcept { impl_->setReadAhead( blocks ); }
Writer File::writer() const { return impl_->writer(); }

} // namespace TraceReader
