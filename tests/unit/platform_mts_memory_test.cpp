// SPDX-License-Identifier: Apache-2.0
// Requests of the message service's client through memory that the manager shares.
#include <sys/wait.h>

#include "platform_mts_memory_fixture.h"

namespace {

class MtsMemory : public MemoryFixture {};

TEST_F(MtsMemory, IsAskedForOnceInFrontOfTheFirstRequestOfAConnection) {
    for (int round = 0; round < 2; ++round) {
        auto script = play([&] {
            auto visitor = manager.accept();
            const wire_frame share = visitor.receive_any();
            EXPECT_EQ(raw(share), frame_bytes(MTS_FRAME_SHARE, share.correlation, {}));
            visitor.send(pong_bytes(share.correlation));
            for (int i = 0; i < 3; ++i) {
                const wire_frame request = visitor.receive_any();
                EXPECT_EQ(static_cast<uint32_t>(MTS_FRAME_REQUEST), request.type);
                visitor.send(reply_bytes(request.correlation, 0));
            }
        });
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(0u, ask().status);
        }
        script.get();
    }
}

TEST_F(MtsMemory, CarriesTheSameFrameAsTheSocket) {
    const auto request = [] {
        uint32_t length = 3;
        void *reply = nullptr;
        EXPECT_EQ(0u, cmi_req_resp(127, 3, "abc", &reply, &length, "alice", 77, MANAGER_SAP_PORT, mts_response_q, 4));
    };
    wire_frame by_socket;
    auto script = play([&] {
        connection.emplace(manager.accept());
        give_memory(*connection, *memory);
        by_socket = connection->serve();
    });
    request();
    script.get();
    bytes in_memory;
    script = play([&] {
        const wire_frame taken = take();
        in_memory = memory->request();
        answer_with(reply_bytes(taken.correlation, 0));
    });
    request();
    script.get();
    by_socket.correlation += 1;
    EXPECT_EQ(raw(by_socket), in_memory);
    EXPECT_FALSE(connection->has_input());
}

TEST_F(MtsMemory, AReplyGivesItsStatusAndData) {
    share();
    const std::pair<bytes, answer> cases[] = {
        {words({0, 0}), {.status = 0, .data = std::nullopt}},
        {words({0, 1}), {.status = 0, .data = bytes{}}},
        {words({0, 1, 7, 8}), {.status = 0, .data = words({7, 8})}},
        {words({0x40190001, 1, 9}), {.status = 0x40190001, .data = words({9})}},
        {words({UINT32_MAX, 0}), {.status = UINT32_MAX, .data = std::nullopt}},
    };
    for (const auto &[body, expected] : cases) {
        auto script = play([&] { answer_with(frame_bytes(MTS_FRAME_REPLY, take().correlation, body)); });
        const answer got = ask();
        script.get();
        EXPECT_EQ(expected.status, got.status);
        EXPECT_EQ(expected.data, got.data);
    }
}

TEST_F(MtsMemory, TakesFramesUpToItsSizeAndLongerOnesTakeTheSocket) {
    share();
    const bytes longest(MTS_SHARED_MAX_FRAME - MTS_WIRE_HEADER - MTS_WIRE_REQUEST_FIXED, 5);
    const bytes data(MTS_SHARED_MAX_FRAME - MTS_WIRE_HEADER - MTS_WIRE_REPLY_FIXED, 6);
    auto script = play([&] {
        const wire_frame request = take();
        EXPECT_EQ(MTS_SHARED_MAX_FRAME - MTS_WIRE_HEADER, request.body.size());
        answer_with(reply_bytes(request.correlation, 0, data));
    });
    EXPECT_EQ(data, ask(4, longest).data);
    script.get();

    const bytes longer = longest + bytes{5};
    script = play([&] {
        const wire_frame request = connection->receive_any();
        EXPECT_EQ(MTS_WIRE_REQUEST_FIXED + longer.size(), request.body.size());
        connection->send(reply_bytes(request.correlation, 0, data));
    });
    EXPECT_EQ(data, ask(4, longer).data);
    script.get();
    EXPECT_EQ(MTS_SHARED_ANSWERED, memory->state());
    expect_memory_in_use();
}

