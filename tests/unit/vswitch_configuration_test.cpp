// SPDX-License-Identifier: Apache-2.0
// The operator's JSON files: what they make, and that every mistake is named.
#include <algorithm>
#include <ctime>
#include <nlohmann/json.hpp>

#include "changes/changes.h"
#include "vswitch_test_support.h"

using namespace vswitch;
using namespace vswitch_test;

namespace {

SwitchData parse(const std::string &text) {
    return parse_configuration(text, "initial.json");
}

std::string parse_error(const std::string &text) {
    return refusal_of([&] { parse(text); });
}

TEST(Configuration, DemoHasTellingNamesSuspendedVsansAnd48Ports) {
    const SwitchData demo = demo_configuration();
    EXPECT_EQ(demo.vsans.size(), 7u);
    EXPECT_EQ(demo.vsans.at(1).name, "default");
    EXPECT_EQ(demo.vsans.at(4094).name, "replication");
    size_t suspended = 0;
    for (const auto &[id, vsan] : demo.vsans) {
        suspended += vsan.admin_state == ADMIN_STATE_SUSPENDED;
    }
    EXPECT_EQ(suspended, 2u);
    EXPECT_EQ(demo.ports.size(), 48u);
    std::set<uint32_t> used_vsans;
    std::set<bool> links;
    uint32_t number = 0;
    for (const auto &[if_index, port] : demo.ports) {
        EXPECT_EQ(if_index, 16777216 + number++ * 4096);
        used_vsans.insert(port.vsan);
        links.insert(port.link_up);
    }
    EXPECT_EQ(used_vsans.size(), 7u) << "ports are spread over all VSANs";
    EXPECT_EQ(links.size(), 2u) << "some links are down";
}

TEST(Configuration, EmptySwitchHasVsan1And48PortsWithoutLink) {
    const SwitchData empty = empty_configuration();
    ASSERT_EQ(empty.vsans.size(), 1u);
    EXPECT_EQ(empty.vsans.at(1).name, "VSAN0001");
    EXPECT_EQ(empty.ports.size(), 48u);
    EXPECT_FALSE(empty.ports.at(16777216).link_up);
    EXPECT_EQ(parse("{}"), empty);
}

TEST(Configuration, Vsan1ExistsEvenWhenItIsNotListed) {
    EXPECT_TRUE(parse(R"({"vsans": [{"id": 10}]})").vsans.contains(1));
    EXPECT_EQ(parse(R"({"vsans": [{"id": 1, "name": "x"}]})").vsans.at(1).name, "x");
}

TEST(Configuration, EverythingButTheIdHasADefault) {
    const Vsan vsan = parse(R"({"vsans": [{"id": 10}]})").vsans.at(10);
    Vsan expected;
    expected.name = "VSAN0010";
    EXPECT_EQ(vsan, expected);
    EXPECT_EQ(vsan.mtu, 2112u);
    EXPECT_EQ(vsan.interop, 100u);
}

TEST(Configuration, RangeMakesAllItsVsansAndKeepsThoseThatAreListed) {
    const SwitchData data = parse(R"({"vsanRange": [{"first": 1, "last": 4095}], "vsans": [{"id": 7, "mtu": 99}]})");
    EXPECT_EQ(data.vsans.size(), 4095u);
    EXPECT_EQ(data.vsans.at(7).mtu, 99u);
    EXPECT_EQ(data.vsans.at(4095).name, "VSAN4095");
}

TEST(Configuration, RangesMayOverlapAndTouch) {
    const SwitchData data = parse(R"({"vsanRange": [{"first": 5, "last": 9}, {"first": 7, "last": 12},
        {"first": 8, "last": 8}, {"first": 13, "last": 13}, {"first": 20, "last": 20}]})");
    std::string made;
    for (const auto &[id, vsan] : data.vsans) {
        made += std::to_string(id) + " ";
    }
    EXPECT_EQ(made, "1 5 6 7 8 9 10 11 12 13 20 ");
}

// The processor time of this thread for a file with so many ranges, in nanoseconds.
double cost_of_ranges(int count, const std::string &range) {
    std::string text = R"({"vsanRange": [)" + range;
    for (int number = 1; number < count; ++number) {
        text += "," + range;
    }
    text += "]}";
    const auto now = [] {
        timespec time{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return 1e9 * static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec);
    };
    const double before = now();
    parse(text);
    return now() - before;
}

