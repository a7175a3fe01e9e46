# SPDX-License-Identifier: Apache-2.0
"""The operator's tool against a running switch: every command in words and as JSON, what it
refuses and how it ends, and the faults that it sets, seen by the switch's clients."""

import json
import os
import re
import subprocess
import time

import pytest

from harness import wire
from harness.build import REPOSITORY
from harness.clients import NetSnmp, SnmpError
from harness.oids import ARCS, cell, scalar
from harness.operator_tool import VSWITCHCTL, OperatorTool, all_commands, help_of

INITIAL = {
    "vsans": [{"id": 10, "name": "x" * 32}, {"id": 20, "name": "lab", "state": "suspended"}],
    "portCount": 6,
}
FC3 = 0x01002000


def ask(switch, vsan, connection=None):
    with connection or switch.connect() as client:
        return client.request(wire.SERVICE_VSAN, wire.VSAN, payload=wire.vsan_block(vsanIndex=vsan))


LOOKS = [
    ("show",), ("vsan",), ("vsan", "list"), ("vsan", "show", 10), ("port",), ("port", "list"), ("port", "show", "fc3"),
    ("port", "list", "--vsan", 1), ("system",), ("system", "show"), ("role",), ("role", "list"), ("timers",),
    ("timers", "show"), ("timers", "show", "--vsan", 10), ("tdx",), ("tdx", "show"), ("tdx", "pending"),
    ("event-history",), ("debug",), ("debug", "show"), ("fault",), ("fault", "list"),
]


@pytest.mark.parametrize("words", LOOKS, ids=lambda words: "-".join(map(str, words)))
def test_every_look_is_text_of_80_columns_and_valid_json(tool, words):
    text = tool(*words)
    assert text
    assert max(len(line) for line in text.splitlines()) <= 80
    assert tool.json(*words)


def test_lists_of_a_large_switch_are_whole_and_fit_80_columns(start_switch):
    tool = OperatorTool(start_switch(initial={"vsanRange": [{"first": 1, "last": 4095}], "portCount": 4096}))
    assert [vsan["id"] for vsan in tool.json("vsan", "list")["vsans"]] == list(range(1, 4096))
    assert [port["name"] for port in tool.json("port", "list")["ports"]] == [f"fc{n}" for n in range(1, 4097)]
    lines = tool("show").splitlines()
    assert len(lines) > 4095 and max(map(len, lines)) <= 80
    assert len(tool.json("timers", "show")["vsans"]) == 4095


def test_show_names_every_vsan_with_its_ports(tool):
    tool("port", "move", "fc3", 10)
    tool("port", "move", "fc5", 10)
    text = tool("show")
    assert re.search(r"^ +1  \S+ +active +\S+ +\S+  fc1-2,fc4,fc6$", text, re.MULTILINE)
    assert re.search(r"^ +10  x{32}  active +\S+ +\S+  fc3,fc5$", text, re.MULTILINE)
    assert re.search(r"^ +20  lab +suspended +down +0/0  -$", text, re.MULTILINE)


def test_vsan_is_created_set_and_deleted(owned, tool):
    tool("vsan", "create", 50, "--name", "tests", "--state", "suspended", "--interop", 2, "--inorder-delivery", "on")
    row = next(row for row in owned.vsans() if row["vsanIndex"] == 50)
    assert (row["vsanName"], row["vsanAdminState"], row["vsanInterOperType"], row["vsanInorderDelivery"]) == \
        (b"tests", 2, 2, 1)
    changed = tool.json("vsan", "set", 50, "--state", "active", "--interop", "none", "--drop-latency", 700)
    assert (changed["name"], changed["state"], changed["interop"]) == ("tests", "active", 100)
    assert "exists" in tool.refused("vsan", "create", 50)
    assert "name" in tool.refused("vsan", "set", 50, "--name", "a b").lower()
    tool("port", "move", "fc1", 50)
    assert tool.json("vsan", "delete", 50) == {"id": 50, "movedPorts": 1}
    assert "50" in tool.refused("vsan", "delete", 50)
    assert "1" in tool.refused("vsan", "delete", 1)
    owned.kill()
    owned.start()
    assert [row["vsanIndex"] for row in owned.vsans()] == [1, 10, 20]


