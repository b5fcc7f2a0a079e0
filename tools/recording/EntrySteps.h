#pragma once

#include "tools/recording/RecipeOfThread.h"
#include "tracereader/Recording.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

// A recording as what was done with entries, so that recordings compare whatever the handles, times
// and threads were.

namespace Tool {

/// What a thread did with an entry up to a commit: the allocate or what followed the commit before,
/// the fields that were added, the commit, what was read, and the free if it came next.
struct EntryStep {
    struct Operation {
        std::uint64_t number = 0; ///< of the call
        std::string text = {};    ///< without the handle and the table
    };
    /// Nothing, and an empty table: the entry was allocated before the recording begins.
    std::optional<std::int32_t> unit = {};
    std::string table = {};
    std::string_view recipe = {}; ///< empty: not known
    std::uint32_t thread = 0;
    std::vector<Operation> operations = {};
    std::uint64_t hash = 0; ///< of the unit, the table and the texts

    /// However much is added to an entry at once, a step has at most so many operations.
    static constexpr std::size_t maxOperations = 1024;
};

/// What a call is, as a text that is the same in another recording: "add PORT_ID = 5".
std::string operationText( const TraceReader::RecordedCall & call );

/// Turns the events of a recording into steps, in the order in which they were complete. Steps of
/// entries that were never freed come at the end. It keeps in memory what belongs to entries that
/// are allocated.
class EntrySteps {
  public:
    using Source = std::function<bool( TraceReader::Event & )>;

    explicit EntrySteps( Source source ) : source_( std::move( source ) ) {}

    /// The next step; false at the end.
    bool next( EntryStep & step );

  private:
    struct OpenStep {
        EntryStep step;
        bool isCommitted = false;
    };

    void take( const TraceReader::Event & event );
    void finish( EntryStep && step );

    Source source_;
    RecipeOfThread recipes_;
    std::unordered_map<std::uint32_t, OpenStep> open_; ///< by handle
    std::deque<EntryStep> ready_;
    bool isAtEnd_ = false;
};

} // namespace Tool
