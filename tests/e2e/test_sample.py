"""The sample data: each scalar is what the unit holds, by its conversion."""

import re
import struct

import pytest

from world import ROOT

TIME = re.compile(r"\d+:\d+:\d+ \d+/\d+/\d{4}")


@pytest.fixture(scope="module")
def sample(shared_world):
    shared_world.start_unit()
    shared_world.start_master()
    shared_world.start_agent()
    return shared_world


def single(number):
    """The number as single precision keeps it."""
    return struct.unpack("f", struct.pack("f", number))[0]


def presented(held, code):
    """What a manager reads for what the unit holds: (kind, width, access, value)."""
    kind, width, _, value = held
    exponent, method = code >> 12, code & 0xFFF
    if method in (1, 2):
        octets = value.ljust(4, "\0").encode("latin-1") if kind == "text" else value.to_bytes(
            4, "big")
        return ".".join(map(str, octets[:4]))
    if method == 4:
        number = single(value)
        for _ in range(exponent):
            number = single(number / 10)
        return f"{number:.2f}"
    if method == 11:
        return value & 0xFFFF
    if kind != "text" and value >= 1 << 31:
        return value - (1 << 32)
    return value


def test_every_scalar(sample):
    scalars = sample.scalars()
    read = {varbind.oid: varbind for varbind in sample.walk(ROOT + ".1")}
    assert read.keys() == {oid for oid, _ in scalars.values()}
    differing = {}
    for name, (oid, row) in scalars.items():
        code = int(row[9], 16)
        assert read[oid].type == ("INTEGER" if int(row[3], 16) == 2 else "STRING"), name
        if code & 0xFFF == 3:
            assert TIME.fullmatch(read[oid].value)
            continue
        expected = presented(sample.held(int(row[0], 16)), code)
        if read[oid].value != expected:
            differing[name] = (read[oid].value, expected)
    assert not differing


def test_walks_agree_over_scalars_and_tables(sample):
    walk = [varbind.oid for varbind in sample.walk()]
    assert len(walk) > 300
    assert [varbind.oid for varbind in sample.bulkwalk()] == walk
