#include "tests/sim/TestChip.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>

using namespace SimTest;
using Sim::Copy;
using Sim::Rc;
using Sim::Rows;

namespace {

std::string whyNotAdded( Sim::Chip & chip, int unit, Sim::Schema schema ) {
    try {
        chip.addUnit( unit, std::move( schema ) );
    } catch ( const std::invalid_argument & error ) {
        return error.what();
    }
    return "it was added";
}

// --- Units

TEST( ChipUnitTest, UnitsAreChipsOfTheirOwn ) {
    Sim::Chip chip;
    EXPECT_TRUE( chip.units().empty() );
    chip.addUnit( 2, smallSchema() );
    chip.addUnit( 0, smallSchema() );
    EXPECT_EQ( chip.units(), ( std::vector<int>{ 0, 2 } ) );

    Entry entry( chip, "ONEr", 2 );
    entry.add( "VALUE", 1 );
    ASSERT_EQ( entry.ptSet(), Rc::ok );
    EXPECT_EQ( chip.value( 2, "ONEr", {}, "VALUE" ), 1u );
    EXPECT_EQ( chip.value( 0, "ONEr", {}, "VALUE" ), unwritten8 );
    EXPECT_EQ( chip.value( 1, "ONEr", {}, "VALUE" ), std::nullopt );
}

TEST( ChipUnitTest, EachUnitHasItsSchema ) {
    Sim::Chip chip;
    Sim::Schema small = smallSchema();
    ASSERT_EQ( small.remove( "ONEr" ), "" );
    chip.addUnit( 0, smallSchema() );
    chip.addUnit( 1, small );
    EXPECT_NE( chip.schema( 0 )->find( "ONEr" ), nullptr );
    EXPECT_EQ( chip.schema( 1 )->find( "ONEr" ), nullptr );
    EXPECT_EQ( chip.schema( 2 ), nullptr );
    EXPECT_EQ( Entry( chip, "ONEr", 0 ).allocated(), Rc::ok );
    EXPECT_EQ( Entry( chip, "ONEr", 1 ).allocated(), Rc::unknownTable );
}

TEST( ChipUnitTest, AUnitThatCannotBeIsRefused ) {
    Sim::Chip chip;
    chip.addUnit( 0, smallSchema() );
    EXPECT_EQ( whyNotAdded( chip, -1, smallSchema() ),
               "unit -1 is not possible; units are numbered from 0" );
    EXPECT_EQ( whyNotAdded( chip, 0, smallSchema() ),
               "unit 0 exists already; give the new one another number" );
    Sim::Schema broken = smallSchema();
    broken.find( "ONEr" )->fields[0].width = 65;
    EXPECT_EQ( whyNotAdded( chip, 1, broken ), "unit 1: table ONEr: field VALUE: width 65 is "
                                               "not possible; give it 1 to 64 bits an element" );
    EXPECT_EQ( chip.units(), std::vector<int>{ 0 } );
}

// --- Hooks

TEST( ChipHookTest, HooksAreCounted ) {
    Sim::Chip chip;
    chip.preCallHook();
    chip.preCallHook();
    chip.failureHook();
    EXPECT_EQ( chip.preCallCount(), 2u );
    EXPECT_EQ( chip.failureCount(), 1u );
}

// --- Errors in words

TEST( ChipErrorTest, EveryCodeHasATextOfItsOwn ) {
    Sim::Chip chip;
    std::set<std::string> texts;
    for ( int rc = toInt( Rc::outOfMemory ); rc <= 0; ++rc )
        EXPECT_TRUE( texts.insert( chip.errmsg( rc ) ).second ) << rc;
    EXPECT_EQ( texts.size(), 31u );
    EXPECT_STREQ( chip.errmsg( toInt( Rc::entryNotFound ) ), "row does not exist" );
    EXPECT_STREQ( chip.errmsg( 5 ), "no error" );
    EXPECT_STREQ( chip.errmsg( -31 ), "unknown error code" );
    EXPECT_STREQ( chip.errmsg( std::numeric_limits<int>::min() ), "unknown error code" );
}

struct WordsCase {
    Rc rc;
    std::function<Rc( Sim::Chip & )> fail;
    const char * words;
};

Rc freeTwice( Sim::Chip & chip ) {
    const std::uint32_t handle = Entry( chip, "ONEr" ).handle();
    return static_cast<Rc>( chip.bcmlt_entry_free( handle ) );
}

Rc insertPolicyTwice( Sim::Chip & chip ) {
    Entry entry( chip, "POLICY" );
    entry.insert();
    return entry.insert();
}

TEST( ChipErrorTest, TheLastErrorTellsWhatWasWrong ) {
    const std::vector<WordsCase> cases = {
        { Rc::unknownUnit, []( auto & c ) { return Entry( c, "ONEr", 7 ).allocated(); },
          "there is no unit 7; the chip has units 0 3" },
        { Rc::unknownTable, []( auto & c ) { return Entry( c, "PORT", 3 ).allocated(); },
          "unit 3 has no table PORT; the nearest name is PORTr" },
        { Rc::unknownTable, []( auto & c ) { return Entry( c, "NOTHING_LIKE_IT" ).allocated(); },
          "unit 0 has no table NOTHING_LIKE_IT" },
        { Rc::unknownField, []( auto & c ) { return Entry( c, "MAPm" ).add( "TGA", 1 ); },
          "MAPm has no field TGA; the nearest name is TAG" },
        { Rc::unknownField,
          []( auto & c ) { return Entry( c, "ROUTE" ).add( "BCMLT_PT_INDEX", 1 ); },
          "ROUTE has no field BCMLT_PT_INDEX; only physical tables have" },
        { Rc::unknownSymbol, []( auto & c ) { return Entry( c, "MAPm" ).symbol( "MODE", "AUT" ); },
          "MAPm.MODE has no symbol AUT; the nearest name is AUTO" },
        { Rc::unknownHandle, []( auto & c ) { return static_cast<Rc>( c.bcmlt_entry_free( 99 ) ); },
          "bcmlt_entry_free: there never was an entry 99" },
        { Rc::unknownHandle,
          []( auto & c ) { return static_cast<Rc>( c.bcmlt_entry_field_add( 0, "TAG", 1 ) ); },
          "bcmlt_entry_field_add: there never was an entry 0, that is BCMLT_INVALID_HDL" },
        { Rc::doubleFree, freeTwice, "entry 1 was freed before and cannot be freed again" },
        { Rc::wrongCommitKind, []( auto & c ) { return Entry( c, "ONEr" ).insert(); },
          "ONEr is a register; commit it with bcmlt_pt_entry_commit" },
        { Rc::wrongCommitKind, []( auto & c ) { return Entry( c, "POLICY" ).ptSet(); },
          "POLICY is a logical table; commit it with bcmlt_entry_commit" },
        { Rc::unknownOpcode,
          []( auto & c ) { return Entry( c, "POLICY" ).commit( c.BCMLT_PT_OPCODE_SET() ); },
          "2003 is not an opcode of bcmlt_entry_commit, it is one of physical tables" },
        { Rc::unknownOpcode, []( auto & c ) { return Entry( c, "ONEr" ).ptCommit( 1 ); },
          "1 is not an opcode of bcmlt_pt_entry_commit" },
        { Rc::unknownAttribute, []( auto & c ) { return Entry( c, "POLICY" ).fromHardware(); },
          "POLICY is a logical table; only entries of physical tables are read from the hardware" },
        { Rc::valueTooWide, []( auto & c ) { return Entry( c, "MAPm" ).add( "CLASS", 16 ); },
          "MAPm.CLASS: value 16 needs 5 bits, the field has 4" },
        { Rc::valueNotAllowed, []( auto & c ) { return Entry( c, "MAPm" ).add( "MODE", 4 ); },
          "MAPm.MODE: value 4 is none of the field's symbols" },
        { Rc::symbolOnNumber, []( auto & c ) { return Entry( c, "MAPm" ).symbol( "TAG", "ON" ); },
          "MAPm.TAG holds numbers and has no symbols" },
        { Rc::arrayField, []( auto & c ) { return Entry( c, "MAPm" ).add( "WORDS", 1 ); },
          "MAPm.WORDS is an array field of 3 elements; use bcmlt_entry_field_array_add" },
        { Rc::scalarField, []( auto & c ) { return Entry( c, "MAPm" ).array( "TAG", 0, { 1 } ); },
          "MAPm.TAG is not an array field; use bcmlt_entry_field_add" },
        { Rc::elementOutOfRange,
          []( auto & c ) {
              return Entry( c, "MAPm" ).array( "WORDS", 2, { 1, 2 } );
          },
          "MAPm.WORDS: element 3 is out of range; the field has 3 elements, counted from 0" },
        { Rc::indexOutOfRange,
          []( auto & c ) { return Entry( c, "MAPm" ).add( "BCMLT_PT_INDEX", 8 ); },
          "MAPm: index 8 is out of range; the table has 8 rows, counted from 0" },
        { Rc::instanceOutOfRange,
          []( auto & c ) { return Entry( c, "PIPEr" ).add( "BCMLT_PT_INSTANCE", 2 ); },
          "PIPEr: instance 2 is out of range; the table has 2 instances, counted from 0" },
        { Rc::portOutOfRange,
          []( auto & c ) { return Entry( c, "PORTr" ).add( "BCMLT_PT_PORT", 3 ); },
          "PORTr: port 3 is out of range; the table has 3 ports, counted from 0" },
        { Rc::notPerPort, []( auto & c ) { return Entry( c, "ONEr" ).add( "BCMLT_PT_PORT", 0 ); },
          "ONEr is not per port; leave BCMLT_PT_PORT out" },
        { Rc::addressMissing, []( auto & c ) { return Entry( c, "PORTr" ).ptSet(); },
          "PORTr: the entry lacks BCMLT_PT_PORT" },
        { Rc::keyMissing, []( auto & c ) { return Entry( c, "EVENT" ).lookup(); },
          "EVENT: the entry lacks the key field ID" },
        { Rc::entryExists, insertPolicyTwice,
          "POLICY: a row with this key exists already; UPDATE it" },
        { Rc::fieldNotCarried,
          []( auto & c ) {
              std::uint64_t value = 0;
              return static_cast<Rc>(
                  c.bcmlt_entry_field_get( Entry( c, "ONEr" ).handle(), "VALUE", &value ) );
          },
          "ONEr.VALUE: the entry does not hold it; add it, or LOOKUP or GET the row first" },
        { Rc::nullArgument, []( auto & c ) { return Entry( c, nullptr ).allocated(); },
          "the table name of bcmlt_entry_allocate is a null pointer" },
    };
    for ( const WordsCase & test : cases ) {
        Sim::Chip chip;
        chip.addUnit( 0, smallSchema() );
        chip.addUnit( 3, smallSchema() );
        EXPECT_EQ( chip.lastError(), "" );
        EXPECT_EQ( test.fail( chip ), test.rc ) << test.words;
        EXPECT_EQ( chip.lastError(), test.words );
    }
}

TEST( ChipErrorTest, AFullTableAndAMissingRowAreTold ) {
    Sim::Chip chip;
    chip.addUnit( 0, smallSchema() );
    Entry entry( chip, "ROUTE" );
    entry.add( "VRF", 1 );
    entry.add( "PREFIX", 0 );
    ASSERT_EQ( entry.lookup(), Rc::entryNotFound );
    EXPECT_EQ( chip.lastError(), "ROUTE: there is no row with this key" );
    for ( std::uint64_t prefix = 0; prefix < 4; ++prefix ) {
        entry.add( "PREFIX", prefix );
        entry.insert();
    }
    EXPECT_EQ( chip.lastError(), "ROUTE is full; it takes 3 rows" );
}

TEST( ChipErrorTest, TheLastErrorStaysUntilTheNextFailure ) {
    Sim::Chip chip;
    chip.addUnit( 0, smallSchema() );
    Entry entry( chip, "ONEr" );
    ASSERT_EQ( entry.add( "VALUE", 256 ), Rc::valueTooWide );
    ASSERT_EQ( entry.add( "VALUE", 255 ), Rc::ok );
    EXPECT_EQ( chip.lastError(), "ONEr.VALUE: value 256 needs 9 bits, the field has 8" );
}

TEST( ChipErrorTest, TheLastErrorIsThatOfTheThreadAndTheChip ) {
    Sim::Chip chip;
    Sim::Chip other;
    chip.addUnit( 0, smallSchema() );
    const Entry none( chip, "NONE" );
    const std::string mine = chip.lastError();
    EXPECT_EQ( mine, "unit 0 has no table NONE" );
    EXPECT_EQ( other.lastError(), "" );
    std::thread( [&] {
        EXPECT_EQ( chip.lastError(), "" );
        const Entry noUnit( chip, "ONEr", 1 );
        EXPECT_EQ( chip.lastError(), "there is no unit 1; the chip has units 0" );
    } ).join();
    EXPECT_EQ( chip.lastError(), mine );
}

TEST( ChipErrorTest, AVeryLongNameIsCutInTheWords ) {
    Sim::Chip chip;
    chip.addUnit( 0, smallSchema() );
    const std::string name( 1000, 'x' );
    EXPECT_EQ( Entry( chip, name.c_str() ).allocated(), Rc::unknownTable );
    EXPECT_EQ( chip.lastError(), "unit 0 has no table " + std::string( 127, 'x' ) );
}

// --- Inspection

class InspectTest : public testing::Test {
  protected:
    InspectTest() { chip.addUnit( 0, smallSchema() ); }

