// SPDX-License-Identifier: Apache-2.0
// Frames and conversations: what a client may send, and what anything else leads to.
#include <cstring>

#include "network/conversation.h"
#include "vswitch_test_support.h"

using namespace vswitch;
using namespace vswitch_test;

namespace {

Parsed parse(const Buffer &input, Frame *frame = nullptr) {
    Frame local;
    const char *reason = nullptr;
    const Parsed parsed = parse_frame(input, frame ? *frame : local, &reason);
    EXPECT_EQ(reason != nullptr, parsed == Parsed::invalid);
    return parsed;
}

TEST(Frames, FrameIsIncompleteUntilItsLastByte) {
    const Buffer whole = request_frame(7, 15, 125, 1, {}, 4);
    for (size_t size = 0; size < whole.size(); ++size) {
        ASSERT_EQ(parse(Buffer(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size))), Parsed::incomplete)
            << size;
    }
    Frame frame;
    ASSERT_EQ(parse(whole, &frame), Parsed::complete);
    EXPECT_EQ(frame.type, MTS_FRAME_REQUEST);
    EXPECT_EQ(frame.correlation, 7u);
    EXPECT_EQ(frame.body.size(), 28u);
    EXPECT_EQ(frame.size, whole.size());
}

TEST(Frames, GarbageIsRecognisedAtItsFirstWrongByte) {
    EXPECT_EQ(parse({'G'}), Parsed::invalid);
    EXPECT_EQ(parse({'M', 'T', 'S', '2'}), Parsed::invalid);
    EXPECT_EQ(parse({'M', 'T', 'S', '1'}), Parsed::incomplete);
}

TEST(Frames, TypesThatClientsDoNotSendAreInvalid) {
    for (const uint32_t type : {0u, 2u, 4u, 6u, 8u, 10u, 0xffffffffu}) {
        EXPECT_EQ(parse(words({MTS_WIRE_MAGIC, type, 0, 0})), Parsed::invalid) << type;
    }
    for (const uint32_t type : {1u, 3u, 5u, 7u, 9u}) {
        EXPECT_EQ(parse(words({MTS_WIRE_MAGIC, type, 0, 0})), Parsed::complete) << type;
    }
}

TEST(Frames, BodyLengthIsBounded) {
    EXPECT_EQ(parse(words({MTS_WIRE_MAGIC, 1, 0, MTS_WIRE_MAX_BODY})), Parsed::incomplete);
    EXPECT_EQ(parse(words({MTS_WIRE_MAGIC, 1, 0, MTS_WIRE_MAX_BODY + 1})), Parsed::invalid);
    EXPECT_EQ(parse(words({MTS_WIRE_MAGIC, 1, 0, 0xffffffff})), Parsed::invalid);
}

bool decodes(Buffer body, Request *request = nullptr) {
    Request local;
    return decode_request(body, request ? *request : local);
}

TEST(Frames, RequestBodyIsDecodedFieldByField) {
    Buffer body = words({15, 149, 2, 4, 99, 4, 5, 0x01020304});
    for (const char c : std::string("alice")) {
        body.push_back(static_cast<uint8_t>(c));
    }
    Request request;
    ASSERT_TRUE(decode_request(body, request));
    EXPECT_EQ(request.service, 15u);
    EXPECT_EQ(request.opcode, 149u);
    EXPECT_EQ(request.kind, 2u);
    EXPECT_EQ(request.length, 4u);
    ASSERT_EQ(request.payload.size(), 4u);
    EXPECT_EQ(request.payload[0], 1u);
    EXPECT_EQ(request.user, "alice");
}

TEST(Frames, RequestBodyMustBeConsistent) {
    EXPECT_TRUE(decodes(words({15, 125, 1, 4, 0, 0, 0}))) << "a length without payload";
    EXPECT_FALSE(decodes({}));
    EXPECT_FALSE(decodes(Buffer(27)));
    EXPECT_FALSE(decodes(words({15, 125, 1, 8, 0, 4, 0, 0}))) << "payload is not as long as length";
    EXPECT_FALSE(decodes(words({15, 125, 1, 4, 0, 4, 0}))) << "payload is missing";
    EXPECT_FALSE(decodes(words({15, 125, 1, 4, 0, 4, 0, 0, 0}))) << "bytes too many";
    EXPECT_FALSE(decodes(words({15, 125, 1, 0, 0, 0, 4}))) << "user is missing";
    EXPECT_FALSE(decodes(words({15, 125, 1, 0xfffffffc, 0, 0xfffffffc, 4}))) << "sizes that wrap to 0";
}

