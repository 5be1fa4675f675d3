"""What the headers of the built programs say of their hardening. NORVA_BUILD may name a build for
another processor too."""

import os
import re
import subprocess
from pathlib import Path

import pytest

from world import SOURCE

BUILD = Path(os.environ.get("NORVA_BUILD") or SOURCE / "build/dev")
CACHE = (BUILD / "CMakeCache.txt").read_text() if (BUILD / "CMakeCache.txt").exists() else ""
pytestmark = pytest.mark.skipif(bool(re.search("NORVA_SANITIZE:.*=.", CACHE)), reason="sanitizers")


def read(options, file):
    result = subprocess.run(["readelf", "-W", *options, BUILD / file], capture_output=True, text=True,
                            timeout=60, check=True)
    return result.stdout


@pytest.mark.parametrize("program", ["norvaSnmp", "tools/dasunit/dasunit", "tools/norvamap/norvamap"])
def test_programs(program):
    """Placed anywhere, bound at once and read-only then, no stack that runs, checked by the C
    library."""
    headers = read(["-h", "-l", "-d"], program)
    for wanted in (r"DYN \(Position-Independent", "GNU_RELRO ", r"FLAGS_1\).* NOW",
                   "GNU_STACK .* RW +0x"):
        assert re.search(wanted, headers), wanted
    imported = read(["--dyn-syms"], program)
    assert "__stack_chk_fail" in imported
    assert "CMAKE_BUILD_TYPE:STRING=Debug" in CACHE or re.search(r" __\w+(?<!stack)_chk\b", imported)


@pytest.mark.parametrize("library", ["norva_agent", "norva_device"])
def test_branches(library):
    """Our own code is made for CET. A program gets the mark where the C library's start code has it."""
    file = f"src/lib{library}.a"
    if "X86-64" not in read(["-h"], file):
        pytest.skip("not this processor's")
    notes = read(["-n"], file)
    assert notes.count("IBT, SHSTK") == notes.count("\nFile: ") > 5
