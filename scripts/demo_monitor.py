"""The demonstration of the monitoring; scripts/demo --monitor runs it. Ends with status 0 if every
step had the expected result."""

import argparse
import random
import signal
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[1]
sys.path.insert(0, str(SOURCE / "tools/world"))
sys.dont_write_bytecode = True

from fleet import ALERTMANAGER, PROMETHEUS, Fleet  # noqa: E402
from world import WorldError  # noqa: E402

CHROMIUM = ["chromium", "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
            "--no-first-run", "--disable-background-networking", "--disable-component-update",
            "--disable-sync", "--hide-scrollbars", "--virtual-time-budget=10000"]


SCRAPE = 5  # seconds


class Demo:
    def __init__(self, fleet):
        self.fleet = fleet
        self.failures = 0
        self.number = 0

    def say(self, text):
        self.number += 1
        print(f"\n{self.number}. {text}", flush=True)

    def wait(self, what, progress, wanted, timeout=90):
        """Shows what `progress` returns until it is `wanted`."""
        start = time.monotonic()
        shown = None
        while True:
            reached = progress()
            if reached != shown:
                print(f"   {time.monotonic() - start:5.1f} s  {what}: {reached}", flush=True)
                shown = reached
            if reached == wanted:
                return
            if time.monotonic() - start > timeout:
                self.failures += 1
                print(f"   NOT AS EXPECTED: {wanted} within {timeout} s")
                return
            time.sleep(0.3)

    def unit(self, number, *words):
        print(f"   $ unit {number} {' '.join(map(str, words))}")
        self.fleet.units[number - 1].world.ctl(*words)

    def wait_alert(self, unit, name, wanted="fires"):
        def state():
            return "fires" if self.fleet.alerts(unit, alertname=name) else "does not fire"
        self.wait(f"alert {name}", state, wanted)


def start(demo):
    fleet = demo.fleet
    demo.say(f"{len(fleet.units)} units, each with its own control process, snmpd and agent.")
    fleet.start_units(lambda done: print(f"\r   {done} of {len(fleet.units)} run", end="",
                                         flush=True))
    print()


def monitor(demo):
    demo.say("Prometheus, snmp_exporter, Alertmanager and snmptrapd with the files in monitoring/; "
             f"units are asked by SNMPv3 every {SCRAPE} s.")
    demo.fleet.start_monitoring()
    count = len(demo.fleet.units)
    demo.wait("units scraped", lambda: f"{demo.fleet.scraped()} of {count}", f"{count} of {count}")
    series = demo.fleet.value('count({job=~"norva.*"})')
    print(f"   {series:.0f} series")


def page(demo, port):
    demo.address = demo.fleet.page_address(port) + "/consoles/norva.html"
    demo.say(f"The page to look at, in a browser on this machine:\n\n   {demo.address}")


def raise_alarm(demo):
    unit = demo.fleet.units[0]
    demo.say("Unit 1 gets hot: it measures 81.2 °C, sets its alarm object and sends an alarm.")
    demo.unit(1, "set", "0x0303", 812)
    demo.unit(1, "set", "0x0403", 1)
    demo.unit(1, "alarm", "raise", "0x0403", "--device-id", 8, "--text4", "Harbour Terminal")
    demo.wait_alert(unit, "NorvaAlarmNotified")
    demo.wait_alert(unit, "NorvaAlarm")
    demo.wait_alert(unit, "NorvaOverTemperature")
    for alert in demo.fleet.alerts(unit):
        print(f"   {alert['labels']['alertname']}: {alert['annotations']['summary']}")
    trapped = demo.fleet.hub.directory / "snmptrapd.log"
    lines = [line for line in trapped.read_text().splitlines() if "norvaNotifyAlarm" in line]
    print("   snmptrapd: " + (lines or ["nothing"])[-1])


def clear_alarm(demo):
    unit = demo.fleet.units[0]
    demo.say("It cools down.")
    demo.unit(1, "set", "0x0303", 587)
    demo.unit(1, "set", "0x0403", 0)
    demo.unit(1, "alarm", "clear", "0x0403", "--device-id", 8, "--text4", "Harbour Terminal")
    for name in ("NorvaAlarmNotified", "NorvaAlarm", "NorvaOverTemperature"):
        demo.wait_alert(unit, name, "does not fire")


def kill_agent(demo):
    unit = demo.fleet.units[-1]
    demo.say(f"The agent of unit {unit.number} is killed; its snmpd answers on.")
    unit.world.agent.kill()
    demo.wait_alert(unit, "NorvaAgentMissing")
    demo.wait("its state on the page", lambda: demo.fleet.value(
        f'norva:state{{instance="{unit.address}"}}'), 2.0)


