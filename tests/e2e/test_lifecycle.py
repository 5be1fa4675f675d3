"""Start, loss of the master, output, and the end of the process on SIGTERM."""

import os
import signal
from concurrent.futures import ThreadPoolExecutor

import pytest

from world import ROOT, SnmpError, World, wait_until

SCALAR = f"{ROOT}.1.1.1.1.0"
SCALAR_ID = "0x0004"
SCALAR_VALUE = "NDAS 4.2.1"


def assert_right(world):
    assert world.get(SCALAR)[0].value == SCALAR_VALUE


def test_master_restarted(world):
    world.start_unit()
    world.start_master()
    world.start_agent()
    agent = world.agent.pid()
    for _ in range(3):
        world.master.kill()
        world.start_master()
        world.wait_served()
        assert_right(world)
    assert world.agent.pid() == agent


def test_master_absent_at_start(world):
    world.start_unit()
    world.start_agent(wait=False)
    world.wait_output("init_snmp end....\n")
    world.start_master()
    world.wait_served()
    assert_right(world)


def test_unit_absent_at_start(world):
    """The agent waits for its first reply, and says so."""
    world.start_master()
    world.start_agent(wait=False)
    world.wait_output("_pComPortAdapter->open() end....\n02 07 ba 80 00 00 00 00 ", timeout=3)
    world.start_unit()
    world.wait_served()
    assert_right(world)


def begin_silence(world):
    """A manager's request hangs at the silent unit."""
    world.ctl("stats", "reset")
    world.ctl("fault", "silent", "--object", SCALAR_ID)
    world.spawn("manager", ["snmpget", "-v2c", "-c", "public", "-r0", "-t30", "127.0.0.1:1161",
                            SCALAR])
    wait_until(lambda: "faults 1\n" in world.ctl("stats"), what="a request to the silent unit")


def test_output_leaves_while_the_unit_is_silent(world):
    world.start_unit()
    world.start_master()
    reader, writer = os.pipe()
    world.start_agent(stdout=writer)
    os.close(writer)
    os.set_blocking(reader, False)
    with os.fdopen(reader, "rb") as output:
        wait_until(lambda: b"_heartBeatInterval is changed" in (output.read() or b""),
                   what="all that is printed at start")
        begin_silence(world)
        wait_until(lambda: (output.read() or b"").endswith(b"02 07 04 00 00 00 00 00 "), 3,
                   "trace of the request")


def test_reader_of_the_output_goes_away(world):
    world.start_unit()
    world.start_master()
    reader, writer = os.pipe()
    world.start_agent(stdout=writer)
    os.close(writer)
    os.close(reader)
    for _ in range(3):
        assert len(world.bulkwalk()) > 50
    assert_right(world)
    assert world.agent.running()


# The end of the process. Each case brings a running agent into a state; it gets the world and
# returns what to call once the agent has ended.

ROUNDS, WORLDS = 5, 4


def idle(world):
    pass


def silent_unit(world):
    begin_silence(world)


def polled(world):
    """Several managers that never pause."""
    def reads():
        return int(dict(line.split() for line in world.ctl("stats").splitlines())["gets"])
    if not hasattr(world, "pollers"):
        world.pollers = [world.spawn(f"poller{number}", [
            "timeout", "300", "sh", "-c", "while :; do snmpbulkwalk -v2c -c public -r0 -t1 "
            f"127.0.0.1:1161 {ROOT} >/dev/null 2>&1; done"]) for number in range(3)]
    start = reads()
    wait_until(lambda: reads() > start + 100, 30, "requests of the managers")


def unread_output(world):
    """The pipe that takes the output is full, and the agent waits for its reader."""
    def stuck():
        try:
            world.walk(timeout=1)
        except SnmpError:
            return True
    wait_until(stuck, 30, "a full pipe")


def handles_sigterm(world):
    """The agent serves requests already a little earlier, while it registers its objects."""
    status = open(f"/proc/{world.agent.pid()}/status", encoding="ascii").read()
    caught = int(status.split("SigCgt:")[1].split()[0], 16)
    return caught & 1 << signal.SIGTERM - 1


@pytest.mark.parametrize("state", [idle, silent_unit, polled, unread_output])
def test_sigterm(state):
    """The process is gone within 5 s, every time, and the master is none the worse for it."""
    def end_agents(number):
        with World() as world:
            world.start_unit()
            world.start_master()
            for _ in range(ROUNDS):
                reader, writer = os.pipe()
                is_unread = state is unread_output
                world.start_agent(stdout=writer if is_unread else None)
                os.close(writer)
                wait_until(lambda: handles_sigterm(world), what="the end of the start")
                state(world)
                world.agent.signal(signal.SIGTERM)
                assert world.agent.wait(5) == -signal.SIGKILL
                if not is_unread:
                    assert "get SIGNUM!\n" in world.agent_output()
                os.close(reader)
                world.ctl("fault", "none")
                wait_until(lambda: not world.master.running() or world.master_answers(), 30,
                           "snmpd's answer")
                assert world.master.running()

    with ThreadPoolExecutor(WORLDS) as pool:
        list(pool.map(end_agents, range(WORLDS)))


def test_other_signals_leave_their_usual_effect(world):
    world.start_unit()
    world.start_master()
    world.start_agent()
    world.agent.signal(signal.SIGINT)
    assert world.agent.wait(5) == -signal.SIGINT
    assert "get SIGNUM!" not in world.agent_output()
