"""Sends alarms as a unit does, as fast as net-snmp's library can: trap_sender.py FIRST COUNT and
snmptrap's options, to the receiver at the end. The numbers run from FIRST; the last is raised, and
longer than a field that journalctl shows without --all."""

import ctypes
import sys

TRAP2 = 0xA7
BASE = ".1.3.6.1.4.1.53412.8.2.2.3.3.1.1.0"
library = ctypes.CDLL("libnetsnmp.so.40")
for name in ("snmp_open", "snmp_pdu_create"):
    getattr(library, name).restype = ctypes.c_void_p


def oid(text):
    numbers = [int(word) for word in text.strip(".").split(".")]
    return (ctypes.c_ulong * len(numbers))(*numbers), ctypes.c_size_t(len(numbers))


def open_session(arguments):
    session = ctypes.create_string_buffer(4096)  # larger than the library's structure
    words = [b"sender", *(word.encode() for word in arguments)]
    callback = ctypes.CFUNCTYPE(None, ctypes.c_int, ctypes.c_void_p, ctypes.c_int)(lambda *_: None)
    array = (ctypes.c_char_p * (len(words) + 1))(*words, None)
    if library.snmp_parse_args(len(words), array, session, b"", callback) < 0:
        sys.exit("the options are not understood")
    return ctypes.c_void_p(library.snmp_open(session) or sys.exit("no session"))


def main():
    first, count = int(sys.argv[1]), int(sys.argv[2])
    session = open_session(sys.argv[3:])
    for number in range(first, first + count):
        pdu = ctypes.c_void_p(library.snmp_pdu_create(TRAP2))
        last = number == first + count - 1
        values = [(".1.3.6.1.2.1.1.3.0", b"t", str(number)), (".1.3.6.1.6.3.1.1.4.1.0", b"o", f"{BASE}.96"),
                  (f"{BASE}.1", b"s", f"Alarm {number % 10}"),
                  (f"{BASE}.2", b"s", "New Alarm" if last or number % 2 else "Clear Alarm"),
                  (f"{BASE}.3", b"i", "8"), (f"{BASE}.4", b"s", "Quay"), (f"{BASE}.5", b"s", "x" * 1300 * last),
                  (f"{BASE}.6", b"s", f"of {sys.argv[-1]}"), (f"{BASE}.7", b"i", str(number))]
        for name, kind, value in values:
            numbers, length = oid(name)
            if library.snmp_add_var(pdu, numbers, length, ctypes.c_char(kind), value.encode()):
                sys.exit(f"{name} cannot be {value}")
        if not library.snmp_send(session, pdu):
            sys.exit(f"notification {number} cannot be sent")


main()
