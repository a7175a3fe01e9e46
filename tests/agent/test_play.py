# SPDX-License-Identifier: Apache-2.0
"""`vswitchctl play`: scenarios on a running switch, how they end, and what is no scenario."""

import json
import os
import re
import resource
import signal
import subprocess
import time

import pytest

from harness import wire
from harness.build import AGENT_PRELOAD, REPOSITORY
from harness.operator_tool import VSWITCHCTL, OperatorTool
from harness.process import LoggedProcess

INITIAL = {
    "vsans": [{"id": 10, "name": "prod"}, {"id": 20, "name": "lab", "state": "suspended"}],
    "portCount": 6,
}


class Player(OperatorTool):
    """The tool, and scenarios for it as files of a folder."""

    def __init__(self, switch, folder):
        super().__init__(switch)
        self.folder = folder
        self.file = folder / "a.scenario"

    def write(self, *lines):
        self.file.write_text("\n".join(lines) + "\n")
        return self.file

    def play(self, *lines, options=()):
        """What a scenario prints that goes well."""
        return self("play", *options, self.write(*lines))

    def told(self, *lines, options=()):
        """The same, an object a line; the last one is the end."""
        return list(map(json.loads, self.play(*lines, options=("--json", *options)).splitlines()))

    def actions(self, *lines, options=()):
        """(line, command) of each action in order."""
        return [(row["line"], row["command"]) for row in self.told(*lines, options=options) if "command" in row]

    def complaint(self, *lines, code=1, options=("--quiet",)):
        """What a scenario is ended with, without the name of the file."""
        sentence = self.refused("play", *options, self.write(*lines), code=code)
        before, name, rest = sentence.partition(f"{self.file}:")
        assert (before, name) == ("vswitchctl: ", f"{self.file}:"), sentence
        return rest

    def begin(self, *lines, options=()):
        """A scenario in the background."""
        return LoggedProcess(["env", "--default-signal=INT,TERM", VSWITCHCTL, "--run", self.run_dir, "play", *options,
                              self.write(*lines)])


@pytest.fixture
def tool(owned, folder):
    return Player(owned, folder)


@pytest.fixture
def alone(folder, tmp_path):
    """A tool without a switch."""

    class Nothing:
        run_dir = tmp_path

    return Player(Nothing, folder)


# What it does and tells

def test_lines_act_in_their_order_and_are_told_with_what_they_print(tool):
    text = tool.play("# a comment", "vsan create 50 --name tapes", "", "port move fc3 50  # and its port", "wait 10ms",
                     "port up fc3", "wait vsan 50 oper up within 10s", "expect port fc3 vsan 50",
                     "expect refused vsan create 50", "vsan delete 50")
    seconds = r"^ +\d+\.\d{3} s  "
    told = re.findall(seconds + r"line (\d+) +(.*)$", text, re.M)
    assert told == [("2", "vsan create 50 --name tapes"), ("4", "port move fc3 50"), ("6", "port up fc3"),
                    ("7", "wait vsan 50 oper up"), ("8", "expect port fc3 vsan 50"),
                    ("9", "expect refused vsan create 50"), ("10", "vsan delete 50")]
    assert re.search(r"line 4 +port move fc3 50\nPort 16785408 \(fc3\): VSAN 50, link down, deny list 0\n", text)
    assert re.search(seconds + r"done: 5 commands, at most \d+ ms late\n\Z", text, re.M)


def test_json_is_one_object_a_line_with_the_reply(tool):
    told = tool.told("vsan create 50", "expect refused vsan create 50", "wait vsan 50 exists within 5s", "show",
                     "port list --vsan 50", "vsan delete 50")
    times = [row.pop("time") for row in told]
    assert times == sorted(times)
    assert told[0]["reply"]["name"] == "VSAN0050"
    assert told[1] == {"line": 2, "expectRefused": "vsan create 50", "refused": "vsan create: VSAN 50 exists already."}
    assert told[2] == {"line": 3, "wait": "vsan 50 exists"}
    assert told[3]["reply"]["vsans"]["total"] == 4
    assert told[4] == {"line": 5, "command": "port list --vsan 50", "reply": {"ports": []}}
    assert told[-1].keys() == {"done", "latest"} and told[-1]["done"] == 5


