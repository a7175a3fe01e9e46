# SPDX-License-Identifier: Apache-2.0
"""What docs/objects.md says of failed writes is what happens: status and phase of every row
of its table, by SETs that fail for the row's reason."""

import contextlib

import pytest

from harness import ber, wire
from harness.assignments import ACTIVE, CREATE_AND_GO, DESTROY, move, name, row_status, state
from harness.build import REPOSITORY
from harness.oids import cell, scalar
from harness.packets import PacketClient

PORT, NO_PORT = 0x01000000, 0x01000001
STORE_FAILED = 0x40010006
CREATE_AND_WAIT, NOT_IN_SERVICE, NOT_READY = 5, 2, 3
EARLY_FAILURE = state(2, 9)  # a wrong value: RESERVE1
WITNESS = scalar("fcSwitchLatency")  # sent in ACTION

LATENCY, FLAG, TIMER = "vsanNetworkDropLatency", "vsanFcTimerForceFlag", "vsanFcTimerRatov"


def latency(vsan, value):
    return cell(LATENCY, vsan), ber.gauge(value)


def timer(vsan, value):
    return cell(TIMER, vsan), ber.gauge(value)


class Way:
    """SETs that fail for one reason. Each is a PDU whose last variable is at fault; the
    fault, if any, is what the switch does wrong meanwhile."""

    def __init__(self, *pdus, community="private", **fault):
        self.pdus = [pdu if isinstance(pdu[0][0], tuple) else (pdu,) for pdu in pdus]
        self.community = community
        self.fault = fault


# The reasons in the table's words. Memory that runs out is the unit tests' (WriteShortage).
WAYS = {
    "wrong ASN.1 type": Way((cell("vsanName", 10), ber.gauge(1)), (cell(TIMER, 10), ber.integer(9000))),
    "over 32 bytes of name, over 1 byte of force flag": Way(name(10, "n" * 33), (cell(FLAG, 10), ber.octets(b"\0\0"))),
    "value outside the range above; a name with a space; a VSAN number outside 1..4095 with `vsanRowStatus`; "
    "createAndWait, notInService, notReady": Way(
        state(10, 3), latency(10, 60001), timer(10, 4999), name(10, "a b"), row_status(0, CREATE_AND_GO),
        row_status(4096, CREATE_AND_GO),
        *(row_status(10, value) for value in (CREATE_AND_WAIT, NOT_IN_SERVICE, NOT_READY))),
    "`vsanNetworkDropLatency` 0": Way(latency(10, 0)),
    "a user who is restricted to other VSANs or interfaces, or whose role the switch does not tell": [
        Way(name(10, "x"), row_status(50, CREATE_AND_GO), timer(10, 9000), (cell(FLAG, 10), ber.octets(b"\x80")),
            move(PORT, 30), community="limited"),
        Way(name(10, "x"), move(PORT, 20), action="status", value=STORE_FAILED, service=wire.SERVICE_ROLES)],
    "createAndGo for a VSAN that exists": Way(row_status(10, CREATE_AND_GO)),
    "createAndGo for a VSAN that has come into being since": Way((name(9, "nine"), row_status(9, CREATE_AND_GO))),
    "a number in the timer table that no VSAN can have": Way(timer(0, 9000), timer(4096, 9000)),
    "a read-only object; an interface that does not exist or cannot be read": [
        Way((cell("vsanMtu", 10), ber.gauge(1)), (scalar("fcTimerFstov"), ber.gauge(5000)), move(NO_PORT, 10)),
        Way(move(PORT, 20), action="status", value=STORE_FAILED, opcode=wire.MEMBERSHIP, kind=wire.GET)],
    "a column of a VSAN that does not exist and is not being created": Way(name(50, "x"), latency(50, 1)),
    "a column of a VSAN outside 1..4095, or of one that cannot be read": [
        Way(name(0, "x"), name(4096, "x")),
        Way(name(10, "x"), action="status", value=STORE_FAILED, opcode=wire.VSAN, kind=wire.GET)],
    "active for a VSAN that does not exist": Way(row_status(50, ACTIVE)),
    "the manager says that the VSAN does not exist or its name is taken (0x40190001, 0x40190004)": Way(
        name(10, "engineering"), move(PORT, 50), timer(50, 9000)),
    "any other refusal, a manager that does not answer": [
        Way(name(10, "tab\t"), row_status(1, DESTROY), (cell("vsanFcTimerEdtov", 10), ber.gauge(10000))),
        Way(name(10, "x"), action="drop", opcode=wire.VSAN, kind=wire.SET)],
}


def documented():
    """The rows of the table: reason to (status, phase)."""
    text = (REPOSITORY / "docs/objects.md").read_text()
    section = text.partition("\n## When a write fails\n")[2].partition("\n## ")[0]
    rows = [tuple(cell.strip() for cell in line.strip("|").split("|"))
            for line in section.splitlines() if line.startswith("|")]
    return {reason: (status, phase) for reason, status, phase in rows[2:]}


def phase_of_failure(client, pdu):
    """In which phase the last variable of a PDU fails. A phase is gone through to its end,
    and the first variable that failed in it is named."""
    if client.set(*pdu, EARLY_FAILURE)[1] == len(pdu):
        return "RESERVE1"
    assert client.set((WITNESS, ber.gauge(1))) == ("noError", 0)
    client.set((WITNESS, ber.gauge(2)), *pdu)
    return "ACTION" if client.value(WITNESS) == 2 else "RESERVE2"


def test_every_reason_of_the_table_is_tried():
    no_memory = {reason for reason in documented() if reason.startswith("no memory")}
    assert len(no_memory) == 2
    assert set(documented()) - no_memory == set(WAYS)


@pytest.mark.parametrize("reason", WAYS)
def test_a_set_fails_as_the_document_says(operator, reason):
    status, phase = documented()[reason]
    ways = WAYS[reason]
    for way in ways if isinstance(ways, list) else [ways]:
        if way.fault:
            operator.switch.operate("fault.add", **way.fault)
        with contextlib.closing(PacketClient(operator.agent, way.community)) as client:
            for pdu in way.pdus:
                assert client.set(*pdu) == (status, len(pdu)), pdu
                assert phase_of_failure(client, pdu) == phase, pdu
