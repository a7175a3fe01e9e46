# SPDX-License-Identifier: Apache-2.0
"""SETs on the VSAN table: columns, row status, bounds. Every test has a switch of its
own, with VSANs 1, 2, 10, 20, 30, 40 and 4095."""

import struct

import pytest

from harness import ber, wire
from harness.assignments import ACTIVE, CREATE_AND_GO, DESTROY, exists, name, row, row_status, state
from harness.clients import NetSnmp, SnmpError
from harness.oids import ACCESS, NAMES, SCALARS, TYPE_OF, WRITE, cell, scalar
from harness.packets import DONE, SET

PORT = 0x01000000  # in VSAN 10

NEW_VALUES = {
    "vsanName": (10, ber.octets("renamed"), b"renamed"),
    "vsanAdminState": (10, ber.integer(1), 1),
    "vsanLoadBalancingType": (10, ber.integer(2), 2),
    "vsanInterOperType": (10, ber.integer(3), 3),
    "vsanInorderDelivery": (10, ber.integer(2), 2),
    "vsanNetworkDropLatency": (10, ber.gauge(777), 777),
    "vsanRowStatus": (10, ber.integer(ACTIVE), ACTIVE),
    "vsanIfVsan": (PORT, ber.integer(20), 20),
    "fcTimerRatov": (0, ber.gauge(20000), 20000),
    "fcTimerEdtov": (0, ber.gauge(1000), 1000),
    "fcTimerDstov": (0, ber.gauge(7000), 7000),
    "fcNetworkLatency": (0, ber.gauge(60000), 60000),
    "fcSwitchLatency": (0, ber.gauge(0), 0),
    "fcInorderDelivery": (0, ber.integer(1), 1),
    "vsanFcTimerForceFlag": (10, ber.octets(b"\xe0"), b"\xe0"),
    "vsanFcTimerRatov": (10, ber.gauge(20000), 20000),
    "vsanFcTimerEdtov": (10, ber.gauge(1500), 1500),
    "vsanFcTimerDstov": (10, ber.gauge(9000), 9000),
}


def test_every_writable_object_can_be_set_and_reads_back_after_a_restart_too(operator):
    # The operational state is registered for writing and has no write method.
    assert set(NEW_VALUES) == {n for n in NAMES if ACCESS[n] == WRITE} - {"vsanOperState"}
    for object_name, (index, value, shown) in NEW_VALUES.items():
        assert operator.set((cell(object_name, index), value)) == DONE, object_name
        assert operator.value(cell(object_name, index)) == shown, object_name
    operator.switch.restart()
    for object_name, (index, _, shown) in NEW_VALUES.items():
        assert operator.value(cell(object_name, index)) == shown, object_name


def test_all_writable_objects_can_be_set_in_one_pdu(operator):
    assert operator.set(*((cell(n, index), value) for n, (index, value, _) in NEW_VALUES.items()
                          if n != "vsanRowStatus")) == DONE
    for object_name, (index, _, shown) in NEW_VALUES.items():
        assert operator.value(cell(object_name, index)) == shown, object_name


def test_a_read_only_object_beside_writable_ones_keeps_them_from_being_sent(operator):
    with operator.switch.counting() as served:
        assert operator.set(name(10, "new"), (cell("vsanMtu", 10), ber.gauge(1)), state(10, 1)) == ("notWritable", 2)
    assert served.to_managers(wire.SET) == 0


# Row status

DEFAULTS = {"vsanMediaType": 1, "vsanAdminState": 1, "vsanMtu": 2112, "vsanLoadBalancingType": 2, "vsanOperState": 2,
            "vsanRowStatus": 1, "vsanInterOperType": 0, "vsanInorderDelivery": 2, "vsanNetworkDropLatency": 500}


def test_create_and_go_alone_makes_a_vsan_of_default_values_in_one_request(operator):
    with operator.switch.counting() as served:
        assert operator.set(row_status(50, CREATE_AND_GO)) == DONE
    assert served.of(wire.VSAN, wire.SET) == 1
    assert row(operator, 50) == DEFAULTS | {"vsanName": b"VSAN0050"}
    assert operator.value(scalar("vsanNumber")) == 8


