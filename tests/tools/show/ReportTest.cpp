#include "tools/show/Report.h"
#include "interpose/FaultInjector.h"
#include "interpose/TraceRecorder.h"
#include "sim/Chip.h"
#include "tests/support/ChildProcess.h"
#include "tests/tools/Program.h"
#include "tests/tools/show/PageData.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <vector>

// cairn-lt report: the data that its pages hold. What a browser makes of it is tested in page_test.py.

namespace {

using ToolTest::cairnLt;
using ToolTest::lines;
using ToolTest::Outcome;
using ToolTest::PageData;

class ReportTest : public ::testing::Test {
  protected:
    // A state file of a chip whose row EGR_TUNNEL_ECN_ENCAPm[index] says this outer ECN.
    std::string stateWithEncap( const std::string & name, int index, int outerEcn ) {
        std::string state = folder_.path( name );
        EXPECT_EQ( cairnLt( { "run", "setEgrTunnelEcnEncap", "0", std::to_string( index ),
                              std::to_string( outerEcn ), "--state", state } )
                       .exitCode,
                   0 );
        return state;
    }

    // The page of an input.
    PageData report( std::vector<std::string> arguments, int exitCode = 0 ) {
        arguments.insert( arguments.begin(), "report" );
        arguments.insert( arguments.end(), { "-o", page_ } );
        run_ = cairnLt( arguments );
        EXPECT_EQ( run_.exitCode, exitCode ) << run_.err;
        return PageData( Support::contents( page_ ) );
    }

    void expectRefused( std::vector<std::string> arguments, const std::string & part ) {
        arguments.insert( arguments.begin(), "report" );
        arguments.insert( arguments.end(), { "-o", page_ } );
        const Outcome run = cairnLt( arguments );
        EXPECT_EQ( run.exitCode, 2 ) << run.err;
        EXPECT_EQ( lines( run.err ).size(), 1u ) << run.err;
        EXPECT_NE( run.err.find( part ), std::string::npos ) << run.err;
        EXPECT_FALSE( std::filesystem::exists( page_ ) );
    }

    // A recording of what is done to a chip.
    class Recorded {
      public:
        explicit Recorded( const std::string & folder ) : faults( chip ) {
            chip.addUnit( 0, Sim::referenceSchema() );
            std::filesystem::create_directories( folder );
            recorder_.emplace( faults, Interpose::TraceRecorder::Options{
                                           .directory = folder,
                                           .keep = Interpose::TraceRecorder::Keep::everything } );
        }

        Shim::Sdk & sdk() { return *recorded(); }

        std::uint32_t allocate( const char * table ) {
            std::uint32_t handle = 0;
            sdk().bcmlt_entry_allocate( 0, table, &handle );
            return handle;
        }

        // Writes a row of EGR_TUNNEL_ECN_ENCAPm.
        void write( std::uint64_t index, const char * field, std::uint64_t value,
                    std::uint32_t opcode ) {
            const std::uint32_t handle = allocate( "EGR_TUNNEL_ECN_ENCAPm" );
            sdk().bcmlt_entry_field_add( handle, "BCMLT_PT_INDEX", index );
            sdk().bcmlt_entry_field_add( handle, field, value );
            sdk().bcmlt_pt_entry_commit( handle, opcode, chip.BCMLT_PRIORITY_NORMAL() );
            sdk().bcmlt_entry_free( handle );
        }
        void modify( std::uint64_t index, const char * field, std::uint64_t value ) {
            write( index, field, value, chip.BCMLT_PT_OPCODE_MODIFY() );
        }

        // A row of a logical table by its key.
        void commit( std::uint64_t port, std::optional<std::uint64_t> physical,
                     std::uint32_t opcode ) {
            const std::uint32_t handle = allocate( "PC_PORT_PHYS_MAP" );
            sdk().bcmlt_entry_field_add( handle, "PORT_ID", port );
            if ( physical )
                sdk().bcmlt_entry_field_add( handle, "PC_PHYS_PORT_ID", *physical );
            sdk().bcmlt_entry_commit( handle, opcode, chip.BCMLT_PRIORITY_NORMAL() );
            sdk().bcmlt_entry_free( handle );
        }

        void close() { recorder_.reset(); }

        Sim::Chip chip;
        Interpose::FaultInjector faults;

      private:
        Interpose::TraceRecorder * recorded() { return &*recorder_; }
        std::optional<Interpose::TraceRecorder> recorder_;
    };

    static std::string callNumber( const PageData & data, const nlohmann::json & cell ) {
        return std::to_string( data.column( "call.number" ).at( cell.at( 2 ).get<std::size_t>() ) );
    }

