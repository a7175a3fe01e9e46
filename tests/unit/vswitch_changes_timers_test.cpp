// SPDX-License-Identifier: Apache-2.0
// The fabric timers: their ranges, their order, and the distribution service's session.
#include "vswitch_changes_fixture.h"

using namespace vswitch;
using namespace vswitch_test;

namespace {

constexpr uint32_t e_d_tov = 7, r_a_tov = 8, d_s_tov = 9, f_s_tov = 10;

class TimerTest : public ChangeTest {
  protected:
    uint32_t set(uint32_t key, uint32_t value, bool force = false, const std::string &user = "") {
        return send(127, MTS_KIND_SET, timer_record(key, 0, 0, value, force), user);
    }
    uint32_t set_of(uint32_t vsan, uint32_t key, uint32_t value, bool force = false, const std::string &user = "") {
        return send(127, MTS_KIND_SET, timer_record(key, 1, vsan, value, force), user);
    }

    // The value that a read of this kind answers, or its refusal.
    uint32_t read(uint32_t kind, uint32_t vsan, uint32_t key) {
        const uint32_t status = send(127, kind, timer_record(key, vsan != 0, vsan));
        return status == STATUS_SUCCESS ? word(reply_.data, 4) : status;
    }
    uint32_t running(uint32_t vsan, uint32_t key) { return read(MTS_KIND_GET, vsan, key); }
    uint32_t distributed(uint32_t vsan, uint32_t key) { return read(MTS_KIND_DISTRIBUTED_GET, vsan, key); }

    void enable() { ASSERT_EQ(tdx_enable(*target_, operator_, true), STATUS_SUCCESS); }
};

TEST_F(TimerTest, EveryBoundIsAcceptedAndTheNextValueRefused) {
    const std::tuple<uint32_t, uint32_t> lowest[] = {
        {e_d_tov, 1000}, {r_a_tov, 5000}, {d_s_tov, 5000}, {f_s_tov, 5000}};
    for (const auto &[key, low] : lowest) {
        for (const uint32_t value : {100000u, low}) {
            EXPECT_EQ(set(key, value, true), STATUS_SUCCESS) << key << " " << value;
            EXPECT_EQ(running(0, key), value);
            EXPECT_EQ(set_of(10, key, value, true), STATUS_SUCCESS) << key << " " << value;
            EXPECT_EQ(running(10, key), value);
        }
        for (const uint32_t value : {0u, low - 1, 100001u, 0xffffffffu}) {
            EXPECT_EQ(set(key, value, true), STATUS_BAD_TIMER) << key << " " << value;
            EXPECT_EQ(set_of(10, key, value, true), STATUS_BAD_TIMER) << key << " " << value;
        }
    }
}

TEST_F(TimerTest, VsanSOwnValueHidesTheSwitchWideOne) {
    ASSERT_EQ(set_of(10, r_a_tov, 20000), STATUS_SUCCESS);
    ASSERT_EQ(set(r_a_tov, 15000), STATUS_SUCCESS);
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(running(10, r_a_tov), 20000u);
        EXPECT_EQ(running(20, r_a_tov), 15000u);
        EXPECT_EQ(running(0, r_a_tov), 15000u);
        EXPECT_EQ(running(10, e_d_tov), 2000u);
        restarted();
    }
}

TEST_F(TimerTest, RecordThatIsNoTimerSIsRefused) {
    for (const uint32_t key : {0u, 6u, 11u, 0xffffffffu}) {
        EXPECT_EQ(set(key, 6000), STATUS_BAD_RECORD) << key;
        EXPECT_EQ(set_of(10, key, 6000), STATUS_BAD_RECORD) << key;
    }
    EXPECT_EQ(send(127, MTS_KIND_SET, timer_record(r_a_tov, 0, 10, 6000)), STATUS_BAD_RECORD)
        << "switch-wide, with a VSAN";
    EXPECT_EQ(send(127, MTS_KIND_SET, timer_record(r_a_tov, 2, 10, 6000)), STATUS_BAD_RECORD);
    EXPECT_EQ(send(127, MTS_KIND_SET, timer_record(r_a_tov, 1, 10, 6000, 2)), STATUS_BAD_RECORD) << "the force flag";
    EXPECT_EQ(set_of(11, r_a_tov, 6000), STATUS_NO_SUCH_VSAN);
    for (const uint32_t vsan : {0u, 4096u, 0xffffffffu}) {
        EXPECT_EQ(set_of(vsan, r_a_tov, 6000), STATUS_VSAN_OUT_OF_RANGE) << vsan;
    }
}

