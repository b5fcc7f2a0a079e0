#include "tests/support/RecipeTest.h"

#include "Cairn/CairnLtHelper.h"

#include <ChipModel/ChipProfile.h>

#include <csignal>

namespace {

using namespace Support;
using Cairn::programL2EifSystemDestinationTable;
using Cairn::verifyL2EifSystemDestinationTable;

constexpr char programPretty[] =
    "void Cairn::programL2EifSystemDestinationTable(CairnCentral::ChipInfo, uint32_t, uint32_t, "
    "uint32_t, uint32_t, uint16_t, bool, bool)";
constexpr char verifyPretty[] =
    "bool Cairn::verifyL2EifSystemDestinationTable(CairnCentral::ChipInfo, uint32_t, uint32_t, "
    "uint32_t, uint32_t, uint16_t, bool, bool)";

constexpr char table[] = "L2_EIF_SYSTEM_DESTINATION";

// All scripts are of interface 100. The port is port 5 of module 3 with 128 ports a module: system
// port 773. The trunk is trunk 44, given with the same module.
class SystemDestinationTest : public RecipeTest {
  protected:
    void programPort( bool op ) {
        programL2EifSystemDestinationTable( chipInfo, 0, 3, 5, 128, 100, false, op );
    }
    void programTrunk( bool op ) {
        programL2EifSystemDestinationTable( chipInfo, 0, 3, 44, 128, 100, true, op );
    }
    bool verifyPort( bool op ) {
        return verifyL2EifSystemDestinationTable( chipInfo, 0, 3, 5, 128, 100, false, op );
    }
    bool verifyTrunk( bool op ) {
        return verifyL2EifSystemDestinationTable( chipInfo, 0, 3, 44, 128, 100, true, op );
    }

    void putPort() { putRow( 0, table, { { "L2_EIF_ID", 100 }, { "SYSTEM_PORT", 773 } } ); }
    void putTrunk( uint64_t isTrunk, uint64_t trunkId ) {
        putRow( 0, table,
                { { "L2_EIF_ID", 100 }, { "IS_TRUNK", isTrunk }, { "TRUNK_ID", trunkId } } );
    }
    std::optional<uint64_t> field( const char * name ) {
        Sim::RowId row;
        row.key = { 100 };
        return chip().value( 0, table, row, name );
    }
    size_t rowCount() { return chip().rowCount( 0, table ); }

