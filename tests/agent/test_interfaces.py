# SPDX-License-Identifier: Apache-2.0
"""The switch's ports in IF-MIB, as the agent that run.sh starts serves them."""

import itertools
import re
import struct
import time

import pytest

from harness import wire
from harness.agent import BY_EXTENSION
from harness.clients import NetSnmp
from harness.fake_manager import Close, Silence
from harness.interfaces import (AS_A_SWITCH, COLUMN, DOWN, IF_COLUMNS, IF_MIB, IF_NUMBER, IF_TABLE,
                                IF_TABLE_LAST_CHANGE, IF_X_COLUMNS, IF_X_TABLE, INTERFACES, PORT, PORT_CHANGED,
                                SYS_NAME, SYS_UP_TIME, UP, Ports, SwitchScene, if_cell, now, port_record, refusal)
from harness.notifications import Receiver, wait_until_subscribed
from harness.oids import cell, dotted
from harness.operator_tool import OperatorTool

FC1, FC2, FC3, FC4 = PORT_NUMBERS = (0x01000000, 0x01001000, 0x01002000, 0x01003000)
INITIAL = {"vsans": [{"id": 10}], "ports": [{"ifIndex": index, "vsan": 10, "link": "down" if index == FC3 else "up"}
                                            for index in PORT_NUMBERS]}
# limited and alice have fc2 and fc4.
ROLES = {"some": (["limited", "alice"], ["10"], [str(FC2), str(FC4)])}
LINK_DOWN, LINK_UP = (1, 3, 6, 1, 6, 3, 1, 1, 5, 3), (1, 3, 6, 1, 6, 3, 1, 1, 5, 4)


class Scene(SwitchScene):
    """With a client whose role limits it."""

    def __init__(self, started, lines=()):
        super().__init__(started, lines, initial=INITIAL, roles=ROLES)
        self.limited = NetSnmp(self.agent, user="limited")
        self.tool = OperatorTool(self.switch)


@pytest.fixture
def scene(started):
    return Scene(started)


@pytest.fixture(scope="module")
def shared_scene(started_for_file):
    """For tests that leave everything as it was."""
    return Scene(started_for_file)


@pytest.fixture
def puppet(manager, start_agent):
    """The agent of a switch whose manager is the scripted one."""
    return start_agent(manager, **AS_A_SWITCH)


# Reads

def test_every_value_of_every_row_is_shown_by_its_name(shared_scene):
    for tree in (INTERFACES, IF_MIB):
        shown = shared_scene.reader.run("snmpwalk", shared_scene.agent.address, dotted(tree), options=("-m", "IF-MIB"))
        for line in shown.splitlines():
            assert re.match(r"IF-MIB::(if[A-Za-z]+)\.\d+ = ", line), line
            if not line.startswith(("IF-MIB::ifNumber.0", "IF-MIB::ifTableLastChange.0")):
                assert re.match(r"IF-MIB::(\w+)\.", line).group(1) in COLUMN, line
    for table, columns in (("ifTable", IF_COLUMNS), ("ifXTable", IF_X_COLUMNS)):
        printed = shared_scene.reader.run("snmptable", "-Cf", "|", shared_scene.agent.address, table,
                                          options=("-m", "IF-MIB"))
        head, *rows = [line.split("|") for line in printed.splitlines() if "|" in line]
        assert len(rows) == len(PORT_NUMBERS)
        for row in rows:
            assert {name for name, value in zip(head, row) if value != "?"} == set(columns.values())


def test_a_row_says_what_the_port_is(shared_scene):
    for number, if_index in enumerate(PORT_NUMBERS, 1):
        wwn = bytes.fromhex(shared_scene.switch.operate("switch.show")["wwn"].replace(":", ""))
        expected = {
            "ifIndex": if_index, "ifDescr": f"fc{number}".encode(), "ifName": f"fc{number}".encode(), "ifType": 56,
            "ifMtu": 2112, "ifSpeed": 2**32 - 1, "ifHighSpeed": 8000, "ifAdminStatus": UP,
            "ifOperStatus": DOWN if if_index == FC3 else UP, "ifPromiscuousMode": 2, "ifConnectorPresent": 1,
            "ifPhysAddress": bytes([0x20, number]) + wwn[2:], "ifLinkUpDownTrapEnable": 1, "ifAlias": b"",
        }
        shown = {name: shared_scene.value(name, if_index) for name in expected}
        assert {name: value.strip('"').encode() if isinstance(value, str) else value
                for name, value in shown.items()} == expected


