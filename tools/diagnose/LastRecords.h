#pragma once

#include "tools/diagnose/Diagnosis.h"
#include "tools/diagnose/Sites.h"
#include "tracereader/Recording.h"
#include "tracereader/TraceReader.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// The last records that each thread left in a trace.

namespace Tool {

/// Opens the files of a trace, as often as it is read: at first all, then also those of one process.
using TraceSource = std::function<TraceReader::Merge( std::optional<std::uint32_t> process )>;

/// Those of a folder, or one file. InputError if there is no trace at all.
TraceSource traceAt( const std::string & path );

/// One thread's.
struct ThreadRecords {
    struct Line {
        std::int64_t time = 0;     ///< nanoseconds since 1970, UTC
        std::string function = {}; ///< the recipe; empty if the record has no site, or is a call
        std::string text = {};
        /// Of a message: its values by the words before them, "unit".
        std::vector<std::pair<std::string, std::string>> values = {};
    };
    std::uint32_t process = 0;
    std::uint32_t thread = 0; ///< 0: any thread of the process
    std::string program = {};
    /// Messages and recorded operations, the last first. Where a process writes the messages of all
    /// its threads into one file, they are among those of each thread that has operations.
    std::vector<Line> lines = {};

    /// The recipe of its last message; empty if there is none.
    std::string function = {};
    /// The SDK operation that came last, if the trace is a recording.
    std::optional<TraceReader::RecordedCall> lastCall = {};
};

/// The values of a message that have words before them, "unit: 0".
std::vector<std::pair<std::string, std::string>> valuesOf( const TraceReader::Record & message );

/// A thread of a trace, and how sure it is that it is the one.
struct ThreadFound {
    enum class How {
        byCall,    ///< its last operation is the one that the stop is about
        byMessage, ///< its last message is of the recipe
        byProcess, ///< it is of the process that the report names
    };
    const ThreadRecords * thread = nullptr; ///< null: there is none
    How how = How::byProcess;
    /// How many could be meant as well. The one that wrote last is taken.
    std::size_t others = 0;
};

class LastRecords {
  public:
    /// How many are kept for each thread.
    static constexpr std::size_t perThread = 20;

    /// Reads a trace to its end. What cannot be read, or is damaged, is in findings().
    explicit LastRecords( const TraceSource & source );

    /// Whether there are SDK operations in it.
    bool isRecording() const { return isRecording_; }

    /// The thread that a diagnosis is about. If the report names a process, it is one of its threads.
    ThreadFound find( const Diagnosis & diagnosis, const SiteTable & table ) const;

    /// Calls like this one, with the same code, that stopped other threads of the trace; the last
    /// first.
    std::vector<const TraceReader::RecordedCall *>
    failuresLike( const TraceReader::RecordedCall & call ) const;

    const std::vector<std::string> & findings() const { return findings_; }

  private:
    void read();
    void addMessagesOfProcesses();

    TraceReader::Merge merge_; // what is kept of calls points to its files
    bool isRecording_ = false;
    std::vector<ThreadRecords> threads_;
    std::vector<TraceReader::RecordedCall> failures_;
    std::vector<std::string> findings_;
};

} // namespace Tool
