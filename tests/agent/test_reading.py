# SPDX-License-Identifier: Apache-2.0
"""What clients read: every version, every kind of request, two families of clients."""

import time

import pytest

from harness import wire
from harness.clients import END_OF_MIB, NO_SUCH_OBJECT, NetSnmp, PySnmp
from harness.oids import (ARCS, COLUMNS, NAMES, ROOT, SCALARS, SYS_DESCR, TYPE_OF, VSAN_ENTRY, cell, object_of,
                          scalar)

from conftest import INITIAL, VSANS

UNRESTRICTED = [("1", "public"), ("2c", "public"), ("3", "bob"), ("3", "carol")]
BULK = [who for who in UNRESTRICTED if who[0] != "1"]


def column_of(record, name):
    """What a column shows of the manager's record."""
    if name == "vsanRowStatus":
        return 1
    if name == "vsanInterOperType" and record[name] == 100:
        return 0
    return record[name]


@pytest.fixture(scope="module")
def records(switch):
    rows = switch.vsans()
    assert [row["vsanIndex"] for row in rows] == [vsan["id"] for vsan in VSANS]
    return rows


@pytest.fixture(scope="module")
def expected_table(records):
    """The VSAN table as the manager holds it: column after column, VSAN after VSAN."""
    return [(cell(name, row["vsanIndex"]), TYPE_OF[name], column_of(row, name))
            for name in COLUMNS for row in records]


def triples(bindings):
    return [(binding.oid, binding.kind, binding.value) for binding in bindings]


def in_table(bindings):
    return [row for row in triples(bindings) if row[0][: len(VSAN_ENTRY)] == VSAN_ENTRY]


@pytest.mark.parametrize("version,user", UNRESTRICTED)
def test_get_answers_every_column_and_every_scalar(agent, expected_table, version, user):
    client = NetSnmp(agent, version, user)
    row = [entry for entry in expected_table if entry[0][-1] == 10]
    assert triples(client.get(*(oid for oid, _, _ in row))) == row
    answers = client.get(*(scalar(name) for name in SCALARS))
    assert [(a.oid, a.kind) for a in answers] == [(scalar(name), TYPE_OF[name]) for name in SCALARS]


@pytest.mark.parametrize("version,user", UNRESTRICTED)
def test_getnext_answers_with_the_following_row(agent, expected_table, version, user):
    client = NetSnmp(agent, version, user)
    following = {before[0]: after for before, after in zip(expected_table, expected_table[1:])}
    asked = [cell("vsanName", 2), cell("vsanMtu", 10), cell("vsanOperState", 4095)]
    assert triples(client.get_next(*asked)) == [following[oid] for oid in asked]


@pytest.mark.parametrize("version,user", UNRESTRICTED)
def test_walk_of_the_table_shows_what_the_manager_holds(agent, expected_table, version, user):
    assert triples(NetSnmp(agent, version, user).walk(VSAN_ENTRY)) == expected_table


@pytest.mark.parametrize("version,user", BULK)
@pytest.mark.parametrize("repetitions", [1, 7, 100])
def test_bulk_walk_shows_what_a_walk_shows(agent, client, version, user, repetitions):
    assert NetSnmp(agent, version, user).bulk_walk(ROOT, repetitions) == client.walk(ROOT)


@pytest.mark.parametrize("version,user", UNRESTRICTED)
def test_second_client_sees_the_same_values(agent, client, version, user):
    second = PySnmp(agent, version, user)
    walked = client.walk(ROOT)
    assert second.walk(ROOT) == walked
    names = [binding.oid for binding in walked]
    assert [b for i in range(0, len(names), 20) for b in second.get(*names[i : i + 20])] == walked
    if version != "1":
        assert second.bulk_walk(ROOT) == walked


def test_scalars_show_the_managers_values(switch, client):
    with switch.connect() as manager:
        def first_word(opcode):
            return int.from_bytes(manager.request(wire.SERVICE_VSAN, opcode, length=4).data[:4], "big")

        def second_word(opcode, key, size):
            payload = key.to_bytes(4, "big") + bytes(size - 4)
            return int.from_bytes(manager.request(wire.SERVICE_VSAN, opcode, payload=payload).data[4:8], "big")

        expected = {
            "vsanNumber": len(VSANS),
            "vsanIfNumber": len(INITIAL["ports"]),
            "fcTimerRatov": second_word(wire.FC_TIMER, 8, 15),
            "fcTimerEdtov": second_word(wire.FC_TIMER, 7, 15),
            "fcTimerFstov": second_word(wire.FC_TIMER, 10, 15),
            "fcTimerDstov": second_word(wire.FC_TIMER, 9, 15),
            "fcNetworkLatency": second_word(wire.LATENCY, 18, 12),
            "fcSwitchLatency": second_word(wire.LATENCY, 17, 12),
            "fcInorderDelivery": first_word(wire.INORDER_DELIVERY),
        }
        assert first_word(wire.VSAN_COUNT) == expected["vsanNumber"]
        assert first_word(wire.IF_COUNT) == expected["vsanIfNumber"]
    answers = client.get(*(scalar(name) for name in expected))
    assert {object_of(answer.oid): answer.value for answer in answers} == expected


def test_four_timers_are_told_apart(puppet, manager):
    manager.answer(lambda request: wire.Reply(0, request.payload[:4] + (1000 * request.payload[3]).to_bytes(4, "big")
                                              + request.payload[8:]), opcode=wire.FC_TIMER, kinds=[wire.GET])
    answers = NetSnmp(puppet).get(*(scalar("fcTimer" + name) for name in ("Ratov", "Edtov", "Fstov", "Dstov")))
    assert [answer.value for answer in answers] == [8000, 7000, 10000, 9000]


