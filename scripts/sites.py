#!/usr/bin/env python3
"""Writes Cairn/internal/SiteTable.cpp, the list of what the library can stop at, from Cairn/CairnLtHelper.cpp.

    scripts/sites.py            writes the list
    scripts/sites.py --check    compares it, and fails if it is not current

A line for each call, assertion and recipe: line in the source, recipe, number of the call within the recipe, kind,
text, with tabs between. The library carries the list, so that a report can be read with the release that wrote it.
"""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
SOURCE = ROOT / "Cairn/CairnLtHelper.cpp"
SITES = ROOT / "Cairn/internal/SiteTable.cpp"

# The kinds, by the macro that makes the site. Calls are numbered; recipes and assertions have the number of the call
# before them.
CALLS = {
    "CAIRN_CALL": "guarded",
    "CAIRN_CALL_LOCK_KEPT": "guarded, lock kept",
    "CAIRN_CALL_UNCHECKED": "unchecked",
    "CAIRN_CALL_IGNORED": "ignored",
}
SITE = re.compile(r"(CAIRN_RECIPE|CAIRN_ASSERT|CAIRN_CALL\w*)\( (.*) \);\s*$")
SIGNATURE = re.compile(r'"(?:void|bool|uint16_t) Cairn::(\w+)\(.*\)"$')

TEMPLATE = """\
// The list of the library's sites, in a section of its own, so that a report can be read with the library that wrote it,
// whatever its lines are. No code refers to it, it has nothing to relocate, and it is loaded only where somebody looks at
// it. A program that strips the library keeps it, because it is part of what is loaded.
//
// Written by scripts/sites.py from Cairn/CairnLtHelper.cpp: do not edit.

#ifndef CAIRN_VERSION
#define CAIRN_VERSION "unknown"
#endif

// clang-format off
asm( ".pushsection .cairn.sites,\\"aR\\",%progbits\\n"
     ".ascii \\"cairn-lt sites 1\\\\t" CAIRN_VERSION "\\\\n\\"\\n"
{sites}
     ".popsection" );
"""


def quoted(text):
    """A text as a string of C++."""
    return '"' + text.replace("\\", "\\\\").replace('"', '\\"').replace("\t", "\\t").replace("\n", "\\n") + '"'


def directive(site):
    """What puts a line of the list there, as a string of C++ that the assembler reads."""
    return "     " + quoted(f".ascii {quoted(site + chr(10))}\n")


def sites():
    """The text of the file."""
    text = SOURCE.read_text()
    lines, recipe, number = [], None, 0
    for at, line in enumerate(text.splitlines(), start=1):
        if line.lstrip().startswith("//"):
            continue
        found = SITE.search(line)
        if not found:
            if re.search(r"CAIRN_(RECIPE|ASSERT|CALL)", line):
                sys.exit(f"sites.py: {SOURCE.name}:{at}: a site that is not on a line of its own is not understood")
            continue
        macro, argument = found.groups()
        if macro == "CAIRN_RECIPE":
            signature = SIGNATURE.match(argument)
            if not signature:
                sys.exit(f"sites.py: {SOURCE.name}:{at}: the signature is not understood; extend SIGNATURE")
            recipe, number = signature[1], 0
            kind, argument = "recipe", argument[1:-1]
        elif macro == "CAIRN_ASSERT":
            kind = "assertion"
        else:
            kind = CALLS[macro]
            number += 1
            if macro == "CAIRN_CALL_UNCHECKED":
                argument = argument.split(", ", 1)[1]
        lines.append(f"{at}\t{recipe}\t{number}\t{kind}\t{argument}")
    return TEMPLATE.format(sites="\n".join(directive(line) for line in lines))


def main():
    arguments = sys.argv[1:]
    if arguments not in ([], ["--check"]):
        sys.exit(__doc__)
    text = sites()
    if arguments:
        if not SITES.exists() or SITES.read_text() != text:
            sys.exit(f"sites.py: {SITES.relative_to(ROOT)} is not current; run scripts/sites.py")
    else:
        SITES.write_text(text)


main()
