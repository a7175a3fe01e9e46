// SPDX-License-Identifier: Apache-2.0
// The operator's commands: what each answers, and everything that is refused.
#include <nlohmann/json.hpp>

#include "changes/changes.h"
#include "vswitch_test_support.h"

using namespace vswitch;
using namespace vswitch_test;
using Json = nlohmann::json;

namespace {

constexpr char configuration[] = R"({
    "vsans": [{"id": 1, "name": "default"}, {"id": 10, "name": "prod"}, {"id": 20, "state": "suspended"}],
    "ports": [{"ifIndex": 5, "vsan": 10, "link": "down"}, {"ifIndex": 16777216, "vsan": 20},
              {"ifIndex": 16781312, "vsan": 10, "denyList": 7}]
})";

class Commands : public testing::Test {
  protected:
    Commands() : target_(parse_configuration(configuration, "test"), Roles()) {
        target_.run_directory = folder_.path();
    }

    const Reply &send(uint32_t kind, const std::string &text, const std::string &user = "operator") {
        const Buffer payload = text_bytes(text);
        Request request;
        request.service = MTS_SERVICE_SWITCH;
        request.opcode = MTS_OP_SWITCH_COMMAND;
        request.kind = kind;
        request.payload = payload;
        request.length = static_cast<uint32_t>(payload.size());
        request.user = user;
        answer_request(target_, request, reply_);
        return reply_;
    }

    Json answer(uint32_t kind, const std::string &command, Json arguments) {
        arguments["command"] = command;
        const Reply &reply = send(kind, arguments.dump());
        const Json json = Json::parse(reply.data);
        EXPECT_EQ(reply.status, 0u) << json.dump();
        return json;
    }
    Json look(const std::string &command, Json arguments = Json::object()) {
        return answer(1, command, std::move(arguments));
    }
    Json change(const std::string &command, Json arguments = Json::object()) {
        return answer(3, command, std::move(arguments));
    }

    // The status and the sentence of a refusal, checked to be the same in frame and text.
    std::pair<uint32_t, std::string> refusal(uint32_t kind, const std::string &text) {
        const Reply &reply = send(kind, text);
        EXPECT_NE(reply.status, 0u) << text;
        EXPECT_TRUE(reply.has_data);
        const Json json = Json::parse(reply.data);
        char status[16];
        std::snprintf(status, sizeof status, "0x%08x", reply.status);
        EXPECT_EQ(json.at("status"), status);
        const std::string sentence = json.at("error");
        EXPECT_TRUE(sentence.ends_with('.')) << sentence;
        return {reply.status, sentence};
    }

    TemporaryFolder folder_;
    ServedSwitch target_;
    Reply reply_;
};

TEST_F(Commands, WhatIsNoCommandIsRefusedWithASentence) {
    const auto bad = [&](const std::string &text, const std::string &part) {
        const auto [status, sentence] = refusal(1, text);
        EXPECT_EQ(status, STATUS_BAD_RECORD) << text;
        EXPECT_TRUE(contains(sentence, part)) << sentence;
    };
    bad("", "not valid JSON");
    bad("{", "not valid JSON");
    bad("[]", "one JSON object");
    bad("{}", "it has no \"command\"");
    bad(R"({"command": 7})", "must be a text");
    bad(R"({"command": "vsan.list", "colour": 1})", "takes no \"colour\"");
    bad(R"({"command": "vsan.list", "command": "vsan.list"})", "given twice");
    bad(R"({"command": "vsan.list", "limit": 0})", "\"limit\" must be a whole number from 1 to 256");
    bad(R"({"command": "vsan.list", "limit": 257})", "\"limit\"");
    bad(R"({"command": "vsan.list", "limit": "5"})", "\"limit\"");
    bad(R"({"command": "vsan.list", "after": -1})", "\"after\"");
    bad(R"({"command": "vsan.list", "after": 4294967296})", "\"after\"");
    bad(R"({"command": "vsan.show"})", "it needs \"id\"");
    bad(R"({"command": "vsan.show", "id": 1.5})", "\"id\"");
    bad(R"({"command": "vsan.show", "id": 4096})", "\"id\"");
    bad(std::string(60000, '['), "nested too deeply");
    bad("{\"command\": \"vsan.list\", \"after\": 1e999}", "too large");
    bad("{\"command\": \"role.add\", \"vsans\": " + std::string(30000, '[') + std::string(30000, ']') + "}",
        "nested too deeply");
    bad("{\"command\": \"\xff\xfe\"}", "not valid JSON");

    EXPECT_EQ(refusal(1, R"({"command": "vsan.fly"})").first, STATUS_NO_SUCH_OPCODE);
    EXPECT_EQ(refusal(1, R"({"command": ""})").first, STATUS_NO_SUCH_OPCODE);
}

