"""Seeds of fuzz_vswitchd_memory: what clients do with the memory, written into the folder
named on the command line."""

import struct

import seed_files

MAGIC = 0x4D545331
REQUEST, SUBSCRIBE, PING, SHARE, KNOCK = 1, 3, 5, 7, 9
SOCKET, POST, POST_ASLEEP, POST_OVERSTATED, SCRIBBLE, DEAF = 0, 1, 5, 17, 6, 3


def words(*values):
    return struct.pack(">%dI" % len(values), *values)


def frame(kind, correlation, body=b""):
    return words(MAGIC, kind, correlation, len(body)) + body


def request(correlation, service, opcode, kind, payload=b"", length=None):
    size = len(payload)
    body = words(service, opcode, kind, size if length is None else length, 0, size, 0) + payload
    return frame(REQUEST, correlation, body)


def step(what, content=b""):
    return struct.pack(">BH", what, len(content)) + content


VSAN_COUNT = request(2, 15, 125, 1, length=4)
VSANS = request(3, 1, 9002, 1, b'{"command": "vsan.show"}')
MAKE_FAULT = request(4, 1, 9002, 3, b'{"command": "fault.add", "service": 15, "action": "delay", "value": 60000}')
NEW_VSAN = request(5, 15, 149, 3, words(0, 0, 10) + bytes(64))
SHARED = step(SOCKET, frame(SHARE, 1))

SEEDS = {
    "request": SHARED + step(POST, VSAN_COUNT) + step(POST_ASLEEP, VSAN_COUNT),
    "command": SHARED + step(POST, VSANS),
    "overstated": SHARED + step(POST_OVERSTATED, VSAN_COUNT),
    "ping": SHARED + step(POST, frame(PING, 2)),
    "share_again": SHARED + SHARED + step(POST, VSAN_COUNT),
    "share_in_memory": SHARED + step(POST, frame(SHARE, 2)),
    "delayed": SHARED + step(POST, MAKE_FAULT) + step(POST, VSAN_COUNT) + step(POST_ASLEEP, VSAN_COUNT),
    "event": SHARED + step(SOCKET, frame(SUBSCRIBE, 2, words(145))) + step(POST, NEW_VSAN),
    "deaf": SHARED + step(DEAF) + step(SOCKET, VSAN_COUNT * 20) + step(POST, VSAN_COUNT),
    "scribbled": SHARED + step(SCRIBBLE) + step(POST, VSAN_COUNT) + step(SOCKET, frame(KNOCK, 0)),
}

seed_files.write(SEEDS)
