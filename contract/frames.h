/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The frames of the reference message service, spoken over one Unix stream socket,
 * MTS_SOCKET_NAME, in the switch's run directory.
 *
 * Every word is big-endian, whatever the machine: a 32-bit agent may talk to a
 * 64-bit daemon. Both sides send frames:
 *
 *   byte  0  magic         MTS_WIRE_MAGIC ("MTS1"; the digit is the version)
 *         4  type          enum mts_frame_type
 *         8  correlation   chosen by the requester, repeated in the answer
 *        12  body length   0 to MTS_WIRE_MAX_BODY
 *        16  body
 *
 * A side that receives anything else closes the connection: there is no way to
 * find the next frame again.
 *
 * Bodies:
 *
 *   REQUEST    byte  0  service       which manager
 *                    4  opcode
 *                    8  kind
 *                   12  length         as the caller gave it, also without payload
 *                   16  session
 *                   20  payload bytes  0, or equal to length
 *                   24  user bytes     0 when there is no user; at most MTS_WIRE_MAX_USER
 *                   28  the payload, then the user name without a NUL
 *
 *   REPLY      byte  0  status
 *                    4  1 when data follows (possibly 0 bytes of it), else 0
 *                    8  the data, in the layout that the opcode defines
 *
 *   SUBSCRIBE  any number of event classes, 4 bytes each; replaces the connection's
 *              former subscription. Answered by an empty PONG.
 *
 *   EVENT      byte  0  event class
 *                    4  the payload. Correlation 0.
 *
 *   PING       empty; answered by a PONG of the same correlation, in turn with the
 *              requests of the connection
 *   PONG       empty
 *
 *   SHARE      empty; asks for memory to be shared, a faster way for requests and
 *              replies (mts_shared.h). Replaces the connection's former one. Answered by
 *              SHARED, or by a PONG when the switch gives none.
 *   SHARED     empty; the memory's descriptor comes with its bytes (SCM_RIGHTS)
 *   KNOCK      empty, correlation 0, either way: there is something in the memory. Not
 *              answered.
 */
#ifndef CONTRACT_FRAMES_H
#define CONTRACT_FRAMES_H

#include <stddef.h>
#include <stdint.h>

#include "big_endian.h"

#define MTS_WIRE_MAGIC 0x4d545331u
#define MTS_WIRE_MAX_BODY 131072u
#define MTS_WIRE_MAX_PAYLOAD 65536u
#define MTS_WIRE_MAX_USER 256u

/* Bytes in front of what has no fixed length: a frame's body, a request's payload, a
 * reply's data, an event's payload. */
#define MTS_WIRE_HEADER 16u
#define MTS_WIRE_REQUEST_FIXED 28u
#define MTS_WIRE_REPLY_FIXED 8u
#define MTS_WIRE_EVENT_FIXED 4u

/* One unit of a request's wait class, in milliseconds. */
#define MTS_WIRE_WAIT_UNIT_MS 250

enum mts_frame_type {
    MTS_FRAME_REQUEST = 1,
    MTS_FRAME_REPLY = 2,
    MTS_FRAME_SUBSCRIBE = 3,
    MTS_FRAME_EVENT = 4,
    MTS_FRAME_PING = 5,
    MTS_FRAME_PONG = 6,
    MTS_FRAME_SHARE = 7,
    MTS_FRAME_SHARED = 8,
    MTS_FRAME_KNOCK = 9
};

/* A frame's header, without its magic. */
struct mts_frame_header {
    uint32_t type; /* an mts_frame_type */
    uint32_t correlation;
    uint32_t body_length; /* bytes, at most MTS_WIRE_MAX_BODY */
};

/* What bytes can be the front of. Either side refuses what is not for it besides. */
enum mts_frame_front {
    MTS_FRONT_WHOLE,     /* a header is there, as described by mts_frame_header */
    MTS_FRONT_MORE,      /* more of a header has to come */
    MTS_FRONT_NO_FRAME,  /* the magic is wrong */
    MTS_FRONT_BAD_TYPE,  /* there is no such type */
    MTS_FRONT_BAD_LENGTH /* the body would be too long */
};

/* Writes a header into the MTS_WIRE_HEADER bytes at `bytes`. */
static inline void mts_frame_write_header(uint8_t *bytes, struct mts_frame_header header) {
    write_be32(bytes, MTS_WIRE_MAGIC);
    write_be32(bytes + 4, header.type);
    write_be32(bytes + 8, header.correlation);
    write_be32(bytes + 12, header.body_length);
}

/* Looks for a header at the front of `size` bytes. What is wrong is recognised from its
 * first wrong byte, or wrong word, not only when a whole header has come; a type that has
 * come is in the header then, 0 before. */
static inline enum mts_frame_front mts_frame_read_header(const uint8_t *bytes, size_t size,
                                                         struct mts_frame_header *header) {
    for (size_t i = 0; i < 4 && i < size; ++i) {
        if (bytes[i] != ((MTS_WIRE_MAGIC >> (24 - 8 * i)) & 0xffu)) {
            return MTS_FRONT_NO_FRAME;
        }
    }
    header->type = size < 8 ? 0 : read_be32(bytes + 4);
    if (size >= 8 && (header->type < MTS_FRAME_REQUEST || header->type > MTS_FRAME_KNOCK)) {
        return MTS_FRONT_BAD_TYPE;
    }
    if (size < MTS_WIRE_HEADER) {
        return MTS_FRONT_MORE;
    }
    header->correlation = read_be32(bytes + 8);
    header->body_length = read_be32(bytes + 12);
    return header->body_length > MTS_WIRE_MAX_BODY ? MTS_FRONT_BAD_LENGTH : MTS_FRONT_WHOLE;
}

#endif
