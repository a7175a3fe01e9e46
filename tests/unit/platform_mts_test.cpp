// SPDX-License-Identifier: Apache-2.0
// Requests and replies of the message service's client.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <future>
#include <thread>

#include "platform_mts_client.h"

using namespace std::chrono_literals;

namespace {

// The unit of the wait class.
constexpr auto UNIT = 250ms;

class Mts : public testing::Test {
  protected:
    // Runs the manager's side of a test beside it.
    template <class Script> std::future<void> play(Script script) {
        return std::async(std::launch::async, std::move(script));
    }

    temporary_run_directory run;
    scripted_manager manager{run.path()};
};

TEST_F(Mts, ARequestCarriesAllItsArguments) {
    wire_frame seen;
    auto script = play([&] { seen = manager.accept().serve(); });
    uint32_t length = 3;
    void *reply = nullptr;
    EXPECT_EQ(0u, cmi_req_resp(127, 5, "abc", &reply, &length, "alice", 77, MANAGER_SAP_PORT, mts_response_q, 4));
    script.get();
    EXPECT_EQ(static_cast<uint32_t>(MTS_FRAME_REQUEST), seen.type);
    EXPECT_EQ(words({46, 127, 5, 3, 77, 3, 5}) + bytes({'a', 'b', 'c', 'a', 'l', 'i', 'c', 'e'}), seen.body);
}

TEST_F(Mts, ARequestWithoutPayloadMayCarryALength) {
    wire_frame seen;
    auto script = play([&] { seen = manager.accept().serve(); });
    uint32_t length = 8;
    void *reply = nullptr;
    EXPECT_EQ(0u, cmi_req_resp(126, 1, nullptr, &reply, &length, nullptr, 0, MANAGER_SAP_VSAN, mts_response_q, 4));
    script.get();
    EXPECT_EQ(words({15, 126, 1, 8, 0, 0, 0}), seen.body);
    EXPECT_EQ(0u, length);
}

TEST_F(Mts, AReplyGivesItsStatusAndData) {
    auto script = play([&] {
        auto connection = manager.accept();
        connection.send(reply_bytes(connection.receive().correlation, 0, words({1, 2})));
    });
    const answer got = ask();
    script.get();
    EXPECT_EQ(0u, got.status);
    EXPECT_EQ(words({1, 2}), got.data);
    EXPECT_EQ(8u, got.length);
}

TEST_F(Mts, AFailedRequestMayCarryData) {
    auto script = play([&] {
        auto connection = manager.accept();
        connection.send(reply_bytes(connection.receive().correlation, 0x40190001, words({9})));
    });
    const answer got = ask();
    script.get();
    EXPECT_EQ(0x40190001u, got.status);
    EXPECT_EQ(words({9}), got.data);
}

TEST_F(Mts, NoDataLeavesTheReplyPointerNull) {
    auto script = play([&] { manager.accept().serve(); });
    const answer got = ask();
    script.get();
    EXPECT_EQ(0u, got.status);
    EXPECT_FALSE(got.data.has_value());
    EXPECT_EQ(0u, got.length);
}

TEST_F(Mts, DataOfNoBytesSetTheReplyPointer) {
    auto script = play([&] {
        auto connection = manager.accept();
        connection.send(reply_bytes(connection.receive().correlation, 0, {}));
    });
    const answer got = ask();
    script.get();
    EXPECT_EQ(bytes{}, got.data);
    EXPECT_EQ(0u, got.length);
}

TEST_F(Mts, DataAreDroppedWithoutAReplyPointer) {
    auto script = play([&] {
        auto connection = manager.accept();
        connection.send(reply_bytes(connection.receive().correlation, 0, words({1})));
    });
    uint32_t length = 4;
    EXPECT_EQ(0u, cmi_req_resp(149, 3, "abcd", nullptr, &length, nullptr, 0, MANAGER_SAP_VSAN, mts_response_q, 4));
    script.get();
    EXPECT_EQ(0u, length);
}

TEST_F(Mts, LargestPayloadUserAndReplyArriveWhole) {
    bytes payload(MTS_WIRE_MAX_PAYLOAD);
    bytes data(MTS_WIRE_MAX_BODY - MTS_WIRE_REPLY_FIXED);
    for (size_t i = 0; i < data.size(); ++i) {
        data[i] = static_cast<uint8_t>(i * 7);
        payload[i % payload.size()] = static_cast<uint8_t>(i * 3);
    }
    const std::string user(MTS_WIRE_MAX_USER, 'u');
    wire_frame seen;
    auto script = play([&] {
        auto connection = manager.accept();
        seen = connection.receive();
        connection.send(reply_bytes(seen.correlation, 0, data));
    });
    uint32_t length = MTS_WIRE_MAX_PAYLOAD;
    void *reply = nullptr;
    EXPECT_EQ(0u, cmi_req_resp(149, 3, payload.data(), &reply, &length, user.c_str(), 0, MANAGER_SAP_VSAN,
                               mts_response_q, 4));
    script.get();
    ASSERT_EQ(data.size(), length);
    EXPECT_EQ(0, memcmp(reply, data.data(), length));
    free(reply);
    EXPECT_EQ(payload + bytes(user.begin(), user.end()), bytes(seen.body.begin() + 28, seen.body.end()));
}

TEST_F(Mts, BadArgumentsAreRefusedWithoutARequest) {
    const auto refused = [](uint32_t *length, mts_queue *queue, const char *user, const void *payload) {
        void *reply = &length;
        errno = 0;
        const uint32_t status = cmi_req_resp(149, 1, payload, &reply, length, user, 0, MANAGER_SAP_VSAN, queue, 4);
        EXPECT_EQ(UINT32_MAX, status);
        EXPECT_EQ(nullptr, reply);
        return errno;
    };
    uint32_t length = 0;
    EXPECT_EQ(EINVAL, refused(nullptr, mts_response_q, nullptr, nullptr));
    EXPECT_EQ(EINVAL, refused(&length, nullptr, nullptr, nullptr));
    const bytes payload(MTS_WIRE_MAX_PAYLOAD + 1);
    length = MTS_WIRE_MAX_PAYLOAD + 1;
    EXPECT_EQ(EMSGSIZE, refused(&length, mts_response_q, nullptr, payload.data()));
    EXPECT_EQ(0u, length);
    length = UINT32_MAX;
    EXPECT_EQ(EMSGSIZE, refused(&length, mts_response_q, nullptr, nullptr));
    length = 0;
    EXPECT_EQ(EMSGSIZE, refused(&length, mts_response_q, std::string(MTS_WIRE_MAX_USER + 1, 'u').c_str(), nullptr));
    EXPECT_FALSE(manager.has_visitor());
}

TEST_F(Mts, AReplyMayComeInPieces) {
    auto script = play([&] {
        auto connection = manager.accept();
        for (const uint8_t byte : reply_bytes(connection.receive().correlation, 0, words({3, 4, 5}))) {
            connection.send({byte});
        }
    });
    const answer got = ask();
    script.get();
    EXPECT_EQ(words({3, 4, 5}), got.data);
}

TEST_F(Mts, WhatIsNoReplyEndsTheRequestAndTheConnection) {
    using make = bytes (*)(uint32_t);
    const std::pair<const char *, make> cases[] = {
        {"garbage",
         [](uint32_t) {
             return bytes{'H', 'T', 'T', 'P'};
         }},
        {"another version",
         [](uint32_t c) {
             return words({MTS_WIRE_MAGIC + 1, MTS_FRAME_REPLY, c, 8, 0, 0});
         }},
        {"type 0",
         [](uint32_t c) {
             return frame_bytes(0, c, words({0, 0}));
         }},
        {"type 10",
         [](uint32_t c) {
             return frame_bytes(10, c, words({0, 0}));
         }},
        {"memory with a body",
         [](uint32_t c) {
             return frame_bytes(MTS_FRAME_SHARED, c, words({0, 0}));
         }},
        {"memory instead", [](uint32_t c) { return frame_bytes(MTS_FRAME_SHARED, c, {}); }},
        {"a knock with a body", [](uint32_t) { return frame_bytes(MTS_FRAME_KNOCK, 0, words({0})); }},
        {"a request", [](uint32_t c) { return frame_bytes(MTS_FRAME_REQUEST, c, bytes(28)); }},
        {"an event", [](uint32_t) { return frame_bytes(MTS_FRAME_EVENT, 0, words({145})); }},
        {"a pong instead", [](uint32_t c) { return pong_bytes(c); }},
        {"too long",
         [](uint32_t c) {
             return words({MTS_WIRE_MAGIC, MTS_FRAME_REPLY, c, MTS_WIRE_MAX_BODY + 1});
         }},
        {"too short", [](uint32_t c) { return frame_bytes(MTS_FRAME_REPLY, c, words({0})); }},
        {"empty", [](uint32_t c) { return frame_bytes(MTS_FRAME_REPLY, c, {}); }},
        {"data without mark",
         [](uint32_t c) {
             return frame_bytes(MTS_FRAME_REPLY, c, words({0, 0, 1}));
         }},
        {"mark 2",
         [](uint32_t c) {
             return frame_bytes(MTS_FRAME_REPLY, c, words({0, 2, 1}));
         }},
        {"the status that is none", [](uint32_t c) { return reply_bytes(c, UINT32_MAX); }},
        {"a correlation never used", [](uint32_t c) { return reply_bytes(c + 1, 0); }},
    };
    for (const auto &[name, bad_reply] : cases) {
        SCOPED_TRACE(name);
        auto script = play([&] {
            auto first = manager.accept();
            first.send(bad_reply(first.receive().correlation));
            EXPECT_TRUE(first.is_closed_by_client());
            manager.accept().serve();
        });
        const answer got = ask();
        EXPECT_EQ(EPROTO, got.error);
        EXPECT_FALSE(got.data.has_value());
        EXPECT_LT(got.time, 4 * UNIT);
        EXPECT_EQ(0u, ask().status);
        script.get();
    }
}

TEST_F(Mts, WithoutASocketThereIsNoManager) {
    unlink(manager.path().c_str());
    EXPECT_EQ(ENOENT, ask().error);
}

TEST_F(Mts, AKilledManagersSocketRefuses) {
    manager.stop();
    EXPECT_EQ(ECONNREFUSED, ask().error);
}

TEST_F(Mts, ARunDirectoryTooLongForASocketIsRefused) {
    setenv(RUN_DIRECTORY_VARIABLE, run.file(std::string(200, 'x')).c_str(), 1);
    EXPECT_EQ(ENAMETOOLONG, ask().error);
}

TEST_F(Mts, ExhaustedDescriptorsFailTheRequestAndNothingElse) {
    rlimit former;
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &former));
    const rlimit small = {64, former.rlim_max};
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &small));
    std::vector<int> taken;
    for (int fd; (fd = open("/dev/null", O_RDONLY | O_CLOEXEC)) != -1;) {
        taken.push_back(fd);
    }
    EXPECT_EQ(EMFILE, ask().error);
    for (const int fd : taken) {
        close(fd);
    }
    setrlimit(RLIMIT_NOFILE, &former);
    auto script = play([&] { manager.accept().serve(); });
    EXPECT_EQ(0u, ask().status);
    script.get();
}

