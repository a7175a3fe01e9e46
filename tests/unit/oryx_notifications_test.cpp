// SPDX-License-Identifier: Apache-2.0
#include "oryx_agent.h"
#include "oryx_fake_platform.h"

#include <net-snmp/agent/agent_callbacks.h>

#include "netsnmpagent_oryx.h"
#include "notifications.h"

namespace {

const Oid TRAP = under_root({1, 3, 0, 1});
const Oid VSAN_ID = under_root({1, 1, 4, 0});

// The notifications that the agent sent: the names of each one's bindings.
struct Sent {
    std::vector<Oid> names;
    Oid trap_oid;
    std::vector<long> integers;
};
std::vector<Sent> sent;

int keep_notification(int, int, void *argument, void *) {
    Sent notification;
    for (const netsnmp_variable_list *binding = static_cast<const netsnmp_pdu *>(argument)->variables; binding;
         binding = binding->next_variable) {
        notification.names.emplace_back(binding->name, binding->name + binding->name_length);
        if (binding->type == ASN_OBJECT_ID) {
            notification.trap_oid.assign(binding->val.objid, binding->val.objid + binding->val_len / sizeof(oid));
        } else if (binding->type == ASN_INTEGER) {
            notification.integers.push_back(*binding->val.integer);
        }
    }
    sent.push_back(notification);
    return SNMPERR_SUCCESS;
}

// What the callback under test does with an event.
int send_flag = 1;
bool return_bindings = true;
size_t returned_trap_length = 0;
std::function<void()> during_callback;
std::vector<std::vector<uint8_t>> delivered;

netsnmp_variable_list *on_event(const mts_message *message, oid *trap_oid, size_t *trap_length, int *send) {
    const uint8_t *payload = static_cast<const uint8_t *>(mts_payload_get(message));
    delivered.emplace_back(payload, payload + mts_payload_size(message));
    if (during_callback) {
        during_callback();
    }
    std::copy(TRAP.begin(), TRAP.end(), trap_oid);
    *trap_length = returned_trap_length;
    *send = send_flag;
    if (!return_bindings) {
        return nullptr;
    }
    const uint32_t value = delivered.back()[0];
    return build_varbind(nullptr, &value, ASN_INTEGER, sizeof(value), VSAN_ID.data(), VSAN_ID.size());
}

netsnmp_variable_list *ignore_event(const mts_message *, oid *, size_t *, int *send) {
    *send = 0;
    return nullptr;
}

class NotificationsTest : public OryxTest {
  protected:
    void SetUp() override {
        OryxTest::SetUp();
        sent.clear();
        delivered.clear();
        send_flag = 1;
        return_bindings = true;
        returned_trap_length = TRAP.size();
        during_callback = nullptr;
        snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_SEND_TRAP2, keep_notification, nullptr);
    }
    void TearDown() override {
        oryx::notifications_stop();
        snmp_unregister_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_SEND_TRAP2, keep_notification, nullptr, 1);
    }

    // Lets the agent run until it has tried to connect `attempts` times in all.
    static void run_until_attempts(int attempts) {
        for (int turn = 0; turn < 20 && fake_switch.connect_attempts < attempts; ++turn) {
            agent_turn();
        }
        ASSERT_GE(fake_switch.connect_attempts, attempts);
    }

    // Does what the agent does when the timer is due, without waiting for it.
    static void fire_timer() {
        const snmp_alarm *timer = sa_find_next();
        ASSERT_NE(timer, nullptr);
        timer->thecallback(timer->clientreg, timer->clientarg);
    }

    // Events of one full turn, taken by it.
    static void storm() {
        for (unsigned i = 0; i < oryx::EVENTS_PER_TURN; ++i) {
            fake_switch.publish(145, {1});
        }
        agent_turn();
        ASSERT_EQ(delivered.size(), oryx::EVENTS_PER_TURN);
    }

    // What the agent's loop waits for beside requests.
    static int watched_descriptors() {
        int descriptors = 0;
        fd_set readable, writable, exceptional;
        FD_ZERO(&readable);
        FD_ZERO(&writable);
        FD_ZERO(&exceptional);
        netsnmp_external_event_info(&descriptors, &readable, &writable, &exceptional);
        return descriptors;
    }

    static void subscribe_and_connect() {
        ASSERT_EQ(register_for_notification(EVENT_CLASS_VSAN_CONFIG, on_event), 0);
        fire_timer();
        ASSERT_TRUE(fake_switch.connected());
    }
};

