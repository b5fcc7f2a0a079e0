#!/usr/bin/env python3
"""Runs clang-tidy with the checks of .clang-tidy over every source, and fails if it finds anything.

    scripts/tidy.py            all sources
    scripts/tidy.py PATH...    those below these paths
"""

import concurrent.futures
import json
import os
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = ROOT / "build/tidy"
# Mostly macros of another library.
SKIPPED = {ROOT / "bench/trace_bench_lttng.cpp"}


def sources(paths):
    """The sources that the build compiles, fuzzers and benchmarks included, below these paths."""
    options = ["-DCAIRN_BUILD_BENCHMARKS=ON", "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON"]
    subprocess.run(
        ["cmake", "--preset", "clang-dev", "-B", BUILD, *options], cwd=ROOT, stdout=subprocess.DEVNULL, check=True
    )
    compiled = {pathlib.Path(each["file"]) for each in json.loads((BUILD / "compile_commands.json").read_text())}
    return sorted(
        source
        for source in compiled - SKIPPED
        if any(path == source or path in source.parents for path in paths)
    )


def findings(source):
    """What clang-tidy says of a source; empty if nothing."""
    done = subprocess.run(
        ["clang-tidy-14", "--quiet", "-p", BUILD, source], cwd=ROOT, capture_output=True, text=True, check=False
    )
    return done.stdout or (done.stderr if done.returncode else "")


def main():
    paths = [pathlib.Path(argument).resolve() for argument in sys.argv[1:]] or [ROOT]
    found = sources(paths)
    if not found:
        sys.exit(f"tidy.py: no source below {', '.join(sys.argv[1:])}")
    failed = 0
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for text in pool.map(findings, found):
            failed += bool(text)
            sys.stdout.write(text)
    if failed:
        sys.exit(f"clang-tidy finds something in {failed} of {len(found)} sources; .clang-tidy says what is checked")
    print(f"clang-tidy finds nothing in {len(found)} sources")


main()
