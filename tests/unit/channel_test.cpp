// SPDX-License-Identifier: Apache-2.0
// The request channel: scalar exchanges and what a failed request becomes.

#include "module_test.h"

#include <cerrno>
#include <climits>
#include <cstring>

namespace {

class Channel : public ModuleTest {
  protected:
    // The scalar's value, or nothing for null.
    static std::optional<uint32_t> ask(uint32_t opcode, const bytes &payload = {}, uint32_t length = 4) {
        const uint32_t *cell = get_using_cmi(opcode, payload.empty() ? nullptr : payload.data(), length);
        return cell == nullptr ? std::nullopt : std::optional<uint32_t>(*cell);
    }

    // The agent's clock started here, in seconds of its own time.
    static void agent_started_at(time_t seconds, suseconds_t microseconds) {
        timeval start = {};
        start.tv_sec = seconds;
        start.tv_usec = microseconds;
        netsnmp_set_agent_starttime(&start);
    }

    static std::optional<uint32_t> last_change(uint32_t seconds, uint32_t microseconds) {
        platform.on(126, 1) = reply_script().reply(words({seconds, microseconds}));
        return ask(126, {}, 8);
    }
};

struct scalar_opcode {
    uint32_t opcode;
    size_t value_word; // which word of the reply is the value
    const char *trace; // the text before the value
};

const scalar_opcode plain_scalars[] = {
    {125, 0, "get_using_cmi : Recevied GET response  for VSANNUMBER/VSANIFNUMBER = "},
    {128, 0, "get_using_cmi : Recevied GET response  for VSANNUMBER/VSANIFNUMBER = "},
    {127, 1, "get_using_cmi : Recevied GET response  for FCTIMER stuff = "},
    {136, 1, "get_using_cmi : Recevied GET response  for FCLATENCY stuff = "},
    {140, 0, "get_using_cmi : Recevied GET response  for INORDERDELIVERY stuff = "},
};

// Reply data with `value` where this opcode carries it.
bytes scalar_reply(const scalar_opcode &scalar, uint32_t value) {
    return scalar.value_word == 0 ? words({value}) : words({0xDEADBEEF, value});
}

TEST_F(Channel, ValueIsTheOpcodesOwnWordInHostOrder) {
    for (const scalar_opcode &scalar : plain_scalars) {
        SCOPED_TRACE(scalar.opcode);
        platform.on(scalar.opcode, 1).reply(scalar_reply(scalar, 0x01020304));
        EXPECT_EQ(ask(scalar.opcode), 0x01020304u);
        EXPECT_EQ(last_manager_status, 0u);
    }
}

TEST_F(Channel, EveryValueIsTracedAsASignedNumber) {
    for (const scalar_opcode &scalar : plain_scalars) {
        SCOPED_TRACE(scalar.opcode);
        platform.history.clear();
        platform.debug.clear();
        platform.on(scalar.opcode, 1).reply(scalar_reply(scalar, 0xFFFFFFFE));
        ask(scalar.opcode);
        ASSERT_EQ(platform.history.size(), 1u);
        EXPECT_EQ(platform.history[0].trace_class, 101u);
        EXPECT_EQ(platform.history[0].text, std::string(scalar.trace) + "-2\n");
    }
}

TEST_F(Channel, CountsShareOneCellAndTheOtherValuesAnother) {
    platform.on(125, 1).reply(words({1}));
    platform.on(128, 1).reply(words({2}));
    platform.on(127, 1).reply(words({0, 3}));
    platform.on(136, 1).reply(words({0, 4}));
    platform.on(140, 1).reply(words({5}));
    const uint32_t *count = get_using_cmi(125, nullptr, 4);
    const uint32_t *value = get_using_cmi(127, nullptr, 4);
    EXPECT_NE(count, value);
    EXPECT_EQ(*count, 1u) << "a value does not overwrite a count";
    EXPECT_EQ(get_using_cmi(128, nullptr, 4), count);
    EXPECT_EQ(get_using_cmi(136, nullptr, 4), value);
    EXPECT_EQ(get_using_cmi(140, nullptr, 4), value);
}

TEST_F(Channel, EnvelopeOfARead) {
    const bytes payload = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
    platform.user = "alice";
    platform.session = 77;
    platform.on(127, 1).reply(words({0, 0}));
    ask(127, payload, 15);
    ASSERT_EQ(platform.requests.size(), 1u);
    const sent_request &request = platform.requests[0];
    expect_envelope_of_read(request, 127, 15);
    EXPECT_EQ(request.kind, 1u);
    EXPECT_EQ(request.payload, payload);
}

TEST_F(Channel, ALengthGoesOutWithoutPayloadToo) {
    platform.on(126, 1).reply(words({0, 0}));
    ask(126, {}, 8);
    ASSERT_EQ(platform.requests.size(), 1u);
    EXPECT_FALSE(platform.requests[0].has_payload);
    EXPECT_EQ(platform.requests[0].length, 8u);
}

TEST_F(Channel, TheResponseQueueIsReadAtEachCall) {
    char other;
    mts_queue *const original = mts_response_q;
    platform.on(125, 1).reply(words({1}));
    mts_response_q = reinterpret_cast<mts_queue *>(&other);
    ask(125);
    EXPECT_EQ(platform.requests[0].queue, mts_response_q);
    mts_response_q = original;
    ask(125);
    EXPECT_EQ(platform.requests[1].queue, original);
}

TEST_F(Channel, KindIsTdxOnlyForTimersUnderDistributionOutsideShowRunMode) {
    constexpr uint32_t opcodes[] = {125, 126, 127, 128, 136, 140};
    for (const uint32_t opcode : opcodes) {
        for (const uint32_t enabled : {0u, 1u, 7u}) {
            for (const uint32_t show_run : {0u, 1u, 9u}) {
                SCOPED_TRACE(testing::Message() << opcode << " enabled " << enabled << " show-run " << show_run);
                const bool tdx = opcode == 127 && enabled != 0 && show_run == 0;
                platform.requests.clear();
                platform.history.clear();
                platform.debug.clear();
                platform.tdx_features.clear();
                platform.tdx_enabled = enabled;
                platform.tdx_show_run = show_run;
                platform.on(opcode, tdx ? 5 : 1).reply(words({0, 0}));
                EXPECT_TRUE(ask(opcode));
                ASSERT_EQ(platform.requests.size(), 1u);
                EXPECT_EQ(platform.requests[0].kind, tdx ? 5u : 1u);
                EXPECT_EQ(traced(101, "get_using_cmi msg_type = TDX_GET_REQ \n"), tdx ? 1 : 0) << all_traces();
                EXPECT_EQ(platform.tdx_features, (std::vector<std::string>{"fctimer", "fctimer"}));
            }
        }
    }
}

TEST_F(Channel, ASilentDistributionServiceCountsAsNotEnabled) {
    platform.tdx_enabled = 1;
    platform.tdx_enabled_status = UINT32_MAX;
    platform.on(127, 1).reply(words({0, 60000}));
    EXPECT_EQ(ask(127), 60000u);
}

TEST_F(Channel, AnUnknownShowRunModeCountsAsOff) {
    platform.tdx_enabled = 1;
    platform.tdx_show_run = 1;
    platform.tdx_show_run_status = some_failure;
    platform.on(127, 5).reply(words({0, 60000}));
    EXPECT_EQ(ask(127), 60000u);
}

TEST_F(Channel, AFailedTdxReadIsNotSentAgain) {
    platform.tdx_enabled = 1;
    platform.on(127, 5).status(0x40190028);
    EXPECT_FALSE(ask(127));
    EXPECT_EQ(platform.requests.size(), 1u);
}

TEST_F(Channel, FailedExchangeGivesNullAndKeepsItsStatus) {
    for (const uint32_t opcode : {125u, 126u, 127u, 128u, 136u, 140u}) {
        platform.on(opcode, 1).status(0x40190002);
        EXPECT_FALSE(ask(opcode)) << opcode;
        EXPECT_EQ(last_manager_status, 0x40190002u);
    }
}

TEST_F(Channel, FailedExchangeWithAReplyReleasesItAndGivesNull) {
    for (const uint32_t opcode : {125u, 126u, 127u, 128u, 136u, 140u}) {
        platform.on(opcode, 1).status_with_data(0x40190002, words({1, 2, 3}));
        EXPECT_FALSE(ask(opcode)) << opcode;
        EXPECT_TRUE(platform.replies_held.empty());
    }
    EXPECT_EQ(platform.replies_made, 6u);
}

TEST_F(Channel, LocalFailureGivesNull) {
    platform.on(125, 1).fails(ETIMEDOUT);
    EXPECT_FALSE(ask(125));
    EXPECT_EQ(last_manager_status, UINT32_MAX);
}

TEST_F(Channel, SuccessWithoutReplyGivesNull) {
    last_manager_status = 1;
    platform.on(125, 1).no_data();
    EXPECT_FALSE(ask(125));
    EXPECT_EQ(last_manager_status, 0u);
}

TEST_F(Channel, EveryShortReplyGivesNullAndIsReleased) {
    struct {
        uint32_t opcode;
        size_t needed;
    } constexpr replies[] = {{125, 4}, {126, 8}, {127, 8}, {128, 4}, {136, 8}, {140, 4}};
    for (const auto &reply : replies) {
        for (size_t length = 0; length < reply.needed; ++length) {
            platform.on(reply.opcode, 1) = reply_script().reply(bytes(length, 0x55));
            EXPECT_FALSE(ask(reply.opcode)) << reply.opcode << " with " << length << " bytes";
            EXPECT_TRUE(platform.replies_held.empty());
        }
        platform.on(reply.opcode, 1) = reply_script().reply(bytes(reply.needed));
        EXPECT_TRUE(ask(reply.opcode)) << reply.opcode << " with all it needs";
    }
}

TEST_F(Channel, ALongerReplyIsFine) {
    platform.on(127, 1).reply(bytes(15));
    platform.on(136, 1).reply(bytes(12));
    platform.on(125, 1).reply(bytes(400));
    EXPECT_TRUE(ask(127));
    EXPECT_TRUE(ask(136));
    EXPECT_TRUE(ask(125));
}

TEST_F(Channel, UnexpectedOpcodesReleaseTheReplyAndGiveNull) {
    std::vector<uint32_t> unexpected = {0, 1, 124, 141, 149, 1282, 8018, UINT32_MAX};
    for (uint32_t opcode = 129; opcode <= 139; ++opcode) {
        if (opcode != 136) {
            unexpected.push_back(opcode);
        }
    }
    for (const uint32_t opcode : unexpected) {
        SCOPED_TRACE(opcode);
        platform.requests.clear();
        platform.on(opcode, 1).reply(words({1, 2, 3, 4}));
        EXPECT_FALSE(ask(opcode));
        EXPECT_TRUE(platform.replies_held.empty());
        EXPECT_EQ(platform.requests.size(), 1u) << "the request itself is sent";
    }
    EXPECT_EQ(platform.replies_made, unexpected.size());
}

TEST_F(Channel, LastChangeIsTheAgentsUptimeAtThatMoment) {
    agent_started_at(1000000, 250000);
    EXPECT_EQ(last_change(1000000, 250000), 0u);
    EXPECT_EQ(last_change(1000001, 250000), 100u);
    EXPECT_EQ(last_change(1000002, 0), 175u) << "borrows from the seconds";
    EXPECT_EQ(last_change(1000100, 999999), 10074u) << "hundredths are cut off";
}

TEST_F(Channel, LastChangeIsTraced) {
    agent_started_at(1000000, 0);
    last_change(1000002, 500000);
    EXPECT_TRACED(101, "get_using_cmi : Recevied GET response  for VSANTABLELASTCHANGE (tvsec = 1000002, "
                       "tvusec = 500000) = 250\n");
}

TEST_F(Channel, LastChangeIsZeroExactlyWhenTheAgentsUptimeIsANegativeLong) {
    agent_started_at(1000000, 0);
    for (const long uptime : {0L, 1L, LONG_MAX - 1, LONG_MAX, LONG_MIN, LONG_MIN + 1, -2L, -1L}) {
        agent.uptime = static_cast<u_long>(uptime);
        const uint32_t shown = uptime < 0 ? 0 : static_cast<uint32_t>(uptime);
        for (const uint32_t seconds : {0u, 999999u, 1000000u, 1000001u, 0xFFFFFFFFu}) {
            EXPECT_EQ(last_change(seconds, 0), shown) << uptime << " for " << seconds << ": no clock says otherwise";
        }
    }
}

TEST_F(Channel, LastChangeBeforeTheAgentsStartIsZero) {
    agent_started_at(1000000, 0);
    EXPECT_EQ(last_change(999999, 0), 0u);
    EXPECT_EQ(last_change(0, 0), 0u);
    EXPECT_EQ(last_change(999999, 990000), 0u) << "by one hundredth";
}

TEST_F(Channel, LastChangeTurnsOverWithTheAgentsLong) {
    constexpr int64_t start = 1790000000, day = 86400;
    agent_started_at(start, 0);
    struct {
        int64_t days;     // from the agent's start to the change
        uint32_t with_64; // what an agent of 64 bits shows,
        uint32_t with_32; // and one of 32, whose long turns over every 248 days
        const char *reason;
    } constexpr changes[] = {
        {-498, 0, 0, "long before"},
        {-249, 0, 2143607296, "negative once more than 32 bits can tell"},
        {-248, 0, 0, "the last day before that"},
        {-1, 0, 0, "a day before"},
        {1, 8640000, 8640000, "a day after"},
        {248, 2142720000, 2142720000, "the last day that is positive in 32 bits"},
        {249, 2151360000, 0, "negative in 32 bits"},
        {498, 7752704, 7752704, "TimeTicks themselves start again"},
    };
    for (const auto &change : changes) {
        EXPECT_EQ(last_change(static_cast<uint32_t>(start + change.days * day), 0),
                  sizeof(long) == 8 ? change.with_64 : change.with_32)
            << change.reason;
    }
}

TEST_F(Channel, LastChangeLeavesTheUptimeItselfInTheCountsCell) {
    platform.on(125, 1).reply(words({7}));
    const uint32_t *count = get_using_cmi(125, nullptr, 4);
    agent_started_at(1000000, 0);
    EXPECT_EQ(last_change(1000002, 0), 200u);
    EXPECT_EQ(*count, 200u);
    EXPECT_EQ(last_change(999999, 0), 0u);
    EXPECT_EQ(*count, static_cast<uint32_t>(-100)) << "as the agent gave it";
}

TEST_F(Channel, LastChangeSurvivesAnyReply) {
    agent_started_at(1000000, 0);
    for (const uint32_t seconds : {0u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        for (const uint32_t microseconds : {0u, 999999u, 0x80000000u, 0xFFFFFFFFu}) {
            EXPECT_TRUE(last_change(seconds, microseconds));
        }
    }
}

TEST_F(Channel, ErrorStatusOfEveryManagerStatus) {
    EXPECT_EQ(to_snmp_error_code(0, 3), SNMP_ERR_NOERROR);
    for (const uint32_t name_status : {0x40190001u, 0x40190004u}) {
        EXPECT_EQ(to_snmp_error_code(name_status, 3), 18);
        for (const int mode : {0, 1, 2, 4, -1}) {
            EXPECT_EQ(to_snmp_error_code(name_status, mode), 2) << mode;
        }
    }
    for (const uint32_t other : {1u, 0x40190000u, 0x40190002u, 0x40190003u, 0x40190005u, 0x40190028u, 0x4049002Cu,
                                 0x40490002u, 0x00190001u, 0xC0190001u, UINT32_MAX}) {
        EXPECT_EQ(to_snmp_error_code(other, 3), 5) << other;
        EXPECT_EQ(to_snmp_error_code(other, 0), 5) << other;
    }
    EXPECT_EQ(to_snmp_error_code(0, 0), 0);
}

TEST_F(Channel, ErrorStatusIsTracedOnEveryCallAndOnceMoreForNames) {
    struct {
        uint32_t status;
        bool is_name;
    } constexpr statuses[] = {{0, false}, {0x40190001, true}, {0x40190004, true}, {some_failure, false}};
    for (const auto &tested : statuses) {
        SCOPED_TRACE(tested.status);
        platform.history.clear();
        platform.debug.clear();
        to_snmp_error_code(tested.status, 3);
        ASSERT_EQ(platform.history.size(), tested.is_name ? 2u : 1u) << all_traces();
        EXPECT_TRUE(is_trace(platform.history[0].text, "to_snmp_error_code(#) \n"));
        if (tested.is_name) {
            EXPECT_TRUE(is_trace(platform.history[1].text, "to_snmp_error_code(#) ***Inconsistant Name! \n"));
        }
    }
}

} // namespace
