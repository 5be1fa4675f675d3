"""A receiver of notifications in a world: a real snmptrapd."""

import re
from collections import namedtuple

from world import PATIENCE, parse_varbinds, wait_until

PORT = 1162
ENGINE_ID = "0x80001f8804646173"
_USER = 'norva SHA "auth phrase" AES "priv phrase"'
# For the master's configuration. Sinks over TCP lose nothing in a flood; snmpd connects to them
# once, when it starts: start the receiver before it.
V2C_SINK = f"trap2sink tcp:127.0.0.1:{PORT} public\n"
V3_SINK = (f"exactEngineID {ENGINE_ID}\ncreateUser {_USER}\ntrapsess -v 3 -u norva -l authPriv "
           f'-a SHA -A "auth phrase" -x AES -X "priv phrase" tcp:127.0.0.1:{PORT}\n')
# How a notification is received, as snmptrapd words it.
V2C = "SNMP v2c, community public"
V3 = "SNMP v3, user norva, context DAS_NORVA"

_CONFIGURATION = f"""authCommunity log public
createUser -e {ENGINE_ID} {_USER}
authUser log norva priv
"""
BASE = ".1.3.6.1.4.1.53412.8.2.2.3.3.1.1.0"
# The master puts the time in front of the agent's eight bindings.
_BINDINGS = [(".1.3.6.1.2.1.1.3.0", "Timeticks"), (".1.3.6.1.6.3.1.1.4.1.0", "OID"),
             (BASE + ".1", "STRING"), (BASE + ".2", "STRING"), (BASE + ".3", "INTEGER"),
             (BASE + ".4", "STRING"), (BASE + ".5", "STRING"), (BASE + ".6", "STRING"),
             (BASE + ".7", "INTEGER")]
_COMPLETE = re.compile(re.escape(BASE) + r"\.7 = INTEGER: \d+\n\Z")

# `via` is V2C or V3; `kind` the last sub-identifier of the notification; the rest B.1 to B.7.
Notification = namedtuple("Notification", "via kind name value device text4 text5 text6 sequence")


def _decode(record):
    via, _, bindings = record.removeprefix("@TRAP2, ").partition("\n")
    varbinds = parse_varbinds(bindings)
    assert [(bound.oid, bound.type) for bound in varbinds] == _BINDINGS, record
    kind, *payload = [bound.value for bound in varbinds[1:]]
    assert kind.startswith(BASE + "."), record
    return Notification(via, int(kind.rpartition(".")[2]), *payload)


class Receiver:
    """Everything received so far is kept, in order. Ends with its world."""

    def __init__(self, world):
        self.world = world
        self._received = []
        self._pending = ""
        self._log = open(world.directory / "notifications.log", "w+")
        configuration = world.directory / "snmptrapd.conf"
        configuration.write_text(_CONFIGURATION)
        self._process = world.spawn(
            "snmptrapd", ["snmptrapd", "-f", "-n", "-X", "-C", "-c", configuration, "-Onx", "-LF",
                          "7", self._log.name, "-F", r"@%P\n%V\n%v\n", f"tcp:127.0.0.1:{PORT}"],
            env={"SNMP_PERSISTENT_DIR": str(world.directory / "persistent-receiver")})
        wait_until(self._listening, what="snmptrapd listening")

    def _listening(self):
        listening = rf":{PORT:04X} \S+ 0A "
        return re.search(listening, self.world.run("cat", "/proc/net/tcp").stdout)

    def received(self):
        """The agent's notifications so far; those of the master itself are left out."""
        text = self._pending + self._log.read()
        *records, self._pending = re.split(r"^(?=@)", text, flags=re.M)
        if _COMPLETE.search(self._pending):
            records.append(self._pending)
            self._pending = ""
        assert not any(record.startswith(".") for record in records), "bindings behind the last one"
        self._received += [_decode(record) for record in records if BASE in record]
        return self._received

    def wait(self, count, timeout=PATIENCE):
        """Waits until so many were received; all that were."""
        wait_until(lambda: len(self.received()) >= count, timeout, f"{count} notifications")
        return self._received


def serve_received(world, *commands, sinks=V2C_SINK, **agent):
    """The sample unit, changed by control commands, its master and agent; the receiver."""
    world.start_unit()
    for command in commands:
        world.ctl(*command.split(None, 2 if command.startswith("set") else 1))
    receiver = Receiver(world)
    world.start_master(sinks)
    world.start_agent(**agent)
    return receiver
