#include "vsan.h"

#include <stddef.h>
#include <string.h>

#include <span>

#include "mts/big_endian.h"
#include "syserr/status_codes.h"

namespace {

constexpr size_t CONDITION_AT = 0;
constexpr size_t VSAN_AT = 4;
constexpr size_t CREATED_AT = 8;
constexpr size_t COUNT_AT = 12;
constexpr size_t ATTRIBUTES_AT = 16;
constexpr size_t ATTRIBUTE_LENGTH = 12;
constexpr uint32_t MAX_ATTRIBUTES = 32;
constexpr uint32_t MAX_VSAN = 4095;

// The parts of an event, in host order but for the attributes, which are `count`
// times key, value and old value as they came.
struct config_change {
    uint32_t condition;
    uint32_t vsan_id;
    uint32_t is_created;
    std::span<const uint8_t> attributes;
};

bool decode(const void *payload, uint32_t size, config_change &change) {
    if (payload == nullptr || size < ATTRIBUTES_AT) {
        return false;
    }
    const std::span bytes(static_cast<const uint8_t *>(payload), size);
    const uint32_t count = read_be32(bytes.data() + COUNT_AT);
    change = {read_be32(bytes.data() + CONDITION_AT), read_be32(bytes.data() + VSAN_AT),
              read_be32(bytes.data() + CREATED_AT), bytes.subspan(ATTRIBUTES_AT)};
    return count <= MAX_ATTRIBUTES && change.attributes.size() == count * ATTRIBUTE_LENGTH && change.is_created <= 1 &&
           change.vsan_id >= 1 && change.vsan_id <= MAX_VSAN;
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
    for (auto rest = change.attributes; !rest.empty(); rest = rest.subspan(ATTRIBUTE_LENGTH)) {
        if (read_be32(rest.data()) == key) {
            memcpy(value, rest.data() + 4, sizeof *value);
            memcpy(old_value, rest.data() + 8, sizeof *old_value);
            return STATUS_SUCCESS;
        }
    }
    return STATUS_NO_SUCH_ATTRIBUTE;
}
