#include "tests/support/RecipeTest.h"

#include "Cairn/CairnLtHelper.h"

#include <Kiln/TraceHandle.h>

#include <csignal>

namespace {

using namespace Support;

class TunnelEcnTest : public RecipeTest {};
using TunnelEcnDeathTest = TunnelEcnTest;

Script encapScript( uint32_t unit, uint32_t index, uint32_t outerEcn ) {
    Script script( "setEgrTunnelEcnEncap" );
    script.keepLock();
    script.add( {
        guarded(
            R"(bcmlt_entry_allocate( unit, "EGR_TUNNEL_ECN_ENCAPm", &egrTunnelEcnEncapEntry ))",
            "allocate " + std::to_string( unit ) + " EGR_TUNNEL_ECN_ENCAPm" ),
        guarded( R"(bcmlt_entry_field_add( egrTunnelEcnEncapEntry, "BCMLT_PT_INDEX", index ))",
                 "add BCMLT_PT_INDEX = " + std::to_string( index ) ),
        guarded( R"(bcmlt_entry_field_add( egrTunnelEcnEncapEntry, "OUTER_ECN", outerEcn ))",
                 "add OUTER_ECN = " + std::to_string( outerEcn ) ),
        guarded(
            R"(bcmlt_pt_entry_commit( egrTunnelEcnEncapEntry, BCMLT_PT_OPCODE_MODIFY, BCMLT_PRIORITY_NORMAL ))",
            "BCMLT_PRIORITY_NORMAL; BCMLT_PT_OPCODE_MODIFY; pt_commit BCMLT_PT_OPCODE_MODIFY" ),
        guarded( R"(bcmlt_entry_free( egrTunnelEcnEncapEntry ))", "free" ),
    } );
    return script;
}

Script decapScript( uint32_t unit, uint32_t index, uint32_t innerEcn, int changeEcn ) {
    Script script( "setIngTunnelEcnDecap" );
    script.keepLock();
    script.add( {
        guarded(
            R"(bcmlt_entry_allocate( unit, "ING_TUNNEL_ECN_DECAPm", &ingTunnelEcnDecapEntry ))",
            "allocate " + std::to_string( unit ) + " ING_TUNNEL_ECN_DECAPm" ),
        guarded( R"(bcmlt_entry_field_add( ingTunnelEcnDecapEntry, "BCMLT_PT_INDEX", index ))",
                 "add BCMLT_PT_INDEX = " + std::to_string( index ) ),
        guarded( R"(bcmlt_entry_field_add( ingTunnelEcnDecapEntry, "INNER_ECN", innerEcn ))",
                 "add INNER_ECN = " + std::to_string( innerEcn ) ),
        guarded(
            R"(bcmlt_entry_field_add( ingTunnelEcnDecapEntry, "CHANGE_INNER_ECN", changeEcn ))",
            "add CHANGE_INNER_ECN = " + std::to_string( changeEcn ) ),
        guarded(
            R"(bcmlt_pt_entry_commit( ingTunnelEcnDecapEntry, BCMLT_PT_OPCODE_MODIFY, BCMLT_PRIORITY_NORMAL ))",
            "BCMLT_PRIORITY_NORMAL; BCMLT_PT_OPCODE_MODIFY; pt_commit BCMLT_PT_OPCODE_MODIFY" ),
        guarded( R"(bcmlt_entry_free( ingTunnelEcnDecapEntry ))", "free" ),
    } );
    return script;
}

TEST_F( TunnelEcnTest, EncapMakesItsFiveCallsInOrderWithTheLockKept ) {
    Cairn::setEgrTunnelEcnEncap( 0, 5, 2 );
    expectLog( encapScript( 0, 5, 2 ) );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( TunnelEcnTest, DecapMakesItsSixCallsInOrderWithTheLockKept ) {
    Cairn::setIngTunnelEcnDecap( 3, 7, 1, true );
    expectLog( decapScript( 3, 7, 1, 1 ) );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( TunnelEcnTest, EachCallHasALineOfItsOwnAndLinesIncrease ) {
    Cairn::setEgrTunnelEcnEncap( 0, 5, 2 );
    Cairn::setIngTunnelEcnDecap( 0, 5, 2, true );
    ASSERT_EQ( sourceLines().size(), 11u );
    EXPECT_GT( sourceLines().front(), 0 );
    for ( size_t i = 1; i < sourceLines().size(); ++i )
        EXPECT_LT( sourceLines()[i - 1], sourceLines()[i] );
}

TEST_F( TunnelEcnTest, DecapWithoutChangeStillWritesInnerEcn ) {
    Cairn::setIngTunnelEcnDecap( 0, 9, 3, false );
    expectLog( decapScript( 0, 9, 3, 0 ) );
    EXPECT_EQ( chip().value( 0, "ING_TUNNEL_ECN_DECAPm", { .index = 9 }, "INNER_ECN" ), 3u );
    EXPECT_EQ( chip().value( 0, "ING_TUNNEL_ECN_DECAPm", { .index = 9 }, "CHANGE_INNER_ECN" ), 0u );
}

TEST_F( TunnelEcnTest, ModifyKeepsTheOtherFieldsOfTheRow ) {
    const auto * table = chip().schema( 0 )->find( "EGR_TUNNEL_ECN_ENCAPm" );
    ASSERT_NE( table, nullptr );
    ASSERT_GT( table->fields.size(), 1u );
    Cairn::setEgrTunnelEcnEncap( 0, 5, 2 );
    for ( const auto & field : table->fields ) {
        const auto value = chip().value( 0, "EGR_TUNNEL_ECN_ENCAPm", { .index = 5 }, field.name );
        EXPECT_EQ( value, field.name == "OUTER_ECN" ? 2u : field.initial() ) << field.name;
    }
}

TEST_F( TunnelEcnTest, CallingTwiceWritesTheSameRowTwiceAndLeavesTheSameResult ) {
    Cairn::setEgrTunnelEcnEncap( 0, 5, 2 );
    clearLog();
    Cairn::setEgrTunnelEcnEncap( 0, 5, 2 );
    expectLog( encapScript( 0, 5, 2 ) );
    EXPECT_EQ( chip().value( 0, "EGR_TUNNEL_ECN_ENCAPm", { .index = 5 }, "OUTER_ECN" ), 2u );
}

TEST_F( TunnelEcnTest, DecapTwiceWritesTheSameRowTwiceAndKeepsItsOtherFields ) {
    const auto * table = chip().schema( 0 )->find( "ING_TUNNEL_ECN_DECAPm" );
    ASSERT_NE( table, nullptr );
    ASSERT_GT( table->fields.size(), 2u );
    for ( int time = 0; time < 2; ++time ) {
        clearLog();
        Cairn::setIngTunnelEcnDecap( 0, 5, 2, true );
        expectLog( decapScript( 0, 5, 2, 1 ) );
        for ( const auto & field : table->fields ) {
            const auto value =
                chip().value( 0, "ING_TUNNEL_ECN_DECAPm", { .index = 5 }, field.name );
            EXPECT_EQ( value, field.name == "INNER_ECN"          ? 2u
                              : field.name == "CHANGE_INNER_ECN" ? 1u
                                                                 : field.initial() )
                << field.name;
        }
    }
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( TunnelEcnTest, InterpreterLockIsKeptWithTheActivityLock ) {
    holdInterpreterLock();
    Cairn::setEgrTunnelEcnEncap( 0, 5, 2 );
    expectLog( encapScript( 0, 5, 2 ) );
    clearLog();
    Cairn::setIngTunnelEcnDecap( 3, 7, 1, true );
    expectLog( decapScript( 3, 7, 1, 1 ) );
    EXPECT_TRUE( logOf( "interpreter lock" ).empty() );
}

TEST_F( TunnelEcnTest, PositiveCodesAreSuccessAndAreTracedAsReturned ) {
    inject( "op=pt_entry_commit,rc=17" );
    Cairn::setEgrTunnelEcnEncap( 0, 5, 2 );
    const auto traced = logOf( "ApiCairn/4" );
    ASSERT_EQ( traced.size(), 5u );
    EXPECT_TRUE( traced[2].ends_with( " (rc:0) [held]" ) ) << traced[2];
    EXPECT_TRUE( traced[3].ends_with( "BCMLT_PRIORITY_NORMAL ) (rc:17) [held]" ) ) << traced[3];
}

TEST_F( TunnelEcnTest, NothingIsWrittenAnywhereWithTheCallTraceOff ) {
    Kiln::traceOff();
    testing::internal::CaptureStderr();
    Cairn::setEgrTunnelEcnEncap( 0, 5, 2 );
    EXPECT_EQ( testing::internal::GetCapturedStderr(), "" );
    EXPECT_TRUE( logOf( "ApiCairn" ).empty() );
    EXPECT_TRUE( logOf( "CairnLtHelper" ).empty() );
}

TEST_F( TunnelEcnTest, RecipesHaveNoMessageOfTheirOwn ) {
    Cairn::setEgrTunnelEcnEncap( 0, 5, 2 );
    Cairn::setIngTunnelEcnDecap( 0, 5, 2, true );
    EXPECT_TRUE( logOf( "CairnLtHelper" ).empty() );
}

constexpr char encapPretty[] = "void Cairn::setEgrTunnelEcnEncap(uint32_t, uint32_t, uint32_t)";
constexpr char decapPretty[] =
    "void Cairn::setIngTunnelEcnDecap(uint32_t, uint32_t, uint32_t, bool)";

TEST_F( TunnelEcnDeathTest, WideEcnValuesReachTheSdkUnchanged ) {
    // The simulated chip refuses them; the library must not have cut them to two bits before.
    const auto encap = stopOf( [] { Cairn::setEgrTunnelEcnEncap( 0, 5, 4 ); } );
    EXPECT_EQ( encap.signal, SIGABRT );
    EXPECT_EQ( encap.count( "add OUTER_ECN = 4 " ), 1 );
    const auto decap = stopOf( [] { Cairn::setIngTunnelEcnDecap( 0, 5, 0xFFFFFFFF, true ); } );
    EXPECT_EQ( decap.signal, SIGABRT );
    EXPECT_EQ( decap.count( "add INNER_ECN = 4294967295 " ), 1 );
}

TEST_F( TunnelEcnDeathTest, EachGuardedCallStopsTheProcess ) {
    expectEachFailureToStop( encapScript( 0, 5, 2 ), encapPretty,
                             [] { Cairn::setEgrTunnelEcnEncap( 0, 5, 2 ); } );
    expectEachFailureToStop( decapScript( 3, 7, 1, 1 ), decapPretty,
                             [] { Cairn::setIngTunnelEcnDecap( 3, 7, 1, true ); } );
}

TEST_F( TunnelEcnDeathTest, FailureAtTheFirstFieldReportsOnceAndNeverFrees ) {
    inject( "op=field_add,field=BCMLT_PT_INDEX,rc=-7" );
    const auto stop = stopOf( [] { Cairn::setEgrTunnelEcnEncap( 0, 5, 2 ); } );
    EXPECT_EQ( stop.signal, SIGABRT );
    EXPECT_EQ( stop.standardError,
               Support::report(
                   R"(bcmlt_entry_field_add( egrTunnelEcnEncapEntry, "BCMLT_PT_INDEX", index ))",
                   chip().errmsg( -7 ), -7, encapPretty ) );
    ASSERT_EQ( stop.lines.size(), 2u );
    EXPECT_EQ( stop.lines[0], stop.lines[1] );
    EXPECT_EQ( stop.count( "preCallHook [held]" ), 2 );
    EXPECT_EQ( stop.count( "failureHook [held]" ), 1 );
    EXPECT_EQ( stop.count( "free" ), 0 );
    ASSERT_GE( stop.log.size(), 2u );
    EXPECT_EQ( stop.log.end()[-2], "errmsg [held]" );
    EXPECT_EQ( stop.log.end()[-1], "failureHook [held]" );
}

TEST_F( TunnelEcnDeathTest, ReportHasNoBlankBeforeTheErrorTextAndOneAfterTheLineNumber ) {
    inject( "op=field_add,field=BCMLT_PT_INDEX,rc=-7" );
    const auto stop = stopOf( [] { Cairn::setEgrTunnelEcnEncap( 0, 5, 2 ); } );
    const std::string errorText = chip().errmsg( -7 );
    EXPECT_NE( stop.standardError.find( " ) API ERROR:" + errorText + " (-7)\n" ),
               std::string::npos )
        << stop.standardError;
    EXPECT_TRUE( stop.standardError.starts_with(
        "Cairn/CairnLtHelper:LINE bcmlt_entry_field_add( egrTunnelEcnEncapEntry, " ) )
        << stop.standardError;
}

TEST_F( TunnelEcnDeathTest, FailureAtTheCommitNamesTheCommitAndNeverFrees ) {
    inject( "op=pt_entry_commit,rc=-12" );
    const auto stop = stopOf( [] { Cairn::setIngTunnelEcnDecap( 0, 5, 2, true ); } );
    EXPECT_EQ( stop.signal, SIGABRT );
    EXPECT_EQ(
        stop.standardError,
        Support::report(
            R"(bcmlt_pt_entry_commit( ingTunnelEcnDecapEntry, BCMLT_PT_OPCODE_MODIFY, BCMLT_PRIORITY_NORMAL ))",
            chip().errmsg( -12 ), -12, decapPretty ) );
    EXPECT_EQ( stop.count( "preCallHook" ), 5 );
    EXPECT_EQ( stop.count( "failureHook" ), 1 );
    EXPECT_EQ( stop.count( "free" ), 0 );
}

TEST_F( TunnelEcnDeathTest, IndexBeyondTheMemoryStopsTheProcess ) {
    const auto stop = stopOf( [] { Cairn::setEgrTunnelEcnEncap( 0, 0xFFFFFFFF, 2 ); } );
    EXPECT_EQ( stop.signal, SIGABRT );
    EXPECT_EQ( stop.count( "failureHook" ), 1 );
    EXPECT_EQ( stop.count( "free" ), 0 );
}

} // namespace
