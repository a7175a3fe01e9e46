# SPDX-License-Identifier: Apache-2.0
"""What a switch is expected to become under SETs: the switch as plain data, and a SET
PDU taken through its phases as the agent does it.

The model knows what UNDO cannot take back, because it keeps the same small books as
the agent does while a PDU is under way: the rows staged for the manager, the copies
made before, and the one row read last.
"""

from dataclasses import dataclass, field, replace

from .oids import ACCESS, COLUMNS, READ, SCALARS, TIMERS, cell, scalar

NO_ERROR, GEN_ERR, WRONG_TYPE, WRONG_LENGTH, WRONG_VALUE = 0, 5, 7, 8, 10
INCONSISTENT_VALUE, NOT_WRITABLE, INCONSISTENT_NAME = 12, 17, 18
ACTIVE, CREATE_AND_GO, DESTROY = 1, 4, 6
SUSPENDED, NO_INTEROP = 2, 100
MAX_VSAN = 4095


@dataclass
class Vsan:
    """A VSAN as its manager keeps it. In a record on its way to the manager, in-order
    delivery 0 and drop latency 0 stand for what the VSAN has."""

    name: bytes
    admin: int = ACTIVE
    balancing: int = 2
    interop: int = NO_INTEROP
    inorder: int = 2
    latency: int = 500
    status: int = ACTIVE  # of a staged record only
    timers: dict = field(default_factory=dict)  # the VSAN's own


@dataclass(frozen=True)
class Varbind:
    """One assignment. `kind` is i, u or s, as the command line tools write it."""

    name: str
    index: tuple
    kind: str
    value: object

    @property
    def oid(self):
        return cell(self.name, *self.index)

    @property
    def vsan(self):
        return self.index[-1]


# Columns of the VSAN table: field, kind, accepted values.
VSAN_COLUMNS = {
    "vsanName": ("name", "s", None),
    "vsanAdminState": ("admin", "i", (1, 2)),
    "vsanLoadBalancingType": ("balancing", "i", (1, 2)),
    "vsanInterOperType": ("interop", "i", (0, 4)),
    "vsanInorderDelivery": ("inorder", "i", (1, 2)),
    "vsanNetworkDropLatency": ("latency", "u", (1, 60000)),
}
SETTINGS = {
    "fcTimerRatov": ("u", (5000, 100000)),
    "fcTimerEdtov": ("u", (1000, 100000)),
    "fcTimerDstov": ("u", (5000, 100000)),
    "fcNetworkLatency": ("u", (0, 60000)),
    "fcSwitchLatency": ("u", (0, 60000)),
    "fcInorderDelivery": ("i", (1, 2)),
}
VSAN_TIMERS = {  # the switch-wide setting that it stands in for, the bit that forces it
    "vsanFcTimerRatov": ("fcTimerRatov", 0x80),
    "vsanFcTimerEdtov": ("fcTimerEdtov", 0x40),
    "vsanFcTimerDstov": ("fcTimerDstov", 0x20),
}
RATOV, EDTOV = "fcTimerRatov", "fcTimerEdtov"


def check_number(varbind, kind, bounds):
    if varbind.kind != kind:
        return WRONG_TYPE
    return NO_ERROR if bounds[0] <= varbind.value <= bounds[1] else WRONG_VALUE


class Switch:
    """The manager's side, with its own checks. Requests return the status that the agent
    answers for theirs."""

    def __init__(self, vsans, ports):
        self.vsans = {1: Vsan(b"VSAN0001")} | vsans
        self.ports = ports  # ifIndex: [VSAN, whether its link is up]
        self.settings = {RATOV: 10000, EDTOV: 2000, "fcTimerDstov": 5000, "fcTimerFstov": 5000,
                         "fcNetworkLatency": 2000, "fcSwitchLatency": 500, "fcInorderDelivery": 2}

    def set_vsan(self, number, record):
        if any(octet <= 0x20 or octet >= 0x7F for octet in record.name):
            return GEN_ERR
        if record.name and any(v.name == record.name for n, v in self.vsans.items() if n != number):
            return INCONSISTENT_NAME
        present = self.vsans.get(number, Vsan(b""))
        self.vsans[number] = replace(record, inorder=record.inorder or present.inorder, status=ACTIVE,
                                     latency=record.latency or present.latency, timers=present.timers)
        return NO_ERROR

    def delete_vsan(self, number):
        if number == 1:
            return GEN_ERR
        if number not in self.vsans:
            return INCONSISTENT_NAME
        del self.vsans[number]
        for port in self.ports.values():
            if port[0] == number:
                port[0] = 1
        return NO_ERROR

    def move(self, if_index, vsan):
        if vsan not in self.vsans:
            return INCONSISTENT_NAME
        self.ports[if_index][0] = vsan
        return NO_ERROR

    def set_setting(self, name, value):
        future = self.settings | {name: value}
        if name in (RATOV, EDTOV) and not (future[EDTOV] < future[RATOV] and all(
                self._in_order(vsan.timers, future) for vsan in self.vsans.values() if name not in vsan.timers)):
            return GEN_ERR
        self.settings = future
        return NO_ERROR

    def set_timer(self, number, name, value, force):
        if number not in self.vsans:
            return INCONSISTENT_NAME
        timers = self.vsans[number].timers | {name: value}
        if name in (RATOV, EDTOV) and not force and not self._in_order(timers, self.settings):
            return GEN_ERR
        self.vsans[number].timers = timers
        return NO_ERROR

    @staticmethod
    def _in_order(own, settings):
        return own.get(EDTOV, settings[EDTOV]) < own.get(RATOV, settings[RATOV])


