"""What the agent tells of itself: its own objects, and its lines to a service manager."""

import re
import time

from conftest import refused
from receiver import V2C_SINK, Receiver
from world import ROOT, SOURCE, cell_row, empty_schema, scalar_row, wait_until

BASE = ROOT.rpartition(".")[0] + ".9"
MODULE = SOURCE / "mibs/NORVA-AGENT-MIB.txt"
MEMBERS = re.findall(r"^norva(\w+) OBJECT-TYPE\s+SYNTAX\s+(\w+)", MODULE.read_text(), re.M)
SHOWN = {"DisplayString": "STRING", "TimeTicks": "Timeticks"}
OR_ID = ".1.3.6.1.2.1.1.9.1.2"
FIRST = f"{ROOT}.1.1.1.1.0"
ROWS = [scalar_row(0x0403, 1, name="Alarm"), scalar_row(0x0101, 2), cell_row(0x0200),
        cell_row(0x0201, 3), cell_row(0x0202, 3, 33)]
OBJECTS = "0x0403 unsigned 1 rw 0\n0x0101 unsigned 2 rw 7\n0x0200 unsigned 1 rw 1\n"


def own(world):
    """The agent's own objects by name."""
    found = world.get(*[f"{BASE}.{n}.0" for n in range(1, len(MEMBERS) + 1)])
    assert [bound.type for bound in found] == [SHOWN.get(syntax, syntax) for _, syntax in MEMBERS]
    return {name: bound.value if bound.type == "STRING" else int(re.search(r"\d+", bound.value)[0])
            for (name, _), bound in zip(MEMBERS, found)}


def start(world, *settings):
    """Two scalars and a table of two cells, served, with a receiver."""
    world.start_unit(OBJECTS)
    receiver = Receiver(world)
    world.start_master(V2C_SINK + "agentXTimeout 15\nagentXRetries 0\n")
    world.settings("norvaAgentObjects yes", *settings)
    world.start_agent(database=database(world))
    return receiver


def database(world):
    return world.make_database(*empty_schema(), *ROWS, base=False)


def test_counts(world):
    began = time.monotonic()
    receiver = start(world, "norvaDeviceTimeout 3")
    world.get(FIRST, f"{ROOT}.1.1.1.2.0")
    world.set(f"{ROOT}.1.1.1.2.0", "i", 9)
    for _ in range(3):
        world.ctl("alarm", "raise", "0x0403")
    receiver.wait(3)

    def agreed():
        """The agent's counts, as soon as they are the unit's own."""
        now, unit = own(world), dict(map(str.split, filter(None, world.ctl("stats").split("\n"))))
        asked = [now[f"Unit{what}"] for what in ("Reads", "Writes", "Failures")]
        return asked == [int(unit[what]) for what in ("gets", "sets", "refused")] and now

    now = wait_until(agreed, 30, "the unit's and the agent's counts agree")
    assert re.fullmatch(r"\d+\.\d+\.\d+", now["AgentVersion"])
    assert (now["AgentScalars"], now["AgentTables"], now["AgentCells"]) == (2, 1, 2)
    assert (now["UnitWrites"], now["UnitTimeouts"], now["MasterSessions"]) == (1, 0, 1)
    assert [now[f"Notifications{what}"] for what in (
        "Taken", "Sent", "Acknowledged", "Repeated", "Dropped", "Waiting")] == [3, 3, 3, 0, 0, 0]
    assert now["OutputBytesDropped"] == 0
    assert 0 < now["AgentUpTime"] <= 100 * (time.monotonic() - began)

    # A silent unit, and one that lies.
    world.hang(FIRST).wait()
    before = world.ctl("stats")
    silent = own(world)
    assert world.ctl("stats") == before, "the unit was not asked"
    assert (silent["UnitFailures"], silent["UnitTimeouts"]) == (now["UnitFailures"] + 1, 1)
    assert silent["UnitSinceLastReply"] >= 3000
    world.ctl("fault", "none")
    world.ctl("fault", "delay", "300", "--count", "1")
    world.get(FIRST)
    world.ctl("fault", "wrong-command", 119, "--count", "1")
    assert world.get(FIRST)[0].value is None
    after = own(world)
    assert (after["UnitFailures"], after["UnitTimeouts"]) == (now["UnitFailures"] + 2, 1)
    assert 300 <= after["UnitSlowestReply"] < 3000
    assert after["UnitSinceLastReply"] < silent["UnitSinceLastReply"]
    assert refused(world, f"{BASE}.3.0", "u", 5).reason == "notWritable"
    assert BASE in [bound.value for bound in world.walk(OR_ID)]
    world.agent.kill()
    wait_until(lambda: BASE not in [bound.value for bound in world.walk(OR_ID)], what="it is gone")