TEST_F(Commands, ChangesAreOfKind3AndLooksOfKind1) {
    EXPECT_EQ(refusal(1, R"({"command": "vsan.delete", "id": 10})").first, STATUS_NO_SUCH_KIND);
    EXPECT_NE(target_.model.vsan(10), nullptr);
    EXPECT_EQ(refusal(3, R"({"command": "vsan.list"})").first, STATUS_NO_SUCH_KIND);
    EXPECT_EQ(send(2, R"({"command": "vsan.list"})").status, STATUS_NO_SUCH_KIND);
}

TEST_F(Commands, ListIsPagedInOrder) {
    Json page = look("vsan.list", {{"limit", 2}});
    ASSERT_EQ(page["vsans"].size(), 2u);
    EXPECT_EQ(page["vsans"][0]["id"], 1);
    EXPECT_EQ(page["vsans"][1]["id"], 10);
    EXPECT_EQ(page["more"], true);
    page = look("vsan.list", {{"limit", 2}, {"after", 10}});
    ASSERT_EQ(page["vsans"].size(), 1u);
    EXPECT_EQ(page["vsans"][0]["id"], 20);
    EXPECT_EQ(page["more"], false);
    EXPECT_EQ(look("vsan.list", {{"after", 4095}}), Json::parse(R"({"vsans": [], "more": false})"));
}

TEST_F(Commands, ListOf4095VsansWithTheWorstNamesComesInRepliesThatFit) {
    SwitchData data = parse_configuration(R"({"vsanRange": [{"first": 1, "last": 4095}]})", "test");
    for (auto &[id, vsan] : data.vsans) {
        vsan.name = std::string(32, '\x01');
    }
    target_.model = SwitchModel(data);
    uint32_t after = 0;
    uint32_t count = 0;
    for (bool more = true; more;) {
        const Json page = look("vsan.list", {{"after", after}});
        ASSERT_LE(reply_.data.size(), MTS_WIRE_MAX_BODY - MTS_WIRE_REPLY_FIXED);
        for (const Json &vsan : page["vsans"]) {
            ASSERT_EQ(vsan["id"], ++count);
        }
        after = count;
        more = page["more"];
    }
    EXPECT_EQ(count, 4095u);
}

TEST_F(Commands, NameThatIsNoTextDoesNotSpoilTheReply) {
    SwitchData data = empty_configuration();
    data.vsans[1].name = "a\xff\xfe\"\\";
    target_.model = SwitchModel(data);
    EXPECT_EQ(look("vsan.show", {{"id", 1}})["name"], "a\ufffd\ufffd\"\\");
}

TEST_F(Commands, VsanIsShownWithAllThatItHas) {
    EXPECT_EQ(look("vsan.show", {{"id", 10}}), Json::parse(R"({
        "id": 10, "name": "prod", "state": "active", "oper": "up", "mtu": 2112, "loadBalancing": "srcIdDestIdOxId",
        "interop": 100, "inorderDelivery": false, "networkDropLatency": 500, "ports": 2, "portsUp": 1})"));
    EXPECT_EQ(refusal(1, R"({"command": "vsan.show", "id": 11})").first, STATUS_NO_SUCH_VSAN);
}

