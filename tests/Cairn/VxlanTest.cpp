#include "tests/support/RecipeTest.h"

#include "Cairn/CairnLtHelper.h"

#include <Kiln/TraceHandle.h>

#include <csignal>

namespace {

using namespace Support;

constexpr char svpPretty[] = "void Cairn::setVxlanDefaultNetworkSvp(uint32_t, uint32_t)";
constexpr char t4xPretty[] = "void Cairn::setT4XVxlanDefaultNetworkSvp(uint32_t)";
constexpr char udpPretty[] = "void Cairn::setVxlanUdpSourcePortSel(uint32_t, uint32_t)";
constexpr char setAdaptPretty[] = "void Cairn::setVxlanDecapAdaptLookup(uint32_t, uint32_t, bool)";
constexpr char getAdaptPretty[] = "bool Cairn::getVxlanDecapAdaptLookup(uint32_t, uint32_t)";

constexpr char adaptRegister[] = "EGR_VLAN_CONTROL_1r";
constexpr char adaptField[] = "VXLAN_DECAP_ADAPT_LOOKUP_ENABLE";

const Sim::RowId onlyRow;

Sim::RowId portRow( uint32_t port ) {
    Sim::RowId row;
    row.port = port;
    return row;
}

class VxlanTest : public RecipeTest {
  protected:
    std::optional<uint64_t> control( int unit, const char * field ) {
        return chip().value( unit, "TNL_L2_VXLAN_CONTROL", onlyRow, field );
    }

