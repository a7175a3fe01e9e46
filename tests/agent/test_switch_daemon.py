# SPDX-License-Identifier: Apache-2.0
"""The switch itself: what it makes of strangers on its socket, and of its state folder."""

import json
import shutil
import signal
import sqlite3
import struct
import subprocess

import pytest

from harness import wire
from harness.assignments import name
from harness.clients import NetSnmp
from harness.oids import ARCS, cell, scalar
from harness.packets import DONE, PacketClient
from harness.switch import VirtualSwitch


def frame_header(magic=wire.MAGIC, kind=wire.REQUEST, size=0):
    return struct.pack(">4I", magic, kind, 1, size)


def request_with(payload_bytes, user_bytes, carried):
    return wire.frame(wire.REQUEST, 1, wire.REQUEST_FIXED.pack(
        wire.SERVICE_VSAN, wire.VSAN, wire.GET, payload_bytes, 0, payload_bytes, user_bytes) + bytes(carried))


GARBAGE = {
    "text": b"GET / HTTP/1.1\r\nHost: switch\r\n\r\n",
    "zeros": bytes(4096),
    "other_version": frame_header(magic=0x4D545332),
    "unknown_type": frame_header(kind=99),
    "a_reply": frame_header(kind=wire.REPLY, size=8) + bytes(8),
    "body_too_large": frame_header(size=wire.MAX_BODY + 1),
    "body_of_4_gib": frame_header(size=2**32 - 1),
    "request_without_a_body": wire.frame(wire.REQUEST, 1),
    "request_cut_short": wire.frame(wire.REQUEST, 1, bytes(27)),
    "payload_longer_than_the_body": request_with(1000, 0, 10),
    "payload_shorter_than_the_body": request_with(10, 0, 1000),
    "user_longer_than_any": request_with(0, 257, 257),
    "sizes_that_overflow": request_with(2**32 - 4, 8, 4),
    "classes_in_pieces": wire.frame(wire.SUBSCRIBE, 1, b"abc"),
    "ping_with_a_body": wire.frame(wire.PING, 1, b"abc"),
}


@pytest.mark.parametrize("garbage", GARBAGE.values(), ids=GARBAGE.keys())
def test_garbage_drops_that_connection_with_one_line_and_serves_the_others(switch, client, garbage):
    with switch.connect() as neighbour, switch.connect() as stranger:
        dropped = neighbour.counters()["dropped_connections"]
        printed = len(switch.process.lines)
        stranger.socket.sendall(garbage)
        assert stranger.is_closed_by_peer()
        neighbour.ping()
        assert neighbour.counters()["dropped_connections"] == dropped + 1
    assert client.get(cell("vsanName", 10))[0].value == b"storage_prod"
    switch.process.wait_line(".", start=printed)
    assert len(switch.process.lines) == printed + 1


def test_frame_left_unfinished_is_no_garbage_and_harms_nobody(switch, client):
    with switch.connect() as slow:
        whole = wire.frame(wire.REQUEST, 9, wire.request_body(
            wire.SERVICE_VSAN, wire.VSAN, payload=wire.vsan_block(vsanIndex=10)))
        slow.socket.sendall(whole[:50])
        assert client.get(cell("vsanName", 10))[0].value == b"storage_prod"
        slow.socket.sendall(whole[50:])
        kind, correlation, body = wire.receive_frame(slow.socket)
    assert (kind, correlation) == (wire.REPLY, 9)
    assert wire.parse_vsan(body[8:])["vsanName"] == b"storage_prod"


def test_requests_sent_together_are_answered_in_turn(switch):
    with switch.connect() as connection:
        connection.socket.sendall(b"".join(
            wire.frame(wire.REQUEST, 100 + vsan, wire.request_body(
                wire.SERVICE_VSAN, wire.VSAN, payload=wire.vsan_block(vsanIndex=vsan))) for vsan in (1, 10, 30)
        ) + wire.frame(wire.PING, 7))
        answers = [wire.receive_frame(connection.socket) for _ in range(4)]
    assert [(kind, correlation) for kind, correlation, _ in answers] == [
        (wire.REPLY, 101), (wire.REPLY, 110), (wire.REPLY, 130), (wire.PONG, 7)]


