#pragma once

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <ctime>
#include <string_view>
#include <unistd.h>

// Writing what the platform has to say, in whatever state the host's descriptors and signals are.

namespace CairnPlatform {

/// While one lives, a write that nobody reads, or that a limit refuses, fails on this thread and
/// sends no signal that would end the process. Other threads see nothing of it.
class [[gnu::visibility( "hidden" )]] WriteSignals {
  public:
    WriteSignals() noexcept {
        sigemptyset( &ours_ );
        sigaddset( &ours_, SIGPIPE );
        sigaddset( &ours_, SIGXFSZ );
        pthread_sigmask( SIG_BLOCK, &ours_, &before_ );
        // What the host keeps blocked may be waiting since earlier; that stays.
        for ( const int signal : { SIGPIPE, SIGXFSZ } ) {
            sigset_t pending;
            if ( sigismember( &before_, signal ) && sigpending( &pending ) == 0 &&
                 sigismember( &pending, signal ) )
                sigdelset( &ours_, signal );
        }
    }
    ~WriteSignals() { pthread_sigmask( SIG_SETMASK, &before_, nullptr ); }
    WriteSignals( const WriteSignals & ) = delete;
    WriteSignals & operator=( const WriteSignals & ) = delete;

    /// Takes back what a write that failed has sent.
    void drop() noexcept {
        const timespec atOnce{};
        while ( sigtimedwait( &ours_, nullptr, &atOnce ) > 0 )
            ;
    }

  private:
    sigset_t ours_;
    sigset_t before_;
};

/// Writes the text and returns how much of it was taken. A closed pipe, a full disk or a limit on the
/// size of files takes less, and ends nothing.
[[gnu::visibility( "hidden" )]] inline std::size_t writeWhole( int descriptor,
                                                               std::string_view text ) noexcept {
    WriteSignals signals;
    std::size_t taken = 0;
    while ( taken < text.size() ) {
        const auto written = ::write( descriptor, text.data() + taken, text.size() - taken );
        if ( written < 0 && errno == EINTR )
            continue;
        if ( written <= 0 ) {
            signals.drop();
            break;
        }
        taken += static_cast<std::size_t>( written );
    }
    return taken;
}

} // namespace CairnPlatform
