#pragma once

#include "sim/Chip.h"
#include "tools/recording/RecipeOfThread.h"
#include "tracereader/Recording.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

// Performs the operations of a recording on a simulated chip.

namespace Tool {

struct ReplayRules {
    /// Whether the beginning is lost, so that rows that nobody has written yet may hold anything:
    /// asked where something diverges. Empty: the chip is as it was when recording began.
    std::function<bool()> hasLostBeginning = {};
    /// Of codes, only whether an operation succeeded is compared.
    bool ignoresCodes = false;
    /// Values that were read are not compared.
    bool ignoresValues = false;
};

/// An operation that did not do what it did when it was recorded.
struct Divergence {
    const TraceReader::RecordedCall & call;
    /// What came; what was recorded stands in the call.
    int rc = 0;
    std::optional<std::uint64_t> value = {}; ///< a field get that succeeded both times
    /// The chip's words for its failure; empty if it did not fail.
    std::string chipSays = {};
    std::string_view recipe = {}; ///< empty: not known
};

/// What the chip returned for an operation, or would return for one that had failed.
struct Judgement {
    const TraceReader::RecordedCall & call;
    int rc = 0;
    std::optional<std::uint64_t> value = {}; ///< a field get that succeeds
};

struct ReplayCounts {
    std::uint64_t operations = 0;  ///< performed, or failed as they were recorded
    std::uint64_t divergences = 0; ///< of these
    /// A guarded call failed for a reason that is none of the chip's, which stopped what was
    /// recorded: it is taken from the recording, and the chip does not hear of it.
    std::uint64_t failuresFromOutside = 0;

    // --- What could not be performed, or not compared

    std::uint64_t withoutInputs = 0;  ///< the first half, or a part of a long one, is not there
    std::uint64_t ofOlderEntries = 0; ///< the entry was allocated before the recording begins
    std::uint64_t ofLostEntries = 0;  ///< the chip did not give the entry; that was a divergence
    std::uint64_t onUnknownRows = 0; ///< what the row held before the recording begins is not known
    std::uint64_t neverReturned = 0;
};

/// Takes the events of a recording one after the other. Operations are performed at the moment at
/// which they had returned, which is the order in which threads saw each other's.
///
/// A failed operation changes nothing: one that failed when it was recorded is not performed if the
/// chip would accept it.
class Replay {
  public:
    using OnDivergence = std::function<void( const Divergence & )>;

    /// `chip` must outlive the replay. `name` is what messages (InputError) call the recording.
    Replay( Sim::Chip & chip, const ReplayRules & rules, std::string name,
            OnDivergence onDivergence );

    /// Tells of each operation, before it is compared with what was recorded. If it failed, the chip's
    /// lastError() has the words for it.
    void watch( std::function<void( const Judgement & )> onJudgement ) {
        onJudgement_ = std::move( onJudgement );
    }

    /// InputError if the recording allocated an entry of a table that the chip does not have.
    void take( const TraceReader::Event & event );

    const ReplayCounts & counts() const { return counts_; }

    /// The operations that came last, oldest first; without the one that is being performed.
    std::vector<const TraceReader::RecordedCall *> latest() const;
    static constexpr std::size_t maxLatest = 8;

  private:
    using Call = TraceReader::RecordedCall;

    struct Entry {
        std::uint32_t handle = 0;   ///< the chip's; 0: the chip did not give it
        std::uint64_t freeCall = 0; ///< the number of the call that is freeing it
    };
    struct Outcome {
        int rc = 0;
        std::optional<std::uint64_t> value = {};
    };

    void change( const TraceReader::HardwareChange & change );
    void perform( const Call & call );
    void allocate( const Call & call );
    Outcome performOn( std::uint32_t handle, const Call & call );
    Outcome judge( std::uint32_t handle, const Call & call );
    void settle( const Call & call, const Outcome & outcome,
                 std::optional<std::uint32_t> liveHandle = {} );
    bool isOnUnknownRow( const Call & call, std::uint32_t handle );
    void finishEarlyFree( std::uint32_t recorded );
    void forget( std::uint32_t recorded );
    void checkTable( const Call & call ) const;
    std::uint32_t numberOf( const TraceReader::SdkConstant & constant );
    void remember( const Call & call );

    Sim::Chip & chip_;
    const ReplayRules rules_;
    const std::string name_;
    const OnDivergence onDivergence_;
    std::function<void( const Judgement & )> onJudgement_;
    ReplayCounts counts_;
    RecipeOfThread recipes_;
    std::unordered_map<std::uint32_t, bool> isGuarded_; ///< by thread: its hook has run
    std::unordered_map<std::uint32_t, Entry> entries_;  ///< by the handle that was recorded
    /// Entries that were freed: using them again fails as it did. Bounded: the oldest are forgotten.
    std::unordered_map<std::uint32_t, std::uint32_t> freed_;
    std::deque<std::uint32_t> freedInOrder_;
    std::vector<std::uint64_t> freedEarly_; ///< calls whose free is done already
    std::vector<std::pair<std::uint32_t, std::uint32_t>> constants_; ///< recorded, and the chip's
    std::array<Call, maxLatest> latest_;
    std::size_t remembered_ = 0;
};

} // namespace Tool