WITH_COLUMNS = [name(50, "fifty"), state(50, 2), (cell("vsanInterOperType", 50), ber.integer(2)),
                (cell("vsanNetworkDropLatency", 50), ber.gauge(9))]
CREATED = DEFAULTS | {"vsanName": b"fifty", "vsanAdminState": 2, "vsanInterOperType": 2, "vsanNetworkDropLatency": 9}


@pytest.mark.parametrize("position,requests", [(4, 1), (2, 2), (0, 2)], ids=["after", "between", "before"])
def test_create_and_go_with_columns_creates_the_vsan_with_them(operator, position, requests):
    """One request when all columns come first; a column that reaches ACTION after the
    row status finds the row sent and sends it again."""
    pdu = list(WITH_COLUMNS)
    pdu.insert(position, row_status(50, CREATE_AND_GO))
    with operator.switch.counting() as served:
        assert operator.set(*pdu) == DONE
    assert row(operator, 50) == CREATED
    assert served.of(wire.VSAN, wire.SET) == requests


def test_vsan_9_is_sent_with_its_first_column_and_its_creation_then_fails_and_is_undone(operator):
    """Its column comes before its row status: the column's ACTION creates the VSAN, and
    the row status finds that it exists. UNDO deletes it again."""
    with operator.switch.counting() as served:
        assert operator.set(name(9, "nine"), row_status(9, CREATE_AND_GO)) == ("inconsistentValue", 2)
    assert (served.of(wire.VSAN, wire.SET), served.of(wire.VSAN, wire.DELETE)) == (1, 1)
    assert not exists(operator, 9)


def test_vsan_9_is_created_when_the_row_status_comes_first(operator):
    assert operator.set(row_status(9, CREATE_AND_GO), name(9, "nine")) == DONE
    assert row(operator, 9) == DEFAULTS | {"vsanName": b"nine"}


def test_create_and_go_of_an_existing_vsan_is_an_inconsistent_value(operator):
    with operator.switch.counting() as served:
        assert operator.set(row_status(10, CREATE_AND_GO)) == ("inconsistentValue", 1)
    assert served.to_managers(wire.SET) == 0


def test_the_same_vsan_created_twice_in_one_pdu_is_created_and_then_taken_back(operator):
    assert operator.set(row_status(50, CREATE_AND_GO), row_status(50, CREATE_AND_GO)) == ("inconsistentValue", 2)
    assert not exists(operator, 50)
    assert operator.set(row_status(50, CREATE_AND_GO)) == DONE


def test_destroy_deletes_the_vsan_and_moves_its_ports_to_vsan_1(operator):
    with operator.switch.counting() as served:
        assert operator.set(row_status(10, DESTROY)) == DONE
    assert (served.of(wire.VSAN, wire.DELETE), served.of(wire.VSAN, wire.SET)) == (1, 0)
    assert not exists(operator, 10)
    assert operator.value(cell("vsanIfVsan", PORT)) == 1
    assert operator.value(cell("vsanMembershipSummaryIfIndex", 1, PORT)) == PORT
    operator.switch.restart()
    assert not exists(operator, 10)
    assert operator.value(cell("vsanIfVsan", PORT)) == 1


def test_destroy_of_a_missing_vsan_succeeds_without_a_request_to_delete(operator):
    with operator.switch.counting() as served:
        assert operator.set(row_status(50, DESTROY)) == DONE
    assert served.to_managers(wire.DELETE) == served.to_managers(wire.SET) == 0


def test_destroy_of_vsan_1_is_refused_by_the_manager(operator):
    assert operator.set(row_status(1, DESTROY)) == ("genErr", 1)
    assert exists(operator, 1)


def test_active_sends_an_existing_vsan_again_as_it_is(operator):
    before = row(operator, 10)
    with operator.switch.counting() as served:
        assert operator.set(row_status(10, ACTIVE)) == DONE
    assert served.of(wire.VSAN, wire.SET) == 1
    assert row(operator, 10) == before


def test_active_on_a_missing_vsan_is_an_inconsistent_value(operator):
    assert operator.set(row_status(50, ACTIVE)) == ("inconsistentValue", 1)
    assert not exists(operator, 50)


