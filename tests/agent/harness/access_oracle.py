# SPDX-License-Identifier: Apache-2.0
"""What a restricted user is expected to see of a switch, and which of their SETs are
expected to be refused. Written from the rules of access alone, and without a word about
how the agent finds its answers.

The rules are not the same in every column:

- scalars are shown to everybody;
- a VSAN's row and its timers are shown when the role has the VSAN;
- an interface's VSAN is shown when the role has the interface, whatever VSAN that is,
  and GETNEXT leaves the column at the first interface that the role does not have;
- an interface's deny list is shown to everybody;
- a GET of the membership summary is answered when the role has VSAN 0, whatever row is
  asked for, while GETNEXT shows the pairs of the role's VSANs;
- a VSAN without a value in a timer's column is passed over, by GET too; the role is
  held against the row that comes instead.
"""

import bisect
from dataclasses import dataclass

from .model import (ACTIVE, CREATE_AND_GO, DESTROY, GEN_ERR, INCONSISTENT_NAME, INCONSISTENT_VALUE, MAX_VSAN, NO_ERROR,
                    NOT_WRITABLE, SETTINGS, VSAN_TIMERS, WRONG_LENGTH, WRONG_TYPE, WRONG_VALUE, SetPdu, check_number)
from .oids import ACCESS, ARCS, COLUMNS, NAMES, READ, SCALARS, TIMERS, object_of

SUMMARY = "vsanMembershipSummaryIfIndex"

# Status codes as the agent's log shows them.
FOREIGN_VSAN, FOREIGN_SETTING, FOREIGN_ROW, BAD_DROP_LATENCY = 0x4049002C, 0x4049002E, 0x40540008, 0x40190014
TEXTS = {
    FOREIGN_VSAN: "User is not allowed in this VSAN",
    FOREIGN_SETTING: "User may not change settings of the whole switch",
    FOREIGN_ROW: "User may not create or delete this VSAN",
    BAD_DROP_LATENCY: "Network drop latency is not between 1 and 60000",
}
# Where an error record comes from: a record of the module's own, a request that failed,
# a refusal.
OWN_RECORD, FAILED_REQUEST, REFUSAL = 0, 200, 584

WRITERS_THAT_TRACE_THEIR_LINE = ("vsanName", "vsanInterOperType", "vsanInorderDelivery", "vsanNetworkDropLatency")


@dataclass(frozen=True)
class Role:
    """What a restricted user may touch."""

    vsans: frozenset = frozenset()
    interfaces: tuple = ()  # ranges: first and last, both included

    def has_vsan(self, vsan):
        return vsan in self.vsans

    def has_interface(self, if_index):
        return any(first <= if_index <= last for first, last in self.interfaces)


class Everything(Role):
    """The role of somebody who has none: no restriction."""

    def has_vsan(self, vsan):
        return True

    def has_interface(self, if_index):
        return True


UNRESTRICTED = Everything()


@dataclass(frozen=True)
class Refused:
    """How a SET fails: the status, the error record (code and origin) when there is one,
    and what the event history says when it says something."""

    status: int
    code: int | None = None
    origin: int = OWN_RECORD
    trace: str | None = None

    @property
    def log(self):
        """What the agent's log has to say."""
        assert self.code is not None
        return f"{TEXTS[self.code]} (0x{self.code:08x}) (status 0x{self.code:08x}, origin {self.origin})"


