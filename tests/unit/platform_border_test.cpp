// SPDX-License-Identifier: Apache-2.0
// What the module relies on in the types of the platform's headers. A switch that brings
// headers of its own must agree with every line here.
#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>

#include "indxobj.h"
#include "netsnmpagent_oryx.h"
#include "sdwrap.h"
#include "vsan.h"

namespace {

TEST(PlatformBorder, AListIsOnePointerPassedByAddress) {
    EXPECT_EQ(sizeof(indxobj_list), sizeof(void *));
    EXPECT_TRUE((std::is_invocable_v<decltype(indxobj_destroy), indxobj_list *>));
}

TEST(PlatformBorder, AnErrorRecordIsACodeAnd199CharactersWithTheirNul) {
    EXPECT_EQ(offsetof(snmp_error_record, code), 0u);
    EXPECT_EQ(offsetof(snmp_error_record, text), 4u);
    EXPECT_EQ(sizeof(snmp_error_record), 4u + 199u + 1u);
}

TEST(PlatformBorder, AListOfPermittedVsansIsItsSizeAnd512Bytes) {
    EXPECT_EQ(offsetof(allowed_vsan_list, size), 0u);
    EXPECT_EQ(offsetof(allowed_vsan_list, bitmap), 4u);
    EXPECT_EQ(sizeof(allowed_vsan_list), 516u);
}

TEST(PlatformBorder, ANotificationsLengthIsASizeAndItsSendFlagAnInt) {
    EXPECT_TRUE((std::is_same_v<notification_callback,
                                netsnmp_variable_list *(*)(const mts_message *, oid *, size_t *, int *)>));
}

TEST(PlatformBorder, TheDebugNameIsAPointerVariable) {
    EXPECT_TRUE((std::is_same_v<decltype(sdwrap_dbg_modname), const char *>));
}

TEST(PlatformBorder, HistoryAndDebugOutputTakeTheirArgumentsInThisOrder) {
    EXPECT_TRUE((std::is_same_v<decltype(sdwrap_hist_event), void(uint32_t, uint32_t, const void *)>));
    // Not as a template's argument, where the attribute for its format would be lost.
    void (*const output)(const char *, const char *, ...) = buginf;
    EXPECT_EQ(output, &buginf);
}

TEST(PlatformBorder, AnEventHasThreeFixedOutputs) {
    EXPECT_TRUE((std::is_same_v<decltype(vsan_range_config_change_get_info),
                                uint32_t(const void *, uint32_t, uint32_t *, uint32_t *, uint32_t *)>));
}

} // namespace
