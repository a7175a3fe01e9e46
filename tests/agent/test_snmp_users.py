# SPDX-License-Identifier: Apache-2.0
"""The command that makes SNMPv3 users, with run.sh's agent and without it."""

import os
import re
import shlex
import signal
import subprocess
import threading
import time
from pathlib import Path

import pytest

from harness.agent import free_udp_port
from harness.build import REPOSITORY
from harness.notifications import wait_until_subscribed
from harness.oids import ROOT, cell, dotted, scalar
from harness.operator_tool import OperatorTool
from harness.run_script import SCRIPT, Running, once, only_for_its_own_build
from harness.small_disk import SmallDisk, fill
from harness.snmp_users import AUTH, COMMAND, PRIV, Users, answer, boots
from harness.terminal import Terminal
from harness.transcript import adapted, blocks

pytestmark = only_for_its_own_build

UNKNOWN_USER, WRONG_PASSWORD, NO_ACCESS = "Unknown user name", "Authentication failure", "noAccess"


@pytest.fixture(scope="module")
def users(started_for_file):
    """The command beside a run.sh that the tests of this file share."""
    state = started_for_file.folders.make() / "state"
    return Users(state, started_for_file.add(Running(state)).wait_ready())


@pytest.fixture
def idle(folder):
    """The command on a state folder that nobody uses yet."""
    return Users(folder / "state")


def files_with(secret, *folders):
    return [path for folder in folders for path in Path(folder).rglob("*")
            if path.is_file() and os.fsencode(secret) in path.read_bytes()]


class ProcessWatch:
    """Looks for secrets in what everybody may read of the processes, until it is left."""

    def __init__(self, *secrets):
        self._secrets = [os.fsencode(secret) for secret in secrets]
        self._over = threading.Event()
        self._thread = threading.Thread(target=self._look)
        self.found = []
        self.names = set()

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._over.set()
        self._thread.join()

    def _look(self):
        while not self._over.is_set():
            for entry in Path("/proc").iterdir():
                if entry.name.isdigit():
                    try:
                        line = (entry / "cmdline").read_bytes()
                        shown = line + (entry / "environ").read_bytes()
                    except OSError:
                        continue
                    self.names.add(Path(os.fsdecode(line.split(b"\0")[0])).name)
                    self.found += [line for secret in self._secrets if secret in shown]


def test_a_user_is_let_in_at_once_and_only_with_both_passwords(users):
    assert UNKNOWN_USER in users.ask("alice")
    assert "from now on" in users.add("alice")
    assert users.lets_in("alice")
    assert WRONG_PASSWORD in users.ask("alice", auth=AUTH + "x")
    # To a message that it cannot decrypt the agent gives no answer.
    assert "Timeout" in users.ask("alice", priv=PRIV + "x", timeout=1)
    assert users.lets_in("alice")
    for level in ("authNoPriv", "noAuthNoPriv"):
        assert "INTEGER" not in users.ask("alice", level=level)
    renamed = users.ask("alice", tool="snmpset", words=(dotted(cell("vsanName", 10)), "s", "renamed"))
    assert 'STRING: "renamed"' in renamed


def test_one_password_serves_for_both(users):
    users.done("add", "single", text=AUTH)  # without a line end, too
    assert users.lets_in("single", AUTH, AUTH)


def test_a_removed_user_is_locked_out_at_once(users):
    users.add("leaver")
    assert users.lets_in("leaver")
    assert "from now on" in users.done("remove", "leaver")
    assert UNKNOWN_USER in users.ask("leaver")
    assert "leaver" not in users.done("list")
    assert files_with("leaver", users.state / "agent", users.state / "users") == []
    assert not (users.state / "users" / "leaver").exists()
    assert "there is no user leaver" in users.refused("remove", "leaver")