TEST_F(MtsMemory, NobodyKnocksForAManagerThatWatches) {
    share();
    (*memory)->switch_sleeps = 0;
    auto script = play([&] {
        for (int i = 0; i < 100; ++i) {
            memory->await_post();
            const wire_frame request = memory->take();
            answer_with(reply_bytes(request.correlation, 0, request.body));
        }
    });
    for (uint8_t i = 0; i < 100; ++i) {
        const answer got = ask(4, {i, i, i, i});
        ASSERT_TRUE(got.data);
        EXPECT_EQ(i, got.data->back());
    }
    script.get();
    EXPECT_FALSE(connection->has_input());
}

TEST_F(MtsMemory, ASleepingClientIsWoken) {
    share();
    auto script = play([&] {
        for (uint32_t i = 0; i < 3; ++i) {
            const wire_frame request = take();
            memory->await_sleeping_client();
            memory->put(reply_bytes(request.correlation, 0, words({i})));
            EXPECT_TRUE(memory->finish(MTS_SHARED_ANSWERED));
            connection->send(knock_bytes());
        }
    });
    for (uint32_t i = 0; i < 3; ++i) {
        EXPECT_EQ(words({i}), ask().data);
    }
    script.get();
}

TEST_F(MtsMemory, KnocksTooManyDoNoHarm) {
    share();
    for (int round = 0; round < 3; ++round) {
        auto script = play([&] {
            connection->send(knock_bytes() + knock_bytes());
            const wire_frame request = take();
            memory->await_sleeping_client();
            connection->send(knock_bytes() + knock_bytes());
            answer_with(reply_bytes(request.correlation, 0, words({1})));
            connection->send(knock_bytes());
        });
        EXPECT_EQ(words({1}), ask().data);
        script.get();
        const bytes long_one(MTS_SHARED_MAX_FRAME);
        script = play([&] { connection->serve(); });
        EXPECT_EQ(0u, ask(4, long_one).status);
        script.get();
    }
    EXPECT_FALSE(manager.has_visitor());
}

TEST_F(MtsMemory, AnAnswerElsewhereComesOverTheSocket) {
    share();
    const bytes data(MTS_SHARED_MAX_FRAME, 9);
    for (const bool is_asleep : {false, true}) {
        auto script = play([&] {
            const wire_frame request = take();
            if (is_asleep) {
                memory->await_sleeping_client();
            }
            const bool must_wake = memory->finish(MTS_SHARED_ELSEWHERE);
            connection->send((must_wake ? knock_bytes() : bytes{}) + reply_bytes(request.correlation, 0, data));
        });
        EXPECT_EQ(data, ask().data);
        script.get();
    }
    expect_memory_in_use();
}

TEST_F(MtsMemory, AnAnswerElsewhereThatNeverComesCostsTheWait) {
    share();
    auto script = play([&] {
        take();
        if (memory->finish(MTS_SHARED_ELSEWHERE)) {
            connection->send(knock_bytes());
        }
    });
    EXPECT_EQ(ETIMEDOUT, ask(1).error);
    script.get();
    EXPECT_EQ(static_cast<uint32_t>(MTS_FRAME_PING), connection->receive_any().type);
}

TEST_F(MtsMemory, ARequestThatNobodyTakesInTimeIsTakenBack) {
    share();
    const answer got = ask(1);
    EXPECT_EQ(ETIMEDOUT, got.error);
    EXPECT_GE(got.time, UNIT);
    EXPECT_LT(got.time, UNIT + SLACK);
    await_knock();
    EXPECT_EQ(MTS_SHARED_IDLE, memory->state());
    const wire_frame ping = connection->receive_any();
    EXPECT_EQ(static_cast<uint32_t>(MTS_FRAME_PING), ping.type);
    for (int i = 0; i < 3; ++i) {
        const answer suspect = ask(8);
        EXPECT_EQ(ETIMEDOUT, suspect.error);
        EXPECT_LT(suspect.time, SLACK);
    }
    EXPECT_FALSE(connection->has_input());
    EXPECT_EQ(MTS_SHARED_IDLE, memory->state());

    // With a sign of life, everything begins anew on the same connection.
    memory = std::make_unique<manager_memory>();
    connection->send(pong_bytes(ping.correlation));
    auto script = play([&] {
        give_memory(*connection, *memory);
        connection->serve();
    });
    EXPECT_EQ(0u, ask().status);
    script.get();
    expect_memory_in_use();
    EXPECT_FALSE(manager.has_visitor());
}