    const Support::TemporaryFolder folder_;
    const std::string page_ = folder_.path( "page.html" );
    Outcome run_;
};

// --- Bring-ups

TEST_F( ReportTest, ABringupThatGoesAsItMust ) {
    const PageData data = report( { "examples/bringup.toml" } );
    EXPECT_EQ( run_.err, "" );
    EXPECT_EQ( run_.out, "" );
    EXPECT_EQ( data.head["kind"], "Bring-up" );
    EXPECT_EQ( data.head["ending"], "good" );
    EXPECT_EQ( data.head["endingText"], "All 55 steps went as they must." );
    EXPECT_EQ( data.fact( "Steps" ), "55" );
    EXPECT_FALSE( data.head.contains( "failure" ) );

    // Each call is that of the recording of the same bring-up, and belongs to its step.
    const std::string folder = folder_.path( "recording" );
    ASSERT_EQ( cairnLt( { "bringup", "examples/bringup.toml", "--record-to", folder } ).exitCode,
               0 );
    std::size_t calls = 0;
    for ( const std::string & line : lines( cairnLt( { "trace", folder } ).out ) )
        calls +=
            line.find( "Hook" ) == std::string::npos && line.find( " bcmlt_" ) != std::string::npos
                ? 1
                : 0;
    EXPECT_EQ( data.column( "call.number" ).size(), calls );
    EXPECT_EQ( data.fact( "SDK calls" ), std::to_string( calls ) );
    const auto names = data.texts( "span.name" );
    ASSERT_EQ( names.size(), 55u );
    EXPECT_EQ( names.front(), "cpuPortInit" );
    EXPECT_EQ( data.texts( "span.detail" ).at( 2 ), "setOpaqueTagIngress( unit=0, tagType=3 )" );
    const auto spans = data.column( "call.span" );
    const auto tables = data.texts( "call.table" );
    EXPECT_TRUE( std::is_sorted( spans.begin(), spans.end() ) );
    EXPECT_EQ( spans.front(), 1u );
    for ( std::size_t i = 0; i < calls; ++i ) {
        if ( names.at( spans[i] - 1 ) == "setOpaqueTagIngress" ) {
            EXPECT_EQ( tables[i], "OPAQUE_TAG_CONFIGr" ) << i;
        }
    }
}

TEST_F( ReportTest, NothingIsLeftOfTheRecordingThatAPageIsMadeOf ) {
    const std::string scratch = folder_.path( "scratch" );
    std::filesystem::create_directory( scratch );
    for ( const char * fault :
          { "op=pt_entry_commit,rc=-30,at=9", "op=pt_entry_commit,rc=-30,at=9999" } ) {
        const Outcome run =
            cairnLt( { "report", "examples/bringup.toml", "-o", page_, "--inject", fault }, {},
                     [&] { ::setenv( "TMPDIR", scratch.c_str(), 1 ); } );
        EXPECT_TRUE( run.signal == SIGABRT || run.exitCode == 0 ) << run.err;
        EXPECT_TRUE( std::filesystem::is_empty( scratch ) ) << fault;
    }
}

TEST_F( ReportTest, ABringupThatStopsShowsThePlaceAndTheCauseFirst ) {
    const Outcome run = cairnLt( { "report", "examples/bringup.toml", "-o", page_, "--inject",
                                   "op=pt_entry_commit,rc=-30,at=9" } );
    EXPECT_EQ( run.signal, SIGABRT );
    EXPECT_EQ( lines( run.err ).back(),
               "cairn-lt: examples/bringup.toml:100: stopped in step 11: getOpaqueTagEgressEfp( "
               "unit=0 ); " +
                   page_ + " shows where and why" );
    const PageData data( Support::contents( page_ ) );
    EXPECT_EQ( data.head["ending"], "bad" );
    EXPECT_EQ( data.head["endingText"], "Stopped in step 11 of 55." );
    EXPECT_EQ( data.head["failure"]["title"], "An SDK call failed in getOpaqueTagEgressEfp" );
    EXPECT_EQ( data.failureFact( "Step" ),
               "examples/bringup.toml:100 getOpaqueTagEgressEfp( unit=0 )" );
    EXPECT_EQ( data.failureFact( "Fault that was injected" ),
               "op=bcmlt_pt_entry_commit,rc=-30,at=9" );
    EXPECT_EQ( data.failureFact( "Code" ), "-30" );
    // The place is the one that the library has reported.
    const std::string reported = lines( run.err ).front();
    EXPECT_TRUE( reported.starts_with( data.failureFact( "Place" ) + " API ERROR" ) ) << reported;
    const std::size_t call = data.head["failure"]["call"];
    EXPECT_EQ( data.column( "call.flags" ).at( call ) & 8, 8u );
    EXPECT_EQ( data.column( "call.rc" ).at( call ), 59u ); // -30, the sign in the lowest bit
    EXPECT_EQ( data.column( "span.flags" ).back(), 2u );
    EXPECT_EQ( data.fact( "Faults" ), "1 given, 1 struck" );
}

TEST_F( ReportTest, WhatTheChipSaysIsTheCause ) {
    const std::string file =
        folder_.write( "wide.toml", "[[chips]]\n"
                                    "name = \"leaf\"\nunit = 0\nfile = \"reference\"\n"
                                    "[[steps]]\n"
                                    "recipe = \"setEgrTunnelEcnEncap\"\n"
                                    "arguments = [ 0, 5, 4 ]\n" );
    const Outcome run = cairnLt( { "report", file, "-o", page_ } );
    EXPECT_EQ( run.signal, SIGABRT ) << run.err;
    const PageData data( Support::contents( page_ ) );
    EXPECT_EQ( data.failureFact( "The chip says" ),
               "EGR_TUNNEL_ECN_ENCAPm.OUTER_ECN: value 4 needs 3 bits, the field has 2" );
}

TEST_F( ReportTest, ABringupWithAnotherResultIsAnswerNo ) {
    const std::string file =
        folder_.write( "no.toml", "[[chips]]\n"
                                  "name = \"leaf\"\nunit = 0\nfile = \"reference\"\n"
                                  "[[steps]]\n"
                                  "recipe = \"setOpaqueTagEgressEfp\"\n"
                                  "arguments = [ 0 ]\n"
                                  "[[steps]]\n"
                                  "recipe = \"getOpaqueTagEgressEfp\"\n"
                                  "arguments = [ 0 ]\n"
                                  "expect = 7\n" );
    const PageData data = report( { file }, 1 );
    EXPECT_EQ( data.head["ending"], "bad" );
    EXPECT_NE( data.failureFact( "Step 2" ).find( "7 is wanted" ), std::string::npos );
}

// --- Recordings

TEST_F( ReportTest, EachValueHasTheCallThatWroteItLast ) {
    Recorded recorded( folder_.path( "recording" ) );
    recorded.modify( 1, "OUTER_ECN", 1 );
    recorded.modify( 2, "OUTER_ECN", 2 );
    recorded.modify( 1, "ECN_PROFILE", 7 );
    recorded.modify( 1, "OUTER_ECN", 3 );
    recorded.write( 3, "OUTER_ECN", 1, recorded.chip.BCMLT_PT_OPCODE_SET() );
    recorded.close();
    const PageData data = report( { folder_.path( "recording" ) } );
    EXPECT_EQ( data.head["kind"], "Recording" );
    EXPECT_EQ( data.head["ending"], "good" );
    const auto table = data.table( "EGR_TUNNEL_ECN_ENCAPm" );
    ASSERT_EQ( table["rows"].size(), 3u );
    EXPECT_EQ( table["place"], nlohmann::json( { "index" } ) );
    EXPECT_EQ( table["fields"], nlohmann::json( { "OUTER_ECN", "INT_CN_MAP", "ECN_PROFILE" } ) );
    const auto & cells = table["rows"][0][1];
    EXPECT_EQ( cells[0][0], "3" );
    EXPECT_EQ( cells[0][1], 1 );
    EXPECT_EQ( callNumber( data, cells[0] ), "19" ); // the fourth commit
    EXPECT_EQ( cells[0][3], "1" );                   // what nobody had written
    EXPECT_EQ( cells[1][1], 0 );                     // still nobody has
    EXPECT_EQ( cells[1].size(), 2u );
    EXPECT_EQ( callNumber( data, cells[2] ), "14" ); // the third
    EXPECT_EQ( cells[2][3], "165" );
    // A SET writes the whole row.
    const auto & whole = table["rows"][2][1];
    EXPECT_EQ( callNumber( data, whole[1] ), "24" );
    EXPECT_EQ( callNumber( data, whole[0] ), "24" );
}

TEST_F( ReportTest, ARowThatIsMadeAnewHasNewWriters ) {
    Recorded recorded( folder_.path( "recording" ) );
    recorded.commit( 1, 10, recorded.chip.BCMLT_OPCODE_INSERT() );
    recorded.commit( 2, 20, recorded.chip.BCMLT_OPCODE_INSERT() );
    recorded.commit( 1, {}, recorded.chip.BCMLT_OPCODE_DELETE() );
    recorded.commit( 2, {}, recorded.chip.BCMLT_OPCODE_DELETE() );
    recorded.commit( 2, {}, recorded.chip.BCMLT_OPCODE_DELETE() ); // fails
    recorded.commit( 2, 21, recorded.chip.BCMLT_OPCODE_INSERT() );
    recorded.commit( 2, {}, recorded.chip.BCMLT_OPCODE_LOOKUP() ); // writes nothing
    recorded.close();
    const PageData data = report( { folder_.path( "recording" ) } );
    const auto table = data.table( "PC_PORT_PHYS_MAP" );
    ASSERT_EQ( table["rows"].size(), 1u );
    EXPECT_EQ( table["rows"][0][0], nlohmann::json( { "2" } ) );
    EXPECT_EQ( table["rows"][0][1][0][0], "21" );
    EXPECT_EQ( callNumber( data, table["rows"][0][1][0] ), "26" );
    EXPECT_EQ( table["rows"][0][2], true );
    EXPECT_EQ( data.fact( "Calls that failed" ), "1" );
}

TEST_F( ReportTest, TheChipBeginsAsAStateFileSays ) {
    const std::string state = stateWithEncap( "state.json", 1, 2 );
    Recorded recorded( folder_.path( "recording" ) );
    recorded.modify( 1, "INT_CN_MAP", 0 );
    recorded.close();
    const PageData data = report( { folder_.path( "recording" ), "--from", state } );
    const auto cells = data.table( "EGR_TUNNEL_ECN_ENCAPm" )["rows"][0][1];
    EXPECT_EQ( cells[0], nlohmann::json( { "2", 1 } ) ); // written, before
    EXPECT_EQ( cells[1][3], "1" );
}

TEST_F( ReportTest, ThreadsHaveLanesOfTheirOwn ) {
    Recorded recorded( folder_.path( "recording" ) );
    recorded.modify( 1, "OUTER_ECN", 1 );
    std::thread( [&] { recorded.modify( 2, "OUTER_ECN", 1 ); } ).join();
    recorded.close();
    const PageData data = report( { folder_.path( "recording" ) } );
    EXPECT_EQ( data.head["threads"].size(), 2u );
    EXPECT_EQ( data.column( "call.thread" ),
               ( std::vector<std::uint64_t>{ 0, 0, 0, 0, 0, 1, 1, 1, 1, 1 } ) );
    EXPECT_EQ( data.column( "span.thread" ), ( std::vector<std::uint64_t>{ 0, 1 } ) );
    const auto begins = data.column( "call.begin" );
    EXPECT_EQ( begins.front(), 0u );
    EXPECT_TRUE( std::is_sorted( begins.begin(), begins.end() ) );
}

TEST_F( ReportTest, MessagesTellTheRecipe ) {
    const std::string folder = folder_.path( "recording" );
    ASSERT_EQ( cairnLt( { "run", "setLoadBalanceRandSeedCtrl", "0", "12345", "--record-to", folder,
                          "--trace-dir", folder } )
                   .exitCode,
               0 );
    const PageData data = report( { folder } );
    EXPECT_EQ( data.texts( "message.text" ),
               std::vector<std::string>{ "setLoadBalanceRandSeedCtrl unit: 0 seed: 12345" } );
    EXPECT_EQ( data.head["threads"].size(), 1u );
    EXPECT_EQ( data.texts( "span.name" ).front(), "setLoadBalanceRandSeedCtrl" );
    EXPECT_EQ( data.column( "span.flags" ).front(), 0u );
    EXPECT_EQ( data.fact( "Recipes with messages" ), "1" );
}

TEST_F( ReportTest, ATraceWithoutCallsHasItsMessages ) {
    const std::string folder = folder_.path( "trace" );
    ASSERT_EQ(
        cairnLt( { "run", "setLoadBalanceRandSeedCtrl", "0", "12345", "--trace-dir", folder } )
            .exitCode,
        0 );
    const PageData data = report( { folder } );
    EXPECT_EQ( data.head["kind"], "Trace" );
    EXPECT_EQ( data.fact( "Messages" ), "1" );
    EXPECT_EQ( data.fact( "SDK calls" ), "0" );
    EXPECT_TRUE( data.head["tables"].empty() );
}

TEST_F( ReportTest, ARecordingOfAStop ) {
    const std::string folder = folder_.path( "recording" );
    const Outcome stopped =
        cairnLt( { "run", "setLoadBalanceRandSeedCtrl", "0", "12345", "--record-to", folder,
                   "--trace-dir", folder, "--inject", "op=pt_entry_commit,rc=-30,at=2" } );
    ASSERT_EQ( stopped.signal, SIGABRT );
    const PageData data = report( { folder } );
    EXPECT_EQ( data.head["ending"], "bad" );
    EXPECT_EQ( data.head["failure"]["title"], "An SDK call failed in setLoadBalanceRandSeedCtrl" );
    const std::string reported = lines( stopped.err ).front();
    EXPECT_TRUE( reported.starts_with( data.failureFact( "Place" ) + " API ERROR" ) )
        << data.failureFact( "Place" ) << "\n"
        << reported;
    EXPECT_EQ( data.failureFact( "The chip says" ), "" ); // it would have done it
    EXPECT_EQ( data.fact( "Faults from outside" ), "1" );
}

// NOLINTBEGIN( misc-misleading-bidirectional ): the texts are meant to mislead
TEST_F( ReportTest, TextsOfARecordingAreNoMarkup ) {
    const std::string hostile = "</script><script>alert(1)</script><!--\"'&\x01\n\t\xff\u202e";
    Recorded recorded( folder_.path( "recording" ) );
    recorded.modify( 1, "OUTER_ECN", 1 );
    recorded.allocate( hostile.c_str() );
    const std::uint32_t handle = recorded.allocate( "EGR_TUNNEL_ECN_ENCAPm" );
    recorded.sdk().bcmlt_entry_field_add( handle, hostile.c_str(), 1 );
    recorded.sdk().bcmlt_entry_field_symbol_add( handle, "OUTER_ECN", hostile.c_str() );
    recorded.close();
    const PageData data = report( { folder_.path( "recording" ) } );
    const std::string page = Support::contents( page_ );
    EXPECT_EQ( page.find( "alert(1)" ), page.npos );
    const std::string shown = "</script><script>alert(1)</script><!--\"'&\\x01\\n\\t\\xff\u202e";
    const auto fields = data.texts( "call.field" );
    EXPECT_EQ( std::count( fields.begin(), fields.end(), shown ), 1 );
    const auto tables = data.texts( "call.table" );
    EXPECT_EQ( std::count( tables.begin(), tables.end(), shown ), 1 );
    const auto arguments = data.texts( "call.arguments" );
    EXPECT_EQ( std::count( arguments.begin(), arguments.end(), shown ), 1 );
}
// NOLINTEND( misc-misleading-bidirectional )

TEST_F( ReportTest, AHostileNameOfTheInputIsShown ) {
    const std::string name = folder_.path( "<b>\n\xff" );
    Recorded recorded( name );
    recorded.modify( 1, "OUTER_ECN", 1 );
    recorded.close();
    const PageData data = report( { name } );
    EXPECT_TRUE( data.head["input"].get<std::string>().ends_with( "<b>\\n\\xff" ) );
}

TEST_F( ReportTest, TheSameInputGivesTheSamePage ) {
    Recorded recorded( folder_.path( "recording" ) );
    recorded.modify( 1, "OUTER_ECN", 1 );
    recorded.close();
    report( { folder_.path( "recording" ) } );
    const std::string once = Support::contents( page_ );
    report( { folder_.path( "recording" ) } );
    EXPECT_EQ( Support::contents( page_ ), once );
}

TEST_F( ReportTest, AChipThatTheRecordingIsNotOfHasNoTables ) {
    Recorded recorded( folder_.path( "recording" ) );
    recorded.modify( 1, "OUTER_ECN", 1 );
    recorded.close();
    const std::string chip = folder_.write(
        "chip.toml", "base = \"reference\"\nremove = [ \"EGR_TUNNEL_ECN_ENCAPm\" ]\n" );
    const PageData data = report( { folder_.path( "recording" ), "--chip", chip } );
    EXPECT_TRUE( data.head["tables"].empty() );
    EXPECT_NE( data.head["notes"][0].get<std::string>().find( "EGR_TUNNEL_ECN_ENCAPm" ),
               std::string::npos );
    EXPECT_EQ( data.fact( "SDK calls" ), "5" );
}

TEST_F( ReportTest, OfSeveralProcessesOneIsChosen ) {
    const std::string folder = folder_.path( "recording" );
    std::string process;
    for ( int i = 0; i < 2; ++i )
        ASSERT_EQ(
            cairnLt( { "run", "setEgrTunnelEcnEncap", "0", "5", "1", "--record-to", folder } )
                .exitCode,
            0 );
    expectRefused( { folder }, "choose one with --process" );
    const auto first = *std::filesystem::directory_iterator( folder );
    const std::string name = first.path().filename().string();
    process = name.substr( name.find( '-', name.find( ".sdk" ) ) + 1 );
    process = process.substr( 0, process.find( '-' ) );
    EXPECT_EQ( report( { folder, "--process", process } ).fact( "SDK calls" ), "5" );
}

TEST_F( ReportTest, ADamagedFileIsSaidAndTheRestIsShown ) {
    const std::string folder = folder_.path( "recording" );
    Recorded recorded( folder );
    recorded.modify( 1, "OUTER_ECN", 1 );
    recorded.close();
    folder_.write( "recording/other.fleetlog", "FLEETLOG and then nothing" );
    const PageData data = report( { folder }, 1 );
    EXPECT_EQ( data.fact( "SDK calls" ), "5" );
    EXPECT_NE( data.head["notes"].dump().find( "other.fleetlog" ), std::string::npos );
}

// --- Bundles

class ReportOfBundleTest : public ReportTest {
  protected:
    // What a recorded process that is stopped writes to standard error.
    std::string stopped( const std::string & recording, std::vector<std::string> arguments ) {
        arguments.insert( arguments.begin(), "run" );
        arguments.insert( arguments.end(), { "--record-to", folder_.path( recording ),
                                             "--trace-dir", folder_.path( recording ) } );
        const Outcome run = cairnLt( arguments );
        EXPECT_EQ( run.signal, SIGABRT ) << run.err;
        return run.err;
    }

