"""Chromium, without a screen."""

import base64
import fcntl
import json
import os
import select
import subprocess
import tempfile
import time
from pathlib import Path

from world import Failure, wait_until

_CHROMIUM = ["chromium", "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
             "--no-first-run", "--disable-background-networking", "--disable-component-update",
             "--disable-sync", "--hide-scrollbars", "--remote-debugging-pipe"]


def _pipe():
    """Both ends, beyond descriptors 3 and 4, which are Chromium's."""
    ends = os.pipe()
    try:
        return [fcntl.fcntl(end, fcntl.F_DUPFD_CLOEXEC, 10) for end in ends]
    finally:
        for end in ends:
            os.close(end)


class Tab:
    """A page; a context manager. Driven through Chromium's debugging pipe."""

    def __init__(self):
        self._home = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
        (requests, self._requests), (self._answers, answers) = _pipe(), _pipe()
        self._process = subprocess.Popen(
            ["bash", "-c", f'exec "$@" 3<&{requests} 4>&{answers} {requests}<&- {answers}>&-', "bash",
             *_CHROMIUM, f"--user-data-dir={self._home.name}"],
            env={**os.environ, "HOME": self._home.name}, pass_fds=[requests, answers],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(requests)
        os.close(answers)
        self._number, self._rest, self._session = 0, b"", {}
        target = self._call("Target.createTarget", url="about:blank")["targetId"]
        session = self._call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        self._session = {"sessionId": session}

    def _call(self, method, **parameters):
        self._number += 1
        request = {"id": self._number, "method": method, "params": parameters, **self._session}
        os.write(self._requests, json.dumps(request).encode() + b"\0")
        while True:
            while b"\0" not in self._rest:
                if not select.select([self._answers], [], [], 90)[0]:
                    raise Failure(f"Chromium does not answer {method}")
                self._rest += os.read(self._answers, 1 << 20)
            text, _, self._rest = self._rest.partition(b"\0")
            answer = json.loads(text)
            if answer.get("id") == self._number:
                return answer["result"]

    def open(self, address):
        """Shows one of the monitoring's pages; returns when its script has filled it."""
        self._call("Page.navigate", url=address)
        wait_until(lambda: self.evaluate("document.URL + document.body?.dataset.ready") ==
                   address + "yes", 90, f"{address} and its script")

    def evaluate(self, expression):
        """The value of an expression in the page's script."""
        return self._call("Runtime.evaluate", expression=expression, returnByValue=True)[
            "result"].get("value")

    def text(self, selector="body"):
        """What is to be read in an element of the page."""
        return " ".join((self.evaluate(f"document.querySelector({json.dumps(selector)})?.innerText") or "").split())

    def waits_for(self, *words, selector="body"):
        """Until they are to be read."""
        wait_until(lambda: all(word in self.text(selector) for word in words), 90,
                   f"{words} on the page, in {selector}")

    def picture(self, path, width, height):
        """What is shown, as a PNG file of that size."""
        self._call("Emulation.setDeviceMetricsOverride", width=width, height=height,
                   deviceScaleFactor=1, mobile=False)
        time.sleep(1)  # laid out anew
        shot = self._call("Page.captureScreenshot", format="png")["data"]
        Path(path).write_bytes(base64.b64decode(shot))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._process.kill()
        self._process.wait()
        os.close(self._requests)
        os.close(self._answers)
        self._home.cleanup()
