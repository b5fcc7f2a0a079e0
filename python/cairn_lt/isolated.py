"""Recipes that stop their process, run in a process of their own."""

import faulthandler
import json
import os
import resource
import selectors
import signal as signals
import sys
import traceback
from dataclasses import dataclass, field
from typing import Any, Callable, Dict, List, NoReturn, Optional

from cairn_lt import _cairn_lt
from cairn_lt._cairn_lt import activity_lock
from cairn_lt.interposers import Operation


@dataclass(frozen=True)
class Ended:
    """How a process ended that ran a function."""

    signal: Optional[signals.Signals]  #: that ended it; None: it exited
    exit_status: Optional[int]  #: None: a signal ended it. 1: the function raised; the traceback is in `stderr`
    stdout: str
    stderr: str
    recipe: Optional[str]  #: that was running at the end
    call: Optional[Operation]  #: the last SDK operation of that recipe
    operations: List[Operation] = field(default_factory=list)  #: all SDK operations

    @property
    def code(self) -> Optional[int]:
        """What the last SDK operation of the recipe returned; None if it did not return."""
        return self.call.rc if self.call is not None and self.call.returned else None

    @property
    def stopped(self) -> bool:
        """Whether the process was stopped as a recipe stops it, by SIGABRT while it ran."""
        return self.signal == signals.SIGABRT and self.recipe is not None


def run_isolated(function: Callable[[], object]) -> Ended:
    """Calls the function in a child of this process, and says how that ended.

    The child is a copy: what the function does to chips and variables is lost with it. It has the calling thread alone.
    RuntimeError if another thread runs a recipe, which would stand half done in the copy.
    """
    for stream in (sys.stdout, sys.stderr):
        stream.flush()
    pipes = {name: os.pipe() for name in ("stdout", "stderr", "witness")}
    try:
        child = _fork()
    except BaseException:
        for pipe in pipes.values():
            os.close(pipe[0])
            os.close(pipe[1])
        raise
    if child == 0:
        _run({name: write for name, (_, write) in pipes.items()}, function)
    for _, write in pipes.values():
        os.close(write)
    said = _read_all({name: read for name, (read, _) in pipes.items()})
    _, status = os.waitpid(child, 0)
    code = os.waitstatus_to_exitcode(status)
    witnessed = _witnessed(said["witness"])
    return Ended(
        signal=signals.Signals(-code) if code < 0 else None,
        exit_status=code if code >= 0 else None,
        stdout=said["stdout"].decode(errors="replace"),
        stderr=said["stderr"].decode(errors="replace"),
        **witnessed,
    )


def _fork() -> int:
    # No recipe begins while the activity lock is held.
    if not activity_lock.held:
        with activity_lock:
            return _fork()
    if _cairn_lt.recipes_run_elsewhere():
        raise RuntimeError("another thread runs a recipe; wait for it before run_isolated()")
    return os.fork()


def _run(pipes: Dict[str, int], function: Callable[[], object]) -> NoReturn:
    status = 1
    try:
        os.dup2(pipes["stdout"], 1)
        os.dup2(pipes["stderr"], 2)
        # A test runner may have put something else in their place.
        sys.stdout = open(1, "w", closefd=False)
        sys.stderr = open(2, "w", closefd=False)
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
        faulthandler.disable()
        _cairn_lt.witness(pipes["witness"])
        function()
        status = 0
    except SystemExit as exit:
        status = exit.code if isinstance(exit.code, int) else int(exit.code is not None)
    except BaseException:
        traceback.print_exc()
    finally:
        try:
            sys.stdout.flush()
            sys.stderr.flush()
        finally:
            os._exit(status)


def _read_all(pipes: Dict[str, int]) -> Dict[str, bytes]:
    said = {name: bytearray() for name in pipes}
    with selectors.DefaultSelector() as selector:
        for name, pipe in pipes.items():
            selector.register(pipe, selectors.EVENT_READ, name)
        while selector.get_map():
            for key, _ in selector.select():
                piece = os.read(key.fd, 1 << 16)
                if piece:
                    said[key.data] += piece
                else:
                    selector.unregister(key.fd)
                    os.close(key.fd)
    return {name: bytes(all_of_it) for name, all_of_it in said.items()}


def _witnessed(lines: bytes) -> Dict[str, Any]:
    recipe: Optional[str] = None
    operations: Dict[int, Operation] = {}
    last: Optional[int] = None
    # The last line is cut if the process was killed while it wrote it.
    for line in lines.split(b"\n")[:-1]:
        what = json.loads(line)
        if "recipe" in what:
            recipe, last = what["recipe"], None
        else:
            last = what["number"]
            operations[what["number"]] = Operation.of(what["operation"])
    return {
        "recipe": recipe,
        "call": operations[last] if recipe is not None and last is not None else None,
        "operations": list(operations.values()),
    }
