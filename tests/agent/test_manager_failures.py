# SPDX-License-Identifier: Apache-2.0
"""The manager is away, hung, or answers with what is no answer. The agent answers in
time, stays up, keeps its other objects reachable, and serves again by itself once the
manager is back."""

import os
import pwd
import struct
import threading
import time
from types import SimpleNamespace

import pytest

from harness import ber, wire
from harness.clients import NO_SUCH_INSTANCE, NetSnmp
from harness.fake_manager import Close, Pieces, Raw, Silence, word
from harness.notifications import UPTIME
from harness.oids import ARCS, COLUMNS, ROOT, SCALARS, SYS_DESCR, VSAN_ENTRY, cell, scalar
from harness.packets import GET, GETNEXT, PacketClient

# A read waits for wait class 4, four units of 250 ms. A request may meet that wait once
# for the user's role and once for the row; the rest is the tools' own time on a busy
# machine. One wait for each of the 28 objects would be far beyond either limit.
ONE_WAIT = 1.0
IN_TIME = 2 * ONE_WAIT + 2.0
AT_ONCE = ONE_WAIT + 1.0

SMALL = {"vsans": [{"id": 10, "name": "ten"}, {"id": 20, "name": "twenty"}]}


class Timed:
    def __enter__(self):
        self._start = time.monotonic()
        return self

    def __exit__(self, *_):
        self.seconds = time.monotonic() - self._start


def assert_nothing_to_see(client, within):
    """Every object is without an instance, every walk is empty, and the agent's own
    objects are there; each answer comes within the given seconds."""
    for oid in (cell("vsanName", 10), scalar("vsanNumber"), scalar("fcTimerRatov"), scalar("fcSwitchLatency")):
        with Timed() as timed:
            answer = client.get(oid)[0]
        assert (answer.oid, answer.kind) == (oid, NO_SUCH_INSTANCE)
        assert timed.seconds < within
    with Timed() as timed:
        assert client.walk(ROOT) == []
    assert timed.seconds < within
    with Timed() as timed:
        assert client.get(SYS_DESCR)[0].kind == "OCTET STRING"
    assert timed.seconds < AT_ONCE


def assert_serves(client):
    """The very next requests are answered."""
    answers = client.get(cell("vsanName", 10), scalar("vsanNumber"))
    assert [answer.value for answer in answers] == [b"ten", 3]
    assert [b.oid[-1] for b in client.walk(ARCS["vsanName"])] == [1, 10, 20]


# --- the manager is not there ------------------------------------------------------


def test_manager_not_running_and_then_started(start_switch, start_agent):
    switch = start_switch(initial=SMALL)
    switch.stop()
    client = NetSnmp(start_agent(switch))
    assert_nothing_to_see(client, AT_ONCE)
    switch.start()
    assert_serves(client)


def test_run_folder_missing(start_agent, folder):
    client = NetSnmp(start_agent(SimpleNamespace(run_dir=folder / "nowhere")))
    assert_nothing_to_see(client, AT_ONCE)


def test_manager_restarted_between_two_requests(start_switch, start_agent):
    switch = start_switch(initial=SMALL)
    client = NetSnmp(start_agent(switch))
    for _ in range(3):
        assert_serves(client)
        switch.restart()
    assert_serves(client)


def test_manager_killed_leaves_a_dead_socket_and_comes_back(start_switch, start_agent):
    switch = start_switch(initial=SMALL)
    client = NetSnmp(start_agent(switch))
    assert_serves(client)
    switch.kill()
    assert switch.socket.exists()
    assert_nothing_to_see(client, AT_ONCE)
    switch.start()
    assert_serves(client)


def test_manager_killed_during_a_request(start_switch, start_agent, manager, puppet):
    asked = threading.Event()

    def say_nothing(request):
        asked.set()
        return Silence

    manager.answer(say_nothing)
    client = NetSnmp(puppet)
    under_way = client.start_get(cell("vsanName", 20))
    assert asked.wait(10)
    manager.die()
    assert under_way.result()[0].kind == NO_SUCH_INSTANCE
    assert_nothing_to_see(client, AT_ONCE)
    # The same folder gets a manager again, a real one this time.
    switch = start_switch(initial=SMALL)
    (manager.run_dir / "mts.sock").symlink_to(switch.socket)
    assert_serves(client)


