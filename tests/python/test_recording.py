"""Recordings: written by the trace recorder, read, replayed and compared."""

import os
import pathlib
import signal

import pytest

import cairn_lt
from cairn_lt import (
    Chip,
    HardwareChange,
    InputError,
    RecordedCall,
    Recorder,
    Recording,
    Schema,
    Sdk,
    TraceError,
    TraceRecord,
    TraceRecorder,
    bringup,
    diff,
    diff_recordings,
    installed,
    read_recording,
    recipes,
    record_to,
    replay,
    run_isolated,
)

ENCAP = "EGR_TUNNEL_ECN_ENCAPm"
EXAMPLES = pathlib.Path(os.environ["CAIRN_SOURCE"]) / "examples"


@pytest.fixture
def folder(tmp_path):
    return tmp_path / "recording"


def record(folder, *indexes, ecn=2):
    """A recording of a recipe on a chip of its own."""
    with installed(Chip()), record_to(folder):
        for index in indexes:
            recipes.setEgrTunnelEcnEncap(0, index, ecn)
    return folder


def test_calls_are_typed_values(chip, folder):
    with record_to(folder):
        recipes.setEgrTunnelEcnEncap(0, 5, 2)
    allocate, index, ecn, commit, free = read_recording(folder)
    assert (allocate.call, allocate.unit, allocate.table, allocate.rc) == ("bcmlt_entry_allocate", 0, ENCAP, 0)
    assert (index.field, index.values, index.handle) == ("BCMLT_PT_INDEX", (5,), allocate.handle)
    assert (ecn.field, ecn.values, ecn.unit, ecn.table) == ("OUTER_ECN", (2,), 0, ENCAP)
    assert (commit.opcode, commit.priority) == ("BCMLT_PT_OPCODE_MODIFY", "BCMLT_PRIORITY_NORMAL")
    assert str(free) == f"bcmlt_entry_free entry {allocate.handle} {ENCAP} -> rc 0"
    assert free.process == os.getpid() and free.thread > 0
    assert allocate.time <= allocate.end_time <= free.time <= free.end_time
    assert all(call.returned and call.whole for call in (allocate, index, ecn, commit, free))


def test_hooks_and_locks(chip, folder):
    with record_to(folder):
        recipes.setVxlanDefaultNetworkSvp(0, 9)
        recipes.setEgrTunnelEcnEncap(0, 5, 2)  # it keeps the locks
    calls = list(Recording(folder))
    assert [call.call for call in calls[:2]] == ["preCallHook", "bcmlt_entry_allocate"]
    assert calls[0].lock_held is True and calls[1].lock_held is False
    assert calls[-1].table == ENCAP and calls[-1].lock_held is True
    assert [call.number for call in calls] == list(range(1, len(calls) + 1))


def test_symbols_reads_arrays_and_wide_values(chip, folder):
    sdk = TraceRecorder(chip, folder)
    with installed(sdk):
        recipes.setVxlanUdpSourcePortSel(0, 0)
        recipes.setInnerOpaqueTagEgressEpmod(0)
        recipes.getInnerOpaqueTagEgressEpmod(0)
    sdk.bcmlt_entry_field_add(1, "F", 2**64 - 1)
    sdk.bcmlt_entry_field_array_add(1, "A", 2, [2**64 - 1, 0])
    sdk.bcmlt_entry_attrib_set(1, sdk.BCMLT_ENT_ATTR_GET_FROM_HW())
    sdk.bcmlt_entry_commit(1, 77, sdk.BCMLT_PRIORITY_NORMAL())
    calls = read_recording(folder)
    assert [call.symbol for call in calls if call.symbol] == ["HASH_ENTROPY"]
    assert [call.values for call in calls if call.call == "bcmlt_entry_field_get"] == [(0x8100,)]
    wide, array, attribute, commit = calls[-4:]
    assert wide.values == (2**64 - 1,) and wide.rc < 0
    assert (array.start_index, array.count, array.values) == (2, 2, (2**64 - 1, 0))
    assert attribute.attribute == "BCMLT_ENT_ATTR_GET_FROM_HW"
    assert (commit.opcode, commit.priority) == ("77", "BCMLT_PRIORITY_NORMAL")


