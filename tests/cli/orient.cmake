# kelscan orient / centroid: orientation of the sample camera, one line and exit 2 on bad input.
include(${CMAKE_CURRENT_LIST_DIR}/lib/check.cmake)
file(MAKE_DIRECTORY ${WORK})

function(expect_in expected)
    run_kelscan(out rc err ${ARGN})
    string(FIND "${out}" "${expected}" at)
    if(NOT rc EQUAL 0 OR at LESS 0)
        message(FATAL_ERROR "kelscan ${ARGN}: rc=${rc}, [${expected}] not in\n${out}\n${err}")
    endif()
endfunction()

# The sample control field was made with the camera at (0.35, -20, 40), omega -45 deg.
expect_in("projection centre: 0.350" orient --object ${DATA}/control_object.csv
    --photo ${DATA}/control_photo.csv --focal 8.8)
expect_in("projection centre: 0.350" orient --object ${DATA}/control_object.csv
    --camera ${DATA}/camera.cam --image ${DATA}/control_image.csv --method resection)
expect_in("angles (omega, phi, kappa): -44.99" orient --object ${DATA}/control_object.csv
    --camera ${DATA}/camera.cam --image ${DATA}/control_image.csv --method resection-multistart)
expect_in("(plane DLT)" orient --object ${DATA}/control_object.csv
    --photo ${DATA}/control_photo.csv --focal 8.8 --method dlt2d)
expect_output("centre: 12.388, 10.769 (pixels, pixel centres at index + 0.5)\n"
    centroid ${DATA}/target.pgm)

expect_bad_input("give either --photo, or --camera with --image"
    orient --object ${DATA}/control_object.csv)
file(WRITE ${WORK}/three.csv "P01,0,0,0\nP02,1,0,0\nP03,0,1,0\n")
expect_bad_input("need at least 4 control points with the same name in both files"
    orient --object ${WORK}/three.csv --photo ${DATA}/control_photo.csv --focal 8.8)
expect_bad_input("resection failed on these points (-v shows why)"
    orient --object ${WORK}/three.csv --photo ${DATA}/control_photo.csv --focal 8.8 --method resection)
expect_bad_input("give a positive --focal (mm) or a --camera"
    orient --object ${DATA}/control_object.csv --photo ${DATA}/control_photo.csv)
expect_bad_input("--seed lies outside the 24 x 22 patch" centroid ${DATA}/target.pgm --seed 30 1)
file(WRITE ${WORK}/flat.pgm "P2\n3 2\n255\n7 7 7\n7 7 7\n")
expect_bad_input("no target found (too little contrast or nothing past the threshold)"
    centroid ${WORK}/flat.pgm)
file(WRITE ${WORK}/bad.pgm "P6\n3 2\n255\n")
expect_bad_input("${WORK}/bad.pgm: not an 8-bit PGM image (P5 or P2) of at most 16384 pixels a side"
    centroid ${WORK}/bad.pgm)
