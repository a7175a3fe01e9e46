# SPDX-License-Identifier: Apache-2.0
"""`vswitchctl counters`: what a client's messages cost, counted where the agent asks and where the switch
answers; and the agents' files, which the tool does not trust."""

import json
import os
import pwd
import re
import shutil
import struct
import subprocess

import pytest

from harness import wire
from harness.agent import BY_EXTENSION
from harness.build import LIBRARIES, REPOSITORY
from harness.clients import EXCEPTIONS, NetSnmp
from harness.oids import ARCS, COLUMNS, cell
from harness.operator_tool import OperatorTool

VSAN_GET = (wire.SERVICE_VSAN, wire.VSAN, wire.GET)
VSAN_GETNEXT = (wire.SERVICE_VSAN, wire.VSAN, wire.GETNEXT)
SIZE = 16 + 65 * 40
INITIAL = {"vsans": [{"id": 10}, {"id": 20}], "portCount": 4}


def table(report):
    """The rows by service, opcode and kind."""
    return {(row["service"], row["opcode"], row["kind"]): row for row in report["requests"]}


def of(report, key):
    """A row's asked, answered, refused, unanswered."""
    row = table(report).get(key)
    return row and (row["asked"], row["answered"], row["refused"], row["unanswered"])


def files(owned):
    return sorted(path.name for path in owned.run_dir.iterdir() if path.name.startswith("requests."))


def test_poll_costs_what_both_sides_counted_since_the_reset(owned, tool, start_agent):
    client = NetSnmp(start_agent(owned))
    client.walk(ARCS["vsanName"])
    tool("counters", "--reset")
    with owned.counting() as served:
        client.walk(ARCS["vsanName"])
        client.get(*(cell(name, 10) for name in COLUMNS))
    report = tool.json("counters")
    assert {key: row["answered"] for key, row in table(report).items()} == served.requests
    assert {key: row["asked"] for key, row in table(report).items()} == served.requests
    assert of(report, VSAN_GET) == (1, 1, 0, 0)
    asked, answered, refused, unanswered = of(report, VSAN_GETNEXT)
    assert asked == answered >= 4 and unanswered == 0
    assert refused == 1, "the end of the table"


def test_reset_prints_what_was_counted_and_later_output_starts_at_0(owned, tool, start_agent):
    client = NetSnmp(start_agent(owned))
    tool("counters", "--reset")
    client.get(cell("vsanName", 10))
    assert of(tool.json("counters"), VSAN_GET) == (1, 1, 0, 0)
    client.get(cell("vsanName", 20))
    assert of(tool.json("counters", "--reset"), VSAN_GET) == (2, 2, 0, 0), "those from before are seen once more"
    assert tool.json("counters")["requests"] == []
    client.get(cell("vsanName", 10))
    assert of(tool.json("counters"), VSAN_GET) == (1, 1, 0, 0)


def test_nothing_is_lost_between_resets_while_clients_ask(owned, tool, start_agent):
    agent = start_agent(owned)
    tool("counters", "--reset")
    asked = answered = 0
    with owned.counting() as served:
        walks = [subprocess.Popen(NetSnmp(agent).command("snmpbulkwalk", agent.address, "1.3.6.1"),
                                  stdout=subprocess.DEVNULL) for _ in range(3)]
        resets = 0
        while resets < 5 or any(walk.poll() is None for walk in walks):
            report = tool.json("counters", "--reset")
            asked += sum(row["asked"] for row in report["requests"])
            answered += sum(row["answered"] for row in report["requests"])
            resets += 1
    last = tool.json("counters")
    asked += sum(row["asked"] for row in last["requests"])
    answered += sum(row["answered"] for row in last["requests"])
    assert asked == answered == sum(served.requests.values()) > 20


def test_requests_without_an_answer_and_refused_ones_are_told(owned, tool, start_agent):
    client = NetSnmp(start_agent(owned))
    client.get(cell("vsanName", 10))
    tool("counters", "--reset")
    tool("fault", "add", "drop", "--service", "vsan", "--times", 1)
    client.get(cell("vsanName", 10))
    assert of(tool.json("counters"), VSAN_GET) == (1, 0, 0, 1), "it was not carried out"
    tool("fault", "add", "no-data", "--service", "vsan", "--times", 1)
    client.get(cell("vsanName", 10))
    tool("counters", "--reset")
    client.get(cell("vsanName", 11))
    assert of(tool.json("counters"), VSAN_GET) == (1, 1, 1, 0), "there is no such VSAN"


def test_requests_while_no_switch_runs_are_unanswered(owned, tool, start_agent):
    client = NetSnmp(start_agent(owned))
    client.get(cell("vsanName", 10))
    owned.stop()
    assert client.get(cell("vsanName", 10))[0].kind in EXCEPTIONS
    owned.start()
    # What the switch was told at the last reset has gone with it.
    assert of(tool.json("counters"), VSAN_GET) == (2, 0, 0, 1)


