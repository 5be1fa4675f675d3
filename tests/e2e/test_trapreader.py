"""monitoring/trapreader by itself: from the lines of snmptrapd to the page of metrics."""

import json
import signal
import sys

import pytest

from reading import Reading
from receiver import BASE
from world import SOURCE, wait_until

sys.path.insert(0, str(SOURCE / "monitoring"))
import trapline  # noqa: E402
import trapstate  # noqa: E402

UNIT = "192.0.2.7"


def line(number, value="New Alarm", name="Fan Failure Alarm", *, text="Quay", unit=UNIT, when=1000,
         kind=96, device=8):
    """As snmptrapd writes it. `text` may be bytes."""
    def octets(one):
        one = one if isinstance(one, bytes) else one.encode()
        return '"' + "".join(f"{octet:02X} " for octet in one) + '"'
    fields = [octets(name), octets(value), device, octets(text), '""', '""', number]
    return "\t".join([str(when), f"UDP: [{unit}]:161->[192.0.2.1]:162", ".1.3.6.1.2.1.1.3.0 0:0:00:03.16",
                      f".1.3.6.1.6.3.1.1.4.1.0 {BASE}.{kind}",
                      *(f"{BASE}.{place} {field}" for place, field in enumerate(fields, 1))])


def parse(*args, **options):
    return trapline.parse(line(*args, **options))


@pytest.mark.parametrize("octets, text", [
    (b'a\nb\t"c"\\ <script>&', 'a\nb\t"c"\\ <script>&'), ("Grüße \u0085".encode(), "Grüße \u0085"),
    (b"K\xf6ln \x9b", "Köln \x9b"), (b"x" * 1500, "x" * 255), (b"a\0", "a\u2400"),
    (f"\n1000\tUDP: [192.0.2.8]:1\t{BASE}.7 9".encode(), f"\n1000\tUDP: [192.0.2.8]:1\t{BASE}.7 9")])
def test_texts(octets, text):
    """Whole, bounded, and no other field or line."""
    event = parse(5, text=octets, name=octets)
    assert (event.unit, event.kind, event.device, event.sequence) == (UNIT, "alarm", "8", 5)
    assert event.name == event.texts[0] == text and len(trapline.alarm_label(text)) <= 128
    said = trapline.sentence(event)
    assert not any(ord(character) < 32 or 127 <= ord(character) < 160 for character in said)


def test_other_lines():
    for text in ("", "NET-SNMP version 5.9.3", line(1, kind=95), line(1)[30:], line(1).replace("[", "")):
        assert trapline.parse(text) is None
    for text in (line(1, text="x" * 5000), line("one"), line(1).replace("New".encode().hex(" ").upper(), "xx"),
                 line(1) + f"\t{BASE}.1 5", line(1).rpartition("\t")[0], line(1, device='"38 "')):
        with pytest.raises(trapline.BadLine):
            trapline.parse(text)
    assert trapline.parse(line(1, unit="2001:db8::1").replace("UDP", "UDP/IPv6")).unit == "2001:db8::1"
    events = [parse(1, kind=kind, device=-kind) for kind in (96, 97, 98, 99)]
    assert [f"{event.kind} {event.device}" for event in events] == [
        "alarm -96", "remote_unit -97", "general -98", "heartbeat -99"]
    assert trapline.alarm_label("PA-Failure (2) Alarm") == "pa_failure_2"


