# SPDX-License-Identifier: Apache-2.0
"""Fibre Channel timers, latencies and delivery: switch-wide and per VSAN. Per VSAN a
timer is the VSAN's own or, where it has none, the switch's."""

import time

import pytest

from harness import ber, wire
from harness.assignments import DESTROY, row_status
from harness.clients import NO_SUCH_INSTANCE, NetSnmp
from harness.fake_manager import Silence
from harness.oids import ARCS, ROOT, TIMERS, cell, scalar
from harness.packets import DONE, PacketClient

VSANS = (1, 2, 10, 20, 30, 40, 4095)
LONG_WAIT = 2.5  # wait class 10: the whole fabric may have to agree
FLAG = "vsanFcTimerForceFlag"
SUMMARY = ARCS["vsanMembershipSummaryIfIndex"]
BOUNDS = {"Ratov": (5000, 100000), "Edtov": (1000, 100000), "Dstov": (5000, 100000)}
LATENCIES = ("fcNetworkLatency", "fcSwitchLatency")


def timer(which, vsan, value):
    return cell("vsanFcTimer" + which, vsan), ber.gauge(value)


def switch_timer(which, value):
    return scalar("fcTimer" + which), ber.gauge(value)


def flag(vsan, bits):
    return cell(FLAG, vsan), ber.octets(bytes((bits,)))


def column(client, name):
    return {row.oid[-1]: row.value for row in client.walk(ARCS[name])}


def timer_records(manager):
    """(key, value, per VSAN, forced, VSAN) of each timer request that was to set one."""
    return [wire.parse_timer(r.payload) for r in manager.requests if (r.opcode, r.kind) == (wire.FC_TIMER, wire.SET)]


def test_a_vsan_without_timers_of_its_own_shows_the_switchs(writable):
    for which, value in (("Ratov", 10000), ("Edtov", 2000), ("Dstov", 5000), ("Fstov", 5000)):
        assert writable.value(scalar("fcTimer" + which)) == value
        assert column(writable, "vsanFcTimer" + which) == dict.fromkeys(VSANS, value)
    assert column(writable, FLAG) == dict.fromkeys(VSANS, b"\0")


@pytest.mark.parametrize("index", [(), (0,), (50,), (4096,), (10, 0), (2**32 - 1,)])
def test_what_is_no_vsan_has_no_timers(writable, index):
    assert {a.kind for a in writable.get(*(cell(name, *index) for name in TIMERS))} == {NO_SUCH_INSTANCE}


def test_a_timer_of_one_vsan_is_its_own_and_survives_a_restart(operator):
    assert operator.set(timer("Ratov", 10, 20000), timer("Edtov", 20, 1500), timer("Dstov", 30, 6000)) == DONE
    operator.switch.restart()
    assert column(operator, "vsanFcTimerRatov") == dict.fromkeys(VSANS, 10000) | {10: 20000}
    assert column(operator, "vsanFcTimerEdtov") == dict.fromkeys(VSANS, 2000) | {20: 1500}
    assert column(operator, "vsanFcTimerDstov") == dict.fromkeys(VSANS, 5000) | {30: 6000}
    assert operator.value(scalar("fcTimerRatov")) == 10000
    # It stays when the switch-wide one changes, and goes with the VSAN.
    assert operator.set(switch_timer("Ratov", 30000)) == DONE
    assert column(operator, "vsanFcTimerRatov") == dict.fromkeys(VSANS, 30000) | {10: 20000}
    assert operator.set(row_status(10, DESTROY)) == DONE
    assert 10 not in column(operator, "vsanFcTimerRatov")


