"""norvamap: what it says of a mapping is what managers then see of the agent."""

import csv
import json
import os
import re
import shutil
import sqlite3
import subprocess
import time

import pytest
import yaml

from receiver import BASE
from world import CELLS, ROOT, SCALARS, SOURCE, World, cell_row, empty_schema, scalar_row

BUILD = SOURCE / (os.environ.get("NORVA_BUILD") or "build/dev")
TOOL = BUILD / "tools/norvamap/norvamap"
SAMPLE = BUILD / "data/mapping.db"
NAMES = SOURCE / "data/names.yaml"
MIBS = f"{SOURCE}/mibs:{SOURCE}/mibs/base"
MODULES = "NORVA-MIB:NORVA-NOTIFY-MIB:SNMPv2-MIB"

# The sample without the constraints that keep errors out, and without what check says of it.
LOOSE = [*empty_schema(), f"ATTACH '{SAMPLE}' AS sample",
         *(f"INSERT INTO main.{table} SELECT * FROM sample.{table}" for table in (SCALARS, CELLS)),
         f"UPDATE main.{SCALARS} SET c4 = '1' WHERE c0 IN ('0611', '0FFA', '0FFB')",
         f"UPDATE main.{SCALARS} SET c9 = '0000' WHERE c0 = '0705'"]


def norvamap(*args, status=0):
    result = subprocess.run([TOOL, *map(str, args)], capture_output=True, text=True, timeout=30)
    assert result.returncode == status, result.stdout + result.stderr
    return result.stderr if status == 2 else result.stdout


def findings(database, *args):
    """(row, severity, text) of each."""
    found = json.loads(subprocess.run([TOOL, "check", database, "--format", "json", *args],
                                      capture_output=True, timeout=30, check=False).stdout)
    return [(finding["rows"][0] if finding["rows"] else None, finding["severity"], finding["text"])
            for finding in found]


def scalar(object_id, column, value):
    quoted = "NULL" if value is None else f"'{value}'"
    return f"UPDATE main.{SCALARS} SET c{column} = {quoted} WHERE c0 = '{object_id:04X}'"


def column(first, node, number, rows=32):
    return [cell_row(first + row, number, row + 1, node=node, access=1) for row in range(rows)]


def check_answers(world, answers):
    """`answers`: OID below the root to the value of a GET, None for no value."""
    for suffix, value in answers.items():
        answer = world.get(f"{ROOT}.{suffix}")[0]
        assert answer.value == value, (suffix, answer)


# Each row: what is changed, what check says of it and what a GET then answers below the root.
PLANTED = [
    (scalar(0x0309, 3, None), "error", "asnType is NULL: the row is not used", {"1.1.4.9.0": None}),
    (scalar(0x0306, 8, "x7"), "error", "suffix4 'x7' is no decimal number, read as 0",
     {"1.1.4.0.0": 0, "1.1.4.6.0": None}),
    (scalar(0x0302, 8, 2 + (1 << 32)), "error",
     "suffix4 '4294967298' does not fit 32 bits, read as 2", {"1.1.4.2.0": -12}),
    (scalar(0x0303, 8, 10 ** 20 - 1), "error",
     "suffix4 '99999999999999999999' does not fit 32 bits, read as 4294967295",
     {"1.1.4.3.0": None}),
    (scalar(0x0404, 9, "none"), "error", "covMethod 'none' is no hexadecimal number, read as 0",
     {"1.1.5.4.0": 0}),
    (scalar(0x0307, 3, "66"), "error", "asnType 66 is no type of a value, it is read as hexadecimal:"
     " Gauge32 is 42 here; GET answers no value or one of the wrong type", {"1.1.4.7.0": None}),
    (scalar_row(0x0308, 99), "error", "the object is in row 30 already: this row is not used",
     {"1.1.1.99.0": None, "1.1.4.8.0": 1}),
    (scalar(0x0408, 8, "1"), "error", "object 0x0401 has the same OID: this one is not served",
     {"1.1.5.1.0": 0, "1.1.5.8.0": None}),
    (scalar(0x030A, 9, "0004"), "error",
     "method 4 makes a text, INTEGER sends its first four bytes as a number",
     {"1.1.4.10.0": int.from_bytes(b"2800", "big")}),
    (scalar(0x030C, 3, "41"), "error",
     "type Counter32 has no value for what method 4 makes: GET answers noSuchInstance",
     {"1.1.4.12.0": None}),
    (scalar(0x0704, 9, "11"), "error", "covMethod 11: there is no method 11, the value stays as it is;"
     " it is read as hexadecimal: 11 is B", {"1.1.6.4.0": 0x12345678}),
    (scalar(0x0305, 4, "1"), "warning", "exponent 1 without effect: it scales what is written, and the"
     " object is read-only", {"1.1.4.5.0": -200}),
    (scalar(0x0304, 4, "4"), "warning", "access 4 means nothing: 1 is read-only, 2 read-write; served"
     " read-only"),
    (scalar(0x0406, 3, "102"), "warning", "asnType 102: its low byte counts, INTEGER", {"1.1.5.6.0": 0}),
    (scalar(0x0407, 11, ""), "warning", "name is empty: notifications do not tell the object"),
    (f"UPDATE main.{CELLS} SET c0 = '0303' WHERE c0 = '1040'", "error", "the object is a scalar too,"
     " whose covMethod 1004 is applied here: / 10^1 as text",
     {"10.1.1.4.1.0": int.from_bytes(b"58.7", "big"), "10.1.1.4.2.0": -3}),
    (cell_row(0x0301, 3, 1, access=1), "error", "the cell is in row 2 already: this row is not used",
     {"10.1.1.3.1.0": 1}),
    (cell_row(0x0301, 3, 40, access=1), "error", "a row outside 1 to 32 is not served",
     {"10.1.1.3.40.0": None}),
    (cell_row(0x0301, 20, 2, access=1), "error", "column 20 is not served: row 1 of the table has 8"
     " cells, so its columns end at 9", {"10.1.1.20.2.0": None}),
    (f"DELETE FROM main.{CELLS} WHERE c0 IN ('20C4', '20C6')", "error", "table .10.2: column 8, row 5"
     " is not mapped (and 1 more): a walk leaves the table there, the 26 cells behind it answer to GET"
     " only", {"10.2.1.8.5.0": None, "10.2.1.8.6.0": -39375}),
    (cell_row(0x0301, 1, 2), "error", "column 1 is not served: column 1 is the row's number, columns of"
     " the mapping begin at 2", {"10.1.1.1.2.0": 2}),
    (f"UPDATE main.{CELLS} SET c3 = '66' WHERE c0 = '1061'", "warning", "the type differs from row 4 of"
     " the same column: a MIB module can state one only", {"10.1.1.5.2.0": "5"}),
    (scalar(0x0527, 9, "B"), "error", "method B leaves a number, OCTET STRING sends its bytes up to the"
     " first zero: nothing", {"1.2.3.7.0": ""}),
    (scalar(0x0513, 9, "1000"), "warning", "exponent 1 without effect: it scales numbers, the type is a text's"),
    (scalar(0x0402, 11, "x" * 256), "warning", "name of 256 bytes: managers' tools take 255 of a notification's text"),
    (scalar(0x0403, 11, "Tür"), "warning", "name is not printable ASCII: managers' tools show"
     " notifications with it in hexadecimal"),
    (scalar(0x0405, 11, None), "warning", "name is NULL: the name of the row before is repeated"),
    (scalar(0x0FFA, 4, "2"), "warning", "managers can write a setting of the agent: whoever writes 0 to"
     " it makes heartbeats leave without a pause"),
    (scalar(0x0502, 10, "x"), "warning", "selectFlag 'x' is no hexadecimal number, read as 0; no manager sees it"),
]


