#!/usr/bin/env python3
"""What Doxygen reads in place of a header or a document: run by it for each file.

    scripts/reference_filter.py FILE

Of a header, the comment that stands before the first declaration becomes the description of the file. Of a document,
links work as they do where Markdown is shown: those to other documents and to headings lead there, and those to
files that are no part of the reference become plain text.
"""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
# Where the pages and the headers of the reference lie.
PAGES = {ROOT, ROOT / "docs"}
HEADERS = {"Cairn", "CairnCommon", "interpose", "platform", "shim", "sim", "tracereader"}


def header(text):
    """The header with its first free comment as the description of the file, and without what it gives to std."""
    text = re.sub(r"^template <>\nstruct std::.*?^};$", lambda all: re.sub(r".+", "", all[0]), text, flags=re.MULTILINE | re.DOTALL)
    lines = text.splitlines()
    begin = next((at for at, line in enumerate(lines) if re.match(r"//( |$)", line)), None)
    first_declaration = next((at for at, line in enumerate(lines) if line and not re.match(r"#|//|$", line)), len(lines))
    if begin is None or begin > first_declaration:
        return text
    end = begin
    while end < len(lines) and re.match(r"//($| )", lines[end]):
        end += 1
    described = ["/// \\file", "///"]
    for line in lines[begin:end]:
        # "Name     what it is" is a list of names.
        item = re.match(r"// (\w+)  +(\S.*)", line)
        if item:
            described.append(f"/// - **{item[1]}** {item[2]}")
        elif re.match(r"// {8,}\S", line) and described[-1].startswith(("/// - ", "///   ")):
            described.append(f"///   {line[2:].strip()}")
        else:
            described.append(f"///{line[2:]}")
    return "\n".join([*lines[:begin], *described, "", *lines[end:]]) + "\n"


def anchor(heading):
    """What a heading is called in a link."""
    words = re.sub(r"[^\w\- ]", "", re.sub(r"\[([^]]*)\]\([^)]*\)", r"\1", heading).lower())
    return words.replace(" ", "-")


def page(path):
    """The name of a document among the pages."""
    return "index" if path.name == "README.md" and path.parent == ROOT else f"page_{path.stem}"


def document(path, text):
    """The document with links that Doxygen understands."""

    def link(match):
        words, target = match[1], match[2]
        if re.match(r"\w+:", target):
            return match[0]
        name, _, part = target.partition("#")
        file = (path.parent / name).resolve() if name else path
        if file.suffix == ".md" and file.parent in PAGES and file.exists():
            where = page(file)
            return f"[{words}](@ref {where}{'_' + anchor(part) if part else ''})"
        if file.suffix == ".h" and file.is_relative_to(ROOT):
            within = file.relative_to(ROOT)
            if within.parts[0] in HEADERS and "internal" not in within.parts:
                return f"[{words}](@ref {within.as_posix()})"
        return match[0] if file.suffix in {".svg", ".png"} else words

    written, in_code, title = [], False, True
    for line in text.splitlines():
        if line.startswith("```"):
            in_code = not in_code
            line = re.sub(r"^```(\w+).*", lambda kind: "```{.%s}" % kind[1] if kind[1] in {"cpp", "python"} else "```", line)
        elif not in_code and not line.startswith("    "):
            heading = re.match(r"(#+) (.*)", line)
            if heading:
                name = page(path) if title else f"{page(path)}_{anchor(heading[2])}"
                title = False
                # The main page has its name already.
                line = f"{heading[1]} {re.sub('`', '', heading[2])}" + ("" if name == "index" else f" {{#{name}}}")
            else:
                line = re.sub(r"(?<!!)\[([^]]*)\]\(([^)\s]+)\)", link, line)
                line = re.sub(r"\*\*(`[^`]+`)\*\*", r"<b>\1</b>", line)
        written.append(line)
    return "\n".join(written) + "\n"


def main():
    path = pathlib.Path(sys.argv[1]).resolve()
    text = path.read_text(encoding="utf-8")
    sys.stdout.write(document(path, text) if path.suffix == ".md" else header(text))


main()
