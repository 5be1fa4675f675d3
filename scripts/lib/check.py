"""Looks for data races and memory errors in the agent at work, and at what takes minutes: a real
snmpd, real managers, the simulated unit, all in private namespaces. `zabbix`: whether a real Zabbix
takes norvamap's template, and shows the unit. Builds what it needs.

Nothing is suppressed: any report fails the check. ThreadSanitizer sees our code only, Valgrind the
agent library too. Helgrind rather than DRD, which knows neither the locks of stdio nor std::atomic.
"""

import os
import re
import subprocess
import sys
import time
from pathlib import Path

from project import SOURCE, Failure, build, command_line, finish, install

import check_zabbix
from polling import Polling
from receiver import V2C_SINK, Receiver
from world import ROOT, SnmpError, World, wait_until

INTERVAL, SWITCH = "0x0ffa", "0x0ffb"
LAST_CELL = f"{ROOT}.10.2.1.8.32.0"
FAULTS = ["wrong-command 0x11", "wrong-length 2", "wrong-length 255", "truncate 0", "truncate 5",
          "oversize 90", "oversize 1000", "wrong-id 0x1000"]


class Agent:
    """A world with an agent under a tool, which writes its reports into files of the world."""

    def __init__(self, preset, tool=None, arguments=()):
        self.world = World(build=build(preset))
        self._tool = tool
        reports = self.world.directory / "reports"
        sanitizer = f"log_path={reports}:quarantine_size_mb=1"
        self._env = {"ASAN_OPTIONS": sanitizer, "UBSAN_OPTIONS": f"log_path={reports}",
                     "TSAN_OPTIONS": f"log_path={reports}"}
        self._vgdb = f"--vgdb-prefix={self.world.directory}/vgdb"
        self._prefix = ["valgrind", f"--tool={tool}", self._vgdb, f"--log-file={reports}",
                        "--num-callers=20", *arguments] if tool else []

    def __enter__(self):
        try:
            self._start()
        except BaseException:
            self.world.close()
            raise
        return self

    def _start(self):
        world = self.world
        world.start_unit(record=False)
        world.ctl("set", INTERVAL, 0)
        world.ctl("set", SWITCH, 0)
        self.receiver = Receiver(world)
        world.settings(f"norvaBacklogFile {world.directory}/backlog")
        # A slow agent is not given up.
        world.start_master(V2C_SINK + "agentXTimeout 30\n")
        world.start_agent(stdout=subprocess.DEVNULL, env=self._env, prefix=self._prefix)
        wait_until(lambda: world.get(LAST_CELL)[0].type == "INTEGER", 60, "all objects")

    def __exit__(self, failed, *_):
        if failed:
            print(self._reports()[:20_000], file=sys.stderr)
        self.world.close()

    def _reports(self):
        return "".join(path.read_text() for path in self.world.directory.glob("reports*"))

    def post(self, count):
        """Posts alarms and waits until all have arrived; checks what was received so far."""
        before = len(self._alarms())
        for part in range(0, count, 500):
            self.world.ctl("alarm", "raise", "0x0403", "--count", min(500, count - part))
        wait_until(lambda: len(self._alarms()) >= before + count, 60 + count / 20, "all alarms")
        sequence = [event.sequence for event in self.receiver.received()]
        if sequence != list(range(1, len(sequence) + 1)):
            raise Failure("notifications were lost, doubled or out of order")

    def _alarms(self):
        return [event for event in self.receiver.received() if event.kind == 96]

    def reachable_blocks(self):
        """Blocks that are allocated and not lost. Under Memcheck."""
        status = Path(f"/proc/{self.world.agent.pid()}/status").read_text()
        inside = re.search(r"NSpid:.*\s(\d+)\n", status)[1]
        answer = self.world.run("vgdb", self._vgdb, f"--pid={inside}",
                                "leak_check", "summary", "any")
        return int(re.search(r"still reachable: .* in ([\d,]+) blocks", answer.stdout)[1]
                   .replace(",", ""))

    def end(self):
        """Ends the agent by a signal; fails if there is any report."""
        alive = self.world.agent.running()
        if alive:
            self.world.agent.signal(15)
            self.world.agent.wait(30)
        reports = self._reports()
        clean = "ERROR SUMMARY: 0 errors" in reports if self._tool else not reports
        if not alive or not clean:
            raise Failure("reports, see above" if alive else "the agent has died")


