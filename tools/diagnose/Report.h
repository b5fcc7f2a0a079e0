#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Finds in any text the lines that the library and its platform write when they stop a process.

namespace Tool {

/// How a process was stopped, as its last lines say.
struct Stop {
    enum class Kind {
        apiError,   ///< an SDK call failed: "FILE:LINE CALL API ERROR:WORDS (CODE)"
        assertion,  ///< "PROGRAM: FILE:LINE: SIGNATURE: Assertion `EXPRESSION' failed."
        lockMisuse, ///< "Kiln activity lock: WHAT"
    };
    Kind kind;
    /// What stands before the line: a time, a host, a process as a journal writes them.
    std::string prefix = {};
    std::size_t reportLine = 0; ///< from 1

    int line = 0;           ///< in the source of the library
    std::string text = {};  ///< the call; of an assertion its expression; else what was misused
    std::string words = {}; ///< of the SDK, for the code
    int rc = 0;
    std::string program = {};   ///< empty if no assertion line says it
    std::string signature = {}; ///< likewise

    // What cairn-lt adds when it stops itself; empty for other programs.
    std::string step = {};      ///< the recipe with its arguments
    std::string operation = {}; ///< the last SDK call
    std::string chipSays = {};  ///< the words of the simulated chip for its refusal
    std::string fault = {};     ///< the one that was injected and struck that call

    /// The process id that stands in the prefix in brackets, as a journal writes it.
    std::optional<std::uint32_t> process() const;
};

/// Takes a report line by line. Lines of several processes may be mixed.
class ReportReader {
  public:
    /// A line without its end.
    void add( std::string_view line );

    /// Whether no line was added.
    bool isEmpty() const { return line_ == 0; }

    const std::vector<Stop> & stops() const { return stops_; }

    /// More are counted, and not kept.
    static constexpr std::size_t maxStops = 10000;
    std::size_t count() const { return count_; }

  private:
    void keep( Stop stop );
    bool complete( const Stop & assertion );
    bool addOfTool( std::string_view line );

    std::vector<Stop> stops_;
    std::size_t count_ = 0;
    std::size_t line_ = 0;
};

} // namespace Tool