@pytest.mark.parametrize("which", BOUNDS)
def test_timers_within_and_beyond_their_bounds(operator, which):
    lowest, highest = BOUNDS[which]
    assert operator.set(flag(10, 0xE0)) == DONE
    if which != "Ratov":
        assert operator.set(switch_timer("Ratov", 100000)) == DONE
    for assignment in (lambda value: timer(which, 10, value), lambda value: switch_timer(which, value)):
        for value in (lowest, highest - 1):
            assert operator.set(assignment(value)) == DONE, value
            assert operator.value(assignment(value)[0]) == value
        with operator.switch.counting() as served:
            for value in (lowest - 1, highest + 1, 0, 2**32 - 1):
                assert operator.set(assignment(value)) == ("wrongValue", 1), value
        assert served.to_managers(wire.SET) == 0
        assert operator.value(assignment(0)[0]) == highest - 1


@pytest.mark.parametrize("name", LATENCIES)
def test_latencies_within_and_beyond_their_bounds(writable, name):
    for value, answer in ((0, DONE), (60000, DONE), (60001, ("wrongValue", 1)), (2**32 - 1, ("wrongValue", 1))):
        assert writable.set((scalar(name), ber.gauge(value))) == answer
    assert writable.value(scalar(name)) == 60000


def test_delivery_is_true_or_false(writable):
    refused = ("wrongValue", 1)
    for value, answer in ((2, DONE), (1, DONE), (0, refused), (3, refused), (-1, refused)):
        assert writable.set((scalar("fcInorderDelivery"), ber.integer(value))) == answer
    assert writable.value(scalar("fcInorderDelivery")) == 1


@pytest.mark.parametrize("vsan,answer", [(0, "inconsistentName"), (4096, "inconsistentName"), (50, "inconsistentName")])
def test_timers_of_no_vsan_cannot_be_set(writable, vsan, answer):
    for which in BOUNDS:
        assert writable.set(timer(which, vsan, 9000)) == (answer, 1)


# E_D_TOV stays below R_A_TOV

def test_a_timer_that_would_break_the_order_is_refused_by_the_manager(operator):
    for which, value in (("Edtov", 10000), ("Edtov", 100000)):
        assert operator.set(timer(which, 10, value)) == ("genErr", 1)
        assert operator.set(switch_timer(which, value)) == ("genErr", 1)
    assert operator.set(timer("Edtov", 10, 9999)) == DONE
    assert operator.set(timer("Ratov", 10, 9999)) == ("genErr", 1)
    assert operator.set(timer("Ratov", 10, 10000)) == DONE
    # VSAN 10 now has both of its own; one that follows the switch is in the way.
    assert operator.set(timer("Edtov", 20, 9000)) == DONE
    assert operator.set(switch_timer("Ratov", 9000)) == ("genErr", 1)
    assert operator.set(switch_timer("Ratov", 9001)) == DONE
    assert operator.value(cell("vsanFcTimerEdtov", 10)) == 9999


def test_two_timers_of_one_pdu_are_sent_in_the_order_of_their_objects(operator):
    assert operator.set(timer("Edtov", 10, 20000), timer("Ratov", 10, 30000)) == ("genErr", 1)
    assert operator.value(cell("vsanFcTimerRatov", 10)) == 30000  # nothing takes it back
    assert operator.set(timer("Ratov", 20, 30000), timer("Edtov", 20, 20000)) == DONE


def test_a_force_flag_before_the_timer_of_its_pdu_forces_it(operator):
    assert operator.set(flag(10, 0x40), timer("Edtov", 10, 50000)) == DONE
    assert operator.value(cell("vsanFcTimerEdtov", 10)) == 50000
    assert operator.set(timer("Edtov", 20, 50000)) == ("genErr", 1)  # another VSAN's is its own


def test_a_force_flag_after_the_timer_comes_too_late_for_it_and_stays_set(operator):
    assert operator.set(timer("Edtov", 10, 50000), flag(10, 0x40)) == ("genErr", 1)
    assert operator.value(cell(FLAG, 10)) == b"\x40"  # nothing takes it back
    assert operator.set(timer("Edtov", 10, 50000)) == DONE
    assert operator.set(timer("Edtov", 10, 60000)) == DONE


