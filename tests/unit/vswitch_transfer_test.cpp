// SPDX-License-Identifier: Apache-2.0
// The configuration as a whole: out as a text, in again, and its database while it is used.
#include <fmt/format.h>

#include "model/configuration.h"
#include "vswitch_operator_fixture.h"
#include "vswitch_random_switch.h"

using namespace vswitch;
using namespace vswitch_test;

namespace {

class Transfer : public OperatorTest {
  protected:
    std::string exported() { return download(look("export")); }

    Json import(const std::string &text, bool dry_run = false) {
        const Json reply =
            command("import", {{"upload", upload(text)}, {"source", "switch.json"}, {"dryRun", dry_run}});
        return reply.contains("download") ? Json::parse(download(reply)) : reply;
    }

    Json refused_import(const std::string &text) {
        const SwitchData before = data();
        const Json reply = refused("import", {{"upload", upload(text)}, {"source", "switch.json"}});
        EXPECT_EQ(data(), before);
        EXPECT_EQ(events(), Lines());
        return reply;
    }
};

TEST_F(Transfer, ImportOfTheExportChangesNothing) {
    const SwitchData before = data();
    EXPECT_EQ(import(exported())["changed"], false);
    EXPECT_EQ(data(), before);
    EXPECT_EQ(events(), Lines());
}

TEST_F(Transfer, ImportMakesTheSwitchWhatTheTextSays) {
    const uint64_t wwn = data().settings.wwn;
    const Json reply = import(R"({"vsans": [{"id": 10, "name": "prod"}, {"id": 40}],
        "ports": [{"ifIndex": 101, "vsan": 10}, {"ifIndex": 102, "vsan": 40}, {"ifIndex": 103, "link": "down"},
                  {"ifIndex": 104, "link": "down"}, {"ifIndex": 105, "link": "down"}, {"ifIndex": 106, "link": "down"}],
        "roles": [{"name": "new", "users": ["bob"]}]})");
    EXPECT_EQ(reply["changed"], true);
    std::string present;
    for (const auto &[id, vsan] : data().vsans) {
        present += fmt::format("{}:{} ", id, vsan.name);
    }
    EXPECT_EQ(present, "1:VSAN0001 10:prod 40:VSAN0040 ");
    EXPECT_FALSE(vsan(10).distributed_timers[Timer::r_a_tov]) << "an absent key is its default";
    EXPECT_EQ(data().settings.wwn, wwn);
    EXPECT_GT(data().settings.last_change.seconds, 0u);
    EXPECT_EQ(target_->roles.list().size(), 1u);
    EXPECT_EQ(load_roles(folder_ / "roles.json").list(), target_->roles.list());
    EXPECT_EQ(events(), (Lines{"102: 102 10 40", "102: 103 20 1", "102: 104 20 1", "102: 105 30 1",
                               "145: 1 20 0 2 1 3 1 19 2 1", "145: 1 30 0 2 1 3 2 19 2 2", "145: 0 40 1 2 1 1 0 19 1 0",
                               "301: 103 2 1 1 1 2 1", "301: 105 2 1 1 1 2 1", "302: 1 1 0 0 0 VSAN0001"}));
    const SwitchData kept = data();
    EXPECT_EQ(restarted(), kept);
}

TEST_F(Transfer, ImportOfAnyExportIntoAnySwitchMakesTheSameExport) {
    RandomSwitches random(11);
    for (int round = 0; round < 30; ++round) {
        SwitchData wanted = random.data();
        wanted.settings.wwn = 0;        // that of no switch
        std::map<uint32_t, Port> ports; // those of this one
        auto drawn = wanted.ports.begin();
        for (const auto &[if_index, port] : data().ports) {
            ports[if_index] = drawn++->second;
        }
        wanted.ports = ports;
        const std::vector<Role> drawn_roles = random.roles();
        import(format_configuration(wanted, drawn_roles));
        wanted.settings.wwn = data().settings.wwn;
        EXPECT_EQ(exported(), format_configuration(wanted, drawn_roles));
        events();
    }
    const SwitchData present = data();
    EXPECT_EQ(restarted(), present);
}

TEST_F(Transfer, ImportOfNothingIsASwitchWithItsPortsAndNoMore) {
    import("{}");
    EXPECT_EQ(data().vsans.size(), 1u);
    EXPECT_EQ(data().ports.size(), 6u);
    for (const auto &[if_index, port] : data().ports) {
        EXPECT_EQ(port.vsan, 1u);
        EXPECT_FALSE(port.link_up);
    }
    EXPECT_TRUE(target_->roles.list().empty());
}

