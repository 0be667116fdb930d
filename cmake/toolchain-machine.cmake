# Programs that stand beside the camera's own on the emulated machine: the virtual camera's models behind device files,
# its tools. Static, on the distribution's C library and its C++ runtime library. Clocks shared between processes are
# 64-bit atomics, which ARMv7 has; the machine's processor is one.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7)
set(CMAKE_C_COMPILER arm-linux-gnueabi-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabi-g++)
set(ZEP_MACHINE ON CACHE BOOL "programs for the emulated machine, nothing else")
set(CMAKE_C_FLAGS_INIT "-march=armv7-a")
set(CMAKE_CXX_FLAGS_INIT "-march=armv7-a")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -s")
