# SPDX-License-Identifier: Apache-2.0
"""`vswitchctl wait-until`: what can be waited for, how the wait ends, and that it goes by the switch's
events, whatever becomes of the switch meanwhile."""

import os
import subprocess
import time

import pytest

from harness.clients import NetSnmp
from harness.interfaces import AS_A_SWITCH
from harness.oids import cell
from harness.operator_tool import VSWITCHCTL
from harness.process import LoggedProcess

INITIAL = {
    "vsans": [{"id": 10, "name": "prod"}, {"id": 20, "name": "lab", "state": "suspended"}],
    "portCount": 6,
}
ANY_CHANGE = 303

# Words of a condition, the sentence of what is instead, and what makes it hold.
CONDITIONS = [
    ("vsan 50 exists", "VSAN 50 does not exist.", ["vsan create 50"]),
    ("vsan 20 absent", "VSAN 20 exists.", ["vsan delete 20"]),
    ("vsan 10 oper up", "VSAN 10 is operationally down.", ["port move fc1 10", "port up fc1"]),
    ("vsan 50 oper down", "VSAN 50 does not exist.", ["vsan create 50"]),
    ("vsan 20 state active", "VSAN 20 is suspended.", ["vsan set 20 --state active"]),
    ("vsan 10 state suspended", "VSAN 10 is active.", ["vsan set 10 --state suspended"]),
    ("vsan 10 name other", 'VSAN 10 is called "prod".', ["vsan set 10 --name other"]),
    ("port fc3 oper up", "Port fc3 is operationally down.", ["port up fc3"]),
    ("port fc3 link up", "The link of port fc3 is down.", ["port disable fc3", "port up fc3"]),
    ("port 16785408 vsan 10", "Port 16785408 is in VSAN 1.", ["port move fc3 10"]),
    ("port fc3 disabled", "Port fc3 is enabled.", ["port disable fc3"]),
    ("tdx session open", "No session of the distribution service is open.",
     ["tdx enable", "timers set ratov 20000"]),
    ("timer ratov 20000", "ratov is 10000.", ["timers set ratov 20000"]),
    ("timer switch-latency 700", "switch-latency is 500.", ["timers set switch-latency 700"]),
    ("timer inorder-delivery on", "inorder-delivery is off.", ["timers set inorder-delivery on"]),
    ("timer ratov 20000 vsan 10", "ratov of VSAN 10 is 10000.", ["timers set ratov 20000 --vsan 10"]),
    ("faults 1", "No faults are set.", ["fault add drop --service vsan"]),
    ("faults 2", "No faults are set.", ["fault add client lose-answer", "fault add client lose-request"]),
    ("timer edtov 3000 vsan 50", "VSAN 50 does not exist.",
     ["vsan create 50", "timers set edtov 3000 --vsan 50"]),
]


def begin(switch, *words):
    """A wait in the background."""
    return LoggedProcess([VSWITCHCTL, "--run", switch.run_dir, "wait-until", *words])


def said(sentence):
    """A sentence as it stands behind the command's name."""
    return sentence if sentence.startswith("VSAN") else sentence[0].lower() + sentence[1:]


def wait_subscribed(switch, count=1):
    """Returns once so many waits hear of changes."""
    for _ in range(1500):
        subscribers = switch.operate("switch.show")["subscribers"]
        if sum(subscriber["classes"] == [ANY_CHANGE] for subscriber in subscribers) == count:
            return
        time.sleep(0.01)
    raise AssertionError(subscribers)


@pytest.mark.parametrize("condition,instead,changes", CONDITIONS, ids=[row[0] for row in CONDITIONS])
def test_condition_is_waited_for_until_a_change_brings_it(owned, tool, condition, instead, changes):
    complaint = tool.refused("wait-until", *condition.split(), "--timeout", "0")
    assert complaint == f"vswitchctl: wait-until: {said(instead)}\n"
    waiting = begin(owned, *condition.split())
    wait_subscribed(owned)
    assert waiting.running()
    for change in changes:
        tool(*change.split())
    assert waiting.wait(30) == 0 and waiting.text() == ""
    assert tool("wait-until", *condition.split(), "--timeout", "0") == ""


