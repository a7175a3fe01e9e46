// SPDX-License-Identifier: Apache-2.0
// Whom the message service's client takes for the switch.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/syscall.h>

#include <thread>

#include "mts/mts_events.h"
#include "platform_mts_client.h"

namespace {

constexpr uid_t ROOT = 0;
constexpr uid_t OPERATOR = 1001;
constexpr uid_t STRANGER = 1002;

// Has a thread of its own do something as this user. The C library would change the
// user of all threads; the system call changes that of the calling one.
template <class What> void as_user(uid_t user, What what) {
#ifdef SYS_setresuid32
    constexpr long SET_USER = SYS_setresuid32;
#else
    constexpr long SET_USER = SYS_setresuid;
#endif
    std::thread([&] {
        if (syscall(SET_USER, user, user, user) == 0) {
            what();
        } else {
            ADD_FAILURE() << "cannot become user " << user << ": " << strerror(errno);
        }
    }).join();
}

class MtsListener : public testing::Test {
  protected:
    void SetUp() override {
        if (geteuid() != ROOT) {
            GTEST_SKIP() << "only root can be somebody else";
        }
        ASSERT_EQ(0, chmod(manager.path().c_str(), 0666));
        own_directory(ROOT, 0755);
    }

    void own_directory(uid_t user, mode_t mode) {
        ASSERT_EQ(0, chown(run.path().c_str(), user, static_cast<gid_t>(-1)));
        ASSERT_EQ(0, chmod(run.path().c_str(), mode));
    }

    void listen_as(uid_t user) {
        as_user(user, [&] { manager.listen_again(); });
    }

    // The error that a request ends with. Nobody accepts it: that of a trusted
    // listener is the time-out.
    static int error_as(uid_t user) {
        int error = 0;
        as_user(user, [&] { error = ask(0).error; });
        return error;
    }

    // The client connects anew for the next request.
    void forget_connection() { manager.accept(); }

    void expect_trusted_by(uid_t user) {
        EXPECT_EQ(ETIMEDOUT, error_as(user));
        forget_connection();
    }

    void expect_refused_by(uid_t user) {
        EXPECT_EQ(EPERM, error_as(user));
        EXPECT_TRUE(manager.accept().is_closed_by_client()) << "something was sent";
    }

    temporary_run_directory run;
    scripted_manager manager{run.path()};
};

TEST_F(MtsListener, RootIsTrustedByEverybody) {
    for (const uid_t user : {ROOT, OPERATOR}) {
        expect_trusted_by(user);
    }
}

TEST_F(MtsListener, OneselfIsTrustedEvenWhereEverybodyCanWrite) {
    own_directory(ROOT, 0777);
    listen_as(OPERATOR);
    expect_trusted_by(OPERATOR);
}

TEST_F(MtsListener, AStrangerIsRefusedBeforeAnythingIsSent) {
    listen_as(STRANGER);
    for (const uid_t user : {ROOT, OPERATOR}) {
        expect_refused_by(user);
    }
}

TEST_F(MtsListener, TheDirectorysOwnerIsTrustedIfNobodyElseCanWriteInIt) {
    listen_as(OPERATOR);
    for (const mode_t mode : {0755u, 0700u, 0750u, 01755u, 02755u}) {
        SCOPED_TRACE(testing::Message() << std::oct << mode);
        own_directory(OPERATOR, mode);
        expect_trusted_by(ROOT);
    }
    own_directory(OPERATOR, 0755);
    expect_trusted_by(STRANGER);
    for (const mode_t mode : {0775u, 0757u, 0777u, 01777u, 0720u, 0702u}) {
        SCOPED_TRACE(testing::Message() << std::oct << mode);
        own_directory(OPERATOR, mode);
        expect_refused_by(ROOT);
    }
}

TEST_F(MtsListener, AnotherThanTheDirectorysOwnerIsRefused) {
    own_directory(OPERATOR, 0755);
    listen_as(STRANGER);
    expect_refused_by(ROOT);
    expect_refused_by(OPERATOR);
}

TEST_F(MtsListener, AStrangerPublishesNoEvents) {
    const uint32_t event_class = 145;
    listen_as(STRANGER);
    EXPECT_EQ(-1, mts_events_open(&event_class, 1));
    EXPECT_EQ(EPERM, errno);
    EXPECT_TRUE(manager.accept().is_closed_by_client()) << "something was sent";

    listen_as(ROOT);
    EXPECT_NE(-1, mts_events_open(&event_class, 1));
    mts_events_close();
}

} // namespace
