"""Bring-up files, run on simulated chips."""

import os
from dataclasses import dataclass
from typing import Any, Callable, List, Optional, Union

from cairn_lt import _cairn_lt
from cairn_lt._cairn_lt import Sdk, SharedState, TraceRecorder
from cairn_lt.chip import Chip, Path
from cairn_lt.sdk import installed


@dataclass(frozen=True)
class StepResult:
    """A step of a bring-up, and what became of it."""

    line: int  #: in the file
    text: str  #: "setEgrTunnelEcnEncap( unit=0, index=5, outerEcn=2 )"
    recipe: Optional[str]  #: None: it is no recipe
    result: Union[None, bool, int]  #: that the recipe returned
    expected: Union[None, bool, int]  #: None: the file does not say

    @property
    def good(self) -> bool:
        """Whether the result is the one expected, and "true" of a recipe that verifies."""
        if self.expected is not None:
            return self.result == self.expected
        return self.recipe is None or not self.recipe.startswith("verify") or self.result is True


@dataclass(frozen=True)
class Bringup:
    """A bring-up that was run."""

    chip: Chip
    state: SharedState
    steps: List[StepResult]

    @property
    def good(self) -> bool:
        """Whether all steps are good."""
        return all(step.good for step in self.steps)


class _RecordedChip:
    """What a chip changes by itself, done and recorded."""

    def __init__(self, chip: Chip, recorder: TraceRecorder) -> None:
        self._chip = chip
        self._recorder = recorder

    def poke_hardware(self, *what: Any, **where: Any) -> None:
        self._chip.poke_hardware(*what, **where)
        self._recorder.note_hardware_change(*what, **where)


def bringup(file: Path, wrap: Callable[[Chip], Sdk] = lambda chip: chip) -> Bringup:
    """Runs a bring-up file on a new chip with the units of the file.

    `wrap` makes of the chip the SDK that the recipes use, to put a recorder or faults in front of it; a TraceRecorder
    records what the chip changes by itself, too. InputError if the file is wrong; nothing has been programmed then.
    """
    read = _cairn_lt.BringupFile(os.fspath(file))
    chip = Chip(dict(read.units))
    sdk = wrap(chip)
    changed = _RecordedChip(chip, sdk) if isinstance(sdk, TraceRecorder) else chip
    steps = []
    with installed(sdk):
        state = read.apply()
        for step in read.steps:
            result = _cairn_lt.perform(step, state, changed)
            steps.append(StepResult(step.line, str(step), step.recipe, result, step.expected))
    return Bringup(chip, state, steps)
