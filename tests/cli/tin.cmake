# kelscan tin build / info / height / export / svg: the sample surface's counts and heights,
# every file version through info, the exported files' element counts, and one line with exit
# status 2 on bad input.
include(${CMAKE_CURRENT_LIST_DIR}/lib/check.cmake)
set(W ${WORK}/tin)
file(REMOVE_RECURSE ${W})
file(MAKE_DIRECTORY ${W})

# Collapses a paragraph's line breaks so that phrases can be matched across them.
function(expect_phrases text)
    string(REPLACE "\n" " " flat "${text}")
    foreach(phrase ${ARGN})
        string(FIND "${flat}" "${phrase}" at)
        if(at LESS 0)
            message(FATAL_ERROR "missing [${phrase}] in:\n${text}")
        endif()
    endforeach()
endfunction()

# The sample with its break lines: two check shots skipped by line; 336 + 6 break-line vertices
# + 33 where the break lines cross the mesh = 375 points; 2 n - 70 boundary edges - 2 = 678
# triangles on the 120 m x 90 m site.
run_kelscan(out rc err tin build ${DATA}/terrain.csv -o ${W}/terrain.tin
    --breaklines ${DATA}/breaklines.csv)
if(NOT rc EQUAL 0 OR NOT err STREQUAL "")
    message(FATAL_ERROR "tin build: rc=${rc}\n${out}${err}")
endif()
string(FIND "${out}" "${DATA}/terrain.csv:342: skipped P337, same north,east as line 45 (P40)\n${DATA}/terrain.csv:343: skipped P338, same north,east as line 205 (P200)\nRead 338 points" at)
if(NOT at EQUAL 0)
    message(FATAL_ERROR "tin build does not start with the two skipped duplicates:\n${out}")
endif()
expect_phrases("${out}" "2 duplicates (same north,east within 0.000001 m) skipped."
    "3 break lines of 7 segments" "added 6 vertices" "added 33 more;"
    "every segment is a chain of mesh edges."
    "The surface has 375 points, 678 triangles and 4 hull vertices;"
    "plan area 10800.000 m2, slope area 10999.396 m2."
    "Wrote ${W}/terrain.tin (surface file version 2).")

set(body "points: 375 (375 in triangles)\ntriangles: 678\nhull vertices: 4\nboundary edges: 70\nnorth: 5000.000 .. 5090.000 m\neast: 1000.000 .. 1120.000 m\nheight: 98.556 .. 106.433 m\nplan area: 10800.000 m2\nslope area: 10999.396 m2\n")
# The name field keeps the UTF-16 name's bytes up to the first zero byte: "terrain" -> "t".
expect_output("file: ${W}/terrain.tin (version 2, 1 surface)\nsurface 1: name \"t\"\n${body}"
    tin info ${W}/terrain.tin)
# The same surface in versions 1 and 0 (no name there).
foreach(v 0 1)
    run_kelscan(out rc err tin build ${DATA}/terrain.csv -o ${W}/v${v}.tin --file-version ${v}
        --breaklines ${DATA}/breaklines.csv --name Ground)
    expect_phrases("${out}" "Wrote ${W}/v${v}.tin (surface file version ${v}).")
endforeach()
expect_output("file: ${W}/v1.tin (version 1, 1 surface)\nsurface 1: name \"G\"\n${body}" tin info ${W}/v1.tin)
expect_output("file: ${W}/v0.tin (version 0, 1 surface)\nsurface 1\n${body}" tin info ${W}/v0.tin)
# Inserted in the rows' order: the same surface.
run_kelscan(out rc err tin build ${DATA}/terrain.csv -o ${W}/rows.tin --index-order
    --breaklines ${DATA}/breaklines.csv --file-version 0)
expect_phrases("${out}" "every segment is a chain of mesh edges.")
expect_output("file: ${W}/rows.tin (version 0, 1 surface)\nsurface 1\n${body}" tin info ${W}/rows.tin)

