#pragma once

#include "interpose/Event.h"
#include "interpose/FaultInjector.h"
#include "sim/Chip.h"
#include "tools/model/BringupFile.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// Running steps on simulated chips: what `run` and `bringup` have in common.

namespace Tool {

struct SessionOptions {
    /// Kiln settings, "ApiCairn/4".
    std::vector<std::string> trace;
    /// Where trace lines go; empty: standard error.
    std::string traceFile;
    /// The folder of the binary trace; empty: none is written.
    std::string traceDir;
    /// The folder of the recording of the SDK calls; empty: none is written.
    std::string recordTo;
    /// Faults as Interpose::parseFault reads them.
    std::vector<std::string> inject;
    /// Keeps the chips between commands; empty: nothing is kept.
    std::string state;
    /// Outcomes hold the SDK's operations.
    bool record = false;
};

/// A step and what came of it.
struct StepOutcome {
    const Step * step = nullptr;
    /// Counted from 1.
    std::size_t number = 0;
    /// Not so for a step under way, or one that stopped the process.
    bool isFinished = false;
    Result result = {};
    /// If they are recorded.
    std::vector<Interpose::Event> operations = {};

    /// What it must return: what the step expects, or true of a verify...; nothing if any result
    /// will do.
    std::optional<Result> wanted() const;
    bool isGood() const;
};

/// A fault that changed what a recipe saw.
struct Strike {
    Interpose::Fault fault;
    /// The step and the operation that it struck last, with the code that the recipe saw.
    std::size_t step = 0;
    Interpose::Event operation;
};

class Session;

/// Is told how a session goes on.
class SessionListener {
  public:
    /// The session waits for another process that uses the state file.
    virtual void waitsFor( const std::string & stateFile ) = 0;
    virtual void stepBegins( const Session & session, const StepOutcome & outcome ) = 0;
    virtual void stepEnded( const Session & session, const StepOutcome & outcome ) = 0;
    /// A recipe stopped the process, which dies of SIGABRT when this returns. The chips are saved.
    /// Called on another thread, while that of the recipe stands still.
    virtual void stopped( const Session & session ) = 0;
    /// A signal interrupts the session, and ends the process when this returns. The chips are
    /// saved. Called on another thread, while that of the recipe may be anywhere but in an SDK
    /// operation.
    virtual void interrupted( const Session & session, int signal ) = 0;

  protected:
    ~SessionListener() = default;
};

/// A bring-up on its simulated chips. Makes Shim::sdk_ its own while it lives; one at a time.
class Session {
  public:
    /// Checks the options and sets everything up; InputError if something is wrong. Nothing has
    /// been programmed or written then. The listener must outlive the session.
    Session( Bringup bringup, SessionOptions options, SessionListener & listener );
    ~Session();
    Session( const Session & ) = delete;
    Session & operator=( const Session & ) = delete;

    /// Runs the steps and saves the chips. Once. A recipe may stop the process; SIGINT, SIGTERM and
    /// SIGHUP end it. The chips are saved as they are then, after or before an SDK operation.
    void run();

    const Bringup & bringup() const;
    const Sim::Chip & chip() const;

    /// What came of the steps so far.
    const std::vector<StepOutcome> & outcomes() const;
    /// Why the chips could not be saved; empty if they were, or need not be.
    const std::string & saveError() const;

    /// The SDK operation under way, or else the last one.
    const std::optional<Interpose::Event> & lastCall() const;
    /// A fault struck the last call.
    bool lastCallIsStruck() const;
    /// The chip's own words if it refused the last call; empty if it did not.
    const std::string & lastRefusal() const;
    /// Faults that struck so far, in the order of their last strikes.
    const std::vector<Strike> & strikes() const;
    /// Faults that did not.
    std::vector<Interpose::FaultReport> idleFaults() const;

  private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

/// The facilities whose text trace `SessionOptions::trace` can ask for.
std::span<const std::string_view> traceFacilities();

} // namespace Tool
