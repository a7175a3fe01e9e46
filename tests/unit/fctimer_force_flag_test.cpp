// SPDX-License-Identifier: Apache-2.0
// SET of a VSAN's force flags, and what they do to the timers written after them.

#include "fctimer_test.h"
#include "set_pdu.h"

namespace {

constexpr uint8_t OCTETS = 0x04;

class ForceFlagWrite : public FcTimerTest {
  protected:
    static oid_name instance(oid vsan) { return registered_object(FORCE_FLAG).instance({vsan}); }

    static int call(int phase, uint8_t type, const bytes &value, const oid_name &name) {
        forget_traces();
        testing::internal::CaptureStderr();
        const int status = write(set_vsanFcTimerForceFlag, phase, type, value, name);
        fflush(stderr);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
        return status;
    }
    static int call(int phase, uint8_t type, const bytes &value, oid vsan = 10) {
        return call(phase, type, value, instance(vsan));
    }
    static int act(uint8_t flags, oid vsan = 10) { return call(ACTION_PHASE, OCTETS, {flags}, vsan); }

    // An empty value; the agent's buffer still has a first byte.
    static int call_empty(int phase, uint8_t first_byte) {
        oid_name name = instance(10);
        return set_vsanFcTimerForceFlag(phase, &first_byte, OCTETS, 0, nullptr, name.data(), name.size());
    }

    static varbind flag_of(oid vsan, uint8_t flags) { return {FORCE_FLAG, {vsan}, OCTETS, {flags}}; }

    // The force bytes of the timer SETs sent, by timer.
    static std::vector<std::pair<uint32_t, int>> forced() {
        std::vector<std::pair<uint32_t, int>> result;
        for (const sent_request &request : timer_requests()) {
            if (request.kind == 3) {
                result.emplace_back(get_word(request.payload, 0), int{request.payload[9]});
            }
        }
        return result;
    }

