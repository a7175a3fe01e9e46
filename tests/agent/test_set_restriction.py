# SPDX-License-Identifier: Apache-2.0
"""SETs by users who may touch some VSANs only. alice and the community `limited` have
VSANs 1 and 30; VSAN 10 exists and is not theirs, 50 does not exist."""

import pytest

from harness import ber, wire
from harness.assignments import ACTIVE, CREATE_AND_GO, DESTROY, exists, name, row, row_status, state
from harness.clients import NetSnmp, SnmpError
from harness.oids import SCALARS, cell, scalar
from harness.packets import DONE, PacketClient

PORT = 0x01000000

COLUMN_VALUES = {"vsanName": ("s", "mine"), "vsanAdminState": ("i", 1), "vsanLoadBalancingType": ("i", 2),
                 "vsanInterOperType": ("i", 0), "vsanInorderDelivery": ("i", 2), "vsanNetworkDropLatency": ("u", 9)}
TIMER_VALUES = {"vsanFcTimerForceFlag": ("x", "E0"), "vsanFcTimerRatov": ("u", 20000), "vsanFcTimerEdtov": ("u", 1500),
                "vsanFcTimerDstov": ("u", 6000)}
SETTING_VALUES = {"fcTimerRatov": ("u", 20000), "fcTimerEdtov": ("u", 1500), "fcTimerDstov": ("u", 6000),
                  "fcNetworkLatency": ("u", 9), "fcSwitchLatency": ("u", 9), "fcInorderDelivery": ("i", 1)}


def refusal(client, *assignments):
    with pytest.raises(SnmpError) as refused:
        client.set(*assignments)
    return refused.value.status, refused.value.failed


@pytest.fixture
def alice(writable):
    return NetSnmp(writable.agent, "3", "alice")


@pytest.fixture
def limited(operator):
    with PacketClient(operator.agent, "limited") as client:
        yield client


@pytest.mark.parametrize("column", [*COLUMN_VALUES, *TIMER_VALUES])
def test_each_column_of_another_vsan_is_a_genErr_and_nothing_is_sent(writable, alice, column):
    kind, value = (COLUMN_VALUES | TIMER_VALUES)[column]
    before = writable.value(cell(column, 10))
    with writable.switch.counting() as served:
        assert refusal(alice, (cell(column, 10), kind, value)) == ("genError", cell(column, 10))
    assert served.to_managers(wire.SET) == 0
    assert writable.value(cell(column, 10)) == before


@pytest.mark.parametrize("column", [*COLUMN_VALUES, *TIMER_VALUES])
def test_each_column_of_a_permitted_vsan_can_be_set(writable, alice, column):
    kind, value = (COLUMN_VALUES | TIMER_VALUES)[column]
    assert alice.set((cell(column, 30), kind, value))
    as_read = {"x": lambda: bytes.fromhex(str(value)), "s": lambda: str(value).encode()}.get(kind, lambda: value)
    assert writable.value(cell(column, 30)) == as_read()


@pytest.mark.parametrize("column", COLUMN_VALUES)
def test_a_wrong_value_is_told_before_the_restriction(writable, alice, column):
    assert refusal(alice, (cell(column, 10), "a", "10.0.0.1"))[0] == "wrongType"


@pytest.mark.parametrize("vsan,value", [(10, DESTROY), (10, CREATE_AND_GO), (50, CREATE_AND_GO), (50, DESTROY)])
def test_creating_and_destroying_another_vsan_is_a_genErr_and_nothing_is_sent(writable, alice, vsan, value):
    with writable.switch.counting() as served:
        assert refusal(alice, (cell("vsanRowStatus", vsan), "i", value)) == (
            "genError", cell("vsanRowStatus", vsan))
    assert served.to_managers(wire.SET) == served.to_managers(wire.DELETE) == 0
    assert (exists(writable, 10), exists(writable, 50)) == (True, False)


def test_active_on_another_vsan_is_refused_by_the_manager(writable, alice):
    """The module checks it for no user; the manager knows the roles, too."""
    with writable.switch.counting() as served:
        assert refusal(alice, (cell("vsanRowStatus", 10), "i", ACTIVE))[0] == "genError"
    assert served.of(wire.VSAN, wire.SET) == 1


@pytest.mark.parametrize("setting", SETTING_VALUES)
def test_the_switchs_own_settings_are_refused_by_the_manager(writable, alice, setting):
    kind, value = SETTING_VALUES[setting]
    before = writable.value(scalar(setting))
    with writable.switch.counting() as served:
        assert refusal(alice, (scalar(setting), kind, value)) == ("genError", scalar(setting))
    assert served.to_managers(wire.SET) == 1
    assert writable.value(scalar(setting)) == before


def test_the_settings_are_all_that_scalars_can_set(writable):
    assert set(SETTING_VALUES) < set(SCALARS)
    for setting, (kind, value) in SETTING_VALUES.items():
        assert writable.set((scalar(setting), ber.gauge(value) if kind == "u" else ber.integer(value))) == DONE


def test_a_permitted_vsan_beside_another_is_not_changed_either(limited, operator):
    """The refusal comes before anything is sent."""
    before = row(operator, 30)
    assert limited.set(name(30, "x"), state(10, 1), state(30, 2)) == ("genErr", 2)
    assert row(operator, 30) == before
    assert limited.set(name(30, "x")) == DONE
    assert row(operator, 30) == before | {"vsanName": b"x"}


def test_a_refused_creation_leaves_nothing_for_the_next_user(limited, operator):
    assert limited.set(name(50, "stolen"), row_status(50, CREATE_AND_GO)) == ("genErr", 1)
    assert operator.set(row_status(50, CREATE_AND_GO)) == DONE
    assert operator.value(cell("vsanName", 50)) == b"VSAN0050"


def test_a_restricted_user_creates_changes_and_destroys_within_the_role(operator):
    operator.switch.change_roles({"team": (["limited"], ["50-59"])}, known_user="limited", restricted=True)
    with PacketClient(operator.agent, "limited") as limited:
        assert limited.set(row_status(50, CREATE_AND_GO), name(50, "fifty")) == DONE
        assert limited.set(row_status(60, CREATE_AND_GO)) == ("genErr", 1)
        assert limited.set(state(50, 2), row_status(50, ACTIVE)) == DONE
        assert limited.set(row_status(50, DESTROY)) == DONE
    assert not exists(operator, 50)


def test_destroying_a_vsan_moves_foreign_ports_too(operator):
    """A VSAN is the user's although one of its ports is not."""
    operator.switch.change_roles({"team": (["limited"], ["10"])}, known_user="limited", restricted=True)
    with PacketClient(operator.agent, "limited") as limited:
        assert limited.set(row_status(10, DESTROY)) == DONE
    assert operator.value(cell("vsanIfVsan", PORT)) == 1


def test_a_reader_of_the_switch_who_may_not_write_gets_no_further_than_the_agent(writable):
    with writable.switch.counting() as served, PacketClient(writable.agent, "public") as reader:
        assert reader.set(name(30, "x"))[0] == "noAccess"
    assert served.to_managers() == 0


def test_when_the_switch_does_not_tell_the_role_a_user_may_change_nothing(writer, manager):
    manager.answer(wire.Reply(0x40010001, None), opcode=wire.ROLE_OF_USER, kinds=[wire.GET], service=wire.SERVICE_ROLES)
    assert writer.set(name(20, "x")) == ("genErr", 1)
    assert manager.changes() == []
    manager.behave()
    assert writer.set(name(20, "x")) == DONE
