# SPDX-License-Identifier: Apache-2.0
"""Seeds of fuzz_mts_client: answers of a switch, in the memory and over the socket, written
into the folder named on the command line."""

import seed_files
from wire_frames import ALL_LINES, KNOCK, PONG, REPLY, blanks, frame, words


def answer(how, blank_lines=0):
    return bytes([how]) + blanks(blank_lines)


IN_MEMORY, ELSEWHERE, OVERSTATED, ELSEWHERE_WITH_DESCRIPTOR = (answer(how) for how in range(4))

# Correlation 0 becomes that of the request.
GOOD = frame(REPLY, 0, words(0, 1, 10, 20))
LONG = frame(REPLY, 0, words(0, 1) + b"x" * 2640)

SEEDS = {
    "reply": IN_MEMORY + GOOD,
    "refusal": IN_MEMORY + frame(REPLY, 0, words(0x40190001, 0)),
    "nothing": IN_MEMORY,
    "overstated": OVERSTATED + GOOD,
    "reply_and_rest": IN_MEMORY + GOOD + b"rest",
    "blank": answer(0, ALL_LINES) + LONG,
    "blank_but_for_the_header": answer(0, ALL_LINES - 1) + LONG,
    "blank_here_and_there": answer(0, 0x5555555555555554) + LONG,
    "blank_beyond_its_end": answer(0, ALL_LINES) + GOOD,
    "other_correlation": IN_MEMORY + frame(REPLY, 7, words(0, 0)),
    "elsewhere": ELSEWHERE + GOOD,
    "elsewhere_behind_knock_and_pong": ELSEWHERE + frame(KNOCK, 0) + frame(PONG, 1) + GOOD,
    "elsewhere_with_descriptor": ELSEWHERE_WITH_DESCRIPTOR + GOOD,
    "elsewhere_never": ELSEWHERE,
}

seed_files.write(SEEDS)