class Model:
    """The switch and, beside it, what the agent keeps over time: the force flags."""

    def __init__(self, vsans, ports):
        self.switch = Switch(vsans, ports)
        self.flags = {}

    def set(self, varbinds):
        """Takes a PDU through its phases: (error status, number of the varbind at fault)."""
        pdu = SetPdu(self)
        for phase in (pdu.reserve1, pdu.reserve2, pdu.action):
            failed = pdu.run(phase, varbinds)
            if failed:
                if phase == pdu.action:
                    pdu.run(pdu.undo, varbinds)
                return failed
        return NO_ERROR, 0

    def walk(self):
        """What every instance is expected to show, but for the time of the last change."""
        switch = self.switch
        shown = {scalar("vsanNumber"): len(switch.vsans), scalar("vsanIfNumber"): len(switch.ports)}
        shown.update((scalar(name), value) for name, value in switch.settings.items())
        for number, vsan in switch.vsans.items():
            up = vsan.admin == ACTIVE and any(at == number and link for at, link in switch.ports.values())
            row = dict(zip(COLUMNS, (vsan.name, 1, vsan.admin, 2112, vsan.balancing, 1 if up else 2, ACTIVE,
                                     0 if vsan.interop == NO_INTEROP else vsan.interop, vsan.inorder, vsan.latency)))
            row["vsanFcTimerForceFlag"] = bytes((self.flags.get(number, 0),))
            for name in TIMERS[1:]:
                setting = name.replace("vsanFc", "fc")
                row[name] = vsan.timers.get(setting, switch.settings[setting])
            shown.update((cell(name, number), value) for name, value in row.items())
        for if_index, (vsan, _) in switch.ports.items():
            shown[cell("vsanIfVsan", if_index)] = vsan
            shown[cell("vsanIfDenyList", if_index)] = 0
            shown[cell("vsanMembershipSummaryIfIndex", vsan, if_index)] = if_index
        return shown


