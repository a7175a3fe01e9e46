// SPDX-License-Identifier: Apache-2.0
// Several commands as one change: all of them or none, what they see of each other, and what is published.
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include "operator/command_table.h"
#include "vswitch_operator_fixture.h"

using namespace vswitch;
using namespace vswitch_test;

namespace {

std::string unrenamable; // what no file can be given as its name, for the moment

} // namespace

// In the place of the C library's, for this program.
extern "C" int rename(const char *from, const char *to) noexcept {
    if (!unrenamable.empty() && unrenamable == to) {
        errno = EROFS;
        return -1;
    }
    return renameat(AT_FDCWD, from, AT_FDCWD, to);
}

namespace {

class Transaction : public OperatorTest {
  protected:
    // What must be as it was after a refusal.
    struct State {
        SwitchData data;
        std::vector<Role> roles;
        std::string role_file;
        bool operator==(const State &) const = default;
    };
    State state() { return {data(), target_->roles.list(), file_content(folder_ / "roles.json")}; }

    // Sends a transaction that must be refused; nothing may have changed, in memory or on disk.
    Json refused_whole(const Json &commands) {
        const State before = state();
        Json reply = refused("transaction", {{"commands", commands}});
        EXPECT_EQ(state(), before);
        EXPECT_EQ(events(), Lines());
        EXPECT_FALSE(std::filesystem::exists(folder_ / "roles.json.new"));
        EXPECT_EQ(restarted(), before.data);
        return reply;
    }
};

Json create(uint32_t id, const std::string &name) {
    return {{"command", "vsan.create"}, {"id", id}, {"name", name}};
}
Json remove(uint32_t id) {
    return {{"command", "vsan.delete"}, {"id", id}};
}
Json rename(uint32_t id, const std::string &name) {
    return {{"command", "vsan.set"}, {"id", id}, {"name", name}};
}
Json move(uint32_t if_index, uint32_t vsan) {
    return {{"command", "port.move"}, {"ifIndex", if_index}, {"vsan", vsan}};
}
Json port(const std::string &what, uint32_t if_index) {
    return {{"command", "port." + what}, {"ifIndex", if_index}};
}
Json add_role(const std::string &name) {
    return {{"command", "role.add"}, {"name", name}, {"vsans", {"1"}}, {"users", {"bob"}}};
}

TEST_F(Transaction, EachCommandSeesWhatThoseBeforeItDid) {
    const Json reply = transaction({create(50, "new"), move(101, 50), rename(50, "newer")});
    ASSERT_EQ(reply["replies"].size(), 3u);
    EXPECT_EQ(reply["replies"][0]["name"], "new");
    EXPECT_EQ(reply["replies"][1]["vsan"], 50);
    EXPECT_EQ(reply["replies"][2]["name"], "newer");
    EXPECT_EQ(reply["replies"][2]["ports"], 1);
    EXPECT_EQ(reply["changed"], true);
    EXPECT_EQ(vsan(50).name, "newer");
    EXPECT_EQ(data().ports.at(101).vsan, 50u);
    const SwitchData present = data();
    EXPECT_EQ(restarted(), present);
}

TEST_F(Transaction, PublishesWhatIsDifferentBetweenBeforeAndAfterAsOneChangeDoes) {
    transaction({create(50, "new"),
                 move(101, 20),
                 rename(50, "newer"),
                 move(101, 50),
                 rename(20, "other"),
                 {{"command", "port.down"}, {"ifIndex", 102}}});
    EXPECT_EQ(events(), (Lines{"102: 101 10 50",
                               "145: 0 10 0 2 1 1 1 19 2 1", // without any port that is up
                               "145: 0 50 1 2 1 1 0 19 1 0", "301: 102 2 1 1 1 2 1", "302: 1 20 0 0 0 other"}));
}

TEST_F(Transaction, WhatIsCreatedAndDeletedInItNeverWas) {
    const SwitchData before = data();
    EXPECT_EQ(transaction({create(50, "new"), move(101, 50), remove(50), move(101, 10)})["changed"], false);
    EXPECT_EQ(data(), before) << "not even the moment of the last change";
    EXPECT_EQ(events(), Lines());
}

TEST_F(Transaction, WhatIsDeletedAndCreatedInItHasChanged) {
    transaction({remove(20), create(20, "again"), move(103, 20), move(104, 20)});
    EXPECT_EQ(vsan(20).name, "again");
    EXPECT_EQ(events(), Lines{"302: 1 20 0 0 0 again"});
    const SwitchData present = data();
    EXPECT_EQ(restarted(), present);
}

TEST_F(Transaction, NamesChangePlaces) {
    transaction({rename(10, "third"), rename(20, "prod"), rename(10, "test")});
    EXPECT_EQ(vsan(10).name, "test");
    EXPECT_EQ(vsan(20).name, "prod");
    EXPECT_EQ(target_->model.vsan_named("prod"), 20u);
    EXPECT_EQ(target_->model.vsan_named("test"), 10u);
    const SwitchData present = data();
    EXPECT_EQ(restarted(), present);
}

TEST_F(Transaction, RefusalNamesTheCommandAndNothingHasChanged) {
    const Json reply = refused_whole({create(50, "new"), add_role("x"), rename(50, "prod"), move(101, 50)});
    EXPECT_EQ(reply["number"], 3);
    EXPECT_EQ(reply["status"], STATUS_NAME_CONFLICT);
    EXPECT_EQ(reply["reason"], "VSAN 50: Name conflicts with that of another VSAN.");
    EXPECT_EQ(reply["error"], "Command 3 (vsan.set): VSAN 50: Name conflicts with that of another VSAN.");
}

TEST_F(Transaction, StoreThatFailsLeavesEverythingAsItWas) {
    const State before = state();
    {
        const FullDisk full;
        EXPECT_EQ(refused("transaction", {{"commands", {create(50, "new"), move(101, 50)}}})["status"],
                  STATUS_STORE_FAILED);
    }
    EXPECT_EQ(state(), before);
    EXPECT_EQ(events(), Lines());
    EXPECT_EQ(restarted(), before.data);
}

TEST_F(Transaction, RolesAreAddedAndRemovedWithTheRest) {
    const Json reply =
        transaction({add_role("x"), create(50, "new"), {{"command", "role.remove"}, {"name", "backup"}}});
    EXPECT_EQ(reply["replies"][0]["users"], Json{"bob"});
    ASSERT_EQ(target_->roles.list().size(), 1u);
    EXPECT_EQ(target_->roles.list()[0].name, "x");
    EXPECT_EQ(load_roles(folder_ / "roles.json").list(), target_->roles.list());
    EXPECT_NE(target_->roles.find("bob"), nullptr);
    EXPECT_EQ(target_->roles.find("alice"), nullptr);
    EXPECT_TRUE(data().vsans.contains(50));
}

TEST_F(Transaction, RoleFileThatCannotBePreparedChangesNothing) {
    ASSERT_EQ(mkdir((folder_ / "roles.json.new").c_str(), 0700), 0);
    const State before = state();
    const Json reply = refused("transaction", {{"commands", {create(50, "new"), add_role("x")}}});
    EXPECT_EQ(reply["status"], STATUS_ROLES_NOT_WRITTEN);
    EXPECT_TRUE(contains(reply["error"], "roles.json")) << reply;
    EXPECT_EQ(state(), before);
    EXPECT_EQ(restarted(), before.data);
}

TEST_F(Transaction, RoleFileThatCannotTakeItsPlaceIsUndoneInTheDatabase) {
    const State before = state();
    unrenamable = folder_ / "roles.json";
    const Json reply = refused("transaction", {{"commands",
                                                {rename(10, "test2"), remove(20), port("down", 101), port("up", 101),
                                                 move(101, 1), port("down", 102), add_role("x")}}});
    unrenamable.clear();
    EXPECT_EQ(reply["status"], STATUS_ROLES_NOT_WRITTEN);
    EXPECT_EQ(state(), before);
    EXPECT_EQ(events(), Lines());
    EXPECT_FALSE(std::filesystem::exists(folder_ / "roles.json.new"));
    EXPECT_EQ(restarted(), before.data);
}

TEST_F(Transaction, WhatSomebodyHasWrittenIntoTheRoleFileIsKept) {
    write_file(folder_ / "roles.json", R"({"roles": [{"name": "mine", "users": ["carol"]}]})");
    transaction(Json::array({add_role("x")}));
    EXPECT_EQ(target_->roles.list().size(), 2u);
    EXPECT_NE(target_->roles.find("carol"), nullptr);
    write_file(folder_ / "roles.json", "{");
    const Json reply = refused("transaction", {{"commands", {create(50, "new"), add_role("y")}}});
    EXPECT_EQ(reply["number"], 2);
    EXPECT_FALSE(data().vsans.contains(50));
}

TEST_F(Transaction, RolesTogetherAreWhatAFileMayHold) {
    Json commands = Json::array();
    for (int role = 0; role < 10; ++role) {
        Json users = Json::array();
        for (int user = 0; user < 500; ++user) {
            users.push_back(fmt::format("u{}-{}", role, user));
        }
        commands.push_back({{"command", "role.add"}, {"name", fmt::format("r{}", role)}, {"users", users}});
    }
    const State before = state();
    const Json reply = refused("transaction", {{"upload", upload(Json{{"commands", commands}}.dump())}});
    EXPECT_EQ(reply["status"], STATUS_BAD_ROLE);
    EXPECT_TRUE(contains(reply["error"], "more than 4096 users")) << reply;
    EXPECT_EQ(state(), before);
}

TEST_F(Transaction, DistributionSessionIsOpenedAndCommittedWithin) {
    const auto set = [](uint32_t value) {
        return Json{{"command", "timers.set"}, {"setting", "ratov"}, {"value", value}, {"vsan", 10}};
    };
    const Json reply = transaction({{{"command", "tdx.enable"}}, set(20000), {{"command", "tdx.commit"}}, set(30000)});
    EXPECT_EQ(reply["replies"][1]["pending"], true);
    EXPECT_EQ(vsan(10).timers[Timer::r_a_tov], 20000u);
    ASSERT_TRUE(data().session);
    EXPECT_EQ(data().session->user, "admin");
    EXPECT_EQ(data().session->pending.at(10)[Timer::r_a_tov], 30000u);
    // One session ends, another opens, in one transaction.
    transaction({{{"command", "tdx.abort"}}, {{"command", "timers.set"}, {"setting", "dstov"}, {"value", 6000}}});
    EXPECT_EQ(data().session->pending.size(), 1u);
    EXPECT_EQ(data().session->pending.at(0)[Timer::d_s_tov], 6000u);
    const SwitchData present = data();
    EXPECT_EQ(restarted(), present);
    transaction({{{"command", "tdx.abort"}}, {{"command", "tdx.disable"}}});
    EXPECT_FALSE(data().session);
}

TEST_F(Transaction, HasChangesOfTheConfigurationAlone) {
    for (const char *name : {"vsan.list", "switch.show", "fault.clear", "events.inject", "debug.set", "transaction",
                             "import", "upload.begin", "backup.begin"}) {
        const Json reply = refused("transaction", {{"commands", {create(50, "new"), {{"command", name}}}}});
        EXPECT_EQ(reply["number"], 2) << name;
        EXPECT_TRUE(contains(reply["error"], "cannot be part of a transaction")) << reply;
    }
    EXPECT_FALSE(data().vsans.contains(50));
    for (const Json &wrong :
         {Json(7), Json("x"), Json::object(), Json{{"command", "vsan.fly"}}, Json{{"command", 7}}}) {
        EXPECT_EQ(refused("transaction", {{"commands", Json::array({wrong})}})["number"], 1) << wrong;
    }
}

// Every command that is said to change the configuration alone does no more than change a draft.
TEST_F(Transaction, IsMadeOfCommandsThatActOnADraft) {
    size_t seen = 0;
    for (const auto table :
         {configuration_commands(), timer_commands(), status_commands(), fault_commands(), client_fault_commands(),
          agent_file_commands(), transaction_commands(), transfer_commands()}) {
        for (const vswitch::Command &one : table) {
            seen += one.configures;
            EXPECT_TRUE(!one.configures || one.kind == MTS_KIND_SET) << one.name;
        }
    }
    EXPECT_EQ(seen, 18u) << "a new one belongs to what a transaction is tested with";
}

TEST_F(Transaction, DryRunTellsTheChangesAndMakesNone) {
    const State before = state();
    const Json reply = command("transaction", {{"dryRun", true},
                                               {"commands",
                                                {create(50, "new"),
                                                 move(101, 50),
                                                 {{"command", "port.deny"}, {"ifIndex", 102}, {"denyList", 7}},
                                                 {{"command", "vsan.set"}, {"id", 10}, {"mtu", 99}},
                                                 add_role("x")}}});
    EXPECT_EQ(reply["replies"].size(), 5u);
    const Json &changes = reply["changes"];
    ASSERT_EQ(changes.size(), 6u) << changes;
    EXPECT_EQ(changes[0], Json::parse(R"({"class": 102, "payload": "000000650000000a00000032"})"));
    EXPECT_EQ(changes[1]["class"], 145);
    EXPECT_EQ(changes[2], Json::parse(R"({"object": "VSAN 10", "setting": "mtu", "former": 2112, "value": 99})"));
    EXPECT_EQ(changes[3]["setting"], "name") << "which no event tells";
    EXPECT_EQ(changes[4]["setting"], "denyList");
    EXPECT_EQ(changes[5]["object"], "role x");
    EXPECT_EQ(state(), before);
    EXPECT_EQ(events(), Lines());
    EXPECT_EQ(restarted(), before.data);
}

TEST_F(Transaction, DryRunTellsOfVsansAlsoWhileTheirEventsAreOff) {
    set_status_events(*target_, operator_, false);
    const Json reply = command("transaction", {{"dryRun", true}, {"commands", Json::array({create(50, "new")})}});
    EXPECT_EQ(reply["changes"].size(), 2u);
    EXPECT_EQ(reply["changes"][0]["class"], 145);
}

TEST_F(Transaction, OfManyCommandsComesAsAnUploadAndItsRepliesAsADownload) {
    Json commands = Json::array();
    for (uint32_t id = 100; id < 4096; ++id) {
        commands.push_back(create(id, fmt::format("v{}", id)));
    }
    const Json reply = command("transaction", {{"upload", upload(Json{{"commands", commands}}.dump())}});
    const Json replies = Json::parse(download(reply))["replies"];
    ASSERT_EQ(replies.size(), commands.size());
    EXPECT_EQ(replies.back()["name"], "v4095");
    EXPECT_EQ(data().vsans.size(), 4u + 3996u);
    EXPECT_EQ(refused("transaction", {{"upload", 7}})["status"], STATUS_NO_SUCH_PARCEL);
}

TEST_F(Transaction, IsBoundedInNumberAndForm) {
    Json commands = Json::array();
    for (int number = 0; number < 10001; ++number) {
        commands.push_back(remove(1));
    }
    const std::string too_many =
        refused("transaction", {{"upload", upload(Json{{"commands", commands}}.dump())}})["error"];
    EXPECT_TRUE(contains(too_many, "at most 10000")) << too_many;
    refused("transaction", Json::object());
    refused("transaction", {{"commands", 7}});
    refused("transaction", {{"commands", Json::array()}, {"upload", 7}});
    refused("transaction", {{"upload", upload("{\"commands\": []")}});
    refused("transaction", {{"upload", upload(std::string(100000, '['))}});
    refused("transaction", {{"upload", upload("{\"commands\": [], \"more\": 1}")}});
    EXPECT_EQ(transaction(Json::array())["replies"], Json::array());
}

TEST_F(Transaction, ThatWouldHoldUpTheSwitchForLongIsRefused) {
    Json vsans = Json::array();
    for (uint32_t id = 1; id < 4096; ++id) {
        vsans.push_back({{"command", "vsan.create"}, {"id", id}, {"mayExist", true}});
    }
    download(command("transaction", {{"upload", upload(Json{{"commands", vsans}}.dump())}}));
    ASSERT_EQ(data().vsans.size(), 4095u);
    Json commands = Json::array();
    for (uint32_t number = 0; number < 10000; ++number) {
        commands.push_back({{"command", "timers.set"}, {"setting", "ratov"}, {"value", 20000 + number}});
    }
    target_->transaction_time = std::chrono::milliseconds(200);
    const Json reply = refused("transaction", {{"upload", upload(Json{{"commands", commands}}.dump())}});
    EXPECT_TRUE(contains(reply["error"], "make it several")) << reply;
    EXPECT_EQ(data().settings.timers[Timer::r_a_tov], 10000u);
}

TEST_F(Transaction, AbsenceIsWhatIfExistsAsksFor) {
    EXPECT_EQ(command("vsan.delete", {{"id", 77}, {"ifExists", true}}),
              Json::parse(R"({"id": 77, "movedPorts": 0, "absent": true})"));
    EXPECT_EQ(command("vsan.delete", {{"id", 10}, {"ifExists", true}}), Json::parse(R"({"id": 10, "movedPorts": 2})"));
    EXPECT_EQ(refused("vsan.delete", {{"id", 77}, {"ifExists", false}})["status"], STATUS_NO_SUCH_VSAN);
    EXPECT_EQ(refused("vsan.delete", {{"id", 1}, {"ifExists", true}})["status"], STATUS_DEFAULT_VSAN);
    EXPECT_EQ(command("role.remove", {{"name", "x"}, {"ifExists", true}}),
              Json::parse(R"({"name": "x", "absent": true})"));
    EXPECT_EQ(command("role.remove", {{"name", "backup"}, {"ifExists", true}}), Json::parse(R"({"name": "backup"})"));
    EXPECT_EQ(refused("role.remove", {{"name", "x"}})["status"], STATUS_NO_SUCH_ROLE);
}

TEST_F(Transaction, ExistenceIsWhatMayExistAllows) {
    const Json made = command("vsan.create", {{"id", 50}, {"mayExist", true}, {"mtu", 99}});
    EXPECT_EQ(made["mtu"], 99);
    EXPECT_FALSE(made.contains("existed"));
    const Json set = command("vsan.create", {{"id", 50}, {"mayExist", true}, {"name", "x"}});
    EXPECT_EQ(set["existed"], true);
    EXPECT_EQ(set["name"], "x");
    EXPECT_EQ(set["mtu"], 99) << "what is not named stays";
    refused("vsan.create", {{"id", 50}});

    const Json role = command("role.add", {{"name", "backup"}, {"mayExist", true}, {"users", {"bob"}}});
    EXPECT_EQ(role, Json::parse(R"({"name": "backup", "users": ["bob"], "vsans": ["10", "40"],
                                    "interfaces": ["101-103"]})"));
    EXPECT_EQ(load_roles(folder_ / "roles.json").list(), target_->roles.list());
    EXPECT_EQ(target_->roles.find("alice"), nullptr);
    refused("role.add", {{"name", "backup"}});
    refused("role.add", {{"name", "backup"}, {"mayExist", true}, {"replace", true}});
    EXPECT_EQ(command("role.add", {{"name", "new"}, {"mayExist", true}})["name"], "new");
}

} // namespace
