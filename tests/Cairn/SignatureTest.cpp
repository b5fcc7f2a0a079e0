#include "tests/support/RecipeTest.h"

#include "Cairn/CairnLtHelper.h"

#include <ChipModel/ChipProfile.h>
#include <Kiln/TraceSink.h>

#include <csignal>
#include <iterator>
#include <map>
#include <set>

// What the output of each recipe names: its signature, and the source line of each call.

namespace {

using namespace Support;

const CairnCentral::ChipInfo chipInfo( "alpha", 1, 0, 0 );

Cairn::CairnCommonSmData::Ptr cpuPort() {
    auto state = Nacre::make<Cairn::CairnCommonSmData>();
    state->cairnCpuPortToIntf.set( CairnTypes::CairnPort{ 1, 0, 5, 0 }, Netbase::IntfId{ 7 } );
    return state;
}

Cairn::CairnCommonSmData::Ptr loopbackPort() {
    auto state = Nacre::make<Cairn::CairnCommonSmData>();
    state->cairnInternalRecircIntfToPort.set( Netbase::IntfId{ 7 },
                                              CairnTypes::CairnPort{ 1, 0, 6, 0 } );
    return state;
}

/// One recipe: its signature, the first of its calls that stops the process when it fails (by its
/// place among the SDK operations, from 1), the text under which that is reported, and how it runs.
struct Signature {
    const char * pretty;
    int operation;
    const char * text;
    void ( *run )();
};

const Signature signatures[] = {
    { "void Cairn::cpuPortInit(Cairn::CairnCommonSmData::Ptr)", 1,
      R"(bcmlt_entry_allocate( unit, PC_PORT_PHYS_MAPs, &cpuPortEntry ))",
      [] { Cairn::cpuPortInit( cpuPort() ); } },
    { "void Cairn::lbPortInit(Cairn::CairnCommonSmData::Ptr)", 1,
      R"(bcmlt_entry_allocate( unit, "PC_PORT_PHYS_MAP", &lbPortEntry ))",
      [] { Cairn::lbPortInit( loopbackPort() ); } },
    { "void Cairn::programL2IfIngSystemPortTable(CairnCentral::ChipInfo, uint32_t, uint32_t, "
      "uint32_t, uint32_t, uint16_t, bool)",
      1, R"(bcmlt_entry_allocate( unit, "ING_SYSTEM_PORT_TABLE", &systemPortEntry ))",
      [] { Cairn::programL2IfIngSystemPortTable( chipInfo, 0, 3, 5, 128, 100, true ); } },
    { "bool Cairn::verifyL2IfIngSystemPortTable(CairnCentral::ChipInfo, uint32_t, uint32_t, "
      "uint32_t, uint32_t, uint16_t, bool)",
      1, R"(bcmlt_entry_allocate( unit, "ING_SYSTEM_PORT_TABLE", &systemPortEntry ))",
      [] { (void)Cairn::verifyL2IfIngSystemPortTable( chipInfo, 0, 3, 5, 128, 100, true ); } },
    { "void Cairn::programL2EifSystemDestinationTable(CairnCentral::ChipInfo, uint32_t, uint32_t, "
      "uint32_t, uint32_t, uint16_t, bool, bool)",
      1,
      R"(bcmlt_entry_allocate( unit, "L2_EIF_SYSTEM_DESTINATION", &l2EifSystemDestinationEntry ))",
      [] {
          Cairn::programL2EifSystemDestinationTable( chipInfo, 0, 3, 5, 128, 100, false, true );
      } },
    { "bool Cairn::verifyL2EifSystemDestinationTable(CairnCentral::ChipInfo, uint32_t, uint32_t, "
      "uint32_t, uint32_t, uint16_t, bool, bool)",
      1,
      R"(bcmlt_entry_allocate( unit, "L2_EIF_SYSTEM_DESTINATION", &l2EifSystemDestinationEntry ))",
      [] {
          (void)Cairn::verifyL2EifSystemDestinationTable( chipInfo, 0, 3, 5, 128, 100, false,
                                                          true );
      } },
    { "void Cairn::setVxlanDefaultNetworkSvp(uint32_t, uint32_t)", 1,
      R"(bcmlt_entry_allocate( unit, "TNL_L2_VXLAN_CONTROL", &tnlL2VxlanControlEntry ))",
      [] { Cairn::setVxlanDefaultNetworkSvp( 0, 7 ); } },
    { "void Cairn::setT4XVxlanDefaultNetworkSvp(uint32_t)", 1,
      R"(bcmlt_entry_allocate( unit, "R_L2_TUNNEL_DEFAULT_NETWORK_SVP", &entryHdl ))",
      [] { Cairn::setT4XVxlanDefaultNetworkSvp( 0 ); } },
    { "void Cairn::setVxlanUdpSourcePortSel(uint32_t, uint32_t)", 1,
      R"(bcmlt_entry_allocate( unit, "TNL_L2_VXLAN_CONTROL", &tnlL2VxlanControlEntry ))",
      [] { Cairn::setVxlanUdpSourcePortSel( 0, 0 ); } },
    { "void Cairn::setVxlanDecapAdaptLookup(uint32_t, uint32_t, bool)", 1,
      R"(bcmlt_entry_allocate( unit, "EGR_VLAN_CONTROL_1r", &ent_hdl ))",
      [] { Cairn::setVxlanDecapAdaptLookup( 0, 17, true ); } },
    { "bool Cairn::getVxlanDecapAdaptLookup(uint32_t, uint32_t)", 1,
      R"(bcmlt_entry_allocate( unit, "EGR_VLAN_CONTROL_1r", &ent_hdl ))",
      [] { (void)Cairn::getVxlanDecapAdaptLookup( 0, 17 ); } },
    { "void Cairn::setEgrTunnelEcnEncap(uint32_t, uint32_t, uint32_t)", 1,
      R"(bcmlt_entry_allocate( unit, "EGR_TUNNEL_ECN_ENCAPm", &egrTunnelEcnEncapEntry ))",
      [] { Cairn::setEgrTunnelEcnEncap( 0, 5, 2 ); } },
    { "void Cairn::setIngTunnelEcnDecap(uint32_t, uint32_t, uint32_t, bool)", 1,
      R"(bcmlt_entry_allocate( unit, "ING_TUNNEL_ECN_DECAPm", &ingTunnelEcnDecapEntry ))",
      [] { Cairn::setIngTunnelEcnDecap( 0, 5, 2, true ); } },
    { "void Cairn::setOpaqueTagIngress(uint32_t, uint8_t)", 1,
      R"(bcmlt_entry_allocate( unit, "OPAQUE_TAG_CONFIGr", &ent_hdl ))",
      [] { Cairn::setOpaqueTagIngress( 0, 7 ); } },
    { "uint16_t Cairn::getOpaqueTagIngress(uint32_t, uint8_t)", 1,
      R"(bcmlt_entry_allocate( unit, "OPAQUE_TAG_CONFIGr", &ent_hdl ))",
      [] { (void)Cairn::getOpaqueTagIngress( 0, 7 ); } },
    { "void Cairn::setOpaqueTagEgress(uint32_t)", 1,
      R"(bcmlt_entry_allocate( unit, "EGR_EPARS_OPAQUE_TAG_CONFIGr", &ent_hdl ))",
      [] { Cairn::setOpaqueTagEgress( 0 ); } },
    { "uint16_t Cairn::getOpaqueTagEgress(uint32_t)", 1,
      R"(bcmlt_entry_allocate( unit, "EGR_EPARS_OPAQUE_TAG_CONFIGr", &ent_hdl ))",
      [] { (void)Cairn::getOpaqueTagEgress( 0 ); } },
    { "void Cairn::setOpaqueTagEgressEfp(uint32_t)", 1,
      R"(bcmlt_entry_allocate( unit, "EGR_EFPPARS_OPAQUE_TAG_CONFIGr", &ent_hdl ))",
      [] { Cairn::setOpaqueTagEgressEfp( 0 ); } },
    { "uint16_t Cairn::getOpaqueTagEgressEfp(uint32_t)", 1,
      R"(bcmlt_entry_allocate( unit, "EGR_EFPPARS_OPAQUE_TAG_CONFIGr", &ent_hdl ))",
      [] { (void)Cairn::getOpaqueTagEgressEfp( 0 ); } },
    { "void Cairn::setInnerOpaqueTagIngress(uint32_t)", 1,
      R"(bcmlt_entry_allocate( unit, "INNER_L2_OPAQUE_TAG_CONFIGr", &ent_hdl ))",
      [] { Cairn::setInnerOpaqueTagIngress( 0 ); } },
    { "uint16_t Cairn::getInnerOpaqueTagIngress(uint32_t)", 1,
      R"(bcmlt_entry_allocate( unit, "INNER_L2_OPAQUE_TAG_CONFIGr", &ent_hdl ))",
      [] { (void)Cairn::getInnerOpaqueTagIngress( 0 ); } },
    { "void Cairn::setInnerOpaqueTagEgress(uint32_t)", 1,
      R"(bcmlt_entry_allocate( unit, "EGR_EPARS_INNER_L2_OPAQUE_TAG_CONFIGr", &ent_hdl ))",
      [] { Cairn::setInnerOpaqueTagEgress( 0 ); } },
    { "uint16_t Cairn::getInnerOpaqueTagEgress(uint32_t)", 1,
      R"(bcmlt_entry_allocate( unit, "EGR_EPARS_INNER_L2_OPAQUE_TAG_CONFIGr", &ent_hdl ))",
      [] { (void)Cairn::getInnerOpaqueTagEgress( 0 ); } },
    { "void Cairn::setInnerOpaqueTagEgressEpmod(uint32_t)", 1,
      R"(bcmlt_entry_allocate( unit, "EGR_EPMOD_L2_OPAQUE_TAG_CONFIGr", &ent_hdl ))",
      [] { Cairn::setInnerOpaqueTagEgressEpmod( 0 ); } },
    { "uint16_t Cairn::getInnerOpaqueTagEgressEpmod(uint32_t)", 1,
      R"(bcmlt_entry_allocate( unit, "EGR_EPMOD_L2_OPAQUE_TAG_CONFIGr", &ent_hdl ))",
      [] { (void)Cairn::getInnerOpaqueTagEgressEpmod( 0 ); } },
    { "void Cairn::setDefip128StrengthProfile(uint32_t)", 1,
      R"(bcmlt_entry_allocate( unit, "L3_IPV6_UNICAST_DEFIP_128_STRENGTH_PROFILE", &defip128StrengthEntry ))",
      [] { Cairn::setDefip128StrengthProfile( 0 ); } },
    { "void Cairn::setL3TnlOverlayEgrL3Oif1StrengthProfile(uint32_t)", 1,
      R"(bcmlt_entry_allocate( unit, "EGR_L3_OIF_1_STR_PROFILE", &egrL3Oif1StrengthEntry ))",
      [] { Cairn::setL3TnlOverlayEgrL3Oif1StrengthProfile( 0 ); } },
    { "void Cairn::setL3TnlOverlayNhStrengthProfile(uint32_t)", 1,
      R"(bcmlt_entry_allocate( unit, "ING_L3_NEXT_HOP_1_STRENGTH_PROFILE", &nhStrengthEntry ))",
      [] { Cairn::setL3TnlOverlayNhStrengthProfile( 0 ); } },
    { "void Cairn::setL3TnlOverlayEgrIpTnlStrengthProfile(uint32_t)", 1,
      R"(bcmlt_entry_allocate( unit, "EGR_L3_TNL_STR_PROFILE", &egrIpTnlStrengthEntry ))",
      [] { Cairn::setL3TnlOverlayEgrIpTnlStrengthProfile( 0 ); } },
    { "void Cairn::setL3TnlUnderlayIngNhStrengthProfile(uint32_t)", 1,
      R"(bcmlt_entry_allocate( unit, "ING_L3_NEXT_HOP_2_STRENGTH_PROFILE", &ingNh2StrengthEntry ))",
      [] { Cairn::setL3TnlUnderlayIngNhStrengthProfile( 0 ); } },
    { "void Cairn::setMcastV6StrengthProfile(Cairn::CairnCommonSmData::Ptr)", 1,
      R"(bcmlt_entry_allocate( unit, "L3_IPV6_MULTICAST_2_STRENGTH_PROFILE", &v6Mcast2StrengthEntry ))",
      [] {
          Cairn::setMcastV6StrengthProfile( sharedState( { { 0, "alpha" } } ) );
      } },
    { "void Cairn::setLearnCacheEnabled(uint32_t, bool)", 1,
      R"(bcmlt_entry_allocate( unit, "LEARN_CACHE_DATA_CONTROL", &learnCacheEntry ))",
      [] { Cairn::setLearnCacheEnabled( 0, true ); } },
    { "void Cairn::setLearnCacheDropEnabled(uint32_t, bool)", 1,
      R"(bcmlt_entry_allocate( unit, "LEARN_CACHE_DROP_CONTROL", &learnCacheDropEntry ))",
      [] { Cairn::setLearnCacheDropEnabled( 0, true ); } },
    { "void Cairn::programMonTraceCpu(uint32_t, const char*)", 1,
      R"(bcmlt_entry_allocate( unit, "MON_ING_TRACE_EVENT", &packetTraceEntry ))",
      [] { Cairn::programMonTraceCpu( 0, "L3_URPF_FAIL" ); } },
    // The one-line recipes have no signature of their own in the output.
    { "void Cairn::programMonTraceCpu(uint32_t, const char*)", 1,
      R"(bcmlt_entry_allocate( unit, "MON_ING_TRACE_EVENT", &packetTraceEntry ))",
      [] { Cairn::programPacketTraceForL3DstLookupMiss( 0 ); } },
    { "void Cairn::programMonTraceCpu(uint32_t, const char*)", 1,
      R"(bcmlt_entry_allocate( unit, "MON_ING_TRACE_EVENT", &packetTraceEntry ))",
      [] { Cairn::programPacketTraceForL3HdrError( 0 ); } },
    { "void Cairn::programMonTraceCpu(uint32_t, const char*)", 1,
      R"(bcmlt_entry_allocate( unit, "MON_ING_TRACE_EVENT", &packetTraceEntry ))",
      [] { Cairn::programPacketTraceForTtlError( 0 ); } },
    { "void Cairn::programPacketDropForMtuError(uint32_t)", 1,
      R"(bcmlt_entry_allocate( unit, "MON_ING_DROP_EVENT", &packetDropEntry ))",
      [] { Cairn::programPacketDropForMtuError( 0 ); } },
    { "void Cairn::setLoadBalanceRandSeedCtrl(uint32_t, uint32_t)", 2, "rc",
      [] { Cairn::setLoadBalanceRandSeedCtrl( 0, 12345 ); } },
    { "void Cairn::setLoadBalanceRandSeedMem(uint32_t, uint32_t)", 2, "rc",
      [] { Cairn::setLoadBalanceRandSeedMem( 0, 12345 ); } },
    { "void Cairn::mmuSpecialConfigInitPipe(uint32_t, uint32_t, bool)", 1,
      R"(bcmlt_entry_allocate( unit, "MMU_QSCH_SPECIAL_CONFIGr", &entryHdl ))",
      [] { Cairn::mmuSpecialConfigInitPipe( 0, 5, true ); } },
    { "void Cairn::resetIngEnEfilterBitMap(uint32_t, uint32_t)", 1,
      R"(bcmlt_entry_allocate( unit, "ING_EN_EFILTER_BITMAPm", &IngEnEfilterBitmapEntry ))",
      [] { Cairn::resetIngEnEfilterBitMap( 0, 128 ); } },
    { "void Cairn::setEmRobustHashDisable(uint32_t)", 2,
      R"(bcmlt_entry_field_add( entryHdl, "ROBUST_HASH_EN", 0 ))",
      [] { Cairn::setEmRobustHashDisable( 0 ); } },
    { "void Cairn::setFlexctrIngressCounterActionEnable(uint32_t)", 1,
      R"(bcmlt_entry_allocate( unit, "FLEX_CTR_ING_COUNTER_ACTION_ENABLEr", &ent_hdl ))",
      [] { Cairn::setFlexctrIngressCounterActionEnable( 0 ); } },
    { "void Cairn::setFlexctrEgressCounterActionEnable(uint32_t)", 1,
      R"(bcmlt_entry_allocate( unit, "FLEX_CTR_EGR_COUNTER_ACTION_ENABLEr", &ent_hdl ))",
      [] { Cairn::setFlexctrEgressCounterActionEnable( 0 ); } },
    { "void Cairn::enable1BitEccRpt(uint32_t, const char*, bool)", 1,
      R"(bcmlt_entry_allocate( unit, "SER_PT_CONTROL", &serPtCtrEntry ))",
      [] { Cairn::enable1BitEccRpt( 0, "ING_TUNNEL_ECN_DECAPm", true ); } },
    { "void Cairn::setVlanXlateMissDrop(Cairn::CairnCommonSmData::Ptr)", 1,
      R"(bcmlt_entry_allocate( unit, "R_VLAN_XLATE_MISS_POLICY", &vlanXlateMissPolicy ))",
      [] {
          Cairn::setVlanXlateMissDrop( sharedState( { { 0, "alpha" } } ) );
      } },
};

class SignatureDeathTest : public RecipeTest {};

TEST_F( SignatureDeathTest, EachRecipeStopsUnderItsOwnSignature ) {
    ASSERT_EQ( std::size( signatures ), 47u );
    for ( const auto & signature : signatures ) {
        SCOPED_TRACE( signature.text );
        const auto stop = stopOf( [&] {
            inject( "rc=-9,at=" + std::to_string( signature.operation ) );
            signature.run();
        } );
        EXPECT_EQ( stop.signal, SIGABRT );
        EXPECT_EQ( stop.standardError,
                   report( signature.text, chip().errmsg( -9 ), -9, signature.pretty ) );
    }
}

// Source lines: every recipe and branch is run, and where its lines came from is written down.

class SourceLineTest : public RecipeTest {
  protected:
    SourceLineTest() {
        auto profile = Nacre::make<Asic::ChipProfile>();
        profile->addFeature( Nacre::make<CairnCentral::CairnChipAttributes>( true ) );
        CairnProfile::setActiveChipProfile( chipInfo, profile );
        Kiln::traceToCallback( [this]( const Kiln::TraceLine & line ) {
            // Of a call, the text without position and code: "FILE:LINE TEXT (rc:0)".
            std::string site = "message";
            if ( line.facility == "ApiCairn" )
                site = line.text.substr( line.text.find( ' ' ) );
            site = std::string( line.function ) + site.substr( 0, site.rfind( " (rc:" ) );
            lines.push_back( line.line );
            sites[line.line].insert( site );
        } );
    }

