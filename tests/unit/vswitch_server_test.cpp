// SPDX-License-Identifier: Apache-2.0
// The socket's loop, with limits small enough to be reached.
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "network/conversation.h"
#include "vswitch_server_fixture.h"

using namespace vswitch;
using namespace vswitch_test;

namespace {

TEST_F(ServerTest, RequestsOfSeveralClientsAreAnswered) {
    start();
    const auto one = connect();
    const auto other = connect();
    EXPECT_EQ(one->vsan_count(), 1u);
    EXPECT_EQ(other->vsan_count(), 1u);
    EXPECT_EQ(one->vsan_count(), 1u);
}

TEST_F(ServerTest, FrameThatArrivesByteByByteIsAnswered) {
    start();
    const auto client = connect();
    for (const uint8_t byte : request_frame(5, MANAGER_SAP_VSAN, 125, 1, {}, 4)) {
        ASSERT_TRUE(client->send({byte}));
    }
    EXPECT_EQ(client->receive_answer().correlation, 5u);
}

TEST_F(ServerTest, ManyRequestsAtOnceAreAnsweredInOrder) {
    start();
    const auto client = connect();
    constexpr uint32_t count = 300;
    std::thread sender([&] {
        for (uint32_t number = 0; number < count; ++number) {
            client->send(request_frame(number, MANAGER_SAP_VSAN, 149, 1, vsan_block(1)));
        }
    });
    for (uint32_t number = 0; number < count; ++number) {
        const auto answer = client->receive_answer();
        EXPECT_EQ(answer.correlation, number);
        EXPECT_EQ(answer.data.size(), VSAN_BLOCK_SIZE);
    }
    sender.join();
}

TEST_F(ServerTest, ClientThatHasFinishedSendingStillGetsItsAnswers) {
    start();
    const auto client = connect();
    client->send(request_frame(1, MANAGER_SAP_VSAN, 149, 1, vsan_block(1)));
    client->finish_sending();
    EXPECT_EQ(client->receive_answer().data.size(), VSAN_BLOCK_SIZE);
    EXPECT_TRUE(client->closed_by_daemon());
}

TEST_F(ServerTest, ClientThatDoesNotReadIsNotReadFromAndOthersAreServed) {
    start();
    const auto deaf = connect();
    const size_t taken =
        deaf->send_until_blocked(request_frame(1, MANAGER_SAP_VSAN, 149, 1, vsan_block(1)), 64u << 20, 300);
    EXPECT_LT(taken, 16u << 20) << "the answers must not pile up";
    EXPECT_EQ(connect()->vsan_count(), 1u);
}

TEST_F(ServerTest, ClientThatDoesNotReadIsDroppedInTheEnd) {
    options_.stall_timeout = std::chrono::milliseconds(200);
    start();
    const auto deaf = connect();
    deaf->send_until_blocked(request_frame(1, MANAGER_SAP_VSAN, 149, 1, vsan_block(1)), 64u << 20, 50);
    EXPECT_TRUE(deaf->hung_up());
    stop();
    EXPECT_EQ(target_.counters.dropped_connections, 1u);
    EXPECT_EQ(target_.counters.connections, 0u);
}

TEST_F(ServerTest, ClientThatLeavesAFrameUnfinishedIsDroppedButAnIdleOneIsNot) {
    options_.stall_timeout = std::chrono::milliseconds(200);
    start();
    const auto idle = connect();
    EXPECT_EQ(idle->vsan_count(), 1u);
    const auto slow = connect();
    slow->send({'M', 'T'});
    EXPECT_TRUE(slow->closed_by_daemon());
    EXPECT_EQ(idle->vsan_count(), 1u);
}

TEST_F(ServerTest, NumberOfConnectionsIsBoundedAndRoomIsUsedAgain) {
    options_.max_connections = 8;
    options_.idle_time = std::chrono::hours(1);
    start();
    std::vector<std::unique_ptr<Client>> clients;
    for (int number = 0; number < 8; ++number) {
        clients.push_back(connect());
        EXPECT_EQ(clients.back()->vsan_count(), 1u);
    }
    EXPECT_TRUE(connect()->closed_by_daemon());
    EXPECT_EQ(clients.front()->vsan_count(), 1u);
    clients.back()->finish_sending();
    EXPECT_TRUE(clients.back()->closed_by_daemon());
    EXPECT_EQ(connect()->vsan_count(), 1u);
}

TEST_F(ServerTest, IdleClientsDoNotLockTheOperatorOut) {
    options_.max_connections = 8;
    options_.idle_time = std::chrono::milliseconds(0);
    start();
    const auto subscriber = connect();
    subscriber->subscribe({EVENT_VSAN_CHANGED});
    std::vector<std::unique_ptr<Client>> idle;
    for (int number = 0; number < 7; ++number) {
        idle.push_back(connect());
        EXPECT_EQ(idle.back()->vsan_count(), 1u);
    }
    EXPECT_EQ(idle.front()->vsan_count(), 1u) << "the second one is silent for longest now";
    const auto operator_s = connect();
    EXPECT_EQ(operator_s->vsan_count(), 1u);
    EXPECT_TRUE(idle[1]->closed_by_daemon());
    EXPECT_EQ(idle.front()->vsan_count(), 1u);
    EXPECT_EQ(subscriber->vsan_count(), 1u) << "a subscriber has nothing to say and is not idle";
}

TEST_F(ServerTest, SubscriptionsDoNotLockTheOperatorOut) {
    options_.max_connections = 3;
    options_.idle_time = std::chrono::milliseconds(0);
    start();
    std::vector<std::unique_ptr<Client>> subscribers;
    for (int number = 0; number < 3; ++number) {
        subscribers.push_back(connect());
        subscribers.back()->subscribe({EVENT_VSAN_CHANGED});
    }
    EXPECT_EQ(connect()->vsan_count(), 1u);
    EXPECT_TRUE(subscribers.front()->closed_by_daemon());
    EXPECT_EQ(subscribers.back()->vsan_count(), 1u);
}

TEST_F(ServerTest, ConnectionCountersFollowTheConnections) {
    start();
    const auto client = connect();
    connect()->vsan_count();
    const auto gone = connect();
    gone->send({'x'});
    EXPECT_TRUE(gone->closed_by_daemon());
    stop();
    EXPECT_EQ(target_.counters.connections, 0u);
    EXPECT_EQ(target_.counters.dropped_connections, 1u);
}

TEST_F(ServerTest, StopRemovesTheSocketAndClosesTheConnections) {
    start();
    const auto client = connect();
    EXPECT_EQ(client->vsan_count(), 1u);
    stop();
    EXPECT_TRUE(client->closed_by_daemon());
    EXPECT_FALSE(std::filesystem::exists(folder_ / MTS_SOCKET_NAME));
}

TEST_F(ServerTest, LiveSocketIsNeverStolen) {
    start();
    EXPECT_TRUE(contains(refusal_of([&] { Server second(target_, options_); }), "Another vswitchd serves"));
    EXPECT_EQ(connect()->vsan_count(), 1u);
}

TEST_F(ServerTest, FileInTheSocketSPlaceIsLeftAlone) {
    write_file(folder_ / MTS_SOCKET_NAME, "precious");
    EXPECT_TRUE(contains(refusal_of([&] { Server server(target_, options_); }), "move it away"));
    EXPECT_EQ(file_content(folder_ / MTS_SOCKET_NAME), "precious");
}

TEST_F(ServerTest, PathThatNoSocketAddressCanHoldIsRefused) {
    options_.run_directory = folder_ / std::string(100, 'x');
    EXPECT_TRUE(contains(refusal_of([&] { Server server(target_, options_); }), "too long"));
    EXPECT_FALSE(std::filesystem::exists(options_.run_directory));
}

TEST_F(ServerTest, UnknownGroupIsRefused) {
    options_.group = "no such group";
    EXPECT_TRUE(contains(refusal_of([&] { Server server(target_, options_); }), "no group named"));
}

} // namespace