TEST_F(Transfer, ImportOfAnotherSwitchIsRefused) {
    EXPECT_TRUE(contains(refused_import(R"({"portCount": 6})")["error"], "no port 101"));
    EXPECT_TRUE(contains(refused_import(R"({"ports": []})")["error"], "no port 101"));
    std::string text = exported();
    text.insert(text.find("\"ports\": [") + 10, R"({"ifIndex": 107},)");
    EXPECT_TRUE(contains(refused_import(text)["error"], "the switch has no port 107"));
    const std::string wwn = refused_import(R"({"wwn": "10:00:00:00:00:00:00:07"})")["error"];
    EXPECT_TRUE(contains(wwn, "10:00:00:00:00:00:00:07") && contains(wwn, "switch.json")) << wwn;
    EXPECT_TRUE(contains(refused_import("{")["error"], "switch.json"));
    EXPECT_EQ(refused("import", {{"upload", 7}})["status"], STATUS_NO_SUCH_PARCEL);
}

TEST_F(Transfer, ImportUnderAnOpenSessionIsRefused) {
    ASSERT_EQ(tdx_enable(*target_, operator_, true), STATUS_SUCCESS);
    ASSERT_EQ(set_switch_timer(*target_, operator_, Timer::d_s_tov, 6000, false), STATUS_SUCCESS);
    const Json reply = refused_import("{}");
    EXPECT_EQ(reply["status"], STATUS_TDX_SESSION_OPEN);
    EXPECT_TRUE(contains(reply["error"], "\"admin\"")) << reply;
}

TEST_F(Transfer, ImportThatCannotBeWrittenChangesNothing) {
    const std::string before = exported();
    const uint32_t number = upload(R"({"vsans": [{"id": 77}]})");
    {
        const FullDisk full;
        refused("import", {{"upload", number}});
    }
    EXPECT_EQ(exported(), before);
    EXPECT_EQ(file_content(folder_ / "roles.json"), roles);
    restarted();
    EXPECT_EQ(exported(), before);
}

TEST_F(Transfer, DryRunOfAnImportTellsAndChangesNothing) {
    const std::string before = exported();
    const Json changes = import("{}", true)["changes"];
    EXPECT_GT(changes.size(), 8u);
    EXPECT_EQ(exported(), before);
    EXPECT_EQ(events(), Lines());
    const Json removed = changes.back();
    EXPECT_EQ(removed["object"], "role backup");
    EXPECT_TRUE(removed["value"].is_null());
}

TEST_F(Transfer, DryRunTellsNameAndTimersOfANewVsanWhichNoEventDoes) {
    std::string text = exported();
    text.insert(text.find("\"vsans\": [") + 10, R"({"id": 77, "name": "tests", "timers": {"edtov": 3000}}, )");
    const Json changes = import(text, true)["changes"];
    const auto told = [&](const Json &row) { return std::ranges::find(changes, row) != changes.end(); };
    EXPECT_TRUE(told({{"object", "VSAN 77"}, {"setting", "name"}, {"former", "VSAN0077"}, {"value", "tests"}}));
    EXPECT_TRUE(
        told({{"object", "VSAN 77"}, {"setting", "timers"}, {"former", Json::object()}, {"value", {{"edtov", 3000}}}}));
}

TEST_F(Transfer, ImportOfRolesThatNoFileCanHoldIsRefused) {
    Json many = Json::array();
    for (int number = 0; number < 60000; ++number) {
        many.push_back({{"name", fmt::format("r{}", number)}});
    }
    EXPECT_NE(refused_import(Json{{"roles", many}}.dump())["error"].get<std::string>().find("4194304"),
              std::string::npos);
    for (const char *name : {"", "a\nb", "\x1b[2J"}) {
        refused_import(Json{{"roles", {{{"name", name}}}}}.dump());
    }
    for (const char *wwn : {"10:00:02:5c:b5:ae:8c:a5:", "100002"}) {
        refused_import(Json{{"wwn", wwn}}.dump());
    }
}

TEST_F(Transfer, OrderOfRolesIsPartOfThem) {
    import(R"({"roles": [{"name": "a"}, {"name": "b"}]})");
    const std::string other = R"({"roles": [{"name": "b"}, {"name": "a"}]})";
    EXPECT_EQ(
        import(other, true)["changes"],
        Json::parse(R"([{"object": "the roles", "setting": "order", "former": ["a", "b"], "value": ["b", "a"]}])"));
    EXPECT_EQ(import(other)["changed"], true);
}

