#include "Cairn/internal/GuardedCall.h"

#include "interpose/Interposer.h"
#include "sim/Chip.h"

#include <Kiln/TraceSink.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

// The members of the guarded-call family by themselves, in small recipes of this file.

namespace GuardTest {

using namespace Cairn;

void commit( uint32_t handle ) noexcept {
    CAIRN_RECIPE( "void GuardTest::commit(uint32_t)" );
    CAIRN_CALL( bcmlt_entry_commit( handle, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ) );
}

void commitLockKept( uint32_t handle ) noexcept {
    CAIRN_RECIPE( "void GuardTest::commitLockKept(uint32_t)" );
    CAIRN_CALL_LOCK_KEPT( bcmlt_entry_commit( handle, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ) );
}

void commitTwice( std::uint32_t handle ) noexcept {
    CAIRN_RECIPE( "void GuardTest::commitTwice(uint32_t)" );
    CAIRN_CALL( bcmlt_entry_commit( handle, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ) );
    CAIRN_CALL( bcmlt_entry_commit( handle, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ) );
}

int commitUnchecked( uint32_t handle ) noexcept {
    CAIRN_RECIPE( "int GuardTest::commitUnchecked(uint32_t)" );
    int rc;
    CAIRN_CALL_UNCHECKED( rc, bcmlt_entry_commit( handle, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ) );
    return rc;
}

void commitIgnored( uint32_t handle ) noexcept {
    CAIRN_RECIPE( "void GuardTest::commitIgnored(uint32_t)" );
    CAIRN_CALL_IGNORED( bcmlt_entry_commit( handle, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ) );
}

void bareRc( int rc ) noexcept {
    CAIRN_RECIPE( "void GuardTest::bareRc(int)" );
    CAIRN_CALL( rc );
}

void assertHandle( uint32_t ent_hdl ) noexcept {
    CAIRN_RECIPE( "void GuardTest::assertHandle(uint32_t)" );
    CAIRN_ASSERT( ent_hdl != BCMLT_INVALID_HDL );
}

void takesText( const char * mem ) noexcept {
    CAIRN_RECIPE( "void GuardTest::takesText(const char*)" );
    CAIRN_ASSERT( mem == nullptr );
}

} // namespace GuardTest

namespace {

using Notes = std::vector<std::string>;

/// An SDK that notes what is asked of it, with "+" where this thread holds the activity lock.
class NotingSdk final : public Interpose::Interposer {
  public:
    NotingSdk() : Interposer( chip_ ) {}

    void note( const std::string & what ) {
        notes.push_back( what + ( Kiln::activityLock().heldByThisThread() ? "+" : "-" ) );
    }

    void preCallHook() noexcept override { note( "hook" ); }
    void failureHook() noexcept override {
        note( "failure hook" );
        for ( const auto & each : notes )
            std::cerr << each << ' ';
        std::cerr << std::endl;
    }
    const char * errmsg( int ) noexcept override {
        note( "errmsg" );
        return "no such luck";
    }
    uint32_t BCMLT_PRIORITY_NORMAL() noexcept override {
        note( "priority" );
        return 1;
    }
    uint32_t BCMLT_OPCODE_INSERT() noexcept override {
        note( "insert" );
        return 2;
    }
    uint32_t BCMLT_INVALID_HDL() noexcept override {
        note( "invalid" );
        return 77;
    }
    int bcmlt_entry_commit( uint32_t handle, uint32_t opcode,
                            uint32_t priority ) noexcept override {
        EXPECT_EQ( handle, 9u );
        EXPECT_EQ( opcode, 2u );
        EXPECT_EQ( priority, 1u );
        note( "commit" );
        if ( duringCommit )
            duringCommit();
        return rc;
    }

    int rc = 0;
    std::function<void()> duringCommit;
    Notes notes;

  private:
    Sim::Chip chip_;
};

/// An interpreter lock that notes its movements in the SDK's list.
class NotingInterpreterLock final : public Kiln::InterpreterLock {
  public:
    explicit NotingInterpreterLock( NotingSdk & sdk ) : sdk_( sdk ) {}
    bool heldByThisThread() const noexcept override { return held; }
    void release() noexcept override {
        held = false;
        sdk_.note( "interpreter released" );
    }
    void acquire() noexcept override {
        held = true;
        sdk_.note( "interpreter taken" );
    }

