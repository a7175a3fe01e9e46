# SPDX-License-Identifier: Apache-2.0
"""The switch beside its VSANs: names of the system group and IF-MIB, an agent that serves them, and a port manager
that says what a test wants."""

import struct
import time

import pytest

from . import wire
from .agent import BY_EXTENSION, THE_SWITCH, Agent, started_modules
from .clients import NetSnmp, SnmpError
from .switch import VirtualSwitch

SYSTEM = (1, 3, 6, 1, 2, 1, 1)
SYS_DESCR, SYS_OBJECT_ID, SYS_UP_TIME, SYS_CONTACT, SYS_NAME, SYS_LOCATION, SYS_SERVICES = (
    SYSTEM + (arc, 0) for arc in range(1, 8))
INTERFACES = (1, 3, 6, 1, 2, 1, 2)
IF_MIB = (1, 3, 6, 1, 2, 1, 31)
IF_NUMBER = INTERFACES + (1, 0)
IF_TABLE = INTERFACES + (2,)
IF_X_TABLE = IF_MIB + (1, 1)
IF_TABLE_LAST_CHANGE = IF_MIB + (1, 5, 0)

# The columns that have values: number, name.
IF_COLUMNS = {
    1: "ifIndex", 2: "ifDescr", 3: "ifType", 4: "ifMtu", 5: "ifSpeed", 6: "ifPhysAddress", 7: "ifAdminStatus",
    8: "ifOperStatus", 9: "ifLastChange", 10: "ifInOctets", 11: "ifInUcastPkts", 13: "ifInDiscards", 14: "ifInErrors",
    15: "ifInUnknownProtos", 16: "ifOutOctets", 17: "ifOutUcastPkts", 19: "ifOutDiscards", 20: "ifOutErrors",
}
IF_X_COLUMNS = {
    1: "ifName", 2: "ifInMulticastPkts", 3: "ifInBroadcastPkts", 4: "ifOutMulticastPkts", 5: "ifOutBroadcastPkts",
    6: "ifHCInOctets", 7: "ifHCInUcastPkts", 8: "ifHCInMulticastPkts", 9: "ifHCInBroadcastPkts", 10: "ifHCOutOctets",
    11: "ifHCOutUcastPkts", 12: "ifHCOutMulticastPkts", 13: "ifHCOutBroadcastPkts", 14: "ifLinkUpDownTrapEnable",
    15: "ifHighSpeed", 16: "ifPromiscuousMode", 17: "ifConnectorPresent", 18: "ifAlias",
    19: "ifCounterDiscontinuityTime",
}
COLUMN = {name: IF_TABLE + (1, number) for number, name in IF_COLUMNS.items()} | {
    name: IF_X_TABLE + (1, number) for number, name in IF_X_COLUMNS.items()}

PORT, SYSTEM_TEXTS = 9301, 9302
PORT_CHANGED = 301
UP, DOWN = 1, 2
NO_SUCH_INTERFACE, NO_MORE_INTERFACES = 0x40190020, 0x40190021

# Of an Agent: what run.sh starts.
AS_A_SWITCH = {"loading": f"{BY_EXTENSION}\n{THE_SWITCH}", "modules": started_modules()}


def if_cell(column, if_index):
    return COLUMN[column] + (if_index,)


PORT_NOW = 252  # where a port record says when it was made


def now():
    clock = time.time()
    return int(clock), int(clock % 1 * 1_000_000)


def port_record(if_index, *, number=1, admin=UP, oper=UP, speed=8000, traps=1, last_change=(0, 0),
                discontinuity=(0, 0), wwn=bytes(range(8)), alias=b"", since=(0, 0), counters=()):
    """A port as a manager describes it; Ports adds the time. `counters` are pairs of base and rate, in their order."""
    pairs = [*counters, *[(0, 0)] * (8 - len(counters))]
    return (struct.pack(">6I", if_index, number, admin, oper, speed, traps) + struct.pack(">2I", *last_change)
            + struct.pack(">2I", *discontinuity) + wwn + struct.pack(">I64s", len(alias), alias)
            + struct.pack(">2I", *since) + b"".join(struct.pack(">2Q", *pair) for pair in pairs) + bytes(8))


class SwitchScene:
    """A switch, the agent of a switch, and clients. `switch` goes to the VirtualSwitch."""

    def __init__(self, started, lines=(), **switch):
        self.switch = started.add(VirtualSwitch(started.folders.make(), **switch)).start()
        self.agent = started.add(Agent(started.folders.make(), self.switch.run_dir, lines=lines, **AS_A_SWITCH)).start()
        self.reader = NetSnmp(self.agent)
        self.writer = NetSnmp(self.agent, user="private")

    def value(self, column, if_index):
        return self.reader.get(if_cell(column, if_index))[0].value

    def values(self, *names):
        return [binding.value for binding in self.reader.get(*names)]


def refusal(client, *assignments):
    """The error of a SET, and which of the assignments it names."""
    with pytest.raises(SnmpError) as refused:
        client.set(*assignments)
    return refused.value.status, refused.value.failed


class Ports:
    """The port manager's part of a FakeManager: records by ifIndex, and what was set."""

    def __init__(self, manager, *records):
        self.records = {struct.unpack_from(">I", record)[0]: record for record in records}
        self.settings = []
        self.system_settings = []
        self.texts = [b"", b"a switch", b""]
        manager.answer(self._look_up, PORT, service=wire.SERVICE_PORT)
        manager.answer(self._set, PORT, [wire.SET], wire.SERVICE_PORT)
        manager.answer(self._tell, SYSTEM_TEXTS, [wire.GET], wire.SERVICE_PORT)
        manager.answer(self._set_text, SYSTEM_TEXTS, [wire.SET], wire.SERVICE_PORT)

    def _look_up(self, request):
        (asked,) = struct.unpack(">I", request.payload)
        if request.kind == wire.GET:
            found = asked if asked in self.records else None
        else:
            found = min((index for index in self.records if index > asked), default=None)
        if found is None:
            return wire.Reply(NO_SUCH_INTERFACE if request.kind == wire.GET else NO_MORE_INTERFACES, None)
        record = self.records[found]
        if len(record) == PORT_NOW + 8:
            record = record[:PORT_NOW] + struct.pack(">2I", *now())
        return wire.Reply(0, record)

    def _set(self, request):
        self.settings.append((*struct.unpack_from(">2I", request.payload), request.payload[8:]))
        return wire.Reply(0, None)

    def _tell(self, _):
        return wire.Reply(0, b"".join(struct.pack(">I256s", len(text), text) for text in self.texts) + bytes(8))

    def _set_text(self, request):
        self.system_settings.append((struct.unpack_from(">I", request.payload)[0], request.payload[4:]))
        return wire.Reply(0, None)