def test_it_says_what_the_recorder_in_memory_says(chip, recorder, folder):
    with record_to(folder):
        recipes.setLearnCacheEnabled(0, True)
        recipes.setOpaqueTagIngress(0, 3)
    read = read_recording(folder)
    for member in ("call", "handle", "unit", "table", "field", "symbol", "values", "opcode", "priority", "rc"):
        assert [getattr(each, member) for each in read] == [getattr(each, member) for each in recorder.operations]


def test_it_is_an_iterator(chip, folder):
    record(folder, 1, 2, 3)
    recording = Recording(folder)
    assert iter(recording) is recording
    assert next(recording).number == 1
    assert len(list(recording)) == 3 * 10 - 1
    with pytest.raises(StopIteration):
        next(recording)
    assert recording.findings == [] and not recording.lost_beginning
    assert recording.processes == [os.getpid()]


def test_messages_are_in_the_same_order(chip, tmp_path):
    cairn_lt.open_trace(tmp_path)
    try:
        with record_to(tmp_path):
            recipes.setLoadBalanceRandSeedCtrl(0, 7)
    finally:
        cairn_lt.close_trace()
    first, *calls = Recording(tmp_path, messages=True)
    assert isinstance(first, TraceRecord) and first.values == (0, 7)
    assert calls and all(isinstance(call, RecordedCall) for call in calls)
    assert len(list(Recording(tmp_path))) == len(calls)


def test_raw_records_have_typed_values(chip, folder):
    sdk = TraceRecorder(chip, folder)
    sdk.bcmlt_entry_field_add(1, "F", 2**64 - 1)
    sdk.bcmlt_entry_field_array_add(1, "A", 0, [1, 2**63])
    values = [value for record in cairn_lt.read_trace(folder) for value in record.values]
    assert 2**64 - 1 in values and (1, 2**63) in values
    assert any(isinstance(value, int) and value < 0 for value in values)  # a code


def test_changes_of_the_hardware(chip, folder):
    with record_to(folder) as recorder:
        where = dict(port=5)
        chip.poke_hardware("EGR_VLAN_CONTROL_1r", "VXLAN_DECAP_ADAPT_LOOKUP_ENABLE", 1, **where)
        recorder.note_hardware_change("EGR_VLAN_CONTROL_1r", "VXLAN_DECAP_ADAPT_LOOKUP_ENABLE", 1, **where)
        recipes.setEgrTunnelEcnEncap(0, 5, 2)
    change = next(Recording(folder))
    assert isinstance(change, HardwareChange)
    assert (change.unit, change.table, change.port) == (0, "EGR_VLAN_CONTROL_1r", 5)
    assert (change.field, change.element, change.value) == ("VXLAN_DECAP_ADAPT_LOOKUP_ENABLE", 0, 1)
    assert (change.index, change.instance) == (0, 0)
    assert diff(replay(folder).chip, chip) == []


def test_a_process_that_was_stopped(chip, faults, folder):
    faults.add("op=pt_entry_commit,rc=-30")

    def function():
        with record_to(folder):
            recipes.setEgrTunnelEcnEncap(0, 5, 2)

    assert run_isolated(function).stopped
    *_, commit, hook = Recording(folder)
    assert (commit.call, commit.rc, hook.call) == ("bcmlt_pt_entry_commit", -30, "failureHook")
    assert replay(folder).failures_from_outside == 1


def test_a_call_that_never_returned(folder):
    class Killed(Sdk):
        def bcmlt_entry_allocate(self, unit, table):
            os.kill(os.getpid(), signal.SIGKILL)

    def function():
        with installed(Killed()), record_to(folder):
            recipes.setEgrTunnelEcnEncap(0, 5, 2)

    assert run_isolated(function).signal == signal.SIGKILL
    *_, call = Recording(folder)
    assert (call.call, call.returned, call.end_time) == ("bcmlt_entry_allocate", False, None)
    assert replay(folder).left_out == 1


