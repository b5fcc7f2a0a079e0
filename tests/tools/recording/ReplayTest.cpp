#include "tools/recording/Replay.h"

#include "interpose/FaultInjector.h"
#include "interpose/TraceRecorder.h"
#include "tests/sim/TestChip.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/tools/recording/EventRecorder.h"
#include "tests/tools/recording/RandomProgram.h"
#include "tools/model/Errors.h"
#include "tools/recording/StateDifferences.h"
#include "tracereader/Recording.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

// Operations that were recorded on one chip, performed on another one.

namespace {

using Tool::Replay;
using TraceReader::SdkCall;

// What is kept of a divergence.
struct Seen {
    std::uint64_t number;
    int recorded;
    int replayed;
    std::optional<std::uint64_t> value;
    std::string chipSays;
};

class ReplayOfEvents : public ::testing::Test {
  protected:
    ReplayOfEvents() : faults_( chip_ ), recorder_( faults_ ) {
        chip_.addUnit( 0, SimTest::smallSchema() );
        replayed_.addUnit( 0, SimTest::smallSchema() );
    }

    Replay replay( const Tool::ReplayRules & rules = {} ) {
        return Replay( replayed_, rules, "rec", [this]( const Tool::Divergence & divergence ) {
            divergences_.push_back( { divergence.call.number, divergence.call.rc, divergence.rc,
                                      divergence.value, divergence.chipSays } );
        } );
    }

    void replayAll( const Tool::ReplayRules & rules = {} ) {
        Replay all = replay( rules );
        recorder_.giveTo( all );
        counts_ = all.counts();
    }

    std::string difference() const {
        return Tool::differencesText( Tool::differencesOf( chip_, replayed_ ) );
    }

    std::uint32_t allocate( const char * table ) {
        std::uint32_t handle = 0;
        recorder_.preCallHook();
        recorder_.bcmlt_entry_allocate( 0, table, &handle );
        return handle;
    }
    int add( std::uint32_t handle, const char * field, std::uint64_t value ) {
        recorder_.preCallHook();
        return recorder_.bcmlt_entry_field_add( handle, field, value );
    }
    int commit( std::uint32_t handle, std::uint32_t opcode ) {
        recorder_.preCallHook();
        return recorder_.bcmlt_entry_commit( handle, opcode, chip_.BCMLT_PRIORITY_NORMAL() );
    }
    int unguardedCommit( std::uint32_t handle, std::uint32_t opcode ) {
        return recorder_.bcmlt_entry_commit( handle, opcode, chip_.BCMLT_PRIORITY_NORMAL() );
    }
    int free( std::uint32_t handle ) {
        recorder_.preCallHook();
        return recorder_.bcmlt_entry_free( handle );
    }
    // An entry of ROUTE that is not committed yet.
    std::uint32_t route( std::uint64_t prefix, std::uint64_t hop ) {
        const std::uint32_t handle = allocate( "ROUTE" );
        add( handle, "VRF", 1 );
        add( handle, "PREFIX", prefix );
        add( handle, "HOP", hop );
        return handle;
    }

