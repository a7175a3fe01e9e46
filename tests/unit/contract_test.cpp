// SPDX-License-Identifier: Apache-2.0
// The module stands alone on a switch and keeps its own copy of what it must agree on with
// the switch's processes. Here the copies are held together: a number that differs does not
// compile.
#include <gtest/gtest.h>

#include <cstddef>
#include <string_view>

#include "contract/attributes.h"
#include "contract/events.h"
#include "contract/limits.h"
#include "contract/records.h"
#include "contract/run_directory.h"
#include "contract/services.h"
#include "contract/status_codes.h"
#include "mts.h"
#include "netsnmpagent_oryx.h"
#include "vsan_mib.h"
#include "vsan_mib_agent.h"
#include "vsan_mib_trace.h"

namespace {

template <typename Mine, typename Theirs> constexpr bool is_same_number(Mine mine, Theirs theirs) {
    return static_cast<uint32_t>(mine) == static_cast<uint32_t>(theirs);
}

#define AGREE(mine, theirs) static_assert(is_same_number(mine, theirs))

// Whom the module asks, and what.
AGREE(MANAGER_SAP_VSAN, MTS_SERVICE_VSAN);
AGREE(MANAGER_SAP_PORT, MTS_SERVICE_PORT);
AGREE(OPCODE_IF_MEMBERSHIP, MTS_OP_INTERFACE);
AGREE(OPCODE_VSAN_NUMBER, MTS_OP_VSAN_COUNT);
AGREE(OPCODE_VSAN_TABLE_LAST_CHANGE, MTS_OP_LAST_CHANGE);
AGREE(OPCODE_FC_TIMER, MTS_OP_TIMER);
AGREE(OPCODE_VSAN_IF_NUMBER, MTS_OP_INTERFACE_COUNT);
AGREE(OPCODE_LATENCY, MTS_OP_LATENCY);
AGREE(OPCODE_INORDER_DELIVERY, MTS_OP_INORDER_DELIVERY);
AGREE(OPCODE_VSAN, MTS_OP_VSAN);
AGREE(OPCODE_PORT_MANAGER_VALUE, MTS_OP_SWITCH_NAME);
AGREE(OPCODE_VSAN_STATUS_TRAP, MTS_OP_STATUS_EVENTS);
AGREE(GET_REQ, MTS_KIND_GET);
AGREE(GETNEXT_REQ, MTS_KIND_GET_NEXT);
AGREE(SET_REQ, MTS_KIND_SET);
AGREE(DELETE_REQ, MTS_KIND_DELETE);
AGREE(TDX_GET_REQ, MTS_KIND_DISTRIBUTED_GET);
static_assert(std::string_view(timer_feature) == MTS_TDX_TIMERS);

// What it is told in return.
AGREE(MANAGER_NO_SUCH_VSAN, STATUS_NO_SUCH_VSAN);
AGREE(MANAGER_NO_SUCH_ATTRIBUTE, STATUS_NO_SUCH_ATTRIBUTE);
AGREE(MANAGER_NAME_CONFLICT, STATUS_NAME_CONFLICT);
AGREE(MANAGER_BAD_DROP_LATENCY, STATUS_BAD_DROP_LATENCY);
AGREE(MANAGER_NO_VALUE, STATUS_NO_VALUE);
AGREE(MANAGER_TDX_REFUSED, STATUS_TDX_REFUSED);
AGREE(ENTRY_NO_INSTANCE, STATUS_NO_INSTANCE);
AGREE(STATUS_VSAN_RESTRICTED_USER, STATUS_VSAN_RESTRICTED);
AGREE(STATUS_VSAN_NOT_FOR_USER, STATUS_VSAN_NOT_ALLOWED);

// Attributes and their values.
AGREE(VSAN_ATTR_STATE, ATTRIBUTE_ADMIN_STATE);
AGREE(VSAN_ATTR_E_D_TOV, ATTRIBUTE_E_D_TOV);
AGREE(VSAN_ATTR_R_A_TOV, ATTRIBUTE_R_A_TOV);
AGREE(VSAN_ATTR_D_S_TOV, ATTRIBUTE_D_S_TOV);
AGREE(VSAN_ATTR_F_S_TOV, ATTRIBUTE_F_S_TOV);
AGREE(VSAN_ATTR_SWITCH_LATENCY, ATTRIBUTE_SWITCH_LATENCY);
AGREE(VSAN_ATTR_NETWORK_LATENCY, ATTRIBUTE_NETWORK_LATENCY);
AGREE(VSAN_ATTR_OPER_STATE, ATTRIBUTE_OPER_STATE);
AGREE(VSAN_MEDIA_FIBRE_CHANNEL, MEDIA_FIBRE_CHANNEL);
AGREE(VSAN_CONSIDER_SRCID_DSTID, LOAD_BALANCING_ADDRESSES);
AGREE(VSAN_CONSIDER_SRCID_DSTID_OXID, LOAD_BALANCING_EXCHANGES);
AGREE(VSAN_ACTIVE, ADMIN_STATE_ACTIVE);
AGREE(VSAN_SUSPENDED, ADMIN_STATE_SUSPENDED);
AGREE(VSAN_NONCONFIGURED, ADMIN_STATE_GONE);
AGREE(VSAN_OPER_STATE_UP, OPER_STATE_UP);
AGREE(VSAN_OPER_STATE_DOWN, OPER_STATE_DOWN);
AGREE(TV_TRUE, TRUTH_TRUE);
AGREE(TV_FALSE, TRUTH_FALSE);
AGREE(SNMP_ROW_ACTIVE, ROW_STATUS_ACTIVE);
AGREE(SNMP_ROW_CREATEANDGO, ROW_STATUS_CREATE_AND_GO);
AGREE(INTEROP_MODE_DEFAULT, VSAN_INTEROP_NONE);
AGREE(VSAN_MAX, VSAN_NUMBER_MAX);

// Records.
AGREE(sizeof(vsanEntry_block), VSAN_BLOCK_SIZE);
AGREE(offsetof(vsanEntry_block, record), VSAN_RECORD_AT);
AGREE(sizeof(vsanEntry), VSAN_RECORD_SIZE);
AGREE(offsetof(vsanEntry, vsanIndex), VSAN_RECORD_NUMBER);
AGREE(offsetof(vsanEntry, vsanMediaType), VSAN_RECORD_MEDIA);
AGREE(offsetof(vsanEntry, vsanAdminState), VSAN_RECORD_ADMIN_STATE);
AGREE(offsetof(vsanEntry, vsanMtu), VSAN_RECORD_MTU);
AGREE(offsetof(vsanEntry, vsanInorderDelivery), VSAN_RECORD_INORDER_DELIVERY);
AGREE(offsetof(vsanEntry, vsanInterOperMode), VSAN_RECORD_INTEROP);
AGREE(offsetof(vsanEntry, vsanLoadBalancingType), VSAN_RECORD_LOAD_BALANCING);
AGREE(offsetof(vsanEntry, vsanRowStatus), VSAN_RECORD_ROW_STATUS);
AGREE(offsetof(vsanEntry, vsanOperState), VSAN_RECORD_OPER_STATE);
AGREE(offsetof(vsanEntry, vsanName), VSAN_RECORD_NAME);
AGREE(sizeof(vsanEntry::vsanName), VSAN_NAME_FIELD);
AGREE(offsetof(vsanEntry, vsanNetworkDropLatency), VSAN_RECORD_DROP_LATENCY);
AGREE(offsetof(vsanEntry, rest), VSAN_RECORD_REST);
AGREE(sizeof(vsanEntry::rest), VSAN_REST_SIZE);
AGREE(sizeof(vsanIfEntry), INTERFACE_RECORD_SIZE);
AGREE(offsetof(vsanIfEntry, ifIndex), INTERFACE_RECORD_IF_INDEX);
AGREE(offsetof(vsanIfEntry, vsanIfVsan), INTERFACE_RECORD_VSAN);
AGREE(offsetof(vsanIfEntry, vsanIfDenyList), INTERFACE_RECORD_DENY_LIST);
AGREE(offsetof(vsanIfEntry, vsanIfRowStatus), INTERFACE_RECORD_ROW_STATUS);
AGREE(sizeof(fc_timer_record), TIMER_RECORD_SIZE);
AGREE(offsetof(fc_timer_record, key), TIMER_RECORD_KEY);
AGREE(offsetof(fc_timer_record, value), TIMER_RECORD_VALUE);
AGREE(offsetof(fc_timer_record, per_vsan), TIMER_RECORD_PER_VSAN);
AGREE(offsetof(fc_timer_record, flag), TIMER_RECORD_FORCE);
AGREE(offsetof(fc_timer_record, vsan), TIMER_RECORD_VSAN);
AGREE(offsetof(fc_timer_record, tail), TIMER_RECORD_TAIL);
AGREE(sizeof(latency_record), LATENCY_RECORD_SIZE);
AGREE(offsetof(latency_record, key), LATENCY_RECORD_KEY);
AGREE(offsetof(latency_record, value), LATENCY_RECORD_VALUE);

// The border has its numbers itself, too, so that it can stand alone.
AGREE(EVENT_CLASS_PORT_MEMBERSHIP, EVENT_PORT_MOVED);
AGREE(EVENT_CLASS_VSAN_CONFIG, EVENT_VSAN_CHANGED);
AGREE(sizeof(allowed_vsan_list::bitmap), VSAN_BITMAP_SIZE);
static_assert(8 * VSAN_BITMAP_SIZE == VSAN_NUMBER_MAX + 1);

// The classes of what the module traces, which the operator filters.
AGREE(TRACE_FAILURE, TRACE_CLASS_FAILURES);
AGREE(TRACE_EVENT, TRACE_CLASS_TRACE);

// Within the contract.
static_assert(VSAN_RECORD_REST + VSAN_REST_SIZE == VSAN_RECORD_SIZE);
static_assert(VSAN_RECORD_NAME + VSAN_NAME_FIELD == VSAN_RECORD_DROP_LATENCY);
static_assert(VSAN_NAME_MAX < VSAN_NAME_FIELD);
static_assert(ROLE_REPLY_VSANS + VSAN_BITMAP_SIZE == ROLE_REPLY_RANGE_COUNT);
#define LEAST_TO_GREATEST(key, name, word, least, greatest, initial)                                                   \
    static_assert(least <= initial && initial <= greatest, "a timer begins within its range");
FABRIC_TIMERS(LEAST_TO_GREATEST)
#undef LEAST_TO_GREATEST

TEST(Contract, ABitmapHasTheVsansThatWereAddedAndNoOthers) {
    uint8_t bitmap[VSAN_BITMAP_SIZE] = {};
    for (const uint32_t vsan : {0u, 1u, 8u, 4095u}) {
        EXPECT_FALSE(vsan_bitmap_has(bitmap, sizeof bitmap, vsan));
        vsan_bitmap_add(bitmap, vsan);
        EXPECT_TRUE(vsan_bitmap_has(bitmap, sizeof bitmap, vsan));
    }
    EXPECT_EQ(bitmap[0], 0xc0);
    EXPECT_EQ(bitmap[1], 0x80);
    EXPECT_EQ(bitmap[511], 0x01);
    EXPECT_FALSE(vsan_bitmap_has(bitmap, sizeof bitmap, 4096));
    EXPECT_FALSE(vsan_bitmap_has(bitmap, 511, 4095));
}

} // namespace