TEST_F(NotificationsTest, RegistrationDoesNotConnectButTheAgentsLoopDoes) {
    ASSERT_EQ(register_for_notification(EVENT_CLASS_VSAN_CONFIG, on_event), 0);
    ASSERT_EQ(register_for_notification(EVENT_CLASS_PORT_MEMBERSHIP, ignore_event), 0);
    EXPECT_EQ(fake_switch.connect_attempts, 0);
    run_until_attempts(1);
    ASSERT_EQ(fake_switch.subscriptions.size(), 1u);
    EXPECT_EQ(fake_switch.subscriptions[0], (std::vector<uint32_t>{145, 102}));
}

TEST_F(NotificationsTest, OnceConnectedItStopsTrying) {
    subscribe_and_connect();
    EXPECT_EQ(sa_find_next(), nullptr);
}

TEST_F(NotificationsTest, AnEventBecomesANotification) {
    subscribe_and_connect();
    fake_switch.publish(145, {7, 0, 0, 0});
    agent_turn();
    ASSERT_EQ(delivered.size(), 1u);
    ASSERT_EQ(sent.size(), 1u);
    const Oid uptime = {1, 3, 6, 1, 2, 1, 1, 3, 0}, trap = {1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};
    EXPECT_EQ(sent[0].names, (std::vector<Oid>{uptime, trap, VSAN_ID}));
    EXPECT_EQ(sent[0].trap_oid, TRAP);
    EXPECT_EQ(sent[0].integers, std::vector<long>{7});
}

TEST_F(NotificationsTest, ACallbackMayDecline) {
    subscribe_and_connect();
    // Bindings without the flag, the flag without bindings, a flag that is not 1.
    send_flag = 0;
    fake_switch.publish(145, {1});
    agent_turn();
    send_flag = 1;
    return_bindings = false;
    fake_switch.publish(145, {2});
    agent_turn();
    send_flag = 2;
    return_bindings = true;
    fake_switch.publish(145, {3});
    agent_turn();
    EXPECT_EQ(delivered.size(), 3u);
    EXPECT_TRUE(sent.empty());
}

TEST_F(NotificationsTest, ANotificationNeedsAnOidThatFits) {
    subscribe_and_connect();
    for (size_t length : {size_t{0}, size_t{MAX_OID_LEN + 1}, SIZE_MAX}) {
        returned_trap_length = length;
        fake_switch.publish(145, {1});
        agent_turn();
    }
    EXPECT_EQ(delivered.size(), 3u);
    EXPECT_TRUE(sent.empty());
}

TEST_F(NotificationsTest, ANotificationThatLacksABindingIsNotSent) {
    subscribe_and_connect();
    during_callback = [] { EXPECT_EQ(build_varbind(nullptr, "abc", ASN_INTEGER, 3, VSAN_ID.data(), 3), nullptr); };
    fake_switch.publish(145, {1});
    agent_turn();
    EXPECT_EQ(delivered.size(), 1u);
    EXPECT_TRUE(sent.empty());
    during_callback = nullptr;
    fake_switch.publish(145, {2});
    agent_turn();
    EXPECT_EQ(sent.size(), 1u) << "the next one is whole";
}

TEST_F(NotificationsTest, EventsOfOtherClassesAreDropped) {
    subscribe_and_connect();
    fake_switch.publish(102, {1});
    agent_turn();
    EXPECT_EQ(fake_switch.events_waiting(), 0u);
    EXPECT_TRUE(delivered.empty());
}

TEST_F(NotificationsTest, OneTurnOfTheLoopTakesABoundedNumberOfEvents) {
    subscribe_and_connect();
    for (unsigned i = 0; i < oryx::EVENTS_PER_TURN + 5; ++i) {
        fake_switch.publish(145, {1});
    }
    agent_turn();
    EXPECT_EQ(delivered.size(), oryx::EVENTS_PER_TURN);
    agent_poll();
    EXPECT_EQ(delivered.size(), oryx::EVENTS_PER_TURN) << "then there is a pause";
    while (delivered.size() < oryx::EVENTS_PER_TURN + 5) {
        agent_turn();
    }
    EXPECT_EQ(sa_find_next(), nullptr) << "fewer events are no storm";
}

