#include "Cairn/internal/GuardedCall.h"

#include "interpose/Interposer.h"
#include "sim/Chip.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <iostream>
#include <regex>
#include <streambuf>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

// The stop in every state that an agent may leave its process in. Each runs in a process of its own:
// the report, then the failure hook, then SIGABRT.

namespace StopTest {

using namespace Cairn;

void commit( std::uint32_t handle ) noexcept {
    CAIRN_RECIPE( "void StopTest::commit(uint32_t)" );
    CAIRN_CALL( bcmlt_entry_commit( handle, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ) );
}

void assertHandle( std::uint32_t ent_hdl ) noexcept {
    CAIRN_RECIPE( "void StopTest::assertHandle(uint32_t)" );
    CAIRN_ASSERT( ent_hdl != BCMLT_INVALID_HDL );
}

/// What an agent may put behind std::cerr.
class AgentsBuffer final : public std::streambuf {
  protected:
    std::streamsize xsputn( const char * text, std::streamsize length ) override {
        const auto whole = "agent: " + std::string( text, static_cast<std::size_t>( length ) );
        return ::write( STDERR_FILENO, whole.data(), whole.size() ) < 0 ? 0 : length;
    }
};
AgentsBuffer agentsBuffer;

/// Leaves std::cerr in a state in which it throws.
void throwOn( std::ios_base::iostate state ) {
    std::cerr.clear();
    try {
        std::cerr.exceptions( state );
        std::cerr.setstate( state );
    } catch ( const std::ios_base::failure & ) {
    }
}

/// Every commit fails. The hook says through a pipe that it was called.
class FailingSdk final : public Interpose::Interposer {
  public:
    explicit FailingSdk( Shim::Sdk & chip ) : Interposer( chip ) {}

    int bcmlt_entry_commit( std::uint32_t, std::uint32_t, std::uint32_t ) noexcept override {
        return -255;
    }
    std::uint32_t BCMLT_INVALID_HDL() noexcept override { return 77; }
    const char * errmsg( int ) noexcept override { return errorText; }
    void failureHook() noexcept override {
        say( 'h' );
        if ( inHook )
            inHook();
    }
    void say( char what ) const noexcept {
        [[maybe_unused]] const auto written = ::write( pipe[1], &what, 1 );
    }

    const char * errorText = "no such luck";
    std::function<void()> inHook;
    int pipe[2];
};

class StopDeathTest : public ::testing::Test {
  protected:
    /// Runs `recipe` in a child whose standard error is `standardError`, after `prepare`. Wants
    /// SIGABRT, and returns what the hook has said.
    std::string stop(
        int standardError, const std::function<void()> & prepare,
        const std::function<void()> & recipe = [] { commit( 9 ); } ) {
        if ( ::pipe( sdk_.pipe ) != 0 )
            std::abort();
        const int status = Support::runInChild( [&] {
            std::signal( SIGPIPE, SIG_DFL );
            ::dup2( standardError, STDERR_FILENO );
            Shim::sdk_ = &sdk_;
            Kiln::activityLock().lock();
            prepare();
            recipe();
            return true;
        } );
        ::close( sdk_.pipe[1] );
        ::close( standardError );
        EXPECT_TRUE( WIFSIGNALED( status ) );
        EXPECT_EQ( WTERMSIG( status ), SIGABRT );
        std::string said( 16, '\0' );
        said.resize( static_cast<std::size_t>(
            std::max<ssize_t>( 0, ::read( sdk_.pipe[0], said.data(), said.size() ) ) ) );
        ::close( sdk_.pipe[0] );
        return said;
    }

    static std::string withoutLines( const std::string & text ) {
        return std::regex_replace( text, std::regex( "CairnLtHelper:[1-9][0-9]*" ),
                                   "CairnLtHelper:LINE" );
    }

    /// The same, with a file: returns what was written to standard error.
    std::string reportAfter( const std::function<void()> & prepare ) {
        const std::string path = folder_.write( "stderr", "" );
        EXPECT_EQ( stop( ::open( path.c_str(), O_WRONLY ), prepare ), "h" );
        return withoutLines( Support::contents( path ) );
    }

    static std::string report( const std::string & errorText ) {
        return "Cairn/CairnLtHelper:LINE bcmlt_entry_commit( handle, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ) "
               "API ERROR:" +
               errorText + " (-255)\n";
    }
    static std::string report() { return report( "no such luck" ); }
    static std::string assertion() {
        return std::string( ::program_invocation_short_name ) +
               ": Cairn/CairnLtHelper:LINE: void StopTest::commit(uint32_t): Assertion `0' failed.\n";
    }

    static int closedPipe() {
        int ends[2];
        if ( ::pipe( ends ) != 0 )
            std::abort();
        ::close( ends[0] );
        return ends[1];
    }