    // The bundle of a report.
    std::string bundleOf( const std::string & text, std::vector<std::string> arguments,
                          const std::string & name = "case.tar.zst" ) {
        std::string bundle = folder_.path( name );
        arguments.insert( arguments.begin(), { "diagnose", folder_.write( "agent.log", text ) } );
        arguments.insert( arguments.end(), { "--bundle", bundle } );
        const Outcome run = cairnLt( arguments );
        EXPECT_TRUE( std::filesystem::exists( bundle ) ) << run.err;
        return bundle;
    }

    static std::string processOf( const std::string & file ) {
        const std::string rest = file.substr( file.find( '-', file.find( ".sdk" ) ) + 1 );
        return rest.substr( 0, rest.find( '-' ) );
    }

    const std::vector<std::string> tooWide{ "setEgrTunnelEcnEncap", "0", "5", "4" };
    const std::vector<std::string> outOfMemory{ "setLoadBalanceRandSeedCtrl", "0", "12345",
                                                "--inject", "op=pt_entry_commit,rc=-30,at=2" };
};

TEST_F( ReportOfBundleTest, TheDiagnosisStandsFirstAndItsTraceBelow ) {
    const std::string text = stopped( "trace", outOfMemory );
    for ( const char * name : { "case.tar.gz", "case.tar.zst" } ) {
        const PageData data =
            report( { bundleOf( text, { "--trace", folder_.path( "trace" ) }, name ) } );
        EXPECT_EQ( run_.err, "" );
        EXPECT_EQ( data.head["kind"], "Diagnosis" );
        EXPECT_EQ( data.head["ending"], "bad" );
        EXPECT_EQ( data.head["endingText"], "An SDK call failed, and the process was stopped." );
        EXPECT_EQ( data.head["failure"]["title"],
                   "An SDK call failed in setLoadBalanceRandSeedCtrl" );
        const std::string place = data.failureFact( "Place" );
        EXPECT_TRUE( text.starts_with( place.substr( 0, place.find( " in " ) ) + " bcmlt_" ) )
            << place;
        EXPECT_EQ( data.failureFact( "Arguments" ),
                   "setLoadBalanceRandSeedCtrl( unit=0, seed=12345 )" );
        EXPECT_EQ( data.failureFact( "SDK" ), "out of memory (-30)" );
        EXPECT_TRUE( data.failureFact( "Tried" ).starts_with( "The simulated chip" ) );
        const std::size_t call = data.head["failure"]["call"];
        EXPECT_EQ( data.column( "call.flags" ).at( call ) & 8, 8u );
        EXPECT_EQ( data.column( "call.rc" ).at( call ), 59u ); // -30, the sign in the lowest bit
        EXPECT_EQ( data.texts( "span.name" ).front(), "setLoadBalanceRandSeedCtrl" );
        EXPECT_EQ( data.table( "IPOST_LAG_RAND_NUM_CTRL_0r" )["rows"].size(), 1u );
        EXPECT_TRUE( data.head["grids"].empty() );
    }
}

TEST_F( ReportOfBundleTest, TheChipBeginsAsThatOfTheBundle ) {
    const std::string state = stateWithEncap( "state.json", 5, 2 );
    Recorded recorded( folder_.path( "trace" ) );
    recorded.modify( 5, "OUTER_ECN", 1 );
    recorded.close();
    const std::vector<std::string> begin{ "--trace", folder_.path( "trace" ), "--from", state };
    const std::string bundle =
        bundleOf( "Kiln activity lock: released by another thread\n", begin );
    const auto cell = report( { bundle } ).table( "EGR_TUNNEL_ECN_ENCAPm" )["rows"][0][1][0];
    EXPECT_EQ( cell[0], "1" );
    EXPECT_EQ( cell[3], "2" );
    // What is given replaces it.
    const PageData anew = report( { bundle, "--chip", "reference" } );
    EXPECT_NE( anew.table( "EGR_TUNNEL_ECN_ENCAPm" )["rows"][0][1][0][3], "2" );
}

TEST_F( ReportOfBundleTest, WithoutATraceThereIsTheDiagnosisAlone ) {
    const PageData data = report( { bundleOf( stopped( "trace", tooWide ), {} ) } );
    EXPECT_EQ( data.head["failure"]["title"], "An SDK call failed in setEgrTunnelEcnEncap" );
    EXPECT_EQ(
        data.failureFact( "Tried" ),
        "The simulated chip says: EGR_TUNNEL_ECN_ENCAPm.OUTER_ECN: value 4 needs 3 bits, the "
        "field has 2" );
    EXPECT_FALSE( data.head["failure"].contains( "call" ) );
    EXPECT_TRUE( data.column( "call.number" ).empty() );
}

TEST_F( ReportOfBundleTest, OfSeveralStopsTheLastIsShownAndTheOthersAreTold ) {
    const std::string text = stopped( "trace", outOfMemory );
    std::string first;
    for ( const auto & each : std::filesystem::directory_iterator( folder_.path( "trace" ) ) )
        if ( each.path().filename().string().find( ".sdk" ) != std::string::npos )
            first = processOf( each.path().filename() );
    const std::string bundle =
        bundleOf( text + stopped( "trace", tooWide ), { "--trace", folder_.path( "trace" ) } );
    const PageData last = report( { bundle } );
    EXPECT_EQ( last.head["failure"]["title"], "An SDK call failed in setEgrTunnelEcnEncap" );
    EXPECT_EQ( last.fact( "Stops in the report" ), "2" );
    const auto & grid = last.head["grids"][0];
    ASSERT_EQ( grid["rows"].size(), 2u );
    EXPECT_EQ( grid["rows"][0][1], first );
    EXPECT_EQ( grid["rows"][0][3], "setLoadBalanceRandSeedCtrl" );
    EXPECT_EQ( grid["bad"], nlohmann::json( { false, true } ) );
    EXPECT_EQ( last.column( "call.number" ).size(), 3u );

    const PageData other = report( { bundle, "--process", first } );
    EXPECT_EQ( other.head["failure"]["title"], "An SDK call failed in setLoadBalanceRandSeedCtrl" );
    EXPECT_EQ( other.head["grids"][0]["bad"], nlohmann::json( { true, false } ) );
    EXPECT_EQ( other.column( "call.number" ).size(), 7u );
    std::filesystem::remove( page_ );
    expectRefused( { bundle, "--process", "1" }, "it holds nothing of process 1" );
}

TEST_F( ReportOfBundleTest, AReportWithoutAStopIsSaidAndTheTraceTellsWhatItCan ) {
    stopped( "trace", tooWide );
    const PageData data =
        report( { bundleOf( "all is well\n", { "--trace", folder_.path( "trace" ) } ) } );
    EXPECT_NE( data.head["notes"].dump().find( "Nothing in the report says" ), std::string::npos );
    EXPECT_EQ( data.head["endingText"], "An SDK call failed and stopped the process." );
    EXPECT_EQ( data.failureFact( "Code" ), "-14" );
    EXPECT_EQ( data.fact( "SDK calls" ), "3" );
}

TEST_F( ReportOfBundleTest, ATraceOfAnotherProcessIsNotTaken ) {
    std::string text;
    for ( const std::string & line : lines( stopped( "trace", tooWide ) ) )
        text += "agent[1]: " + line + "\n";
    const PageData data = report( { bundleOf( text, { "--trace", folder_.path( "trace" ) } ) } );
    EXPECT_EQ( data.head["failure"]["title"], "An SDK call failed in setEgrTunnelEcnEncap" );
    EXPECT_EQ( data.head["notes"],
               nlohmann::json( { "The bundle has no trace of process 1 that can "
                                 "be read." } ) );
    EXPECT_TRUE( data.column( "call.number" ).empty() );
}

TEST_F( ReportOfBundleTest, ADamagedTraceOfItIsSaidAndTheRestIsShown ) {
    const std::string text = stopped( "trace", tooWide );
    folder_.write( "trace/other.fleetlog", "FLEETLOG and then nothing" );
    const PageData data = report( { bundleOf( text, { "--trace", folder_.path( "trace" ) } ) }, 1 );
    EXPECT_NE( run_.err.find( "case.tar.zst:other.fleetlog" ), std::string::npos ) << run_.err;
    EXPECT_NE( data.head["notes"].dump().find( "other.fleetlog" ), std::string::npos );
    EXPECT_EQ( data.fact( "SDK calls" ), "3" );
}

TEST_F( ReportOfBundleTest, WhatIsNoBundleIsRefused ) {
    const std::string bundle = bundleOf( stopped( "trace", tooWide ), {}, "case.tar.gz" );
    const std::string whole = Support::contents( bundle );
    std::string damaged = whole;
    damaged.replace( damaged.size() / 2, 64, 64, '\xff' );
    expectRefused( { folder_.write( "damaged.tar.gz", damaged ) }, "damaged.tar.gz: " );
    for ( const std::size_t size : { whole.size() / 2, whole.size() - 1 } )
        expectRefused( { folder_.write( "cut.tar.gz", whole.substr( 0, size ) ) },
                       "copy the bundle again" );
    expectRefused( { folder_.write( "short.tar.gz", whole.substr( 0, 4 ) ) },
                   "is compressed, and no bundle: " );
    expectRefused( { folder_.write( "none.tar.gz", "" ) }, "nor a bundle" );
    expectRefused( { bundle, "--inject", "op=entry_free,rc=-1" },
                   "--inject is for a bring-up file" );
    folder_.write( "page.html", "as it was" );
    EXPECT_EQ( cairnLt( { "report", folder_.path( "damaged.tar.gz" ), "-o", page_ } ).exitCode, 2 );
    EXPECT_EQ( Support::contents( page_ ), "as it was" );
}

// --- Documents

TEST_F( ReportTest, TheJsonOfASweep ) {
    const std::string file = folder_.write(
        "sweep.json",
        cairnLt( { "sweep", "setEgrTunnelEcnEncap", "cpuPortInit", "--format", "json" } ).out );
    const PageData data = report( { file } );
    EXPECT_EQ( data.head["kind"], "Sweep" );
    EXPECT_EQ( data.head["ending"], "good" );
    EXPECT_EQ( data.fact( "Recipes" ), "2" );
    const auto & grid = data.head["grids"][0];
    const std::size_t faults = std::stoul( data.fact( "Faults" ) );
    const std::size_t cases = std::stoul( data.fact( "Cases" ) );
    EXPECT_EQ( grid["rows"].size(), faults + cases );
    EXPECT_EQ( grid["bad"].size(), grid["rows"].size() );
}

TEST_F( ReportTest, ASweepThatIsNotAsExpectedIsMarked ) {
    const std::string file = folder_.write( "sweep.json", R"({"recipes":[{"recipe":"r","cases":[
        {"case":"c","calls":1,"expected":"returns","as_expected":true,"faults":[
        {"call":1,"text":"t","fault":"fails","expected":"stops","as_expected":false,
         "differences":["it went on","no report"]}]}]}],
        "summary":{"recipes":1,"cases":1,"faults":1,"unexpected":1,"refused":0,"left_out":0}})" );
    const PageData data = report( { file } );
    EXPECT_EQ( data.head["ending"], "bad" );
    EXPECT_EQ( data.head["grids"][0]["bad"], nlohmann::json( { false, true } ) );
    EXPECT_EQ( data.head["grids"][0]["rows"][1][6], "it went on; no report" );
}

