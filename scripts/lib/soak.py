"""The agent at work for a long time, with an outage every few seconds: five managers, alarms,
heartbeats, and what goes wrong around an agent in the field, in a random order that --seed repeats.

All the time it is checked that no manager ever gets a wrong value: each object's value tells which
object it is, and what was written is remembered. After each outage, that the agent answers within
its time-out and 5 s, and that it has as many descriptors, threads and message queues as before. At
the end, and after each restart of the agent, which SIGTERM or SIGKILL ends while alarms come, that
every alarm was received, under one number only, or dropped and counted in the agent's own line, and
that its memory has not grown.

The clock that is set is the one that agent and master see, through libfaketime.
"""

import random
import re
import signal
import subprocess
import time
from collections import Counter
from pathlib import Path

from project import Failure, command_line, finish, install

from receiver import V2C_SINK, Receiver
from traffic import Alarms, Managers, Objects, Writer
from world import World, WorldError, empty_schema, wait_until

TIMEOUT = 2  # norvaDeviceTimeout
LIMIT = TIMEOUT + 5  # from the end of an outage to the next right answer
BACKLOG = 1000
GROWTH = 4096  # KiB that a life of the agent may take beyond its start, a full backlog included
MASTER = V2C_SINK + "agentXTimeout 15\nagentXRetries 0\n"
OTHER_OBJECT = "stale 12 07 10 00 34 12 01 00 00 00"
WRONG_REPLIES = ["wrong-command 0x11", "wrong-command 0x1f", "wrong-length 255", "truncate 0",
                 "truncate 5", "oversize 90", "oversize 1000", "oversize 3000", "wrong-id 0x1234",
                 "double", "stale 11", OTHER_OBJECT, OTHER_OBJECT]
CLOCKS = ["+3600", "-3600", "+86400", "-86400"]  # seconds
DROPPED = re.compile(r"(\d+) notifications were dropped, the oldest")
# What the reader of the output keeps of it.
KEPT = "dropped|could not be sent|error|Error"


