#!/usr/bin/env python3
"""Keeps the samples in README.md and docs/ true: writes what the commands print today, and the code that compiles.

    scripts/samples.py CAIRN_LT            writes the samples anew, with this build of the tool
    scripts/samples.py CAIRN_LT --check    compares them, and fails if one is not current

A block that begins with ```console holds commands, each after "$ ", and their output. The commands of a block run one
after another in a folder of their own. Times and process ids are replaced by fixed ones.

docs/commands.md is written as a whole: the help of each verb.

A block that begins with ```cpp stands below a line <!-- FILE: NAME, ... --> and holds the lines of that file between
"// sample: NAME" and "// end of sample", for each of the names, with an empty line between them.
"""

import difflib
import pathlib
import re
import resource
import shlex
import subprocess
import sys
import tempfile
import textwrap

ROOT = pathlib.Path(__file__).resolve().parent.parent
# Documents that another command writes.
GENERATED = {"recipes.md", "performance.md"}
COMMANDS = ROOT / "docs/commands.md"

BLOCK = re.compile(r"(?:<!-- (?P<file>[^:\n]+): (?P<names>[^\n]+) -->\n)?```(?P<kind>console|cpp)\n(?P<body>.*?)```\n", re.DOTALL)
PIECE = r" *// sample: {}\n(.*?) *// end of sample\n"
TIME = re.compile(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.(\d{6}|\d{9})Z( \d+)?")
PROCESS = re.compile(r"\bprocess \d+")


def normalised(output):
    """The output with times one microsecond apart, and process id 4711."""
    count = 0

    def replacement(match):
        nonlocal count
        count += 1
        return f"2026-03-01T07:30:00.{count:06d}{'0' * (len(match[1]) - 6)}Z{' 4711' if match[2] else ''}"

    return PROCESS.sub("process 4711", TIME.sub(replacement, output))


def run(command, folder):
    """What a command writes, on either stream, without what the shell says of its end."""
    done = subprocess.run(
        ["bash", "-c", f"( {command} ) 2>&1"],
        cwd=folder,
        env={"PATH": "/usr/bin:/bin", "LC_ALL": "C.UTF-8"},
        stdout=subprocess.PIPE,
        stderr=subprocess.DEVNULL,
        stdin=subprocess.DEVNULL,
        preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_CORE, (0, 0)),
        check=False,
    )
    return done.stdout.decode()


def console(body, tool):
    """The commands of a block with what they print."""
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        (folder / "examples").symlink_to(ROOT / "examples")
        binaries = folder / "build/bringup/bin"
        binaries.mkdir(parents=True)
        (binaries / "cairn-lt").symlink_to(tool)
        lines = []
        for command in re.findall(r"^\$ (.*)$", body, re.MULTILINE):
            lines.append(f"$ {command}\n")
            lines.append(run(command, folder))
        return normalised("".join(lines))


def code(file, names):
    """The pieces of a source file that have these names, or None if one is not there."""
    source = ROOT / (file or "")
    if not source.is_file():
        return None
    pieces = []
    for name in names.split(","):
        piece = re.search(PIECE.format(re.escape(name.strip())), source.read_text(), re.DOTALL)
        if not piece:
            return None
        pieces.append(textwrap.dedent(piece[1]).strip("\n") + "\n")
    return "\n".join(pieces)


def commands(tool):
    """The help of the program and of each of its verbs."""
    help_of_all = subprocess.run([tool, "--help"], stdout=subprocess.PIPE, check=True).stdout.decode()
    verbs = re.findall(r"^  ([a-z-]+)  ", help_of_all.split("Subcommands:\n")[1], re.MULTILINE)
    text = "# The command line\n\nThe help of `cairn-lt` and of each verb. Do not edit; `scripts/samples.py` writes it.\n"
    for verb in ["", *verbs]:
        command = f"$ build/bringup/bin/cairn-lt {verb} --help".replace("  ", " ")
        text += f"\n## cairn-lt {verb}".rstrip() + f"\n\n```console\n{console(command, tool)}```\n"
    return text


def renewed(document, tool):
    """The text of a document with its samples as they are today."""
    if document == COMMANDS:
        return commands(tool)

    def replacement(match):
        head, tail = match[0].split(f"```{match['kind']}\n")[0], "```\n"
        if match["kind"] == "console":
            body = console(match["body"], tool)
        else:
            body = code(match["file"], match["names"])
            if body is None:
                line = document.read_text()[: match.start("kind")].count("\n") + 1
                sys.exit(
                    f"samples.py: {document.relative_to(ROOT)}:{line}: the code is cut from no source; "
                    'put <!-- FILE: NAME --> above it, and "// sample: NAME" into the file'
                )
        return f"{head}```{match['kind']}\n{body}{tail}"

    return BLOCK.sub(replacement, document.read_text())


def main():
    arguments = sys.argv[1:]
    check = "--check" in arguments
    if check:
        arguments.remove("--check")
    if len(arguments) != 1:
        sys.exit(__doc__.strip())
    tool = pathlib.Path(arguments[0]).resolve()
    if not tool.exists():
        sys.exit(f"samples.py: {arguments[0]} is not there; build cairn-lt first")
    failed = False
    for document in [ROOT / "README.md", *sorted((ROOT / "docs").glob("*.md"))]:
        if document.name in GENERATED:
            continue
        old, new = document.read_text(), renewed(document, tool)
        if old == new:
            continue
        if check:
            failed = True
            sys.stdout.writelines(
                difflib.unified_diff(
                    old.splitlines(keepends=True), new.splitlines(keepends=True), str(document.relative_to(ROOT)), "today"
                )
            )
        else:
            document.write_text(new)
    if failed:
        sys.exit(f"The samples are not current; renew them with: scripts/samples.py {shlex.quote(arguments[0])}")


main()