def test_planted_errors(world):
    assert findings(world.make_database(*LOOSE, base=False)) == []
    database = world.make_database(*LOOSE, *(planted[0] for planted in PLANTED), base=False)
    found = [(severity, text) for _, severity, text in findings(database)]
    assert sorted(found) == sorted(planted[1:3] for planted in PLANTED)
    conversions = {line["oid"]: line["conversion"]
                   for line in json.loads(norvamap("list", database, "--format", "json"))}
    assert conversions[f"{ROOT}.10.1.1.4.1.0"] == "/ 10^1 as text"
    world.serve(database=database)
    for _, _, _, *answers in PLANTED:
        check_answers(world, *answers or [{}])
    assert len(world.walk(f"{ROOT}.10.2.1.8")) == 4
    assert (f"{database}: {SCALARS} row 24 (object 0x0302): error: suffix4 '4294967298' does not fit 32"
            " bits, read as 2") in norvamap("check", database, status=1).splitlines()


# Each: the rows, what check says, what GETs answer.
STRUCTURES = {
    "256 scalars and three tables": (
        [scalar_row(0x0100 + number, number) for number in range(256)]
        + [row for number in (1, 2, 3) for row in column(0x1000, f".2{number}", 2)],
        {"256 scalars, the agent serves the 255 lowest object ids",
         "table .23: not served: the agent serves the first 2 tables only",
         "the object is in an earlier row too: two OIDs show and write one object"},
        {"1.1.1.254.0": 254, "1.1.1.255.0": None, "22.1.2.32.0": 31, "23.1.2.1.0": None}),
    "nodes": (
        [*column(0x1000, ".30", 2), *column(0x1020, ".3001", 2), *column(0x1040, ".30", 3)],
        {"table .30: the columns of .3001 are counted with its own: GETs behind its last column"
         " answer noSuchInstance, not noSuchObject"},
        {"30.1.3.32.0": 95, "3001.1.2.1.0": 32, "30.1.4.1.0": None}),
    "a scalar inside a table": (
        [*column(0x1000, ".1", 2), *column(0x1020, ".1", 3), scalar_row(0x0101, 2),
         f"UPDATE {SCALARS} SET c6 = '1', c7 = '3', c8 = '2'"],
        {f"the scalar {ROOT}.1.1.3.2 stands inside table .1: no module can describe that"},
        {"1.1.3.2.0": 1, "1.1.3.1.0": 32, "1.1.3.3.0": 34, "1.1.2.2.0": 1}),
    "a table in a row of another": (
        [*column(0x1000, ".1", 2), *column(0x1020, ".1.1.2.30.5", 2)],
        {"table .1.1.2.30.5 stands inside table .1: GET and walk disagree about 2 OIDs there"},
        {"1.1.2.30.0": 29, "1.1.2.31.0": 30, "1.1.2.30.5.1.2.1.0": 32}),
    "numbers that are too large": (
        [scalar_row(0x0101, 1 << 31), scalar_row(0x0102, 2), scalar_row(0x0103, (1 << 31) - 1), *column(0x1000, ".2147483648", 2)],
        {"a number of its OID is above 2147483647: not served",
         "table .2147483648: not served: a number of its node is above 2147483647"},
        {"1.1.1.2.0": 2, "1.1.1.2147483647.0": 3}),
    "a malformed node and a long one": (
        [*column(0x1000, "5", 2), *column(0x1020, "." + ".".join(["1"] * 22), 2)],
        {"table 5: its node is not of the form .10.1: it stands at .1.3.6.1.4.1.53412.8.2.2.45",
         f"table .{'.'.join(['1'] * 22)}: not served: with the root its node has 33 numbers, 32 are"
         " possible"},
        {"1.1.1.1.0": None}),
    "a table where a scalar is": (
        [scalar_row(0x0101, 1), *column(0x1000, ".1.1.1.1", 2)],
        {"table .1.1.1.1: not served: another object has this OID"},
        {"1.1.1.1.0": 1, "1.1.1.1.1.2.1.0": None}),
}
STRUCTURE_OBJECTS = "".join(f"0x{0x0100 + n:04x} unsigned 2 ro {n}\n" for n in range(256)) + "".join(
    f"0x{0x1000 + n:04x} unsigned 2 ro {n}\n" for n in range(96))


