#pragma once

#include "tools/diagnose/Diagnosis.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

// Many stops, told apart by what they have in common.

namespace Tool {

/// When a report was written, nanoseconds since 1970, UTC: the time that begins the prefix of a
/// line, "2026-03-01T07:30:00Z", or nothing.
std::optional<std::int64_t> timeOf( const Stop & stop );

/// What stops of one kind have in common: the same recipe, text and code.
std::string signatureOf( const Diagnosis & diagnosis );

/// Stops of one kind: the same recipe, text and code.
struct StopGroup {
    Diagnosis first;         ///< the one that was added first
    std::string report = {}; ///< that it stands in
    std::size_t count = 0;
    std::size_t reports = 0; ///< that hold one
    std::optional<std::int64_t> earliest = {};
    std::optional<std::int64_t> latest = {};
    /// How many are of which release of the library; empty name: it is not known. At most maxReleases
    /// are told apart.
    std::map<std::string, std::size_t> releases = {};
    static constexpr std::size_t maxReleases = 100;
    std::string lastReport = {};
};

class Fleet {
  public:
    /// More groups are counted, and not kept: their texts come from the reports.
    static constexpr std::size_t maxGroups = 10000;

    /// `time`: of the stop or of its report, as far as it is known. `release`: empty if not known. The stops of a report are added
    /// one after the other.
    void add( const Diagnosis & diagnosis, const std::string & report,
              std::optional<std::int64_t> time, const std::string & release );

    /// The most frequent first.
    std::vector<const StopGroup *> groups() const;

    std::size_t stops() const { return stops_; }
    /// Stops whose group is not kept.
    std::size_t notKept() const { return notKept_; }

  private:
    std::map<std::string, StopGroup> groups_;
    std::size_t stops_ = 0;
    std::size_t notKept_ = 0;
};

} // namespace Tool