class Oracle:
    """One switch through the eyes of one role.

    contents  every instance on the switch with its value, by OID, as somebody without
              restriction finds them. While the distribution service governs the
              timers: without the timers that it has no value for"""

    def __init__(self, contents, role=UNRESTRICTED):
        self.role = role
        self._rows = {name: {} for name in NAMES}
        for oid, value in contents.items():
            name = object_of(oid)
            self._rows[name][oid[len(ARCS[name]):]] = value
        self._order = {name: sorted(rows) for name, rows in self._rows.items()}
        self._vsans = self._order["vsanRowStatus"]

    def get(self, oid):
        """(OID, value) of the answer to a GET, or None. The OID may be another one."""
        name = object_of(oid)
        if name is None:
            return None
        index = oid[len(ARCS[name]):]
        if name in TIMERS and index in self._vsans:
            index = self._at_or_after(name, index)
        if index not in self._rows[name]:
            return None
        if name == SUMMARY:
            is_shown = self.role.has_vsan(0)
        else:
            is_shown = self._has_row(name, index)
        return (ARCS[name] + index, self._rows[name][index]) if is_shown else None

    def get_next(self, oid):
        """(OID, value) of the answer to a GETNEXT, or None at the end of the subtree."""
        for name in NAMES:
            arcs = ARCS[name]
            if oid[: len(arcs)] == arcs:
                index = self._next_index(name, oid[len(arcs):])
            elif oid < arcs:
                index = self._next_index(name, ())
            else:
                continue
            if index is not None:
                return arcs + index, self._rows[name][index]
        return None

    def walk(self, root):
        """Everything that a walk from `root` shows, in its order."""
        shown, oid = [], root
        while (found := self.get_next(oid)) and found[0][: len(root)] == root:
            shown.append(found)
            oid = found[0]
        return shown

    def refusal(self, varbind):
        """How a SET of one variable fails, or None when the role lets it pass and
        other rules decide."""
        name = varbind.name
        if ACCESS[name] == READ or name == "vsanOperState":
            return Refused(NOT_WRITABLE)
        if name in SCALARS:
            return self._refuse_setting(varbind)
        if name == "vsanIfVsan":
            return self._refuse_move(varbind)
        if name == "vsanRowStatus":
            return self._refuse_row_status(varbind)
        return self._refuse_timer(varbind) if name in TIMERS else self._refuse_column(varbind)

    def _has_row(self, name, index):
        """Whether the role lets a row be seen, rules of GET on the summary aside."""
        if name in COLUMNS or name in TIMERS or name == SUMMARY:
            return self.role.has_vsan(index[0])
        return name != "vsanIfVsan" or self.role.has_interface(index[0])

    def _at_or_after(self, name, index):
        order = self._order[name]
        at = bisect.bisect_left(order, index)
        return order[at] if at < len(order) else None

    def _next_index(self, name, start):
        if name in COLUMNS or name in TIMERS or name.startswith("vsanIf") and name not in SCALARS:
            # Arcs behind the one index do not count: 10.5 is followed by what follows 10.
            start = start[:1]
        rows = self._order[name]
        following = rows[bisect.bisect_right(rows, start):]
        if name == SUMMARY and len(start) > 2:
            following = rows[bisect.bisect_right(rows, start[:2]):]
        if name == "vsanIfVsan":
            following = following[:1]
        return next((index for index in following if self._has_row(name, index)), None)

    def _foreign_vsan(self, varbind, line=""):
        return Refused(GEN_ERR, FOREIGN_VSAN,
                       trace=f"set_{varbind.name}{line} : vsan restricted user -- not allowed in this vsan")

    def _refuse_column(self, varbind):
        status = SetPdu.check_column(varbind)
        if status == GEN_ERR:
            return Refused(status, BAD_DROP_LATENCY, FAILED_REQUEST)
        if status != NO_ERROR:
            return Refused(status)
        # An instance with more than one arc stands for VSAN 0.
        if self.role.has_vsan(varbind.index[0] if len(varbind.index) == 1 else 0):
            return None
        return self._foreign_vsan(varbind, "(#)" if varbind.name in WRITERS_THAT_TRACE_THEIR_LINE else "")

    def _refuse_row_status(self, varbind):
        if varbind.kind != "i":
            return Refused(WRONG_TYPE)
        number = varbind.oid[-1]  # whatever stands there
        if not 1 <= number <= MAX_VSAN or varbind.value not in (ACTIVE, CREATE_AND_GO, DESTROY):
            return Refused(WRONG_VALUE)
        if len(varbind.index) != 1:
            return None  # no row can have this name, whatever the role
        exists = varbind.index in self._vsans
        if exists and self.role.has_vsan(number):
            return Refused(INCONSISTENT_VALUE) if varbind.value == CREATE_AND_GO else None
        if varbind.value == ACTIVE:
            if exists:  # nobody has looked at the role so far: the manager does
                return Refused(GEN_ERR, FOREIGN_VSAN, FAILED_REQUEST)
            return Refused(INCONSISTENT_VALUE)
        if self.role.has_vsan(number):
            return None
        return Refused(GEN_ERR, FOREIGN_ROW, trace="set_vsanRowStatus : vsan restricted user is not allowed to set")

    def _refuse_move(self, varbind):
        if varbind.index not in self._rows["vsanIfVsan"]:
            return Refused(NOT_WRITABLE)
        status = check_number(varbind, "i", (1, MAX_VSAN))
        if status != NO_ERROR:
            return Refused(status)
        if not self.role.has_interface(varbind.index[0]):
            return Refused(GEN_ERR)
        return None if self.role.has_vsan(varbind.value) else Refused(GEN_ERR, FOREIGN_VSAN, REFUSAL)

    def _refuse_timer(self, varbind):
        read = self.get(varbind.oid)
        if read and read[0] != varbind.oid:
            return Refused(INCONSISTENT_NAME)  # the row that is there instead is not meant
        if varbind.name == "vsanFcTimerForceFlag":
            status = WRONG_TYPE if varbind.kind != "s" else WRONG_LENGTH if len(varbind.value) > 1 else NO_ERROR
        else:
            status = check_number(varbind, *SETTINGS[VSAN_TIMERS[varbind.name][0]])
        if status == NO_ERROR and not (len(varbind.index) == 1 and 1 <= varbind.vsan <= MAX_VSAN):
            status = INCONSISTENT_NAME
        if status != NO_ERROR:
            return Refused(status)
        return None if self.role.has_vsan(varbind.vsan) else self._foreign_vsan(varbind)

    def _refuse_setting(self, varbind):
        if varbind.index != (0,):
            return Refused(NOT_WRITABLE)
        status = check_number(varbind, *SETTINGS[varbind.name])
        if status != NO_ERROR:
            return Refused(status)
        if self.role is UNRESTRICTED:
            return None
        # Settings of the whole switch are in nobody's role. The manager says so.
        return Refused(GEN_ERR, FOREIGN_SETTING, FAILED_REQUEST)