@pytest.mark.parametrize("rows, said, answers", STRUCTURES.values(), ids=STRUCTURES)
def test_structure(world, rows, said, answers):
    database = world.make_database(*empty_schema(), *rows, base=False)
    assert {text for _, _, text in findings(database)} == said
    norvamap("mib", database, status=2 if re.search(" stands (inside|at) ", str(said)) else 0)
    world.serve(objects=STRUCTURE_OBJECTS, database=database, wait=False)
    world.wait_output("init_snmp end....")
    check_answers(world, answers)


# Each: an object of the unit, how it is mapped, what check says and what a GET answers.
UNIT = [
    ("unsigned 2 ro 258", {"type": 4, "access": 1},
     "the unit's object is an unsigned integer of 2 bytes: OCTET STRING sends the bytes of the"
     " number up to the first zero", ""),
    ('text 20 rw "12.5"', {"type": 4, "method": 0x1004},
     "the unit's object is a text of 20 bytes: method 4 reads its first four bytes as a number",
     "82537224.00"),
    ("signed 1 ro -1", {"type": 0x42, "access": 1},
     "the unit's object is a signed integer of 1 bytes: negative values appear as large ones"
     " under Gauge32", (1 << 32) - 1),
    ("other 1 ro 1", {"access": 1},
     "the unit's object is of kind 'other' with 1 bytes: integers of that kind are not widened:"
     " the number shown is too large", 1 << 24),
    ("unsigned 2 ro 7", {}, "read-write, but read-only in the unit: a SET is refused", 7),
    ('text 20 ro "10.0.1.7"', {"type": 0x40, "access": 1, "method": 1},
     "the unit's object is a text of 20 bytes: method 1 makes an address of the first four bytes",
     "49.48.46.48"),
    ("unsigned 2 rw 7", {"access": 1}, "read-only, but writable in the unit", 7),
    (None, {"access": 1}, "the unit has no such object: GET answers noSuchInstance", None),
]


def test_against_the_unit(world):
    rows = [scalar_row(0x0100 + n, n, **row) for n, (_, row, *_) in enumerate(UNIT, 1)]
    database = world.make_database(*empty_schema(), *rows, base=False)
    objects = "".join(f"{0x0100 + n:#06x} {unit}\n" for n, (unit, *_) in enumerate(UNIT, 1) if unit)
    objects += f'0x0999 unsigned 1 ro 1\n0x80ba text 64 ro "{ROOT}.7"\n'
    world.objects.write_text(objects)
    assert findings(database, "--objects", world.objects, "--root", ROOT)[0] == (
        None, "error", f"everything stands below {ROOT}.7, not below {ROOT}")
    world.serve(objects=objects, database=database)
    found = findings(database, "--objects", world.objects)
    assert [text for _, _, text in found] == [
        *(text for _, _, text, _ in UNIT), "mapped by no row: no manager sees it"]
    assert norvamap("check", database, "--objects", world.objects, status=1).endswith(
        f"{world.objects}: object 0x0999: warning: mapped by no row: no manager sees it\n")
    for number, (*_, value) in enumerate(UNIT, 1):
        answer = world.get(f"{ROOT}.7.1.1.1.{number}.0")[0]
        assert (answer.value if answer.type != "Gauge32" else int(answer.value)) == value, answer
    assert findings(SAMPLE, "--objects", SOURCE / "data/unit.objects") == findings(SAMPLE)


def with_modules(world, directory, *command):
    """Runs a command that knows the modules, with the sample's one in `directory`."""
    return world.run("env", f"MIBDIRS={directory}:{MIBS}", f"MIBS={MODULES}", *command)


@pytest.fixture(scope="module")
def module_directory(tmp_path_factory):
    """A directory with the sample's module."""
    directory = tmp_path_factory.mktemp("mibs")
    (directory / "NORVA-MIB.txt").write_text(norvamap("mib", SAMPLE, "--names", NAMES))
    return directory


