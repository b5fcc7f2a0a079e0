#!/usr/bin/env python3
"""Compares what the sources can print as an error with the knowledge pages.

    errors_test.py SOURCE_TREE CAIRN_LT

Each place of the sources that makes an error, a finding or a complaint has a text that is on a page; each text of a
page is in the sources. Each code of the simulated SDK and each assertion of the library has a page. docs/errors.md is
what `cairn-lt diagnose --error all --format markdown` writes.
"""

import json
import pathlib
import re
import subprocess
import sys

FOLDERS = ("Cairn", "platform", "sim", "interpose", "tracereader", "tools")

# The types of errors, and the functions that make one, or a finding, of a text.
MAKERS = (
    "InputError Trouble Error refuse refuseText damage find complain fail stopForMisuse reportLoss throwTrouble tell "
    "endUnfinished report invalid_argument logic_error system_error writeWhole expectItems emplace_back push_back"
)
MAKER = re.compile(rf"(?:\bfindings\.|(?<![.\w>]))(?:std::)?(?:CairnPlatform::)?({'|'.join(MAKERS.split())})\s*\(")
# What these say stands behind a code, which has a page; or is compared with what the library prints.
OTHERS = re.compile(r"sim/(Entries|\w+Commit|Rows)\.|tools/sweep/SweepJudge\.|tools/diagnose/ErrorPages\.")
LITERAL = re.compile(r'"((?:[^"\\]|\\.)*)"')
TOKEN = re.compile(r'"(?:[^"\\\n]|\\.)*"|\'(?:[^\'\\\n]|\\.)*\'|//[^\n]*|/\*.*?\*/', re.S)


def without_comments(source):
    return TOKEN.sub(lambda token: token[0] if token[0][0] in "\"'" else "\n" * token[0].count("\n"), source)


def arguments(source, start):
    """What stands between a parenthesis and the one that closes it."""
    depth, at = 1, start
    while at < len(source) and depth:
        token = TOKEN.match(source, at)
        if token:
            at = token.end()
            continue
        depth += {"(": 1, ")": -1}.get(source[at], 0)
        at += 1
    return source[start : at - 1]


def texts_in(source):
    """The literals that have words, those that follow each other as one."""
    joined = re.sub(r'(?<!\\)"\s+"', "", source)
    found = [re.sub(r"\\(.)", lambda e: "" if e[1] == "n" else e[1], text).strip() for text in LITERAL.findall(joined)]
    part = re.compile(r"an? [\w-]+( \w+)?")  # "a bring-up file": what an option is for
    return [text for text in found if " " in text and re.search("[A-Za-z]{2}", text) and not part.fullmatch(text)]


def places(root):
    for folder in FOLDERS:
        for file in sorted((root / folder).rglob("*.[ch]*")):
            if OTHERS.match(str(file.relative_to(root))):
                continue
            source = without_comments(file.read_text())
            for maker in MAKER.finditer(source):
                inside = texts_in(arguments(source, maker.end()))
                if inside:
                    yield f"{file.relative_to(root)}:{source.count(chr(10), 0, maker.start()) + 1}", inside


def main():
    root, tool = pathlib.Path(sys.argv[1]), sys.argv[2]
    ask = [tool, "diagnose", "--error", "all", "--format"]
    pages = json.loads(subprocess.run([*ask, "json"], check=True, capture_output=True, text=True).stdout)
    wrong = []

    on_pages = {text for page in pages for text in page["texts"]}
    for place, texts in places(root):
        if not on_pages.intersection(texts):
            wrong.append(f"{place}: no page of tools/diagnose/ErrorPages.cpp has one of {texts}")

    sources = " ".join(
        re.sub(r'"\s*\n\s*"', "", file.read_text())
        for folder in FOLDERS
        for file in (root / folder).rglob("*.[ch]*")
        if not file.name.startswith("ErrorPages.")
    )
    for page in pages:
        if page["source"] in ("a message of cairn-lt", "a line of the library or its platform"):
            for text in page["texts"]:
                if " " in text and text.replace('"', '\\"') not in sources:
                    wrong.append(f"{page['name']}: \"{text}\" is not in the sources")
        for part in ("meaning", "causes", "remedy"):
            if not page[part].endswith("."):
                wrong.append(f"{page['name']}: {part} is no sentence")
    names = [page["name"] for page in pages]
    wrong += [f"{name} is there twice" for name in set(names) if names.count(name) > 1]

    codes = {int(code) for code in re.findall(r"= (-\d+),", (root / "sim/Rc.h").read_text())}
    wrong += [f"code {code} has no page" for code in codes - {page["code"] for page in pages}]
    asserted = re.findall(r"^ +CAIRN_ASSERT\( (.*) \);", (root / "Cairn/CairnLtHelper.cpp").read_text(), re.M)
    expressions = {text for page in pages if page["source"] == "an assertion" for text in page["texts"]}
    wrong += [f"the assertion {text} has no page" for text in set(asserted) - expressions]

    document = subprocess.run([*ask, "markdown"], check=True, capture_output=True, text=True).stdout
    if document != (root / "docs/errors.md").read_text():
        wrong.append("docs/errors.md is not current; write it with cairn-lt diagnose --error all --format markdown")
    if wrong or len(codes) < 30 or not asserted:
        sys.exit("\n".join(wrong) or "the sources are not where this test looks for them")


main()
