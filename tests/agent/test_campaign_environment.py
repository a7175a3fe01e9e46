# SPDX-License-Identifier: Apache-2.0
"""What a process cannot choose: what time the machine says it is, and how many descriptors
it may have."""

import os
import resource
import time
from pathlib import Path

import pytest

from harness import ber
from harness.assignments import name
from harness.build import AGENT_PRELOAD
from harness.campaign import MACHINE, ONE_WAIT
from harness.notifications import CountingReceiver, SINKS, UPTIME, wait_until_subscribed
from harness.oids import cell, scalar
from harness.packets import DONE, GET, PacketClient
from harness.switch import VirtualSwitch

LAST_CHANGE = scalar("vsanTableLastChange")
HOUR, DAY, YEAR = 3600, 86400, 365 * 86400


class Clock:
    """What time it is for the processes of a test, which nothing else on the machine notices.
    The clock that counts from the machine's start goes on as it does when somebody sets
    the time."""

    def __init__(self, folder, library):
        self._path = Path(folder) / "time"
        self.library = library
        self.set(0)

    def environment(self):
        return {"FAKETIME_TIMESTAMP_FILE": str(self._path), "FAKETIME_NO_CACHE": "1",
                "FAKETIME_DONT_FAKE_MONOTONIC": "1"}

    def set(self, seconds):
        """So far away from the real time. Never half a file."""
        draft = self._path.with_suffix(".new")
        draft.write_text(f"{seconds:+d}\n")
        os.replace(draft, self._path)


class SwitchWithClock(VirtualSwitch):
    def __init__(self, folder, clock, **options):
        super().__init__(folder, **options)
        self._clock = clock

    def command(self):
        return ["env", f"LD_PRELOAD={self._clock.library}", *super().command()]


@pytest.fixture
def clock(started, monkeypatch):
    if AGENT_PRELOAD:
        pytest.skip("a sanitizer has to be the first to see the system's functions")
    libraries = sorted(Path("/usr/lib").glob("*/faketime/libfaketimeMT.so.1"))
    assert libraries, "the package faketime is not installed"
    clock = Clock(started.folders.make(), libraries[0])
    for variable, value in clock.environment().items():
        monkeypatch.setenv(variable, value)
    return clock


@pytest.mark.campaign("clock set")
def test_clock_set_back_and_forward_changes_no_uptime_and_no_wait(started, start_agent, clock, campaign):
    draw = campaign.draw
    receiver = started.add(CountingReceiver())
    switch = started.add(SwitchWithClock(started.folders.make(), clock, initial={"vsans": [{"id": 10}]})).start()
    agent = start_agent(switch, preload=clock.library, lines=[SINKS["v2c trap"].format(port=receiver.port)])
    begun = time.monotonic()
    with PacketClient(agent) as client:
        ticks = client.value(UPTIME)
        for number in campaign.rounds(2):
            away = draw.choice((-1, 1)) * draw.choice((1, HOUR, DAY, 10 * YEAR)) * draw.randrange(1, 3)
            clock.set(away)
            where = f"away by {away} s; {campaign}"
            # Uptime counts on.
            before, ticks = ticks, client.value(UPTIME)
            passed = time.monotonic() - begun
            assert before <= ticks < 100 * (passed + 60), where
            # A change is made and reported. It is dated by the switch's clock, which nobody sets.
            wait_until_subscribed(switch, agent)
            received = receiver.count()
            assert client.set((cell("vsanAdminState", 10), ber.integer(1 + number % 2))) == DONE
            assert receiver.wait_count(received + 1) == received + 1, where
            dated = client.value(LAST_CHANGE)
            assert before <= dated <= client.value(UPTIME), where
            clock.set(0)
            assert client.value(LAST_CHANGE) == dated, where
            assert client.set(name(10, b"at-%d" % number)) == DONE
            assert dated <= client.value(LAST_CHANGE) <= client.value(UPTIME), where
            # A wait for a hung switch ends, also when the clock is set while it lasts.
            switch.suspend()
            asked = time.monotonic()
            request = client.send(GET, [(cell("vsanName", 10), ber.element(ber.NULL, b""))])
            clock.set(away)
            assert client.receive(request)[2][0].value is None, where
            campaign.took("wait", time.monotonic() - asked, ONE_WAIT + MACHINE)
            switch.resume()
            assert client.value(scalar("vsanNumber")) == 2, where
            clock.set(0)
            if draw.random() < 0.5:
                switch.restart()
                assert client.value(scalar("vsanNumber")) == 2, where


def test_change_of_a_run_whose_clock_was_ahead_is_not_reported_as_one_to_come(started, start_agent, clock):
    clock.set(DAY)
    switch = started.add(SwitchWithClock(started.folders.make(), clock, initial={"vsans": [{"id": 10}]})).start()
    switch.stop()
    clock.set(0)
    switch.start()
    with PacketClient(start_agent(switch, preload=clock.library)) as client:
        first = client.value(LAST_CHANGE)
        assert first <= client.value(UPTIME)
        assert client.value(LAST_CHANGE) == first
        assert client.set(name(10, b"changed")) == DONE
        assert first <= client.value(LAST_CHANGE) <= client.value(UPTIME)


class NoMoreDescriptors:
    """A running process keeps the descriptors that it has and gets no other, not even for
    one that it has closed."""

    def __init__(self, pid):
        self._pid = pid

    def __enter__(self):
        self._former = resource.prlimit(self._pid, resource.RLIMIT_NOFILE)
        resource.prlimit(self._pid, resource.RLIMIT_NOFILE, (3, self._former[1]))

    def __exit__(self, *_):
        resource.prlimit(self._pid, resource.RLIMIT_NOFILE, self._former)


@pytest.mark.skipif(bool(AGENT_PRELOAD), reason="a sanitizer needs descriptors of its own to look at memory")
@pytest.mark.campaign("descriptors exhausted")
def test_descriptors_exhausted(start_switch, start_agent, campaign):
    """An agent without descriptors cannot even look up whom it may answer, and answers
    nobody; a switch without goes on with those whom it has. Both recover by themselves."""
    draw = campaign.draw
    switch = start_switch(initial={"vsans": [{"id": 10}]})
    agent = start_agent(switch)
    with PacketClient(agent) as client:
        assert client.value(scalar("vsanNumber")) == 2
        wait_until_subscribed(switch, agent)
        for number in campaign.rounds(2):
            kept = agent.descriptors()
            with NoMoreDescriptors(agent.process.pid):
                switch.kill()
                switch.start()
                printed = len(agent.process.lines)
                for _ in range(draw.randrange(1, 10)):
                    client.send(GET, [(scalar("vsanNumber"), ber.element(ber.NULL, b""))])
                agent.process.wait_line("REFUSED", start=printed)
            begun = time.monotonic()
            assert client.value(scalar("vsanNumber")) == 2
            campaign.took("way back", time.monotonic() - begun, 1.0 + MACHINE)
            wait_until_subscribed(switch, agent)
            assert agent.descriptors() == kept

            waiting = []
            with NoMoreDescriptors(switch.process.pid):
                waiting = [switch.connect() for _ in range(draw.randrange(1, 20))]
                for step in range(5):
                    assert client.set(name(10, b"few-%d-%d" % (number, step))) == DONE
            for connection in waiting:
                connection.ping()
                connection.__exit__()
            switch.wait_connections(2)
            assert client.value(cell("vsanName", 10)) == b"few-%d-4" % number
