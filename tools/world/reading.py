"""trapreader by itself, its state and what it reads in one directory."""

import os
import re
import signal
import socket
import subprocess
import urllib.request
from pathlib import Path

from world import SOURCE, wait_until

READER = SOURCE / "monitoring/trapreader"


class Reading:
    """Its output goes to the file `output`. It ends with end()."""

    def __init__(self, directory):
        self.directory = directory
        with socket.create_server(("127.0.0.1", 0)) as free:
            self.listen = f"127.0.0.1:{free.getsockname()[1]}"
        self.output = open(directory / "output", "w+b")
        self.fifo = ["--pipe", directory / "fifo"]

    def start(self, *source):
        self.process = subprocess.Popen([*self.command(), *source], stdout=self.output, stderr=self.output)
        wait_until(lambda: self.metric("round_timestamp_seconds"), 90, "the page")

    def end(self, signum):
        self.process.send_signal(signum)
        return self.process.wait(90)

    def end_child(self):
        """Its journalctl."""
        pid = self.process.pid
        os.kill(int(Path(f"/proc/{pid}/task/{pid}/children").read_text()), signal.SIGTERM)

    def command(self):
        return [READER, "--directory", self.directory, "--listen", self.listen]

    def send(self, *lines):
        """Fails where nobody reads."""
        descriptor = os.open(self.fifo[1], os.O_WRONLY | os.O_NONBLOCK)
        os.set_blocking(descriptor, True)
        with open(descriptor, "w") as fifo:
            fifo.write("".join(one + "\n" for one in lines))

    def page(self):
        try:
            return urllib.request.urlopen(f"http://{self.listen}/metrics", timeout=5).read().decode()
        except OSError:
            return ""

    def metric(self, name):
        match = re.search(rf"^norvatrap_{name}(?:{{.*}})? (\S+)$", self.page(), re.M)
        return match and float(match[1])

    def order(self, *words):
        return subprocess.run([*self.command(), *words], capture_output=True, text=True, timeout=90,
                              check=False)