def test_the_rows_are_those_of_the_vsan_interfaces(shared_scene):
    client = shared_scene.reader
    expected = [binding.oid[-1] for binding in client.walk(cell("vsanIfVsan"))]
    assert [binding.value for binding in client.walk(COLUMN["ifIndex"])] == expected == list(PORT_NUMBERS)
    assert client.get(IF_NUMBER)[0].value == len(PORT_NUMBERS)
    assert client.get(IF_TABLE_LAST_CHANGE)[0].value == 0


def test_a_walk_meets_every_instance_once_in_order_and_nothing_else(shared_scene):
    for table, columns in ((IF_TABLE, IF_COLUMNS), (IF_X_TABLE, IF_X_COLUMNS)):
        expected = [table + (1, column, port) for column in columns for port in PORT_NUMBERS]
        assert [binding.oid for binding in shared_scene.reader.walk(table)] == expected
        assert [binding.oid for binding in shared_scene.reader.bulk_walk(table, 7)] == expected


@pytest.mark.parametrize("asked,answered", [
    (IF_TABLE, IF_TABLE + (1, 1, FC1)), (IF_TABLE + (1,), IF_TABLE + (1, 1, FC1)),
    (IF_TABLE + (0, 5), IF_TABLE + (1, 1, FC1)),
    (IF_TABLE + (1, 0), IF_TABLE + (1, 1, FC1)), (IF_TABLE + (1, 2, 0), IF_TABLE + (1, 2, FC1)),
    (IF_TABLE + (1, 2, FC1 - 1), IF_TABLE + (1, 2, FC1)), (IF_TABLE + (1, 2, FC1), IF_TABLE + (1, 2, FC2)),
    (IF_TABLE + (1, 2, FC1, 0), IF_TABLE + (1, 2, FC2)), (IF_TABLE + (1, 2, FC2 - 1, 9, 9), IF_TABLE + (1, 2, FC2)),
    (IF_TABLE + (1, 2, FC4), IF_TABLE + (1, 3, FC1)), (IF_TABLE + (1, 2, 2**32 - 1), IF_TABLE + (1, 3, FC1)),
    (IF_TABLE + (1, 11, FC4), IF_TABLE + (1, 13, FC1)), (IF_TABLE + (1, 12), IF_TABLE + (1, 13, FC1)),
    (IF_TABLE + (1, 18, FC2), IF_TABLE + (1, 19, FC1)),
    (IF_X_TABLE + (1, 18, FC4), IF_X_TABLE + (1, 19, FC1)),
    (IF_X_TABLE + (1, 19, FC4), IF_TABLE_LAST_CHANGE), (IF_X_TABLE + (2,), IF_TABLE_LAST_CHANGE),
])
def test_getnext_goes_to_the_next_instance_there_is(shared_scene, asked, answered):
    assert shared_scene.reader.get_next(asked)[0].oid == answered


@pytest.mark.parametrize("name,kind", [
    (IF_TABLE + (1, 2, FC1 + 1), "noSuchInstance"), (IF_TABLE + (1, 2, FC1, 0), "noSuchInstance"),
    (IF_TABLE + (1, 2), "noSuchInstance"), (IF_TABLE + (1, 12, FC1), "noSuchObject"),
    (IF_TABLE + (1, 21, FC1), "noSuchObject"), (IF_TABLE + (2, 2, FC1), "noSuchObject"),
    (IF_X_TABLE + (1, 20, FC1), "noSuchObject"), (IF_X_TABLE + (1, 18, 0), "noSuchInstance"),
])
def test_get_of_what_is_not_there(shared_scene, name, kind):
    binding = shared_scene.reader.get(name)[0]
    assert (binding.oid, binding.kind) == (name, kind)


