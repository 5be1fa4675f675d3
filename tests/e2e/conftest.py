"""Fixtures and what several modules need. The worlds' logs are shown with a failed test."""

import os
import re
import signal
import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "tools/world"))

from world import SOURCE, SnmpError, World, WorldError, wait_until  # noqa: E402

# Where pytest keeps its directories: in the clone, not in /tmp.
os.environ.setdefault("PYTEST_DEBUG_TEMPROOT", str(SOURCE / "build"))


def wait_started(world):
    """The agent answers already while it registers its objects; the handler of SIGTERM is
    installed last."""
    def handled():
        caught = re.search(r"SigCgt:\s*(\w+)", status.read_text())[1]
        return int(caught, 16) >> (signal.SIGTERM - 1) & 1
    status = Path(f"/proc/{world.agent.pid()}/status")
    wait_until(handled, what="the start-up done")


def printed(world, after=0):
    """What the agent printed, without the frames traced in front of a line."""
    return re.sub(r"^(?:[0-9a-f]{2} )+", "", world.agent_output()[after:], flags=re.M)


def put_back(world, prefix="0x"):
    """The unit's objects as its file has them, those whose ids begin so."""
    world.ctl("fault", "none")
    for line in world.objects.read_text().splitlines():
        if line.startswith(prefix):
            world.ctl("add", line)


def refused(world, *assignments, **options):
    """The error of a SET that must fail."""
    with pytest.raises(SnmpError) as error:
        world.set(*assignments, **options)
    return error.value


def _make_world(**options):
    try:
        return World(**options)
    except WorldError as error:
        pytest.fail(str(error), pytrace=False)


@pytest.fixture
def world():
    """A world of the test's own, nothing started."""
    with _make_world() as made:
        yield made
        made.show_logs()


@pytest.fixture(scope="module")
def shared_world():
    """A world that the tests of a module share: what they change they put back."""
    with _make_world() as made:
        yield made
        made.show_logs()


@pytest.fixture(scope="module")
def sample_world(shared_world):
    """The sample data, served."""
    shared_world.serve()
    return shared_world


@pytest.fixture
def restored(served):
    """What a module serves to its tests, the unit's objects put back after the test."""
    yield served
    put_back(served)
