#include "tests/support/TemporaryFolder.h"
#include "tests/tools/Program.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

// What the verb tells of a stop whose trace is a recording.

namespace {

using Json = nlohmann::json;
using ToolTest::cairnLt;
using ToolTest::Outcome;

class CrashSceneTest : public ::testing::Test {
  protected:
    // Runs a recipe that stops, and returns what the library wrote: not the tool's own lines.
    std::string stop( const std::vector<std::string> & arguments ) {
        std::vector<std::string> command{ "run" };
        command.insert( command.end(), arguments.begin(), arguments.end() );
        command.insert( command.end(), { "--record-to", trace_, "--trace-dir", trace_ } );
        const Outcome run = cairnLt( command );
        EXPECT_NE( run.signal, 0 ) << run.err;
        const auto lines = ToolTest::lines( run.err );
        return lines.at( 0 ) + "\n" + lines.at( 1 ) + "\n";
    }

    Outcome diagnose( const std::string & report, std::vector<std::string> options = {} ) {
        std::vector<std::string> command{ "diagnose", folder_.write( "report", report ), "--trace",
                                          trace_ };
        command.insert( command.end(), options.begin(), options.end() );
        return cairnLt( command );
    }

    Json sceneOf( const std::string & report, std::vector<std::string> options = {} ) {
        options.insert( options.end(), { "--format", "json" } );
        const Outcome told = diagnose( report, options );
        EXPECT_EQ( told.exitCode, 0 ) << told.err;
        return Json::parse( told.out ).at( "stops" ).at( 0 ).at( "trace" );
    }

    const std::vector<std::string> tooWide_{ "setEgrTunnelEcnEncap", "0", "5", "4" };
    const std::vector<std::string> struck_{ "setLoadBalanceRandSeedCtrl", "0", "12345", "--inject",
                                            "op=pt_entry_commit,rc=-30,at=2" };

