# SPDX-License-Identifier: Apache-2.0
"""The tool's completion in bash: words of commands and options, which the tool itself knows, and what the
running switch has."""

import re
import shutil
import subprocess
import time

import pytest

from harness.build import PROGRAMS, REPOSITORY
from harness.operator_tool import COMPLETION, OperatorTool, all_commands, complete, help_of, subcommands
from harness.terminal import Terminal

INITIAL = {"vsans": [{"id": 10}, {"id": 20}, {"id": 21}], "portCount": 12}


def options_of(*command):
    return set(re.findall(r"^  (?:-h,)?(--[a-z-]+)", help_of(*command), re.MULTILINE))


def test_every_command_and_option_is_offered():
    assert complete("") == set(subcommands(help_of()))
    assert complete("--") == options_of()
    assert len(complete("")) > 10
    for command in all_commands():
        if len(command) == 2:
            assert command[1] in complete(command[0], "")
        assert complete(*command, "--") == options_of(*command), command


def test_word_that_is_begun_is_finished_and_options_in_front_are_passed_over():
    assert complete("vs") == {"vsan"}
    assert complete("--json", "--run", "/x", "va") == set() and complete("--run", "/x", "vs") == {"vsan"}
    assert complete("vsan", "create", "5", "--state", "s") == {"suspended"}
    assert complete("vsan", "create", "5", "--state", "=", "s") == {"suspended"}, "as bash takes it apart"
    assert complete("vsan", "create", "5", "--state", "=") == {"active", "suspended"}
    assert complete("fault", "add", "d") == {"delay", "drop"}
    assert complete("vsan", "create", "5", "--mtu", "") == set()


def test_option_that_is_there_is_not_offered_again():
    assert "--name" in complete("vsan", "set", "5", "--")
    assert "--name" not in complete("vsan", "set", "5", "--name", "x", "--")


def test_nothing_follows_what_is_no_command():
    assert complete("fly", "") == complete("vsan", "fly", "") == set()
    assert complete("vsan", "show", "1", "") == {"--help", "--json", "--run"}, "only options can"


def words_of(header, rows):
    """The words of a list of the contract: what stands last in each row of it, but for numbers."""
    text = (REPOSITORY / "contract" / header).read_text()
    lines = re.search(rf"#define {rows}\(X\)(.*?[^\\])\n(?:\n|#)", text, re.S)
    return {re.findall(r'"([\w-]+)"', row)[-1] for row in lines.group(1).splitlines() if '"' in row}


def test_words_that_the_switch_knows_are_offered():
    for command, header, rows in (("vsan create 5 --state", "attributes.h", "ADMIN_STATES"),
                                  ("vsan create 5 --load-balancing", "attributes.h", "LOAD_BALANCINGS"),
                                  ("fault add drop --service", "services.h", "MTS_SERVICES"),
                                  ("fault add drop --kind", "services.h", "MTS_KINDS"),
                                  ("fault add drop --opcode", "services.h", "MTS_OPCODES"),
                                  ("fault add client lose-answer --pdu", "client_faults.h", "CLIENT_FAULT_PDUS")):
        words = words_of(header, rows)
        assert len(words) >= 2
        assert complete(*command.split(), "") == words, command
    settings = words_of("attributes.h", "FABRIC_TIMERS") | words_of("attributes.h", "SWITCH_LATENCIES")
    assert len(settings) == 6
    assert complete("timers", "set", "") == settings | {"inorder-delivery"}
    assert complete("tdx", "refuse", "") == complete("port", "traps", "fc1", "") == {"on", "off"}
    assert complete("port", "speed", "fc1", "") == {"2000", "4000", "8000", "16000", "32000"}


def test_behind_a_lone_separator_another_command_is_offered():
    assert complete("vsan", "create", "10", "--", "po") == {"port"}
    assert "--name" in complete("port", "up", "fc1", "--", "vsan", "create", "10", "--")


def test_words_of_a_condition_are_offered():
    assert complete("wait-until", "") == {"ready", "vsan", "port", "tdx", "timer", "agents", "faults"}
    assert complete("wait-until", "vsan", "10", "oper", "") == {"up", "down"}
    assert complete("wait-until", "timer", "ra") == {"ratov"}
    assert complete("wait-until", "timer", "ratov", "5", "") == {"vsan"}
    assert complete("wait-until", "ready", "") == complete("wait-until", "vsan", "10", "fly", "") == set()


def test_numbers_and_names_of_the_running_switch_are_offered(owned):
    def offered(*words):
        return complete(*words, run_dir=owned.run_dir)

    tool = OperatorTool(owned)
    tool("role", "add", "tapes", "--vsans", 10)
    tool("role", "add", "two words", "--vsans", 20)
    assert offered("vsan", "delete", "") == {"1", "10", "20", "21"} and offered("vsan", "set", "2") == {"20", "21"}
    assert offered("port", "move", "fc1") == {"fc1", "fc10", "fc11", "fc12"}
    assert offered("port", "move", "fc3", "2") == offered("port", "list", "--vsan", "2") == {"20", "21"}
    assert offered("role", "remove", "ta") == {"tapes"}
    assert offered("role", "remove", "two") == {"two\\", "words"}, "as it must be typed"
    assert offered("wait-until", "port", "fc12") == {"fc12"}
    assert offered("wait-until", "port", "fc1", "vsan", "1") == {"1", "10"}
    assert complete("--run", str(owned.run_dir), "vsan", "show", "2") == {"20", "21"}
    tool("vsan", "delete", 21)
    assert offered("vsan", "show", "2") == {"20"}


def test_without_a_switch_nothing_is_said_and_words_are_offered_all_the_same():
    assert complete("vsan", "delete", "") == complete("port", "up", "") == complete("role", "remove", "") == set()
    assert complete("wait-until", "vsan", "10", "ex") == {"exists"}


def test_switch_that_hangs_is_not_waited_for_long(owned):
    owned.suspend()
    started = time.monotonic()
    assert complete("vsan", "delete", "", run_dir=owned.run_dir) == set()
    took = time.monotonic() - started
    owned.resume()
    assert took < 9, "a command waits ten seconds"


def test_folders_are_offered_for_the_run_directory(folder):
    (folder / "run").mkdir()
    (folder / "rubbish").touch()
    assert complete("--run", f"{folder}/r") == {f"{folder}/run"}
    assert complete("vsan", "list", "--run", f"{folder}/r") == {f"{folder}/run"}


def test_bash_completes_at_its_prompt(owned):
    terminal = Terminal(shutil.which("bash"), "--norc", "--noprofile", "-i")
    terminal.type(f"PS1='ready> '; bind 'set enable-bracketed-paste off'; PATH={PROGRAMS}:$PATH; source {COMPLETION}; "
                  f"export VSWITCH_RUN_DIR={owned.run_dir}; echo set up'!'")
    terminal.wait_for("set up!")
    terminal.type("vswitchctl vsan sh\t10\t --js\t | tr -d ' \\n'; echo do'ne'")
    terminal.wait_for('"state":"active"}done')
    assert '"id":10,' in terminal.output
    terminal.type("exit")
    terminal.ended()


def test_completion_is_not_among_the_commands_that_help_names():
    assert "complete-words" not in help_of()


@pytest.mark.skipif(shutil.which("shellcheck") is None, reason="shellcheck is not installed")
def test_completion_is_clean_shell():
    subprocess.run(["shellcheck", COMPLETION], check=True, timeout=60)
