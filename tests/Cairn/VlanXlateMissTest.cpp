#include "tests/support/RecipeTest.h"

#include "Cairn/CairnLtHelper.h"

#include <Kiln/TraceHandle.h>

#include <csignal>

namespace {

using namespace Support;
using Cairn::setVlanXlateMissDrop;

constexpr char pretty[] = "void Cairn::setVlanXlateMissDrop(Cairn::CairnCommonSmData::Ptr)";
constexpr char table[] = "R_VLAN_XLATE_MISS_POLICY";

constexpr uint32_t actStage = 64;
constexpr uint32_t updateStage = 106;

const Sim::RowId onlyRow;

const Script insertScript(
    "setVlanXlateMissDrop",
    {
        held( "isBlocked beta 64" ),
        line( 2, "setVlanXlateMissDrop unit: 3" ),
        held( "BCMLT_INVALID_HDL" ),
        guarded(
            R"(bcmlt_entry_allocate( unit, "R_VLAN_XLATE_MISS_POLICY", &vlanXlateMissPolicy ))",
            "allocate 3 R_VLAN_XLATE_MISS_POLICY" ),
        guarded( R"(bcmlt_entry_field_add( vlanXlateMissPolicy, "OPAQUE_CTRL_ID", val ))",
                 "add OPAQUE_CTRL_ID = 4" ),
        held( "isBlocked beta 106" ),
        guarded(
            R"(bcmlt_entry_commit( vlanXlateMissPolicy, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ))",
            "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_INSERT; commit BCMLT_OPCODE_INSERT" ),
        guarded( R"(bcmlt_entry_free( vlanXlateMissPolicy ))", "free" ),
    } );

const Script updateScript(
    "setVlanXlateMissDrop",
    {
        held( "isBlocked beta 64" ),
        line( 2, "setVlanXlateMissDrop unit: 3" ),
        held( "BCMLT_INVALID_HDL" ),
        guarded(
            R"(bcmlt_entry_allocate( unit, "R_VLAN_XLATE_MISS_POLICY", &vlanXlateMissPolicy ))",
            "allocate 3 R_VLAN_XLATE_MISS_POLICY" ),
        guarded( R"(bcmlt_entry_field_add( vlanXlateMissPolicy, "OPAQUE_CTRL_ID", val ))",
                 "add OPAQUE_CTRL_ID = 4" ),
        held( "isBlocked beta 106" ),
        guarded(
            R"(bcmlt_entry_commit( vlanXlateMissPolicy, BCMLT_OPCODE_UPDATE, BCMLT_PRIORITY_NORMAL ))",
            "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_UPDATE; commit BCMLT_OPCODE_UPDATE" ),
        guarded( R"(bcmlt_entry_free( vlanXlateMissPolicy ))", "free" ),
    } );

class VlanXlateMissTest : public RecipeTest {
  protected:
    void putPolicy() { putRow( 3, table, { { "OPAQUE_CTRL_ID", 9 }, { "POLICY_STRENGTH", 6 } } ); }
    std::optional<uint64_t> policy( const char * field ) {
        return chip().value( 3, table, onlyRow, field );
    }

