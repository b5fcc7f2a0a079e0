#include "tests/support/ChildProcess.h"
#include "tests/tools/Program.h"

#include <Fleetlog/MsgDesc.h>
#include <Fleetlog/TraceHandle.h>

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <future>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

// The binary trace of a run, and the verb that reads it.

namespace {

using Json = nlohmann::json;
using ToolTest::cairnLt;
using ToolTest::lines;
using ToolTest::linesWith;
using ToolTest::Outcome;

class TraceVerb : public ::testing::Test {
  protected:
    std::string folder() const { return temporary_.path( "trace" ); }
    std::string file( const std::string & name, const std::string & contents ) const {
        return temporary_.write( name, contents );
    }

    Outcome seeds( const std::vector<std::string> & more = {} ) const {
        std::vector<std::string> arguments{
            "run", "setLoadBalanceRandSeedCtrl", "0", "12345", "--trace-dir", folder() };
        arguments.insert( arguments.end(), more.begin(), more.end() );
        return cairnLt( arguments );
    }

    std::string onlyFile() const {
        std::vector<std::string> found;
        for ( const auto & entry : std::filesystem::directory_iterator( folder() ) )
            found.push_back( entry.path() );
        EXPECT_EQ( found.size(), 1u );
        return found.empty() ? "" : found[0];
    }

