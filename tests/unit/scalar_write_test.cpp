// SPDX-License-Identifier: Apache-2.0
// SET of the six writable scalars: each phase, each check, and the request.

#include "module_test.h"

#include <algorithm>
#include <cerrno>

namespace {

struct writer {
    const char *object;
    WriteMethod *method;
    uint8_t type;
    const char *type_text;
    const char *length_text;
    bool to_trace; // where the two texts go: trace class 101, or standard error
    uint32_t lowest;
    uint32_t highest;
    uint32_t opcode;
    uint8_t key;
    size_t size; // of the record sent
};

void PrintTo(const writer &tested, std::ostream *out) {
    *out << tested.object;
}

const writer writers[] = {
    {"fcTimerRatov", set_fcTimerRatov, 0x42, "set_fcTimerRatov : write to fcTimerRatov not ASN_UNSIGNED\n",
     "set_fcTimerRatov : write to fcTimerRatov - bad length\n ", true, 5000, 100000, 127, 8, 15},
    {"fcTimerEdtov", set_fcTimerEdtov, 0x42, "set_fcTimerEdtov : write to fcTimerEdtov not ASN_UNSIGNED\n",
     "set_fcTimerEdtov : write to fcTimerEdtov - bad length \n", true, 1000, 100000, 127, 7, 15},
    {"fcTimerDstov", set_fcTimerDstov, 0x42, "set_fcTimerDstov : write to fcTimerDstov not ASN_UNSIGNED \n",
     "set_fcTimerDstov : write to fcTimerDstov - bad length \n", true, 5000, 100000, 127, 9, 15},
    {"fcNetworkLatency", set_fcNetworkLatency, 0x42, "write to fcNetworkLatency not ASN_UNSIGNED\n",
     "write to fcNetworkLatency: bad length\n", false, 0, 60000, 136, 18, 12},
    {"fcSwitchLatency", set_fcSwitchLatency, 0x42, "write to fcSwitchLatency not ASN_UNSIGNED\n",
     "write to fcSwitchLatency: bad length\n", false, 0, 60000, 136, 17, 12},
    {"fcInorderDelivery", set_fcInorderDelivery, 0x02, "write to fcInorderDelivery not ASN_INTEGER\n",
     "write to fcInorderDelivery: bad length\n", false, 1, 2, 140, 0, 4},
};

constexpr int RESERVE1_PHASE = 0;
constexpr int RESERVE2_PHASE = 1;
constexpr int ACTION_PHASE = 2;
constexpr int COMMIT_PHASE = 3;
constexpr int FREE_PHASE = 4;
constexpr int UNDO_PHASE = 5;

class ScalarWrite : public ModuleTest, public testing::WithParamInterface<writer> {
  protected:
    struct refusal {
        int status;
        std::string standard_error;
    };

    // RESERVE1 with any type and value.
    static refusal reserve(uint8_t type, const bytes &value) {
        platform.history.clear();
        platform.debug.clear();
        testing::internal::CaptureStderr();
        const int status = write(GetParam().method, RESERVE1_PHASE, type, value);
        fflush(stderr);
        return {status, testing::internal::GetCapturedStderr()};
    }

    static int reserve_number(int64_t number) { return reserve(GetParam().type, as_long(number)).status; }

    static void expect_text(const refusal &refused, const std::string &text) {
        if (GetParam().to_trace) {
            EXPECT_EQ(refused.standard_error, "");
            ASSERT_EQ(platform.history.size(), 1u);
            EXPECT_EQ(platform.history[0].trace_class, 101u);
            EXPECT_EQ(platform.history[0].text, text);
        } else {
            EXPECT_EQ(refused.standard_error, text);
            EXPECT_TRUE(platform.history.empty()) << all_traces();
        }
    }

    // The record that carries a value.
    static bytes record(uint32_t value) {
        bytes result(GetParam().size);
        if (GetParam().size == 4) {
            put_word(result, 0, value);
        } else {
            put_word(result, 0, GetParam().key);
            put_word(result, 4, value);
        }
        return result;
    }

    static int act(uint32_t value) { return write(GetParam().method, ACTION_PHASE, GetParam().type, as_long(value)); }

