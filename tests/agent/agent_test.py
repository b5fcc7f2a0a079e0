#!/usr/bin/env python3
"""The example agent, run as a daemon is: stopped, started again, failing, hanging and killed. What it leaves is read with
cairn-lt.

    agent_test.py AGENT CAIRN_LT NAME

NAME is one of the functions test_NAME below. CAIRN_SEED and CAIRN_KILLS choose other moments to kill it, and more of them.
"""

import json
import os
import pathlib
import random
import re
import signal
import subprocess
import sys
import tempfile
import time

AGENT, CAIRN_LT, NAME = sys.argv[1:]
READY = "example-agent: the chip is up\n"
PATIENCE = 120  # seconds, after which a test gives up; none waits that long

# The operations of the bring-up, in their order.
BRING_UP = """\
bcmlt_entry_allocate OPAQUE_TAG_CONFIGr
bcmlt_entry_field_add TAG_SIZE
bcmlt_entry_field_add VALID
bcmlt_entry_field_add ETHERTYPE
bcmlt_pt_entry_commit
bcmlt_entry_free
bcmlt_entry_allocate EGR_EPARS_OPAQUE_TAG_CONFIGr
bcmlt_entry_field_add TAG_SIZE
bcmlt_entry_field_add VALID
bcmlt_entry_field_add ETHERTYPE
bcmlt_pt_entry_commit
bcmlt_entry_free
bcmlt_entry_allocate LEARN_CACHE_DATA_CONTROL
bcmlt_entry_field_symbol_add LEARN_CACHE_DATA_INFO_ID
bcmlt_entry_commit
bcmlt_entry_field_add LEARN_CACHE
bcmlt_entry_commit
bcmlt_entry_free
bcmlt_entry_allocate MON_ING_TRACE_EVENT
bcmlt_entry_field_symbol_add MON_ING_TRACE_EVENT_ID
bcmlt_entry_field_add CPU
bcmlt_entry_commit
bcmlt_entry_free
""".splitlines()


def expect(condition, what):
    if not condition:
        sys.exit(f"agent_test: {what}")


class Agent:
    """The agent under way, with its standard error in a file."""

    def __init__(self, folder, *arguments, **options):
        self.log = folder / "agent.log"
        with self.log.open("w") as log:
            self.process = subprocess.Popen([AGENT, *map(str, arguments)], **{"stderr": log, **options})

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()

    def wait_until(self, condition, what):
        end = time.monotonic() + PATIENCE
        while not condition():
            expect(self.process.poll() is None, f"the agent ended before {what}: {self.log.read_text()}")
            expect(time.monotonic() < end, f"{what} does not come")
            time.sleep(0.002)

    def says(self, text):
        self.wait_until(lambda: text in self.log.read_text(), repr(text))

    def end(self, number):
        self.process.send_signal(number)
        return self.process.wait(PATIENCE)


def cairn_lt(*arguments):
    return subprocess.run([CAIRN_LT, *map(str, arguments)], capture_output=True, text=True, check=False)


def files(folder):
    return sorted(folder.glob("*.fleetlog"))


def expect_undamaged(folder):
    """Each record of each file can be read. Returns the recorded SDK operations in the order of time, without hooks."""
    check = cairn_lt("trace", folder, "--check")
    expect(check.returncode == 0, f"trace --check: {check.stdout}{check.stderr}")
    expect(check.stdout.count("no damage found") == len(files(folder)), check.stdout)
    trace = cairn_lt("trace", folder, "--format", "json")
    expect(trace.returncode == 0, trace.stderr)
    return [line for line in map(json.loads, trace.stdout.splitlines()) if "handle" in line or "table" in line]


def expect_replay(folder, unreturned):
    """The simulated chip does the same, but for the operations that never returned. Returns how many it did."""
    replay = cairn_lt("replay", folder)
    expect(replay.returncode == 0, f"replay: {replay.stdout}{replay.stderr}")
    done = re.fullmatch(r"(\d+) operations? replayed, all as recorded\n", replay.stdout)
    expect(done, replay.stdout)
    told = re.search(r"(\d+) operations? never returned", replay.stderr)
    expect((int(told[1]) if told else 0) == unreturned, f"{unreturned} operations never returned: {replay.stderr}")
    return int(done[1])


