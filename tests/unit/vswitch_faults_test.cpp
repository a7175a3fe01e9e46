// SPDX-License-Identifier: Apache-2.0
// Faults: which requests they meet, how often, and what becomes of those requests.
#include "network/conversation.h"
#include "vswitch_test_support.h"

using namespace vswitch;
using namespace vswitch_test;

namespace {

constexpr uint32_t op_interface = 124;
constexpr uint32_t op_vsan_count = 125;
constexpr uint32_t op_timer = 127;
constexpr uint32_t op_vsan = 149;

Request make_request(uint32_t service, uint32_t opcode, uint32_t kind, const Buffer &payload) {
    Request request;
    request.service = service;
    request.opcode = opcode;
    request.kind = kind;
    request.payload = payload;
    request.length = static_cast<uint32_t>(payload.size());
    return request;
}

Fault fault_for(FaultMatch match, FaultAction action = FaultAction::drop, uint32_t value = 0) {
    Fault fault;
    fault.match = match;
    fault.action = action;
    fault.value = value;
    return fault;
}

// Whether a fault with this match meets this request.
bool meets(FaultMatch match, const Request &request) {
    Faults faults;
    faults.add(fault_for(match));
    return faults.take(request).has_value();
}

TEST(Faults, MatchByServiceOpcodeAndKindOnlyWhatAgreesWithAll) {
    const Buffer block = vsan_block(10);
    const Request request = make_request(MANAGER_SAP_VSAN, op_vsan, 1, block);
    EXPECT_TRUE(meets({}, request));
    EXPECT_TRUE(meets({.service = MANAGER_SAP_VSAN, .opcode = op_vsan, .kind = 1, .vsan = 10}, request));
    EXPECT_FALSE(meets({.service = MANAGER_SAP_PORT, .opcode = op_vsan}, request));
    EXPECT_FALSE(meets({.opcode = op_timer}, request));
    EXPECT_FALSE(meets({.opcode = op_vsan, .kind = 2}, request));
    EXPECT_FALSE(meets({.opcode = op_vsan, .kind = 1, .vsan = 11}, request));
    EXPECT_FALSE(meets({.if_index = 10}, request)) << "a VSAN's record names no interface";
}

TEST(Faults, MatchByWhatTheRecordOfEachOpcodeNames) {
    const Buffer interface = words({0x01002000, 20, 0, 0});
    const Request move = make_request(MANAGER_SAP_VSAN, op_interface, 3, interface);
    EXPECT_TRUE(meets({.vsan = 20}, move));
    EXPECT_TRUE(meets({.if_index = 0x01002000}, move));
    EXPECT_FALSE(meets({.if_index = 20}, move));

    const Buffer timer = timer_record(8, 1, 30);
    EXPECT_TRUE(meets({.vsan = 30}, make_request(MANAGER_SAP_VSAN, op_timer, 1, timer)));
    const Buffer switch_timer = timer_record(8, 0, 30);
    EXPECT_FALSE(meets({.vsan = 30}, make_request(MANAGER_SAP_VSAN, op_timer, 1, switch_timer)))
        << "a switch-wide record names no VSAN";

    const Buffer member = words({40, 0x01003000, 0});
    const Request membership = make_request(MANAGER_SAP_PORT, MTS_OP_PORT_MEMBERSHIP, 2, member);
    EXPECT_TRUE(meets({.vsan = 40, .if_index = 0x01003000}, membership));
    EXPECT_FALSE(meets({.vsan = 40, .if_index = 0x01004000}, membership));

    const Buffer alias = words({0x01003000, PORT_SETTING_ALIAS, 0x78787878});
    const Request set_alias = make_request(MANAGER_SAP_PORT, MTS_OP_PORT, 3, alias);
    EXPECT_TRUE(meets({.if_index = 0x01003000}, set_alias));
    EXPECT_FALSE(meets({.if_index = PORT_SETTING_ALIAS}, set_alias));

    const Buffer count;
    EXPECT_FALSE(meets({.vsan = 10}, make_request(MANAGER_SAP_VSAN, op_vsan_count, 1, count)));
    const Buffer cut(20);
    EXPECT_FALSE(meets({.vsan = 0}, make_request(MANAGER_SAP_VSAN, op_vsan, 1, cut))) << "no record at all";
}

TEST(Faults, NeverMeetTheSwitchsOwnService) {
    const Buffer none;
    EXPECT_FALSE(meets({}, make_request(MTS_SERVICE_SWITCH, MTS_OP_SWITCH_COMMAND, 3, none)));
    EXPECT_TRUE(meets({}, make_request(MTS_SERVICE_ROLES, MTS_OP_ROLE_OF_USER, 1, none)));
}

TEST(Faults, ApplyInTheOrderOfAdditionAndAsOftenAsTheyShould) {
    Faults faults;
    Fault first = fault_for({.opcode = op_vsan});
    first.remaining = 2;
    EXPECT_EQ(faults.add(first), 1u);
    EXPECT_EQ(faults.add(fault_for({})), 2u);
    const Buffer block = vsan_block(1);
    const Request request = make_request(MANAGER_SAP_VSAN, op_vsan, 1, block);
    EXPECT_EQ(faults.take(request)->number, 1u);
    EXPECT_EQ(faults.list().front().remaining, 1u);
    EXPECT_EQ(faults.take(request)->number, 1u);
    EXPECT_EQ(faults.take(request)->number, 2u) << "the first is used up";
    EXPECT_EQ(faults.take(request)->number, 2u);
    ASSERT_EQ(faults.list().size(), 1u);
    EXPECT_EQ(faults.list().front().applied, 2u);
    EXPECT_EQ(faults.applied(), 4u);
}

TEST(Faults, NumbersAreNotUsedAgainAndClearingFindsThem) {
    Faults faults;
    faults.add(fault_for({}));
    faults.add(fault_for({}));
    EXPECT_FALSE(faults.clear(3));
    EXPECT_TRUE(faults.clear(2));
    EXPECT_FALSE(faults.clear(2));
    EXPECT_EQ(faults.add(fault_for({})), 3u);
    EXPECT_EQ(faults.clear(), 2u);
    EXPECT_EQ(faults.clear(), 0u);
}

TEST(Faults, AreBounded) {
    Faults faults;
    for (size_t number = 0; number < Faults::max_faults; ++number) {
        EXPECT_NE(faults.add(fault_for({})), 0u);
    }
    EXPECT_EQ(faults.add(fault_for({})), 0u);
    EXPECT_EQ(faults.list().size(), Faults::max_faults);
}

class FaultySession : public testing::Test {
  protected:
    FaultySession()
        : target_(parse_configuration(R"({"vsans": [{"id": 10, "name": "ten"}], "ports": [{"ifIndex": 5}]})", "test"),
                  Roles()),
          conversation_(target_) {}

