"""Mapping databases that are missing, broken or hostile: printed, and the agent serves the rest."""

import pytest

from world import CELLS, ROOT, SCALARS, empty_schema, scalar_row

OBJECTS = "".join(f"{0x0100 + number:#06x} unsigned 2 rw {number}\n" for number in range(1, 301))
ROWS = [scalar_row(0x0100 + number, number) for number in range(1, 4)]
NO_SCALARS = f" subsite 0 get {SCALARS} error\n"
NO_CELLS = f" subsite 0 get {CELLS} error\n"


def start(world, database):
    world.serve(objects=OBJECTS, database=database, wait=False)
    world.wait_output("init_snmp end....\n")


def oid(number):
    return f"{ROOT}.1.1.1.{number}.0"


def assert_served(world, numbers):
    """Each of these scalars has its own object's value, and no other is served."""
    if numbers:
        world.wait_served()
    assert [(varbind.oid, varbind.value) for varbind in world.walk()
            if varbind.type != "noSuchObject"] == [(oid(number), number) for number in numbers]
    assert world.agent.running()


@pytest.mark.parametrize("content, printed", [
    # The second table is asked for without opening the file once more.
    (None, "ERROR: open file {path} failed! \ninitSnmpObjOid subsite 0 db open error\n" + NO_CELLS),
    ("", NO_SCALARS + NO_CELLS),
    ("This is not a database. " * 100, NO_SCALARS + NO_CELLS),
], ids=["missing", "empty", "no database"])
def test_no_database(world, content, printed):
    path = world.directory / "nowhere/mapping.db"
    if content is not None:
        path.parent.mkdir()
        path.write_text(content)
    start(world, path)
    assert printed.replace("{path}", str(path)) in world.agent_output()
    assert_served(world, [])


@pytest.mark.parametrize("changes, printed, served", [
    ([f"DROP TABLE {SCALARS}"], NO_SCALARS, []),
    ([f"DROP TABLE {CELLS}"], NO_CELLS, [1, 2, 3]),
    ([f"DROP TABLE {SCALARS}", f"CREATE TABLE {SCALARS} (a, b)",
      f"INSERT INTO {SCALARS} VALUES ('101', '0')"],
     f"{SCALARS} has 2 columns, 13 are needed\n", []),
    ([f"UPDATE {SCALARS} SET c3 = NULL WHERE c0 = '0102'"],
     f"{SCALARS} row 2: column 3 is NULL, row not used\n", [1, 3]),
    ([f"UPDATE {SCALARS} SET c8 = '1' WHERE c0 = '0102'"],
     "scalar object 0x0102 is not served: object 0x0101 has the same OID\n", [1, 3]),
    ([scalar_row(0x0100 + number, number) for number in range(4, 301)],
     "45 scalars are not served: no more than 255 can be registered\n", range(1, 256)),
], ids=["no scalar table", "no cell table", "few columns", "NULL", "same suffix",
        "300 scalars"])
def test_odd_database(world, changes, printed, served):
    start(world, world.make_database(*empty_schema(), *ROWS, *changes, base=False))
    assert printed in world.agent_output()
    assert_served(world, served)
