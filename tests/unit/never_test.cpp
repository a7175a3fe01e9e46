// SPDX-License-Identifier: Apache-2.0
// Branches that cannot be taken: what a build for tests makes of one, what is released does,
// and what a build that counts coverage leaves out.

#include <gtest/gtest.h>

// Whatever this build makes of it elsewhere.
#undef VSAN_NEVER_UNCOUNTED

#define VSAN_NEVER_TRAPS
#include "vsan_mib_never.h"

namespace {

bool trapping(bool condition) {
    return VSAN_NEVER(condition, "the test says so");
}

#undef VSAN_NEVER_TRAPS
#undef VSAN_NEVER
#undef VSAN_MIB_NEVER_H
#include "vsan_mib_never.h"

bool released(bool condition) {
    return VSAN_NEVER(condition, "the test says so");
}

#define VSAN_NEVER_UNCOUNTED
#undef VSAN_NEVER
#undef VSAN_MIB_NEVER_H
#include "vsan_mib_never.h"

bool uncounted(bool condition, int &evaluated) {
    return VSAN_NEVER((++evaluated, condition), "the test says so");
}

TEST(NeverDeathTest, ABuildForTestsEndsWhereTheBranchWouldBeTaken) {
    EXPECT_FALSE(trapping(false));
    EXPECT_DEATH(trapping(true), "taken, although the test says so");
}

TEST(Never, IsThePlainConditionInWhatIsReleased) {
    EXPECT_FALSE(released(false));
    EXPECT_TRUE(released(true));
}

TEST(Never, IsEvaluatedButNotTakenWhereCoverageIsCounted) {
    int evaluated = 0;
    EXPECT_FALSE(uncounted(true, evaluated));
    EXPECT_EQ(evaluated, 1);
}

} // namespace