def test_a_force_flag_holds_until_it_is_written_again(operator):
    assert operator.set(flag(10, 0xFF)) == DONE
    assert operator.value(cell(FLAG, 10)) == b"\xe0"
    assert operator.set(timer("Edtov", 10, 50000), timer("Ratov", 10, 6000)) == DONE
    assert operator.set(flag(10, 0x1F)) == DONE
    assert operator.value(cell(FLAG, 10)) == b"\0"
    assert operator.set(timer("Edtov", 10, 50001)) == ("genErr", 1)


def test_a_force_flag_of_no_byte_clears_and_of_two_is_too_long(operator):
    assert operator.set(flag(10, 0xE0)) == DONE
    assert operator.set((cell(FLAG, 10), ber.octets(b"\0\0"))) == ("wrongLength", 1)
    assert operator.value(cell(FLAG, 10)) == b"\xe0"
    assert operator.set((cell(FLAG, 10), ber.octets(b""))) == DONE
    assert operator.value(cell(FLAG, 10)) == b"\0"


def test_a_force_flag_takes_no_request_to_set_and_a_timer_takes_one(operator):
    with operator.switch.counting() as served:
        assert operator.set(flag(10, 0xE0)) == DONE
    assert served.to_managers(wire.SET) == 0
    with operator.switch.counting() as served:
        assert operator.set(timer("Dstov", 10, 7000)) == DONE
    assert served.to_managers(wire.SET) == served.of(wire.FC_TIMER, wire.SET) == 1


def test_the_records_that_timers_are_set_with(writer, manager):
    assert writer.set(flag(20, 0xA0), timer("Ratov", 20, 6000), timer("Edtov", 20, 1001), timer("Dstov", 20, 7000),
                      timer("Ratov", 30, 8000), switch_timer("Ratov", 9000), switch_timer("Edtov", 1000),
                      switch_timer("Dstov", 5000)) == DONE
    assert timer_records(manager) == [
        (8, 6000, 1, 1, 20), (8, 8000, 1, 0, 30), (7, 1001, 1, 0, 20), (9, 7000, 1, 1, 20),
        (8, 9000, 0, 0, 0), (7, 1000, 0, 0, 0), (9, 5000, 0, 0, 0)]


def test_a_value_that_was_accepted_stays_when_another_varbind_fails(operator):
    assert operator.set(switch_timer("Ratov", 20000), (scalar("fcSwitchLatency"), ber.gauge(7)),
                        timer("Edtov", 10, 50000), flag(20, 0x80)) == ("genErr", 3)
    assert operator.value(scalar("fcTimerRatov")) == 20000
    assert operator.value(scalar("fcSwitchLatency")) == 7
    assert operator.value(cell(FLAG, 20)) == b"\x80"


@pytest.mark.parametrize("assignment", [timer("Ratov", 20, 6000), switch_timer("Ratov", 6000),
                                        (scalar("fcSwitchLatency"), ber.gauge(1)),
                                        (scalar("fcInorderDelivery"), ber.integer(1))],
                         ids=["vsan", "switch", "latency", "delivery"])
def test_a_hung_manager_is_waited_for_as_long_as_the_fabric_may_take(writer, manager, assignment):
    for opcode in (wire.FC_TIMER, wire.LATENCY, wire.INORDER_DELIVERY):
        manager.answer(Silence, opcode=opcode, kinds=[wire.SET])
    start = time.monotonic()
    assert writer.set(assignment) == ("genErr", 1)
    assert LONG_WAIT <= time.monotonic() - start < LONG_WAIT + 1
    manager.behave()
    assert writer.set(assignment) == DONE


# The distribution service governs the timers

def test_while_the_distribution_service_governs_timers_its_record_is_shown(operator):
    """Only VSANs with a value there are: a GET of another answers with the next one."""
    switch = operator.switch
    switch.operate("tdx.enable")
    assert column(operator, "vsanFcTimerRatov") == {}
    assert operator.set(timer("Ratov", 20, 20000)) == DONE
    assert column(operator, "vsanFcTimerRatov") == {20: 20000}
    answer = operator.get(cell("vsanFcTimerRatov", 10))[0]
    assert (answer.oid, answer.value) == (cell("vsanFcTimerRatov", 20), 20000)
    switch.operate("tdx.show-run", on=True)
    assert column(operator, "vsanFcTimerRatov") == dict.fromkeys(VSANS, 10000)
    switch.operate("tdx.commit")
    assert column(operator, "vsanFcTimerRatov") == dict.fromkeys(VSANS, 10000) | {20: 20000}


