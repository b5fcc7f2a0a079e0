#include "Cairn/CairnLtHelper.h"

#include "Cairn/internal/GuardedCall.h"
#include "Cairn/internal/TraceMessage.h"

#include "CairnCommon/CairnCommonUtil.h"

#include <CairnPlatform/Adapter.h>

#include <array>
#include <string>

namespace Cairn {

// --- Port bring-up

void cpuPortInit( Cairn::CairnCommonSmData::Ptr smData ) noexcept {
    CAIRN_RECIPE( "void Cairn::cpuPortInit(Cairn::CairnCommonSmData::Ptr)" );
    uint32_t cpuPortEntry;
    for ( const auto & element : CairnPlatform::elements( CairnPlatform::cpuPorts( *smData ) ) ) {
        const CairnTypes::CairnPort & port = CairnPlatform::key( element );
        const uint16_t unit = CairnPlatform::unit( port );
        const uint16_t portId = CairnPlatform::portId( port );
        CAIRN_CALL( bcmlt_entry_allocate( unit, PC_PORT_PHYS_MAPs, &cpuPortEntry ) );
        CAIRN_CALL( bcmlt_entry_field_add( cpuPortEntry, PORT_IDs, portId ) );
        CAIRN_CALL( bcmlt_entry_field_add( cpuPortEntry, PC_PHYS_PORT_IDs, portId ) );
        CAIRN_CALL( bcmlt_entry_commit( cpuPortEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ) );
        CAIRN_CALL( bcmlt_entry_free( cpuPortEntry ) );
        CAIRN_CALL( bcmlt_entry_allocate( unit, PC_PORTs, &cpuPortEntry ) );
        CAIRN_CALL( bcmlt_entry_field_add( cpuPortEntry, PORT_IDs, portId ) );
        CAIRN_CALL( bcmlt_entry_field_add( cpuPortEntry, ENABLEs, 1 ) );
        CAIRN_CALL( bcmlt_entry_field_add( cpuPortEntry, NUM_LANESs, 1 ) );
        CAIRN_CALL( bcmlt_entry_field_add( cpuPortEntry, SPEEDs, 10000 ) );
        CAIRN_CALL( bcmlt_entry_commit( cpuPortEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ) );
        CAIRN_CALL( bcmlt_entry_free( cpuPortEntry ) );
    }
}

void lbPortInit( Cairn::CairnCommonSmData::Ptr smData ) noexcept {
    CAIRN_RECIPE( "void Cairn::lbPortInit(Cairn::CairnCommonSmData::Ptr)" );
    CAIRN_LINE( 9, "lbPortInit" );
    const auto & recircPorts = CairnPlatform::recircPorts( *smData );
    const auto & hwPorts = CairnPlatform::hwPorts( *smData );
    uint32_t lbPortEntry;
    for ( const auto & element : CairnPlatform::elements( recircPorts ) ) {
        // An interface or a port that is not found is programmed with its type's default.
        const auto * const found =
            CairnPlatform::find( recircPorts, CairnPlatform::key( element ) );
        const CairnTypes::CairnPort port = found != nullptr ? *found : CairnTypes::CairnPort();
        const uint16_t unit = CairnPlatform::unit( port );
        const uint16_t portId = CairnPlatform::portId( port );
        const auto * const hwPort = CairnPlatform::find( hwPorts, port );
        const uint16_t phyPortId = CairnPlatform::phyPortId(
            hwPort != nullptr ? *hwPort : Hardware::Cairn::TridentPortId() );
        CAIRN_LINE( 8, "lbPortInit" << " portId: " << portId << " phyPortId: " << phyPortId );
        CAIRN_CALL( bcmlt_entry_allocate( unit, "PC_PORT_PHYS_MAP", &lbPortEntry ) );
        CAIRN_CALL( bcmlt_entry_field_add( lbPortEntry, "PORT_ID", portId ) );
        CAIRN_CALL( bcmlt_entry_field_add( lbPortEntry, "PC_PHYS_PORT_ID", phyPortId ) );
        CAIRN_CALL( bcmlt_entry_commit( lbPortEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ) );
        CAIRN_CALL( bcmlt_entry_free( lbPortEntry ) );
        CAIRN_CALL( bcmlt_entry_allocate( unit, "PC_PORT", &lbPortEntry ) );
        CAIRN_CALL( bcmlt_entry_field_add( lbPortEntry, "PORT_ID", portId ) );
        CAIRN_CALL( bcmlt_entry_field_add( lbPortEntry, "ENABLE", 1 ) );
        CAIRN_CALL( bcmlt_entry_field_add( lbPortEntry, "NUM_LANES", 1 ) );
        CAIRN_CALL( bcmlt_entry_field_add( lbPortEntry, "SPEED", 10000 ) );
        CAIRN_CALL( bcmlt_entry_commit( lbPortEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ) );
        CAIRN_CALL( bcmlt_entry_free( lbPortEntry ) );
    }
}

// --- System ports and destinations

namespace {

/// The system port number as the tables, the comparisons and the messages take it: its 32 bits.
uint32_t systemPort( const CairnCentral::ChipInfo & chipInfo, uint32_t modId, uint32_t port,
                     uint32_t maxPorts ) {
    return static_cast<uint32_t>( CairnCentral::SYSPORT_FROM_MODPORT(
        chipInfo, static_cast<uint16_t>( modId ), static_cast<uint16_t>( port ), maxPorts ) );
}

} // namespace

void programL2IfIngSystemPortTable( CairnCentral::ChipInfo chipInfo, uint32_t unit, uint32_t modId,
                                    uint32_t port, uint32_t maxPorts, uint16_t l2If,
                                    bool op ) noexcept {
    CAIRN_RECIPE( "void Cairn::programL2IfIngSystemPortTable(CairnCentral::ChipInfo, uint32_t, uint32_t, uint32_t, uint32_t, uint16_t, bool)" );
    const uint32_t system_source = systemPort( chipInfo, modId, port, maxPorts );
    CAIRN_MESSAGE( "iiiisb", ( " system source: ", "%s", " unit: ", "%s", " modId: ", "%s", " port: ", "%s", " l2If: ", "%s", " op: ", "%s" ), system_source, unit, modId, port, l2If, op );
    uint32_t systemPortEntry;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "ING_SYSTEM_PORT_TABLE", &systemPortEntry ) );
    CAIRN_CALL( bcmlt_entry_field_add( systemPortEntry, "SYSTEM_SOURCE", system_source ) );
    int rc;
    CAIRN_CALL_UNCHECKED( rc, bcmlt_entry_commit( systemPortEntry, BCMLT_OPCODE_LOOKUP, BCMLT_PRIORITY_NORMAL ) );
    if ( op ) {
        CAIRN_CALL( bcmlt_entry_field_add( systemPortEntry, "L2_IIF", l2If ) );
        const auto profile = CairnProfile::activeChipProfile( chipInfo );
        CAIRN_ASSERT( profile );
        const CairnCentral::FeatureOf<CairnCentral::CairnChipAttributes> chipAttr( *profile );
        CAIRN_ASSERT( chipAttr );
        if ( CairnPlatform::hasRangeTableIndex( *chipAttr ) ) {
            // Chips differ in whether the table takes this field; one that refuses it does without.
            CAIRN_CALL_IGNORED( bcmlt_entry_field_add( systemPortEntry, "RANGE_TABLE_INDEX", system_source ) );
        }
        if ( rc < 0 )
            CAIRN_CALL( bcmlt_entry_commit( systemPortEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ) );
        else
            CAIRN_CALL( bcmlt_entry_commit( systemPortEntry, BCMLT_OPCODE_UPDATE, BCMLT_PRIORITY_NORMAL ) );
    } else if ( rc < 0 ) {
        CAIRN_MESSAGE( "iii", ( " Couldn't find h/w entry for system source: ", "%s", " unit: ", "%s", " port: ", "%s" ), system_source, unit, port );
    } else {
        CAIRN_CALL( bcmlt_entry_commit( systemPortEntry, BCMLT_OPCODE_DELETE, BCMLT_PRIORITY_NORMAL ) );
    }
    CAIRN_CALL( bcmlt_entry_free( systemPortEntry ) );
}

