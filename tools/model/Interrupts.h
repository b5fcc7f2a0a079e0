#pragma once

#include <csignal>

namespace Tool {

/// Holds back what ends a process from outside, SIGINT, SIGTERM and SIGHUP, as long as it is there: the
/// process then ends afterwards, with nothing left half done. For short work of this thread, and of
/// those that it starts meanwhile.
class InterruptsHeld {
  public:
    InterruptsHeld() noexcept {
        sigset_t interrupts;
        ::sigemptyset( &interrupts );
        for ( const int signal : { SIGINT, SIGTERM, SIGHUP } )
            ::sigaddset( &interrupts, signal );
        ::pthread_sigmask( SIG_BLOCK, &interrupts, &before_ );
    }
    ~InterruptsHeld() { ::pthread_sigmask( SIG_SETMASK, &before_, nullptr ); }
    InterruptsHeld( const InterruptsHeld & ) = delete;
    InterruptsHeld & operator=( const InterruptsHeld & ) = delete;

  private:
    sigset_t before_;
};

} // namespace Tool
