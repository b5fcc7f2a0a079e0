#include "tests/sim/TestChip.h"

#include <gtest/gtest.h>

#include <map>

using namespace SimTest;
using Sim::Rc;

namespace {

class LogicalTableTest : public testing::Test {
  protected:
    LogicalTableTest() { chip.addUnit( 0, smallSchema() ); }

    Rc insertRoute( std::uint64_t vrf, std::uint64_t prefix, std::uint64_t hop ) {
        Entry entry( chip, "ROUTE" );
        EXPECT_EQ( entry.add( "VRF", vrf ), Rc::ok );
        EXPECT_EQ( entry.add( "PREFIX", prefix ), Rc::ok );
        EXPECT_EQ( entry.add( "HOP", hop ), Rc::ok );
        return entry.insert();
    }

    std::optional<std::uint64_t> route( std::uint64_t vrf, std::uint64_t prefix,
                                        const char * field ) {
        return chip.value( 0, "ROUTE", { .key = { vrf, prefix } }, field );
    }

    Sim::Chip chip;
};

TEST_F( LogicalTableTest, InsertTakesTheFieldsCarriedAndResetsTheOthers ) {
    ASSERT_EQ( insertRoute( 1, 0xFFFF'FFFF'FFFF'FFFF, 7 ), Rc::ok );
    EXPECT_EQ( route( 1, 0xFFFF'FFFF'FFFF'FFFF, "VRF" ), 1u );
    EXPECT_EQ( route( 1, 0xFFFF'FFFF'FFFF'FFFF, "PREFIX" ), 0xFFFF'FFFF'FFFF'FFFF );
    EXPECT_EQ( route( 1, 0xFFFF'FFFF'FFFF'FFFF, "HOP" ), 7u );
    EXPECT_EQ( route( 1, 0xFFFF'FFFF'FFFF'FFFF, "COST" ), 100u );
    EXPECT_EQ( route( 1, 0xFFFF'FFFF'FFFF'FFFF, "MODE" ), 1u );
    EXPECT_EQ( route( 1, 0xFFFF'FFFF'FFFF'FFFF, "LABELS" ), 0u );
    EXPECT_EQ( chip.rowCount( 0, "ROUTE" ), 1u );
}

TEST_F( LogicalTableTest, RowsDifferByEachPartOfTheKey ) {
    ASSERT_EQ( insertRoute( 1, 10, 7 ), Rc::ok );
    ASSERT_EQ( insertRoute( 2, 10, 8 ), Rc::ok );
    ASSERT_EQ( insertRoute( 1, 11, 9 ), Rc::ok );
    EXPECT_EQ( route( 1, 10, "HOP" ), 7u );
    EXPECT_EQ( route( 2, 10, "HOP" ), 8u );
    EXPECT_EQ( route( 1, 11, "HOP" ), 9u );
}

TEST_F( LogicalTableTest, InsertOfARowThatExistsFailsAndLeavesIt ) {
    ASSERT_EQ( insertRoute( 1, 10, 7 ), Rc::ok );
    EXPECT_EQ( insertRoute( 1, 10, 8 ), Rc::entryExists );
    EXPECT_EQ( route( 1, 10, "HOP" ), 7u );
}

TEST_F( LogicalTableTest, AFullTableTakesNoMore ) {
    for ( std::uint64_t prefix = 0; prefix < 3; ++prefix )
        ASSERT_EQ( insertRoute( 1, prefix, 7 ), Rc::ok );
    EXPECT_EQ( insertRoute( 1, 3, 7 ), Rc::tableFull );
    EXPECT_EQ( insertRoute( 1, 2, 7 ), Rc::entryExists ) << "not full: it is there";
    EXPECT_EQ( chip.rowCount( 0, "ROUTE" ), 3u );

    Entry entry( chip, "ROUTE" );
    entry.add( "VRF", 1 );
    entry.add( "PREFIX", 0 );
    ASSERT_EQ( entry.remove(), Rc::ok );
    EXPECT_EQ( insertRoute( 1, 3, 7 ), Rc::ok ) << "room was made";
}

TEST_F( LogicalTableTest, UpdateWritesTheFieldsCarriedAndKeepsTheOthers ) {
    {
        Entry entry( chip, "ROUTE" );
        entry.add( "VRF", 1 );
        entry.add( "PREFIX", 10 );
        entry.add( "HOP", 7 );
        entry.add( "COST", 55 );
        entry.array( "LABELS", 0, { 1, 2, 3, 4 } );
        ASSERT_EQ( entry.insert(), Rc::ok );
    }
    Entry entry( chip, "ROUTE" );
    entry.add( "VRF", 1 );
    entry.add( "PREFIX", 10 );
    entry.add( "HOP", 8 );
    entry.array( "LABELS", 1, { 20, 30 } );
    ASSERT_EQ( entry.update(), Rc::ok );
    EXPECT_EQ( route( 1, 10, "HOP" ), 8u );
    EXPECT_EQ( route( 1, 10, "COST" ), 55u );
    const std::vector<Sim::RowImage> rows = chip.rows( 0, "ROUTE" );
    ASSERT_EQ( rows.size(), 1u );
    // VRF, HOP, PREFIX, COST, MODE, LABELS
    EXPECT_EQ( rows[0].values, ( std::vector<std::uint64_t>{ 1, 8, 10, 55, 1, 1, 20, 30, 4 } ) );
}

TEST_F( LogicalTableTest, UpdateOfAMissingRowFails ) {
    Entry entry( chip, "ROUTE" );
    entry.add( "VRF", 1 );
    entry.add( "PREFIX", 10 );
    entry.add( "HOP", 8 );
    EXPECT_EQ( entry.update(), Rc::entryNotFound );
    EXPECT_EQ( chip.rowCount( 0, "ROUTE" ), 0u );
}

TEST_F( LogicalTableTest, LookupFillsTheEntry ) {
    ASSERT_EQ( insertRoute( 1, 10, 7 ), Rc::ok );
    Entry entry( chip, "ROUTE" );
    entry.add( "VRF", 1 );
    entry.add( "PREFIX", 10 );
    EXPECT_EQ( entry.get( "HOP" ), std::nullopt );
    ASSERT_EQ( entry.lookup(), Rc::ok );
    EXPECT_EQ( entry.get( "HOP" ), 7u );
    EXPECT_EQ( entry.get( "COST" ), 100u );
    EXPECT_EQ( entry.get( "VRF" ), 1u );
    EXPECT_EQ( entry.get( "PREFIX" ), 10u );
}

TEST_F( LogicalTableTest, LookupReplacesDataThatWasAddedBefore ) {
    ASSERT_EQ( insertRoute( 1, 10, 7 ), Rc::ok );
    Entry entry( chip, "ROUTE" );
    entry.add( "HOP", 99 );
    entry.add( "VRF", 1 );
    entry.add( "PREFIX", 10 );
    ASSERT_EQ( entry.lookup(), Rc::ok );
    EXPECT_EQ( entry.get( "HOP" ), 7u );
}

TEST_F( LogicalTableTest, AFieldAddedAfterALookupReplacesWhatWasRead ) {
    ASSERT_EQ( insertRoute( 1, 10, 7 ), Rc::ok );
    Entry entry( chip, "ROUTE" );
    entry.add( "VRF", 1 );
    entry.add( "PREFIX", 10 );
    ASSERT_EQ( entry.lookup(), Rc::ok );
    ASSERT_EQ( entry.add( "HOP", 8 ), Rc::ok );
    ASSERT_EQ( entry.update(), Rc::ok );
    EXPECT_EQ( route( 1, 10, "HOP" ), 8u );
    EXPECT_EQ( route( 1, 10, "COST" ), 100u );
}

TEST_F( LogicalTableTest, LookupOfAMissingRowLeavesTheEntryAsItWas ) {
    Entry entry( chip, "ROUTE" );
    entry.add( "VRF", 1 );
    entry.add( "PREFIX", 10 );
    entry.add( "HOP", 99 );
    ASSERT_EQ( entry.lookup(), Rc::entryNotFound );
    EXPECT_EQ( entry.get( "HOP" ), 99u );
    EXPECT_EQ( entry.get( "COST" ), std::nullopt );
    EXPECT_EQ( entry.insert(), Rc::ok ) << "the same entry goes on to insert the row";
    EXPECT_EQ( route( 1, 10, "HOP" ), 99u );
}

TEST_F( LogicalTableTest, DeleteRemovesTheRow ) {
    ASSERT_EQ( insertRoute( 1, 10, 7 ), Rc::ok );
    Entry entry( chip, "ROUTE" );
    entry.add( "VRF", 1 );
    entry.add( "PREFIX", 10 );
    EXPECT_EQ( entry.remove(), Rc::ok );
    EXPECT_EQ( chip.rowCount( 0, "ROUTE" ), 0u );
    EXPECT_EQ( entry.lookup(), Rc::entryNotFound );
    EXPECT_EQ( entry.remove(), Rc::entryNotFound );
}

TEST_F( LogicalTableTest, NoCommitGoesWithoutTheWholeKey ) {
    ASSERT_EQ( insertRoute( 0, 0, 7 ), Rc::ok ) << "a missing key must not pass for 0";
    for ( const char * given : { "VRF", "PREFIX", "HOP" } ) {
        Entry entry( chip, "ROUTE" );
        ASSERT_EQ( entry.add( given, 0 ), Rc::ok );
        EXPECT_EQ( entry.insert(), Rc::keyMissing ) << given;
        EXPECT_EQ( entry.update(), Rc::keyMissing ) << given;
        EXPECT_EQ( entry.lookup(), Rc::keyMissing ) << given;
        EXPECT_EQ( entry.remove(), Rc::keyMissing ) << given;
    }
    EXPECT_EQ( route( 0, 0, "HOP" ), 7u );
}

TEST_F( LogicalTableTest, ATableWithoutAKeyIsEmptyUntilItsRowIsInserted ) {
    Entry entry( chip, "POLICY" );
    entry.add( "LIMIT", 3 );
    EXPECT_EQ( entry.lookup(), Rc::entryNotFound );
    EXPECT_EQ( entry.update(), Rc::entryNotFound );
    EXPECT_EQ( entry.insert(), Rc::ok );
    EXPECT_EQ( entry.insert(), Rc::entryExists );
    entry.add( "LIMIT", 4 );
    EXPECT_EQ( entry.update(), Rc::ok );
    EXPECT_EQ( chip.value( 0, "POLICY", {}, "LIMIT" ), 4u );
    EXPECT_EQ( entry.remove(), Rc::ok );
    EXPECT_EQ( chip.value( 0, "POLICY", {}, "LIMIT" ), std::nullopt );
}

TEST_F( LogicalTableTest, APreloadedTableWithoutAKeyIsUpdatedWithoutAnInsert ) {
    Entry entry( chip, "CONTROL" );
    EXPECT_EQ( entry.lookup(), Rc::ok );
    EXPECT_EQ( entry.get( "LEVEL" ), unwritten8 );
    EXPECT_EQ( entry.get( "STEP" ), 7u ) << "the power-on value";
    EXPECT_EQ( entry.get( "MODE" ), 1u ) << "a field with symbols starts with its reset value";
    EXPECT_EQ( entry.insert(), Rc::entryExists );

    Entry other( chip, "CONTROL" );
    other.add( "LEVEL", 1 );
    EXPECT_EQ( other.update(), Rc::ok );
    EXPECT_EQ( chip.value( 0, "CONTROL", {}, "LEVEL" ), 1u );
    EXPECT_EQ( chip.value( 0, "CONTROL", {}, "STEP" ), 7u );
}

TEST_F( LogicalTableTest, APreloadedTableHasARowForEachSymbolOfItsKey ) {
    EXPECT_EQ( chip.rowCount( 0, "EVENT" ), 2u );
    Entry entry( chip, "EVENT" );
    ASSERT_EQ( entry.symbol( "ID", "MISS" ), Rc::ok );
    ASSERT_EQ( entry.add( "CPU", 1 ), Rc::ok );
    EXPECT_EQ( entry.update(), Rc::ok );
    EXPECT_EQ( chip.value( 0, "EVENT", { .key = { 3 } }, "CPU" ), 1u );
    EXPECT_EQ( chip.value( 0, "EVENT", { .key = { 1 } }, "CPU" ), 0u );
    EXPECT_EQ( chip.value( 0, "EVENT", { .key = { 2 } }, "CPU" ), std::nullopt );
}

// Thousands of inserts, updates, lookups and deletes against a std::map, on keys that collide often
// and keys that follow each other.
TEST_F( LogicalTableTest, ACommitIsJudgedAndNotMade ) {
    const auto judge = [&]( Entry & entry, std::uint32_t opcode ) {
        return static_cast<Rc>(
            chip.judgeCommit( entry.handle(), opcode, chip.BCMLT_PRIORITY_NORMAL() ) );
    };
    Entry entry( chip, "ROUTE" );
    entry.add( "VRF", 1 );
    EXPECT_EQ( judge( entry, chip.BCMLT_OPCODE_INSERT() ), Rc::keyMissing );
    entry.add( "PREFIX", 10 );
    for ( const std::uint32_t opcode :
          { chip.BCMLT_OPCODE_LOOKUP(), chip.BCMLT_OPCODE_UPDATE(), chip.BCMLT_OPCODE_DELETE() } )
        EXPECT_EQ( judge( entry, opcode ), Rc::entryNotFound );
    EXPECT_EQ( judge( entry, chip.BCMLT_OPCODE_INSERT() ), Rc::ok );
    EXPECT_EQ( chip.rowCount( 0, "ROUTE" ), 0u );
    ASSERT_EQ( insertRoute( 1, 10, 7 ), Rc::ok );
    EXPECT_EQ( judge( entry, chip.BCMLT_OPCODE_INSERT() ), Rc::entryExists );
    EXPECT_EQ( judge( entry, chip.BCMLT_OPCODE_LOOKUP() ), Rc::ok );
    EXPECT_EQ( entry.get( "HOP" ), std::nullopt );
    EXPECT_EQ( judge( entry, chip.BCMLT_OPCODE_DELETE() ), Rc::ok );
    EXPECT_EQ( chip.rowCount( 0, "ROUTE" ), 1u );
    ASSERT_EQ( insertRoute( 1, 11, 7 ), Rc::ok );
    ASSERT_EQ( insertRoute( 1, 12, 7 ), Rc::ok );
    entry.add( "PREFIX", 13 );
    EXPECT_EQ( judge( entry, chip.BCMLT_OPCODE_INSERT() ), Rc::tableFull );
    EXPECT_EQ( judge( entry, chip.BCMLT_PT_OPCODE_SET() ), Rc::unknownOpcode );
    EXPECT_EQ( static_cast<Rc>( chip.judgeCommit( entry.handle(), chip.BCMLT_OPCODE_INSERT(), 7 ) ),
               Rc::unknownPriority );
}

TEST( LogicalTableModelTest, HoldsTheSameRowsAsAMap ) {
    Sim::Schema schema = smallSchema();
    ASSERT_EQ( schema.resize( "ROUTE", { .rows = 2000 } ), "" );
    Sim::Chip chip;
    chip.addUnit( 0, schema );
    std::map<std::pair<std::uint64_t, std::uint64_t>, std::uint64_t> model;

    std::uint64_t state = 1;
    const auto random = [&]( std::uint64_t limit ) {
        state = state * 6364136223846793005u + 1442695040888963407u;
        return ( state >> 33 ) % limit;
    };
    Entry entry( chip, "ROUTE" );
    for ( int step = 0; step < 40'000; ++step ) {
        const std::uint64_t vrf = random( 3 );
        const std::uint64_t prefix = random( 2 ) ? random( 900 ) : random( 16 ) << 60;
        const std::uint64_t hop = random( 65536 );
        const auto there = model.find( { vrf, prefix } );
        const bool exists = there != model.end();
        ASSERT_EQ( entry.add( "VRF", vrf ), Rc::ok );
        ASSERT_EQ( entry.add( "PREFIX", prefix ), Rc::ok );
        ASSERT_EQ( entry.add( "HOP", hop ), Rc::ok );
        switch ( random( 4 ) ) {
        case 0:
            ASSERT_EQ( entry.insert(), exists                 ? Rc::entryExists
                                       : model.size() == 2000 ? Rc::tableFull
                                                              : Rc::ok );
            if ( model.size() < 2000 )
                model.try_emplace( { vrf, prefix }, hop );
            break;
        case 1:
            ASSERT_EQ( entry.update(), exists ? Rc::ok : Rc::entryNotFound );
            if ( exists )
                there->second = hop;
            break;
        case 2:
            ASSERT_EQ( entry.lookup(), exists ? Rc::ok : Rc::entryNotFound );
            ASSERT_EQ( entry.get( "HOP" ), exists ? there->second : hop );
            break;
        default:
            ASSERT_EQ( entry.remove(), exists ? Rc::ok : Rc::entryNotFound );
            model.erase( { vrf, prefix } );
        }
        ASSERT_EQ( chip.rowCount( 0, "ROUTE" ), model.size() );
    }

    ASSERT_GT( model.size(), 500u );
    const std::vector<Sim::RowImage> rows = chip.rows( 0, "ROUTE" );
    ASSERT_EQ( rows.size(), model.size() );
    std::size_t i = 0;
    for ( const auto & [key, hop] : model ) {
        EXPECT_EQ( rows[i].id.key, ( std::vector<std::uint64_t>{ key.first, key.second } ) );
        EXPECT_EQ( rows[i++].values[1], hop );
    }
}

} // namespace