TEST_F(Commands, VsanIsCreatedChangedAndDeleted) {
    const Json made = change("vsan.create", {{"id", 50}, {"name", "tests"}, {"state", "suspended"}, {"interop", 2}});
    EXPECT_EQ(made["name"], "tests");
    EXPECT_EQ(made["interop"], 2);
    EXPECT_EQ(target_.model.vsan(50)->admin_state, ADMIN_STATE_SUSPENDED);
    EXPECT_EQ(refusal(3, R"({"command": "vsan.create", "id": 50})").first, STATUS_BAD_RECORD);

    const Json changed = change("vsan.set", {{"id", 50}, {"inorderDelivery", true}, {"loadBalancing", "srcIdDestId"}});
    EXPECT_EQ(changed["name"], "tests") << "what is not named stays";
    EXPECT_EQ(changed["state"], "suspended");
    EXPECT_EQ(changed["inorderDelivery"], true);
    EXPECT_EQ(target_.model.vsan(50)->load_balancing, 1u);
    const Vsan before = *target_.model.vsan(50);
    refusal(3, R"({"command": "vsan.set", "id": 50, "name": "a b", "mtu": 2000})");
    refusal(3, R"({"command": "vsan.set", "id": 50, "interop": 5})");
    refusal(3, R"({"command": "vsan.set", "id": 50, "state": "gone"})");
    refusal(3, R"({"command": "vsan.set", "id": 50, "networkDropLatency": 0})");
    EXPECT_EQ(*target_.model.vsan(50), before) << "a refusal changes nothing";
    EXPECT_EQ(refusal(3, R"({"command": "vsan.set", "id": 51})").first, STATUS_NO_SUCH_VSAN);

    change("port.move", {{"ifIndex", 5}, {"vsan", 50}});
    EXPECT_EQ(change("vsan.delete", {{"id", 50}})["movedPorts"], 1);
    EXPECT_EQ(target_.model.port(5)->vsan, 1u);
    EXPECT_EQ(refusal(3, R"({"command": "vsan.delete", "id": 50})").first, STATUS_NO_SUCH_VSAN);
    refusal(3, R"({"command": "vsan.delete", "id": 1})");
}

TEST_F(Commands, PortIsKnownByItsNumberAndByItsPosition) {
    EXPECT_EQ(change("port.down", {{"ifIndex", "fc2"}})["ifIndex"], 16777216);
    EXPECT_FALSE(target_.model.port(16777216)->link_up);
    EXPECT_EQ(change("port.up", {{"ifIndex", 5}}),
              Json::parse(R"({"ifIndex": 5, "name": "fc1", "vsan": 10, "link": "up", "oper": "up", "denyList": 0,
                  "enabled": true, "alias": "", "speedMbps": 8000, "traps": true, "wwn": "20:01:02:00:00:00:00:00"})"));
    EXPECT_EQ(change("port.deny", {{"ifIndex", "fc3"}, {"denyList", 9}})["denyList"], 9);
    EXPECT_EQ(refusal(3, R"({"command": "port.up", "ifIndex": "fc4"})").first, STATUS_NO_SUCH_INTERFACE);
    EXPECT_EQ(refusal(3, R"({"command": "port.up", "ifIndex": 6})").first, STATUS_NO_SUCH_INTERFACE);
    for (const char *name : {"fc0", "fc99999999999"}) {
        EXPECT_EQ(refusal(3, Json{{"command", "port.up"}, {"ifIndex", name}}.dump()).second,
                  "There is no port " + std::string(name) + "; the switch has fc1 to fc3.");
    }
    EXPECT_EQ(look("port.show", {{"ifIndex", "fc2"}})["ifIndex"], 16777216);
    for (const char *name : {"fc", "fc-1", "fc1x", "gc1"}) {
        EXPECT_EQ(refusal(3, Json{{"command", "port.up"}, {"ifIndex", name}}.dump()).first, STATUS_BAD_RECORD) << name;
    }
    EXPECT_EQ(refusal(3, R"({"command": "port.move", "ifIndex": 5, "vsan": 99})").first, STATUS_NO_SUCH_VSAN);
    EXPECT_EQ(look("port.list", {{"vsan", 10}})["ports"].size(), 2u);
    EXPECT_EQ(look("port.list", {{"vsan", 10}, {"after", 5}})["ports"][0]["name"], "fc3");
}

