# SPDX-License-Identifier: Apache-2.0
"""The tables of interfaces: which VSAN a port is in, and which ports a VSAN has."""

import pytest

from harness import ber, wire
from harness.assignments import CREATE_AND_GO, exists, move, row_status
from harness.clients import NO_SUCH_INSTANCE, NetSnmp, PySnmp
from harness.oids import ARCS, cell, scalar
from harness.packets import DONE, PacketClient

PORTS = (0x01000000, 0x01001000, 0x01002000, 0x01003000)
VSAN_OF = dict(zip(PORTS, (10, 20, 30, 1)))
SUMMARY = ARCS["vsanMembershipSummaryIfIndex"]


def summary(client):
    """The (VSAN, ifIndex) pairs in the order of the walk."""
    rows = client.walk(SUMMARY)
    assert all(row.oid[-1] == row.value for row in rows)
    return [row.oid[-2:] for row in rows]


def test_every_ports_vsan_and_deny_list_by_get_and_by_walk(writable):
    for column, shown in (("vsanIfVsan", VSAN_OF), ("vsanIfDenyList", dict.fromkeys(PORTS, 0))):
        assert {row.oid[-1]: row.value for row in writable.walk(ARCS[column])} == shown
        answers = writable.get(*(cell(column, port) for port in PORTS))
        assert [a.value for a in answers] == list(shown.values())
    assert writable.value(scalar("vsanIfNumber")) == len(PORTS)


@pytest.mark.parametrize("index", [(), (0,), (PORTS[0] + 1,), (2**32 - 1,), (PORTS[0], 0)])
def test_what_is_no_port_has_no_instance(writable, index):
    for column in ("vsanIfVsan", "vsanIfDenyList"):
        assert writable.get(cell(column, *index))[0].kind == NO_SUCH_INSTANCE


def test_after_the_last_possible_interface_nothing_is_asked_and_the_next_column_follows(operator):
    with operator.switch.counting() as served:
        assert operator.get_next(cell("vsanIfDenyList", 2**32 - 1))[0].oid[: len(SUMMARY)] == SUMMARY
    assert served.of(wire.MEMBERSHIP) == 0
    assert operator.get_next(cell("vsanIfVsan", PORTS[-1]))[0].oid == cell("vsanIfDenyList", PORTS[0])


def test_a_deny_list_that_the_operator_has_set_is_shown(operator):
    operator.switch.operate("port.deny", ifIndex=PORTS[1], denyList=3)
    assert operator.value(cell("vsanIfDenyList", PORTS[1])) == 3
    assert operator.set(move(PORTS[1], 30)) == DONE
    assert operator.value(cell("vsanIfDenyList", PORTS[1])) == 3


def test_the_summary_is_in_the_order_of_vsan_and_then_interface(operator):
    assert summary(operator) == [(1, PORTS[3]), (10, PORTS[0]), (20, PORTS[1]), (30, PORTS[2])]
    for port in PORTS:
        assert operator.set(move(port, 20)) == DONE
    assert summary(operator) == [(20, port) for port in PORTS]
    assert operator.set(move(PORTS[2], 2)) == DONE
    assert summary(operator) == [(2, PORTS[2]), (20, PORTS[0]), (20, PORTS[1]), (20, PORTS[3])]


def test_getnext_in_the_summary_starts_anywhere(writable):
    for start, following in (((), (1, PORTS[3])), ((10,), (10, PORTS[0])), ((10, PORTS[0] - 1), (10, PORTS[0])),
                             ((10, PORTS[0]), (20, PORTS[1])), ((11,), (20, PORTS[1]))):
        assert writable.get_next(SUMMARY + start)[0].oid == SUMMARY + following
    assert writable.get_next(SUMMARY + (30, PORTS[2]))[0].oid == scalar("fcTimerRatov")
    for index in ((), (10,), (10, PORTS[1]), (10, PORTS[0], 0), (50, PORTS[0])):
        assert writable.get(SUMMARY + index)[0].kind == NO_SUCH_INSTANCE


def test_a_port_is_moved_with_one_request_and_stays_there(operator):
    with operator.switch.counting() as served:
        assert operator.set(move(PORTS[0], 4095)) == DONE
    assert served.of(wire.MEMBERSHIP, wire.SET) == 1
    operator.switch.restart()
    assert operator.value(cell("vsanIfVsan", PORTS[0])) == 4095
    assert summary(operator)[-1] == (4095, PORTS[0])


def test_several_ports_move_in_one_pdu(operator):
    assert operator.set(*(move(port, 2) for port in PORTS)) == DONE
    assert summary(operator) == [(2, port) for port in PORTS]


