# SPDX-License-Identifier: Apache-2.0
"""vswitchctl fault add client: what it sets, lists, names, completes and refuses."""

import re
import subprocess

import pytest

from harness import interfaces
from harness.build import MIBS, REPOSITORY
from harness.oids import ARCS, ROOT, dotted
from harness.operator_tool import OperatorTool, complete, help_of

LOSE = ("fault", "add", "client", "lose-answer")


@pytest.fixture
def tool(start_switch):
    return OperatorTool(start_switch(initial={"vsans": [{"id": 10}], "portCount": 3}))


def contract(rows):
    """The words of a list in the contract's header, by what else stands in their rows."""
    text = (REPOSITORY / "contract/client_faults.h").read_text()
    block = re.search(rf"#define {rows}\(X\)(.*?[^\\])\n", text, re.S).group(1)
    return {re.search(r'"([\w-]+)"', row).group(1): row for row in block.splitlines() if "X(" in row}


ACTIONS = contract("CLIENT_FAULT_ACTIONS")


def value_for(row):
    return {"VALUE_NONE": (), "VALUE_MILLISECONDS": (100,), "VALUE_BYTES": (50,), "VALUE_ERROR": ("genErr",)}[
        re.search(r"VALUE_\w+", row).group(0)]


def test_every_action_of_the_contract_can_be_set_and_is_listed_with_the_managers(tool):
    tool("fault", "add", "drop", "--opcode", "vsan")
    for word, row in ACTIONS.items():
        tool("fault", "add", "client", word, *value_for(row))
    listed = tool.json("fault", "list")
    assert [fault["action"] for fault in listed["faults"]] == ["drop", *ACTIONS]
    assert [fault["side"] for fault in listed["faults"]] == ["manager"] + ["client"] * len(ACTIONS)
    assert [fault["number"] for fault in listed["faults"]] == list(range(1, len(ACTIONS) + 2))
    assert listed["fetched"] is False
    text = tool("fault")
    assert max(map(len, text.splitlines())) <= 80
    assert text.endswith("No agent has fetched this list: no client meets a fault of it.\n")
    assert tool("fault", "clear", 1) == "Faults cleared: 1\n"
    assert tool("fault", "clear") == f"Faults cleared: {len(ACTIONS)}\n"
    assert tool("fault") == "No faults.\n"


def test_a_fault_is_shown_in_the_words_that_set_it(tool):
    shown = tool("fault", "add", "client", "delay-answer", 1500, "--deviation", 500, "--pdu", "set", "--oid",
                 "vsanName.10", "--times", 3)
    assert re.search(r"client delay-answer 1500 \+-500 +3 +0  set, vsanName\.10, seed 1$", shown, re.M)
    assert re.search("  1.3.6.1.2, user alice$", tool(*LOSE, "--oid", "1.3.6.1.2", "--user", "alice"), re.M)
    row = tool.json("fault", "add", "client", "delay-notification", 7, "--to", "192.0.2.0/24", "--after", 2,
                    "--percent", 50, "--seed", 9, "--pdu", "inform")
    assert row == {"number": 3, "side": "client", "action": "delay-notification", "value": 7, "applied": 0,
                   "address": "192.0.2.0/24", "after": 2, "percent": 50, "seed": 9, "pdus": ["inform"],
                   "fetched": False}
    assert "error genErr at 2" in tool("fault", "add", "client", "error", "genErr", "--index", 2)
    assert "error 99 at 0" in tool("fault", "add", "client", "error", 99)
    assert tool.json("show")["faults"] == {"active": 5, "applied": 0}


@pytest.mark.parametrize("words,complaint", [
    (("fault", "add", "client"), "action"),
    (("fault", "add", "client", "melt"), "melt"),
    (("fault", "add", "client", "drop"), "drop"),
    (("fault", "add", "client", "delay-answer"), "needs a value"),
    (("fault", "add", "client", "delay-answer", "soon"), "soon"),
    (("fault", "add", "client", "error"), "needs a value"),
    (("fault", "add", "client", "error", "genError"), "genErr"),
    ((*LOSE, "5"), "takes no value"),
    ((*LOSE, "--opcode", "vsan"), "is for 'fault add'"),
    ((*LOSE, "--oid", "vsanNmae"), "vsanName"),
    ((*LOSE, "--oid", "vsanName."), "vsanName."),
    ((*LOSE, "--oid", "1..3"), "1..3"),
    ((*LOSE, "--to", "192.0.2.1"), "takes --from"),
    (("fault", "add", "client", "lose-notification", "--from", "192.0.2.1"), "takes --to"),
    ((*LOSE, "--times", "-1"), "--times"),
    ((*LOSE, "--percent", "half"), "half"),
    (("fault", "add", "client", "lose-answer", "--nothing"), "--nothing"),
])
def test_a_wrong_command_line_ends_with_2_and_sets_nothing(tool, words, complaint):
    assert complaint in tool.refused(*words, code=2)
    assert tool.json("fault")["faults"] == []


