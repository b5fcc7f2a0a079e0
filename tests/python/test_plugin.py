"""The pytest plugin, as tests of a user see it."""

import cairn_lt

pytest_plugins = "pytester"

HEAD = """
import cairn_lt
from cairn_lt import recipes
"""


def run(pytester, text):
    pytester.makepyfile(HEAD + text)
    # In a process of its own: the SDK in force is the process's.
    return pytester.runpytest_subprocess("-p", "no:cacheprovider", "-q")


def test_fixtures(pytester):
    result = run(
        pytester,
        """
def test_chip(chip, recorder, faults, shared_state):
    assert cairn_lt.installed_sdk() is recorder
    recipes.cpuPortInit(shared_state)
    assert chip.table("PC_PORT") == [{"PORT_ID": 0}]
    assert len(recorder.operations) == 12

def test_each_test_has_its_own(chip):
    assert chip.table("PC_PORT") == []

def test_without():
    assert cairn_lt.installed_sdk() is None
""",
    )
    result.assert_outcomes(passed=3)


def test_another_chip(pytester):
    result = run(
        pytester,
        """
import pytest

@pytest.fixture
def chip_units():
    small = cairn_lt.Schema.reference()
    small.resize("EGR_TUNNEL_ECN_ENCAPm", rows=4)
    return {3: small}

def test_small(chip, shared_state):
    assert chip.units == [3]
    recipes.setEgrTunnelEcnEncap(3, 3, 2)
    assert cairn_lt.run_isolated(lambda: recipes.setEgrTunnelEcnEncap(3, 4, 2)).stopped
    recipes.setVlanXlateMissDrop(shared_state)
    assert chip.table("R_VLAN_XLATE_MISS_POLICY", unit=3) == [{"OPAQUE_CTRL_ID": 4}]
""",
    )
    result.assert_outcomes(passed=1)


def test_a_failed_assertion_shows_the_rows_side_by_side(pytester):
    result = run(
        pytester,
        """
def test_rows(chip):
    for index in range(3):
        recipes.setEgrTunnelEcnEncap(0, index, index)
    assert chip.table("EGR_TUNNEL_ECN_ENCAPm") == [
        {"index": 0, "OUTER_ECN": 0},
        {"index": 1, "OUTER_ECN": 3},
    ]
""",
    )
    result.assert_outcomes(failed=1)
    result.stdout.fnmatch_lines(
        [
            "E*assert EGR_TUNNEL_ECN_ENCAPm of unit 0: 3 rows, 2 wanted",
            "E*  index  OUTER_ECN | index  OUTER_ECN",
            "E*  0      0         | 0      0",
            "E*! 1      1         | 1      3",
            "E*! 2      2         |",
        ]
    )


def test_side_by_side_names_all_fields_where_nothing_is_wanted(chip):
    cairn_lt.recipes.setEgrTunnelEcnEncap(0, 1, 2)
    from cairn_lt._assertions import side_by_side

    lines = side_by_side(chip.table("EGR_TUNNEL_ECN_ENCAPm"), [])
    assert lines[0] == "EGR_TUNNEL_ECN_ENCAPm of unit 0: 1 rows, 0 wanted"
    assert lines[1].split("|")[0].split() == ["index", "OUTER_ECN", "INT_CN_MAP", "ECN_PROFILE"]
    assert lines[2].startswith("! 1      2")


def test_comparisons_of_other_things_are_left_to_pytest(pytester):
    result = run(pytester, "def test_other(chip):\n    assert chip.table('PC_PORT') == 5\n")
    result.assert_outcomes(failed=1)