@pytest.mark.parametrize("show_run", [False, True])
@pytest.mark.parametrize("community", ["private", "limited"])
def test_the_whole_subtree_is_consistent_while_the_service_governs(operator, community, show_run):
    operator.switch.operate("tdx.enable")
    assert operator.set(timer("Ratov", 30, 20000), timer("Ratov", 4095, 20001), timer("Dstov", 20, 7000)) == DONE
    operator.switch.operate("tdx.show-run", on=show_run)
    with PacketClient(operator.agent, community) as client:
        walked = client.walk(ROOT)
        assert all(before.oid < after.oid for before, after in zip(walked, walked[1:]))
        readable = [row for row in walked if community == "private" or row.oid[: len(SUMMARY)] != SUMMARY]
        assert [client.get(row.oid)[0] for row in readable] == readable
        numbers = {"private": VSANS, "limited": (1, 30)}[community]
        expected = numbers if show_run else [vsan for vsan in numbers if vsan in (30, 4095)]
        assert [row.oid[-1] for row in walked if row.oid[:-1] == ARCS["vsanFcTimerRatov"]] == list(expected)


@pytest.mark.parametrize("is_governed", [False, True])
def test_a_restricted_v3_user_walks_the_whole_subtree_with_the_service_on_and_off(operator, is_governed):
    if is_governed:
        operator.switch.operate("tdx.enable")
        assert operator.set(timer("Ratov", 30, 20000), timer("Ratov", 4095, 20001)) == DONE
    walked = NetSnmp(operator.agent, version="3", user="alice").walk(ROOT)
    assert all(before.oid < after.oid for before, after in zip(walked, walked[1:]))

    def rows(name):
        return [row.oid[-1] for row in walked if row.oid[:-1] == ARCS[name]]

    assert rows("vsanName") == [1, 30]
    assert rows("vsanFcTimerRatov") == ([30] if is_governed else [1, 30])
    assert {row.oid[len(SUMMARY)] for row in walked if row.oid[: len(SUMMARY)] == SUMMARY} <= {1, 30}


def test_a_timer_of_a_vsan_without_a_value_at_the_service_is_not_set_in_the_next_ones_place(operator):
    """The read before the SET answers with VSAN 20's row; VSAN 10 was meant."""
    operator.switch.operate("tdx.enable")
    assert operator.set(timer("Ratov", 20, 20000)) == DONE
    assert operator.set(timer("Ratov", 10, 30000)) == ("inconsistentName", 1)
    assert operator.value(cell("vsanFcTimerRatov", 20)) == 20000


def test_at_the_service_a_vsan_gets_its_first_timer_before_any_higher_one_has_one(operator):
    operator.switch.operate("tdx.enable")
    assert operator.set(timer("Ratov", 20, 20000)) == operator.set(timer("Ratov", 40, 20000)) == DONE
    assert operator.set(timer("Ratov", 30, 20000)) == ("inconsistentName", 1)
    # Each timer has values of its own, and in one PDU all are read before any is written.
    assert operator.set(timer("Edtov", 40, 1500), timer("Edtov", 30, 1500), timer("Edtov", 20, 1500)) == DONE
    assert column(operator, "vsanFcTimerRatov") == dict.fromkeys((20, 40), 20000)
    assert column(operator, "vsanFcTimerEdtov") == dict.fromkeys((20, 30, 40), 1500)
    # In show-run mode the read asks the switch, where every VSAN has a value.
    operator.switch.operate("tdx.show-run", on=True)
    assert operator.set(timer("Ratov", 30, 20000)) == DONE
