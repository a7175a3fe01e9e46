# SPDX-License-Identifier: Apache-2.0
"""SETs that fail on the way: what stays changed, what is taken back, and that nothing of
a failed PDU is left for the next one to find."""

import time

import pytest

from harness import ber, wire
from harness.assignments import (ACTIVE, CREATE_AND_GO, DESTROY, exists, move, name, row, row_status, state)
from harness.fake_manager import Close, LastWords, Silence, vsan_row
from harness.oids import SYS_DESCR, cell, scalar
from harness.packets import DONE

ONE_WAIT = 1.0  # a write of a row waits for the manager this long
AT_ONCE = ONE_WAIT  # without any wait, with a busy machine's leave
REFUSED = wire.Reply(0x40190006, None)  # a status of the manager's that means genErr
SET, DELETE = wire.SET, wire.DELETE


class Timed:
    def __enter__(self):
        self._start = time.monotonic()
        return self

    def __exit__(self, *_):
        self.seconds = time.monotonic() - self._start


def refuse(manager, vsan, reply=REFUSED, kinds=(SET,)):
    """Has the manager refuse to change one VSAN."""
    manager.answer(lambda request: reply if wire.parse_vsan(request.payload)["vsanIndex"] == vsan else None,
                   kinds=kinds)


def sent_records(manager):
    return [wire.parse_vsan(r.payload) for r in manager.requests if r.opcode == wire.VSAN and r.kind == SET]


def assert_nothing_staged(writer, manager, *vsans):
    """A creation of each VSAN that the manager refuses shows what was left for it: a row
    that was still staged would be sent in the new one's place, and a copy for UNDO would
    keep the creation from being taken back. A change then sends its own value only."""
    for vsan in vsans:
        manager.behave()
        manager.vsans.pop(vsan, None)
        manager.requests.clear()
        refuse(manager, vsan)
        assert writer.set(row_status(vsan, CREATE_AND_GO)) == ("genErr", 1)
        assert manager.changes() == [(SET, vsan), (DELETE, vsan)]
        assert sent_records(manager) == [
            vsan_row(vsan, vsanInorderDelivery=0, vsanNetworkDropLatency=0, vsanOperState=0)]

        manager.behave()
        manager.vsans[vsan] = vsan_row(vsan, vsanName=b"another")
        manager.requests.clear()
        assert writer.set(state(vsan, 2)) == DONE
        assert sent_records(manager) == [vsan_row(vsan, vsanName=b"another", vsanAdminState=2, vsanInorderDelivery=0,
                                                  vsanNetworkDropLatency=0)]


# The manager refuses

def test_of_three_vsans_the_second_is_refused_and_the_others_are_changed(operator):
    before = row(operator, 20)
    taken = "engineering"  # VSAN 2 has this name
    assert operator.set(name(10, "a"), name(20, taken), name(30, "c")) == ("inconsistentName", 2)
    assert (row(operator, 10)["vsanName"], row(operator, 30)["vsanName"]) == (b"a", b"c")
    assert row(operator, 20) == before
    # Nothing stayed staged: the next change of VSAN 20 is only its own.
    assert operator.set(state(20, 2)) == DONE
    assert row(operator, 20) == before | {"vsanAdminState": 2, "vsanOperState": 2}
    operator.switch.restart()
    assert (row(operator, 10)["vsanName"], row(operator, 30)["vsanName"]) == (b"a", b"c")
    assert row(operator, 20)["vsanName"] == b"storage_backup"


def test_a_refused_column_is_not_sent_again_by_a_later_pdu(writer, manager):
    refuse(manager, 20)
    assert writer.set(name(2, "a"), name(20, "b"), name(30, "c")) == ("genErr", 2)
    assert manager.changes() == [(SET, 2), (SET, 20), (SET, 30)]
    assert_nothing_staged(writer, manager, 2, 20, 30)


def test_a_later_varbind_of_a_refused_row_sends_nothing_more(writer, manager):
    refuse(manager, 20)
    assert writer.set(name(20, "a"), state(20, 2)) == ("genErr", 1)
    assert manager.changes() == [(SET, 20)]
    assert_nothing_staged(writer, manager, 20)


