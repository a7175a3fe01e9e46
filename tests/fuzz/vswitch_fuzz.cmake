# SPDX-License-Identifier: Apache-2.0
# What the virtual switch reads from outside: its clients' bytes and its operator's files.

find_package(fmt REQUIRED)

add_fuzzer(fuzz_vswitchd_socket fuzz_vswitchd_socket.cpp LIBS vswitch_core)
add_fuzzer(fuzz_vswitchd_memory fuzz_vswitchd_memory.cpp LIBS vswitch_core)
add_fuzzer(fuzz_configuration fuzz_configuration.cpp LIBS vswitch_core)
add_fuzzer(fuzz_command fuzz_command.cpp LIBS vswitch_core)
