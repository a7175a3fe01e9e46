# SPDX-License-Identifier: Apache-2.0
"""Seeds of fuzz_vswitchd_socket: one conversation for each request that the daemon knows."""
import functools
import struct

import seed_files
import wire_frames
from wire_frames import PING, SUBSCRIBE, frame

request = functools.partial(wire_frames.request, 1)


def vsan_block(vsan):
    return bytes(520) + struct.pack(">I", vsan) + bytes(2108)


def vsan_record(vsan, name, state=1):
    words = (vsan, 1, state, 2112, 0, 100, 2, 1, 1)
    return bytes(520) + struct.pack(">9I36sI", *words, name, 0) + bytes(2036)


SEEDS = {
    "interface_get": request(15, 124, 1, struct.pack(">4I", 16777216, 0, 0, 0)),
    "interface_get_next": request(15, 124, 2, struct.pack(">4I", 1, 0, 0, 0)),
    "vsan_count": request(15, 125, 1, length=4),
    "last_change": request(15, 126, 1, length=8),
    "timer": request(15, 127, 1, struct.pack(">IIBBIB", 8, 0, 0, 0, 0, 0)),
    "timer_of_vsan": request(15, 127, 5, struct.pack(">IIBBIB", 8, 0, 1, 0, 10, 0)),
    "interface_count": request(15, 128, 1, length=4),
    "latency": request(15, 136, 1, struct.pack(">3I", 17, 0, 0)),
    "inorder_delivery": request(15, 140, 1, length=4),
    "vsan_get": request(15, 149, 1, vsan_block(10)),
    "vsan_get_next": request(15, 149, 2, vsan_block(0)),
    "vsan_set": request(15, 149, 3, vsan_record(10, b"other", state=2), user=b"alice"),
    "vsan_create": request(15, 149, 3, vsan_record(40, b"VSAN0040")),
    "vsan_delete": request(15, 149, 4, vsan_block(10)),
    "interface_set": request(15, 124, 3, struct.pack(">3I", 16777216, 1, 0) + bytes(4)),
    "timer_set": request(15, 127, 3, struct.pack(">IIBBIB", 8, 20000, 0, 0, 0, 0)),
    "timer_of_vsan_set": request(15, 127, 3, struct.pack(">IIBBIB", 7, 2000, 1, 1, 10, 0)),
    "latency_set": request(15, 136, 3, struct.pack(">3I", 18, 1000, 0)),
    "inorder_delivery_set": request(15, 140, 3, struct.pack(">I", 1)),
    "status_trap": request(15, 8018, 3, struct.pack(">I", 1)),
    "switch_name": request(46, 1282, 1),
    "membership": request(46, 1283, 2, struct.pack(">3I", 1, 0, 0)),
    "port": request(46, 9301, 1, struct.pack(">I", 16777216)),
    "port_next": request(46, 9301, 2, struct.pack(">I", 1)),
    "port_admin_set": request(46, 9301, 3, struct.pack(">3I", 16777216, 1, 2), user=b"alice"),
    "port_traps_set": request(46, 9301, 3, struct.pack(">3I", 16777216, 2, 2)),
    "port_alias_set": request(46, 9301, 3, struct.pack(">2I", 16777216, 3) + "Büro".encode()),
    "system": request(46, 9302, 1),
    "system_set": request(46, 9302, 3, struct.pack(">I", 2) + b"rack 7"),
    "role": request(3, 9101, 1, b"alice"),
    "distribution": request(66, 9201, 1, b"fctimer"),
    "counters": request(1, 9001, 1),
    "subscribe": frame(SUBSCRIBE, 1, struct.pack(">4I", 102, 145, 301, 302)),
    "ping": frame(PING, 1),
}

ALONE = {name: b"\0" + seed for name, seed in SEEDS.items()}
TOGETHER = b"\x07" + b"".join(seed for name, seed in SEEDS.items() if not name.startswith("vsan_"))
seed_files.write(ALONE | {"conversation_in_portions": TOGETHER})
