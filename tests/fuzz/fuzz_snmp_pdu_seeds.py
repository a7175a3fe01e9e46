# SPDX-License-Identifier: Apache-2.0
"""Seeds of fuzz_snmp_pdu: writes one file for each conversation worth starting from into
the folder named on the command line. The layout is told in the target's source."""

import seed_files

GET, GETNEXT, GETBULK, SET = range(4)
V1 = 4
OPERATOR, ALICE, NOBODY, NAMELESS = (user << 3 for user in range(4))
REFUSED, UNANSWERED, LOST, CUT = (how << 6 for how in range(4))

# Objects by their position in the registration.
COUNT, LAST_CHANGE, NAME, MEDIA, ADMIN_STATE, MTU, LOAD_BALANCING, OPER_STATE, ROW_STATUS = range(9)
INTEROP, INORDER, DROP_LATENCY, IF_COUNT, IF_VSAN, DENY_LIST, SUMMARY = range(9, 16)
RATOV, EDTOV, FSTOV, DSTOV, NETWORK_LATENCY, SWITCH_LATENCY, FC_INORDER = range(16, 23)
FORCE_FLAG, VSAN_RATOV, VSAN_EDTOV, VSAN_DSTOV, VSAN_FSTOV = range(23, 28)
ROOT, BEFORE, BEHIND, NO_COLUMN = range(28, 32)

AT_INDEX, AT_OBJECT, AT_TWO, AT_HUGE, AT_ZERO, AT_LONGEST, AT_PORT, AT_PAIR = range(8)
COLUMNS = (NAME, MEDIA, ADMIN_STATE, MTU, LOAD_BALANCING, OPER_STATE, ROW_STATUS, INTEROP)

CREATE_AND_GO, DESTROY = 4, 6

TDX, SHOW_RUN = 1, 2


def message(command, *varbinds, failing=0, repetitions=0, damage=()):
    head = [command | len(varbinds) - 1 << 5, failing, repetitions, 248 + len(damage) if damage else 0]
    flips = b"".join(at.to_bytes(2, "big") + bytes([bits]) for at, bits in damage)
    return bytes(head) + b"".join(varbinds) + flips


def at(which, index=0, form=AT_INDEX, second=b"", kind=0):
    return bytes([which, form | kind << 3]) + index.to_bytes(2, "big") + second


def number(which, index, value, form=AT_INDEX):
    return at(which, index, form) + (value & 0xFFFF).to_bytes(2, "big")


def text(which, index, value):
    return at(which, index) + bytes([len(value)]) + value


def typed(which, index, kind, value):
    return at(which, index, kind=16 + kind) + bytes([len(value)]) + value


def port(which, index, value):
    return number(which, index, value, AT_PORT)


def conversation(*messages, mode=0):
    return bytes([mode]) + b"".join(messages)


def walk(user, which, steps, form=AT_INDEX):
    return [message(GETNEXT | user, at(which, step, form)) for step in steps]


CREATE = message(SET, text(NAME, 50, b"new"), number(ROW_STATUS, 50, CREATE_AND_GO))

