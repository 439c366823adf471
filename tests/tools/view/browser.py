"""A Chromium without a window, spoken to by WebDriver, and the program that serves a page to it.

Needs Debian's chromium and chromium-driver and Python's standard library alone.
"""

import base64
import http.server
import json
import os
import re
import select
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
import urllib.error
import urllib.request

SKIPPED = 77
ELEMENT = "element-6066-11e4-a52e-4f735466cecf"
FLAGS = [
    "--headless",
    "--no-sandbox",
    "--disable-gpu",
    "--disable-dev-shm-usage",
    "--disable-quic",
    "--no-first-run",
    "--disable-background-networking",
    "--disable-component-update",
    "--disable-sync",
    "--hide-scrollbars",
]
# What the program sends with its page.
POLICY = (
    "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; "
    "img-src data: blob:; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"
)
# Keys that have no character, by the names that KeyboardEvent.key gives them.
NAMED_KEYS = {
    "Backspace": "\ue003",
    "Tab": "\ue004",
    "Enter": "\ue007",
    "Shift": "\ue008",
    "Control": "\ue009",
    "Alt": "\ue00a",
    "Escape": "\ue00c",
    "PageUp": "\ue00e",
    "PageDown": "\ue00f",
    "End": "\ue010",
    "Home": "\ue011",
    "ArrowLeft": "\ue012",
    "ArrowUp": "\ue013",
    "ArrowRight": "\ue014",
    "ArrowDown": "\ue015",
    "Delete": "\ue017",
}

PRESSED = {"type": "pointerDown", "button": 0}
RELEASED = {"type": "pointerUp", "button": 0}


def moved(x, y):
    return {"type": "pointerMove", "duration": 0, "x": int(x), "y": int(y)}


def held_down(names):
    return [{"type": "keyDown", "value": NAMED_KEYS[name]} for name in names]


def released(names):
    return [{"type": "keyUp", "value": NAMED_KEYS[name]} for name in names]


def skip_without_browser():
    """Ends the test as skipped where there is no browser to run it in."""
    for name in ("chromium", "chromedriver"):
        if shutil.which(name) is None:
            print(f"skipped: there is no {name} here")
            sys.exit(SKIPPED)


def run(*command):
    subprocess.run([str(word) for word in command], check=True, stdout=subprocess.DEVNULL)


def first_line(process, pattern, seconds):
    """What group 1 of `pattern` matches in the first fitting line that the process prints."""
    ends = time.monotonic() + seconds
    said = b""
    while time.monotonic() < ends:
        if not select.select([process.stdout], [], [], max(0, ends - time.monotonic()))[0]:
            break
        part = os.read(process.stdout.fileno(), 65536)
        if not part:
            break
        said += part
        found = re.search(pattern, said.decode(errors="replace"))
        if found:
            return found.group(1)
    sys.exit(f"{process.args[0]} printed {said.decode(errors='replace')!r}, not {pattern}")


class Served:
    """A program that prints the address it serves, for the time of a `with`."""

    def __init__(self, *command, seconds=20, errors=None):
        words = [str(word) for word in command]
        self.process = subprocess.Popen(words, stdout=subprocess.PIPE, stderr=errors)
        try:
            self.address = first_line(self.process, r"(http://\S+)\s", seconds)
        except BaseException:
            self.stop()
            raise

    def stop(self):
        """Asks the program to end; its exit code."""
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGINT)
        try:
            self.process.communicate(timeout=10)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.communicate()
        return self.process.returncode

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop()


class Script_failed(Exception):
    """What the browser says of a command that it could not do."""


