"""The activity lock and the interpreter's. No test here depends on the time that something takes."""

import fcntl
import os
import signal
import struct
import subprocess
import sys
import termios
import threading

import pytest

from cairn_lt import Chip, Sdk, _cairn_lt, activity_lock, install, installed, recipes, run_isolated

ENCAP = "EGR_TUNNEL_ECN_ENCAPm"


def in_threads(*functions):
    """Runs the functions at once and raises what one of them raised."""
    raised = []

    def run(function):
        try:
            function()
        except BaseException as error:
            raised.append(error)

    threads = [threading.Thread(target=run, args=(function,)) for function in functions]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    if raised:
        raise raised[0]


class Waiting(Sdk):
    """An SDK whose operations wait for another Python thread; all else is that of a chip."""

    def __init__(self):
        super().__init__()
        self.chip = Chip()
        self.during = lambda: None

    def bcmlt_entry_allocate(self, unit, table):
        self.during()
        return self.chip.bcmlt_entry_allocate(unit, table)

    def bcmlt_entry_commit(self, handle, opcode, priority):
        return self.chip.bcmlt_entry_commit(handle, opcode, priority)

    def bcmlt_entry_field_add(self, handle, field, value):
        return self.chip.bcmlt_entry_field_add(handle, field, value)

    def bcmlt_entry_free(self, handle):
        return self.chip.bcmlt_entry_free(handle)

    def bcmlt_pt_entry_commit(self, handle, opcode, priority):
        return self.chip.bcmlt_pt_entry_commit(handle, opcode, priority)


def test_held_within_the_with():
    assert not activity_lock.held
    with activity_lock:
        assert activity_lock.held
    assert not activity_lock.held
    with pytest.raises(ZeroDivisionError):
        with activity_lock:
            1 / 0
    assert not activity_lock.held


def test_misuse_is_an_error():
    with activity_lock:
        with pytest.raises(RuntimeError, match="holds the activity lock already"):
            activity_lock.__enter__()
        assert activity_lock.held
    with pytest.raises(RuntimeError, match="does not hold the activity lock"):
        activity_lock.__exit__(None, None, None)


def test_another_thread_does_not_hold_it():
    with activity_lock:
        seen = []
        in_threads(lambda: seen.append(activity_lock.held))
        assert seen == [False]


def test_recipes_within_the_lock(chip):
    with activity_lock:
        recipes.setVxlanDefaultNetworkSvp(0, 100)
        assert activity_lock.held
        recipes.setEgrTunnelEcnEncap(0, 5, 2)
        assert activity_lock.held
    assert chip.table(ENCAP) == [{"index": 5, "OUTER_ECN": 2}]


def test_recipes_take_the_lock_as_an_agent_does():
    sdk = Waiting()
    held = []
    sdk.during = lambda: held.append(activity_lock.held)
    with installed(sdk):
        recipes.setVxlanDefaultNetworkSvp(0, 100)  # gives the lock up around each operation
        recipes.setEgrTunnelEcnEncap(0, 5, 2)  # keeps it
    assert held == [False, True]
    assert not activity_lock.held


def test_the_library_gives_both_locks_up_around_an_operation():
    """The other thread takes the activity lock and runs Python, while the operation waits for it."""
    sdk = Waiting()
    begun, done = threading.Event(), threading.Event()

    def during():
        begun.set()
        done.wait()

    sdk.during = during
    counted = []

    def other():
        begun.wait()
        with activity_lock:
            for number in range(1000):
                counted.append(number)
        done.set()

    with installed(sdk):
        in_threads(lambda: recipes.setVxlanDefaultNetworkSvp(0, 100), other)
    assert len(counted) == 1000


def test_an_operation_in_cxx_lets_python_run(chip):
    """The chip's operation stands still in C++, before a full pipe, until a thread in Python has counted and reads."""

    def function():
        read, write = os.pipe()
        size = fcntl.fcntl(write, fcntl.F_SETPIPE_SZ, 4096)
        recipe = b'{"recipe":"setVxlanDefaultNetworkSvp"}\n'
        # Room for that line, which the thread writes with both locks, and for none that the operation writes.
        os.write(write, b" " * (size - len(recipe)))
        _cairn_lt.witness(write)
        counted = []

        def count():
            while struct.unpack("i", fcntl.ioctl(read, termios.FIONREAD, bytes(4)))[0] < size:
                pass
            counted.extend(range(1000))
            with activity_lock:
                counted.extend(range(1000))
            while counted[-1] != "end":
                os.read(read, 4096)

        def call():
            recipes.setVxlanDefaultNetworkSvp(0, 100)
            assert len(counted) == 2000
            counted.append("end")
            os.write(write, b"end")

        in_threads(count, call)

    ended = run_isolated(function)
    assert (ended.exit_status, ended.stderr) == (0, "")


