// SPDX-License-Identifier: Apache-2.0
#include "oryx_agent.h"
#include "oryx_fake_platform.h"

#include <set>

#include "context.h"
#include "netsnmpagent_oryx.h"

namespace {

struct Seen {
    std::string user;
    uint32_t session;
    uint32_t number;
};

// What the handlers of `pdu` are told about their PDU when it is handed to them in `mode`.
Seen seen_by_handler(FakeObjects &objects, Pdu &pdu, int mode = MODE_GET) {
    Seen seen = {"(not called)", 0, 0};
    objects.on_read = [&](oid *, size_t *, int) {
        const char *user = get_snmp_username(0);
        seen = {user ? user : "(null)", get_snmp_sessionid(0), get_pdu_reqid()};
    };
    pdu.call(mode);
    objects.on_read = nullptr;
    return seen;
}

class ContextTest : public OryxTest {
  protected:
    FakeObjects objects;
};

TEST_F(ContextTest, AnOlderRequesterIsItsCommunity) {
    Pdu v1 = Pdu::v1("public"), v2c = Pdu::v2c("private");
    v1.add(NAME_COLUMN);
    v2c.add(NAME_COLUMN);
    EXPECT_EQ(seen_by_handler(objects, v1).user, "public");
    EXPECT_EQ(seen_by_handler(objects, v2c).user, "private");
}

TEST_F(ContextTest, AVersion3RequesterIsItsSecurityName) {
    Pdu pdu = Pdu::v3("alice");
    pdu.add(NAME_COLUMN);
    EXPECT_EQ(seen_by_handler(objects, pdu).user, "alice");
}

TEST_F(ContextTest, TheSessionIsTheAgents) {
    Pdu pdu = Pdu::v2c("public");
    pdu.session(77).add(NAME_COLUMN);
    EXPECT_EQ(seen_by_handler(objects, pdu).session, 77u);
}

TEST_F(ContextTest, OutsideAnyPduThereIsNobody) {
    Pdu pdu = Pdu::v2c("public");
    pdu.session(77).add(NAME_COLUMN);
    seen_by_handler(objects, pdu);
    EXPECT_EQ(get_snmp_username(0), nullptr);
    EXPECT_EQ(get_snmp_sessionid(0), 0u);
    EXPECT_EQ(oryx::current_pdu(), nullptr);
}

TEST_F(ContextTest, AllCallsOfOnePduShareItsNumber) {
    Pdu pdu = Pdu::v2c("public");
    pdu.add(NAME_COLUMN);
    const uint32_t number = seen_by_handler(objects, pdu).number;
    EXPECT_NE(number, 0u);
    for (int mode : std::initializer_list<int>{MODE_GET, MODE_GETNEXT, MODE_GETBULK, MODE_SET_RESERVE1}) {
        EXPECT_EQ(seen_by_handler(objects, pdu, mode).number, number) << mode;
    }
}

TEST_F(ContextTest, AllVarbindsOfOneCallShareItsNumber) {
    Pdu pdu = Pdu::v2c("public");
    pdu.add(NAME_COLUMN);
    pdu.add(NAME_COLUMN);
    std::vector<uint32_t> numbers;
    objects.on_read = [&](oid *, size_t *, int) { numbers.push_back(get_pdu_reqid()); };
    pdu.call(MODE_GETNEXT);
    ASSERT_EQ(numbers.size(), 2u);
    EXPECT_EQ(numbers[0], numbers[1]);
}

TEST_F(ContextTest, EveryPduHasANumberOfItsOwn) {
    std::set<uint32_t> numbers;
    for (int i = 0; i < 10; ++i) {
        Pdu pdu = Pdu::v2c("public");
        pdu.add(NAME_COLUMN);
        numbers.insert(seen_by_handler(objects, pdu).number);
        // Read outside any PDU, as an event callback does.
        numbers.insert(get_pdu_reqid());
    }
    EXPECT_EQ(numbers.size(), 20u);
    EXPECT_EQ(numbers.count(0), 0u);
}

TEST_F(ContextTest, NumbersSkipZero) {
    EXPECT_EQ(oryx::pdu_number_after(0), 1u);
    EXPECT_EQ(oryx::pdu_number_after(UINT32_MAX - 1), UINT32_MAX);
    EXPECT_EQ(oryx::pdu_number_after(UINT32_MAX), 1u);
}

TEST_F(ContextTest, APduWithinAPduGivesTheOuterOneBack) {
    Pdu outer = Pdu::v3("alice"), inner = Pdu::v2c("public");
    outer.session(1).add(NAME_COLUMN);
    inner.session(2).add(STATE_COLUMN);
    std::vector<Seen> seen;
    auto look = [&] { seen.push_back({get_snmp_username(0), get_snmp_sessionid(0), get_pdu_reqid()}); };
    objects.on_read = [&](oid *name, size_t *, int) {
        look();
        if (name[NAME_COLUMN.size() - 1] == NAME_COLUMN.back()) {
            inner.call(MODE_GET);
            look();
        }
    };
    outer.call(MODE_GET);
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_EQ(seen[0].user, "alice");
    EXPECT_EQ(seen[1].user, "public");
    EXPECT_EQ(seen[1].session, 2u);
    EXPECT_EQ(seen[2].user, "alice");
    EXPECT_EQ(seen[2].session, 1u);
    EXPECT_EQ(seen[2].number, seen[0].number);
    EXPECT_NE(seen[1].number, seen[0].number);
    EXPECT_EQ(oryx::current_pdu(), nullptr);
}

TEST_F(ContextTest, AWriteMethodKnowsItsPduInEveryPhase) {
    Pdu pdu = Pdu::v3("alice");
    pdu.add(NAME_COLUMN);
    std::vector<std::string> users;
    objects.on_write = [&](int, const oid *, size_t) {
        users.emplace_back(get_snmp_username(0));
        return SNMP_ERR_NOERROR;
    };
    for (int mode : {MODE_SET_RESERVE1, MODE_SET_RESERVE2, MODE_SET_ACTION, MODE_SET_COMMIT}) {
        pdu.call(mode);
    }
    EXPECT_EQ(users, std::vector<std::string>(4, "alice"));
}

// A name that cannot be told from another user's once it is NUL-terminated.
void expect_restricted_to_nothing(FakeObjects &objects, const std::string &community) {
    fake_switch.reply = role_reply(0, {});
    Pdu pdu = Pdu::v2c(community);
    pdu.add(NAME_COLUMN);
    int restricted = -1;
    int allowed = -1;
    size_t length = SIZE_MAX;
    objects.on_read = [&](oid *, size_t *, int) {
        allowed_vsan_list list = {512, {}};
        restricted = snmp_get_allowed_vsans_subtree(&list, NAME_COLUMN.data(), NAME_COLUMN.size(), PDU_TYPE_GET);
        allowed = snmp_is_vsan_allowed_subtree(1, NAME_COLUMN.data(), NAME_COLUMN.size(), PDU_TYPE_GET);
        length = strlen(get_snmp_username(0));
    };
    pdu.call(MODE_GET);
    EXPECT_EQ(restricted, 1);
    EXPECT_EQ(allowed, 0);
    EXPECT_LE(length, MTS_WIRE_MAX_USER);
    EXPECT_TRUE(fake_switch.requests.empty());
}

TEST_F(ContextTest, ANameThatHoldsANulIsNobodysAndRestrictedToNothing) {
    expect_restricted_to_nothing(objects, std::string("alice\0x", 7));
}

TEST_F(ContextTest, ANameThatIsTooLongIsNobodysAndRestrictedToNothing) {
    expect_restricted_to_nothing(objects, std::string(MTS_WIRE_MAX_USER + 1, 'a'));
}

TEST_F(ContextTest, ANameOfTheGreatestLengthIsWhole) {
    const std::string name(MTS_WIRE_MAX_USER, 'a');
    Pdu pdu = Pdu::v2c(name);
    pdu.add(NAME_COLUMN);
    EXPECT_EQ(seen_by_handler(objects, pdu).user, name);
}

TEST_F(ContextTest, APduThatNamesNobodyIsRestrictedToNothing) {
    fake_switch.reply = role_reply(0, {});
    Pdu pdu = Pdu::anonymous();
    pdu.add(NAME_COLUMN);
    int allowed = -1;
    objects.on_read = [&](oid *, size_t *, int) {
        allowed = snmp_is_vsan_allowed_subtree(1, nullptr, 0, PDU_TYPE_GET);
    };
    pdu.call(MODE_GET);
    EXPECT_EQ(allowed, 0);
}

} // namespace
