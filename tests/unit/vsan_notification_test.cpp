// SPDX-License-Identifier: Apache-2.0
// The VSAN manager's configuration events as VSAN status notifications.

#include "notification_test.h"

namespace {

constexpr uint32_t vsan_config = 145;
constexpr uint32_t oper_state = 19;
constexpr uint32_t admin_state = 1;

class VsanNotification : public NotificationTest {
  protected:
    VsanNotification() { event_of(7); }

    // A VSAN that is suspended and down.
    static void event_of(uint32_t vsan) {
        platform.vsan_event = scripted_vsan_event{0, 0, vsan, 0, {{oper_state, 2}, {admin_state, 2}}};
    }

    static std::vector<uint32_t> attributes_read() {
        std::vector<uint32_t> keys;
        for (const attribute_read &read : platform.attribute_reads) {
            keys.push_back(read.key);
        }
        return keys;
    }

    const mts_message message{bytes{1, 2, 3, 4, 5}};
};

TEST_F(VsanNotification, CarriesVsanAdminStateAndOperState) {
    platform.vsan_event->attributes = {{oper_state, 1}, {admin_state, 2}};
    const notification sent = deliver(vsan_config, &message);
    EXPECT_EQ(sent.send, 1);
    EXPECT_EQ(sent.name, below_root({1, 3, 0, 1}));
    EXPECT_EQ(sent.bindings, (std::vector<binding>{integer_binding(below_root({1, 1, 4, 0}), 7),
                                                   integer_binding(below_root({1, 1, 3, 1, 4, 7}), 2),
                                                   integer_binding(below_root({1, 1, 3, 1, 8, 7}), 1)}));
    EXPECT_EQ(platform.binding_lengths, (std::vector<size_t>{4, 4, 4}));
}

TEST_F(VsanNotification, EveryNotificationNamesItsOwnVsan) {
    for (const uint32_t vsan : {4095u, 1u, 7u}) {
        event_of(vsan);
        const notification sent = deliver(vsan_config, &message);
        ASSERT_EQ(sent.bindings.size(), 3u);
        EXPECT_EQ(sent.bindings[0], integer_binding(below_root({1, 1, 4, 0}), vsan));
        EXPECT_EQ(sent.bindings[1].name, below_root({1, 1, 3, 1, 4, vsan}));
        EXPECT_EQ(sent.bindings[2].name, below_root({1, 1, 3, 1, 8, vsan}));
    }
}

TEST_F(VsanNotification, StatesAreConvertedFromNetworkOrder) {
    platform.vsan_event->attributes = {{oper_state, 0x01020304}, {admin_state, 0xFFFFFFFE}};
    const notification sent = deliver(vsan_config, &message);
    ASSERT_EQ(sent.bindings.size(), 3u);
    EXPECT_EQ(sent.bindings[1].value, as_long(-2));
    EXPECT_EQ(sent.bindings[2].value, as_long(0x01020304));
}

TEST_F(VsanNotification, OperStateIsReadBeforeAdminStateFromTheSamePayload) {
    deliver(vsan_config, &message);
    EXPECT_EQ(attributes_read(), (std::vector<uint32_t>{oper_state, admin_state}));
    for (const attribute_read &read : platform.attribute_reads) {
        EXPECT_EQ(read.payload, message.payload->data());
        EXPECT_EQ(read.size, 5u);
    }
}

TEST_F(VsanNotification, NoMessageSendsNothing) {
    expect_nothing_sent(deliver(vsan_config, nullptr));
    EXPECT_TRUE(platform.history.empty()) << all_traces();
    EXPECT_TRUE(platform.attribute_reads.empty());
}

TEST_F(VsanNotification, AnUndecodablePayloadSendsNothing) {
    platform.vsan_event->status = some_failure;
    expect_nothing_sent(deliver(vsan_config, &message));
    const mts_message without_payload;
    platform.vsan_event.reset();
    expect_nothing_sent(deliver(vsan_config, &without_payload));
    EXPECT_TRUE(platform.attribute_reads.empty()) << "nothing is read from it";
}

TEST_F(VsanNotification, AnAttributeThatCannotBeReadSendsNothing) {
    platform.vsan_event->attributes = {{admin_state, 1}};
    expect_nothing_sent(deliver(vsan_config, &message));
    platform.vsan_event->attributes = {{oper_state, 1}};
    expect_nothing_sent(deliver(vsan_config, &message));
    platform.vsan_event->attributes = {};
    expect_nothing_sent(deliver(vsan_config, &message));
}

TEST_F(VsanNotification, AFurtherConditionIsSentOnlyWithBothStates) {
    for (const uint32_t condition : {1u, 0x80000000u}) {
        event_of(7);
        platform.vsan_event->condition = condition;
        const notification sent = deliver(vsan_config, &message);
        EXPECT_EQ(sent.send, 1);
        EXPECT_EQ(sent.bindings.size(), 3u);
        platform.vsan_event->attributes.erase(admin_state);
        expect_nothing_sent(deliver(vsan_config, &message));
    }
}

TEST_F(VsanNotification, OnlyAFurtherConditionWithdrawsTheNotificationBeforeTheStatesAreRead) {
    for (const uint32_t condition : {0u, 1u, 0x80000000u}) {
        SCOPED_TRACE(condition);
        platform.attribute_reads.clear();
        platform.vsan_event->condition = condition;
        EXPECT_EQ(deliver(vsan_config, &message, 7).send, 1);
        ASSERT_EQ(platform.attribute_reads.size(), 2u);
        for (const attribute_read &read : platform.attribute_reads) {
            EXPECT_EQ(read.send, condition == 0 ? 7 : 0);
        }
    }
}

TEST_F(VsanNotification, TheEventIsTracedWithWhatWasDecoded) {
    platform.vsan_event->is_created = 1;
    deliver(vsan_config, &message);
    ASSERT_EQ(platform.history.size(), 1u) << all_traces();
    EXPECT_TRACED(101, "handle_notifications(#)Vsan_id:7  is_vsan_created:1\n");
    platform.vsan_event->is_created = 0;
    platform.vsan_event->status = some_failure;
    deliver(vsan_config, &message);
    EXPECT_TRACED(101, "handle_notifications(#)Vsan_id:7  is_vsan_created:0\n");
}

TEST_F(VsanNotification, AsksNobody) {
    deliver(vsan_config, &message);
    EXPECT_TRUE(platform.requests.empty());
    EXPECT_TRUE(platform.journal.empty());
}

TEST_F(VsanNotification, IsTheCallbackOfItsEventClass) {
    EXPECT_EQ(platform.notifications.at(145), handle_notifications);
    EXPECT_EQ(platform.notifications.at(102), handle_port_memb_change_notifications);
}

} // namespace
