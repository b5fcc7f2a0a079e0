#pragma once

#include "tools/recording/EntrySteps.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <unordered_map>
#include <utility>

// Two sequences of steps beside each other, in bounded memory however long they are.

namespace Tool {

/// A place of the alignment: a step that is in both sequences, or in one of them.
struct AlignedStep {
    std::optional<EntryStep> before = {};
    std::optional<EntryStep> after = {};

    bool isSame() const { return before && after; }
};

struct AlignmentLimits {
    /// A stretch that one sequence lacks is found if it is no longer than this. After a longer one
    /// steps count as different until the sequences meet again within this distance.
    std::size_t lookahead = 1 << 16;
    /// A step that stands in another place is found over so many steps.
    std::size_t reordering = 4096;
};

/// Steps that are the same stand beside each other, as many as a longest common subsequence has
/// between places where several in a row are the same.
///
/// Steps of several threads have no order: a step that is in both sequences, but in another place,
/// is the same all the same, unless it changed places with a step of its own thread in both.
class Alignment {
  public:
    using Source = std::function<bool( EntryStep & )>;

    Alignment( Source before, Source after, const AlignmentLimits & limits = {} );

    /// The next place; false at the end.
    bool next( AlignedStep & place );

    /// Steps that stood in another place.
    std::uint64_t reordered() const { return reordered_; }

  private:
    // One of the two sequences, with what has been read ahead of it.
    class Side {
      public:
        explicit Side( Source source ) : source_( std::move( source ) ) {}

        // How many steps there are up to `count`.
        std::size_t fill( std::size_t count );
        bool isAtEnd() const { return isAtEnd_; }
        const EntryStep & at( std::size_t i ) const { return ahead_[i]; }
        EntryStep take();

      private:
        Source source_;
        std::deque<EntryStep> ahead_;
        bool isAtEnd_ = false;
    };
    struct Distance {
        std::size_t before = 0;
        std::size_t after = 0;
    };
    bool advance();
    Distance distanceToMeeting();
    std::optional<Distance> findMeeting( std::size_t range );
    void alignBlock( const Distance & block );
    void putSame();
    void putUnmatched( AlignedStep step );
    bool mayHavePassed( const AlignedStep & moved, std::size_t from ) const;

    Side before_;
    Side after_;
    const AlignmentLimits limits_;
    /// What is aligned, and kept back in case that a step turns up in another place.
    std::deque<AlignedStep> places_;
    std::uint64_t taken_ = 0; ///< places that have been before these
    /// The places among these that are in the first sequence alone, and in the second alone, by their
    /// hashes, as numbers that count from the first place of all.
    std::unordered_map<std::uint64_t, std::deque<std::uint64_t>> removed_;
    std::unordered_map<std::uint64_t, std::deque<std::uint64_t>> added_;
    std::uint64_t reordered_ = 0;
};

} // namespace Tool