TEST_F( ReportTest, TheJsonOfADifferenceOfStatesAndOfRecordings ) {
    const std::string one = stateWithEncap( "one.json", 5, 1 );
    const std::string two = stateWithEncap( "two.json", 5, 2 );
    const PageData states = report( { folder_.write(
        "states.json", cairnLt( { "diff", one, two, "--format", "json" } ).out ) } );
    EXPECT_EQ( states.head["endingText"], "The two states differ." );
    EXPECT_EQ( states.head["grids"][0]["rows"],
               nlohmann::json( { { "0", "EGR_TUNNEL_ECN_ENCAPm", "index 5", "changed", "OUTER_ECN",
                                   "1", "2" } } ) );

    const std::string there = folder_.path( "there" );
    const std::string back = folder_.path( "back" );
    cairnLt( { "diff", one, two, "--plan", there } );
    cairnLt( { "diff", two, one, "--plan", back } );
    const PageData recordings = report( { folder_.write(
        "recordings.json", cairnLt( { "diff", there, back, "--format", "json" } ).out ) } );
    EXPECT_EQ( recordings.head["endingText"], "The two recordings differ." );
    const auto & rows = recordings.head["grids"][0]["rows"];
    ASSERT_EQ( rows.size(), 10u );
    EXPECT_EQ( rows[2].back(), "add OUTER_ECN = 2" );
    EXPECT_EQ( rows[7].back(), "add OUTER_ECN = 1" );
}

