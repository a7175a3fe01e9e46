// SPDX-License-Identifier: Apache-2.0
// Ports and the settings of the whole switch: what is accepted, what is refused and why,
// and that the disk has what was answered.
#include "vswitch_changes_fixture.h"

using namespace vswitch;
using namespace vswitch_test;

namespace {

Buffer latency_record(uint32_t key, uint32_t value) {
    return words({key, value, 0});
}

TEST_F(ChangeTest, PortMovesToAnotherVsanAndKeepsTheRest) {
    Buffer record;
    append_interface_record(record, 101, {20, 0xfffffffe, true});
    ASSERT_EQ(send(124, MTS_KIND_SET, record), STATUS_SUCCESS);
    const Port expected{20, 0xfffffffe, true};
    EXPECT_EQ(data().ports.at(101), expected);
    EXPECT_FALSE(target_->model.member({10, 101}));
    EXPECT_TRUE(target_->model.member({20, 101}));
    EXPECT_EQ(restarted().ports.at(101), expected);
    ASSERT_EQ(move_port(*target_, operator_, 101, 1), STATUS_SUCCESS);
    EXPECT_EQ(data().ports.at(101), (Port{1, 0xfffffffe, true}));
}

TEST_F(ChangeTest, InterfaceRecordSRowStatusSaysNothingAboutThePort) {
    Buffer record;
    append_interface_record(record, 101, {20, 0, true});
    std::fill(record.begin() + 12, record.end(), uint8_t{0xff});
    EXPECT_EQ(send(124, MTS_KIND_SET, record), STATUS_SUCCESS);
}

TEST_F(ChangeTest, PortMovesOnlyToAVsanThatExists) {
    const SwitchData before = data();
    EXPECT_EQ(set_port(101, 11), STATUS_NO_SUCH_VSAN);
    EXPECT_EQ(set_port(101, 4095), STATUS_NO_SUCH_VSAN);
    for (const uint32_t vsan : {0u, 4096u, 0xffffffffu}) {
        EXPECT_EQ(set_port(101, vsan), STATUS_VSAN_OUT_OF_RANGE) << vsan;
    }
    for (const uint32_t if_index : {0u, 100u, 0xffffffffu}) {
        EXPECT_EQ(set_port(if_index, 20), STATUS_NO_SUCH_INTERFACE) << if_index;
    }
    EXPECT_EQ(data(), before);
}

TEST_F(ChangeTest, LinkAndDenyListAreKept) {
    ASSERT_EQ(set_link(*target_, operator_, 101, false), STATUS_SUCCESS);
    ASSERT_EQ(set_deny_list(*target_, operator_, 101, 7), STATUS_SUCCESS);
    const Port port = restarted().ports.at(101);
    EXPECT_FALSE(port.link_up);
    EXPECT_EQ(port.deny_list, 7u);
    EXPECT_EQ(port.vsan, 10u);
    EXPECT_EQ(set_link(*target_, operator_, 100, true), STATUS_NO_SUCH_INTERFACE);
    EXPECT_EQ(set_deny_list(*target_, operator_, 100, 7), STATUS_NO_SUCH_INTERFACE);
}

TEST_F(ChangeTest, RestrictedUserMovesOwnPortsIntoOwnVsans) {
    EXPECT_EQ(set_port(103, 10, "alice"), STATUS_SUCCESS);
    const SwitchData before = data();
    EXPECT_EQ(set_port(101, 20, "alice"), STATUS_VSAN_RESTRICTED);
    EXPECT_EQ(set_port(101, 1, "alice"), STATUS_VSAN_RESTRICTED);
    EXPECT_EQ(set_port(104, 10, "alice"), STATUS_INTERFACE_RESTRICTED);
    EXPECT_EQ(set_port(100, 10, "alice"), STATUS_INTERFACE_RESTRICTED) << "and is not told whether it exists";
    EXPECT_EQ(set_link(*target_, {"alice", false}, 104, true), STATUS_INTERFACE_RESTRICTED);
    EXPECT_EQ(set_deny_list(*target_, {"alice", false}, 104, 1), STATUS_INTERFACE_RESTRICTED);
    EXPECT_EQ(data(), before);
    EXPECT_EQ(set_port(104, 20, "bob"), STATUS_SUCCESS);
}

TEST_F(ChangeTest, LatenciesAre0To60000) {
    for (const uint32_t value : {60000u, 0u}) {
        EXPECT_EQ(send(136, MTS_KIND_SET, latency_record(17, value)), STATUS_SUCCESS);
        EXPECT_EQ(send(136, MTS_KIND_GET, latency_record(17, 0)), STATUS_SUCCESS);
        EXPECT_EQ(word(reply_.data, 4), value);
    }
    EXPECT_EQ(send(136, MTS_KIND_SET, latency_record(18, 1234)), STATUS_SUCCESS);
    for (const uint32_t value : {60001u, 0xffffffffu}) {
        for (const uint32_t key : {17u, 18u}) {
            EXPECT_EQ(send(136, MTS_KIND_SET, latency_record(key, value)), STATUS_BAD_LATENCY) << value;
        }
    }
    for (const uint32_t key : {0u, 16u, 19u, 0xffffffffu}) {
        EXPECT_EQ(send(136, MTS_KIND_SET, latency_record(key, 1)), STATUS_BAD_RECORD) << key;
    }
    const Settings settings = restarted().settings;
    EXPECT_EQ(settings.switch_latency, 0u);
    EXPECT_EQ(settings.network_latency, 1234u);
}

TEST_F(ChangeTest, SwitchWideInorderDeliveryIs1Or2) {
    EXPECT_EQ(send(140, MTS_KIND_SET, words({1})), STATUS_SUCCESS);
    EXPECT_EQ(restarted().settings.inorder_delivery, 1u);
    for (const uint32_t value : {0u, 3u, 0xffffffffu}) {
        EXPECT_EQ(send(140, MTS_KIND_SET, words({value})), STATUS_BAD_INORDER_DELIVERY) << value;
    }
    EXPECT_EQ(send(140, MTS_KIND_SET, words({2})), STATUS_SUCCESS);
    EXPECT_EQ(send(140, MTS_KIND_GET, {}), STATUS_BAD_LENGTH) << "a read has a length and no payload";
    EXPECT_EQ(data().settings.inorder_delivery, 2u);
}

TEST_F(ChangeTest, StatusEventsAreSwitchedAndKept) {
    EXPECT_TRUE(data().settings.status_events);
    ASSERT_EQ(send(8018, MTS_KIND_SET, words({2})), STATUS_SUCCESS);
    EXPECT_FALSE(restarted().settings.status_events);
    ASSERT_EQ(set_vsan(block_of(40)), STATUS_SUCCESS);
    ASSERT_EQ(set_port(106, 20), STATUS_SUCCESS);
    EXPECT_EQ(events(), Lines{"102: 106 1 20"}) << "ports' events have no such switch";
    ASSERT_EQ(send(8018, MTS_KIND_SET, words({1})), STATUS_SUCCESS);
    ASSERT_EQ(delete_vsan(40), STATUS_SUCCESS);
    EXPECT_EQ(events().size(), 1u);
    for (const uint32_t value : {0u, 3u}) {
        EXPECT_EQ(send(8018, MTS_KIND_SET, words({value})), STATUS_BAD_RECORD) << value;
    }
}

TEST_F(ChangeTest, RestrictedUserChangesNothingOfTheWholeSwitch) {
    const SwitchData before = data();
    EXPECT_EQ(send(136, MTS_KIND_SET, latency_record(17, 1), "alice"), STATUS_SWITCH_RESTRICTED);
    EXPECT_EQ(send(140, MTS_KIND_SET, words({1}), "alice"), STATUS_SWITCH_RESTRICTED);
    EXPECT_EQ(send(8018, MTS_KIND_SET, words({2}), "alice"), STATUS_SWITCH_RESTRICTED);
    EXPECT_EQ(send(127, MTS_KIND_SET, timer_record(8, 0, 0, 20000), "alice"), STATUS_SWITCH_RESTRICTED);
    for (const auto change : {tdx_enable, tdx_show_run, tdx_refuse}) {
        EXPECT_EQ(change(*target_, {"alice", false}, true), STATUS_SWITCH_RESTRICTED);
    }
    EXPECT_EQ(data(), before);
    EXPECT_EQ(send(136, MTS_KIND_SET, latency_record(17, 1), "bob"), STATUS_SUCCESS);
}

TEST_F(ChangeTest, SettingThatCannotBeWrittenIsRefused) {
    const SwitchData before = data();
    FullDisk disk;
    EXPECT_EQ(send(136, MTS_KIND_SET, latency_record(17, 1)), STATUS_STORE_FAILED);
    EXPECT_EQ(send(140, MTS_KIND_SET, words({1})), STATUS_STORE_FAILED);
    EXPECT_EQ(set_link(*target_, operator_, 101, false), STATUS_STORE_FAILED);
    EXPECT_EQ(tdx_enable(*target_, operator_, true), STATUS_STORE_FAILED);
    EXPECT_EQ(data(), before);
}

} // namespace