def test_last_change_before_the_agents_start_reads_zero(client):
    """The switch had its last change before this agent came up: no uptime is negative."""
    assert client.get(scalar("vsanTableLastChange"))[0].value == 0


def test_last_change_after_the_agents_start_is_that_uptime(puppet, manager):
    client = NetSnmp(puppet)
    uptime = client.get((1, 3, 6, 1, 2, 1, 1, 3, 0))[0].value
    change = time.time() + 100
    manager.answer(wire.Reply(0, int(change).to_bytes(4, "big") + int(change % 1 * 1e6).to_bytes(4, "big")),
                   opcode=wire.LAST_CHANGE, kinds=[wire.GET])
    shown = client.get(scalar("vsanTableLastChange"))[0].value
    assert uptime + 9900 <= shown <= uptime + 10100


def test_names_strictly_ascend_over_the_whole_subtree(client):
    names, oid = [], ROOT
    while len(names) < 5000:
        binding = client.get_next(oid)[0]
        if binding.kind == END_OF_MIB or binding.oid[: len(ROOT)] != ROOT:
            break
        names.append(binding.oid)
        oid = binding.oid
    assert names and all(before < after for before, after in zip(names, names[1:]))
    assert names == [binding.oid for binding in client.walk(ROOT)]


def test_every_value_seen_by_getnext_equals_get(client):
    walked = client.walk(ROOT)
    names = [binding.oid for binding in walked]
    assert [b for i in range(0, len(names), 20) for b in client.get(*names[i : i + 20])] == walked


def test_walk_visits_all_objects_in_the_order_of_their_registration(client):
    seen = [object_of(binding.oid) for binding in client.walk(ROOT)]
    assert list(dict.fromkeys(seen)) == list(NAMES)
    assert len(NAMES) == 28


def test_every_value_has_its_objects_type(client):
    for binding in client.walk(ROOT):
        assert binding.kind == TYPE_OF[object_of(binding.oid)]


@pytest.mark.parametrize("column", [1, 7, 13])
def test_unregistered_columns_never_answer(client, column):
    assert client.get(VSAN_ENTRY + (column, 1))[0].kind == NO_SUCH_OBJECT
    assert client.get_next(VSAN_ENTRY + (column,))[0].oid[: len(VSAN_ENTRY) + 1] != VSAN_ENTRY + (column,)


def test_interop_mode_100_reads_zero_and_others_as_they_are(client):
    answers = client.get(*(cell("vsanInterOperType", vsan) for vsan in (1, 10, 20, 30, 40)))
    assert [answer.value for answer in answers] == [0, 1, 0, 4, 3]


def test_row_status_reads_active_whatever_the_record_holds(puppet, manager):
    for index, status in enumerate((0, 2, 3, 6, 77), start=50):
        manager.vsans[index] = dict(manager.vsans[1], vsanIndex=index, vsanRowStatus=status)
    answers = NetSnmp(puppet).walk(ARCS["vsanRowStatus"])
    assert {answer.oid[-1]: answer.value for answer in answers} == {index: 1 for index in manager.vsans}


def test_fields_are_shown_unconverted(puppet, manager):
    """Even values that no enumeration holds: the numbering is the manager's."""
    odd = dict(vsanMediaType=7, vsanAdminState=-5, vsanMtu=0xFFFFFFFF - 2**32, vsanLoadBalancingType=2**31 - 1,
               vsanOperState=0, vsanInterOperType=101, vsanInorderDelivery=-(2**31), vsanNetworkDropLatency=2**32 - 1)
    manager.vsans[2].update(odd)
    answers = NetSnmp(puppet).get(*(cell(name, 2) for name in odd))
    assert {object_of(a.oid): a.value for a in answers} == odd | {"vsanMtu": 2**32 - 1}


def test_walk_of_4095_vsans_is_complete(start_switch, start_agent):
    switch = start_switch(initial={"vsanRange": [{"first": 1, "last": 4095}]})
    agent = start_agent(switch)
    walked = NetSnmp(agent).bulk_walk(VSAN_ENTRY, 100)
    assert [b.oid for b in walked] == [cell(name, vsan) for name in COLUMNS for vsan in range(1, 4096)]
    expected = [column_of(row, name) for name in COLUMNS for row in switch.vsans()]
    assert [b.value for b in walked] == expected
    assert NetSnmp(agent).get(scalar("vsanNumber"))[0].value == 4095


@pytest.mark.parametrize("version,user", UNRESTRICTED)
def test_table_tool_shows_names_and_rows(agent, version, user):
    shown = NetSnmp(agent, version, user).by_name("snmptable", "VSAN-MIB::vsanTable",
                                                  options=("-Cf", ";", "-Ci", "-CB")).splitlines()
    header = next(number for number, line in enumerate(shown) if line.startswith("index;"))
    assert shown[header].split(";")[1:] == list(COLUMNS)
    rows = [line.split(";") for line in shown[header + 1 :] if line]
    assert [int(row[0]) for row in rows] == [vsan["id"] for vsan in VSANS]
    assert [row[1] for row in rows] == [vsan["name"] for vsan in VSANS]


def test_walk_by_name_shows_the_objects_names(client):
    shown = client.by_name("snmpwalk", "VSAN-MIB::vsanTable")
    assert "VSAN-MIB::vsanName.10 = STRING: storage_prod" in shown
    for name in COLUMNS:
        assert f"VSAN-MIB::{name}.4095 = " in shown
    for name in SCALARS:
        assert client.by_name("snmpget", f"VSAN-MIB::{name}.0").startswith(f"VSAN-MIB::{name}.0 = ")


def test_other_objects_of_the_agent_are_there(client):
    assert client.get(SYS_DESCR)[0].kind == "OCTET STRING"
