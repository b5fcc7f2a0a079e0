"""Bring-up files, run from Python."""

import os
import pathlib

import pytest

import cairn_lt
from cairn_lt import FaultInjector, InputError, Recorder, bringup, run_isolated

EXAMPLES = pathlib.Path(os.environ["CAIRN_SOURCE"]) / "examples"


def test_the_example_is_run():
    done = bringup(EXAMPLES / "bringup.toml")
    assert done.good and all(step.good for step in done.steps)
    assert done.chip.table("PC_PORT").row(PORT_ID=66)["SPEED"] == 10000
    assert done.chip.live_entries == []
    assert done.steps[0].recipe == "cpuPortInit" and done.steps[0].text == "cpuPortInit()"
    assert done.state.chip_info(0).name == "leaf"
    assert {step.recipe for step in done.steps} >= set(cairn_lt.recipes.__all__)
    assert cairn_lt.installed_sdk() is None


def test_a_recorder_in_front():
    recorders = []

    def wrap(chip):
        recorders.append(Recorder(chip))
        return recorders[0]

    bringup(EXAMPLES / "bringup.toml", wrap=wrap)
    assert recorders[0].operations[0].table == "PC_PORT_PHYS_MAP"


FILE = """
[[chips]]
name = "leaf"
unit = 0

[[steps]]
recipe = "setOpaqueTagEgress"
arguments = [ 0 ]

[[steps]]
recipe = "getOpaqueTagEgress"
arguments = [ 0 ]
expect = EXPECTED

[[steps]]
poke = { unit = 0, table = "EGR_EPARS_OPAQUE_TAG_CONFIGr", field = "ETHERTYPE", value = 1 }
"""


def test_results(tmp_path):
    file = tmp_path / "bringup.toml"
    file.write_text(FILE.replace("EXPECTED", "0x8100"))
    done = bringup(file)
    assert [(step.recipe, step.result, step.expected, step.good) for step in done.steps] == [
        ("setOpaqueTagEgress", None, None, True),
        ("getOpaqueTagEgress", 0x8100, 0x8100, True),
        (None, None, None, True),
    ]
    assert done.steps[1].line == 11
    assert done.chip.table("EGR_EPARS_OPAQUE_TAG_CONFIGr").row().hardware == {"ETHERTYPE": 1}
    file.write_text(FILE.replace("EXPECTED", "1"))
    assert not bringup(file).good


def test_a_wrong_file(tmp_path):
    file = tmp_path / "bringup.toml"
    file.write_text('[[chips]]\nname = "leaf"\nunit = 0\n\n[[steps]]\nrecipe = "setNoSuch"\n')
    with pytest.raises(InputError, match="setNoSuch") as error:
        bringup(file)
    assert error.value.file == str(file) and error.value.line > 0
    with pytest.raises(InputError):
        bringup(tmp_path / "none.toml")


def test_a_stop_on_the_way():
    def wrap(chip):
        faults = FaultInjector(chip)
        faults.add("op=commit,table=PC_PORT,rc=-26")
        return faults

    ended = run_isolated(lambda: bringup(EXAMPLES / "bringup.toml", wrap=wrap))
    assert ended.stopped and ended.recipe == "cpuPortInit"
    assert (ended.call.table, ended.code) == ("PC_PORT", -26)
