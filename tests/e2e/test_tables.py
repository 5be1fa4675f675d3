"""Both tables as a manager sees them, and what reaches the unit."""

from collections import Counter

import pytest

from conftest import printed, put_back, refused
from world import CELLS, ROOT, SYS_UPTIME, Varbind, cell_row, wait_until

# The sample's two tables: the first object id and, by column, what the cells of a row answer.
FIRST_ID = {1: 0x1000, 2: 0x2000}
COLUMNS = {
    (1, 1): lambda row: row,
    (1, 2): lambda row: f"RU {row}",
    (1, 3): lambda row: 1,
    (1, 4): lambda row: -7 + 2 * row,
    (1, 5): lambda row: 5 * row - 5,
    (1, 6): lambda row: f"{(247 + 3 * row) / 10:.2f}",
    (1, 7): lambda row: f"10.0.20.{row}",
    (1, 8): lambda row: f"Floor {row}",
    (1, 9): lambda row: 1,
    (2, 1): lambda row: row,
    (2, 2): lambda row: f"Channel {row}",
    (2, 3): lambda row: 1,
    (2, 4): lambda row: 2112200 + 200 * row,
    (2, 5): lambda row: f"{(1922200 + 200 * row) / 1000:.2f}",
    (2, 6): lambda row: row - 9,
    (2, 7): lambda row: f"{row / 2:.2f}",
    (2, 8): lambda row: -40125 + 125 * row,
}
ROWS = range(1, 33)
TABLES = ROOT + ".10"


def oid_of(table, column, row):
    return f"{TABLES}.{table}.1.{column}.{row}.0"


def id_of(table, column, row):
    return FIRST_ID[table] + 32 * (column - 2) + row - 1


def expected(table, column, row):
    value = COLUMNS[table, column](row)
    return Varbind(oid_of(table, column, row), "STRING" if isinstance(value, str) else "INTEGER",
                   value)


def missing(*cell):
    return Varbind(oid_of(*cell), "noSuchInstance", None)


def wait_all(world, last=oid_of(2, 1, 32)):
    """The agent's objects come to the master one after the other: waits for the last one."""
    wait_until(lambda: world.get(last)[0].type == "INTEGER", 30, "all tables")


EVERYTHING = [expected(*column, row) for column in COLUMNS for row in ROWS]


@pytest.fixture(scope="module")
def served(sample_world):
    wait_all(sample_world)
    return sample_world


@pytest.fixture
def restored(served):
    """The world, its tables put back after the test."""
    yield served
    put_back(served, ("0x1", "0x2"))


@pytest.mark.parametrize("tool", [["snmpwalk"]] + [
    ["snmpbulkwalk", f"-Cr{repetitions}"] for repetitions in (1, 7, 50, 1000)], ids=" ".join)
def test_walk_of_both_tables(served, tool):
    before = len(served.frames())
    assert served.snmp(*tool, TABLES) == EVERYTHING
    asked = Counter(int.from_bytes(frame[2:4], "little") for frame in served.requests(before))
    assert asked == {id_of(*column, row): 1 for column in COLUMNS for row in ROWS if column[1] > 1}


@pytest.mark.parametrize("suffix, type, value", [
    ("2.3.5", "STRING", "RU 3"),  # the second index takes what the request carries
    ("2.3", "noSuchInstance", None),
    ("2.257.0", "noSuchInstance", None),
    ("10.1.0", "noSuchObject", None),
])
def test_get_beside_the_cells(served, suffix, type, value):
    oid = f"{TABLES}.1.1.{suffix}"
    assert served.get(oid) == [Varbind(oid, type, value)]


# The write request, and what a manager reads afterwards.
@pytest.mark.parametrize("cell, letter, given, frame, answer", [
    ((1, 5, 3), "i", 7, "01 05 62 10 46 00", 70),
    ((1, 8, 3), "s", "Roof", "01 17 c2 10 52 6f 6f 66" + " 00" * 16, "Roof"),
    ((1, 9, 32), "s", "7abc", "01 04 ff 10 63", 0x63),  # the first four bytes as an integer
    ((2, 7, 1), "s", "1.5", "01 05 a0 20 0f 00", "1.50"),
])
def test_set_of_one_cell(restored, cell, letter, given, frame, answer):
    before = len(restored.frames())
    restored.set(oid_of(*cell), letter, given)
    assert restored.writes(before) == [bytes.fromhex(frame)]
    assert restored.get(oid_of(*cell))[0].value == answer


