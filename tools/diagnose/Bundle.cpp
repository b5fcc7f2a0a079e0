#include "tools/diagnose/Bundle.h"

#include "text/Escape.h"
#include "text/Time.h"
#include "tools/model/Errors.h"
#include "tools/model/Files.h"

#include <archive.h>
#include <archive_entry.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>
#include <utility>

namespace Tool {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::string_view manifestName = "bundle.json";
constexpr std::string_view reportName = "report.log";
constexpr std::string_view traceFolder = "trace/";
constexpr std::string_view traceEnding = ".fleetlog";

// The members that are texts.
constexpr std::array textMembers = {
    std::pair( reportName, &Bundle::report ),
    std::pair( std::string_view( "sites.txt" ), &Bundle::sites ),
    std::pair( std::string_view( "chips.json" ), &Bundle::chips ),
    std::pair( std::string_view( "state.json" ), &Bundle::state ),
    std::pair( std::string_view( "diagnosis.txt" ), &Bundle::text ),
    std::pair( std::string_view( "diagnosis.json" ), &Bundle::json ),
};

// libarchive does not verify the checksums of a compressed stream. That of a member stands in the
// manifest under its name.
constexpr const char * sumsName = "crc32";

template <class Container>
std::uint32_t sumOf( const Container & contents ) {
    const auto * const bytes = reinterpret_cast<const Bytef *>( contents.data() );
    return static_cast<std::uint32_t>( ::crc32_z( 0, bytes, contents.size() ) );
}

InputError tooLarge( const std::string & path, std::string remedy ) {
    return InputError( path, 0,
                       fmt::format( "is larger than {} MiB unpacked", Bundle::largest >> 20 ),
                       std::move( remedy ) );
}

struct Close {
    void operator()( archive * each ) const { ::archive_free( each ); }
};
using Archive = std::unique_ptr<archive, Close>;

// --- Reading

class BundleReader {
  public:
    BundleReader( const std::string & path, BundleParts parts )
        : path_( path ), parts_( parts ), archive_( ::archive_read_new() ) {
        constexpr std::size_t blockBytes = 1 << 16;
        ::archive_read_support_filter_gzip( archive_.get() );
        ::archive_read_support_filter_zstd( archive_.get() );
        ::archive_read_support_format_tar( archive_.get() );
        if ( ::archive_read_open_filename( archive_.get(), path.c_str(), blockBytes ) !=
             ARCHIVE_OK )
            throw noBundle( errorText() );
    }

    Bundle read() {
        Bundle bundle;
        Bundle::Traces traces;
        std::string manifest;
        archive_entry * entry = nullptr;
        for ( int result = next( &entry ); result != ARCHIVE_EOF; result = next( &entry ) ) {
            const char * const known = ::archive_entry_pathname( entry );
            const std::string name = known == nullptr ? "" : known;
            if ( ::archive_entry_filetype( entry ) != AE_IFREG ||
                 ::archive_entry_hardlink( entry ) != nullptr )
                throw notOfIt( name );
            const auto text =
                std::find_if( textMembers.begin(), textMembers.end(),
                              [&]( const auto & each ) { return each.first == name; } );
            if ( text != textMembers.end() )
                sums_[Text::printable( name )] =
                    sumOf( bundle.*text->second = contents<std::string>() );
            else if ( name == manifestName )
                manifest = contents<std::string>();
            else if ( !isTrace( name ) )
                throw notOfIt( name );
            else if ( parts_ == BundleParts::all )
                sums_[Text::printable( name )] = sumOf( traces[name.substr( traceFolder.size() )] =
                                                            contents<std::vector<std::byte>>() );
        }
        readManifest( manifest, bundle );
        bundle.traces = std::make_shared<const Bundle::Traces>( std::move( traces ) );
        return bundle;
    }

  private:
    static bool isTrace( std::string_view name ) {
        return name.starts_with( traceFolder ) && name.ends_with( traceEnding ) &&
               name.find( '/', traceFolder.size() ) == std::string_view::npos &&
               name.size() > traceFolder.size() + traceEnding.size();
    }

    int next( archive_entry ** entry ) {
        const int result = ::archive_read_next_header( archive_.get(), entry );
        if ( result != ARCHIVE_OK && result != ARCHIVE_EOF )
            throw members_ == 0 ? noBundle( errorText() ) : damaged( errorText() );
        if ( result == ARCHIVE_OK && ++members_ > Bundle::mostMembers )
            throw InputError( path_, 0,
                              fmt::format( "has more than {} members", Bundle::mostMembers ),
                              "it is no bundle of cairn-lt" );
        return result;
    }

