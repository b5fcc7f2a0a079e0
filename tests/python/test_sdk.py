"""SDKs written in Python."""

import pytest

from cairn_lt import Chip, Recorder, Sdk, install, installed, recipes, run_isolated

ENCAP = "EGR_TUNNEL_ECN_ENCAPm"


class Forwarder(Sdk):
    """Hands everything on to a chip."""

    def __init__(self):
        super().__init__()
        self.chip = Chip()
        self.calls = []

    def bcmlt_entry_allocate(self, unit, table):
        self.calls.append(("allocate", unit, table))
        return self.chip.bcmlt_entry_allocate(unit, table)

    def bcmlt_entry_attrib_set(self, handle, attribute):
        self.calls.append(("attrib", attribute))
        return self.chip.bcmlt_entry_attrib_set(handle, attribute)

    def bcmlt_entry_commit(self, handle, opcode, priority):
        self.calls.append(("commit", opcode))
        return self.chip.bcmlt_entry_commit(handle, opcode, priority)

    def bcmlt_entry_field_add(self, handle, field, value):
        self.calls.append(("add", field, value))
        return self.chip.bcmlt_entry_field_add(handle, field, value)

    def bcmlt_entry_field_array_add(self, handle, field, start_index, values):
        self.calls.append(("array", field, start_index, values))
        return self.chip.bcmlt_entry_field_array_add(handle, field, start_index, values)

    def bcmlt_entry_field_get(self, handle, field):
        return self.chip.bcmlt_entry_field_get(handle, field)

    def bcmlt_entry_field_symbol_add(self, handle, field, symbol):
        self.calls.append(("symbol", field, symbol))
        return self.chip.bcmlt_entry_field_symbol_add(handle, field, symbol)

    def bcmlt_entry_free(self, handle):
        return self.chip.bcmlt_entry_free(handle)

    def bcmlt_pt_entry_commit(self, handle, opcode, priority):
        self.calls.append(("pt_commit", opcode))
        return self.chip.bcmlt_pt_entry_commit(handle, opcode, priority)


@pytest.fixture
def forwarder():
    with installed(Forwarder()) as sdk:
        yield sdk


def test_recipes_call_it(forwarder):
    recipes.setEgrTunnelEcnEncap(0, 5, 2)
    assert forwarder.calls == [
        ("allocate", 0, ENCAP),
        ("add", "BCMLT_PT_INDEX", 5),
        ("add", "OUTER_ECN", 2),
        ("pt_commit", forwarder.chip.BCMLT_PT_OPCODE_MODIFY()),
    ]
    assert forwarder.chip.table(ENCAP) == [{"index": 5, "OUTER_ECN": 2}]


def test_every_kind_of_operation(forwarder):
    recipes.resetIngEnEfilterBitMap(0, 65)
    assert ("array", "BITMAP", 0, [0, 0]) in forwarder.calls
    recipes.setVxlanUdpSourcePortSel(0, 0)
    assert ("symbol", "SRC_L4_PORT_SELECT", "HASH_ENTROPY") in forwarder.calls
    recipes.setVxlanDecapAdaptLookup(0, 5, True)
    assert ("attrib", forwarder.chip.BCMLT_ENT_ATTR_GET_FROM_HW()) in forwarder.calls
    assert recipes.getVxlanDecapAdaptLookup(0, 5) is True


def test_names_and_constants_may_be_its_own(shared_state):
    class Renamed(Forwarder):
        def PC_PORTs(self):
            return "PC_PORT"

        def SPEEDs(self):
            return "NO_SUCH_FIELD"

        def BCMLT_OPCODE_INSERT(self):
            return 3_000_000_000

        def bcmlt_entry_commit(self, handle, opcode, priority):
            assert opcode == 3_000_000_000
            return super().bcmlt_entry_commit(handle, super().BCMLT_OPCODE_INSERT(), priority)

        def errmsg(self, rc):
            return f"my words for {rc}"

    with installed(Renamed()):
        ended = run_isolated(lambda: recipes.cpuPortInit(shared_state))
    assert ended.stopped and ended.call.field == "NO_SUCH_FIELD"
    assert "API ERROR:my words for -4 (-4)" in ended.stderr


def test_positive_codes_are_success():
    class Positive(Forwarder):
        def bcmlt_entry_free(self, handle):
            return super().bcmlt_entry_free(handle) + 3

    with installed(Recorder(Positive())) as recorder:
        recipes.setEgrTunnelEcnEncap(0, 5, 2)
    assert recorder.operations[-1].rc == 3


def test_hooks():
    class Hooked(Forwarder):
        hooks = 0

        def pre_call_hook(self):
            self.hooks += 1

        def failure_hook(self):
            print(f"failed after {self.hooks} hooks", flush=True)

    with installed(Hooked()) as sdk:
        recipes.setEgrTunnelEcnEncap(0, 5, 2)
        assert sdk.hooks == 5
        sdk.hooks = 0
        ended = run_isolated(lambda: recipes.setEgrTunnelEcnEncap(0, 5, 4))
    assert ended.stdout == "failed after 3 hooks\n"


def test_an_invalid_handle_stops_the_recipe():
    class Invalid(Forwarder):
        def bcmlt_entry_allocate(self, unit, table):
            return 0, self.BCMLT_INVALID_HDL()

    with installed(Invalid()):
        ended = run_isolated(lambda: recipes.setOpaqueTagEgress(0))
    assert ended.stopped
    assert "Assertion `ent_hdl != BCMLT_INVALID_HDL' failed." in ended.stderr


def test_defaults_are_those_of_the_chip():
    sdk, chip = Sdk(), Chip()
    for name in ("BCMLT_OPCODE_LOOKUP", "BCMLT_PRIORITY_NORMAL", "BCMLT_INVALID_HDL", "SPEEDs", "PC_PORTs"):
        assert getattr(sdk, name)() == getattr(chip, name)()
    assert sdk.errmsg(-27) == chip.errmsg(-27)
    with pytest.raises(NotImplementedError, match="the SDK has no bcmlt_entry_free"):
        sdk.bcmlt_entry_free(1)
    assert sdk.pre_call_hook() is None


def test_recipes_within_operations():
    """An operation may call a recipe: it holds no lock."""

    class Nested(Forwarder):
        def bcmlt_entry_free(self, handle):
            rc = super().bcmlt_entry_free(handle)
            if "within" not in self.calls:
                self.calls.append("within")
                recipes.setVxlanUdpSourcePortSel(0, 0)
            return rc

    with installed(Nested()) as sdk:
        recipes.setVxlanDefaultNetworkSvp(0, 7)
        assert ("symbol", "SRC_L4_PORT_SELECT", "HASH_ENTROPY") in sdk.calls[sdk.calls.index("within") :]
        assert sdk.chip.table("TNL_L2_VXLAN_CONTROL") == [
            {"DEFAULT_NETWORK_SVP": 7, "SRC_L4_PORT_SELECT": "HASH_ENTROPY"}
        ]


def test_the_sdk_cannot_be_changed_while_a_recipe_runs():
    class Changing(Forwarder):
        def bcmlt_entry_free(self, handle):
            with pytest.raises(RuntimeError, match="a recipe runs"):
                install(None)
            return super().bcmlt_entry_free(handle)

    with installed(Changing()):
        recipes.setEgrTunnelEcnEncap(0, 5, 2)
