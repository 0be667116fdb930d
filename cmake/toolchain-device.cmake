# The release's code and C library, with the C++ runtime library beside them, which tests use and the
# product does not link.
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-arm.cmake)
zep_toolchain(test-runtime.sh)
