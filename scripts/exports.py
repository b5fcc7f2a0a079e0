#!/usr/bin/env python3
"""Writes Cairn/exports.map, the list of the symbols that leave the library, from Cairn/CairnLtHelper.h.

    scripts/exports.py            writes the list
    scripts/exports.py --check    compares it, and fails if it is not current
    scripts/exports.py --print [TYPE=PRINTED...]
                                  prints it for a host whose types mangle otherwise: TYPE as the header spells it,
                                  PRINTED as c++filt prints the host's
"""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
HEADER = ROOT / "Cairn/CairnLtHelper.h"
EXPORTS = ROOT / "Cairn/exports.map"

DECLARATION = re.compile(r"^(?:void|bool|uint16_t)\s+(\w+)\(([^()]*)\)\s*noexcept;", re.MULTILINE)

# A parameter's type, in the header and as the linker demangles it.
DEMANGLED = {
    "bool": "bool",
    "uint8_t": "unsigned char",
    "uint16_t": "unsigned short",
    "uint32_t": "unsigned int",
    "const char *": "char const*",
    "CairnCentral::ChipInfo": "CairnCentral::ChipInfo",
    "Cairn::CairnCommonSmData::Ptr": "Nacre::Ptr<Cairn::CairnCommonSmData>",
}

TEMPLATE = """\
# The exported recipes as c++filt prints them. Written by scripts/exports.py from Cairn/CairnLtHelper.h: do not edit.
{{
  global:
    extern "C++" {{
{symbols}
    }};
  local: *;
}};
"""


def demangled(parameter):
    """The type of a parameter, named or not."""
    text = " ".join(parameter.split())
    for spelling, printed in DEMANGLED.items():
        if re.fullmatch(re.escape(spelling) + r"(\s*\w+)?", text):
            return printed
    sys.exit(f"exports.py: {HEADER.name}: the type of the parameter \"{text}\" is unknown; add it to DEMANGLED")


def exports():
    """The text of the list."""
    text = re.sub(r"//.*", "", HEADER.read_text())
    found = DECLARATION.findall(text)
    if len(found) != text.count("noexcept;"):
        sys.exit(f"exports.py: {HEADER.name}: a declaration is not understood; extend DECLARATION")
    symbols = [
        f'      "Cairn::{name}({", ".join(demangled(parameter) for parameter in parameters.split(","))})";'
        for name, parameters in found
    ]
    return TEMPLATE.format(symbols="\n".join(symbols))


def main():
    if sys.argv[1:2] == ["--print"]:
        for argument in sys.argv[2:]:
            spelling, separator, printed = argument.partition("=")
            if not separator or spelling not in DEMANGLED:
                sys.exit(f"exports.py: {argument!r} is not TYPE=PRINTED with one of the types "
                         f"{', '.join(DEMANGLED)}")
            DEMANGLED[spelling] = printed
        print(exports(), end="")
        return
    if sys.argv[1:] not in ([], ["--check"]):
        sys.exit(__doc__.strip())
    text = exports()
    if not sys.argv[1:]:
        EXPORTS.write_text(text)
    elif EXPORTS.read_text() != text:
        sys.exit("Cairn/exports.map is not that of Cairn/CairnLtHelper.h; renew it with scripts/exports.py")


main()
