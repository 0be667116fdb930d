# i386, ILP32 little-endian: the device's record layouts at native speed. g++-12-multilib
# lives beside the ARM cross compiler, where g++-multilib does not; it lacks the
# architecture's <asm/...> headers and a 32-bit libcrypt.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_C_COMPILER gcc-12)
set(CMAKE_CXX_COMPILER g++-12)
set(CMAKE_C_FLAGS_INIT "-m32 -idirafter /usr/include/x86_64-linux-gnu")
set(CMAKE_CXX_FLAGS_INIT "-m32 -idirafter /usr/include/x86_64-linux-gnu")
include(${CMAKE_CURRENT_LIST_DIR}/foreign-crypt.cmake)
foreign_crypt(i386 i386-linux-gnu)