def test_port_is_moved_plugged_and_denied(tool):
    for words in (("port", "move", "fc3", 10), ("port", "down", FC3), ("port", "deny", "fc3", "0x5")):
        tool(*words)
    shown = tool.json("port", "show", FC3)
    assert re.fullmatch(r"20:03(:[0-9a-f]{2}){6}", shown.pop("wwn"))
    assert shown == {"ifIndex": FC3, "name": "fc3", "vsan": 10, "link": "down", "oper": "down", "denyList": 5,
                     "enabled": True, "alias": "", "speedMbps": 8000, "traps": True}
    assert tool.json("port", "up", "fc3")["link"] == "up"
    assert tool.json("vsan", "show", 10)["oper"] == "up"
    assert "fc7" in tool.refused("port", "up", "fc7")
    assert "12345" in tool.refused("port", "up", 12345)
    assert "VSAN does not exist" in tool.refused("port", "move", "fc3", 99)
    for wrong in ("fc", "3x", "-1", "4294967296"):
        tool.refused("port", "up", wrong, code=2)


def test_settings_of_a_port_are_shown_and_outlive_the_switch(owned, tool):
    tool("port", "up", "fc3")
    for words in (("alias", "fc3", "B\u00fcro 3"), ("speed", FC3, 32000), ("disable", "fc3"), ("traps", "fc3", "off"),
                  ("traffic", "fc3", "--in-octets", 4294967295, "--out-discards", 1)):
        tool("port", *words)
    owned.kill()
    owned.start()
    shown = tool.json("port", "show", "fc3")
    assert {key: shown[key] for key in ("alias", "speedMbps", "enabled", "link", "oper", "traps", "traffic")} == \
        {"alias": "B\u00fcro 3", "speedMbps": 32000, "enabled": False, "link": "up", "oper": "down", "traps": False,
         "traffic": {"inOctets": 4294967295, "outDiscards": 1}}
    text = tool("port", "show", "fc3")
    for part in ("B\u00fcro 3", "disabled, link up, operationally down", "32000 Mbit/s", "out-discards 1 a second"):
        assert part in text, text
    assert re.search(r"^fc3 +\d+ +1 +up +disabled +0 +B\u00fcro 3$", tool("port"), re.MULTILINE)
    assert "disabled" in tool("port", "up", "fc3")
    assert tool.json("port", "enable", "fc3")["oper"] == "up"
    assert "traffic" not in tool.json("port", "traffic", "fc3", "off")
    assert tool.json("port", "alias", "fc3", "")["alias"] == ""


def test_setting_of_a_port_that_cannot_be_is_refused_with_a_sentence(tool):
    before = tool.json("port")
    assert "at most 64 bytes" in tool.refused("port", "alias", "fc3", "x" * 65)
    assert "at most 64 bytes" in tool.refused("port", "alias", "fc3", "\u00fc" * 33)
    assert "control characters" in tool.refused("port", "alias", "fc3", "two\nlines")
    assert "UTF-8" in tool.refused("port", "alias", "fc3", os.fsdecode(b"\xff"), code=2)
    assert "one of 2000" in tool.refused("port", "speed", "fc3", 1000)
    assert "fc7" in tool.refused("port", "disable", "fc7")
    for wrong in (("speed", "fc3"), ("speed", "fc3", "fast"), ("traps", "fc3", "maybe"), ("traffic", "fc3"),
                  ("traffic", "fc3", "on"), ("traffic", "fc3", "off", "--in-octets", 1),
                  ("traffic", "fc3", "--in-octets", 4294967296)):
        tool.refused("port", *wrong, code=2)
    assert tool.json("port") == before


def test_what_the_switch_says_of_itself_outlives_it(owned, tool):
    assert tool.json("system") == {"name": "vswitch", "contact": "", "location": "", "wwn": tool.json("show")["wwn"]}
    for words in (("name", "edge-1"), ("contact", "alice@example.net"), ("location", "B\u00fcro 3")):
        tool("system", *words)
    assert "at most 255 bytes" in tool.refused("system", "name", "x" * 256)
    assert "control characters" in tool.refused("system", "name", "\x1b[2J")
    owned.kill()
    owned.start()
    assert re.search(r"edge-1\n.*alice@example.net\n.*B\u00fcro 3\n", tool("system"))
    assert tool.json("system", "name", "")["name"] == ""


