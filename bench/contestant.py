"""A subagent that is measured, in a world of its own: the benchmark's unit, a real snmpd, the
benchmark's manager."""

import re
import subprocess
import time
from pathlib import Path

from world import Failure, World, cell_row, empty_schema, scalar_row, wait_until

INTEGER, TEXT = 2, 4
SLICED = ["get", "get10", "get-eight", "walk", "bulk", "set-scalar", "set-cell"]
# Of what is counted and not timed: so many for each millisecond of a slice.
COUNTED = {"notify": 8, "single": 2}
CASES = [*SLICED, *COUNTED]


def _mapping():
    """SQL of a mapping of the objects in bench/Objects.h."""
    for n in range(1, 41):
        text = n % 4 == 0
        yield scalar_row(0x1000 + n + 0x4000 * text, n, type=TEXT if text else INTEGER)
    for column in range(2, 10):
        text = column % 4 == 0
        for row in range(1, 33):
            yield cell_row(0x2000 + column * 0x100 + row + 0x4000 * text, column, row,
                           type=TEXT if text else INTEGER)


def _many_cells(count=10_000):
    """SQL that adds cells to the sample, with names as it has them."""
    for i in range(count):
        yield cell_row(0xA000 + i, 100 + i // 250, 1 + i % 250).replace(
            "'cell'", f"'RU {1 + i % 250} Attenuation'")


class Contestant:
    """`program` is the path of an agent, or "floor", or "six calls" for the floor that keeps the
    agent's rules for the queues. `mapping`: "bench", "sample" or "cells". `counting`: under
    callgrind, for instructions()."""

    def __init__(self, name, program, build, mapping="bench", trace=True, output=None,
                 counting=False):
        self.name = name
        self._world = World(build=build)
        self._manager = None
        self._trace = None
        try:
            self._start(program, mapping, trace, output, counting)
        except BaseException:
            self.close()
            raise

    def _start(self, program, mapping, trace, output, counting):
        world = self._world
        if mapping == "bench":
            database = world.make_database(*empty_schema(), *_mapping(), base=False)
        else:
            database = world.make_database(*(_many_cells() if mapping == "cells" else ()))
        world.settings(*([] if trace else ["norvaTrace no"]), ping=15)
        self._unit = world.spawn("unit", [world.build / "bench/norva_bench_unit"])
        world.start_master("trap2sink udp:127.0.0.1:1162 public\nagentXTimeout 30\n")
        self._manager = subprocess.Popen(
            [*world.enter, world.build / "bench/norva_bench_manager"], env=world.environment,
            stdin=subprocess.PIPE, stdout=subprocess.PIPE,
            stderr=open(world.directory / "manager.log", "wb"), text=True)
        if output is None:
            # Appended, so that it starts anew when it is cut.
            self._trace = output = open(world.directory / "trace", "ab")
        if program in ("floor", "six calls"):
            command = [world.build / "bench/norva_bench_floor", world.socket,
                       *(["six"] if program == "six calls" else [])]
        else:
            command = [program, "-X", "-d", database, "-x", world.socket, "-n", "demo"]
        if counting:
            command = ["valgrind", "--tool=callgrind", f"--vgdb-prefix={world.directory}/vgdb",
                       f"--callgrind-out-file={world.directory}/callgrind.out", *command]
        begin = time.monotonic()
        self._agent = world.spawn("agent", command, output)
        self._command("first", 1)
        self.started = time.monotonic() - begin
        # The master gets the objects one after the other.
        if mapping == "bench":
            self._command("last", 1)
        self._processes = [self._unit.pid(), world.master.pid(), self._agent.pid(),
                           self._manager_pid()]

    def _manager_pid(self):
        nsenter = self._manager.pid
        children = Path(f"/proc/{nsenter}/task/{nsenter}/children")
        return int(wait_until(children.read_text, what="the manager"))

    def close(self):
        self._world.close()
        if self._manager is not None:
            self._manager.wait(10)
            self._manager.stdin.close()
            self._manager.stdout.close()
        if self._trace is not None:
            self._trace.close()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def _command(self, what, number):
        """What the manager has counted, and the seconds that it took."""
        self._manager.stdin.write(f"{what} {number}\n")
        self._manager.stdin.flush()
        answer = self._manager.stdout.readline().split()
        if len(answer) != 2:
            errors = "".join(path.read_text(errors="replace")[-1000:] for path in
                             map(self._world.directory.joinpath, ("manager.log", "agent-errors.log")))
            raise Failure(f"{self.name}, {what}: {errors}")
        return int(answer[0]), int(answer[1]) / 1e9

    def _processor_time(self):
        """Seconds that all threads of all its programs have run."""
        total = 0
        for pid in self._processes:
            for thread in Path(f"/proc/{pid}/task").iterdir():
                total += int((thread / "schedstat").read_text().split()[0])
        return total / 1e9

    def slice(self, case, milliseconds):
        """Number of requests, seconds on the clock, seconds of processor time."""
        number = milliseconds * COUNTED.get(case, 1)
        before = self._processor_time()
        count, seconds = self._command(case, number)
        if count == 0:
            raise Failure(f"{self.name}, {case}: nothing in {seconds} s")
        return count, seconds, self._processor_time() - before

    def requests(self, case, count):
        """Carries out at least so many; their number."""
        done = 0
        while done < count:
            done += self._command(case, 1000)[0]
        return done

    def forget_trace(self):
        if self._trace is not None:
            self._trace.truncate(0)

    def resident(self):
        """Resident memory of the agent in KiB."""
        return self._agent.resident()

    def instructions(self, case, milliseconds):
        """Instructions that the agent, under callgrind, takes for a request."""
        self._callgrind("zero")
        count, _, _ = self.slice(case, milliseconds)
        self._callgrind("dump")
        newest = max(self._world.directory.glob("callgrind.out.*"),
                     key=lambda path: path.stat().st_mtime_ns)
        total = re.search(r"^(?:totals|summary): (\d+)", newest.read_text(), re.M)
        return round(int(total[1]) / count)

    def _callgrind(self, command):
        status = Path(f"/proc/{self._agent.pid()}/status").read_text()
        inside = re.search(r"NSpid:.*\s(\d+)\n", status)[1]
        answer = self._world.run("vgdb", f"--vgdb-prefix={self._world.directory}/vgdb",
                                 f"--pid={inside}", command)
        if answer.returncode != 0:
            raise Failure(f"{self.name}, callgrind: {answer.stderr}")
