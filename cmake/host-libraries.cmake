# Libraries that the host tools alone link: ZEP_NETTLE, ZEP_SNDFILE and ZEP_SOXR. ZEP_HOST_LIBRARIES is the folder that
# a program needs when it runs.
find_library(ZEP_NETTLE nettle REQUIRED) # nettle-dev
# Without the two of sound (libsndfile1-dev, libsoxr-dev) fwpkg alone can be built.
find_library(ZEP_SNDFILE sndfile)
find_library(ZEP_SOXR soxr)
foreach(library SNDFILE SOXR)
    if(NOT ZEP_${library})
        string(TOLOWER ${library} ZEP_${library})
    endif()
endforeach()
cmake_path(GET ZEP_SNDFILE PARENT_PATH ZEP_HOST_LIBRARIES)
set(ZEP_HOST_LIBRARIES ${ZEP_HOST_LIBRARIES} CACHE INTERNAL "for tests")
