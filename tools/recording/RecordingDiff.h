#pragma once

#include "tools/recording/Alignment.h"
#include "tracereader/Recording.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <utility>
#include <vector>

// What differs between two recordings.

namespace Tool {

/// A step that is in one of the recordings, or in both with other operations.
struct StepDifference {
    std::optional<EntryStep> before = {};
    std::optional<EntryStep> after = {};

    const EntryStep & either() const { return before ? *before : *after; }
};

/// An operation of a difference, and on which side it is.
struct DifferenceLine {
    char mark = ' '; ///< '-', '+' or, on both sides, ' '
    const EntryStep::Operation * operation = nullptr;
};

/// The operations of a difference, those of both sides beside each other.
std::vector<DifferenceLine> linesOf( const StepDifference & difference );

struct RecordingDiffCounts {
    std::uint64_t steps = 0; ///< that are the same
    std::uint64_t added = 0;
    std::uint64_t removed = 0;
    std::uint64_t changed = 0;
    std::uint64_t reordered = 0; ///< that stood in another place, which is no difference

    bool isDifferent() const { return added + removed + changed > 0; }
};

/// Compares two recordings unit by unit: the steps of each are aligned in the order in which they were
/// complete (Alignment). A recording is read once for each unit, and once more at first.
class RecordingDiff {
  public:
    using Open = std::function<EntrySteps::Source()>;
    using OnDifference = std::function<void( const StepDifference & )>;

    RecordingDiff( Open before, Open after, const AlignmentLimits & limits = {} )
        : before_( std::move( before ) ), after_( std::move( after ) ), limits_( limits ) {}

    RecordingDiffCounts run( const OnDifference & onDifference );

  private:
    void compareUnit( std::optional<std::int32_t> unit, const OnDifference & onDifference );
    Alignment::Source stepsOf( const Open & open, std::optional<std::int32_t> unit );
    void tell( std::vector<AlignedStep> & unmatched, const OnDifference & onDifference );

    Open before_;
    Open after_;
    AlignmentLimits limits_;
    std::set<std::int32_t> units_; ///< that were met
    RecordingDiffCounts counts_;
};

} // namespace Tool
