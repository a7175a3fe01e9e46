# SPDX-License-Identifier: Apache-2.0
"""Whose state folder the programs work on: run.sh, snmp_user.sh and the switch look through it first."""

import os
import socket
import stat

import pytest

from harness.agent import free_udp_port
from harness.build import PROGRAMS, REPOSITORY
from harness.operator_tool import OperatorTool
from harness.run_script import SCRIPT, Running, once, only_for_its_own_build

pytestmark = only_for_its_own_build

NOBODY = 65534

# What run.sh and snmp_user.sh have made so far, and what a switch and an agent that were killed leave there.
TODAY = (
    "lock", "vswitchd.log", "snmpd.log", "snmpd.log.old", "snmptrapd.log", "agent/snmpd.conf", "agent/snmpd.local.conf",
    "agent/snmptrapd.conf", "agent/users.conf", "agent/users.lock", "agent/persistent/snmpd.conf",
    "agent/persistent/cert_indexes/0", "users/alice/snmp.conf", "switch/roles.json", "switch/state.lock",
    "run/socket.lock", "run/snmpd.pid", "run/debug.conf", "run/history.snmpd",
)


@pytest.fixture
def state(folder):
    """A state folder of today."""
    place = folder / "state"
    for name in TODAY:
        path = place / name
        path.parent.mkdir(mode=0o700, parents=True, exist_ok=True)
        path.write_text('{"roles": []}' if path.suffix == ".json" else "")
        path.chmod(0o600)
    for path in (place, *(path for path in place.rglob("*") if path.is_dir())):
        path.chmod(0o700)
    (place / "agent" / "users.conf").write_text("group viewers usm alice\n")
    with socket.socket(socket.AF_UNIX) as listener:
        listener.bind(str(place / "run" / "mts.sock"))
    return place


def run_sh(state):
    return once(SCRIPT, "--port", free_udp_port(), "--trap-port", free_udp_port(), "--state", state)


def snmp_user(state):
    return once(REPOSITORY / "snmp_user.sh", "--state", state, "list")


def vswitchd(state):
    return once(PROGRAMS / "vswitchd", "--state", state)


PROGRAMS_OF_A_STATE = pytest.mark.parametrize("program", [run_sh, snmp_user, vswitchd])


def everything(place):
    """All that can be seen of a folder: names, owners, permissions, contents, and where links lead."""
    seen = {}
    for path in (place, *place.rglob("*")):
        status = path.lstat()
        content = (os.readlink(path) if path.is_symlink() else
                   path.read_bytes() if stat.S_ISREG(status.st_mode) else None)
        seen[path] = (status.st_mode, status.st_uid, content)
    return seen


def link(name):
    def spoil(state):
        elsewhere = state.parent / "elsewhere"
        (state / name).rename(elsewhere)
        (state / name).symlink_to(elsewhere)
        return f"{state / name} is a link"
    return spoil


def strangers(name):
    def spoil(state):
        os.chown(state / name, NOBODY, NOBODY)
        return f"{state / name} belongs to nobody"
    return spoil


def writable(name, mode):
    def spoil(state):
        state.chmod(0o755)
        (state / name).chmod(mode)
        return f"{state / name} can be written by others"
    return spoil


def pipe(state):
    os.mkfifo(state / "agent" / "pipe")
    return f"{state}/agent/pipe is no file, folder or socket"


SPOILT = {
    "a_link_in_a_files_place": link("agent/snmpd.conf"), "a_link_to_a_log": link("snmpd.log"),
    "a_link_in_a_folders_place": link("run"), "a_link_deep_down": link("users/alice/snmp.conf"),
    "somebody_elses_folder": strangers("."), "somebody_elses_file": strangers("agent/snmpd.local.conf"),
    "somebody_elses_inner_folder": strangers("agent/persistent"),
    "a_file_for_all_to_write": writable("agent/users.conf", 0o606),
    "a_folder_for_all_to_write": writable("agent", 0o777),
    "a_folder_for_a_group_to_write": writable(".", 0o770), "a_pipe": pipe,
}


@PROGRAMS_OF_A_STATE
@pytest.mark.parametrize("spoil", SPOILT.values(), ids=SPOILT.keys())
def test_a_folder_in_which_others_may_have_put_something_is_refused_untouched(state, program, spoil):
    if os.geteuid() != 0 and "strangers" in spoil.__qualname__:
        pytest.skip("only root can give files away")
    sentence = spoil(state).replace("/.", "", 1)
    before = everything(state.parent)
    done = program(state)
    assert (done.returncode, done.stdout) == (1, ""), done
    assert sentence in done.stderr and len(done.stderr.splitlines()) == 1
    assert everything(state.parent) == before


@PROGRAMS_OF_A_STATE
def test_root_learns_both_ways_to_use_somebody_elses_folder(state, program):
    if os.geteuid() != 0:
        pytest.skip("only root can give files away")
    os.chown(state, NOBODY, NOBODY)
    sentence = program(state).stderr
    for word in ("chown -R root", "run this as nobody", "choose another --state"):
        assert word in sentence


def test_a_state_folder_of_today_passes_unchanged_and_serves(state, started):
    before = everything(state)
    listed = snmp_user(state)
    assert (listed.returncode, listed.stderr) == (0, "") and "alice" in listed.stdout
    assert everything(state) == before
    started.add(Running(state)).wait_ready().end()
    after = everything(state)
    kept = [path for path in before if not path.name.startswith(("mts.sock", "snmpd.pid"))]
    assert [path for path in kept if after[path][:2] != before[path][:2]] == []


def test_a_folder_that_others_may_only_read_is_closed_to_them(state):
    for path in (state, *state.rglob("*")):
        path.chmod(0o755 if path.is_dir() else 0o644)
    assert snmp_user(state).returncode == 0
    assert state.stat().st_mode & 0o777 == 0o700


def test_an_empty_folder_is_taken_whoever_may_write_in_it(folder):
    place = folder / "new"
    place.mkdir()
    place.chmod(0o777)
    made = once(REPOSITORY / "snmp_user.sh", "--state", place, "add", "alice", text="quite a long one\n")
    assert (made.returncode, made.stderr) == (0, "")
    assert place.stat().st_mode & 0o777 == 0o700


@PROGRAMS_OF_A_STATE
@pytest.mark.parametrize("name", ["two\nlines", "a\ttab", "\x1b[31m", "end\n"])
def test_a_path_with_control_characters_is_refused(folder, program, name):
    done = program(folder / name)
    assert (done.returncode, done.stdout) == (2, "")
    assert "control characters" in done.stderr
    assert list(folder.iterdir()) == []


def test_the_switch_reads_no_link_in_its_run_directory(start_switch):
    switch = start_switch()
    secret = switch.folder / "secret"
    secret.write_text("the password\n")
    (switch.run_dir / "debug.conf").symlink_to(secret)
    done = OperatorTool(switch).run("debug", "set", 101, "history", "on")
    assert done.returncode != 0 and "is a link" in done.stderr
    assert (switch.run_dir / "debug.conf").is_symlink()
