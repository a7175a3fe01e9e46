# SPDX-License-Identifier: Apache-2.0
# What the operator's tool reads: all of it but its main function.

find_package(fmt REQUIRED)

get_target_property(tool_sources vswitchctl SOURCES)
get_target_property(tool_folder vswitchctl SOURCE_DIR)
list(REMOVE_ITEM tool_sources main.cpp)
list(TRANSFORM tool_sources REPLACE "^([^/].*)$" "${tool_folder}/\\1")
add_fuzzer(fuzz_scenario fuzz_scenario.cpp ${tool_sources} LIBS mts vsan)
target_include_directories(fuzz_scenario PRIVATE ${PROJECT_SOURCE_DIR}/platform ${PROJECT_SOURCE_DIR}/virtual_switch)
target_compile_definitions(fuzz_scenario PRIVATE VSWITCH_VERSION="${PROJECT_VERSION}" VENDOR_PEN=${VENDOR_PEN}u)
target_link_libraries(fuzz_scenario PRIVATE fmt::fmt)