def test_name_that_is_taken_away_is_waited_for(owned, tool):
    waiting = begin(owned, "vsan", "10", "name", "")
    wait_subscribed(owned)
    tool("vsan", "set", 10, "--name", "")
    assert waiting.wait(30) == 0
    assert "VSAN 10 has no name." in tool.refused("wait-until", "vsan", 10, "name", "prod", "--timeout", "0")


def test_end_of_a_session_is_waited_for(owned, tool):
    tool("tdx", "enable")
    tool("timers", "set", "ratov", 20000)
    assert "A session of " in tool.refused("wait-until", "tdx", "session", "none", "--timeout", "0")
    waiting = begin(owned, "tdx", "session", "none")
    wait_subscribed(owned)
    tool("tdx", "abort")
    assert waiting.wait(30) == 0


def test_agents_that_come_and_go_are_waited_for(owned, tool, start_agent):
    assert "no agents are connected." in tool.refused("wait-until", "agents", 1, "--timeout", "0")
    coming = begin(owned, "agents", "1")
    wait_subscribed(owned)
    agent = start_agent(owned)
    assert coming.wait(30) == 0
    assert "1 agent is connected." in tool.refused("wait-until", "agents", 0, "--timeout", "0")
    going = begin(owned, "agents", "0")
    wait_subscribed(owned)
    agent.finish()
    agent.process = None
    assert going.wait(30) == 0


def test_faults_that_have_been_met_or_cleared_are_gone(owned, tool, start_agent):
    client = NetSnmp(start_agent(owned, **AS_A_SWITCH), user="private", timeout=20)
    for what, meet in (("drop --service vsan --kind get --times 1", True), ("drop", False),
                       ("client repeat-answer --times 1", True)):
        tool("fault", "add", *what.split())
        assert "1 fault is set." in tool.refused("wait-until", "faults", 0, "--timeout", "0")
        waiting = begin(owned, "faults", "0")
        wait_subscribed(owned)
        if meet:
            client.get(cell("vsanName", 10))
        else:
            tool("fault", "clear")
        assert waiting.wait(30) == 0, what


def test_changes_of_vsans_are_heard_of_while_their_events_are_off(owned, tool):
    with owned.connect() as connection:
        off = connection.request(15, 8018, 3, (2).to_bytes(4, "big"))
    waiting = begin(owned, "vsan", "50", "exists")
    wait_subscribed(owned)
    tool("vsan", "create", 50)
    assert waiting.wait(30) == 0 and off.status == 0


def test_timeout_ends_the_wait_with_1_and_says_what_is_instead(tool):
    started = time.monotonic()
    assert tool.refused("wait-until", "vsan", 10, "oper", "up", "--timeout", "300ms") == \
        "vswitchctl: wait-until: VSAN 10 is operationally down.\n"
    assert time.monotonic() - started >= 0.3


def test_switch_that_comes_late_is_waited_for(owned):
    owned.stop()
    waiting = [begin(owned, "ready"), begin(owned, "vsan", "10", "exists")]
    time.sleep(0.2)
    assert all(one.running() for one in waiting)
    owned.start()
    assert [one.wait(30) for one in waiting] == [0, 0]
    assert [one.text() for one in waiting] == ["", ""]


def test_wait_goes_on_when_the_switch_has_been_away(owned, tool):
    waiting = begin(owned, "vsan", "50", "exists")
    wait_subscribed(owned)
    owned.kill()
    owned.start()
    wait_subscribed(owned)
    tool("vsan", "create", 50)
    assert waiting.wait(30) == 0 and waiting.text() == ""


