#include "tests/sim/TestChip.h"

#include <gtest/gtest.h>

#include <set>

using namespace SimTest;
using Sim::Rc;

namespace {

class EntryTest : public testing::Test {
  protected:
    EntryTest() { chip.addUnit( 0, smallSchema() ); }

    Rc free( std::uint32_t handle ) { return static_cast<Rc>( chip.bcmlt_entry_free( handle ) ); }
    Rc allocate( int unit, const char * table, std::uint32_t * handle ) {
        return static_cast<Rc>( chip.bcmlt_entry_allocate( unit, table, handle ) );
    }

    Sim::Chip chip;
};

// --- Handles

TEST_F( EntryTest, AnAllocateHandsOutAHandleOfItsOwn ) {
    std::uint32_t first = 0;
    std::uint32_t second = 0;
    ASSERT_EQ( allocate( 0, "ROUTE", &first ), Rc::ok );
    ASSERT_EQ( allocate( 0, "MAPm", &second ), Rc::ok );
    EXPECT_NE( first, chip.BCMLT_INVALID_HDL() );
    EXPECT_NE( second, chip.BCMLT_INVALID_HDL() );
    EXPECT_NE( first, second );
    EXPECT_EQ( free( first ), Rc::ok );
    EXPECT_EQ( free( second ), Rc::ok );
}

TEST_F( EntryTest, AFailedAllocateLeavesTheHandleAlone ) {
    std::uint32_t handle = 77;
    EXPECT_EQ( allocate( 1, "ROUTE", &handle ), Rc::unknownUnit );
    EXPECT_EQ( allocate( -1, "ROUTE", &handle ), Rc::unknownUnit );
    EXPECT_EQ( allocate( 0, "ROUT", &handle ), Rc::unknownTable );
    EXPECT_EQ( allocate( 0, "", &handle ), Rc::unknownTable );
    EXPECT_EQ( allocate( 0, nullptr, &handle ), Rc::nullArgument );
    EXPECT_EQ( allocate( 0, "ROUTE", nullptr ), Rc::nullArgument );
    EXPECT_EQ( handle, 77u );
    EXPECT_EQ( chip.liveEntryCount(), 0u );
}

// Every operation on a handle, for handles that are not those of a live entry.
using HandleOperation = int ( * )( Sim::Chip &, std::uint32_t );
constexpr HandleOperation handleOperations[] = {
    []( Sim::Chip & c, std::uint32_t h ) {
        return c.bcmlt_entry_attrib_set( h, c.BCMLT_ENT_ATTR_GET_FROM_HW() );
    },
    []( Sim::Chip & c, std::uint32_t h ) {
        return c.bcmlt_entry_commit( h, c.BCMLT_OPCODE_INSERT(), c.BCMLT_PRIORITY_NORMAL() );
    },
    []( Sim::Chip & c, std::uint32_t h ) { return c.bcmlt_entry_field_add( h, "VALUE", 1 ); },
    []( Sim::Chip & c, std::uint32_t h ) {
        const std::uint64_t value = 1;
        return c.bcmlt_entry_field_array_add( h, "VALUE", 0, &value, 1 );
    },
    []( Sim::Chip & c, std::uint32_t h ) {
        std::uint64_t value = 0;
        return c.bcmlt_entry_field_get( h, "VALUE", &value );
    },
    []( Sim::Chip & c, std::uint32_t h ) {
        return c.bcmlt_entry_field_symbol_add( h, "VALUE", "ON" );
    },
    []( Sim::Chip & c, std::uint32_t h ) {
        return c.bcmlt_pt_entry_commit( h, c.BCMLT_PT_OPCODE_SET(), c.BCMLT_PRIORITY_NORMAL() );
    },
};

TEST_F( EntryTest, NoOperationTakesAHandleThatWasNeverHandedOut ) {
    std::uint32_t live = 0;
    ASSERT_EQ( allocate( 0, "ONEr", &live ), Rc::ok );
    for ( const std::uint32_t handle :
          { chip.BCMLT_INVALID_HDL(), live + 1, live + 0x10000, ~0u } ) {
        for ( const HandleOperation operation : handleOperations )
            EXPECT_EQ( static_cast<Rc>( operation( chip, handle ) ), Rc::unknownHandle ) << handle;
        EXPECT_EQ( free( handle ), Rc::unknownHandle ) << handle;
    }
    EXPECT_EQ( free( live ), Rc::ok );
}

TEST_F( EntryTest, NoOperationTakesAHandleThatWasFreed ) {
    std::uint32_t freed = 0;
    ASSERT_EQ( allocate( 0, "ONEr", &freed ), Rc::ok );
    ASSERT_EQ( free( freed ), Rc::ok );
    for ( const bool placeIsTaken : { false, true } ) {
        std::uint32_t other = 0;
        if ( placeIsTaken ) {
            ASSERT_EQ( allocate( 0, "ONEr", &other ), Rc::ok );
            EXPECT_NE( other, freed );
        }
        for ( const HandleOperation operation : handleOperations )
            EXPECT_EQ( static_cast<Rc>( operation( chip, freed ) ), Rc::useAfterFree );
        EXPECT_EQ( free( freed ), Rc::doubleFree );
    }
    EXPECT_EQ( chip.liveEntryCount(), 1u ) << "the other entry was not freed by mistake";
}

TEST_F( EntryTest, AHandleIsNotHandedOutAgainSoon ) {
    std::set<std::uint32_t> handles;
    for ( int i = 0; i < 65'536; ++i ) {
        std::uint32_t handle = 0;
        ASSERT_EQ( allocate( 0, "ONEr", &handle ), Rc::ok );
        ASSERT_TRUE( handles.insert( handle ).second );
        ASSERT_EQ( free( handle ), Rc::ok );
    }
}

TEST_F( EntryTest, OnlySoManyEntriesCanBeLive ) {
    std::vector<std::uint32_t> handles( 65'535 );
    for ( std::uint32_t & handle : handles )
        ASSERT_EQ( allocate( 0, "ONEr", &handle ), Rc::ok );
    std::uint32_t more = 0;
    EXPECT_EQ( allocate( 0, "ONEr", &more ), Rc::tooManyEntries );
    ASSERT_EQ( free( handles[5] ), Rc::ok );
    EXPECT_EQ( allocate( 0, "ONEr", &more ), Rc::ok );
    EXPECT_EQ( chip.liveEntryCount(), 65'535u );
}

TEST_F( EntryTest, AReusedEntryCarriesNothingOfTheOneBefore ) {
    {
        Entry entry( chip, "GRIDm" );
        entry.add( "BCMLT_PT_INDEX", 1 );
        entry.add( "BCMLT_PT_INSTANCE", 1 );
        entry.add( "BCMLT_PT_PORT", 1 );
        entry.add( "VALUE", 1 );
        entry.fromHardware();
    }
    Entry entry( chip, "GRIDm" );
    EXPECT_EQ( entry.get( "VALUE" ), std::nullopt );
    EXPECT_EQ( entry.get( "BCMLT_PT_INDEX" ), std::nullopt );
    EXPECT_EQ( entry.ptModify(), Rc::addressMissing );
    ASSERT_EQ( chip.pokeHardware( 0, "GRIDm", {}, "VALUE", 9 ), Rc::ok );
    entry.add( "BCMLT_PT_INDEX", 0 );
    entry.add( "BCMLT_PT_INSTANCE", 0 );
    entry.add( "BCMLT_PT_PORT", 0 );
    ASSERT_EQ( entry.ptGet(), Rc::ok );
    EXPECT_EQ( entry.get( "VALUE" ), unwritten8 ) << "the attribute was of the entry before";
}

TEST_F( EntryTest, LeaksAreCounted ) {
    EXPECT_EQ( chip.liveEntryCount(), 0u );
    chip.addUnit( 2, smallSchema() );
    Entry first( chip, "ROUTE" );
    std::uint32_t leaked = 0;
    {
        Entry second( chip, "ONEr" );
        ASSERT_EQ( allocate( 2, "MAPm", &leaked ), Rc::ok );
        EXPECT_EQ( chip.liveEntryCount(), 3u );
    }
    const std::vector<Sim::LiveEntry> wanted = { { first.handle(), 0, "ROUTE" },
                                                 { leaked, 2, "MAPm" } };
    EXPECT_EQ( chip.liveEntries(), wanted );
    EXPECT_EQ( chip.liveEntryCount(), 2u );
    ASSERT_EQ( free( leaked ), Rc::ok );
    EXPECT_EQ( chip.liveEntryCount(), 1u );
}

// --- Fields

TEST_F( EntryTest, AddingAFieldAgainReplacesItsValue ) {
    Entry entry( chip, "ONEr" );
    ASSERT_EQ( entry.add( "VALUE", 1 ), Rc::ok );
    ASSERT_EQ( entry.add( "VALUE", 2 ), Rc::ok );
    EXPECT_EQ( entry.get( "VALUE" ), 2u );
}

struct ValueCase {
    const char * table;
    const char * field;
    std::uint64_t value;
    Rc rc;
};

constexpr ValueCase valueCases[] = {
    { "MAPm", "CLASS", 0, Rc::ok },
    { "MAPm", "CLASS", 15, Rc::ok },
    { "MAPm", "CLASS", 16, Rc::valueTooWide },
    { "MAPm", "CLASS", ~std::uint64_t( 0 ), Rc::valueTooWide },
    { "MAPm", "COUNT", ~std::uint64_t( 0 ), Rc::ok },
    { "MAPm", "MODE", 0, Rc::ok },
    { "MAPm", "MODE", 5, Rc::ok },
    { "MAPm", "MODE", 4, Rc::valueNotAllowed },
    { "MAPm", "MODE", 8, Rc::valueTooWide },
    { "MAPm", "WORDS", 1, Rc::arrayField },
    { "MAPm", "CLAS", 1, Rc::unknownField },
    { "MAPm", "class", 1, Rc::unknownField },
    { "MAPm", "", 1, Rc::unknownField },
    { "ROUTE", "VRF", 16, Rc::valueTooWide },
    { "ROUTE", "BCMLT_PT_INDEX", 0, Rc::unknownField },
    { "ROUTE", "BCMLT_PT_PORT", 0, Rc::unknownField },
    { "EVENT", "ID", 3, Rc::ok },
    { "EVENT", "ID", 2, Rc::valueNotAllowed },
};

TEST_F( EntryTest, ANumberIsCheckedAgainstTheField ) {
    for ( const ValueCase & test : valueCases ) {
        SCOPED_TRACE( std::string( test.table ) + "." + test.field + " " +
                      std::to_string( test.value ) );
        Entry entry( chip, test.table );
        EXPECT_EQ( entry.add( test.field, test.value ), test.rc );
        if ( test.rc == Rc::ok ) {
            EXPECT_EQ( entry.get( test.field ), test.value );
        } else {
            EXPECT_EQ( entry.get( test.field ), std::nullopt ) << "a refused value is not carried";
        }
    }
}

struct SymbolCase {
    const char * table;
    const char * field;
    const char * symbol;
    Rc rc;
};

constexpr SymbolCase symbolCases[] = {
    { "MAPm", "MODE", "AUTO", Rc::ok },
    { "MAPm", "MODE", "AUTOS", Rc::unknownSymbol },
    { "MAPm", "MODE", "auto", Rc::unknownSymbol },
    { "MAPm", "MODE", "", Rc::unknownSymbol },
    { "MAPm", "MODE", nullptr, Rc::nullArgument },
    { "MAPm", "CLASS", "AUTO", Rc::symbolOnNumber },
    { "MAPm", "WORDS", "AUTO", Rc::arrayField },
    { "MAPm", "BCMLT_PT_INDEX", "AUTO", Rc::symbolOnNumber },
    { "MAPm", "MOD", "AUTO", Rc::unknownField },
    { "EVENT", "ID", "HIT", Rc::ok },
    { "EVENT", "ID", "AUTO", Rc::unknownSymbol },
};

TEST_F( EntryTest, ASymbolIsCheckedAgainstTheField ) {
    for ( const SymbolCase & test : symbolCases ) {
        SCOPED_TRACE( std::string( test.table ) + "." + test.field + " " +
                      ( test.symbol ? test.symbol : "null" ) );
        Entry entry( chip, test.table );
        EXPECT_EQ( entry.symbol( test.field, test.symbol ), test.rc );
    }
}

TEST_F( EntryTest, ASymbolStandsForItsValue ) {
    Entry entry( chip, "MAPm" );
    ASSERT_EQ( entry.symbol( "MODE", "AUTO" ), Rc::ok );
    EXPECT_EQ( entry.get( "MODE" ), 5u );
}

struct ArrayCase {
    const char * field;
    std::uint32_t start;
    std::vector<std::uint64_t> values;
    Rc rc;
};

TEST_F( EntryTest, AnArrayIsCheckedAgainstTheField ) {
    const std::vector<ArrayCase> arrayCases = {
        { "WORDS", 0, { 1, 2, 3 }, Rc::ok },
        { "WORDS", 2, { 1 }, Rc::ok },
        { "WORDS", 0, {}, Rc::ok },
        { "WORDS", 3, {}, Rc::ok },
        { "WORDS", 4, {}, Rc::elementOutOfRange },
        { "WORDS", 0, { 1, 2, 3, 4 }, Rc::elementOutOfRange },
        { "WORDS", 3, { 1 }, Rc::elementOutOfRange },
        { "WORDS", ~0u, { 1 }, Rc::elementOutOfRange },
        { "WORDS", 0, { 1, 0x100'0000'0000 }, Rc::valueTooWide },
        { "CLASS", 0, { 1 }, Rc::scalarField },
        { "BCMLT_PT_INDEX", 0, { 1 }, Rc::scalarField },
        { "WORD", 0, { 1 }, Rc::unknownField },
    };
    std::uint32_t index = 0;
    for ( const ArrayCase & test : arrayCases ) {
        SCOPED_TRACE( index );
        ASSERT_EQ( chip.clear( 0 ), Rc::ok );
        Entry entry( chip, "MAPm" );
        entry.add( "BCMLT_PT_INDEX", 0 );
        EXPECT_EQ( entry.array( test.field, test.start, test.values ), test.rc );
        ASSERT_EQ( entry.ptModify(), Rc::ok );
        for ( std::uint32_t i = 0; i < 3; ++i ) {
            const bool isGiven =
                test.rc == Rc::ok && i >= test.start && i < test.start + test.values.size();
            EXPECT_EQ( chip.value( 0, "MAPm", {}, "WORDS", i ),
                       isGiven ? test.values[i - test.start] : 0xA5A5A5A5A5u );
        }
        ++index;
    }
}

TEST_F( EntryTest, ATooLongArrayIsRefusedBeforeItIsRead ) {
    Entry entry( chip, "MAPm" );
    const std::uint64_t one = 1;
    EXPECT_EQ( chip.bcmlt_entry_field_array_add( entry.handle(), "WORDS", 0, &one, 0xFFFF'FFFF ),
               toInt( Rc::elementOutOfRange ) );
}

TEST_F( EntryTest, NullPointersAreRefused ) {
    Entry entry( chip, "MAPm" );
    std::uint64_t value = 0;
    const std::uint32_t h = entry.handle();
    EXPECT_EQ( entry.add( nullptr, 1 ), Rc::nullArgument );
    EXPECT_EQ( entry.symbol( nullptr, "ON" ), Rc::nullArgument );
    EXPECT_EQ( entry.array( nullptr, 0, { 1 } ), Rc::nullArgument );
    EXPECT_EQ( chip.bcmlt_entry_field_array_add( h, "WORDS", 0, nullptr, 1 ),
               toInt( Rc::nullArgument ) );
    EXPECT_EQ( chip.bcmlt_entry_field_array_add( h, "WORDS", 0, nullptr, 0 ), 0 );
    EXPECT_EQ( chip.bcmlt_entry_field_get( h, nullptr, &value ), toInt( Rc::nullArgument ) );
    EXPECT_EQ( chip.bcmlt_entry_field_get( h, "TAG", nullptr ), toInt( Rc::nullArgument ) );
}

TEST_F( EntryTest, AFieldThatTheEntryDoesNotHoldCannotBeRead ) {
    Entry entry( chip, "MAPm" );
    std::uint64_t value = 42;
    EXPECT_EQ( chip.bcmlt_entry_field_get( entry.handle(), "TAG", &value ),
               toInt( Rc::fieldNotCarried ) );
    EXPECT_EQ( chip.bcmlt_entry_field_get( entry.handle(), "TAGS", &value ),
               toInt( Rc::unknownField ) );
    EXPECT_EQ( chip.bcmlt_entry_field_get( entry.handle(), "WORDS", &value ),
               toInt( Rc::arrayField ) );
    EXPECT_EQ( value, 42u );
    entry.add( "TAG", 6 );
    EXPECT_EQ( entry.get( "TAG" ), 6u );
}

// --- Commits and attributes

TEST_F( EntryTest, TheCommitMustSuitTheTable ) {
    Entry logical( chip, "POLICY" );
    EXPECT_EQ( logical.ptSet(), Rc::wrongCommitKind );
    EXPECT_EQ( logical.insert(), Rc::ok );
    Entry physical( chip, "ONEr" );
    EXPECT_EQ( physical.insert(), Rc::wrongCommitKind );
    EXPECT_EQ( physical.ptSet(), Rc::ok );
}

TEST_F( EntryTest, TheOpcodeMustSuitTheCommit ) {
    Entry logical( chip, "POLICY" );
    EXPECT_EQ( logical.commit( chip.BCMLT_PT_OPCODE_SET() ), Rc::unknownOpcode );
    EXPECT_EQ( logical.commit( 0 ), Rc::unknownOpcode );
    Entry physical( chip, "ONEr" );
    EXPECT_EQ( physical.ptCommit( chip.BCMLT_OPCODE_INSERT() ), Rc::unknownOpcode );
    EXPECT_EQ( physical.ptCommit( ~0u ), Rc::unknownOpcode );
}

TEST_F( EntryTest, ThePriorityMustBeOne ) {
    Entry logical( chip, "POLICY" );
    EXPECT_EQ( chip.bcmlt_entry_commit( logical.handle(), chip.BCMLT_OPCODE_INSERT(), 1 ),
               toInt( Rc::unknownPriority ) );
    Entry physical( chip, "ONEr" );
    EXPECT_EQ( chip.bcmlt_pt_entry_commit( physical.handle(), chip.BCMLT_PT_OPCODE_SET(), 1 ),
               toInt( Rc::unknownPriority ) );
}

TEST_F( EntryTest, TheAttributeMustBeOneAndSuitTheTable ) {
    Entry physical( chip, "ONEr" );
    EXPECT_EQ( physical.fromHardware(), Rc::ok );
    EXPECT_EQ( chip.bcmlt_entry_attrib_set( physical.handle(), 5 ), toInt( Rc::unknownAttribute ) );
    Entry logical( chip, "POLICY" );
    EXPECT_EQ( logical.fromHardware(), Rc::unknownAttribute );
}

TEST_F( EntryTest, ConstantsDifferFromOneAnother ) {
    const std::set<std::uint32_t> numbers = {
        chip.BCMLT_INVALID_HDL(),      chip.BCMLT_ENT_ATTR_GET_FROM_HW(),
        chip.BCMLT_OPCODE_DELETE(),    chip.BCMLT_OPCODE_INSERT(),
        chip.BCMLT_OPCODE_LOOKUP(),    chip.BCMLT_OPCODE_UPDATE(),
        chip.BCMLT_PRIORITY_NORMAL(),  chip.BCMLT_PT_OPCODE_GET(),
        chip.BCMLT_PT_OPCODE_MODIFY(), chip.BCMLT_PT_OPCODE_SET() };
    EXPECT_EQ( numbers.size(), 10u );
}

TEST_F( EntryTest, NameConstantsAreTheTexts ) {
    EXPECT_STREQ( chip.ENABLEs(), "ENABLE" );
    EXPECT_STREQ( chip.NUM_LANESs(), "NUM_LANES" );
    EXPECT_STREQ( chip.PC_PHYS_PORT_IDs(), "PC_PHYS_PORT_ID" );
    EXPECT_STREQ( chip.PC_PORT_PHYS_MAPs(), "PC_PORT_PHYS_MAP" );
    EXPECT_STREQ( chip.PC_PORTs(), "PC_PORT" );
    EXPECT_STREQ( chip.PORT_IDs(), "PORT_ID" );
    EXPECT_STREQ( chip.SPEEDs(), "SPEED" );
}

} // namespace
