# SPDX-License-Identifier: Apache-2.0
"""Memory that the switch shares with the agent: requests go through it while all is well,
and what becomes of it when the switch dies or hangs."""

import re
import time
from pathlib import Path

from harness import wire
from harness.clients import NO_SUCH_INSTANCE, NetSnmp
from harness.oids import cell

SMALL = {"vsans": [{"id": 10, "name": "ten"}, {"id": 20, "name": "twenty"}]}
ONE_WAIT = 1.0
IN_TIME = ONE_WAIT + 2.0


def shared_memory(process):
    """The inodes of the switch's memories that a process has mapped."""
    maps = Path(f"/proc/{process.pid}/maps").read_text()
    return set(re.findall(r"(\d+)\s+/memfd:vswitch-requests", maps))


def read(client, vsan=10):
    return client.get(cell("vsanName", vsan))[0]


def test_agent_and_switch_share_one_memory(start_switch, start_agent):
    switch = start_switch(initial=SMALL)
    agent = start_agent(switch)
    client = NetSnmp(agent)
    for _ in range(3):
        assert read(client).value == b"ten"
    descriptors = agent.descriptors()
    memory = shared_memory(agent.process)
    assert len(memory) == 1
    assert shared_memory(switch.process) == memory
    for _ in range(20):
        assert read(client).value == b"ten"
    assert shared_memory(agent.process) == memory
    assert agent.descriptors() == descriptors


def test_role_is_asked_for_once_and_again_after_a_change(start_switch, start_agent):
    switch = start_switch(initial=SMALL, roles={"team": (["limited"], ["10"])})
    agent = start_agent(switch)
    client = NetSnmp(agent, user="limited")
    for _ in range(2):  # the first goes without memory
        assert read(client).value == b"ten"
    asked = (wire.SERVICE_ROLES, wire.ROLE_OF_USER, wire.GET)
    before = switch.counts()[asked]
    for _ in range(5):
        assert read(client).value == b"ten"
        assert read(client, 20).kind == NO_SUCH_INSTANCE
    assert switch.counts()[asked] == before
    switch.change_roles({}, known_user="limited", restricted=False)
    before = switch.counts()[asked]
    for _ in range(5):
        assert read(client, 20).value == b"twenty"
    assert switch.counts()[asked] == before + 1


def test_killed_switch_is_replaced_and_so_is_its_memory(start_switch, start_agent):
    switch = start_switch(initial=SMALL)
    agent = start_agent(switch)
    client = NetSnmp(agent)
    seen = set()
    for _ in range(4):
        for _ in range(2):
            assert read(client).value == b"ten"
        memory = shared_memory(agent.process)
        assert len(memory) == 1 and not memory & seen
        seen |= memory
        switch.kill()
        switch.start()


def test_roles_that_changed_while_the_switch_was_down_hold_at_once(start_switch, start_agent):
    switch = start_switch(initial=SMALL, roles={"team": (["limited"], ["10"])})
    client = NetSnmp(start_agent(switch), user="limited")
    for permitted, refused in ((10, 20), (20, 10), (10, 20)):
        switch.kill()
        switch.write_roles({"team": (["limited"], [str(permitted)])})
        switch.start()
        assert read(client, refused).kind == NO_SUCH_INSTANCE
        for _ in range(2):
            assert read(client, permitted).kind == "OCTET STRING"


def test_hung_switch_costs_one_wait_and_is_given_no_late_request(start_switch, start_agent):
    switch = start_switch(initial=SMALL)
    agent = start_agent(switch)
    client = NetSnmp(agent)
    for _ in range(2):
        assert read(client).value == b"ten"
    assert len(shared_memory(agent.process)) == 1
    before = switch.counts()
    switch.suspend()
    for _ in range(4):
        start = time.monotonic()
        assert read(client).kind == NO_SUCH_INSTANCE
        assert time.monotonic() - start < IN_TIME
    assert not shared_memory(agent.process)
    switch.resume()
    assert switch.counts() == before, "the request that timed out was taken back"
    for _ in range(2):
        assert read(client).value == b"ten"
    assert len(shared_memory(agent.process)) == 1
