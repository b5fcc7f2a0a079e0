"""The recipes of the library, under its names and with its argument names.

Written by scripts/python_recipes.py from the registry of the recipes; do not edit.

Each checks its arguments before anything is called: ValueError for a number that is out of range, TypeError for a
value of another type. It takes the activity lock for its length, unless the thread holds it. An SDK call that fails
stops the process; run_isolated() tells how.
"""

from cairn_lt._cairn_lt import ChipInfo, SharedState, call

__all__ = [
    "cpuPortInit",
    "enable1BitEccRpt",
    "getInnerOpaqueTagEgress",
    "getInnerOpaqueTagEgressEpmod",
    "getInnerOpaqueTagIngress",
    "getOpaqueTagEgress",
    "getOpaqueTagEgressEfp",
    "getOpaqueTagIngress",
    "getVxlanDecapAdaptLookup",
    "lbPortInit",
    "mmuSpecialConfigInitPipe",
    "programL2EifSystemDestinationTable",
    "programL2IfIngSystemPortTable",
    "programMonTraceCpu",
    "programPacketDropForMtuError",
    "programPacketTraceForL3DstLookupMiss",
    "programPacketTraceForL3HdrError",
    "programPacketTraceForTtlError",
    "resetIngEnEfilterBitMap",
    "setDefip128StrengthProfile",
    "setEgrTunnelEcnEncap",
    "setEmRobustHashDisable",
    "setFlexctrEgressCounterActionEnable",
    "setFlexctrIngressCounterActionEnable",
    "setIngTunnelEcnDecap",
    "setInnerOpaqueTagEgress",
    "setInnerOpaqueTagEgressEpmod",
    "setInnerOpaqueTagIngress",
    "setL3TnlOverlayEgrIpTnlStrengthProfile",
    "setL3TnlOverlayEgrL3Oif1StrengthProfile",
    "setL3TnlOverlayNhStrengthProfile",
    "setL3TnlUnderlayIngNhStrengthProfile",
    "setLearnCacheDropEnabled",
    "setLearnCacheEnabled",
    "setLoadBalanceRandSeedCtrl",
    "setLoadBalanceRandSeedMem",
    "setMcastV6StrengthProfile",
    "setOpaqueTagEgress",
    "setOpaqueTagEgressEfp",
    "setOpaqueTagIngress",
    "setT4XVxlanDefaultNetworkSvp",
    "setVlanXlateMissDrop",
    "setVxlanDecapAdaptLookup",
    "setVxlanDefaultNetworkSvp",
    "setVxlanUdpSourcePortSel",
    "verifyL2EifSystemDestinationTable",
    "verifyL2IfIngSystemPortTable",
]


# --- Port bring-up


def cpuPortInit(smData: SharedState) -> None:
    """Inserts the CPU ports into the port tables.

    smData: CairnCommonSmData::Ptr
    """
    call("cpuPortInit", smData)


def lbPortInit(smData: SharedState) -> None:
    """Inserts the internal recirculation ports into the port tables.

    smData: CairnCommonSmData::Ptr
    """
    call("lbPortInit", smData)


# --- System ports and destinations


def programL2IfIngSystemPortTable(
    chipInfo: ChipInfo, unit: int, modId: int, port: int, maxPorts: int, l2If: int, op: bool
) -> None:
    """Maps a system port to the L2 ingress interface on which its packets arrive (op true), or removes the
    mapping (op false).

    chipInfo: ChipInfo
    unit: uint32_t, 0 to 4294967295
    modId: uint32_t, 0 to 4294967295
    port: uint32_t, 0 to 4294967295
    maxPorts: uint32_t, 0 to 4294967295
    l2If: uint16_t, 0 to 65535
    op: bool
    """
    call("programL2IfIngSystemPortTable", chipInfo, unit, modId, port, maxPorts, l2If, op)


def verifyL2IfIngSystemPortTable(
    chipInfo: ChipInfo, unit: int, modId: int, port: int, maxPorts: int, l2If: int, op: bool
) -> bool:
    """Says whether a system port is mapped to this L2 ingress interface (op true), or not mapped at all (op
    false).

    chipInfo: ChipInfo
    unit: uint32_t, 0 to 4294967295
    modId: uint32_t, 0 to 4294967295
    port: uint32_t, 0 to 4294967295
    maxPorts: uint32_t, 0 to 4294967295
    l2If: uint16_t, 0 to 65535
    op: bool
    """
    result: bool = call("verifyL2IfIngSystemPortTable", chipInfo, unit, modId, port, maxPorts, l2If, op)
    return result