TEST_F(Transfer, ForcedTimersAreToldAsSuch) {
    ASSERT_EQ(set_vsan_timer(*target_, operator_, 10, Timer::e_d_tov, 50000, true), STATUS_SUCCESS);
    const std::string text = exported();
    EXPECT_TRUE(contains(text, "\"forceTimers\": true"));
    EXPECT_EQ(import(text)["changed"], false);
}

TEST_F(Transfer, ExportIsThatOfOneMomentWhateverChangesMeanwhile) {
    const std::string before = exported();
    const Json begun = look("export");
    command("vsan.delete", {{"id", 10}});
    EXPECT_EQ(download(begun), before);
    EXPECT_NE(exported(), before);
}

TEST_F(Transfer, NamelessVsanIsExportedAndImported) {
    command("vsan.set", {{"id", 10}, {"name", ""}});
    command("vsan.set", {{"id", 20}, {"name", ""}});
    const std::string text = exported();
    command("vsan.set", {{"id", 10}, {"name", "x"}});
    import(text);
    EXPECT_EQ(exported(), text);
}

// The database that a backup holds.
class Backup : public Transfer {
  protected:
    Json continued(uint32_t number) { return look("backup.continue", {{"backup", number}}); }

    std::string finished(uint32_t number, int *steps = nullptr) {
        Json reply;
        do {
            reply = continued(number);
            *(steps ? steps : &steps_) += 1;
        } while (!reply["done"].get<bool>());
        return download(reply);
    }

    SwitchData opened(const std::string &content) {
        const TemporaryFolder folder;
        write_file(folder / "switch.db", content);
        Store store(folder.path());
        return store.open();
    }

    int steps_ = 0;
};

TEST_F(Backup, IsADatabaseThatASwitchStartsFrom) {
    command("vsan.create", {{"id", 77}, {"name", "in_the_log"}});
    EXPECT_EQ(opened(finished(look("backup.begin")["backup"])), data());
}

TEST_F(Backup, HasWhatWasChangedWhileItWasMadeInSteps) {
    for (uint32_t id = 100; id < 400; ++id) {
        Vsan vsan = new_vsan(id);
        vsan.rest.assign(VSAN_REST_SIZE, 1);
        ASSERT_EQ(change_vsan(*target_, operator_, id, vsan, true), STATUS_SUCCESS);
    }
    const uint32_t number = look("backup.begin")["backup"];
    EXPECT_EQ(continued(number)["done"], false);
    command("vsan.set", {{"id", 100}, {"name", "early"}});
    command("vsan.set", {{"id", 399}, {"name", "late"}});
    command("vsan.delete", {{"id", 101}});
    int steps = 0;
    EXPECT_EQ(opened(finished(number, &steps)), data());
    EXPECT_GT(steps, 1);
}

TEST_F(Backup, OneTooManyIsGivenUpAndSaysSo) {
    const uint32_t first = look("backup.begin")["backup"];
    uint32_t last = first;
    for (size_t count = 0; count < Store::max_copies; ++count) {
        last = look("backup.begin")["backup"];
    }
    EXPECT_EQ(ask(MTS_OP_SWITCH_COMMAND, MTS_KIND_GET,
                  text_bytes(Json{{"command", "backup.continue"}, {"backup", first}}.dump())),
              STATUS_NO_SUCH_PARCEL);
    EXPECT_EQ(opened(finished(last)), data());
    EXPECT_EQ(ask(MTS_OP_SWITCH_COMMAND, MTS_KIND_GET,
                  text_bytes(Json{{"command", "backup.continue"}, {"backup", last}}.dump())),
              STATUS_NO_SUCH_PARCEL)
        << "it is complete";
}

TEST_F(Backup, UnfinishedOneIsNoHindranceAtTheEnd) {
    look("backup.begin");
    const SwitchData before = data();
    EXPECT_EQ(restarted(), before);
}

TEST_F(Backup, OfADatabaseThatWasReplacedIsRefused) {
    write_file(folder_ / "switch.db", "something else");
    EXPECT_NE(ask(MTS_OP_SWITCH_COMMAND, MTS_KIND_GET, text_bytes(R"({"command": "backup.begin"})")), STATUS_SUCCESS);
}

} // namespace
