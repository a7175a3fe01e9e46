# SPDX-License-Identifier: Apache-2.0
"""Seeds of fuzz_vswitchd_memory: what clients do with the memory, written into the folder
named on the command line."""

import struct

import seed_files
from wire_frames import ALL_LINES, KNOCK, PING, SHARE, SUBSCRIBE, blanks, frame, request, words

SOCKET, POST, POST_ASLEEP, POST_OVERSTATED, SCRIBBLE, DEAF = 0, 1, 5, 17, 6, 3


def step(what, content=b""):
    return struct.pack(">BH", what, len(content)) + content


def post(content, how=POST, blank_lines=0):
    return step(how, blanks(blank_lines) + content)


VSAN_COUNT = request(2, 15, 125, 1, length=4)
VSANS = request(3, 1, 9002, 1, b'{"command": "vsan.show"}')
MAKE_FAULT = request(4, 1, 9002, 3, b'{"command": "fault.add", "service": 15, "action": "delay", "value": 60000}')
NEW_VSAN = request(5, 15, 149, 3, words(0, 0, 10) + bytes(64))
OLD_VSAN = request(6, 15, 149, 1, b"x" * 520 + words(1) + b"x" * 2108)
SHARED = step(SOCKET, frame(SHARE, 1))

SEEDS = {
    "request": SHARED + post(VSAN_COUNT) + post(VSAN_COUNT, POST_ASLEEP),
    "command": SHARED + post(VSANS),
    "overstated": SHARED + post(VSAN_COUNT, POST_OVERSTATED),
    "ping": SHARED + post(frame(PING, 2)),
    "share_again": SHARED + SHARED + post(VSAN_COUNT),
    "share_in_memory": SHARED + post(frame(SHARE, 2)),
    "delayed": SHARED + post(MAKE_FAULT) + post(VSAN_COUNT) + post(VSAN_COUNT, POST_ASLEEP),
    "event": SHARED + step(SOCKET, frame(SUBSCRIBE, 2, words(145))) + post(NEW_VSAN),
    "blank": SHARED + post(OLD_VSAN, blank_lines=ALL_LINES),
    "blank_but_for_the_header": SHARED + post(OLD_VSAN, blank_lines=ALL_LINES - 1),
    "blank_here_and_there": SHARED + post(OLD_VSAN, blank_lines=0x5555555555555554),
    "blank_beyond_its_end": SHARED + post(VSAN_COUNT, blank_lines=ALL_LINES),
    "deaf": SHARED + step(DEAF) + step(SOCKET, VSAN_COUNT * 20) + post(VSAN_COUNT),
    "scribbled": SHARED + step(SCRIBBLE) + post(VSAN_COUNT) + step(SOCKET, frame(KNOCK, 0)),
}

seed_files.write(SEEDS)
