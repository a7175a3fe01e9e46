# SPDX-License-Identifier: Apache-2.0
"""The configuration as a whole, with the real tool: out, in, as a database, and several changes as one;
and what SNMP sees of it."""

import json
import os
import random
import signal
import subprocess
import threading

import pytest

from harness import wire
from harness.build import AGENT_PRELOAD, REPOSITORY
from harness.clients import NetSnmp
from harness.notifications import SINKS, Receiver, membership_change, port_manager_value, status_change, watch
from harness.oids import ARCS, cell, scalar
from harness.operator_tool import VSWITCHCTL, OperatorTool
from harness.switch import VirtualSwitch

INITIAL = {
    "vsans": [{"id": 10, "name": "prod", "timers": {"ratov": 20000}}, {"id": 20, "name": "lab", "state": "suspended"}],
    "ports": [{"ifIndex": 5, "vsan": 10}, {"ifIndex": 6, "link": "down"}, {"ifIndex": 7, "alias": "B\u00fcro \"1\""}],
    "tdx": {"fctimer": {"timers": {"10": {"fstov": 7000}}}},
    "roles": [{"name": "tapes", "vsans": ["20"], "users": ["alice"]}],
}


@pytest.fixture
def exported(tool, folder):
    """A file with what the tool exports."""
    path = folder / "switch.json"
    path.write_text(tool("export"))
    return path


def everything():
    """The largest switch, with all that it can have."""
    timers = {"edtov": 3000, "ratov": 30000, "dstov": 6000, "fstov": 7000}
    return {
        "vsans": [{"id": vsan, "name": f"{'x' * 27}-{vsan}", "state": "suspended", "mtu": 2000 + vsan,
                   "loadBalancing": "srcIdDestId", "interop": 3, "inorderDelivery": True, "networkDropLatency": 700,
                   "timers": timers} for vsan in range(1, 4096)],
        "ports": [{"ifIndex": 100 + port, "vsan": 1 + port % 4095, "alias": "\u00fc" * 32, "denyList": 7,
                   "traffic": {"inOctets": 4294967295}} for port in range(4096)],
        "tdx": {"fctimer": {"timers": {str(vsan): timers for vsan in range(1, 4096)}}},
    }


# Several changes as one.

def test_changes_with_two_dashes_between_are_printed_as_if_alone(owned, tool):
    printed = tool("vsan", "create", 50, "--name", "new", "--", "port", "move", "fc1", 50, "--", "port", "up", "fc2")
    shown = tool("vsan", "show", 50).replace("operationally up", "operationally down").replace("1, 1 of", "0, 0 of")
    assert printed == shown + ("Port 5 (fc1): VSAN 50, link up, deny list 0\n"
                               "Port 6 (fc2): VSAN 1, link up, deny list 0\n")
    replies = tool.json("vsan", "delete", 50, "--", "port", "down", "fc2")
    assert replies[0] == {"id": 50, "movedPorts": 1} and replies[1]["link"] == "down"
    owned.kill()
    owned.start()
    assert [row["vsanIndex"] for row in owned.vsans()] == [1, 10, 20]


def test_refused_change_is_named_and_none_is_made(owned, tool, exported):
    said = tool.refused("vsan", "create", 50, "--", "vsan", "delete", 1, "--", "role", "add", "x")
    assert "command 2, vsan delete" in said and "VSAN 1 cannot be deleted" in said
    assert tool("export") == exported.read_text()
    owned.kill()
    owned.start()
    assert tool("export") == exported.read_text()


@pytest.mark.parametrize("words,named", [
    (["vsan", "create", "50", "--", "show"], "show"),
    (["watch", "--", "vsan", "create", "50"], "watch"),
    (["vsan", "create", "50", "--", "fault", "clear"], "fault clear"),
    (["vsan", "create", "50", "--", "import", "x"], "import"),
    (["vsan", "create", "50", "--", "vsan", "delete", "--help"], "vsan delete"),
    (["vsan", "create", "50", "--"], "A command is missing"),
    (["--", "vsan", "create", "50"], "A command is missing"),
    (["vsan", "create", "50", "--", "--", "vsan", "create", "51"], "A command is missing"),
    (["vsan", "create", "50", "--", "vsan", "cretae", "51"], "vsan create"),
])
def test_what_cannot_be_one_of_several_is_a_usage_error(tool, words, named):
    assert named in tool.refused(*words, code=2)
    assert [vsan["id"] for vsan in tool.json("vsan")["vsans"]] == [1, 10, 20]


