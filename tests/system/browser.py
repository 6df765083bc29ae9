"""A real browser without a window, driven through the WebDriver protocol: JSON over HTTP to
chromedriver, which runs Chromium. Elements are named by CSS selectors."""

import base64
import json
import os
import shutil
import signal
import subprocess
import tempfile
import time
import urllib.error
import urllib.request

from harness import Failure, free_port

ELEMENT = "element-6066-11e4-a52e-4f735466cecf"  # The protocol's name for the id of an element.
OPTIONS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
           "--disable-background-networking", "--disable-component-update", "--disable-sync",
           "--disable-dev-shm-usage", "--hide-scrollbars", "--window-size=1100,800"]


def is_installed():
    return bool(shutil.which("chromium") and shutil.which("chromedriver"))


class Browser:
    """A context manager. The browser keeps its profile in a new directory."""

    STARTUP_SECONDS = 60
    ANSWER_SECONDS = 120

    def __enter__(self):
        self.profile = tempfile.mkdtemp(prefix="vexa-browser-")
        self.session = None
        self.marks = 0
        self.port = free_port()
        environment = {**os.environ, "HOME": self.profile}
        # In a process group of its own, so that nothing of the browser can outlive the test.
        self.driver = subprocess.Popen(
            ["chromedriver", f"--port={self.port}"], stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True,
            env=environment)
        try:
            self._wait_for_driver()
            options = {"binary": shutil.which("chromium"),
                       "args": [*OPTIONS, f"--user-data-dir={self.profile}/data"]}
            self.session = self._ask("POST", "/session", {
                "capabilities": {"alwaysMatch": {"goog:chromeOptions": options}}})["sessionId"]
        except BaseException:
            self.__exit__()
            raise
        return self

    def _wait_for_driver(self):
        end = time.monotonic() + self.STARTUP_SECONDS
        while time.monotonic() < end:
            if self.driver.poll() is not None:
                raise Failure(f"chromedriver ended with {self.driver.returncode}")
            try:
                if self._ask("GET", "/status")["ready"]:
                    return
            except OSError:
                time.sleep(0.05)
        raise Failure("chromedriver does not answer")

    def __exit__(self, *ignored):
        try:
            if self.session is not None:
                self._ask("DELETE", f"/session/{self.session}")
        finally:
            os.killpg(self.driver.pid, signal.SIGKILL)
            self.driver.wait()
            shutil.rmtree(self.profile, ignore_errors=True)

    def _ask(self, method, path, body=None):
        data = None if body is None else json.dumps(body).encode()
        request = urllib.request.Request(f"http://127.0.0.1:{self.port}{path}", data, method=method,
                                         headers={"Content-Type": "application/json"})
        try:
            with urllib.request.urlopen(request, timeout=self.ANSWER_SECONDS) as answer:
                return json.load(answer)["value"]
        except urllib.error.HTTPError as error:
            text = json.load(error)["value"]["message"].partition("\n")[0]
            raise Failure(f"{method} {path} {body}: {text}") from None

    def _do(self, method, path, body=None):
        return self._ask(method, f"/session/{self.session}{path}", body)

    def _elements(self, selector):
        found = self._do("POST", "/elements", {"using": "css selector", "value": selector})
        return [element[ELEMENT] for element in found]

    def _element(self, selector):
        found = self._elements(selector)
        if len(found) != 1:
            raise Failure(f"{len(found)} elements {selector!r} on {self.url()}: {self.source()}")
        return found[0]

    def go(self, url):
        self._do("POST", "/url", {"url": url})

    def url(self):
        return self._do("GET", "/url")

    def source(self):
        return self._do("GET", "/source")

    def source_with(self, text):
        """The source of the page once it holds the text; of a page that never does, what it is at
        last. On a busy machine a page may be asked for before the browser has built it."""
        end = time.monotonic() + self.ANSWER_SECONDS
        source = self.source()
        while text not in source and time.monotonic() < end:
            time.sleep(0.05)
            source = self.source()
        return source

    def texts(self, selector):
        """The texts of all such elements, as a reader sees them."""
        return [self._do("GET", f"/element/{element}/text") for element in self._elements(selector)]

    def value(self, selector):
        """What a form field holds."""
        return self._do("GET", f"/element/{self._element(selector)}/property/value")

    def click(self, selector):
        """Clicks what leads to no other page."""
        self._do("POST", f"/element/{self._element(selector)}/click", {})

    def leave(self, action):
        """Does what leads to another page, and returns when that page is there. The protocol does
        not promise this of a click. A mark in the old page tells the two apart."""
        self.marks += 1
        self.run(f"window.mark = {self.marks}")
        action()
        end = time.monotonic() + self.ANSWER_SECONDS
        while time.monotonic() < end:
            try:
                if self.run(f"return window.mark !== {self.marks} && "
                            "document.readyState === 'complete'"):
                    return
            except Failure:
                pass  # Between two pages there is nothing that could run a script.
            time.sleep(0.02)
        raise Failure(f"{self.url()} leads to no other page")

    def press(self, selector):
        """Clicks what leads to another page."""
        self.leave(lambda: self.click(selector))

    def follow(self, text):
        """Follows the one link with this text."""
        found = self._do("POST", "/elements", {"using": "link text", "value": text})
        if len(found) != 1:
            raise Failure(f"{len(found)} links {text!r} on {self.url()}: {self.source()}")
        self.leave(lambda: self._do("POST", f"/element/{found[0][ELEMENT]}/click", {}))

    def type(self, selector, text):
        """Replaces what a form field holds; names the file of a file field."""
        element = self._element(selector)
        if self._do("GET", f"/element/{element}/property/type") != "file":
            self._do("POST", f"/element/{element}/clear", {})
        self._do("POST", f"/element/{element}/value", {"text": str(text)})

    def run(self, script):
        """What a function body of JavaScript returns."""
        return self._do("POST", "/execute/sync", {"script": script, "args": []})

    def screenshot(self, path):
        """Writes a picture of the whole page."""
        height = self.run("return document.documentElement.scrollHeight"
                          " + window.outerHeight - window.innerHeight")
        self._do("POST", "/window/rect", {"width": 1100, "height": min(height, 4000)})
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(base64.b64decode(self._do("GET", "/screenshot")))
        self._do("POST", "/window/rect", {"width": 1100, "height": 800})
