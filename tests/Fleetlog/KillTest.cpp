#include "tests/support/TraceFiles.h"

#include <Fleetlog/MsgDesc.h>
#include <Fleetlog/TraceHandle.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <new>
#include <random>
#include <string>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <vector>

// What is in the file when the writer is killed.

namespace {

using namespace Fleetlog;

// A number that a child process tells its parent, also when it is killed.
class SharedNumber {
  public:
    SharedNumber() {
        void * const memory = ::mmap( nullptr, sizeof( std::atomic<std::uint32_t> ),
                                      PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0 );
        if ( memory == MAP_FAILED )
            throw std::bad_alloc();
        number_ = new ( memory ) std::atomic<std::uint32_t>( 0 );
    }
    ~SharedNumber() { ::munmap( number_, sizeof *number_ ); }
    SharedNumber( const SharedNumber & ) = delete;
    SharedNumber & operator=( const SharedNumber & ) = delete;

    std::atomic<std::uint32_t> & operator*() const { return *number_; }

  private:
    std::atomic<std::uint32_t> * number_;
};

// Texts of all lengths from 0 to 39.
std::vector<std::string> makeTexts() {
    std::vector<std::string> made;
    for ( std::size_t length = 0; length < 40; ++length )
        made.emplace_back( length, static_cast<char>( 'a' + length % 26 ) );
    return made;
}
const std::vector<std::string> texts = makeTexts();

// Writes records 0, 1, 2, ... up to `end`, each with its number, a text made from it, and its
// complement, so that a torn one shows. `written` is told after each.
void writeRecords( TraceFile & file, std::uint32_t end, std::atomic<std::uint32_t> & written ) {
    int msgId = 0;
    const auto registerSite = [&] {
        MsgDesc descriptor( &file, &msgId, "Cairn/CairnLtHelper", 1 );
        descriptor.formatString().put( "i" );
        descriptor.formatString().put( "p" );
        descriptor.formatString().put( "i" );
        descriptor << "f "
                   << "%s"
                   << " "
                   << "%s"
                   << " "
                   << "%s";
        descriptor.finish();
    };
    registerSite();
    RingBuf & ring = *file.ringBuf();
    for ( std::uint32_t i = 0; i < end; ++i ) {
        ring.startMsg( &file, msgId );
        ring.put4( i );
        put( &ring, texts[i % texts.size()].c_str() );
        ring.put4( ~i );
        ring.endMsg();
        written.store( i + 1, std::memory_order_release );
    }
}

std::string expectedText( std::uint32_t i ) {
    return "f " + std::to_string( i ) + " " + texts[i % texts.size()] + " " + std::to_string( ~i );
}

// The file holds the records from the oldest that was not overwritten to the newest, each whole,
// and the newest is at least the one that the writer knew it had written.
testing::AssertionResult holdsAllUpTo( const Support::Reading & reading, std::uint32_t written ) {
    if ( !reading.findings.empty() )
        return testing::AssertionFailure() << reading.findings.front();
    const std::uint64_t first =
        reading.texts.empty() ? 0 : std::stoul( reading.texts.front().substr( 2 ) );
    if ( first != 0 && reading.counts.blocks + 1 < reading.info.blockCount )
        return testing::AssertionFailure() << "only " << reading.counts.blocks << " blocks";
    for ( std::size_t i = 0; i < reading.texts.size(); ++i ) {
        const std::string expected = expectedText( static_cast<std::uint32_t>( first + i ) );
        if ( reading.texts[i] != expected )
            return testing::AssertionFailure()
                   << "record " << first + i << " is " << reading.texts[i] << ", not " << expected;
    }
    const std::uint64_t end = first + reading.texts.size();
    if ( end != written && end != written + std::uint64_t( 1 ) )
        return testing::AssertionFailure()
               << "ends before record " << end << ", but " << written << " were written";
    return testing::AssertionSuccess();
}

OpenOptions smallRing( const std::string & directory ) {
    return { .directory = directory, .ringBytes = 3 * 4096, .descriptorBytes = 4096 };
}

TEST( KillTest, EveryCompletedRecordOfAKilledWriterIsReadAndNoneIsTorn ) {
    constexpr int kills = 400;
    constexpr std::uint32_t enoughToWrap = 3 * 4096 / sizeof( Format::RecordHeader );
    const Support::Directory directory;
    { const TraceFile warmUp( smallRing( directory.path() ), 0 ); } // the clock is measured once
    std::filesystem::remove( directory.file() );

    std::mt19937 random( 4711 ); // the same kills each time, as far as the scheduler lets them be
    std::uniform_int_distribution<long> delay( 0, 400'000 );
    for ( int kill = 0; kill < kills; ++kill ) {
        const SharedNumber written;
        const pid_t child = Support::startChild( [&] {
            TraceFile file( smallRing( directory.path() ), 0 );
            writeRecords( file, UINT32_MAX, *written );
            return true;
        } );
        while ( ( *written ).load( std::memory_order_acquire ) < enoughToWrap )
            ::sched_yield();
        const timespec pause{ .tv_sec = 0, .tv_nsec = delay( random ) };
        ::nanosleep( &pause, nullptr );
        ::kill( child, SIGKILL );
        const int status = Support::statusOf( child );
        ASSERT_TRUE( WIFSIGNALED( status ) && WTERMSIG( status ) == SIGKILL );

        const auto reading = Support::read( directory.file() );
        ASSERT_TRUE( holdsAllUpTo( reading, *written ) ) << "after kill " << kill;
        EXPECT_FALSE( reading.info.isClosed );
        EXPECT_GT( reading.counts.overwrittenBlocks, 0u );
        std::filesystem::remove( directory.file() );
    }
}

#if !defined( __SANITIZE_ADDRESS__ ) && !defined( __SANITIZE_THREAD__ )

const std::byte * mapFile( const std::string & path ) {
    const int descriptor = ::open( path.c_str(), O_RDONLY );
    void * const memory =
        ::mmap( nullptr, std::filesystem::file_size( path ), PROT_READ, MAP_SHARED, descriptor, 0 );
    ::close( descriptor );
    if ( memory == MAP_FAILED )
        throw std::system_error( errno, std::generic_category(), path );
    return static_cast<const std::byte *>( memory );
}

// The file as it is after every single instruction of a writer that registers its site, fills its
// blocks and wraps: what a kill at that instruction leaves.
TEST( KillTest, FileIsWholeAfterEveryInstructionOfTheWriter ) {
    constexpr std::uint32_t records = 220;
    const Support::Directory directory;
    { const TraceFile warmUp( smallRing( directory.path() ), 0 ); }
    std::filesystem::remove( directory.file() );

    const SharedNumber written;
    const pid_t child = Support::startChild( [&] {
        OpenOptions options = smallRing( directory.path() );
        options.ringBytes = 2 * 4096;
        if ( ::ptrace( PTRACE_TRACEME, 0, nullptr, nullptr ) != 0 )
            return false;
        TraceFile file( options, 0 );
        ::raise( SIGSTOP );
        writeRecords( file, records, *written );
        return true;
    } );
    int status = Support::statusOf( child );
    if ( !WIFSTOPPED( status ) )
        GTEST_SKIP() << "this process may not trace another";

    std::size_t checked = 0;
    std::vector<std::byte> content = Support::contentOf( directory.file() );
    const std::byte * const memory = mapFile( directory.file() );
    while ( ::ptrace( PTRACE_SINGLESTEP, child, nullptr, nullptr ) == 0 &&
            ::waitpid( child, &status, 0 ) == child && WIFSTOPPED( status ) ) {
        if ( std::memcmp( memory, content.data(), content.size() ) == 0 )
            continue;
        std::memcpy( content.data(), memory, content.size() );
        ++checked;
        const auto whole = holdsAllUpTo( Support::read( content ), *written );
        EXPECT_TRUE( whole );
        if ( !whole ) {
            ::kill( child, SIGKILL );
            Support::statusOf( child );
            return;
        }
    }
    EXPECT_TRUE( WIFEXITED( status ) && WEXITSTATUS( status ) == 0 );
    EXPECT_GT( Support::read( directory.file() ).counts.overwrittenBlocks, 0u );
    EXPECT_GT( checked, 5 * records );
}

#endif

} // namespace
