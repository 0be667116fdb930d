# cmake -DFILE=... -DLIMIT=... -P budget.cmake: fails when the file is larger.
file(SIZE ${FILE} size)
if(size GREATER LIMIT)
    message(FATAL_ERROR "${FILE} has ${size} bytes, ${LIMIT} are allowed")
endif()