def test_names(sample_world, module_directory):
    def run(tool, *args):
        result = with_modules(sample_world, module_directory, *tool.split(), "-v2c", "-c",
                              "private", "127.0.0.1:1161", *args)
        return result.stdout + result.stderr
    lines = run("snmpwalk", "NORVA-MIB::norvaMIB").splitlines()
    assert len(lines) == 615
    assert all(re.match(r"NORVA-MIB::[a-z][A-Za-z0-9]*(\.0|\.\d+\.0) = \w", line)
               for line in lines), lines
    assert not re.search("Wrong Type", "\n".join(lines))
    assert "NORVA-MIB::doorState.0 = INTEGER: closed(0)" in lines
    assert "NORVA-MIB::remoteUnitTemperature.3.0 = INTEGER: -1 degrees Celsius" in lines
    assert "NORVA-MIB::channelPower.1.0 = INTEGER: -40.000 dBm" in lines
    assert "NORVA-MIB::lowTemperatureThreshold.0 = INTEGER: -200 0.1 degrees Celsius" in lines
    assert run("snmpset", "NORVA-MIB::downlinkSwitch.0", "=", "disabled") == (
        "NORVA-MIB::downlinkSwitch.0 = INTEGER: disabled(0)\n")
    assert sample_world.held(0x0501)[-1] == 0
    table = run("snmptable -Ci -Cb", "NORVA-MIB::remoteUnitTable").splitlines()
    assert table[2].split()[1:6] == ["Name", "State", "Temperature", "Attenuation", "OutputPower"]
    assert re.match(r"\s*3\.0\s+RU 3 connected -1 degrees Celsius\s+10 0\.1 dB", table[5]), table[5]
    # The notifications that the agent sends, and their bindings.
    names = ["Alarm", "RemoteUnit", "General", "Heartbeat",
             "Name", "Value", "Device", "Text4", "Text5", "Text6", "Sequence"]
    translated = with_modules(sample_world, module_directory, "snmptranslate", "-On",
                              *(f"NORVA-NOTIFY-MIB::norvaNotify{name}" for name in names))
    assert translated.stdout.split() == [
        f"{BASE}.{number}" for number in (*range(96, 100), *range(1, 8))]


def test_decode_of_reads_and_writes(sample_world, tmp_path):
    world = sample_world
    time.sleep(0.3)  # what was done before has been printed
    start = len(world.agent_output())
    world.get(f"{ROOT}.10.1.1.6.3.0")
    world.set(f"{ROOT}.1.2.1.2.0", "i", 14)
    world.set(f"{ROOT}.10.1.1.5.3.0", "i", 7)
    world.set(f"{ROOT}.1.1.1.7.0", "s", "Quay 9")
    world.ctl("fault", "wrong-command", "0x1f", "--count", 1)
    world.get(f"{ROOT}.1.2.1.2.0")
    world.wait_output("ERROR  oid = 502 !!!!!!!!!!!\n", after=start)
    trace = tmp_path / "trace"
    trace.write_text(world.agent_output()[start:])
    lines = norvamap("decode", SAMPLE, trace).splitlines()
    for line in ('got  0x1082 "RU 3 Output Power": signed 2, 256, ro -> OCTET STRING "25.60"',
                 'set  0x0502 "Downlink Attenuation": unsigned 1, 14, rw -> INTEGER 14',
                 'set  0x1062 "RU 3 Attenuation": unsigned 2, 70, rw -> INTEGER 70',
                 'set  0x0601 "Site Location": text 64, "Quay 9", rw -> OCTET STRING "Quay 9"',
                 "DataManage::setObjValue error obj type!", "done",
                 "set 'ACTION'  oid = 601   set length = 6..",
                 "1f 04 10 00 02 05 0e ERR: DatabaseFacade::select:  error!  cmd=1f  oid=0x0502"):
        assert line in lines
    assert [line for line in lines if re.match(r" ?([0-9a-f]{2} ){2}", line)] == [line]


def test_decode_while_the_agent_waits():
    """Each frame is told as soon as it is there: a silent unit leaves a request without an answer."""
    name = '0x0502 "Downlink Attenuation"'
    event = bytes.fromhex("000000020000000000050230").ljust(213, b"\0").hex(" ")
    with subprocess.Popen(["timeout", "60", TOOL, "decode", SAMPLE], stdin=subprocess.PIPE,
                          stdout=subprocess.PIPE, text=True) as decode:
        for piece, lines in [
                ("be careful\n\n 1.2.3\n", ["be careful", "", " 1.2.3"]),
                ("02 07 02 05 00 00 00 00 ", [f"get  {name}"]),
                (event + " ", [f"event type 2, cleared, {name}"]),
                ("12 04 10 01 02 05 fe text\n", [f"got  {name}: signed 1, -2, rw -> INTEGER -2",
                                                 "text"]),
                ("12 04 10\n02 0", ["12 04 10"])]:
            decode.stdin.write(piece)
            decode.stdin.flush()
            assert [decode.stdout.readline() for _ in lines] == [line + "\n" for line in lines]
        decode.stdin.close()
        assert decode.stdout.read() == "02 0\n"
        assert decode.wait(10) == 0


def lint(directory, module="NORVA-MIB"):
    return subprocess.run(["smilint", "-l", "6", "-s", module], capture_output=True, text=True,
                          timeout=60, env={**os.environ, "SMIPATH": f"{directory}:{MIBS}"},
                          check=False).stderr