    void add(FaultAction action, uint32_t value = 0, bool with_data = false, FaultMatch match = {}) {
        Fault fault = fault_for(match, action, value);
        fault.with_data = with_data;
        fault.remaining = 1;
        target_.faults.add(fault);
    }

    struct Answer {
        uint32_t correlation, status, has_data;
        Buffer data;
        bool operator==(const Answer &) const = default;
    };

    // Takes the answers out of what the session has sent.
    std::vector<Answer> answers() {
        std::vector<Answer> list;
        for (size_t at = 0; at < output_.size();) {
            const uint32_t size = word(output_, at + 12);
            if (word(output_, at + 4) == MTS_FRAME_REPLY) {
                list.push_back({word(output_, at + 8), word(output_, at + 16), word(output_, at + 20),
                                Buffer(output_.begin() + static_cast<ptrdiff_t>(at + 24),
                                       output_.begin() + static_cast<ptrdiff_t>(at + 16 + size))});
            } else {
                list.push_back({word(output_, at + 8), 0, 0, {}});
            }
            at += 16 + size;
        }
        output_.clear();
        return list;
    }

    std::vector<Answer> ask(const Buffer &frames) {
        input_.insert(input_.end(), frames.begin(), frames.end());
        const size_t used = conversation_.serve(input_, output_);
        input_.erase(input_.begin(), input_.begin() + static_cast<ptrdiff_t>(used));
        return answers();
    }

    std::vector<Answer> ask_for_vsan(uint32_t correlation, uint32_t id = 10) {
        return ask(request_frame(correlation, MANAGER_SAP_VSAN, op_vsan, 1, vsan_block(id)));
    }

    uint32_t served(uint32_t kind = 1) {
        const auto found = target_.counters.requests.find({MANAGER_SAP_VSAN, op_vsan, kind});
        return found == target_.counters.requests.end() ? 0 : static_cast<uint32_t>(found->second);
    }

