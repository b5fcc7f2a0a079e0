#include <Fleetlog/internal/NewFile.h>

#include <Fleetlog/internal/Report.h>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

namespace Fleetlog {

namespace {

std::string numbered( const std::string & stem, int copy ) {
    return copy == 1 ? stem : stem + "." + std::to_string( copy );
}

// Gives a file a second name. Some file systems have no links; there it is renamed.
bool giveName( const char * hidden, const char * name ) {
    if ( ::link( hidden, name ) == 0 )
        return true;
    if ( errno != EPERM && errno != EOPNOTSUPP && errno != EMLINK )
        return false;
    return ::renameat2( AT_FDCWD, hidden, AT_FDCWD, name, RENAME_NOREPLACE ) == 0;
}

} // namespace

NewFile::NewFile( const std::string & directory, const std::string & stem, mode_t mode )
    : directory_( directory ), stem_( stem ) {
    // A name that is taken is left over from a process with the same number.
    for ( int copy = 1; descriptor_ < 0; ++copy ) {
        hiddenPath_ = directory + "/." + numbered( stem, copy ) + hiddenEnding;
        descriptor_ =
            ::open( hiddenPath_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode );
        if ( descriptor_ < 0 && errno != EEXIST )
            fail( errno, "cannot make a trace file in " + directory );
    }
    struct flock whole {};
    whole.l_type = F_WRLCK;
    whole.l_whence = SEEK_SET;
    isLocked_ = ::fcntl( descriptor_, F_OFD_SETLK, &whole ) == 0;
}

NewFile::~NewFile() {
    ::unlink( hiddenPath_.c_str() );
    ::close( descriptor_ );
}

void NewFile::reserve( std::size_t bytes ) {
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
        fail( error, "cannot reserve " + std::to_string( bytes ) + " bytes for a trace file in " +
                         directory_ + "; make room or choose a smaller ring" );
}

std::byte * NewFile::map( std::size_t bytes ) {
    void * const memory =
        ::mmap( nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor_, 0 );
    if ( memory == MAP_FAILED )
        fail( errno, "cannot map a trace file in " + directory_ );
    return static_cast<std::byte *>( memory );
}

std::string NewFile::publish() {
    for ( int copy = 1;; ++copy ) {
        std::string path = directory_ + "/" + numbered( stem_, copy ) + ".fleetlog";
        if ( giveName( hiddenPath_.c_str(), path.c_str() ) )
            return path;
        if ( errno != EEXIST )
            fail( errno, "cannot name the trace file " + path );
    }
}

} // namespace Fleetlog
