# kelscan sdb / log / project: exact output on the sample data, a round trip through a text
# file, and one line with exit status 2 on bad input.

include(${CMAKE_CURRENT_LIST_DIR}/lib/check.cmake)

set(W ${WORK}/storage)
file(REMOVE_RECURSE ${W})
file(MAKE_DIRECTORY ${W})

expect_output("file: ${DATA}/scan.dbs\nrecords: 12\nlive: 11\ndeleted: 1\nheader values: 753026,22028009\nstarted: 2024-03-05 06:07:08.009 UTC\n"
    sdb info ${DATA}/scan.dbs)
run_kelscan(out rc err sdb dump ${DATA}/scan.dbs)
string(FIND "${out}" "5,deleted,S005,1020.000000,498.500000,102.000000,WALL,5,H=355.7108,fine scan 1\n" at)
if(NOT rc EQUAL 0 OR at EQUAL -1)
    message(FATAL_ERROR "sdb dump: rc=${rc}\n${out}")
endif()
expect_output("log: ${DATA}/SDB.log\nstate: interrupted (the scan was not ended)\ndatabase: \\Data\\scan.dbs\nvalue: 12\ntext: fine scan 1\nstarted: 2024-03-05 06:07:08.009 UTC (codes 753026,22028009)\nlast point: S008,1020.000000,501.500000,102.000000,WALL,8,H=4.2892,fine scan 1\n"
    log status ${DATA}/SDB.log)
expect_output("imc: \\Data\\P1.imc\ncsv: \\Data\\P1.csv\ntmp imc: \\Data\\tmp_P1.imc\ntmp csv: \\Data\\tmp_P1.csv\nold imc: \\Data\\tmpdel_P1.imc\nold csv: \\Data\\tmpdel_P1.csv\ndlt: \\Data\\P1.DLT\nbackup: \\Data\\P1.bkh\ncamera: (no *.cam in the folder)\n"
    project paths \\Data P1)
# json escapes the backslashes; a missing camera is an empty text.
run_kelscan(out rc err project paths \\Data P1 --format json)
string(FIND "${out}" "{\n  \"imc\": \"\\\\Data\\\\P1.imc\",\n" at)
string(FIND "${out}" "\"camera\": \"\"\n}\n" at2)
if(NOT rc EQUAL 0 OR NOT at EQUAL 0 OR at2 LESS 0)
    message(FATAL_ERROR "project paths --format json: rc=${rc}\n${out}")
endif()

file(MAKE_DIRECTORY ${W}/Data)
file(WRITE ${W}/Data/b.cam "")
file(WRITE ${W}/Data/a.cam "")
run_kelscan(out rc err project paths ${W}/Data P2)
string(FIND "${out}" "\ncamera: ${W}/Data\\a.cam\n" at)
if(NOT rc EQUAL 0 OR at EQUAL -1)
    message(FATAL_ERROR "project paths with a camera file: rc=${rc}\n${out}")
endif()

# Export the live points, import them into a new database, delete one there.
expect_output("exported 11 live points of 12 records to ${W}/live.csv\n"
    sdb export-csv ${DATA}/scan.dbs -o ${W}/live.csv)
expect_output("imported 11 points into ${W}/copy.dbs\n" sdb import-csv ${W}/live.csv -o ${W}/copy.dbs)
if(EXISTS ${W}/temp)
    message(FATAL_ERROR "import-csv left its temp folder behind")
endif()
expect_output("deleted record 4 (S004)\n" sdb delete 4 ${W}/copy.dbs)
expect_output("record 4 (S004) was already deleted\n" sdb delete 4 ${W}/copy.dbs)
run_kelscan(out rc err sdb info ${W}/copy.dbs)
string(FIND "${out}" "records: 11\nlive: 10\ndeleted: 1\n" at)
if(NOT rc EQUAL 0 OR at EQUAL -1)
    message(FATAL_ERROR "sdb info after delete: rc=${rc}\n${out}")
endif()

# Bad input.
expect_bad_input("cannot read ${W}/missing.dbs" sdb info ${W}/missing.dbs)
expect_bad_input("${W}/live.csv is not a scan point database" sdb dump ${W}/live.csv)
expect_bad_input("record 12 is not in ${W}/copy.dbs (11 records)" sdb delete 12 ${W}/copy.dbs)
expect_bad_input("\"two\" is not a record number" sdb delete two ${W}/copy.dbs)
file(WRITE ${W}/bad.csv "P1,1,2,3\n\nP2,1,x,3\n")
expect_bad_input("${W}/bad.csv:3: \"x\" is not a finite number" sdb import-csv ${W}/bad.csv -o ${W}/bad.dbs)
file(WRITE ${W}/bad.csv "P1,1,2,3\nP2,1,1e999,3\n")
expect_bad_input("${W}/bad.csv:2: \"1e999\" is not a finite number" sdb import-csv ${W}/bad.csv -o ${W}/bad.dbs)
file(WRITE ${W}/bad.csv "P1,1,2,3,C,7,a,b,c\n")
expect_bad_input("${W}/bad.csv:1: expected name,north,east,height[,code,value,text1,text2], found 9 fields"
    sdb import-csv ${W}/bad.csv -o ${W}/bad.dbs)
if(EXISTS ${W}/bad.dbs)
    message(FATAL_ERROR "a failed import wrote a database")
endif()
# A header line is skipped as the other readers skip it; an input without points leaves an
# existing database alone unless --force.
file(WRITE ${W}/head.csv "name,north_m,east_m,height_m\nQ1,1,2,3\nQ2,4,5,6,C,7\n")
expect_output("imported 2 points into ${W}/head.dbs\n" sdb import-csv ${W}/head.csv -o ${W}/head.dbs)
expect_output("rec,status,name,north_m,east_m,height_m,code,value,text1,text2\n1,live,Q1,1.000000,2.000000,3.000000,,0,,\n2,live,Q2,4.000000,5.000000,6.000000,C,7,,\n"
    sdb dump ${W}/head.dbs)
file(WRITE ${W}/empty.csv "name,north,east,height\n")
expect_bad_input("${W}/empty.csv holds no points: ${W}/head.dbs is left as it is (--force replaces it with an empty database)"
    sdb import-csv ${W}/empty.csv -o ${W}/head.dbs)
file(SIZE ${W}/head.dbs kept)
expect_output("imported 0 points into ${W}/head.dbs\n" sdb import-csv ${W}/empty.csv -o ${W}/head.dbs --force)
file(SIZE ${W}/head.dbs emptied)
if(NOT kept EQUAL 544 OR NOT emptied EQUAL 32)
    message(FATAL_ERROR "head.dbs: ${kept} bytes kept, ${emptied} after --force")
endif()
expect_bad_input("${W}/live.csv is also an input: write the result to another file"
    sdb import-csv ${W}/live.csv -o ${W}/live.csv)
file(SIZE ${W}/live.csv live_size)
expect_bad_input("${W}/live.csv is not a scan log (${live_size} bytes, want 768)" log status ${W}/live.csv)
expect_bad_input("cannot read ${W}/none.log" log status ${W}/none.log)