TEST(Configuration, CostOfRangesIsThatOfTheirNumberAndNotOfTheirWidth) {
    const std::string narrow = R"({"first": 7, "last": 7})";
    const double cost = cost_of_ranges(15000, narrow);
    EXPECT_LT(cost_of_ranges(15000, R"({"first": 1, "last": 4095})"), 5 * cost);
    EXPECT_LT(cost_of_ranges(60000, narrow), 10 * cost) << "of four times as many";
}

TEST(Configuration, TimersAndDistributionAreRead) {
    const SwitchData data = parse(R"({"vsans": [{"id": 10, "timers": {"ratov": 5000, "fstov": 100000}}],
        "timers": {"edtov": 1000, "dstov": 6000},
        "tdx": {"fctimer": {"enabled": true, "showRun": true, "timers": {"10": {"dstov": 7000}}}}})");
    EXPECT_EQ(data.vsans.at(10).timers[Timer::r_a_tov], 5000u);
    EXPECT_EQ(data.vsans.at(10).timers[Timer::f_s_tov], 100000u);
    EXPECT_FALSE(data.vsans.at(10).timers[Timer::e_d_tov]);
    EXPECT_EQ(data.vsans.at(10).distributed_timers[Timer::d_s_tov], 7000u);
    EXPECT_EQ(data.settings.timers[Timer::e_d_tov], 1000u);
    EXPECT_EQ(data.settings.timers[Timer::d_s_tov], 6000u);
    EXPECT_EQ(data.settings.timers[Timer::r_a_tov], 10000u);
    EXPECT_TRUE(data.settings.tdx_enabled);
    EXPECT_TRUE(data.settings.tdx_show_run);
}

// One set of rules holds whoever speaks: the numbers that 0 leaves as they are, a file leaves out.
TEST(Configuration, FieldsOfAVsanAreThoseThatASetWouldTake) {
    const auto is_set = [](const Vsan &vsan) {
        ServedSwitch target(parse("{}"), Roles());
        return change_vsan(target, {}, 10, vsan, true) == STATUS_SUCCESS;
    };
    const auto is_in_file = [](const char *key, const nlohmann::json &value) {
        return parse_error(nlohmann::json{{"vsans", {{{"id", 10}, {key, value}}}}}.dump()).empty();
    };
    const struct {
        const char *key;
        uint32_t Vsan::*member;
        uint32_t least;
    } fields[] = {{"mtu", &Vsan::mtu, 0},
                  {"interop", &Vsan::interop, 0},
                  {"inorderDelivery", &Vsan::inorder_delivery, 1},
                  {"networkDropLatency", &Vsan::drop_latency, 1}};
    for (const auto &field : fields) {
        for (const uint32_t value : {0u, 1u, 2u, 3u, 4u, 5u, 99u, 100u, 101u, 60000u, 60001u, 65535u, 65536u}) {
            if (value < field.least) {
                continue;
            }
            Vsan vsan = new_vsan(10);
            vsan.*field.member = value;
            EXPECT_EQ(is_in_file(field.key, value), is_set(vsan)) << field.key << " " << value;
        }
    }
    for (const std::string &name : {std::string("x"), std::string(32, 'x'), std::string(33, 'x'), std::string("a b"),
                                    std::string("\x7f"), std::string("\t")}) {
        Vsan vsan = new_vsan(10);
        vsan.name = name;
        EXPECT_EQ(is_in_file("name", name), is_set(vsan)) << name;
    }
}

// Where an initial file may give timers, and what takes the same values afterwards.
struct TimerPlace {
    const char *text; // with the timers in the place of the two dots
    uint32_t vsan;
    bool distributed;
};
class TimersOfAPlace : public testing::TestWithParam<TimerPlace> {
  protected:
    using Values = std::vector<std::pair<Timer, uint32_t>>;

    bool file_is_accepted(const Values &values) {
        nlohmann::json timers = nlohmann::json::object();
        for (const auto &[timer, value] : values) {
            timers[names.at(timer)] = value;
        }
        std::string text = GetParam().text;
        return parse_error(text.replace(text.find(".."), 2, timers.dump())).empty();
    }

