#include "tests/tools/Program.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <ostream>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

// What run and bringup say and keep, whatever becomes of their output and whatever faults are
// injected.

namespace {

using Json = nlohmann::json;
using ToolTest::cairnLt;
using ToolTest::linesWith;
using ToolTest::Outcome;

// --- Output that fails

struct BrokenOutput {
    const char * name;
    std::function<void()> breakOutput; ///< called in the process that becomes cairn-lt
    const char * why;
};

void PrintTo( const BrokenOutput & each, std::ostream * out ) { *out << each.name; }

class BrokenOutputTest : public ::testing::TestWithParam<BrokenOutput> {
  protected:
    Outcome run( std::vector<std::string> arguments ) const {
        arguments.insert( arguments.end(), { "--state", state_ } );
        return cairnLt( arguments, {}, GetParam().breakOutput );
    }

    std::string complaint() const {
        return std::string( "cairn-lt: standard output cannot be written: " ) + GetParam().why +
               "\n";
    }

    // The rows that the state file holds of a table.
    std::size_t savedRows( const std::string & table ) const {
        const Json json =
            Json::parse( cairnLt( { "dump", "--state", state_, "--format", "json", table } ).out,
                         nullptr, false );
        return json.is_discarded() ? 0 : json["units"][0]["tables"][0]["rows"].size();
    }

