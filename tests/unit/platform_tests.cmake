# SPDX-License-Identifier: Apache-2.0
# Tests of the platform libraries, against the libraries as they are built, and for
# what these do not give away, against their sources.
find_package(Threads REQUIRED)

set(platform_tests_folder ${CMAKE_CURRENT_LIST_DIR})

# platform_test(NAME LIBRARIES... [SOURCES files of the platform]): the tests of
# NAME_test.cpp.
function(platform_test name)
  cmake_parse_arguments(PARSE_ARGV 1 test "" "" "SOURCES")
  list(TRANSFORM test_SOURCES PREPEND ${PROJECT_SOURCE_DIR}/platform/)
  add_executable(${name}_test ${platform_tests_folder}/${name}_test.cpp ${test_SOURCES})
  target_include_directories(${name}_test PRIVATE ${PROJECT_SOURCE_DIR}/platform ${platform_tests_folder})
  target_link_libraries(${name}_test PRIVATE ${test_UNPARSED_ARGUMENTS} platform_include contract GTest::gtest_main
                                             Threads::Threads)
  gtest_discover_tests(${name}_test PROPERTIES TIMEOUT 60)
endfunction()

find_package(GTest REQUIRED)
include(GoogleTest)

platform_test(platform_mts mts)
platform_test(platform_mts_hung mts)
platform_test(platform_mts_counters mts)
platform_test(platform_mts_listener mts)
platform_test(platform_mts_events mts)
platform_test(platform_mts_memory mts)
platform_test(platform_mts_memory_hostile mts)
platform_test(platform_indxobj indxobj)
platform_test(platform_services mts pm syserr sysmgr tdx vsan)
platform_test(platform_sdwrap sdwrap SOURCES sdwrap/history_line.cpp)
platform_test(platform_history_line SOURCES sdwrap/history_line.cpp)
platform_test(mts_shared)
platform_test(platform_debug_filters SOURCES sdwrap/debug_filters.cpp)

# Linked in as sources, so that their calls of these functions can be led to the tests.
set(mts_sources mts/mts.cpp mts/mts_counters.cpp mts/mts_events.cpp mts/mts_frame.cpp mts/mts_memory.cpp mts/mts_stream.cpp)
platform_test(platform_oom SOURCES indxobj/indxobj.cpp ${mts_sources})
target_link_options(platform_oom_test PRIVATE -Wl,--wrap=malloc)
platform_test(platform_mts_grace SOURCES ${mts_sources})
target_link_options(platform_mts_grace_test PRIVATE -Wl,--wrap=clock_gettime,--wrap=ppoll)

# The libraries bring nothing into the agent but libc and each other. Sanitizers
# would bring their own.
if(NOT SANITIZE)
  foreach(library mts indxobj sdwrap syserr sysmgr tdx vsan pm)
    add_test(NAME platform.needs_only_libc.${library}
             COMMAND sh -c "! \"$1\" -d \"$2\" | grep NEEDED | grep -vE '\\[lib(c|mts)\\.so'" sh ${CMAKE_READELF}
                     $<TARGET_FILE:${library}>)
  endforeach()
endif()
