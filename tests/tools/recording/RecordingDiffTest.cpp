#include "tools/recording/RecordingDiff.h"

#include "sim/Chip.h"
#include "tests/sim/TestChip.h"
#include "tests/tools/recording/EventRecorder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>

// What differs between two recordings.

namespace {

class DiffOfEvents : public ::testing::Test {
  protected:
    // A chip, and what was done on it.
    struct Run {
        Run() : recorder( chip ) {
            chip.addUnit( 0, SimTest::smallSchema() );
            chip.addUnit( 1, SimTest::smallSchema() );
        }
        std::uint32_t allocate( const char * table, int unit = 0 ) {
            std::uint32_t handle = 0;
            recorder.bcmlt_entry_allocate( unit, table, &handle );
            return handle;
        }
        void commit( std::uint32_t handle, std::uint32_t opcode ) {
            recorder.bcmlt_entry_commit( handle, opcode, chip.BCMLT_PRIORITY_NORMAL() );
        }
        void insertRoute( std::uint64_t prefix, std::uint64_t hop, int unit = 0 ) {
            const std::uint32_t handle = allocate( "ROUTE", unit );
            recorder.bcmlt_entry_field_add( handle, "VRF", 1 );
            recorder.bcmlt_entry_field_add( handle, "PREFIX", prefix );
            recorder.bcmlt_entry_field_add( handle, "HOP", hop );
            commit( handle, chip.BCMLT_OPCODE_INSERT() );
            recorder.bcmlt_entry_free( handle );
        }
        void setPort( std::uint64_t port, std::uint64_t value, int unit = 0 ) {
            const std::uint32_t handle = allocate( "PORTr", unit );
            recorder.bcmlt_entry_field_add( handle, "BCMLT_PT_PORT", port );
            recorder.bcmlt_entry_field_add( handle, "VALUE", value );
            recorder.bcmlt_pt_entry_commit( handle, chip.BCMLT_PT_OPCODE_MODIFY(),
                                            chip.BCMLT_PRIORITY_NORMAL() );
            recorder.bcmlt_entry_free( handle );
        }

        Sim::Chip chip;
        ToolTest::EventRecorder recorder;
    };

    static Tool::RecordingDiff::Open opener( const Run & run ) {
        return [&run]() -> Tool::EntrySteps::Source {
            return [&run, i = std::size_t( 0 )]( TraceReader::Event & event ) mutable {
                if ( i == run.recorder.eventCount() )
                    return false;
                event = run.recorder.eventAt( i++ );
                return true;
            };
        };
    }

    // "TABLE on unit UNIT" and the lines of each difference.
    std::string difference() {
        std::string text;
        Tool::RecordingDiff diff( opener( before_ ), opener( after_ ) );
        counts_ = diff.run( [&]( const Tool::StepDifference & step ) {
            text +=
                step.either().table + " on unit " + std::to_string( *step.either().unit ) + "\n";
            for ( const Tool::DifferenceLine & line : linesOf( step ) )
                text += line.mark + line.operation->text + "\n";
        } );
        return text;
    }

