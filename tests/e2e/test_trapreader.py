"""monitoring/trapreader by itself: from the lines of snmptrapd to the page of metrics."""

import json
import os
import re
import signal
import socket
import subprocess
import sys
import urllib.request

import pytest

from receiver import BASE
from world import SOURCE, wait_until

MONITORING = SOURCE / "monitoring"
READER = MONITORING / "trapreader"
sys.path.insert(0, str(MONITORING))
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
    (b"K\xf6ln \x9b", "Köln \x9b"), (b"x" * 300, "x" * 255), (b"a\0", "a\u2400"),
    (f"\n1000\tUDP: [192.0.2.8]:1\t{BASE}.7 9".encode(), f"\n1000\tUDP: [192.0.2.8]:1\t{BASE}.7 9")])
def test_texts(octets, text):
    """Whole, bounded, and no other field or line."""
    event = parse(5, text=octets, name=octets)
    assert (event.unit, event.kind, event.device, event.sequence) == (UNIT, "alarm", "8", 5)
    assert event.name == event.texts[0] == text
    said = trapline.sentence(event)
    assert not any(ord(character) < 32 or 127 <= ord(character) < 160 for character in said)


@pytest.mark.parametrize("text", [
    line(1, text="x" * 5000), line("one"), line(1).replace("New".encode().hex(" ").upper(), "xx"),
    line(1) + f"\t{BASE}.1 5", line(1).rpartition("\t")[0], line(1, device='"38 "')])
def test_bad_lines(text):
    with pytest.raises(trapline.BadLine):
        trapline.parse(text)


def test_other_lines():
    for text in ("", "NET-SNMP version 5.9.3", line(1, kind=95), line(1)[30:], line(1).replace("[", "")):
        assert trapline.parse(text) is None
    assert parse(1, unit="2001:db8::1").unit == "2001:db8::1"


# Each: numbers and values in the order of arrival; whether the alarm is raised at the end; numbers
# lost, repeated, new starts.
ORDERS = {
    "as sent": ([(1, "New Alarm"), (2, "Clear Alarm")], False, (0, 0, 0)),
    "sent again": ([(1, "New Alarm"), (2, "Clear Alarm"), (1, "New Alarm")], False, (0, 1, 0)),
    "two lost": ([(1, "New Alarm"), (4, "Clear Alarm")], False, (2, 0, 0)),
    "overtaken": ([(1, "New Alarm"), (3, "New Alarm"), (2, "Clear Alarm")], True, (0, 0, 0)),
    "new start": ([(7, "New Alarm"), (1, "Clear Alarm")], False, (0, 0, 1)),
    "new start, its first two lost": ([(7, "New Alarm"), (3, "New Alarm")], True, (2, 0, 1)),
    "new start, beginning as the last": ([(1, "New Alarm"), (2, "Clear Alarm"), (1, "New Alarm"),
                                          (2, "New Alarm"), (1, "New Alarm")], True, (0, 2, 1)),
    "numbers that go on, hours later": ([(8, "New Alarm"), (9, "Clear Alarm"), (8, "New Alarm", 9000),
                                         (9, "Clear Alarm", 9000), (10, "New Alarm", 9000)],
                                        True, (0, 2, 0)),
    "the same 1, hours later": ([(1, "New Alarm"), (2, "Clear Alarm"), (1, "New Alarm", 9000)],
                                True, (0, 0, 1)),
}


@pytest.mark.parametrize("events, is_raised, counts", ORDERS.values(), ids=ORDERS)
def test_numbers(events, is_raised, counts):
    state = trapstate.new_state()
    for number, value, *when in events:
        trapstate.fold(state, parse(number, value, when=when[0] if when else 1000 + number))
    assert bool(trapstate.raised(state)) == is_raised
    unit = state["units"][UNIT]
    assert (unit["lost"], unit["repeated"], unit["start"]) == counts
    assert bool(unit["gap"]) == bool(counts[0])


