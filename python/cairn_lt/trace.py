"""The binary trace."""

import os
from typing import Iterator, List

from cairn_lt import _cairn_lt
from cairn_lt._cairn_lt import TraceRecord
from cairn_lt.chip import Path


class Trace(Iterator[TraceRecord]):
    """The records of trace files, and of all trace files of folders, in the order of their times."""

    def __init__(self, *paths: Path) -> None:
        self._iterator = _cairn_lt.TraceIterator([os.fspath(path) for path in paths])

    def __iter__(self) -> "Trace":
        return self

    def __next__(self) -> TraceRecord:
        return next(self._iterator)

    @property
    def findings(self) -> List[str]:
        """What was lost or is damaged, in a line each; complete when all records have been read."""
        return self._iterator.findings


def read_trace(*paths: Path) -> List[TraceRecord]:
    """All records of a trace."""
    return list(Trace(*paths))