TEST(Frames, RequestUserAndPayloadAreBounded) {
    const auto body_with = [](uint32_t payload, uint32_t user) {
        Buffer body = words({15, 149, 1, payload, 0, payload, user});
        body.resize(body.size() + payload + user);
        return body;
    };
    EXPECT_TRUE(decodes(body_with(MTS_WIRE_MAX_PAYLOAD, MTS_WIRE_MAX_USER)));
    EXPECT_FALSE(decodes(body_with(MTS_WIRE_MAX_PAYLOAD + 1, 0)));
    EXPECT_FALSE(decodes(body_with(0, MTS_WIRE_MAX_USER + 1)));
}

class Conversation : public testing::Test {
  protected:
    Conversation() : target_(empty_configuration(), Roles()) {}

    ServedSwitch target_;
    Buffer output_;
};

TEST_F(Conversation, ReplyRepeatsTheCorrelationAndCarriesStatusAndData) {
    vswitch::Conversation conversation(target_);
    const Buffer request = request_frame(0xabcdef01, 15, 125, 1, {}, 4);
    EXPECT_EQ(conversation.serve(request, output_), request.size());
    EXPECT_EQ(output_, words({MTS_WIRE_MAGIC, MTS_FRAME_REPLY, 0xabcdef01, 12, 0, 1, 1}));
}

TEST_F(Conversation, ReplyOfAFailedRequestSaysThatNoDataFollow) {
    vswitch::Conversation conversation(target_);
    conversation.serve(request_frame(1, 15, 149, 2, vsan_block(1)), output_);
    EXPECT_EQ(output_, words({MTS_WIRE_MAGIC, MTS_FRAME_REPLY, 1, 8, STATUS_NO_MORE_VSANS, 0}));
}

TEST_F(Conversation, FramesAreServedInTurnAndABeginningWaitsForItsEnd) {
    vswitch::Conversation conversation(target_);
    Buffer input = request_frame(1, 15, 125, 1, {}, 4);
    const Buffer ping = words({MTS_WIRE_MAGIC, MTS_FRAME_PING, 2, 0});
    input.insert(input.end(), ping.begin(), ping.end());
    const size_t complete = input.size();
    input.push_back('M');
    EXPECT_EQ(conversation.serve(input, output_), complete);
    EXPECT_EQ(output_, words({MTS_WIRE_MAGIC, MTS_FRAME_REPLY, 1, 12, 0, 1, 1, MTS_WIRE_MAGIC, MTS_FRAME_PONG, 2, 0}));
    EXPECT_EQ(conversation.broken(), nullptr);
}

TEST_F(Conversation, ServingPausesWhenTheOutputIsFullAndLosesNothing) {
    vswitch::Conversation conversation(target_);
    const Buffer request = request_frame(1, 15, 149, 1, vsan_block(1));
    Buffer input;
    for (int count = 0; count < 200; ++count) {
        input.insert(input.end(), request.begin(), request.end());
    }
    size_t used = conversation.serve(input, output_);
    EXPECT_LT(used, input.size());
    EXPECT_LT(output_.size(), vswitch::Conversation::output_limit + 3000);
    size_t answered = output_.size();
    while (used < input.size()) {
        output_.clear();
        used += conversation.serve(Bytes(input).subspan(used), output_);
        answered += output_.size();
    }
    EXPECT_EQ(answered, 200 * (MTS_WIRE_HEADER + MTS_WIRE_REPLY_FIXED + VSAN_BLOCK_SIZE));
}

TEST_F(Conversation, GarbageBreaksItAfterTheFramesBeforeWereServed) {
    vswitch::Conversation conversation(target_);
    Buffer input = request_frame(1, 15, 125, 1, {}, 4);
    input.push_back('?');
    conversation.serve(input, output_);
    EXPECT_NE(conversation.broken(), nullptr);
    EXPECT_EQ(output_.size(), 28u);
    output_.clear();
    EXPECT_EQ(conversation.serve(request_frame(1, 15, 125, 1, {}, 4), output_), 0u) << "nothing more is served";
    EXPECT_TRUE(output_.empty());
}