class SetPdu:
    """The books of one PDU: rows staged for the manager, copies for UNDO, the row read last."""

    def __init__(self, model):
        self.model, self.switch = model, model.switch
        self.pending, self.undo_copies, self.cached = {}, {}, None

    def run(self, phase, varbinds):
        """One phase over all varbinds, object by object in the order of their first
        appearance, whatever fails on the way. The first varbind of the PDU that failed."""
        failed = {}
        for name in dict.fromkeys(varbind.name for varbind in varbinds):
            for position, varbind in enumerate(varbinds, start=1):
                if varbind.name != name:
                    continue
                status = phase(varbind)
                if status != NO_ERROR:
                    failed[position] = status
                if status == NOT_WRITABLE and ACCESS[name] != READ:
                    break  # the agent gives up the column
        return (failed[min(failed)], min(failed)) if failed else None

    def read(self, number):
        """The VSAN's row as a PDU sees it, or None. The row read last is not read again."""
        if self.cached and self.cached[0] == number:
            return replace(self.cached[1])
        row = self.switch.vsans.get(number)
        self.cached = (number, replace(row)) if row else None
        return replace(row) if row else None

    def reserve1(self, varbind):
        name = varbind.name
        if ACCESS[name] == READ:
            return NOT_WRITABLE
        if name in COLUMNS:
            row = self.read(varbind.vsan)
            if name == "vsanOperState":
                return NOT_WRITABLE
            if name == "vsanRowStatus":
                return self.reserve_row_status(varbind, row)
            return self.check_column(varbind)
        if name == "vsanIfVsan":
            if varbind.vsan not in self.switch.ports:
                return NOT_WRITABLE
            return check_number(varbind, "i", (1, MAX_VSAN))
        if name in SCALARS:
            return check_number(varbind, *SETTINGS[name])
        if name == "vsanFcTimerForceFlag":
            status = WRONG_TYPE if varbind.kind != "s" else WRONG_LENGTH if len(varbind.value) > 1 else NO_ERROR
        else:
            status = check_number(varbind, *SETTINGS[VSAN_TIMERS[name][0]])
        return status or (NO_ERROR if 1 <= varbind.vsan <= MAX_VSAN else INCONSISTENT_NAME)

    @staticmethod
    def check_column(varbind):
        _, kind, bounds = VSAN_COLUMNS[varbind.name]
        if kind != "s":
            if varbind.name == "vsanNetworkDropLatency" and (varbind.kind, varbind.value) == ("u", 0):
                return GEN_ERR
            return check_number(varbind, kind, bounds)
        if varbind.kind != "s":
            return WRONG_TYPE
        if len(varbind.value) > 32:
            return WRONG_LENGTH
        return WRONG_VALUE if b" " in varbind.value.split(b"\0")[0] else NO_ERROR

    def reserve_row_status(self, varbind, row):
        if varbind.kind != "i":
            return WRONG_TYPE
        if not 1 <= varbind.vsan <= MAX_VSAN or varbind.value not in (ACTIVE, CREATE_AND_GO, DESTROY):
            return WRONG_VALUE
        if row and varbind.value == CREATE_AND_GO:
            return INCONSISTENT_VALUE
        if row:
            self.undo_copies[varbind.vsan] = row
        elif varbind.value == CREATE_AND_GO:
            self.pending.setdefault(varbind.vsan, Vsan(b"VSAN%04d" % varbind.vsan, inorder=0, latency=0,
                                                       status=CREATE_AND_GO))
        return NO_ERROR

    def reserve2(self, varbind):
        if varbind.name not in VSAN_COLUMNS:
            return NO_ERROR
        number = varbind.vsan
        if number not in self.pending:
            row = self.read(number)
            if not row:
                return INCONSISTENT_NAME if 1 <= number <= MAX_VSAN else GEN_ERR
            self.undo_copies[number] = row
            self.pending[number] = replace(row, inorder=0, latency=0)
        value = varbind.value
        if varbind.name == "vsanName":
            value = value.split(b"\0")[0]
        elif varbind.name == "vsanInterOperType":
            value = value or NO_INTEROP
        setattr(self.pending[number], VSAN_COLUMNS[varbind.name][0], value)
        return NO_ERROR

    def action(self, varbind):
        name, number, value = varbind.name, varbind.vsan, varbind.value
        if name == "vsanRowStatus":
            return self.act_on_row_status(number, value)
        if name in VSAN_COLUMNS:
            staged = self.pending.get(number)
            if staged and staged.status == CREATE_AND_GO and number != 9:
                return NO_ERROR  # left to the row status
            self.pending.pop(number, None)
            return self.switch.set_vsan(number, staged) if staged else NO_ERROR
        if name == "vsanIfVsan":
            return self.switch.move(number, value)
        if name in SCALARS:
            return self.switch.set_setting(name, value)
        flags = self.model.flags
        if name == "vsanFcTimerForceFlag":
            flags[number] = (value[0] if value else 0) & 0xE0
            return NO_ERROR
        setting, bit = VSAN_TIMERS[name]
        return self.switch.set_timer(number, setting, value, bool(flags.get(number, 0) & bit))

    def act_on_row_status(self, number, value):
        row = self.read(number)
        if row:
            if value == CREATE_AND_GO:
                return INCONSISTENT_VALUE
            return self.switch.delete_vsan(number) if value == DESTROY else self.switch.set_vsan(number, row)
        if value == ACTIVE:
            return INCONSISTENT_VALUE
        if value == DESTROY:
            return NO_ERROR
        if number not in self.pending:
            return INCONSISTENT_NAME
        self.pending[number].status = ACTIVE
        status = self.switch.set_vsan(number, self.pending[number])
        if status != NO_ERROR:
            del self.pending[number]  # no column sends it again
        return status

    def undo(self, varbind):
        """Only the row status takes something back; whether the manager lets it, nobody asks."""
        if varbind.name == "vsanRowStatus":
            copy = self.undo_copies.pop(varbind.vsan, None)
            if varbind.value != CREATE_AND_GO:
                if copy:
                    self.switch.set_vsan(varbind.vsan, copy)
            elif not copy:
                self.switch.delete_vsan(varbind.vsan)
                self.pending.pop(varbind.vsan, None)
        return NO_ERROR
