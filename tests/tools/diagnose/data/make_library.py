#!/usr/bin/env python3
"""Writes a small ELF file that holds nothing but the list of sites of a library, as the library file itself does.

    make_library.py SOURCE RELEASE FILE    SOURCE is the CairnLtHelper.cpp of the release

older.so beside this script was written so, from the first CairnLtHelper.cpp of this repository, as release 0.0.1.
"""

import pathlib
import re
import struct
import sys

KINDS = {
    "CAIRN_RECIPE": "recipe",
    "CAIRN_ASSERT": "assertion",
    "CAIRN_CALL": "guarded",
    "CAIRN_CALL_LOCK_KEPT": "guarded, lock kept",
    "CAIRN_CALL_UNCHECKED": "unchecked",
    "CAIRN_CALL_IGNORED": "ignored",
}


def sites(source, release):
    """The list, as docs/diagnose.md describes it."""
    text, recipe, number = [f"cairn-lt sites 1\t{release}"], None, 0
    for at, line in enumerate(source.splitlines(), start=1):
        found = re.search(r"(CAIRN_(?:RECIPE|ASSERT|CALL)\w*)\( (.*) \);\s*$", line)
        if line.lstrip().startswith("//") or not found:
            continue
        macro, argument = found.groups()
        if macro == "CAIRN_RECIPE":
            argument = argument.strip('"')
            recipe, number = re.search(r"Cairn::(\w+)\(", argument)[1], 0
        elif macro != "CAIRN_ASSERT":
            number += 1
        if macro == "CAIRN_CALL_UNCHECKED":
            argument = argument.split(", ", 1)[1]
        text.append(f"{at}\t{recipe}\t{number}\t{KINDS[macro]}\t{argument}")
    return "".join(line + "\n" for line in text).encode()


def elf(contents):
    """A shared object for x86-64 with one section beside the names of the sections."""
    names = b"\0.cairn.sites\0.shstrtab\0"
    start = 64
    sections_at = (start + len(contents) + len(names) + 7) // 8 * 8
    header = b"\x7fELF" + bytes([2, 1, 1]) + bytes(9)
    header += struct.pack("<HHIQQQIHHHHHH", 3, 62, 1, 0, 0, sections_at, 0, 64, 0, 0, 64, 3, 2)
    sections = bytes(64)
    for name, kind, offset, size in (
        (1, 1, start, len(contents)),
        (names.index(b".shstrtab"), 3, start + len(contents), len(names)),
    ):
        sections += struct.pack("<IIQQQQIIQQ", name, kind, 0, 0, offset, size, 0, 0, 1, 0)
    body = header + contents + names
    return body + bytes(sections_at - len(body)) + sections


def main():
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    source, release, file = sys.argv[1:]
    pathlib.Path(file).write_bytes(elf(sites(pathlib.Path(source).read_text(), release)))


main()
