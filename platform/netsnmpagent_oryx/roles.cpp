// SPDX-License-Identifier: Apache-2.0
#include "roles.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <algorithm>
#include <iterator>

#include "contract/big_endian.h"
#include "contract/frames.h"
#include "contract/services.h"
#include "mts_settings.h"
#include "netsnmpagent_oryx.h"
#include "syserr.h"

namespace oryx {
namespace {

constexpr uint32_t WAIT_CLASS = 4;

static_assert(sizeof(allowed_vsan_list::bitmap) == VSAN_BITMAP_SIZE);

// The last role that the switch gave, the PDU that it was given for, and the generation
// of the switch's settings then. PDU numbers and generations start at 1.
Permission role;
uint32_t role_pdu = 0;
uint64_t role_generation = 0;
char role_user[MTS_WIRE_MAX_USER + 1];

// So that a switch which is down costs one line and not one for each request.
bool failure_reported = false;

bool is_empty(const uint8_t (&vsans)[VSAN_BITMAP_SIZE]) {
    return std::all_of(std::begin(vsans), std::end(vsans), [](uint8_t eight) { return eight == 0; });
}

// Without ranges, whatever `limits.ranges` holds says nothing.
void restrict_to_nothing(Permission &limits) {
    limits.restricted = true;
    memset(limits.vsans, 0, sizeof(limits.vsans));
    limits.range_count = 0;
}

bool decode(const uint8_t *reply, uint32_t length, Permission &decoded) {
    if (!reply || length < ROLE_REPLY_RANGES) {
        return false;
    }
    const uint32_t restricted = read_be32(reply + ROLE_REPLY_RESTRICTED);
    const uint32_t range_count = read_be32(reply + ROLE_REPLY_RANGE_COUNT);
    if (restricted > 1 || range_count > ROLE_MAX_RANGES ||
        length != ROLE_REPLY_RANGES + range_count * ROLE_RANGE_SIZE) {
        return false;
    }
    decoded.restricted = restricted == 1;
    memcpy(decoded.vsans, reply + ROLE_REPLY_VSANS, VSAN_BITMAP_SIZE);
    decoded.range_count = range_count;
    // Ascending, none reaching into the next: contains_interface() relies on it.
    for (uint32_t i = 0; i < range_count; ++i) {
        const uint8_t *range = reply + ROLE_REPLY_RANGES + size_t{i} * ROLE_RANGE_SIZE;
        decoded.ranges[i] = {read_be32(range), read_be32(range + 4)};
        if (decoded.ranges[i].first > decoded.ranges[i].last ||
            (i > 0 && decoded.ranges[i].first <= decoded.ranges[i - 1].last)) {
            return false;
        }
    }
    // An unrestricted user with limits contradicts itself; better to believe the limits.
    if (!decoded.restricted && (range_count > 0 || !is_empty(decoded.vsans))) {
        return false;
    }
    return true;
}

void report_failure(const char *reason) {
    if (!failure_reported) {
        snmp_log(LOG_WARNING,
                 "netsnmpagent_oryx: the switch does not say what users may touch (%s); until it does, nothing\n",
                 reason);
    }
    failure_reported = true;
}

// What an errno value of the message service means to whoever reads the agent's log.
const char *reason_of(int error) {
    return error == EPERM ? "who listens at its socket is not trusted" : strerror(error);
}

// Requests then cost many times what they should, and nothing else shows it.
void report_other_version() {
    static bool is_reported = false;
    if (!is_reported && mts_memory_is_other_version()) {
        snmp_log(LOG_WARNING, "netsnmpagent_oryx: the switch shares memory of another version than this agent knows; "
                              "requests go over its socket\n");
        is_reported = true;
    }
}

// Asks the switch for the role of `user`. False when it gave none.
bool fetch(const char *user) {
    bool is_given = false;
    void *reply = nullptr;
    uint32_t length = static_cast<uint32_t>(strlen(user));
    const uint32_t status = cmi_req_resp(MTS_OP_ROLE_OF_USER, MTS_KIND_GET, user, &reply, &length, nullptr, 0,
                                         MTS_SERVICE_ROLES, mts_response_q, WAIT_CLASS);
    report_other_version();
    if (status != 0) {
        const char *reason = status == UINT32_MAX ? reason_of(errno) : syserr_format(status);
        restrict_to_nothing(role);
        report_failure(reason);
    } else if (!permission_decode(static_cast<const uint8_t *>(reply), length, role)) {
        report_failure("its answer is damaged");
    } else {
        is_given = true;
        if (failure_reported) {
            snmp_log(LOG_INFO, "netsnmpagent_oryx: the switch says again what users may touch\n");
        }
        failure_reported = false;
    }
    free(reply);
    return is_given;
}

// Sees to it that `role` is what the requester of `pdu` may touch.
void refresh(const PduContext &pdu) {
    const bool is_same_user = strcmp(role_user, pdu.user) == 0;
    if (role_pdu == pdu.number && is_same_user) {
        return;
    }
    // A change that comes while the switch is asked belongs to a later generation.
    const uint64_t generation = mts_settings_generation();
    if (generation == 0 || role_generation != generation || !is_same_user) {
        role_generation = fetch(pdu.user) ? generation : 0;
        memcpy(role_user, pdu.user, sizeof role_user);
    }
    role_pdu = pdu.number;
}

bool contains_interface(const Permission &limits, uint32_t if_index) {
    const InterfaceRange *end = limits.ranges + limits.range_count;
    const InterfaceRange *range = std::lower_bound(
        limits.ranges, end, if_index, [](const InterfaceRange &one, uint32_t wanted) { return one.last < wanted; });
    return range != end && range->first <= if_index;
}

// The part of a list's bitmap that its size vouches for, and never more than is there.
uint32_t usable_bytes(const allowed_vsan_list &list) {
    return list.size < VSAN_BITMAP_SIZE ? list.size : VSAN_BITMAP_SIZE;
}

// Outside any PDU the platform acts for itself, and without limits.
const Permission &current_permission() {
    const PduContext *pdu = current_pdu();
    static Permission unrestricted; // zero: it restricts nothing, and takes no room in the file
    return pdu ? permission_of(*pdu) : unrestricted;
}

} // namespace

bool permission_decode(const uint8_t *reply, uint32_t length, Permission &decoded) {
    if (decode(reply, length, decoded)) {
        return true;
    }
    restrict_to_nothing(decoded);
    return false;
}

const Permission &permission_of(const PduContext &pdu) {
    if (!pdu.identified) {
        static Permission nothing;
        restrict_to_nothing(nothing);
        return nothing;
    }
    refresh(pdu);
    return role;
}

} // namespace oryx

