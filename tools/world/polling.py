"""Managers that poll the agent without a pause."""

from world import ROOT, wait_until

_BULKWALK = "snmpbulkwalk -v2c -c public -On -r0 -t20 -Cr20 127.0.0.1:1161"
_GET = "snmpget -v2c -c public -On -r0 -t20 127.0.0.1:1161"
# Nothing of the unit that changes by itself, and cells of both tables in one request.
MANAGERS = [
    f"{_BULKWALK} {ROOT}.1.1.1",
    f"{_BULKWALK} {ROOT}.1.2",
    f"{_BULKWALK} {ROOT}.10.1.1.5",
    f"{_BULKWALK} {ROOT}.10.2.1.4",
    " ".join([_GET, *[f"{ROOT}.10.{1 + n % 2}.1.{2 + n % 7}.{n + 1}.0" for n in range(10)]]),
]

# A line for every answer: "other" behind its lines, "same" for one that is as the last one was.
_LOOP = """
last=
while [ ! -e stop-polling ]; do
  answer=$($1 2>&1)
  if [ "$answer" = "$last" ]; then echo same; else echo "$answer"; echo other; last=$answer; fi
  [ "$2" = 0 ] || sleep "$2"
done
"""


def poll(world, name, command, pause=0):
    """Starts a manager that asks again and again; the program, whose output is as _LOOP says."""
    return world.spawn(name, ["sh", "-c", _LOOP, "sh", command, str(pause)])


class Polling:
    """Runs from its construction to stop() or the world's end. Nothing may change meanwhile that is
    polled. What is answered is always the same, or other lines none of which is `wrong`. Begins when
    everybody can read `last`, if it is given."""

    def __init__(self, world, managers=MANAGERS, last=f"{ROOT}.10.2.1.1.32.0", wrong=bool):
        self._world = world
        self._wrong = wrong
        # The master gets the agent's objects one after the other, in their order.
        if last:
            wait_until(lambda: world.get(last)[0].type == "INTEGER", 30, "the last object")
        self._loops = [poll(world, f"poll-{number}", manager)
                       for number, manager in enumerate(managers)]
        wait_until(lambda: min(self.answers()) > 1, 60, "answers to all managers")

    def answers(self):
        """How often each manager got the same answer."""
        return [self._count(loop.output()) for loop in self._loops]

    def _count(self, log):
        """How many answers are the first one."""
        count, first, last, lines = 0, None, None, []
        for line in log.splitlines():
            if line not in ("same", "other"):
                lines.append(line)
                continue
            last, lines = last if line == "same" else lines, []
            first = first or last
            count += last == first
            wrong = [line for line in last if last != first and self._wrong(line)]
            assert not wrong, wrong[:10]
        assert first is None or first[0].startswith(ROOT), first
        return count

    def stop(self):
        """How often each manager was answered in all."""
        (self._world.directory / "stop-polling").touch()
        assert [loop.wait(30) for loop in self._loops] == [0] * len(self._loops)
        return self.answers()
