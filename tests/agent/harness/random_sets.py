# SPDX-License-Identifier: Apache-2.0
"""Random SET PDUs, the switch that they are for, and the model of it."""

from .assignments import encoded
from .model import Model, Varbind, Vsan
from .oids import ROOT, SCALARS, TIMERS, scalar

NUMBERS = (1, 2, 3, 5, 9, 10, 4095)
PORTS = (0x01000000, 0x01001000, 0x01002000, 0x01003000)
COLUMN_NAMES = ("vsanName", "vsanAdminState", "vsanLoadBalancingType", "vsanInterOperType", "vsanInorderDelivery",
                "vsanNetworkDropLatency")
SOME_NAMES = (b"red", b"green", b"blue", b"", b"VSAN0005", b"VSAN0009", b"with space", b"tab\tbed", b"nul\0 tail",
              b"n" * 32, b"n" * 33)
INITIAL = {
    "vsans": [{"id": 1, "name": "VSAN0001"}, {"id": 2, "name": "two"}, {"id": 10, "name": "ten"}],
    "ports": [{"ifIndex": port, "vsan": 10 if port == PORTS[0] else 1, "link": "up" if port != PORTS[3] else "down"}
              for port in PORTS],
}


def model():
    """What a switch that starts with INITIAL is expected to become."""
    return Model({2: Vsan(b"two"), 10: Vsan(b"ten")},
                 {port: [10 if port == PORTS[0] else 1, port != PORTS[3]] for port in PORTS})


def assignments(pdu):
    """The PDU's names and encoded values."""
    return [encoded(varbind) for varbind in pdu]


def some_value(draw, name):
    """(kind, value): mostly one that the object accepts, with a preference for bounds."""
    if draw.random() < 0.03:
        return draw.choice((("i", 1), ("u", 1), ("s", b"1")))
    if name == "vsanName":
        return "s", draw.choice(SOME_NAMES)
    if name == "vsanRowStatus":
        return "i", draw.choice((1, 4, 4, 4, 6, 6, draw.randrange(-1, 8)))
    if name == "vsanFcTimerForceFlag":
        return "s", draw.choice((b"\x00", b"\x80", b"\x40", b"\xe0", b"\xff", b"\x80\x00"))
    if name == "vsanIfVsan":
        return "i", draw.choice(NUMBERS + (0, 4096))
    if name.endswith("Latency"):
        return "u", draw.choice((1, 7, 60000, 0, 60001))
    if "Timer" in name:
        return "u", draw.choice((1000, 4999, 5000, 6000, 9999, 10000, 10001, 100000, 999, 100001))
    return "i", draw.choice((1, 2, 1, 2, 0, 3, 4, 5, -1))


def some_varbind(draw, numbers):
    dice = draw.random()
    if dice < 0.52:
        name = draw.choice(COLUMN_NAMES)
    elif dice < 0.74:
        name = "vsanRowStatus"
    elif dice < 0.82:
        return Varbind("vsanIfVsan", (draw.choice(PORTS) + (draw.random() < 0.05),), *some_value(draw, "vsanIfVsan"))
    elif dice < 0.88:
        name = draw.choice([name for name in SCALARS if name.startswith("fc") and name != "fcTimerFstov"])
        return Varbind(name, (0,), *some_value(draw, name))
    elif dice < 0.98:
        name = draw.choice(TIMERS[:-1])
    else:
        name = draw.choice(("vsanOperState", "vsanMtu", "vsanFcTimerFstov"))
    return Varbind(name, (draw.choice(numbers),), *some_value(draw, name))


def some_pdu(draw):
    """A few varbinds that are mostly about the same few VSANs."""
    if draw.random() < 0.05:
        return creation_that_fails(draw.choice(NUMBERS))
    numbers = draw.choices(NUMBERS, k=draw.choice((1, 1, 2, 3))) if draw.random() < 0.97 else (0, 4096)
    return [some_varbind(draw, numbers) for _ in range(draw.choice((1, 1, 2, 2, 3, 4, 6, 8)))]


def creation_that_fails(vsan):
    """A creation that the manager accepts, beside a move to a VSAN that does not exist."""
    return [Varbind("vsanRowStatus", (vsan,), "i", 4), Varbind("vsanIfVsan", (PORTS[0],), "i", 4000)]


def difference(client, model):
    """What can be read and is not what the model says, by name."""
    shown = {b.oid: b.value for b in client.walk(ROOT) if b.oid != scalar("vsanTableLastChange")}
    expected = model.walk()
    return {oid: (shown.get(oid), expected.get(oid)) for oid in shown.keys() | expected.keys()
            if shown.get(oid) != expected.get(oid)}
