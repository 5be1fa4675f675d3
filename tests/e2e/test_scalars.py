"""Scalars as a manager sees them, and what reaches the unit."""

import re
import struct
import time
from collections import namedtuple

import pytest

from conftest import refused
from world import ROOT, Varbind, cell_row, empty_schema, scalar_row, wait_until

# One scalar: its suffix is its position here. `unit` is the rest of its line in the object file,
# `row` what differs from a writable INTEGER of method 0.
Case = namedtuple("Case", "unit row type value", defaults=({}, "INTEGER", None))

TEXT = {"type": 4}
SCALARS = {
    "unsigned 1": Case("unsigned 1 rw 200", value=200),
    "signed 1": Case("signed 1 rw -2", value=-2),
    "unsigned 2": Case("unsigned 2 rw 65534", value=65534),
    "signed 2": Case("signed 2 rw -300", value=-300),
    "unsigned 4": Case("unsigned 4 rw 2147483649", value=-2147483647),  # as an SNMP INTEGER
    "signed 4": Case("signed 4 rw -123456", value=-123456),
    "other 4": Case("other 4 rw 7", value=7),
    "scaled": Case("unsigned 2 rw 25", {"method": 0x1000}, value=25),
    "scaled signed": Case("signed 2 rw -7", {"method": 0x2000}, value=-7),
    "low half": Case("unsigned 4 rw 0x12345678", {"method": 11}, value=0x5678),
    "method 7": Case("unsigned 4 rw 0x12345678", {"method": 7}, value=0x12345678),
    "method 12": Case("unsigned 4 rw 0x12345678", {"method": 0x300C}, value=0x12345678),
    "text": Case('text 20 rw "Tower 7"', TEXT, "STRING", "Tower 7"),
    "no text": Case('text 20 rw ""', TEXT, "STRING", ""),
    "long text": Case(f'text 64 rw "{"0123456789abcdef" * 4}"', TEXT, "STRING",
                      "0123456789abcdef" * 4),
    "short field": Case('text 8 rw "east"', TEXT, "STRING", "east"),
    "address": Case("unsigned 4 rw 0x0a000001", {**TEXT, "method": 1}, "STRING", "10.0.0.1"),
    "address 2": Case("unsigned 4 rw 0xfffefdfc", {**TEXT, "method": 2}, "STRING",
                      "255.254.253.252"),
    "decimal": Case("unsigned 2 rw 1234", {**TEXT, "method": 0x2004}, "STRING", "12.34"),
    "decimal signed": Case("signed 4 rw -100", {**TEXT, "method": 0x1004}, "STRING", "-10.00"),
    "decimal loss": Case("unsigned 4 rw 123456789", {**TEXT, "method": 4}, "STRING",
                         "123456792.00"),
    # Other types of numbers.
    "gauge": Case("unsigned 4 rw 0x01020004", {"type": 0x42}, "Gauge32", "16908292"),
    "gauge 1": Case("unsigned 1 rw 5", {"type": 0x42}, "Gauge32", "5"),
    "counter": Case("signed 2 rw -1", {"type": 0x41}, "Counter32", "4294967295"),
    "ticks": Case("unsigned 2 rw 500", {"type": 0x43}, "Timeticks", "(500) 0:00:05.00"),
    "wide counter": Case("unsigned 4 rw 0xfffffffe", {"type": 0x46}, "Counter64", "4294967294"),
    "address number": Case("unsigned 4 rw 0x0a000007", {"type": 0x40}, "IpAddress", "10.0.0.7"),
    "address bytes": Case(r'text 4 rw "\x0a\x00\x00\x07"', {"type": 0x40}, "IpAddress", "10.0.0.7"),
    "address text": Case('text 20 rw "10.1.2.3"', {"type": 0x40}, "IpAddress", "10.1.2.3"),
    "address made": Case("unsigned 4 rw 0x0a010203", {"type": 0x40, "method": 1}, "IpAddress",
                         "10.1.2.3"),
    # What no such type can carry has no answer.
    "text as gauge": Case('text 20 ro "12"', {"type": 0x42, "access": 1}, "noSuchInstance"),
    "made text as counter": Case("unsigned 4 ro 5", {"type": 0x41, "method": 4, "access": 1},
                                 "noSuchInstance"),
    "number as object identifier": Case("unsigned 4 ro 5", {"type": 6, "access": 1},
                                        "noSuchInstance"),
    "read-only": Case("unsigned 2 ro 99", {"access": 1}, value=99),
    "read-only in the unit": Case("unsigned 2 ro 98", value=98),
    "two letters": Case('text 2 rw "ab"', TEXT, "STRING", "ab"),
    "address of bytes": Case(r'text 4 rw "\x0a\x01\x02\x03"', {"type": 0x40, "method": 1}, "IpAddress", "10.1.2.3"),
}
ANSWERED = [name for name, case in SCALARS.items() if case.type != "noSuchInstance"]
FIRST_ID = 0x0101


