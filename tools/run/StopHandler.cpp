#include "tools/run/StopHandler.h"

#include "tools/model/Errors.h"

#include <fmt/format.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>
#include <utility>

namespace Tool {

namespace {

constexpr char stopRequest = 's';
constexpr char endRequest = 'e';
constexpr int longestReport = 60'000; // milliseconds

// What the handler of SIGABRT looks at. Set before it is installed.
pid_t abortingThread_ = 0;
int requests_[2]; // read by the handler's thread
int answers_[2];  // read by the signal handler
struct sigaction previous_;

bool send( int descriptor, char byte ) { return ::write( descriptor, &byte, 1 ) == 1; }

char receive( int descriptor ) {
    char byte = endRequest;
    while ( ::read( descriptor, &byte, 1 ) < 0 && errno == EINTR ) {
    }
    return byte;
}

extern "C" void handleAbort( int signal, siginfo_t * info, void * ) {
    ::sigaction( signal, &previous_, nullptr );
    const bool ownAbort =
        info->si_code == SI_TKILL && info->si_pid == ::getpid() && ::gettid() == abortingThread_;
    if ( ownAbort && send( requests_[1], stopRequest ) ) {
        pollfd answer{ answers_[0], POLLIN, 0 };
        ::poll( &answer, 1, longestReport );
    }
    // Blocked until this handler returns, and deadly then.
    ::raise( signal );
}

void openPipe( int ( &ends )[2] ) {
    if ( ::pipe2( ends, O_CLOEXEC ) != 0 )
        throw Trouble( fmt::format( "no pipe: {}", std::strerror( errno ) ) );
}

} // namespace

StopHandler::StopHandler( std::function<void()> onStop,
                          std::function<void( int signal )> onInterrupt ) {
    openPipe( requests_ );
    openPipe( answers_ );
    ::sigemptyset( &interrupts_ );
    ::pthread_sigmask( SIG_SETMASK, nullptr, &maskBefore_ );
    if ( onInterrupt )
        blockInterrupts();
    thread_ = std::thread(
        [this, onStop = std::move( onStop ), onInterrupt = std::move( onInterrupt )]() noexcept {
            waitForEvents( onStop, onInterrupt );
        } );
    abortingThread_ = ::gettid();
    struct sigaction action = {};
    action.sa_sigaction = handleAbort;
    action.sa_flags = SA_SIGINFO;
    ::sigaction( SIGABRT, &action, &previous_ );
}

StopHandler::~StopHandler() {
    ::sigaction( SIGABRT, &previous_, nullptr );
    send( requests_[1], endRequest );
    thread_.join();
    for ( const int end :
          { requests_[0], requests_[1], answers_[0], answers_[1], interruptEvents_ } ) {
        if ( end >= 0 )
            ::close( end );
    }
    // What nobody took any more is delivered now.
    ::pthread_sigmask( SIG_SETMASK, &maskBefore_, nullptr );
}

// Blocked in all threads, which are made later, the signals are left to a descriptor.
void StopHandler::blockInterrupts() {
    for ( const int signal : { SIGINT, SIGTERM, SIGHUP } ) {
        struct sigaction action {};
        if ( ::sigaction( signal, nullptr, &action ) == 0 && action.sa_handler != SIG_IGN )
            ::sigaddset( &interrupts_, signal );
    }
    interruptEvents_ = ::signalfd( -1, &interrupts_, SFD_CLOEXEC );
    if ( interruptEvents_ < 0 )
        throw Trouble( fmt::format( "no descriptor for signals: {}", std::strerror( errno ) ) );
    ::pthread_sigmask( SIG_BLOCK, &interrupts_, nullptr );
}

void StopHandler::waitForEvents( const std::function<void()> & onStop,
                                 const std::function<void( int signal )> & onInterrupt ) const {
    pollfd events[] = { { requests_[0], POLLIN, 0 }, { interruptEvents_, POLLIN, 0 } };
    while ( ::poll( events, std::size( events ), -1 ) < 0 && errno == EINTR ) {
    }
    signalfd_siginfo interrupt;
    if ( events[0].revents != 0 ) {
        if ( receive( requests_[0] ) != stopRequest )
            return;
        onStop();
        send( answers_[1], stopRequest );
    } else if ( ::read( interruptEvents_, &interrupt, sizeof interrupt ) == sizeof interrupt ) {
        ::pthread_sigmask( SIG_UNBLOCK, &interrupts_, nullptr ); // for a second one
        const int signal = static_cast<int>( interrupt.ssi_signo );
        onInterrupt( signal );
        ::raise( signal );
    }
}

} // namespace Tool
