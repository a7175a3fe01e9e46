# SPDX-License-Identifier: Apache-2.0
# The virtual switch's tests: its library directly, and the daemon as a process.

include(GoogleTest)
find_package(GTest REQUIRED)
find_package(SQLiteCpp REQUIRED)
find_package(fmt REQUIRED)
find_package(Threads REQUIRED)

add_executable(
  vswitch_test
  vswitch_changes_roles_test.cpp
  vswitch_changes_test.cpp
  vswitch_changes_timers_test.cpp
  vswitch_changes_vsan_test.cpp
  vswitch_client_faults_test.cpp
  vswitch_commands_test.cpp
  vswitch_configuration_test.cpp
  vswitch_configuration_text_test.cpp
  vswitch_daemon_test.cpp
  vswitch_difference_test.cpp
  vswitch_events_test.cpp
  vswitch_faults_test.cpp
  vswitch_frames_test.cpp
  vswitch_memory_hostile_test.cpp
  vswitch_memory_test.cpp
  vswitch_parcels_test.cpp
  vswitch_ports_test.cpp
  vswitch_requests_test.cpp
  vswitch_rooms_test.cpp
  vswitch_server_test.cpp
  vswitch_store_test.cpp
  vswitch_transaction_test.cpp
  vswitch_transfer_test.cpp)
target_link_libraries(vswitch_test PRIVATE vswitch_core GTest::gtest_main SQLiteCpp fmt::fmt Threads::Threads)
# Which file includes which is read in the sources.
target_compile_definitions(vswitch_test PRIVATE SWITCH_SOURCES="${PROJECT_SOURCE_DIR}/virtual_switch")
# The daemon is started from the folder that the test itself is in.
add_dependencies(vswitch_test vswitchd)
# Parameters are texts that do not make test names.
gtest_discover_tests(vswitch_test TEST_PREFIX vswitch. NO_PRETTY_VALUES PROPERTIES TIMEOUT 60)
