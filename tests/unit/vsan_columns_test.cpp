// SPDX-License-Identifier: Apache-2.0
// The values of the VSAN table's columns.

#include "module_test.h"

#include <cerrno>

namespace {

class VsanColumns : public ModuleTest {
  protected:
    // A VSAN whose fields all differ.
    static void add_distinct_vsan() { platform.vsans[10] = {10, 21, 22, 23, 24, 25, 26, 27, 28, "storage_prod", 29}; }
};

TEST_F(VsanColumns, EachReadsItsOwnField) {
    add_distinct_vsan();
    struct {
        uint8_t magic;
        int64_t value;
    } constexpr columns[] = {{4, 21}, {5, 22}, {6, 23}, {8, 26}, {10, 28}, {11, 1}, {12, 25}, {13, 24}, {14, 29}};
    for (const auto &column : columns) {
        const read_answer answer = get(column.magic, {10});
        EXPECT_EQ(answer.length, 4u) << int{column.magic};
        EXPECT_EQ(answer.number(), column.value) << int{column.magic};
        EXPECT_EQ(get_next(column.magic, {9}).number(), column.value) << int{column.magic};
    }
}

TEST_F(VsanColumns, NameIsItsTextWithoutTerminator) {
    for (const char *name : {"storage_prod", "x", "", "a name with blanks"}) {
        platform.next_pdu();
        platform.add_vsan(10);
        platform.vsans[10].name = name;
        const read_answer answer = get(3, {10});
        EXPECT_EQ(answer.text(), name);
        EXPECT_EQ(answer.length, std::string(name).size());
    }
}

TEST_F(VsanColumns, NameEndsAtTheFirstNul) {
    platform.add_vsan(10);
    platform.vsans[10].name = std::string("ab\0cd", 5);
    EXPECT_EQ(get(3, {10}).text(), "ab");
}

TEST_F(VsanColumns, NumbersAreNotScaledOrBounded) {
    platform.add_vsan(10);
    platform.vsans[10].mtu = 0xFFFFFFFF;
    platform.vsans[10].drop_latency = 0x80000000;
    platform.vsans[10].admin = 0;
    platform.vsans[10].oper = 99;
    EXPECT_EQ(get(6, {10}).number(), -1);
    EXPECT_EQ(get(14, {10}).number(), INT32_MIN);
    EXPECT_EQ(get(5, {10}).number(), 0);
    EXPECT_EQ(get(10, {10}).number(), 99);
}

TEST_F(VsanColumns, RowStatusIsActiveForEveryRow) {
    for (const uint32_t own : {0u, 1u, 2u, 6u, 0xFFFFFFFFu}) {
        platform.next_pdu();
        platform.add_vsan(10);
        platform.vsans[10].row_status = own;
        vsanRowStatus_active = 77;
        const read_answer answer = get(11, {10});
        EXPECT_EQ(answer.number(), 1);
        EXPECT_EQ(vsanRowStatus_active, 1);
    }
}

TEST_F(VsanColumns, InteroperabilityHundredReadsZeroAndOthersAsTheyAre) {
    struct {
        uint32_t stored;
        int64_t read;
    } constexpr modes[] = {{100, 0}, {0, 0}, {1, 1}, {4, 4}, {99, 99}, {101, 101}, {0xFFFFFF9C, -100}};
    for (const auto &mode : modes) {
        platform.next_pdu();
        platform.add_vsan(10);
        platform.vsans[10].interop = mode.stored;
        EXPECT_EQ(get(12, {10}).number(), mode.read) << mode.stored;
        EXPECT_EQ(get_next(12, {9}).number(), mode.read) << mode.stored;
    }
}

TEST_F(VsanColumns, ValuesStayInTheModulesRow) {
    add_distinct_vsan();
    const auto *row = reinterpret_cast<const u_char *>(&vsanEntry_current);
    EXPECT_EQ(get(3, {10}).value, row + 36);
    EXPECT_EQ(get(4, {10}).value, row + 4);
    EXPECT_EQ(get(14, {10}).value, row + 72);
    EXPECT_EQ(get(11, {10}).value, reinterpret_cast<const u_char *>(&vsanRowStatus_active));
}

TEST_F(VsanColumns, AnyOtherMagicSetsTheDetailAndAnswersNull) {
    platform.add_vsan(10);
    for (const uint8_t magic : bytes{0, 1, 2, 7, 9, 15, 16, 38, 255}) {
        SCOPED_TRACE(int{magic});
        agent.details.clear();
        registered_object object(3);
        object.var.magic = magic;
        EXPECT_FALSE(object.get(object.instance({10})).present);
        EXPECT_EQ(agent.details, std::vector<std::string>{"BAD THING HAPPENED"});
        agent.details.clear();
        EXPECT_FALSE(object.get_next(object.instance({9})).present);
        EXPECT_EQ(agent.details, std::vector<std::string>{"BAD THING HAPPENED"});
    }
}

TEST_F(VsanColumns, AnyOtherMagicWithoutARowSetsNoDetail) {
    registered_object object(3);
    object.var.magic = 7;
    EXPECT_FALSE(object.get(object.instance({10})).present);
    EXPECT_TRUE(agent.details.empty());
}

TEST_F(VsanColumns, OperationalStateHasNoWriteMethod) {
    platform.add_vsan(10);
    EXPECT_EQ(get(10, {10}).write_method, nullptr);
    EXPECT_EQ(get(10, {99}).write_method, nullptr);
}

TEST_F(VsanColumns, EveryReadTracesItsMagicOnEntryAndAtTheValue) {
    platform.add_vsan(10);
    for (const uint8_t magic : bytes{3, 4, 5, 6, 8, 10, 11, 12, 13, 14}) {
        SCOPED_TRACE(int{magic});
        platform.history.clear();
        platform.debug.clear();
        get(magic, {10});
        const std::string number = std::to_string(magic);
        ASSERT_FALSE(platform.history.empty());
        EXPECT_TRUE(is_trace(platform.history[0].text, "get_vsanEntry(#) Magic:" + number + "  \n"));
        EXPECT_TRACED(101, "get_vsanEntry(#) Request type:" + number + " \n");
    }
}

TEST_F(VsanColumns, AReadWithoutARowTracesNoRequestType) {
    get(3, {10});
    EXPECT_TRACED(101, "get_vsanEntry(#) Magic:3  \n");
    EXPECT_NOT_TRACED(101, "get_vsanEntry(#) Request type:3 \n");
}

TEST_F(VsanColumns, FourColumnsTraceTheirOwnLine) {
    platform.add_vsan(10);
    platform.vsans[10].interop = 3;
    const std::pair<uint8_t, std::string> columns[] = {
        {4, "get_vsanEntry(#) VSANMEDIATYPE \n"},
        {5, "get_vsanEntry(#) VSANADMINSTATE \n"},
        {10, "get_vsanEntry(#) VSANOPERSTATE  \n"},
        {12, "get_vsanEntry(#) *var_len:4 interopmode:3 \n"},
    };
    for (const auto &[magic, text] : columns) {
        EXPECT_NOT_TRACED(101, text);
        get(magic, {10});
        EXPECT_TRACED(101, text);
    }
}

TEST_F(VsanColumns, WalkOfATableVisitsEveryRowOfEveryColumn) {
    platform.add_vsans({1, 2, 20, 30, 4094, 4095});
    for (const uint8_t magic : bytes{3, 4, 5, 6, 8, 10, 11, 12, 13, 14}) {
        EXPECT_EQ(walk_of_indexes(magic), (std::vector<oid>{1, 2, 20, 30, 4094, 4095})) << int{magic};
    }
}

} // namespace
