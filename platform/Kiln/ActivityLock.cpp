#include <Kiln/ActivityLock.h>

#include <cstdio>
#include <cstdlib>

namespace Kiln {

namespace {

// The address of a thread's own byte names the thread, without a system call.
thread_local char thisThread;

[[noreturn, gnu::cold]] void stopForMisuse( const char * what ) noexcept {
    std::fprintf( stderr, "Kiln activity lock: %s\n", what );
    std::abort();
}

std::atomic<InterpreterLock *> interpreterLock{ nullptr };

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

ActivityLock & activityLock() noexcept {
    static auto & lock = *new ActivityLock;
    return lock;
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
