"""The recorder and the faults."""

import pytest

from cairn_lt import Chip, Fault, FaultInjector, Recorder, installed, recipes, run_isolated

ENCAP = "EGR_TUNNEL_ECN_ENCAPm"


def test_recorded_operations_are_values(recorder):
    recipes.setEgrTunnelEcnEncap(unit=0, index=5, outerEcn=2)
    allocate, index, ecn, commit, free = recorder.operations
    assert (allocate.call, allocate.unit, allocate.table, allocate.rc) == ("bcmlt_entry_allocate", 0, ENCAP, 0)
    assert (index.field, index.values, index.handle) == ("BCMLT_PT_INDEX", (5,), allocate.handle)
    assert (ecn.field, ecn.values) == ("OUTER_ECN", (2,))
    assert (commit.opcode, commit.priority) == ("BCMLT_PT_OPCODE_MODIFY", "BCMLT_PRIORITY_NORMAL")
    assert {(each.opcode, each.priority, each.attribute) for each in (allocate, index, ecn, free)} == {("", "", "")}
    assert commit.attribute == ""
    assert str(free) == f"bcmlt_entry_free entry {allocate.handle} {ENCAP} -> rc 0"
    assert all(operation.returned for operation in recorder.operations)


def test_hooks_are_events(recorder, chip):
    recipes.setEgrTunnelEcnEncap(0, 5, 2)
    assert [event.call for event in recorder.events if not event.call.startswith("bcmlt_")] == ["preCallHook"] * 5
    assert len(recorder) == 10
    assert chip.pre_call_count == 5 and chip.failure_count == 0
    recorder.clear()
    assert recorder.events == []


def test_symbols_and_reads_are_recorded(recorder):
    recipes.setVxlanUdpSourcePortSel(0, 0)
    assert [each.symbol for each in recorder.operations if each.symbol] == ["HASH_ENTROPY"]
    recorder.clear()
    recipes.setInnerOpaqueTagEgressEpmod(0)
    recipes.getInnerOpaqueTagEgressEpmod(0)
    assert [each.values for each in recorder.operations if each.call == "bcmlt_entry_field_get"] == [(0x8100,)]


def test_values_of_64_bits_are_recorded():
    recorder = Recorder(Chip())
    recorder.bcmlt_entry_field_add(1, "F", 2**64 - 1)
    assert recorder.operations[0].values == (2**64 - 1,)


def test_a_fault_strikes(faults, recorder):
    fault = faults.add(f"op=pt_entry_commit,table={ENCAP},rc=7,at=2")
    recipes.setEgrTunnelEcnEncap(0, 5, 2)
    assert [str(each) for each in faults.unfired] == [str(fault)]
    recipes.setEgrTunnelEcnEncap(0, 6, 2)
    assert [each.rc for each in recorder.operations if each.call == "bcmlt_pt_entry_commit"] == [0, 7]
    [(reported, matches, strikes)] = faults.reports
    assert (str(reported), matches, strikes) == (str(fault), 2, 1)
    assert faults.unfired == []


def test_a_fault_that_stops(faults):
    faults.add(Fault.parse("op=pt_entry_commit,rc=-30"))
    ended = run_isolated(lambda: recipes.setEgrTunnelEcnEncap(0, 5, 2))
    assert ended.stopped and ended.recipe == "setEgrTunnelEcnEncap" and ended.code == -30


def test_faults_that_make_no_sense(faults):
    with pytest.raises(ValueError, match='fault "op=comit,rc=-1": .*commit'):
        faults.add("op=comit,rc=-1")
    with pytest.raises(ValueError, match='fault "op=commit"'):
        Fault.parse("op=commit")


def test_fault_reads_back():
    fault = Fault.parse("op=commit, rc=-26, at=2, always")
    assert str(Fault.parse(str(fault))) == str(fault)
    assert repr(fault) == f'Fault.parse( "{fault}" )'


def test_the_fixtures_are_one_bench(chip, faults, recorder):
    faults.add("op=commit,rc=5")
    recipes.setVxlanDefaultNetworkSvp(0, 9)
    assert chip.table("TNL_L2_VXLAN_CONTROL") == [{"DEFAULT_NETWORK_SVP": 9}]
    assert recorder.operations[-2].rc == 5


def test_a_recorder_keeps_what_is_behind_it():
    with installed(Recorder(FaultInjector(Chip()))) as recorder:
        recipes.setEgrTunnelEcnEncap(0, 5, 2)
        assert len(recorder.operations) == 5
