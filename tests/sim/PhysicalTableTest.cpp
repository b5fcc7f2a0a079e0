#include "tests/sim/TestChip.h"

#include <gtest/gtest.h>

using namespace SimTest;
using Sim::Copy;
using Sim::Rc;

namespace {

class PhysicalTableTest : public testing::Test {
  protected:
    PhysicalTableTest() { chip.addUnit( 0, smallSchema() ); }

    std::optional<std::uint64_t> map( std::uint32_t index, const char * field,
                                      std::uint32_t element = 0 ) {
        return chip.value( 0, "MAPm", { .index = index }, field, element );
    }

    std::optional<std::uint64_t> port( Copy copy ) {
        return chip.value( 0, "PORTr", { .port = 1 }, "VALUE", 0, copy );
    }

    // Register PORTr of port 1 as somebody wrote it, and as the chip changed it by itself.
    void writeThenPoke() {
        Entry entry( chip, "PORTr" );
        ASSERT_EQ( entry.add( "BCMLT_PT_PORT", 1 ), Rc::ok );
        ASSERT_EQ( entry.add( "VALUE", 10 ), Rc::ok );
        ASSERT_EQ( entry.add( "OTHER", 20 ), Rc::ok );
        ASSERT_EQ( entry.ptSet(), Rc::ok );
        ASSERT_EQ( chip.pokeHardware( 0, "PORTr", { .port = 1 }, "VALUE", 11 ), Rc::ok );
    }