bool verifyL2IfIngSystemPortTable( CairnCentral::ChipInfo chipInfo, uint32_t unit, uint32_t modId,
                                   uint32_t port, uint32_t maxPorts, uint16_t l2If,
                                   bool op ) noexcept {
    CAIRN_RECIPE( "bool Cairn::verifyL2IfIngSystemPortTable(CairnCentral::ChipInfo, uint32_t, uint32_t, uint32_t, uint32_t, uint16_t, bool)" );
    const uint32_t system_source = systemPort( chipInfo, modId, port, maxPorts );
    CAIRN_MESSAGE( "iiiisb", ( " system source: ", "%s", " unit: ", "%s", " modId: ", "%s", " port: ", "%s", " l2If: ", "%s", " op: ", "%s" ), system_source, unit, modId, port, l2If, op );
    uint32_t systemPortEntry;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "ING_SYSTEM_PORT_TABLE", &systemPortEntry ) );
    CAIRN_CALL( bcmlt_entry_field_add( systemPortEntry, "SYSTEM_SOURCE", system_source ) );
    int rc;
    CAIRN_CALL_UNCHECKED( rc, bcmlt_entry_commit( systemPortEntry, BCMLT_OPCODE_LOOKUP, BCMLT_PRIORITY_NORMAL ) );
    const bool present = rc >= 0;
    bool result = op;
    if ( op ) {
        result = false;
        if ( present ) {
            uint64_t hwL2Iif = 0;
            CAIRN_CALL( bcmlt_entry_field_get( systemPortEntry, "L2_IIF", &hwL2Iif ) );
            result = hwL2Iif == l2If;
        }
    } else {
        if ( !present )
            CAIRN_MESSAGE( "iii", ( " Couldn't find h/w entry for system source: ", "%s", " unit: ", "%s", " port: ", "%s" ), system_source, unit, port );
        result = !present;
    }
    CAIRN_CALL( bcmlt_entry_free( systemPortEntry ) );
    return result;
}

void programL2EifSystemDestinationTable( CairnCentral::ChipInfo chipInfo, uint32_t unit,
                                         uint32_t modId, uint32_t portOrLagId, uint32_t maxPorts,
                                         uint16_t l2If, bool lag, bool op ) noexcept {
    CAIRN_RECIPE( "void Cairn::programL2EifSystemDestinationTable(CairnCentral::ChipInfo, uint32_t, uint32_t, uint32_t, uint32_t, uint16_t, bool, bool)" );
    CAIRN_MESSAGE( "iiisbb", ( " unit: ", "%s", " modId: ", "%s", " portOrLagId: ", "%s l2If: ", "%s", " lag: ", "%s", " op: ", "%s" ), unit, modId, portOrLagId, l2If, lag, op );
    uint32_t l2EifSystemDestinationEntry;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "L2_EIF_SYSTEM_DESTINATION", &l2EifSystemDestinationEntry ) );
    CAIRN_CALL( bcmlt_entry_field_add( l2EifSystemDestinationEntry, "L2_EIF_ID", l2If ) );
    int rc;
    CAIRN_CALL_UNCHECKED( rc, bcmlt_entry_commit( l2EifSystemDestinationEntry, BCMLT_OPCODE_LOOKUP, BCMLT_PRIORITY_NORMAL ) );
    if ( op ) {
        if ( lag ) {
            CAIRN_CALL( bcmlt_entry_field_add( l2EifSystemDestinationEntry, "IS_TRUNK", 1 ) );
            CAIRN_CALL( bcmlt_entry_field_add( l2EifSystemDestinationEntry, "TRUNK_ID", portOrLagId ) );
        } else {
            // A port destination leaves IS_TRUNK as it is.
            const uint32_t system_source = systemPort( chipInfo, modId, portOrLagId, maxPorts );
            CAIRN_MESSAGE( "i", ( " system source: ", "%s" ), system_source );
            CAIRN_CALL( bcmlt_entry_field_add( l2EifSystemDestinationEntry, "SYSTEM_PORT", system_source ) );
        }
        if ( rc < 0 )
            CAIRN_CALL( bcmlt_entry_commit( l2EifSystemDestinationEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ) );
        else
            CAIRN_CALL( bcmlt_entry_commit( l2EifSystemDestinationEntry, BCMLT_OPCODE_UPDATE, BCMLT_PRIORITY_NORMAL ) );
    } else if ( rc < 0 ) {
        CAIRN_MESSAGE( "s", ( " Couldn't find h/w entry for l2_eif_id: ", "%s" ), l2If );
    } else {
        CAIRN_CALL( bcmlt_entry_commit( l2EifSystemDestinationEntry, BCMLT_OPCODE_DELETE, BCMLT_PRIORITY_NORMAL ) );
    }
    CAIRN_CALL( bcmlt_entry_free( l2EifSystemDestinationEntry ) );
}

bool verifyL2EifSystemDestinationTable( CairnCentral::ChipInfo chipInfo, uint32_t unit,
                                        uint32_t modId, uint32_t portOrLagId, uint32_t maxPorts,
                                        uint16_t l2If, bool lag, bool op ) noexcept {
    CAIRN_RECIPE( "bool Cairn::verifyL2EifSystemDestinationTable(CairnCentral::ChipInfo, uint32_t, uint32_t, uint32_t, uint32_t, uint16_t, bool, bool)" );
    CAIRN_MESSAGE( "iiisbb", ( " unit: ", "%s", " portOrLagId: ", "%s", " modId: ", "%s", " l2If: ", "%s", " lag: ", "%s", " op: ", "%s" ), unit, portOrLagId, modId, l2If, lag, op );
    uint32_t l2EifSystemDestinationEntry;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "L2_EIF_SYSTEM_DESTINATION", &l2EifSystemDestinationEntry ) );
    CAIRN_CALL( bcmlt_entry_field_add( l2EifSystemDestinationEntry, "L2_EIF_ID", l2If ) );
    int rc;
    CAIRN_CALL_UNCHECKED( rc, bcmlt_entry_commit( l2EifSystemDestinationEntry, BCMLT_OPCODE_LOOKUP, BCMLT_PRIORITY_NORMAL ) );
    const bool present = rc >= 0;
    // A missing entry verifies as present: callers rely on the answer `op` there.
    bool result = op;
    if ( op && present ) {
        uint64_t val = 0;
        CAIRN_CALL( bcmlt_entry_field_get( l2EifSystemDestinationEntry, "IS_TRUNK", &val ) );
        if ( lag ) {
            const bool isTrunk = val != 0;
            val = 0;
            CAIRN_CALL( bcmlt_entry_field_get( l2EifSystemDestinationEntry, "TRUNK_ID", &val ) );
            result = val == portOrLagId && isTrunk;
        } else {
            const uint32_t system_source = systemPort( chipInfo, modId, portOrLagId, maxPorts );
            val = 0;
            CAIRN_CALL( bcmlt_entry_field_get( l2EifSystemDestinationEntry, "SYSTEM_PORT", &val ) );
            result = val == system_source;
        }
    } else if ( !op ) {
        if ( !present )
            CAIRN_MESSAGE( "s", ( " Couldn't find h/w entry for l2_eif_id: ", "%s" ), l2If );
        result = !present;
    }
    CAIRN_CALL( bcmlt_entry_free( l2EifSystemDestinationEntry ) );
    return result;
}

// --- VXLAN controls

void setVxlanDefaultNetworkSvp( uint32_t unit, uint32_t svp ) noexcept {
    CAIRN_RECIPE( "void Cairn::setVxlanDefaultNetworkSvp(uint32_t, uint32_t)" );
    uint32_t tnlL2VxlanControlEntry;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "TNL_L2_VXLAN_CONTROL", &tnlL2VxlanControlEntry ) );
    CAIRN_CALL( bcmlt_entry_field_add( tnlL2VxlanControlEntry, "DEFAULT_NETWORK_SVP", svp ) );
    CAIRN_CALL( bcmlt_entry_commit( tnlL2VxlanControlEntry, BCMLT_OPCODE_UPDATE, BCMLT_PRIORITY_NORMAL ) );
    CAIRN_CALL( bcmlt_entry_free( tnlL2VxlanControlEntry ) );
}

void setT4XVxlanDefaultNetworkSvp( uint32_t unit ) noexcept {
    CAIRN_RECIPE( "void Cairn::setT4XVxlanDefaultNetworkSvp(uint32_t)" );
    CAIRN_LINE( 3, cairnRecipe_.pretty << " " << unit );
    uint32_t entryHdl = BCMLT_INVALID_HDL;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "R_L2_TUNNEL_DEFAULT_NETWORK_SVP", &entryHdl ) );
    CAIRN_CALL( bcmlt_entry_field_add( entryHdl, "SVP", 0x1 ) );
    // The entry is there already when an agent restarts on a programmed chip, so a failure is tolerated.
    int rc;
    CAIRN_CALL_UNCHECKED( rc, bcmlt_entry_commit( entryHdl, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ) );
    if ( rc < 0 )
        CAIRN_LINE( 4, cairnRecipe_.pretty << " svp entry insertion errored out rc: " << rc );
    CAIRN_CALL( bcmlt_entry_free( entryHdl ) );
}

