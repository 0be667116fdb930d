# foreign_libcrypt(ARCH FOLDER): <crypt.h> and libcrypt of a Debian architecture, unpacked into the build folder
# once. Sets FOLDER to what holds them below usr.
function(foreign_libcrypt arch folder)
    get_filename_component(top ${CMAKE_CURRENT_FUNCTION_LIST_DIR} DIRECTORY)
    set(unpacked ${top}/build/foreign-${arch})
    if(NOT EXISTS ${unpacked}/.have)
        execute_process(COMMAND sh ${top}/cmake/foreign-packages.sh ${arch} ${unpacked} libcrypt-dev libcrypt1
            RESULT_VARIABLE failed OUTPUT_QUIET ERROR_VARIABLE text)
        if(failed)
            message(FATAL_ERROR "no libcrypt for ${arch}: ${text}")
        endif()
    endif()
    set(${folder} ${unpacked} PARENT_SCOPE)
endfunction()

# foreign_crypt(ARCH TRIPLET): the target's. Sets ZEP_CRYPT to what a program links with.
function(foreign_crypt arch triplet)
    foreign_libcrypt(${arch} folder)
    set(ZEP_CRYPT ${folder}/usr/lib/${triplet}/libcrypt.a CACHE FILEPATH "the C library's crypt")
    include_directories(SYSTEM ${folder}/usr/include)
endfunction()
