#include "tests/support/TemporaryFolder.h"
#include "tests/tools/Program.h"
#include "tools/diagnose/Diagnosis.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <cstddef>
#include <fcntl.h>
#include <filesystem>
#include <set>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

// From a report to the place and its meaning; and the verb.

namespace {

using Json = nlohmann::json;
using Tool::Diagnosis;
using Tool::ReportReader;
using Tool::SiteTable;
using ToolTest::cairnLt;
using ToolTest::Outcome;

// --- Other releases

Tool::Stop stopAt( int line, const char * text, const char * signature = "" ) {
    return { .kind = Tool::Stop::Kind::apiError,
             .line = line,
             .text = text,
             .words = "w",
             .rc = -27,
             .signature = signature };
}

constexpr const char * tableText =
    "cairn-lt sites 1\t1.2\n"
    "10\tone\t0\trecipe\tvoid Cairn::one(uint32_t)\n"
    "11\tone\t1\tguarded\tbcmlt_entry_allocate( unit, \"A\", &e )\n"
    "12\tone\t2\tguarded\tbcmlt_entry_free( e )\n"
    "20\ttwo\t0\trecipe\tvoid Cairn::two(uint32_t)\n"
    "21\ttwo\t1\tguarded\tbcmlt_entry_allocate( unit, \"B\", &e )\n"
    "22\ttwo\t2\tunchecked\tbcmlt_entry_commit( e, BCMLT_OPCODE_LOOKUP, P )\n"
    "23\ttwo\t3\tguarded\tbcmlt_entry_free( e )\n";

Diagnosis diagnosed( const Tool::Stop & stop ) {
    return Tool::diagnose( stop, SiteTable::parse( tableText, "table" ), Sim::referenceSchema() );
}

TEST( DiagnoseTest, TextTellsWhereTheLineIsOfAnotherRelease ) {
    const Diagnosis found = diagnosed( stopAt( 99, "bcmlt_entry_allocate( unit, \"B\", &e )" ) );
    EXPECT_EQ( found.found, Diagnosis::Found::byText );
    EXPECT_EQ( found.function, "two" );
    EXPECT_EQ( found.inWords, "allocates an entry of B" );
}

TEST( DiagnoseTest, LineOfAnotherTextIsNotBelieved ) {
    const Diagnosis found = diagnosed( stopAt( 11, "bcmlt_entry_allocate( unit, \"B\", &e )" ) );
    EXPECT_EQ( found.found, Diagnosis::Found::byText );
    EXPECT_EQ( found.function, "two" );
}

TEST( DiagnoseTest, SameTextInTwoRecipesIsNarrowedByTheSignature ) {
    const Diagnosis found =
        diagnosed( stopAt( 99, "bcmlt_entry_free( e )", "void Cairn::two(uint32_t)" ) );
    EXPECT_EQ( found.found, Diagnosis::Found::byText );
    EXPECT_EQ( found.sites.at( 0 ).line, 23 );
    // A signature that changed between the releases still names the recipe.
    EXPECT_EQ( diagnosed( stopAt( 99, "bcmlt_entry_free( e )", "bool Cairn::one(bool)" ) )
                   .sites.at( 0 )
                   .line,
               12 );
}

TEST( DiagnoseTest, SameTextInTwoRecipesIsToldAsCandidates ) {
    const Diagnosis found = diagnosed( stopAt( 99, "bcmlt_entry_free( e )" ) );
    EXPECT_EQ( found.found, Diagnosis::Found::ambiguous );
    EXPECT_EQ( found.sites.size(), 2u );
    EXPECT_EQ( found.function, "" );
    EXPECT_EQ( found.inWords, "" );
}

TEST( DiagnoseTest, UnknownTextAndUncheckedCallsAreNowhere ) {
    EXPECT_EQ( diagnosed( stopAt( 12, "bcmlt_entry_free( x )" ) ).found,
               Diagnosis::Found::nowhere );
    EXPECT_EQ( diagnosed( stopAt( 22, "bcmlt_entry_commit( e, BCMLT_OPCODE_LOOKUP, P )" ) ).found,
               Diagnosis::Found::nowhere );
}

TEST( DiagnoseTest, CallsAreToldInWords ) {
    const SiteTable own = SiteTable::own();
    std::vector<std::string> words;
    for ( const Tool::Site & site : own.sites() ) {
        if ( site.isCall() ) {
            EXPECT_NE( Tool::inWords( site, own ), "" ) << site.text;
            if ( site.recipe == "setEgrTunnelEcnEncap" )
                words.push_back( Tool::inWords( site, own ) );
        }
    }
    EXPECT_EQ( words, ( std::vector<std::string>{
                          "allocates an entry of EGR_TUNNEL_ECN_ENCAPm",
                          "adds BCMLT_PT_INDEX = index to the entry of EGR_TUNNEL_ECN_ENCAPm",
                          "adds OUTER_ECN = outerEcn to the entry of EGR_TUNNEL_ECN_ENCAPm",
                          "commits the entry of EGR_TUNNEL_ECN_ENCAPm, BCMLT_PT_OPCODE_MODIFY",
                          "frees the entry of EGR_TUNNEL_ECN_ENCAPm" } ) );
}

// --- The verb

TEST( DiagnoseTest, VerbTellsPlaceMeaningAndWhatWasSaidBefore ) {
    const Support::TemporaryFolder folder;
    const std::string trace = folder.path( "trace" );
    const Outcome run = cairnLt( { "run", "setLoadBalanceRandSeedCtrl", "0", "12345", "--trace-dir",
                                   trace, "--inject", "op=pt_entry_commit,rc=-30,at=2" } );
    ASSERT_NE( run.signal, 0 );
    const std::string report = folder.write( "report", "before\n" + run.err );
    const Outcome told = cairnLt( { "diagnose", report, "--trace", trace } );
    EXPECT_EQ( told.exitCode, 0 );
    EXPECT_EQ( told.err, "" );
    for ( const char * part :
          { "line 2: an SDK call failed\n",
            "\n  recipe    setLoadBalanceRandSeedCtrl (Load-balance random seeds): ",
            "\n  step      call 4 of 5: commits the entry, BCMLT_PT_OPCODE_MODIFY\n",
            "\n  SDK       out of memory (-30)\n",
            "Z setLoadBalanceRandSeedCtrl unit: 0 seed: 12345\n" } )
        EXPECT_NE( told.out.find( part ), std::string::npos ) << part << "\n" << told.out;

    const Json json =
        Json::parse( cairnLt( { "diagnose", report, "--trace", trace, "--format", "json" } ).out );
    EXPECT_EQ( json["count"], 1 );
    EXPECT_EQ( json["stops"][0]["recipe"], "setLoadBalanceRandSeedCtrl" );
    EXPECT_EQ( json["stops"][0]["rc"], -30 );
    EXPECT_EQ( json["stops"][0]["found"], "exactly" );
    EXPECT_EQ( json["stops"][0]["sites"][0]["call"], 4 );
    EXPECT_EQ( json["stops"][0]["trace"]["before"][0]["text"],
               "setLoadBalanceRandSeedCtrl unit: 0 seed: 12345" );
}

// --- Many reports

const std::string failedCall =
    "Cairn/CairnLtHelper:286 bcmlt_entry_field_add( egrTunnelEcnEncapEntry, \"OUTER_ECN\", outerEcn "
    ") API ERROR:value is too wide for the field (-14)\n";
const std::string misuse = "Kiln activity lock: taken by a thread that holds it already\n";

class DiagnoseFleetTest : public ::testing::Test {
  protected:
    DiagnoseFleetTest() {
        std::filesystem::create_directories( folder_.path( "more" ) );
        folder_.write( "a.log", "2026-03-01T07:30:00Z leaf1 agent[1]: " + failedCall );
        folder_.write( "b.log", "2026-02-01T00:00:00Z leaf2 agent[2]: " + misuse +
                                    "2026-04-01T00:00:00Z leaf2 agent[3]: " + failedCall );
        folder_.write( "more/c.log", "all is well\n" );
    }

