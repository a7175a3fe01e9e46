// SPDX-License-Identifier: Apache-2.0
// The seven column writers of the VSAN table: what each accepts in RESERVE1, what it
// says when it refuses, and what it traces at each phase.

#include "vsan_write_test.h"

namespace {

// Where a refusal is written, if at all.
struct texts {
    const char *trace; // class 101
    const char *standard_error;
};

struct column_writer {
    const char *name;
    WriteMethod *method;
    uint8_t magic; // the object; 12 for the writer that no object hands out
    uint8_t type;
    int64_t lowest; // -1: not an integer
    int64_t highest;
    texts wrong_type;
    texts wrong_length;
    texts wrong_value;
    const char *restricted; // class 100

    // Its own traces: a checked value, the same of a restricted user, and the phases.
    std::vector<std::string> reserve1;
    std::vector<std::string> reserve1_restricted;
    std::vector<std::string> reserve2;
    std::vector<std::string> action;
    std::vector<std::string> commit;
    std::vector<std::string> free;
    std::vector<std::string> undo;
};

void PrintTo(const column_writer &tested, std::ostream *out) {
    *out << tested.name;
}

constexpr uint8_t INTEGER = 0x02;
constexpr uint8_t OCTETS = 0x04;
constexpr uint8_t UNSIGNED = 0x42;

const std::vector<std::string> mode_call = {"set_vsanInterOperMode(#) \n"};

// clang-format off
const column_writer writers[] = {
    {"set_vsanName", set_vsanName, 3, OCTETS, -1, -1,
     {"set_vsanName(#)write to vsanName not ASN_OCTET_STR\n", ""},
     {"", "write to vsanName: bad length\n"},
     {"", ""},
     "set_vsanName(#) : vsan restricted user -- not allowed in this vsan\n",
     {"set_vsanName(#) : In the RESERVE1 phase \n"}, {"set_vsanName(#) : In the RESERVE1 phase \n"},
     {}, {}, {}, {}, {}},
    {"set_vsanAdminState", set_vsanAdminState, 5, INTEGER, 1, 2,
     {"", "write to vsanAdminState not ASN_INTEGER\n"},
     {"", "write to vsanAdminState: bad length\n"},
     {"", ""},
     "set_vsanAdminState : vsan restricted user -- not allowed in this vsan\n",
     {}, {},
     {"set_vsanAdminState(#) undo_vsanEntryList! \n"}, {}, {}, {}, {}},
    {"set_vsanLoadBalancingType", set_vsanLoadBalancingType, 8, INTEGER, 1, 2,
     {"set_vsanLoadBalancingType(#) write to vsanLoadBalancingType not ASN_INTEGER\n", ""},
     {"set_vsanLoadBalancingType(#) write to vsanLoadBalancingType: bad length\n", ""},
     {"", ""},
     "set_vsanLoadBalancingType : vsan restricted user -- not allowed in this vsan\n",
     {}, {},
     {"set_vsanLoadBalancingType(#) undo_vsanEntryList! \n"}, {}, {}, {}, {}},
    {"set_vsanInterOperType", set_vsanInterOperType, 12, INTEGER, 0, 4,
     {"set_vsanInterOperType(#) write to vsanInterOperType not ASN_INTEGER\n", ""},
     {"set_vsanInterOperType(#) write to vsanInterOperType: bad length\n", "write to vsanInterOperType: bad length\n"},
     {"set_vsanInterOperType(#) Wrong Value! \n", ""},
     "set_vsanInterOperType(#) : vsan restricted user -- not allowed in this vsan\n",
     {"set_vsanInterOperType(#) RESERVE1 \n"},
     {"set_vsanInterOperType(#) RESERVE1 \n", "set_vsanInterOperType(#) tmp_entry.vsanIndex:10 \n"},
     {"set_vsanInterOperType(#) VSANINTEROPTYPE RESERVE2! \n"},
     {"set_vsanInterOperType(#) ACTION! \n"},
     {"set_vsanInterOperType(#) COMMIT! \n"},
     {"set_vsanInterOperType(#) FREE! \n"},
     {"set_vsanInterOperType(#) UNDO Req! \n"}},
    {"set_vsanInorderDelivery", set_vsanInorderDelivery, 13, INTEGER, 1, 2,
     {"set_vsanInorderDelivery(#) write to vsanInorderDelivery not ASN_INTEGER\n",
      "write to vsanInorderDelivery not ASN_INTEGER\n"},
     {"", "write to vsanInorderDelivery: bad length\n"},
     {"", ""},
     "set_vsanInorderDelivery(#) : vsan restricted user -- not allowed in this vsan\n",
     {}, {}, {}, {}, {}, {}, {}},
    {"set_vsanNetworkDropLatency", set_vsanNetworkDropLatency, 14, UNSIGNED, 1, 60000,
     {"", "write to vsanNetworkDropLatency not ASN_INTEGER\n"},
     {"", "write to vsanNetworkDropLatency: bad length\n"},
     {"", ""},
     "set_vsanNetworkDropLatency(#) : vsan restricted user -- not allowed in this vsan\n",
     {}, {}, {}, {}, {}, {}, {}},
    {"set_vsanInterOperMode", set_vsanInterOperMode, 12, INTEGER, 1, 2,
     {"", "write to vsanInterOperMode not ASN_INTEGER\n"},
     {"", "write to vsanInterOperMode: bad length\n"},
     {"", ""},
     "set_vsanInterOperMode : vsan restricted user -- not allowed in this vsan\n",
     mode_call, mode_call,
     {"set_vsanInterOperMode(#) \n", "set_vsanInterOperMode(#) in RESERVE2 \n"},
     mode_call, mode_call, mode_call, mode_call},
};
// clang-format on

class ColumnWriter : public VsanWriteTest, public testing::WithParamInterface<column_writer> {
  protected:
    ColumnWriter() { platform.add_vsans({10, 20}); }