class Soak:
    def __init__(self, world, rng, pause):
        self._world, self._rng = world, rng
        # Threads, and what is asked more or less often, have one of their own: the order repeats.
        probes, writing, posting = (random.Random(rng.random()) for _ in range(3))
        self._probes = probes
        self.objects = Objects()
        self.outages = Counter()
        self.slowest = (0, "none")
        self.lives = []  # of the agent: resident memory at start and end
        self._lives = False  # the agent
        self._dropped = 0  # in its earlier lives
        self._clock = world.directory / "clock"
        self._clock.write_text("+0\n")
        # Not in the environment: what enters the world would have a clock outside then.
        self._with_clock = ["env", f"LD_PRELOAD={self._faketime()}", "DONT_FAKE_MONOTONIC=1",
                            f"FAKETIME_TIMESTAMP_FILE={self._clock}", "FAKETIME_CACHE_DURATION=1",
                            "FAKETIME_DONT_FAKE_MONOTONIC=1"]
        world.objects.write_text("\n".join(self.objects.lines) + "\n")
        world.start_unit(record=False)
        self.receiver = Receiver(world)
        # The library waits for the disk when it saves its state: minutes, where others write much.
        world.inside("mkdir disk persistent-master; mount -t tmpfs -o size=16m tmpfs disk; "
                     "mount -t tmpfs tmpfs persistent-master; mount -t tmpfs tmpfs persistent; "
                     "mkfifo output")
        self._start_master()
        self._database = world.make_database(*empty_schema(), *self.objects.rows, base=False)
        self._to_disk = rng.random() < 0.5
        self._start_agent()
        self.writer = Writer(world, self.objects, writing, pause)
        self.alarms = Alarms(world, posting, pause)
        self.managers = Managers(world, self.objects, pause)
        self.writer.start()
        self.alarms.start()

    @staticmethod
    def _faketime():
        found = list(Path("/usr/lib").glob("*/faketime/libfaketimeMT.so.1"))
        if not found:
            raise Failure("libfaketime is not installed: scripts/deps")
        return found[0]

    def _start_master(self):
        self._world.start_master(MASTER, self._with_clock)

    # The agent's lives

    def _start_agent(self):
        """Its output goes through a pipe, all of it, or to a disk, failures only; in turn."""
        world = self._world
        world.settings(f"norvaDeviceTimeout {TIMEOUT}", "norvaStrictSet yes",
                       f"norvaBacklog {BACKLOG}", f"norvaBacklogFile {world.directory}/disk/backlog",
                       f"norvaTrace {'no' if self._to_disk else 'yes'}")
        prefix, output, self._reader = [], None, None
        if self._to_disk:
            world.inside(": > disk/output")
            prefix = ["sh", "-c", 'exec "$@" >> disk/output', "sh"]
        else:
            self._reader = world.spawn("reader", ["grep", "--line-buffered", "-aE", KEPT, "output"])
            output = open(world.directory / "output", "wb")
        world.start_agent(database=self._database, stdout=output,
                          prefix=[*self._with_clock, *prefix])
        if output:
            output.close()
        self._lives = True
        wait_until(self._is_right, 10, "right answers at the start")
        time.sleep(1)
        self._state = self._agent_state()
        self.lives.append([world.agent.resident(), 0])

    def _output(self):
        if self._to_disk:
            return self._world.inside("cat disk/output")
        return self._reader.output()

    def _agent_ended(self, number=signal.SIGTERM):
        self.lives[-1][1] = self._world.agent.resident()
        grown = self.lives[-1][1] - self.lives[-1][0]
        if grown > GROWTH:
            raise Failure(f"the agent has grown by {grown} KiB")
        self._world.agent.signal(number)
        if self._world.agent.wait(10) != -signal.SIGKILL:
            raise Failure("the agent has not ended as it should")
        if self._reader:
            self._reader.wait(10)
        self._dropped = self.dropped()
        self._lives = False

    def dropped(self):
        """Alarms that the agent has counted as dropped."""
        present = DROPPED.findall(self._output()) if self._lives else []
        return self._dropped + sum(map(int, present))

    def _agent_state(self):
        process = Path(f"/proc/{self._world.agent.pid()}")
        queues = self._world.run("cat", "/proc/sysvipc/msg").stdout.splitlines()[1:]
        return (f"{len(list((process / 'fd').iterdir()))} descriptors, "
                f"{len(list((process / 'task').iterdir()))} threads, {len(queues)} queues")

    def _is_right(self):
        """Scalars, a text and cells, asked for in one request."""
        oids = self._probes.sample(list(self.objects.fixed), 6)
        answer = self._world.get(*oids, timeout=1)
        return all(bound.value == self.objects.fixed[bound.oid] for bound in answer)

    # Outages; each ends before it returns

    def _pause(self, most, least=0.3):
        time.sleep(self._rng.uniform(least, most))

    def _fault(self, most, *words, least=0.3):
        self._world.ctl("fault", *words)
        self._pause(most, least)
        self._world.ctl("fault", "none")

    def unit_killed(self):
        self.writer.lives += 1
        self._world.unit.kill()
        self._pause(3)
        self._world.start_unit(record=False)
        self.writer.unit_restarted()
        self.writer.lives += 1

    def unit_silent(self):
        self._fault(2.5 * TIMEOUT, "silent")

    def unit_slow(self):
        """Replies come in time, or each in the next request's."""
        if self._rng.random() < 0.4:
            self._fault(4, "delay", self._rng.choice([20, 300]))
        else:
            self._fault(3 * TIMEOUT, "delay", 1000 * TIMEOUT + 500, least=2 * TIMEOUT)

    def wrong_replies(self):
        self._fault(3, *self._rng.choice(WRONG_REPLIES).split())

    def queue_removed(self):
        queue = self._rng.choice(["request", "reply", "alarm"])
        with self.alarms.quiet:
            if queue == "alarm":  # what waits in it would be lost with it
                wait_until(lambda: re.search(r"^\s*4194381\s+\S+\s+\S+\s+0\s+0 ", self._world.run(
                    "cat", "/proc/sysvipc/msg").stdout, re.M), 30, "no alarm waiting")
            self._world.ctl("remove-queue", queue)

    def master_killed(self):
        if self._rng.random() < 0.6:  # with what it was sent and has not looked at
            self._world.master.signal(signal.SIGSTOP)
            self._pause(2, 1)
        self._world.master.kill()
        if self._rng.random() < 0.3:  # more than are kept
            self.alarms.post(BACKLOG + 300)
        self._pause(3)
        self._start_master()

    def master_stopped(self):
        self._world.master.signal(signal.SIGSTOP)
        self._pause(6)
        self._world.master.signal(signal.SIGCONT)

    def master_reconfigured(self):
        self._world.master.signal(signal.SIGHUP)

    def output_stopped(self):
        """Nobody reads the output, or the disk under it is full."""
        if self._to_disk:
            self._world.run("dd", "if=/dev/zero", "of=disk/filling", "bs=64k")
            self._pause(4)
            self._world.inside("rm disk/filling")
        else:
            self._reader.signal(signal.SIGSTOP)
            self._pause(4)
            self._reader.signal(signal.SIGCONT)

    def clock_set(self):
        self._clock.write_text(self._rng.choice(CLOCKS) + "\n")
        self._pause(4)
        self._clock.write_text("+0\n")

    def agent_restarted(self):
        self.alarms.post(self._rng.choice([50, 500]))
        self._agent_ended(self._rng.choice([signal.SIGTERM, signal.SIGKILL]))
        self._pause(2)
        self._to_disk = not self._to_disk
        self._start_agent()
        with self.alarms.quiet:
            self._check_alarms()

    def outage(self, kind):
        kind()
        ended = time.monotonic()
        name = kind.__name__.replace("_", " ")
        if kind == self.output_stopped and self._to_disk:
            name = "disk full"
        self.outages[name] += 1
        wait_until(self._is_right, LIMIT, f"right answers after: {name}")
        self.slowest = max(self.slowest, (time.monotonic() - ended, name))
        wait_until(lambda: self._agent_state() == self._state, 10,
                   f"{self._state} after: {name}; now {self._agent_state()}")
        if self._world.agent.resident() - self.lives[-1][0] > GROWTH:
            raise Failure(f"the agent has grown to {self._world.agent.resident()} KiB")

    def run(self, seconds):
        kinds = [self.unit_killed, self.unit_silent, self.unit_slow, self.wrong_replies,
                 self.queue_removed, self.master_killed, self.master_stopped,
                 self.master_reconfigured, self.output_stopped, self.clock_set]
        end = time.monotonic() + seconds
        order = []
        while time.monotonic() < end:
            if not order:
                # Each once, and of every three rounds one with an end of the agent, the first too.
                order = self._rng.sample(kinds, len(kinds))
                if len(self.lives) == 1 or self._rng.random() < 0.3:
                    order.insert(self._rng.randrange(len(order)), self.agent_restarted)
            self.outage(order.pop())
            self._check()
            time.sleep(self._rng.uniform(0.2, 2))
            self._check()

    def _check(self):
        self.managers.check()
        self.writer.check()
        self.alarms.check()
        if not self._world.agent.running():
            raise Failure("the agent has died")

    def _missing(self):
        return self.alarms.posted - self.received()

    def _check_alarms(self):
        """A dropped one may have arrived all the same."""
        try:
            wait_until(lambda: len(self._missing()) <= self.dropped(), 15)
        except WorldError:
            raise Failure(f"{len(self._missing())} alarms are missing, {self.dropped()} were "
                          f"counted as dropped: {sorted(self._missing())[:10]}") from None

    def received(self):
        numbers = {}
        for event in self.receiver.received():
            name = (event.text5, event.text4)
            if event.kind == 96 and numbers.setdefault(name, event.sequence) != event.sequence:
                raise Failure(f"alarm {name} has come as {numbers[name]} and as {event.sequence}")
        return set(numbers)

    def finish(self):
        """Everything that was under way arrives; then the accounts must agree."""
        self.writer.stop()
        self.writer.read_all()
        self.writer.check()
        self.alarms.stop()
        last = self.alarms.post(1)
        wait_until(lambda: last <= self.received(), 60, "the last alarm")
        self._check()
        self._check_alarms()
        if not self.managers.served():
            raise Failure("a manager has never got a whole answer")
        self._agent_ended()

    def summary(self):
        alarms = [event for event in self.receiver.received() if event.kind == 96]
        names = {(event.text5, event.text4) for event in alarms}
        heartbeats = sum(event.kind == 99 for event in self.receiver.received())
        read, written = self.managers.counts(), self.writer.counts
        return "\n".join([
            f"outages: {sum(self.outages.values())}: "
            + ", ".join(f"{count} {name}" for name, count in sorted(self.outages.items())),
            f"reading managers: {read.total()} requests, {read['whole']} answered in full and "
            f"right, {read['partial']} in part or not",
            f"writing manager: {written['sets']} SETs, {written['set']} accepted, "
            f"{written['read back']} values read back",
            f"alarms: {len(self.alarms.posted)} posted, {len(names)} received, "
            f"{len(alarms) - len(names)} of them once more, {len(self._missing())} missing, "
            f"{self.dropped()} counted as dropped; {heartbeats} heartbeats",
            f"slowest after an outage: {self.slowest[0]:.1f} s ({self.slowest[1]})",
            "resident, KiB, at start and end of the agent's lives: "
            + ", ".join(f"{start} {end}" for start, end in self.lives)])


def main():
    parser = command_line(__doc__)
    parser.add_argument("--minutes", type=float, default=2, help="default 2")
    parser.add_argument("--seed", type=int, default=None, help="of the order; default any")
    parser.add_argument("--pause", type=float, default=0.1,
                        help="of each manager between two requests, in seconds; default 0.1")
    options = parser.parse_args()
    install("soak")
    seed = options.seed if options.seed is not None else random.randrange(1_000_000)
    print(f"seed {seed}", flush=True)
    soak = None
    with World(cover=["/dev/shm"]) as world:
        try:
            soak = Soak(world, random.Random(seed), options.pause)
            soak.run(60 * options.minutes)
            soak.finish()
        except (Failure, AssertionError, subprocess.TimeoutExpired) as failure:
            world.show_logs()
            print(world.run("ps", "axo", "pid,ppid,stat,wchan:24,etime,args").stdout)
            if soak:
                print(soak.summary())
            print(f"{failure}\nfailed, seed {seed}", flush=True)
            return 1
        print(soak.summary())
    print("passed")
    return 0


finish(main)