    Sim::Chip chip;
};

TEST_F( PhysicalTableTest, WhatNobodyWroteIsRecognisable ) {
    Entry entry( chip, "MAPm" );
    entry.add( "BCMLT_PT_INDEX", 7 );
    ASSERT_EQ( entry.ptGet(), Rc::ok );
    EXPECT_EQ( entry.get( "CLASS" ), unwritten4 );
    EXPECT_EQ( entry.get( "TAG" ), unwritten12 );
    EXPECT_EQ( entry.get( "COUNT" ), 11u ) << "the power-on value";
    EXPECT_EQ( entry.get( "MODE" ), 1u ) << "a field with symbols starts with its reset value";
    EXPECT_EQ( map( 7, "WORDS", 2 ), 0xA5A5A5A5A5u );
    EXPECT_EQ( chip.rowCount( 0, "MAPm" ), 0u ) << "a GET writes nothing";
}

TEST_F( PhysicalTableTest, SetResetsTheFieldsThatTheEntryDoesNotCarry ) {
    Entry entry( chip, "MAPm" );
    entry.add( "BCMLT_PT_INDEX", 2 );
    entry.add( "CLASS", 9 );
    entry.array( "WORDS", 1, { 77 } );
    ASSERT_EQ( entry.ptSet(), Rc::ok );
    EXPECT_EQ( map( 2, "CLASS" ), 9u );
    EXPECT_EQ( map( 2, "TAG" ), 3u );
    EXPECT_EQ( map( 2, "COUNT" ), 0u );
    EXPECT_EQ( map( 2, "WORDS", 0 ), 6u );
    EXPECT_EQ( map( 2, "WORDS", 1 ), 77u );
    EXPECT_EQ( map( 2, "WORDS", 2 ), 6u );
    EXPECT_EQ( map( 1, "CLASS" ), unwritten4 ) << "another row";
}

TEST_F( PhysicalTableTest, ModifyKeepsTheFieldsThatTheEntryDoesNotCarry ) {
    Entry entry( chip, "MAPm" );
    entry.add( "BCMLT_PT_INDEX", 2 );
    entry.add( "CLASS", 9 );
    entry.array( "WORDS", 1, { 77 } );
    ASSERT_EQ( entry.ptModify(), Rc::ok );
    EXPECT_EQ( map( 2, "CLASS" ), 9u );
    EXPECT_EQ( map( 2, "TAG" ), unwritten12 );
    EXPECT_EQ( map( 2, "COUNT" ), 11u );
    EXPECT_EQ( map( 2, "WORDS", 0 ), 0xA5A5A5A5A5u );
    EXPECT_EQ( map( 2, "WORDS", 1 ), 77u );
    EXPECT_EQ( map( 2, "WORDS", 2 ), 0xA5A5A5A5A5u );

    Entry second( chip, "MAPm" );
    second.add( "BCMLT_PT_INDEX", 2 );
    second.add( "TAG", 1 );
    ASSERT_EQ( second.ptModify(), Rc::ok );
    EXPECT_EQ( map( 2, "CLASS" ), 9u );
    EXPECT_EQ( map( 2, "TAG" ), 1u );
}

TEST_F( PhysicalTableTest, ModifyWithoutFieldsChangesNothing ) {
    Entry entry( chip, "ONEr" );
    EXPECT_EQ( entry.ptModify(), Rc::ok );
    EXPECT_EQ( chip.value( 0, "ONEr", {}, "VALUE" ), unwritten8 );
}

TEST_F( PhysicalTableTest, WideValuesKeepAllTheirBits ) {
    Entry entry( chip, "MAPm" );
    entry.add( "BCMLT_PT_INDEX", 0 );
    ASSERT_EQ( entry.add( "COUNT", 0xFEDC'BA98'7654'3210 ), Rc::ok );
    ASSERT_EQ( entry.array( "WORDS", 0, { 0xFF'FFFF'FFFF, 0, 0x12'3456'789A } ), Rc::ok );
    ASSERT_EQ( entry.ptSet(), Rc::ok );
    EXPECT_EQ( map( 0, "COUNT" ), 0xFEDC'BA98'7654'3210 );
    EXPECT_EQ( map( 0, "WORDS", 0 ), 0xFF'FFFF'FFFFu );
    EXPECT_EQ( map( 0, "WORDS", 1 ), 0u );
    EXPECT_EQ( map( 0, "WORDS", 2 ), 0x12'3456'789Au );
}

TEST_F( PhysicalTableTest, SetAfterGetWritesBackWhatWasRead ) {
    Entry entry( chip, "PORTr" );
    entry.add( "BCMLT_PT_PORT", 1 );
    ASSERT_EQ( entry.ptGet(), Rc::ok );
    ASSERT_EQ( entry.add( "VALUE", 1 ), Rc::ok );
    ASSERT_EQ( entry.ptSet(), Rc::ok );
    EXPECT_EQ( port( Copy::cache ), 1u );
    EXPECT_EQ( chip.value( 0, "PORTr", { .port = 1 }, "OTHER" ), unwritten8 ) << "not reset to 0";
}

// --- Which row

struct AddressCase {
    const char * table;
    const char * field; // null: no address
    std::uint64_t value;
    Rc onAdd;
    Rc onCommit;
};

constexpr AddressCase addressCases[] = {
    { "MAPm", "BCMLT_PT_INDEX", 0, Rc::ok, Rc::ok },
    { "MAPm", "BCMLT_PT_INDEX", 7, Rc::ok, Rc::ok },
    { "MAPm", "BCMLT_PT_INDEX", 8, Rc::indexOutOfRange, Rc::addressMissing },
    { "MAPm", "BCMLT_PT_INDEX", 0x1'0000'0000, Rc::indexOutOfRange, Rc::addressMissing },
    { "MAPm", nullptr, 0, Rc::ok, Rc::addressMissing },
    { "MAPm", "BCMLT_PT_INSTANCE", 0, Rc::ok, Rc::addressMissing },
    { "ONEr", nullptr, 0, Rc::ok, Rc::ok },
    { "ONEr", "BCMLT_PT_INDEX", 0, Rc::ok, Rc::ok },
    { "ONEr", "BCMLT_PT_INDEX", 1, Rc::indexOutOfRange, Rc::ok },
    { "ONEr", "BCMLT_PT_INSTANCE", 0, Rc::ok, Rc::ok },
    { "ONEr", "BCMLT_PT_INSTANCE", 1, Rc::instanceOutOfRange, Rc::ok },
    { "ONEr", "BCMLT_PT_PORT", 0, Rc::notPerPort, Rc::ok },
    { "PIPEr", nullptr, 0, Rc::ok, Rc::addressMissing },
    { "PIPEr", "BCMLT_PT_INSTANCE", 1, Rc::ok, Rc::ok },
    { "PIPEr", "BCMLT_PT_INSTANCE", 2, Rc::instanceOutOfRange, Rc::addressMissing },
    { "PORTr", nullptr, 0, Rc::ok, Rc::addressMissing },
    { "PORTr", "BCMLT_PT_PORT", 2, Rc::ok, Rc::ok },
    { "PORTr", "BCMLT_PT_PORT", 3, Rc::portOutOfRange, Rc::addressMissing },
};

TEST_F( PhysicalTableTest, TheAddressIsCheckedAgainstTheTable ) {
    for ( const AddressCase & test : addressCases ) {
        SCOPED_TRACE( std::string( test.table ) + " " + ( test.field ? test.field : "" ) + " " +
                      std::to_string( test.value ) );
        Entry entry( chip, test.table );
        if ( test.field != nullptr ) {
            EXPECT_EQ( entry.add( test.field, test.value ), test.onAdd );
        }
        EXPECT_EQ( entry.ptGet(), test.onCommit );
        EXPECT_EQ( entry.ptModify(), test.onCommit );
        EXPECT_EQ( entry.ptSet(), test.onCommit );
    }
}

TEST_F( PhysicalTableTest, EachIndexInstanceAndPortHasARowOfItsOwn ) {
    std::uint64_t next = 0;
    for ( const bool check : { false, true } ) {
        next = 0;
        for ( std::uint32_t instance = 0; instance < 2; ++instance ) {
            for ( std::uint32_t port = 0; port < 3; ++port ) {
                for ( std::uint32_t index = 0; index < 5; ++index, ++next ) {
                    if ( check ) {
                        EXPECT_EQ( chip.value( 0, "GRIDm", { index, instance, port }, "VALUE" ),
                                   next );
                        continue;
                    }
                    Entry entry( chip, "GRIDm" );
                    entry.add( "BCMLT_PT_PORT", port );
                    entry.add( "BCMLT_PT_INDEX", index );
                    entry.add( "VALUE", next );
                    entry.add( "BCMLT_PT_INSTANCE", instance );
                    ASSERT_EQ( entry.ptSet(), Rc::ok );
                }
            }
        }
    }
    const std::vector<Sim::RowImage> rows = chip.rows( 0, "GRIDm" );
    ASSERT_EQ( rows.size(), 30u );
    for ( std::uint64_t i = 0; i < rows.size(); ++i ) {
        EXPECT_EQ( rows[i].values, std::vector<std::uint64_t>{ i } );
        EXPECT_EQ( rows[i].id.index, i % 5 );
        EXPECT_EQ( rows[i].id.port, i / 5 % 3 );
        EXPECT_EQ( rows[i].id.instance, i / 15 );
    }
}

TEST_F( PhysicalTableTest, AnAddressCanBeReadBackOnceItWasAdded ) {
    Entry entry( chip, "GRIDm" );
    EXPECT_EQ( entry.get( "BCMLT_PT_INDEX" ), std::nullopt );
    entry.add( "BCMLT_PT_INDEX", 4 );
    EXPECT_EQ( entry.get( "BCMLT_PT_INDEX" ), 4u );
    EXPECT_EQ( entry.get( "BCMLT_PT_PORT" ), std::nullopt );
}

// --- Cache and hardware

TEST_F( PhysicalTableTest, AChangeInTheHardwareDoesNotShowInTheCache ) {
    writeThenPoke();
    EXPECT_EQ( port( Copy::cache ), 10u );
    EXPECT_EQ( port( Copy::hardware ), 11u );
    EXPECT_EQ( chip.value( 0, "PORTr", { .port = 1 }, "OTHER", 0, Copy::hardware ), 20u );
}

TEST_F( PhysicalTableTest, GetReadsTheCache ) {
    writeThenPoke();
    Entry entry( chip, "PORTr" );
    entry.add( "BCMLT_PT_PORT", 1 );
    ASSERT_EQ( entry.ptGet(), Rc::ok );
    EXPECT_EQ( entry.get( "VALUE" ), 10u );
    EXPECT_EQ( port( Copy::hardware ), 11u );
}

TEST_F( PhysicalTableTest, GetFromTheHardwareRefreshesTheCache ) {
    writeThenPoke();
    {
        Entry entry( chip, "PORTr" );
        entry.add( "BCMLT_PT_PORT", 1 );
        ASSERT_EQ( entry.fromHardware(), Rc::ok );
        ASSERT_EQ( entry.ptGet(), Rc::ok );
        EXPECT_EQ( entry.get( "VALUE" ), 11u );
        EXPECT_EQ( entry.get( "OTHER" ), 20u );
    }
    Entry entry( chip, "PORTr" );
    entry.add( "BCMLT_PT_PORT", 1 );
    ASSERT_EQ( entry.ptGet(), Rc::ok );
    EXPECT_EQ( entry.get( "VALUE" ), 11u ) << "a plain GET sees it now";
}

TEST_F( PhysicalTableTest, GetFromTheHardwareOfARowThatNobodyWroteWritesNothing ) {
    Entry entry( chip, "PORTr" );
    entry.add( "BCMLT_PT_PORT", 1 );
    ASSERT_EQ( entry.fromHardware(), Rc::ok );
    ASSERT_EQ( entry.ptGet(), Rc::ok );
    EXPECT_EQ( entry.get( "VALUE" ), unwritten8 );
    EXPECT_EQ( chip.rowCount( 0, "PORTr" ), 0u );
}

TEST_F( PhysicalTableTest, ModifyLosesAChangeBehindTheCache ) {
    writeThenPoke();
    Entry entry( chip, "PORTr" );
    entry.add( "BCMLT_PT_PORT", 1 );
    entry.add( "OTHER", 21 );
    ASSERT_EQ( entry.ptModify(), Rc::ok );
    EXPECT_EQ( port( Copy::cache ), 10u );
    EXPECT_EQ( port( Copy::hardware ), 10u );
    EXPECT_EQ( chip.value( 0, "PORTr", { .port = 1 }, "OTHER", 0, Copy::hardware ), 21u );
}

TEST_F( PhysicalTableTest, ModifyFromTheHardwareKeepsAChangeBehindTheCache ) {
    writeThenPoke();
    Entry entry( chip, "PORTr" );
    entry.add( "BCMLT_PT_PORT", 1 );
    entry.add( "OTHER", 21 );
    ASSERT_EQ( entry.fromHardware(), Rc::ok );
    ASSERT_EQ( entry.ptModify(), Rc::ok );
    EXPECT_EQ( port( Copy::cache ), 11u );
    EXPECT_EQ( port( Copy::hardware ), 11u );
}

TEST_F( PhysicalTableTest, SetWritesCacheAndHardware ) {
    writeThenPoke();
    Entry entry( chip, "PORTr" );
    entry.add( "BCMLT_PT_PORT", 1 );
    entry.add( "VALUE", 12 );
    ASSERT_EQ( entry.ptSet(), Rc::ok );
    EXPECT_EQ( port( Copy::cache ), 12u );
    EXPECT_EQ( port( Copy::hardware ), 12u );
}

TEST_F( PhysicalTableTest, APokeOfTheCachedValueMakesNoDifference ) {
    writeThenPoke();
    ASSERT_EQ( chip.pokeHardware( 0, "PORTr", { .port = 1 }, "VALUE", 10 ), Rc::ok );
    EXPECT_TRUE( chip.row( 0, "PORTr", { .port = 1 } )->hardware.empty() );
}

TEST_F( PhysicalTableTest, APokeReachesArrayElements ) {
    ASSERT_EQ( chip.pokeHardware( 0, "MAPm", { .index = 3 }, "WORDS", 5, 2 ), Rc::ok );
    EXPECT_EQ( chip.value( 0, "MAPm", { .index = 3 }, "WORDS", 2, Copy::hardware ), 5u );
    EXPECT_EQ( chip.value( 0, "MAPm", { .index = 3 }, "WORDS", 1, Copy::hardware ), 0xA5A5A5A5A5u );
    EXPECT_EQ( chip.value( 0, "MAPm", { .index = 3 }, "WORDS", 2, Copy::cache ), 0xA5A5A5A5A5u );
}

TEST_F( PhysicalTableTest, APokeIsHeldToTheRulesOfFields ) {
    EXPECT_EQ( chip.pokeHardware( 1, "MAPm", {}, "TAG", 1 ), Rc::unknownUnit );
    EXPECT_EQ( chip.pokeHardware( 0, "MAP", {}, "TAG", 1 ), Rc::unknownTable );
    EXPECT_EQ( chip.pokeHardware( 0, "ROUTE", { .key = { 1, 2 } }, "HOP", 1 ),
               Rc::wrongCommitKind );
    EXPECT_EQ( chip.pokeHardware( 0, "MAPm", { .index = 8 }, "TAG", 1 ), Rc::indexOutOfRange );
    EXPECT_EQ( chip.pokeHardware( 0, "MAPm", { .instance = 1 }, "TAG", 1 ),
               Rc::instanceOutOfRange );
    EXPECT_EQ( chip.pokeHardware( 0, "MAPm", { .port = 1 }, "TAG", 1 ), Rc::notPerPort );
    EXPECT_EQ( chip.pokeHardware( 0, "MAPm", {}, "TAGS", 1 ), Rc::unknownField );
    EXPECT_EQ( chip.pokeHardware( 0, "MAPm", {}, "BCMLT_PT_INDEX", 1 ), Rc::unknownField );
    EXPECT_EQ( chip.pokeHardware( 0, "MAPm", {}, "WORDS", 1, 3 ), Rc::elementOutOfRange );
    EXPECT_EQ( chip.pokeHardware( 0, "MAPm", {}, "TAG", 1, 1 ), Rc::elementOutOfRange );
    EXPECT_EQ( chip.pokeHardware( 0, "MAPm", {}, "TAG", 4096 ), Rc::valueTooWide );
    EXPECT_EQ( chip.pokeHardware( 0, "MAPm", {}, "MODE", 4 ), Rc::valueNotAllowed );
    EXPECT_EQ( chip.rowCount( 0, "MAPm" ), 0u );
}

TEST_F( PhysicalTableTest, ACommitIsJudgedAndNotMade ) {
    const auto judge = [&]( const Entry & entry, std::uint32_t opcode ) {
        return static_cast<Rc>(
            chip.judgePtCommit( entry.handle(), opcode, chip.BCMLT_PRIORITY_NORMAL() ) );
    };
    Entry entry( chip, "MAPm" );
    entry.add( "TAG", 7 );
    EXPECT_EQ( judge( entry, chip.BCMLT_PT_OPCODE_SET() ), Rc::addressMissing );
    entry.add( "BCMLT_PT_INDEX", 3 );
    EXPECT_EQ( judge( entry, chip.BCMLT_PT_OPCODE_SET() ), Rc::ok );
    EXPECT_EQ( judge( entry, chip.BCMLT_PT_OPCODE_MODIFY() ), Rc::ok );
    EXPECT_EQ( judge( entry, chip.BCMLT_PT_OPCODE_GET() ), Rc::ok );
    EXPECT_EQ( entry.get( "CLASS" ), std::nullopt );
    EXPECT_EQ( chip.rowCount( 0, "MAPm" ), 0u );
    EXPECT_EQ( judge( entry, chip.BCMLT_OPCODE_INSERT() ), Rc::unknownOpcode );
    const Entry logical( chip, "ROUTE" );
    EXPECT_EQ( judge( logical, chip.BCMLT_PT_OPCODE_SET() ), Rc::wrongCommitKind );
}

} // namespace