    Sim::Chip chip_;
    FailingSdk sdk_{ chip_ };
    Support::TemporaryFolder folder_;
};

TEST_F( StopDeathTest, ErrorTextThatIsNullHasATextInItsPlace ) {
    EXPECT_EQ( reportAfter( [this] { sdk_.errorText = nullptr; } ),
               report( "(no error text)" ) + assertion() );
}

TEST_F( StopDeathTest, StreamThatHasFailedIsClearedFirst ) {
    EXPECT_EQ( reportAfter( [] {
                   std::cerr.rdbuf( &agentsBuffer );
                   std::cerr.setstate( std::ios_base::badbit | std::ios_base::failbit );
               } ),
               "agent: " + report() + assertion() );
}

TEST_F( StopDeathTest, StreamWithBaseAndWidthSetPrintsTheReportAsEver ) {
    EXPECT_EQ( reportAfter( [] {
                   std::cerr << std::hex << std::showbase;
                   std::cerr.fill( '*' );
                   std::cerr.width( 300 );
               } ),
               report() + assertion() );
}

TEST_F( StopDeathTest, StreamThatThrowsIsMadeNotTo ) {
    EXPECT_EQ( reportAfter( [] {
                   std::cerr.rdbuf( &agentsBuffer );
                   std::cerr.exceptions( std::ios_base::badbit | std::ios_base::failbit );
               } ),
               "agent: " + report() + assertion() );
    EXPECT_EQ( reportAfter( [] {
                   std::cerr.rdbuf( &agentsBuffer );
                   throwOn( std::ios_base::failbit );
               } ),
               "agent: " + report() + assertion() );
}

TEST_F( StopDeathTest, StreamWithNothingBehindItIsPassedBy ) {
    EXPECT_EQ( reportAfter( [] { std::cerr.rdbuf( nullptr ); } ), report() + assertion() );
    EXPECT_EQ( reportAfter( [] {
                   std::cerr.rdbuf( nullptr );
                   throwOn( std::ios_base::badbit );
               } ),
               report() + assertion() );
}

TEST_F( StopDeathTest, TiedStreamThatThrowsDoesNotKeepTheReportBack ) {
    struct Throwing : std::streambuf {
        int sync() override { throw 1; }
    };
    EXPECT_EQ( reportAfter( [] {
                   auto & tied = *new std::ostream( new Throwing );
                   tied.exceptions( std::ios_base::badbit );
                   std::cerr.tie( &tied );
               } ),
               report() + assertion() );
}

TEST_F( StopDeathTest, ReportAndItsLineEndAreOneWrite ) {
    // Each write to a socket of this kind is a packet of its own.
    int ends[2];
    ASSERT_EQ( ::socketpair( AF_UNIX, SOCK_SEQPACKET, 0, ends ), 0 );
    EXPECT_EQ( stop( ends[1], [] {} ), "h" );
    std::string packet( 1000, '\0' );
    const auto length = ::recv( ends[0], packet.data(), packet.size(), 0 );
    ASSERT_GT( length, 0 );
    packet.resize( static_cast<std::size_t>( length ) );
    EXPECT_EQ( withoutLines( packet ), report() );
    ::close( ends[0] );
}

TEST_F( StopDeathTest, PipeThatNobodyReadsEndsTheProcessAfterTheHook ) {
    EXPECT_EQ( stop( closedPipe(), [] {} ), "h" );
}

TEST_F( StopDeathTest, HookMayWriteToThePipeThatNobodyReads ) {
    EXPECT_EQ( stop( closedPipe(),
                     [this] {
                         sdk_.inHook = [this] {
                             std::cerr << "last snapshot" << std::endl;
                             sdk_.say( 'w' );
                         };
                     } ),
               "hw" );
}

TEST_F( StopDeathTest, SignalsOfOtherThreadsAndTheirHandlingStayAsTheyAre ) {
    EXPECT_EQ( stop( closedPipe(),
                     [this] {
                         static std::atomic<int> step{ 0 };
                         static std::thread other( [this] {
                             step.wait( 0 );
                             sigset_t mask;
                             pthread_sigmask( SIG_BLOCK, nullptr, &mask );
                             sdk_.say( sigismember( &mask, SIGPIPE ) ? 'B' : 'b' );
                             step = 2;
                             step.notify_all();
                         } );
                         sdk_.inHook = [this] {
                             struct sigaction now;
                             ::sigaction( SIGPIPE, nullptr, &now );
                             sdk_.say( now.sa_handler == SIG_DFL ? 'd' : 'D' );
                             step = 1;
                             step.notify_all();
                             step.wait( 1 );
                         };
                     } ),
               "hdb" );
}

TEST_F( StopDeathTest, AssertionStopOnAPipeThatNobodyReadsEndsBySigabrt ) {
    EXPECT_EQ( stop(
                   closedPipe(), [] {}, [] { assertHandle( 77 ); } ),
               "" );
}

TEST_F( StopDeathTest, FullDiskEndsTheProcessAfterTheHook ) {
    for ( const bool throws : { false, true } ) {
        EXPECT_EQ( stop( ::open( "/dev/full", O_WRONLY ),
                         [=] {
                             if ( throws )
                                 std::cerr.exceptions( std::ios_base::badbit );
                         } ),
                   "h" );
    }
}

TEST_F( StopDeathTest, LimitOfTheFilesSizeEndsTheProcessAfterTheHook ) {
    const std::string path = folder_.write( "limited", "" );
    EXPECT_EQ( stop( ::open( path.c_str(), O_WRONLY ),
                     [] {
                         const rlimit none{ 0, 0 };
                         ::setrlimit( RLIMIT_FSIZE, &none );
                     } ),
               "h" );
}

TEST_F( StopDeathTest, StandardErrorThatIsClosedEndsTheProcessAfterTheHook ) {
    EXPECT_EQ( stop( ::open( "/dev/null", O_WRONLY ), [] { ::close( STDERR_FILENO ); } ), "h" );
}

} // namespace StopTest
