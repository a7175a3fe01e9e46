// The interface tables, the timer table and the notifications are registered and
// answer nothing yet.

#include "module_test.h"

namespace {

using LaterTables = ModuleTest;

TEST_F(LaterTables, AnswerNothingAndCostNoRequest) {
    for (const uint8_t magic : bytes{16, 17, 30, 38, 39, 40, 41, 42}) {
        SCOPED_TRACE(int{magic});
        registered_object object(magic);
        for (const oid_name &name : {object.name(), object.instance({1}), object.instance({10, 16777216})}) {
            EXPECT_FALSE(object.get(name).present);
            EXPECT_FALSE(object.get_next(name).present);
            EXPECT_EQ(object.get(name).write_method, nullptr);
        }
    }
    EXPECT_TRUE(platform.requests.empty());
}

TEST_F(LaterTables, EventsSendNothing) {
    for (const uint32_t event_class : {145u, 102u}) {
        oid trap[MAX_OID_LEN] = {};
        size_t length = 0;
        int send = 1;
        EXPECT_EQ(platform.notifications.at(event_class)(nullptr, trap, &length, &send), nullptr);
        EXPECT_EQ(send, 0);
    }
    EXPECT_TRUE(platform.requests.empty());
}

} // namespace
