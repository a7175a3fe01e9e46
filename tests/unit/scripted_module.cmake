# SPDX-License-Identifier: Apache-2.0
# The module's surroundings for a program that plays both the agent and the switch: the
# scripted platform, the agent's side, and the agent's own libraries. What the module
# calls in the agent's library and in libc is redirected where somebody has to see it.
# Link it together with vsanmib_objects.
add_library(scripted_module INTERFACE)
target_sources(scripted_module INTERFACE ${CMAKE_CURRENT_LIST_DIR}/agent_calls.cpp
                                         ${CMAKE_CURRENT_LIST_DIR}/scripted_platform.cpp)
target_include_directories(scripted_module INTERFACE ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(scripted_module INTERFACE platform_include netsnmp_agent)
foreach(redirected register_mib unregister_mib snmp_set_detail snmp_get_do_debugging debugmsgtoken debugmsg
        netsnmp_timeval_uptime malloc calloc free)
  target_link_options(scripted_module INTERFACE -Wl,--wrap=${redirected})
endforeach()
