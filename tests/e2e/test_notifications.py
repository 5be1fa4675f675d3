"""Events of the unit and the heartbeat, as a real receiver gets them."""

import re
import time

import pytest

from conftest import printed
from receiver import V2C, V2C_SINK, V3, V3_SINK, Notification, serve_received
from world import ROOT, wait_until

ALARM, RU_CHANGE, GENERAL, HEARTBEAT = range(96, 100)
INTERVAL, SWITCH = "0x0ffa", "0x0ffb"


def start(world, sinks, *commands):
    """A receiver with the sample unit, changed by commands, and its agent."""
    # Not asked for anything before it has printed the last line of its start.
    receiver = serve_received(world, f"set {INTERVAL} 255", *commands, sinks=sinks, wait=False)
    world.wait_output("_heartBeatInterval is changed to ")
    world.wait_served()
    return receiver


@pytest.fixture(scope="module")
def receiver(shared_world):
    return start(shared_world, V2C_SINK)


def post(receiver, *words):
    """What a command to the unit makes arrive, in front of an event that is posted behind it."""
    before = len(receiver.received())
    receiver.world.ctl(*words)
    receiver.world.ctl("event", "report", "0x0409", "--text4", "behind it")
    wait_until(lambda: "behind it" in [event.text4 for event in receiver.received()[before:]],
               what="the event behind it")
    received = receiver.received()
    assert [event.sequence for event in received] == list(range(1, len(received) + 1))
    return [event._replace(sequence=None) for event in received[before:-1]]


def wait_printed(world, text, after=0):
    wait_until(lambda: text in printed(world, after), what=f"printed: {text}")


def notification(kind, name, value, device=0, text4="", text5="", text6="", via=V2C):
    return Notification(via, kind, name, value, device, text4, text5, text6, None)


@pytest.mark.parametrize("command, kind, name, value", [
    ("alarm raise 0x0403", ALARM, "Over Temperature Alarm", "New Alarm"),
    ("alarm clear 0x0403", ALARM, "Over Temperature Alarm", "Clear Alarm"),
    ("ru add 0x0408", RU_CHANGE, "RU ", "Add RU"),
    ("ru remove 0x0408 --ru 1,1,1", RU_CHANGE, "", "Remove RU"),
    ("event report 0x0409", GENERAL, "GeneralTrap", "Report GeneralTrap"),
    ("alarm raise 0x0403 --type 4", HEARTBEAT, "Over Temperature Alarm", ""),
])
def test_event(receiver, command, kind, name, value):
    texts = {"text4": "4" * 64, "text5": "five", "text6": "six"}
    options = [word for text, content in texts.items() for word in (f"--{text}", content)]
    before = len(receiver.world.agent_output())
    assert post(receiver, *command.split(), "--device-id", 200, *options) == [
        notification(kind, name, value, 200, **{**texts, "text4": "4" * 64 + "six"})]
    wait_printed(receiver.world, "receivebuf len is 213 \n"
                 + (f"val is {value}, name is {name} \n" if kind == ALARM else "")
                 + f"TrapAlarm::sendTrap trapmsg.deviceId=200\nstring is {name} \n"
                   f"string is {value} \nreceivebuf len is 213 \n", before)


@pytest.mark.parametrize("command, line", [
    ("alarm raise 0x1000", "get name is "),  # a table cell's object
    ("alarm raise 0x0403 --type 5", "TrapAlarm::sendTrap no notification for msgType 5\n"),
    ('post ""', "receivebuf len is 0 \nnot receive !!\n"),
    ("post 000000010000000000", "receivebuf len is 9 \n"),  # too short for an object
    ("post --size 1025", "alarm message too large to receive, taken off the queue\n"),
])
def test_event_without_notification(receiver, command, line):
    """Nothing arrives and no sequence number is used."""
    before = len(receiver.world.agent_output())
    assert post(receiver, *[word.strip('"') for word in command.split()]) == []
    receiver.world.wait_output(line, after=before)