def programL2EifSystemDestinationTable(
    chipInfo: ChipInfo, unit: int, modId: int, portOrLagId: int, maxPorts: int, l2If: int, lag: bool, op: bool
) -> None:
    """Maps an L2 egress interface to the trunk (lag true) or the system port (lag false) its packets go to (op
    true), or removes the mapping (op false).

    chipInfo: ChipInfo
    unit: uint32_t, 0 to 4294967295
    modId: uint32_t, 0 to 4294967295
    portOrLagId: uint32_t, 0 to 4294967295
    maxPorts: uint32_t, 0 to 4294967295
    l2If: uint16_t, 0 to 65535
    lag: bool
    op: bool
    """
    call("programL2EifSystemDestinationTable", chipInfo, unit, modId, portOrLagId, maxPorts, l2If, lag, op)


def verifyL2EifSystemDestinationTable(
    chipInfo: ChipInfo, unit: int, modId: int, portOrLagId: int, maxPorts: int, l2If: int, lag: bool, op: bool
) -> bool:
    """Says whether an L2 egress interface is mapped to this trunk or system port (op true), or not mapped at
    all (op false).

    chipInfo: ChipInfo
    unit: uint32_t, 0 to 4294967295
    modId: uint32_t, 0 to 4294967295
    portOrLagId: uint32_t, 0 to 4294967295
    maxPorts: uint32_t, 0 to 4294967295
    l2If: uint16_t, 0 to 65535
    lag: bool
    op: bool
    """
    result: bool = call("verifyL2EifSystemDestinationTable", chipInfo, unit, modId, portOrLagId, maxPorts, l2If, lag, op)
    return result


# --- VXLAN controls


def setVxlanDefaultNetworkSvp(unit: int, svp: int) -> None:
    """Sets the default network source virtual port.

    unit: uint32_t, 0 to 4294967295
    svp: uint32_t, 0 to 4294967295
    """
    call("setVxlanDefaultNetworkSvp", unit, svp)


def setT4XVxlanDefaultNetworkSvp(unit: int) -> None:
    """Sets the default network source virtual port of T4X chips to 1.

    unit: uint32_t, 0 to 4294967295
    """
    call("setT4XVxlanDefaultNetworkSvp", unit)


def setVxlanUdpSourcePortSel(unit: int, ignored: int) -> None:
    """Makes the hash entropy the UDP source port of VXLAN packets.

    unit: uint32_t, 0 to 4294967295
    ignored: uint32_t, 0 to 4294967295
    """
    call("setVxlanUdpSourcePortSel", unit, ignored)


def setVxlanDecapAdaptLookup(unit: int, port: int, enable: bool) -> None:
    """Switches the adapt look-up of VXLAN decapsulation on or off for one port.

    unit: uint32_t, 0 to 4294967295
    port: uint32_t, 0 to 4294967295
    enable: bool
    """
    call("setVxlanDecapAdaptLookup", unit, port, enable)


def getVxlanDecapAdaptLookup(unit: int, port: int) -> bool:
    """Says whether the adapt look-up of VXLAN decapsulation is on for a port.

    unit: uint32_t, 0 to 4294967295
    port: uint32_t, 0 to 4294967295
    """
    result: bool = call("getVxlanDecapAdaptLookup", unit, port)
    return result


# --- Tunnel ECN maps


def setEgrTunnelEcnEncap(unit: int, index: int, outerEcn: int) -> None:
    """Sets the outer-header ECN of a row of the egress encapsulation map.

    unit: uint32_t, 0 to 4294967295
    index: uint32_t, 0 to 4294967295
    outerEcn: uint32_t, 0 to 4294967295
    """
    call("setEgrTunnelEcnEncap", unit, index, outerEcn)


def setIngTunnelEcnDecap(unit: int, index: int, innerEcn: int, changeEcn: bool) -> None:
    """Sets the inner-header ECN of a row of the ingress decapsulation map, and whether the inner header is
    changed.

    unit: uint32_t, 0 to 4294967295
    index: uint32_t, 0 to 4294967295
    innerEcn: uint32_t, 0 to 4294967295
    changeEcn: bool
    """
    call("setIngTunnelEcnDecap", unit, index, innerEcn, changeEcn)


# --- Opaque tags


def setOpaqueTagIngress(unit: int, tagType: int) -> None:
    """Sets up the ingress parser of the outer opaque tag.

    unit: uint32_t, 0 to 4294967295
    tagType: uint8_t, 0 to 255
    """
    call("setOpaqueTagIngress", unit, tagType)


