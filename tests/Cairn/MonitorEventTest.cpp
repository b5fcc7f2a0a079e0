#include "tests/support/RecipeTest.h"

#include "Cairn/CairnLtHelper.h"

#include <csignal>

namespace {

using namespace Support;

constexpr char tracePretty[] = "void Cairn::programMonTraceCpu(uint32_t, const char*)";
constexpr char dropPretty[] = "void Cairn::programPacketDropForMtuError(uint32_t)";

constexpr char traceTable[] = "MON_ING_TRACE_EVENT";
constexpr char dropTable[] = "MON_ING_DROP_EVENT";

Script traceScript( const std::string & event ) {
    return Script( "programMonTraceCpu" )
        .add( {
            line( 2, "programMonTraceCpu unit: 3 errorType: " + event ),
            guarded( R"(bcmlt_entry_allocate( unit, "MON_ING_TRACE_EVENT", &packetTraceEntry ))",
                     "allocate 3 MON_ING_TRACE_EVENT" ),
            guarded(
                R"(bcmlt_entry_field_symbol_add( packetTraceEntry, "MON_ING_TRACE_EVENT_ID", errorType ))",
                "symbol MON_ING_TRACE_EVENT_ID = " + event ),
            guarded( R"(bcmlt_entry_field_add( packetTraceEntry, "CPU", 1 ))", "add CPU = 1" ),
            guarded(
                R"(bcmlt_entry_commit( packetTraceEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_INSERT; commit BCMLT_OPCODE_INSERT" ),
            guarded( R"(bcmlt_entry_free( packetTraceEntry ))", "free" ),
        } );
}

// The entry has no key yet when it is looked up.
Script dropScript( int lookupRc = -25 ) {
    return Script( "programPacketDropForMtuError" )
        .add( {
            line( 2, "programPacketDropForMtuError unit: 0" ),
            guarded( R"(bcmlt_entry_allocate( unit, "MON_ING_DROP_EVENT", &packetDropEntry ))",
                     "allocate 0 MON_ING_DROP_EVENT" ),
            unchecked(
                R"(bcmlt_entry_commit( packetDropEntry, BCMLT_OPCODE_LOOKUP, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_LOOKUP; commit BCMLT_OPCODE_LOOKUP",
                lookupRc ),
            guarded(
                R"(bcmlt_entry_field_symbol_add( packetDropEntry, "MON_ING_DROP_EVENT_ID", "L3_MTU_CHECK_FAILED" ))",
                "symbol MON_ING_DROP_EVENT_ID = L3_MTU_CHECK_FAILED" ),
            guarded( R"(bcmlt_entry_field_add( packetDropEntry, "CPU", 1 ))", "add CPU = 1" ),
            guarded( R"(bcmlt_entry_field_add( packetDropEntry, "LOOPBACK", 0 ))",
                     "add LOOPBACK = 0" ),
            guarded(
                R"(bcmlt_entry_commit( packetDropEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_INSERT; commit BCMLT_OPCODE_INSERT" ),
            guarded( R"(bcmlt_entry_free( packetDropEntry ))", "free" ),
        } );
}

class MonitorEventTest : public RecipeTest {
  protected:
    std::optional<uint64_t> value( int unit, const char * table, const char * event,
                                   const char * field ) {
        const auto & key = chip().schema( unit )->find( table )->fields.front();
        Sim::RowId row;
        row.key = { key.findSymbol( event )->value };
        return chip().value( unit, table, row, field );
    }

