# SPDX-License-Identifier: Apache-2.0
"""The switch's socket protocol, from the requester's side and as plain frames.

Every word is big-endian. A frame is magic, type, correlation and body length, then
the body; a request body is service, opcode, kind, length, session, payload bytes and
user bytes, then the payload and the user name.
"""

import itertools
import json
import socket
import struct
from dataclasses import dataclass

MAGIC = 0x4D545331
HEADER = struct.Struct(">4I")
REQUEST_FIXED = struct.Struct(">7I")
REPLY_FIXED = struct.Struct(">2I")
MAX_BODY = 131072

REQUEST, REPLY, SUBSCRIBE, EVENT, PING, PONG, SHARE, SHARED, KNOCK = range(1, 10)
GET, GETNEXT, SET, DELETE, TDX_GET = range(1, 6)

SERVICE_SWITCH, SERVICE_ROLES, SERVICE_VSAN, SERVICE_PORT, SERVICE_TDX = 1, 3, 15, 46, 66
SWITCH_COUNTERS, SWITCH_COMMAND, ROLE_OF_USER, TDX_STATE = 9001, 9002, 9101, 9201
MEMBERSHIP, VSAN_COUNT, LAST_CHANGE, FC_TIMER, IF_COUNT = 124, 125, 126, 127, 128
LATENCY, INORDER_DELIVERY, VSAN = 136, 140, 149
NO_SUCH_VSAN, NO_MORE_VSANS, NAME_CONFLICT = 0x40190001, 0x40190003, 0x40190004

BLOCK_SIZE, RECORD_AT, RECORD_SIZE = 2632, 520, 2108
NAME_SIZE = 36
RECORD = struct.Struct(f">9i{NAME_SIZE}sI")
RECORD_FIELDS = (
    "vsanIndex", "vsanMediaType", "vsanAdminState", "vsanMtu", "vsanInorderDelivery",
    "vsanInterOperType", "vsanLoadBalancingType", "vsanRowStatus", "vsanOperState", "vsanName",
    "vsanNetworkDropLatency",
)


@dataclass
class Request:
    service: int
    opcode: int
    kind: int
    length: int
    session: int
    payload: bytes
    user: str


@dataclass
class Reply:
    status: int
    data: bytes | None


def frame(kind, correlation, body=b""):
    return HEADER.pack(MAGIC, kind, correlation, len(body)) + body


def request_body(service, opcode, kind=GET, payload=b"", length=None, session=0, user=""):
    name = user.encode()
    return REQUEST_FIXED.pack(
        service, opcode, kind, len(payload) if length is None else length, session, len(payload), len(name)
    ) + payload + name


def parse_request(body):
    service, opcode, kind, length, session, payload, user = REQUEST_FIXED.unpack_from(body)
    start = REQUEST_FIXED.size
    return Request(service, opcode, kind, length, session, body[start : start + payload],
                   body[start + payload : start + payload + user].decode())


def event(event_class, payload):
    """The frame of an event."""
    return frame(EVENT, 0, struct.pack(">I", event_class) + payload)


def reply_body(status, data=None):
    return REPLY_FIXED.pack(status, 0 if data is None else 1) + (data or b"")


def receive_exactly(sock, count):
    """`count` bytes, or None when the other side closed before."""
    data = bytearray()
    while len(data) < count:
        part = sock.recv(count - len(data))
        if not part:
            return None
        data += part
    return bytes(data)


def receive_frame(sock):
    """(type, correlation, body), or None when the other side closed."""
    header = receive_exactly(sock, HEADER.size)
    if header is None:
        return None
    magic, kind, correlation, size = HEADER.unpack(header)
    assert magic == MAGIC and size <= MAX_BODY, f"not a frame: {header.hex()}"
    body = receive_exactly(sock, size)
    return None if body is None else (kind, correlation, body)


def vsan_block(record_bytes=b"", **fields):
    """A block of opcode 149: the record's named fields, zero where not given."""
    if not record_bytes:
        values = [fields.get(name, b"" if name == "vsanName" else 0) for name in RECORD_FIELDS]
        record_bytes = RECORD.pack(*values)
    return bytes(RECORD_AT) + record_bytes.ljust(BLOCK_SIZE - RECORD_AT, b"\0")


def command_kind(name):
    """The kind of an operator's command: one that only reads, or one that changes."""
    return GET if name.endswith((".show", ".list")) else SET


def parse_vsan(block):
    """The record of a block as a dictionary, the name cut at its NUL."""
    record = dict(zip(RECORD_FIELDS, RECORD.unpack_from(block, RECORD_AT)))
    record["vsanName"] = record["vsanName"].split(b"\0")[0]
    return record


def parse_timer(payload):
    """(key, value, per VSAN, forced, VSAN) of a timer record."""
    return struct.unpack(">IIBBIx", payload)


class WireClient:
    """One connection to the switch."""

    def __init__(self, path, timeout=10):
        self._correlations = itertools.count(1)
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.socket.settimeout(timeout)
        self.socket.connect(str(path))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()

    def _exchange(self, kind, body):
        correlation = next(self._correlations)
        self.socket.sendall(frame(kind, correlation, body))
        answer = receive_frame(self.socket)
        assert answer is not None, "the switch closed the connection"
        assert answer[1] == correlation
        return answer

    def ping(self):
        kind, _, body = self._exchange(PING, b"")
        assert (kind, body) == (PONG, b"")

    def request(self, *args, **kwargs):
        """Arguments as for request_body; returns a Reply."""
        kind, _, body = self._exchange(REQUEST, request_body(*args, **kwargs))
        assert kind == REPLY
        status, has_data = REPLY_FIXED.unpack_from(body)
        return Reply(status, body[REPLY_FIXED.size :] if has_data else None)

    def subscribe(self, *classes):
        kind, _, body = self._exchange(SUBSCRIBE, struct.pack(f">{len(classes)}I", *classes))
        assert (kind, body) == (PONG, b"")

    def event(self):
        """(class, payload) of the next event; nothing else may come."""
        answer = receive_frame(self.socket)
        assert answer is not None and answer[0] == EVENT, answer
        return int.from_bytes(answer[2][:4], "big"), answer[2][4:]

    def counters(self):
        return json.loads(self.request(SERVICE_SWITCH, SWITCH_COUNTERS).data)

    def vsans(self):
        """Every VSAN that the manager holds, in its own order."""
        rows, index = [], 0
        while len(rows) <= 4096:
            reply = self.request(SERVICE_VSAN, VSAN, GETNEXT, vsan_block(vsanIndex=index))
            if reply.status != 0:
                return rows
            rows.append(parse_vsan(reply.data))
            index = rows[-1]["vsanIndex"]
        raise AssertionError("the manager's table does not end")

    def is_closed_by_peer(self):
        """Waits for the other side to close; anything it sends before is dropped."""
        try:
            while self.socket.recv(65536):
                pass
        except ConnectionResetError:
            pass
        return True
