# SPDX-License-Identifier: Apache-2.0
"""The objects of the subtree, in the order in which a walk visits them."""

from .build import ENTERPRISE

ROOT = (1, 3, 6, 1, 4, 1, ENTERPRISE, 9, 282)
SYS_DESCR = (1, 3, 6, 1, 2, 1, 1, 1, 0)

INTEGER, STRING, GAUGE, TICKS = "INTEGER", "OCTET STRING", "Gauge32", "Timeticks"
READ, WRITE = "read-only", "read-write"

# name, type, access, arcs below the root
OBJECTS = (
    ("vsanNumber", INTEGER, READ, (1, 1, 1)),
    ("vsanTableLastChange", TICKS, READ, (1, 1, 2)),
    ("vsanName", STRING, WRITE, (1, 1, 3, 1, 2)),
    ("vsanMediaType", INTEGER, READ, (1, 1, 3, 1, 3)),
    ("vsanAdminState", INTEGER, WRITE, (1, 1, 3, 1, 4)),
    ("vsanMtu", GAUGE, READ, (1, 1, 3, 1, 5)),
    ("vsanLoadBalancingType", INTEGER, WRITE, (1, 1, 3, 1, 6)),
    ("vsanOperState", INTEGER, WRITE, (1, 1, 3, 1, 8)),
    ("vsanRowStatus", INTEGER, WRITE, (1, 1, 3, 1, 9)),
    ("vsanInterOperType", INTEGER, WRITE, (1, 1, 3, 1, 10)),
    ("vsanInorderDelivery", INTEGER, WRITE, (1, 1, 3, 1, 11)),
    ("vsanNetworkDropLatency", GAUGE, WRITE, (1, 1, 3, 1, 12)),
    ("vsanIfNumber", INTEGER, READ, (1, 2, 4)),
    ("vsanIfVsan", INTEGER, WRITE, (1, 2, 5, 1, 1)),
    ("vsanIfDenyList", INTEGER, READ, (1, 2, 5, 1, 2)),
    ("vsanMembershipSummaryIfIndex", INTEGER, READ, (1, 2, 8, 1, 1)),
    ("fcTimerRatov", GAUGE, WRITE, (1, 4, 1)),
    ("fcTimerEdtov", GAUGE, WRITE, (1, 4, 2)),
    ("fcTimerFstov", GAUGE, READ, (1, 4, 3)),
    ("fcTimerDstov", GAUGE, WRITE, (1, 4, 4)),
    ("fcNetworkLatency", GAUGE, WRITE, (1, 4, 5)),
    ("fcSwitchLatency", GAUGE, WRITE, (1, 4, 6)),
    ("fcInorderDelivery", INTEGER, WRITE, (1, 4, 7)),
    ("vsanFcTimerForceFlag", STRING, WRITE, (1, 4, 8, 1, 1)),
    ("vsanFcTimerRatov", GAUGE, WRITE, (1, 4, 8, 1, 2)),
    ("vsanFcTimerEdtov", GAUGE, WRITE, (1, 4, 8, 1, 3)),
    ("vsanFcTimerDstov", GAUGE, WRITE, (1, 4, 8, 1, 4)),
    ("vsanFcTimerFstov", GAUGE, READ, (1, 4, 8, 1, 5)),
)

TYPE_OF = {name: kind for name, kind, _, _ in OBJECTS}
ACCESS = {name: access for name, _, access, _ in OBJECTS}
ARCS = {name: ROOT + suffix for name, _, _, suffix in OBJECTS}
NAMES = tuple(name for name, _, _, _ in OBJECTS)
SCALARS = tuple(name for name, _, _, suffix in OBJECTS if len(suffix) == 3)
TIMERS = tuple(name for name, _, _, suffix in OBJECTS if suffix[:4] == (1, 4, 8, 1))
COLUMNS = tuple(name for name, _, _, suffix in OBJECTS if suffix[:4] == (1, 1, 3, 1))
READ_ONLY = tuple(name for name, _, access, _ in OBJECTS if access == READ)
VSAN_ENTRY = ROOT + (1, 1, 3, 1)


def scalar(name):
    """The one instance of a scalar."""
    return ARCS[name] + (0,)


def cell(name, *index):
    """A column's instance."""
    return ARCS[name] + index


def object_of(oid):
    """The name of the object that an instance belongs to, or None."""
    for name, arcs in ARCS.items():
        if oid[: len(arcs)] == arcs:
            return name
    return None


def dotted(oid):
    """1.3.6 written with a leading dot, as the tools take it."""
    return "." + ".".join(str(arc) for arc in oid)
