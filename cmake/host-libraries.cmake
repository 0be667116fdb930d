# Libraries that the host tools alone link: ZEP_NETTLE, ZEP_SNDFILE and ZEP_SOXR, with ZEP_HOST_INCLUDES in front of
# their headers. ZEP_HOST_LIBRARIES is the folder that a program needs when it runs. A 32-bit build on a 64-bit PC
# unpacks them, and what they need in their turn, into its build folder.
if(CMAKE_SIZEOF_VOID_P EQUAL 8)
    find_library(ZEP_NETTLE nettle REQUIRED) # nettle-dev
    # Without the two of sound (libsndfile1-dev, libsoxr-dev) fwpkg alone can be built.
    find_library(ZEP_SNDFILE sndfile)
    find_library(ZEP_SOXR soxr)
    foreach(library SNDFILE SOXR)
        if(NOT ZEP_${library})
            string(TOLOWER ${library} ZEP_${library})
        endif()
    endforeach()
    set(ZEP_HOST_INCLUDES)
    cmake_path(GET ZEP_SNDFILE PARENT_PATH ZEP_HOST_LIBRARIES)
    set(ZEP_HOST_LIBRARIES ${ZEP_HOST_LIBRARIES} CACHE INTERNAL "for tests")
    return()
endif()
set(unpacked ${PROJECT_SOURCE_DIR}/build/foreign-i386-tools)
execute_process(COMMAND sh ${PROJECT_SOURCE_DIR}/cmake/foreign-packages.sh i386 ${unpacked} nettle-dev libnettle8
    libsndfile1-dev libsndfile1 libflac12 libvorbis0a libvorbisenc2 libogg0 libopus0 libmpg123-0 libmp3lame0
    libsoxr-dev libsoxr0 libgomp1
    RESULT_VARIABLE failed OUTPUT_QUIET ERROR_VARIABLE text)
if(failed)
    message(FATAL_ERROR "no libraries for the 32-bit host tools: ${text}")
endif()
set(folder ${unpacked}/usr/lib/i386-linux-gnu)
set(ZEP_HOST_LIBRARIES ${folder} CACHE INTERNAL "for tests")
set(ZEP_HOST_INCLUDES ${unpacked}/usr/include)
set(ZEP_NETTLE ${folder}/libnettle.a)
# The old kind of run path, which the libraries' own needs are looked up in as well.
set(path -Wl,-rpath,${folder} -Wl,--disable-new-dtags)
set(ZEP_SNDFILE ${folder}/libsndfile.so ${path})
set(ZEP_SOXR ${folder}/libsoxr.so ${path})
