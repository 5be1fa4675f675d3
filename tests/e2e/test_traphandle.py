"""monitoring/traphandle by itself: from what snmptrapd hands over to what Alertmanager is told."""

import http.server
import importlib.machinery
import importlib.util
import json
import re
import socket
import subprocess
import sys
import threading
import time
import urllib.request
from datetime import datetime

import pytest

from receiver import BASE
from world import SOURCE, wait_until

MONITORING = SOURCE / "monitoring"
HANDLER = MONITORING / "traphandle"
sys.path.insert(0, str(MONITORING))
import trapparse  # noqa: E402
import trapstate  # noqa: E402

def handed(number, value="New Alarm", name="Fan Failure Alarm", *, names=True, text="Quay",
           unit="192.0.2.7"):
    """As snmptrapd writes it, with names or numbers."""
    trap, fields = (("snmpTrapOID.0 = norvaNotifyAlarm", [
        f"norvaNotify{field} = " for field in ("Name", "Value", "Device", "Text4", "Text5", "Text6",
                                               "Sequence")]) if names else
        (f".1.3.6.1.6.3.1.1.4.1.0 {BASE}.96", [f"{BASE}.{field} " for field in range(1, 8)]))
    lines = [key + str(of_key) for key, of_key in zip(fields, (name, value, 8, text, "", "", number))]
    return "\n".join(["<UNKNOWN>", f"UDP: [{unit}]:161->[192.0.2.1]:162",
                      "sysUpTime.0 = 0:0:00:03.16", trap, *lines, ""]).encode()


@pytest.mark.parametrize("text, wanted", [
    (handed(5), ("Fan Failure Alarm", "Quay", 5)),
    (handed(5, names=False), ("Fan Failure Alarm", "Quay", 5)),
    (handed(5, names=False, name='"Fan \\"A\\""', text='"Quay"'), ('Fan "A"', "Quay", 5)),
    (handed(5, names=False).replace(b".1.3.6", b"iso.3.6"), ("Fan Failure Alarm", "Quay", 5)),
    # A text of the unit with line ends is no other field.
    (handed(5, text="a\nnorvaNotifySequence = 9\nb"),
     ("Fan Failure Alarm", "a norvaNotifySequence = 9 b", 5)),
    (handed(5).replace(b"Quay", b"K\xf6ln"), ("Fan Failure Alarm", "K\ufffdln", 5)),
    (handed(5).replace(b"norvaNotifyAlarm", b"coldStart"), None),
])
def test_parse(text, wanted):
    event = trapparse.parse(text)
    assert (event and (event.name, event.texts[0], event.sequence)) == wanted
    assert not event or (event.unit, event.kind, event.device) == ("192.0.2.7", "alarm", "8")


# Each: numbers and values in the order of arrival; which changes are posted; whether the alarm is
# raised at the end; numbers lost, repeated, new starts.
ORDERS = {
    "as sent": ([(1, "New Alarm"), (2, "Clear Alarm")], [1, 2], False, (0, 0, 0)),
    "sent again": ([(1, "New Alarm"), (2, "Clear Alarm"), (1, "New Alarm")], [1, 2], False, (0, 1, 0)),
    "two lost": ([(1, "New Alarm"), (4, "Clear Alarm")], [1, 4], False, (2, 0, 0)),
    "overtaken": ([(1, "New Alarm"), (3, "New Alarm"), (2, "Clear Alarm")], [1, 3], True, (0, 0, 0)),
    "new start": ([(7, "New Alarm"), (1, "Clear Alarm")], [7, 1], False, (0, 0, 1)),
    "new start, its first two lost": ([(7, "New Alarm"), (3, "New Alarm")], [7, 3], True, (2, 0, 1)),
    "new start, beginning as the last": ([(1, "New Alarm"), (2, "Clear Alarm"), (1, "New Alarm"),
                                          (2, "New Alarm"), (1, "New Alarm")],
                                         [1, 2, 2], True, (0, 2, 1)),
}


