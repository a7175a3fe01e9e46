# SPDX-License-Identifier: Apache-2.0
"""Users who may see some VSANs only. The shared switch restricts alice and the
community `limited` to VSANs 1 and 30."""

import pytest

from harness import wire
from harness.clients import NO_SUCH_INSTANCE, NetSnmp, PySnmp
from harness.oids import ARCS, COLUMNS, ROOT, SCALARS, VSAN_ENTRY, cell, object_of, scalar

RESTRICTED = [("3", "alice"), ("2c", "limited"), ("1", "limited")]
PERMITTED = (1, 30)


@pytest.mark.parametrize("version,user", RESTRICTED)
def test_walk_shows_exactly_the_permitted_vsans(agent, client, version, user):
    everything = client.walk(VSAN_ENTRY)
    assert NetSnmp(agent, version, user).walk(VSAN_ENTRY) == [b for b in everything if b.oid[-1] in PERMITTED]


def test_bulk_walk_and_second_client_show_exactly_the_permitted_vsans(agent, client):
    permitted = [b for b in client.walk(VSAN_ENTRY) if b.oid[-1] in PERMITTED]
    assert NetSnmp(agent, "3", "alice").bulk_walk(VSAN_ENTRY) == permitted
    assert PySnmp(agent, "3", "alice").walk(VSAN_ENTRY) == permitted
    assert PySnmp(agent, "3", "alice").bulk_walk(VSAN_ENTRY) == permitted


@pytest.mark.parametrize("version,user", RESTRICTED[:2])
def test_get_of_another_vsan_is_no_such_instance_though_the_manager_was_asked(switch, agent, version, user):
    with switch.counting() as served:
        answers = NetSnmp(agent, version, user).get(cell("vsanName", 10), cell("vsanMtu", 10))
    assert [(a.oid, a.kind) for a in answers] == [
        (cell("vsanName", 10), NO_SUCH_INSTANCE), (cell("vsanMtu", 10), NO_SUCH_INSTANCE)]
    assert served.of(wire.VSAN, wire.GET) == 1


def test_get_of_a_permitted_vsan_is_answered_beside_one_that_is_not(agent):
    answers = NetSnmp(agent, "3", "alice").get(cell("vsanName", 30), cell("vsanName", 10), cell("vsanName", 1))
    assert [answer.value for answer in answers] == [b"tape", None, b"default"]


def test_scalars_are_not_restricted(agent, client):
    names = [scalar(name) for name in SCALARS]
    assert NetSnmp(agent, "3", "alice").get(*names) == client.get(*names)


def test_an_unrestricted_user_sees_everything_right_after_a_restricted_one(agent, client):
    everything = client.walk(VSAN_ENTRY)
    NetSnmp(agent, "3", "alice").walk(ARCS["vsanName"])
    assert NetSnmp(agent, "3", "bob").walk(VSAN_ENTRY) == everything
    assert client.walk(VSAN_ENTRY) == everything


def test_getnext_skips_the_others_in_one_step(puppet, manager):
    """VSANs 1, 2, 20, 30, 40 with 1 and 30 permitted: from 1 the manager says 2, then
    it is asked for what follows 29."""
    manager.restricted["limited"] = [1, 30]
    client = NetSnmp(puppet, user="limited")
    assert client.get_next(cell("vsanName", 1))[0].oid == cell("vsanName", 30)
    asked = [wire.parse_vsan(r.payload)["vsanIndex"] for r in manager.requests if r.opcode == wire.VSAN]
    assert asked == [1, 29]


def test_a_permitted_number_without_a_vsan_is_skipped(puppet, manager):
    manager.restricted["limited"] = [5, 6, 7, 30]
    assert [b.oid[-1] for b in NetSnmp(puppet, user="limited").walk(ARCS["vsanName"])] == [30]


def test_after_the_last_permitted_vsan_the_next_column_follows(puppet, manager):
    manager.restricted["limited"] = [1, 30]
    assert NetSnmp(puppet, user="limited").get_next(cell("vsanName", 30))[0].oid == cell("vsanMediaType", 1)


@pytest.mark.parametrize("permitted", [[], [3], [4095], [0]])
def test_a_user_without_any_existing_vsan_sees_no_row(puppet, manager, permitted):
    manager.restricted["limited"] = permitted
    client = NetSnmp(puppet, user="limited")
    assert client.walk(VSAN_ENTRY) == []
    assert client.get_next(ARCS["vsanName"])[0].oid == scalar("vsanIfNumber")


def test_the_edges_of_the_permission_list(start_switch, start_agent):
    switch = start_switch(initial={"vsanRange": [{"first": 1, "last": 4095}]},
                          roles={"edges": (["limited"], ["1", "8", "4088-4089", "4095"])})
    shown = NetSnmp(start_agent(switch), user="limited").walk(ARCS["vsanName"])
    assert [b.oid[-1] for b in shown] == [1, 8, 4088, 4089, 4095]


def test_roles_read_again_act_at_the_next_request(start_switch, start_agent):
    switch = start_switch(initial={"vsans": [{"id": 10}, {"id": 20}]}, roles={"team": (["alice"], ["10"])})
    agent = start_agent(switch)
    alice = NetSnmp(agent, "3", "alice")

    def seen():
        return [b.oid[-1] for b in alice.walk(ARCS["vsanName"])]

    assert seen() == [10]
    switch.change_roles({"team": (["bob"], ["10"])}, known_user="alice", restricted=False)
    assert seen() == [1, 10, 20]
    switch.change_roles({"team": (["alice"], ["20"]), "more": (["alice"], ["1-9"])}, known_user="alice",
                        restricted=True)
    assert seen() == [1, 20]


def test_restricted_getnext_ends_when_the_manager_answers_without_data(puppet, manager):
    manager.restricted["limited"] = [7, 30]
    manager.answer(wire.Reply(0, None), kinds=[wire.GETNEXT])
    with manager.counting() as served:
        answer = NetSnmp(puppet, user="limited").get_next(ARCS["vsanName"])[0]
    assert object_of(answer.oid) not in COLUMNS
    assert served.of(wire.VSAN) <= 3 * len(COLUMNS)


@pytest.mark.parametrize("stuck_at", [0, 1, 2, 29, 31, -1, 5000, 2**31 - 1, -(2**31)])
def test_restricted_getnext_ends_when_the_row_does_not_advance(puppet, manager, stuck_at):
    manager.restricted["limited"] = [7, 30, 4095]
    manager.answer(wire.Reply(0, wire.vsan_block(vsanIndex=stuck_at, vsanName=b"stuck")), kinds=[wire.GETNEXT])
    with manager.counting() as served:
        shown = NetSnmp(puppet, user="limited").bulk_get([ROOT], repetitions=50)
    assert not [b for b in shown if object_of(b.oid) in COLUMNS]
    assert served.of(wire.VSAN) <= 4 * len(COLUMNS)


def test_nobody_is_told_more_when_the_roles_cannot_be_read(puppet, manager):
    manager.answer(wire.Reply(0x40010006, None), opcode=wire.ROLE_OF_USER, kinds=[wire.GET],
                   service=wire.SERVICE_ROLES)
    client = NetSnmp(puppet)
    assert client.get(cell("vsanName", 1))[0].kind == NO_SUCH_INSTANCE
    assert client.walk(VSAN_ENTRY) == []
    manager.behave()
    assert client.get(cell("vsanName", 1))[0].value == b"VSAN0001"
