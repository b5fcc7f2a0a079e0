#!/usr/bin/env python3
"""Writes python/cairn_lt/recipes.py from the registry of the recipes.

    scripts/python_recipes.py BUILD             with the module of this build tree
    scripts/python_recipes.py BUILD --check     compares it, and fails if it is not current
"""

import pathlib
import sys
import textwrap

TARGET = pathlib.Path(__file__).resolve().parent.parent / "python/cairn_lt/recipes.py"

HEAD = '''"""The recipes of the library, under its names and with its argument names.

Written by scripts/python_recipes.py from the registry of the recipes; do not edit.

Each checks its arguments before anything is called: ValueError for a number that is out of range, TypeError for a
value of another type. It takes the activity lock for its length, unless the thread holds it. An SDK call that fails
stops the process; run_isolated() tells how.
"""

from cairn_lt._cairn_lt import ChipInfo, SharedState, call
'''

TYPES = {"bool": "bool", "const char *": "str", "ChipInfo": "ChipInfo", "CairnCommonSmData::Ptr": "SharedState"}
RESULTS = {"void": "None", "bool": "bool", "uint16_t": "int"}


def function(recipe):
    """One recipe as a function."""
    parameters = recipe["parameters"]
    signature = ", ".join(f"{name}: {TYPES.get(kind, 'int')}" for name, kind, _, _ in parameters)
    result = RESULTS[recipe["result"]]
    doc = textwrap.wrap(recipe["summary"], 112, subsequent_indent="    ", initial_indent='    """')
    ranges = []
    for name, kind, most, reason in parameters:
        because = f": {reason}" if reason else ""
        ranges.append(f"    {name}: {kind}" + (f", 0 to {most}{because}" if most is not None else ""))
    if ranges:
        doc += ["", *ranges, '    """']
    else:
        doc[-1] += '"""'
    returns = "" if result == "None" else "return "
    kept = f"    result: {result} = " if returns else "    "
    line = f"def {recipe['name']}({signature}) -> {result}:"
    if len(line) > 120:
        line = f"def {recipe['name']}(\n    {signature}\n) -> {result}:"
    arguments = ", ".join([f'"{recipe["name"]}"', *(name for name, _, _, _ in parameters)])
    body = [f"{kept}call({arguments})"]
    if returns:
        body.append("    return result")
    return "\n".join([line, *doc, *body])


def text(build):
    """The module."""
    sys.path.insert(0, str(pathlib.Path(build) / "python"))
    from cairn_lt import _cairn_lt

    recipes = _cairn_lt.recipes()
    names = "".join(f'    "{name}",\n' for name in sorted(recipe["name"] for recipe in recipes))
    pieces = [f"{HEAD}\n__all__ = [\n{names}]\n"]
    family = None
    for recipe in recipes:
        heading = "" if recipe["family"] == family else f"# --- {recipe['family']}\n\n\n"
        family = recipe["family"]
        pieces.append(f"\n\n{heading}{function(recipe)}\n")
    return "".join(pieces)


def main():
    arguments = [argument for argument in sys.argv[1:] if argument != "--check"]
    if len(arguments) != 1:
        sys.exit(__doc__.strip())
    wanted = text(arguments[0])
    if "--check" not in sys.argv:
        TARGET.write_text(wanted)
    elif TARGET.read_text() != wanted:
        sys.exit(f"{TARGET.name} is not what the registry says; run scripts/python_recipes.py {arguments[0]}")


main()
