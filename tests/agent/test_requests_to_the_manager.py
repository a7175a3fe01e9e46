# SPDX-License-Identifier: Apache-2.0
"""What a request costs at the manager, and what names that fit nothing cost."""

import pytest

from harness import wire
from harness.clients import EXCEPTIONS, NO_SUCH_INSTANCE, NetSnmp, Packets, SnmpError
from harness.oids import ARCS, COLUMNS, READ_ONLY, ROOT, SCALARS, SYS_DESCR, VSAN_ENTRY, cell, scalar


def test_two_columns_of_one_row_in_one_pdu_cost_one_request(switch, client):
    with switch.counting() as served:
        client.get(cell("vsanName", 10), cell("vsanAdminState", 10))
    assert served.of(wire.VSAN) == served.of(wire.VSAN, wire.GET) == 1


def test_the_same_columns_in_the_next_pdu_cost_one_more(switch, client):
    with switch.counting() as served:
        for _ in range(3):
            client.get(cell("vsanName", 10), cell("vsanAdminState", 10))
    assert served.of(wire.VSAN) == 3


def test_all_columns_of_one_row_in_one_pdu_cost_one_request(switch, client):
    with switch.counting() as served:
        client.get(*(cell(name, 20) for name in COLUMNS))
    assert served.of(wire.VSAN) == 1


def test_getnext_of_all_columns_of_one_row_costs_one_request(switch, client):
    with switch.counting() as served:
        answers = client.get_next(*(cell(name, 2) for name in COLUMNS))
    assert [answer.oid for answer in answers] == [cell(name, 10) for name in COLUMNS]
    assert served.of(wire.VSAN) == served.of(wire.VSAN, wire.GETNEXT) == 1


def test_getbulk_costs_one_request_for_each_row(switch, client):
    with switch.counting() as served:
        answers = client.bulk_get([ARCS["vsanName"], ARCS["vsanMtu"], ARCS["vsanOperState"]], repetitions=4)
    assert len(answers) == 12
    assert served.of(wire.VSAN) == served.of(wire.VSAN, wire.GETNEXT) == 4


def test_get_and_getnext_of_one_name_cost_a_request_each(switch, agent):
    """Even when the client gives both the same request id."""
    from pysnmp.proto import api

    with Packets(agent) as packets, switch.counting() as served:
        packets.exchange(packets.packet([cell("vsanName", 10)], 77))
        packets.exchange(packets.packet([cell("vsanName", 10)], 77, api.v2c.GetNextRequestPDU))
    assert served.of(wire.VSAN, wire.GET) == 1
    assert served.of(wire.VSAN, wire.GETNEXT) == 1


def test_two_rows_in_one_pdu_cost_a_request_each(switch, client):
    with switch.counting() as served:
        client.get(cell("vsanName", 10), cell("vsanName", 20), cell("vsanName", 10))
    assert served.of(wire.VSAN) == 3


def test_a_repeated_request_id_is_not_answered_with_the_former_row(puppet, manager):
    """Clients start again at the same request id; the second request is another one."""
    with Packets(puppet) as packets:
        packet = packets.packet([cell("vsanName", 20), cell("vsanMtu", 20)], 4711)
        assert packets.exchange(packet)[0].value == b"VSAN0020"
        manager.vsans[20]["vsanName"] = b"renamed"
        with manager.counting() as served:
            assert packets.exchange(packet)[0].value == b"renamed"
    assert served.of(wire.VSAN) == 1


def test_a_row_that_is_gone_is_not_answered_from_the_row_before(puppet, manager):
    client = NetSnmp(puppet)
    assert client.get(cell("vsanName", 20))[0].value == b"VSAN0020"
    del manager.vsans[20]
    answers = client.get(cell("vsanName", 20), cell("vsanMtu", 20))
    assert [answer.kind for answer in answers] == [NO_SUCH_INSTANCE] * 2