class Browser:
    """A browser with a profile of its own, for the time of a `with`. Places are in CSS pixels."""

    def __init__(self, width=1280, height=720, dark=False):
        try:
            self.start(width, height, dark)
        except (OSError, Script_failed):
            # Where much else runs a browser may take longer to begin than its driver waits.
            self.start(width, height, dark)

    def start(self, width, height, dark):
        self.folder = tempfile.mkdtemp(prefix="browser")
        self.downloads = os.path.join(self.folder, "downloads")
        os.mkdir(self.downloads)
        # A group of its own, so that what the driver started ends with it.
        self.driver = subprocess.Popen(
            ["chromedriver", "--port=0"],
            stdout=subprocess.PIPE,
            stderr=subprocess.DEVNULL,
            start_new_session=True,
        )
        self.session = None
        try:
            port = first_line(self.driver, r"started successfully on port (\d+)", 20)
            self.address = f"http://127.0.0.1:{port}/session"
            self.session = self.begin(width, height, dark)
        except BaseException:
            self.stop()
            raise

    def begin(self, width, height, dark):
        flags = FLAGS + [
            f"--window-size={width},{height}",
            "--user-data-dir=" + os.path.join(self.folder, "profile"),
        ]
        options = {
            "args": flags + (["--force-dark-mode"] if dark else []),
            "binary": shutil.which("chromium"),
            "prefs": {"download.default_directory": self.downloads},
        }
        wanted = {
            "browserName": "chrome",
            "goog:chromeOptions": options,
            "goog:loggingPrefs": {"browser": "ALL"},
            "timeouts": {"script": 30000, "pageLoad": 30000},
        }
        answer = self.ask("POST", "", {"capabilities": {"alwaysMatch": wanted}})
        self.session = "/" + answer["sessionId"]
        self.size(width, height)
        return self.session

    def ask(self, method, path, value=None):
        """Gives the driver a command of WebDriver."""
        data = None if value is None else json.dumps(value).encode()
        request = urllib.request.Request(
            self.address + (self.session or "") + path,
            data=data,
            method=method,
            headers={"Content-Type": "application/json"},
        )
        try:
            with urllib.request.urlopen(request, timeout=60) as answer:
                return json.load(answer)["value"]
        except urllib.error.HTTPError as error:
            told = json.loads(error.read())["value"]
            raise Script_failed(f"{told['error']}: {told['message']}") from None

    def stop(self):
        try:
            if self.session is not None:
                self.ask("DELETE", "")
        finally:
            if self.driver.poll() is None:
                os.killpg(self.driver.pid, signal.SIGTERM)
            self.driver.communicate()
            shutil.rmtree(self.folder, ignore_errors=True)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop()

    def open(self, address):
        """Loads a page anew, even if only the fragment differs from the one that is open."""
        self.ask("POST", "/url", {"url": "about:blank"})
        self.ask("POST", "/url", {"url": address})

    def size(self, width, height):
        """Sets the page's size, also smaller than windows can be."""
        metrics = {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": False}
        self.devtools("Emulation.setDeviceMetricsOverride", metrics)

    def devtools(self, command, parameters):
        """Gives Chromium a command of its DevTools protocol."""
        return self.ask("POST", "/goog/cdp/execute", {"cmd": command, "params": parameters})

    def script(self, code, *arguments):
        """What the function body `code` returns, awaited; its arguments are `arguments`."""
        body = "return (async function () {" + code + "}).apply(null, arguments)"
        return self.ask("POST", "/execute/sync", {"script": body, "args": list(arguments)})

    def value(self, expression, *arguments):
        return self.script(f"return ({expression});", *arguments)

    def wait_for(self, expression, seconds=60):
        """Waits until a JavaScript expression is true; what it is then."""
        ends = time.monotonic() + seconds
        while True:
            found = self.value(expression)
            if found:
                return found
            if time.monotonic() > ends:
                sys.exit(f"{expression} has not become true; console: {self.console()}")
            time.sleep(0.02)

    def act(self, kind, *actions, **more):
        """Has one input device do something."""
        device = {"type": kind, "id": kind, "actions": list(actions), **more}
        self.ask("POST", "/actions", {"actions": [device]})

    def keys(self, *keys, holding=()):
        """Presses keys one after another, by the names of KeyboardEvent.key."""
        values = [NAMED_KEYS.get(key, key) for key in keys]
        pressed = [{"type": kind, "value": v} for v in values for kind in ("keyDown", "keyUp")]
        self.act("key", *held_down(holding), *pressed, *released(holding))

    def pointer(self, *actions):
        self.act("pointer", *actions, parameters={"pointerType": "mouse"})

    def move(self, x, y):
        self.pointer(moved(x, y))

    def click(self, x, y):
        self.pointer(moved(x, y), PRESSED, RELEASED)

    def drag(self, start, end, holding=()):
        """Draws the pressed pointer from (x, y) to (x, y)."""
        middle = [(a + b) / 2 for a, b in zip(start, end)]
        self.act("key", *held_down(holding))
        self.pointer(moved(*start), PRESSED, moved(*middle), moved(*end), RELEASED)
        self.act("key", *released(holding))

    def fingers(self, *paths):
        """Each finger goes down at the first (x, y) of its path and up at the last, all at the same time."""
        devices = [
            {
                "type": "pointer",
                "id": f"finger {number}",
                "parameters": {"pointerType": "touch"},
                "actions": [moved(*path[0]), PRESSED, *(moved(*at) for at in path[1:]), RELEASED],
            }
            for number, path in enumerate(paths)
        ]
        self.ask("POST", "/actions", {"actions": devices})

    def wheel(self, x, y, steps):
        """Turns the wheel at a place, down for positive steps."""
        self.act(
            "wheel", {"type": "scroll", "x": int(x), "y": int(y), "deltaX": 0, "deltaY": steps}
        )

    def middle(self, selector):
        """The middle of an element, in pixels of the window."""
        return self.script(
            "const box = document.querySelector(arguments[0]).getBoundingClientRect();"
            "return [box.x + box.width / 2, box.y + box.height / 2];",
            selector,
        )

    def screenshot(self, path):
        with open(path, "wb") as stream:
            stream.write(base64.b64decode(self.ask("GET", "/screenshot")))

    def console(self):
        """Warnings and errors that the page has caused since the last call."""
        entries = self.ask("POST", "/se/log", {"type": "browser"})
        return [entry["message"] for entry in entries if entry["level"] in ("SEVERE", "WARNING")]

    def foreign_requests(self):
        """Addresses that the page has asked for outside its own origin."""
        return self.script(
            "return performance.getEntriesByType('resource').map((entry) => entry.name)"
            ".filter((name) => !/^(data|blob):/.test(name) && !name.startsWith(origin + '/'));"
        )

    def downloaded(self, seconds=60):
        """Waits for the files that the page has saved; path of the newest."""
        ends = time.monotonic() + seconds
        while time.monotonic() < ends:
            names = os.listdir(self.downloads)
            if names and not any(re.search(r"^\.|\.crdownload$", name) for name in names):
                paths = [os.path.join(self.downloads, name) for name in names]
                return max(paths, key=os.path.getmtime)
            time.sleep(0.02)
        sys.exit("the page has saved no file")


class Page_folder:
    """Files of folders served as /page/NAME beside a page "/" of one's own, for the time of a `with`."""

    def __init__(self, page, *folders):
        media_types = {".css": "text/css", ".js": "text/javascript"}

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_GET(self):
                name = self.path.removeprefix("/page/")
                paths = [
                    path for path in (os.path.join(f, name) for f in folders) if "/" not in name
                ]
                path = next(filter(os.path.isfile, paths), None)
                self.send_response(200 if self.path == "/" or path else 404)
                kind = media_types.get(os.path.splitext(name)[1], "text/html; charset=utf-8")
                self.send_header("Content-Type", kind)
                self.send_header("Content-Security-Policy", POLICY)
                self.end_headers()
                if self.path == "/":
                    self.wfile.write(page.encode())
                elif path:
                    with open(path, "rb") as stream:
                        self.wfile.write(stream.read())

            def log_message(self, *_):
                pass

        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self.address = f"http://127.0.0.1:{self.server.server_port}/"

    def __enter__(self):
        threading.Thread(target=self.server.serve_forever, daemon=True).start()
        return self

    def __exit__(self, *_):
        self.server.shutdown()
        self.server.server_close()
