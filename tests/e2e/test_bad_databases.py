"""Mapping databases that are missing, broken or hostile: printed, and the agent serves the rest."""

import pytest

from world import CELLS, ROOT, SCALARS, empty_schema, scalar_row

OBJECTS = "".join(f"{0x0100 + number:#06x} unsigned 2 rw {number}\n" for number in range(1, 301))
ROWS = [scalar_row(0x0100 + number, number) for number in range(1, 4)]
NO_SCALARS = f" subsite 0 get {SCALARS} error\n"
NO_CELLS = f" subsite 0 get {CELLS} error\n"


# Each: the file's text or SQL that changes a good one, what is printed, the scalars that are served.
DATABASES = {
    # The second table is asked for without opening the file once more.
    "missing": (None, "ERROR: open file {path} failed! \ninitSnmpObjOid subsite 0 db open error\n"
                + NO_CELLS, []),
    "no database": ("This is not a database. " * 100, NO_SCALARS + NO_CELLS, []),
    "no scalar table": ([f"DROP TABLE {SCALARS}"], NO_SCALARS, []),
    "no cell table": ([f"DROP TABLE {CELLS}"], NO_CELLS, [1, 2, 3]),
    "few columns": ([f"DROP TABLE {SCALARS}", f"CREATE TABLE {SCALARS} (a, b)",
                     f"INSERT INTO {SCALARS} VALUES ('101', '0')"],
                    f"{SCALARS} has 2 columns, 13 are needed\n", []),
    "suffixes": ([f"UPDATE {SCALARS} SET c8 = '1' WHERE c0 = '0102'", scalar_row(0x0104, 1 << 31)],
                 "scalar object 0x0102 is not served: object 0x0101 has the same OID\n"
                 "scalar object 0x0104 is not served: a sub-identifier is above 2147483647\n", [1, 3]),
    "300 scalars": ([scalar_row(0x0100 + number, number) for number in range(4, 301)],
                    "45 scalars are not served: no more than 255 can be registered\n",
                    range(1, 256)),
}


@pytest.mark.parametrize("content, printed, served", DATABASES.values(), ids=DATABASES)
def test_odd_database(world, content, printed, served):
    path = world.directory / "nowhere/mapping.db"
    if isinstance(content, list):
        path = world.make_database(*empty_schema(), *ROWS, *content, base=False)
    elif content is not None:
        path.parent.mkdir()
        path.write_text(content)
    world.serve(objects=OBJECTS, database=path, wait=False)
    world.wait_output("init_snmp end....\n")
    assert printed.replace("{path}", str(path)) in world.agent_output()
    if served:
        world.wait_served()
    # Each has its own object's value, and nothing else is there.
    assert [(varbind.oid, varbind.value) for varbind in world.walk()
            if varbind.type != "noSuchObject"] == [
                (f"{ROOT}.1.1.1.{number}.0", number) for number in served]
    assert world.agent.running()