def test_other_passwords_replace_the_old_ones_and_the_rights_stay(users):
    users.add("changer", AUTH, PRIV, "--read-only")
    users.done("passwd", "changer", text="quite another one\n")
    assert WRONG_PASSWORD in users.ask("changer")
    assert users.lets_in("changer", "quite another one", "quite another one")
    refused = users.ask("changer", "quite another one", "quite another one", tool="snmpset",
                        words=(dotted(cell("vsanName", 20)), "s", "changed"))
    assert NO_ACCESS in refused


def test_the_list_says_what_each_may_do(users):
    users.add("writer")
    users.add("reader", AUTH, PRIV, "--read-only")
    lines = users.done("list").splitlines()
    assert "writer  reads the switch, changes VSANs" in lines
    assert "reader  reads the switch" in lines


@pytest.mark.parametrize("name", ["j.doe", "first_last", "me@example.com", "a-b", "_.@-", "0x41", "x" * 31 + "."])
def test_a_name_may_hold_each_sign_that_the_help_names(users, name):
    lookalike = re.sub("[^a-z0-9]", "x", name)
    users.add(name)
    if lookalike != name:
        users.add(lookalike, AUTH, PRIV, "--read-only")
    assert users.lets_in(name)
    assert f"{name}  reads the switch, changes VSANs" in users.done("list").splitlines()
    assert "there is a user" in users.refused("add", name, text="another password")
    users.done("passwd", name, text="quite another one\n")
    assert WRONG_PASSWORD in users.ask(name)
    assert users.lets_in(name, "quite another one", "quite another one")
    assert "INTEGER" in answer(["snmpget"], users.script.address, [dotted(scalar("vsanNumber"))],
                               SNMPCONFPATH=str(users.state / "users" / name))
    users.done("remove", name)
    assert UNKNOWN_USER in users.ask(name)
    assert name not in [line.split()[0] for line in users.done("list").splitlines()]
    if lookalike != name:
        assert users.lets_in(lookalike)
        users.done("remove", lookalike)


@pytest.mark.parametrize("auth,priv", [
    ('say "friend" and\\enter', "# $HOME `id` ; ' %s"), ("pässwörter", "x" * 128), ("-l 0x00112233", "-m 0x00112233"),
    (" blanks around ", "\\\\\\\"\"\" \\"),
], ids=["quotes", "letters", "options", "blanks"])
def test_a_password_may_hold_anything_that_can_be_typed(users, auth, priv):
    users.add("typist", auth, priv)
    assert users.lets_in("typist", auth, priv)
    users.done("remove", "typist")


def test_it_prints_what_the_readme_shows(users):
    shown = blocks("README.md", "SNMPv3 users")[0]
    assert shown.startswith("$ ./snmp_user.sh add alice\n")
    places = {"/home/me/libvsanmib/build/state": users.state, "/home/me/libvsanmib": REPOSITORY,
              "127.0.0.1:1161": users.script.address, "alice": "newcomer"}
    typed = ("$ ", "Authentication password", "Privacy password", "Once more:")
    expected = [line for line in adapted(shown, places).splitlines() if not line.startswith(typed)]
    assert users.add("newcomer").splitlines() == expected


def test_the_command_it_suggests_works_as_printed_and_holds_no_password(users):
    printed = users.add("shown")
    (command,) = (line.strip() for line in printed.splitlines() if "snmpwalk" in line)
    assert command.startswith(f"SNMPCONFPATH={users.state}/users/shown snmpwalk ")
    done = subprocess.run(["bash", "-c", command], capture_output=True, text=True, timeout=30, cwd="/")
    assert done.returncode == 0, done.stderr
    assert "VSAN-MIB::vsanNumber.0 = INTEGER: 7 VSANs" in done.stdout


def test_the_role_it_suggests_restricts_the_user_at_once(users):
    printed = users.add("limited")
    (command,) = (line for line in printed.splitlines() if "role add" in line)
    words = shlex.split(command)
    names = dotted(cell("vsanName"))
    assert users.ask("limited", tool="snmpwalk", words=(names,)).count("STRING") == 7
    OperatorTool(users.script)(*words[words.index("role"):])
    assert users.ask("limited", tool="snmpwalk", words=(names,)).count("STRING") == 3  # 1, 10 and 20


