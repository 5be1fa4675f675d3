"""What an agent has to do in the field, for as long as one likes: managers that read and write, a
unit that posts alarms. What is answered is checked by value, whatever happens to the agent."""

import threading
from collections import Counter

from polling import poll
from world import (ALARM_OBJECT, ROOT, Failure, SnmpError, WorldError, cell_row, parse_varbinds,
                   scalar_row)


class Objects:
    """What the unit has: objects whose values never change, and those that the SETs write."""

    STEP = 100_000  # values of an object: its number times this, and what was written last

    def __init__(self):
        self.fixed = {}     # OID: value
        self.written = {}   # OID: number of the object
        self.lines, self.rows = [], []
        for n in range(1, 31):
            self._add(0x0100 + n, f"{ROOT}.1.1.1.{n}.0", scalar_row(0x0100 + n, n), n % 3 == 0)
        for row in range(1, 33):
            for column in (2, 3):
                number = 0x1000 + 32 * column + row
                self._add(number, f"{ROOT}.10.1.1.{column}.{row}.0",
                          cell_row(number, column, row), column == 3 and row % 4 == 0)
        for n in range(31, 41):
            self._add_text(0x0100 + n, n)
        self.lines += [f"{ALARM_OBJECT} unsigned 1 rw 0", "0x0ffa unsigned 1 rw 1",
                       "0x0ffb unsigned 1 rw 1"]
        self.rows.append(scalar_row(0x0403, 99, name="Alarm"))

    def _add(self, number, oid, row, is_written):
        self.lines.append(f"{number:#06x} unsigned 4 rw {number * self.STEP}")
        self.rows.append(row)
        if is_written:
            self.written[oid] = number
        else:
            self.fixed[oid] = number * self.STEP

    def _add_text(self, number, n):
        self.lines.append(f'{number:#06x} text 20 rw "object {number:#06x}"')
        self.rows.append(scalar_row(number, n, type=4))
        self.fixed[f"{ROOT}.1.1.1.{n}.0"] = f"object {number:#06x}"

    def is_wrong(self, oid, value):
        """Whether a manager may never see `value` there."""
        if value is None:
            return False
        if oid in self.written:
            return not isinstance(value, int) or value // self.STEP != self.written[oid]
        if ".10.1.1.1." in oid:  # the rows' numbers
            return value != int(oid.split(".")[-2])
        if oid == f"{ROOT}.1.1.1.99.0":
            return value != 0
        return value != self.fixed.get(oid)


class Managers:
    """Four that read, each in a loop of its own."""

    def __init__(self, world, objects, pause):
        self._objects = objects
        get = "snmpget -v2c -c public -Onx -r0 -t20 127.0.0.1:1161 "
        names = list(objects.fixed)
        scalars = sum(".10.1." not in oid for oid in [*objects.fixed, *objects.written]) + 1
        cells = len(objects.fixed) + len(objects.written) - scalars + 1
        # With the number of varbinds of a whole answer; a row has its index too.
        commands = [(f"snmpwalk -v2c -c public -Onx -r0 -t20 127.0.0.1:1161 {ROOT}.1.1.1", scalars),
                    ("snmpbulkwalk -v2c -c public -Onx -r0 -t20 -Cr20 127.0.0.1:1161 "
                     f"{ROOT}.10", cells + 32),
                    (get + " ".join(names[:20:2]), 10),
                    (get + " ".join(names[20::9]), len(names[20::9]))]
        self._loops = [_Manager(world, n, command, whole, pause)
                       for n, (command, whole) in enumerate(commands)]

    def check(self):
        """Looks at what was answered since the last call."""
        for loop in self._loops:
            loop.check(self._objects)

    def counts(self):
        """"whole" and "partial" answers of all."""
        return sum((loop.counts for loop in self._loops), Counter())

    def served(self):
        """Whether each has got whole answers."""
        return all(loop.counts["whole"] for loop in self._loops)