TEST_F(MtsMemory, ARequestThatWasTakenIsNeitherTakenBackNorRepeated) {
    share();
    auto script = play([&] { take(); });
    EXPECT_EQ(ETIMEDOUT, ask(1).error);
    script.get();
    EXPECT_EQ(MTS_SHARED_TAKEN, memory->state());
    const wire_frame ping = connection->receive_any();
    EXPECT_EQ(static_cast<uint32_t>(MTS_FRAME_PING), ping.type);

    // What the memory says of it now is of no interest to anybody.
    memory->put(reply_bytes(ping.correlation - 1, 0, words({1})));
    memory->finish(MTS_SHARED_ANSWERED);
    connection->send(knock_bytes() + pong_bytes(ping.correlation));
    script = play([&] { connection->send(reply_bytes(connection->receive().correlation, 0, words({2}))); });
    EXPECT_EQ(words({2}), ask().data);
    script.get();
    EXPECT_FALSE(connection->has_input());
}

TEST_F(MtsMemory, ThatComesAfterTheTimeOutIsUsedAndNotAskedForAgain) {
    std::promise<void> timed_out, sent;
    auto script = play([&] {
        connection.emplace(manager.accept());
        timed_out.get_future().wait();
        give_memory(*connection, *memory);
        connection->serve();
        const wire_frame ping = connection->receive_any();
        connection->send(pong_bytes(ping.correlation));
        sent.set_value();
        serve(words({2}));
    });
    EXPECT_EQ(ETIMEDOUT, ask(0).error);
    timed_out.set_value();
    sent.get_future().wait();
    EXPECT_EQ(words({2}), ask().data);
    script.get();
    EXPECT_FALSE(connection->has_input());
}

TEST_F(MtsMemory, AnAnswerInItDoesNotMixWithALateReplyOnTheSocket) {
    std::promise<void> timed_out, half_sent;
    bytes late;
    auto script = play([&] {
        connection.emplace(manager.accept());
        timed_out.get_future().wait();
        give_memory(*connection, *memory);
        late = reply_bytes(connection->receive_any().correlation, 0, words({1, 2, 3, 4}));
        connection->send(bytes(late.begin(), late.begin() + 30));
        EXPECT_EQ(static_cast<uint32_t>(MTS_FRAME_PING), connection->receive_any().type);
        half_sent.set_value();
        memory->put(reply_bytes(take().correlation, 0, words({5})));
        const bool is_asleep = memory->finish(MTS_SHARED_ANSWERED);
        // A frame that is half sent is sent whole before the next one, a knock too.
        connection->send(bytes(late.begin() + 30, late.end()));
        if (is_asleep) {
            connection->send(knock_bytes());
        }
        const wire_frame request = take();
        memory->await_sleeping_client();
        answer_with(reply_bytes(request.correlation, 0, words({6})));
    });
    EXPECT_EQ(ETIMEDOUT, ask(0).error);
    timed_out.set_value();
    half_sent.get_future().wait();
    EXPECT_EQ(words({5}), ask().data);
    EXPECT_EQ(words({6}), ask().data);
    script.get();
}

TEST_F(MtsMemory, AManagerThatDiedBetweenRequestsIsNotNoticed) {
    for (const uint32_t sleeps : {0u, 1u}) {
        memory = std::make_unique<manager_memory>();
        share();
        (*memory)->switch_sleeps = sleeps;
        connection->close();
        auto script = play([&] { manager.accept().serve(); });
        EXPECT_EQ(0u, ask().status);
        script.get();
        EXPECT_NE(MTS_SHARED_POSTED, memory->state());
    }
}