TEST_F(TimerTest, EDTovStaysBelowRATovUnlessForced) {
    EXPECT_EQ(set(e_d_tov, 9999), STATUS_SUCCESS);
    EXPECT_EQ(set(e_d_tov, 10000), STATUS_TIMER_ORDER);
    EXPECT_EQ(set(r_a_tov, 9999), STATUS_TIMER_ORDER);
    EXPECT_EQ(set_of(10, e_d_tov, 10000), STATUS_TIMER_ORDER) << "against the switch-wide R_A_TOV";
    ASSERT_EQ(set_of(10, r_a_tov, 20000), STATUS_SUCCESS);
    EXPECT_EQ(set_of(10, e_d_tov, 19999), STATUS_SUCCESS) << "against its own";
    EXPECT_EQ(set_of(10, e_d_tov, 20000), STATUS_TIMER_ORDER);
    EXPECT_EQ(set_of(10, e_d_tov, 20000, true), STATUS_SUCCESS) << "forced";
    EXPECT_EQ(set_of(10, d_s_tov, 6000), STATUS_SUCCESS) << "the other timers have no order";
    EXPECT_EQ(set_of(10, e_d_tov, 20000), STATUS_TIMER_ORDER) << "also when it is so already";
    EXPECT_EQ(running(10, e_d_tov), 20000u);
}

TEST_F(TimerTest, SwitchWideChangeKeepsTheOrderInVsansThatFollowIt) {
    ASSERT_EQ(set_of(10, r_a_tov, 6000), STATUS_SUCCESS);
    EXPECT_EQ(set(e_d_tov, 6000), STATUS_TIMER_ORDER) << "VSAN 10 would have both at 6000";
    EXPECT_EQ(set(e_d_tov, 5999), STATUS_SUCCESS);
    ASSERT_EQ(set_of(10, e_d_tov, 90000, true), STATUS_SUCCESS);
    EXPECT_EQ(set(e_d_tov, 6000), STATUS_SUCCESS) << "VSAN 10 has its own, forced, and does not follow";
    EXPECT_EQ(set(r_a_tov, 90000), STATUS_SUCCESS);
}

TEST_F(TimerTest, RestrictedUserSetsTheTimersOfOwnVsans) {
    EXPECT_EQ(set_of(10, r_a_tov, 20000, false, "alice"), STATUS_SUCCESS);
    EXPECT_EQ(set_of(20, r_a_tov, 20000, false, "alice"), STATUS_VSAN_RESTRICTED);
    EXPECT_EQ(set_of(11, r_a_tov, 20000, false, "alice"), STATUS_VSAN_RESTRICTED);
    EXPECT_EQ(set(r_a_tov, 20000, false, "alice"), STATUS_SWITCH_RESTRICTED);
    EXPECT_EQ(running(20, r_a_tov), 10000u);
}

TEST_F(TimerTest, ServiceAnswersItsOwnRecord) {
    EXPECT_EQ(distributed(10, r_a_tov), uint32_t{STATUS_TDX_REFUSED}) << "while it is not enabled";
    enable();
    EXPECT_EQ(distributed(10, r_a_tov), 30000u);
    EXPECT_EQ(running(10, r_a_tov), 10000u);
    EXPECT_EQ(distributed(10, e_d_tov), uint32_t{STATUS_NO_SUCH_ATTRIBUTE});
    EXPECT_EQ(distributed(0, r_a_tov), 10000u);
    ASSERT_EQ(tdx_refuse(*target_, operator_, true), STATUS_SUCCESS);
    EXPECT_EQ(distributed(10, r_a_tov), uint32_t{STATUS_TDX_REFUSED});
    EXPECT_TRUE(restarted().settings.tdx_refusing);
    EXPECT_EQ(running(10, r_a_tov), 10000u);
    ASSERT_EQ(tdx_refuse(*target_, operator_, false), STATUS_SUCCESS);
    ASSERT_EQ(tdx_show_run(*target_, operator_, true), STATUS_SUCCESS);
    EXPECT_EQ(distributed(10, r_a_tov), uint32_t{STATUS_TDX_REFUSED});
}

