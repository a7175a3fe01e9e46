// SPDX-License-Identifier: Apache-2.0
// Faults of the agent's clients on the switch's side: the list as it is set, handed over and counted.
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "network/conversation.h"
#include "vswitch_test_support.h"

using namespace vswitch;
using namespace vswitch_test;
using Json = nlohmann::json;

namespace {

const Buffer one_agent = {1, 2, 3, 4, 5, 6, 7, 8};
const Buffer another_agent = {8, 7, 6, 5, 4, 3, 2, 1};

class ClientFaultsTest : public testing::Test {
  protected:
    ClientFaultsTest()
        : target_(parse_configuration(R"({"vsans": [{"id": 10}], "ports": [{"ifIndex": 5}]})", "test"), Roles()) {}

    const Reply &send(uint32_t opcode, uint32_t kind, const Buffer &payload) {
        Request request;
        request.service = MTS_SERVICE_SWITCH;
        request.opcode = opcode;
        request.kind = kind;
        request.payload = payload;
        request.length = static_cast<uint32_t>(payload.size());
        answer_request(target_, request, reply_);
        return reply_;
    }

    Json command(uint32_t kind, const std::string &text) {
        const Reply &reply = send(MTS_OP_SWITCH_COMMAND, kind, text_bytes(text));
        const Json json = Json::parse(reply.data);
        EXPECT_EQ(reply.status, 0u) << text << ": " << json.dump();
        return json;
    }
    Json add(const std::string &members) { return command(3, R"({"command": "fault.add-client", )" + members + "}"); }
    Json list() { return command(1, R"({"command": "fault.list"})"); }

    std::string refusal(const std::string &members) {
        const Reply &reply =
            send(MTS_OP_SWITCH_COMMAND, 3, text_bytes(R"({"command": "fault.add-client", )" + members + "}"));
        EXPECT_NE(reply.status, 0u) << members;
        return Json::parse(reply.data).at("error");
    }

    Buffer fetch(const Buffer &agent) {
        const Reply &reply = send(MTS_OP_CLIENT_FAULTS, 1, agent);
        EXPECT_EQ(reply.status, 0u);
        return reply.data;
    }

    uint32_t count(const Buffer &agent, const Buffer &list, std::initializer_list<uint32_t> counts) {
        Buffer payload = agent;
        payload.insert(payload.end(), list.begin(), list.begin() + 12); // the switch, and the edition
        const Buffer numbers = words(counts);
        payload.insert(payload.end(), numbers.begin(), numbers.end());
        return send(MTS_OP_CLIENT_FAULTS, 3, payload).status;
    }