    // A bit of everything: rows inserted, a preloaded row updated and one deleted, physical rows
    // written, one of them changed behind the cache.
    void fill() {
        for ( const std::uint64_t prefix : { 20u, 10u } ) {
            Entry entry( chip, "ROUTE" );
            entry.add( "VRF", 1 );
            entry.add( "PREFIX", prefix );
            entry.array( "LABELS", 1, { prefix } );
            ASSERT_EQ( entry.insert(), Rc::ok );
        }
        {
            Entry entry( chip, "CONTROL" );
            entry.add( "LEVEL", 4 );
            ASSERT_EQ( entry.update(), Rc::ok );
        }
        {
            Entry entry( chip, "EVENT" );
            entry.symbol( "ID", "HIT" );
            ASSERT_EQ( entry.remove(), Rc::ok );
        }
        for ( const std::uint64_t index : { 6u, 1u } ) {
            Entry entry( chip, "MAPm" );
            entry.add( "BCMLT_PT_INDEX", index );
            entry.add( "TAG", index );
            ASSERT_EQ( entry.ptModify(), Rc::ok );
        }
        ASSERT_EQ( chip.pokeHardware( 0, "MAPm", { .index = 6 }, "CLASS", 2 ), Rc::ok );
    }

    Sim::Chip chip;
};

TEST_F( InspectTest, AFreshChipHasNoTouchedRows ) {
    for ( const Sim::Table & table : chip.schema( 0 )->tables() )
        EXPECT_TRUE( chip.rows( 0, table.name ).empty() ) << table.name;
    EXPECT_EQ( chip.rows( 0, "CONTROL", Rows::stored ).size(), 1u );
    EXPECT_EQ( chip.rows( 0, "EVENT", Rows::stored ).size(), 2u );
}

TEST_F( InspectTest, RowsComeInOrderAndTellWhatWasWritten ) {
    fill();
    const std::vector<Sim::RowImage> routes = chip.rows( 0, "ROUTE" );
    ASSERT_EQ( routes.size(), 2u );
    // VRF, HOP, PREFIX, COST, MODE, LABELS
    const Sim::RowImage first = {
        .id = { .key = { 1, 10 } },
        .values = { 1, 0, 10, 100, 1, 0, 10, 0, 0 },
        .written = { true, false, true, false, false, false, true, false, false },
        .touched = true };
    EXPECT_EQ( routes[0], first );
    EXPECT_EQ( routes[1].id.key, ( std::vector<std::uint64_t>{ 1, 20 } ) );

    const std::vector<Sim::RowImage> map = chip.rows( 0, "MAPm" );
    ASSERT_EQ( map.size(), 2u );
    // CLASS, TAG, MODE, COUNT, WORDS
    const std::uint64_t word = 0xA5A5A5A5A5;
    const Sim::RowImage last = { .id = { .index = 6 },
                                 .values = { unwritten4, 6, 1, 11, word, word, word },
                                 .written = { true, true, false, false, false, false, false },
                                 .touched = true,
                                 .hardware = { 2, 6, 1, 11, word, word, word } };
    EXPECT_EQ( map[1], last );
    EXPECT_EQ( map[0].id.index, 1u );
    EXPECT_TRUE( map[0].hardware.empty() );
}

TEST_F( InspectTest, ASetForgetsWhatWasWrittenBefore ) {
    fill();
    Entry entry( chip, "MAPm" );
    entry.add( "BCMLT_PT_INDEX", 1 );
    entry.add( "CLASS", 1 );
    ASSERT_EQ( entry.ptSet(), Rc::ok );
    EXPECT_EQ( chip.row( 0, "MAPm", { .index = 1 } )->written,
               ( std::vector<bool>{ true, false, false, false, false, false, false } ) );
}

TEST_F( InspectTest, WhatDoesNotExistGivesNothing ) {
    fill();
    EXPECT_TRUE( chip.rows( 1, "MAPm" ).empty() );
    EXPECT_TRUE( chip.rows( 0, "MAP" ).empty() );
    EXPECT_EQ( chip.rowCount( 1, "MAPm" ), 0u );
    EXPECT_EQ( chip.rowCount( 0, "MAP" ), 0u );
    EXPECT_EQ( chip.row( 0, "MAPm", { .index = 8 } ), std::nullopt );
    EXPECT_EQ( chip.row( 0, "MAPm", { .port = 1 } ), std::nullopt );
    EXPECT_EQ( chip.row( 0, "MAPm", { .key = { 1 } } ), std::nullopt );
    EXPECT_EQ( chip.row( 0, "ROUTE", { .key = { 1, 30 } } ), std::nullopt );
    EXPECT_EQ( chip.row( 0, "ROUTE", { .key = { 1 } } ), std::nullopt );
    EXPECT_EQ( chip.row( 0, "ROUTE", { .key = { 17, 10 } } ), std::nullopt );
    EXPECT_NE( chip.row( 0, "ROUTE", { .key = { 1, 10 } } ), std::nullopt );
    EXPECT_EQ( chip.value( 0, "MAPm", { .index = 1 }, "TAGS" ), std::nullopt );
    EXPECT_EQ( chip.value( 0, "MAPm", { .index = 1 }, "TAG", 1 ), std::nullopt );
    EXPECT_EQ( chip.value( 0, "MAPm", { .index = 1 }, "BCMLT_PT_INDEX" ), std::nullopt );
    EXPECT_EQ( chip.lastError(), "" );
}

// --- Keeping a chip

TEST_F( InspectTest, ARestoredChipIsLikeTheOneThatWasKept ) {
    fill();
    Sim::Chip restored;
    restored.addUnit( 0, smallSchema() );
    ASSERT_EQ( restored.clear( 0 ), Rc::ok );
    for ( const Sim::Table & table : chip.schema( 0 )->tables() ) {
        for ( const Sim::RowImage & row : chip.rows( 0, table.name, Rows::stored ) )
            ASSERT_EQ( restored.restoreRow( 0, table.name, row ), Rc::ok );
    }
    for ( const Sim::Table & table : chip.schema( 0 )->tables() ) {
        EXPECT_EQ( restored.rows( 0, table.name, Rows::stored ),
                   chip.rows( 0, table.name, Rows::stored ) )
            << table.name;
        EXPECT_EQ( restored.rowCount( 0, table.name ), chip.rowCount( 0, table.name ) );
    }
    EXPECT_EQ( restored.row( 0, "EVENT", { .key = { 1 } } ), std::nullopt ) << "it was deleted";
    EXPECT_EQ( restored.value( 0, "MAPm", { .index = 6 }, "CLASS", 0, Copy::hardware ), 2u );

    Entry entry( restored, "ROUTE" );
    entry.add( "VRF", 1 );
    entry.add( "PREFIX", 20 );
    EXPECT_EQ( entry.insert(), Rc::entryExists );
}

TEST_F( InspectTest, ARestoredRowTakesThePlaceOfTheOneThere ) {
    fill();
    Sim::RowImage route = chip.rows( 0, "ROUTE" )[0];
    route.values[1] = 77;
    ASSERT_EQ( chip.restoreRow( 0, "ROUTE", route ), Rc::ok );
    EXPECT_EQ( chip.value( 0, "ROUTE", route.id, "HOP" ), 77u );
    EXPECT_EQ( chip.rowCount( 0, "ROUTE" ), 2u );

    Sim::RowImage map = *chip.row( 0, "MAPm", { .index = 6 } );
    map.hardware.clear();
    ASSERT_EQ( chip.restoreRow( 0, "MAPm", map ), Rc::ok );
    EXPECT_EQ( *chip.row( 0, "MAPm", { .index = 6 } ), map );
}

TEST_F( InspectTest, ARowThatDoesNotFitIsNotRestored ) {
    fill();
    const Sim::RowImage route = chip.rows( 0, "ROUTE" )[0];
    const Sim::RowImage map = *chip.row( 0, "MAPm", { .index = 6 } );
    const auto changed = []( Sim::RowImage row,
                             const std::function<void( Sim::RowImage & )> & by ) {
        by( row );
        return row;
    };
    using Row = Sim::RowImage;
    EXPECT_EQ( chip.restoreRow( 1, "ROUTE", route ), Rc::unknownUnit );
    EXPECT_EQ( chip.restoreRow( 0, "ROUTES", route ), Rc::unknownTable );
    EXPECT_EQ( chip.restoreRow( 0, "ROUTE", map ), Rc::elementOutOfRange );
    EXPECT_EQ(
        chip.restoreRow( 0, "MAPm", changed( map, []( Row & r ) { r.written.pop_back(); } ) ),
        Rc::elementOutOfRange );
    EXPECT_EQ(
        chip.restoreRow( 0, "MAPm", changed( map, []( Row & r ) { r.hardware.pop_back(); } ) ),
        Rc::elementOutOfRange );
    EXPECT_EQ( chip.restoreRow( 0, "MAPm", changed( map, []( Row & r ) { r.values[0] = 16; } ) ),
               Rc::valueTooWide );
    EXPECT_EQ( chip.restoreRow( 0, "MAPm", changed( map, []( Row & r ) { r.hardware[2] = 4; } ) ),
               Rc::valueNotAllowed );
    EXPECT_EQ( chip.restoreRow( 0, "MAPm", changed( map, []( Row & r ) { r.id.index = 8; } ) ),
               Rc::indexOutOfRange );
    EXPECT_EQ(
        chip.restoreRow( 0, "ROUTE", changed( route, []( Row & r ) { r.hardware = r.values; } ) ),
        Rc::wrongCommitKind );
    EXPECT_EQ( *chip.row( 0, "MAPm", { .index = 6 } ), map );
    for ( std::uint64_t prefix = 30; prefix < 32; ++prefix ) {
        EXPECT_EQ( chip.restoreRow( 0, "ROUTE",
                                    changed( route, [&]( Row & r ) { r.values[2] = prefix; } ) ),
                   prefix == 30 ? Rc::ok : Rc::tableFull );
    }
}

TEST_F( InspectTest, ClearEmptiesAllTables ) {
    fill();
    EXPECT_EQ( chip.clear( 1 ), Rc::unknownUnit );
    ASSERT_EQ( chip.clear( 0 ), Rc::ok );
    for ( const Sim::Table & table : chip.schema( 0 )->tables() )
        EXPECT_EQ( chip.rowCount( 0, table.name ), 0u ) << table.name;
    EXPECT_EQ( chip.value( 0, "MAPm", { .index = 6 }, "TAG", 0, Copy::hardware ), unwritten12 );
}

// --- Many rows, many threads

// ROUTE and MAPm with as many rows.
Sim::Schema schemaWithRows( std::uint32_t rows ) {
    Sim::Schema schema = smallSchema();
    for ( const char * table : { "ROUTE", "MAPm" } )
        EXPECT_EQ( schema.resize( table, { .rows = rows } ), "" );
    return schema;
}

TEST( ChipSizeTest, AMillionRowsOfEachKind ) {
    constexpr std::uint32_t rows = 1'000'000;
    Sim::Chip chip;
    chip.addUnit( 0, schemaWithRows( rows ) );
    Entry route( chip, "ROUTE" );
    Entry map( chip, "MAPm" );
    route.add( "VRF", 1 );
    // The data changes every `stretch` rows: an entry keeps carrying what was added to it.
    constexpr std::uint64_t stretch = 997;
    for ( std::uint64_t i = 0; i < rows; ++i ) {
        if ( i % stretch == 0 ) {
            route.add( "HOP", i / stretch );
            map.add( "COUNT", i / stretch );
        }
        route.add( "PREFIX", i );
        ASSERT_EQ( route.insert(), Rc::ok );
        map.add( "BCMLT_PT_INDEX", i );
        ASSERT_EQ( map.ptModify(), Rc::ok );
    }
    EXPECT_EQ( chip.rowCount( 0, "ROUTE" ), rows );
    EXPECT_EQ( chip.rowCount( 0, "MAPm" ), rows );
    route.add( "PREFIX", rows );
    EXPECT_EQ( route.insert(), Rc::tableFull );
    for ( std::uint32_t i = 0; i < rows; i += 501 ) {
        EXPECT_EQ( chip.value( 0, "ROUTE", { .key = { 1, i } }, "HOP" ), i / stretch );
        EXPECT_EQ( chip.value( 0, "MAPm", { .index = i }, "COUNT" ), i / stretch );
        EXPECT_EQ( chip.value( 0, "MAPm", { .index = i }, "TAG" ), unwritten12 );
    }
}

// The chip moves rows to larger pieces of memory as a table fills.
TEST( ChipSizeTest, RowsKeepWhatTheyHoldWhileTheTableFillsInAnyOrder ) {
    constexpr std::uint32_t rows = 1u << 18;
    constexpr std::uint32_t written = rows / 4 * 3;
    const auto scattered = []( std::uint32_t i ) { return i * 40'503u % rows; };
    const auto value = []( std::uint32_t row ) { return row % 4'001; };
    Sim::Chip chip;
    chip.addUnit( 0, schemaWithRows( rows ) );
    Entry route( chip, "ROUTE" );
    Entry map( chip, "MAPm" );
    route.add( "VRF", 1 );
    for ( std::uint32_t i = 0; i < written; ++i ) {
        const std::uint32_t row = scattered( i );
        route.add( "PREFIX", row );
        route.add( "HOP", value( row ) );
        ASSERT_EQ( route.insert(), Rc::ok );
        map.add( "BCMLT_PT_INDEX", row );
        map.add( "TAG", value( row ) );
        ASSERT_EQ( map.ptModify(), Rc::ok );
    }
    EXPECT_EQ( chip.rowCount( 0, "ROUTE" ), written );
    EXPECT_EQ( chip.rowCount( 0, "MAPm" ), written );
    for ( std::uint32_t i = 0; i < rows; i += 7 ) {
        const std::uint32_t row = scattered( i );
        const bool there = i < written;
        ASSERT_EQ( chip.row( 0, "ROUTE", { .key = { 1, row } } ).has_value(), there ) << row;
        ASSERT_EQ( chip.value( 0, "MAPm", { .index = row }, "TAG" ),
                   there ? value( row ) : unwritten12 )
            << row;
        if ( there ) {
            ASSERT_EQ( chip.value( 0, "ROUTE", { .key = { 1, row } }, "HOP" ), value( row ) );
        }
    }
}

TEST( ChipThreadTest, ThreadsWorkSideBySide ) {
    constexpr std::uint32_t threads = 4;
    constexpr std::uint32_t rowsEach = 500;
    Sim::Chip chip;
    chip.addUnit( 0, schemaWithRows( threads * rowsEach ) );

    std::vector<std::thread> workers;
    for ( std::uint32_t worker = 0; worker < threads; ++worker ) {
        workers.emplace_back( [&, worker] {
            for ( std::uint32_t i = 0; i < rowsEach; ++i ) {
                chip.preCallHook();
                Entry route( chip, "ROUTE" );
                route.add( "VRF", worker );
                route.add( "PREFIX", i );
                route.add( "HOP", i );
                EXPECT_EQ( route.insert(), Rc::ok );
                // All threads write neighbouring rows of one memory ...
                Entry map( chip, "MAPm" );
                map.add( "BCMLT_PT_INDEX", i * threads + worker );
                map.add( "TAG", i );
                EXPECT_EQ( map.ptModify(), Rc::ok );
                // ... and one register.
                Entry one( chip, "ONEr" );
                one.add( "VALUE", worker );
                EXPECT_EQ( one.ptSet(), Rc::ok );
                EXPECT_EQ( route.add( "VRF", 16 + worker ), Rc::valueTooWide );
                EXPECT_EQ( chip.lastError(), "ROUTE.VRF: value " + std::to_string( 16 + worker ) +
                                                 " needs 5 bits, the field has 4" );
            }
        } );
    }
    for ( std::uint32_t i = 0; i < 50; ++i ) {
        chip.addUnit( static_cast<int>( i ) + 1, smallSchema() );
        for ( const Sim::RowImage & row : chip.rows( 0, "MAPm" ) )
            EXPECT_EQ( row.values[1], row.id.index / threads );
        EXPECT_LE( chip.liveEntries().size(), std::size_t( 3 * threads ) );
    }
    for ( std::thread & worker : workers )
        worker.join();
    EXPECT_EQ( chip.rowCount( 0, "ROUTE" ), threads * rowsEach );
    EXPECT_EQ( chip.rowCount( 0, "MAPm" ), threads * rowsEach );
    EXPECT_LT( chip.value( 0, "ONEr", {}, "VALUE" ), threads );
    EXPECT_EQ( chip.liveEntryCount(), 0u );
    EXPECT_EQ( chip.preCallCount(), threads * rowsEach );
}

} // namespace