    bool sets_are_accepted(const Values &values) {
        SwitchData data = parse(R"({"vsans": [{"id": 10}]})");
        data.settings.tdx_enabled = GetParam().distributed;
        ServedSwitch target(data, Roles());
        const Requester requester{"somebody", true};
        return std::ranges::all_of(values, [&](const auto &each) {
            const auto &[timer, value] = each;
            return (GetParam().vsan == 0
                        ? set_switch_timer(target, requester, timer, value, false)
                        : set_vsan_timer(target, requester, GetParam().vsan, timer, value, false)) == STATUS_SUCCESS;
        });
    }

    const std::map<Timer, const char *> names = {
        {Timer::e_d_tov, "edtov"}, {Timer::r_a_tov, "ratov"}, {Timer::d_s_tov, "dstov"}, {Timer::f_s_tov, "fstov"}};
};

TEST_P(TimersOfAPlace, AreThoseThatSetsWouldMake) {
    constexpr uint32_t edges[] = {0, 999, 1000, 4999, 5000, 9999, 10000, 10001, 100000, 100001, UINT32_MAX};
    for (const TimerKind &kind : timer_kinds) {
        for (const uint32_t value : edges) {
            EXPECT_EQ(file_is_accepted({{kind.timer, value}}), sets_are_accepted({{kind.timer, value}}))
                << kind.word << " " << value;
        }
    }
    for (const uint32_t e_d_tov : edges) {
        for (const uint32_t r_a_tov : edges) {
            const Values values = {{Timer::e_d_tov, e_d_tov}, {Timer::r_a_tov, r_a_tov}};
            EXPECT_EQ(file_is_accepted(values),
                      sets_are_accepted(values) || sets_are_accepted({values.rbegin(), values.rend()}))
                << e_d_tov << " and " << r_a_tov;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Every, TimersOfAPlace,
    testing::Values(TimerPlace{R"({"timers": ..})", 0, false},
                    TimerPlace{R"({"vsans": [{"id": 10, "timers": ..}]})", 10, false},
                    TimerPlace{R"({"vsans": [{"id": 10}], "tdx": {"fctimer": {"timers": {"10": ..}}}})", 10, true}));

TEST(Configuration, ErrorNamesTheFile) {
    EXPECT_TRUE(contains(parse_error("[]"), "initial.json"));
}

struct Mistake {
    const char *text;
    const char *reason;
};

class ConfigurationMistake : public testing::TestWithParam<Mistake> {};

TEST_P(ConfigurationMistake, IsRefusedWithItsReason) {
    const std::string error = parse_error(GetParam().text);
    EXPECT_TRUE(contains(error, GetParam().reason)) << "got: " << error;
    EXPECT_EQ(error.find('\n'), std::string::npos) << "one sentence, one line";
}

const Mistake mistakes[] = {
    {"", "not valid JSON"},
    {"{", "not valid JSON"},
    {"{} x", "not valid JSON near byte"},
    {"[]", "one JSON object"},
    {R"({"vsan": []})", "unknown key \"vsan\""},
    {R"({"vsans": {}})", "\"vsans\" must be a list"},
    {R"({"vsans": [1]})", "a VSAN must be an object"},
    {R"({"vsans": [{"name": "x"}]})", "a VSAN has no \"id\""},
    {R"({"vsans": [{"id": 0}]})", "from 1 to 4095"},
    {R"({"vsans": [{"id": 4096}]})", "from 1 to 4095"},
    {R"({"vsans": [{"id": -1}]})", "from 1 to 4095"},
    {R"({"vsans": [{"id": 1.5}]})", "from 1 to 4095"},
    {R"({"vsans": [{"id": "1"}]})", "from 1 to 4095"},
    {R"({"vsans": [{"id": 99999999999999999999999}]})", "from 1 to 4095"},
    {R"({"vsans": [{"id": 1e999}]})", "number that is too large"},
    {R"({"vsans": [{"id": 5}, {"id": 5}]})", "VSAN 5 is listed twice"},
    {R"({"vsans": [{"id": 5, "id": 6}]})", "key \"id\" is given twice"},
    {R"({"vsans": [{"id": 5, "nmae": "x"}]})", "unknown key \"nmae\""},
    {R"({"vsans": [{"id": 5, "name": "a b"}]})", "without blanks"},
    {R"({"vsans": [{"id": 5, "name": "a\u0000b"}]})", "printable"},
    {R"({"vsans": [{"id": 5, "name": "abcdefghijklmnopqrstuvwxyz0123456"}]})", "\"name\" must be at most 32"},
    {R"({"vsans": [{"id": 5, "name": 5}]})", "\"name\" must be a text"},
    {R"({"vsans": [{"id": 5, "name": "x"}, {"id": 6, "name": "x"}]})", "VSAN 5 and VSAN 6 have the same name \"x\""},
    {R"({"vsans": [{"id": 5, "name": "VSAN0001"}]})", "VSAN 1 and VSAN 5 have the same name"},
    {R"({"vsans": [{"id": 5, "state": "up"}]})", "must be \"active\" or \"suspended\""},
    {R"({"vsans": [{"id": 5, "state": 1}]})", "must be \"active\" or \"suspended\""},
    {R"({"vsans": [{"id": 5, "loadBalancing": "x"}]})", "\"loadBalancing\" must be"},
    {R"({"vsans": [{"id": 5, "interop": 5}]})", "\"interop\" must be 1 to 4, or 100"},
    {R"({"vsans": [{"id": 5, "interop": 0}]})", "VSAN 5: \"interop\""},
    {R"({"vsans": [{"id": 5, "inorderDelivery": 3}]})", "must be true or false"},
    {R"({"vsans": [{"id": 5, "networkDropLatency": 0}]})", "from 1 to 60000"},
    {R"({"vsans": [{"id": 5, "networkDropLatency": 60001}]})", "from 1 to 60000"},
    {R"({"vsans": [{"id": 5, "timers": {"x": 1}}]})", "unknown key \"x\""},
    {R"({"vsans": [{"id": 5, "timers": 1}]})", "\"timers\" must be an object"},
    {R"({"vsanRange": [{"first": 5}]})", "must have \"first\" and \"last\""},
    {R"({"vsanRange": [{"first": 5, "last": 4}]})", "from 5 to 4095"},
    {R"({"vsanRange": [{"first": 1, "last": 4096}]})", "from 1 to 4095"},
    {R"({"ports": [], "portCount": 1})", "exclude each other"},
    {R"({"portCount": 4097})", "from 0 to 4096"},
    {R"({"ports": [{}]})", "a port has no \"ifIndex\""},
    {R"({"ports": [{"ifIndex": 0}]})", "from 1 to 4294967295"},
    {R"({"ports": [{"ifIndex": 4294967296}]})", "from 1 to 4294967295"},
    {R"({"ports": [{"ifIndex": 1}, {"ifIndex": 1}]})", "port 1 is listed twice"},
    {R"({"ports": [{"ifIndex": 1, "vsan": 2}]})", "port 1 is in VSAN 2, which does not exist"},
    {R"({"ports": [{"ifIndex": 1, "link": true}]})", "must be \"up\" or \"down\""},
    {R"({"ports": [{"ifIndex": 1, "alias": 7}]})", "port 1: \"alias\" must be a text"},
    {R"({"ports": [{"ifIndex": 1, "alias": "a\nb"}]})", "port 1: \"alias\" must be at most 64 bytes of UTF-8 without"},
    {R"({"ports": [{"ifIndex": 1, "alias": "0123456789012345678901234567890123456789012345678901234567890123x"}]})",
     "port 1: \"alias\" must be at most 64 bytes"},
    {"{\"ports\": [{\"ifIndex\": 1, \"alias\": \"\xff\"}]}", "not valid JSON"},
    {R"({"ports": [{"ifIndex": 1, "enabled": "yes"}]})", "port 1: \"enabled\" must be true or false"},
    {R"({"ports": [{"ifIndex": 1, "traps": 1}]})", "port 1: \"traps\" must be true or false"},
    {R"({"ports": [{"ifIndex": 1, "speedMbps": 1000}]})", "port 1: \"speedMbps\" must be one of 2000, 4000, 8000, "},
    {R"({"ports": [{"ifIndex": 1, "speedMbps": -8000}]})", "must be one of"},
    {R"({"ports": [{"ifIndex": 1, "speedMbps": 4294975296}]})", "must be one of"},
    {R"({"ports": [{"ifIndex": 1, "speedMbps": "8000"}]})", "must be one of"},
    {R"({"ports": [{"ifIndex": 1, "speed": 8000}]})", "a port has the unknown key \"speed\""},
    {R"({"ports": [{"ifIndex": 1, "traffic": 5}]})", "port 1: \"traffic\" must be an object"},
    {R"({"ports": [{"ifIndex": 1, "traffic": {"inOctets": -1}}]})",
     "port 1: \"traffic\": \"inOctets\" must be a whole"},
    {R"({"ports": [{"ifIndex": 1, "traffic": {"inOctets": 4294967296}}]})", "from 0 to 4294967295"},
    {R"({"ports": [{"ifIndex": 1, "traffic": {"octets": 1}}]})", "\"traffic\" has the unknown key \"octets\""},
    {R"({"system": "x"})", "\"system\" must be an object"},
    {R"({"system": {"sysName": "x"}})", "\"system\" has the unknown key \"sysName\""},
    {R"({"system": {"name": 5}})", "\"system\": \"name\" must be a text"},
    {R"({"system": {"location": "rack\t7"}})", "\"system\": \"location\" must be at most 255 bytes of UTF-8 without"},
    {R"({"switchLatency": 60001})", "\"switchLatency\" must be"},
    {R"({"inorderDelivery": 0})", "must be true or false"},
    {R"({"tdx": {"x": {}}})", "\"tdx\" has the unknown key"},
    {R"({"tdx": {"fctimer": {"enabled": 1}}})", "\"enabled\" must be true or false"},
    {R"({"tdx": {"fctimer": {"timers": {"2": {}}}}})", "a VSAN that exists"},
    {R"({"tdx": {"fctimer": {"timers": {"01": {}}}}})", "a VSAN that exists"},
    {R"({"tdx": {"fctimer": {"timers": {"": {}}}}})", "a VSAN that exists"},
    {R"({"tdx": {"fctimer": {"timers": {"1": {"ratov": 0}}}}})", "from 5000 to 100000"},
    {R"({"timers": {"edtov": 10000}})", "the switch-wide timers: \"edtov\" must be less than \"ratov\""},
    {R"({"timers": {"edtov": 7000}, "vsans": [{"id": 2, "timers": {"ratov": 7000}}]})", "timers of VSAN 2: \"edtov\""},
    {R"({"tdx": {"fctimer": {"timers": {"1": {"edtov": 10000}}}}})", "timers of \"1\": \"edtov\" must be less"},
    {"{\"a\n\xff\": 1}", "not valid JSON"},
};
INSTANTIATE_TEST_SUITE_P(Every, ConfigurationMistake, testing::ValuesIn(mistakes));

TEST(Configuration, MissingFileIsRefused) {
    const TemporaryFolder folder;
    EXPECT_TRUE(contains(refusal_of([&] { load_configuration(folder / "x.json"); }), "there is no such file"));
}

TEST(Configuration, FileThatIsNoFileOrTooLargeIsRefused) {
    const TemporaryFolder folder;
    EXPECT_TRUE(contains(refusal_of([&] { load_configuration(folder.path()); }), "not a regular file"));
    write_file(folder / "large.json", std::string(max_configuration_size + 1, ' '));
    EXPECT_TRUE(contains(refusal_of([&] { load_configuration(folder / "large.json"); }), "larger than"));
}

TEST(Configuration, PortsHaveTheSettingsThatTheFileGivesThem) {
    const SwitchData data = parse_configuration(R"({"ports": [{"ifIndex": 7}, {"ifIndex": 8,
        "alias": "B\u00fcro", "enabled": false, "speedMbps": 32000, "traps": false,
        "traffic": {"inOctets": 4294967295, "outDiscards": 2}}]})",
                                                "test");
    EXPECT_EQ(data.ports.at(7), Port());
    Port port;
    port.alias = "B\xc3\xbcro";
    port.enabled = false;
    port.speed = 32000;
    port.traps = false;
    port.traffic = {4294967295, 0, 0, 0, 0, 0, 0, 2};
    EXPECT_EQ(data.ports.at(8), port);
}

