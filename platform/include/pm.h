/* SPDX-License-Identifier: Apache-2.0 */
/* Port manager client. */
#ifndef PLATFORM_PM_H
#define PLATFORM_PM_H

#include <stdint.h>

#include "mts.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Asks the port manager for one (VSAN, interface) pair of the active membership.
 *
 * queue       the caller's response queue
 * kind        1: that very pair; 2: the pair that follows it, ordered by VSAN and
 *             then ifIndex
 * vsan        in/out, host order: VSAN number of the pair
 * if_index    in/out, host order: ifIndex of the pair
 * is_static   out: nonzero when the membership is configured, 0 when it is dynamic
 * user_name   requesting SNMP user or null
 * session     the agent's session id, or 0
 * wait_class  as for cmi_req_resp; callers pass 5
 *
 * Returns 0, or a status as cmi_req_resp does; what vsan, if_index and is_static
 * hold then, nobody is shown but who reads the trace of the failure.
 */
uint32_t pm_cmi_get_active_vsan_port_membership(mts_queue *queue, uint32_t kind, uint32_t *vsan, uint32_t *if_index,
                                                uint8_t *is_static, const char *user_name, uint32_t session,
                                                uint32_t wait_class);

#ifdef __cplusplus
}
#endif

#endif
