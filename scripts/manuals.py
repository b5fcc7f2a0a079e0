#!/usr/bin/env python3
"""Writes the manual pages in docs/man/: of the tool and its verbs from their help, of the files from docs/.

    scripts/manuals.py CAIRN_LT            writes the pages anew, with this build of the tool
    scripts/manuals.py CAIRN_LT --check    compares them, and fails if one is not current
"""

import pathlib
import re
import shlex
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
PAGES = ROOT / "docs/man"

# What a Markdown document holds that pages for a terminal spell otherwise.
CHARACTERS = {"−": r"\-", "—": r"\(em", "×": r"\(mu"}


# --- roff


def literal(text):
    """A text that stands on the page as it is, to be copied from there."""
    return protected(text.replace("\\", r"\e").replace("-", r"\-"))


def protected(text):
    """No line begins with a request."""
    text = "".join(CHARACTERS.get(character, character) for character in text)
    if not text.isascii():
        sys.exit(f"manuals.py: say how to write it in CHARACTERS: {text}")
    return re.sub(r"^(?=[.'])", r"\\&", text, flags=re.MULTILINE)


def inline(text):
    """Prose with the marks of Markdown."""
    pieces = []
    for piece in re.split(r"(``.+?``|`[^`]+`|\*\*.+?\*\*|\*[^*\s][^*]*\*|\[[^\]]*\]\([^)]*\))", text, flags=re.DOTALL):
        if piece.startswith("`"):
            pieces.append(rf"\fB{literal(piece.strip('`'))}\fP")
        elif piece.startswith("**"):
            pieces.append(rf"\fB{inline(piece[2:-2])}\fP")
        elif re.fullmatch(r"\*[^*]+\*", piece, re.DOTALL):
            pieces.append(rf"\fI{inline(piece[1:-1])}\fP")
        elif piece.startswith("[") and "](" in piece:
            pieces.append(inline(piece[1 : piece.index("](")]))
        else:
            # A line may end within what has no blank for long.
            pieces.append(re.sub(r"\S{40,}", lambda long: long[0].replace(",", r",\:"), piece.replace("\\", r"\e")))
    return protected("".join(pieces))


def page(name, section, summary, version, body):
    """A whole page; what follows the name is in `body`."""
    lines = [
        "'\\\" t",
        '.\\" Written by scripts/manuals.py; do not edit.',
        f'.TH {name.upper()} {section} "" "{version}" "CairnLtHelper"',
        # Names are copied from pages: they stay in one piece.
        ".nh",
        ".ad l",
        ".SH NAME",
        rf"{literal(name)} \- {summary}",
        *body,
    ]
    return "\n".join(lines) + "\n"


def see_also(*pages):
    references = [rf"\fB{literal(name)}\fP({section})" for name, section in pages]
    return [".SH SEE ALSO", ",\n".join(references)]


def examples(lines):
    return [".EX", *(literal(line) for line in lines), ".EE"]


# --- From the help


def listed(lines):
    """The names and the texts of a list in a help, as (name, rest of the name, text)."""
    found = []
    for line in lines:
        match = re.match(r"  (\S+)((?: \S+)*?)(?:  +(.*))?$", line)
        if match:
            found.append([match[1], match[2].strip(), match[3] or ""])
        else:  # what goes with a name that is too long for its column
            found[-1][2] = line.strip()
    return found


def parts(text):
    """A help, cut into its parts: what it says first, the usage, the lists, and what it says last."""
    head, _, rest = text.partition("Usage: ")
    usage, _, rest = rest.partition("\n")
    lists, said = {}, []
    current = None
    for line in rest.splitlines():
        if re.fullmatch(r"(Positionals|Options|Subcommands):", line):
            current = lists.setdefault(line[:-1], [])
        elif current is not None and line.startswith("  "):
            current.append(line)
        elif line or said:
            current = None
            said.append(line)
    return head.strip(), usage, {name: listed(lines) for name, lines in lists.items()}, "\n".join(said).strip()