TEST_F(Mts, OneConnectionServesAllRequests) {
    auto script = play([&] {
        auto connection = manager.accept();
        for (int i = 0; i < 100; ++i) {
            connection.serve();
        }
    });
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(0u, ask().status);
    }
    script.get();
    EXPECT_FALSE(manager.has_visitor());
}

TEST_F(Mts, AManagerThatDiesDuringARequestIsReportedAndNotAskedAgain) {
    auto script = play([&] {
        auto connection = manager.accept();
        connection.receive();
        connection.close();
    });
    const answer got = ask();
    script.get();
    EXPECT_EQ(ECONNRESET, got.error);
    EXPECT_LT(got.time, 4 * UNIT);
    EXPECT_FALSE(manager.has_visitor());
}

TEST_F(Mts, AManagerThatDiesWithTheRequestUnreadIsReported) {
    auto script = play([&] {
        auto connection = manager.accept();
        EXPECT_EQ(static_cast<uint32_t>(MTS_FRAME_SHARE), connection.receive_any().type);
        manager_connection::await(connection.descriptor());
        connection.close();
    });
    EXPECT_EQ(ECONNRESET, ask().error);
    script.get();
}

TEST_F(Mts, AReplyCutOffByTheManagersDeathIsReported) {
    auto script = play([&] {
        auto connection = manager.accept();
        bytes reply = reply_bytes(connection.receive().correlation, 0, words({1, 2, 3}));
        reply.pop_back();
        connection.send(reply);
    });
    const answer got = ask();
    script.get();
    EXPECT_EQ(ECONNRESET, got.error);
    EXPECT_FALSE(got.data.has_value());
}

