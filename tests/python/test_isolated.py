"""Functions in a process of their own, and how it ends."""

import os
import signal
import sys

import pytest

from cairn_lt import Chip, Sdk, installed, recipes, run_isolated

ENCAP = "EGR_TUNNEL_ECN_ENCAPm"


def test_a_stop(chip):
    ended = run_isolated(lambda: recipes.setEgrTunnelEcnEncap(0, 5, 4))
    assert ended.signal == signal.SIGABRT and ended.exit_status is None and ended.stopped
    assert ended.recipe == "setEgrTunnelEcnEncap"
    assert (ended.call.call, ended.call.field, ended.call.values) == ("bcmlt_entry_field_add", "OUTER_ECN", (4,))
    assert ended.code == ended.call.rc < 0
    assert [operation.call for operation in ended.operations] == [
        "bcmlt_entry_allocate",
        "bcmlt_entry_field_add",
        "bcmlt_entry_field_add",
    ]
    report, assertion = ended.stderr.splitlines()
    assert 'bcmlt_entry_field_add( egrTunnelEcnEncapEntry, "OUTER_ECN", outerEcn ) API ERROR:' in report
    assert report.endswith(f"({ended.code})")
    assert assertion.endswith(
        "void Cairn::setEgrTunnelEcnEncap(uint32_t, uint32_t, uint32_t): Assertion `0' failed."
    )
    assert chip.table(ENCAP) == [], "the child is a copy"


def test_a_read_of_what_was_never_set(chip):
    ended = run_isolated(lambda: recipes.getOpaqueTagIngress(0, 3))
    assert ended.stopped and ended.recipe == "getOpaqueTagIngress"
    assert ended.call.call == "bcmlt_entry_field_get" and ended.code == 0
    assert "Assertion `val == 1' failed." in ended.stderr


def test_the_stop_in_a_later_recipe(chip):
    def twice():
        recipes.setEgrTunnelEcnEncap(0, 5, 2)
        recipes.programPacketTraceForTtlError(0)
        recipes.programPacketTraceForTtlError(0)

    ended = run_isolated(twice)
    assert ended.recipe == "programPacketTraceForTtlError"
    assert ended.call.opcode == "BCMLT_OPCODE_INSERT"
    assert len(ended.operations) == 5 + 5 + 4


def test_a_function_that_returns(chip):
    ended = run_isolated(lambda: recipes.setEgrTunnelEcnEncap(0, 5, 2))
    assert (ended.signal, ended.exit_status, ended.stopped) == (None, 0, False)
    assert (ended.recipe, ended.call, ended.code) == (None, None, None)
    assert len(ended.operations) == 5
    assert ended.stderr == ""


def test_a_function_that_raises(chip):
    ended = run_isolated(lambda: 1 / 0)
    assert ended.exit_status == 1
    assert ended.stderr.startswith("Traceback") and "ZeroDivisionError" in ended.stderr


@pytest.mark.parametrize("code, status", [(7, 7), (None, 0), ("words", 1)])
def test_a_function_that_exits(code, status):
    assert run_isolated(lambda: sys.exit(code)).exit_status == status


def test_output_is_kept():
    def speak():
        print("to standard output")
        print("to standard error", file=sys.stderr)
        os.write(1, b"\xff")

    ended = run_isolated(speak)
    assert "to standard output\n" in ended.stdout and "\ufffd" in ended.stdout
    assert ended.stderr == "to standard error\n"


def test_much_output():
    ended = run_isolated(lambda: print("x" * 1_000_000))
    assert len(ended.stdout) == 1_000_001


def test_another_signal():
    ended = run_isolated(lambda: os.kill(os.getpid(), signal.SIGKILL))
    assert ended.signal == signal.SIGKILL and not ended.stopped


def test_a_chip_that_is_installed_in_the_child():
    def function():
        with installed(Chip()):
            recipes.setEgrTunnelEcnEncap(0, 5, 4)

    ended = run_isolated(function)
    assert ended.stopped and len(ended.operations) == 3


def test_a_misuse_of_the_activity_lock_is_no_stop_of_a_recipe():
    ended = run_isolated(os.abort)
    assert ended.signal == signal.SIGABRT and not ended.stopped


# --- An SDK written in Python that raises


class Bad(Sdk):
    def __init__(self, result):
        super().__init__()
        self.result = result

    def bcmlt_entry_allocate(self, unit, table):
        return self.result(unit, table)


@pytest.mark.parametrize(
    "result, words",
    [
        (lambda unit, table: 1 / 0, "ZeroDivisionError: division by zero"),
        (lambda unit, table: sys.exit(0), "SystemExit: 0"),
        (lambda unit, table: None, "its result is of a wrong type"),
        (lambda unit, table: 0, "its result is of a wrong type"),
        (lambda unit, table: (0, -1), "its result is of a wrong type"),
        (lambda unit, table: (0, 2**32), "its result is of a wrong type"),
    ],
)
def test_an_error_in_an_sdk_ends_the_process(result, words):
    def function():
        with installed(Bad(result)):
            recipes.setEgrTunnelEcnEncap(0, 5, 2)

    ended = run_isolated(function)
    assert ended.signal == signal.SIGABRT
    assert ended.stderr.startswith("cairn_lt: bcmlt_entry_allocate of the SDK raised an error, which cannot leave it:\n")
    assert words in ended.stderr
    assert ended.recipe == "setEgrTunnelEcnEncap"
    assert ended.call.call == "bcmlt_entry_allocate" and not ended.call.returned and ended.code is None


def test_an_operation_that_is_not_written():
    def function():
        with installed(Bad(lambda unit, table: (0, 1))):
            recipes.setEgrTunnelEcnEncap(0, 5, 2)

    ended = run_isolated(function)
    assert "NotImplementedError: the SDK has no bcmlt_entry_field_add" in ended.stderr
