#!/usr/bin/env python3
"""Makes traces with trace_reader_bench, and measures how fast cairn-lt shows them.

    bench/reading_figures.py BUILD_FOLDER [RECORDS]     32,000,000 records in the large folder unless told otherwise

Prints a line for each reading, with tabs between its name, the bytes of the trace, its records, the seconds of the clock, and
those of the processors; of each the shortest of several runs. Exits with 1 if a command does not answer as it should.
"""

import calendar
import json
import pathlib
import resource
import subprocess
import sys
import tempfile
import time

RUNS = 5
LINES_OF_SCREEN = 100


def main():
    if len(sys.argv) < 2:
        print(__doc__, file=sys.stderr)
        return 2
    build = pathlib.Path(sys.argv[1]) / "bin"
    records = int(sys.argv[2]) if len(sys.argv) > 2 else 32_000_000
    tool = build / "cairn-lt"
    with tempfile.TemporaryDirectory() as folder:
        few = make(build, f"{folder}/few", records // 8, 4)
        for form, name in (("text", "text"), ("json", "JSON")):
            for jobs, processors in ((["--jobs", "1"], "one processor"), ([], "all processors")):
                show(f"{name}, {processors}", few, [tool, "trace", few[0], "--format", form, *jobs])
        many = make(build, f"{folder}/many", records, 16)
        show(f"first {LINES_OF_SCREEN} lines", many, [tool, "trace", many[0]], LINES_OF_SCREEN)
        begin, end = millisecond(tool, many[0])
        show("a millisecond of the middle", many, [tool, "trace", many[0], "--from", begin, "--to", end])
    return 0


def make(build, folder, records, files):
    """Returns the folder, the bytes of the trace, and its records."""
    pathlib.Path(folder).mkdir()
    subprocess.run([build / "trace_reader_bench", str(records), folder, str(files)], check=True)
    return folder, sum(file.stat().st_size for file in pathlib.Path(folder).iterdir()), records


def millisecond(tool, folder):
    """The times at which a millisecond of the middle of a trace begins and ends."""
    files = sorted(pathlib.Path(folder).iterdir())
    first = first_lines([tool, "trace", folder, "--format", "json"], 1)
    opened = json.loads(first)["time"]
    closed = max(file.stat().st_mtime_ns for file in files)
    begun = time_of(opened)
    middle = begun + (closed - begun) // 2
    return text_of(middle), text_of(middle + 1_000_000)


def time_of(text):
    seconds, fraction = text.removesuffix("Z").split(".")
    return calendar.timegm(time.strptime(seconds, "%Y-%m-%dT%H:%M:%S")) * 10**9 + int(fraction)


def text_of(nanoseconds):
    seconds, fraction = divmod(nanoseconds, 10**9)
    return time.strftime("%Y-%m-%dT%H:%M:%S", time.gmtime(seconds)) + f".{fraction:09}Z"


def first_lines(command, count):
    """The first lines that a command prints; it is ended then."""
    with subprocess.Popen(command, stdout=subprocess.PIPE, text=True) as process:
        lines = [process.stdout.readline() for _ in range(count)]
        process.kill()
    if not lines[-1]:
        sys.exit(f"reading_figures.py: {count} lines are wanted, and there are fewer")
    return "".join(lines)


def show(name, trace, command, lines=None):
    """Prints the figures of a command that reads a trace, to its end or until so many lines are there."""
    wall, processor = [], []
    for _ in range(RUNS):
        before, start = resource.getrusage(resource.RUSAGE_CHILDREN), time.monotonic()
        if lines:
            first_lines(command, lines)
            wall.append(time.monotonic() - start)
        else:
            subprocess.run(command, stdout=subprocess.DEVNULL, check=True)
            wall.append(time.monotonic() - start)
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        processor.append(after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime)
    print(f"{name}\t{trace[1]}\t{trace[2]}\t{min(wall):.3f}\t{min(processor):.3f}", flush=True)


if __name__ == "__main__":
    sys.exit(main())
