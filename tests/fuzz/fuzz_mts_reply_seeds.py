# SPDX-License-Identifier: Apache-2.0
"""Seeds of fuzz_mts_reply: frames as a switch sends them, written into the folder named
on the command line."""

import seed_files
from wire_frames import EVENT, PONG, REPLY, frame, words

SEEDS = {
    "reply_and_pong": frame(REPLY, 1, words(0, 1, 10, 20)) + frame(PONG, 2),
    "refusal_without_data": frame(REPLY, 9, words(0x40190001, 0)),
    "event": frame(EVENT, 0, words(145, 0, 7, 1, 0)),
}

seed_files.write(SEEDS)