def test_version_1_passes_over_the_counters_that_it_cannot_carry(shared_scene):
    walked = NetSnmp(shared_scene.agent, version="1").walk(IF_X_TABLE)
    assert {binding.oid[len(IF_X_TABLE) + 1] for binding in walked} == set(IF_X_COLUMNS) - set(range(6, 14))


def test_all_columns_of_a_row_cost_one_request(shared_scene):
    with shared_scene.switch.counting() as served:
        shared_scene.reader.get(*(IF_TABLE + (1, column, FC2) for column in IF_COLUMNS))
    assert served.of(PORT, service=wire.SERVICE_PORT) == 1
    columns = [IF_TABLE + (1, column) for column in list(IF_COLUMNS)[:10]]
    with shared_scene.switch.counting() as served:
        answer = shared_scene.reader.bulk_get(columns, len(PORT_NUMBERS))
    assert len(answer) == 10 * len(PORT_NUMBERS)
    assert served.of(PORT, wire.GETNEXT, service=wire.SERVICE_PORT) == len(PORT_NUMBERS)
    assert served.of(PORT, wire.GET, service=wire.SERVICE_PORT) == 0


def test_another_message_asks_again(scene):
    assert scene.value("ifOperStatus", FC1) == UP
    scene.tool("port", "down", FC1)
    assert scene.value("ifOperStatus", FC1) == DOWN


# Counters and times

def test_counters_follow_from_base_rate_and_start(manager, puppet):
    pairs = [(2**40 + index, 0) for index in range(8)]
    Ports(manager, port_record(5, counters=pairs, since=now()))
    client = NetSnmp(puppet)
    order = ("InOctets", "InUcastPkts", "InErrors", "InDiscards", "OutOctets", "OutUcastPkts", "OutErrors",
             "OutDiscards")
    for number, name in enumerate(order):
        assert client.get(if_cell("if" + name, 5))[0].value == number  # the same, but for the upper half
        if f"ifHC{name}" in COLUMN:
            assert client.get(if_cell("ifHC" + name, 5))[0].value == 2**40 + number


def test_a_counter_with_a_rate_goes_on_by_itself(manager, puppet):
    start = time.time() - 100
    Ports(manager, port_record(5, counters=[(7, 1_000_000)], since=(int(start), 0)))
    client = NetSnmp(puppet)
    before = time.time()
    first = client.get(if_cell("ifHCInOctets", 5))[0].value
    after = time.time()
    slack = 10  # microseconds
    assert 7 + (before - int(start)) * 1e6 - slack <= first <= 7 + (after - int(start)) * 1e6 + slack
    time.sleep(0.2)
    wide, narrow = (binding.value for binding in client.get(if_cell("ifHCInOctets", 5), if_cell("ifInOctets", 5)))
    assert wide >= first + 200_000
    assert narrow == wide


def test_a_fast_counter_begins_again_behind_2_to_the_64th(manager, puppet):
    Ports(manager, port_record(5, counters=[(2**64 - 1, 2**32 - 1)], since=(now()[0] - 1000, 0)))
    value = NetSnmp(puppet).get(if_cell("ifHCInOctets", 5))[0].value
    assert 999 * (2**32 - 1) < value < 1010 * (2**32 - 1)


def test_a_counter_that_starts_later_has_its_base(manager, puppet):
    Ports(manager, port_record(5, counters=[(9, 1000)], since=(now()[0] + 1000, 0)))
    assert NetSnmp(puppet).get(if_cell("ifHCInOctets", 5))[0].value == 9


def test_times_are_the_agents_uptime_then_and_0_for_what_was_before_it(manager, puppet):
    client = NetSnmp(puppet)
    ports = Ports(manager, port_record(5, last_change=(1, 0), discontinuity=(0, 0)))
    names = if_cell("ifLastChange", 5), if_cell("ifCounterDiscontinuityTime", 5)
    assert [binding.value for binding in client.get(*names)] == [0, 0]
    time.sleep(0.5)
    moment, uptime = now(), client.get(SYS_UP_TIME)[0].value
    ports.records[5] = port_record(5, last_change=moment, discontinuity=moment)
    time.sleep(0.3)
    shown = [binding.value for binding in client.get(*names)]
    assert shown[0] == shown[1] and abs(shown[0] - uptime) <= 10
    assert [binding.value for binding in client.get(*names)] == shown
    ports.records[5] = port_record(5, last_change=(moment[0] + 5000, 0))
    upper = client.get(names[0])[0].value
    assert upper <= client.get(SYS_UP_TIME)[0].value