@pytest.mark.parametrize("service,opcode,kind,payload", [
    (wire.SERVICE_VSAN, wire.VSAN, wire.GET, wire.vsan_block(vsanIndex=3)),
    (wire.SERVICE_VSAN, wire.VSAN, wire.GET, wire.vsan_block(vsanIndex=-1)),
    (wire.SERVICE_VSAN, wire.VSAN, wire.GETNEXT, wire.vsan_block(vsanIndex=4095)),
    (wire.SERVICE_VSAN, wire.VSAN, wire.GETNEXT, wire.vsan_block(vsanIndex=4096)),
    (wire.SERVICE_VSAN, wire.VSAN, wire.GETNEXT, wire.vsan_block(vsanIndex=2**31 - 1)),
    (wire.SERVICE_VSAN, wire.VSAN, wire.GET, b""),
    (wire.SERVICE_VSAN, wire.VSAN, wire.GET, wire.vsan_block(vsanIndex=1)[:600]),
    (wire.SERVICE_VSAN, wire.VSAN, 77, wire.vsan_block(vsanIndex=1)),
    (wire.SERVICE_VSAN, wire.FC_TIMER, wire.GET, b"abc"),
    (wire.SERVICE_VSAN, wire.LATENCY, wire.GET, bytes(12)),
    (wire.SERVICE_VSAN, 99999, wire.GET, b""),
    (wire.SERVICE_PORT, wire.VSAN, wire.GET, b""),
    (4711, 1, wire.GET, b""),
])
def test_request_that_cannot_be_served_is_refused_with_a_status(switch, service, opcode, kind, payload):
    with switch.connect() as connection:
        assert connection.request(service, opcode, kind, payload).status != 0
        connection.ping()  # refused, not dropped


def test_getnext_in_the_table_starts_below_its_first_number(switch):
    with switch.connect() as connection:
        reply = connection.request(wire.SERVICE_VSAN, wire.VSAN, wire.GETNEXT, wire.vsan_block(vsanIndex=-5))
    assert reply.status != 0 or wire.parse_vsan(reply.data)["vsanIndex"] == 1


def test_many_connections_are_served_side_by_side(switch):
    connections = [switch.connect() for _ in range(60)]
    try:
        for connection in connections:
            connection.ping()
        assert connections[0].counters()["connections"] >= 60
    finally:
        for connection in connections:
            connection.socket.close()


def test_state_survives_restart_and_initial_file_is_then_ignored(start_switch):
    switch = start_switch(initial={"vsans": [{"id": 77, "name": "first"}]})
    before = switch.vsans()
    switch.stop()
    switch.options = ["--empty"]
    switch.start()
    assert switch.vsans() == before
    assert [row["vsanIndex"] for row in before] == [1, 77]


def test_empty_switch_has_vsan_1_and_the_demo_has_two_suspended(start_switch):
    assert [row["vsanIndex"] for row in start_switch(empty=True).vsans()] == [1]
    demo = start_switch().vsans()
    assert len(demo) >= 5
    assert sum(row["vsanAdminState"] == 2 for row in demo) == 2


def refused(switch, needle):
    """Runs the daemon, which must give up with 1 and a sentence; nothing may change."""
    before = {path.name: path.read_bytes() for path in switch.state.iterdir()}
    done = subprocess.run(switch.command(), capture_output=True, text=True, timeout=20)
    assert done.returncode == 1, done.stderr
    assert needle in done.stderr
    after = {path.name: path.read_bytes() for path in switch.state.iterdir()}
    assert after == before
    return done.stderr


def test_second_daemon_on_one_state_folder_refuses(start_switch, start_agent, folder):
    switch = start_switch(empty=True)
    done = subprocess.run([*switch.command()[:3], "--run", folder], capture_output=True, text=True, timeout=20)
    assert done.returncode == 1
    assert str(switch.state) in done.stderr
    assert [row["vsanIndex"] for row in switch.vsans()] == [1]
    assert NetSnmp(start_agent(switch)).get(scalar("vsanNumber"))[0].value == 1


def test_database_of_a_newer_schema_is_refused_and_left_untouched(start_switch):
    switch = start_switch(empty=True)
    switch.stop()
    database = sqlite3.connect(switch.state / "switch.db")
    database.execute("PRAGMA user_version = 1000")
    database.execute("PRAGMA wal_checkpoint(TRUNCATE)")
    database.close()
    assert "newer" in refused(switch, "switch.db")