void setVxlanUdpSourcePortSel( uint32_t unit, uint32_t ) noexcept {
    CAIRN_RECIPE( "void Cairn::setVxlanUdpSourcePortSel(uint32_t, uint32_t)" );
    uint32_t tnlL2VxlanControlEntry;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "TNL_L2_VXLAN_CONTROL", &tnlL2VxlanControlEntry ) );
    CAIRN_CALL( bcmlt_entry_field_symbol_add( tnlL2VxlanControlEntry, "SRC_L4_PORT_SELECT", "HASH_ENTROPY" ) );
    CAIRN_CALL( bcmlt_entry_commit( tnlL2VxlanControlEntry, BCMLT_OPCODE_UPDATE, BCMLT_PRIORITY_NORMAL ) );
    CAIRN_CALL( bcmlt_entry_free( tnlL2VxlanControlEntry ) );
}

void setVxlanDecapAdaptLookup( uint32_t unit, uint32_t port, bool enable ) noexcept {
    CAIRN_RECIPE( "void Cairn::setVxlanDecapAdaptLookup(uint32_t, uint32_t, bool)" );
    CAIRN_LINE( 2, "setVxlanDecapAdaptLookup" << " port " << port << " enable " << enable );
    uint32_t ent_hdl = BCMLT_INVALID_HDL;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "EGR_VLAN_CONTROL_1r", &ent_hdl ) );
    CAIRN_ASSERT( ent_hdl != BCMLT_INVALID_HDL );
    CAIRN_CALL( bcmlt_entry_field_add( ent_hdl, "BCMLT_PT_PORT", port ) );
    // The GET must see the hardware, or the SET would write back what a stale cache held.
    CAIRN_CALL( bcmlt_entry_attrib_set( ent_hdl, BCMLT_ENT_ATTR_GET_FROM_HW ) );
    CAIRN_CALL( bcmlt_pt_entry_commit( ent_hdl, BCMLT_PT_OPCODE_GET, BCMLT_PRIORITY_NORMAL ) );
    CAIRN_CALL( bcmlt_entry_field_add( ent_hdl, "VXLAN_DECAP_ADAPT_LOOKUP_ENABLE", enable ? 1 : 0 ) );
    CAIRN_CALL( bcmlt_pt_entry_commit( ent_hdl, BCMLT_PT_OPCODE_SET, BCMLT_PRIORITY_NORMAL ) );
    CAIRN_CALL( bcmlt_entry_free( ent_hdl ) );
}

bool getVxlanDecapAdaptLookup( uint32_t unit, uint32_t port ) noexcept {
    CAIRN_RECIPE( "bool Cairn::getVxlanDecapAdaptLookup(uint32_t, uint32_t)" );
    uint32_t ent_hdl = BCMLT_INVALID_HDL;
    uint64_t val = 0;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "EGR_VLAN_CONTROL_1r", &ent_hdl ) );
    CAIRN_ASSERT( ent_hdl != BCMLT_INVALID_HDL );
    CAIRN_CALL( bcmlt_entry_field_add( ent_hdl, "BCMLT_PT_PORT", port ) );
    CAIRN_CALL( bcmlt_pt_entry_commit( ent_hdl, BCMLT_PT_OPCODE_GET, BCMLT_PRIORITY_NORMAL ) );
    CAIRN_CALL( bcmlt_entry_field_get( ent_hdl, "VXLAN_DECAP_ADAPT_LOOKUP_ENABLE", &val ) );
    CAIRN_LINE( 2, "getVxlanDecapAdaptLookup" << " port " << port << " enable " << val );
    CAIRN_CALL( bcmlt_entry_free( ent_hdl ) );
    return val != 0;
}

// --- Tunnel ECN maps
//
// These two recipes keep the activity lock.

void setEgrTunnelEcnEncap( uint32_t unit, uint32_t index, uint32_t outerEcn ) noexcept {
    CAIRN_RECIPE( "void Cairn::setEgrTunnelEcnEncap(uint32_t, uint32_t, uint32_t)" );
    uint32_t egrTunnelEcnEncapEntry;
    CAIRN_CALL_LOCK_KEPT( bcmlt_entry_allocate( unit, "EGR_TUNNEL_ECN_ENCAPm", &egrTunnelEcnEncapEntry ) );
    CAIRN_CALL_LOCK_KEPT( bcmlt_entry_field_add( egrTunnelEcnEncapEntry, "BCMLT_PT_INDEX", index ) );
    CAIRN_CALL_LOCK_KEPT( bcmlt_entry_field_add( egrTunnelEcnEncapEntry, "OUTER_ECN", outerEcn ) );
    CAIRN_CALL_LOCK_KEPT( bcmlt_pt_entry_commit( egrTunnelEcnEncapEntry, BCMLT_PT_OPCODE_MODIFY, BCMLT_PRIORITY_NORMAL ) );
    CAIRN_CALL_LOCK_KEPT( bcmlt_entry_free( egrTunnelEcnEncapEntry ) );
}

void setIngTunnelEcnDecap( uint32_t unit, uint32_t index, uint32_t innerEcn,
                           bool changeEcn ) noexcept {
    CAIRN_RECIPE( "void Cairn::setIngTunnelEcnDecap(uint32_t, uint32_t, uint32_t, bool)" );
    uint32_t ingTunnelEcnDecapEntry;
    CAIRN_CALL_LOCK_KEPT( bcmlt_entry_allocate( unit, "ING_TUNNEL_ECN_DECAPm", &ingTunnelEcnDecapEntry ) );
    CAIRN_CALL_LOCK_KEPT( bcmlt_entry_field_add( ingTunnelEcnDecapEntry, "BCMLT_PT_INDEX", index ) );
    CAIRN_CALL_LOCK_KEPT( bcmlt_entry_field_add( ingTunnelEcnDecapEntry, "INNER_ECN", innerEcn ) );
    CAIRN_CALL_LOCK_KEPT( bcmlt_entry_field_add( ingTunnelEcnDecapEntry, "CHANGE_INNER_ECN", changeEcn ) );
    CAIRN_CALL_LOCK_KEPT( bcmlt_pt_entry_commit( ingTunnelEcnDecapEntry, BCMLT_PT_OPCODE_MODIFY, BCMLT_PRIORITY_NORMAL ) );
    CAIRN_CALL_LOCK_KEPT( bcmlt_entry_free( ingTunnelEcnDecapEntry ) );
}

// --- Opaque tags

void setOpaqueTagIngress( uint32_t unit, uint8_t tagType ) noexcept {
    CAIRN_RECIPE( "void Cairn::setOpaqueTagIngress(uint32_t, uint8_t)" );
    uint32_t ent_hdl = BCMLT_INVALID_HDL;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "OPAQUE_TAG_CONFIGr", &ent_hdl ) );
    CAIRN_ASSERT( ent_hdl != BCMLT_INVALID_HDL );
    CAIRN_CALL( bcmlt_entry_field_add( ent_hdl, "TAG_SIZE", 1 ) );
    if ( tagType != 0 )
        CAIRN_CALL( bcmlt_entry_field_add( ent_hdl, "OPAQUE_TAG_TYPE", tagType ) );
    CAIRN_CALL( bcmlt_entry_field_add( ent_hdl, "VALID", 1 ) );
    CAIRN_CALL( bcmlt_entry_field_add( ent_hdl, "ETHERTYPE", 0x8100 ) );
    CAIRN_CALL( bcmlt_pt_entry_commit( ent_hdl, BCMLT_PT_OPCODE_SET, BCMLT_PRIORITY_NORMAL ) );
    CAIRN_CALL( bcmlt_entry_free( ent_hdl ) );
}

uint16_t getOpaqueTagIngress( uint32_t unit, uint8_t tagType ) noexcept {
    CAIRN_RECIPE( "uint16_t Cairn::getOpaqueTagIngress(uint32_t, uint8_t)" );
    uint32_t ent_hdl = BCMLT_INVALID_HDL;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "OPAQUE_TAG_CONFIGr", &ent_hdl ) );
    CAIRN_ASSERT( ent_hdl != BCMLT_INVALID_HDL );
    CAIRN_CALL( bcmlt_pt_entry_commit( ent_hdl, BCMLT_PT_OPCODE_GET, BCMLT_PRIORITY_NORMAL ) );
    uint64_t val = 0;
    CAIRN_CALL( bcmlt_entry_field_get( ent_hdl, "VALID", &val ) );
    CAIRN_ASSERT( val == 1 );
    CAIRN_CALL( bcmlt_entry_field_get( ent_hdl, "TAG_SIZE", &val ) );
    CAIRN_ASSERT( val == 1 );
    CAIRN_CALL( bcmlt_entry_field_get( ent_hdl, "OPAQUE_TAG_TYPE", &val ) );
    CAIRN_ASSERT( val == tagType );
    CAIRN_CALL( bcmlt_entry_field_get( ent_hdl, "ETHERTYPE", &val ) );
    const uint16_t etherType = static_cast<uint16_t>( val );
    CAIRN_CALL( bcmlt_entry_free( ent_hdl ) );
    return etherType;
}