def zabbix(database, *args, name="norvaSnmp unit"):
    """Of a template that an import would take: items by key, rules, priorities by trigger, UUIDs."""
    text = norvamap("zabbix", database, *args)
    export = yaml.safe_load(text)["zabbix_export"]
    template = export["templates"][0]
    rules = template.get("discovery_rules", [])
    items = {item["key"]: item for part in (template, *rules) for item in
             part.get("items", []) + part.get("item_prototypes", [])}
    triggers = export["triggers"] + [trigger for item in items.values() for trigger in item.get("triggers", [])]
    listed = norvamap("list", database, "--format", "csv")
    assert all(re.fullmatch(r"norva\.\w+" + r"\[{#ROW}\]" * item["snmp_oid"].endswith("}"), key) and
               f"\n.{item['snmp_oid']},".replace("{#SNMPINDEX}", "1.0") in listed
               for key, item in items.items() if "snmp_oid" in item)
    assert {item["valuemap"]["name"] for item in items.values() if "valuemap" in item} == {
        values["name"] for values in template["valuemaps"]}
    asked = set(re.findall(r"\(/([^/]+)/(\w[\w.]*(?:\[[^]]*\])?)",
                           "".join(re.findall("expression: .*", text))))
    assert asked and asked <= {(name, key) for key in items}
    assert {(cause["name"], cause["expression"]) for trigger in triggers for cause in trigger.get(
        "dependencies", [])} <= {(trigger["name"], trigger["expression"]) for trigger in triggers}
    uuids = set(re.findall('uuid: "([0-9a-f]{12}4[0-9a-f]{3}[89ab][0-9a-f]{15})"\n', text))
    assert len(uuids) == text.count("uuid:") and text.count("key:") == len(items) + len(rules)
    return items, rules, {trigger["name"]: trigger["priority"] for trigger in triggers}, uuids


ODD_NAMES = ["RF  Power (dBm)", "2G Power", "Größe", "Site", "Site", "site", "x" * 200, "x" * 200,
             "Current", "INTEGER", "Mac Address", "---", "ru table", 'say "no"', "Enterprises", "", "a",
             "DASUnit 3", "fan_speed", "ccitt", "Snmp Modules", "Link Count", "Link Count Value", "y" * 200,
             "{$M} {#ROW}: $1 ä"]


# Each table has four objects beside its columns.
@pytest.mark.parametrize("rows, count", [
    ([], 0),
    ([scalar_row(0x0100 + number, number + 1, type=(2, 4, 0x40, 0x41, 0x42, 0x43, 0x46)[number % 7],
                name=f"Object {number}") for number in range(250)]
    + [row for table in (1, 2) for number in range(2, 22)
       for row in column(0x1000 * table + 32 * number, f".2{table}.1", number)],
     250 + 2 * 24),
    ([scalar_row(0x0100 + number, number + 1, name=name.replace("'", "''"))
     for number, name in enumerate(ODD_NAMES)]
    + column(0x1000, ".20", 2) + column(0x1020, ".20", 3)
    + [scalar_row(0x0200, 0, name="No object of a module"),
       f"UPDATE {CELLS} SET c8 = 'RU ' || c9 || iif(c0 = '1021', ' Row', ' Row State')",
       f"UPDATE {SCALARS} SET c5 = '65535' WHERE c0 = '0100'",
       f"UPDATE {SCALARS} SET c3 = '44' WHERE c0 IN ('0101', '0102')"],
     len(ODD_NAMES) + 6),
], ids=["empty", "large", "odd names"])
def test_module_is_clean(tmp_path, rows, count):
    with World() as world:
        database = world.make_database(*empty_schema(), *rows, base=False)
        text = norvamap("mib", database)
        assert norvamap("mib", database) == text
        (tmp_path / "NORVA-MIB").write_text(text)
        # A compiler warns of Opaque wherever it stands.
        assert re.sub(r".* Opaque .*\n", "", lint(tmp_path), count=1) == ""
        objects = set(re.findall(r"^(\w+) OBJECT-TYPE", text, re.M))
        assert len({name.lower() for name in objects}) == text.count(" OBJECT-TYPE\n") == count
        items, *_, uuids = zabbix(database)
        others = zabbix(database, "--template", "Other", name="Other")[-1]
        assert len(items) >= count - 4 * 2 and len(uuids & others) == 1  # the group
        metrics = re.findall(r"name: norva_(\w+)$", norvamap("exporter", database), re.M)
        assert len(set(metrics)) == len(metrics) >= count - 4 * 2
        if count == len(ODD_NAMES) + 6:
            listed = norvamap("list", database).splitlines()
            assert len({re.search(" r[ow] ", line).start() for line in listed[1:]}) == 1
            fields = csv.reader(norvamap("list", database, "--format", "csv").splitlines())
            assert set(ODD_NAMES) < {name for _, name, *_ in fields}
            assert f"-- Not expressible: {ROOT}.1.1.1.0.0\n" in text
            assert {"link_count_0115", "link_count_value_0116"} <= set(metrics)
            # who shares a name has his object id behind it
            assert {"site0103", "site0104", "site0105", "rfPowerDBm", "n2GPower", "grE", "dasunit3",
                    "fanSpeed", "ruRow", "ruRowState"} <= objects
            assert {"Site (0x0103)", "($M) (#ROW): $ 1 ä", 'say "no"'} <= {
                item["name"] for item in items.values()}


