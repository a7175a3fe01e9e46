"""The command that makes SNMPv3 users, with run.sh's agent and without it."""

import os
import pty
import re
import select
import shlex
import subprocess
import threading
import time
from pathlib import Path

import pytest

from harness.build import MIBS, REPOSITORY
from harness.notifications import wait_until_subscribed
from harness.oids import cell, dotted, scalar
from harness.operator_tool import OperatorTool
from harness.run_script import Running, once, only_for_its_own_build
from harness.transcript import adapted, blocks

COMMAND = REPOSITORY / "snmp_user.sh"
pytestmark = only_for_its_own_build

AUTH, PRIV = "correct horse battery", "staple of another kind"
UNKNOWN_USER, WRONG_PASSWORD, NO_ACCESS = "Unknown user name", "Authentication failure", "noAccess"


class Users:
    """The command on one state folder."""

    def __init__(self, state, script=None):
        self.state = state
        self.script = script

    def __call__(self, *words, text=None):
        return once(COMMAND, "--state", self.state, *words, text=text)

    def done(self, *words, text=None):
        """What a command prints that must succeed and complain about nothing."""
        done = self(*words, text=text)
        assert (done.returncode, done.stderr) == (0, ""), done
        return done.stdout

    def refused(self, *words, text=None, code=1):
        """The one sentence of a command that must fail."""
        done = self(*words, text=text)
        assert done.returncode == code and done.stdout == "", done
        assert len(done.stderr.splitlines()) == 1, done.stderr
        return done.stderr

    def add(self, name, auth=AUTH, priv=PRIV, *options):
        return self.done("add", name, *options, text=f"{auth}\n{priv}\n")

    def ask(self, name, auth=AUTH, priv=PRIV, tool="snmpget", level="authPriv", timeout=10,
            words=(dotted(scalar("vsanNumber")),)):
        """What a tool prints that logs in with passwords."""
        return answer([tool, "-t", str(timeout), "-v3", "-u", name, "-l", level, "-a", "SHA-256", "-A", auth,
                       "-x", "AES", "-X", priv], self.script.address, words)

    def lets_in(self, name, auth=AUTH, priv=PRIV):
        return bool(re.search(r"INTEGER: \d+", self.ask(name, auth, priv)))


def answer(command, address, words, **environment):
    done = subprocess.run([*command, "-r", "0", "-m", "", address, *words], capture_output=True, text=True,
                          timeout=60, env=dict({"SNMPCONFPATH": "/nonexistent"}, **environment, PATH=os.environ["PATH"],
                                               SNMP_PERSISTENT_FILE="/dev/null", MIBDIRS=str(MIBS)))
    return done.stdout + done.stderr


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
    assert "writer  reads everything, changes VSANs" in lines
    assert "reader  reads everything" in lines


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
    idle.add("gone")
    idle.done("remove", "gone")
    idle.script = started.add(Running(idle.state, "--listen", "0.0.0.0")).wait_ready()
    idle.script.process.wait_line("^SNMPv3 users: early$")
    assert idle.lets_in("early")
    assert UNKNOWN_USER in idle.ask("gone")
    idle.done("remove", "early")
    idle.add("later")
    idle.script.end()
    idle.script = started.add(Running(idle.state)).wait_ready()
    assert UNKNOWN_USER in idle.ask("early")
    assert idle.lets_in("later")


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


class Terminal:
    """The command on a terminal of its own."""

    def __init__(self, *words):
        self.output = ""
        self._pid, self._terminal = pty.fork()
        if self._pid == 0:
            os.execv(words[0], [str(word) for word in words])

    def wait_for(self, text):
        start, deadline = len(self.output), time.monotonic() + 30
        while text not in self.output[start:]:
            assert time.monotonic() < deadline, self.output
            if select.select([self._terminal], [], [], 1)[0]:
                self.output += os.read(self._terminal, 1000).decode()

    def type(self, text):
        os.write(self._terminal, text.encode() + b"\n")

    def ended(self):
        try:
            while data := os.read(self._terminal, 1000):
                self.output += data.decode()
        except OSError:  # the other side is gone
            pass
        os.close(self._terminal)
        return os.waitstatus_to_exitcode(os.waitpid(self._pid, 0)[1])


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