def expect_leaks_alone(folder, most):
    """No rule is broken but by the entries that the killed threads had not freed."""
    check = cairn_lt("check", folder, "--format", "json")
    findings = json.loads(check.stdout)["findings"]
    expect([each for each in findings if each["rule"] != "leaked"] == [], check.stdout)
    expect(len(findings) <= most and check.returncode == (1 if findings else 0), f"check: {check.returncode} {check.stdout}")
    return len(findings)


def expect_no_stop(folder, log):
    """The library did not stop the process, and the diagnosis says so."""
    diagnosis = cairn_lt("diagnose", log, "--trace", folder)
    expect(diagnosis.returncode == 1, f"diagnose: {diagnosis.returncode} {diagnosis.stdout}{diagnosis.stderr}")
    expect("nothing in the report says" in diagnosis.stdout + diagnosis.stderr, diagnosis.stdout + diagnosis.stderr)


def has_files_of_both_threads(folder):
    return lambda: len(list(folder.glob("*.sdk-*"))) == 2 and len(files(folder)) == 4


def seed_times(folder):
    """The times of one thread's messages, at most of the first 50: these are in one block, which has one time itself."""
    trace = cairn_lt("trace", folder, "--recipe", "setLoadBalanceRandSeedCtrl", "--format", "json").stdout
    return [each["time"] for each in map(json.loads, trace.splitlines()) if "text" in each][:50]


def test_stop(folder):
    """SIGTERM and SIGINT end it with all that was done in the files, whatever has become of its standard streams."""
    for number in signal.SIGTERM, signal.SIGINT:
        traces = folder / str(number)
        traces.mkdir()
        with Agent(folder, "--trace-to", traces, "--record-to", traces, "--period", 1) as agent:
            agent.says(READY)
            agent.wait_until(has_files_of_both_threads(traces), "files of both threads")
            agent.wait_until(lambda traces=traces: len(seed_times(traces)) == 50, "50 ticks")
            expect(len(set(seed_times(traces))) > 1, "the trace is not given the time")
            expect(agent.end(number) == 0, f"signal {number}: {agent.process.returncode} {agent.log.read_text()}")
            last = agent.log.read_text().splitlines()[-1]
        calls = re.fullmatch(r"example-agent: stopped after (\d+) guarded calls", last)
        expect(calls, last)
        operations = expect_undamaged(traces)
        expect(all(each["rc"] == 0 or each["rc"] == -27 for each in operations), "an operation has failed")
        hooks = [line for line in cairn_lt("trace", traces).stdout.splitlines() if line.endswith(" preCallHook")]
        expect(len(hooks) == int(calls[1]), f"{len(hooks)} of {calls[1]} guarded calls are recorded")
        expect(expect_replay(traces, unreturned=0) == len(operations), "not all operations were replayed")
        expect_leaks_alone(traces, most=0)
        expect_no_stop(traces, folder / "agent.log")
        info = cairn_lt("trace", traces, "--info").stdout
        expect(info.count("timestamps          tick") == 2, "two threads' messages carry the tick")
        expect("its process ended without closing it" not in info, info)

    for what, descriptors in ("standard output", [1]), ("both outputs", [1, 2]), ("all standard streams", [0, 1, 2]):
        traces = folder / what.split()[0]
        traces.mkdir()

        def close(descriptors=descriptors):
            for descriptor in descriptors:
                os.close(descriptor)

        with Agent(folder, "--trace-to", traces, "--record-to", traces, "--period", 1, preexec_fn=close) as agent:
            agent.wait_until(has_files_of_both_threads(traces), "files of both threads")
            for descriptor in descriptors:
                target = os.readlink(f"/proc/{agent.process.pid}/fd/{descriptor}")
                expect(target == "/dev/null", f"what is said to {descriptor} goes into {target}")
            expect(agent.end(signal.SIGTERM) == 0, f"without {what}: {agent.process.returncode}")
        expect_undamaged(traces)
        expect_replay(traces, unreturned=0)

    # A pipe that nobody reads.
    traces = folder / "pipe"
    traces.mkdir()
    reader, writer = os.pipe()
    os.close(reader)
    with Agent(folder, "--trace-to", traces, "--record-to", traces, "--period", 1, stdout=writer, stderr=writer) as agent:
        agent.wait_until(has_files_of_both_threads(traces), "files of both threads")
        expect(agent.end(signal.SIGTERM) == 0, f"with a broken pipe: {agent.process.returncode}")
    expect_undamaged(traces)


