"""Measures what watching a fleet costs: units, exporter, Prometheus and the rest in private
namespaces, as in scripts/demo --monitor. A line for each number of units, as a table for a document.
Builds what it needs."""

import random
import statistics
import sys
import time
from pathlib import Path

from project import build, command_line, finish, install

from browser import Tab
from fleet import Fleet
from world import wait_until

SHIPPED = 30  # seconds between two scrapes of a unit
TICKS = 100.0  # a second, in /proc/PID/stat


def cpu(process):
    """Processor time so far, in seconds."""
    stat = Path(f"/proc/{process.pid()}/stat").read_text().rpartition(")")[2].split()
    return (int(stat[11]) + int(stat[12])) / TICKS


def numbers(text):
    return [int(word) for word in text.split(",")]


def groups(fleet):
    """Processes by what they are to the reader."""
    return {"units": [process for unit in fleet.units for process in
                      (unit.world.agent, unit.world.master, unit.world.unit)],
            "exporter": [fleet.exporter], "Prometheus": [fleet.prometheus],
            "the rest": [fleet.alertmanager, fleet.snmptrapd, fleet.trapreader]}


def look(fleet, pictures):
    """How long a browser takes to show the page; a picture of it, with a tenth in trouble."""
    address = fleet.page_address() + "/consoles/norva.html"
    with Tab() as tab:
        began = time.monotonic()
        tab.open(address)
        taken = time.monotonic() - began
        if pictures:
            for unit in fleet.units[::10]:
                for alarm in ("0x0401", "0x0402", "0x0404")[:1 + unit.number // 10 % 3]:
                    unit.world.ctl("alarm", "raise", alarm, "--text4", "Quay")
            fleet.units[-1].world.master.kill()
            time.sleep(130)
            tab.open(address)
            tab.picture(f"{pictures}/fleet-{len(fleet.units)}.png", 1920, 1080)
    return taken


def latency(fleet, count):
    """From a unit's alarm to Alertmanager and to what the page asks for."""
    times = []
    for number in range(count):
        unit = fleet.units[number % len(fleet.units)]
        device = str(number // len(fleet.units))
        began = time.monotonic()
        unit.world.ctl("alarm", "raise", "0x0405", "--device-id", device)
        wait_until(lambda: fleet.alerts(unit, alertname="NorvaAlarmNotified", device=device) and fleet.value(
            f'norva:alarms{{instance="{unit.address}", alarm="power_supply"}}'), 120, "the alarm")
        times.append(time.monotonic() - began)
        time.sleep(random.uniform(0, 5))  # not in step with the scrapes
    return f"{count} alarms: median {statistics.median(times):.1f} s, worst {max(times):.1f} s"


def measure(count, delay, directory, options):
    """A line of the table."""
    with Fleet(count, directory, scrape=options.scrape) as fleet:
        fleet.start_units(lambda done: print(f"\r{done} of {count} units run", end="",
                                             file=sys.stderr, flush=True))
        print(file=sys.stderr)
        fleet.start_monitoring()
        wait_until(lambda: fleet.scraped() == count, 120 + 2 * count, "all units scraped")
        if delay:
            for unit in fleet.units:
                unit.world.ctl("fault", "delay", delay)
            time.sleep(3 * (options.scrape or SHIPPED))
        before = {name: sum(map(cpu, group)) for name, group in groups(fleet).items()}
        start = time.monotonic()
        time.sleep(options.seconds)
        elapsed = time.monotonic() - start
        used = {name: (sum(map(cpu, group)) - before[name]) / elapsed * 100
                for name, group in groups(fleet).items()}
        memory = {name: sum(process.resident() for process in group) / 1024
                  for name, group in groups(fleet).items()}
        window = f"[{max(options.seconds, 2 * (options.scrape or SHIPPED))}s]"
        typical = fleet.value("quantile(0.5, avg_over_time("
                              f'scrape_duration_seconds{{job="norva"}}{window}))')
        worst = fleet.value(f'max(max_over_time(scrape_duration_seconds{{job="norva"}}{window}))')
        failed = fleet.value('count(up{job="norva"} == 0) or vector(0)')
        series = fleet.value("prometheus_tsdb_head_series") or fleet.value('count({job=~"norva.*"})')
        page = look(fleet, options.pictures)
        if options.alarms:
            print(latency(fleet, options.alarms), flush=True)
        return (f"| {count} | {delay} ms | {typical:.2f} / {worst:.2f} s | {failed:.0f} | {series:.0f} | "
                f"{memory['units'] / count:.0f} MB | {memory['exporter']:.0f} MB | "
                f"{memory['Prometheus']:.0f} MB | {memory['the rest']:.0f} MB | "
                f"{used['units'] / count:.2f} % | {used['exporter']:.1f} % | "
                f"{used['Prometheus']:.1f} % | {page:.1f} s |")


def main():
    parser = command_line(__doc__)
    parser.add_argument("--units", type=numbers, default=[1, 20, 100], metavar="N,N,...")
    parser.add_argument("--delay", type=numbers, default=[0], metavar="MS,MS,...",
                        help="the unit's time for an object")
    parser.add_argument("--seconds", type=int, default=60, help="to measure for (%(default)s)")
    parser.add_argument("--scrape", type=int, help="interval in s; without it all are as shipped")
    parser.add_argument("--alarms", type=int, help="also how long so many take to the page, each by itself")
    parser.add_argument("--pictures", metavar="DIRECTORY", help="also takes pictures of the page")
    options = parser.parse_args()
    install("pictures")
    directory = build("release", "norvaSnmp", "dasunit", "norvamap", "mapping_db")
    print("| units | unit's time | scrape, median / worst | failed | series | memory: a unit | exporter |"
          " Prometheus | the rest | CPU: a unit | exporter | Prometheus | page |\n" + "|---" * 13 + "|")
    for count in options.units:
        for delay in options.delay:
            print(measure(count, delay, directory, options), flush=True)


finish(main)
