"""A line of snmptrapd, in the form that snmptrapd.conf gives it, as a notification of a unit.

Texts stand in such a line in hexadecimal, so that no text can end it, or look like another field.
"""

import re
from collections import namedtuple

TEXT_CHARACTERS = 255  # of each text: as long as any that a unit sends
LINE_BYTES = 12 << 10  # a notification of 4 KiB: texts take three characters a byte

_BASE = r"\.1\.3\.6\.1\.4\.1\.53412\.8\.2\.2\.3\.3\.1\.1\.0\."
_UNITS = re.compile(rf"\t\.1\.3\.6\.1\.6\.3\.1\.1\.4\.1\.0 {_BASE}(96|97|98|99)(?=\t)")
# "1795317049", "UDP: [192.0.2.1]:50000->[192.0.2.99]:162" or "UDP/IPv6: [2001:db8::1]:...".
_HEAD = re.compile(r"(\d{1,12})\t\w[\w/]*: \[+([0-9A-Za-z.:%]+)\]")
_FIELD = re.compile(rf'\t{_BASE}([1-7]) (?:"((?:[0-9A-F]{{2}} ?)*)"|(-?\d{{1,10}})(?=\t|$))')
_KINDS = {"96": "alarm", "97": "remote_unit", "98": "general", "99": "heartbeat"}

# `unit` is the sender's address; `time` when it came, in seconds since 1970; `kind` one of alarm,
# remote_unit, general, heartbeat.
Notification = namedtuple("Notification", "unit time kind name value device texts sequence")


class BadLine(Exception):
    """A line that claims to be a unit's notification and is none."""


def _text(hexadecimal):
    """Whole: bytes that are no UTF-8 are taken for Latin-1. A zero byte would end the page of
    metrics for Prometheus."""
    octets = bytes.fromhex(hexadecimal)
    try:
        text = octets.decode()
    except UnicodeDecodeError:
        text = octets.decode("latin-1")
    return text[:TEXT_CHARACTERS].replace("\0", "\N{SYMBOL FOR NULL}")


def parse(line):
    """The notification in `line`; None if that is none of a unit. Raises BadLine."""
    kind = _UNITS.search(line)
    head = _HEAD.match(line)
    if not kind or not head:
        return None
    if len(line) > LINE_BYTES:
        raise BadLine("too long")
    fields = _FIELD.findall(line, kind.end())
    if [number for number, _, _ in fields] != list("1234567"):
        raise BadLine("not the seven objects")
    if not fields[2][2] or not fields[6][2]:
        raise BadLine("device or sequence is no number")
    name, value, _, *texts, _ = (_text(hexadecimal) for _, hexadecimal, _ in fields)
    return Notification(head[2], int(head[1]), _KINDS[kind[1]], name, value, fields[2][2], texts,
                        int(fields[6][2]))


def alarm_label(name):
    """As the rules make it of the alarm object's metric: "PA Failure Alarm" is pa_failure."""
    label = re.sub(r"\W+", "_", name.lower()).strip("_")
    return (label.removesuffix("_alarm") or "unnamed")[:128]


def printable(text):
    """For a journal or a terminal: without control characters, those above 127 included."""
    return re.sub(r"[\x00-\x1f\x7f-\x9f\u2028\u2029]", "?", text)


def sentence(event):
    """A notification for people to read."""
    texts = ", ".join(filter(None, event.texts))
    return printable(f"{event.unit}: {event.value}, {event.name}, device {event.device}, number "
                     f"{event.sequence}" + (f": {texts}" if texts else ""))
