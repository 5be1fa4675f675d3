"""A unit that misbehaves: the agent stays, answers nothing wrong, and the next request is right."""

import re

import pytest

from conftest import refused
from world import ROOT, SnmpError, scalar_row

NUMBER, TEXT, NEIGHBOUR = (f"{ROOT}.1.1.1.{suffix}.0" for suffix in (1, 2, 3))
NUMBER_ID, TEXT_ID, NEIGHBOUR_ID = "0x0101", "0x0102", "0x0103"
RIGHT = {NUMBER: 0x1234, TEXT: "Tower 7", NEIGHBOUR: 0x77665544}
ABSENT = None  # answered with noSuchInstance


def start(world):
    world.serve([scalar_row(0x0101, 1), scalar_row(0x0102, 2, type=4), scalar_row(0x0103, 3)],
                f'{NUMBER_ID} unsigned 2 rw {RIGHT[NUMBER]}\n{TEXT_ID} text 20 rw "{RIGHT[TEXT]}"\n'
                f'{NEIGHBOUR_ID} unsigned 4 rw {RIGHT[NEIGHBOUR]}\n')
    return world


@pytest.fixture(scope="module")
def served(shared_world):
    return start(shared_world)


def assert_all_right(world):
    assert {varbind.oid: varbind.value for varbind in world.get(*RIGHT)} == RIGHT
    assert world.agent.running()


@pytest.mark.parametrize("oid, fault, answer, printed", [
    (NUMBER, f"wrong-id {NEIGHBOUR_ID}", RIGHT[NUMBER], ""),
    (NUMBER, "wrong-command 0x11", ABSENT,
     "ERR: DatabaseFacade::select:  error!  cmd=11  oid=0x0101\n"),
    (NUMBER, "wrong-length 6", ABSENT, "ERR: DatabaseFacade::select: type unsupported!\n"),
    (NUMBER, "truncate 0", ABSENT, "ERR: DatabaseFacade::select:  error!  cmd=0  oid=0x0000\n"),
    (TEXT, "wrong-length 255", RIGHT[TEXT], ""),
    (TEXT, "truncate 10", RIGHT[TEXT][:4], ""),
    (TEXT, "oversize 1024", RIGHT[TEXT], ""),
    (TEXT, "oversize 1025", ABSENT, "called, failed: errno: Argument list too long, error code:7\n"
     "DataManage::getObjValue  readData error!\n"
     "reply too large to receive, taken off the queue\n"),
])
def test_reply_to_a_get(served, oid, fault, answer, printed):
    before = len(served.agent_output())
    served.ctl("fault", *fault.split(), "--count", "1", "--on", "get", "--object",
               NUMBER_ID if oid == NUMBER else TEXT_ID)
    [varbind] = served.get(oid)
    assert (varbind.type, varbind.value) == (
        ("noSuchInstance", None) if answer is ABSENT else
        ("INTEGER" if oid == NUMBER else "STRING", answer))
    served.wait_output(printed, after=before)
    assert_all_right(served)


@pytest.mark.parametrize("fault", [
    "delay 300", "double", "wrong-command 0x12", "wrong-length 255", "truncate 0", "oversize 2048",
    f"wrong-id {NEIGHBOUR_ID}", "stale 12 05 10 00 01 01 ff ff",
])
def test_acknowledgement_of_a_set(served, fault):
    """Whatever the unit answers, the manager is told that the value was set, and it was."""
    served.ctl("fault", *fault.split(), "--count", "1", "--on", "set")
    served.set(NUMBER, "i", 4321)
    assert served.held(0x0101)[-1] == 4321
    assert served.get(NUMBER)[0].value == 4321
    served.ctl("set", NUMBER_ID, RIGHT[NUMBER])
    assert_all_right(served)


@pytest.mark.parametrize("fault", ["wrong-length 6", "wrong-command 0x11", "truncate 0"])
def test_set_of_an_object_that_reads_wrong(served, fault):
    """Refused, and nothing is written."""
    before = len(served.frames())
    served.ctl("fault", *fault.split(), "--on", "get")
    assert refused(served, NUMBER, "i", 4321).reason == "badValue"
    served.ctl("fault", "none")
    assert served.writes(before) == []
    assert_all_right(served)


def test_counts_of_the_unit(served):
    """A reply for which the queue has no room is counted as dropped."""
    for _ in range(3):
        served.ctl("reply", "00" * 8000)
    assert "dropped 1\n" in served.ctl("stats")
    served.ctl("stats", "reset")
    assert not re.search("[1-9]", served.ctl("stats") + served.ctl("stats", NUMBER_ID))
    served.ctl("remove-queue", "reply")


def test_command_line_of_the_unit(served):
    """Its control socket counts more than that of the environment, also in front of the subcommand;
    one unit listens at a socket; the command that ends one."""
    program = served.build / "tools/dasunit/dasunit"
    def says(*words):
        result = served.run("timeout", "60", program, *words)
        return result.returncode, result.stderr.strip().rpartition(": ")[2]
    at_other = ("--control", "other")
    assert says(*at_other, "ctl", "stats") == (2, "No such file or directory")
    assert says("--objects", served.objects) == (2, "another unit listens here")
    other = served.spawn("other", [program, *at_other, "--objects", served.objects])
    assert says(*at_other, "ctl", "--wait", "10", "quit") == (0, "")
    assert other.wait(10) == 0


def test_queues_removed_between_requests(served):
    for queue in ("request", "reply", "alarm"):
        served.ctl("remove-queue", queue)
        assert_all_right(served)


def test_reply_queue_removed_under_a_waiting_request(served):
    before = len(served.agent_output())
    manager = served.hang(NUMBER, count=1)
    served.ctl("remove-queue", "reply")
    manager.wait(20)
    assert "No Such Instance" in manager.output()
    served.wait_output("called, failed: errno: Identifier removed, error code:43\n", after=before)
    assert_all_right(served)


def test_silent_unit_and_its_late_reply(world):
    """The master gives the agent up; when the unit speaks again, the objects come back."""
    start(world)
    with pytest.raises(SnmpError) as failure:
        world.ctl("fault", "silent", "--count", "1", "--object", NUMBER_ID)
        world.get(NUMBER, timeout=20)
    assert failure.value.reason == "genError"
    assert world.master_answers()
    assert world.agent.running()
    world.ctl("reply", "12 05 10 00 01 01 34 12")
    world.wait_served()
    assert_all_right(world)