void setOpaqueTagEgress( uint32_t unit ) noexcept {
    CAIRN_RECIPE( "void Cairn::setOpaqueTagEgress(uint32_t)" );
    uint32_t ent_hdl = BCMLT_INVALID_HDL;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "EGR_EPARS_OPAQUE_TAG_CONFIGr", &ent_hdl ) );
    CAIRN_ASSERT( ent_hdl != BCMLT_INVALID_HDL );
    CAIRN_CALL( bcmlt_entry_field_add( ent_hdl, "TAG_SIZE", 1 ) );
    CAIRN_CALL( bcmlt_entry_field_add( ent_hdl, "VALID", 1 ) );
    CAIRN_CALL( bcmlt_entry_field_add( ent_hdl, "ETHERTYPE", 0x8100 ) );
    CAIRN_CALL( bcmlt_pt_entry_commit( ent_hdl, BCMLT_PT_OPCODE_SET, BCMLT_PRIORITY_NORMAL ) );
    CAIRN_CALL( bcmlt_entry_free( ent_hdl ) );
}

uint16_t getOpaqueTagEgress( uint32_t unit ) noexcept {
    CAIRN_RECIPE( "uint16_t Cairn::getOpaqueTagEgress(uint32_t)" );
    uint32_t ent_hdl = BCMLT_INVALID_HDL;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "EGR_EPARS_OPAQUE_TAG_CONFIGr", &ent_hdl ) );
    CAIRN_ASSERT( ent_hdl != BCMLT_INVALID_HDL );
    CAIRN_CALL( bcmlt_pt_entry_commit( ent_hdl, BCMLT_PT_OPCODE_GET, BCMLT_PRIORITY_NORMAL ) );
    uint64_t val = 0;
    CAIRN_CALL( bcmlt_entry_field_get( ent_hdl, "VALID", &val ) );
    CAIRN_ASSERT( val == 1 );
    CAIRN_CALL( bcmlt_entry_field_get( ent_hdl, "TAG_SIZE", &val ) );
    CAIRN_ASSERT( val == 1 );
    CAIRN_CALL( bcmlt_entry_field_get( ent_hdl, "ETHERTYPE", &val ) );
    const uint16_t etherType = static_cast<uint16_t>( val );
    CAIRN_CALL( bcmlt_entry_free( ent_hdl ) );
    return etherType;
}

void setOpaqueTagEgressEfp( uint32_t unit ) noexcept {
    CAIRN_RECIPE( "void Cairn::setOpaqueTagEgressEfp(uint32_t)" );
    uint32_t ent_hdl = BCMLT_INVALID_HDL;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "EGR_EFPPARS_OPAQUE_TAG_CONFIGr", &ent_hdl ) );
    CAIRN_ASSERT( ent_hdl != BCMLT_INVALID_HDL );
    CAIRN_CALL( bcmlt_entry_field_add( ent_hdl, "TAG_SIZE", 1 ) );
    CAIRN_CALL( bcmlt_entry_field_add( ent_hdl, "VALID", 1 ) );
    CAIRN_CALL( bcmlt_entry_field_add( ent_hdl, "ETHERTYPE", 0x8100 ) );
    CAIRN_CALL( bcmlt_pt_entry_commit( ent_hdl, BCMLT_PT_OPCODE_SET, BCMLT_PRIORITY_NORMAL ) );
    CAIRN_CALL( bcmlt_entry_free( ent_hdl ) );
}

uint16_t getOpaqueTagEgressEfp( uint32_t unit ) noexcept {
    CAIRN_RECIPE( "uint16_t Cairn::getOpaqueTagEgressEfp(uint32_t)" );
    uint32_t ent_hdl = BCMLT_INVALID_HDL;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "EGR_EFPPARS_OPAQUE_TAG_CONFIGr", &ent_hdl ) );
    CAIRN_ASSERT( ent_hdl != BCMLT_INVALID_HDL );
    CAIRN_CALL( bcmlt_pt_entry_commit( ent_hdl, BCMLT_PT_OPCODE_GET, BCMLT_PRIORITY_NORMAL ) );
    uint64_t val = 0;
    CAIRN_CALL( bcmlt_entry_field_get( ent_hdl, "VALID", &val ) );
    CAIRN_ASSERT( val == 1 );
    CAIRN_CALL( bcmlt_entry_field_get( ent_hdl, "TAG_SIZE", &val ) );
    CAIRN_ASSERT( val == 1 );
    CAIRN_CALL( bcmlt_entry_field_get( ent_hdl, "ETHERTYPE", &val ) );
    const uint16_t etherType = static_cast<uint16_t>( val );
    CAIRN_CALL( bcmlt_entry_free( ent_hdl ) );
    return etherType;
}

void setInnerOpaqueTagIngress( uint32_t unit ) noexcept {
    CAIRN_RECIPE( "void Cairn::setInnerOpaqueTagIngress(uint32_t)" );
    uint32_t ent_hdl = BCMLT_INVALID_HDL;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "INNER_L2_OPAQUE_TAG_CONFIGr", &ent_hdl ) );
    CAIRN_ASSERT( ent_hdl != BCMLT_INVALID_HDL );
    CAIRN_CALL( bcmlt_entry_field_add( ent_hdl, "VALID", 1 ) );
    CAIRN_CALL( bcmlt_entry_field_add( ent_hdl, "ETHERTYPE", 0x8100 ) );
    CAIRN_CALL( bcmlt_pt_entry_commit( ent_hdl, BCMLT_PT_OPCODE_SET, BCMLT_PRIORITY_NORMAL ) );
    CAIRN_CALL( bcmlt_entry_free( ent_hdl ) );
}

uint16_t getInnerOpaqueTagIngress( uint32_t unit ) noexcept {
    CAIRN_RECIPE( "uint16_t Cairn::getInnerOpaqueTagIngress(uint32_t)" );
    uint32_t ent_hdl = BCMLT_INVALID_HDL;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "INNER_L2_OPAQUE_TAG_CONFIGr", &ent_hdl ) );
    CAIRN_ASSERT( ent_hdl != BCMLT_INVALID_HDL );
    CAIRN_CALL( bcmlt_pt_entry_commit( ent_hdl, BCMLT_PT_OPCODE_GET, BCMLT_PRIORITY_NORMAL ) );
    uint64_t val = 0;
    CAIRN_CALL( bcmlt_entry_field_get( ent_hdl, "VALID", &val ) );
    CAIRN_ASSERT( val == 1 );
    CAIRN_CALL( bcmlt_entry_field_get( ent_hdl, "ETHERTYPE", &val ) );
    const uint16_t etherType = static_cast<uint16_t>( val );
    CAIRN_CALL( bcmlt_entry_free( ent_hdl ) );
    return etherType;
}

void setInnerOpaqueTagEgress( uint32_t unit ) noexcept {
    CAIRN_RECIPE( "void Cairn::setInnerOpaqueTagEgress(uint32_t)" );
    uint32_t ent_hdl = BCMLT_INVALID_HDL;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "EGR_EPARS_INNER_L2_OPAQUE_TAG_CONFIGr", &ent_hdl ) );
    CAIRN_ASSERT( ent_hdl != BCMLT_INVALID_HDL );
    CAIRN_CALL( bcmlt_entry_field_add( ent_hdl, "VALID", 1 ) );
    CAIRN_CALL( bcmlt_entry_field_add( ent_hdl, "ETHERTYPE", 0x8100 ) );
    CAIRN_CALL( bcmlt_pt_entry_commit( ent_hdl, BCMLT_PT_OPCODE_SET, BCMLT_PRIORITY_NORMAL ) );
    CAIRN_CALL( bcmlt_entry_free( ent_hdl ) );
}

uint16_t getInnerOpaqueTagEgress( uint32_t unit ) noexcept {
    CAIRN_RECIPE( "uint16_t Cairn::getInnerOpaqueTagEgress(uint32_t)" );
    uint32_t ent_hdl = BCMLT_INVALID_HDL;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "EGR_EPARS_INNER_L2_OPAQUE_TAG_CONFIGr", &ent_hdl ) );
    CAIRN_ASSERT( ent_hdl != BCMLT_INVALID_HDL );
    CAIRN_CALL( bcmlt_pt_entry_commit( ent_hdl, BCMLT_PT_OPCODE_GET, BCMLT_PRIORITY_NORMAL ) );
    uint64_t val = 0;
    CAIRN_CALL( bcmlt_entry_field_get( ent_hdl, "VALID", &val ) );
    CAIRN_ASSERT( val == 1 );
    CAIRN_CALL( bcmlt_entry_field_get( ent_hdl, "ETHERTYPE", &val ) );
    const uint16_t etherType = static_cast<uint16_t>( val );
    CAIRN_CALL( bcmlt_entry_free( ent_hdl ) );
    return etherType;
}

