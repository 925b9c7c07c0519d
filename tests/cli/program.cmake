# kelscan as a whole: --version, unknown commands, the same output under a comma-decimal locale,
# output files written safely (never over an input, never half), and "-" for stdin and stdout.
include(${CMAKE_CURRENT_LIST_DIR}/lib/check.cmake)
set(W ${WORK}/program)
file(REMOVE_RECURSE ${W})
file(MAKE_DIRECTORY ${W})

run_kelscan(out rc err --version)
if(NOT rc EQUAL 0 OR NOT out MATCHES "^kelscan [0-9]+\\.[0-9]+\\.[0-9]+\n$")
    message(FATAL_ERROR "--version: rc=${rc} [${out}]")
endif()
expect_bad_input("unknown command \"frob\" (kelscan --help lists the commands)" frob)
expect_bad_input("unknown command \"tin frob\" (kelscan tin --help lists the commands)" tin frob)
expect_bad_input("${W} is a folder, not a file" polygon spline ${W})

# Every number is written and read the same under a comma-decimal locale.
execute_process(COMMAND locale -a OUTPUT_VARIABLE locales ERROR_QUIET)
string(REGEX MATCH "(de_DE|fr_FR|nl_NL|es_ES|it_IT|ru_RU)\\.(utf8|UTF-8)" comma_locale "${locales}")
if(comma_locale STREQUAL "")
    message(STATUS "skipped the locale comparison: no comma-decimal locale is installed")
else()
    file(WRITE ${W}/src.csv "A,0,0\nB,10,0.5\nC,0,10\n")
    file(WRITE ${W}/tgt.csv "A,100,0\nB,99,20.25\nC,80,0\n")
    foreach(cmd
            "angles;hv;--station;0;0;0;--target;10;-10;1.5;--height;1.55"
            "angles;convert;10.5;--to;dms"
            "plan;fine;--start;80;10;--end;82.5;14;--spacing;0.5;1.5"
            "plan;track;--start;80;0;--end;80;90;--spacing;1;1;--speed;100;--family;halvex;--format;json"
            "polygon;spline;${DATA}/outline.csv;--samples;2;--format;csv"
            "helmert;--target;${W}/tgt.csv;--source;${W}/src.csv"
            "sdb;dump;${DATA}/scan.dbs"
            "tin;build;${DATA}/terrain.csv;--breaklines;${DATA}/breaklines.csv;-o;-;--format;csv")
        execute_process(COMMAND ${KELSCAN} ${cmd} OUTPUT_VARIABLE c_out RESULT_VARIABLE c_rc
                        ERROR_VARIABLE c_err)
        execute_process(COMMAND ${CMAKE_COMMAND} -E env LC_ALL=${comma_locale} ${KELSCAN} ${cmd}
                        OUTPUT_VARIABLE l_out RESULT_VARIABLE l_rc ERROR_VARIABLE l_err)
        if(NOT c_rc EQUAL 0 OR NOT l_rc EQUAL 0 OR NOT c_out STREQUAL l_out)
            message(FATAL_ERROR "kelscan ${cmd} under ${comma_locale}: rc ${c_rc}/${l_rc}\n"
                "C:\n${c_out}${c_err}\n${comma_locale}:\n${l_out}${l_err}")
        endif()
    endforeach()
endif()

# An output that is one of the inputs is refused and left as it was.
file(COPY_FILE ${DATA}/terrain.csv ${W}/points.csv)
run_kelscan(out rc err tin build ${W}/points.csv -o ${W}/site.tin --name S)
file(SHA256 ${W}/points.csv before)
expect_bad_input("${W}/./points.csv is also an input: write the result to another file"
    tin build ${W}/points.csv -o ${W}/./points.csv)
expect_bad_input("${W}/points.csv is also an input: write the result to another file"
    tin svg ${W}/site.tin --breaklines ${W}/points.csv -o ${W}/points.csv)
file(SHA256 ${W}/points.csv after)
if(NOT before STREQUAL after)
    message(FATAL_ERROR "an output named as an input changed the input")
endif()

# A write that fails half-way (here at the file size limit) leaves the previous file whole and
# no temporary file behind.
run_kelscan(out rc err tin export ${W}/site.tin -o ${W}/site.ply)
file(SHA256 ${W}/site.ply before)
execute_process(COMMAND sh -c "trap '' XFSZ; ulimit -f 4; exec \"$0\" \"$@\""
                ${KELSCAN} tin export ${W}/site.tin -o ${W}/site.ply --to obj
                RESULT_VARIABLE rc ERROR_VARIABLE err)
file(SHA256 ${W}/site.ply after)
file(GLOB leftovers ${W}/.site*)
if(rc EQUAL 0 OR NOT before STREQUAL after OR leftovers)
    message(FATAL_ERROR "a failed export: rc=${rc} ${err}, file changed or [${leftovers}] left")
endif()

# "-": points from standard input, the surface to standard output (the report to stderr).
execute_process(COMMAND ${KELSCAN} tin build - -o - --name S INPUT_FILE ${W}/points.csv
                OUTPUT_FILE ${W}/piped.tin RESULT_VARIABLE rc ERROR_VARIABLE err)
file(SHA256 ${W}/piped.tin piped)
file(SHA256 ${W}/site.tin direct)
if(NOT rc EQUAL 0 OR NOT piped STREQUAL direct OR NOT err MATCHES "Wrote - \\(surface")
    message(FATAL_ERROR "tin build - -o -: rc=${rc}\n${err}")
endif()
