#include "roles.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <iterator>

#include "mts_settings.h"
#include "mts_wire.h"
#include "netsnmpagent_oryx.h"
#include "syserr.h"

namespace oryx {
namespace {

constexpr uint32_t GET = 1;
constexpr uint32_t WAIT_CLASS = 4;

constexpr uint32_t RESTRICTED_AT = 0;
constexpr uint32_t BITMAP_AT = 4;
constexpr uint32_t RANGE_COUNT_AT = BITMAP_AT + VSAN_BITMAP_BYTES;
constexpr uint32_t RANGES_AT = RANGE_COUNT_AT + 4;
constexpr uint32_t RANGE_BYTES = 8;
static_assert(RANGE_COUNT_AT == 516 && RANGES_AT == 520);
static_assert(sizeof(allowed_vsan_list) == 4 + VSAN_BITMAP_BYTES);

/* The last role that the switch gave, the PDU that it was given for, and the generation
 * of the switch's settings then. PDU numbers and generations start at 1. */
Role role;
uint32_t role_pdu = 0;
uint64_t role_generation = 0;
char role_user[MTS_WIRE_MAX_USER + 1];

/* So that a switch which is down costs one line and not one for each request. */
bool failure_reported = false;

uint32_t word_at(const uint8_t *bytes) {
    return static_cast<uint32_t>(bytes[0]) << 24 | static_cast<uint32_t>(bytes[1]) << 16 |
           static_cast<uint32_t>(bytes[2]) << 8 | static_cast<uint32_t>(bytes[3]);
}

bool is_empty(const uint8_t (&vsans)[VSAN_BITMAP_BYTES]) {
    return std::all_of(std::begin(vsans), std::end(vsans), [](uint8_t eight) { return eight == 0; });
}

/* Without ranges, whatever `limits.ranges` holds says nothing. */
void restrict_to_nothing(Role &limits) {
    limits.restricted = true;
    memset(limits.vsans, 0, sizeof(limits.vsans));
    limits.range_count = 0;
}

bool decode(const uint8_t *reply, uint32_t length, Role &decoded) {
    if (!reply || length < RANGES_AT)
        return false;
    const uint32_t restricted = word_at(reply + RESTRICTED_AT);
    const uint32_t range_count = word_at(reply + RANGE_COUNT_AT);
    if (restricted > 1 || range_count > MTS_ROLE_MAX_RANGES || length != RANGES_AT + range_count * RANGE_BYTES)
        return false;
    decoded.restricted = restricted == 1;
    memcpy(decoded.vsans, reply + BITMAP_AT, VSAN_BITMAP_BYTES);
    decoded.range_count = range_count;
    // Ascending, none reaching into the next: contains_interface() relies on it.
    for (uint32_t i = 0; i < range_count; ++i) {
        const uint8_t *range = reply + RANGES_AT + i * RANGE_BYTES;
        decoded.ranges[i] = {word_at(range), word_at(range + 4)};
        if (decoded.ranges[i].first > decoded.ranges[i].last ||
            (i > 0 && decoded.ranges[i].first <= decoded.ranges[i - 1].last))
            return false;
    }
    // An unrestricted user with limits contradicts itself; better to believe the limits.
    if (!decoded.restricted && (range_count > 0 || !is_empty(decoded.vsans)))
        return false;
    return true;
}

void report_failure(const char *reason) {
    if (!failure_reported)
        snmp_log(LOG_WARNING,
                 "netsnmpagent_oryx: the switch does not say what users may touch (%s); until it does, nothing\n",
                 reason);
    failure_reported = true;
}

/* Asks the switch for the role of `user`. False when it gave none. */
bool fetch(const char *user) {
    bool is_given = false;
    void *reply = nullptr;
    uint32_t length = static_cast<uint32_t>(strlen(user));
    const uint32_t status = cmi_req_resp(MTS_OP_ROLE_OF_USER, GET, user, &reply, &length, nullptr, 0, MTS_SERVICE_ROLES,
                                         mts_response_q, WAIT_CLASS);
    if (status != 0) {
        const char *reason = status == UINT32_MAX ? strerror(errno) : syserr_format(status);
        restrict_to_nothing(role);
        report_failure(reason);
    } else if (!role_decode(static_cast<const uint8_t *>(reply), length, role)) {
        report_failure("its answer is damaged");
    } else {
        is_given = true;
        if (failure_reported)
            snmp_log(LOG_INFO, "netsnmpagent_oryx: the switch says again what users may touch\n");
        failure_reported = false;
    }
    free(reply);
    return is_given;
}

/* Sees to it that `role` is what the requester of `pdu` may touch. */
void refresh(const PduContext &pdu) {
    const bool is_same_user = strcmp(role_user, pdu.user) == 0;
    if (role_pdu == pdu.number && is_same_user)
        return;
    // A change that comes while the switch is asked belongs to a later generation.
    const uint64_t generation = mts_settings_generation();
    if (generation == 0 || role_generation != generation || !is_same_user) {
        role_generation = fetch(pdu.user) ? generation : 0;
        strcpy(role_user, pdu.user);
    }
    role_pdu = pdu.number;
}

bool contains(const uint8_t *bitmap, uint32_t bytes, uint32_t vsan) {
    return vsan / 8 < bytes && (bitmap[vsan / 8] & 0x80u >> vsan % 8) != 0;
}

bool contains_interface(const Role &limits, uint32_t if_index) {
    const InterfaceRange *end = limits.ranges + limits.range_count;
    const InterfaceRange *range = std::lower_bound(
        limits.ranges, end, if_index, [](const InterfaceRange &one, uint32_t wanted) { return one.last < wanted; });
    return range != end && range->first <= if_index;
}

/* The part of a list's bitmap that its size vouches for, and never more than is there. */
uint32_t usable_bytes(const allowed_vsan_list &list) {
    return list.size < VSAN_BITMAP_BYTES ? list.size : VSAN_BITMAP_BYTES;
}

/* Outside any PDU the platform acts for itself, and without limits. */
const Role &current_role() {
    const PduContext *pdu = current_pdu();
    static Role unrestricted; // zero: it restricts nothing, and takes no room in the file
    return pdu ? role_of(*pdu) : unrestricted;
}

} // namespace

bool role_decode(const uint8_t *reply, uint32_t length, Role &decoded) {
    if (decode(reply, length, decoded))
        return true;
    restrict_to_nothing(decoded);
    return false;
}

const Role &role_of(const PduContext &pdu) {
    if (!pdu.identified) {
        static Role nothing;
        restrict_to_nothing(nothing);
        return nothing;
    }
    refresh(pdu);
    return role;
}

} // namespace oryx

