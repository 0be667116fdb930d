# i386, ILP32 little-endian: the device's record layouts at native speed.
# The 32-bit headers and libcrypt that g++-12-multilib does not bring come from the
# folder that `./dev` unpacks (build/ilp32-sysroot).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_C_COMPILER gcc-12)
set(CMAKE_CXX_COMPILER g++-12)
set(CMAKE_C_FLAGS_INIT "-m32 -idirafter /usr/include/x86_64-linux-gnu")
set(CMAKE_CXX_FLAGS_INIT "-m32 -idirafter /usr/include/x86_64-linux-gnu")
get_filename_component(_root ${CMAKE_CURRENT_LIST_DIR} DIRECTORY)
set(ZEP_ILP32_SYSROOT ${_root}/build/ilp32-sysroot CACHE PATH "unpacked i386 packages")
link_directories(${ZEP_ILP32_SYSROOT}/usr/lib/i386-linux-gnu)
include_directories(SYSTEM ${ZEP_ILP32_SYSROOT}/usr/include)
