# SPDX-License-Identifier: Apache-2.0
# Tests of the agent extension library. Its sources are compiled into the test, so
# that its inner functions can be called and the message service behind it is
# scripted (oryx_fake_platform.cpp).
find_package(GTest REQUIRED)
include(GoogleTest)

get_target_property(oryx_sources netsnmpagent_oryx UNIT_TEST_SOURCES)
add_executable(oryx_test
  oryx_agent.cpp
  oryx_context_test.cpp
  oryx_errors_test.cpp
  oryx_fake_platform.cpp
  oryx_free_pass_test.cpp
  oryx_front_handler_test.cpp
  oryx_module_loader_test.cpp
  oryx_notifications_test.cpp
  oryx_roles_test.cpp
  oryx_row_guard_test.cpp
  ${oryx_sources})
target_include_directories(oryx_test PRIVATE
  ${PROJECT_SOURCE_DIR}/platform/netsnmpagent_oryx
  ${PROJECT_SOURCE_DIR}/platform/mts)
target_compile_definitions(oryx_test PRIVATE
  VENDOR_PEN=${VENDOR_PEN}
  ORYX_PROBE_MODULE="$<TARGET_FILE:oryx_probe_module>")
target_link_libraries(oryx_test PRIVATE platform_include contract netsnmp_agent GTest::gtest ${CMAKE_DL_LIBS})

# Stands in for the module: something that can be seen to be loaded and unloaded.
add_library(oryx_probe_module MODULE oryx_probe_module.c)
set_target_properties(oryx_probe_module PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR})
add_dependencies(oryx_test oryx_probe_module)

gtest_discover_tests(oryx_test TEST_PREFIX oryx. PROPERTIES TIMEOUT 60)
