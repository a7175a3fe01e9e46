// SPDX-License-Identifier: Apache-2.0
// What a change publishes, to whom, in which order, and what becomes of events that
// nobody takes.
#include <thread>

#include "netsnmpagent_oryx.h"
#include "network/conversation.h"
#include "network/server.h"
#include "vswitch_changes_fixture.h"

using namespace vswitch;
using namespace vswitch_test;

namespace {

// Class 145: condition, VSAN, created, number of attributes, then key, value, former
// value for the administrative and the operational state. Class 102: ifIndex, former
// VSAN, new VSAN.
TEST_F(ChangeTest, CreatedVsanIsPublished) {
    ASSERT_EQ(set_vsan(block_of(40)), STATUS_SUCCESS);
    EXPECT_EQ(events(), Lines{"145: 0 40 1 2 1 1 0 19 2 0"});
}

TEST_F(ChangeTest, SuspendedAndResumedVsansArePublished) {
    ASSERT_EQ(set_word(10, 8, ADMIN_STATE_SUSPENDED), STATUS_SUCCESS);
    EXPECT_EQ(events(), Lines{"145: 0 10 0 2 1 2 1 19 2 1"}) << "it goes down, too";
    ASSERT_EQ(set_word(10, 8, ADMIN_STATE_ACTIVE), STATUS_SUCCESS);
    EXPECT_EQ(events(), Lines{"145: 0 10 0 2 1 1 2 19 1 2"});
    ASSERT_EQ(set_word(1, 8, ADMIN_STATE_SUSPENDED), STATUS_SUCCESS);
    EXPECT_EQ(events(), Lines{"145: 0 1 0 2 1 2 1 19 2 2"}) << "without a port it was down before";
}

TEST_F(ChangeTest, DeletedVsanIsPublishedBehindTheMovesOfItsPorts) {
    ASSERT_EQ(delete_vsan(10), STATUS_SUCCESS);
    EXPECT_EQ(events(),
              (Lines{"102: 101 10 1", "102: 102 10 1", "145: 0 1 0 2 1 1 1 19 1 2", "145: 1 10 0 2 1 3 1 19 2 1"}))
        << "and VSAN 1 goes up, having its first port that is up";
}

// Class 301: ifIndex, what is different, administrative state before and after, operational state
// before and after, traps. 1 is up or enabled, 2 is down or disabled.
TEST_F(ChangeTest, LastAndFirstLinkArePublished) {
    ASSERT_EQ(set_link(*target_, operator_, 101, false), STATUS_SUCCESS);
    EXPECT_EQ(events(), Lines{"301: 101 2 1 1 1 2 1"}) << "port 102 is still up";
    ASSERT_EQ(set_link(*target_, operator_, 102, false), STATUS_SUCCESS);
    EXPECT_EQ(events(), (Lines{"145: 0 10 0 2 1 1 1 19 2 1", "301: 102 2 1 1 1 2 1"}));
    ASSERT_EQ(set_link(*target_, operator_, 101, true), STATUS_SUCCESS);
    EXPECT_EQ(events(), (Lines{"145: 0 10 0 2 1 1 1 19 1 2", "301: 101 2 1 1 2 1 1"}));
    ASSERT_EQ(set_link(*target_, operator_, 105, false), STATUS_SUCCESS);
    EXPECT_EQ(events(), Lines{"301: 105 2 1 1 1 2 1"}) << "a suspended VSAN is down in any case";
}

TEST_F(ChangeTest, PortOutOfServiceIsPublishedAsAPulledCableIs) {
    const auto set_enabled = [&](uint32_t if_index, bool enabled) {
        Port port = data().ports.at(if_index);
        port.enabled = enabled;
        return vswitch::set_port(*target_, operator_, if_index, port);
    };
    ASSERT_EQ(set_enabled(103, false), STATUS_SUCCESS);
    EXPECT_EQ(events(), (Lines{"145: 0 20 0 2 1 1 1 19 2 1", "301: 103 3 1 2 1 2 1"}));
    ASSERT_EQ(set_enabled(103, true), STATUS_SUCCESS);
    EXPECT_EQ(events(), (Lines{"145: 0 20 0 2 1 1 1 19 1 2", "301: 103 3 2 1 2 1 1"}));
    ASSERT_EQ(set_enabled(104, false), STATUS_SUCCESS);
    EXPECT_EQ(events(), Lines{"301: 104 1 1 2 2 2 1"}) << "it was down without";
    ASSERT_EQ(set_link(*target_, operator_, 104, true), STATUS_SUCCESS);
    EXPECT_EQ(events(), Lines{}) << "nor does a cable bring it up then";
}

TEST_F(ChangeTest, EverySettingOfAPortIsPublished) {
    const auto change_port_so = [&](auto edit) {
        Port port = data().ports.at(101);
        edit(port);
        EXPECT_EQ(vswitch::set_port(*target_, operator_, 101, port), STATUS_SUCCESS);
        return events();
    };
    EXPECT_EQ(change_port_so([](Port &port) { port.alias = "x"; }), Lines{"301: 101 4 1 1 1 1 1"});
    EXPECT_EQ(change_port_so([](Port &port) { port.speed = 2000; }), Lines{"301: 101 8 1 1 1 1 1"});
    EXPECT_EQ(change_port_so([](Port &port) { port.traffic[0] = 1; }), Lines{"301: 101 16 1 1 1 1 1"});
    EXPECT_EQ(change_port_so([](Port &port) { port.traps = false; }), Lines{"301: 101 32 1 1 1 1 2"});
    EXPECT_EQ(change_port_so([](Port &port) {
                  port = Port();
                  port.enabled = false;
              }),
              Lines{"301: 101 63 1 2 1 2 1"});
    EXPECT_EQ(change_port_so([](Port &) {}), Lines{});
}

TEST_F(ChangeTest, MomentOfAPortThatGoesUpOrDownIsThatOfItsLastChange) {
    ASSERT_EQ(set_link(*target_, operator_, 101, false), STATUS_SUCCESS);
    const Timestamp moment = data().ports.at(101).last_change;
    const Buffer &payload = target_->events.staged().front().payload;
    EXPECT_EQ(word(payload, PORT_CHANGED_MOMENT), moment.seconds);
    EXPECT_EQ(word(payload, PORT_CHANGED_MOMENT + 4), moment.microseconds);
}

// Class 302: kind, which, key, value, former value, text.
TEST_F(ChangeTest, RenamedVsanIsPublished) {
    ASSERT_EQ(set_name(10, "other"), STATUS_SUCCESS);
    EXPECT_EQ(events(), Lines{"302: 1 10 0 0 0 other"});
    ASSERT_EQ(set_name(10, ""), STATUS_SUCCESS);
    EXPECT_EQ(events(), Lines{"302: 1 10 0 0 0"});
}

TEST_F(ChangeTest, TimersAndLatenciesArePublished) {
    ASSERT_EQ(set_vsan_timer(*target_, operator_, 10, Timer::r_a_tov, 20000, false), STATUS_SUCCESS);
    EXPECT_EQ(events(), Lines{"302: 2 10 8 20000 0"}) << "it had none of its own";
    ASSERT_EQ(set_vsan_timer(*target_, operator_, 10, Timer::r_a_tov, 21000, false), STATUS_SUCCESS);
    EXPECT_EQ(events(), Lines{"302: 2 10 8 21000 20000"});
    ASSERT_EQ(set_switch_timer(*target_, operator_, Timer::f_s_tov, 6000, false), STATUS_SUCCESS);
    EXPECT_EQ(events(), Lines{"302: 2 0 10 6000 5000"});
    ASSERT_EQ(set_latency(*target_, operator_, latency_kinds[0], 1), STATUS_SUCCESS);
    EXPECT_EQ(events(), Lines{"302: 2 0 17 1 500"});
}

TEST_F(ChangeTest, TimersOfADistributionSessionArePublishedOnceTheyAreCommitted) {
    ASSERT_EQ(tdx_enable(*target_, operator_, true), STATUS_SUCCESS);
    ASSERT_EQ(set_vsan_timer(*target_, operator_, 20, Timer::r_a_tov, 20000, false), STATUS_SUCCESS);
    ASSERT_EQ(set_switch_timer(*target_, operator_, Timer::f_s_tov, 6000, false), STATUS_SUCCESS);
    EXPECT_EQ(events(), Lines{});
    ASSERT_EQ(tdx_commit(*target_, operator_), STATUS_SUCCESS);
    EXPECT_EQ(events(), (Lines{"302: 2 0 10 6000 5000", "302: 2 20 8 20000 0"}));
}

TEST_F(ChangeTest, TextsOfTheSystemArePublished) {
    ASSERT_EQ(set_system_texts(*target_, operator_, {"alice", "vswitch", "rack 7"}), STATUS_SUCCESS);
    EXPECT_EQ(events(), (Lines{"302: 3 0 0 0 0 alice", "302: 3 2 0 0 0 rack 7"}));
}

TEST_F(ChangeTest, SuspendedVsanIsPublishedBeforeItsName) {
    Buffer block = block_of(10);
    store_word(block, VSAN_RECORD_AT + VSAN_RECORD_ADMIN_STATE, ADMIN_STATE_SUSPENDED);
    std::memcpy(&block[VSAN_RECORD_AT + VSAN_RECORD_NAME], "away", 5);
    ASSERT_EQ(set_vsan(block), STATUS_SUCCESS);
    EXPECT_EQ(events(), (Lines{"145: 0 10 0 2 1 2 1 19 2 1", "302: 1 10 0 0 0 away"}));
}

TEST_F(ChangeTest, PortsAndSettingsArePublishedWhetherOrNotVsansAre) {
    ASSERT_EQ(set_status_events(*target_, operator_, false), STATUS_SUCCESS);
    ASSERT_EQ(set_link(*target_, operator_, 103, false), STATUS_SUCCESS);
    ASSERT_EQ(set_name(10, "other"), STATUS_SUCCESS);
    EXPECT_EQ(events(), (Lines{"301: 103 2 1 1 1 2 1", "302: 1 10 0 0 0 other"}));
}

TEST_F(ChangeTest, MovedPortIsPublishedWithWhatItDoesToBothVsans) {
    ASSERT_EQ(set_port(103, 1), STATUS_SUCCESS);
    EXPECT_EQ(events(), (Lines{"102: 103 20 1", "145: 0 1 0 2 1 1 1 19 1 2", "145: 0 20 0 2 1 1 1 19 2 1"}));
    ASSERT_EQ(set_port(104, 10), STATUS_SUCCESS);
    EXPECT_EQ(events(), Lines{"102: 104 20 10"}) << "a port without link changes no VSAN";
}

TEST_F(ChangeTest, ChangesWithoutNewsPublishNothing) {
    ASSERT_EQ(set_deny_list(*target_, operator_, 101, 5), STATUS_SUCCESS);
    ASSERT_EQ(set_inorder_delivery(*target_, operator_, TRUTH_TRUE), STATUS_SUCCESS);
    ASSERT_EQ(set_name(10, "test"), STATUS_NAME_CONFLICT);
    EXPECT_EQ(events(), Lines{});
}

TEST(Events, PayloadIsLaidOutInNetworkByteOrder) {
    VsanEvent event;
    event.vsan = 0x0102;
    event.created = true;
    event.admin_state = 1;
    event.former_admin_state = 2;
    event.oper_state = 3;
    event.former_oper_state = 4;
    EXPECT_EQ(vsan_event(event).payload, (Buffer{0, 0, 0, 0, 0, 0, 1, 2, 0, 0, 0, 1,  0, 0, 0, 2, 0, 0, 0, 1,
                                                 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 19, 0, 0, 0, 3, 0, 0, 0, 4}));
    EXPECT_EQ(port_event(0x01020304, 5, 4095).payload, (Buffer{1, 2, 3, 4, 0, 0, 0, 5, 0, 0, 15, 255}));
}

TEST_F(ChangeTest, SubscriberOfVsansAndMovesHearsOfNothingElse) {
    Subscriber module(target_->events);
    module.subscribe({EVENT_CLASS_VSAN_CONFIG, EVENT_CLASS_PORT_MEMBERSHIP});
    ASSERT_EQ(set_link(*target_, operator_, 101, false), STATUS_SUCCESS);
    ASSERT_EQ(set_name(10, "other"), STATUS_SUCCESS);
    ASSERT_EQ(set_system_texts(*target_, operator_, {"a", "b", "c"}), STATUS_SUCCESS);
    target_->events.deliver();
    EXPECT_EQ(module.queued(), 0u);
    ASSERT_EQ(set_link(*target_, operator_, 102, false), STATUS_SUCCESS);
    target_->events.deliver();
    Buffer taken;
    module.take(taken, SIZE_MAX);
    EXPECT_EQ(module.delivered(), 1u) << "the VSAN went down";
    EXPECT_EQ(word(taken, MTS_WIRE_HEADER), uint32_t{EVENT_VSAN_CHANGED});
}

TEST(Events, SubscriberGetsItsClassesOnly) {
    EventHub hub;
    Subscriber both(hub), ports(hub), none(hub);
    both.subscribe({EVENT_VSAN_CHANGED, EVENT_PORT_MOVED});
    ports.subscribe({EVENT_PORT_MOVED});
    hub.publish(port_event(1, 2, 3));
    hub.publish(vsan_event({}));
    EXPECT_EQ(both.queued(), 0u) << "not before they are delivered";
    hub.deliver();
    hub.deliver();
    EXPECT_EQ(both.queued(), 2u);
    EXPECT_EQ(ports.queued(), 1u);
    EXPECT_EQ(none.queued(), 0u);
    EXPECT_EQ(hub.subscribers(), (std::vector<const Subscriber *>{&both, &ports}));
    EXPECT_EQ(hub.totals().published, 2u);
    EXPECT_EQ(hub.totals().missed, 0u);
}

TEST(Events, EventThatNobodyWantedIsCountedAsMissed) {
    EventHub hub;
    {
        Subscriber gone(hub);
        gone.subscribe({EVENT_VSAN_CHANGED, EVENT_PORT_MOVED});
    }
    Subscriber other(hub);
    other.subscribe({EVENT_VSAN_CHANGED});
    hub.publish(port_event(1, 2, 3));
    hub.publish(port_event(1, 3, 2));
    hub.publish(vsan_event({}));
    hub.deliver();
    EXPECT_EQ(hub.totals().missed, 2u);
    EXPECT_EQ(other.queued(), 1u);
}

TEST(Events, ChangesThatWaitAreToldOnceBehindWhatTheyPublishedAndNotCounted) {
    EventHub hub;
    Subscriber tool(hub), agent(hub);
    tool.subscribe({EVENT_PORT_MOVED, EVENT_ANY_CHANGE});
    agent.subscribe({EVENT_PORT_MOVED});
    hub.note_change();
    hub.publish(port_event(1, 2, 3));
    hub.deliver();
    hub.note_change();
    hub.deliver();
    EXPECT_EQ(tool.queued(), 2u) << "the second change is told with the first";
    EXPECT_EQ(agent.queued(), 1u);
    Buffer taken;
    tool.take(taken, SIZE_MAX);
    EXPECT_EQ(word(taken, MTS_WIRE_HEADER), EVENT_PORT_MOVED);
    const size_t first = 2 * MTS_WIRE_HEADER + MTS_WIRE_EVENT_FIXED + PORT_EVENT_SIZE;
    ASSERT_EQ(taken.size(), first + MTS_WIRE_EVENT_FIXED);
    EXPECT_EQ(word(taken, first), EVENT_ANY_CHANGE);
    hub.deliver();
    EXPECT_EQ(tool.queued(), 0u) << "nothing has changed since";
    hub.note_change();
    hub.deliver();
    EXPECT_EQ(tool.queued(), 1u);
    EXPECT_EQ(hub.totals().published, 1u);
    EXPECT_EQ(hub.totals().missed, 0u);
}

TEST(Events, WhoWaitsForAnyChangeIsNoAgent) {
    EventHub hub;
    Subscriber subscriber(hub);
    EXPECT_FALSE(subscriber.is_agent()) << "it has subscribed to nothing";
    subscriber.subscribe({EVENT_VSAN_CHANGED});
    EXPECT_TRUE(subscriber.is_agent());
    subscriber.subscribe({EVENT_VSAN_CHANGED, EVENT_ANY_CHANGE});
    EXPECT_FALSE(subscriber.is_agent());
}

TEST(Events, StormWithinTheBoundIsKeptAndWhatIsBeyondIsDroppedAndCounted) {
    EventHub hub;
    Subscriber slow(hub), fast(hub);
    for (Subscriber *subscriber : {&slow, &fast}) {
        subscriber->subscribe({EVENT_PORT_MOVED});
    }
    constexpr uint32_t excess = 10;
    for (uint32_t number = 0; number < Subscriber::max_queued_events; ++number) {
        hub.publish(port_event(number, 1, 2));
    }
    hub.deliver();
    Buffer taken;
    fast.take(taken, SIZE_MAX);
    EXPECT_EQ(fast.delivered(), Subscriber::max_queued_events);
    for (uint32_t number = 0; number < excess; ++number) {
        hub.publish(port_event(0x80000000u + number, 1, 2));
    }
    hub.deliver();
    EXPECT_EQ(slow.queued(), Subscriber::max_queued_events);
    EXPECT_EQ(slow.dropped(), excess);
    EXPECT_EQ(fast.queued(), excess) << "the slow one's loss is its own";
    EXPECT_EQ(fast.dropped(), 0u);
    EXPECT_EQ(hub.totals().dropped, excess);

    Buffer kept;
    slow.take(kept, SIZE_MAX);
    constexpr size_t frame = MTS_WIRE_HEADER + MTS_WIRE_EVENT_FIXED + 12;
    ASSERT_EQ(kept.size(), frame * Subscriber::max_queued_events);
    for (uint32_t number = 0; number < Subscriber::max_queued_events; ++number) {
        ASSERT_EQ(word(kept, frame * number + MTS_WIRE_HEADER + MTS_WIRE_EVENT_FIXED), number);
    }
}

TEST(Events, EventsThatASubscriberLeavesBehindAreCounted) {
    EventHub hub;
    {
        Subscriber gone(hub);
        gone.subscribe({EVENT_PORT_MOVED});
        hub.publish(port_event(1, 2, 3));
        hub.deliver();
    }
    EXPECT_EQ(hub.totals().dropped, 1u);
    EXPECT_EQ(hub.totals().missed, 0u);
}

TEST(Events, QueueIsBoundedInBytesToo) {
    EventHub hub;
    Subscriber subscriber(hub);
    subscriber.subscribe({7});
    for (int number = 0; number < 100; ++number) {
        hub.publish({7, Buffer(100000)});
    }
    hub.deliver();
    EXPECT_EQ(subscriber.queued(), Subscriber::max_queued_bytes / (100000 + MTS_WIRE_HEADER + MTS_WIRE_EVENT_FIXED));
    EXPECT_EQ(subscriber.queued() + subscriber.dropped(), 100u);
    Buffer taken;
    subscriber.take(taken, SIZE_MAX);
    hub.publish({7, Buffer(100000)});
    hub.deliver();
    EXPECT_EQ(subscriber.queued(), 1u) << "and has room again";
}

TEST(Events, TakingStopsAtTheLimit) {
    EventHub hub;
    Subscriber subscriber(hub);
    int wakes = 0;
    subscriber.on_events([&] { ++wakes; });
    subscriber.subscribe({EVENT_PORT_MOVED});
    for (uint32_t number = 0; number < 3; ++number) {
        hub.publish(port_event(number, 1, 2));
    }
    hub.deliver();
    EXPECT_EQ(wakes, 1) << "when the first event came";
    Buffer output(5);
    subscriber.take(output, 5);
    EXPECT_EQ(output.size(), 5u);
    subscriber.take(output, 6);
    EXPECT_EQ(subscriber.queued(), 2u);
    EXPECT_EQ(word(output, 5), MTS_WIRE_MAGIC);
    EXPECT_EQ(word(output, 9), uint32_t{MTS_FRAME_EVENT});
    EXPECT_EQ(word(output, 13), 0u) << "no correlation";
    EXPECT_EQ(word(output, 17), 16u);
    EXPECT_EQ(word(output, 21), EVENT_PORT_MOVED);
}

class EventServerTest : public testing::Test {
  protected:
    EventServerTest() : target_(parse_configuration(R"({"vsans": [{"id": 10}], "portCount": 4096})", "test"), Roles()) {
        ServerOptions options;
        options.run_directory = folder_.path();
        server_ = std::make_unique<Server>(target_, options);
        thread_ = std::thread([this] { server_->run([] {}); });
    }
    ~EventServerTest() override {
        server_->stop();
        thread_.join();
    }