def test_an_injected_fault_on_one_vsan_of_a_pdu(operator):
    operator.switch.operate("fault.add", action="status", value=REFUSED.status, opcode=wire.VSAN, kind=SET, vsan=20,
                            times=1)
    assert operator.set(name(10, "a"), name(20, "b"), name(30, "c")) == ("genErr", 2)
    shown = [operator.value(cell("vsanName", vsan)) for vsan in (10, 20, 30)]
    assert shown == [b"a", b"storage_backup", b"c"]
    # No copy of VSAN 20's row is left: a creation of it that fails is taken back.
    operator.switch.operate("vsan.delete", id=20)
    assert operator.set(row_status(20, CREATE_AND_GO), name(10, "engineering")) == ("inconsistentName", 2)
    assert not exists(operator, 20)


def test_a_failed_creation_is_backed_out_and_leaves_nothing(writer, manager):
    refuse(manager, 50)
    assert writer.set(name(50, "fifty"), row_status(50, CREATE_AND_GO)) == ("genErr", 2)
    assert manager.changes() == [(SET, 50), (DELETE, 50)]
    assert_nothing_staged(writer, manager, 50)


def test_a_refused_creation_is_not_sent_again_for_the_columns_behind_it(writer, manager):
    refuse(manager, 50)
    assert writer.set(row_status(50, CREATE_AND_GO), name(50, "fifty"), state(50, 2)) == ("genErr", 1)
    assert manager.changes() == [(SET, 50), (DELETE, 50)]
    assert_nothing_staged(writer, manager, 50)


def test_a_creation_is_taken_back_when_another_varbind_fails(operator):
    assert operator.set(row_status(50, CREATE_AND_GO), name(20, "engineering")) == ("inconsistentName", 2)
    assert not exists(operator, 50)
    assert operator.set(name(20, "engineering"), row_status(50, CREATE_AND_GO)) == ("inconsistentName", 1)
    assert not exists(operator, 50)


@pytest.mark.parametrize("pdu,expected", [
    # In the order of the objects' first appearance: the row as read, with the column,
    # the refused one, and the row as it was.
    ((row_status(20, ACTIVE), name(20, "x"), name(30, "y")), [(SET, 20), (SET, 20), (SET, 30), (SET, 20)]),
    ((name(20, "x"), name(30, "y"), row_status(20, ACTIVE)), [(SET, 20), (SET, 30), (SET, 20), (SET, 20)]),
    ((name(30, "y"), row_status(20, ACTIVE), state(20, 2)), [(SET, 30), (SET, 20), (SET, 20), (SET, 20)]),
], ids=["before", "after", "between"])
def test_the_row_status_finds_its_copy_for_undo_wherever_it_stands(writer, manager, pdu, expected):
    before = dict(manager.vsans[20])
    refuse(manager, 30)
    assert writer.set(*pdu)[0] == "genErr"
    assert manager.changes() == expected
    # What UNDO sends is the whole row from before, delivery and latency included.
    assert sent_records(manager)[-1] == before
    assert manager.vsans[20] == before
    assert_nothing_staged(writer, manager, 20, 30)


def test_a_destruction_is_undone_by_sending_the_row_again(operator):
    own_timer = cell("vsanFcTimerRatov", 10)
    assert operator.set((own_timer, ber.gauge(30000))) == DONE
    before = row(operator, 10)
    assert operator.set(row_status(10, DESTROY), name(20, "engineering")) == ("inconsistentName", 2)
    assert row(operator, 10) == before
    # Its port stays in VSAN 1 and its timer is the switch's: the row knows nothing of them.
    assert operator.value(cell("vsanIfVsan", 0x01000000)) == 1
    assert operator.value(own_timer) == operator.value(scalar("fcTimerRatov")) != 30000


def test_a_membership_stays_changed_when_another_varbind_fails(operator):
    assert operator.set(move(0x01000000, 20), name(20, "engineering")) == ("inconsistentName", 2)
    assert operator.value(cell("vsanIfVsan", 0x01000000)) == 20


