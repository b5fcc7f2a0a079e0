#pragma once

#include "sim/Chip.h"
#include "tools/diagnose/Diagnosis.h"
#include "tools/diagnose/LastRecords.h"
#include "tools/diagnose/Sites.h"
#include "tools/recording/Replay.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// What a trace tells of the recipe that a process was stopped in: with what it was called, what it
// left half done, and what a simulated chip in the same state says to the operation that failed.

namespace Tool {

struct CrashScene {
    /// Arguments of the recipe, by name, in its order; those that the trace tells.
    std::vector<std::pair<std::string, std::string>> arguments = {};

    // --- With a recording

    /// The operation that the stop is about.
    std::optional<TraceReader::RecordedCall> operation = {};
    /// Entries that the thread had allocated and not freed: "entry 1 of PC_PORT on unit 0".
    std::vector<std::string> openEntries = {};
    /// Rows that the recipe changed before, the last first: "unit 0 PC_PORT: add PORT_ID = 0, ...".
    std::vector<std::string> changedRows = {};
    std::size_t changes = 0; ///< of which those are the last ones
    /// Changes are those since the recipe said that it begins. Otherwise runs of the same recipe
    /// just before may be among them.
    bool isOneRun = false;
    static constexpr std::size_t maxChangedRows = 16;

    /// What the simulated chip says.
    struct Trial {
        int rc = 0;
        std::optional<std::uint64_t> value = {}; ///< a field that was read
        std::string chipSays = {};               ///< if it refuses
    };
    /// Nothing: it could not be tried, see `problem`.
    std::optional<Trial> trial = {};
    /// Why the chip could not be rebuilt; empty if it was.
    std::string problem = {};
    bool hasLostBeginning = false;
    ReplayCounts counts = {};

    enum class Verdict {
        untried,  ///< the chip or the entry could not be rebuilt
        refuses,  ///< the simulated chip refuses what failed
        accepts,  ///< it accepts what failed: the cause is the device's or the SDK's
        agrees,   ///< what succeeded succeeds, with the same value
        disagrees ///< what succeeded fails, or gives another value
    };
    Verdict verdict() const;
};

/// What the simulated chip says to the operation, in a sentence or two.
std::string trialText( const CrashScene & scene );

/// What the messages of the thread tell. `diagnosis` has one site.
CrashScene sceneOf( const ThreadRecords & thread, const Diagnosis & diagnosis );

/// Also what its recording tells: the one of its process is read once more and performed on `chip`,
/// which is then as the process's was. The thread has a last call.
CrashScene rebuild( const TraceSource & source, const ThreadRecords & thread,
                    const Diagnosis & diagnosis, const SiteTable & table, Sim::Chip & chip );

} // namespace Tool
