// SPDX-License-Identifier: Apache-2.0
// A configuration as a text, out of a switch and into one.
#include <fmt/format.h>

#include "model/configuration.h"
#include "vswitch_random_switch.h"
#include "vswitch_test_support.h"

using namespace vswitch;
using namespace vswitch_test;

namespace {

// A text as read_configuration and format_configuration make it again.
std::string again(const std::string &text) {
    const Configuration configuration = read_configuration(text, "exported");
    return format_configuration(configuration.data, configuration.roles.value_or(Roles()).list());
}

TEST(ConfigurationText, OfWhatWasReadFromItIsTheSame) {
    RandomSwitches random(7);
    for (int round = 0; round < 200; ++round) {
        const SwitchData data = random.data();
        const std::vector<Role> roles = random.roles();
        const std::string text = format_configuration(data, roles);
        const Configuration configuration = read_configuration(text, "exported");
        EXPECT_EQ(configuration.data, data) << text;
        EXPECT_EQ(configuration.roles.value_or(Roles()).list(), roles);
        EXPECT_EQ(again(text), text);
    }
}

TEST(ConfigurationText, LeavesOutWhatIsUsual) {
    SwitchData data = parse_configuration(R"({"vsans": [{"id": 10, "interop": 100, "name": "VSAN0010"}],
        "ports": [{"ifIndex": 7, "speedMbps": 8000}, {"ifIndex": 8, "link": "down"}],
        "timers": {"edtov": 2000, "ratov": 11000}})",
                                          "test");
    EXPECT_EQ(format_configuration(data, {}), "{\n"
                                              "  \"format\": 1,\n"
                                              "  \"timers\": {\"ratov\":11000},\n"
                                              "  \"vsans\": [\n"
                                              "    {\"id\":1},\n"
                                              "    {\"id\":10}\n"
                                              "  ],\n"
                                              "  \"ports\": [\n"
                                              "    {\"ifIndex\":7},\n"
                                              "    {\"ifIndex\":8,\"link\":\"down\"}\n"
                                              "  ]\n"
                                              "}\n");
    data.ports.clear();
    EXPECT_EQ(again(format_configuration(data, {})), format_configuration(data, {})) << "a switch without ports";
    give_identity(data);
    EXPECT_TRUE(contains(format_configuration(data, {}), wwn_text(data.settings.wwn)));
}

TEST(ConfigurationText, OfTheDemoAndOfAnEmptySwitchIsReadAgain) {
    for (const SwitchData &data : {demo_configuration(), empty_configuration()}) {
        EXPECT_EQ(read_configuration(format_configuration(data, {}), "exported").data, data);
    }
}

TEST(ConfigurationText, OfTheLargestSwitchFitsIntoWhatIsRead) {
    SwitchData data = parse_configuration(R"({"vsanRange": [{"first": 1, "last": 4095}], "portCount": 4096})", "test");
    for (auto &[id, vsan] : data.vsans) {
        vsan.name = std::string(27, '"') + fmt::format("{}", id);
        vsan.admin_state = ADMIN_STATE_SUSPENDED;
        vsan.mtu = 65535;
        vsan.load_balancing = LOAD_BALANCING_ADDRESSES;
        vsan.interop = 4;
        vsan.inorder_delivery = TRUTH_TRUE;
        vsan.drop_latency = 60000;
        for (const TimerKind &kind : timer_kinds) {
            vsan.timers[kind.timer] = kind.greatest;
            vsan.distributed_timers[kind.timer] = kind.greatest;
        }
    }
    for (auto &[if_index, port] : data.ports) {
        port.alias = std::string(PORT_ALIAS_MAX, '"');
        port.traffic.fill(UINT32_MAX);
        port.deny_list = UINT32_MAX;
        port.speed = 16000;
        port.enabled = port.traps = false;
    }
    const std::string text = format_configuration(data, {});
    EXPECT_LT(text.size(), max_configuration_size);
    EXPECT_EQ(read_configuration(text, "exported").data, data);
}

struct Mistake {
    std::string text;
    const char *reason;
};

TEST(ConfigurationText, MistakesInWhatOnlyItHasAreNamed) {
    const Mistake mistakes[] = {
        {R"({"format": 2})", "\"format\" must be 1"},
        {R"({"format": "1"})", "\"format\" must be 1"},
        {R"({"wwn": 7})", "\"wwn\" must be a text"},
        {R"({"wwn": "10:00:02:5c:b5:ae:8c"})", "\"wwn\" must be eight bytes"},
        {R"({"wwn": "10:00:02:5c:b5:ae:8c:zz"})", "\"wwn\" must be eight bytes"},
        {R"({"wwn": "1000025cb5ae8ca5"})", "\"wwn\" must be eight bytes"},
        {R"({"wwn": "00:00:00:00:00:00:00:00"})", "\"wwn\" must be eight bytes"},
        {R"({"wwn": "10:00:02:5c:b5:ae:8c:-5"})", "\"wwn\" must be eight bytes"},
        {R"({"statusEvents": 1})", "\"statusEvents\" must be true or false"},
        {R"({"forceTimers": 1})", "\"forceTimers\" must be true or false"},
        {R"({"timers": {"edtov": 20000}})", "\"forceTimers\""},
        {R"({"vsans": [{"id": 2, "interop": "some"}]})", "VSAN 2: \"interop\" must be 1 to 4"},
        {R"({"vsans": [{"id": 2, "interop": 1e9}]})", "VSAN 2: \"interop\" must be 1 to 4"},
        {R"({"vsans": [{"id": 2, "inorderDelivery": "yes"}]})", "VSAN 2: \"inorderDelivery\" must be true or false"},
        {R"({"roles": {}})", "\"roles\" must be a list"},
        {R"({"roles": [{"name": "x", "vsans": ["5000"]}]})", "the role \"x\""},
        {R"({"tdx": {"fctimer": {"refuse": 7}}})", "\"refuse\" must be true or false"},
        {"{\n  \"vsans\": [\n    {\"id\": 2,}\n  ]\n}", "in line 3"},
        {"{\"vsans\": [], \"vsans\": []}", "\"vsans\" is given twice"},
        {std::string("{\"system\": {\"name\": \"a\0b\"}}", 26), "not valid JSON"},
        {R"({"system": {"name": "a\u0000b"}})", "without control characters"},
        {"{\"system\": {\"name\": \"\xc3\"}}", "not valid JSON"},
        {"{\"vsans\": " + std::string(1u << 20, '['), "nested too deeply"},
        {"{\"vsans\": " + std::string(1u << 20, '9') + "}", "too large"},
    };
    for (const auto &[text, reason] : mistakes) {
        const std::string error = refusal_of([&] { read_configuration(text, "switch.json"); });
        EXPECT_TRUE(contains(error, reason)) << text.substr(0, 100) << " got: " << error;
        EXPECT_TRUE(contains(error, "switch.json")) << error;
        EXPECT_LT(error.size(), 300u);
    }
}

// What releases before the format had a number take for granted.
TEST(ConfigurationText, NumbersForTrueAndFalseAreStillRead) {
    const SwitchData data = parse_configuration(
        R"({"inorderDelivery": 1, "vsans": [{"id": 2, "inorderDelivery": 1, "interop": 100},
                                             {"id": 3, "inorderDelivery": 2, "interop": "none"}]})",
        "old");
    EXPECT_EQ(data.settings.inorder_delivery, TRUTH_TRUE);
    EXPECT_EQ(data.vsans.at(2).inorder_delivery, TRUTH_TRUE);
    EXPECT_EQ(data.vsans.at(3).inorder_delivery, TRUTH_FALSE);
}

} // namespace
