# SPDX-License-Identifier: Apache-2.0
"""What starts, watches and restarts the switch and its agent: with small programs of a test's own."""

import os
import re
import signal
import subprocess
import time
from pathlib import Path

import pytest

from harness.build import PROGRAMS
from harness.process import LoggedProcess

SUPERVISOR = PROGRAMS / "vswitch-supervisor"
TELL_READY = "echo ready >&3"
SLEEP = "exec sleep 1000"


class Supervised:
    """A supervisor of programs, each of which is a name and a script."""

    def __init__(self, folder, *programs, options=()):
        self.folder = folder
        path = folder / "supervisor.conf"
        path.write_text("".join(programs))
        self.process = LoggedProcess([SUPERVISOR, *options, path])

    def children(self):
        return [int(number) for number in Path(f"/proc/{self.process.pid}/task/{self.process.pid}/children")
                .read_text().split()]

    def finish(self):
        if self.process.running():
            self.process.signal(signal.SIGTERM)
        self.process.wait(30)
        self.process.assert_no_report()


def program(name, script, *more, attend=None):
    """Lines of a description. A script without attendant tells on descriptor 3 when it serves."""
    attending = "" if attend is None else f"attend /bin/sh\nattend -c\nattend {attend}\n"
    lines = "".join(line + "\n" for line in more)
    return f"program {name}\n{attending}tells 3\n{lines}run /bin/sh\nrun -c\nrun {script}\n"


@pytest.fixture
def supervise(started, folder):
    return lambda *programs, options=(): started.add(Supervised(folder, *programs, options=options))


def wait_until(condition, what, seconds=30):
    deadline = time.monotonic() + seconds
    while not condition():
        assert time.monotonic() < deadline, f"never: {what}"
        time.sleep(0.02)


def wait_for_text(path, text):
    wait_until(lambda: path.exists() and text in path.read_text(), f"{text!r} in {path}")


def test_each_is_started_when_the_one_before_serves_and_all_end_in_the_opposite_order(supervise, folder):
    noted = folder / "noted"
    trap = f"exec 2>/dev/null; trap 'echo end $0 >>{noted}; exit' TERM; echo start $0 >>{noted}; "
    wait = "while :; do sleep 0.1; done"
    supervised = supervise(
        program("first", trap.replace("$0", "first") + f"sleep 0.3; echo serve first >>{noted}; {TELL_READY}; {wait}"),
        program("second", trap.replace("$0", "second") + wait,
                attend=f"echo attend second >>{noted}; {TELL_READY}; sleep 0.3; echo serve second >>{noted}"),
        program("third", trap.replace("$0", "third") + f"{TELL_READY}; {wait}"))
    wait_for_text(noted, "start third")
    supervised.process.signal(signal.SIGTERM)
    assert supervised.process.wait(30) == 0
    assert supervised.process.lines == []
    lines = noted.read_text().splitlines()
    assert sorted(lines.index(word) for word in ("serve first", "attend second", "start second", "start third")) == [
        lines.index("serve first"), lines.index("attend second"), lines.index("start second"),
        lines.index("start third")]
    assert lines.index("serve second") < lines.index("start third")
    assert lines[-3:] == ["end third", "end second", "end first"]


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_a_signal_ends_all_and_the_supervisor_with_0(supervise, number):
    supervised = supervise(program("one", f"{TELL_READY}; {SLEEP}"), program("two", f"{TELL_READY}; {SLEEP}"))
    wait_until(lambda: len(supervised.children()) == 2, "both run")
    children = supervised.children()
    supervised.process.signal(number)
    assert supervised.process.wait(30) == 0
    assert [child for child in children if Path(f"/proc/{child}").exists()] == []


def test_one_that_is_killed_comes_back_and_the_others_stay(supervise):
    supervised = supervise(program("one", f"{TELL_READY}; {SLEEP}"), program("two", f"{TELL_READY}; {SLEEP}"))
    wait_until(lambda: len(supervised.children()) == 2, "both run")
    killed, other = supervised.children()
    os.kill(killed, signal.SIGKILL)
    supervised.process.wait_line(r"^\d\d:\d\d:\d\d one was ended by signal 9; it comes back (at once|in 1 s)$")
    supervised.process.wait_line(r"^\d\d:\d\d:\d\d one is back$")
    assert other in supervised.children() and killed not in supervised.children()
    assert len(supervised.children()) == 2


