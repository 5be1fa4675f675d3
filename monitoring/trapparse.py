"""What snmptrapd hands to a traphandle program, as a notification of a norvaSnmp unit."""

import re
from collections import namedtuple

_INTERNET = r"(?:\.?1|iso)\.3\.6\.1"
_BASE = rf"{_INTERNET}\.4\.1\.53412\.8\.2\.2\.3\.3\.1\.1\.0"
_TRAP_OID = re.compile(rf"(?:\S*snmpTrapOID\.0|{_INTERNET}\.6\.3\.1\.1\.4\.1\.0)(?: =)? (\S+)$")
_KIND = re.compile(rf"(?:\S*norvaNotify(Alarm|RemoteUnit|General|Heartbeat)|{_BASE}\.(96|97|98|99))$")
_KINDS = {"Alarm": "alarm", "96": "alarm", "RemoteUnit": "remote_unit", "97": "remote_unit",
          "General": "general", "98": "general", "Heartbeat": "heartbeat", "99": "heartbeat"}
_FIELDS = ("Name", "Value", "Device", "Text4", "Text5", "Text6", "Sequence")
_FIELD = [re.compile(rf"(?:\S*norvaNotify{name}|{_BASE}\.{number})(?: =)?(?: |$)(.*)", re.S)
          for number, name in enumerate(_FIELDS, 1)]
# snmptrapd's second line: "UDP: [192.0.2.1]:50000->[192.0.2.99]:162".
_SENDER = re.compile(r"\w[\w/]*: \[([^\]]+)\]")

# `unit` is the sender's address; `kind` one of alarm, remote_unit, general, heartbeat.
Notification = namedtuple("Notification", "unit kind name value device texts sequence")


class BadInput(Exception):
    """A text that claims to be a unit's notification and is none."""


def _plain(value):
    """As the unit has it: without the quotes of -Oq, on one line."""
    if len(value) > 1 and value[0] == value[-1] == '"':
        value = re.sub(r"\\(.)", r"\1", value[1:-1])
    return re.sub(r"[\x00-\x1f\x7f]+", " ", value).strip()


def _fields(lines):
    """The seven values. A line that does not begin with the next field belongs to the one before:
    texts may hold line ends."""
    values = []
    for line in lines:
        match = _FIELD[len(values)].match(line) if len(values) < len(_FIELD) else None
        if match:
            values.append(match[1])
        elif values:
            values[-1] += "\n" + line
    if len(values) != len(_FIELD):
        raise BadInput(f"no {_FIELDS[len(values)].lower()}")
    return [_plain(value) for value in values]


def parse(text):
    """The notification in `text` (bytes), in the form of -OQs, -Oqn or between; None for one that
    is not of a norvaSnmp agent. Raises BadInput."""
    lines = text.decode("utf-8", "replace").rstrip("\n").split("\n")
    trap = next((match[1] for match in map(_TRAP_OID.match, lines[2:]) if match), None)
    if len(lines) < 3 or trap is None:
        raise BadInput("no notification")
    kind = _KIND.match(trap)
    if not kind:
        return None
    sender = _SENDER.match(lines[1])
    if not sender:
        raise BadInput("no sender")
    name, value, device, *texts, sequence = _fields(lines[2:])
    if not re.fullmatch(r"\d{1,3}", device) or not re.fullmatch(r"-?\d{1,10}", sequence):
        raise BadInput("device or sequence is no number")
    return Notification(sender[1], _KINDS[kind[1] or kind[2]], name, value, device, texts,
                        int(sequence))


def alarm_label(name):
    """As the rules make it of the alarm object's metric: "PA Failure Alarm" is pa_failure."""
    label = re.sub(r"\W+", "_", name.lower()).strip("_")
    return (label.removesuffix("_alarm") or "unnamed")[:128]