def id_of(name):
    return FIRST_ID + list(SCALARS).index(name)


def oid_of(name):
    return f"{ROOT}.1.1.1.{id_of(name) - FIRST_ID + 1}.0"


def expected(names):
    return [Varbind(oid_of(name), SCALARS[name].type, SCALARS[name].value) for name in names]


@pytest.fixture(scope="module")
def served(shared_world):
    rows = [scalar_row(id_of(name), id_of(name) - FIRST_ID + 1, **case.row)
            for name, case in SCALARS.items()]
    shared_world.database = shared_world.make_database(*empty_schema(), *rows, base=False)
    shared_world.serve(objects="".join(f"{id_of(name):#06x} {case.unit}\n"
                                       for name, case in SCALARS.items()))
    return shared_world


def test_walks_and_requests_of_several_varbinds_agree(served):
    everything = expected(ANSWERED)
    assert [served.get(oid_of(name))[0] for name in SCALARS] == expected(SCALARS)
    assert served.walk() == everything
    assert served.bulkwalk() == everything
    assert served.get(*map(oid_of, SCALARS)) == expected(SCALARS)
    nodes = [oid_of(name).removesuffix(".0") for name in ANSWERED]
    assert served.getnext(*nodes) == everything
    assert served.getnext(*map(oid_of, ANSWERED[:-1])) == everything[1:]


def test_decoded_trace(served):
    """norvamap tells of each object what managers see."""
    def told():
        decoded = served.run(served.build / "tools/norvamap/norvamap", "decode", served.database,
                             input=served.agent_output()).stdout
        return re.findall(r'^got .* -> (?:OCTET STRING|\w+) "?(.*?)"?$', decoded, re.M)
    seen = [re.sub(r"^\((\d+)\).*", r"\1", str(bound.value))
            for bound in served.get(*map(oid_of, ANSWERED))]
    wait_until(lambda: told()[-len(seen):] == seen, what=f"decoded: {seen}")


def test_clock(world):
    """The agent's local time, whatever the unit's object holds. A new time zone counts at once."""
    for ahead in (19800, -3600):  # seconds
        zone = world.directory / f"zone{ahead}"
        zone.write_bytes(struct.pack(">4s16x7lxx4s", b"TZif", 0, 0, 0, 0, 1, 4, ahead, b"TST"))
        world.inside(f"mount --bind {zone} /etc/localtime")
        if world.agent is None:
            world.serve([scalar_row(0x0101, 1, type=4, method=3)], "0x0101 unsigned 4 rw 7\n",
                        prefix=("env", "-u", "TZ"))
        begin = int(time.time()) + ahead
        [bound] = world.get(f"{ROOT}.1.1.1.1.0")
        assert bound.value in [time.strftime("%-H:%-M:%-S %-m/%-d/%Y", time.gmtime(second))
                               for second in range(begin, int(time.time()) + ahead + 1)]


def test_only_instance_zero_exists(served):
    node = oid_of("unsigned 1").removesuffix(".0")
    wrong = [node + ".1", node, node + ".0.0"]
    assert served.get(*wrong, oid_of("text")) == [
        *[Varbind(oid, "noSuchInstance", None) for oid in wrong], *expected(["text"])]


@pytest.mark.parametrize("name, line", [
    ("unsigned 2", "02 07 03 01 00 00 00 00 12 05 10 00 03 01 fe ff "
                   "norvasnmp:getSnmpValue oid=0x103,covMethod=0\n"),
    ("text as gauge", f"object {id_of('text as gauge'):#06x}: its value, a text, is none of type 0x42\n"
     f"SnmpAgentX::read_Var  getObjValue ERROR  oid = {id_of('text as gauge'):X} !!!!!!!!!!!\n"),
])
def test_trace_of_a_get(served, name, line):
    before, frames = len(served.agent_output()), len(served.frames())
    assert served.get(oid_of(name)) == expected([name])
    served.wait_output(line, after=before)
    assert len(served.requests(frames)) == 1


