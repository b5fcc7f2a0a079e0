#!/usr/bin/env python3
"""Makes the report of what the benchmarks have measured.

    bench/report.py RAW_FOLDER REPORT_FOLDER FIGURES_FILE MACHINE

RAW_FOLDER holds what the benchmarks have written: a JSON document each, reader.tsv, reading.tsv, recording.tsv, code.md,
symbols.txt. Writes performance.md and performance.svg into REPORT_FOLDER, and all of the raw figures in one JSON document to FIGURES_FILE;
the plot is gnuplot's. What processors/*.json beside FIGURES_FILE hold, figures of other machines, stands beside the budgets.
"""

import json
import os
import pathlib
import re
import subprocess
import sys

JSON_FILES = ["trace", "recorder", "recipe", "startup", "system_port", "sim"]


def runs(document):
    """The shortest run of each benchmark, by name, in the order in which they were made known.

    "spread" is how much longer than that run half of the repetitions took, as a part of it."""
    repetitions = {}
    for run in document["benchmarks"]:
        if run.get("run_type") == "aggregate" or run.get("error_occurred"):
            continue
        name, _, manual = run["name"].partition("/iterations:")
        if manual:
            run["cpu_time"] = run["real_time"]
        repetitions.setdefault(name.removesuffix("/manual_time"), []).append(run)
    shortest = {}
    for name, all_runs in repetitions.items():
        times = sorted(run["cpu_time"] for run in all_runs)
        shortest[name] = min(all_runs, key=lambda run: run["cpu_time"])
        shortest[name]["spread"] = times[len(times) // 2] / times[0] - 1
    return dict(sorted(shortest.items(), key=lambda item: item[1].get("family_index", 0)))


def ratio_text(run, floor):
    """A ratio of two shortest runs, and how far it may be off: the larger spread of the two."""
    ratio = run["cpu_time"] / floor["cpu_time"]
    return f"{ratio:.2f} ± {ratio * max(run['spread'], floor['spread']):.2f}"


def table(heads, rows):
    """A Markdown table; a head that ends in ":" is of a column of text."""
    lines = ["| " + " | ".join(head.removesuffix(":") for head in heads) + " |"]
    lines.append("|" + "|".join("---" if head.endswith(":") else "--:" for head in heads) + "|")
    lines += ["| " + " | ".join(row) + " |" for row in rows]
    return "\n".join(lines)


def trace_table(trace):
    rows = []
    for name, run in trace.items():
        floor = trace.get(run.get("label", ""))
        ratio = ratio_text(run, floor) if floor else ""
        count = f"{run['instructions']:.0f}" if "instructions" in run else "-"
        rows.append([name, f"{run['cpu_time']:.2f}", ratio, run.get("label", ""), count])
    return table(["operation:", "ns", "ratio", "to:", "instructions"], rows)


def recorder_table(recorder):
    rows = []
    for name, run in recorder.items():
        count = f"{run['instructions']:.0f}" if "instructions" in run else ""
        rows.append([name.partition("/")[2], f"{1e9 / run['items_per_second']:.1f}", count])
    return table(["an operation:", "ns", "instructions"], rows)


def hot_bytes(symbols):
    """The size of each recipe's function, without what the compiler has put aside as cold."""
    found = re.findall(r"^[0-9]+ ([0-9]+) T Cairn::(\w+)\(", symbols, re.MULTILINE)
    return {name: int(size) for size, name in found}


def recipe_table(recipes, sizes):
    rows = []
    for name, run in recipes.items():
        guard = f"{run['guard_instructions']:.1f}" if "guard_instructions" in run else "-"
        rows.append([name, f"{run['calls']:.0f}", str(sizes[name]), f"{run['bare_ns']:.0f}", f"{run['recipe_ns']:.0f}",
                     f"{run['ratio']:.3f}", guard, f"{run['tick_ratio']:.3f}", f"{run['counter_ratio']:.3f}",
                     f"{run['null_ns']:.0f}", f"{run['file_ns']:.0f}"])
    return table(["recipe:", "SDK calls", "hot bytes", "bare, ns", "recipe, ns", "ratio", "instructions a call",
                  "recorded, tick", "recorded, counter", "traced to nowhere, ns", "traced to a file, ns"], rows)


def sim_rows(sim, name):
    """(rows, nanoseconds a visit) of one benchmark, from the smallest table up."""
    points = []
    for full, run in sim.items():
        benchmark, _, rows = full.partition("/")
        if benchmark == name:
            rows = int(rows)
            visit = run["cpu_time"] / rows if name.startswith("fill") else run["cpu_time"]
            points.append((rows, visit))
    return sorted(points)


def sim_table(sim):
    names = list(dict.fromkeys(full.partition("/")[0] for full in sim))
    sizes = [rows for rows, _ in sim_rows(sim, names[0])]
    rows = []
    for name in names:
        points = sim_rows(sim, name)
        memory = [run.get("bytes/row") for full, run in sim.items() if full.startswith(name + "/")]
        rows.append([name, *(f"{visit:.1f}" for _, visit in points), f"{points[-1][1] / points[0][1]:.2f}",
                     f"{memory[0]:.1f} to {memory[-1]:.1f}" if memory[0] is not None else ""])
    return table(["visit, ns, of a table of:", *(f"{size:,} rows" for size in sizes), "last to first",
                  "bytes a row"], rows)


def reader_table(lines):
    rows = []
    for line in lines:
        name, size, records, seconds = line.split("\t")
        megabytes, seconds = int(size) / 1e6, float(seconds)
        rows.append([name, f"{megabytes:.1f}", f"{seconds:.3f}", f"{megabytes / seconds:.0f}",
                     f"{int(records) / seconds / 1e6:.1f}"])
    return table(["reading:", "MB", "s", "MB/s", "million records/s"], rows)


def reading_table(lines):
    rows = []
    for name, size, records, wall, processor in (line.split("\t") for line in lines):
        is_whole = "processor" in name
        rows.append([name, f"{int(size) / 1e6:,.0f}", f"{float(wall):.3f}", f"{float(processor):.3f}",
                     f"{int(size) / 1e6 / float(wall):,.0f}" if is_whole else "",
                     f"{int(records) / 1e6 / float(wall):.1f}" if is_whole else ""])
    return table(["shown:", "MB", "s of the clock", "s of the processors", "MB/s", "million records/s"], rows)


def recording_table(lines):
    rows = []
    for name, operations, seconds, memory in (line.split("\t") for line in lines[1:]):
        rows.append([name, f"{int(operations):,}", seconds, f"{int(operations) / float(seconds) / 1e6:.2f}",
                     f"{int(memory) / 1024:.0f}"])
    return table(["verb:", "operations read", "s", "million operations/s", "most memory, MiB"], rows)


def recording_bytes(lines):
    _, operations, size = lines[0].split("\t")
    return int(size) / int(operations)


def budgets(figures):
    """What has a limit, the limit, and where it stands in these figures, which may be those of an older version."""
    def measured(name):
        return runs(figures[name]) if name in figures else {}

    code = figures["code"]
    trace, recorder, recipes, sim = map(measured, ("trace", "recorder", "recipe", "sim"))

    def count(name):
        return f"{trace[name]['instructions']:.0f}" if "instructions" in trace[name] else "-"

    def ratio(name):
        return trace[name]["cpu_time"] / trace[trace[name]["label"]]["cpu_time"]

    def to_floor(name):
        floor = trace.get(trace[name]["label"])
        return ratio_text(trace[name], floor) if floor else "-"

    def chip(at_random):
        """The nanoseconds of a visit to the smallest and to the largest table, for each kind of visit."""
        names = dict.fromkeys(full.partition("/")[0] for full in sim if not full.startswith("bareArray"))
        return [(points[0][1], points[-1][1]) for points in (
            sim_rows(sim, name) for name in names if name.endswith("<AtRandom>") == at_random)]

    def figure(text):
        return next(line.split("|")[2].strip() for line in code if text in line)

    recorded = " to ".join(f"{bound(counts):.0f}" for bound in (min, max)) if (
        counts := [run["instructions"] for run in recorder.values() if "instructions" in run]) else "-"
    plain = [run for run in recipes.values() if run["lines"] == 0 and "guard_instructions" in run]
    records = [f"two values, record, {time}" for time in ("no time", "tick", "counter")]
    texts = [f"value and text, record, {time}" for time in ("no time", "tick", "counter")]
    files = [f"two values, message, counter, file of the {owner}" for owner in ("process", "thread")]
    every = [
        ("instructions that the guard adds to a call, in recipes without a message", "12", lambda:
         " to ".join(f"{bound(run['guard_instructions'] for run in plain):.1f}" for bound in (min, max)) if plain else "-"),
        ("hot code of the recipes for each guarded call, bytes", "96", lambda:
         f"{figure('the same for each')}; {figure('with what is shared')} with what they share"),
        ("a whole recipe against the same calls bare, nothing traced", "1.05", lambda:
         f"{max(run['ratio'] for run in recipes.values()):.3f} at most"),
        ("the same with the binary trace and ticks", "1.06", lambda:
         f"{max(run['tick_ratio'] for run in recipes.values()):.3f} at most"),
        ("a record of two values, instructions: no time, tick, counter", "15, 15, 18", lambda: ", ".join(map(count, records))),
        ("the same, time against a ring by hand", "1.1", lambda: f"{max(map(ratio, records)):.2f} at most"),
        ("a record of a value and a text of 20 characters, instructions", "57", lambda: ", ".join(map(count, texts))),
        ("a message of two values, instructions: file of the process, of the thread", "48", lambda:
         ", ".join(map(count, files))),
        ("the same, time against a ring by hand with the counter", "1.15", lambda: ", ".join(map(to_floor, files))),
        ("a line of text, formatted and dropped, against `spdlog`", "1.3", lambda: to_floor("two values, text line, dropped")),
        ("the text of a message, the same", "1.3", lambda: to_floor("two values, text of a message, dropped")),
        ("an SDK operation recorded, instructions", "140", lambda: recorded),
        ("allocations in a recipe", "its own table names", lambda: "a test counts them"),
        ("the simulated chip at 1,000,000 rows against 1,000, in order", "1.5", lambda:
         f"{max(large / small for small, large in chip(at_random=False)):.2f} at most"),
        ("the same at random: what a visit costs more, in reads of a bare array of that size", "2", lambda:
         f"{max((large - small) / sim_rows(sim, 'bareArray')[-1][1] for small, large in chip(at_random=True)):.2f} at most; "
         "see [there](#the-simulated-chip)"),
    ]

    def value(figure):
        try:
            return figure()
        except (KeyError, IndexError, StopIteration, ValueError):
            return "-"

    return [(name, limit, value(figure)) for name, limit, figure in every]


def budget_table(this, others):
    """The budgets in this run, and beside them what other processors have measured."""
    columns = [budgets(figures) for figures in (this, *others)]
    beside = [dict((name, value) for name, _, value in column) for column in columns]
    return table(["budget:", "limit", "this run:", *(figures["machine"] + ":" for figures in others)],
                 [[name, limit, *(values.get(name, "-") for values in beside)] for name, limit, _ in columns[0]])


def plot(path, trace, recipes, sim):
    """Three panels: records beside other tracers, recipes against bare calls, the simulated chip as it grows."""
    def shown(name):
        return name.startswith("two values") and not name.endswith(("no time", "tick", "no file"))

    data = ["$trace << END"]
    def label(name):
        return ", ".join(part for part in name.split(", ")[1:] if part != "counter" or "by hand" in name or "record" in name)

    data += [f'"{label(name)}"\t{run["cpu_time"]}' for name, run in trace.items() if shown(name)]
    data += ["END", "$recipes << END"]
    ordered = sorted(recipes.values(), key=lambda run: run["ratio"])
    data += [f"{i}\t{run['ratio']}" for i, run in enumerate(ordered, 1)]
    data.append("END")
    chip = ["lookup<InOrder>", "lookup<AtRandom>", "update<InOrder>", "modify<InOrder>", "modify<AtRandom>", "bareArray"]
    for i, name in enumerate(chip):
        data += [f"$chip{i} << END", *(f"{rows}\t{visit}" for rows, visit in sim_rows(sim, name)), "END"]
    curves = ", ".join(f"$chip{i} using 1:2 with linespoints lw 2 title '{name}' noenhanced"
                       for i, name in enumerate(chip))
    script = "\n".join(data) + f"""
set terminal svg size 900,1300 font 'sans-serif,13' background '#ffffff'
set output '{path}'
set multiplot layout 3,1
set style fill solid 0.8
set boxwidth 0.7
set grid ytics
set title 'A record or message of two values, with the time-stamp counter'
set ylabel 'ns'
set logscale y
set xtics noenhanced rotate by -20
set bmargin 7
set rmargin 10
set yrange [1:3000]
plot $trace using 0:2:xtic(1) with boxes lc '#4477aa' notitle, \\
     $trace using 0:2:(sprintf('%.1f', $2)) with labels offset 0,0.7 notitle
unset logscale y
set xtics norotate
set rmargin -1
set title 'Each recipe against the same shim calls written bare, on the simulated chip'
set ylabel 'ratio'
set xlabel 'the recipes, by their ratio'
set bmargin -1
set xrange [0:*]
set yrange [0.98:1.1]
set key top left
plot $recipes using 1:2 with boxes lc '#66aa77' notitle, 1.05 with lines lc '#cc3311' lw 2 title 'budget'
set title 'A visit to a row of the simulated chip: allocate, fields, commit, free'
set ylabel 'ns'
set xlabel 'rows of the table'
set logscale x
set rmargin 4
set format x '%.0f'
set xrange [1000:1000000]
set yrange [0:*]
set key top left
plot {curves}
"""
    subprocess.run(["gnuplot"], input=script, text=True, check=True)


def main():
    if len(sys.argv) != 5:
        sys.exit(__doc__)
    raw, report, figures = (pathlib.Path(argument) for argument in sys.argv[1:4])
    machine = sys.argv[4]
    documents = {name: json.loads((raw / f"{name}.json").read_text()) for name in JSON_FILES}
    reader = (raw / "reader.tsv").read_text().splitlines()
    reading = (raw / "reading.tsv").read_text().splitlines()
    recording = (raw / "recording.tsv").read_text().splitlines()
    code = (raw / "code.md").read_text().strip()
    sizes = hot_bytes((raw / "symbols.txt").read_text())
    relocations = next(line.split("|")[2].strip() for line in code.splitlines() if line.startswith("| relocations"))
    relative = next(line.split("|")[2].strip() for line in code.splitlines() if line.startswith("| of them relative"))
    this = {"machine": machine, "code": code.splitlines(), "reader": reader, "reading": reading, "recording": recording,
            "hot_bytes": sizes, **documents}
    others = [json.loads(path.read_text()) for path in sorted((figures.parent / "processors").glob("*.json"))]
    trace, recorder, recipes, startup, ports, sim = (runs(documents[name]) for name in JSON_FILES)
    waiting = max((run["counter_ratio"] - run["tick_ratio"]) * run["bare_ns"] for run in recipes.values())
    ticks = max(run["tick_ratio"] - run["ratio"] for run in recipes.values())
    over = ", ".join(f"{name} ({(run['recipe_ns'] - run['bare_ns']):.0f} ns more than {run['bare_ns']:.0f} ns, for "
                     f"{run['calls']:.0f} calls and a message)" if run["lines"] else name
                     for name, run in recipes.items() if run["ratio"] > 1.05) or "none"
    worst = max(recipes.values(), key=lambda run: run["ratio"])
    worst_tick = max(recipes.values(), key=lambda run: run["tick_ratio"])
    guard_part = worst_tick.get("guard_instructions", 0) * worst_tick["calls"]
    six = (trace["six values, message, counter, file of the process"].get("instructions", 0)
           - trace["six values, message, no file"].get("instructions", 0))

    record, message = trace["two values, record, counter"], trace["two values, message, counter, file of the process"]
    beyond = {"ns": message["cpu_time"] - record["cpu_time"],
              "instructions": f"{message['instructions'] - record['instructions']:.0f}" if "instructions" in message else "some 30"}

    keeping = (trace["bytes of a text line, one write, signals kept away"]["cpu_time"]
               - trace["bytes of a text line, one write to a file"]["cpu_time"])

    message_parts = table(["of a message of two values:", "instructions"], [
        ["the call and its arguments", "5"],
        ["the handle: its address, whether there is one; the arguments put aside", "7"],
        ["the file: whether the thread remembers that of this handle", "7"],
        ["the site: its identifier, and whether the file has it", "7"],
        ["the record: its place, the counter, two values, the mark that it is whole", "16"],
        ["the text: whether level 2 is on", "4"],
        ["back", "2"]])
    loads = {name: run["real_time"] / 1000 for name, run in startup.items()}
    empty, needs, platform, library, whole = loads.values()
    startup_table = table(["loading:", "us", "pages touched first"],
                          [[name, f"{run['real_time'] / 1000:.0f}", f"{run['faults']:.0f}"] for name, run in startup.items()])
    startup_parts = table(["of the library's load:", "us"], [[part, f"{took:.0f}"] for part, took in (
        ("an empty library: opened, mapped, made known", empty),
        ("a second one: sought, opened, mapped, made known", needs - empty),
        ("the platform's names, relocations and start code", platform - empty),
        ("the library's own", library - empty),
        ("the sum; the whole is measured above", needs + platform + library - 2 * empty))])
    port_table = table(["system ports:", "ns a recipe", "allocations a recipe"],
                       [[name.partition("/")[2], f"{run['per_recipe'] * 1e9:.0f}", f"{run['allocations']:.6f}"]
                        for name, run in ports.items()])
    (report / "performance.md").write_text(f"""# Performance

    ./scripts/benchmark.sh

repeats every figure of this page and writes it anew, with the plot and [all raw figures]({os.path.relpath(figures, report)}). Times differ
from machine to machine; compare the ratios, which are of one run, and the counts, which are exact. The counts and their
limits are tests as well (`tests/budgets/`); times are not.

This run: {machine}. Figures of another processor stand beside those of this one once they are in `bench/processors/`:
`scripts/benchmark.sh FOLDER` makes them there.

![Records beside other tracers, recipes against bare calls, the simulated chip as it grows](performance.svg)

{budget_table(this, others)}

## The guarded call

A recipe against the same recipe compiled bare: the same shim calls, hooks and lock releases by the same compiler, and
nothing around them. Both run on the simulated chip, alternating within one run; the row exists after the first time, so
an INSERT is made an UPDATE of it. The highest ratio is that of {worst["name"]}. A ratio moves by 0.01 from run to run.
Above the limit of 1.05 in this run: {over}.

What a guarded call adds to a bare one, instruction by instruction in the release build: 2 for the hook, which all calls ask for
through one function; 1 keeps the return code while the lock is retaken; 4 read the mask of "ApiCairn" and judge the code and
level 4 in one jump. The rest stands once in a recipe: registers that are saved, the mask's address, the test of a handle.
setInnerOpaqueTagEgressEpmod, at times the dearest, has 4 calls: 28 and 6 instructions. They do not explain a ratio of 1.054 in one
run of all recipes, 1.030 in another, and 1.026 in five runs with two other recipes: the recipe took 137 ns in each of them, and the
bare calls 130 ns in the first and 133 ns in the others.

With ticks {worst_tick["name"]} is the dearest: {worst_tick["tick_ratio"]:.3f}. {guard_part:.0f} instructions go into the guard of its {worst_tick["calls"]:.0f} calls and the messages
that go nowhere ({worst_tick["recipe_ns"] - worst_tick["bare_ns"]:.0f} ns more than {worst_tick["bare_ns"]:.0f} ns), and its record is {(worst_tick["tick_ratio"] - worst_tick["ratio"]) * worst_tick["bare_ns"]:.1f} ns; a message of six values has {six:.0f} instructions
more with a file than without. Stores of one value each, in place of four that the compiler puts together first, were 4
instructions fewer, and no faster.

- *SDK calls* are those of one run on the simulated chip; *hot bytes* are the whole function, which may have more calls
  than a run makes.
- *Instructions a call* is what the guard and the recipe's messages add to each SDK call, counted by stepping through
  both on an SDK that does nothing. A message that goes nowhere is some {trace["two values, message, no file"].get("instructions", 17):.0f} of them.
- *Recorded* is the ratio with the binary trace open. With ticks as timestamps it is at most {ticks:.3f} more than without.
  With the processor's counter in each record the reading of the counter comes on top: {trace["counter read"]["cpu_time"]:.0f} ns by itself, and up to
  {waiting:.0f} ns more than a tick where it has to wait for what the processor still has in hand.
- *Traced* is level 4 of "ApiCairn": a line for each call, dropped, and written to a file in a write of its own.

{recipe_table(recipes, sizes)}

What the recipes weigh, their own logic and their prologues included:

{code}

## The always-on trace

A record against a hand-written mapped ring with the same stores (the floor), the bare counter, and other tracers:
spdlog with a sink that drops the text, formatting at once or on a thread of its own, and lttng-ust while a session
records.

A ratio is that of the shortest of 15 runs of each; behind it stands how much longer than the shortest half of the runs took.

A line of text is formatted where the other tracer formats the same values, and both sinks drop it. *Formatted by a callback*
adds the time, the thread and the place, as a line in a file has them. The text of a message costs more than a line: its pieces
go into the stream that all messages share, from there, with the values between them, into a text, and the text, whose length is
sought anew, into the line. Each step reads several bytes at a time what the step before has stored piece by piece, and so waits
until it is stored: some 6 ns before the line. The length could be handed on (1.25 times the other tracer's line), but every
host with a platform of its own would have to have two functions more. Both take the lock of the sink, some 10 ns in a process
with several threads; the other tracer's sink is for one thread and has none.

A line to a file is one `write`, and two calls that keep SIGPIPE and SIGXFSZ from this thread while it is made: a closed pipe or
a limit on the size of files must not end the agent. The two take {keeping:.0f} ns. Nothing cheaper is right in all cases:

- A regular file sends no SIGPIPE, and what a file is can be asked when it is opened. But it sends SIGXFSZ where it would grow
  beyond the limit, which every thread and, by `prlimit`, other processes may lower at any moment. To ask for the limit before
  each line takes {trace["limit on the size of files read"]["cpu_time"]:.0f} ns, half of what is saved, and what changes between the question and the write ends the agent.
- Standard error may be a pipe from one line to the next (`dup2`), so it would have to be asked each time as well.
- Signals that are ignored, or stay blocked, are so for the agent's own writes, too; and to keep lines back until many are
  written at once loses them when the process aborts.
- The kernel of Debian 12 has no flag that keeps SIGXFSZ from a write, nor SIGPIPE from one to a pipe.

A message against the ring by hand is its record, and what tells where it goes: whether its text is wanted, the handle, the
thread's file, the site in that file. That is {beyond["instructions"]} instructions and {beyond["ns"]:.1f} ns; the ring by hand has one file and one site.

{message_parts}

The limit in time is 1.35 ns above the ring by hand, which is what some 23 instructions take at this pace; these are 34 more than
the ring's. Without the call, in line at each message, 10 would go, and each message would have 200 bytes more of hot code.

{trace_table(trace)}

## Reading a trace

A file of a million records, half of them with a text, and babeltrace2 on the same events as lttng-ust wrote them.
Seconds of the processor.

{reader_table(reader)}

What `cairn-lt trace` takes to show such records, several files merged, to nowhere. Lines are made on up to four processors:
one thread reads and merges, and hands on copies of records in batches, which it prints in their order; it makes lines, too,
when enough batches are under way. The first 16,384 records are shown before that, and a short trace starts no thread. The
first lines, and those of a given time, are found by a search in each file, however large it is: of the counters of its blocks,
which rise. The wall clock of files with ticks or without times may have been set back, and a search could then miss records, so
these are read as a whole. Recorded SDK calls are read from their beginning, because the table of an entry is told only where
it was allocated, however long before.

{reading_table(reading)}

## Recordings

A recording of two threads, each with a unit of its own, which for each row allocate an entry, add its index and a value,
commit, read and free: {recording_bytes(recording):.0f} bytes an operation, its hook included. `diff` reads both recordings once for each unit
and once more. `report` performs the recording and shows the last of its calls, at most two million, and the changes of rows:
that is its memory, however long the recording is. `diagnose` finds the recording of a process that was stopped beside this
one, and rebuilds its chip. Seconds of the processor. The limit of a replay is a million operations a second.

{recording_table(recording)}

What recording adds to an operation on an SDK that does almost nothing, its two records and the reading of the counter for each.
The instructions are those that the recorder adds, with names of at most 31 characters.

{recorder_table(recorder)}

## Start-up

Loading the library, until `dlopen` returns, into a process that was started for it and has not got it: the shortest of 400
loads. A library with nothing in it shows what each load costs; one that needs the empty one, what a second library costs that
the loader has to search for; and the platform, which the library needs, is loaded by itself, too.

{startup_table}

{startup_parts}

- Names: of the 250,000 instructions of a load (an empty library has 9,000) 171,000 go into the search for some 230 names, in
  the program and in each library that it has. Most are the C and C++ libraries', or those by which the library calls the platform.
- The {relocations} relocations of the library: {relative} of them are a sum each, and take less than 4,000 instructions.
- Start code: 2,000 instructions, for the handlers of `fork()` and the facility "ApiCairn". No file is opened: the trace file is
  the host's decision.
- The search: `$ORIGIN` makes the loader try 19 folders for kinds of processors before the right one, 24 us. The Debian packages
  have no such path; there the loader has a list. A host that is linked with the platform has it before it loads the library.

Not taken: data bound within the platform, as its calls are (`-Bsymbolic`), 1 us, and programs that hold copies of its variables
would not share them; code and constants in one mapping (`-z noseparate-code`), 8 us, and constants could be executed; names
looked up at the first call, which may be in a signal handler.

## System ports

Mappings programmed, verified and removed, and what a recipe takes from the heap, the chip's own growth included.

{port_table}

## The simulated chip

One visit is allocate, fields, commit, free; a `deleteInsert` is two of them. The limit where rows are visited in order is
1.5 times from 1,000 to 1,000,000 rows. At random each visit to the large table is a row that no near cache holds:
`bareArray`, one read of an array of that size, shows what that alone costs here. There the limit is that read and one more
access to memory. Large tables, and the array, stand in large pages if the system gives them to those who ask (`madvise` in
`/sys/kernel/mm/transparent_hugepage/enabled`).

{sim_table(sim)}
""")
    for document in documents.values():
        for private in ("host_name", "executable"):
            document["context"].pop(private, None)
    figures.write_text(json.dumps(this, indent=1) + "\n")
    plot(report / "performance.svg", trace, recipes, sim)


if __name__ == "__main__":
    main()
