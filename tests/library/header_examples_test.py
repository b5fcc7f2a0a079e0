#!/usr/bin/env python3
"""Compiles the examples in the comments of the public headers.

    header_examples_test.py CXX_COMPILER ROOT... -- HEADER...

ROOT is a folder of the include path. An example is what a comment has indented below an empty line, if it has a
semicolon or a brace: the other indented pieces show what is printed. "..." stands for what the reader has.
"""

import re
import subprocess
import sys

# What an example may use without saying where it is from.
READER = """
[[maybe_unused]] void talkToTheChip();

using namespace Cairn;

#define EXAMPLE                                                                                                        \\
    [[maybe_unused]] Shim::Sdk &theAgentsShim, [[maybe_unused]] Shim::Sdk &agentsShim, [[maybe_unused]] Sim::Chip &chip, \\
        [[maybe_unused]] Fleetlog::RingBuf *ring, [[maybe_unused]] Fleetlog::TraceFile *file,                           \\
        [[maybe_unused]] Kiln::TraceHandle &handle, [[maybe_unused]] int msgId, [[maybe_unused]] std::uint32_t unit,     \\
        [[maybe_unused]] std::uint32_t index, [[maybe_unused]] std::uint32_t outerEcn,                                  \\
        [[maybe_unused]] std::uint32_t portId, [[maybe_unused]] std::uint32_t seed
"""
STANDARD = ["cstdio", "iostream", "mutex", "string"]


def examples(path):
    """The examples of a header: number of the first line, lines."""
    found, at = [], None
    before = ""
    with open(path, encoding="utf-8") as header:
        lines = header.read().splitlines()
    for number, line in enumerate([*lines, ""], 1):
        text = re.match(r"\s*///? {5}(.*)", line)
        if text and at is None and re.fullmatch(r"\s*///?", before):
            at = (number, [])
        if text and at is not None:
            at[1].append(text[1])
        elif at is not None and re.fullmatch(r"\s*///?", line):
            at[1].append("")
        elif at is not None:
            found.append(at)
            at = None
        before = line
    return [(number, piece) for number, piece in found if any(re.search(r"[;{}]", line) for line in piece)]


def compiled(path, number, piece):
    """A function that has the example in it, in a block where it may use the names of EXAMPLE anew. What it includes
    stands above it already."""
    lines = [re.sub(r"^#include .*|\.\.\.", "", line) for line in piece]
    body = "\n".join(lines)
    return f'void example( EXAMPLE ) {{ {{\n#line {number} "{path}"\n{body}\n}} }}\n'


def main():
    compiler, *arguments = sys.argv[1:]
    roots, headers = arguments[: arguments.index("--")], arguments[arguments.index("--") + 1 :]
    source = [f"#include <{name}>" for name in STANDARD] + [f'#include "{path}"' for path in headers] + [READER]
    count = 0
    for path in headers:
        for number, piece in examples(path):
            source.append(f"namespace example{count} {{\n{compiled(path, number, piece)}}}")
            count += 1
    if count < 15:
        sys.exit(f"only {count} examples found in the comments of {len(headers)} headers")
    options = ["-std=c++20", "-fsyntax-only", "-Wall", "-Wextra", "-Werror", "-Wno-unused-variable"]
    done = subprocess.run(
        [compiler, *options, *(f"-I{root}" for root in roots), "-x", "c++", "-"],
        input="\n".join(source).encode(),
        check=False,
    )
    if done.returncode:
        sys.exit("an example in the comment of a public header does not compile")
    print(f"{count} examples compile")


main()
