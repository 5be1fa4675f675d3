"""The steps of the demonstration with several units and their monitoring."""

import contextlib
import random
import subprocess
import threading
import time

from browser import Tab
from fleet import ALERTMANAGER, PROMETHEUS, Fleet
from world import WorldError

SCRAPE = 5  # seconds


def unit_command(demo, number, *words):
    print(f"   $ unit {number} {' '.join(map(str, words))}")
    demo.fleet.units[number - 1].world.ctl(*words)


def wait_alert(demo, unit, name, wanted="fires"):
    def state():
        return "fires" if demo.fleet.alerts(unit, alertname=name) else "does not fire"
    demo.wait(f"alert {name}", state, wanted)


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


def page(demo):
    demo.address = demo.fleet.page_address(demo.options.port or 0) + "/consoles/norva.html"
    demo.say(f"The page to look at, in a browser on this machine:\n\n   {demo.address}")


def raise_alarm(demo):
    unit = demo.fleet.units[0]
    demo.say("Unit 1 gets hot: it measures 81.2 °C, sets its alarm object and sends an alarm.")
    unit_command(demo, 1, "set", "0x0303", 812)
    unit_command(demo, 1, "set", "0x0403", 1)
    unit_command(demo, 1, "alarm", "raise", "0x0403", "--device-id", 8, "--text4", "Harbour Terminal")
    wait_alert(demo, unit, "NorvaAlarmNotified")
    wait_alert(demo, unit, "NorvaAlarm")
    for alert in demo.fleet.alerts(unit):
        print(f"   {alert['labels']['alertname']}: {alert['annotations']['summary']}")
    lines = (demo.fleet.hub.directory / "trapreader.log").read_text().splitlines()
    print("   trapreader: " + (lines or ["nothing"])[-1])


def clear_alarm(demo):
    unit = demo.fleet.units[0]
    demo.say("It cools down.")
    unit_command(demo, 1, "set", "0x0303", 587)
    unit_command(demo, 1, "set", "0x0403", 0)
    unit_command(demo, 1, "alarm", "clear", "0x0403", "--device-id", 8, "--text4", "Harbour Terminal")
    for name in ("NorvaAlarmNotified", "NorvaAlarm"):
        wait_alert(demo, unit, name, "does not fire")


def kill_agent(demo):
    unit = demo.fleet.units[-1]
    demo.say(f"The agent of unit {unit.number} is killed; its snmpd answers on.")
    unit.world.agent.kill()
    wait_alert(demo, unit, "NorvaAgentMissing")
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


@contextlib.contextmanager
def living(fleet):
    """Meanwhile the fleet's values move."""
    stop = threading.Event()
    changes = threading.Thread(target=live, args=(fleet, stop))
    changes.start()
    try:
        yield
    finally:
        stop.set()
        changes.join()


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
          "   tail -f trapreader.log", flush=True)
    with living(fleet):
        script = 'export PS1="monitor\\$ " PATH="$1"; exec bash --norc'
        path = f"{hub.directory}/bin:{hub.build}/tools/dasunit:{hub.environment['PATH']}"
        subprocess.run([*hub.enter, "sh", "-c", script, "sh", path], env=hub.environment,
                       check=False)


def pictures(demo):
    """Takes the pictures in docs/, a history of some minutes being there."""
    directory = demo.options.pictures
    demo.say(f"Pictures for {directory}, after 3 minutes of history.")
    demo.fleet.units[1].world.ctl("set", "0x0306", 1)
    demo.fleet.units[1].world.ctl("alarm", "raise", "0x0401", "--device-id", 8)
    demo.fleet.units[2].world.ctl("set", "0x1022", 0)
    with living(demo.fleet):
        time.sleep(180)
        with Tab() as tab:
            tab.open(demo.address)
            tab.picture(f"{directory}/fleet.png", 1200, 420)
            tab.open(demo.address.replace(
                "norva.html", f"unit.html?instance={demo.fleet.units[1].address}"))
            tab.picture(f"{directory}/unit.png", 1200, 1010)


def run(demo):
    with Fleet(demo.options.units or 8, demo.build, scrape=SCRAPE) as demo.fleet:
        for step in (start, monitor, page, raise_alarm, clear_alarm, kill_agent):
            step(demo)
        if demo.options.pictures:
            pictures(demo)
        if demo.options.shell:
            shell(demo)
        print("\nEnding the units and the monitoring ...", flush=True)