    ServedSwitch target_;
    Reply reply_;
};

uint32_t field(const Buffer &list, size_t row, size_t at) {
    return word(list, CLIENT_FAULT_LIST_FIXED + row * CLIENT_FAULT_RECORD_SIZE + at);
}

TEST_F(ClientFaultsTest, IsListedAsItWasSetBesideTheManagersFaults) {
    command(3, R"({"command": "fault.add", "action": "drop"})");
    EXPECT_EQ(add(R"("action": "delay-answer", "value": 1500, "deviation": 500, "pdus": ["set", "get"], "user": "alice",
                     "oid": "1.3.6.1.2", "address": "10.1.2.3/8", "times": 3, "after": 2, "percent": 50, "seed": 9)"),
              Json::parse(R"({"number": 2, "side": "client", "action": "delay-answer", "applied": 0, "value": 1500,
                              "deviation": 500, "pdus": ["get", "set"], "oid": "1.3.6.1.2", "user": "alice",
                              "address": "10.1.2.3/8", "after": 2, "percent": 50, "seed": 9, "remaining": 3})"));
    command(3, R"({"command": "fault.add", "action": "close"})");
    EXPECT_EQ(add(R"("action": "lose-answer")"),
              Json::parse(R"({"number": 4, "side": "client", "action": "lose-answer", "applied": 0})"));
    const Json faults = list()["faults"];
    ASSERT_EQ(faults.size(), 4u);
    for (size_t at = 0; at < 4; ++at) {
        EXPECT_EQ(faults[at]["number"], at + 1);
        EXPECT_EQ(faults[at]["side"], at % 2 == 0 ? "manager" : "client");
    }
    EXPECT_EQ(command(3, R"({"command": "fault.clear", "number": 2})")["cleared"], 1);
    EXPECT_EQ(command(3, R"({"command": "fault.clear"})")["cleared"], 3);
    EXPECT_EQ(list(), Json::parse(R"({"faults": [], "applied": 0, "more": false})"));
}

TEST_F(ClientFaultsTest, IsRefusedWithASentenceWhenAnythingOfItIsWrong) {
    const auto bad = [&](const std::string &members, const std::string &part) {
        const std::string sentence = refusal(members);
        EXPECT_NE(sentence.find(part), std::string::npos) << members << ": " << sentence;
    };
    bad(R"("action": "drop")", "must be one of \"lose-request\"");
    bad(R"("times": 1)", "it needs \"action\"");
    bad(R"("action": "delay-answer")", "it needs \"value\"");
    bad(R"("action": "delay-answer", "value": 0)", "from 1 to 600000");
    bad(R"("action": "delay-answer", "value": 600001)", "from 1 to 600000");
    bad(R"("action": "delay-answer", "value": 10, "deviation": 11)", "from 0 to 10");
    bad(R"("action": "cut-answer", "value": 65536)", "from 0 to 65535");
    bad(R"("action": "error", "value": 2147483648)", "from 0 to 2147483647");
    bad(R"("action": "error", "value": 5, "deviation": 1)", "takes no \"deviation\"");
    bad(R"("action": "lose-answer", "value": 5)", "takes no \"value\"");
    bad(R"("action": "lose-answer", "index": 1)", "takes no \"index\"");
    bad(R"("action": "lose-answer", "pdus": ["inform"])", "is for get, get-next, get-bulk and set");
    bad(R"("action": "lose-notification", "pdus": ["get"])", "is for trap and inform");
    bad(R"("action": "lose-answer", "pdus": [])", "at least one word");
    bad(R"("action": "lose-answer", "pdus": "get")", "must be a list");
    for (const char *oid : {"", ".1.3", "1.3.", "1..3", "vsanName", "1.4294967296", "1.-3"}) {
        bad(fmt::format(R"("action": "lose-answer", "oid": "{}")", oid), "numbers with dots between");
    }
    std::string arcs = "1";
    for (unsigned arc = 1; arc < CLIENT_FAULT_ARCS_MAX; ++arc) {
        arcs += ".1";
    }
    bad(fmt::format(R"("action": "lose-answer", "oid": "{}.1")", arcs), "1 to 128 numbers");
    bad(fmt::format(R"("action": "lose-answer", "user": "{}")", std::string(65, 'a')), "at most 64");
    for (const char *address : {"", "localhost", "1.2.3", "1.2.3.4/33", "1.2.3.4/", "1.2.3.4/x", "::1/129", "::g"}) {
        bad(fmt::format(R"("action": "lose-answer", "address": "{}")", address), "IPv4 or IPv6 address");
    }
    for (const char *number : {R"("times": 0)", R"("percent": 0)", R"("percent": 101)", R"("after": -1)"}) {
        bad(fmt::format(R"("action": "lose-answer", {})", number), "must be a whole number");
    }
    bad(R"("action": "lose-answer", "vsan": 10)", "it takes no \"vsan\"");
    EXPECT_TRUE(target_.client_faults.list().empty());
    EXPECT_TRUE(target_.events.staged().empty());
    add(fmt::format(R"("action": "lose-answer", "oid": "{}")", arcs));
}

TEST_F(ClientFaultsTest, AreBounded) {
    for (unsigned number = 0; number < CLIENT_FAULTS_MAX; ++number) {
        add(R"("action": "lose-answer")");
    }
    EXPECT_EQ(refusal(R"("action": "lose-answer")"), "There are 64 faults of clients already; clear some first.");
    EXPECT_EQ(fetch(one_agent).size(), CLIENT_FAULT_LIST_FIXED + CLIENT_FAULTS_MAX * CLIENT_FAULT_RECORD_SIZE);
}

TEST_F(ClientFaultsTest, AreHandedOverInTheDocumentedLayout) {
    add(R"("action": "delay-answer", "value": 1500, "deviation": 500, "pdus": ["set", "get"], "user": "alice",
           "oid": "1.3.4294967295", "address": "10.1.2.3/8", "times": 3, "after": 2, "percent": 50, "seed": 9)");
    add(R"("action": "reboot-engine", "address": "fe80::1")");
    const Buffer list = fetch(one_agent);
    ASSERT_EQ(list.size(), CLIENT_FAULT_LIST_FIXED + 2 * CLIENT_FAULT_RECORD_SIZE);
    EXPECT_EQ(word(list, CLIENT_FAULT_LIST_COUNT), 2u);
    const std::pair<client_fault_record_at, uint32_t> first[] = {{CLIENT_FAULT_NUMBER, 1},
                                                                 {CLIENT_FAULT_ACTION, CLIENT_FAULT_DELAY_ANSWER},
                                                                 {CLIENT_FAULT_VALUE, 1500},
                                                                 {CLIENT_FAULT_DETAIL, 500},
                                                                 {CLIENT_FAULT_PDU, 1 | 8},
                                                                 {CLIENT_FAULT_TIMES, 3},
                                                                 {CLIENT_FAULT_AFTER, 2},
                                                                 {CLIENT_FAULT_PERCENT, 50},
                                                                 {CLIENT_FAULT_SEED, 9},
                                                                 {CLIENT_FAULT_OF_USER, 1},
                                                                 {CLIENT_FAULT_USER_LENGTH, 5},
                                                                 {CLIENT_FAULT_USER, 0x616c6963},
                                                                 {CLIENT_FAULT_ADDRESS_LENGTH, 4},
                                                                 {CLIENT_FAULT_ADDRESS_BITS, 8},
                                                                 {CLIENT_FAULT_ADDRESS, 0x0a010203},
                                                                 {CLIENT_FAULT_OID_LENGTH, 3}};
    for (const auto &[at, value] : first) {
        EXPECT_EQ(field(list, 0, at), value) << "at " << at;
    }
    EXPECT_EQ(field(list, 0, CLIENT_FAULT_OID + 8), 4294967295u);
    EXPECT_EQ(field(list, 0, CLIENT_FAULT_OID + 12), 0u);
    EXPECT_EQ(field(list, 1, CLIENT_FAULT_PDU), CLIENT_FAULT_REQUEST_PDUS);
    EXPECT_EQ(field(list, 1, CLIENT_FAULT_TIMES), 1u) << "an engine reboots once unless somebody says otherwise";
    EXPECT_EQ(field(list, 1, CLIENT_FAULT_OF_USER), 0u);
    EXPECT_EQ(field(list, 1, CLIENT_FAULT_ADDRESS_LENGTH), 16u);
    EXPECT_EQ(field(list, 1, CLIENT_FAULT_ADDRESS_BITS), 128u);
    EXPECT_EQ(field(list, 1, CLIENT_FAULT_PERCENT), 100u);
    EXPECT_EQ(fetch(one_agent), list);
    Buffer of_another_run;
    ClientFaults().hand_over(one_agent, of_another_run);
    EXPECT_NE(Buffer(list.begin(), list.begin() + 8), Buffer(of_another_run.begin(), of_another_run.begin() + 8));
}

TEST_F(ClientFaultsTest, CountsAreTheFetchersAndAUsedUpFaultIsGone) {
    add(R"("action": "lose-answer", "times": 2)");
    add(R"("action": "lose-request")");
    const Buffer list = fetch(one_agent);
    EXPECT_EQ(count(one_agent, list, {1, 1, 2, 5, 77, 3}), 0u) << "a fault that is gone may be told of";
    EXPECT_EQ(this->list()["faults"][0]["remaining"], 1);
    EXPECT_EQ(this->list()["faults"][1]["applied"], 5);
    EXPECT_EQ(this->list()["applied"], 6);
    EXPECT_EQ(count(one_agent, list, {2, 4}), 0u) << "counts do not go back";
    EXPECT_EQ(this->list()["faults"][1]["applied"], 5);
    EXPECT_EQ(count(one_agent, list, {1, 2}), 0u);
    EXPECT_EQ(this->list()["faults"].size(), 1u);
    EXPECT_EQ(this->list()["applied"], 7);
    EXPECT_EQ(count(another_agent, list, {2, 9}), STATUS_BAD_RECORD);
    EXPECT_EQ(count(one_agent, Buffer(12), {2, 9}), STATUS_BAD_RECORD) << "of another run of the switch";
    EXPECT_EQ(count(one_agent, list, {2}), STATUS_BAD_LENGTH);
    fetch(another_agent);
    EXPECT_EQ(this->list()["faults"][0]["applied"], 0) << "another agent begins anew";
    EXPECT_EQ(this->list()["applied"], 7) << "what has happened has happened";
}

TEST_F(ClientFaultsTest, ListSaysWhetherAnAgentGoesByIt) {
    const auto fetch_and_confirm = [&] { EXPECT_EQ(count(one_agent, fetch(one_agent), {}), 0u); };
    EXPECT_FALSE(list().contains("fetched"));
    add(R"("action": "lose-answer")");
    EXPECT_EQ(list()["fetched"], false);
    fetch_and_confirm();
    EXPECT_EQ(list()["fetched"], false) << "an agent that is told nothing would not notice that it changes";
    Subscriber agent(target_.events);
    agent.subscribe({EVENT_CLIENT_FAULTS});
    EXPECT_EQ(list()["fetched"], true);
    add(R"("action": "lose-answer")");
    EXPECT_EQ(list()["fetched"], false);
    const Buffer former = fetch(one_agent);
    EXPECT_EQ(list()["fetched"], false) << "the answer may have been too late for the agent";
    add(R"("action": "lose-answer")");
    EXPECT_EQ(count(one_agent, former, {}), 0u);
    EXPECT_EQ(list()["fetched"], false) << "it goes by an earlier one";
    fetch_and_confirm();
    EXPECT_EQ(list()["fetched"], true);
    EXPECT_EQ(list()["agents"], 1);
    target_.client_faults.expect_agent();
    EXPECT_EQ(list()["fetched"], false) << "what another agent went by is nothing to the next";
    fetch_and_confirm();
    command(3, R"({"command": "fault.clear"})");
    EXPECT_EQ(list()["fetched"], false) << "the agent still goes by what there was";
    fetch_and_confirm();
    EXPECT_FALSE(list().contains("fetched"));
}

TEST_F(ClientFaultsTest, EachChangeIsAnEventAndWhoSubscribesGetsOneAtOnce) {
    const auto events = [&] { return target_.events.staged().size(); };
    add(R"("action": "lose-answer")");
    EXPECT_EQ(events(), 1u);
    EXPECT_EQ(target_.events.staged()[0].event_class, EVENT_CLIENT_FAULTS);
    EXPECT_TRUE(target_.events.staged()[0].payload.empty());
    command(3, R"({"command": "fault.add", "action": "drop"})");
    command(3, R"({"command": "fault.clear", "number": 2})");
    EXPECT_EQ(events(), 1u) << "a fault of the managers is nothing to the agent";
    command(3, R"({"command": "fault.clear"})");
    EXPECT_EQ(events(), 2u);
    command(3, R"({"command": "fault.clear"})");
    EXPECT_EQ(events(), 2u);

    target_.events.deliver();
    Conversation conversation(target_);
    Buffer output;
    conversation.serve(words({MTS_WIRE_MAGIC, MTS_FRAME_SUBSCRIBE, 1, 4, EVENT_VSAN_CHANGED}), output);
    EXPECT_EQ(conversation.subscriber().queued(), 0u);
    conversation.serve(words({MTS_WIRE_MAGIC, MTS_FRAME_SUBSCRIBE, 2, 4, EVENT_CLIENT_FAULTS}), output);
    EXPECT_EQ(conversation.subscriber().queued(), 1u);
}

} // namespace
