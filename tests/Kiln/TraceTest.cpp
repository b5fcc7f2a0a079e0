#include "tests/support/Allocations.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

#include <Fleetlog/internal/Report.h>
#include <Kiln/ActivityLock.h>
#include <Kiln/TraceHandle.h>
#include <Kiln/TraceHelper.h>
#include <Kiln/TraceSink.h>
#include <Nacre/DebugAssert.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <limits>
#include <locale>
#include <sstream>
#include <sys/resource.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Kiln::TraceFacility;
using Kiln::TraceHandle;
using Kiln::TraceHelper;

class TraceTest : public ::testing::Test {
  protected:
    ~TraceTest() override {
        Kiln::traceToStandardError();
        Kiln::traceOff();
    }

    static void set( const char * text ) {
        std::string error;
        const auto settings = Kiln::parseTraceSettings( text, error );
        ASSERT_EQ( error, "" );
        Kiln::traceSettings( settings );
    }

    static void write( TraceHandle & handle, const std::string & text ) {
        TraceHelper line( handle, TraceFacility::level4, "dir/File", 12, "function" );
        line.stream() << text;
    }
};

using TraceDeathTest = TraceTest;

TEST_F( TraceTest, HandlesOfOneNameShareAFacility ) {
    TraceHandle one( "TraceTest.shared", false );
    TraceHandle other( "TraceTest.shared", false );
    EXPECT_EQ( &one.facility(), &other.facility() );
    EXPECT_FALSE( other.enabled( TraceFacility::level4 ) );
    one.facility().setMask( 1u << 4 );
    EXPECT_TRUE( other.enabled( TraceFacility::level4 ) );
    EXPECT_FALSE( other.enabled( TraceFacility::level3 ) );
}

TEST_F( TraceTest, OnByDefaultMeansLevelZeroUnlessSomethingWasSet ) {
    EXPECT_EQ( TraceHandle( "TraceTest.on", true ).facility().mask(), 1u );
    EXPECT_EQ( TraceHandle( "TraceTest.off", false ).facility().mask(), 0u );
    set( "TraceTest.told/3" );
    EXPECT_EQ( TraceHandle( "TraceTest.told", true ).facility().mask(), 1u << 3 );
}

TEST_F( TraceTest, SettingsReachHandlesMadeBeforeAndAfter ) {
    TraceHandle before( "TraceTest.before", false );
    set( "TraceTest.before/4,TraceTest.after/2-9" );
    TraceHandle after( "TraceTest.after", false );
    EXPECT_EQ( before.facility().mask(), 0x010u );
    EXPECT_EQ( after.facility().mask(), 0x3FCu );
    set( "TraceTest.before/0" );
    EXPECT_EQ( before.facility().mask(), 0x011u );
    Kiln::traceOff();
    EXPECT_EQ( before.facility().mask(), 0u );
    EXPECT_EQ( TraceHandle( "TraceTest.after2", false ).facility().mask(), 0u );
}

TEST_F( TraceTest, StarMatchesAnyEnding ) {
    TraceHandle handle( "TraceTest.star", false );
    set( "TraceTest.st*/*" );
    EXPECT_EQ( handle.facility().mask(), 0x3FFu );
}

TEST_F( TraceTest, BadSettingsAreNamed ) {
    for ( const char * text : { "ApiCairn", "ApiCairn/", "ApiCairn/10", "ApiCairn/9-2", "/4",
                                "ApiCairn/4x", "ApiCairn/-1", "A/1,,B/2", "A/1-" } ) {
        std::string error;
        Kiln::parseTraceSettings( text, error );
        EXPECT_NE( error.find( "is not FACILITY/LEVEL" ), std::string::npos ) << text;
    }
    std::string error;
    const auto settings = Kiln::parseTraceSettings( "A/1,B/x", error );
    EXPECT_EQ( settings.size(), 1u );
    EXPECT_NE( error.find( "\"B/x\"" ), std::string::npos );
}

TEST_F( TraceTest, StreamWritesEachTypeInItsForm ) {
    Kiln::TraceStream stream;
    stream << "text " << std::string( "string " ) << true << " " << false << " " << -5 << " " << 5u
           << " " << 18446744073709551615ul << " " << static_cast<unsigned short>( 65535 ) << " "
           << static_cast<const char *>( nullptr );
    EXPECT_EQ( stream.text(), "text string true false -5 5 18446744073709551615 65535 (null)" );
}