@pytest.mark.parametrize("value,answer", [
    (ber.integer(0), "wrongValue"), (ber.integer(4096), "wrongValue"), (ber.integer(-1), "wrongValue"),
    (ber.integer(2**31 - 1), "wrongValue"), (ber.gauge(20), "wrongType"), (ber.octets("20"), "wrongType"),
    (ber.integer(50), "inconsistentName"),  # a VSAN that does not exist: the manager's refusal
])
def test_a_move_that_is_refused_changes_nothing(writable, value, answer):
    assert writable.set((cell("vsanIfVsan", PORTS[0]), value)) == (answer, 1)
    assert writable.value(cell("vsanIfVsan", PORTS[0])) == 10


def test_a_port_that_does_not_exist_cannot_be_moved(writable):
    with writable.switch.counting() as served:
        assert writable.set(move(PORTS[0], 10), move(PORTS[0] + 1, 10), move(PORTS[1], 20)) == ("notWritable", 2)
    assert served.of(wire.MEMBERSHIP, wire.SET) == 0


def test_of_three_moves_the_second_is_refused_and_the_others_are_made(operator):
    assert operator.set(move(PORTS[0], 2), move(PORTS[1], 50), move(PORTS[2], 2)) == ("inconsistentName", 2)
    assert [operator.value(cell("vsanIfVsan", port)) for port in PORTS] == [2, 20, 2, 1]


def test_the_second_client_sees_the_same_tables(writable):
    for root in (ARCS["vsanIfVsan"][:-2], SUMMARY):
        assert PySnmp(writable.agent).walk(root) == writable.walk(root)


# A user whose role names VSANs 10 and 30 and the first and the third interface.

ROLES = {"team": (["alice", "limited"], ["10", "30"], [str(PORTS[0]), str(PORTS[2])])}


@pytest.fixture
def restricted(start_switch, start_agent):
    switch = start_switch(initial={
        "vsans": [{"id": vsan, "name": f"v{vsan}"} for vsan in (10, 20, 30)],
        "ports": [{"ifIndex": port, "vsan": vsan, "link": "up"} for port, vsan in VSAN_OF.items()]}, roles=ROLES)
    agent = start_agent(switch)
    with PacketClient(agent, "limited") as client:
        client.agent, client.switch = agent, switch
        yield client


def test_a_restricted_users_walk_of_the_vsan_column_ends_at_the_first_foreign_port(restricted):
    assert [row.oid[-1] for row in restricted.walk(ARCS["vsanIfVsan"])] == [PORTS[0]]
    shown = restricted.get(*(cell("vsanIfVsan", port) for port in PORTS))
    assert [answer.value for answer in shown] == [10, None, 30, None]


def test_the_deny_list_is_shown_to_a_restricted_user_too(restricted):
    assert [row.oid[-1] for row in restricted.walk(ARCS["vsanIfDenyList"])] == list(PORTS)
    assert [a.value for a in restricted.get(*(cell("vsanIfDenyList", port) for port in PORTS))] == [0] * 4


def test_a_restricted_users_walk_of_the_summary_shows_the_permitted_vsans(restricted):
    assert summary(restricted) == [(10, PORTS[0]), (30, PORTS[2])]
    assert NetSnmp(restricted.agent, "3", "alice").walk(SUMMARY) == restricted.walk(SUMMARY)


def test_a_restricted_users_get_on_the_summary_is_decided_by_vsan_0(restricted):
    asked = [SUMMARY + pair for pair in ((10, PORTS[0]), (20, PORTS[1]))]
    assert [a.kind for a in restricted.get(*asked)] == [NO_SUCH_INSTANCE] * 2
    # Made VSAN 0 permitted, any row is answered.
    restricted.switch.change_roles({"team": (["limited"], ["0", "10"])}, known_user="alice", restricted=False)
    assert [a.value for a in restricted.get(*asked)] == [PORTS[0], PORTS[1]]


def test_a_restricted_user_moves_permitted_ports_into_permitted_vsans_only(restricted):
    with restricted.switch.counting() as served:
        for port, vsan in ((PORTS[1], 10), (PORTS[0], 20), (PORTS[0], 1), (PORTS[0], 4095)):
            assert restricted.set(move(port, vsan)) == ("genErr", 1)
    assert served.to_managers(wire.SET) == 0
    assert restricted.set(move(PORTS[0], 30), move(PORTS[2], 10)) == DONE
    assert summary(restricted) == [(10, PORTS[2]), (30, PORTS[0])]


def test_a_restricted_user_creates_no_vsan_for_a_port_outside_the_role(restricted):
    assert restricted.set(row_status(50, CREATE_AND_GO), move(PORTS[0], 50)) == ("genErr", 1)
    with PacketClient(restricted.agent) as operator:
        assert not exists(operator, 50)
        assert operator.value(cell("vsanIfVsan", PORTS[0])) == 10
