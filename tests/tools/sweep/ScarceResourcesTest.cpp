#include "tests/support/ChildProcess.h"
#include "tests/tools/Program.h"

#include "interpose/Interposer.h"
#include "tools/model/ChipOptions.h"
#include "tools/sweep/SweepRunner.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

// A sweep to which the system refuses something, or that is killed.

namespace {

using ToolTest::cairnLt;
using ToolTest::lines;
using ToolTest::Outcome;

// A recipe is blamed for nothing that the system did.
void expectTrouble( const Outcome & run, const std::string & what ) {
    EXPECT_EQ( run.exitCode, 2 ) << what;
    EXPECT_EQ( run.out, "" ) << what;
    EXPECT_EQ( lines( run.err ).size(), 1u ) << what << "\n" << run.err;
    EXPECT_TRUE( run.err.starts_with( "cairn-lt: the sweep cannot " ) ) << what << "\n" << run.err;
}

TEST( ScarceResourcesTest, FewDescriptorsAreSaid ) {
    if ( ToolTest::isSanitized )
        GTEST_SKIP() << "sanitizers need more descriptors than that";
    const std::string whole = cairnLt( { "sweep", "setLearnCacheEnabled" } ).out;
    for ( rlim_t limit = 5; limit <= 16; ++limit ) {
        const Outcome run = cairnLt( { "sweep", "setLearnCacheEnabled" }, {}, [&] {
            const rlimit few{ limit, limit };
            ::setrlimit( RLIMIT_NOFILE, &few );
        } );
        const std::string what = std::to_string( limit ) + " descriptors";
        if ( run.exitCode == 0 ) {
            EXPECT_EQ( run.out, whole ) << what;
        } else {
            expectTrouble( run, what );
            EXPECT_NE( run.err.find( "Too many open files" ), std::string::npos ) << run.err;
        }
        if ( limit <= 8 ) {
            EXPECT_EQ( run.exitCode, 2 ) << what;
        }
    }
}

// From hardly enough memory to start to more than enough.
TEST( ScarceResourcesTest, LittleMemoryIsSaid ) {
    if ( ToolTest::isSanitized )
        GTEST_SKIP() << "a sanitizer's own memory is beyond the limit";
    const std::vector<std::string> command{ "sweep", "setLearnCacheEnabled" };
    const std::string whole = cairnLt( command ).out;
    unsigned refused = 0;
    bool isEnough = false;
    for ( rlim_t bytes = rlim_t( 13 ) << 20; !isEnough; bytes += bytes / 16 ) {
        const auto limitMemory = [bytes] {
            const rlimit little{ bytes, bytes };
            ::setrlimit( RLIMIT_AS, &little );
        };
        isEnough = bytes > rlim_t( 1 ) << 30;
        if ( cairnLt( { "--version" }, {}, limitMemory ).exitCode != 0 )
            continue; // the program cannot be loaded
        const Outcome run = cairnLt( command, {}, limitMemory );
        isEnough = isEnough || run.exitCode == 0;
        SCOPED_TRACE( std::to_string( bytes ) + " bytes of memory: " + run.err );
        EXPECT_EQ( run.out, isEnough ? whole : "" );
        if ( isEnough )
            continue;
        ++refused;
        EXPECT_EQ( run.exitCode, 2 );
        EXPECT_EQ( lines( run.err ).size(), 1u );
        EXPECT_TRUE( run.err.starts_with( "cairn-lt: the sweep cannot " ) ||
                     run.err == "cairn-lt: not enough memory\n" );
        EXPECT_EQ( run.err.find( "API ERROR" ), std::string::npos );
    }
    EXPECT_GT( refused, 0u );
}

// A process of a run that writes more than it may.
TEST( ScarceResourcesTest, AFileThatIsTooLargeIsSaid ) {
    const Outcome run = cairnLt( { "sweep", "setLearnCacheEnabled" }, {}, [] {
        const rlimit small{ 512, 512 };
        ::setrlimit( RLIMIT_FSIZE, &small );
    } );
    expectTrouble( run, "512 bytes" );
    EXPECT_NE( run.err.find( "File too large" ), std::string::npos ) << run.err;
}

// cairn-lt, linked with a fork() that the system refuses.
TEST( ScarceResourcesTest, NoProcessIsSaid ) {
    const Support::TemporaryFolder folder;
    const int status = Support::runInChild( [&] {
        const int err = ::open( folder.path( "err" ).c_str(), O_WRONLY | O_CREAT, 0600 );
        ::dup2( err, STDERR_FILENO );
        ::execl( CAIRN_LT_WITHOUT_FORK, "cairn-lt", "sweep", "setLearnCacheEnabled", nullptr );
        return false;
    } );
    ASSERT_TRUE( WIFEXITED( status ) );
    EXPECT_EQ( WEXITSTATUS( status ), 2 );
    EXPECT_EQ( Support::contents( folder.path( "err" ) ),
               "cairn-lt: the sweep cannot start a process: Resource temporarily unavailable\n" );
}

// --- A sweep that is killed

int hangs = -1; // written when a recipe hangs

// An SDK in which a recipe hangs for good.
struct HangingSdk final : Interpose::Interposer {
    using Interposer::Interposer;

  private:
    int operate( const Interpose::Operation & ) noexcept override {
        ::alarm( 0 );
        if ( ::write( hangs, "!", 1 ) != 1 )
            ::_exit( 1 );
        for ( ;; )
            ::pause();
    }
};

TEST( KilledSweepTest, LeavesNoProcessBehind ) {
    for ( const int signal : { SIGINT, SIGTERM, SIGKILL } ) {
        int ends[2];
        ASSERT_EQ( ::pipe2( ends, O_CLOEXEC ), 0 );
        const pid_t sweep = Support::startChild( [&] {
            ::close( ends[0] );
            hangs = ends[1];
            Tool::sweepRecipes(
                Tool::modelOf( {} ), { Tool::findRecipe( "setLearnCacheEnabled" ) },
                { .progress = {}, .around = []( Shim::Sdk & watched ) -> Shim::Sdk & {
                     static HangingSdk hanging( watched );
                     return hanging;
                 } } );
            return true;
        } );
        ::close( ends[1] );
        char byte = 0;
        EXPECT_EQ( ::read( ends[0], &byte, 1 ), 1 );
        ::kill( sweep, signal );
        const int status = Support::statusOf( sweep );
        EXPECT_TRUE( WIFSIGNALED( status ) && WTERMSIG( status ) == signal );
        // The pipe ends when no process has it any more.
        while ( ::read( ends[0], &byte, 1 ) > 0 ) {
        }
        ::close( ends[0] );
    }
}

} // namespace
