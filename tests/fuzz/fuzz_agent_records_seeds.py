# SPDX-License-Identifier: Apache-2.0
"""Seeds of fuzz_agent_records: a port, and a fault for one object of one user from one network, with a message,
written into the folder named on the command line."""

import struct

import seed_files

PORT_RECORD = struct.pack(">6I 4I 8s I 64s 2I 16Q 2I", 0x1000000, 1, 1, 1, 8000, 1, 1700000000, 5, 1700000000, 6,
                          b"\x20\x01\x02\0\0\0\0\1", 4, b"tape", 1700000000, 0, *(7, 1000) * 8, 1700000100, 250000)
OID = (1, 3, 6, 1)
FAULT_RECORD = struct.pack(">11I 64s 2I 16s I 128I", 1, 3, 1500, 500, 15, 2, 1, 50, 7, 1, 5, b"aaaaa", 4, 24,
                           bytes((192, 0, 2, 0)), len(OID), *OID, *(0,) * 124)
SOCKET_ADDRESS = struct.pack("<H", 2) + struct.pack(">H4s", 40000, bytes((192, 0, 2, 7))) + bytes(24)
NAMES = bytes(arc for arc in OID + (9,) * 124 for _ in (0, 1))
PDU = NAMES + bytes((10, 0, 9, 0, 1, 6, 1, 5))

assert len(PORT_RECORD) == 260 and len(FAULT_RECORD) == 648

seed_files.write({"port": b"\0" + PORT_RECORD, "fault": b"\1" + FAULT_RECORD + SOCKET_ADDRESS + b"\x10" + PDU})
