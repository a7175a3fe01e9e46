# SPDX-License-Identifier: Apache-2.0
"""Frames of the message protocol, and what is in them, for the seeds of fuzz targets."""

import struct

MAGIC = 0x4D545331
REQUEST, REPLY, SUBSCRIBE, EVENT, PING, PONG, SHARE, SHARED, KNOCK = range(1, 10)
ALL_LINES = 2**64 - 1


def words(*values):
    return struct.pack(">%dI" % len(values), *values)


def frame(kind, correlation, body=b""):
    return words(MAGIC, kind, correlation, len(body)) + body


def request(correlation, service, opcode, kind, payload=b"", length=None, user=b""):
    """A REQUEST; its length word is the payload's size unless said otherwise."""
    size = len(payload)
    fixed = words(service, opcode, kind, size if length is None else length, 0, size, len(user))
    return frame(REQUEST, correlation, fixed + payload + user)


def blanks(lines):
    """The two words that say which lines of a frame in shared memory are blank: a bit for each."""
    return words(lines & 0xFFFFFFFF, lines >> 32)