TEST(Configuration, SystemHasTheTextsThatTheFileGivesIt) {
    EXPECT_EQ(parse_configuration("{}", "test").settings.system, (SystemTexts{"", "vswitch", ""}));
    EXPECT_EQ(parse_configuration(R"({"system": {"name": "", "location": "rack 7"}})", "test").settings.system,
              (SystemTexts{"", "", "rack 7"}));
    EXPECT_EQ(
        parse_configuration(R"({"system": {"contact": "a", "name": "b", "location": "c"}})", "test").settings.system,
        (SystemTexts{"a", "b", "c"}));
}

TEST(Configuration, DemoHasAliasesAndNoTraffic) {
    const SwitchData demo = demo_configuration();
    EXPECT_EQ(demo.ports.at(16891904).alias, "tape library");
    for (const auto &[if_index, port] : demo.ports) {
        EXPECT_EQ(port.traffic, PortRates{}) << if_index;
        EXPECT_TRUE(port.enabled) << if_index;
    }
}

TEST(Configuration, IdentityIsNowAndANameOfTheSwitchSOwn) {
    SwitchData one = empty_configuration();
    SwitchData other = empty_configuration();
    give_identity(one);
    give_identity(other);
    EXPECT_NE(one.settings.wwn, 0u);
    EXPECT_NE(one.settings.wwn, other.settings.wwn);
    EXPECT_GT(one.settings.last_change.seconds, 1500000000u);
    EXPECT_LT(one.settings.last_change.microseconds, 1000000u);
}