# Heights: a measured point gives its own height; a quarter along the kerb's first segment the
# surface follows the break line (99.318 + 0.25 (102.941 - 99.318) = 100.224), which the
# surface without break lines does not.
expect_output("height at N 5005.806 E 1108.593: 104.947 m\n" tin height ${W}/terrain.tin 5005.806 1108.593)
expect_output("height at N 5024.375 E 1021.125: 100.224 m\n" tin height ${W}/v0.tin 5024.375 1021.125)
expect_output("height at N 5045.000 E 1060.000: 102.474 m\n" tin height ${W}/terrain.tin 5045 1060)
expect_output("{\n  \"north_m\": 5045,\n  \"east_m\": 1060,\n  \"height_m\": 102.47350235197638\n}\n"
    tin height ${W}/terrain.tin 5045 1060 --format json)
run_kelscan(out rc err tin build ${DATA}/terrain.csv -o ${W}/plain.tin)
expect_phrases("${out}" "The surface has 336 points, 600 triangles and 4 hull vertices;")
expect_output("height at N 5024.375 E 1021.125: 99.049 m\n" tin height ${W}/plain.tin 5024.375 1021.125)
expect_bad_input("N 5045.000 E 1200.000 is outside the surface" tin height ${W}/terrain.tin 5045 1200)
expect_bad_input("N 4999.999 E 1060.000 is outside the surface" tin height ${W}/terrain.tin 4999.999 1060)

# Exports: element counts of each format.
expect_output("wrote ${W}/t.ply, PLY (375 vertices, 678 triangles)\n" tin export ${W}/terrain.tin -o ${W}/t.ply)
expect_output("wrote ${W}/t.obj, OBJ (375 vertices, 678 triangles)\n" tin export ${W}/terrain.tin -o ${W}/t.obj)
expect_output("wrote ${W}/t.xml, LandXML 1.2 surface \"Site A\" (375 vertices, 678 triangles)\n"
    tin export ${W}/terrain.tin -o ${W}/t.xml --name "Site A")
function(expect_count file regex want)
    file(READ ${file} text)
    string(REGEX MATCHALL "${regex}" hits "${text}")
    list(LENGTH hits n)
    if(NOT n EQUAL want)
        message(FATAL_ERROR "${file}: ${n} matches of [${regex}], want ${want}")
    endif()
endfunction()
expect_count(${W}/t.ply "\n3 [0-9]+ [0-9]+ [0-9]+" 678)
expect_count(${W}/t.ply "element vertex 375\n" 1)
expect_count(${W}/t.obj "\nv [-0-9.]+ [-0-9.]+ [-0-9.]+" 375)
expect_count(${W}/t.obj "\nf [0-9]+ [0-9]+ [0-9]+" 678)
expect_count(${W}/t.xml "<P id=\"[0-9]+\">" 375)
expect_count(${W}/t.xml "<F>[0-9]+ [0-9]+ [0-9]+</F>" 678)
expect_count(${W}/t.xml "<Surface name=\"Site A\">" 1)
expect_output("wrote ${W}/t.svg (678 triangles, 70 boundary edges, 3 break lines)\n"
    tin svg ${W}/terrain.tin -o ${W}/t.svg --breaklines ${DATA}/breaklines.csv)
expect_count(${W}/t.svg "<polygon points=" 678)
expect_count(${W}/t.svg "<polyline points=" 73)

# Thin-triangle removal cuts boundary triangles: fewer triangles, points left out of the mesh.
run_kelscan(out rc err tin build ${DATA}/terrain.csv -o ${W}/cut.tin --angle 45 --file-version 0)
expect_phrases("${out}" "The surface has 336 points (")
run_kelscan(out rc err tin info ${W}/cut.tin)
if(NOT rc EQUAL 0 OR NOT out MATCHES "points: 336 \\(33[0-5] in triangles\\)\ntriangles: 5[0-9][0-9]\n")
    message(FATAL_ERROR "tin info after --angle 45: rc=${rc}\n${out}${err}")