def test_real_switch_killed_while_it_owes_an_answer(start_switch, start_agent):
    switch = start_switch(initial=SMALL)
    client = NetSnmp(start_agent(switch))
    assert_serves(client)
    switch.suspend()
    with Timed() as timed:
        under_way = client.start_get(cell("vsanName", 10))
        switch.kill()
        assert under_way.result()[0].kind == NO_SUCH_INSTANCE
    assert timed.seconds < IN_TIME
    switch.start()
    assert_serves(client)


@pytest.mark.parametrize("name", ["vsanNumber", "vsanName"])
def test_connection_closed_instead_of_an_answer(puppet, manager, name):
    opcode = wire.VSAN_COUNT if name == "vsanNumber" else wire.VSAN
    oid = scalar(name) if name in SCALARS else cell(name, 20)
    manager.answer(Close, opcode=opcode)
    client = NetSnmp(puppet)
    with Timed() as timed:
        assert client.get(oid)[0].kind == NO_SUCH_INSTANCE
    assert timed.seconds < IN_TIME
    manager.behave()
    assert client.get(oid)[0].value in (len(manager.vsans), b"VSAN0020")


# --- somebody else is in the manager's place ---------------------------------------


@pytest.mark.skipif(os.geteuid() != 0, reason="only root can have somebody else listen")
def test_stranger_in_the_managers_place_is_refused_and_said_once(manager, puppet):
    client = NetSnmp(puppet)
    assert_serves_fake(client, manager)
    manager.listen_as("nobody")
    manager.drop_connections()
    asked = len(manager.requests)
    assert_nothing_to_see(client, AT_ONCE)
    assert len(manager.requests) == asked and not manager.subscribed.wait(2)
    assert puppet.process.text().count("who listens at its socket is not trusted") == 1
    # The owner of a directory that nobody else can write in is no stranger there.
    os.chown(manager.run_dir, pwd.getpwnam("nobody").pw_uid, -1)
    assert_serves_fake(client, manager)
    assert manager.subscribed.wait(10)


# --- the manager hangs -------------------------------------------------------------


def test_hung_manager_costs_one_wait_and_not_one_for_each_object(start_switch, start_agent):
    switch = start_switch(initial=SMALL)
    client = NetSnmp(start_agent(switch))
    assert_serves(client)
    switch.suspend()
    with Timed() as timed:
        assert client.get(cell("vsanName", 10))[0].kind == NO_SUCH_INSTANCE
    assert ONE_WAIT * 0.8 < timed.seconds < IN_TIME
    with Timed() as timed:
        assert client.walk(ROOT) == []
    assert timed.seconds < IN_TIME
    with Timed() as timed:
        assert client.get(SYS_DESCR)[0].kind == "OCTET STRING"
    assert timed.seconds < AT_ONCE
    switch.resume()
    assert_serves(client)


def test_hung_manager_costs_one_wait_for_a_pdu_that_tries_every_object_many_times(start_switch, start_agent):
    switch = start_switch(initial=SMALL)
    agent = start_agent(switch)
    client = NetSnmp(agent)
    assert_serves(client)
    switch.suspend()
    null = ber.element(ber.NULL, b"")
    with PacketClient(agent) as crowd, Timed() as timed:
        greedy = crowd.send(GETNEXT, [(ROOT, null)] * 50)
        behind = crowd.send(GET, [(UPTIME, null)])
        status, _, bindings = crowd.receive(greedy)
        assert status == "noError"
        assert not [binding for binding in bindings if binding.oid[: len(ROOT)] == ROOT]
        assert crowd.receive(behind)[2][0].kind == "Timeticks"
    assert ONE_WAIT * 0.8 < timed.seconds < AT_ONCE
    switch.resume()
    assert_serves(client)


