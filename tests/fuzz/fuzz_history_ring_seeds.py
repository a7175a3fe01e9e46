"""Seeds of fuzz_history_ring: the ring's begin and end and its first records, written
into the folder named on the command line."""

import struct

import seed_files


def record(text):
    padded = text + b"\0" * (-len(text) % 4)
    return struct.pack("=IIqIIII", 32 + len(padded), 1, 2, 0, 0x730000, 100, len(text)) + padded


def ring(begin, *texts):
    records = b"".join(record(text) for text in texts)
    return struct.pack("=II", begin, begin + len(records)) + records


SEEDS = {
    "two_records": ring(0, b"hello", b""),
    "later_round": ring(262144, b"one", b"more"),
}

seed_files.write(SEEDS)