extern "C" {

/* A role holds for the module's whole subtree, for reading and for writing alike, so
 * neither the name nor the type of the PDU makes a difference here. */
int snmp_get_allowed_vsans_subtree(allowed_vsan_list *list, const oid *, size_t, int) {
    const oryx::Role &role = oryx::current_role();
    if (!role.restricted)
        return 0;
    if (list) {
        list->size = oryx::VSAN_BITMAP_BYTES;
        memcpy(list->bitmap, role.vsans, oryx::VSAN_BITMAP_BYTES);
    }
    return 1;
}

int snmp_is_vsan_allowed_in_list(uint32_t vsan, allowed_vsan_list list) {
    return oryx::contains(list.bitmap, oryx::usable_bytes(list), vsan);
}

int snmp_get_next_allowed_vsan_in_list(uint32_t *vsan, allowed_vsan_list list) {
    if (!vsan || *vsan >= oryx::HIGHEST_VSAN)
        return 0;
    const uint32_t bytes = oryx::usable_bytes(list);
    uint32_t candidate = *vsan + 1;
    while (candidate / 8 < bytes) {
        if (list.bitmap[candidate / 8] == 0) {
            candidate = (candidate / 8 + 1) * 8;
        } else if (oryx::contains(list.bitmap, bytes, candidate)) {
            *vsan = candidate;
            return 1;
        } else {
            ++candidate;
        }
    }
    return 0;
}

int snmp_is_vsan_allowed_subtree(uint32_t vsan, const oid *, size_t, int) {
    const oryx::Role &role = oryx::current_role();
    return !role.restricted || oryx::contains(role.vsans, oryx::VSAN_BITMAP_BYTES, vsan);
}

/* Here a role names its interfaces itself, for every operation. The list serves
 * platforms on which an interface's permission follows from its VSAN's. */
int intf_chk_vsan_role_allowed(uint32_t if_index, int, allowed_vsan_list) {
    const oryx::Role &role = oryx::current_role();
    return role.restricted && !oryx::contains_interface(role, if_index) ? 1 : 0;
}

} // extern "C"
