# SPDX-License-Identifier: Apache-2.0
# The module against replies and events of any kind, on the scripted platform of the unit
# tests.
if(NOT TARGET scripted_module)
  include(${PROJECT_SOURCE_DIR}/tests/unit/scripted_module.cmake)
endif()
add_fuzzer(fuzz_manager_reply fuzz_manager_reply.cpp LIBS scripted_module vsanmib_objects)

# With the platform's own VSAN library, which counts instead of the scripted one.
add_fuzzer(fuzz_event_callback fuzz_event_callback.cpp ${PROJECT_SOURCE_DIR}/platform/vsan/vsan.cpp
           LIBS scripted_module vsanmib_objects)
target_include_directories(fuzz_event_callback PRIVATE ${PROJECT_SOURCE_DIR}/platform)