def test_the_managers_refusal_of_an_undo_does_not_change_the_answer(writer, manager):
    refuse(manager, 30)
    manager.answer(REFUSED, kinds=[DELETE])
    assert writer.set(row_status(50, CREATE_AND_GO), name(30, "x")) == ("genErr", 2)
    assert manager.changes() == [(SET, 50), (SET, 30), (DELETE, 50)]
    assert_nothing_staged(writer, manager, 50)


def test_a_failed_check_releases_what_the_row_status_has_staged(writer, manager):
    for phase_that_fails in (name(50, "a b"), name(60, "no_such_vsan")):
        manager.vsans.pop(50, None)
        manager.requests.clear()
        assert writer.set(row_status(50, CREATE_AND_GO), phase_that_fails, row_status(20, ACTIVE))[1] == 2
        assert manager.changes() == []
        assert_nothing_staged(writer, manager, 50, 20)


# Somebody else was faster

def answers_in_turn(manager, vsan, *replies):
    """What successive GETs of one VSAN are answered with; the ordinary answer afterwards."""
    left = list(replies)
    manager.answer(lambda request: left.pop(0) if wire.parse_vsan(request.payload)["vsanIndex"] == vsan and left
                   else None, kinds=[wire.GET])


def test_a_vsan_created_by_somebody_else_in_between_is_an_inconsistent_value(writer, manager):
    """The protocol's own weakness: UNDO cannot tell whose the VSAN is, and deletes it."""
    answers_in_turn(manager, 20, wire.Reply(wire.NO_SUCH_VSAN, None))
    assert writer.set(row_status(20, CREATE_AND_GO)) == ("inconsistentValue", 1)
    assert manager.changes() == [(DELETE, 20)]
    assert_nothing_staged(writer, manager, 20)


@pytest.mark.parametrize("value,answer", [(ACTIVE, ("inconsistentValue", 1)), (DESTROY, DONE)])
def test_a_vsan_deleted_by_somebody_else_in_between(writer, manager, value, answer):
    """The second varbind makes the agent read the first one's row again."""
    found = wire.Reply(0, wire.vsan_block(**manager.vsans[20]))
    del manager.vsans[20]
    answers_in_turn(manager, 20, found)
    assert writer.set(row_status(20, value), row_status(30, ACTIVE)) == answer
    assert_nothing_staged(writer, manager, 30, 20)


def test_a_creation_of_a_vsan_whose_read_failed_is_undone_by_a_deletion(writer, manager):
    """A row that cannot be read looks like one that does not exist."""
    manager.answer(REFUSED, kinds=[wire.GET])
    assert writer.set(row_status(20, CREATE_AND_GO)) == ("genErr", 1)
    assert manager.changes() == [(DELETE, 20)]
    assert_nothing_staged(writer, manager, 20)


def test_a_manager_that_answers_with_another_row_changes_neither(writer, manager):
    other = wire.Reply(0, wire.vsan_block(**manager.vsans[30]))
    for value in (DESTROY, ACTIVE):
        answers_in_turn(manager, 20, other)
        assert writer.set(row_status(20, value)) == ("inconsistentName", 1)
        assert manager.changes() == []
    answers_in_turn(manager, 20, other)
    assert writer.set(name(20, "x"), state(2, 2)) == ("inconsistentName", 1)
    assert manager.changes() == []
    assert_nothing_staged(writer, manager, 30, 20)


# The manager is gone, or hangs

FIRST_GET = {"kinds": [wire.GET]}
EDITS = {
    "column": (name(20, "x"),),
    "columns": (name(20, "x"), state(20, 2), (cell("vsanInorderDelivery", 20), ber.integer(1))),
    "two_rows": (name(20, "x"), name(30, "y")),
    "active": (row_status(20, ACTIVE), name(20, "x")),
    "destroy": (row_status(20, DESTROY),),
    "create": (row_status(50, CREATE_AND_GO),),
    "create_with_columns": (name(50, "fifty"), row_status(50, CREATE_AND_GO), state(50, 2)),
}


def after_its_end(writer, manager):
    """The manager comes back: everything is served, and nothing was left behind."""
    assert writer.get(SYS_DESCR)[0].kind == "OCTET STRING"
    manager.vsans.update((vsan, vsan_row(vsan)) for vsan in (20, 30))
    manager.revive()
    assert_nothing_staged(writer, manager, 20, 30, 50)