def test_role_restricts_at_once_and_stays(owned, tool, start_agent):
    client = NetSnmp(start_agent(owned), user="limited")
    assert len(client.walk(ARCS["vsanName"])) == 3
    tool("role", "add", "tapes", "--vsans", "1,11-30", "--interfaces", FC3, "--users", "limited,alice")
    assert [b.oid[-1] for b in client.walk(ARCS["vsanName"])] == [1, 20]
    assert "exists" in tool.refused("role", "add", "tapes")
    tool("role", "add", "tapes", "--vsans", "10", "--users", "limited", "--replace")
    assert [b.oid[-1] for b in client.walk(ARCS["vsanName"])] == [10]
    owned.restart()
    assert tool.json("role", "list") == {"roles": [
        {"name": "tapes", "vsans": ["10"], "interfaces": [], "users": ["limited"]}]}
    tool("role", "remove", "tapes")
    assert "nobody" in tool("role")
    tool.refused("role", "remove", "tapes")
    tool.refused("role", "add", "tapes", "--vsans", "5-1")


def test_timers_are_set_for_the_switch_and_for_a_vsan(tool):
    tool("timers", "set", "ratov", 12000)
    tool("timers", "set", "ratov", 20000, "--vsan", 10)
    tool("timers", "set", "switch-latency", 700)
    tool("timers", "set", "inorder-delivery", "on")
    shown = tool.json("timers", "show", "--vsan", 10)
    assert (shown["switch"]["ratov"], shown["switchLatency"], shown["inorderDelivery"]) == (12000, 700, True)
    assert shown["vsans"][0]["own"] == {"ratov": 20000}
    tool.refused("timers", "set", "edtov", 20000, "--vsan", 10)
    tool("timers", "set", "edtov", 20000, "--vsan", 10, "--force")
    tool.refused("timers", "set", "ratov", "soon", code=2)
    tool.refused("timers", "set", "inorder-delivery", "1", code=2)


def test_distribution_session_is_pending_until_it_is_committed(tool):
    tool("tdx", "enable")
    assert "once it is committed" in tool("timers", "set", "ratov", 20000, "--vsan", 10)
    assert "VSAN 10: ratov 20000 ms" in tool("tdx", "pending")
    tool.refused("tdx", "disable")
    tool("tdx", "commit")
    assert tool.json("timers", "show", "--vsan", 10)["vsans"][0]["distributed"]["ratov"] == 20000
    tool("timers", "set", "ratov", 30000, "--vsan", 10)
    tool("tdx", "abort")
    assert "user" not in tool.json("tdx", "show")
    tool("tdx", "show-run", "on")
    assert tool.json("tdx", "disable") == {
        "enabled": False, "showRun": True, "refusing": False, "pending": [], "more": False}


def test_filters_reach_the_agent_and_its_history_comes_back(owned, tool, start_agent):
    client = NetSnmp(start_agent(owned))
    assert "No agent" in tool("event-history")
    tool("debug", "set", "trace", "history", "on")
    deadline = time.monotonic() + 15
    records = []
    while not records and time.monotonic() < deadline:  # the agent looks at its filters now and then
        client.get(cell("vsanName", 10))
        histories = tool.json("event-history", "--class", "trace")["histories"]
        records = histories[0]["records"] if histories else []
    assert records and all(record["class"] == 101 for record in records)
    last = tool("event-history", "--last", 1).splitlines()
    assert len(last) == 1 and " 101: " in last[0]
    assert "nowhere" in tool.refused("event-history", "--name", "nowhere")


def test_the_history_can_be_read_when_the_switch_is_dead(owned, tool, start_agent):
    client = NetSnmp(start_agent(owned), user="private")
    owned.kill()
    assert "No switch runs" in tool.refused("show")
    with pytest.raises(SnmpError):
        client.set((cell("vsanName", 10), "s", "other"))
    (history,) = tool.json("event-history")["histories"]
    assert history["name"] == "snmpd" and history["records"], history
    assert all(record["class"] == 100 for record in history["records"])
    printed = tool("event-history").splitlines()
    lines = [line for line in (owned.run_dir / "history.snmpd").read_text().split("\n") if line]
    assert len(printed) == len(lines) == len(history["records"])
    for shown, line, record in zip(printed, lines, history["records"]):
        assert record["text"] == record["text"].rstrip() and record["text"].isprintable()
        assert shown.endswith(": " + record["text"]) and line.endswith(" " + record["text"])