TEST_F( ReportTest, OtherJsonIsRefused ) {
    expectRefused( { folder_.write( "a.json", "{" ) }, "it is no JSON" );
    expectRefused( { folder_.write( "b.json", "{}" ) }, "another kind" );
    expectRefused( { folder_.write( "c.json", R"({"summary":[],"recipes":1})" ) },
                   "not as the verb printed it" );
    expectRefused( { folder_.write( "d.json", R"({"different":true,"rows":[{"place":1}]})" ) },
                   "not as the verb printed it" );
    expectRefused( { folder_.write( "e.json", R"({"different":1,"differences":[]})" ) },
                   "not as the verb printed it" );
}

// --- What is given, and where the page goes

TEST_F( ReportTest, WhatIsNothingIsRefused ) {
    expectRefused( { folder_.path( "none" ) }, "cannot be read: No such file" );
    expectRefused( { folder_.write( "empty", "" ) }, "neither a trace" );
    expectRefused( { folder_.write( "zero", std::string( 100, '\0' ) ) }, "neither a trace" );
    expectRefused( { folder_.path() + "/" }, "no trace files" );
    expectRefused( { folder_.write( "cut.fleetlog", "FLEETLOG" ) }, "cut.fleetlog" );
    expectRefused( { folder_.write( "text.toml", "what is this" ) }, "text.toml:1" );
}

