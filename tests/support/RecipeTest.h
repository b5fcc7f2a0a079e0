#pragma once

#include "interpose/FaultInjector.h"
#include "interpose/Recorder.h"
#include "sim/Chip.h"

#include <ChipModel/BringupStage.h>
#include <ChipModel/CairnCommonSmData.h>
#include <Kiln/ActivityLock.h>

#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

// Runs a recipe on the simulated chip and logs all it does, in order: hooks, constant queries, SDK
// operations, trace lines, stage questions, each with the state of the locks at that moment.

namespace Support {

/// One row of a script: something that happens, as the functions below make it.
struct Step {
    enum class Kind { guarded, unchecked, ignored, held, line };

    Kind kind;
    std::string text;
    std::string operation;
    int number; ///< return code, or level of a line
};

/// A guarded call: hook; without the lock, the constants it asks and its operation; call trace
/// line. `operation` is as in the log; each constant that is asked stands in front of it, in order,
/// followed by "; ".
inline Step guarded( std::string text, std::string operation, int rc = 0 ) {
    return { Step::Kind::guarded, std::move( text ), std::move( operation ), rc };
}
/// A guarded call of the bare variable rc.
inline Step guardedRc( int rc = 0 ) { return guarded( "rc", "", rc ); }
/// An unchecked call: no hook.
inline Step unchecked( std::string text, std::string operation, int rc = 0 ) {
    return { Step::Kind::unchecked, std::move( text ), std::move( operation ), rc };
}
/// An unchecked call whose result is ignored.
inline Step ignored( std::string text, std::string operation ) {
    return { Step::Kind::ignored, std::move( text ), std::move( operation ), 0 };
}
/// Something that happens with the lock held: a constant query, a stage question.
inline Step held( std::string what ) { return { Step::Kind::held, std::move( what ), "", 0 }; }
/// A line of "CairnLtHelper" at a level.
inline Step line( int level, std::string text ) {
    return { Step::Kind::line, std::move( text ), "", level };
}

/// The expected log of one recipe, typed from its description.
///
///     const Script script( "setVxlanDefaultNetworkSvp", {
///         guarded( R"(bcmlt_entry_free( tnlL2VxlanControlEntry ))", "free" ),
///     } );
class Script {
  public:
    /// One SDK call.
    struct Call {
        std::string text;
        Step::Kind kind;
        size_t operation; ///< its place among the SDK operations of the script, from 1
        size_t traceLine; ///< where its call trace line stands in lines()
    };

    /// `function`: the short name under which the recipe's lines appear.
    explicit Script( std::string function, std::initializer_list<Step> steps = {} )
        : function_( std::move( function ) ) {
        add( steps );
    }

    /// Appends a table.
    Script & add( std::initializer_list<Step> steps );

    /// From here on SDK calls keep the activity lock.
    void keepLock() { lockDuringCall_ = "held"; }
    /// From here on the thread also holds the interpreter lock outside of SDK calls.
    void holdInterpreterLock() { interpreterHeld_ = true; }

    const std::string & function() const { return function_; }
    const std::vector<std::string> & lines() const { return lines_; }
    const std::vector<Call> & calls() const { return calls_; }

    /// The call trace line of a call that returned `rc`.
    std::string callLine( const std::string & text, Step::Kind kind, int rc ) const;

  private:
    void addCall( const Step & step );
    void addHeld( const std::string & what ) { lines_.push_back( what + " [held]" ); }

    std::string function_;
    std::string lockDuringCall_ = "released";
    bool interpreterHeld_ = false;
    std::vector<std::string> lines_;
    std::vector<Call> calls_;
    size_t operations_ = 0;
};

/// How a recipe stopped its process.
struct Stop {
    int signal = 0; ///< 0: it did not stop
    /// Standard error, with every source line written as "LINE" and the program's name left out.
    std::string standardError;
    std::vector<int> lines;       ///< the source lines that stood in standard error
    std::vector<std::string> log; ///< the log up to the stop
    std::vector<int> loggedLines; ///< the source lines of the trace lines in the log