TEST_F(Commands, PortHasTheSettingsThatItIsGiven) {
    const Json all = change("port.set", {{"ifIndex", "fc1"},
                                         {"alias", "tape"},
                                         {"enabled", false},
                                         {"speedMbps", 16000},
                                         {"traps", false},
                                         {"traffic", {{"inOctets", 7}, {"outErrors", 1}}}});
    Port expected = *target_.model.port(5);
    EXPECT_FALSE(expected.enabled);
    EXPECT_EQ(expected.traffic, (PortRates{7, 0, 0, 0, 0, 0, 1, 0}));
    EXPECT_EQ(all["traffic"], Json::parse(R"({"inOctets": 7, "outErrors": 1})"));
    EXPECT_EQ(all["oper"], "down");
    EXPECT_EQ(all["speedMbps"], 16000);
    EXPECT_EQ(change("port.set", {{"ifIndex", 5}, {"traffic", {{"inOctets", 0}}}})["traffic"],
              Json::parse(R"({"outErrors": 1})"))
        << "what is not named stays";
    expected.traffic[0] = 0;
    EXPECT_EQ(*target_.model.port(5), expected);
    EXPECT_EQ(change("port.up", {{"ifIndex", 5}})["oper"], "down") << "a cable does not enable it";
    EXPECT_EQ(change("port.set", {{"ifIndex", 5}, {"enabled", true}})["oper"], "up");
}

TEST_F(Commands, PortSettingThatCannotBeChangesNothing) {
    const SwitchData before = target_.model.data();
    const auto sentence = [&](const Json &settings) {
        Json command = {{"command", "port.set"}, {"ifIndex", 5}, {"enabled", false}};
        command.update(settings);
        const auto [status, text] = refusal(3, command.dump());
        EXPECT_EQ(status, STATUS_BAD_RECORD);
        return text;
    };
    EXPECT_TRUE(contains(sentence({{"alias", std::string(65, 'x')}}), "\"alias\" must be at most 64 bytes"));
    EXPECT_TRUE(contains(sentence({{"alias", "a\x1b"}}), "without control characters"));
    EXPECT_TRUE(contains(sentence({{"speedMbps", 1000}}), "must be one of 2000"));
    EXPECT_TRUE(contains(sentence({{"traps", 1}}), "true or false"));
    EXPECT_TRUE(contains(sentence({{"traffic", {{"x", 1}}}}), "unknown key"));
    EXPECT_TRUE(contains(sentence({{"adminState", "up"}}), "takes no"));
    EXPECT_EQ(refusal(3, R"({"command": "port.set", "ifIndex": 6, "alias": "x"})").first, STATUS_NO_SUCH_INTERFACE);
    EXPECT_EQ(target_.model.data(), before);
}

TEST_F(Commands, SystemHasTheTextsThatItIsGiven) {
    EXPECT_EQ(look("system.show"), Json::parse(R"({"contact": "", "name": "vswitch", "location": "",
                                                   "wwn": "00:00:00:00:00:00:00:00"})"));
    EXPECT_EQ(change("system.set", {{"location", "B\xc3\xbcro"}})["location"], "B\xc3\xbcro");
    EXPECT_EQ(change("system.set", {{"name", ""}, {"contact", "alice"}})["location"], "B\xc3\xbcro");
    EXPECT_EQ(target_.model.settings().system, (SystemTexts{"alice", "", "B\xc3\xbcro"}));
    const auto [status, text] = refusal(3, R"({"command": "system.set", "name": "x", "contact": "a\nb"})");
    EXPECT_EQ(status, STATUS_BAD_RECORD);
    EXPECT_TRUE(contains(text, "\"contact\" must be at most 255 bytes")) << text;
    EXPECT_EQ(target_.model.settings().system[SYSTEM_NAME], "") << "a refusal changes nothing";
}