def test_words_and_sums_stand_in_a_table_of_80_columns(owned, tool, start_agent):
    client = NetSnmp(start_agent(owned))
    client.get(cell("vsanName", 10))
    with owned.connect() as connection:
        connection.request(77, 88, 99)
    lines = tool("counters").splitlines()
    assert lines[0].split() == ["Service", "Opcode", "Kind", "Asked", "Answered", "Refused", "Unanswered"]
    rows = [line.split() for line in lines[1:]]
    assert ["vsan", "vsan", "get", "1", "1", "0", "0"] in rows
    assert ["77", "88", "99", "0", "1", "0", "0"] in rows, "a client that is no agent"
    report = tool.json("counters")["requests"]
    assert rows[-1] == ["all", *(str(sum(row[key] for row in report))
                                 for key in ("asked", "answered", "refused", "unanswered"))]
    assert max(map(len, lines)) <= 80


def test_tool_itself_counts_nothing_anybody_sees(owned, tool):
    tool("show")
    assert files(owned) == [] and tool("counters").startswith("No agent counts what it asks.\n")


def test_agents_are_added_up_and_each_has_a_file_of_its_own(owned, tool, start_agent):
    agents = [start_agent(owned) for _ in range(2)]
    tool("counters", "--reset")
    for agent in agents:
        NetSnmp(agent).get(cell("vsanName", 10))
    report = tool.json("counters")
    assert of(report, VSAN_GET) == (2, 2, 0, 0)
    pids = sorted(agent.process.pid for agent in agents)
    assert [row["pid"] for row in report["agents"]] == pids and {row["name"] for row in report["agents"]} == {"snmpd"}
    assert files(owned) == sorted(f"requests.snmpd.{pid}" for pid in pids)
    for name in files(owned):
        status = (owned.run_dir / name).stat()
        assert status.st_size == SIZE and status.st_mode & 0o022 == 0, "nobody else can change or cut it"


def test_file_goes_with_its_agent_or_with_the_next_one(owned, tool, start_agent):
    ended, killed = start_agent(owned), start_agent(owned)
    for agent in (ended, killed):
        NetSnmp(agent).get(cell("vsanName", 10))
    assert len(files(owned)) == 2
    ended.finish()
    ended.process = None
    assert files(owned) == [f"requests.snmpd.{killed.process.pid}"]
    killed.process.kill()
    killed.process = None
    assert tool.json("counters")["agents"] == [], "it counts no more"
    third = start_agent(owned)
    NetSnmp(third).get(cell("vsanName", 10))
    assert files(owned) == [f"requests.snmpd.{third.process.pid}"]


def test_file_that_was_removed_is_made_again_with_what_it_held(owned, tool, start_agent):
    agent = start_agent(owned)
    client = NetSnmp(agent)
    client.get(cell("vsanName", 10))
    for path in owned.run_dir.glob("requests.*"):
        path.unlink()
    owned.restart()
    client.get(cell("vsanName", 10))
    client.get(cell("vsanName", 10))
    assert files(owned) == [f"requests.snmpd.{agent.process.pid}"]
    asked, _, _, unanswered = of(tool.json("counters"), VSAN_GET)
    assert asked - unanswered == 3


def test_reload_of_the_agent_begins_anew(owned, tool, start_agent):
    agent = start_agent(owned)
    NetSnmp(agent).get(cell("vsanName", 10))
    tool("counters", "--reset")
    agent.reload()
    NetSnmp(agent).get(cell("vsanName", 10))
    assert of(tool.json("counters"), VSAN_GET) == (1, 1, 0, 0)
    assert len(files(owned)) == 1


@pytest.mark.skipif(os.geteuid() != 0, reason="only root can start an agent as another user")
def test_agent_that_may_not_make_a_file_serves_all_the_same(folder, start_switch, start_agent):
    # The build may lie where only its owner gets to.
    reachable = folder / "lib"
    shutil.copytree(LIBRARIES, reachable, ignore=shutil.ignore_patterns("static"))
    owned = start_switch(initial={"vsans": [{"id": 10}]}, socket_group=pwd.getpwnam("nobody").pw_gid)
    owned.folder.chmod(0o755)
    owned.run_dir.chmod(0o750)  # the group may enter, and look, and make nothing
    agent = start_agent(owned, loading=BY_EXTENSION.replace(str(LIBRARIES), str(reachable)), user="nobody")
    assert NetSnmp(agent).get(cell("vsanName", 10))[0].kind not in EXCEPTIONS
    assert files(owned) == [] and of(OperatorTool(owned).json("counters"), VSAN_GET) == (0, 1, 0, 0)