TEST_F(Mts, ARestartBetweenRequestsGoesUnnoticed) {
    {
        auto script = play([&] { manager.accept().serve(); });
        EXPECT_EQ(0u, ask().status);
        script.get();
    }
    manager.stop();
    EXPECT_EQ(ECONNREFUSED, ask().error);
    scripted_manager next(run.path());
    auto script = play([&] { next.accept().serve(); });
    EXPECT_EQ(0u, ask().status);
    script.get();
}

TEST_F(Mts, WhatComesUnaskedIsNotTakenForTheNextReply) {
    std::promise<void> sent;
    auto script = play([&] {
        auto connection = manager.accept();
        const wire_frame request = connection.serve();
        connection.send(reply_bytes(request.correlation + 1, 0, words({66})));
        sent.set_value();
        EXPECT_TRUE(connection.is_closed_by_client());
        manager.accept().serve();
    });
    EXPECT_EQ(0u, ask().status);
    sent.get_future().wait();
    const answer got = ask();
    EXPECT_EQ(0u, got.status);
    EXPECT_FALSE(got.data.has_value());
    script.get();
}

TEST_F(Mts, AForkedChildConnectsForItself) {
    std::promise<void> child_served;
    auto script = play([&] {
        auto parent = manager.accept();
        parent.serve();
        manager.accept().serve();
        child_served.set_value();
        parent.serve();
    });
    EXPECT_EQ(0u, ask().status);
    const pid_t child = fork();
    if (child == 0) {
        _exit(ask().status == 0 ? 0 : 1);
    }
    child_served.get_future().wait();
    int result = -1;
    ASSERT_EQ(child, waitpid(child, &result, 0));
    EXPECT_EQ(0, result);
    EXPECT_EQ(0u, ask().status);
    script.get();
}