def test_no_password_is_in_a_file_a_log_a_command_line_or_an_environment(users):
    secrets = ("never-to-be-seen-auth", "never-to-be-seen-priv")
    with ProcessWatch(*secrets) as watch:
        printed = users.add("secretive", *secrets)
        printed += users.done("passwd", "secretive", text="\n".join(secrets))
    assert watch.found == []
    assert "snmpd" in watch.names
    text = printed + users.script.process.text()
    for secret in secrets:
        assert files_with(secret, users.state) == []
        assert secret not in text
    assert list(Path("/dev/shm").glob("vsan.*")) == []
    assert [path for path in [users.state, *users.state.rglob("*")] if path.stat().st_mode & 0o077] == []


def test_nobody_reads_names_keys_or_rights_from_the_agent(users):
    users.add("hidden")
    for name in ("1.3.6.1.6.3.12", "1.3.6.1.6.3.15", "1.3.6.1.6.3.16", "1.3.6.1.6.3.18"):
        for shown in (answer(["snmpwalk", "-v2c", "-c", "public", "-t", "10"], users.script.address, (name,)),
                      users.ask("hidden", tool="snmpwalk", words=(name,))):
            assert "No Such Object" in shown or "No more variables" in shown
            assert " = " not in re.sub(r"^.* = No .*$", "", shown, flags=re.M)


# What a switch shows to those who may read: the system, the interfaces, the counts of SNMP messages, IF-MIB's
# later objects, snmpMIB, and the VSANs.
SHOWN = ("1.3.6.1.2.1.1", "1.3.6.1.2.1.2", "1.3.6.1.2.1.11", "1.3.6.1.2.1.31", "1.3.6.1.6.3.1", dotted(ROOT)[1:])


def trees_met(walk):
    """Which of SHOWN a walk's values belong to; None stands for any other tree."""
    assert "No Response from" not in walk, walk
    names = ["1." + name for name in re.findall(r"^iso\.([\d.]+) = (?!No )", walk, flags=re.M)]
    return {next((tree for tree in SHOWN if name.startswith(tree + ".")), None) for name in names}


@pytest.mark.parametrize("version", ["-v1", "-v2c"])
@pytest.mark.parametrize("community", ["public", "private"])
def test_a_community_walks_the_trees_of_a_switch_and_nothing_else(users, version, community):
    walk = answer(["snmpwalk", version, "-c", community, "-t", "30"], users.script.address, (".1",))
    assert trees_met(walk) == set(SHOWN)


@pytest.mark.parametrize("options", [(), ("--read-only",)], ids=["operator", "viewer"])
def test_a_user_walks_the_trees_of_a_switch_and_nothing_else(users, options):
    name = f"walker{len(options)}"
    users.add(name, AUTH, PRIV, *options)
    for tool in ("snmpwalk", "snmpbulkwalk"):
        assert trees_met(users.ask(name, tool=tool, words=(".1",), timeout=30)) == set(SHOWN)
    process = ("1.3.6.1.2.1.25.4.2.1.5." + str(users.script.process_of("vswitchd")),)  # its command line
    assert "No Such" in users.ask(name, words=process)


def test_the_agents_own_socket_shows_what_the_scripts_ask_for(users):
    users.add("enrolled")
    walk = answer(["snmpwalk", "-v2c", "-c", "probe", "-t", "30"], f"unix:{users.state}/run/agent.sock", (".1",))
    names = re.findall(r"^iso\.([\d.]+) = (?!No )", walk, flags=re.M)
    library, number, status = "3.6.1.4.1.2021.13.14.1.0", dotted(scalar("vsanNumber"))[3:], "3.6.1.6.3.15.1.2.2.1.13."
    assert names[:2] == [library, number] and len(names) > 2
    assert [name for name in names[2:] if not name.startswith(status)] == []