def test_walk_is_the_first_to_meet_a_hung_manager(start_switch, start_agent):
    switch = start_switch(initial=SMALL)
    client = NetSnmp(start_agent(switch))
    assert_serves(client)
    switch.suspend()
    with Timed() as timed:
        assert client.walk(ROOT) == []
    assert timed.seconds < IN_TIME
    switch.resume()
    assert_serves(client)


def test_manager_hung_from_the_start(start_switch, start_agent):
    switch = start_switch(initial=SMALL)
    switch.suspend()
    client = NetSnmp(start_agent(switch))
    with Timed() as timed:
        assert client.walk(ROOT) == []
    assert timed.seconds < IN_TIME
    switch.resume()
    assert_serves(client)


def test_manager_hangs_again_and_again(start_switch, start_agent):
    switch = start_switch(initial=SMALL)
    client = NetSnmp(start_agent(switch))
    for _ in range(3):
        switch.suspend()
        assert client.get(cell("vsanName", 10))[0].kind == NO_SUCH_INSTANCE
        switch.resume()
        assert_serves(client)


def test_hung_manager_killed_and_started_anew(start_switch, start_agent):
    switch = start_switch(initial=SMALL)
    client = NetSnmp(start_agent(switch))
    assert_serves(client)
    switch.suspend()
    assert client.get(cell("vsanName", 10))[0].kind == NO_SUCH_INSTANCE
    switch.kill()
    assert client.get(cell("vsanName", 10))[0].kind == NO_SUCH_INSTANCE
    switch.start()
    assert_serves(client)


def test_a_request_that_is_never_answered_gives_up_in_time(puppet, manager):
    manager.answer(Silence)
    client = NetSnmp(puppet)
    with Timed() as timed:
        assert client.get(cell("vsanName", 20))[0].kind == NO_SUCH_INSTANCE
    assert ONE_WAIT * 0.8 < timed.seconds < IN_TIME
    manager.behave()
    assert client.get(cell("vsanName", 20))[0].value == b"VSAN0020"


def test_a_late_answer_is_not_taken_for_the_next_one(puppet, manager):
    late = threading.Event()

    def answer_late(request):
        if wire.parse_vsan(request.payload)["vsanIndex"] == 20:
            late.wait(10)
            return wire.Reply(0, wire.vsan_block(vsanIndex=20, vsanName=b"late"))
        return None

    manager.answer(answer_late)
    client = NetSnmp(puppet)
    assert client.get(cell("vsanName", 20))[0].kind == NO_SUCH_INSTANCE
    late.set()
    assert client.get(cell("vsanName", 30), cell("vsanMtu", 30))[0].value == b"VSAN0030"
    assert client.get(cell("vsanName", 1))[0].value == b"VSAN0001"


# --- the manager answers badly -----------------------------------------------------


def assert_serves_fake(client, manager):
    manager.behave()
    assert client.get(cell("vsanName", 20))[0].value == b"VSAN0020"
    assert client.get(scalar("vsanNumber"))[0].value == len(manager.vsans)


@pytest.mark.parametrize("data", [None, b"", b"x" * 700, wire.vsan_block(vsanIndex=20, vsanName=b"leak")],
                         ids=["alone", "empty", "short", "with_a_row"])
@pytest.mark.parametrize("status", [0x40190001, 0x40190002, 0x40190004, 0x4049002C, 0xFFFFFFFF, 1])
def test_error_status(puppet, manager, status, data):
    client = NetSnmp(puppet)
    for opcode in (wire.VSAN, wire.VSAN_COUNT, wire.FC_TIMER, wire.LATENCY, wire.INORDER_DELIVERY, wire.LAST_CHANGE):
        manager.answer(wire.Reply(status, data), opcode=opcode)
    others = [scalar(name) for name in SCALARS if name != "vsanIfNumber"]
    answers = client.get(cell("vsanName", 20), cell("vsanMtu", 20), *others)
    assert {answer.kind for answer in answers} == {NO_SUCH_INSTANCE}
    assert client.walk(VSAN_ENTRY) == []
    assert_serves_fake(client, manager)


