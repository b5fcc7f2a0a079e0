#!/usr/bin/env python3
"""Types into a real shell, presses the tab key, and looks at the line that it has made.

    completion_test.py SHELL CAIRN_LT SCRIPTS

SHELL is bash, zsh or fish; SCRIPTS is the folder of the shells' scripts. Exits with 77 where there is no such shell.
"""

import fcntl
import os
import pathlib
import pty
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import termios

# What is typed, and what the line is after the tab key.
LINES = [
    ("cairn-lt expl", "cairn-lt explain"),
    ("cairn-lt run setEgr", "cairn-lt run setEgrTunnelEcnEncap"),
    ("cairn-lt run --trace-f", "cairn-lt run --trace-file"),
    ("cairn-lt trace --format b", "cairn-lt trace --format brief"),
    ("cairn-lt explain --format=m", "cairn-lt explain --format=markdown"),
    ("cairn-lt dump --state=kept.json SER_", "cairn-lt dump --state=kept.json SER_PT_CONTROL"),
    ("cairn-lt run programMonTraceCpu 0 L3_URP", "cairn-lt run programMonTraceCpu 0 L3_URPF_FAIL"),
    ("cairn-lt run --inject op=pt_", "cairn-lt run --inject op=pt_entry_commit"),
    ("cairn-lt run --inject op=commit,table=PC_PORT,field=SP", "cairn-lt run --inject op=commit,table=PC_PORT,field=SPEED"),
    ("cairn-lt check --ignore wri", "cairn-lt check --ignore written-twice"),
    ("cairn-lt bringup fi", "cairn-lt bringup file.toml"),
    ("cairn-lt run --model=fi", "cairn-lt run --model=file.toml"),
    # Tables of the chip that the line names.
    ("cairn-lt tables --chip own.toml OW", "cairn-lt tables --chip own.toml OWN_TABLEm"),
    # Nothing is offered that is not there.
    ("cairn-lt nosuch x", "cairn-lt nosuch x"),
    ("cairn-lt run noSuch", "cairn-lt run noSuch"),
]

OWN_CHIP = """
base = "nothing"

[[tables]]
name = "OWN_TABLEm"
kind = "memory"
fields = [ { name = "OWN_FIELD", width = 8 } ]
"""


class Shell:
    """An interactive shell on a terminal of its own."""

    def __init__(self, command, environment, folder):
        self._terminal, other = pty.openpty()
        # No line is broken.
        fcntl.ioctl(other, termios.TIOCSWINSZ, struct.pack("HHHH", 50, 1000, 0, 0))
        self._child = subprocess.Popen(
            command, stdin=other, stdout=other, stderr=other, env=environment, cwd=folder, start_new_session=True
        )
        os.close(other)

    def ask(self, keys):
        """Presses keys, then makes the line an argument of echo. What echo says."""
        # The sum is in what echo prints, and not in what the shell shows of the line.
        os.write(self._terminal, keys.encode() + b"\x01echo said-$((40+2)) \x05\n")
        said = b""
        while not (found := re.search(rb"said-42 ?([^\r\n]*)\r?\n", said)):
            said += os.read(self._terminal, 4096)
        return found[1].decode().strip()

    def end(self):
        os.close(self._terminal)
        self._child.kill()
        self._child.wait()


def typed(shell, scripts, environment, folder):
    """The lines that bash or zsh has made."""
    if shell == "bash":
        running = Shell(["bash", "--norc", "--noprofile", "-i"], environment, folder)
        set_up = f"source {scripts}/cairn-lt.bash"
    else:
        running = Shell(["zsh", "-f", "-i"], environment, folder)
        set_up = f"bindkey -e; fpath=( {scripts} $fpath ); autoload -Uz compinit; compinit -u -D"
    try:
        running.ask(f"{set_up}\n")
        return [running.ask(line + "\t") for line, _ in LINES]
    finally:
        running.end()


def asked(scripts, environment, folder):
    """The lines that fish would make: it has a command that presses the key."""
    lines = []
    for line, _ in LINES:
        done = subprocess.run(
            ["fish", "--no-config", "-c", f"source {scripts}/cairn-lt.fish; complete -C '{line}'"],
            env=environment,
            cwd=folder,
            stdout=subprocess.PIPE,
            check=True,
        )
        found = [each.partition("\t")[0] for each in done.stdout.decode().splitlines()]
        head = line.rpartition(" ")[0]
        lines.append(f"{head} {found[0]}" if len(found) == 1 else line)
    return lines


def main():
    shell, tool, scripts = sys.argv[1:]
    if shutil.which(shell) is None:
        print(f"skipped: there is no {shell}; install the package {shell}")
        sys.exit(77)
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        (folder / "file.toml").touch()
        (folder / "own.toml").write_text(OWN_CHIP)
        (folder / "bin").mkdir()
        (folder / "bin/cairn-lt").symlink_to(pathlib.Path(tool).resolve())
        environment = {
            "PATH": f"{folder}/bin:/usr/bin:/bin",
            "HOME": name,
            "TERM": "dumb",
            "LC_ALL": "C.UTF-8",
            # What a sanitizer needs, and nothing else of the caller.
            **{key: value for key, value in os.environ.items() if key.endswith("SAN_OPTIONS")},
        }
        scripts = pathlib.Path(scripts).resolve()
        made = asked(scripts, environment, folder) if shell == "fish" else typed(shell, scripts, environment, folder)
    wrong = [(line, wanted, is_) for (line, wanted), is_ in zip(LINES, made) if is_ != wanted]
    for line, wanted, is_ in wrong:
        print(f'{shell}: "{line}" becomes "{is_}", not "{wanted}"')
    sys.exit(1 if wrong else 0)


main()
