"""Outages of the unit and of the master: what is lost, and how soon it is served again.

Some take their time only with NORVA_LONG in the environment."""

import os
import signal
import subprocess
import time

import pytest

from polling import Polling
from receiver import V2C_SINK, Receiver
from test_agent_objects import own
from world import ALARM_OBJECT, ROOT, empty_schema, parse_varbinds, scalar_row, wait_until

LONG = bool(os.environ.get("NORVA_LONG"))
# What the shipped configuration of the master gives the agent.
PATIENT_MASTER = V2C_SINK + "agentXTimeout 15\nagentXRetries 0\n"
TIMEOUT = 1  # norvaDeviceTimeout of most tests
SCALARS = {f"{ROOT}.1.1.1.{n}.0": 1000 * n + 7 for n in range(1, 11)}
FIRST, *OTHERS = SCALARS


def start(world, *settings, master=V2C_SINK, ping=1, name="Alarm", **agent):
    """Ten scalars, each with a value of its own, and one of this name for alarms."""
    world.start_unit(f'{ALARM_OBJECT} unsigned 1 rw 0\n' + "".join(
        f"{0x0100 + n:#06x} unsigned 4 rw {value}\n"
        for n, value in enumerate(SCALARS.values(), 1)))
    receiver = Receiver(world)
    world.start_master(master)
    world.settings(*settings, ping=ping)
    rows = [scalar_row(0x0100 + n, n) for n in range(1, 11)]
    world.database = world.make_database(
        *empty_schema(), *rows, scalar_row(0x0403, 99, name=name), base=False)
    world.start_agent(**agent)
    return receiver


def sequences(receiver):
    return [event.sequence for event in receiver.received()]


def assert_right(world):
    assert {bound.oid: bound.value for bound in world.get(*SCALARS)} == SCALARS


def is_right(world, oid=FIRST):
    return world.get(oid, timeout=1)[0].value == SCALARS[oid]


def poll(world):
    """Managers that never pause, each asking for objects of its own; no answer is wrong."""
    def wrong(line):
        return line.startswith(".") and any(value not in (SCALARS[oid], None)
                                            for oid, _, value in parse_varbinds(line))
    return Polling(world, [f"snmpget -v2c -c public -Onx -r0 -t20 127.0.0.1:1161 "
                           f"{' '.join(list(SCALARS)[n:n + 3])}" for n in range(5)],
                   OTHERS[-1], wrong)


def test_control_process_killed_in_the_middle_of_a_request_and_silent(world):
    receiver = start(world, f"norvaDeviceTimeout {TIMEOUT}", master=PATIENT_MASTER)
    polling = poll(world)
    for number in range(1, 21):
        world.hang(*SCALARS)
        world.unit.kill()
        world.start_unit()
        wait_until(lambda: is_right(world), TIMEOUT + 5, f"a right answer after death {number}")
        world.ctl("alarm", "raise", ALARM_OBJECT)
        receiver.wait(number)
    assert_right(world)
    world.ctl("fault", "silent")
    time.sleep(5)
    assert world.flood(1000).wait(30) == 0
    time.sleep(50 if LONG else 3)
    world.ctl("fault", "none")
    wait_until(lambda: is_right(world), 5, "a right answer")
    assert_right(world)
    receiver.wait(1020)
    assert sequences(receiver) == list(range(1, 1021))
    assert [int(event.text4) for event in receiver.received()[20:]] == list(range(1, 1001))
    assert min(polling.stop()) > 0


def test_late_acknowledgement_is_no_answer(world):
    """A write's time runs out, its acknowledgement comes while a read waits."""
    start(world, f"norvaDeviceTimeout {TIMEOUT}", master=PATIENT_MASTER)
    world.ctl("fault", "delay", 1500, "--count", 1, "--on", "set")
    world.set(FIRST, "i", SCALARS[FIRST])
    assert is_right(world, OTHERS[0])