def test_watch_prints_each_event_in_words(tool):
    watching = tool.watch("--events-only", "--count", "17")
    tool("vsan", "create", 50)
    tool("port", "move", "fc3", 50)
    tool("port", "up", "fc3")
    tool("vsan", "set", 50, "--name", "fifty")
    tool("timers", "set", "ratov", 20000, "--vsan", 50)
    tool("vsan", "set", 50, "--state", "suspended")
    tool("vsan", "delete", 50)
    tool("port", "disable", "fc3")
    tool("port", "enable", "fc3")
    tool("port", "alias", "fc3", "tape")
    tool("timers", "set", "network-latency", 3000)
    tool("system", "location", "rack 7")
    assert watching.wait(15) == 0
    text = watching.text()
    for words in ("VSAN 50 created", "port fc3 moved from VSAN 1 to VSAN 50", "VSAN 50 went up",
                  "port fc3 went up", "VSAN 50 is called fifty", "ratov of VSAN 50 is 20000, was the switch's",
                  "VSAN 50 suspended", "VSAN 50 deleted", "port fc3 disabled, went down",
                  "port fc3 enabled, went up", "port fc3 alias changed", "network-latency is 3000, was 2000",
                  "the switch's location is rack 7"):
        assert words in text, text


def test_watch_for_no_event_ends_at_once(tool):
    watching = tool.watch("--events-only", "--count", "0")
    assert watching.wait(15) == 0
    assert watching.text().strip() == "watching; Ctrl-C ends"


def test_watch_prints_one_json_object_a_line(tool):
    watching = tool.watch("--events-only", "--count", "3", "--json")
    tool("fault", "storm", 2, "--vsan", 10)
    tool("port", "move", "fc3", 20)
    assert watching.wait(15) == 0
    events = [json.loads(line) for line in watching.lines if line.startswith("{")]
    assert [event["event"] for event in events] == ["vsan", "vsan", "port"]
    assert [events[2][key] for key in ("ifIndex", "name", "formerVsan", "vsan")] == [FC3, "fc3", 1, 20]


def test_watch_prints_ports_and_settings_as_json(tool):
    watching = tool.watch("--events-only", "--count", "5", "--json")
    tool("port", "disable", "fc3")
    tool("port", "up", "fc4")
    tool("vsan", "set", 20, "--name", "other")
    tool("timers", "set", "ratov", 20000, "--vsan", 20)
    assert watching.wait(15) == 0
    vsan_up, *events = sorted((json.loads(line) for line in watching.lines if line.startswith("{")),
                              key=lambda event: event["class"])
    assert (vsan_up["event"], vsan_up["vsan"], vsan_up["oper"]) == ("vsan", 1, "up")
    for event in events:
        event.pop("time")
        event.pop("moment", None)
    assert events == [
        {"event": "interface", "class": 301, "ifIndex": FC3, "name": "fc3", "changes": ["admin"], "formerAdmin": "up",
         "admin": "down", "formerOper": "down", "oper": "down", "traps": True},
        {"event": "interface", "class": 301, "ifIndex": FC3 + 0x1000, "name": "fc4", "changes": ["oper"],
         "formerAdmin": "up", "admin": "up", "formerOper": "down", "oper": "up", "traps": True},
        {"event": "setting", "class": 302, "setting": "vsan-name", "vsan": 20, "text": "other"},
        {"event": "setting", "class": 302, "setting": "ratov", "vsan": 20, "value": 20000, "former": 0}]


def test_without_a_switch_every_command_but_one_says_so(folder):
    asking = [words for words in LOOKS if words != ("event-history",)]
    for words in asking + [("watch",), ("vsan", "delete", 10), ("fault", "add", "drop")]:
        done = subprocess.run([VSWITCHCTL, *map(str, words), "--run", folder], capture_output=True, text=True,
                              timeout=20)
        assert done.returncode == 1, words
        assert done.stderr.startswith("vswitchctl: No switch runs at ") and str(folder) in done.stderr, done
        assert len(done.stderr.splitlines()) == 1


def test_switch_that_does_not_answer_is_given_up(owned, tool):
    owned.suspend()
    done = subprocess.run([VSWITCHCTL, "vsan", "--run", owned.run_dir], capture_output=True, text=True, timeout=60)
    owned.resume()
    assert done.returncode == 1 and "does not answer" in done.stderr


@pytest.mark.skipif(os.geteuid() != 0, reason="only root can have somebody else listen")
def test_stranger_in_the_switchs_place_gets_no_command(manager):
    manager.listen_as("nobody")
    for words in (("show",), ("vsan", "create", "50"), ("watch",)):
        command = [VSWITCHCTL, *words, "--run", manager.run_dir]
        done = subprocess.run(command, capture_output=True, text=True, timeout=20)
        assert done.returncode == 1 and f"Who listens at {manager.run_dir}/mts.sock is not trusted" in done.stderr
    assert not manager.requests


