// SPDX-License-Identifier: Apache-2.0
#include "vsan.h"

#include <cstddef>
#include <cstring>

#include <span>

#include "contract/big_endian.h"
#include "contract/events.h"
#include "contract/limits.h"
#include "contract/status_codes.h"

namespace {

// The parts of an event, in host order but for the attributes, which are `count`
// times key, value and old value as they came.
struct config_change {
    uint32_t condition;
    uint32_t vsan_id;
    uint32_t is_created;
    std::span<const uint8_t> attributes;
};

bool decode(const void *payload, uint32_t size, config_change &change) {
    if (payload == nullptr || size < VSAN_EVENT_FIXED) {
        return false;
    }
    const std::span bytes(static_cast<const uint8_t *>(payload), size);
    const uint32_t count = read_be32(bytes.data() + VSAN_EVENT_ATTRIBUTE_COUNT);
    change = {read_be32(bytes.data() + VSAN_EVENT_CONDITION), read_be32(bytes.data() + VSAN_EVENT_VSAN),
              read_be32(bytes.data() + VSAN_EVENT_CREATED), bytes.subspan(VSAN_EVENT_FIXED)};
    return count <= VSAN_EVENT_MAX_ATTRIBUTES &&
           change.attributes.size() == size_t{count} * VSAN_EVENT_ATTRIBUTE_SIZE && change.is_created <= 1 &&
           change.vsan_id >= VSAN_NUMBER_MIN && change.vsan_id <= VSAN_NUMBER_MAX;
}

} // namespace

uint32_t vsan_range_config_change_get_info(const void *payload, uint32_t size, uint32_t *condition, uint32_t *vsan_id,
                                           uint32_t *is_vsan_created) {
    config_change change;
    if (!decode(payload, size, change)) {
        *condition = *vsan_id = *is_vsan_created = 0;
        return STATUS_BAD_EVENT;
    }
    *condition = change.condition;
    *vsan_id = change.vsan_id;
    *is_vsan_created = change.is_created;
    return STATUS_SUCCESS;
}

uint32_t vsan_range_config_change_get_attr_values(const void *payload, uint32_t size, uint32_t key, uint32_t *value,
                                                  uint32_t *old_value) {
    *value = *old_value = 0;
    config_change change;
    if (!decode(payload, size, change)) {
        return STATUS_BAD_EVENT;
    }
    for (auto rest = change.attributes; !rest.empty(); rest = rest.subspan(VSAN_EVENT_ATTRIBUTE_SIZE)) {
        if (read_be32(rest.data() + VSAN_EVENT_ATTRIBUTE_KEY) == key) {
            memcpy(value, rest.data() + VSAN_EVENT_ATTRIBUTE_VALUE, sizeof *value);
            memcpy(old_value, rest.data() + VSAN_EVENT_ATTRIBUTE_FORMER, sizeof *old_value);
            return STATUS_SUCCESS;
        }
    }
    return STATUS_NO_SUCH_ATTRIBUTE;
}
