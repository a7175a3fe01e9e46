# SPDX-License-Identifier: Apache-2.0
# Tests of the tool's scenarios: their reader, and the order in which their lines act.

find_package(fmt REQUIRED)

set(tool ${PROJECT_SOURCE_DIR}/virtual_switch/tool)
add_executable(
  scenario_tests
  duration_test.cpp
  scenario_test.cpp
  timeline_test.cpp
  ${tool}/client.cpp
  ${tool}/duration.cpp
  ${tool}/nearest.cpp
  ${tool}/scenario.cpp
  ${tool}/scenario_words.cpp
  ${tool}/table.cpp
  ${tool}/timeline.cpp)
target_include_directories(scenario_tests PRIVATE ${PROJECT_SOURCE_DIR}/platform ${PROJECT_SOURCE_DIR}/virtual_switch)
target_link_libraries(scenario_tests PRIVATE contract mts fmt::fmt GTest::gtest_main)
# Parameters are texts that do not make test names.
gtest_discover_tests(scenario_tests TEST_PREFIX vswitchctl. NO_PRETTY_VALUES PROPERTIES TIMEOUT 60)
