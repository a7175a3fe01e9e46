// SPDX-License-Identifier: Apache-2.0
#include "oryx_agent.h"

namespace {

Oid row(const Oid &column, oid index) {
    Oid name = column;
    name.push_back(index);
    return name;
}

class RowGuardTest : public OryxTest {
  protected:
    RowGuardTest() {
        objects.on_write = [this](int action, const oid *name, size_t length) {
            writes.emplace_back(action, Oid(name, name + length));
            return write_status;
        };
    }

    // Makes a read of row `from` answer with row `to`.
    void answer_with_other_row(oid from, oid to) {
        objects.on_read = [from, to](oid *name, size_t *length, int) {
            if (name[*length - 1] == from) {
                name[*length - 1] = to;
            }
        };
    }

    FakeObjects objects;
    int write_status = SNMP_ERR_NOERROR;
    std::vector<std::pair<int, Oid>> writes;
};

TEST_F(RowGuardTest, ARowThatStaysIsWritten) {
    Pdu pdu = Pdu::v2c("private");
    pdu.add(row(NAME_COLUMN, 10));
    pdu.call(MODE_SET_RESERVE1);
    EXPECT_EQ(pdu.status(0), SNMP_ERR_NOERROR);
    ASSERT_EQ(writes.size(), 1u);
    EXPECT_EQ(writes[0].second, row(NAME_COLUMN, 10));
}

TEST_F(RowGuardTest, ARowThatTheReadMovedFailsWithInconsistentName) {
    answer_with_other_row(10, 11);
    Pdu pdu = Pdu::v2c("private");
    pdu.add(row(NAME_COLUMN, 10));
    pdu.call(MODE_SET_RESERVE1);
    EXPECT_EQ(pdu.status(0), SNMP_ERR_INCONSISTENTNAME);
    EXPECT_EQ(pdu.name(0), row(NAME_COLUMN, 10));
}

TEST_F(RowGuardTest, ANameThatGrewIsRestored) {
    objects.on_read = [](oid *name, size_t *length, int) { name[(*length)++] = 5; };
    Pdu pdu = Pdu::v2c("private");
    pdu.add(row(NAME_COLUMN, 10));
    pdu.call(MODE_SET_RESERVE1);
    EXPECT_EQ(pdu.status(0), SNMP_ERR_INCONSISTENTNAME);
    EXPECT_EQ(pdu.name(0), row(NAME_COLUMN, 10));
}

TEST_F(RowGuardTest, OnlyTheMovedRowOfAPduFails) {
    answer_with_other_row(11, 12);
    Pdu pdu = Pdu::v2c("private");
    for (oid index : {10u, 11u, 13u}) {
        pdu.add(row(NAME_COLUMN, index));
    }
    pdu.call(MODE_SET_RESERVE1);
    EXPECT_EQ(pdu.status(0), SNMP_ERR_NOERROR);
    EXPECT_EQ(pdu.status(1), SNMP_ERR_INCONSISTENTNAME);
    EXPECT_EQ(pdu.status(2), SNMP_ERR_NOERROR);
    EXPECT_EQ(pdu.name(1), row(NAME_COLUMN, 11));
}

TEST_F(RowGuardTest, TheMoveOutranksWhatTheOtherRowSays) {
    answer_with_other_row(10, 11);
    write_status = SNMP_ERR_WRONGVALUE;
    Pdu pdu = Pdu::v2c("private");
    pdu.add(row(NAME_COLUMN, 10));
    pdu.call(MODE_SET_RESERVE1);
    EXPECT_EQ(pdu.status(0), SNMP_ERR_INCONSISTENTNAME);
}

TEST_F(RowGuardTest, WhatWasPutAsideForTheOtherRowIsReleasedUnderItsName) {
    answer_with_other_row(10, 11);
    Pdu pdu = Pdu::v2c("private");
    for (oid index : {10u, 13u}) {
        pdu.add(row(NAME_COLUMN, index));
    }
    pdu.call(MODE_SET_RESERVE1);
    const std::vector<std::pair<int, Oid>> expected = {
        {MODE_SET_RESERVE1, row(NAME_COLUMN, 11)},
        {MODE_SET_RESERVE1, row(NAME_COLUMN, 13)},
        {MODE_SET_FREE, row(NAME_COLUMN, 11)},
    };
    EXPECT_EQ(writes, expected);
    EXPECT_EQ(pdu.status(1), SNMP_ERR_NOERROR);
}

TEST_F(RowGuardTest, AnOrdinaryRefusalIsLeftAlone) {
    write_status = SNMP_ERR_WRONGVALUE;
    Pdu pdu = Pdu::v2c("private");
    pdu.add(row(NAME_COLUMN, 10));
    pdu.call(MODE_SET_RESERVE1);
    EXPECT_EQ(pdu.status(0), SNMP_ERR_WRONGVALUE);
}

TEST_F(RowGuardTest, AGetNextMayMove) {
    answer_with_other_row(10, 11);
    Pdu pdu = Pdu::v2c("private");
    pdu.add(row(NAME_COLUMN, 10));
    pdu.call(MODE_GETNEXT);
    EXPECT_EQ(pdu.status(0), SNMP_ERR_NOERROR);
    EXPECT_EQ(pdu.name(0), row(NAME_COLUMN, 11));
}

} // namespace