def test_two_dashes_before_no_command_end_the_options(tool):
    tool("role", "add", "--", "-odd")
    assert [role["name"] for role in tool.json("role")["roles"]][-1] == "-odd"
    tool("role", "remove", "--", "-odd")
    assert tool("vsan", "show", "--", 10) == tool("vsan", "show", 10)


def test_export_to_a_full_disk_says_so(tool):
    with open("/dev/full", "w", encoding="ascii") as full:
        done = subprocess.run([VSWITCHCTL, "--run", tool.run_dir, "export"], stdout=full, stderr=subprocess.PIPE,
                              text=True, timeout=60)
    assert (done.returncode, done.stderr) == (
        1, "vswitchctl: Cannot write all of it to standard output: No space left on device.\n")


def test_absence_and_existence_can_be_asked_for(tool):
    assert tool("vsan", "delete", 50, "--if-exists") == "There was no VSAN 50\n"
    assert tool("role", "remove", "x", "--if-exists") == "There was no role x\n"
    assert tool("role", "remove", "tapes", "--if-exists") == "Role tapes removed\n"
    assert "drop latency     700 ms" in tool("vsan", "create", 10, "--may-exist", "--drop-latency", 700)
    assert tool.json("vsan", "show", 10)["name"] == "prod"
    tool("role", "add", "ops", "--users", "bob", "--vsans", "1")
    assert tool.json("role", "add", "ops", "--may-exist", "--vsans", "2")["users"] == ["bob"]


def test_ten_thousand_changes_are_one_upload(start_switch):
    """As many words as a command line may have, and more than one request has room for."""
    tool = OperatorTool(start_switch(initial={"vsans": []}))
    words = []
    for vsan in range(2, 4000):
        words += ["vsan", "create", vsan, "--name", f"name-{vsan}", "--"]
    replies = json.loads(tool(*words, "vsan", "set", 3999, "--mtu", 99, "--json"))
    assert len(replies) == 3999 and replies[-1]["name"] == "name-3999"
    assert len(tool.json("vsan")["vsans"]) == 3999


# Export and import.

def test_switch_started_from_an_export_exports_the_same_bytes(tool, exported, started):
    other = started.add(VirtualSwitch(started.folders.make()))
    other.options = ["--initial", str(exported)]
    other.start()
    assert OperatorTool(other)("export") == exported.read_text()
    assert OperatorTool(other).json("role") == tool.json("role")
    other.restart()
    assert OperatorTool(other)("export") == exported.read_text()
    third = started.add(VirtualSwitch(started.folders.make()))
    third.command = lambda: ["bash", "-c", 'exec "$0" "$@" <' + str(exported), *VirtualSwitch.command(third),
                             "--initial", "-"]
    third.start()
    assert OperatorTool(third)("export") == exported.read_text()
    assert json.loads(exported.read_text())["format"] == 1


def test_import_undoes_whatever_was_changed(owned, tool, exported):
    for words in (["vsan", "delete", 10], ["vsan", "create", 11, "--name", "prod"], ["port", "alias", "fc3", "x"],
                  ["timers", "set", "dstov", 9000], ["role", "remove", "tapes"], ["system", "name", "other"],
                  ["tdx", "refuse", "on"], ["port", "traffic", "fc1", "--in-octets", 5]):
        tool(*words)
    told = tool("import", exported, "--dry-run").splitlines()
    for line in ("port fc1 moved from VSAN 1 to VSAN 10", "VSAN 11 deleted", "VSAN 10 created, active and up",
                 "port fc3 alias changed", "dstov is 5000, was 9000", "the switch's name is vswitch",
                 "role tapes added", "tdxRefuse of the switch is off, was on"):
        assert line in told, (line, told)
    assert tool("export") != exported.read_text()
    as_json = json.loads(tool("import", exported, "--dry-run", "--json"))
    assert as_json["changed"] and len(as_json["changes"]) == len(told)
    assert {"event": "port", "class": 102, "ifIndex": 5, "formerVsan": 1, "vsan": 10, "name": "fc1"} in \
        as_json["changes"]
    events = tool.watch()
    assert tool("import", exported) == f"The switch is now as {exported} says\n"
    events.wait_line("VSAN 10 created, active and up")
    events.wait_line("the switch's name is vswitch")
    assert tool("export") == exported.read_text()
    owned.kill()
    owned.start()
    assert tool("export") == exported.read_text()