def test_a_request_carries_neither_user_nor_session_when_it_reads(puppet, manager):
    NetSnmp(puppet).get(cell("vsanName", 20), scalar("vsanNumber"))
    asked = [r for r in manager.requests if r.service == wire.SERVICE_VSAN]
    assert [(r.opcode, r.kind, r.user, r.session) for r in asked] == [
        (wire.VSAN, wire.GET, "", 0), (wire.VSAN_COUNT, wire.GET, "", 0)]
    block = asked[0].payload
    assert len(block) == asked[0].length == wire.BLOCK_SIZE
    assert block == wire.vsan_block(vsanIndex=20)


@pytest.mark.parametrize("name,opcode,length,payload", [
    ("vsanNumber", 125, 4, ""),
    ("vsanTableLastChange", 126, 8, ""),
    ("vsanIfNumber", 128, 4, ""),
    ("fcTimerRatov", 127, 15, "00000008" + "00" * 11),
    ("fcTimerEdtov", 127, 15, "00000007" + "00" * 11),
    ("fcTimerFstov", 127, 15, "0000000a" + "00" * 11),
    ("fcTimerDstov", 127, 15, "00000009" + "00" * 11),
    ("fcNetworkLatency", 136, 12, "00000012" + "00" * 8),
    ("fcSwitchLatency", 136, 12, "00000011" + "00" * 8),
    ("fcInorderDelivery", 140, 4, ""),
])
def test_a_scalar_costs_one_request_of_its_own_kind(puppet, manager, name, opcode, length, payload):
    NetSnmp(puppet).get(scalar(name))
    asked = [r for r in manager.requests if r.service == wire.SERVICE_VSAN]
    assert [(r.opcode, r.kind, r.length, r.payload.hex()) for r in asked] == [(opcode, wire.GET, length, payload)]


@pytest.mark.parametrize("enabled,show_run,kind", [(0, 0, wire.GET), (1, 0, wire.TDX_GET), (1, 1, wire.GET)])
def test_timers_are_read_through_the_distribution_service_while_it_governs_them(
        puppet, manager, enabled, show_run, kind):
    manager.answer(wire.Reply(0, enabled.to_bytes(4, "big") + show_run.to_bytes(4, "big")),
                   opcode=wire.TDX_STATE, kinds=[wire.GET], service=wire.SERVICE_TDX)
    with manager.counting() as served:
        NetSnmp(puppet).get(scalar("fcTimerRatov"), scalar("fcNetworkLatency"), scalar("vsanNumber"))
    assert served.of(wire.FC_TIMER) == served.of(wire.FC_TIMER, kind) == 1
    assert served.of(wire.LATENCY, wire.GET) == served.of(wire.VSAN_COUNT, wire.GET) == 1


@pytest.mark.parametrize("instance", [(), (1,), (0, 0), (2**31,), (2**32 - 1,)])
def test_a_scalar_with_another_instance_costs_no_request(switch, client, instance):
    with switch.counting() as served:
        answers = client.get(*(ARCS[name] + instance for name in SCALARS))
    assert all(answer.kind in EXCEPTIONS for answer in answers)
    assert served.to_managers() == 0


@pytest.mark.parametrize("instance", [(0,), (3,), (4094,), (4096,), (4097,), (2**31 - 1,), (2**31,), (2**32 - 1,),
                                      (2**32 - 10,)])
def test_get_of_a_vsan_that_is_not_there_is_no_such_instance(switch, client, instance):
    with switch.counting() as served:
        answers = client.get(cell("vsanName", *instance), cell("vsanMtu", *instance))
    assert [(a.oid, a.kind) for a in answers] == [
        (cell("vsanName", *instance), NO_SUCH_INSTANCE), (cell("vsanMtu", *instance), NO_SUCH_INSTANCE)]
    assert served.of(wire.VSAN, wire.GET) == 2  # a failed answer is not kept for the second column


@pytest.mark.parametrize("instance", [(), (10, 0), (10, 10), (0, 10), (10,) * 100])
def test_get_that_does_not_end_in_one_arc_asks_for_vsan_0(puppet, manager, instance):
    answer = NetSnmp(puppet).get(cell("vsanName", *instance))[0]
    assert answer.kind == NO_SUCH_INSTANCE
    asked = [r for r in manager.requests if r.opcode == wire.VSAN]
    assert [(r.kind, wire.parse_vsan(r.payload)["vsanIndex"]) for r in asked] == [(wire.GET, 0)]