def test_json_has_what_is_no_reply_as_text_and_a_wait_when_it_is_over(tool):
    told = tool.told("every 20ms 3 times vsan --help", "at 2s vsan create 50", "wait vsan 50 exists within 1m")
    assert [row["line"] for row in told[:-1]] == [1, 1, 1, 2, 3]
    assert "Usage: vswitchctl vsan" in told[0]["output"]
    assert told[4] == {"time": told[4]["time"], "line": 3, "wait": "vsan 50 exists"}
    assert told[4]["time"] >= 2


def test_quiet_says_nothing_of_what_goes_well(tool):
    assert tool.play("vsan create 50", "show", "expect vsan 50 exists", options=["--quiet"]) == ""


def test_words_are_the_commands_and_no_shell_sees_them(tool):
    for text in ("tape library", "$(touch x)", "`reboot`; * ~", 'say "it"', "{disk}", "#1"):
        quote = "'" if '"' in text else '"'
        tool.play(f"port alias fc3 {quote}{text}{quote}")
        assert tool.json("port", "show", "fc3")["alias"] == text
    tool.play("port alias fc3 ''")
    assert tool.json("port", "show", "fc3")["alias"] == ""


def test_every_goes_on_beside_the_lines_below_and_at_counts_from_the_start(tool):
    actions = tool.actions("every 40ms for 160ms port down fc1", "wait 20ms", "every 40ms 4 times port up fc1",
                           "port up fc2", "at 10ms port up fc3", "at 3s port down fc3")
    flaps = [line for line, _ in actions if line in (1, 3)]
    assert sorted(flaps) == [1] * 4 + [3] * 4 and flaps[0] == 1
    lines = [line for line, _ in actions]
    assert lines.index(5) < lines.index(4) and lines[-1] == 6


def test_the_same_seed_draws_the_same(tool):
    lines = ["seed 3", "every 1ms 30 times chance 40% port up fc1", "every 1ms 30 times chance 40% port up fc2"]

    def drawn(*options):
        actions = tool.actions(*lines, options=options)
        return [sum(line == number for line, _ in actions) for number in (2, 3)]

    assert drawn() == drawn("--seed", 3) == drawn()
    assert len({tuple(drawn("--seed", seed)) for seed in (0, 1, 2, 4, 2**64 - 1)}) > 1


def test_lines_for_each_go_through_what_the_switch_has(tool):
    tool("port", "up", "fc2")
    actions = tool.actions("vsan create 50", "for each vsan", "vsan show {vsan}", "end", "for each active vsan",
                           "vsan set {vsan} --name n{vsan}", "end", "for each up port", "port alias {port} 'is {port}'",
                           "end", "for each port", "expect port {port} enabled", "end")
    assert actions == [(1, "vsan create 50"), (3, "vsan show 1"), (3, "vsan show 10"), (3, "vsan show 20"),
                       (6, "vsan set 1 --name n1"), (6, "vsan set 10 --name n10"),
                       (9, "port alias fc2 'is fc2'")]
    assert tool.json("port", "show", "fc2")["alias"] == "is fc2"


def test_standard_input_is_a_file_like_others(tool):
    def piped(text):
        return subprocess.run([VSWITCHCTL, "--run", tool.run_dir, "play", "--quiet", "-"], input=text,
                              capture_output=True, text=True, timeout=60)

    done = piped("vsan create 50\nvsan\n\nx")
    assert done.returncode == 2 and done.stderr.startswith("vswitchctl: standard input:4: 'x' begins no")
    done = piped("vsan create 50")
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")
    assert tool.json("vsan", "show", 50)


# How it ends

def test_the_first_refusal_ends_it_with_its_line(tool):
    assert tool.complaint("vsan create 50", "vsan create 10", "vsan create 60") == \
        "2: vsan create: VSAN 10 exists already.\n"
    assert [vsan["id"] for vsan in tool.json("vsan")["vsans"]] == [1, 10, 20, 50]
    assert tool.complaint("at 20ms port up fc99", "wait 60s").startswith("1: port up: there is no port fc99")


def test_an_expectation_says_what_was_expected_and_what_is(tool):
    assert tool.complaint("expect vsan 20 state active") == \
        "1: Expected 'vsan 20 state active'. VSAN 20 is suspended.\n"
    assert tool.complaint("", "wait vsan 20 state active within 200ms") == \
        "2: 'vsan 20 state active' did not come within 200ms. VSAN 20 is suspended.\n"
    assert tool.complaint("expect refused vsan create 50") == \
        "1: The switch was expected to refuse 'vsan create 50', and has carried it out.\n"
    assert tool.complaint("wait port fc99 oper up within 1h").startswith("1: There is no port fc99")


