// SPDX-License-Identifier: Apache-2.0
// The manager's enumerations as value and name, looked up both ways.

#include "vsan_mib_exports.h"

#include <strings.h>

namespace {

struct enumeration_member {
    int32_t value;
    const char *name; // empty at the end of a table
};

const char *find_name(const enumeration_member *member, int32_t value) {
    for (; member->name[0] != '\0'; ++member) {
        if (member->value == value) {
            return member->name;
        }
    }
    return nullptr;
}

int32_t find_value(const enumeration_member *member, const char *name) {
    for (; member->name[0] != '\0'; ++member) {
        if (strcasecmp(member->name, name) == 0) {
            return member->value;
        }
    }
    return 0;
}

// clang-format off
#define MEMBER(enumerator) {enumerator, #enumerator}
#define END {0, ""}

constexpr enumeration_member attr_keys[] = {
    MEMBER(VSAN_ATTR_VSAN_NAME),
    MEMBER(VSAN_ATTR_STATE),
    MEMBER(VSAN_ATTR_MEDIA),
    MEMBER(VSAN_ATTR_IN_ORDER_DELIVERY),
    MEMBER(VSAN_ATTR_MTU),
    MEMBER(VSAN_ATTR_LOADBALANCING_METHOD),
    MEMBER(VSAN_ATTR_SWITCH_WWN),
    MEMBER(VSAN_ATTR_E_D_TOV),
    MEMBER(VSAN_ATTR_R_A_TOV),
    MEMBER(VSAN_ATTR_D_S_TOV),
    MEMBER(VSAN_ATTR_F_S_TOV),
    MEMBER(VSAN_ATTR_MAX_VSAN),
    MEMBER(VSAN_ATTR_DEFAULT_VSAN),
    MEMBER(VSAN_ATTR_RESERVED_VSAN),
    MEMBER(VSAN_ATTR_VTP_REVISION),
    MEMBER(VSAN_ATTR_VTP_CHECKSUM),
    MEMBER(VSAN_ATTR_IN_USE_VSANS),
    MEMBER(VSAN_ATTR_SWITCH_LATENCY),
    MEMBER(VSAN_ATTR_NETWORK_LATENCY),
    MEMBER(VSAN_ATTR_OPER_STATE),
    MEMBER(VSAN_ATTR_OPER_STATE_RECORD),
    MEMBER(VSAN_ATTR_MAX_RECV_BUFFER_SIZE),
    MEMBER(VSAN_ATTR_FC_CLASSES_SUPPORTED),
    MEMBER(VSAN_ATTR_INTEROP_MODE),
    MEMBER(VSAN_ATTR_INTEROP_MODE_VALUE),
    MEMBER(VSAN_ATTR_INORDER_CONFIG_LOCK),
    MEMBER(VSAN_ATTR_IGNORE_ISCSI_INTERFACE),
    MEMBER(VSAN_ATTR_TDX_DIST_ENABLED),
    MEMBER(VSAN_ATTR_TDX_SESSION_HANDLE),
    MEMBER(VSAN_ATTR_TDX_SESSION_USER),
    MEMBER(VSAN_NUM_ATTR_KEY),
    MEMBER(VSAN_MGR_PSS_KEY_TYPE_TRAPNOTIFY),
    END
};

constexpr enumeration_member media[] = {
    MEMBER(VSAN_MEDIA_VALUE_NOT_SET),
    MEMBER(VSAN_MEDIA_FIBRE_CHANNEL),
    MEMBER(VSAN_MEDIA_ETHERNET),
    END
};

constexpr enumeration_member loadbalancing_methods[] = {
    MEMBER(VSAN_LOADBALANCING_VALUE_NOT_SET),
    MEMBER(VSAN_CONSIDER_SRCID_DSTID),
    MEMBER(VSAN_CONSIDER_SRCID_DSTID_OXID),
    END
};

constexpr enumeration_member states[] = {
    MEMBER(VSAN_STATE_VALUE_NOT_SET),
    MEMBER(VSAN_ACTIVE),
    MEMBER(VSAN_SUSPENDED),
    MEMBER(VSAN_NONCONFIGURED),
    MEMBER(VSAN_CONFIGURED),
    END
};

constexpr enumeration_member oper_states[] = {
    MEMBER(VSAN_OPERSTATE_VALUE_NOT_SET),
    MEMBER(VSAN_OPER_STATE_UP),
    MEMBER(VSAN_OPER_STATE_DOWN),
    END
};

constexpr enumeration_member state_changes[] = {
    MEMBER(VSAN_STATE_NO_CHANGE),
    MEMBER(VSAN_ACTIVE_TO_NONACTIVE),
    MEMBER(VSAN_NONACTIVE_TO_ACTIVE),
    END
};

constexpr enumeration_member membership_updates[] = {
    MEMBER(VSAN_PORT_VSAN_UPDATE),
    MEMBER(VSAN_ALLOWED_LIST_OVERRIDE),
    MEMBER(VSAN_ALLOWED_LIST_ADD),
    MEMBER(VSAN_ALLOWED_LIST_DELETE),
    MEMBER(VSAN_MEMBERSHIP_INVALID),
    MEMBER(VSAN_MEMBERSHIP_VALID),
    MEMBER(VSAN_DELETE_MEMBERSHIP),
    END
};

constexpr enumeration_member list_operations[] = {
    MEMBER(VSAN_LIST_OVERRIDE),
    MEMBER(VSAN_LIST_ADD),
    MEMBER(VSAN_LIST_DELETE),
    MEMBER(VSAN_LIST_PURGE),
    END
};

constexpr enumeration_member tdx_states[] = {
    MEMBER(VSAN_TDX_INIT_STATE),
    MEMBER(VSAN_TDX_LOCK_PENDING_STATE),
    MEMBER(VSAN_TDX_LOCKED_STATE),
    MEMBER(VSAN_TDX_DISTRIBUTE_STATE),
    MEMBER(VSAN_TDX_COMMIT_STATE),
    MEMBER(VSAN_TDX_UNLOCKED_STATE),
    MEMBER(VSAN_TDX_REMOTE_PEER_LOCKED_STATE),
    MEMBER(VSAN_COMMIT_WITH_NO_SESSION_STATE),
    END
};

constexpr enumeration_member tdx_attributes[] = {
    MEMBER(VSAN_TDX_ATTR_LOCK_USER_NAME),
    MEMBER(VSAN_TDX_ATTR_CMD),
    MEMBER(VSAN_TDX_LOCK_HANDLE),
    END
};

#undef MEMBER
#undef END
// clang-format on

} // namespace

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
#define ENUMERATION(type, table)                                                                                       \
    const char *__##type##_find(int32_t value) {                                                                       \
        return find_name(table, value);                                                                                \
    }                                                                                                                  \
    int32_t __##type##_str2enum(const char *name) {                                                                    \
        return find_value(table, name);                                                                                \
    }

extern "C" {
ENUMERATION(vsan_attr_key_t, attr_keys)
ENUMERATION(vsan_media_t, media)
ENUMERATION(vsan_loadbalancing_method_t, loadbalancing_methods)
ENUMERATION(vsan_state_t, states)
ENUMERATION(vsan_oper_state_t, oper_states)
ENUMERATION(vsan_state_change_t, state_changes)
ENUMERATION(port_membership_update_t, membership_updates)
ENUMERATION(iscsi_vsan_list_operation_t, list_operations)
ENUMERATION(vsan_tdx_state_t, tdx_states)
ENUMERATION(vsan_tdx_attr_t, tdx_attributes)
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
