"""Seeds of fuzz_mts_client: answers of a switch, in the memory and over the socket, written
into the folder named on the command line."""

import struct

import seed_files

MAGIC = 0x4D545331
REPLY, PONG, KNOCK = 2, 6, 9
IN_MEMORY, ELSEWHERE, OVERSTATED = b"\0", b"\1", b"\2"


def words(*values):
    return struct.pack(">%dI" % len(values), *values)


def frame(kind, correlation, body=b""):
    return words(MAGIC, kind, correlation, len(body)) + body


# Correlation 0 becomes that of the request.
GOOD = frame(REPLY, 0, words(0, 1, 10, 20))

SEEDS = {
    "reply": IN_MEMORY + GOOD,
    "refusal": IN_MEMORY + frame(REPLY, 0, words(0x40190001, 0)),
    "nothing": IN_MEMORY,
    "overstated": OVERSTATED + GOOD,
    "reply_and_rest": IN_MEMORY + GOOD + b"rest",
    "other_correlation": IN_MEMORY + frame(REPLY, 7, words(0, 0)),
    "elsewhere": ELSEWHERE + GOOD,
    "elsewhere_behind_knock_and_pong": ELSEWHERE + frame(KNOCK, 0) + frame(PONG, 1) + GOOD,
    "elsewhere_never": ELSEWHERE,
}

seed_files.write(SEEDS)
