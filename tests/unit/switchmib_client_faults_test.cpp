// SPDX-License-Identifier: Apache-2.0
// Which messages a fault of the agent's clients is for, when it applies, and how the agent takes the
// switch's list.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <net-snmp/agent/snmp_agent.h>

#include "client_fault.h"
#include "contract/big_endian.h"
#include "contract/status_codes.h"
#include "fault_list.h"
#include "interception.h"
#include "switch_mib.h"
#include "switchmib_fake_platform.h"

using namespace switch_agent;

namespace {

using Name = std::vector<oid>;

const Name VSAN_NAME_10 = {1, 3, 6, 1, 4, 1, 32473, 9, 282, 1, 1, 3, 1, 2, 10};
const Name SNMP_TRAP_OID = {1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};
const Name LINK_DOWN = {1, 3, 6, 1, 6, 3, 1, 1, 5, 3};

// A fault's record, as the switch hands it over.
class Record {
  public:
    explicit Record(uint32_t number, uint32_t action = CLIENT_FAULT_LOSE_ANSWER, uint32_t pdus = 63)
        : bytes_(CLIENT_FAULT_RECORD_SIZE) {
        set(CLIENT_FAULT_NUMBER, number).set(CLIENT_FAULT_ACTION, action).set(CLIENT_FAULT_PDU, pdus);
        set(CLIENT_FAULT_PERCENT, 100).set(CLIENT_FAULT_SEED, 1);
    }

    Record &set(size_t at, uint32_t word) {
        write_be32(&bytes_[at], word);
        return *this;
    }
    Record &user(const std::string &name) {
        std::copy(name.begin(), name.end(), bytes_.begin() + CLIENT_FAULT_USER);
        return set(CLIENT_FAULT_OF_USER, 1).set(CLIENT_FAULT_USER_LENGTH, static_cast<uint32_t>(name.size()));
    }
    Record &address(int family, const char *text, uint32_t bits) {
        EXPECT_EQ(inet_pton(family, text, &bytes_[CLIENT_FAULT_ADDRESS]), 1);
        return set(CLIENT_FAULT_ADDRESS_LENGTH, family == AF_INET ? 4 : 16).set(CLIENT_FAULT_ADDRESS_BITS, bits);
    }
    Record &name(const Name &arcs) {
        for (size_t i = 0; i < arcs.size(); ++i) {
            set(CLIENT_FAULT_OID + 4 * i, static_cast<uint32_t>(arcs[i]));
        }
        return set(CLIENT_FAULT_OID_LENGTH, static_cast<uint32_t>(arcs.size()));
    }

    const std::vector<uint8_t> &bytes() const { return bytes_; }

    Fault decoded() const {
        Fault fault;
        EXPECT_TRUE(fault_decode(bytes_.data(), fault));
        return fault;
    }
    bool is_fault() const {
        Fault fault;
        return fault_decode(bytes_.data(), fault);
    }

  private:
    std::vector<uint8_t> bytes_;
};

// A PDU of somebody.
class Pdu {
  public:
    explicit Pdu(int command, long version = SNMP_VERSION_2c) : pdu_(snmp_pdu_create(command)) {
        pdu_->version = version;
    }
    ~Pdu() { snmp_free_pdu(pdu_); }
    Pdu(const Pdu &) = delete;
    Pdu &operator=(const Pdu &) = delete;

    Pdu &add(const Name &name) {
        snmp_add_null_var(pdu_, name.data(), name.size());
        return *this;
    }
    Pdu &of(const char *user) {
        if (pdu_->version == SNMP_VERSION_3) {
            pdu_->securityName = strdup(user);
            pdu_->securityNameLen = strlen(user);
        } else {
            pdu_->community = reinterpret_cast<u_char *>(strdup(user));
            pdu_->community_len = strlen(user);
        }
        return *this;
    }
    Pdu &from(int family, const char *text) {
        address_.length = family == AF_INET ? 4 : 16;
        EXPECT_EQ(inet_pton(family, text, address_.bytes), 1);
        return *this;
    }

    netsnmp_pdu *operator->() { return pdu_; }
    Message message() const { return {*pdu_, address_}; }
    bool meets(const Record &record) const { return fault_agrees(record.decoded(), message()); }