def option(names, value, text):
    """An option: its names, what it takes, and what it does."""
    value, *conditions = re.split(r" ?\b(Needs|Excludes): ", f" {value}")
    value = value.strip().partition(":")[0]
    for kind, others in zip(conditions[::2], conditions[1::2]):
        others = (" or " if kind == "Excludes" else " and ").join(others.split())
        text += f". It needs {others}" if kind == "Needs" else f". It does not go with {others}"
    # --dump{as-format}: the value that it has without one
    names = [rf"\fB{literal(name)}\fP" for name in re.sub(r"\{.*\}", "", names).split(",")]
    return [".TP", ", ".join(names) + (rf" \fI{literal(value)}\fP" if value else ""), inline(text)]


def options(lists):
    body = []
    if "Positionals" in lists:
        body.append(".SH ARGUMENTS")
        for name, _, text in lists["Positionals"]:
            body += [".TP", rf"\fI{literal(name)}\fP", inline(text)]
    body.append(".SH OPTIONS")
    for names, value, text in lists["Options"]:
        body += option(names, value, text)
    return body


def usage_lines(usage):
    words = usage.split(" ")
    command = " ".join(word for word in words if re.fullmatch(r"[a-z-]+", word) and words.index(word) < 2)
    rest = usage[len(command) :].strip()
    return [".SH SYNOPSIS", rf"\fB{literal(command)}\fP \fI{literal(rest)}\fP"]


def program_page(text, version):
    head, usage, lists, _ = parts(text)
    summary, _, more = head.partition("\n")
    body = [*usage_lines(usage), ".SH DESCRIPTION", inline(summary), ".PP", inline(more), ".SH VERBS"]
    for verb, _, what in lists["Subcommands"]:
        body += [".TP", rf"\fB{literal(verb)}\fP", rf"{inline(what)}; see \fB{literal('cairn-lt-' + verb)}\fP(1)"]
    body += options(lists)
    verbs = [(f"cairn-lt-{verb}", 1) for verb, _, _ in lists["Subcommands"]]
    body += see_also(*verbs, ("cairn-lt-bringup", 5), ("cairn-lt-chip", 5), ("fleetlog", 5))
    return page("cairn-lt", 1, inline(summary.rstrip(".")), version, body)


def verb_page(verb, text, version):
    head, usage, lists, said = parts(text)
    said, _, shown = said.partition("Examples:\n")
    body = [*usage_lines(usage), ".SH DESCRIPTION", inline(head) + "."]
    for paragraph in said.strip().splitlines():
        body += [".PP", inline(paragraph)]
    body += options(lists)
    body += [".SH EXAMPLES", *examples(line[2:] for line in shown.splitlines())]
    files = [] if verb == "list" else [("cairn-lt-bringup", 5), ("cairn-lt-chip", 5)]
    if verb in ("trace", "replay", "check", "diff", "diagnose"):
        files.append(("fleetlog", 5))
    body += see_also(("cairn-lt", 1), *files)
    return page(f"cairn-lt-{verb}", 1, inline(head), version, body)


# --- From documents


def cells(line):
    return [cell.strip() for cell in re.split(r"(?<!\\)\|", line.strip().strip("|"))]


def table(lines):
    """Two columns become a list of names, so do more than four, with the heads before the rest; others become a table."""
    heads, rows = cells(lines[0]), [cells(line) for line in lines[2:]]
    if len(heads) == 2:
        found = [(name, inline(meaning)) for name, meaning in rows]
    elif len(heads) > 4:
        found = []
        for name, *rest in rows:
            found.append((name, inline("; ".join(f"{head}: {cell}" for head, cell in zip(heads[1:], rest) if cell))))
    else:
        return columns([heads, *rows])
    body = []
    for name, meaning in found:
        body += [".TP", inline(name), meaning or r"\&"]
    return [*body, ".PP"]


def columns(rows):
    isWide = [any(len(cell) > 18 and " " in cell for cell in column) for column in zip(*rows)]
    body = [".TS", " ".join("lx" if wide else "l" for wide in isWide) + "."]
    for row in rows:
        # The text of a wide column is broken, and never filled up with blanks.
        found = [f"T{{\n.na\n{inline(cell)}\nT}}" if wide and cell else inline(cell) for cell, wide in zip(row, isWide)]
        body.append("\t".join(found))
    return [*body, ".TE"]


