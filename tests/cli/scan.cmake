# kelscan scan: pixels to instrument angles on the synthetic site, and bad input.
include(${CMAKE_CURRENT_LIST_DIR}/lib/check.cmake)
file(MAKE_DIRECTORY ${WORK})
set(S ${DATA}/site)
set(ORIENT --camera ${S}/camera.cam --object ${S}/control_object.csv --surface
    ${S}/terrain_true.csv --station 5000,2000,250 --height 1.55 --backsight 45,0)

# The targets' true pixels through the true terrain give the angles computed from their
# coordinates (H = azimuth - 45; V from the axis 1.55 m above the station) to 0.001 degrees:
# C01 295.655671 80.439248, C10 301.543407 71.632444.
run_kelscan(out rc err scan angles ${ORIENT} --image ${S}/control_truth.csv
    --pixels ${S}/control_truth.csv --format csv)
if(NOT rc EQUAL 0 OR NOT out MATCHES "\nC01,113\\.9[0-9]*,318\\.6[0-9]*,295\\.655[0-9]*,80\\.439[0-9]*\n"
   OR NOT out MATCHES "\nC10,216\\.2[0-9]*,189\\.6[0-9]*,301\\.543[0-9]*,71\\.632[0-9]*\n")
    message(FATAL_ERROR "scan angles: rc=${rc}\n${out}\n${err}")
endif()
# The clicks refined by image moments on the photograph orient the camera as well.
run_kelscan(out rc err scan angles ${ORIENT} --image ${S}/control_seeds.csv --refine
    --photo ${S}/photo.jpg --pixel 352.8,248.121 --format json)
if(NOT rc EQUAL 0 OR NOT out MATCHES "\"H_deg\": 311\\.6[78][0-9]*, \"V_deg\": 75\\.18[34]")
    message(FATAL_ERROR "scan angles --refine: rc=${rc}\n${out}\n${err}")
endif()

expect_bad_input("pixel (400, 10) does not meet the surface of ${S}/terrain_true.csv"
    scan angles ${ORIENT} --image ${S}/control_truth.csv --pixel 400,10)
file(WRITE ${WORK}/dup.csv "name,column,row\nC01,1,2\nC01,3,4\n")
expect_bad_input("${WORK}/dup.csv:3: duplicate point name C01"
    scan angles ${ORIENT} --image ${WORK}/dup.csv --pixel 400,300)
file(WRITE ${WORK}/three.csv "name,column,row\nC01,113.9,318.6\nC02,669.2,303.2\nC03,117.1,275.6\n")
expect_bad_input("the camera cannot be oriented from ${S}/control_object.csv and ${WORK}/three.csv: fewer than 4 points pair by name, or the resection fails (-v shows why)"
    scan angles ${ORIENT} --image ${WORK}/three.csv --pixel 400,300)
