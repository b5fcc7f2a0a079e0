#include <Fleetlog/internal/OldFiles.h>

#include <Fleetlog/Format.h>
#include <Fleetlog/internal/NewFile.h>

#include <algorithm>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace Fleetlog {

namespace {

struct OldFile {
    std::string name;
    timespec written;
    std::uint64_t bytes;
};

// A file that was begun is locked within an instant.
constexpr std::time_t leastAgeOfAbandoned = 60;

class Descriptor {
  public:
    Descriptor( int directory, const char * name )
        : number_( ::openat( directory, name,
                             O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC ) ) {}
    ~Descriptor() {
        if ( number_ >= 0 )
            ::close( number_ );
    }
    Descriptor( const Descriptor & ) = delete;
    Descriptor & operator=( const Descriptor & ) = delete;

    int operator*() const noexcept { return number_; }

  private:
    int number_;
};

bool hasWriter( int descriptor ) {
    struct flock whole {};
    whole.l_type = F_WRLCK;
    whole.l_whence = SEEK_SET;
    // If it cannot be told, as if it had one.
    return ::fcntl( descriptor, F_OFD_GETLK, &whole ) != 0 || whole.l_type != F_UNLCK;
}

// Whether it is a whole header of this program, whose writer was to be known by its lock.
bool isOfProgram( int descriptor, std::string_view program ) {
    Format::FileHeader header;
    return ::pread( descriptor, &header, sizeof header, 0 ) == sizeof header &&
           std::equal( std::begin( header.magic ), std::end( header.magic ), Format::magic ) &&
           header.version > 1 &&
           header.checksum ==
               Format::checksum( &header, offsetof( Format::FileHeader, checksum ) ) &&
           header.lock == static_cast<std::uint32_t>( Format::Lock::held ) &&
           program == std::string_view( header.program,
                                        ::strnlen( header.program, sizeof header.program ) );
}

std::optional<OldFile> oldFile( int directory, const char * name, const std::string & program,
                                const std::string & suffix ) {
    const std::string_view text = name;
    const std::string beginning = program + suffix + "-";
    const bool isAbandoned =
        text.starts_with( "." + beginning ) && text.ends_with( NewFile::hiddenEnding );
    if ( !isAbandoned && !( text.starts_with( beginning ) && text.ends_with( ".fleetlog" ) ) )
        return std::nullopt;
    const Descriptor descriptor( directory, name );
    struct stat status {};
    if ( *descriptor < 0 || ::fstat( *descriptor, &status ) != 0 || !S_ISREG( status.st_mode ) ||
         hasWriter( *descriptor ) )
        return std::nullopt;
    if ( isAbandoned ) {
        if ( ::time( nullptr ) - status.st_mtim.tv_sec >= leastAgeOfAbandoned )
            ::unlinkat( directory, name, 0 );
        return std::nullopt;
    }
    if ( !isOfProgram( *descriptor, program ) )
        return std::nullopt;
    return OldFile{ name, status.st_mtim, static_cast<std::uint64_t>( status.st_blocks ) * 512 };
}

} // namespace

void removeOldFiles( const std::string & directory, const std::string & program,
                     const std::string & suffix, std::size_t keepFiles, std::uint64_t keepBytes ) {
    const std::unique_ptr<DIR, int ( * )( DIR * )> entries( ::opendir( directory.c_str() ),
                                                            ::closedir );
    if ( entries == nullptr )
        return;
    const int folder = ::dirfd( entries.get() );
    std::vector<OldFile> files;
    while ( const dirent * const entry = ::readdir( entries.get() ) ) {
        if ( auto file = oldFile( folder, entry->d_name, program, suffix ) )
            files.push_back( std::move( *file ) );
    }
    std::sort( files.begin(), files.end(), []( const OldFile & one, const OldFile & other ) {
        if ( one.written.tv_sec != other.written.tv_sec )
            return one.written.tv_sec > other.written.tv_sec;
        if ( one.written.tv_nsec != other.written.tv_nsec )
            return one.written.tv_nsec > other.written.tv_nsec;
        return one.name > other.name;
    } );
    std::uint64_t bytes = 0;
    for ( std::size_t i = 0; i < files.size(); ++i ) {
        bytes += files[i].bytes;
        if ( i >= keepFiles || bytes > keepBytes )
            ::unlinkat( folder, files[i].name.c_str(), 0 );
    }
}

} // namespace Fleetlog