TEST_F(Commands, RoleIsAddedListedAndRemoved) {
    change("role.add", {{"name", "tapes"}, {"vsans", {"1", "30-39"}}, {"users", {"alice"}}});
    ASSERT_NE(target_.roles.find("alice"), nullptr);
    EXPECT_EQ(look("role.list")["roles"], Json::parse(R"([
        {"name": "tapes", "vsans": ["1", "30-39"], "interfaces": [], "users": ["alice"]}])"));
    refusal(3, R"({"command": "role.add", "name": "tapes"})");
    change("role.add", {{"name", "tapes"}, {"replace", true}, {"users", {"bob"}}});
    EXPECT_EQ(target_.roles.find("alice"), nullptr);
    EXPECT_EQ(look("role.list", {{"after", "tapes"}})["roles"].size(), 0u);
    refusal(3, R"({"command": "role.add", "name": "bad", "vsans": ["5-1"]})");
    refusal(3, R"({"command": "role.add", "name": "bad", "vsans": "1"})");
    change("role.remove", {{"name", "tapes"}});
    EXPECT_EQ(target_.roles.find("bob"), nullptr);
    refusal(3, R"({"command": "role.remove", "name": "tapes"})");
}

TEST_F(Commands, TimersAreShownAndSet) {
    change("timers.set", {{"setting", "ratov"}, {"value", 20000}, {"vsan", 10}});
    change("timers.set", {{"setting", "switchLatency"}, {"value", 700}});
    change("timers.set", {{"setting", "inorderDelivery"}, {"value", true}});
    const Json shown = look("timers.show", {{"vsan", 10}});
    EXPECT_EQ(shown["switchLatency"], 700);
    EXPECT_EQ(shown["inorderDelivery"], true);
    ASSERT_EQ(shown["vsans"].size(), 1u);
    EXPECT_EQ(shown["vsans"][0]["own"], Json({{"ratov", 20000}}));
    EXPECT_EQ(shown["vsans"][0]["running"]["edtov"], 2000);
    EXPECT_EQ(look("timers.show")["vsans"].size(), 3u);

    refusal(3, R"({"command": "timers.set", "setting": "edtov", "value": 20000, "vsan": 10})");
    change("timers.set", {{"setting", "edtov"}, {"value", 20000}, {"vsan", 10}, {"force", true}});
    refusal(3, R"({"command": "timers.set", "setting": "xtov", "value": 20000})");
    refusal(3, R"({"command": "timers.set", "setting": "ratov"})");
    refusal(3, R"({"command": "timers.set", "setting": "inorderDelivery", "value": 1})");
    refusal(3, R"({"command": "timers.set", "setting": "switchLatency", "value": 1, "vsan": 10})");
    refusal(3, R"({"command": "timers.set", "setting": "ratov", "value": 20000, "vsan": 11})");
}

TEST_F(Commands, DistributionSessionNamesItsHolderToOthers) {
    change("tdx.enable");
    EXPECT_EQ(change("timers.set", {{"setting", "ratov"}, {"value", 20000}, {"vsan", 10}})["pending"], true);
    EXPECT_EQ(look("tdx.show"), Json::parse(R"({
        "enabled": true, "showRun": false, "refusing": false, "user": "operator", "more": false,
        "pending": [{"vsan": 10, "timers": {"ratov": 20000}}]})"));
    const Reply &reply =
        send(3, R"({"command": "timers.set", "setting": "ratov", "value": 30000, "vsan": 10})", "somebody");
    EXPECT_EQ(reply.status, STATUS_TDX_LOCKED);
    EXPECT_TRUE(contains(Json::parse(reply.data)["error"], "held by \"operator\""));
    refusal(3, R"({"command": "tdx.disable"})");
    EXPECT_FALSE(change("tdx.commit").contains("user"));
    EXPECT_EQ(look("timers.show", {{"vsan", 10}})["vsans"][0]["distributed"]["ratov"], 20000);
    refusal(3, R"({"command": "tdx.abort"})");
    EXPECT_EQ(change("tdx.show-run", {{"on", true}})["showRun"], true);
    EXPECT_EQ(change("tdx.refuse", {{"on", true}})["refusing"], true);
    EXPECT_EQ(change("tdx.disable")["enabled"], false);
    refusal(3, R"({"command": "tdx.show-run"})");
}

