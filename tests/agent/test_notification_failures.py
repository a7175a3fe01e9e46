# SPDX-License-Identifier: Apache-2.0
"""Receivers that are dead, events that are none, managers that end in between: the agent
sends what it can vouch for, answers meanwhile, and goes on."""

import random
import struct
import time

import pytest
from harness import wire
from harness.clients import NetSnmp, PySnmp
from harness.fake_manager import Silence
from harness.notifications import (OUT_TRAPS, PERSISTENT_SINKS, SINKS, Receiver, SilentReceiver, membership_change,
                                   port_manager_value, status_change, wait_until_subscribed, watch)
from harness.oids import cell
from harness.operator_tool import OperatorTool

VSAN_CHANGED, PORT_MOVED = 145, 102
PORT_MANAGER_VALUE = 1282
ADMIN_STATE, OPER_STATE = 1, 19
ACTIVE, SUSPENDED, UP, DOWN = 1, 2, 1, 2
FC1 = 0x01000000
NAME = bytes.fromhex("20 01 00 0d ec a0 b1 c2")


def words(*numbers):
    return struct.pack(f">{len(numbers)}I", *numbers)


def vsan_changed(vsan, admin_state, oper_state, condition=0, created=0):
    """The payload of a VSAN's event; the former values are nobody's business."""
    return words(condition, vsan, created, 2, ADMIN_STATE, admin_state, 99, OPER_STATE, oper_state, 99)


def port_moved(if_index, vsan):
    return words(if_index, 99, vsan)


def sent_notifications(client):
    return client.get(OUT_TRAPS)[0].value


@pytest.fixture
def receiver(started):
    return started.add(Receiver(started.folders.make())).start()


@pytest.fixture
def trapping(receiver, manager, start_agent):
    """An agent that tells the receiver what the scripted manager publishes."""
    agent = start_agent(manager, lines=[SINKS["v2c trap"].format(port=receiver.port)])
    assert manager.subscribed.wait(15)
    return agent


# --- receivers -----------------------------------------------------------------------


def test_dead_receivers_hold_up_neither_requests_nor_other_receivers(started, receiver, manager, start_agent):
    dead = [sink.format(port=started.add(SilentReceiver()).port)
            for sink in (*SINKS.values(), *PERSISTENT_SINKS.values())]
    agent = start_agent(manager, lines=[*dead, SINKS["v3 trap"].format(port=receiver.port)])
    assert manager.subscribed.wait(15)
    client = PySnmp(agent)
    for turn in (DOWN, UP) * 10:
        manager.publish(VSAN_CHANGED, vsan_changed(10, ACTIVE, turn))
        asked = time.monotonic()
        assert client.get(cell("vsanName", 20))[0].value == b"VSAN0020"
        assert time.monotonic() - asked < 5, "as long as a receiver that is asked for its engine would take"
        assert receiver.next() == status_change(10, ACTIVE, turn)


def test_receivers_of_informs_that_come_back_get_what_they_missed(started, start_switch, start_agent):
    switch = start_switch(initial={"vsans": [{"id": 10}]})
    receivers = {kind: started.add(Receiver(started.folders.make())).start() for kind in PERSISTENT_SINKS}
    agent = watch(switch, start_agent, *(PERSISTENT_SINKS[kind].format(port=receiver.port)
                                         for kind, receiver in receivers.items()))
    operator = OperatorTool(switch)
    operator("vsan", "set", 10, "--state", "suspended")
    for receiver in receivers.values():
        assert receiver.next() == status_change(10, SUSPENDED, DOWN)
        receiver.stop()
    operator("vsan", "create", 20)
    operator("vsan", "create", 30)
    assert [row.oid[-1] for row in NetSnmp(agent).walk(cell("vsanName"))] == [1, 10, 20, 30], "it answers meanwhile"
    for receiver in receivers.values():
        receiver.start()
        receiver.wait_for(status_change(20, ACTIVE, DOWN), status_change(30, ACTIVE, DOWN))
    operator("vsan", "set", 10, "--state", "active")
    for receiver in receivers.values():
        receiver.wait_for(status_change(10, ACTIVE, DOWN))


# --- events that are none --------------------------------------------------------------