TEST_F(TimerTest, PendingValuesAreTheServiceSUntilTheyAreCommitted) {
    enable();
    EXPECT_FALSE(target_->model.session());
    ASSERT_EQ(set_of(20, r_a_tov, 40000, false, "bob"), STATUS_SUCCESS);
    ASSERT_EQ(set(d_s_tov, 7000, false, "bob"), STATUS_SUCCESS);
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(target_->model.session());
        EXPECT_EQ(target_->model.session()->user, "bob");
        EXPECT_EQ(running(20, r_a_tov), 10000u);
        EXPECT_EQ(running(0, d_s_tov), 5000u);
        EXPECT_EQ(distributed(20, r_a_tov), 40000u);
        EXPECT_EQ(distributed(0, d_s_tov), 7000u);
        restarted();
    }
    ASSERT_EQ(tdx_commit(*target_, {"bob", false}), STATUS_SUCCESS);
    for (int round = 0; round < 2; ++round) {
        EXPECT_FALSE(target_->model.session());
        EXPECT_EQ(running(20, r_a_tov), 40000u);
        EXPECT_EQ(distributed(20, r_a_tov), 40000u);
        EXPECT_EQ(running(0, d_s_tov), 7000u);
        EXPECT_EQ(distributed(20, d_s_tov), uint32_t{STATUS_NO_SUCH_ATTRIBUTE});
        restarted();
    }
    EXPECT_EQ(tdx_commit(*target_, {"bob", false}), STATUS_TDX_NO_SESSION);
}

TEST_F(TimerTest, AbortedSessionLeavesNothing) {
    enable();
    const SwitchData before = data();
    ASSERT_EQ(set_of(20, r_a_tov, 40000, false, "bob"), STATUS_SUCCESS);
    EXPECT_EQ(tdx_abort(*target_, {"bob", false}), STATUS_SUCCESS);
    EXPECT_EQ(data(), before);
    EXPECT_EQ(restarted(), before);
    EXPECT_EQ(tdx_abort(*target_, {"bob", false}), STATUS_TDX_NO_SESSION);
}

TEST_F(TimerTest, SessionIsLockedByItsFirstUser) {
    enable();
    ASSERT_EQ(set_of(20, r_a_tov, 40000, false, "bob"), STATUS_SUCCESS);
    EXPECT_EQ(set_of(20, r_a_tov, 50000, false, "bob"), STATUS_SUCCESS) << "the holder goes on";
    EXPECT_EQ(set_of(10, r_a_tov, 50000, false, "alice"), STATUS_TDX_LOCKED);
    EXPECT_EQ(set(r_a_tov, 50000), STATUS_TDX_LOCKED) << "nor may one without a name";
    EXPECT_EQ(set_switch_timer(*target_, operator_, Timer::r_a_tov, 50000, false), STATUS_TDX_LOCKED);
    EXPECT_EQ(tdx_commit(*target_, {"alice", false}), STATUS_TDX_LOCKED);
    EXPECT_EQ(tdx_abort(*target_, {"alice", false}), STATUS_TDX_LOCKED);
    EXPECT_EQ(tdx_enable(*target_, operator_, false), STATUS_TDX_SESSION_OPEN);
    EXPECT_EQ(distributed(20, r_a_tov), 50000u);
    EXPECT_EQ(tdx_abort(*target_, operator_), STATUS_SUCCESS) << "an operator may end it";
    EXPECT_EQ(set_of(10, r_a_tov, 50000, false, "alice"), STATUS_SUCCESS);
    EXPECT_EQ(tdx_commit(*target_, operator_), STATUS_SUCCESS);
    EXPECT_EQ(running(10, r_a_tov), 50000u);
    EXPECT_EQ(tdx_enable(*target_, operator_, false), STATUS_SUCCESS);
}

