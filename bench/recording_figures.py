#!/usr/bin/env python3
"""Makes recordings with recording_bench, and measures how cairn-lt replays, compares, checks, reports and diagnoses them.

    bench/recording_figures.py BUILD_FOLDER [OPERATIONS]     10,000,000 operations unless told otherwise

Prints a line for each command: its name, the operations that it reads, its seconds of the processor, and the most memory
that it took, in KiB; and first the bytes of a recording. Exits with 1 if a command does not answer as it should.
"""

import pathlib
import resource
import subprocess
import sys
import tempfile


def main():
    if len(sys.argv) < 2:
        print(__doc__, file=sys.stderr)
        return 2
    build = pathlib.Path(sys.argv[1]) / "bin"
    operations = int(sys.argv[2]) if len(sys.argv) > 2 else 10_000_000
    with tempfile.TemporaryDirectory() as folder:
        first, second = f"{folder}/first", f"{folder}/second"
        subprocess.run([build / "recording_bench", first, str(operations)], check=True)
        subprocess.run([build / "recording_bench", second, str(operations), "7"], check=True)
        size = sum(file.stat().st_size for file in pathlib.Path(first).iterdir())
        print(f"recording\t{operations}\t{size}")
        chips = ["--chip", "reference", "--chip", "reference"]
        crash, state, page = f"{folder}/crash.log", f"{folder}/state.json", f"{folder}/page.html"
        for name, arguments, read, code in (
            ("replay", ["replay", first, *chips], operations, 0),
            ("diff", ["diff", first, second], 2 * operations, 1),
            ("check", ["check", first], operations, 0),
            ("report", ["report", first, *chips, "-o", page], operations, 0),
            ("diagnose", ["diagnose", crash, "--trace", first, "--chip", "reference", "--state", state], operations, 0),
        ):
            if name == "diagnose":
                stop(build / "cairn-lt", first, crash)
            before = resource.getrusage(resource.RUSAGE_CHILDREN)
            # A process between, whose largest child is this one.
            done = subprocess.run(
                [sys.executable, __file__, "--measure", build / "cairn-lt", *arguments],
                stdout=subprocess.PIPE,
                check=False,
            )
            after = resource.getrusage(resource.RUSAGE_CHILDREN)
            returned, memory = done.stdout.decode().split()
            if int(returned) != code:
                print(f"recording_figures.py: {name} ended with {returned}, {code} is right", file=sys.stderr)
                return 1
            seconds = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
            print(f"{name}\t{read}\t{seconds:.2f}\t{memory}")
    return 0


def stop(tool, folder, crash):
    """Records another process, which is stopped, beside what is there, and keeps what it says."""
    with open(crash, "w", encoding="utf-8") as err:
        subprocess.run(
            [tool, "run", "setEgrTunnelEcnEncap", "0", "5", "2", "--record-to", folder]
            + ["--inject", "op=pt_entry_commit,rc=-30"],
            stdout=subprocess.DEVNULL,
            stderr=err,
            check=False,
        )


def measure(command):
    """Runs a command, and prints its exit code and the most memory that it took, in KiB."""
    done = subprocess.run(command, stdout=subprocess.DEVNULL, check=False)
    print(done.returncode, resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)
    return 0


if __name__ == "__main__":
    sys.exit(measure(sys.argv[2:]) if sys.argv[1:2] == ["--measure"] else main())