  private:
    netsnmp_pdu *pdu_;
    Address address_ = {};
};

TEST(ClientFaultTest, MeetsThePduTypesThatItIsFor) {
    const std::pair<int, uint32_t> types[] = {
        {SNMP_MSG_GET, CLIENT_FAULT_GET},    {SNMP_MSG_GETNEXT, CLIENT_FAULT_GET_NEXT},
        {SNMP_MSG_SET, CLIENT_FAULT_SET},    {SNMP_MSG_GETBULK, CLIENT_FAULT_GET_BULK},
        {SNMP_MSG_TRAP2, CLIENT_FAULT_TRAP}, {SNMP_MSG_INFORM, CLIENT_FAULT_INFORM}};
    for (const auto &[command, type] : types) {
        EXPECT_TRUE(Pdu(command).meets(Record(1, CLIENT_FAULT_LOSE_ANSWER, type))) << command;
        EXPECT_FALSE(Pdu(command).meets(Record(1, CLIENT_FAULT_LOSE_ANSWER, 63 & ~type))) << command;
    }
    EXPECT_FALSE(Pdu(SNMP_MSG_RESPONSE).meets(Record(1)));
    EXPECT_FALSE(Pdu(SNMP_MSG_REPORT).meets(Record(1)));
}

TEST(ClientFaultTest, MeetsAMessageWithAnyNameThatBeginsWithItsOwn) {
    const Name other = {1, 3, 6, 1, 2, 1, 1, 3, 0};
    Pdu pdu(SNMP_MSG_GET);
    pdu.add(other).add(VSAN_NAME_10);
    for (size_t length = 1; length <= VSAN_NAME_10.size(); ++length) {
        EXPECT_TRUE(pdu.meets(Record(1).name(Name(VSAN_NAME_10.begin(), VSAN_NAME_10.begin() + long(length)))));
    }
    Name longer = VSAN_NAME_10;
    longer.push_back(0);
    EXPECT_FALSE(pdu.meets(Record(1).name(longer)));
    longer[13] = 3;
    EXPECT_FALSE(pdu.meets(Record(1).name(Name(longer.begin(), longer.end() - 1))));
    EXPECT_FALSE(Pdu(SNMP_MSG_GET).meets(Record(1).name({1}))) << "a message without names";
    EXPECT_TRUE(Pdu(SNMP_MSG_GET).meets(Record(1)));
}

TEST(ClientFaultTest, MeetsANotificationByItsNameInEveryVersion) {
    Pdu later(SNMP_MSG_TRAP2);
    snmp_pdu_add_variable(later.operator->(), SNMP_TRAP_OID.data(), SNMP_TRAP_OID.size(), ASN_OBJECT_ID,
                          LINK_DOWN.data(), LINK_DOWN.size() * sizeof(oid));
    EXPECT_TRUE(later.meets(Record(1).name(LINK_DOWN)));
    EXPECT_TRUE(later.meets(Record(1).name(SNMP_TRAP_OID))) << "it has a variable of this name";
    Name link_up = LINK_DOWN;
    link_up.back() = 4;
    EXPECT_FALSE(later.meets(Record(1).name(link_up)));

    Pdu generic(SNMP_MSG_TRAP, SNMP_VERSION_1);
    generic->trap_type = 2;
    EXPECT_TRUE(generic.meets(Record(1).name(LINK_DOWN)));
    EXPECT_FALSE(generic.meets(Record(1).name(link_up)));

    Pdu specific(SNMP_MSG_TRAP, SNMP_VERSION_1);
    const Name enterprise = {1, 3, 6, 1, 4, 1, 7};
    specific->enterprise = static_cast<oid *>(netsnmp_memdup(enterprise.data(), enterprise.size() * sizeof(oid)));
    specific->enterprise_length = enterprise.size();
    specific->trap_type = 6;
    specific->specific_type = 5;
    EXPECT_TRUE(specific.meets(Record(1).name({1, 3, 6, 1, 4, 1, 7, 0, 5})));
    EXPECT_FALSE(specific.meets(Record(1).name({1, 3, 6, 1, 4, 1, 7, 0, 6})));
}

TEST(ClientFaultTest, MeetsTheUserOrCommunityAsAWhole) {
    for (const long version : {SNMP_VERSION_1, SNMP_VERSION_2c, SNMP_VERSION_3}) {
        Pdu pdu(SNMP_MSG_GET, version);
        pdu.of("alice");
        EXPECT_TRUE(pdu.meets(Record(1).user("alice")));
        EXPECT_FALSE(pdu.meets(Record(1).user("alic")));
        EXPECT_FALSE(pdu.meets(Record(1).user("alicea")));
        EXPECT_FALSE(pdu.meets(Record(1).user("")));
    }
    EXPECT_TRUE(Pdu(SNMP_MSG_GET).meets(Record(1).user("")));
    EXPECT_FALSE(Pdu(SNMP_MSG_GET).meets(Record(1).user("alice")));
}

TEST(ClientFaultTest, MeetsAddressesByTheirFirstBits) {
    Pdu v4(SNMP_MSG_GET);
    v4.from(AF_INET, "192.0.2.200");
    EXPECT_TRUE(v4.meets(Record(1).address(AF_INET, "192.0.2.200", 32)));
    EXPECT_FALSE(v4.meets(Record(1).address(AF_INET, "192.0.2.201", 32)));
    EXPECT_TRUE(v4.meets(Record(1).address(AF_INET, "192.0.2.201", 31)));
    EXPECT_TRUE(v4.meets(Record(1).address(AF_INET, "192.0.2.192", 26)));
    EXPECT_FALSE(v4.meets(Record(1).address(AF_INET, "192.0.2.128", 26)));
    EXPECT_TRUE(v4.meets(Record(1).address(AF_INET, "10.0.0.0", 0)));
    EXPECT_FALSE(v4.meets(Record(1).address(AF_INET6, "::", 0))) << "of the other kind";
    EXPECT_FALSE(Pdu(SNMP_MSG_GET).meets(Record(1).address(AF_INET, "0.0.0.0", 0))) << "from nowhere";
    Pdu v6(SNMP_MSG_GET);
    v6.from(AF_INET6, "2001:db8::1");
    EXPECT_TRUE(v6.meets(Record(1).address(AF_INET6, "2001:db8::", 32)));
    EXPECT_FALSE(v6.meets(Record(1).address(AF_INET6, "2001:db9::", 32)));
}

TEST(ClientFaultTest, KnowsTheAddressesOfUdpSockets) {
    netsnmp_indexed_addr_pair pair = {};
    pair.remote_addr.sin.sin_family = AF_INET;
    pair.remote_addr.sin.sin_port = htons(161);
    inet_pton(AF_INET, "192.0.2.1", &pair.remote_addr.sin.sin_addr);
    Address address = address_in(&pair, sizeof pair);
    EXPECT_EQ(address.length, 4u);
    EXPECT_EQ(read_be32(address.bytes), 0xc0000201u);
    EXPECT_EQ(address.port, 161);

    sockaddr_in6 v6 = {};
    v6.sin6_family = AF_INET6;
    inet_pton(AF_INET6, "2001:db8::5", &v6.sin6_addr);
    EXPECT_EQ(address_in(&v6, sizeof v6).length, 16u);
    inet_pton(AF_INET6, "::ffff:192.0.2.1", &v6.sin6_addr);
    EXPECT_EQ(read_be32(address_in(&v6, sizeof v6).bytes), 0xc0000201u);
    EXPECT_EQ(address_in(&v6, sizeof v6).length, 4u) << "IPv4 in IPv6's clothes";

    EXPECT_EQ(address_in(&v6, sizeof(sockaddr_in)).length, 0u) << "cut";
    EXPECT_EQ(address_in(&v6, 1).length, 0u);
    EXPECT_EQ(address_in(nullptr, 100).length, 0u);
    v6.sin6_family = AF_UNIX;
    EXPECT_EQ(address_in(&v6, sizeof v6).length, 0u);
}

TEST(ClientFaultTest, WhatIsOnlyForVersion3MeetsNoOther) {
    for (const uint32_t action :
         {CLIENT_FAULT_NOT_IN_TIME_WINDOW, CLIENT_FAULT_UNKNOWN_ENGINE, CLIENT_FAULT_REBOOT_ENGINE}) {
        EXPECT_TRUE(Pdu(SNMP_MSG_GET, SNMP_VERSION_3).meets(Record(1, action)));
        EXPECT_FALSE(Pdu(SNMP_MSG_GET, SNMP_VERSION_2c).meets(Record(1, action)));
        EXPECT_FALSE(Pdu(SNMP_MSG_GET, SNMP_VERSION_1).meets(Record(1, action)));
    }
}

std::string decisions(Fault fault, unsigned count) {
    std::string made;
    for (unsigned i = 0; i < count; ++i) {
        made += fault_applies(fault) ? '1' : '0';
    }
    return made;
}

TEST(ClientFaultTest, LetsTheFirstPassAndThenAppliesAsOftenAsItShould) {
    Fault fault = Record(1).set(CLIENT_FAULT_AFTER, 2).set(CLIENT_FAULT_TIMES, 3).decoded();
    EXPECT_EQ(decisions(fault, 5), "00111");
    for (int i = 0; i < 4; ++i) {
        fault_applies(fault);
        EXPECT_FALSE(fault.is_used_up());
    }
    fault_applies(fault);
    EXPECT_TRUE(fault.is_used_up());
    EXPECT_EQ(fault.applied, 3u);
}

TEST(ClientFaultTest, AppliesToItsShareAndTheSameSeedToTheSame) {
    for (const uint32_t percent : {1u, 20u, 50u, 99u}) {
        const Fault fault = Record(1).set(CLIENT_FAULT_PERCENT, percent).set(CLIENT_FAULT_SEED, 7).decoded();
        const std::string made = decisions(fault, 10000);
        const auto applied = std::count(made.begin(), made.end(), '1');
        EXPECT_NEAR(static_cast<double>(applied), 100 * percent, 200) << percent;
        EXPECT_EQ(decisions(fault, 10000), made);
        EXPECT_NE(decisions(Record(1).set(CLIENT_FAULT_PERCENT, percent).set(CLIENT_FAULT_SEED, 8).decoded(), 10000),
                  made);
    }
    // Written down: a scenario that somebody has written must not become another one.
    EXPECT_EQ(decisions(Record(1).set(CLIENT_FAULT_PERCENT, 50).decoded(), 16), "0101011110100111");
}

TEST(ClientFaultTest, DelaysDifferByTheDeviationAtMostAndReachIt) {
    Fault exact = Record(1, CLIENT_FAULT_DELAY_ANSWER).set(CLIENT_FAULT_VALUE, 500).decoded();
    EXPECT_EQ(fault_delay(exact), 500u);
    Fault fault = Record(1, CLIENT_FAULT_DELAY_ANSWER).set(CLIENT_FAULT_VALUE, 5).set(CLIENT_FAULT_DETAIL, 5).decoded();
    std::vector<uint32_t> seen;
    for (int i = 0; i < 1000; ++i) {
        seen.push_back(fault_delay(fault));
    }
    EXPECT_EQ(*std::min_element(seen.begin(), seen.end()), 0u);
    EXPECT_EQ(*std::max_element(seen.begin(), seen.end()), 10u);
    // Written down, as above.
    seen.resize(8);
    EXPECT_EQ(seen, std::vector<uint32_t>({9, 8, 0, 7, 7, 1, 0, 3}));
}

TEST(ClientFaultTest, ARecordThatIsNoFaultIsRefused) {
    EXPECT_TRUE(Record(1).is_fault());
    const std::pair<size_t, uint32_t> wrong[] = {
        {CLIENT_FAULT_NUMBER, 0},         {CLIENT_FAULT_ACTION, 0},
        {CLIENT_FAULT_ACTION, 17},        {CLIENT_FAULT_PERCENT, 0},
        {CLIENT_FAULT_PERCENT, 101},      {CLIENT_FAULT_USER_LENGTH, 65},
        {CLIENT_FAULT_ADDRESS_LENGTH, 5}, {CLIENT_FAULT_ADDRESS_LENGTH, 0xffffffff},
        {CLIENT_FAULT_ADDRESS_BITS, 1},   {CLIENT_FAULT_OID_LENGTH, 129},
        {CLIENT_FAULT_VALUE, 0x80000000}, {CLIENT_FAULT_DETAIL, 0x80000000}};
    for (const auto &[at, value] : wrong) {
        EXPECT_FALSE(Record(1).set(at, value).is_fault()) << "at " << at;
    }
    EXPECT_FALSE(Record(1).address(AF_INET, "1.2.3.4", 33).is_fault());
}

// The agent's side of the list, with a scripted switch.
class FaultListTest : public testing::Test {
  protected:
    void SetUp() override {
        reset_fake_platform();
        init_switchmib();
    }
    void TearDown() override { deinit_switchmib(); }

