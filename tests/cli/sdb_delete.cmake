# kelscan sdb delete refuses a bad record number before it changes anything: neither an empty
# file nor a database with a torn tail is touched.

include(${CMAKE_CURRENT_LIST_DIR}/lib/check.cmake)

set(W ${WORK}/sdb_delete)
file(REMOVE_RECURSE ${W})
file(MAKE_DIRECTORY ${W})

file(WRITE ${W}/empty.dbs "")
expect_bad_input("${W}/empty.dbs is not a scan point database" sdb delete 1 ${W}/empty.dbs)
file(SIZE ${W}/empty.dbs size)
if(NOT size EQUAL 0)
    message(FATAL_ERROR "sdb delete wrote ${size} bytes into an empty file")
endif()

# The sample database (12 records) with a torn record of 7 bytes behind it.
file(COPY ${DATA}/scan.dbs DESTINATION ${W})
file(APPEND ${W}/scan.dbs "tornrec")
file(SIZE ${W}/scan.dbs before)
expect_bad_input("record 13 is not in ${W}/scan.dbs (12 records)" sdb delete 13 ${W}/scan.dbs)
file(SIZE ${W}/scan.dbs after)
if(NOT before EQUAL after)
    message(FATAL_ERROR "sdb delete cut the file from ${before} to ${after} bytes before refusing")
endif()
# A good number is then deleted, and the torn tail goes with the first write.
expect_output("deleted record 2 (S002)\n" sdb delete 2 ${W}/scan.dbs)
file(SIZE ${W}/scan.dbs after)
math(EXPR whole "${before} - 7")
if(NOT after EQUAL whole)
    message(FATAL_ERROR "after the delete: ${after} bytes, want ${whole}")
endif()