    static void manager_accepts() { platform.on(GetParam().opcode, 3).no_data(); }
};

TEST_P(ScalarWrite, AcceptsItsBoundsAndNothingOutside) {
    const writer &tested = GetParam();
    EXPECT_EQ(reserve_number(tested.lowest), 0);
    EXPECT_EQ(reserve_number(tested.highest), 0);
    EXPECT_EQ(reserve_number((tested.lowest + tested.highest) / 2), 0);
    EXPECT_EQ(reserve_number(int64_t{tested.highest} + 1), 10);
    EXPECT_EQ(reserve_number(int64_t{tested.lowest} - 1), 10);
    EXPECT_EQ(reserve_number(INT32_MAX), 10);
    EXPECT_EQ(reserve_number(INT32_MIN), 10);
    EXPECT_EQ(reserve_number(-1), 10);
    EXPECT_EQ(reserve(tested.type, as_word(UINT32_MAX)).status, 10);
    EXPECT_EQ(reserve(tested.type, as_word(0x80000000u)).status, 10);
    EXPECT_TRUE(platform.journal.empty()) << "checks send nothing";
}

TEST_P(ScalarWrite, ARangeRefusalSaysNothing) {
    const refusal refused = reserve(GetParam().type, as_word(GetParam().highest + 1));
    EXPECT_EQ(refused.status, 10);
    EXPECT_EQ(refused.standard_error, "");
    EXPECT_TRUE(platform.history.empty());
}

TEST_P(ScalarWrite, RefusesEveryOtherTypeWithItsText) {
    for (const uint8_t type : bytes{0x02, 0x04, 0x05, 0x06, 0x40, 0x41, 0x42, 0x43, 0x44, 0x46, 0x00, 0xFF}) {
        if (type == GetParam().type) {
            continue;
        }
        SCOPED_TRACE(int{type});
        const refusal refused = reserve(type, as_long(GetParam().lowest));
        EXPECT_EQ(refused.status, 7);
        expect_text(refused, GetParam().type_text);
    }
    EXPECT_TRUE(platform.journal.empty());
}

TEST_P(ScalarWrite, RefusesEveryOtherLengthWithItsText) {
    for (size_t length = 5; length <= 16; ++length) {
        if (length == sizeof(long)) {
            continue;
        }
        SCOPED_TRACE(length);
        bytes value(length);
        value[0] = 1;
        const refusal refused = reserve(GetParam().type, value);
        EXPECT_EQ(refused.status, 8);
        expect_text(refused, GetParam().length_text);
    }
    EXPECT_TRUE(platform.journal.empty());
}

TEST_P(ScalarWrite, ChecksTypeThenLengthThenValue) {
    const uint8_t other_type = 0x04;
    EXPECT_EQ(reserve(other_type, bytes(5, 0xFF)).status, 7);
    EXPECT_EQ(reserve(GetParam().type, bytes(5, 0xFF)).status, 8);
    EXPECT_EQ(reserve(other_type, as_word(UINT32_MAX)).status, 7);
    EXPECT_EQ(reserve(GetParam().type, bytes(4, 0xFF)).status, 10);
}

TEST_P(ScalarWrite, AcceptsAWordAndTheAgentsLong) {
    EXPECT_EQ(reserve(GetParam().type, as_word(GetParam().highest)).status, 0);
    EXPECT_EQ(reserve(GetParam().type, as_long(GetParam().highest)).status, 0);
}

TEST_P(ScalarWrite, ReadsNoMoreBytesThanThereAre) {
    for (size_t length = 0; length < 4; ++length) {
        SCOPED_TRACE(length);
        const uint32_t all_ones = length == 0 ? 0 : 0xFFFFFFFFu >> (32 - 8 * length);
        for (const uint32_t number : {0u, 1u, 200u, 2000u, 6000u, 60000u, 70000u, 0xFFFFFFFFu}) {
            const uint32_t read = number & all_ones;
            const bool fits = read >= GetParam().lowest && read <= GetParam().highest;
            EXPECT_EQ(reserve(GetParam().type, as_word(number, length)).status, fits ? 0 : 10) << number;
        }
    }
}

TEST_P(ScalarWrite, EightBytesCountForTheirLowWordWhereALongHasThem) {
    const bool is_long = sizeof(long) == 8;
    for (const int64_t high : {int64_t{1}, int64_t{-1}, int64_t{INT32_MAX}, int64_t{INT32_MIN}}) {
        const auto reserve_wide = [&](uint32_t low) {
            return reserve(GetParam().type, as_eight_bytes(high * 4294967296 + low)).status;
        };
        EXPECT_EQ(reserve_wide(GetParam().highest), is_long ? 0 : 8) << high;
        EXPECT_EQ(reserve_wide(GetParam().highest + 1), is_long ? 10 : 8) << high;
    }
}

TEST_P(ScalarWrite, ActionSendsOneRequestWithTheWholeEnvelope) {
    manager_accepts();
    platform.user = "alice";
    platform.session = 77;
    EXPECT_EQ(act(GetParam().highest), 0);
    ASSERT_EQ(platform.requests.size(), 1u);
    const sent_request &request = platform.requests[0];
    EXPECT_EQ(request.opcode, GetParam().opcode);
    EXPECT_EQ(request.kind, 3u);
    EXPECT_EQ(request.payload, record(GetParam().highest));
    EXPECT_EQ(request.length, GetParam().size);
    EXPECT_FALSE(request.expects_reply);
    EXPECT_EQ(request.user, "alice");
    EXPECT_EQ(request.session, 77u);
    EXPECT_EQ(request.service, 15u);
    EXPECT_EQ(request.queue, mts_response_q);
    EXPECT_EQ(request.wait_class, 10u);
    EXPECT_TRUE(platform.errors_set.empty());
}

TEST_P(ScalarWrite, ActionReadsAWordAsItReadsALong) {
    manager_accepts();
    for (const uint32_t value : {GetParam().lowest, GetParam().highest}) {
        platform.requests.clear();
        EXPECT_EQ(write(GetParam().method, ACTION_PHASE, GetParam().type, as_word(value)), 0);
        EXPECT_EQ(act(value), 0);
        ASSERT_EQ(platform.requests.size(), 2u);
        EXPECT_EQ(platform.requests[0].payload, record(value));
        EXPECT_EQ(platform.requests[1].payload, record(value));
    }
    const uint32_t of_two_bytes = std::min(GetParam().highest, 60000u);
    EXPECT_EQ(write(GetParam().method, ACTION_PHASE, GetParam().type, as_word(of_two_bytes, 2)), 0);
    EXPECT_EQ(platform.requests.back().payload, record(of_two_bytes));
}

TEST_P(ScalarWrite, ActionWithoutAUserNamesNone) {
    manager_accepts();
    act(GetParam().lowest);
    EXPECT_FALSE(platform.requests.at(0).user);
    EXPECT_EQ(platform.requests[0].session, 0u);
}

TEST_P(ScalarWrite, TheRequestAloneStandsBetweenTheHeartbeats) {
    manager_accepts();
    act(GetParam().lowest);
    const std::string sent = "request " + std::to_string(GetParam().opcode) + " kind 3";
    EXPECT_EQ(platform.journal, (std::vector<std::string>{"heartbeat 1", sent, "heartbeat 0"}));
}

TEST_P(ScalarWrite, ARefusalIsRecordedAndMapped) {
    struct {
        uint32_t status;
        int error;
    } constexpr refusals[] = {{0x40190001, 18}, {0x40190004, 18}, {0x40190002, 5}, {some_failure, 5}};
    for (const auto &refused : refusals) {
        SCOPED_TRACE(refused.status);
        platform.journal.clear();
        platform.errors_set.clear();
        platform.on(GetParam().opcode, 3) = reply_script().status(refused.status);
        EXPECT_EQ(act(GetParam().lowest), refused.error);
        ASSERT_EQ(platform.errors_set.size(), 1u);
        EXPECT_EQ(platform.errors_set[0], (std::pair<uint32_t, uint32_t>{refused.status, 200}));
        EXPECT_EQ(last_timer_status, refused.status);
        ASSERT_EQ(platform.journal.size(), 4u);
        EXPECT_EQ(platform.journal[0], "heartbeat 1");
        EXPECT_EQ(platform.journal[2], "heartbeat 0") << "whatever the result";
    }
}

TEST_P(ScalarWrite, ALocalFailureIsAGeneralError) {
    platform.on(GetParam().opcode, 3).fails(ETIMEDOUT);
    EXPECT_EQ(act(GetParam().lowest), 5);
    EXPECT_EQ(platform.errors_set.at(0), (std::pair<uint32_t, uint32_t>{UINT32_MAX, 200}));
    EXPECT_EQ(platform.heartbeats, (std::vector<int>{1, 0}));
}

TEST_P(ScalarWrite, TheOtherPhasesDoNothing) {
    for (const int phase : {RESERVE2_PHASE, COMMIT_PHASE, FREE_PHASE, UNDO_PHASE}) {
        EXPECT_EQ(write(GetParam().method, phase, GetParam().type, as_long(GetParam().lowest)), 0) << phase;
        EXPECT_EQ(write(GetParam().method, phase, 0x04, bytes(5, 0xFF)), 0) << phase;
    }
    EXPECT_TRUE(platform.journal.empty());
    EXPECT_TRUE(platform.history.empty()) << all_traces();
}

TEST_P(ScalarWrite, AnAcceptedValueIsNotTakenBack) {
    manager_accepts();
    EXPECT_EQ(reserve_number(GetParam().highest), 0);
    EXPECT_EQ(act(GetParam().highest), 0);
    write(GetParam().method, UNDO_PHASE, GetParam().type, as_long(GetParam().highest));
    write(GetParam().method, FREE_PHASE, GetParam().type, as_long(GetParam().highest));
    EXPECT_EQ(platform.requests.size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(All, ScalarWrite, testing::ValuesIn(writers),
                         [](const auto &tested) { return std::string(tested.param.object); });

using SetScalar = ModuleTest;

TEST_F(SetScalar, SendsAnyRecordAndReturnsAnErrorStatus) {
    const bytes payload = {1, 2, 3};
    platform.on(136, 3).no_data().status(0x40190001).status(some_failure);
    EXPECT_EQ(set_Scalar(136, 3, payload.data()), 0);
    EXPECT_EQ(set_Scalar(136, 3, payload.data()), 18);
    EXPECT_EQ(set_Scalar(136, 3, payload.data()), 5);
    EXPECT_EQ(platform.requests.at(0).payload, payload);
    EXPECT_EQ(platform.heartbeats, (std::vector<int>{1, 0, 1, 0, 1, 0}));
    EXPECT_EQ(platform.errors_set.size(), 2u);
}

} // namespace
