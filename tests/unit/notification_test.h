// SPDX-License-Identifier: Apache-2.0
// The fixture of the notifications' tests: an event handed to a callback as the agent
// extension library does it, and the notification taken apart.
#ifndef NOTIFICATION_TEST_H
#define NOTIFICATION_TEST_H

#include <ostream>
#include <string>
#include <vector>

#include "module_test.h"

// One variable binding, compared whole.
struct binding {
    oid_name name;
    uint8_t type;
    bytes value;
};

inline bool operator==(const binding &a, const binding &b) {
    return a.name == b.name && a.type == b.type && a.value == b.value;
}

inline std::ostream &operator<<(std::ostream &out, const binding &bound) {
    for (const oid arc : bound.name) {
        out << '.' << arc;
    }
    out << " type " << int{bound.type} << " value";
    for (const uint8_t byte : bound.value) {
        out << ' ' << int{byte};
    }
    return out;
}

struct notification {
    int send;
    bool has_list;
    oid_name name; // of the length that the callback gave
    std::vector<binding> bindings;
};

class NotificationTest : public ModuleTest {
  protected:
    // A name below the module's root.
    static oid_name below_root(std::initializer_list<oid> arcs) {
        oid_name name = {1, 3, 6, 1, 4, 1, EXPECTED_VENDOR_PEN, 9, 282};
        name.insert(name.end(), arcs);
        return name;
    }

    // An INTEGER as the agent keeps it: one long, however many bytes were given.
    static binding integer_binding(const oid_name &name, int64_t number) { return {name, 0x02, as_long(number)}; }

    // What the callback of an event class makes of an event. The send flag comes as
    // `send`, and the length as one that must not be taken for an answer.
    static notification deliver(uint32_t event_class, const mts_message *message, int send = 7) {
        oid trap[MAX_OID_LEN];
        std::fill(std::begin(trap), std::end(trap), oid{0xBAD});
        size_t length = 0;
        notification result = {};
        result.send = send;
        platform.send_flag = &result.send;
        netsnmp_variable_list *list = platform.notifications.at(event_class)(message, trap, &length, &result.send);
        platform.send_flag = nullptr;
        result.has_list = list != nullptr;
        result.name.assign(trap, trap + length);
        for (const netsnmp_variable_list *at = list; at != nullptr; at = at->next_variable) {
            result.bindings.push_back({oid_name(at->name, at->name + at->name_length), at->type,
                                       bytes(at->val.string, at->val.string + at->val_len)});
        }
        snmp_free_varbind(list);
        return result;
    }

    static void expect_nothing_sent(const notification &answer) {
        EXPECT_EQ(answer.send, 0);
        EXPECT_FALSE(answer.has_list);
    }
};

#endif
