"""`traphandle --serve`: from the spool to Alertmanager and to /metrics."""

import fcntl
import http.client
import http.server
import json
import os
import sys
import threading
import time
import urllib.error
import urllib.request
from datetime import datetime, timezone

import trapparse
import trapstate

LOOK_S = 0.5  # at the spool
REPEAT_S = 60  # Alertmanager keeps no alerts over its own restart
# An alert that is not repeated ends by itself: much later than the server is away for a restart.
HOLD_S = 3600
TIMEOUT_S = 5
LONGEST_PAUSE_S = 30
UNFINISHED_S = 60  # a hidden file this old will not be finished
# Counts of the state, and what is said when one has grown.
BOUNDS = {"dropped": "alerts dropped, the oldest: too many wait for Alertmanager",
          "ignored": "notifications ignored, of units beyond the limit",
          "forgotten": "raised alarms forgotten, the oldest of a unit: it has too many"}


def say(text):
    print(f"traphandle: {text}", file=sys.stderr, flush=True)


def _escaped(text):
    return text.replace("\\", r"\\").replace('"', r"\"").replace("\n", r"\n")


def metrics(state, spooled, failures, last_round):
    """The page, in Prometheus' text format."""
    lines = []

    def family(name, kind, help_text, values):
        lines.append(f"# HELP norvatrap_{name} {help_text}\n# TYPE norvatrap_{name} {kind}")
        for labels, value in values:
            inner = ",".join(f'{key}="{_escaped(of_key)}"' for key, of_key in labels.items())
            lines.append(f"norvatrap_{name}{{{inner}}} {value}" if inner
                         else f"norvatrap_{name} {value}")

    def of_units(name, kind, help_text, key, when=lambda unit: True):
        family(name, kind, help_text, [({"instance": address}, unit[key])
                                       for address, unit in state["units"].items() if when(unit)])

    of_units("timestamp_seconds", "gauge", "When the last notification came", "time")
    of_units("heartbeat_timestamp_seconds", "gauge", "When the last heartbeat came", "heartbeat",
             lambda unit: unit["heartbeat"])
    of_units("gap_timestamp_seconds", "gauge", "When a gap in the numbers was last seen", "gap",
             lambda unit: unit["gap"])
    of_units("sequence", "gauge", "Number of the last notification", "last")
    of_units("lost", "gauge", "Numbers that did not come", "lost")
    of_units("repeated_total", "counter", "Notifications that came again", "repeated")
    of_units("starts_total", "counter", "New starts of the numbers", "start")
    family("notifications_total", "counter", "Notifications by kind",
           [({"instance": address, "kind": kind}, count) for address, unit in state["units"].items()
            for kind, count in unit["counts"].items()])
    family("alarm_raised", "gauge", "Alarms that are raised",
           [({"instance": address, "alarm": label.rpartition("/")[0],
              "device": label.rpartition("/")[2]}, 1) for address, label, _ in
            trapstate.raised(state)])
    for name, kind, help_text, value in (
            ("round_timestamp_seconds", "gauge", "When all was last done that was to do", last_round),
            ("spool_files", "gauge", "Notifications that wait in the spool", spooled),
            ("outbox_alerts", "gauge", "Alerts that wait for Alertmanager", len(state["outbox"])),
            ("post_failures_total", "counter", "Tries that Alertmanager did not take", failures),
            ("dropped_total", "counter", "Alerts dropped, too many waited", state["dropped"]),
            ("refused_total", "counter", "Alerts that Alertmanager refused", state["refused"]),
            ("malformed_total", "counter", "Notifications not understood", state["malformed"]),
            ("ignored_total", "counter", "Notifications of units beyond the limit",
             state["ignored"]),
            ("forgotten_total", "counter", "Raised alarms beyond the limit of a unit",
             state["forgotten"])):
        family(name, kind, help_text, [({}, value)])
    return "\n".join(lines) + "\n"


