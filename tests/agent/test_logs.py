# SPDX-License-Identifier: Apache-2.0
"""Nobody fills the disk by making the programs log: what they say is bounded."""

import contextlib
import fcntl
import socket
import struct
import subprocess
import termios
import time
from pathlib import Path

import pytest

from harness import ber
from harness.build import PROGRAMS, REPOSITORY
from harness.clients import NetSnmp
from harness.oids import SYS_DESCR, scalar
from harness.packets import GETNEXT, PacketClient
from harness.run_script import Running, once, only_for_its_own_build
from harness.small_disk import SmallDisk

LARGEST = 4 << 20
SMALL = 64 << 10

# An SNMPv3 message from nobody: its largest size is out of range, which an agent says in a line as long.
FROM_NOBODY = ber.sequence(
    ber.integer(3), ber.sequence(ber.integer(1), ber.integer(-29), ber.octets(b"\4"), ber.integer(3)),
    ber.octets(ber.sequence(ber.octets(b""), ber.integer(0), ber.integer(0), *3 * (ber.octets(b""),))),
    ber.sequence(ber.octets(b""), ber.octets(b""), ber.sequence(
        ber.integer(0), ber.integer(0), ber.integer(0), ber.sequence(), tag=0xA0)))


def waiting_bytes(pipe):
    return struct.unpack("i", fcntl.ioctl(pipe, termios.FIONREAD, bytes(4)))[0]


class Log:
    """A log and the program that keeps it."""

    def __init__(self, path):
        self.path, self.former = path, path.with_name(path.name + ".old")
        self._keeper = subprocess.Popen([PROGRAMS / "boundlog", path], stdin=subprocess.PIPE)

    def say(self, data):
        self._keeper.stdin.write(data)
        self._keeper.stdin.flush()

    def wait_until_heard(self):
        """Returns when the keeper has dealt with all that was said: nothing is in the pipe, and it sleeps."""
        stat = Path(f"/proc/{self._keeper.pid}/stat")
        while waiting_bytes(self._keeper.stdin) > 0 or stat.read_text().rpartition(")")[2].split()[0] != "S":
            time.sleep(0.01)

    def end(self):
        self._keeper.stdin.close()
        assert self._keeper.wait(30) == 0


def lines(first, last):
    return b"".join(b"line %d: %s\n" % (number, b"x" * 80) for number in range(first, last))


def test_a_log_is_bounded_and_holds_the_last_that_was_said(folder):
    log = Log(folder / "log")
    log.say(lines(0, 120000))
    log.end()
    kept = log.former.read_bytes() + log.path.read_bytes()
    assert kept == lines(0, 120000)[-len(kept):]
    assert kept.startswith(b"line ") and log.path.read_bytes().startswith(b"line ")
    assert LARGEST - 200 < log.former.stat().st_size <= LARGEST and 0 < log.path.stat().st_size <= LARGEST
    assert sorted(path.name for path in folder.iterdir()) == ["log", "log.old"]
    assert [path.stat().st_mode & 0o077 for path in (log.path, log.former)] == [0, 0]


def test_a_line_without_an_end_is_bounded_too(folder):
    log = Log(folder / "log")
    log.say(b"x" * 3 * LARGEST)
    log.end()
    assert max(log.path.stat().st_size, log.former.stat().st_size) <= LARGEST


def test_what_cannot_be_written_keeps_nobody_waiting(folder):
    (folder / "log").mkdir()
    log = Log(folder / "log")
    log.say(lines(0, 100000))
    log.end()


def test_on_a_disk_almost_full_the_room_is_left_to_the_database(folder, started):
    started.add(SmallDisk(folder, 96 * 1024))
    ballast = folder / "ballast"
    ballast.write_bytes(bytes(48 << 20))  # 48 MiB are left, and 64 are the database's
    log = Log(folder / "log")
    log.say(lines(0, 20000))
    log.say(lines(20000, 20001))
    log.wait_until_heard()
    ballast.unlink()
    while not log.path.read_bytes().endswith(b"the end\n"):  # what comes before the keeper sees the room is left out
        log.say(b"the end\n")
        time.sleep(0.01)
    log.end()
    first, left_out, rest = log.path.read_bytes().partition(b"boundlog: ")
    assert lines(0, 20000).startswith(first) and SMALL - (16 << 10) - 200 < len(first) <= SMALL
    number, sentence, rest = rest.partition(b" bytes were left out, for want of room\n")
    assert sentence and int(number) >= len(lines(0, 20001)) - len(first)


@pytest.fixture
def script(folder, started):
    return started.add(Running(folder / "state")).wait_ready()


def flood(script, log):
    """Has strangers knock until the log, never larger than it may be, has begun anew."""
    former, deadline = log.with_name(log.name + ".old"), time.monotonic() + 120
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as stranger:
        stranger.connect(("127.0.0.1", script.port if log.name == "snmpd.log" else script.trap_port))
        while not former.exists():
            assert time.monotonic() < deadline
            with contextlib.suppress(FileNotFoundError):  # it is just beginning anew
                assert log.stat().st_size <= LARGEST
            for _ in range(1000):
                stranger.send(FROM_NOBODY)
            time.sleep(0.01)


@only_for_its_own_build
@pytest.mark.parametrize("name", ["snmpd.log", "snmptrapd.log"])
def test_messages_of_nobody_do_not_fill_the_disk(script, name):
    log = script.state / name
    flood(script, log)
    assert max(log.stat().st_size, log.with_name(name + ".old").stat().st_size) <= LARGEST
    assert b"Received bad msgMaxSize" in log.with_name(name + ".old").read_bytes()[-200:]
    assert NetSnmp(script).get(scalar("vsanNumber"))[0].value > 0


@only_for_its_own_build
def test_users_change_though_the_log_has_begun_anew(script):
    flood(script, script.state / "snmpd.log")
    command = [REPOSITORY / "snmp_user.sh", "--state", script.state]
    for words, text in ((["add", "alice"], "quite a long one\n"), (["remove", "alice"], None)):
        done = once(*command, *words, text=text)
        assert (done.returncode, done.stderr) == (0, ""), done
        assert "from now on" in done.stdout


@only_for_its_own_build
@pytest.mark.parametrize("name", [SYS_DESCR[:-2], scalar("vsanNumber")[:-4]], ids=["system", "vsans"])
def test_an_answer_that_does_not_fit_is_too_big_and_logs_nothing(script, name):
    log = script.state / "snmpd.log"
    before = log.stat().st_size
    null = ber.element(ber.NULL, b"")
    with PacketClient(script, "public", timeout=60) as client:
        status, _, _ = client.receive(client.send(GETNEXT, [(SYS_DESCR[:-2], null)] * 1500 + [(name, null)]))
        assert status == "tooBig"
        assert client.get_next(name)[0].value
    assert b"send response" not in log.read_bytes()[before:]


@only_for_its_own_build
def test_the_reason_of_an_end_is_read_from_the_whole_log(folder, started):
    state = folder / "state"
    started.add(Running(state)).wait_ready().end()
    (state / "switch" / "switch.db").write_text("no database")
    script = started.add(Running(state))
    sentence = script.process.wait_line("vswitchd ended with status 1").string
    assert "switch.db" in sentence and "damaged" in sentence
    assert script.process.wait(30) == 1