    static void set_all_three(oid vsan) {
        EXPECT_EQ(set_pdu({unsigned32(RATOV, vsan, 10000)}).run(), set_outcome{});
        EXPECT_EQ(set_pdu({unsigned32(EDTOV, vsan, 2000)}).run(), set_outcome{});
        EXPECT_EQ(set_pdu({unsigned32(DSTOV, vsan, 5000)}).run(), set_outcome{});
    }
};

using forces = std::vector<std::pair<uint32_t, int>>;

TEST_F(ForceFlagWrite, RefusesEveryOtherTypeWithItsText) {
    for (const uint8_t type : bytes{0x02, 0x03, 0x05, 0x06, 0x40, 0x42, 0x43, 0x44, 0x00, 0xFF}) {
        EXPECT_EQ(call(RESERVE1_PHASE, type, {0x80}), 7) << int{type};
        expect_history({{101, "set_vsanFcTimerForceFlag : write to vsanFcTimerForceFlag not ASN_OCTET_STR \n"}});
    }
}

TEST_F(ForceFlagWrite, RefusesMoreThanOneByteWithItsText) {
    for (const size_t length : {2u, 3u, 4u, 8u, 100u}) {
        EXPECT_EQ(call(RESERVE1_PHASE, OCTETS, bytes(length, 0x80)), 8) << length;
        expect_history({{101, "set_vsanFcTimerForceFlag : write to vsanFcTimerForceFlag - bad length \n"}});
    }
}

TEST_F(ForceFlagWrite, AcceptsAnyByteAndTracesIt) {
    for (int flags = 0; flags < 256; ++flags) {
        EXPECT_EQ(call(RESERVE1_PHASE, OCTETS, {static_cast<uint8_t>(flags)}), 0);
        char text[80];
        snprintf(text, sizeof text, "set_vsanFcTimerForceFlag : ACTION flag i/p %x ", static_cast<unsigned>(flags));
        EXPECT_TRACED(101, text);
        EXPECT_EQ(vsanFcTimerForceFlags[10], 0) << "nothing is stored yet";
    }
    EXPECT_TRUE(platform.requests.empty());
}

TEST_F(ForceFlagWrite, AnEmptyValueIsTakenForItsFirstByte) {
    EXPECT_EQ(call_empty(RESERVE1_PHASE, 0xC0), 0);
    EXPECT_TRACED(101, "set_vsanFcTimerForceFlag : ACTION flag i/p c0 ");
    EXPECT_EQ(call_empty(ACTION_PHASE, 0xC0), 0);
    EXPECT_EQ(vsanFcTimerForceFlags[10], 0xC0);
}

TEST_F(ForceFlagWrite, NoValueAtAllSetsNoFlag) {
    EXPECT_EQ(act(0x80), 0);
    oid_name name = instance(10);
    for (const int phase : {RESERVE1_PHASE, ACTION_PHASE}) {
        EXPECT_EQ(set_vsanFcTimerForceFlag(phase, nullptr, OCTETS, 0, nullptr, name.data(), name.size()), 0) << phase;
    }
    EXPECT_EQ(vsanFcTimerForceFlags[10], 0);
}

TEST_F(ForceFlagWrite, TheLastStatusIsItsOwn) {
    last_timer_status = 0x5555;
    for (const set_phase phase : {RESERVE1_PHASE, ACTION_PHASE}) {
        last_force_flag_status = 0x6666;
        call(phase, OCTETS, {0x80}, 4096);
        EXPECT_EQ(last_force_flag_status, no_instance);
        call(phase, OCTETS, {0x80});
        EXPECT_EQ(last_force_flag_status, 0u);
    }
    EXPECT_EQ(last_timer_status, 0x5555u) << "that is of the timers";
}

TEST_F(ForceFlagWrite, ChecksTypeLengthInstanceAndUserInThatOrder) {
    platform.restrict_to({});
    EXPECT_EQ(call(RESERVE1_PHASE, 0x02, bytes(2), 0), 7);
    EXPECT_EQ(call(RESERVE1_PHASE, OCTETS, bytes(2), 0), 8);
    EXPECT_EQ(call(RESERVE1_PHASE, OCTETS, bytes(1), 0), 18);
    EXPECT_TRACED(101, "set_vsanFcTimerForceFlag : ACTION flag i/p 0 ");
    EXPECT_TRUE(platform.allowed_calls.empty());
    EXPECT_EQ(call(RESERVE1_PHASE, OCTETS, bytes(1), 10), 5);
}

TEST_F(ForceFlagWrite, InstancesBeginAtVsan1AndEndAt4095) {
    for (const oid vsan : {oid{1}, oid{4095}}) {
        EXPECT_EQ(call(RESERVE1_PHASE, OCTETS, {0x80}, vsan), 0);
        EXPECT_EQ(act(0x80, vsan), 0);
        EXPECT_EQ(vsanFcTimerForceFlags[vsan], 0x80);
    }
    for (const oid vsan : {oid{0}, oid{4096}, oid{0x80000001}, largest_arc}) {
        EXPECT_EQ(call(RESERVE1_PHASE, OCTETS, {0x80}, vsan), 18) << vsan;
        EXPECT_EQ(act(0x80, vsan), 5) << vsan;
    }
    EXPECT_EQ(std::count(std::begin(vsanFcTimerForceFlags), std::end(vsanFcTimerForceFlags), 0x80), 2);
    EXPECT_TRUE(platform.errors_set.empty()) << "a missing VSAN is only mapped";
}

TEST_F(ForceFlagWrite, ANameOfAnotherLengthIsNoInstance) {
    const registered_object column(FORCE_FLAG);
    for (const oid_name &name : {column.name(), column.instance({10, 1})}) {
        EXPECT_EQ(call(RESERVE1_PHASE, OCTETS, {0x80}, name), 18);
        EXPECT_EQ(call(ACTION_PHASE, OCTETS, {0x80}, name), 5) << "mapped, not a name status";
    }
    EXPECT_EQ(std::count(std::begin(vsanFcTimerForceFlags), std::end(vsanFcTimerForceFlags), 0), 4096);
    EXPECT_TRUE(platform.errors_set.empty());
}

TEST_F(ForceFlagWrite, ARestrictedUserMayWriteTheirOwnVsansOnly) {
    platform.restrict_to({10});
    EXPECT_EQ(call(RESERVE1_PHASE, OCTETS, {0x80}, 10), 0);
    EXPECT_TRUE(platform.error_records.empty());
    EXPECT_EQ(call(RESERVE1_PHASE, OCTETS, {0x80}, 30), 5);
    EXPECT_TRACED(100, "set_vsanFcTimerForceFlag : vsan restricted user -- not allowed in this vsan\n");
    ASSERT_EQ(platform.error_records.size(), 1u);
    EXPECT_EQ(platform.error_records[0].code, 0x4049002Cu);
    EXPECT_EQ(std::string(platform.error_records[0].text), failure_text(0x4049002C));
    EXPECT_EQ(platform.allowed_calls.back().name, instance(30));
    EXPECT_EQ(platform.allowed_calls.back().pdu_type, 163);
    EXPECT_TRUE(platform.errors_set.empty());
}

TEST_F(ForceFlagWrite, ActionReplacesTheThreeBitsAndSendsNothing) {
    for (int before : {0x00, 0xE0, 0xFF}) {
        for (int flags = 0; flags < 256; ++flags) {
            vsanFcTimerForceFlags[10] = static_cast<uint8_t>(before);
            EXPECT_EQ(act(static_cast<uint8_t>(flags)), 0);
            ASSERT_EQ(vsanFcTimerForceFlags[10], flags & 0xE0) << flags;
        }
    }
    EXPECT_EQ(act(0x1F), 0);
    EXPECT_EQ(vsanFcTimerForceFlags[10], 0);
    EXPECT_TRUE(platform.journal.empty());
}

TEST_F(ForceFlagWrite, ActionIsTraced) {
    const std::string function = "set_vsanFcTimerForceFlag : ";
    const std::vector<trace_line> instance_found = {
        {101, "get_vsanFcTimerEntry_instance : Entered "},
        {101, "get_vsanFcTimerEntry_instance : *length = 15 , vp_namelen = 14 "},
        {101, "get_vsanFcTimerEntry_instance : Exit with success "}};
    const auto wanted = [&](const std::vector<std::string> &texts) {
        std::vector<trace_line> lines = instance_found;
        for (const std::string &text : texts) {
            lines.push_back({101, function + text});
        }
        return lines;
    };
    act(0xFF);
    expect_history(wanted({"SET R_A_TOV flag :  80", "SET E_D_TOV flag :  c0", "SET D_S_TOV flag :  e0",
                           "ACTION vsan_id = 10 , flag set :  e0 "}));
    act(0x40);
    expect_history(wanted({"SET E_D_TOV flag :  40", "ACTION vsan_id = 10 , flag set :  40 "}));
    act(0x1F);
    expect_history(wanted({"ACTION vsan_id = 10 , flag set :  0 "}));
}

TEST_F(ForceFlagWrite, TheOtherPhasesDoNothing) {
    vsanFcTimerForceFlags[10] = 0x40;
    for (const int phase : {int{RESERVE2_PHASE}, int{COMMIT_PHASE}, int{FREE_PHASE}, int{UNDO_PHASE}, -1, 6}) {
        EXPECT_EQ(call(phase, OCTETS, {0xE0}), 0);
        EXPECT_EQ(call(phase, 0x02, bytes(5), 0), 0);
        EXPECT_TRUE(platform.history.empty()) << all_traces();
    }
    EXPECT_EQ(vsanFcTimerForceFlags[10], 0x40);
    EXPECT_TRUE(platform.journal.empty());
}

TEST_F(ForceFlagWrite, AllThreeBitsForceAllThreeTimersUntilItIsWrittenAgain) {
    EXPECT_EQ(set_pdu({flag_of(10, 0xE0)}).run(), set_outcome{});
    EXPECT_TRUE(forced().empty()) << "the flag itself is not sent";
    set_all_three(10);
    set_all_three(10);
    EXPECT_EQ(forced(), (forces{{8, 1}, {7, 1}, {9, 1}, {8, 1}, {7, 1}, {9, 1}}));
    platform.requests.clear();
    EXPECT_EQ(set_pdu({flag_of(10, 0x40)}).run(), set_outcome{});
    set_all_three(10);
    EXPECT_EQ(forced(), (forces{{8, 0}, {7, 1}, {9, 0}}));
}

TEST_F(ForceFlagWrite, AnotherVsanIsNotAffected) {
    EXPECT_EQ(set_pdu({flag_of(10, 0xE0)}).run(), set_outcome{});
    set_all_three(9);
    set_all_three(11);
    set_all_three(4095);
    for (const auto &[key, force] : forced()) {
        EXPECT_EQ(force, 0) << key;
    }
    EXPECT_EQ(forced().size(), 9u);
}

TEST_F(ForceFlagWrite, InOnePduItCountsForTheTimersThatFollow) {
    EXPECT_EQ(set_pdu({flag_of(10, 0x80), unsigned32(RATOV, 10, 10000)}).run(), set_outcome{});
    EXPECT_EQ(forced(), (forces{{8, 1}}));
    platform.requests.clear();
    EXPECT_EQ(set_pdu({unsigned32(RATOV, 11, 10000), flag_of(11, 0x80), unsigned32(EDTOV, 11, 2000)}).run(),
              set_outcome{});
    EXPECT_EQ(forced(), (forces{{8, 0}, {7, 0}}));
    EXPECT_EQ(vsanFcTimerForceFlags[11], 0x80);
}

TEST_F(ForceFlagWrite, ItStaysWhenATimerOfThePduFails) {
    set_pdu pdu({flag_of(10, 0x80), unsigned32(RATOV, 10, 10000)});
    pdu.before = [this](set_phase next) {
        if (next == ACTION_PHASE) {
            timer_answers = {{some_failure, 0, std::nullopt}};
        }
    };
    EXPECT_EQ(pdu.run(), (set_outcome{5, 2}));
    EXPECT_EQ(vsanFcTimerForceFlags[10], 0x80);
}

TEST_F(ForceFlagWrite, ReadsBackThroughTheTable) {
    EXPECT_EQ(set_pdu({flag_of(20, 0xFF)}).run(), set_outcome{});
    const read_answer answer = get(FORCE_FLAG, {20});
    ASSERT_EQ(answer.length, 1u);
    EXPECT_EQ(*answer.value, 0xE0);
}

using TimerFunctions = ModuleTest;

int other_method(int, u_char *, u_char, size_t, u_char *, oid *, size_t) {
    return 0;
}

TEST_F(TimerFunctions, ColumnsGetTheirWriteMethods) {
    for (int magic = -1; magic <= 256; ++magic) {
        WriteMethod *slot = other_method;
        set_fctimer_table_set_methods(magic, &slot);
        WriteMethod *const wanted = magic == 38   ? set_vsanFcTimerForceFlag
                                    : magic == 39 ? set_vsanFcTimerRatov
                                    : magic == 40 ? set_vsanFcTimerEdtov
                                    : magic == 41 ? set_vsanFcTimerDstov
                                                  : other_method;
        EXPECT_EQ(slot, wanted) << magic;
    }
}

TEST_F(TimerFunctions, AForceBitIsAddedForItsTimerWhenEnabled) {
    for (int flags = 0; flags < 256; ++flags) {
        for (const uint32_t key : {0u, 1u, 6u, 7u, 8u, 9u, 10u, 11u, 0x80000008u, UINT32_MAX}) {
            const int bit = key == 8 ? 0x80 : key == 7 ? 0x40 : key == 9 ? 0x20 : 0;
            const auto before = static_cast<uint8_t>(flags);
            EXPECT_EQ(set_mib_vsanFcTimerForceFlag(before, key, 0), before);
            for (const int enable : {1, 2, -1, 256}) {
                EXPECT_EQ(set_mib_vsanFcTimerForceFlag(before, key, enable), flags | bit) << key;
            }
        }
    }
}

} // namespace
