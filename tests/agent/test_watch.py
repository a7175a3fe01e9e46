# SPDX-License-Identifier: Apache-2.0
"""`vswitchctl watch` begins with the state that the events change, outlives the switch, and ends cleanly."""

import json
import os
import signal
import subprocess

import pytest

from harness.operator_tool import VSWITCHCTL, OperatorTool
from harness.process import LoggedProcess

INITIAL = {
    "vsans": [{"id": 10, "name": "prod"}, {"id": 20, "name": "lab", "state": "suspended"}],
    "portCount": 6,
}
FC3 = 0x01002000
TIME = r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z "


def words(lines):
    """The lines that begin with a time, without it."""
    return [line.split(" ", 1)[1] for line in lines if line[:2] == "20"]


def objects(watching):
    return [json.loads(line) for line in watching.lines if line.startswith("{")]


def table(objects_and_events):
    """What a program knows that begins with the state and goes by the events."""
    known = {}
    for row in objects_and_events:
        if row["event"] == "state":
            known = {} if row["part"] == "begin" else known
        elif row["event"] == "vsan" and row.get("deleted"):
            known = {key: value for key, value in known.items() if key[1] != row["vsan"]}
        elif row["event"] == "vsan":
            known["vsan", row["vsan"]] = row["state"], row["oper"]
        elif row["event"] == "port":
            known["membership", row["ifIndex"]] = row["vsan"]
        elif row["event"] == "interface":
            known["port", row["ifIndex"]] = row["admin"], row["oper"]
        elif row["setting"] != "vsan-name":  # that of a new VSAN is no event
            known[row["setting"], row.get("vsan")] = row.get("value", row.get("text"))
    return known


def test_watch_begins_with_the_present_state_in_words(tool):
    tool("port", "move", "fc3", 10)
    tool("port", "up", "fc3")
    tool("port", "up", "fc5")
    tool("port", "disable", "fc2")
    tool("tdx", "enable")
    tool("timers", "set", "ratov", 20000)
    watching = tool.watch("--count", "1")
    tool("vsan", "create", 50)
    assert watching.wait(30) == 0
    *state, event = words(watching.lines)
    session = state.pop()
    assert state == ["now: VSANs 1, 10 active and up", "now: VSAN 20 suspended and down",
                     "now: ports fc1, fc4, fc6 down", "now: port fc2 disabled",
                     "now: ports fc3, fc5 up", "now: port fc3 in VSAN 10"]
    assert session.startswith("now: session of ") and session.endswith(" open")
    assert event == "VSAN 50 created, active and down"


def test_state_of_a_large_switch_stays_readable(start_switch):
    tool = OperatorTool(start_switch(initial={"vsanRange": [{"first": 1, "last": 4095}], "portCount": 48}))
    for vsan in range(2, 60, 2):
        tool("vsan", "set", vsan, "--state", "suspended")
    tool("port", "up", "fc7")
    assert words(tool.run("watch", "--count", 0).stdout.splitlines()) == [
        "now: VSAN 1 active and up",
        "now: VSANs 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24 and 17 more suspended and down",
        "now: VSANs 3, 5, 7, 9, 11, 13, 15, 17, 19, 21, 23, 25 and 4053 more active and down",
        "now: ports fc1-fc6, fc8-fc48 down", "now: port fc7 up"]


def test_state_as_json_is_objects_like_those_of_the_events(tool):
    tool("timers", "set", "ratov", 20000, "--vsan", 10)
    done = tool.run("watch", "--count", "0", "--json")
    rows = [json.loads(line) for line in done.stdout.splitlines()]
    assert all(row.pop("time") and row.pop("present") for row in rows)
    assert rows[0] == {"event": "state", "part": "begin", "vsans": 3, "ports": 6}
    assert rows[-1] == {"event": "state", "part": "end"}
    for row in ({"event": "vsan", "class": 145, "vsan": 20, "state": "suspended", "oper": "down"},
                {"event": "setting", "class": 302, "setting": "vsan-name", "vsan": 10, "text": "prod"},
                {"event": "port", "class": 102, "ifIndex": FC3, "name": "fc3", "vsan": 1},
                {"event": "interface", "class": 301, "ifIndex": FC3, "name": "fc3", "admin": "up", "oper": "down",
                 "traps": True, "alias": "", "speedMbps": 8000},
                {"event": "setting", "class": 302, "setting": "ratov", "value": 10000},
                {"event": "setting", "class": 302, "setting": "ratov", "vsan": 10, "value": 20000},
                {"event": "setting", "class": 302, "setting": "network-latency", "value": 2000},
                {"event": "setting", "class": 302, "setting": "name", "text": "vswitch"}):
        assert rows.count(row) == 1, row


