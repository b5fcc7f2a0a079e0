#include "tracereader/Bytes.h"

#include "tracereader/TraceReader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <list>
#include <mutex>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace TraceReader {

namespace {

class FileBytes;

/// The files that are open just now, the one that was read last in front. There are fewer than the
/// process may have: one that is opened takes the place of the one that was read longest ago.
class OpenFiles {
  public:
    static OpenFiles & instance() {
        static OpenFiles & files = *new OpenFiles;
        return files;
    }

    std::mutex mutex;
    std::list<const FileBytes *> files;

    /// Others need some, too: to list a folder, to write what was read.
    static std::size_t most() {
        constexpr std::size_t enough = 200;
        rlimit limit{};
        if ( ::getrlimit( RLIMIT_NOFILE, &limit ) != 0 )
            return 1;
        return std::clamp<std::size_t>( limit.rlim_cur / 2, 2, enough + 1 ) - 1;
    }
};

class FileBytes : public Bytes {
  public:
    explicit FileBytes( const std::string & path ) : path_( path ) {
        const std::lock_guard lock( OpenFiles::instance().mutex );
        open();
    }

    ~FileBytes() override {
        const std::lock_guard lock( OpenFiles::instance().mutex );
        close();
    }

    FileBytes( const FileBytes & ) = delete;
    FileBytes & operator=( const FileBytes & ) = delete;

    std::size_t read( std::uint64_t offset, void * to, std::size_t size ) const override {
        const std::lock_guard lock( OpenFiles::instance().mutex );
        const int descriptor = use();
        std::size_t got = 0;
        while ( got < size ) {
            const ssize_t part = ::pread( descriptor, static_cast<std::byte *>( to ) + got,
                                          size - got, static_cast<off_t>( offset + got ) );
            if ( part < 0 && errno == EINTR )
                continue;
            if ( part < 0 )
                fail();
            if ( part == 0 )
                break;
            got += static_cast<std::size_t>( part );
        }
        return got;
    }

    std::uint64_t size() const override {
        const std::lock_guard lock( OpenFiles::instance().mutex );
        return static_cast<std::uint64_t>( status( use() ).st_size );
    }

    std::uint64_t nextData( std::uint64_t offset ) const override {
        const std::lock_guard lock( OpenFiles::instance().mutex );
        const int descriptor = use();
        const off_t data = ::lseek( descriptor, static_cast<off_t>( offset ), SEEK_DATA );
        if ( data >= 0 )
            return static_cast<std::uint64_t>( data );
        return errno == ENXIO ? static_cast<std::uint64_t>( status( descriptor ).st_size ) : offset;
    }

    std::uint64_t nextHole( std::uint64_t offset ) const override {
        const std::lock_guard lock( OpenFiles::instance().mutex );
        const int descriptor = use();
        const off_t hole = ::lseek( descriptor, static_cast<off_t>( offset ), SEEK_HOLE );
        return static_cast<std::uint64_t>( hole >= 0 ? hole : status( descriptor ).st_size );
    }

    std::optional<bool> isLocked() const override {
        const std::lock_guard lock( OpenFiles::instance().mutex );
        struct flock whole {};
        whole.l_type = F_RDLCK;
        whole.l_whence = SEEK_SET;
        if ( ::fcntl( use(), F_OFD_GETLK, &whole ) != 0 )
            return std::nullopt;
        return whole.l_type != F_UNLCK;
    }

  private:
    [[noreturn]] void fail() const {
        throw Error( path_, std::string( "cannot be read: " ) + std::strerror( errno ),
                     errno == ENOENT );
    }

    struct stat status( int descriptor ) const {
        struct stat status {};
        if ( ::fstat( descriptor, &status ) != 0 )
            fail();
        return status;
    }

    void open() const {
        auto & files = OpenFiles::instance().files;
        while ( files.size() >= OpenFiles::most() )
            files.back()->close();
        while ( ( descriptor_ = ::open( path_.c_str(),
                                        O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY ) ) < 0 ) {
            if ( ( errno != EMFILE && errno != ENFILE ) || files.empty() )
                fail();
            files.back()->close();
        }
        files.push_front( this );
        place_ = files.begin();
        struct stat found {};
        const bool isRegular = ::fstat( descriptor_, &found ) == 0 && S_ISREG( found.st_mode );
        const bool isSame = !isKnown_ || ( found.st_dev == device_ && found.st_ino == inode_ );
        if ( !isRegular || !isSame ) {
            close();
            throw Error( path_, isRegular ? "was replaced by another file while it was read"
                                          : "not a trace file: not a regular file" );
        }
        device_ = found.st_dev;
        inode_ = found.st_ino;
        isKnown_ = true;
    }

    void close() const {
        if ( descriptor_ < 0 )
            return;
        ::close( descriptor_ );
        descriptor_ = -1;
        OpenFiles::instance().files.erase( place_ );
    }

    int use() const {
        auto & files = OpenFiles::instance().files;
        if ( descriptor_ < 0 )
            open();
        else if ( files.front() != this )
            files.splice( files.begin(), files, place_ );
        return descriptor_;
    }

    std::string path_;
    mutable int descriptor_ = -1;
    mutable std::list<const FileBytes *>::iterator place_; ///< among the open files
    mutable bool isKnown_ = false;
    mutable dev_t device_ = 0;
    mutable ino_t inode_ = 0;
};

class MemoryBytes : public Bytes {
  public:
    explicit MemoryBytes( std::vector<std::byte> content ) : content_( std::move( content ) ) {}

    std::size_t read( std::uint64_t offset, void * to, std::size_t size ) const override {
        if ( offset >= content_.size() )
            return 0;
        const std::size_t got =
            std::min( size, content_.size() - static_cast<std::size_t>( offset ) );
        std::copy_n( content_.data() + offset, got, static_cast<std::byte *>( to ) );
        return got;
    }

    std::uint64_t size() const override { return content_.size(); }
    std::uint64_t nextData( std::uint64_t offset ) const override { return offset; }
    std::uint64_t nextHole( std::uint64_t ) const override { return content_.size(); }
    std::optional<bool> isLocked() const override { return std::nullopt; }

  private:
    std::vector<std::byte> content_;
};

} // namespace

std::unique_ptr<Bytes> openBytes( const std::string & path ) {
    return std::make_unique<FileBytes>( path );
}

std::unique_ptr<Bytes> holdBytes( std::vector<std::byte> content ) {
    return std::make_unique<MemoryBytes>( std::move( content ) );
}

} // namespace TraceReader
