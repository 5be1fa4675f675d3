"""Whoever ends, every alarm arrives, with or without the file of the backlog as promised.

With NORVA_LONG in the environment as many alarms and ends as make it hard."""

import os
import random
import re
import signal
import time

import pytest

from conftest import wait_started
from receiver import V2C_SINK
from test_outages import FIRST, SCALARS, assert_right, start as serve
from world import ALARM_OBJECT, WorldError, wait_until

LONG = bool(os.environ.get("NORVA_LONG"))
COUNT, ENDS = (20_000, 40) if LONG else (3_000, 6)
PATIENT_MASTER = V2C_SINK + "agentXTimeout 90\nagentXRetries 0\n"


def start(world, *settings, **options):
    """The file of the backlog, if the settings name one, is `backlog` in the work directory."""
    return serve(world, "norvaTrace no", *settings, master=PATIENT_MASTER, **options)


def in_file(world):
    return f"norvaBacklogFile {world.directory}/backlog"


def end(world, number):
    """The agent ends and is started again."""
    wait_started(world)
    world.agent.signal(number)
    assert world.agent.wait(5) == -signal.SIGKILL
    world.start_agent(wait=False)


def arrived(receiver):
    """The numbers of the alarms, each with its sequence number, which it has whenever it comes."""
    numbers = {}
    for event in receiver.received():
        assert numbers.setdefault(int(event.text4), event.sequence) == event.sequence
    return numbers


def wait_for(receiver, number, timeout=90):
    wait_until(lambda: number in arrived(receiver), timeout, f"alarm {number}")


def trouble(world, rng):
    """Something happens to the master."""
    what = rng.choice(["away", "stopped", "restarted", "none"])
    if what == "stopped":
        world.master.signal(signal.SIGSTOP)
        time.sleep(rng.random())
        world.master.signal(signal.SIGCONT)
    elif what != "none":
        world.master.kill()
        time.sleep(rng.random() if what == "away" else 0)
        world.start_master(PATIENT_MASTER)


