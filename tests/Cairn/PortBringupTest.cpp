#include "tests/support/RecipeTest.h"

#include "Cairn/CairnLtHelper.h"

#include <Kiln/TraceHandle.h>

#include <csignal>
#include <memory>
#include <type_traits>

namespace {

using namespace Support;
using CairnTypes::CairnPort;
using Hardware::Cairn::TridentPortId;
using Netbase::IntfId;

constexpr char cpuPretty[] = "void Cairn::cpuPortInit(Cairn::CairnCommonSmData::Ptr)";
constexpr char loopbackPretty[] = "void Cairn::lbPortInit(Cairn::CairnCommonSmData::Ptr)";

CairnPort port( uint16_t unit, uint16_t portId ) {
    CairnPort result;
    result.slot = 1;
    result.unit = unit;
    result.portId = portId;
    return result;
}

Sim::RowId portRow( uint64_t portId ) {
    Sim::RowId row;
    row.key = { portId };
    return row;
}

class PortBringupTest : public RecipeTest {
  protected:
    void addCpuPort( uint16_t unit, uint16_t portId ) {
        state->cairnCpuPortToIntf.set( port( unit, portId ), IntfId{ 7000u + portId } );
    }
    void addLoopback( uint32_t intf, CairnPort where ) {
        state->cairnInternalRecircIntfToPort.set( IntfId{ intf }, where );
    }
    void addHardware( CairnPort where, uint16_t physicalPort ) {
        state->cairnPortToHwConfigPort.set( where, TridentPortId{ physicalPort } );
    }

    void expectPort( int unit, uint64_t portId, uint64_t physicalPort ) {
        SCOPED_TRACE( "port " + std::to_string( portId ) );
        const auto row = portRow( portId );
        EXPECT_EQ( chip().value( unit, "PC_PORT_PHYS_MAP", row, "PC_PHYS_PORT_ID" ), physicalPort );
        EXPECT_EQ( chip().value( unit, "PC_PORT", row, "ENABLE" ), 1u );
        EXPECT_EQ( chip().value( unit, "PC_PORT", row, "NUM_LANES" ), 1u );
        EXPECT_EQ( chip().value( unit, "PC_PORT", row, "SPEED" ), 10000u );
    }

