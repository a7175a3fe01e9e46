// SPDX-License-Identifier: Apache-2.0
// Port membership events as notifications, with the port manager's value asked for once.
//
// The module keeps that value for as long as the process lives, so whatever makes it
// known runs in a child process: every test begins with a module that does not know it,
// in any order and repeated.

#include "notification_test.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

namespace {

constexpr uint32_t port_membership = 102;

class PortNotification : public NotificationTest {
  protected:
    // Runs the rest of a test in a process of its own, checked as every test is.
    template <class function> void in_child(function run) {
        fflush(stdout);
        fflush(stderr);
        const pid_t child = fork();
        ASSERT_NE(child, -1);
        if (child == 0) {
            run();
            ModuleTest::TearDown();
            exit(HasFailure() ? 1 : 0);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the child's output tells why";
    }

    // Interface 16777216 has moved to VSAN 20; word 1 is nobody's business.
    static mts_message event(uint32_t if_index = 16777216, uint32_t vsan = 20) {
        return {words({if_index, 0xDEADBEEF, vsan, 0xDEADBEEF})};
    }
    static reply_script &on_query() { return platform.on(1282, 1); }

    static std::vector<binding> bindings(const bytes &value, uint32_t if_index, uint32_t vsan) {
        return {{below_root({1, 5, 1, 0}), 0x04, value},
                integer_binding({1, 3, 6, 1, 2, 1, 2, 2, 1, 1, if_index}, static_cast<int32_t>(if_index)),
                integer_binding(below_root({1, 1, 4, 0}), static_cast<int32_t>(vsan))};
    }

    const bytes value = {0x20, 0x01, 0x00, 0x0D, 0xEC, 0xA0, 0xB1, 0xC2};
};

TEST_F(PortNotification, CarriesThePortManagersValueInterfaceAndVsan) {
    in_child([this] {
        on_query().reply(value);
        const mts_message message = event();
        const notification sent = deliver(port_membership, &message);
        EXPECT_EQ(sent.send, 1);
        EXPECT_EQ(sent.name, below_root({1, 3, 0, 2}));
        EXPECT_EQ(sent.bindings, bindings(value, 16777216, 20)) << "the value as it was received";
        EXPECT_EQ(platform.binding_lengths, (std::vector<size_t>{8, 4, 4}));
        EXPECT_TRUE(platform.history.empty()) << all_traces();
    });
}

TEST_F(PortNotification, ThePortManagerIsAskedFirst) {
    platform.user = "alice";
    platform.session = 77;
    on_query().status(some_failure);
    const mts_message message = event();
    expect_nothing_sent(deliver(port_membership, &message));
    ASSERT_EQ(platform.requests.size(), 1u);
    const sent_request &request = platform.requests[0];
    EXPECT_EQ(request.opcode, 1282u);
    EXPECT_EQ(request.kind, 1u);
    EXPECT_FALSE(request.has_payload);
    EXPECT_EQ(request.length, 0u);
    EXPECT_TRUE(request.expects_reply);
    EXPECT_EQ(request.user, "alice");
    EXPECT_EQ(request.session, 77u);
    EXPECT_EQ(request.service, 46u);
    EXPECT_EQ(request.queue, mts_response_q);
    EXPECT_EQ(request.wait_class, 4u);
}

TEST_F(PortNotification, OutsideAnyPduTheQueryNamesNobody) {
    on_query().status(some_failure);
    const mts_message message = event();
    deliver(port_membership, &message);
    EXPECT_FALSE(platform.requests.at(0).user);
    EXPECT_EQ(platform.requests[0].session, 0u);
}

TEST_F(PortNotification, AFailedQuerySendsNothingAndIsRepeatedAtTheNextEvent) {
    in_child([this] {
        on_query()
            .status(some_failure)
            .fails(ECONNREFUSED)
            .status_with_data(some_failure, value)
            .no_data()
            .reply(bytes())
            .reply(bytes(7, 0xFF))
            .reply(value);
        const mts_message message = event();
        for (size_t i = 1; i <= 6; ++i) {
            expect_nothing_sent(deliver(port_membership, &message));
            EXPECT_EQ(platform.requests.size(), i);
            EXPECT_TRUE(platform.replies_held.empty());
        }
        EXPECT_EQ(deliver(port_membership, &message).bindings, bindings(value, 16777216, 20));
        EXPECT_EQ(platform.requests.size(), 7u);
    });
}

TEST_F(PortNotification, APortManagerThatIsAwayAtTheFirstEventIsAskedAtTheSecond) {
    in_child([this] {
        on_query().fails(ECONNREFUSED).reply(value);
        const mts_message first = event(5, 10);
        const mts_message second = event(6, 20);
        expect_nothing_sent(deliver(port_membership, &first));
        EXPECT_EQ(deliver(port_membership, &second).bindings, bindings(value, 6, 20)) << "nothing of the first one";
    });
}

TEST_F(PortNotification, TheValueIsAskedForOnceAndKept) {
    in_child([this] {
        bytes longer = value;
        longer.resize(100, 0xEE);
        on_query().reply(longer).reply(bytes(8, 0x11));
        for (const uint32_t if_index : {5u, 6u, 7u}) {
            const mts_message message = event(if_index, if_index + 100);
            EXPECT_EQ(deliver(port_membership, &message).bindings, bindings(value, if_index, if_index + 100));
        }
        EXPECT_EQ(platform.requests.size(), 1u);
    });
}

TEST_F(PortNotification, AValueOfWhichOneWordIsZeroIsKnown) {
    for (const bytes &half : {bytes{0, 0, 0, 0, 0, 0, 0, 1}, bytes{1, 0, 0, 0, 0, 0, 0, 0}}) {
        in_child([this, &half] {
            on_query().reply(half);
            const mts_message message = event();
            for (int i = 0; i < 2; ++i) {
                EXPECT_EQ(deliver(port_membership, &message).bindings, bindings(half, 16777216, 20));
            }
            EXPECT_EQ(platform.requests.size(), 1u);
        });
    }
}

TEST_F(PortNotification, AValueOfZeroesIsSentAndAskedForAgain) {
    on_query().reply(bytes(8));
    const mts_message message = event();
    for (size_t i = 1; i <= 2; ++i) {
        EXPECT_EQ(deliver(port_membership, &message).bindings, bindings(bytes(8), 16777216, 20));
        EXPECT_EQ(platform.requests.size(), i);
    }
}

TEST_F(PortNotification, TheValueOutlivesARestartOfTheModule) {
    in_child([this] {
        on_query().reply(value);
        const mts_message message = event();
        deliver(port_membership, &message);
        testing::internal::CaptureStdout();
        deinit_vsan_mib();
        init_vsan_mib();
        testing::internal::GetCapturedStdout();
        EXPECT_EQ(deliver(port_membership, &message).bindings, bindings(value, 16777216, 20));
        EXPECT_EQ(platform.requests.size(), 1u);
    });
}

TEST_F(PortNotification, NoMessageSendsNothingButMakesTheValueKnown) {
    in_child([this] {
        on_query().reply(value);
        expect_nothing_sent(deliver(port_membership, nullptr));
        EXPECT_EQ(platform.requests.size(), 1u);
        expect_nothing_sent(deliver(port_membership, nullptr));
        const mts_message message = event();
        EXPECT_EQ(deliver(port_membership, &message).send, 1);
        EXPECT_EQ(platform.requests.size(), 1u);
    });
}

TEST_F(PortNotification, AShortPayloadSendsNothing) {
    in_child([this] {
        on_query().reply(value);
        for (size_t length = 0; length < 12; ++length) {
            bytes cut = *event().payload;
            cut.resize(length);
            const mts_message message{bytes(cut.begin(), cut.end())};
            expect_nothing_sent(deliver(port_membership, &message));
        }
        const mts_message without_payload;
        expect_nothing_sent(deliver(port_membership, &without_payload));
        const mts_message just_enough{words({5, 0, 6})};
        EXPECT_EQ(deliver(port_membership, &just_enough).bindings, bindings(value, 5, 6));
    });
}

TEST_F(PortNotification, WhatFollowsTheThirdWordIsNobodysBusiness) {
    in_child([this] {
        on_query().reply(value);
        for (const size_t more : {size_t{1}, size_t{4}, size_t{100000}}) {
            bytes payload = words({5, 0, 6});
            payload.resize(payload.size() + more, 0xEE);
            const mts_message message{std::move(payload)};
            EXPECT_EQ(deliver(port_membership, &message).bindings, bindings(value, 5, 6)) << more;
        }
    });
}

TEST_F(PortNotification, EveryInterfaceIndexIsTheLastArcOfItsName) {
    in_child([this] {
        on_query().reply(value);
        for (const uint32_t if_index : {1u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu, 0u, 16777216u}) {
            const mts_message message = event(if_index, 0xFFFFFFFF);
            EXPECT_EQ(deliver(port_membership, &message).bindings, bindings(value, if_index, 0xFFFFFFFF)) << if_index;
        }
    });
}

TEST_F(PortNotification, TheNotificationIsAlwaysEnabled) {
    in_child([this] {
        on_query().reply(value);
        const mts_message message = event();
        for (const int send : {0, 1, -1}) {
            EXPECT_EQ(deliver(port_membership, &message, send).send, 1);
        }
        EXPECT_NOT_TRACED(101, "This Trap is Disabled (handle_port_memb_change_notifications)\n");
    });
}

} // namespace