TEST_F(NotificationsTest, APauseEndsWithTheSubscription) {
    subscribe_and_connect();
    storm();
    unregister_for_notification(EVENT_CLASS_VSAN_CONFIG);
    EXPECT_FALSE(fake_switch.connected());
    EXPECT_EQ(sa_find_next(), nullptr);
    EXPECT_EQ(watched_descriptors(), 0);
}

TEST_F(NotificationsTest, AConnectionThatBreaksDuringAPauseIsMadeAgain) {
    subscribe_and_connect();
    storm();
    fake_switch.hang_up();
    run_until_attempts(2);
    ASSERT_TRUE(fake_switch.connected());
    fake_switch.publish(145, {9});
    agent_turn();
    EXPECT_EQ(sent.size(), oryx::EVENTS_PER_TURN + 1);
}

TEST_F(NotificationsTest, ItTriesAgainUntilTheSwitchIsThere) {
    fake_switch.reachable = false;
    ASSERT_EQ(register_for_notification(EVENT_CLASS_VSAN_CONFIG, on_event), 0);
    run_until_attempts(2);
    EXPECT_FALSE(fake_switch.connected());
    fake_switch.reachable = true;
    run_until_attempts(3);
    EXPECT_TRUE(fake_switch.connected());
    fake_switch.publish(145, {9});
    agent_turn();
    EXPECT_EQ(sent.size(), 1u);
}

TEST_F(NotificationsTest, ABrokenConnectionIsMadeAgain) {
    subscribe_and_connect();
    fake_switch.hang_up();
    agent_turn();
    EXPECT_FALSE(fake_switch.connected());
    fire_timer();
    ASSERT_TRUE(fake_switch.connected());
    fake_switch.publish(145, {9});
    agent_turn();
    EXPECT_EQ(sent.size(), 1u);
}

TEST_F(NotificationsTest, WithoutSubscriptionsThereIsNoConnectionAndNoTimer) {
    subscribe_and_connect();
    unregister_for_notification(EVENT_CLASS_VSAN_CONFIG);
    EXPECT_FALSE(fake_switch.connected());
    // A subscription that ends before its timer ran leaves none behind.
    ASSERT_EQ(register_for_notification(EVENT_CLASS_VSAN_CONFIG, on_event), 0);
    unregister_for_notification(EVENT_CLASS_VSAN_CONFIG);
    EXPECT_EQ(sa_find_next(), nullptr);
    EXPECT_EQ(watched_descriptors(), 0);
}

TEST_F(NotificationsTest, ANewClassRenewsTheSubscription) {
    subscribe_and_connect();
    ASSERT_EQ(register_for_notification(EVENT_CLASS_PORT_MEMBERSHIP, on_event), 0);
    fire_timer();
    EXPECT_EQ(fake_switch.subscriptions.back(), (std::vector<uint32_t>{145, 102}));
}

TEST_F(NotificationsTest, ASecondRegistrationReplacesTheCallbackAndKeepsTheConnection) {
    subscribe_and_connect();
    ASSERT_EQ(register_for_notification(EVENT_CLASS_VSAN_CONFIG, ignore_event), 0);
    fake_switch.publish(145, {1});
    agent_turn();
    EXPECT_TRUE(delivered.empty());
    EXPECT_EQ(fake_switch.events_waiting(), 0u);
    EXPECT_EQ(fake_switch.connect_attempts, 1);
}

TEST_F(NotificationsTest, ACallbackMayEndItsOwnSubscription) {
    subscribe_and_connect();
    during_callback = [] {
        unregister_for_notification(EVENT_CLASS_VSAN_CONFIG);
        // Its event is still whole.
        EXPECT_TRUE(fake_switch.connected());
    };
    fake_switch.publish(145, {1});
    fake_switch.publish(145, {2});
    agent_turn();
    EXPECT_EQ(delivered.size(), 1u);
    EXPECT_FALSE(fake_switch.connected());
}

