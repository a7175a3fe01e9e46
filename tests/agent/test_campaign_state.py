# SPDX-License-Identifier: Apache-2.0
"""What happens to the state folder: its disk is full, or its database is damaged while
nobody runs."""

import contextlib
import os
import re
import sqlite3

import pytest

from harness.assignments import CREATE_AND_GO, DESTROY, name, row_status
from harness.ledger import Ledger, rows_shown
from harness.oids import cell
from harness.packets import DONE, PacketClient
from harness.small_disk import PAGE, SmallDisk, fill
from harness.switch import VirtualSwitch

DISK_KIB = 512
REFUSALS = 20
# The log of any change takes more than so many pages: the rows of its VSAN and of the time
# of the last change, an index, and what the log adds to each.
CHANGE_PAGES = 3


@pytest.fixture
def small_disk(started):
    """A switch whose state folder is a small file system of its own. Not yet running."""
    switch = VirtualSwitch(started.folders.make(), initial={"vsans": []})
    started.add(SmallDisk(switch.state, DISK_KIB))
    return started.add(switch)


def set_until_full(client, ledger, campaign):
    """SETs until some were refused. One that was changes nothing; a smaller one may still
    find room behind it."""
    refused = 0
    for _ in range(2000):
        vsan, row, assignments = ledger.next()
        status, _ = client.set(*assignments)
        if status == "noError":
            ledger.enter(vsan, row, True)
            campaign.count["SETs answered"] += 1
        else:
            assert status == "genErr", campaign
            refused += 1
            campaign.count["refused"] += 1
            if refused == REFUSALS:
                return
    raise AssertionError("the disk is never full")


@pytest.mark.campaign("disk full")
def test_full_disk_refuses_sets_and_loses_nothing(small_disk, start_agent, campaign):
    switch = small_disk.start()
    ledger = Ledger(campaign.draw, range(100, 116), b"disk-")
    with PacketClient(start_agent(switch)) as client:
        for number in campaign.rounds(3):
            switch.restart()  # its log, which keeps what room it has, is gone then
            ballast = fill(switch.state, spare=campaign.draw.randrange(CHANGE_PAGES))
            set_until_full(client, ledger, campaign)
            ledger.settle(rows_shown(client))
            if number % 2:
                # Without anybody's help, as soon as there is room.
                ballast.unlink()
                assert client.set(row_status(99, CREATE_AND_GO)) == DONE
                assert client.set(row_status(99, DESTROY)) == DONE
                switch.kill()
            else:
                switch.kill()
                ballast.unlink()
            switch.start()
            ledger.settle(rows_shown(client))


def test_log_that_takes_all_room_is_emptied_for_the_next_change(small_disk, start_agent):
    switch = small_disk.start()
    with PacketClient(start_agent(switch)) as client:
        assert client.set(row_status(100, CREATE_AND_GO)) == DONE
        switch.restart()
        fill(switch.state, spare=12)
        for number in range(100):  # of which some three would find room
            assert client.set(name(100, b"log-%d" % number)) == DONE
    switch.kill()
    switch.start()
    assert {row["vsanIndex"]: row["vsanName"] for row in switch.vsans()}[100] == b"log-99"


def files_of(switch):
    return {path.name: path.read_bytes() for path in switch.state.iterdir()}


def damage_at_random(draw, data):
    """(what was done, the damaged bytes)."""
    kind = draw.choice(("cut off", "hole", "noise", "bytes changed", "repeated", "pages swapped"))
    data, at = bytearray(data), draw.randrange(len(data))
    if kind == "cut off":
        del data[at:]
    elif kind == "hole":
        size = draw.choice((1, 64, PAGE, 3 * PAGE))
        data[at : at + size] = bytes(len(data[at : at + size]))
    elif kind == "noise":
        size = draw.choice((16, 512, PAGE))
        data[at : at + size] = draw.randbytes(len(data[at : at + size]))
    elif kind == "bytes changed":
        for _ in range(draw.choice((1, 3, 10, 100))):
            data[draw.randrange(len(data))] ^= 1 << draw.randrange(8)
    elif kind == "repeated":
        data[at:at] = data[at : at + draw.randrange(1, 2 * PAGE)]
    else:
        pages = [data[start : start + PAGE] for start in range(0, len(data), PAGE)]
        one, other = draw.randrange(len(pages)), draw.randrange(len(pages))
        pages[one], pages[other] = pages[other], pages[one]
        data = bytearray().join(pages)
    return f"{kind} at {at}", bytes(data)