    /// A chip whose adapt look-up field is this wide and reads this value.
    void useAdaptField( uint32_t width, uint64_t value ) {
        auto schema = Sim::referenceSchema();
        for ( auto & field : schema.find( adaptRegister )->fields ) {
            if ( field.name == adaptField ) {
                field.width = width;
                field.powerOn = value;
            }
        }
        useSchema( schema );
    }
};
using VxlanDeathTest = VxlanTest;

const Script svpScript(
    "setVxlanDefaultNetworkSvp",
    {
        guarded( R"(bcmlt_entry_allocate( unit, "TNL_L2_VXLAN_CONTROL", &tnlL2VxlanControlEntry ))",
                 "allocate 3 TNL_L2_VXLAN_CONTROL" ),
        guarded( R"(bcmlt_entry_field_add( tnlL2VxlanControlEntry, "DEFAULT_NETWORK_SVP", svp ))",
                 "add DEFAULT_NETWORK_SVP = 4660" ),
        guarded(
            R"(bcmlt_entry_commit( tnlL2VxlanControlEntry, BCMLT_OPCODE_UPDATE, BCMLT_PRIORITY_NORMAL ))",
            "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_UPDATE; commit BCMLT_OPCODE_UPDATE" ),
        guarded( R"(bcmlt_entry_free( tnlL2VxlanControlEntry ))", "free" ),
    } );

const Script udpScript(
    "setVxlanUdpSourcePortSel",
    {
        guarded( R"(bcmlt_entry_allocate( unit, "TNL_L2_VXLAN_CONTROL", &tnlL2VxlanControlEntry ))",
                 "allocate 0 TNL_L2_VXLAN_CONTROL" ),
        guarded(
            R"(bcmlt_entry_field_symbol_add( tnlL2VxlanControlEntry, "SRC_L4_PORT_SELECT", "HASH_ENTROPY" ))",
            "symbol SRC_L4_PORT_SELECT = HASH_ENTROPY" ),
        guarded(
            R"(bcmlt_entry_commit( tnlL2VxlanControlEntry, BCMLT_OPCODE_UPDATE, BCMLT_PRIORITY_NORMAL ))",
            "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_UPDATE; commit BCMLT_OPCODE_UPDATE" ),
        guarded( R"(bcmlt_entry_free( tnlL2VxlanControlEntry ))", "free" ),
    } );

const Script t4xScript(
    "setT4XVxlanDefaultNetworkSvp",
    {
        line( 3, "void Cairn::setT4XVxlanDefaultNetworkSvp(uint32_t) 0" ),
        held( "BCMLT_INVALID_HDL" ),
        guarded( R"(bcmlt_entry_allocate( unit, "R_L2_TUNNEL_DEFAULT_NETWORK_SVP", &entryHdl ))",
                 "allocate 0 R_L2_TUNNEL_DEFAULT_NETWORK_SVP" ),
        guarded( R"(bcmlt_entry_field_add( entryHdl, "SVP", 0x1 ))", "add SVP = 1" ),
        unchecked( R"(bcmlt_entry_commit( entryHdl, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ))",
                   "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_INSERT; commit BCMLT_OPCODE_INSERT" ),
        guarded( R"(bcmlt_entry_free( entryHdl ))", "free" ),
    } );

const Script t4xAgainScript(
    "setT4XVxlanDefaultNetworkSvp",
    {
        line( 3, "void Cairn::setT4XVxlanDefaultNetworkSvp(uint32_t) 0" ),
        held( "BCMLT_INVALID_HDL" ),
        guarded( R"(bcmlt_entry_allocate( unit, "R_L2_TUNNEL_DEFAULT_NETWORK_SVP", &entryHdl ))",
                 "allocate 0 R_L2_TUNNEL_DEFAULT_NETWORK_SVP" ),
        guarded( R"(bcmlt_entry_field_add( entryHdl, "SVP", 0x1 ))", "add SVP = 1" ),
        unchecked( R"(bcmlt_entry_commit( entryHdl, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ))",
                   "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_INSERT; commit BCMLT_OPCODE_INSERT", -26 ),
        line( 4, "void Cairn::setT4XVxlanDefaultNetworkSvp(uint32_t)"
                 " svp entry insertion errored out rc: -26" ),
        guarded( R"(bcmlt_entry_free( entryHdl ))", "free" ),
    } );

const Script setAdaptScript(
    "setVxlanDecapAdaptLookup",
    {
        line( 2, "setVxlanDecapAdaptLookup port 17 enable true" ),
        held( "BCMLT_INVALID_HDL" ),
        guarded( R"(bcmlt_entry_allocate( unit, "EGR_VLAN_CONTROL_1r", &ent_hdl ))",
                 "allocate 0 EGR_VLAN_CONTROL_1r" ),
        held( "BCMLT_INVALID_HDL" ),
        guarded( R"(bcmlt_entry_field_add( ent_hdl, "BCMLT_PT_PORT", port ))",
                 "add BCMLT_PT_PORT = 17" ),
        guarded( R"(bcmlt_entry_attrib_set( ent_hdl, BCMLT_ENT_ATTR_GET_FROM_HW ))",
                 "BCMLT_ENT_ATTR_GET_FROM_HW; attrib BCMLT_ENT_ATTR_GET_FROM_HW" ),
        guarded( R"(bcmlt_pt_entry_commit( ent_hdl, BCMLT_PT_OPCODE_GET, BCMLT_PRIORITY_NORMAL ))",
                 "BCMLT_PRIORITY_NORMAL; BCMLT_PT_OPCODE_GET; pt_commit BCMLT_PT_OPCODE_GET" ),
        guarded(
            R"(bcmlt_entry_field_add( ent_hdl, "VXLAN_DECAP_ADAPT_LOOKUP_ENABLE", enable ? 1 : 0 ))",
            "add VXLAN_DECAP_ADAPT_LOOKUP_ENABLE = 1" ),
        guarded( R"(bcmlt_pt_entry_commit( ent_hdl, BCMLT_PT_OPCODE_SET, BCMLT_PRIORITY_NORMAL ))",
                 "BCMLT_PRIORITY_NORMAL; BCMLT_PT_OPCODE_SET; pt_commit BCMLT_PT_OPCODE_SET" ),
        guarded( R"(bcmlt_entry_free( ent_hdl ))", "free" ),
    } );

const Script getAdaptScript(
    "getVxlanDecapAdaptLookup",
    {
        held( "BCMLT_INVALID_HDL" ),
        guarded( R"(bcmlt_entry_allocate( unit, "EGR_VLAN_CONTROL_1r", &ent_hdl ))",
                 "allocate 0 EGR_VLAN_CONTROL_1r" ),
        held( "BCMLT_INVALID_HDL" ),
        guarded( R"(bcmlt_entry_field_add( ent_hdl, "BCMLT_PT_PORT", port ))",
                 "add BCMLT_PT_PORT = 17" ),
        guarded( R"(bcmlt_pt_entry_commit( ent_hdl, BCMLT_PT_OPCODE_GET, BCMLT_PRIORITY_NORMAL ))",
                 "BCMLT_PRIORITY_NORMAL; BCMLT_PT_OPCODE_GET; pt_commit BCMLT_PT_OPCODE_GET" ),
        guarded( R"(bcmlt_entry_field_get( ent_hdl, "VXLAN_DECAP_ADAPT_LOOKUP_ENABLE", &val ))",
                 "get VXLAN_DECAP_ADAPT_LOOKUP_ENABLE" ),
        line( 2, "getVxlanDecapAdaptLookup port 17 enable 0" ),
        guarded( R"(bcmlt_entry_free( ent_hdl ))", "free" ),
    } );

TEST_F( VxlanTest, DefaultNetworkSvpIsUpdatedInTheControlTable ) {
    Cairn::setVxlanDefaultNetworkSvp( 3, 0x1234 );
    expectLog( svpScript );
    EXPECT_EQ( control( 3, "DEFAULT_NETWORK_SVP" ), 0x1234u );
    EXPECT_EQ( control( 3, "DST_L4_PORT" ), 4789u );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( VxlanTest, UdpSourcePortIsTheHashEntropy ) {
    Cairn::setVxlanUdpSourcePortSel( 0, 1 );
    expectLog( udpScript );
    const auto * field =
        chip().schema( 0 )->find( "TNL_L2_VXLAN_CONTROL" )->find( "SRC_L4_PORT_SELECT" );
    EXPECT_EQ( control( 0, "SRC_L4_PORT_SELECT" ), field->findSymbol( "HASH_ENTROPY" )->value );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( VxlanTest, UdpSourcePortSelectionMakesTheSameCallsWhateverItsSecondArgument ) {
    Cairn::setVxlanUdpSourcePortSel( 0, 0 );
    expectLog( udpScript );
    clearLog();
    Cairn::setVxlanUdpSourcePortSel( 0, 7 );
    expectLog( udpScript );
}

TEST_F( VxlanTest, ControlTableRecipesNeverAskForTheInvalidHandle ) {
    Cairn::setVxlanDefaultNetworkSvp( 0, 1 );
    Cairn::setVxlanUdpSourcePortSel( 0, 0 );
    EXPECT_TRUE( logOf( "BCMLT_INVALID_HDL" ).empty() );
    EXPECT_TRUE( logOf( "CairnLtHelper" ).empty() );
}

TEST_F( VxlanTest, T4XDefaultNetworkSvpIsInsertedAsOne ) {
    Cairn::setT4XVxlanDefaultNetworkSvp( 0 );
    expectLog( t4xScript );
    EXPECT_EQ( chip().value( 0, "R_L2_TUNNEL_DEFAULT_NETWORK_SVP", onlyRow, "SVP" ), 1u );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( VxlanTest, T4XSecondInsertFailsIsTracedAndToleratedAndTheEntryFreed ) {
    Cairn::setT4XVxlanDefaultNetworkSvp( 0 );
    clearLog();
    testing::internal::CaptureStderr();
    Cairn::setT4XVxlanDefaultNetworkSvp( 0 );
    EXPECT_EQ( testing::internal::GetCapturedStderr(), "" );
    expectLog( t4xAgainScript );
    EXPECT_EQ( logOf( "preCallHook" ).size(), 3u );
    EXPECT_EQ( chip().failureCount(), 0u );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( VxlanTest, T4XPositiveInsertCodeIsSuccessWithoutTheErrorLine ) {
    inject( "op=commit,rc=6" );
    Cairn::setT4XVxlanDefaultNetworkSvp( 0 );
    EXPECT_EQ( logOf( "CairnLtHelper/4" ).size(), 0u );
    EXPECT_EQ( logOf( "ApiCairn/4 setT4XVxlanDefaultNetworkSvp: bcmlt_entry_commit( entryHdl, "
                      "BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ) (rc:6)" )
                   .size(),
               1u );
}

TEST_F( VxlanTest, T4XMessagesComeAtLevelsThreeAndFour ) {
    expectMessagesAtTheirLevels( t4xScript, [] { Cairn::setT4XVxlanDefaultNetworkSvp( 0 ); } );
    expectMessagesAtTheirLevels( t4xAgainScript, [this] {
        inject( "op=commit,rc=-26" );
        Cairn::setT4XVxlanDefaultNetworkSvp( 0 );
    } );
}

TEST_F( VxlanTest, AdaptLookupIsReadFromTheHardwareChangedAndWrittenBack ) {
    Cairn::setVxlanDecapAdaptLookup( 0, 17, true );
    expectLog( setAdaptScript );
    EXPECT_EQ( chip().value( 0, adaptRegister, portRow( 17 ), adaptField ), 1u );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( VxlanTest, DisablingAdaptLookupWritesZeroAndKeepsWhatTheHardwareHeld ) {
    Cairn::setVxlanDecapAdaptLookup( 0, 17, true );
    ASSERT_EQ( chip().pokeHardware( 0, adaptRegister, portRow( 17 ), "VT_KEY_TYPE", 9 ),
               Sim::Rc::ok );
    clearLog();
    Cairn::setVxlanDecapAdaptLookup( 0, 17, false );
    EXPECT_EQ( logOf( "add VXLAN_DECAP_ADAPT_LOOKUP_ENABLE = 0" ).size(), 1u );
    EXPECT_EQ( logOf( "add " ).size(), 2u );
    EXPECT_EQ( logOf( "CairnLtHelper/2" ),
               std::vector<std::string>{ "CairnLtHelper/2 setVxlanDecapAdaptLookup: "
                                         "setVxlanDecapAdaptLookup port 17 enable false [held]" } );
    for ( const auto & field : chip().schema( 0 )->find( adaptRegister )->fields ) {
        const uint64_t expected = field.name == adaptField      ? 0
                                  : field.name == "VT_KEY_TYPE" ? 9
                                                                : field.initial();
        EXPECT_EQ( chip().value( 0, adaptRegister, portRow( 17 ), field.name ), expected )
            << field.name;
    }
}

TEST_F( VxlanTest, OtherPortsOfTheAdaptRegisterStayAsTheyAre ) {
    Cairn::setVxlanDecapAdaptLookup( 0, 17, true );
    EXPECT_FALSE( Cairn::getVxlanDecapAdaptLookup( 0, 16 ) );
    EXPECT_FALSE( Cairn::getVxlanDecapAdaptLookup( 3, 17 ) );
    EXPECT_TRUE( Cairn::getVxlanDecapAdaptLookup( 0, 17 ) );
}

TEST_F( VxlanTest, AdaptLookupIsReadWithoutTheHardwareAttribute ) {
    EXPECT_FALSE( Cairn::getVxlanDecapAdaptLookup( 0, 17 ) );
    expectLog( getAdaptScript );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
    // What changed behind the cache is not seen.
    ASSERT_EQ( chip().pokeHardware( 0, adaptRegister, portRow( 17 ), adaptField, 1 ), Sim::Rc::ok );
    EXPECT_FALSE( Cairn::getVxlanDecapAdaptLookup( 0, 17 ) );
}

TEST_F( VxlanTest, AdaptLookupIsOnForEveryValueButZero ) {
    useAdaptField( 4, 1 );
    EXPECT_TRUE( Cairn::getVxlanDecapAdaptLookup( 0, 17 ) );
    useAdaptField( 4, 2 );
    EXPECT_TRUE( Cairn::getVxlanDecapAdaptLookup( 0, 17 ) );
    useAdaptField( 4, 0 );
    EXPECT_FALSE( Cairn::getVxlanDecapAdaptLookup( 0, 17 ) );
}

TEST_F( VxlanTest, AdaptLookupIsReadAndShownIn64Bits ) {
    useAdaptField( 64, uint64_t( 1 ) << 32 );
    EXPECT_TRUE( Cairn::getVxlanDecapAdaptLookup( 0, 17 ) );
    EXPECT_EQ(
        logOf( "CairnLtHelper" ),
        std::vector<std::string>{ "CairnLtHelper/2 getVxlanDecapAdaptLookup: "
                                  "getVxlanDecapAdaptLookup port 17 enable 4294967296 [held]" } );
}

TEST_F( VxlanTest, AdaptLookupMessagesComeAtLevelTwo ) {
    expectMessagesAtTheirLevels( setAdaptScript,
                                 [] { Cairn::setVxlanDecapAdaptLookup( 0, 17, true ); } );
    expectMessagesAtTheirLevels( getAdaptScript,
                                 [] { (void)Cairn::getVxlanDecapAdaptLookup( 0, 17 ); } );
}

TEST_F( VxlanTest, NothingIsWrittenWithAllLevelsOff ) {
    Kiln::traceOff();
    testing::internal::CaptureStderr();
    Cairn::setT4XVxlanDefaultNetworkSvp( 0 );
    Cairn::setT4XVxlanDefaultNetworkSvp( 0 );
    Cairn::setVxlanDecapAdaptLookup( 0, 17, true );
    EXPECT_TRUE( Cairn::getVxlanDecapAdaptLookup( 0, 17 ) );
    EXPECT_EQ( testing::internal::GetCapturedStderr(), "" );
    EXPECT_TRUE( logOf( "ApiCairn" ).empty() );
    EXPECT_TRUE( logOf( "CairnLtHelper" ).empty() );
}

TEST_F( VxlanDeathTest, EachGuardedCallStopsTheProcess ) {
    expectEachFailureToStop( svpScript, svpPretty,
                             [] { Cairn::setVxlanDefaultNetworkSvp( 3, 0x1234 ); } );
    expectEachFailureToStop( udpScript, udpPretty,
                             [] { Cairn::setVxlanUdpSourcePortSel( 0, 1 ); } );
    expectEachFailureToStop( t4xScript, t4xPretty,
                             [] { Cairn::setT4XVxlanDefaultNetworkSvp( 0 ); } );
    expectEachFailureToStop( setAdaptScript, setAdaptPretty,
                             [] { Cairn::setVxlanDecapAdaptLookup( 0, 17, true ); } );
    expectEachFailureToStop( getAdaptScript, getAdaptPretty,
                             [] { (void)Cairn::getVxlanDecapAdaptLookup( 0, 17 ); } );
}

TEST_F( VxlanDeathTest, AdaptRecipesStopWhenTheAllocateLeavesTheHandleInvalid ) {
    expectHandleAssertion( setAdaptPretty, [] { Cairn::setVxlanDecapAdaptLookup( 0, 17, true ); } );
    expectHandleAssertion( getAdaptPretty, [] { (void)Cairn::getVxlanDecapAdaptLookup( 0, 17 ); } );
}

TEST_F( VxlanDeathTest, PortThatTheChipDoesNotHaveReachesTheSdkUnchanged ) {
    const auto stop = stopOf( [] { Cairn::setVxlanDecapAdaptLookup( 0, 4294967295u, true ); } );
    EXPECT_EQ( stop.signal, SIGABRT );
    EXPECT_EQ( stop.count( "add BCMLT_PT_PORT = 4294967295 " ), 1 );
    EXPECT_EQ( stop.count( "failureHook" ), 1 );
    const auto wide = stopOf( [] { Cairn::setVxlanDefaultNetworkSvp( 0, 4294967295u ); } );
    EXPECT_EQ( wide.signal, SIGABRT );
    EXPECT_EQ( wide.count( "add DEFAULT_NETWORK_SVP = 4294967295 " ), 1 );
}

} // namespace