def test_without_a_switch_nothing_is_refused_as_expected(alone):
    for line in ("port up fc1", "expect refused port up fc99", "expect vsan 1 exists"):
        assert alone.complaint("wait 10ms", line).startswith("2: No switch runs at "), line
    assert alone.complaint("wait 10ms", "for each vsan", "end").startswith("2: No switch runs at ")
    complaint = alone.complaint("wait ready within 100ms")
    assert complaint.startswith("1: 'ready' did not come within 100ms. No switch runs at ")


def test_a_switch_that_was_away_is_played_on(owned, tool):
    player = tool.begin("fault add exit --service vsan --kind get", "wait faults 0 within 1m", "port up fc3",
                        "wait port fc3 oper up within 10s")
    player.wait_line("wait faults 0")
    with owned.connect() as client:
        client.socket.sendall(wire.frame(wire.REQUEST, 1, wire.request_body(
            wire.SERVICE_VSAN, wire.VSAN, payload=wire.vsan_block(vsanIndex=10))))
        assert client.is_closed_by_peer()
    assert owned.process.wait() == 3
    owned.start()
    assert player.wait(60) == 0, player.text()
    assert tool.json("port", "show", "fc3")["oper"] == "up"


def test_a_switch_that_is_away_ends_any_line_but_a_wait(owned, tool):
    player = tool.begin("every 20ms for 1m port up fc1", "wait vsan 99 exists within 1m")
    player.wait_line("line 1")
    owned.kill()
    assert player.wait(60) == 1
    place = re.escape(f"vswitchctl: {tool.file}:1: ")
    assert re.search(f"^{place}(No switch runs at|The switch at) ", player.text(), re.M)
    owned.start()


@pytest.mark.parametrize("number,name", [(signal.SIGINT, "Ctrl-C"), (signal.SIGTERM, "SIGTERM")])
@pytest.mark.parametrize("line", ["wait 100h", "wait vsan 99 exists within 100h", "every 100s for 1h show"])
def test_a_signal_ends_it_at_once_and_the_line_is_told(tool, number, name, line):
    player = tool.begin("vsan create 50", "port up fc1", line, "port up fc2")
    player.wait_line("line 2 ")
    if not line.startswith("wait 100h"):
        player.wait_line("line 3 ")
    if line.startswith("every"):
        player.wait_line("line 4 ")
    time.sleep(1)
    player.signal(number)
    assert player.wait(10) == -number
    assert player.lines[-1] == f"vswitchctl: {tool.file}:3: ended here by {name}.", player.text()


# As one change

def test_atomic_makes_all_of_it_or_nothing(owned, tool):
    before = owned.stored()
    assert tool.complaint("# first", "vsan create 50 --name a", "for each vsan", "vsan set {vsan} --drop-latency 700",
                          "port move fc3 60", "end", options=["--atomic"]).startswith("5: port move: ")
    assert owned.stored() == before
    text = tool.play("vsan create 50 --name a", "port move fc3 50", "port up fc3", "for each vsan",
                     "vsan set {vsan} --drop-latency 700", "end", "", "timers set ratov 12000", options=["--atomic"])
    told = re.findall(r"^ +\d+\.\d{3} s  line (\d+) +(.*)$", text, re.M)
    assert told == [("1", "vsan create 50 --name a"), ("2", "port move fc3 50"), ("3", "port up fc3"),
                    ("5", "vsan set 1 --drop-latency 700"), ("5", "vsan set 10 --drop-latency 700"),
                    ("5", "vsan set 20 --drop-latency 700"), ("8", "timers set ratov 12000")]
    assert "Port 16785408 (fc3): VSAN 50, link up, deny list 0" in text
    assert text.endswith("done: 7 commands, as one change\n")
    assert [tool.json("vsan", "show", vsan)["networkDropLatency"] for vsan in (1, 10, 20)] == [700] * 3


def test_atomic_with_more_than_one_change_may_be_is_refused_with_its_line(tool):
    lines = ["vsan set 20 --drop-latency 7"] * 10001
    assert tool.complaint(*lines, code=2, options=["--atomic"]).startswith("10001: With this line there are more than")


