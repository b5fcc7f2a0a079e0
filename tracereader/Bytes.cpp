#include "tracereader/Bytes.h"

#include "tracereader/TraceReader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace TraceReader {

namespace {

class FileBytes : public Bytes {
  public:
    explicit FileBytes( const std::string & path ) : path_( path ) {
        descriptor_ = ::open( path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK );
        if ( descriptor_ < 0 )
            fail();
        struct stat status {};
        if ( ::fstat( descriptor_, &status ) != 0 || !S_ISREG( status.st_mode ) ) {
            ::close( descriptor_ );
            throw Error( path_ + ": not a trace file: not a regular file" );
        }
    }

    ~FileBytes() override { ::close( descriptor_ ); }

    FileBytes( const FileBytes & ) = delete;
    FileBytes & operator=( const FileBytes & ) = delete;

    std::size_t read( std::uint64_t offset, void * to, std::size_t size ) const override {
        std::size_t got = 0;
        while ( got < size ) {
            const ssize_t part = ::pread( descriptor_, static_cast<std::byte *>( to ) + got,
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
        struct stat status {};
        if ( ::fstat( descriptor_, &status ) != 0 )
            fail();
        return static_cast<std::uint64_t>( status.st_size );
    }

  private:
    [[noreturn]] void fail() const {
        throw Error( path_ + ": cannot be read: " + std::strerror( errno ) );
    }

    std::string path_;
    int descriptor_;
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
