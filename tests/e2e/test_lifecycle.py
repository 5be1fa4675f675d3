"""Start, loss of the master, output, and the end of the process on SIGTERM."""

import os
import signal
import subprocess
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import pytest

from conftest import wait_started
from polling import MANAGERS, Polling
from world import ROOT, World, wait_until

SCALAR = f"{ROOT}.1.1.1.1.0"
SCALAR_VALUE = "NDAS 4.2.1"


def assert_right(world):
    assert world.get(SCALAR)[0].value == SCALAR_VALUE


# Commands to run the agent under.
BOTH = ["sh", "-c", 'exec "$@" 2>&1', "sh"]
CLOSED = ["sh", "-c", 'exec "$@" <&- >&- 2>&-', "sh"]
FIRST_PROCESS = ["unshare", "--pid", "--fork", "--mount-proc"]


def start_piped(world, prefix=()):
    """The agent, its output into a pipe; the pipe's reading end."""
    reader, writer = os.pipe()
    world.start_agent(stdout=writer, prefix=prefix)
    os.close(writer)
    return reader


@pytest.fixture
def ready(world):
    """A world that lacks only the agent."""
    world.start_unit()
    world.start_master()
    return world


def test_what_an_earlier_agent_left(ready):
    """The late reply to its request is no answer to the first one of the next agent."""
    ready.settings("norvaDeviceTimeout 10")
    ready.start_agent()
    wait_started(ready)
    ready.ctl("stats", "reset")
    ready.ctl("fault", "delay", 3000, "--count", 1)
    ready.spawn("manager", ["snmpget", "-v2c", "-c", "public", "-r0", "-t30", ready.address, SCALAR])
    wait_until(lambda: "faults 0\n" not in ready.ctl("stats"), what="a request to the unit")
    ready.agent.kill()
    ready.start_agent()
    assert_right(ready)


def test_inherited_descriptors(ready):
    """More than a set of the C library holds."""
    ready.start_agent(prefix=["bash", "-c", "ulimit -n 2048; for i in {1..1100}; do "
                              "exec {fd}</dev/null; done; exec \"$@\"", "bash"])
    begin = time.monotonic()
    for _ in range(10):
        assert_right(ready)
    assert time.monotonic() - begin < 9  # none waits for a second


def test_master_restarted_and_interrupt(ready):
    """Objects come back by themselves. Other signals than SIGTERM leave their usual effect."""
    ready.start_agent(prefix=["env", "--default-signal=INT"])  # which the tests' parent may ignore
    for _ in range(3):
        ready.master.kill()
        ready.start_master()
        ready.wait_served()
        assert_right(ready)
    ready.agent.signal(signal.SIGINT)
    assert ready.agent.wait(5) == -signal.SIGINT
    assert "get SIGNUM!" not in ready.agent_output()


def silent_unit(world):
    world.hang(SCALAR)


@pytest.mark.parametrize("start, nulls", [(lambda world: os.close(start_piped(world)), 1),
                                          (lambda world: world.start_agent(prefix=CLOSED), 3)],
                         ids=["reader goes away", "closed descriptors"])
def test_output_that_nobody_reads(ready, start, nulls):
    """No standard descriptor becomes another one: many requests are served."""
    start(ready)
    assert [os.readlink(f"/proc/{ready.agent.pid()}/fd/{number}")
            for number in range(3)].count("/dev/null") == nulls
    for _ in range(5):
        assert len(ready.bulkwalk()) > 50
    assert_right(ready)
    assert ready.agent.running()


def test_start_ends_where_notifications_would_wait_for_ever(ready):
    """The last descriptor that the start opens is that which wakes the main thread for them."""
    ready.start_agent()
    wait_started(ready)
    descriptors = Path(f"/proc/{ready.agent.pid()}/fd")
    last = max(int(entry.name) for entry in descriptors.iterdir()
               if os.readlink(entry) == "anon_inode:[eventfd]")
    ready.agent.signal(signal.SIGTERM)
    ready.agent.wait()
    ready.start_agent(prefix=["prlimit", f"--nofile={last}"], wait=False)
    assert ready.agent.wait() == 1
    assert ready.agent_output().endswith(
        "init_snmp end....\nLibraryGate: no wake-up descriptor: Too many open files\n")


# The end of the process. Each state is a function that brings a running agent into it.

ROUNDS, WORLDS = 5, 4


def idle(world):
    pass


