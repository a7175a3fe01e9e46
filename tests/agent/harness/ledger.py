# SPDX-License-Identifier: Apache-2.0
"""A stream of SETs, and the books of what the switch must hold after it.

A SET that was answered noError is in the switch from then on. One that was refused, or
not answered, while the manager or the agent was being disturbed may be there or not, but
whole either way; its VSAN is in doubt and left alone until somebody looks."""

import random
import threading
import time
from dataclasses import dataclass, replace

from . import ber
from .assignments import CREATE_AND_GO, DESTROY, name, row_status, state
from .clients import NoAnswer
from .oids import VSAN_ENTRY, cell
from .packets import DONE, PacketClient

SHOWN = {"vsanName": "name", "vsanAdminState": "admin", "vsanLoadBalancingType": "balancing",
         "vsanNetworkDropLatency": "latency"}
ABSENT = None


@dataclass(frozen=True)
class Row:
    """What the SETs of a ledger say of a VSAN."""

    name: bytes
    admin: int = 1
    balancing: int = 2
    latency: int = 500


def balancing(vsan, value):
    return cell("vsanLoadBalancingType", vsan), ber.integer(value)


def latency(vsan, value):
    return cell("vsanNetworkDropLatency", vsan), ber.gauge(value)


class Ledger:
    """The VSANs that one stream of SETs owns, and what each holds."""

    def __init__(self, draw, vsans, prefix):
        self._draw, self._prefix = draw, prefix
        self._names = 0
        self.rows = {vsan: ABSENT for vsan in vsans}
        self._doubtful = {}  # VSAN: what it may hold instead

    def next(self):
        """(VSAN, what it is to become, the assignments), or None while all are in doubt."""
        sure = [vsan for vsan in self.rows if vsan not in self._doubtful]
        if not sure:
            return None
        vsan = self._draw.choice(sure)
        before, dice = self.rows[vsan], self._draw.random()
        self._names += 1
        new_name = b"%s%d" % (self._prefix, self._names)
        if before is ABSENT:
            row = Row(new_name, admin=self._draw.choice((1, 2)), latency=self._draw.randrange(1, 60001))
            return vsan, row, [row_status(vsan, CREATE_AND_GO), name(vsan, row.name), state(vsan, row.admin),
                               latency(vsan, row.latency)]
        if dice < 0.15:
            return vsan, ABSENT, [row_status(vsan, DESTROY)]
        row = replace(before, name=new_name)
        if dice < 0.55:
            return vsan, row, [name(vsan, row.name)]
        row = replace(row, admin=self._draw.choice((1, 2)), balancing=self._draw.choice((1, 2)),
                      latency=self._draw.randrange(1, 60001))
        return vsan, row, [name(vsan, row.name), latency(vsan, row.latency), balancing(vsan, row.balancing),
                           state(vsan, row.admin)]

    def enter(self, vsan, row, done):
        """What became of a SET, as far as its answer tells."""
        if done:
            self.rows[vsan] = row
        else:
            self._doubtful[vsan] = row

    def doubtful(self):
        """How many VSANs are in doubt."""
        return len(self._doubtful)

    def settle(self, shown):
        """Compares with what the switch shows. Whatever was in doubt is certain again."""
        for vsan, row in self.rows.items():
            present = shown.get(vsan)
            allowed = [row] + ([self._doubtful[vsan]] if vsan in self._doubtful else [])
            assert present in allowed, f"VSAN {vsan} is {present}, may be {allowed}"
            self.rows[vsan] = present
        self._doubtful.clear()


def rows_shown(client):
    """{VSAN: Row} of everything in the VSAN table, read over SNMP."""
    shown = {}
    for binding in client.walk(VSAN_ENTRY):
        shown.setdefault(binding.oid[-1], {})[binding.oid[:-1]] = binding.value
    columns = {field: cell(column) for column, field in SHOWN.items()}
    return {vsan: Row(**{field: values.get(oid) for field, oid in columns.items()}) for vsan, values in shown.items()}


class Writer:
    """A client that sends one SET after the other from its ledger, in a thread of its own,
    and a read now and then. It can be paused, and says how long answers took.

    patience  how long it waits for an answer; without one the SET is in doubt
    """

    def __init__(self, agent, ledger, patience=10.0):
        self.ledger = ledger
        self.answered = self.refused = self.silent = 0
        self.longest = 0.0
        self.last = None
        self._agent, self._patience = agent, patience
        self._thread = self._failure = None
        self._stop = threading.Event()

    def resume(self):
        self._stop.clear()
        self._thread = threading.Thread(target=self._run, daemon=True)
        self._thread.start()

    def __str__(self):
        return (f"{self.answered} answered, {self.refused} refused, of which {self.silent} not answered, "
                f"{len(self.ledger.rows)} VSANs, {self.ledger.doubtful()} in doubt, last answer {self.last}")

    def is_running(self):
        return self._thread.is_alive()

    def pause(self):
        """Returns when nothing of it is under way any more."""
        self._stop.set()
        self._thread.join(60)
        assert not self._thread.is_alive()
        if self._failure:
            raise self._failure

    def _run(self):
        try:
            with PacketClient(self._agent, timeout=self._patience) as client:
                while not self._stop.is_set():
                    self._step(client)
        except Exception as failure:  # for the test, which runs in another thread
            self._failure = failure

    def _step(self, client):
        drawn = self.ledger.next()
        begun = time.monotonic()
        try:
            if drawn is None:
                client.get(cell("vsanName", next(iter(self.ledger.rows))))
                self._stop.wait(0.005)
                return
            vsan, row, assignments = drawn
            self.last = client.set(*assignments)
            done = self.last == DONE
        except (NoAnswer, ConnectionError):
            done = False
            self.silent += 1
            self._stop.wait(0.005)
        else:
            self.longest = max(self.longest, time.monotonic() - begun)
        if drawn is not None:
            self.ledger.enter(vsan, row, done)
            self.answered += done
            self.refused += not done


def start_writers(campaign, agent, count=2, **options):
    """Writers with VSANs of their own, not yet running."""
    return [Writer(agent, Ledger(random.Random(campaign.draw.random()), range(100 + 20 * number, 116 + 20 * number),
                                 b"w%d-" % number), **options) for number in range(count)]


def compare(client, writers):
    """Everything that was answered is there, everything else is whole."""
    shown = rows_shown(client)
    for writer in writers:
        writer.ledger.settle(shown)
    owned = {vsan for writer in writers for vsan in writer.ledger.rows}
    assert {vsan for vsan in shown if vsan not in owned} == {1}


def counted(campaign, writers):
    """Puts what the writers have done into a campaign's count."""
    campaign.count["SETs answered"] = sum(writer.answered for writer in writers)
    campaign.count["in doubt"] = sum(writer.refused for writer in writers)
    campaign.worst["answer to a SET"] = max(writer.longest for writer in writers)
