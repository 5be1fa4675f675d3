"""The same answers on a big-endian processor: agent and simulated unit of the preset `big-endian`
under emulation, everything else native, compared with the native build byte for byte.

Runs when NORVA_BIG_ENDIAN_BUILD names that build directory and NORVA_EMULATOR the command that runs
its programs."""

import os
from pathlib import Path

import pytest

from receiver import serve_received
from world import ROOT, SnmpError, World

BUILD = os.environ.get("NORVA_BIG_ENDIAN_BUILD")
EMULATOR = os.environ.get("NORVA_EMULATOR")
pytestmark = pytest.mark.skipif(not BUILD, reason="no big-endian build")

CLOCK = f"{ROOT}.1.1.3.4.0"
CELL = ROOT + ".10.{}.1.{}.{}.0"

# Kinds and widths in both directions, some refused, some cut to the unit's width.
SETS = [
    (f"{ROOT}.1.1.4.10.0", "i", "65537"),  # unsigned, two bytes: cut
    (f"{ROOT}.1.1.6.7.0", "i", "-2"),      # unsigned, four bytes
    (f"{ROOT}.1.1.4.5.0", "i", "-25"),     # signed, times ten
    (f"{ROOT}.1.2.1.3.0", "s", "0.29"),    # decimal text, truncated
    (f"{ROOT}.1.2.1.2.0", "u", "7"),       # another number's type
    (f"{ROOT}.1.1.1.7.0", "s", "x" * 64),  # text of 64 bytes
    *[(CELL.format(table, column, row), kind, value)
      for table, columns in ((1, range(1, 10)), (2, range(1, 9)))
      for column in columns for row, kind, value in ((3, "i", "5"), (32, "s", "2.5"))],
]


def emulated_build(directory):
    """A build directory whose programs run under emulation."""
    for program in ("norvaSnmp", "tools/dasunit/dasunit"):
        script = directory / program
        script.parent.mkdir(parents=True, exist_ok=True)
        script.write_text(f'#!/bin/sh\nexec {EMULATOR} {Path(BUILD).resolve() / program} "$@"\n')
        script.chmod(0o755)
    (directory / "data").mkdir()
    (directory / "data/mapping.db").symlink_to(Path(BUILD).resolve() / "data/mapping.db")
    return directory


def outcome(request, *arguments):
    try:
        return request(*arguments)
    except SnmpError as error:
        return error.reason


def observe(build):
    """What managers, receivers and the unit see of a build."""
    seen = {}
    with World(build=build) as world:
        receiver = serve_received(world, "set 0x0ffa 255")
        world.wait_output("_heartBeatInterval is changed to 255")
        before = len(world.frames())
        seen["walk"] = [bound for bound in world.walk() if bound.oid != CLOCK]
        seen["bulk"] = [bound for bound in world.bulkwalk() if bound.oid != CLOCK]
        seen["sets"] = [(outcome(world.set, *assignment), outcome(world.get, assignment[0]))
                        for assignment in SETS]
        for command in ("alarm raise 0x0403 --device-id 7 --text4 four --text5 five --text6 six",
                        "ru remove 0x0408 --ru 0,1,0", "event report 0x0409"):
            world.ctl(*command.split())
        seen["notifications"] = list(receiver.wait(3))
        seen["frames"] = world.frames()[before:]
        # What a record holds is also seen in the trace that the agent prints of every payload.
        world.wait_output(seen["frames"][-1].bytes.hex(" "))
    with World(build=build) as world:
        # Without an interval heartbeats follow each other at once: the first is like any other.
        receiver = serve_received(world, "set 0x0ffa 0")
        seen["heartbeat"] = receiver.wait(1)[0]
    return seen


def test_answers_frames_and_notifications_are_those_of_the_native_build(tmp_path):
    native = observe(None)
    emulated = observe(emulated_build(tmp_path))
    assert len(native["walk"]) > 600 and len(native["frames"]) > 1000
    assert [event.kind for event in native["notifications"]] == [96, 97, 98]
    for aspect, expected in native.items():
        assert emulated[aspect] == expected, aspect
