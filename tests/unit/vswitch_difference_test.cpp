// SPDX-License-Identifier: Apache-2.0
// What leads from one configuration to another: applied to the one, in memory and on disk, it makes the other.
#include <random>

#include "model/difference.h"
#include "model/store.h"
#include "vswitch_random_switch.h"
#include "vswitch_test_support.h"

using namespace vswitch;
using namespace vswitch_test;

namespace {

SwitchData data_of(const std::string &text) {
    return parse_configuration(text, "test");
}

const SwitchData before = data_of(R"({
    "vsans": [{"id": 10, "name": "a"}, {"id": 20, "name": "b"}, {"id": 30, "name": "c"}],
    "ports": [{"ifIndex": 1, "vsan": 10}, {"ifIndex": 2, "vsan": 20}, {"ifIndex": 3}]})");

TEST(Difference, OfTheSameIsEmpty) {
    EXPECT_TRUE(is_empty(difference(before, before)));
}

TEST(Difference, HasWholeRowsOfWhatIsNewOrOtherwiseAndNoOthers) {
    SwitchData after = before;
    after.vsans.erase(10);
    after.vsans.at(20).mtu = 99;
    after.vsans[40].name = "d";
    after.ports.at(1).vsan = 40;
    const Change change = difference(before, after);
    EXPECT_FALSE(is_empty(change));
    EXPECT_EQ(change.deleted_vsans, std::set<uint32_t>{10});
    EXPECT_EQ(change.vsans, (std::map<uint32_t, Vsan>{{20, after.vsans.at(20)}, {40, after.vsans.at(40)}}));
    EXPECT_EQ(change.ports, (std::map<uint32_t, Port>{{1, after.ports.at(1)}}));
    EXPECT_FALSE(change.settings);
}

TEST(Difference, LeavesMomentsOfWhatWentToAndFro) {
    SwitchData after = before;
    after.settings.last_change = {1000, 0};
    after.ports.at(1).last_change = {1000, 0};
    EXPECT_TRUE(is_empty(difference(before, after)));
    after.vsans.at(10).mtu = 99;
    after.ports.at(1).link_up = false;
    const Change change = difference(before, after);
    ASSERT_TRUE(change.settings);
    EXPECT_EQ(change.settings->last_change.seconds, 1000u);
    EXPECT_EQ(change.ports.at(1).last_change.seconds, 1000u);
}

PartialTimers timers_with(Timer timer, uint32_t value) {
    PartialTimers timers;
    timers[timer] = value;
    return timers;
}

TEST(Difference, OfSessionsAddsWhatIsPendingOrPutsAnotherInItsPlace) {
    SwitchData open = before;
    open.session = DistributionSession{"alice", {{10, timers_with(Timer::r_a_tov, 20000)}}};
    EXPECT_EQ(difference(before, open).session, Change::Session::opens);
    EXPECT_EQ(difference(open, before).session, Change::Session::ends);

    SwitchData more = open;
    more.session->pending[0] = timers_with(Timer::d_s_tov, 6000);
    EXPECT_EQ(difference(open, more).session, Change::Session::stays);
    EXPECT_EQ(difference(open, more).pending.size(), 1u);

    SwitchData other = open;
    other.session->user = "bob";
    EXPECT_EQ(difference(open, other).session, Change::Session::restarts);
    EXPECT_EQ(difference(open, other).pending.size(), 1u);

    SwitchData less = open;
    less.session->pending.clear();
    EXPECT_EQ(difference(open, less).session, Change::Session::restarts);

    SwitchData without_vsan = less;
    without_vsan.vsans.erase(10);
    without_vsan.ports.at(1).vsan = 1;
    EXPECT_EQ(difference(open, without_vsan).session, Change::Session::stays) << "its values go with the VSAN";
}

// Brings a change into the database and the model of `from`, and returns what both hold then.
void expect_to_become(const SwitchData &from, const SwitchData &to) {
    const TemporaryFolder folder;
    const Change change = difference(from, to);
    SwitchModel model(from);
    {
        Store store(folder.path());
        store.create(from);
        store.open();
        ASSERT_TRUE(store.write(change, from));
    }
    model.apply(change);
    EXPECT_EQ(model.data(), to);
    const SwitchModel fresh(to);
    for (const auto &[id, vsan] : to.vsans) {
        EXPECT_EQ(model.ports_of(id), fresh.ports_of(id));
        EXPECT_EQ(model.port_count_of(id).all, fresh.port_count_of(id).all);
        EXPECT_EQ(model.port_count_of(id).up, fresh.port_count_of(id).up);
        if (!vsan.name.empty()) {
            EXPECT_EQ(model.vsan_named(vsan.name), id);
        }
    }
    for (const auto &[id, vsan] : from.vsans) {
        EXPECT_EQ(model.vsan_named(vsan.name), fresh.vsan_named(vsan.name)) << vsan.name;
    }
    Store store(folder.path());
    EXPECT_EQ(store.open(), to);
}

TEST(Difference, LetsNamesPassFromOneVsanToAnother) {
    SwitchData after = before;
    std::swap(after.vsans.at(10).name, after.vsans.at(20).name);
    expect_to_become(before, after);
    after = before; // in a circle
    after.vsans.at(10).name = "b";
    after.vsans.at(20).name = "c";
    after.vsans.at(30).name = "a";
    expect_to_become(before, after);
    after = before; // from one that goes to one that comes, before and behind it
    after.vsans.erase(20);
    after.ports.at(2).vsan = 1;
    after.vsans[15].name = "b";
    expect_to_become(before, after);
    after.vsans.erase(15);
    after.vsans[25].name = "b";
    expect_to_become(before, after);
    after = before; // given up, and taken
    after.vsans.at(10).name = "";
    after.vsans.at(30).name = "a";
    expect_to_become(before, after);
}

TEST(Difference, MakesAnySwitchAnyOther) {
    RandomSwitches random(20);
    for (int round = 0; round < 40; ++round) {
        SwitchData from = random.data(), to = random.data();
        to.settings.wwn = from.settings.wwn;
        from.session = random.session(from);
        to.session = random.session(to);
        SCOPED_TRACE(round);
        expect_to_become(from, to);
    }
}

} // namespace