def test_silent_unit_costs_a_request_its_time_once(world):
    """Ten objects of a unit that says nothing are answered in the time of one, and the session
    stays. Without the trace nothing is printed for what succeeds; failures are."""
    receiver = start(world, "norvaTrace no", "norvaDeviceTimeout 3", master=PATIENT_MASTER)
    world.wait_output("Init _heartBeatInterval is 255 \n")
    assert_right(world)
    time.sleep(0.2)
    before = len(world.agent_output())
    assert_right(world)
    world.set(FIRST, "i", SCALARS[FIRST])
    world.ctl("alarm", "raise", ALARM_OBJECT)
    receiver.wait(1)
    world.ctl("fault", "silent")
    asked = time.monotonic()
    assert [bound.type for bound in world.get(*SCALARS)] == ["noSuchInstance"] * 10
    assert 3 <= time.monotonic() - asked < 6
    failed = "SnmpAgentX::read_Var  getObjValue ERROR  oid = {:X} !!!!!!!!!!!\n"
    lines = ("called, failed: errno: Connection timed out, error code:110\n"
             "DataManage::getObjValue  readData error!\n"
             "object 0x0101: no reply of the unit in time\n" + failed.format(0x101) + "".join(
                 f"object {oid:#06x}: not asked for, the unit is silent\n" + failed.format(oid)
                 for oid in range(0x102, 0x10b)))
    wait_until(lambda: world.agent_output()[before:] == lines, what="these lines")
    world.ctl("fault", "none")
    assert_right(world)


@pytest.mark.parametrize("settings, alarms, kept", [
    ([], 5000, 1000), (["norvaBacklog 0"], 200, 0)], ids=["default", "0"])
def test_master_away(world, settings, alarms, kept):
    """The control process is not held up, and what is kept arrives."""
    receiver = start(world, "norvaAgentObjects yes", *settings)
    world.master.kill()
    begin = time.monotonic()
    assert world.flood(alarms).wait(30) == 0
    assert time.monotonic() - begin < 10
    time.sleep(20 if LONG else 2)
    world.start_master(V2C_SINK)
    world.wait_served()
    world.ctl("alarm", "clear", ALARM_OBJECT)
    wait_until(lambda: sequences(receiver)[-1:] == [alarms + 1], what="the alarm behind them")
    assert sequences(receiver) == list(range(alarms - kept + 1, alarms + 2))
    assert [int(event.text4 or event.sequence) for event in receiver.received()] == (
        sequences(receiver)), "each under its own number"
    dropped = f"{alarms - kept} notifications were dropped, the oldest, while the master took none\n"
    if kept:
        world.wait_output(dropped)
        counts = own(world)
        assert counts["MasterSessions"] == 2
        assert (counts["NotificationsTaken"], counts["NotificationsDropped"]) == (
            alarms + 1, alarms - kept)
    assert world.agent_output().count(dropped) == (kept > 0)


def test_master_killed_in_a_flood(world):
    """Every alarm arrives at least once, in order within a session, twice under one number only."""
    count, restarts = (20_000, 20) if LONG else (8_000, 6)
    receiver = start(world, "norvaBacklog 20000", stdout=subprocess.DEVNULL)
    posting = world.flood(count)
    for number in range(restarts):
        receiver.wait(number * count // (restarts + 1), 30)
        world.master.kill()
        world.start_master(V2C_SINK)
        world.wait_served()
    assert posting.wait(30) == 0
    wait_until(lambda: sequences(receiver)[-1:] == [count], 60, "the last alarm")
    received = receiver.received()
    assert all(int(event.text4) == event.sequence for event in received)
    assert {event.sequence for event in received} == set(range(1, count + 1))
    back = [after for before, after in zip(received, received[1:])
            if after.sequence != before.sequence + 1]
    assert len(back) <= restarts


@pytest.mark.parametrize("ping", [1, 15, 300] if LONG else [1, 300])
def test_master_stopped(world, ping):
    receiver = start(world, ping=ping)
    last = 0
    for seconds in (3, 8, 25) if LONG else (3, 8):
        world.master.signal(signal.SIGSTOP)
        assert world.flood(500).wait(30) == 0
        time.sleep(seconds)
        world.master.signal(signal.SIGCONT)
        last += 500
        wait_until(lambda: sequences(receiver)[-1:] == [last], 40, f"all alarms, {seconds} s")
        assert set(sequences(receiver)) == set(range(1, last + 1))
    if ping == 300:  # one session: nothing twice, although the library would repeat it
        assert sequences(receiver) == list(range(1, last + 1))
