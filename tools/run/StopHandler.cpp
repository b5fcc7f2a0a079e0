#include "tools/run/StopHandler.h"

#include "tools/model/Errors.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <unistd.h>
#include <utility>

namespace Tool {

namespace {

constexpr char tellStop = 's';
constexpr char endThread = 'e';
constexpr int longestTelling = 60'000; // milliseconds

// What the signal handler looks at. Set before it is installed.
pid_t thread_ = 0;
int requests_[2]; // read by the telling thread
int answers_[2];  // read by the signal handler
struct sigaction previous_;

bool send( int descriptor, char byte ) { return ::write( descriptor, &byte, 1 ) == 1; }

char receive( int descriptor ) {
    char byte = endThread;
    while ( ::read( descriptor, &byte, 1 ) < 0 && errno == EINTR ) {
    }
    return byte;
}

extern "C" void handleAbort( int signal, siginfo_t * info, void * ) {
    ::sigaction( signal, &previous_, nullptr );
    const bool ownAbort =
        info->si_code == SI_TKILL && info->si_pid == ::getpid() && ::gettid() == thread_;
    if ( ownAbort && send( requests_[1], tellStop ) ) {
        pollfd answer{ answers_[0], POLLIN, 0 };
        ::poll( &answer, 1, longestTelling );
    }
    // Blocked until this handler returns, and deadly then.
    ::raise( signal );
}

void openPipe( int ( &ends )[2] ) {
    if ( ::pipe2( ends, O_CLOEXEC ) != 0 )
        throw Trouble( std::string( "no pipe: " ) + std::strerror( errno ) );
}

} // namespace

StopHandler::StopHandler( std::function<void()> onStop ) {
    openPipe( requests_ );
    openPipe( answers_ );
    teller_ = std::thread( [onStop = std::move( onStop )]() noexcept {
        if ( receive( requests_[0] ) == tellStop ) {
            onStop();
            send( answers_[1], tellStop );
        }
    } );
    thread_ = ::gettid();
    struct sigaction action = {};
    action.sa_sigaction = handleAbort;
    action.sa_flags = SA_SIGINFO;
    ::sigaction( SIGABRT, &action, &previous_ );
}

StopHandler::~StopHandler() {
    ::sigaction( SIGABRT, &previous_, nullptr );
    send( requests_[1], endThread );
    teller_.join();
    for ( const int end : { requests_[0], requests_[1], answers_[0], answers_[1] } )
        ::close( end );
}

} // namespace Tool
