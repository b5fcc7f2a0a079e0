#include "tests/support/RecipeTest.h"

#include "Cairn/CairnLtHelper.h"

#include <Kiln/TraceHandle.h>

#include <csignal>

namespace {

using namespace Support;
using Cairn::setMcastV6StrengthProfile;

constexpr char pretty[] = "void Cairn::setMcastV6StrengthProfile(Cairn::CairnCommonSmData::Ptr)";
constexpr char table2[] = "L3_IPV6_MULTICAST_2_STRENGTH_PROFILE";
constexpr char table1[] = "L3_IPV6_MULTICAST_1_STRENGTH_PROFILE";

constexpr uint32_t kovaStage = 55;
constexpr uint32_t threeFieldStage = 108;

const Sim::RowId onlyRow;

void scriptTable2( Script & script, bool threeFields ) {
    script.add( {
        held( "BCMLT_INVALID_HDL" ),
        guarded(
            R"(bcmlt_entry_allocate( unit, "L3_IPV6_MULTICAST_2_STRENGTH_PROFILE", &v6Mcast2StrengthEntry ))",
            "allocate 3 L3_IPV6_MULTICAST_2_STRENGTH_PROFILE" ),
        line( 2, "setMcastV6StrengthProfile unit: 3 entry handle: HANDLE" ),
        guarded(
            R"(bcmlt_entry_field_add( v6Mcast2StrengthEntry, "RPA_ID_STRENGTH", L3_IPV6_MULTICAST_2_STRENGTH_PROFILE ))",
            "add RPA_ID_STRENGTH = 6" ),
        held( "isUnblocked beta 108" ),
    } );
    if ( threeFields )
        script.add( {
            guarded(
                R"(bcmlt_entry_field_add( v6Mcast2StrengthEntry, "EXPECTED_L3_IIF_STRENGTH", L3_IPV6_MULTICAST_2_STRENGTH_PROFILE ))",
                "add EXPECTED_L3_IIF_STRENGTH = 6" ),
            guarded(
                R"(bcmlt_entry_field_add( v6Mcast2StrengthEntry, "MTU_PROFILE_PTR_STRENGTH", L3_IPV6_MULTICAST_2_STRENGTH_PROFILE ))",
                "add MTU_PROFILE_PTR_STRENGTH = 6" ),
            guarded(
                R"(bcmlt_entry_field_add( v6Mcast2StrengthEntry, "OPAQUE_OBJECT_STRENGTH", L3_IPV6_MULTICAST_2_STRENGTH_PROFILE ))",
                "add OPAQUE_OBJECT_STRENGTH = 6" ),
        } );
    script.add( {
        guarded(
            R"(bcmlt_entry_field_add( v6Mcast2StrengthEntry, "L3_DST_MISC_CTRL_1_STRENGTH", L3_IPV6_MULTICAST_2_STRENGTH_PROFILE ))",
            "add L3_DST_MISC_CTRL_1_STRENGTH = 6" ),
        guarded(
            R"(bcmlt_entry_field_add( v6Mcast2StrengthEntry, "L3_DST_MISC_CTRL_0_STRENGTH", L3_IPV6_MULTICAST_2_STRENGTH_PROFILE ))",
            "add L3_DST_MISC_CTRL_0_STRENGTH = 6" ),
        guarded(
            R"(bcmlt_entry_field_add( v6Mcast2StrengthEntry, "L3_DST_CLASS_ID_STRENGTH", L3_IPV6_MULTICAST_2_STRENGTH_PROFILE ))",
            "add L3_DST_CLASS_ID_STRENGTH = 6" ),
        guarded(
            R"(bcmlt_entry_field_add( v6Mcast2StrengthEntry, "L3_DST_DESTINATION_TYPE_STRENGTH", L3_IPV6_MULTICAST_2_STRENGTH_PROFILE ))",
            "add L3_DST_DESTINATION_TYPE_STRENGTH = 6" ),
        guarded(
            R"(bcmlt_entry_field_add( v6Mcast2StrengthEntry, "L3_DST_DESTINATION_STRENGTH", L3_IPV6_MULTICAST_2_STRENGTH_PROFILE ))",
            "add L3_DST_DESTINATION_STRENGTH = 6" ),
        guarded(
            R"(bcmlt_entry_commit( v6Mcast2StrengthEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ))",
            "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_INSERT; commit BCMLT_OPCODE_INSERT" ),
        guarded( R"(bcmlt_entry_free( v6Mcast2StrengthEntry ))", "free" ),
    } );
}

void scriptTable1( Script & script, bool threeFields ) {
    script.add( {
        held( "BCMLT_INVALID_HDL" ),
        guarded(
            R"(bcmlt_entry_allocate( unit, "L3_IPV6_MULTICAST_1_STRENGTH_PROFILE", &v6Mcast1StrengthEntry ))",
            "allocate 3 L3_IPV6_MULTICAST_1_STRENGTH_PROFILE" ),
        line( 2, "setMcastV6StrengthProfile unit: 3 entry handle: HANDLE" ),
        guarded(
            R"(bcmlt_entry_field_add( v6Mcast1StrengthEntry, "RPA_ID_STRENGTH", L3_IPV6_MULTICAST_1_STRENGTH_PROFILE ))",
            "add RPA_ID_STRENGTH = 5" ),
        held( "isUnblocked beta 108" ),
    } );
    if ( threeFields )
        script.add( {
            guarded(
                R"(bcmlt_entry_field_add( v6Mcast1StrengthEntry, "EXPECTED_L3_IIF_STRENGTH", L3_IPV6_MULTICAST_1_STRENGTH_PROFILE ))",
                "add EXPECTED_L3_IIF_STRENGTH = 5" ),
            guarded(
                R"(bcmlt_entry_field_add( v6Mcast1StrengthEntry, "MTU_PROFILE_PTR_STRENGTH", L3_IPV6_MULTICAST_1_STRENGTH_PROFILE ))",
                "add MTU_PROFILE_PTR_STRENGTH = 5" ),
            guarded(
                R"(bcmlt_entry_field_add( v6Mcast1StrengthEntry, "OPAQUE_OBJECT_STRENGTH", L3_IPV6_MULTICAST_1_STRENGTH_PROFILE ))",
                "add OPAQUE_OBJECT_STRENGTH = 5" ),
        } );
    script.add( {
        guarded(
            R"(bcmlt_entry_field_add( v6Mcast1StrengthEntry, "L3_DST_MISC_CTRL_1_STRENGTH", L3_IPV6_MULTICAST_1_STRENGTH_PROFILE ))",
            "add L3_DST_MISC_CTRL_1_STRENGTH = 5" ),
        guarded(
            R"(bcmlt_entry_field_add( v6Mcast1StrengthEntry, "L3_DST_MISC_CTRL_0_STRENGTH", L3_IPV6_MULTICAST_1_STRENGTH_PROFILE ))",
            "add L3_DST_MISC_CTRL_0_STRENGTH = 5" ),
        guarded(
            R"(bcmlt_entry_field_add( v6Mcast1StrengthEntry, "L3_DST_CLASS_ID_STRENGTH", L3_IPV6_MULTICAST_1_STRENGTH_PROFILE ))",
            "add L3_DST_CLASS_ID_STRENGTH = 5" ),
        guarded(
            R"(bcmlt_entry_field_add( v6Mcast1StrengthEntry, "L3_DST_DESTINATION_TYPE_STRENGTH", L3_IPV6_MULTICAST_1_STRENGTH_PROFILE ))",
            "add L3_DST_DESTINATION_TYPE_STRENGTH = 5" ),
        guarded(
            R"(bcmlt_entry_field_add( v6Mcast1StrengthEntry, "L3_DST_DESTINATION_STRENGTH", L3_IPV6_MULTICAST_1_STRENGTH_PROFILE ))",
            "add L3_DST_DESTINATION_STRENGTH = 5" ),
        guarded(
            R"(bcmlt_entry_commit( v6Mcast1StrengthEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ))",
            "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_INSERT; commit BCMLT_OPCODE_INSERT" ),
        guarded( R"(bcmlt_entry_free( v6Mcast1StrengthEntry ))", "free" ),
    } );
}

Script bothTables( bool threeFieldsIn2, bool threeFieldsIn1 ) {
    Script script( "setMcastV6StrengthProfile", { held( "isBlocked beta 55" ) } );
    scriptTable2( script, threeFieldsIn2 );
    scriptTable1( script, threeFieldsIn1 );
    return script;
}

const Script
    skipScript( "setMcastV6StrengthProfile",
                {
                    held( "isBlocked beta 55" ),
                    line( 2, "setMcastV6StrengthProfile unit: 3 Skipping for KOVA profile" ),
                } );

class McastStrengthTest : public RecipeTest {
  protected:
    // The first module of the walk is not the one with the lowest number.
    const Cairn::CairnCommonSmData::Ptr state =
        sharedState( { { 3, "beta" }, { 0, "alpha" }, { 7, "gamma" } } );
};
using McastStrengthDeathTest = McastStrengthTest;

TEST_F( McastStrengthTest, UnblockedChipGetsNineFieldsInEachTable ) {
    setMcastV6StrengthProfile( state );
    expectLog( bothTables( true, true ) );
    for ( const auto & field : chip().schema( 3 )->find( table2 )->fields ) {
        EXPECT_EQ( chip().value( 3, table2, onlyRow, field.name ), 6u ) << field.name;
        EXPECT_EQ( chip().value( 3, table1, onlyRow, field.name ), 5u ) << field.name;
    }
    EXPECT_EQ( logOf( "add " ).size(), 18u );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( McastStrengthTest, ChipBlockedAt108GetsSixFieldsInEachTable ) {
    blockedStages = { threeFieldStage };
    setMcastV6StrengthProfile( state );
    expectLog( bothTables( false, false ) );
    EXPECT_EQ( logOf( "add " ).size(), 12u );
    for ( const char * field :
          { "EXPECTED_L3_IIF_STRENGTH", "MTU_PROFILE_PTR_STRENGTH", "OPAQUE_OBJECT_STRENGTH" } ) {
        EXPECT_EQ( chip().value( 3, table2, onlyRow, field ), 0u ) << field;
        EXPECT_EQ( chip().value( 3, table1, onlyRow, field ), 0u ) << field;
    }
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( McastStrengthTest, ChipThatIsNeitherBlockedNorUnblockedAt108GetsSixFields ) {
    neitherStages = { threeFieldStage };
    setMcastV6StrengthProfile( state );
    expectLog( bothTables( false, false ) );
}

TEST_F( McastStrengthTest, ThreeFieldQuestionIsAskedAfreshForTheSecondTable ) {
    onEntry = [this]( const std::string & entry ) {
        if ( entry.starts_with( "allocate 3 L3_IPV6_MULTICAST_1" ) )
            blockedStages = { threeFieldStage };
    };
    setMcastV6StrengthProfile( state );
    expectLog( bothTables( true, false ) );
}

TEST_F( McastStrengthTest, SecondTableIsOnlyAllocatedWhenTheFirstEntryIsFree ) {
    setMcastV6StrengthProfile( state );
    std::vector<std::string> outline;
    for ( const auto & entry : log() )
        if ( entry.starts_with( "allocate" ) || entry.starts_with( "commit" ) ||
             entry.starts_with( "free" ) || entry.starts_with( "CairnLtHelper" ) )
            outline.push_back( entry.substr( 0, entry.find( ' ' ) ) );
    const std::vector<std::string> oneTable{ "allocate", "CairnLtHelper/2", "commit", "free" };
    auto expected = oneTable;
    expected.insert( expected.end(), oneTable.begin(), oneTable.end() );
    EXPECT_EQ( outline, expected );
}

TEST_F( McastStrengthTest, OnlyTheFirstModuleOfTheWalkIsProgrammed ) {
    setMcastV6StrengthProfile( state );
    EXPECT_EQ( chip().rowCount( 3, table2 ), 1u );
    EXPECT_EQ( chip().rowCount( 0, table2 ), 0u );
    EXPECT_TRUE( logOf( "allocate 0" ).empty() );
    EXPECT_TRUE( logOf( "isBlocked alpha" ).empty() );
    EXPECT_TRUE( logOf( "isUnblocked alpha" ).empty() );
}

TEST_F( McastStrengthTest, ChangesOfTheStateWhileTheLockIsGivenUpHaveNoEffect ) {
    onEntry = [this]( const std::string & entry ) {
        if ( !entry.starts_with( "allocate 3 L3_IPV6_MULTICAST_2" ) )
            return;
        state->cairnModIds.erase( 3 );
        state->cairnModIds.erase( 0 );
    };
    setMcastV6StrengthProfile( state );
    expectLog( bothTables( true, true ) );
}

TEST_F( McastStrengthTest, ChipWithTheKovaProfileIsSkippedWithOneLine ) {
    blockedStages = { kovaStage, threeFieldStage };
    setMcastV6StrengthProfile( state );
    expectLog( skipScript );
}

TEST_F( McastStrengthTest, SkipIsSilentWithLevelTwoOff ) {
    blockedStages = { kovaStage };
    Kiln::traceOff();
    testing::internal::CaptureStderr();
    setMcastV6StrengthProfile( state );
    EXPECT_EQ( testing::internal::GetCapturedStderr(), "" );
    EXPECT_EQ( log(), std::vector<std::string>{ "isBlocked beta 55 [held]" } );
}

TEST_F( McastStrengthTest, UnitIsShownAsAnUnsignedSixteenBitNumber ) {
    blockedStages = { kovaStage };
    setMcastV6StrengthProfile( sharedState( { { 65535, "delta" } } ) );
    EXPECT_EQ( logOf( "CairnLtHelper" ),
               std::vector<std::string>{ "CairnLtHelper/2 setMcastV6StrengthProfile: "
                                         "setMcastV6StrengthProfile unit: 65535 Skipping for KOVA "
                                         "profile [held]" } );
}

TEST_F( McastStrengthTest, MessagesComeAtLevelTwo ) {
    expectMessagesAtTheirLevels( bothTables( true, true ),
                                 [this] { setMcastV6StrengthProfile( state ); } );
    blockedStages = { kovaStage };
    expectMessagesAtTheirLevels( skipScript, [this] { setMcastV6StrengthProfile( state ); } );
}

TEST_F( McastStrengthDeathTest, EachCallStopsTheProcess ) {
    expectEachFailureToStop( bothTables( true, true ), pretty,
                             [this] { setMcastV6StrengthProfile( state ); } );
}

TEST_F( McastStrengthDeathTest, EachCallOfAChipBlockedAt108StopsTheProcess ) {
    blockedStages = { threeFieldStage };
    expectEachFailureToStop( bothTables( false, false ), pretty,
                             [this] { setMcastV6StrengthProfile( state ); } );
}

TEST_F( McastStrengthDeathTest, SecondCallStopsAtTheInsertOfTheFirstTable ) {
    setMcastV6StrengthProfile( state );
    const auto stop = stopOf( [this] { setMcastV6StrengthProfile( state ); } );
    EXPECT_EQ( stop.signal, SIGABRT );
    EXPECT_EQ(
        stop.standardError,
        report(
            R"(bcmlt_entry_commit( v6Mcast2StrengthEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ))",
            chip().errmsg( -26 ), -26, pretty ) );
    EXPECT_EQ( stop.count( "allocate 3 L3_IPV6_MULTICAST_1" ), 0 );
}

TEST_F( McastStrengthDeathTest, StateWithoutModulesStopsInTheCollection ) {
    const auto stop = stopOf( [] { setMcastV6StrengthProfile( sharedState( {} ) ); } );
    EXPECT_EQ( stop.signal, SIGABRT );
    EXPECT_TRUE( stop.standardError.starts_with( "Kiln/StdIterator:" ) ) << stop.standardError;
    EXPECT_TRUE( stop.standardError.ends_with( ": Assertion `iter_' failed.\n" ) )
        << stop.standardError;
    EXPECT_TRUE( stop.log.empty() );
}

} // namespace