def test_active_after_a_column_of_the_same_pdu_sends_the_row_as_it_was_read(operator):
    """The row is read once a PDU: `active` then undoes what the column has set."""
    assert operator.set(name(10, "new"), row_status(10, ACTIVE)) == DONE
    assert operator.value(cell("vsanName", 10)) == b"storage_prod"
    assert operator.set(row_status(10, ACTIVE), name(10, "new")) == DONE
    assert operator.value(cell("vsanName", 10)) == b"new"


def test_active_after_a_column_sends_the_new_row_when_another_vsan_was_read_in_between(operator):
    assert operator.set(name(10, "new"), name(20, "other"), row_status(10, ACTIVE)) == DONE
    assert operator.value(cell("vsanName", 10)) == b"new"


def test_column_and_destroy_of_one_vsan_in_both_orders(operator):
    assert operator.set(name(10, "doomed"), row_status(10, DESTROY)) == DONE
    assert not exists(operator, 10)
    # The column's row is sent after the deletion, and what is sent exists again.
    assert operator.set(row_status(20, DESTROY), name(20, "phoenix")) == DONE
    assert operator.value(cell("vsanName", 20)) == b"phoenix"
    assert operator.value(cell("vsanNetworkDropLatency", 20)) == 500


@pytest.mark.parametrize("value", [0, 2, 3, 5, 7, -1, 2**31 - 1, -(2**31)])
def test_other_row_status_is_a_wrong_value(operator, value):
    for vsan in (10, 50):
        assert operator.set(row_status(vsan, value)) == ("wrongValue", 1)


@pytest.mark.parametrize("vsan,answer", [(4095, DONE), (0, ("wrongValue", 1)), (4096, ("wrongValue", 1)),
                                         (2**32 - 1, ("wrongValue", 1))])
def test_numbers_that_a_vsan_can_have(operator, vsan, answer):
    operator.set(row_status(4095, DESTROY))
    assert operator.set(row_status(vsan, CREATE_AND_GO)) == answer
    assert exists(operator, vsan) == (answer == DONE)


def test_create_and_move_a_port_into_the_vsan_in_one_pdu(operator):
    assert operator.set(row_status(50, CREATE_AND_GO), name(50, "fifty"),
                        (cell("vsanIfVsan", PORT), ber.integer(50))) == DONE
    assert operator.value(cell("vsanIfVsan", PORT)) == 50
    # The other way round the VSAN is not there yet, and the creation is taken back.
    assert operator.set((cell("vsanIfVsan", PORT), ber.integer(51)), row_status(51, CREATE_AND_GO)) == (
        "inconsistentName", 1)
    assert not exists(operator, 51)


# Columns

def test_a_column_sends_the_whole_row_and_leaves_delivery_and_latency_alone(writer, manager):
    manager.vsans[20].update(vsanInorderDelivery=1, vsanNetworkDropLatency=77)
    assert writer.set(name(20, "new")) == DONE
    sent = [wire.parse_vsan(r.payload) for r in manager.requests if r.kind == wire.SET]
    assert sent == [manager.vsans[20] | {"vsanName": b"new", "vsanInorderDelivery": 0, "vsanNetworkDropLatency": 0}]
    assert (manager.vsans[20]["vsanInorderDelivery"], manager.vsans[20]["vsanNetworkDropLatency"]) == (1, 77)


def test_columns_of_one_vsan_go_to_the_manager_in_one_request(operator):
    with operator.switch.counting() as served:
        assert operator.set(name(10, "new"), state(10, 1), (cell("vsanInterOperType", 10), ber.integer(0))) == DONE
    assert served.of(wire.VSAN, wire.SET) == 1
    shown = row(operator, 10)
    assert (shown["vsanName"], shown["vsanAdminState"], shown["vsanInterOperType"]) == (b"new", 1, 0)


def test_interop_mode_0_reaches_the_manager_as_100(operator):
    assert operator.set((cell("vsanInterOperType", 10), ber.integer(0))) == DONE
    assert next(v for v in operator.switch.vsans() if v["vsanIndex"] == 10)["vsanInterOperType"] == 100


def test_two_vsans_take_two_requests_in_the_order_of_their_first_varbinds(writer, manager):
    assert writer.set(name(30, "a"), name(20, "b"), state(20, 2), state(30, 2)) == DONE
    assert manager.changes() == [(wire.SET, 30), (wire.SET, 20)]


