"""SDKs that stand in front of another one: the recorder and the fault injector."""

import json
from dataclasses import dataclass
from typing import Any, Dict, List, Mapping, Tuple, Union

from cairn_lt import _cairn_lt
from cairn_lt._cairn_lt import Fault


@dataclass(frozen=True)
class Operation:
    """A call of an SDK: an operation, or a hook. What it does not have is 0 or empty."""

    call: str  #: "bcmlt_entry_allocate"
    handle: int  #: of the entry; of an allocate once it has returned
    unit: int  #: of the entry; -1 if its allocate was not seen
    table: str
    field: str
    symbol: str
    values: Tuple[int, ...]  #: that were added or read; of a long array the first ones
    start_index: int
    count: int
    opcode: str  #: "BCMLT_OPCODE_INSERT"
    priority: str
    attribute: str
    rc: int  #: the code that it returned
    returned: bool  #: false: it did not
    text: str  #: all of it in one line

    def __str__(self) -> str:
        return self.text

    @staticmethod
    def of(members: Mapping[str, Any]) -> "Operation":
        known: Dict[str, Any] = {**members, "values": tuple(members["values"])}
        return Operation(**known)


class Recorder(_cairn_lt.RecorderBase):
    """An SDK that writes down the calls on their way to another SDK."""

    @property
    def events(self) -> List[Operation]:
        """Operations and hooks in the order in which they returned."""
        return [Operation.of(event) for event in json.loads(self.events_json())]

    @property
    def operations(self) -> List[Operation]:
        """The operations alone."""
        return [event for event in self.events if event.call.startswith("bcmlt_")]


class FaultInjector(_cairn_lt.FaultInjectorBase):
    """An SDK that hands calls on to another SDK but for those that a fault strikes."""

    def add(self, fault: Union[str, Fault]) -> Fault:
        """Adds a fault: "op=commit,table=PC_PORT,rc=-26,at=2"."""
        added = Fault.parse(fault) if isinstance(fault, str) else fault
        self.add_fault(added)
        return added

    @property
    def unfired(self) -> List[Fault]:
        """The faults that never struck."""
        return [fault for fault, _, strikes in self.reports if strikes == 0]
