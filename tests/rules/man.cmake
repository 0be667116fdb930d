# The manual pages are free of what mandoc warns of.
file(GLOB pages ${FOLDER}/*.[1-9])
if(NOT pages)
    message(FATAL_ERROR "no pages in ${FOLDER}")
endif()
execute_process(COMMAND ${MANDOC} -Tlint -W warning ${pages} RESULT_VARIABLE result OUTPUT_VARIABLE said ERROR_VARIABLE said)
if(result OR said)
    message(FATAL_ERROR "${said}")
endif()