  private:
    Support::TemporaryFolder temporary_;
};

TEST_F( TraceVerb, ShowsTheMessagesOfARun ) {
    ASSERT_EQ( seeds().exitCode, 0 );
    const Outcome run = cairnLt( { "trace", folder() } );
    EXPECT_EQ( run.exitCode, 0 );
    EXPECT_EQ( run.err, "" );
    const auto shown = lines( run.out );
    ASSERT_EQ( shown.size(), 1u );
    EXPECT_TRUE( shown[0].ends_with( " setLoadBalanceRandSeedCtrl unit: 0 seed: 12345" ) );
    EXPECT_NE( shown[0].find( " Cairn/CairnLtHelper:" ), std::string::npos );
    EXPECT_TRUE( shown[0].starts_with( "20" ) ) << shown[0];
}

TEST_F( TraceVerb, JsonIsAnObjectALine ) {
    ASSERT_EQ( seeds().exitCode, 0 );
    const Json record = Json::parse( cairnLt( { "trace", folder(), "--format", "json" } ).out );
    EXPECT_EQ( record["function"], "setLoadBalanceRandSeedCtrl" );
    EXPECT_EQ( record["text"], "setLoadBalanceRandSeedCtrl unit: 0 seed: 12345" );
    EXPECT_EQ( record["values"], ( Json{ 0, 12345 } ) );
    EXPECT_EQ( record["file"], "Cairn/CairnLtHelper" );
    EXPECT_GT( record["line"], 0 );
}

TEST_F( TraceVerb, HoldsEveryMessageUpToTheStop ) {
    const Outcome stopped = seeds( { "--inject", "op=pt_entry_commit,rc=-30,at=2" } );
    EXPECT_EQ( stopped.signal, SIGABRT );
    const Outcome run = cairnLt( { "trace", folder(), "--format", "brief" } );
    EXPECT_EQ( run.exitCode, 0 );
    EXPECT_EQ( linesWith( run.out, "setLoadBalanceRandSeedCtrl unit: 0 seed: 12345" ).size(), 1u );
    EXPECT_EQ( linesWith( cairnLt( { "trace", folder(), "--info" } ).out, "closed" ),
               ( std::vector<std::string>{ "  closed              no: its process ended "
                                           "without closing it" } ) );
}

TEST_F( TraceVerb, SkipMessageFollowsTheEntryMessage ) {
    ASSERT_EQ(
        cairnLt( { "bringup", "examples/missing-seeds.toml", "--trace-dir", folder() } ).exitCode,
        0 );
    const auto shown =
        lines( cairnLt( { "trace", folder(), "--match", "skipping register" } ).out );
    ASSERT_FALSE( shown.empty() );
    EXPECT_NE( shown[0].find( " skipping register " ), std::string::npos );
}

TEST_F( TraceVerb, FiltersByRecipeSiteTextTimeAndThread ) {
    ASSERT_EQ( cairnLt( { "bringup", "examples/bringup.toml", "--trace-dir", folder() } ).exitCode,
               0 );
    const auto count = [&]( std::vector<std::string> filter ) {
        std::vector<std::string> arguments{ "trace", folder() };
        arguments.insert( arguments.end(), filter.begin(), filter.end() );
        return lines( cairnLt( arguments ).out ).size();
    };
    const std::size_t all = count( {} );
    EXPECT_GT( all, 20u );
    EXPECT_EQ( count( { "--recipe", "setEmRobustHashDisable" } ), 1u );
    const std::size_t trace = count( { "--recipe", "programMonTraceCpu" } );
    EXPECT_GE( trace, 3u );
    EXPECT_EQ( count( { "--match", "programMonTraceCpu" } ), trace );
    EXPECT_EQ( count( { "--recipe", "programMonTraceCpu", "--match", "L3_TTL_ERROR" } ), 1u );
    EXPECT_EQ( count( { "--to", "2020-01-01T00:00:00" } ), 0u );
    EXPECT_EQ( count( { "--from", "2020-01-01T00:00:00.5Z" } ), all );
    EXPECT_EQ( count( { "--thread", "4294967295" } ), 0u );
    const Json record = Json::parse(
        cairnLt( { "trace", folder(), "--recipe", "setEmRobustHashDisable", "--format", "json" } )
            .out );
    const std::string line = record["line"].dump();
    EXPECT_EQ( count( { "--site", line } ), 1u );
    EXPECT_EQ( count( { "--site", "Cairn/CairnLtHelper:" + line } ), 1u );
    EXPECT_EQ( count( { "--site", "Cairn/CairnLtHelper" } ), all );
    EXPECT_EQ( count( { "--site", "Other:" + line } ), 0u );
}

TEST_F( TraceVerb, InfoTellsVersionWriterClockBlocksAndSites ) {
    ASSERT_EQ( seeds().exitCode, 0 );
    const Outcome run = cairnLt( { "trace", folder(), "--info" } );
    for ( const char * what :
          { "format version", "program             cairn-lt, process ", "opened",
            "closed              yes", "timestamps", "ring", "records             1 in 1",
            "overwritten         about 0 records", "lost to damage      0 blocks",
            "setLoadBalanceRandSeedCtrl unit: %s seed: %s" } )
        EXPECT_EQ( linesWith( run.out, what ).size(), 1u ) << what << "\n" << run.out;
    const Json info =
        Json::parse( cairnLt( { "trace", folder(), "--info", "--format", "json" } ).out );
    ASSERT_EQ( info.size(), 1u );
    EXPECT_EQ( info[0]["records"], 1 );
    EXPECT_EQ( info[0]["sites"][0]["letters"], "ii" );
    EXPECT_EQ( info[0]["findings"], Json::array() );
}

TEST_F( TraceVerb, CheckSaysThatItFoundNoDamage ) {
    ASSERT_EQ( seeds().exitCode, 0 );
    const Outcome run = cairnLt( { "trace", folder(), "--check" } );
    EXPECT_EQ( run.exitCode, 0 );
    EXPECT_EQ( run.out, onlyFile() + ": no damage found, 1 record read\n" );
}

TEST_F( TraceVerb, DamageIsSaidAndTheRestIsRead ) {
    ASSERT_EQ( cairnLt( { "bringup", "examples/bringup.toml", "--trace-dir", folder() } ).exitCode,
               0 );
    const std::string path = onlyFile();
    const std::size_t whole = lines( cairnLt( { "trace", path } ).out ).size();
    // In the first block of the ring, behind some of its records, a few bytes are overwritten.
    const Json info =
        Json::parse( cairnLt( { "trace", path, "--info", "--format", "json" } ).out )[0];
    const auto size = std::filesystem::file_size( path );
    const auto ring = info["ringBlocks"].get<std::size_t>() * info["blockBytes"].get<std::size_t>();
    std::fstream damaged( path, std::ios::in | std::ios::out | std::ios::binary );
    damaged.seekp( static_cast<std::streamoff>( size - ring + 200 ) );
    damaged << std::string( 64, '\x5A' );
    damaged.close();
    const Outcome run = cairnLt( { "trace", path } );
    EXPECT_EQ( run.exitCode, 1 );
    EXPECT_LT( lines( run.out ).size(), whole );
    EXPECT_EQ( linesWith( run.err, path + ": at byte " ).size(), lines( run.err ).size() );
    EXPECT_GE( lines( run.err ).size(), 1u );
    const Outcome check = cairnLt( { "trace", path, "--check" } );
    EXPECT_EQ( check.exitCode, 1 );
    EXPECT_EQ( linesWith( check.out, path + ": damaged" ).size(), 1u );
}

TEST_F( TraceVerb, CutFileIsReadAsFarAsItGoes ) {
    ASSERT_EQ( seeds().exitCode, 0 );
    const std::string path = onlyFile();
    std::filesystem::resize_file( path, std::filesystem::file_size( path ) - 4096 );
    const Outcome run = cairnLt( { "trace", path } );
    EXPECT_EQ( run.exitCode, 1 );
    EXPECT_EQ( lines( run.out ).size(), 1u );
    EXPECT_EQ( linesWith( run.err, path ).size(), 1u );
}

TEST_F( TraceVerb, FollowEndsWhenTheWriterHasClosedItsFile ) {
    ASSERT_EQ( seeds().exitCode, 0 );
    const Outcome run = cairnLt( { "trace", folder(), "--follow" } );
    EXPECT_EQ( run.exitCode, 0 );
    EXPECT_EQ( lines( run.out ).size(), 1u );
}

// A process that has written a message and lives on.
class LivingWriter {
  public:
    explicit LivingWriter( const std::string & folder ) {
        std::filesystem::create_directories( folder );
        int ready[2];
        if ( ::pipe( ready ) != 0 )
            throw std::runtime_error( "pipe" );
        child_ = Support::startChild( [&] {
            Fleetlog::OpenOptions options;
            options.directory = folder;
            static Fleetlog::TraceFile file( options, 0 );
            static int msgId = 0;
            Fleetlog::MsgDesc descriptor( &file, &msgId, "living", 1 );
            descriptor << "living";
            descriptor.finish();
            file.ringBuf()->startMsg( &file, msgId );
            file.ringBuf()->endMsg();
            if ( ::write( ready[1], "r", 1 ) != 1 )
                return false;
            for ( ;; )
                ::pause();
        } );
        char byte = 0;
        if ( ::read( ready[0], &byte, 1 ) != 1 )
            throw std::runtime_error( "the writer has not started" );
        ::close( ready[0] );
        ::close( ready[1] );
    }
    ~LivingWriter() { kill(); }
    LivingWriter( const LivingWriter & ) = delete;
    LivingWriter & operator=( const LivingWriter & ) = delete;