void setInnerOpaqueTagEgressEpmod( uint32_t unit ) noexcept {
    CAIRN_RECIPE( "void Cairn::setInnerOpaqueTagEgressEpmod(uint32_t)" );
    uint32_t ent_hdl = BCMLT_INVALID_HDL;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "EGR_EPMOD_L2_OPAQUE_TAG_CONFIGr", &ent_hdl ) );
    CAIRN_ASSERT( ent_hdl != BCMLT_INVALID_HDL );
    CAIRN_CALL( bcmlt_entry_field_add( ent_hdl, "ETHERTYPE", 0x8100 ) );
    CAIRN_CALL( bcmlt_pt_entry_commit( ent_hdl, BCMLT_PT_OPCODE_SET, BCMLT_PRIORITY_NORMAL ) );
    CAIRN_CALL( bcmlt_entry_free( ent_hdl ) );
}

uint16_t getInnerOpaqueTagEgressEpmod( uint32_t unit ) noexcept {
    CAIRN_RECIPE( "uint16_t Cairn::getInnerOpaqueTagEgressEpmod(uint32_t)" );
    uint32_t ent_hdl = BCMLT_INVALID_HDL;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "EGR_EPMOD_L2_OPAQUE_TAG_CONFIGr", &ent_hdl ) );
    CAIRN_ASSERT( ent_hdl != BCMLT_INVALID_HDL );
    CAIRN_CALL( bcmlt_pt_entry_commit( ent_hdl, BCMLT_PT_OPCODE_GET, BCMLT_PRIORITY_NORMAL ) );
    uint64_t val = 0;
    CAIRN_CALL( bcmlt_entry_field_get( ent_hdl, "ETHERTYPE", &val ) );
    const uint16_t etherType = static_cast<uint16_t>( val );
    CAIRN_CALL( bcmlt_entry_free( ent_hdl ) );
    return etherType;
}

// --- Forwarding strength profiles
//
// The constants' names are part of the printed call texts. Those of the multicast profiles are named like
// the table whose fields they are written to.

namespace {

constexpr uint64_t DEFIP_128_FIELD_STRENGTH = 4;
constexpr uint64_t L3_TNL_OVERLAY_EGR_L3_OIF_1_STRENGTH_IDX = 18;
constexpr uint64_t L3_TNL_OVERLAY_EGR_L3_OIF_1_TUNNEL_STR = 5;
constexpr uint64_t L3_TNL_OVERLAY_OBJ_SEL_1_STR = 2;
constexpr uint64_t L3_TNL_OVERLAY_NEXT_HOP_1_STRENGTH_IDX = 30;
constexpr uint64_t L3_TNL_OVERLAY_NEXT_HOP_DEST_STRENGTH = 6;
constexpr uint64_t L3_TNL_OVERLAY_EGR_IP_TNL_STRENGTH_IDX = 17;
constexpr uint64_t L3_TNL_OVERLAY_IP_DIP_STRENGTH = 6;
constexpr uint64_t L3_TNL_OVERLAY_SEQ_NUM_STRENGTH = 5;
constexpr uint64_t L3_TNL_UNDERLAY_ING_NH_STRENGTH_IDX = 9;
constexpr uint64_t L3_TNL_UNDERLAY_DST_VALID_STRENGTH = 7;
constexpr uint64_t L3_TNL_UNDERLAY_DST_STRENGTH = 7;
constexpr uint64_t L3_IPV6_MULTICAST_2_STRENGTH_PROFILE = 6;
constexpr uint64_t L3_IPV6_MULTICAST_1_STRENGTH_PROFILE = 5;

/// Blocked on chips that run the KOVA profile.
constexpr auto mcastV6SkipStage = CairnPlatform::stage( 55 );
/// Past it, the multicast profiles have three more fields.
constexpr auto mcastV6ExtraFieldsStage = CairnPlatform::stage( 108 );

/// The chip of a module. Not inline: a chip shares its profile, and its copies are hundreds of bytes of code.
[[gnu::noinline]] CairnCentral::ChipInfo chipOf( const CairnCommonSmData & sm, uint16_t modId ) {
    return CairnPlatform::chip( sm.cairnModId( modId ) );
}

} // namespace

void setDefip128StrengthProfile( uint32_t unit ) noexcept {
    CAIRN_RECIPE( "void Cairn::setDefip128StrengthProfile(uint32_t)" );
    uint32_t defip128StrengthEntry = BCMLT_INVALID_HDL;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "L3_IPV6_UNICAST_DEFIP_128_STRENGTH_PROFILE", &defip128StrengthEntry ) );
    CAIRN_MESSAGE( "ii", ( " unit: ", "%s", " entry handle: ", "%s" ), unit, defip128StrengthEntry );
    CAIRN_CALL( bcmlt_entry_field_add( defip128StrengthEntry, "NHOP_2_OR_ECMP_GROUP_INDEX_1_STRENGTH", DEFIP_128_FIELD_STRENGTH ) );
    CAIRN_CALL( bcmlt_entry_field_add( defip128StrengthEntry, "ECMP_AND_PROT_SWT_SFC_PROFILE_INDEX_STRENGTH", DEFIP_128_FIELD_STRENGTH ) );
    CAIRN_CALL( bcmlt_entry_field_add( defip128StrengthEntry, "L3_DST_MISC_CTRL_1_STRENGTH", DEFIP_128_FIELD_STRENGTH ) );
    CAIRN_CALL( bcmlt_entry_field_add( defip128StrengthEntry, "L3_DST_MISC_CTRL_0_STRENGTH", DEFIP_128_FIELD_STRENGTH ) );
    CAIRN_CALL( bcmlt_entry_field_add( defip128StrengthEntry, "L3_DST_CLASS_ID_STRENGTH", DEFIP_128_FIELD_STRENGTH ) );
    CAIRN_CALL( bcmlt_entry_field_add( defip128StrengthEntry, "L3_DST_DESTINATION_TYPE_STRENGTH", DEFIP_128_FIELD_STRENGTH ) );
    CAIRN_CALL( bcmlt_entry_field_add( defip128StrengthEntry, "L3_DST_DESTINATION_STRENGTH", DEFIP_128_FIELD_STRENGTH ) );
    CAIRN_CALL( bcmlt_entry_commit( defip128StrengthEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ) );
    CAIRN_CALL( bcmlt_entry_free( defip128StrengthEntry ) );
}

void setL3TnlOverlayEgrL3Oif1StrengthProfile( uint32_t unit ) noexcept {
    CAIRN_RECIPE( "void Cairn::setL3TnlOverlayEgrL3Oif1StrengthProfile(uint32_t)" );
    uint32_t egrL3Oif1StrengthEntry = BCMLT_INVALID_HDL;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "EGR_L3_OIF_1_STR_PROFILE", &egrL3Oif1StrengthEntry ) );
    CAIRN_MESSAGE( "ii", ( " unit: ", "%s", " entry handle: ", "%s" ), unit, egrL3Oif1StrengthEntry );
    CAIRN_CALL( bcmlt_entry_field_add( egrL3Oif1StrengthEntry, "EGR_L3_OIF_1_STR_PROFILE_INDEX", L3_TNL_OVERLAY_EGR_L3_OIF_1_STRENGTH_IDX ) );
    CAIRN_CALL( bcmlt_entry_field_add( egrL3Oif1StrengthEntry, "TUNNEL_IDX_STR", L3_TNL_OVERLAY_EGR_L3_OIF_1_TUNNEL_STR ) );
    CAIRN_CALL( bcmlt_entry_field_add( egrL3Oif1StrengthEntry, "OBJ_TABLE_SEL_1", L3_TNL_OVERLAY_OBJ_SEL_1_STR ) );
    CAIRN_CALL( bcmlt_entry_commit( egrL3Oif1StrengthEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ) );
    CAIRN_CALL( bcmlt_entry_free( egrL3Oif1StrengthEntry ) );
}

void setL3TnlOverlayNhStrengthProfile( uint32_t unit ) noexcept {
    CAIRN_RECIPE( "void Cairn::setL3TnlOverlayNhStrengthProfile(uint32_t)" );
    uint32_t nhStrengthEntry = BCMLT_INVALID_HDL;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "ING_L3_NEXT_HOP_1_STRENGTH_PROFILE", &nhStrengthEntry ) );
    CAIRN_MESSAGE( "ii", ( " unit: ", "%s", " entry handle: ", "%s" ), unit, nhStrengthEntry );
    CAIRN_CALL( bcmlt_entry_field_add( nhStrengthEntry, "ING_L3_NEXT_HOP_1_STRENGTH_PROFILE_INDEX", L3_TNL_OVERLAY_NEXT_HOP_1_STRENGTH_IDX ) );
    CAIRN_CALL( bcmlt_entry_field_add( nhStrengthEntry, "L2MC_L3MC_L2_OIF_SYS_DST_VALID_STRENGTH", L3_TNL_OVERLAY_NEXT_HOP_DEST_STRENGTH ) );
    CAIRN_CALL( bcmlt_entry_commit( nhStrengthEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ) );
    CAIRN_CALL( bcmlt_entry_free( nhStrengthEntry ) );
}