# Each: numbers and values in the order of arrival; since which one the alarm is raised at the end, 0
# for not; numbers lost, repeated, new starts. They come in the second of their number, or as said.
NEW, CLEAR = "New Alarm", "Clear Alarm"
ORDERS = {
    "sent again": ([(1, NEW), (2, CLEAR), (1, NEW, 900)], 0, (0, 1, 0)),
    "all sent again": ([(number, NEW) for number in range(1, 201)] * 2, 1, (0, 200, 0)),
    "two lost, raised anew": ([(1, NEW), (4, CLEAR), (5, NEW)], 5, (2, 0, 0)),
    "late, in any order": ([(number, NEW) for number in (1, *range(200, 1, -1))], 1, (0, 0, 0)),
    "late, but not all of them": ([(number, NEW) for number in (1, 400, *range(399, 143, -1))], 1, (142, 0, 0)),
    "overtaken": ([(1, NEW), (3, NEW), (2, CLEAR)], 1, (0, 0, 0)),
    "new start by another 1, after a gap and before one that closes": (
        [(1, NEW), (3, NEW), (1, CLEAR), (3, NEW), (2, NEW)], 3, (1, 0, 1)),
    "new start, its first two lost": ([(7, NEW), (3, NEW)], 7, (2, 0, 1)),
    "new start, beginning as the last": ([(1, NEW), (2, CLEAR), (1, NEW), (2, NEW), (1, NEW)], 2, (0, 2, 1)),
    "numbers that go on, hours later": ([(8, NEW), (9, CLEAR), (8, NEW, 9000), (9, CLEAR, 9000),
                                         (10, NEW, 9000)], 9000, (0, 2, 0)),
    "the same 1, hours later": ([(1, NEW), (2, CLEAR), (1, NEW, 9000)], 9000, (0, 0, 1)),
}


@pytest.mark.parametrize("events, since, counts", ORDERS.values(), ids=ORDERS)
def test_numbers(events, since, counts):
    state = trapstate.new_state()
    for number, value, *when in events:
        trapstate.fold(state, parse(number, value, when=when[0] if when else number))
    assert [alarm["since"] for _, _, alarm in trapstate.raised(state)] == [since] * bool(since)
    unit = state["units"][UNIT]
    assert (unit["lost"], unit["repeated"], unit["start"]) == counts
    assert bool(unit["gap"]) == bool(counts[0])


def test_bounds(monkeypatch):
    """Whoever sends most loses first: alarms that have ended, then the oldest."""
    monkeypatch.setattr(trapstate, "MAX_UNITS", 2)
    monkeypatch.setattr(trapstate, "MAX_ALARMS", 20)
    monkeypatch.setattr(trapstate, "MAX_BYTES", 12000)
    monkeypatch.setattr(trapstate, "LATE", 100)
    state = trapstate.new_state()

    def alarms(unit):
        return [label.partition("/")[0] for of, label, _ in trapstate.raised(state) if of == unit]
    for number in range(1, 6):
        trapstate.fold(state, parse(number, name=f"a{number}", unit="192.0.2.1"))
    trapstate.fold(state, parse(1, name="b1"))
    trapstate.fold(state, parse(2, "Clear Alarm", name="b2"))
    for number, first, forgotten in [*((number, 1, 0) for number in range(3, 22)), (22, 3, 1), (23, 4, 2)]:
        trapstate.fold(state, parse(number, name=f"b{number}"))
        assert alarms(UNIT)[0] == f"b{first}" and state["forgotten"] == forgotten
    assert len(alarms(UNIT)) == 20
    for number in range(24, 200):
        trapstate.fold(state, parse(number, name=f"b{number}", text="x" * 2000))
    assert len(alarms("192.0.2.1")) == 5 and alarms(UNIT)[-1] == "b199" and len(alarms(UNIT)) == 20
    monkeypatch.setattr(trapstate, "MAX_BYTES", 5000)
    for number in range(200, 203):
        trapstate.fold(state, parse(number, name="b200"))
    assert len(alarms("192.0.2.1")) == 5 and state["size"] <= 5000
    assert len(state["units"][UNIT]["recent"]) == trapstate.LATE
    trapstate.fold(state, parse(203, name="b200", when=9000))
    assert len(state["units"][UNIT]["recent"]) == trapstate.RECENT
    assert not trapstate.fold(state, parse(1, unit="192.0.2.9")) and state["ignored"] == 1
    assert trapstate.clear(state, "192.0.2.1", "a1", "7") == 0
    assert trapstate.clear(state, "192.0.2.1", "a1", "8") == 1
    assert trapstate.forget(state, "192.0.2.1") == 4 and len(state["units"]) == 1
    assert state["size"] == sum(trapstate._size(*alarm) for alarm in state["units"][UNIT]["alarms"].items())


