# The imaging tests encode their JPEGs with libjpeg and their PNGs with libpng, and need the
# codec module built beside them.
find_package(JPEG REQUIRED)
target_sources(test_imaging PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/imaging/ImageFiles.cpp)
target_link_libraries(test_imaging PRIVATE JPEG::JPEG PNG::PNG)
if(TARGET kelscan_jpeg)
    add_dependencies(test_imaging kelscan_jpeg)
    if(TARGET kelscan_cli)
        add_dependencies(kelscan_cli kelscan_jpeg)
    endif()
endif()

# The same library without the module beside the program: every JPEG load fails with 5. A
# shared build finds the module beside libkelscan, so there the check cannot be made.
if(NOT BUILD_SHARED_LIBS)
    add_executable(test_imaging_nocodec ${CMAKE_CURRENT_SOURCE_DIR}/imaging/NoCodecCheck.cpp
        ${CMAKE_CURRENT_SOURCE_DIR}/imaging/ImageFiles.cpp)
    target_link_libraries(test_imaging_nocodec PRIVATE kelscan_testing GTest::gtest_main JPEG::JPEG)
    set_target_properties(test_imaging_nocodec PROPERTIES
        RUNTIME_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/nocodec)
    kelscan_warnings(test_imaging_nocodec)
    gtest_discover_tests(test_imaging_nocodec DISCOVERY_TIMEOUT 60
        PROPERTIES ENVIRONMENT "KELSCAN_ROOT=${CMAKE_CURRENT_BINARY_DIR}/root-unset")
endif()
