# SPDX-License-Identifier: Apache-2.0
"""What all commands of this repository have in common, and what test.sh refuses."""

import re
import signal
import subprocess
import time

import pytest

from harness.build import BUILD, PROGRAMS, REPOSITORY
from harness.campaign import SHARES
from harness.process import LoggedProcess
from harness.run_script import once
from harness.terminal import Terminal

SCRIPTS = [REPOSITORY / name for name in ("run.sh", "snmp_user.sh", "test.sh", "bench/run.sh",
                                          "monitoring/make_config.sh")]
COMMANDS = [*SCRIPTS, *(PROGRAMS / name for name in ("vswitchd", "vswitchctl", "vswitch-supervisor"))]


@pytest.mark.parametrize("command", COMMANDS, ids=lambda command: command.name)
def test_every_command_tells_its_help_and_the_one_release(command):
    (release,) = re.findall(r"^CMAKE_PROJECT_VERSION:STATIC=(.+)$", (BUILD / "CMakeCache.txt").read_text(), flags=re.M)
    told = {option: once(command, option) for option in ("--help", "-h", "--version")}
    assert [(done.returncode, done.stderr) for done in told.values()] == [(0, "")] * 3
    assert told["--version"].stdout == f"{command.name} {release}\n"
    assert told["-h"].stdout == told["--help"].stdout
    for option in ("-h", "--help", "--version"):
        assert option in told["--help"].stdout


@pytest.mark.parametrize("words", [["--soak", "1", "mixed lod"], ["--soak", "1", "mixed"], ["--soak", "1", ".*"],
                                   ["--sanitize", "--soak", "1", "--coverage"]])
def test_a_campaign_that_is_not_there_is_refused_before_anything_is_installed_or_built(words):
    done = once(REPOSITORY / "test.sh", *words)
    assert (done.returncode, done.stdout) == (2, "")
    assert done.stderr.startswith(f"test.sh: there is no campaign '{words[-1]}', only these: {', '.join(SHARES)}. ")
    assert len(done.stderr.splitlines()) == 1


@pytest.mark.parametrize("words", [["unit", ""], ["unit", "--all"], ["agent", "-k"]])
def test_a_filter_of_tests_is_part_of_a_name(words):
    done = once(REPOSITORY / "test.sh", *words)
    assert (done.returncode, done.stdout) == (2, "")
    assert done.stderr == (f"test.sh: {words[0]} takes part of a test's name, not '{words[1]}'. "
                           f"Try {REPOSITORY / 'test.sh'} --help.\n")


TWO_STEPS = """
rule step
  command = until [ -e $file ]; do sleep 0.1; done; touch $out
build first: step
  file = there
build second: step
  file = awaited
"""
BUILDING = ["/bin/bash", "-uc", 'source "$1/tools/common.sh" && source "$1/tools/build.sh" && build_project "$2"',
            "building", str(REPOSITORY)]


@pytest.fixture
def half_built(folder):
    """A build of two steps, of which only one can be done yet."""
    (folder / "build.ninja").write_text(TWO_STEPS)
    (folder / "there").touch()
    return folder


def test_a_build_on_a_terminal_shows_how_far_it_is_and_how_long_it_took(half_built):
    terminal = Terminal(*BUILDING, half_built)
    terminal.wait_for("1 of 2, ")
    (half_built / "awaited").touch()
    assert terminal.ended() == 0, terminal.output
    shown = terminal.output.replace("\r\n", "\n").splitlines()
    assert shown[0] == f"building in {half_built}"
    assert re.fullmatch(r"built in \d+ s", shown[-1])
    again = Terminal(*BUILDING, half_built)
    assert again.ended() == 0
    assert again.output == f"building in {half_built}\r\n"


def test_a_build_that_nobody_watches_says_one_line(half_built):
    (half_built / "awaited").touch()
    done = subprocess.run([*BUILDING, half_built], capture_output=True, text=True, timeout=60)
    assert (done.returncode, done.stdout, done.stderr) == (0, f"building in {half_built}\n", "")


def test_a_build_that_fails_on_a_terminal_shows_why(half_built):
    text = (half_built / "build.ninja").read_text()
    (half_built / "build.ninja").write_text(text.replace("touch $out", "echo what is wrong; false"))
    (half_built / "awaited").touch()
    terminal = Terminal(*BUILDING, half_built)
    assert terminal.ended() == 1
    assert "the build failed. The end of" in terminal.output and "what is wrong" in terminal.output
    assert "built in" not in terminal.output


# It looks after itself, many times over, without a pause.
WAITING = """
source "$1/tools/common.sh"
sleep() { :; }
trap 'exit 0' TERM
for ((times = 0; times < 3000; times++)); do mine+=($$); done
say ready
wait_for_one "${mine[@]}"
"""


def test_no_signal_is_lost_while_a_script_waits_for_one_of_its_programs_to_end():
    for number in range(100):
        waiting = LoggedProcess(["/bin/bash", "-uc", WAITING, "waiting", REPOSITORY])
        try:
            waiting.wait_line("^ready$")
            time.sleep(number / 20000)
            waiting.signal(signal.SIGTERM)
            assert waiting.wait() == 0
        finally:
            waiting.kill()
