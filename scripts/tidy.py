#!/usr/bin/env python3
"""Runs clang-tidy with the checks of .clang-tidy over every source, and fails if it finds anything.

    scripts/tidy.py            all sources
    scripts/tidy.py PATH...    those below these paths

Most of the time goes into the headers of the standard library and of the test framework. So the sources of a target are
checked together, a dozen in a file that includes them. Where their names clash, each half of them is.
"""

import concurrent.futures
import json
import os
import pathlib
import shlex
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = ROOT / "build/tidy"
TOGETHER = 12
# Mostly macros of another library.
SKIPPED = {ROOT / "bench/trace_bench_lttng.cpp"}


def commands(paths):
    """How the build compiles each source below these paths, fuzzers and benchmarks included, by source."""
    options = ["-DCAIRN_BUILD_BENCHMARKS=ON", "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON"]
    subprocess.run(
        ["cmake", "--preset", "clang-dev", "-B", BUILD, *options], cwd=ROOT, stdout=subprocess.DEVNULL, check=True
    )
    found = {}
    for each in json.loads((BUILD / "compile_commands.json").read_text()):
        source = pathlib.Path(each["file"])
        written_here = source not in SKIPPED and BUILD not in source.parents
        if written_here and any(path == source or path in source.parents for path in paths):
            found.setdefault(source, each)
    return found


def groups(found):
    """The sources in groups of one target, the largest first."""
    targets = {}
    for source in sorted(found):
        target = found[source]["command"].partition(" -o ")[2].partition(".dir/")[0]
        targets.setdefault(target, []).append(source)
    parts = [
        sources[start : start + TOGETHER]
        for sources in targets.values()
        for start in range(0, len(sources), TOGETHER)
    ]
    return sorted(parts, key=lambda sources: -sum(source.stat().st_size for source in sources))


def checked(file, command, *options):
    """What clang-tidy says of a file that is compiled as this source; empty if nothing."""
    arguments = [argument for argument in shlex.split(command["command"])[1:] if argument != command["file"]]
    done = subprocess.run(
        ["clang-tidy-14", "--quiet", *options, file, "--", *arguments],
        cwd=command["directory"],
        capture_output=True,
        text=True,
        check=False,
    )
    return done.stdout or (done.stderr if done.returncode else "")


def findings(sources, found):
    """What clang-tidy says of these sources of a target."""
    if len(sources) == 1:
        return checked(sources[0], found[sources[0]])
    with tempfile.NamedTemporaryFile("w", suffix=".cpp", dir=BUILD) as together:
        together.write("".join(f'#include "{source}"\n' for source in sources))
        together.flush()
        text = checked(together.name, found[sources[0]], "--checks=-bugprone-suspicious-include")
    if "clang-diagnostic-" not in text:
        return text
    half = len(sources) // 2
    return findings(sources[:half], found) + findings(sources[half:], found)


def main():
    paths = [pathlib.Path(argument).resolve() for argument in sys.argv[1:]] or [ROOT]
    found = commands(paths)
    if not found:
        sys.exit(f"tidy.py: no source below {', '.join(sys.argv[1:])}")
    text = ""
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for part in pool.map(lambda sources: findings(sources, found), groups(found)):
            text += part
            print(part, end="", flush=True)
    if text:
        sys.exit("clang-tidy has findings, shown above; .clang-tidy says what is checked")
    print(f"clang-tidy finds nothing in {len(found)} sources")


main()
