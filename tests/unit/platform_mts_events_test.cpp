// SPDX-License-Identifier: Apache-2.0
// The subscription side of the message service's client.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <optional>

#include "mts/mts_events.h"
#include "platform_mts_client.h"

namespace {

class MtsEvents : public testing::Test {
  protected:
    ~MtsEvents() override { mts_events_close(); }

    // Subscribes and answers for the manager.
    manager_connection subscribe() {
        const uint32_t classes[] = {145, 102};
        fd = mts_events_open(classes, 2);
        EXPECT_NE(-1, fd);
        auto connection = manager.accept();
        subscription = connection.receive();
        connection.send(pong_bytes(subscription.correlation));
        EXPECT_TRUE(is_readable());
        EXPECT_EQ(0, mts_events_next(&event));
        return connection;
    }

    bool is_readable() const {
        pollfd poller = {fd, POLLIN, 0};
        return poll(&poller, 1, 0) == 1;
    }

    bytes payload() const {
        const auto *first = static_cast<const uint8_t *>(mts_payload_get(event));
        return bytes(first, first + mts_payload_size(event));
    }

    static bytes event_bytes(uint32_t event_class, const bytes &content) {
        return frame_bytes(MTS_FRAME_EVENT, 0, words({event_class}) + content);
    }

    temporary_run_directory run;
    scripted_manager manager{run.path()};
    int fd = -1;
    wire_frame subscription;
    const mts_message *event = nullptr;
};

TEST_F(MtsEvents, ASubscriptionNamesItsClasses) {
    auto connection = subscribe();
    EXPECT_EQ(static_cast<uint32_t>(MTS_FRAME_SUBSCRIBE), subscription.type);
    EXPECT_EQ(words({145, 102}), subscription.body);
    EXPECT_TRUE((fcntl(fd, F_GETFL) & O_NONBLOCK) != 0);
}

TEST_F(MtsEvents, EventsComeOneByOneAndTheDescriptorStaysReadable) {
    auto connection = subscribe();
    connection.send(event_bytes(145, words({1, 2})) + event_bytes(102, words({3})) + event_bytes(145, {}));
    ASSERT_EQ(1, mts_events_next(&event));
    EXPECT_EQ(145u, mts_message_class(event));
    EXPECT_EQ(words({1, 2}), payload());
    EXPECT_TRUE(is_readable());
    ASSERT_EQ(1, mts_events_next(&event));
    EXPECT_EQ(102u, mts_message_class(event));
    EXPECT_EQ(words({3}), payload());
    EXPECT_TRUE(is_readable());
    ASSERT_EQ(1, mts_events_next(&event));
    EXPECT_EQ(nullptr, mts_payload_get(event));
    EXPECT_EQ(0u, mts_payload_size(event));
    EXPECT_FALSE(is_readable());
    EXPECT_EQ(0, mts_events_next(&event));
    EXPECT_EQ(nullptr, event);
}

TEST_F(MtsEvents, AnEventInPiecesIsDeliveredWhenItIsWhole) {
    auto connection = subscribe();
    const bytes whole = event_bytes(145, words({1, 2, 3}));
    for (size_t i = 0; i < whole.size(); ++i) {
        EXPECT_EQ(0, mts_events_next(&event));
        connection.send({whole[i]});
    }
    EXPECT_EQ(1, mts_events_next(&event));
    EXPECT_EQ(words({1, 2, 3}), payload());
}

TEST_F(MtsEvents, ALostConnectionIsReportedAndCanBeMadeAgain) {
    {
        auto connection = subscribe();
        connection.send(event_bytes(145, words({1})));
    }
    EXPECT_EQ(1, mts_events_next(&event));
    EXPECT_EQ(-1, mts_events_next(&event));
    EXPECT_EQ(ECONNRESET, errno);
    EXPECT_EQ(nullptr, event);
    EXPECT_NE(-1, fcntl(fd, F_GETFD)) << "the descriptor stays open until it has been taken from the poll set";
    auto connection = subscribe();
    connection.send(event_bytes(102, words({7})));
    EXPECT_EQ(1, mts_events_next(&event));
}

TEST_F(MtsEvents, WhatIsNoEventEndsTheSubscription) {
    const bytes cases[] = {
        bytes{'H', 'T', 'T', 'P'},
        reply_bytes(1, 0),
        frame_bytes(MTS_FRAME_EVENT, 0, bytes(3)),
        frame_bytes(MTS_FRAME_PONG, 1, bytes(4)),
        words({MTS_WIRE_MAGIC, MTS_FRAME_EVENT, 0, MTS_WIRE_MAX_BODY + 1}),
    };
    for (const bytes &bad : cases) {
        auto connection = subscribe();
        connection.send(bad + event_bytes(145, {}));
        for (int i = 0; i < 2; ++i) {
            errno = 0;
            EXPECT_EQ(-1, mts_events_next(&event));
            EXPECT_EQ(EPROTO, errno);
            EXPECT_EQ(nullptr, event);
        }
    }
}

TEST_F(MtsEvents, RequestsAndEventsHaveConnectionsOfTheirOwn) {
    auto events = subscribe();
    EXPECT_EQ(ETIMEDOUT, ask(0).error);
    EXPECT_TRUE(manager.has_visitor());
    EXPECT_FALSE(events.has_input());
}

TEST_F(MtsEvents, WithoutASubscriptionThereAreNoEvents) {
    errno = 0;
    EXPECT_EQ(-1, mts_events_next(&event));
    EXPECT_EQ(ENOTCONN, errno);
}

TEST_F(MtsEvents, AForkedChildDoesNotTakeItsParentsEvents) {
    auto connection = subscribe();
    connection.send(event_bytes(145, words({1})));
    const pid_t child = fork();
    if (child == 0) {
        _exit(mts_events_next(&event) == -1 && errno == ENOTCONN ? 0 : 1);
    }
    int result = -1;
    ASSERT_EQ(child, waitpid(child, &result, 0));
    EXPECT_EQ(0, result);
    EXPECT_EQ(1, mts_events_next(&event));
}

TEST_F(MtsEvents, ASubscriptionThatCannotBeMadeIsRefused) {
    const std::vector<uint32_t> classes(MTS_EVENTS_MAX_CLASSES + 1);
    EXPECT_EQ(-1, mts_events_open(classes.data(), classes.size()));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(-1, mts_events_open(nullptr, 1));
    EXPECT_EQ(EINVAL, errno);
    manager.stop();
    EXPECT_EQ(-1, mts_events_open(classes.data(), 1));
    EXPECT_EQ(ECONNREFUSED, errno);
}

} // namespace