def test_options(folder):
    """Bad input ends in one line that names it."""
    for arguments, code, parts in (
        (["--bad"], 2, ["--bad", "--help"]),
        (["word"], 2, ["word", "--help"]),
        (["--period", "0"], 2, ["--period", "0", "1 to 3600000"]),
        (["--period", "soon"], 2, ["--period", "soon"]),
        (["--keep-files", "-1"], 2, ["--keep-files", "-1"]),
        (["--inject", "op=pt_entry_comit,rc=-1"], 2, ["--inject", "pt_entry_comit", "pt_entry_commit"]),
        (["--stall-at", "0"], 2, ["--stall-at", "0"]),
        (["--trace-to"], 2, ["--trace-to"]),
        (["--trace-to", folder / "none"], 1, [str(folder / "none"), "No such file or directory"]),
        (["--record-to", folder / "none"], 1, [str(folder / "none"), "No such file or directory"]),
    ):
        done = subprocess.run([AGENT, *map(str, arguments)], capture_output=True, text=True, check=False, timeout=PATIENCE)
        expect(done.returncode == code and done.stdout == "", f"{arguments}: {done}")
        expect(done.stderr.startswith("example-agent: ") and done.stderr.count("\n") == 1, f"{arguments}: {done.stderr}")
        for part in parts:
            expect(part in done.stderr, f"{arguments}: no {part!r} in {done.stderr}")

    text = subprocess.run([AGENT, "--help"], capture_output=True, text=True, check=True).stdout
    for option in "--trace-to", "--keep-files", "--record-to", "--period", "--inject", "--stall-at":
        expect(option in text, f"--help has no {option}")
    for out in "/dev/full", None:
        done = subprocess.run(
            ["bash", "-c", '"$0" --help ' + (f">{out}" if out else ">&-"), AGENT], stderr=subprocess.PIPE, text=True, check=False
        )
        expect(done.returncode == 1 and done.stderr.count("\n") == 1, f"--help to {out}: {done}")


def test_restart(folder):
    """Started again and again, it leaves no more files than it was told, and removes the oldest."""
    traces = folder / "trace"
    traces.mkdir()
    processes = []
    for _ in range(5):
        with Agent(folder, "--trace-to", traces, "--record-to", traces, "--keep-files", 4, "--period", 1) as agent:
            own = f"-{agent.process.pid}-"
            agent.wait_until(lambda own=own: len(list(traces.glob(f"*{own}*"))) == 4, "files of both threads")
            processes.append(own)
            expect(agent.end(signal.SIGTERM) == 0, agent.log.read_text())
    # Of the trace and of the recording each: four files of former runs, and two of the last one.
    for pattern in "example-agent-*", "example-agent.sdk-*":
        left = [path.name for path in traces.glob(pattern)]
        expect(len(left) == 6, f"{pattern}: {left}")
        for own in processes[2:]:
            expect(sum(own in name for name in left) == 2, f"{pattern}: process {own} has not its two files in {left}")
    expect(len(files(traces)) == len(list(traces.iterdir())), f"other files: {list(traces.iterdir())}")
    expect_undamaged(traces)
    refused = cairn_lt("replay", traces)
    expect(refused.returncode == 2 and "--process" in refused.stderr, f"replay of several processes: {refused}")
    last = processes[-1].strip("-")
    expect(cairn_lt("replay", traces, "--process", last).returncode == 0, "the last run is not replayed")


def test_failure(folder):
    """An SDK call that fails stops it, and the diagnosis tells where, with what, and what was left."""
    with Agent(folder, "--trace-to", folder, "--record-to", folder, "--period", 1,
               "--inject", "op=pt_entry_commit,table=IPOST_LAG_RAND_NUM_CTRL_1r,rc=-30,at=3") as agent:
        expect(agent.process.wait(PATIENCE) == -signal.SIGABRT, f"{agent.process.returncode} {agent.log.read_text()}")
        log = agent.log.read_text()
    expect(" API ERROR:out of memory (-30)\n" in log and "\nexample-agent: stopping at guarded call " in log, log)
    diagnosis = cairn_lt("diagnose", folder / "agent.log", "--trace", folder)
    expect(diagnosis.returncode == 0, diagnosis.stderr)
    for line in (
        r"process   example-agent",
        r"recipe    setLoadBalanceRandSeedCtrl .*",
        r"arguments unit=0, seed=3",
        r"operation bcmlt_pt_entry_commit entry \d+ IPOST_LAG_RAND_NUM_CTRL_1r BCMLT_PT_OPCODE_MODIFY BCMLT_PRIORITY_NORMAL -> rc -30",
        r"tried     The simulated chip in the same state accepts it.*",
        r"left      not freed: entry \d+ of IPOST_LAG_RAND_NUM_CTRL_1r on unit 0",
    ):
        expect(re.search(f"^  {line}$", diagnosis.stdout, re.MULTILINE), f"no line {line!r} in {diagnosis.stdout}")
    operations = expect_undamaged(folder)
    # The other thread was at work when the process stopped.
    unreturned = sum(each.get("returned") is False for each in operations)
    expect(unreturned <= 1, f"{unreturned} operations never returned")
    expect(expect_replay(folder, unreturned) == len(operations) - unreturned, "not all operations were replayed")
    expect(expect_leaks_alone(folder, most=2) >= 1, "the entry at hand is a leak")


