#include "interpose/TraceRecorder.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/QuietSdk.h"
#include "tests/support/TemporaryFolder.h"
#include "tracereader/Recording.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <ctime>
#include <new>
#include <random>
#include <sched.h>
#include <string>
#include <sys/mman.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

// What is in a recording when its process is killed: all that was recorded.

namespace {

using Interpose::TraceRecorder;

// Shared with the process that is killed: how many calls each of its threads has begun and ended.
struct Progress {
    static constexpr unsigned threads = 3;
    struct Thread {
        std::atomic<std::uint32_t> begun{ 0 };
        std::atomic<std::uint32_t> ended{ 0 };
    } of[threads];
};

class SharedProgress {
  public:
    SharedProgress()
        : memory_( ::mmap( nullptr, sizeof( Progress ), PROT_READ | PROT_WRITE,
                           MAP_SHARED | MAP_ANONYMOUS, -1, 0 ) ) {
        if ( memory_ == MAP_FAILED )
            throw std::bad_alloc();
        new ( memory_ ) Progress;
    }
    ~SharedProgress() { ::munmap( memory_, sizeof( Progress ) ); }
    SharedProgress( const SharedProgress & ) = delete;
    SharedProgress & operator=( const SharedProgress & ) = delete;
    Progress & operator*() const { return *static_cast<Progress *>( memory_ ); }

  private:
    void * memory_;
};

// Call `i` of a thread: what kind it is, and what it holds, follow from the number.
const std::string longName( 300, 'n' );
void makeCall( Shim::Sdk & sdk, unsigned thread, std::uint32_t i ) {
    const std::uint32_t handle = thread << 28 | i;
    const std::uint64_t values[20] = { i, ~std::uint64_t( i ) };
    switch ( i % 4 ) {
    case 0:
        sdk.bcmlt_entry_free( handle );
        break;
    case 1:
        sdk.bcmlt_entry_field_add( handle, "FIELD", ~std::uint64_t( i ) );
        break;
    case 2:
        sdk.bcmlt_entry_field_array_add( handle, "FIELD", i, values, 20 );
        break;
    default:
        sdk.bcmlt_entry_field_symbol_add( handle, longName.c_str(), "SYMBOL" );
    }
}

bool isCall( const TraceReader::RecordedCall & call, unsigned thread, std::uint32_t i ) {
    const bool isIt = call.handle == ( thread << 28 | i ) && call.isWhole;
    switch ( i % 4 ) {
    case 0:
        return isIt && call.call == TraceReader::SdkCall::entryFree;
    case 1:
        return isIt && call.field == "FIELD" && call.values.at( 0 ) == ~std::uint64_t( i );
    case 2:
        return isIt && call.startIndex == i && call.values.size() == 20 && call.values[0] == i &&
               call.values[1] == ~std::uint64_t( i );
    default:
        return isIt && call.field == longName && call.symbol == "SYMBOL";
    }
}

// The recording has each thread's calls from the oldest that is kept to the newest, and that is at
// least the newest that was known to be recorded.
void expectAllOf( const std::string & folder, const Progress & progress, bool isComplete ) {
    std::uint32_t next[Progress::threads] = {};
    std::uint32_t ended[Progress::threads] = {};
    bool isBegun[Progress::threads] = {};
    TraceReader::Recording recording( { folder } );
    TraceReader::Event event;
    while ( recording.next( event ) ) {
        const unsigned thread = event.call->handle >> 28;
        const std::uint32_t i = event.call->handle & 0x0FFFFFFF;
        ASSERT_LT( thread, Progress::threads );
        switch ( event.moment ) {
        case TraceReader::Event::Moment::before:
            if ( !isBegun[thread] )
                next[thread] = i;
            ASSERT_EQ( i, next[thread]++ );
            // The pieces of the oldest may have been overwritten.
            ASSERT_TRUE( isCall( *event.call, thread, i ) || ( !isComplete && !isBegun[thread] ) )
                << "call " << i;
            isBegun[thread] = true;
            break;
        case TraceReader::Event::Moment::after:
            ended[thread] = i + 1;
            break;
        default:
            ASSERT_EQ( i + 1, next[thread] ) << "the last one of its thread";
        }
    }
    EXPECT_TRUE( recording.findings().empty() ) << recording.findings().front().text();
    for ( unsigned thread = 0; thread < Progress::threads; ++thread ) {
        const auto & known = progress.of[thread];
        // The one that was being made may be recorded or not.
        EXPECT_GE( next[thread] + 1, known.begun.load() );
        EXPECT_LE( next[thread], known.begun.load() );
        EXPECT_GE( ended[thread], known.ended.load() );
    }
    EXPECT_TRUE( !isComplete || !recording.hasLostBeginning() );
}

void killAtRandomMoments( TraceRecorder::Options options, bool isComplete ) {
    constexpr int kills = 40;
    std::mt19937 random( 4711 );
    for ( int kill = 0; kill < kills; ++kill ) {
        const Support::TemporaryFolder folder;
        options.directory = folder.path();
        const SharedProgress progress;
        const pid_t child = Support::startChild( [&] {
            TraceRecorder recorder( Support::quietSdk(), options );
            const auto work = [&]( unsigned thread ) {
                for ( std::uint32_t i = 0; i < 0x0FFFFFFF; ++i ) {
                    ( *progress ).of[thread].begun.store( i + 1, std::memory_order_release );
                    makeCall( recorder, thread, i );
                    ( *progress ).of[thread].ended.store( i + 1, std::memory_order_release );
                    if ( i % 4096 == 4095 )
                        ::sched_yield(); // no thread is far behind on one core
                }
            };
            std::thread one( work, 1 );
            std::thread two( work, 2 );
            work( 0 );
            return true;
        } );
        for ( const auto & thread : ( *progress ).of )
            while ( thread.ended.load( std::memory_order_acquire ) < 200 )
                ::sched_yield();
        const timespec pause{ 0, static_cast<long>( random() % 2'000'000 ) };
        ::nanosleep( &pause, nullptr );
        ::kill( child, SIGKILL );
        const int status = Support::statusOf( child );
        ASSERT_TRUE( WIFSIGNALED( status ) && WTERMSIG( status ) == SIGKILL );
        expectAllOf( folder.path(), *progress, isComplete );
        if ( testing::Test::HasFailure() )
            FAIL() << "after kill " << kill;
    }
}

TEST( RecorderKillTest, RingOfAKilledProcessHasItsNewestCallsWhole ) {
    killAtRandomMoments( { .fileBytes = 64 << 10 }, false );
}

TEST( RecorderKillTest, CompleteRecordingOfAKilledProcessHasAllItsCalls ) {
    killAtRandomMoments( { .keep = TraceRecorder::Keep::everything, .fileBytes = 64 << 10 }, true );
}

// Kills its process within the call that it is told.
class KillingSdk final : public Interpose::Interposer {
  public:
    KillingSdk( Shim::Sdk & inner, std::uint32_t last ) : Interposer( inner ), left_( last ) {}

