#include "Cairn/CairnLtHelper.h"

#include "interpose/Interposer.h"
#include "sim/Chip.h"
#include "tests/support/TemporaryFolder.h"

#include <Fleetlog/TraceHandle.h>
#include <Kiln/ActivityLock.h>
#include <Kiln/TraceSink.h>
#include <Shim/Sdk.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <latch>
#include <mutex>
#include <thread>
#include <vector>

// Recipes on several threads at once, as agents run them: each thread takes the activity lock, and
// others get in while an SDK call is under way. These tests mean most under the thread sanitizer.

namespace {

/// An SDK that notes how many threads were ever inside at once. Where it is told to, the first
/// thread that gets in waits until a second one is there.
class CrowdedSdk final : public Interpose::Interposer {
  public:
    CrowdedSdk() : Interposer( chip ) {}

    int bcmlt_entry_field_add( std::uint32_t handle, const char * field,
                               std::uint64_t value ) noexcept override {
        const int inside = ++inside_;
        int most = mostInside.load();
        while ( inside > most && !mostInside.compare_exchange_weak( most, inside ) ) {
        }
        if ( Kiln::activityLock().heldByThisThread() )
            ++heldInside;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds( 60 );
        while ( waitForCompany && mostInside < 2 && std::chrono::steady_clock::now() < deadline )
            std::this_thread::yield();
        const int rc = chip.bcmlt_entry_field_add( handle, field, value );
        --inside_;
        return rc;
    }

    Sim::Chip chip;
    bool waitForCompany = false;
    std::atomic<int> mostInside{ 0 };
    std::atomic<int> heldInside{ 0 };

  private:
    std::atomic<int> inside_{ 0 };
};

/// An interpreter with a lock of its own: one thread at a time, as in an agent that embeds one.
class Interpreter final : public Kiln::InterpreterLock {
  public:
    bool heldByThisThread() const noexcept override {
        return owner_.load() == std::this_thread::get_id();
    }
    void release() noexcept override {
        owner_ = std::thread::id();
        ++releases;
        mutex_.unlock();
    }
    void acquire() noexcept override {
        mutex_.lock();
        owner_ = std::this_thread::get_id();
    }

    std::atomic<int> releases{ 0 };

  private:
    std::mutex mutex_;
    std::atomic<std::thread::id> owner_{};
};

class ConcurrencyTest : public ::testing::Test {
  protected:
    ConcurrencyTest() {
        sdk.chip.addUnit( 0, Sim::referenceSchema() );
        Shim::sdk_ = &sdk;
    }
    ~ConcurrencyTest() override {
        Fleetlog::closeDefault();
        Kiln::setInterpreterLock( nullptr );
        Kiln::traceToStandardError();
        Kiln::traceOff();
        Shim::sdk_ = nullptr;
    }

    /// Runs `work( thread, round )` on several threads that start together.
    template <class Work>
    static void onThreads( int threads, int rounds, const Work & work ) {
        std::atomic<int> waiting{ threads };
        std::vector<std::thread> running;
        for ( int thread = 0; thread < threads; ++thread )
            running.emplace_back( [&, thread] {
                --waiting;
                while ( waiting.load() != 0 )
                    std::this_thread::yield();
                for ( int round = 0; round < rounds; ++round )
                    work( thread, round );
            } );
        for ( auto & thread : running )
            thread.join();
    }