TEST_F(MtsMemory, ARequestThatADeadManagerHasNotTakenIsRepeatedOnce) {
    share();
    auto script = play([&] {
        await_knock();
        connection->close();
        auto next = manager.accept();
        EXPECT_EQ(static_cast<uint32_t>(MTS_FRAME_REQUEST), next.receive().type);
        next.close();
    });
    EXPECT_EQ(ECONNRESET, ask().error);
    script.get();
    EXPECT_EQ(MTS_SHARED_IDLE, memory->state());
    EXPECT_FALSE(manager.has_visitor());

    memory = std::make_unique<manager_memory>();
    share();
    script = play([&] {
        await_knock();
        connection->close();
        manager.accept().serve();
    });
    EXPECT_EQ(0u, ask().status);
    script.get();
    EXPECT_EQ(MTS_SHARED_IDLE, memory->state());
}

TEST_F(MtsMemory, ARequestThatADeadManagerHasTakenIsNotRepeated) {
    for (const uint32_t state : {MTS_SHARED_TAKEN, MTS_SHARED_ELSEWHERE}) {
        memory = std::make_unique<manager_memory>();
        share();
        auto script = play([&] {
            take();
            memory->finish(state);
            connection->close();
        });
        EXPECT_EQ(ECONNRESET, ask().error);
        script.get();
        EXPECT_EQ(state, memory->state());
        EXPECT_FALSE(manager.has_visitor());
    }
}

TEST_F(MtsMemory, TheAnswerOfAManagerThatThenDiedCounts) {
    share();
    auto script = play([&] {
        const wire_frame request = take();
        memory->await_sleeping_client();
        memory->put(reply_bytes(request.correlation, 0, words({3})));
        memory->finish(MTS_SHARED_ANSWERED);
        connection->close();
    });
    EXPECT_EQ(words({3}), ask().data);
    script.get();
    script = play([&] { manager.accept().serve(); });
    EXPECT_EQ(0u, ask().status);
    script.get();
}

TEST_F(MtsMemory, AForkedProcessLeavesItToItsParent) {
    share();
    const uint64_t generation = mts_settings_generation();
    EXPECT_NE(0u, generation);
    auto script = play([&] { manager.accept().serve(); });
    const pid_t child = fork();
    if (child == 0) {
        _exit(mts_settings_generation() == 0 && ask().status == 0 ? 0 : 1);
    }
    int result = -1;
    ASSERT_EQ(child, waitpid(child, &result, 0));
    EXPECT_EQ(0, result);
    script.get();
    EXPECT_EQ(MTS_SHARED_IDLE, memory->state());
    EXPECT_FALSE(connection->has_input());
    EXPECT_EQ(generation, mts_settings_generation());
    expect_memory_in_use();
}

TEST_F(MtsMemory, TheGenerationIsThatOfTheMemoryInUse) {
    share();
    const uint64_t first = mts_settings_generation();
    EXPECT_NE(0u, first);
    EXPECT_EQ(first, mts_settings_generation());
    (*memory)->generation = 0;
    EXPECT_EQ(0u, mts_settings_generation());
    (*memory)->generation = 2;
    const uint64_t second = mts_settings_generation();
    EXPECT_NE(0u, second);
    EXPECT_NE(first, second);
    (*memory)->generation = 1;
    EXPECT_EQ(first, mts_settings_generation());

    // The same number means something else on another connection.
    connection->close();
    EXPECT_EQ(0u, mts_settings_generation()) << "nobody there who would change it";
    memory = std::make_unique<manager_memory>();
    share();
    EXPECT_NE(0u, mts_settings_generation());
    EXPECT_NE(first, mts_settings_generation());
}

TEST_F(MtsMemory, ThereIsNoGenerationWithoutMemoryAndOfASilentManager) {
    auto script = play([&] {
        connection.emplace(manager.accept());
        connection->serve();
    });
    EXPECT_EQ(0u, ask().status);
    script.get();
    EXPECT_EQ(0u, mts_settings_generation());
    connection->close();
    EXPECT_EQ(0u, mts_settings_generation());

    share();
    EXPECT_NE(0u, mts_settings_generation());
    EXPECT_EQ(ETIMEDOUT, ask(0).error);
    EXPECT_EQ(0u, mts_settings_generation());
}

} // namespace