def test_the_newest_calls_alone(folder):
    with installed(TraceRecorder(Chip(), folder, everything=False, file_bytes=16384)):
        for index in range(200):
            recipes.setEgrTunnelEcnEncap(0, index, 2)
    recording = Recording(folder)
    calls = list(recording)
    assert recording.lost_beginning and 0 < len(calls) < 200 * 10
    assert calls[-1].call == "bcmlt_entry_free"
    assert replay(folder).lost_beginning


def test_a_call_on_an_entry_from_before_the_recording(chip, folder):
    recorder = TraceRecorder(chip, folder)
    recorder.bcmlt_entry_free(7)
    [call] = Recording(folder)
    assert (call.handle, call.unit, call.table) == (7, -1, "")
    assert call.rc < 0 and call.whole


def test_there_must_be_an_sdk(folder):
    assert cairn_lt.installed_sdk() is None
    with pytest.raises(RuntimeError, match="install one first"):
        with record_to(folder):
            pass


def test_the_sdk_before_is_back(chip, recorder, folder):
    with record_to(folder) as trace_recorder:
        assert cairn_lt.installed_sdk() is trace_recorder
    assert cairn_lt.installed_sdk() is recorder


def test_what_cannot_be_recorded_or_read(chip, tmp_path):
    (tmp_path / "file").write_text("")
    with pytest.raises(OSError):
        TraceRecorder(chip, tmp_path / "file" / "folder")
    with pytest.raises(TraceError, match="none"):
        Recording(tmp_path / "none")
    with pytest.raises(ValueError, match="name a folder"):
        Recording()
    with pytest.raises(TraceError, match="no trace files"):
        (tmp_path / "empty").mkdir()
        replay(tmp_path / "empty")
    cairn_lt.open_trace(tmp_path / "trace")
    recipes.setLoadBalanceRandSeedCtrl(0, 7)
    cairn_lt.close_trace()
    with pytest.raises(TraceError, match="no SDK calls"):
        Recording(tmp_path / "trace")


