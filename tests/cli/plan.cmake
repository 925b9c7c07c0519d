# kelscan plan fine / plan track: exact output on small plans, drawings, and one line with exit
# status 2 on bad input.

include(${CMAKE_CURRENT_LIST_DIR}/lib/check.cmake)

file(MAKE_DIRECTORY ${WORK})

# 3 x 3 box in serpentine order; 9 targets at 6.39325 s each + 60 s set-up = 117.5 -> 118 s.
expect_output("targets: 9\ntime: 118 s (00:01:58)\n\nindex,H_deg,V_deg\n0,10.000000,80.000000\n1,12.000000,80.000000\n2,14.000000,80.000000\n3,14.000000,81.000000\n4,12.000000,81.000000\n5,10.000000,81.000000\n6,10.000000,82.000000\n7,12.000000,82.000000\n8,14.000000,82.000000\n"
    plan fine --start 80 10 --end 82 14 --spacing 1 2)
# Across north, already set up (mode 1): 350, 355, 0, 5, 10 (printed within 0..360);
# 5 x 6.39625 = 31.98 -> 32 s. As csv: every number in full.
expect_output("targets: 5\ntime: 32 s (00:00:32)\n\nindex,H_deg,V_deg\n0,350.000000,90.000000\n1,355.000000,90.000000\n2,0.000000,90.000000\n3,5.000000,90.000000\n4,10.000000,90.000000\n"
    plan fine --start 90 350 --end 90 10 --spacing 1 5 --mode 1)
expect_output("quantity,value\ntargets,5\ntime_s,32\n\nindex,H_deg,V_deg\n0,350,90\n1,355,90\n2,0,90\n3,5,90\n4,10,90\n"
    plan fine --start 90 350 --end 90 10 --spacing 1 5 --mode 1 --format csv)
# Beyond 4266 targets the time formula falls: the estimate says so; beyond 8533 there is none.
run_kelscan(out rc err plan fine --start 80 0 --end 100 100 --spacing 0.25 1)
if(NOT rc EQUAL 0 OR NOT out MATCHES "^targets: 8181\ntime: 2222 s \\(00:37:02\\)\ntime warning: an underestimate: the time formula falls for more than 4266 targets\n")
    message(FATAL_ERROR "plan fine of 8181 targets: rc=${rc}\n${err}")
endif()
run_kelscan(out rc err plan fine --start 80 0 --end 100 100 --spacing 0.2 1 --format json)
if(NOT rc EQUAL 0 OR NOT out MATCHES "^{\n  \"targets\": 10201,\n  \"time_warning\": \"not estimated: more than 8533 targets\",\n  \"plan\": \\[")
    message(FATAL_ERROR "plan fine of 10201 targets: rc=${rc}\n${err}")
endif()
# Packed DDD.MMSS gives the same plan as decimal degrees.
run_kelscan(dms rc err plan fine --start 80.3 10.15 --end 81.3 11.4530 --spacing 0.15 0.1530 --dms)
run_kelscan(dec rc2 err2 plan fine --start 80.5 10.25 --end 81.5 11.758333333333 --spacing 0.25 0.258333333333)
if(NOT rc EQUAL 0 OR NOT dms STREQUAL dec)
    message(FATAL_ERROR "plan fine --dms differs from the decimal plan:\n${dms}\n---\n${dec}")
endif()
# One line, 90 degrees at 14.21266548 deg/s: 6 s + 10 s turn-around; 91 points at 1 degree.
expect_output("lines: 1\npoints: 91\ntime: 16 s (00:00:16)\nspeed: 100\nrate: 14.212665 deg/s\n\nline,V_deg,start_H_deg,end_H_deg\n0,80.000000,0.000000,90.000000\n"
    plan track --start 80 0 --end 80 90 --spacing 1 1 --speed 100 --family halvex)

# The sample region: a drawing with the region, the targets and the path.
run_kelscan(out rc err plan fine --start 80 350 --end 95 20 --spacing 0.5 0.5
    --region ${DATA}/region.csv --svg ${WORK}/fine.svg)
if(NOT rc EQUAL 0 OR NOT out MATCHES "^targets: [0-9]+\ntime: [0-9]+ s")
    message(FATAL_ERROR "plan fine over region.csv: rc=${rc}\n${err}")
