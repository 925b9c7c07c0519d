# kelscan camera / helmert: output on the sample data, one line and exit status 2 on bad input.
include(${CMAKE_CURRENT_LIST_DIR}/lib/check.cmake)
file(MAKE_DIRECTORY ${WORK})

expect_output("radius_mm,correction_mm\n0.000000,0.000000\n1.000000,-0.002102\n2.000000,-0.015704\n"
    camera table ${DATA}/camera.cam --step 1 --count 3)

run_kelscan(out rc err camera show ${DATA}/camera.cam)
string(FIND "${out}" "distortion model: 1 (radial k1 k2 k3 k4)\n\nparameter,value\nk1,-0.00215\nk2,4.8e-05\n" at)
if(NOT rc EQUAL 0 OR at LESS 0)
    message(FATAL_ERROR "camera show: rc=${rc}\n${out}")
endif()

# An exact similarity comes back exactly.
file(WRITE ${WORK}/src.csv "A,0,0\nB,10,0\nC,0,10\n")
file(WRITE ${WORK}/tgt.csv "B,100,20\nA,100,0\nC,80,0\nZ,1,1\n")
# Numbered points are named (one field more than x,y); a z is carried along.
file(WRITE ${WORK}/src.csv "1,0,0\n2,10,0,5\n3,0,10\n")
file(WRITE ${WORK}/tgt.csv "2,100,20\n1,100,0\n3,80,0\nZ,1,1\n")
expect_output("pairs: 3\na: 0.000000000\nb: 2.000000000\nc: 100.0000 m\nd: 0.0000 m\nscale: 2.000000000\nrotation: 90.000000 deg\nrms x: 0.0000 m\nrms y: 0.0000 m\n\nname,dx_m,dy_m\n2,0.0000,0.0000\n1,0.0000,0.0000\n3,0.0000,0.0000\n"
    helmert --target ${WORK}/tgt.csv --source ${WORK}/src.csv)
expect_output("quantity,value\npairs,3\na,0\nb,2\nc_m,100\nd_m,0\nscale,2\nrotation_deg,90\nrms_x_m,0\nrms_y_m,0\n\nname,dx_m,dy_m\n2,0,0\n1,0,0\n3,0,0\n"
    helmert --target ${WORK}/tgt.csv --source ${WORK}/src.csv --format csv)

file(WRITE ${WORK}/short.cam "8.8\n0.0\n0.0\n1\n4\n-2e-3\n")
expect_bad_input("${WORK}/short.cam:7: missing or unreadable camera line" camera show ${WORK}/short.cam)
expect_bad_input("cannot read ${WORK}/none.cam" camera show ${WORK}/none.cam)
# A value that is not a finite number (a parameter, a pixel size) is no camera line.
foreach(bad nan -inf 1e999)
    file(WRITE ${WORK}/bad.cam "8.8\n0.0\n0.0\n1\n1\n${bad}\n")
    expect_bad_input("${WORK}/bad.cam:6: missing or unreadable camera line" camera show ${WORK}/bad.cam)
    file(WRITE ${WORK}/bad.cam "8.8\n0\n0\n0\n0\n0.0016\n${bad}\n0\n")
    expect_bad_input("${WORK}/bad.cam:7: missing or unreadable camera line" camera show ${WORK}/bad.cam)
endforeach()
file(WRITE ${WORK}/m2.cam "8.8\n0\n0\n2\n4\n1e-3\n0\n0\n0\n0.0016\n0.0016\n0\n")
expect_bad_input("the radial table needs distortion model 1 (k1..k4), this camera has model 2"
    camera table ${WORK}/m2.cam)
expect_bad_input("--step must be a positive number of millimetres" camera table ${DATA}/camera.cam --step -1)
file(WRITE ${WORK}/one.csv "1,0,0\n")
expect_bad_input("need at least 2 points with the same name in both files, found 1"
    helmert --target ${WORK}/one.csv --source ${WORK}/src.csv)
file(WRITE ${WORK}/noname.csv "1,2\n3,4\n")
expect_bad_input("${WORK}/noname.csv:1: expected name,x,y[,z], found 2 fields"
    helmert --target ${WORK}/noname.csv --source ${WORK}/src.csv)
expect_bad_input("--step: \"nan\" is not a finite number" camera table ${DATA}/camera.cam --step nan)
file(WRITE ${WORK}/same.csv "1,3,3\n2,3,3\n")
expect_bad_input("the points do not determine a similarity"
    helmert --target ${WORK}/tgt.csv --source ${WORK}/same.csv)

# OpenCV interchange: the sample camera out and back in; the numbers OpenCV needs are exact, the
# lens model is fitted and the residual printed.
run_kelscan(out rc err camera export-opencv ${DATA}/camera.cam ${WORK}/cam.yml --image-size 4000,3000
    --format csv)
string(FIND "${out}" "fx_px,5269.4610778443121\nfy_px,5269.4610778443121\ncx_px,2000.0988023952095\n" at)
string(REGEX MATCH "largest_residual_px,([0-9.e-]+)" m "${out}")
if(NOT rc EQUAL 0 OR at LESS 0 OR NOT CMAKE_MATCH_1 LESS 0.001)
    message(FATAL_ERROR "camera export-opencv: rc=${rc}\n${out}${err}")
endif()
run_kelscan(out rc err camera import-opencv ${WORK}/cam.yml --pixel-size 0.00167,0.00167 ${WORK}/back.cam)
string(FIND "${out}" "focal length: 8.800000 mm (fx times the pixel width)\nprincipal point x: 3.341000 mm\n" at)
string(FIND "${out}" "distortion model: 1 (radial k1 k2 k3 k4; --model sets it)\nlargest residual: 0.00000" at2)
if(NOT rc EQUAL 0 OR at LESS 0 OR at2 LESS 0)
    message(FATAL_ERROR "camera import-opencv: rc=${rc}\n${out}${err}")
endif()
file(READ ${WORK}/back.cam back)
string(FIND "${back}" "1\t\t\t\t\t// distortion model\n4\t\t\t\t\t// number of distortion parameters\n-2.150000e-03\t\t// distortion parameter 1\n4.800000e-05\t\t// distortion parameter 2\n-3." at)
if(at LESS 0)
    message(FATAL_ERROR "camera import-opencv wrote\n${back}")
endif()
file(READ ${WORK}/cam.yml yml)
string(REPLACE "   dt: d\n   data: [ 5" "   dt: x\n   data: [ 5" bad "${yml}")
file(WRITE ${WORK}/bad.yml "${bad}")
expect_bad_input("${WORK}/bad.yml:6: dt \"x\" is no element type"
    camera import-opencv ${WORK}/bad.yml --pixel-size 0.00167,0.00167 ${WORK}/x.cam)
expect_bad_input("--pixel-size: the camera matrix makes the pixels 0.001670 mm high (fx SX / fy), more than 1 % from 0.002"
    camera import-opencv ${WORK}/cam.yml --pixel-size 0.00167,0.002 ${WORK}/x.cam)
