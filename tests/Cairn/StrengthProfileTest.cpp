#include "tests/support/RecipeTest.h"

#include "Cairn/CairnLtHelper.h"

#include <csignal>

namespace {

using namespace Support;

/// One profile: its recipe, its row, and everything the recipe does.
struct Profile {
    const char * pretty;
    void ( *set )( uint32_t );
    const char * table;
    std::vector<uint64_t> key;
    const char * handle; ///< the name of the entry handle
    std::vector<std::pair<const char *, uint64_t>> strengths;
    Script script;
};

const Profile defip128{
    "void Cairn::setDefip128StrengthProfile(uint32_t)",
    Cairn::setDefip128StrengthProfile,
    "L3_IPV6_UNICAST_DEFIP_128_STRENGTH_PROFILE",
    {},
    "defip128StrengthEntry",
    { { "NHOP_2_OR_ECMP_GROUP_INDEX_1_STRENGTH", 4 },
      { "ECMP_AND_PROT_SWT_SFC_PROFILE_INDEX_STRENGTH", 4 },
      { "L3_DST_MISC_CTRL_1_STRENGTH", 4 },
      { "L3_DST_MISC_CTRL_0_STRENGTH", 4 },
      { "L3_DST_CLASS_ID_STRENGTH", 4 },
      { "L3_DST_DESTINATION_TYPE_STRENGTH", 4 },
      { "L3_DST_DESTINATION_STRENGTH", 4 } },
    Script(
        "setDefip128StrengthProfile",
        {
            held( "BCMLT_INVALID_HDL" ),
            guarded(
                R"(bcmlt_entry_allocate( unit, "L3_IPV6_UNICAST_DEFIP_128_STRENGTH_PROFILE", &defip128StrengthEntry ))",
                "allocate 0 L3_IPV6_UNICAST_DEFIP_128_STRENGTH_PROFILE" ),
            line( 2, "setDefip128StrengthProfile unit: 0 entry handle: HANDLE" ),
            guarded(
                R"(bcmlt_entry_field_add( defip128StrengthEntry, "NHOP_2_OR_ECMP_GROUP_INDEX_1_STRENGTH", DEFIP_128_FIELD_STRENGTH ))",
                "add NHOP_2_OR_ECMP_GROUP_INDEX_1_STRENGTH = 4" ),
            guarded(
                R"(bcmlt_entry_field_add( defip128StrengthEntry, "ECMP_AND_PROT_SWT_SFC_PROFILE_INDEX_STRENGTH", DEFIP_128_FIELD_STRENGTH ))",
                "add ECMP_AND_PROT_SWT_SFC_PROFILE_INDEX_STRENGTH = 4" ),
            guarded(
                R"(bcmlt_entry_field_add( defip128StrengthEntry, "L3_DST_MISC_CTRL_1_STRENGTH", DEFIP_128_FIELD_STRENGTH ))",
                "add L3_DST_MISC_CTRL_1_STRENGTH = 4" ),
            guarded(
                R"(bcmlt_entry_field_add( defip128StrengthEntry, "L3_DST_MISC_CTRL_0_STRENGTH", DEFIP_128_FIELD_STRENGTH ))",
                "add L3_DST_MISC_CTRL_0_STRENGTH = 4" ),
            guarded(
                R"(bcmlt_entry_field_add( defip128StrengthEntry, "L3_DST_CLASS_ID_STRENGTH", DEFIP_128_FIELD_STRENGTH ))",
                "add L3_DST_CLASS_ID_STRENGTH = 4" ),
            guarded(
                R"(bcmlt_entry_field_add( defip128StrengthEntry, "L3_DST_DESTINATION_TYPE_STRENGTH", DEFIP_128_FIELD_STRENGTH ))",
                "add L3_DST_DESTINATION_TYPE_STRENGTH = 4" ),
            guarded(
                R"(bcmlt_entry_field_add( defip128StrengthEntry, "L3_DST_DESTINATION_STRENGTH", DEFIP_128_FIELD_STRENGTH ))",
                "add L3_DST_DESTINATION_STRENGTH = 4" ),
            guarded(
                R"(bcmlt_entry_commit( defip128StrengthEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_INSERT; commit BCMLT_OPCODE_INSERT" ),
            guarded( R"(bcmlt_entry_free( defip128StrengthEntry ))", "free" ),
        } ) };

const Profile egressInterface{
    "void Cairn::setL3TnlOverlayEgrL3Oif1StrengthProfile(uint32_t)",
    Cairn::setL3TnlOverlayEgrL3Oif1StrengthProfile,
    "EGR_L3_OIF_1_STR_PROFILE",
    { 18 },
    "egrL3Oif1StrengthEntry",
    { { "TUNNEL_IDX_STR", 5 }, { "OBJ_TABLE_SEL_1", 2 } },
    Script(
        "setL3TnlOverlayEgrL3Oif1StrengthProfile",
        {
            held( "BCMLT_INVALID_HDL" ),
            guarded(
                R"(bcmlt_entry_allocate( unit, "EGR_L3_OIF_1_STR_PROFILE", &egrL3Oif1StrengthEntry ))",
                "allocate 0 EGR_L3_OIF_1_STR_PROFILE" ),
            line( 2, "setL3TnlOverlayEgrL3Oif1StrengthProfile unit: 0 entry handle: HANDLE" ),
            guarded(
                R"(bcmlt_entry_field_add( egrL3Oif1StrengthEntry, "EGR_L3_OIF_1_STR_PROFILE_INDEX", L3_TNL_OVERLAY_EGR_L3_OIF_1_STRENGTH_IDX ))",
                "add EGR_L3_OIF_1_STR_PROFILE_INDEX = 18" ),
            guarded(
                R"(bcmlt_entry_field_add( egrL3Oif1StrengthEntry, "TUNNEL_IDX_STR", L3_TNL_OVERLAY_EGR_L3_OIF_1_TUNNEL_STR ))",
                "add TUNNEL_IDX_STR = 5" ),
            guarded(
                R"(bcmlt_entry_field_add( egrL3Oif1StrengthEntry, "OBJ_TABLE_SEL_1", L3_TNL_OVERLAY_OBJ_SEL_1_STR ))",
                "add OBJ_TABLE_SEL_1 = 2" ),
            guarded(
                R"(bcmlt_entry_commit( egrL3Oif1StrengthEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_INSERT; commit BCMLT_OPCODE_INSERT" ),
            guarded( R"(bcmlt_entry_free( egrL3Oif1StrengthEntry ))", "free" ),
        } ) };

const Profile overlayNextHop{
    "void Cairn::setL3TnlOverlayNhStrengthProfile(uint32_t)",
    Cairn::setL3TnlOverlayNhStrengthProfile,
    "ING_L3_NEXT_HOP_1_STRENGTH_PROFILE",
    { 30 },
    "nhStrengthEntry",
    { { "L2MC_L3MC_L2_OIF_SYS_DST_VALID_STRENGTH", 6 } },
    Script(
        "setL3TnlOverlayNhStrengthProfile",
        {
            held( "BCMLT_INVALID_HDL" ),
            guarded(
                R"(bcmlt_entry_allocate( unit, "ING_L3_NEXT_HOP_1_STRENGTH_PROFILE", &nhStrengthEntry ))",
                "allocate 0 ING_L3_NEXT_HOP_1_STRENGTH_PROFILE" ),
            line( 2, "setL3TnlOverlayNhStrengthProfile unit: 0 entry handle: HANDLE" ),
            guarded(
                R"(bcmlt_entry_field_add( nhStrengthEntry, "ING_L3_NEXT_HOP_1_STRENGTH_PROFILE_INDEX", L3_TNL_OVERLAY_NEXT_HOP_1_STRENGTH_IDX ))",
                "add ING_L3_NEXT_HOP_1_STRENGTH_PROFILE_INDEX = 30" ),
            guarded(
                R"(bcmlt_entry_field_add( nhStrengthEntry, "L2MC_L3MC_L2_OIF_SYS_DST_VALID_STRENGTH", L3_TNL_OVERLAY_NEXT_HOP_DEST_STRENGTH ))",
                "add L2MC_L3MC_L2_OIF_SYS_DST_VALID_STRENGTH = 6" ),
            guarded(
                R"(bcmlt_entry_commit( nhStrengthEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_INSERT; commit BCMLT_OPCODE_INSERT" ),
            guarded( R"(bcmlt_entry_free( nhStrengthEntry ))", "free" ),
        } ) };

const Profile egressTunnel{
    "void Cairn::setL3TnlOverlayEgrIpTnlStrengthProfile(uint32_t)",
    Cairn::setL3TnlOverlayEgrIpTnlStrengthProfile,
    "EGR_L3_TNL_STR_PROFILE",
    { 17 },
    "egrIpTnlStrengthEntry",
    { { "IP_DIP_STR", 6 }, { "SEQ_NUM_STR", 5 } },
    Script(
        "setL3TnlOverlayEgrIpTnlStrengthProfile",
        {
            held( "BCMLT_INVALID_HDL" ),
            guarded(
                R"(bcmlt_entry_allocate( unit, "EGR_L3_TNL_STR_PROFILE", &egrIpTnlStrengthEntry ))",
                "allocate 0 EGR_L3_TNL_STR_PROFILE" ),
            line( 2, "setL3TnlOverlayEgrIpTnlStrengthProfile unit: 0 entry handle: HANDLE" ),
            guarded(
                R"(bcmlt_entry_field_add( egrIpTnlStrengthEntry, "EGR_L3_TNL_STR_PROFILE_INDEX", L3_TNL_OVERLAY_EGR_IP_TNL_STRENGTH_IDX ))",
                "add EGR_L3_TNL_STR_PROFILE_INDEX = 17" ),
            guarded(
                R"(bcmlt_entry_field_add( egrIpTnlStrengthEntry, "IP_DIP_STR", L3_TNL_OVERLAY_IP_DIP_STRENGTH ))",
                "add IP_DIP_STR = 6" ),
            guarded(
                R"(bcmlt_entry_field_add( egrIpTnlStrengthEntry, "SEQ_NUM_STR", L3_TNL_OVERLAY_SEQ_NUM_STRENGTH ))",
                "add SEQ_NUM_STR = 5" ),
            guarded(
                R"(bcmlt_entry_commit( egrIpTnlStrengthEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_INSERT; commit BCMLT_OPCODE_INSERT" ),
            guarded( R"(bcmlt_entry_free( egrIpTnlStrengthEntry ))", "free" ),
        } ) };

const Profile underlayNextHop{
    "void Cairn::setL3TnlUnderlayIngNhStrengthProfile(uint32_t)",
    Cairn::setL3TnlUnderlayIngNhStrengthProfile,
    "ING_L3_NEXT_HOP_2_STRENGTH_PROFILE",
    { 9 },
    "ingNh2StrengthEntry",
    { { "L2MC_L3MC_L2_OIF_SYS_DST_VALID_STRENGTH", 7 }, { "DESTINATION_STRENGTH", 7 } },
    Script(
        "setL3TnlUnderlayIngNhStrengthProfile",
        {
            held( "BCMLT_INVALID_HDL" ),
            guarded(
                R"(bcmlt_entry_allocate( unit, "ING_L3_NEXT_HOP_2_STRENGTH_PROFILE", &ingNh2StrengthEntry ))",
                "allocate 0 ING_L3_NEXT_HOP_2_STRENGTH_PROFILE" ),
            line( 2, "setL3TnlUnderlayIngNhStrengthProfile unit: 0 entry handle: HANDLE" ),
            guarded(
                R"(bcmlt_entry_field_add( ingNh2StrengthEntry, "ING_L3_NEXT_HOP_2_STRENGTH_PROFILE_INDEX", L3_TNL_UNDERLAY_ING_NH_STRENGTH_IDX ))",
                "add ING_L3_NEXT_HOP_2_STRENGTH_PROFILE_INDEX = 9" ),
            guarded(
                R"(bcmlt_entry_field_add( ingNh2StrengthEntry, "L2MC_L3MC_L2_OIF_SYS_DST_VALID_STRENGTH", L3_TNL_UNDERLAY_DST_VALID_STRENGTH ))",
                "add L2MC_L3MC_L2_OIF_SYS_DST_VALID_STRENGTH = 7" ),
            guarded(
                R"(bcmlt_entry_field_add( ingNh2StrengthEntry, "DESTINATION_STRENGTH", L3_TNL_UNDERLAY_DST_STRENGTH ))",
                "add DESTINATION_STRENGTH = 7" ),
            guarded(
                R"(bcmlt_entry_commit( ingNh2StrengthEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_INSERT; commit BCMLT_OPCODE_INSERT" ),
            guarded( R"(bcmlt_entry_free( ingNh2StrengthEntry ))", "free" ),
        } ) };

const Profile * const profiles[] = { &defip128, &egressInterface, &overlayNextHop, &egressTunnel,
                                     &underlayNextHop };

class StrengthProfileTest : public RecipeTest {
  protected:
    std::optional<uint64_t> value( int unit, const Profile & profile, const std::string & field ) {
        Sim::RowId row;
        row.key = profile.key;
        return chip().value( unit, profile.table, row, field );
    }
};
using StrengthProfileDeathTest = StrengthProfileTest;

TEST_F( StrengthProfileTest, FreshUnitGetsAllocateMessageFieldsInsertAndFreeAndNothingElse ) {
    for ( const auto * profile : profiles ) {
        SCOPED_TRACE( profile->table );
        clearLog();
        profile->set( 0 );
        expectLog( profile->script );
    }
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( StrengthProfileTest, RowHoldsItsStrengthsAndTheOtherFieldsTheirReset ) {
    for ( const auto * profile : profiles ) {
        SCOPED_TRACE( profile->table );
        profile->set( 3 );
        EXPECT_EQ( chip().rowCount( 3, profile->table ), 1u );
        EXPECT_EQ( chip().rowCount( 0, profile->table ), 0u );
        for ( const auto & field : chip().schema( 3 )->find( profile->table )->fields ) {
            if ( field.role == Sim::FieldRole::key )
                continue;
            uint64_t expected = 0;
            for ( const auto & [name, strength] : profile->strengths )
                if ( field.name == name )
                    expected = strength;
            EXPECT_EQ( value( 3, *profile, field.name ), expected ) << field.name;
        }
    }
}

TEST_F( StrengthProfileTest, RouteProfileCarriesNoKeyAndFourInAllSevenFields ) {
    Cairn::setDefip128StrengthProfile( 0 );
    const auto adds = logOf( "add " );
    ASSERT_EQ( adds.size(), 7u );
    for ( const auto & add : adds )
        EXPECT_TRUE( add.ends_with( "_STRENGTH = 4 [released]" ) ) << add;
}

TEST_F( StrengthProfileTest, UnderlayWritesSevenTwiceAndOverlaySixWithoutADestination ) {
    Cairn::setL3TnlUnderlayIngNhStrengthProfile( 0 );
    EXPECT_EQ( value( 0, underlayNextHop, "L2MC_L3MC_L2_OIF_SYS_DST_VALID_STRENGTH" ), 7u );
    EXPECT_EQ( value( 0, underlayNextHop, "DESTINATION_STRENGTH" ), 7u );
    clearLog();
    Cairn::setL3TnlOverlayNhStrengthProfile( 0 );
    EXPECT_EQ( value( 0, overlayNextHop, "L2MC_L3MC_L2_OIF_SYS_DST_VALID_STRENGTH" ), 6u );
    EXPECT_TRUE( logOf( "add DESTINATION_STRENGTH" ).empty() );
}

TEST_F( StrengthProfileTest, TunnelIndexAndSequenceNumberShareFiveAndTheObjectSelectorHasTwo ) {
    Cairn::setL3TnlOverlayEgrL3Oif1StrengthProfile( 0 );
    Cairn::setL3TnlOverlayEgrIpTnlStrengthProfile( 0 );
    EXPECT_EQ( value( 0, egressInterface, "TUNNEL_IDX_STR" ), 5u );
    EXPECT_EQ( value( 0, egressTunnel, "SEQ_NUM_STR" ), 5u );
    EXPECT_EQ( value( 0, egressInterface, "OBJ_TABLE_SEL_1" ), 2u );
}

TEST_F( StrengthProfileTest, NoTableIsReadBeforeItIsWritten ) {
    for ( const auto * profile : profiles )
        profile->set( 0 );
    EXPECT_TRUE( logOf( "commit BCMLT_OPCODE_LOOKUP" ).empty() );
    EXPECT_TRUE( logOf( "get " ).empty() );
    EXPECT_EQ( logOf( "commit " ).size(), 5u );
}

TEST_F( StrengthProfileTest, MessageShowsTheUnitAndTheHandleJustAllocated ) {
    // The second handle is not the first one.
    const uint32_t units[] = { 0, 3 };
    for ( const uint32_t unit : units ) {
        clearLog();
        Cairn::setL3TnlOverlayNhStrengthProfile( unit );
        EXPECT_EQ( logOf( "CairnLtHelper" ),
                   std::vector<std::string>{ "CairnLtHelper/2 setL3TnlOverlayNhStrengthProfile: "
                                             "setL3TnlOverlayNhStrengthProfile unit: " +
                                             std::to_string( unit ) +
                                             " entry handle: HANDLE [held]" } );
    }
}

TEST_F( StrengthProfileTest, MessagesComeAtLevelTwo ) {
    for ( const auto * profile : profiles )
        expectMessagesAtTheirLevels( profile->script, [&] { profile->set( 0 ); } );
}

TEST_F( StrengthProfileDeathTest, EachCallStopsTheProcess ) {
    for ( const auto * profile : profiles )
        expectEachFailureToStop( profile->script, profile->pretty, [&] { profile->set( 0 ); } );
}

TEST_F( StrengthProfileDeathTest, FailedFieldIsReportedWithTheNameOfItsConstant ) {
    const auto stop = stopOf( [this] {
        inject( "op=field_add,field=SEQ_NUM_STR,rc=-14" );
        Cairn::setL3TnlOverlayEgrIpTnlStrengthProfile( 0 );
    } );
    EXPECT_EQ(
        stop.standardError,
        report(
            R"(bcmlt_entry_field_add( egrIpTnlStrengthEntry, "SEQ_NUM_STR", L3_TNL_OVERLAY_SEQ_NUM_STRENGTH ))",
            chip().errmsg( -14 ), -14, egressTunnel.pretty ) );
}

TEST_F( StrengthProfileDeathTest, SecondInsertStopsTheProcess ) {
    for ( const auto * profile : profiles ) {
        SCOPED_TRACE( profile->table );
        profile->set( 0 );
        const auto stop = stopOf( [&] { profile->set( 0 ); } );
        EXPECT_EQ( stop.signal, SIGABRT );
        EXPECT_EQ( stop.standardError,
                   report( "bcmlt_entry_commit( " + std::string( profile->handle ) +
                               ", BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL )",
                           chip().errmsg( -26 ), -26, profile->pretty ) );
        EXPECT_EQ( stop.count( "free" ), 0 );
    }
}

TEST_F( StrengthProfileDeathTest, NoHandleAssertionWhenTheAllocateLeavesTheHandleInvalid ) {
    // The first field add fails instead.
    const auto stop = stopOf( [this] {
        inject( "handle=invalid" );
        Cairn::setL3TnlOverlayNhStrengthProfile( 0 );
    } );
    EXPECT_EQ(
        stop.standardError,
        report(
            R"(bcmlt_entry_field_add( nhStrengthEntry, "ING_L3_NEXT_HOP_1_STRENGTH_PROFILE_INDEX", L3_TNL_OVERLAY_NEXT_HOP_1_STRENGTH_IDX ))",
            chip().errmsg( -6 ), -6, overlayNextHop.pretty ) );
}

} // namespace