def test_not_served(world):
    """The unit's tree lies over them."""
    world.start_unit(OBJECTS + f'0x80ba text 40 ro "{BASE}"\n')
    world.start_master()
    world.settings("norvaAgentObjects yes")
    world.start_agent(database=database(world), wait=False)
    world.wait_served(BASE)
    assert world.get(f"{BASE}.1.1.1.2.0", f"{BASE}.1.0") == [
        (f"{BASE}.1.1.1.2.0", "INTEGER", 7), (f"{BASE}.1.0", "noSuchObject", None)]
    assert "the agent's own objects are not served" in world.agent_output()


LISTENER = """import socket, sys
listener = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
listener.bind(sys.argv[1].replace("@", chr(0)))
while True: print(listener.recv(4096).decode().replace(chr(10), "|"), flush=True)"""


class ServiceManager:
    """What the agent tells, in a socket as systemd has it: a file, or an abstract name."""

    def __init__(self, world, name):
        self.environment = {"NOTIFY_SOCKET": str(name)}
        self._listener = world.spawn("service", ["/usr/bin/python3", "-c", LISTENER, name])

    def wait(self, message):
        def told():
            lines = self._listener.output().splitlines()
            return lines[-1:] == [message] and lines
        return wait_until(told, 90, message)


def test_lines_to_the_service_manager(world):
    service = ServiceManager(world, world.directory / "notify")
    world.settings("norvaDeviceTimeout 1")
    began = time.monotonic()
    world.start_agent(database=database(world), env=service.environment, wait=False)
    service.wait("READY=1|STATUS=waiting for the unit: its control process does not answer")
    assert 9 < time.monotonic() - began
    world.start_unit(OBJECTS)
    service.wait(f"STATUS=no master agent at {world.socket}")
    world.start_master()
    service.wait("STATUS=serving 2 scalars and 2 cells")
    assert world.get(f"{BASE}.1.0")[0].type == "noSuchObject"  # only where the configuration asks
    world.hang(FIRST)
    world.spawn("polling", ["timeout", "120", "sh", "-c", "while :; do snmpget -v2c -c public -r0 -t5 "
                            f"{world.address} {FIRST}; done"])
    service.wait("STATUS=the unit is silent; serving 2 scalars and 2 cells")
    world.ctl("fault", "none")
    world.get(FIRST)
    service.wait("STATUS=serving 2 scalars and 2 cells")
    world.master.kill()
    told = service.wait(f"STATUS=no master agent at {world.socket}")
    assert not [line for line, next_ in zip(told, told[1:]) if line == next_]
    assert ["READY" in line for line in told].count(True) == 1


def test_ready_at_once_and_what_is_missing(world):
    service = ServiceManager(world, "@norva")
    world.start_unit(OBJECTS)
    world.start_master()
    world.settings("norvaAgentObjects yes")
    world.start_agent(database=database(world), env=service.environment)
    service.wait("READY=1|STATUS=serving 2 scalars and 2 cells")
    world.agent.kill()
    garbage = world.directory / "garbage.db"
    garbage.write_text("no database")
    world.start_agent(database=garbage, env=service.environment, wait=False)
    service.wait(f"READY=1|STATUS=nothing to serve: no object found in the mapping database {garbage}")
    world.wait_served(BASE)
    assert own(world)["AgentScalars"] == 0
