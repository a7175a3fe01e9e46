"""The one command of the README. It builds into the repository's own build folder, so
these tests reuse that build and have nothing to do when another one is under test."""

import os
import signal
import socket
import subprocess
from pathlib import Path

import pytest

from harness.agent import free_udp_port
from harness.build import BUILD, REPOSITORY
from harness.clients import NetSnmp, NoAnswer, SnmpError
from harness.oids import ARCS, ROOT, VSAN_ENTRY, cell, scalar
from harness.process import LoggedProcess

SCRIPT = REPOSITORY / "run.sh"
pytestmark = pytest.mark.skipif(BUILD != REPOSITORY / "build", reason="run.sh builds into its own folder")


class Running:
    """run.sh with a state folder of the test's choice."""

    def __init__(self, state, *options):
        self.state = state
        self.port = free_udp_port()
        self.address = f"127.0.0.1:{self.port}"  # what the clients ask for
        self.process = LoggedProcess([SCRIPT, "--port", self.port, "--state", state, *options])

    def wait_ready(self):
        self.ready = self.process.wait_line("^ready ", timeout=240).string
        return self

    def end(self, number=signal.SIGTERM):
        self.process.signal(number)
        code = self.process.wait(30)
        assert processes_using(self.state) == []
        assert list(Path(self.state).rglob("*.sock")) == []
        return code

    def finish(self):
        if self.process.running():
            self.end()
        assert processes_using(self.state) == []


def processes_using(state):
    """The processes that have the state folder among their arguments or their environment."""
    found = []
    for entry in Path("/proc").iterdir():
        if entry.name.isdigit() and int(entry.name) != os.getpid():
            try:
                known = (entry / "cmdline").read_bytes() + (entry / "environ").read_bytes()
            except OSError:
                continue
            if os.fsencode(state) in known:
                found.append((int(entry.name), (entry / "comm").read_text().strip()))
    return found


@pytest.fixture
def state(folder):
    return folder / "state"


@pytest.fixture
def run(started, state):
    return lambda *options: started.add(Running(state, *options))


def once(*options):
    return subprocess.run([SCRIPT, *options], capture_output=True, text=True, timeout=240, stdin=subprocess.DEVNULL)


def test_help_names_every_option_and_its_default():
    done = once("--help")
    assert (done.returncode, done.stderr) == (0, "")
    for word in ("--port", "1161", "--listen", "127.0.0.1", "--state", "--empty", "--help"):
        assert word in done.stdout


@pytest.mark.parametrize("options", [
    ["--prot", "1161"], ["--port"], ["--port", "0"], ["--port", "65536"], ["--port", "x"], ["--port", "-1"],
    ["--port", "1161 "], ["--port", ""], ["--listen", "nowhere"], ["--listen", ""], ["--state"], ["--state", ""],
    ["extra"], ["--listen", "127.0.0.1; reboot"],
])
def test_wrong_option_ends_with_2_and_one_sentence(options):
    done = once(*options)
    assert done.returncode == 2
    assert done.stdout == ""
    assert len(done.stderr.splitlines()) == 1


def test_busy_port_is_one_clear_sentence(state):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as taken:
        taken.bind(("127.0.0.1", 0))
        port = str(taken.getsockname()[1])
        done = once("--port", port, "--state", str(state))
    assert done.returncode == 1
    assert len(done.stderr.splitlines()) == 1
    assert port in done.stderr and "in use" in done.stderr
    assert processes_using(state) == []


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
    assert {name for _, name in processes_using(script.state)} >= {"vswitchd", "snmpd"}
    assert script.end(number) in (0, code)
    with pytest.raises(NoAnswer):
        NetSnmp(script, timeout=1).get(scalar("vsanNumber"))


def test_state_survives_restarts(run):
    script = run("--empty").wait_ready()
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


def test_second_run_on_one_state_folder_is_refused(run, state):
    script = run().wait_ready()
    done = once("--port", str(free_udp_port()), "--state", str(state))
    assert done.returncode == 1
    assert str(state) in done.stderr
    assert NetSnmp(script).get(scalar("vsanNumber"))[0].value > 0


@pytest.mark.parametrize("program", ["snmpd", "vswitchd"])
def test_it_ends_and_says_so_when_one_of_the_two_ends(run, program):
    script = run().wait_ready()
    victim = next(pid for pid, name in processes_using(script.state) if name == program)
    os.kill(victim, signal.SIGKILL)
    assert script.process.wait(30) != 0
    assert program in script.process.lines[-1]


def test_elsewhere_than_on_loopback_the_communities_are_not_accepted(run):
    script = run("--listen", "0.0.0.0").wait_ready()
    for user in ("public", "private"):
        with pytest.raises(NoAnswer):
            NetSnmp(script, user=user, timeout=1).get(scalar("vsanNumber"))
    assert "createUser" in script.process.text()
