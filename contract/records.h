/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The records of requests and replies: sizes in bytes, and where each field lies. Every
 * word is big-endian, but for one.
 */
#ifndef CONTRACT_RECORDS_H
#define CONTRACT_RECORDS_H

#include <stddef.h>
#include <stdint.h>

#include "limits.h"

/*
 * MTS_OP_VSAN: a block, both ways. Around the record it is zero; what a record has
 * behind its fields the switch keeps and hands back.
 */
#define VSAN_BLOCK_SIZE 2632u
#define VSAN_RECORD_AT 520u
#define VSAN_RECORD_SIZE 2108u
enum vsan_record_at {
    VSAN_RECORD_NUMBER = 0,
    VSAN_RECORD_MEDIA = 4,
    VSAN_RECORD_ADMIN_STATE = 8,
    VSAN_RECORD_MTU = 12,
    VSAN_RECORD_INORDER_DELIVERY = 16,
    VSAN_RECORD_INTEROP = 20,
    VSAN_RECORD_LOAD_BALANCING = 24,
    VSAN_RECORD_ROW_STATUS = 28,
    VSAN_RECORD_OPER_STATE = 32,
    VSAN_RECORD_NAME = 36, /* VSAN_NAME_FIELD bytes, NUL-terminated */
    VSAN_RECORD_DROP_LATENCY = 72,
    VSAN_RECORD_REST = 76 /* VSAN_REST_SIZE bytes */
};
#define VSAN_NAME_FIELD 36u
#define VSAN_REST_SIZE 2032u

/* MTS_OP_INTERFACE, both ways. */
#define INTERFACE_RECORD_SIZE 16u
enum interface_record_at {
    INTERFACE_RECORD_IF_INDEX = 0,
    INTERFACE_RECORD_VSAN = 4,
    INTERFACE_RECORD_DENY_LIST = 8,
    INTERFACE_RECORD_ROW_STATUS = 12 /* in the byte order of the machine: neither side of
                                      * this record converts that word */
};

/* MTS_OP_TIMER, both ways; packed. */
#define TIMER_RECORD_SIZE 15u
enum timer_record_at {
    TIMER_RECORD_KEY = 0, /* a timer's attribute key; 0 asks whether the VSAN is there */
    TIMER_RECORD_VALUE = 4,
    TIMER_RECORD_PER_VSAN = 8, /* one byte: 1 when it is about one VSAN, 0 when switch-wide */
    TIMER_RECORD_FORCE = 9,    /* one byte: 1 when a change is forced */
    TIMER_RECORD_VSAN = 10,    /* 0 when switch-wide */
    TIMER_RECORD_TAIL = 14     /* one byte, handed back unchanged */
};

/* MTS_OP_LATENCY, both ways: behind the two words a third, which is 0. */
#define LATENCY_RECORD_SIZE 12u
enum latency_record_at {
    LATENCY_RECORD_KEY = 0, /* a latency's attribute key */
    LATENCY_RECORD_VALUE = 4
};

/* MTS_OP_PORT_MEMBERSHIP, both ways: kind GET that very pair, GET_NEXT the pair that
 * follows it. */
#define MEMBERSHIP_RECORD_SIZE 12u
enum membership_record_at {
    MEMBERSHIP_RECORD_VSAN = 0,
    MEMBERSHIP_RECORD_IF_INDEX = 4,
    MEMBERSHIP_RECORD_STATIC = 8 /* 1 when the membership is configured, else 0 */
};

/* One word: MTS_OP_VSAN_COUNT, MTS_OP_INTERFACE_COUNT, MTS_OP_INORDER_DELIVERY and
 * MTS_OP_STATUS_EVENTS (TruthValues). */
#define WORD_RECORD_SIZE 4u

/* MTS_OP_LAST_CHANGE: seconds since 1970, then microseconds. */
#define LAST_CHANGE_REPLY_SIZE 8u

/* MTS_OP_SWITCH_NAME: the switch's world wide name, never all zero. */
#define SWITCH_NAME_REPLY_SIZE 8u

/*
 * MTS_OP_ROLE_OF_USER. Bitmap and ranges are empty for an unrestricted user. A reply with
 * more than ROLE_MAX_RANGES ranges, or with others, is refused, not cut: a role that is
 * known in part only would be a different role.
 */
#define VSAN_BITMAP_SIZE 512u
enum role_reply_at {
    ROLE_REPLY_RESTRICTED = 0, /* 1 when the user is restricted, else 0 */
    ROLE_REPLY_VSANS = 4,      /* bitmap of the permitted VSANs, VSAN_BITMAP_SIZE bytes */
    ROLE_REPLY_RANGE_COUNT = 516,
    ROLE_REPLY_RANGES = 520 /* first and last ifIndex of each range of permitted interfaces;
                             * ascending, each first above the last before it */
};
#define ROLE_RANGE_SIZE 8u

/* MTS_OP_TDX_STATE: two words, 1 or 0. */
#define TDX_STATE_REPLY_SIZE 8u
enum tdx_state_reply_at {
    TDX_STATE_ENABLED = 0, /* the service distributes the feature */
    TDX_STATE_SHOW_RUN = 4 /* the feature is in show-run mode */
};

/* Whether a bitmap of `size` bytes has a VSAN, which may be any number. */
static inline int vsan_bitmap_has(const uint8_t *bitmap, size_t size, uint32_t vsan) {
    return vsan / 8 < size && (bitmap[vsan / 8] & (0x80u >> (vsan % 8))) != 0;
}

/* Adds a VSAN for which the bitmap has room. */
static inline void vsan_bitmap_add(uint8_t *bitmap, uint32_t vsan) {
    bitmap[vsan / 8] = (uint8_t)(bitmap[vsan / 8] | (0x80u >> (vsan % 8)));
}

#endif