bool permits(const Permission &permission, uint32_t vsan) {
    return (permission.vsans[vsan / 8] & 0x80 >> vsan % 8) != 0;
}

TEST(RoleFile, UserOfNoRoleIsUnrestrictedAndUserOfARoleWithoutVsansSeesNone) {
    const Roles roles = parse_roles(R"({"roles": [{"name": "r", "users": ["bob"]}]})", "roles.json");
    EXPECT_EQ(roles.find("alice"), nullptr);
    ASSERT_NE(roles.find("bob"), nullptr);
    EXPECT_EQ(roles.find("bob")->vsans, Permission().vsans);
}

TEST(RoleFile, UserOfSeveralRolesHasTheUnion) {
    const Roles roles = parse_roles(R"({"roles": [
        {"name": "a", "vsans": ["1"], "interfaces": ["10-20"], "users": ["bob", "eve"]},
        {"name": "b", "vsans": ["0", "30-31"], "interfaces": ["15-30", "31", "40"], "users": ["bob"]}]})",
                                    "roles.json");
    const Permission &bob = *roles.find("bob");
    for (const uint32_t vsan : {0u, 1u, 30u, 31u}) {
        EXPECT_TRUE(permits(bob, vsan)) << vsan;
    }
    EXPECT_FALSE(permits(bob, 2));
    EXPECT_FALSE(permits(bob, 29));
    EXPECT_FALSE(permits(bob, 32));
    EXPECT_EQ(bob.interfaces, (std::vector<Range>{{10, 31}, {40, 40}}));
    EXPECT_FALSE(permits(*roles.find("eve"), 30));
}

