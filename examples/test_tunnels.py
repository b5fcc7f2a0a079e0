"""Tests of code that programs tunnels, on the simulated chip. Run by scripts/pytest.sh."""

from cairn_lt import recipes, run_isolated


def mark_congested_tunnels(unit, ecn):
    """The code under test."""
    for index in range(4):
        recipes.setEgrTunnelEcnEncap(unit=unit, index=index, outerEcn=ecn)


def test_each_tunnel_is_marked(chip):
    mark_congested_tunnels(unit=0, ecn=2)
    assert chip.table("EGR_TUNNEL_ECN_ENCAPm") == [{"index": index, "OUTER_ECN": 2} for index in range(4)]
    assert chip.live_entries == []


def test_an_ecn_that_does_not_fit_stops_the_agent(chip):
    ended = run_isolated(lambda: mark_congested_tunnels(unit=0, ecn=4))
    assert ended.stopped and ended.recipe == "setEgrTunnelEcnEncap"
    assert ended.call.field == "OUTER_ECN"
