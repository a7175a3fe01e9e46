// SPDX-License-Identifier: Apache-2.0
// What the VSAN library makes of an event's payload.
#include <cstdlib>
#include <vector>

#include "vsan.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::vector<uint8_t> payload(data, data + size);
    const auto length = static_cast<uint32_t>(size);
    uint32_t condition = 1;
    uint32_t vsan = 1;
    uint32_t is_created = 1;
    const uint32_t status = vsan_range_config_change_get_info(payload.data(), length, &condition, &vsan, &is_created);
    if (status == 0 ? vsan < 1 || vsan > 4095 || is_created > 1 : (condition | vsan | is_created) != 0) {
        abort();
    }
    for (uint32_t key = 0; key < 40; ++key) {
        uint32_t value = 1;
        uint32_t old_value = 1;
        const uint32_t found =
            vsan_range_config_change_get_attr_values(payload.data(), length, key, &value, &old_value);
        if (found != 0 ? (value | old_value) != 0 : status != 0) {
            abort();
        }
    }
    return 0;
}