TEST_F(Conversation, MalformedBodiesBreakIt) {
    const Buffer inputs[] = {
        words({MTS_WIRE_MAGIC, MTS_FRAME_REQUEST, 1, 4, 0}),
        words({MTS_WIRE_MAGIC, MTS_FRAME_PING, 1, 4, 0}),
        words({MTS_WIRE_MAGIC, MTS_FRAME_SUBSCRIBE, 1, 2, 0}),
    };
    for (const Buffer &input : inputs) {
        vswitch::Conversation conversation(target_);
        conversation.serve(input, output_);
        EXPECT_NE(conversation.broken(), nullptr);
        EXPECT_TRUE(output_.empty());
    }
}

TEST_F(Conversation, SubscriptionReplacesTheFormerOneAndEndsWithIt) {
    {
        vswitch::Conversation conversation(target_);
        conversation.serve(words({MTS_WIRE_MAGIC, MTS_FRAME_SUBSCRIBE, 3, 12, 102, 145, 145}), output_);
        EXPECT_EQ(output_, words({MTS_WIRE_MAGIC, MTS_FRAME_PONG, 3, 0}));
        EXPECT_EQ(target_.counters.subscriptions, 2u);
        conversation.serve(words({MTS_WIRE_MAGIC, MTS_FRAME_SUBSCRIBE, 4, 4, 102}), output_);
        EXPECT_EQ(target_.counters.subscriptions, 1u);
    }
    EXPECT_EQ(target_.counters.subscriptions, 0u);
}

TEST_F(Conversation, SubscriptionIsBounded) {
    for (const uint32_t count : {64u, 65u}) {
        vswitch::Conversation conversation(target_);
        Buffer frame = words({MTS_WIRE_MAGIC, MTS_FRAME_SUBSCRIBE, 1, count * 4});
        for (uint32_t event_class = 0; event_class < count; ++event_class) {
            append_word(frame, event_class);
        }
        conversation.serve(frame, output_);
        EXPECT_EQ(conversation.broken() == nullptr, count == 64);
    }
}

TEST(Records, WordThatIsNotWhollyThereIsNotRead) {
    const Buffer bytes = {1, 2, 3, 4, 5};
    EXPECT_EQ(load_word(bytes, 0), 0x01020304u);
    EXPECT_EQ(load_word(bytes, 1), 0x02030405u);
    for (const size_t offset : {size_t{2}, size_t{5}, size_t{6}, SIZE_MAX}) {
        EXPECT_FALSE(load_word(bytes, offset).has_value()) << offset;
    }
}

TEST(Records, TimerRecordHasItsVsanAtByte10) {
    Buffer record;
    append_timer_record(record, {0x01020304, 0x05060708, 9, 10, 0x0b0c0d0e, 15});
    EXPECT_EQ(record, (Buffer{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}));
    const auto decoded = decode_timer_record(record);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->vsan, 0x0b0c0d0eu);
    EXPECT_EQ(decoded->tail, 15u);
}

TEST(Records, RecordOfAnotherSizeIsNotDecoded) {
    for (const size_t size : {0u, 1u, 4u, 11u, 13u, 14u, 17u, 2631u, 2633u}) {
        const Buffer bytes(size);
        EXPECT_FALSE(decode_timer_record(bytes));
        EXPECT_FALSE(decode_membership_record(bytes));
        EXPECT_FALSE(decode_latency_record(bytes));
        EXPECT_FALSE(decode_interface_record(bytes));
        EXPECT_FALSE(decode_interface_record(bytes));
        EXPECT_FALSE(vsan_of_block(bytes));
        EXPECT_FALSE(decode_vsan_block(bytes));
    }
}

TEST(Records, OverlongNameIsCutBeforeItsNul) {
    Vsan vsan;
    vsan.name.assign(50, 'x');
    Buffer block;
    append_vsan_block(block, 5, vsan, OPER_STATE_UP);
    EXPECT_EQ(std::strlen(reinterpret_cast<const char *>(&block[556])), 35u);
    EXPECT_EQ(word(block, 592), vsan.drop_latency);
}

} // namespace
