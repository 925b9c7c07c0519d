# Installs the build tree into a scratch prefix, then builds and runs the consumer against it,
# and runs the installed program's demo on the installed sample data. Nothing points the
# library at its codec module: it must find it by itself.
unset(ENV{KELSCAN_PLUGIN_PATH})
unset(ENV{KELSCAN_DATA})
file(REMOVE_RECURSE ${WORK_DIR})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}/prefix
    RESULT_VARIABLE rc OUTPUT_QUIET)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "install failed")
endif()
# A cross build configures the consumer with its toolchain and runs the programs through the
# emulator (EMULATOR is then a list: the program and its options).
set(toolchain "")
if(TOOLCHAIN)
    set(toolchain -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN})
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/build -G ${GENERATOR}
    -DCMAKE_CXX_COMPILER=${CXX} ${toolchain} -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix
    RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "consumer configure failed")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK_DIR}/build RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "consumer build failed")
endif()
execute_process(COMMAND ${EMULATOR} ${WORK_DIR}/build/consumer WORKING_DIRECTORY ${WORK_DIR}
    RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "consumer run failed")
endif()

# The installed program finds the installed sample data, not the source tree's.
set(kelscan ${WORK_DIR}/prefix/bin/kelscan)
if(EXISTS ${kelscan})
    execute_process(COMMAND ${EMULATOR} ${kelscan} demo --help OUTPUT_VARIABLE help RESULT_VARIABLE rc)
    string(FIND "${help}" "${WORK_DIR}/prefix/share/kelscan" at)
    if(NOT rc EQUAL 0 OR at EQUAL -1)
        message(FATAL_ERROR "the installed demo does not default to the installed data:\n${help}")
    endif()
    execute_process(COMMAND ${EMULATOR} ${kelscan} demo WORKING_DIRECTORY ${WORK_DIR}
        OUTPUT_QUIET RESULT_VARIABLE rc)
    if(NOT rc EQUAL 0)
        message(FATAL_ERROR "the installed demo failed (${rc})")
    endif()
endif()
