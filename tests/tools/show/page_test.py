#!/usr/bin/env python3
"""The pages of cairn-lt report in a real browser: clicked, filtered, zoomed, with the keyboard alone.

    page_test.py CAIRN_LT

Exits with 77, which is "skipped", where there is no Chromium, unless CAIRN_BROWSER says "required".
"""

import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[3]
sys.path.insert(0, str(ROOT / "scripts"))
sys.dont_write_bytecode = True
from browser import Browser, BrowserError, chromium  # noqa: E402

HOSTILE = "</script><script>window.broken=1</script><img src=http://127.0.0.1:9/x onerror=window.broken=1>\"'&\u202e"

# The relation of the luminances of two colours, as WCAG 2 defines it.
CONTRAST = """
const luminance = (color) => {
  const [r, g, b] = color.map((each) => (each / 255 <= 0.04045 ? each / 255 / 12.92 : ((each / 255 + 0.055) / 1.055) ** 2.4));
  return 0.2126 * r + 0.7152 * g + 0.0722 * b;
};
const contrast = (one, other) => {
  const [low, high] = [luminance(one), luminance(other)].sort((a, b) => a - b);
  return (high + 0.05) / (low + 0.05);
};
const parsed = (text) => {
  const pen = document.createElement("canvas").getContext("2d", { willReadFrequently: true });
  pen.fillStyle = text;
  pen.fillRect(0, 0, 1, 1);
  return [...pen.getImageData(0, 0, 1, 1).data];
};
const known = new Map();
const rgba = (text) => known.get(text) ?? (known.set(text, parsed(text)), known.get(text));
// The colour behind an element: the nearest that is not transparent.
const behind = (element) => {
  for (let each = element; each; each = each.parentElement) {
    const color = rgba(getComputedStyle(each).backgroundColor);
    if (color[3] === 255) return color.slice(0, 3);
  }
  return [255, 255, 255];
};
"""


