// SPDX-License-Identifier: Apache-2.0
#include "oryx_agent.h"

#include <algorithm>

#include "netsnmpagent_oryx.h"

namespace {

Oid cell(const Oid &column, oid index) {
    Oid name = column;
    name.push_back(index);
    return name;
}

using Call = std::pair<int, Oid>; // the phase and the varbind's name

const Oid NAME_1 = cell(NAME_COLUMN, 1), NAME_2 = cell(NAME_COLUMN, 2), NAME_3 = cell(NAME_COLUMN, 3);
const Oid STATE_1 = cell(STATE_COLUMN, 1), STATE_2 = cell(STATE_COLUMN, 2);

std::vector<Call> all_in(int phase, const std::vector<Oid> &names) {
    std::vector<Call> calls;
    for (const Oid &name : names) {
        calls.emplace_back(phase, name);
    }
    return calls;
}

std::vector<Call> operator+(std::vector<Call> calls, const std::vector<Call> &more) {
    calls.insert(calls.end(), more.begin(), more.end());
    return calls;
}

// A writable object of another module, in the style with one handler for all.
class Neighbour {
  public:
    static inline const Oid NAME = {1, 3, 6, 1, 4, 1, 99999999, 7};

    Neighbour() {
        phases.clear();
        fails_in = -1;
        EXPECT_EQ(netsnmp_register_handler(netsnmp_create_handler_registration("neighbour", handle, NAME.data(),
                                                                               NAME.size(), HANDLER_CAN_RWRITE)),
                  MIB_REGISTERED_OK);
    }
    ~Neighbour() {
        Oid name = NAME;
        unregister_mib(name.data(), name.size());
    }

    static inline std::vector<int> phases;
    static inline int fails_in = -1;

  private:
    static int handle(netsnmp_mib_handler *, netsnmp_handler_registration *, netsnmp_agent_request_info *info,
                      netsnmp_request_info *requests) {
        phases.push_back(info->mode);
        if (info->mode == fails_in) {
            netsnmp_set_request_error(info, requests, SNMP_ERR_GENERR);
        }
        return SNMP_ERR_NOERROR;
    }
};

class FreePassTest : public OryxTest {
  protected:
    FreePassTest() {
        objects.on_write = [this](int action, const oid *name, size_t length) {
            calls.emplace_back(action, Oid(name, name + length));
            users.insert(users.end(), get_snmp_username(0) ? get_snmp_username(0) : "");
            return std::find(failures.begin(), failures.end(), calls.back()) == failures.end() ? SNMP_ERR_NOERROR
                                                                                               : SNMP_ERR_GENERR;
        };
    }

    // Has a write method fail in one phase of one varbind.
    void fail(int phase, const Oid &name) { failures.emplace_back(phase, name); }

    std::vector<Call> calls_in(int phase) const {
        std::vector<Call> found;
        std::copy_if(calls.begin(), calls.end(), std::back_inserter(found),
                     [phase](const Call &call) { return call.first == phase; });
        return found;
    }