void setL3TnlOverlayEgrIpTnlStrengthProfile( uint32_t unit ) noexcept {
    CAIRN_RECIPE( "void Cairn::setL3TnlOverlayEgrIpTnlStrengthProfile(uint32_t)" );
    uint32_t egrIpTnlStrengthEntry = BCMLT_INVALID_HDL;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "EGR_L3_TNL_STR_PROFILE", &egrIpTnlStrengthEntry ) );
    CAIRN_MESSAGE( "ii", ( " unit: ", "%s", " entry handle: ", "%s" ), unit, egrIpTnlStrengthEntry );
    CAIRN_CALL( bcmlt_entry_field_add( egrIpTnlStrengthEntry, "EGR_L3_TNL_STR_PROFILE_INDEX", L3_TNL_OVERLAY_EGR_IP_TNL_STRENGTH_IDX ) );
    CAIRN_CALL( bcmlt_entry_field_add( egrIpTnlStrengthEntry, "IP_DIP_STR", L3_TNL_OVERLAY_IP_DIP_STRENGTH ) );
    CAIRN_CALL( bcmlt_entry_field_add( egrIpTnlStrengthEntry, "SEQ_NUM_STR", L3_TNL_OVERLAY_SEQ_NUM_STRENGTH ) );
    CAIRN_CALL( bcmlt_entry_commit( egrIpTnlStrengthEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ) );
    CAIRN_CALL( bcmlt_entry_free( egrIpTnlStrengthEntry ) );
}

void setL3TnlUnderlayIngNhStrengthProfile( uint32_t unit ) noexcept {
    CAIRN_RECIPE( "void Cairn::setL3TnlUnderlayIngNhStrengthProfile(uint32_t)" );
    uint32_t ingNh2StrengthEntry = BCMLT_INVALID_HDL;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "ING_L3_NEXT_HOP_2_STRENGTH_PROFILE", &ingNh2StrengthEntry ) );
    CAIRN_MESSAGE( "ii", ( " unit: ", "%s", " entry handle: ", "%s" ), unit, ingNh2StrengthEntry );
    CAIRN_CALL( bcmlt_entry_field_add( ingNh2StrengthEntry, "ING_L3_NEXT_HOP_2_STRENGTH_PROFILE_INDEX", L3_TNL_UNDERLAY_ING_NH_STRENGTH_IDX ) );
    CAIRN_CALL( bcmlt_entry_field_add( ingNh2StrengthEntry, "L2MC_L3MC_L2_OIF_SYS_DST_VALID_STRENGTH", L3_TNL_UNDERLAY_DST_VALID_STRENGTH ) );
    CAIRN_CALL( bcmlt_entry_field_add( ingNh2StrengthEntry, "DESTINATION_STRENGTH", L3_TNL_UNDERLAY_DST_STRENGTH ) );
    CAIRN_CALL( bcmlt_entry_commit( ingNh2StrengthEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ) );
    CAIRN_CALL( bcmlt_entry_free( ingNh2StrengthEntry ) );
}

void setMcastV6StrengthProfile( Cairn::CairnCommonSmData::Ptr sm ) noexcept {
    CAIRN_RECIPE( "void Cairn::setMcastV6StrengthProfile(Cairn::CairnCommonSmData::Ptr)" );
    const uint16_t unit = CairnPlatform::firstKey( CairnPlatform::modules( *sm ) );
    const CairnCentral::ChipInfo chipInfo = chipOf( *sm, unit );
    if ( isBlocked( chipInfo, mcastV6SkipStage ) ) {
        CAIRN_LINE( 2, "setMcastV6StrengthProfile" << " unit: " << unit << " Skipping for KOVA profile" );
        return;
    }

    uint32_t v6Mcast2StrengthEntry = BCMLT_INVALID_HDL;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "L3_IPV6_MULTICAST_2_STRENGTH_PROFILE", &v6Mcast2StrengthEntry ) );
    CAIRN_MESSAGE( "si", ( " unit: ", "%s", " entry handle: ", "%s" ), unit, v6Mcast2StrengthEntry );
    CAIRN_CALL( bcmlt_entry_field_add( v6Mcast2StrengthEntry, "RPA_ID_STRENGTH", L3_IPV6_MULTICAST_2_STRENGTH_PROFILE ) );
    if ( isUnblocked( chipInfo, mcastV6ExtraFieldsStage ) ) {
        CAIRN_CALL( bcmlt_entry_field_add( v6Mcast2StrengthEntry, "EXPECTED_L3_IIF_STRENGTH", L3_IPV6_MULTICAST_2_STRENGTH_PROFILE ) );
        CAIRN_CALL( bcmlt_entry_field_add( v6Mcast2StrengthEntry, "MTU_PROFILE_PTR_STRENGTH", L3_IPV6_MULTICAST_2_STRENGTH_PROFILE ) );
        CAIRN_CALL( bcmlt_entry_field_add( v6Mcast2StrengthEntry, "OPAQUE_OBJECT_STRENGTH", L3_IPV6_MULTICAST_2_STRENGTH_PROFILE ) );
    }
    CAIRN_CALL( bcmlt_entry_field_add( v6Mcast2StrengthEntry, "L3_DST_MISC_CTRL_1_STRENGTH", L3_IPV6_MULTICAST_2_STRENGTH_PROFILE ) );
    CAIRN_CALL( bcmlt_entry_field_add( v6Mcast2StrengthEntry, "L3_DST_MISC_CTRL_0_STRENGTH", L3_IPV6_MULTICAST_2_STRENGTH_PROFILE ) );
    CAIRN_CALL( bcmlt_entry_field_add( v6Mcast2StrengthEntry, "L3_DST_CLASS_ID_STRENGTH", L3_IPV6_MULTICAST_2_STRENGTH_PROFILE ) );
    CAIRN_CALL( bcmlt_entry_field_add( v6Mcast2StrengthEntry, "L3_DST_DESTINATION_TYPE_STRENGTH", L3_IPV6_MULTICAST_2_STRENGTH_PROFILE ) );
    CAIRN_CALL( bcmlt_entry_field_add( v6Mcast2StrengthEntry, "L3_DST_DESTINATION_STRENGTH", L3_IPV6_MULTICAST_2_STRENGTH_PROFILE ) );
    CAIRN_CALL( bcmlt_entry_commit( v6Mcast2StrengthEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ) );
    CAIRN_CALL( bcmlt_entry_free( v6Mcast2StrengthEntry ) );

    uint32_t v6Mcast1StrengthEntry = BCMLT_INVALID_HDL;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "L3_IPV6_MULTICAST_1_STRENGTH_PROFILE", &v6Mcast1StrengthEntry ) );
    CAIRN_MESSAGE( "si", ( " unit: ", "%s", " entry handle: ", "%s" ), unit, v6Mcast1StrengthEntry );
    CAIRN_CALL( bcmlt_entry_field_add( v6Mcast1StrengthEntry, "RPA_ID_STRENGTH", L3_IPV6_MULTICAST_1_STRENGTH_PROFILE ) );
    if ( isUnblocked( chipInfo, mcastV6ExtraFieldsStage ) ) {
        CAIRN_CALL( bcmlt_entry_field_add( v6Mcast1StrengthEntry, "EXPECTED_L3_IIF_STRENGTH", L3_IPV6_MULTICAST_1_STRENGTH_PROFILE ) );
        CAIRN_CALL( bcmlt_entry_field_add( v6Mcast1StrengthEntry, "MTU_PROFILE_PTR_STRENGTH", L3_IPV6_MULTICAST_1_STRENGTH_PROFILE ) );
        CAIRN_CALL( bcmlt_entry_field_add( v6Mcast1StrengthEntry, "OPAQUE_OBJECT_STRENGTH", L3_IPV6_MULTICAST_1_STRENGTH_PROFILE ) );
    }
    CAIRN_CALL( bcmlt_entry_field_add( v6Mcast1StrengthEntry, "L3_DST_MISC_CTRL_1_STRENGTH", L3_IPV6_MULTICAST_1_STRENGTH_PROFILE ) );
    CAIRN_CALL( bcmlt_entry_field_add( v6Mcast1StrengthEntry, "L3_DST_MISC_CTRL_0_STRENGTH", L3_IPV6_MULTICAST_1_STRENGTH_PROFILE ) );
    CAIRN_CALL( bcmlt_entry_field_add( v6Mcast1StrengthEntry, "L3_DST_CLASS_ID_STRENGTH", L3_IPV6_MULTICAST_1_STRENGTH_PROFILE ) );
    CAIRN_CALL( bcmlt_entry_field_add( v6Mcast1StrengthEntry, "L3_DST_DESTINATION_TYPE_STRENGTH", L3_IPV6_MULTICAST_1_STRENGTH_PROFILE ) );
    CAIRN_CALL( bcmlt_entry_field_add( v6Mcast1StrengthEntry, "L3_DST_DESTINATION_STRENGTH", L3_IPV6_MULTICAST_1_STRENGTH_PROFILE ) );
    CAIRN_CALL( bcmlt_entry_commit( v6Mcast1StrengthEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ) );
    CAIRN_CALL( bcmlt_entry_free( v6Mcast1StrengthEntry ) );
}

