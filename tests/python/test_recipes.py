"""All recipes as functions: names, arguments, ranges, and the tables they leave."""

import inspect
import os
import pathlib
import re

import pytest

from cairn_lt import ChipInfo, SharedState, recipes, set_profile, set_stage_blocked

SOURCE = pathlib.Path(os.environ["CAIRN_SOURCE"])
TYPES = {
    "uint8_t": int,
    "uint16_t": int,
    "uint32_t": int,
    "bool": bool,
    "const char *": str,
    "CairnCentral::ChipInfo": ChipInfo,
    "Cairn::CairnCommonSmData::Ptr": SharedState,
    "void": None,
}


def declared():
    """The signatures in the library's header: name -> (result, [(type, name)])."""
    header = re.sub(r"//[^\n]*", "", (SOURCE / "Cairn/CairnLtHelper.h").read_text())
    found = {}
    for result, name, parameters in re.findall(r"(void|bool|uint16_t)\s+(\w+)\(([^)]*)\) noexcept;", header):
        pairs = []
        for parameter in parameters.split(","):
            kind, argument = re.fullmatch(r"\s*(.*?[\s*])(\w*)\s*", parameter + " ", re.DOTALL).groups()
            if not argument and re.fullmatch(r".*\s\w+\s*", kind.strip()):
                kind, argument = re.fullmatch(r"(.*?[\s*])(\w+)", kind.strip()).groups()
            pairs.append((" ".join(kind.split()), argument))
        found[name] = (result, pairs)
    return found


HEADER = declared()


def test_header_has_47_recipes():
    assert len(HEADER) == 47
    assert HEADER["setEgrTunnelEcnEncap"] == (
        "void",
        [("uint32_t", "unit"), ("uint32_t", "index"), ("uint32_t", "outerEcn")],
    )


def test_each_recipe_is_there():
    assert sorted(recipes.__all__) == sorted(HEADER)


@pytest.mark.parametrize("name", HEADER)
def test_signature_is_the_header_s(name):
    result, parameters = HEADER[name]
    signature = inspect.signature(getattr(recipes, name))
    # The header leaves one parameter without a name.
    assert list(signature.parameters) == [argument or "ignored" for _, argument in parameters]
    for (kind, _), parameter in zip(parameters, signature.parameters.values()):
        assert parameter.annotation is TYPES[kind]
    assert signature.return_annotation is TYPES[result]


@pytest.mark.parametrize("name", HEADER)
def test_has_a_docstring(name):
    doc = inspect.getdoc(getattr(recipes, name))
    assert doc.partition("\n\n")[0].endswith(".")
    for kind, argument in HEADER[name][1]:
        assert f"{argument or 'ignored'}: {kind.split('::', 1)[-1]}" in doc


# --- All 47, with arguments that a fresh reference chip takes

CHIP = ChipInfo("leaf", 1)

CALLS = {
    "cpuPortInit": {},
    "lbPortInit": {},
    "programL2IfIngSystemPortTable": dict(modId=1, port=5, maxPorts=128, l2If=77, op=True),
    "verifyL2IfIngSystemPortTable": dict(modId=1, port=5, maxPorts=128, l2If=77, op=False),
    "programL2EifSystemDestinationTable": dict(modId=1, portOrLagId=5, maxPorts=128, l2If=77, lag=False, op=True),
    "verifyL2EifSystemDestinationTable": dict(modId=1, portOrLagId=5, maxPorts=128, l2If=77, lag=False, op=True),
    "setVxlanDefaultNetworkSvp": dict(svp=100),
    "setT4XVxlanDefaultNetworkSvp": {},
    "setVxlanUdpSourcePortSel": dict(ignored=0),
    "setVxlanDecapAdaptLookup": dict(port=5, enable=True),
    "getVxlanDecapAdaptLookup": dict(port=5),
    "setEgrTunnelEcnEncap": dict(index=5, outerEcn=2),
    "setIngTunnelEcnDecap": dict(index=5, innerEcn=1, changeEcn=True),
    "setOpaqueTagIngress": dict(tagType=3),
    "getOpaqueTagIngress": dict(tagType=3),
    "setOpaqueTagEgress": {},
    "getOpaqueTagEgress": {},
    "setOpaqueTagEgressEfp": {},
    "getOpaqueTagEgressEfp": {},
    "setInnerOpaqueTagIngress": {},
    "getInnerOpaqueTagIngress": {},
    "setInnerOpaqueTagEgress": {},
    "getInnerOpaqueTagEgress": {},
    "setInnerOpaqueTagEgressEpmod": {},
    "getInnerOpaqueTagEgressEpmod": {},
    "setDefip128StrengthProfile": {},
    "setL3TnlOverlayEgrL3Oif1StrengthProfile": {},
    "setL3TnlOverlayNhStrengthProfile": {},
    "setL3TnlOverlayEgrIpTnlStrengthProfile": {},
    "setL3TnlUnderlayIngNhStrengthProfile": {},
    "setMcastV6StrengthProfile": {},
    "setLearnCacheEnabled": dict(enable=True),
    "setLearnCacheDropEnabled": dict(enable=True),
    "programMonTraceCpu": dict(errorType="L3_URPF_FAIL"),
    "programPacketTraceForL3DstLookupMiss": {},
    "programPacketTraceForL3HdrError": {},
    "programPacketTraceForTtlError": {},
    "programPacketDropForMtuError": {},
    "setLoadBalanceRandSeedCtrl": dict(seed=12345),
    "setLoadBalanceRandSeedMem": dict(seed=12345),
    "mmuSpecialConfigInitPipe": dict(data_pipe=0, disableThdoInfo=True),
    "resetIngEnEfilterBitMap": dict(bitMapBits=256),
    "setEmRobustHashDisable": {},
    "setFlexctrIngressCounterActionEnable": {},
    "setFlexctrEgressCounterActionEnable": {},
    "enable1BitEccRpt": dict(mem="EGR_TUNNEL_ECN_ENCAPm", enable=True),
    "setVlanXlateMissDrop": {},
}
PREPARED = {name: "set" + name[3:] for name in HEADER if name.startswith("get") and "OpaqueTag" in name}
ETHERTYPE = 0x8100
RESULTS = {
    "verifyL2IfIngSystemPortTable": True,
    "verifyL2EifSystemDestinationTable": True,
    "getVxlanDecapAdaptLookup": False,
    **{name: ETHERTYPE for name in PREPARED},
}


