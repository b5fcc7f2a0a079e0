"""Recipes that program forwarding chips, and the simulated chip to try them on.

    import cairn_lt
    from cairn_lt import recipes

    chip = cairn_lt.Chip()
    with cairn_lt.installed(chip):
        recipes.setEgrTunnelEcnEncap(unit=0, index=5, outerEcn=2)
    assert chip.table("EGR_TUNNEL_ECN_ENCAPm").row(index=5)["OUTER_ECN"] == 2
"""

from cairn_lt import recipes
from cairn_lt._cairn_lt import (
    ChipInfo,
    Fault,
    Field,
    InputError,
    Schema,
    Sdk,
    SharedState,
    TableSchema,
    TraceError,
    TraceRecord,
    activity_lock,
    clear_profiles,
    close_trace,
    default_state,
    install,
    installed_sdk,
    open_trace,
    set_profile,
    set_stage_blocked,
    trace_levels,
    trace_off,
    trace_to_file,
    trace_to_standard_error,
)
from cairn_lt.bringup import Bringup, StepResult, bringup
from cairn_lt.chip import Chip, Row, Table
from cairn_lt.diff import Difference, diff, diff_text
from cairn_lt.interposers import FaultInjector, Operation, Recorder
from cairn_lt.isolated import Ended, run_isolated
from cairn_lt.sdk import installed
from cairn_lt.trace import Trace, read_trace

__all__ = [
    "Bringup",
    "Chip",
    "ChipInfo",
    "Difference",
    "Ended",
    "Fault",
    "FaultInjector",
    "Field",
    "InputError",
    "Operation",
    "Recorder",
    "Row",
    "Schema",
    "Sdk",
    "SharedState",
    "StepResult",
    "Table",
    "TableSchema",
    "Trace",
    "TraceError",
    "TraceRecord",
    "activity_lock",
    "bringup",
    "clear_profiles",
    "close_trace",
    "default_state",
    "diff",
    "diff_text",
    "install",
    "installed",
    "installed_sdk",
    "open_trace",
    "read_trace",
    "recipes",
    "run_isolated",
    "set_profile",
    "set_stage_blocked",
    "trace_levels",
    "trace_off",
    "trace_to_file",
    "trace_to_standard_error",
]
