#include "tdx.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include "mts.h"
#include "mts/big_endian.h"
#include "mts/mts_settings.h"
#include "mts/mts_wire.h"

namespace {

constexpr uint32_t KIND_GET = 1;
constexpr uint32_t WAIT_CLASS = 4;
constexpr uint32_t MAX_FEATURE_NAME = 64;

// The words of the state reply.
constexpr size_t ENABLED = 0;
constexpr size_t SHOW_RUN_MODE = 1;
constexpr size_t STATE_WORDS = 2;
constexpr uint32_t STATE_REPLY_LENGTH = 4 * STATE_WORDS;

// What the service said last, for which feature, and the generation of the switch's
// settings then: as long as that stays, there is no need to ask again. 0 is none.
struct {
    uint64_t generation;
    char feature[MAX_FEATURE_NAME + 1];
    bool settings[STATE_WORDS];
} known;

uint32_t no_status(int reason) {
    errno = reason;
    return UINT32_MAX;
}

// Stores one of the feature's settings, which the service is asked for when it is not
// known.
uint32_t read_setting(const char *feature, size_t which, uint32_t *setting) {
    if (feature == nullptr || setting == nullptr) {
        return no_status(EINVAL);
    }
    uint32_t length = static_cast<uint32_t>(strnlen(feature, MAX_FEATURE_NAME + 1));
    if (length == 0 || length > MAX_FEATURE_NAME) {
        return no_status(EINVAL);
    }
    // A change that comes while the service is asked belongs to a later generation.
    const uint64_t generation = mts_settings_generation();
    if (generation != 0 && generation == known.generation && strcmp(feature, known.feature) == 0) {
        *setting = known.settings[which];
        return 0;
    }
    void *reply = nullptr;
    uint32_t status = cmi_req_resp(MTS_OP_TDX_STATE, KIND_GET, feature, &reply, &length, nullptr, 0, MTS_SERVICE_TDX,
                                   mts_response_q, WAIT_CLASS);
    if (status == 0 && (reply == nullptr || length < STATE_REPLY_LENGTH)) {
        status = no_status(EPROTO);
    }
    known.generation = 0;
    if (status == 0) {
        for (size_t i = 0; i < STATE_WORDS; ++i) {
            known.settings[i] = read_be32(static_cast<const uint8_t *>(reply) + 4 * i) != 0;
        }
        strcpy(known.feature, feature);
        known.generation = generation;
        *setting = known.settings[which];
    }
    const int reason = errno;
    free(reply);
    errno = reason;
    return status;
}

} // namespace

uint32_t is_tdx_enabled(const char *feature, uint32_t *enabled) {
    return read_setting(feature, ENABLED, enabled);
}

uint32_t get_tdx_show_run_mode(const char *feature, uint32_t *mode) {
    return read_setting(feature, SHOW_RUN_MODE, mode);
}