def test_the_agent_reads_its_users_without_sending_anything_twice(users):
    users.add("bystander")
    wait_until_subscribed(users.script, users.script)
    printed = len(users.script.process.lines)
    tool = OperatorTool(users.script)
    tool("vsan", "create", 60)
    tool("vsan", "delete", 60)
    users.script.process.wait_line(r"vsanAdminState\.60 = notConfigured", start=printed)
    assert users.script.process.text(printed).count("vsanNotificationVsan.0 = 60") == 2


def test_users_made_at_the_same_time_are_all_there(users):
    names = [f"twin{number}" for number in range(3)]
    started = [subprocess.Popen([COMMAND, "--state", users.state, "add", name], stdin=subprocess.PIPE, text=True,
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT) for name in names]
    for process in started:
        process.stdin.write(AUTH)
        process.stdin.close()
    for process in started:
        assert process.wait(60) == 0, process.stdout.read()
    assert [users.lets_in(name, AUTH, AUTH) for name in names] == [True] * 3


def test_a_file_of_users_that_somebody_else_has_just_made_stays(folder):
    made = folder / "agent" / "users.conf"
    made.parent.mkdir()
    making = ["bash", "-c", 'source tools/common.sh && source tools/agent.sh && make_users_file "$1"', "bash", folder]
    subprocess.run(making, cwd=REPOSITORY, check=True)
    assert made.read_text().startswith("# Written by snmp_user.sh")
    made.write_text("somebody's keys\n")
    subprocess.run(making, cwd=REPOSITORY, check=True)
    assert made.read_text() == "somebody's keys\n"


@pytest.mark.parametrize("text,reason", [
    ("", "no password"), ("short\n", "authentication password will not do: it has fewer than 8"),
    ("1234567", "fewer than 8"), (f"{AUTH}\nshort\n", "privacy password will not do: it has fewer than 8"),
    ("x" * 129, "more than 128"), ("with a\ttabulator", "cannot be typed"), ("\n\n", "fewer than 8"),
])
def test_a_password_that_will_not_do_changes_nothing(users, text, reason):
    before = users.done("list")
    complaint = users.refused("add", "nobody", text=text)
    assert reason in complaint and (not text.strip() or text.strip() not in complaint)
    assert users.done("list") == before
    assert UNKNOWN_USER in users.ask("nobody")


def test_a_name_that_is_taken_is_refused(users):
    users.add("twice")
    assert "there is a user twice already" in users.refused("add", "twice", text="another password")
    assert users.lets_in("twice")


@pytest.mark.parametrize("words", [
    [], ["add"], ["remove"], ["passwd"], ["list", "x"], ["add", "a b"], ["add", ""], ["add", "x" * 33], ["add", "a;b"],
    ["add", 'a"b'], ["add", "a/../b"], ["add", ".."], ["explode", "x"], ["--verbose"], ["remove", "x", "--read-only"],
    ["add", "x", "--state"], ["list", "--state="],
])
def test_wrong_words_end_with_2_and_one_sentence(users, words):
    assert "--help" in users.refused(*words, code=2)


def test_a_password_among_the_words_is_refused_and_not_repeated(users):
    assert AUTH not in users.refused("add", "alice", AUTH, code=2)


def test_help_names_every_command():
    done = once(COMMAND, "--help")
    assert (done.returncode, done.stderr) == (0, "")
    for word in ("add NAME", "--read-only", "passwd", "remove", "list", "--state", "build/state"):
        assert word in done.stdout


def test_a_user_made_before_the_start_is_there_after_it_and_a_removed_one_is_not(idle, started):
    assert "once ./run.sh is started" in idle.add("early")
    idle.add("first.last@lab-1_a")
    idle.add("gone")
    idle.done("remove", "gone")
    idle.script = started.add(Running(idle.state, "--listen", "0.0.0.0")).wait_ready()
    idle.script.process.wait_line("^SNMPv3 users: early first.last@lab-1_a$")
    assert idle.lets_in("early") and idle.lets_in("first.last@lab-1_a")
    assert UNKNOWN_USER in idle.ask("gone")
    idle.done("remove", "early")
    idle.add("later")
    idle.script.end()
    idle.script = started.add(Running(idle.state)).wait_ready()
    assert UNKNOWN_USER in idle.ask("early")
    assert idle.lets_in("later")


