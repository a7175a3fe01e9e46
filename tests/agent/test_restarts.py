# SPDX-License-Identifier: Apache-2.0
"""run.sh with a switch or an agent that ends: what ends comes back, and everything works again."""

import contextlib
import fcntl
import os
import re
import signal
import subprocess
import time
from pathlib import Path

import pytest

from harness.clients import NetSnmp, NoAnswer
from harness.notifications import wait_until_subscribed
from harness.oids import scalar
from harness.operator_tool import OperatorTool
from harness.run_script import Running, only_for_its_own_build, processes_using
from harness.snmp_users import AUTH, COMMAND, Users, boots

pytestmark = only_for_its_own_build

NUMBER = scalar("vsanNumber")
LATER = "another long one"


@pytest.fixture
def run(folder, started):
    return lambda *options: started.add(Running(folder / "state", *options)).wait_ready()


def wait_until(condition, what, seconds=60):
    deadline = time.monotonic() + seconds
    while not condition():
        assert time.monotonic() < deadline, f"never: {what}"
        time.sleep(0.1)


def names(state):
    return {name for _, name in processes_using(state)}


def serves(script):
    try:
        return isinstance(NetSnmp(script, timeout=2).get(NUMBER)[0].value, int)
    except NoAnswer:
        return False


def end_program(script, name, number=signal.SIGKILL):
    """Ends the switch or the agent, and returns when it is back and the agent serves the VSANs."""
    start = len(script.process.lines)
    former = script.process_of(name)
    os.kill(former, number)
    how = "was ended by signal 9" if number == signal.SIGKILL else "ended with status 0"
    script.process.wait_line(rf"^\d\d:\d\d:\d\d {name} {how}; it comes back (at once|in 1 s)$", timeout=60,
                             start=start)
    script.process.wait_line(rf"^\d\d:\d\d:\d\d {name} is back$", timeout=60, start=start)
    assert script.process_of(name) != former
    wait_until(lambda: serves(script), "the VSANs are served")


def test_a_killed_switch_comes_back_with_its_configuration_and_notifications_arrive_again(run):
    script = run()
    tool = OperatorTool(script)
    tool("vsan", "create", 77, "--name", "kept")
    agent = script.process_of("snmpd")
    for _ in range(2):
        end_program(script, "vswitchd")
    assert "kept" in tool("vsan", "show", 77)
    assert script.process_of("snmpd") == agent
    wait_until_subscribed(script, script)
    start = len(script.process.lines)
    for port in ("fc47", "fc48"):
        tool("port", "down", port)
    script.process.wait_line(r"vsanStatusChange: .*4094", start=start)
    assert (script.state / "vswitchd.log").read_text().count("ready ") == 3


def descriptors(process):
    """What a process has open, but for the numbers that pipes and sockets have of their own."""
    places = (os.readlink(place) for place in Path(f"/proc/{process}/fd").iterdir())
    return sorted(re.sub(r"\[\d+\]", "", place) for place in places)


def test_neither_the_supervisor_nor_the_switch_has_more_open_after_restarts(run):
    script = run("--no-traps")
    supervisor = script.process_of("vswitch-supervi")
    end_program(script, "vswitchd")
    end_program(script, "snmpd")
    before = descriptors(supervisor)
    switchs = descriptors(script.process_of("vswitchd"))
    for name in ("vswitchd", "snmpd", "vswitchd"):
        end_program(script, name)
    assert descriptors(supervisor) == before
    wait_until(lambda: descriptors(script.process_of("vswitchd")) == switchs, "the agent has connected as before")


def test_a_fault_keeps_the_switch_away_as_long_as_it_says(run):
    script = run()
    tool = OperatorTool(script)
    tool("fault", "add", "exit", 3, "--times", 1)
    assert tool.json("fault", "list")["faults"][0]["value"] == 3
    begun = time.monotonic()
    assert not serves(script)
    script.process.wait_line("vswitchd ended with status 3; it comes back in 3 s$")
    script.process.wait_line("vswitchd is back", timeout=60)
    assert time.monotonic() - begun >= 3
    wait_until(lambda: serves(script), "the VSANs are served")
    assert tool.json("fault", "list")["faults"] == []


def test_a_fault_without_a_time_is_a_crash_that_the_switch_comes_back_from_at_once(run):
    script = run()
    OperatorTool(script)("fault", "add", "exit")
    assert not serves(script)
    script.process.wait_line(r"vswitchd ended with status 3; it comes back (at once|in 1 s)$")
    script.process.wait_line("vswitchd is back", timeout=60)
    wait_until(lambda: serves(script), "the VSANs are served")


@pytest.mark.parametrize("words", [("601",), ("-1",), ("x",)])
def test_a_time_away_that_there_is_not_is_refused(run, words):
    tool = OperatorTool(run("--no-traps"))
    done = tool.run("fault", "add", "exit", *words)
    assert done.returncode in (1, 2) and done.stdout == "" and done.stderr
    assert tool.json("fault", "list")["faults"] == []


