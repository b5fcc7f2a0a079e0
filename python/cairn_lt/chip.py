"""The simulated chip, and its tables as Python values."""

import os
from typing import Any, Iterator, List, Mapping, Optional, Sequence, Tuple, Union

from cairn_lt import _cairn_lt
from cairn_lt._cairn_lt import Field, RowImage, Schema, TableSchema

# A number, a symbol's name, or the elements of an array.
Value = Union[int, str, Tuple[Union[int, str], ...]]
Path = Union[str, "os.PathLike[str]"]


def _element(field: Field, number: int) -> Union[int, str]:
    for symbol, value in field.symbols.items():
        if value == number:
            return symbol
    return number


def _values(schema: TableSchema, elements: Sequence[int]) -> "dict[str, Value]":
    values: "dict[str, Value]" = {}
    at = 0
    for field in schema.fields:
        own = tuple(_element(field, number) for number in elements[at : at + field.length])
        values[field.name] = own if field.length > 1 else own[0]
        at += field.length
    return values


class Row(Mapping[str, Value]):
    """A row as it was when it was read: its fields by name.

    A field with symbols holds a symbol's name, an array field a tuple, any other field a number. In a physical
    table "index", "instance" and "port" are members, too, where the table has more than one.
    """

    def __init__(self, schema: TableSchema, image: RowImage) -> None:
        self.address: "dict[str, int]" = {}
        if schema.kind != "logical":
            if schema.instances > 1:
                self.address["instance"] = image.instance
            if schema.ports > 0:
                self.address["port"] = image.port
            if schema.rows > 1:
                self.address["index"] = image.index
        self._values: "dict[str, Value]" = {**self.address, **_values(schema, image.values)}
        #: Whether somebody wrote the row. A preloaded table has rows from the start.
        self.touched = image.touched
        #: The names of the fields of which somebody wrote an element.
        self.written = frozenset(self._written(schema, image.written))
        #: The fields that the hardware holds otherwise than the SDK's cache.
        self.hardware: "dict[str, Value]" = {}
        if image.hardware:
            for name, value in _values(schema, image.hardware).items():
                if value != self._values[name]:
                    self.hardware[name] = value

    @staticmethod
    def _written(schema: TableSchema, written: Sequence[bool]) -> Iterator[str]:
        at = 0
        for field in schema.fields:
            if any(written[at : at + field.length]):
                yield field.name
            at += field.length

    def __getitem__(self, field: str) -> Value:
        return self._values[field]

    def __iter__(self) -> Iterator[str]:
        return iter(self._values)

    def __len__(self) -> int:
        return len(self._values)

    def __repr__(self) -> str:
        return f"Row({self._values})"

    def matches(self, wanted: Mapping[str, Value]) -> bool:
        """Whether each of these fields holds this value. What is not named is not compared."""
        return all(name in self._values and self._values[name] == value for name, value in wanted.items())


class Table(Sequence[Row]):
    """The rows of a table that somebody wrote, as they are at each look: in the order of their addresses or keys.

    A table equals a list of mappings if it has a row for each, in this order, that holds the values named there:

        assert chip.table("EGR_TUNNEL_ECN_ENCAPm") == [{"index": 5, "OUTER_ECN": 2}]
    """

    def __init__(self, chip: "Chip", name: str, unit: int, stored: bool = False) -> None:
        self._chip = chip
        self._stored = stored
        self.name = name
        self.unit = unit
        self.schema = chip.table_schema(unit, name)

    def _rows(self) -> List[Row]:
        return [Row(self.schema, image) for image in self._chip.row_images(self.unit, self.name, self._stored)]

    def row(self, index: int = 0, instance: int = 0, port: int = 0, **key: Union[int, str]) -> Row:
        """One row: of a physical table by its address, of a logical one by its key fields (KeyError if there is none).

        The rows of a physical table exist whether somebody wrote them or not.
        """
        keys = [field for field in self.schema.fields if field.key]
        if set(key) != {field.name for field in keys}:
            names = ", ".join(field.name for field in keys) or "none"
            raise TypeError(f"{self.name}: the key fields are {names}, not {', '.join(key) or 'none'}")
        numbers = [self._number(field, key[field.name]) for field in keys]
        image = self._chip.row_image(self.unit, self.name, index, instance, port, numbers)
        if image is None:
            address = key or {"index": index, "instance": instance, "port": port}
            raise KeyError(f"{self.name} of unit {self.unit} has no row {address}")
        return Row(self.schema, image)

    def _number(self, field: Field, value: Union[int, str]) -> int:
        if isinstance(value, int):
            return value
        if value not in field.symbols:
            raise KeyError(f"{self.name}.{field.name} has no symbol {value}")
        return field.symbols[value]

    def stored(self) -> "Table":
        """The table with the rows, too, that it has from the start."""
        return Table(self._chip, self.name, self.unit, stored=True)

    def __getitem__(self, at: Any) -> Any:
        return self._rows()[at]

    def __iter__(self) -> Iterator[Row]:
        return iter(self._rows())

    def __len__(self) -> int:
        return len(self._rows())

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, (list, tuple)):
            return NotImplemented
        rows = self._rows()
        return len(rows) == len(other) and all(row.matches(wanted) for row, wanted in zip(rows, other))

    __hash__ = None  # type: ignore[assignment]

    def __repr__(self) -> str:
        return f"<{self.name} of unit {self.unit}: {[dict(row) for row in self._rows()]}>"


class Chip(_cairn_lt.ChipBase):
    """The simulated chip: an SDK whose tables live in memory.

    `units` gives each unit its schema; without it there is unit 0, a reference chip.
    """

    def __init__(self, units: Optional[Mapping[int, Schema]] = None) -> None:
        super().__init__()
        for unit, schema in ({0: Schema.reference()} if units is None else units).items():
            self.add_unit(unit, schema)

    def __init_subclass__(cls) -> None:
        # Recipes call the chip, and would not see what a subclass overrides.
        raise TypeError("a Chip has no subclasses; derive from Sdk and hand operations on to a Chip")

    def table(self, name: str, unit: int = 0) -> Table:
        """A table by its name; KeyError if there is none."""
        return Table(self, name, unit)

    def copy(self) -> "Chip":
        """A chip with the same units and rows, and without entries."""
        chip = Chip({})
        chip.copy_from(self)
        return chip

    def save(self, file: Path) -> None:
        """Keeps the chip in a state file."""
        self.save_state(os.fspath(file))

    @classmethod
    def load(cls, file: Path) -> "Chip":
        """A chip as it was kept in a state file."""
        chip = cls({})
        chip.load_state(os.fspath(file))
        return chip