  private:
    int operate( const Interpose::Operation & operation ) noexcept override {
        if ( left_-- == 0 )
            ::raise( SIGKILL );
        return perform( inner(), operation );
    }

    std::uint32_t left_;
};

TEST( RecorderKillTest, CallThatKilledTheProcessIsTheLastWhicheverItIs ) {
    for ( std::uint32_t last = 0; last < 150; ++last ) {
        const Support::TemporaryFolder folder;
        const int status = Support::runInChild( [&] {
            KillingSdk killing( Support::quietSdk(), last );
            // Small files: some calls are the first of a file, and one's pieces lie in two.
            TraceRecorder recorder( killing, { .directory = folder.path(),
                                               .keep = TraceRecorder::Keep::everything,
                                               .fileBytes = 8192 } );
            for ( std::uint32_t i = 0;; ++i )
                makeCall( recorder, 0, i );
            return true;
        } );
        ASSERT_TRUE( WIFSIGNALED( status ) && WTERMSIG( status ) == SIGKILL );
        TraceReader::Recording recording( { folder.path() } );
        TraceReader::Event event;
        for ( std::uint32_t i = 0; i < last; ++i ) {
            ASSERT_TRUE( recording.next( event ) );
            ASSERT_TRUE( recording.next( event ) );
            ASSERT_EQ( event.moment, TraceReader::Event::Moment::after );
            ASSERT_TRUE( isCall( *event.call, 0, i ) ) << last << " " << i;
        }
        ASSERT_TRUE( recording.next( event ) );
        ASSERT_EQ( event.moment, TraceReader::Event::Moment::before );
        ASSERT_TRUE( recording.next( event ) );
        ASSERT_EQ( event.moment, TraceReader::Event::Moment::neverReturned );
        EXPECT_TRUE( isCall( *event.call, 0, last ) );
        EXPECT_FALSE( recording.next( event ) );
        EXPECT_TRUE( recording.findings().empty() );
        EXPECT_FALSE( recording.hasLostBeginning() );
    }
}

} // namespace