@pytest.mark.parametrize("column,value", [("vsanName", ber.octets("x")), ("vsanAdminState", ber.integer(1)),
                                          ("vsanNetworkDropLatency", ber.gauge(1))])
def test_a_column_of_a_missing_vsan_is_an_inconsistent_name(operator, column, value):
    assert operator.set((cell(column, 50), value)) == ("inconsistentName", 1)
    assert not exists(operator, 50)
    # A number that no VSAN can have is none that the manager would look for.
    for vsan in (0, 4096):
        assert operator.set((cell(column, vsan), value)) == ("genErr", 1)


def test_a_name_with_another_number_of_arcs_is_no_vsan(operator):
    for oid in (cell("vsanName"), cell("vsanName", 10, 1)):
        assert operator.set((oid, ber.octets("x")))[0] in ("genErr", "inconsistentName"), oid
        assert operator.value(cell("vsanName", 10)) == b"storage_prod"


NAMES_GIVEN = [
    ("n" * 32, DONE, b"n" * 32),
    ("n" * 33, ("wrongLength", 1), None),
    ("n" * 300, ("wrongLength", 1), None),
    ("", DONE, b""),
    ("ab cd", ("wrongValue", 1), None),
    (" ", ("wrongValue", 1), None),
    ("\0 x", DONE, b""),
    ("ab\0cd", DONE, b"ab"),
    ("ab\0 cd", DONE, b"ab"),
    ("tab\t", ("genErr", 1), None),  # the manager's own rule
    ("x" * 40, ("wrongLength", 1), None),
]


@pytest.mark.parametrize("given,answer,shown", NAMES_GIVEN, ids=[ascii(n)[:12] for n, _, _ in NAMES_GIVEN])
def test_names(writable, given, answer, shown):
    assert writable.set(name(2, "before")) == DONE
    assert writable.set(name(2, given)) == answer
    assert writable.value(cell("vsanName", 2)) == (b"before" if shown is None else shown)


INTEGERS = {  # column: accepted values, refused ones
    "vsanAdminState": ((1, 2), (0, 3, -1)),
    "vsanLoadBalancingType": ((1, 2), (0, 3, -1)),
    "vsanInterOperType": ((0, 1, 2, 3, 4), (5, -1, 100)),
    "vsanInorderDelivery": ((1, 2), (0, 3, -1)),
}


@pytest.mark.parametrize("column", INTEGERS)
def test_integers_within_and_beyond_their_bounds(writable, column):
    accepted, refused = INTEGERS[column]
    for value in accepted:
        assert writable.set((cell(column, 2), ber.integer(value))) == DONE
        assert writable.value(cell(column, 2)) == value
    for value in refused + (2**31 - 1, -(2**31)):
        assert writable.set((cell(column, 2), ber.integer(value))) == ("wrongValue", 1), value
        assert writable.value(cell(column, 2)) == accepted[-1]


def test_drop_latency_within_and_beyond_its_bounds(writable):
    column = cell("vsanNetworkDropLatency", 2)
    for value in (1, 60000):
        assert writable.set((column, ber.gauge(value))) == DONE
        assert writable.value(column) == value
    for value, answer in ((60001, "wrongValue"), (2**32 - 1, "wrongValue"), (0, "genErr")):
        assert writable.set((column, ber.gauge(value))) == (answer, 1)
    assert writable.value(column) == 60000


@pytest.mark.parametrize("column,value", [
    *((column, ber.integer((1 << bits) + 9)) for column in (*INTEGERS, "vsanRowStatus") for bits in (32, 40)),
    ("vsanNetworkDropLatency", ber.gauge((1 << 32) + 60001)),
])
def test_an_integer_of_more_than_32_bits_is_refused_for_what_the_agents_decoder_leaves_of_it(writable, column, value):
    """A 64-bit agent cuts an integer to 32 bits before any module sees it; a 32-bit one
    drops the packet."""
    before = row(writable, 2)
    if struct.calcsize("l") > 4:
        assert writable.set((cell(column, 2), value)) == ("wrongValue", 1)
    else:
        writable.send(SET, [(cell(column, 2), value)])
    assert row(writable, 2) == before


CUT_BY_THE_AGENT = {  # column: a value, and what VSAN 30 shows after it
    "vsanRowStatus": (ber.integer((1 << 32) + DESTROY), None),
    "vsanAdminState": (ber.integer((1 << 32) + 2), 2),
    "vsanNetworkDropLatency": (ber.gauge((1 << 40) + 7), 7),
}