TEST(RoleFile, UsersOfTheSameRolesShareWhatTheseGrant) {
    const Roles roles = parse_roles(R"({"roles": [
        {"name": "a", "vsans": ["1"], "interfaces": ["10-20"], "users": ["bob", "eve", "joe"]},
        {"name": "b", "interfaces": ["30"], "users": ["eve", "bob", "eve"]}]})",
                                    "roles.json");
    EXPECT_EQ(roles.find("bob")->interfaces, (std::vector<Range>{{10, 20}, {30, 30}}));
    EXPECT_EQ(roles.find("bob")->interfaces, roles.find("eve")->interfaces);
    EXPECT_EQ(roles.find("joe")->interfaces, (std::vector<Range>{{10, 20}}));
    const Roles alike =
        parse_roles(R"({"roles": [{"name": "a", "interfaces": ["1-5"], "users": ["u", "v"]}]})", "roles.json");
    EXPECT_EQ(alike.find("u"), alike.find("v"));
}

TEST(RoleFile, InterfaceRangesReachTheLargestNumber) {
    const Roles roles = parse_roles(
        R"({"roles": [{"name": "a", "interfaces": ["4294967295", "1-4294967294"], "users": ["u"]}]})", "roles.json");
    EXPECT_EQ(roles.find("u")->interfaces, (std::vector<Range>{{1, 4294967295}}));
}