    const CairnCentral::ChipInfo chipInfo{ "alpha", 1, 2, 3 };
};
using SystemDestinationDeathTest = SystemDestinationTest;

Script programStart( const char * message, int lookupRc ) {
    return Script( "programL2EifSystemDestinationTable" )
        .add( {
            line( 2, message ),
            guarded(
                R"(bcmlt_entry_allocate( unit, "L2_EIF_SYSTEM_DESTINATION", &l2EifSystemDestinationEntry ))",
                "allocate 0 L2_EIF_SYSTEM_DESTINATION" ),
            guarded( R"(bcmlt_entry_field_add( l2EifSystemDestinationEntry, "L2_EIF_ID", l2If ))",
                     "add L2_EIF_ID = 100" ),
            unchecked(
                R"(bcmlt_entry_commit( l2EifSystemDestinationEntry, BCMLT_OPCODE_LOOKUP, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_LOOKUP; commit BCMLT_OPCODE_LOOKUP",
                lookupRc ),
        } );
}

constexpr char programPortMessage[] = "programL2EifSystemDestinationTable unit: 0 modId: 3"
                                      " portOrLagId: 5 l2If: 100 lag: false op: true";
constexpr char programTrunkMessage[] = "programL2EifSystemDestinationTable unit: 0 modId: 3"
                                       " portOrLagId: 44 l2If: 100 lag: true op: true";
constexpr char deletePortMessage[] = "programL2EifSystemDestinationTable unit: 0 modId: 3"
                                     " portOrLagId: 5 l2If: 100 lag: false op: false";

Script insertPortScript( int lookupRc = -27 ) {
    return programStart( programPortMessage, lookupRc )
        .add( {
            line( 2, "programL2EifSystemDestinationTable system source: 773" ),
            guarded(
                R"(bcmlt_entry_field_add( l2EifSystemDestinationEntry, "SYSTEM_PORT", system_source ))",
                "add SYSTEM_PORT = 773" ),
            guarded(
                R"(bcmlt_entry_commit( l2EifSystemDestinationEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_INSERT; commit BCMLT_OPCODE_INSERT" ),
            guarded( R"(bcmlt_entry_free( l2EifSystemDestinationEntry ))", "free" ),
        } );
}

Script updatePortScript( int lookupRc = 0 ) {
    return programStart( programPortMessage, lookupRc )
        .add( {
            line( 2, "programL2EifSystemDestinationTable system source: 773" ),
            guarded(
                R"(bcmlt_entry_field_add( l2EifSystemDestinationEntry, "SYSTEM_PORT", system_source ))",
                "add SYSTEM_PORT = 773" ),
            guarded(
                R"(bcmlt_entry_commit( l2EifSystemDestinationEntry, BCMLT_OPCODE_UPDATE, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_UPDATE; commit BCMLT_OPCODE_UPDATE" ),
            guarded( R"(bcmlt_entry_free( l2EifSystemDestinationEntry ))", "free" ),
        } );
}

Script insertTrunkScript() {
    return programStart( programTrunkMessage, -27 )
        .add( {
            guarded( R"(bcmlt_entry_field_add( l2EifSystemDestinationEntry, "IS_TRUNK", 1 ))",
                     "add IS_TRUNK = 1" ),
            guarded(
                R"(bcmlt_entry_field_add( l2EifSystemDestinationEntry, "TRUNK_ID", portOrLagId ))",
                "add TRUNK_ID = 44" ),
            guarded(
                R"(bcmlt_entry_commit( l2EifSystemDestinationEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_INSERT; commit BCMLT_OPCODE_INSERT" ),
            guarded( R"(bcmlt_entry_free( l2EifSystemDestinationEntry ))", "free" ),
        } );
}

Script updateTrunkScript() {
    return programStart( programTrunkMessage, 0 )
        .add( {
            guarded( R"(bcmlt_entry_field_add( l2EifSystemDestinationEntry, "IS_TRUNK", 1 ))",
                     "add IS_TRUNK = 1" ),
            guarded(
                R"(bcmlt_entry_field_add( l2EifSystemDestinationEntry, "TRUNK_ID", portOrLagId ))",
                "add TRUNK_ID = 44" ),
            guarded(
                R"(bcmlt_entry_commit( l2EifSystemDestinationEntry, BCMLT_OPCODE_UPDATE, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_UPDATE; commit BCMLT_OPCODE_UPDATE" ),
            guarded( R"(bcmlt_entry_free( l2EifSystemDestinationEntry ))", "free" ),
        } );
}

Script deleteScript() {
    return programStart( deletePortMessage, 0 )
        .add( {
            guarded(
                R"(bcmlt_entry_commit( l2EifSystemDestinationEntry, BCMLT_OPCODE_DELETE, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_DELETE; commit BCMLT_OPCODE_DELETE" ),
            guarded( R"(bcmlt_entry_free( l2EifSystemDestinationEntry ))", "free" ),
        } );
}

Script deleteAbsentScript() {
    return programStart( deletePortMessage, -27 )
        .add( {
            line( 2, "programL2EifSystemDestinationTable"
                     " Couldn't find h/w entry for l2_eif_id: 100" ),
            guarded( R"(bcmlt_entry_free( l2EifSystemDestinationEntry ))", "free" ),
        } );
}

Script verifyStart( const char * message, int lookupRc ) {
    return Script( "verifyL2EifSystemDestinationTable" )
        .add( {
            line( 2, message ),
            guarded(
                R"(bcmlt_entry_allocate( unit, "L2_EIF_SYSTEM_DESTINATION", &l2EifSystemDestinationEntry ))",
                "allocate 0 L2_EIF_SYSTEM_DESTINATION" ),
            guarded( R"(bcmlt_entry_field_add( l2EifSystemDestinationEntry, "L2_EIF_ID", l2If ))",
                     "add L2_EIF_ID = 100" ),
            unchecked(
                R"(bcmlt_entry_commit( l2EifSystemDestinationEntry, BCMLT_OPCODE_LOOKUP, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_LOOKUP; commit BCMLT_OPCODE_LOOKUP",
                lookupRc ),
        } );
}

constexpr char verifyPortMessage[] = "verifyL2EifSystemDestinationTable unit: 0 portOrLagId: 5"
                                     " modId: 3 l2If: 100 lag: false op: true";
constexpr char verifyTrunkMessage[] = "verifyL2EifSystemDestinationTable unit: 0 portOrLagId: 44"
                                      " modId: 3 l2If: 100 lag: true op: true";
constexpr char verifyAbsenceMessage[] = "verifyL2EifSystemDestinationTable unit: 0 portOrLagId: 5"
                                        " modId: 3 l2If: 100 lag: false op: false";

Script verifyPortScript() {
    return verifyStart( verifyPortMessage, 0 )
        .add( {
            guarded( R"(bcmlt_entry_field_get( l2EifSystemDestinationEntry, "IS_TRUNK", &val ))",
                     "get IS_TRUNK" ),
            guarded( R"(bcmlt_entry_field_get( l2EifSystemDestinationEntry, "SYSTEM_PORT", &val ))",
                     "get SYSTEM_PORT" ),
            guarded( R"(bcmlt_entry_free( l2EifSystemDestinationEntry ))", "free" ),
        } );
}

Script verifyTrunkScript() {
    return verifyStart( verifyTrunkMessage, 0 )
        .add( {
            guarded( R"(bcmlt_entry_field_get( l2EifSystemDestinationEntry, "IS_TRUNK", &val ))",
                     "get IS_TRUNK" ),
            guarded( R"(bcmlt_entry_field_get( l2EifSystemDestinationEntry, "TRUNK_ID", &val ))",
                     "get TRUNK_ID" ),
            guarded( R"(bcmlt_entry_free( l2EifSystemDestinationEntry ))", "free" ),
        } );
}

Script verifyMissingScript( const char * message ) {
    return verifyStart( message, -27 )
        .add( { guarded( R"(bcmlt_entry_free( l2EifSystemDestinationEntry ))", "free" ) } );
}

Script verifyStillThereScript() {
    return verifyStart( verifyAbsenceMessage, 0 )
        .add( { guarded( R"(bcmlt_entry_free( l2EifSystemDestinationEntry ))", "free" ) } );
}

Script verifyAbsentScript() {
    return verifyStart( verifyAbsenceMessage, -27 )
        .add( {
            line( 2, "verifyL2EifSystemDestinationTable"
                     " Couldn't find h/w entry for l2_eif_id: 100" ),
            guarded( R"(bcmlt_entry_free( l2EifSystemDestinationEntry ))", "free" ),
        } );
}

// --- Programming

TEST_F( SystemDestinationTest, PortDestinationIsInsertedWithItsSystemPortOnly ) {
    programPort( true );
    expectLog( insertPortScript() );
    EXPECT_EQ( field( "SYSTEM_PORT" ), 773u );
    EXPECT_TRUE( logOf( "add IS_TRUNK" ).empty() );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( SystemDestinationTest, PortDestinationThatIsThereIsUpdatedAndKeepsIsTrunk ) {
    putTrunk( 1, 44 );
    programPort( true );
    expectLog( updatePortScript() );
    EXPECT_EQ( field( "SYSTEM_PORT" ), 773u );
    EXPECT_EQ( field( "IS_TRUNK" ), 1u );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( SystemDestinationTest, TrunkDestinationIsInsertedWithIsTrunkAndTrunkId ) {
    programTrunk( true );
    expectLog( insertTrunkScript() );
    EXPECT_EQ( field( "IS_TRUNK" ), 1u );
    EXPECT_EQ( field( "TRUNK_ID" ), 44u );
    EXPECT_EQ( field( "SYSTEM_PORT" ), 0u );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( SystemDestinationTest, TrunkDestinationThatIsThereIsUpdated ) {
    putPort();
    programTrunk( true );
    expectLog( updateTrunkScript() );
    EXPECT_EQ( field( "IS_TRUNK" ), 1u );
    EXPECT_EQ( field( "TRUNK_ID" ), 44u );
    EXPECT_EQ( field( "SYSTEM_PORT" ), 773u );
}

TEST_F( SystemDestinationTest, AnyNegativeLookupCodeMeansInsertAndAnyOtherUpdate ) {
    inject( "op=commit,rc=-9,at=1" );
    inject( "op=commit,rc=4,at=3" );
    programPort( true );
    expectLog( insertPortScript( -9 ) );
    clearLog();
    programPort( true );
    expectLog( updatePortScript( 4 ) );
}

TEST_F( SystemDestinationTest, DeletingRemovesTheDestination ) {
    putPort();
    programPort( false );
    expectLog( deleteScript() );
    EXPECT_EQ( rowCount(), 0u );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( SystemDestinationTest, DeletingAnAbsentDestinationWritesAMessageAndCommitsNothing ) {
    programPort( false );
    expectLog( deleteAbsentScript() );
    EXPECT_EQ( logOf( "commit" ),
               std::vector<std::string>{ "commit BCMLT_OPCODE_LOOKUP [released]" } );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( SystemDestinationTest, PositiveLookupCodeMeansThatTheDestinationIsThere ) {
    putPort();
    inject( "op=commit,rc=4,always" );
    EXPECT_TRUE( verifyPort( true ) );
    EXPECT_EQ( logOf( "get SYSTEM_PORT" ).size(), 1u );
    EXPECT_FALSE( verifyPort( false ) );
    programPort( false );
    EXPECT_EQ( logOf( "commit BCMLT_OPCODE_DELETE" ).size(), 1u );
    EXPECT_EQ( rowCount(), 0u );
}

TEST_F( SystemDestinationTest, DeletingATrunkAddsNeitherTrunkFieldNorSystemPort ) {
    putTrunk( 1, 44 );
    programTrunk( false );
    EXPECT_EQ( log().front(), "CairnLtHelper/2 programL2EifSystemDestinationTable:"
                              " programL2EifSystemDestinationTable unit: 0 modId: 3"
                              " portOrLagId: 44 l2If: 100 lag: true op: false [held]" );
    EXPECT_EQ( logOf( "add " ), std::vector<std::string>{ "add L2_EIF_ID = 100 [released]" } );
    EXPECT_EQ( rowCount(), 0u );
}

TEST_F( SystemDestinationTest, ArgumentsReachMessageAndChipUnchangedButForTheNumbering ) {
    // Module and port are numbered by their low 16 bits and shown whole.
    programL2EifSystemDestinationTable( chipInfo, 3, 0x1'0004, 0xF'0007, 128, 65535, false, true );
    EXPECT_EQ( log().front(),
               "CairnLtHelper/2 programL2EifSystemDestinationTable:"
               " programL2EifSystemDestinationTable unit: 3 modId: 65540 portOrLagId: 983047"
               " l2If: 65535 lag: false op: true [held]" );
    EXPECT_EQ( logOf( "add " ),
               ( std::vector<std::string>{ "add L2_EIF_ID = 65535 [released]",
                                           "add SYSTEM_PORT = 1031 [released]" } ) );
    EXPECT_EQ( logOf( "allocate 3 L2_EIF_SYSTEM_DESTINATION" ).size(), 1u );
    clearLog();
    verifyL2EifSystemDestinationTable( chipInfo, 3, 0x1'0004, 0xF'0007, 128, 65535, false, true );
    EXPECT_EQ( log().front(),
               "CairnLtHelper/2 verifyL2EifSystemDestinationTable:"
               " verifyL2EifSystemDestinationTable unit: 3 portOrLagId: 983047 modId: 65540"
               " l2If: 65535 lag: false op: true [held]" );
}

TEST_F( SystemDestinationTest, PortZeroIsNumberedByTheNumberOfPorts ) {
    programL2EifSystemDestinationTable( chipInfo, 0, 3, 0, 128, 100, false, true );
    EXPECT_EQ( field( "SYSTEM_PORT" ), 896u );
    EXPECT_TRUE( verifyL2EifSystemDestinationTable( chipInfo, 0, 3, 0, 128, 100, false, true ) );
}

TEST_F( SystemDestinationTest, PortIsNumberedByItsLowSixteenBits ) {
    programL2EifSystemDestinationTable( chipInfo, 0, 3, 65536, 128, 100, false, true ); // port 0
    EXPECT_EQ( field( "SYSTEM_PORT" ), 896u );
    programL2EifSystemDestinationTable( chipInfo, 0, 3, 256, 128, 100, false, true ); // not port 0
    EXPECT_EQ( field( "SYSTEM_PORT" ), 768u );
}

TEST_F( SystemDestinationTest, ChipWithANumberingOfItsOwnGetsItsNumberInWholeBits ) {
    auto profile = Nacre::make<Asic::ChipProfile>();
    profile->addFeature( Nacre::make<CairnCommon::CairnCommonFeatureAttributes>( 16u ) );
    CairnProfile::setActiveChipProfile( chipInfo, profile );
    // The number's top bit is set; it is written and compared as 32 bits, not as a negative number.
    programL2EifSystemDestinationTable( chipInfo, 0, 0x8000, 1, 128, 100, false, true );
    EXPECT_EQ( field( "SYSTEM_PORT" ), 0x8000'0001u );
    EXPECT_TRUE(
        verifyL2EifSystemDestinationTable( chipInfo, 0, 0x8000, 1, 128, 100, false, true ) );
}

// --- Verifying

TEST_F( SystemDestinationTest, VerifyOfAPortReadsIsTrunkAndThenTheSystemPort ) {
    putPort();
    EXPECT_TRUE( verifyPort( true ) );
    expectLog( verifyPortScript() );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( SystemDestinationTest, VerifyOfAPortIgnoresIsTrunk ) {
    for ( const uint64_t isTrunk : { 0u, 1u } ) {
        putRow( 0, table,
                { { "L2_EIF_ID", 100 }, { "IS_TRUNK", isTrunk }, { "SYSTEM_PORT", 773 } } );
        EXPECT_TRUE( verifyPort( true ) );
    }
}

TEST_F( SystemDestinationTest, VerifyOfAPortWithADifferentSystemPortIsFalse ) {
    putRow( 0, table, { { "L2_EIF_ID", 100 }, { "SYSTEM_PORT", 774 } } );
    EXPECT_FALSE( verifyPort( true ) );
    expectLog( verifyPortScript() );
}

TEST_F( SystemDestinationTest, VerifyOfATrunkReadsIsTrunkAndThenTheTrunkId ) {
    putTrunk( 1, 44 );
    EXPECT_TRUE( verifyTrunk( true ) );
    expectLog( verifyTrunkScript() );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( SystemDestinationTest, VerifyOfATrunkWhoseIsTrunkIsZeroIsFalse ) {
    putTrunk( 0, 44 );
    EXPECT_FALSE( verifyTrunk( true ) );
    expectLog( verifyTrunkScript() );
}

TEST_F( SystemDestinationTest, VerifyOfATrunkWithADifferentTrunkIdIsFalse ) {
    putTrunk( 1, 45 );
    EXPECT_FALSE( verifyTrunk( true ) );
    expectLog( verifyTrunkScript() );
}

TEST_F( SystemDestinationTest, VerifyTakesAnyIsTrunkButZeroAndComparesTheWholeTrunkId ) {
    auto schema = Sim::referenceSchema();
    for ( auto & each : schema.find( table )->fields )
        if ( each.name == "IS_TRUNK" || each.name == "TRUNK_ID" )
            each.width = 64;
    useSchema( schema );
    putTrunk( uint64_t( 1 ) << 40, 44 );
    EXPECT_TRUE( verifyTrunk( true ) );
    putTrunk( 1, ( uint64_t( 1 ) << 32 ) + 44 );
    EXPECT_FALSE( verifyTrunk( true ) );
}

TEST_F( SystemDestinationTest, VerifyOfAMissingDestinationIsTrueAndReadsNothing ) {
    EXPECT_TRUE( verifyPort( true ) );
    expectLog( verifyMissingScript( verifyPortMessage ) );
    clearLog();
    EXPECT_TRUE( verifyTrunk( true ) );
    expectLog( verifyMissingScript( verifyTrunkMessage ) );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( SystemDestinationTest, VerifyOfAbsenceIsFalseWhileTheDestinationIsThere ) {
    putPort();
    EXPECT_FALSE( verifyPort( false ) );
    expectLog( verifyStillThereScript() );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( SystemDestinationTest, VerifyOfAbsenceIsTrueAndSaysSoWhenTheDestinationIsGone ) {
    EXPECT_TRUE( verifyPort( false ) );
    expectLog( verifyAbsentScript() );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( SystemDestinationTest, ProgramVerifyChangeDeleteAndVerifyAgain ) {
    programPort( true );
    EXPECT_TRUE( verifyPort( true ) );
    EXPECT_FALSE( verifyTrunk( true ) );
    EXPECT_FALSE( verifyPort( false ) );
    programTrunk( true );
    EXPECT_TRUE( verifyTrunk( true ) );
    programTrunk( false );
    EXPECT_TRUE( verifyTrunk( false ) );
    EXPECT_TRUE( verifyPort( false ) );
    programTrunk( false );
    EXPECT_EQ( rowCount(), 0u );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( SystemDestinationTest, DestinationsOfOtherInterfacesStayAsTheyAre ) {
    programL2EifSystemDestinationTable( chipInfo, 0, 3, 6, 128, 101, false, true );
    programPort( true );
    programPort( false );
    EXPECT_EQ( rowCount(), 1u );
    EXPECT_TRUE( verifyL2EifSystemDestinationTable( chipInfo, 0, 3, 6, 128, 101, false, true ) );
}

TEST_F( SystemDestinationTest, MessagesComeAtLevelTwo ) {
    expectMessagesAtTheirLevels( insertPortScript(), [this] { programPort( true ); } );
    expectMessagesAtTheirLevels( insertTrunkScript(), [this] { programTrunk( true ); } );
    expectMessagesAtTheirLevels( deleteAbsentScript(), [this] { programPort( false ); } );
    expectMessagesAtTheirLevels( verifyMissingScript( verifyPortMessage ),
                                 [this] { verifyPort( true ); } );
    expectMessagesAtTheirLevels( verifyAbsentScript(), [this] { verifyPort( false ); } );
}

// --- Stops

TEST_F( SystemDestinationDeathTest, EachGuardedCallOfTheProgrammingStopsTheProcess ) {
    const auto port = [this] { programPort( true ); };
    const auto trunk = [this] { programTrunk( true ); };
    const auto deletes = [this] { programPort( false ); };
    expectEachFailureToStop( insertPortScript(), programPretty, port );
    expectEachFailureToStop( insertTrunkScript(), programPretty, trunk );
    expectEachFailureToStop( deleteAbsentScript(), programPretty, deletes );
    putPort();
    expectEachFailureToStop( updatePortScript(), programPretty, port );
    expectEachFailureToStop( updateTrunkScript(), programPretty, trunk );
    expectEachFailureToStop( deleteScript(), programPretty, deletes );
}

TEST_F( SystemDestinationDeathTest, EachGuardedCallOfTheVerificationStopsTheProcess ) {
    const auto port = [this] { verifyPort( true ); };
    const auto trunk = [this] { verifyTrunk( true ); };
    const auto absence = [this] { verifyPort( false ); };
    expectEachFailureToStop( verifyMissingScript( verifyPortMessage ), verifyPretty, port );
    expectEachFailureToStop( verifyAbsentScript(), verifyPretty, absence );
    putPort();
    expectEachFailureToStop( verifyPortScript(), verifyPretty, port );
    expectEachFailureToStop( verifyTrunkScript(), verifyPretty, trunk );
    expectEachFailureToStop( verifyStillThereScript(), verifyPretty, absence );
}

TEST_F( SystemDestinationDeathTest, TrunkIdThatIsTooWideReachesTheSdkUnchanged ) {
    const auto stop = stopOf( [this] {
        programL2EifSystemDestinationTable( chipInfo, 0, 3, 4294967295u, 128, 100, true, true );
    } );
    EXPECT_EQ( stop.signal, SIGABRT );
    EXPECT_EQ( stop.count( "add TRUNK_ID = 4294967295 " ), 1 );
}

} // namespace
