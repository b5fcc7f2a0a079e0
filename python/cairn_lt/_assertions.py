"""What a failed assertion on a table shows."""

from itertools import zip_longest
from typing import List, Mapping, Sequence

from cairn_lt.chip import Row, Table, Value


def side_by_side(table: Table, wanted: Sequence[Mapping[str, Value]]) -> List[str]:
    """The rows of the table to the left, those wanted to the right, a "!" before each pair that differs.

    Columns are the fields that any wanted row names; all fields if there is none.
    """
    rows = list(table)
    columns: List[str] = []
    for row in wanted or rows:
        columns += [name for name in row if name not in columns]
    found = [_cells(columns, columns), *(_cells(columns, row) for row in rows)]
    want = [_cells(columns, columns), *(_cells(columns, row) for row in wanted)]
    widths = [max(len(line[i]) for line in found + want) for i in range(len(columns))]
    lines = [f"{table.name} of unit {table.unit}: {len(rows)} rows, {len(wanted)} wanted"]
    blank = [""] * len(columns)
    for number, (left, right) in enumerate(zip_longest(found, want)):
        pair = (rows[number - 1 : number], wanted[number - 1 : number]) if number > 0 else ([], [])
        differs = number > 0 and not (pair[0] and pair[1] and pair[0][0].matches(pair[1][0]))
        lines.append(
            f"{'!' if differs else ' '} {_line(left or blank, widths)} | {_line(right or blank, widths)}".rstrip()
        )
    return lines


def _cells(columns: Sequence[str], row: "Row | Mapping[str, Value] | Sequence[str]") -> List[str]:
    if isinstance(row, Mapping):
        return [str(row[name]) if name in row else "-" for name in columns]
    return list(columns)


def _line(cells: Sequence[str], widths: Sequence[int]) -> str:
    return "  ".join(cell.ljust(width) for cell, width in zip(cells, widths))
