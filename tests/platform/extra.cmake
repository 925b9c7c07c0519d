# A tiny module for the run-time loading tests.
add_library(kel_testmodule MODULE ${CMAKE_CURRENT_SOURCE_DIR}/platform/TestModule.cpp)
set_target_properties(kel_testmodule PROPERTIES PREFIX "lib" OUTPUT_NAME "KEL_TESTMODULE"
    LIBRARY_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/modules)
add_dependencies(test_platform kel_testmodule)
target_compile_definitions(test_platform PRIVATE
    KELSCAN_TEST_MODULE_DIR="${CMAKE_CURRENT_BINARY_DIR}/modules")
