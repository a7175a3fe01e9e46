// SPDX-License-Identifier: Apache-2.0
#include "pm.h"

#include <cerrno>
#include <cstdlib>

#include "contract/big_endian.h"
#include "contract/records.h"
#include "contract/services.h"

namespace {

uint32_t no_status(int reason) {
    errno = reason;
    return UINT32_MAX;
}

} // namespace

uint32_t pm_cmi_get_active_vsan_port_membership(mts_queue *queue, uint32_t kind, uint32_t *vsan, uint32_t *if_index,
                                                uint8_t *is_static, const char *user_name, uint32_t session,
                                                uint32_t wait_class) {
    if (vsan == nullptr || if_index == nullptr || is_static == nullptr) {
        return no_status(EINVAL);
    }
    uint8_t key[MEMBERSHIP_RECORD_SIZE] = {};
    write_be32(key + MEMBERSHIP_RECORD_VSAN, *vsan);
    write_be32(key + MEMBERSHIP_RECORD_IF_INDEX, *if_index);

    void *reply = nullptr;
    uint32_t length = sizeof key;
    uint32_t status = cmi_req_resp(MTS_OP_PORT_MEMBERSHIP, kind, key, &reply, &length, user_name, session,
                                   MANAGER_SAP_PORT, queue, wait_class);
    if (status == 0 && (reply == nullptr || length < MEMBERSHIP_RECORD_SIZE)) {
        status = no_status(EPROTO);
    }
    if (status == 0) {
        const uint8_t *record = static_cast<const uint8_t *>(reply);
        *vsan = read_be32(record + MEMBERSHIP_RECORD_VSAN);
        *if_index = read_be32(record + MEMBERSHIP_RECORD_IF_INDEX);
        *is_static = read_be32(record + MEMBERSHIP_RECORD_STATIC) != 0;
    }
    const int reason = errno;
    free(reply);
    errno = reason;
    return status;
}