def asked_rows(manager):
    """The VSAN numbers that GETNEXT requests carried."""
    return [wire.parse_vsan(r.payload)["vsanIndex"] for r in manager.requests
            if (r.opcode, r.kind) == (wire.VSAN, wire.GETNEXT)]


@pytest.mark.parametrize("instance,sent", [
    ((), [0]), ((0,), [0]), ((1,), [1]), ((1, 5), [1]), ((39, 2**32 - 1), [39]),
])
def test_getnext_sends_the_first_arc_and_ignores_the_rest(puppet, manager, instance, sent):
    first = sorted(index for index in manager.vsans if index > sent[0])[0]
    assert NetSnmp(puppet).get_next(cell("vsanName", *instance))[0].oid == cell("vsanName", first)
    assert asked_rows(manager) == sent


@pytest.mark.parametrize("index,sent", [(4095, [4095, 0]), (4096, [4096, 0]), (4097, [0]), (2**31 - 1, [0]),
                                        (2**31, [0]), (2**32 - 1, [0])])
def test_getnext_beyond_4096_goes_to_the_next_column_without_a_request(puppet, manager, index, sent):
    """The 0 is the next column's own first row."""
    assert NetSnmp(puppet).get_next(cell("vsanName", index))[0].oid == cell("vsanMediaType", 1)
    assert asked_rows(manager) == sent


@pytest.mark.parametrize("shorter", range(1, len(VSAN_ENTRY) - len(ROOT) + 1))
def test_getnext_of_less_than_a_column_starts_at_the_first_object_below(client, shorter):
    arcs = VSAN_ENTRY[:-shorter]
    expected = cell("vsanName", 1) if len(arcs) == len(VSAN_ENTRY) - 1 else scalar("vsanNumber")
    assert client.get_next(arcs)[0].oid == expected


def test_longest_name_is_answered_and_a_longer_one_does_no_harm(agent, client):
    longest = cell("vsanName", *([1] * (128 - len(ARCS["vsanName"]))))
    assert client.get(longest)[0].kind == NO_SUCH_INSTANCE
    assert client.get_next(longest)[0].oid == cell("vsanName", 2)
    with Packets(agent) as packets:
        packets.socket.send(packets.packet([longest + (1,)], 5))
        packets.socket.send(packets.packet([cell("vsanName", 2**32)], 6))
        assert packets.exchange(packets.packet([SYS_DESCR], 7))[0].kind == "OCTET STRING"


@pytest.mark.parametrize("name", READ_ONLY)
def test_set_of_a_read_only_object_is_refused_without_any_request(switch, agent, name):
    oid = scalar(name) if name in SCALARS else cell(name, 10, 0x01000000) if "Membership" in name else cell(
        name, 0x01000000 if "If" in name else 10)
    with switch.counting() as served, pytest.raises(SnmpError) as refused:
        NetSnmp(agent, user="private").set((oid, "t" if name == "vsanTableLastChange" else "u" if name in (
            "vsanMtu", "fcTimerFstov", "vsanFcTimerFstov") else "i", 1))
    assert refused.value.status == "notWritable"
    assert refused.value.failed == oid
    assert served.to_managers() == 0


@pytest.mark.parametrize("version,user", [("2c", "private"), ("3", "bob")])
def test_set_of_the_operational_state_is_refused_and_nothing_is_sent_to_be_set(switch, agent, version, user):
    with switch.counting() as served, pytest.raises(SnmpError) as refused:
        NetSnmp(agent, version, user).set((cell("vsanOperState", 10), "i", 2))
    assert refused.value.status == "notWritable"
    assert served.to_managers(wire.SET) == served.to_managers(wire.DELETE) == 0


def test_community_that_may_only_read_cannot_set(switch, client):
    with switch.counting() as served, pytest.raises(SnmpError) as refused:
        client.set((cell("vsanName", 10), "s", "renamed"))
    assert refused.value.status == "noAccess"
    assert served.to_managers() == 0
