#include "tracereader/Clock.h"

#include <algorithm>
#include <cmath>

namespace TraceReader {

std::int64_t Clock::time( std::uint64_t counter ) const noexcept {
    // A damaged counter must not leave the range of the result.
    constexpr double most = 9.2e18;
    const auto counts = static_cast<double>( static_cast<std::int64_t>( counter - baseCounter ) );
    const double time = std::clamp( counts * nanosecondsPerCount, -most, most );
    std::int64_t sum = 0;
    if ( __builtin_add_overflow( baseTime, static_cast<std::int64_t>( time ), &sum ) )
        return time < 0 ? INT64_MIN : INT64_MAX;
    return sum;
}

std::int64_t measure( Clock & clock, const Ring::Block & last ) {
    constexpr std::int64_t leastSpan = 100'000'000;
    constexpr double mostDeviation = 1e-3;
    std::int64_t span = 0;
    if ( __builtin_sub_overflow( last.time, clock.baseTime, &span ) || span < leastSpan ||
         last.counter <= clock.baseCounter )
        return 0;
    const double measured =
        static_cast<double>( span ) / static_cast<double>( last.counter - clock.baseCounter );
    if ( std::abs( measured / clock.nanosecondsPerCount - 1 ) > mostDeviation )
        return 0;
    clock.nanosecondsPerCount = measured;
    return span;
}

} // namespace TraceReader