    /// Runs every recipe and branch, and `after` each.
    void runAll( const std::function<void()> & after ) {
        const auto run = [&]( const auto & recipe ) {
            lines.clear();
            recipe();
            after();
        };
        const auto modules = sharedState( { { 0, "alpha" } } );

        // The first time: rows are not there, and all registers are set when their getter runs.
        blockedStages = { 106 };
        for ( const auto & signature : signatures )
            run( signature.run );

        // The second time: rows are there.
        blockedStages = {};
        run( [&] { Cairn::setVlanXlateMissDrop( modules ); } );
        run( [] { Cairn::setT4XVxlanDefaultNetworkSvp( 0 ); } );
        run( [] { Cairn::setLearnCacheEnabled( 0, false ); } );
        run( [] { Cairn::setLearnCacheDropEnabled( 0, false ); } );
        run( [] { Cairn::programL2IfIngSystemPortTable( chipInfo, 0, 3, 5, 128, 1, true ); } );
        run( [] { (void)Cairn::verifyL2IfIngSystemPortTable( chipInfo, 0, 3, 5, 128, 1, true ); } );
        run( [] { Cairn::programL2IfIngSystemPortTable( chipInfo, 0, 3, 5, 128, 1, false ); } );
        run( [] { Cairn::programL2IfIngSystemPortTable( chipInfo, 0, 3, 5, 128, 1, false ); } );
        run(
            [] { (void)Cairn::verifyL2IfIngSystemPortTable( chipInfo, 0, 3, 5, 128, 1, false ); } );
        run( [] {
            Cairn::programL2EifSystemDestinationTable( chipInfo, 0, 3, 5, 128, 100, true, true );
        } );
        for ( const bool lag : { false, true } )
            run( [&] {
                (void)Cairn::verifyL2EifSystemDestinationTable( chipInfo, 0, 3, 5, 128, 100, lag,
                                                                true );
            } );
        for ( int i = 0; i < 2; ++i )
            run( [] {
                Cairn::programL2EifSystemDestinationTable( chipInfo, 0, 3, 5, 128, 100, true,
                                                           false );
            } );
        run( [] {
            (void)Cairn::verifyL2EifSystemDestinationTable( chipInfo, 0, 3, 5, 128, 100, true,
                                                            false );
        } );
        blockedStages = { 55 };
        run( [&] { Cairn::setMcastV6StrengthProfile( modules ); } );

        // A chip that lacks what the seeds are written to.
        auto schema = Sim::referenceSchema();
        EXPECT_EQ( schema.remove( "IPOST_LAG_RAND_NUM_CTRL_0r" ), "" );
        EXPECT_EQ( schema.remove( "IPOST_LAG_RAND_NUM_SEED_0m" ), "" );
        useSchema( schema );
        run( [] { Cairn::setLoadBalanceRandSeedCtrl( 0, 12345 ); } );
        run( [] { Cairn::setLoadBalanceRandSeedMem( 0, 12345 ); } );
    }

    std::vector<int> lines; ///< of the recipe that ran last
    std::map<int, std::set<std::string>> sites;
};

TEST_F( SourceLineTest, LinesArePositiveAndIncreaseWithinARecipe ) {
    size_t repeated = 0;
    runAll( [&] {
        ASSERT_FALSE( lines.empty() );
        EXPECT_GT( lines.front(), 0 );
        std::set<int> seen;
        for ( const int line : lines ) {
            // A loop comes back to lines that have been seen.
            const bool isNew = seen.empty() || line > *seen.rbegin();
            EXPECT_TRUE( isNew || seen.contains( line ) ) << line;
            seen.insert( line );
        }
        repeated += seen.size() < lines.size() ? 1 : 0;
    } );
    // The recipes of the two seeds and of the robust hash.
    EXPECT_EQ( repeated, 3u );
}

TEST_F( SourceLineTest, NoTwoCallsOrMessagesOfTheLibraryShareALine ) {
    runAll( [] {} );
    EXPECT_EQ( sites.size(), 317u ); // all calls and messages of the 47 recipes
    for ( const auto & [line, texts] : sites )
        EXPECT_EQ( texts.size(), 1u ) << line << ": " << *texts.begin() << ", " << *texts.rbegin();
}

} // namespace
