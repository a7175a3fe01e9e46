# SPDX-License-Identifier: Apache-2.0
"""The write method of the notification control, through an object made for these tests:
whatever is written, the manager is asked to send."""

import struct

import pytest
from harness import ber, wire
from harness.build import BUILD
from harness.notifications import SINKS, Receiver, status_change, wait_until_subscribed
from harness.oids import ROOT
from harness.operator_tool import OperatorTool
from harness.packets import DONE, PacketClient

CONTROL = ROOT + (1, 1, 5, 0)
STATUS_EVENTS = 8018
ON, OFF = 1, 2
LOADED = f"dlmod notification_control {BUILD / 'tests/agent/notification_control.so'}"
ARE_OFF = "those of VSANs are off"
ACTIVE, DOWN = 1, 2


@pytest.fixture
def asked(manager, start_agent):
    """A client of an agent with the object, and the requests that reached its manager."""
    manager.answer(wire.Reply(0, None), opcode=STATUS_EVENTS, kinds=(wire.SET,))
    with PacketClient(start_agent(manager, lines=[LOADED])) as client:
        yield client, lambda: [r for r in list(manager.requests) if r.opcode == STATUS_EVENTS]


def test_one_and_two_both_ask_the_manager_to_send(asked):
    client, requests = asked
    for value in (1, 2):
        assert client.set((CONTROL, ber.integer(value))) == DONE
    assert [(r.service, r.kind, r.payload, r.length, r.user, r.session) for r in requests()] == [
        (wire.SERVICE_VSAN, wire.SET, struct.pack(">I", 1), 4, "", 0)] * 2


@pytest.mark.parametrize("value, status", [
    (ber.integer(0), "wrongValue"), (ber.integer(3), "wrongValue"), (ber.integer(-1), "wrongValue"),
    (ber.integer(0x10000), "wrongValue"), (ber.octets("1"), "wrongType"), (ber.gauge(1), "wrongType"),
], ids=["0", "3", "-1", "65536", "text", "Gauge32"])
def test_anything_else_is_refused_and_the_manager_not_asked(asked, value, status):
    client, requests = asked
    assert client.set((CONTROL, value)) == (status, 1)
    assert requests() == []


def test_a_refusal_is_a_general_error(asked, manager):
    client, _ = asked
    manager.answer(wire.Reply(wire.NO_SUCH_VSAN, None), opcode=STATUS_EVENTS, kinds=(wire.SET,))
    assert client.set((CONTROL, ber.integer(1))) == ("genErr", 1)
    manager.die()
    assert client.set((CONTROL, ber.integer(1))) == ("genErr", 1)
    manager.revive()
    manager.answer(wire.Reply(0, None), opcode=STATUS_EVENTS, kinds=(wire.SET,))
    assert client.set((CONTROL, ber.integer(1))) == DONE


def test_a_switch_that_kept_its_events_to_itself_sends_them_again(started, start_switch, start_agent):
    switch = start_switch(initial={"vsans": [{"id": 10}]})
    receiver = started.add(Receiver(started.folders.make())).start()
    agent = start_agent(switch, lines=[LOADED, SINKS["v2c trap"].format(port=receiver.port)])
    wait_until_subscribed(switch, agent)
    operator = OperatorTool(switch)
    with switch.connect() as connection:
        assert connection.request(wire.SERVICE_VSAN, STATUS_EVENTS, wire.SET, struct.pack(">I", OFF)).status == 0
    assert ARE_OFF in operator("show")
    operator("vsan", "create", 20)
    with PacketClient(agent) as client:
        assert client.set((CONTROL, ber.integer(OFF))) == DONE
    assert ARE_OFF not in operator("show")
    operator("vsan", "create", 30)
    assert receiver.next() == status_change(30, ACTIVE, DOWN), "and nothing of VSAN 20"
