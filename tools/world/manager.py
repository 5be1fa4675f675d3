"""The SNMP manager's commands, of Debian's `snmp` package, and what they print."""

import re
from collections import namedtuple

ROOT = ".1.3.6.1.4.1.53412.8.2.2.4"

Varbind = namedtuple("Varbind", "oid type value")


class Failure(Exception):
    """What was expected is not so; the text says what."""


class SnmpError(Failure):
    """A manager's command failed. `reason` is the error status, "timeout", or the whole text."""

    def __init__(self, text):
        super().__init__(text.strip())
        status = re.search(r"^Reason: \(?(\w+)", text, re.M)
        no_answer = text.startswith("Timeout")
        self.reason = status.group(1) if status else "timeout" if no_answer else text.strip()


class Manager:
    """Asks the master at `address` from inside a world."""

    def snmp(self, tool, *args, community="public", timeout=10):
        """Runs a command of the `snmp` package; the varbinds it printed. One try of `timeout` s."""
        result = self.run(tool, "-v2c", "-c", community, "-Onx", "-r0", f"-t{timeout}",
                          self.address, *map(str, args), timeout=timeout + 60)
        if result.returncode != 0:
            raise SnmpError(result.stderr or result.stdout)
        return parse_varbinds(result.stdout)

    def get(self, *oids, **options):
        return self.snmp("snmpget", *oids, **options)

    def getnext(self, *oids, **options):
        return self.snmp("snmpgetnext", *oids, **options)

    def walk(self, oid=ROOT, **options):
        return self.snmp("snmpwalk", oid, **options)

    def bulkwalk(self, oid=ROOT, **options):
        return self.snmp("snmpbulkwalk", oid, **options)

    def set(self, *assignments, **options):
        """`assignments`: OID, type letter and value in turn, as snmpset takes them."""
        return self.snmp("snmpset", *assignments, community="private", **options)


def parse_varbinds(text):
    """The varbinds of a manager's output with numeric OIDs and texts in hexadecimal."""
    varbinds = []
    for entry in re.split(r"\n(?=\.)", text.strip()):
        oid, _, rest = entry.partition(" = ")
        type_, _, value = rest.partition(": ")
        if rest.startswith("No "):
            type_ = {"Such Object": "noSuchObject", "Such Instance": "noSuchInstance",
                     "more variables": "endOfMibView"}[" ".join(rest.split()[1:3])]
            value = None
        elif rest == '""':
            type_, value = "STRING", ""
        elif type_ == "Hex-STRING":
            type_, value = "STRING", bytes.fromhex(value).decode("latin-1")
        elif type_ == "INTEGER":
            value = int(value)
        varbinds.append(Varbind(oid, type_, value))
    return varbinds
