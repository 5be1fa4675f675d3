"""Shows the agent at work: a simulated unit, a real snmpd as AgentX master, and a manager's commands;
or several units on an operator's screen. Installs what is missing, builds, and runs everything in
namespaces of its own. The status is 0 if every step had the expected result."""

import time

from project import build, command_line, finish, install

import demo_monitor
import demo_steps


class Demo:
    """What the steps share. A step is a function: what it shows, then what must hold."""

    def __init__(self, options, build):
        self.options, self.build = options, build
        self.failures = 0
        self.number = 0

    def say(self, text):
        self.number += 1
        print(f"\n{self.number}. {text}", flush=True)

    def expect(self, holds, what):
        if not holds:
            self.failures += 1
            print(f"   NOT AS EXPECTED: {what}")

    def wait(self, what, progress, wanted, timeout=90):
        """Shows what `progress` returns until it is `wanted`."""
        start = time.monotonic()
        shown = None
        while shown != wanted and time.monotonic() - start < timeout:
            reached = progress()
            if reached != shown:
                print(f"   {time.monotonic() - start:5.1f} s  {what}: {reached}", flush=True)
                shown = reached
            time.sleep(0.3 if shown != wanted else 0)
        self.expect(shown == wanted, f"{wanted} within {timeout} s")


def units(text):
    if not 1 <= int(text) <= 200:
        raise ValueError
    return int(text)


def parse():
    parser = command_line(__doc__)
    parser.add_argument("--master", action="store_true",
                        help="the default mode: the agent launches and watches its own snmpd")
    parser.add_argument("--shell", action="store_true",
                        help="after the demonstration, a shell in its world, which runs until the shell ends")
    parser.add_argument("--monitor", action="store_true",
                        help="units watched by Prometheus, Alertmanager and snmptrapd, with a page to look at")
    parser.add_argument("--units", type=units, help="with --monitor: so many, 1 to 200, default 8")
    parser.add_argument("--port", type=int,
                        help="with --monitor: the page's port on the loopback, default a free one")
    parser.add_argument("--pictures", metavar="DIRECTORY",
                        help="with --monitor: take the pictures of docs/monitoring.md, by Chromium")
    options = parser.parse_args()
    if options.monitor and options.master:
        parser.error("--master goes without --monitor")
    if not options.monitor and (options.units, options.port, options.pictures) != (None, None, None):
        parser.error("--units, --port and --pictures go with --monitor")
    return options


def main():
    options = parse()
    install("pictures" if options.pictures else "monitor" if options.monitor else "demo")
    print("Building the agent and its tools ...", flush=True)
    demo = Demo(options, build("release", "norvaSnmp", "dasunit", "norvamap", "mapping_db", quiet=False))
    (demo_monitor if options.monitor else demo_steps).run(demo)
    print(f"\n{demo.failures} results were not as expected." if demo.failures else
          "\nEvery step had the expected result.")
    return 1 if demo.failures else 0


finish(main)