@pytest.mark.parametrize("events, posted, is_raised, counts", ORDERS.values(), ids=ORDERS)
def test_numbers(events, posted, is_raised, counts):
    state = trapstate.new_state()
    for when, (number, value) in enumerate(events, 1000):
        trapstate.fold(state, trapparse.parse(handed(number, value)), when)
    assert [int(alert["annotations"]["sequence"]) for alert in state["outbox"]] == posted
    assert bool(trapstate.raised(state)) == is_raised
    unit = state["units"]["192.0.2.7"]
    assert (unit["lost"], unit["repeated"], unit["start"]) == counts
    assert bool(unit["gap"]) == bool(counts[0])


class Alertmanager:
    """Takes what is posted, when it is there."""

    def __init__(self):
        self.posted = []
        with socket.create_server(("127.0.0.1", 0)) as free:
            self.port = free.getsockname()[1]

    def start(self):
        posted = self.posted
        nonsense = [b"nonsense\r\n"]

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_POST(self):
                if nonsense:
                    self.wfile.write(nonsense.pop())
                    return
                body = json.loads(self.rfile.read(int(self.headers["Content-Length"])))
                posted.extend(body)
                self.send_response(400 if "refuse me" in json.dumps(body) else 200)
                self.end_headers()

            def log_message(self, *_):
                pass

        server = http.server.HTTPServer(("127.0.0.1", self.port), Handler)
        threading.Thread(target=server.serve_forever, daemon=True).start()


class Handling:
    def __init__(self, directory):
        self.directory = directory
        self.alertmanager = Alertmanager()
        self.errors = open(directory / "errors", "w+b")
        with socket.create_server(("127.0.0.1", 0)) as free:
            self.listen = f"127.0.0.1:{free.getsockname()[1]}"
        self.start()

    def start(self):
        self.server = subprocess.Popen(
            [HANDLER, "--directory", self.directory, "--serve", "--listen", self.listen,
             "--alertmanager", f"http://127.0.0.1:{self.alertmanager.port}"], stderr=self.errors)

    def hand(self, *args, **options):
        subprocess.run([HANDLER, "--directory", self.directory], check=True, timeout=20,
                       input=args[0] if isinstance(args[0], bytes) else handed(*args, **options))

    def metric(self, name):
        try:
            page = urllib.request.urlopen(f"http://{self.listen}/metrics", timeout=5).read().decode()
        except OSError:
            return None
        match = re.search(rf"^norvatrap_{name}(?:{{.*}})? (\S+)$", page, re.M)
        return match and float(match[1])

    def said(self):
        self.errors.seek(0)
        return self.errors.read().decode()


@pytest.fixture
def handling(tmp_path):
    made = Handling(tmp_path)
    yield made
    made.server.kill()
    made.server.wait()
    print(made.said())