    // The switch's event comes, and it hands over this list.
    static void hand_over(const std::vector<Record> &records, uint8_t run = 1) {
        std::vector<uint8_t> list(CLIENT_FAULT_LIST_FIXED);
        std::fill_n(list.begin(), 8, run);
        write_be32(&list[CLIENT_FAULT_LIST_EDITION], 77);
        write_be32(&list[CLIENT_FAULT_LIST_COUNT], static_cast<uint32_t>(records.size()));
        for (const Record &record : records) {
            list.insert(list.end(), record.bytes().begin(), record.bytes().end());
        }
        tell(list);
    }
    static void tell(const std::vector<uint8_t> &reply) {
        fake_platform.reply = reply;
        oid name[MAX_OID_LEN];
        size_t length = 0;
        int send = 1;
        EXPECT_EQ(fake_platform.callbacks.at(EVENT_CLIENT_FAULTS)(nullptr, name, &length, &send), nullptr);
        EXPECT_EQ(send, 0) << "nobody is notified";
    }

    // The number of the fault that a GET meets, or 0.
    uint32_t met() {
        Fault *fault = next_fault(get_.message());
        return fault && applies(*fault) ? fault->number : 0;
    }

    // The agent's turns until it has told the switch: the counts, number and how often.
    static std::vector<uint32_t> reported() {
        fake_platform.asked.clear();
        for (int turn = 0; turn < 100 && fake_platform.asked.empty(); ++turn) {
            usleep(5000);
            run_alarms();
        }
        const std::vector<uint8_t> &asked = fake_platform.asked;
        std::vector<uint32_t> counts;
        for (size_t at = CLIENT_FAULT_COUNTS_FIXED; at + 4 <= asked.size(); at += 4) {
            counts.push_back(read_be32(&asked[at]));
        }
        return counts;
    }

