"""Several units in one private network, watched by the real programs with the configuration in
monitoring/: Prometheus, snmp_exporter, Alertmanager, snmptrapd.

Each unit is a world of its own, since agents end each other and queues have fixed keys; they share
the network of the hub, a world with the monitoring in it. Everything ends with the hub.
"""

import json
import re
import shutil
import socket
import subprocess
import urllib.parse
from concurrent.futures import ThreadPoolExecutor

from world import SOURCE, World, WorldError, wait_until

PROMETHEUS = "127.0.0.1:9090"
ALERTMANAGER = "127.0.0.1:9093"
# Who gets in, as shipped; the user who polls.
_ACCESS = "".join(re.findall(r"^(?:createUser|view|group|access) .*\n",
                             (SOURCE / "packaging/snmpd.conf").read_text(), re.M))
_USER = 'norva SHA-256 "change-this-auth-phrase" AES "change-this-priv-phrase"'
_SESSION = ('-v 3 -u norva -l authPriv -a SHA-256 -A "change-this-auth-phrase" '
            '-x AES -X "change-this-priv-phrase"')
# Accepts on a socket of the network outside, connects inside.
_RELAY = """
import asyncio, signal, socket, sys
signal.signal(signal.SIGINT, signal.SIG_IGN)  # it ends with the hub
async def copy(reader, writer):
    try:
        while data := await reader.read(65536):
            writer.write(data)
            await writer.drain()
    except OSError:
        pass
    writer.close()
async def relay(reader, writer):
    try:
        inner = await asyncio.open_connection(*sys.argv[2].split(":"))
    except OSError:
        writer.close()
        return
    await asyncio.gather(copy(reader, inner[1]), copy(inner[0], writer))
async def main():
    listener = socket.socket(fileno=int(sys.argv[1]))
    await (await asyncio.start_server(relay, sock=listener)).serve_forever()
asyncio.run(main())
"""


def _engine_id(number):
    return f"0x80001f8804{number:08x}"


class FleetUnit:
    """A unit of the fleet, number 1 and on, at 127.1.0.NUMBER and so on, port 161. Asked by SNMPv3;
    it sends notifications by v3 if its number is even, else by v2c and, 3, 7 and so on, by v1."""

    def __init__(self, fleet, number, build):
        self.number = number
        self.address = f"127.1.{(number - 1) // 250}.{(number - 1) % 250 + 1}"
        self.world = World(build, network=fleet.hub, address=f"{self.address}:161")
        self.world.settings("norvaDeviceTimeout 5", "norvaStrictSet yes", "norvaTrace no",
                            "norvaAgentObjects yes")

    def start(self, database=None):
        world = self.world
        sink = (f"trapsess {_SESSION} 127.0.0.1:162" if self.number % 2 == 0
                else f"{'trapsink' if self.number % 4 == 3 else 'trap2sink'} 127.0.0.1:162 public")
        world.start_unit(record=False)
        world.start_master(f"[snmp] clientaddr {self.address}\n[snmp] mibs :\n"
                           f"exactEngineID {_engine_id(self.number)}\n"
                           f"{_ACCESS}{sink}\n"
                           "agentXTimeout 15\nagentXRetries 0\n")
        for change in (("0x0600", f"Site {self.number}"), ("0x0301", 30 + self.number % 20),
                       ("0x0504", 340 + self.number % 40), ("0x0FFA", 1)):
            world.ctl("set", *change)
        world.start_agent(database=database)


