#include <Fleetlog/internal/Clock.h>

#include <Fleetlog/RingBuf.h>

namespace Fleetlog {

namespace {

std::int64_t read( clockid_t clock ) noexcept {
    timespec now{};
    ::clock_gettime( clock, &now );
    return now.tv_sec * 1'000'000'000 + now.tv_nsec;
}

} // namespace

#if !defined( __x86_64__ )
std::uint64_t readCounter() noexcept {
    return static_cast<std::uint64_t>( read( CLOCK_MONOTONIC ) );
}
#endif

std::int64_t wallClock() noexcept { return read( CLOCK_REALTIME ); }

std::int64_t coarseWallClock() noexcept { return read( CLOCK_REALTIME_COARSE ); }

ClockSample sampleClocks( clockid_t clock, int attempts ) noexcept {
    ClockSample best{};
    std::uint64_t shortest = UINT64_MAX;
    for ( int attempt = 0; attempt < attempts; ++attempt ) {
        const std::uint64_t before = readCounter();
        const std::int64_t now = read( clock );
        const std::uint64_t took = readCounter() - before;
        if ( took < shortest ) {
            shortest = took;
            best = { before + took / 2, now };
        }
    }
    return best;
}

const ClockBase & clockBase() noexcept {
    static const ClockBase measured = [] {
        constexpr int attempts = 16;
        const ClockSample first = sampleClocks( CLOCK_MONOTONIC, attempts );
        const timespec pause{ .tv_sec = 0, .tv_nsec = 5'000'000 };
        nanosleep( &pause, nullptr );
        const ClockSample second = sampleClocks( CLOCK_MONOTONIC, attempts );
        const auto counts = static_cast<double>( second.counter - first.counter );
        const auto nanoseconds = static_cast<double>( second.time - first.time );
        return ClockBase{ sampleClocks( CLOCK_REALTIME, attempts ),
                          static_cast<std::uint64_t>( counts * 1e9 / nanoseconds ) };
    }();
    return measured;
}

} // namespace Fleetlog