@pytest.fixture
def small_disk(idle, started):
    """The command on a state folder whose agent's files are on a small file system."""
    agent = idle.state / "agent"
    idle.add("alice")
    kept = {path: path.read_bytes() for path in agent.rglob("*") if path.is_file()}
    started.add(SmallDisk(agent, 256))
    (agent / "persistent" / "cert_indexes").mkdir(parents=True)
    for path, content in kept.items():
        path.write_bytes(content)
    return idle


def stored(state, word):
    """What the agent has stored under a word, if it has."""
    text = (state / "agent" / "persistent" / "snmpd.conf").read_text()
    return re.findall(rf"^{word} (.*)$", text, flags=re.M)


def start_again(users, started, *options):
    users.show_boots()
    users.script = started.add(Running(users.state, *options)).wait_ready()
    users.script.process.wait_line("Ctrl-C", timeout=10)  # the last line it prints
    return users.script


@pytest.mark.parametrize("read_again", [False, True], ids=["as started", "read again"])
def test_a_full_disk_at_the_end_takes_neither_users_nor_boots(small_disk, started, read_again):
    users = small_disk
    script = start_again(users, started)
    if read_again:
        os.kill(script.process_of("snmpd"), signal.SIGHUP)
        assert users.lets_in("alice")
    engine, seen = stored(users.state, "oldEngineID"), boots(script)
    ballast = fill(users.state / "agent")
    script.end(signal.SIGINT)
    assert stored(users.state, "oldEngineID") == []  # what this test is about
    assert "could not store its engine id" in script.process.text()

    # Where nothing can be kept, nothing is started: the boots would not be known the next time.
    done = once(SCRIPT, "--port", free_udp_port(), "--no-traps", "--state", users.state)
    assert done.returncode == 1 and len(done.stderr.splitlines()) == 1, done
    assert "cannot write to" in done.stderr and "No space left on device" in done.stderr

    ballast.unlink()
    script = start_again(users, started)
    assert "put back the agent's engine id" in script.process.text()
    assert "cannot log in" not in script.process.text()
    assert users.lets_in("alice")
    assert stored(users.state, "oldEngineID") == engine
    assert boots(script) > seen


def test_a_user_made_after_the_loss_and_before_the_start_is_let_in_with_the_others(small_disk, started):
    users = small_disk
    script = start_again(users, started)
    ballast = fill(users.state / "agent")
    script.end()
    ballast.unlink()
    assert "put back the agent's engine id" in users.add("bob")
    start_again(users, started)
    assert users.lets_in("alice") and users.lets_in("bob")


def test_boots_never_go_back(idle, started):
    """Whatever an end leaves of the agent's file: all, what was there before, half a line, nothing."""
    idle.add("alice")
    path = idle.state / "agent" / "persistent" / "snmpd.conf"
    kept = path.read_bytes()
    seen = []

    def cut(text):
        return text[:text.index("oldEngineID") + 20].encode()

    for leave in (lambda now: now.encode(), lambda now: kept, cut, lambda now: cut(now) + b"setserialno 7\n",
                  lambda now: b"", None):
        script = start_again(idle, started, "--no-traps")
        seen.append(boots(script))
        os.kill(script.process_of("snmpd"), signal.SIGHUP)
        seen.append(boots(script))
        idle.add(f"user{len(seen)}")
        seen.append(boots(script))
        assert idle.lets_in("alice")
        script.end()
        if leave:
            path.write_bytes(leave(path.read_text()))
        else:
            path.unlink()
    seen.append(boots(start_again(idle, started, "--no-traps")))
    assert seen == sorted(seen)
    # Each start counts, and so does each reading of the users that snmp_user.sh asks for.
    starts, readings = seen[::3], seen[2::3]
    assert all(before < after for before, after in zip(readings, starts[1:]))
    assert all(before < after for before, after in zip(starts, readings))
    assert idle.lets_in("alice") and idle.lets_in("user2")