def is_sent(event_class, payload):
    """Whether an event is one, by the layout of its class."""
    if event_class == PORT_MOVED:
        return len(payload) >= 12
    if event_class != VSAN_CHANGED or len(payload) < 16:
        return False
    _, vsan, created, count = struct.unpack_from(">4I", payload)
    if not 1 <= vsan <= 4095 or created > 1 or count > 32 or len(payload) != 16 + 12 * count:
        return False
    return {ADMIN_STATE, OPER_STATE} <= {key for key, _, _ in struct.iter_unpack(">3I", payload[16:])}


def hostile_payloads():
    """(class, payload): cut, too long, inconsistent, of classes nobody asked for."""
    vsan, port = vsan_changed(10, ACTIVE, UP), port_moved(FC1, 10)
    for size in range(len(vsan)):
        yield VSAN_CHANGED, vsan[:size]
    for size in range(len(port)):
        yield PORT_MOVED, port[:size]
    for more in (1, 3, 4, 12, 100000):
        yield VSAN_CHANGED, vsan + bytes(more)
        yield PORT_MOVED, port + bytes(more)
    for count in (0, 1, 3, 32, 33, 0x40000002, 0x80000002, 0xFFFFFFFF):  # 12 times 2^30 is 0 in 32 bits
        yield VSAN_CHANGED, vsan[:12] + words(count) + vsan[16:]
    for number in (0, 4096, 0x10007, 0xFFFFFFFF):
        yield VSAN_CHANGED, vsan_changed(number, ACTIVE, UP)
    for created in (2, 0xFFFFFFFF):
        yield VSAN_CHANGED, vsan_changed(10, ACTIVE, UP, created=created)
    for keys in ((ADMIN_STATE, ADMIN_STATE), (OPER_STATE, OPER_STATE), (0, 2)):
        yield VSAN_CHANGED, words(0, 10, 0, 2, keys[0], 1, 1, keys[1], 1, 1)
    for event_class in (0, 1, 101, 103, 144, 146, 0x10000 + VSAN_CHANGED, 0xFFFFFFFF):
        yield event_class, vsan
        yield event_class, port
    # The other's payload.
    yield VSAN_CHANGED, port
    yield PORT_MOVED, vsan


def random_payloads(count):
    """Proper events with a few words that are not, and noise."""
    chance = random.Random(4711)
    strange = (0, 1, 2, 10, 19, 32, 33, 4095, 4096, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF)
    for _ in range(count):
        event_class = chance.choice((VSAN_CHANGED, VSAN_CHANGED, PORT_MOVED, chance.getrandbits(32)))
        if chance.random() < 0.2:
            yield event_class, chance.randbytes(chance.randrange(60))
            continue
        payload = bytearray(vsan_changed(chance.randrange(1, 4096), ACTIVE, UP))
        for _ in range(chance.randrange(3)):
            struct.pack_into(">I", payload, 4 * chance.randrange(10), chance.choice(strange))
        yield event_class, bytes(payload[: chance.choice((len(payload), chance.randrange(len(payload))))])


def test_hostile_events_send_nothing_and_later_ones_arrive(trapping, manager, receiver):
    manager.answer(wire.Reply(0, NAME), opcode=PORT_MANAGER_VALUE, kinds=(wire.GET,), service=wire.SERVICE_PORT)
    client = NetSnmp(trapping)
    before = sent_notifications(client)
    expected = 0
    for event_class, payload in [*hostile_payloads(), *random_payloads(3000)]:
        manager.send_to_subscribers(wire.event(event_class, payload))
        expected += is_sent(event_class, payload)
    assert expected > 100, "some of them are events in spite of all"
    manager.publish(VSAN_CHANGED, vsan_changed(4094, SUSPENDED, DOWN))
    manager.publish(PORT_MOVED, port_moved(0x01ABC000, 4093))
    receiver.wait_for(status_change(4094, SUSPENDED, DOWN))
    assert receiver.next() == membership_change(NAME, 0x01ABC000, 4093)
    assert sent_notifications(client) == before + expected + 2
    assert client.get(cell("vsanName", 20))[0].value == b"VSAN0020"


