#include "tools/model/Errors.h"
#include "tools/sweep/SweepJudge.h"
#include "tools/sweep/SweepPlan.h"
#include "tools/sweep/SweepRunner.h"

#include "interpose/Interposer.h"

#include "tests/tools/Program.h"
#include "tests/tools/sweep/ReferenceModel.h"

#include <Kiln/ActivityLock.h>

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <unistd.h>
#include <vector>

// The sweep must find nothing in the library as it is, and every fault in one that is broken.

namespace {

using Json = nlohmann::json;
using Tool::CallKind;
using Tool::SweepCase;
using Tool::SweepFault;
using ToolTest::cairnLt;
using ToolTest::linesWith;

// --- The plan

TEST( SweepPlanTest, EveryRecipeHasACaseOfItsOwnName ) {
    std::set<std::string_view> recipes;
    std::set<std::pair<std::string_view, std::string_view>> names;
    for ( const SweepCase & each : Tool::sweepCases() ) {
        ASSERT_NE( Tool::findRecipe( each.recipe ), nullptr ) << each.recipe;
        recipes.insert( each.recipe );
        EXPECT_TRUE( names.insert( { each.recipe, each.name } ).second )
            << each.recipe << ": " << each.name << " is there twice";
    }
    EXPECT_EQ( recipes.size(), Tool::recipes().size() );
}

TEST( SweepPlanTest, CasesStateHowTheyEnd ) {
    for ( const SweepCase & each : Tool::sweepCases() ) {
        const bool hasResult = Tool::findRecipe( each.recipe )->result != Tool::ResultType::none;
        EXPECT_EQ( !each.returns.empty(), hasResult && each.stopsBy.empty() )
            << each.recipe << ": " << each.name;
    }
}

// After an opposite answer a recipe goes on with the arguments that it has.
TEST( SweepPlanTest, CasesThatFollowOneAnotherShareTheirArguments ) {
    std::size_t followed = 0;
    for ( const SweepCase & each : Tool::sweepCases() ) {
        if ( each.fallback.empty() )
            continue;
        ++followed;
        const auto found = std::find_if(
            Tool::sweepCases().begin(), Tool::sweepCases().end(), [&]( const SweepCase & other ) {
                return other.recipe == each.recipe && other.name == each.fallback;
            } );
        ASSERT_NE( found, Tool::sweepCases().end() ) << each.recipe << ": " << each.fallback;
        EXPECT_EQ( found->arguments, each.arguments ) << each.recipe << ": " << each.name;
    }
    EXPECT_EQ( followed, 34u );
}

using Interpose::SdkCall;

CallKind kind( const char * recipe, SdkCall operation, const char * field = "" ) {
    return Tool::kindOf( *Tool::findRecipe( recipe ), { .call = operation, .field = field } );
}

CallKind kind( const char * recipe, SdkCall operation, SdkCall opcode ) {
    return Tool::kindOf( *Tool::findRecipe( recipe ),
                         { .call = operation, .opcode = { 0, opcode } } );
}

TEST( SweepPlanTest, CallsAreGuardedUnlessTheRecipeSaysOtherwise ) {
    EXPECT_EQ( kind( "programMonTraceCpu", SdkCall::entryAllocate ), CallKind::guarded );
    EXPECT_EQ( kind( "programMonTraceCpu", SdkCall::entryCommit, SdkCall::opcodeInsert ),
               CallKind::guarded );
    for ( const char * recipe :
          { "programL2IfIngSystemPortTable", "verifyL2IfIngSystemPortTable",
            "programL2EifSystemDestinationTable", "verifyL2EifSystemDestinationTable",
            "setLearnCacheEnabled", "setLearnCacheDropEnabled" } ) {
        EXPECT_EQ( kind( recipe, SdkCall::entryCommit, SdkCall::opcodeLookup ), CallKind::lookup )
            << recipe;
        EXPECT_EQ( kind( recipe, SdkCall::entryCommit, SdkCall::opcodeInsert ), CallKind::guarded )
            << recipe;
    }
    EXPECT_EQ( kind( "programL2IfIngSystemPortTable", SdkCall::entryFieldAdd, "RANGE_TABLE_INDEX" ),
               CallKind::ignored );
    EXPECT_EQ( kind( "programL2IfIngSystemPortTable", SdkCall::entryFieldAdd, "L2_IIF" ),
               CallKind::guarded );
    EXPECT_EQ( kind( "setT4XVxlanDefaultNetworkSvp", SdkCall::entryCommit, SdkCall::opcodeInsert ),
               CallKind::tolerated );
    EXPECT_EQ( kind( "programPacketDropForMtuError", SdkCall::entryCommit, SdkCall::opcodeLookup ),
               CallKind::mustMiss );
    for ( const char * recipe : { "setLoadBalanceRandSeedCtrl", "setLoadBalanceRandSeedMem" } ) {
        EXPECT_EQ( kind( recipe, SdkCall::entryAllocate ), CallKind::endsRecipe );
        EXPECT_EQ( kind( recipe, SdkCall::ptEntryCommit, SdkCall::ptOpcodeModify ),
                   CallKind::guarded );
    }
    EXPECT_EQ( kind( "setLoadBalanceRandSeedCtrl", SdkCall::entryFieldAdd, "SEED" ),
               CallKind::checkedNext );
    EXPECT_EQ( kind( "setLoadBalanceRandSeedMem", SdkCall::entryFieldArrayAdd, "SEED" ),
               CallKind::checkedNext );
    EXPECT_EQ( kind( "setEmRobustHashDisable", SdkCall::entryAllocate ), CallKind::skipsTable );
}

TEST( SweepPlanTest, PropertiesOfRecipes ) {
    long asserting = 0;
    long keeping = 0;
    for ( const Tool::Recipe & recipe : Tool::recipes() ) {
        asserting += Tool::assertsHandle( recipe ) ? 1 : 0;
        keeping += Tool::keepsLock( recipe ) ? 1 : 0;
    }
    EXPECT_EQ( asserting, 16 );
    EXPECT_EQ( keeping, 2 );
    EXPECT_TRUE( Tool::keepsLock( *Tool::findRecipe( "setIngTunnelEcnDecap" ) ) );
    EXPECT_TRUE( Tool::assertsHandle( *Tool::findRecipe( "getInnerOpaqueTagEgressEpmod" ) ) );
    EXPECT_FALSE( Tool::assertsHandle( *Tool::findRecipe( "setEmRobustHashDisable" ) ) );
    EXPECT_EQ( Tool::outputOf( *Tool::findRecipe( "programPacketTraceForTtlError" ) ).name,
               "programMonTraceCpu" );
    EXPECT_EQ( Tool::outputOf( *Tool::findRecipe( "lbPortInit" ) ).name, "lbPortInit" );
}

TEST( SweepPlanTest, SignaturesAreThoseThatAssertionsPrint ) {
    const auto signature = []( const char * recipe ) {
        return Tool::signatureOf( *Tool::findRecipe( recipe ) );
    };
    EXPECT_EQ( signature( "cpuPortInit" ),
               "void Cairn::cpuPortInit(Cairn::CairnCommonSmData::Ptr)" );
    EXPECT_EQ( signature( "enable1BitEccRpt" ),
               "void Cairn::enable1BitEccRpt(uint32_t, const char*, bool)" );
    EXPECT_EQ( signature( "getOpaqueTagIngress" ),
               "uint16_t Cairn::getOpaqueTagIngress(uint32_t, uint8_t)" );
    EXPECT_EQ( signature( "verifyL2IfIngSystemPortTable" ),
               "bool Cairn::verifyL2IfIngSystemPortTable(CairnCentral::ChipInfo, uint32_t, "
               "uint32_t, uint32_t, uint32_t, uint16_t, bool)" );
}

// --- The judge, with runs that nobody made

// A recipe of four guarded calls, and its table.
constexpr char recipeName[] = "setVxlanDefaultNetworkSvp";
constexpr char signature[] = "void Cairn::setVxlanDefaultNetworkSvp(uint32_t, uint32_t)";
const Tool::TableId tableId{ 0, "TNL_L2_VXLAN_CONTROL" };
const Tool::TableRow rowBefore{ {}, { 42405, 0, 0, 0, 0 } };
const Tool::TableRow rowAfter{ {}, { 100, 0, 0, 0, 0 } };

Tool::ObservedCall madeCall( Interpose::SdkCall operation, const char * text, int line ) {
    Tool::ObservedCall call;
    call.operation = { .call = operation,
                       .handle = 1,
                       .unit = tableId.unit,
                       .table = tableId.table,
                       .returned = true };
    call.hook = call.hookLocked = true;
    call.text = text;
    call.ending = " (rc:0)";
    call.line = line;
    return call;
}

Tool::SweepRun madeUndisturbed() {
    Tool::SweepRun run;
    run.prepared = run.returned = run.complete = true;
    run.calls = {
        madeCall(
            Interpose::SdkCall::entryAllocate,
            R"(bcmlt_entry_allocate( unit, "TNL_L2_VXLAN_CONTROL", &tnlL2VxlanControlEntry ))",
            10 ),
        madeCall( Interpose::SdkCall::entryFieldAdd,
                  R"(bcmlt_entry_field_add( tnlL2VxlanControlEntry, "DEFAULT_NETWORK_SVP", svp ))",
                  11 ),
        madeCall( Interpose::SdkCall::entryCommit,
                  "bcmlt_entry_commit( tnlL2VxlanControlEntry, BCMLT_OPCODE_UPDATE, "
                  "BCMLT_PRIORITY_NORMAL )",
                  12 ),
        madeCall( Interpose::SdkCall::entryFree, "bcmlt_entry_free( tnlL2VxlanControlEntry )", 13 ),
    };
    run.calls[1].operation.field = "DEFAULT_NETWORK_SVP";
    run.calls[1].operation.values = { 100 };
    run.calls[2].operation.opcode.constant = SdkCall::opcodeUpdate;
    run.calls[2].operation.priority.constant = SdkCall::priorityNormal;
    run.writes = { { 2, { rowAfter } } };
    run.functions = { recipeName };
    run.preCallHooks = 4;
    run.tablesBefore = { { tableId, { rowBefore } } };
    run.tables = { { tableId, { rowAfter } } };
    return run;
}

// The free is made to fail: all of it has been written, and the entry stays.
Tool::SweepRun madeStopped() {
    Tool::SweepRun run = madeUndisturbed();
    run.returned = false;
    run.calls[3].operation.rc = -1;
    run.calls[3].text = run.calls[3].ending = "";
    run.calls[3].line = 0;
    run.failureHooks = 1;
    run.failureHookLocked = run.reportedBeforeHook = true;
    run.errorTexts = { -1 };
    run.liveEntries = { "TNL_L2_VXLAN_CONTROL" };
    run.signal = SIGABRT;
    run.standardError =
        "Cairn/CairnLtHelper:13 bcmlt_entry_free( tnlL2VxlanControlEntry ) API ERROR:null pointer "
        "(-1)\n" +
        std::string( ::program_invocation_short_name ) + ": Cairn/CairnLtHelper:13: " + signature +
        ": Assertion `0' failed.\n";
    return run;
}

class SweepJudgeTest : public ::testing::Test {
  protected:
    SweepJudgeTest() {
        swept_.plan = &plan_;
        swept_.recipe = Tool::findRecipe( recipeName );
        swept_.isReference = true;
        swept_.model = ToolTest::referenceModel();
        swept_.undisturbed = madeUndisturbed();
    }

