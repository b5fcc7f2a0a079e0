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
    HardwareChange,
    InputError,
    Schema,
    Sdk,
    SharedState,
    TableSchema,
    TraceError,
    TraceRecord,
    TraceRecorder,
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
from cairn_lt.recording import (
    Divergence,
    RecordedCall,
    Recording,
    RecordingDiff,
    Replay,
    Step,
    StepDifference,
    diff_recordings,
    read_recording,
    record_to,
    replay,
)
from cairn_lt.sdk import installed
from cairn_lt.trace import Trace, read_trace

__all__ = [
    "Bringup",
    "Chip",
    "ChipInfo",
    "Difference",
    "Divergence",
    "Ended",
    "Fault",
    "FaultInjector",
    "Field",
    "HardwareChange",
    "InputError",
    "Operation",
    "RecordedCall",
    "Recorder",
    "Recording",
    "RecordingDiff",
    "Replay",
    "Row",
    "Schema",
    "Sdk",
    "SharedState",
    "Step",
    "StepDifference",
    "StepResult",
    "Table",
    "TableSchema",
    "Trace",
    "TraceError",
    "TraceRecord",
    "TraceRecorder",
    "activity_lock",
    "bringup",
    "clear_profiles",
    "close_trace",
    "default_state",
    "diff",
    "diff_recordings",
    "diff_text",
    "install",
    "installed",
    "installed_sdk",
    "open_trace",
    "read_recording",
    "read_trace",
    "recipes",
    "record_to",
    "replay",
    "run_isolated",
    "set_profile",
    "set_stage_blocked",
    "trace_levels",
    "trace_off",
    "trace_to_file",
    "trace_to_standard_error",
]