TEST_F(NotificationsTest, TheTableIsBounded) {
    for (uint32_t i = 0; i < oryx::NOTIFICATION_CLASSES; ++i) {
        EXPECT_EQ(register_for_notification(1000 + i, ignore_event), 0);
    }
    EXPECT_NE(register_for_notification(5000, ignore_event), 0);
    EXPECT_EQ(register_for_notification(1000, on_event), 0);
    unregister_for_notification(1003);
    EXPECT_EQ(register_for_notification(5000, ignore_event), 0);
}

TEST_F(NotificationsTest, UnknownClassesAndMissingCallbacksAreHarmless) {
    unregister_for_notification(4711);
    EXPECT_NE(register_for_notification(EVENT_CLASS_VSAN_CONFIG, nullptr), 0);
    EXPECT_EQ(sa_find_next(), nullptr);
}

using BuildVarbindTest = OryxTest;

TEST_F(BuildVarbindTest, BindingsAreAppendedInOrderAndTheHeadReturned) {
    const uint32_t number = 0xfffffffe;
    uint8_t text[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    Oid name = VSAN_ID;
    netsnmp_variable_list *first = build_varbind(nullptr, &number, ASN_INTEGER, 4, name.data(), name.size());
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(build_varbind(first, text, ASN_OCTET_STR, 8, name.data(), 11), first);
    // Both were copied.
    text[0] = 99;
    name[0] = 99;
    EXPECT_EQ(*first->val.integer, -2);
    EXPECT_EQ(Oid(first->name, first->name + first->name_length), VSAN_ID);
    ASSERT_NE(first->next_variable, nullptr);
    EXPECT_EQ(first->next_variable->val_len, 8u);
    EXPECT_EQ(first->next_variable->val.string[0], 1);
    EXPECT_EQ(first->next_variable->name_length, 11u);
    EXPECT_EQ(first->next_variable->next_variable, nullptr);
    snmp_free_varbind(first);
}

TEST_F(BuildVarbindTest, ANumberMayLieAnywhere) {
    alignas(8) uint8_t bytes[16] = {};
    const uint32_t number = 4711;
    memcpy(bytes + 1, &number, sizeof(number));
    netsnmp_variable_list *list = build_varbind(nullptr, bytes + 1, ASN_UNSIGNED, 4, VSAN_ID.data(), VSAN_ID.size());
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(*list->val.integer, 4711);
    snmp_free_varbind(list);
}

TEST_F(BuildVarbindTest, ABindingThatCannotBeMadeLeavesTheList) {
    const uint32_t number = 1;
    const oid long_name[MAX_OID_LEN + 1] = {1};
    netsnmp_variable_list *list = build_varbind(nullptr, &number, ASN_INTEGER, 4, VSAN_ID.data(), VSAN_ID.size());
    EXPECT_EQ(build_varbind(list, &number, ASN_INTEGER, 3, VSAN_ID.data(), VSAN_ID.size()), list);
    EXPECT_EQ(build_varbind(list, nullptr, ASN_INTEGER, 4, VSAN_ID.data(), VSAN_ID.size()), list);
    EXPECT_EQ(build_varbind(list, &number, ASN_INTEGER, 4, nullptr, 3), list);
    EXPECT_EQ(build_varbind(list, &number, ASN_INTEGER, 4, VSAN_ID.data(), 0), list);
    EXPECT_EQ(build_varbind(list, &number, ASN_INTEGER, 4, long_name, MAX_OID_LEN + 1), list);
    EXPECT_EQ(build_varbind(nullptr, &number, ASN_INTEGER, 3, VSAN_ID.data(), VSAN_ID.size()), nullptr);
    EXPECT_EQ(list->next_variable, nullptr);
    snmp_free_varbind(list);
}

TEST_F(BuildVarbindTest, AnEmptyTextIsABinding) {
    netsnmp_variable_list *list = build_varbind(nullptr, "", ASN_OCTET_STR, 0, VSAN_ID.data(), VSAN_ID.size());
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->val_len, 0u);
    snmp_free_varbind(list);
}

} // namespace