    struct result {
        int status;
        std::string standard_error;
    };

    static bool is_integer() { return GetParam().type != OCTETS; }

    // The column's OID with any instance behind it.
    static oid_name instance(std::initializer_list<oid> arcs) {
        return registered_object(GetParam().magic).instance(arcs);
    }

    static int call(int phase, uint8_t type, const bytes &value, const oid_name &name) {
        auto copy = std::make_unique<u_char[]>(value.size());
        std::copy(value.begin(), value.end(), copy.get());
        oid_name asked = name;
        return GetParam().method(phase, copy.get(), type, value.size(), nullptr, asked.data(), asked.size());
    }

    static result reserve(uint8_t type, const bytes &value, std::initializer_list<oid> arcs = {10}) {
        platform.history.clear();
        platform.debug.clear();
        testing::internal::CaptureStderr();
        const int status = call(RESERVE1_PHASE, type, value, instance(arcs));
        fflush(stderr);
        return {status, testing::internal::GetCapturedStderr()};
    }
    static int reserve_number(int64_t number) { return reserve(GetParam().type, as_long(number)).status; }

    static bytes good_value() { return is_integer() ? as_long(GetParam().highest) : bytes{'a', 'b'}; }

    // The traces of the writer alone, whatever else was traced.
    static std::vector<trace_line> own_traces() {
        std::vector<trace_line> own;
        const std::string name = GetParam().name;
        for (const trace_line &line : platform.history) {
            if (line.text.compare(0, name.size(), name) == 0) {
                own.push_back(line);
            }
        }
        return own;
    }

    static void expect_own_traces(const std::vector<std::string> &wanted) {
        const std::vector<trace_line> own = own_traces();
        ASSERT_EQ(own.size(), wanted.size()) << all_traces();
        for (size_t i = 0; i < own.size(); ++i) {
            EXPECT_EQ(own[i].trace_class, 101u);
            EXPECT_TRUE(is_trace(own[i].text, wanted[i])) << own[i].text;
        }
    }

