# SPDX-License-Identifier: Apache-2.0
"""The scenarios that come with the switch, played, and what an SNMP client sees of each."""

import random
import re
import threading
import time
from pathlib import Path

import pytest

from harness.build import PROGRAMS, REPOSITORY
from harness.interfaces import AS_A_SWITCH
from harness.ledger import Ledger, Writer, compare
from harness.notifications import SNMP_TRAPS, Receiver, status_change, wait_until_subscribed
from harness.oids import cell, dotted, scalar
from harness.operator_tool import VSWITCHCTL, OperatorTool
from harness.packets import PacketClient
from harness.process import LoggedProcess
from harness.transcript import adapted, follow, steps

SCENARIOS = REPOSITORY / "virtual_switch/scenarios"
DOCUMENT = "docs/scenarios.md"
LINK_DOWN, LINK_UP = (dotted(SNMP_TRAPS + (arc,)) for arc in (3, 4))
FC1 = 0x01000000
ACTIVE, SUSPENDED = 1, 2
UP, DOWN = 1, 2


def play(switch, name):
    """A scenario in the background."""
    return LoggedProcess([VSWITCHCTL, "--run", switch.run_dir, "play", SCENARIOS / name])


def assert_played(player):
    assert player.wait(120) == 0, player.text()
    assert re.search(r"done: \d+ commands", player.lines[-1]), player.text()


@pytest.fixture
def receiver(started):
    return started.add(Receiver(started.folders.make())).start()


@pytest.fixture
def watched(start_switch, start_agent, receiver):
    """A switch with the demo configuration whose notifications are received."""
    switch = start_switch()
    agent = start_agent(switch, lines=[f"trap2sink 127.0.0.1:{receiver.port} public"], **AS_A_SWITCH)
    wait_until_subscribed(switch, agent, 4)
    return switch, agent


def test_a_flapping_port_notifies_in_pairs_and_ends_up(watched, receiver):
    switch, agent = watched
    player = play(switch, "flapping-port.scenario")
    for _ in range(10):
        for name, state in ((LINK_DOWN, DOWN), (LINK_UP, UP)):
            came, bindings = receiver.next(30)
            assert came == name, receiver.process.text()
            assert any(binding.endswith(f".2.2.1.8.{FC1} = INTEGER: {state}") for binding in bindings), bindings
    assert_played(player)
    with PacketClient(agent) as client:
        assert client.value((1, 3, 6, 1, 2, 1, 2, 2, 1, 8, FC1)) == UP
    with pytest.raises(AssertionError):
        receiver.next(0.5)


def test_a_rolling_suspension_takes_every_vsan_once_and_one_at_a_time(watched, receiver):
    switch, agent = watched
    with PacketClient(agent) as client:
        vsans = [binding.oid[-1] for binding in client.walk(cell("vsanAdminState"))]
        assert len(vsans) > 5
        for vsan in vsans:
            if client.value(cell("vsanAdminState", vsan)) == SUSPENDED:
                switch.operate("vsan.set", id=vsan, state="active")
                receiver.next(30)
        player = play(switch, "rolling-suspension.scenario")
        for vsan in vsans:
            # Suspended, and active again before the next one is.
            for state in (SUSPENDED, ACTIVE):
                came = receiver.next(30)
                assert came in (status_change(vsan, state, UP), status_change(vsan, state, DOWN)), (vsan, state, came)
                assert state == ACTIVE or came == status_change(vsan, state, DOWN)
        assert_played(player)
        assert all(client.value(cell("vsanAdminState", vsan)) == ACTIVE for vsan in vsans)
    with pytest.raises(AssertionError):
        receiver.next(0.5)


class Starter:
    """Starts a switch again each time it has ended as in a crash."""

    def __init__(self, switch):
        self._switch = switch
        self._stop = threading.Event()
        self.starts = 0
        self.failure = None
        self._thread = threading.Thread(target=self._run, daemon=True)
        self._thread.start()

    def _run(self):
        try:
            while not self._stop.wait(0.01):
                if not self._switch.process.running():
                    assert self._switch.process.wait() == 3
                    self._switch.start()
                    self.starts += 1
        except Exception as failure:  # for the test, which runs in another thread
            self.failure = failure

    def stop(self):
        self._stop.set()
        self._thread.join(60)
        assert self.failure is None and not self._thread.is_alive(), self.failure


def settle(client, writers):
    """Compares the switch with the writers' books while nothing is set, and so nothing meets the fault."""
    for writer in writers:
        writer.pause()
    deadline = time.monotonic() + 60
    while client.value(scalar("vsanNumber")) is None:
        assert time.monotonic() < deadline, "the switch is not served again"
    compare(client, writers)


def test_what_was_answered_before_a_reboot_is_there_after_it(start_switch, start_agent):
    switch = start_switch(empty=True)
    agent = start_agent(switch)
    # While the switch is away SETs fail at once, and each leaves a VSAN in doubt.
    writers = [Writer(agent, Ledger(random.Random(number), range(first, first + 80), b"w%d-" % number))
               for number, first in enumerate((100, 200))]
    starter = Starter(switch)
    player = play(switch, "reboot-while-setting.scenario")
    with PacketClient(agent) as client:
        while player.running():
            for writer in writers:
                writer.resume()
            time.sleep(0.2)
            settle(client, writers)
        assert_played(player)
        starter.stop()
        assert starter.starts == 3
        assert sum(writer.answered for writer in writers) > 3
        assert sum(writer.refused for writer in writers) >= 3, "three SETs have met the end of the switch"
        settle(client, writers)


def test_every_scenario_is_in_the_document_and_a_test():
    files = {path.name for path in SCENARIOS.iterdir()}
    text = (REPOSITORY / DOCUMENT).read_text()
    assert set(re.findall(r"^\| `([a-z-]+\.scenario)` \|", text, re.M)) == files
    assert set(re.findall(r'play\(switch, "(.+?)"\)', Path(__file__).read_text())) == files
    tool = OperatorTool(type("Nowhere", (), {"run_dir": "/nonexistent"}))
    for name in files:
        assert tool("play", "--check", SCENARIOS / name) == ""


def test_the_commands_of_the_document_go_as_it_shows(start_switch, tmp_path):
    switch = start_switch()
    places = {"build/bin/vswitchctl": PROGRAMS / "vswitchctl", "build/state/run": switch.run_dir,
              "virtual_switch/scenarios": SCENARIOS, "build/wrong.scenario": tmp_path / "wrong.scenario"}
    text = (REPOSITORY / DOCUMENT).read_text()
    shown = [step for block in re.findall(r"^```\n(\$ .*?)^```$", text, re.M | re.S) for step in steps(block)]
    assert len(shown) == text.count("\n$ ") == 6
    back = {str(here): place for place, here in places.items()}
    went = [(command, [adapted(line, back) for line in lines]) for command, lines in follow(shown, places)]
    assert went == shown