@pytest.mark.parametrize("speed,gauge", [(2000, 2_000_000_000), (4000, 4_000_000_000), (8000, 2**32 - 1),
                                         (32000, 2**32 - 1)])
def test_the_gauge_of_speed_stops_at_its_end(manager, puppet, speed, gauge):
    Ports(manager, port_record(5, speed=speed))
    values = [b.value for b in NetSnmp(puppet).get(if_cell("ifSpeed", 5), if_cell("ifHighSpeed", 5))]
    assert values == [gauge, speed]


def test_a_port_counts_its_traffic_while_it_is_up(start_switch, start_agent):
    rate = 3_000_000_000
    switch = start_switch(initial={"ports": [
        {"ifIndex": 5, "speedMbps": 32000, "alias": "uplink", "traffic": {"inOctets": rate, "outErrors": 1000}},
        {"ifIndex": 6, "speedMbps": 2000, "enabled": False, "traps": False, "traffic": {"inOctets": rate}}]})
    client = NetSnmp(start_agent(switch, **AS_A_SWITCH))
    names = "ifHCInOctets", "ifOutErrors", "ifHCOutOctets"

    def counters():
        return [binding.value for binding in client.get(*(if_cell(name, 5) for name in names))]

    first, begun = counters(), time.monotonic()
    time.sleep(1)
    second, passed = counters(), time.monotonic() - begun
    assert rate * 0.9 <= second[0] - first[0] <= rate * (passed + 0.1)
    assert 900 <= second[1] - first[1] <= 1000 * (passed + 0.1)
    assert second[2] == 0
    OperatorTool(switch)("port", "down", 5)
    stopped = counters()
    time.sleep(0.2)
    assert counters() == stopped and stopped[0] >= second[0]
    OperatorTool(switch)("port", "up", 5)
    time.sleep(0.2)
    assert counters()[0] > stopped[0]
    shown = client.get(if_cell("ifHCInOctets", 6), if_cell("ifSpeed", 6), if_cell("ifAdminStatus", 6),
                       if_cell("ifOperStatus", 6), if_cell("ifLinkUpDownTrapEnable", 6), if_cell("ifHighSpeed", 5),
                       if_cell("ifAlias", 5))
    assert [text(binding.value) for binding in shown] == [0, 2_000_000_000, DOWN, DOWN, 2, 32000, "uplink"]


def text(value):
    """An OCTET STRING as text, however the tool shows it; anything else as it is."""
    if isinstance(value, bytes):
        return value.decode()
    return value.strip('"') if isinstance(value, str) else value


# Writes

def test_each_writable_column_can_be_set_and_survives_restarts(scene):
    values = {"ifAlias": ("s", "höhe 7"), "ifAdminStatus": ("i", DOWN), "ifLinkUpDownTrapEnable": ("i", 2)}
    scene.writer.set(*((if_cell(name, FC1), *value) for name, value in values.items()))
    scene.switch.restart()
    scene.agent.reload()
    shown = [text(b.value) for b in scene.reader.get(*(if_cell(name, FC1) for name in values))]
    assert shown == ["höhe 7", DOWN, 2]
    assert scene.value("ifOperStatus", FC1) == DOWN


def test_a_port_is_up_when_it_is_in_service_and_its_cable_is_in(scene):
    scene.writer.set((if_cell("ifAdminStatus", FC1), "i", DOWN))
    assert (scene.value("ifAdminStatus", FC1), scene.value("ifOperStatus", FC1)) == (DOWN, DOWN)
    scene.writer.set((if_cell("ifAdminStatus", FC1), "i", UP))
    assert scene.value("ifOperStatus", FC1) == UP
    scene.tool("port", "down", FC1)
    assert (scene.value("ifAdminStatus", FC1), scene.value("ifOperStatus", FC1)) == (UP, DOWN)