@pytest.mark.parametrize("edit", EDITS)
def test_a_manager_that_ends_between_reserve2_and_action(writer, manager, edit):
    """It ends with its answer to the last read: for a PDU about one VSAN that is the
    first, two VSANs are read twice each."""
    reads = 4 if edit == "two_rows" else 1
    countdown = iter(range(reads - 1, -1, -1))
    manager.answer(lambda request: None if next(countdown) else LastWords(), **FIRST_GET)
    with Timed() as timed:
        status, _ = writer.set(*EDITS[edit])
    assert status == "genErr"
    assert timed.seconds < AT_ONCE
    assert manager.changes() == []
    after_its_end(writer, manager)


@pytest.mark.parametrize("edit", EDITS)
def test_a_manager_that_ends_during_action(writer, manager, edit):
    manager.answer(lambda request: manager.die(), kinds=[SET, DELETE])
    with Timed() as timed:
        assert writer.set(*EDITS[edit])[0] == "genErr"
    assert timed.seconds < AT_ONCE
    assert len(manager.changes()) == 1
    after_its_end(writer, manager)


@pytest.mark.parametrize("edit", sorted(set(EDITS) - {"two_rows", "active", "create_with_columns"}))
def test_a_manager_that_ends_between_action_and_commit(writer, manager, edit):
    """The change was accepted, and COMMIT has nothing to ask."""
    manager.answer(LastWords(), kinds=[SET, DELETE])
    assert writer.set(*EDITS[edit]) == DONE
    after_its_end(writer, manager)


@pytest.mark.parametrize("edit", ["active", "destroy", "create", "create_with_columns"])
def test_a_manager_that_ends_during_undo(writer, manager, edit):
    """The last varbind is refused, then the manager ends when something is to be taken back."""
    def end_after_the_refusal(request):
        if wire.parse_vsan(request.payload)["vsanIndex"] == 40:
            manager.answer(lambda _: manager.die(), kinds=[SET, DELETE])
            return REFUSED
        return None

    manager.answer(end_after_the_refusal, kinds=[SET, DELETE])
    # Of an object of its own, so that its ACTION is the last.
    with Timed() as timed:
        answer = writer.set(*EDITS[edit], (cell("vsanNetworkDropLatency", 40), ber.gauge(1)))
    assert answer == ("genErr", len(EDITS[edit]) + 1)
    assert timed.seconds < AT_ONCE
    after_its_end(writer, manager)


def test_a_hung_manager_is_waited_for_as_long_as_the_writes_wait_class_says(writer, manager):
    manager.answer(Silence, kinds=[SET])
    with Timed() as timed:
        assert writer.set(name(20, "x")) == ("genErr", 1)
    assert ONE_WAIT <= timed.seconds < ONE_WAIT + 1
    assert_nothing_staged(writer, manager, 20)


def test_a_manager_that_closes_the_connection_instead_of_answering(writer, manager):
    manager.answer(Close, kinds=[SET])
    with Timed() as timed:
        assert writer.set(name(20, "x"), row_status(50, CREATE_AND_GO))[0] == "genErr"
    assert timed.seconds < AT_ONCE
    assert_nothing_staged(writer, manager, 20, 50)


@pytest.mark.parametrize("action,at_fault", [("close", 3), ("exit", 2)])
def test_the_switch_itself_fails_in_the_middle_of_a_pdu(operator, action, at_fault):
    """Both names are sent before the row status. A closed connection is replaced at once,
    and VSAN 50 is created and deleted again; a switch that is gone creates nothing."""
    operator.switch.operate("fault.add", action=action, opcode=wire.VSAN, kind=SET, vsan=20, times=1)
    assert operator.set(name(10, "a"), row_status(50, CREATE_AND_GO), name(20, "b")) == ("genErr", at_fault)
    if action == "exit":
        operator.switch.process.wait()
        operator.switch.start()
    assert operator.value(cell("vsanName", 10)) == b"a"
    assert not exists(operator, 50)
    assert operator.set(state(20, 2)) == DONE
    assert operator.value(cell("vsanName", 20)) == b"storage_backup"
