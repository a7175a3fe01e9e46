# SPDX-License-Identifier: Apache-2.0
# What the virtual switch's own part of the agent reads from the switch.

add_fuzzer(fuzz_agent_records fuzz_agent_records.cpp ${PROJECT_SOURCE_DIR}/agent/agent_time.cpp
           ${PROJECT_SOURCE_DIR}/agent/client_fault.cpp ${PROJECT_SOURCE_DIR}/agent/port.cpp
           LIBS platform_include)
target_include_directories(fuzz_agent_records PRIVATE ${PROJECT_SOURCE_DIR})
target_link_libraries(fuzz_agent_records PRIVATE netsnmp_agent)
