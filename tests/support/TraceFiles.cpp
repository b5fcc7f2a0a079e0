#include "tests/support/TraceFiles.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <utility>

namespace Support {

std::vector<std::string> Directory::files() const {
    return std::filesystem::is_empty( path() ) ? std::vector<std::string>{}
                                               : TraceReader::findFiles( path() );
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
    const std::string bytes = contents( path );
    const auto * begin = reinterpret_cast<const std::byte *>( bytes.data() );
    return { begin, begin + bytes.size() };
}

} // namespace Support
