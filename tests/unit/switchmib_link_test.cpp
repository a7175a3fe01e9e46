// SPDX-License-Identifier: Apache-2.0
#include <vector>

#include <gtest/gtest.h>

#include "contract/big_endian.h"
#include "link_notifications.h"
#include "switchmib_fake_platform.h"

namespace {

mts_message event(uint32_t which, uint32_t oper, uint32_t traps = PORT_TRAPS_ENABLED) {
    mts_message message = {std::vector<uint8_t>(PORT_CHANGED_SIZE)};
    write_be32(&message.payload[PORT_CHANGED_IF_INDEX], 7);
    write_be32(&message.payload[PORT_CHANGED_WHICH], which);
    write_be32(&message.payload[PORT_CHANGED_ADMIN], PORT_DOWN);
    write_be32(&message.payload[PORT_CHANGED_OPER], oper);
    write_be32(&message.payload[PORT_CHANGED_TRAPS], traps);
    return message;
}

// The last arc of the notification that an event becomes; 0 for none.
oid notified(const mts_message *message, std::vector<long> *values = nullptr) {
    oid name[MAX_OID_LEN];
    size_t length = 0;
    int send = 1;
    netsnmp_variable_list *bindings = switch_agent::notify_of_link(message, name, &length, &send);
    if (values) {
        for (const netsnmp_variable_list *one = bindings; one && one->type == ASN_INTEGER; one = one->next_variable) {
            values->push_back(*one->val.integer);
        }
    }
    EXPECT_EQ(send == 1, bindings != nullptr);
    snmp_free_varbind(bindings);
    return send == 1 ? name[length - 1] : 0;
}

TEST(LinkNotification, NamesThePortAndBothItsStates) {
    std::vector<long> values;
    const mts_message down = event(PORT_CHANGE_OPER | PORT_CHANGE_ADMIN, PORT_DOWN),
                      up = event(PORT_CHANGE_OPER, PORT_UP);
    EXPECT_EQ(notified(&down, &values), oid{3});
    EXPECT_EQ(values, (std::vector<long>{7, PORT_DOWN, PORT_DOWN}));
    EXPECT_EQ(notified(&up), oid{4});
}

TEST(LinkNotification, IsMadeOfAChangeOfTheOperationalStateOnly) {
    const mts_message alias = event(PORT_CHANGE_ALIAS | PORT_CHANGE_ADMIN | PORT_CHANGE_TRAFFIC, PORT_DOWN);
    EXPECT_EQ(notified(&alias), oid{0});
}

TEST(LinkNotification, IsNotMadeWhereNobodyWantsIt) {
    const mts_message unwanted = event(PORT_CHANGE_OPER, PORT_DOWN, PORT_TRAPS_DISABLED);
    EXPECT_EQ(notified(&unwanted), oid{0});
}

TEST(LinkNotification, IsNotMadeOfWhatIsNoEvent) {
    EXPECT_EQ(notified(nullptr), oid{0});
    const mts_message state = event(PORT_CHANGE_OPER, 7);
    EXPECT_EQ(notified(&state), oid{0});
    for (const size_t size : {size_t{0}, size_t{4}, size_t{PORT_CHANGED_SIZE} - 1, size_t{PORT_CHANGED_SIZE} + 1}) {
        mts_message message = event(PORT_CHANGE_OPER, PORT_DOWN);
        message.payload.resize(size);
        EXPECT_EQ(notified(&message), oid{0}) << size;
    }
}

} // namespace
