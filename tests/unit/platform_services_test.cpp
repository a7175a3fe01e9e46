// SPDX-License-Identifier: Apache-2.0
// The small libraries that speak to the switch: distribution service, port manager,
// and those that know it: VSAN events, error texts, heartbeat.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <future>

#include "contract/status_codes.h"
#include "platform_scripted_memory.h"
#include "pm.h"
#include "syserr.h"
#include "sysmgr.h"
#include "sysmgr/sysmgr_state.h"
#include "tdx.h"
#include "vsan.h"

namespace {

class Services : public testing::Test {
  protected:
    // Answers the next request with `status` and `data`.
    std::future<wire_frame> answer(uint32_t status, const bytes &data) {
        return std::async(std::launch::async, [this, status, data] {
            auto connection = manager.accept();
            const wire_frame request = connection.receive();
            connection.send(reply_bytes(request.correlation, status, data));
            return request;
        });
    }

    temporary_run_directory run;
    scripted_manager manager{run.path()};
};

TEST_F(Services, TdxAsksForTheFeatureAndReadsItsTwoSettings) {
    uint32_t setting = 7;
    auto request = answer(0, words({1, 0}));
    EXPECT_EQ(0u, is_tdx_enabled("fctimer", &setting));
    EXPECT_EQ(1u, setting);
    const bytes name = {'f', 'c', 't', 'i', 'm', 'e', 'r'};
    EXPECT_EQ(words({MTS_SERVICE_TDX, MTS_OP_TDX_STATE, 1, 7, 0, 7, 0}) + name, request.get().body);

    request = answer(0, words({1, 0}));
    EXPECT_EQ(0u, get_tdx_show_run_mode("fctimer", &setting));
    EXPECT_EQ(0u, setting);
    request.get();
    request = answer(0, words({0, 1}));
    EXPECT_EQ(0u, get_tdx_show_run_mode("fctimer", &setting));
    EXPECT_EQ(1u, setting);
    request.get();
}

TEST_F(Services, TdxFailuresLeaveTheSettingAsItWas) {
    uint32_t setting = 7;
    auto request = answer(STATUS_NO_SUCH_SERVICE, words({1, 1}));
    EXPECT_EQ(STATUS_NO_SUCH_SERVICE, is_tdx_enabled("fctimer", &setting));
    request.get();
    request = answer(0, words({1}));
    EXPECT_EQ(UINT32_MAX, is_tdx_enabled("fctimer", &setting));
    EXPECT_EQ(EPROTO, errno);
    request.get();
    manager.stop();
    EXPECT_EQ(UINT32_MAX, get_tdx_show_run_mode("fctimer", &setting));
    EXPECT_EQ(ECONNREFUSED, errno);
    for (const char *feature : {static_cast<const char *>(nullptr), ""}) {
        errno = 0;
        EXPECT_EQ(UINT32_MAX, is_tdx_enabled(feature, &setting));
        EXPECT_EQ(EINVAL, errno);
    }
    EXPECT_EQ(UINT32_MAX, is_tdx_enabled("fctimer", nullptr));
    EXPECT_EQ(7u, setting);
}

TEST_F(Services, TdxKeepsTheSettingsForAsLongAsTheSwitchSaysThatNothingHasChanged) {
    const manager_memory memory(5);
    std::vector<std::string> asked;
    std::promise<void> done;
    auto switch_side = std::async(std::launch::async, [&] {
        auto connection = manager.accept();
        give_memory(connection, memory);
        const auto serve = [&](const wire_frame &request, uint32_t status, const bytes &data, bool in_memory) {
            asked.emplace_back(request.body.begin() + MTS_WIRE_REQUEST_FIXED, request.body.end());
            if (!in_memory) {
                return connection.send(reply_bytes(request.correlation, status, data));
            }
            memory.put(reply_bytes(request.correlation, status, data));
            if (memory.finish(MTS_SHARED_ANSWERED)) {
                connection.send(knock_bytes());
            }
        };
        serve(connection.receive_any(), 0, words({0, 0}), false);
        const std::pair<uint32_t, bytes> answers[] = {
            {0, words({1, 0})}, {0, words({0, 1})},           {0, words({1, 1})}, {0, words({0, 1})},
            {0, words({1, 0})}, {STATUS_NO_SUCH_SERVICE, {}}, {0, words({1})},    {0, words({1, 1})},
        };
        for (const auto &[status, data] : answers) {
            connection.receive_any(); // a KNOCK
            serve(memory.take(), status, data, true);
        }
        done.get_future().wait();
    });
    const auto enabled = [](const char *feature = "fctimer") {
        uint32_t setting = 7;
        const uint32_t status = is_tdx_enabled(feature, &setting);
        return status == 0 ? setting : 100;
    };
    const auto show_run = [](const char *feature = "fctimer") {
        uint32_t setting = 7;
        const uint32_t status = get_tdx_show_run_mode(feature, &setting);
        return status == 0 ? setting : 100;
    };
    EXPECT_EQ(0u, enabled()) << "before there is memory, for this moment only";
    EXPECT_EQ(1u, enabled());
    EXPECT_EQ(1u, enabled());
    EXPECT_EQ(0u, show_run());
    EXPECT_EQ(0u, enabled("other"));
    EXPECT_EQ(1u, show_run("other"));
    memory->generation = 6;
    EXPECT_EQ(1u, show_run("other"));
    EXPECT_EQ(1u, enabled("other"));
    memory->generation = 0;
    EXPECT_EQ(0u, enabled("other"));
    EXPECT_EQ(1u, enabled("other"));
    memory->generation = 7;
    EXPECT_EQ(100u, enabled("other"));
    EXPECT_EQ(100u, enabled("other"));
    EXPECT_EQ(1u, enabled("other"));
    EXPECT_EQ(1u, show_run("other"));
    done.set_value();
    switch_side.get();
    EXPECT_EQ(asked, (std::vector<std::string>{"fctimer", "fctimer", "other", "other", "other", "other", "other",
                                               "other", "other"}));
}

TEST_F(Services, PortMembershipGoesToThePortManagerAndComesBackInHostOrder) {
    uint32_t vsan = 10;
    uint32_t if_index = 0x01000000;
    uint8_t is_static = 9;
    auto request = answer(0, words({20, 0x01001000, 1}));
    EXPECT_EQ(0u, pm_cmi_get_active_vsan_port_membership(mts_response_q, 2, &vsan, &if_index, &is_static, "al", 3, 5));
    EXPECT_EQ(words({MANAGER_SAP_PORT, MTS_OP_PORT_MEMBERSHIP, 2, 12, 3, 12, 2, 10, 0x01000000, 0}) + bytes({'a', 'l'}),
              request.get().body);
    EXPECT_EQ(20u, vsan);
    EXPECT_EQ(0x01001000u, if_index);
    EXPECT_EQ(1, is_static);
}

TEST_F(Services, PortMembershipFailuresLeaveThePairAsItWas) {
    uint32_t vsan = 10;
    uint32_t if_index = 5;
    uint8_t is_static = 9;
    const auto call = [&] {
        return pm_cmi_get_active_vsan_port_membership(mts_response_q, 1, &vsan, &if_index, &is_static, nullptr, 0, 5);
    };
    auto request = answer(STATUS_NO_SUCH_MEMBERSHIP, words({20, 6, 1}));
    EXPECT_EQ(STATUS_NO_SUCH_MEMBERSHIP, call());
    request.get();
    request = answer(0, words({20, 6}));
    EXPECT_EQ(UINT32_MAX, call());
    EXPECT_EQ(EPROTO, errno);
    request.get();
    EXPECT_EQ(10u, vsan);
    EXPECT_EQ(5u, if_index);
    EXPECT_EQ(9, is_static);
    EXPECT_EQ(UINT32_MAX,
              pm_cmi_get_active_vsan_port_membership(mts_response_q, 1, nullptr, &if_index, &is_static, nullptr, 0, 5));
    EXPECT_EQ(EINVAL, errno);
}

// VSAN events.

struct event_info {
    uint32_t status;
    uint32_t condition = 9;
    uint32_t vsan = 9;
    uint32_t is_created = 9;

