#include "interpose/FaultInjector.h"
#include "interpose/TraceRecorder.h"
#include "sim/Chip.h"
#include "tests/support/ChildProcess.h"
#include "tests/tools/Program.h"

#include <Kiln/ActivityLock.h>

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

// cairn-lt replay, diff and check on recordings in files, as their users see them.

namespace {

using Json = nlohmann::json;
using ToolTest::cairnLt;
using ToolTest::lines;
using ToolTest::Outcome;

class RecordingVerbs : public ::testing::Test {
  protected:
    // Records what is done on a chip.
    class Recording {
      public:
        explicit Recording( const std::string & folder ) : faults( chip ) {
            chip.addUnit( 0, Sim::referenceSchema() );
            std::filesystem::create_directories( folder );
            recorder_.emplace( faults, Interpose::TraceRecorder::Options{
                                           .directory = folder,
                                           .keep = Interpose::TraceRecorder::Keep::everything,
                                           .isLockHeld = [] {
                                               return Kiln::activityLock().heldByThisThread();
                                           } } );
        }

        Shim::Sdk & sdk() { return *recorder_; }
        // Nothing more is recorded.
        void close() { recorder_.reset(); }

        void setEcn( std::uint64_t index, std::uint64_t value ) {
            std::uint32_t handle = 0;
            sdk().preCallHook();
            sdk().bcmlt_entry_allocate( 0, "EGR_TUNNEL_ECN_ENCAPm", &handle );
            sdk().preCallHook();
            sdk().bcmlt_entry_field_add( handle, "BCMLT_PT_INDEX", index );
            sdk().preCallHook();
            sdk().bcmlt_entry_field_add( handle, "OUTER_ECN", value );
            sdk().preCallHook();
            sdk().bcmlt_pt_entry_commit( handle, chip.BCMLT_PT_OPCODE_MODIFY(),
                                         chip.BCMLT_PRIORITY_NORMAL() );
            sdk().preCallHook();
            sdk().bcmlt_entry_free( handle );
        }

        Sim::Chip chip;
        Interpose::FaultInjector faults;

      private:
        std::optional<Interpose::TraceRecorder> recorder_;
    };

    // A recording of two rows, the second of which gets a value.
    std::string recorded( const std::string & name, std::uint64_t value ) {
        std::string folder = folder_.path( name );
        Recording recording( folder );
        recording.setEcn( 1, 1 );
        recording.setEcn( 2, value );
        return folder;
    }