def test_users_whose_keys_are_for_another_agent_are_named_at_the_start(idle, started):
    idle.add("alice")
    idle.add("bob")
    for lost in ("persistent/snmpd.conf", "engine"):
        (idle.state / "agent" / lost).unlink()
    script = start_again(idle, started)
    assert UNKNOWN_USER in idle.ask("alice")
    assert "These SNMPv3 users cannot log in: alice bob\n" in script.process.text() + "\n"
    (command,) = (line.strip() for line in script.process.lines if "passwd" in line)
    assert command == f"for name in alice bob; do {COMMAND} --state {idle.state} passwd $name; done"
    for name in ("alice", "bob"):
        idle.done("passwd", name, text=AUTH)
        assert idle.lets_in(name, AUTH, AUTH)
    script.end()
    assert "cannot log in" not in start_again(idle, started).process.text()


def everything_in(folder):
    """What is there, but for locks, which hold nothing."""
    return {path.relative_to(folder): path.read_bytes() if path.is_file() else None
            for path in folder.rglob("*") if not path.name.endswith("lock")}


def with_snmpd(folder, script):
    """An environment in which a script is what makes the keys."""
    program = folder / "snmpd"
    program.write_text(f"#!/bin/bash\n{script}\n")
    program.chmod(0o755)
    return dict(os.environ, PATH=f"{folder}:{os.environ['PATH']}")


# It ends as the real one does: writing down what it knows, in a folder that it makes if need be.
SLOW_TO_END = ("trap 'sleep 1; mkdir -p \"$SNMP_PERSISTENT_DIR\"; "
               "touch \"$SNMP_PERSISTENT_DIR/snmpd.conf\"; exit' TERM\n"
               'touch "${0%/*}/begun"; while true; do sleep 0.1; done')


@pytest.mark.parametrize("before", ["no folder", "an empty one"])
@pytest.mark.parametrize("failure", ["the password", "snmpd", "a signal"])
def test_a_user_who_cannot_be_made_leaves_no_new_state_folder(folder, before, failure):
    (folder / "tools").mkdir()
    (folder / "above").mkdir()
    state = folder / "above" / "more" / "state"
    if before == "an empty one":
        state.mkdir(parents=True)
    found = everything_in(folder / "above")
    users = Users(state)
    if failure == "the password":
        done = users("add", "alice", text="short")
    elif failure == "snmpd":
        done = users("add", "alice", text=AUTH, env=with_snmpd(folder / "tools", "exit 1"))
    else:
        started = subprocess.Popen([COMMAND, "--state", state, "add", "alice"], stdin=subprocess.PIPE, text=True,
                                   stdout=subprocess.PIPE, env=with_snmpd(folder / "tools", SLOW_TO_END))
        started.stdin.write(AUTH)
        started.stdin.close()
        deadline = time.monotonic() + 30
        while not (folder / "tools" / "begun").exists():
            assert time.monotonic() < deadline
            time.sleep(0.05)
        assert (state / "agent" / "users.conf").exists()
        started.send_signal(signal.SIGTERM)
        assert started.wait(30) == 143
        done = None
    assert everything_in(folder / "above") == found
    assert done is None or (done.returncode == 1 and len(done.stderr.splitlines()) == 1), done


def test_a_user_who_cannot_be_made_changes_nothing_of_a_state_folder(idle):
    idle.add("alice")
    (idle.state / "users" / "bob").write_text("a file where a folder is to be")
    found = everything_in(idle.state)
    assert "cannot write to" in idle.refused("add", "bob", text=AUTH)
    assert everything_in(idle.state) == found
    keys = idle.state / "users" / "alice" / "snmp.conf"
    held = keys.read_bytes()
    keys.unlink()
    keys.mkdir()
    assert idle("passwd", "alice", text="quite another one").returncode == 1
    keys.rmdir()
    keys.write_bytes(held)
    assert everything_in(idle.state) == found