TEST_F(TimerTest, UserWithoutANameCanHoldTheSession) {
    enable();
    ASSERT_EQ(set_of(20, r_a_tov, 40000), STATUS_SUCCESS);
    EXPECT_EQ(set_of(20, e_d_tov, 4000), STATUS_SUCCESS);
    EXPECT_EQ(set_of(20, r_a_tov, 50000, false, "bob"), STATUS_TDX_LOCKED);
    EXPECT_EQ(restarted().session->user, "");
}

TEST_F(TimerTest, OrderHoldsAmongPendingValues) {
    enable();
    ASSERT_EQ(set_of(20, r_a_tov, 40000), STATUS_SUCCESS);
    EXPECT_EQ(set_of(20, e_d_tov, 39999), STATUS_SUCCESS);
    EXPECT_EQ(set_of(20, e_d_tov, 40000), STATUS_TIMER_ORDER);
    EXPECT_EQ(set_of(20, r_a_tov, 39999), STATUS_TIMER_ORDER);
    EXPECT_EQ(set(e_d_tov, 9999), STATUS_SUCCESS);
    EXPECT_EQ(set_of(10, r_a_tov, 9999), STATUS_TIMER_ORDER) << "against the pending switch-wide value";
    EXPECT_EQ(set_of(10, r_a_tov, 9999, true), STATUS_SUCCESS);
}

TEST_F(TimerTest, RefusedSetOpensNoSession) {
    enable();
    EXPECT_EQ(set_of(20, r_a_tov, 1), STATUS_BAD_TIMER);
    EXPECT_EQ(set_of(20, e_d_tov, 10000), STATUS_TIMER_ORDER);
    EXPECT_EQ(set_of(20, r_a_tov, 40000, false, "alice"), STATUS_VSAN_RESTRICTED);
    EXPECT_FALSE(target_->model.session());
}

TEST_F(TimerTest, PendingValuesGoWithTheirVsan) {
    enable();
    ASSERT_EQ(set_of(20, r_a_tov, 40000), STATUS_SUCCESS);
    ASSERT_EQ(set_of(10, r_a_tov, 50000), STATUS_SUCCESS);
    ASSERT_EQ(delete_vsan(20), STATUS_SUCCESS);
    EXPECT_EQ(data().session->pending.count(20), 0u);
    EXPECT_EQ(restarted().session->pending.size(), 1u);
    EXPECT_EQ(tdx_commit(*target_, operator_), STATUS_SUCCESS);
    EXPECT_EQ(running(10, r_a_tov), 50000u);
    ASSERT_EQ(set_vsan(block_of(20)), STATUS_SUCCESS);
    EXPECT_EQ(running(20, r_a_tov), 10000u);
}

TEST_F(TimerTest, ServiceWithoutAFabricCommitsNothing) {
    enable();
    ASSERT_EQ(set_of(20, r_a_tov, 40000), STATUS_SUCCESS);
    ASSERT_EQ(tdx_refuse(*target_, operator_, true), STATUS_SUCCESS);
    EXPECT_EQ(tdx_commit(*target_, operator_), STATUS_TDX_NO_FABRIC);
    EXPECT_TRUE(target_->model.session());
    EXPECT_EQ(running(20, r_a_tov), 10000u);
}

TEST_F(TimerTest, TimerThatCannotBeWrittenIsRefused) {
    FullDisk disk;
    const SwitchData before = data();
    EXPECT_EQ(set(r_a_tov, 20000), STATUS_STORE_FAILED);
    EXPECT_EQ(set_of(10, r_a_tov, 20000), STATUS_STORE_FAILED);
    EXPECT_EQ(data(), before);
}

TEST_F(TimerTest, SessionThatCannotBeWrittenIsAsBefore) {
    enable();
    {
        FullDisk disk;
        EXPECT_EQ(set_of(20, r_a_tov, 40000), STATUS_STORE_FAILED);
        EXPECT_FALSE(target_->model.session());
    }
    ASSERT_EQ(set_of(20, r_a_tov, 40000), STATUS_SUCCESS);
    const SwitchData before = data();
    FullDisk disk;
    EXPECT_EQ(tdx_commit(*target_, operator_), STATUS_STORE_FAILED);
    EXPECT_EQ(tdx_abort(*target_, operator_), STATUS_STORE_FAILED);
    EXPECT_EQ(data(), before);
}

} // namespace
