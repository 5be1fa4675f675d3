"""Floods of notifications while managers poll: nothing lost, nothing doubled, nobody stuck."""

import subprocess

from polling import Polling
from receiver import serve_received
from world import wait_until

ALARM, HEARTBEAT, COUNT = 96, 99, 15_000


def test_flood_under_polling(world):
    """Every notification once, in order; heartbeats in turn."""
    receiver = serve_received(world, "set 0x0ffa 0", "set 0x0ffb 1", stdout=subprocess.DEVNULL)
    polling = Polling(world)
    answers, memory = [polling.answers()], []
    flood = world.flood(COUNT)
    for part in (1, 2, 3, 4):
        wait_until(lambda: len([event for event in receiver.received() if event.kind == ALARM])
                   >= part * COUNT // 4, 90, f"part {part} of the flood")
        answers.append(polling.answers())
        memory.append(world.agent.resident())
    assert flood.wait() == 0
    world.ctl("set", "0x0ffb", 0)
    polling.stop()
    received = receiver.received()
    assert [event.sequence for event in received] == list(range(1, len(received) + 1))
    assert [int(event.text4) for event in received if event.kind == ALARM] == list(
        range(1, COUNT + 1))
    beats = [int(event.value) for event in received if event.kind == HEARTBEAT]
    assert beats == [number % 2 for number in range(len(received) - COUNT)]
    progress = [sum(after) - sum(before) for before, after in zip(answers, answers[1:])]
    assert min(progress) > 0
    assert all(after > before for before, after in zip(answers[0], answers[-1]))
    assert memory[-1] < memory[0] + 4096  # one lost notification is more than 1 KiB
    assert world.agent.running() and world.master.running()
