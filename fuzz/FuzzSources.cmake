# Pieces of the fuzz targets beyond the library, shared by the libFuzzer targets (fuzz/) and
# their corpus replays (tests/). CsvFuzz and PgmFuzz run the program's own readers, so they
# build its sources in (tools/, with CLI11), once, as kelscan_fuzz_program.
function(kelscan_fuzz_extras target name)
    if(NOT name STREQUAL "CsvFuzz" AND NOT name STREQUAL "PgmFuzz")
        return()
    endif()
    if(NOT TARGET kelscan_fuzz_program)
        find_package(CLI11 CONFIG REQUIRED)
        find_package(Threads REQUIRED)
        set(dir ${PROJECT_SOURCE_DIR}/fuzz/program)
        add_library(kelscan_fuzz_program STATIC ${dir}/ProgramMain.cpp
            ${dir}/ProgramReadersTin.cpp ${dir}/ProgramReadersOrient.cpp
            ${PROJECT_SOURCE_DIR}/tools/CliCsv.cpp ${PROJECT_SOURCE_DIR}/tools/CliOutput.cpp)
        target_include_directories(kelscan_fuzz_program PUBLIC ${PROJECT_SOURCE_DIR}/tools
            ${PROJECT_SOURCE_DIR}/fuzz)
        target_link_libraries(kelscan_fuzz_program PUBLIC kelscan::kelscan CLI11::CLI11
            Threads::Threads)
        target_compile_definitions(kelscan_fuzz_program PRIVATE
            KELSCAN_DEFAULT_DATA_DIR="${KELSCAN_DATA_DIR}" KELSCAN_DATA_FROM_BIN="." KELSCAN_VERSION="${PROJECT_VERSION}"
            KELSCAN_INSTALL_DATA_DIR="${KELSCAN_DATA_DIR}")
        kelscan_warnings(kelscan_fuzz_program)
    endif()
    target_link_libraries(${target} PRIVATE kelscan_fuzz_program)
endfunction()
