# SPDX-License-Identifier: Apache-2.0
"""Events of the switch arrive at a real snmptrapd as notifications."""

import pytest
from harness.clients import NetSnmp
from harness.notifications import (SINKS, Receiver, membership_change, port_manager_value, status_change,
                                   wait_until_subscribed, watch)
from harness.oids import cell
from harness.operator_tool import OperatorTool

ACTIVE, SUSPENDED, NOT_CONFIGURED, UP, DOWN = 1, 2, 3, 1, 2
CREATE_AND_GO, DESTROY = 4, 6
FC1, FC2 = 0x01000000, 0x01001000
INITIAL = {"vsans": [{"id": 10}], "ports": [{"ifIndex": port, "vsan": 10, "link": "up"} for port in (FC1, FC2)]}


@pytest.fixture
def receiver(started):
    return started.add(Receiver(started.folders.make())).start()


def test_each_event_arrives_at_every_receiver_with_its_bindings_in_order(started, start_switch, start_agent):
    switch = start_switch(initial=INITIAL)
    receivers = {kind: started.add(Receiver(started.folders.make())).start() for kind in SINKS}
    agent = watch(switch, start_agent, *(sink.format(port=receivers[kind].port) for kind, sink in SINKS.items()))
    client = NetSnmp(agent, user="private")
    operator = OperatorTool(switch)
    name = port_manager_value(switch)
    expected = []

    client.set((cell("vsanRowStatus", 50), "i", CREATE_AND_GO))
    expected += [status_change(50, ACTIVE, DOWN)]

    client.set((cell("vsanAdminState", 10), "i", SUSPENDED))
    expected += [status_change(10, SUSPENDED, DOWN)]
    client.set((cell("vsanName", 10), "s", "no_news"))
    client.set((cell("vsanAdminState", 10), "i", ACTIVE))
    expected += [status_change(10, ACTIVE, UP)]

    operator("port", "down", FC1)  # FC2 keeps the VSAN up
    operator("port", "down", FC2)
    expected += [status_change(10, ACTIVE, DOWN)]
    operator("port", "up", FC2)
    expected += [status_change(10, ACTIVE, UP)]
    operator("port", "up", FC1)

    client.set((cell("vsanIfVsan", FC1), "i", 50))
    expected += [membership_change(name, FC1, 50), status_change(50, ACTIVE, UP)]
    client.set((cell("vsanIfVsan", FC2), "i", 50))
    expected += [membership_change(name, FC2, 50), status_change(10, ACTIVE, DOWN)]

    client.set((cell("vsanRowStatus", 50), "i", DESTROY))
    expected += [membership_change(name, FC1, 1), membership_change(name, FC2, 1), status_change(1, ACTIVE, UP),
                 status_change(50, NOT_CONFIGURED, DOWN)]

    for kind, receiver in receivers.items():
        for number, notification in enumerate(expected):
            assert receiver.next() == notification, (kind, number)


def test_events_arrive_again_after_the_switch_was_restarted(receiver, start_switch, start_agent):
    switch = start_switch(initial=INITIAL)
    agent = watch(switch, start_agent, SINKS["v2c trap"].format(port=receiver.port))
    switch.restart()
    wait_until_subscribed(switch, agent)
    OperatorTool(switch)("vsan", "set", 10, "--state", "suspended")
    assert receiver.next() == status_change(10, SUSPENDED, DOWN)


def test_an_agent_that_was_away_has_missed_events_and_the_switch_says_so(receiver, start_switch, start_agent):
    switch = start_switch(initial=INITIAL)
    operator = OperatorTool(switch)
    agent = watch(switch, start_agent, SINKS["v2c trap"].format(port=receiver.port))
    agent.finish()
    switch.wait_connections(0)
    operator("vsan", "set", 10, "--state", "suspended")
    operator("vsan", "create", 50)
    agent.start()
    wait_until_subscribed(switch, agent)
    assert "  Events        2 published, 2 without a receiver, 0 dropped\n" in operator("show")
    operator("vsan", "set", 10, "--state", "active")
    assert receiver.next() == status_change(10, ACTIVE, UP), "those that it missed do not come later"
    assert "  Events        3 published, 2 without a receiver, 0 dropped\n" in operator("show")