def test_program_that_starts_from_the_state_loses_nothing(owned, tool):
    changing = [LoggedProcess(["bash", "-c", f"for i in $(seq 10); do {VSWITCHCTL} vsan create $((100 * $i + {which}));"
                               f" {VSWITCHCTL} port move fc{which} $((100 * $i + {which})); done"],
                              env=dict(os.environ, VSWITCH_RUN_DIR=str(owned.run_dir))) for which in (1, 2)]
    watches = [tool.watch("--json") for _ in range(4)]
    assert [process.wait(60) for process in changing] == [0, 0]
    tool("system", "location", "the end")
    whole = table([json.loads(line) for line in tool.run("watch", "--json", "--count", "0").stdout.splitlines()])
    assert len(whole) > 40
    for watching in watches:
        watching.wait_line('"text":"the end"')
        assert table(objects(watching)) == whole
        watching.signal(signal.SIGINT)
        assert watching.wait(30) == 0


def test_only_events_are_printed_and_counted_where_the_state_is_not_wanted(tool):
    watching = tool.watch("--events-only", "--count", "1", "--json")
    tool("vsan", "create", 50)
    assert watching.wait(30) == 0
    assert [row["event"] for row in objects(watching)] == ["vsan"]
    assert "present" not in objects(watching)[0]


@pytest.mark.parametrize("options,mark", [
    ((), "now: VSANs"), (("--json",), '"part":"begin"'), (("--events-only",), None),
], ids=["words", "json", "events only"])
def test_watch_goes_on_with_the_state_when_the_switch_is_back(owned, tool, options, mark):
    watching = tool.watch(*options)
    owned.kill()
    gone = TIME + r"The switch at .*/mts\.sock closed the connection\. Waiting for it\.$"
    watching.wait_line(gone)
    before = len(watching.lines)
    owned.start()
    watching.wait_line(TIME + r"The switch is back\.$", start=before)
    if mark:
        watching.wait_line(mark, start=before)
    tool("vsan", "create", 50)
    watching.wait_line('"vsan":50' if "--json" in options else "VSAN 50 created", start=before)
    assert len([line for line in watching.lines if "Waiting for it" in line]) == 1
    if not mark:
        assert len(words(watching.lines)) == 3, "gone, back, and the event"
    watching.signal(signal.SIGTERM)
    assert watching.wait(30) == 0


def cpu_time(process):
    """The processor time of a process, in clock ticks."""
    with open(f"/proc/{process.pid}/stat", encoding="ascii") as file:
        return sum(map(int, file.read().rpartition(")")[2].split()[11:13]))


def test_switch_that_is_away_is_waited_for_without_work(owned, tool):
    watching = tool.watch()
    owned.stop()
    watching.wait_line("Waiting for it")
    before = cpu_time(watching)
    with pytest.raises(subprocess.TimeoutExpired):
        watching.wait(2)
    assert cpu_time(watching) - before <= 0.2 * os.sysconf("SC_CLK_TCK")
    watching.signal(signal.SIGINT)
    assert watching.wait(30) == 0, "nor does it take the switch to end"
    owned.start()


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM], ids=lambda number: number.name)
def test_watch_ends_with_0_and_whole_lines_by_a_signal(tool, number):
    watching = tool.watch("--json")
    tool("fault", "storm", 200)
    watching.wait_line('"event":"vsan"')
    watching.signal(number)
    assert watching.wait(30) == 0
    assert all(json.loads(line) for line in watching.lines if not line.startswith("watching"))


def test_watch_ends_when_nobody_can_read_what_it_prints(owned, tool):
    with open("/dev/full", "w", encoding="ascii") as full:
        done = subprocess.run([VSWITCHCTL, "--run", owned.run_dir, "watch"], stdout=full, stderr=subprocess.PIPE,
                              text=True, timeout=60)
    assert done.returncode == 1 and "annot print: No space left on device." in done.stderr