    /// How many entries of the log begin with `prefix`.
    long count( const std::string & prefix ) const;
};

/// What standard error holds after a guarded call failed: the report and the assertion stop.
std::string report( const std::string & text, const std::string & errorText, int rc,
                    const std::string & pretty );
/// What it holds after an assertion failed.
std::string assertion( const std::string & expression, const std::string & pretty );

/// A shared state with these modules: module id (which is the unit) and the name of the chip.
Cairn::CairnCommonSmData::Ptr
sharedState( std::initializer_list<std::pair<std::uint16_t, const char *>> modules );

/// Opens with unit 0 (and `unit` 3) of the reference chip installed, the activity lock held, all
/// trace levels of both handles on.
///
/// How operations are written in the log (the handle is left out):
///     allocate 0 EGR_TUNNEL_ECN_ENCAPm        add OUTER_ECN = 2         array SEED[0] = 5 count 1
///     symbol EVENT_ID = L2_DST_DISCARD        get VALID                 free
///     commit BCMLT_OPCODE_INSERT              pt_commit BCMLT_PT_OPCODE_SET
///     attrib BCMLT_ENT_ATTR_GET_FROM_HW
/// Constants are written by their names, stage questions as "isBlocked NAME 55". In messages the
/// handle that was allocated last is written as HANDLE.
class RecipeTest : public ::testing::Test,
                   private CairnCentral::BringupStageService,
                   private Kiln::InterpreterLock {
  protected:
    RecipeTest();
    ~RecipeTest() override;

    /// Adds a fault from its text, as in "op=commit,rc=-7".
    void inject( const std::string & fault );

    /// Replaces the chip by one of this schema, on units 0 and 3, and empties the log.
    void useSchema( const Sim::Schema & schema );

    /// Puts a row into a logical table behind the SDK's back, with these fields, key fields among
    /// them; other fields hold what they do before anybody wrote them.
    void putRow( int unit, const std::string & table,
                 std::initializer_list<std::pair<const char *, std::uint64_t>> fields );

    /// What happened since the test began or clearLog() was called.
    const std::vector<std::string> & log() const { return log_; }
    void clearLog() { log_.clear(); }
    /// The same, only the entries that begin with `prefix`.
    std::vector<std::string> logOf( const std::string & prefix ) const;

    /// Fails the test unless the log is that of the script, and shows the first difference.
    void expectLog( const Script & script ) const;

    /// Runs `recipe` once for each SDK call of its script, in a child process in which that call
    /// fails, and checks what must come of it by the kind of the call:
    /// - a guarded call, or an unchecked one whose code is checked next: the log of the script up to
    ///   there, the error text asked, the failure hook called, the report on standard error, and the
    ///   stop;
    /// - any other: its trace line, with the code unless that is ignored, and no report of it.
    void expectEachFailureToStop( const Script & script, const std::string & pretty,
                                  const std::function<void()> & recipe );

    /// Fails the test unless `stop` is that of an assertion: nothing but its line on standard
    /// error, no hook, and a source line after that of the last trace line.
    static void expectAssertion( const Stop & stop, const std::string & expression,
                                 const std::string & pretty );
    /// Runs `recipe`, whose first allocate succeeds but leaves the handle invalid, and checks the
    /// handle assertion, on the line after the allocate.
    void expectHandleAssertion( const std::string & pretty, const std::function<void()> & recipe );

    /// Runs `recipe` with just one level of "CairnLtHelper" on, once for each level and each time
    /// on a fresh reference chip, and checks that it writes the script's messages of that level.
    void expectMessagesAtTheirLevels( const Script & script, const std::function<void()> & recipe );

    /// The thread holds an interpreter lock from now on; its releases and acquisitions are logged.
    void holdInterpreterLock();

    /// Runs `recipe` in a child process that it is expected to stop, and reports how it ended. The
    /// log of this process does not change.
    Stop stopOf( const std::function<void()> & recipe );

    /// The source lines of the call trace lines and messages, in order.
    const std::vector<int> & sourceLines() const { return sourceLines_; }

    /// The handles that were allocated, in order.
    const std::vector<std::uint32_t> & handles() const { return handles_; }

    /// Which stages the chip is blocked at; unblocked is the opposite unless set.
    std::vector<std::uint32_t> blockedStages;
    std::vector<std::uint32_t> neitherStages; ///< both questions are answered with false

    /// Called with each entry of the log, for a test that changes something at that moment.
    std::function<void( const std::string & )> onEntry;

    Sim::Chip & chip() { return *chip_; }

  private:
    bool isBlocked( const CairnCentral::ChipInfo & chipInfo,
                    CairnCentral::BringupStage stage ) noexcept override;
    bool isUnblocked( const CairnCentral::ChipInfo & chipInfo,
                      CairnCentral::BringupStage stage ) noexcept override;
    bool heldByThisThread() const noexcept override { return interpreterHeld_; }
    void release() noexcept override;
    void acquire() noexcept override;
    void install( const Sim::Schema & schema );
    void note( const std::string & what, int sourceLine = 0 );
    std::string withoutHandle( std::string text ) const;

    std::unique_ptr<Sim::Chip> chip_;
    std::unique_ptr<Interpose::FaultInjector> faults_;
    std::unique_ptr<Interpose::Recorder> recorder_;
    std::vector<std::string> log_;
    std::vector<int> sourceLines_;
    std::vector<std::uint32_t> handles_;
    bool interpreterHeld_ = false;
    int logPipe_ = -1; ///< in the child of stopOf(): where the log goes as well
};

} // namespace Support
