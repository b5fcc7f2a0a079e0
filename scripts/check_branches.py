#!/usr/bin/env python3
"""Judges what gcovr has measured: every line and every branch of the library is taken by a test, or is explained here.

    scripts/check_branches.py COVERAGE.json

Prints what is explained, and what is missing. Exit status 1 if something is missing, if a file with code was not
measured, or if an explanation is of nothing.
"""

import collections
import json
import pathlib
import sys

# What no test can be sure to take: the file, the line as it stands, how many of its branches at most, and why.
EXPLAINED = [
    ("Cairn/internal/TraceHandles.cpp", 'static Kiln::TraceHandle handle( "CairnLtHelper", false );', 3,
     "one thread waiting while another makes the handle, which takes a microsecond once in a process; and the "
     "clean-up if the making throws, for which memory has to run out: it ends the process, recipes are noexcept"),
    ("CairnCommon/CairnCommonUtil.h", "feature_( found_ ? dynamic_cast<T *>( &*found_ ) : nullptr ) {}", 1,
     "the compiler's own question whether the address of what was found is null, which the line asks before"),
    ("CairnCommon/CairnCommonUtil.h", 'message << "chipInfo NULL";', 1,
     "the clean-up if the text throws, for which memory has to run out"),
    ("CairnCommon/CairnCommonUtil.h", "Nacre::debugAndAssert( message, Impl::sysportFile, Impl::sysportFunction,", 2,
     "the clean-up if the report throws, for which memory has to run out; the text stands there twice"),
    ("CairnCommon/CairnCommonUtil.h", 'message << "maxPorts: " << maxPorts << "invalid";', 3,
     "the clean-up if the text throws, for which memory has to run out"),
]

# Every file of the library that has code.
MEASURED = ["Cairn/CairnLtHelper.cpp", "Cairn/internal/GuardedCall.cpp", "Cairn/internal/GuardedCall.h",
            "Cairn/internal/SdkNames.h", "Cairn/internal/TraceHandles.cpp", "Cairn/internal/TraceHandles.h",
            "Cairn/internal/TraceMessage.cpp", "Cairn/internal/TraceMessage.h", "CairnCommon/CairnCommonUtil.h"]


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    root = pathlib.Path(__file__).resolve().parent.parent
    lines = taken = branches = branches_taken = 0
    missing = []
    untaken = collections.Counter()
    where = {}
    measured = json.loads(pathlib.Path(sys.argv[1]).read_text())["files"]
    for file in MEASURED:
        if file not in [each["file"] for each in measured]:
            missing.append(f"{file}: not measured")
    for file in measured:
        source = (root / file["file"]).read_text().split("\n")
        for line in file["lines"]:
            if line.get("gcovr/noncode"):
                continue
            number, text = line["line_number"], source[line["line_number"] - 1].strip()
            lines += 1
            if line["count"] > 0:
                taken += 1
            else:
                missing.append(f"{file['file']}:{number}: not run: {text}")
            branches += len(line["branches"])
            not_taken = sum(1 for branch in line["branches"] if branch["count"] == 0)
            branches_taken += len(line["branches"]) - not_taken
            if not_taken:
                untaken[file["file"], text] += not_taken
                where.setdefault((file["file"], text), number)

    explained = 0
    for file, text, count, reason in EXPLAINED:
        found = untaken.pop((file, text), 0)
        if not found:
            missing.append(f"{file}: explained, but taken or not there any more: {text}")
        elif found > count:
            missing.append(f"{file}:{where[file, text]}: {found} branches not taken, {count} explained: {text}")
        else:
            explained += found
            print(f"explained: {file}:{where[file, text]}: {text}\n    {found} of its branches: {reason}")
    for (file, text), count in untaken.items():
        missing.append(f"{file}:{where[file, text]}: {count} branches not taken: {text}")

    for line in missing:
        print(line)
    print(f"lines: {taken} of {lines}; branches: {branches_taken} of {branches}, {explained} explained")
    return 1 if missing else 0


if __name__ == "__main__":
    sys.exit(main())