@pytest.mark.parametrize("name,kind,value,status", [
    *((if_cell(column, FC1), "i", 1, "notWritable") for column in COLUMN
      if column not in ("ifAlias", "ifAdminStatus", "ifLinkUpDownTrapEnable")),
    (IF_TABLE + (1, 12, FC1), "i", 1, "notWritable"),
    (IF_NUMBER, "i", 1, "notWritable"), (IF_TABLE_LAST_CHANGE, "t", 1, "notWritable"),
    (if_cell("ifAdminStatus", FC1), "i", 3, "wrongValue"), (if_cell("ifAdminStatus", FC1), "i", 0, "wrongValue"),
    (if_cell("ifAdminStatus", FC1), "i", -1, "wrongValue"), (if_cell("ifAdminStatus", FC1), "s", "up", "wrongType"),
    (if_cell("ifLinkUpDownTrapEnable", FC1), "i", 3, "wrongValue"),
    (if_cell("ifLinkUpDownTrapEnable", FC1), "u", 1, "wrongType"),
    (if_cell("ifAlias", FC1), "s", "x" * 65, "wrongLength"), (if_cell("ifAlias", FC1), "i", 1, "wrongType"),
    (if_cell("ifAlias", FC1), "x", "ff", "wrongValue"), (if_cell("ifAlias", FC1), "x", "c0af", "wrongValue"),
    (if_cell("ifAlias", FC1), "x", "eda080", "wrongValue"), (if_cell("ifAlias", FC1), "x", "f4908080", "wrongValue"),
    (if_cell("ifAlias", FC1), "x", "e282", "wrongValue"), (if_cell("ifAlias", FC1), "x", "610a62", "wrongValue"),
    (if_cell("ifAlias", FC1), "x", "00", "wrongValue"), (if_cell("ifAlias", FC1), "x", "c285", "wrongValue"),
    (if_cell("ifAlias", FC1 + 1), "s", "x", "noCreation"), (if_cell("ifAdminStatus", 0), "i", 1, "noCreation"),
    (COLUMN["ifAlias"], "s", "x", "noCreation"), (COLUMN["ifAlias"] + (FC1, 1), "s", "x", "noCreation"),
])
def test_a_write_that_cannot_be_is_refused_and_nothing_is_sent(shared_scene, name, kind, value, status):
    with shared_scene.switch.counting() as served:
        assert refusal(shared_scene.writer, (name, kind, value)) == (status, name)
    assert served.to_managers(wire.SET) == 0


@pytest.mark.parametrize("alias", ["", "x" * 64, "é" * 32, "𝄞" * 16])
def test_an_alias_of_64_octets_is_kept(scene, alias):
    scene.writer.set((if_cell("ifAlias", FC1), "x", alias.encode().hex()) if alias else
                     (if_cell("ifAlias", FC1), "s", ""))
    assert scene.value("ifAlias", FC1) == alias.encode()


def test_a_set_whose_later_variable_is_refused_changes_nothing(scene):
    assert refusal(scene.writer, (if_cell("ifAlias", FC1), "s", "new"), (SYS_NAME, "s", "new"),
                   (if_cell("ifAdminStatus", FC1 + 1), "i", DOWN))[0] == "noCreation"
    assert scene.value("ifAlias", FC1) == b""
    assert scene.reader.get(SYS_NAME)[0].value != b"new"


def test_what_was_set_before_a_failure_is_put_back(manager, puppet):
    ports = Ports(manager, port_record(5, alias=b"old"), port_record(6, admin=DOWN))
    ordinary = manager.answers[(wire.SERVICE_PORT, PORT, wire.SET)]
    refused = struct.pack(">2I", 6, 1) + struct.pack(">I", UP)
    manager.answer(lambda request: wire.Reply(0x40010006, None) if request.payload == refused else ordinary(request),
                   PORT, [wire.SET], wire.SERVICE_PORT)
    client = NetSnmp(puppet, user="private")
    assert refusal(client, (if_cell("ifAlias", 5), "s", "new"), (SYS_NAME, "s", "new"),
                   (if_cell("ifAlias", 5), "s", "x"), (if_cell("ifAdminStatus", 6), "i", UP)) == (
                       "commitFailed", if_cell("ifAdminStatus", 6))
    assert ports.settings[-1] == (5, 3, b"old")
    assert set(ports.settings) <= {(5, 3, b"new"), (5, 3, b"x"), (5, 3, b"old")}
    assert ports.system_settings in ([], [(1, b"new"), (1, b"a switch")])


