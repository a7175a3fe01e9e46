// SPDX-License-Identifier: Apache-2.0
// Requests that come through memory shared with the client, and what is published in it.
#include <algorithm>
#include <csignal>
#include <ctime>
#include <sys/stat.h>
#include <vector>

#include "changes/changes.h"
#include "vswitch_memory_client.h"

using namespace vswitch;
using namespace vswitch_test;

namespace {

using SharedMemoryTest = MemoryTest;

constexpr char add_role[] = R"({"command": "role.add", "name": "r", "vsans": ["1"], "users": ["al"]})";

// What creates a VSAN.
Buffer new_vsan_block(uint32_t id) {
    Buffer block;
    append_vsan_block(block, id, new_vsan(id), 0);
    return block;
}

// A user's role of more bytes than the memory takes.
Roles large_roles() {
    std::string interfaces;
    for (int i = 1; i <= 600; ++i) {
        interfaces += (i == 1 ? "\"" : ", \"") + std::to_string(3 * i) + "\"";
    }
    return parse_roles(R"({"roles": [{"name": "r", "interfaces": [)" + interfaces + R"(], "users": ["al"]}]})", "test");
}

TEST_F(SharedMemoryTest, IsSealedAndOfTheRightSize) {
    start();
    const auto client = share();
    struct stat status {};
    ASSERT_EQ(fstat(client->descriptor(), &status), 0);
    EXPECT_EQ(status.st_size, static_cast<off_t>(sizeof(mts_shared_memory)));
    EXPECT_EQ(fcntl(client->descriptor(), F_GET_SEALS), F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL);
    EXPECT_NE(ftruncate(client->descriptor(), 0), 0);
    EXPECT_EQ((*client)->state, MTS_SHARED_IDLE);
    EXPECT_EQ(client->vsan_count(), 1u);
}

TEST_F(SharedMemoryTest, AskedForAgainReplacesTheFormer) {
    start();
    const auto client = share();
    const int former_descriptor = dup(client->descriptor());
    void *former = mmap(nullptr, sizeof(mts_shared_memory), PROT_READ | PROT_WRITE, MAP_SHARED, former_descriptor, 0);
    ASSERT_NE(former, MAP_FAILED);
    auto &abandoned = *static_cast<mts_shared_memory *>(former);
    for (int i = 0; i < 20; ++i) {
        client->share();
        EXPECT_NE((*client)->generation, 0u);
        abandoned.state = MTS_SHARED_POSTED;
        EXPECT_EQ(client->vsan_count(), 1u);
        EXPECT_EQ(abandoned.state, MTS_SHARED_POSTED) << "nobody looks there any more";
    }
    munmap(former, sizeof(mts_shared_memory));
    close(former_descriptor);
}

TEST_F(SharedMemoryTest, IsNotGivenWhileAnswersWaitInFrontOfIt) {
    start();
    const auto client = connect();
    client->send(sign(MTS_FRAME_PING, 1) + sign(MTS_FRAME_SHARE, 2));
    for (const uint32_t correlation : {1u, 2u}) {
        const auto answer = client->receive_answer();
        EXPECT_EQ(answer.type, static_cast<uint32_t>(MTS_FRAME_PONG));
        EXPECT_EQ(answer.correlation, correlation);
    }
}

TEST_F(SharedMemoryTest, IsNotGivenAgainWhileTheLastWasNotFetched) {
    start();
    const auto client = connect();
    for (int round = 0; round < 2; ++round) {
        client->send(sign(MTS_FRAME_SHARE, 1) + sign(MTS_FRAME_SHARE, 2) + sign(MTS_FRAME_SHARE, 3));
        // Fetched only when all three are answered: the daemon may be at the second by then.
        while (client->waiting_bytes() < 3 * MTS_WIRE_HEADER) {
            std::this_thread::yield();
        }
        for (const auto type : {MTS_FRAME_SHARED, MTS_FRAME_PONG, MTS_FRAME_PONG}) {
            EXPECT_EQ(client->receive_answer().type, static_cast<uint32_t>(type));
        }
    }
}

TEST_F(SharedMemoryTest, AnswersEveryRequestAsTheSocketDoes) {
    target_.roles = parse_roles(R"({"roles": [{"name": "r", "vsans": ["1-9"], "users": ["al"]}]})", "test");
    start();
    const auto by_socket = connect();
    const auto by_memory = share();
    const std::pair<uint32_t, uint32_t> numbers[] = {
        {MANAGER_SAP_VSAN, 149},
        {MANAGER_SAP_VSAN, 125},
        {MANAGER_SAP_VSAN, 126},
        {MANAGER_SAP_VSAN, 127},
        {MANAGER_SAP_VSAN, 124},
        {MANAGER_SAP_VSAN, 1},
        {MANAGER_SAP_PORT, MTS_OP_PORT_MEMBERSHIP},
        {MTS_SERVICE_ROLES, MTS_OP_ROLE_OF_USER},
        {MTS_SERVICE_TDX, MTS_OP_TDX_STATE},
        {99, 149},
    };
    const Buffer payloads[] = {{},
                               words({1}),
                               vsan_block(1),
                               vsan_block(4095),
                               timer_record(8, 0, 0),
                               words({1, port_if_index(0), 0}),
                               text_bytes("al"),
                               text_bytes("fctimer")};
    int with_data = 0;
    for (const auto &[service, opcode] : numbers) {
        for (const uint32_t kind : {0u, 1u, 2u, 5u}) {
            for (const Buffer &payload : payloads) {
                auto expected = by_socket->request(service, opcode, kind, payload);
                auto got = by_memory->request(service, opcode, kind, payload);
                EXPECT_EQ((*by_memory)->state, MTS_SHARED_ANSWERED);
                got.correlation = expected.correlation;
                EXPECT_EQ(got, expected) << service << ' ' << opcode << ' ' << kind;
                with_data += got.has_data;
            }
        }
    }
    EXPECT_GT(with_data, 10);
    EXPECT_FALSE(by_memory->socket.has_input());
}

TEST_F(SharedMemoryTest, ChangesWhatARequestSays) {
    start();
    const auto client = share();
    EXPECT_EQ(client->request(MANAGER_SAP_VSAN, 149, 3, new_vsan_block(10)).status, STATUS_SUCCESS);
    EXPECT_EQ(client->vsan_count(), 2u);
    EXPECT_EQ(connect()->vsan_count(), 2u);
}

TEST_F(SharedMemoryTest, MeetsEachFaultAsTheSocketDoes) {
    start();
    const auto by_memory = share();
    const auto by_socket = connect();
    for (const std::string action :
         {R"("status", "value": 1075380225)", R"("status", "value": 1075380225, "withData": true)", R"("no-data")",
          R"("short", "value": 3)", R"("delay", "value": 50)"}) {
        command(R"({"command": "fault.add", "service": 15, "opcode": 149, "action": )" + action + "}");
        auto expected = by_socket->request(MANAGER_SAP_VSAN, 149, 1, vsan_block(1));
        by_memory->post(request_frame(expected.correlation, MANAGER_SAP_VSAN, 149, 1, vsan_block(1)));
        EXPECT_EQ(by_memory->receive_answer(), expected) << action;
        EXPECT_EQ((*by_memory)->state, contains(action, "delay") ? MTS_SHARED_ELSEWHERE : MTS_SHARED_ANSWERED);
        command(R"({"command": "fault.clear"})");
    }
    command(R"({"command": "fault.add", "service": 15, "opcode": 149, "action": "drop", "times": 1})");
    by_memory->post(request_frame(7, MANAGER_SAP_VSAN, 149, 1, vsan_block(1)));
    EXPECT_EQ(by_memory->await_end(), MTS_SHARED_ELSEWHERE);
    EXPECT_EQ(by_memory->vsan_count(), 1u);
    EXPECT_FALSE(by_memory->socket.has_input());
    command(R"({"command": "fault.add", "service": 15, "opcode": 149, "action": "close", "times": 1})");
    by_memory->post(request_frame(7, MANAGER_SAP_VSAN, 149, 1, vsan_block(1)));
    EXPECT_EQ(by_memory->await_end(), MTS_SHARED_ELSEWHERE);
    EXPECT_TRUE(by_memory->socket.closed_by_daemon());
    EXPECT_EQ(by_socket->vsan_count(), 1u);
}

TEST_F(SharedMemoryTest, KeepsTheOrderOfWhatWasAskedOnTheSocket) {
    start();
    const auto client = share();
    command(R"({"command": "fault.add", "service": 15, "opcode": 149, "action": "delay", "value": 1500, "times": 1})");
    client->socket.send(request_frame(1, MANAGER_SAP_VSAN, 149, 3, new_vsan_block(10)) + sign(MTS_FRAME_PING, 2));
    // The fault is gone, and things may be kept again, once the request has met it.
    while ((*client)->generation == 0) {
        std::this_thread::yield();
    }
    client->post(request_frame(3, MANAGER_SAP_VSAN, 125, 1, {}, 4));
    EXPECT_EQ(client->await_end(), MTS_SHARED_ELSEWHERE);
    client->post(request_frame(4, MANAGER_SAP_VSAN, 125, 1, {}, 4));
    EXPECT_EQ(client->await_end(), MTS_SHARED_ELSEWHERE);
    for (const uint32_t correlation : {1u, 2u, 3u, 4u}) {
        const auto answer = client->socket.receive_answer();
        EXPECT_EQ(answer.correlation, correlation);
        if (correlation > 2) {
            EXPECT_EQ(word(answer.data, 0), 2u);
        }
    }
    // The daemon may not have noticed yet that the last of them has gone out.
    for (int asked = 0; asked < 100 && (*client)->state != MTS_SHARED_ANSWERED; ++asked) {
        EXPECT_EQ(client->vsan_count(), 2u);
    }
    EXPECT_EQ((*client)->state, MTS_SHARED_ANSWERED);
}

TEST_F(SharedMemoryTest, SendsLargeAnswersOverTheSocketAndSaysSoFirst) {
    target_.roles = large_roles();
    start();
    const auto client = share();
    const Buffer request = request_frame(5, MTS_SERVICE_ROLES, MTS_OP_ROLE_OF_USER, 1, text_bytes("al"));
    for (const uint32_t sleeps : {0u, 1u}) {
        (*client)->requester_sleeps = sleeps;
        client->post(request);
        EXPECT_EQ(client->await_end(), MTS_SHARED_ELSEWHERE);
        if (sleeps) {
            EXPECT_EQ(client->socket.receive(MTS_WIRE_HEADER), sign(MTS_FRAME_KNOCK));
        }
        const auto answer = client->socket.receive_answer();
        EXPECT_EQ(answer.correlation, 5u);
        EXPECT_EQ(answer.data.size(), 520u + 600 * 8);
    }
}

TEST_F(SharedMemoryTest, WakesAClientThatSleepsAndOnlyThat) {
    start();
    const auto client = share();
    for (int i = 0; i < 50; ++i) {
        (*client)->requester_sleeps = 1;
        EXPECT_EQ(client->vsan_count(), 1u);
        EXPECT_EQ((*client)->state, MTS_SHARED_ANSWERED);
        EXPECT_EQ(client->socket.receive(MTS_WIRE_HEADER), sign(MTS_FRAME_KNOCK));
        (*client)->requester_sleeps = 0;
        EXPECT_EQ(client->vsan_count(), 1u);
        EXPECT_EQ((*client)->state, MTS_SHARED_ANSWERED) << "having knocked is no reason to answer elsewhere";
        EXPECT_FALSE(client->socket.has_input());
    }
}

TEST_F(SharedMemoryTest, KnocksWithoutARequestDoNoHarm) {
    start();
    const auto client = share();
    const auto without = connect();
    for (int i = 0; i < 100; ++i) {
        client->socket.send(sign(MTS_FRAME_KNOCK));
        without->send(sign(MTS_FRAME_KNOCK));
    }
    EXPECT_EQ(client->vsan_count(), 1u);
    EXPECT_EQ(without->vsan_count(), 1u);
}

TEST_F(SharedMemoryTest, EventsComeOverTheSocket) {
    start();
    const auto client = share();
    client->socket.subscribe({145});
    EXPECT_EQ(client->request(MANAGER_SAP_VSAN, 149, 3, new_vsan_block(10)).status, STATUS_SUCCESS);
    EXPECT_EQ(client->socket.receive_answer().event_class, 145u);
}

TEST_F(SharedMemoryTest, ServesManyClientsAtOnce) {
    start();
    std::vector<std::unique_ptr<MemoryClient>> clients;
    for (int i = 0; i < 100; ++i) {
        clients.push_back(share());
    }
    for (int round = 0; round < 20; ++round) {
        for (uint32_t i = 0; i < clients.size(); ++i) {
            clients[i]->post(request_frame(i, MANAGER_SAP_VSAN, 125, 1, {}, 4));
        }
        for (uint32_t i = 0; i < clients.size(); ++i) {
            EXPECT_EQ(clients[i]->receive_answer().correlation, i);
        }
        clients.pop_back();
    }
    EXPECT_EQ(connect()->vsan_count(), 1u);
}

TEST_F(SharedMemoryTest, GenerationChangesBeforeAChangeIsAnswered) {
    start();
    const auto watcher = share();
    uint32_t generation = (*watcher)->generation;
    EXPECT_NE(generation, 0u);
    const auto expect_new = [&](const char *json) {
        command(json);
        EXPECT_NE((*watcher)->generation, 0u) << json;
        EXPECT_NE((*watcher)->generation, generation) << json;
        generation = (*watcher)->generation;
        EXPECT_EQ((*share())->generation, generation) << "in new memory too";
    };
    expect_new(add_role);
    expect_new(R"({"command": "role.remove", "name": "r"})");
    expect_new(R"({"command": "tdx.enable"})");
    expect_new(R"({"command": "tdx.show-run", "on": true})");
    expect_new(R"({"command": "tdx.show-run", "on": false})");
    expect_new(R"({"command": "tdx.disable"})");
    // Nothing that is kept depends on these.
    EXPECT_EQ(watcher->request(MANAGER_SAP_VSAN, 149, 3, new_vsan_block(10)).status, STATUS_SUCCESS);
    watcher->request(99, 1, 1, {});
    EXPECT_EQ((*watcher)->generation, generation);
}

TEST_F(SharedMemoryTest, NothingMayBeKeptWhileThereAreFaults) {
    start();
    const auto watcher = share();
    uint32_t generation = (*watcher)->generation;
    command(R"({"command": "fault.add", "service": 3, "action": "no-data"})");
    EXPECT_EQ((*watcher)->generation, 0u);
    EXPECT_EQ((*share())->generation, 0u);
    command(add_role);
    EXPECT_EQ((*watcher)->generation, 0u);
    command(R"({"command": "fault.clear"})");
    EXPECT_GT((*watcher)->generation, generation);
    generation = (*watcher)->generation;

    command(R"({"command": "fault.add", "service": 15, "action": "no-data", "times": 2})");
    EXPECT_EQ((*watcher)->generation, 0u);
    watcher->request(MANAGER_SAP_VSAN, 125, 1, {}, 4);
    EXPECT_EQ((*watcher)->generation, 0u);
    watcher->request(MANAGER_SAP_VSAN, 125, 1, {}, 4);
    EXPECT_GT((*watcher)->generation, generation);
}

TEST_F(SharedMemoryTest, GenerationChangesWhenRolesAreReadAgain) {
    start([this] { target_.roles = large_roles(); });
    const auto watcher = share();
    const uint32_t generation = (*watcher)->generation;
    EXPECT_EQ(watcher->vsan_count(), 1u);
    kill(getpid(), SIGHUP);
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(Client::patience);
    while ((*watcher)->generation == generation && std::chrono::steady_clock::now() < end) {
        std::this_thread::yield();
    }
    EXPECT_GT((*watcher)->generation, generation);
}

TEST_F(SharedMemoryTest, CostsNothingWhileNobodyAsks) {
    start();
    std::vector<std::unique_ptr<MemoryClient>> clients;
    for (int i = 0; i < 8; ++i) {
        clients.push_back(share());
    }
    for (int i = 0; i < 200; ++i) {
        clients[static_cast<size_t>(i) % clients.size()]->vsan_count();
    }
    clockid_t clock;
    ASSERT_EQ(pthread_getcpuclockid(thread_.native_handle(), &clock), 0);
    const auto used = [&] {
        timespec time{};
        clock_gettime(clock, &time);
        return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
    };
    while (std::ranges::any_of(clients, [](const auto &client) { return (*client)->switch_sleeps == 0; })) {
        std::this_thread::yield();
    }
    const auto before = used();
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_LT(used() - before, std::chrono::milliseconds(20));
    EXPECT_EQ(clients.front()->vsan_count(), 1u);
}

} // namespace
