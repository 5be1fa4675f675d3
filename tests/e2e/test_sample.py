"""The sample data: each scalar is what the unit holds, by its conversion."""

import re
import struct

from world import ROOT


def single(number):
    """The number as single precision keeps it."""
    return struct.unpack("f", struct.pack("f", number))[0]


def presented(held, code):
    """What a manager reads for what the unit holds: (kind, width, access, value)."""
    kind, _, _, value = held
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


def test_every_scalar(sample_world):
    scalars = sample_world.scalars()
    read = {varbind.oid: varbind for varbind in sample_world.walk(ROOT + ".1")}
    assert read.keys() == {oid for oid, _ in scalars.values()}
    for name, (oid, row) in scalars.items():
        code = int(row[9], 16)
        assert read[oid].type == ("INTEGER" if int(row[3], 16) == 2 else "STRING"), name
        if code & 0xFFF == 3:
            assert re.fullmatch(r"\d+:\d+:\d+ \d+/\d+/\d{4}", read[oid].value)
            continue
        assert read[oid].value == presented(sample_world.held(int(row[0], 16)), code), name


def test_walks_agree_over_scalars_and_tables(sample_world):
    walk = [varbind.oid for varbind in sample_world.walk()]
    assert len(walk) > 300
    assert [varbind.oid for varbind in sample_world.bulkwalk()] == walk
