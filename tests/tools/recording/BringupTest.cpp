#include "interpose/FaultInjector.h"
#include "interpose/TraceRecorder.h"
#include "sim/Chip.h"
#include "tests/support/ChildProcess.h"
#include "tests/tools/Program.h"
#include "tools/model/BringupFile.h"
#include "tools/model/Files.h"
#include "tools/model/State.h"
#include "tools/recording/StateDiff.h"
#include "tools/run/StopHandler.h"

#include <ChipModel/BringupStage.h>
#include <Kiln/ActivityLock.h>

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <csignal>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <variant>

// The example bring-up, recorded: stopped in the middle, replayed, compared, mended and checked.

namespace {

using Json = nlohmann::json;
using ToolTest::cairnLt;
using ToolTest::lines;
using ToolTest::Outcome;

void perform( const Tool::Step & step, Sim::Chip & chip, Interpose::TraceRecorder & recorder,
              const Cairn::CairnCommonSmData::Ptr & sharedState ) {
    if ( const auto * recipe = std::get_if<Tool::RecipeStep>( &step.what ) ) {
        const std::lock_guard lock( Kiln::activityLock() );
        recipe->recipe->invoke( recipe->arguments, sharedState );
    } else if ( const auto * stages = std::get_if<Tool::StageStep>( &step.what ) ) {
        for ( const std::uint32_t stage : stages->unblock )
            CairnCentral::setStageBlocked( stages->chip, CairnCentral::BringupStage( stage ),
                                           false );
    } else {
        const auto & poke = std::get<Tool::PokeStep>( step.what );
        const Sim::RowId row{ .index = poke.index, .instance = poke.instance, .port = poke.port };
        ASSERT_EQ( chip.pokeHardware( poke.unit, poke.table, row, poke.field, poke.value ),
                   Sim::Rc::ok );
        recorder.noteHardwareChange( { .unit = poke.unit,
                                       .table = poke.table.c_str(),
                                       .index = poke.index,
                                       .instance = poke.instance,
                                       .port = poke.port,
                                       .field = poke.field.c_str(),
                                       .value = poke.value } );
    }
}

// Runs the example in a child process, which keeps its chip in a state file when it ends or stops.
// Returns what waitpid() says.
int recordBringup( const std::string & folder, const std::string & state,
                   const std::optional<Interpose::Fault> & fault ) {
    std::filesystem::create_directories( folder );
    return Support::runInChild( [&] {
        if ( ::freopen( "/dev/null", "w", stderr ) == nullptr )
            return false;
        const Tool::Bringup bringup =
            Tool::loadBringup( std::string( SOURCE_TREE ) + "/examples/bringup.toml" );
        Sim::Chip chip;
        Tool::addUnits( chip, bringup.model );
        Interpose::FaultInjector faults( chip );
        if ( fault )
            faults.add( *fault );
        Interpose::TraceRecorder recorder(
            faults, { .directory = folder,
                      .keep = Interpose::TraceRecorder::Keep::everything,
                      .isLockHeld = [] { return Kiln::activityLock().heldByThisThread(); } } );
        const auto sharedState = Tool::applyModel( bringup.model );
        Shim::sdk_ = &recorder;
        const Tool::StopHandler stop(
            [&] { Tool::replaceFile( state, Tool::stateText( chip ) ); } );
        for ( const Tool::Step & step : bringup.steps )
            perform( step, chip, recorder, sharedState );
        Tool::replaceFile( state, Tool::stateText( chip ) );
        return true;
    } );
}

void load( Sim::Chip & chip, const std::string & file ) {
    const auto saved = Tool::parseState( Tool::readFile( file ), file );
    for ( const auto & unit : saved )
        chip.addUnit( unit.unit, unit.schema );
    Tool::restore( chip, saved, file );
}

// All tables, row by row, and who wrote what.
void expectSameTables( const std::string & one, const std::string & other ) {
    Sim::Chip before;
    Sim::Chip after;
    load( before, one );
    load( after, other );
    ASSERT_EQ( Tool::incomparable( before, after ), "" );
    std::size_t rows = 0;
    for ( const Sim::Table & table : before.schema( 0 )->tables() ) {
        SCOPED_TRACE( table.name );
        const auto left = before.rows( 0, table.name, Sim::Rows::stored );
        const auto right = after.rows( 0, table.name, Sim::Rows::stored );
        EXPECT_TRUE( left == right );
        rows += left.size();
    }
    EXPECT_GT( rows, 10u );
}

TEST( RecordedBringup, StoppedReplayedComparedMendedAndChecked ) {
    const Support::TemporaryFolder folder;
    const std::string full = folder.path( "full" );
    const std::string fullState = folder.path( "full.json" );
    const std::string stopped = folder.path( "stopped" );
    const std::string stoppedState = folder.path( "stopped.json" );
    ASSERT_EQ( recordBringup( full, fullState, {} ), 0 );
    const int status =
        recordBringup( stopped, stoppedState,
                       Interpose::Fault{ .operation = Interpose::SdkCall::ptEntryCommit,
                                         .table = "ING_TUNNEL_ECN_DECAPm",
                                         .rc = -30 } );
    ASSERT_TRUE( WIFSIGNALED( status ) && WTERMSIG( status ) == SIGABRT ) << status;

    // The replay leads to the state that the chip had at the stop, and at the end.
    const std::string replayedState = folder.path( "replayed.json" );
    const Outcome replay = cairnLt( { "replay", stopped, "--state", replayedState } );
    EXPECT_EQ( replay.exitCode, 0 ) << replay.out;
    EXPECT_EQ( replay.err,
               "cairn-lt: " + stopped +
                   ": 1 operation of a guarded call failed for a reason that is none of "
                   "the chip's; it fails as it was recorded\n" );
    expectSameTables( replayedState, stoppedState );
    const std::string replayedFull = folder.path( "replayed-full.json" );
    const Outcome whole = cairnLt( { "replay", full, "--state", replayedFull } );
    EXPECT_EQ( whole.exitCode, 0 ) << whole.out;
    EXPECT_EQ( whole.err, "" );
    expectSameTables( replayedFull, fullState );

    // What is missing is what came after the stop, and the end of the entry at which it came.
    const Json diff = Json::parse( cairnLt( { "diff", stopped, full, "--format", "json" } ).out );
    const Json all = Json::parse( cairnLt( { "diff", full, full, "--format", "json" } ).out );
    EXPECT_EQ( diff["removed"], 0 );
    EXPECT_EQ( diff["changed"], 1 );
    EXPECT_GT( diff["same"], 20 );
    EXPECT_GT( diff["added"], 20 );
    EXPECT_EQ( diff["same"].get<int>() + diff["added"].get<int>() + 1, all["same"].get<int>() );
    EXPECT_EQ( diff["reordered"], 0 );
    bool hasMet = false;
    for ( const Json & difference : diff["differences"] ) {
        if ( difference["change"] != "changed" )
            continue;
        hasMet = true;
        EXPECT_EQ( difference["table"], "ING_TUNNEL_ECN_DECAPm" );
        const Json & before = difference["before"];
        const Json & after = difference["after"];
        ASSERT_EQ( before.size() + 1, after.size() );
        EXPECT_EQ( before.back()["operation"],
                   "commit BCMLT_PT_OPCODE_MODIFY BCMLT_PRIORITY_NORMAL -> rc -30" );
        EXPECT_EQ( after.back()["operation"], "free" );
    }
    EXPECT_TRUE( hasMet );

    // A plan mends it.
    const std::string plan = folder.path( "plan" );
    const Outcome made = cairnLt( { "diff", stoppedState, fullState, "--plan", plan } );
    EXPECT_EQ( made.exitCode, 1 );
    EXPECT_EQ( made.err, "" );
    const std::string mended = folder.path( "mended.json" );
    const Outcome mending =
        cairnLt( { "replay", plan, "--from", stoppedState, "--state", mended } );
    EXPECT_EQ( mending.exitCode, 0 ) << mending.out << mending.err;
    const Outcome left = cairnLt( { "diff", mended, fullState } );
    EXPECT_EQ( left.exitCode, 0 ) << left.out;

    // The rules name the entry that the stop left, and nothing of a bring-up that ends well.
    const Outcome found = cairnLt( { "check", stopped } );
    EXPECT_EQ( found.exitCode, 1 );
    EXPECT_EQ( found.err, "" );
    const auto text = lines( found.out );
    ASSERT_EQ( text.size(), 4u ) << found.out;
    EXPECT_EQ( text[0], "leaked: an entry of ING_TUNNEL_ECN_DECAPm on unit 0 is never freed" );
    EXPECT_NE( text[1].find( "bcmlt_entry_allocate -> rc 0" ), std::string::npos );
    EXPECT_NE( text[2].find( "bcmlt_pt_entry_commit -> rc -30" ), std::string::npos );
    const Outcome nothing = cairnLt( { "check", full } );
    EXPECT_EQ( nothing.exitCode, 0 ) << nothing.out;
    EXPECT_EQ( nothing.err, "" );
}

} // namespace