    Pdu get_{SNMP_MSG_GET};
};

TEST_F(FaultListTest, TheFirstThatAgreesAndIsLeftApplies) {
    EXPECT_EQ(met(), 0u);
    hand_over({Record(3, CLIENT_FAULT_LOSE_ANSWER, CLIENT_FAULT_SET), Record(5).set(CLIENT_FAULT_TIMES, 2), Record(6)});
    EXPECT_EQ(met(), 5u);
    EXPECT_EQ(met(), 5u);
    EXPECT_EQ(met(), 6u);
    EXPECT_EQ(met(), 6u);
    const Message message = get_.message();
    EXPECT_EQ(next_fault(message, next_fault(message)), nullptr) << "behind the last";
}

TEST_F(FaultListTest, CountsOutliveANewListAndNotANewSwitch) {
    const std::vector<Record> records = {Record(5).set(CLIENT_FAULT_TIMES, 2)};
    hand_over(records);
    EXPECT_EQ(met(), 5u);
    hand_over({records[0], Record(6)});
    EXPECT_EQ(met(), 5u);
    EXPECT_EQ(met(), 6u);
    hand_over(records);
    EXPECT_EQ(met(), 0u);
    hand_over(records, 2);
    EXPECT_EQ(met(), 5u);
}

TEST_F(FaultListTest, CountsAreReportedTogetherAndOnce) {
    hand_over({Record(5), Record(6, CLIENT_FAULT_LOSE_ANSWER, CLIENT_FAULT_SET), Record(7)});
    const std::vector<uint8_t> confirmation = fake_platform.asked;
    EXPECT_EQ(confirmation.size(), size_t{CLIENT_FAULT_COUNTS_FIXED}) << "that it goes by the list, without counts";
    EXPECT_EQ(read_be32(&confirmation[CLIENT_FAULT_COUNTS_EDITION]), 77u);
    for (int i = 0; i < 3; ++i) {
        met();
    }
    const unsigned requests = fake_platform.requests;
    EXPECT_EQ(reported(), (std::vector<uint32_t>{5, 3}));
    EXPECT_EQ(fake_platform.requests, requests + 1);
    EXPECT_TRUE(std::equal(confirmation.begin(), confirmation.end(), fake_platform.asked.begin()));
    EXPECT_EQ(fake_platform.asked[CLIENT_FAULT_COUNTS_SWITCH], 1);
}

TEST_F(FaultListTest, WhatIsNoListChangesNothing) {
    hand_over({Record(5)});
    std::vector<uint8_t> list(CLIENT_FAULT_LIST_FIXED + CLIENT_FAULT_RECORD_SIZE);
    write_be32(&list[CLIENT_FAULT_LIST_COUNT], 1);
    tell(list); // a record of zeros
    write_be32(&list[CLIENT_FAULT_LIST_COUNT], 2);
    tell(list);
    write_be32(&list[CLIENT_FAULT_LIST_COUNT], 0xffffffff);
    tell(list);
    tell({});
    tell({1, 2, 3});
    fake_platform.status = STATUS_NO_SUCH_OPCODE;
    tell({});
    EXPECT_EQ(met(), 5u);
    fake_platform.status = 0;
    hand_over({});
    EXPECT_EQ(met(), 0u);
}

TEST_F(FaultListTest, UnloadingForgetsAllOfIt) {
    hand_over({Record(5)});
    deinit_switchmib();
    EXPECT_EQ(met(), 0u);
    EXPECT_TRUE(fake_platform.classes.empty());
}

// The agent's own sessions: two that receive requests, and one that sends notifications.
class InterceptionTest : public FaultListTest {
  protected:
    void SetUp() override {
        FaultListTest::SetUp();
        udp_ = listen_on("udp:127.0.0.1:0");
        local_ = listen_on(("unix:" + socket_).c_str());
        netsnmp_session wanted;
        snmp_sess_init(&wanted);
        wanted.version = SNMP_VERSION_2c;
        wanted.peername = const_cast<char *>("udp:127.0.0.1:9");
        sender_ = snmp_open(&wanted);
        ASSERT_NE(sender_, nullptr);
        udp_send_ = transport_of(udp_)->f_send;
        sender_send_ = transport_of(sender_)->f_send;
    }
    void TearDown() override {
        FaultListTest::TearDown();
        EXPECT_TRUE(is_untouched());
        for (netsnmp_session *session : {udp_, local_, sender_}) {
            snmp_close(session);
        }
        unlink(socket_.c_str());
    }