TEST_F( ReportTest, DocumentsAndBringupsMayComeFromAPipe ) {
    const std::string sweep =
        cairnLt( { "sweep", "setEgrTunnelEcnEncap", "--format", "json" } ).out;
    const std::string steps = "[[chips]]\nname = \"leaf\"\nunit = 0\nfile = \"reference\"\n"
                              "[[steps]]\nrecipe = \"setOpaqueTagEgressEfp\"\n"
                              "arguments = [ 0 ]\n";
    const std::string pipe = folder_.path( "pipe" );
    ASSERT_EQ( ::mkfifo( pipe.c_str(), 0600 ), 0 );
    const auto through = [&]( const std::string & contents, int exitCode = 0 ) {
        std::thread writer( [&] { std::ofstream( pipe ) << contents; } );
        Outcome run = cairnLt( { "report", pipe, "-o", page_ } );
        writer.join();
        EXPECT_EQ( run.exitCode, exitCode ) << run.err;
        return run;
    };
    through( sweep );
    EXPECT_EQ( PageData( Support::contents( page_ ) ).head["kind"], "Sweep" );
    through( steps );
    EXPECT_EQ( PageData( Support::contents( page_ ) ).head["kind"], "Bring-up" );
    EXPECT_EQ( through( "FLEETLOG and more", 2 ).err,
               "cairn-lt: " + pipe + ": not a trace file: not a regular file\n" );
}

