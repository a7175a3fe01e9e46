#include "tdx.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include "mts.h"
#include "mts/big_endian.h"
#include "mts/mts_wire.h"

namespace {

constexpr uint32_t KIND_GET = 1;
constexpr uint32_t WAIT_CLASS = 4;
constexpr uint32_t MAX_FEATURE_NAME = 64;

// The words of the state reply, by their position in bytes.
constexpr size_t ENABLED_AT = 0;
constexpr size_t SHOW_RUN_MODE_AT = 4;
constexpr uint32_t STATE_REPLY_LENGTH = 8;

uint32_t no_status(int reason) {
    errno = reason;
    return UINT32_MAX;
}

// Asks the service for its settings and stores whether the word at `offset` of the
// reply is set.
uint32_t read_setting(const char *feature, size_t offset, uint32_t *setting) {
    if (feature == nullptr || setting == nullptr) {
        return no_status(EINVAL);
    }
    uint32_t length = static_cast<uint32_t>(strnlen(feature, MAX_FEATURE_NAME + 1));
    if (length == 0 || length > MAX_FEATURE_NAME) {
        return no_status(EINVAL);
    }
    void *reply = nullptr;
    uint32_t status = cmi_req_resp(MTS_OP_TDX_STATE, KIND_GET, feature, &reply, &length, nullptr, 0, MTS_SERVICE_TDX,
                                   mts_response_q, WAIT_CLASS);
    if (status == 0 && (reply == nullptr || length < STATE_REPLY_LENGTH)) {
        status = no_status(EPROTO);
    }
    if (status == 0) {
        *setting = read_be32(static_cast<const uint8_t *>(reply) + offset) != 0;
    }
    const int reason = errno;
    free(reply);
    errno = reason;
    return status;
}

} // namespace

uint32_t is_tdx_enabled(const char *feature, uint32_t *enabled) {
    return read_setting(feature, ENABLED_AT, enabled);
}

uint32_t get_tdx_show_run_mode(const char *feature, uint32_t *mode) {
    return read_setting(feature, SHOW_RUN_MODE_AT, mode);
}