    /// A chip whose drop table has one row without a key, so that the look-up finds it.
    void useDropTableWithoutKey() {
        auto schema = Sim::referenceSchema();
        auto & table = *schema.find( dropTable );
        table.fields.front().role = Sim::FieldRole::data;
        table.size.rows = 1;
        table.preloaded = true;
        useSchema( schema );
    }
};
using MonitorEventDeathTest = MonitorEventTest;

TEST_F( MonitorEventTest, TraceEventIsInsertedWithTheCpuActionInFiveGuardedCalls ) {
    Cairn::programMonTraceCpu( 3, "L3_URPF_FAIL" );
    expectLog( traceScript( "L3_URPF_FAIL" ) );
    EXPECT_EQ( logOf( "preCallHook" ).size(), 5u );
    EXPECT_EQ( value( 3, traceTable, "L3_URPF_FAIL", "CPU" ), 1u );
    EXPECT_EQ( value( 3, traceTable, "L3_URPF_FAIL", "LOOPBACK" ), 0u );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( MonitorEventTest, OneLineRecipesAreTheTraceRecipeUnderItsNameWithAFixedEvent ) {
    Cairn::programPacketTraceForTtlError( 3 );
    expectLog( traceScript( "L3_TTL_ERROR" ) );
    clearLog();
    Cairn::programPacketTraceForL3DstLookupMiss( 3 );
    expectLog( traceScript( "L3_DST_LOOKUP_MISS" ) );
    clearLog();
    Cairn::programPacketTraceForL3HdrError( 3 );
    expectLog( traceScript( "L3_HDR_ERROR" ) );
    EXPECT_EQ( chip().rowCount( 3, traceTable ), 3u );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( MonitorEventTest, DropEventIsInsertedWithCpuOnAndLoopbackOffInSixGuardedCalls ) {
    Cairn::programPacketDropForMtuError( 0 );
    expectLog( dropScript() );
    EXPECT_EQ( logOf( "preCallHook" ).size(), 6u );
    EXPECT_EQ( value( 0, dropTable, "L3_MTU_CHECK_FAILED", "CPU" ), 1u );
    EXPECT_EQ( value( 0, dropTable, "L3_MTU_CHECK_FAILED", "LOOPBACK" ), 0u );
    EXPECT_EQ( chip().rowCount( 0, dropTable ), 1u );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( MonitorEventTest, DropEventGoesOnAfterAnyNegativeLookupCodeAndTracesIt ) {
    inject( "op=commit,rc=-2000000000" );
    Cairn::programPacketDropForMtuError( 0 );
    expectLog( dropScript( -2000000000 ) );
}

TEST_F( MonitorEventTest, NeitherRecipeAsksForTheInvalidHandle ) {
    Cairn::programMonTraceCpu( 0, "L3_URPF_FAIL" );
    Cairn::programPacketDropForMtuError( 0 );
    EXPECT_TRUE( logOf( "BCMLT_INVALID_HDL" ).empty() );
}

TEST_F( MonitorEventTest, MessagesComeAtLevelTwo ) {
    expectMessagesAtTheirLevels( traceScript( "L3_HDR_ERROR" ),
                                 [] { Cairn::programPacketTraceForL3HdrError( 3 ); } );
    expectMessagesAtTheirLevels( dropScript(), [] { Cairn::programPacketDropForMtuError( 0 ); } );
}

TEST_F( MonitorEventDeathTest, EachGuardedCallStopsTheProcess ) {
    expectEachFailureToStop( traceScript( "L3_URPF_FAIL" ), tracePretty,
                             [] { Cairn::programMonTraceCpu( 3, "L3_URPF_FAIL" ); } );
    expectEachFailureToStop( dropScript(), dropPretty,
                             [] { Cairn::programPacketDropForMtuError( 0 ); } );
}

TEST_F( MonitorEventDeathTest, OneLineRecipesStopUnderTheNameOfTheTraceRecipe ) {
    expectEachFailureToStop( traceScript( "L3_DST_LOOKUP_MISS" ), tracePretty,
                             [] { Cairn::programPacketTraceForL3DstLookupMiss( 3 ); } );
    expectEachFailureToStop( traceScript( "L3_HDR_ERROR" ), tracePretty,
                             [] { Cairn::programPacketTraceForL3HdrError( 3 ); } );
    expectEachFailureToStop( traceScript( "L3_TTL_ERROR" ), tracePretty,
                             [] { Cairn::programPacketTraceForTtlError( 3 ); } );
}

TEST_F( MonitorEventDeathTest, MessagesAreWrittenEvenIfTheFirstCallFails ) {
    const auto trace = stopOf( [] { Cairn::programMonTraceCpu( 8, "L3_HDR_ERROR" ); } );
    EXPECT_EQ( trace.signal, SIGABRT );
    ASSERT_FALSE( trace.log.empty() );
    EXPECT_EQ( trace.log.front(), "CairnLtHelper/2 programMonTraceCpu: "
                                  "programMonTraceCpu unit: 8 errorType: L3_HDR_ERROR [held]" );
    const auto drop = stopOf( [] { Cairn::programPacketDropForMtuError( 8 ); } );
    EXPECT_EQ( drop.signal, SIGABRT );
    ASSERT_FALSE( drop.log.empty() );
    EXPECT_EQ( drop.log.front(), "CairnLtHelper/2 programPacketDropForMtuError: "
                                 "programPacketDropForMtuError unit: 8 [held]" );
}

TEST_F( MonitorEventDeathTest, DropLookupThatReturnsZeroStopsAfterItsTraceLine ) {
    useDropTableWithoutKey();
    const auto stop = stopOf( [] { Cairn::programPacketDropForMtuError( 0 ); } );
    expectAssertion( stop, "rc < 0", dropPretty );
    ASSERT_FALSE( stop.log.empty() );
    EXPECT_EQ( stop.log.back(),
               "ApiCairn/4 programPacketDropForMtuError: bcmlt_entry_commit( packetDropEntry, "
               "BCMLT_OPCODE_LOOKUP, BCMLT_PRIORITY_NORMAL ) (rc:0) [held]" );
    EXPECT_EQ( stop.count( "preCallHook" ), 1 );
}

TEST_F( MonitorEventDeathTest, DropLookupThatReturnsAPositiveCodeStopsToo ) {
    useDropTableWithoutKey();
    const auto stop = stopOf( [this] {
        inject( "op=commit,rc=5" );
        Cairn::programPacketDropForMtuError( 0 );
    } );
    expectAssertion( stop, "rc < 0", dropPretty );
    ASSERT_FALSE( stop.log.empty() );
    EXPECT_TRUE( stop.log.back().ends_with( " (rc:5) [held]" ) ) << stop.log.back();
}

TEST_F( MonitorEventDeathTest, SecondInsertStopsTheProcess ) {
    Cairn::programPacketTraceForL3HdrError( 3 );
    const auto trace = stopOf( [] { Cairn::programPacketTraceForL3HdrError( 3 ); } );
    EXPECT_EQ(
        trace.standardError,
        report(
            R"(bcmlt_entry_commit( packetTraceEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ))",
            chip().errmsg( -26 ), -26, tracePretty ) );
    Cairn::programPacketDropForMtuError( 0 );
    const auto drop = stopOf( [] { Cairn::programPacketDropForMtuError( 0 ); } );
    EXPECT_EQ(
        drop.standardError,
        report(
            R"(bcmlt_entry_commit( packetDropEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ))",
            chip().errmsg( -26 ), -26, dropPretty ) );
}

TEST_F( MonitorEventDeathTest, EventThatTheSdkDoesNotKnowStopsAtTheSymbol ) {
    const auto stop = stopOf( [] { Cairn::programMonTraceCpu( 3, "%s %d" ); } );
    EXPECT_EQ(
        stop.standardError,
        report(
            R"(bcmlt_entry_field_symbol_add( packetTraceEntry, "MON_ING_TRACE_EVENT_ID", errorType ))",
            chip().errmsg( -5 ), -5, tracePretty ) );
    ASSERT_FALSE( stop.log.empty() );
    EXPECT_EQ( stop.log.front(), "CairnLtHelper/2 programMonTraceCpu: "
                                 "programMonTraceCpu unit: 3 errorType: %s %d [held]" );
}

} // namespace
