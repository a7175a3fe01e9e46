# SPDX-License-Identifier: Apache-2.0
"""The switch, the agent, or both are killed or stopped at random moments under a stream
of SETs: what was answered is there, nothing is half there, and nobody else falls over."""

import signal
import time

import pytest

from harness import ber
from harness.campaign import MACHINE, ONE_WAIT
from harness.ledger import compare, counted, start_writers
from harness.oids import SYS_DESCR, cell, scalar
from harness.packets import GET, PacketClient

# A second is the promise; the rest is the machine's.
BACK_WITHIN = 1.0 + MACHINE


@pytest.fixture
def scene(start_switch, start_agent):
    switch = start_switch(initial={"vsans": []})
    return switch, start_agent(switch)


def wait_served(client):
    """Seconds until the agent shows the switch's values."""
    begun = time.monotonic()
    while client.value(scalar("vsanNumber")) is None:
        assert time.monotonic() - begun < 60, "it is not served again"
    return time.monotonic() - begun


def let_run(campaign, writers):
    """Lets the writers get some SETs done, and returns in the middle of one."""
    wanted = sum(w.answered for w in writers) + campaign.draw.randrange(1, 20)
    deadline = time.monotonic() + 20
    while sum(w.answered for w in writers) < wanted:
        assert time.monotonic() < deadline, f"no SET is done any more: {campaign}; {'; '.join(map(str, writers))}"
        assert all(w.is_running() for w in writers), "a writer has failed"
        time.sleep(0.001)
    time.sleep(campaign.draw.random() * 0.004)


def each_round(campaign, few, agent, writers):
    """Rounds with the writers running, for a test to disturb what they use. At the end of
    each, and once more after they have gone on, the switch is what their books say."""
    with PacketClient(agent) as client:
        for _ in campaign.rounds(few):
            start(writers)
            let_run(campaign, writers)
            yield client
            stop(writers)
            compare(client, writers)
            start(writers)
            let_run(campaign, writers)
            stop(writers)
            compare(client, writers)
            counted(campaign, writers)


def start(writers):
    for writer in writers:
        writer.resume()


def stop(writers):
    for writer in writers:
        writer.pause()


@pytest.mark.campaign("switch killed")
def test_switch_killed_under_sets(scene, campaign):
    switch, agent = scene
    writers = start_writers(campaign, agent)
    process = agent.process
    for client in each_round(campaign, 8, agent, writers):
        switch.kill()
        if campaign.draw.random() < 0.5:
            begun = time.monotonic()
            assert client.value(SYS_DESCR), "the agent's own objects stay"
            campaign.took("answer without a switch", time.monotonic() - begun, ONE_WAIT + MACHINE)
            time.sleep(campaign.draw.random() * 0.1)
        switch.start()
        campaign.took("way back", wait_served(client), BACK_WITHIN)
    assert all(writer.silent == 0 for writer in writers)
    # A switch that was killed is not waited for; the others that ask are, but not as long.
    assert campaign.worst["answer to a SET"] < ONE_WAIT + MACHINE, campaign
    assert agent.process is process and process.running()
    assert sum(writer.answered for writer in writers) > campaign.count["rounds"]


def outstanding_requests(draw, count):
    """Pairs of a name and an encoded value, for a GET each: many rows, and scalars between."""
    null = ber.element(ber.NULL, b"")
    return [(cell("vsanName", draw.randrange(1, 4096)) if draw.random() < 0.8 else scalar("fcTimerRatov"), null)
            for _ in range(count)]


@pytest.mark.campaign("switch hung")
def test_hung_switch_is_waited_for_once_by_all_that_wait(scene, campaign):
    """Requests that lie in the agent's queue together do not wait one after another."""
    switch, agent = scene
    writers = start_writers(campaign, agent, count=1)
    outstanding = 20
    with PacketClient(agent) as crowd:
        for client in each_round(campaign, 2, agent, writers):
            switch.suspend()
            begun = time.monotonic()
            requests = [crowd.send(GET, [binding]) for binding in outstanding_requests(campaign.draw, outstanding)]
            for request in requests:
                crowd.receive(request)
            campaign.took(f"{outstanding} answers of a hung switch", time.monotonic() - begun, ONE_WAIT + MACHINE)
            switch.process.signal(signal.SIGCONT)
            campaign.took("way back", wait_served(client), BACK_WITHIN)


def restart_agent(agent):
    agent.process.assert_no_report()
    agent.start()


# A request that an agent takes along when it dies is never answered.
PATIENCE = 0.5


@pytest.mark.campaign("agent killed")
def test_agent_killed_under_sets(scene, campaign):
    switch, agent = scene
    writers = start_writers(campaign, agent, patience=PATIENCE)
    process = switch.process
    for client in each_round(campaign, 3, agent, writers):
        agent.process.kill()
        restart_agent(agent)
        campaign.took("way back", wait_served(client), BACK_WITHIN)
    assert switch.process is process and process.running()


@pytest.mark.campaign("both killed")
def test_both_killed_under_sets(scene, campaign):
    switch, agent = scene
    writers = start_writers(campaign, agent, patience=PATIENCE)
    for client in each_round(campaign, 3, agent, writers):
        victims = [switch, agent]
        campaign.draw.shuffle(victims)
        for victim in victims:
            victim.process.kill()
        for begin in campaign.draw.sample([switch.start, lambda: restart_agent(agent)], 2):
            begin()
        campaign.took("way back", wait_served(client), BACK_WITHIN)