SEEDS = {
    "get_row": conversation(message(GET, *(at(column, 10) for column in COLUMNS))),
    "get_scalars": conversation(
        message(GET, *(at(which, form=AT_ZERO) for which in (COUNT, LAST_CHANGE, IF_COUNT, RATOV, NETWORK_LATENCY)))
    ),
    "get_v1_missing": conversation(message(GET | V1, at(NAME, 11), at(NAME, 10))),
    "get_odd_names": conversation(
        message(
            GET,
            at(NAME, 10, AT_TWO, b"\0\7"),
            at(NAME, 10, AT_OBJECT),
            at(NAME, 65535, AT_HUGE),
            at(NAME, 1, AT_LONGEST),
            at(ROOT),
            at(NO_COLUMN, 10),
        )
    ),
    "walk_names": conversation(*walk(OPERATOR, NAME, (0, 1, 2, 10, 20, 300, 4094, 4095))),
    "walk_all": conversation(*(message(GETNEXT, at(which, form=AT_OBJECT)) for which in range(32))),
    "walk_v1": conversation(message(GETNEXT | V1, at(NAME, 4095)), message(GETNEXT | V1, at(BEHIND))),
    "walk_restricted": conversation(
        *walk(ALICE, NAME, (0, 10, 20, 4095)), *walk(ALICE, IF_VSAN, (0, 5), AT_PORT), *walk(NOBODY, NAME, (0,))
    ),
    "walk_pairs": conversation(
        message(GETNEXT, at(SUMMARY, form=AT_OBJECT), at(SUMMARY, 20, AT_PAIR, b"\0\0")),
        message(GETNEXT | ALICE, at(SUMMARY, form=AT_OBJECT), at(SUMMARY, 20)),
    ),
    "walk_timers": conversation(*walk(OPERATOR, VSAN_RATOV, (0, 1, 10)), mode=TDX),
    "timer_without_a_value": conversation(
        message(GET, at(VSAN_DSTOV, 10), at(VSAN_RATOV, 10)), message(SET, number(VSAN_DSTOV, 10, 6000)), mode=TDX
    ),
    "walk_timers_restricted": conversation(*walk(ALICE, VSAN_EDTOV, (0, 10, 20)), *walk(ALICE, FORCE_FLAG, (0, 1))),
    "bulk": conversation(
        message(
            GETBULK, at(COUNT, form=AT_OBJECT), at(NAME, form=AT_OBJECT), at(ROW_STATUS, 2), repetitions=1 | 10 << 3
        )
    ),
    "bulk_to_the_end": conversation(message(GETBULK, at(VSAN_FSTOV, 300), repetitions=31 << 3)),
    "bulk_ends_at_once": conversation(message(GETBULK, at(COUNT), at(VSAN_FSTOV, 4095), repetitions=1 | 4 << 3)),
    "bulk_restricted": conversation(
        message(GETBULK | ALICE, at(NAME, form=AT_OBJECT), at(SUMMARY, form=AT_OBJECT), repetitions=8 << 3)
    ),
    "bulk_switch_gone": conversation(message(GETBULK, at(NAME), at(MTU), failing=UNANSWERED | 3, repetitions=8 << 3)),
    "create": conversation(CREATE, message(GET, at(NAME, 50), at(ROW_STATUS, 50))),
    "create_and_move": conversation(CREATE, message(SET, port(IF_VSAN, 0, 50), port(IF_VSAN, 1, 50))),
    "create_and_destroy": conversation(CREATE, message(SET, number(ROW_STATUS, 50, DESTROY))),
    "create_twice": conversation(CREATE, CREATE),
    "create_refused": conversation(message(SET, number(ROW_STATUS, 51, CREATE_AND_GO), failing=REFUSED | 3)),
    "create_lost": conversation(message(SET, number(ROW_STATUS, 51, CREATE_AND_GO), failing=LOST | 2)),
    "create_not_mine": conversation(
        message(SET | ALICE, number(ROW_STATUS, 51, CREATE_AND_GO)),
        message(SET | ALICE, number(ROW_STATUS, 10, DESTROY)),
    ),
    "change_columns": conversation(
        message(
            SET,
            text(NAME, 10, b"renamed"),
            number(ADMIN_STATE, 10, 2),
            number(LOAD_BALANCING, 10, 1),
            number(INTEROP, 10, 2),
            number(INORDER, 10, 1),
            number(DROP_LATENCY, 10, 1000),
        )
    ),
    "change_several_rows": conversation(
        message(SET, text(NAME, 10, b"a"), text(NAME, 20, b"b"), text(NAME, 300, b"a"), text(NAME, 11, b"c"))
    ),
    "change_and_undo": conversation(
        message(SET, text(NAME, 10, b"x"), number(ADMIN_STATE, 10, 2), port(IF_VSAN, 0, 999)),
        message(SET, text(NAME, 10, b"x"), number(ROW_STATUS, 20, DESTROY), failing=REFUSED | 5),
    ),
    "change_cut": conversation(message(SET, text(NAME, 10, b"x"), failing=CUT | 1), mode=TDX),
    "change_not_mine": conversation(
        message(SET | ALICE, text(NAME, 2, b"x")),
        message(SET | ALICE, port(IF_VSAN, 1, 10)),
        message(SET | ALICE, number(RATOV, 0, 11000, AT_ZERO)),
    ),
    "change_v1": conversation(message(SET | V1, number(ADMIN_STATE, 300, 1), number(ADMIN_STATE, 300, 7))),
    "change_read_only": conversation(message(SET, number(MTU, 10, 2000)), message(SET, number(OPER_STATE, 10, 1))),
    "wrong_types": conversation(
        *(message(SET, typed(NAME, 10, kind, b"\1\2")) for kind in range(10)),
        *(message(SET, typed(ROW_STATUS, 10, kind, b"\4")) for kind in range(10)),
    ),
    "wrong_lengths": conversation(
        message(SET, typed(ADMIN_STATE, 10, 0, b"")),
        message(SET, typed(ADMIN_STATE, 10, 0, b"\1" * 9)),
        message(SET, text(NAME, 10, b"n" * 40)),
    ),
    "timers": conversation(
        message(
            SET,
            text(FORCE_FLAG, 10, b"\xe0"),
            number(VSAN_RATOV, 10, 12000),
            number(VSAN_EDTOV, 10, 3000),
            number(VSAN_DSTOV, 10, 6000),
        ),
        message(GET, at(FORCE_FLAG, 10), at(VSAN_RATOV, 10)),
    ),
    "switch_wide": conversation(
        message(
            SET,
            *(number(which, 0, 4000, AT_ZERO) for which in (RATOV, EDTOV, DSTOV, NETWORK_LATENCY, SWITCH_LATENCY)),
            number(FC_INORDER, 0, 1, AT_ZERO),
        ),
        mode=TDX | SHOW_RUN,
    ),
    "damaged": conversation(
        message(GET, at(NAME, 10), damage=((1, 1),)),
        message(GETBULK, at(NAME, 10), damage=((20, 0x80), (25, 0xFF)), repetitions=16),
        message(SET, text(NAME, 10, b"x"), damage=((30, 4),)),
    ),
}

seed_files.write(SEEDS)
