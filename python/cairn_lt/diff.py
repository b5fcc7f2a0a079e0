"""What differs between two chips."""

from dataclasses import dataclass
from typing import Dict, List, Mapping, Optional, Tuple

from cairn_lt import _cairn_lt
from cairn_lt.chip import Chip, Row, Value


@dataclass(frozen=True)
class Difference:
    """A row that is not the same on both chips."""

    kind: str  #: "added", "removed" or "changed"
    unit: int
    table: str
    before: Optional[Row]  #: None: a logical table has no such row. A physical row is always there
    after: Optional[Row]

    @property
    def fields(self) -> Mapping[str, Tuple[Optional[Value], Optional[Value]]]:
        """The fields whose values differ, before and after; the SDK's cache."""
        before: Dict[str, Value] = dict(self.before or {})
        after: Dict[str, Value] = dict(self.after or {})
        names = list(before) + [name for name in after if name not in before]
        return {
            name: (before.get(name), after.get(name)) for name in names if before.get(name) != after.get(name)
        }


def diff(before: Chip, after: Chip) -> List[Difference]:
    """The rows that differ, in the order of units, tables and rows.

    What software reads counts, and what the hardware holds; who wrote it does not. ValueError if the chips do not have
    the same units and tables.
    """
    differences = []
    for kind, unit, table, old, new in _cairn_lt.differences(before, after):
        schema = before.table_schema(unit, table)
        differences.append(
            Difference(
                kind,
                unit,
                table,
                None if old is None else Row(schema, old),
                None if new is None else Row(schema, new),
            )
        )
    return differences


def diff_text(before: Chip, after: Chip) -> str:
    """The same for people: lines that begin with "-" or "+", and the number of rows."""
    return _cairn_lt.differences_text(before, after)
