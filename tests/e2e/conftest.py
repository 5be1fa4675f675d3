"""Fixtures. The worlds' logs are shown with a failed test."""

import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "tools/world"))

from world import World, WorldError  # noqa: E402


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
