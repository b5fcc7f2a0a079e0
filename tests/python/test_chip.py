"""The chip: schemas, rows, fields, changes of the hardware, states."""

import pytest

import cairn_lt
from cairn_lt import Chip, Field, InputError, Schema, TableSchema, recipes

ENCAP = "EGR_TUNNEL_ECN_ENCAPm"


# --- Schemas


def test_reference_schema():
    schema = Schema.reference()
    table = schema[ENCAP]
    assert (table.name, table.kind, table.rows, table.instances, table.ports) == (ENCAP, "memory", 256, 1, 0)
    assert [(field.name, field.width) for field in table.fields][0] == ("OUTER_ECN", 2)
    assert ENCAP in schema and "NO_SUCH" not in schema
    assert len(schema) == len(schema.table_names)


def test_schema_is_made_and_changed():
    schema = Schema()
    mode = Field("MODE", width=2, symbols={"OFF": 0, "FAST": 2}, reset=2)
    schema.add(TableSchema("MY_CONTROLr", kind="register", fields=[Field("LEVEL", width=4, power_on=9), mode], rows=4))
    assert schema.table_names == ["MY_CONTROLr"]
    assert schema["MY_CONTROLr"].fields[1].symbols == {"OFF": 0, "FAST": 2}
    assert schema["MY_CONTROLr"].fields[0].initial == 9
    schema.resize("MY_CONTROLr", rows=8, ports=2)
    assert (schema["MY_CONTROLr"].rows, schema["MY_CONTROLr"].instances, schema["MY_CONTROLr"].ports) == (8, 1, 2)
    schema.remove("MY_CONTROLr")
    assert len(schema) == 0


def test_schema_refuses():
    schema = Schema.reference()
    with pytest.raises(KeyError):
        schema["NO_SUCH"]
    with pytest.raises(ValueError, match="NO_SUCH"):
        schema.remove("NO_SUCH")
    with pytest.raises(ValueError, match="NO_SUCH"):
        schema.resize("NO_SUCH", rows=2)
    with pytest.raises(ValueError, match=ENCAP):
        schema.add(schema[ENCAP])
    with pytest.raises(ValueError, match="WIDE"):
        schema.add(TableSchema("NEWm", kind="memory", fields=[Field("WIDE", width=65)]))
    with pytest.raises(ValueError, match='kind "memories" is none'):
        TableSchema("NEWm", kind="memories", fields=[])


def test_chip_file(tmp_path):
    file = tmp_path / "chip.toml"
    file.write_text(f'base = "reference"\n[[resize]]\ntable = "{ENCAP}"\nrows = 64\n')
    assert Schema.load(file)[ENCAP].rows == 64
    assert Schema.parse(file.read_text())[ENCAP].rows == 64


def test_chip_file_with_an_error(tmp_path):
    file = tmp_path / "chip.toml"
    file.write_text('base = "reference"\nrows = 64\n')
    with pytest.raises(InputError) as error:
        Schema.load(file)
    assert (error.value.file, error.value.line) == (str(file), 2)
    assert "rows" in error.value.problem
    assert str(error.value).startswith(f"{file}:2: ")


# --- Units and rows


def test_units():
    chip = Chip({1: Schema.reference(), 0: Schema()})
    assert chip.units == [0, 1]
    assert len(chip.schema(0)) == 0
    with pytest.raises(ValueError):
        chip.add_unit(1, Schema())
    with pytest.raises(KeyError, match="no unit 2"):
        chip.table(ENCAP, unit=2)
    with pytest.raises(KeyError, match="unit 1 has no table NO_SUCH"):
        chip.table("NO_SUCH", unit=1)


def test_rows_are_values(chip):
    table = chip.table(ENCAP)
    assert len(table) == 0 and list(table) == []
    recipes.setEgrTunnelEcnEncap(0, 9, 1)
    recipes.setEgrTunnelEcnEncap(0, 5, 2)
    assert [row["index"] for row in table] == [5, 9]
    row = table[0]
    assert row["OUTER_ECN"] == 2
    assert set(row) == {"index", "OUTER_ECN", "INT_CN_MAP", "ECN_PROFILE"}
    assert row.written == {"OUTER_ECN"} and row.touched
    recipes.setEgrTunnelEcnEncap(0, 5, 3)
    assert row["OUTER_ECN"] == 2, "a row is what it was when it was read"
    assert table[0]["OUTER_ECN"] == 3
    assert [each["OUTER_ECN"] for each in table[-1:]] == [1]
    with pytest.raises(KeyError):
        row["NO_SUCH"]


def test_rows_of_a_physical_table_exist(chip):
    row = chip.table(ENCAP).row(index=3)
    assert row["ECN_PROFILE"] == 0xA5 and row.written == frozenset() and not row.touched
    with pytest.raises(KeyError, match="has no row"):
        chip.table(ENCAP).row(index=256)


def test_rows_by_key(chip, shared_state):
    recipes.cpuPortInit(shared_state)
    assert chip.table("PC_PORT").row(PORT_ID=0)["SPEED"] == 10000
    with pytest.raises(KeyError, match="has no row {'PORT_ID': 1}"):
        chip.table("PC_PORT").row(PORT_ID=1)
    with pytest.raises(TypeError, match="the key fields are PORT_ID, not PORT"):
        chip.table("PC_PORT").row(PORT=1)
    with pytest.raises(KeyError, match="has no symbol NO_SUCH"):
        chip.table("LEARN_CACHE_DROP_CONTROL").row(EVENT_ID="NO_SUCH")