def test_a_write_without_an_answer_is_put_back_and_told_when_that_fails_too(manager, puppet):
    ports = Ports(manager, port_record(5, alias=b"old"))
    first = itertools.count()
    ordinary = manager.answers[(wire.SERVICE_PORT, PORT, wire.SET)]
    manager.answer(lambda request: Close if next(first) == 0 else ordinary(request), PORT, [wire.SET],
                   wire.SERVICE_PORT)
    client = NetSnmp(puppet, user="private")
    assert refusal(client, (if_cell("ifAlias", 5), "s", "new"))[0] == "commitFailed"
    assert ports.settings == [(5, 3, b"old")]
    manager.answer(Close, PORT, [wire.SET], wire.SERVICE_PORT)
    assert refusal(client, (if_cell("ifAlias", 5), "s", "new"))[0] == "undoFailed"


# Roles

def test_a_restricted_user_sees_the_ports_of_the_role_and_no_others(scene):
    for client in (scene.limited, NetSnmp(scene.agent, "3", "alice")):
        assert [b.oid[-1] for b in client.walk(COLUMN["ifIndex"])] == [FC2, FC4]
        assert [b.oid[-1] for b in client.bulk_walk(COLUMN["ifAlias"])] == [FC2, FC4]
        assert client.get(if_cell("ifDescr", FC1))[0].kind == "noSuchInstance"
        assert client.get(if_cell("ifDescr", FC2))[0].value == b"fc2"
        assert client.get_next(if_cell("ifDescr", FC2))[0].oid == if_cell("ifDescr", FC4)


def test_a_restricted_user_writes_the_ports_of_the_role_and_nothing_else(scene):
    scene.limited.set((if_cell("ifAlias", FC2), "s", "mine"), (if_cell("ifAdminStatus", FC4), "i", DOWN))
    assert (scene.value("ifAlias", FC2), scene.value("ifAdminStatus", FC4)) == (b"mine", DOWN)
    with scene.switch.counting() as served:
        for name, kind, value in ((if_cell("ifAlias", FC1), "s", "x"), (if_cell("ifAdminStatus", FC3), "i", DOWN),
                                  (if_cell("ifLinkUpDownTrapEnable", FC1 + 1), "i", 2), (SYS_NAME, "s", "x")):
            assert refusal(scene.limited, (name, kind, value)) == ("noAccess", name)
    assert served.to_managers(wire.SET) == 0


def test_a_role_acts_from_the_next_request_on(scene):
    scene.tool("role", "add", "more", "--interfaces", FC1, "--users", "limited")
    assert [b.oid[-1] for b in scene.limited.walk(COLUMN["ifIndex"])] == [FC1, FC2, FC4]


# A manager that fails

DAMAGED = {
    "short": port_record(6)[:-1], "long": port_record(6) + b"\0", "empty": b"", "another port": port_record(4),
    "the same port": port_record(5), "an alias too long": port_record(6)[:48] + struct.pack(">I", 65) +
    port_record(6)[52:], "no status": port_record(6, oper=0), "a third state": port_record(6, admin=3),
    "no traps": port_record(6, traps=0),
}


@pytest.mark.parametrize("data", DAMAGED.values(), ids=DAMAGED)
def test_a_damaged_record_ends_the_column_and_not_the_walk(manager, puppet, data):
    ports = Ports(manager, port_record(5), port_record(7))
    ordinary = manager.answers[(wire.SERVICE_PORT, PORT, wire.GETNEXT)]
    behind = struct.pack(">I", 5)
    manager.answer(lambda request: wire.Reply(0, data) if request.payload == behind else ordinary(request),
                   PORT, [wire.GETNEXT], wire.SERVICE_PORT)
    client = NetSnmp(puppet)
    assert [b.oid[-2:] for b in client.walk(IF_TABLE)] == [(column, 5) for column in IF_COLUMNS]
    ports.records[6] = data
    assert client.get(if_cell("ifDescr", 6))[0].kind == "noSuchInstance"


