# SPDX-License-Identifier: Apache-2.0
"""The one command of the README."""

import fcntl
import os
import re
import signal
import socket
import subprocess

import pytest

from harness.agent import free_udp_port
from harness.build import MIBS, PROGRAMS, REPOSITORY
from harness.clients import NetSnmp, NoAnswer, SnmpError
from harness.interfaces import COLUMN, IF_NUMBER, SYS_CONTACT, SYS_DESCR, SYS_LOCATION, SYS_NAME, if_cell
from harness.notifications import wait_until_subscribed
from harness.oids import ARCS, ROOT, VSAN_ENTRY, cell, scalar
from harness.operator_tool import OperatorTool
from harness.run_script import SCRIPT, Running, once, only_for_its_own_build, processes_using
from harness.transcript import blocks, follow, steps

pytestmark = only_for_its_own_build

FC1 = 0x01000000


@pytest.fixture
def state(folder):
    return folder / "state"


@pytest.fixture
def run(started, state):
    return lambda *options: started.add(Running(state, *options))


def test_help_names_every_option_and_its_default():
    done = once(SCRIPT, "--help")
    assert (done.returncode, done.stderr) == (0, "")
    for word in ("--port", "1161", "--listen", "127.0.0.1", "--state", "--empty", "--initial", "--trap-port", "1162",
                 "--no-traps", "--no-restart", "--agent-modules", "--help"):
        assert word in done.stdout


@pytest.mark.parametrize("options", [
    ["--prot", "1161"], ["--port"], ["--port", "0"], ["--port", "65536"], ["--port", "x"], ["--port", "-1"],
    ["--port", "1161 "], ["--port", ""], ["--listen", "nowhere"], ["--listen", ""], ["--state"], ["--state", ""],
    ["--initial"], ["--initial", "/nowhere/x.json"], ["--initial", "x", "--empty"], ["--empty", "--initial", "x"],
    ["extra"], ["--listen", "127.0.0.1; reboot"], ["--trap-port"], ["--trap-port", "0"], ["--trap-port=x"],
    ["--agent-modules"], ["--agent-modules", ""], ["--agent-modules", "-smux"], ["--agent-modules", "a,,b"],
])
def test_wrong_option_ends_with_2_and_one_sentence(options):
    done = once(SCRIPT, *options)
    assert done.returncode == 2
    assert done.stdout == ""
    assert len(done.stderr.splitlines()) == 1


@pytest.mark.parametrize("options,port", [
    (["--port", "1162"], "1162"), (["--trap-port", "1161"], "1161"),
    (["--port", "2000", "--trap-port", "2000"], "2000"),
])
def test_one_port_for_both_is_a_sentence_with_the_port_and_what_helps(options, port):
    done = once(SCRIPT, *options)
    assert (done.returncode, done.stdout) == (2, "")
    sentence = f"--port and --trap-port are both {port}; --trap-port takes another port, and --no-traps none."
    assert sentence in done.stderr


def test_busy_port_is_one_clear_sentence(state):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as taken:
        taken.bind(("127.0.0.1", 0))
        port = str(taken.getsockname()[1])
        done = once(SCRIPT, "--port", port, "--state", str(state))
    assert done.returncode == 1
    assert len(done.stderr.splitlines()) == 1
    for word in (port, "in use", "--port", "--listen"):
        assert word in done.stderr
    assert processes_using(state) == []


