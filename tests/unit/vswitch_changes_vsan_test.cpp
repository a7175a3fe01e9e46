// SPDX-License-Identifier: Apache-2.0
// Creating, changing and deleting VSANs: what is accepted, what is refused and why, and
// that the disk has what was answered.
#include <chrono>

#include "vswitch_changes_fixture.h"

using namespace vswitch;
using namespace vswitch_test;

namespace {

// Offsets in the VSAN record.
constexpr size_t media = 4, admin_state = 8, mtu = 12, inorder_delivery = 16, interop = 20, load_balancing = 24,
                 row_status = 28, oper_state = 32, drop_latency = 72;

TEST_F(ChangeTest, SetOfAMissingVsanCreatesIt) {
    Buffer block = block_of(40);
    store_word(block, VSAN_RECORD_AT + inorder_delivery, 0);
    store_word(block, VSAN_RECORD_AT + drop_latency, 0);
    ASSERT_EQ(set_vsan(block), STATUS_SUCCESS);
    Vsan expected;
    expected.name = "VSAN0040";
    EXPECT_EQ(vsan(40), expected) << "with the defaults where the record says nothing";
    EXPECT_EQ(restarted().vsans.at(40), expected);
}

TEST_F(ChangeTest, VsanNumbersBeginAt1AndEndAt4095) {
    for (const uint32_t id : {1u, 2u, 4094u, 4095u}) {
        EXPECT_EQ(set_vsan(block_of(id)), STATUS_SUCCESS) << id;
    }
    for (const uint32_t id : {0u, 4096u, 0x80000001u, 0xffffffffu}) {
        EXPECT_EQ(set_vsan(block_of(id)), STATUS_VSAN_OUT_OF_RANGE) << id;
        EXPECT_EQ(delete_vsan(id), STATUS_VSAN_OUT_OF_RANGE) << id;
    }
}

TEST_F(ChangeTest, RecordMaySayActiveOrCreateAndGo) {
    EXPECT_EQ(set_word(40, row_status, 4), STATUS_SUCCESS);
    EXPECT_EQ(set_word(10, row_status, 4), STATUS_SUCCESS) << "also when the VSAN is there";
    for (const uint32_t status : {0u, 2u, 3u, 5u, 6u, 0xffffffffu}) {
        EXPECT_EQ(set_word(10, row_status, status), STATUS_BAD_ROW_STATUS) << status;
    }
}

TEST_F(ChangeTest, EveryFieldIsChangedAndKept) {
    Buffer block = block_of(10);
    const std::pair<size_t, uint32_t> fields[] = {{admin_state, 2}, {mtu, 2048},         {inorder_delivery, 1},
                                                  {interop, 4},     {load_balancing, 1}, {drop_latency, 60000}};
    for (const auto &[offset, value] : fields) {
        store_word(block, VSAN_RECORD_AT + offset, value);
    }
    std::memcpy(&block[VSAN_RECORD_AT + 36], "x\0left over", 11);
    for (size_t at = 0; at < VSAN_REST_SIZE; ++at) {
        block[VSAN_RECORD_AT + 76 + at] = static_cast<uint8_t>(at * 3 + 1);
    }
    ASSERT_EQ(set_vsan(block), STATUS_SUCCESS);

    Buffer expected = block;
    store_word(expected, VSAN_RECORD_AT + oper_state, OPER_STATE_DOWN);
    std::memset(&expected[VSAN_RECORD_AT + 38], 0, 9);
    EXPECT_EQ(block_of(10), expected);
    restarted();
    EXPECT_EQ(block_of(10), expected) << "after a restart";
}

TEST_F(ChangeTest, EveryBoundIsAcceptedAndTheNextValueRefused) {
    struct Field {
        size_t offset;
        std::vector<uint32_t> good, bad;
        uint32_t refusal;
    };
    const Field fields[] = {
        {media, {1}, {0, 2, 0xffffffff}, STATUS_BAD_MEDIA},
        {admin_state, {2, 1}, {0, 3, 0xffffffff}, STATUS_BAD_STATE},
        {mtu, {1, 65535}, {0, 65536, 0xffffffff}, STATUS_BAD_MTU},
        {load_balancing, {1, 2}, {0, 3, 0xffffffff}, STATUS_BAD_LOAD_BALANCING},
        {interop, {1, 2, 3, 4, 100}, {0, 5, 99, 101, 0xffffffff}, STATUS_BAD_INTEROP},
        {inorder_delivery, {1, 2}, {3, 0xffffffff}, STATUS_BAD_INORDER_DELIVERY},
        {drop_latency, {1, 60000}, {60001, 0xffffffff}, STATUS_BAD_DROP_LATENCY},
    };
    for (const Field &field : fields) {
        for (const uint32_t value : field.good) {
            EXPECT_EQ(set_word(10, field.offset, value), STATUS_SUCCESS) << field.offset << " " << value;
            EXPECT_EQ(word(block_of(10), VSAN_RECORD_AT + field.offset), value) << field.offset;
        }
        const SwitchData before = data();
        for (const uint32_t value : field.bad) {
            EXPECT_EQ(set_word(10, field.offset, value), field.refusal) << field.offset << " " << value;
            EXPECT_EQ(set_word(41, field.offset, value), field.refusal) << "on creation, too: " << field.offset;
        }
        EXPECT_EQ(data(), before);
    }
}

TEST_F(ChangeTest, ZeroLeavesInorderDeliveryAndDropLatencyAsTheyAre) {
    ASSERT_EQ(set_word(10, inorder_delivery, 1), STATUS_SUCCESS);
    ASSERT_EQ(set_word(10, drop_latency, 700), STATUS_SUCCESS);
    EXPECT_EQ(set_word(10, inorder_delivery, 0), STATUS_SUCCESS);
    EXPECT_EQ(set_word(10, drop_latency, 0), STATUS_SUCCESS);
    EXPECT_EQ(vsan(10).inorder_delivery, TRUTH_TRUE);
    EXPECT_EQ(vsan(10).drop_latency, 700u);
}

TEST_F(ChangeTest, RecordOfZerosIsRefused) {
    const SwitchData before = data();
    EXPECT_EQ(set_vsan(vsan_block(10)), STATUS_BAD_ROW_STATUS);
    Buffer block = vsan_block(10);
    store_word(block, VSAN_RECORD_AT + row_status, 1);
    EXPECT_EQ(set_vsan(block), STATUS_BAD_MEDIA);
    EXPECT_EQ(data(), before);
}

TEST_F(ChangeTest, NameIsAtMost32PrintableCharacters) {
    EXPECT_EQ(set_name(10, std::string(32, 'n')), STATUS_SUCCESS);
    EXPECT_EQ(vsan(10).name, std::string(32, 'n'));
    EXPECT_EQ(set_name(10, "!~"), STATUS_SUCCESS);
    EXPECT_EQ(set_name(10, ""), STATUS_SUCCESS);
    EXPECT_EQ(vsan(10).name, "");
    EXPECT_EQ(set_name(20, ""), STATUS_SUCCESS) << "having no name is no conflict";
    EXPECT_EQ(restarted().vsans.at(20).name, "");
    for (const std::string &name : {std::string(33, 'n'), std::string(36, 'n'), std::string("a b"), std::string("a\tb"),
                                    std::string("a\x7f"), std::string("\xc3\xbc")}) {
        EXPECT_EQ(set_name(10, name), STATUS_BAD_NAME) << name;
    }
    EXPECT_EQ(vsan(10).name, "");
}

TEST_F(ChangeTest, NameIsUnique) {
    EXPECT_EQ(set_name(10, "test"), STATUS_NAME_CONFLICT);
    EXPECT_EQ(set_name(40, "test"), STATUS_NAME_CONFLICT);
    EXPECT_FALSE(target_->model.vsan(40));
    EXPECT_EQ(set_name(10, "prod"), STATUS_SUCCESS) << "its own";
    ASSERT_EQ(set_name(20, "other"), STATUS_SUCCESS);
    EXPECT_EQ(set_name(10, "test"), STATUS_SUCCESS) << "it is free now";
    ASSERT_EQ(delete_vsan(10), STATUS_SUCCESS);
    EXPECT_EQ(set_name(40, "test"), STATUS_SUCCESS) << "and again";
    restarted();
    EXPECT_EQ(set_name(20, "test"), STATUS_NAME_CONFLICT);
}

TEST_F(ChangeTest, ChangeWithoutTheRightToCreateNeedsTheVsan) {
    EXPECT_EQ(change_vsan(*target_, operator_, 40, new_vsan(40), false), STATUS_NO_SUCH_VSAN);
    EXPECT_EQ(change_vsan(*target_, operator_, 10, new_vsan(10), false), STATUS_SUCCESS);
    EXPECT_EQ(vsan(10).name, "VSAN0010");
}

TEST_F(ChangeTest, DeletedVsanSPortsAreInVsan1) {
    ASSERT_EQ(set_vsan_timer(*target_, operator_, 10, Timer::r_a_tov, 20000, false), STATUS_SUCCESS);
    ASSERT_EQ(delete_vsan(10), STATUS_SUCCESS);
    for (int round = 0; round < 2; ++round) {
        EXPECT_FALSE(data().vsans.contains(10));
        EXPECT_EQ(target_->model.ports_of(1), (std::vector<uint32_t>{101, 102, 106}));
        EXPECT_EQ(target_->model.ports_of(10), std::vector<uint32_t>{});
        EXPECT_EQ(word(block_of(1), VSAN_RECORD_AT + oper_state), OPER_STATE_UP);
        restarted();
    }
    ASSERT_EQ(set_vsan(block_of(10)), STATUS_SUCCESS);
    EXPECT_EQ(vsan(10).timers, PartialTimers()) << "its timers went with it";
    EXPECT_EQ(vsan(10).distributed_timers, PartialTimers());
}

TEST_F(ChangeTest, Vsan1AndMissingVsansCannotBeDeleted) {
    EXPECT_EQ(delete_vsan(1), STATUS_DEFAULT_VSAN);
    EXPECT_EQ(delete_vsan(11), STATUS_NO_SUCH_VSAN);
    ASSERT_EQ(delete_vsan(20), STATUS_SUCCESS);
    EXPECT_EQ(delete_vsan(20), STATUS_NO_SUCH_VSAN);
}

TEST_F(ChangeTest, TimeOfTheLastChangeIsNeverToComeAndNeverGoesBack) {
    ASSERT_EQ(set_name(10, "one"), STATUS_SUCCESS);
    const Timestamp noted = target_->last_change();
    EXPECT_EQ(noted, data().settings.last_change);
    EXPECT_LE(noted, target_->clock.now());

    // Started again after the machine's clock was set back by an hour.
    restarted();
    const Timestamp start{noted.seconds - 3600, 7};
    target_->clock = SwitchClock(start);
    EXPECT_EQ(target_->last_change(), start);
    EXPECT_EQ(target_->last_change(), start) << "and does not move by itself";
    ASSERT_EQ(set_name(10, "two"), STATUS_SUCCESS);
    const Timestamp changed = target_->last_change();
    EXPECT_GT(changed, start);
    EXPECT_LT(changed, noted);
    EXPECT_LE(changed, target_->clock.now());

    // Started again with the right time.
    restarted();
    EXPECT_EQ(target_->last_change(), changed);
}

TEST_F(ChangeTest, TimeOfTheLastChangeIsThatOfTheVsanTable) {
    const auto last_change = [&] {
        return std::pair(data().settings.last_change.seconds, data().settings.last_change.microseconds);
    };
    const auto now = [] {
        return static_cast<uint64_t>(
            std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
                .count());
    };
    const auto start = last_change();
    EXPECT_EQ(set_port(101, 20), STATUS_SUCCESS);
    EXPECT_EQ(set_vsan(block_of(10)), STATUS_SUCCESS);
    EXPECT_EQ(set_name(10, "test"), STATUS_NAME_CONFLICT);
    EXPECT_EQ(set_switch_timer(*target_, operator_, Timer::r_a_tov, 20000, false), STATUS_SUCCESS);
    EXPECT_EQ(last_change(), start) << "none of these changed the table";

    const uint64_t earliest = now();
    ASSERT_EQ(set_name(10, "other"), STATUS_SUCCESS);
    const auto changed = last_change();
    EXPECT_GE(changed.first, earliest);
    EXPECT_LE(changed.first, now());
    ASSERT_EQ(set_vsan(block_of(40)), STATUS_SUCCESS);
    const auto created = last_change();
    EXPECT_NE(created, changed);
    ASSERT_EQ(delete_vsan(40), STATUS_SUCCESS);
    const auto deleted = last_change();
    EXPECT_NE(deleted, created);
    restarted();
    EXPECT_EQ(last_change(), deleted);
}

TEST_F(ChangeTest, ChangeThatChangesNothingWritesNothing) {
    FullDisk disk;
    EXPECT_EQ(set_vsan(block_of(10)), STATUS_SUCCESS);
    EXPECT_EQ(set_port(101, 10), STATUS_SUCCESS);
    EXPECT_EQ(events(), Lines{});
}

TEST_F(ChangeTest, ChangeThatCannotBeWrittenIsRefusedAndLeavesNothingBehind) {
    const SwitchData before = data();
    {
        FullDisk disk;
        EXPECT_EQ(set_name(10, "other"), STATUS_STORE_FAILED);
        EXPECT_EQ(set_vsan(block_of(40)), STATUS_STORE_FAILED);
        EXPECT_EQ(delete_vsan(20), STATUS_STORE_FAILED);
        EXPECT_EQ(set_port(101, 20), STATUS_STORE_FAILED);
        EXPECT_EQ(data(), before);
        EXPECT_EQ(events(), Lines{}) << "nothing happened";
    }
    EXPECT_EQ(set_name(10, "test"), STATUS_NAME_CONFLICT) << "names, too, are as before";
    EXPECT_EQ(set_name(10, "other"), STATUS_SUCCESS) << "and once there is room again, the switch goes on";
    EXPECT_EQ(restarted().vsans.at(10).name, "other");
    EXPECT_TRUE(data().vsans.contains(20));
}

TEST_F(ChangeTest, RestrictedUserChangesOnlyTheVsansOfTheRole) {
    EXPECT_EQ(set_name(10, "hers", "alice"), STATUS_SUCCESS);
    EXPECT_EQ(set_vsan(block_of(40), "alice"), STATUS_SUCCESS) << "a VSAN of the role that does not exist yet";
    EXPECT_EQ(delete_vsan(40, "alice"), STATUS_SUCCESS);
    const SwitchData before = data();
    EXPECT_EQ(set_name(20, "hers", "alice"), STATUS_VSAN_RESTRICTED);
    EXPECT_EQ(set_vsan(block_of(41), "alice"), STATUS_VSAN_NOT_ALLOWED);
    EXPECT_EQ(delete_vsan(20, "alice"), STATUS_VSAN_NOT_ALLOWED);
    EXPECT_EQ(delete_vsan(41, "alice"), STATUS_VSAN_NOT_ALLOWED) << "and is not told whether it exists";
    EXPECT_EQ(delete_vsan(1, "alice"), STATUS_VSAN_NOT_ALLOWED);
    EXPECT_EQ(data(), before);
    EXPECT_EQ(set_name(20, "his", "bob"), STATUS_SUCCESS) << "bob has no role";
    EXPECT_EQ(vswitch::delete_vsan(*target_, {"alice", true}, 20), STATUS_SUCCESS) << "nor has an operator";
}

TEST_F(ChangeTest, ModelStaysConsistentOverManyChanges) {
    // A generator of our own, so that every machine makes the same changes.
    uint32_t state = 12345;
    const auto draw = [&](uint32_t bound) { return (state = state * 1664525 + 1013904223) / 65536 % bound; };
    target_->store = nullptr; // thousands of changes need no disk
    for (int step = 0; step < 3000; ++step) {
        const uint32_t id = 1 + draw(12);
        const uint32_t if_index = 100 + draw(8);
        switch (draw(5)) {
        case 0:
            set_vsan(block_of(id));
            break;
        case 1:
            delete_vsan(id);
            break;
        case 2:
            set_port(if_index, id);
            break;
        case 3:
            set_link(*target_, operator_, if_index, draw(2) != 0);
            break;
        default:
            set_name(id, "name" + std::to_string(draw(6)));
        }
        target_->events.deliver();
    }
    const SwitchModel rebuilt{SwitchData(data())};
    for (const auto &[id, row] : data().vsans) {
        EXPECT_EQ(target_->model.ports_of(id), rebuilt.ports_of(id)) << id;
        EXPECT_EQ(target_->model.is_up(id), rebuilt.is_up(id)) << id;
        EXPECT_EQ(target_->model.vsan_named(row.name), id);
    }
    for (int number = 0; number < 6; ++number) {
        const std::string name = "name" + std::to_string(number);
        EXPECT_EQ(!target_->model.vsan_named(name), !rebuilt.vsan_named(name)) << name;
    }
}

} // namespace