TEST_F( ReportTest, WhatIsReadIsNotOverwritten ) {
    const std::string state = stateWithEncap( "state.json", 1, 2 );
    Recorded recorded( folder_.path( "recording" ) );
    recorded.modify( 1, "OUTER_ECN", 1 );
    recorded.close();
    const std::string trace =
        std::filesystem::directory_iterator( folder_.path( "recording" ) )->path();
    const std::string document = folder_.write( "a.json", R"({"different":false,"rows":[],
        "added":0,"removed":0,"changed":0})" );
    const std::string link = folder_.path( "link" );
    std::filesystem::create_symlink( document, link );
    const std::vector<std::vector<std::string>> runs{
        { document, "-o", document },
        { document, "-o", link },
        { folder_.path( "recording" ), "-o", trace },
        { folder_.path( "recording" ), "--from", state, "-o", state } };
    for ( std::vector<std::string> arguments : runs ) {
        const std::string output = arguments.back();
        const std::string before = Support::contents( output );
        arguments.insert( arguments.begin(), "report" );
        const Outcome run = cairnLt( arguments );
        EXPECT_EQ( run.exitCode, 2 );
        EXPECT_EQ( lines( run.err ).size(), 1u ) << run.err;
        EXPECT_NE( run.err.find( "which is read; name another file with -o" ), std::string::npos )
            << run.err;
        EXPECT_EQ( Support::contents( output ), before );
    }
}