    static std::vector<Json> linesOf( const Outcome & run ) {
        std::vector<Json> all;
        for ( const std::string & line : ToolTest::lines( run.out ) )
            all.push_back( Json::parse( line ) );
        return all;
    }

    Support::TemporaryFolder folder_;
};

TEST_F( DiagnoseFleetTest, StopsOfAFolderAreGroupedByWhatTheyHaveInCommon ) {
    const Outcome run = cairnLt( { "diagnose", folder_.path(), "--format", "json" } );
    EXPECT_EQ( run.exitCode, 0 ) << run.err;
    const Json json = Json::parse( run.out );
    EXPECT_EQ( json["reports"], 3 );
    EXPECT_EQ( json["stops"], 3 );
    ASSERT_EQ( json["groups"].size(), 2u );
    const Json & most = json["groups"][0];
    EXPECT_EQ( most["count"], 2 );
    EXPECT_EQ( most["reports"], 2 );
    EXPECT_EQ( most["first"], "2026-03-01T07:30:00.000000000Z" );
    EXPECT_EQ( most["last"], "2026-04-01T00:00:00.000000000Z" );
    EXPECT_EQ( most["example"]["recipe"], "setEgrTunnelEcnEncap" );
    EXPECT_EQ( most["example"]["report"], folder_.path( "a.log" ) );
    EXPECT_EQ( json["groups"][1]["example"]["kind"], "lock_misuse" );

    const Outcome text = cairnLt( { "diagnose", folder_.path() } );
    EXPECT_EQ( ToolTest::lines( text.out ).at( 0 ), "3 stops in 3 reports, 2 kinds" );
    EXPECT_EQ( ToolTest::lines( text.out ).at( 2 ),
               "2 in 2 reports, 2026-03-01T07:30:00Z to 2026-04-01T00:00:00Z: "
               "setEgrTunnelEcnEncap, an SDK call failed" );
}

TEST_F( DiagnoseFleetTest, OneReportIsGroupedIfThatIsAskedFor ) {
    const Outcome run = cairnLt( { "diagnose", folder_.path( "b.log" ), "--group" } );
    EXPECT_EQ( run.exitCode, 0 );
    EXPECT_EQ( ToolTest::lines( run.out ).at( 0 ), "2 stops in 1 report, 2 kinds" );
}

TEST_F( DiagnoseFleetTest, LineForEachStopHasAlwaysTheSameMembers ) {
    const Outcome run = cairnLt( { "diagnose", folder_.path(), "--format", "ndjson" } );
    EXPECT_EQ( run.exitCode, 0 );
    const std::vector<Json> all = linesOf( run );
    ASSERT_EQ( all.size(), 3u );
    const std::set<std::string> members{
        "schema", "report", "report_line", "time", "program", "process", "release", "kind",
        "found",  "recipe", "call",        "line", "text",    "rc",      "words",   "in_words" };
    for ( const Json & line : all ) {
        std::set<std::string> found;
        for ( const auto & [name, value] : line.items() )
            found.insert( name );
        EXPECT_EQ( found, members );
        EXPECT_EQ( line["schema"], 1 );
    }
    EXPECT_EQ( all[0]["process"], 1 );
    EXPECT_EQ( all[0]["rc"], -14 );
    EXPECT_EQ( all[0]["call"], 3 );
    EXPECT_EQ( all[1]["kind"], "lock_misuse" );
    EXPECT_TRUE( all[1]["rc"].is_null() );
    EXPECT_TRUE( all[1]["recipe"].is_null() );
}

TEST_F( DiagnoseFleetTest, StopWithoutATimeHasThatOfItsFile ) {
    const std::string report = folder_.write( "bare.log", failedCall );
    const timespec time{ .tv_sec = 1'778'025'600, .tv_nsec = 0 };
    const timespec times[] = { time, time };
    ASSERT_EQ( ::utimensat( AT_FDCWD, report.c_str(), times, 0 ), 0 );
    EXPECT_EQ( linesOf( cairnLt( { "diagnose", report, "--format", "ndjson" } ) ).at( 0 )["time"],
               "2026-05-06T00:00:00.000000000Z" );
}

TEST_F( DiagnoseFleetTest, ReportThatCannotBeReadHidesNoOther ) {
    const std::string none = folder_.path( "none.log" );
    const Outcome run = cairnLt( { "diagnose", folder_.path( "a.log" ), none } );
    EXPECT_EQ( run.exitCode, 1 );
    EXPECT_EQ( ToolTest::lines( run.out ).at( 0 ), "1 stop in 1 report, 1 kind" );
    EXPECT_EQ( run.err, "cairn-lt: " + none + ": cannot be read: No such file or directory\n" );
}

TEST_F( DiagnoseFleetTest, TraceIsForOneReport ) {
    const Outcome run = cairnLt( { "diagnose", folder_.path(), "--trace", folder_.path() } );
    EXPECT_EQ( run.exitCode, 2 );
    EXPECT_EQ( run.err, "cairn-lt: --trace is for one report; leave it out, or name one report\n" );
}

TEST( DiagnoseTest, ReportWithoutAStopIsAnswerNo ) {
    const Support::TemporaryFolder folder;
    const Outcome run = cairnLt( { "diagnose", folder.write( "report", "all is well\n" ) } );
    EXPECT_EQ( run.exitCode, 1 );
    EXPECT_EQ( run.out, "nothing in the report says that this library stopped a process\n" );
}

TEST( DiagnoseTest, BytesThatAreNoTextAreEscaped ) {
    const Support::TemporaryFolder folder;
    const std::string report = folder.write(
        "report", "Cairn/CairnLtHelper:1 f( x ) API ERROR:bad \xff\x1b[1m words (-1)\n" );
    const Outcome json = cairnLt( { "diagnose", report, "--format", "json" } );
    EXPECT_EQ( Json::parse( json.out )["stops"][0]["words"], "bad \\xff\\x1b[1m words" );
    EXPECT_NE( cairnLt( { "diagnose", report } ).out.find( "bad \\xff\\x1b[1m words (-1)" ),
               std::string::npos );
}

TEST( DiagnoseTest, BadInputIsOneLineAndExitCodeTwo ) {
    const Support::TemporaryFolder folder;
    const std::string report = folder.write( "report", "x" );
    const auto refused = []( const std::vector<std::string> & arguments ) {
        std::vector<std::string> command{ "diagnose" };
        command.insert( command.end(), arguments.begin(), arguments.end() );
        const Outcome run = cairnLt( command );
        EXPECT_EQ( run.exitCode, 2 );
        EXPECT_EQ( run.out, "" );
        return run.err;
    };
    const std::string none = folder.path( "none" );
    EXPECT_EQ( refused( { none } ),
               "cairn-lt: " + none + ": cannot be read: No such file or directory\n" );
    const std::string remedy =
        "; give what the process wrote to standard error, as a file or by a pipe\n";
    const std::string empty = folder.write( "empty", "" );
    EXPECT_EQ( refused( { empty } ), "cairn-lt: " + empty + ": is empty" + remedy );
    for ( const std::vector<std::string> & command :
          { std::vector<std::string>{ "diagnose" }, { "diagnose", "-", "--format", "ndjson" } } ) {
        const Outcome run = cairnLt( command, {}, [&] {
            ::dup2( ::open( empty.c_str(), O_RDONLY | O_CLOEXEC ), STDIN_FILENO );
        } );
        EXPECT_EQ( run.exitCode, 2 );
        EXPECT_EQ( run.out, "" );
        EXPECT_EQ( run.err, "cairn-lt: standard input: is empty" + remedy );
    }
    EXPECT_EQ( refused( { report, "--trace", folder.path() } ),
               "cairn-lt: " + folder.path() + ": no trace files (*.fleetlog) in this directory\n" );
    EXPECT_EQ( ToolTest::lines( refused( { report, "--trace", report } ) ).size(), 1u );
    EXPECT_EQ( ToolTest::lines( refused( { report, "--library", report } ) ).size(), 1u );
}

} // namespace
