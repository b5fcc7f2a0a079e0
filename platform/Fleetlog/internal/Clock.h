#pragma once

#include <cstdint>
#include <ctime>

// The clocks behind the times of a trace.

namespace Fleetlog {

/// The counter and a clock of the system, in nanoseconds, at one instant.
struct ClockSample {
    std::uint64_t counter;
    std::int64_t time;
};

/// Reads both `attempts` times and returns the pair that was read in the shortest time.
ClockSample sampleClocks( clockid_t clock, int attempts ) noexcept;

/// Nanoseconds since 1970, UTC.
std::int64_t wallClock() noexcept;

/// The same as it was at the kernel's last tick, some milliseconds ago; cheaper.
std::int64_t coarseWallClock() noexcept;

/// What turns counters into times, the same in all files of a process: its threads' files can be
/// merged by time.
struct ClockBase {
    ClockSample base;   ///< with the wall clock: nanoseconds since 1970, UTC
    std::uint64_t rate; ///< of the counter, a second
};

/// Measured at the first call: over the time since the library was loaded, the longer the better.
const ClockBase & clockBase() noexcept;

} // namespace Fleetlog