def test_module_of_the_sample(world, module_directory):
    for module in ("NORVA-MIB", "NORVA-NOTIFY-MIB", "NORVA-AGENT-MIB"):
        assert lint(module_directory, module) == ""
    # A new row adds lines and changes none, wherever it stands.
    changed = world.make_database(*LOOSE, base=False)
    before = norvamap("mib", changed).splitlines()
    assert "OTHER-MIB DEFINITIONS ::= BEGIN" in norvamap("mib", changed, "--module", "OTHER-MIB")
    text = " ".join(" ".join(before).split())
    assert text.count("A SET takes digits and a point.") == 5
    assert "A SET is multiplied by 10^3, a GET is not divided: what was written as 1 reads as 1000." in text
    new = scalar_row(0x0999, 50, name="New Object")
    last = f"UPDATE {SCALARS} SET c6 = '2', c7 = '3', c8 = '99' WHERE c0 = '0999'"
    for rows in ([new], [new, last]):
        after = norvamap("mib", world.make_database(*rows, base=changed)).splitlines()
        remaining = iter(after)
        assert all(line in remaining for line in before)
        assert len(after) == len(before) + 9


@pytest.mark.parametrize("text, said", [
    ("scalars:\n  0x0502: {units: dB}\n  0x9999: {units: dB}\n",
     "3: the mapping serves no scalar of object 0x9999"),
    ("tables:\n  .10.1:\n    columns:\n      77: {name: x}\n", "4: the mapping serves no column 77 there"),
    ("tables:\n  .77: {name: x}\n", "2: the mapping serves no table .77"),
    ("scalars:\n  0x0502: {name: 1x}\n",
     "2: name '1x': a small letter, then up to 63 letters and digits"),
    ("scalars:\n  0x0502: {name: same}\n  0x0504: {name: same}\n", "3: name 'same' is taken already"),
    ("scalars:\n  0x0502: {unity: dB}\n", "2: unknown key 'unity'"),
    ("scalars:\n  0x0502: {unit: dB}\n  0x502: {unit: dB}\n", "3: object 0x502 stands here twice"),
    ("scalars:\n  0x0306: {values: {0: a, 1: a}}\n", "2: value 1 'a' stands here twice"),
    ("scalars:\n  0x0306: {values: {0: a, 0: b}}\n", "2: '0' stands here twice"),
    ("scalars:\n  0x0504: {scale: -1}\n", "2: a scale is for objects of type INTEGER or Gauge32"),
    ("scalars:\n  0x0401: {severity: bad}\n",
     "2: severity 'bad': critical, major, minor or warning, of a scalar"),
    ("scalars:\n  0x0502: {scale: 10}\n", "2: scale 10: -9 to 9"),
    ("tables:\n  .10.1:\n    columns:\n      4: {severity: major}\n",
     "4: severity 'major': critical, major, minor or warning, of a scalar"),
    ("tables:\n  .10.1:\n    columns:\n      4: {}\n      04: {}\n", "5: column 4 stands here twice"),
    ("scalars:\n  0x0504: {values: {0: a}}\n", "2: values are for objects of type INTEGER"),
    ("scalars: [\n", "2: end of sequence flow not found"),
])
def test_annotations_are_checked(tmp_path, text, said):
    names = tmp_path / "names.yaml"
    names.write_text(text)
    assert norvamap("mib", SAMPLE, "--names", names, status=2) == f"norvamap: {names}:{said}\n"


def test_exporter(world):
    """In base units where it can scale, no module without objects, and the agent's own objects."""
    names = world.directory / "names.yaml"
    names.write_text("scalars: {0x0101: {unit: uV, scale: 2}, 0x0102: {unit: kB}}")
    database = world.make_database(
        *empty_schema(), scalar_row(0x0101, 1, access=1, method=0x1000, name="Noise"),
        scalar_row(0x0102, 2, access=1, type=0x41, name="Sent"), scalar_row(0x0103, 3, type=0x44),
        scalar_row(0x0104, 4, type=0x40, name="Tür"), base=False)
    text, module = (norvamap(command, database, "--names", names) for command in ("exporter", "mib"))
    assert '"100 uV"' in module and "A SET" not in module
    metrics = re.findall(r"- name: (\w+)\n +oid: \S+\.(\d+)\n +type: (\w+)\n +help: (.*)\n"
                         r"(?: +regex_extracts:\n.*\n.*\n +value: (.*)\n)?", text)
    assert metrics[:3] == [("norva_noise_volts", "1", "DisplayString", "Noise in V", "${1}e-4"),
                           ("norva_sent_kb_total", "2", "counter", "Sent in kB", ""),
                           ("norva_t_r_info", "4", "InetAddressIPv4", "T??r", "")]
    assert re.findall(r"^\w+", text, re.M) == ["norva", "norva_text", "norva_master", "norva_agent"]
    assert text.count("value: ${1}e-3\n") == 2
    own = re.findall(r"^(\w+) OBJECT-TYPE(?:.*\n)+?    ::= { norvaAgentMIB (\d+) }",
                     (SOURCE / "mibs/NORVA-AGENT-MIB.txt").read_text(), re.M)
    for (metric, number, *_), (name, own_number) in zip(metrics[4:], own[1:], strict=True):
        words = re.sub("([A-Z])", r"_\1", name).lower().split("_")
        assert set(words) <= set(metric.split("_")) and number == own_number


