# SPDX-License-Identifier: Apache-2.0
# Tests of the virtual switch's own part of the agent. Its sources are compiled into the test, with
# a scripted switch and extension library behind them (switchmib_fake_platform.cpp).
find_package(GTest REQUIRED)
include(GoogleTest)

get_target_property(switchmib_sources switchmib UNIT_TEST_SOURCES)
get_target_property(switchmib_definitions switchmib UNIT_TEST_DEFINITIONS)
add_executable(switchmib_test
  switchmib_client_faults_test.cpp
  switchmib_columns_test.cpp
  switchmib_fake_platform.cpp
  switchmib_link_test.cpp
  switchmib_loading_test.cpp
  switchmib_port_test.cpp
  switchmib_text_test.cpp
  ${switchmib_sources})
target_include_directories(switchmib_test PRIVATE ${PROJECT_SOURCE_DIR}/agent ${PROJECT_SOURCE_DIR}/platform)
target_compile_definitions(switchmib_test PRIVATE ${switchmib_definitions})
target_link_libraries(switchmib_test PRIVATE platform_include contract netsnmp_agent GTest::gtest)
gtest_discover_tests(switchmib_test TEST_PREFIX switchmib. PROPERTIES TIMEOUT 60)
