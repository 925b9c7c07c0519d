# kelscan image info / convert: the sample photo's description, the files convert writes, and
# one line with exit status 2 on bad input.
include(${CMAKE_CURRENT_LIST_DIR}/lib/check.cmake)
file(MAKE_DIRECTORY ${WORK})

# 320 x 240 at 24 bits: the DIB header and palette-less pixels, rows of 960 bytes.
expect_output("type: JPEG\nwidth: 320 px\nheight: 240 px\nbits per pixel: 24\ngrey scale: no\nrate: 1 (shown 320 x 240)\nbytes needed: 230440\n"
    image info ${DATA}/photo.jpg)

# A BMP written by convert reads back as the same picture, and the upper-case extension counts.
expect_output("${WORK}/photo.bmp: 320 x 240\n" image convert ${DATA}/photo.jpg -o ${WORK}/photo.bmp)
file(SIZE ${WORK}/photo.bmp bmp_size)
if(NOT bmp_size EQUAL 230454)
    message(FATAL_ERROR "photo.bmp has ${bmp_size} bytes, want 54 + 960 * 240")
endif()
file(COPY_FILE ${WORK}/photo.bmp ${WORK}/PHOTO.BMP)
expect_output("type: BMP\nwidth: 320 px\nheight: 240 px\nbits per pixel: 24\ngrey scale: no\nrate: 1 (shown 320 x 240)\nbytes needed: 230440\n"
    image info ${WORK}/PHOTO.BMP)
expect_output("${WORK}/again.bmp: 320 x 240\n" image convert ${WORK}/PHOTO.BMP -o ${WORK}/again.bmp)
file(SHA256 ${WORK}/photo.bmp first)
file(SHA256 ${WORK}/again.bmp second)
if(NOT first STREQUAL second)
    message(FATAL_ERROR "a BMP converted to BMP changed")
endif()

# PNG: signature and IHDR of 160 x 120 at 8-bit RGB, deflated well below the 57 720 bytes of
# its filtered rows; it reads back as the same picture.
expect_output("${WORK}/half.png: 160 x 120\n" image convert ${DATA}/photo.jpg -o ${WORK}/half.png --scale 2)
file(READ ${WORK}/half.png head LIMIT 26 HEX)
if(NOT head STREQUAL "89504e470d0a1a0a0000000d49484452000000a0000000780802")
    message(FATAL_ERROR "half.png starts ${head}")
endif()
file(SIZE ${WORK}/half.png png_size)
if(NOT png_size LESS 40000)
    message(FATAL_ERROR "half.png has ${png_size} bytes: not compressed")
endif()
expect_output("type: PNG\nwidth: 160 px\nheight: 120 px\nbits per pixel: 24\ngrey scale: no\nrate: 1 (shown 160 x 120)\nbytes needed: 57640\n"
    image info ${WORK}/half.png)
expect_output("${WORK}/half.bmp: 160 x 120\n" image convert ${WORK}/half.png -o ${WORK}/half.bmp)
expect_output("${WORK}/half2.bmp: 160 x 120\n" image convert ${DATA}/photo.jpg -o ${WORK}/half2.bmp --scale 2)
file(SHA256 ${WORK}/half.bmp first)
file(SHA256 ${WORK}/half2.bmp second)
if(NOT first STREQUAL second)
    message(FATAL_ERROR "a PNG converted to BMP differs from the picture it was written from")
endif()
expect_output("${WORK}/eighth.bmp: 40 x 30\n" image convert ${DATA}/photo.jpg -o ${WORK}/eighth.bmp --scale 8)

expect_bad_input("cannot read ${WORK}/none.bmp as a BMP" image info ${WORK}/none.bmp)
expect_bad_input("${WORK}/x.gif: not a photo (.bmp, .dib, .png, .jpg, .jpe, .jpeg or .jfif)"
    image info ${WORK}/x.gif)
file(WRITE ${WORK}/torn.png "not a PNG")
expect_bad_input("cannot read ${WORK}/torn.png as a PNG" image info ${WORK}/torn.png)
# A JPEG cut short by its last two bytes is the photo's fault, not the codec module's.
file(SIZE ${DATA}/photo.jpg jpeg_size)
math(EXPR keep "${jpeg_size} - 2")
execute_process(COMMAND head -c ${keep} ${DATA}/photo.jpg OUTPUT_FILE ${WORK}/torn.jpg)
expect_bad_input("${WORK}/torn.jpg: cannot decode it (a damaged or cut-short JPEG)"
    image info ${WORK}/torn.jpg)
file(WRITE ${WORK}/garbage.jpg "not a JPEG at all")
expect_bad_input("cannot read ${WORK}/garbage.jpg as a JPEG" image info ${WORK}/garbage.jpg)
file(WRITE ${WORK}/torn.bmp "BM")
expect_bad_input("cannot read ${WORK}/torn.bmp as a BMP" image convert ${WORK}/torn.bmp -o ${WORK}/x.bmp)
expect_bad_input("${WORK}/x.gif: the output must end in .bmp or .png"
    image convert ${DATA}/photo.jpg -o ${WORK}/x.gif)
expect_bad_input("--scale 2 needs a JPEG photo" image convert ${WORK}/photo.bmp -o ${WORK}/x.bmp --scale 2)
run_kelscan(out rc err image convert ${DATA}/photo.jpg -o ${WORK}/x.bmp --scale 3)
string(REGEX MATCHALL "\n" lines "${err}")
list(LENGTH lines n)
if(NOT rc EQUAL 2 OR NOT n EQUAL 1)
    message(FATAL_ERROR "--scale 3: exit ${rc}, stderr [${err}]")
endif()
expect_bad_input("cannot write ${WORK}/no/such/folder.bmp"
    image convert ${DATA}/photo.jpg -o ${WORK}/no/such/folder.bmp)