@pytest.mark.parametrize("between, backlog", [(None, 1000), (trouble, COUNT)])
def test_ends_lose_nothing_with_the_file(world, between, backlog):
    rng = random.Random(21)
    receiver = start(world, in_file(world), f"norvaBacklog {backlog}")
    posting = world.flood(COUNT)
    for number in range(ENDS):
        try:
            wait_for(receiver, (number + 1) * COUNT // (ENDS + 2), 3)
        except WorldError:
            pass  # the master is away: so it ends at another moment
        if between:
            between(world, rng)
        end(world, signal.SIGKILL if number % 2 else signal.SIGTERM)
        world.wait_output("notifications were taken over from", 90)
    assert posting.wait(90) == 0
    wait_for(receiver, COUNT)
    assert arrived(receiver) == {number: number for number in range(1, COUNT + 1)}
    assert "dropped" not in world.agent_output()


@pytest.mark.parametrize("backlog", [150, 0])
def test_sigterm_takes_nothing_with_it(world, backlog):
    """Without a file. What the agent has taken leaves with it, but for what it has in hand."""
    receiver = start(world, f"norvaBacklog {backlog}")
    posting = world.flood(COUNT)
    ends = 4 if LONG else 2
    for number in range(ends):
        seen = len(receiver.received())
        receiver.wait(seen + COUNT // (ends + 2), 90)
        end(world, signal.SIGTERM)
    assert posting.wait(90) == 0
    wait_until(lambda: receiver.received()[-1].text4 == str(COUNT), 90, "the last alarm")
    received = {int(event.text4) for event in receiver.received()}
    assert len(set(range(1, COUNT + 1)) - received) <= ends


# What can be wrong with the file: what is done to it, and what the agent says at its next start.

def full_disk(world, path):
    world.inside("mkdir disk; mount -t tmpfs -o size=64k tmpfs disk")
    world.settings("norvaTrace no", f"norvaBacklogFile {world.directory}/disk/backlog")
    return "No space left on device, notifications are kept in memory only"


def cut(world, path):
    os.truncate(path, 0)
    world.ctl("alarm", "raise", ALARM_OBJECT)  # this one may be lost
    world.wait_output("backlog: it was cut short, notifications are kept in memory only\n", 90)
    return "0 notifications were taken over from"


@pytest.mark.parametrize("fault", [full_disk, cut])
def test_a_bad_file(world, fault):
    """It is used when it goes bad. Before and after its next start the agent serves; no more is lost
    than without a file."""
    receiver = start(world, in_file(world))
    world.flood(100).wait(90)
    receiver.wait(100, 90)
    said = fault(world, world.directory / "backlog")
    world.flood(300).wait(90)
    wait_until(lambda: receiver.received()[-1].text4 == "300", 90, "the alarms behind it")
    assert [event.text4 for event in receiver.received()[-300:]] == [str(number) for number in range(1, 301)]
    assert world.agent_output().count("cut short") <= 1
    assert_right(world)
    world.agent.kill()
    world.start_agent()
    world.wait_output(said, 90)
    assert_right(world)
    seen = len(receiver.received())
    world.flood(200).wait(90)
    numbers = [event.sequence for event in receiver.wait(seen + 200, 90)[seen:]]
    assert numbers == list(range(numbers[0], numbers[0] + 200))


def answer(world):
    """The reply that a GET of the scalar waits for."""
    world.ctl("reply", (b"\x12\x07\0\x00\x01\x01" + SCALARS[FIRST].to_bytes(4, "little")).hex())


@pytest.mark.parametrize("settings", [[], ["norvaBacklog 0"],
                                      ["norvaDeviceTimeout 60", "norvaStrictSet yes", "file"]],
                         ids=["no settings", "no backlog", "with a file"])
def test_alarms_in_front_of_a_reply(world, settings):
    """The unit posts many alarms before it replies, and gets to its reply; the request holds up no
    notification."""
    count = 5_000
    receiver = start(world, *[in_file(world) if line == "file" else line for line in settings])
    manager = world.hang(FIRST, count=1)
    assert world.flood(count).wait(90) == 0
    receiver.wait(60, 90)
    assert manager.running()
    answer(world)
    assert manager.wait(30) == 0 and str(SCALARS[FIRST]) in manager.output()
    world.ctl("alarm", "raise", ALARM_OBJECT, "--text4", str(count + 1))
    wait_for(receiver, count + 1)
    numbers = arrived(receiver)
    assert all(number == sequence for number, sequence in numbers.items())
    missing = count + 1 - len(numbers)
    wait_until(lambda: missing > 0 and missing == sum(map(int, re.findall(
        r"(\d+) notifications were dropped, the oldest", world.agent_output()))), what="all counted")


# Asks for the scalar 400 times at once; ends well when each was answered, and right.
REQUESTS = """
import socket, time
manager = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
manager.settimeout(90)
for number in range(400):
    manager.sendto(bytes.fromhex("3032 020101 0406 7075626c6963 a025 0204 %08x 020100 020100 3017"
                                 "3015 0611 2b0601040183a124080202040101010100 0500" % number),
                   ("127.0.0.1", 1161))
    time.sleep(0.002)
answers = set()
while len(answers) < 400:
    answers.add(manager.recv(2000))
assert all(answer.endswith(bytes.fromhex("0202 03ef")) for answer in answers)
"""


def test_long_names(world):
    """Many requests wait, the unit is slow, alarms come: agent and master go on."""
    receiver = start(world, "norvaDeviceTimeout 20", name="n" * 3000)
    world.ctl("fault", "delay", 20)
    requests = world.spawn("requests", ["/usr/bin/python3", "-c", REQUESTS])
    count = 1000
    assert world.flood(count).wait(90) == 0
    wait_for(receiver, count)
    assert requests.wait(90) == 0
    world.ctl("fault", "none")
    assert arrived(receiver) == {number: number for number in range(1, count + 1)}
    assert {len(event.name) for event in receiver.received()} == {3000}
    assert_right(world)
