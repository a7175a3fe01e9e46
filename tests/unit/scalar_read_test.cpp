// SPDX-License-Identifier: Apache-2.0
// GET and GETNEXT of the ten scalars, through the registration table.

#include "module_test.h"

#include <cerrno>

namespace {

struct scalar {
    const char *object;
    uint8_t magic;
    uint32_t opcode;
    std::optional<bytes> payload;
    uint32_t length;
    size_t value_word;
    WriteMethod *write_method;
    const char *trace;
};

void PrintTo(const scalar &tested, std::ostream *out) {
    *out << tested.object;
}

// A request for the switch-wide value of one timer.
bytes timer_request(uint8_t key) {
    return {0, 0, 0, key, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
}
bytes latency_request(uint8_t key) {
    return {0, 0, 0, key, 0, 0, 0, 0, 0, 0, 0, 0};
}

const scalar scalars[] = {
    {"vsanNumber", 1, 125, std::nullopt, 4, 0, nullptr,
     "get_vsan_mib : Sending GET request to VSAN mgr for VSANNUMBER\n"},
    {"vsanTableLastChange", 2, 126, std::nullopt, 8, 0, nullptr,
     "get_vsan_mib : Sending GET request to VSAN mgr for VSANTABLELASTCHANGE\n"},
    {"vsanIfNumber", 15, 128, std::nullopt, 4, 0, nullptr,
     "get_vsan_mib : Sending GET request to VSAN mgr for VSANIFNUMBER \n"},
    {"fcTimerRatov", 31, 127, timer_request(8), 15, 1, set_fcTimerRatov,
     "get_vsan_mib : Sending GET request to VSAN mgr for  FCTIMERRATOV with fctimer_type=8\n"},
    {"fcTimerEdtov", 32, 127, timer_request(7), 15, 1, set_fcTimerEdtov,
     "get_vsan_mib : Sending GET request to VSAN mgr for FCTIMEREDTOV with fctimer_type =7\n"},
    {"fcTimerFstov", 33, 127, timer_request(10), 15, 1, nullptr,
     "get_vsan_mib : Sending GET request to VSAN mgr for FCTIMERFSTOV with fctimer_type = 10\n"},
    {"fcTimerDstov", 34, 127, timer_request(9), 15, 1, set_fcTimerDstov,
     "get_vsan_mib : Sending GET request to VSAN mgr for FCTIMERDSTOV fctimertype = 9\n"},
    {"fcNetworkLatency", 35, 136, latency_request(18), 12, 1, set_fcNetworkLatency,
     "get_vsan_mib : Sending GET request to VSAN mgr for FCNETWORKLATENCY with latencytype=18\n"},
    {"fcSwitchLatency", 36, 136, latency_request(17), 12, 1, set_fcSwitchLatency,
     "get_vsan_mib : Sending GET request to VSAN mgr for FCSWITCHLATENCY with latencytype = 17\n"},
    {"fcInorderDelivery", 37, 140, std::nullopt, 4, 0, set_fcInorderDelivery,
     "get_vsan_mib : Sending GET request to VSAN mgr for FCINORDERDELIVERY\n"},
};

class ScalarRead : public ModuleTest, public testing::WithParamInterface<scalar> {
  protected:
    // A write method that no handler hands out, to see that the slot is reset.
    static int stale_write_method(int, u_char *, u_char, size_t, u_char *, oid *, size_t) { return 1; }

    void SetUp() override {
        timeval start = {};
        start.tv_sec = 1000000;
        netsnmp_set_agent_starttime(&start);
    }

    // Makes the manager answer this object with 4711.
    static void manager_has_a_value() {
        const scalar &tested = GetParam();
        if (tested.opcode == 126) {
            platform.on(126, 1).reply(words({1000047, 110000}));
        } else if (tested.value_word == 1) {
            platform.on(tested.opcode, 1).reply(words({0xDEADBEEF, 4711}));
        } else {
            platform.on(tested.opcode, 1).reply(words({4711}));
        }
    }
};

TEST_P(ScalarRead, GetOfInstanceZeroIsOneRequestAndFourBytes) {
    manager_has_a_value();
    registered_object object(GetParam().magic);
    const read_answer answer = object.get(object.instance({0}));
    EXPECT_EQ(answer.number(), 4711);
    EXPECT_EQ(answer.length, 4u);
    EXPECT_EQ(answer.name, object.instance({0}));
    ASSERT_EQ(platform.requests.size(), 1u);
    const sent_request &request = platform.requests[0];
    EXPECT_EQ(request.opcode, GetParam().opcode);
    EXPECT_EQ(request.kind, 1u);
    EXPECT_EQ(request.has_payload, GetParam().payload.has_value());
    EXPECT_EQ(request.payload, GetParam().payload.value_or(bytes()));
    EXPECT_EQ(request.length, GetParam().length);
    EXPECT_EQ(request.service, 15u);
    EXPECT_EQ(request.wait_class, 4u);
}

TEST_P(ScalarRead, GetNextFromBeforeTheInstanceAnswersIt) {
    manager_has_a_value();
    registered_object object(GetParam().magic);
    oid_name before = object.name();
    --before.back();
    const oid_name starts[] = {object.name(), before, {1, 3}, {1}};
    for (const oid_name &start : starts) {
        platform.requests.clear();
        const read_answer answer = object.get_next(start);
        EXPECT_EQ(answer.number(), 4711);
        EXPECT_EQ(answer.name, object.instance({0}));
        EXPECT_EQ(platform.requests.size(), 1u);
    }
}

TEST_P(ScalarRead, GetNextFromTheInstanceOrBehindItCostsNoRequest) {
    registered_object object(GetParam().magic);
    for (const oid_name &start : {object.instance({0}), object.instance({0, 0}), object.instance({1}), oid_name{2}}) {
        EXPECT_FALSE(object.get_next(start).present);
    }
    EXPECT_TRUE(platform.requests.empty());
}

TEST_P(ScalarRead, GetOfAnotherInstanceCostsNoRequest) {
    registered_object object(GetParam().magic);
    for (const oid_name &name :
         {object.name(), object.instance({1}), object.instance({largest_arc}), object.instance({0, 0})}) {
        EXPECT_FALSE(object.get(name).present);
    }
    EXPECT_TRUE(platform.requests.empty());
    EXPECT_TRUE(platform.history.empty());
}

TEST_P(ScalarRead, TracesItsRequestWithItsOwnText) {
    manager_has_a_value();
    get(GetParam().magic, {0});
    ASSERT_FALSE(platform.history.empty());
    EXPECT_EQ(platform.history[0].trace_class, 101u);
    EXPECT_EQ(platform.history[0].text, GetParam().trace);
}

TEST_P(ScalarRead, HandsOutItsWriteMethodAndNoOther) {
    manager_has_a_value();
    registered_object object(GetParam().magic);
    EXPECT_EQ(object.read(object.instance({0}), 1, stale_write_method).write_method, GetParam().write_method);
    EXPECT_EQ(object.read(object.name(), 0, stale_write_method).write_method, GetParam().write_method);
}

TEST_P(ScalarRead, HandsOutItsWriteMethodEvenWhenTheReadFails) {
    platform.on(GetParam().opcode, 1).fails(ECONNREFUSED);
    registered_object object(GetParam().magic);
    const read_answer answer = object.read(object.instance({0}), 1, stale_write_method);
    EXPECT_FALSE(answer.present);
    EXPECT_EQ(answer.write_method, GetParam().write_method);
}

TEST_P(ScalarRead, AFailedOrEmptyExchangeAnswersNull) {
    reply_script &script = platform.on(GetParam().opcode, 1);
    script.fails(ETIMEDOUT).status(some_failure).no_data().reply(bytes()).status_with_data(1, bytes(16));
    for (int i = 0; i < 5; ++i) {
        EXPECT_FALSE(get(GetParam().magic, {0}).present) << i;
    }
    EXPECT_TRUE(agent.details.empty()) << "nothing else is reported";
    EXPECT_TRUE(platform.errors_set.empty());
}

TEST_P(ScalarRead, AsksAgainAtEachRead) {
    manager_has_a_value();
    get(GetParam().magic, {0});
    get(GetParam().magic, {0});
    EXPECT_EQ(platform.requests.size(), 2u);
}

TEST_P(ScalarRead, UsesTheDistributionServiceForTimersOnly) {
    manager_has_a_value();
    platform.tdx_enabled = 1;
    const bool timer = GetParam().opcode == 127;
    if (timer) {
        platform.on(127, 5).reply(words({0, 4712}));
    }
    EXPECT_EQ(get(GetParam().magic, {0}).number(), timer ? 4712 : 4711);
    EXPECT_EQ(platform.requests.at(0).kind, timer ? 5u : 1u);

    platform.tdx_show_run = 1;
    EXPECT_EQ(get(GetParam().magic, {0}).number(), 4711);
    EXPECT_EQ(platform.requests.at(1).kind, 1u);
}

INSTANTIATE_TEST_SUITE_P(All, ScalarRead, testing::ValuesIn(scalars),
                         [](const auto &tested) { return std::string(tested.param.object); });

using ScalarHandler = ModuleTest;

TEST_F(ScalarHandler, ServesExactlyTheTenScalars) {
    std::vector<uint8_t> served;
    for (const variable7 &row : agent.registrations.at(0).rows) {
        if (row.findVar == get_vsan_mib) {
            served.push_back(row.magic);
        }
    }
    std::vector<uint8_t> wanted;
    for (const scalar &tested : scalars) {
        wanted.push_back(tested.magic);
    }
    EXPECT_EQ(served, wanted);
}

TEST_F(ScalarHandler, AnyOtherMagicSetsAnEmptyDetailAndCostsNoRequest) {
    for (const uint8_t magic : bytes{0, 3, 7, 9, 14, 16, 30, 38, 42, 43, 255}) {
        SCOPED_TRACE(int{magic});
        agent.details.clear();
        registered_object object(1);
        object.var.magic = magic;
        EXPECT_FALSE(object.get(object.instance({0})).present);
        EXPECT_EQ(agent.details, std::vector<std::string>{""});
    }
    EXPECT_TRUE(platform.requests.empty());
}

TEST_F(ScalarHandler, AnotherMagicOfAnotherInstanceSetsNoDetail) {
    registered_object object(1);
    object.var.magic = 43;
    EXPECT_FALSE(object.get(object.instance({1})).present);
    EXPECT_TRUE(agent.details.empty());
}

TEST_F(ScalarHandler, AChangeAheadOfTheAgentsStartReadsAsZero) {
    timeval start = {};
    start.tv_sec = 1000000;
    netsnmp_set_agent_starttime(&start);
    platform.on(126, 1).reply(words({999000, 0}));
    EXPECT_EQ(get(2, {0}).number(), 0);
}

} // namespace