def flood(agent, events):
    """Alarms, heartbeats without a pause, managers and a SET at the same time."""
    polling = Polling(agent.world)
    agent.world.ctl("set", SWITCH, 1)
    agent.post(events)
    # At rest before its end: a thread that is killed while it holds a lock would be reported.
    agent.world.ctl("set", INTERVAL, 255)
    answers = polling.stop()
    agent.world.set(f"{ROOT}.10.1.1.9.1.0", "i", 2)
    agent.end()
    heartbeats = len(agent.receiver.received()) - events
    print(f"  {events} alarms, {heartbeats} heartbeats, {sum(answers)} polls, no report")


def work(agent, rounds):
    """Walks, requests of several cells and scalars, writes, refusals, wrong replies, alarms."""
    world = agent.world
    cells = [f"{ROOT}.10.{1 + n % 2}.1.{2 + n % 7}.{n + 1}.0" for n in range(10)]
    for number in range(rounds):
        world.walk()
        world.bulkwalk(f"{ROOT}.10")
        world.get(*cells, f"{ROOT}.1.1.1.6.0", f"{ROOT}.10.1.1.2.33.0")
        world.set(f"{ROOT}.10.1.1.5.1.0", "i", number, f"{ROOT}.10.2.1.2.1.0", "s", "x" * 20,
                  f"{ROOT}.10.1.1.5.2.0", "i", number, f"{ROOT}.1.1.1.6.0", "s", "site")
        for refused in (f"{ROOT}.10.1.1.2.1.0", f"{ROOT}.10.1.1.8.1.0"):
            try:
                world.set(refused, "s", "y" * 70)
                raise Failure(f"SET of {refused} was accepted")
            except SnmpError:
                pass
        world.ctl("fault", *FAULTS[number % len(FAULTS)].split(), "--count", 20)
        world.get(*cells)
        world.bulkwalk(f"{ROOT}.10.1")
        world.ctl("fault", "none")
        agent.post(20)


def races(scale):
    print("ThreadSanitizer")
    with Agent("tsan") as agent:
        flood(agent, 5000 * scale)
    print("Helgrind")
    with Agent("dev", "helgrind") as agent:
        flood(agent, 500 * scale)


def memory(scale):
    print("AddressSanitizer, UndefinedBehaviorSanitizer")
    with Agent("asan") as agent:
        work(agent, 10)
        before = agent.world.agent.resident()
        work(agent, 20 * scale)
        grown = agent.world.agent.resident() - before
        agent.end()
        print(f"  {20 * scale} rounds, {grown} KiB more, no report")
        if grown > 4096:
            raise Failure("memory has grown")
    print("Memcheck")
    # Lost for sure is an error; the records of running threads are only possibly lost.
    leaks = ["--leak-check=full", "--errors-for-leak-kinds=definite"]
    with Agent("dev", "memcheck", leaks) as agent:
        work(agent, 2)
        before = agent.reachable_blocks()
        work(agent, 5 * scale)
        grown = agent.reachable_blocks() - before
        agent.end()
        print(f"  {5 * scale} rounds, {grown} blocks more, no report")
        # A round is some 1,500 objects read and 20 notifications; a few blocks come and go.
        if grown > 100 + 5 * scale:
            raise Failure("memory has grown")


def slow(scale):
    build("dev")
    print("Outages at their full length")
    tests = subprocess.run(["/usr/bin/python3", "-m", "pytest", "-q", "-p", "no:cacheprovider",
                            "tests/e2e/test_outages.py", "tests/e2e/test_no_alarm_lost.py"],
                           cwd=SOURCE,
                           env={**os.environ, "NORVA_LONG": "1"}, check=False)
    if tests.returncode != 0:
        raise Failure("outages, see above")
    print("Heartbeats, a minute apart")
    with World(build=SOURCE / "build/dev") as world:
        world.start_unit()
        world.ctl("set", INTERVAL, 1)
        world.ctl("set", SWITCH, 1)
        receiver = Receiver(world)
        world.start_master(V2C_SINK)
        world.start_agent()
        world.wait_output("_heartBeatInterval is changed to 1")
        times = [time.monotonic()]
        for number in range(1, 2 + scale):
            receiver.wait(number, 90)
            times.append(time.monotonic())
        pauses = [after - before for before, after in zip(times, times[1:])]
        print("  after", *[f"{pause:.1f} s" for pause in pauses])
        if not all(58 < pause < 62 for pause in pauses):
            raise Failure("not a minute")


def zabbix(_):
    check_zabbix.check(build("dev"))


def main():
    parser = command_line(__doc__)
    parser.add_argument("what", choices=["races", "memory", "slow", "zabbix"])
    parser.add_argument("--scale", type=int, default=1, help="as many times the work, default 1")
    options = parser.parse_args()
    install("check", *(["zabbix"] if options.what == "zabbix" else []))
    {"races": races, "memory": memory, "slow": slow, "zabbix": zabbix}[options.what](options.scale)
    print("passed")


finish(main)