def live(fleet, stop):
    """Lets the units' values move, and now and then something happen, until `stop` is set."""
    while not stop.wait(3 / len(fleet.units)):
        unit = random.choice(fleet.units)
        try:
            for object_id, middle, spread in (("0x0301", 41, 3), ("0x0303", 587, 20),
                                              ("0x0504", 365, 6), ("0x0514", -985, 15)):
                unit.world.ctl("set", object_id, middle + random.randint(-spread, spread))
            if random.random() < 0.02:
                unit.world.ctl("event", "report", "0x0409")
        except WorldError as error:
            print(error)
            return


def shell(demo):
    fleet, hub = demo.fleet, demo.fleet.hub
    (hub.directory / "units").mkdir()
    (hub.directory / "bin").mkdir()
    for unit in fleet.units:
        (hub.directory / f"units/{unit.number}").symlink_to(unit.world.directory / "unit.sock")
    command = hub.directory / "bin/unit"
    command.write_text(f'#!/bin/sh\nnumber=$1\nshift\nexec {hub.build}/tools/dasunit/dasunit ctl '
                       f'--control {hub.directory}/units/$number "$@"\n')
    command.chmod(0o755)
    print(f"\nA shell beside the monitoring; its end ends everything. The page:\n   {demo.address}\n"
          "For example:\n"
          "   unit 2 set 0x0306 1                   opens the door of unit 2\n"
          "   unit 2 alarm raise 0x0402             an alarm, without its object\n"
          f"   amtool alert --alertmanager.url=http://{ALERTMANAGER}\n"
          f"   promtool query instant http://{PROMETHEUS} norva:state\n"
          "   tail -f snmptrapd.log", flush=True)
    stop = threading.Event()
    changes = threading.Thread(target=live, args=(fleet, stop))
    changes.start()
    try:
        script = 'export PS1="monitor\\$ " PATH="$1"; exec bash --norc'
        path = f"{hub.directory}/bin:{hub.build}/tools/dasunit:{hub.environment['PATH']}"
        subprocess.run([*hub.enter, "sh", "-c", script, "sh", path], env=hub.environment,
                       check=False)
    finally:
        stop.set()
        changes.join()


def picture(address, path, width, height, *options):
    """What Chromium shows, as a PNG file. Look at it: a busy machine may be too slow for the graphs."""
    with tempfile.TemporaryDirectory() as profile:
        subprocess.run([*CHROMIUM, f"--user-data-dir={profile}", f"--window-size={width},{height}",
                        f"--screenshot={path}", *options, address], check=True, timeout=120,
                       stderr=subprocess.DEVNULL)


def pictures(demo, directory):
    """Takes the pictures in docs/, a history of some minutes being there."""
    demo.say(f"Pictures for {directory}, after 3 minutes of history.")
    demo.fleet.units[1].world.ctl("set", "0x0306", 1)
    demo.fleet.units[1].world.ctl("alarm", "raise", "0x0401", "--device-id", 8)
    demo.fleet.units[2].world.ctl("set", "0x1022", 0)
    stop = threading.Event()
    changes = threading.Thread(target=live, args=(demo.fleet, stop))
    changes.start()
    try:
        time.sleep(180)
        picture(demo.address, f"{directory}/fleet.png", 1200, 420)
        unit = f"unit.html?instance={demo.fleet.units[1].address}"
        picture(demo.address.replace("norva.html", unit), f"{directory}/unit.png", 1200, 1010)
    finally:
        stop.set()
        changes.join()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--monitor", action="store_true")
    parser.add_argument("--units", type=int, default=8)
    parser.add_argument("--shell", action="store_true")
    parser.add_argument("--port", type=int, default=0)
    parser.add_argument("--pictures")
    options = parser.parse_args()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    try:
        fleet = Fleet(options.units, SOURCE / "build/release", scrape=SCRAPE)
        try:
            demo = Demo(fleet)
            start(demo)
            monitor(demo)
            page(demo, options.port)
            for step in (raise_alarm, clear_alarm, kill_agent):
                step(demo)
            if options.pictures:
                pictures(demo, options.pictures)
            if options.shell:
                shell(demo)
        finally:
            signal.signal(signal.SIGINT, signal.SIG_IGN)  # everything goes, however impatient
            signal.signal(signal.SIGTERM, signal.SIG_IGN)
            print("\nEnding the units and the monitoring ...", flush=True)
            fleet.close()
    except (WorldError, OSError) as error:
        print(f"scripts/demo: {error}", file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        return 130
    print(f"{demo.failures} results were not as expected." if demo.failures else
          "Every step had the expected result.")
    return 1 if demo.failures else 0


if __name__ == "__main__":
    sys.exit(main())