@pytest.mark.parametrize("words", [
    (), ("fly",), ("vsan", "fly"), ("vsan", "show"), ("vsan", "show", "ten"), ("vsan", "show", "10", "20"),
    ("vsan", "set", "10"), ("vsan", "create", "50", "--state", "gone"), ("vsan", "create", "50", "--mtu", "0x"),
    ("vsan", "create", "50", "--mtu", "4294967296"), ("fault", "add"), ("fault", "add", "status"),
    ("fault", "add", "drop", "5"), ("fault", "add", "delay", "soon"), ("fault", "add", "drop", "--port", "x"),
    ("debug", "set", "101", "history"), ("tdx", "show-run", "maybe"), ("watch", "--count", "-1"), ("--jason", "show"),
], ids=" ".join)
def test_wrong_command_line_ends_with_2_and_needs_no_switch(words):
    done = subprocess.run([VSWITCHCTL, "--run", "/nonexistent", *words], capture_output=True, text=True, timeout=20)
    assert done.returncode == 2, done
    assert done.stderr.strip() and not done.stdout


def test_every_command_has_help_with_examples_that_are_understood(tool):
    commands = list(all_commands())
    assert len(commands) > 25
    for command in commands:
        text = help_of(*command)
        examples = re.findall(r"^  vswitchctl (.*)$", text.partition("Examples:")[2], re.MULTILINE)
        assert examples, command
        for example in examples:
            assert example.split()[: len(command)] == list(command), example
            if command != ("watch",):  # it would wait for events
                done = tool.run(*example.split())
                assert done.returncode in (0, 1), (example, done)


# Faults, seen by the switch's clients.

def test_fault_status_is_answered_as_often_as_asked(owned, tool):
    tool("fault", "add", "status", "no-such-vsan", "--opcode", "vsan", "--vsan", 10, "--times", 2)
    assert ask(owned, 20).status == 0
    assert [ask(owned, 10).status for _ in range(3)] == [wire.NO_SUCH_VSAN, wire.NO_SUCH_VSAN, 0]
    assert tool.json("fault") == {"faults": [], "applied": 2}
    tool("fault", "add", "status", "0x40190004", "--with-data")
    reply = ask(owned, 10)
    assert reply.status == 0x40190004 and len(reply.data) == wire.BLOCK_SIZE
    tool("fault", "clear")
    assert ask(owned, 10).status == 0


def test_fault_no_data_and_short_change_the_reply(owned, tool):
    tool("fault", "add", "no-data", "--times", 1)
    tool("fault", "add", "short", 600, "--times", 1)
    first = ask(owned, 10)
    assert first.status == 0 and first.data is None
    assert len(ask(owned, 10).data) == 600
    assert len(ask(owned, 10).data) == wire.BLOCK_SIZE


def test_fault_delay_holds_up_its_connection_only_and_in_order(owned, tool):
    tool("fault", "add", "delay", 700, "--opcode", "vsan")
    with owned.connect() as slow, owned.connect() as neighbour:
        started = time.monotonic()
        slow.socket.sendall(
            wire.frame(wire.REQUEST, 1, wire.request_body(
                wire.SERVICE_VSAN, wire.VSAN, payload=wire.vsan_block(vsanIndex=10)))
            + wire.frame(wire.PING, 2))
        for _ in range(20):
            neighbour.ping()
        assert neighbour.counters()["connections"] >= 2
        assert time.monotonic() - started < 0.7, "the neighbour was held up"
        assert wire.receive_frame(slow.socket)[:2] == (wire.REPLY, 1)
        assert time.monotonic() - started >= 0.7
        assert wire.receive_frame(slow.socket)[:2] == (wire.PONG, 2)


def test_fault_delay_does_not_hold_up_the_end_of_the_switch(owned, tool):
    tool("fault", "add", "delay", 600000)
    with owned.connect() as slow:
        slow.socket.sendall(wire.frame(wire.REQUEST, 1, wire.request_body(
            wire.SERVICE_VSAN, wire.VSAN, payload=wire.vsan_block(vsanIndex=10))))
        while tool.json("fault")["applied"] == 0:
            pass
        owned.stop()