def test_it_comes_back_once_a_second_at_most_and_not_again_after_ten_times_in_a_minute(supervise, folder):
    starts = folder / "starts"
    begun = time.monotonic()
    supervised = supervise(program("one", f"date +%s.%N >>{starts}; {TELL_READY}; exit 5", f"log {folder}/one.log"))
    assert supervised.process.wait(120) == 1
    took = time.monotonic() - begun
    times = [float(line) for line in starts.read_text().splitlines()]
    assert len(times) == 11 and took >= 10
    sentences = supervised.process.text()
    assert sentences.count("one ended with status 5; it comes back") == 10
    assert re.search(r"^\d\d:\d\d:\d\d one ended with status 5 after 10 restarts within a minute, and is not started "
                     rf"again; its log is {folder}/one\.log$", supervised.process.lines[-1])


def test_one_that_tells_stays_away_that_long(supervise):
    begun = time.monotonic()
    supervised = supervise(program("one", f"{TELL_READY}; echo away 3 >&3; exit 3"))
    supervised.process.wait_line("one ended with status 3; it comes back in 3 s$")
    supervised.process.wait_line("one is back")
    assert time.monotonic() - begun >= 3


def test_told_to_end_while_one_is_away_it_ends_at_once(supervise, folder):
    supervised = supervise(program("one", f"{TELL_READY}; echo away 600 >&3; exit 3"),
                           program("two", f"echo >{folder}/two; {TELL_READY}; {SLEEP}"))
    wait_until(lambda: (folder / "two").exists(), "two runs")
    supervised.process.wait_line("one ended with status 3; it comes back in 600 s$")
    supervised.process.signal(signal.SIGTERM)
    assert supervised.process.wait(30) == 0


def test_told_to_end_while_one_is_prepared_it_ends_the_attendant(supervise, folder):
    supervised = supervise(program("one", SLEEP, attend=f"echo >{folder}/attending; {SLEEP}"))
    wait_until(lambda: (folder / "attending").exists(), "it is attended to")
    (attendant,) = supervised.children()
    supervised.process.signal(signal.SIGTERM)
    assert supervised.process.wait(30) == 0
    assert not Path(f"/proc/{attendant}").exists()


def test_an_attendant_comes_before_each_start_and_what_it_refuses_is_tried_again(supervise, folder):
    attend = f"echo x >>{folder}/times; [ ! -e {folder}/refused ] || {{ echo no room; exit 1; }}; {TELL_READY}"
    supervised = supervise(program("one", SLEEP, attend=attend))
    wait_for_text(folder / "times", "x")

    def runs():
        try:
            (child,) = supervised.children()
            return Path(f"/proc/{child}/comm").read_text() == "sleep\n"
        except (ValueError, FileNotFoundError):
            return False

    wait_until(runs, "it runs")
    (folder / "refused").touch()
    os.kill(supervised.children()[0], signal.SIGKILL)
    supervised.process.wait_line("^no room$")
    supervised.process.wait_line("one could not be started; it comes back in 1 s$")
    (folder / "refused").unlink()
    supervised.process.wait_line("one is back")
    assert len((folder / "times").read_text().split()) >= 3


@pytest.mark.parametrize("script,how", [("exit 4", "ended with status 4"), ("kill -9 $$", "was ended by signal 9")])
def test_one_that_never_served_is_not_restarted(supervise, folder, script, how):
    supervised = supervise(program("one", f"{TELL_READY}; {SLEEP}"), program("two", script, f"log {folder}/two.log"))
    assert supervised.process.wait(30) == 1
    (sentence,) = supervised.process.lines
    assert re.fullmatch(rf"\d\d:\d\d:\d\d two {how}; its log is {folder}/two\.log", sentence)


def test_one_that_cannot_be_executed_says_so_in_its_output(supervise, folder):
    supervised = supervise(f"program one\nrun {folder}/not-there\nprogram two\ntells 3\nrun /nowhere at all\n")
    assert supervised.process.wait(30) == 1
    assert f"cannot start {folder}/not-there: No such file or directory" in supervised.process.lines


def test_who_asks_for_a_report_gets_that_instead_of_a_sentence(supervise, folder):
    supervised = supervise(program("one", f"{TELL_READY}; kill -9 $$"),
                           options=("--no-restart", "--report", folder / "report"))
    assert supervised.process.wait(30) == 1
    assert supervised.process.lines == []
    assert (folder / "report").read_text() == "one 137\n"