def test_what_a_value_makes_of_a_line_is_refused_with_the_line(tool):
    assert tool.complaint("for each vsan", "expect vsan {vsan}000 absent", "end").startswith('2: "10000" cannot stand')
    assert tool.complaint("for each vsan", "vsan set {vsan} --drop-latency {vsan}000000000", "end", code=2,
                          options=["--atomic"]).startswith("2: vsan set: --drop-latency: '10000000000' is not")


def test_atomic_publishes_what_the_whole_leads_to(tool):
    watcher = tool.watch("--count", "1")
    told = tool.told("vsan create 50", "vsan delete 50", "vsan set 20 --state active", options=["--atomic"])
    assert [row.get("line") for row in told] == [1, 2, 3, None]
    assert told[0]["reply"]["id"] == 50
    assert told[-1]["done"] == 3
    assert watcher.wait(30) == 0
    assert "VSAN 20 resumed" in watcher.lines[-1], watcher.text()


@pytest.mark.parametrize("line,complaint", [
    ("wait 1s", "With --atomic a scenario is one transaction: commands, without times, 'wait' and 'expect'."),
    ("every 1s 2 times port up fc1", "With --atomic"), ("at 1s port up fc1", "With --atomic"),
    ("expect vsan 1 exists", "With --atomic"), ("wait ready within 1s", "With --atomic"),
    ("expect refused vsan create 1", "With --atomic"),
    ("show", "'show' is no change of the configuration, and cannot be part of one."),
    ("fault clear", "'fault clear' is no change of the configuration, and cannot be part of one."),
])
def test_atomic_takes_changes_of_the_configuration_only(alone, line, complaint):
    for options in (["--atomic", "--check"], ["--atomic"]):
        assert alone.complaint("vsan create 50", line, code=2, options=options).startswith(f"2: {complaint}")
        if line in ("show", "wait 1s"):
            assert alone.complaint("for each vsan", "vsan set {vsan} --name x", line, "end", code=2,
                                   options=["--atomic", "--check"]).startswith(f"3: {complaint}")


def test_atomic_without_any_command_does_nothing(alone):
    assert alone.play("# nothing", options=["--atomic", "--quiet"]) == ""


# What is no scenario

def test_nothing_acts_before_all_has_been_checked(tool):
    for wrong in ("vsan create many", "vsan crate 60", "every 1s port up fc1", "expect vsan 5000 exists", "wait x",
                  "port alias fc1 'x", "nonsense"):
        assert tool.complaint("vsan create 50", wrong, code=2).startswith("2: ")
    assert [vsan["id"] for vsan in tool.json("vsan")["vsans"]] == [1, 10, 20]


def test_check_needs_no_switch_and_does_nothing(alone, tool):
    good = ("vsan create 50", "for each vsan", "expect vsan {vsan} oper up", "end", "every 1s for 1h show")
    assert alone.play(*good, options=["--check"]) == ""
    assert tool.play(*good, options=["--check"]) == ""
    assert alone.complaint(*good, "wait", code=2, options=["--check"]).startswith("6: A time is missing; write ")
    assert [vsan["id"] for vsan in tool.json("vsan")["vsans"]] == [1, 10, 20]


@pytest.mark.parametrize("line,complaint", [
    ("play other.scenario", "One scenario cannot play another."),
    ("watch --count 1", "'watch' cannot be part of a scenario, since it waits; run it beside the scenario."),
    ("wait-until ready", "'wait-until' cannot be part of a scenario; write 'wait CONDITION within 5s'."),
    ("at 1s play x", "One scenario cannot play another."),
    ("expect refused watch", "'watch' cannot be part of a scenario, since it waits; run it beside the scenario."),
    ("port --json", "port list: there is no option '--json'"),
    ("--run /tmp port", "'--run' begins no statement and no command"),
    ("vswitchctl port", "'vswitchctl' begins no statement and no command"),
    ("every 1ms 1000000000 times port", "1000000000 repetitions are too many: a scenario acts at most 1000000 times."),
    ("vsan create x", "vsan create: id: 'x' is not a number from 1 to "),
])
def test_what_cannot_be_part_of_a_scenario_is_refused_with_its_line(alone, line, complaint):
    assert alone.complaint("# first", line, code=2).startswith(f"2: {complaint}")
    assert alone.complaint("for each vsan", "# first", "", line, "end", code=2).startswith(
        "4: 'at' cannot stand" if line.startswith("at") else
        "4: 'every' cannot stand" if line.startswith("every") else f"4: {complaint}")


