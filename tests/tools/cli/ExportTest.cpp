#include "tests/support/TemporaryFolder.h"
#include "tests/tools/Program.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

// "cairn-lt trace --export": where it writes, what it takes, and what it says when it cannot.

namespace {

using ToolTest::cairnLt;
using ToolTest::lines;
using ToolTest::Outcome;

class ExportTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(
            cairnLt( { "run", "setEgrTunnelEcnEncap", "0", "5", "2", "--record-to", recording() } )
                .exitCode,
            0 );
        std::filesystem::create_directory( place() );
    }

    std::string recording() const { return temporary_.path( "recording" ); }
    std::string place() const { return temporary_.path( "place" ); }
    std::string out( const std::string & name = "out" ) const { return place() + "/" + name; }

    Outcome exported( const std::string & format, const std::string & to,
                      const std::vector<std::string> & more = {},
                      const std::function<void()> & prepare = {} ) const {
        std::vector<std::string> arguments{ "trace", recording(), "--export", format };
        if ( !to.empty() )
            arguments.insert( arguments.end(), { "-o", to } );
        arguments.insert( arguments.end(), more.begin(), more.end() );
        return cairnLt( arguments, {}, prepare );
    }

    // The names in the folder of outputs, hidden ones too.
    std::vector<std::string> names() const {
        std::vector<std::string> all;
        for ( const auto & entry : std::filesystem::directory_iterator( place() ) )
            all.push_back( entry.path().filename() );
        std::sort( all.begin(), all.end() );
        return all;
    }

    static void expectRefused( const Outcome & run, const std::string & message ) {
        EXPECT_EQ( run.exitCode, 2 );
        EXPECT_EQ( run.out, "" );
        ASSERT_EQ( lines( run.err ).size(), 1u ) << run.err;
        EXPECT_NE( run.err.find( message ), std::string::npos ) << run.err;
    }

    Support::TemporaryFolder temporary_;
};

const std::vector<std::string> formats{ "ctf", "chrome", "folded" };

TEST_F( ExportTest, AppearsInItsPlaceAndNothingElseDoes ) {
    for ( const std::string & format : formats ) {
        const Outcome run = exported( format, out( format ) );
        EXPECT_EQ( run.exitCode, 0 ) << run.err;
        EXPECT_EQ( run.out, "" );
        EXPECT_EQ( run.err, "" );
    }
    EXPECT_EQ( names(), ( std::vector<std::string>{ "chrome", "ctf", "folded" } ) );
    EXPECT_TRUE( std::filesystem::exists( out( "ctf/metadata" ) ) );
    EXPECT_EQ( std::filesystem::status( out( "ctf" ) ).permissions() &
                   std::filesystem::perms::owner_all,
               std::filesystem::perms::owner_all );
}

TEST_F( ExportTest, ReplacesAFileAndFillsAnEmptyDirectory ) {
    std::ofstream( out( "file" ) ) << "old";
    std::filesystem::create_directory( out( "empty" ) );
    EXPECT_EQ( exported( "chrome", out( "file" ) ).exitCode, 0 );
    EXPECT_EQ( Support::contents( out( "file" ) ).substr( 0, 1 ), "{" );
    EXPECT_EQ( exported( "ctf", out( "empty/" ) ).exitCode, 0 );
    EXPECT_TRUE( std::filesystem::exists( out( "empty/metadata" ) ) );
}

TEST_F( ExportTest, DocumentsGoToStandardOutput ) {
    EXPECT_TRUE( exported( "chrome", "" ).out.starts_with( "{" ) );
    const auto shown = lines( exported( "folded", "" ).out );
    ASSERT_FALSE( shown.empty() );
    EXPECT_TRUE( shown[0].starts_with( "(recipe_not_known);EGR_TUNNEL_ECN_ENCAPm;bcmlt_" ) );
}

TEST_F( ExportTest, GoesIntoAPipeThatIsThere ) {
    ASSERT_EQ( ::mkfifo( out( "pipe" ).c_str(), 0600 ), 0 );
    const int end = ::open( out( "pipe" ).c_str(), O_RDWR | O_CLOEXEC );
    EXPECT_EQ( exported( "folded", out( "pipe" ) ).exitCode, 0 );
    char first = 0;
    EXPECT_EQ( ::read( end, &first, 1 ), 1 );
    EXPECT_EQ( first, '(' );
    ::close( end );
    EXPECT_EQ( names(), std::vector<std::string>{ "pipe" } );
}

TEST_F( ExportTest, AnInterruptEndsItAlsoWhereAPipeIsNotRead ) {
    ASSERT_EQ( ::mkfifo( out( "pipe" ).c_str(), 0600 ), 0 );
    const int end = ::open( out( "pipe" ).c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC );
    const std::string block( 4096, 'x' );
    while ( ::write( end, block.data(), block.size() ) > 0 ) {
    }
    ToolTest::StartedProgram run(
        { "trace", recording(), "--export", "chrome", "-o", out( "pipe" ) } );
    // It sleeps in its first write, or has ended.
    const std::string process = "/proc/" + std::to_string( run.process() );
    std::error_code error;
    const auto pipe = std::filesystem::canonical( out( "pipe" ) );
    const auto hasPipe = [&] {
        for ( const auto & each : std::filesystem::directory_iterator( process + "/fd", error ) )
            if ( std::filesystem::read_symlink( each, error ) == pipe )
                return true;
        return false;
    };
    const auto sleeps = [&] {
        return Support::contents( process + "/stat" ).find( ") S " ) != std::string::npos;
    };
    while ( !run.hasEnded() && !( hasPipe() && sleeps() ) )
        ::usleep( 1000 );
    ::kill( run.process(), SIGINT );
    EXPECT_EQ( run.wait().signal, SIGINT );
    ::close( end );
}

