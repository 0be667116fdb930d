# foreign_crypt(ARCH TRIPLET): <crypt.h> and a static libcrypt of a Debian architecture, unpacked
# into the build folder once. Sets ZEP_CRYPT to what a program links with.
function(foreign_crypt arch triplet)
    get_filename_component(top ${CMAKE_CURRENT_FUNCTION_LIST_DIR} DIRECTORY)
    set(folder ${top}/build/foreign-${arch})
    if(NOT EXISTS ${folder}/.have)
        execute_process(COMMAND sh ${top}/cmake/foreign-packages.sh ${arch} ${folder} libcrypt-dev libcrypt1
            RESULT_VARIABLE failed OUTPUT_QUIET ERROR_VARIABLE text)
        if(failed)
            message(FATAL_ERROR "no libcrypt for ${arch}: ${text}")
        endif()
    endif()
    set(ZEP_CRYPT ${folder}/usr/lib/${triplet}/libcrypt.a CACHE FILEPATH "the C library's crypt")
    include_directories(SYSTEM ${folder}/usr/include)
endfunction()