def test_all_of_a_programs_group_end_with_it(supervise, folder):
    supervised = supervise(program("one", f"sleep 1000 & {TELL_READY}; echo $! >{folder}/other; wait"))
    wait_for_text(folder / "other", "\n")
    other = int((folder / "other").read_text())
    (one,) = supervised.children()
    os.kill(one, signal.SIGKILL)
    supervised.process.wait_line("one is back")
    wait_until(lambda: not Path(f"/proc/{other}").exists(), "the other ends")


def test_one_that_does_not_want_to_end_is_killed(supervise):
    supervised = supervise(program("one", f"trap '' TERM; {TELL_READY}; while :; do sleep 1; done"),
                           program("two", f"{TELL_READY}; {SLEEP}"))
    wait_until(lambda: len(supervised.children()) == 2, "both run")
    supervised.process.signal(signal.SIGTERM)
    assert supervised.process.wait(60) == 0


def test_a_supervisor_that_is_killed_leaves_nobody_behind(supervise):
    supervised = supervise(program("one", f"{TELL_READY}; {SLEEP}"), program("two", f"{TELL_READY}; {SLEEP}"))
    wait_until(lambda: len(supervised.children()) == 2, "both run")
    children = supervised.children()
    supervised.process.kill()
    wait_until(lambda: not any(Path(f"/proc/{child}").exists() for child in children), "all end")


def test_a_program_gets_its_output_and_where_to_tell_and_nothing_else(folder, started):
    names = "readlink $(seq -f /proc/self/fd/%g 0 255)"
    description = folder / "supervisor.conf"
    description.write_text(program("one", f"{names}; {TELL_READY}; exit 1", "output 7") + program(
        "two", f"{names}; {SLEEP}", "output 8", attend=f"{TELL_READY}"))
    process = LoggedProcess(["/bin/sh", "-c", f"exec {SUPERVISOR} {description} 7>{folder}/one 8>{folder}/two"])
    process.wait_line("one is back")
    process.signal(signal.SIGTERM)
    assert process.wait(30) == 0
    one, two = (f"/dev/null\n{folder}/{name}\n{folder}/{name}\n" for name in ("one", "two"))
    assert re.fullmatch(rf"({one}pipe:\[\d+\]\n){{2,}}", (folder / "one").read_text())
    assert (folder / "two").read_text() == two


def test_it_sleeps_while_nothing_happens(supervise):
    supervised = supervise(program("one", f"{TELL_READY}; {SLEEP}"), program("two", SLEEP, attend=TELL_READY))
    wait_until(lambda: len(supervised.children()) == 2, "both run")
    (one, _) = supervised.children()
    os.kill(one, signal.SIGKILL)
    supervised.process.wait_line("one is back")
    status = Path(f"/proc/{supervised.process.pid}/status")

    def switches():
        return re.findall(r"ctxt_switches:\s*(\d+)", status.read_text())

    # It goes to sleep some time after it has said that.
    before = switches()
    for _ in range(30):
        time.sleep(0.2)
        before, last = switches(), before
        if before == last:
            break
    time.sleep(3)
    assert switches() == before


@pytest.mark.parametrize("text,sentence", [
    ("", "describes no program"), ("# nothing\n\n", "describes no program"),
    ("run /bin/true\n", 'line 1 of {}: "run" stands before the first program'),
    ("program one\nrum /bin/true\n", 'line 2 of {}: there is no key "rum"'),
    ("program one\ntells 2\n", 'line 2 of {}: a descriptor is a number from 3 on, not "2"'),
    ("program one\nrun /bin/true\noutput 77\n", "there is no descriptor 77 for the output of one"),
])
def test_a_wrong_description_is_one_clear_sentence(folder, text, sentence):
    path = folder / "supervisor.conf"
    path.write_text(text)
    done = subprocess.run([SUPERVISOR, path], capture_output=True, text=True, timeout=60)
    assert (done.returncode, done.stdout) == (2, "")
    assert done.stderr.startswith("vswitch-supervisor: ") and len(done.stderr.splitlines()) == 1
    assert sentence.format(path) in done.stderr


def test_a_description_that_is_not_there_is_one_clear_sentence(folder):
    done = subprocess.run([SUPERVISOR, folder / "none"], capture_output=True, text=True, timeout=60)
    assert (done.returncode, done.stdout) == (2, "")
    assert done.stderr == f"vswitch-supervisor: cannot read {folder}/none: No such file or directory\n"
