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

# A line for every answer that is the same as the first one; any other one as it is.
_LOOP = """
first=$($1 2>&1) || first=
echo "$first" >$2.first
while [ ! -e stop-polling ]; do
  answer=$($1 2>&1)
  if [ "$answer" = "$first" ]; then echo same; else echo "$answer"; fi
done
"""


class Polling:
    """Runs from its construction to stop() or the world's end. Nothing may change meanwhile that is
    polled. What is answered is always the same, or other lines none of which is `wrong`."""

    def __init__(self, world, managers=MANAGERS, last=f"{ROOT}.10.2.1.1.32.0", wrong=bool):
        self._world = world
        self._wrong = wrong
        # The master gets the agent's objects one after the other, in their order.
        wait_until(lambda: world.get(last)[0].type == "INTEGER", 30, "the last object")
        self._loops = [world.spawn(f"poll-{number}", ["sh", "-c", _LOOP, "sh", manager,
                                                      f"poll-{number}"])
                       for number, manager in enumerate(managers)]
        wait_until(lambda: min(self.answers()) > 0, 60, "answers to all managers")

    def answers(self):
        """How often each manager got the same answer."""
        lines = [loop.output().splitlines() for loop in self._loops]
        wrong = [line for log in lines for line in log if line != "same" and self._wrong(line)]
        assert not wrong, wrong[:10]
        return [log.count("same") for log in lines]

    def stop(self):
        """How often each manager was answered in all."""
        (self._world.directory / "stop-polling").touch()
        assert [loop.wait(30) for loop in self._loops] == [0] * len(self._loops)
        for number in range(len(self._loops)):
            first = (self._world.directory / f"poll-{number}.first").read_text()
            assert first.startswith(ROOT), first
        return self.answers()
