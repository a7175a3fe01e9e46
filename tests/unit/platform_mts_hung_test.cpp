// SPDX-License-Identifier: Apache-2.0
// What the message service's client does about a manager that is there and silent.
#include <gtest/gtest.h>

#include <future>

#include "platform_mts_client.h"

using namespace std::chrono_literals;

namespace {

// The unit of the wait class, and what a busy machine may add to a wait.
constexpr auto UNIT = 250ms;
constexpr auto SLACK = 1000ms;

// What a request that fails at once may take, again on a busy machine: half of what
// it would have waited.
constexpr auto AT_ONCE = 1000ms;

class MtsHung : public testing::Test {
  protected:
    template <class Script> std::future<void> play(Script script) {
        return std::async(std::launch::async, std::move(script));
    }

    temporary_run_directory run;
    scripted_manager manager{run.path()};
};

TEST_F(MtsHung, TheWaitClassCountsUnitsAndZeroIsOne) {
    const std::pair<uint32_t, std::chrono::milliseconds> cases[] = {{0, UNIT}, {1, UNIT}, {3, 3 * UNIT}};
    for (const auto &[wait_class, wait] : cases) {
        SCOPED_TRACE(wait_class);
        const answer got = ask(wait_class);
        EXPECT_EQ(ETIMEDOUT, got.error);
        EXPECT_GE(got.time, wait);
        EXPECT_LT(got.time, wait + SLACK);
        manager.accept(); // and drop the connection: the next request starts anew
    }
}

TEST_F(MtsHung, AHungManagerCostsOneWaitAndIsServedAgainOnTheSameConnection) {
    EXPECT_EQ(ETIMEDOUT, ask(0).error);
    for (int i = 0; i < 5; ++i) {
        const answer got = ask(8);
        EXPECT_EQ(ETIMEDOUT, got.error);
        EXPECT_LT(got.time, AT_ONCE);
    }
    // It resumes, and works off what it finds: one request, and one PING behind it.
    auto connection = manager.accept();
    connection.serve();
    const wire_frame ping = connection.receive();
    EXPECT_EQ(static_cast<uint32_t>(MTS_FRAME_PING), ping.type);
    EXPECT_FALSE(connection.has_input());
    connection.send(pong_bytes(ping.correlation));

    auto script = play([&] {
        const wire_frame request = connection.receive();
        connection.send(reply_bytes(request.correlation, 0, words({42})));
    });
    EXPECT_EQ(words({42}), ask().data);
    script.get();
    EXPECT_FALSE(manager.has_visitor());
}

TEST_F(MtsHung, AManagerThatLostOneRequestIsTrustedAfterItsPong) {
    auto script = play([&] {
        auto connection = manager.accept();
        connection.receive();
        connection.send(pong_bytes(connection.receive().correlation));
        connection.serve();
    });
    EXPECT_EQ(ETIMEDOUT, ask(0).error);
    EXPECT_EQ(0u, ask().status);
    script.get();
}

TEST_F(MtsHung, ALateReplyIsDroppedBeforeTheNextRequest) {
    std::promise<void> timed_out, replied;
    auto script = play([&] {
        auto connection = manager.accept();
        const wire_frame late = connection.receive();
        timed_out.get_future().wait();
        connection.send(reply_bytes(late.correlation, 0, words({1})));
        replied.set_value();
        EXPECT_EQ(static_cast<uint32_t>(MTS_FRAME_PING), connection.receive().type);
        connection.send(reply_bytes(connection.receive().correlation, 0, words({2})));
    });
    EXPECT_EQ(ETIMEDOUT, ask(0).error);
    timed_out.set_value();
    replied.get_future().wait();
    EXPECT_EQ(words({2}), ask().data);
    script.get();
}

TEST_F(MtsHung, ALateReplyIsDroppedDuringTheNextRequest) {
    auto script = play([&] {
        auto connection = manager.accept();
        const wire_frame late = connection.receive();
        connection.send(pong_bytes(connection.receive().correlation));
        const wire_frame next = connection.receive();
        connection.send(reply_bytes(late.correlation, 0, words({1})));
        connection.send(reply_bytes(next.correlation, 0, words({2})));
    });
    EXPECT_EQ(ETIMEDOUT, ask(0).error);
    EXPECT_EQ(words({2}), ask().data);
    script.get();
}

TEST_F(MtsHung, LateRepliesWithoutEndDoNotProlongTheWait) {
    std::promise<void> answered;
    auto ending = answered.get_future();
    auto script = play([&] {
        auto connection = manager.accept();
        const wire_frame first = connection.serve();
        connection.receive();
        // Only ever the former request's reply, until the client gives up. The
        // client's closing the connection may end it as well.
        try {
            while (ending.wait_for(100us) != std::future_status::ready) {
                connection.send(reply_bytes(first.correlation, 0));
            }
        } catch (const std::runtime_error &) {
        }
    });
    EXPECT_EQ(0u, ask().status);
    const answer got = ask(1);
    answered.set_value();
    script.get();
    EXPECT_EQ(ETIMEDOUT, got.error);
    EXPECT_LT(got.time, UNIT + SLACK);
}

TEST_F(MtsHung, SuspicionEndsWithTheManager) {
    {
        EXPECT_EQ(ETIMEDOUT, ask(0).error);
        auto connection = manager.accept();
        manager.stop();
    }
    scripted_manager next(run.path());
    // The new manager takes longer than the grace; nothing but a request comes.
    auto script = play([&] {
        auto connection = next.accept();
        const wire_frame request = connection.receive();
        EXPECT_EQ(static_cast<uint32_t>(MTS_FRAME_REQUEST), request.type);
        connection.send(reply_bytes(request.correlation, 0));
    });
    EXPECT_EQ(0u, ask().status);
    script.get();
}

TEST_F(MtsHung, AFullBacklogFailsAtOnce) {
    manager.stop();
    const scripted_manager busy(run.path(), 0);
    const full_backlog visitors(busy);
    const answer got = ask(8);
    EXPECT_EQ(ETIMEDOUT, got.error);
    EXPECT_LT(got.time, AT_ONCE);
}

TEST_F(MtsHung, AFullSendBufferCountsAgainstTheWaitAndIsFollowedByAPing) {
    auto first_served = play([&] { manager.accept().serve(); });
    EXPECT_EQ(0u, ask().status);
    first_served.get();
    // The connection is closed by now; this one is never accepted, only small.
    EXPECT_EQ(ETIMEDOUT, ask(0).error);
    make_send_buffer_small(manager);
    {
        auto connection = manager.accept();
        connection.serve();
        connection.send(pong_bytes(connection.receive().correlation));
        const answer got = ask(1, bytes(MTS_WIRE_MAX_PAYLOAD));
        EXPECT_EQ(ETIMEDOUT, got.error);
        EXPECT_GE(got.time, UNIT);
        EXPECT_LT(got.time, UNIT + SLACK);
    }
    // Part of a frame is in that connection, so there is a new one, still suspect.
    const answer suspect = ask(8);
    EXPECT_EQ(ETIMEDOUT, suspect.error);
    EXPECT_LT(suspect.time, AT_ONCE);
    auto connection = manager.accept();
    const wire_frame ping = connection.receive();
    EXPECT_EQ(static_cast<uint32_t>(MTS_FRAME_PING), ping.type);
    connection.send(pong_bytes(ping.correlation));
    auto script = play([&] { connection.serve(); });
    EXPECT_EQ(0u, ask().status);
    script.get();
}

} // namespace
