#!/usr/bin/env python3
"""Makes the pictures of docs/ anew: what the pages of cairn-lt report look like, and what other viewers make of exports.

    scripts/pictures.py CAIRN_LT

Needs the picture_packages of packages.sh. Times and processes are those of the run, so the pictures differ each time.
"""

import collections
import html
import os
import pathlib
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import zlib

sys.dont_write_bytecode = True
from browser import Browser, chromium

ROOT = pathlib.Path(__file__).resolve().parent.parent
PICTURES = ROOT / "docs/pictures"
MOST_BYTES = 150_000
WIDTH = 1120
FLAMEGRAPH = "/usr/share/perl5/Devel/NYTProf/flamegraph.pl"


def pixels_of(png):
    """The rows of a PNG as a browser writes it: eight bits for each of three or four channels."""
    width, height, depth, kind, _, _, interlaced = struct.unpack(">IIBBBBB", png[16:29])
    if depth != 8 or kind not in (2, 6) or interlaced:
        sys.exit("pictures.py: the browser writes PNG files of another kind now")
    size = 3 if kind == 2 else 4
    data, at = b"", 8
    while at < len(png):
        (length,) = struct.unpack(">I", png[at : at + 4])
        if png[at + 4 : at + 8] == b"IDAT":
            data += png[at + 8 : at + 8 + length]
        at += length + 12
    data = zlib.decompress(data)
    above = bytearray(width * size)
    for y in range(height):
        begin = y * (width * size + 1)
        filtering, row = data[begin], bytearray(data[begin + 1 : begin + 1 + width * size])
        for i in range(len(row)):
            left = row[i - size] if i >= size else 0
            corner = above[i - size] if i >= size else 0
            if filtering == 1:
                row[i] = (row[i] + left) & 255
            elif filtering == 2:
                row[i] = (row[i] + above[i]) & 255
            elif filtering == 3:
                row[i] = (row[i] + (left + above[i]) // 2) & 255
            elif filtering == 4:
                distances = [abs(above[i] - corner), abs(left - corner), abs(left + above[i] - 2 * corner)]
                row[i] = (row[i] + (left, above[i], corner)[distances.index(min(distances))]) & 255
        above = row
        yield [tuple(row[i : i + 3]) for i in range(0, len(row), size)]


def small_png(png):
    """The same picture with the 256 colours that it has most of."""
    rows = list(pixels_of(png))
    counts = collections.Counter(pixel for row in rows for pixel in row)
    palette = [color for color, _ in counts.most_common(256)]
    numbers = {color: i for i, color in enumerate(palette)}
    for color in counts:
        if color not in numbers:
            numbers[color] = min(range(len(palette)), key=lambda i: sum((a - b) ** 2 for a, b in zip(palette[i], color)))
    data = b"".join(b"\0" + bytes(numbers[pixel] for pixel in row) for row in rows)

    def chunk(name, content):
        return struct.pack(">I", len(content)) + name + content + struct.pack(">I", zlib.crc32(name + content))

    return (
        png[:8]
        + chunk(b"IHDR", struct.pack(">IIBBBBB", len(rows[0]), len(rows), 8, 3, 0, 0, 0))
        + chunk(b"PLTE", b"".join(bytes(color) for color in palette))
        + chunk(b"IDAT", zlib.compress(data, 9))
        + chunk(b"IEND", b"")
    )


def report(tool, page, *arguments):
    subprocess.run([tool, "report", *arguments, "-o", page], cwd=ROOT, stderr=subprocess.DEVNULL, check=False)
    if not page.exists():
        sys.exit(f"pictures.py: {tool} has written no page")


def until(page, selector):
    """The part of the page from its top to the end of an element."""
    return (0, 0, WIDTH, page.evaluate(f"document.querySelector({selector!r}).getBoundingClientRect().bottom + scrollY + 24"))


def call(*command, cwd, **variables):
    """What a command prints; its failure ends this script."""
    run = subprocess.run(command, cwd=cwd, stdout=subprocess.PIPE, text=True, check=False, env={**os.environ, **variables})
    if run.returncode:
        sys.exit(f"pictures.py: {command[0]} has failed")
    return run.stdout


def written_page(path, body):
    path.write_text(f'<!doctype html><meta charset="utf-8"><script>document.documentElement.dataset.state = "shown"</script>{body}')
    return path


def terminal_page(path, command, output):
    """A page that looks as a terminal does: the command, and what it has printed, with its bold and coloured parts."""
    styles = {"1": "font-weight: 600", "33": "color: #8a5a00", "35": "color: #86298a", "36": "color: #00666f"}
    shown, text = {}, f"$ {html.escape(command)}\n"
    for code, part in re.findall(r"(?:\x1b\[(\d+)m)?([^\x1b]*)", output):
        if code == "0":
            shown = {}
        elif code:
            shown[code] = styles[code]
        text += f'<span style="{"; ".join(shown.values())}">{html.escape(part)}</span>' if shown else html.escape(part)
    font = "font: 12px/1.55 'DejaVu Sans Mono', monospace"
    layout = "margin: 0; padding: 12px 16px 0; white-space: pre-wrap; overflow-wrap: anywhere; color: #1d1f21"
    return written_page(path, f'<body style="margin: 0"><pre id="terminal" style="{font}; {layout}">{text}</pre>')


def draw_exports(browser, folder, tool):
    """Exports of what docs/see.md records, in the programs that it names."""
    call(tool, "run", "setLoadBalanceRandSeedCtrl", "0", "12345", "--record-to", "seen", "--trace-dir", "seen", cwd=folder)
    call(tool, "trace", "seen", "--export", "ctf", "-o", "seen-ctf", cwd=folder)
    call(tool, "trace", "seen", "--export", "chrome", "-o", "seen.json", cwd=folder)
    call(tool, "trace", "seen", "--export", "folded", "-o", "seen.folded", cwd=folder)

    command = "babeltrace2 seen-ctf --no-delta --names=payload"
    output = call(*command.split(), cwd=folder, BABELTRACE_TERM_COLOR="always", TZ="UTC")
    head = "".join(output.splitlines(keepends=True)[:12])
    page = browser.open(terminal_page(folder / "terminal.html", command + " | head -12", head), width=WIDTH)
    yield "export-ctf.png", page, until(page, "#terminal")

    height, panes = 560, 361
    page = browser.open_trace(folder / "seen.json", width=WIDTH, height=height)
    page.click_label("Close")  # the keys that it explains
    page.click_label("Hide sidebar")
    page.drag(WIDTH / 2, panes, panes - 140)
    for x, y in ((10, 129), (20, 146), (60, 180)):  # opens the process, then the thread; chooses its first call
        page.click_at(x, y)
    page.mouse("mouseMoved", WIDTH - 20, height - 20)
    yield "export-chrome.png", page, (0, 0, WIDTH, height - 10)

    look = ("--title=setLoadBalanceRandSeedCtrl", f"--width={WIDTH}", "--height=22", "--colors=io", "--hash")
    graph = call("perl", FLAMEGRAPH, "--countname=ns", *look, "seen.folded", cwd=folder)
    picture = graph[graph.index("<svg") :]
    page = browser.open(written_page(folder / "graph.html", f'<body style="margin: 0">{picture}'), width=WIDTH)
    below = 24  # of the frames, where the viewer tells what the mouse is on
    yield "export-folded.png", page, (0, 0, WIDTH, page.evaluate("document.querySelector('svg').height.baseVal.value") - below)


def draw(browser, folder, tool):
    stopped, whole = folder / "stopped.html", folder / "whole.html"
    report(tool, stopped, "examples/bringup.toml", "--inject", "op=pt_entry_commit,rc=-30,at=19")
    report(tool, whole, "examples/bringup.toml")

    page = browser.open(stopped, width=WIDTH)
    page.click("#failure-show")
    page.evaluate("document.activeElement.blur()")
    yield "report-stopped.png", page, until(page, "#call-detail")

    page = browser.open(whole, dark=True, width=WIDTH)
    page.evaluate("timeline.lookAt(timeline.end * 0.4, timeline.end * 0.2)")
    yield "report-timeline.png", page, until(page, "#calls .head")

    page = browser.open(whole, width=WIDTH)
    page.evaluate("document.getElementById('chip-find').value = 'ecn'")
    page.evaluate("document.getElementById('chip-filter').dispatchEvent(new Event('input'))")
    page.click("#chip-close")
    page.click("#chip-open")
    page.evaluate("scrollTo(0, 0); document.activeElement.blur()")
    top = page.evaluate("document.getElementById('chip').getBoundingClientRect().top + scrollY")
    bottom = page.evaluate("document.getElementById('chip').getBoundingClientRect().bottom + scrollY")
    yield "report-tables.png", page, (0, top - 12, WIDTH, bottom - top + 36)

    yield from draw_exports(browser, folder, tool)


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__.strip())
    if chromium() is None:
        sys.exit("pictures.py: there is no Chromium; install the package chromium")
    if shutil.which("babeltrace2") is None:
        sys.exit("pictures.py: there is no babeltrace2; install the package babeltrace2")
    if not pathlib.Path(FLAMEGRAPH).exists():
        sys.exit(f"pictures.py: there is no {FLAMEGRAPH}; install the package libdevel-nytprof-perl")
    tool = pathlib.Path(sys.argv[1]).resolve()
    PICTURES.mkdir(exist_ok=True)
    with tempfile.TemporaryDirectory() as folder, Browser() as browser:
        for name, page, clip in draw(browser, pathlib.Path(folder), tool):
            page.picture(PICTURES / name, clip)
            (PICTURES / name).write_bytes(small_png((PICTURES / name).read_bytes()))
            size = (PICTURES / name).stat().st_size
            print(f"docs/pictures/{name}: {size // 1000} kB")
            if size > MOST_BYTES:
                sys.exit(f"pictures.py: docs/pictures/{name} is too large for the repository; show less of the page")


main()
