#pragma once

#include "tools/show/RecipeSpans.h"
#include "tracereader/Recording.h"

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// Recorded calls as folded stacks, of which flame graphs are drawn.

namespace Tool {

/// Adds up the time of calls by recipe, table and operation:
///     setVxlanDecapAdaptLookup;VXLAN_CONTROL;bcmlt_entry_commit 5300
/// The number is nanoseconds. A hook has no table. A call that a hook makes stands behind the hook, and
/// its time is not part of the hook's. Memory grows with the number of stacks, not of calls.
class Folded {
  public:
    /// Takes all events, in their order. Of the calls, those are counted that are wanted when they
    /// have returned.
    void take( const TraceReader::Event & event, bool isWanted );

    /// When all events have been taken: a line for each stack, by name.
    std::string text();

    /// Calls that were wanted and have no time: a half of each is not in the recording.
    std::uint64_t callsWithoutTime() const noexcept { return withoutTime_; }

  private:
    struct OpenCall {
        std::uint64_t number;
        std::string frames;              ///< with those of the calls that it lies in
        std::uint64_t nanosecondsWithin; ///< of the calls that it made
    };
    using Times = std::map<std::string, std::uint64_t>; ///< by frames

    void begin( const TraceReader::RecordedCall & call );
    void end( const TraceReader::RecordedCall & call, bool isWanted );
    void addSpan( const RecipeSpan & span );

    RecipeSpans spans_;
    std::map<std::pair<std::uint32_t, std::uint32_t>, std::vector<OpenCall>> open_; ///< by thread
    std::map<std::uint64_t, Times> timesOfSpans_; ///< that have not ended, by number
    Times times_;
    std::uint64_t withoutTime_ = 0;
};

} // namespace Tool