@pytest.fixture
def reading(tmp_path):
    made = Reading(tmp_path)
    yield made
    made.end(signal.SIGKILL)
    print((tmp_path / "output").read_text())


def test_reader(reading):
    """What came is on the page, survives a kill once it is saved, and is ended by hand."""
    reading.start(*reading.fifo)
    nasty = b'a\n# HELP x"\\ <script>K\xf6ln'
    reading.send("NET-SNMP version 5.9.3", line("bad"), "x" * 3000000,
                 *(line(number, name=f"Alarm {number}", text=nasty) for number in range(1, 501)))
    wait_until(lambda: reading.metric("notifications_total") == 500, 90, "all of them")
    assert reading.metric("malformed_total") == 1
    assert reading.metric("heartbeat_timestamp_seconds") is None  # never
    assert r'name="Alarm 7",texts="a\n# HELP x\"\\ <script>Köln"} 1000.0' in reading.page()
    wait_until(lambda: len(json.loads((reading.directory / "state.json").read_text())["units"]) == 1,
               90, "the state saved")
    reading.send(line(501, name="Alarm 501"), line(501, name="Alarm 501"), line(502, kind=99))
    wait_until(lambda: reading.metric("heartbeat_timestamp_seconds") == 1000, 90, "one more")
    assert reading.end(signal.SIGTERM) == 0  # saves
    reading.start(*reading.fifo)
    assert reading.metric("notifications_total") == 501
    assert reading.order("--clear", UNIT, "7").stdout == "0 alarms ended\n"
    assert reading.order("--clear", UNIT, "alarm_7").stdout == "1 alarms ended\n"
    reading.end(signal.SIGKILL)
    reading.start(*reading.fifo)
    assert 'alarm="alarm_8"' in reading.page() and 'alarm="alarm_7"' not in reading.page()
    assert reading.order(*reading.fifo).returncode == 1  # one only
    assert reading.order("--forget", UNIT).stdout == "500 alarms ended\n"
    assert "192.0.2.7" not in reading.page()
    said = (reading.directory / "output").read_text()
    assert f"{UNIT}: New Alarm, Alarm 7, device 8, number 7: a?# HELP x" in said
    assert said.count(": New Alarm, ") == 501  # neither repeated ones nor heartbeats


# A journal of the lines in the file beside it. What it began with, cursor or second, is a line's number.
JOURNALCTL = """#!/bin/sh
for begin; do :; done
case $begin in
  --cursor=c[0-9] | --since=@[0-9]) exec /usr/bin/tail -n "+${begin##*[c@]}" -f --pid=$PPID "$0.lines" ;;
  *) exit 1 ;;
esac
"""


def test_journal(reading, monkeypatch):
    """Each notification once, also where cursor or state is damaged, or journalctl ends."""
    journalctl, state = reading.directory / "journalctl", reading.directory / "state.json"
    journalctl.write_text(JOURNALCTL)
    journalctl.chmod(0o755)
    monkeypatch.setenv("PATH", str(reading.directory))

    def log(number, message=None):
        entry = {"MESSAGE": message or line(number, when=number), "__CURSOR": f"c{number}"}
        with open(f"{journalctl}.lines", "a", encoding="utf-8") as file:
            print(json.dumps(entry), file=file)

    def reads(last, repeated=0):
        wait_until(lambda: reading.metric("sequence") == last, 90, f"notification {last}")
        assert reading.metric("notifications_total") == last - 1
        assert reading.metric("repeated_total") == repeated

    log(1, [0xFF, 0x28])  # no text
    log(2)
    state.write_text('{"units": ')
    reading.start()
    reads(2)
    assert list(reading.directory.glob("state.json.*"))
    for number, cursor, repeated in ((3, "c2", 0), (4, "another journal's", 1)):
        reading.end(signal.SIGTERM)
        state.write_text(state.read_text().replace(f'"c{number - 1}"', f'"{cursor}"'))
        log(number)
        reading.start()
        reads(number, repeated)
    reading.end_child()
    log(5)
    reads(5, 1)
    journalctl.unlink()
    reading.end_child()
    assert reading.process.wait(90) == 1
    assert (reading.directory / "output").read_text().endswith("journalctl: No such file or directory\n")
