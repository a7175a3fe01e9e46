/*
 * The protocol of the reference message service, spoken over one Unix stream
 * socket, `mts.sock`, in the switch's run directory.
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
#ifndef MTS_WIRE_H
#define MTS_WIRE_H

#include <stdint.h>

#define MTS_WIRE_MAGIC 0x4d545331u
#define MTS_WIRE_HEADER 16u
#define MTS_WIRE_MAX_BODY 131072u
#define MTS_WIRE_MAX_PAYLOAD 65536u
#define MTS_WIRE_MAX_USER 256u
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

/* Where the socket is: the environment variable below names the run directory;
 * without it, the default. */
#define MTS_RUN_DIR_VARIABLE "VSWITCH_RUN_DIR"
#define MTS_DEFAULT_RUN_DIR "/run/vswitch"
#define MTS_SOCKET_NAME "mts.sock"

/*
 * Services of the reference platform's own libraries, beside the managers' public
 * numbers of mts.h. Kind is 1 (GET) unless said otherwise.
 *
 * MTS_SERVICE_SWITCH, opcode MTS_OP_SWITCH_COMMAND: what the operator's tool says, kind 1
 * for commands that only look and 3 for those that change something.
 *   payload  JSON text: {"command": "vsan.show", ...}
 *   reply    JSON text; beside a refusal's status {"error": "a sentence", ...}
 *
 * MTS_SERVICE_ROLES, opcode MTS_OP_ROLE_OF_USER: what a user may touch.
 *   payload  the user name, without a NUL, 0 to MTS_WIRE_MAX_USER bytes
 *   reply    byte   0  1 when the user is restricted, else 0
 *                   4  bitmap of the permitted VSANs, 512 bytes: VSAN v is bit
 *                      0x80 >> (v % 8) of byte v / 8
 *                 516  number n of permitted interface ranges, at most
 *                      MTS_ROLE_MAX_RANGES
 *                 520  n times: first ifIndex, last ifIndex; ascending, each first
 *                      above the last before it
 *   The bitmap and the ranges are empty for an unrestricted user. A reply with more
 *   ranges, or others, is refused, not cut: a role that is known in part only would be
 *   a different role.
 *
 * MTS_SERVICE_TDX, opcode MTS_OP_TDX_STATE: the distribution service's settings.
 *   payload  the feature's name, without a NUL
 *   reply    byte   0  1 when the service distributes the feature, else 0
 *                   4  1 when the feature is in show-run mode, else 0
 *
 * MTS_SERVICE_SWITCH, opcode MTS_OP_SWITCH_COUNTERS: what the daemon has served.
 *   no payload
 *   reply    JSON text: {"requests": [{"service": 15, "opcode": 149, "kind": 1,
 *            "count": 7}, ...], "connections": 2, "dropped_connections": 0,
 *            "subscriptions": 2}; the last is the number of event classes subscribed
 *            to, over all connections
 *   Requests to MTS_SERVICE_SWITCH itself are not counted.
 */
#define MTS_SERVICE_SWITCH 1u
#define MTS_SERVICE_ROLES 3u
#define MTS_SERVICE_TDX 66u

#define MTS_OP_SWITCH_COUNTERS 9001u
#define MTS_OP_SWITCH_COMMAND 9002u
#define MTS_OP_ROLE_OF_USER 9101u
#define MTS_OP_TDX_STATE 9201u

/* More ranges than any role needs. */
#define MTS_ROLE_MAX_RANGES 4096u

/* MANAGER_SAP_PORT, the port manager's membership query: kind 1 that very pair, kind
 * 2 the pair that follows it.
 *   payload and reply   byte 0 VSAN number, 4 ifIndex, 8 1 when static, else 0 */
#define MTS_OP_PORT_MEMBERSHIP 1283u

#endif
