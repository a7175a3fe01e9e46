/* SPDX-License-Identifier: Apache-2.0 */
/*
 * What can be asked of whom: the services behind the message socket, their requests and
 * the kinds of these. The words are those of the operator's tool.
 *
 * The managers' requests carry the records of records.h, but for MTS_OP_PORT and MTS_OP_SYSTEM
 * of the port manager, which are described in interfaces.h. The others:
 *
 * MTS_SERVICE_SWITCH, MTS_OP_SWITCH_COMMAND: what the operator's tool says, kind GET for
 * commands that only look and SET for those that change something.
 *   payload  JSON text: {"command": "vsan.show", ...}
 *   reply    JSON text; beside a refusal's status {"error": "a sentence", ...}
 *
 * MTS_SERVICE_SWITCH, MTS_OP_SWITCH_PARCEL: what is too long for a command's payload or its reply. The command
 * upload.begin answers the number of a parcel that other commands take then; where a reply would
 * be too long, it has the number of one to be fetched.
 *   SET: a part of an upload
 *   payload  number, offset: a word each; then the bytes, which follow those that came before
 *   reply    nothing beside the status
 *   GET: a part of a download. It is gone when its end was fetched.
 *   payload  number, offset: a word each
 *   reply    the bytes from there, as many as fit, at least one but at the end
 * Of either the switch has few: STATUS_NO_SUCH_PARCEL says that one had to go.
 *
 * MTS_SERVICE_SWITCH, MTS_OP_SWITCH_COUNTERS, GET: what the daemon has served.
 *   no payload
 *   reply    JSON text: {"requests": [{"service": 15, "opcode": 149, "kind": 1,
 *            "count": 7}, ...], "connections": 2, "dropped_connections": 0,
 *            "subscriptions": 2}; the last is the number of event classes subscribed
 *            to, over all connections
 *   Requests to MTS_SERVICE_SWITCH itself are not counted.
 *
 * MTS_SERVICE_SWITCH, MTS_OP_CLIENT_FAULTS: see client_faults.h.
 *
 * MTS_SERVICE_ROLES, MTS_OP_ROLE_OF_USER, GET: what a user may touch.
 *   payload  the user name, without a NUL, 0 to MTS_WIRE_MAX_USER bytes
 *   reply    the role reply of records.h
 *
 * MTS_SERVICE_TDX, MTS_OP_TDX_STATE, GET: the distribution service's settings.
 *   payload  the feature's name, without a NUL
 *   reply    the distribution reply of records.h
 */
#ifndef CONTRACT_SERVICES_H
#define CONTRACT_SERVICES_H

/* Number, name, word. Of these, the managers' numbers are public (mts.h). */
#define MTS_SERVICES(X)                                                                                                \
    X(15, MTS_SERVICE_VSAN, "vsan")                                                                                    \
    X(46, MTS_SERVICE_PORT, "port")                                                                                    \
    X(3, MTS_SERVICE_ROLES, "roles")                                                                                   \
    X(66, MTS_SERVICE_TDX, "distribution")

/* Number, name, word. MTS_OP_SWITCH_NAME and MTS_OP_PORT_MEMBERSHIP are the port manager's. */
#define MTS_OPCODES(X)                                                                                                 \
    X(149, MTS_OP_VSAN, "vsan")                                                                                        \
    X(125, MTS_OP_VSAN_COUNT, "vsan-count")                                                                            \
    X(126, MTS_OP_LAST_CHANGE, "last-change")                                                                          \
    X(124, MTS_OP_INTERFACE, "interface")                                                                              \
    X(128, MTS_OP_INTERFACE_COUNT, "interface-count")                                                                  \
    X(127, MTS_OP_TIMER, "timer")                                                                                      \
    X(136, MTS_OP_LATENCY, "latency")                                                                                  \
    X(140, MTS_OP_INORDER_DELIVERY, "inorder-delivery")                                                                \
    X(8018, MTS_OP_STATUS_EVENTS, "status-events")                                                                     \
    X(1282, MTS_OP_SWITCH_NAME, "switch-name")                                                                         \
    X(1283, MTS_OP_PORT_MEMBERSHIP, "membership")                                                                      \
    X(9301, MTS_OP_PORT, "port-settings")                                                                              \
    X(9302, MTS_OP_SYSTEM, "system-settings")                                                                          \
    X(9101, MTS_OP_ROLE_OF_USER, "role-of-user")                                                                       \
    X(9201, MTS_OP_TDX_STATE, "distribution-state")

/* Number, name, word. */
#define MTS_KINDS(X)                                                                                                   \
    X(1, MTS_KIND_GET, "get")                                                                                          \
    X(2, MTS_KIND_GET_NEXT, "get-next")                                                                                \
    X(3, MTS_KIND_SET, "set")                                                                                          \
    X(4, MTS_KIND_DELETE, "delete")                                                                                    \
    X(5, MTS_KIND_DISTRIBUTED_GET, "distributed-get")

#define MTS_ENUMERATOR(number, name, word) name = number,
enum mts_service {
    MTS_SERVICE_SWITCH = 1, /* the switch itself: no word, since it has no faults to be set */
    MTS_SERVICES(MTS_ENUMERATOR)
};
enum mts_opcode {
    MTS_OP_SWITCH_COUNTERS = 9001, /* these are the switch's own, too */
    MTS_OP_SWITCH_COMMAND = 9002,
    MTS_OP_SWITCH_PARCEL = 9004,
    MTS_OPCODES(MTS_ENUMERATOR)
};
enum mts_kind { MTS_KINDS(MTS_ENUMERATOR) };
#undef MTS_ENUMERATOR

/* Of a parcel's part, before its bytes. */
enum mts_parcel_at { MTS_PARCEL_NUMBER = 0, MTS_PARCEL_OFFSET = 4, MTS_PARCEL_FIXED = 8 };

/* The distribution service knows one feature: the fabric timers. */
#define MTS_TDX_TIMERS "fctimer"

#endif
