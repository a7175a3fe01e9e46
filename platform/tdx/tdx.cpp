// SPDX-License-Identifier: Apache-2.0
#include "tdx.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "contract/big_endian.h"
#include "contract/records.h"
#include "contract/services.h"
#include "mts.h"
#include "mts/mts_settings.h"

namespace {

constexpr uint32_t WAIT_CLASS = 4;
constexpr uint32_t MAX_FEATURE_NAME = 64;

// The words of the service's reply, of which it knows where each lies.
constexpr size_t STATE_WORDS = TDX_STATE_REPLY_SIZE / 4;

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
uint32_t read_setting(const char *feature, tdx_state_reply_at which, uint32_t *setting) {
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
        *setting = known.settings[which / 4];
        return 0;
    }
    void *reply = nullptr;
    uint32_t status = cmi_req_resp(MTS_OP_TDX_STATE, MTS_KIND_GET, feature, &reply, &length, nullptr, 0,
                                   MTS_SERVICE_TDX, mts_response_q, WAIT_CLASS);
    if (status == 0 && (reply == nullptr || length < TDX_STATE_REPLY_SIZE)) {
        status = no_status(EPROTO);
    }
    known.generation = 0;
    if (status == 0) {
        for (size_t i = 0; i < STATE_WORDS; ++i) {
            known.settings[i] = read_be32(static_cast<const uint8_t *>(reply) + 4 * i) != 0;
        }
        memcpy(known.feature, feature, strlen(feature) + 1);
        known.generation = generation;
        *setting = known.settings[which / 4];
    }
    const int reason = errno;
    free(reply);
    errno = reason;
    return status;
}

} // namespace

uint32_t is_tdx_enabled(const char *feature, uint32_t *enabled) {
    return read_setting(feature, TDX_STATE_ENABLED, enabled);
}

uint32_t get_tdx_show_run_mode(const char *feature, uint32_t *mode) {
    return read_setting(feature, TDX_STATE_SHOW_RUN, mode);
}