    CrowdedSdk sdk;
};

constexpr int threadCount = 4;

std::uint32_t rowOf( int thread, int round ) {
    return static_cast<std::uint32_t>( thread * 64 + round % 64 );
}

TEST_F( ConcurrencyTest, OtherThreadsGetInWhileTheLockIsGivenUp ) {
    sdk.waitForCompany = true;
    onThreads( threadCount, 100, []( int thread, int round ) {
        const std::lock_guard lock( Kiln::activityLock() );
        Cairn::setVxlanDecapAdaptLookup( 0, static_cast<std::uint32_t>( thread ), round % 2 == 0 );
        EXPECT_EQ( Cairn::getVxlanDecapAdaptLookup( 0, static_cast<std::uint32_t>( thread ) ),
                   round % 2 == 0 );
    } );
    EXPECT_GT( sdk.mostInside.load(), 1 );
    EXPECT_EQ( sdk.heldInside.load(), 0 );
    EXPECT_EQ( sdk.chip.liveEntryCount(), 0u );
}

TEST_F( ConcurrencyTest, LockKeptRecipesAreAloneInTheSdk ) {
    onThreads( threadCount, 100, []( int thread, int round ) {
        const std::lock_guard lock( Kiln::activityLock() );
        Cairn::setEgrTunnelEcnEncap( 0, rowOf( thread, round ), 2 );
    } );
    EXPECT_EQ( sdk.mostInside.load(), 1 );
    EXPECT_EQ( sdk.heldInside.load(), threadCount * 100 * 2 );
    for ( int thread = 0; thread < threadCount; ++thread )
        EXPECT_EQ( sdk.chip.value( 0, "EGR_TUNNEL_ECN_ENCAPm", { .index = rowOf( thread, 63 ) },
                                   "OUTER_ECN" ),
                   2u );
}

TEST_F( ConcurrencyTest, InterpreterLockIsGivenUpAroundEachCall ) {
    sdk.waitForCompany = true;
    Interpreter interpreter;
    Kiln::setInterpreterLock( &interpreter );
    onThreads( threadCount, 50, [&]( int thread, int ) {
        // The interpreter calls into the agent: its lock is taken first.
        Kiln::activityLock().lock();
        interpreter.acquire();
        Cairn::setVxlanDecapAdaptLookup( 0, static_cast<std::uint32_t>( thread ), true );
        EXPECT_TRUE( interpreter.heldByThisThread() );
        EXPECT_TRUE( Kiln::activityLock().heldByThisThread() );
        interpreter.release();
        Kiln::activityLock().unlock();
    } );
    // Seven calls each, and the release of the test itself.
    EXPECT_EQ( interpreter.releases.load(), threadCount * 50 * ( 7 + 1 ) );
    EXPECT_GT( sdk.mostInside.load(), 1 );
}

TEST_F( ConcurrencyTest, LevelMasksMayChangeWhileRecipesRun ) {
    std::atomic<int> lines{ 0 };
    Kiln::traceToCallback( [&]( const Kiln::TraceLine & ) { ++lines; } );
    std::atomic<bool> done{ false };
    std::thread switcher( [&] {
        const std::vector<Kiln::TraceSetting> on{ { "ApiCairn", 1u << 4 },
                                                  { "CairnLtHelper", 0x3FFu } };
        while ( !done ) {
            Kiln::traceSettings( on );
            std::this_thread::yield();
            Kiln::traceOff();
        }
    } );
    onThreads( threadCount, 100, []( int, int round ) {
        const std::lock_guard lock( Kiln::activityLock() );
        Cairn::setLoadBalanceRandSeedCtrl( 0, static_cast<std::uint32_t>( round ) );
        Cairn::setEmRobustHashDisable( 0 );
    } );
    done = true;
    switcher.join();
    EXPECT_EQ( sdk.chip.liveEntryCount(), 0u );
}

TEST_F( ConcurrencyTest, ThreadsRegisterTheSameMessagesEachInAFileOfItsOwn ) {
    const Support::TemporaryFolder folder;
    Fleetlog::OpenOptions options;
    options.directory = folder.path();
    options.ringBytes = 64 << 10;
    options.files = Fleetlog::Files::perThread;
    Fleetlog::openDefault( options );
    constexpr int rounds = 50;
    std::latch atEnd( threadCount ); // a thread that ended would leave its file to another
    onThreads( threadCount, rounds, [&]( int, int round ) {
        {
            const std::lock_guard lock( Kiln::activityLock() );
            Cairn::setLoadBalanceRandSeedMem( 0, static_cast<std::uint32_t>( round ) );
            Cairn::setFlexctrIngressCounterActionEnable( 0 );
            Cairn::enable1BitEccRpt( 0, "ING_EN_EFILTER_BITMAPm", true );
        }
        if ( round == rounds - 1 )
            atEnd.arrive_and_wait();
    } );
    Fleetlog::closeDefault();
    long files = 0;
    for ( const auto & file : std::filesystem::directory_iterator( folder.path() ) )
        files += file.is_regular_file() ? 1 : 0;
    // One a thread that wrote messages, and that of the thread that opened the handle.
    EXPECT_EQ( files, threadCount + 1 );
}

TEST_F( ConcurrencyTest, UpdatesOfOneRowByManyThreadsDoNotMeet ) {
    // The row is there first: look-up and write are two steps, and of two threads that both miss,
    // the second INSERT stops the process.
    {
        const std::lock_guard lock( Kiln::activityLock() );
        Cairn::setLearnCacheEnabled( 0, false );
    }
    onThreads( threadCount, 100, []( int thread, int ) {
        const std::lock_guard lock( Kiln::activityLock() );
        Cairn::setLearnCacheEnabled( 0, thread % 2 == 0 );
    } );
    EXPECT_EQ( sdk.chip.liveEntryCount(), 0u );
}

} // namespace