TEST_F( ExportTest, APlaceThatIsTakenIsRefused ) {
    std::filesystem::create_directory( out( "full" ) );
    std::ofstream( out( "full/file" ) ) << "mine";
    expectRefused( exported( "ctf", out( "full" ) ), "is not empty; name a new directory" );
    expectRefused( exported( "ctf", out( "full/file" ) ), "is no directory; name a new one" );
    expectRefused( exported( "chrome", out( "full" ) ), "is a directory; name a file" );
    EXPECT_EQ( Support::contents( out( "full/file" ) ), "mine" );
    EXPECT_EQ( names(), std::vector<std::string>{ "full" } );
}

TEST_F( ExportTest, WhatIsReadIsNotOverwritten ) {
    const std::string file = std::filesystem::directory_iterator( recording() )->path();
    const std::string before = Support::contents( file );
    for ( const char * format : { "chrome", "folded" } )
        expectRefused( exported( format, file ), "which is read; name another file with -o" );
    EXPECT_EQ( Support::contents( file ), before );
}

TEST_F( ExportTest, APlaceThatIsNotThereIsSaid ) {
    for ( const std::string & format : formats )
        expectRefused( exported( format, out( "none/x" ) ),
                       "cannot be written: No such file or directory" );
}

TEST_F( ExportTest, AFullDiskLeavesNothingBehind ) {
    for ( const char * format : { "chrome", "folded" } )
        expectRefused( exported( format, "/dev/full" ), "No space left on device" );
    std::ofstream( out( "chrome" ) ) << "old";
    for ( const std::string & format : formats )
        expectRefused( exported( format, out( format ), {},
                                 [] {
                                     const rlimit small{ 200, 200 };
                                     ::setrlimit( RLIMIT_FSIZE, &small );
                                 } ),
                       "File too large" );
    EXPECT_EQ( names(), std::vector<std::string>{ "chrome" } );
    EXPECT_EQ( Support::contents( out( "chrome" ) ), "old" );
}

TEST_F( ExportTest, AReaderWhoLeavesIsSaid ) {
    for ( const char * format : { "chrome", "folded" } )
        expectRefused( exported( format, "", {},
                                 [] {
                                     int ends[2];
                                     if ( ::pipe( ends ) == 0 ) {
                                         ::close( ends[0] );
                                         ::dup2( ends[1], STDOUT_FILENO );
                                     }
                                 } ),
                       "standard output cannot be written: Broken pipe" );
}

TEST_F( ExportTest, WhatIsWholeOfADamagedFileIsExported ) {
    const std::string file = std::filesystem::directory_iterator( recording() )->path();
    std::filesystem::resize_file( file, std::filesystem::file_size( file ) - 4096 );
    for ( const std::string & format : formats ) {
        const Outcome run = exported( format, out( format ) );
        EXPECT_EQ( run.exitCode, 1 );
        EXPECT_EQ( lines( run.err ).size(), 1u );
        EXPECT_NE( run.err.find( file ), std::string::npos );
    }
    EXPECT_EQ( names().size(), 3u );
}

TEST_F( ExportTest, NothingIsExportedOfWhatCannotBeRead ) {
    const std::string file = temporary_.write( "no-trace", "hello" );
    for ( const std::string & format : formats )
        expectRefused( cairnLt( { "trace", file, "--export", format, "-o", out( format ) } ),
                       file );
    EXPECT_EQ( names(), std::vector<std::string>() );
}

TEST_F( ExportTest, TheFiltersHold ) {
    const auto slices = [&]( const std::vector<std::string> & filter ) {
        const auto document =
            nlohmann::json::parse( exported( "chrome", "", filter ).out )["traceEvents"];
        return std::count_if( document.begin(), document.end(),
                              []( const auto & event ) { return event["ph"] == "X"; } );
    };
    EXPECT_EQ( slices( {} ), 10 );
    EXPECT_EQ( slices( { "--operation", "field_add" } ), 2 );
    EXPECT_EQ( slices( { "--table", "OTHER" } ), 0 );
    EXPECT_EQ( slices( { "--to", "2020-01-01T00:00:00" } ), 0 );
    EXPECT_EQ( slices( { "--recipe", "setVxlanDecapAdaptLookup" } ), 0 );
    EXPECT_EQ( slices( { "--match", "OUTER_ECN" } ), 1 );
    EXPECT_EQ( lines( exported( "folded", "", { "--operation", "free" } ).out ).size(), 1u );
}

TEST_F( ExportTest, AnEmptyGraphIsSaid ) {
    const Outcome run = exported( "folded", "", { "--table", "OTHER" } );
    EXPECT_EQ( run.exitCode, 0 );
    EXPECT_EQ( run.out, "" );
    EXPECT_EQ( run.err,
               "cairn-lt: no SDK calls: the traces hold none, or the filters leave none\n" );
}

TEST_F( ExportTest, WhatCannotBeMeantIsRefused ) {
    expectRefused( exported( "ctf", "" ), "--export ctf writes a directory; name it with -o" );
    expectRefused( exported( "xml", "" ),
                   "--export: there is no format \"xml\"; write ctf, chrome or folded" );
    expectRefused( exported( "chrome", "", { "--follow" } ), "--follow" );
    expectRefused( exported( "chrome", "", { "--format", "json" } ), "--format" );
    expectRefused( cairnLt( { "trace", recording(), "-o", out() } ), "--export" );
    EXPECT_EQ( names(), std::vector<std::string>() );
}

} // namespace
