#pragma once

#include "tracereader/Recording.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

// What each thread of a recording did, cut into pieces that belong together.

namespace Tool {

/// From a thread's first call, or its recipe's message, to the free of the last entry that it has
/// allocated. A recording does not hold where recipes begin and end: a span is one recipe, or the
/// part of one that works on one entry.
struct RecipeSpan {
    std::uint64_t number = 0; ///< from 1, in the order in which they began
    std::uint32_t process = 0;
    std::uint32_t thread = 0;
    std::int64_t begin = 0; ///< nanoseconds since 1970, UTC
    std::int64_t end = 0;   ///< of the last event so far
    /// Of its messages; empty if it wrote none. Many recipes write none.
    std::string_view recipe;
    std::string table; ///< of the first entry; empty if it allocated none
};

/// Nanoseconds from one time to a later one; 0 if it is not later.
constexpr std::int64_t elapsed( std::int64_t from, std::int64_t to ) noexcept {
    std::int64_t difference = 0;
    if ( __builtin_sub_overflow( to, from, &difference ) )
        return to < from ? 0 : INT64_MAX;
    return difference < 0 ? 0 : difference;
}

/// Finds the spans in the events of a recording.
///
/// The messages of a process whose threads share a trace file do not tell their thread. They count as
/// those of the thread that makes calls, as long as there is one alone.
class RecipeSpans {
  public:
    /// Takes all events, in their order. The span that ended before this event, or with it, if there
    /// is one.
    std::optional<RecipeSpan> take( const TraceReader::Event & event );

    /// The span that a thread is in, or that ended with the last event; null if there is none.
    const RecipeSpan * of( std::uint32_t process, std::uint32_t thread ) const;

    /// When all events have been taken: those that have not ended, one after the other.
    std::optional<RecipeSpan> takeOpen();

  private:
    struct Thread {
        RecipeSpan span;
        bool isOpen = false;
        std::size_t entries = 0; ///< that are allocated
        std::size_t calls = 0;   ///< that have not returned
    };
    struct Process {
        std::map<std::uint32_t, Thread> threads; ///< that make calls
        std::string_view recipe; ///< of a message before the first call, of an unknown thread
        std::int64_t time = 0;   ///< of that message
    };

    std::optional<RecipeSpan> takeMessage( const TraceReader::Record & record );
    std::optional<RecipeSpan> takeCall( const TraceReader::Event & event );
    std::string_view recipeOf( const TraceReader::Site & site );
    void open( Thread & thread, std::uint32_t process, std::uint32_t id, std::int64_t time );

    std::map<std::uint32_t, Process> processes_;
    std::unordered_map<const TraceReader::Site *, std::string_view> recipesOfSites_;
    std::uint64_t number_ = 0;
};

} // namespace Tool
