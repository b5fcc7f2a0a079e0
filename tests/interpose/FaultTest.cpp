#include "tests/sim/TestChip.h"

#include "interpose/FaultInjector.h"

#include <gtest/gtest.h>

#include <atomic>
#include <ostream>
#include <stdexcept>
#include <thread>

using namespace Interpose;
using namespace Sim;
using SimTest::smallSchema;
using Codes = std::vector<int>;

namespace {

// A chip behind a fault injector.
struct FaultyChip {
    FaultyChip() {
        chip.addUnit( 0, smallSchema() );
        chip.addUnit( 1, smallSchema() );
    }

    // A visit to a memory; the codes of its operations, in order: allocate, field add, array add,
    // symbol add, attribute, MODIFY, GET, field get, free.
    Codes visit( int unit = 0, const char * table = "MAPm" ) {
        Codes codes;
        handle = 99;
        value = 99;
        const std::uint64_t words[] = { 1, 2 };
        codes.push_back( faults.bcmlt_entry_allocate( unit, table, &handle ) );
        codes.push_back( faults.bcmlt_entry_field_add( handle, "BCMLT_PT_INDEX", 0 ) );
        codes.push_back( faults.bcmlt_entry_field_array_add( handle, "WORDS", 0, words, 2 ) );
        codes.push_back( faults.bcmlt_entry_field_symbol_add( handle, "MODE", "ON" ) );
        codes.push_back(
            faults.bcmlt_entry_attrib_set( handle, faults.BCMLT_ENT_ATTR_GET_FROM_HW() ) );
        codes.push_back( ptCommit( faults.BCMLT_PT_OPCODE_MODIFY() ) );
        codes.push_back( ptCommit( faults.BCMLT_PT_OPCODE_GET() ) );
        codes.push_back( faults.bcmlt_entry_field_get( handle, "TAG", &value ) );
        codes.push_back( faults.bcmlt_entry_free( handle ) );
        return codes;
    }

    int ptCommit( std::uint32_t opcode ) {
        return faults.bcmlt_pt_entry_commit( handle, opcode, faults.BCMLT_PRIORITY_NORMAL() );
    }

    // Inserts the one row of POLICY; the code of the commit.
    int insertPolicy( int unit = 0 ) {
        EXPECT_EQ( faults.bcmlt_entry_allocate( unit, "POLICY", &handle ), 0 );
        const int rc = faults.bcmlt_entry_commit( handle, faults.BCMLT_OPCODE_INSERT(),
                                                  faults.BCMLT_PRIORITY_NORMAL() );
        EXPECT_EQ( faults.bcmlt_entry_free( handle ), 0 );
        return rc;
    }