def test_import_takes_standard_input(tool, exported):
    assert tool("import", exported, "--dry-run") == "Nothing would change\n"
    tool("vsan", "delete", 10)
    assert tool.shell("vswitchctl import - <switch.json", exported.parent).returncode == 0
    assert tool("export") == exported.read_text()


def test_largest_switch_goes_out_and_in_and_serves_meanwhile(start_switch, folder):
    whole = start_switch(initial=everything())
    tool = OperatorTool(whole)
    text = tool("export")
    assert text.count("\n") > 8191
    (folder / "whole.json").write_text(text)
    tool("import", folder / "whole.json")
    assert tool("export") == text
    served, stop = [], threading.Event()

    def ask():
        with whole.connect() as client:
            while not stop.is_set():
                served.append(client.request(wire.SERVICE_VSAN, wire.VSAN, payload=wire.vsan_block(vsanIndex=7)).status)

    thread = threading.Thread(target=ask)
    thread.start()
    try:
        tool("backup", folder / "whole.db")
        exports = [subprocess.Popen([VSWITCHCTL, "--run", tool.run_dir, "export"], stdout=subprocess.PIPE, text=True)
                   for _ in range(1 if AGENT_PRELOAD else 4)]  # with sanitizers each takes seconds
        assert {process.communicate(timeout=60)[0] == text for process in exports} == {True}
    finally:
        stop.set()
        thread.join()
    assert set(served) == {0} and len(served) > 10


def test_random_changes_in_between_are_undone_by_an_import(tool, exported):
    draw = random.Random(3)
    for _ in range(5):
        for _ in range(20):
            vsan = draw.randrange(1, 30)
            words = draw.choice([["vsan", "create", vsan], ["vsan", "delete", vsan], ["port", "move", "fc1", vsan],
                                 ["port", "down", "fc3"], ["timers", "set", "ratov", draw.randrange(5000, 90000)],
                                 ["vsan", "set", vsan, "--state", "suspended"]])
            tool.run(*words)
        tool("import", exported)
        assert tool("export") == exported.read_text()


HOSTILE = {
    "nothing": (b"", "not valid JSON"),
    "unfinished": (b"{\n\n\"vsans\": [", "in line 3"),
    "deep": (b"{\"vsans\": " + b"[" * 1000000, "nested too deeply"),
    "huge number": (b"{\"vsans\": [{\"id\": 1" + b"0" * 100000 + b"}]}", "too large"),
    "key given twice": (b"{\"system\": {}, \"system\": {}}", "given twice"),
    "nul": (b"{\"system\": {\"name\": \"a\0b\"}}", "not valid JSON"),
    "escaped nul": (b"{\"system\": {\"name\": \"a\\u0000b\"}}", "control characters"),
    "no utf-8": (b"{\"system\": {\"name\": \"\xff\"}}", "not valid JSON"),
    "another release": (b"{\"format\": 2}", "\"format\" must be 1"),
    "unknown key": (b"{\"vsan\": []}", "unknown key \"vsan\""),
    "another switch": (b"{\"wwn\": \"10:00:00:00:00:00:00:01\"}", "10:00:00:00:00:00:00:01"),
    "other ports": (b"{\"portCount\": 3}", "no port 5"),
}


@pytest.mark.parametrize("kind", HOSTILE)
def test_bad_file_is_one_sentence_that_names_it_and_changes_nothing(tool, exported, folder, kind):
    content, reason = HOSTILE[kind]
    path = folder / "bad.json"
    path.write_bytes(content)
    for words in (["import", path], ["import", path, "--dry-run"]):
        said = tool.refused(*words)
        assert len(said.splitlines()) == 1 and reason in said and str(path) in said, said
    assert tool("export") == exported.read_text()


