#include "tools/model/StateFile.h"

#include "tools/model/Errors.h"
#include "tools/model/Files.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Tool {

namespace {

// Whether the file that is open is still the one of this name.
bool isNamed( int descriptor, const std::string & path ) {
    struct stat opened {};
    struct stat named {};
    return ::fstat( descriptor, &opened ) == 0 && ::lstat( path.c_str(), &named ) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

int flockWhole( int descriptor, int operation ) {
    int result = 0;
    while ( ( result = ::flock( descriptor, operation ) ) != 0 && errno == EINTR ) {
    }
    return result;
}

} // namespace

StateFile::StateFile( const std::string & path, const std::function<void()> & onWait )
    : path_( path ), file_( linkTarget( path ) ) {
    struct stat status {};
    if ( ::stat( file_.c_str(), &status ) == 0 && !S_ISREG( status.st_mode ) )
        throw InputError( path_, 0, "is no regular file", "name another state file" );
    const std::filesystem::path file = file_;
    lock_ = ( file.parent_path() / fmt::format( ".{}.lock", file.filename().string() ) ).string();
    const auto refuse = [&] {
        return Trouble( fmt::format( "{}: cannot be written: {}", path_, std::strerror( errno ) ) );
    };
    // Who ends removes the lock's name while he holds it: a lock without its name is no lock.
    for ( bool hasWaited = false;; ) {
        descriptor_ =
            ::open( lock_.c_str(), O_RDONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0666 );
        if ( descriptor_ < 0 )
            throw refuse();
        int locked = flockWhole( descriptor_, LOCK_EX | LOCK_NB );
        if ( locked != 0 && errno == EWOULDBLOCK ) {
            if ( !hasWaited )
                onWait();
            hasWaited = true;
            locked = flockWhole( descriptor_, LOCK_EX );
        }
        if ( locked != 0 ) {
            const int error = errno;
            ::close( descriptor_ );
            errno = error;
            throw refuse();
        }
        if ( isNamed( descriptor_, lock_ ) )
            break;
        ::close( descriptor_ );
    }
    removeLeftovers( file_ );
}

StateFile::~StateFile() {
    ::unlink( lock_.c_str() );
    ::close( descriptor_ );
}

std::vector<SavedUnit> StateFile::load() const { return loadState( path_ ); }

void StateFile::save( const Sim::Chip & chip ) const { replaceFile( file_, stateText( chip ) ); }

} // namespace Tool