def test_set_of_several_cells(restored):
    """The first value of a table goes into all of the table's cells."""
    cells = [(1, 5, 3), (2, 4, 1), (1, 5, 4), (2, 4, 32)]
    restored.set(*[word for number, cell in enumerate(cells)
                   for word in (oid_of(*cell), "i", number + 1)])
    assert [restored.held(id_of(*cell))[-1] for cell in cells] == [10, 2, 10, 2]


@pytest.mark.parametrize("cells, letter, given, reason, line", [
    ([(1, 9, 3), (1, 4, 3)], "i", 5, "readOnly", " ../src/TableHandlerOne SNMP_ERR_READONLY\n"),
    ([(2, 8, 3)], "i", 5, "readOnly", " ../src/TableHandlerTwo SNMP_ERR_READONLY\n"),
    ([(1, 8, 3)], "s", "x" * 21, "badValue", "SNMP_ERR_BADVALUE\n"),
    ([(1, 9, 4)], "i", 5, "badValue", "SNMP_ERR_BADVALUE\n"),  # read-only in the unit
])
def test_refused_set_writes_nothing(restored, cells, letter, given, reason, line):
    restored.ctl("add", f"{id_of(1, 9, 4):#06x} unsigned 1 ro 1")
    before, output = len(restored.frames()), len(restored.agent_output())
    words = [word for cell in cells for word in (oid_of(*cell), letter, given)]
    assert refused(restored, *words).reason == reason
    restored.wait_output(line, after=output)
    assert restored.writes(before) == []
    values = [varbind.value for varbind in restored.get(*[oid_of(*cell) for cell in cells])]
    assert values == [COLUMNS[cell[:2]](cell[2]) for cell in cells]


def test_set_refused_for_another_object_writes_nothing(restored):
    before = len(restored.frames())
    assert refused(restored, oid_of(1, 5, 3), "i", 7, f"{ROOT}.1.1.1.6.0", "s", "Quay",
                   SYS_UPTIME, "t", 1).reason == "notWritable"
    assert restored.writes(before) == []


# A cell, and the commands of the frames that reach the unit: an unreadable cell is read at least.
@pytest.mark.parametrize("cell, commands", [
    ((1, 1, 3), set()), ((1, 9, 4), {0x02}), ((1, 4, 4), {0x02}),
], ids=["row index", "writable", "read-only"])
def test_accepted_set_writes_nothing(restored, cell, commands):
    if commands:
        restored.ctl("delete", hex(id_of(*cell)))
    before = len(restored.frames())
    restored.set(oid_of(*cell), "i", 77)
    assert {frame[0] for frame in restored.requests(before)} == commands
    assert restored.get(oid_of(*cell)) == [missing(*cell) if commands else expected(*cell)]


# What the cell answers: a missing one hides all behind it in its table from a walk.
@pytest.mark.parametrize("fault, value", [
    ("wrong-command 0x11", None),
    ("wrong-length 9", None),
    ("wrong-id 0x1046", 5),
])
def test_wrong_reply_in_the_middle_of_a_walk(restored, fault, value):
    cells = [(1, 4, 5), (1, 4, 6), (1, 4, 7), (2, 4, 6)]
    struck = missing(*cells[1]) if value is None else Varbind(oid_of(*cells[1]), "INTEGER", value)
    strike = ["fault", *fault.split(), "--object", hex(id_of(*cells[1])), "--count", 1]

    restored.ctl(*strike)
    output = len(restored.agent_output())
    answers = [expected(*cell) for cell in cells]
    assert restored.get(*[oid_of(*cell) for cell in cells]) == [answers[0], struck, *answers[2:]]
    if value is None:
        restored.wait_output(" get_ data is ERROR !!!!!!!!!!!!!!!!!!!\n", after=output)

    restored.ctl(*strike)
    place = EVERYTHING.index(answers[1])
    behind = EVERYTHING[9 * len(ROWS):] if value is None else [struck, *EVERYTHING[place + 1:]]
    assert restored.walk(TABLES) == EVERYTHING[:place] + behind
    assert restored.walk(TABLES) == EVERYTHING


