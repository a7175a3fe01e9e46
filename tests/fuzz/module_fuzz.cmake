# The module against replies of any kind, on the scripted platform of the unit tests.
if(NOT TARGET scripted_module)
  include(${PROJECT_SOURCE_DIR}/tests/unit/scripted_module.cmake)
endif()
add_fuzzer(fuzz_manager_reply fuzz_manager_reply.cpp LIBS scripted_module vsanmib_objects)