def test_success_without_data_answers_get_with_a_zeroed_row(puppet, manager):
    """The manager says that the row is there and sends none: required as it stands."""
    manager.answer(wire.Reply(0, None))
    names = [name for name in COLUMNS if name != "vsanRowStatus"]
    client = NetSnmp(puppet)
    answers = client.get(*(cell(name, 20) for name in names), cell("vsanRowStatus", 20))
    assert [a.oid for a in answers] == [cell(name, 20) for name in (*names, "vsanRowStatus")]
    assert [a.value for a in answers] == [b""] + [0] * (len(names) - 1) + [1]
    assert_serves_fake(client, manager)


@pytest.mark.parametrize("opcode,name", [
    (wire.VSAN_COUNT, "vsanNumber"), (wire.LAST_CHANGE, "vsanTableLastChange"), (wire.FC_TIMER, "fcTimerEdtov"),
    (wire.LATENCY, "fcSwitchLatency"), (wire.INORDER_DELIVERY, "fcInorderDelivery"), (wire.IF_COUNT, "vsanIfNumber"),
])
def test_scalar_answered_without_data_or_with_too_little(puppet, manager, opcode, name):
    needed = 8 if opcode in (wire.LAST_CHANGE, wire.FC_TIMER, wire.LATENCY) else 4
    client = NetSnmp(puppet)
    for data in (None, *(b"\1" * size for size in range(needed))):
        manager.answer(wire.Reply(0, data), opcode=opcode)
        assert client.get(scalar(name))[0].kind == NO_SUCH_INSTANCE, data
    manager.behave()
    assert client.get(scalar(name))[0].kind != NO_SUCH_INSTANCE


@pytest.mark.parametrize("size", [0, 1, 4, 519, 520, 521, 595, 2627])
def test_row_answered_with_too_little_data(puppet, manager, size):
    manager.answer(wire.Reply(0, wire.vsan_block(vsanIndex=20, vsanName=b"short")[:size]))
    client = NetSnmp(puppet)
    assert [a.kind for a in client.get(cell("vsanName", 20), cell("vsanMtu", 20))] == [NO_SUCH_INSTANCE] * 2
    assert client.walk(VSAN_ENTRY) == []
    assert_serves_fake(client, manager)


@pytest.mark.parametrize("size", [2628, 2632, 5000, 100000])
def test_row_answered_with_all_it_needs_or_more(puppet, manager, size):
    block = wire.vsan_block(vsanIndex=20, vsanName=b"enough").ljust(size, b"\xff")[:size]
    manager.answer(wire.Reply(0, block))
    assert NetSnmp(puppet).get(cell("vsanName", 20))[0].value == b"enough"


def test_name_without_an_end_is_bounded_by_its_field(puppet, manager):
    manager.vsans[20].update(vsanName=b"N" * wire.NAME_SIZE, vsanNetworkDropLatency=0x4C4C4C4C)
    client = NetSnmp(puppet)
    answers = client.get(cell("vsanName", 20), cell("vsanNetworkDropLatency", 20))
    assert [answer.value for answer in answers] == [b"N" * wire.NAME_SIZE, 0x4C4C4C4C]


def test_name_of_any_bytes_is_shown_up_to_its_nul(puppet, manager):
    manager.vsans[20].update(vsanName=b"\xff\x01\n%s%n\0hidden")
    manager.vsans[30].update(vsanName=b"\0hidden")
    answers = NetSnmp(puppet).get(cell("vsanName", 20), cell("vsanName", 30))
    assert [answer.value for answer in answers] == [b"\xff\x01\n%s%n", b""]