def getOpaqueTagIngress(unit: int, tagType: int) -> int:
    """Checks the ingress parser of the outer opaque tag and reads its ethertype.

    unit: uint32_t, 0 to 4294967295
    tagType: uint8_t, 0 to 255
    """
    result: int = call("getOpaqueTagIngress", unit, tagType)
    return result


def setOpaqueTagEgress(unit: int) -> None:
    """Sets up the egress parser of the outer opaque tag.

    unit: uint32_t, 0 to 4294967295
    """
    call("setOpaqueTagEgress", unit)


def getOpaqueTagEgress(unit: int) -> int:
    """Checks the egress parser of the outer opaque tag and reads its ethertype.

    unit: uint32_t, 0 to 4294967295
    """
    result: int = call("getOpaqueTagEgress", unit)
    return result


def setOpaqueTagEgressEfp(unit: int) -> None:
    """Sets up the egress field processor's parser of the outer opaque tag.

    unit: uint32_t, 0 to 4294967295
    """
    call("setOpaqueTagEgressEfp", unit)


def getOpaqueTagEgressEfp(unit: int) -> int:
    """Checks the egress field processor's parser of the outer opaque tag and reads its ethertype.

    unit: uint32_t, 0 to 4294967295
    """
    result: int = call("getOpaqueTagEgressEfp", unit)
    return result


def setInnerOpaqueTagIngress(unit: int) -> None:
    """Sets up the ingress parser of the inner opaque tag.

    unit: uint32_t, 0 to 4294967295
    """
    call("setInnerOpaqueTagIngress", unit)


def getInnerOpaqueTagIngress(unit: int) -> int:
    """Checks the ingress parser of the inner opaque tag and reads its ethertype.

    unit: uint32_t, 0 to 4294967295
    """
    result: int = call("getInnerOpaqueTagIngress", unit)
    return result


def setInnerOpaqueTagEgress(unit: int) -> None:
    """Sets up the egress parser of the inner opaque tag.

    unit: uint32_t, 0 to 4294967295
    """
    call("setInnerOpaqueTagEgress", unit)


def getInnerOpaqueTagEgress(unit: int) -> int:
    """Checks the egress parser of the inner opaque tag and reads its ethertype.

    unit: uint32_t, 0 to 4294967295
    """
    result: int = call("getInnerOpaqueTagEgress", unit)
    return result


def setInnerOpaqueTagEgressEpmod(unit: int) -> None:
    """Sets the ethertype of the egress packet modifier's opaque tag.

    unit: uint32_t, 0 to 4294967295
    """
    call("setInnerOpaqueTagEgressEpmod", unit)


def getInnerOpaqueTagEgressEpmod(unit: int) -> int:
    """Reads the ethertype of the egress packet modifier's opaque tag.

    unit: uint32_t, 0 to 4294967295
    """
    result: int = call("getInnerOpaqueTagEgressEpmod", unit)
    return result


# --- Forwarding strength profiles


def setDefip128StrengthProfile(unit: int) -> None:
    """Inserts the strength profile of IPv6 /128 routes.

    unit: uint32_t, 0 to 4294967295
    """
    call("setDefip128StrengthProfile", unit)


def setL3TnlOverlayEgrL3Oif1StrengthProfile(unit: int) -> None:
    """Inserts the overlay tunnels' strength profile of the egress L3 interface.

    unit: uint32_t, 0 to 4294967295
    """
    call("setL3TnlOverlayEgrL3Oif1StrengthProfile", unit)


def setL3TnlOverlayNhStrengthProfile(unit: int) -> None:
    """Inserts the overlay tunnels' strength profile of the ingress next hop.

    unit: uint32_t, 0 to 4294967295
    """
    call("setL3TnlOverlayNhStrengthProfile", unit)


def setL3TnlOverlayEgrIpTnlStrengthProfile(unit: int) -> None:
    """Inserts the overlay tunnels' strength profile of the egress IP tunnel.

    unit: uint32_t, 0 to 4294967295
    """
    call("setL3TnlOverlayEgrIpTnlStrengthProfile", unit)


def setL3TnlUnderlayIngNhStrengthProfile(unit: int) -> None:
    """Inserts the underlay tunnels' strength profile of the ingress next hop.

    unit: uint32_t, 0 to 4294967295
    """
    call("setL3TnlUnderlayIngNhStrengthProfile", unit)


def setMcastV6StrengthProfile(sm: SharedState) -> None:
    """Inserts the two strength profiles of IPv6 multicast, unless the chip runs the KOVA profile.

    sm: CairnCommonSmData::Ptr
    """
    call("setMcastV6StrengthProfile", sm)


