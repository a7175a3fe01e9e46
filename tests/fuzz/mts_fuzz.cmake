# SPDX-License-Identifier: Apache-2.0
# Fuzz targets of the platform libraries.

set(platform_sources ${PROJECT_SOURCE_DIR}/platform)

add_fuzzer(fuzz_mts_reply fuzz_mts_reply.cpp ${platform_sources}/mts/mts_frame.cpp)
set(mts_sources mts.cpp mts_counters.cpp mts_events.cpp mts_frame.cpp mts_memory.cpp mts_stream.cpp)
list(TRANSFORM mts_sources PREPEND ${platform_sources}/mts/)
find_package(Threads REQUIRED)
add_fuzzer(fuzz_mts_client fuzz_mts_client.cpp ${mts_sources} LIBS Threads::Threads)
add_fuzzer(fuzz_vsan_event fuzz_vsan_event.cpp ${platform_sources}/vsan/vsan.cpp)
add_fuzzer(fuzz_history_line fuzz_history_line.cpp ${platform_sources}/sdwrap/history_line.cpp)
add_fuzzer(fuzz_debug_filters fuzz_debug_filters.cpp ${platform_sources}/sdwrap/debug_filters.cpp)

foreach(fuzzer fuzz_mts_client fuzz_mts_reply fuzz_vsan_event fuzz_history_line fuzz_debug_filters)
  target_include_directories(${fuzzer} PRIVATE ${platform_sources} ${platform_sources}/include)
endforeach()