extern "C" {

// A role holds for the module's whole subtree, for reading and for writing alike, so
// neither the name nor the type of the PDU makes a difference here.
int snmp_get_allowed_vsans_subtree(allowed_vsan_list *list, const oid *, size_t, int) {
    const oryx::Permission &role = oryx::current_permission();
    if (!role.restricted) {
        return 0;
    }
    if (list) {
        list->size = VSAN_BITMAP_SIZE;
        memcpy(list->bitmap, role.vsans, VSAN_BITMAP_SIZE);
    }
    return 1;
}

int snmp_is_vsan_allowed_in_list(uint32_t vsan, allowed_vsan_list list) {
    return vsan_bitmap_has(list.bitmap, oryx::usable_bytes(list), vsan);
}

int snmp_get_next_allowed_vsan_in_list(uint32_t *vsan, allowed_vsan_list list) {
    if (!vsan || *vsan >= VSAN_NUMBER_MAX) {
        return 0;
    }
    const uint32_t bytes = oryx::usable_bytes(list);
    uint32_t candidate = *vsan + 1;
    while (candidate / 8 < bytes) {
        if (list.bitmap[candidate / 8] == 0) {
            candidate = (candidate / 8 + 1) * 8;
        } else if (vsan_bitmap_has(list.bitmap, bytes, candidate)) {
            *vsan = candidate;
            return 1;
        } else {
            ++candidate;
        }
    }
    return 0;
}

int snmp_is_vsan_allowed_subtree(uint32_t vsan, const oid *, size_t, int) {
    const oryx::Permission &role = oryx::current_permission();
    return !role.restricted || vsan_bitmap_has(role.vsans, VSAN_BITMAP_SIZE, vsan);
}

// Here a role names its interfaces itself, for every operation. The list serves
// platforms on which an interface's permission follows from its VSAN's.
int intf_chk_vsan_role_allowed(uint32_t if_index, int, allowed_vsan_list) {
    const oryx::Permission &role = oryx::current_permission();
    return role.restricted && !oryx::contains_interface(role, if_index) ? 1 : 0;
}

} // extern "C"
