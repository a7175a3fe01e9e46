# SPDX-License-Identifier: Apache-2.0
# SNMP messages against the module inside a whole agent, with the virtual switch behind it.

get_target_property(oryx_sources netsnmpagent_oryx UNIT_TEST_SOURCES)
set(platform_sources ${PROJECT_SOURCE_DIR}/platform)
add_fuzzer(fuzz_snmp_pdu fuzz_snmp_pdu.cpp agent_in_process.cpp snmp_message.cpp switch_in_process.cpp
           ${PROJECT_SOURCE_DIR}/bench/ber.cpp ${oryx_sources}
           ${platform_sources}/indxobj/indxobj.cpp ${platform_sources}/pm/pm.cpp
           ${platform_sources}/syserr/syserr.cpp ${platform_sources}/sysmgr/sysmgr.cpp
           ${platform_sources}/tdx/tdx.cpp ${platform_sources}/vsan/vsan.cpp
           LIBS vsanmib_objects vswitch_core)
target_include_directories(fuzz_snmp_pdu PRIVATE ${PROJECT_SOURCE_DIR}/bench ${PROJECT_SOURCE_DIR}/tests/unit
                                                 ${platform_sources} ${platform_sources}/mts
                                                 ${platform_sources}/netsnmpagent_oryx)
target_link_libraries(fuzz_snmp_pdu PRIVATE netsnmp_agent ${CMAKE_DL_LIBS})
foreach(counted indxobj_add indxobj_remove)
  target_link_options(fuzz_snmp_pdu PRIVATE -Wl,--wrap=${counted})
endforeach()