// --- Learn cache

void setLearnCacheEnabled( uint32_t unit, bool enable ) noexcept {
    CAIRN_RECIPE( "void Cairn::setLearnCacheEnabled(uint32_t, bool)" );
    const uint64_t val = enable ? 1 : 0;
    uint32_t learnCacheEntry;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "LEARN_CACHE_DATA_CONTROL", &learnCacheEntry ) );
    CAIRN_CALL( bcmlt_entry_field_symbol_add( learnCacheEntry, "LEARN_CACHE_DATA_INFO_ID", "LEARN_L2_VIEW" ) );
    int rc;
    CAIRN_CALL_UNCHECKED( rc, bcmlt_entry_commit( learnCacheEntry, BCMLT_OPCODE_LOOKUP, BCMLT_PRIORITY_NORMAL ) );
    CAIRN_CALL( bcmlt_entry_field_add( learnCacheEntry, "LEARN_CACHE", val ) );
    // Any failed lookup counts as an absent row; if it failed for another reason, the INSERT meets it.
    if ( rc >= 0 )
        CAIRN_CALL( bcmlt_entry_commit( learnCacheEntry, BCMLT_OPCODE_UPDATE, BCMLT_PRIORITY_NORMAL ) );
    else
        CAIRN_CALL( bcmlt_entry_commit( learnCacheEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ) );
    CAIRN_CALL( bcmlt_entry_free( learnCacheEntry ) );
}

void setLearnCacheDropEnabled( uint32_t unit, bool enable ) noexcept {
    CAIRN_RECIPE( "void Cairn::setLearnCacheDropEnabled(uint32_t, bool)" );
    const uint64_t val = enable ? 1 : 0;
    uint32_t learnCacheDropEntry;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "LEARN_CACHE_DROP_CONTROL", &learnCacheDropEntry ) );
    CAIRN_CALL( bcmlt_entry_field_symbol_add( learnCacheDropEntry, "EVENT_ID", "L2_DST_DISCARD" ) );
    int rc;
    CAIRN_CALL_UNCHECKED( rc, bcmlt_entry_commit( learnCacheDropEntry, BCMLT_OPCODE_LOOKUP, BCMLT_PRIORITY_NORMAL ) );
    CAIRN_CALL( bcmlt_entry_field_add( learnCacheDropEntry, "LEARN_CACHE", val ) );
    // Any failed lookup counts as an absent row; if it failed for another reason, the INSERT meets it.
    if ( rc >= 0 )
        CAIRN_CALL( bcmlt_entry_commit( learnCacheDropEntry, BCMLT_OPCODE_UPDATE, BCMLT_PRIORITY_NORMAL ) );
    else
        CAIRN_CALL( bcmlt_entry_commit( learnCacheDropEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ) );
    CAIRN_CALL( bcmlt_entry_free( learnCacheDropEntry ) );
}

// --- Monitor trace and drop events

void programMonTraceCpu( uint32_t unit, const char * errorType ) noexcept {
    CAIRN_RECIPE( "void Cairn::programMonTraceCpu(uint32_t, const char*)" );
    CAIRN_MESSAGE( "ip", ( " unit: ", "%s", " errorType: ", "%s" ), unit, errorType );
    uint32_t packetTraceEntry;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "MON_ING_TRACE_EVENT", &packetTraceEntry ) );
    CAIRN_CALL( bcmlt_entry_field_symbol_add( packetTraceEntry, "MON_ING_TRACE_EVENT_ID", errorType ) );
    CAIRN_CALL( bcmlt_entry_field_add( packetTraceEntry, "CPU", 1 ) );
    CAIRN_CALL( bcmlt_entry_commit( packetTraceEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ) );
    CAIRN_CALL( bcmlt_entry_free( packetTraceEntry ) );
}

void programPacketTraceForL3DstLookupMiss( uint32_t unit ) noexcept {
    programMonTraceCpu( unit, "L3_DST_LOOKUP_MISS" );
}

void programPacketTraceForL3HdrError( uint32_t unit ) noexcept {
    programMonTraceCpu( unit, "L3_HDR_ERROR" );
}

void programPacketTraceForTtlError( uint32_t unit ) noexcept {
    programMonTraceCpu( unit, "L3_TTL_ERROR" );
}

void programPacketDropForMtuError( uint32_t unit ) noexcept {
    CAIRN_RECIPE( "void Cairn::programPacketDropForMtuError(uint32_t)" );
    CAIRN_MESSAGE( "i", ( " unit: ", "%s" ), unit );
    uint32_t packetDropEntry;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "MON_ING_DROP_EVENT", &packetDropEntry ) );
    // A lookup without its key: the SDK must refuse it before the entry may be written.
    int rc;
    CAIRN_CALL_UNCHECKED( rc, bcmlt_entry_commit( packetDropEntry, BCMLT_OPCODE_LOOKUP, BCMLT_PRIORITY_NORMAL ) );
    CAIRN_ASSERT( rc < 0 );
    CAIRN_CALL( bcmlt_entry_field_symbol_add( packetDropEntry, "MON_ING_DROP_EVENT_ID", "L3_MTU_CHECK_FAILED" ) );
    CAIRN_CALL( bcmlt_entry_field_add( packetDropEntry, "CPU", 1 ) );
    CAIRN_CALL( bcmlt_entry_field_add( packetDropEntry, "LOOPBACK", 0 ) );
    CAIRN_CALL( bcmlt_entry_commit( packetDropEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ) );
    CAIRN_CALL( bcmlt_entry_free( packetDropEntry ) );
}

// --- Load-balance random seeds
//
// The first instance that a chip lacks ends the recipe: chips have their instances numbered from 0 up.

void setLoadBalanceRandSeedCtrl( uint32_t unit, uint32_t seed ) noexcept {
    CAIRN_RECIPE( "void Cairn::setLoadBalanceRandSeedCtrl(uint32_t, uint32_t)" );
    CAIRN_MESSAGE( "ii", ( " unit: ", "%s", " seed: ", "%s" ), unit, seed );
    for ( const int i : { 0, 1, 2 } ) {
        const auto table = Kiln::_fmt( "IPOST_LAG_RAND_NUM_CTRL_%dr", i );
        uint32_t entry;
        int rc;
        CAIRN_CALL_UNCHECKED( rc, bcmlt_entry_allocate( unit, table.charPtr(), &entry ) );
        if ( rc != 0 ) {
            CAIRN_MESSAGE( "i", ( " skipping register ", "%s" ), i );
            return;
        }
        CAIRN_CALL_UNCHECKED( rc, bcmlt_entry_field_add( entry, "SEED", seed ) );
        CAIRN_CALL( rc );
        CAIRN_CALL( bcmlt_pt_entry_commit( entry, BCMLT_PT_OPCODE_MODIFY, BCMLT_PRIORITY_NORMAL ) );
        CAIRN_CALL( bcmlt_entry_free( entry ) );
    }
}

void setLoadBalanceRandSeedMem( uint32_t unit, uint32_t seed ) noexcept {
    CAIRN_RECIPE( "void Cairn::setLoadBalanceRandSeedMem(uint32_t, uint32_t)" );
    CAIRN_MESSAGE( "ii", ( " unit: ", "%s", " seed: ", "%s" ), unit, seed );
    const uint64_t val[1] = { seed };
    for ( const int i : { 0, 1, 2 } ) {
        const auto table = Kiln::_fmt( "IPOST_LAG_RAND_NUM_SEED_%dm", i );
        uint32_t entry;
        int rc;
        CAIRN_CALL_UNCHECKED( rc, bcmlt_entry_allocate( unit, table.charPtr(), &entry ) );
        if ( rc != 0 ) {
            CAIRN_MESSAGE( "i", ( " skipping register ", "%s" ), i );
            return;
        }
        CAIRN_CALL_UNCHECKED( rc, bcmlt_entry_field_array_add( entry, "SEED", 0, val, 1 ) );
        CAIRN_CALL( rc );
        CAIRN_CALL( bcmlt_pt_entry_commit( entry, BCMLT_PT_OPCODE_MODIFY, BCMLT_PRIORITY_NORMAL ) );
        CAIRN_CALL( bcmlt_entry_free( entry ) );
    }
}

// --- Register and memory controls

