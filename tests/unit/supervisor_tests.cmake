# SPDX-License-Identifier: Apache-2.0
# The supervisor's rules; how it lives with real programs is an agent test's.

include(GoogleTest)
find_package(GTest REQUIRED)

add_executable(supervisor_test supervisor_test.cpp)
target_link_libraries(supervisor_test PRIVATE supervisor_core GTest::gtest_main)
gtest_discover_tests(supervisor_test TEST_PREFIX supervisor. PROPERTIES TIMEOUT 60)