def test_fault_drop_leaves_the_request_unanswered_and_serves_the_next(owned, tool):
    tool("fault", "add", "drop", "--vsan", 10, "--times", 1)
    with owned.connect() as connection:
        connection.socket.sendall(wire.frame(wire.REQUEST, 1, wire.request_body(
            wire.SERVICE_VSAN, wire.VSAN, payload=wire.vsan_block(vsanIndex=10))) + wire.frame(wire.PING, 2))
        assert wire.receive_frame(connection.socket)[:2] == (wire.PONG, 2)
    assert tool.json("fault")["applied"] == 1


def test_fault_close_ends_one_connection_and_blames_nobody(owned, tool):
    tool("fault", "add", "close", "--times", 1)
    with owned.connect() as connection, owned.connect() as neighbour:
        connection.socket.sendall(wire.frame(wire.REQUEST, 1, wire.request_body(
            wire.SERVICE_VSAN, wire.VSAN, payload=wire.vsan_block(vsanIndex=10))))
        assert connection.is_closed_by_peer()
        neighbour.ping()
        assert neighbour.counters()["dropped_connections"] == 0


def test_fault_exit_ends_the_switch_with_3_and_is_gone_after_a_restart(owned, tool):
    before = owned.vsans()
    tool("fault", "add", "exit", "--opcode", "vsan", "--vsan", 10)
    with owned.connect() as connection:
        connection.socket.sendall(wire.frame(wire.REQUEST, 1, wire.request_body(
            wire.SERVICE_VSAN, wire.VSAN, payload=wire.vsan_block(vsanIndex=10))))
        assert connection.is_closed_by_peer()
    assert owned.process.wait() == 3
    owned.start()
    assert owned.vsans() == before
    assert tool.json("fault")["faults"] == []


def test_faults_reach_through_the_agent(owned, tool, start_agent):
    agent = start_agent(owned)
    client = NetSnmp(agent, timeout=20)
    name = cell("vsanName", 10)
    assert client.get(name)[0].value == b"x" * 32
    for words in (("status", "no-such-vsan"), ("short", 600), ("drop",), ("close",)):
        tool("fault", "add", *words, "--opcode", "vsan", "--vsan", 10, "--kind", "get")
        assert client.get(name)[0].kind in ("noSuchInstance", "noSuchObject"), words
        assert client.get(cell("vsanName", 20))[0].value == b"lab", words
        tool("fault", "clear")
        assert client.get(name)[0].value == b"x" * 32, words
    started = time.monotonic()
    tool("fault", "add", "delay", 400, "--opcode", "vsan", "--times", 1)
    assert client.get(name)[0].value == b"x" * 32
    assert time.monotonic() - started >= 0.4
    tool("fault", "add", "status", "store-failed", "--opcode", "vsan", "--kind", "set")
    with pytest.raises(SnmpError):
        NetSnmp(agent, user="private", timeout=20).set((name, "s", "other"))
    assert owned.vsans()[1]["vsanName"] == b"x" * 32
    tool("fault", "clear")
    tool("fault", "add", "exit", "--opcode", "vsan-count")
    assert client.get(scalar("vsanNumber"))[0].kind in ("noSuchInstance", "noSuchObject", "INTEGER")
    assert owned.process.wait() == 3
    owned.start()
    assert client.get(scalar("vsanNumber"))[0].value == 3


def documented_examples():
    """(command, output) for each command shown with its output in the tool's documentation, but for those
    that need an agent, too."""
    text = (REPOSITORY / "docs" / "vswitchctl.md").read_text()
    for block in re.findall(r"^```\n(\$ .*?)^```$", text, re.MULTILINE | re.DOTALL):
        for example in re.split(r"^\$ ", block, flags=re.MULTILINE)[1:] if "$ snmp" not in block else ():
            command, _, output = example.partition("\n")
            yield command, output


WWN = r"[0-9a-f]{2}(:[0-9a-f]{2}){7}"


def test_examples_of_the_documentation_are_true(start_switch, folder):
    tool = OperatorTool(start_switch())
    examples = [(command, output) for command, output in documented_examples() if " watch" not in command]
    assert len(examples) > 10
    for command, output in examples:
        assert command.startswith("vswitchctl ")
        done = tool.shell(command, folder)
        printed = re.sub(r"(?<=Session of ).*", "root", done.stdout + done.stderr)
        assert re.sub(WWN, "WWN", printed) == re.sub(WWN, "WWN", output), command
