#include "pm.h"

#include <errno.h>
#include <stdlib.h>

#include "mts/big_endian.h"
#include "mts/mts_wire.h"

namespace {

// The membership record, the same in both directions.
constexpr size_t VSAN_AT = 0;
constexpr size_t IF_INDEX_AT = 4;
constexpr size_t STATIC_AT = 8;
constexpr uint32_t RECORD_LENGTH = 12;

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
    uint8_t key[RECORD_LENGTH] = {};
    write_be32(key + VSAN_AT, *vsan);
    write_be32(key + IF_INDEX_AT, *if_index);

    void *reply = nullptr;
    uint32_t length = sizeof key;
    uint32_t status = cmi_req_resp(MTS_OP_PORT_MEMBERSHIP, kind, key, &reply, &length, user_name, session,
                                   MANAGER_SAP_PORT, queue, wait_class);
    if (status == 0 && (reply == nullptr || length < RECORD_LENGTH)) {
        status = no_status(EPROTO);
    }
    if (status == 0) {
        const uint8_t *record = static_cast<const uint8_t *>(reply);
        *vsan = read_be32(record + VSAN_AT);
        *if_index = read_be32(record + IF_INDEX_AT);
        *is_static = read_be32(record + STATIC_AT) != 0;
    }
    const int reason = errno;
    free(reply);
    errno = reason;
    return status;
}
