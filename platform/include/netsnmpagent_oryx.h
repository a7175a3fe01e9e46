/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Agent extension library: who asks, what they may see, error details, and
 * notifications. It lives inside the SNMP agent's process, on the agent's thread.
 */
#ifndef PLATFORM_NETSNMPAGENT_ORYX_H
#define PLATFORM_NETSNMPAGENT_ORYX_H

#include <stddef.h>
#include <stdint.h>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include "mts.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Event classes that a callback can be registered for. */
#define EVENT_CLASS_PORT_MEMBERSHIP 102u
#define EVENT_CLASS_VSAN_CONFIG 145u

/*
 * Turns one event into a notification.
 *
 * message      the event, or null
 * trap_oid     out: the notification's OID, room for MAX_OID_LEN arcs
 * trap_length  out: its length in arcs
 * send         out: 1 to send the notification, 0 to drop it
 *
 * Returns the bindings made with build_varbind, which the library releases, or
 * null when nothing is sent. Relied on: the widths that the last two outputs have.
 */
typedef netsnmp_variable_list *(*notification_callback)(const mts_message *message, oid *trap_oid, size_t *trap_length,
                                                        int *send);

/* Subscribes to an event class; at most one callback a class, a second registration
 * replaces it. The module does not look at the result: 0, or nonzero when there is no
 * room. */
int register_for_notification(uint32_t event_class, notification_callback callback);

/* Ends a subscription. Unknown classes are ignored. */
void unregister_for_notification(uint32_t event_class);

/*
 * Appends one binding to a list. `list` is null for the first. The value (`length`
 * bytes of ASN.1 type `type`) and the name (`name_length` arcs) are copied. An INTEGER
 * has 4 bytes, whatever a long has.
 *
 * Returns the head of the list; on failure the list as it was. The caller does not
 * notice: not to send the notification then is for the library to see to.
 */
netsnmp_variable_list *build_varbind(netsnmp_variable_list *list, const void *value, uint8_t type, size_t length,
                                     const oid *name, size_t name_length);

/* The user of the PDU in progress (the community for v1 and v2c), or null outside
 * any PDU. `session` is 0. Owned by the library, valid while the PDU lasts. */
const char *get_snmp_username(int session);

/* The session id of the PDU in progress, 0 outside any PDU. `session` is 0. */
uint32_t get_snmp_sessionid(int session);

/* The number of the PDU in progress. Relied on: another PDU has another one, whatever
 * request ids the clients choose, until the numbers have all been used. A row that was
 * read for one PDU is taken for what the switch says as long as the number is the same.
 * Asked for during PDUs only. */
uint32_t get_pdu_reqid(void);

/* Records a platform status as the reason of the failure about to be returned.
 * `number` says where it comes from: 200 a failed request, 584 a refusal or an
 * exhausted resource. */
void log_set_error(uint32_t code, uint32_t number);

/* A status with its text, as handed to log_snmp_error. Relied on: this layout. */
typedef struct snmp_error_record {
    uint32_t code;
    char text[200]; /* at most 199 characters and the NUL */
} snmp_error_record;

/* Reports an error record to the agent's log. The caller's one record is filled anew
 * for the next report. */
void log_snmp_error(const snmp_error_record *record);

/* Which VSANs a user may touch. `size` is the length of the bitmap in bytes, always
 * 512, set by the caller before use, who also clears the bitmap. The bits belong to the
 * library. */
typedef struct allowed_vsan_list {
    uint32_t size;
    uint8_t bitmap[512];
} allowed_vsan_list;

/* PDU types for the functions below, as the agent numbers them. */
#define PDU_TYPE_GET 160
#define PDU_TYPE_SET 163

/*
 * Fills `list` with the VSANs that the user of the PDU in progress may touch in the
 * subtree of `name` (`length` arcs) with a PDU of type `pdu_type`.
 *
 * Returns 0 when the user is not restricted (the list then says nothing), 1 when the
 * list counts. For VSANs the module takes any other result for the latter, for
 * interfaces (intf_chk_vsan_role_allowed) for the former: a library that has others
 * would leave these open. When the switch cannot be asked, this one takes the user to be
 * restricted to nothing.
 */
int snmp_get_allowed_vsans_subtree(allowed_vsan_list *list, const oid *name, size_t length, int pdu_type);

/* Nonzero when `vsan` is in the list. It is asked about what a manager's reply says,
 * which may be any number; those that no bit stands for are in the list or not as the
 * library sees fit. Here they are not. */
int snmp_is_vsan_allowed_in_list(uint32_t vsan, allowed_vsan_list list);

/* Replaces *vsan by the next number in the list and returns nonzero, or returns 0 when
 * there is none; *vsan counts for nothing then. It is asked about numbers that are not
 * in the list, so that "after" and "from" mean the same. */
int snmp_get_next_allowed_vsan_in_list(uint32_t *vsan, allowed_vsan_list list);

/* Nonzero when the user of the PDU in progress may touch `vsan`; arguments as for
 * snmp_get_allowed_vsans_subtree. */
int snmp_is_vsan_allowed_subtree(uint32_t vsan, const oid *name, size_t length, int pdu_type);

/* Says whether the user's role bars interface `if_index` for an operation (1 change,
 * 3 read): 0 when the interface is allowed. `list` is the user's VSAN list, for
 * platforms where a VSAN's permission extends to its interfaces. */
int intf_chk_vsan_role_allowed(uint32_t if_index, int operation, allowed_vsan_list list);

#ifdef __cplusplus
}
#endif

#endif
