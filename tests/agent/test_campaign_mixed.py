# SPDX-License-Identifier: Apache-2.0
"""Everything at once for as long as anybody likes: reads of all kinds, random SETs, events
by the hundred, roles that come and go. At the end both processes hold what they held when
they had warmed up, and the switch is what the model says."""

import os
import time

import pytest

from harness.build import AGENT_PRELOAD
from harness.notifications import SINKS, CountingReceiver, wait_until_subscribed
from harness.oids import ARCS, NAMES, VSAN_ENTRY, cell, scalar
from harness.operator_tool import OperatorTool
from harness.packets import STATUS, PacketClient
from harness.random_sets import INITIAL, NUMBERS, assignments, difference, model, some_pdu

FEW = 120
WARM_AFTER = 60
WARM_AFTER_IN_A_LONG_RUN = 2000
# One lost reply of 2632 bytes a round would pass the first in 400 rounds. The switch's
# database may fill its cache of 2 MiB after that.
AGENT_MAY_GROW_KIB = 1024
SWITCH_MAY_GROW_KIB = 3 * 1024
STORM = 200
TEAM = {"team": (["limited"], ["1", "5-10"])}


def permitted(vsan):
    return vsan == 1 or 5 <= vsan <= 10


class Holdings:
    """What the agent and the switch hold: memory and descriptors."""

    def __init__(self, agent, switch):
        self._agent, self._switch = agent, switch
        self.agent_kib, self.switch_kib = agent.resident_kib(), switch.process.resident_kib()
        self.agent_descriptors = agent.descriptors()
        self.switch_descriptors = len(os.listdir(f"/proc/{switch.process.pid}/fd"))

    def assert_no_more(self, campaign, former):
        campaign.count["KiB more in the agent"] = self.agent_kib - former.agent_kib
        campaign.count["KiB more in the switch"] = self.switch_kib - former.switch_kib
        assert self.agent_descriptors == former.agent_descriptors
        assert self.switch_descriptors <= former.switch_descriptors
        if not AGENT_PRELOAD:  # a sanitizer keeps freed memory back
            assert self.agent_kib - former.agent_kib < AGENT_MAY_GROW_KIB, campaign
            assert self.switch_kib - former.switch_kib < SWITCH_MAY_GROW_KIB, campaign


class Scene:
    """The switch, its agent, two clients and the model, and what may be done to them."""

    def __init__(self, campaign, switch, agent, receiver):
        self.campaign, self.draw = campaign, campaign.draw
        self.switch, self.agent, self.receiver = switch, agent, receiver
        self.model = model()
        self.client, self.limited = PacketClient(agent), PacketClient(agent, "limited")
        self.is_restricted = False
        self.steps = ((self.get, 20), (self.get_next, 15), (self.get_bulk, 15), (self.set, 40), (self.look, 4),
                      (self.storm, 1), (self.change_roles, 3))

    def step(self):
        kinds, weights = zip(*self.steps)
        kind = self.draw.choices(kinds, weights)[0]
        self.campaign.count[kind.__name__] += 1
        kind()

    def get(self):
        names = [cell("vsanName", self.draw.choice(NUMBERS)), scalar("vsanNumber"), scalar("fcTimerRatov"),
                 cell("vsanFcTimerEdtov", self.draw.choice(NUMBERS))]
        answers = self.client.get(*names)
        shown = self.model.walk()
        assert [answer.value for answer in answers] == [shown.get(name) for name in names]

    def get_next(self):
        name = ARCS[self.draw.choice(NAMES)] + (self.draw.randrange(0, 4097),)
        assert self.client.get_next(name)[0].oid > name

    def get_bulk(self):
        """A whole walk of one who may be restricted."""
        seen = {binding.oid[-1] for binding in self.limited.walk(VSAN_ENTRY, self.draw.choice((1, 10, 50)))}
        present = self.model.switch.vsans
        assert seen == {vsan for vsan in present if not self.is_restricted or permitted(vsan)}

    def set(self):
        pdu = some_pdu(self.draw)
        status, index = self.client.set(*assignments(pdu))
        expected = self.model.set(pdu)
        assert (status, index) == (STATUS[expected[0]], expected[1]), (pdu, str(self.campaign))

    def look(self):
        assert difference(self.client, self.model) == {}, self.campaign

    def storm(self):
        """Of the default VSAN, which is there whatever happens to the others."""
        before = self.receiver.count()
        OperatorTool(self.switch)("fault", "storm", STORM, "--vsan", 1)
        assert self.receiver.wait_count(before + STORM) >= before + STORM, self.campaign

    def change_roles(self):
        self.is_restricted = not self.is_restricted
        self.switch.change_roles(TEAM if self.is_restricted else {}, "limited", self.is_restricted)

    def holdings(self, at_most=None):
        """What both hold. The switch may need a moment to see that a client is gone."""
        now = Holdings(self.agent, self.switch)
        deadline = time.monotonic() + 10
        while at_most and now.switch_descriptors > at_most.switch_descriptors and time.monotonic() < deadline:
            time.sleep(0.02)
            now = Holdings(self.agent, self.switch)
        return now


@pytest.mark.campaign("mixed load")
def test_mixed_load_leaves_memory_flat_and_the_switch_as_the_model_says(
        started, start_switch, start_agent, campaign):
    receiver = started.add(CountingReceiver())
    switch = start_switch(initial=INITIAL, roles={})
    agent = start_agent(switch, lines=[SINKS["v2c trap"].format(port=receiver.port)])
    wait_until_subscribed(switch, agent)
    scene = Scene(campaign, switch, agent, receiver)
    scene.storm()
    with scene.client, scene.limited:
        warm_after = WARM_AFTER_IN_A_LONG_RUN if campaign.long else WARM_AFTER
        for number in campaign.rounds(FEW):
            scene.step()
            if number == warm_after:
                warm = scene.holdings()
        scene.look()
        assert number > warm_after, "too short a run to tell anything"
        scene.holdings(warm).assert_no_more(campaign, warm)
        print(f"  {campaign.name}: at the end: {campaign}")
        switch.restart()
        scene.look()
