#include "tools/cli/Export.h"

#include "tools/cli/Output.h"
#include "tools/model/Errors.h"
#include "tools/model/Files.h"
#include "tools/show/Chrome.h"
#include "tools/show/Ctf.h"
#include "tools/show/Folded.h"

#include <fmt/format.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace Tool {

namespace {

Trouble cannotBeWritten( const std::string & path, int error ) {
    return Trouble( fmt::format( "{}: cannot be written: {}", path, std::strerror( error ) ) );
}

// A document: standard output, a file that appears when it is complete, or, if that is what has the
// name already, a device or a pipe.
class Document {
  public:
    explicit Document( const std::string & path ) : path_( path ) {
        std::signal( SIGPIPE, SIG_IGN ); // a reader who leaves is an error like a full disk
        if ( path.empty() )
            return;
        struct stat there {};
        const bool isThere = ::stat( path.c_str(), &there ) == 0;
        if ( isThere && S_ISDIR( there.st_mode ) )
            throw InputError( path, 0, "is a directory", "name a file" );
        if ( isThere && !S_ISREG( there.st_mode ) ) {
            pipe_ = ::open( path.c_str(), O_WRONLY | O_CLOEXEC );
            if ( pipe_ < 0 )
                throw cannotBeWritten( path, errno );
        } else {
            file_.emplace( linkTarget( path ) );
        }
    }
    ~Document() {
        if ( pipe_ >= 0 )
            ::close( pipe_ );
    }
    Document( const Document & ) = delete;
    Document & operator=( const Document & ) = delete;

    void write( std::string_view text ) {
        if ( file_ )
            file_->write( text );
        else if ( pipe_ < 0 )
            print( text );
        else if ( !writeAll( pipe_, text ) )
            throw cannotBeWritten( path_, errno );
    }

    void finish() {
        if ( file_ )
            file_->appear();
    }

    bool isFile() const { return file_.has_value(); }

  private:
    std::string path_;
    std::optional<NewFile> file_;
    int pipe_ = -1;
};

class ChromeExport final : public Export {
  public:
    explicit ChromeExport( const std::string & path )
        : document_( path ),
          chrome_( [this]( std::string_view text ) { document_.write( text ); } ) {}

    void take( const TraceReader::Event & event, bool isWanted ) override {
        chrome_.take( event, isWanted );
    }
    void finish() override {
        chrome_.finish();
        document_.finish();
    }
    bool hasLeftovers() const override { return document_.isFile(); }

  private:
    Document document_;
    Chrome chrome_;
};

class FoldedExport final : public Export {
  public:
    explicit FoldedExport( const std::string & path ) : document_( path ) {}

    void take( const TraceReader::Event & event, bool isWanted ) override {
        folded_.take( event, isWanted );
    }
    void finish() override {
        const std::string text = folded_.text();
        document_.write( text );
        document_.finish();
        const std::uint64_t withoutTime = folded_.callsWithoutTime();
        if ( withoutTime != 0 )
            complain( fmt::format( "without a begin or an end, and therefore left out: {} SDK {}",
                                   withoutTime, withoutTime == 1 ? "call" : "calls" ) );
        else if ( text.empty() )
            complain( "no SDK calls: the traces hold none, or the filters leave none" );
    }
    bool hasLeftovers() const override { return document_.isFile(); }

  private:
    Document document_;
    Folded folded_;
};

// A directory that appears when all files are in it.
class NewDirectory {
  public:
    explicit NewDirectory( std::filesystem::path path ) : path_( std::move( path ) ) {
        if ( !path_.has_filename() )
            path_ = path_.parent_path(); // "DIR/"
        path_ = linkTarget( path_.string() );
        std::error_code error;
        const auto there = std::filesystem::status( path_, error );
        if ( std::filesystem::exists( there ) && !std::filesystem::is_directory( there ) )
            throw InputError( path_.string(), 0, "is no directory", "name a new one" );
        const bool isFree =
            !std::filesystem::exists( there ) || std::filesystem::is_empty( path_, error );
        if ( error && std::filesystem::exists( there ) )
            throw cannotBeWritten( path_.string(), error.value() );
        if ( !isFree )
            throw InputError( path_.string(), 0, "is not empty", "name a new directory" );
        std::string name =
            ( path_.parent_path() / ( "." + path_.filename().string() + ".XXXXXX" ) ).string();
        if ( ::mkdtemp( name.data() ) == nullptr )
            throw cannotBeWritten( path_.string(), errno );
        temporary_ = name;
    }
    ~NewDirectory() {
        std::error_code error;
        if ( !temporary_.empty() )
            std::filesystem::remove_all( temporary_, error );
    }
    NewDirectory( const NewDirectory & ) = delete;
    NewDirectory & operator=( const NewDirectory & ) = delete;

    // There may be more files than a process may have open.
    void write( const std::string & name, std::uint64_t offset, std::string_view bytes ) {
        const int file =
            ::open( ( temporary_ / name ).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666 );
        if ( file < 0 )
            throw cannotBeWritten( path_.string(), errno );
        const bool isWritten =
            ::lseek( file, static_cast<off_t>( offset ), SEEK_SET ) >= 0 && writeAll( file, bytes );
        const int error = errno;
        const bool isClosed = ::close( file ) == 0;
        if ( !isWritten || !isClosed )
            throw cannotBeWritten( path_.string(), isWritten ? errno : error );
    }

    void appear() {
        const mode_t mask = ::umask( 0 );
        ::umask( mask );
        if ( ::chmod( temporary_.c_str(), 0777 & ~mask ) != 0 ||
             ::rename( temporary_.c_str(), path_.c_str() ) != 0 )
            throw cannotBeWritten( path_.string(), errno );
        temporary_.clear();
    }

  private:
    std::filesystem::path path_;
    std::filesystem::path temporary_; ///< empty: it has appeared
};

class CtfExport final : public Export {
  public:
    explicit CtfExport( const std::string & path )
        : directory_( path ),
          ctf_( [this]( const std::string & name, std::uint64_t offset, std::string_view bytes ) {
              directory_.write( name, offset, bytes );
          } ) {}

    void take( const TraceReader::Event & event, bool isWanted ) override {
        ctf_.take( event, isWanted );
    }
    void finish() override {
        ctf_.finish();
        directory_.appear();
    }
    bool hasLeftovers() const override { return true; }

  private:
    NewDirectory directory_;
    Ctf ctf_;
};

} // namespace

std::unique_ptr<Export> startExport( ExportFormat format, const std::string & output ) {
    switch ( format ) {
    case ExportFormat::ctf:
        return std::make_unique<CtfExport>( output );
    case ExportFormat::chrome:
        return std::make_unique<ChromeExport>( output );
    default:
        return std::make_unique<FoldedExport>( output );
    }
}

} // namespace Tool