    Support::TemporaryFolder folder_;
    std::string state_ = folder_.path( "chip.json" );
};

TEST_P( BrokenOutputTest, IsTroubleAndTheChipIsKept ) {
    for ( const char * option : { "--dump", "--dump=json", "--record", "--format=json" } ) {
        std::filesystem::remove( state_ );
        const Outcome outcome = run( { "run", "setEgrTunnelEcnEncap", "0", "5", "2", option } );
        EXPECT_EQ( outcome.exitCode, 2 ) << option;
        EXPECT_EQ( outcome.err, complaint() ) << option;
        EXPECT_EQ( savedRows( "EGR_TUNNEL_ECN_ENCAPm" ), 1u ) << option;
    }
}

TEST_P( BrokenOutputTest, DoesNotEndABringUp ) {
    const std::string file = folder_.write( "x.toml", R"(
[[chips]]
name = "leaf"
unit = 0
[[steps]]
recipe = "setEgrTunnelEcnEncap"
arguments = [ 0, 5, 2 ]
[[steps]]
recipe = "setEgrTunnelEcnEncap"
arguments = [ 0, 6, 2 ]
)" );
    const Outcome outcome = run( { "bringup", file } );
    EXPECT_EQ( outcome.exitCode, 2 );
    EXPECT_EQ( outcome.err, complaint() );
    EXPECT_EQ( savedRows( "EGR_TUNNEL_ECN_ENCAPm" ), 2u );
}

TEST_P( BrokenOutputTest, DoesNotHideAStop ) {
    const Outcome outcome = run(
        { "run", "setEgrTunnelEcnEncap", "0", "5", "2", "--dump", "--inject", "op=free,rc=-1" } );
    EXPECT_EQ( outcome.signal, SIGABRT );
    EXPECT_EQ( linesWith( outcome.err, "stopped in step 1 of 1" ).size(), 1u ) << outcome.err;
    EXPECT_TRUE( outcome.err.ends_with( complaint() ) ) << outcome.err;
    EXPECT_EQ( savedRows( "EGR_TUNNEL_ECN_ENCAPm" ), 1u );
}

TEST_P( BrokenOutputTest, MattersOnlyIfThereIsSome ) {
    const Outcome outcome = run( { "run", "setEgrTunnelEcnEncap", "0", "5", "2" } );
    EXPECT_EQ( outcome.exitCode, 0 );
    EXPECT_EQ( outcome.err, "" );
}

void openFull() {
    const int full = ::open( "/dev/full", O_WRONLY );
    ::dup2( full, STDOUT_FILENO );
    ::close( full );
}

void openPipeWithoutReader() {
    int ends[2];
    if ( ::pipe( ends ) != 0 )
        ::_exit( 1 );
    ::dup2( ends[1], STDOUT_FILENO );
    ::close( ends[0] );
    ::close( ends[1] );
    std::signal( SIGPIPE, SIG_DFL );
}

// Room for the line of standard error, which is a file as well. The start of a sanitizer's runtime
// needs some, too.
constexpr rlim_t smallFile = 64;

void limitFiles() {
    const rlimit small{ smallFile, smallFile };
    ::setrlimit( RLIMIT_FSIZE, &small );
}

const BrokenOutput brokenOutputs[] = {
    { "Full", openFull, "No space left on device" },
    { "Closed", [] { ::close( STDOUT_FILENO ); }, "Bad file descriptor" },
    { "WithoutReader", openPipeWithoutReader, "Broken pipe" },
};

INSTANTIATE_TEST_SUITE_P( All, BrokenOutputTest, ::testing::ValuesIn( brokenOutputs ),
                          []( const auto & each ) { return std::string( each.param.name ); } );

TEST( ClosedStreamsTest, NothingElseTakesTheirPlaces ) {
    const std::vector<std::vector<std::string>> commands = {
        { "list" },
        { "--help" },
        { "--version" },
        { "run", "setEgrTunnelEcnEncap", "0", "5", "2", "--dump" },
        { "explain", "setLearnCacheEnabled" },
        { "sweep", "setLearnCacheEnabled" },
    };
    for ( const auto & command : commands ) {
        const std::string whole = cairnLt( command ).out;
        for ( unsigned closed = 1; closed < 8; ++closed ) {
            const Outcome run = cairnLt( command, {}, [&] {
                for ( const int stream : { STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO } ) {
                    if ( closed & ( 1u << stream ) )
                        ::close( stream );
                }
            } );
            const bool isOutputClosed = ( closed & ( 1u << STDOUT_FILENO ) ) != 0;
            EXPECT_EQ( run.exitCode, isOutputClosed ? 2 : 0 ) << command[0] << " " << closed;
            EXPECT_EQ( run.out, isOutputClosed ? "" : whole ) << command[0] << " " << closed;
        }
    }
}

TEST( FileSizeLimitTest, IsTrouble ) {
    const Outcome run = cairnLt( { "list" }, {}, limitFiles );
    EXPECT_EQ( run.exitCode, 2 );
    EXPECT_EQ( run.out.size(), smallFile );
    EXPECT_EQ( run.err, "cairn-lt: standard output cannot be written: File too large\n" );
}

// --- Texts that are not UTF-8

TEST( TextThatIsNotUtf8Test, IsEscapedInADocumentAndTheChipIsKept ) {
    const Support::TemporaryFolder folder;
    const std::string state = folder.path( "chip.json" );
    const Outcome run = cairnLt( { "run", "enable1BitEccRpt", "0", "EGR\xff", "true", "--record",
                                   "--format", "json", "--state", state } );
    EXPECT_EQ( run.signal, SIGABRT );
    const Json json = Json::parse( run.out );
    EXPECT_EQ( json["steps"][0]["arguments"]["mem"], "EGR\\xff" );
    EXPECT_EQ( json["stopped_at"]["reason"], "SER_PT_CONTROL.PT_ID has no symbol EGR\\xff" );
    EXPECT_TRUE( std::filesystem::exists( state ) );
}

TEST( TextThatIsNotUtf8Test, IsEscapedInText ) {
    const Outcome run =
        cairnLt( { "run", "enable1BitEccRpt", "0", "EGR\xff\033[1m", "true", "--record" } );
    EXPECT_EQ( run.signal, SIGABRT );
    EXPECT_EQ( linesWith( run.out, "PT_ID = EGR\\xff\\x1b[1m" ).size(), 1u ) << run.out;
    EXPECT_EQ( run.out.find( '\xff' ), std::string::npos );
    EXPECT_EQ( run.out.find( '\033' ), std::string::npos );
}

// --- What is said of faults

// A value that is too wide for its field.
const std::vector<std::string> refusedRun{ "run", "setEgrTunnelEcnEncap", "0", "5", "4" };

Outcome inject( std::vector<std::string> command, const std::vector<std::string> & faults,
                bool asJson = false ) {
    for ( const std::string & fault : faults )
        command.insert( command.end(), { "--inject", fault } );
    if ( asJson )
        command.insert( command.end(), { "--format", "json" } );
    return cairnLt( command );
}

Json stopOf( const std::vector<std::string> & command, const std::vector<std::string> & faults ) {
    return Json::parse( inject( command, faults, true ).out )["stopped_at"];
}

TEST( CauseOfAStopTest, IsTheChipIfTheFaultChangedNothing ) {
    const std::vector<std::string> fault{ "op=field_add,field=OUTER_ECN,rc=5" };
    const Outcome run = inject( refusedRun, fault );
    EXPECT_EQ( run.signal, SIGABRT );
    EXPECT_EQ( linesWith( run.err,
                          "the chip says: EGR_TUNNEL_ECN_ENCAPm.OUTER_ECN: value 4 needs 3 "
                          "bits, the field has 2" )
                   .size(),
               1u )
        << run.err;
    EXPECT_EQ( linesWith( run.err, "it is a fault" ).size(), 0u ) << run.err;
    EXPECT_EQ( linesWith( run.err, "warning: the fault \"op=bcmlt_entry_field_add,field=OUTER_ECN,"
                                   "rc=5,at=1\" never struck: 1 operation matched, and the recipe "
                                   "saw nothing else than without it" )
                   .size(),
               1u )
        << run.err;
    EXPECT_EQ( stopOf( refusedRun, fault )["cause"], "chip" );
    EXPECT_EQ( stopOf( refusedRun, fault )["faults_that_struck"].size(), 0u );
}

TEST( CauseOfAStopTest, IsTheFaultThatStruckTheCall ) {
    const std::vector<std::string> fault{ "op=field_add,field=OUTER_ECN,rc=-5" };
    const Outcome run = inject( refusedRun, fault );
    EXPECT_EQ( linesWith( run.err, "it is a fault that was injected: op=bcmlt_entry_field_add,"
                                   "field=OUTER_ECN,rc=-5,at=1" )
                   .size(),
               1u )
        << run.err;
    EXPECT_EQ( linesWith( run.err, "the chip says" ).size(), 0u ) << run.err;
    EXPECT_EQ( stopOf( refusedRun, fault )["cause"], "fault" );
}

TEST( CauseOfAStopTest, IsBothIfTheChipRefusesAfterAFault ) {
    // The look-up that fails makes the recipe INSERT a row that is there.
    const Support::TemporaryFolder folder;
    const std::string state = folder.path( "chip.json" );
    const std::vector<std::string> command{ "run", "setLearnCacheEnabled", "0", "on", "--state",
                                            state };
    EXPECT_EQ( cairnLt( command ).exitCode, 0 );
    const std::vector<std::string> fault{ "op=commit,rc=-42" };
    const Json stop = stopOf( command, fault );
    EXPECT_EQ( stop["cause"], "chip and fault" );
    EXPECT_EQ( stop["faults_that_struck"].size(), 1u );
    const Outcome run = inject( command, fault );
    EXPECT_EQ( run.signal, SIGABRT );
    EXPECT_EQ( linesWith( run.err, "the chip says: " ).size(), 1u ) << run.err;
    EXPECT_EQ( linesWith( run.err, "a fault that was injected struck before: op=bcmlt_entry_commit,"
                                   "rc=-42,at=1, in step 1: bcmlt_entry_commit entry 1 " )
                   .size(),
               1u )
        << run.err;
}

TEST( CauseOfAStopTest, IsAHandleThatAFaultLeftInvalid ) {
    // This recipe does not look at the handle, so the chip refuses the next call.
    const std::vector<std::string> command{ "run", "setEgrTunnelEcnEncap", "0", "5", "2" };
    const std::vector<std::string> fault{ "handle=invalid" };
    const Outcome run = inject( command, fault );
    EXPECT_EQ( run.signal, SIGABRT );
    EXPECT_EQ( linesWith( run.err, "the chip says: " ).size(), 1u ) << run.err;
    EXPECT_EQ( linesWith( run.err, "a fault that was injected struck before: op=bcmlt_entry_"
                                   "allocate,handle=invalid,at=1, in step 1: bcmlt_entry_allocate "
                                   "unit 0 EGR_TUNNEL_ECN_ENCAPm" )
                   .size(),
               1u )
        << run.err;
    EXPECT_EQ( stopOf( command, fault )["cause"], "chip and fault" );
}

TEST( CauseOfAStopTest, IsTheRecipeIfNothingFailed ) {
    EXPECT_EQ( stopOf( { "run", "getOpaqueTagIngress", "0", "3" }, {} )["cause"], "recipe" );
}

TEST( FaultThatNeverStruckTest, IsNamedAlsoAtAStop ) {
    const Outcome run = inject( refusedRun, { "op=free,rc=-1", "op=field_add,rc=-1,at=9" } );
    EXPECT_EQ( run.signal, SIGABRT );
    EXPECT_EQ( linesWith( run.err, "warning: the fault \"op=bcmlt_entry_free,rc=-1,at=1\" never "
                                   "struck: no operation matched" )
                   .size(),
               1u )
        << run.err;
    EXPECT_EQ( linesWith( run.err,
                          "warning: the fault \"op=bcmlt_entry_field_add,rc=-1,at=9\" never "
                          "struck: 2 operations matched" )
                   .size(),
               1u )
        << run.err;
}

} // namespace
