#include "tools/model/Files.h"

#include "tools/model/Errors.h"
#include "tools/model/Interrupts.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <random>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace Tool {

namespace {

// A descriptor that is closed at the end.
class Descriptor {
  public:
    explicit Descriptor( int number ) : number_( number ) {}
    ~Descriptor() {
        if ( number_ >= 0 )
            ::close( number_ );
    }
    Descriptor( const Descriptor & ) = delete;
    Descriptor & operator=( const Descriptor & ) = delete;

    int number() const { return number_; }

  private:
    int number_;
};

// What is written beside FILE is called .FILE.RANDOM.tmp.
constexpr std::size_t randomDigits = 32;
constexpr std::string_view temporaryEnding = ".tmp";

std::string temporaryPrefix( const std::filesystem::path & file ) {
    return fmt::format( ".{}.", file.filename().string() );
}

std::string temporaryBeside( const std::filesystem::path & file ) {
    std::random_device random;
    std::string name = temporaryPrefix( file );
    while ( name.size() < temporaryPrefix( file ).size() + randomDigits )
        name += fmt::format( "{:08x}", static_cast<std::uint32_t>( random() ) );
    return ( file.parent_path() / name.append( temporaryEnding ) ).string();
}

bool isTemporaryOf( const std::filesystem::path & file, std::string_view name ) {
    const std::string prefix = temporaryPrefix( file );
    if ( name.size() != prefix.size() + randomDigits + temporaryEnding.size() ||
         !name.starts_with( prefix ) || !name.ends_with( temporaryEnding ) )
        return false;
    return name.substr( prefix.size(), randomDigits ).find_first_not_of( "0123456789abcdef" ) ==
           std::string_view::npos;
}

// A name lasts only if the folder is on disk, too. Not every file system can do that.
void syncFolderOf( const std::filesystem::path & file ) {
    const std::string folder = file.parent_path().empty() ? "." : file.parent_path().string();
    const Descriptor descriptor( ::open( folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC ) );
    if ( descriptor.number() >= 0 )
        ::fsync( descriptor.number() );
}

// Gives a new file the mode, and if that is allowed the owner, of the one that it replaces.
bool takeOver( int descriptor, const struct stat & old ) {
    if ( ::fchown( descriptor, old.st_uid, old.st_gid ) != 0 && errno != EPERM )
        return false;
    return ::fchmod( descriptor, old.st_mode & 0777 ) == 0;
}

Trouble cannotBeWritten( const std::string & path, int error ) {
    return Trouble( fmt::format( "{}: cannot be written: {}", path, std::strerror( error ) ) );
}

} // namespace

std::string readFile( const std::string & path ) {
    const auto refuse = [&]( std::string_view why ) -> InputError {
        return InputError( path, 0, fmt::format( "cannot be read: {}", why ) );
    };
    const Descriptor file( ::open( path.c_str(), O_RDONLY | O_CLOEXEC ) );
    if ( file.number() < 0 )
        throw refuse( std::strerror( errno ) );
    std::string contents;
    char buffer[65536];
    for ( ;; ) {
        const ssize_t count = ::read( file.number(), buffer, sizeof buffer );
        if ( count == 0 )
            return contents;
        if ( count < 0 && errno == EINTR )
            continue;
        if ( count < 0 )
            throw refuse( std::strerror( errno ) );
        if ( contents.size() + static_cast<std::size_t>( count ) > largestFile )
            throw InputError( path, 0, fmt::format( "is larger than {} MiB", largestFile >> 20 ),
                              "name a smaller file" );
        contents.append( buffer, static_cast<std::size_t>( count ) );
    }
}

bool writeAll( int descriptor, std::string_view text ) noexcept {
    while ( !text.empty() ) {
        const ssize_t written = ::write( descriptor, text.data(), text.size() );
        if ( written < 0 && errno == EINTR )
            continue;
        if ( written < 0 )
            return false;
        text.remove_prefix( static_cast<std::size_t>( written ) );
    }
    return true;
}

void needOtherFile( const std::string & output, const std::string & input ) {
    std::error_code error; // one that is not there is no other
    if ( std::filesystem::equivalent( output, input, error ) )
        throw InputError( output, 0, fmt::format( "is {}, which is read", input ),
                          "name another file with -o" );
}

std::string linkTarget( const std::string & path ) {
    std::filesystem::path target = path;
    constexpr int mostLinks = 40; // as many as the kernel follows
    for ( int links = 0; links < mostLinks; ++links ) {
        std::error_code error;
        const auto next = std::filesystem::read_symlink( target, error );
        if ( error )
            return target.string();
        target = target.parent_path() / next;
    }
    throw InputError( path, 0, std::strerror( ELOOP ), "name the file itself" );
}

NewFile::NewFile( std::string path )
    : path_( std::move( path ) ), temporary_( temporaryBeside( path_ ) ) {
    struct stat old {};
    const bool isNew = ::stat( path_.c_str(), &old ) != 0;
    descriptor_ =
        ::open( temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, isNew ? 0666 : 0600 );
    if ( descriptor_ < 0 )
        throw cannotBeWritten( path_, errno );
    if ( !isNew && !takeOver( descriptor_, old ) ) {
        const int error = errno;
        remove();
        throw cannotBeWritten( path_, error );
    }
}

NewFile::~NewFile() { remove(); }

void NewFile::remove() noexcept {
    if ( !temporary_.empty() )
        ::unlink( temporary_.c_str() );
    ::close( descriptor_ );
}

void NewFile::write( std::string_view text ) {
    if ( !writeAll( descriptor_, text ) )
        throw cannotBeWritten( path_, errno );
}

void NewFile::appear() {
    if ( ::fsync( descriptor_ ) != 0 || std::rename( temporary_.c_str(), path_.c_str() ) != 0 )
        throw cannotBeWritten( path_, errno );
    temporary_.clear();
    syncFolderOf( path_ );
}

void replaceFile( const std::string & path, std::string_view text ) {
    const InterruptsHeld held;
    NewFile file( path );
    file.write( text );
    file.appear();
}

void removeLeftovers( const std::string & path ) {
    const std::filesystem::path file = path;
    const auto folder = file.parent_path().empty() ? "." : file.parent_path();
    std::error_code error;
    for ( auto entry = std::filesystem::directory_iterator( folder, error );
          !error && entry != std::filesystem::directory_iterator(); entry.increment( error ) ) {
        if ( isTemporaryOf( file, entry->path().filename().string() ) )
            ::unlink( entry->path().c_str() );
    }
}

} // namespace Tool