@pytest.mark.parametrize("damage", [
    lambda data: b"this is no database at all, not even a little" * 100,
    lambda data: data[: len(data) // 2],
    lambda data: data[:100] + b"\xa5" * (len(data) - 100),
], ids=["text", "half", "overwritten"])
def test_damaged_database_is_refused_and_left_untouched(start_switch, damage):
    switch = start_switch()
    switch.stop()
    database = switch.state / "switch.db"
    database.write_bytes(damage(database.read_bytes()))
    refused(switch, "switch.db")


def cut_off(path):
    path.write_bytes(b"")


def overwrite_with_a_backup(path):
    path.write_bytes(path.with_name("backup").read_bytes())


@pytest.mark.parametrize("tamper", [
    lambda path: path.unlink(), cut_off, overwrite_with_a_backup,
    lambda path: path.with_name("backup").replace(path), lambda path: path.with_name("switch.db-wal").unlink(),
], ids=["removed", "cut_off", "overwritten", "replaced", "without_its_log"])
def test_sets_are_refused_once_the_database_is_not_the_switchs_own(start_switch, start_agent, tamper):
    switch = start_switch(initial={"vsans": [{"id": 10, "name": "ten"}]})
    switch.stop()
    shutil.copyfile(switch.state / "switch.db", switch.state / "backup")
    switch.start()
    with PacketClient(start_agent(switch)) as client:
        assert client.set(name(10, b"first")) == DONE
        printed = len(switch.process.lines)
        tamper(switch.state / "switch.db")
        for _ in range(3):
            assert client.set(name(10, b"lost")) == ("genErr", 1)
        assert client.value(cell("vsanName", 10)) == b"first"
    switch.process.wait_line("removed, replaced or written by somebody else", start=printed)
    assert len(switch.process.lines) == printed + 1, "said once"


def test_switch_has_no_file_beside_its_database_but_the_log(start_switch):
    switch = start_switch(empty=True)
    switch.operate("vsan.create", id=10)
    assert sorted(path.name for path in switch.state.iterdir()) == ["switch.db", "switch.db-wal"]


def test_killed_daemon_keeps_what_it_had(start_switch):
    switch = start_switch(initial={"vsans": [{"id": 10, "name": "ten"}]})
    before = switch.vsans()
    switch.kill()
    switch.start()
    assert switch.vsans() == before


@pytest.mark.parametrize("text", ["{", "[]", '{"roles":[{"name":"a","vsans":["9-1"],"users":[]}]}',
                                  '{"roles":[{"name":"a","vsans":["4096"],"users":[]}]}', '{"rolls":[]}'])
def test_invalid_role_file_is_refused_at_start_and_ignored_when_read_again(start_switch, start_agent, text):
    roles = {"team": (["limited"], ["1"])}
    switch = start_switch(initial={"vsans": [{"id": 10}]}, roles=roles)
    client = NetSnmp(start_agent(switch), user="limited")
    assert [b.oid[-1] for b in client.walk(ARCS["vsanName"])] == [1]
    printed = len(switch.process.lines)
    (switch.state / "roles.json").write_text(text)
    switch.process.signal(signal.SIGHUP)
    switch.process.wait_line("roles.json", start=printed)
    assert [b.oid[-1] for b in client.walk(ARCS["vsanName"])] == [1]
    switch.stop()
    refused(switch, "roles.json")


@pytest.mark.parametrize("initial", ["{", '{"vsans":[{"id":0}]}', '{"vsans":[{"id":4096}]}', '{"colour":"red"}',
                                     '{"vsans":[{"id":5,"id2":6}]}', '{"vsans":[{"id":5},{"id":5}]}',
                                     json.dumps({"vsans": [{"id": 5, "name": "n" * 200}]})])
def test_invalid_initial_file_is_refused_and_makes_no_database(started, initial):
    switch = started.add(VirtualSwitch(started.folders.make(), initial={}))
    (switch.folder / "initial.json").write_text(initial)
    done = subprocess.run(switch.command(), capture_output=True, text=True, timeout=20)
    assert done.returncode == 1
    assert "initial.json" in done.stderr
    assert not (switch.state / "switch.db").exists()


@pytest.mark.parametrize("options", [
    ["--no-such-option"], ["--state"], [], ["--state", "x", "--empty", "--initial", "y"],
])
def test_wrong_options_end_with_2(started, options):
    switch = started.add(VirtualSwitch(started.folders.make()))
    done = subprocess.run([switch.command()[0], *options], capture_output=True, text=True, timeout=20,
                          cwd=switch.folder)
    assert done.returncode == 2
    assert done.stderr.strip()


def test_socket_and_state_are_the_owners_only(start_switch):
    switch = start_switch(empty=True)
    for path in (switch.state, switch.run_dir, switch.socket, switch.state / "switch.db"):
        assert path.stat().st_mode & 0o077 == 0, path


def test_interrupt_ends_it_cleanly_with_clients_connected(start_switch):
    switch = start_switch(empty=True)
    with switch.connect() as connection:
        connection.ping()
        switch.process.signal(signal.SIGINT)
        assert switch.process.wait() == 0
    assert not switch.socket.exists()


def fill(connection, data):
    """Sends what there is room for; returns what is left."""
    try:
        while True:
            data = data[connection.send(data):]
    except BlockingIOError:
        return data


def test_it_does_not_wait_in_the_end_for_a_client_that_reads_nothing(start_switch):
    switch = start_switch(empty=True)
    with switch.connect() as connection, switch.connect() as another:
        connection.socket.setblocking(False)
        request = wire.frame(wire.REQUEST, 1, wire.request_body(wire.SERVICE_SWITCH, wire.SWITCH_COUNTERS))
        data, left = b"", request * 100000
        while len(left) != len(data):
            data = left
            left = fill(connection.socket, data)
            another.ping()  # the first has had its turn: what the switch could take and answer it has
        switch.process.signal(signal.SIGTERM)
        assert switch.process.wait(5) == 0
    assert not switch.socket.exists()
