#pragma once

#include <ChipModel/CairnCommonSmData.h>
#include <ChipModel/ChipInfo.h>

#include <cstdint>

// Recipes that program a forwarding chip through the SDK's logical and physical tables.
//
//     #include <Cairn/CairnLtHelper.h>
//     #include <Kiln/ActivityLock.h>
//     #include <Shim/Sdk.h>
//
//     Shim::sdk_ = &theAgentsShim; // once, before the first recipe
//     ...
//     const std::lock_guard lock( Kiln::activityLock() );
//     Cairn::setEgrTunnelEcnEncap( unit, index, outerEcn );
//
// Each recipe is a fixed sequence of SDK calls on one entry at a time: allocate it, add fields, commit,
// free. The library keeps no state from one call to the next.
//
// What holds for every recipe, unless its own comment says otherwise:
//
// Unit       `unit` is the SDK's unit number. It and all other arguments are passed on unchanged, widened
//            to the SDK's 64-bit field values, neither masked nor checked. What the SDK refuses stops the
//            process. Widths given below are those of the reference chip.
// Result     A recipe that returns has done its work. There are no error codes, and no exception leaves.
// Stop       An SDK call that returns a negative code stops the process: one line on standard error,
//            "FILE:LINE CALL API ERROR:TEXT (RC)", then the shim's failure hook, then the C library's
//            assertion failure (SIGABRT), in every build type. The entry at hand is not freed, and what
//            was committed before stays. Zero and positive codes are success.
// Assertion  Where a comment names an assertion, its failure stops the process with the C library's
//            assertion failure and that text, without a report and without the failure hook.
// Trace      Each call that is made leaves its text and code as a line of "ApiCairn" at level 4. The recipes'
//            own messages go to "CairnLtHelper", at level 2 unless stated, and to the ring-buffer trace.
// Locking    Call with the activity lock held (Kiln::activityLock()). It is released, and with it the
//            interpreter lock if the thread holds that, for the length of each single SDK call; other
//            activities may run then, so a recipe is not atomic against other writers of its table.
// Threads    Any thread that holds the activity lock.
// Handles    `smData` and `sm` must not be null; they are only read.

// Exported, whatever visibility the including code is built with.
#pragma GCC visibility push( default )