def test_a_manager_that_dies_while_a_table_is_walked_ends_the_walk_and_comes_back(manager, puppet):
    ports = Ports(manager, *(port_record(index) for index in range(1, 50)))
    ordinary = manager.answers[(wire.SERVICE_PORT, PORT, wire.GETNEXT)]
    manager.answer(lambda request: manager.die() if request.payload == struct.pack(">I", 20) else ordinary(request),
                   PORT, [wire.GETNEXT], wire.SERVICE_PORT)
    client = NetSnmp(puppet)
    assert [b.oid[-1] for b in client.walk(IF_TABLE)] == list(range(1, 21))
    assert client.get(SYS_UP_TIME)[0].value > 0
    manager.revive()
    Ports(manager, *ports.records.values())
    assert len(client.walk(COLUMN["ifIndex"])) == 49


def test_a_switch_killed_under_a_walk_is_served_again_when_it_is_back(scene):
    scene.switch.kill()
    assert scene.reader.walk(IF_TABLE) == []
    assert refusal(scene.writer, (if_cell("ifAlias", FC1), "s", "x"))[0] in ("noAccess", "genError")
    scene.switch.start()
    assert len(scene.reader.walk(IF_TABLE)) == len(IF_COLUMNS) * len(PORT_NUMBERS)


@pytest.mark.parametrize("fault", [["status", "store-failed"], ["drop"], ["short", 40], ["close"], ["no-data"]])
def test_a_fault_of_the_manager_is_no_such_instance(scene, fault):
    scene.tool("fault", "add", *fault, "--service", "port", "--opcode", "port-settings")
    try:
        assert scene.reader.get(if_cell("ifDescr", FC1))[0].kind == "noSuchInstance"
    finally:
        scene.tool("fault", "clear")


def test_without_memory_of_rows_a_silent_manager_costs_one_wait(manager, puppet):
    Ports(manager, port_record(5))
    manager.answer(Silence, PORT, service=wire.SERVICE_PORT)
    client = NetSnmp(puppet, timeout=5)
    begun = time.monotonic()
    answer = client.get(*(IF_TABLE + (1, column, 5) for column in IF_COLUMNS))
    assert {binding.kind for binding in answer} == {"noSuchInstance"}
    assert time.monotonic() - begun < 3


# Notifications

def link(trap, if_index, admin, oper):
    """A notification as a Receiver gives it."""
    return dotted(trap), [f"{dotted(if_cell(name, if_index))} = INTEGER: {value}" for name, value in (
        ("ifIndex", if_index), ("ifAdminStatus", admin), ("ifOperStatus", oper))]


def without_enterprise(notification):
    name, bindings = notification
    return name, [binding for binding in bindings if not binding.startswith(".1.3.6.1.6.3.1.1.4.3.0")]


@pytest.fixture
def receiver(started):
    return started.add(Receiver(started.folders.make())).start()


def test_each_change_of_a_link_is_one_notification_with_its_objects(started, receiver):
    scene = Scene(started, lines=[f"trap2sink 127.0.0.1:{receiver.port} public"])
    wait_until_subscribed(scene.switch, scene.agent, 3)
    expected = []
    scene.tool("port", "down", FC1)
    expected += [link(LINK_DOWN, FC1, UP, DOWN)]
    scene.tool("port", "up", FC1)
    expected += [link(LINK_UP, FC1, UP, UP)]
    scene.writer.set((if_cell("ifAlias", FC1), "s", "no news"))
    scene.writer.set((if_cell("ifAdminStatus", FC2), "i", DOWN))
    expected += [link(LINK_DOWN, FC2, DOWN, DOWN)]
    scene.tool("port", "down", FC2)  # it is down already
    scene.writer.set((if_cell("ifLinkUpDownTrapEnable", FC1), "i", 2))
    scene.tool("port", "down", FC1)  # nobody wants to know
    scene.writer.set((if_cell("ifAdminStatus", FC4), "i", DOWN))
    # The VSAN loses its last port that is up, which the module tells.
    expected += [link(LINK_DOWN, FC4, DOWN, DOWN)]
    received = [without_enterprise(receiver.next()) for _ in range(len(expected) + 1)]
    assert [notification for notification in received if notification[0].startswith(dotted(LINK_UP)[:-2])] == expected