    // What a member says of its size is not believed.
    template <class Container>
    Container contents() {
        Container all;
        std::array<char, 1 << 16> buffer;
        for ( ;; ) {
            const la_ssize_t size =
                ::archive_read_data( archive_.get(), buffer.data(), buffer.size() );
            if ( size < 0 )
                throw damaged( errorText() );
            if ( size == 0 )
                return all;
            bytes_ += static_cast<std::uint64_t>( size );
            if ( bytes_ > Bundle::largest )
                throw tooLarge( path_, "it is no bundle of cairn-lt" );
            const auto * const begin =
                reinterpret_cast<const typename Container::value_type *>( buffer.data() );
            all.insert( all.end(), begin, begin + size );
        }
    }

    void readManifest( const std::string & manifest, Bundle & bundle ) const {
        if ( manifest.empty() )
            throw noBundle( fmt::format( "it has no {}", manifestName ) );
        const Json json = Json::parse( manifest, nullptr, false );
        const auto textOf = [&]( const char * name ) {
            const auto found = json.find( name );
            return found != json.end() && found->is_string() ? found->get<std::string>()
                                                             : std::string();
        };
        if ( !json.is_object() || !json.contains( "bundle" ) ||
             !json["bundle"].is_number_integer() )
            throw noBundle( fmt::format( "its {} is none of a bundle", manifestName ) );
        if ( json["bundle"] != Bundle::formatVersion )
            throw InputError( path_, 0, "is a bundle of a version that cannot be read",
                              "use the cairn-lt of that version" );
        bundle.release = textOf( "release" );
        bundle.tool = textOf( "tool" );
        if ( json.contains( sumsName ) )
            compareSums( json[sumsName] );
    }

    // What was left out on purpose is not compared.
    void compareSums( const Json & sums ) const {
        if ( !sums.is_object() )
            throw damaged( fmt::format( "{} is not as it was written", manifestName ) );
        for ( const auto & [name, sum] : sums_ ) {
            const auto written = sums.find( name );
            if ( written == sums.end() || *written != sum )
                throw damaged(
                    fmt::format( "{} is not as it was written", Text::printable( name ) ) );
        }
        for ( const auto & [name, sum] : sums.items() ) {
            if ( !sums_.contains( name ) && ( parts_ == BundleParts::all || !isTrace( name ) ) )
                throw damaged( fmt::format( "{} is missing", Text::printable( name ) ) );
        }
    }

    std::string errorText() const {
        const char * const text = ::archive_error_string( archive_.get() );
        return Text::printable( text == nullptr ? "it ends early" : text );
    }

    InputError noBundle( const std::string & why ) const {
        return InputError(
            path_, 0, "is compressed, and no bundle: " + why,
            "copy the bundle again, or unpack what is none, as \"zcat FILE | cairn-lt diagnose\" does" );
    }

    InputError damaged( const std::string & why ) const {
        return InputError( path_, 0, "is damaged: " + why, "copy the bundle again" );
    }

    InputError notOfIt( const std::string & name ) const {
        return InputError(
            path_, 0,
            fmt::format( "holds \"{}\", which is no part of a bundle", Text::printable( name ) ),
            "nothing of it was used; unpack it elsewhere to look at it" );
    }

    const std::string path_;
    const BundleParts parts_;
    const Archive archive_;
    std::map<std::string, std::uint32_t> sums_; ///< of the members that were read
    std::size_t members_ = 0;
    std::uint64_t bytes_ = 0;
};

// --- Writing

class BundleWriter {
  public:
    explicit BundleWriter( const std::string & path ) : archive_( ::archive_write_new() ) {
        check( path.ends_with( ".zst" ) ? ::archive_write_add_filter_zstd( archive_.get() )
                                        : ::archive_write_add_filter_gzip( archive_.get() ) );
        check( ::archive_write_set_format_pax_restricted( archive_.get() ) );
        check( ::archive_write_set_bytes_in_last_block( archive_.get(), 1 ) ); // nothing behind it
        check(
            ::archive_write_open2( archive_.get(), &bytes_, nullptr, append, nullptr, nullptr ) );
    }

    void add( const std::string & name, const void * data, std::size_t size ) {
        constexpr unsigned mode = 0640;
        const std::unique_ptr<archive_entry, void ( * )( archive_entry * )> entry(
            ::archive_entry_new(), ::archive_entry_free );
        ::archive_entry_set_pathname( entry.get(), name.c_str() );
        ::archive_entry_set_size( entry.get(), static_cast<la_int64_t>( size ) );
        ::archive_entry_set_filetype( entry.get(), AE_IFREG );
        ::archive_entry_set_perm( entry.get(), mode );
        ::archive_entry_set_mtime( entry.get(), now_, 0 );
        check( ::archive_write_header( archive_.get(), entry.get() ) );
        if ( ::archive_write_data( archive_.get(), data, size ) != static_cast<la_ssize_t>( size ) )
            check( ARCHIVE_FATAL );
    }

    std::string finish() {
        check( ::archive_write_close( archive_.get() ) );
        return std::move( bytes_ );
    }