    Tool::SweepExpectation expectation( SweepFault::Kind kind, std::size_t call ) const {
        return Tool::expectFault( swept_, { kind, call } );
    }

    SweepCase plan_{ .name = "made up", .recipe = recipeName };
    Tool::SweptCase swept_;
};

using Findings = std::vector<std::string>;

TEST_F( SweepJudgeTest, FindsNothingWhereNothingIs ) {
    EXPECT_EQ( Tool::judgeUndisturbed( swept_ ), Findings() );
    EXPECT_EQ( Tool::judge( expectation( SweepFault::Kind::fails, 3 ), madeStopped() ),
               Findings() );

    // A positive code of a guarded call is success.
    Tool::SweepRun positive = madeUndisturbed();
    positive.calls[1].operation.rc = 1;
    positive.calls[1].ending = " (rc:1)";
    EXPECT_EQ( Tool::judge( expectation( SweepFault::Kind::positive, 1 ), positive ), Findings() );
}

TEST_F( SweepJudgeTest, NothingHappensBehindAFailure ) {
    const Tool::SweepExpectation failed = expectation( SweepFault::Kind::fails, 1 );
    EXPECT_EQ( failed.calls.size(), 2u );
    EXPECT_EQ( failed.tables, swept_.undisturbed.tablesBefore );
    EXPECT_EQ( failed.liveEntries, Findings{ "TNL_L2_VXLAN_CONTROL" } );
    EXPECT_EQ( Tool::toText( failed ), "is reported and stops" );
    EXPECT_TRUE( expectation( SweepFault::Kind::fails, 0 ).liveEntries.empty() );
}

TEST_F( SweepJudgeTest, AnInvalidHandleIsRefusedAtTheNextCall ) {
    const Tool::SweepExpectation expected = expectation( SweepFault::Kind::invalidHandle, 0 );
    ASSERT_EQ( expected.calls.size(), 2u );
    EXPECT_EQ( expected.calls[1].operation.rc, toInt( Sim::Rc::unknownHandle ) );
    EXPECT_EQ( expected.calls[1].operation.handle, 0u );
    EXPECT_EQ( Tool::toText( expected ),
               "goes on to bcmlt_entry_field_add( tnlL2VxlanControlEntry, \"DEFAULT_NETWORK_SVP\", "
               "svp ), which is reported and stops" );
}

TEST_F( SweepJudgeTest, HandlesAreAssertedWhereThePlanSaysSo ) {
    swept_.recipe = Tool::findRecipe( "setFlexctrEgressCounterActionEnable" );
    const Tool::SweepExpectation expected = expectation( SweepFault::Kind::invalidHandle, 0 );
    EXPECT_EQ( expected.calls.size(), 1u );
    EXPECT_EQ( Tool::toText( expected ),
               "stops by the assertion \"ent_hdl != BCMLT_INVALID_HDL\"" );
    const std::string line = std::string( ::program_invocation_short_name ) +
                             ": Cairn/CairnLtHelper:LINE: void "
                             "Cairn::setFlexctrEgressCounterActionEnable(uint32_t): Assertion "
                             "`ent_hdl != BCMLT_INVALID_HDL' failed.\n";
    Tool::SweepRun stopped = madeUndisturbed();
    stopped.returned = false;
    stopped.calls.resize( 1 );
    stopped.preCallHooks = 1;
    stopped.functions = { "setFlexctrEgressCounterActionEnable" };
    stopped.tables = stopped.tablesBefore;
    stopped.signal = SIGABRT;
    const auto judged = [&]( const std::string & number ) {
        stopped.standardError = line;
        stopped.standardError.replace( line.find( "LINE" ), 4, number );
        return Tool::judge( expected, stopped );
    };
    // The next call stands in line 11.
    swept_.undisturbed.calls[1].line = 20;
    EXPECT_EQ( judged( "11" ).size(), 1u );
    const Tool::SweepExpectation between = expectation( SweepFault::Kind::invalidHandle, 0 );
    stopped.standardError.replace( stopped.standardError.find( ":11:" ), 4, ":15:" );
    EXPECT_EQ( Tool::judge( between, stopped ), Findings() );
    EXPECT_EQ( judged( "10" ), Findings{ "the assertion stands in line 10, "
                                         "expected behind 10 and before 11" } );
    EXPECT_EQ( judged( "x" ).size(), 1u );
}

// Made-up outcomes of the failing free: what is wrong, and a part of the finding.
struct Deviation {
    const char * name;
    std::function<void( Tool::SweepRun & )> make;
    std::string finding;
};

class SweepDeviationTest : public SweepJudgeTest,
                           public ::testing::WithParamInterface<Deviation> {};

TEST_P( SweepDeviationTest, IsFound ) {
    Tool::SweepRun run = madeStopped();
    GetParam().make( run );
    const Findings findings = Tool::judge( expectation( SweepFault::Kind::fails, 3 ), run );
    EXPECT_TRUE( std::any_of(
        findings.begin(), findings.end(),
        []( const std::string & each ) { return each.find( GetParam().finding ) != each.npos; } ) )
        << ::testing::PrintToString( findings );
}

std::string replaced( std::string text, const std::string & part, const std::string & other ) {
    return text.replace( text.find( part ), part.size(), other );
}

const Deviation deviations[] = {
    { "NoReport",
      []( auto & run ) { run.standardError.erase( 0, run.standardError.find( '\n' ) + 1 ); },
      "standard error: " },
    { "ReportTwice",
      []( auto & run ) {
          run.standardError.insert(
              0, run.standardError.substr( 0, run.standardError.find( '\n' ) + 1 ) );
      },
      "standard error: " },
    { "AnotherCodeInTheReport",
      []( auto & run ) { run.standardError = replaced( run.standardError, "(-1)", "(-2)" ); },
      "standard error: " },
    { "AnotherTextInTheReport",
      []( auto & run ) { run.standardError = replaced( run.standardError, "_free(", "_fret(" ); },
      "standard error: " },
    { "AnotherErrorText",
      []( auto & run ) { run.standardError = replaced( run.standardError, "null", "no" ); },
      "standard error: " },
    { "AnotherLineInTheReport",
      []( auto & run ) { run.standardError = replaced( run.standardError, ":13 ", ":14 " ); },
      "standard error: " },
    { "AnotherSignature",
      []( auto & run ) { run.standardError = replaced( run.standardError, "uint32_t)", "int)" ); },
      "standard error: " },
    { "MoreOnStandardError", []( auto & run ) { run.standardError += "and more\n"; },
      "standard error: " },
    { "NoFailureHook", []( auto & run ) { run.failureHooks = 0; }, "failure hooks: 0, expected 1" },
    { "TwoFailureHooks", []( auto & run ) { run.failureHooks = 2; },
      "failure hooks: 2, expected 1" },
    { "FailureHookWithoutLock", []( auto & run ) { run.failureHookLocked = false; },
      "lock held in the failure hook: no, expected yes" },
    { "FailureHookBeforeReport", []( auto & run ) { run.reportedBeforeHook = false; },
      "reported before the failure hook: no, expected yes" },
    { "ErrorTextNotAsked", []( auto & run ) { run.errorTexts.clear(); },
      "error texts asked: none, expected -1" },
    { "ErrorTextOfAnotherCode", []( auto & run ) { run.errorTexts = { 1 }; },
      "error texts asked: 1, expected -1" },
    { "CallsBehindTheStop", []( auto & run ) { run.calls.push_back( run.calls[3] ); },
      "1 calls too many, the first is bcmlt_entry_free entry 1" },
    { "CallMissing", []( auto & run ) { run.calls.pop_back(); },
      "1 calls are missing, the first is bcmlt_entry_free entry 1" },
    { "AnotherCall", []( auto & run ) { run.calls[1].operation.values = { 101 }; },
      "call 2: \"bcmlt_entry_field_add entry 1 TNL_L2_VXLAN_CONTROL DEFAULT_NETWORK_SVP = 101\"" },
    { "AnotherEntry", []( auto & run ) { run.calls[1].operation.handle = 2; }, "call 2: " },
    { "AnotherReturnCode", []( auto & run ) { run.calls[3].operation.rc = -3; },
      "call 4: return code: -3, expected -1" },
    { "NoPreCallHook", []( auto & run ) { run.calls[0].hook = false; },
      "call 1: pre-call hook: no, expected yes" },
    { "PreCallHookWithoutLock", []( auto & run ) { run.calls[0].hookLocked = false; },
      "call 1: lock held in the pre-call hook: no, expected yes" },
    { "HookTooMany", []( auto & run ) { run.preCallHooks = 5; }, "pre-call hooks: 5, expected 4" },
    { "LockKept", []( auto & run ) { run.calls[2].operationLocked = true; },
      "call 3: lock held: yes, expected no" },
    { "TraceLineMissing", []( auto & run ) { run.calls[2].ending = ""; },
      "call 3: end of the trace line: nothing, expected \" (rc:0)\"" },
    { "TraceLineOfTheFailure", []( auto & run ) { run.calls[3].ending = " (rc:-1)"; },
      "call 4: end of the trace line: \" (rc:-1)\", expected nothing" },
    { "AnotherTextInATraceLine", []( auto & run ) { run.calls[2].text = "rc"; },
      "call 3: text in the trace line: \"rc\"" },
    { "AnotherLineInATraceLine", []( auto & run ) { run.calls[2].line = 99; },
      "call 3: line in the trace line: 99, expected 12" },
    { "AnotherFunction", []( auto & run ) { run.functions = { "getVxlan" }; },
      "function in a trace line: \"getVxlan\"" },
    { "AnotherMessage",
      []( auto & run ) {
          run.messages.push_back( { 2, "hello" } );
      },
      "messages: \"hello\", expected none" },
    { "NoStop", []( auto & run ) { run.signal = 0; }, "signal: 0, expected 6" },
    { "AnotherSignal", []( auto & run ) { run.signal = SIGSEGV; }, "signal: 11, expected 6" },
    { "Returned", []( auto & run ) { run.returned = true; },
      "the recipe returned: yes, expected no" },
    { "NothingToldOfIt", []( auto & run ) { run.complete = false; },
      "the process did not get to say what happened" },
    { "EntryFreed", []( auto & run ) { run.liveEntries.clear(); }, "live entries: none, expected" },
    { "AnotherEntryLeft", []( auto & run ) { run.liveEntries.push_back( "PC_PORT" ); },
      "live entries: " },
    { "RowsChanged",
      []( auto & run ) {
          run.tables[tableId] = { { {}, { 101, 0, 0, 0, 0 } } };
      },
      "unit 0 TNL_L2_VXLAN_CONTROL: row: \"[] DEFAULT_NETWORK_SVP=101 SRC_L4_PORT_SELECT=0 "
      "SRC_L4_PORT=0 DST_L4_PORT=0 VXLAN_FLAGS=0\", expected \"[] DEFAULT_NETWORK_SVP=100 " },
    { "RowsAdded",
      []( auto & run ) {
          run.tables[{ 0, "PC_PORT" }] = { { {}, { 0, 0, 0, 1, 0, 0, 0, 0 } } };
      },
      "unit 0 PC_PORT: row: \"[PORT_ID=0] ENABLE=0 NUM_LANES=0 SPEED=1 AUTONEG=0 "
      "MAX_FRAME_SIZE=0 LOOPBACK_MODE=0 FEC_MODE=0\", expected nothing" },
    { "RowsGone", []( auto & run ) { run.tables.clear(); },
      "unit 0 TNL_L2_VXLAN_CONTROL: row: nothing" },
};

INSTANTIATE_TEST_SUITE_P( All, SweepDeviationTest, ::testing::ValuesIn( deviations ),
                          []( const auto & test ) { return test.param.name; } );

TEST_F( SweepJudgeTest, UndisturbedRunsAreJudgedToo ) {
    const auto judged = [&]( const std::function<void( Tool::SweepRun & )> & change ) {
        swept_.undisturbed = madeUndisturbed();
        change( swept_.undisturbed );
        return Tool::judgeUndisturbed( swept_ );
    };
    EXPECT_EQ( judged( []( auto & run ) { run.calls[1].hook = false; } ).size(), 1u );
    EXPECT_EQ( judged( []( auto & run ) { run.exitCode = 2; } ),
               Findings{ "exit code: 2, expected 0" } );
    EXPECT_EQ( judged( []( auto & run ) { run.result = "true"; } ),
               Findings{ "result: \"true\", expected nothing" } );
    EXPECT_EQ( judged( []( auto & run ) { run.liveEntries = { "PC_PORT" }; } ).size(), 1u );
    EXPECT_EQ( judged( []( auto & run ) {
                   run.calls[2].text = replaced( run.calls[2].text, "UPDATE", "INSERT" );
               } ).size(),
               1u );
    EXPECT_EQ(
        judged( []( auto & run ) { run.calls[1].text = "bcmlt_entry_field_add( svp )"; } ).size(),
        1u );
    // A call that the chip refuses stops the recipe; a reference chip refuses none.
    const auto refuse = []( auto & run ) {
        run = madeStopped();
        run.calls[3].operation.rc = -7;
        run.errorTexts = { -7 };
        run.standardError = replaced( run.standardError, "null pointer (-1)",
                                      std::string( Sim::Chip().errmsg( -7 ) ) + " (-7)" );
    };
    EXPECT_EQ( judged( refuse ).size(), 1u );
    swept_.isReference = false;
    EXPECT_EQ( judged( refuse ), Findings() );
    swept_.isReference = true;

    swept_.undisturbed = madeUndisturbed();
    plan_.with = { "BCMLT_OPCODE_INSERT" };
    EXPECT_EQ( Tool::judgeUndisturbed( swept_ ),
               Findings{ "no call and no message has \"BCMLT_OPCODE_INSERT\"" } );
    plan_.with = {};
    plan_.without = { "BCMLT_OPCODE_UPDATE" };
    EXPECT_EQ( Tool::judgeUndisturbed( swept_ ),
               Findings{ "a call or a message has \"BCMLT_OPCODE_UPDATE\"" } );
    plan_.without = {};
    plan_.stopsBy = "val == 1";
    EXPECT_FALSE( Tool::judgeUndisturbed( swept_ ).empty() );
}

// --- The real sweep

TEST( SweepTest, AllIsAsExpected ) {
    const ToolTest::Outcome run = cairnLt( { "sweep", "--format", "json" } );
    EXPECT_EQ( run.exitCode, 0 );
    EXPECT_EQ( run.err, "" );
    const Json json = Json::parse( run.out );
    EXPECT_EQ( json["summary"]["recipes"], 47 );
    EXPECT_EQ( json["summary"]["cases"], Tool::sweepCases().size() );
    EXPECT_GE( json["summary"]["cases"], 106 );
    EXPECT_GE( json["summary"]["faults"], 1436 );
    EXPECT_EQ( json["summary"]["unexpected"], 0 );
    EXPECT_EQ( json["summary"]["refused"], 0 );
    EXPECT_EQ( json["summary"]["left_out"], 0 );

    // Each call of each case fails once, but for the checks of a code, which are none of the SDK's.
    for ( const Json & recipe : json["recipes"] ) {
        for ( const Json & each : recipe["cases"] ) {
            std::set<int> failing;
            for ( const Json & fault : each["faults"] ) {
                EXPECT_TRUE( fault["as_expected"].get<bool>() );
                if ( fault["fault"] == "fails" )
                    failing.insert( fault["call"].get<int>() );
            }
            const auto calls = each["calls"].get<std::size_t>();
            const bool checksCodes =
                recipe["recipe"].get<std::string>().starts_with( "setLoadBalanceRandSeed" );
            EXPECT_EQ( failing.size(), checksCodes ? calls - calls / 5 : calls )
                << recipe["recipe"] << ": " << each["case"];
        }
    }
}

TEST( SweepTest, TellsOfEachFaultWhenAsked ) {
    const ToolTest::Outcome run =
        cairnLt( { "sweep", "--verbose", "programPacketDropForMtuError" } );
    EXPECT_EQ( run.exitCode, 0 );
    const auto has = [&]( const std::string & part ) { return linesWith( run.out, part ).size(); };
    EXPECT_EQ( has( "stops by the assertion \"rc < 0\"" ), 2u ) << run.out;
    EXPECT_EQ( has( "is reported and stops" ), 6u + 1u ) << run.out;
    EXPECT_EQ( has( "leaves the handle invalid" ), 1u );
    EXPECT_EQ( ToolTest::lines( run.out ).back(), "1 recipe, 1 case, 16 faults: all as expected" );
}

TEST( SweepTest, RecipesAreSweptOnceInTheOrderOfTheList ) {
    const ToolTest::Outcome run = cairnLt(
        { "sweep", "setEgrTunnelEcnEncap", "setVxlanDefaultNetworkSvp", "setEgrTunnelEcnEncap" } );
    EXPECT_EQ( run.out, "setVxlanDefaultNetworkSvp\n"
                        "  CASE  CALLS  FAULTS  VERDICT\n"
                        "  any   4      9       as expected\n"
                        "\n"
                        "setEgrTunnelEcnEncap\n"
                        "  CASE  CALLS  FAULTS  VERDICT\n"
                        "  any   5      11      as expected\n"
                        "\n"
                        "2 recipes, 2 cases, 20 faults: all as expected\n" );
}

TEST( SweepTest, WorksOnAChipThatLacksInstances ) {
    const Support::TemporaryFolder folder;
    const std::string chip =
        folder.write( "chip.toml", "base = \"reference\"\n"
                                   "remove = [ \"IPOST_LAG_RAND_NUM_CTRL_2r\", "
                                   "\"IFTA40_E2T_00_HASH_CONTROLm\" ]\n" );
    const ToolTest::Outcome run =
        cairnLt( { "sweep", "--format", "json", "--chip", chip, "setLoadBalanceRandSeedCtrl",
                   "setEmRobustHashDisable" } );
    EXPECT_EQ( run.exitCode, 0 );
    const Json json = Json::parse( run.out );
    EXPECT_EQ( json["summary"]["unexpected"], 0 );
    EXPECT_EQ( json["recipes"][0]["cases"][0]["calls"], 11 ); // two instances, and one allocate
    EXPECT_EQ( json["recipes"][1]["cases"][0]["calls"], 17 ); // four memories, and one allocate
}

TEST( SweepTest, SaysWhatAChipRefusesByItself ) {
    const ToolTest::Outcome run = cairnLt( { "sweep", "--chip", "examples/chips/small.toml" } );
    EXPECT_EQ( run.exitCode, 0 ) << run.out;
    EXPECT_NE( run.out.find( "  any   1      1       as expected; the chip refuses "
                             "bcmlt_entry_allocate of MON_ING_DROP_EVENT: no such table (-3)" ),
               std::string::npos );
    EXPECT_NE( run.out.find( "left out: what has to come before it stops: Cairn/CairnLtHelper:" ),
               std::string::npos );
    const std::string last = ToolTest::lines( run.out ).back();
    const std::string recipes = std::to_string( Tool::recipes().size() ) + " recipes, ";
    for ( const char * part : { recipes.c_str(), ": all as expected; ",
                                " cases that the chip itself refuses; ", " cases left out" } )
        EXPECT_NE( last.find( part ), std::string::npos ) << last;
}

TEST( SweepTest, TakesAModel ) {
    const Support::TemporaryFolder folder;
    const std::string model =
        folder.write( "model.toml", "[[chips]]\nname = \"a\"\nunit = 3\nfile = \"reference\"\n" );
    const ToolTest::Outcome run =
        cairnLt( { "sweep", "--model", model, "setLearnCacheEnabled", "setVlanXlateMissDrop" } );
    EXPECT_EQ( run.exitCode, 0 );
    EXPECT_EQ( linesWith( run.out, "left out: setVlanXlateMissDrop: it works on the first module, "
                                   "and there is none; describe it as [[modules]]" )
                   .size(),
               3u )
        << run.out;
}

TEST( SweepTest, NamesThatDoNotExist ) {
    const ToolTest::Outcome run = cairnLt( { "sweep", "setLearnCacheEnable" } );
    EXPECT_EQ( run.exitCode, 2 );
    EXPECT_EQ( run.err, "cairn-lt: there is no recipe \"setLearnCacheEnable\"; the nearest is "
                        "setLearnCacheEnabled; \"cairn-lt list\" shows all\n" );
    EXPECT_EQ( cairnLt( { "sweep", "--format", "xml" } ).exitCode, 2 );
    EXPECT_EQ( cairnLt( { "sweep", "--chip", "nowhere.toml" } ).exitCode, 2 );
}

// --- The real sweep of a library that is broken
//
// What the library does wrong is done here on its way to what watches it.

class BrokenLibraryTest : public ::testing::Test {
  protected:
    template <class Broken>
    static Tool::SweepReport sweep( const std::vector<const char *> & names ) {
        std::vector<const Tool::Recipe *> recipes;
        for ( const char * name : names )
            recipes.push_back( Tool::findRecipe( name ) );
        return Tool::sweepRecipes(
            ToolTest::referenceModel(), recipes,
            { .progress = {}, .around = []( Shim::Sdk & watched ) -> Shim::Sdk & {
                 static Broken broken( watched );
                 return broken;
             } } );
    }

