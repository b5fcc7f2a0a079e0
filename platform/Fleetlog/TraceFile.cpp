#include <Fleetlog/TraceFile.h>

#include <CairnPlatform/internal/Write.h>
#include <Fleetlog/internal/Clock.h>
#include <Fleetlog/internal/NewFile.h>
#include <Fleetlog/internal/OldFiles.h>
#include <Fleetlog/internal/Registry.h>
#include <Fleetlog/internal/Report.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/mman.h>
#include <system_error>
#include <unistd.h>

namespace Fleetlog {

namespace {

constexpr std::size_t maxRegionBytes = std::size_t( 1 ) << 40;

std::size_t wholePages( const char * what, std::size_t bytes, std::size_t leastPages ) {
    const std::size_t pages = bytes / Format::pageBytes + ( bytes % Format::pageBytes != 0 );
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
    : options_( options ), thread_( thread ) {
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
    if ( memory_ == nullptr )
        return;
    header().state = static_cast<std::uint32_t>( Format::State::closed );
    ::munmap( memory_, memoryBytes_ );
}

void TraceFile::removeOldFiles( const OpenOptions & options ) {
    Fleetlog::removeOldFiles( options.directory, programName(), options.keepFiles,
                              options.keepBytes );
}

void TraceFile::create() {
    const auto process = static_cast<std::uint32_t>( ::getpid() );
    if ( thread_ != 0 )
        thread_ = ::gettid();

    const std::string program = programName();
    std::string stem = program + "-" + std::to_string( process );
    if ( thread_ != 0 )
        stem += "-" + std::to_string( thread_ );
    const ClockBase & clock = clockBase();
    NewFile file( options_.directory, stem, options_.mode );
    const std::size_t bytes = Format::pageBytes + options_.descriptorBytes + options_.ringBytes;
    file.reserve( bytes );
    memory_ = file.map( bytes );
    memoryBytes_ = bytes;
    touchPages( memory_, bytes );

    Format::FileHeader made{};
    std::memcpy( made.magic, Format::magic, sizeof made.magic );
    made.version = Format::version;
    made.byteOrder = Format::byteOrderMark;
    made.headerBytes = Format::pageBytes;
    made.blockBytes = Format::pageBytes;
    made.descriptorBytes = options_.descriptorBytes;
    made.blockCount = options_.ringBytes / Format::pageBytes;
    made.timestamps = static_cast<std::uint32_t>( options_.timestamps );
    made.process = process;
    made.thread = static_cast<std::uint32_t>( thread_ );
    made.recordRoom = RingBuf::recordRoom;
    made.baseCounter = clock.base.counter;
    made.baseTime = clock.base.time;
    made.counterRate = clock.rate;
    std::memcpy( made.program, program.data(), program.size() );
    made.checksum = Format::checksum( &made, offsetof( Format::FileHeader, checksum ) );
    made.state = static_cast<std::uint32_t>( Format::State::open );
    made.lock =
        static_cast<std::uint32_t>( file.isLocked() ? Format::Lock::held : Format::Lock::unknown );
    header() = made;

    descriptorsUsed_ = 0;
    ring_.begin( memory_ + Format::pageBytes + options_.descriptorBytes, made.blockCount,
                 options_.timestamps, made.thread );
    try {
        path_ = file.publish();
    } catch ( ... ) {
        ring_.end();
        ::munmap( memory_, memoryBytes_ );
        memory_ = nullptr;
        throw;
    }
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
    header().state = static_cast<std::uint32_t>( Format::State::open );
    ring_.handOver( static_cast<std::uint32_t>( thread ) );
}

void TraceFile::leaveToParent() noexcept {
    if ( memory_ != nullptr )
        ::munmap( memory_, memoryBytes_ );
    memory_ = nullptr;
    mayCreate_ = true;
    isRegistering_ = false;
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

void reportLoss( std::string_view why ) noexcept {
    char line[512];
    const int length =
        std::snprintf( line, sizeof line, "%.*s; messages of process %d are not recorded\n",
                       static_cast<int>( why.size() ), why.data(), static_cast<int>( ::getpid() ) );
    const auto kept = std::min( static_cast<std::size_t>( length ), sizeof line - 1 );
    // If standard error fails, too, there is no place left to report it.
    CairnPlatform::writeWhole( STDERR_FILENO, { line, kept } );
}

} // namespace Fleetlog