TEST_F( TraceTest, StreamWritesTheEndsOfEachRange ) {
    Kiln::TraceStream stream;
    stream << std::numeric_limits<int>::min() << " " << std::numeric_limits<int>::max() << " "
           << std::numeric_limits<unsigned int>::max() << " " << 0ul << " "
           << static_cast<unsigned short>( 0 );
    EXPECT_EQ( stream.text(), "-2147483648 2147483647 4294967295 0 0" );
}

// The process's locale, which is the agent's, may group digits and spell "true" in its own way.
class GroupingLocale : public std::numpunct<char> {
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
    std::string do_truename() const override { return "wahr"; }
};

TEST_F( TraceTest, StreamWritesWhatAStreamOfTheLibraryDoesWhateverTheLocale ) {
    std::ostringstream standard;
    standard << std::boolalpha;
    standard.imbue( std::locale::classic() );
    const std::locale before =
        std::locale::global( std::locale( std::locale::classic(), new GroupingLocale ) );
    std::ostringstream grouped;
    Kiln::TraceStream stream;
    const auto write = [&]( auto value ) {
        standard << value << ' ';
        grouped << value << ' ';
        stream << value << " ";
    };
    for ( const bool value : { true, false } )
        write( value );
    for ( unsigned long power = 1; power <= 10'000'000'000'000'000'000u / 10; power *= 10 )
        for ( const unsigned long value : { power - 1, power, power + 1 } ) {
            write( value );
            write( static_cast<unsigned int>( value ) );
            write( static_cast<unsigned short>( value ) );
            write( static_cast<int>( value ) );
            write( -static_cast<int>( value % 2'000'000'000 ) );
        }
    write( "text" );
    write( std::string( "string" ) );
    std::locale::global( before );
    EXPECT_EQ( stream.text(), standard.str() );
    EXPECT_NE( grouped.str(), standard.str() );
}

TEST_F( TraceTest, StreamTakesTextsOfAnyLength ) {
    std::vector<std::size_t> lengths{ 511, 512, 513, 100'000 };
    for ( std::size_t length = 0; length < 40; ++length )
        lengths.push_back( length );
    for ( const std::size_t length : lengths ) {
        std::string text;
        for ( std::size_t at = 0; at < length; ++at )
            text += static_cast<char>( '0' + at % 75 );
        Kiln::TraceStream stream;
        stream << text;
        EXPECT_EQ( stream.text(), text );
    }
    Kiln::TraceStream stream;
    std::string expected;
    for ( int i = 0; i < 1000; ++i ) {
        stream << "piece " << i << "\n";
        expected += "piece " + std::to_string( i ) + "\\n";
    }
    EXPECT_EQ( stream.text(), expected );
}

TEST_F( TraceTest, ControlCharacterIsFoundAtEveryPlace ) {
    for ( std::size_t length = 1; length < 40; ++length )
        for ( std::size_t at = 0; at < length; ++at )
            for ( const char * const control : { "\x01", "\x1f", "\x7f", "\xc2\x80" } ) {
                std::string text( length, '~' );
                text.replace( at, 1, control );
                Kiln::TraceStream stream;
                stream << text;
                EXPECT_EQ( stream.text().substr( 0, at ), std::string( at, '~' ) );
                EXPECT_EQ( stream.text()[at], '\\' ) << at << " of " << length;
            }
}

TEST_F( TraceTest, ControlCharactersOfTextsAreEscaped ) {
    Kiln::TraceStream stream;
    stream << "one\ntwo\tthree\r" << std::string( "four\x1b[31m\x1f\x7f" ) + '\0' + "\xc2\x9b"
           << "\xc3\xa4 \xc2\xa0\xc2";
    EXPECT_EQ( stream.text(), "one\\ntwo\\tthree\\x0dfour\\x1b[31m\\x1f\\x7f\\x00\\xc2\\x9b"
                              "\xc3\xa4 \xc2\xa0\xc2" );
}

TEST_F( TraceTest, NoValueLooksLikeAnotherLine ) {
    TraceHandle handle( "TraceTest.forged", false );
    testing::internal::CaptureStderr();
    write( handle, "mem: x\n2026-03-01T07:30:00.123456Z 1 ApiCairn/4 f:1 g: nothing happened" );
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_EQ( text.find( '\n' ), text.size() - 1 );
}

// Sinks that fail. Each in a process of its own, which goes on.

class TraceSinkFailureTest : public TraceTest {
  protected:
    TraceSinkFailureTest() {
        int ends[2];
        if ( ::pipe( ends ) != 0 )
            std::abort();
        ::close( ends[0] );
        closedPipe_ = ends[1];
    }
    ~TraceSinkFailureTest() override { ::close( closedPipe_ ); }

    /// What follows the time and the thread in each line of the file.
    static std::vector<std::string> linesOf( const std::string & path ) {
        std::ifstream in( path );
        std::vector<std::string> lines;
        for ( std::string line; std::getline( in, line ); ) {
            const auto facility =
                line.find( ' ', std::min( line.find( ' ' ), line.size() - 1 ) + 1 );
            const auto text = line.find( ": " );
            lines.push_back(
                facility == std::string::npos || text == std::string::npos
                    ? line
                    : line.substr( facility + 1, line.find( ' ', facility + 1 ) - facility ) +
                          line.substr( text + 2 ) );
        }
        return lines;
    }

    void expectToGoOn( const std::function<bool()> & work ) const {
        EXPECT_EQ( Support::runInChild( [&] {
                       std::signal( SIGPIPE, SIG_DFL );
                       std::signal( SIGXFSZ, SIG_DFL );
                       return work();
                   } ),
                   0 );
    }

    TraceHandle handle_{ "T", false };
    Support::TemporaryFolder folder_;
    int closedPipe_;
};

TEST_F( TraceSinkFailureTest, ReportToAPipeThatNobodyReadsDoesNotStopTheProcess ) {
    expectToGoOn( [&] {
        ::dup2( closedPipe_, STDERR_FILENO );
        Nacre::debugAndAssert( Nacre::Platform::DebugStream() << "report", "file", "function", 1 );
        Fleetlog::reportLoss( "no room" );
        return true;
    } );
}

TEST_F( TraceSinkFailureTest, MisuseOfTheLockIsAnAbortAlsoWhereNobodyReadsItsMessage ) {
    const int status = Support::runInChild( [&] {
        std::signal( SIGPIPE, SIG_DFL );
        ::dup2( closedPipe_, STDERR_FILENO );
        Kiln::activityLock().unlock();
        return true;
    } );
    EXPECT_TRUE( WIFSIGNALED( status ) );
    EXPECT_EQ( WTERMSIG( status ), SIGABRT );
}

TEST_F( TraceSinkFailureTest, PipeThatNobodyReadsDoesNotStopTheProcessAndWhatWasLostIsTold ) {
    const std::string path = folder_.write( "lines", "" );
    expectToGoOn( [&] {
        const int file = ::open( path.c_str(), O_WRONLY | O_APPEND );
        ::dup2( closedPipe_, STDERR_FILENO );
        write( handle_, "one" );
        write( handle_, "two" );
        write( handle_, "three" );
        ::dup2( file, STDERR_FILENO );
        write( handle_, "four" );
        write( handle_, "five" );
        return true;
    } );
    EXPECT_EQ( linesOf( path ),
               ( std::vector<std::string>{ "Kiln/0 3 trace lines could not be written", "T/4 four",
                                           "T/4 five" } ) );
}

TEST_F( TraceSinkFailureTest, FullDiskDoesNotStopTheProcessAndWhatWasLostIsTold ) {
    const std::string path = folder_.path( "lines" );
    expectToGoOn( [&] {
        Kiln::traceToFile( "/dev/full" );
        write( handle_, "one" );
        write( handle_, "two" );
        Kiln::traceToFile( path );
        write( handle_, "three" );
        return true;
    } );
    EXPECT_EQ( linesOf( path ), ( std::vector<std::string>{
                                    "Kiln/0 2 trace lines could not be written", "T/4 three" } ) );
}

TEST_F( TraceSinkFailureTest, LineThatWasTakenInPartIsNotContinued ) {
    const std::string path = folder_.path( "lines" );
    expectToGoOn( [&] {
        Kiln::traceToFile( path );
        write( handle_, "one" );
        const auto before = std::ifstream( path, std::ios::ate ).tellg();
        ::rlimit limit{};
        ::getrlimit( RLIMIT_FSIZE, &limit );
        const ::rlimit little{ static_cast<rlim_t>( before ) + 10, limit.rlim_max };
        ::setrlimit( RLIMIT_FSIZE, &little );
        write( handle_, "two" );
        write( handle_, "three" );
        ::setrlimit( RLIMIT_FSIZE, &limit );
        write( handle_, "four" );
        return true;
    } );
    const auto lines = linesOf( path );
    ASSERT_EQ( lines.size(), 4u );
    EXPECT_EQ( lines[0], "T/4 one" );
    EXPECT_EQ( lines[1].size(), 10u );
    EXPECT_EQ( lines[2], "Kiln/0 2 trace lines could not be written" );
    EXPECT_EQ( lines[3], "T/4 four" );
}

TEST_F( TraceSinkFailureTest, SignalsOfTheProcessAreAsTheyWere ) {
    expectToGoOn( [&] {
        ::dup2( closedPipe_, STDERR_FILENO );
        write( handle_, "lost" );
        sigset_t mask;
        pthread_sigmask( SIG_BLOCK, nullptr, &mask );
        sigset_t pending;
        sigpending( &pending );
        struct sigaction action;
        ::sigaction( SIGPIPE, nullptr, &action );
        return sigismember( &mask, SIGPIPE ) == 0 && sigismember( &pending, SIGPIPE ) == 0 &&
               action.sa_handler == SIG_DFL;
    } );
}

TEST_F( TraceSinkFailureTest, SignalThatTheHostHasBlockedWaitsOnlyIfItCameFromElsewhere ) {
    for ( const bool isWaiting : { false, true } )
        expectToGoOn( [&] {
            ::dup2( closedPipe_, STDERR_FILENO );
            sigset_t mask;
            sigemptyset( &mask );
            sigaddset( &mask, SIGPIPE );
            pthread_sigmask( SIG_BLOCK, &mask, nullptr );
            if ( isWaiting )
                ::raise( SIGPIPE );
            write( handle_, "lost" );
            sigset_t pending;
            sigpending( &pending );
            return sigismember( &pending, SIGPIPE ) == ( isWaiting ? 1 : 0 );
        } );
}

TEST_F( TraceTest, CallbackSeesEveryPartOfTheLine ) {
    TraceHandle handle( "TraceTest.callback", false );
    std::vector<std::string> seen;
    Kiln::traceToCallback( [&]( const Kiln::TraceLine & line ) {
        std::ostringstream out;
        out << line.facility << '/' << line.level << ' ' << line.file << ':' << line.line << ' '
            << line.function << ' ' << line.text << ' ' << ( line.thread == ::gettid() );
        seen.push_back( out.str() );
    } );
    write( handle, "hello" );
    EXPECT_EQ(
        seen, ( std::vector<std::string>{ "TraceTest.callback/4 dir/File:12 function hello 1" } ) );
}

TEST_F( TraceTest, LineCarriesTimeThreadFacilityLevelPositionFunctionAndText ) {
    TraceHandle handle( "TraceTest.stderr", false );
    testing::internal::CaptureStderr();
    write( handle, "hello world" );
    std::string text = testing::internal::GetCapturedStderr();
    // The time by its form, digit for digit.
    const std::string form = "0000-00-00T00:00:00.000000Z";
    ASSERT_GT( text.size(), form.size() );
    for ( std::size_t i = 0; i < form.size(); ++i ) {
        if ( text[i] >= '0' && text[i] <= '9' )
            text[i] = '0';
    }
    EXPECT_EQ( text, form + " " + std::to_string( ::gettid() ) +
                         " TraceTest.stderr/4 dir/File:12 function: hello world\n" );
}

TEST_F( TraceTest, TimeIsWrittenInUtcWithMicroseconds ) {
    using namespace std::chrono;
    const system_clock::time_point time{ seconds( 86400 ) + microseconds( 42 ) };
    const Kiln::TraceLine line{ time, 7, "F", TraceFacility::level9, "a/B", 3, "f", "t" };
    EXPECT_EQ( Kiln::formatTraceLine( line ), "1970-01-02T00:00:00.000042Z 7 F/9 a/B:3 f: t" );
}

TEST_F( TraceTest, TimeOfALineIsItsOwn ) {
    // The text of the second is kept for the lines that follow in it.
    TraceHandle handle( "TraceTest.times", false );
    testing::internal::CaptureStderr();
    const auto before = std::chrono::system_clock::now();
    for ( int i = 0; i < 3; ++i ) {
        write( handle, "line" );
        std::this_thread::sleep_for( std::chrono::milliseconds( 600 ) );
    }
    const auto after = std::chrono::system_clock::now();
    std::istringstream lines( testing::internal::GetCapturedStderr() );
    const auto form = []( std::chrono::system_clock::time_point time ) {
        return Kiln::formatTraceLine( { time, 1, "F", TraceFacility::level0, "a", 1, "f", "" } )
            .substr( 0, 27 );
    };
    std::vector<std::string> times{ form( before ) };
    for ( std::string line; std::getline( lines, line ); )
        times.push_back( line.substr( 0, 27 ) );
    times.push_back( form( after ) );
    EXPECT_EQ( times.size(), 5u );
    EXPECT_TRUE( std::is_sorted( times.begin(), times.end() ) ) << testing::PrintToString( times );
}

TEST_F( TraceTest, LineIsMadeWithoutAllocation ) {
    TraceHandle handle( "TraceTest.allocations", false );
    const Support::TemporaryFolder folder;
    Kiln::traceToFile( folder.write( "lines", "" ) );
    const std::string text( 200, 'x' );
    write( handle, text );
    const std::uint64_t before = Support::allocations();
    write( handle, text );
    EXPECT_EQ( Support::allocations(), before );
}

TEST_F( TraceTest, ChildTracesUnderItsOwnThreadWhateverOthersTraceAtTheFork ) {
    TraceHandle handle( "TraceTest.fork", false );
    const Support::TemporaryFolder folder;
    const std::string path = folder.write( "lines", "" );
    Kiln::traceToFile( path );
    std::atomic<bool> isEnding{ false };
    std::vector<std::thread> others;
    for ( int i = 0; i < 3; ++i )
        others.emplace_back( [&] {
            while ( !isEnding.load() )
                write( handle, "parent" );
        } );
    std::vector<pid_t> children;
    for ( int i = 0; i < 60; ++i ) {
        write( handle, "parent" ); // this thread's id is known now
        children.push_back( Support::startChild( [&] {
            ::alarm( 20 );
            write( handle, "child" );
            return true;
        } ) );
        EXPECT_EQ( Support::statusOf( children.back() ), 0 ) << i;
    }
    isEnding = true;
    for ( auto & other : others )
        other.join();
    std::ifstream in( path );
    std::vector<pid_t> found;
    for ( std::string line; std::getline( in, line ); )
        if ( line.ends_with( ": child" ) )
            found.push_back( std::stoi( line.substr( line.find( ' ' ) ) ) );
    EXPECT_EQ( found, children );
}

TEST_F( TraceTest, CallbackMayFork ) {
    TraceHandle handle( "TraceTest.forkInCallback", false );
    int status = -1;
    Kiln::traceToCallback(
        [&]( const Kiln::TraceLine & ) { status = Support::runInChild( [] { return true; } ); } );
    write( handle, "one" );
    EXPECT_EQ( status, 0 );
    status = -1;
    write( handle, "two" );
    EXPECT_EQ( status, 0 );
}

TEST_F( TraceTest, FileIsAppendedToAndWholeAtOnce ) {
    const Support::TemporaryFolder folder;
    const std::string path = folder.write( "lines", "earlier\n" );
    TraceHandle handle( "TraceTest.file", false );
    Kiln::traceToFile( path );
    std::vector<std::thread> threads;
    for ( int i = 0; i < 4; ++i )
        threads.emplace_back( [&] {
            for ( int k = 0; k < 100; ++k )
                write( handle, std::string( 200, 'x' ) );
        } );
    for ( auto & thread : threads )
        thread.join();
    std::ifstream in( path );
    std::string line;
    std::getline( in, line );
    EXPECT_EQ( line, "earlier" );
    int count = 0;
    while ( std::getline( in, line ) ) {
        ++count;
        EXPECT_TRUE( line.ends_with( " function: " + std::string( 200, 'x' ) ) ) << line;
    }
    EXPECT_EQ( count, 400 );
}

TEST_F( TraceTest, FileThatCannotBeOpenedIsAnErrorAndChangesNothing ) {
    TraceHandle handle( "TraceTest.nofile", false );
    EXPECT_THROW( Kiln::traceToFile( "/nonexistent/trace" ), std::system_error );
    testing::internal::CaptureStderr();
    write( handle, "still here" );
    EXPECT_NE( testing::internal::GetCapturedStderr().find( "still here" ), std::string::npos );
}

TEST_F( TraceDeathTest, EnvironmentSetsLevelsForLaterHandles ) {
    // The environment is read when the first facility of a process is made, so a fresh process
    // looks.
    ::setenv( "KILN_TRACE", "TraceTest.env/5,nonsense", 1 );
    testing::GTEST_FLAG( death_test_style ) = "threadsafe";
    EXPECT_EXIT(
        {
            TraceHandle handle( "TraceTest.env", false );
            std::exit( handle.facility().mask() == 1u << 5 ? 3 : 4 );
        },
        testing::ExitedWithCode( 3 ), "KILN_TRACE: \"nonsense\" is not FACILITY/LEVEL" );
    testing::GTEST_FLAG( death_test_style ) = "fast";
    ::unsetenv( "KILN_TRACE" );
}

TEST_F( TraceDeathTest, NoLineIsLostAtAbort ) {
    EXPECT_EXIT(
        {
            TraceHandle handle( "TraceTest.abort", false );
            write( handle, "last words" );
            std::abort();
        },
        testing::KilledBySignal( SIGABRT ), "last words\n" );
}

} // namespace