    // A refusal writes its texts, and nothing else but what came before the check.
    static void expect_texts(const result &refused, const texts &wanted) {
        EXPECT_EQ(refused.standard_error, wanted.standard_error);
        std::vector<std::string> lines;
        if (GetParam().magic == 3) {
            lines.emplace_back("set_vsanName(#) : In the RESERVE1 phase \n");
        }
        if (GetParam().method == set_vsanInterOperMode) {
            lines = mode_call;
        }
        if (*wanted.trace != '\0') {
            lines.emplace_back(wanted.trace);
        }
        expect_own_traces(lines);
        EXPECT_EQ(platform.history.size(), lines.size()) << all_traces();
    }
};

TEST_P(ColumnWriter, IsHandedOutByItsColumn) {
    if (GetParam().method != set_vsanInterOperMode) {
        EXPECT_EQ(get(GetParam().magic, {10}).write_method, GetParam().method);
    } else {
        EXPECT_EQ(get(12, {10}).write_method, set_vsanInterOperType);
    }
}

TEST_P(ColumnWriter, AcceptsItsValuesAndNoneBeyond) {
    if (!is_integer()) {
        return;
    }
    const column_writer &tested = GetParam();
    for (int64_t value = tested.lowest; value <= std::min(tested.highest, tested.lowest + 10); ++value) {
        EXPECT_EQ(reserve_number(value), 0) << value;
    }
    EXPECT_EQ(reserve_number(tested.highest), 0);
    EXPECT_EQ(reserve_number(tested.highest + 1), 10);
    if (tested.lowest == 1) {
        EXPECT_EQ(reserve_number(0), tested.magic == 14 ? 5 : 10);
    }
    for (const int64_t beyond : {int64_t{-1}, int64_t{INT32_MAX}, int64_t{INT32_MIN}}) {
        EXPECT_EQ(reserve_number(beyond), 10) << beyond;
    }
    for (const uint32_t beyond : {0xFFFFFFFFu, 0x80000000u, 0x80000001u}) {
        EXPECT_EQ(reserve(tested.type, as_word(beyond)).status, 10) << beyond;
    }
    EXPECT_TRUE(platform.requests.empty()) << "checks send nothing";
}

TEST_P(ColumnWriter, AWrongValueIsReportedAsTheColumnDoes) {
    const bytes wrong = is_integer() ? as_long(GetParam().highest + 1) : bytes{'a', 'b', ' ', 'c', 'd'};
    const result refused = reserve(GetParam().type, wrong);
    EXPECT_EQ(refused.status, 10);
    expect_texts(refused, GetParam().wrong_value);
    EXPECT_TRUE(platform.errors_set.empty());
}

TEST_P(ColumnWriter, AnyOtherTypeIsRefusedWithItsText) {
    for (const uint8_t type : bytes{0x02, 0x04, 0x05, 0x06, 0x40, 0x41, 0x42, 0x43, 0x44, 0x46, 0x00, 0xFF}) {
        if (type == GetParam().type) {
            continue;
        }
        SCOPED_TRACE(int{type});
        const result refused = reserve(type, good_value());
        EXPECT_EQ(refused.status, 7);
        expect_texts(refused, GetParam().wrong_type);
    }
}

TEST_P(ColumnWriter, AnyOtherLengthIsRefusedWithItsText) {
    const size_t longest = is_integer() ? 4 : 32;
    for (size_t length = longest + 1; length <= longest + 12; ++length) {
        if (is_integer() && length == sizeof(long)) {
            continue;
        }
        SCOPED_TRACE(length);
        bytes value(length, 'x');
        value[0] = 1;
        const result refused = reserve(GetParam().type, value);
        EXPECT_EQ(refused.status, 8);
        expect_texts(refused, GetParam().wrong_length);
    }
}

TEST_P(ColumnWriter, AnIntegerOfUpToFourBytesIsReadFromTheBytesThereAre) {
    if (!is_integer()) {
        return;
    }
    for (size_t length = 0; length <= 4; ++length) {
        SCOPED_TRACE(length);
        const uint32_t mask = length == 0 ? 0 : 0xFFFFFFFFu >> (32 - 8 * length);
        for (const uint32_t number : {0u, 1u, 2u, 3u, 4u, 5u, 0x0101u, 60000u, 60001u, 0x010001u, 0x01000001u}) {
            const int64_t read = number & mask;
            int wanted = read >= GetParam().lowest && read <= GetParam().highest ? 0 : 10;
            if (GetParam().magic == 14 && read == 0) {
                wanted = 5;
            }
            EXPECT_EQ(reserve(GetParam().type, as_word(number, length)).status, wanted) << number;
        }
    }
}

TEST_P(ColumnWriter, EightBytesCountForTheirLowWordWhereALongHasThem) {
    if (!is_integer()) {
        return;
    }
    const bool is_long = sizeof(long) == 8;
    for (const int64_t high : {int64_t{1}, int64_t{-1}, int64_t{INT32_MAX}, int64_t{INT32_MIN}}) {
        const auto reserve_wide = [&](int64_t low) {
            return reserve(GetParam().type, as_eight_bytes(high * 4294967296 + low)).status;
        };
        EXPECT_EQ(reserve_wide(GetParam().highest), is_long ? 0 : 8) << high;
        EXPECT_EQ(reserve_wide(GetParam().highest + 1), is_long ? 10 : 8) << high;
    }
}

TEST_P(ColumnWriter, ChecksTypeLengthValueInstanceAndRestrictionInThisOrder) {
    platform.restrict_to({20});
    const bytes wrong_length = bytes(33, ' ');
    const bytes wrong_value = is_integer() ? as_long(-1) : bytes{' '};
    EXPECT_EQ(reserve(0x05, wrong_length).status, 7);
    EXPECT_EQ(reserve(0x05, wrong_value).status, 7);
    EXPECT_EQ(reserve(0x05, good_value()).status, 7);
    EXPECT_EQ(reserve(GetParam().type, wrong_length).status, 8);
    EXPECT_EQ(reserve(GetParam().type, wrong_value).status, 10);
    EXPECT_TRUE(platform.allowed_calls.empty()) << "nobody is asked about a value that is wrong";
    EXPECT_EQ(reserve(GetParam().type, good_value()).status, 5);
    EXPECT_EQ(platform.allowed_calls.size(), 1u);
}

TEST_P(ColumnWriter, ARestrictedUserIsRefusedAVsanOutsideTheRole) {
    platform.restrict_to({20});
    const result refused = reserve(GetParam().type, good_value());
    EXPECT_EQ(refused.status, 5);
    EXPECT_EQ(refused.standard_error, "");
    std::vector<std::string> before = GetParam().reserve1;
    const std::vector<trace_line> own = own_traces();
    ASSERT_EQ(own.size(), before.size() + 1) << all_traces();
    EXPECT_EQ(own.back().trace_class, 100u);
    EXPECT_TRUE(is_trace(own.back().text, GetParam().restricted)) << own.back().text;
    ASSERT_EQ(platform.errors_reported.size(), 1u);
    EXPECT_EQ(platform.errors_reported[0].first, 0x4049002cu);
    EXPECT_EQ(platform.errors_reported[0].second, failure_text(0x4049002c));
    EXPECT_TRUE(platform.errors_set.empty());
}

TEST_P(ColumnWriter, ARestrictedUserMayChangeAVsanOfTheRole) {
    platform.restrict_to({10});
    EXPECT_EQ(reserve(GetParam().type, good_value()).status, 0);
    expect_own_traces(GetParam().reserve1_restricted);
    expect_restriction_asked({instance({10})}, 163);
    EXPECT_EQ(platform.list_sizes_passed, std::vector<uint32_t>{512});
}

TEST_P(ColumnWriter, AnyListResultButZeroRestrictsAndAnyAnswerButZeroPermits) {
    for (const int answer : {2, -1}) {
        platform.restriction_result = platform.permitted_result = answer;
        platform.restrict_to({20});
        EXPECT_EQ(reserve(GetParam().type, good_value()).status, 5) << answer;
        platform.restrict_to({10});
        EXPECT_EQ(reserve(GetParam().type, good_value()).status, 0) << answer;
    }
}

TEST_P(ColumnWriter, NoListIsConsultedForAnUnrestrictedUser) {
    EXPECT_EQ(reserve(GetParam().type, good_value()).status, 0);
    EXPECT_EQ(platform.allowed_calls.size(), 1u);
    EXPECT_TRUE(platform.list_sizes_passed.empty());
    EXPECT_TRUE(platform.errors_reported.empty());
}

TEST_P(ColumnWriter, AnInstanceOfAnyOtherLengthStandsForVsanZero) {
    platform.restrict_to({0});
    EXPECT_EQ(reserve(GetParam().type, good_value(), {}).status, 0);
    EXPECT_EQ(reserve(GetParam().type, good_value(), {10, 10}).status, 0);
    EXPECT_EQ(reserve(GetParam().type, good_value(), {10}).status, 5);
    platform.restrict_to({10});
    EXPECT_EQ(reserve(GetParam().type, good_value(), {}).status, 5);
    EXPECT_EQ(reserve(GetParam().type, good_value(), {10, 10}).status, 5);
}

TEST_P(ColumnWriter, AcceptingTracesItsPhaseAndStagesAndSendsNothing) {
    const result accepted = reserve(GetParam().type, good_value());
    EXPECT_EQ(accepted.status, 0);
    EXPECT_EQ(accepted.standard_error, "");
    expect_own_traces(GetParam().reserve1);
    EXPECT_TRUE(platform.requests.empty());
    EXPECT_TRUE(listed(vsanEntry_list).empty());
    EXPECT_TRUE(listed(vsanEntry_undo_list).empty());
}

TEST_P(ColumnWriter, EachLaterPhaseTracesAsItsWriterDoes) {
    const std::pair<int, const std::vector<std::string> &> phases[] = {
        {RESERVE2_PHASE, GetParam().reserve2}, {ACTION_PHASE, GetParam().action}, {COMMIT_PHASE, GetParam().commit},
        {FREE_PHASE, GetParam().free},         {UNDO_PHASE, GetParam().undo},
    };
    for (const auto &[phase, wanted] : phases) {
        SCOPED_TRACE(phase);
        platform.history.clear();
        platform.debug.clear();
        EXPECT_EQ(call(phase, GetParam().type, good_value(), instance({10})), 0);
        expect_own_traces(wanted);
    }
}

TEST_P(ColumnWriter, Reserve2StagesItsFieldAndActionSendsIt) {
    vsan_row wanted = unchanged(10);
    switch (GetParam().magic) {
    case 3:
        wanted.name = std::string("ab\0n10", 6);
        break;
    case 5:
        wanted.admin = 2;
        break;
    case 8:
        wanted.load_balancing = 2;
        break;
    case 12:
        wanted.interop = static_cast<uint32_t>(GetParam().highest);
        break;
    case 13:
        wanted.inorder = 2;
        break;
    default:
        wanted.drop_latency = 60000;
    }
    EXPECT_EQ(call(RESERVE2_PHASE, GetParam().type, good_value(), instance({10})), 0);
    EXPECT_EQ(call(ACTION_PHASE, GetParam().type, good_value(), instance({10})), 0);
    expect_requests({lookup(10), change(wanted)});
    EXPECT_EQ(call(COMMIT_PHASE, GetParam().type, good_value(), instance({10})), 0);
    EXPECT_TRUE(listed(vsanEntry_undo_list).empty());
}

TEST_P(ColumnWriter, UndoDoesNothing) {
    call(RESERVE2_PHASE, GetParam().type, good_value(), instance({10}));
    platform.requests.clear();
    EXPECT_EQ(call(UNDO_PHASE, GetParam().type, good_value(), instance({10})), 0);
    EXPECT_TRUE(platform.requests.empty());
    EXPECT_EQ(listed(vsanEntry_list), (std::vector<int64_t>{10})) << "released by the next FREE";
    EXPECT_EQ(listed(vsanEntry_undo_list), (std::vector<int64_t>{10}));
    EXPECT_EQ(call(FREE_PHASE, GetParam().type, good_value(), instance({10})), 0);
}

TEST_P(ColumnWriter, AnUnknownPhaseDoesNothing) {
    for (const int phase : {6, 7, 1000, INT32_MAX}) {
        EXPECT_EQ(call(phase, 0x05, bytes(33), instance({10})), 0) << phase;
    }
    EXPECT_TRUE(platform.requests.empty());
}

TEST_P(ColumnWriter, AVsanThatDoesNotExistPassesReserve1AndFailsInReserve2) {
    EXPECT_EQ(reserve(GetParam().type, good_value(), {99}).status, 0);
    EXPECT_EQ(call(RESERVE2_PHASE, GetParam().type, good_value(), instance({99})), 18);
    EXPECT_TRUE(platform.errors_set.empty());
}

INSTANTIATE_TEST_SUITE_P(All, ColumnWriter, testing::ValuesIn(writers),
                         [](const auto &tested) { return std::string(tested.param.name); });

class ColumnQuirks : public VsanWriteTest {
  protected:
    static int reserve(WriteMethod *method, uint8_t type, const bytes &value) {
        return write(method, RESERVE1_PHASE, type, value);
    }
};

TEST_F(ColumnQuirks, ANameHasUpTo32BytesAndNoSpaceBeforeItsFirstNul) {
    const auto reserve_name = [](const std::string &name) {
        return reserve(set_vsanName, OCTETS, bytes(name.begin(), name.end()));
    };
    EXPECT_EQ(reserve_name(""), 0);
    EXPECT_EQ(reserve_name(std::string(32, 'x')), 0);
    EXPECT_EQ(reserve_name("\t\n\x01\xff"), 0) << "any byte but the space";
    EXPECT_EQ(reserve_name("ab cd"), 10);
    EXPECT_EQ(reserve_name(" "), 10);
    EXPECT_EQ(reserve_name(std::string(31, 'x') + " "), 10);
    EXPECT_EQ(reserve_name(std::string("\0 x", 3)), 0);
    EXPECT_EQ(reserve_name(std::string("a\0 ", 3)), 0);
    EXPECT_EQ(reserve_name(std::string("a \0b", 4)), 10);
    EXPECT_EQ(reserve_name(std::string(32, '\0')), 0);
    testing::internal::CaptureStderr();
    EXPECT_EQ(reserve_name(std::string(33, 'x')), 8);
    EXPECT_EQ(reserve_name(std::string(33, ' ')), 8);
    fflush(stderr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "write to vsanName: bad length\nwrite to vsanName: bad length\n");
}

TEST_F(ColumnQuirks, ADropLatencyOfZeroIsAGeneralErrorWithACodeOfItsOwn) {
    for (const bytes &zero : {as_long(0), as_word(0), as_word(0, 0)}) {
        platform.errors_set.clear();
        EXPECT_EQ(reserve(set_vsanNetworkDropLatency, UNSIGNED, zero), 5);
        EXPECT_EQ(platform.errors_set, (errors{{0x40190014, 200}}));
    }
    EXPECT_TRUE(platform.history.empty()) << all_traces();
    EXPECT_TRUE(platform.allowed_calls.empty());
}

TEST_F(ColumnQuirks, TheRequestedLoadBalancingTypeIsKeptBeforeItIsChecked) {
    for (const uint32_t requested : {1u, 2u, 7u, 0u, 0xFFFFFFFFu, 2u}) {
        reserve(set_vsanLoadBalancingType, INTEGER, as_word(requested));
        EXPECT_EQ(last_loadbalancing_type, requested);
    }
    reserve(set_vsanLoadBalancingType, UNSIGNED, as_word(1));
    reserve(set_vsanLoadBalancingType, INTEGER, bytes(5));
    reserve(set_vsanAdminState, INTEGER, as_word(1));
    EXPECT_EQ(last_loadbalancing_type, 2u) << "type and length come first, and it is of this column alone";
}

TEST_F(ColumnQuirks, ALongErrorTextIsCutToTheRecord) {
    platform.restrict_to({});
    platform.long_error_texts = true;
    EXPECT_EQ(reserve(set_vsanInorderDelivery, INTEGER, as_long(1)), 5);
    ASSERT_EQ(platform.errors_reported.size(), 1u);
    EXPECT_EQ(platform.errors_reported[0].first, 0x4049002cu);
    EXPECT_EQ(platform.errors_reported[0].second, std::string(199, 'e'));
}

} // namespace