# --- Learn cache


def setLearnCacheEnabled(unit: int, enable: bool) -> None:
    """Switches the learn cache on or off for L2 learning.

    unit: uint32_t, 0 to 4294967295
    enable: bool
    """
    call("setLearnCacheEnabled", unit, enable)


def setLearnCacheDropEnabled(unit: int, enable: bool) -> None:
    """Switches the learn cache on or off for dropped L2 destinations.

    unit: uint32_t, 0 to 4294967295
    enable: bool
    """
    call("setLearnCacheDropEnabled", unit, enable)


# --- Monitor trace and drop events


def programMonTraceCpu(unit: int, errorType: str) -> None:
    """Sends packets that raise an ingress trace event to the CPU.

    unit: uint32_t, 0 to 4294967295
    errorType: const char *
    """
    call("programMonTraceCpu", unit, errorType)


def programPacketTraceForL3DstLookupMiss(unit: int) -> None:
    """Sends packets whose L3 destination is not found to the CPU.

    unit: uint32_t, 0 to 4294967295
    """
    call("programPacketTraceForL3DstLookupMiss", unit)


def programPacketTraceForL3HdrError(unit: int) -> None:
    """Sends packets with a bad L3 header to the CPU.

    unit: uint32_t, 0 to 4294967295
    """
    call("programPacketTraceForL3HdrError", unit)


def programPacketTraceForTtlError(unit: int) -> None:
    """Sends packets whose time to live ran out to the CPU.

    unit: uint32_t, 0 to 4294967295
    """
    call("programPacketTraceForTtlError", unit)


def programPacketDropForMtuError(unit: int) -> None:
    """Sends packets that fail the MTU check to the CPU, not to loopback.

    unit: uint32_t, 0 to 4294967295
    """
    call("programPacketDropForMtuError", unit)


# --- Load-balance random seeds


def setLoadBalanceRandSeedCtrl(unit: int, seed: int) -> None:
    """Writes the LAG random seed into the three control registers.

    unit: uint32_t, 0 to 4294967295
    seed: uint32_t, 0 to 4294967295
    """
    call("setLoadBalanceRandSeedCtrl", unit, seed)


def setLoadBalanceRandSeedMem(unit: int, seed: int) -> None:
    """Writes the LAG random seed into the three seed memories.

    unit: uint32_t, 0 to 4294967295
    seed: uint32_t, 0 to 4294967295
    """
    call("setLoadBalanceRandSeedMem", unit, seed)


# --- Register and memory controls


def mmuSpecialConfigInitPipe(unit: int, data_pipe: int, disableThdoInfo: bool) -> None:
    """Sets the queue scheduler's special configuration of one data pipe.

    unit: uint32_t, 0 to 4294967295
    data_pipe: uint32_t, 0 to 4294967295
    disableThdoInfo: bool
    """
    call("mmuSpecialConfigInitPipe", unit, data_pipe, disableThdoInfo)


def resetIngEnEfilterBitMap(unit: int, bitMapBits: int) -> None:
    """Clears the first bits of the ingress egress-filter enable bitmap.

    unit: uint32_t, 0 to 4294967295
    bitMapBits: uint32_t, 0 to 4096: the recipe has that many zeros to hand over
    """
    call("resetIngEnEfilterBitMap", unit, bitMapBits)


def setEmRobustHashDisable(unit: int) -> None:
    """Switches robust hashing off in the exact-match memories the chip has.

    unit: uint32_t, 0 to 4294967295
    """
    call("setEmRobustHashDisable", unit)


def setFlexctrIngressCounterActionEnable(unit: int) -> None:
    """Enables all ingress flex-counter actions but action 0.

    unit: uint32_t, 0 to 4294967295
    """
    call("setFlexctrIngressCounterActionEnable", unit)


def setFlexctrEgressCounterActionEnable(unit: int) -> None:
    """Enables all egress flex-counter actions but action 0.

    unit: uint32_t, 0 to 4294967295
    """
    call("setFlexctrEgressCounterActionEnable", unit)


def enable1BitEccRpt(unit: int, mem: str, enable: bool) -> None:
    """Switches the reporting of single-bit ECC errors on or off for one table.

    unit: uint32_t, 0 to 4294967295
    mem: const char *
    enable: bool
    """
    call("enable1BitEccRpt", unit, mem, enable)


# --- VLAN translation miss policy


def setVlanXlateMissDrop(sm: SharedState) -> None:
    """Sets the policy for packets whose VLAN translation misses.

    sm: CairnCommonSmData::Ptr
    """
    call("setVlanXlateMissDrop", sm)
