# SPDX-License-Identifier: Apache-2.0
"""The part of the Basic Encoding Rules that SNMP uses, for single packets and for tests
that send too many of them for a general library. Encoders give whole elements, so that
a test can also make one up that no ordinary client would send."""

INTEGER, OCTETS, NULL, OID, SEQUENCE = 0x02, 0x04, 0x05, 0x06, 0x30
COUNTER, GAUGE, TICKS = 0x41, 0x42, 0x43
NO_OBJECT, NO_INSTANCE, END = 0x80, 0x81, 0x82


def element(tag, contents):
    size = len(contents)
    if size < 128:
        return bytes((tag, size)) + contents
    octets = size.to_bytes((size.bit_length() + 7) // 8, "big")
    return bytes((tag, 0x80 | len(octets))) + octets + contents


def integer(value, tag=INTEGER):
    """In as few octets as the value needs."""
    bits = (value if value >= 0 else -value - 1).bit_length()
    return element(tag, value.to_bytes(bits // 8 + 1, "big", signed=True))


def gauge(value):
    return integer(value, GAUGE)


def octets(value):
    return element(OCTETS, value.encode() if isinstance(value, str) else bytes(value))


def oid(arcs):
    contents = bytearray((arcs[0] * 40 + arcs[1],))
    for arc in arcs[2:]:
        part = [arc & 0x7F]
        while arc := arc >> 7:
            part.append(arc & 0x7F | 0x80)
        contents += bytes(reversed(part))
    return element(OID, bytes(contents))


def sequence(*elements, tag=SEQUENCE):
    return element(tag, b"".join(elements))


def split(data, start=0):
    """The element at `start`: its tag, its contents, and where it ends."""
    size, at = data[start + 1], start + 2
    if size & 0x80:
        count = size & 0x7F
        size, at = int.from_bytes(data[at : at + count], "big"), at + count
    return data[start], data[at : at + size], at + size


def elements(contents):
    """All (tag, contents) in the contents of a sequence."""
    found, at = [], 0
    while at < len(contents):
        tag, inner, at = split(contents, at)
        found.append((tag, inner))
    return found


def arcs_of(contents):
    arcs, arc = [contents[0] // 40, contents[0] % 40], 0
    for octet in contents[1:]:
        arc = arc << 7 | octet & 0x7F
        if not octet & 0x80:
            arcs.append(arc)
            arc = 0
    return tuple(arcs)


def number_of(contents):
    return int.from_bytes(contents, "big", signed=True)