  private:
    static la_ssize_t append( archive *, void * to, const void * data, std::size_t size ) {
        static_cast<std::string *>( to )->append( static_cast<const char *>( data ), size );
        return static_cast<la_ssize_t>( size );
    }

    void check( int result ) const {
        if ( result != ARCHIVE_OK )
            throw Trouble( fmt::format( "the bundle cannot be made: {}",
                                        ::archive_error_string( archive_.get() ) ) );
    }

    const std::time_t now_ = std::time( nullptr );
    std::string bytes_; // outlives the archive
    const Archive archive_;
};

} // namespace

bool isBundle( const std::string & path ) {
    constexpr std::array<std::string_view, 2> beginnings = { "\x1f\x8b", "\x28\xb5\x2f\xfd" };
    std::error_code error; // what is read from a pipe is gone
    if ( !std::filesystem::is_regular_file( path, error ) )
        return false;
    std::array<char, 4> first{};
    std::ifstream file( path, std::ios::binary );
    file.read( first.data(), first.size() );
    const std::string_view read( first.data(), static_cast<std::size_t>( file.gcount() ) );
    return std::any_of( beginnings.begin(), beginnings.end(),
                        [&]( std::string_view each ) { return read.starts_with( each ); } );
}

Bundle readBundle( const std::string & path, BundleParts parts ) {
    return BundleReader( path, parts ).read();
}

TraceSource traceIn( const Bundle & bundle, const std::string & path ) {
    return [traces = bundle.traces, path]( std::optional<std::uint32_t> process ) {
        TraceReader::Merge merge;
        for ( const auto & [name, bytes] : *traces ) {
            const std::string file = fmt::format( "{}:{}", path, name );
            try {
                auto opened = std::make_unique<TraceReader::File>( file, bytes );
                if ( !process || opened->info().process == *process )
                    merge.add( std::move( opened ) );
            } catch ( const TraceReader::Error & error ) {
                if ( traces->size() == 1 )
                    throw InputError( error.what() );
                merge.add( file, bytes ); // is refused again, and a finding
            }
        }
        return merge;
    };
}

void checkBundleName( const std::string & path ) {
    if ( !path.ends_with( ".tar.gz" ) && !path.ends_with( ".tar.zst" ) )
        throw InputError( "--bundle: \"" + path + "\" does not tell how to compress it",
                          "name it .tar.gz or .tar.zst" );
}

void writeBundle( const std::string & path, const Bundle & bundle ) {
    checkBundleName( path );
    std::uint64_t size = 0;
    for ( const auto & [name, text] : textMembers )
        size += ( bundle.*text ).size();
    for ( const auto & [name, bytes] : *bundle.traces )
        size += bytes.size();
    if ( size > Bundle::largest )
        throw tooLarge( path, "give a part of the report, or the trace files of one process" );

    const auto forEachMember = [&]( auto take ) {
        for ( const auto & [name, text] : textMembers ) {
            if ( !( bundle.*text ).empty() || name == reportName )
                take( std::string( name ), bundle.*text );
        }
        for ( const auto & [name, bytes] : *bundle.traces )
            take( std::string( traceFolder ) + name, bytes );
    };
    Json sums = Json::object();
    forEachMember( [&]( const std::string & name, const auto & contents ) {
        sums[Text::printable( name )] = sumOf( contents );
    } );
    BundleWriter writer( path );
    const std::string manifest = Json{ { "bundle", Bundle::formatVersion },
                                       { "tool", bundle.tool },
                                       { "release", bundle.release },
                                       { sumsName, std::move( sums ) } }
                                     .dump( 2 ) +
                                 "\n";
    writer.add( std::string( manifestName ), manifest.data(), manifest.size() );
    forEachMember( [&]( const std::string & name, const auto & contents ) {
        writer.add( name, contents.data(), contents.size() );
    } );
    replaceFile( linkTarget( path ), writer.finish() );
}

std::shared_ptr<const Bundle::Traces> readTraces( const std::string & path ) {
    namespace fs = std::filesystem;
    std::error_code error;
    std::vector<std::string> files{ path };
    if ( fs::is_directory( path, error ) )
        files = TraceReader::findFiles( path );
    Bundle::Traces traces;
    std::uint64_t size = 0;
    for ( const std::string & file : files ) {
        size += fs::file_size( file, error );
        if ( error || size > Bundle::largest )
            throw tooLarge( path, "name the trace files of one process with --trace" );
        const std::string contents = readFile( file );
        const auto * const begin = reinterpret_cast<const std::byte *>( contents.data() );
        std::string name = fs::path( file ).filename();
        if ( !name.ends_with( traceEnding ) )
            name += traceEnding;
        traces[name].assign( begin, begin + contents.size() );
    }
    return std::make_shared<const Bundle::Traces>( std::move( traces ) );
}

} // namespace Tool