def call(name, state, **others):
    given = {**CALLS[name], **others}
    parameters = inspect.signature(getattr(recipes, name)).parameters
    if "unit" in parameters:
        given.setdefault("unit", 0)
    if "chipInfo" in parameters:
        given.setdefault("chipInfo", state.chip_info(0))
    for shared in {"smData", "sm"} & set(parameters):
        given.setdefault(shared, state)
    return getattr(recipes, name)(**given)


@pytest.mark.parametrize("name", HEADER)
def test_runs_on_a_fresh_chip(name, chip, recorder, shared_state):
    if name in PREPARED:
        call(PREPARED[name], shared_state)
        recorder.clear()
    assert call(name, shared_state) == RESULTS.get(name)
    assert recorder.operations[0].call == "bcmlt_entry_allocate"
    assert all(operation.unit == 0 for operation in recorder.operations)
    assert chip.live_entries == []


# --- The tables of some, typed from the tables' document

def test_cpu_ports(chip, shared_state):
    recipes.cpuPortInit(smData=shared_state)
    assert chip.table("PC_PORT_PHYS_MAP") == [{"PORT_ID": 0, "PC_PHYS_PORT_ID": 0}]
    assert chip.table("PC_PORT") == [{"PORT_ID": 0, "ENABLE": 1, "NUM_LANES": 1, "SPEED": 10000}]


def test_recirculation_ports(chip, shared_state):
    shared_state.set_recirculation_port(interface=1001, unit=0, port=67)
    shared_state.set_hardware_port(unit=0, port=67, hardware_port=259)
    recipes.lbPortInit(smData=shared_state)
    assert chip.table("PC_PORT_PHYS_MAP") == [
        {"PORT_ID": 66, "PC_PHYS_PORT_ID": 258},
        {"PORT_ID": 67, "PC_PHYS_PORT_ID": 259},
    ]


def test_system_ports(chip, shared_state):
    info = shared_state.chip_info(0)
    given = dict(chipInfo=info, unit=0, modId=1, port=5, maxPorts=128, l2If=77)
    recipes.programL2IfIngSystemPortTable(**given, op=True)
    [row] = chip.table("ING_SYSTEM_PORT_TABLE")
    assert row["L2_IIF"] == 77
    assert recipes.verifyL2IfIngSystemPortTable(**given, op=True) is True
    assert recipes.verifyL2IfIngSystemPortTable(**{**given, "l2If": 78}, op=True) is False
    recipes.programL2IfIngSystemPortTable(**given, op=False)
    assert chip.table("ING_SYSTEM_PORT_TABLE") == []


def test_system_ports_of_a_chip_that_numbers_its_own(chip, shared_state):
    info = shared_state.chip_info(0)
    set_profile(info, system_port_bits=7, has_range_table_index=True)
    recipes.programL2IfIngSystemPortTable(info, 0, 3, 5, 128, 77, True)
    number = (3 << 7) + 5
    assert chip.table("ING_SYSTEM_PORT_TABLE") == [
        {"SYSTEM_SOURCE": number, "L2_IIF": 77, "RANGE_TABLE_INDEX": number}
    ]