class Server:
    """Everything but the page's delivery is on one thread; `page` is replaced as a whole."""

    def __init__(self, directory, alertmanager):
        self._incoming = os.path.join(directory, "incoming")
        self._path = os.path.join(directory, "state.json")
        self._url = alertmanager.rstrip("/") + "/api/v2/alerts"
        self._state = self._load()
        self._taken = set()  # files of the spool whose effect is not in state.json yet
        self._failures = self._pause = self._last_round = 0
        self._next_try = self._next_repeat = 0.0
        self._make_page()

    def _load(self):
        try:
            with open(self._path, encoding="utf-8") as file:
                return {**trapstate.new_state(), **json.load(file)}
        except FileNotFoundError:
            return trapstate.new_state()
        except ValueError as error:
            aside = f"{self._path}.{int(time.time())}"
            os.rename(self._path, aside)
            say(f"{self._path} is not readable ({error}), now {aside}: beginning anew")
            return trapstate.new_state()

    def _save(self):
        hidden = self._path + ".new"
        with open(hidden, "w", encoding="utf-8") as file:
            file.write(json.dumps(self._state))  # json.dump takes three times as long
            file.flush()
            os.fsync(file.fileno())
        os.rename(hidden, self._path)

    def _take(self, name):
        """One file of the spool."""
        path = os.path.join(self._incoming, name)
        try:
            with open(path, "rb") as file:
                text = file.read()
            when = int(name.partition("-")[0]) / 1e9
            if text.startswith((b"clear\t", b"forget\t")):
                self._obey(text.decode("utf-8", "replace").rstrip("\n").split("\t"), when)
                return
            event = trapparse.parse(text)
            if event:
                trapstate.fold(self._state, event, when)
        except FileNotFoundError:  # dropped, the spool was full
            pass
        except OSError as error:
            self._state["malformed"] += 1
            say(f"not readable, {error.strerror}: {path}")
        except (trapparse.BadInput, ValueError) as error:
            self._state["malformed"] += 1
            say(f"not understood, {error}: {text[:1000]!r}")

    def _obey(self, words, when):
        """What was asked for by hand. Raises ValueError."""
        if words[0] == "forget":
            _, unit = words
            count = trapstate.forget(self._state, unit, when)
        else:
            _, unit, alarm, *device = words
            count = trapstate.clear(self._state, unit, alarm, device[0] if device else None, when)
        say(f"{' '.join(words)}: {count} alarms ended by hand")

    def _take_spool(self):
        names = sorted(os.listdir(self._incoming))
        for name in [name for name in names if name.startswith(".")]:
            path = os.path.join(self._incoming, name)
            try:
                if time.time() - os.stat(path).st_mtime > UNFINISHED_S:
                    os.unlink(path)
                    say(f"{name}: handed over in part only, removed")
            except FileNotFoundError:
                pass
        names = [name for name in names if not name.startswith(".")]
        counts = {key: self._state[key] for key in BOUNDS}
        for name in names:
            if name not in self._taken:
                self._take(name)
                self._taken.add(name)
        for key, before in counts.items():
            if self._state[key] > before:
                say(f"{self._state[key] - before} {BOUNDS[key]}")
        if names:
            self._save()
            for name in names:
                try:
                    os.unlink(os.path.join(self._incoming, name))
                except FileNotFoundError:
                    pass
            self._taken.clear()

    def _post(self, alerts):
        """Whether they need not be posted again."""
        def time_text(seconds):
            return datetime.fromtimestamp(seconds, timezone.utc).isoformat()
        now = time.time()
        # No start is behind the end, or it is refused: the clock may have been set back since then.
        body = [{"labels": alert["labels"], "annotations": alert["annotations"],
                 "startsAt": time_text(min(alert["start"], alert["end"] or now)),
                 "endsAt": time_text(alert["end"] or now + HOLD_S)} for alert in alerts]
        request = urllib.request.Request(self._url, json.dumps(body).encode(),
                                         {"Content-Type": "application/json"})
        try:
            urllib.request.urlopen(request, timeout=TIMEOUT_S).close()
        except urllib.error.HTTPError as error:
            if error.code == 400:  # it will not be taken next time either
                self._state["refused"] += 1
                what = body[0]["labels"] if len(body) == 1 else f"one of {len(body)} alerts or more"
                say(f"Alertmanager refused {what}: {error.read(300)!r}")
                return True
            return self._failed(error)
        except (OSError, http.client.HTTPException) as error:
            return self._failed(error)
        if self._pause:
            say("Alertmanager takes alerts again")
        self._pause = 0
        return True

    def _failed(self, error):
        if not self._pause:
            say(f"Alertmanager takes no alerts: {error}; trying on")
        self._failures += 1
        self._pause = min(max(2 * self._pause, 1), LONGEST_PAUSE_S)
        self._next_try = time.monotonic() + self._pause
        return False

    def _deliver(self):
        """Posts what waits, in its order; now and then, all that is raised."""
        posted = 0
        outbox = self._state["outbox"]
        while outbox and time.monotonic() >= self._next_try and posted < 100:
            if self._post(outbox[:1]):
                outbox.pop(0)
                posted += 1
        if posted:
            self._save()
        if not outbox and time.monotonic() >= max(self._next_repeat, self._next_try):
            alerts = trapstate.raised_alerts(self._state)
            if not alerts or self._post(alerts):
                self._next_repeat = time.monotonic() + REPEAT_S

    def _make_page(self):
        self.page = metrics(self._state, len(os.listdir(self._incoming)), self._failures,
                            self._last_round)

    def step(self):
        try:
            self._take_spool()
            self._deliver()
            self._last_round = time.time()
        finally:
            self._make_page()


def _listen(server, address):
    class Page(http.server.BaseHTTPRequestHandler):
        timeout = TIMEOUT_S

        def do_GET(self):
            found = self.path == "/metrics"
            body = (server.page if found else "/metrics\n").encode()
            self.send_response(200 if found else 404)
            self.send_header("Content-Type", "text/plain; version=0.0.4; charset=utf-8")
            self.send_header("Content-Length", str(len(body)))
            self.end_headers()
            self.wfile.write(body)

        def log_message(self, *_):
            pass

    host, _, port = address.rpartition(":")
    listener = http.server.ThreadingHTTPServer((host, int(port)), Page)
    listener.daemon_threads = True
    threading.Thread(target=listener.serve_forever, daemon=True).start()


def serve(directory, alertmanager, listen):
    """Until it is ended; at any time, nothing is lost by that."""
    os.makedirs(os.path.join(directory, "incoming"), exist_ok=True)
    lock = open(os.path.join(directory, "lock"), "w", encoding="utf-8")
    try:
        fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except BlockingIOError:
        say(f"{directory} has a server already")
        sys.exit(1)
    server = Server(directory, alertmanager)
    _listen(server, listen)
    while True:
        busy = time.process_time()
        try:
            server.step()
        except OSError as error:  # a full disk, say: what is spooled stays
            say(f"{error.filename or directory}: {error.strerror}; trying on")
            time.sleep(LOOK_S * 10)
        # State and page of thousands of units take their time: a third of a core at most.
        time.sleep(max(LOOK_S, 2 * (time.process_time() - busy)))
