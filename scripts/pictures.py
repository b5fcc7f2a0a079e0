#!/usr/bin/env python3
"""Makes the pictures of docs/ anew: what the pages of cairn-lt report look like.

    scripts/pictures.py CAIRN_LT

Needs the package chromium. Times and processes are those of the run, so the pictures differ each time.
"""

import collections
import pathlib
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


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__.strip())
    if chromium() is None:
        sys.exit("pictures.py: there is no Chromium; install the package chromium")
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
