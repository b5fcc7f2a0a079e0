#include <Fleetlog/TraceFile.h>

#include <CairnPlatform/internal/Write.h>
#include <Fleetlog/internal/Clock.h>
#include <Fleetlog/internal/NewFile.h>
#include <Fleetlog/internal/OldFiles.h>
#include <Fleetlog/internal/Registry.h>
#include <Fleetlog/internal/Report.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/mman.h>
#include <system_error>
#include <unistd.h>

namespace Fleetlog {

namespace {

constexpr std::size_t maxRegionBytes = std::size_t( 1 ) << 40;
constexpr std::size_t firstSegmentBytes = std::size_t( 1 ) << 20;

std::size_t wholePages( const char * what, std::size_t bytes, std::size_t leastPages ) {
    const std::size_t pages =
        bytes / Format::pageBytes + ( bytes % Format::pageBytes != 0 ? 1 : 0 );
    if ( pages < leastPages || bytes > maxRegionBytes )
        fail( EINVAL, std::string( what ) + " of " + std::to_string( bytes ) +
                          " bytes; it must have " +
                          std::to_string( leastPages * Format::pageBytes ) + " to " +
                          std::to_string( maxRegionBytes ) );
    return pages * Format::pageBytes;
}

// The program's name as files and headers have it: what a file name has room for.
std::string programName() {
    return std::string( program_invocation_short_name ).substr( 0, Format::maxProgramLength );
}

// Brings each page into memory, writable. It is a store to each, not a flag of mmap(): that one
// brings the pages of a shared mapping in for reading only.
void touchPages( std::byte * memory, std::size_t bytes ) noexcept {
    for ( std::size_t offset = 0; offset < bytes; offset += Format::pageBytes )
        *static_cast<volatile std::byte *>( memory + offset ) = std::byte{ 0 };
}

} // namespace

TraceFile::TraceFile( const OpenOptions & options, int thread )
    : options_( options ), thread_( thread != 0 ? ::gettid() : 0 ), firstThread_( thread_ ),
      segment_( options.keep == Keep::all ? 1 : 0 ) {
    if ( options.directory.empty() )
        fail( EINVAL, "no directory is given for the trace files" );
    options_.ringBytes = wholePages( "a ring", options.ringBytes, 2 );
    options_.descriptorBytes = wholePages( "a room for descriptors", options.descriptorBytes, 1 );
    create();
    try {
        Registry::instance().add( *this );
    } catch ( ... ) {
        ::munmap( memory_, memoryBytes_ );
        throw;
    }
}

TraceFile::~TraceFile() {
    Registry::instance().remove( *this );
    close();
}

void TraceFile::removeOldFiles( const OpenOptions & options ) {
    Fleetlog::removeOldFiles( options.directory, programName(), options.suffix, options.keepFiles,
                              options.keepBytes );
}

std::string TraceFile::stem() const {
    std::string stem = programName() + options_.suffix + "-" + std::to_string( ::getpid() );
    if ( firstThread_ != 0 )
        stem += "-" + std::to_string( firstThread_ );
    if ( segment_ == 0 )
        return stem;
    std::string number = std::to_string( segment_ );
    constexpr std::size_t digits = 4; // so that names are in order
    if ( number.size() < digits )
        number.insert( 0, digits - number.size(), '0' );
    return stem + "-" + number;
}

// A thread that does little gets by with little, and one that does much has few files.
std::size_t TraceFile::ringBytes() const noexcept {
    std::size_t bytes = options_.ringBytes;
    if ( segment_ == 0 )
        return bytes;
    bytes = std::min( bytes, firstSegmentBytes );
    for ( std::uint32_t i = 1; i < segment_ && bytes < options_.ringBytes; ++i )
        bytes *= 2;
    return std::min( bytes, options_.ringBytes );
}

// If it throws, the file that was being written goes on.
void TraceFile::create() {
    const std::string program = programName();
    const std::size_t ring = ringBytes();
    NewFile file( options_.directory, stem(), options_.mode );
    const std::size_t bytes = Format::pageBytes + options_.descriptorBytes + ring;
    file.reserve( bytes );
    std::byte * const memory = file.map( bytes );
    touchPages( memory, bytes );
    const ClockBase & clock = clockBase();

    Format::FileHeader made{};
    std::memcpy( made.magic, Format::magic, sizeof made.magic );
    made.version = Format::version;
    made.byteOrder = Format::byteOrderMark;
    made.headerBytes = Format::pageBytes;
    made.blockBytes = Format::pageBytes;
    made.descriptorBytes = options_.descriptorBytes;
    made.blockCount = ring / Format::pageBytes;
    made.timestamps = static_cast<std::uint32_t>( options_.timestamps );
    made.process = static_cast<std::uint32_t>( ::getpid() );
    made.thread = static_cast<std::uint32_t>( firstThread_ );
    made.recordRoom = RingBuf::recordRoom;
    made.baseCounter = clock.base.counter;
    made.baseTime = clock.base.time;
    made.counterRate = clock.rate;
    std::memcpy( made.program, program.data(), program.size() );
    made.checksum = Format::checksum( &made, offsetof( Format::FileHeader, checksum ) );
    made.state = static_cast<std::uint32_t>( Format::State::open );
    made.lock =
        static_cast<std::uint32_t>( file.isLocked() ? Format::Lock::held : Format::Lock::unknown );
    made.segment = segment_;
    std::memcpy( memory, &made, sizeof made );
    // The sites that are registered stay so.
    if ( memory_ != nullptr )
        std::memcpy( memory + Format::pageBytes, memory_ + Format::pageBytes, descriptorsUsed_ );
    RingBuf begun;
    begun.begin( memory + Format::pageBytes + options_.descriptorBytes, made.blockCount,
                 options_.timestamps, static_cast<std::uint32_t>( thread_ ) );
    try {
        path_ = file.publish();
    } catch ( ... ) {
        ::munmap( memory, bytes );
        throw;
    }
    close();
    memory_ = memory;
    memoryBytes_ = bytes;
    ring_.goOnAs( begun );
}

void TraceFile::close() noexcept {
    if ( memory_ == nullptr )
        return;
    header().state = static_cast<std::uint32_t>( Format::State::closed );
    ::munmap( memory_, memoryBytes_ );
    memory_ = nullptr;
}

bool TraceFile::beginSegment() noexcept {
    if ( options_.keep != Keep::all )
        return false;
    try {
        fullSegments_.push_back( path_ );
        ++segment_;
        create();
    } catch ( const std::exception & error ) {
        fullSegments_.pop_back();
        --segment_;
        static std::atomic<bool> wasSaid{ false };
        if ( !wasSaid.exchange( true ) )
            reportLoss( error.what(), "new messages", "overwrite the oldest" );
        return false;
    }
    if ( options_.keepSegments != 0 && fullSegments_.size() > options_.keepSegments ) {
        ::unlink( fullSegments_.front().c_str() );
        fullSegments_.erase( fullSegments_.begin() );
    }
    return true;
}

Format::FileHeader & TraceFile::header() noexcept {
    return *reinterpret_cast<Format::FileHeader *>( memory_ );
}

void TraceFile::refreshTick() noexcept {
    if ( options_.timestamps == Timestamps::tick )
        ring_.tick_ = static_cast<std::uint64_t>( wallClock() );
}

void TraceFile::countInterrupting() noexcept {
    if ( memory_ != nullptr )
        ++header().interrupting;
}

void TraceFile::leaveToThread() noexcept {
    if ( memory_ != nullptr )
        header().state = static_cast<std::uint32_t>( Format::State::closed );
}

void TraceFile::takeOver( int thread ) noexcept {
    thread_ = thread;
    if ( memory_ == nullptr )
        return;
    // The records of a thread are in blocks of its own.
    if ( ring_.isLastBlock() && beginSegment() )
        return;
    header().state = static_cast<std::uint32_t>( Format::State::open );
    ring_.handOver( static_cast<std::uint32_t>( thread ) );
}

void TraceFile::leaveToParent() noexcept {
    if ( memory_ != nullptr )
        ::munmap( memory_, memoryBytes_ );
    memory_ = nullptr;
    mayCreate_ = true;
    isRegistering_ = false;
    segment_ = options_.keep == Keep::all ? 1 : 0;
    fullSegments_.clear();
    descriptorsUsed_ = 0;
    // With no site registered and no block, the next message comes by makeInChild().
    std::memset( initialised_, 0, initialisedLength() );
    lastInitialised_ = 0;
    registeredBeyond_.clear();
    ring_.end();
}

bool TraceFile::isRegistered( std::uint32_t id ) const noexcept {
    if ( id < maxSites )
        return id != 0 && initialised_[id] != 0;
    const std::size_t beyond = id - maxSites;
    return beyond < registeredBeyond_.size() && registeredBeyond_[beyond];
}

void TraceFile::setRegistered( std::uint32_t id ) {
    if ( id < maxSites ) {
        initialised_[id] = 1;
        lastInitialised_ = std::max<std::size_t>( lastInitialised_, id );
        return;
    }
    const std::size_t beyond = id - maxSites;
    if ( beyond >= registeredBeyond_.size() )
        registeredBeyond_.resize( beyond + 1 );
    registeredBeyond_[beyond] = true;
}

bool TraceFile::makeInChild() noexcept {
    if ( memory_ == nullptr && mayCreate_ ) {
        mayCreate_ = false;
        if ( thread_ != 0 )
            firstThread_ = thread_ = ::gettid();
        try {
            removeOldFiles( options_ );
            create();
        } catch ( const std::exception & error ) {
            reportLoss( error.what() );
        }
    }
    return memory_ != nullptr;
}

void fail( int error, const std::string & what ) {
    throw std::system_error( error, std::generic_category(), "Fleetlog: " + what );
}

void reportLoss( std::string_view why, std::string_view what,
                 std::string_view consequence ) noexcept {
    char line[512];
    const int length = std::snprintf(
        line, sizeof line, "%.*s; %.*s of process %d %.*s\n", static_cast<int>( why.size() ),
        why.data(), static_cast<int>( what.size() ), what.data(), static_cast<int>( ::getpid() ),
        static_cast<int>( consequence.size() ), consequence.data() );
    const auto kept = std::min( static_cast<std::size_t>( length ), sizeof line - 1 );
    // If standard error fails, too, there is no place left to report it.
    CairnPlatform::writeWhole( STDERR_FILENO, { line, kept } );
}

} // namespace Fleetlog
