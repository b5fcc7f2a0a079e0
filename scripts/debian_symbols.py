#!/usr/bin/env python3
"""Writes debian/*.symbols, the lists of exported symbols that Debian's tools compare at each build of the packages.

    scripts/debian_symbols.py BUILD_TREE            writes them from the libraries of a build by g++
    scripts/debian_symbols.py --check BUILD_TREE    compares them, and fails if a symbol is missing or gone

A symbol keeps the version since which it is there. Run by scripts/abi.sh.
"""

import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
LIBRARIES = {"libCairnLtHelper": "libcairnlthelper", "libCairnPlatform": "libcairnplatform"}
FROM_STANDARD_LIBRARY = r"^_ZZ?(NK?|T[ISV]N?)?(St|9__gnu_cxx)"
LAYOUT = "_ZN13CairnPlatform47libraryAndPlatformMustBeBuiltFromTheSameHeadersILm"


def output(*command):
    return subprocess.run(command, stdout=subprocess.PIPE, check=True).stdout.decode()


def exported(library):
    """Names as the compiler writes them: those that every build has, those that are inline, whether there are others."""
    every, inline, names = set(), set(), []
    for line in output("nm", "-D", "--defined-only", str(library)).splitlines():
        _, kind, name = line.split()
        if re.match(FROM_STANDARD_LIBRARY, name):
            names.append(name)
        elif not name.startswith(LAYOUT):
            (inline if kind in "WVu" else every).add(name)
        else:
            names.append(LAYOUT)
    return every, inline, names


def readable(names):
    shown = output("c++filt", *sorted(names)).splitlines() if names else []
    return sorted(set(shown))


def symbols(library, package, old, version):
    """The list of a library."""
    since = dict(re.findall(r'^ \(c\+\+[^)]*\)"(.*)@Base" (\S+)$', old, re.MULTILINE))
    every, inline, others = exported(library)
    lines = [f"{library.name} {package} #MINVER#", "* Build-Depends-Package: libcairnlthelper-dev"]
    if LAYOUT in others:
        lines.append("# The number in its name sums up the layouts of the headers, which differ between architectures.")
        lines.append(f' (regex)"^{LAYOUT}[0-9]+EEEvv@Base$" {version}')
    every_shown = readable(every)
    lines += [f' (c++)"{name}@Base" {since.get(name, version)}' for name in every_shown]
    if inline:
        lines.append("# Inline in the headers: whether a build has them is up to the compiler.")
        shown = [name for name in readable(inline) if name not in every_shown]
        lines += [f' (c++|optional)"{name}@Base" {since.get(name, version)}' for name in shown]
    if any(name != LAYOUT for name in others):
        lines.append("# Instantiated from the standard library: the same.")
        lines.append(f' (optional|regex)"{FROM_STANDARD_LIBRARY}.*@Base$" {version}')
    return "\n".join(lines) + "\n"


def required(text):
    return {re.sub(r" \S+$", "", line) for line in text.splitlines() if line.startswith(' (c++)"')}


def main():
    arguments = sys.argv[1:]
    check = arguments[:1] == ["--check"]
    arguments = arguments[1:] if check else arguments
    if len(arguments) != 1 or arguments[0].startswith("-"):
        sys.exit(__doc__)
    version = re.search(r"\((.*?)\)", (ROOT / "debian/changelog").read_text())[1]
    failed = False
    for library, package in LIBRARIES.items():
        built = pathlib.Path(arguments[0]) / f"lib/{library}.so"
        if not built.exists():
            sys.exit(f"debian_symbols.py: no {built}; build it, or name another build tree")
        path = ROOT / f"debian/{package}.symbols"
        old = path.read_text() if path.exists() else ""
        new = symbols(built, package, old, version)
        if not check:
            path.write_text(new)
            continue
        for gone in sorted(required(old) - required(new)):
            print(f"{path.relative_to(ROOT)} has, and {library} has not: {gone.strip()}")
            failed = True
        for added in sorted(required(new) - required(old)):
            print(f"{library} has, and {path.relative_to(ROOT)} has not: {added.strip()}")
            failed = True
    sys.exit(1 if failed else 0)


main()
