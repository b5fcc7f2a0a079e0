#pragma once

#include "tools/sweep/SweepJudge.h"

#include <Shim/Sdk.h>

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

// Running the sweep: each run in a process of its own, as many at a time as there are processors.

namespace Tool {

/// One fault and its outcome.
struct SweepFaultReport {
    SweepFault fault;
    /// The text of the call that was struck.
    std::string call;
    /// What must happen, in words.
    std::string expected;
    /// What happened differently; empty if nothing did.
    std::vector<std::string> differences;
};

/// One case and what came of it.
struct SweepCaseReport : SweptCase {
    /// Why the case was not swept; empty if it was.
    std::string leftOut = {};
    /// The call that the chip refuses although nothing is disturbed, and why; empty if there is
    /// none.
    std::string refused = {};
    /// How the undisturbed run must end, and where it is not as stated. A case with differences
    /// here is not swept with faults.
    std::string expected = {};
    std::vector<std::string> differences = {};
    std::vector<SweepFaultReport> faults = {};
};

struct SweepReport {
    std::vector<SweepCaseReport> cases;

    // Counts
    std::size_t faults = 0;
    std::size_t leftOut = 0;
    std::size_t refused = 0;
    /// Undisturbed runs and faults with differences.
    std::size_t unexpected = 0;
};

struct SweepSetup {
    /// Called after each run: how many are over, and how many there are as far as is known.
    std::function<void( std::size_t done, std::size_t total )> progress = {};
    /// Called with each disturbed run, in the order of the faults.
    std::function<void( const SweptCase & swept, const SweepFault & fault,
                        const SweepExpectation & expectation, const SweepRun & run )>
        onFault = {};
    /// Puts an SDK between the library and the observer. Called in the process of each run; what it
    /// returns lives until that process ends.
    std::function<Shim::Sdk &( Shim::Sdk & watched )> around = {};
};

/// Sweeps the cases of these recipes on the chips of a model. Throws Trouble if no process can be
/// started.
SweepReport sweepRecipes( const Model & model, const std::vector<const Recipe *> & recipes,
                          const SweepSetup & setup );

} // namespace Tool