def test_bounds(monkeypatch):
    """Whoever sends most loses first: alarms that have ended, then the oldest."""
    monkeypatch.setattr(trapstate, "MAX_UNITS", 2)
    monkeypatch.setattr(trapstate, "MAX_ALARMS", 20)
    monkeypatch.setattr(trapstate, "MAX_BYTES", 12000)
    state = trapstate.new_state()

    def alarms(unit):
        return [label.partition("/")[0] for of, label, _ in trapstate.raised(state) if of == unit]
    for number in range(1, 6):
        trapstate.fold(state, parse(number, name=f"a{number}", unit="192.0.2.1"))
    trapstate.fold(state, parse(1, name="b1"))
    trapstate.fold(state, parse(2, "Clear Alarm", name="b1"))
    for number in range(3, 24):
        trapstate.fold(state, parse(number, name=f"b{number}"))
    assert alarms(UNIT) == [f"b{number}" for number in range(4, 24)] and state["forgotten"] == 1
    for number in range(24, 200):
        trapstate.fold(state, parse(number, name=f"b{number}", text="x" * 2000))
    assert len(alarms("192.0.2.1")) == 5 and alarms(UNIT)[-1] == "b199" and len(alarms(UNIT)) == 20
    monkeypatch.setattr(trapstate, "MAX_BYTES", 5000)
    trapstate.fold(state, parse(200, name="b200"))
    assert len(alarms("192.0.2.1")) == 5 and state["size"] <= 5000
    assert state["size"] == sum(unit["size"] for unit in state["units"].values())
    assert not trapstate.fold(state, parse(1, unit="192.0.2.9")) and state["ignored"] == 1
    assert trapstate.clear(state, "192.0.2.1", "a1", "7") == 0
    assert trapstate.clear(state, "192.0.2.1", "a1", "8") == 1
    assert trapstate.forget(state, "192.0.2.1") == 4 and len(state["units"]) == 1


class Reading:
    def __init__(self, directory):
        self.directory = directory
        with socket.create_server(("127.0.0.1", 0)) as free:
            self.listen = f"127.0.0.1:{free.getsockname()[1]}"
        self.output = open(directory / "output", "w+b")
        self.start()

    def start(self):
        self.process = subprocess.Popen([*self.command(), "--pipe", self.directory / "fifo"],
                                        stdout=self.output, stderr=self.output)
        wait_until(lambda: self.metric("round_timestamp_seconds"), 90, "the page")
        self.pipe = open(self.directory / "fifo", "r+b", buffering=0)

    def command(self):
        return [READER, "--directory", self.directory, "--listen", self.listen]

    def send(self, *lines):
        self.pipe.write("".join(one + "\n" for one in lines).encode())

    def page(self):
        try:
            return urllib.request.urlopen(f"http://{self.listen}/metrics", timeout=5).read().decode()
        except OSError:
            return ""

    def metric(self, name):
        match = re.search(rf"^norvatrap_{name}(?:{{.*}})? (\S+)$", self.page(), re.M)
        return match and float(match[1])

    def order(self, *words):
        return subprocess.run([*self.command(), *words], capture_output=True, text=True, timeout=90,
                              check=False)


@pytest.fixture
def reading(tmp_path):
    made = Reading(tmp_path)
    yield made
    made.process.kill()
    made.process.wait()
    print((tmp_path / "output").read_text())


def test_reader(reading):
    """What came is on the page, survives a kill once it is saved, and is ended by hand."""
    nasty = b'a\n# HELP x"\\ <script>K\xf6ln'
    reading.send("NET-SNMP version 5.9.3", line("bad"), "x" * 3000000,
                 *(line(number, name=f"Alarm {number}", text=nasty) for number in range(1, 501)))
    wait_until(lambda: reading.metric("notifications_total") == 500, 90, "all of them")
    assert reading.metric("malformed_total") == 1
    assert r'name="Alarm 7",texts="a\n# HELP x\"\\ <script>Köln"} 1000.0' in reading.page()
    wait_until(lambda: len(json.loads((reading.directory / "state.json").read_text())["units"]) == 1,
               90, "the state saved")
    reading.send(line(501, name="Alarm 501"))
    wait_until(lambda: reading.metric("notifications_total") == 501, 90, "one more")
    reading.process.send_signal(signal.SIGTERM)  # saves
    assert reading.process.wait(90) == 0
    reading.start()
    assert reading.metric("notifications_total") == 501
    assert reading.order("--clear", UNIT, "7").stdout == "0 alarms ended\n"
    assert reading.order("--clear", UNIT, "alarm_7").stdout == "1 alarms ended\n"
    reading.process.kill()
    reading.process.wait()
    reading.start()
    assert 'alarm="alarm_8"' in reading.page() and 'alarm="alarm_7"' not in reading.page()
    assert subprocess.run([*reading.command(), "--pipe", reading.directory / "fifo"], timeout=90,
                          capture_output=True, check=False).returncode == 1  # one only
    assert reading.order("--forget", UNIT).stdout == "500 alarms ended\n"
    assert "192.0.2.7" not in reading.page()
    said = (reading.directory / "output").read_text()
    assert f"{UNIT}: New Alarm, Alarm 7, device 8, number 7: a?# HELP x" in said


def test_damaged_state(reading):
    reading.process.kill()
    reading.process.wait()
    (reading.directory / "state.json").write_text('{"units": ')
    reading.start()
    reading.send(line(1))
    wait_until(lambda: reading.metric("notifications_total") == 1, 90, "the first one")
    assert [path for path in os.listdir(reading.directory) if path.startswith("state.json.")]
