#include "tools/recording/StateDiff.h"

#include "tests/sim/TestChip.h"
#include "tests/tools/recording/RandomProgram.h"
#include "tools/recording/Plan.h"
#include "tools/recording/StateDifferences.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>

// What differs between two states, and the plan that makes one of the other.

namespace {

using Json = nlohmann::json;
using SimTest::Entry;

class StateDiff : public ::testing::Test {
  protected:
    StateDiff() {
        before_.addUnit( 0, SimTest::smallSchema() );
        after_.addUnit( 0, SimTest::smallSchema() );
    }

    static void insertRoute( Sim::Chip & chip, std::uint64_t prefix, std::uint64_t hop ) {
        Entry entry( chip, "ROUTE" );
        entry.add( "VRF", 1 );
        entry.add( "PREFIX", prefix );
        entry.add( "HOP", hop );
        ASSERT_EQ( entry.insert(), Sim::Rc::ok );
    }

    static void setPort( Sim::Chip & chip, std::uint64_t port, std::uint64_t value ) {
        Entry entry( chip, "PORTr" );
        entry.add( "BCMLT_PT_PORT", port );
        entry.add( "VALUE", value );
        ASSERT_EQ( entry.ptModify(), Sim::Rc::ok );
    }

    std::string text() const {
        return Tool::differencesText( Tool::differencesOf( before_, after_ ) );
    }

    // Turns the first chip into the second one, by the plan.
    void plan() {
        const auto differences = Tool::differencesOf( before_, after_ );
        Tool::performPlan( before_, differences );
    }