@pytest.mark.parametrize("name, letter, given, frame, answer", [
    ("unsigned 1", "i", 300, "01 04 01 01 2c", 44),
    ("scaled signed", "i", -5, "01 05 09 01 0c fe", -500),
    ("text", "s", "Hill", "01 17 0d 01 48 69 6c 6c" + " 00" * 16, "Hill"),
    ("long text", "s", "x" * 64, "01 43 0f 01" + " 78" * 64, "x" * 64),
    ("decimal", "s", "2.30", "01 05 13 01 e5 00", "2.29"),  # cut in single precision
    ("unsigned 4", "a", "10.0.0.7", "01 07 05 01 07 00 00 0a", 0x0a000007),
    ("address bytes", "a", "10.2.0.9", "01 07 1c 01 0a 02 00 09", "10.2.0.9"),
    ("text", "o", "1.3.6", "01 17 0d 01" + " 00" * 20, ""),
    ("address", "s", "10.2.0.9", "01 07 11 01 32 2e 30 31", "49.48.46.50"),
    ("two letters", "s", "cd", "01 05 24 01 64 63", "dc"),
])
def test_set(restored, name, letter, given, frame, answer):
    before = len(restored.frames())
    output = len(restored.agent_output())
    restored.set(oid_of(name), letter, given)
    assert restored.writes(before) == [bytes.fromhex(frame)]
    assert restored.get(oid_of(name))[0].value == answer
    length = {"s": len(str(given)), "o": 12}.get(letter, 4)  # as the unit's library has it
    restored.wait_output(f"set 'ACTION'  oid = {id_of(name):x}   set length = {length}..\n",
                         after=output)


def test_several_scalars_in_one_set(restored):
    restored.set(oid_of("unsigned 1"), "i", 11, oid_of("text"), "s", "both", oid_of("signed 4"),
                 "i", -44, oid_of("unsigned 2"), "i", 22)
    held = [restored.held(id_of(name))[-1] for name in
            ("unsigned 1", "text", "signed 4", "unsigned 2")]
    assert held == [11, "both", -44, 22]


@pytest.mark.parametrize("name, letter, given, reason", [
    ("read-only", "i", 5, "notWritable"),
    ("read-only in the unit", "i", 5, "badValue"),
    ("decimal", "s", "12,5", "badValue"),
])
def test_refused_set_writes_nothing(served, name, letter, given, reason):
    before = len(served.frames())
    assert refused(served, oid_of(name), letter, given).reason == reason
    assert served.writes(before) == []
    assert served.get(oid_of(name)) == expected([name])


TABLE = ".10.1"
FALLBACK = "object 0x80ba holds no usable OID, the fixed root is used\n"
UNREADABLE = "object 0x80ba cannot be read, the fixed root is used\n"


@pytest.mark.parametrize("text, root", [
    ("ignored.1.3.6.1.4.1.53412", ".1.3.6.1.4.1.53412"),
    (".1.3.6.1.4.1" + ".1" * 26, ".1.3.6.1.4.1" + ".1" * 26),  # fills the 64 bytes
    ("no object identifier", ROOT),
    (".1.3.6.1.4.1.2147483648", ROOT),
    (None, ROOT),
], ids=["text in front", "long", "no dot", "large number", "unreadable"])
def test_root(world, text, root):
    prefix = "" if text is None else f'0x80ba text 64 ro "{text}"\n'
    world.serve([scalar_row(0x0101, 9), cell_row(0x0101, node=TABLE)],
                "0x0101 unsigned 1 rw 42\n" + prefix, wait=False)
    world.wait_served(root)
    names = [f"{root}.1.1.1.9.0"]
    if len(root) < 50:  # no table's node fits behind the long one
        names.append(f"{root}{TABLE}.1.2.1.0")
        wait_until(lambda: world.get(names[1])[0].type == "INTEGER", what="the table")
    assert world.get(*names) == [(name, "INTEGER", 42) for name in names]
    world.wait_output("init_snmp end....\n")
    assert (UNREADABLE in world.agent_output()) == (text is None)
    printed = f"MasterAgent::initNormalObj root_variables_oid={text}\n"
    assert (printed in world.agent_output()) == (text is not None)
    is_unusable = text is not None and root == ROOT
    assert world.agent_output().count(FALLBACK) == 2 * is_unusable
