"""Whether a real Zabbix takes the templates of norvamap, and what it then shows of a unit."""

import re
import time

from project import SOURCE, Failure

from fleet import FleetUnit
from world import CELLS, SCALARS, WorldError, cell_row, empty_schema, scalar_row, wait_until
from zabbix import Zabbix

# Names that Zabbix or YAML would read something else from, and what Zabbix shows of them.
ODD = {"{$MACRO} of {HOST.NAME}": "($MACRO) of (HOST.NAME)", "pays $1": "pays $ 1", "yes": "yes",
       'say "no": {#ROW}': 'say "no": (#ROW)', "Größe, [m²]": "Größe, [m²]", "0x10": "0x10",
       "'tis #1 - \\n": "'tis #1 - \\n", "{HOST.NAME} Alarm": "(HOST.NAME) Alarm"}
# SNMP has it as bytes, more than Zabbix has in a line of them.
SITE = "Prüfstand 3, Köln"
# Shorter than an operator has them.
INTERVALS = {"STATES": "2s", "VALUES": "5s", "SETTINGS": "10s", "TEXTS": "10s", "ROWS": "10s", "SILENCE": "30s"}


def require(condition, what):
    if not condition:
        raise Failure(what)


def contents(zabbix, name):
    """The template's number, and the numbers, UUIDs and names of all that it has."""
    template = zabbix.call("template.get", filter={"host": name})[0]["templateid"]
    everything = {}
    for kind, title in (("item", "name"), ("discoveryrule", "name"), ("itemprototype", "name"),
                        ("trigger", "description"), ("triggerprototype", "description"), ("valuemap", "name")):
        found = zabbix.call(f"{kind}.get", output=["uuid", title], preservekeys=True,
                            **{"hostids" if kind == "valuemap" else "templateids": template})
        everything[kind] = {(number, each["uuid"], each[title]) for number, each in dict(found).items()}
    return template, everything


class Host:
    """A unit as Zabbix has it: asked by SNMPv3, with shorter intervals."""

    def __init__(self, zabbix, unit, template):
        self._zabbix = zabbix
        details = {"version": 3, "securityname": "norva", "securitylevel": 2, "authprotocol": 3,
                   "authpassphrase": "change-this-auth-phrase", "privprotocol": 1,
                   "privpassphrase": "change-this-priv-phrase"}
        interface = {"type": 2, "main": 1, "useip": 1, "ip": unit.address, "dns": "", "port": "161",
                     "details": details}
        group = zabbix.call("hostgroup.create", name="Units")["groupids"][0]
        self._id = zabbix.call(
            "host.create", host="unit", groups=[{"groupid": group}], interfaces=[interface],
            templates=[{"templateid": template}],
            macros=[{"macro": f"{{$NORVA.{name}}}", "value": value}
                    for name, value in INTERVALS.items()])["hostids"][0]

    def items(self):
        """Its SNMP items by key."""
        found = self._zabbix.call("item.get", hostids=self._id, filter={"type": 20},
                                  output=["key_", "name", "lastvalue", "lastclock", "delay", "state"])
        return {item["key_"]: item for item in found}

    def numbers(self):
        """Of its items by key: what is deleted and made again has another."""
        return {key: item["itemid"] for key, item in self.items().items()}

    def problems(self):
        """(name, severity) of what is raised."""
        return {(found["name"], int(found["severity"]))
                for found in self._zabbix.call("problem.get", hostids=self._id)}

    def wait_value(self, key, value):
        def last():
            return self.items().get(key, {}).get("lastvalue")
        try:
            wait_until(lambda: last() == value, 90)
        except WorldError as failure:
            raise Failure(f"{key} is {last()}, not {value}") from failure
        print(f"  {key} = {value}")

    def wait_problem(self, name, severity, raised=True):
        try:
            wait_until(lambda: ((name, severity) in self.problems()) == raised, 120)
        except WorldError as failure:
            raise Failure(f"'{name}' not {raised}: {self.problems()}") from failure
        print(f"  {name}: " + (f"PROBLEM, severity {severity}" if raised else "resolved"))


def template_of(world, tool, arguments):
    return world.inside(f"{tool} zabbix {arguments}").encode("latin-1").decode()