def test_a_links_notification_names_the_switch_and_not_the_agents_software(started, receiver):
    scene = Scene(started, lines=[f"trap2sink 127.0.0.1:{receiver.port} public"])
    wait_until_subscribed(scene.switch, scene.agent, 3)
    scene.tool("port", "down", FC1)
    _, bindings = receiver.next()
    object_id = scene.reader.get((1, 3, 6, 1, 2, 1, 1, 2, 0))[0].value
    assert f".1.3.6.1.6.3.1.1.4.3.0 = OID: {object_id}" in bindings


PORT_EVENT = struct.pack(">9I", 5, 2, UP, UP, UP, DOWN, 0, 0, 1)


@pytest.mark.parametrize("payload", [PORT_EVENT[:-1], PORT_EVENT + b"\0", b"", PORT_EVENT[:20] + struct.pack(">I", 7) +
                                     PORT_EVENT[24:], PORT_EVENT[:4] + struct.pack(">I", 1) + PORT_EVENT[8:],
                                     PORT_EVENT[:-4] + struct.pack(">I", 2)],
                         ids=["short", "long", "empty", "no state", "another change", "not wanted"])
def test_other_events_of_a_port_are_none(manager, start_agent, receiver, payload):
    Ports(manager, port_record(5))
    agent = start_agent(manager, lines=[f"trap2sink 127.0.0.1:{receiver.port} public"], **AS_A_SWITCH)
    assert manager.subscribed.wait(10)
    manager.publish(PORT_CHANGED, payload)
    manager.publish(PORT_CHANGED, PORT_EVENT)
    assert without_enterprise(receiver.next()) == link(LINK_DOWN, 5, UP, DOWN)
    assert NetSnmp(agent).get(SYS_UP_TIME)


def test_the_module_is_not_called_for_changes_of_ports(manager, start_agent):
    start_agent(manager)
    assert manager.subscribed.wait(10)
    assert {number for _, classes in manager._subscriptions for number in classes} == {102, 145}


# Beside the agent's own modules

def test_an_agent_without_the_library_serves_the_vsans_and_its_own_interfaces(scene, start_agent):
    agent = start_agent(scene.switch, loading=BY_EXTENSION)
    assert len(NetSnmp(agent).walk(cell("vsanIfVsan"))) == len(PORT_NUMBERS)
    assert b"fc1" not in [b.value for b in NetSnmp(agent).walk(COLUMN["ifDescr"])]


def test_an_agent_that_has_interfaces_of_its_own_says_so_and_serves_the_rest(scene, start_agent):
    agent = start_agent(scene.switch, loading=AS_A_SWITCH["loading"])
    assert "switchmib: the agent does not take ifTable, which is not served here" in agent.process.text()
    assert len(NetSnmp(agent).walk(cell("vsanIfVsan"))) == len(PORT_NUMBERS)


def test_reloading_serves_the_same_and_leaves_nothing_behind(scene):
    before = scene.reader.walk(IF_TABLE)
    for _ in range(5):
        scene.agent.reload()
    unchanged = [b for b in scene.reader.walk(IF_TABLE)]
    assert [b.oid for b in unchanged] == [b.oid for b in before]
    scene.writer.set((if_cell("ifAlias", FC1), "s", "still"))
    assert scene.value("ifAlias", FC1) == b"still"


def test_ports_and_vsans_can_be_set_in_one_message(scene):
    scene.writer.set((cell("vsanName", 10), "s", "both"), (if_cell("ifAlias", FC1), "s", "both"))
    assert scene.value("ifAlias", FC1) == b"both"
    assert scene.reader.get(cell("vsanName", 10))[0].value in (b"both", "both", '"both"')
    status, failed = refusal(scene.writer, (if_cell("ifAlias", FC1), "s", "x"), (cell("vsanName", 99), "s", "x"))
    assert (status, failed) == ("inconsistentName", cell("vsanName", 99))
    assert scene.value("ifAlias", FC1) == b"both"
