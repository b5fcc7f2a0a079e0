#pragma once

#include "tools/run/Observation.h"
#include "tools/sweep/SweepPlan.h"
#include "tools/sweep/SweepTables.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// The judge of the sweep: what a run of a recipe must look like, and where one does not.
//
// An undisturbed run is compared with what the plan states of its case. Its call texts, its lines
// and its effects on the tables are then expected of the disturbed runs, too; what a disturbed call
// leads to follows from its kind (SweepPlan.h) alone.

namespace Tool {

/// A line of "CairnLtHelper".
struct SweepMessage {
    std::size_t afterCalls = 0; ///< how many calls had been made
    std::string text = {};
};

/// All that was observed in a run. Of its notes only the messages are kept.
struct SweepRun : Observation {
    /// The recipes that run before the one that is swept came to their end.
    bool prepared = false;
    /// The recipe returned, with this result.
    bool returned = false;
    std::string result = {};
    /// The process has written down all that it observed.
    bool complete = false;

    std::vector<SweepMessage> messages = {};
    SweepTables tablesBefore = {};
    /// The rows of a call's table, for the calls that changed them.
    std::map<std::size_t, TableRows> writes = {};
    /// When the run was over, or stopped.
    SweepTables tables = {};
    std::vector<std::string> liveEntries = {};

    // The process
    int signal = 0;
    int exitCode = 0;
    std::string standardError = {};
};

/// A case, what is needed to run it, and how it went undisturbed.
struct SweptCase {
    const SweepCase * plan = nullptr;
    const Recipe * recipe = nullptr;
    Model model;
    std::vector<Argument> arguments;
    std::vector<std::pair<const Recipe *, std::vector<Argument>>> before;
    /// The unit of the fields in SweepCase::holds.
    int unit = 0;
    /// All chips are the reference chip, but for what the plan varies: no guarded call is refused,
    /// and the case takes the branch that the plan says.
    bool isReference = false;

    SweepRun undisturbed;
    /// The case of SweepCase::fallback, null if it could not be run.
    const SweptCase * fallback = nullptr;
};

/// What happens to one call.
struct SweepFault {
    enum class Kind : std::uint8_t {
        fails,         ///< returns a negative code and does not reach the chip
        positive,      ///< returns a positive code, whatever the chip says
        succeeds,      ///< returns 0 although the chip refuses it
        invalidHandle, ///< an allocate that returns 0 and BCMLT_INVALID_HDL
    };
    Kind kind = Kind::fails;
    /// Its place in SweepRun::calls of the undisturbed run.
    std::size_t call = 0;
};

/// "returns -1", "leaves the handle invalid".
std::string toText( SweepFault::Kind kind );
/// A word for programs: "fails".
std::string_view name( SweepFault::Kind kind );

/// The code that a struck call returns. For the simulated chip -1 means a null pointer, which no
/// recipe passes.
int codeOf( SweepFault::Kind kind );

/// How a run must end.
struct SweepEnding {
    enum class Kind : std::uint8_t {
        returns,   ///< `text` is the result
        report,    ///< of the call `text` in `line`, with its code; the assertion "0" follows
        assertion, ///< `text`, which stands behind `line`
    };
    Kind kind = Kind::returns;
    std::string text = {};
    int rc = 0;
    int line = 0;
    /// Assertions: the line of the next call, or 0.
    int before = 0;
};

/// What a run must look like.
struct SweepExpectation {
    std::string function;  ///< in trace lines
    std::string signature; ///< in assertions
    std::vector<ObservedCall> calls;
    std::vector<std::string> messages;
    SweepEnding ending;
    std::vector<std::string> liveEntries;
    SweepTables tables;
    /// Has the schemas of the tables.
    const Model * model = nullptr;
    /// The call that is struck, if one is.
    std::optional<std::size_t> struck;
};

/// How it must end, in words.
std::string toText( const SweepExpectation & expectation );

/// The call of the undisturbed run that the chip refuses and that stops it; null if there is none.
const ObservedCall * refusedCall( const SweptCase & swept );

/// What is wrong with the undisturbed run; empty if nothing is.
std::vector<std::string> judgeUndisturbed( const SweptCase & swept );

/// The undisturbed run as it must have been, given what the chip answered.
SweepExpectation expectUndisturbed( const SweptCase & swept );

/// The faults that a case is swept with.
std::vector<SweepFault> faultsOf( const SweptCase & swept );

/// What a run with one of these faults must look like.
SweepExpectation expectFault( const SweptCase & swept, const SweepFault & fault );

/// Where a run is not as expected: a line for each difference.
std::vector<std::string> judge( const SweepExpectation & expectation, const SweepRun & run );

} // namespace Tool