    Support::TemporaryFolder folder_;
    const std::string trace_ = folder_.path( "trace" );
};

TEST_F( CrashSceneTest, RefusalIsExplainedByTheSimulatedChip ) {
    const Outcome told = diagnose( stop( tooWide_ ) );
    for ( const char * part :
          { "\n  arguments unit=0, index=5, outerEcn=4\n",
            "\n  operation bcmlt_entry_field_add entry 1 EGR_TUNNEL_ECN_ENCAPm OUTER_ECN = 4 -> rc "
            "-14\n",
            "\n  tried     The simulated chip in the same state refuses it, too: "
            "EGR_TUNNEL_ECN_ENCAPm.OUTER_ECN: value 4 needs 3 bits, the field has 2 (-14).\n",
            "\n  left      not freed: entry 1 of EGR_TUNNEL_ECN_ENCAPm on unit 0\n",
            "\n  earlier   no other thread of the trace was stopped by such a call\n" } )
        EXPECT_NE( told.out.find( part ), std::string::npos ) << part << "\n" << told.out;
}

TEST_F( CrashSceneTest, AcceptedOperationIsTheDevicesMatter ) {
    const std::string report = stop( struck_ );
    const Json scene = sceneOf( report );
    EXPECT_EQ( scene["found"], "by_call" );
    EXPECT_EQ( scene["arguments"], ( Json{ { "unit", "0" }, { "seed", "12345" } } ) );
    EXPECT_EQ( scene["simulated_chip"]["verdict"], "accepts" );
    EXPECT_EQ( scene["open_entries"],
               Json::array( { "entry 65537 of IPOST_LAG_RAND_NUM_CTRL_1r on unit 0" } ) );
    EXPECT_EQ( scene["changes"], 1 );
    EXPECT_EQ( scene["is_one_run"], true );
    EXPECT_EQ( scene["changed_rows"],
               Json::array( { "unit 0 IPOST_LAG_RAND_NUM_CTRL_0r: add SEED = 12345, commit "
                              "BCMLT_PT_OPCODE_MODIFY BCMLT_PRIORITY_NORMAL (call 5)" } ) );
    EXPECT_NE( diagnose( report ).out.find( "accepts it: the cause is the device's or the SDK's." ),
               std::string::npos );
}

TEST_F( CrashSceneTest, ChipIsAsItWasAtTheStop ) {
    const std::string report = stop( struck_ );
    const std::string state = folder_.path( "state.json" );
    const Outcome told = diagnose( report, { "--state", state, "--dump" } );
    EXPECT_EQ( told.exitCode, 0 ) << told.err;
    const std::string tables = cairnLt( { "dump", "--state", state } ).out;
    EXPECT_NE( tables.find( "IPOST_LAG_RAND_NUM_CTRL_0r" ), std::string::npos );
    EXPECT_EQ( tables.find( "IPOST_LAG_RAND_NUM_CTRL_1r" ), std::string::npos );
    EXPECT_TRUE( told.out.ends_with( "\n\n" + tables ) ) << told.out;
    const Outcome json = diagnose( report, { "--dump", "--format", "json" } );
    EXPECT_EQ( Json::parse( json.out )["tables"]["units"][0]["tables"].size(), 1u );
}

TEST_F( CrashSceneTest, StateBeforeTheRecordingIsTaken ) {
    const std::string before = folder_.path( "before.json" );
    cairnLt( { "run", "setEgrTunnelEcnEncap", "0", "7", "1", "--state", before } );
    const Outcome told = diagnose( stop( tooWide_ ), { "--from", before, "--dump" } );
    EXPECT_EQ( told.exitCode, 0 ) << told.err;
    EXPECT_NE( told.out.find( "\n  7      1 " ), std::string::npos ) << told.out;
}

TEST_F( CrashSceneTest, SameFailureOfAnotherProcessInTheFolderIsTold ) {
    stop( struck_ );
    stop( tooWide_ );
    const std::string report = stop( tooWide_ );
    // Which of the two stopped is open, so nothing is told of either but what they wrote.
    const Outcome open = diagnose( report );
    EXPECT_NE( open.out.find( "1 other thread of the trace could be meant as well" ),
               std::string::npos );
    EXPECT_EQ( open.out.find( "\n  tried " ), std::string::npos );
    // A journal names the process.
    const Json trace =
        Json::parse( diagnose( report, { "--format", "json" } ).out )["stops"][0]["trace"];
    const std::string prefix = "agent[" + std::to_string( trace["process"].get<int>() ) + "]: ";
    const Outcome told = diagnose( prefix + report );
    EXPECT_NE(
        told.out.find( "\n  earlier   1 other thread of the trace was stopped by such a call, "
                       "the last at " ),
        std::string::npos )
        << told.out;
}

TEST_F( CrashSceneTest, SameStopBeforeInTheReportIsTold ) {
    const std::string report = stop( tooWide_ );
    const Outcome told = diagnose( report + report );
    EXPECT_NE( told.out.find( "\n  earlier   1 time before in the report, first in line 1\n" ),
               std::string::npos )
        << told.out;
}

TEST_F( CrashSceneTest, RecordingTellsWhichOfTheCandidatesItIs ) {
    // The first line alone, of an older release: the text stands in many recipes.
    const std::string report = "Cairn/CairnLtHelper:9999 bcmlt_entry_free( ent_hdl ) API ERROR:no "
                               "such entry (-6)\n";
    const Outcome alone =
        cairnLt( { "diagnose", folder_.write( "r", report ), "--format", "json" } );
    EXPECT_EQ( Json::parse( alone.out )["stops"][0]["found"], "ambiguous" );
    stop( { "setOpaqueTagEgress", "0", "--inject", "op=entry_free,rc=-6" } );
    const Outcome told = diagnose( report, { "--format", "json" } );
    const Json first = Json::parse( told.out )["stops"][0];
    EXPECT_EQ( first["found"], "ambiguous" ) << "two recipes read and write this table";
    for ( const Json & site : first["sites"] )
        EXPECT_NE( site["recipe"].get<std::string>().find( "OpaqueTagEgress" ), std::string::npos );
}

TEST_F( CrashSceneTest, ChipOfAnotherKindIsSaid ) {
    const std::string report = stop( tooWide_ );
    const Json scene = sceneOf( report, { "--chip", "1=reference" } );
    EXPECT_EQ( scene["simulated_chip"]["verdict"], "untried" );
    EXPECT_NE( scene["simulated_chip"]["says"].get<std::string>().find( "say with --chip" ),
               std::string::npos );
}

TEST_F( CrashSceneTest, ChipNeedsARecording ) {
    const std::string report = stop( tooWide_ );
    const Outcome without =
        cairnLt( { "diagnose", folder_.write( "report", report ), "--state", "x" } );
    EXPECT_EQ( without.exitCode, 2 );
    EXPECT_EQ( without.err, "cairn-lt: --from, --state and --dump are about a recording; name its "
                            "folder with --trace\n" );
    const std::string other = "Cairn/CairnLtHelper:1 f( x ) API ERROR:words (-1)\n";
    const Outcome none = diagnose( other, { "--dump" } );
    EXPECT_EQ( none.exitCode, 2 );
    EXPECT_EQ( none.err,
               "cairn-lt: " + trace_ +
                   ": has no recording of a process that the report says was stopped, so no chip "
                   "can be rebuilt; leave --state and --dump out\n" );
}

// --- Without a recording

TEST( DiagnoseMessagesTest, LastMessageIsToldOfTheCandidates ) {
    const Support::TemporaryFolder folder;
    const std::string trace = folder.path( "trace" );
    cairnLt( { "run", "setLoadBalanceRandSeedCtrl", "0", "12345", "--trace-dir", trace, "--inject",
               "op=pt_entry_commit,rc=-30" } );
    // The first line alone, of an older release: the text stands in two recipes.
    const std::string report = folder.write(
        "report", "Cairn/CairnLtHelper:9999 bcmlt_pt_entry_commit( entry, BCMLT_PT_OPCODE_MODIFY, "
                  "BCMLT_PRIORITY_NORMAL ) API ERROR:out of memory (-30)\n" );
    const auto told = ToolTest::linesWith( cairnLt( { "diagnose", report, "--trace", trace } ).out,
                                           "CairnLtHelper:" );
    ASSERT_EQ( told.size(), 2u );
    EXPECT_TRUE( told[0].ends_with( " in setLoadBalanceRandSeedCtrl, call 4, of which the last "
                                    "message is" ) )
        << told[0];
    EXPECT_TRUE( told[1].ends_with( " in setLoadBalanceRandSeedMem, call 4" ) ) << told[1];
}

TEST( DiagnoseToolTest, LinesOfTheToolTellArgumentsAndFault ) {
    const Support::TemporaryFolder folder;
    const Outcome run = cairnLt(
        { "run", "setEgrTunnelEcnEncap", "0", "5", "2", "--inject", "op=pt_entry_commit,rc=-30" } );
    const Outcome told = cairnLt( { "diagnose", folder.write( "report", run.err ) } );
    for ( const char * part :
          { "\n  arguments setEgrTunnelEcnEncap( unit=0, index=5, outerEcn=2 )\n",
            "\n  operation bcmlt_pt_entry_commit entry 1 EGR_TUNNEL_ECN_ENCAPm ",
            "\n  fault     op=bcmlt_pt_entry_commit,rc=-30,at=1\n" } )
        EXPECT_NE( told.out.find( part ), std::string::npos ) << part << "\n" << told.out;
}

} // namespace