TEST_F( ReportTest, OptionsThatMeanNothingAreRefused ) {
    const std::string json = folder_.write( "a.json", "{}" );
    expectRefused( { json, "--chip", "reference" }, "--chip is for a trace" );
    expectRefused( { json, "--process", "1" }, "--process is for a trace" );
    expectRefused( { json, "--inject", "op=entry_free,rc=-1" }, "--inject is for a bring-up file" );
    expectRefused( { "examples/bringup.toml", "--from", json }, "--from is for a trace" );
    const Outcome run = cairnLt( { "report", json } );
    EXPECT_EQ( run.exitCode, 2 );
    EXPECT_NE( run.err.find( "--output" ), std::string::npos ) << run.err;
}

TEST_F( ReportTest, APageThatCannotBeWrittenLeavesNothing ) {
    const std::string json = folder_.write( "a.json", R"({"different":false,"rows":[],
        "added":0,"removed":0,"changed":0})" );
    for ( const auto & [output, what] :
          { std::pair( folder_.path( "no/page.html" ), "cannot be written: No such file" ),
            std::pair( folder_.path() + "/", "is no regular file" ),
            std::pair( std::string( "/dev/full" ), "is no regular file" ) } ) {
        const Outcome run = cairnLt( { "report", json, "-o", output } );
        EXPECT_EQ( run.exitCode, 2 );
        EXPECT_EQ( lines( run.err ).size(), 1u );
        EXPECT_NE( run.err.find( what ), std::string::npos ) << run.err;
    }
    folder_.write( "page.html", "as it was" );
    const Outcome run = cairnLt( { "report", json, "-o", page_ }, {}, [] {
        const rlimit limit{ 4096, 4096 };
        ::setrlimit( RLIMIT_FSIZE, &limit );
    } );
    EXPECT_EQ( run.exitCode, 2 );
    EXPECT_EQ( run.err, "cairn-lt: " + page_ + ": cannot be written: File too large\n" );
    EXPECT_EQ( Support::contents( page_ ), "as it was" );
    std::size_t files = 0;
    for ( const auto & each : std::filesystem::directory_iterator( folder_.path() ) )
        files += each.is_regular_file() ? 1 : 0;
    EXPECT_EQ( files, 2u );
}

// --- What bounds the memory

TEST( ReportListTest, OfTooManyTheOldestAreDropped ) {
    Tool::ReportList<int, 16> list;
    for ( int i = 0; i < 100; ++i )
        EXPECT_EQ( list.add( i ), static_cast<std::size_t>( i ) );
    EXPECT_EQ( list.count(), 100u );
    EXPECT_LE( list.items().size(), 16u );
    EXPECT_GE( list.items().size(), 14u );
    EXPECT_EQ( list.items().back(), 99 );
    EXPECT_EQ( list.find( 3 ), nullptr );
    EXPECT_EQ( *list.find( 95 ), 95 );
    EXPECT_EQ( list.find( 100 ), nullptr );
}

TEST( ReportTextsTest, EachIsThereOnceAndTooManyAreOne ) {
    Tool::ReportTexts texts;
    EXPECT_EQ( texts.add( "" ), 0u );
    const std::uint32_t one = texts.add( "one" );
    EXPECT_EQ( texts.add( "one" ), one );
    EXPECT_EQ( texts[one], "one" );
    EXPECT_FALSE( texts.isFull() );
    const std::string large( Tool::ReportTexts::mostBytes, 'x' );
    const std::uint32_t tooMany = texts.add( large );
    EXPECT_TRUE( texts.isFull() );
    EXPECT_EQ( texts.add( large + "y" ), tooMany );
    EXPECT_EQ( texts.add( "one" ), one );
    EXPECT_EQ( texts.size(), 3u );
}

} // namespace
