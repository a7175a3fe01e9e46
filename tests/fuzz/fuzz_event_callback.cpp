// SPDX-License-Identifier: Apache-2.0
// The bytes are an event's payload: both notification callbacks must survive any, and
// send either nothing or a notification with all of its bindings. The VSAN library
// behind the one is the platform's own.
//
//   byte 0  bits 0 to 3 length of the port manager's reply, bit 4 it fails, bit 5 an
//           event without payload, bit 6 no event at all
//        1  the payload
//
// The port manager's value is all zero, which the module takes for not known yet: so it
// asks at every event, and no input depends on an earlier one.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>

#include "agent_calls.h"
#include "fuzz_input.h"
#include "scripted_platform.h"

namespace {

struct expectations {
    oid last_arc;         // of the notification's OID
    size_t binding_count; // when it is sent
};

// Delivers an event; returns whether the notification is sent.
bool deliver(notification_callback callback, const mts_message *message, const expectations &expected) {
    oid trap[MAX_OID_LEN] = {};
    size_t length = 0;
    int send = 7;
    netsnmp_variable_list *list = callback(message, trap, &length, &send);
    require(platform.replies_held.empty(), "a reply was kept");
    require(send == 0 || send == 1, "a send flag of another value");
    require((list != nullptr) == (send == 1), "a list without the flag, or the other way round");
    if (send == 0) {
        return false;
    }

    require(length == 13 && trap[12] == expected.last_arc, "another notification");
    size_t count = 0;
    for (const netsnmp_variable_list *at = list; at != nullptr; at = at->next_variable) {
        require(at->name_length <= 15, "a name too long");
        ++count;
    }
    require(count == expected.binding_count, "bindings are missing");
    snmp_free_varbind(list);
    return true;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    init_vsan_mib();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) {
        return 0;
    }
    platform.reset();
    const uint8_t how = *data;
    const bytes answer(how & 15u);
    if ((how & 0x10) != 0) {
        platform.on(1282, 1).status_with_data(some_failure, answer);
    } else {
        platform.on(1282, 1).reply(answer);
    }
    const bool has_payload = (how & 0x20) == 0;
    mts_message event;
    if (has_payload) {
        event.payload = bytes(data + 1, data + size);
    }
    const mts_message *message = (how & 0x40) == 0 ? &event : nullptr;

    const bool vsan_sent = deliver(handle_notifications, message, {1, 3});
    require(!vsan_sent || (message != nullptr && has_payload), "a VSAN notification of nothing");
    require(platform.requests.empty(), "a VSAN event asks nobody");

    const bool port_sent = deliver(handle_port_memb_change_notifications, message, {2, 3});
    const bool value_is_known = (how & 0x10) == 0 && answer.size() >= 8;
    const bool is_whole = message != nullptr && has_payload && size - 1 >= 12;
    require(port_sent == (value_is_known && is_whole), "a port notification against the rules");
    require(platform.requests.size() == 1, "the port manager is asked once an event");
    return 0;
}
