// SPDX-License-Identifier: Apache-2.0
// What the VSAN manager's event may carry: the callback on top of the platform's own
// decoder, byte by byte.

#include "notification_test.h"

namespace {

constexpr uint32_t vsan_config = 145;
constexpr uint32_t admin_key = 1;
constexpr uint32_t oper_key = 19;
constexpr uint32_t most_attributes = 32;

class VsanPayload : public NotificationTest {
  protected:
    struct attribute {
        uint32_t key;
        uint32_t value;
    };

    // An event of VSAN 7; every former value is one that nobody may show.
    static bytes event(const std::vector<attribute> &attributes, uint32_t vsan = 7, uint32_t condition = 0,
                       uint32_t is_created = 0) {
        bytes payload = words({condition, vsan, is_created, static_cast<uint32_t>(attributes.size())});
        for (const attribute &each : attributes) {
            const bytes more = words({each.key, each.value, 99});
            payload.insert(payload.end(), more.begin(), more.end());
        }
        return payload;
    }
    static bytes proper_event() { return event({{admin_key, 1}, {oper_key, 2}}); }

    // So many attributes, none of them one that is wanted.
    static std::vector<attribute> others(size_t count) {
        std::vector<attribute> result;
        for (uint32_t i = 0; i < count; ++i) {
            result.push_back({100 + i, 77});
        }
        return result;
    }

    static notification deliver_payload(const bytes &payload) {
        // Of its exact size, so that a read beyond it is seen.
        const mts_message message{bytes(payload.begin(), payload.end())};
        return deliver(vsan_config, &message);
    }

    static std::vector<binding> bindings(uint32_t vsan, int32_t admin_state, int32_t oper_state) {
        return {integer_binding(below_root({1, 1, 4, 0}), static_cast<int32_t>(vsan)),
                integer_binding(below_root({1, 1, 3, 1, 4, vsan}), admin_state),
                integer_binding(below_root({1, 1, 3, 1, 8, vsan}), oper_state)};
    }
};

TEST_F(VsanPayload, AnEventIsSentWithItsPresentValues) {
    const notification sent = deliver_payload(proper_event());
    EXPECT_EQ(sent.send, 1);
    EXPECT_EQ(sent.name, below_root({1, 3, 0, 1}));
    EXPECT_EQ(sent.bindings, bindings(7, 1, 2));
    EXPECT_TRACED(101, "handle_notifications(#)Vsan_id:7  is_vsan_created:0\n");
}

TEST_F(VsanPayload, AShortPayloadSendsNothing) {
    const bytes whole = proper_event();
    for (size_t length = 0; length < whole.size(); ++length) {
        expect_nothing_sent(deliver_payload(bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length))));
    }
    const mts_message without_payload;
    expect_nothing_sent(deliver(vsan_config, &without_payload));
}

TEST_F(VsanPayload, AnOversizedPayloadSendsNothing) {
    for (const size_t more : {size_t{1}, size_t{4}, size_t{11}, size_t{12}, size_t{100000}}) {
        bytes payload = proper_event();
        payload.resize(payload.size() + more);
        expect_nothing_sent(deliver_payload(payload));
    }
}

TEST_F(VsanPayload, ACountThatTheSizeBeliesSendsNothing) {
    // 0x40000002 attributes would be as many bytes as two, counted in 32 bits.
    for (const uint32_t count : {0u, 1u, 3u, 33u, 0x40000002u, 0x80000002u, UINT32_MAX}) {
        bytes payload = proper_event();
        put_word(payload, 12, count);
        expect_nothing_sent(deliver_payload(payload));
    }
    std::vector<attribute> too_many = others(most_attributes - 1);
    too_many.push_back({admin_key, 1});
    too_many.push_back({oper_key, 1});
    expect_nothing_sent(deliver_payload(event(too_many)));
}

TEST_F(VsanPayload, ANumberThatIsNoVsanSendsNothing) {
    for (const uint32_t vsan : {0u, 4096u, 0x10007u, UINT32_MAX}) {
        expect_nothing_sent(deliver_payload(event({{admin_key, 1}, {oper_key, 1}}, vsan)));
    }
    for (const uint32_t vsan : {1u, 4095u}) {
        EXPECT_EQ(deliver_payload(event({{admin_key, 1}, {oper_key, 1}}, vsan)).bindings, bindings(vsan, 1, 1));
    }
}

TEST_F(VsanPayload, BothStatesAreFoundInEveryPosition) {
    for (size_t admin_at = 0; admin_at < most_attributes; ++admin_at) {
        for (const size_t oper_at : {size_t{0}, size_t{15}, size_t{most_attributes - 1}}) {
            if (admin_at == oper_at) {
                continue;
            }
            std::vector<attribute> attributes = others(most_attributes);
            attributes[admin_at] = {admin_key, 2};
            attributes[oper_at] = {oper_key, 1};
            EXPECT_EQ(deliver_payload(event(attributes)).bindings, bindings(7, 2, 1)) << admin_at << ' ' << oper_at;
        }
    }
}

TEST_F(VsanPayload, AStateThatIsMissingSendsNothingWhereverTheOtherStands) {
    expect_nothing_sent(deliver_payload(event({})));
    for (const uint32_t present : {admin_key, oper_key}) {
        for (const size_t count : {size_t{1}, size_t{2}, size_t{most_attributes}}) {
            for (size_t at = 0; at < count; ++at) {
                std::vector<attribute> attributes = others(count);
                attributes[at] = {present, 1};
                expect_nothing_sent(deliver_payload(event(attributes)));
            }
        }
    }
    expect_nothing_sent(deliver_payload(event({{admin_key, 1}, {admin_key, 1}})));
    expect_nothing_sent(deliver_payload(event({{oper_key, 1}, {oper_key, 1}})));
}

TEST_F(VsanPayload, ADeletedVsanIsSentWithWhatItsEventSays) {
    constexpr uint32_t not_configured = 3;
    const notification sent = deliver_payload(event({{admin_key, not_configured}, {oper_key, 2}}, 7, 1));
    EXPECT_EQ(sent.send, 1);
    EXPECT_EQ(sent.bindings, bindings(7, not_configured, 2));
    expect_nothing_sent(deliver_payload(event({{admin_key, not_configured}}, 7, 1)));
}

TEST_F(VsanPayload, AnEventBehindOneThatCannotBeReadIsSent) {
    expect_nothing_sent(deliver_payload(bytes(7, 0xFF)));
    EXPECT_EQ(deliver_payload(proper_event()).bindings, bindings(7, 1, 2));
}

} // namespace