def test_severities_and_units(world):
    assert norvamap("severities", SAMPLE, "--names", NAMES) == (SOURCE / "monitoring/severities.yml").read_text()
    items, rules, priorities, _ = zabbix(SAMPLE, "--names", NAMES)
    assert len(priorities) == 7 + 3 and priorities.items() >= {
        "PA Failure Alarm": "DISASTER", "VSWR Alarm": "HIGH", "Door Open Alarm": "AVERAGE"}.items()
    assert rules[1]["snmp_oid"] == f"discovery[{{#ROW}},{ROOT[1:]}.10.2.1.1,{{#NAME}},{ROOT[1:]}.10.2.1.2]"
    for key, *shown in (("lowTemperatureThreshold", "FLOAT", "!°C", "SETTINGS", "0.1", "1h"),
                        ("siteName", "CHAR", None, "TEXTS", "try { ret", "1d"), ("doorState", "FLOAT", None, "STATES"),
                        ("downlinkStartFrequency", "FLOAT", "Hz", "VALUES", "1000000"),
                        ("humidity", "FLOAT", "%", "VALUES")):
        assert shown == [(item := items["norva." + key])["value_type"], item.get("units"), item["delay"][8:-1],
                         *(step["parameters"][0][:9] for step in item.get("preprocessing", []))]
    other, rules, priorities, _ = zabbix(world.make_database(
        *LOOSE, scalar(0x0301, 11, "Heat"), scalar(0x0302, 11, "VSWR Alarm"),
        f"DELETE FROM main.{CELLS} WHERE c5 = '.10.2' AND c9 NOT IN ('1', '3')", base=False))
    assert other["norva.heat"]["uuid"] == items["norva.boardTemperature"]["uuid"]  # another name alone
    assert priorities["PA Failure Alarm"] == "HIGH"  # no severity is given
    assert "VSWR Alarm (0x0302)" in priorities  # its item's key ends in an object id
    assert rules[1]["filter"]["conditions"][0]["value"] == "^(1|3)$" and "filter" not in rules[0]


@pytest.mark.parametrize("args, said", [
    (["frob", SAMPLE], "no command 'frob', see norvamap --help"),
    (["list", "/tmp"], "/tmp: Is a directory"),
    (["mib", SAMPLE, "--names", "/tmp"], "/tmp: Is a directory"),
    (["mib", SAMPLE, "--module", "NORVA-"],
     "module name 'NORVA-': a capital, then letters, digits and single hyphens"),
    (["exporter", SAMPLE, "--access", NAMES], f"{NAMES}:3: unknown key 'scalars': version or auth"),
    (["zabbix", SAMPLE, "--template", "a/b"], "template 'a/b': up to 128 letters, digits, spaces and . _ -"),
    (["list", SAMPLE, "--root", ".1.2147483648"], "root '.1.2147483648' has a number above 2147483647:"
     f" the agent uses {ROOT} in its place"),
])
def test_bad_command(args, said):
    assert norvamap(*args, status=2) == f"norvamap: {said}\n"


def test_diff(world):
    new = world.make_database(
        *LOOSE, scalar(0x0502, 4, "1"), scalar(0x0504, 9, "2004"), scalar(0x0309, 3, "42"),
        scalar(0x0306, 8, "60"), scalar(0x0301, 11, "Board Heat"), scalar_row(0x0999, 50, name="New"),
        f"DELETE FROM main.{SCALARS} WHERE c0 = '0307'", scalar(0x0308, 0, "0998"),
        scalar(0x0401, 4, "2"), f"UPDATE main.{CELLS} SET c8 = 'RU ' || c9 || ' Sign' WHERE c2 = '8'",
        f"DELETE FROM main.{CELLS} WHERE c5 = '.10.2' AND c2 = '8'", base=False)
    old = world.make_database(*LOOSE, scalar(0x0703, 3, "6"), base=False)
    changes = {(change["oid"].removeprefix(ROOT + "."), change["change"], change["breaks"]):
               (change["text"], change["count"])
               for change in json.loads(norvamap("diff", old, new, "--format", "json", status=1))}
    assert changes == {
        ("1.2.1.2.0", "access", True): ("read-write -> read-only", 1),
        ("1.1.5.1.0", "access", False): ("read-only -> read-write", 1),
        ("10.1.1.8.1.0", "name", False): ("of the cells", 32),
        ("10.1.1.8.1.0", "metric", True): ("norva_ru_label_info -> norva_ru_sign_info", 32),
        ("1.2.1.4.0", "scale", True): ("/ 10^1 as text -> / 10^2 as text", 1),
        ("1.1.4.9.0", "type", True): ("INTEGER -> Gauge32", 1),
        ("1.1.6.3.0", "type", False): ("no value -> INTEGER", 1),
        ("1.1.4.6.0", "moved", True): (f"to {ROOT}.1.1.4.60.0", 1),
        ("1.1.4.1.0", "name", True): ('-> "Board Heat"', 1),
        ("1.1.4.1.0", "metric", True): ("norva_board_temperature -> norva_board_heat", 1),
        ("1.1.1.50.0", "added", False): ("object 0x0999", 1),
        ("1.1.4.8.0", "replaced", True): ("shows another device object", 1),
        ("1.1.4.7.0", "removed", True): ("object 0x0307", 1),
        ("10.2.1.8.1.0", "removed", True): ("cells", 32)}
    assert norvamap("diff", old, old) == ""
    moved = world.make_database(f"UPDATE {CELLS} SET c5 = '.10.3' WHERE c5 = '.10.2'", base=old)
    assert f'{ROOT}.10.2.1.8.1.0 "Channel 1 Power" and 31 more of its column: moved: to column 8 of .10.3' in (
        norvamap("diff", old, moved, status=1))
    added = world.make_database(scalar_row(0x0999, 50, name="New"), base=old)
    assert norvamap("diff", old, added) == f'{ROOT}.1.1.1.50.0 "New": added: object 0x0999\n'
    names = world.directory / "names.yaml"
    names.write_text(NAMES.read_text().replace("scale: -3", "scale: -2"))
    assert norvamap("diff", old, old, "--names", NAMES, "--new-names", names, status=1) == (
        f'{ROOT}.10.2.1.8.1.0 "Channel Power" and 31 more of its column: metric: '
        "norva_channel_power_decibel_milliwatts: values x 10^1 (breaks)\n")