    FakeObjects objects;
    std::vector<Call> calls, failures;
    std::vector<std::string> users;
};

TEST_F(FreePassTest, AfterAFailedActionEveryVarbindIsFreedOnceAfterTheLastUndo) {
    fail(MODE_SET_ACTION, STATE_1);
    Pdu pdu = Pdu::v2c("private");
    for (const Oid &name : {NAME_1, STATE_1, NAME_2, STATE_2}) {
        pdu.add(name);
    }
    EXPECT_EQ(pdu.set(), SNMP_ERR_GENERR);
    EXPECT_EQ(pdu.failed(), 1);
    const std::vector<Oid> by_column = {NAME_1, NAME_2, STATE_1, STATE_2};
    EXPECT_EQ(calls, all_in(MODE_SET_RESERVE1, by_column) + all_in(MODE_SET_RESERVE2, by_column) +
                         all_in(MODE_SET_ACTION, by_column) + all_in(MODE_SET_UNDO, by_column) +
                         all_in(MODE_SET_FREE, by_column));
}

TEST_F(FreePassTest, OneVarbindAloneIsFreed) {
    fail(MODE_SET_ACTION, NAME_1);
    Pdu pdu = Pdu::v2c("private");
    pdu.add(NAME_1);
    pdu.set();
    EXPECT_EQ(calls_in(MODE_SET_FREE), all_in(MODE_SET_FREE, {NAME_1}));
}

TEST_F(FreePassTest, FreeHappensOnBehalfOfTheSameUser) {
    fail(MODE_SET_ACTION, NAME_1);
    Pdu pdu = Pdu::v3("alice");
    pdu.add(NAME_1);
    pdu.set();
    EXPECT_EQ(users, std::vector<std::string>(5, "alice"));
}

TEST_F(FreePassTest, ASetThatSucceedsIsNotFreed) {
    Pdu pdu = Pdu::v2c("private");
    pdu.add(NAME_1);
    pdu.add(STATE_1);
    EXPECT_EQ(pdu.set(), SNMP_ERR_NOERROR);
    EXPECT_EQ(calls_in(MODE_SET_COMMIT).size(), 2u);
    EXPECT_TRUE(calls_in(MODE_SET_FREE).empty());
}

TEST_F(FreePassTest, AfterAFailedReservationTheAgentsOwnPassIsTheOnlyOne) {
    for (int phase : {MODE_SET_RESERVE1, MODE_SET_RESERVE2}) {
        calls.clear();
        failures.clear();
        fail(phase, NAME_2);
        Pdu pdu = Pdu::v2c("private");
        for (const Oid &name : {NAME_1, NAME_2, STATE_1}) {
            pdu.add(name);
        }
        EXPECT_EQ(pdu.set(), SNMP_ERR_GENERR);
        EXPECT_EQ(calls_in(MODE_SET_FREE), all_in(MODE_SET_FREE, {NAME_1, NAME_2, STATE_1}));
        EXPECT_TRUE(calls_in(MODE_SET_UNDO).empty());
    }
}

// COMMIT is where write methods release what they hold, and the agent goes through all
// varbinds whatever one of them says. It runs neither UNDO nor FREE then.
TEST_F(FreePassTest, AFailedCommitReachesEveryVarbindAndIsNotFollowedByAnything) {
    objects.on_write = [this, inner = objects.on_write](int action, const oid *name, size_t length) {
        inner(action, name, length);
        return action == MODE_SET_COMMIT && name[length - 1] == 1 ? SNMP_ERR_COMMITFAILED : SNMP_ERR_NOERROR;
    };
    Pdu pdu = Pdu::v2c("private");
    for (const Oid &name : {NAME_1, NAME_2, STATE_1}) {
        pdu.add(name);
    }
    EXPECT_EQ(pdu.set(), SNMP_ERR_COMMITFAILED);
    EXPECT_EQ(calls_in(MODE_SET_COMMIT), all_in(MODE_SET_COMMIT, {NAME_1, NAME_2, STATE_1}));
    EXPECT_EQ(calls.back().first, MODE_SET_COMMIT);
}

TEST_F(FreePassTest, AFailedUndoIsReportedAndEverythingIsFreedAllTheSame) {
    fail(MODE_SET_ACTION, NAME_1);
    objects.on_write = [this, inner = objects.on_write](int action, const oid *name, size_t length) {
        const int status = inner(action, name, length);
        return action == MODE_SET_UNDO ? SNMP_ERR_UNDOFAILED : status;
    };
    Pdu pdu = Pdu::v2c("private");
    pdu.add(NAME_1);
    pdu.add(STATE_1);
    EXPECT_EQ(pdu.set(), SNMP_ERR_UNDOFAILED);
    EXPECT_EQ(calls_in(MODE_SET_FREE).size(), 2u);
}

TEST_F(FreePassTest, WhatFreeSaysDoesNotChangeTheAnswer) {
    fail(MODE_SET_ACTION, STATE_1);
    fail(MODE_SET_FREE, NAME_1);
    fail(MODE_SET_FREE, STATE_1);
    Pdu pdu = Pdu::v2c("private");
    pdu.add(NAME_1);
    pdu.add(STATE_1);
    EXPECT_EQ(pdu.set(), SNMP_ERR_GENERR);
    EXPECT_EQ(pdu.failed(), 1);
    EXPECT_EQ(pdu.status(0), SNMP_ERR_NOERROR);
    EXPECT_EQ(calls_in(MODE_SET_FREE).size(), 2u);
}

TEST_F(FreePassTest, ObjectsOfOtherModulesAreLeftToTheAgent) {
    for (int position : {0, 1, 2}) {
        Neighbour neighbour;
        calls.clear();
        fail(MODE_SET_ACTION, NAME_1);
        Pdu pdu = Pdu::v2c("private");
        std::vector<Oid> names = {NAME_1, STATE_1};
        names.insert(names.begin() + position, Neighbour::NAME);
        for (const Oid &name : names) {
            pdu.add(name);
        }
        pdu.set();
        EXPECT_EQ(Neighbour::phases,
                  (std::vector<int>{MODE_SET_RESERVE1, MODE_SET_RESERVE2, MODE_SET_ACTION, MODE_SET_UNDO}));
        EXPECT_EQ(calls_in(MODE_SET_FREE), all_in(MODE_SET_FREE, {NAME_1, STATE_1})) << position;
    }
}

TEST_F(FreePassTest, AnActionThatFailsInAnotherModuleFreesToo) {
    Neighbour neighbour;
    Neighbour::fails_in = MODE_SET_ACTION;
    Pdu pdu = Pdu::v2c("private");
    for (const Oid &name : {NAME_1, Neighbour::NAME, STATE_1}) {
        pdu.add(name);
    }
    EXPECT_EQ(pdu.set(), SNMP_ERR_GENERR);
    EXPECT_EQ(pdu.failed(), 1);
    EXPECT_EQ(calls_in(MODE_SET_FREE), all_in(MODE_SET_FREE, {NAME_1, STATE_1}));
}

// An administrator may put helpers of the agent in front of any object.
TEST_F(FreePassTest, VarbindsPassedOnOneByOneAreFreedOnce) {
    for (const Oid &column : {NAME_COLUMN, STATE_COLUMN}) {
        netsnmp_inject_handler(registration_of(column), netsnmp_get_serialize_handler());
    }
    fail(MODE_SET_ACTION, NAME_1);
    Pdu pdu = Pdu::v2c("private");
    for (const Oid &name : {NAME_1, NAME_2, STATE_1, STATE_2}) {
        pdu.add(name);
    }
    pdu.set();
    const std::vector<Oid> by_column = {NAME_1, NAME_2, STATE_1, STATE_2};
    const std::vector<Call> end = all_in(MODE_SET_UNDO, by_column) + all_in(MODE_SET_FREE, by_column);
    ASSERT_GE(calls.size(), end.size());
    EXPECT_EQ(std::vector<Call>(calls.end() - static_cast<long>(end.size()), calls.end()), end);
}

// The old-style helper gives up a column at the first row without a write method: the
// rows behind it were never reserved.
TEST_F(FreePassTest, RowsThatWereNotReservedAreNotFreed) {
    objects.is_writable = [](const oid *name, size_t length) { return name[length - 1] != 2; };
    Pdu pdu = Pdu::v2c("private");
    for (const Oid &name : {NAME_1, NAME_2, NAME_3}) {
        pdu.add(name);
    }
    pdu.sort_by_registration();
    pdu.call(MODE_SET_RESERVE1);
    pdu.call(MODE_SET_UNDO);
    EXPECT_EQ(calls,
              (std::vector<Call>{{MODE_SET_RESERVE1, NAME_1}, {MODE_SET_UNDO, NAME_1}, {MODE_SET_FREE, NAME_1}}));
    EXPECT_EQ(pdu.status(1), SNMP_ERR_NOTWRITABLE);
    EXPECT_EQ(pdu.status(2), SNMP_ERR_NOERROR);
}

TEST_F(FreePassTest, AVarbindThatLostItsWriteMethodDoesNotKeepTheOthersFromBeingFreed) {
    Pdu pdu = Pdu::v2c("private");
    pdu.add(NAME_1);
    pdu.add(NAME_2);
    pdu.sort_by_registration();
    pdu.call(MODE_SET_RESERVE1);
    pdu.forget_write_method(0);
    pdu.call(MODE_SET_UNDO);
    EXPECT_EQ(calls_in(MODE_SET_FREE), all_in(MODE_SET_FREE, {NAME_2}));
}

} // namespace
