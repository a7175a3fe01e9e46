// SPDX-License-Identifier: Apache-2.0
// How long the message service's client waits for a silent manager, altogether. The
// linker leads the client's waits and its clock, contained in this program, to the
// functions below, so that they are counted and take no time.
#include <gtest/gtest.h>

#include <ctime>
#include <poll.h>

#include <functional>

#include "platform_mts_client.h"

namespace {

constexpr int64_t MILLISECOND = 1000000;
constexpr int64_t SECOND = 1000 * MILLISECOND;

// What one unit of the wait class and one wait for a sign of life take.
constexpr int64_t UNIT = 250 * MILLISECOND;
constexpr int64_t GRACE = 20 * MILLISECOND;

int64_t scripted_time = 5 * SECOND;

// What the manager does during the next wait; nothing without it.
std::function<void()> meanwhile;

} // namespace

extern "C" int __wrap_clock_gettime(clockid_t clock, struct timespec *now);
extern "C" int __wrap_ppoll(struct pollfd *watched, nfds_t count, const struct timespec *timeout, const sigset_t *mask);

int __wrap_clock_gettime(clockid_t, struct timespec *now) {
    now->tv_sec = static_cast<time_t>(scripted_time / SECOND);
    now->tv_nsec = static_cast<long>(scripted_time % SECOND);
    return 0;
}

int __wrap_ppoll(struct pollfd *watched, nfds_t count, const struct timespec *timeout, const sigset_t *) {
    if (meanwhile) {
        std::exchange(meanwhile, {})();
    }
    const int ready = poll(watched, count, 0);
    if (ready == 0) {
        scripted_time += timeout->tv_sec * SECOND + timeout->tv_nsec;
    }
    return ready;
}

namespace {

class MtsGrace : public testing::Test {
  protected:
    // How long so many requests are waited for, none of which is answered.
    int64_t wait_of(int requests) {
        const int64_t start = scripted_time;
        for (int i = 0; i < requests; ++i) {
            EXPECT_EQ(ETIMEDOUT, ask(4).error);
        }
        return scripted_time - start;
    }

    // How long a request is waited for that the connection serves at once.
    static int64_t wait_served_by(manager_connection &connection) {
        const int64_t start = scripted_time;
        meanwhile = [&connection] { connection.serve(); };
        EXPECT_EQ(0u, ask(4).status);
        return scripted_time - start;
    }

    // The manager finds the request that timed out and the PING behind it, and lives again.
    manager_connection revive() {
        auto connection = manager.accept();
        connection.receive();
        connection.send(pong_bytes(connection.receive().correlation));
        return connection;
    }

    temporary_run_directory run;
    scripted_manager manager{run.path()};
};

TEST_F(MtsGrace, ASilentManagerCostsOneWaitAndOneGraceForThousandsOfRequests) {
    EXPECT_EQ(4 * UNIT, wait_of(1));
    EXPECT_EQ(GRACE, wait_of(3000));
}

TEST_F(MtsGrace, ALongSilenceHasOneGraceInASecond) {
    wait_of(2);
    for (int second = 0; second < 3; ++second) {
        scripted_time += SECOND - GRACE - MILLISECOND;
        EXPECT_EQ(0, wait_of(100));
        scripted_time += MILLISECOND;
        EXPECT_EQ(GRACE, wait_of(100));
    }
}

TEST_F(MtsGrace, ASignOfLifeThatHasComeIsSeenWithoutWaiting) {
    wait_of(3);
    auto connection = revive();
    EXPECT_EQ(0, wait_served_by(connection));
}

TEST_F(MtsGrace, ASignOfLifeDuringTheGraceServesTheRequest) {
    wait_of(1);
    auto connection = manager.accept();
    connection.receive();
    meanwhile = [&connection] {
        connection.send(pong_bytes(connection.receive().correlation));
        meanwhile = [&connection] { connection.serve(); };
    };
    EXPECT_EQ(0u, ask(4).status);
}

TEST_F(MtsGrace, ANewSilenceHasItsGraceAtOnce) {
    wait_of(2);
    const auto connection = revive();
    EXPECT_EQ(4 * UNIT, wait_of(1));
    EXPECT_EQ(GRACE, wait_of(100));
}

TEST_F(MtsGrace, AManagerThatLetsNobodyInIsNotWaitedFor) {
    manager.stop();
    const scripted_manager busy(run.path(), 0);
    const full_backlog visitors(busy);
    EXPECT_EQ(0, wait_of(1000));
}

TEST_F(MtsGrace, AManagerThatTakesNothingMoreHasOneGraceOnTheNextConnection) {
    wait_of(1);
    auto connection = revive();
    wait_served_by(connection);
    make_send_buffer_small(manager);
    const int64_t start = scripted_time;
    EXPECT_EQ(ETIMEDOUT, ask(4, bytes(MTS_WIRE_MAX_PAYLOAD)).error);
    EXPECT_EQ(4 * UNIT, scripted_time - start);
    EXPECT_EQ(GRACE, wait_of(1000));
    EXPECT_TRUE(manager.has_visitor());
}

} // namespace
