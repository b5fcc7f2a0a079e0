#include "tools/model/StateFile.h"

#include "tests/tools/Program.h"
#include "tools/model/Errors.h"
#include "tools/model/Files.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <string>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

// The file behind --state: what becomes of it when others want it, when it cannot be written, and
// when the process is killed.

namespace {

using Json = nlohmann::json;
using ToolTest::cairnLt;
using ToolTest::Outcome;
using ToolTest::StartedProgram;

std::vector<std::string> setEcn( const std::string & state, int index = 5 ) {
    return { "run", "setEgrTunnelEcnEncap", "0", std::to_string( index ), "2", "--state", state };
}

mode_t modeOf( const std::string & path ) {
    struct stat status {};
    EXPECT_EQ( ::lstat( path.c_str(), &status ), 0 ) << path;
    return status.st_mode;
}

class StateFileTest : public ::testing::Test {
  protected:
    std::string state() const { return folder_.path( "chip.json" ); }

    // How many rows the file holds of the table that setEcn() writes.
    std::size_t rows() const {
        const Json json = Json::parse(
            cairnLt( { "dump", "--state", state(), "--format", "json", "EGR_TUNNEL_ECN_ENCAPm" } )
                .out,
            nullptr, false );
        return json.is_discarded() ? 0 : json["units"][0]["tables"][0]["rows"].size();
    }

    std::vector<std::string> files() const {
        std::vector<std::string> names;
        for ( const auto & entry : std::filesystem::directory_iterator( folder_.path() ) )
            names.push_back( entry.path().filename() );
        std::sort( names.begin(), names.end() );
        return names;
    }