def test_switch_that_stays_away_is_what_is_instead(owned, tool):
    owned.stop()
    for words in (("ready",), ("vsan", "10", "exists")):
        complaint = tool.refused("wait-until", *words, "--timeout", "200ms")
        assert "o switch runs at " in complaint and len(complaint.splitlines()) == 1


def test_hung_switch_does_not_hold_the_wait_beyond_its_timeout(owned):
    owned.suspend()
    started = time.monotonic()
    done = subprocess.run([VSWITCHCTL, "--run", owned.run_dir, "wait-until", "ready", "--timeout", "500ms"],
                          capture_output=True, text=True, timeout=60)
    took = time.monotonic() - started
    owned.resume()
    assert done.returncode == 1 and "does not answer" in done.stderr
    assert took < 9, "one request alone would be waited for ten seconds"


def test_waiting_for_a_port_that_never_comes_ends_at_once(tool):
    assert tool.refused("wait-until", "port", "fc99", "oper", "up") == \
        "vswitchctl: wait-until: there is no port fc99; the switch has fc1 to fc6.\n"


def test_wait_that_has_come_true_says_so_as_json(tool):
    assert tool.json("wait-until", "vsan", 10, "exists") == {"condition": "vsan 10 exists", "holds": True}


@pytest.mark.parametrize("words,complaint", [
    ("soon", '"soon" cannot stand where a condition begins, but ready, vsan, port, tdx, timer, agents, faults can.'),
    ("vsan", 'Something is missing behind "vsan": a VSAN number from 1 to 4095.'),
    ("vsan 0 exists", '"0" cannot stand behind "vsan", but a VSAN number from 1 to 4095 can.'),
    ("vsan 4096 exists", '"4096" cannot stand behind "vsan", but a VSAN number from 1 to 4095 can.'),
    ("vsan 10", 'Something is missing behind "vsan 10": exists, absent, oper, state, name.'),
    ("vsan 10 opr up", '"opr" cannot stand behind "vsan 10", but exists, absent, oper, state, name can.'),
    ("vsan 10 oper high", '"high" cannot stand behind "vsan 10 oper", but up, down can.'),
    ("vsan 10 state gone", '"gone" cannot stand behind "vsan 10 state", but active, suspended can.'),
    ("vsan 10 exists now", '"now" is too much behind "vsan 10 exists": the condition ends there.'),
    ("port three oper up", '"three" cannot stand behind "port", but an ifIndex or fc1, fc2, ... can.'),
    ("port fc oper up", '"fc" cannot stand behind "port", but an ifIndex or fc1, fc2, ... can.'),
    ("port fc3 vsan x", '"x" cannot stand behind "port fc3 vsan", but a VSAN number from 1 to 4095 can.'),
    ("tdx session", 'Something is missing behind "tdx session": open, none.'),
    ("timer ratov soon",
     '"soon" cannot stand behind "timer ratov", but a number of milliseconds from 0 to 4294967295 can.'),
    ("timer inorder-delivery 1", '"1" cannot stand behind "timer inorder-delivery", but on, off can.'),
    ("timer switch-latency 5 vsan 10",
     '"vsan" is too much behind "timer switch-latency 5": the condition ends there.'),
    ("agents -1", None),
    ("ready --timeout 5d", "--timeout: '5d' is not a time, which is seconds, or 500ms, 5s, 2m, 1h, up to a week."),
    ("ready --timeout s", None), ("", None),
])
def test_wrong_condition_ends_with_2_and_names_the_word_and_what_may_stand_there(words, complaint):
    done = subprocess.run([VSWITCHCTL, "--run", "/nonexistent", "wait-until", *words.split()], capture_output=True,
                          text=True, timeout=20, env=dict(os.environ))
    assert done.returncode == 2 and not done.stdout, done
    assert done.stderr == f"vswitchctl: wait-until: {complaint}\n" if complaint else done.stderr.strip(), done