class PageTest(unittest.TestCase):
    """One browser for all; each test has a page of its own."""

    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.failed = cls.report("failed", "examples/bringup.toml", "--inject", "op=pt_entry_commit,rc=-30,at=19")
        cls.good = cls.report("good", "examples/bringup.toml")
        cls.browser = Browser()
        cls.addClassCleanup(cls.folder.cleanup)
        cls.addClassCleanup(cls.browser.__exit__)

    @classmethod
    def report(cls, name, *arguments):
        page = pathlib.Path(cls.folder.name, f"{name}.html")
        run = subprocess.run([TOOL, "report", *arguments, "-o", page], cwd=ROOT, capture_output=True, text=True)
        if not page.exists():
            raise AssertionError(run.stderr)
        return page

    def write(self, name, text):
        path = pathlib.Path(self.folder.name, name)
        path.write_text(text)
        return path

    def text(self, page, selector):
        return page.evaluate(f"document.querySelector({json.dumps(selector)}).textContent")

    # The texts of a column of the rows that are in the document.
    def column(self, page, place, column):
        return page.evaluate(f"[...document.querySelectorAll('#{place} .row')].map((row) => row.children[{column}].textContent)")

    def assertClean(self, page, path):
        """Nothing was asked for but the file, nothing was refused, nothing was thrown."""
        asked = {event["request"]["url"] for event in page.events("Network.requestWillBeSent")}
        self.assertEqual({each for each in asked if not each.startswith("data:")}, {path.resolve().as_uri()})
        self.assertEqual([event["entry"]["text"] for event in page.events("Log.entryAdded")], [])
        self.assertEqual(page.events("Runtime.exceptionThrown"), [])

    # --- What is shown

    def test_the_summary_and_the_failure_first(self):
        page = self.browser.open(self.failed)
        self.assertEqual(self.text(page, "#ending"), "Stopped in step 36 of 55.")
        self.assertEqual(page.evaluate("document.title"), "Bring-up: examples/bringup.toml")
        facts = self.text(page, "#failure-facts")
        for part in ("setLoadBalanceRandSeedCtrl( unit=0, seed=24301 )", "op=bcmlt_pt_entry_commit,rc=-30,at=19", "Cairn/CairnLtHelper:"):
            self.assertIn(part, facts)
        tops = page.evaluate(
            "['failure', 'summary', 'timeline', 'calls', 'messages', 'chip'].map((id) => document.getElementById(id).getBoundingClientRect().top)"
        )
        self.assertEqual(tops, sorted(tops))
        self.assertEqual(page.evaluate("[...document.querySelectorAll('main section')].filter((each) => !each.hidden)[0].id"), "failure")
        self.assertClean(page, self.failed)

    def test_a_page_without_a_failure(self):
        page = self.browser.open(self.good)
        self.assertEqual(self.text(page, "#ending"), "All 55 steps went as they must.")
        self.assertTrue(page.evaluate("document.getElementById('failure').hidden"))
        self.assertEqual(page.evaluate("getComputedStyle(document.getElementById('failure')).display"), "none")
        self.assertClean(page, self.good)

    def test_the_chosen_failure_is_shown_everywhere(self):
        page = self.browser.open(self.failed)
        page.click("#failure-show")
        self.assertIn("-30, which stopped the process", self.text(page, "#call-detail"))
        self.assertIn("pt_entry_commit", self.text(page, "#lanes-now"))
        chosen = page.evaluate("document.querySelector('#call-rows .row[aria-selected=true]').textContent")
        self.assertIn("-30", chosen)
        self.assertTrue(page.evaluate("timeline.from < data.calls.begin[calls.rows.rowAt(calls.rows.chosen)]"))

    def test_a_bundle_shows_its_diagnosis_first(self):
        trace, log, bundle = (pathlib.Path(self.folder.name, name) for name in ("trace", "agent.log", "case.tar.zst"))
        command = [TOOL, "run", "setEgrTunnelEcnEncap", "0", "5", "4", "--record-to", trace]
        log.write_text(subprocess.run(command, capture_output=True, text=True).stderr)
        subprocess.run([TOOL, "diagnose", log, "--trace", trace, "--bundle", bundle], check=True, capture_output=True)
        path = self.report("bundle", bundle)
        page = self.browser.open(path)
        self.assertEqual(page.evaluate("[...document.querySelectorAll('main section')].filter((each) => !each.hidden)[0].id"), "failure")
        self.assertIn("Cairn/CairnLtHelper:", self.text(page, "#failure-facts"))
        page.click("#failure-show")
        self.assertIn("-14, which stopped the process", self.text(page, "#call-detail"))
        self.assertClean(page, path)

    # --- The calls

    def test_only_rows_in_sight_are_there(self):
        page = self.browser.open(self.good)
        total = page.evaluate("data.calls.number.length")
        self.assertGreater(total, 300)
        room = page.evaluate("Math.ceil(document.querySelector('#call-rows .window').clientHeight / 26)")
        self.assertLessEqual(len(self.column(page, "call-rows", 0)), room + 2)
        page.evaluate("document.querySelector('#call-rows .window').scrollTop = 1e9")
        page.settle()
        numbers = self.column(page, "call-rows", 0)
        self.assertLessEqual(len(numbers), room + 2)
        self.assertEqual(int(numbers[-1]), page.evaluate("data.calls.number.at(-1)"))
        # The last row is in sight as a whole.
        below = page.evaluate(
            "document.querySelector('#call-rows .window').getBoundingClientRect().bottom"
            " - [...document.querySelectorAll('#call-rows .row')].at(-1).getBoundingClientRect().bottom"
        )
        self.assertGreaterEqual(below, -1)

    def test_filters(self):
        page = self.browser.open(self.good)
        rows = page.evaluate("data.calls.number.length")
        page.click("#call-find")
        page.type("opaque_tag_config")
        count = int(re.match(r"(\d+) of", self.text(page, "#call-count"))[1])
        self.assertTrue(0 < count < rows)
        self.assertTrue(all("OPAQUE_TAG_CONFIG" in each for each in self.column(page, "call-rows", 4)))
        page.evaluate(
            "{ const e = document.getElementById('call-operation'); e.value = [...e.options].find((o) => o.text === 'pt_entry_commit').value;"
            " e.dispatchEvent(new Event('input', { bubbles: true })); }"
        )
        page.settle()
        self.assertEqual(set(self.column(page, "call-rows", 3)), {"pt_entry_commit"})
        self.assertLess(int(re.match(r"(\d+) of", self.text(page, "#call-count"))[1]), count)
        page.click("#call-filter button[type=reset]")
        page.wait("document.getElementById('call-count').textContent.indexOf(' of ') < 0")
        page.click("#call-failed")
        failed = page.evaluate("data.calls.rc.filter((each) => each % 2 === 1).length")
        self.assertEqual(self.text(page, "#call-count"), f"{failed} of {rows} calls")
        self.assertTrue(all(each.startswith("-") for each in self.column(page, "call-rows", 6)))
        page.click("#call-find")
        page.type("no call has this")
        self.assertEqual(self.text(page, "#call-rows .none"), "No call is like that")

    def test_a_click_chooses_a_call(self):
        page = self.browser.open(self.good)
        page.click("#call-rows .row:nth-child(4)")
        self.assertEqual(page.evaluate("document.querySelector('#call-rows .row[aria-selected=true]').dataset.place"), "3")
        self.assertIn("bcmlt_entry_commit", self.text(page, "#call-detail"))
        self.assertIn("cpuPortInit()", self.text(page, "#call-detail"))
        self.assertEqual(page.evaluate("timeline.chosen"), 3)

    # --- The timeline

    def pixels(self, page):
        """How many colours the timeline has."""
        page.settle()
        return page.evaluate(
            "(() => { const c = document.getElementById('canvas'); const d = new Uint32Array(c.getContext('2d')"
            ".getImageData(0, 0, c.width, c.height).data.buffer); return [new Set(d).size, d.reduce((a, b) => (a * 31 + b) >>> 0, 7)]; })()"
        )

    def test_zooming_and_moving(self):
        page = self.browser.open(self.good)
        colors, picture = self.pixels(page)
        self.assertGreater(colors, 5)
        width = "timeline.to - timeline.from"
        whole = page.evaluate(width)
        page.click("#zoom-in")
        self.assertAlmostEqual(page.evaluate(width) / whole, 0.5, places=6)
        self.assertNotEqual(self.pixels(page)[1], picture)
        middle = page.evaluate("(() => { const b = document.getElementById('lanes').getBoundingClientRect(); return [b.x + b.width / 2, b.y + b.height / 2]; })()")
        before = page.evaluate("timeline.from")
        page.mouse("mouseMoved", *middle)
        page.mouse("mousePressed", *middle, button="left", clickCount=1)
        page.mouse("mouseMoved", middle[0] - 150, middle[1], button="left", buttons=1)
        page.mouse("mouseReleased", middle[0] - 150, middle[1], button="left", clickCount=1)
        self.assertGreater(page.evaluate("timeline.from"), before)
        page.mouse("mouseWheel", *middle, deltaX=0, deltaY=-300, modifiers=2)
        page.wait(f"{width} < {whole} * 0.4")
        page.click("#zoom-all")
        self.assertAlmostEqual(page.evaluate(width), whole)
        self.assertEqual(self.pixels(page)[1], picture)

    def test_a_click_on_the_timeline_chooses_the_call_there(self):
        page = self.browser.open(self.good)
        place = page.evaluate(
            "(() => { timeline.lookAt(data.calls.begin[10], data.calls.took[10]); document.getElementById('lanes').scrollIntoView({ block: 'center' });"
            " const b = document.getElementById('canvas').getBoundingClientRect();"
            " return [b.x + timeline.x(data.calls.begin[10] + data.calls.took[10] / 2), b.y + 53]; })()"
        )
        page.mouse("mouseMoved", *place)
        page.settle()
        self.assertFalse(page.evaluate("document.getElementById('tip').hidden"))
        self.assertIn("entry_commit", self.text(page, "#tip"))
        page.click_at(*place)
        self.assertEqual(page.evaluate("timeline.chosen"), 10)
        self.assertEqual(page.evaluate("calls.rows.chosen"), 10)

    def test_finding(self):
        page = self.browser.open(self.good)
        page.click("#find")
        page.type("setmcast")
        count = int(self.text(page, "#find-count").split()[0])
        self.assertGreater(count, 1)
        page.press("Enter")
        first = page.evaluate("timeline.next")
        page.click("#find-next")
        self.assertGreater(page.evaluate("timeline.next"), first)
        self.assertTrue(page.evaluate("timeline.from <= timeline.next && timeline.next <= timeline.to"))
        for _ in range(count):
            page.evaluate("timeline.findNext()")
        self.assertIsNotNone(page.evaluate("timeline.next"))

    def test_a_message_that_is_chosen_is_in_sight(self):
        page = self.browser.open(self.good)
        page.click("#message-find")
        page.type("seed: 24301")
        self.assertRegex(self.text(page, "#message-count"), r"^\d+ of \d+ messages$")
        page.click("#message-rows .row")
        self.assertIn("seed: 24301", self.text(page, "#lanes-now"))
        self.assertTrue(page.evaluate("timeline.to - timeline.from < timeline.end / 10"))

    # --- The chip

    def test_tables_tell_who_wrote_them(self):
        page = self.browser.open(self.good)
        page.click("#chip-open")
        table = page.evaluate("[...document.querySelectorAll('details')].findIndex((e) => e.textContent.startsWith('EGR_TUNNEL_ECN_ENCAPm'))")
        row = page.evaluate(f"document.querySelectorAll('details')[{table}].querySelector('tbody tr').innerText")
        self.assertRegex(row, r"5\s+2 was 1\s+\(1\)\s+\(165\)\s+setEgrTunnelEcnEncap, call \d+, 0\.000")
        page.evaluate(f"document.querySelectorAll('details')[{table}].querySelector('button.link').id = 'writer'")
        page.click("#writer")
        self.assertIn("setEgrTunnelEcnEncap", self.text(page, "#call-detail"))
        self.assertIn("pt_entry_commit", self.text(page, "#call-rows .row[aria-selected=true]"))
        page.click("#chip-find")
        page.type("vxlan")
        shown = page.evaluate("[...document.querySelectorAll('details')].filter((e) => !e.hidden).length")
        self.assertTrue(0 < shown < page.evaluate("document.querySelectorAll('details').length"))
        self.assertTrue(self.text(page, "#chip-count").startswith(f"{shown} of "))

    # --- The keyboard alone

    def test_every_control_is_reached_and_seen(self):
        for dark in (False, True):
            page = self.browser.open(self.failed, dark=dark)
            page.evaluate("document.querySelectorAll('details').forEach((each, i) => i > 1 && each.remove())")
            wanted = page.evaluate(
                "(() => { const all = [...document.querySelectorAll('a, button, input, select, summary, [tabindex=\"0\"]')]"
                ".filter((e) => e.checkVisibility()); all.forEach((e, i) => (e.dataset.stop = i)); return all.length; })()"
            )
            reached = set()
            for _ in range(wanted + 5):
                page.press("Tab")
                stop, outline, color, name = page.evaluate(
                    "(() => {" + CONTRAST + "const e = document.activeElement; const s = getComputedStyle(e);"
                    "const name = e.getAttribute('aria-label') || e.labels?.[0]?.textContent || e.textContent;"
                    "return [e.dataset.stop ?? null, s.outlineStyle === 'none' ? 0 : parseFloat(s.outlineWidth),"
                    " contrast(rgba(s.outlineColor).slice(0, 3), behind(e.parentElement ?? e)), name.trim()]; })()"
                )
                if stop is None:
                    break
                reached.add(stop)
                with self.subTest(dark=dark, name=name):
                    self.assertGreaterEqual(outline, 2)
                    self.assertGreaterEqual(color, 3)
                    self.assertNotEqual(name, "")
            self.assertEqual(len(reached), wanted)

    def tab_to(self, page, identity):
        for _ in range(100):
            page.press("Tab")
            if page.evaluate(f"document.activeElement.matches({json.dumps(identity)})"):
                return
        self.fail(f"the keyboard does not lead to {identity}")

    def test_all_of_it_with_the_keyboard(self):
        page = self.browser.open(self.failed)
        self.tab_to(page, "#failure-show")
        page.press("Enter")
        self.assertIn("which stopped", self.text(page, "#call-detail"))
        # The focus is in the table now.
        self.assertTrue(page.evaluate("document.activeElement.matches('#call-rows .window')"))
        last = page.evaluate("calls.rows.chosen")
        page.press("ArrowUp")
        self.assertEqual(page.evaluate("calls.rows.chosen"), last - 1)
        page.press("Home")
        self.assertEqual(page.evaluate("calls.rows.chosen"), 0)
        page.press("PageDown")
        page.press("ArrowDown")
        chosen = page.evaluate("calls.rows.chosen")
        self.assertGreater(chosen, 5)
        active = page.evaluate("document.activeElement.getAttribute('aria-activedescendant')")
        self.assertEqual(page.evaluate(f"document.getElementById('{active}').getAttribute('aria-rowindex')"), str(chosen + 2))
        page.press("End")
        self.assertEqual(page.evaluate("calls.rows.chosen"), page.evaluate("calls.rows.count") - 1)
        # On to the tables: one is closed and opened again.
        self.tab_to(page, "summary")
        page.press("Enter")
        is_open = page.evaluate("document.activeElement.parentElement.open")
        page.press("Enter")
        self.assertNotEqual(page.evaluate("document.activeElement.parentElement.open"), is_open)

    def test_the_timeline_with_the_keyboard(self):
        page = self.browser.open(self.good)
        self.tab_to(page, "#lanes")
        whole = page.evaluate("timeline.to - timeline.from")
        page.press("+")
        page.press("+")
        self.assertAlmostEqual(page.evaluate("timeline.to - timeline.from") / whole, 0.25, places=6)
        begin = page.evaluate("timeline.from")
        page.press("ArrowRight")
        self.assertGreater(page.evaluate("timeline.from"), begin)
        page.press("ArrowLeft")
        self.assertAlmostEqual(page.evaluate("timeline.from"), begin)
        page.press("-")
        page.press("Home")
        self.assertAlmostEqual(page.evaluate("timeline.to - timeline.from"), whole)
        page.press("]")
        page.press("]")
        page.press("[")
        page.press("]")
        self.assertEqual(page.evaluate("timeline.chosen"), 1)
        self.assertIn("entry_field_add", self.text(page, "#lanes-now"))
        page.press("Enter")
        self.assertLess(page.evaluate("timeline.to - timeline.from"), whole / 10)

    # --- Colours

    def test_contrast(self):
        script = CONTRAST + """
        document.querySelectorAll("details").forEach((each) => each.openNow(true));
        const poor = [];
        let count = 0;
        const walker = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
        while (walker.nextNode()) {
          const element = walker.currentNode.parentElement;
          if (!walker.currentNode.data.trim() || !element.checkVisibility() || element.matches("script, style, noscript, option")) continue;
          const style = getComputedStyle(element);
          const size = parseFloat(style.fontSize);
          const least = size >= 24 || (size >= 18.66 && style.fontWeight >= 700) ? 3 : 4.5;
          const value = contrast(rgba(style.color).slice(0, 3), behind(element));
          ++count;
          if (value < least) poor.push([walker.currentNode.data.trim().slice(0, 40), value]);
        }
        // What is drawn, by the colours it is drawn with, and what controls are told by.
        const style = getComputedStyle(document.documentElement);
        const color = (name) => rgba(style.getPropertyValue("--" + name).trim()).slice(0, 3);
        for (const [text, on, least] of [["ink", "recipe", 4.5], ["ink", "recipe-other", 4.5], ["ink", "entry", 4.5], ["panel", "bad", 4.5],
          ["soft", "panel", 4.5], ["soft", "paper", 4.5], ["panel", "accent", 4.5], ["accent", "panel", 3], ["bad", "panel", 3], ["control", "panel", 3],
          ["control", "paper", 3], ["bad", "tint", 4.5], ["soft", "tint", 4.5], ["bad", "lane", 4.5], ["soft", "lane", 4.5]]) {
          const value = contrast(color(text), color(on));
          if (value < least) poor.push([text + " on " + on, value]);
        }
        return [count, poor];
        """
        for path in (self.good, self.failed):
            for dark in (False, True):
                page = self.browser.open(path, dark=dark)
                background = page.evaluate("getComputedStyle(document.body).backgroundColor")
                self.assertEqual(background, "rgb(20, 24, 27)" if dark else "rgb(251, 251, 250)")
                page.click("#call-rows .row:nth-child(2)")
                count, poor = page.evaluate("(() => {" + script + "})()")
                self.assertGreater(count, 200)
                self.assertEqual(poor, [], f"dark: {dark}")

    def test_the_colours_follow_the_setting(self):
        page = self.browser.open(self.good)
        _, light = self.pixels(page)
        page.colors(True)
        self.assertNotEqual(self.pixels(page)[1], light)

    # --- Names and roles

    def test_everything_has_a_name_and_a_role(self):
        page = self.browser.open(self.failed)
        self.assertEqual(page.evaluate("document.documentElement.lang"), "en")
        page.call("Accessibility.enable")
        nodes = page.call("Accessibility.getFullAXTree")["nodes"]
        named = {}
        for node in nodes:
            role = node.get("role", {}).get("value")
            named.setdefault(role, []).append(node.get("name", {}).get("value", ""))
        for role in ("button", "link", "searchbox", "combobox", "checkbox", "grid", "columnheader", "application", "navigation", "region"):
            with self.subTest(role=role):
                self.assertTrue(named.get(role))
                self.assertNotIn("", [name.strip() for name in named[role]])
        self.assertIn("row", named)
        self.assertIn("gridcell", named)
        levels = page.evaluate("[...document.querySelectorAll('h1, h2, h3')].filter((e) => e.checkVisibility()).map((e) => Number(e.tagName[1]))")
        self.assertEqual(levels[0], 1)
        self.assertEqual(levels.count(1), 1)
        self.assertTrue(all(later - earlier <= 1 for earlier, later in zip(levels, levels[1:])))

    # --- Paper, small screens, hostile contents

    def test_printing(self):
        page = self.browser.open(self.failed)
        page.call("Emulation.setEmulatedMedia", media="print")
        self.assertFalse(page.evaluate("document.getElementById('call-filter').checkVisibility()"))
        self.assertTrue(page.evaluate("document.getElementById('canvas').checkVisibility()"))
        page.evaluate("window.dispatchEvent(new Event('beforeprint'))")
        self.assertEqual(len(self.column(page, "call-rows", 0)), page.evaluate("Math.min(500, data.calls.number.length)"))
        page.evaluate("window.dispatchEvent(new Event('afterprint'))")
        page.call("Emulation.setEmulatedMedia", media="")
        page.settle()
        self.assertLess(len(self.column(page, "call-rows", 0)), 60)
        self.assertTrue(page.pdf().startswith(b"%PDF-"))

    def test_a_small_screen(self):
        page = self.browser.open(self.good, width=400, height=800)
        self.assertLessEqual(page.evaluate("document.documentElement.scrollWidth"), 400)

    def test_hostile_texts_are_texts(self):
        contents = {
            "different": True, "added": 0, "removed": 0, "changed": 1,
            "rows": [{"unit": 0, "table": HOSTILE, "place": {HOSTILE: HOSTILE}, "change": HOSTILE,
                      "fields": [{"field": HOSTILE + "\x00\x1b[31m\n", "before": 18446744073709551615, "after": HOSTILE}]}],
        }  # fmt: skip
        path = self.report("hostile", self.write("<img src=x onerror=alert(1)>.json", json.dumps(contents)))
        page = self.browser.open(path)
        cells = page.evaluate("[...document.querySelectorAll('#grid-0-rows .row > *')].map((each) => each.textContent)")
        self.assertEqual(cells[1], HOSTILE)
        self.assertEqual(cells[4], HOSTILE + "\\x00\\x1b[31m\\n")
        self.assertEqual(cells[5], "18446744073709551615")
        self.assertIn("<img src=x onerror=alert(1)>.json", self.text(page, "#input"))
        self.assertIsNone(page.evaluate("window.broken ?? null"))
        self.assertEqual(page.evaluate("document.images.length"), 0)
        self.assertClean(page, path)

    def test_the_page_allows_itself_nothing_else(self):
        page = self.browser.open(self.good)
        page.evaluate("{ const s = document.createElement('script'); s.textContent = 'window.broken = 1'; document.body.append(s); }")
        page.evaluate("{ const s = document.createElement('style'); s.textContent = 'body { color: red }'; document.body.append(s); }")
        self.assertIsNone(page.evaluate("window.broken ?? null"))
        self.assertNotEqual(page.evaluate("getComputedStyle(document.body).color"), "rgb(255, 0, 0)")
        with self.assertRaises(BrowserError):
            page.evaluate("fetch('http://127.0.0.1:9/')")
        self.assertTrue(any("Content Security Policy" in event["entry"]["text"] for event in page.events("Log.entryAdded")))

    def test_damaged_data_is_said(self):
        path = self.write("damaged.html", re.sub(r'(octet-stream">.{200})', r"\1AAAA", self.good.read_text()))
        page = self.browser.open(path)
        self.assertEqual(page.evaluate("document.documentElement.dataset.state"), "failed")
        self.assertEqual(self.text(page, "#input"), "This page cannot be shown")

    # --- Exports in the browser's own viewer

    def test_the_performance_panel_opens_an_exported_trace(self):
        folder, export = (pathlib.Path(self.folder.name, name) for name in ("seen", "seen.json"))
        command = [TOOL, "run", "setLoadBalanceRandSeedCtrl", "0", "12345", "--record-to", folder, "--trace-dir", folder]
        subprocess.run(command, check=True, capture_output=True)
        subprocess.run([TOOL, "trace", folder, "--export", "chrome", "-o", export], check=True)
        self.browser.open_trace(export)
        # It has an opinion: slices without a name are refused.
        nameless = self.write("nameless.json", re.sub(r'("ph":"E".*),"name":"[^"]*"', r"\1", export.read_text()))
        with self.assertRaisesRegex(BrowserError, "the Performance panel refuses"):
            self.browser.open_trace(nameless)


if __name__ == "__main__":
    TOOL = pathlib.Path(sys.argv.pop(1)).resolve()
    if chromium() is None:
        print("no Chromium: the pages are not tested in a browser; install the package chromium")
        sys.exit(1 if os.environ.get("CAIRN_BROWSER") == "required" else 77)
    unittest.main(verbosity=2)