TEST(RoleFile, MissingFileHoldsNoRoles) {
    const TemporaryFolder folder;
    EXPECT_EQ(load_roles(folder / "roles.json").user_count(), 0u);
}

class RoleMistake : public testing::TestWithParam<Mistake> {};

TEST_P(RoleMistake, IsRefusedWithItsReasonAndTheFile) {
    const std::string error = refusal_of([&] { parse_roles(GetParam().text, "roles.json"); });
    EXPECT_TRUE(contains(error, GetParam().reason)) << "got: " << error;
    EXPECT_TRUE(contains(error, "roles.json"));
}

const Mistake role_mistakes[] = {
    {"x", "not valid JSON"},
    {R"({"role": []})", "unknown key \"role\""},
    {R"({"roles": {}})", "\"roles\" must be a list"},
    {R"({"roles": [{}]})", "a role has no \"name\""},
    {R"({"roles": [{"name": 1}]})", "must be a text"},
    {R"({"roles": [{"name": "r"}, {"name": "r"}]})", "the role \"r\" is given twice"},
    {R"({"roles": [{"name": "r", "vsans": "1"}]})", "\"vsans\" must be a list"},
    {R"({"roles": [{"name": "r", "vsans": [1]}]})", "must be a text"},
    {R"({"roles": [{"name": "r", "vsans": ["4096"]}]})", "within 0 to 4095"},
    {R"({"roles": [{"name": "r", "vsans": ["5-4"]}]})", "\"5-4\""},
    {R"({"roles": [{"name": "r", "vsans": [""]}]})", "no number or range"},
    {R"({"roles": [{"name": "r", "vsans": ["5-"]}]})", "no number or range"},
    {R"({"roles": [{"name": "r", "vsans": ["-5"]}]})", "no number or range"},
    {R"({"roles": [{"name": "r", "vsans": ["5 "]}]})", "no number or range"},
    {R"({"roles": [{"name": "r", "vsans": ["1-2-3"]}]})", "no number or range"},
    {R"({"roles": [{"name": "r", "interfaces": ["0"]}]})", "within 1 to 4294967295"},
    {R"({"roles": [{"name": "r", "interfaces": ["4294967296"]}]})", "no number or range"},
    {R"({"roles": [{"name": "r", "users": [""]}]})", "1 to 256 bytes"},
    {R"({"roles": [{"name": "r", "users": [5]}]})", "a user must be a text"},
    {R"({"roles": [{"name": "r", "user": ["x"]}]})", "unknown key \"user\""},
};
INSTANTIATE_TEST_SUITE_P(Every, RoleMistake, testing::ValuesIn(role_mistakes));

TEST(RoleFile, WhatAllUsersMayTouchTogetherIsBounded) {
    // Each user has a role of his own, so that nothing is shared, beside one that all have.
    nlohmann::json users = nlohmann::json::array();
    nlohmann::json ranges = nlohmann::json::array();
    for (int number = 0; number < 4000; ++number) {
        users.push_back(std::to_string(number));
        ranges.push_back(std::to_string(2 * number + 1));
    }
    nlohmann::json roles = nlohmann::json::array();
    for (const auto &user : users) {
        roles.push_back({{"name", user}, {"users", {user}}});
    }
    roles.push_back({{"name", "all"}, {"users", users}, {"interfaces", ranges}});
    const std::string text = nlohmann::json{{"roles", roles}}.dump();
    EXPECT_TRUE(contains(refusal_of([&] { parse_roles(text, "roles.json"); }), "in all"));
}

TEST(RoleFile, NumberOfRangesIsBounded) {
    std::string ranges;
    for (int n = 1; n <= 4097; ++n) {
        ranges += (n > 1 ? ", \"" : "\"") + std::to_string(2 * n) + "\"";
    }
    const std::string text = R"({"roles": [{"name": "r", "interfaces": [)" + ranges + "]}]}";
    EXPECT_TRUE(contains(refusal_of([&] { parse_roles(text, "roles.json"); }), "more than 4096"));
}

} // namespace