def test_huge_file_is_refused_by_its_size(tool, folder):
    path = folder / "huge.json"
    with open(path, "wb") as huge:
        huge.truncate(1 << 30)
    assert "larger than 8388608 bytes" in tool.refused("import", path)
    assert "larger than" in tool.refused("import", "/dev/zero")
    assert "No such file" in tool.refused("import", folder / "missing.json")


def test_import_is_refused_while_a_session_is_open(tool, exported):
    for words in (["tdx", "enable"], ["timers", "set", "ratov", 30000]):
        tool(*words)
    assert "session open" in tool.refused("import", exported)
    tool("tdx", "abort")
    tool("import", exported)
    assert tool("export") == exported.read_text()


def test_files_of_earlier_releases_go_on_working(start_switch):
    for path in sorted((REPOSITORY / "tests/agent/configurations").glob("*.json")):
        text = path.read_text()
        tool = OperatorTool(start_switch(initial=json.loads(text)))
        tool("import", path)
        vsans = {vsan["id"]: vsan for vsan in tool.json("vsan")["vsans"]}
        for vsan in json.loads(text).get("vsans", []):
            assert vsans[vsan["id"]]["inorderDelivery"] == (vsan.get("inorderDelivery") == 1), path


# What SNMP sees.

def test_snmp_sees_what_is_imported_and_is_notified(owned, tool, exported, started, start_agent):
    receiver = started.add(Receiver(started.folders.make())).start()
    agent = watch(owned, start_agent, SINKS["v2c trap"].format(port=receiver.port))
    client = NetSnmp(agent)
    changed = json.loads(exported.read_text())
    changed["vsans"] = [{"id": 1}, {"id": 20, "name": "prod", "state": "active"}, {"id": 30}]
    changed["ports"][0]["vsan"] = 20
    del changed["tdx"]
    exported.write_text(json.dumps(changed))
    tool("import", exported)
    receiver.wait_for(membership_change(port_manager_value(owned), 5, 20), status_change(20, 1, 1))
    assert {row.oid[-1]: row.value for row in client.walk(ARCS["vsanName"])} == \
        {1: b"VSAN0001", 20: b"prod", 30: b"VSAN0030"}
    assert client.get(cell("vsanAdminState", 20))[0].value == 1
    assert client.get(scalar("vsanNumber"))[0].value == 3


# Backup.

def test_state_folder_starts_from_a_backup(tool, exported, folder, started):
    assert tool("backup", folder / "b.db") == f"{folder / 'b.db'} holds the switch's database\n"
    assert (folder / "b.db").stat().st_mode & 0o777 == 0o600
    other = started.add(VirtualSwitch(started.folders.make()))
    (other.state / "switch.db").write_bytes((folder / "b.db").read_bytes())
    (other.state / "roles.json").write_bytes((tool.run_dir.parent / "state/roles.json").read_bytes())
    other.start()
    assert OperatorTool(other)("export") == exported.read_text()


def test_existing_file_is_replaced_only_by_force(tool, folder):
    path = folder / "b.db"
    path.write_text("mine")
    assert "--force" in tool.refused("backup", path)
    assert path.read_text() == "mine"
    tool("backup", path, "--force")
    assert path.read_bytes().startswith(b"SQLite format 3\0")
    assert "No such file" in tool.refused("backup", folder / "missing/b.db")
    assert os.listdir(folder) == ["b.db"]


def test_backup_never_replaces_what_is_no_file(tool, folder):
    os.mkfifo(folder / "pipe")
    for words in (("backup", folder / "pipe", "--force"), ("backup", folder, "--force")):
        assert "is no regular file" in tool.refused(*words)
    assert (folder / "pipe").is_fifo()


def test_backup_without_room_leaves_nothing(tool, folder):
    done = tool.shell("ulimit -f 1; vswitchctl backup b.db", folder)
    assert done.returncode == 1 and "File too large" in done.stderr, done
    assert os.listdir(folder) == []


def test_interrupted_backup_leaves_nothing(owned, tool, folder):
    owned.suspend()
    process = subprocess.Popen([VSWITCHCTL, "--run", tool.run_dir, "backup", folder / "b.db"])
    process.send_signal(signal.SIGINT)
    process.wait(timeout=60)
    owned.resume()
    assert os.listdir(folder) == []
    tool("backup", folder / "b.db")