    Cairn::CairnCommonSmData::Ptr state = Nacre::make<Cairn::CairnCommonSmData>();
};
using PortBringupDeathTest = PortBringupTest;

void scriptCpuPort( Script & script, uint32_t unit, uint32_t portId ) {
    const std::string onUnit = "allocate " + std::to_string( unit );
    const std::string id = std::to_string( portId );
    script.add( {
        guarded( R"(bcmlt_entry_allocate( unit, PC_PORT_PHYS_MAPs, &cpuPortEntry ))",
                 "PC_PORT_PHYS_MAPs; " + onUnit + " PC_PORT_PHYS_MAP" ),
        guarded( R"(bcmlt_entry_field_add( cpuPortEntry, PORT_IDs, portId ))",
                 "PORT_IDs; add PORT_ID = " + id ),
        guarded( R"(bcmlt_entry_field_add( cpuPortEntry, PC_PHYS_PORT_IDs, portId ))",
                 "PC_PHYS_PORT_IDs; add PC_PHYS_PORT_ID = " + id ),
        guarded(
            R"(bcmlt_entry_commit( cpuPortEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ))",
            "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_INSERT; commit BCMLT_OPCODE_INSERT" ),
        guarded( R"(bcmlt_entry_free( cpuPortEntry ))", "free" ),
        guarded( R"(bcmlt_entry_allocate( unit, PC_PORTs, &cpuPortEntry ))",
                 "PC_PORTs; " + onUnit + " PC_PORT" ),
        guarded( R"(bcmlt_entry_field_add( cpuPortEntry, PORT_IDs, portId ))",
                 "PORT_IDs; add PORT_ID = " + id ),
        guarded( R"(bcmlt_entry_field_add( cpuPortEntry, ENABLEs, 1 ))",
                 "ENABLEs; add ENABLE = 1" ),
        guarded( R"(bcmlt_entry_field_add( cpuPortEntry, NUM_LANESs, 1 ))",
                 "NUM_LANESs; add NUM_LANES = 1" ),
        guarded( R"(bcmlt_entry_field_add( cpuPortEntry, SPEEDs, 10000 ))",
                 "SPEEDs; add SPEED = 10000" ),
        guarded(
            R"(bcmlt_entry_commit( cpuPortEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ))",
            "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_INSERT; commit BCMLT_OPCODE_INSERT" ),
        guarded( R"(bcmlt_entry_free( cpuPortEntry ))", "free" ),
    } );
}

void scriptLoopbackPort( Script & script, uint32_t unit, uint32_t portId, uint32_t physicalPort ) {
    const std::string onUnit = "allocate " + std::to_string( unit );
    const std::string id = std::to_string( portId );
    const std::string physicalId = std::to_string( physicalPort );
    script.add( {
        line( 8, "lbPortInit portId: " + id + " phyPortId: " + physicalId ),
        guarded( R"(bcmlt_entry_allocate( unit, "PC_PORT_PHYS_MAP", &lbPortEntry ))",
                 onUnit + " PC_PORT_PHYS_MAP" ),
        guarded( R"(bcmlt_entry_field_add( lbPortEntry, "PORT_ID", portId ))",
                 "add PORT_ID = " + id ),
        guarded( R"(bcmlt_entry_field_add( lbPortEntry, "PC_PHYS_PORT_ID", phyPortId ))",
                 "add PC_PHYS_PORT_ID = " + physicalId ),
        guarded( R"(bcmlt_entry_commit( lbPortEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ))",
                 "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_INSERT; commit BCMLT_OPCODE_INSERT" ),
        guarded( R"(bcmlt_entry_free( lbPortEntry ))", "free" ),
        guarded( R"(bcmlt_entry_allocate( unit, "PC_PORT", &lbPortEntry ))", onUnit + " PC_PORT" ),
        guarded( R"(bcmlt_entry_field_add( lbPortEntry, "PORT_ID", portId ))",
                 "add PORT_ID = " + id ),
        guarded( R"(bcmlt_entry_field_add( lbPortEntry, "ENABLE", 1 ))", "add ENABLE = 1" ),
        guarded( R"(bcmlt_entry_field_add( lbPortEntry, "NUM_LANES", 1 ))", "add NUM_LANES = 1" ),
        guarded( R"(bcmlt_entry_field_add( lbPortEntry, "SPEED", 10000 ))", "add SPEED = 10000" ),
        guarded( R"(bcmlt_entry_commit( lbPortEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ))",
                 "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_INSERT; commit BCMLT_OPCODE_INSERT" ),
        guarded( R"(bcmlt_entry_free( lbPortEntry ))", "free" ),
    } );
}

// --- CPU ports

TEST_F( PortBringupTest, CpuPortIsInsertedIntoBothTablesUnderNamesOfTheShim ) {
    addCpuPort( 0, 5 );
    Cairn::cpuPortInit( state );
    Script script( "cpuPortInit" );
    scriptCpuPort( script, 0, 5 );
    expectLog( script );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( PortBringupTest, CpuPortsAreInsertedInTheOrderOfTheMapEachOnItsUnit ) {
    addCpuPort( 3, 200 );
    addCpuPort( 0, 0 );
    addCpuPort( 0, 65535 );
    Cairn::cpuPortInit( state );
    Script script( "cpuPortInit" );
    scriptCpuPort( script, 3, 200 );
    scriptCpuPort( script, 0, 0 );
    scriptCpuPort( script, 0, 65535 );
    expectLog( script );
    EXPECT_EQ( chip().rowCount( 0, "PC_PORT" ), 2u );
    EXPECT_EQ( chip().rowCount( 3, "PC_PORT" ), 1u );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( PortBringupTest, CpuPortIsMappedToThePhysicalPortOfTheSameNumber ) {
    addCpuPort( 0, 77 );
    addHardware( port( 0, 77 ), 5 ); // not looked at
    Cairn::cpuPortInit( state );
    expectPort( 0, 77, 77 );
}

TEST_F( PortBringupTest, CpuPortsHaveNoMessage ) {
    addCpuPort( 0, 5 );
    Cairn::cpuPortInit( state );
    EXPECT_TRUE( logOf( "CairnLtHelper" ).empty() );
}

TEST_F( PortBringupTest, EmptyMapsInsertNothingAndLeaveNoCallTrace ) {
    Cairn::cpuPortInit( state );
    EXPECT_TRUE( log().empty() );
    Cairn::lbPortInit( state );
    expectLog( Script( "lbPortInit", { line( 9, "lbPortInit" ) } ) );
}

// --- Loopback ports

TEST_F( PortBringupTest, LoopbackPortIsInsertedIntoBothTablesWithItsPhysicalPort ) {
    addLoopback( 100, port( 3, 9 ) );
    addHardware( port( 3, 9 ), 260 );
    Cairn::lbPortInit( state );
    Script script( "lbPortInit", { line( 9, "lbPortInit" ) } );
    scriptLoopbackPort( script, 3, 9, 260 );
    expectLog( script );
    expectPort( 3, 9, 260 );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( PortBringupTest, LoopbackPortsAreInsertedInTheOrderOfTheMapEachOnItsUnit ) {
    addLoopback( 500, port( 0, 65534 ) );
    addLoopback( 2, port( 3, 1 ) );
    addLoopback( 300, port( 0, 12 ) );
    addHardware( port( 3, 1 ), 65535 );
    addHardware( port( 0, 12 ), 13 );
    addHardware( port( 0, 65534 ), 14 );
    Cairn::lbPortInit( state );
    Script script( "lbPortInit", { line( 9, "lbPortInit" ) } );
    scriptLoopbackPort( script, 0, 65534, 14 );
    scriptLoopbackPort( script, 3, 1, 65535 );
    scriptLoopbackPort( script, 0, 12, 13 );
    expectLog( script );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( PortBringupTest, LoopbackPortWithoutHardwarePortGetsPhysicalPortZero ) {
    addLoopback( 100, port( 0, 9 ) );
    addHardware( port( 3, 9 ), 260 ); // another unit's
    Cairn::lbPortInit( state );
    Script script( "lbPortInit", { line( 9, "lbPortInit" ) } );
    scriptLoopbackPort( script, 0, 9, 0 );
    expectLog( script );
    expectPort( 0, 9, 0 );
}

TEST_F( PortBringupTest, SpeedLanesAndEnableAreTheSameForBothKinds ) {
    addCpuPort( 0, 1 );
    addCpuPort( 0, 1022 );
    addLoopback( 1, port( 0, 2 ) );
    addLoopback( 2, port( 0, 1000 ) );
    Cairn::cpuPortInit( state );
    Cairn::lbPortInit( state );
    EXPECT_EQ( logOf( "add SPEED" ),
               std::vector<std::string>( 4, "add SPEED = 10000 [released]" ) );
    EXPECT_EQ( logOf( "add NUM_LANES" ),
               std::vector<std::string>( 4, "add NUM_LANES = 1 [released]" ) );
    EXPECT_EQ( logOf( "add ENABLE" ), std::vector<std::string>( 4, "add ENABLE = 1 [released]" ) );
}

TEST_F( PortBringupTest, MapsMayChangeWhileTheLockIsGivenUp ) {
    addLoopback( 1, port( 0, 21 ) );
    addLoopback( 2, port( 0, 22 ) );
    addLoopback( 3, port( 0, 23 ) );
    onEntry = [this]( const std::string & entry ) {
        if ( entry != "add PORT_ID = 21 [released]" )
            return;
        state->cairnInternalRecircIntfToPort.erase( IntfId{ 2 } );
        addHardware( port( 0, 23 ), 33 );
        addLoopback( 4, port( 0, 24 ) );
    };
    Cairn::lbPortInit( state );
    Script script( "lbPortInit", { line( 9, "lbPortInit" ) } );
    scriptLoopbackPort( script, 0, 21, 0 );
    scriptLoopbackPort( script, 0, 23, 33 );
    scriptLoopbackPort( script, 0, 24, 0 );
    expectLog( script );
}

TEST_F( PortBringupTest, LoopbackMessagesComeAtLevelsEightAndNine ) {
    addLoopback( 100, port( 0, 9 ) );
    addLoopback( 101, port( 3, 10 ) );
    Script script( "lbPortInit", { line( 9, "lbPortInit" ) } );
    scriptLoopbackPort( script, 0, 9, 0 );
    scriptLoopbackPort( script, 3, 10, 0 );
    expectMessagesAtTheirLevels( script, [this] { Cairn::lbPortInit( state ); } );
}

TEST_F( PortBringupTest, NothingIsWrittenWithAllLevelsOff ) {
    addCpuPort( 0, 5 );
    addLoopback( 100, port( 0, 9 ) );
    Kiln::traceOff();
    testing::internal::CaptureStderr();
    Cairn::cpuPortInit( state );
    Cairn::lbPortInit( state );
    EXPECT_EQ( testing::internal::GetCapturedStderr(), "" );
    EXPECT_TRUE( logOf( "ApiCairn" ).empty() );
    EXPECT_TRUE( logOf( "CairnLtHelper" ).empty() );
}

// --- Stops

TEST_F( PortBringupDeathTest, EachCallForACpuPortStopsTheProcess ) {
    addCpuPort( 0, 5 );
    Script script( "cpuPortInit" );
    scriptCpuPort( script, 0, 5 );
    expectEachFailureToStop( script, cpuPretty, [this] { Cairn::cpuPortInit( state ); } );
}

TEST_F( PortBringupDeathTest, EachCallForALoopbackPortStopsTheProcess ) {
    addLoopback( 100, port( 3, 9 ) );
    addHardware( port( 3, 9 ), 260 );
    Script script( "lbPortInit", { line( 9, "lbPortInit" ) } );
    scriptLoopbackPort( script, 3, 9, 260 );
    expectEachFailureToStop( script, loopbackPretty, [this] { Cairn::lbPortInit( state ); } );
}

TEST_F( PortBringupDeathTest, SecondBringupStopsAtTheFirstInsert ) {
    addCpuPort( 0, 5 );
    addLoopback( 100, port( 0, 9 ) );
    Cairn::cpuPortInit( state );
    Cairn::lbPortInit( state );
    const auto cpu = stopOf( [this] { Cairn::cpuPortInit( state ); } );
    EXPECT_EQ(
        cpu.standardError,
        report( R"(bcmlt_entry_commit( cpuPortEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ))",
                chip().errmsg( -26 ), -26, cpuPretty ) );
    EXPECT_EQ( cpu.count( "preCallHook" ), 4 );
    const auto loopback = stopOf( [this] { Cairn::lbPortInit( state ); } );
    EXPECT_EQ(
        loopback.standardError,
        report( R"(bcmlt_entry_commit( lbPortEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ))",
                chip().errmsg( -26 ), -26, loopbackPretty ) );
    EXPECT_EQ( loopback.count( "preCallHook" ), 4 );
}

TEST_F( PortBringupDeathTest, FailureAtTheSecondPortLeavesTheFirstInserted ) {
    addCpuPort( 0, 5 );
    addCpuPort( 9, 6 ); // no such unit
    const auto stop = stopOf( [this] { Cairn::cpuPortInit( state ); } );
    EXPECT_EQ( stop.signal, SIGABRT );
    EXPECT_EQ( stop.standardError,
               report( R"(bcmlt_entry_allocate( unit, PC_PORT_PHYS_MAPs, &cpuPortEntry ))",
                       chip().errmsg( -2 ), -2, cpuPretty ) );
    EXPECT_EQ( stop.count( "commit BCMLT_OPCODE_INSERT" ), 2 );
    EXPECT_EQ( stop.count( "commit " ), 2 );
    EXPECT_EQ( stop.count( "free" ), 2 );
}

TEST_F( PortBringupDeathTest, LoopbackKeyThatIsNotFoundAgainIsProgrammedWithTheDefaultPort ) {
    addLoopback( 100, port( 0, 9 ) );
    addHardware( port( 0, 9 ), 33 );
    // The element in the map's list gets another key than the one under which it is looked up.
    using Element = std::remove_cvref_t<decltype( *state->cairnInternalRecircIntfToPort.begin() )>;
    auto & element = const_cast<Element &>( *state->cairnInternalRecircIntfToPort.begin() );
    const CairnPort where = element.value;
    std::destroy_at( &element );
    std::construct_at( &element, Element{ IntfId{ 101 }, where } );
    const auto stop = stopOf( [this] { Cairn::lbPortInit( state ); } );
    EXPECT_EQ( stop.count( "CairnLtHelper/8 lbPortInit: lbPortInit portId: 1023 phyPortId: 0 " ),
               1 );
    EXPECT_EQ( stop.count( "allocate 65535 PC_PORT_PHYS_MAP " ), 1 );
    EXPECT_EQ( stop.count( "allocate" ), 1 );
}

TEST_F( PortBringupDeathTest, DefaultPortGoesToUnit65535AndPort1023 ) {
    addLoopback( 100, CairnPort() );
    const auto stop = stopOf( [this] { Cairn::lbPortInit( state ); } );
    EXPECT_EQ( stop.signal, SIGABRT );
    EXPECT_EQ( stop.standardError,
               report( R"(bcmlt_entry_allocate( unit, "PC_PORT_PHYS_MAP", &lbPortEntry ))",
                       chip().errmsg( -2 ), -2, loopbackPretty ) );
    EXPECT_EQ( stop.count( "CairnLtHelper/8 lbPortInit: lbPortInit portId: 1023 phyPortId: 0 " ),
               1 );
    EXPECT_EQ( stop.count( "allocate 65535 PC_PORT_PHYS_MAP " ), 1 );
}

} // namespace
