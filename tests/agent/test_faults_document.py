# SPDX-License-Identifier: Apache-2.0
"""What docs/vswitchctl.md says an SNMP client sees of each fault is what it sees."""

import re
import time

import pytest

from harness.assignments import CREATE_AND_GO, exists, name, row_status
from harness.build import REPOSITORY
from harness.clients import NO_SUCH_INSTANCE
from harness.oids import ARCS, OBJECTS, cell, scalar
from harness.operator_tool import OperatorTool
from harness.packets import DONE

VSAN, NEXT_VSAN = 10, 20
NAME = cell("vsanName", VSAN)
FRESH = b"fresh"
A_SECOND = 0.95  # as long as one wait, at least


def documented():
    """The rows of the table, one for each fault: the tool's words for it, and what is seen."""
    text = (REPOSITORY / "docs/vswitchctl.md").read_text().partition("| fault | GET |")[2].partition("\n\n")[0]
    for line in text.splitlines()[2:]:
        faults, *seen = (cell.strip() for cell in line.strip("|").split("|"))
        for fault in re.findall(r"`(.+?)`", faults):
            yield fault, seen


ROWS = list(documented())


def test_the_table_has_every_action():
    manual = (REPOSITORY / "docs/vswitchctl.md").read_text()
    table = manual.partition("| fault | where it acts |")[2].partition("\n\n")[0]
    actions = re.findall(r"^\| `(?!client)([a-z-]+)[^`]*` \|", table, re.M)
    assert len(actions) == 7
    assert {fault.split()[0] for fault, _ in ROWS} == set(actions)


class Faulty:
    """A switch whose next request of one kind meets a fault, and its client."""

    def __init__(self, operator, fault):
        self.operator = operator
        self.switch = operator.switch
        self.tool = OperatorTool(operator.switch)
        self._words = fault.split()

    def meets(self, kind, action):
        """What an action of the client comes to while one request of a kind meets the fault, and
        whether it took a second. Afterwards the switch is as good as new."""
        self.add(kind, 1)
        start = time.monotonic()
        result = action()
        took_a_second = time.monotonic() - start > A_SECOND
        if self._words == ["exit"]:
            assert self.switch.process.wait() == 3
            self.switch.start()
        self.tool("fault", "clear")
        self._wait_until_served()
        return result, took_a_second

    def add(self, kind, times):
        self.tool("fault", "add", *self._words, "--service", "vsan", "--times", times, "--kind", kind)

    def _wait_until_served(self):
        """A request that is late still holds up those behind it."""
        for _ in range(500):
            if self.operator.value(scalar("vsanNumber")) is not None:
                return
            time.sleep(0.02)
        raise AssertionError("the switch never answered again")


@pytest.fixture(params=ROWS, ids=[fault for fault, _ in ROWS])
def row(request, operator):
    fault, seen = request.param
    return Faulty(operator, fault), seen


def assert_seen(seen, took_a_second, documented_words):
    """How long the others take depends on the machine."""
    words, waits, _ = documented_words.partition(" after a second")
    assert seen == words
    assert took_a_second or not waits


def words_for_get(answer):
    if answer.kind == NO_SUCH_INSTANCE:
        return "noSuchInstance"
    return {b"": "an empty value", b"storage_prod": "the value"}[answer.value]


def words_for_get_next(answer):
    """Where a GETNEXT behind VSAN 10's name has led."""
    if answer.oid[:-1] == ARCS["vsanName"]:
        return {(VSAN, b""): "the same row, empty",
                (NEXT_VSAN, b"storage_backup"): "the next row"}[answer.oid[-1], answer.value]
    columns = [entry[0] for entry in OBJECTS]
    following = columns[columns.index("vsanName") + 1]
    is_next_column = answer.oid[: len(ARCS[following])] == ARCS[following]
    assert answer.oid > NAME
    return "the next column" if is_next_column else "a later object"


def test_get_and_getnext_and_set_go_as_the_table_says(row):
    faulty, (get, get_next, status, change) = row
    client = faulty.operator
    answer, took_a_second = faulty.meets("get", lambda: client.get(NAME)[0])
    assert_seen(words_for_get(answer), took_a_second, get)
    answer, took_a_second = faulty.meets("get-next", lambda: client.get_next(NAME)[0])
    assert_seen(words_for_get_next(answer), took_a_second, get_next)
    (answer, _), took_a_second = faulty.meets("set", lambda: client.set(name(VSAN, FRESH.decode())))
    assert_seen(answer, took_a_second, status)
    assert {True: "made", False: "not made"}[client.value(NAME) == FRESH] == change
    # The client sees of it nothing more.
    assert client.set(name(VSAN, "later")) == DONE


@pytest.mark.parametrize("fault,is_left", [("status store-failed --with-data", False), ("delay 1500", True)])
def test_a_creation_that_was_made_and_failed_is_left_only_where_nobody_answers(operator, fault, is_left):
    faulty = Faulty(operator, fault)
    assert faulty.meets("set", lambda: operator.set(row_status(50, CREATE_AND_GO)))[0] == ("genErr", 1)
    assert exists(operator, 50) == is_left


@pytest.mark.parametrize("fault,status", [("status store-failed", "genErr"),
                                          ("status no-such-vsan", "inconsistentName")])
def test_a_set_fails_with_both_reads_in_front_of_it_and_survives_one_that_does(operator, fault, status):
    faulty = Faulty(operator, fault)
    faulty.add("get", 2)
    assert operator.set(name(VSAN, "x")) == (status, 1)
    assert operator.value(NAME) == b"storage_prod"
    faulty.add("get", 1)
    assert operator.set(name(VSAN, "x")) == DONE


@pytest.mark.parametrize("fault,value", [("no-data", None), ("short 3", None), ("short 4", 7)])
def test_a_scalar_without_the_bytes_that_it_needs_is_not_there(operator, fault, value):
    faulty = Faulty(operator, fault)
    assert faulty.meets("get", lambda: operator.value(scalar("vsanNumber")))[0] == value
