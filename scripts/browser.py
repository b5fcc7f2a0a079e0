"""A headless Chromium, spoken to through a pipe: no driver, no network, nothing but Python's own library.

    with Browser() as browser:
        page = browser.open(path)
        page.evaluate("document.title")
"""

import base64
import json
import os
import pathlib
import select
import shutil
import subprocess
import tempfile
import time

NAMES = ("chromium", "chromium-browser")


# deep(test): the first element of the document, shadow trees too, that is what the test wants.
DEEP = """
window.deep = (test, root = document) => {
  for (const each of root.querySelectorAll("*")) {
    if (test(each)) return each;
    const within = each.shadowRoot && deep(test, each.shadowRoot);
    if (within) return within;
  }
  return null;
};
"""


class BrowserError(Exception):
    """The browser refused, or the script in the page threw."""


def chromium():
    """The path of the program, or None."""
    return next((path for path in map(shutil.which, NAMES) if path), None)


class Browser:
    """Its protocol: JSON messages that end in a zero byte, to descriptor 3, from descriptor 4."""

    # Generous: a sanitizer's machine is slow, and nothing is measured.
    TIMEOUT = 60

    def __init__(self, width=1280, height=900):
        self._folder = tempfile.TemporaryDirectory(prefix="cairn-lt-browser-", ignore_cleanup_errors=True)
        to_browser, self._write = os.pipe()
        self._read, from_browser = os.pipe()
        # Descriptors beyond those that they are to become.
        ends = [os.dup(os.dup(os.dup(os.dup(end)))) for end in (to_browser, from_browser)]

        def take_ends():
            os.dup2(ends[0], 3)
            os.dup2(ends[1], 4)

        self._log = pathlib.Path(self._folder.name, "log")
        with open(self._log, "wb") as log:
            self._process = subprocess.Popen(
                [
                    chromium(),
                    "--headless",
                    "--remote-debugging-pipe",
                    "--no-sandbox",
                    "--disable-gpu",
                    "--disable-dev-shm-usage",
                    "--disable-background-networking",
                    "--disable-component-update",
                    "--disable-extensions",
                    "--no-first-run",
                    "--hide-scrollbars",
                    "--force-color-profile=srgb",
                    "--font-render-hinting=none",
                    f"--user-data-dir={self._folder.name}/profile",
                    f"--window-size={width},{height}",
                ],
                stdin=subprocess.DEVNULL,
                stdout=log,
                stderr=log,
                close_fds=False,
                preexec_fn=take_ends,
                env={**os.environ, "HOME": self._folder.name},
            )
        os.close(to_browser)
        os.close(from_browser)
        self._buffer = b""
        self._number = 0
        self.events = []

    def __enter__(self):
        return self

    def __exit__(self, *_):
        os.close(self._write)
        try:
            self._process.wait(10)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.wait()
        os.close(self._read)
        self._folder.cleanup()

    def call(self, method, session=None, **parameters):
        """Performs a method and returns its result. Events that come meanwhile are kept."""
        self._number += 1
        message = {"id": self._number, "method": method, "params": parameters}
        if session:
            message["sessionId"] = session
        data = json.dumps(message).encode() + b"\0"
        while data:
            data = data[os.write(self._write, data) :]
        while True:
            answer = self._next()
            if answer.get("id") != self._number:
                self.events.append(answer)
            elif "error" in answer:
                raise BrowserError(f"{method}: {answer['error']['message']}")
            else:
                return answer["result"]

    def _next(self):
        end = time.monotonic() + self.TIMEOUT
        pieces = [self._buffer]
        while b"\0" not in pieces[-1]:
            ready, _, _ = select.select([self._read], [], [], max(0, end - time.monotonic()))
            piece = os.read(self._read, 1 << 20) if ready else b""
            if not piece:
                raise BrowserError("the browser does not answer: " + self._log.read_text(errors="replace")[-2000:])
            pieces.append(piece)
        message, self._buffer = b"".join(pieces).split(b"\0", 1)
        return json.loads(message)

    def open(self, path, dark=False, width=1280, height=900, scale=1):
        """Opens a file in a new page, and waits until its script has shown it or given up."""
        page = self._new_page("about:blank", dark, width, height, scale)
        page.call("Page.navigate", url=pathlib.Path(path).resolve().as_uri())
        page.wait("document.documentElement && document.documentElement.dataset.state")
        return page

    def open_trace(self, path, width=1280, height=900):
        """Opens a trace in the Performance panel of the browser's own tools, and waits until it is shown or refused."""
        page = self._new_page("devtools://devtools/bundled/devtools_app.html?panel=timeline", False, width, height, 1)
        picker = "deep((each) => each.matches('input[type=file]'))"
        page.wait("location.protocol === 'devtools:' && document.readyState === 'complete'")
        page.evaluate(DEEP)
        page.wait(f"{picker} !== null")
        file = page.call("Runtime.evaluate", expression=picker)["result"]["objectId"]
        page.call("DOM.setFileInputFiles", files=[str(pathlib.Path(path).resolve())], objectId=file)
        end = page.wait(
            "deep((each) => each.role === 'status' && each.textContent.includes('failed')) ? 'refused'"
            " : deep((each) => each.ariaLabel === 'Call tree') ? 'shown' : null"
        )
        if end == "refused":
            raise BrowserError(f"the Performance panel refuses {path}")
        return page

    def _new_page(self, url, dark, width, height, scale):
        target = self.call("Target.createTarget", url=url)["targetId"]
        session = self.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        page = Page(self, session)
        for domain in ("Page", "Network", "Runtime", "Log"):
            page.call(f"{domain}.enable")
        page.colors(dark)
        page.call("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=scale, mobile=False)
        return page


class Page:
    """One page of a browser."""

    KEYS = {
        "Tab": 9, "Enter": 13, "Escape": 27, " ": 32, "PageUp": 33, "PageDown": 34, "End": 35, "Home": 36,
        "ArrowLeft": 37, "ArrowUp": 38, "ArrowRight": 39, "ArrowDown": 40, "Backspace": 8,
    }  # fmt: skip

    def __init__(self, browser, session):
        self._browser = browser
        self._session = session

    def call(self, method, **parameters):
        return self._browser.call(method, self._session, **parameters)

    def events(self, method):
        """The parameters of the events of this name that have come."""
        self.evaluate("0")
        return [
            event["params"]
            for event in self._browser.events
            if event.get("method") == method and event.get("sessionId") == self._session
        ]

    def evaluate(self, expression):
        """The value of an expression, which may be a promise."""
        result = self.call("Runtime.evaluate", expression=expression, returnByValue=True, awaitPromise=True)
        if "exceptionDetails" in result:
            details = result["exceptionDetails"]
            raise BrowserError(details.get("exception", {}).get("description", details["text"]))
        return result["result"].get("value")

    def wait(self, expression):
        """Waits until an expression is true."""
        end = time.monotonic() + Browser.TIMEOUT
        while not (value := self.evaluate(expression)):
            if time.monotonic() > end:
                raise BrowserError(f"this did not come true: {expression}")
            time.sleep(0.02)
        return value

    def settle(self):
        """Waits until what was asked for is drawn."""
        self.evaluate("new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(() => done(1))))")

    def colors(self, dark):
        self.call(
            "Emulation.setEmulatedMedia",
            features=[
                {"name": "prefers-color-scheme", "value": "dark" if dark else "light"},
                {"name": "prefers-reduced-motion", "value": "reduce"},
            ],
        )

    def press(self, key, shift=False):
        """A key, by its name: "Tab", "ArrowDown", "a"."""
        text = key if len(key) == 1 else "\r" if key == "Enter" else ""
        code = self.KEYS.get(key, ord(key.upper()) if len(key) == 1 and key.isalnum() else 0)
        common = {"key": key, "modifiers": 8 if shift else 0, "windowsVirtualKeyCode": code}
        self.call("Input.dispatchKeyEvent", type="keyDown" if text else "rawKeyDown", text=text, **common)
        self.call("Input.dispatchKeyEvent", type="keyUp", **common)
        self.settle()

    def type(self, text):
        for key in text:
            self.press(key)

    def mouse(self, kind, x, y, **parameters):
        self.call("Input.dispatchMouseEvent", type=kind, x=x, y=y, **parameters)

    def click(self, selector):
        """Clicks the middle of an element."""
        x, y = self.evaluate(
            f"(() => {{ const e = document.querySelector({json.dumps(selector)}); e.scrollIntoView({{ block: 'center' }});"
            " const b = e.getBoundingClientRect(); return [b.x + b.width / 2, b.y + b.height / 2]; })()"
        )
        self.click_at(x, y)

    def click_at(self, x, y):
        self.mouse("mouseMoved", x, y)
        self.mouse("mousePressed", x, y, button="left", clickCount=1)
        self.mouse("mouseReleased", x, y, button="left", clickCount=1)
        self.settle()

    def click_label(self, label):
        """Clicks the middle of the element in sight that has this label, in shadow trees too. Of a page of open_trace()."""
        x, y = self.wait(
            f"(() => {{ const b = deep((each) => each.ariaLabel === {json.dumps(label)} && each.offsetWidth)?.getBoundingClientRect();"
            " return b && [b.x + b.width / 2, b.y + b.height / 2]; })()"
        )
        self.click_at(x, y)

    def drag(self, x, from_y, to_y):
        self.mouse("mouseMoved", x, from_y)
        self.mouse("mousePressed", x, from_y, button="left", clickCount=1)
        for y in (from_y + (1 if to_y > from_y else -1), to_y):
            self.mouse("mouseMoved", x, y, button="left", buttons=1)
        self.mouse("mouseReleased", x, to_y, button="left", clickCount=1)
        self.settle()

    def picture(self, path, clip=None):
        """A PNG of what is in sight, or of a part of the page: x, y, width, height."""
        self.settle()
        parameters = {"format": "png"}
        if clip:
            parameters["clip"] = {**dict(zip(("x", "y", "width", "height"), clip)), "scale": 1}
            parameters["captureBeyondViewport"] = True
        pathlib.Path(path).write_bytes(base64.b64decode(self.call("Page.captureScreenshot", **parameters)["data"]))

    def pdf(self):
        return base64.b64decode(self.call("Page.printToPDF", printBackground=True)["data"])