TEST_F(Commands, PendingTimersOf4095VsansComeInRepliesThatFit) {
    target_.model = SwitchModel(parse_configuration(R"({"vsanRange": [{"first": 1, "last": 4095}]})", "test"));
    change("tdx.enable");
    change("timers.set", {{"setting", "ratov"}, {"value", 20000}});
    for (uint32_t id = 1; id <= VSAN_NUMBER_MAX; ++id) {
        ASSERT_EQ(set_vsan_timer(target_, {"operator", true}, id, Timer::r_a_tov, 30000, false), 0u);
    }
    Json page = look("tdx.show");
    size_t count = page["pending"].size();
    EXPECT_EQ(page["pending"][0]["vsan"], 0) << "the switch's own value";
    while (page["more"] == true) {
        ASSERT_LE(reply_.data.size(), MTS_WIRE_MAX_BODY - MTS_WIRE_REPLY_FIXED);
        page = look("tdx.show", {{"after", page["pending"].back()["vsan"]}});
        count += page["pending"].size();
    }
    EXPECT_EQ(count, 4096u);
}

TEST_F(Commands, AnswerLongerThanAReplyIsRefused) {
    Role role;
    role.name = "crowd";
    for (unsigned number = 0; number < 600; ++number) {
        role.users.push_back(std::string(250, 'u') + std::to_string(number));
    }
    target_.roles.add(role);
    EXPECT_EQ(refusal(1, R"({"command": "role.list"})").first, STATUS_BAD_LENGTH);
}

TEST_F(Commands, SwitchIsShownWhole) {
    const Json shown = look("switch.show");
    EXPECT_EQ(shown["vsans"], Json::parse(R"({"total": 3, "suspended": 1, "up": 1})"));
    EXPECT_EQ(shown["ports"], Json::parse(R"({"total": 3, "up": 2})"));
    EXPECT_EQ(shown["subscribers"], Json::array());
    change("events.inject", {{"count", 7}});
    target_.events.deliver();
    EXPECT_EQ(look("switch.show")["events"], Json::parse(R"({"published": 7, "missed": 7, "dropped": 0})"));
}

TEST_F(Commands, InjectedEventsAreOfBothClasses) {
    change("events.inject", {{"count", 2}, {"vsan", 10}});
    change("events.inject", {{"count", 1}, {"class", 102}});
    ASSERT_EQ(target_.events.staged().size(), 3u);
    EXPECT_EQ(target_.events.staged()[1].event_class, 145u);
    EXPECT_EQ(word(target_.events.staged()[1].payload, 4), 10u);
    EXPECT_EQ(target_.events.staged()[2].event_class, 102u);
    refusal(3, R"({"command": "events.inject", "count": 100001})");
    refusal(3, R"({"command": "events.inject", "count": 1, "vsan": 99})");
    refusal(3, R"({"command": "events.inject", "count": 1, "class": 103})");
    EXPECT_EQ(target_.events.staged().size(), 3u);
}

