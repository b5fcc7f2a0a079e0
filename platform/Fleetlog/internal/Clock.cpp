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

namespace {

constexpr int attempts = 16;

// The counter's rate is measured from here on. Taken when the library is loaded: when a file is made,
// time has passed, and nothing has to wait for it.
const ClockSample & firstSample() noexcept {
    static const ClockSample sample = sampleClocks( CLOCK_MONOTONIC, attempts );
    return sample;
}
[[maybe_unused]] const ClockSample & atLoad = firstSample();

} // namespace

const ClockBase & clockBase() noexcept {
    static const ClockBase measured = [] {
        // Less only if a file is made while the library is being loaded.
        constexpr std::int64_t leastNanoseconds = 500'000;
        const ClockSample & first = firstSample();
        ClockSample last{};
        do
            last = sampleClocks( CLOCK_MONOTONIC, attempts );
        while ( last.time - first.time < leastNanoseconds );
        const auto counts = static_cast<double>( last.counter - first.counter );
        const auto nanoseconds = static_cast<double>( last.time - first.time );
        return ClockBase{ sampleClocks( CLOCK_REALTIME, attempts ),
                          static_cast<std::uint64_t>( counts * 1e9 / nanoseconds ) };
    }();
    return measured;
}

} // namespace Fleetlog