namespace Cairn {

// --- Port bring-up

/// Inserts the CPU ports into the port tables, once per bring-up.
///
/// For each port (unit, port id) among the keys of the map cairnCpuPortToIntf, in its order: logical table
/// "PC_PORT_PHYS_MAP", key PORT_ID = port id: PC_PHYS_PORT_ID = the same number; then "PC_PORT", key
/// PORT_ID: ENABLE 1, NUM_LANES 1, SPEED 10000 (Mb/s). Both INSERT: a port that is there stops the process.
/// An empty map does nothing. Table and field names are asked of the shim. Writes no message.
void cpuPortInit( Cairn::CairnCommonSmData::Ptr smData ) noexcept;

/// Inserts the internal recirculation (loopback) ports into the port tables, once per bring-up.
///
/// For each interface of the map cairnInternalRecircIntfToPort, in its order: "PC_PORT_PHYS_MAP" and "PC_PORT"
/// as cpuPortInit() writes them, with the physical port that cairnPortToHwConfigPort has for the port. A port
/// that is not in there is programmed with physical port 0; an interface that is gone from its own map, with
/// the default port (unit 0xFFFF, port 1023).
///
/// Messages: plain lines, at level 9 on entry and at level 8 for each port.
void lbPortInit( Cairn::CairnCommonSmData::Ptr smData ) noexcept;

// --- System ports and destinations
//
// A port is numbered by CairnCentral::SYSPORT_FROM_MODPORT from the low 16 bits of `modId` and of the port,
// and `maxPorts`, the number of ports a module has (below 256, unless the chip numbers its ports itself).

/// Maps a system port to the L2 ingress interface on which its packets arrive, or removes the mapping.
///
/// Logical table "ING_SYSTEM_PORT_TABLE", key SYSTEM_SOURCE = the system port number. `op` true: L2_IIF =
/// `l2If`, and RANGE_TABLE_INDEX = the system port number where the chip attributes ask for it (tolerated if
/// the SDK refuses it); INSERT, or UPDATE if a LOOKUP finds the row. `op` false: DELETE; if the LOOKUP finds
/// no row, a message and nothing else.
///
/// Assertions, for `op` true: "profile", the chip has an active profile; "chipAttr", the profile has
/// CairnChipAttributes.
void programL2IfIngSystemPortTable( CairnCentral::ChipInfo chipInfo, uint32_t unit, uint32_t modId,
                                    uint32_t port, uint32_t maxPorts, uint16_t l2If,
                                    bool op ) noexcept;

/// Says whether the hardware holds what programL2IfIngSystemPortTable() with the same arguments left there.
///
/// LOOKUP in "ING_SYSTEM_PORT_TABLE". `op` true: the row is there and its L2_IIF, all 64 bits, is `l2If`. `op`
/// false: the row is not there (a message says so).
bool verifyL2IfIngSystemPortTable( CairnCentral::ChipInfo chipInfo, uint32_t unit, uint32_t modId,
                                   uint32_t port, uint32_t maxPorts, uint16_t l2If,
                                   bool op ) noexcept;

/// Maps an L2 egress interface to where its packets go, or removes the mapping.
///
/// Logical table "L2_EIF_SYSTEM_DESTINATION", key L2_EIF_ID = `l2If`. `op` true: with `lag`, IS_TRUNK = 1 and
/// TRUNK_ID = `portOrLagId`; without, SYSTEM_PORT = the system port number of port `portOrLagId` on module
/// `modId`, and IS_TRUNK is left as it is. INSERT, or UPDATE if a LOOKUP finds the row. `op` false: DELETE; if
/// the LOOKUP finds no row, a message and nothing else.
void programL2EifSystemDestinationTable( CairnCentral::ChipInfo chipInfo, uint32_t unit,
                                         uint32_t modId, uint32_t portOrLagId, uint32_t maxPorts,
                                         uint16_t l2If, bool lag, bool op ) noexcept;

/// Says whether the hardware holds what programL2EifSystemDestinationTable() with the same arguments left there.
///
/// LOOKUP in "L2_EIF_SYSTEM_DESTINATION". `op` true, row there: with `lag`, TRUNK_ID is `portOrLagId` and IS_TRUNK
/// is not 0; without, SYSTEM_PORT is the system port number, whatever IS_TRUNK is. `op` true, row missing:
/// true, so a missing row verifies as present. `op` false: the row is not there (a message says so).
bool verifyL2EifSystemDestinationTable( CairnCentral::ChipInfo chipInfo, uint32_t unit,
                                        uint32_t modId, uint32_t portOrLagId, uint32_t maxPorts,
                                        uint16_t l2If, bool lag, bool op ) noexcept;

// --- VXLAN controls

/// Sets the default network source virtual port. Logical table "TNL_L2_VXLAN_CONTROL", no key:
/// DEFAULT_NETWORK_SVP = `svp`. UPDATE.
void setVxlanDefaultNetworkSvp( uint32_t unit, uint32_t svp ) noexcept;

/// The default network source virtual port of T4X chips. Logical table "R_L2_TUNNEL_DEFAULT_NETWORK_SVP", no
/// key: SVP = 1. INSERT; a failed INSERT is tolerated, with a plain line at level 4.
///
/// Messages: a plain line at level 3 on entry.
void setT4XVxlanDefaultNetworkSvp( uint32_t unit ) noexcept;

/// Makes the hash entropy the UDP source port of VXLAN packets. Logical table "TNL_L2_VXLAN_CONTROL", no key:
/// SRC_L4_PORT_SELECT = symbol HASH_ENTROPY. UPDATE. The second argument has no effect.
void setVxlanUdpSourcePortSel( uint32_t unit, uint32_t ) noexcept;

/// Switches the adapt look-up of VXLAN decapsulation on or off for one port.
///
/// Register "EGR_VLAN_CONTROL_1r", BCMLT_PT_PORT = `port`: VXLAN_DECAP_ADAPT_LOOKUP_ENABLE = 1 or 0. A PT GET from
/// the hardware, then a PT SET of the same entry, so the register's other fields keep what the hardware held.
///
/// Assertion: "ent_hdl != BCMLT_INVALID_HDL" after the allocate. Messages: a plain line at level 2 on entry.
void setVxlanDecapAdaptLookup( uint32_t unit, uint32_t port, bool enable ) noexcept;

/// Whether the adapt look-up is on for a port: VXLAN_DECAP_ADAPT_LOOKUP_ENABLE of "EGR_VLAN_CONTROL_1r" is not 0.
/// PT GET, of the SDK's cache where it has one.
///
/// Assertion: "ent_hdl != BCMLT_INVALID_HDL" after the allocate. Messages: a plain line at level 2 with the
/// value read.
bool getVxlanDecapAdaptLookup( uint32_t unit, uint32_t port ) noexcept;

// --- Tunnel ECN maps

/// Sets the outer-header ECN of one row of the egress tunnel encapsulation map.
///
/// Memory "EGR_TUNNEL_ECN_ENCAPm", BCMLT_PT_INDEX = `index`: OUTER_ECN = `outerEcn` (2 bits). PT MODIFY: the
/// row's other fields keep their values. What a row stands for is the caller's business.
///
/// Locking: the activity lock is kept during the SDK calls.
void setEgrTunnelEcnEncap( uint32_t unit, uint32_t index, uint32_t outerEcn ) noexcept;

/// Sets the inner-header ECN of one row of the ingress tunnel decapsulation map, and whether the inner header
/// is changed at all.
///
/// Memory "ING_TUNNEL_ECN_DECAPm", BCMLT_PT_INDEX = `index`: INNER_ECN = `innerEcn` (2 bits), written in both
/// cases, CHANGE_INNER_ECN = `changeEcn`. PT MODIFY: the row's other fields keep their values.
///
/// Locking: the activity lock is kept during the SDK calls.
void setIngTunnelEcnDecap( uint32_t unit, uint32_t index, uint32_t innerEcn,
                           bool changeEcn ) noexcept;

// --- Opaque tags
//
// Each pair owns one register, without index or port. The setter writes it whole (PT SET): ETHERTYPE 0x8100
// and the fields its comment names; fields it does not name take their reset value. The getter reads it (PT
// GET), asserts that the named fields hold what the setter writes ("val == 1" for each, VALID first), and
// returns the low 16 bits of ETHERTYPE, unchecked. So a getter stops the process on a register that was never
// set. All assert "ent_hdl != BCMLT_INVALID_HDL" after the allocate. None writes a message.

/// Ingress, outer tag: "OPAQUE_TAG_CONFIGr", TAG_SIZE 1, VALID 1, and OPAQUE_TAG_TYPE = `tagType` unless that is 0.
void setOpaqueTagIngress( uint32_t unit, uint8_t tagType ) noexcept;

/// Reads "OPAQUE_TAG_CONFIGr". Asserts also "val == tagType" of OPAQUE_TAG_TYPE, for a `tagType` of 0 as well.
uint16_t getOpaqueTagIngress( uint32_t unit, uint8_t tagType ) noexcept;

/// Egress, outer tag: "EGR_EPARS_OPAQUE_TAG_CONFIGr", TAG_SIZE 1, VALID 1.
void setOpaqueTagEgress( uint32_t unit ) noexcept;
uint16_t getOpaqueTagEgress( uint32_t unit ) noexcept; ///< Reads "EGR_EPARS_OPAQUE_TAG_CONFIGr".

/// Egress field processor, outer tag: "EGR_EFPPARS_OPAQUE_TAG_CONFIGr", TAG_SIZE 1, VALID 1.
void setOpaqueTagEgressEfp( uint32_t unit ) noexcept;
uint16_t
getOpaqueTagEgressEfp( uint32_t unit ) noexcept; ///< Reads "EGR_EFPPARS_OPAQUE_TAG_CONFIGr".

/// Ingress, inner tag: "INNER_L2_OPAQUE_TAG_CONFIGr", VALID 1.
void setInnerOpaqueTagIngress( uint32_t unit ) noexcept;
uint16_t
getInnerOpaqueTagIngress( uint32_t unit ) noexcept; ///< Reads "INNER_L2_OPAQUE_TAG_CONFIGr".

/// Egress, inner tag: "EGR_EPARS_INNER_L2_OPAQUE_TAG_CONFIGr", VALID 1.
void setInnerOpaqueTagEgress( uint32_t unit ) noexcept;
/// Reads "EGR_EPARS_INNER_L2_OPAQUE_TAG_CONFIGr".
uint16_t getInnerOpaqueTagEgress( uint32_t unit ) noexcept;

/// Egress packet modifier: "EGR_EPMOD_L2_OPAQUE_TAG_CONFIGr", which has an ethertype only.
void setInnerOpaqueTagEgressEpmod( uint32_t unit ) noexcept;
/// Reads "EGR_EPMOD_L2_OPAQUE_TAG_CONFIGr". Asserts no value, so it never stops on one.
uint16_t getInnerOpaqueTagEgressEpmod( uint32_t unit ) noexcept;

// --- Forwarding strength profiles
//
// Logical tables, INSERT of fixed strengths: a profile that is there stops the process. A message with the
// entry handle follows each allocate.

/// IPv6 /128 routes: "L3_IPV6_UNICAST_DEFIP_128_STRENGTH_PROFILE", no key. Strength 4 in
/// NHOP_2_OR_ECMP_GROUP_INDEX_1, ECMP_AND_PROT_SWT_SFC_PROFILE_INDEX, L3_DST_MISC_CTRL_1, L3_DST_MISC_CTRL_0,
/// L3_DST_CLASS_ID, L3_DST_DESTINATION_TYPE and L3_DST_DESTINATION (each name ends in _STRENGTH).
void setDefip128StrengthProfile( uint32_t unit ) noexcept;

/// Overlay tunnels, egress L3 interface: "EGR_L3_OIF_1_STR_PROFILE", key EGR_L3_OIF_1_STR_PROFILE_INDEX 18:
/// TUNNEL_IDX_STR 5, OBJ_TABLE_SEL_1 2.
void setL3TnlOverlayEgrL3Oif1StrengthProfile( uint32_t unit ) noexcept;

/// Overlay tunnels, ingress next hop: "ING_L3_NEXT_HOP_1_STRENGTH_PROFILE", key
/// ING_L3_NEXT_HOP_1_STRENGTH_PROFILE_INDEX 30: L2MC_L3MC_L2_OIF_SYS_DST_VALID_STRENGTH 6.
void setL3TnlOverlayNhStrengthProfile( uint32_t unit ) noexcept;

/// Overlay tunnels, egress IP tunnel: "EGR_L3_TNL_STR_PROFILE", key EGR_L3_TNL_STR_PROFILE_INDEX 17: IP_DIP_STR 6,
/// SEQ_NUM_STR 5.
void setL3TnlOverlayEgrIpTnlStrengthProfile( uint32_t unit ) noexcept;

/// Underlay tunnels, ingress next hop: "ING_L3_NEXT_HOP_2_STRENGTH_PROFILE", key
/// ING_L3_NEXT_HOP_2_STRENGTH_PROFILE_INDEX 9: L2MC_L3MC_L2_OIF_SYS_DST_VALID_STRENGTH 7, DESTINATION_STRENGTH 7.
void setL3TnlUnderlayIngNhStrengthProfile( uint32_t unit ) noexcept;

/// IPv6 multicast: "L3_IPV6_MULTICAST_2_STRENGTH_PROFILE" with strength 6, then
/// "L3_IPV6_MULTICAST_1_STRENGTH_PROFILE" with strength 5, neither with a key. Fields: RPA_ID; if the chip is
/// unblocked at stage 108 (asked for each table), EXPECTED_L3_IIF, MTU_PROFILE_PTR and OPAQUE_OBJECT (without
/// _STRENGTH here); L3_DST_MISC_CTRL_1, L3_DST_MISC_CTRL_0, L3_DST_CLASS_ID, L3_DST_DESTINATION_TYPE,
/// L3_DST_DESTINATION.
///
/// Unit and chip are those of the first module in `sm`; the unit is its module id. A chip that is blocked at
/// stage 55 (it runs the KOVA profile) is skipped, with a plain line at level 2. An empty module map stops the
/// process (assertion "iter_" of the collection).
void setMcastV6StrengthProfile( Cairn::CairnCommonSmData::Ptr sm ) noexcept;

// --- Learn cache
//
// LEARN_CACHE = 1 or 0, by UPDATE if a LOOKUP finds the row, else by INSERT: any failed LOOKUP counts as an
// absent row. No messages.

/// Logical table "LEARN_CACHE_DATA_CONTROL", key LEARN_CACHE_DATA_INFO_ID = symbol LEARN_L2_VIEW.
void setLearnCacheEnabled( uint32_t unit, bool enable ) noexcept;

/// Logical table "LEARN_CACHE_DROP_CONTROL", key EVENT_ID = symbol L2_DST_DISCARD.
void setLearnCacheDropEnabled( uint32_t unit, bool enable ) noexcept;

// --- Monitor trace and drop events
//
// INSERT: an event that is there stops the process. A message comes first, before any SDK call.

/// Sends packets that raise an ingress trace event to the CPU. Logical table "MON_ING_TRACE_EVENT", key
/// MON_ING_TRACE_EVENT_ID = symbol `errorType`: CPU 1. `errorType` is NUL-terminated and kept alive by the caller
/// during the call; a symbol that the SDK does not know stops the process.
void programMonTraceCpu( uint32_t unit, const char * errorType ) noexcept;

/// programMonTraceCpu() of L3_DST_LOOKUP_MISS; all output is under that recipe's name.
void programPacketTraceForL3DstLookupMiss( uint32_t unit ) noexcept;
/// programMonTraceCpu() of L3_HDR_ERROR; all output is under that recipe's name.
void programPacketTraceForL3HdrError( uint32_t unit ) noexcept;
/// programMonTraceCpu() of L3_TTL_ERROR; all output is under that recipe's name.
void programPacketTraceForTtlError( uint32_t unit ) noexcept;

/// Sends packets that fail the MTU check to the CPU, not to loopback. Logical table "MON_ING_DROP_EVENT", key
/// MON_ING_DROP_EVENT_ID = symbol L3_MTU_CHECK_FAILED: CPU 1, LOOPBACK 0.
///
/// Assertion: "rc < 0" of a LOOKUP that is committed before the key is added, and so must fail.
void programPacketDropForMtuError( uint32_t unit ) noexcept;

// --- Load-balance random seeds
//
// `seed`, all 32 bits, into SEED of three instances, by PT MODIFY. An instance whose allocate returns anything
// but 0, positive codes included, is taken as absent: a message, and the recipe returns without trying the
// instances after it. A failed add of SEED is reported with the call text "rc".

/// Registers "IPOST_LAG_RAND_NUM_CTRL_0r" to "IPOST_LAG_RAND_NUM_CTRL_2r".
void setLoadBalanceRandSeedCtrl( uint32_t unit, uint32_t seed ) noexcept;

/// Memories "IPOST_LAG_RAND_NUM_SEED_0m" to "IPOST_LAG_RAND_NUM_SEED_2m"; SEED is an array field, element 0.
void setLoadBalanceRandSeedMem( uint32_t unit, uint32_t seed ) noexcept;

// --- Register and memory controls

/// The queue scheduler's special configuration of one data pipe. Register "MMU_QSCH_SPECIAL_CONFIGr",
/// BCMLT_PT_INDEX 0, BCMLT_PT_INSTANCE = `data_pipe`: DISABLE_CMIC_COSMASK 1, and ENABLE_THDO_INFO 0 if
/// `disableThdoInfo`; otherwise that field keeps its value. PT MODIFY. No messages.
void mmuSpecialConfigInitPipe( uint32_t unit, uint32_t data_pipe, bool disableThdoInfo ) noexcept;

/// Clears the ingress egress-filter enable bitmap. Memory "ING_EN_EFILTER_BITMAPm", BCMLT_PT_INDEX 0: the first
/// (`bitMapBits` + 63) / 64 words of BITMAP become 0. PT MODIFY. No messages.
///
/// `bitMapBits`: 0 to 4096. More makes the SDK read past the library's zeros: the caller must not.
void resetIngEnEfilterBitMap( uint32_t unit, uint32_t bitMapBits ) noexcept;

/// Switches robust hashing off in the exact-match memories. "EFTA30_E2T_00_HASH_CONTROLm",
/// "EFTA30_E2T_01_HASH_CONTROLm", "IFTA30_E2T_00_HASH_CONTROLm", "IFTA40_E2T_00_HASH_CONTROLm" and
/// "IFTA40_E2T_01_HASH_CONTROLm", without index: ROBUST_HASH_EN 0. PT MODIFY. A memory whose allocate returns
/// anything but 0, positive codes included, is skipped silently, and the next one is tried.
void setEmRobustHashDisable( uint32_t unit ) noexcept;

/// Enables all ingress flex-counter actions but action 0. Register "FLEX_CTR_ING_COUNTER_ACTION_ENABLEr": BITMAP
/// 0xfffffffe. PT SET: earlier content is replaced. Assertion: "ent_hdl != BCMLT_INVALID_HDL".
void setFlexctrIngressCounterActionEnable( uint32_t unit ) noexcept;

/// Enables all egress flex-counter actions but action 0. Register "FLEX_CTR_EGR_COUNTER_ACTION_ENABLEr": BITMAP
/// 0xfffe. PT SET: earlier content is replaced. Assertion: "ent_hdl != BCMLT_INVALID_HDL".
void setFlexctrEgressCounterActionEnable( uint32_t unit ) noexcept;

/// Switches the reporting of single-bit ECC errors of one physical table on or off. Logical table
/// "SER_PT_CONTROL", key PT_ID = symbol `mem`, the table's name: REPORT_SINGLE_BIT_ECC = 1 or 0. UPDATE: a table
/// without a row there stops the process, and so does a name that the SDK does not know. `mem` is
/// NUL-terminated and kept alive by the caller during the call. A message follows the allocate.
void enable1BitEccRpt( uint32_t unit, const char * mem, bool enable ) noexcept;

// --- VLAN translation miss policy

/// Sets the policy for packets whose VLAN translation misses. Logical table "R_VLAN_XLATE_MISS_POLICY", no key:
/// OPAQUE_CTRL_ID 4. INSERT while the chip is blocked at stage 106, UPDATE after that; no LOOKUP, so the wrong
/// one stops the process.
///
/// Unit and chip are those of the first module in `sm`; the unit is its module id. Does nothing, and writes no
/// message, while the chip is blocked at stage 64. An empty module map stops the process (assertion "iter_" of
/// the collection).
void setVlanXlateMissDrop( Cairn::CairnCommonSmData::Ptr sm ) noexcept;

} // namespace Cairn

#pragma GCC visibility pop
