# Helpers for the program's scripted tests: run kelscan, compare its output, and check that bad
# input gives exactly one line on stderr and exit status 2.

function(run_kelscan out_var rc_var err_var)
    execute_process(COMMAND ${KELSCAN} ${ARGN} OUTPUT_VARIABLE out ERROR_VARIABLE err
                    RESULT_VARIABLE rc)
    set(${out_var} "${out}" PARENT_SCOPE)
    set(${rc_var} "${rc}" PARENT_SCOPE)
    set(${err_var} "${err}" PARENT_SCOPE)
endfunction()

function(expect_output expected)
    run_kelscan(out rc err ${ARGN})
    if(NOT rc EQUAL 0 OR NOT out STREQUAL "${expected}")
        message(FATAL_ERROR "kelscan ${ARGN}: rc=${rc}\nout=[${out}]\nwant=[${expected}]\nerr=${err}")
    endif()
endfunction()

function(expect_bad_input expected_line)
    run_kelscan(out rc err ${ARGN})
    if(NOT rc EQUAL 2)
        message(FATAL_ERROR "kelscan ${ARGN}: exit ${rc}, want 2\n${err}")
    endif()
    if(NOT err STREQUAL "kelscan: ${expected_line}\n")
        message(FATAL_ERROR "kelscan ${ARGN}: stderr [${err}], want one line [kelscan: ${expected_line}]")
    endif()
endfunction()