    const std::vector<std::string> onlyState_{ "chip.json" };
    Support::TemporaryFolder folder_;
};

TEST_F( StateFileTest, IsReplacedAsAWholeAndNothingElseIsLeft ) {
    EXPECT_EQ( cairnLt( setEcn( state() ) ).exitCode, 0 );
    const int before = ::open( state().c_str(), O_RDONLY );
    const std::string contents = Support::contents( state() );
    EXPECT_EQ( cairnLt( setEcn( state(), 6 ) ).exitCode, 0 );
    EXPECT_EQ( rows(), 2u );
    // Who has opened the old file still reads that.
    std::string old( contents.size(), '\0' );
    EXPECT_EQ( ::pread( before, old.data(), old.size(), 0 ), ssize_t( contents.size() ) );
    EXPECT_EQ( old, contents );
    ::close( before );
    EXPECT_EQ( files(), onlyState_ );
}

TEST_F( StateFileTest, KeepsItsMode ) {
    for ( const mode_t mode : { 0600u, 0640u, 0664u } ) {
        EXPECT_EQ( cairnLt( setEcn( state() ) ).exitCode, 0 );
        ASSERT_EQ( ::chmod( state().c_str(), mode ), 0 );
        EXPECT_EQ( cairnLt( setEcn( state() ) ).exitCode, 0 );
        EXPECT_EQ( modeOf( state() ) & 0777, mode );
    }
}

TEST_F( StateFileTest, ANewOneHasTheModeOfTheUsersMask ) {
    EXPECT_EQ( cairnLt( setEcn( state() ), {}, [] { ::umask( 027 ); } ).exitCode, 0 );
    EXPECT_EQ( modeOf( state() ) & 0777, 0640u );
}

TEST_F( StateFileTest, IsWrittenThroughLinks ) {
    const Support::TemporaryFolder other;
    const std::string link = other.path( "link.json" );
    const std::string linkToLink = other.path( "link2.json" );
    std::filesystem::create_symlink( state(), link ); // leads to no file yet
    std::filesystem::create_symlink( "link.json", linkToLink );
    EXPECT_EQ( cairnLt( setEcn( linkToLink ) ).exitCode, 0 );
    EXPECT_EQ( cairnLt( setEcn( linkToLink, 6 ) ).exitCode, 0 );
    EXPECT_TRUE( std::filesystem::is_symlink( link ) );
    EXPECT_TRUE( std::filesystem::is_symlink( linkToLink ) );
    EXPECT_TRUE( S_ISREG( modeOf( state() ) ) );
    EXPECT_EQ( rows(), 2u );
    EXPECT_EQ( files(), onlyState_ );
}

TEST_F( StateFileTest, LinksInACircleAreRefused ) {
    const std::string link = folder_.path( "link.json" );
    std::filesystem::create_symlink( "link.json", link );
    const Outcome run = cairnLt( setEcn( link ) );
    EXPECT_EQ( run.exitCode, 2 );
    EXPECT_EQ( run.err,
               "cairn-lt: " + link + ": cannot be read: Too many levels of symbolic links\n" );
}

TEST_F( StateFileTest, IsARegularFile ) {
    const std::string pipe = folder_.path( "pipe" );
    ASSERT_EQ( ::mkfifo( pipe.c_str(), 0600 ), 0 );
    for ( const std::string & path : { pipe, folder_.path(), std::string( "/dev/null" ) } ) {
        const mode_t before = modeOf( path );
        const Outcome run = cairnLt( setEcn( path ) );
        EXPECT_EQ( run.exitCode, 2 );
        EXPECT_EQ( run.err,
                   "cairn-lt: " + path + ": is no regular file; name another state file\n" );
        EXPECT_EQ( modeOf( path ), before );
    }
}

TEST_F( StateFileTest, WritesThroughNoLinkThatSomebodyPlanted ) {
    const std::string victim = folder_.write( "victim", "precious" );
    const auto plant = [&] {
        // The names that can be guessed.
        const std::string process = std::to_string( ::getpid() );
        for ( const std::string & name : std::vector<std::string>{
                  "chip.json." + process + ".tmp", "chip.json.tmp", "." + process + ".tmp",
                  ".chip.json." + process + ".tmp", ".chip.json.tmp" } )
            std::filesystem::create_symlink( victim, folder_.path( name ) );
    };
    EXPECT_EQ( cairnLt( setEcn( state() ), {}, plant ).exitCode, 0 );
    EXPECT_EQ( Support::contents( victim ), "precious" );
    EXPECT_EQ( rows(), 1u );
}

TEST_F( StateFileTest, LocksThroughNoLinkThatSomebodyPlanted ) {
    std::filesystem::create_symlink( folder_.path( "victim" ), folder_.path( ".chip.json.lock" ) );
    const Outcome run = cairnLt( setEcn( state() ) );
    EXPECT_EQ( run.exitCode, 2 );
    EXPECT_EQ( run.err, "cairn-lt: " + state() +
                            ": cannot be written: Too many levels of symbolic links\n" );
    EXPECT_FALSE( std::filesystem::exists( folder_.path( "victim" ) ) );
}

TEST_F( StateFileTest, NothingIsLostBetweenProcesses ) {
    std::vector<std::unique_ptr<StartedProgram>> running;
    constexpr int count = 12;
    for ( int i = 0; i < count; ++i )
        running.push_back( std::make_unique<StartedProgram>( setEcn( state(), i ) ) );
    for ( const auto & program : running )
        EXPECT_EQ( program->wait().exitCode, 0 );
    EXPECT_EQ( rows(), unsigned( count ) );
    EXPECT_EQ( files(), onlyState_ );
}

TEST_F( StateFileTest, WaitsForTheProcessThatUsesItAndSaysSo ) {
    auto used = std::make_unique<Tool::StateFile>( state(), [] { FAIL(); } );
    StartedProgram second( setEcn( state() ) );
    EXPECT_TRUE( second.says( "waiting for " + state() + ", which another process uses" ) );
    EXPECT_FALSE( second.hasEnded() );
    Sim::Chip chip;
    chip.addUnit( 0, Sim::referenceSchema() );
    used->save( chip );
    used.reset();
    EXPECT_EQ( second.wait().exitCode, 0 );
    EXPECT_EQ( rows(), 1u );
    EXPECT_EQ( files(), onlyState_ );
}

TEST_F( StateFileTest, MayBeReadWhileItIsUsed ) {
    EXPECT_EQ( cairnLt( setEcn( state() ) ).exitCode, 0 );
    const Tool::StateFile used( state(), [] { FAIL(); } );
    EXPECT_EQ( rows(), 1u );
    EXPECT_EQ( cairnLt( { "explain", "setEgrTunnelEcnEncap", "0", "5", "2", "--state", state() } )
                   .exitCode,
               0 );
}

TEST_F( StateFileTest, WhatAKilledProcessLeavesIsRemoved ) {
    const std::string leftover = ".chip.json.0123456789abcdef0123456789abcdef.tmp";
    folder_.write( leftover, "{" );
    folder_.write( ".chip.json.lock", "" );
    const std::vector<std::string> others = { ".chip.json.0123456789abcdef0123456789abcdeg.tmp",
                                              ".chip.json.old.tmp",
                                              ".other.json.0123456789abcdef0123456789abcdef.tmp" };
    for ( const std::string & name : others )
        folder_.write( name, "" );
    EXPECT_EQ( cairnLt( setEcn( state() ) ).exitCode, 0 );
    std::vector<std::string> expected = others;
    expected.emplace_back( "chip.json" );
    EXPECT_EQ( files(), expected );
}

// Kills a process while it writes, as far as that can be seen from outside.
TEST_F( StateFileTest, KillsLeaveAFileThatCanBeRead ) {
    EXPECT_EQ( cairnLt( setEcn( state(), 0 ) ).exitCode, 0 );
    const auto isWriting = [&] {
        for ( const std::string & name : files() ) {
            if ( name.ends_with( ".tmp" ) )
                return true;
        }
        return false;
    };
    constexpr int kills = 20;
    for ( int i = 1; i <= kills; ++i ) {
        StartedProgram program( setEcn( state(), i ) );
        while ( !program.hasEnded() && !isWriting() ) {
        }
        ::kill( program.process(), SIGKILL );
        program.wait();
        EXPECT_GE( rows(), 1u ) << i;
    }
    EXPECT_EQ( cairnLt( setEcn( state(), 99 ) ).exitCode, 0 );
    EXPECT_EQ( files(), onlyState_ );
}

TEST_F( StateFileTest, ALimitOfFileSizesIsTroubleAndTheOldStateIsKept ) {
    EXPECT_EQ( cairnLt( setEcn( state() ) ).exitCode, 0 );
    const std::string before = Support::contents( state() );
    const Outcome run = cairnLt( setEcn( state(), 6 ), {}, [] {
        const rlimit limit{ 4096, 4096 };
        ::setrlimit( RLIMIT_FSIZE, &limit );
        std::signal( SIGXFSZ, SIG_DFL );
    } );
    EXPECT_EQ( run.exitCode, 2 );
    EXPECT_EQ( run.err, "cairn-lt: " + state() + ": cannot be written: File too large\n" );
    EXPECT_EQ( Support::contents( state() ), before );
    EXPECT_EQ( files(), onlyState_ );
}

TEST_F( StateFileTest, AFolderThatIsNotThereIsSaidBeforeAnythingIsProgrammed ) {
    const std::string path = folder_.path( "no/chip.json" );
    std::vector<std::string> command = setEcn( path );
    command.emplace_back( "--record" );
    const Outcome run = cairnLt( command );
    EXPECT_EQ( run.exitCode, 2 );
    EXPECT_EQ( run.out, "" );
    EXPECT_EQ( run.err, "cairn-lt: " + path + ": cannot be written: No such file or directory\n" );
}

} // namespace
