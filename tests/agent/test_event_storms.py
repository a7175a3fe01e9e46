# SPDX-License-Identifier: Apache-2.0
"""Events by the ten thousand: what fits arrives, what does not is counted, and nobody waits
for anybody."""

import struct
import time

import pytest
from harness import wire
from harness.build import AGENT_PRELOAD
from harness.clients import NO_SUCH_INSTANCE
from harness.notifications import OUT_TRAPS, SINKS, CountingReceiver, SilentReceiver, watch
from harness.oids import cell
from harness.operator_tool import OperatorTool
from harness.packets import PacketClient

VSAN_CHANGED, PORT_MOVED = 145, 102
PORT_MANAGER_VALUE = 1282
# An agent with a sanitizer in it is so slow that the switch might take it for one that does
# not read at all.
STORM = 2000 if AGENT_PRELOAD else 10000
MOST_PORTS = 512 if AGENT_PRELOAD else 4096
# More than waits for one subscriber, wherever it waits: in the switch's queue of 16384, in
# what it is sending, in the socket.
FLOOD = 50000
# Between two requests while the agent has other things to do.
PAUSE = 0.01
# Whoever kept a list of all that has been sent would hold more.
ALLOWED_GROWTH_KIB = 32 * 1024
# An inform that nobody acknowledges is kept for six seconds here: 12000 of them at the
# agent's pace, of less than 10 KiB each.
INFORMS = "trapsess -Ci -t 3 -r 1 -v 2c -c public 127.0.0.1:{port}"
ALLOWED_WITH_INFORMS_KIB = 120 * 1024


@pytest.fixture
def receiver(started):
    return started.add(CountingReceiver())


class Memory:
    """How much the agent and the switch hold more than at first."""

    def __init__(self, *things):
        self._before = {thing: thing.process.resident_kib() for thing in things}

    def assert_bounded(self, allowed_kib=ALLOWED_GROWTH_KIB):
        for thing, before in self._before.items():
            growth = thing.process.resident_kib() - before
            # A sanitizer keeps freed memory back.
            assert AGENT_PRELOAD or growth < allowed_kib, (thing, growth)


def events_of(operator):
    """The switch's own account of its events."""
    return operator.json("show")["events"]


def while_sending(client, total, operator):
    """Gives how many notifications the agent has sent, again and again, until they are all."""
    deadline = time.monotonic() + 120
    while (sent := client.value(OUT_TRAPS)) < total:
        if time.monotonic() > deadline:
            shown = operator.json("show")
            raise AssertionError((sent, total, shown["events"], shown["subscribers"], shown["connections"]))
        yield sent
        time.sleep(PAUSE)
    assert sent == total


def test_a_storm_arrives_whole_while_the_agent_answers_and_another_receiver_is_dead(
        started, receiver, start_switch, start_agent):
    switch = start_switch(initial={"vsans": [{"id": 10, "name": "ten"}]})
    agent = watch(switch, start_agent, SINKS["v2c trap"].format(port=receiver.port),
                  INFORMS.format(port=started.add(SilentReceiver()).port))
    operator = OperatorTool(switch)
    with PacketClient(agent) as client:
        before, already_received = client.value(OUT_TRAPS), receiver.count()
        memory = Memory(agent, switch)
        operator("fault", "storm", STORM, "--vsan", 10)
        answered_at = []
        for sent in while_sending(client, before + 2 * STORM, operator):
            assert client.value(cell("vsanName", 10)) == b"ten"
            answered_at.append(sent)
        assert any(sent > before for sent in answered_at), "it answers in the middle of it"
    assert receiver.wait_count(already_received + STORM) == already_received + STORM
    memory.assert_bounded(ALLOWED_WITH_INFORMS_KIB)
    assert events_of(operator) == {"published": STORM, "missed": 0, "dropped": 0}


def test_the_most_events_that_one_change_can_cause_arrive_whole(receiver, start_switch, start_agent):
    """A deleted VSAN sends each of its ports elsewhere."""
    ports = [{"ifIndex": 0x01000000 + 0x1000 * number, "vsan": 10, "link": "up"} for number in range(MOST_PORTS)]
    switch = start_switch(initial={"vsans": [{"id": 10}], "ports": ports})
    agent = watch(switch, start_agent, SINKS["v2c trap"].format(port=receiver.port))
    operator = OperatorTool(switch)
    events = MOST_PORTS + 2  # both VSANs' states
    with PacketClient(agent) as client, switch.counting() as served:
        before, already_received = client.value(OUT_TRAPS), receiver.count()
        memory = Memory(agent, switch)
        operator("vsan", "delete", 10)
        for _ in while_sending(client, before + events, operator):
            assert client.get(cell("vsanName", 10))[0].kind == NO_SUCH_INSTANCE, "it is gone before it is reported"
    assert receiver.wait_count(already_received + events) == already_received + events
    memory.assert_bounded()
    assert events_of(operator) == {"published": events, "missed": 0, "dropped": 0}
    assert served.of(PORT_MANAGER_VALUE, service=wire.SERVICE_PORT) == 1


def test_subscribers_that_do_not_read_lose_what_is_beyond_the_bound_and_block_nobody(receiver, start_switch,
                                                                                     start_agent):
    switch = start_switch(initial={"vsans": [{"id": 10, "name": "ten"}]})
    agent = watch(switch, start_agent, SINKS["v2c trap"].format(port=receiver.port))
    operator = OperatorTool(switch)
    memory = Memory(agent, switch)
    agent.suspend()
    with switch.connect() as idle, switch.connect() as busy:
        idle.subscribe(VSAN_CHANGED)
        operator("fault", "storm", FLOOD, "--vsan", 10)
        # A change is made, answered and published as if nobody stood still.
        busy.subscribe(PORT_MOVED)
        operator("port", "move", "fc1", 10)
        assert busy.event()[0] == PORT_MOVED
        assert [row["vsanIndex"] for row in busy.vsans()] == [1, 10]

        of_agent, of_idle = operator.json("show")["subscribers"][:2]
        assert (of_agent["classes"], of_idle["classes"]) == ([PORT_MOVED, VSAN_CHANGED], [VSAN_CHANGED])
        for loser in of_agent, of_idle:
            assert loser["dropped"] > 0 and loser["queued"] > 0
        assert events_of(operator)["dropped"] == of_agent["dropped"] + of_idle["dropped"]
        assert f" {of_idle['queued']} waiting, {of_idle['dropped']} dropped\n" in operator("show")
        memory.assert_bounded()

        # The one gets all that was kept for it, in order, and then what comes new.
        published = FLOOD - of_idle["dropped"]
        for number in range(published):
            event_class, payload = idle.event()
            assert (event_class, struct.unpack_from(">2I", payload)) == (VSAN_CHANGED, (0, 10)), number
        operator("vsan", "create", 20)
        assert struct.unpack_from(">2I", idle.event()[1]) == (0, 20)

    # The other answers as soon as it can, and what it leaves behind at its end is counted.
    agent.resume()
    with PacketClient(agent) as client:
        assert client.value(cell("vsanName", 10)) == b"ten"
        dropped, waiting = (operator.json("show")["subscribers"][0][key] for key in ("dropped", "queued"))
        assert waiting > 0
    agent.process.kill()
    switch.wait_connections(0)
    assert events_of(operator)["dropped"] >= of_idle["dropped"] + dropped
    agent.start()