def test_bytes_that_are_no_event_end_the_subscription_and_a_new_one_is_made(trapping, manager, receiver):
    client = NetSnmp(trapping)
    before = sent_notifications(client)
    whole = wire.event(VSAN_CHANGED, vsan_changed(10, ACTIVE, UP))
    for nonsense in (
        wire.frame(wire.REPLY, 0, wire.reply_body(0, whole)),
        wire.frame(wire.EVENT, 0, b"abc"),
    ):
        manager.subscribed.clear()
        manager.send_to_subscribers(nonsense + whole)
        assert manager.subscribed.wait(15), nonsense
    manager.send_to_subscribers(whole[:-1])  # and the switch ends in the middle of an event
    manager.drop_connections()
    assert manager.subscribed.wait(15)
    manager.publish(VSAN_CHANGED, vsan_changed(4094, SUSPENDED, DOWN))
    assert receiver.next() == status_change(4094, SUSPENDED, DOWN)
    assert sent_notifications(client) == before + 1, "nothing behind such bytes was taken for an event"


# --- the port manager's value ------------------------------------------------------------


def test_without_the_port_managers_value_nothing_is_sent_and_the_next_event_asks_again(trapping, manager, receiver):
    asked = []
    answers = [wire.Reply(0x40190001, None), wire.Reply(0x40190001, NAME), wire.Reply(0, None), wire.Reply(0, b""),
               wire.Reply(0, NAME[:7]), Silence, wire.Reply(0, NAME)]

    def answer(request):
        asked.append(request)
        return answers[len(asked) - 1]

    manager.answer(answer, opcode=PORT_MANAGER_VALUE, kinds=(wire.GET,), service=wire.SERVICE_PORT)
    client = NetSnmp(trapping)
    for number in range(1, len(answers)):
        manager.publish(PORT_MOVED, port_moved(FC1, number))
        # An event of the other kind comes behind it: once that is there, this one is done with.
        manager.publish(VSAN_CHANGED, vsan_changed(number, ACTIVE, UP))
        assert receiver.next() == status_change(number, ACTIVE, UP)
        assert len(asked) == number
    # A request that was never answered keeps the next ones back until the manager shows that it lives.
    while len(asked) < len(answers):
        client.get(cell("vsanName", 20))
        manager.publish(PORT_MOVED, port_moved(FC1, 7))
        manager.publish(VSAN_CHANGED, vsan_changed(8, ACTIVE, UP))
        receiver.wait_for(status_change(8, ACTIVE, UP))
    manager.publish(PORT_MOVED, port_moved(FC1, 9))
    receiver.wait_for(membership_change(NAME, FC1, 9))
    assert len(asked) == len(answers), "it is asked for once"
    assert all((request.payload, request.length, request.user) == (b"", 0, "") for request in asked)


def test_a_manager_that_ends_between_event_and_query_leaves_nothing_to_send(trapping, manager, receiver):
    client = NetSnmp(trapping)
    before = sent_notifications(client)
    manager.answer(lambda _: manager.die(), opcode=PORT_MANAGER_VALUE, kinds=(wire.GET,), service=wire.SERVICE_PORT)
    manager.publish(PORT_MOVED, port_moved(FC1, 10))
    manager.revive()
    assert manager.subscribed.wait(15)
    assert sent_notifications(client) == before
    manager.answer(wire.Reply(0, NAME), opcode=PORT_MANAGER_VALUE, kinds=(wire.GET,), service=wire.SERVICE_PORT)
    manager.publish(PORT_MOVED, port_moved(FC1, 20))
    assert receiver.next() == membership_change(NAME, FC1, 20)
    assert sent_notifications(client) == before + 1


def test_a_switch_that_crashes_at_the_query_is_served_again_when_it_is_back(receiver, start_switch, start_agent):
    switch = start_switch(initial={"vsans": [{"id": 10}], "ports": [{"ifIndex": FC1, "vsan": 1, "link": "down"}]})
    agent = watch(switch, start_agent, SINKS["v2c trap"].format(port=receiver.port))
    operator = OperatorTool(switch)
    operator("fault", "add", "exit", "--opcode", PORT_MANAGER_VALUE)
    operator("port", "move", FC1, 10)
    assert switch.process.wait(15) == 3
    assert NetSnmp(agent).get(cell("vsanName", 10))[0].kind == "noSuchInstance"
    switch.start()
    wait_until_subscribed(switch, agent)
    operator("port", "move", FC1, 1)
    assert receiver.next() == membership_change(port_manager_value(switch), FC1, 1), "the first that comes"