def test_nothing_is_written(world):
    """Not even what SQLite itself puts in order: here a log that another program left behind. Nor
    elsewhere: the name's # begins no options."""
    left = world.directory / "le#ft.db"
    writer = sqlite3.connect(world.make_database(*LOOSE[:2], base=False))
    writer.execute("PRAGMA journal_mode = WAL")
    writer.execute(scalar_row(0x0101, 1))
    writer.commit()
    source = writer.execute("PRAGMA database_list").fetchone()[2]
    for end in ("", "-wal"):
        shutil.copy(source + end, f"{left}{end}")
    writer.close()
    before = [(path.name, path.read_bytes()) for path in (left, left.with_name("le#ft.db-wal"))]
    assert "0x0101" in norvamap("list", left)
    assert [(name, (world.directory / name).read_bytes()) for name, _ in before] == before
    assert not (world.directory / "le").exists()


def test_output():
    """Lines of CSV, colours of frames on a terminal, a full disk."""
    csv = subprocess.run([TOOL, "list", SAMPLE, "--format", "csv"], capture_output=True,
                         check=True).stdout
    assert csv.count(b"\r\n") == csv.count(b"\n") > 500
    assert json.loads(norvamap("list", SAMPLE, "--format", "json"))[-1]["row"] == 32
    shown = subprocess.run(["script", "-qec", f"echo 12 04 10 01 02 05 fe | {TOOL} decode {SAMPLE}",
                            "/dev/null"], capture_output=True, text=True, check=True).stdout
    assert re.search("\033\\[36mgot  0x0502 .*\033\\[0m", shown)
    full = subprocess.run(f"{TOOL} list {SAMPLE} > /dev/full", shell=True, stderr=subprocess.PIPE,
                          text=True, check=False)
    assert (full.returncode, full.stderr) == (2, "norvamap: output: No space left on device\n")


@pytest.mark.parametrize("sql, said", [
    (None, "No such file or directory"),
    (["CREATE TABLE a (b)"], f"{SCALARS}: no such table"),
    ([f"CREATE TABLE {SCALARS} (a, b)", f"INSERT INTO {SCALARS} VALUES (1, 2)"],
     f"{SCALARS} has 2 columns, 13 are needed"),
])
def test_bad_database(world, sql, said):
    path = world.make_database(*sql, base=False) if sql else world.directory / "nowhere.db"
    before = path.read_bytes() if sql else None
    for command in ("list", "mib", "exporter", "zabbix"):
        assert norvamap(command, path, status=2) == f"norvamap: {path}: {said}\n"
    assert path.exists() == bool(sql) and (not sql or path.read_bytes() == before)
    if sql:
        missing = re.split(": | has ", said)[1]
        assert (None, "error", f"{missing}: no scalar is served") in findings(path)


def test_mappings_that_take_long(world):
    """A view, whose query may be endless: norvamap refuses it, the agent says what it waits for. A
    table of too many rows; one that is slow to read."""
    columns = ", ".join(["'1'"] * 12)
    view, many, slow = (world.make_database(*empty_schema(), *sql, base=False) for sql in (
        [f"DROP TABLE {SCALARS}", f"CREATE VIEW {SCALARS} AS WITH RECURSIVE n(i) AS (SELECT 1 UNION "
         f"ALL SELECT i + 1 FROM n) SELECT i, {columns} FROM n WHERE i < 0"],
        [f"INSERT INTO {CELLS} WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n LIMIT "
         f"200001) SELECT i, {columns} FROM n"],
        [*[scalar_row(0x0101, 1)] * 100, f"ALTER TABLE {SCALARS} ADD COLUMN slow AS "
         "(instr(hex(zeroblob(30000)), hex(zeroblob(15000)) || c0))"]))
    assert norvamap("check", view, status=2) == (
        f"norvamap: {view}: {SCALARS} is a view, a table is needed\n")
    assert norvamap("list", many, status=2).endswith(
        f"norvamap: {many}: {CELLS} has more than 200000 rows, which are not read\n")
    with subprocess.Popen(["timeout", "90", TOOL, "list", slow], stdout=subprocess.DEVNULL,
                          stderr=subprocess.PIPE, text=True) as reading:
        said = reading.stderr.readline()
        reading.terminate()
    assert said == f"norvamap: reading {SCALARS} of {slow} ...\n"
    world.serve(database=view, wait=False)
    world.wait_output(f"still reading {SCALARS} of {view}\n", 90)
    world.agent.kill()
    world.start_agent(database=many, wait=False)
    world.wait_output(f"{CELLS} has 200001 rows, which cost time and memory\n", 90)