    Chip chip;
    FaultInjector faults{ chip };
    std::uint32_t handle = 0;
    std::uint64_t value = 0;
};

const Codes allGood = { 0, 0, 0, 0, 0, 0, 0, 0, 0 };

TEST( FaultTest, WithoutFaultsAllIsPassedOn ) {
    FaultyChip c;
    EXPECT_EQ( c.visit(), allGood );
    EXPECT_EQ( c.insertPolicy(), 0 );
    EXPECT_EQ( c.insertPolicy(), toInt( Rc::entryExists ) );
    EXPECT_STREQ( c.faults.errmsg( -7 ), c.chip.errmsg( -7 ) );
    EXPECT_EQ( c.faults.BCMLT_OPCODE_DELETE(), c.chip.BCMLT_OPCODE_DELETE() );
    EXPECT_EQ( c.faults.BCMLT_OPCODE_LOOKUP(), c.chip.BCMLT_OPCODE_LOOKUP() );
    EXPECT_EQ( c.faults.BCMLT_OPCODE_UPDATE(), c.chip.BCMLT_OPCODE_UPDATE() );
    EXPECT_EQ( c.faults.BCMLT_PT_OPCODE_SET(), c.chip.BCMLT_PT_OPCODE_SET() );
    EXPECT_EQ( c.faults.BCMLT_INVALID_HDL(), c.chip.BCMLT_INVALID_HDL() );
    EXPECT_STREQ( c.faults.ENABLEs(), "ENABLE" );
    EXPECT_STREQ( c.faults.NUM_LANESs(), "NUM_LANES" );
    EXPECT_STREQ( c.faults.PC_PHYS_PORT_IDs(), "PC_PHYS_PORT_ID" );
    EXPECT_STREQ( c.faults.PC_PORT_PHYS_MAPs(), "PC_PORT_PHYS_MAP" );
    EXPECT_STREQ( c.faults.PC_PORTs(), "PC_PORT" );
    EXPECT_STREQ( c.faults.PORT_IDs(), "PORT_ID" );
    EXPECT_STREQ( c.faults.SPEEDs(), "SPEED" );
    c.faults.preCallHook();
    c.faults.failureHook();
    EXPECT_EQ( c.chip.preCallCount(), 1u );
    EXPECT_EQ( c.chip.failureCount(), 1u );
    EXPECT_TRUE( c.faults.reports().empty() );
}

TEST( FaultTest, EachOperationCanFail ) {
    const int none = toInt( Rc::unknownHandle );
    struct {
        SdkCall operation;
        Codes codes;
    } const cases[] = {
        { SdkCall::entryAllocate, { -70, none, none, none, none, none, none, none, none } },
        { SdkCall::entryFieldAdd, { 0, -70, 0, 0, 0, -24, -24, -29, 0 } },
        { SdkCall::entryFieldArrayAdd, { 0, 0, -70, 0, 0, 0, 0, 0, 0 } },
        { SdkCall::entryFieldSymbolAdd, { 0, 0, 0, -70, 0, 0, 0, 0, 0 } },
        { SdkCall::entryAttribSet, { 0, 0, 0, 0, -70, 0, 0, 0, 0 } },
        { SdkCall::ptEntryCommit, { 0, 0, 0, 0, 0, -70, 0, 0, 0 } },
        { SdkCall::entryFieldGet, { 0, 0, 0, 0, 0, 0, 0, -70, 0 } },
        { SdkCall::entryFree, { 0, 0, 0, 0, 0, 0, 0, 0, -70 } },
    };
    for ( const auto & test : cases ) {
        FaultyChip c;
        c.faults.add( { .operation = test.operation, .rc = -70 } );
        EXPECT_EQ( c.visit(), test.codes ) << name( test.operation );
    }
    FaultyChip c;
    c.faults.add( { .operation = SdkCall::entryCommit, .rc = -70 } );
    EXPECT_EQ( c.insertPolicy(), -70 );
}

TEST( FaultTest, AFailedOperationDoesNotReachTheChip ) {
    FaultyChip c;
    c.faults.add( { .operation = SdkCall::ptEntryCommit, .rc = -70 } );
    c.faults.add( { .operation = SdkCall::entryFieldGet, .rc = -70 } );
    c.faults.add( { .operation = SdkCall::entryFree, .rc = -70 } );
    c.visit();
    EXPECT_EQ( c.chip.rowCount( 0, "MAPm" ), 0u ) << "the MODIFY";
    EXPECT_EQ( c.value, 99u );
    EXPECT_EQ( c.chip.liveEntryCount(), 1u );
    EXPECT_EQ( c.chip.lastError(), "" );

    c.faults.add( { .operation = SdkCall::entryAllocate, .rc = -70 } );
    c.visit();
    EXPECT_EQ( c.handle, 99u );
    EXPECT_EQ( c.chip.liveEntryCount(), 1u );
}

TEST( FaultTest, APositiveCodeReachesTheChip ) {
    FaultyChip c;
    c.faults.add( { .operation = SdkCall::ptEntryCommit, .always = true, .rc = 5 } );
    c.faults.add( { .operation = SdkCall::entryAllocate, .rc = 6 } );
    EXPECT_EQ( c.visit(), ( Codes{ 6, 0, 0, 0, 0, 5, 5, 0, 0 } ) );
    EXPECT_EQ( c.chip.rowCount( 0, "MAPm" ), 1u );
}

TEST( FaultTest, TheChipsOwnFailureWinsOverAPositiveCode ) {
    FaultyChip c;
    c.faults.add( { .operation = SdkCall::entryCommit, .always = true, .rc = 5 } );
    EXPECT_EQ( c.insertPolicy(), 5 );
    EXPECT_EQ( c.insertPolicy(), toInt( Rc::entryExists ) );
    EXPECT_EQ( c.faults.bcmlt_entry_allocate( 0, "NONE", &c.handle ), toInt( Rc::unknownTable ) );
}

TEST( FaultTest, ARefusalOfTheChipCanBeOverridden ) {
    FaultyChip sdk;
    FaultInjector & faults = sdk.faults;
    faults.add( { .operation = SdkCall::entryAllocate, .rc = 0, .overridesRefusal = true } );
    faults.add( { .operation = SdkCall::entryFree, .rc = 5, .overridesRefusal = true } );
    std::uint32_t handle = 99;
    EXPECT_EQ( faults.bcmlt_entry_allocate( 0, "NONE", &handle ), 0 );
    EXPECT_EQ( handle, faults.BCMLT_INVALID_HDL() );
    EXPECT_EQ( faults.bcmlt_entry_free( 12345 ), 5 );
    EXPECT_EQ( faults.bcmlt_entry_free( 12345 ), toInt( Rc::unknownHandle ) );
    EXPECT_EQ( faults.bcmlt_entry_allocate( 0, "NONE", nullptr ), toInt( Rc::nullArgument ) );
}

TEST( FaultTest, AnAllocateCanSucceedWithoutAHandle ) {
    FaultyChip c;
    c.faults.add( { .occurrence = 2, .rc = 0, .invalidHandle = true } );
    std::uint32_t handle = 99;
    EXPECT_EQ( c.faults.bcmlt_entry_allocate( 0, "ONEr", &handle ), 0 );
    EXPECT_EQ( c.faults.bcmlt_entry_free( handle ), 0 ) << "the first is well";
    EXPECT_EQ( c.faults.bcmlt_entry_allocate( 0, "ONEr", &handle ), 0 );
    EXPECT_EQ( handle, c.chip.BCMLT_INVALID_HDL() );
    EXPECT_EQ( c.chip.liveEntryCount(), 0u );
}

TEST( FaultTest, AFaultStrikesAtItsOccurrenceOnly ) {
    FaultyChip c;
    c.faults.add( { .operation = SdkCall::ptEntryCommit, .occurrence = 3, .rc = -70 } );
    EXPECT_EQ( c.visit(), allGood );
    EXPECT_EQ( c.visit(), ( Codes{ 0, 0, 0, 0, 0, -70, 0, 0, 0 } ) );
    EXPECT_EQ( c.visit(), allGood );
}

TEST( FaultTest, OrAlwaysFromThereOn ) {
    FaultyChip c;
    c.faults.add(
        { .operation = SdkCall::ptEntryCommit, .occurrence = 2, .always = true, .rc = -70 } );
    EXPECT_EQ( c.visit()[5], 0 );
    EXPECT_EQ( c.visit()[5], -70 );
    EXPECT_EQ( c.visit()[6], -70 );
}

TEST( FaultTest, AFaultIsAboutItsTableFieldAndUnit ) {
    struct {
        Fault fault;
        Codes codes; // of a visit to MAPm of unit 0
    } const cases[] = {
        { { .table = "MAPm", .rc = -70 }, { -70, -6, -6, -6, -6, -6, -6, -6, -6 } },
        { { .table = "ONEr", .rc = -70 }, allGood },
        { { .table = "MAP", .rc = -70 }, allGood },
        { { .field = "MODE", .rc = -70 }, { 0, 0, 0, -70, 0, 0, 0, 0, 0 } },
        { { .field = "TAG", .rc = -70 }, { 0, 0, 0, 0, 0, 0, 0, -70, 0 } },
        { { .field = "COUNT", .rc = -70 }, allGood },
        { { .operation = SdkCall::entryFieldAdd, .field = "MODE", .rc = -70 }, allGood },
        { { .operation = SdkCall::entryFree, .unit = 0, .rc = -70 },
          { 0, 0, 0, 0, 0, 0, 0, 0, -70 } },
        { { .operation = SdkCall::entryFree, .unit = 1, .rc = -70 }, allGood },
        { { .operation = SdkCall::entryFree, .table = "MAPm", .unit = 0, .rc = -70 },
          { 0, 0, 0, 0, 0, 0, 0, 0, -70 } },
        { { .operation = SdkCall::entryFree, .table = "MAPm", .unit = 1, .rc = -70 }, allGood },
    };
    for ( const auto & test : cases ) {
        FaultyChip c;
        c.faults.add( test.fault );
        EXPECT_EQ( c.visit(), test.codes ) << toText( test.fault );
    }
    FaultyChip c;
    c.faults.add( { .operation = SdkCall::entryFree, .unit = 1, .rc = -70 } );
    EXPECT_EQ( c.visit( 1 ).back(), -70 );
}

TEST( FaultTest, ATableThatTheChipLacksCanFailWithAnotherCode ) {
    FaultyChip c;
    c.faults.add( { .table = "NONE", .rc = -70 } );
    EXPECT_EQ( c.faults.bcmlt_entry_allocate( 0, "NONE", &c.handle ), -70 );
    EXPECT_EQ( c.faults.bcmlt_entry_allocate( 0, "NONE", &c.handle ), toInt( Rc::unknownTable ) );
    EXPECT_EQ( c.faults.bcmlt_entry_allocate( 0, nullptr, &c.handle ), toInt( Rc::nullArgument ) );
}

TEST( FaultTest, AnEntryKeepsItsTableWhenItsFreeFails ) {
    FaultyChip c;
    c.faults.add(
        { .operation = SdkCall::entryFree, .table = "MAPm", .occurrence = 2, .rc = -71 } );
    c.faults.add( { .operation = SdkCall::entryFree, .rc = -70 } );
    EXPECT_EQ( c.visit().back(), -70 );
    EXPECT_EQ( c.faults.bcmlt_entry_free( c.handle ), -71 ) << "still an entry of MAPm";
    EXPECT_EQ( c.faults.bcmlt_entry_free( c.handle ), 0 );
    EXPECT_EQ( c.faults.bcmlt_entry_free( c.handle ), toInt( Rc::doubleFree ) );
}

TEST( FaultTest, OfSeveralFaultsTheFirstAddedDecides ) {
    FaultyChip c;
    c.faults.add( { .operation = SdkCall::ptEntryCommit, .occurrence = 2, .rc = -71 } );
    c.faults.add( { .table = "MAPm", .occurrence = 7, .rc = -72 } );
    c.faults.add( { .field = "TAGS", .rc = -73 } );
    EXPECT_EQ( c.visit(), ( Codes{ 0, 0, 0, 0, 0, 0, -71, -29, 0 } ) );
    const std::vector<FaultReport> reports = c.faults.reports();
    ASSERT_EQ( reports.size(), 3u );
    EXPECT_EQ( reports[0].matches, 2u );
    EXPECT_EQ( reports[0].strikes, 1u );
    EXPECT_EQ( reports[1].matches, 9u );
    EXPECT_EQ( reports[1].strikes, 0u );
    EXPECT_EQ( reports[2].strikes, 0u );
}

// The codes of the operation that is struck, and how often that was.
struct Struck {
    int rc;
    std::uint64_t matches;
    std::uint64_t strikes;
    bool operator==( const Struck & ) const = default;
};
void PrintTo( const Struck & each, std::ostream * out ) {
    *out << "rc " << each.rc << ", " << each.matches << " matches, " << each.strikes << " strikes";
}

// Adds a fault to a field add that the chip takes (value 1) or refuses (a value too wide).
Struck addField( const Fault & fault, std::uint64_t value ) {
    FaultyChip c;
    c.faults.add( fault );
    EXPECT_EQ( c.faults.bcmlt_entry_allocate( 0, "MAPm", &c.handle ), 0 );
    const int rc = c.faults.bcmlt_entry_field_add( c.handle, "TAG", value );
    const FaultReport report = c.faults.reports().front();
    return { rc, report.matches, report.strikes };
}

TEST( FaultTest, StrikesOnlyIfTheCallerSeesSomethingElse ) {
    const std::uint64_t tooWide = ~std::uint64_t( 0 );
    const Fault positive{ .operation = SdkCall::entryFieldAdd, .rc = 5 };
    const int refusal = toInt( Rc::valueTooWide );
    EXPECT_EQ( addField( positive, 1 ), ( Struck{ 5, 1, 1 } ) );
    EXPECT_EQ( addField( positive, tooWide ), ( Struck{ refusal, 1, 0 } ) );

    Fault overriding = positive;
    overriding.overridesRefusal = true;
    EXPECT_EQ( addField( overriding, tooWide ), ( Struck{ 5, 1, 1 } ) );
    overriding.rc = 0;
    EXPECT_EQ( addField( overriding, tooWide ), ( Struck{ 0, 1, 1 } ) );
    EXPECT_EQ( addField( overriding, 1 ), ( Struck{ 0, 1, 0 } ) );

    // The chip is not asked, so nobody knows what it would have said.
    const Fault negative{ .operation = SdkCall::entryFieldAdd, .rc = -70 };
    EXPECT_EQ( addField( negative, 1 ), ( Struck{ -70, 1, 1 } ) );
    EXPECT_EQ( addField( negative, tooWide ), ( Struck{ -70, 1, 1 } ) );
}

TEST( FaultTest, AnInvalidHandleIsAStrike ) {
    FaultyChip c;
    c.faults.add( { .operation = SdkCall::entryAllocate, .rc = 0, .invalidHandle = true } );
    EXPECT_EQ( c.faults.bcmlt_entry_allocate( 0, "MAPm", &c.handle ), 0 );
    EXPECT_EQ( c.faults.reports().front().strikes, 1u );
}

TEST( FaultTest, ThreadsAreCountedTogether ) {
    FaultyChip c;
    c.faults.add( { .operation = SdkCall::entryFree, .occurrence = 150, .rc = -70 } );
    std::vector<std::thread> workers;
    std::atomic<int> struck = 0;
    for ( int worker = 0; worker < 3; ++worker ) {
        workers.emplace_back( [&] {
            for ( int i = 0; i < 100; ++i ) {
                std::uint32_t handle = 0;
                EXPECT_EQ( c.faults.bcmlt_entry_allocate( 0, "ONEr", &handle ), 0 );
                if ( c.faults.bcmlt_entry_free( handle ) == -70 )
                    ++struck;
            }
        } );
    }
    for ( std::thread & worker : workers )
        worker.join();
    EXPECT_EQ( struck, 1 );
    EXPECT_EQ( c.faults.reports()[0].matches, 300u );
}

// --- What makes no sense

TEST( FaultCheckTest, AFaultThatMakesNoSenseIsRefused ) {
    struct {
        Fault fault;
        const char * problem;
    } const cases[] = {
        { { .operation = SdkCall::preCallHook }, "preCallHook is not an operation that can fail" },
        { { .operation = SdkCall::opcodeInsert },
          "BCMLT_OPCODE_INSERT is not an operation that can fail" },
        { { .rc = 0 }, "code 0 is success; give a negative or a positive one" },
        { { .occurrence = 0 }, "occurrences are counted from 1" },
        { { .operation = SdkCall::entryFree, .field = "TAG" },
          "bcmlt_entry_free names no field; leave the field out" },
        { { .field = "TAG", .rc = 0, .invalidHandle = true },
          "bcmlt_entry_allocate names no field; leave the field out" },
        { { .operation = SdkCall::entryFree, .rc = 0, .invalidHandle = true },
          "bcmlt_entry_free hands out no handle; an invalid handle goes with "
          "bcmlt_entry_allocate" },
        { { .rc = -1, .invalidHandle = true },
          "an invalid handle goes with success; give a code of 0 or more, or none" },
    };
    for ( const auto & test : cases ) {
        EXPECT_EQ( check( test.fault ), test.problem );
        FaultyChip c;
        EXPECT_THROW( c.faults.add( test.fault ), std::invalid_argument ) << test.problem;
        EXPECT_TRUE( c.faults.reports().empty() );
    }
    EXPECT_EQ( check( Fault{} ), "" );
}

// --- Faults as text

TEST( FaultTextTest, AFaultIsRead ) {
    struct {
        const char * text;
        Fault fault;
    } const cases[] = {
        { "op=bcmlt_pt_entry_commit,table=EGR_TUNNEL_ECN_ENCAPm,rc=-7,at=1",
          { .operation = SdkCall::ptEntryCommit, .table = "EGR_TUNNEL_ECN_ENCAPm", .rc = -7 } },
        { "op=commit,rc=-26,at=2,always",
          { .operation = SdkCall::entryCommit, .occurrence = 2, .always = true, .rc = -26 } },
        { "op=allocate,handle=invalid",
          { .operation = SdkCall::entryAllocate, .rc = 0, .invalidHandle = true } },
        { "handle=invalid,rc=3,at=4",
          { .operation = SdkCall::entryAllocate,
            .occurrence = 4,
            .rc = 3,
            .invalidHandle = true } },
        { "rc=5", { .rc = 5 } },
        { " field = OUTER_ECN , rc = -2147483648 , unit = 3 ",
          { .field = "OUTER_ECN", .unit = 3, .rc = -2147483647 - 1 } },
        { "at=18446744073709551615,rc=-1", { .occurrence = ~std::uint64_t( 0 ), .rc = -1 } },
    };
    for ( const auto & test : cases ) {
        const ParsedFault parsed = parseFault( test.text );
        EXPECT_EQ( parsed.error, "" ) << test.text;
        EXPECT_EQ( parsed.fault, test.fault ) << test.text;
        EXPECT_EQ( parseFault( toText( test.fault ) ).fault, test.fault ) << toText( test.fault );
    }
}

TEST( FaultTextTest, AFaultIsWritten ) {
    EXPECT_EQ( toText( { .operation = SdkCall::entryFieldAdd,
                         .table = "MAPm",
                         .field = "TAG",
                         .unit = 2,
                         .occurrence = 3,
                         .always = true,
                         .rc = -7 } ),
               "op=bcmlt_entry_field_add,table=MAPm,field=TAG,unit=2,rc=-7,at=3,always" );
    EXPECT_EQ( toText( { .operation = SdkCall::entryAllocate, .rc = 0, .invalidHandle = true } ),
               "op=bcmlt_entry_allocate,handle=invalid,at=1" );
}

TEST( FaultTextTest, ABadWordIsNamed ) {
    const std::string words =
        "a fault is made of op=, table=, field=, unit=, rc=, at=, always and handle=invalid";
    const std::string operations =
        "the operations are bcmlt_entry_allocate, bcmlt_entry_attrib_set, bcmlt_entry_commit, "
        "bcmlt_entry_field_add, bcmlt_entry_field_array_add, bcmlt_entry_field_get, "
        "bcmlt_entry_field_symbol_add, bcmlt_entry_free, bcmlt_pt_entry_commit";
    const struct {
        const char * text;
        std::string error;
    } cases[] = {
        { "", "\"\": " + words },
        { "rc=-7,", "\"\": " + words },
        { "tabel=MAPm,rc=-7", "\"tabel=MAPm\": " + words + "; the nearest name is table" },
        { "rc=-7,allways", "\"allways\": " + words + "; the nearest name is always" },
        { "rc=-7,always=1", "\"always=1\": " + words + "; the nearest name is always" },
        { "rc", "\"rc\": " + words + "; the nearest name is rc" },
        { "op=bcmlt_entry_comit,rc=-7",
          "\"op=bcmlt_entry_comit\": " + operations + "; the nearest name is bcmlt_entry_commit" },
        { "op=filed_add,rc=-7",
          "\"op=filed_add\": " + operations + "; the nearest name is field_add" },
        { "op=preCallHook,rc=-7", "\"op=preCallHook\": " + operations },
        { "rc=abc", "\"rc=abc\": a number from -2147483648 to 2147483647 is wanted" },
        { "rc=-7x", "\"rc=-7x\": a number from -2147483648 to 2147483647 is wanted" },
        { "rc=-2147483649",
          "\"rc=-2147483649\": a number from -2147483648 to 2147483647 is wanted" },
        { "rc=", "\"rc=\": there is nothing behind the =" },
        { "unit=-1,rc=-7", "\"unit=-1\": a number from 0 to 2147483647 is wanted" },
        { "at=0,rc=-7", "\"at=0\": a number from 1 to 18446744073709551615 is wanted" },
        { "handle=0", "\"handle=0\": only handle=invalid is possible" },
        { "rc=-7,rc=-8", "\"rc=-8\": it is there twice; leave one out" },
        { "rc=-7,always,always", "\"always\": it is there twice; leave one out" },
        { "op=commit",
          "a fault needs rc=, the code that the operation returns (or handle=invalid)" },
        { "op=commit,rc=0", "code 0 is success; give a negative or a positive one" },
        { "op=commit,field=TAG,rc=-7", "bcmlt_entry_commit names no field; leave the field out" },
        { "op=free,handle=invalid", "bcmlt_entry_free hands out no handle; an invalid handle goes "
                                    "with bcmlt_entry_allocate" },
        { "handle=invalid,rc=-7",
          "an invalid handle goes with success; give a code of 0 or more, or none" },
    };
    for ( const auto & test : cases ) {
        const ParsedFault parsed = parseFault( test.text );
        EXPECT_EQ( parsed.fault, std::nullopt ) << test.text;
        EXPECT_EQ( parsed.error, test.error );
    }
}

} // namespace