def imports(zabbix, world, tool):
    """The template of the sample, twice, and one of odd names; the sample's number."""
    text = template_of(world, tool, f"{world.database} --names {SOURCE}/data/names.yaml")
    require(zabbix.import_template(text) is True, "the import is refused")
    template = contents(zabbix, "norvaSnmp unit")
    zabbix.import_template(text)
    require(contents(zabbix, "norvaSnmp unit") == template, "another import has changed something")
    print(f"  {len(text)} bytes:", ", ".join(f"{len(found)} {kind}s" for kind, found in template[1].items()))
    rows = [scalar_row(0x0100 + number, number, name=name.replace("'", "''"), access=1)
            for number, name in enumerate(ODD)]
    rows += [cell_row(0x1000 + row, row=row, access=1) for row in (1, 2)]
    rows.append(f"UPDATE {CELLS} SET c8 = 'RU ' || c9 || ' Alarm'")
    database = world.make_database(*empty_schema(), *rows, base=False)
    zabbix.import_template(template_of(world, tool, f"{database} --template Odd"))
    odd = contents(zabbix, "Odd")[1]
    shown = {name for *_, name in odd["item"]}
    require(shown >= set(ODD.values()), f"odd names are shown as {shown}")
    require([name for *_, name in odd["triggerprototype"]] == ["RU Alarm, row {#ROW}"], "no alarms of rows")
    return template[0]


def look(host, world):
    """What the host shows of the unit, whatever that does."""
    host.wait_value("norva.supplyVoltage", "48.15")
    world.ctl("set", "0x030b", 47250)
    host.wait_value("norva.supplyVoltage", "47.25")
    host.wait_value("norva.downlinkStartFrequency", "2110000000")
    host.wait_value("norva.siteName", SITE)
    host.wait_value("norva.remoteUnitTemperature[3]", "-1")
    host.wait_value("norva.channelPower[1]", "-40")
    name = host.items()["norva.remoteUnitTemperature[3]"]["name"]
    require(name == f"RU Temperature, row 3 {SITE}", f"the row's item is called {name}")
    wait_until(lambda: all(item["lastclock"] != "0" for item in host.items().values()), 120,
               "all items have values")
    require(not host.problems(), f"{host.problems()} without a reason")
    for object_id, *problem in (("0x0404", "PA Failure Alarm", 5), ("0x0401", "Door Open Alarm", 3)):
        world.ctl("set", object_id, 1)
        host.wait_problem(*problem)
        world.ctl("set", object_id, 0)
        host.wait_problem(*problem, raised=False)


def count(zabbix, host, world, template):
    """All items are there; what they cost a unit with the intervals as shipped."""
    items = host.items()
    # But for the clock.
    objects = int(world.inside(f"sqlite3 {world.database} 'SELECT (SELECT count(*) FROM {SCALARS})"
                               f" + (SELECT count(*) FROM {CELLS})'")) - 1
    require(len(items) == objects, f"{len(items)} items, {objects} objects")
    unsupported = [item["key_"] for item in items.values() if item["state"] == "1"]
    require(not unsupported, f"not supported: {unsupported}")
    shipped = {macro["macro"]: macro["value"] for macro in zabbix.call("usermacro.get", hostids=template)}
    minutes = {macro: int(value[:-1] or 0) / (60 if value[-1] == "s" else 1) for macro, value in shipped.items()}
    load = sum(1 / minutes[item["delay"]] for item in items.values())
    print(f"  {len(items)} items, one for each object; {load:.0f} objects a minute")


def without_agent(zabbix, host, world, tool):
    """Then all items and their history stay. It comes back with a mapping that has lost a row, as the
    template has, and a scalar, which the template still has."""
    items = host.numbers()
    world.agent.kill()
    host.wait_problem("The unit gives no values", 5)
    require(host.numbers() == items, f"{len(items)} items, without the agent {len(host.numbers())}")
    fewer = world.make_database(f"DELETE FROM {CELLS} WHERE ancestorNode = '.10.1' AND row = '3'")
    zabbix.import_template(template_of(world, tool, f"{fewer} --names {SOURCE}/data/names.yaml"))
    world.start_agent(database=world.make_database(f"DELETE FROM {SCALARS} WHERE objId = '030D'", base=fewer))
    host.wait_problem("The unit gives no values", 5, raised=False)
    host.wait_problem("Values of the unit are missing", 2)
    left = {key: item for key, item in items.items() if not re.fullmatch(r"norva\.remoteUnit\w*\[3\]", key)}
    wait_until(lambda: host.numbers() == left, 90, "no other items than those of row 3 go")
    print(f"  {len(items) - len(left)} items go with a row")


def check(directory):
    """`directory`: of the build."""
    begun = time.monotonic()
    with Zabbix(directory) as zabbix:
        print(f"Zabbix {zabbix.version} runs, {time.monotonic() - begun:.0f} s")
        unit = FleetUnit(zabbix, 1, directory)
        with unit.world as world:
            unit.start()
            for name in ("0x0600", "0x1002"):
                world.ctl("set", name, SITE)
            tool = directory / "tools/norvamap/norvamap"
            template = imports(zabbix, world, tool)
            host = Host(zabbix, unit, template)
            look(host, world)
            count(zabbix, host, world, template)
            without_agent(zabbix, host, world, tool)
            world.master.kill()
            host.wait_problem("The unit does not answer", 5)
    print(f"  {time.monotonic() - begun:.0f} s")