@pytest.mark.parametrize("index", [-1, 0, 4096, 4097, 5000, 65536, 2**31 - 1, -(2**31)])
@pytest.mark.parametrize("restricted", [False, True], ids=["unrestricted", "restricted"])
def test_row_with_an_index_outside_the_table(puppet, manager, index, restricted):
    """Whatever is made of it, it ends, nothing but the table's numbers is shown to be
    permitted, and the manager's next answer counts again."""
    if restricted:
        manager.restricted["limited"] = [1, 30]
    client = NetSnmp(puppet, user="limited", timeout=5)
    manager.answer(lambda request: wire.Reply(0, wire.vsan_block(vsanIndex=index, vsanName=b"odd"))
                   if wire.parse_vsan(request.payload)["vsanIndex"] >= 2 else None)
    seen = client.bulk_get([ARCS["vsanName"], ARCS["vsanMtu"]], repetitions=6)
    if restricted:
        assert {b.oid for b in seen if b.oid[: len(VSAN_ENTRY)] == VSAN_ENTRY and b.oid[-1] != 1} <= {
            cell(name, 1) for name in COLUMNS}
    answer = client.get(cell("vsanName", 20))[0]
    if restricted:
        assert (answer.oid, answer.kind) == (cell("vsanName", 20), NO_SUCH_INSTANCE)
    assert client.get(SYS_DESCR)[0].kind == "OCTET STRING"
    manager.behave()
    assert client.get(cell("vsanName", 1))[0].value == b"VSAN0001"


def header(magic=wire.MAGIC, kind=wire.REPLY, size=8):
    """A frame header with the right correlation, whatever else is wrong."""
    return lambda correlation: struct.pack(">4I", magic, kind, correlation, size) + bytes(min(size, 64))


@pytest.mark.parametrize("bytes_sent", [
    b"HTTP/1.1 400 Bad Request\r\n\r\n",
    bytes(64),
    b"\xff" * 64,
    header(magic=0x4D545332),
    header(kind=0),
    header(kind=77),
    header(kind=wire.REQUEST),
    header(size=0),
    header(size=4),
    header(size=wire.MAX_BODY + 1),
    header(size=2**31),
    header(size=2**32 - 1),
    lambda correlation: wire.frame(wire.EVENT, 0, word(145) + bytes(40)),
    lambda correlation: wire.frame(wire.REPLY, 0, wire.reply_body(0, wire.vsan_block(vsanIndex=20))),
], ids=["text", "zeros", "ones", "other_version", "type_0", "type_77", "a_request", "no_status", "half_a_reply",
        "too_large", "size_2_31", "size_2_32", "event_without_a_subscription", "correlation_0"])
def test_bytes_that_are_no_answer(puppet, manager, bytes_sent):
    manager.answer(Raw(bytes_sent))
    client = NetSnmp(puppet)
    with Timed() as timed:
        assert client.get(cell("vsanName", 20))[0].kind == NO_SUCH_INSTANCE
    assert timed.seconds < IN_TIME
    assert_serves_fake(client, manager)


def test_answer_to_another_request_is_not_taken(puppet, manager):
    body = wire.reply_body(0, wire.vsan_block(vsanIndex=20, vsanName=b"other"))
    manager.answer(Raw(lambda correlation: wire.frame(wire.REPLY, correlation + 1000, body)))
    client = NetSnmp(puppet)
    assert client.get(cell("vsanName", 20))[0].kind == NO_SUCH_INSTANCE
    assert_serves_fake(client, manager)


def test_answer_that_arrives_in_pieces_is_put_together(puppet, manager):
    manager.answer(Pieces(wire.vsan_block(vsanIndex=20, vsanName=b"pieces"), 97))
    assert NetSnmp(puppet).get(cell("vsanName", 20))[0].value == b"pieces"


def test_half_an_answer_and_then_a_manager_that_starts_anew(puppet, manager):
    body = wire.reply_body(0, wire.vsan_block(vsanIndex=20))
    manager.answer(Raw(lambda correlation: wire.frame(wire.REPLY, correlation, body)[:1000]))
    client = NetSnmp(puppet)
    with Timed() as timed:
        assert client.get(cell("vsanName", 20))[0].kind == NO_SUCH_INSTANCE
    assert timed.seconds < IN_TIME
    manager.behave()
    manager.drop_connections()
    assert_serves_fake(client, manager)
