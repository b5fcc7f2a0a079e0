#include <Kiln/ActivityLock.h>

#include <CairnPlatform/internal/Write.h>

#include <cstdio>
#include <cstdlib>
#include <new>
#include <pthread.h>
#include <unistd.h>

namespace Kiln {

namespace {

// The address of a thread's own byte names the thread, without a system call.
[[gnu::tls_model( "initial-exec" )]] thread_local char thisThread;

[[noreturn, gnu::cold]] void stopForMisuse( const char * what ) noexcept {
    char line[128];
    std::snprintf( line, sizeof line, "Kiln activity lock: %s\n", what );
    CairnPlatform::writeWhole( STDERR_FILENO, line );
    std::abort();
}

std::atomic<InterpreterLock *> interpreterLock{ nullptr };

// Needs no code to begin and none to end, so that a fork finds it made whenever it comes.
constinit ActivityLock theLock;

[[maybe_unused]] const bool hasForkHandler = [] {
    if ( ::pthread_atfork( nullptr, nullptr, [] { theLock.freeInChild(); } ) != 0 )
        stopForMisuse( "no memory for its fork handler" );
    return true;
}();

} // namespace

void ActivityLock::lock() noexcept {
    if ( heldByThisThread() )
        stopForMisuse( "taken by a thread that holds it already" );
    mutex_.lock();
    owner_.store( &thisThread, std::memory_order_relaxed );
}

void ActivityLock::unlock() noexcept {
    if ( !heldByThisThread() )
        stopForMisuse( "released by a thread that does not hold it; take Kiln::activityLock() "
                       "before calling a recipe" );
    owner_.store( nullptr, std::memory_order_relaxed );
    mutex_.unlock();
}

bool ActivityLock::heldByThisThread() const noexcept {
    return owner_.load( std::memory_order_relaxed ) == &thisThread;
}

// Another thread may have held the mutex, have been taking it or have been waiting for it. It does
// not exist here, and nobody would ever release it: the mutex is made anew.
void ActivityLock::freeInChild() noexcept {
    if ( heldByThisThread() )
        return;
    new ( &mutex_ ) std::mutex;
    owner_.store( nullptr, std::memory_order_relaxed );
}

ActivityLock & activityLock() noexcept { return theLock; }

bool holdsActivityLock() noexcept {
    return theLock.owner_.load( std::memory_order_relaxed ) == &thisThread;
}

InterpreterLock * setInterpreterLock( InterpreterLock * lock ) noexcept {
    return interpreterLock.exchange( lock, std::memory_order_acq_rel );
}

MaybeGilUnlockAnchor::MaybeGilUnlockAnchor() noexcept
    : released_( interpreterLock.load( std::memory_order_acquire ) ) {
    if ( released_ != nullptr && !released_->heldByThisThread() )
        released_ = nullptr;
    if ( released_ != nullptr )
        released_->release();
}

MaybeGilUnlockAnchor::~MaybeGilUnlockAnchor() {
    if ( released_ != nullptr )
        released_->acquire();
}

ActivityUnlockAnchor::ActivityUnlockAnchor() noexcept : activity_( activityLock() ) {}

ActivityUnlockAnchor::~ActivityUnlockAnchor() = default;

} // namespace Kiln