    explicit event_info(const bytes &payload) {
        status = vsan_range_config_change_get_info(payload.data(), static_cast<uint32_t>(payload.size()), &condition,
                                                   &vsan, &is_created);
    }
};

TEST(VsanEvent, TheFixedPartIsDecodedIntoHostOrder) {
    const event_info info(words({3, 7, 1, 0}));
    EXPECT_EQ(0u, info.status);
    EXPECT_EQ(3u, info.condition);
    EXPECT_EQ(7u, info.vsan);
    EXPECT_EQ(1u, info.is_created);
}

TEST(VsanEvent, AttributesAreFoundByKeyAndStayInNetworkOrder) {
    const bytes payload = words({0, 7, 0, 2, 19, 1, 2, 1, 0x01020304, 2});
    uint32_t value = 0;
    uint32_t old_value = 0;
    const auto size = static_cast<uint32_t>(payload.size());
    EXPECT_EQ(0u, vsan_range_config_change_get_attr_values(payload.data(), size, 1, &value, &old_value));
    EXPECT_EQ(words({0x01020304}), bytes(reinterpret_cast<uint8_t *>(&value), reinterpret_cast<uint8_t *>(&value) + 4));
    EXPECT_EQ(htonl(2), old_value);
    EXPECT_EQ(0u, vsan_range_config_change_get_attr_values(payload.data(), size, 19, &value, &old_value));
    EXPECT_EQ(htonl(1), value);
}

TEST(VsanEvent, AMissingAttributeHasAStatusOfItsOwn) {
    const bytes payload = words({0, 7, 0, 1, 19, 1, 2});
    uint32_t value = 9;
    uint32_t old_value = 9;
    EXPECT_EQ(STATUS_NO_SUCH_ATTRIBUTE,
              vsan_range_config_change_get_attr_values(payload.data(), static_cast<uint32_t>(payload.size()), 2, &value,
                                                       &old_value));
    EXPECT_EQ(0u, value);
    EXPECT_EQ(0u, old_value);
}

TEST(VsanEvent, ThirtyTwoAttributesAreTheMost) {
    bytes payload = words({0, 7, 0, 32});
    for (uint32_t key = 0; key < 32; ++key) {
        payload = payload + words({key, key, key});
    }
    EXPECT_EQ(0u, event_info(payload).status);
    write_be32(payload.data() + 12, 33);
    EXPECT_NE(0u, event_info(payload + words({32, 0, 0})).status);
}

TEST(VsanEvent, InconsistentPayloadsAreRefusedAndClearTheOutputs) {
    const bytes cases[] = {
        {},
        words({0, 7, 0}),
        bytes(15),
        words({0, 7, 0, 1}),                // less than its count says
        words({0, 7, 0, 1, 19, 1}),         //
        words({0, 7, 0, 0, 19}),            // more than its count says
        words({0, 7, 0, UINT32_MAX}),       //
        words({0, 7, 0, 0x15555556, 1, 2}), // a count whose length in bytes exceeds 32 bits
        words({0, 7, 2, 0}),                // neither created nor not
        words({0, 0, 0, 0}),                // no VSAN
        words({0, 4096, 0, 0}),
    };
    for (const bytes &payload : cases) {
        SCOPED_TRACE(testing::PrintToString(payload));
        const event_info info(payload);
        EXPECT_EQ(STATUS_BAD_EVENT, info.status);
        EXPECT_EQ(0u, info.condition + info.vsan + info.is_created);
        uint32_t value = 9;
        uint32_t old_value = 9;
        EXPECT_EQ(STATUS_BAD_EVENT, vsan_range_config_change_get_attr_values(
                                        payload.data(), static_cast<uint32_t>(payload.size()), 19, &value, &old_value));
        EXPECT_EQ(0u, value + old_value);
    }
    uint32_t word = 9;
    EXPECT_EQ(STATUS_BAD_EVENT, vsan_range_config_change_get_info(nullptr, 16, &word, &word, &word));
}

// Error texts.

TEST(Syserr, AStatusIsRenderedWithItsCode) {
    EXPECT_STREQ("VSAN does not exist (0x40190001)", syserr_format(0x40190001));
    EXPECT_STREQ("VSAN does not exist", syserr2str(0x40190001));
    EXPECT_STREQ("Success (0x00000000)", syserr_format(0));
}

TEST(Syserr, UnknownCodesAreRenderedToo) {
    EXPECT_STREQ("Unknown status (0xdeadbeef)", syserr_format(0xdeadbeef));
    EXPECT_STREQ("Unknown status", syserr2str(0xdeadbeef));
    EXPECT_STREQ("No status was obtained (0xffffffff)", syserr_format(UINT32_MAX));
}

TEST(Syserr, EveryCodeHasATextOfItsOwnThatFits) {
    std::vector<std::string> texts;
#define TEST_STATUS_TEXT(code, name, text)                                                                             \
    EXPECT_STREQ(text, syserr2str(name));                                                                              \
    EXPECT_LE(strlen(syserr_format(name)), 199u);                                                                      \
    texts.push_back(syserr2str(name));
    PLATFORM_STATUS_CODES(TEST_STATUS_TEXT)
#undef TEST_STATUS_TEXT
    std::sort(texts.begin(), texts.end());
    EXPECT_EQ(texts.end(), std::adjacent_find(texts.begin(), texts.end()));
}

// Heartbeat.

TEST(Sysmgr, TheBracketIsCounted) {
    EXPECT_EQ(0, sysmgr_blocking_depth());
    sysmgr_heartbeat(1);
    sysmgr_heartbeat(1);
    EXPECT_EQ(2, sysmgr_blocking_depth());
    sysmgr_heartbeat(0);
    sysmgr_heartbeat(0);
    EXPECT_EQ(0, sysmgr_blocking_depth());
}

TEST(Sysmgr, AnUnbalancedCallIsReportedOnceAndNotCounted) {
    testing::internal::CaptureStderr();
    errno = ETIMEDOUT;
    sysmgr_heartbeat(0);
    EXPECT_EQ(ETIMEDOUT, errno);
    sysmgr_heartbeat(0);
    const std::string report = testing::internal::GetCapturedStderr();
    EXPECT_NE(std::string::npos, report.find("heartbeat(0) without"));
    EXPECT_EQ(report.find('\n'), report.size() - 1);
    EXPECT_EQ(0, sysmgr_blocking_depth());
}

} // namespace
