"""Seeds of fuzz_vsan_event: payloads of VSAN events, written into the folder named on
the command line."""

import os
import struct
import sys

SEEDS = {
    "created": (0, 7, 1, 2, 19, 1, 2, 1, 1, 2),
    "without_attributes": (1, 4095, 0, 0),
}

for name, values in SEEDS.items():
    with open(os.path.join(sys.argv[1], name), "wb") as file:
        file.write(struct.pack(">%dI" % len(values), *values))
