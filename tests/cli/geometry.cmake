# kelscan angles / polygon: exact output on good input, one line and exit status 2 on bad input.

include(${CMAKE_CURRENT_LIST_DIR}/lib/check.cmake)

file(MAKE_DIRECTORY ${WORK})

expect_output("name,H_deg,V_deg,H_dddmmss,V_dddmmss\n,315.000000,45.000000,315.00000000,45.00000000\n"
    angles hv --station 0 0 0 --target 10 -10 14.142135623730951)
expect_output("10.30000000\n" angles convert 10.5 --to dms)
expect_output("349.30000000\n" angles convert -10.5 --to dms --reduce)
expect_output("10.500000000\n" angles convert 370.3 --to deg --reduce)

file(WRITE ${WORK}/square.csv "x,y\n0,0\n1,0\n1,1\n0,1\n")
expect_output("name,x,y,inside\n,1.000000,0.500000,inside\n,0.000000,0.500000,outside\n,0.500000,0.000000,inside\n,0.500000,1.000000,outside\n"
    polygon inside ${WORK}/square.csv --point 1,0.5 --point 0,0.5 --point 0.5,0 --point 0.5,1)
run_kelscan(out rc err polygon spline ${WORK}/square.csv --kind catmull-rom --samples 2)
string(REGEX MATCHALL "\n" newlines "${out}")
list(LENGTH newlines n)
if(NOT rc EQUAL 0 OR NOT n EQUAL 10)  # header + 4 spans x 2 + the closing sample
    message(FATAL_ERROR "polygon spline: rc=${rc}, ${n} lines\n${out}")
endif()

expect_bad_input("the target is straight above or below the station"
    angles hv --station 0 0 0 --target 0 0 5)
expect_bad_input("\"abc\" is not a number" angles convert abc --to dms)
expect_bad_input("cannot read ${WORK}/missing.csv" polygon inside ${WORK}/missing.csv --point 1,1)
expect_bad_input("--point \"1:1\" is not X,Y" polygon inside ${WORK}/square.csv --point 1:1)
file(WRITE ${WORK}/bad.csv "x,y\n0,0\n1,zz\n1,1\n")
expect_bad_input("${WORK}/bad.csv:3: \"zz\" is not a number" polygon spline ${WORK}/bad.csv)
file(WRITE ${WORK}/two.csv "0,0\n1,0\n")
expect_bad_input("${WORK}/two.csv: a polygon needs at least 3 vertices" polygon spline ${WORK}/two.csv)
file(WRITE ${WORK}/flat.csv "S,0,0,0\nUP,0,0,9\n")
expect_bad_input("target UP is straight above or below the station" angles hv --file ${WORK}/flat.csv)
run_kelscan(out rc err angles hv --station 0 0)
if(NOT rc EQUAL 2)
    message(FATAL_ERROR "a short --station gave exit ${rc}")
endif()
