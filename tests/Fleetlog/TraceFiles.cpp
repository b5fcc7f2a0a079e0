#include "tests/Fleetlog/TraceFiles.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace Support {

Directory::Directory() {
    std::string pattern = ( std::filesystem::temp_directory_path() / "fleetlog-XXXXXX" ).string();
    if ( ::mkdtemp( pattern.data() ) == nullptr )
        throw std::system_error( errno, std::generic_category(), pattern );
    path_ = pattern;
}

Directory::~Directory() {
    std::error_code ignored;
    std::filesystem::remove_all( path_, ignored );
}

std::vector<std::string> Directory::files() const {
    return std::filesystem::is_empty( path_ ) ? std::vector<std::string>{}
                                              : TraceReader::findFiles( path_ );
}

std::string Directory::file() const {
    const auto found = files();
    EXPECT_EQ( found.size(), 1u );
    return found.empty() ? "" : found.front();
}

Reading read( TraceReader::File & file ) {
    Reading reading;
    TraceReader::Record record;
    while ( file.next( record ) ) {
        std::string text;
        TraceReader::appendText( text, record );
        reading.texts.push_back( text );
    }
    for ( const auto & finding : file.findings() )
        reading.findings.push_back( finding.text() );
    reading.info = file.info();
    reading.counts = file.counts();
    reading.sites.assign( file.sites().begin(), file.sites().end() );
    return reading;
}

Reading read( const std::string & path ) {
    TraceReader::File file( path );
    return read( file );
}

Reading read( std::vector<std::byte> content ) {
    TraceReader::File file( "memory", std::move( content ) );
    return read( file );
}

std::vector<std::byte> contentOf( const std::string & path ) {
    std::ifstream file( path, std::ios::binary );
    const std::string bytes( std::istreambuf_iterator<char>( file ), {} );
    const auto * begin = reinterpret_cast<const std::byte *>( bytes.data() );
    return { begin, begin + bytes.size() };
}

pid_t startChild( const std::function<bool()> & work ) {
    const pid_t child = ::fork();
    if ( child < 0 )
        throw std::system_error( errno, std::generic_category(), "fork" );
    if ( child == 0 )
        ::_exit( work() ? 0 : 1 );
    return child;
}

int runInChild( const std::function<bool()> & work ) {
    int status = 0;
    const pid_t child = startChild( work );
    if ( ::waitpid( child, &status, 0 ) != child )
        throw std::system_error( errno, std::generic_category(), "waitpid" );
    return status;
}

} // namespace Support
