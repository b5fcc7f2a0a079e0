#pragma once

#include <functional>
#include <thread>

// The last words of a process that a recipe stops.

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
/// The thread that makes the handler is the one whose stops it handles. At most one lives at a
/// time.
class StopHandler {
  public:
    explicit StopHandler( std::function<void()> onStop );
    ~StopHandler();
    StopHandler( const StopHandler & ) = delete;
    StopHandler & operator=( const StopHandler & ) = delete;

  private:
    std::thread teller_;
};

} // namespace Tool
