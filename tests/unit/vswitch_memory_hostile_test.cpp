// SPDX-License-Identifier: Apache-2.0
// Clients that put other things into the shared memory than they should.
#include <atomic>
#include <vector>

#include "vswitch_memory_client.h"

using namespace vswitch;
using namespace vswitch_test;

namespace {

class HostileClientTest : public MemoryTest {
  protected:
    void expect_dropped(MemoryClient &client) {
        EXPECT_TRUE(client.socket.hung_up());
        EXPECT_EQ(connect()->vsan_count(), 1u);
    }

    // Posts bytes of which some lines are said to be blank, whatever stands there.
    static void put(MemoryClient &client, const Buffer &bytes, mts_shared_blanks blanks) {
        std::memcpy(client->request, bytes.data(), bytes.size());
        client->request_length = static_cast<uint32_t>(bytes.size());
        client->request_blanks = blanks;
        client.post_again();
    }

    // Whether the daemon has closed the connection, without waiting for it.
    static bool is_cut(MemoryClient &client) {
        pollfd state{client.socket.descriptor(), 0, 0};
        return poll(&state, 1, 0) == 1;
    }

    static Buffer vsan_count_request(uint32_t correlation) {
        return request_frame(correlation, MANAGER_SAP_VSAN, 125, 1, {}, 4);
    }
};

TEST_F(HostileClientTest, WhatIsNotOneRequestEndsTheConnection) {
    start();
    const Buffer request = vsan_count_request(1);
    Buffer other_magic = request;
    other_magic[0] = 'X';
    Buffer longer_body = request;
    longer_body[15] = 29;
    const std::pair<const char *, Buffer> cases[] = {
        {"nothing", {}},
        {"a byte", {'M'}},
        {"a header", Buffer(request.begin(), request.begin() + MTS_WIRE_HEADER)},
        {"a part of a request", Buffer(request.begin(), request.end() - 1)},
        {"a request and a byte", request + Buffer{'M'}},
        {"two requests", request + request},
        {"another magic", other_magic},
        {"a body that does not end", longer_body},
        {"a malformed request", words({MTS_WIRE_MAGIC, MTS_FRAME_REQUEST, 1, 4, 0})},
        {"a ping", sign(MTS_FRAME_PING, 1)},
        {"a knock", sign(MTS_FRAME_KNOCK)},
        {"a request for memory", sign(MTS_FRAME_SHARE, 1)},
        {"a subscription", words({MTS_WIRE_MAGIC, MTS_FRAME_SUBSCRIBE, 1, 4, 145})},
        {"a reply", words({MTS_WIRE_MAGIC, MTS_FRAME_REPLY, 1, 8, 0, 0})},
        {"rubbish", Buffer(MTS_SHARED_MAX_FRAME, 0xee)},
    };
    for (const auto &[name, bytes] : cases) {
        SCOPED_TRACE(name);
        const auto client = share();
        EXPECT_EQ(client->vsan_count(), 1u);
        client->post(bytes);
        expect_dropped(*client);
    }
    stop();
    EXPECT_EQ(target_.counters.dropped_connections, std::size(cases));
    EXPECT_EQ(target_.counters.connections, 0u);
}

TEST_F(HostileClientTest, LengthBeyondTheMemoryIsNotBelieved) {
    start();
    for (const uint32_t length : {MTS_SHARED_MAX_FRAME + 1, 0x7fffffffu, UINT32_MAX}) {
        const auto client = share();
        const Buffer request = vsan_count_request(1);
        std::memcpy((*client)->request, request.data(), request.size());
        (*client)->request_length = length;
        client->post_again();
        expect_dropped(*client);
    }
}

TEST_F(HostileClientTest, LinesSaidToBeBlankAreZerosWhateverStandsThere) {
    start();
    const Buffer request = request_frame(1, MANAGER_SAP_VSAN, 149, 1, vsan_block(1));
    Buffer zeros = request;
    const size_t last_line = request.size() / MTS_SHARED_LINE * MTS_SHARED_LINE;
    std::fill(zeros.begin() + MTS_SHARED_LINE, zeros.begin() + static_cast<ptrdiff_t>(last_line), uint8_t{0});
    const auto by_socket = connect();
    by_socket->send(zeros);
    const auto expected = by_socket->receive_answer();

    const auto client = share();
    client->post(request);
    EXPECT_NE(client->receive_answer(), expected);
    put(*client, request, {{UINT32_MAX - 1, UINT32_MAX}});
    EXPECT_EQ(client->receive_answer(), expected);

    put(*client, vsan_count_request(2), {{UINT32_MAX, UINT32_MAX}});
    EXPECT_EQ(word(client->receive_answer().data, 0), 1u) << "it has no whole line";

    put(*client, request, {{UINT32_MAX, UINT32_MAX}});
    expect_dropped(*client);
}

TEST_F(HostileClientTest, SignsWithABodyEndTheConnection) {
    start();
    for (const uint32_t type : {MTS_FRAME_SHARE, MTS_FRAME_KNOCK}) {
        const auto client = connect();
        client->send(words({MTS_WIRE_MAGIC, type, 0, 4, 0}));
        EXPECT_TRUE(client->closed_by_daemon());
    }
}

TEST_F(HostileClientTest, StatesAndLengthsThatKeepChangingHarmNobodyElse) {
    start();
    const auto sound = share();
    const auto client = share();
    const Buffer request = vsan_count_request(1);
    std::memcpy((*client)->request, request.data(), request.size());
    std::atomic<bool> is_over = false;
    std::thread changing([&] {
        uint32_t number = 0;
        while (!is_over) {
            ++number;
            (*client)->request_length = static_cast<uint32_t>(request.size());
            (*client)->request[number % 44] ^= static_cast<uint8_t>(number % 1000 == 0);
            (*client)->requester_sleeps = number;
            (*client)->state = number % 5;
            (*client)->switch_sleeps = number % 3;
            (*client)->generation = number;
            if (number % 100 == 0) {
                std::this_thread::yield();
            }
        }
    });
    for (int i = 0; i < 300; ++i) {
        ASSERT_EQ(sound->vsan_count(), 1u);
    }
    is_over = true;
    changing.join();
    EXPECT_EQ(connect()->vsan_count(), 1u);
}

TEST_F(HostileClientTest, RequestsWithoutEndWhileOneIsHeldUpEndTheConnection) {
    start();
    command(R"({"command": "fault.add", "service": 15, "opcode": 149, "action": "delay", "value": 60000})");
    const auto client = share();
    client->post(request_frame(1, MANAGER_SAP_VSAN, 149, 1, vsan_block(1)));
    EXPECT_EQ(client->await_end(), MTS_SHARED_ELSEWHERE);
    const Buffer large = request_frame(1, MANAGER_SAP_VSAN, 149, 1, Buffer(MTS_SHARED_MAX_FRAME - 44));
    int posted = 0;
    for (; posted < 1000 && !is_cut(*client); ++posted) {
        client->post(large);
        while ((*client)->state != MTS_SHARED_ELSEWHERE && !is_cut(*client)) {
            std::this_thread::yield();
        }
    }
    EXPECT_LT(posted, 1000);
    EXPECT_GT(posted, 10);
    expect_dropped(*client);
}

TEST_F(HostileClientTest, RequestsWithoutEndAndNoAnswerReadEndTheConnection) {
    start();
    const auto client = share();
    (*client)->requester_sleeps = 1; // every answer comes with a knock, which nobody reads
    client->socket.send_until_blocked(request_frame(1, MANAGER_SAP_VSAN, 149, 1, vsan_block(1)), 64u << 20, 100);
    const Buffer large = request_frame(2, MANAGER_SAP_VSAN, 149, 1, Buffer(MTS_SHARED_MAX_FRAME - 44));
    std::memcpy((*client)->request, large.data(), large.size());
    (*client)->request_length = static_cast<uint32_t>(large.size());
    const auto sound = share();
    int posted = 0;
    for (; posted < 1000 && !is_cut(*client); ++posted) {
        (*client)->state = MTS_SHARED_POSTED;
        ASSERT_EQ(sound->vsan_count(), 1u);
    }
    EXPECT_LT(posted, 1000);
    expect_dropped(*client);
}

TEST_F(HostileClientTest, ClientOfAnotherVersionIsServedOverTheSocketOnly) {
    start();
    const auto client = share();
    EXPECT_EQ((*client)->version, MTS_SHARED_VERSION);
    for (const uint32_t version : {0u, MTS_SHARED_VERSION + 1}) {
        (*client)->requester_version = version;
        ASSERT_TRUE(client->post(vsan_count_request(1)));
        EXPECT_EQ(client->await_end(), MTS_SHARED_IDLE);
        EXPECT_EQ(client->socket.vsan_count(), 1u);
    }
}

TEST_F(HostileClientTest, ClientThatGoesAwayWithARequestPostedIsForgotten) {
    start();
    for (int i = 0; i < 100; ++i) {
        const auto client = share();
        if (i % 3 == 0) {
            client->vsan_count();
        }
        i % 2 == 0 ? (void)client->post(vsan_count_request(1)) : (void)((*client)->state = MTS_SHARED_POSTED);
    }
    EXPECT_EQ(share()->vsan_count(), 1u);
    stop();
    EXPECT_EQ(target_.counters.connections, 0u);
}

} // namespace