    Run before_;
    Run after_;
    Tool::RecordingDiffCounts counts_;
};

TEST_F( DiffOfEvents, HandlesTimesAndThreadsDoNotMatter ) {
    before_.insertRoute( 10, 1 );
    before_.setPort( 1, 2 );
    const std::uint32_t other = after_.allocate( "MAPm", 1 );
    after_.recorder.setThread( 9 );
    after_.insertRoute( 10, 1 );
    after_.setPort( 1, 2 );
    const std::uint32_t same = before_.allocate( "MAPm", 1 );
    EXPECT_NE( other, same );
    EXPECT_EQ( difference(), "" );
    EXPECT_FALSE( counts_.isDifferent() );
    EXPECT_EQ( counts_.steps, 3u );
}

TEST_F( DiffOfEvents, AnotherValueIsShownAmongWhatIsTheSame ) {
    before_.insertRoute( 10, 1 );
    before_.setPort( 1, 2 );
    after_.insertRoute( 10, 1 );
    after_.setPort( 1, 3 );
    EXPECT_EQ( difference(), "PORTr on unit 0\n"
                             " allocate\n"
                             " add BCMLT_PT_PORT = 1\n"
                             "-add VALUE = 2\n"
                             "+add VALUE = 3\n"
                             " commit BCMLT_PT_OPCODE_MODIFY BCMLT_PRIORITY_NORMAL\n"
                             " free\n" );
    EXPECT_EQ( counts_.changed, 1u );
}

TEST_F( DiffOfEvents, WhatOneRecordingLacks ) {
    before_.insertRoute( 10, 1 );
    before_.setPort( 1, 2 );
    before_.insertRoute( 20, 1 );
    after_.insertRoute( 10, 1 );
    after_.insertRoute( 20, 1 );
    after_.setPort( 2, 2, 1 );
    EXPECT_EQ( difference(), "PORTr on unit 0\n"
                             "-allocate\n"
                             "-add BCMLT_PT_PORT = 1\n"
                             "-add VALUE = 2\n"
                             "-commit BCMLT_PT_OPCODE_MODIFY BCMLT_PRIORITY_NORMAL\n"
                             "-free\n"
                             "PORTr on unit 1\n"
                             "+allocate\n"
                             "+add BCMLT_PT_PORT = 2\n"
                             "+add VALUE = 2\n"
                             "+commit BCMLT_PT_OPCODE_MODIFY BCMLT_PRIORITY_NORMAL\n"
                             "+free\n" );
    EXPECT_EQ( counts_.removed, 1u );
    EXPECT_EQ( counts_.added, 1u );
}

TEST_F( DiffOfEvents, AnotherCodeAndWhatWasRead ) {
    before_.insertRoute( 10, 1 );
    after_.insertRoute( 10, 2 );
    for ( Run * run : { &before_, &after_ } ) {
        const std::uint32_t handle = run->allocate( "ROUTE" );
        std::uint64_t hop = 0;
        run->recorder.bcmlt_entry_field_add( handle, "VRF", 1 );
        run->recorder.bcmlt_entry_field_add( handle, "PREFIX", run == &before_ ? 11 : 10 );
        run->commit( handle, run->chip.BCMLT_OPCODE_LOOKUP() );
        run->recorder.bcmlt_entry_field_get( handle, "HOP", &hop );
        run->recorder.bcmlt_entry_free( handle );
    }
    const std::string text = difference();
    EXPECT_NE( text.find( "-commit BCMLT_OPCODE_LOOKUP BCMLT_PRIORITY_NORMAL -> rc -27\n" ),
               std::string::npos )
        << text;
    EXPECT_NE( text.find( "+commit BCMLT_OPCODE_LOOKUP BCMLT_PRIORITY_NORMAL\n" ),
               std::string::npos )
        << text;
    EXPECT_NE( text.find( "-get HOP -> rc -29\n" ), std::string::npos ) << text;
    EXPECT_NE( text.find( "+get HOP -> 2\n" ), std::string::npos ) << text;
}

TEST_F( DiffOfEvents, AnEntryThatIsUsedOnAndOnIsComparedCommitByCommit ) {
    for ( Run * run : { &before_, &after_ } ) {
        const std::uint32_t handle = run->allocate( "PORTr" );
        for ( std::uint64_t i = 0; i < 3; ++i ) {
            if ( run == &after_ && i == 1 )
                continue;
            run->recorder.bcmlt_entry_field_add( handle, "BCMLT_PT_PORT", i );
            run->recorder.bcmlt_pt_entry_commit( handle, run->chip.BCMLT_PT_OPCODE_MODIFY(),
                                                 run->chip.BCMLT_PRIORITY_NORMAL() );
        }
        run->recorder.bcmlt_entry_free( handle );
    }
    EXPECT_EQ( difference(), "PORTr on unit 0\n"
                             "-add BCMLT_PT_PORT = 1\n"
                             "-commit BCMLT_PT_OPCODE_MODIFY BCMLT_PRIORITY_NORMAL\n" );
}

TEST_F( DiffOfEvents, WhatAStopLeftOpenIsMissing ) {
    for ( Run * run : { &before_, &after_ } ) {
        run->insertRoute( 10, 1 );
        const std::uint32_t handle = run->allocate( "PORTr" );
        run->recorder.bcmlt_entry_field_add( handle, "BCMLT_PT_PORT", 1 );
        if ( run == &before_ )
            run->recorder.loseNext();
        run->recorder.bcmlt_pt_entry_commit( handle, run->chip.BCMLT_PT_OPCODE_MODIFY(),
                                             run->chip.BCMLT_PRIORITY_NORMAL() );
        if ( run == &after_ )
            run->recorder.bcmlt_entry_free( handle );
    }
    EXPECT_EQ( difference(),
               "PORTr on unit 0\n"
               " allocate\n"
               " add BCMLT_PT_PORT = 1\n"
               "-commit BCMLT_PT_OPCODE_MODIFY BCMLT_PRIORITY_NORMAL, never returned\n"
               "+commit BCMLT_PT_OPCODE_MODIFY BCMLT_PRIORITY_NORMAL\n"
               "+free\n" );
}

TEST_F( DiffOfEvents, ThreadsThatWorkAtOnceHaveNoOrder ) {
    before_.insertRoute( 10, 1 );
    before_.recorder.setThread( 2 );
    before_.setPort( 1, 2 );
    before_.setPort( 2, 2 );
    after_.recorder.setThread( 5 );
    after_.setPort( 1, 2 );
    after_.recorder.setThread( 6 );
    after_.insertRoute( 10, 1 );
    after_.recorder.setThread( 5 );
    after_.setPort( 2, 2 );
    EXPECT_EQ( difference(), "" );
    EXPECT_EQ( counts_.reordered, 1u );
}

TEST_F( DiffOfEvents, AnEntryOfManyOperationsIsCutIntoSteps ) {
    for ( Run * run : { &before_, &after_ } ) {
        const std::uint32_t handle = run->allocate( "PORTr" );
        for ( std::uint64_t i = 0; i < 3000; ++i )
            run->recorder.bcmlt_entry_field_add( handle, "VALUE",
                                                 i == 2000 && run == &after_ ? 255 : i % 7 );
        run->recorder.bcmlt_entry_free( handle );
    }
    const std::string text = difference();
    EXPECT_NE( text.find( "-add VALUE = 5\n+add VALUE = 255\n" ), std::string::npos );
    EXPECT_EQ( counts_.changed, 1u );
    EXPECT_EQ( counts_.steps, 2u );
}

} // namespace
