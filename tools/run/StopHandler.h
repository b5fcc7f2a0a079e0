#pragma once

#include <csignal>
#include <functional>
#include <thread>

// What a process does last when a recipe stops it, or somebody interrupts it.

namespace Tool {

/// While it lives, a stop of the process first calls a function.
///
/// Recipes stop the process by abort(), which raises SIGABRT on their thread. The signal handler
/// does what a signal handler may: it wakes a thread that waits for this, and waits until that
/// thread has called the function. The function runs as ordinary code, while the thread of the
/// recipe stands still where it stopped; it may allocate, print, write files and look at the
/// simulated chip. When it has returned, or has not after a minute, the process dies of SIGABRT as
/// it would have without it.
///
/// A SIGABRT from elsewhere may come at any moment, when the objects that the function looks at are
/// being changed: it ends the process at once, and so does an abort in the function itself.
///
/// (The alternative, recipes in a child process, keeps the tool alive, but the chip as it was at
/// the stop dies with the child.)
///
/// SIGINT, SIGTERM and SIGHUP are taken by the same thread, if there is a function for them: it is
/// called with the signal, as ordinary code, while the other threads go on, and when it has
/// returned, the process ends as the signal ends it. A second signal ends it at once. Signals that
/// the process ignores stay ignored.
///
/// The thread that makes the handler is the one whose stops it handles. At most one lives at a
/// time.
class StopHandler {
  public:
    explicit StopHandler( std::function<void()> onStop,
                          std::function<void( int signal )> onInterrupt = {} );
    ~StopHandler();
    StopHandler( const StopHandler & ) = delete;
    StopHandler & operator=( const StopHandler & ) = delete;

  private:
    void blockInterrupts();
    void waitForEvents( const std::function<void()> & onStop,
                        const std::function<void( int signal )> & onInterrupt ) const;

    sigset_t interrupts_; // empty if there is no function for them
    sigset_t maskBefore_;
    int interruptEvents_ = -1;
    std::thread thread_;
};

} // namespace Tool