@contextlib.contextmanager
def locked_users(state):
    """The users are being changed, so no agent is started, until this is left."""
    with open(state / "agent" / "users.lock", "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        yield


@pytest.fixture
def users(folder, started):
    """Users of a run.sh whose agent shows its boots; alice was there before it started."""
    state = folder / "state"
    users = Users(state)
    users.add("alice")
    users.show_boots()
    users.script = started.add(Running(state)).wait_ready()
    return users


def test_a_killed_agent_comes_back_with_one_boot_more_each_time(users):
    script = users.script
    seen = [boots(script)]
    for _ in range(3):
        end_program(script, "snmpd")
        seen.append(boots(script))
    assert seen == list(range(seen[0], seen[0] + 4))
    assert users.lets_in("alice")


def test_users_changed_while_the_agent_ran_are_what_they_were_when_it_is_back(users):
    script = users.script
    users.add("bob")
    users.add("carol")
    users.done("passwd", "alice", text=LATER)
    users.done("remove", "carol")
    before = boots(script)
    end_program(script, "snmpd")
    assert boots(script) == before + 1
    assert users.lets_in("bob") and users.lets_in("alice", LATER, LATER)
    assert not users.lets_in("alice") and not users.lets_in("carol")
    end_program(script, "snmpd")
    assert boots(script) == before + 2
    assert users.lets_in("bob")
    users.add("dave")
    assert users.lets_in("dave")


def test_without_users_boots_go_up_by_one_too(users):
    users.done("remove", "alice")
    before = boots(users.script)
    end_program(users.script, "snmpd")
    assert boots(users.script) == before + 1


def test_what_users_conf_says_wins_over_the_keys_that_a_killed_agent_has_stored(users):
    script, stored = users.script, users.state / "agent" / "persistent" / "snmpd.conf"
    users.add("carol")
    former = stored.read_bytes()
    assert b'"alice"' in former and b'"carol"' in former
    users.done("passwd", "alice", text=LATER)
    users.done("remove", "carol")
    before = boots(script)
    with locked_users(users.state):
        start = len(script.process.lines)
        os.kill(script.process_of("snmpd"), signal.SIGKILL)
        script.process.wait_line("snmpd was ended by signal 9", start=start)
        stored.write_bytes(former)
    script.process.wait_line("snmpd is back", timeout=60, start=start)
    assert users.lets_in("alice", LATER, LATER)
    assert "Authentication failure" in users.ask("alice")
    assert "Unknown user name" in users.ask("carol")
    assert boots(script) > before


def test_an_agent_that_is_killed_notifies_again(users):
    script = users.script
    end_program(script, "snmpd")
    wait_until_subscribed(script, script)
    start = len(script.process.lines)
    OperatorTool(script)("port", "move", "fc1", 10)
    script.process.wait_line("vsanPortMembershipChange: ", start=start)


def test_both_killed_at_once_come_back(run):
    script = run()
    agent = script.process_of("snmpd")
    os.kill(agent, signal.SIGKILL)
    end_program(script, "vswitchd")
    script.process.wait_line("snmpd is back", timeout=60)
    assert script.process_of("snmpd") != agent
    wait_until(lambda: serves(script), "the VSANs are served")


def test_a_switch_that_cannot_start_again_is_given_up_and_all_ends(run):
    script = run()
    (script.state / "switch" / "roles.json").write_text("no roles")
    os.kill(script.process_of("vswitchd"), signal.SIGKILL)
    assert script.process.wait(120) == 1
    assert script.process.lines[-1].endswith(" vswitchd ended with status 1 after 10 restarts within a minute, and is "
                                             f"not started again; its log is {script.state}/vswitchd.log")
    assert script.process.text().count("vswitchd ended with status 1; it comes back") == 9
    assert processes_using(script.state) == []


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM])
def test_told_to_end_while_the_switch_is_away_it_ends_everything(run, number):
    script = run()
    tool = OperatorTool(script)
    tool("fault", "add", "exit", 600)
    assert not serves(script)
    script.process.wait_line("vswitchd ended with status 3; it comes back in 600 s$")
    assert tool.run("show").returncode == 1
    assert script.end(number) == 0


def test_told_to_end_while_somebody_changes_the_users_it_ends_everything(run):
    """The agent is started again when nobody does."""
    script = run()
    with locked_users(script.state):
        os.kill(script.process_of("snmpd"), signal.SIGKILL)
        script.process.wait_line("snmpd was ended by signal 9")
        wait_until(lambda: "attend_agent.sh" in names(script.state), "it waits")
        assert script.end() == 0


@pytest.mark.parametrize("program", ["vswitch-supervisor", "run.sh"])
def test_when_the_supervisor_or_run_sh_is_killed_nobody_is_left(run, program):
    script = run()
    os.kill(script.process_of(program[:15]) if program != "run.sh" else script.process.pid, signal.SIGKILL)
    assert script.process.wait(60) in (1, -signal.SIGKILL)
    if program != "run.sh":
        assert script.process.lines[-1] == "run.sh: vswitch-supervisor was ended by signal 9"
    wait_until(lambda: processes_using(script.state) == [], "all end")


def test_a_user_made_while_the_agent_is_away_is_there_when_it_is_back(users):
    script = users.script
    with locked_users(users.state):
        start = len(script.process.lines)
        os.kill(script.process_of("snmpd"), signal.SIGKILL)
        script.process.wait_line("snmpd was ended by signal 9", start=start)
        # Whoever gets the lock first: the user is made before the agent reads its users, or told to it.
        adding = subprocess.Popen([COMMAND, "--state", users.state, "add", "bob"], stdin=subprocess.PIPE, text=True,
                                  stdout=subprocess.PIPE)
        adding.stdin.write(f"{AUTH}\n")
        adding.stdin.close()
        wait_until(lambda: {"attend_agent.sh", "snmp_user.sh"} <= names(users.state), "both are there")
    assert re.search("once the agent is back|from now on", adding.stdout.read())
    assert adding.wait(60) == 0
    script.process.wait_line("snmpd is back", timeout=60, start=start)
    assert users.lets_in("bob", AUTH, AUTH) and users.lets_in("alice")