@pytest.mark.parametrize("words,complaint", [
    (("fault", "add", "client", "delay-answer", 0), "from 1 to 600000"),
    (("fault", "add", "client", "delay-answer", 600001), "from 1 to 600000"),
    (("fault", "add", "client", "delay-answer", 10, "--deviation", 11), "from 0 to 10"),
    (("fault", "add", "client", "cut-answer", 65536), "from 0 to 65535"),
    ((*LOSE, "--deviation", 1), 'takes no --deviation'),
    ((*LOSE, "--index", 1), 'takes no --index'),
    ((*LOSE, "--pdu", "get,inform"), "is for get, get-next, get-bulk and set"),
    ((*LOSE, "--pdu", "walk"), "is for get, get-next, get-bulk and set"),
    ((*LOSE, "--from", "localhost"), "IPv4 or IPv6 address"),
    ((*LOSE, "--from", "192.0.2.1/33"), "IPv4 or IPv6 address"),
    ((*LOSE, "--user", "a" * 65), "at most 64"),
    ((*LOSE, "--times", 0), "from 1 to"),
    ((*LOSE, "--percent", 0), "from 1 to 100"),
    ((*LOSE, "--percent", 101), "from 1 to 100"),
    ((*LOSE, "--oid", "1.4294967296"), "numbers with dots between"),
    ((*LOSE, "--oid", ".".join("1" * 129)), "1 to 128 numbers"),
])
def test_what_no_fault_can_be_is_refused_and_sets_nothing(tool, words, complaint):
    assert complaint in tool.refused(*words)
    assert tool.json("fault")["faults"] == []


def test_there_is_a_bound_and_a_sentence_for_it(tool):
    for _ in range(64):
        tool(*LOSE)
    assert tool.refused(*LOSE) == ("vswitchctl: fault add client: there are 64 faults of clients already; "
                                   "clear some first.\n")


def oid_of(tool, text):
    return tool.json(*LOSE, "--oid", text)["oid"]


def test_names_of_the_mib_stand_for_its_numbers(start_switch):
    tool = OperatorTool(start_switch(empty=True))
    source = (REPOSITORY / "virtual_switch/tool/object_names.cpp").read_text()
    of_the_vsans, of_everybody = (re.findall(r'\{"(\w+)", "([.\d]*)"\}', part)
                                  for part in source.split("of_everybody[]")[:2])
    known = {name: dotted(ROOT)[1:] + place for name, place in of_the_vsans}
    assert set(ARCS) <= set(known)
    for name, arcs in ARCS.items():
        assert known[name] == dotted(arcs)[1:]
    # The others, by the MIB texts.
    texts = {"VSAN-MIB::" + name: oid for name, oid in known.items()}
    texts |= {("SNMPv2-MIB::" if name.startswith("sys") else "IF-MIB::") + name: "1.3.6.1" + place
              for name, place in of_everybody}
    for name, oid in texts.items():
        told = subprocess.run(["snmptranslate", "-On", "-M", MIBS, "-m", "VSAN-MIB:SNMPv2-MIB:IF-MIB", name],
                              capture_output=True, text=True, timeout=20)
        assert told.stdout.strip() == "." + oid, (name, told)
    assert oid_of(tool, "vsanName") == known["vsanName"]
    assert oid_of(tool, "vsanName.10") == known["vsanName"] + ".10"
    assert oid_of(tool, "linkDown") == "1.3.6.1.6.3.1.1.5.3"
    assert oid_of(tool, "ifAlias.5") == dotted(interfaces.COLUMN["ifAlias"])[1:] + ".5"
    assert oid_of(tool, ".1.3.6") == oid_of(tool, "1.3.6") == "1.3.6"


def test_completion_offers_every_action_and_option_of_a_clients_fault():
    assert "client" in complete("fault", "add", "")
    assert complete("fault", "add", "client", "") == set(ACTIONS)
    options = set(re.findall(r"^  (--[a-z-]+)", help_of("fault", "add", "client"), re.M))
    assert complete("fault", "add", "client", "--") == options | {"--help"}
    assert complete("fault", "add", "client", "lose-answer", "--pdu", "") == set(contract("CLIENT_FAULT_PDUS"))


def test_the_manual_has_every_action_with_its_value_and_every_option():
    manual = (REPOSITORY / "docs/vswitchctl.md").read_text()
    table = manual.partition("| fault | where it acts |")[2].partition("\n\n")[0]
    values = {"VALUE_NONE": "", "VALUE_MILLISECONDS": " MILLISECONDS", "VALUE_BYTES": " BYTES",
              "VALUE_ERROR": " STATUS"}
    assert re.findall(r"^\| `client ([^`]+)` \|", table, re.M) == [
        word + values[re.search(r"VALUE_\w+", row).group(0)] for word, row in ACTIONS.items()]
    for option in complete("fault", "add", "client", "--") - {"--json", "--run", "--help"}:
        assert option in manual, option


def test_the_commands_of_the_manual_are_taken(tool):
    manual = (REPOSITORY / "docs/vswitchctl.md").read_text()
    section = manual.partition("### Faults of clients\n")[2].partition("\n### ")[0]
    commands = re.findall(r"^vswitchctl (fault add client .*?) *(?:#.*)?$", section, re.M)
    assert len(commands) >= 5
    for command in commands:
        tool(*command.split())