def test_trunk_destination(chip, shared_state):
    recipes.programL2EifSystemDestinationTable(shared_state.chip_info(0), 0, 1, 9, 128, 77, lag=True, op=True)
    assert chip.table("L2_EIF_SYSTEM_DESTINATION") == [{"L2_EIF_ID": 77, "IS_TRUNK": 1, "TRUNK_ID": 9}]


def test_vxlan_controls(chip):
    recipes.setVxlanDefaultNetworkSvp(unit=0, svp=100)
    recipes.setVxlanUdpSourcePortSel(0, 0)
    assert chip.table("TNL_L2_VXLAN_CONTROL") == [{"DEFAULT_NETWORK_SVP": 100, "SRC_L4_PORT_SELECT": "HASH_ENTROPY"}]


def test_decap_adapt_lookup_is_per_port(chip):
    recipes.setVxlanDecapAdaptLookup(unit=0, port=5, enable=True)
    assert chip.table("EGR_VLAN_CONTROL_1r").row(port=5)["VXLAN_DECAP_ADAPT_LOOKUP_ENABLE"] == 1
    assert chip.table("EGR_VLAN_CONTROL_1r").row(port=6)["VXLAN_DECAP_ADAPT_LOOKUP_ENABLE"] == 0
    assert recipes.getVxlanDecapAdaptLookup(0, 5) is True


def test_tunnel_ecn(chip):
    recipes.setEgrTunnelEcnEncap(unit=0, index=5, outerEcn=2)
    recipes.setIngTunnelEcnDecap(unit=0, index=7, innerEcn=3, changeEcn=False)
    assert chip.table("EGR_TUNNEL_ECN_ENCAPm") == [{"index": 5, "OUTER_ECN": 2}]
    assert chip.table("ING_TUNNEL_ECN_DECAPm") == [{"index": 7, "INNER_ECN": 3, "CHANGE_INNER_ECN": 0}]
    assert chip.table("EGR_TUNNEL_ECN_ENCAPm").row(index=5).written == {"OUTER_ECN"}


def test_opaque_tags(chip):
    recipes.setOpaqueTagIngress(unit=0, tagType=3)
    assert chip.table("OPAQUE_TAG_CONFIGr") == [
        {"TAG_SIZE": 1, "OPAQUE_TAG_TYPE": 3, "VALID": 1, "ETHERTYPE": 0x8100}
    ]
    assert recipes.getOpaqueTagIngress(unit=0, tagType=3) == 0x8100


def test_strength_profiles(chip):
    recipes.setL3TnlOverlayEgrL3Oif1StrengthProfile(unit=0)
    recipes.setL3TnlUnderlayIngNhStrengthProfile(unit=0)
    recipes.setDefip128StrengthProfile(unit=0)
    assert chip.table("EGR_L3_OIF_1_STR_PROFILE") == [
        {"EGR_L3_OIF_1_STR_PROFILE_INDEX": 18, "TUNNEL_IDX_STR": 5, "OBJ_TABLE_SEL_1": 2}
    ]
    assert chip.table("ING_L3_NEXT_HOP_2_STRENGTH_PROFILE") == [
        {
            "ING_L3_NEXT_HOP_2_STRENGTH_PROFILE_INDEX": 9,
            "L2MC_L3MC_L2_OIF_SYS_DST_VALID_STRENGTH": 7,
            "DESTINATION_STRENGTH": 7,
        }
    ]
    [row] = chip.table("L3_IPV6_UNICAST_DEFIP_128_STRENGTH_PROFILE")
    assert {row[field] for field in row.written} == {4}
    assert len(row.written) == 7


def test_multicast_strengths_of_a_chip_that_is_blocked_at_stage_108(chip, shared_state):
    set_stage_blocked(shared_state.chip_info(0), 108)
    recipes.setMcastV6StrengthProfile(sm=shared_state)
    for table, strength in (
        ("L3_IPV6_MULTICAST_2_STRENGTH_PROFILE", 6),
        ("L3_IPV6_MULTICAST_1_STRENGTH_PROFILE", 5),
    ):
        [row] = chip.table(table)
        assert row.written == {
            "RPA_ID_STRENGTH",
            "L3_DST_MISC_CTRL_1_STRENGTH",
            "L3_DST_MISC_CTRL_0_STRENGTH",
            "L3_DST_CLASS_ID_STRENGTH",
            "L3_DST_DESTINATION_TYPE_STRENGTH",
            "L3_DST_DESTINATION_STRENGTH",
        }
        assert {row[field] for field in row.written} == {strength}


