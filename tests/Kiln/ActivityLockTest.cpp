#include "tests/support/ChildProcess.h"

#include <Kiln/ActivityLock.h>

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <future>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Kiln::activityLock;

TEST( ActivityLockTest, KnowsItsOwner ) {
    EXPECT_FALSE( activityLock().heldByThisThread() );
    activityLock().lock();
    EXPECT_TRUE( activityLock().heldByThisThread() );
    std::thread( [] { EXPECT_FALSE( activityLock().heldByThisThread() ); } ).join();
    activityLock().unlock();
    EXPECT_FALSE( activityLock().heldByThisThread() );
}

TEST( ActivityLockTest, AnchorReleasesForItsLifetime ) {
    const std::lock_guard held( activityLock() );
    {
        const Kiln::UnlockAnchor unlocked( activityLock() );
        EXPECT_FALSE( activityLock().heldByThisThread() );
        // Another activity runs meanwhile.
        std::thread( [] {
            const std::lock_guard other( activityLock() );
            EXPECT_TRUE( activityLock().heldByThisThread() );
        } ).join();
    }
    EXPECT_TRUE( activityLock().heldByThisThread() );
}

class NotedInterpreterLock final : public Kiln::InterpreterLock {
  public:
    bool heldByThisThread() const noexcept override { return held; }
    void release() noexcept override {
        held = false;
        note( "release" );
    }
    void acquire() noexcept override {
        held = true;
        note( "acquire" );
    }
    void note( const char * what ) {
        notes.push_back( std::string( what ) +
                         ( activityLock().heldByThisThread() ? " with" : " without" ) );
    }

    bool held = true;
    std::vector<std::string> notes;
};

TEST( ActivityLockTest, CombinedAnchorReleasesTheInterpreterFirstAndTakesItBackLast ) {
    NotedInterpreterLock interpreter;
    EXPECT_EQ( Kiln::setInterpreterLock( &interpreter ), nullptr );
    {
        const std::lock_guard held( activityLock() );
        {
            const Kiln::ActivityUnlockAnchor unlocked;
            EXPECT_FALSE( interpreter.held );
            EXPECT_FALSE( activityLock().heldByThisThread() );
        }
        EXPECT_TRUE( interpreter.held );
        EXPECT_TRUE( activityLock().heldByThisThread() );
    }
    EXPECT_EQ( Kiln::setInterpreterLock( nullptr ), &interpreter );
    EXPECT_EQ( interpreter.notes, ( std::vector<std::string>{ "release with", "acquire with" } ) );
}

TEST( ActivityLockTest, InterpreterLockThatIsNotHeldIsLeftAlone ) {
    NotedInterpreterLock interpreter;
    interpreter.held = false;
    Kiln::setInterpreterLock( &interpreter );
    { const Kiln::MaybeGilUnlockAnchor anchor; }
    Kiln::setInterpreterLock( nullptr );
    EXPECT_FALSE( interpreter.held );
    EXPECT_TRUE( interpreter.notes.empty() );
}

// Whether a child gets the lock. One that would wait forever is ended by a signal.
bool getsTheLock() {
    ::alarm( 20 );
    const std::lock_guard held( activityLock() );
    return activityLock().heldByThisThread();
}

TEST( ActivityLockTest, ChildFindsItFreeWhenAnotherThreadHeldItAtTheFork ) {
    std::promise<void> taken;
    std::promise<void> forked;
    std::thread other( [&] {
        const std::lock_guard held( activityLock() );
        taken.set_value();
        forked.get_future().wait();
        EXPECT_TRUE( activityLock().heldByThisThread() ); // the parent's lock is as it was
    } );
    taken.get_future().wait();
    EXPECT_EQ(
        Support::runInChild( [] { return !activityLock().heldByThisThread() && getsTheLock(); } ),
        0 );
    forked.set_value();
    other.join();
}

TEST( ActivityLockTest, ChildFindsItFreeWhateverOtherThreadsDidWithItAtTheFork ) {
    std::atomic<bool> isEnding{ false };
    std::vector<std::thread> others;
    for ( int i = 0; i < 3; ++i )
        others.emplace_back( [&] {
            while ( !isEnding.load() ) {
                const std::lock_guard held( activityLock() );
                const Kiln::ActivityUnlockAnchor unlocked;
            }
        } );
    for ( int i = 0; i < 60; ++i )
        EXPECT_EQ( Support::runInChild( getsTheLock ), 0 ) << i;
    isEnding = true;
    for ( auto & other : others )
        other.join();
}

TEST( ActivityLockTest, ChildHoldsItWhenTheForkingThreadHeldIt ) {
    const std::lock_guard held( activityLock() );
    EXPECT_EQ( Support::runInChild( [] {
                   if ( !activityLock().heldByThisThread() )
                       return false;
                   std::thread( [] { EXPECT_FALSE( activityLock().heldByThisThread() ); } ).join();
                   activityLock().unlock();
                   return getsTheLock();
               } ),
               0 );
    EXPECT_TRUE( activityLock().heldByThisThread() );
}

TEST( ActivityLockTest, ExcludesUnderContention ) {
    int counter = 0;
    std::vector<std::thread> threads;
    for ( int i = 0; i < 4; ++i )
        threads.emplace_back( [&] {
            for ( int k = 0; k < 500; ++k ) {
                const std::lock_guard held( activityLock() );
                ++counter;
                { const Kiln::ActivityUnlockAnchor unlocked; }
                ++counter;
            }
        } );
    for ( auto & thread : threads )
        thread.join();
    EXPECT_EQ( counter, 4000 );
}

TEST( ActivityLockDeathTest, TakingWhatIsHeldStopsTheProcess ) {
    EXPECT_EXIT(
        {
            activityLock().lock();
            activityLock().lock();
        },
        testing::KilledBySignal( SIGABRT ),
        "^Kiln activity lock: taken by a thread that holds it already\n$" );
}

TEST( ActivityLockDeathTest, ReleasingWhatIsNotHeldStopsTheProcess ) {
    EXPECT_EXIT( activityLock().unlock(), testing::KilledBySignal( SIGABRT ),
                 "^Kiln activity lock: released by a thread that does not hold it; "
                 "take Kiln::activityLock\\(\\) before calling a recipe\n$" );
}

TEST( ActivityLockDeathTest, AnchorWithoutTheLockStopsTheProcess ) {
    EXPECT_EXIT( { const Kiln::ActivityUnlockAnchor unlocked; }, testing::KilledBySignal( SIGABRT ),
                 "^Kiln activity lock: released by" );
}

} // namespace
