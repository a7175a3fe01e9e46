# SPDX-License-Identifier: Apache-2.0
"""An agent that has answered thousands of requests holds no more than one that has
answered a few."""

import pytest

from harness import wire
from harness.build import AGENT_PRELOAD
from harness.clients import NetSnmp, Packets
from harness.fake_manager import Close
from harness.oids import ARCS, SCALARS, cell, scalar

from conftest import INITIAL, ROLES

ROUNDS = 2000
# One lost reply of 2632 bytes a request would be more than 5 MiB.
ALLOWED_GROWTH_KIB = 1024


def drive(packets, oids, rounds):
    request = packets.packet(oids, 1)
    for _ in range(rounds):
        packets.socket.send(request)
        packets.socket.recv(65536)


def assert_holds_no_more(agent, oids, community="public", rounds=ROUNDS):
    with Packets(agent, community) as packets:
        drive(packets, oids, 300)
        descriptors, resident = agent.descriptors(), agent.resident_kib()
        drive(packets, oids, rounds)
        assert agent.descriptors() == descriptors
        # A sanitizer keeps freed memory back and looks for leaks by itself.
        if not AGENT_PRELOAD:
            assert agent.resident_kib() - resident < ALLOWED_GROWTH_KIB


@pytest.fixture
def settled(puppet, manager):
    """An agent with everything open that it keeps open: it takes its time to listen to
    the manager's events."""
    assert manager.subscribed.wait(15)
    return puppet


@pytest.fixture
def settled_agent(start_switch, start_agent):
    switch = start_switch(initial=INITIAL, roles=ROLES)
    agent = start_agent(switch)
    NetSnmp(agent).get(scalar("vsanNumber"))
    switch.wait_connections(2)  # requests and events
    return agent


def test_answering_rows_and_scalars(settled_agent):
    scalars = [scalar(name) for name in SCALARS]
    assert_holds_no_more(settled_agent, [cell("vsanName", 10), cell("vsanMtu", 20), *scalars])


def test_refusing_what_is_not_there(settled_agent):
    assert_holds_no_more(settled_agent, [cell("vsanName", 3), cell("vsanName", 4096), ARCS["vsanName"]])


def test_refusing_a_restricted_user(settled_agent):
    assert_holds_no_more(settled_agent, [cell("vsanName", 10), cell("vsanName", 30)], community="limited")


@pytest.mark.parametrize("reply", [
    wire.Reply(0x40190001, wire.vsan_block(vsanIndex=20)), wire.Reply(0, b"short" * 400), wire.Reply(0, None),
], ids=["error_with_data", "short", "no_data"])
def test_answers_that_are_none(settled, manager, reply):
    for opcode in (wire.VSAN, wire.VSAN_COUNT, wire.FC_TIMER):
        manager.answer(reply, opcode=opcode)
    assert_holds_no_more(settled, [cell("vsanName", 20), scalar("vsanNumber"), scalar("fcTimerRatov")])


def test_a_manager_that_closes_each_time(settled, manager):
    manager.answer(Close)
    assert_holds_no_more(settled, [cell("vsanName", 20)], rounds=1000)


def test_a_manager_that_is_not_there(start_agent, folder):
    class Nobody:
        run_dir = folder

    assert_holds_no_more(start_agent(Nobody), [cell("vsanName", 20), scalar("vsanNumber")])
