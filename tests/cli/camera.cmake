# kelscan camera / helmert: output on the sample data, one line and exit status 2 on bad input.
include(${CMAKE_CURRENT_LIST_DIR}/lib/check.cmake)
file(MAKE_DIRECTORY ${WORK})

expect_output("radius_mm,correction_mm\n0.000000,0.000000\n1.000000,-0.002102\n2.000000,-0.015704\n"
    camera table ${DATA}/camera.cam --step 1 --count 3)

run_kelscan(out rc err camera show ${DATA}/camera.cam)
string(FIND "${out}" "distortion model: 1 (radial k1 k2 k3 k4)\n  k1 = -2.150000e-03\n" at)
if(NOT rc EQUAL 0 OR at LESS 0)
    message(FATAL_ERROR "camera show: rc=${rc}\n${out}")
endif()

# An exact similarity comes back exactly.
file(WRITE ${WORK}/src.csv "A,0,0\nB,10,0\nC,0,10\n")
file(WRITE ${WORK}/tgt.csv "B,100,20\nA,100,0\nC,80,0\nZ,1,1\n")
expect_output("pairs: 3\na = 0.000000000, b = 2.000000000, c = 100.0000, d = 0.0000\nscale: 2.000000000\nrotation: 90.000000 deg\nname,dx,dy\nB,0.0000,0.0000\nA,0.0000,0.0000\nC,0.0000,0.0000\nRMS: 0.0000, 0.0000\n"
    helmert --target ${WORK}/tgt.csv --source ${WORK}/src.csv)

file(WRITE ${WORK}/short.cam "8.8\n0.0\n0.0\n1\n4\n-2e-3\n")
expect_bad_input("${WORK}/short.cam:7: missing or unreadable camera line" camera show ${WORK}/short.cam)
expect_bad_input("cannot read ${WORK}/none.cam" camera show ${WORK}/none.cam)
file(WRITE ${WORK}/m2.cam "8.8\n0\n0\n2\n4\n1e-3\n0\n0\n0\n0.0016\n0.0016\n0\n")
expect_bad_input("the radial table needs distortion model 1 (k1..k4), this camera has model 2"
    camera table ${WORK}/m2.cam)
expect_bad_input("--step must be a positive number of millimetres" camera table ${DATA}/camera.cam --step -1)
file(WRITE ${WORK}/one.csv "A,0,0\n")
expect_bad_input("need at least 2 points with the same name in both files, found 1"
    helmert --target ${WORK}/one.csv --source ${WORK}/src.csv)
file(WRITE ${WORK}/noname.csv "1,2\n3,4\n")
expect_bad_input("${WORK}/noname.csv:1: a point needs a name"
    helmert --target ${WORK}/noname.csv --source ${WORK}/src.csv)
file(WRITE ${WORK}/same.csv "A,3,3\nB,3,3\n")
expect_bad_input("the points do not determine a similarity"
    helmert --target ${WORK}/tgt.csv --source ${WORK}/same.csv)