def hostile_files(path, whole):
    """What may stand in the place of an agent's file, and the name of each."""
    def write(content):
        path.write_bytes(content)

    yield "empty", lambda: write(b"")
    yield "short", lambda: write(whole[:-1])
    yield "long", lambda: write(whole + b"\0")
    yield "huge", lambda: subprocess.run(["truncate", "-s", "1G", path], check=True)
    yield "other magic", lambda: write(b"\0" + whole[1:])
    yield "other version", lambda: write(whole[:4] + struct.pack("=I", 2) + whole[8:])
    yield "a row neither used nor unused", lambda: write(whole[:28] + struct.pack("=I", 2) + whole[32:])
    yield "a folder", path.mkdir
    yield "a pipe", lambda: os.mkfifo(path)
    yield "a link", lambda: path.symlink_to("/etc/passwd")


def test_files_that_are_none_are_told_and_harm_nothing(owned, tool, start_agent):
    agent = start_agent(owned)
    NetSnmp(agent).get(cell("vsanName", 10))
    mine = owned.run_dir / f"requests.snmpd.{agent.process.pid}"
    path = owned.run_dir / "requests.evil.1"
    whole = mine.read_bytes()
    holder = ("import fcntl, sys\nfile = open(sys.argv[1])\nfcntl.flock(file, fcntl.LOCK_EX)\n"
              "print('held', flush=True)\nsys.stdin.read()")
    for name, make in hostile_files(path, whole):
        make()
        lock = None
        if path.is_file() and not path.is_symlink():
            lock = subprocess.Popen(["python3", "-c", holder, path], stdin=subprocess.PIPE, stdout=subprocess.PIPE)
            assert lock.stdout.readline() == b"held\n"
        report = tool.json("counters")
        problems = [row for row in report["agents"] if row["name"] == "evil"]
        assert len(problems) == 1 and problems[0]["problem"], name
        assert of(report, VSAN_GET) == (1, 1, 0, 0), name
        assert "The counters of evil 1 cannot be read: " in tool("counters")
        if lock:
            lock.communicate(b"")
        if path.is_dir():
            path.rmdir()
        else:
            path.unlink()


def test_names_that_are_no_files_of_agents_are_passed_over(owned, tool):
    for name in ("requests.", "requests.x", "requests..1", "requests.x.y", "requests.x.1.2", ".requests.x.1"):
        (owned.run_dir / name).write_text("x")
    assert tool.json("counters")["agents"] == []


def test_what_the_switch_keeps_of_a_reset_is_bounded(owned, tool):
    tool("counters", "--reset")
    answer = None
    with owned.connect() as connection:
        answer = connection.request(wire.SERVICE_SWITCH, wire.SWITCH_COMMAND, wire.SET,
                                    json.dumps({"command": "counters.reset", "note": "x" * 60001}).encode())
    assert answer.status != 0 and "note" in json.loads(answer.data)["error"]


def test_rows_of_an_agent_are_bounded_and_the_others_counted_in_one(owned, tool, start_agent):
    """An agent never asks for so many things; the client library's own test does."""
    agent = start_agent(owned)
    NetSnmp(agent).get(cell("vsanName", 10))
    content = (owned.run_dir / f"requests.snmpd.{agent.process.pid}").read_bytes()
    used = [struct.unpack_from("=IIII", content, 16 + 40 * row) for row in range(65)]
    assert VSAN_GET + (1,) in used and 0 < sum(row[3] for row in used) < 20
    assert all(row == (0, 0, 0, 0) for row in used if not row[3])


def test_costs_of_the_document_are_true(start_switch, start_agent):
    """The walk of the document, on the switch of the document."""
    text = (REPOSITORY / "docs" / "vswitchctl.md").read_text()
    block = re.search(r"^\$ vswitchctl counters --reset >/dev/null\n\$ snmpwalk ([^\n]*) ([\w:-]+) \| wc -l\n(\d+)\n"
                      r"\$ vswitchctl counters\n(.*?)^```$", text, re.MULTILINE | re.DOTALL)
    assert block
    owned = start_switch()
    tool, agent = OperatorTool(owned), start_agent(owned)
    client = NetSnmp(agent)
    client.walk(ARCS["vsanName"])
    tool("counters", "--reset")
    lines = client.by_name("snmpwalk", block.group(2)).splitlines()
    assert len(lines) == int(block.group(3))
    assert tool("counters") == block.group(4)


def test_more_agents_than_a_reset_can_keep_are_refused(owned, tool):
    for number in range(65):
        os.mkfifo(owned.run_dir / f"requests.evil.{number}")
    assert "more than 64 agents" in tool.refused("counters").lower()