    // The first module of the walk is not the one with the lowest number.
    const Cairn::CairnCommonSmData::Ptr state = sharedState( { { 3, "beta" }, { 0, "alpha" } } );
};
using VlanXlateMissDeathTest = VlanXlateMissTest;

TEST_F( VlanXlateMissTest, ChipBlockedAt64IsLeftAloneWithoutAMessage ) {
    blockedStages = { actStage, updateStage };
    setVlanXlateMissDrop( state );
    EXPECT_EQ( log(), std::vector<std::string>{ "isBlocked beta 64 [held]" } );
    EXPECT_EQ( chip().preCallCount(), 0u );
    EXPECT_EQ( chip().rowCount( 3, table ), 0u );
}

TEST_F( VlanXlateMissTest, ChipBlockedAt106ButNotAt64GetsAnInsert ) {
    blockedStages = { updateStage };
    setVlanXlateMissDrop( state );
    expectLog( insertScript );
    EXPECT_EQ( policy( "OPAQUE_CTRL_ID" ), 4u );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( VlanXlateMissTest, ChipPast106GetsAnUpdate ) {
    putPolicy();
    setVlanXlateMissDrop( state );
    expectLog( updateScript );
    EXPECT_EQ( policy( "OPAQUE_CTRL_ID" ), 4u );
    EXPECT_EQ( policy( "POLICY_STRENGTH" ), 6u );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( VlanXlateMissTest, StagesAreAskedByIsBlockedAlone ) {
    // Neither blocked nor unblocked: not blocked is what counts.
    neitherStages = { actStage, updateStage };
    putPolicy();
    setVlanXlateMissDrop( state );
    expectLog( updateScript );
}

TEST_F( VlanXlateMissTest, SecondStageIsAskedAtItsOwnMoment ) {
    onEntry = [this]( const std::string & entry ) {
        if ( entry == "add OPAQUE_CTRL_ID = 4 [released]" )
            blockedStages = { actStage, updateStage };
    };
    setVlanXlateMissDrop( state );
    expectLog( insertScript );
}

TEST_F( VlanXlateMissTest, InsertDuringBringupThenUpdateAfterIt ) {
    blockedStages = { updateStage };
    setVlanXlateMissDrop( state );
    blockedStages.clear();
    clearLog();
    setVlanXlateMissDrop( state );
    expectLog( updateScript );
    EXPECT_EQ( chip().rowCount( 3, table ), 1u );
}

TEST_F( VlanXlateMissTest, OnlyTheFirstModuleOfTheWalkIsUsedAndItsKeyIsTheUnit ) {
    blockedStages = { updateStage };
    setVlanXlateMissDrop( state );
    EXPECT_EQ( logOf( "allocate" ),
               std::vector<std::string>{ "allocate 3 R_VLAN_XLATE_MISS_POLICY [released]" } );
    EXPECT_TRUE( logOf( "isBlocked alpha" ).empty() );
    EXPECT_EQ( chip().rowCount( 0, table ), 0u );
}

TEST_F( VlanXlateMissTest, ChangesOfTheStateWhileTheLockIsGivenUpHaveNoEffect ) {
    blockedStages = { updateStage };
    onEntry = [this]( const std::string & entry ) {
        if ( entry.starts_with( "allocate" ) )
            state->cairnModIds.erase( 3 );
    };
    setVlanXlateMissDrop( state );
    expectLog( insertScript );
}

TEST_F( VlanXlateMissTest, MessageComesAtLevelTwo ) {
    blockedStages = { updateStage };
    expectMessagesAtTheirLevels( insertScript, [this] { setVlanXlateMissDrop( state ); } );
}

TEST_F( VlanXlateMissDeathTest, EachCallStopsTheProcess ) {
    blockedStages = { updateStage };
    expectEachFailureToStop( insertScript, pretty, [this] { setVlanXlateMissDrop( state ); } );
    blockedStages.clear();
    putPolicy();
    expectEachFailureToStop( updateScript, pretty, [this] { setVlanXlateMissDrop( state ); } );
}

TEST_F( VlanXlateMissDeathTest, InsertOfAPolicyThatIsThereStopsTheProcess ) {
    blockedStages = { updateStage };
    putPolicy();
    const auto stop = stopOf( [this] { setVlanXlateMissDrop( state ); } );
    EXPECT_EQ( stop.signal, SIGABRT );
    EXPECT_EQ(
        stop.standardError,
        report(
            R"(bcmlt_entry_commit( vlanXlateMissPolicy, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ))",
            chip().errmsg( -26 ), -26, pretty ) );
}

TEST_F( VlanXlateMissDeathTest, UpdateOfAPolicyThatIsNotThereStopsTheProcess ) {
    const auto stop = stopOf( [this] { setVlanXlateMissDrop( state ); } );
    EXPECT_EQ( stop.signal, SIGABRT );
    EXPECT_EQ(
        stop.standardError,
        report(
            R"(bcmlt_entry_commit( vlanXlateMissPolicy, BCMLT_OPCODE_UPDATE, BCMLT_PRIORITY_NORMAL ))",
            chip().errmsg( -27 ), -27, pretty ) );
    EXPECT_EQ( stop.count( "commit BCMLT_OPCODE_INSERT" ), 0 );
}

TEST_F( VlanXlateMissDeathTest, UnitIsAnUnsignedSixteenBitNumberInMessageAndCall ) {
    const auto stop = stopOf( [] {
        setVlanXlateMissDrop( sharedState( { { 65535, "delta" } } ) );
    } );
    EXPECT_EQ( stop.signal, SIGABRT ); // there is no such unit
    EXPECT_EQ( stop.count( "CairnLtHelper/2 setVlanXlateMissDrop: setVlanXlateMissDrop unit: 65535"
                           " [held]" ),
               1 );
    EXPECT_EQ( stop.count( "allocate 65535 R_VLAN_XLATE_MISS_POLICY " ), 1 );
}

TEST_F( VlanXlateMissDeathTest, StateWithoutModulesStopsInTheCollection ) {
    const auto stop = stopOf( [] { setVlanXlateMissDrop( sharedState( {} ) ); } );
    EXPECT_EQ( stop.signal, SIGABRT );
    EXPECT_TRUE( stop.standardError.starts_with( "Kiln/StdIterator:" ) ) << stop.standardError;
    EXPECT_TRUE( stop.standardError.ends_with( ": Assertion `iter_' failed.\n" ) )
        << stop.standardError;
    EXPECT_TRUE( stop.log.empty() );
}

} // namespace
