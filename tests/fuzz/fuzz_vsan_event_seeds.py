# SPDX-License-Identifier: Apache-2.0
"""Seeds of fuzz_vsan_event: payloads of VSAN events, written into the folder named on
the command line."""

import struct

import seed_files

SEEDS = {
    "created": (0, 7, 1, 2, 19, 1, 2, 1, 1, 2),
    "without_attributes": (1, 4095, 0, 0),
}

seed_files.write({name: struct.pack(">%dI" % len(values), *values) for name, values in SEEDS.items()})
