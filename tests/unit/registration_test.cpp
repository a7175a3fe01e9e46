// SPDX-License-Identifier: Apache-2.0
// The registration table, row by row.

#include "module_test.h"

namespace {

struct expected_row {
    uint8_t magic;
    uint8_t type;
    uint16_t access;
    FindVarMethod *handler;
    oid_name suffix;
};

constexpr uint8_t INTEGER = 0x02;
constexpr uint8_t OCTETS = 0x04;
constexpr uint8_t UNSIGNED = 0x42;
constexpr uint8_t TICKS = 0x43;
constexpr uint16_t RO = 1;
constexpr uint16_t RW = 2;

const std::vector<expected_row> expected_rows = {
    {1, INTEGER, RO, get_vsan_mib, {1, 1, 1}},
    {2, TICKS, RO, get_vsan_mib, {1, 1, 2}},
    {3, OCTETS, RW, get_vsanEntry, {1, 1, 3, 1, 2}},
    {4, INTEGER, RO, get_vsanEntry, {1, 1, 3, 1, 3}},
    {5, INTEGER, RW, get_vsanEntry, {1, 1, 3, 1, 4}},
    {6, UNSIGNED, RO, get_vsanEntry, {1, 1, 3, 1, 5}},
    {8, INTEGER, RW, get_vsanEntry, {1, 1, 3, 1, 6}},
    {10, INTEGER, RW, get_vsanEntry, {1, 1, 3, 1, 8}},
    {11, INTEGER, RW, get_vsanEntry, {1, 1, 3, 1, 9}},
    {12, INTEGER, RW, get_vsanEntry, {1, 1, 3, 1, 10}},
    {13, INTEGER, RW, get_vsanEntry, {1, 1, 3, 1, 11}},
    {14, UNSIGNED, RW, get_vsanEntry, {1, 1, 3, 1, 12}},
    {15, INTEGER, RO, get_vsan_mib, {1, 2, 4}},
    {16, INTEGER, RW, get_vsanIfEntry, {1, 2, 5, 1, 1}},
    {17, INTEGER, RO, get_vsanIfEntry, {1, 2, 5, 1, 2}},
    {30, INTEGER, RO, get_vsanMembershipSummaryEntry, {1, 2, 8, 1, 1}},
    {31, UNSIGNED, RW, get_vsan_mib, {1, 4, 1}},
    {32, UNSIGNED, RW, get_vsan_mib, {1, 4, 2}},
    {33, UNSIGNED, RO, get_vsan_mib, {1, 4, 3}},
    {34, UNSIGNED, RW, get_vsan_mib, {1, 4, 4}},
    {35, UNSIGNED, RW, get_vsan_mib, {1, 4, 5}},
    {36, UNSIGNED, RW, get_vsan_mib, {1, 4, 6}},
    {37, INTEGER, RW, get_vsan_mib, {1, 4, 7}},
    {38, OCTETS, RW, get_vsanFcTimerEntry, {1, 4, 8, 1, 1}},
    {39, UNSIGNED, RW, get_vsanFcTimerEntry, {1, 4, 8, 1, 2}},
    {40, UNSIGNED, RW, get_vsanFcTimerEntry, {1, 4, 8, 1, 3}},
    {41, UNSIGNED, RW, get_vsanFcTimerEntry, {1, 4, 8, 1, 4}},
    {42, UNSIGNED, RO, get_vsanFcTimerEntry, {1, 4, 8, 1, 5}},
};

using Registration = ModuleTest;

TEST_F(Registration, IsOneCallWithTheModulesNameRootAndRowWidth) {
    ASSERT_EQ(agent.registrations.size(), 1u);
    const registration &made = agent.registrations.front();
    EXPECT_EQ(made.descriptor, "vsan_mib");
    EXPECT_EQ(made.width, sizeof(variable7));
    EXPECT_EQ(made.rows.size(), 28u);
    EXPECT_EQ(made.root, (oid_name{1, 3, 6, 1, 4, 1, EXPECTED_VENDOR_PEN, 9, 282}));
}

TEST_F(Registration, RowsAreTheTwentyEightObjectsInOrder) {
    const std::vector<variable7> &rows = agent.registrations.at(0).rows;
    ASSERT_EQ(rows.size(), expected_rows.size());
    for (size_t i = 0; i < rows.size(); ++i) {
        const expected_row &wanted = expected_rows[i];
        SCOPED_TRACE("row " + std::to_string(i) + ", magic " + std::to_string(wanted.magic));
        EXPECT_EQ(rows[i].magic, wanted.magic);
        EXPECT_EQ(rows[i].type, wanted.type);
        EXPECT_EQ(rows[i].acl, wanted.access);
        EXPECT_EQ(rows[i].findVar, wanted.handler);
        EXPECT_EQ(oid_name(rows[i].name, rows[i].name + rows[i].namelen), wanted.suffix);
    }
}

TEST_F(Registration, RowsAscendBySuffixAsAWalkNeeds) {
    const std::vector<variable7> &rows = agent.registrations.at(0).rows;
    for (size_t i = 1; i < rows.size(); ++i) {
        EXPECT_LT(snmp_oid_compare(rows[i - 1].name, rows[i - 1].namelen, rows[i].name, rows[i].namelen), 0)
            << "row " << i;
    }
}

TEST_F(Registration, TheIndexColumnAndColumnSevenAreNotRegistered) {
    for (const variable7 &row : agent.registrations.at(0).rows) {
        const oid_name suffix(row.name, row.name + row.namelen);
        EXPECT_NE(suffix, (oid_name{1, 1, 3, 1, 1}));
        EXPECT_NE(suffix, (oid_name{1, 1, 3, 1, 7}));
        EXPECT_NE(row.magic, 7);
        EXPECT_NE(row.magic, 9);
    }
}

TEST_F(Registration, TheTypesAreTheAgentsOwn) {
    EXPECT_EQ(INTEGER, ASN_INTEGER);
    EXPECT_EQ(OCTETS, ASN_OCTET_STR);
    EXPECT_EQ(UNSIGNED, ASN_UNSIGNED);
    EXPECT_EQ(TICKS, ASN_TIMETICKS);
    EXPECT_EQ(RO, NETSNMP_OLDAPI_RONLY);
    EXPECT_EQ(RW, NETSNMP_OLDAPI_RWRITE);
}

} // namespace