def test_damage_is_found(folder):
    record(folder, *range(50))
    [file] = folder.iterdir()
    content = bytearray(file.read_bytes())
    content[len(content) // 2 :] = b"\xff" * (len(content) - len(content) // 2)
    file.write_bytes(content)
    recording = Recording(folder)
    list(recording)
    assert recording.findings != []


# --- Replay


def test_a_replay_makes_the_same_chip(folder):
    with installed(Chip()) as chip, record_to(folder):
        recipes.setEgrTunnelEcnEncap(0, 5, 2)
        recipes.setLearnCacheEnabled(0, True)
    done = replay(folder)
    assert done.good and done.operations == 11
    assert diff(done.chip, chip) == []
    assert (done.left_out, done.not_compared, done.failures_from_outside, done.findings) == (0, 0, 0, [])


def test_the_chip_at_a_moment(folder):
    record(folder, 5, 6)
    [commit, _] = [call for call in Recording(folder) if "pt_entry_commit" in getattr(call, "call", "")]
    done = replay(folder, until=commit.number)
    assert [row["index"] for row in done.chip.table(ENCAP)] == [5]
    assert done.operations == 4


def test_a_replay_begins_with_a_chip(folder):
    record(folder, 6)
    chip = Chip()
    with installed(chip):
        recipes.setEgrTunnelEcnEncap(0, 5, 1)
    assert replay(folder, chip).chip is chip
    assert chip.table(ENCAP) == [{"index": 5, "OUTER_ECN": 1}, {"index": 6, "OUTER_ECN": 2}]


def test_divergences(folder):
    record(folder, 1, 5, 6)
    small = Schema.reference()
    small.resize(ENCAP, rows=4)
    done = replay(folder, Chip({0: small}))
    [found] = done.divergences
    assert not done.good and found.call.values == (5,)
    assert found.call.rc == 0 and found.rc < 0 and found.reason
    assert found.value is None and found.recipe is None
    assert len(replay(folder, Chip({0: small}), keep_going=True).divergences) > 1


def test_values_that_diverge(folder):
    chip = Chip()
    with installed(chip), record_to(folder):
        recipes.getInnerOpaqueTagEgressEpmod(0)
    other = Chip()
    with installed(other):
        recipes.setInnerOpaqueTagEgressEpmod(0)
    [found] = replay(folder, other.copy()).divergences
    assert found.value == 0x8100 != found.call.values[0]
    assert replay(folder, other, ignore_values=True).good


def test_codes_that_diverge(faults, chip, folder):
    faults.add("op=entry_commit,rc=-99")  # the lookup that misses
    with record_to(folder):
        recipes.setLearnCacheEnabled(0, True)
    [found] = replay(folder).divergences
    assert (found.call.opcode, found.call.rc, found.rc) == ("BCMLT_OPCODE_LOOKUP", -99, -27)
    assert replay(folder, ignore_codes=True).good


def test_a_recording_of_another_chip(folder):
    record(folder, 5)
    without = Schema.reference()
    without.remove(ENCAP)
    with pytest.raises(InputError, match=ENCAP):
        replay(folder, Chip({0: without}))


def test_several_processes(folder):
    record(folder, 5)
    run_isolated(lambda: record(folder, 6))
    with pytest.raises(InputError, match="process="):
        replay(folder)
    child, _ = sorted(Recording(folder).processes, key=lambda process: process == os.getpid())
    assert replay(folder, process=child).chip.table(ENCAP) == [{"index": 6}]
    assert {call.process for call in read_recording(folder, process=child)} == {child}
    with pytest.raises(InputError, match="folder of their own"):
        diff_recordings(folder, folder)


def test_a_bringup_is_recorded_and_replayed(folder):
    done = bringup(EXAMPLES / "bringup.toml", wrap=lambda chip: TraceRecorder(chip, folder))
    new = Chip({unit: done.chip.schema(unit) for unit in done.chip.units})
    replayed = replay(folder, new)
    assert replayed.good and replayed.operations > 100
    assert diff(new, done.chip) == []


def test_what_the_chip_of_a_bringup_changes_by_itself_is_recorded(folder, tmp_path):
    file = tmp_path / "poke.toml"
    file.write_text(
        """
[[chips]]
name = "leaf"
unit = 0

[[steps]]
poke = { unit = 0, table = "EGR_VLAN_CONTROL_1r", port = 5, field = "VXLAN_DECAP_ADAPT_LOOKUP_ENABLE", value = 1 }

[[steps]]
recipe = "setEgrTunnelEcnEncap"
arguments = [ 0, 5, 2 ]
"""
    )
    done = bringup(file, wrap=lambda chip: TraceRecorder(chip, folder))
    assert isinstance(next(Recording(folder)), HardwareChange)
    assert diff(replay(folder).chip, done.chip) == []
    assert done.chip.table("EGR_VLAN_CONTROL_1r").row(port=5).hardware != {}


# --- Comparison


def test_recordings_that_do_the_same(tmp_path):
    found = diff_recordings(record(tmp_path / "one", 5, 6), record(tmp_path / "two", 5, 6))
    assert (found.differences, found.same, found.reordered, found.findings) == ([], 2, 0, [])


def test_recordings_that_differ(tmp_path):
    one = record(tmp_path / "one", 5, 6)
    two = record(tmp_path / "two", 5)
    record(tmp_path / "three", 5, ecn=1)
    [removed] = diff_recordings(one, two).differences
    assert (removed.kind, removed.after, removed.before.table, removed.before.unit) == ("removed", None, ENCAP, 0)
    assert [text for _, text in removed.before.operations] == [
        "allocate",
        "add BCMLT_PT_INDEX = 6",
        "add OUTER_ECN = 2",
        "commit BCMLT_PT_OPCODE_MODIFY BCMLT_PRIORITY_NORMAL",
        "free",
    ]
    assert removed.before.operations[0][0] == 12 and removed.before.thread > 0
    assert [each.kind for each in diff_recordings(two, one).differences] == ["added"]
    [changed] = diff_recordings(two, tmp_path / "three").differences
    assert changed.kind == "changed"
    assert changed.before.operations[2][1] == "add OUTER_ECN = 2"
    assert changed.after.operations[2][1] == "add OUTER_ECN = 1"