    const Support::TemporaryFolder folder_;
};

void expectOneLine( const Outcome & run, int exitCode, const std::string & part ) {
    EXPECT_EQ( run.exitCode, exitCode ) << run.err;
    EXPECT_EQ( lines( run.err ).size(), 1u ) << run.err;
    EXPECT_NE( run.err.find( part ), std::string::npos ) << run.err;
}

TEST_F( RecordingVerbs, AReplayThatGoesAsItDid ) {
    const std::string recording = recorded( "recording", 2 );
    const std::string state = folder_.path( "state.json" );
    const Outcome run = cairnLt( { "replay", recording, "--state", state, "--dump" } );
    EXPECT_EQ( run.exitCode, 0 ) << run.err;
    EXPECT_EQ( run.err, "" );
    EXPECT_EQ( run.out, "10 operations replayed, all as recorded\n"
                        "EGR_TUNNEL_ECN_ENCAPm  unit 0, memory, 256 rows\n"
                        "  index  OUTER_ECN  INT_CN_MAP  ECN_PROFILE\n"
                        "  1      1          (1)         (165)\n"
                        "  2      2          (1)         (165)\n" );
    const Json json = Json::parse( cairnLt( { "replay", recording, "--format", "json" } ).out );
    EXPECT_EQ( json["operations"], 10 );
    EXPECT_EQ( json["divergences"], 0 );
}

TEST_F( RecordingVerbs, AReplayUntilACallOrATime ) {
    const std::string recording = recorded( "recording", 2 );
    const Outcome half = cairnLt( { "replay", recording, "--until", "10" } );
    EXPECT_EQ( half.exitCode, 0 );
    EXPECT_EQ( half.out, "5 operations replayed, all as recorded\n" );
    const Outcome none = cairnLt( { "replay", recording, "--until", "2001-01-01T00:00:00" } );
    EXPECT_EQ( none.out, "0 operations replayed, all as recorded\n" );
    expectOneLine( cairnLt( { "replay", recording, "--until", "noon" } ), 2,
                   "--until: \"noon\" is neither the number of a call nor a time in UTC" );
}

TEST_F( RecordingVerbs, AReplayThatDiverges ) {
    const std::string folder = folder_.path( "recording" );
    {
        Recording recording( folder );
        recording.setEcn( 1, 1 );
        std::uint32_t handle = 0;
        std::uint64_t value = 0;
        ASSERT_EQ( recording.chip.pokeHardware( 0, "EGR_TUNNEL_ECN_ENCAPm", { .index = 1 },
                                                "INT_CN_MAP", 0 ),
                   Sim::Rc::ok );
        recording.sdk().bcmlt_entry_allocate( 0, "EGR_TUNNEL_ECN_ENCAPm", &handle );
        recording.sdk().bcmlt_entry_field_add( handle, "BCMLT_PT_INDEX", 1 );
        recording.sdk().bcmlt_entry_attrib_set( handle,
                                                recording.chip.BCMLT_ENT_ATTR_GET_FROM_HW() );
        recording.sdk().bcmlt_pt_entry_commit( handle, recording.chip.BCMLT_PT_OPCODE_GET(),
                                               recording.chip.BCMLT_PRIORITY_NORMAL() );
        recording.sdk().bcmlt_entry_field_get( handle, "INT_CN_MAP", &value );
        recording.sdk().bcmlt_entry_free( handle );
    }
    const Outcome run = cairnLt( { "replay", folder } );
    EXPECT_EQ( run.exitCode, 1 );
    const auto text = lines( run.out );
    ASSERT_EQ( text.size(), 14u ) << run.out;
    EXPECT_EQ( text[0].find( "first divergence: call 15, " ), 0u );
    EXPECT_NE( text[1].find( "bcmlt_entry_field_get" ), std::string::npos );
    EXPECT_EQ( text[2], "  recorded: rc 0, value 0" );
    EXPECT_EQ( text[3], "  replayed: rc 0, value 1" );
    EXPECT_EQ( text[4], "before it:" );
    EXPECT_NE( text[12].find( "  14  bcmlt_pt_entry_commit" ), std::string::npos ) << text[12];
    EXPECT_EQ( text[13], "10 operations replayed, the last one diverges" );
    EXPECT_EQ( cairnLt( { "replay", folder, "--ignore", "values" } ).out,
               "11 operations replayed, all as recorded\n" );
    const Outcome on = cairnLt( { "replay", folder, "--keep-going", "--format", "json" } );
    EXPECT_EQ( on.exitCode, 1 );
    EXPECT_EQ( Json::parse( on.out )["operations"], 11 );
    EXPECT_EQ( Json::parse( on.out )["shown"][0]["value"], 1 );
    expectOneLine( cairnLt( { "replay", folder, "--ignore", "handles" } ), 2,
                   "--ignore: there is no \"handles\" to ignore; write codes or values" );
}

TEST_F( RecordingVerbs, ADiffOfRecordings ) {
    const std::string before = recorded( "before", 2 );
    const std::string after = recorded( "after", 3 );
    EXPECT_EQ( cairnLt( { "diff", before, before } ).exitCode, 0 );
    const Outcome run = cairnLt( { "diff", before, after } );
    EXPECT_EQ( run.exitCode, 1 );
    EXPECT_EQ( run.err, "" );
    EXPECT_EQ( run.out, "--- " + before + "\n+++ " + after +
                            "\n"
                            "@@ -12 +12 @@ unit 0 EGR_TUNNEL_ECN_ENCAPm\n"
                            " allocate\n"
                            " add BCMLT_PT_INDEX = 2\n"
                            "-add OUTER_ECN = 2\n"
                            "+add OUTER_ECN = 3\n"
                            " commit BCMLT_PT_OPCODE_MODIFY BCMLT_PRIORITY_NORMAL\n"
                            " free\n"
                            "0 steps added, 0 removed, 1 changed, 1 the same\n" );
    const std::string small = cairnLt( { "diff", before, after, "--context", "0" } ).out;
    EXPECT_NE( small.find( " ...\n-add OUTER_ECN = 2\n+add OUTER_ECN = 3\n ...\n" ),
               std::string::npos )
        << small;
    const Json json = Json::parse( cairnLt( { "diff", before, after, "--format", "json" } ).out );
    EXPECT_EQ( json["different"], true );
    EXPECT_EQ( json["same"], 1 );
    ASSERT_EQ( json["differences"].size(), 1u );
    EXPECT_EQ( json["differences"][0]["change"], "changed" );
    EXPECT_EQ( json["differences"][0]["after"][2]["operation"], "add OUTER_ECN = 3" );
}

TEST_F( RecordingVerbs, ACheck ) {
    const std::string folder = folder_.path( "recording" );
    {
        Recording recording( folder );
        recording.setEcn( 1, 1 );
        std::uint32_t handle = 0;
        recording.sdk().preCallHook();
        recording.sdk().bcmlt_entry_allocate( 0, "EGR_TUNNEL_ECN_ENCAPm", &handle );
    }
    const Outcome run = cairnLt( { "check", folder } );
    EXPECT_EQ( run.exitCode, 1 );
    EXPECT_EQ( run.err, "" );
    const auto text = lines( run.out );
    ASSERT_EQ( text.size(), 3u ) << run.out;
    EXPECT_EQ( text[0], "leaked: an entry of EGR_TUNNEL_ECN_ENCAPm on unit 0 is never freed" );
    EXPECT_EQ( text[1].find( "  call 12  " ), 0u ) << text[1];
    EXPECT_EQ( text[2], "1 finding in 6 operations" );
    const Json json = Json::parse( cairnLt( { "check", folder, "--format", "json" } ).out );
    EXPECT_EQ( json["findings"][0]["rule"], "leaked" );
    EXPECT_EQ( json["findings"][0]["calls"][0]["number"], 12 );
    const Outcome silenced = cairnLt( { "check", folder, "--ignore", "leaked" } );
    EXPECT_EQ( silenced.exitCode, 0 );
    EXPECT_EQ( silenced.out, "no findings in 6 operations\n" );
    expectOneLine( cairnLt( { "check", folder, "--ignore", "leeked" } ), 2,
                   "there is no rule \"leeked\"; the nearest is leaked" );
    expectOneLine( cairnLt( { "check" } ), 2, "check: there is no recording; name one" );
    EXPECT_EQ( lines( cairnLt( { "check", "--list" } ).out ).size(), 11u );
}

// --- Plans

TEST_F( RecordingVerbs, APlanIsARecordingThatReplayPerforms ) {
    const std::string before = folder_.path( "before.json" );
    const std::string after = folder_.path( "after.json" );
    for ( const std::vector<std::string> & step :
          { std::vector<std::string>{ "setEgrTunnelEcnEncap", "0", "5", "2", "--state", before },
            { "setEgrTunnelEcnEncap", "0", "5", "1", "--state", after },
            { "setLearnCacheEnabled", "0", "true", "--state", after } } ) {
        std::vector<std::string> arguments{ "run" };
        arguments.insert( arguments.end(), step.begin(), step.end() );
        ASSERT_EQ( cairnLt( arguments ).exitCode, 0 );
    }
    const std::string plan = folder_.path( "plan" );
    const Outcome made = cairnLt( { "diff", before, after, "--plan", plan } );
    EXPECT_EQ( made.exitCode, 1 );
    EXPECT_EQ( made.err, "" );
    EXPECT_EQ( lines( made.out ).back(),
               "10 operations in " + plan + " make the first state the second" );
    const std::string result = folder_.path( "result.json" );
    const Outcome replay = cairnLt( { "replay", plan, "--from", before, "--state", result } );
    EXPECT_EQ( replay.exitCode, 0 ) << replay.err << replay.out;
    EXPECT_EQ( cairnLt( { "diff", result, after } ).exitCode, 0 );
    const Outcome check = cairnLt( { "check", plan } );
    EXPECT_EQ( check.exitCode, 0 ) << check.out;
    EXPECT_EQ( check.err, "" );
    expectOneLine( cairnLt( { "diff", before, after, "--plan", plan } ), 2,
                   "--plan: " + plan + " is not an empty folder; name another" );
    expectOneLine( cairnLt( { "diff", plan, plan, "--plan", folder_.path( "other" ) } ), 2,
                   "--plan is made of two states" );
    expectOneLine( cairnLt( { "diff", plan, before } ), 2,
                   "is a recording, the other one a state" );
}

// --- Progress

TEST_F( RecordingVerbs, LongWorkTellsATerminalHowFarItIs ) {
    const std::string folder = folder_.path( "long" );
    Recording recording( folder );
    for ( std::uint64_t i = 0; i < 9000 / 5; ++i )
        recording.setEcn( i % 200, i % 3 );
    recording.close();
    for ( const std::vector<std::string> & command :
          { std::vector<std::string>{ "replay", folder },
            { "check", folder, "--ignore", "written-twice" },
            { "diff", folder, folder } } ) {
        const std::string shown = ToolTest::cairnLtOnTerminal( command, "" );
        const std::size_t progress = shown.find( "\r" + command[0] + ": 8192 calls" );
        EXPECT_NE( progress, std::string::npos ) << shown;
        EXPECT_NE( shown.find( "\r\033[K", progress ), std::string::npos ) << shown;
        EXPECT_EQ( cairnLt( command ).err, "" ) << command[0];
    }
}

// --- Bad input

TEST_F( RecordingVerbs, RecordingsThatAreNone ) {
    const std::string empty = folder_.path( "empty" );
    std::filesystem::create_directories( empty );
    const std::string foreign = folder_.write( "foreign.fleetlog", "hello\n" );
    const std::string nothing = folder_.write( "nothing.fleetlog", "" );
    for ( const std::string & path : { empty, foreign, nothing, folder_.path( "missing" ) } ) {
        SCOPED_TRACE( path );
        for ( const char * verb : { "replay", "check" } )
            expectOneLine( cairnLt( { verb, path } ), 2, path );
        expectOneLine( cairnLt( { "diff", path, path } ), 2, path );
    }
    // A trace of messages is no recording.
    const std::string trace = folder_.path( "trace" );
    ASSERT_EQ(
        cairnLt( { "run", "setLoadBalanceRandSeedCtrl", "0", "1", "--trace-dir", trace } ).exitCode,
        0 );
    expectOneLine( cairnLt( { "replay", trace } ), 2, trace );
}

TEST_F( RecordingVerbs, ARecordingThatIsCutIsReplayedAsFarAsItGoes ) {
    const std::string folder = recorded( "recording", 2 );
    for ( const auto & file : std::filesystem::directory_iterator( folder ) )
        std::filesystem::resize_file( file.path(), std::filesystem::file_size( file ) - 5000 );
    const Outcome replay = cairnLt( { "replay", folder } );
    EXPECT_NE( replay.exitCode, 0 );
    EXPECT_NE( replay.err, "" );
    const Outcome check = cairnLt( { "check", folder } );
    EXPECT_NE( check.exitCode, 0 );
    EXPECT_NE( check.err, "" );
}

// CAIRN_SEED and CAIRN_ROUNDS choose other damage, and more.
TEST_F( RecordingVerbs, ADamagedRecordingIsReadAsFarAsItCanBeAndNeverACrash ) {
    const char * seed = std::getenv( "CAIRN_SEED" );
    const char * rounds = std::getenv( "CAIRN_ROUNDS" );
    std::mt19937_64 random( seed != nullptr ? std::strtoull( seed, nullptr, 10 ) : 1 );
    const std::string folder = recorded( "recording", 2 );
    const std::string other = recorded( "other", 2 );
    const std::string file = std::filesystem::directory_iterator( folder )->path();
    const std::string whole = Support::contents( file );
    const std::size_t used = whole.find_last_not_of( '\0' );
    for ( int round = rounds != nullptr ? std::atoi( rounds ) : 12; round > 0; --round ) {
        std::string damaged = whole;
        for ( std::uint64_t i = random() % 8 + 1; i > 0; --i )
            damaged[random() % used] = static_cast<char>( random() );
        std::ofstream( file, std::ios::binary ) << damaged;
        for ( const std::vector<std::string> & command :
              { std::vector<std::string>{ "replay", folder, "--keep-going" },
                { "check", folder },
                { "diff", folder, other } } ) {
            const Outcome run = cairnLt( command );
            EXPECT_EQ( run.signal, 0 ) << command[0] << " " << run.err;
            EXPECT_TRUE( run.exitCode >= 0 && run.exitCode <= 2 ) << command[0] << run.exitCode;
            EXPECT_EQ( run.err.find( "terminate called" ), std::string::npos ) << run.err;
            if ( run.exitCode == 2 ) {
                EXPECT_NE( run.err, "" ) << command[0];
            }
        }
        if ( HasFailure() ) {
            std::filesystem::copy_file( file, "damaged.fleetlog",
                                        std::filesystem::copy_options::overwrite_existing );
            FAIL() << "damaged.fleetlog is the file";
        }
    }
}

TEST_F( RecordingVerbs, SeveralProcessesInOneFolder ) {
    const std::string folder = recorded( "recording", 2 );
    const int status = Support::runInChild( [&] {
        Recording other( folder );
        other.setEcn( 9, 1 );
        return true;
    } );
    ASSERT_EQ( status, 0 );
    expectOneLine( cairnLt( { "replay", folder } ), 2, "it holds the calls of 2 processes: " );
    expectOneLine( cairnLt( { "diff", folder, folder } ), 2,
                   "; give the files of each a folder of their own" );
    const Outcome one = cairnLt( { "replay", folder, "--process", std::to_string( ::getpid() ) } );
    EXPECT_EQ( one.exitCode, 0 ) << one.err;
    EXPECT_EQ( one.out, "10 operations replayed, all as recorded\n" );
}

TEST_F( RecordingVerbs, AChipThatLacksATable ) {
    const std::string folder = recorded( "recording", 2 );
    const std::string chip =
        folder_.write( "chip.toml", "base = \"reference\"\n"
                                    "remove = [ \"EGR_TUNNEL_ECN_ENCAPm\" ]\n" );
    expectOneLine( cairnLt( { "replay", folder, "--chip", chip } ), 2,
                   folder + ": call 2 allocates an entry of EGR_TUNNEL_ECN_ENCAPm on unit 0, which "
                            "has no such table; say with --chip what the chips are" );
    expectOneLine( cairnLt( { "replay", folder, "--chip", "1=reference" } ), 2,
                   "unit 0, which is not there" );
    const Outcome check = cairnLt( { "check", folder, "--chip", chip } );
    EXPECT_EQ( check.exitCode, 0 );
    EXPECT_NE( check.err.find( "no-key and written-twice are not checked for "
                               "EGR_TUNNEL_ECN_ENCAPm; say with --chip what the chips are" ),
               std::string::npos )
        << check.err;
}

// Kept files of another processor: a process that was killed in its 53rd operation, and the messages of one that
// stamped them with ticks.
TEST_F( RecordingVerbs, FilesMadeOnAarch64 ) {
    const std::string kept = SOURCE_TREE "/tests/tracereader/data/aarch64";
    const Outcome check = cairnLt( { "trace", kept, "--check" } );
    EXPECT_EQ( check.exitCode, 0 ) << check.out << check.err;
    EXPECT_EQ( ToolTest::linesWith( check.out, ": no damage found, " ).size(), 6u ) << check.out;
    const Outcome trace = cairnLt( { "trace", kept } );
    EXPECT_EQ( trace.out, Support::contents( kept + "/expected.txt" ) );
    const Outcome replay = cairnLt( { "replay", kept } );
    EXPECT_EQ( replay.exitCode, 0 ) << replay.err;
    EXPECT_EQ( replay.out, "52 operations replayed, all as recorded\n" );
    EXPECT_NE( replay.err.find( ": 1 operation never returned" ), std::string::npos ) << replay.err;
    const Outcome rules = cairnLt( { "check", kept } );
    EXPECT_EQ( rules.exitCode, 1 );
    EXPECT_EQ( lines( rules.out ).at( 0 ),
               "leaked: an entry of MON_ING_TRACE_EVENT on unit 0 is never freed" );
    EXPECT_EQ( lines( rules.out ).back(), "1 finding in 53 operations" );
}

} // namespace