    void kill() {
        if ( child_ == 0 )
            return;
        ::kill( child_, SIGKILL );
        Support::statusOf( child_ );
        child_ = 0;
    }

  private:
    pid_t child_ = 0;
};

// cairn-lt trace --follow, while the test goes on.
class Following {
  public:
    Following( const std::string & what, const std::string & wait )
        : out_( temporary_.path( "out" ) ), run_( std::async( std::launch::async, [=, this] {
              return cairnLt( { "trace", what, "--follow", "--format", "brief", "--wait", wait },
                              out_ );
          } ) ) {}

    // Waits until so many lines with this text were shown; false if it ends before.
    bool shows( const std::string & part, std::size_t count = 1 ) {
        for ( ;; ) {
            const bool isEnded =
                run_.wait_for( std::chrono::milliseconds( 5 ) ) == std::future_status::ready;
            if ( linesWith( Support::contents( out_ ), part ).size() >= count )
                return true;
            if ( isEnded )
                return false;
        }
    }

    Outcome end() { return run_.get(); }

  private:
    Support::TemporaryFolder temporary_;
    std::string out_;
    std::future<Outcome> run_;
};

TEST_F( TraceVerb, FollowEndsAndSaysSoWhenItsWriterIsKilled ) {
    LivingWriter writer( folder() );
    const std::string path = onlyFile();
    for ( const auto & what : { path, folder() } ) {
        Following following( what, "0" );
        EXPECT_TRUE( following.shows( "living" ) );
        writer.kill(); // in the second round it is dead already
        const Outcome run = following.end();
        EXPECT_EQ( run.exitCode, 0 );
        EXPECT_EQ( run.err, "cairn-lt: " + path + ": its process ended without closing it\n" );
    }
}

TEST_F( TraceVerb, FollowShowsFilesThatAreMadeMeanwhile ) {
    LivingWriter writer( folder() );
    Following following( folder(), "0" );
    EXPECT_TRUE( following.shows( "living" ) );
    for ( std::size_t i = 1; i <= 2; ++i ) {
        ASSERT_EQ( seeds().exitCode, 0 );
        EXPECT_TRUE( following.shows( "setLoadBalanceRandSeedCtrl", i ) );
    }
    LivingWriter other( folder() );
    EXPECT_TRUE( following.shows( "living", 2 ) );
    writer.kill();
    other.kill();
    EXPECT_EQ( following.end().exitCode, 0 );
}

TEST_F( TraceVerb, FollowWaitsInAFolderForAProcessThatIsStartedAnew ) {
    { LivingWriter killed( folder() ); }
    Following following( folder(), "3" );
    EXPECT_TRUE( following.shows( "living" ) );
    ASSERT_EQ( seeds().exitCode, 0 );
    EXPECT_TRUE( following.shows( "setLoadBalanceRandSeedCtrl" ) );
    EXPECT_EQ( following.end().exitCode, 0 );
}

TEST_F( TraceVerb, FollowSaysThatAFileWasCutUnderIt ) {
    LivingWriter writer( folder() );
    const std::string path = onlyFile();
    Following following( folder(), "0" );
    EXPECT_TRUE( following.shows( "living" ) );
    std::filesystem::resize_file( path, 4096 );
    const Outcome run = following.end();
    EXPECT_EQ( run.exitCode, 1 );
    EXPECT_NE( run.err.find( path + ": at byte 4096: the file was cut here" ), std::string::npos )
        << run.err;
}

TEST_F( TraceVerb, BadFilesHideNoOtherAndAreSaidWithExitCodeOne ) {
    ASSERT_EQ( seeds().exitCode, 0 );
    const std::string empty = folder() + "/empty.fleetlog";
    const std::string zeros = folder() + "/zeros.fleetlog";
    std::ofstream( empty ).close();
    std::ofstream( zeros ) << std::string( 5000, '\0' );
    ASSERT_EQ( ::mkfifo( ( folder() + "/fifo.fleetlog" ).c_str(), 0600 ), 0 );
    const Outcome run = cairnLt( { "trace", folder() } );
    EXPECT_EQ( run.exitCode, 1 );
    EXPECT_EQ( lines( run.out ).size(), 1u );
    EXPECT_EQ( lines( run.err ).size(), 3u ) << run.err;
    EXPECT_EQ( linesWith( run.err, empty + ": is empty" ).size(), 1u );
    EXPECT_EQ( linesWith( run.err, zeros + ": begins with zeros" ).size(), 1u );
    for ( const char * what : { "--info", "--check" } ) {
        const Outcome all = cairnLt( { "trace", folder(), what } );
        EXPECT_EQ( all.exitCode, 1 );
        EXPECT_EQ( lines( all.err ).size(), 3u ) << all.err;
        EXPECT_NE( all.out, "" );
    }
    const Json info =
        Json::parse( cairnLt( { "trace", folder(), "--info", "--format", "json" } ).out );
    ASSERT_EQ( info.size(), 4u );
    EXPECT_EQ( info[1]["path"], empty );
    EXPECT_EQ( info[1]["findings"][0]["damage"], true );

    // What was named and cannot be read: the others are shown; if there is none, it is trouble.
    EXPECT_EQ( cairnLt( { "trace", empty, zeros } ).exitCode, 2 );
    EXPECT_EQ( cairnLt( { "trace", folder() + "/none.fleetlog", empty } ).exitCode, 2 );
}

TEST_F( TraceVerb, FileThatIsReachedByTwoPathsIsShownOnce ) {
    ASSERT_EQ( seeds().exitCode, 0 );
    const std::string link = file( "link", "" );
    std::filesystem::remove( link );
    std::filesystem::create_directory_symlink( folder(), link );
    const Outcome run = cairnLt( { "trace", folder(), onlyFile(), link, folder() + "/." } );
    EXPECT_EQ( run.exitCode, 0 );
    EXPECT_EQ( lines( run.out ).size(), 1u );
}

TEST_F( TraceVerb, TimesBeyondThoseOfRecordsAreBeforeOrAfterAllOfThem ) {
    ASSERT_EQ( seeds().exitCode, 0 );
    const auto count = [&]( const char * option, const char * time ) {
        return lines( cairnLt( { "trace", folder(), option, time } ).out ).size();
    };
    EXPECT_EQ( count( "--from", "9999-01-01T00:00:00" ), 0u );
    EXPECT_EQ( count( "--to", "9999-01-01T00:00:00" ), 1u );
    EXPECT_EQ( count( "--from", "2300-01-01T00:00:00" ), 0u );
    EXPECT_EQ( count( "--to", "2300-01-01T00:00:00" ), 1u );
    EXPECT_EQ( count( "--from", "0001-01-01T00:00:00" ), 1u );
    EXPECT_EQ( count( "--to", "1600-01-01T00:00:00" ), 0u );
    EXPECT_EQ( count( "--from", "1969-12-31T23:59:59.999999999Z" ), 1u );
    EXPECT_EQ( count( "--to", "2024-02-29T23:59:59" ), 0u );
}

TEST_F( TraceVerb, WhatAFileSaysReachesTheTerminalEscaped ) {
    std::filesystem::create_directory( folder() );
    const char name[] = "a\x1b[31m\xff";
    char * const before = program_invocation_short_name;
    program_invocation_short_name = const_cast<char *>( name );
    {
        Fleetlog::OpenOptions options;
        options.directory = folder();
        Fleetlog::TraceFile file( options, 0 );
        program_invocation_short_name = before;
        int msgId = 0;
        Fleetlog::MsgDesc descriptor( &file, &msgId, "so\x1b[2Jurce", 1 );
        descriptor.formatString().put( "i" );
        descriptor << "f\x1b]0;title\x07\xc2\x9b"
                   << "%s\xff";
        descriptor.finish();
        file.ringBuf()->startMsg( &file, msgId );
        file.ringBuf()->endMsg(); // without its value: it does not fit
    }
    for ( const std::vector<std::string> & arguments :
          { std::vector<std::string>{ "trace", folder() },
            { "trace", folder(), "--info" },
            { "trace", folder(), "--check" },
            { "trace", folder(), "--info", "--format", "json" },
            { "trace", folder(), "--format", "json" } } ) {
        const Outcome run = cairnLt( arguments );
        EXPECT_EQ( run.exitCode, 1 );
        for ( const char control : { '\x1b', '\x07', '\x9b', '\xff' } )
            EXPECT_EQ( ( run.out + run.err ).find( control ), std::string::npos ) << run.out;
    }
    const Outcome info = cairnLt( { "trace", folder(), "--info" } );
    EXPECT_NE( info.out.find( "a\\x1b[31m\\xff, process " ), std::string::npos ) << info.out;
    EXPECT_TRUE(
        Json::accept( cairnLt( { "trace", folder(), "--info", "--format", "json" } ).out ) );
}

// What a run of the tool took at most, in kilobytes.
long memoryOf( const std::vector<std::string> & arguments ) {
    int result[2];
    if ( ::pipe( result ) != 0 )
        throw std::runtime_error( "pipe" );
    Support::runInChild( [&] { // which has no other child
        rusage usage{};
        // The address sanitizer would keep what is freed.
        ::setenv( "ASAN_OPTIONS", "quarantine_size_mb=0", 1 );
        return cairnLt( arguments ).signal == 0 && ::getrusage( RUSAGE_CHILDREN, &usage ) == 0 &&
               ::write( result[1], &usage.ru_maxrss, sizeof usage.ru_maxrss ) ==
                   sizeof usage.ru_maxrss;
    } );
    ::close( result[1] );
    long most = 0;
    if ( ::read( result[0], &most, sizeof most ) != sizeof most )
        throw std::runtime_error( "the run has not ended" );
    ::close( result[0] );
    return most;
}

TEST_F( TraceVerb, InfoAndCheckOfManySitesTakeLittleMoreMemoryThanReadingThem ) {
    std::filesystem::create_directory( folder() );
    {
        Fleetlog::OpenOptions options;
        options.directory = folder();
        options.descriptorBytes = std::size_t( 8 ) << 20;
        Fleetlog::TraceFile file( options, 0 );
        std::vector<int> ids( 150'000 );
        for ( int & msgId : ids )
            Fleetlog::MsgDesc( &file, &msgId, "file", 1 ).finish();
    }
    const std::string path = onlyFile();
    const long reading = memoryOf( { "trace", path } );
    for ( const char * option : { "--info", "--check" } )
        for ( const char * format : { "text", "json" } )
            EXPECT_LT( memoryOf( { "trace", path, option, "--format", format } ), 2 * reading )
                << option << " " << format;
}

TEST_F( TraceVerb, FilesOfSeveralRunsAreMergedByTime ) {
    ASSERT_EQ( seeds().exitCode, 0 );
    ASSERT_EQ(
        cairnLt( { "run", "setEmRobustHashDisable", "0", "--trace-dir", folder() } ).exitCode, 0 );
    const auto shown = lines( cairnLt( { "trace", folder() } ).out );
    ASSERT_EQ( shown.size(), 2u );
    EXPECT_NE( shown[0].find( "setLoadBalanceRandSeedCtrl" ), std::string::npos );
    EXPECT_NE( shown[1].find( "setEmRobustHashDisable" ), std::string::npos );
}

TEST_F( TraceVerb, BadInputIsOneLineAndExitCodeTwo ) {
    ASSERT_EQ( seeds().exitCode, 0 );
    struct Case {
        std::vector<std::string> arguments;
        std::string part;
    };
    const std::string notATrace = file( "notes.fleetlog", "these are notes\n" );
    for ( const Case & bad : {
              Case{ { "trace" }, "paths is required" },
              Case{ { "trace", "/nonexistent/trace" }, "/nonexistent/trace" },
              Case{ { "trace", notATrace }, notATrace },
              Case{ { "trace", folder(), "--recipe", "setEmRobustHash" },
                    "setEmRobustHashDisable" },
              Case{ { "trace", folder(), "--from", "yesterday" },
                    "\"yesterday\" is not a time in UTC" },
              Case{ { "trace", folder(), "--to", "2026-03-01T07:30:00x" }, "is not a time in UTC" },
              Case{ { "trace", folder(), "--to", "2026-02-31T00:00:00" }, "is not a time in UTC" },
              Case{ { "trace", folder(), "--to", "2026-02-01T24:00:00" }, "is not a time in UTC" },
              Case{ { "trace", folder(), "--to", "2026-2-1T00:00:00" }, "is not a time in UTC" },
              Case{ { "trace", folder(), "--from", "2026-02-01T00:00:00." }, "is not a time" },
              Case{ { "trace", folder(), "--wait", "3" }, "--follow" },
              Case{ { "trace", folder(), "--site", "a:b" }, "\"a:b\" is not FILE:LINE" },
              Case{ { "trace", folder(), "--format", "xml" }, "--format" },
              Case{ { "trace", folder(), "--info", "--check" }, "--check" },
              Case{ { "run", "setEmRobustHashDisable", "0", "--trace-dir", "/proc/none" },
                    "--trace-dir" },
          } ) {
        const Outcome run = cairnLt( bad.arguments );
        EXPECT_EQ( run.exitCode, 2 ) << bad.part;
        EXPECT_EQ( lines( run.err ).size(), 1u ) << run.err;
        EXPECT_NE( run.err.find( bad.part ), std::string::npos ) << run.err;
        EXPECT_EQ( run.out, "" );
    }
}

TEST_F( TraceVerb, BringUpThatIsKilledLeavesWhatItHadSaid ) {
    std::size_t most = 0;
    constexpr int rounds = 14;
    for ( int round = 0; round < rounds; ++round ) {
        std::filesystem::remove_all( folder() );
        const pid_t child = Support::startChild( [&] {
            const int null = ::open( "/dev/null", O_WRONLY );
            ::dup2( null, STDOUT_FILENO );
            if ( ::chdir( SOURCE_TREE ) == 0 )
                ::execl( CAIRN_LT, "cairn-lt", "bringup", "examples/bringup.toml", "--trace-dir",
                         folder().c_str(), nullptr );
            return false;
        } );
        while ( !std::filesystem::exists( folder() ) || std::filesystem::is_empty( folder() ) )
            ::usleep( 100 );
        // The file is there; how far the bring-up gets is chance, but for the last round, which is
        // left alone.
        if ( round < rounds - 1 ) {
            ::usleep( static_cast<useconds_t>( 2000 << ( round / 2 ) ) );
            ::kill( child, SIGKILL );
        }
        Support::statusOf( child );
        const Outcome run = cairnLt( { "trace", folder() } );
        if ( run.exitCode == 2 ) { // killed before the file was made
            EXPECT_NE( run.err.find( "no trace files" ), std::string::npos ) << run.err;
            continue;
        }
        EXPECT_EQ( run.exitCode, 0 ) << run.err;
        EXPECT_EQ( run.err, "" );
        most = std::max( most, lines( run.out ).size() );
    }
    EXPECT_GT( most, 0u );
}

} // namespace
