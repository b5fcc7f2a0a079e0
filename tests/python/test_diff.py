"""What differs between two chips."""

import pytest

from cairn_lt import Chip, Schema, diff, diff_text, recipes

ENCAP = "EGR_TUNNEL_ECN_ENCAPm"


def test_nothing_differs(chip):
    assert diff(chip, chip.copy()) == []
    assert diff(Chip(), Chip()) == []


def test_physical_rows(chip):
    recipes.setEgrTunnelEcnEncap(0, 5, 1)
    before = chip.copy()
    recipes.setEgrTunnelEcnEncap(0, 5, 2)
    recipes.setEgrTunnelEcnEncap(0, 6, 3)
    changed, added = diff(before, chip)
    assert (changed.kind, changed.unit, changed.table) == ("changed", 0, ENCAP)
    assert changed.fields == {"OUTER_ECN": (1, 2)}
    assert changed.before["index"] == changed.after["index"] == 5
    assert (added.kind, added.after["OUTER_ECN"]) == ("added", 3)
    assert [each.kind for each in diff(chip, before)] == ["changed", "removed"]


def test_logical_rows(chip, shared_state):
    before = chip.copy()
    recipes.cpuPortInit(shared_state)
    ports = [each for each in diff(before, chip) if each.table == "PC_PORT"]
    assert [each.kind for each in ports] == ["added"]
    assert ports[0].before is None
    assert ports[0].fields["SPEED"] == (None, 10000)


def test_hardware_counts(chip):
    before = chip.copy()
    chip.poke_hardware("EGR_VLAN_CONTROL_1r", "VXLAN_DECAP_ADAPT_LOOKUP_ENABLE", 1, port=5)
    [found] = diff(before, chip)
    assert found.fields == {} and found.after.hardware == {"VXLAN_DECAP_ADAPT_LOOKUP_ENABLE": 1}
    assert diff(chip, chip.copy()) == []


def test_text(chip):
    before = chip.copy()
    recipes.setEgrTunnelEcnEncap(0, 5, 2)
    assert any(line.startswith("+") and ENCAP not in line for line in diff_text(before, chip).splitlines())


def test_chips_of_another_kind():
    with pytest.raises(ValueError):
        diff(Chip(), Chip({1: Schema.reference()}))