def test_a_gigabyte_is_refused_without_being_read(alone):
    for piece, line in ((b"#" * 4095 + b"\n", 1025), (b"\n" * 65536, 4194305), (b"port up fc1\n" * 1000, 349526),
                        (b"\0" * 65536, 1)):
        process = subprocess.Popen([VSWITCHCTL, "play", "-"], stdin=subprocess.PIPE, stderr=subprocess.PIPE)
        written = 0
        try:
            while written < 1 << 30:
                written += os.write(process.stdin.fileno(), piece)
        except BrokenPipeError:
            pass
        _, complaint = process.communicate(timeout=60)
        assert process.returncode == 2
        assert complaint.decode() == (f"vswitchctl: standard input:{line}: Here the file has 4194304 bytes, and a "
                                      "scenario may not have more.\n")
        assert written < 16 << 20


def test_a_file_that_cannot_be_read_is_named(alone, tmp_path):
    missing = tmp_path / "no"
    assert alone.refused("play", missing) == f"vswitchctl: play: cannot read {missing}: No such file or directory.\n"
    assert "Is a directory" in alone.refused("play", tmp_path)
    assert "FILE" in alone.run("play", "--help").stdout
    alone.refused("play", code=2)
    alone.refused("play", alone.write(""), "--seed", "x", code=2)


@pytest.mark.skipif(AGENT_PRELOAD != "", reason="sanitizers take longer than what is measured")
def test_ten_thousand_lines_are_read_within_a_second_of_the_processor(alone):
    file = alone.write(*(f"vsan set {number % 4000 + 2} --name n{number} --drop-latency {number + 1}"
                         for number in range(10000)))
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    alone("play", "--check", file)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    assert after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime < 1


# The document

DOCUMENT = "docs/scenarios.md"


def table(heading):
    """The rows of the only table below a heading, as their cells."""
    section = (REPOSITORY / DOCUMENT).read_text().partition(f"\n## {heading}\n")[2].partition("\n## ")[0]
    rows = re.findall(r"^\|.*\|$", section, re.M)[2:]
    return [[cell.strip() for cell in row.strip("|").split(" | ")] for row in rows]


def test_the_example_of_the_document_plays_to_its_end(tool):
    text = (REPOSITORY / DOCUMENT).read_text()
    example = re.findall(r"^```\n(.*?)^```$", text, re.M | re.S)[0]
    told = tool.told(*example.splitlines())
    flaps = [row["line"] for row in told if row.get("command", "").startswith(("port down", "port up"))]
    assert len(flaps) == 21
    assert 60 not in [vsan["id"] for vsan in tool.json("vsan")["vsans"]]


def test_the_document_has_every_statement_and_each_is_one(alone):
    wanted = {"COMMAND": "show", "CONDITION": "ready", "N times": "3 times", "N": "3"}
    rows = table("Statements")
    assert len(rows) == 13
    for statement, _ in rows:
        line = statement.replace("`", "").replace(" … ", "\n")
        line = re.sub(r"\bTIME\b", "1s", line)
        for word, stands_for in wanted.items():
            line = re.sub(rf"\b{word}\b", stands_for, line)
        assert alone.play(line, options=["--check"]) == "", line
    # The reader's own list of them.
    reader = (REPOSITORY / "virtual_switch/tool/scenario.cpp").read_text()
    forms = re.findall(r'\{"(\w+)", (?:"|\w)', reader.partition("forms[] = {")[2].partition("};")[0])
    assert len(forms) == 7
    assert set(forms) == {word for statement, _ in rows for word in re.findall(r"\b[a-z]+\b", statement)} & set(forms)


def test_the_document_has_the_limits(alone):
    header = (REPOSITORY / "virtual_switch/tool/scenario.h").read_text()
    limits = [int(number) << int(shift or 0)
              for number, shift in re.findall(r"max_scenario_\w+ = (\d+)u?(?: << (\d+))?;", header)]
    assert len(limits) == 4
    shown = [int(number) for _, most in table("Limits") for number in re.findall(r"\d{3,}", most)]
    assert sorted(shown) == sorted([*limits, 168])
