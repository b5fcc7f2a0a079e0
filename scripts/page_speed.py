#!/usr/bin/env python3
"""Measures how long a page of cairn-lt report with a million calls takes.

    scripts/page_speed.py CAIRN_LT [STEPS]

Runs a bring-up of STEPS steps (200,000, five calls each), makes its page, and opens it in a headless Chromium: until it is
shown, for one drawing of the timeline, for one step of scrolling and for one filter.
"""

import pathlib
import subprocess
import sys
import tempfile
import time

sys.dont_write_bytecode = True
from browser import Browser, chromium

# Each is a function of the page; its mean is told in milliseconds.
MEASURES = [
    ("draw the timeline", 20, "() => timeline.drawNow()"),
    ("scroll the calls", 50, "(i) => { calls.rows.window.scrollTop = i * 100003; calls.rows.draw(); }"),
    ("filter the calls", 5, "(i) => { document.getElementById('call-find').value = ['OUTER', 'commit'][i % 2]; calls.filter(); }"),
]


def bringup(steps):
    yield '[[chips]]\nname = "leaf"\nunit = 0\nfile = "reference"\n'
    for i in range(steps):
        yield f'[[steps]]\nrecipe = "setEgrTunnelEcnEncap"\narguments = [ 0, {i % 256}, {i // 256 % 4} ]\n'


def main():
    if len(sys.argv) not in (2, 3):
        sys.exit(__doc__.strip())
    if chromium() is None:
        sys.exit("page_speed.py: there is no Chromium; install the package chromium")
    with tempfile.TemporaryDirectory() as name, Browser() as browser:
        folder = pathlib.Path(name)
        (folder / "steps.toml").write_text("".join(bringup(int(sys.argv[2]) if len(sys.argv) == 3 else 200_000)))
        begin = time.monotonic()
        subprocess.run([sys.argv[1], "report", folder / "steps.toml", "-o", folder / "page.html"], check=True)
        print(f"run and write        {time.monotonic() - begin:.2f} s")
        print(f"size of the page     {(folder / 'page.html').stat().st_size / 1e6:.1f} MB")
        page = browser.open(folder / "page.html")
        print(f"calls                {page.evaluate('data.calls.number.length')}")
        print(f"open                 {page.evaluate('performance.getEntriesByName(`open`)[0].startTime') / 1e3:.2f} s")
        print(f"rows in the document {page.evaluate('document.querySelectorAll(`#call-rows .row`).length')}")
        for what, times, function in MEASURES:
            mean = page.evaluate(
                f"(() => {{ const f = {function}; const begin = performance.now();"
                f" for (let i = 0; i < {times}; ++i) f(i); return (performance.now() - begin) / {times}; }})()"
            )
            print(f"{what:20} {mean:.1f} ms")


main()
