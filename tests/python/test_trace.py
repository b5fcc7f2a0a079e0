"""The binary trace and the text trace."""

import os

import pytest

import cairn_lt
from cairn_lt import Trace, TraceError, read_trace, recipes, run_isolated


@pytest.fixture
def folder(tmp_path):
    cairn_lt.open_trace(str(tmp_path / "trace"))
    yield tmp_path / "trace"
    cairn_lt.close_trace()


def test_records_have_typed_values(chip, folder):
    recipes.setLoadBalanceRandSeedCtrl(0, 12345)
    recipes.enable1BitEccRpt(0, "EGR_TUNNEL_ECN_ENCAPm", True)
    cairn_lt.close_trace()
    seed, ecc = read_trace(folder)
    assert seed.function == "setLoadBalanceRandSeedCtrl"
    assert seed.text == str(seed) == "setLoadBalanceRandSeedCtrl unit: 0 seed: 12345"
    assert seed.values == (0, 12345)
    assert (seed.file, seed.process) == ("Cairn/CairnLtHelper", os.getpid())
    assert seed.line > 0 and seed.time <= ecc.time
    assert ecc.values[0] == 0 and ecc.values[2:] == ("EGR_TUNNEL_ECN_ENCAPm", True)
    assert ecc.values[3] is True


def test_it_is_an_iterator(chip, folder):
    for seed in range(3):
        recipes.setLoadBalanceRandSeedCtrl(0, seed)
    trace = Trace(folder)
    assert next(trace).values == (0, 0)
    assert [record.values[1] for record in trace] == [1, 2]
    with pytest.raises(StopIteration):
        next(trace)
    assert trace.findings == []


def test_what_a_stopped_process_had_said(chip, tmp_path):
    def function():
        cairn_lt.open_trace(str(tmp_path / "trace"))
        recipes.setLoadBalanceRandSeedCtrl(7, 12345)
        recipes.programMonTraceCpu(0, "NO_SUCH")

    assert run_isolated(function).stopped
    assert [record.values for record in read_trace(tmp_path / "trace")][-1] == (0, "NO_SUCH")


def test_files_that_cannot_be_read(tmp_path):
    with pytest.raises(TraceError, match="none"):
        Trace(tmp_path / "none")
    (tmp_path / "text").write_text("text")
    with pytest.raises(TraceError, match="text"):
        Trace(tmp_path / "text")
    (tmp_path / "folder").mkdir()
    (tmp_path / "folder" / "bad.fleetlog").write_text("text")
    trace = Trace(tmp_path / "folder")
    assert list(trace) == []
    assert len(trace.findings) == 1 and "bad.fleetlog" in trace.findings[0]


def test_damage_is_found(chip, folder):
    recipes.setLoadBalanceRandSeedCtrl(0, 1)
    cairn_lt.close_trace()
    [file] = folder.iterdir()
    content = file.read_bytes()
    file.write_bytes(content[: len(content) // 2])
    trace = Trace(folder)
    list(trace)
    assert trace.findings != []


def test_text_trace(chip, tmp_path):
    cairn_lt.trace_to_file(str(tmp_path / "lines"))
    cairn_lt.trace_levels("ApiCairn/4")
    try:
        recipes.setEgrTunnelEcnEncap(0, 5, 2)
    finally:
        cairn_lt.trace_off()
        cairn_lt.trace_to_standard_error()
    recipes.setEgrTunnelEcnEncap(0, 6, 2)
    lines = (tmp_path / "lines").read_text().splitlines()
    assert len(lines) == 5
    assert lines[4].endswith("bcmlt_entry_free( egrTunnelEcnEncapEntry ) (rc:0)")


def test_text_trace_settings_are_checked(tmp_path):
    with pytest.raises(ValueError):
        cairn_lt.trace_levels("ApiCairn/x")
    with pytest.raises(OSError):
        cairn_lt.trace_to_file(str(tmp_path / "no" / "lines"))