@pytest.mark.parametrize("column", CUT_BY_THE_AGENT)
def test_what_a_64_bit_agent_leaves_of_a_wider_integer_is_what_counts(operator, column):
    value, left = CUT_BY_THE_AGENT[column]
    before = row(operator, 30)
    if struct.calcsize("l") > 4:
        assert operator.set((cell(column, 30), value)) == DONE
        assert operator.value(cell(column, 30)) == left
    else:
        operator.send(SET, [(cell(column, 30), value)])
        assert row(operator, 30) == before


@pytest.mark.parametrize("column,value", [("vsanAdminState", ber.integer((1 << 80) + 1)),
                                          ("vsanNetworkDropLatency", ber.gauge((1 << 80) + 1)),
                                          ("vsanAdminState", ber.element(ber.INTEGER, bytes(200) + b"\1"))])
def test_an_integer_wider_than_the_agent_can_read_changes_nothing(writable, column, value):
    """The agent drops such a packet. The next one is answered."""
    before = row(writable, 2)
    writable.send(SET, [(cell(column, 2), value)])
    assert row(writable, 2) == before


def test_an_integer_of_no_octets_is_no_value(writable):
    before = row(writable, 2)
    writable.send(SET, [(cell("vsanAdminState", 2), ber.element(ber.INTEGER, b""))])
    assert writable.set(row_status(2, 2)) == ("wrongValue", 1)
    assert row(writable, 2) == before


WRONG_TYPES = {"INTEGER": ber.integer(1), "OCTET STRING": ber.octets("1"), "Gauge32": ber.gauge(1),
               "Timeticks": ber.integer(1, ber.TICKS), "OID": ber.oid((1, 3, 6)),
               "IpAddress": ber.element(0x40, b"\1" * 4), "NULL": ber.element(ber.NULL, b"")}


@pytest.mark.parametrize("object_name", NEW_VALUES)
def test_a_value_of_another_type_is_a_wrong_type(writable, object_name):
    index = {"vsanIfVsan": PORT}.get(object_name, 0 if object_name in SCALARS else 2)
    for kind, value in WRONG_TYPES.items():
        if kind != TYPE_OF[object_name]:
            assert writable.set((cell(object_name, index), value)) == ("wrongType", 1), kind


def test_type_is_looked_at_before_length_and_length_before_value(writable):
    assert writable.set((cell("vsanName", 2), ber.element(0x44, b"a b" * 20))) == ("wrongType", 1)
    assert writable.set((cell("vsanName", 2), ber.octets("a b" * 20))) == ("wrongLength", 1)


@pytest.mark.parametrize("position", range(5))
def test_the_error_names_the_varbind_at_fault(writable, position):
    pdu = [name(2, "fine"), state(2, 1), (cell("vsanInterOperType", 2), ber.integer(1)),
           (cell("vsanNetworkDropLatency", 2), ber.gauge(1))]
    pdu.insert(position, (cell("vsanInorderDelivery", 2), ber.integer(3)))
    before = row(writable, 2)
    assert writable.set(*pdu) == ("wrongValue", position + 1)
    assert row(writable, 2) == before


def test_of_several_errors_of_one_phase_the_first_varbind_is_named(writable):
    assert writable.set(name(2, "fine"), state(2, 9), name(2, "a b")) == ("wrongValue", 2)
    assert writable.set(state(2, 9), name(2, "x" * 33)) == ("wrongValue", 1)


@pytest.mark.parametrize("version,user", [("1", "private"), ("2c", "private"), ("3", "bob"), ("3", "alice")])
def test_other_clients_and_versions_write_too(writable, version, user):
    client = NetSnmp(writable.agent, version, user)
    vsan = 30
    assert client.set((cell("vsanName", vsan), "s", "by_" + user))[0].value == b"by_" + user.encode()
    with pytest.raises(SnmpError) as refused:
        client.set((cell("vsanAdminState", vsan), "i", 1), (cell("vsanName", vsan), "s", "a b"))
    assert refused.value.status == ("badValue" if version == "1" else "wrongValue")
    assert refused.value.failed == cell("vsanName", vsan)