# Names the file, says what is wrong with it and what to do.
REFUSAL = re.compile(r"(?s)^vswitchd: (The (database|file)|Cannot open the database) \S*/switch\.db .*\.$", re.M)


def end_of_start(switch):
    """Tries to start a switch. Its exit code and complaint when it refused; None when it runs."""
    try:
        switch.start()
    except AssertionError:
        return switch.process.wait(), switch.process.text()
    return None


@pytest.mark.campaign("database damaged")
def test_database_damaged_at_random_is_refused_whole_or_served_whole(start_switch, start_agent, campaign):
    """A damage that SQLite cannot see, in the bytes of a name, say, is a change like any
    other: then the switch is whole all the same, and stays as it is."""
    draw = campaign.draw
    switch = start_switch(initial={"vsans": [{"id": vsan, "name": f"name-{vsan}"} for vsan in range(2, 60)]})
    with PacketClient(start_agent(switch)) as client:
        assert all(client.set(name(vsan, b"later-%d" % vsan)) == DONE for vsan in range(2, 20))
        switch.kill()  # what was written last still lies in the log
        sound = files_of(switch)
        assert sound["switch.db-wal"]
        for _ in campaign.rounds(25):
            for path in switch.state.iterdir():
                path.unlink()
            victim = draw.choice([file for file, data in sound.items() if data])
            what, damaged = damage_at_random(draw, sound[victim])
            for file, data in sound.items():
                (switch.state / file).write_bytes(damaged if file == victim else data)
            before = files_of(switch)
            refusal = end_of_start(switch)
            where = f"{victim}: {what}; {campaign}"
            if refusal:
                campaign.count["refused"] += 1
                code, complaint = refusal
                assert code == 1, (where, complaint)
                assert REFUSAL.search(complaint), (where, complaint)
                assert files_of(switch) == before, where
                assert client.value(cell("vsanRowStatus", 1)) is None, "no switch, no values"
            else:
                campaign.count["served"] += 1
                shown = rows_shown(client)
                assert 1 in shown, where
                switch.kill()
                switch.start()
                assert rows_shown(client) == shown, where
                switch.kill()


def in_database(*statements):
    def change(path):
        with contextlib.closing(sqlite3.connect(path)) as database:
            for statement in statements:
                database.execute(statement)
            database.commit()
            database.execute("PRAGMA wal_checkpoint(TRUNCATE)")
    return change


def tables(path):
    with contextlib.closing(sqlite3.connect(path)) as database:
        return [row[0] for row in database.execute("SELECT name FROM sqlite_master WHERE type = 'table'")]


def drop_a_table(path):
    in_database(*(f"DROP TABLE {table}" for table in tables(path)[-1:]))(path)


@pytest.mark.parametrize("damage", [
    lambda path: path.write_bytes(b""),
    lambda path: (path.unlink(), path.mkdir()),
    lambda path: os.truncate(path, 4096),
    in_database("PRAGMA application_id = 1"),
    in_database("PRAGMA user_version = 0"),
    drop_a_table,
], ids=["empty", "a_folder", "first_page_only", "of_another_program", "no_schema", "a_table_dropped"])
def test_damaged_database_is_refused_with_a_sentence(start_switch, damage):
    switch = start_switch(initial={"vsans": [{"id": vsan} for vsan in range(2, 60)]})
    switch.stop()
    path = switch.state / "switch.db"
    damage(path)
    before = None if path.is_dir() else path.read_bytes()
    code, complaint = end_of_start(switch)
    assert code == 1, complaint
    assert REFUSAL.search(complaint), complaint
    assert (None if path.is_dir() else path.read_bytes()) == before
