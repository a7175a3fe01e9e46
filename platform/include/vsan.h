/* SPDX-License-Identifier: Apache-2.0 */
/*
 * VSAN library: decodes the VSAN manager's configuration events (class 145).
 *
 * Layout of the payload, 32-bit words in network byte order, an affair between the
 * manager and this library:
 *
 *   byte  0  condition    nonzero when the manager reports a further condition
 *         4  VSAN number
 *         8  1 when the VSAN has just been created, else 0
 *        12  number of attributes n, 0 to 32
 *        16  n times: attribute key, value, value before the change
 */
#ifndef PLATFORM_VSAN_H
#define PLATFORM_VSAN_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Decodes the fixed part of an event payload of `size` bytes into host order:
 * *condition, *vsan_id and *is_vsan_created, none of them null. Relied on: these
 * three outputs, in this order.
 *
 * Returns 0, or a nonzero status when the payload is null, short or inconsistent;
 * the outputs count for nothing then.
 */
uint32_t vsan_range_config_change_get_info(const void *payload, uint32_t size, uint32_t *condition, uint32_t *vsan_id,
                                           uint32_t *is_vsan_created);

/*
 * Finds the attribute `key` (a vsan_attr_key_t value) in an event payload. *value
 * receives it as it stands there, in NETWORK byte order; *old_value, at which the
 * module does not look, what it was before.
 *
 * Returns 0, or a nonzero status when the payload is not decodable or does not
 * carry the attribute; the outputs count for nothing then.
 */
uint32_t vsan_range_config_change_get_attr_values(const void *payload, uint32_t size, uint32_t key, uint32_t *value,
                                                  uint32_t *old_value);

#ifdef __cplusplus
}
#endif

#endif
