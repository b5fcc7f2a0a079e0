#pragma once

#include "tracereader/TraceReader.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// The last records that each thread left in a trace.

namespace Tool {

/// One thread's.
struct ThreadRecords {
    struct Line {
        std::int64_t time = 0;     ///< nanoseconds since 1970, UTC
        std::string function = {}; ///< the recipe; empty if the record has no site
        std::string text = {};
    };
    std::uint32_t process = 0;
    std::uint32_t thread = 0; ///< 0: any thread of the process
    std::string program = {};
    std::vector<Line> lines = {}; ///< the last first
};

class LastRecords {
  public:
    /// How many are kept for each thread.
    static constexpr std::size_t perThread = 20;

    /// Reads all files of a folder, or one file. What cannot be read, or is damaged, is in
    /// findings(). InputError if there is no trace at all.
    explicit LastRecords( const std::string & path );

    /// The thread that stopped in `function`: the one whose last message is of that recipe. If the
    /// process is given, one of its threads, also if that has no message of the recipe. Null if there
    /// is none. Of several the one that wrote last; `others` is how many more there are.
    const ThreadRecords * find( std::string_view function, const std::uint32_t * process,
                                std::size_t & others ) const;

    const std::vector<std::string> & findings() const { return findings_; }

  private:
    std::vector<ThreadRecords> threads_;
    std::vector<std::string> findings_;
};

} // namespace Tool
