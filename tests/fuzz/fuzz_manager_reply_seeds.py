# SPDX-License-Identifier: Apache-2.0
"""Seeds of fuzz_manager_reply: writes one file for each exchange worth starting from
into the folder named on the command line. The layout is told in the target's source."""

import seed_files

SCALAR_COUNT, SCALAR_LAST_CHANGE, COLUMN_NAME, COLUMN_INTEROP, SCALAR_TIMER = 0, 1, 2, 9, 16
IF_VSAN, IF_DENY_LIST, SUMMARY, FORCE_FLAG, TIMER = 13, 14, 15, 23, 24

GET, RESTRICTED, SAME_PDU, TDX, BARRED = 1, 2, 4, 8, 0x80
AT_COLUMN, AT_INDEX, AT_INDEX_AND_MORE, AT_HUGE_INDEX, AT_ROOT, AT_LONGEST, AT_ZERO = (form << 4 for form in range(7))


def read(row, flags, index=0):
    return bytes([row, flags]) + index.to_bytes(2, "big")


def raw(data, status=0):
    return bytes([status]) + len(data).to_bytes(2, "big") + data


def record(vsan, name_length=8, interop=100, status=0):
    return bytes([8 | status]) + vsan.to_bytes(2, "big") + bytes([name_length, interop])


def cut_record(vsan, length):
    return bytes([16]) + vsan.to_bytes(2, "big") + length.to_bytes(2, "big")


def scalar(first, second):
    return bytes([24]) + first.to_bytes(4, "big") + second.to_bytes(4, "big")


def table_record(form, first, second):
    return bytes([0x80 | form << 3]) + first.to_bytes(2, "big") + second.to_bytes(2, "big")


def interface(if_index, vsan):
    return table_record(0, if_index, vsan)


def timer(vsan, value):
    return table_record(1, vsan, value)


def pair(vsan, if_index, how=0):
    return bytes([how]) + vsan.to_bytes(2, "big") + if_index.to_bytes(2, "big")


NO_DATA, FAILED = bytes([4]), bytes([7])
NO_ATTRIBUTE, TDX_REFUSED = bytes([0x27]), bytes([0x47])

SEEDS = {
    "get_row": read(COLUMN_NAME, GET | AT_INDEX, 10) + record(10),
    "get_row_unterminated_name": read(COLUMN_NAME, GET | AT_INDEX, 10) + record(10, name_length=36),
    "get_two_columns": read(COLUMN_INTEROP, GET | AT_INDEX, 10)
    + record(10)
    + read(COLUMN_NAME, GET | SAME_PDU | AT_INDEX, 10),
    "walk": b"".join(read(COLUMN_NAME, AT_INDEX, at) + record(at + 1) for at in range(4)),
    "walk_from_root": read(COLUMN_NAME, AT_ROOT) + record(1),
    "walk_longest_name": read(COLUMN_NAME, AT_LONGEST, 5) + record(6),
    "walk_behind_table": read(COLUMN_NAME, AT_INDEX, 4097) + read(COLUMN_NAME, AT_HUGE_INDEX, 65535),
    "restricted_get": read(COLUMN_NAME, GET | RESTRICTED | AT_INDEX, 10) + record(10),
    "restricted_skip": read(COLUMN_NAME, RESTRICTED) + record(5) + record(40) + record(100),
    "restricted_stuck": read(COLUMN_NAME, RESTRICTED) + record(5) * 4,
    "restricted_no_data": read(COLUMN_NAME, RESTRICTED) + NO_DATA * 4,
    "no_data": read(COLUMN_NAME, GET | AT_INDEX, 10) + NO_DATA,
    "failed": read(COLUMN_NAME, GET | AT_INDEX, 10) + FAILED,
    "failed_with_data": read(COLUMN_NAME, GET | AT_INDEX, 10) + record(10, status=3),
    "cut_record": read(COLUMN_NAME, GET | AT_INDEX, 10) + cut_record(10, 2627),
    "nearly_cut_record": read(COLUMN_NAME, GET | AT_INDEX, 10) + cut_record(10, 2628),
    "count": read(SCALAR_COUNT, GET | AT_ZERO) + scalar(5, 0),
    "count_short": read(SCALAR_COUNT, GET | AT_ZERO) + raw(b"abc"),
    "last_change": read(SCALAR_LAST_CHANGE, AT_COLUMN) + scalar(1700000000, 999999),
    "timer": read(SCALAR_TIMER, GET | TDX | AT_ZERO) + scalar(8, 10000),
    "interface": read(IF_VSAN, GET | AT_INDEX, 5) + interface(5, 20),
    "interface_walk": b"".join(read(IF_DENY_LIST, AT_INDEX, at) + interface(at + 1, 20) for at in range(4)),
    "interface_barred": read(IF_VSAN, GET | RESTRICTED | BARRED | AT_INDEX, 1) + interface(1, 20),
    "interface_largest": read(IF_VSAN, AT_HUGE_INDEX, 65535),
    "interface_no_data": read(IF_VSAN, GET | AT_INDEX, 5) + NO_DATA,
    "pair": read(SUMMARY, GET | AT_INDEX_AND_MORE, 20) + pair(20, 7),
    "pair_walk": b"".join(read(SUMMARY, AT_INDEX, at) + pair(at + 1, 7, 8) for at in range(4)),
    "pair_restricted": read(SUMMARY, RESTRICTED) + pair(5, 1) + pair(40, 2) + pair(100, 3),
    "pair_backwards": read(SUMMARY, RESTRICTED) + pair(50, 1) + pair(5, 1) * 4,
    "pair_huge": read(SUMMARY, RESTRICTED) + pair(65535, 65535, 4) * 2,
    "vsan_timer": read(TIMER, GET | AT_INDEX, 10) + timer(10, 10000),
    "vsan_timer_walk": b"".join(read(TIMER, AT_INDEX, at) + record(at + 1) + timer(at + 1, 9) for at in range(4)),
    "vsan_timer_skip": read(TIMER, GET | TDX | AT_INDEX, 10) + NO_ATTRIBUTE + record(20) + NO_ATTRIBUTE + record(30)
    + timer(30, 9),
    "vsan_timer_skip_stuck": read(TIMER, GET | TDX | AT_INDEX, 10) + NO_ATTRIBUTE + record(10) * 3,
    "vsan_timer_refused": read(TIMER, GET | TDX | AT_INDEX, 10) + TDX_REFUSED,
    "vsan_timer_restricted": read(TIMER, RESTRICTED) + record(5) + timer(5, 9) + record(30) + timer(30, 9),
    "force_flag": read(FORCE_FLAG, GET | AT_INDEX, 10) + timer(10, 0),
    "force_flag_beyond": read(FORCE_FLAG, GET | AT_INDEX, 10) + timer(4096, 0),
    "timer_short": read(SCALAR_TIMER, GET | AT_ZERO) + raw(b"1234567"),
}

seed_files.write(SEEDS)