def test_receiver_down(handling):
    """Nothing that was handed over is lost, nor told twice, whoever is down, and its order stays."""
    wait_until(lambda: handling.metric("outbox_alerts") == 0, what="the page")
    for number in range(1, 7):
        handling.hand(number, name=f"Alarm {number}")
    wait_until(lambda: handling.metric("outbox_alerts") == 6, what="alerts that wait")
    handling.server.kill()
    handling.server.wait()
    together = [threading.Thread(target=handling.hand, args=(1,), kwargs={"unit": f"192.0.2.{unit}"})
                for unit in range(20, 30)]
    for thread in together:
        thread.start()
    for thread in together:
        thread.join()
    handling.hand(7, "Clear Alarm", "Alarm 1")
    handling.start()
    wait_until(lambda: handling.metric("outbox_alerts") == 17, what="all of them")
    assert "takes no alerts" in handling.said()
    handling.alertmanager.start()
    posted = handling.alertmanager.posted
    wait_until(lambda: len(posted) >= 17 + 15, 40, "alerts, and once more those that are raised")
    first = [(alert["labels"]["instance"], alert["annotations"]["sequence"]) for alert in posted[:17]]
    assert [number for unit, number in first if unit == "192.0.2.7"] == list("1234567")
    assert {unit for unit, _ in first[6:16]} == {f"192.0.2.{unit}" for unit in range(20, 30)}
    def ended(alert):
        return datetime.fromisoformat(alert["endsAt"]).timestamp() <= time.time()
    assert ended(posted[16]) and posted[16]["startsAt"] == posted[0]["startsAt"]
    assert not any(ended(alert) for alert in posted[:16])
    assert posted[16]["labels"] == posted[0]["labels"] == {
        "alertname": "NorvaAlarmNotified", "instance": "192.0.2.7", "alarm": "alarm_1",
        "device": "8", "severity": "major"}
    assert "takes alerts again" in handling.said()
    # An alarm whose end got lost is ended by hand.
    subprocess.run([HANDLER, "--directory", handling.directory, "--clear", "192.0.2.7", "alarm_2"],
                   check=True)
    wait_until(lambda: posted[-1]["labels"]["alarm"] == "alarm_2", what="its end")
    assert ended(posted[-1])
    # The clock was set back in between.
    (handling.directory / "incoming/1000000000-1").write_bytes(b"clear\t192.0.2.7\talarm_3\n")
    wait_until(lambda: posted[-1]["labels"]["alarm"] == "alarm_3", what="its end")
    assert posted[-1]["startsAt"] == posted[-1]["endsAt"] == "1970-01-01T00:00:01+00:00"
    subprocess.run([HANDLER, "--directory", handling.directory, "--forget", "192.0.2.7"], check=True)
    wait_until(lambda: [alert["labels"]["alarm"] for alert in posted[-3:] if ended(alert)] ==
               ["alarm_4", "alarm_5", "alarm_6"], what="the unit's last alarms ended")


BAD = [b"", b"\xff\xfe\x00", b"\n" * 50, handed(1)[:200], handed("one"), handed(1, text="\n" * 70000),
       handed(1).replace(b"[192.0.2.7]", b"nobody"), b"clear\tx\n", b"forget\tx\ty"]


def test_bad_input(handling):
    """Said in a line each; what comes behind is taken."""
    handling.alertmanager.start()
    for text in BAD:
        handling.hand(text)
    (handling.directory / "incoming/0-unreadable").symlink_to("/proc/self/mem")
    handling.hand(3, name="refuse me")
    handling.hand(4)
    posted = handling.alertmanager.posted
    wait_until(lambda: [alert for alert in posted if alert["annotations"]["sequence"] == "4"],
               what="the good one")
    wait_until(lambda: handling.metric("malformed_total") == len(BAD) + 1, what="all counted")
    lines = handling.said().splitlines()
    assert len([line for line in lines if "not understood" in line]) == len(BAD), lines
    assert len([line for line in lines if "refused" in line]) >= 1
    assert not list((handling.directory / "incoming").iterdir())
    assert subprocess.run([HANDLER, "--directory", handling.directory, "--serve"],
                          capture_output=True, timeout=20, check=False).returncode == 1  # one only


def test_spool_is_bounded(tmp_path, capsys):
    loader = importlib.machinery.SourceFileLoader("traphandle", str(HANDLER))
    handler = importlib.util.module_from_spec(importlib.util.spec_from_loader("traphandle", loader))
    sys.dont_write_bytecode = True
    loader.exec_module(handler)
    handler.SPOOL_FILES, handler.SPOOL_BYTES = 5, 1000
    for number in range(8):
        handler.spool(str(tmp_path), b"%d" % number)
    def kept():
        return [path.read_bytes()[:1] for path in sorted((tmp_path / "incoming").iterdir())]
    assert kept() == [b"3", b"4", b"5", b"6", b"7"]
    assert capsys.readouterr().err.count("1 notifications dropped, the oldest") == 3
    handler.spool(str(tmp_path), b"x" * 998)
    assert kept() == [b"6", b"7", b"x"] or kept() == [b"7", b"x"]