def test_learn_cache(chip):
    recipes.setLearnCacheEnabled(unit=0, enable=True)
    recipes.setLearnCacheDropEnabled(unit=0, enable=False)
    assert chip.table("LEARN_CACHE_DATA_CONTROL").row(LEARN_CACHE_DATA_INFO_ID="LEARN_L2_VIEW")["LEARN_CACHE"] == 1
    assert chip.table("LEARN_CACHE_DROP_CONTROL").row(EVENT_ID="L2_DST_DISCARD")["LEARN_CACHE"] == 0


def test_monitor_events(chip):
    recipes.programPacketTraceForTtlError(unit=0)
    recipes.programPacketDropForMtuError(unit=0)
    assert chip.table("MON_ING_TRACE_EVENT") == [{"MON_ING_TRACE_EVENT_ID": "L3_TTL_ERROR", "CPU": 1}]
    assert chip.table("MON_ING_DROP_EVENT") == [
        {"MON_ING_DROP_EVENT_ID": "L3_MTU_CHECK_FAILED", "CPU": 1, "LOOPBACK": 0}
    ]


def test_seeds(chip):
    recipes.setLoadBalanceRandSeedCtrl(unit=0, seed=0xDEADBEEF)
    for instance in range(3):
        assert chip.table(f"IPOST_LAG_RAND_NUM_CTRL_{instance}r").row()["SEED"] == 0xDEADBEEF


def test_bitmap_is_cleared_by_the_word(chip):
    recipes.resetIngEnEfilterBitMap(unit=0, bitMapBits=65)
    bitmap = chip.table("ING_EN_EFILTER_BITMAPm").row(index=0)["BITMAP"]
    assert bitmap[:2] == (0, 0)
    assert all(word != 0 for word in bitmap[2:])


def test_vlan_miss_policy(chip, shared_state):
    recipes.setVlanXlateMissDrop(sm=shared_state)
    assert chip.table("R_VLAN_XLATE_MISS_POLICY") == [{"OPAQUE_CTRL_ID": 4}]


# --- What is refused before anything is called

RANGES = {"uint8_t": 0xFF, "uint16_t": 0xFFFF, "uint32_t": 0xFFFFFFFF}


@pytest.mark.parametrize(
    "name, argument, most",
    [
        (name, argument or "ignored", 4096 if argument == "bitMapBits" else RANGES[kind])
        for name, (_, parameters) in HEADER.items()
        for kind, argument in parameters
        if kind in RANGES
    ],
)
@pytest.mark.parametrize("beyond", [-1, 1, 2**64])
def test_numbers_out_of_range(name, argument, most, beyond, recorder, shared_state):
    value = most + beyond if beyond > 0 else beyond
    with pytest.raises(ValueError, match=rf"^{name}: {argument} is 0 to {most}\b.*, not {value}$"):
        call(name, shared_state, **{argument: value})
    assert recorder.events == []


@pytest.mark.parametrize(
    "given, error, words",
    [
        (dict(index=True), TypeError, "index is an integer, not bool"),
        (dict(index="5"), TypeError, "index is an integer, not str"),
        (dict(index=5.0), TypeError, "index is an integer, not float"),
        (dict(index=None), TypeError, "index is an integer, not NoneType"),
        (dict(unknown=1), TypeError, "unexpected keyword argument 'unknown'"),
    ],
)
def test_wrong_types(given, error, words, recorder):
    with pytest.raises(error, match=words):
        recipes.setEgrTunnelEcnEncap(**{"unit": 0, "index": 5, "outerEcn": 2, **given})
    assert recorder.events == []


def test_flags_texts_chips_and_states_are_checked(recorder, shared_state):
    with pytest.raises(TypeError, match="enable is a bool, not int"):
        recipes.setLearnCacheEnabled(0, 1)
    with pytest.raises(TypeError, match="errorType is a text, not bytes"):
        recipes.programMonTraceCpu(0, b"L3_TTL_ERROR")
    with pytest.raises(ValueError, match="errorType has a NUL character"):
        recipes.programMonTraceCpu(0, "L3\0")
    with pytest.raises(ValueError):
        recipes.programMonTraceCpu(0, "\ud800")
    with pytest.raises(TypeError, match="chipInfo is a ChipInfo, not str"):
        recipes.programL2IfIngSystemPortTable("leaf", 0, 1, 5, 128, 77, True)
    with pytest.raises(TypeError, match="smData is a SharedState, not NoneType"):
        recipes.cpuPortInit(None)
    with pytest.raises(ValueError, match="sm has no module"):
        recipes.setVlanXlateMissDrop(SharedState())
    assert recorder.events == []


def test_limit_tells_its_reason(chip):
    with pytest.raises(ValueError, match="is 0 to 4096, because the recipe has that many zeros"):
        recipes.resetIngEnEfilterBitMap(0, 4097)


def test_without_an_sdk():
    with pytest.raises(RuntimeError, match=r"there is no SDK; install one"):
        recipes.setEgrTunnelEcnEncap(0, 5, 2)