TEST_F(Commands, FaultIsAddedListedAndCleared) {
    EXPECT_EQ(
        change("fault.add", {{"action", "status"}, {"value", 0x40190001}, {"vsan", 10}, {"times", 3}}),
        Json::parse(
            R"({"number": 1, "side": "manager", "action": "status", "status": "0x40190001", "withData": false, "vsan": 10,
                              "remaining": 3, "applied": 0})"));
    change("fault.add", {{"action", "delay"}, {"value", 1}, {"opcode", 149}, {"kind", 1}, {"service", 15}});
    change("fault.add", {{"action", "exit"}, {"ifIndex", 5}});
    EXPECT_EQ(look("fault.list")["faults"].size(), 3u);
    EXPECT_EQ(look("fault.list", {{"after", 2}})["faults"][0]["action"], "exit");
    refusal(3, R"({"command": "fault.add"})");
    refusal(3, R"({"command": "fault.add", "action": "melt"})");
    refusal(3, R"({"command": "fault.add", "action": "status"})");
    refusal(3, R"({"command": "fault.add", "action": "drop", "value": 1})");
    refusal(3, R"({"command": "fault.add", "action": "drop", "withData": true})");
    refusal(3, R"({"command": "fault.add", "action": "delay", "value": 0})");
    refusal(3, R"({"command": "fault.add", "action": "delay", "value": 600001})");
    refusal(3, R"({"command": "fault.add", "action": "drop", "times": 0})");
    refusal(3, R"({"command": "fault.add", "action": "drop", "service": 1})");
    EXPECT_EQ(target_.faults.list().size(), 3u);
    EXPECT_EQ(change("fault.clear", {{"number", 2}})["cleared"], 1);
    refusal(3, R"({"command": "fault.clear", "number": 2})");
    EXPECT_EQ(change("fault.clear")["cleared"], 2);
}

TEST_F(Commands, AFaultThatEndsTheSwitchSaysForHowManySeconds) {
    EXPECT_FALSE(change("fault.add", {{"action", "exit"}}).contains("value"));
    EXPECT_FALSE(change("fault.add", {{"action", "exit"}, {"value", 0}}).contains("value"));
    EXPECT_EQ(change("fault.add", {{"action", "exit"}, {"value", 600}})["value"], 600);
    EXPECT_EQ(target_.faults.list().back().value, 600u);
    refusal(3, R"({"command": "fault.add", "action": "exit", "value": 601})");
    refusal(3, R"({"command": "fault.add", "action": "exit", "value": -1})");
    EXPECT_EQ(target_.faults.list().size(), 3u);
}

TEST_F(Commands, DebugFiltersAreSetAndOtherLinesStay) {
    const Json defaults = Json::parse(R"([{"class": 100, "history": true, "debug": false},
                                          {"class": 101, "history": false, "debug": false}])");
    EXPECT_EQ(look("debug.show")["classes"], defaults);
    write_file(folder_ / "debug.conf", "# mine\nhistory 101 on\n history 101 off # twice\nnonsense\ndebug 7 on");
    EXPECT_EQ(look("debug.show")["unusableLines"], 1);
    const Json changed = change("debug.set", {{"class", 101}, {"what", "history"}, {"on", true}});
    EXPECT_EQ(changed["classes"].size(), 3u);
    EXPECT_EQ(file_content(folder_ / "debug.conf"), "# mine\nnonsense\ndebug 7 on\nhistory 101 on\n");
    EXPECT_FALSE(std::filesystem::exists(folder_ / "debug.conf.new"));
    EXPECT_EQ(std::filesystem::status(folder_ / "debug.conf").permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    refusal(3, R"({"command": "debug.set", "class": 101, "what": "history"})");
    refusal(3, R"({"command": "debug.set", "class": 101, "what": "print", "on": true})");
}

TEST_F(Commands, DebugFiltersHaveRoomFor32Classes) {
    for (unsigned number = 1; number <= 32; ++number) {
        change("debug.set", {{"class", number}, {"what", "debug"}, {"on", true}});
    }
    const std::string before = file_content(folder_ / "debug.conf");
    EXPECT_TRUE(contains(refusal(3, R"({"command": "debug.set", "class": 33, "what": "debug", "on": true})").second,
                         "no room"));
    EXPECT_EQ(file_content(folder_ / "debug.conf"), before);
}

TEST_F(Commands, WithoutARunDirectoryThereAreNoAgentFiles) {
    target_.run_directory.clear();
    refusal(1, R"({"command": "debug.show"})");
    refusal(3, R"({"command": "debug.set", "class": 1, "what": "debug", "on": true})");
}

} // namespace
