#include <Fleetlog/TraceFile.h>

#include <Fleetlog/internal/Clock.h>
#include <Fleetlog/internal/Registry.h>
#include <Fleetlog/internal/Report.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <system_error>
#include <unistd.h>

namespace Fleetlog {

namespace {

constexpr std::size_t maxRegionBytes = std::size_t( 1 ) << 40;

[[noreturn]] void fail( int error, const std::string & what ) {
    throw std::system_error( error, std::generic_category(), "Fleetlog: " + what );
}

std::size_t wholePages( const char * what, std::size_t bytes, std::size_t leastPages ) {
    const std::size_t pages = bytes / Format::pageBytes + ( bytes % Format::pageBytes != 0 );
    if ( pages < leastPages || bytes > maxRegionBytes )
        fail( EINVAL, std::string( what ) + " of " + std::to_string( bytes ) +
                          " bytes; it must have " +
                          std::to_string( leastPages * Format::pageBytes ) + " to " +
                          std::to_string( maxRegionBytes ) );
    return pages * Format::pageBytes;
}

// An open file that is made for this process, closed at the end, and removed unless it is kept.
class NewFile {
  public:
    // Makes the first of <stem>.fleetlog, <stem>.2.fleetlog, ... that does not exist.
    explicit NewFile( const std::string & stem ) {
        for ( int copy = 1; descriptor_ < 0; ++copy ) {
            path_ = stem + ( copy == 1 ? "" : "." + std::to_string( copy ) ) + ".fleetlog";
            descriptor_ = ::open( path_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644 );
            if ( descriptor_ < 0 && errno != EEXIST )
                fail( errno, "cannot make the trace file " + path_ );
        }
    }

    ~NewFile() {
        ::close( descriptor_ );
        if ( !kept_ )
            ::unlink( path_.c_str() );
    }

    NewFile( const NewFile & ) = delete;
    NewFile & operator=( const NewFile & ) = delete;

    const std::string & path() const noexcept { return path_; }

    // A file without its disk space would stop the process at some later store to it.
    void reserve( std::size_t bytes ) {
        // Beyond this limit the kernel does not only refuse, it sends a signal.
        rlimit limit{};
        int error = 0;
        if ( ::getrlimit( RLIMIT_FSIZE, &limit ) == 0 && bytes > limit.rlim_cur )
            error = EFBIG;
        else
            do
                error = ::posix_fallocate( descriptor_, 0, static_cast<off_t>( bytes ) );
            while ( error == EINTR );
        if ( error != 0 )
            fail( error, "cannot reserve " + std::to_string( bytes ) + " bytes for " + path_ +
                             "; make room or choose a smaller ring" );
    }

    std::byte * map( std::size_t bytes ) {
        void * const memory =
            ::mmap( nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor_, 0 );
        if ( memory == MAP_FAILED )
            fail( errno, "cannot map " + path_ );
        kept_ = true;
        return static_cast<std::byte *>( memory );
    }

  private:
    int descriptor_ = -1;
    std::string path_;
    bool kept_ = false;
};

// Brings each page into memory, writable. It is a store to each, not a flag of mmap(): that one
// brings the pages of a shared mapping in for reading only.
void touchPages( std::byte * memory, std::size_t bytes ) noexcept {
    for ( std::size_t offset = 0; offset < bytes; offset += Format::pageBytes )
        *static_cast<volatile std::byte *>( memory + offset ) = std::byte{ 0 };
}

} // namespace

TraceFile::TraceFile( const OpenOptions & options, int thread )
    : options_( options ), thread_( thread ) {
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

void TraceFile::create() {
    const auto process = static_cast<std::uint32_t>( ::getpid() );
    if ( thread_ != 0 )
        thread_ = ::gettid();

    std::string stem =
        options_.directory + "/" + program_invocation_short_name + "-" + std::to_string( process );
    if ( thread_ != 0 )
        stem += "-" + std::to_string( thread_ );
    const ClockBase & clock = clockBase();
    NewFile file( stem );
    const std::size_t bytes = Format::pageBytes + options_.descriptorBytes + options_.ringBytes;
    file.reserve( bytes );
    path_ = file.path();
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
    std::strncpy( made.program, program_invocation_short_name, sizeof made.program - 1 );
    made.checksum = Format::checksum( &made, offsetof( Format::FileHeader, checksum ) );
    made.state = static_cast<std::uint32_t>( Format::State::open );
    header() = made;

    descriptorsUsed_ = 0;
    ring_.begin( memory_ + Format::pageBytes + options_.descriptorBytes, made.blockCount,
                 options_.timestamps );
}

Format::FileHeader & TraceFile::header() noexcept {
    return *reinterpret_cast<Format::FileHeader *>( memory_ );
}

void TraceFile::refreshTick() noexcept {
    if ( options_.timestamps == Timestamps::tick )
        ring_.tick_ = static_cast<std::uint64_t>( wallClock() );
}

void TraceFile::leaveToParent() noexcept {
    if ( memory_ != nullptr )
        ::munmap( memory_, memoryBytes_ );
    memory_ = nullptr;
    mayCreate_ = true;
    // With no site registered and no block, the next message comes by hasMemory().
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

bool TraceFile::hasMemory() noexcept {
    if ( memory_ == nullptr && mayCreate_ ) {
        mayCreate_ = false;
        try {
            create();
        } catch ( const std::exception & error ) {
            reportLoss( error.what() );
        }
    }
    return memory_ != nullptr;
}

void reportLoss( std::string_view why ) noexcept {
    char line[512];
    const int length =
        std::snprintf( line, sizeof line, "%.*s; messages of process %d are not recorded\n",
                       static_cast<int>( why.size() ), why.data(), static_cast<int>( ::getpid() ) );
    const auto kept = std::min( static_cast<std::size_t>( length ), sizeof line - 1 );
    // If standard error fails, too, there is no place left to report it.
    [[maybe_unused]] const auto written = ::write( STDERR_FILENO, line, kept );
}

} // namespace Fleetlog
