"""Random mapping databases: what norvamap foretells of them, beside what a walk and GETs then show."""

import json
import random
import subprocess

from test_norvamap import TOOL
from world import QUIET_HEARTBEAT, SCALARS, cell_row, empty_schema, parse_varbinds, wait_until

COUNT = 120
AT_ONCE = 40
# Some stand inside others or inside scalars, some are not served, some are no nodes.
NODES = [".10", ".10.1", ".10.1.1.2", ".10.1.1.2.5", ".1.1.1", ".1.1.1.1", ".1.1.1.1.0", ".30", ".30.1.1",
         ".30.7", ".3001", "5", "", ".2147483648.1", ".2147483647", ".1" * 25]
NUMBERS = [0, 1, 1, 1, 1, 2, 2, 3, 7, 10, 30, 2147483648]
TYPES = [2, 4, 0x42, 0x46, 0x102, 0x29]
SHOWN = {"OCTET STRING": "STRING", "no value": None}


def random_rows(chance):
    """SQL of a mapping's rows."""
    ids = iter(chance.sample(range(0x1000, 0x4000), 600))

    def kind():
        return chance.choices(TYPES, [40, 5, 5, 5, 2, 1])[0]
    for _ in range(chance.choice([0, 1, 3, 8])):
        suffix = "', '".join(map(str, chance.choices(NUMBERS, k=4)))
        yield (f"INSERT INTO {SCALARS} VALUES ('{next(ids):04X}', '0', '0', '{kind():X}', '1',"
               f" '{suffix}', '0', '0', 'scalar', '0')")
    for node in chance.sample(NODES, chance.choice([0, 1, 2, 2, 3])):
        has_holes = chance.random() < 0.3
        for column in chance.sample([1, 2, 2, 2, 3, 3, 4, 5], chance.choice([1, 2, 3])):
            type_ = kind()
            for row in range(1, 33):
                if not has_holes or chance.random() > 0.02:
                    yield cell_row(next(ids), column, row, node=node, type=type_, access=1)


class Served:
    """One of them, with an agent, a unit and message queues of its own, below a root of its own."""

    def __init__(self, world, number):
        self.world = world
        self.above = f".1.3.6.1.4.1.53412.9.{number}"
        self.chance = random.Random(number)
        self.database = world.make_database(*empty_schema(), *random_rows(self.chance), base=False)
        objects = world.directory / f"{number}.objects"
        objects.write_text(f'{QUIET_HEARTBEAT}0x80ba text 64 ro "{self.above}.1"\n'
                           "0x1000-0x3fff unsigned 2 ro 1 step 1\n")
        self.agent = world.spawn(
            f"agent{number}",
            ["unshare", "--ipc", "--pid", "--fork", "--kill-child", "sh", "-c",
             f"{world.build}/tools/dasunit/dasunit --objects {objects} &"
             f" exec {world.build}/norvaSnmp -X -d {self.database} -x {world.socket} -n demo"],
            env={"DASUNIT_CONTROL": str(world.directory / f"{number}.sock")})

    def norvamap(self, command):
        return json.loads(subprocess.run(
            [TOOL, command, self.database, "--root", f"{self.above}.1", "--format", "json"],
            capture_output=True, timeout=30, check=False).stdout)

    def gets(self, listed):
        """What is answered for some of what is listed and some of what is beside it."""
        oids = set(self.chance.sample(sorted(listed), min(len(listed), 60)))
        for oid in sorted(oids)[:20]:
            numbers = oid.split(".")
            place = self.chance.choice([-2, -3])
            numbers[place] = str(max(0, int(numbers[place]) + self.chance.choice([-1, 1, 32])))
            oids.add(".".join(numbers))
        ordered = sorted(oids)
        return {bound.oid: None if bound.value is None else bound.type for start in range(0, len(ordered), 40)
                for bound in self.world.get(*ordered[start:start + 40])}

    def check(self):
        listed = {line["oid"]: line for line in self.norvamap("list")}
        types = {oid: SHOWN.get(line["type"], line["type"]) for oid, line in listed.items()}
        remarks = {oid: line["remark"].split()[0] for oid, line in listed.items() if "remark" in line}
        overlap = any("stands inside" in finding["text"] for finding in self.norvamap("check"))

        walked = self.world.run("snmpwalk", "-v2c", "-c", "public", "-Onx", "-t20", self.world.address,
                                self.above)
        assert overlap or walked.returncode == 0, walked.stderr
        walked = {bound.oid: bound.type for bound in parse_varbinds(walked.stdout)
                  if bound.oid.startswith(self.above + ".") and bound.value is not None}
        relied = {oid: type_ for oid, type_ in types.items() if type_ and oid not in remarks}
        if overlap:
            walked = {oid: type_ for oid, type_ in walked.items() if oid in relied}
        assert walked == relied

        for oid, type_ in self.gets(listed).items():
            if remarks.get(oid) != "inside" and (oid in listed or not overlap):
                assert type_ == types.get(oid), oid


def test_random_mappings(world):
    world.settings("norvaTrace no")
    world.start_master()
    for first in range(1, COUNT, AT_ONCE):
        made = [Served(world, number) for number in range(first, first + AT_ONCE)]
        for served in made:
            wait_until(lambda agent=served.agent: "init_snmp end...." in agent.output(), 90,
                       "the agent's start")
        for served in made:
            served.check()
            served.agent.kill()