    Sim::Chip before_;
    Sim::Chip after_;
};

constexpr const char * nothing = "0 rows added, 0 removed, 0 changed\n";

TEST_F( StateDiff, TwoFreshChipsAreTheSame ) { EXPECT_EQ( text(), nothing ); }

TEST_F( StateDiff, RowsAreAddedRemovedAndChangedByField ) {
    insertRoute( before_, 10, 1 );
    insertRoute( before_, 20, 2 );
    insertRoute( after_, 20, 3 );
    insertRoute( after_, 30, 4 );
    setPort( before_, 1, 7 );
    setPort( after_, 1, 8 );
    setPort( after_, 2, 9 );
    EXPECT_EQ( text(), "ROUTE  unit 0, logical table\n"
                       "- VRF 1, PREFIX 10\n"
                       "-   HOP           1\n"
                       "-   COST          (100)\n"
                       "-   MODE          (ON)\n"
                       "-   LABELS[0..3]  (0)\n"
                       "  VRF 1, PREFIX 20\n"
                       "-   HOP  2\n"
                       "+   HOP  3\n"
                       "+ VRF 1, PREFIX 30\n"
                       "+   HOP           4\n"
                       "+   COST          (100)\n"
                       "+   MODE          (ON)\n"
                       "+   LABELS[0..3]  (0)\n"
                       "PORTr  unit 0, register\n"
                       "  port 1\n"
                       "-   VALUE  7\n"
                       "+   VALUE  8\n"
                       "+ port 2\n"
                       "+   VALUE  9\n"
                       "+   OTHER  (165)\n"
                       "2 rows added, 1 removed, 2 changed\n" );
}

TEST_F( StateDiff, ArraysAreShownByTheElementsThatDiffer ) {
    for ( Sim::Chip * chip : { &before_, &after_ } ) {
        Entry entry( *chip, "MAPm" );
        entry.add( "BCMLT_PT_INDEX", 3 );
        entry.array( "WORDS", 0, { 1, 1, 1 } );
        if ( chip == &after_ )
            entry.array( "WORDS", 1, { 2, 2 } );
        ASSERT_EQ( entry.ptModify(), Sim::Rc::ok );
    }
    EXPECT_EQ( text(), "MAPm  unit 0, memory\n"
                       "  index 3\n"
                       "-   WORDS[1..2]  1\n"
                       "+   WORDS[1..2]  2\n"
                       "0 rows added, 0 removed, 1 changed\n" );
}

TEST_F( StateDiff, BothCopiesOfAPhysicalRowAreCompared ) {
    setPort( before_, 1, 7 );
    setPort( after_, 1, 7 );
    ASSERT_EQ( after_.pokeHardware( 0, "PORTr", { .port = 1 }, "VALUE", 8 ), Sim::Rc::ok );
    EXPECT_EQ( text(), "PORTr  unit 0, register\n"
                       "  port 1\n"
                       "-   VALUE  7  in the hardware\n"
                       "+   VALUE  8  in the hardware\n"
                       "0 rows added, 0 removed, 1 changed\n" );
}

TEST_F( StateDiff, WhatCountsIsTheValueAndNotWhoWroteIt ) {
    Entry entry( after_, "CONTROL" );
    entry.add( "STEP", 7 ); // what it holds from the start
    ASSERT_EQ( entry.update(), Sim::Rc::ok );
    setPort( after_, 2, SimTest::unwritten8 );
    EXPECT_EQ( text(), nothing );
}

TEST_F( StateDiff, ChipsOfOtherTablesAreNotComparable ) {
    EXPECT_EQ( Tool::incomparable( before_, after_ ), "" );
    Sim::Chip other;
    Sim::Schema schema = SimTest::smallSchema();
    ASSERT_EQ( schema.resize( "GRIDm", { .rows = 6, .instances = 2, .ports = 3 } ), "" );
    other.addUnit( 0, schema );
    EXPECT_EQ( Tool::incomparable( before_, other ),
               "unit 0: table GRIDm is not described alike in both" );
    ASSERT_EQ( schema.remove( "GRIDm" ), "" );
    Sim::Chip fewer;
    fewer.addUnit( 0, schema );
    EXPECT_EQ( Tool::incomparable( before_, fewer ), "unit 0: table GRIDm is in the first alone" );
    EXPECT_EQ( Tool::incomparable( fewer, before_ ), "unit 0: table GRIDm is in the second alone" );
    before_.addUnit( 3, SimTest::smallSchema() );
    EXPECT_EQ( Tool::incomparable( before_, after_ ), "unit 3 is in the first alone" );
}

TEST_F( StateDiff, AsJson ) {
    insertRoute( after_, 10, 1 );
    setPort( before_, 1, 7 );
    setPort( after_, 1, 7 );
    ASSERT_EQ( after_.pokeHardware( 0, "PORTr", { .port = 1 }, "VALUE", 8 ), Sim::Rc::ok );
    const Json json = Tool::differencesJson( Tool::differencesOf( before_, after_ ) );
    EXPECT_EQ( json["different"], true );
    EXPECT_EQ( json["added"], 1 );
    EXPECT_EQ( json["removed"], 0 );
    EXPECT_EQ( json["changed"], 1 );
    ASSERT_EQ( json["rows"].size(), 2u );
    const Json & row = json["rows"][0];
    EXPECT_EQ( row["table"], "ROUTE" );
    EXPECT_EQ( row["change"], "added" );
    EXPECT_EQ( row["place"], Json( { { "VRF", 1 }, { "PREFIX", 10 } } ) );
    EXPECT_EQ( row["fields"][2], Json( { { "field", "MODE" }, { "after", "ON" } } ) );
    EXPECT_EQ( row["fields"][3],
               Json( { { "field", "LABELS" }, { "element", 0 }, { "after", 0 } } ) );
    EXPECT_EQ( json["rows"][1]["fields"], Json( { { { "field", "VALUE" },
                                                    { "copy", "hardware" },
                                                    { "before", 7 },
                                                    { "after", 8 } } } ) );
}

// --- The plan

TEST_F( StateDiff, APlanDeletesBeforeItInserts ) {
    for ( const std::uint64_t prefix : { 1u, 2u, 3u } ) {
        insertRoute( before_, prefix, 1 );
        insertRoute( after_, prefix + 3, 1 );
    }
    plan();
    EXPECT_EQ( text(), nothing );
}

TEST_F( StateDiff, APlanBringsBackRowsThatWereThereFromTheStart ) {
    Entry entry( before_, "CONTROL" );
    ASSERT_EQ( entry.remove(), Sim::Rc::ok );
    plan();
    EXPECT_EQ( text(), nothing );
    EXPECT_EQ( before_.value( 0, "CONTROL", {}, "STEP" ), 7u );
}

TEST_F( StateDiff, APlanRefreshesACacheThatIsBehindTheHardware ) {
    setPort( before_, 1, 7 );
    setPort( after_, 1, 8 );
    ASSERT_EQ( before_.pokeHardware( 0, "PORTr", { .port = 1 }, "VALUE", 8 ), Sim::Rc::ok );
    const auto differences = Tool::differencesOf( before_, after_ );
    ASSERT_EQ( differences.size(), 1u );
    EXPECT_TRUE( Tool::isWithinReach( differences[0] ) );
    plan();
    EXPECT_EQ( text(), nothing );
}

TEST_F( StateDiff, AChangeBehindTheSdkIsOutOfReach ) {
    setPort( before_, 1, 7 );
    setPort( after_, 1, 7 );
    ASSERT_EQ( after_.pokeHardware( 0, "PORTr", { .port = 1 }, "VALUE", 8 ), Sim::Rc::ok );
    const auto differences = Tool::differencesOf( before_, after_ );
    ASSERT_EQ( differences.size(), 1u );
    EXPECT_FALSE( Tool::isWithinReach( differences[0] ) );
    plan();
    EXPECT_EQ( text(), "PORTr  unit 0, register\n"
                       "  port 1\n"
                       "-   VALUE  8  in the SDK's cache\n"
                       "+   VALUE  7  in the SDK's cache\n"
                       "0 rows added, 0 removed, 1 changed\n" );
}

// --- Random states

void makeRandomState( Sim::Chip & chip, ToolTest::Random & random, const Sim::Schema & schema,
                      bool withPokes ) {
    chip.addUnit( 0, schema );
    chip.addUnit( 1, schema );
    ToolTest::RandomProgram program( random, schema, 2 );
    program.run( chip, random.below( 400 ) );
    if ( withPokes )
        program.poke( chip );
}

// CAIRN_SEED and CAIRN_ROUNDS choose others, and more.
TEST( RandomStates, APlanTurnsAnyStateIntoAnyOther ) {
    const std::uint64_t first = ToolTest::numberOfEnvironment( "CAIRN_SEED", 1 );
    const std::uint64_t rounds = ToolTest::numberOfEnvironment( "CAIRN_ROUNDS", 200 );
    std::size_t rows = 0;
    for ( std::uint64_t seed = first; seed < first + rounds; ++seed ) {
        SCOPED_TRACE( "CAIRN_SEED=" + std::to_string( seed ) );
        ToolTest::Random random( seed );
        const Sim::Schema schema = ToolTest::randomSchema( random );
        Sim::Chip before;
        Sim::Chip after;
        makeRandomState( before, random, schema, random.oneIn( 2 ) );
        const bool isPoked = random.oneIn( 4 );
        makeRandomState( after, random, schema, isPoked );
        const auto differences = Tool::differencesOf( before, after );
        rows += differences.size();
        Tool::performPlan( before, differences );
        for ( const Tool::RowDifference & left : Tool::differencesOf( before, after ) ) {
            EXPECT_TRUE( isPoked );
            EXPECT_FALSE( Tool::isWithinReach( left ) )
                << left.table->name << " " << Tool::placeText( *left.table, left.id() );
            EXPECT_EQ( Tool::hardwareOf( *left.before ), Tool::hardwareOf( *left.after ) );
        }
        ASSERT_FALSE( HasFailure() );
    }
    EXPECT_GT( rows, rounds ) << "the states hardly differ: the test proves nothing";
}

} // namespace