    ServedSwitch target_;
    vswitch::Conversation conversation_;
    Buffer input_;
    Buffer output_;
};

TEST_F(FaultySession, StatusAnswersThatStatusAndCarriesNothingOut) {
    add(FaultAction::status, 0x40190004);
    EXPECT_EQ(ask_for_vsan(1), (std::vector<Answer>{{1, 0x40190004, 0, {}}}));
    EXPECT_EQ(served(), 0u);
    EXPECT_EQ(ask_for_vsan(2)[0].status, 0u) << "once only";
    EXPECT_EQ(served(), 1u);
}

TEST_F(FaultySession, StatusWithDataCarriesTheRequestOut) {
    add(FaultAction::status, 0x40190004, true);
    const auto answer = ask_for_vsan(1);
    ASSERT_EQ(answer.size(), 1u);
    EXPECT_EQ(answer[0].status, 0x40190004u);
    EXPECT_EQ(answer[0].has_data, 1u);
    EXPECT_EQ(answer[0].data.size(), VSAN_BLOCK_SIZE);
    EXPECT_EQ(served(), 1u);
}

TEST_F(FaultySession, NoDataAnswersSuccessWithoutData) {
    add(FaultAction::no_data);
    EXPECT_EQ(ask_for_vsan(1), (std::vector<Answer>{{1, 0, 0, {}}}));
    EXPECT_EQ(served(), 1u) << "it was carried out";
    add(FaultAction::no_data);
    EXPECT_EQ(ask_for_vsan(2, 11), (std::vector<Answer>{{2, 0, 0, {}}})) << "also what would be refused";
}

TEST_F(FaultySession, ShortReplyIsCutToThatSize) {
    const Buffer whole = ask_for_vsan(1)[0].data;
    add(FaultAction::short_reply, 600);
    EXPECT_EQ(ask_for_vsan(2), (std::vector<Answer>{{2, 0, 1, Buffer(whole.begin(), whole.begin() + 600)}}));
    add(FaultAction::short_reply, 0);
    EXPECT_EQ(ask_for_vsan(3), (std::vector<Answer>{{3, 0, 1, {}}}));
    add(FaultAction::short_reply, 100000);
    EXPECT_EQ(ask_for_vsan(4), (std::vector<Answer>{{4, 0, 1, whole}})) << "never longer than it was";
}

TEST_F(FaultySession, DroppedRequestIsNeitherCarriedOutNorAnsweredAndTheNextOneIs) {
    add(FaultAction::drop);
    Buffer frames = request_frame(1, MANAGER_SAP_VSAN, op_vsan, 1, vsan_block(10));
    const Buffer second = request_frame(2, MANAGER_SAP_VSAN, op_vsan_count, 1, {}, 4);
    frames.insert(frames.end(), second.begin(), second.end());
    EXPECT_EQ(ask(frames), (std::vector<Answer>{{2, 0, 1, words({2})}}));
    EXPECT_EQ(served(), 0u);
}

TEST_F(FaultySession, CloseEndsTheConversationWithoutBlamingTheClient) {
    add(FaultAction::close);
    EXPECT_TRUE(ask_for_vsan(1).empty());
    EXPECT_TRUE(conversation_.is_ended());
    EXPECT_EQ(conversation_.broken(), nullptr);
    EXPECT_TRUE(ask_for_vsan(2).empty()) << "nothing further is served";
    EXPECT_EQ(served(), 0u);
}

TEST_F(FaultySession, DelayedRequestWaitsAndThoseBehindItWaitInTheirOrder) {
    add(FaultAction::delay, 1500, false, {.opcode = op_vsan});
    Buffer frames = request_frame(1, MANAGER_SAP_VSAN, op_vsan_count, 1, {}, 4);
    for (const Buffer &frame :
         {request_frame(2, MANAGER_SAP_VSAN, op_vsan, 1, vsan_block(10)),
          request_frame(3, MANAGER_SAP_VSAN, op_vsan_count, 1, {}, 4), words({MTS_WIRE_MAGIC, MTS_FRAME_PING, 4, 0})}) {
        frames.insert(frames.end(), frame.begin(), frame.end());
    }
    auto answered = ask(frames);
    ASSERT_EQ(answered.size(), 1u);
    EXPECT_EQ(answered[0].correlation, 1u);
    EXPECT_EQ(conversation_.delay(), std::chrono::milliseconds(1500));
    EXPECT_TRUE(ask({}).empty()) << "nothing is served during the delay";
    EXPECT_EQ(served(), 0u) << "nor carried out";

    conversation_.resume();
    EXPECT_FALSE(conversation_.delay());
    answered = ask({});
    ASSERT_EQ(answered.size(), 3u);
    for (uint32_t at = 0; at < 3; ++at) {
        EXPECT_EQ(answered[at].correlation, at + 2);
    }
    EXPECT_EQ(answered[0].data.size(), VSAN_BLOCK_SIZE);
}

TEST_F(FaultySession, DelayUntilClearedHoldsEachRequestUpOnce) {
    target_.faults.add(fault_for({}, FaultAction::delay, 10));
    for (uint32_t correlation = 1; correlation <= 3; ++correlation) {
        EXPECT_TRUE(ask_for_vsan(correlation).empty());
        ASSERT_TRUE(conversation_.delay());
        conversation_.resume();
        EXPECT_EQ(ask({}).at(0).correlation, correlation);
    }
    EXPECT_EQ(target_.faults.applied(), 3u);
}

TEST_F(FaultySession, ExitEndsTheProcessAtOnceWith3) {
    add(FaultAction::exit);
    EXPECT_EXIT(ask_for_vsan(1), testing::ExitedWithCode(fault_exit_status), "");
}

TEST_F(FaultySession, ExitSaysHowLongTheSwitchIsToStayAway) {
    std::optional<uint32_t> told;
    target_.crash = [&](uint32_t away) { told = away; };
    add(FaultAction::exit, 30);
    EXPECT_TRUE(ask_for_vsan(1).empty());
    EXPECT_EQ(told, 30u);
    EXPECT_EQ(served(), 0u);
}

} // namespace