def stalled(folder, number, *options):
    """A run that is killed in the SDK operation with this number. Returns its operations."""
    traces = folder / f"stalled-at-{number}"
    traces.mkdir()
    with Agent(folder, "--trace-to", traces, "--record-to", traces, "--stall-at", number, *options) as agent:
        agent.says("example-agent: an operation stalls\n")
        expect(agent.end(signal.SIGKILL) == -signal.SIGKILL, f"{agent.process.returncode}")
    operations = expect_undamaged(traces)
    expect_no_stop(traces, folder / "agent.log")
    return traces, operations


def test_stall(folder):
    """Killed in an operation that does not return: that one is named, whichever it is."""
    for number, expected in enumerate(BRING_UP, 1):
        traces, operations = stalled(folder, number)
        expect(len(operations) == number, f"{len(operations)} operations are recorded, and {number} were begun")
        expect([each.get("returned") for each in operations] == [None] * (number - 1) + [False], f"{operations}")
        last = operations[-1]
        call, *rest = expected.split()
        expect(last["call"] == call and (not rest or rest[0] in (last.get("table"), last.get("field"))), f"{expected}: {last}")
        text = cairn_lt("trace", traces, "--operation", call).stdout.splitlines()[-1]
        expect(call in text and text.endswith("(never returned)"), text)
        if number > 1:
            expect(expect_replay(traces, unreturned=1) == number - 1, f"not all before {number} were replayed")
        # The entry under way is not freed; one that was being allocated is not known to exist.
        expect(expect_leaks_alone(traces, most=1) == (call != "bcmlt_entry_allocate"), f"the entry of {expected} is a leak")

    # In one of two threads, while the other one works.
    traces, operations = stalled(folder, 500, "--period", 1)
    lost = [each for each in operations if each.get("returned") is False]
    expect(1 <= len(lost) <= 2, f"{lost}")
    expect_replay(traces, unreturned=len(lost))
    expect_leaks_alone(traces, most=2)


def test_kill(folder):
    """Killed at any moment, while it starts, too."""
    seed = int(os.environ.get("CAIRN_SEED", "1"))
    kills = int(os.environ.get("CAIRN_KILLS", "12"))
    print(f"CAIRN_SEED={seed} CAIRN_KILLS={kills}")
    moments = random.Random(seed)
    counts = {"operations": 0, "never returned": 0, "leaked": 0, "before the first call": 0}
    for kill in range(kills):
        traces = folder / str(kill)
        traces.mkdir()
        with Agent(folder, "--trace-to", traces, "--record-to", traces, "--period", 1) as agent:
            if kill % 3 != 0:  # the others while it starts
                agent.says(READY)
            time.sleep(moments.uniform(0, 0.05))
            agent.end(signal.SIGKILL)
        recorded = traces.glob("*.sdk-*")
        operations = expect_undamaged(traces) if files(traces) else []
        if not any(recorded) or not operations:
            counts["before the first call"] += 1
            continue
        unreturned = [each for each in operations if each.get("returned") is False]
        expect(len({each["thread"] for each in unreturned}) == len(unreturned) <= 2, f"never returned: {unreturned}")
        if len(operations) > len(unreturned):
            expect(expect_replay(traces, len(unreturned)) == len(operations) - len(unreturned), "not all were replayed")
        counts["leaked"] += expect_leaks_alone(traces, most=2)
        counts["operations"] += len(operations)
        counts["never returned"] += len(unreturned)
        if agent.log.read_text():
            expect_no_stop(traces, agent.log)
    print(counts)
    expect(counts["operations"] > 0, "no run has come to its first call")


with tempfile.TemporaryDirectory() as name:
    globals()[f"test_{NAME}"](pathlib.Path(name))