endif()
file(READ ${WORK}/fine.svg svg)
string(REGEX MATCHALL "<circle" circles "${svg}")
list(LENGTH circles ncircles)
string(REGEX MATCH "targets: ([0-9]+)" m "${out}")
math(EXPR want "${CMAKE_MATCH_1} + 1")  # every target plus the start marker
if(NOT svg MATCHES "<polygon" OR NOT svg MATCHES "<polyline" OR NOT ncircles EQUAL want)
    message(FATAL_ERROR "fine.svg: ${ncircles} circles, want ${want}")
endif()
run_kelscan(out rc err plan track --start 80 350 --end 95 20 --spacing 0.5 0.05 --speed 12
    --family quorin --region ${DATA}/region.csv -o ${WORK}/track.svg)
string(REGEX MATCH "lines: ([0-9]+)" m "${out}")
set(nlines "${CMAKE_MATCH_1}")
file(READ ${WORK}/track.svg svg)
string(REGEX MATCHALL "<line " sweeps "${svg}")
list(LENGTH sweeps nsweeps)
if(NOT rc EQUAL 0 OR NOT nsweeps EQUAL nlines OR nsweeps LESS 31)
    message(FATAL_ERROR "plan track over region.csv: rc=${rc}, ${nsweeps} sweeps\n${out}${err}")
endif()

expect_bad_input("--start: \"x\" is not a finite number" plan fine --start 80 x --end 1 1 --spacing 1 1)
expect_bad_input("--end: \"inf\" is not a finite number" plan fine --start 80 0 --end inf 1 --spacing 1 1)
expect_bad_input("--start: zenith angle 200 is outside 0..180 degrees"
    plan fine --start 200 0 --end 90 10 --spacing 1 1)
expect_bad_input("--end: zenith angle 181.3 is outside 0..180 degrees"
    plan track --start 80 0 --end 181.3 10 --spacing 1 1 --dms --speed 40 --family halvex)
expect_bad_input("--spacing: \"1..5\" is not a finite number"
    plan track --start 80 0 --end 90 90 --spacing 1..5 1 --speed 40 --family halvex)
expect_bad_input("--mode \"3\" is not 0 or 1" plan fine --start 80 0 --end 80 90 --spacing 1 1 --mode 3)
expect_bad_input("--speed 17 is outside 1..16 for the quorin family"
    plan track --start 80 0 --end 80 90 --spacing 1 1 --speed 17 --family quorin)
expect_bad_input("--speed 0 is outside 1..127 for the halvex family"
    plan track --start 80 0 --end 80 90 --spacing 1 1 --speed 0 --family halvex)
expect_bad_input("--speed \"fast\" is not a whole number"
    plan track --start 80 0 --end 80 90 --spacing 1 1 --speed fast --family halvex)
expect_bad_input("nothing planned: the region or the box has no extent, or the grid is too large"
    plan fine --start 0 0 --end 100 100 --spacing 1e-6 1e-6)
file(WRITE ${WORK}/flat-region.csv "0,5\n4,5\n9,5\n")
expect_bad_input("nothing planned: the region or the box has no extent, or the grid is too large"
    plan fine --start 80 0 --end 90 10 --spacing 1 1 --region ${WORK}/flat-region.csv)
expect_bad_input("nothing planned: the region or the box has no extent, or there are too many lines"
    plan track --start 80 0 --end 90 10 --spacing 1 1 --speed 40 --family halvex --region ${WORK}/flat-region.csv)
file(WRITE ${WORK}/two-region.csv "0,0\n4,5\n")
expect_bad_input("${WORK}/two-region.csv: a region needs at least 3 vertices"
    plan fine --start 80 0 --end 90 10 --spacing 1 1 --region ${WORK}/two-region.csv)
expect_bad_input("cannot read ${WORK}/no-region.csv"
    plan fine --start 80 0 --end 90 10 --spacing 1 1 --region ${WORK}/no-region.csv)
expect_bad_input("cannot write ${WORK}/no-folder/plan.svg"
    plan fine --start 80 0 --end 90 10 --spacing 1 1 --svg ${WORK}/no-folder/plan.svg)
run_kelscan(out rc err plan fine --start 80 0 --end 90 10)
if(NOT rc EQUAL 2)
    message(FATAL_ERROR "plan fine without --spacing gave exit ${rc}")
endif()
