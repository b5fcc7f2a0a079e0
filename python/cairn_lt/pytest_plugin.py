"""pytest fixtures for tests against the simulated chip.

    def test_each_tunnel_is_marked(chip):
        recipes.setEgrTunnelEcnEncap(unit=0, index=5, outerEcn=2)
        assert chip.table("EGR_TUNNEL_ECN_ENCAPm") == [{"index": 5, "OUTER_ECN": 2}]

A test that asks for one of `chip`, `faults` and `recorder` gets recipes that work on them: the recorder stands in front
of the faults, and these in front of the chip.
"""

from typing import Iterator, List, Mapping, Optional

import pytest

import cairn_lt
from cairn_lt import _assertions


@pytest.fixture
def chip_units() -> Mapping[int, cairn_lt.Schema]:
    """The schemas of the chip's units: a reference chip as unit 0. Define a fixture of this name for others."""
    return {0: cairn_lt.Schema.reference()}


class _Bench:
    def __init__(self, units: Mapping[int, cairn_lt.Schema]) -> None:
        self.chip = cairn_lt.Chip(units)
        self.faults = cairn_lt.FaultInjector(self.chip)
        self.recorder = cairn_lt.Recorder(self.faults)
        self.state = cairn_lt.default_state(list(units))


@pytest.fixture
def _bench(chip_units: Mapping[int, cairn_lt.Schema]) -> Iterator[_Bench]:
    bench = _Bench(chip_units)
    with cairn_lt.installed(bench.recorder):
        yield bench


@pytest.fixture
def chip(_bench: _Bench) -> cairn_lt.Chip:
    """The chip that recipes work on."""
    return _bench.chip


@pytest.fixture
def faults(_bench: _Bench) -> cairn_lt.FaultInjector:
    """Faults of the chip; none at first."""
    return _bench.faults


@pytest.fixture
def recorder(_bench: _Bench) -> cairn_lt.Recorder:
    """What recipes asked of the chip."""
    return _bench.recorder


@pytest.fixture
def shared_state(_bench: _Bench) -> cairn_lt.SharedState:
    """What the agent knows: a module, a CPU port and a recirculation port for each unit of the chip."""
    return _bench.state


def pytest_assertrepr_compare(op: str, left: object, right: object) -> Optional[List[str]]:
    """The rows of a table beside those that are wanted."""
    if op == "==" and isinstance(left, cairn_lt.Table) and isinstance(right, (list, tuple)):
        return _assertions.side_by_side(left, right)
    return None