def test_a_thread_that_waits_for_the_activity_lock_lets_python_run(chip):
    """If it held the interpreter's lock, this thread would not go on, and never give the activity lock up."""
    waiting = threading.Event()
    order = []

    def recipe():
        waiting.set()
        recipes.setEgrTunnelEcnEncap(0, 5, 2)
        order.append("recipe")

    with activity_lock:
        thread = threading.Thread(target=recipe)
        thread.start()
        waiting.wait()
        for _ in range(1000):
            thread.join(0.0001)  # gives the interpreter's lock to the thread
            if order:
                break
        order.append("lock given up")
    thread.join()
    assert order == ["lock given up", "recipe"]


def test_eight_threads(chip):
    """Recipes, locks, SDK operations and Python, all at once."""
    rounds = 50
    shared = []

    def work(number):
        for count in range(rounds):
            recipes.setEgrTunnelEcnEncap(0, number, count % 4)
            recipes.setVxlanDefaultNetworkSvp(0, count)
            with activity_lock:
                shared.append((number, count))
                recipes.setIngTunnelEcnDecap(0, number, count % 4, True)
            assert chip.table(ENCAP).row(index=number)["OUTER_ECN"] == count % 4
            sum(range(count))

    in_threads(*(lambda number=number: work(number) for number in range(8)))
    assert sorted(shared) == [(number, count) for number in range(8) for count in range(rounds)]
    assert [row["index"] for row in chip.table(ENCAP)] == list(range(8))


def test_eight_threads_with_an_sdk_in_python():
    rounds = 20

    with installed(Waiting()) as sdk:

        def work(number):
            for count in range(rounds):
                recipes.setVxlanDefaultNetworkSvp(0, count)
                recipes.setEgrTunnelEcnEncap(0, number, count % 4)
                with activity_lock:
                    recipes.setVxlanDefaultNetworkSvp(0, number)

        in_threads(*(lambda number=number: work(number) for number in range(8)))
        assert [row["index"] for row in sdk.chip.table(ENCAP)] == list(range(8))
        assert sdk.chip.live_entries == []


def test_a_fork_while_another_thread_holds_the_activity_lock(chip):
    held, forked = threading.Event(), threading.Event()

    def hold():
        with activity_lock:
            held.set()
            forked.wait()

    def fork():
        held.wait()
        child = os.fork()
        if child == 0:
            recipes.setEgrTunnelEcnEncap(0, 5, 2)
            os._exit(0)
        forked.set()
        assert os.waitpid(child, 0)[1] == 0

    in_threads(hold, fork)


def test_isolated_functions_and_the_activity_lock(chip):
    def function():
        assert not activity_lock.held
        recipes.setVxlanDefaultNetworkSvp(0, 1)

    assert run_isolated(function).exit_status == 0
    with activity_lock:
        assert run_isolated(lambda: recipes.setVxlanDefaultNetworkSvp(0, 1)).exit_status == 0
        assert activity_lock.held


def test_an_isolated_function_waits_for_no_recipe():
    sdk = Waiting()
    begun, done = threading.Event(), threading.Event()

    def during():
        begun.set()
        done.wait()

    def isolate():
        begun.wait()
        try:
            with pytest.raises(RuntimeError, match="another thread runs a recipe"):
                run_isolated(lambda: None)
            with pytest.raises(RuntimeError, match="a recipe runs"):
                install(None)
        finally:
            done.set()

    sdk.during = during
    with installed(sdk):
        in_threads(lambda: recipes.setVxlanDefaultNetworkSvp(0, 1), isolate)
        assert run_isolated(lambda: None).exit_status == 0


def test_an_isolated_function_within_an_operation():
    sdk = Waiting()
    ended = []

    def during():
        sdk.during = lambda: None
        ended.append(run_isolated(lambda: recipes.setEgrTunnelEcnEncap(0, 5, 4)))

    sdk.during = during
    with installed(sdk):
        recipes.setVxlanDefaultNetworkSvp(0, 1)
    assert ended[0].stopped


def test_the_process_ends_while_threads_run_recipes():
    """Threads that the interpreter leaves behind do not end the process in their own way."""
    script = """
import threading, cairn_lt
from cairn_lt import recipes

cairn_lt.install(cairn_lt.Chip())
begun = threading.Barrier(5)

def work():
    begun.wait()
    while True:
        recipes.setVxlanDefaultNetworkSvp(0, 1)

for _ in range(4):
    threading.Thread(target=work, daemon=True).start()
begun.wait()
print("end")
"""
    for _ in range(5):
        ended = subprocess.run([sys.executable, "-c", script], capture_output=True, text=True, check=False)
        assert (ended.returncode, ended.stdout, ended.stderr) == (0, "end\n", "")


def test_a_stop_in_a_thread(chip):
    def function():
        in_threads(lambda: recipes.setEgrTunnelEcnEncap(0, 5, 4))

    ended = run_isolated(function)
    assert ended.signal == signal.SIGABRT and ended.recipe == "setEgrTunnelEcnEncap"