    // How many faults of this kind have a finding that holds `part`.
    static std::size_t found( const Tool::SweepReport & report, SweepFault::Kind kind,
                              const std::string & part ) {
        std::size_t count = 0;
        for ( const Tool::SweepCaseReport & each : report.cases ) {
            for ( const Tool::SweepFaultReport & fault : each.faults )
                count += fault.fault.kind == kind && holds( fault.differences, part ) ? 1 : 0;
        }
        return count;
    }

    static bool holds( const Findings & findings, const std::string & part ) {
        return std::any_of( findings.begin(), findings.end(),
                            [&]( const auto & each ) { return each.find( part ) != each.npos; } );
    }
};

// Takes a failed add for a successful one.
struct FailureBlind final : Interpose::Interposer {
    using Interposer::Interposer;
    int bcmlt_entry_field_add( std::uint32_t handle, const char * field,
                               std::uint64_t value ) noexcept override {
        return std::max( 0, inner().bcmlt_entry_field_add( handle, field, value ) );
    }
};

TEST_F( BrokenLibraryTest, FailuresOverlooked ) {
    const Tool::SweepReport report = sweep<FailureBlind>( { "setEgrTunnelEcnEncap" } );
    ASSERT_EQ( report.cases.front().differences, Findings() );
    const auto count = [&]( const char * part ) {
        return found( report, SweepFault::Kind::fails, part );
    };
    // Five calls, two of them adds. Without its index the commit fails; without its value it works.
    // An invalid handle makes the first add fail.
    EXPECT_EQ( count( "calls too many, the first is " ), 2u );
    EXPECT_EQ( count( "end of the trace line: \" (rc:0)\", expected nothing" ), 2u );
    EXPECT_EQ( count( "standard error: " ), 2u );
    EXPECT_EQ( count( "signal: 0, expected 6" ), 1u );
    EXPECT_EQ( count( "failure hooks: 0, expected 1" ), 1u );
    EXPECT_EQ( count( "live entries: none, expected " ), 1u );
    EXPECT_EQ( count( "unit 0 EGR_TUNNEL_ECN_ENCAPm: row: " ), 1u );
    EXPECT_EQ( report.unexpected, 2u + 1u );
}

// Takes a positive code for a failure.
struct PositiveAverse final : Interpose::Interposer {
    using Interposer::Interposer;
    int bcmlt_entry_free( std::uint32_t handle ) noexcept override {
        return -inner().bcmlt_entry_free( handle );
    }
};

TEST_F( BrokenLibraryTest, PositiveCodesTakenForFailures ) {
    const Tool::SweepReport report = sweep<PositiveAverse>( { "setEgrTunnelEcnEncap" } );
    EXPECT_EQ( found( report, SweepFault::Kind::positive, "signal: 6, expected 0" ), 1u );
    EXPECT_EQ( found( report, SweepFault::Kind::fails, "signal: 0, expected 6" ), 1u );
    EXPECT_EQ( report.unexpected, 2u );
}

struct NoFailureHook final : Interpose::Interposer {
    using Interposer::Interposer;
    void failureHook() noexcept override {}
};

struct TwoFailureHooks final : Interpose::Interposer {
    using Interposer::Interposer;
    void failureHook() noexcept override {
        inner().failureHook();
        inner().failureHook();
    }
};

TEST_F( BrokenLibraryTest, FailureHooks ) {
    const Tool::SweepReport none = sweep<NoFailureHook>( { "setEgrTunnelEcnEncap" } );
    EXPECT_EQ( found( none, SweepFault::Kind::fails, "failure hooks: 0, expected 1" ), 5u );
    const Tool::SweepReport two = sweep<TwoFailureHooks>( { "setEgrTunnelEcnEncap" } );
    EXPECT_EQ( found( two, SweepFault::Kind::fails, "failure hooks: 2, expected 1" ), 5u );
    EXPECT_EQ( found( two, SweepFault::Kind::positive, "" ), 0u );
}

struct NoPreCallHook final : Interpose::Interposer {
    using Interposer::Interposer;
    void preCallHook() noexcept override {}
};

TEST_F( BrokenLibraryTest, PreCallHooks ) {
    const Tool::SweepReport report = sweep<NoPreCallHook>( { "setEgrTunnelEcnEncap" } );
    const Tool::SweepCaseReport & only = report.cases.front();
    EXPECT_TRUE( holds( only.differences, "call 5: pre-call hook: no, expected yes" ) );
    EXPECT_TRUE( holds( only.differences, "pre-call hooks: 0, expected 5" ) );
    // What is wrong undisturbed is not disturbed.
    EXPECT_TRUE( only.faults.empty() );
    EXPECT_EQ( report.unexpected, 1u );
}

// A hook too many is an unchecked call that is guarded.
struct HookBeforeLookups final : Interpose::Interposer {
    using Interposer::Interposer;
    int bcmlt_entry_commit( std::uint32_t handle, std::uint32_t opcode,
                            std::uint32_t priority ) noexcept override {
        if ( opcode == inner().BCMLT_OPCODE_LOOKUP() )
            inner().preCallHook();
        return inner().bcmlt_entry_commit( handle, opcode, priority );
    }
};

TEST_F( BrokenLibraryTest, UncheckedCallsAreNotGuarded ) {
    const Tool::SweepReport report =
        sweep<HookBeforeLookups>( { "setLearnCacheEnabled", "programPacketDropForMtuError" } );
    for ( const Tool::SweepCaseReport & each : report.cases )
        EXPECT_TRUE( holds( each.differences, "pre-call hook: yes, expected no" ) );
}

struct LockKeeper final : Interpose::Interposer {
    using Interposer::Interposer;
    int bcmlt_entry_free( std::uint32_t handle ) noexcept override {
        const std::lock_guard lock( Kiln::activityLock() );
        return inner().bcmlt_entry_free( handle );
    }
};

TEST_F( BrokenLibraryTest, LocksKept ) {
    const Tool::SweepReport report = sweep<LockKeeper>( { "setVxlanUdpSourcePortSel" } );
    EXPECT_EQ( report.cases.front().differences,
               Findings{ "call 4: lock held: yes, expected no" } );
}

struct AsksAnotherCode final : Interpose::Interposer {
    using Interposer::Interposer;
    const char * errmsg( int rc ) noexcept override { return inner().errmsg( rc - 1 ); }
};

TEST_F( BrokenLibraryTest, ErrorTextOfAnotherCode ) {
    const Tool::SweepReport report = sweep<AsksAnotherCode>( { "setEgrTunnelEcnEncap" } );
    EXPECT_EQ( found( report, SweepFault::Kind::fails, "error texts asked: -2, expected -1" ), 5u );
    EXPECT_EQ( found( report, SweepFault::Kind::fails, "standard error: " ), 5u );
}

// Frees twice where the first free fails, as one that cleans up before it stops.
struct FreesAgain final : Interpose::Interposer {
    using Interposer::Interposer;
    int bcmlt_entry_free( std::uint32_t handle ) noexcept override {
        const int rc = inner().bcmlt_entry_free( handle );
        if ( rc < 0 )
            inner().bcmlt_entry_free( handle );
        return rc;
    }
};

TEST_F( BrokenLibraryTest, CallsBehindAFailure ) {
    const Tool::SweepReport report = sweep<FreesAgain>( { "setEgrTunnelEcnEncap" } );
    EXPECT_EQ( found( report, SweepFault::Kind::fails,
                      "1 calls too many, the first is bcmlt_entry_free entry 1" ),
               1u );
    EXPECT_EQ( found( report, SweepFault::Kind::fails, "live entries: none, expected" ), 1u );
    EXPECT_EQ( report.unexpected, 1u );
}

// Tells a lookup that the row is there, whatever the SDK says.
struct FindsAll final : Interpose::Interposer {
    using Interposer::Interposer;
    int bcmlt_entry_commit( std::uint32_t handle, std::uint32_t opcode,
                            std::uint32_t priority ) noexcept override {
        const int rc = inner().bcmlt_entry_commit( handle, opcode, priority );
        return opcode == inner().BCMLT_OPCODE_LOOKUP() ? 0 : rc;
    }
};

TEST_F( BrokenLibraryTest, LookupsMisread ) {
    const Tool::SweepReport report =
        sweep<FindsAll>( { "setLearnCacheEnabled", "verifyL2IfIngSystemPortTable",
                           "programPacketDropForMtuError" } );
    std::map<std::string, Findings> undisturbed;
    for ( const Tool::SweepCaseReport & each : report.cases )
        undisturbed[std::string( each.plan->recipe ) + ": " + std::string( each.plan->name )] =
            each.differences;
    EXPECT_TRUE( holds( undisturbed["setLearnCacheEnabled: row absent"],
                        "no call and no message has \"BCMLT_OPCODE_INSERT\"" ) );
    EXPECT_EQ( undisturbed["setLearnCacheEnabled: row present"], Findings() );
    EXPECT_TRUE( holds( undisturbed["verifyL2IfIngSystemPortTable: removal, row absent"],
                        "result: \"false\", expected \"true\"" ) );
    EXPECT_TRUE( holds( undisturbed["programPacketDropForMtuError: any"],
                        "end of the trace line: \" (rc:0)\", expected \" (rc:-25)\"" ) );
}

// Ends by itself.
struct Crashes final : Interpose::Interposer {
    using Interposer::Interposer;
    const char * errmsg( int ) noexcept override {
        ::kill( ::getpid(), SIGTRAP );
        return "";
    }
};

TEST_F( BrokenLibraryTest, ProcessesThatDie ) {
    const Tool::SweepReport report = sweep<Crashes>( { "setEgrTunnelEcnEncap" } );
    EXPECT_EQ( found( report, SweepFault::Kind::fails, "signal: 5, expected 6" ), 5u );
    EXPECT_EQ(
        found( report, SweepFault::Kind::fails, "the process did not get to say what happened" ),
        5u );
    EXPECT_EQ( report.unexpected, 5u + 1u ); // an invalid handle ends there, too
}

// Is killed, as by a system that is short of memory.
struct IsKilled final : Interpose::Interposer {
    using Interposer::Interposer;
    const char * errmsg( int ) noexcept override {
        ::kill( ::getpid(), SIGKILL );
        return "";
    }
};

TEST_F( BrokenLibraryTest, ProcessesThatAreKilledAreNoFindings ) {
    EXPECT_THROW( sweep<IsKilled>( { "setEgrTunnelEcnEncap" } ), Tool::Trouble );
}

TEST_F( BrokenLibraryTest, ProgressIsTold ) {
    std::size_t told = 0;
    std::size_t last = 0;
    std::size_t total = 0;
    Tool::sweepRecipes( ToolTest::referenceModel(), { Tool::findRecipe( "setEgrTunnelEcnEncap" ) },
                        { .progress =
                              [&]( std::size_t done, std::size_t all ) {
                                  ++told;
                                  last = done;
                                  total = all;
                              },
                          .around = {} } );
    EXPECT_EQ( told, 1u + 11u );
    EXPECT_EQ( last, 1u + 11u );
    EXPECT_EQ( total, 1u + 11u );
}

} // namespace