    std::unique_ptr<Client> connect() { return std::make_unique<Client>(folder_ / MTS_SOCKET_NAME); }

    static Buffer port_record(uint32_t number, uint32_t vsan) {
        Buffer record;
        append_interface_record(record, port_if_index(number), {vsan, 0, false});
        return record;
    }

    TemporaryFolder folder_;
    ServedSwitch target_;
    std::unique_ptr<Server> server_;
    std::thread thread_;
};

TEST_F(EventServerTest, RequesterGetsItsAnswerBeforeTheEvent) {
    const auto client = connect();
    const auto watcher = connect();
    client->subscribe({EVENT_VSAN_CHANGED, EVENT_PORT_MOVED});
    watcher->subscribe({EVENT_PORT_MOVED});
    EXPECT_EQ(client->request(MANAGER_SAP_VSAN, 124, 3, port_record(0, 10)).type, uint32_t{MTS_FRAME_REPLY});
    for (Client *reader : {client.get(), watcher.get()}) {
        const auto event = reader->receive_answer();
        EXPECT_EQ(event.type, uint32_t{MTS_FRAME_EVENT});
        EXPECT_EQ(event.correlation, 0u);
        EXPECT_EQ(event.event_class, EVENT_PORT_MOVED);
        EXPECT_EQ(event.data, words({port_if_index(0), 1, 10}));
    }
}

TEST_F(EventServerTest, TenThousandEventsAtOnceReachASubscriberThatReadsLate) {
    const auto watcher = connect();
    const auto client = connect();
    watcher->subscribe({EVENT_PORT_MOVED});
    constexpr uint32_t ports = 4096;
    uint32_t expected = 0;
    for (const uint32_t vsan : {10u, 1u, 10u}) {
        for (uint32_t number = 0; number < ports; number += 512) {
            for (uint32_t at = number; at < number + 512; ++at) {
                client->send(request_frame(at, MANAGER_SAP_VSAN, 124, 3, port_record(at, vsan)));
            }
            for (uint32_t at = number; at < number + 512; ++at) {
                ASSERT_EQ(client->receive_answer().status, STATUS_SUCCESS);
            }
        }
        expected += ports;
    }
    ASSERT_EQ(client->request(MANAGER_SAP_VSAN, 149, 4, vsan_block(10)).status, STATUS_SUCCESS)
        << "4096 more events from one change";
    expected += ports;
    EXPECT_EQ(client->vsan_count(), 1u) << "the switch answers meanwhile";
    for (uint32_t number = 0; number < expected; ++number) {
        const auto event = watcher->receive_answer();
        ASSERT_EQ(event.event_class, EVENT_PORT_MOVED) << number;
        ASSERT_EQ(word(event.data, 0), port_if_index(number % ports)) << number;
    }
}

TEST_F(EventServerTest, SubscriberThatGoesAwayWithEventsWaitingHarmsNobody) {
    auto watcher = connect();
    const auto client = connect();
    watcher->subscribe({EVENT_VSAN_CHANGED});
    client->request(MANAGER_SAP_VSAN, 149, 4, vsan_block(10));
    watcher.reset();
    EXPECT_EQ(client->vsan_count(), 1u);
}

} // namespace
