# What goes onto a camera: ARMv5TE, soft float, static, the small C library of toolchain/. The
# toolchain is built on first use and kept in a cache outside the build folder.
set(ZEP_RELEASE ON CACHE BOOL "the file that goes onto a camera, with its size table and checks")
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-arm.cmake)
zep_toolchain(build.sh)