def test_a_state_folder_in_use_is_one_clear_sentence(state):
    state.mkdir()
    with open(state / "lock", "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        done = once(SCRIPT, "--port", free_udp_port(), "--trap-port", free_udp_port(), "--state", state)
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr == f"run.sh: the state folder {state} is in use by another run.sh or by snmp_user.sh\n"


def test_ready_line_names_the_address_and_the_agent_answers_then(run):
    script = run().wait_ready()
    assert script.address in script.ready
    client = NetSnmp(script)
    names = [binding.oid for binding in client.walk(ROOT)]
    assert names == sorted(set(names))
    assert client.get(scalar("vsanNumber"))[0].value == len(client.walk(ARCS["vsanName"])) >= 5
    assert [b.value for b in client.walk(ARCS["vsanAdminState"])].count(2) == 2
    assert client.get(scalar("vsanIfNumber"))[0].value == 48
    assert NetSnmp(script, user="private").walk(VSAN_ENTRY) == client.walk(VSAN_ENTRY)


def test_public_may_read_only(run):
    script = run().wait_ready()
    with pytest.raises(SnmpError) as refused:
        NetSnmp(script).set((cell("vsanName", 1), "s", "renamed"))
    assert refused.value.status == "noAccess"


def test_commands_it_suggests_work_as_printed(run):
    script = run().wait_ready()
    script.process.wait_line("Ctrl-C", timeout=10)  # the last line it prints
    suggested = [line.strip() for line in script.process.lines if line.strip().startswith("snmp")]
    assert 2 <= len(suggested) <= 3
    for command in suggested:
        done = subprocess.run(["bash", "-c", command], capture_output=True, text=True, timeout=30, cwd="/")
        assert done.returncode == 0, done.stderr
        assert "vsan" in done.stdout and "No Such" not in done.stdout


@pytest.mark.parametrize("number,code", [(signal.SIGTERM, 143), (signal.SIGINT, 130)])
def test_signal_ends_everything_it_started(run, number, code):
    script = run().wait_ready()
    assert {name for _, name in processes_using(script.state)} >= {"vswitchd", "snmpd", "snmptrapd"}
    assert script.end(number) in (0, code)
    with pytest.raises(NoAnswer):
        NetSnmp(script, timeout=1).get(scalar("vsanNumber"))


def test_state_survives_restarts(run):
    script = run("--empty").wait_ready()
    script.process.wait_line("Ctrl-C", timeout=10)
    assert "port down" not in script.process.text()  # there is no VSAN to try that on
    assert [b.oid[-1] for b in NetSnmp(script).walk(ARCS["vsanName"])] == [1]
    script.end()
    # With a fresh state folder this one would come up with the example configuration.
    script = run().wait_ready()
    assert [b.oid[-1] for b in NetSnmp(script).walk(ARCS["vsanName"])] == [1]


def test_empty_does_not_wipe_what_is_there(run):
    script = run().wait_ready()
    rows = NetSnmp(script).walk(VSAN_ENTRY)
    script.end()
    script = run("--empty").wait_ready()
    assert NetSnmp(script).walk(VSAN_ENTRY) == rows


def test_initial_is_a_file_where_it_was_called_and_does_not_wipe_what_is_there(run, folder, monkeypatch):
    (folder / "initial.json").write_text('{"vsans": [{"id": 7, "name": "seven"}]}')
    monkeypatch.chdir(folder)
    script = run("--initial", "initial.json").wait_ready()
    rows = NetSnmp(script).walk(ARCS["vsanName"])
    assert [row.value for row in rows] == [b"VSAN0001", b"seven"]
    script.end()
    (folder / "initial.json").write_text("{}")
    script = run("--initial", "initial.json").wait_ready()
    assert "so --initial changes nothing" in script.process.text()
    assert NetSnmp(script).walk(ARCS["vsanName"]) == rows


def test_initial_that_cannot_be_used_is_one_sentence(run, folder):
    (folder / "initial.json").write_text('{"vsan": []}')
    script = run("--initial", folder / "initial.json")
    assert script.process.wait(240) == 1
    assert "unknown key" in script.process.lines[-1] and "initial.json" in script.process.lines[-1]


def test_second_run_on_one_state_folder_is_refused(run, state):
    script = run().wait_ready()
    done = once(SCRIPT, "--port", str(free_udp_port()), "--state", str(state))
    assert done.returncode == 1
    assert str(state) in done.stderr
    assert NetSnmp(script).get(scalar("vsanNumber"))[0].value > 0


@pytest.mark.parametrize("program", ["snmpd", "vswitchd"])
def test_without_restart_it_ends_and_says_so_when_one_of_the_two_ends(run, program):
    script = run("--no-restart").wait_ready()
    os.kill(script.process_of(program), signal.SIGKILL)
    assert script.process.wait(30) == 1
    log = script.state / f"{program}.log"
    assert script.process.lines[-1] == f"run.sh: {program} was ended by signal 9; its log is {log}"


def test_elsewhere_than_on_loopback_the_communities_are_not_accepted(run):
    script = run("--listen", "0.0.0.0").wait_ready()
    for user in ("public", "private"):
        with pytest.raises(NoAnswer):
            NetSnmp(script, user=user, timeout=1).get(scalar("vsanNumber"))
    assert f"snmp_user.sh --state {script.state} add NAME" in script.process.text()


def test_notifications_are_shown_decoded_as_in_the_readme(run):
    pulling, printed = blocks("README.md", "A notification")
    script = run().wait_ready()
    script.process.wait_line(r"^  for port in fc47 fc48; do .* port down \$port; done$", timeout=10)
    wait_until_subscribed(script, script)
    places = {"build/bin/vswitchctl": PROGRAMS / "vswitchctl", "build/state/run": script.run_dir}
    assert follow(steps(pulling), places) == steps(pulling)
    for line in printed.strip().splitlines():
        time_of_day, _, text = line.partition(" ")
        script.process.wait_line(re.sub(r"\d", r"\\d", time_of_day) + " " + re.escape(text) + "$")
    OperatorTool(script)("port", "move", "fc1", 10)
    script.process.wait_line(r"vsanPortMembershipChange: "
                             r"vsanNotificationPortManager\.0 = ([0-9A-F]{2} ){7}[0-9A-F]{2}, "
                             r"ifIndex\.16777216 = 16777216, vsanNotificationVsan\.0 = 10$")
    assert script.process.text().count("vsanStatusChange") == 1


def test_changes_of_a_link_are_shown_in_one_line_each(run):
    script = run().wait_ready()
    wait_until_subscribed(script, script, 3)
    tool = OperatorTool(script)
    tool("port", "down", "fc1")
    tool("port", "up", "fc1")
    for name, state in (("linkDown", "down"), ("linkUp", "up")):
        script.process.wait_line(rf"^\d\d:\d\d:\d\d {name}: ifIndex\.16777216 = 16777216, "
                                 rf"ifAdminStatus\.16777216 = up, ifOperStatus\.16777216 = {state}$")


def test_writers_may_change_what_is_the_operators_of_a_port_and_of_the_switch(run):
    script = run().wait_ready()
    writer = NetSnmp(script, user="private")
    writable = [*((name, "s", "x") for name in (SYS_CONTACT, SYS_NAME, SYS_LOCATION)),
                (if_cell("ifAlias", FC1), "s", "x"), (if_cell("ifAdminStatus", FC1), "i", "2"),
                (if_cell("ifLinkUpDownTrapEnable", FC1), "i", "2")]
    writer.set(*writable)
    others = [*((if_cell(column, FC1), "i", "1") for column in COLUMN), (SYS_DESCR, "s", "x"), (IF_NUMBER, "i", "1")]
    for assignment in others:
        if assignment[0] not in [name for name, _, _ in writable]:
            with pytest.raises(SnmpError) as refused:
                writer.set(assignment)
            assert refused.value.status == "noAccess"
    for assignment in writable:
        with pytest.raises(SnmpError) as refused:
            NetSnmp(script).set(assignment)
        assert refused.value.status == "noAccess"


def test_own_lines_for_modules_that_are_not_started_are_named(run, state):
    run().wait_ready().end()
    own = state / "agent" / "snmpd.local.conf"
    own.write_text("# mine\n\nview switch included .1.3.6.1.4.1.2021.10\n  Load 12 10 5\n[snmp] clientaddr 127.0.0.1\n"
                   "extend secret /bin/echo hush\n[snmptrapd]\ndisk /\n[snmpd]\nnonsense 1\n")
    script = run().wait_ready()
    named = [line for line in script.process.lines if "is not used" in line]
    assert named == [
        f"line 4 of {own} is not used: Load is of the module loadave, which --agent-modules loadave starts",
        f"line 6 of {own} is not used: extend is of the module extend, which --agent-modules extend starts"]
    load = (1, 3, 6, 1, 4, 1, 2021, 10, 1, 2, 1)
    assert NetSnmp(script).get(load)[0].kind == "noSuchObject"
    script.end()
    script = run("--agent-modules", "loadave,extend").wait_ready()
    assert "is not used" not in script.process.text()
    assert NetSnmp(script).get(load)[0].value in (b"Load-1", "Load-1", '"Load-1"')


def test_a_module_that_the_agent_does_not_have_is_one_clear_sentence(state):
    done = once(SCRIPT, "--port", free_udp_port(), "--no-traps", "--state", state, "--agent-modules", "loadave,lodave")
    assert done.returncode == 1
    assert done.stderr == "run.sh: the agent has no module of this name: lodave\n"
    assert processes_using(state) == []


def test_only_the_agent_can_have_lines_shown(run):
    script = run().wait_ready()
    community = (script.state / "agent" / "snmptrapd.conf").read_text().split()[-1]

    def send(community):
        done = subprocess.run(
            ["snmptrap", "-v2c", "-c", community, "-m", "VSAN-MIB", f"127.0.0.1:{script.trap_port}", "",
             "VSAN-MIB::vsanStatusChange", "vsanNotificationVsan.0", "i", "7"],
            env=dict(os.environ, MIBDIRS=str(MIBS), SNMP_PERSISTENT_FILE="/dev/null"), capture_output=True, text=True)
        assert done.returncode == 0, done.stderr

    for guess in ("public", "private", ""):
        send(guess)
    send(community)
    script.process.wait_line("vsanStatusChange: vsanNotificationVsan.0 = 7$")
    assert script.process.text().count("vsanStatusChange") == 1
    # The agent keeps its receivers in objects of its own.
    shown = NetSnmp(script).run("snmpwalk", "-CI", script.address, ".1.3.6.1.6.3")
    assert "snmpSetSerialNo" in NetSnmp(script).run("snmpwalk", script.address, ".1.3.6.1.6.3", options=("-Os",))
    assert shown and community not in shown


def test_the_rest_goes_on_when_the_receiver_ends(run):
    script = run().wait_ready()
    os.kill(script.process_of("snmptrapd"), signal.SIGKILL)
    sentence = script.process.wait_line("snmptrapd was ended by signal 9; notifications are not shown any more").string
    assert str(script.state / "snmptrapd.log") in sentence
    OperatorTool(script)("port", "down", "fc48")
    assert NetSnmp(script).get(scalar("vsanNumber"))[0].value > 0
    assert script.end(signal.SIGINT) == 0


def test_a_busy_port_for_notifications_is_one_clear_sentence(run, state):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as taken:
        taken.bind(("127.0.0.1", 0))
        port = str(taken.getsockname()[1])
        done = once(SCRIPT, "--port", free_udp_port(), "--trap-port", port, "--state", state)
        assert done.returncode == 1
        assert len(done.stderr.splitlines()) == 1
        for word in (port, "in use", "--trap-port", "--no-traps"):
            assert word in done.stderr
        assert processes_using(state) == []
        script = run("--trap-port", port, "--no-traps").wait_ready()
    assert "snmptrapd" not in {name for _, name in processes_using(script.state)}
    assert "trap2sink" not in (script.state / "agent" / "snmpd.conf").read_text()
    assert NetSnmp(script).get(scalar("vsanNumber"))[0].value > 0


def test_everything_in_the_state_folder_is_the_owners_only(run):
    script = run().wait_ready()
    places = [script.state, *script.state.rglob("*")]
    assert len(places) > 15
    assert [place for place in places if place.stat().st_mode & 0o077] == []


@pytest.mark.parametrize("mask", [0o022, 0o027], ids=["for all", "for the group"])
@pytest.mark.parametrize("makes_it", ["run.sh", "snmp_user.sh"])
def test_folders_above_a_new_state_folder_are_as_open_as_the_users_others(folder, started, makes_it, mask):
    above = folder / "checkout" / "build"
    users = os.umask(mask)
    try:
        if makes_it == "run.sh":
            started.add(Running(above / "state")).wait_ready()
        else:
            done = once(REPOSITORY / "snmp_user.sh", "--state", above / "state", "add", "alice", text="some password")
            assert done.returncode == 0, done.stderr
    finally:
        os.umask(users)
    assert [place.stat().st_mode & 0o777 for place in (above.parent, above)] == [0o777 & ~mask] * 2
    places = [above / "state", *(above / "state").rglob("*")]
    assert [place for place in places if place.stat().st_mode & 0o077] == []