@pytest.mark.parametrize("command, context, device_byte, device", [
    ("set 0x0611 0", "", 0x41, 8),
    ("set 0x0611 2", "DAS_NORVA", 0, 0),
    ("delete 0x0611", "", 0xFF, 86),
])
def test_what_the_agent_reads_at_its_start(world, command, context, device_byte, device):
    """The master's sinks decide version and kind on the wire, the unit only the context name."""
    informs = V2C_SINK.replace("trap2sink", "informsink")
    receiver = start(world, V2C_SINK + V3_SINK + informs, command, f"set 0x0102 {device_byte}")
    wait_printed(world, f"Init _trapType is {2 if context else 1} \n"
                        "Init _heartBeatInterval is 255 \n"
                        f"SnmpEventNotify::initHeartBeatMsg heartMsg.deviceId={device}\n"
                        "SnmpEventNotify::run send heartbeat \n"
                        "_heartBeatInterval is changed to 255 \n")
    world.ctl("alarm", "raise", "0x0403", "--device-id", 8)
    first = notification(ALARM, "Over Temperature Alarm", "New Alarm", 8)._replace(sequence=1)
    v3 = V3.replace("DAS_NORVA", context)
    assert sorted(receiver.wait(3)) == [first._replace(via=f"@INFORM, {V2C}"), first,
                                        first._replace(via=v3)]


def test_heartbeat_without_a_pause(world):
    """Switched by the unit and by a manager; its sequence numbers are shared with the alarms."""
    receiver = start(world, V2C_SINK, f"set {INTERVAL} 0", f"set {SWITCH} 0",
                     f'add 0x0005 text 64 ro "{"m" * 64}"')
    world.ctl("set", "0x0600", "moved")  # the payload is read once, at the start

    def wait_cycles():
        def cycles():
            return int(re.search(r"gets (\d+)", world.ctl("stats", SWITCH))[1])
        end = cycles() + 3
        wait_until(lambda: cycles() >= end, what="cycles of the heartbeat")

    def alarm():
        """Raises an alarm; its place in what is received."""
        before = len(receiver.received())
        world.ctl("alarm", "raise", "0x0403")
        wait_until(lambda: ALARM in [event.kind for event in receiver.received()[before:]])
        return [event.kind for event in receiver.received()].index(ALARM, before)

    cycle = "SnmpEventNotify::run send heartbeat \n_heartBeatInterval is changed to 0 \n"
    wait_cycles()
    assert alarm() == 0
    wait_printed(world, cycle + "_heartBeatSwFlag is changed to 0 \nsend heartTrap end \n" + cycle)

    world.ctl("set", SWITCH, 1)
    receiver.wait(20)
    assert alarm() >= 20
    world.set(f"{ROOT}.1.1.3.3.0", "i", 0)
    wait_cycles()
    last = alarm()
    wait_cycles()
    assert alarm() == last + 1
    world.set(f"{ROOT}.1.1.3.3.0", "i", 7)
    receiver.wait(last + 20)
    wait_printed(world, cycle + "_heartBeatSwFlag is changed to 7 \n_alarmTrap->sendTrap \n"
                 "TrapAlarm::sendTrap trapmsg.deviceId=8\nstring is heartbeat \nstring is 1 \n"
                 "send heartTrap end \n" + cycle)

    received = receiver.received()
    assert [event.sequence for event in received] == list(range(1, len(received) + 1))
    heartbeats = [event for event in received if event.kind != ALARM]
    assert heartbeats == [
        Notification(V2C, HEARTBEAT, "heartbeat", str(number % 2), 8, "Harbour Terminal",
                     "NDAS 4.2.1", "m" * 63, beat.sequence)
        for number, beat in enumerate(heartbeats)]


def test_heartbeat_without_queues(world):
    """The system has none left to give: both threads pause behind each failure."""
    start(world, V2C_SINK, f"set {INTERVAL} 0")
    world.run("sh", "-c", "echo 0 >/proc/sys/kernel/msgmni && ipcrm --all=msg")
    assert world.unit.wait() == 1
    world.wait_output("called, failed: errno: Invalid argument, error code:22\n")
    before = len(world.agent_output())
    time.sleep(2)
    for line in ("SnmpEventNotify::run send heartbeat", "receivebuf len is -1"):
        assert world.agent_output()[before:].count(line) in range(1, 60), line