def polled(world):
    """Several managers that never pause."""
    if not hasattr(world, "polling"):
        world.polling = Polling(world, MANAGERS[:3], wrong=lambda line: False)
    before = sum(world.polling.answers())
    wait_until(lambda: sum(world.polling.answers()) > before + 10, 30, "answers to the managers")


def flooded(world):
    """Alarms without an end while managers poll."""
    polled(world)
    if not hasattr(world, "flooding"):
        world.flooding = world.flood(1_000_000)
    wait_until(lambda: "TrapAlarm::sendTrap" in world.agent_output(), 30, "a notification")


def unread_output(world):
    """Standard output and error go into one pipe, which is full and which nobody reads; what cannot
    be printed holds nobody up."""
    for _ in range(8):
        assert len(world.bulkwalk()) > 50
    assert_right(world)


def stopped_master(world):
    """Alarms wait for it."""
    world.master.signal(signal.SIGSTOP)
    world.flood(300).wait(30)


@pytest.mark.parametrize("state", [idle, silent_unit, polled, flooded, unread_output,
                                   stopped_master])
def test_sigterm(state):
    """The process is gone within 5 s, every time, and the master is none the worse for it."""
    def end_agents(number):
        with World() as world:
            world.start_unit()
            world.start_master()
            for _ in range(ROUNDS):
                is_unread = state is unread_output
                reader = start_piped(world, BOTH) if is_unread else world.start_agent()
                wait_started(world)
                state(world)
                world.agent.signal(signal.SIGTERM)
                assert world.agent.wait(5) == -signal.SIGKILL
                if is_unread:
                    os.close(reader)
                else:
                    assert "get SIGNUM!\n" in world.agent_output()
                    assert not (world.directory / "persistent/(null).conf").exists()
                world.ctl("fault", "none")
                world.master.signal(signal.SIGCONT)
                wait_until(lambda: not world.master.running() or world.master_answers(), 30,
                           "snmpd's answer")
                assert world.master.running()

    with ThreadPoolExecutor(WORLDS) as pool:
        list(pool.map(end_agents, range(WORLDS)))


def agent_process(world, prefix):
    """Process id of the agent, which unshare has as its child."""
    pid = world.agent.pid()
    if "--fork" in prefix:
        pid = int(Path(f"/proc/{pid}/task/{pid}/children").read_text())
    return pid


@pytest.mark.parametrize("prefix, status", [
    (["env", "PATH=/nonexistent"], -signal.SIGKILL),
    (["env", "PATH={bin}"], -signal.SIGKILL),
    (["env", "LD_PRELOAD={bin}/hang.so"], -signal.SIGKILL),
    (FIRST_PROCESS, 128 + signal.SIGKILL),
    (["env", "PATH=/nonexistent", "/usr/bin/unshare", *FIRST_PROCESS[1:]], 128 + signal.SIGKILL),
], ids=["no killall", "a killall that hangs", "a library that hangs", "first process", "first process, no killall"])
@pytest.mark.parametrize("state", [polled, silent_unit])
def test_sigterm_without_the_help_of_others(ready, tmp_path, state, prefix, status):
    """Of killall, the death by a signal and the library's shutdown. The objects go at once."""
    (tmp_path / "killall").write_text("#!/bin/sh\nexec /usr/bin/sleep 60\n")
    (tmp_path / "killall").chmod(0o755)
    subprocess.run(["cc", "-shared", "-o", tmp_path / "hang.so", "-xc", "-"], check=True, text=True,
                   input="int pause(); void snmp_shutdown(const char *name) { for (;;) pause(); }")
    ready.start_agent(prefix=[word.format(bin=tmp_path) for word in prefix])
    agent = agent_process(ready, prefix)
    # As the first process it has a handler from the beginning. What it answers behind this line it
    # answers with the last one installed.
    ready.wait_output("init_snmp end....\n")
    assert_right(ready)
    state(ready)
    os.kill(agent, signal.SIGTERM)
    assert ready.agent.wait(5) == status
    assert "get SIGNUM!\n" in ready.agent_output()
    wait_until(lambda: ready.get(SCALAR, timeout=1)[0].type == "noSuchObject", 5, "objects gone")


def test_sigterm_before_the_unit_has_answered(world):
    """Which the agent tells. The first process of a container has no default action."""
    world.start_agent(prefix=FIRST_PROCESS, wait=False)
    world.wait_output("_pComPortAdapter->open() end....\n02 07 ba 80 00 00 00 00 ")
    os.kill(agent_process(world, FIRST_PROCESS), signal.SIGTERM)
    assert world.agent.wait(5) == 128 + signal.SIGTERM
