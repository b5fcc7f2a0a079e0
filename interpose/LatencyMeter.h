#pragma once

#include "interpose/Interposer.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// The latency meter: an SDK that measures how long another one takes for its operations.
//
//     Interpose::LatencyMeter meter( agentsShim );
//     Shim::sdk_ = &meter;
//     ...
//     std::cout << toText( meter.latencies() );

namespace Interpose {

/// How long the operations of one kind on the entries of one table took.
struct Latency {
    SdkCall operation = SdkCall::entryFree;
    /// Empty for handles that no allocate through the meter handed out.
    std::string table = {};
    std::uint64_t count = 0;
    std::uint64_t failures = 0; ///< of these, with a negative code

    std::uint64_t total = 0; ///< nanoseconds
    std::uint64_t least = 0;
    std::uint64_t most = 0;

    /// How many took from 2^i up to 2^(i+1) nanoseconds; the first also less, the last also more.
    static constexpr std::size_t bucketCount = 40;
    std::array<std::uint64_t, bucketCount> buckets = {};

    /// A time in nanoseconds that `percent` percent of the operations did not exceed: the end of the
    /// bucket that the last of them is in, or the longest.
    std::uint64_t percentile( unsigned percent ) const;

    bool operator==( const Latency & ) const = default;
};

class LatencyMeter final : public Interposer {
  public:
    /// A clock in nanoseconds, from wherever it counts.
    using Clock = std::uint64_t ( * )() noexcept;
    static std::uint64_t steadyClock() noexcept;

    /// `inner` must outlive the meter.
    explicit LatencyMeter( Shim::Sdk & inner, Clock clock = steadyClock );
    ~LatencyMeter();

    /// What was measured since the meter was made or reset() was called, by table and operation.
    std::vector<Latency> latencies() const;
    void reset();

  private:
    int operate( const Operation & operation ) noexcept override;

    struct State;
    std::unique_ptr<State> state_;
};

// Threads: as the SDK behind it; what was measured is added up under a lock that is not held while the
// SDK works. Nothing is allocated once a table is known, and as many entries have been allocated at a
// time as are now.

/// A table with a line for each operation on each table: count, failures, and in microseconds the
/// least, the average, the 50th, 90th and 99th percentile and the most.
std::string toText( const std::vector<Latency> & latencies );

/// A JSON array of objects with the members of Latency; times in nanoseconds, and as buckets those
/// that are not empty, by the end of each: [[256,12],[512,3]].
std::string toJson( const std::vector<Latency> & latencies );

} // namespace Interpose
