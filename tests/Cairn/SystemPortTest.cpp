#include "tests/support/RecipeTest.h"

#include "Cairn/CairnLtHelper.h"

#include <ChipModel/ChipProfile.h>
#include <Kiln/TraceHandle.h>

#include <csignal>

namespace {

using namespace Support;
using Cairn::programL2IfIngSystemPortTable;
using Cairn::verifyL2IfIngSystemPortTable;

constexpr char programPretty[] =
    "void Cairn::programL2IfIngSystemPortTable(CairnCentral::ChipInfo, uint32_t, uint32_t, "
    "uint32_t, uint32_t, uint16_t, bool)";
constexpr char verifyPretty[] =
    "bool Cairn::verifyL2IfIngSystemPortTable(CairnCentral::ChipInfo, uint32_t, uint32_t, "
    "uint32_t, uint32_t, uint16_t, bool)";

/// A numbering with 16 bits for the port, so that large module ids reach the top bit.
constexpr uint32_t wideNumbering = 16;

// All scripts are of module 3, port 5 with 128 ports a module: system source 773.
class SystemPortTest : public RecipeTest {
  protected:
    SystemPortTest() { giveAttributes( false ); }

    void giveAttributes( bool hasRangeTableIndex ) {
        auto profile = Nacre::make<Asic::ChipProfile>();
        profile->addFeature( Nacre::make<CairnCentral::CairnChipAttributes>( hasRangeTableIndex ) );
        CairnProfile::setActiveChipProfile( chipInfo, profile );
    }

    void program( uint16_t l2If, bool op ) {
        programL2IfIngSystemPortTable( chipInfo, 0, 3, 5, 128, l2If, op );
    }
    bool verify( uint16_t l2If, bool op ) {
        return verifyL2IfIngSystemPortTable( chipInfo, 0, 3, 5, 128, l2If, op );
    }
    std::optional<uint64_t> field( uint64_t systemSource, const char * name ) {
        Sim::RowId row;
        row.key = { systemSource };
        return chip().value( 0, "ING_SYSTEM_PORT_TABLE", row, name );
    }
    size_t rowCount() { return chip().rowCount( 0, "ING_SYSTEM_PORT_TABLE" ); }