class _Manager:
    def __init__(self, world, number, command, whole, pause):
        self._number, self._whole = number, whole
        self._process = poll(world, f"manager-{number}", command, pause)
        self._log = open(world.directory / f"manager-{number}.log")
        self._rest = ""
        self._right = 0  # varbinds of the answer that is being read
        self._last = "partial"
        self.counts = Counter()

    def check(self, objects):
        if not self._process.running():
            raise Failure(f"manager {self._number} has ended")
        *lines, self._rest = (self._rest + self._log.read()).split("\n")
        for line in lines:
            if line == "other":
                self._last = "whole" if self._right == self._whole else "partial"
                self._right = 0
            if line in ("other", "same"):
                self.counts[self._last] += 1
            elif line.startswith("."):
                self._check_line(line, objects)

    def _check_line(self, line, objects):
        for oid, _, value in parse_varbinds(line):
            if oid.startswith(ROOT) and objects.is_wrong(oid, value):
                raise Failure(f"wrong value: {line}")
            self._right += value is not None


class Background(threading.Thread):
    """Work that goes on until stop(); what fails in it fails the run."""

    def __init__(self):
        super().__init__(daemon=True)
        self.ending = threading.Event()
        self.failure = None

    def run(self):
        try:
            while not self.ending.is_set():
                self.step()
        except BaseException as failure:  # shown by whoever looks
            self.failure = failure

    def check(self):
        if self.failure:
            raise self.failure

    def stop(self):
        self.ending.set()
        self.join(60)
        if self.is_alive():
            raise Failure(f"{type(self).__name__} does not end")
        self.check()


class Writer(Background):
    """The manager that writes and reads back."""

    def __init__(self, world, objects, rng, pause):
        super().__init__()
        self._world, self._objects, self._rng, self._pause = world, objects, rng, pause
        self._number = 0
        self.lives = 0  # of the unit: odd while it is away; it forgets what was written
        # What each may hold.
        self._possible = {oid: {self._first(oid)} for oid in objects.written}
        self.counts = Counter()

    def _first(self, oid):
        return self._objects.written[oid] * Objects.STEP

    def unit_restarted(self):
        for oid, possible in self._possible.items():
            possible.add(self._first(oid))

    def step(self):
        self._number = (self._number + 1) % Objects.STEP
        wanted = {oid: self._first(oid) + self._number
                  for oid in self._rng.sample(list(self._possible), self._rng.choice([1, 1, 3]))}
        life = self.lives
        self.counts["sets"] += 1
        for oid, value in wanted.items():
            self._possible[oid].add(value)
        try:
            self._world.set(*[word for oid, value in wanted.items() for word in (oid, "i", value)],
                            timeout=20)
            self.counts["set"] += 1
            if life == self.lives and life % 2 == 0:
                for oid, value in wanted.items():
                    self._possible[oid] = {value}
        except SnmpError:
            pass
        self.read_back(wanted)
        self.ending.wait(self._pause)

    def read_back(self, oids):
        life = self.lives
        try:
            answer = self._world.get(*oids, timeout=20)
        except SnmpError:
            return
        for bound in answer:
            if bound.value is None:
                continue
            self.counts["read back"] += 1
            possible = self._possible[bound.oid]
            if bound.value not in possible and life == self.lives and life % 2 == 0:
                raise Failure(f"{bound.oid} holds {bound.value}, written was {sorted(possible)}")

    def read_all(self):
        """After stop: what the unit holds, asked in turn."""
        for oid in self._possible:
            self.read_back([oid])


class Alarms(Background):
    """Posts alarms, each with a name of its own: text 5 and text 4."""

    def __init__(self, world, rng, pause):
        super().__init__()
        self._world, self._rng, self._pause = world, rng, pause
        self._batch = 0
        self.posted = set()
        self.quiet = threading.RLock()

    def step(self):
        self.post(self._rng.choice([1] * 30 + [100]))
        self.ending.wait(self._pause)

    def post(self, count):
        """Posts so many in a batch; their names."""
        with self.quiet:
            self._batch += 1
            names = {(str(self._batch), str(n)) for n in range(1, count + 1)}
            try:
                self._world.ctl("alarm", "raise", ALARM_OBJECT, "--count", count, "--numbered",
                                "--text5", self._batch)
                self.posted |= names
            except WorldError:
                pass  # without a unit; what of it was posted nobody knows
            return names
