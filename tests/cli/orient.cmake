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
# The sample field is not flat: the plane DLT refuses it, the spatial ones need no focal length.
expect_bad_input("the dlt2d solution failed on these points (-v shows why)" orient
    --object ${DATA}/control_object.csv --photo ${DATA}/control_photo.csv --focal 8.8 --method dlt2d)
expect_in("projection centre: 0.350" orient --object ${DATA}/control_object.csv
    --photo ${DATA}/control_photo.csv --method dlt-iterative)

# A flat field under a camera at (0, 0, 30) looking straight down, numeric point names, the
# photo measured in a frame whose origin is (0.5, -0.25) mm from the principal point.
file(WRITE ${WORK}/flat_obj.csv "1,10,0,0\n2,0,10,0\n3,-10,-5,0\n4,5,-10,0\n5,8,8,0\n")
file(WRITE ${WORK}/flat_phc.csv "# name,x,y\n1,2.433333333333333,0.25\n2,-0.5,3.183333333333333\n"
    "3,-3.433333333333333,-1.2166666666666666\n4,0.9666666666666666,-2.683333333333333\n"
    "5,1.8466666666666667,2.5966666666666667\n")
expect_in("0.0000, 30.0000\n" orient --object ${WORK}/flat_obj.csv
    --photo ${WORK}/flat_phc.csv --focal 8.8 --principal -0.5 0.25)
expect_in("0.0000, 30.0000 (+- " orient
    --object ${WORK}/flat_obj.csv --photo ${WORK}/flat_phc.csv --focal 8.8 --principal -0.5 0.25
    --method resection-multistart)
expect_bad_input("give a positive --focal (mm) or a --camera: the plane DLT needs it"
    orient --object ${WORK}/flat_obj.csv --photo ${WORK}/flat_phc.csv)
# Full precision: every value at 17 significant digits.
expect_in("\nprincipal_point_mm,-0.5,0.25\nb,0.29333333333333333," orient --object ${WORK}/flat_obj.csv
    --photo ${WORK}/flat_phc.csv --focal 8.8 --principal -0.5 0.25 --format csv)
expect_in("\npairs,5\niterations,0\ncentre," orient --object ${WORK}/flat_obj.csv
    --photo ${WORK}/flat_phc.csv --focal 8.8 --principal -0.5 0.25 --format csv)
expect_in("\"angles_sigma_rad\": [" orient --object ${WORK}/flat_obj.csv
    --photo ${WORK}/flat_phc.csv --focal 8.8 --principal -0.5 0.25 --method resection --format json)
# The same photo in pixels of 1/600 mm: no lens of 8.8 mm sees that far out, although a camera
# close to the plane would fit it exactly. -v may follow the sub-command.
file(WRITE ${WORK}/flat_px.csv "1,1460,150\n2,-300,1910\n3,-2060,-730\n4,580,-1610\n5,1108,1558\n")
expect_bad_input("the dlt solution failed on these points (-v shows why)" orient
    --object ${WORK}/flat_obj.csv --photo ${WORK}/flat_px.csv --focal 8.8)
run_kelscan(out rc err orient --object ${WORK}/flat_obj.csv --photo ${WORK}/flat_px.csv
    --focal 8.8 --method resection -v)
if(NOT rc EQUAL 2 OR NOT err MATCHES "^CSinOri::CalSinOri extent > kMaxFieldRatio \\* m_focal\nkelscan: ")
    message(FATAL_ERROR "orient -v on pixels: rc=${rc}\n${err}")
endif()
file(READ ${DATA}/camera.cam cam)
string(REPLACE "4\t\t\t\t\t// number of distortion" "four\t\t\t\t\t// number of distortion" cam "${cam}")
file(WRITE ${WORK}/wordy.cam "${cam}")
expect_bad_input("${WORK}/wordy.cam: focal length 8.800000 mm, pixel size -0.002150 x 0.000048 mm: all must be positive (is a line of the file not a number?)"
    orient --object ${DATA}/control_object.csv --camera ${WORK}/wordy.cam --image ${DATA}/control_image.csv)
file(WRITE ${WORK}/broken.cam "8.8\n3.341\n\n")
expect_bad_input("${WORK}/broken.cam:3: missing or unreadable camera line" orient
    --object ${DATA}/control_object.csv --camera ${WORK}/broken.cam --image ${DATA}/control_image.csv)
file(WRITE ${WORK}/dup.csv "P01,0,0,0\nP02,1,0,0\nP01,0,1,0\n")
expect_bad_input("${WORK}/dup.csv:3: duplicate point name P01"
    orient --object ${WORK}/dup.csv --photo ${DATA}/control_photo.csv --focal 8.8)
file(WRITE ${WORK}/wide.csv "P01,0,0,0\nP02,1,0,0,7\n")
expect_bad_input("${WORK}/wide.csv:2: expected a name and 3 numbers, found 5 fields"
    orient --object ${WORK}/wide.csv --photo ${DATA}/control_photo.csv --focal 8.8)
expect_output("centre: 12.388, 10.769 (pixels, pixel centres at index + 0.5)\n"
    centroid ${DATA}/target.pgm)

expect_bad_input("give either --photo, or --camera with --image"
    orient --object ${DATA}/control_object.csv)
file(WRITE ${WORK}/three.csv "P01,0,0,0\nP02,1,0,0\nP03,0,1,0\n")
expect_bad_input("need at least 4 control points with the same name in both files"
    orient --object ${WORK}/three.csv --photo ${DATA}/control_photo.csv --focal 8.8)
expect_bad_input("resection failed on these points (-v shows why)"
    orient --object ${WORK}/three.csv --photo ${DATA}/control_photo.csv --focal 8.8 --method resection)
# No library line to show: the program says what is wrong.
expect_bad_input("resection-multistart failed on these points: it needs at least 4 control points with the same name in both files"
    orient --object ${WORK}/three.csv --photo ${DATA}/control_photo.csv --focal 8.8 --method resection-multistart)
expect_bad_input("give a positive --focal (mm) or a --camera"
    orient --object ${DATA}/control_object.csv --photo ${DATA}/control_photo.csv --method resection)
expect_bad_input("--seed lies outside the 24 x 22 patch" centroid ${DATA}/target.pgm --seed 30 1)
file(WRITE ${WORK}/flat.pgm "P2\n3 2\n255\n7 7 7\n7 7 7\n")
expect_bad_input("no target found (too little contrast or nothing past the threshold)"
    centroid ${WORK}/flat.pgm)
file(WRITE ${WORK}/bad.pgm "P6\n3 2\n255\n")
expect_bad_input("${WORK}/bad.pgm: not an 8-bit PGM image (P5 or P2) of at most 16384 pixels a side"
    centroid ${WORK}/bad.pgm)