def test_cells_mapped_in_an_odd_way(world):
    """Not at all: missing, hiding the rest of its table from a walk; a SET is accepted and reaches
    nobody. To a type that its value cannot have (64: an address of two bytes): written. With an
    access that is neither: read-only."""
    cell, address, odd = (1, 4, 6), (1, 5, 6), (1, 5, 7)
    world.serve(database=world.make_database(
        f"DELETE FROM {CELLS} WHERE objId = '{id_of(*cell):04X}'",
        f"UPDATE {CELLS} SET asnType = 64 WHERE objId = '{id_of(*address):04X}'",
        f"UPDATE {CELLS} SET access = 2 WHERE objId = '{id_of(*odd):04X}'"))
    wait_all(world)
    before = len(world.frames())
    assert world.get(oid_of(*cell), oid_of(2, 2, 6)) == [missing(*cell), expected(2, 2, 6)]
    world.set(oid_of(*cell), "i", 7)
    assert len(world.requests(before)) == 1
    place = EVERYTHING.index(expected(*cell))
    assert world.walk(TABLES) == EVERYTHING[:place] + EVERYTHING[9 * len(ROWS):]
    assert world.get(oid_of(1, 4, 7), oid_of(1, 9, 32)) == [expected(1, 4, 7), expected(1, 9, 32)]
    world.set(oid_of(*address), "i", 7)
    assert world.held(id_of(*address))[-1] == 70
    assert world.get(oid_of(*address)) == [missing(*address)]
    world.wait_output(f"object {id_of(*address):#06x}: its value, an integer, is none of type 0x40\n"
                      " get_ data is ERROR !!!!!!!!!!!!!!!!!!!\n")
    assert refused(world, oid_of(*odd), "i", 7).reason == "readOnly"


LONG = ".1" * 22  # with the root 33 sub-identifiers
LARGE = ".2147483648"


@pytest.mark.parametrize("nodes, refusal", [
    ([".10.7", ".10.5"], ""),
    ([".10.1", ".010.1"], "duplicate registration: MIB modules TableHandlerOne and "
                          f"TableHandlerTwo (oid {ROOT}.10.1)."),
    ([LONG, ".10.2"], "TableHandlerOne: table node of 33 sub-identifiers is not served, "
                      "1 to 32 are possible\n"),
    ([LARGE, ".10.2"],
     f"TableHandlerOne: table node {LARGE} is not served: a sub-identifier is above 2147483647\n"),
], ids=["two", "twice", "too long", "too large"])
def test_what_is_printed_of_tables(world, nodes, refusal):
    world.serve([cell_row(0x1000 + row, row=row, node=node) for node in nodes for row in ROWS],
                f'0x80ba text 64 ro "{ROOT}"\n0x1000-0x1080 unsigned 1 rw 0 step 1\n', wait=False)
    lines = ""
    for number, node in enumerate(nodes):
        lines += f"initTableObj ancestorNode[{number}].ancestorNode={node}\n"
        if number == 0:
            lines += (f"TableHandlerOne::init_table ancestorNode={node}\n"
                      f"TableHandlerOne::init_table OId(0x80BA)={ROOT}\n")
        lines += (f"TableHandlerOne::init_table node={ROOT}{node}\n"
                  "getFixDeviceNum(ancestorNode[i].ancestorNode)=32\n")
    world.wait_output("init_snmp end....\n")
    output = printed(world)
    assert refusal in output + (world.directory / "agent-errors.log").read_text()
    output = output.replace(refusal, "")
    assert lines in output and output.count("init_table") == lines.count("init_table")
