// SPDX-License-Identifier: Apache-2.0
// Byte order, keys and defaults of the wire records.

#include "vsan_mib_exports.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstring>

namespace {

void swap_word(int32_t &word) {
    word = static_cast<int32_t>(htonl(static_cast<uint32_t>(word)));
}

// The order of keyed lists: the sign is the reverse of the usual three-way
// comparison, and the list library orders by it.
int compare_keys(const int32_t *a, const int32_t *b) {
    if (a == nullptr || b == nullptr) {
        return -1;
    }
    if (*a == *b) {
        return 0;
    }
    return *a < *b ? 1 : -1;
}

} // namespace

extern "C" {

// Swaps the numbers of a record between host and network order, in place; the name
// and the manager's own bytes stay.
void vsanEntry_hton(vsanEntry *entry) {
    swap_word(entry->vsanIndex);
    swap_word(entry->vsanMediaType);
    swap_word(entry->vsanAdminState);
    swap_word(entry->vsanMtu);
    swap_word(entry->vsanInorderDelivery);
    swap_word(entry->vsanInterOperMode);
    swap_word(entry->vsanLoadBalancingType);
    swap_word(entry->vsanRowStatus);
    swap_word(entry->vsanOperState);
    entry->vsanNetworkDropLatency = htonl(entry->vsanNetworkDropLatency);
}

void vsanEntry_ntoh(vsanEntry *entry) {
    vsanEntry_hton(entry);
}

// Swaps the first three words, in place. The manager exchanges the row status in
// host order.
void vsanIfEntry_hton(vsanIfEntry *entry) {
    swap_word(entry->ifIndex);
    swap_word(entry->vsanIfVsan);
    swap_word(entry->vsanIfDenyList);
}

void vsanIfEntry_ntoh(vsanIfEntry *entry) {
    vsanIfEntry_hton(entry);
}

// Swaps the three words of a timer record, in place; it does for a request as for a reply.
void vsanNewFcTimer_ntoh(fc_timer_record *record) {
    record->key = ntohl(record->key);
    record->value = ntohl(record->value);
    record->vsan = ntohl(record->vsan);
}

// Comparators of keyed lists: 0 for equal keys, 1 when a's key is the smaller, -1
// when it is the larger or either record is missing.
int vsanEntry_comp(const void *a, const void *b) {
    return compare_keys(static_cast<const int32_t *>(a), static_cast<const int32_t *>(b));
}

int vsanIfEntry_comp(const void *a, const void *b) {
    return compare_keys(static_cast<const int32_t *>(a), static_cast<const int32_t *>(b));
}

// Fills in what a new VSAN starts with. The index must be set; row status,
// operational state and network drop latency stay as they are.
void vsanEntry_defaults(vsanEntry *entry) {
    snprintf(entry->vsanName, sizeof entry->vsanName, "VSAN%.4d", entry->vsanIndex);
    entry->vsanMediaType = VSAN_MEDIA_FIBRE_CHANNEL;
    entry->vsanAdminState = VSAN_ACTIVE;
    entry->vsanMtu = 2112;
    entry->vsanLoadBalancingType = VSAN_CONSIDER_SRCID_DSTID_OXID;
    entry->vsanInterOperMode = INTEROP_MODE_DEFAULT;
    entry->vsanInorderDelivery = 0;
}

void vsanIfEntry_defaults(vsanIfEntry *entry) {
    entry->vsanIfVsan = 1;
    entry->vsanIfDenyList = 0;
}

} // extern "C"