endif()

# Bad input.
expect_bad_input("cannot read ${W}/none.csv" tin build ${W}/none.csv -o ${W}/x.tin)
file(WRITE ${W}/word.csv "name,north,east,height\nP1,5000,1000,100\nP2,abc,1000,100\n")
expect_bad_input("${W}/word.csv:3: \"abc\" is not a finite number" tin build ${W}/word.csv -o ${W}/x.tin)
file(WRITE ${W}/five.csv "1,2,3,4,5\n")
expect_bad_input("${W}/five.csv:1: expected [name,]north,east,height, found 5 fields" tin build ${W}/five.csv -o ${W}/x.tin)
file(WRITE ${W}/short.csv "P1,1\n")
expect_bad_input("${W}/short.csv:1: expected [name,]north,east,height, found 2 fields" tin build ${W}/short.csv -o ${W}/x.tin)
# Numeric point names are names: 4 numbers per row. Three distinct points on one line.
file(WRITE ${W}/line.csv "1,0,0,5\n2,1,1,5\n3,2,2,5\n4,2,2,6\n")
expect_bad_input("cannot triangulate the 3 distinct points of ${W}/line.csv: fewer than 3, or all on one line"
    tin build ${W}/line.csv -o ${W}/x.tin)
file(WRITE ${W}/tri.csv "0,0,1\n10,0,2\n0,10,3\n")
expect_bad_input("--angle 90 is not an angle from 0 to below 90 degrees" tin build ${W}/tri.csv -o ${W}/x.tin --angle 90)
expect_bad_input("--angle: \"nan\" is not a finite number" tin build ${W}/tri.csv -o ${W}/x.tin --angle nan)
expect_bad_input("cannot write ${W}/no-folder/x.tin" tin build ${W}/tri.csv -o ${W}/no-folder/x.tin)
file(WRITE ${W}/lone.csv "a,1,1,1\nb,2,2,2\nb,3,3,3\n")
expect_bad_input("${W}/lone.csv:1: break line a has a single vertex" tin build ${W}/tri.csv -o ${W}/x.tin --breaklines ${W}/lone.csv)
file(WRITE ${W}/noz.csv "a,0,0\na,5,6\n")
expect_bad_input("${W}/noz.csv:2: N 5.000 E 6.000 of break line a is no point of the surface: give its height"
    tin build ${W}/tri.csv -o ${W}/x.tin --breaklines ${W}/noz.csv)
file(WRITE ${W}/four.csv "a,1,1,1,1\n")
expect_bad_input("${W}/four.csv:1: expected LINE,north,east[,height] or LINE,N1,E1,H1,N2,E2,H2, found 5 fields"
    tin svg ${W}/terrain.tin -o ${W}/x.svg --breaklines ${W}/four.csv)

file(WRITE ${W}/text.tin "hello\n")
expect_bad_input("${W}/text.tin: not a surface file, or a damaged one" tin info ${W}/text.tin)
expect_bad_input("cannot read ${W}/none.tin" tin info ${W}/none.tin)
expect_bad_input("north \"abc\" is not a finite number" tin height ${W}/terrain.tin abc 5000)
expect_bad_input("${W}/terrain.tin holds 1 surface, not 2" tin height ${W}/terrain.tin 1060 5045 --surface 2)
expect_bad_input("--surface \"0\" is not a surface number from 1" tin svg ${W}/terrain.tin -o ${W}/x.svg --surface 0)
expect_bad_input("${W}/t.dat: give --to ply, obj or landxml (or end it in .ply, .obj or .xml)"
    tin export ${W}/terrain.tin -o ${W}/t.dat)
expect_bad_input("cannot write ${W}/no-folder/t.obj" tin export ${W}/terrain.tin -o ${W}/no-folder/t.obj)
