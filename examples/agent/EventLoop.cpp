#include "EventLoop.h"

#include <Fleetlog/TraceHandle.h>
#include <Kiln/ActivityLock.h>

#include <cerrno>
#include <cstdint>
#include <mutex>
#include <poll.h>
#include <sys/timerfd.h>
#include <system_error>
#include <unistd.h>

Descriptor::Descriptor( int descriptor, const char * call ) : descriptor_( descriptor ) {
    if ( descriptor == -1 )
        throw std::system_error( errno, std::generic_category(), call );
}

Descriptor::~Descriptor() { ::close( descriptor_ ); }

void runUntil( const Descriptor & stop, std::chrono::milliseconds period,
               const std::function<void()> & work ) {
    const Descriptor timer( ::timerfd_create( CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK ),
                            "timerfd_create" );
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>( period );
    const timespec tick{ .tv_sec = seconds.count(),
                         .tv_nsec = std::chrono::nanoseconds( period - seconds ).count() };
    const itimerspec times{ .it_interval = tick, .it_value = tick };
    if ( ::timerfd_settime( timer.get(), 0, &times, nullptr ) == -1 )
        throw std::system_error( errno, std::generic_category(), "timerfd_settime" );

    // sample: loop
    const std::lock_guard lock( Kiln::activityLock() );
    for ( ;; ) {
        pollfd awaited[] = { { .fd = stop.get(), .events = POLLIN, .revents = 0 },
                             { .fd = timer.get(), .events = POLLIN, .revents = 0 } };
        {
            const Kiln::ActivityUnlockAnchor unlocked;
            ::poll( awaited, 2, -1 );
        }
        if ( awaited[0].revents != 0 )
            return;
        std::uint64_t ticks = 0; // more than one if the work took longer: those are left out
        if ( ::read( timer.get(), &ticks, sizeof ticks ) != sizeof ticks )
            continue; // a signal came first
        Fleetlog::refreshTick();
        work();
    }
    // end of sample
}
