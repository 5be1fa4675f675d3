"""norvaStrictSet: what a manager asked for is in the unit, or nothing of it."""

import re
from collections import namedtuple

import pytest

from conftest import refused
from world import ROOT, cell_row, empty_schema, scalar_row, wait_until

# `unit` is the rest of the line in the object file; type, method and access those of the mapping.
Object = namedtuple("Object", "unit type method access", defaults=(2, 0, 3))
TEXT, ADDRESS = 4, 0x40
OBJECTS = {
    "u8": Object("unsigned 1 rw 1"), "s8": Object("signed 1 rw -1"),
    "u16": Object("unsigned 2 rw 1"), "s32": Object("signed 4 rw -1"),
    "decimal": Object("signed 2 rw 5", TEXT, 0x2004),
    "text8": Object('text 8 rw "east"', TEXT), "text4": Object('text 4 rw "east"', TEXT),
    "address8": Object('text 8 rw "1.2.3.4"', ADDRESS),
    "read-only": Object("unsigned 1 rw 1", access=1),
    "read-only in the unit": Object("unsigned 1 ro 1"),
    "unreadable": Object(None),
}
NAMES = list(OBJECTS)
# Every object is a scalar and, by another device object, a cell of row 1 of a table.
FIRST_ID = {"scalar": 0x0101, "cell": 0x0201}
SECOND_TABLE = 0x0301


def id_of(name, kind):
    return FIRST_ID[kind] + NAMES.index(name)


def oid_of(name, kind="scalar"):
    number = NAMES.index(name)
    return f"{ROOT}.1.1.1.{number + 1}.0" if kind == "scalar" else f"{ROOT}.10.1.1.{number + 2}.1.0"


@pytest.fixture(scope="module")
def served(shared_world):
    world = shared_world
    world.start_unit(f'0x80ba text 64 ro "{ROOT}"\n' + "".join(
        f"{id_of(name, kind):#06x} {case.unit}\n" for kind in FIRST_ID
        for name, case in OBJECTS.items() if case.unit)
        + "".join(f"{SECOND_TABLE + n:#06x} unsigned 2 rw {n}\n" for n in range(4)))
    rows = []
    for name, (_, type_, method, access) in OBJECTS.items():
        rows.append(scalar_row(id_of(name, "scalar"), NAMES.index(name) + 1, type=type_,
                               method=method, access=2 if access == 3 else 1))
        rows.append(cell_row(id_of(name, "cell"), NAMES.index(name) + 2, type=type_, method=method,
                             access=access))
    rows += [cell_row(SECOND_TABLE + n, row=n + 1, node=".10.2") for n in range(4)]
    world.start_master("agentXTimeout 15\nagentXRetries 0\n")
    world.settings("norvaStrictSet yes", "norvaDeviceTimeout 2")
    world.start_agent(database=world.make_database(*empty_schema(), *rows, base=False))
    wait_until(lambda: world.get(f"{ROOT}.10.2.1.2.4.0")[0].type == "INTEGER", what="all objects")
    return world


def second(row):
    return f"{ROOT}.10.2.1.2.{row}.0"


def refusal(world, *assignments):
    """The error status of a SET and the index of the varbind it names."""
    error = refused(world, *assignments, timeout=30)
    failed = re.search(r"^Failed object: (\S+)", str(error), re.M)
    return error.reason, list(assignments[::3]).index(failed[1]) + 1


# One of each kind; all others stand in the unit test of encodeStrictly.
ACCEPTED = [
    ("u8", "i", 255, 255), ("s8", "i", -128, -128), ("decimal", "s", "-12.5", -1250),
    ("text8", "s", "", ""), ("text4", "s", "west", "west"), ("address8", "a", "10.0.0.7", "10.0.0.7"),
]
REFUSED = [
    ("u8", "i", 256, "wrongValue"), ("text8", "o", "1.3.6", "wrongType"), ("decimal", "s", "0.295", "wrongValue"),
    ("text8", "s", "123456789", "wrongLength"), ("text8", "x", "6500", "wrongValue"),
    ("read-only", "i", 5, "notWritable"), ("read-only in the unit", "i", 5, "notWritable"),
    ("unreadable", "i", 5, "resourceUnavailable"),
]


@pytest.mark.parametrize("kind", FIRST_ID)
def test_what_was_asked(restored, kind):
    for name, letter, given, held in ACCEPTED:
        before = len(restored.frames())
        restored.set(oid_of(name, kind), letter, given)
        assert restored.held(id_of(name, kind))[-1] == held, (name, given)
        requests = restored.requests(before)
        assert len([frame for frame in requests if frame[0] == 0x01]) == 1
        assert len(requests) == (3 if kind == "scalar" else 2)


