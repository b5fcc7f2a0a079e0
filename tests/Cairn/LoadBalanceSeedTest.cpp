#include "tests/support/RecipeTest.h"

#include "Cairn/CairnLtHelper.h"

#include <csignal>

namespace {

using namespace Support;
using Cairn::setLoadBalanceRandSeedCtrl;
using Cairn::setLoadBalanceRandSeedMem;

constexpr char ctrlPretty[] = "void Cairn::setLoadBalanceRandSeedCtrl(uint32_t, uint32_t)";
constexpr char memPretty[] = "void Cairn::setLoadBalanceRandSeedMem(uint32_t, uint32_t)";

const Sim::RowId onlyRow;

void scriptCtrl( Script & script, const char * table, int seedRc = 0 ) {
    script.add( {
        unchecked( R"(bcmlt_entry_allocate( unit, table.charPtr(), &entry ))",
                   std::string( "allocate 0 " ) + table ),
        unchecked( R"(bcmlt_entry_field_add( entry, "SEED", seed ))", "add SEED = 12345", seedRc ),
        guardedRc( seedRc ),
        guarded(
            R"(bcmlt_pt_entry_commit( entry, BCMLT_PT_OPCODE_MODIFY, BCMLT_PRIORITY_NORMAL ))",
            "BCMLT_PRIORITY_NORMAL; BCMLT_PT_OPCODE_MODIFY; pt_commit BCMLT_PT_OPCODE_MODIFY" ),
        guarded( R"(bcmlt_entry_free( entry ))", "free" ),
    } );
}

void scriptMem( Script & script, const char * table, int seedRc = 0 ) {
    script.add( {
        unchecked( R"(bcmlt_entry_allocate( unit, table.charPtr(), &entry ))",
                   std::string( "allocate 0 " ) + table ),
        unchecked( R"(bcmlt_entry_field_array_add( entry, "SEED", 0, val, 1 ))",
                   "array SEED[0] = 12345 count 1", seedRc ),
        guardedRc( seedRc ),
        guarded(
            R"(bcmlt_pt_entry_commit( entry, BCMLT_PT_OPCODE_MODIFY, BCMLT_PRIORITY_NORMAL ))",
            "BCMLT_PRIORITY_NORMAL; BCMLT_PT_OPCODE_MODIFY; pt_commit BCMLT_PT_OPCODE_MODIFY" ),
        guarded( R"(bcmlt_entry_free( entry ))", "free" ),
    } );
}

/// An allocate that does not return zero, and the message that follows.
void scriptMissing( Script & script, const char * operation, const char * message, int rc = -3 ) {
    script.add( {
        unchecked( R"(bcmlt_entry_allocate( unit, table.charPtr(), &entry ))", operation, rc ),
        line( 2, message ),
    } );
}

Script ctrlStart() {
    return Script( "setLoadBalanceRandSeedCtrl",
                   { line( 2, "setLoadBalanceRandSeedCtrl unit: 0 seed: 12345" ) } );
}

Script memStart() {
    return Script( "setLoadBalanceRandSeedMem",
                   { line( 2, "setLoadBalanceRandSeedMem unit: 0 seed: 12345" ) } );
}

Script ctrlScript() {
    Script script = ctrlStart();
    scriptCtrl( script, "IPOST_LAG_RAND_NUM_CTRL_0r" );
    scriptCtrl( script, "IPOST_LAG_RAND_NUM_CTRL_1r" );
    scriptCtrl( script, "IPOST_LAG_RAND_NUM_CTRL_2r" );
    return script;
}

Script memScript() {
    Script script = memStart();
    scriptMem( script, "IPOST_LAG_RAND_NUM_SEED_0m" );
    scriptMem( script, "IPOST_LAG_RAND_NUM_SEED_1m" );
    scriptMem( script, "IPOST_LAG_RAND_NUM_SEED_2m" );
    return script;
}

class LoadBalanceSeedTest : public RecipeTest {
  protected:
    void useChipWithout( std::initializer_list<const char *> tables ) {
        auto schema = Sim::referenceSchema();
        for ( const char * table : tables )
            ASSERT_EQ( schema.remove( table ), "" );
        useSchema( schema );
    }
    std::optional<uint64_t> value( const std::string & table, const char * field,
                                   uint32_t element = 0 ) {
        return chip().value( 0, table, onlyRow, field, element );
    }
};
using LoadBalanceSeedDeathTest = LoadBalanceSeedTest;

TEST_F( LoadBalanceSeedTest, AllThreeRegistersGetTheSeed ) {
    setLoadBalanceRandSeedCtrl( 0, 12345 );
    expectLog( ctrlScript() );
    for ( const char * table : { "IPOST_LAG_RAND_NUM_CTRL_0r", "IPOST_LAG_RAND_NUM_CTRL_1r",
                                 "IPOST_LAG_RAND_NUM_CTRL_2r" } ) {
        EXPECT_EQ( value( table, "SEED" ), 12345u ) << table;
        // The pattern of a field that nobody wrote.
        EXPECT_EQ( value( table, "POLYNOMIAL" ), 0x5u ) << table;
    }
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( LoadBalanceSeedTest, AllThreeMemoriesGetTheSeedInTheirFirstElement ) {
    setLoadBalanceRandSeedMem( 0, 12345 );
    expectLog( memScript() );
    for ( const char * table : { "IPOST_LAG_RAND_NUM_SEED_0m", "IPOST_LAG_RAND_NUM_SEED_1m",
                                 "IPOST_LAG_RAND_NUM_SEED_2m" } ) {
        EXPECT_EQ( value( table, "SEED", 0 ), 12345u ) << table;
        EXPECT_EQ( value( table, "SEED", 1 ), 0xA5A5'A5A5'A5A5'A5A5u ) << table;
    }
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( LoadBalanceSeedTest, MissingSecondRegisterEndsTheRecipeAfterTheFirst ) {
    useChipWithout( { "IPOST_LAG_RAND_NUM_CTRL_1r" } );
    setLoadBalanceRandSeedCtrl( 0, 12345 );
    Script script = ctrlStart();
    scriptCtrl( script, "IPOST_LAG_RAND_NUM_CTRL_0r" );
    scriptMissing( script, "allocate 0 IPOST_LAG_RAND_NUM_CTRL_1r",
                   "setLoadBalanceRandSeedCtrl skipping register 1" );
    expectLog( script );
    EXPECT_EQ( value( "IPOST_LAG_RAND_NUM_CTRL_0r", "SEED" ), 12345u );
    EXPECT_NE( value( "IPOST_LAG_RAND_NUM_CTRL_2r", "SEED" ), 12345u );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( LoadBalanceSeedTest, MissingSecondMemoryEndsTheRecipeAfterTheFirst ) {
    useChipWithout( { "IPOST_LAG_RAND_NUM_SEED_1m" } );
    setLoadBalanceRandSeedMem( 0, 12345 );
    Script script = memStart();
    scriptMem( script, "IPOST_LAG_RAND_NUM_SEED_0m" );
    scriptMissing( script, "allocate 0 IPOST_LAG_RAND_NUM_SEED_1m",
                   "setLoadBalanceRandSeedMem skipping register 1" );
    expectLog( script );
    EXPECT_NE( value( "IPOST_LAG_RAND_NUM_SEED_2m", "SEED" ), 12345u );
}

TEST_F( LoadBalanceSeedTest, MissingLastInstanceIsSkippedWithItsNumber ) {
    useChipWithout( { "IPOST_LAG_RAND_NUM_CTRL_2r", "IPOST_LAG_RAND_NUM_SEED_2m" } );
    setLoadBalanceRandSeedCtrl( 0, 12345 );
    Script ctrl = ctrlStart();
    scriptCtrl( ctrl, "IPOST_LAG_RAND_NUM_CTRL_0r" );
    scriptCtrl( ctrl, "IPOST_LAG_RAND_NUM_CTRL_1r" );
    scriptMissing( ctrl, "allocate 0 IPOST_LAG_RAND_NUM_CTRL_2r",
                   "setLoadBalanceRandSeedCtrl skipping register 2" );
    expectLog( ctrl );
    clearLog();
    setLoadBalanceRandSeedMem( 0, 12345 );
    Script mem = memStart();
    scriptMem( mem, "IPOST_LAG_RAND_NUM_SEED_0m" );
    scriptMem( mem, "IPOST_LAG_RAND_NUM_SEED_1m" );
    scriptMissing( mem, "allocate 0 IPOST_LAG_RAND_NUM_SEED_2m",
                   "setLoadBalanceRandSeedMem skipping register 2" );
    expectLog( mem );
}

TEST_F( LoadBalanceSeedTest, ChipWithoutAnyInstanceLeavesTheEntryMessageAndOneSkipMessage ) {
    useChipWithout( { "IPOST_LAG_RAND_NUM_CTRL_0r", "IPOST_LAG_RAND_NUM_CTRL_1r",
                      "IPOST_LAG_RAND_NUM_CTRL_2r", "IPOST_LAG_RAND_NUM_SEED_0m",
                      "IPOST_LAG_RAND_NUM_SEED_1m", "IPOST_LAG_RAND_NUM_SEED_2m" } );
    setLoadBalanceRandSeedCtrl( 0, 12345 );
    Script ctrl = ctrlStart();
    scriptMissing( ctrl, "allocate 0 IPOST_LAG_RAND_NUM_CTRL_0r",
                   "setLoadBalanceRandSeedCtrl skipping register 0" );
    expectLog( ctrl );
    clearLog();
    setLoadBalanceRandSeedMem( 0, 12345 );
    Script mem = memStart();
    scriptMissing( mem, "allocate 0 IPOST_LAG_RAND_NUM_SEED_0m",
                   "setLoadBalanceRandSeedMem skipping register 0" );
    expectLog( mem );
    EXPECT_EQ( chip().failureCount(), 0u );
}

TEST_F( LoadBalanceSeedTest, PositiveAllocateCodeCountsAsMissing ) {
    inject( "op=allocate,table=IPOST_LAG_RAND_NUM_CTRL_1r,rc=3" );
    inject( "op=allocate,table=IPOST_LAG_RAND_NUM_SEED_0m,rc=1" );
    setLoadBalanceRandSeedCtrl( 0, 12345 );
    Script ctrl = ctrlStart();
    scriptCtrl( ctrl, "IPOST_LAG_RAND_NUM_CTRL_0r" );
    scriptMissing( ctrl, "allocate 0 IPOST_LAG_RAND_NUM_CTRL_1r",
                   "setLoadBalanceRandSeedCtrl skipping register 1", 3 );
    expectLog( ctrl );
    clearLog();
    setLoadBalanceRandSeedMem( 0, 12345 );
    Script mem = memStart();
    scriptMissing( mem, "allocate 0 IPOST_LAG_RAND_NUM_SEED_0m",
                   "setLoadBalanceRandSeedMem skipping register 0", 1 );
    expectLog( mem );
}

TEST_F( LoadBalanceSeedTest, PositiveCodeOfTheSeedIsSuccessAndIsTracedTwice ) {
    useChipWithout( { "IPOST_LAG_RAND_NUM_CTRL_1r", "IPOST_LAG_RAND_NUM_SEED_1m" } );
    inject( "op=field_add,rc=9" );
    inject( "op=field_array_add,rc=8" );
    setLoadBalanceRandSeedCtrl( 0, 12345 );
    Script ctrl = ctrlStart();
    scriptCtrl( ctrl, "IPOST_LAG_RAND_NUM_CTRL_0r", 9 );
    scriptMissing( ctrl, "allocate 0 IPOST_LAG_RAND_NUM_CTRL_1r",
                   "setLoadBalanceRandSeedCtrl skipping register 1" );
    expectLog( ctrl );
    clearLog();
    setLoadBalanceRandSeedMem( 0, 12345 );
    Script mem = memStart();
    scriptMem( mem, "IPOST_LAG_RAND_NUM_SEED_0m", 8 );
    scriptMissing( mem, "allocate 0 IPOST_LAG_RAND_NUM_SEED_1m",
                   "setLoadBalanceRandSeedMem skipping register 1" );
    expectLog( mem );
}

TEST_F( LoadBalanceSeedTest, SeedsOfZeroAndOfAllBitsAreWrittenUnchanged ) {
    for ( const uint32_t seed : { 0u, 4294967295u } ) {
        clearLog();
        setLoadBalanceRandSeedCtrl( 0, seed );
        setLoadBalanceRandSeedMem( 0, seed );
        const std::string number = std::to_string( seed );
        EXPECT_EQ( logOf( "add SEED" ),
                   std::vector<std::string>( 3, "add SEED = " + number + " [released]" ) );
        // The memory's elements have 64 bits: the upper half is zero.
        EXPECT_EQ(
            logOf( "array SEED" ),
            std::vector<std::string>( 3, "array SEED[0] = " + number + " count 1 [released]" ) );
        EXPECT_EQ( value( "IPOST_LAG_RAND_NUM_CTRL_2r", "SEED" ), seed );
        EXPECT_EQ( value( "IPOST_LAG_RAND_NUM_SEED_2m", "SEED" ), seed );
        EXPECT_EQ( logOf( "CairnLtHelper" ).front(),
                   "CairnLtHelper/2 setLoadBalanceRandSeedCtrl: setLoadBalanceRandSeedCtrl"
                   " unit: 0 seed: " +
                       number + " [held]" );
    }
}

TEST_F( LoadBalanceSeedTest, LocksAreReleasedAndTakenBackAroundTheBareCheckOfTheCode ) {
    useChipWithout( { "IPOST_LAG_RAND_NUM_CTRL_1r" } );
    holdInterpreterLock();
    Script script( "setLoadBalanceRandSeedCtrl" );
    script.holdInterpreterLock();
    script.add( { line( 2, "setLoadBalanceRandSeedCtrl unit: 0 seed: 12345" ) } );
    scriptCtrl( script, "IPOST_LAG_RAND_NUM_CTRL_0r" );
    scriptMissing( script, "allocate 0 IPOST_LAG_RAND_NUM_CTRL_1r",
                   "setLoadBalanceRandSeedCtrl skipping register 1" );
    setLoadBalanceRandSeedCtrl( 0, 12345 );
    expectLog( script );
}

TEST_F( LoadBalanceSeedTest, LocksAreReleasedAndTakenBackAroundTheBareCheckOfTheMemoriesCode ) {
    useChipWithout( { "IPOST_LAG_RAND_NUM_SEED_1m" } );
    holdInterpreterLock();
    Script script( "setLoadBalanceRandSeedMem" );
    script.holdInterpreterLock();
    script.add( { line( 2, "setLoadBalanceRandSeedMem unit: 0 seed: 12345" ) } );
    scriptMem( script, "IPOST_LAG_RAND_NUM_SEED_0m" );
    scriptMissing( script, "allocate 0 IPOST_LAG_RAND_NUM_SEED_1m",
                   "setLoadBalanceRandSeedMem skipping register 1" );
    setLoadBalanceRandSeedMem( 0, 12345 );
    expectLog( script );
}

TEST_F( LoadBalanceSeedTest, MessagesComeAtLevelTwo ) {
    expectMessagesAtTheirLevels( ctrlScript(), [] { setLoadBalanceRandSeedCtrl( 0, 12345 ); } );
    expectMessagesAtTheirLevels( memScript(), [] { setLoadBalanceRandSeedMem( 0, 12345 ); } );
    Script skipped = memStart();
    scriptMissing( skipped, "", "setLoadBalanceRandSeedMem skipping register 0" );
    expectMessagesAtTheirLevels( skipped, [this] {
        inject( "op=allocate,rc=-3" );
        setLoadBalanceRandSeedMem( 0, 12345 );
    } );
}

TEST_F( LoadBalanceSeedDeathTest, EachCallButTheAllocatesStopsTheProcess ) {
    expectEachFailureToStop( ctrlScript(), ctrlPretty,
                             [] { setLoadBalanceRandSeedCtrl( 0, 12345 ); } );
    expectEachFailureToStop( memScript(), memPretty,
                             [] { setLoadBalanceRandSeedMem( 0, 12345 ); } );
}

TEST_F( LoadBalanceSeedDeathTest, FailedSeedIsTracedWithItsTextAndReportedAsRc ) {
    const auto stop = stopOf( [this] {
        inject( "op=field_add,rc=-14" );
        setLoadBalanceRandSeedCtrl( 0, 12345 );
    } );
    EXPECT_EQ( stop.signal, SIGABRT );
    EXPECT_EQ( stop.standardError, report( "rc", chip().errmsg( -14 ), -14, ctrlPretty ) );
    EXPECT_EQ( stop.count( "ApiCairn/4 setLoadBalanceRandSeedCtrl: "
                           "bcmlt_entry_field_add( entry, \"SEED\", seed ) (rc:-14)" ),
               1 );
    EXPECT_EQ( stop.count( "preCallHook" ), 1 );
    EXPECT_EQ( stop.count( "free" ), 0 );
    // The check stands on a line of its own after the add.
    ASSERT_EQ( stop.lines.size(), 2u );
    EXPECT_GT( stop.lines[0], stop.loggedLines.back() );
}

TEST_F( LoadBalanceSeedDeathTest, AllocateThatFailsNeverStopsTheProcess ) {
    for ( const char * fault : { "op=allocate,rc=-1,always", "op=allocate,rc=1,always" } ) {
        const auto stop = stopOf( [&] {
            inject( fault );
            setLoadBalanceRandSeedCtrl( 0, 12345 );
            setLoadBalanceRandSeedMem( 0, 12345 );
        } );
        EXPECT_EQ( stop.signal, 0 );
        EXPECT_EQ( stop.standardError, "" );
        EXPECT_EQ( stop.count( "allocate" ), 2 );
        EXPECT_EQ( stop.count( "free" ), 0 );
    }
}

} // namespace
