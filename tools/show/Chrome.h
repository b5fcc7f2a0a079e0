#pragma once

#include "tools/show/RecipeSpans.h"
#include "tracereader/Recording.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>

// A trace in the trace-event format, a JSON document that the viewers of Chromium and Perfetto open.

namespace Tool {

/// Writes recipes and SDK calls as slices within each other, by thread; messages as instants; how long
/// each operation took as counters. Times are microseconds since the first event, whose time stands
/// in `otherData`: a JSON number has no room for the nanoseconds since 1970.
///
/// The document is written piece by piece. What is kept is the calls of the recipes that have not
/// ended, up to some size.
class Chrome {
  public:
    using Write = std::function<void( std::string_view )>;

    explicit Chrome( Write write );

    /// Takes all events, in their order. Of the calls, those are written that are wanted when they
    /// have returned, or at the end if they have not.
    void take( const TraceReader::Event & event, bool isWanted );

    /// When all events have been taken: writes the end of the document.
    void finish();

  private:
    // A span that has wanted calls.
    struct Pending {
        std::string
            name; ///< and category, of its begin, as they are written; empty: it is not begun
        std::string calls; ///< that lie within it
    };

    void takeMessage( const TraceReader::Record & record );
    void takeCall( const TraceReader::RecordedCall & call, bool isReturned );
    void begin( const RecipeSpan & span, Pending & pending );
    void end( const RecipeSpan & span );
    void appendNames( std::string & out, const TraceReader::File & file, std::uint32_t process,
                      std::uint32_t thread );
    void appendStart( std::string & out, char phase, std::int64_t time, std::uint32_t process,
                      std::uint32_t thread );
    void appendTime( std::string & out, std::string_view member, std::int64_t nanoseconds ) const;
    void flush( std::size_t least );

    Write write_;
    std::string out_;
    bool isFirst_ = true; ///< no event has been written
    std::optional<std::int64_t> firstTime_;
    RecipeSpans spans_;
    std::map<std::uint64_t, Pending> pending_; ///< by the number of the span
    std::set<std::uint32_t> namedProcesses_;
    std::set<std::pair<std::uint32_t, std::uint32_t>> namedThreads_;
};

} // namespace Tool
