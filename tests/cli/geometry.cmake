# kelscan angles / polygon: exact output on good input, one line and exit status 2 on bad input.

include(${CMAKE_CURRENT_LIST_DIR}/lib/check.cmake)

file(MAKE_DIRECTORY ${WORK})

expect_output("name,H_deg,V_deg,H_dddmmss,V_dddmmss\n,315.000000,45.000000,315.000000000,45.000000000\n"
    angles hv --station 0 0 0 --target 10 -10 14.142135623730951)
expect_output("10.300000000\n" angles convert 10.5 --to dms)
expect_output("349.300000000\n" angles convert -10.5 --to dms --reduce)
# The packed value holds 9 decimals (seconds to 5): all of them are printed.
expect_output("359.595999996\n" angles convert 359.99999999 --to dms)
expect_output("quantity,value\nangle_deg,10.500000000000002\n" angles convert 10.3 --to deg --format csv)

# Numbered points are named: one field more than the coordinates is a name, whatever it holds.
file(WRITE ${WORK}/numbered.csv "name,north,east,height\n100,0,0,0\n7,10,-10,14.142135623730951\nB2,0,10,0\n")
expect_output("name,H_deg,V_deg,H_dddmmss,V_dddmmss\n7,315.000000,45.000000,315.000000000,45.000000000\nB2,90.000000,90.000000,90.000000000,90.000000000\n"
    angles hv --file ${WORK}/numbered.csv)
expect_output("{\n  \"targets\": [\n    {\"name\": \"7\", \"H_deg\": 315, \"V_deg\": 45, \"H_dddmmss\": 315, \"V_dddmmss\": 45},\n    {\"name\": \"B2\", \"H_deg\": 90, \"V_deg\": 90, \"H_dddmmss\": 90, \"V_dddmmss\": 90}\n  ]\n}\n"
    angles hv --file ${WORK}/numbered.csv --format json)
file(WRITE ${WORK}/long.csv "0,0,0\nA,1,2,3,4\n")
expect_bad_input("${WORK}/long.csv:2: expected [name,]north,east,height, found 5 fields"
    angles hv --file ${WORK}/long.csv)
# Non-finite and overflowing numbers on the command line are refused.
expect_bad_input("--station: \"nan\" is not a finite number" angles hv --station 0 nan 0 --target 1 1 1)
expect_bad_input("--height: \"1e999\" is not a finite number"
    angles hv --station 0 0 0 --target 1 1 1 --height 1e999)
expect_bad_input("\"inf\" is not a number" angles convert inf --to dms)
expect_output("10.500000000\n" angles convert 370.3 --to deg --reduce)

file(WRITE ${WORK}/square.csv "x,y\n0,0\n1,0\n1,1\n0,1\n")
expect_output("name,x,y,inside\n,1.000000,0.500000,inside\n,0.000000,0.500000,outside\n,0.500000,0.000000,inside\n,0.500000,1.000000,outside\n"
    polygon inside ${WORK}/square.csv --point 1,0.5 --point 0,0.5 --point 0.5,0 --point 0.5,1)
file(WRITE ${WORK}/probes.csv "12,0.5,0.5\n13,2,2\n0.25,0.75\n")
expect_output("name,x,y,inside\n12,0.500000,0.500000,inside\n13,2.000000,2.000000,outside\n,0.250000,0.750000,inside\n"
    polygon inside ${WORK}/square.csv --points ${WORK}/probes.csv)
# A huge coordinate is printed in full, not cut at 63 characters.
run_kelscan(out rc err polygon inside ${WORK}/square.csv --point 1e300,0)
string(REGEX MATCH "^name,x,y,inside\n,1[0-9][0-9][0-9][0-9][0-9][0-9][0-9][0-9][0-9][0-9]+\\.000000,0\\.000000,outside\n$" m "${out}")
string(LENGTH "${out}" n)
if(NOT rc EQUAL 0 OR m STREQUAL "" OR NOT n EQUAL 343)  # header 16, then 1 + 301 digits + 25
    message(FATAL_ERROR "polygon inside 1e300: rc=${rc}\n${out}")
endif()
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
expect_bad_input("--point \"1:1\" is not x,y" polygon inside ${WORK}/square.csv --point 1:1)
file(WRITE ${WORK}/bad.csv "x,y\n0,0\n1,zz\n1,1\n")
expect_bad_input("${WORK}/bad.csv:3: \"zz\" is not a finite number" polygon spline ${WORK}/bad.csv)
file(WRITE ${WORK}/two.csv "0,0\n1,0\n")
expect_bad_input("${WORK}/two.csv: a polygon needs at least 3 vertices" polygon spline ${WORK}/two.csv)
file(WRITE ${WORK}/flat.csv "S,0,0,0\nUP,0,0,9\n")
expect_bad_input("target UP is straight above or below the station" angles hv --file ${WORK}/flat.csv)
run_kelscan(out rc err angles hv --station 0 0)
if(NOT rc EQUAL 2)
    message(FATAL_ERROR "a short --station gave exit ${rc}")
endif()
