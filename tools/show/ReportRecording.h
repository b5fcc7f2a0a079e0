#pragma once

#include "sim/Chip.h"
#include "tools/show/RecipeSpans.h"
#include "tools/show/Report.h"
#include "tracereader/Recording.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

// Makes a report of what a recording, or any trace, has: its calls, what they belong to, its
// messages, and the rows of the chip with those who wrote them.

namespace Tool {

/// A step that is known to have been made, on one thread, and how many SDK operations it made.
struct ReportStep {
    std::string recipe; ///< "block" and the like are no recipes, but steps as well
    std::string text;   ///< with its arguments
    std::size_t operations = 0;
    bool isBad = false;
};

class ReportRecording {
  public:
    /// What writes a row, and what calls belong to, are told by `steps` if there are any, else by the
    /// messages of recipes. The chip tells what tables there are; its contents do not matter.
    ReportRecording( Report & report, const Sim::Chip & chip, std::vector<ReportStep> steps = {} );

    /// Says that messages that name no thread are those of this one.
    void nameThread( std::uint32_t process, std::uint32_t thread );

    /// The events of a recording, messages among them, one after the other.
    void take( const TraceReader::Event & event );

    /// After all events: what never returned has lasted until now, and the facts are counted.
    void finish();

    /// The rows that the chip has, what they held before, and who wrote them.
    void addTables( const Sim::Chip & before, const Sim::Chip & after );

    /// The place of the call that stopped a thread; nothing if none did.
    std::optional<std::size_t> stop() const { return stop_; }

    /// The recipe that the stopped thread told of last; empty if it told of none.
    std::string_view lastRecipe() const { return lastRecipe_; }

    /// The recipe that a call belongs to; empty if it is not known.
    std::string recipeOf( std::size_t call );

  private:
    using Call = TraceReader::RecordedCall;

    // What a thread is doing.
    struct Thread {
        std::uint32_t number = 0;
        std::optional<std::size_t> span = {}; ///< its place
        std::uint64_t spanNumber = 0;         ///< as RecipeSpans counts
        std::optional<std::size_t> last = {}; ///< the call that returned last
        std::string_view recipe = {};         ///< of its last message
    };

    // What an entry carries, as far as it says which row is written, and what of it.
    struct Entry {
        int unit = 0;
        const Sim::Table * table = nullptr;
        Sim::RowId id;
        std::vector<std::size_t> fields;
    };

    Thread & threadOf( std::uint32_t process, std::uint32_t thread );
    void addMessage( const TraceReader::Event & event );
    ReportSpan * spanOf( std::size_t call );
    void begin( const Call & call );
    void end( const Call & call );
    std::size_t addCall( const Call & call );
    void enterStep( Thread & thread, std::int64_t time );
    void openSpan( Thread & thread, ReportSpan span );
    void enterSpan( Thread & thread, const RecipeSpan & span );
    void renewSpan( const Thread & thread, const RecipeSpan & span );

    void follow( const Call & call, std::size_t place );
    void carry( Entry & entry, const Call & call ) const;
    void commit( const Entry & entry, const Call & call, std::size_t place );
    static std::string keyOf( int unit, const Sim::Table & table, const Sim::RowId & id );

    Report & report_;
    const Sim::Chip & chip_;
    const std::vector<ReportStep> steps_;
    std::size_t nextStep_ = 0;
    std::size_t operationsOfStep_ = 0; ///< that are still to come
    RecipeSpans spans_;
    std::set<std::string_view> recipes_; ///< that wrote messages
    std::map<std::uint32_t, std::uint32_t> threadOfProcess_;
    std::map<std::pair<std::uint32_t, std::uint32_t>, Thread> threads_;
    std::unordered_map<std::uint64_t, std::size_t> underWay_; ///< places, by number
    std::optional<std::size_t> stop_;
    std::string_view lastRecipe_;
    std::int64_t lastTime_ = INT64_MIN;
    std::uint64_t failed_ = 0;
    std::uint64_t commits_ = 0;

    std::unordered_map<std::uint32_t, Entry> entries_; ///< by handle
    /// By row: for each field the place of the call that wrote it last, + 1.
    std::unordered_map<std::string, std::vector<std::size_t>> writers_;
    std::size_t writerCount_ = 0; ///< of all rows
};

} // namespace Tool
