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

# A scan cut off after 40 shots and resumed records what an uninterrupted scan records: the same
# database records (after the 32-byte header, whose two values are the start's date and time)
# and the same text file.
set(RUN scan run ${ORIENT} --image ${S}/control_seeds.csv --refine --photo ${S}/photo.jpg
    --region ${S}/region.csv --truth ${S}/terrain_true.csv --noise 0.0003,0.002 --seed 5)
file(REMOVE_RECURSE ${WORK}/whole ${WORK}/cut)
run_kelscan(out rc err ${RUN} --fine 0.6 --out ${WORK}/whole)
if(NOT rc EQUAL 0 OR NOT out MATCHES "misses: 0\n")
    message(FATAL_ERROR "scan run: rc=${rc}\n${out}\n${err}")
endif()
run_kelscan(out rc err ${RUN} --fine 0.6 --out ${WORK}/cut --interrupt-after 40)
if(NOT rc EQUAL 3)
    message(FATAL_ERROR "scan run --interrupt-after: rc=${rc}\n${err}")
endif()
run_kelscan(out rc err scan resume ${WORK}/cut)
if(NOT rc EQUAL 0 OR NOT out MATCHES "resumed at shot: 41\n")
    message(FATAL_ERROR "scan resume: rc=${rc}\n${out}\n${err}")
endif()
file(READ ${WORK}/whole/scan.dbs whole OFFSET 32 HEX)
file(READ ${WORK}/cut/scan.dbs cut OFFSET 32 HEX)
file(SHA256 ${WORK}/whole/scan.txt wholeText)
file(SHA256 ${WORK}/cut/scan.txt cutText)
if(NOT whole STREQUAL cut OR NOT wholeText STREQUAL cutText)
    message(FATAL_ERROR "the resumed scan's files differ from the uninterrupted scan's")
endif()
expect_bad_input("the scan recorded in ${WORK}/cut has ended: nothing to resume"
    scan resume ${WORK}/cut)
expect_bad_input("${WORK} holds no scan job (job.csv): give the --out folder of a kelscan scan run"
    scan resume ${WORK})
expect_bad_input("give one of --fine or --track" ${RUN} --fine 1 --track 1 --out ${WORK}/x)
file(WRITE ${WORK}/region.csv "column,row\n100,300\n700,300\n400,-5\n")
expect_bad_input("${WORK}/region.csv:4: region vertex 3 (400, -5) is outside the photograph (800 x 600 pixels)"
    scan run ${ORIENT} --image ${S}/control_truth.csv --photo ${S}/photo.jpg
    --region ${WORK}/region.csv --fine 1 --out ${WORK}/x)
file(WRITE ${WORK}/region.csv "column,row\n100,300\n700,300\n400,20\n")
expect_bad_input("${WORK}/region.csv:4: region vertex 3 (400, 20) does not meet the surface of ${S}/terrain_true.csv"
    scan run ${ORIENT} --image ${S}/control_truth.csv --photo ${S}/photo.jpg
    --region ${WORK}/region.csv --track 1 --out ${WORK}/x)