def blocks(text):
    """A Markdown document as lines of a page."""
    body = []
    for block in re.split(r"\n\n+", re.sub(r"^```\w*\n(.*?)^```$", fenced, text, flags=re.DOTALL | re.MULTILINE)):
        lines = block.strip("\n").splitlines()
        if not lines:
            continue
        if lines[0].startswith("\0"):
            body += [".PP", ".RS 4", *examples(line[1:] for line in lines), ".RE"]
        elif lines[0].startswith("## "):
            body.append(f'.SH "{inline(lines[0][3:].upper())}"')
        elif lines[0].startswith("### "):
            body.append(f'.SS "{inline(lines[0][4:])}"')
        elif lines[0].startswith("|"):
            body += table(lines)
        elif lines[0].startswith("- "):
            for item in re.split(r"^- ", block, flags=re.MULTILINE)[1:]:
                body += [r".IP \(bu 2", inline(re.sub(r"\s+", " ", item).strip())]
        else:
            body += [".PP", inline("\n".join(line.strip() for line in lines))]
    return body


def fenced(match):
    """The lines of code with a mark, so that they are told from prose."""
    return "\n".join("\0" + (line or " ") for line in match[1].splitlines())


def sections(text):
    """The introduction of a document without its title, and its sections by their titles."""
    introduction, *rest = re.split(r"^## ", text.partition("\n")[2], flags=re.MULTILINE)
    return introduction, {part.partition("\n")[0]: part.partition("\n")[2] for part in rest}


def file_pages(version):
    introduction, described = sections((ROOT / "docs/bringup-file.md").read_text())
    for name, title, summary in (
        ("cairn-lt-bringup", "Bring-up files", "what a bring-up file of cairn-lt holds"),
        ("cairn-lt-chip", "Chip files", "what a chip file of cairn-lt holds"),
    ):
        body = [".SH DESCRIPTION", *blocks(described[title]), ".SH LIMITS", *blocks(introduction)]
        other = "cairn-lt-chip" if name == "cairn-lt-bringup" else "cairn-lt-bringup"
        body += see_also(("cairn-lt", 1), ("cairn-lt-bringup", 1), (other, 5))
        yield f"{name}.5", page(name, 5, summary, version, body)
    introduction, described = sections((ROOT / "docs/trace-format.md").read_text())
    body = [".SH DESCRIPTION", *blocks(introduction)]
    for title, text in described.items():
        body += blocks(f"## {title}\n\n{text}")
    body += see_also(("cairn-lt-trace", 1), ("cairn-lt", 1))
    yield "fleetlog.5", page("fleetlog", 5, "the format of trace files", version, body)


def pages(tool):
    """The names of all pages with what they hold."""

    def said(*arguments):
        return subprocess.run([tool, *arguments], stdout=subprocess.PIPE, check=True).stdout.decode()

    version = said("--version").strip()
    found = {"cairn-lt.1": program_page(said("--help"), version)}
    for verb, _, _ in parts(said("--help"))[2]["Subcommands"]:
        found[f"cairn-lt-{verb}.1"] = verb_page(verb, said(verb, "--help"), version)
    found.update(file_pages(version))
    return found


def main():
    arguments = sys.argv[1:]
    check = "--check" in arguments
    if check:
        arguments.remove("--check")
    if len(arguments) != 1:
        sys.exit(__doc__.strip())
    tool = pathlib.Path(arguments[0]).resolve()
    if not tool.exists():
        sys.exit(f"manuals.py: {arguments[0]} is not there; build cairn-lt first")
    wanted = pages(tool)
    there = {path.name: path.read_text() for path in PAGES.iterdir()} if PAGES.is_dir() else {}
    if not check:
        PAGES.mkdir(exist_ok=True)
        for name in there.keys() - wanted.keys():
            (PAGES / name).unlink()
        for name, text in wanted.items():
            (PAGES / name).write_text(text)
        return
    stale = sorted(name for name in there.keys() | wanted.keys() if there.get(name) != wanted.get(name))
    if stale:
        renew = f"scripts/manuals.py {shlex.quote(arguments[0])}"
        sys.exit(f"The manual pages are not current: {', '.join(stale)}; renew them with: {renew}")


main()