    bool held = true;

  private:
    NotingSdk & sdk_;
};

class GuardedCallTest : public ::testing::Test {
  protected:
    GuardedCallTest() {
        Kiln::activityLock().lock();
        Shim::sdk_ = &sdk;
        Kiln::traceToCallback( [this]( const Kiln::TraceLine & line ) {
            EXPECT_TRUE( Kiln::activityLock().heldByThisThread() );
            EXPECT_EQ( line.facility, "ApiCairn" );
            EXPECT_EQ( line.level, Kiln::TraceFacility::level4 );
            EXPECT_EQ( line.file, "Cairn/CairnLtHelper" );
            const std::string position = "Cairn/CairnLtHelper:" + std::to_string( line.line ) + " ";
            EXPECT_TRUE( line.text.starts_with( position ) ) << line.text;
            traced.push_back( std::string( line.function ) + "|" +
                              std::string( line.text.substr( position.size() ) ) );
        } );
    }
    ~GuardedCallTest() override {
        Kiln::traceToStandardError();
        Kiln::traceOff();
        Shim::sdk_ = nullptr;
        Kiln::activityLock().unlock();
    }
    void traceCalls() { Kiln::traceSettings( { { "ApiCairn", 1u << 4 } } ); }

    NotingSdk sdk;
    std::vector<std::string> traced;
};

using GuardedCallDeathTest = GuardedCallTest;

constexpr char commitText[] =
    "bcmlt_entry_commit( handle, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL )";

TEST_F( GuardedCallTest, HookComesFirstThenTheConstantsAndTheOperationWithoutTheLock ) {
    GuardTest::commit( 9 );
    EXPECT_EQ( sdk.notes, ( Notes{ "hook+", "priority-", "insert-", "commit-" } ) );
    EXPECT_TRUE( Kiln::activityLock().heldByThisThread() );
}

TEST_F( GuardedCallTest, LockKeptVariantHoldsTheLockThroughout ) {
    GuardTest::commitLockKept( 9 );
    EXPECT_EQ( sdk.notes, ( Notes{ "hook+", "priority+", "insert+", "commit+" } ) );
}

TEST_F( GuardedCallTest, UncheckedCallHasNoHookAndKeepsTheResult ) {
    sdk.rc = -5;
    traceCalls();
    EXPECT_EQ( GuardTest::commitUnchecked( 9 ), -5 );
    EXPECT_EQ( sdk.notes, ( Notes{ "priority-", "insert-", "commit-" } ) );
    EXPECT_EQ( traced, ( Notes{ std::string( "commitUnchecked|" ) + commitText + " (rc:-5)" } ) );
}

TEST_F( GuardedCallTest, IgnoredCallHasNoHookAndItsLineSaysSo ) {
    sdk.rc = -5;
    traceCalls();
    GuardTest::commitIgnored( 9 );
    EXPECT_EQ( sdk.notes, ( Notes{ "priority-", "insert-", "commit-" } ) );
    EXPECT_EQ( traced, ( Notes{ std::string( "commitIgnored|" ) + commitText + " no rc check" } ) );
}

TEST_F( GuardedCallTest, PreCallHookRunsOncePerGuardedCallAndNotForUncheckedCalls ) {
    GuardTest::commit( 9 );
    GuardTest::commitLockKept( 9 );
    GuardTest::bareRc( 0 );
    EXPECT_EQ( std::count( sdk.notes.begin(), sdk.notes.end(), "hook+" ), 3 );
    GuardTest::commitUnchecked( 9 );
    GuardTest::commitIgnored( 9 );
    EXPECT_EQ( std::count( sdk.notes.begin(), sdk.notes.end(), "hook+" ), 3 );
}

TEST_F( GuardedCallTest, InterpreterLockIsReleasedFirstAndTakenBackLast ) {
    NotingInterpreterLock interpreter( sdk );
    Kiln::setInterpreterLock( &interpreter );
    GuardTest::commit( 9 );
    Kiln::setInterpreterLock( nullptr );
    EXPECT_EQ( sdk.notes, ( Notes{ "hook+", "interpreter released+", "priority-", "insert-",
                                   "commit-", "interpreter taken+" } ) );
}

TEST_F( GuardedCallTest, InterpreterLockOfAnotherThreadIsLeftAlone ) {
    NotingInterpreterLock interpreter( sdk );
    interpreter.held = false;
    Kiln::setInterpreterLock( &interpreter );
    GuardTest::commit( 9 );
    Kiln::setInterpreterLock( nullptr );
    EXPECT_EQ( sdk.notes, ( Notes{ "hook+", "priority-", "insert-", "commit-" } ) );
    EXPECT_FALSE( interpreter.held );
}

TEST_F( GuardedCallTest, ZeroAndPositiveCodesAreSuccessAndAreTracedAsReturned ) {
    traceCalls();
    for ( const int rc : { 0, 1, 2147483647 } ) {
        traced.clear();
        sdk.rc = rc;
        GuardTest::commit( 9 );
        EXPECT_EQ( traced, ( Notes{ std::string( "commit|" ) + commitText +
                                    " (rc:" + std::to_string( rc ) + ")" } ) );
    }
}

TEST_F( GuardedCallTest, SuccessWritesNothingWithLevelFourOff ) {
    Kiln::traceSettings( { { "ApiCairn", 0x3EFu } } );
    GuardTest::commit( 9 );
    GuardTest::commitUnchecked( 9 );
    GuardTest::commitIgnored( 9 );
    EXPECT_TRUE( traced.empty() );
}

TEST_F( GuardedCallTest, TheLevelIsReadAfreshAtEachCall ) {
    GuardTest::commit( 9 );
    traceCalls();
    GuardTest::commit( 9 );
    Kiln::traceOff();
    GuardTest::commit( 9 );
    EXPECT_EQ( traced.size(), 1u );
}

TEST_F( GuardedCallTest, TheLevelIsReadAfreshWithinOneRecipe ) {
    sdk.duringCommit = [&] {
        sdk.duringCommit = nullptr;
        traceCalls();
    };
    GuardTest::commitTwice( 9 );
    EXPECT_EQ( traced.size(), 2u );
    sdk.duringCommit = [] { Kiln::traceOff(); };
    GuardTest::commitTwice( 9 );
    EXPECT_EQ( traced.size(), 2u );
}

TEST_F( GuardedCallTest, TheShimIsAskedForAfreshWithinOneRecipe ) {
    NotingSdk other;
    sdk.duringCommit = [&] { Shim::sdk_ = &other; };
    GuardTest::commitTwice( 9 );
    const Notes call{ "hook+", "priority-", "insert-", "commit-" };
    EXPECT_EQ( sdk.notes, call );
    EXPECT_EQ( other.notes, call );
}

TEST_F( GuardedCallTest, BareVariableIsAGuardedCallInFull ) {
    traceCalls();
    GuardTest::bareRc( 3 );
    EXPECT_EQ( sdk.notes, ( Notes{ "hook+" } ) );
    EXPECT_EQ( traced, ( Notes{ "bareRc|rc (rc:3)" } ) );
}

TEST_F( GuardedCallTest, AssertionThatHoldsHasNoHooksAndAsksTheShim ) {
    GuardTest::assertHandle( 76 );
    EXPECT_EQ( sdk.notes, ( Notes{ "invalid+" } ) );
}

// What the library's handle has enabled when the program starts, before a test sets anything.
class LevelsAtStart : public ::testing::Environment {
  public:
    void SetUp() override { mask = Cairn::apiCairn.mask(); }
    static inline uint32_t mask = ~0u;
};
[[maybe_unused]] auto * const levelsAtStart =
    testing::AddGlobalTestEnvironment( new LevelsAtStart );

TEST_F( GuardedCallTest, CallTraceHandleEnablesNoLevelByItself ) {
    EXPECT_EQ( LevelsAtStart::mask, 0u );
}

TEST_F( GuardedCallTest, DefaultHandleIsMadeOnFirstUseAndStaysTheSame ) {
    auto & handle = Cairn::_defaultTraceHandle();
    EXPECT_EQ( &handle, &Cairn::_defaultTraceHandle() );
    EXPECT_EQ( handle.facility().name(), "CairnLtHelper" );
    EXPECT_EQ( Cairn::apiCairn.facility().name(), "ApiCairn" );
    EXPECT_EQ( handle.facility().mask(), 0u );
}

TEST_F( GuardedCallDeathTest, FailureReportsThenCallsTheFailureHookThenStops ) {
    sdk.rc = -7;
    traceCalls();
    // The hooks and the lock, in order: the report's text is asked and the hook called with the
    // lock held.
    EXPECT_EXIT( GuardTest::commit( 9 ), testing::KilledBySignal( SIGABRT ),
                 "^Cairn/CairnLtHelper:[0-9]+ bcmlt_entry_commit\\( handle, BCMLT_OPCODE_INSERT, "
                 "BCMLT_PRIORITY_NORMAL \\) API ERROR:no such luck \\(-7\\)\n"
                 "hook\\+ priority- insert- commit- errmsg\\+ failure hook\\+ \n"
                 "[^\n]*: Cairn/CairnLtHelper:[0-9]+: void GuardTest::commit\\(uint32_t\\): "
                 "Assertion `0' failed\\.\n$" );
}

TEST_F( GuardedCallDeathTest, ShimThatIsThereWhenTheCallHasFailedSpeaksAndIsHooked ) {
    NotingSdk other;
    sdk.rc = -7;
    sdk.duringCommit = [&] { Shim::sdk_ = &other; };
    EXPECT_EXIT( GuardTest::commit( 9 ), testing::KilledBySignal( SIGABRT ),
                 "API ERROR:no such luck \\(-7\\)\nerrmsg\\+ failure hook\\+ \n" );
}

TEST_F( GuardedCallDeathTest, FailedBareVariableIsReportedAsRc ) {
    EXPECT_EXIT( GuardTest::bareRc( -3 ), testing::KilledBySignal( SIGABRT ),
                 "^Cairn/CairnLtHelper:[0-9]+ rc API ERROR:no such luck \\(-3\\)\n"
                 "hook\\+ errmsg\\+ failure hook\\+ \n"
                 "[^\n]*: Cairn/CairnLtHelper:[0-9]+: void GuardTest::bareRc\\(int\\): "
                 "Assertion `0' failed\\.\n$" );
}

TEST_F( GuardedCallDeathTest, AssertionStopsWithoutReportAndWithoutHooks ) {
    EXPECT_EXIT( GuardTest::assertHandle( 77 ), testing::KilledBySignal( SIGABRT ),
                 "^[^\n]*: Cairn/CairnLtHelper:[0-9]+: void GuardTest::assertHandle\\(uint32_t\\): "
                 "Assertion `ent_hdl != BCMLT_INVALID_HDL' failed\\.\n$" );
}

TEST_F( GuardedCallDeathTest, SignatureTextsAreTheSameUnderEveryCompiler ) {
    EXPECT_EXIT(
        GuardTest::takesText( "x" ), testing::KilledBySignal( SIGABRT ),
        "void GuardTest::takesText\\(const char\\*\\): Assertion `mem == nullptr' failed" );
}

TEST_F( GuardedCallDeathTest, ReportIsDecimalWhateverTheStreamIsSetTo ) {
    sdk.rc = -255;
    EXPECT_EXIT(
        {
            std::cerr << std::hex << std::showbase;
            GuardTest::commit( 9 );
        },
        testing::KilledBySignal( SIGABRT ), "API ERROR:no such luck \\(-255\\)\n" );
}

TEST_F( GuardedCallDeathTest, ThrowingSinkTerminatesTheProcess ) {
    traceCalls();
    Kiln::traceToCallback( []( const Kiln::TraceLine & ) { throw 1; } );
    EXPECT_EXIT( GuardTest::commit( 9 ), testing::KilledBySignal( SIGABRT ), "terminate called" );
}

TEST_F( GuardedCallDeathTest, CallWithoutTheActivityLockStopsWithAClearMessage ) {
    EXPECT_EXIT(
        {
            Kiln::activityLock().unlock();
            GuardTest::commit( 9 );
        },
        testing::KilledBySignal( SIGABRT ),
        "^Kiln activity lock: released by a thread that does not hold it" );
}

} // namespace
