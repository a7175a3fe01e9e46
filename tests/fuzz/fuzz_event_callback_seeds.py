# SPDX-License-Identifier: Apache-2.0
"""Seeds of fuzz_event_callback: writes one file for each event worth starting from into
the folder named on the command line. The layout is told in the target's source, that of
a VSAN event's payload in the VSAN library's header."""

import seed_files
from wire_frames import words

ADMIN_STATE, OPER_STATE = 1, 19
FAILS, NO_PAYLOAD, NO_EVENT = 0x10, 0x20, 0x40


def event(payload, how=8):
    return bytes([how]) + payload


def vsan_event(vsan, *attributes, condition=0, is_created=0):
    return words(condition, vsan, is_created, len(attributes)) + b"".join(words(*each) for each in attributes)


UP = ((OPER_STATE, 1, 2), (ADMIN_STATE, 1, 1))

SEEDS = {
    "vsan_up": event(vsan_event(7, *UP)),
    "vsan_created": event(vsan_event(4095, *UP, is_created=1)),
    "vsan_condition": event(vsan_event(7, *UP, condition=1)),
    "vsan_without_admin_state": event(vsan_event(7, UP[0])),
    "vsan_without_oper_state": event(vsan_event(7, UP[1])),
    "vsan_without_attributes": event(vsan_event(7)),
    "vsan_count_too_large": event(words(0, 7, 0, 33)),
    "vsan_cut": event(vsan_event(7, *UP)[:-1]),
    "port": event(words(16777216, 0, 20, 0)),
    "port_cut": event(words(16777216, 0, 20)[:-1]),
    "port_query_fails": event(words(16777216, 0, 20, 0), FAILS | 8),
    "port_query_short": event(words(16777216, 0, 20, 0), 7),
    "port_query_empty": event(words(16777216, 0, 20, 0), 0),
    "empty": event(b""),
    "no_payload": event(b"", NO_PAYLOAD | 8),
    "no_event": event(b"", NO_EVENT | 8),
}

seed_files.write(SEEDS)
