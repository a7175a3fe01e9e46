/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Message service: synchronous requests to the switch's manager processes, and
 * the event messages they publish.
 *
 * All functions are called on one thread at a time; the library takes no locks.
 */
#ifndef PLATFORM_MTS_H
#define PLATFORM_MTS_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Service numbers: which manager process a request is for. */
#define MANAGER_SAP_VSAN 15u /* VSAN manager */
#define MANAGER_SAP_PORT 46u /* port manager */

/* The queue on which a process awaits its replies. Opaque; owned by the library. */
typedef struct mts_queue mts_queue;

/* The process's own response queue. Callers read it at each request; it may be
 * replaced. */
extern mts_queue *mts_response_q;

/* One event message as delivered to a subscriber. Opaque; owned by whoever
 * delivers it and valid only during the delivery. */
typedef struct mts_message mts_message;

/*
 * Sends one request to a manager process and waits for its reply.
 *
 * opcode      which object family is addressed
 * kind        1 GET, 2 GETNEXT, 3 SET, 4 DELETE, 5 GET through the distribution service
 * payload     request record in network byte order, or null; owned by the caller
 * reply       where to put a newly allocated reply buffer, or null when no data is
 *             expected. Callers set *reply to null before; it is left so when no
 *             reply came. It may be set even when the request failed. The caller
 *             releases it with free().
 * length      in: payload length in bytes, 0 to 65536, of which the module uses 0 to
 *             2632 (a request without payload may carry a length too; nothing is
 *             read then); out: the length in bytes of the reply, if one came. Must
 *             not be null.
 * user_name   requesting SNMP user, NUL-terminated, or null
 * session     the agent's session id, or 0
 * service     MANAGER_SAP_VSAN or MANAGER_SAP_PORT
 * queue       the caller's response queue, normally mts_response_q
 * wait_class  how long to wait at most, in units of the message service, which gives
 *             0 a meaning, too; the module passes 0, 4 and 10
 *
 * Returns 0 on success, the manager's or the platform's 32-bit status otherwise;
 * UINT32_MAX means that no status was obtained and errno holds the reason, of which
 * the module shows the text. Here that is ETIMEDOUT no reply in time, ECONNREFUSED or
 * ENOENT no manager, ECONNRESET the manager went away during the request, EPROTO a
 * reply that is no reply, EMSGSIZE, EINVAL, ENOMEM, or why no connection could be
 * made, such as EACCES, EMFILE, and EPERM for somebody in the manager's place who is
 * not trusted.
 */
uint32_t cmi_req_resp(uint32_t opcode, uint32_t kind, const void *payload, void **reply, uint32_t *length,
                      const char *user_name, uint32_t session, uint32_t service, mts_queue *queue, uint32_t wait_class);

/* The payload of an event message, in network byte order; null when it has none.
 * Owned by the message. */
const void *mts_payload_get(const mts_message *message);

/* The length in bytes of what mts_payload_get returns. */
uint32_t mts_payload_size(const mts_message *message);

#ifdef __cplusplus
}
#endif

#endif