TEST_F(Mts, NoSocketTakesThePlaceOfAClosedStandardStream) {
    auto script = play([&] { manager.accept().serve(); });
    const pid_t child = fork();
    if (child == 0) {
        close(0);
        close(1);
        close(2);
        const bool is_served = ask().status == 0;
        const bool is_clear = fcntl(0, F_GETFD) == -1 && fcntl(1, F_GETFD) == -1 && fcntl(2, F_GETFD) == -1;
        _exit(is_served && is_clear ? 0 : 1);
    }
    int result = -1;
    ASSERT_EQ(child, waitpid(child, &result, 0));
    EXPECT_EQ(0, result);
    script.get();
}

TEST_F(Mts, SignalsDoNotShortenTheWait) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    struct sigaction former;
    ASSERT_EQ(0, sigaction(SIGALRM, &action, &former));
    const itimerval often = {{0, 5000}, {0, 5000}};
    const itimerval never = {};
    setitimer(ITIMER_REAL, &often, nullptr);
    const answer got = ask(0);
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &former, nullptr);
    EXPECT_EQ(ETIMEDOUT, got.error);
    EXPECT_GE(got.time, UNIT);
}

TEST(MtsMessage, ANullMessageHasNoPayload) {
    EXPECT_EQ(nullptr, mts_payload_get(nullptr));
    EXPECT_EQ(0u, mts_payload_size(nullptr));
}

} // namespace