def test_stored_rows(chip):
    table = chip.table("SER_PT_CONTROL")
    assert len(table) == 0
    assert len(table.stored()) > 0
    recipes.enable1BitEccRpt(0, ENCAP, True)
    assert table == [{"PT_ID": ENCAP, "REPORT_SINGLE_BIT_ECC": 1}]


def test_equality_compares_what_is_named(chip):
    recipes.setEgrTunnelEcnEncap(0, 5, 2)
    table = chip.table(ENCAP)
    assert table == [{"OUTER_ECN": 2}]
    assert table == [{}]
    assert not table == []
    assert not table == [{"OUTER_ECN": 3}]
    assert not table == [{"OUTER_ECN": 2}, {"OUTER_ECN": 2}]
    assert not table == [{"NO_SUCH": 2}]
    assert table != 5


def test_hardware_behind_the_cache(chip):
    chip.poke_hardware("EGR_VLAN_CONTROL_1r", "VXLAN_DECAP_ADAPT_LOOKUP_ENABLE", 1, port=5)
    row = chip.table("EGR_VLAN_CONTROL_1r").row(port=5)
    assert row["VXLAN_DECAP_ADAPT_LOOKUP_ENABLE"] == 0
    assert row.hardware == {"VXLAN_DECAP_ADAPT_LOOKUP_ENABLE": 1}
    with pytest.raises(ValueError, match="value 4 needs 3 bits, the field has 2"):
        chip.poke_hardware(ENCAP, "OUTER_ECN", 4, index=1)


def test_clear(chip):
    recipes.setEgrTunnelEcnEncap(0, 5, 2)
    chip.clear()
    assert chip.table(ENCAP) == []
    with pytest.raises(ValueError):
        chip.clear(unit=7)


def test_operations_of_the_sdk():
    chip = Chip()
    rc, handle = chip.bcmlt_entry_allocate(0, ENCAP)
    assert rc == 0
    assert chip.live_entries == [(handle, 0, ENCAP)]
    assert chip.bcmlt_entry_field_add(handle, "BCMLT_PT_INDEX", 5) == 0
    assert chip.bcmlt_entry_field_add(handle, "OUTER_ECN", 4) < 0
    assert chip.last_error == f"{ENCAP}.OUTER_ECN: value 4 needs 3 bits, the field has 2"
    assert chip.bcmlt_pt_entry_commit(handle, chip.BCMLT_PT_OPCODE_GET(), chip.BCMLT_PRIORITY_NORMAL()) == 0
    assert chip.bcmlt_entry_field_get(handle, "ECN_PROFILE") == (0, 0xA5)
    assert chip.bcmlt_entry_free(handle) == 0
    rc = chip.bcmlt_entry_free(handle)
    assert rc < 0 and "freed" in chip.errmsg(rc)


def test_arrays(chip):
    rc, handle = chip.bcmlt_entry_allocate(0, "ING_EN_EFILTER_BITMAPm")
    assert rc == 0
    chip.bcmlt_entry_field_add(handle, "BCMLT_PT_INDEX", 0)
    assert chip.bcmlt_entry_field_array_add(handle, "BITMAP", 1, [7, 8]) == 0
    assert chip.bcmlt_pt_entry_commit(handle, chip.BCMLT_PT_OPCODE_MODIFY(), chip.BCMLT_PRIORITY_NORMAL()) == 0
    assert chip.table("ING_EN_EFILTER_BITMAPm").row(index=0)["BITMAP"][1:3] == (7, 8)


def test_chip_has_no_subclasses():
    with pytest.raises(TypeError, match="derive from Sdk"):

        class Mine(Chip):
            pass


# --- States


def test_state_is_kept(chip, tmp_path):
    recipes.setEgrTunnelEcnEncap(0, 5, 2)
    chip.save(tmp_path / "state.json")
    assert Chip.load(tmp_path / "state.json").table(ENCAP) == [{"index": 5, "OUTER_ECN": 2}]


def test_state_that_cannot_be_kept_or_read(chip, tmp_path):
    with pytest.raises(OSError):
        chip.save(tmp_path / "no" / "state.json")
    with pytest.raises(InputError, match="state.json"):
        Chip.load(tmp_path / "state.json")
    (tmp_path / "state.json").write_text("{")
    with pytest.raises(InputError):
        Chip.load(tmp_path / "state.json")


# --- Which SDK is used


def test_installed_brings_back_the_one_before():
    one, other = Chip(), Chip()
    assert cairn_lt.installed_sdk() is None
    with cairn_lt.installed(one) as given:
        assert given is one
        with cairn_lt.installed(other):
            assert cairn_lt.installed_sdk() is other
        assert cairn_lt.installed_sdk() is one
        with pytest.raises(ZeroDivisionError):
            with cairn_lt.installed(other):
                1 / 0
        assert cairn_lt.installed_sdk() is one
    assert cairn_lt.installed_sdk() is None


def test_installed_sdk_is_kept_alive():
    cairn_lt.install(cairn_lt.Recorder(cairn_lt.FaultInjector(Chip())))
    try:
        recipes.setEgrTunnelEcnEncap(0, 5, 2)
        assert [operation.rc for operation in cairn_lt.installed_sdk().operations] == [0] * 5
    finally:
        cairn_lt.install(None)


def test_what_is_no_sdk():
    with pytest.raises((TypeError, RuntimeError)):
        cairn_lt.install("chip")