    Sim::Chip chip_;
    Interpose::FaultInjector faults_;
    ToolTest::EventRecorder recorder_;
    Sim::Chip replayed_;
    std::vector<Seen> divergences_;
    Tool::ReplayCounts counts_;
};

constexpr const char * same = "0 rows added, 0 removed, 0 changed\n";

TEST_F( ReplayOfEvents, OperationsDoTheSameAgain ) {
    const std::uint32_t handle = route( 10, 3 );
    ASSERT_EQ( commit( handle, chip_.BCMLT_OPCODE_INSERT() ), 0 );
    ASSERT_EQ( unguardedCommit( handle, chip_.BCMLT_OPCODE_INSERT() ), -26 );
    ASSERT_EQ( commit( handle, chip_.BCMLT_OPCODE_LOOKUP() ), 0 );
    std::uint64_t cost = 0;
    ASSERT_EQ( recorder_.bcmlt_entry_field_get( handle, "COST", &cost ), 0 );
    ASSERT_EQ( free( handle ), 0 );
    ASSERT_EQ( free( handle ), -8 );
    replayAll();
    EXPECT_EQ( divergences_.size(), 0u );
    EXPECT_EQ( counts_.operations, 10u );
    EXPECT_EQ( difference(), same );
    EXPECT_EQ( replayed_.liveEntryCount(), 0u );
}

TEST_F( ReplayOfEvents, HandlesAreThoseOfTheOtherChip ) {
    std::uint32_t other = 0;
    ASSERT_EQ( replayed_.bcmlt_entry_allocate( 0, "MAPm", &other ), 0 );
    const std::uint32_t handle = route( 10, 3 );
    ASSERT_EQ( commit( handle, chip_.BCMLT_OPCODE_INSERT() ), 0 );
    ASSERT_EQ( free( handle ), 0 );
    replayAll();
    EXPECT_EQ( divergences_.size(), 0u );
    EXPECT_EQ( difference(), same );
    EXPECT_EQ( replayed_.liveEntryCount(), 1u );
}

TEST_F( ReplayOfEvents, AnotherCodeDiverges ) {
    SimTest::Entry there( replayed_, "ROUTE" );
    there.add( "VRF", 1 );
    there.add( "PREFIX", 10 );
    ASSERT_EQ( there.insert(), Sim::Rc::ok );
    const std::uint32_t handle = route( 10, 3 );
    ASSERT_EQ( commit( handle, chip_.BCMLT_OPCODE_INSERT() ), 0 );
    replayAll();
    ASSERT_EQ( divergences_.size(), 1u );
    EXPECT_EQ( divergences_[0].number, 10u );
    EXPECT_EQ( divergences_[0].recorded, 0 );
    EXPECT_EQ( divergences_[0].replayed, -26 );
    EXPECT_NE( divergences_[0].chipSays.find( "ROUTE" ), std::string::npos );
}

TEST_F( ReplayOfEvents, AnotherValueDiverges ) {
    SimTest::Entry there( replayed_, "CONTROL" );
    there.add( "LEVEL", 77 );
    ASSERT_EQ( there.update(), Sim::Rc::ok );
    const std::uint32_t handle = allocate( "CONTROL" );
    ASSERT_EQ( commit( handle, chip_.BCMLT_OPCODE_LOOKUP() ), 0 );
    std::uint64_t level = 0;
    ASSERT_EQ( recorder_.bcmlt_entry_field_get( handle, "LEVEL", &level ), 0 );
    replayAll();
    ASSERT_EQ( divergences_.size(), 1u );
    EXPECT_EQ( divergences_[0].value, 77u );
    divergences_.clear();
    replayAll( { .ignoresValues = true } );
    EXPECT_EQ( divergences_.size(), 0u );
}

TEST_F( ReplayOfEvents, CodesThatAreIgnoredStillTellFailures ) {
    const std::uint32_t handle = route( 10, 3 );
    ASSERT_EQ( unguardedCommit( handle, chip_.BCMLT_OPCODE_LOOKUP() ), -27 );
    recorder_.callAt( recorder_.eventCount() - 1 ).rc = -1234; // another SDK's code
    ASSERT_EQ( unguardedCommit( handle, chip_.BCMLT_OPCODE_INSERT() ), 0 );
    replayAll();
    ASSERT_EQ( divergences_.size(), 1u );
    divergences_.clear();
    Sim::Chip fresh;
    fresh.addUnit( 0, SimTest::smallSchema() );
    Replay lenient( fresh, { .ignoresCodes = true }, "rec",
                    [&]( const Tool::Divergence & divergence ) {
                        divergences_.push_back( { divergence.call.number, 0, 0, {}, {} } );
                    } );
    recorder_.giveTo( lenient );
    EXPECT_EQ( divergences_.size(), 0u );
    // On a chip that has the row, the lookup succeeds and the insert fails.
    replayAll( { .ignoresCodes = true } );
    EXPECT_EQ( divergences_.size(), 2u );
}

// --- Failures from outside

TEST_F( ReplayOfEvents, AGuardedCallThatWasMadeToFailFailsAgain ) {
    faults_.add( { .operation = Interpose::SdkCall::entryCommit, .rc = -30 } );
    const std::uint32_t handle = route( 10, 3 );
    ASSERT_EQ( commit( handle, chip_.BCMLT_OPCODE_INSERT() ), -30 );
    replayAll();
    EXPECT_EQ( divergences_.size(), 0u );
    EXPECT_EQ( counts_.failuresFromOutside, 1u );
    EXPECT_EQ( difference(), same );
    EXPECT_EQ( replayed_.liveEntryCount(), 1u );
}

TEST_F( ReplayOfEvents, WhateverFailsFromOutsideChangesNothing ) {
    using Interpose::SdkCall;
    for ( const SdkCall call :
          { SdkCall::entryAllocate, SdkCall::entryAttribSet, SdkCall::entryFieldAdd,
            SdkCall::entryFieldArrayAdd, SdkCall::entryFieldGet, SdkCall::entryFieldSymbolAdd,
            SdkCall::entryFree, SdkCall::ptEntryCommit } ) {
        SCOPED_TRACE( std::string( Interpose::name( call ) ) );
        Sim::Chip chip;
        chip.addUnit( 0, SimTest::smallSchema() );
        Interpose::FaultInjector faults( chip );
        ToolTest::EventRecorder recorder( faults );
        faults.add( { .operation = call, .occurrence = 2, .rc = -5 } );
        for ( int round = 0; round < 2; ++round ) {
            std::uint32_t handle = 0;
            const std::uint64_t words[] = { 1, 2 };
            std::uint64_t value = 0;
            recorder.preCallHook();
            recorder.bcmlt_entry_allocate( 0, "MAPm", &handle );
            recorder.preCallHook();
            recorder.bcmlt_entry_attrib_set( handle, chip.BCMLT_ENT_ATTR_GET_FROM_HW() );
            recorder.preCallHook();
            recorder.bcmlt_entry_field_add( handle, "BCMLT_PT_INDEX", 2 );
            recorder.preCallHook();
            recorder.bcmlt_entry_field_array_add( handle, "WORDS", 1, words, 2 );
            recorder.preCallHook();
            recorder.bcmlt_entry_field_symbol_add( handle, "MODE", "AUTO" );
            recorder.preCallHook();
            recorder.bcmlt_pt_entry_commit( handle, chip.BCMLT_PT_OPCODE_MODIFY(),
                                            chip.BCMLT_PRIORITY_NORMAL() );
            recorder.preCallHook();
            recorder.bcmlt_entry_field_get( handle, "MODE", &value );
            recorder.preCallHook();
            recorder.bcmlt_entry_free( handle );
        }
        Sim::Chip replayed;
        replayed.addUnit( 0, SimTest::smallSchema() );
        std::size_t divergences = 0;
        Replay replay( replayed, {}, "rec", [&]( const Tool::Divergence & ) { ++divergences; } );
        recorder.giveTo( replay );
        EXPECT_EQ( divergences, 0u );
        EXPECT_EQ( replay.counts().failuresFromOutside, 1u );
        EXPECT_EQ( Tool::differencesText( Tool::differencesOf( chip, replayed ) ), same );
        EXPECT_EQ( replayed.liveEntryCount(), chip.liveEntryCount() );
    }
}

TEST_F( ReplayOfEvents, AnUnguardedFailureFromOutsideDivergesAndChangesNothing ) {
    faults_.add( { .operation = Interpose::SdkCall::entryCommit, .rc = -30 } );
    const std::uint32_t handle = route( 10, 3 );
    ASSERT_EQ( unguardedCommit( handle, chip_.BCMLT_OPCODE_INSERT() ), -30 );
    replayAll();
    ASSERT_EQ( divergences_.size(), 1u );
    EXPECT_EQ( divergences_[0].recorded, -30 );
    EXPECT_EQ( divergences_[0].replayed, 0 );
    EXPECT_EQ( difference(), same );
}

TEST_F( ReplayOfEvents, AnAllocateThatLeftItsHandleInvalidGivesNone ) {
    faults_.add(
        { .operation = Interpose::SdkCall::entryAllocate, .rc = 0, .invalidHandle = true } );
    EXPECT_EQ( allocate( "MAPm" ), 0u );
    replayAll();
    EXPECT_EQ( divergences_.size(), 0u );
    EXPECT_EQ( counts_.failuresFromOutside, 1u );
    EXPECT_EQ( replayed_.liveEntryCount(), 0u );
}

// --- What is not there

TEST_F( ReplayOfEvents, ACallThatNeverReturnedIsLeftOut ) {
    const std::uint32_t handle = route( 10, 3 );
    recorder_.preCallHook();
    recorder_.loseNext();
    recorder_.bcmlt_entry_commit( handle, chip_.BCMLT_OPCODE_INSERT(),
                                  chip_.BCMLT_PRIORITY_NORMAL() );
    replayAll();
    EXPECT_EQ( divergences_.size(), 0u );
    EXPECT_EQ( counts_.neverReturned, 1u );
    EXPECT_EQ( difference(), same );
}

TEST_F( ReplayOfEvents, WithoutItsBeginningARecordingIsReplayedAsFarAsItCanBe ) {
    const std::uint32_t before = route( 10, 3 );
    ASSERT_EQ( commit( before, chip_.BCMLT_OPCODE_INSERT() ), 0 );
    const std::size_t beginning = recorder_.eventCount();
    ASSERT_EQ( free( before ), 0 );
    const std::uint32_t looking = route( 10, 4 );
    ASSERT_EQ( commit( looking, chip_.BCMLT_OPCODE_LOOKUP() ), 0 );
    std::uint64_t value = 0;
    ASSERT_EQ( recorder_.bcmlt_entry_field_get( looking, "COST", &value ), 0 );
    const std::uint32_t adding = route( 20, 4 );
    ASSERT_EQ( commit( adding, chip_.BCMLT_OPCODE_INSERT() ), 0 );
    Replay rest = replay( { .hasLostBeginning = [] { return true; } } );
    recorder_.giveTo( rest, beginning );
    EXPECT_EQ( divergences_.size(), 0u );
    EXPECT_EQ( rest.counts().ofOlderEntries, 1u ); // the free
    EXPECT_EQ( rest.counts().onUnknownRows, 2u );  // the lookup and what was read
    EXPECT_EQ( replayed_.value( 0, "ROUTE", { .key = { 1, 20 } }, "HOP" ), 4u );
    EXPECT_EQ( replayed_.rowCount( 0, "ROUTE" ), 1u );
}

TEST_F( ReplayOfEvents, AHandleThatIsGivenAgainWhileItIsFreed ) {
    // A real SDK gives a handle again at once. One thread frees the entry; before it has recorded
    // that, another one has got the handle.
    const std::uint32_t first = route( 10, 3 );
    const std::size_t free = recorder_.eventCount();
    recorder_.bcmlt_entry_free( first );
    recorder_.setThread( 2 );
    const std::uint32_t second = route( 20, 4 );
    ASSERT_EQ( commit( second, chip_.BCMLT_OPCODE_INSERT() ), 0 );
    recorder_.swap( free + 1, free + 5 ); // the moment after the free, and that after the allocate
    for ( std::size_t i = free + 1; i < recorder_.eventCount(); ++i ) {
        if ( recorder_.callAt( i ).handle == second )
            recorder_.callAt( i ).handle = first;
    }
    ASSERT_EQ( recorder_.callAt( free + 5 ).call, SdkCall::entryFree );
    ASSERT_EQ( recorder_.callAt( free + 1 ).call, SdkCall::entryAllocate );
    replayAll();
    EXPECT_EQ( divergences_.size(), 0u );
    EXPECT_EQ( counts_.ofOlderEntries, 0u );
    EXPECT_EQ( difference(), same );
    EXPECT_EQ( replayed_.liveEntryCount(), 1u );
}

TEST_F( ReplayOfEvents, AChipThatLacksATableIsRefused ) {
    std::uint32_t handle = 0;
    recorder_.bcmlt_entry_allocate( 0, "GRIDm", &handle );
    Sim::Schema schema = SimTest::smallSchema();
    ASSERT_EQ( schema.remove( "GRIDm" ), "" );
    Sim::Chip chip;
    chip.addUnit( 0, schema );
    Sim::Chip noUnit;
    const auto messageOf = [&]( Sim::Chip & on ) -> std::string {
        try {
            Replay replay( on, {}, "rec", []( const Tool::Divergence & ) {} );
            recorder_.giveTo( replay );
        } catch ( const Tool::InputError & error ) {
            return error.what();
        }
        return {};
    };
    EXPECT_EQ( messageOf( chip ), "rec: call 1 allocates an entry of GRIDm on unit 0, which has no "
                                  "such table; say with --chip what the chips are" );
    EXPECT_EQ( messageOf( noUnit ),
               "rec: call 1 allocates an entry of GRIDm on unit 0, which is not there; say with "
               "--chip what the chips are" );
}

// --- Random programs

// CAIRN_SEED and CAIRN_ROUNDS choose others, and more.
TEST( RandomPrograms, DoTheSameWhenTheyAreReplayed ) {
    const std::uint64_t first = ToolTest::numberOfEnvironment( "CAIRN_SEED", 1 );
    const std::uint64_t rounds = ToolTest::numberOfEnvironment( "CAIRN_ROUNDS", 100 );
    std::uint64_t failed = 0;
    std::uint64_t succeeded = 0;
    for ( std::uint64_t seed = first; seed < first + rounds; ++seed ) {
        SCOPED_TRACE( "CAIRN_SEED=" + std::to_string( seed ) );
        ToolTest::Random random( seed );
        const Sim::Schema schema = ToolTest::randomSchema( random );
        Sim::Chip chip;
        Sim::Chip replayed;
        for ( const int unit : { 0, 1 } ) {
            chip.addUnit( unit, schema );
            replayed.addUnit( unit, schema );
        }
        ToolTest::EventRecorder recorder( chip );
        ToolTest::RandomProgram( random, schema, 2 ).run( recorder, 2000 );
        Replay replay( replayed, {}, "rec", []( const Tool::Divergence & divergence ) {
            ADD_FAILURE() << "call " << divergence.call.number << " recorded " << divergence.call.rc
                          << " replayed " << divergence.rc << " " << divergence.chipSays;
        } );
        recorder.giveTo( replay );
        EXPECT_EQ( replay.counts().failuresFromOutside, 0u );
        EXPECT_EQ( replay.counts().ofOlderEntries, 0u );
        EXPECT_EQ( Tool::differencesText( Tool::differencesOf( chip, replayed ) ), same );
        EXPECT_EQ( replayed.liveEntryCount(), chip.liveEntryCount() );
        for ( std::size_t i = 0; i < recorder.eventCount(); ++i ) {
            if ( !TraceReader::isHook( recorder.callAt( i ).call ) )
                ++( recorder.callAt( i ).rc < 0 ? failed : succeeded );
        }
        ASSERT_FALSE( ::testing::Test::HasFailure() );
    }
    // Right and wrong operations.
    EXPECT_GT( failed, succeeded / 20 );
    EXPECT_GT( succeeded, failed );
}

// The same by way of the files of a recorder: two threads, one after the other, and segments.
TEST( RandomPrograms, DoTheSameWhenTheirFilesAreReplayed ) {
    const std::uint64_t first = ToolTest::numberOfEnvironment( "CAIRN_SEED", 1 );
    const std::uint64_t rounds = ToolTest::numberOfEnvironment( "CAIRN_ROUNDS", 8 );
    for ( std::uint64_t seed = first; seed < first + rounds; ++seed ) {
        SCOPED_TRACE( "CAIRN_SEED=" + std::to_string( seed ) );
        ToolTest::Random random( seed );
        const Sim::Schema schema = ToolTest::randomSchema( random );
        Sim::Chip chip;
        Sim::Chip replayed;
        for ( const int unit : { 0, 1 } ) {
            chip.addUnit( unit, schema );
            replayed.addUnit( unit, schema );
        }
        const Support::TemporaryFolder folder;
        {
            Interpose::TraceRecorder recorder( chip,
                                               { .directory = folder.path(),
                                                 .keep = Interpose::TraceRecorder::Keep::everything,
                                                 .fileBytes = std::size_t( 128 ) << 10 } );
            ToolTest::RandomProgram program( random, schema, 2 );
            program.run( recorder, 2000 );
            std::thread( [&] { program.run( recorder, 2000 ); } ).join();
        }
        TraceReader::Recording recording( { folder.path() } );
        Replay replay( replayed, {}, "rec", []( const Tool::Divergence & divergence ) {
            ADD_FAILURE() << "call " << divergence.call.number << " recorded " << divergence.call.rc
                          << " replayed " << divergence.rc << " " << divergence.chipSays;
        } );
        for ( TraceReader::Event event; recording.next( event ); )
            replay.take( event );
        EXPECT_TRUE( recording.findings().empty() );
        EXPECT_FALSE( recording.hasLostBeginning() );
        EXPECT_GT( replay.counts().operations, 3000u );
        EXPECT_EQ( Tool::differencesText( Tool::differencesOf( chip, replayed ) ), same );
        EXPECT_EQ( replayed.liveEntryCount(), chip.liveEntryCount() );
        ASSERT_FALSE( ::testing::Test::HasFailure() );
    }
}

} // namespace
