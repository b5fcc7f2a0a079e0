"""Recordings: the SDK calls that a recorder has written into the trace files of a folder."""

import os
from contextlib import contextmanager
from dataclasses import dataclass
from typing import Any, Dict, Iterator, List, Optional, Tuple, Union

from cairn_lt import _cairn_lt
from cairn_lt._cairn_lt import HardwareChange, TraceRecord, TraceRecorder
from cairn_lt.chip import Chip, Path
from cairn_lt.interposers import Operation
from cairn_lt.sdk import installed


@dataclass(frozen=True)
class RecordedCall(Operation):
    """A call that was recorded: an operation, or a hook. What it does not have is 0 or empty."""

    number: int  #: its place in the recording, from 1
    process: int
    thread: int
    time: Optional[int]  #: when it was made, nanoseconds since 1970, UTC. None: its inputs are lost
    end_time: Optional[int]  #: when it returned; None: it did not
    lock_held: Optional[bool]  #: whether the thread held the activity lock; None: not recorded
    whole: bool  #: false: its inputs, or a part of a long text or array, are not in the recording

    def __str__(self) -> str:
        return self.text


class Recording(Iterator[Union[RecordedCall, HardwareChange, TraceRecord]]):
    """The calls in trace files, and in all trace files of folders, in the order in which they returned.

    Calls that never returned come at the end. Changes that a simulated chip was told to make by itself are there, too;
    with `messages=True` also the messages of the trace. TraceError if there are no calls.
    """

    def __init__(self, *paths: Path, process: Optional[int] = None, messages: bool = False) -> None:
        self._iterator = _cairn_lt.RecordingIterator([os.fspath(path) for path in paths], process, messages)

    def __iter__(self) -> "Recording":
        return self

    def __next__(self) -> Union[RecordedCall, HardwareChange, TraceRecord]:
        found = next(self._iterator)
        return RecordedCall(**found) if isinstance(found, dict) else found

    @property
    def findings(self) -> List[str]:
        """What was lost or is damaged, in a line each; complete when all has been read."""
        return self._iterator.findings

    @property
    def lost_beginning(self) -> bool:
        """Whether what came first is lost, as far as it was read: newer calls have overwritten it."""
        return self._iterator.lost_beginning

    @property
    def processes(self) -> List[int]:
        """The processes whose calls are here. The handles of one mean nothing in another."""
        return self._iterator.processes


def read_recording(*paths: Path, process: Optional[int] = None) -> List[RecordedCall]:
    """All operations of a recording, without hooks."""
    return [
        call
        for call in Recording(*paths, process=process)
        if isinstance(call, RecordedCall) and call.call.startswith("bcmlt_")
    ]


@contextmanager
def record_to(directory: Path) -> Iterator[TraceRecorder]:
    """Records what recipes ask of the SDK, as long as the block runs."""
    inner = _cairn_lt.installed_sdk()
    if inner is None:
        raise RuntimeError("there is no SDK to record; install one first")
    with installed(TraceRecorder(inner, directory)) as recorder:
        yield recorder


@dataclass(frozen=True)
class Divergence:
    """An operation that did something else than when it was recorded."""

    call: RecordedCall  #: as it was recorded
    rc: int  #: what the chip returned
    value: Optional[int]  #: what the chip has read, where both have read something
    reason: str  #: the chip's words for its failure; empty if it did not fail
    recipe: Optional[str]  #: None: not known


@dataclass(frozen=True)
class Replay:
    """A recording that was performed on a chip."""

    chip: Chip
    operations: int  #: that were performed
    divergences: List[Divergence]
    failures_from_outside: int  #: of guarded calls, for reasons that are none of the chip's: taken from the recording
    left_out: int  #: operations of which not enough is known
    not_compared: int  #: on rows whose contents are not known
    lost_beginning: bool
    findings: List[str]  #: what is lost or damaged in the recording, in a line each

    @property
    def good(self) -> bool:
        """Whether every operation did what it did when it was recorded."""
        return not self.divergences


def replay(
    recording: Path,
    chip: Optional[Chip] = None,
    *,
    process: Optional[int] = None,
    until: Optional[int] = None,
    ignore_codes: bool = False,
    ignore_values: bool = False,
    keep_going: bool = False,
) -> Replay:
    """Performs a recording on a chip, a new reference chip without `chip`: it then is as the recorded one was.

    `until` is the number of the last call. The first divergence ends it, unless `keep_going`. InputError if the
    recording is of another chip, or of several processes and `process` does not choose.
    """
    performed_on = Chip() if chip is None else chip
    done: Dict[str, Any] = _cairn_lt.replay(
        performed_on, os.fspath(recording), process, until, ignore_codes, ignore_values, keep_going
    )
    divergences = []
    for each in done.pop("divergences"):
        call = RecordedCall(**each.pop("call"))
        divergences.append(Divergence(call=call, **each))
    return Replay(chip=performed_on, divergences=divergences, **done)


@dataclass(frozen=True)
class Step:
    """What a thread did with an entry up to a commit and what was read after it."""

    unit: Optional[int]  #: None: the entry was allocated before the recording begins
    table: str
    recipe: Optional[str]  #: None: not known
    thread: int
    operations: List[Tuple[int, str]]  #: the number of each call, and what it is, without handles


@dataclass(frozen=True)
class StepDifference:
    """A step that is in one of two recordings, or in both with other operations."""

    before: Optional[Step]
    after: Optional[Step]

    @property
    def kind(self) -> str:
        """ "added", "removed" or "changed"."""
        return "added" if self.before is None else "removed" if self.after is None else "changed"


@dataclass(frozen=True)
class RecordingDiff:
    """What differs between two recordings."""

    differences: List[StepDifference]
    same: int  #: steps
    reordered: int  #: of these, that stood in another place
    findings: List[str]  #: what is lost or damaged in the recordings, in a line each


def diff_recordings(before: Path, after: Path) -> RecordingDiff:
    """Compares what was done with entries, whatever the handles, times and threads were."""
    found: Dict[str, Any] = _cairn_lt.diff_recordings(os.fspath(before), os.fspath(after))
    differences = [
        StepDifference(*(None if side is None else Step(**side) for side in sides))
        for sides in found.pop("differences")
    ]
    return RecordingDiff(differences=differences, **found)