    const CairnCentral::ChipInfo chipInfo{ "alpha", 1, 2, 3 };
};
using SystemPortDeathTest = SystemPortTest;

Script programStart( const char * op, int lookupRc ) {
    return Script( "programL2IfIngSystemPortTable" )
        .add( {
            line( 2, std::string( "programL2IfIngSystemPortTable system source: 773 unit: 0"
                                  " modId: 3 port: 5 l2If: 100 op: " ) +
                         op ),
            guarded( R"(bcmlt_entry_allocate( unit, "ING_SYSTEM_PORT_TABLE", &systemPortEntry ))",
                     "allocate 0 ING_SYSTEM_PORT_TABLE" ),
            guarded( R"(bcmlt_entry_field_add( systemPortEntry, "SYSTEM_SOURCE", system_source ))",
                     "add SYSTEM_SOURCE = 773" ),
            unchecked(
                R"(bcmlt_entry_commit( systemPortEntry, BCMLT_OPCODE_LOOKUP, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_LOOKUP; commit BCMLT_OPCODE_LOOKUP",
                lookupRc ),
        } );
}

Script insertScript( int lookupRc = -27 ) {
    return programStart( "true", lookupRc )
        .add( {
            guarded( R"(bcmlt_entry_field_add( systemPortEntry, "L2_IIF", l2If ))",
                     "add L2_IIF = 100" ),
            guarded(
                R"(bcmlt_entry_commit( systemPortEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_INSERT; commit BCMLT_OPCODE_INSERT" ),
            guarded( R"(bcmlt_entry_free( systemPortEntry ))", "free" ),
        } );
}

Script updateScript( int lookupRc = 0 ) {
    return programStart( "true", lookupRc )
        .add( {
            guarded( R"(bcmlt_entry_field_add( systemPortEntry, "L2_IIF", l2If ))",
                     "add L2_IIF = 100" ),
            guarded(
                R"(bcmlt_entry_commit( systemPortEntry, BCMLT_OPCODE_UPDATE, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_UPDATE; commit BCMLT_OPCODE_UPDATE" ),
            guarded( R"(bcmlt_entry_free( systemPortEntry ))", "free" ),
        } );
}

Script insertWithRangeIndexScript() {
    return programStart( "true", -27 )
        .add( {
            guarded( R"(bcmlt_entry_field_add( systemPortEntry, "L2_IIF", l2If ))",
                     "add L2_IIF = 100" ),
            ignored(
                R"(bcmlt_entry_field_add( systemPortEntry, "RANGE_TABLE_INDEX", system_source ))",
                "add RANGE_TABLE_INDEX = 773" ),
            guarded(
                R"(bcmlt_entry_commit( systemPortEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_INSERT; commit BCMLT_OPCODE_INSERT" ),
            guarded( R"(bcmlt_entry_free( systemPortEntry ))", "free" ),
        } );
}

Script updateWithRangeIndexScript() {
    return programStart( "true", 0 )
        .add( {
            guarded( R"(bcmlt_entry_field_add( systemPortEntry, "L2_IIF", l2If ))",
                     "add L2_IIF = 100" ),
            ignored(
                R"(bcmlt_entry_field_add( systemPortEntry, "RANGE_TABLE_INDEX", system_source ))",
                "add RANGE_TABLE_INDEX = 773" ),
            guarded(
                R"(bcmlt_entry_commit( systemPortEntry, BCMLT_OPCODE_UPDATE, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_UPDATE; commit BCMLT_OPCODE_UPDATE" ),
            guarded( R"(bcmlt_entry_free( systemPortEntry ))", "free" ),
        } );
}

Script deleteScript() {
    return programStart( "false", 0 )
        .add( {
            guarded(
                R"(bcmlt_entry_commit( systemPortEntry, BCMLT_OPCODE_DELETE, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_DELETE; commit BCMLT_OPCODE_DELETE" ),
            guarded( R"(bcmlt_entry_free( systemPortEntry ))", "free" ),
        } );
}

Script deleteAbsentScript() {
    return programStart( "false", -27 )
        .add( {
            line( 2, "programL2IfIngSystemPortTable Couldn't find h/w entry for system source: 773"
                     " unit: 0 port: 5" ),
            guarded( R"(bcmlt_entry_free( systemPortEntry ))", "free" ),
        } );
}

Script verifyStart( const char * op, int lookupRc ) {
    return Script( "verifyL2IfIngSystemPortTable" )
        .add( {
            line( 2, std::string( "verifyL2IfIngSystemPortTable system source: 773 unit: 0"
                                  " modId: 3 port: 5 l2If: 100 op: " ) +
                         op ),
            guarded( R"(bcmlt_entry_allocate( unit, "ING_SYSTEM_PORT_TABLE", &systemPortEntry ))",
                     "allocate 0 ING_SYSTEM_PORT_TABLE" ),
            guarded( R"(bcmlt_entry_field_add( systemPortEntry, "SYSTEM_SOURCE", system_source ))",
                     "add SYSTEM_SOURCE = 773" ),
            unchecked(
                R"(bcmlt_entry_commit( systemPortEntry, BCMLT_OPCODE_LOOKUP, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_LOOKUP; commit BCMLT_OPCODE_LOOKUP",
                lookupRc ),
        } );
}

Script verifyPresentScript() {
    return verifyStart( "true", 0 )
        .add( {
            guarded( R"(bcmlt_entry_field_get( systemPortEntry, "L2_IIF", &hwL2Iif ))",
                     "get L2_IIF" ),
            guarded( R"(bcmlt_entry_free( systemPortEntry ))", "free" ),
        } );
}

Script verifyMissingScript() {
    return verifyStart( "true", -27 )
        .add( { guarded( R"(bcmlt_entry_free( systemPortEntry ))", "free" ) } );
}

Script verifyStillThereScript() {
    return verifyStart( "false", 0 )
        .add( { guarded( R"(bcmlt_entry_free( systemPortEntry ))", "free" ) } );
}

Script verifyAbsentScript() {
    return verifyStart( "false", -27 )
        .add( {
            line( 2, "verifyL2IfIngSystemPortTable Couldn't find h/w entry for system source: 773"
                     " unit: 0 port: 5" ),
            guarded( R"(bcmlt_entry_free( systemPortEntry ))", "free" ),
        } );
}

// --- Programming

TEST_F( SystemPortTest, MappingThatIsNotThereIsInserted ) {
    program( 100, true );
    expectLog( insertScript() );
    EXPECT_EQ( field( 773, "L2_IIF" ), 100u );
    EXPECT_EQ( field( 773, "RANGE_TABLE_INDEX" ), 0u );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( SystemPortTest, ProgrammingTwiceInsertsAndThenUpdates ) {
    program( 99, true );
    clearLog();
    program( 100, true );
    expectLog( updateScript() );
    EXPECT_EQ( field( 773, "L2_IIF" ), 100u );
    EXPECT_EQ( rowCount(), 1u );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( SystemPortTest, AnyNegativeLookupCodeMeansInsertAndAnyOtherUpdate ) {
    inject( "op=commit,rc=-9,at=1" );
    inject( "op=commit,rc=4,at=3" );
    program( 100, true );
    expectLog( insertScript( -9 ) );
    clearLog();
    program( 100, true );
    expectLog( updateScript( 4 ) );
}

TEST_F( SystemPortTest, RangeTableIndexIsWrittenWhenTheChipAttributesAskForIt ) {
    giveAttributes( true );
    program( 100, true );
    expectLog( insertWithRangeIndexScript() );
    EXPECT_EQ( field( 773, "RANGE_TABLE_INDEX" ), 773u );
    clearLog();
    program( 100, true );
    expectLog( updateWithRangeIndexScript() );
}

TEST_F( SystemPortTest, RangeTableIndexIsWrittenWithoutTheCallTraceToo ) {
    giveAttributes( true );
    Kiln::traceOff();
    testing::internal::CaptureStderr();
    program( 100, true );
    EXPECT_EQ( testing::internal::GetCapturedStderr(), "" );
    EXPECT_EQ( field( 773, "RANGE_TABLE_INDEX" ), 773u );
}

TEST_F( SystemPortTest, RangeTableIndexThatFailsIsIgnored ) {
    giveAttributes( true );
    inject( "op=field_add,field=RANGE_TABLE_INDEX,rc=-4,always" );
    program( 100, true );
    expectLog( insertWithRangeIndexScript() );
    EXPECT_EQ( field( 773, "L2_IIF" ), 100u );
    EXPECT_EQ( field( 773, "RANGE_TABLE_INDEX" ), 0u );
    EXPECT_EQ( chip().failureCount(), 0u );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( SystemPortTest, RangeTableIndexIsNotAddedWhenDeleting ) {
    giveAttributes( true );
    program( 100, true );
    clearLog();
    program( 100, false );
    expectLog( deleteScript() );
}

TEST_F( SystemPortTest, DeletingRemovesTheMapping ) {
    program( 100, true );
    clearLog();
    program( 100, false );
    expectLog( deleteScript() );
    EXPECT_EQ( rowCount(), 0u );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( SystemPortTest, DeletingAnAbsentMappingWritesAMessageAndCommitsNothing ) {
    program( 100, false );
    expectLog( deleteAbsentScript() );
    EXPECT_EQ( logOf( "commit" ),
               std::vector<std::string>{ "commit BCMLT_OPCODE_LOOKUP [released]" } );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( SystemPortTest, PositiveLookupCodeMeansThatTheMappingIsThere ) {
    program( 100, true );
    inject( "op=commit,rc=4,always" );
    EXPECT_TRUE( verify( 100, true ) );
    EXPECT_FALSE( verify( 100, false ) );
    program( 100, false );
    EXPECT_EQ( logOf( "commit BCMLT_OPCODE_DELETE" ).size(), 1u );
    EXPECT_EQ( rowCount(), 0u );
}

TEST_F( SystemPortTest, DeletingNeedsNoProfile ) {
    CairnProfile::clearActiveChipProfiles();
    program( 100, false );
    expectLog( deleteAbsentScript() );
}

TEST_F( SystemPortTest, ArgumentsReachMessageAndChipUnchangedButForTheNumbering ) {
    // Module and port are numbered by their low 16 bits and shown whole.
    programL2IfIngSystemPortTable( chipInfo, 3, 0x1'0004, 0xF'0007, 128, 65535, true );
    EXPECT_EQ( log().front(),
               "CairnLtHelper/2 programL2IfIngSystemPortTable: programL2IfIngSystemPortTable"
               " system source: 1031 unit: 3 modId: 65540 port: 983047 l2If: 65535 op: true"
               " [held]" );
    EXPECT_EQ( logOf( "add " ), ( std::vector<std::string>{ "add SYSTEM_SOURCE = 1031 [released]",
                                                            "add L2_IIF = 65535 [released]" } ) );
    EXPECT_EQ( logOf( "allocate 3 ING_SYSTEM_PORT_TABLE" ).size(), 1u );
}

TEST_F( SystemPortTest, PortZeroIsNumberedByTheNumberOfPorts ) {
    programL2IfIngSystemPortTable( chipInfo, 0, 3, 0, 128, 100, true );
    EXPECT_EQ( field( 896, "L2_IIF" ), 100u );
    EXPECT_TRUE( verifyL2IfIngSystemPortTable( chipInfo, 0, 3, 0, 128, 100, true ) );
}

TEST_F( SystemPortTest, PortIsNumberedByItsLowSixteenBits ) {
    programL2IfIngSystemPortTable( chipInfo, 0, 3, 65536, 128, 100, true ); // port 0
    EXPECT_EQ( field( 896, "L2_IIF" ), 100u );
    programL2IfIngSystemPortTable( chipInfo, 0, 3, 256, 128, 101, true ); // not port 0
    EXPECT_EQ( field( 768, "L2_IIF" ), 101u );
}

TEST_F( SystemPortTest, ChipWithANumberingOfItsOwnIsKeyedByIt ) {
    auto profile = Nacre::make<Asic::ChipProfile>();
    profile->addFeature( Nacre::make<CairnCentral::CairnChipAttributes>( false ) );
    profile->addFeature( Nacre::make<CairnCommon::CairnCommonFeatureAttributes>( wideNumbering ) );
    CairnProfile::setActiveChipProfile( chipInfo, profile );
    // The number's top bit is set; the key is its 32 bits, not a negative 64-bit number.
    programL2IfIngSystemPortTable( chipInfo, 0, 0x8000, 1, 128, 100, true );
    EXPECT_EQ( logOf( "add SYSTEM_SOURCE" ),
               std::vector<std::string>{ "add SYSTEM_SOURCE = 2147483649 [released]" } );
    EXPECT_TRUE( verifyL2IfIngSystemPortTable( chipInfo, 0, 0x8000, 1, 128, 100, true ) );
}

// --- Verifying

TEST_F( SystemPortTest, VerifyOfAPresentMappingReadsItsInterface ) {
    program( 100, true );
    clearLog();
    EXPECT_TRUE( verify( 100, true ) );
    expectLog( verifyPresentScript() );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( SystemPortTest, VerifyOfAPresentMappingWithADifferentInterfaceIsFalse ) {
    program( 101, true );
    clearLog();
    EXPECT_FALSE( verify( 100, true ) );
    expectLog( verifyPresentScript() );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( SystemPortTest, VerifyComparesTheWholeInterfaceThatTheHardwareHolds ) {
    auto schema = Sim::referenceSchema();
    for ( auto & each : schema.find( "ING_SYSTEM_PORT_TABLE" )->fields )
        if ( each.name == "L2_IIF" )
            each.width = 64;
    useSchema( schema );
    putRow( 0, "ING_SYSTEM_PORT_TABLE", { { "SYSTEM_SOURCE", 773 }, { "L2_IIF", 0x1'0000'0064 } } );
    EXPECT_FALSE( verify( 100, true ) );
    putRow( 0, "ING_SYSTEM_PORT_TABLE", { { "SYSTEM_SOURCE", 773 }, { "L2_IIF", 100 } } );
    EXPECT_TRUE( verify( 100, true ) );
}

TEST_F( SystemPortTest, VerifyOfAMissingMappingIsFalseAndReadsNothing ) {
    EXPECT_FALSE( verify( 100, true ) );
    expectLog( verifyMissingScript() );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( SystemPortTest, VerifyOfAbsenceIsFalseWhileTheMappingIsThere ) {
    program( 100, true );
    clearLog();
    EXPECT_FALSE( verify( 100, false ) );
    expectLog( verifyStillThereScript() );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( SystemPortTest, VerifyOfAbsenceAfterDeleteIsTrueAndSaysSo ) {
    program( 100, true );
    program( 100, false );
    clearLog();
    EXPECT_TRUE( verify( 100, false ) );
    expectLog( verifyAbsentScript() );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( SystemPortTest, VerifyNeedsNoProfile ) {
    putRow( 0, "ING_SYSTEM_PORT_TABLE", { { "SYSTEM_SOURCE", 773 }, { "L2_IIF", 100 } } );
    CairnProfile::clearActiveChipProfiles();
    EXPECT_TRUE( verify( 100, true ) );
}

TEST_F( SystemPortTest, ProgramVerifyChangeDeleteAndVerifyAgain ) {
    program( 100, true );
    EXPECT_TRUE( verify( 100, true ) );
    EXPECT_FALSE( verify( 100, false ) );
    program( 200, true );
    EXPECT_FALSE( verify( 100, true ) );
    EXPECT_TRUE( verify( 200, true ) );
    program( 200, false );
    EXPECT_FALSE( verify( 200, true ) );
    EXPECT_TRUE( verify( 200, false ) );
    program( 200, false );
    EXPECT_EQ( rowCount(), 0u );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( SystemPortTest, MappingsOfOtherPortsStayAsTheyAre ) {
    programL2IfIngSystemPortTable( chipInfo, 0, 3, 6, 128, 60, true );
    programL2IfIngSystemPortTable( chipInfo, 0, 4, 5, 128, 45, true );
    program( 100, true );
    program( 100, false );
    EXPECT_TRUE( verifyL2IfIngSystemPortTable( chipInfo, 0, 3, 6, 128, 60, true ) );
    EXPECT_TRUE( verifyL2IfIngSystemPortTable( chipInfo, 0, 4, 5, 128, 45, true ) );
}

// --- Output

TEST_F( SystemPortTest, InterpreterLockIsReleasedAroundTheIgnoredCallToo ) {
    giveAttributes( true );
    holdInterpreterLock();
    Script script( "programL2IfIngSystemPortTable" );
    script.holdInterpreterLock();
    script.add( {
        line( 2, "programL2IfIngSystemPortTable system source: 773 unit: 0 modId: 3 port: 5"
                 " l2If: 100 op: true" ),
        guarded( R"(bcmlt_entry_allocate( unit, "ING_SYSTEM_PORT_TABLE", &systemPortEntry ))",
                 "allocate 0 ING_SYSTEM_PORT_TABLE" ),
        guarded( R"(bcmlt_entry_field_add( systemPortEntry, "SYSTEM_SOURCE", system_source ))",
                 "add SYSTEM_SOURCE = 773" ),
        unchecked(
            R"(bcmlt_entry_commit( systemPortEntry, BCMLT_OPCODE_LOOKUP, BCMLT_PRIORITY_NORMAL ))",
            "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_LOOKUP; commit BCMLT_OPCODE_LOOKUP", -27 ),
        guarded( R"(bcmlt_entry_field_add( systemPortEntry, "L2_IIF", l2If ))",
                 "add L2_IIF = 100" ),
        ignored( R"(bcmlt_entry_field_add( systemPortEntry, "RANGE_TABLE_INDEX", system_source ))",
                 "add RANGE_TABLE_INDEX = 773" ),
        guarded(
            R"(bcmlt_entry_commit( systemPortEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ))",
            "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_INSERT; commit BCMLT_OPCODE_INSERT" ),
        guarded( R"(bcmlt_entry_free( systemPortEntry ))", "free" ),
    } );
    program( 100, true );
    expectLog( script );
}

TEST_F( SystemPortTest, MessagesComeAtLevelTwo ) {
    expectMessagesAtTheirLevels( insertScript(), [this] { program( 100, true ); } );
    expectMessagesAtTheirLevels( deleteAbsentScript(), [this] { program( 100, false ); } );
    expectMessagesAtTheirLevels( verifyMissingScript(), [this] { verify( 100, true ); } );
    expectMessagesAtTheirLevels( verifyAbsentScript(), [this] { verify( 100, false ); } );
}

// --- Stops

TEST_F( SystemPortDeathTest, EachGuardedCallOfTheProgrammingStopsTheProcess ) {
    const auto programs = [this] { program( 100, true ); };
    const auto deletes = [this] { program( 100, false ); };
    expectEachFailureToStop( insertScript(), programPretty, programs );
    expectEachFailureToStop( deleteAbsentScript(), programPretty, deletes );
    putRow( 0, "ING_SYSTEM_PORT_TABLE", { { "SYSTEM_SOURCE", 773 } } );
    expectEachFailureToStop( updateScript(), programPretty, programs );
    expectEachFailureToStop( deleteScript(), programPretty, deletes );
}

TEST_F( SystemPortDeathTest, EachGuardedCallWithRangeTableIndexStopsTheProcess ) {
    giveAttributes( true );
    const auto programs = [this] { program( 100, true ); };
    expectEachFailureToStop( insertWithRangeIndexScript(), programPretty, programs );
    putRow( 0, "ING_SYSTEM_PORT_TABLE", { { "SYSTEM_SOURCE", 773 } } );
    expectEachFailureToStop( updateWithRangeIndexScript(), programPretty, programs );
}

TEST_F( SystemPortDeathTest, EachGuardedCallOfTheVerificationStopsTheProcess ) {
    expectEachFailureToStop( verifyMissingScript(), verifyPretty, [this] { verify( 100, true ); } );
    expectEachFailureToStop( verifyAbsentScript(), verifyPretty, [this] { verify( 100, false ); } );
    putRow( 0, "ING_SYSTEM_PORT_TABLE", { { "SYSTEM_SOURCE", 773 }, { "L2_IIF", 100 } } );
    expectEachFailureToStop( verifyPresentScript(), verifyPretty, [this] { verify( 100, true ); } );
    expectEachFailureToStop( verifyStillThereScript(), verifyPretty,
                             [this] { verify( 100, false ); } );
}

TEST_F( SystemPortDeathTest, ChipWithoutProfileStopsAfterTheInterfaceIsAdded ) {
    CairnProfile::clearActiveChipProfiles();
    const auto stop = stopOf( [this] { program( 100, true ); } );
    expectAssertion( stop, "profile", programPretty );
    EXPECT_EQ( stop.count( "add L2_IIF" ), 1 );
    EXPECT_EQ( stop.count( "commit" ), 1 );
}

TEST_F( SystemPortDeathTest, ProfileWithoutChipAttributesStopsAfterTheInterfaceIsAdded ) {
    CairnProfile::setActiveChipProfile( chipInfo, Nacre::make<Asic::ChipProfile>() );
    const auto stop = stopOf( [this] { program( 100, true ); } );
    expectAssertion( stop, "chipAttr", programPretty );
    EXPECT_EQ( stop.count( "add L2_IIF" ), 1 );
    EXPECT_EQ( stop.count( "commit" ), 1 );
}

TEST_F( SystemPortDeathTest, LookupThatFailsAlthoughTheMappingIsThereStopsAtTheInsert ) {
    program( 100, true );
    const auto stop = stopOf( [this] {
        inject( "op=commit,rc=-3" );
        program( 100, true );
    } );
    EXPECT_EQ(
        stop.standardError,
        report(
            R"(bcmlt_entry_commit( systemPortEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ))",
            chip().errmsg( -26 ), -26, programPretty ) );
}

} // namespace