    static netsnmp_session *listen_on(const char *place) {
        netsnmp_transport *transport = netsnmp_transport_open_server("snmp", place);
        EXPECT_NE(transport, nullptr);
        netsnmp_session session;
        snmp_sess_init(&session);
        session.version = SNMP_DEFAULT_VERSION;
        session.callback = handle_snmp_packet;
        session.isAuthoritative = SNMP_SESS_AUTHORITATIVE;
        return snmp_add(&session, transport, nullptr, nullptr);
    }
    static netsnmp_transport *transport_of(netsnmp_session *session) {
        return snmp_sess_transport(snmp_sess_pointer(session));
    }
    bool sees_requests() const { return udp_->callback != handle_snmp_packet; }
    bool sees_notifications() const { return transport_of(sender_)->f_send != sender_send_; }
    bool is_untouched() const {
        return !sees_requests() && !sees_notifications() && local_->callback == handle_snmp_packet &&
               transport_of(udp_)->f_send == udp_send_;
    }

    const std::string socket_ = "/tmp/switchmib_test." + std::to_string(getpid());
    netsnmp_session *udp_, *local_, *sender_;
    decltype(netsnmp_transport::f_send) udp_send_, sender_send_;
};

TEST_F(InterceptionTest, NothingOfTheAgentIsReplacedWhileNoFaultIsSet) {
    EXPECT_TRUE(is_untouched());
    hand_over({Record(1, CLIENT_FAULT_LOSE_ANSWER, CLIENT_FAULT_GET)});
    EXPECT_TRUE(sees_requests());
    EXPECT_FALSE(sees_notifications());
    EXPECT_EQ(transport_of(udp_)->f_send, udp_send_) << "but while a request is answered";
    hand_over({Record(2, CLIENT_FAULT_LOSE_NOTIFICATION, CLIENT_FAULT_TRAP)});
    EXPECT_FALSE(sees_requests());
    EXPECT_TRUE(sees_notifications());
    hand_over({});
    EXPECT_TRUE(is_untouched());
}

TEST_F(InterceptionTest, AFaultThatIsUsedUpLeavesNothingReplaced) {
    hand_over({Record(1, CLIENT_FAULT_LOSE_ANSWER, CLIENT_FAULT_GET).set(CLIENT_FAULT_TIMES, 1)});
    EXPECT_TRUE(sees_requests());
    EXPECT_EQ(met(), 1u);
    reported();
    EXPECT_TRUE(is_untouched());
}

TEST_F(InterceptionTest, UnloadingGivesEverythingBack) {
    hand_over({Record(1), Record(2, CLIENT_FAULT_LOSE_NOTIFICATION)});
    EXPECT_TRUE(sees_requests());
    EXPECT_TRUE(sees_notifications());
    deinit_switchmib();
    EXPECT_TRUE(is_untouched());
}

TEST_F(InterceptionTest, TheAgentsOwnSocketIsNeverLookedAt) {
    hand_over({Record(1)});
    EXPECT_EQ(local_->callback, handle_snmp_packet);
}

} // namespace
