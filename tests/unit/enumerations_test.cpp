// SPDX-License-Identifier: Apache-2.0
// The manager's enumerations, both ways and complete.

#include "module_test.h"

#include <cctype>
#include <map>

namespace {

struct enumeration {
    const char *type;
    const char *(*find)(int32_t);
    int32_t (*str2enum)(const char *);
    std::map<int32_t, std::string> members;
};

void PrintTo(const enumeration &tested, std::ostream *out) {
    *out << tested.type;
}

const enumeration enumerations[] = {
    {"vsan_attr_key_t",
     __vsan_attr_key_t_find,
     __vsan_attr_key_t_str2enum,
     {{0, "VSAN_ATTR_VSAN_NAME"},
      {1, "VSAN_ATTR_STATE"},
      {2, "VSAN_ATTR_MEDIA"},
      {3, "VSAN_ATTR_IN_ORDER_DELIVERY"},
      {4, "VSAN_ATTR_MTU"},
      {5, "VSAN_ATTR_LOADBALANCING_METHOD"},
      {6, "VSAN_ATTR_SWITCH_WWN"},
      {7, "VSAN_ATTR_E_D_TOV"},
      {8, "VSAN_ATTR_R_A_TOV"},
      {9, "VSAN_ATTR_D_S_TOV"},
      {10, "VSAN_ATTR_F_S_TOV"},
      {11, "VSAN_ATTR_MAX_VSAN"},
      {12, "VSAN_ATTR_DEFAULT_VSAN"},
      {13, "VSAN_ATTR_RESERVED_VSAN"},
      {14, "VSAN_ATTR_VTP_REVISION"},
      {15, "VSAN_ATTR_VTP_CHECKSUM"},
      {16, "VSAN_ATTR_IN_USE_VSANS"},
      {17, "VSAN_ATTR_SWITCH_LATENCY"},
      {18, "VSAN_ATTR_NETWORK_LATENCY"},
      {19, "VSAN_ATTR_OPER_STATE"},
      {20, "VSAN_ATTR_OPER_STATE_RECORD"},
      {21, "VSAN_ATTR_MAX_RECV_BUFFER_SIZE"},
      {22, "VSAN_ATTR_FC_CLASSES_SUPPORTED"},
      {23, "VSAN_ATTR_INTEROP_MODE"},
      {24, "VSAN_ATTR_INTEROP_MODE_VALUE"},
      {25, "VSAN_ATTR_INORDER_CONFIG_LOCK"},
      {26, "VSAN_ATTR_IGNORE_ISCSI_INTERFACE"},
      {27, "VSAN_ATTR_TDX_DIST_ENABLED"},
      {28, "VSAN_ATTR_TDX_SESSION_HANDLE"},
      {29, "VSAN_ATTR_TDX_SESSION_USER"},
      {30, "VSAN_NUM_ATTR_KEY"},
      {31, "VSAN_MGR_PSS_KEY_TYPE_TRAPNOTIFY"}}},
    {"vsan_media_t",
     __vsan_media_t_find,
     __vsan_media_t_str2enum,
     {{0, "VSAN_MEDIA_VALUE_NOT_SET"}, {1, "VSAN_MEDIA_FIBRE_CHANNEL"}, {2, "VSAN_MEDIA_ETHERNET"}}},
    {"vsan_loadbalancing_method_t",
     __vsan_loadbalancing_method_t_find,
     __vsan_loadbalancing_method_t_str2enum,
     {{0, "VSAN_LOADBALANCING_VALUE_NOT_SET"},
      {1, "VSAN_CONSIDER_SRCID_DSTID"},
      {2, "VSAN_CONSIDER_SRCID_DSTID_OXID"}}},
    {"vsan_state_t",
     __vsan_state_t_find,
     __vsan_state_t_str2enum,
     {{0, "VSAN_STATE_VALUE_NOT_SET"},
      {1, "VSAN_ACTIVE"},
      {2, "VSAN_SUSPENDED"},
      {3, "VSAN_NONCONFIGURED"},
      {4, "VSAN_CONFIGURED"}}},
    {"vsan_oper_state_t",
     __vsan_oper_state_t_find,
     __vsan_oper_state_t_str2enum,
     {{0, "VSAN_OPERSTATE_VALUE_NOT_SET"}, {1, "VSAN_OPER_STATE_UP"}, {2, "VSAN_OPER_STATE_DOWN"}}},
    {"vsan_state_change_t",
     __vsan_state_change_t_find,
     __vsan_state_change_t_str2enum,
     {{0, "VSAN_STATE_NO_CHANGE"}, {1, "VSAN_ACTIVE_TO_NONACTIVE"}, {2, "VSAN_NONACTIVE_TO_ACTIVE"}}},
    {"port_membership_update_t",
     __port_membership_update_t_find,
     __port_membership_update_t_str2enum,
     {{1, "VSAN_PORT_VSAN_UPDATE"},
      {2, "VSAN_ALLOWED_LIST_OVERRIDE"},
      {3, "VSAN_ALLOWED_LIST_ADD"},
      {4, "VSAN_ALLOWED_LIST_DELETE"},
      {5, "VSAN_MEMBERSHIP_INVALID"},
      {6, "VSAN_MEMBERSHIP_VALID"},
      {7, "VSAN_DELETE_MEMBERSHIP"}}},
    {"iscsi_vsan_list_operation_t",
     __iscsi_vsan_list_operation_t_find,
     __iscsi_vsan_list_operation_t_str2enum,
     {{1, "VSAN_LIST_OVERRIDE"}, {2, "VSAN_LIST_ADD"}, {3, "VSAN_LIST_DELETE"}, {4, "VSAN_LIST_PURGE"}}},
    {"vsan_tdx_state_t",
     __vsan_tdx_state_t_find,
     __vsan_tdx_state_t_str2enum,
     {{100, "VSAN_TDX_INIT_STATE"},
      {101, "VSAN_TDX_LOCK_PENDING_STATE"},
      {102, "VSAN_TDX_LOCKED_STATE"},
      {103, "VSAN_TDX_DISTRIBUTE_STATE"},
      {104, "VSAN_TDX_COMMIT_STATE"},
      {105, "VSAN_TDX_UNLOCKED_STATE"},
      {106, "VSAN_TDX_REMOTE_PEER_LOCKED_STATE"},
      {107, "VSAN_COMMIT_WITH_NO_SESSION_STATE"}}},
    {"vsan_tdx_attr_t",
     __vsan_tdx_attr_t_find,
     __vsan_tdx_attr_t_str2enum,
     {{200, "VSAN_TDX_ATTR_LOCK_USER_NAME"}, {201, "VSAN_TDX_ATTR_CMD"}, {202, "VSAN_TDX_LOCK_HANDLE"}}},
};

std::string in_lower_case(std::string text) {
    for (char &letter : text) {
        letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
    }
    return text;
}

class Enumerations : public testing::TestWithParam<enumeration> {};

TEST_P(Enumerations, FindKnowsEveryValueAndNoOther) {
    const enumeration &tested = GetParam();
    for (int32_t value = -5; value <= 300; ++value) {
        const char *name = tested.find(value);
        const auto wanted = tested.members.find(value);
        EXPECT_STREQ(name, wanted == tested.members.end() ? nullptr : wanted->second.c_str()) << value;
    }
    EXPECT_EQ(tested.find(INT32_MIN), nullptr);
    EXPECT_EQ(tested.find(INT32_MAX), nullptr);
}

TEST_P(Enumerations, Str2enumKnowsEveryNameInAnyCase) {
    const enumeration &tested = GetParam();
    for (const auto &[value, name] : tested.members) {
        EXPECT_EQ(tested.str2enum(name.c_str()), value) << name;
        EXPECT_EQ(tested.str2enum(in_lower_case(name).c_str()), value) << name;
    }
}

TEST_P(Enumerations, Str2enumGivesZeroForAnythingElse) {
    const enumeration &tested = GetParam();
    for (const char *unknown : {"", "vsan", "unknown_word", "VSAN_", " VSAN_ACTIVE", "VSAN_TDX_LOCK"}) {
        EXPECT_EQ(tested.str2enum(unknown), 0) << unknown;
    }
    // One letter too many or too few is another word.
    for (const auto &[value, name] : tested.members) {
        EXPECT_EQ(tested.str2enum((name + "X").c_str()), 0) << name;
        EXPECT_EQ(tested.str2enum(name.substr(0, name.size() - 1).c_str()), 0) << name;
    }
}

INSTANTIATE_TEST_SUITE_P(All, Enumerations, testing::ValuesIn(enumerations),
                         [](const auto &tested) { return std::string(tested.param.type); });

} // namespace
