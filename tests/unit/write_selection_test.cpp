// SPDX-License-Identifier: Apache-2.0
// Which write method the VSAN table hands out for which object.

#include "module_test.h"

#include <map>

namespace {

struct selection {
    WriteMethod *method;
    const char *trace;
};

const std::map<int, selection> selections = {
    {3, {set_vsanName, "set_table_set_methods(#) set-method VSANNAME \n"}},
    {4, {set_vsanMediaType, "set_table_set_methods(#) set-method VSANNAME \n"}},
    {5, {set_vsanAdminState, "set_table_set_methods(#) set-method VSANADMINSTATE \n"}},
    {6, {set_vsanMtu, "set_table_set_methods(#) set-method VSANMTU \n"}},
    {8, {set_vsanLoadBalancingType, "set_table_set_methods(#) set-method VSANLOADBALANCINGTYPE \n"}},
    {11, {set_vsanRowStatus, "set_table_set_methods(#) set-method VSANROWSTATUS \n"}},
    {12, {set_vsanInterOperType, "set_table_set_methods(#) set-method VSANITEROPERYPE \n"}},
    {13, {set_vsanInorderDelivery, "set_table_set_methods(#) set-method VSANINORDERDELIVERY \n"}},
    {14, {set_vsanNetworkDropLatency, "set_table_set_methods(#) set-method VSANNETWORKDROPLATENCY \n"}},
};

using WriteSelection = ModuleTest;

int somebody_elses_method(int, u_char *, u_char, size_t, u_char *, oid *, size_t) {
    return 0;
}

TEST_F(WriteSelection, EveryMagicSelectsItsWriterAndTracesItOrLeavesTheSlot) {
    for (int magic = -1; magic <= 50; ++magic) {
        SCOPED_TRACE(magic);
        platform.history.clear();
        platform.debug.clear();
        WriteMethod *slot = somebody_elses_method;
        set_table_set_methods(magic, &slot);
        const auto selected = selections.find(magic);
        if (selected == selections.end()) {
            EXPECT_EQ(slot, somebody_elses_method);
            EXPECT_TRUE(platform.history.empty()) << all_traces();
            continue;
        }
        EXPECT_EQ(slot, selected->second.method);
        ASSERT_EQ(platform.history.size(), 1u) << all_traces();
        EXPECT_TRACED(101, selected->second.trace);
    }
    EXPECT_TRUE(platform.journal.empty());
}

TEST_F(WriteSelection, AReadHandsOutTheWriterWhetherOrNotTheRowExists) {
    platform.add_vsan(10);
    for (const uint8_t magic : bytes{3, 4, 5, 6, 8, 10, 11, 12, 13, 14}) {
        SCOPED_TRACE(int{magic});
        const auto selected = selections.find(magic);
        WriteMethod *wanted = selected == selections.end() ? nullptr : selected->second.method;
        const read_answer existing = get(magic, {10});
        EXPECT_TRUE(existing.present);
        EXPECT_EQ(existing.write_method, wanted);
        const read_answer missing = get(magic, {99});
        EXPECT_FALSE(missing.present);
        EXPECT_EQ(missing.write_method, wanted);
        EXPECT_EQ(get_next(magic, {}).write_method, wanted);
    }
}

TEST_F(WriteSelection, ASlotThatTheCallerFilledStaysForAColumnWithoutWriter) {
    registered_object state(10);
    EXPECT_EQ(state.read(state.instance({10}), 1, somebody_elses_method).write_method, somebody_elses_method);
}

TEST_F(WriteSelection, TheSelectionIsTracedBeforeTheRowIsLookedUp) {
    get(3, {10});
    ASSERT_GE(platform.history.size(), 3u);
    EXPECT_TRUE(is_trace(platform.history[0].text, "get_vsanEntry(#) Magic:3  \n"));
    EXPECT_TRUE(is_trace(platform.history[1].text, "set_table_set_methods(#) set-method VSANNAME \n"));
    EXPECT_TRUE(is_trace(platform.history[2].text,
                         "header_vsanEntry(#) : Sending GET  request to VSAN mgr with payload "
                         "(size = 2632) vsanIndex = 10\n"));
}

TEST_F(WriteSelection, AWriterIsHandedOutWhenTheManagerIsAway) {
    platform.on(149, 1).fails(110);
    EXPECT_EQ(get(11, {10}).write_method, set_vsanRowStatus);
}

TEST_F(WriteSelection, MediaTypeAndMtuAnswerTwoInEveryPhase) {
    for (WriteMethod *method : {set_vsanMediaType, set_vsanMtu}) {
        for (int phase = 0; phase <= 6; ++phase) {
            EXPECT_EQ(write(method, phase, 0x02, as_long(1)), 2) << phase;
        }
    }
    EXPECT_TRUE(platform.journal.empty());
    EXPECT_TRUE(platform.history.empty()) << all_traces();
}

} // namespace