class Fleet:
    """Use it as a context manager, or call close(). `scrape`: seconds between two scrapes; what the
    rules wait for is shortened to two of them, so that nobody has to. Without it all is as shipped."""

    def __init__(self, count, build=None, scrape=3):
        self.hub = World(build)
        self.units = []
        self.directory = self.hub.directory / "monitoring"
        self.seconds = scrape
        try:
            for number in range(1, count + 1):
                self.units.append(FleetUnit(self, number, build))
        except BaseException:
            self.close()
            raise

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        try:
            with ThreadPoolExecutor(8) as pool:
                list(pool.map(lambda unit: unit.world.close(), self.units))
        finally:
            self.hub.close()

    def start_units(self, progress=lambda done: None):
        """Starts all of them, some at a time; `progress` is told how many run."""
        with ThreadPoolExecutor(4) as pool:
            for done, _ in enumerate(pool.map(lambda unit: unit.start(), self.units), 1):
                progress(done)

    # The monitoring

    def start_monitoring(self):
        self.configure()
        self.start_alertmanager()
        self.start_trapreader()
        self.start_snmptrapd()
        self.start_exporter()
        self.start_prometheus()

    def start_exporter(self):
        self.exporter = self.hub.spawn("exporter", [
            "prometheus-snmp-exporter", "--web.listen-address", "127.0.0.1:9116", "--config.file",
            self.directory / "snmp.yml"])

    def start_prometheus(self):
        hub, files = self.hub, self.directory
        self.prometheus = hub.spawn("prometheus", [
            "prometheus", f"--config.file={files}/prometheus.yml",
            f"--web.listen-address={PROMETHEUS}", f"--storage.tsdb.path={hub.directory}/tsdb",
            f"--web.console.templates={files}/consoles",
            f"--web.console.libraries={files}/console_libraries", "--log.level=warn"])
        wait_until(lambda: self.get(PROMETHEUS, "/-/ready"), 30, "Prometheus ready")

    def configure(self):
        """The shipped files, with other paths and shorter times, and this fleet's own."""
        hub, files = self.hub, self.directory
        shutil.copytree(SOURCE / "monitoring", files,
                        ignore=shutil.ignore_patterns("__pycache__"))
        if self.seconds:
            self._edit("prometheus.yml", (r"_interval: \w+", f"_interval: {self.seconds}s"),
                       (r"scrape_timeout: \w+", f"scrape_timeout: {self.seconds}s"))
            self._edit("rules.yml", (r"for: (30s|[15]m)", f"for: {2 * self.seconds}s"),
                       (r"interval: \w+", f"interval: {self.seconds}s"))
            self._edit("alertmanager.yml", (r"group_wait: \w+", "group_wait: 1s"))
        users = "\n".join(f"createUser -e {_engine_id(unit.number)} {_USER}" for unit in self.units)
        self._edit("snmptrapd.conf", (r"createUser -e .*", users))
        (files / "units.yml").write_text(
            json.dumps([{"targets": [unit.address for unit in self.units]}]))
        (files / "snmp.yml").write_text(hub.inside(
            f"{hub.build}/tools/norvamap/norvamap exporter {hub.database} "
            f"--names {SOURCE}/data/names.yaml --access {files}/access.yml"))

    def _edit(self, name, *replacements):
        path = self.directory / name
        text = path.read_text()
        for pattern, replacement in replacements:
            text, count = re.subn(pattern, replacement, text)
            if not count:
                raise WorldError(f"monitoring/{name} has no '{pattern}'")
        path.write_text(text)

    def start_alertmanager(self):
        hub = self.hub
        self.alertmanager = hub.spawn("alertmanager", [
            "prometheus-alertmanager", f"--config.file={self.directory}/alertmanager.yml",
            f"--web.listen-address={ALERTMANAGER}", "--cluster.listen-address=",
            f"--storage.path={hub.directory}/alertmanager", "--log.level=warn"])
        wait_until(lambda: self.get(ALERTMANAGER, "/-/ready"), 30, "Alertmanager ready")

    def start_snmptrapd(self):
        """As the shipped drop-in does, but for a FIFO in place of the journal."""
        with open(self.fifo, "r+b", buffering=0) as fifo:
            self.snmptrapd = self.hub.spawn("snmptrapd", [
                "snmptrapd", "-Lo", "-m", "", "-C", "-c", self.directory / "snmptrapd.conf", "-f",
                "udp:162"], stdout=fifo)
        wait_until(lambda: ":00A2 " in self.hub.run("cat", "/proc/net/udp").stdout,
                   what="snmptrapd listening")

    def start_trapreader(self):
        self.fifo = self.hub.directory / "notifications"
        self.trapreader = self.hub.spawn("trapreader", [
            self.directory / "trapreader", "--directory", self.hub.directory / "traps", "--pipe",
            self.fifo])
        wait_until(self.fifo.exists, what="the reader's FIFO")

    def get(self, server, path):
        """The answer's text, None if there is none."""
        result = self.hub.run("/usr/bin/python3", "-c", "import sys, urllib.request as request;"
                              "sys.stdout.buffer.write(request.urlopen(sys.argv[1], timeout=20)"
                              ".read())", f"http://{server}{path}")
        return result.stdout.encode("latin-1").decode() if result.returncode == 0 else None

    def query(self, expression):
        """[(labels, value)] of an instant query."""
        answer = json.loads(self.get(PROMETHEUS, "/api/v1/query?" + urllib.parse.urlencode(
            {"query": expression})) or '{"data": {"result": []}}')
        return [(sample["metric"], float(sample["value"][1]))
                for sample in answer["data"]["result"]]

    def value(self, expression):
        """The first value; None if there is none."""
        values = self.query(expression)
        return values[0][1] if values else None

    def alerts(self, unit=None, **labels):
        """Alertmanager's active alerts, inhibited ones included, with these labels."""
        if unit:
            labels["instance"] = unit.address
        return [alert for alert in json.loads(self.get(ALERTMANAGER, "/api/v2/alerts") or "[]")
                if labels.items() <= alert["labels"].items()]

    def scraped(self):
        """How many units have given values and texts."""
        return int(self.value("count(norva:values{job=\"norva\"} and on (instance)"
                              " norva:values{job=\"norva_config\"} and on (instance) norva_site_name_info)") or 0)

    def page_address(self, port=0):
        """Makes Prometheus reachable from outside, at a port of the loopback; the address."""
        listener = socket.create_server(("127.0.0.1", port))
        process = subprocess.Popen(
            [*self.hub.enter, "/usr/bin/python3", "-c", _RELAY, str(listener.fileno()), PROMETHEUS],
            pass_fds=[listener.fileno()], stdin=subprocess.DEVNULL)
        self.hub.adopt(process)
        with listener:
            return f"http://127.0.0.1:{listener.getsockname()[1]}"