void mmuSpecialConfigInitPipe( uint32_t unit, uint32_t data_pipe, bool disableThdoInfo ) noexcept {
    CAIRN_RECIPE( "void Cairn::mmuSpecialConfigInitPipe(uint32_t, uint32_t, bool)" );
    uint32_t entryHdl;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "MMU_QSCH_SPECIAL_CONFIGr", &entryHdl ) );
    CAIRN_CALL( bcmlt_entry_field_add( entryHdl, "DISABLE_CMIC_COSMASK", 1 ) );
    if ( disableThdoInfo )
        CAIRN_CALL( bcmlt_entry_field_add( entryHdl, "ENABLE_THDO_INFO", 0 ) );
    CAIRN_CALL( bcmlt_entry_field_add( entryHdl, "BCMLT_PT_INDEX", 0x0 ) );
    CAIRN_CALL( bcmlt_entry_field_add( entryHdl, "BCMLT_PT_INSTANCE", data_pipe ) );
    CAIRN_CALL( bcmlt_pt_entry_commit( entryHdl, BCMLT_PT_OPCODE_MODIFY, BCMLT_PRIORITY_NORMAL ) );
    CAIRN_CALL( bcmlt_entry_free( entryHdl ) );
}

void resetIngEnEfilterBitMap( uint32_t unit, uint32_t bitMapBits ) noexcept {
    CAIRN_RECIPE( "void Cairn::resetIngEnEfilterBitMap(uint32_t, uint32_t)" );
    const uint64_t memfld_64[64] = {};
    const uint32_t bitMapSize = ( bitMapBits + 63 ) >> 6;
    uint32_t IngEnEfilterBitmapEntry;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "ING_EN_EFILTER_BITMAPm", &IngEnEfilterBitmapEntry ) );
    CAIRN_CALL( bcmlt_entry_field_add( IngEnEfilterBitmapEntry, "BCMLT_PT_INDEX", 0x0 ) );
    CAIRN_CALL( bcmlt_entry_field_array_add( IngEnEfilterBitmapEntry, "BITMAP", 0, memfld_64, bitMapSize ) );
    CAIRN_CALL( bcmlt_pt_entry_commit( IngEnEfilterBitmapEntry, BCMLT_PT_OPCODE_MODIFY, BCMLT_PRIORITY_NORMAL ) );
    CAIRN_CALL( bcmlt_entry_free( IngEnEfilterBitmapEntry ) );
}

void setEmRobustHashDisable( uint32_t unit ) noexcept {
    CAIRN_RECIPE( "void Cairn::setEmRobustHashDisable(uint32_t)" );
    CAIRN_MESSAGE( "i", ( " unit: ", "%s" ), unit );
    const std::array<std::string, 5> hashControl = {
        "EFTA30_E2T_00_HASH_CONTROLm", "EFTA30_E2T_01_HASH_CONTROLm", "IFTA30_E2T_00_HASH_CONTROLm",
        "IFTA40_E2T_00_HASH_CONTROLm", "IFTA40_E2T_01_HASH_CONTROLm",
    };
    uint32_t entryHdl = BCMLT_INVALID_HDL;
    for ( size_t i = 0; i < hashControl.size(); ++i ) {
        entryHdl = BCMLT_INVALID_HDL;
        // Chips have any subset of these memories, so one that is missing does not end the recipe.
        int rc;
        CAIRN_CALL_UNCHECKED( rc, bcmlt_entry_allocate( unit, hashControl[ i ].c_str(), &entryHdl ) );
        if ( rc != 0 )
            continue;
        CAIRN_CALL( bcmlt_entry_field_add( entryHdl, "ROBUST_HASH_EN", 0 ) );
        CAIRN_CALL( bcmlt_pt_entry_commit( entryHdl, BCMLT_PT_OPCODE_MODIFY, BCMLT_PRIORITY_NORMAL ) );
        CAIRN_CALL( bcmlt_entry_free( entryHdl ) );
    }
}

void setFlexctrIngressCounterActionEnable( uint32_t unit ) noexcept {
    CAIRN_RECIPE( "void Cairn::setFlexctrIngressCounterActionEnable(uint32_t)" );
    CAIRN_MESSAGE( "i", ( " unit: ", "%s" ), unit );
    uint32_t ent_hdl = BCMLT_INVALID_HDL;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "FLEX_CTR_ING_COUNTER_ACTION_ENABLEr", &ent_hdl ) );
    CAIRN_ASSERT( ent_hdl != BCMLT_INVALID_HDL );
    CAIRN_CALL( bcmlt_entry_field_add( ent_hdl, "BITMAP", 0xfffffffe ) );
    CAIRN_CALL( bcmlt_pt_entry_commit( ent_hdl, BCMLT_PT_OPCODE_SET, BCMLT_PRIORITY_NORMAL ) );
    CAIRN_CALL( bcmlt_entry_free( ent_hdl ) );
}

void setFlexctrEgressCounterActionEnable( uint32_t unit ) noexcept {
    CAIRN_RECIPE( "void Cairn::setFlexctrEgressCounterActionEnable(uint32_t)" );
    CAIRN_MESSAGE( "i", ( " unit: ", "%s" ), unit );
    uint32_t ent_hdl = BCMLT_INVALID_HDL;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "FLEX_CTR_EGR_COUNTER_ACTION_ENABLEr", &ent_hdl ) );
    CAIRN_ASSERT( ent_hdl != BCMLT_INVALID_HDL );
    CAIRN_CALL( bcmlt_entry_field_add( ent_hdl, "BITMAP", 0xfffe ) );
    CAIRN_CALL( bcmlt_pt_entry_commit( ent_hdl, BCMLT_PT_OPCODE_SET, BCMLT_PRIORITY_NORMAL ) );
    CAIRN_CALL( bcmlt_entry_free( ent_hdl ) );
}

void enable1BitEccRpt( uint32_t unit, const char * mem, bool enable ) noexcept {
    CAIRN_RECIPE( "void Cairn::enable1BitEccRpt(uint32_t, const char*, bool)" );
    uint32_t serPtCtrEntry = BCMLT_INVALID_HDL;
    const bool val = enable;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "SER_PT_CONTROL", &serPtCtrEntry ) );
    CAIRN_MESSAGE( "iipb", ( " unit: ", "%s", " entry handle: ", "%s", " mem: ", "%s", " enable: ", "%s" ), unit, serPtCtrEntry, mem, enable );
    CAIRN_CALL( bcmlt_entry_field_symbol_add( serPtCtrEntry, "PT_ID", mem ) );
    CAIRN_CALL( bcmlt_entry_field_add( serPtCtrEntry, "REPORT_SINGLE_BIT_ECC", val ) );
    CAIRN_CALL( bcmlt_entry_commit( serPtCtrEntry, BCMLT_OPCODE_UPDATE, BCMLT_PRIORITY_NORMAL ) );
    CAIRN_CALL( bcmlt_entry_free( serPtCtrEntry ) );
}

// --- VLAN translation miss policy

namespace {

/// While a chip is blocked here, the miss policy is not to be touched.
constexpr auto vlanXlateMissStage = CairnPlatform::stage( 64 );
/// While a chip is blocked here, the policy's row does not exist yet.
constexpr auto vlanXlateMissRowStage = CairnPlatform::stage( 106 );

} // namespace

void setVlanXlateMissDrop( Cairn::CairnCommonSmData::Ptr sm ) noexcept {
    CAIRN_RECIPE( "void Cairn::setVlanXlateMissDrop(Cairn::CairnCommonSmData::Ptr)" );
    const uint16_t unit = CairnPlatform::firstKey( CairnPlatform::modules( *sm ) );
    const CairnCentral::ChipInfo chipInfo = chipOf( *sm, unit );
    if ( isBlocked( chipInfo, vlanXlateMissStage ) )
        return;
    CAIRN_MESSAGE( "s", ( " unit: ", "%s" ), unit );
    const uint64_t val = 4;
    uint32_t vlanXlateMissPolicy = BCMLT_INVALID_HDL;
    CAIRN_CALL( bcmlt_entry_allocate( unit, "R_VLAN_XLATE_MISS_POLICY", &vlanXlateMissPolicy ) );
    CAIRN_CALL( bcmlt_entry_field_add( vlanXlateMissPolicy, "OPAQUE_CTRL_ID", val ) );
    if ( isBlocked( chipInfo, vlanXlateMissRowStage ) )
        CAIRN_CALL( bcmlt_entry_commit( vlanXlateMissPolicy, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ) );
    else
        CAIRN_CALL( bcmlt_entry_commit( vlanXlateMissPolicy, BCMLT_OPCODE_UPDATE, BCMLT_PRIORITY_NORMAL ) );
    CAIRN_CALL( bcmlt_entry_free( vlanXlateMissPolicy ) );
}

} // namespace Cairn
