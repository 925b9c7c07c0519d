# kelscan plan fine / plan track: exact output on small plans, drawings, and one line with exit
# status 2 on bad input.

include(${CMAKE_CURRENT_LIST_DIR}/lib/check.cmake)

file(MAKE_DIRECTORY ${WORK})

# 3 x 3 box in serpentine order; 9 targets at 6.39325 s each + 60 s set-up = 117.5 -> 118 s.
expect_output("index,H_deg,V_deg\n0,10.000000,80.000000\n1,12.000000,80.000000\n2,14.000000,80.000000\n3,14.000000,81.000000\n4,12.000000,81.000000\n5,10.000000,81.000000\n6,10.000000,82.000000\n7,12.000000,82.000000\n8,14.000000,82.000000\n# targets: 9\n# time: 118 s (00:01:58)\n"
    plan fine --start 80 10 --end 82 14 --spacing 1 2)
# Across north, already set up (mode 1): 350, 355, ..., 370; 5 x 6.39625 = 31.98 -> 32 s.
expect_output("index,H_deg,V_deg\n0,350.000000,90.000000\n1,355.000000,90.000000\n2,360.000000,90.000000\n3,365.000000,90.000000\n4,370.000000,90.000000\n# targets: 5\n# time: 32 s (00:00:32)\n"
    plan fine --start 90 350 --end 90 10 --spacing 1 5 --mode 1)
# Packed DDD.MMSS gives the same plan as decimal degrees.
run_kelscan(dms rc err plan fine --start 80.3 10.15 --end 81.3 11.4530 --spacing 0.15 0.1530 --dms)
run_kelscan(dec rc2 err2 plan fine --start 80.5 10.25 --end 81.5 11.758333333333 --spacing 0.25 0.258333333333)
if(NOT rc EQUAL 0 OR NOT dms STREQUAL dec)
    message(FATAL_ERROR "plan fine --dms differs from the decimal plan:\n${dms}\n---\n${dec}")
endif()
# One line, 90 degrees at 14.21266548 deg/s: 6 s + 10 s turn-around; 91 points at 1 degree.
expect_output("line,V_deg,start_H_deg,end_H_deg\n0,80.000000,0.000000,90.000000\n# lines: 1, points: 91\n# time: 16 s (00:00:16) at speed 100 (14.212665 deg/s)\n"
    plan track --start 80 0 --end 80 90 --spacing 1 1 --speed 100 --family halvex)

# The sample region: a drawing with the region, the targets and the path.
run_kelscan(out rc err plan fine --start 80 350 --end 95 20 --spacing 0.5 0.5
    --region ${DATA}/region.csv --svg ${WORK}/fine.svg)
if(NOT rc EQUAL 0 OR NOT out MATCHES "# targets: [0-9]+\n# time: [0-9]+ s")
    message(FATAL_ERROR "plan fine over region.csv: rc=${rc}\n${err}")
endif()
file(READ ${WORK}/fine.svg svg)
string(REGEX MATCHALL "<circle" circles "${svg}")
list(LENGTH circles ncircles)
string(REGEX MATCH "# targets: ([0-9]+)" m "${out}")
math(EXPR want "${CMAKE_MATCH_1} + 1")  # every target plus the start marker
if(NOT svg MATCHES "<polygon" OR NOT svg MATCHES "<polyline" OR NOT ncircles EQUAL want)
    message(FATAL_ERROR "fine.svg: ${ncircles} circles, want ${want}")
endif()
run_kelscan(out rc err plan track --start 80 350 --end 95 20 --spacing 0.5 0.05 --speed 12
    --family quorin --region ${DATA}/region.csv --svg ${WORK}/track.svg)
string(REGEX MATCH "# lines: ([0-9]+)" m "${out}")
set(nlines "${CMAKE_MATCH_1}")
file(READ ${WORK}/track.svg svg)
string(REGEX MATCHALL "<line " sweeps "${svg}")
list(LENGTH sweeps nsweeps)
if(NOT rc EQUAL 0 OR NOT nsweeps EQUAL nlines OR nsweeps LESS 31)
    message(FATAL_ERROR "plan track over region.csv: rc=${rc}, ${nsweeps} sweeps\n${out}${err}")
endif()

expect_bad_input("--start: \"x\" is not a number" plan fine --start 80 x --end 1 1 --spacing 1 1)
expect_bad_input("--spacing: \"1..5\" is not a number"
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