def test_on_a_full_disk_nothing_changes_and_the_sentence_says_why(small_disk, started):
    users = small_disk
    ballast = fill(users.state / "agent")
    found = everything_in(users.state)
    for words in (["add", "bob"], ["passwd", "alice"], ["remove", "alice"]):
        assert "No space left on device" in users.refused(*words, text="another password")
        assert everything_in(users.state) == found
    ballast.unlink()
    start_again(users, started)
    assert users.lets_in("alice")


def test_keys_that_the_agent_does_not_take_are_not_kept(users):
    users.add("steady")
    found = everything_in(users.state / "users"), (users.state / "agent" / "users.conf").read_bytes()
    agent = users.script.process_of("snmpd")
    os.kill(agent, signal.SIGSTOP)
    try:
        assert "does not read its users again" in users.refused("passwd", "steady", text="quite another one")
    finally:
        os.kill(agent, signal.SIGCONT)
    assert (everything_in(users.state / "users"), (users.state / "agent" / "users.conf").read_bytes()) == found
    assert users.lets_in("steady")
    assert WRONG_PASSWORD in users.ask("steady", "quite another one", "quite another one")


def test_a_new_state_folder_is_named_and_one_that_is_there_is_not(idle):
    said = f"{idle.state} is a new state folder\n"
    for words in (["list"], ["remove", "alice"], ["passwd", "alice"]):
        assert f"there is no state folder {idle.state}; run.sh makes it" in idle.refused(*words)
    assert idle.add("alice").startswith(said)
    assert said not in idle.add("bob")


@pytest.mark.parametrize("command", ["add", "passwd", "remove", "list"])
def test_a_state_folder_that_cannot_be_read_is_named(idle, command):
    idle.add("alice")
    words = [COMMAND, "--state", idle.state, command, *(["alice"] if command != "list" else [])]
    if os.geteuid() == 0:
        words = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", *words]
    else:
        idle.state.chmod(0)
    done = subprocess.run(words, input=AUTH, capture_output=True, text=True, timeout=60)
    idle.state.chmod(0o700)
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr == f"snmp_user.sh: cannot read the state folder {idle.state}: Permission denied\n"


def test_a_user_of_the_operators_own_lines_is_left_alone(idle):
    idle.add("early")
    (idle.state / "agent" / "snmpd.local.conf").write_text(f'createUser own SHA-256 "{AUTH}" AES\n')
    for command in ("add", "passwd", "remove"):
        assert "snmpd.local.conf" in idle.refused(command, "own", text=AUTH)
    assert "own  as your own lines" in idle.done("list")


def test_only_a_state_folder_is_written_to(folder):
    (folder / "precious").write_text("text")
    elsewhere = Users(folder)
    assert "holds other things" in elsewhere.refused("add", "alice", text=AUTH)
    for words in (["list"], ["remove", "alice"], ["passwd", "alice"]):
        assert "not a state folder" in elsewhere.refused(*words)
    assert [path.name for path in folder.iterdir()] == ["precious"]


def test_on_a_terminal_passwords_are_asked_for_twice_and_not_shown(users):
    terminal = Terminal(COMMAND, "--state", users.state, "add", "typed")
    for prompt, text in [("Authentication password for typed: ", "short"),
                         ("Authentication password for typed: ", AUTH), ("Once more: ", PRIV),
                         ("Authentication password for typed: ", AUTH), ("Once more: ", AUTH),
                         ("Privacy password for typed (Enter for the same): ", PRIV), ("Once more: ", PRIV)]:
        terminal.wait_for(prompt)
        terminal.type(text)
    assert terminal.ended() == 0, terminal.output
    assert AUTH not in terminal.output and PRIV not in terminal.output and "short" not in terminal.output
    assert "fewer than 8" in terminal.output and "not the same" in terminal.output
    assert users.lets_in("typed")