@pytest.mark.parametrize("kind", FIRST_ID)
def test_or_a_refusal(restored, kind):
    """Alone, and behind one that would be written."""
    good = (oid_of("s32", kind), "i", 7)
    for name, letter, given, reason in REFUSED:
        before = len(restored.frames())
        bad = (oid_of(name, kind), letter, given)
        assert refusal(restored, *bad) == (reason, 1), (name, given)
        assert refusal(restored, *good, *bad) == (reason, 1 + (bad[0] != good[0])), (name, given)
        assert restored.writes(before) == [], (name, given)
    restored.wait_output(f"set of object {id_of('unreadable', kind):#06x} refused: "
                         "resourceUnavailable (the unit does not give the object)\n")


@pytest.mark.parametrize("cell, reason", [
    (f"{ROOT}.10.1.1.1.1.0", "notWritable"),   # the row's index
    (f"{ROOT}.10.1.1.2.2.0", "noCreation"),    # a cell that is not mapped
    (f"{ROOT}.10.1.1.2.33.0", "noCreation"),   # no such row
])
def test_what_is_no_cell(restored, cell, reason):
    before, output = len(restored.frames()), len(restored.agent_output())
    assert refusal(restored, oid_of("u8"), "i", 7, cell, "i", 7) == (reason, 2)
    assert restored.writes(before) == []
    column = cell.removeprefix(f"{ROOT}.10.1.1.").split(".")[0]
    restored.wait_output(f"set of column {column} of table .10.1 refused: {reason}", after=output)


MIXED = [(oid_of("u16"), "i", 101), (second(1), "i", 102), (oid_of("u16", "cell"), "i", 103),
         (second(2), "i", 104), (oid_of("text4"), "s", "five"), (oid_of("s8", "cell"), "i", -6)]


def words(assignments):
    return [word for assignment in assignments for word in assignment]


@pytest.mark.parametrize("refused", [1, 3, 4, 6])
def test_what_was_written_is_put_back(restored, refused):
    """When the unit refuses a write: with the index of the one that was refused."""
    before = [bound.value for bound in restored.get(*[oid for oid, *_ in MIXED])]
    ids = [id_of("u16", "scalar"), SECOND_TABLE, id_of("u16", "cell"), SECOND_TABLE + 1,
           id_of("text4", "scalar"), id_of("s8", "cell")]
    restored.ctl("fault", "wrong-command", "0x10", "--on", "set", "--object", hex(ids[refused - 1]))
    # The simulated unit has written all the same, which a refusal is taken not to do.
    assert refusal(restored, *words(MIXED)) == ("commitFailed", refused)
    restored.ctl("fault", "none")
    after = [bound.value for bound in restored.get(*[oid for oid, *_ in MIXED])]
    after[refused - 1] = before[refused - 1]
    assert after == before
    restored.set(*words(MIXED))
    assert [bound.value for bound in restored.get(*[oid for oid, *_ in MIXED])] == [
        value for *_, value in MIXED], "each varbind its own value"


# No acknowledgement of the second of two writes, until the unit speaks again; of the first, once.
@pytest.mark.parametrize("fault, reason, written", [
    (f"silent --on set --object {SECOND_TABLE + 1:#x}", "undoFailed",
     {SECOND_TABLE, SECOND_TABLE + 1}),
    ("silent --on set --count 1", "commitFailed", {SECOND_TABLE}),
    # An acknowledgement that cannot be received: whether the unit has written is not known.
    (f"oversize 4200 --on set --count 1 --object {SECOND_TABLE + 1:#x}", "commitFailed",
     {SECOND_TABLE, SECOND_TABLE + 1}),
])
def test_no_acknowledgement_in_the_middle(restored, fault, reason, written):
    """It is served again afterwards; only what was asked of the unit is put back."""
    before = len(restored.frames())
    restored.ctl("fault", *fault.split())
    assert refused(restored, second(1), "i", 55, second(2), "i", 56, timeout=40).reason == reason
    assert {int.from_bytes(frame[2:4], "little") for frame in restored.writes(before)} == written
    restored.ctl("fault", "none")
    wait_until(lambda: restored.get(second(3))[0].value == 2, 10, "the agent serving")
    wait_until(lambda: [restored.get(second(row))[0].value for row in (1, 2)] == [0, 1],
               what="both put back")


def test_what_cannot_be_put_back_does_not_hold_up_the_rest(restored):
    """The first object goes while the unit is silent at the second."""
    restored.ctl("stats", "reset")
    restored.ctl("fault", "silent", "--count", 1, "--on", "set", "--object", hex(SECOND_TABLE + 1))
    manager = restored.spawn("manager", ["snmpset", "-v2c", "-c", "private", "-r0", "-t40",
                                         "127.0.0.1:1161", second(1), "i", "55", second(2), "i", "56"])
    wait_until(lambda: "faults 0\n" not in restored.ctl("stats"), what="the second write")
    restored.ctl("delete", hex(SECOND_TABLE))
    assert manager.wait(90) != 0
    assert restored.held(SECOND_TABLE + 1)[-1] == 1
