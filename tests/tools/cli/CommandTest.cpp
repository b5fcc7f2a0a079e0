#include "tests/tools/Program.h"
#include "tools/recipes/Registry.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <csignal>
#include <filesystem>
#include <ostream>
#include <set>
#include <string>
#include <vector>

// cairn-lt as its users see it: exit codes, standard output, standard error.

namespace {

using Json = nlohmann::json;
using ToolTest::cairnLt;
using ToolTest::lines;
using ToolTest::linesWith;
using ToolTest::Outcome;

Json parsed( const Outcome & run ) { return Json::parse( run.out ); }

// --- Command line

struct BadCommand {
    const char * name;
    std::vector<std::string> arguments;
    std::string message;
};

void PrintTo( const BadCommand & each, std::ostream * out ) { *out << each.name; }

class BadCommandLine : public ::testing::TestWithParam<BadCommand> {};

TEST_P( BadCommandLine, IsOneLineAndExitCodeTwo ) {
    const Outcome run = cairnLt( GetParam().arguments );
    EXPECT_EQ( run.exitCode, 2 );
    EXPECT_EQ( run.err, "cairn-lt: " + GetParam().message + "\n" );
    EXPECT_EQ( run.out, "" );
}

const std::string verbHelp = "; \"cairn-lt --help\" tells more";
const std::string runHelp = "; \"cairn-lt run --help\" tells more";

const BadCommand badCommands[] = {
    { "UnknownVerb",
      { "brinup", "x.toml" },
      "there is no verb \"brinup\"; the nearest is bringup" + verbHelp },
    { "UnknownOption",
      { "run", "setEgrTunnelEcnEncap", "0", "5", "2", "--dmup" },
      "there is no option \"--dmup\"; the nearest is --dump" + runHelp },
    { "UnknownOptionOfTheProgram",
      { "--verison" },
      "there is no option \"--verison\"; the nearest is --version" + verbHelp },
    { "OptionBeforeTheVerb",
      { "--format", "json", "list" },
      "--format is an option of a verb, and no verb is given; write the verb first" + verbHelp },
    { "OptionForAValue",
      { "run", "setOpaqueTagEgress", "0", "--state", "--dump" },
      "--state needs a value, and --dump follows; write --state=--dump if that is the value" +
          runHelp },
    { "OptionForARepeatableValue",
      { "run", "setOpaqueTagEgress", "0", "--trace", "--dump" },
      "--trace needs a value, and --dump follows; write --trace=--dump if that is the value" +
          runHelp },
    { "NoValue",
      { "run", "setOpaqueTagEgress", "0", "--state" },
      "--state needs a value" + runHelp },
    { "EmptyValue",
      { "run", "setOpaqueTagEgress", "0", "--state=" },
      "--state needs a value" + runHelp },
    { "EmptyFolder",
      { "run", "setOpaqueTagEgress", "0", "--trace-dir", "" },
      "--trace-dir needs a value" + runHelp },
    { "NoRecipe", { "run" }, "recipe is required" + runHelp },
    { "UnknownRecipe",
      { "run", "setEgrTunnelEcnEncaps", "0", "5", "2" },
      "there is no recipe \"setEgrTunnelEcnEncaps\"; the nearest "
      "is setEgrTunnelEcnEncap; \"cairn-lt list\" shows all" },
    { "HalfARecipe",
      { "run", "setLearn", "0" },
      "there is no recipe \"setLearn\"; there are setLearnCacheEnabled and "
      "setLearnCacheDropEnabled; "
      "\"cairn-lt list\" shows all" },
    { "TooFew",
      { "run", "setEgrTunnelEcnEncap", "0", "5" },
      "setEgrTunnelEcnEncap takes 3 arguments: unit, index, outerEcn; 2 are given" },
    { "TooMany",
      { "run", "setEgrTunnelEcnEncap", "0", "5", "2", "7" },
      "setEgrTunnelEcnEncap takes 3 arguments: unit, index, outerEcn; 4 are given" },
    { "WrongType",
      { "run", "setEgrTunnelEcnEncap", "0", "five", "2" },
      "setEgrTunnelEcnEncap: index: \"five\" is not a uint32_t; "
      "write 0 to 4294967295, in decimal or in hexadecimal after 0x" },
    { "OutOfRange",
      { "run", "setOpaqueTagIngress", "0", "256" },
      "setOpaqueTagIngress: tagType: 256 is too large for a uint8_t; write 0 to 255" },
    { "BitmapBeyondTheContract",
      { "run", "resetIngEnEfilterBitMap", "0", "4097" },
      "resetIngEnEfilterBitMap: bitMapBits: 4097 is too large: the "
      "recipe has that many zeros to hand over; write 0 to 4096" },
    { "UnknownUnit",
      { "run", "setOpaqueTagEgress", "3" },
      "setOpaqueTagEgress: unit: there is no unit 3; the chips are units 0" },
    { "BadFormat",
      { "list", "--format", "xml" },
      "--format: there is no format \"xml\"; write text or json" },
    { "BadFormatOfExplain",
      { "explain", "--all", "--format", "xml" },
      "--format: there is no format \"xml\"; write text, markdown or json" },
    { "BadFormatOfTrace",
      { "trace", "x.fleetlog", "--format", "xml" },
      "--format: there is no format \"xml\"; write text, brief or json" },
    { "BadDump",
      { "run", "setOpaqueTagEgress", "0", "--dump=xml" },
      "--dump: there is no format \"xml\"; write text or json" },
    { "TextInADocument",
      { "run", "setOpaqueTagEgress", "0", "--dump=text", "--format", "json" },
      "--dump: with --format json the tables are part of the document; leave \"=text\" out" },
    { "BadTrace",
      { "run", "setOpaqueTagEgress", "0", "--trace", "ApiCairn" },
      "--trace: \"ApiCairn\" is not FACILITY/LEVEL, FACILITY/LOW-HIGH "
      "or FACILITY/* with levels 0 to 9, as in ApiCairn/4" },
    { "UnknownFacility",
      { "run", "setOpaqueTagEgress", "0", "--trace", "ApiCairm/4" },
      "--trace: there is no facility \"ApiCairm\"; the nearest is ApiCairn" },
    { "UnknownFacilities",
      { "run", "setOpaqueTagEgress", "0", "--trace", "ApiCairn/4,Fleet*/*" },
      "--trace: there is no facility \"Fleet*\"; there are ApiCairn and CairnLtHelper" },
    { "BadTraceFile",
      { "run", "setOpaqueTagEgress", "0", "--trace-file", "/no/where" },
      "--trace-file: /no/where: cannot be written: No such file or directory" },
    { "FaultOfUnknownTable",
      { "run", "setOpaqueTagEgress", "0", "--inject", "op=commit,table=PC_PROT,rc=-1" },
      "--inject \"op=commit,table=PC_PROT,rc=-1\": there "
      "is no table \"PC_PROT\"; the nearest is PC_PORT" },
    { "FaultOfUnknownField",
      { "run", "setOpaqueTagEgress", "0", "--inject",
        "op=field_add,table=PC_PORT,field=LANES,rc=-1" },
      "--inject \"op=field_add,table=PC_PORT,field=LANES,rc=-1\": PC_PORT has no field "
      "\"LANES\"; there are PORT_ID, ENABLE, NUM_LANES, SPEED, AUTONEG, MAX_FRAME_SIZE, LOOPBACK_MODE and FEC_MODE" },
    { "FaultOfAFieldOfAnotherTable",
      { "run", "setOpaqueTagEgress", "0", "--inject",
        "op=field_add,table=PC_PORT,field=OUTER_ECN,rc=-1" },
      "--inject \"op=field_add,table=PC_PORT,field=OUTER_ECN,rc=-1\": PC_PORT has no field "
      "\"OUTER_ECN\"; there are PORT_ID, ENABLE, NUM_LANES, SPEED, AUTONEG, MAX_FRAME_SIZE, "
      "LOOPBACK_MODE and FEC_MODE" },
    { "FaultOfUnknownUnit",
      { "run", "setOpaqueTagEgress", "0", "--inject", "unit=1,rc=-1" },
      "--inject \"unit=1,rc=-1\": there is no unit 1" },
    { "NameOfTwoLines",
      { "run", "two\nlines\033[1m" },
      "there is no recipe \"two\\nlines\\x1b[1m\"; \"cairn-lt list\" shows all" },
    { "MissingBringupFile",
      { "bringup", "nowhere.toml" },
      "nowhere.toml: cannot be read: No such file or directory" },
    { "MissingModel",
      { "run", "setOpaqueTagEgress", "0", "--model", "nowhere.toml" },
      "nowhere.toml: cannot be read: No such file or directory" },
    { "MissingChip",
      { "run", "setOpaqueTagEgress", "0", "--chip", "nowhere.toml" },
      "nowhere.toml: cannot be read: No such file or directory" },
    { "ChipAndModel",
      { "run", "setOpaqueTagEgress", "0", "--chip", "reference", "--model",
        "examples/bringup.toml" },
      "--chip and --model both say what the chips are; give one of them" },
    { "UnitTwice",
      { "run", "setOpaqueTagEgress", "0", "--chip", "1=reference", "--chip", "1=reference" },
      "--chip 1=reference: unit 1 is another chip already; write UNIT=FILE" },
    { "UnitTooLarge",
      { "run", "setOpaqueTagEgress", "0", "--chip", "65536=reference" },
      "--chip 65536=reference: the unit is too large; write 0 to 65535" },
    { "NoUnitAfterTheLast",
      { "run", "setOpaqueTagEgress", "0", "--chip", "65535=reference", "--chip", "reference" },
      "--chip reference: there is no unit after 65535; write UNIT=FILE" },
    { "MissingState",
      { "dump", "--state", "nowhere.json" },
      "nowhere.json: cannot be read: No such file or directory" },
    { "NoState", { "dump" }, "--state is required; \"cairn-lt dump --help\" tells more" },
    { "StateInAMissingFolder",
      { "run", "setOpaqueTagEgress", "0", "--state", "/no/where.json" },
      "/no/where.json: cannot be written: No such file or directory" },
    { "ExplainNothing", { "explain" }, "explain: name one recipe, or give --all" },
    { "ExplainOneAndAll",
      { "explain", "cpuPortInit", "--all" },
      "explain: name one recipe, or give --all" },
};

INSTANTIATE_TEST_SUITE_P( All, BadCommandLine, ::testing::ValuesIn( badCommands ),
                          []( const auto & each ) { return std::string( each.param.name ); } );

TEST( CommandLine, BadFaultsAreRefused ) {
    const Outcome run =
        cairnLt( { "run", "setOpaqueTagEgress", "0", "--inject", "op=comit,rc=-1" } );
    EXPECT_EQ( run.exitCode, 2 );
    EXPECT_TRUE( run.err.starts_with( "cairn-lt: --inject \"op=comit,rc=-1\": " ) ) << run.err;
    EXPECT_NE( run.err.find( "commit" ), std::string::npos ) << run.err;
    EXPECT_EQ( lines( run.err ).size(), 1u );
}

TEST( CommandLine, NegativeArgumentsAreRefused ) {
    const Outcome run = cairnLt( { "run", "setEgrTunnelEcnEncap", "0", "5", "-2" } );
    EXPECT_EQ( run.exitCode, 2 );
    EXPECT_EQ( lines( run.err ).size(), 1u );
    EXPECT_NE( run.err.find( "-2" ), std::string::npos );
}

TEST( CommandTest, EmptyArgumentIsNamedByEveryVerb ) {
    for ( const char * verb : { "list", "run", "bringup", "explain", "sweep", "tables", "dump",
                                "trace", "diff", "replay", "check", "diagnose", "report" } )
        for ( const std::vector<std::string> & arguments : { std::vector<std::string>{ verb, "" },
                                                             { verb, "nothing", "" },
                                                             { verb, "--", "" } } ) {
            const Outcome run = cairnLt( arguments );
            EXPECT_EQ( run.exitCode, 2 ) << verb;
            EXPECT_EQ( run.out, "" ) << verb;
            EXPECT_EQ( run.err,
                       std::string( "cairn-lt: an argument is \"\", which names nothing; write "
                                    "what is meant, or leave it out; \"cairn-lt " ) +
                           verb + " --help\" tells more\n" );
        }
}

TEST( CommandLine, NoVerbNamesThem ) {
    const Outcome run = cairnLt( {} );
    EXPECT_EQ( run.exitCode, 2 );
    EXPECT_TRUE( run.err.starts_with( "cairn-lt: no verb; there are list, run, bringup" ) )
        << run.err;
}

TEST( CommandLine, EveryVerbHasHelpWithExamples ) {
    const Outcome help = cairnLt( { "--help" } );
    EXPECT_EQ( help.exitCode, 0 );
    EXPECT_EQ( help.err, "" );
    for ( const char * verb : { "list", "run", "bringup", "explain", "dump" } ) {
        EXPECT_NE( help.out.find( std::string( "\n  " ) + verb ), std::string::npos ) << verb;
        const Outcome run = cairnLt( { verb, "--help" } );
        EXPECT_EQ( run.exitCode, 0 ) << verb;
        EXPECT_NE( run.out.find( "Examples:\n  cairn-lt " + std::string( verb ) ),
                   std::string::npos )
            << verb;
    }
}

TEST( CommandLine, HasAVersion ) {
    const Outcome run = cairnLt( { "--version" } );
    EXPECT_EQ( run.exitCode, 0 );
    EXPECT_EQ( run.out, "cairn-lt " PROJECT_VERSION "\n" );
}

TEST( CommandLine, HeadingsAreBoldOnATerminalOnly ) {
    EXPECT_EQ( cairnLt( { "list" } ).out.find( '\033' ), std::string::npos );
    EXPECT_NE( ToolTest::cairnLtOnTerminal( { "list" }, "" ).find( "\033[1mPort bring-up\033[0m" ),
               std::string::npos );
    EXPECT_EQ( ToolTest::cairnLtOnTerminal( { "list" }, "1" ).find( '\033' ), std::string::npos );
}

TEST( CommandLine, OutputThatIsLostIsTrouble ) {
    const Outcome run = cairnLt( { "list" }, "/dev/full" );
    EXPECT_EQ( run.exitCode, 2 );
    EXPECT_EQ( run.err, "cairn-lt: standard output cannot be written: No space left on device\n" );
}

// --- list

TEST( List, ShowsEachRecipeWithItsParameters ) {
    const Outcome run = cairnLt( { "list" } );
    EXPECT_EQ( run.exitCode, 0 );
    EXPECT_EQ( linesWith( run.out, "  setIngTunnelEcnDecap unit:uint32_t index:uint32_t "
                                   "innerEcn:uint32_t changeEcn:bool" )
                   .size(),
               1u );
    EXPECT_EQ(
        linesWith( run.out, "  getOpaqueTagIngress unit:uint32_t tagType:uint8_t -> uint16_t" )
            .size(),
        1u );
}

TEST( List, IsJsonIfAsked ) {
    const Json json = parsed( cairnLt( { "list", "--format", "json" } ) );
    ASSERT_EQ( json["recipes"].size(), Tool::recipes().size() );
    const Json & first = json["recipes"][0];
    EXPECT_EQ( first["name"], "cpuPortInit" );
    EXPECT_EQ( first["family"], "Port bring-up" );
    EXPECT_EQ( first["takes_shared_state"], true );
    EXPECT_EQ( json["recipes"][2]["parameters"][0],
               Json( { { "name", "chipInfo" }, { "type", "ChipInfo" } } ) );
}

// --- run

TEST( RunVerb, TracesEachCallWithItsText ) {
    const Outcome run =
        cairnLt( { "run", "setEgrTunnelEcnEncap", "0", "5", "2", "--trace", "ApiCairn/4" } );
    EXPECT_EQ( run.exitCode, 0 );
    EXPECT_EQ( run.out, "" );
    const std::vector<std::string> traced = lines( run.err );
    const std::vector<std::string> calls = {
        R"(bcmlt_entry_allocate( unit, "EGR_TUNNEL_ECN_ENCAPm", &egrTunnelEcnEncapEntry ) (rc:0))",
        R"(bcmlt_entry_field_add( egrTunnelEcnEncapEntry, "BCMLT_PT_INDEX", index ) (rc:0))",
        R"(bcmlt_entry_field_add( egrTunnelEcnEncapEntry, "OUTER_ECN", outerEcn ) (rc:0))",
        R"(bcmlt_pt_entry_commit( egrTunnelEcnEncapEntry, BCMLT_PT_OPCODE_MODIFY, BCMLT_PRIORITY_NORMAL ) (rc:0))",
        R"(bcmlt_entry_free( egrTunnelEcnEncapEntry ) (rc:0))",
    };
    ASSERT_EQ( traced.size(), calls.size() );
    for ( std::size_t i = 0; i < calls.size(); ++i ) {
        EXPECT_TRUE( traced[i].ends_with( " " + calls[i] ) ) << traced[i];
        EXPECT_NE( traced[i].find( " ApiCairn/4 " ), std::string::npos );
    }
}

TEST( RunVerb, DumpsTheRowsThatWereWritten ) {
    const Outcome run = cairnLt( { "run", "setEgrTunnelEcnEncap", "0", "5", "2", "--dump" } );
    EXPECT_EQ( run.exitCode, 0 );
    EXPECT_EQ( run.out, "EGR_TUNNEL_ECN_ENCAPm  unit 0, memory, 256 rows\n"
                        "  index  OUTER_ECN  INT_CN_MAP  ECN_PROFILE\n"
                        "  5      2          (1)         (165)\n" );
}

TEST( RunVerb, DumpsAsJsonIfAsked ) {
    const Json json =
        parsed( cairnLt( { "run", "setEgrTunnelEcnEncap", "0", "5", "2", "--dump=json" } ) );
    const Json & table = json["units"][0]["tables"][0];
    EXPECT_EQ( table["table"], "EGR_TUNNEL_ECN_ENCAPm" );
    EXPECT_EQ( table["rows"][0]["index"], 5 );
    EXPECT_EQ( table["rows"][0]["fields"]["OUTER_ECN"], 2 );
    EXPECT_EQ( table["rows"][0]["written"], Json::array( { "OUTER_ECN" } ) );
}

TEST( RunVerb, AFormatOfJsonIsOneDocument ) {
    const Json json = parsed( cairnLt( { "run", "getVxlanDecapAdaptLookup", "0", "5", "--format",
                                         "json", "--dump", "--record" } ) );
    const Json & step = json["steps"][0];
    EXPECT_EQ( step["recipe"], "getVxlanDecapAdaptLookup" );
    EXPECT_EQ( step["arguments"], Json( { { "unit", 0 }, { "port", 5 } } ) );
    EXPECT_EQ( step["result"], false );
    EXPECT_EQ( step["good"], true );
    EXPECT_EQ( step["record"].size(), 5u );
    EXPECT_EQ( json["tables"]["units"][0]["unit"], 0 );
    EXPECT_EQ( json["entries_never_freed"], 0 );
    EXPECT_FALSE( json.contains( "stopped_at" ) );
}

TEST( RunVerb, RecordsTheOperations ) {
    const Outcome run = cairnLt( { "run", "setOpaqueTagEgress", "0", "--record" } );
    EXPECT_EQ( run.exitCode, 0 );
    const std::vector<std::string> calls = lines( run.out );
    ASSERT_EQ( calls.size(), 6u );
    EXPECT_TRUE(
        calls.front().starts_with( "bcmlt_entry_allocate unit 0 EGR_EPARS_OPAQUE_TAG_CONFIGr" ) );
    EXPECT_TRUE( calls.back().starts_with( "bcmlt_entry_free" ) );
}

TEST( RunVerb, PrintsWhatAGetterReturns ) {
    const Support::TemporaryFolder folder;
    const std::string state = folder.path( "chip.json" );
    EXPECT_EQ( cairnLt( { "run", "setOpaqueTagIngress", "0", "3", "--state", state } ).exitCode,
               0 );
    const Outcome run = cairnLt( { "run", "getOpaqueTagIngress", "0", "3", "--state", state } );
    EXPECT_EQ( run.exitCode, 0 );
    EXPECT_EQ( run.out, "33024\n" );
}

TEST( RunVerb, AVerifyThatSaysNoIsExitCodeOne ) {
    const Support::TemporaryFolder folder;
    const std::string state = folder.path( "chip.json" );
    const auto call = [&]( const char * recipe, const char * l2If ) {
        return cairnLt(
            { "run", recipe, "chip0", "0", "1", "5", "128", l2If, "true", "--state", state } );
    };
    Outcome run = call( "verifyL2IfIngSystemPortTable", "77" );
    EXPECT_EQ( run.exitCode, 1 );
    EXPECT_EQ( run.out, "false\n" );
    EXPECT_EQ( run.err, "" );
    EXPECT_EQ( call( "programL2IfIngSystemPortTable", "77" ).exitCode, 0 );
    run = call( "verifyL2IfIngSystemPortTable", "77" );
    EXPECT_EQ( run.exitCode, 0 );
    EXPECT_EQ( run.out, "true\n" );
    EXPECT_EQ( call( "verifyL2IfIngSystemPortTable", "78" ).exitCode, 1 );
}

TEST( RunVerb, AGetterThatSaysFalseIsNotANo ) {
    const Outcome run = cairnLt( { "run", "getVxlanDecapAdaptLookup", "0", "5" } );
    EXPECT_EQ( run.exitCode, 0 );
    EXPECT_EQ( run.out, "false\n" );
}

TEST( RunVerb, WorksOnFurtherChips ) {
    const Outcome run = cairnLt( { "run", "setEgrTunnelEcnEncap", "1", "4095", "3", "--chip",
                                   "reference", "--chip", "examples/chips/large.toml", "--dump" } );
    EXPECT_EQ( run.exitCode, 0 ) << run.err;
    EXPECT_EQ( linesWith( run.out, "unit 1, memory, 4096 rows" ).size(), 1u );
    EXPECT_EQ( linesWith( run.out, "  4095   3 " ).size(), 1u );
}

TEST( RunVerb, TakesTheModelOfABringupAndNotItsSteps ) {
    const Outcome run =
        cairnLt( { "run", "lbPortInit", "--model", "examples/bringup.toml", "--dump" } );
    EXPECT_EQ( run.exitCode, 0 ) << run.err;
    EXPECT_EQ( linesWith( run.out, "  66       258" ).size(), 1u ) << run.out;
    EXPECT_EQ( linesWith( run.out, "unit 0" ).size(), 2u ) << run.out;
}

TEST( RunVerb, TracesToAFile ) {
    const Support::TemporaryFolder folder;
    const Outcome run =
        cairnLt( { "run", "setDefip128StrengthProfile", "0", "--trace", "CairnLtHelper/2",
                   "--trace", "ApiCairn/*", "--trace-file", folder.path( "trace" ) } );
    EXPECT_EQ( run.exitCode, 0 );
    EXPECT_EQ( run.err, "" );
    const std::string trace = Support::contents( folder.path( "trace" ) );
    EXPECT_EQ( linesWith( trace, " ApiCairn/4 " ).size(), 10u );
    EXPECT_EQ( linesWith( trace, " CairnLtHelper/2 " ).size(), 1u );
}

TEST( RunVerb, WarnsOfFaultsThatNeverStruck ) {
    const Outcome run =
        cairnLt( { "run", "setOpaqueTagEgress", "0", "--inject", "op=attrib_set,rc=-1" } );
    EXPECT_EQ( run.exitCode, 0 );
    EXPECT_EQ( lines( run.err ).size(), 1u );
    EXPECT_NE( run.err.find( "warning: the fault \"" ), std::string::npos ) << run.err;
    EXPECT_NE( run.err.find( "never struck" ), std::string::npos ) << run.err;
}

TEST( RunVerb, WarnsOfEntriesThatWereNeverFreed ) {
    // A seed's allocate that returns 1 made an entry, and the recipe takes it for a failure.
    const Outcome run = cairnLt(
        { "run", "setLoadBalanceRandSeedCtrl", "0", "7", "--inject", "op=allocate,rc=1" } );
    EXPECT_EQ( run.exitCode, 0 );
    EXPECT_EQ( run.err, "cairn-lt: warning: an entry of IPOST_LAG_RAND_NUM_CTRL_0r on unit 0 was "
                        "never freed\n" );
}

// --- Stops

// What standard error holds when a guarded call stops the process.
void expectStop( const Outcome & run, const std::string & callText, const std::string & step,
                 const std::string & sdkCall, const std::string & reason ) {
    EXPECT_EQ( run.signal, SIGABRT );
    const std::vector<std::string> all = lines( run.err );
    ASSERT_EQ( all.size(), 5u ) << run.err;
    EXPECT_NE( all[0].find( " " + callText + " API ERROR:" ), std::string::npos ) << all[0];
    EXPECT_NE( all[1].find( "Assertion `0' failed." ), std::string::npos ) << all[1];
    EXPECT_EQ( all[2], "cairn-lt: " + step );
    EXPECT_EQ( all[3], "cairn-lt: last SDK call: " + sdkCall );
    EXPECT_EQ( all[4], "cairn-lt: " + reason );
}

TEST( Stop, AFaultAtTheCommit ) {
    expectStop( cairnLt( { "run", "setEgrTunnelEcnEncap", "0", "5", "2", "--inject",
                           "op=pt_entry_commit,rc=-7" } ),
                "bcmlt_pt_entry_commit( egrTunnelEcnEncapEntry, BCMLT_PT_OPCODE_MODIFY, "
                "BCMLT_PRIORITY_NORMAL )",
                "stopped in step 1 of 1: setEgrTunnelEcnEncap( unit=0, index=5, outerEcn=2 )",
                "bcmlt_pt_entry_commit entry 1 EGR_TUNNEL_ECN_ENCAPm BCMLT_PT_OPCODE_MODIFY "
                "BCMLT_PRIORITY_NORMAL -> rc -7",
                "it is a fault that was injected: op=bcmlt_pt_entry_commit,rc=-7,at=1" );
}

TEST( Stop, AFaultAtTheAllocate ) {
    expectStop( cairnLt( { "run", "setOpaqueTagEgress", "0", "--inject", "op=allocate,rc=-3" } ),
                R"(bcmlt_entry_allocate( unit, "EGR_EPARS_OPAQUE_TAG_CONFIGr", &ent_hdl ))",
                "stopped in step 1 of 1: setOpaqueTagEgress( unit=0 )",
                "bcmlt_entry_allocate unit 0 EGR_EPARS_OPAQUE_TAG_CONFIGr -> rc -3",
                "it is a fault that was injected: op=bcmlt_entry_allocate,rc=-3,at=1" );
}

TEST( Stop, AFaultAtTheFree ) {
    expectStop( cairnLt( { "run", "setOpaqueTagEgress", "0", "--inject", "op=free,rc=-30" } ),
                "bcmlt_entry_free( ent_hdl )",
                "stopped in step 1 of 1: setOpaqueTagEgress( unit=0 )",
                "bcmlt_entry_free entry 1 EGR_EPARS_OPAQUE_TAG_CONFIGr -> rc -30",
                "it is a fault that was injected: op=bcmlt_entry_free,rc=-30,at=1" );
}

TEST( Stop, WhatTheChipRefuses ) {
    expectStop(
        cairnLt( { "run", "setEgrTunnelEcnEncap", "0", "5", "4" } ),
        R"(bcmlt_entry_field_add( egrTunnelEcnEncapEntry, "OUTER_ECN", outerEcn ))",
        "stopped in step 1 of 1: setEgrTunnelEcnEncap( unit=0, index=5, outerEcn=4 )",
        "bcmlt_entry_field_add entry 1 EGR_TUNNEL_ECN_ENCAPm OUTER_ECN = 4 -> rc -14",
        "the chip says: EGR_TUNNEL_ECN_ENCAPm.OUTER_ECN: value 4 needs 3 bits, the field has 2" );
}

// One fault for each kind of operation, in a recipe that makes it.
struct FaultPlace {
    const char * name;
    std::vector<std::string> command;
    const char * operation;
    const char * callText;
};

void PrintTo( const FaultPlace & each, std::ostream * out ) { *out << each.name; }

class StopAt : public ::testing::TestWithParam<FaultPlace> {};

TEST_P( StopAt, NamesTheCallOnceAndDiesOfSigabrt ) {
    std::vector<std::string> command{ "run" };
    command.insert( command.end(), GetParam().command.begin(), GetParam().command.end() );
    command.insert( command.end(),
                    { "--inject", "op=" + std::string( GetParam().operation ) + ",rc=-42" } );
    const Outcome run = cairnLt( command );
    EXPECT_EQ( run.signal, SIGABRT );
    const std::vector<std::string> reports = linesWith( run.err, " API ERROR:" );
    ASSERT_EQ( reports.size(), 1u ) << run.err;
    EXPECT_NE( reports[0].find( std::string( " " ) + GetParam().callText + " API ERROR:" ),
               std::string::npos )
        << reports[0];
    EXPECT_TRUE( reports[0].ends_with( " (-42)" ) ) << reports[0];
    EXPECT_EQ( linesWith( run.err, "Assertion `0' failed." ).size(), 1u ) << run.err;
    EXPECT_EQ( linesWith( run.err, "stopped in step 1 of 1: " + GetParam().command[0] ).size(), 1u )
        << run.err;
    EXPECT_EQ( linesWith( run.err, std::string( "last SDK call: " ) + GetParam().operation ).size(),
               1u )
        << run.err;
}

const FaultPlace faultPlaces[] = {
    { "Allocate",
      { "cpuPortInit" },
      "bcmlt_entry_allocate",
      "bcmlt_entry_allocate( unit, PC_PORT_PHYS_MAPs, &cpuPortEntry )" },
    { "AttributeSet",
      { "setVxlanDecapAdaptLookup", "0", "5", "on" },
      "bcmlt_entry_attrib_set",
      "bcmlt_entry_attrib_set( ent_hdl, BCMLT_ENT_ATTR_GET_FROM_HW )" },
    { "Commit",
      { "setDefip128StrengthProfile", "0" },
      "bcmlt_entry_commit",
      "bcmlt_entry_commit( defip128StrengthEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL )" },
    { "FieldAdd",
      { "setL3TnlOverlayEgrIpTnlStrengthProfile", "0" },
      "bcmlt_entry_field_add",
      "bcmlt_entry_field_add( egrIpTnlStrengthEntry, \"EGR_L3_TNL_STR_PROFILE_INDEX\", "
      "L3_TNL_OVERLAY_EGR_IP_TNL_STRENGTH_IDX )" },
    { "FieldAddThatIsCheckedLater",
      { "setLoadBalanceRandSeedCtrl", "0", "7" },
      "bcmlt_entry_field_add",
      "rc" },
    { "ArrayAdd",
      { "resetIngEnEfilterBitMap", "0", "65" },
      "bcmlt_entry_field_array_add",
      "bcmlt_entry_field_array_add( IngEnEfilterBitmapEntry, \"BITMAP\", "
      "0, memfld_64, bitMapSize )" },
    { "FieldGet",
      { "getVxlanDecapAdaptLookup", "0", "5" },
      "bcmlt_entry_field_get",
      "bcmlt_entry_field_get( ent_hdl, \"VXLAN_DECAP_ADAPT_LOOKUP_ENABLE\", &val )" },
    { "SymbolAdd",
      { "setVxlanUdpSourcePortSel", "0", "0" },
      "bcmlt_entry_field_symbol_add",
      "bcmlt_entry_field_symbol_add( tnlL2VxlanControlEntry, \"SRC_L4_PORT_SELECT\", "
      "\"HASH_ENTROPY\" )" },
    { "Free",
      { "setVlanXlateMissDrop" },
      "bcmlt_entry_free",
      "bcmlt_entry_free( vlanXlateMissPolicy )" },
    { "PhysicalCommit",
      { "setFlexctrEgressCounterActionEnable", "0" },
      "bcmlt_pt_entry_commit",
      "bcmlt_pt_entry_commit( ent_hdl, BCMLT_PT_OPCODE_SET, BCMLT_PRIORITY_NORMAL )" },
};

INSTANTIATE_TEST_SUITE_P( All, StopAt, ::testing::ValuesIn( faultPlaces ),
                          []( const auto & each ) { return std::string( each.param.name ); } );

TEST( Stop, UncheckedCallsMayFail ) {
    // A look-up that fails counts as a missing row, a missing instance is skipped, and one insert
    // is allowed to fail.
    for ( const std::vector<std::string> & command :
          { std::vector<std::string>{ "setLearnCacheEnabled", "0", "on", "--inject",
                                      "op=commit,rc=-42" },
            { "setLoadBalanceRandSeedMem", "0", "7", "--inject", "op=allocate,rc=-42,at=2" },
            { "setEmRobustHashDisable", "0", "--inject", "op=allocate,rc=-42,always" },
            { "setT4XVxlanDefaultNetworkSvp", "0", "--inject", "op=commit,rc=-42" } } ) {
        std::vector<std::string> arguments{ "run" };
        arguments.insert( arguments.end(), command.begin(), command.end() );
        const Outcome run = cairnLt( arguments );
        EXPECT_EQ( run.exitCode, 0 ) << command[0] << run.err;
        EXPECT_EQ( run.err, "" ) << command[0];
    }
}

TEST( Stop, AnAssertionHasNoApiErrorLine ) {
    const Outcome run = cairnLt( { "run", "getOpaqueTagIngress", "0", "3" } );
    EXPECT_EQ( run.signal, SIGABRT );
    const std::vector<std::string> all = lines( run.err );
    ASSERT_EQ( all.size(), 3u ) << run.err;
    EXPECT_NE( all[0].find( "Assertion `val == 1' failed." ), std::string::npos ) << all[0];
    EXPECT_EQ( all[1],
               "cairn-lt: stopped in step 1 of 1: getOpaqueTagIngress( unit=0, tagType=3 )" );
    EXPECT_EQ( all[2], "cairn-lt: last SDK call: bcmlt_entry_field_get entry 1 OPAQUE_TAG_CONFIGr "
                       "VALID -> 0 rc 0" );
}

TEST( Stop, AHandleThatStaysInvalid ) {
    const Outcome run =
        cairnLt( { "run", "setOpaqueTagEgress", "0", "--inject", "op=allocate,handle=invalid" } );
    EXPECT_EQ( run.signal, SIGABRT );
    EXPECT_EQ( linesWith( run.err, "Assertion `ent_hdl != BCMLT_INVALID_HDL' failed." ).size(),
               1u );
    EXPECT_EQ( linesWith( run.err, "API ERROR" ).size(), 0u );
    EXPECT_EQ( linesWith( run.err, "it is a fault that was injected" ).size(), 1u );
}

TEST( Stop, ShowsAndKeepsTheChipAsItWas ) {
    const Support::TemporaryFolder folder;
    const std::string state = folder.path( "chip.json" );
    const std::string file = folder.write( "x.toml", R"(
[[chips]]
name = "leaf"
unit = 0
[[steps]]
recipe = "setEgrTunnelEcnEncap"
arguments = [ 0, 5, 2 ]
[[steps]]
recipe = "setEgrTunnelEcnEncap"
arguments = [ 0, 6, 3 ]
[[steps]]
recipe = "setEgrTunnelEcnEncap"
arguments = [ 0, 7, 1 ]
)" );
    const Outcome run = cairnLt( { "bringup", file, "--inject", "op=free,at=2,rc=-1", "--dump",
                                   "--state", state, "--record" } );
    EXPECT_EQ( run.signal, SIGABRT );
    EXPECT_EQ( linesWith( run.err, file +
                                       ":9: stopped in step 2 of 3: setEgrTunnelEcnEncap( unit=0, "
                                       "index=6, outerEcn=3 )" )
                   .size(),
               1u )
        << run.err;
    // Step 2 was committed before it stopped.
    EXPECT_EQ( linesWith( run.out, "  6      3 " ).size(), 1u ) << run.out;
    EXPECT_EQ( linesWith( run.out, "-> rc -1" ).size(), 1u ) << run.out;
    const Outcome dump = cairnLt( { "dump", "--state", state, "--format", "json" } );
    EXPECT_EQ( parsed( dump )["units"][0]["tables"][0]["rows"].size(), 2u ) << dump.out;
}

TEST( Stop, IsToldInADocument ) {
    const Outcome run =
        cairnLt( { "run", "setEgrTunnelEcnEncap", "0", "5", "4", "--format", "json" } );
    EXPECT_EQ( run.signal, SIGABRT );
    const Json json = parsed( run );
    EXPECT_EQ( json["steps"][0]["good"], false );
    EXPECT_EQ( json["stopped_at"]["reason"],
               "EGR_TUNNEL_ECN_ENCAPm.OUTER_ECN: value 4 needs 3 bits, "
               "the field has 2" );
    EXPECT_EQ( json["stopped_at"]["cause"], "chip" );
    EXPECT_EQ( json["stopped_at"]["faults_that_struck"], Json::array() );
    EXPECT_EQ( json["entries_never_freed"], 1 );
}

// --- bringup

TEST( BringupVerb, TheExampleRunsEveryRecipe ) {
    const Outcome run = cairnLt( { "bringup", "examples/bringup.toml", "--format", "json" } );
    EXPECT_EQ( run.exitCode, 0 ) << run.err;
    EXPECT_EQ( run.err, "" );
    std::set<std::string> ran;
    const Json json = parsed( run );
    for ( const Json & step : json["steps"] ) {
        EXPECT_EQ( step["good"], true ) << step;
        if ( step.contains( "recipe" ) )
            ran.insert( step["recipe"].get<std::string>() );
    }
    EXPECT_EQ( ran.size(), Tool::recipes().size() );
}

TEST( BringupVerb, EveryExampleSucceeds ) {
    std::size_t examples = 0;
    for ( const auto & entry : std::filesystem::directory_iterator( SOURCE_TREE "/examples" ) ) {
        if ( entry.path().extension() != ".toml" )
            continue;
        ++examples;
        const Outcome run = cairnLt( { "bringup", entry.path().string() } );
        EXPECT_EQ( run.exitCode, 0 ) << entry.path();
        EXPECT_EQ( run.err, "" ) << entry.path();
    }
    EXPECT_GE( examples, 9u );
}

TEST( BringupVerb, TellsItsStepsAndResults ) {
    const Outcome run = cairnLt( { "bringup", "examples/range-table-index.toml" } );
    EXPECT_EQ( run.exitCode, 0 );
    const std::vector<std::string> all = lines( run.out );
    ASSERT_GE( all.size(), 3u );
    EXPECT_EQ( all[0],
               "1  programL2IfIngSystemPortTable( chipInfo=ranged, unit=0, modId=1, port=5, "
               "maxPorts=128, l2If=77, op=true )" );
    EXPECT_EQ( all[2], "   returns true" );
}

TEST( BringupVerb, UnexpectedResultsAreExitCodeOneAndTheRestIsRun ) {
    const Support::TemporaryFolder folder;
    const std::string file = folder.write( "x.toml", R"(
[[chips]]
name = "leaf"
unit = 0
[[steps]]
recipe = "setInnerOpaqueTagEgressEpmod"
arguments = [ 0 ]
[[steps]]
recipe = "getInnerOpaqueTagEgressEpmod"
arguments = [ 0 ]
expect = 1
[[steps]]
recipe = "verifyL2IfIngSystemPortTable"
arguments = [ "leaf", 0, 1, 5, 128, 77, true ]
)" );
    const Outcome run = cairnLt( { "bringup", file } );
    EXPECT_EQ( run.exitCode, 1 );
    EXPECT_EQ( linesWith( run.out, "returns 33024, 1 is wanted" ).size(), 1u ) << run.out;
    EXPECT_EQ( linesWith( run.out, "returns false, true is wanted" ).size(), 1u ) << run.out;
    EXPECT_EQ( run.err, "cairn-lt: " + file +
                            ":9: getInnerOpaqueTagEgressEpmod( unit=0 ) = 33024, 1 is wanted\n" );
}

TEST( BringupVerb, ABadFileRunsNothing ) {
    const Support::TemporaryFolder folder;
    const std::string state = folder.path( "chip.json" );
    const std::string file = folder.write( "x.toml", R"(
[[chips]]
name = "leaf"
unit = 0
[[steps]]
recipe = "setOpaqueTagEgress"
arguments = [ 0 ]
[[steps]]
recipe = "setOpaqueTagEgres"
arguments = [ 0 ]
)" );
    const Outcome run =
        cairnLt( { "bringup", file, "--dump", "--state", state, "--trace", "ApiCairn/4" } );
    EXPECT_EQ( run.exitCode, 2 );
    EXPECT_EQ( run.out, "" );
    EXPECT_EQ( run.err, "cairn-lt: " + file +
                            ":9: there is no recipe \"setOpaqueTagEgres\"; the nearest is "
                            "setOpaqueTagEgress; \"cairn-lt list\" shows all\n" );
    EXPECT_FALSE( std::filesystem::exists( state ) );
}

TEST( BringupVerb, ASecondRunOnAKeptChipUpdates ) {
    const Support::TemporaryFolder folder;
    const std::string file = folder.write( "x.toml", R"(
[[chips]]
name = "leaf"
unit = 0
profile = { has_range_table_index = false }
[[steps]]
recipe = "programL2IfIngSystemPortTable"
arguments = [ "leaf", 0, 1, 5, 128, 77, true ]
)" );
    const std::vector<std::string> command{ "bringup", file, "--record", "--state",
                                            folder.path( "chip.json" ) };
    const Outcome first = cairnLt( command );
    EXPECT_EQ( linesWith( first.out, "BCMLT_OPCODE_INSERT" ).size(), 1u ) << first.out;
    EXPECT_EQ( linesWith( first.out, "BCMLT_OPCODE_UPDATE" ).size(), 0u ) << first.out;
    const Outcome second = cairnLt( command );
    EXPECT_EQ( linesWith( second.out, "BCMLT_OPCODE_INSERT" ).size(), 0u ) << second.out;
    EXPECT_EQ( linesWith( second.out, "BCMLT_OPCODE_UPDATE" ).size(), 1u ) << second.out;
}

TEST( BringupVerb, AStateOfAnotherChipIsRefused ) {
    const Support::TemporaryFolder folder;
    const std::string state = folder.path( "chip.json" );
    cairnLt( { "run", "setOpaqueTagEgress", "0", "--state", state } );
    const std::string before = Support::contents( state );
    Outcome run = cairnLt( { "bringup", "examples/missing-hash-memories.toml", "--state", state } );
    EXPECT_EQ( run.exitCode, 2 );
    EXPECT_EQ( run.err, "cairn-lt: " + state +
                            ": unit 0 is another chip than the one described; name another state "
                            "file, or remove this one to start afresh\n" );
    EXPECT_EQ( Support::contents( state ), before );
    run =
        cairnLt( { "run", "setOpaqueTagEgress", "1", "--chip", "1=reference", "--state", state } );
    EXPECT_EQ( run.exitCode, 2 );
    EXPECT_EQ( linesWith( run.err, "it keeps a unit 0, which is not described" ).size(), 1u );
}

// --- dump

TEST( Dump, ShowsTheTablesOfAKeptChip ) {
    const Support::TemporaryFolder folder;
    const std::string state = folder.path( "chip.json" );
    EXPECT_EQ( cairnLt( { "bringup", "examples/bringup.toml", "--state", state } ).exitCode, 0 );
    const Outcome run =
        cairnLt( { "dump", "--state", state, "TNL_L2_VXLAN_CONTROL", "EGR_VLAN_CONTROL_1r" } );
    EXPECT_EQ( run.exitCode, 0 );
    EXPECT_EQ( linesWith( run.out, "HASH_ENTROPY" ).size(), 1u ) << run.out;
    // The field that the hardware changed by itself survived, and nobody added it to an entry.
    EXPECT_EQ( linesWith( run.out, "OUTER_TPID_INDEX" ).size(), 1u ) << run.out;
    EXPECT_EQ( linesWith( run.out, "unit 0" ).size(), 2u ) << run.out;
    EXPECT_EQ( linesWith( cairnLt( { "dump", "--state", state } ).out, "unit 0" ).size(), 43u );
}

TEST( Dump, TablesWithoutRowsAreNamedIfAskedFor ) {
    const Support::TemporaryFolder folder;
    const std::string state = folder.path( "chip.json" );
    cairnLt( { "run", "setLoadBalanceRandSeedMem", "0", "7", "--state", state } );
    EXPECT_EQ( cairnLt( { "dump", "--state", state, "PC_PORT" } ).out,
               "PC_PORT  unit 0, logical table, 1024 rows\n  no rows\n" );
    EXPECT_EQ( cairnLt( { "dump", "--state", state, "IPOST_LAG_RAND_NUM_SEED_0m" } ).out,
               "IPOST_LAG_RAND_NUM_SEED_0m  unit 0, memory, 1 row\n"
               "  SEED\n"
               "  7, (0xa5a5a5a5a5a5a5a5)\n" );
}

TEST( Dump, RowsOfPreloadedTablesAreShownWithAll ) {
    const Support::TemporaryFolder folder;
    const std::string state = folder.path( "chip.json" );
    cairnLt(
        { "run", "enable1BitEccRpt", "0", "EGR_TUNNEL_ECN_ENCAPm", "true", "--state", state } );
    const Outcome touched = cairnLt( { "dump", "--state", state, "SER_PT_CONTROL" } );
    EXPECT_EQ( lines( touched.out ).size(), 3u ) << touched.out;
    const Outcome all = cairnLt( { "dump", "--state", state, "SER_PT_CONTROL", "--all" } );
    EXPECT_GT( lines( all.out ).size(), 8u ) << all.out;
    EXPECT_EQ( linesWith( all.out, "(ING_EN_EFILTER_BITMAPm)" ).size(), 1u ) << all.out;
}

TEST( Dump, WritesWideRowsAsAFieldALine ) {
    const Outcome run = cairnLt( { "run", "setMcastV6StrengthProfile", "--dump" } );
    EXPECT_EQ( run.exitCode, 0 );
    EXPECT_EQ( linesWith( run.out, "  EXPECTED_L3_IIF_STRENGTH          6" ).size(), 1u )
        << run.out;
    EXPECT_EQ( linesWith( run.out, "  EXPECTED_L3_IIF_STRENGTH          5" ).size(), 1u )
        << run.out;
}

TEST( Dump, UnknownNamesAreAnsweredWithTheNearest ) {
    const Support::TemporaryFolder folder;
    const std::string state = folder.path( "chip.json" );
    cairnLt( { "run", "setOpaqueTagEgress", "0", "--state", state } );
    Outcome run = cairnLt( { "dump", "--state", state, "PC_PROT" } );
    EXPECT_EQ( run.exitCode, 2 );
    EXPECT_EQ( run.err, "cairn-lt: there is no table \"PC_PROT\"; the nearest is PC_PORT\n" );
    run = cairnLt( { "dump", "--state", state, "--unit", "1" } );
    EXPECT_EQ( run.exitCode, 2 );
    EXPECT_EQ( run.err, "cairn-lt: there is no unit 1\n" );
}

// --- explain

Json explained( const std::vector<std::string> & arguments ) {
    std::vector<std::string> command{ "explain", "--format", "json" };
    command.insert( command.end(), arguments.begin(), arguments.end() );
    return parsed( cairnLt( command ) )["recipes"];
}

// The steps of one kind.
std::vector<Json> stepsOf( const Json & recipe, const std::string & kind ) {
    std::vector<Json> found;
    for ( const Json & step : recipe["steps"] ) {
        if ( step["kind"] == kind )
            found.push_back( step );
    }
    return found;
}

TEST( Explain, EveryRecipeWithItsSamples ) {
    const Json recipes = explained( { "--all" } );
    ASSERT_EQ( recipes.size(), Tool::recipes().size() );
    for ( const Json & recipe : recipes ) {
        EXPECT_EQ( recipe["stopped"], false ) << recipe["recipe"];
        EXPECT_GE( stepsOf( recipe, "call" ).size(), 4u ) << recipe["recipe"];
        for ( const Json & call : stepsOf( recipe, "call" ) )
            EXPECT_NE( call["call"], "" ) << recipe["recipe"];
    }
}

TEST( Explain, ShowsTableKeyFieldsAndOpcode ) {
    const Json recipe = explained( { "setEgrTunnelEcnEncap", "0", "7", "3" } )[0];
    const std::vector<Json> calls = stepsOf( recipe, "call" );
    ASSERT_EQ( calls.size(), 5u );
    EXPECT_EQ( calls[0]["table"], "EGR_TUNNEL_ECN_ENCAPm" );
    EXPECT_EQ( calls[0]["table_kind"], "memory" );
    EXPECT_EQ( calls[1]["role"], "index" );
    EXPECT_EQ( calls[1]["value"], 7 );
    EXPECT_EQ( calls[2]["field"], "OUTER_ECN" );
    EXPECT_EQ( calls[2]["role"], "data" );
    EXPECT_EQ( calls[2]["value"], 3 );
    EXPECT_EQ( calls[3]["opcode"], "BCMLT_PT_OPCODE_MODIFY" );
    EXPECT_EQ( calls[3]["constants"],
               Json::array( { "BCMLT_PRIORITY_NORMAL", "BCMLT_PT_OPCODE_MODIFY" } ) );
    for ( const Json & call : calls ) {
        EXPECT_EQ( call["guarded"], true );
        EXPECT_EQ( call["lock"], "kept" );
    }
}

TEST( Explain, ShowsUncheckedCallsAndReleasedLocks ) {
    const Json recipe = explained( { "setLearnCacheEnabled" } )[0];
    const std::vector<Json> calls = stepsOf( recipe, "call" );
    ASSERT_EQ( calls.size(), 6u );
    for ( std::size_t i = 0; i < calls.size(); ++i ) {
        EXPECT_EQ( calls[i]["guarded"], i != 2 ) << i;
        EXPECT_EQ( calls[i]["lock"], "released" ) << i;
    }
    EXPECT_EQ( calls[1]["role"], "key" );
    EXPECT_EQ( calls[1]["symbol"], "LEARN_L2_VIEW" );
    EXPECT_EQ( calls[2]["opcode"], "BCMLT_OPCODE_LOOKUP" );
    EXPECT_LT( calls[2]["rc"], 0 );
    EXPECT_EQ( calls[4]["opcode"], "BCMLT_OPCODE_INSERT" );
}

TEST( Explain, BranchesFollowTheChip ) {
    const Support::TemporaryFolder folder;
    const std::string state = folder.path( "chip.json" );
    cairnLt( { "run", "setLearnCacheEnabled", "0", "true", "--state", state } );
    const std::string before = Support::contents( state );
    const Json recipe = explained( { "setLearnCacheEnabled", "0", "false", "--state", state } )[0];
    EXPECT_EQ( stepsOf( recipe, "call" )[2]["rc"], 0 );
    EXPECT_EQ( stepsOf( recipe, "call" )[4]["opcode"], "BCMLT_OPCODE_UPDATE" );
    EXPECT_EQ( Support::contents( state ), before );
}

TEST( Explain, BranchesFollowTheModel ) {
    const Json kova =
        explained( { "setMcastV6StrengthProfile", "--model", "examples/kova.toml" } )[0];
    EXPECT_EQ( stepsOf( kova, "call" ).size(), 0u );
    EXPECT_EQ( stepsOf( kova, "question" ), ( std::vector<Json>{ { { "kind", "question" },
                                                                   { "question", "isBlocked" },
                                                                   { "chip", "kova" },
                                                                   { "stage", 55 },
                                                                   { "answer", true } } } ) );
    EXPECT_EQ( stepsOf( kova, "message" )[0]["text"],
               "setMcastV6StrengthProfile unit: 0 Skipping for KOVA profile" );

    const Json blocked =
        explained( { "setMcastV6StrengthProfile", "--model", "examples/stage-108.toml" } )[0];
    EXPECT_EQ( stepsOf( blocked, "call" ).size(), 2 * 9u );
    const std::vector<Json> questions = stepsOf( blocked, "question" );
    ASSERT_EQ( questions.size(), 3u );
    EXPECT_EQ( questions[1]["question"], "isUnblocked" );
    EXPECT_EQ( questions[1]["answer"], false );
}

TEST( Explain, QuestionsToTheProfileStandWhereTheRecipeAsksThem ) {
    const Json recipe =
        explained( { "programL2IfIngSystemPortTable", "ranged", "0", "3", "5", "128", "77", "true",
                     "--model", "examples/range-table-index.toml" } )[0];
    const auto question = []( const char * what, bool answer ) {
        return Json{ { "kind", "question" },
                     { "question", what },
                     { "chip", "ranged" },
                     { "answer", answer } };
    };
    const auto feature = [&]( const char * name, bool answer ) {
        Json json = question( "kilnTypeFeature", answer );
        json["feature"] = name;
        return json;
    };
    EXPECT_EQ( stepsOf( recipe, "question" ),
               ( std::vector<Json>{ question( "activeChipProfile", true ),
                                    feature( "CairnCommonFeatureAttributes", false ),
                                    question( "activeChipProfile", true ),
                                    feature( "CairnChipAttributes", true ),
                                    question( "hasRangeTableIndex", true ) } ) );
    // The number of the port is asked before the first call, the attributes after the fourth.
    const Json & steps = recipe["steps"];
    EXPECT_EQ( steps[0]["question"], "activeChipProfile" );
    EXPECT_EQ( steps[6]["field"], "L2_IIF" );
    EXPECT_EQ( steps[7]["question"], "activeChipProfile" );
}

TEST( Explain, ChipThatNumbersItsPortsItselfIsAskedForTheNumber ) {
    const Support::TemporaryFolder folder;
    const std::string model = folder.write( "wide.toml", "[[chips]]\n"
                                                         "name = \"wide\"\n"
                                                         "unit = 0\n"
                                                         "[chips.profile]\n"
                                                         "system_port_bits = 10\n"
                                                         "has_range_table_index = false\n" );
    const Json recipe = explained( { "programL2IfIngSystemPortTable", "wide", "0", "3", "5", "128",
                                     "77", "true", "--model", model } )[0];
    EXPECT_EQ( stepsOf( recipe, "question" )[2], ( Json{ { "kind", "question" },
                                                         { "question", "sysportFromModport" },
                                                         { "chip", "wide" },
                                                         { "modId", 3 },
                                                         { "port", 5 },
                                                         { "maxPorts", 128 },
                                                         { "answer", 3 * 1024 + 5 } } ) );
    EXPECT_EQ( stepsOf( recipe, "call" )[1]["value"], 3 * 1024 + 5 );
}

TEST( Explain, ChipWithoutAProfileSaysSoBeforeTheRecipeStops ) {
    const Support::TemporaryFolder folder;
    const std::string model = folder.write( "bare.toml", "[[chips]]\nname = \"bare\"\nunit = 0\n" );
    const Outcome run = cairnLt( { "explain", "programL2IfIngSystemPortTable", "bare", "0", "3",
                                   "5", "128", "77", "true", "--model", model } );
    EXPECT_NE( run.out.find( "has bare an active profile? no" ), std::string::npos ) << run.out;
}

TEST( Explain, BranchesFollowTheArguments ) {
    EXPECT_EQ( stepsOf( explained( { "setOpaqueTagIngress", "0", "0" } )[0], "call" ).size(), 6u );
    EXPECT_EQ( stepsOf( explained( { "setOpaqueTagIngress", "0", "1" } )[0], "call" ).size(), 7u );
}

TEST( Explain, ShowsIgnoredResultsAndChecksOfACode ) {
    const Json ranged =
        explained( { "programL2IfIngSystemPortTable", "ranged", "0", "300", "5", "128", "77",
                     "true", "--model", "examples/range-table-index.toml" } )[0];
    const Json index = stepsOf( ranged, "call" )[4];
    EXPECT_EQ( index["field"], "RANGE_TABLE_INDEX" );
    EXPECT_EQ( index["ignored"], true );
    EXPECT_EQ( index["guarded"], false );
    EXPECT_LT( index["rc"], 0 );

    const Json seed = explained( { "setLoadBalanceRandSeedCtrl" } )[0];
    const Json check = stepsOf( seed, "call" )[2];
    EXPECT_EQ( check["call"], "rc" );
    EXPECT_EQ( check["guarded"], true );
    EXPECT_FALSE( check.contains( "operation" ) );
}

TEST( Explain, ConstantsOutsideCallsStandAlone ) {
    const Json recipe = explained( { "setOpaqueTagEgress" } )[0];
    EXPECT_EQ( recipe["steps"][0],
               Json( { { "kind", "constant" }, { "constant", "BCMLT_INVALID_HDL" } } ) );
    EXPECT_EQ( recipe["steps"][2], recipe["steps"][0] );
    EXPECT_EQ( stepsOf( recipe, "constant" ).size(), 2u );
}

TEST( Explain, GettersAreSeenAfterTheirSetters ) {
    const Json recipe = explained( { "getOpaqueTagIngress", "0", "9" } )[0];
    EXPECT_EQ( recipe["prepared_by"], "setOpaqueTagIngress" );
    EXPECT_EQ( recipe["result"], "33024" );
    EXPECT_EQ( stepsOf( recipe, "call" )[4]["value"], 9 );
}

TEST( Explain, AStopIsTheLastThingSeen ) {
    const Outcome run = cairnLt( { "explain", "setEgrTunnelEcnEncap", "0", "5", "4" } );
    EXPECT_EQ( run.exitCode, 1 );
    EXPECT_EQ( linesWith( run.err, "API ERROR" ).size(), 1u );
    EXPECT_EQ( lines( run.out ).back(), "It stops the process here." );
    EXPECT_EQ(
        linesWith( run.out, "   3  add        OUTER_ECN = 4 (2 bits)  [returns -14, " ).size(), 1u )
        << run.out;
}

TEST( Explain, ReadsAsText ) {
    EXPECT_EQ(
        cairnLt( { "explain", "setLearnCacheDropEnabled", "0", "off" } ).out,
        "setLearnCacheDropEnabled( unit=0, enable=false )\n"
        "Switches the learn cache on or off for dropped L2 destinations.\n"
        "   1  allocate   an entry of LEARN_CACHE_DROP_CONTROL (logical table) on unit 0\n"
        "   2  add        EVENT_ID = symbol L2_DST_DISCARD (key)\n"
        "   3  commit     LOOKUP  [returns -27, row does not exist; unchecked: no hook, a failure "
        "does not stop here; asks BCMLT_PRIORITY_NORMAL, BCMLT_OPCODE_LOOKUP]\n"
        "   4  add        LEARN_CACHE = 0 (1 bit)\n"
        "   5  commit     INSERT  [asks BCMLT_PRIORITY_NORMAL, BCMLT_OPCODE_INSERT]\n"
        "   6  free       the entry\n"
        "The activity lock is released around each call.\n" );
}

TEST( CommandLine, HelpThatCannotBeWrittenIsTrouble ) {
    for ( const std::vector<std::string> & arguments :
          { std::vector<std::string>{ "--help" }, { "--version" }, { "run", "--help" } } ) {
        const Outcome run = cairnLt( arguments, "/dev/full" );
        EXPECT_EQ( run.exitCode, 2 );
        EXPECT_EQ( lines( run.err ).size(), 1u ) << run.err;
    }
}

} // namespace
