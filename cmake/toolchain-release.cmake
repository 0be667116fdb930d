# What goes onto a camera: ARMv5TE, soft float, static, the small C library of toolchain/. The
# toolchain is built on first use and kept in a cache outside the build folder.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
if(NOT ZEP_TOOLCHAIN)
    execute_process(COMMAND ${CMAKE_CURRENT_LIST_DIR}/../toolchain/build.sh
        OUTPUT_VARIABLE text RESULT_VARIABLE failed OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(failed)
        message(FATAL_ERROR "the release toolchain cannot be built: ${text}")
    endif()
    string(REGEX REPLACE ".*\n" "" text "${text}")
    set(ZEP_TOOLCHAIN ${text} CACHE PATH "the release toolchain, see toolchain/build.sh")
endif()
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ZEP_TOOLCHAIN)
set(CMAKE_C_COMPILER ${ZEP_TOOLCHAIN}/bin/arm-uclibc-gcc)
set(CMAKE_CXX_COMPILER ${ZEP_TOOLCHAIN}/bin/arm-uclibc-g++)
foreach(tool AR NM RANLIB STRIP OBJCOPY OBJDUMP READELF ADDR2LINE)
    string(TOLOWER ${tool} name)
    set(CMAKE_${tool} ${ZEP_TOOLCHAIN}/bin/arm-uclibc-${name} CACHE FILEPATH "")
endforeach()
set(CMAKE_FIND_ROOT_PATH ${ZEP_TOOLCHAIN}/sysroot)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Thumb code is a tenth smaller over the whole executable. Paths in the objects are relative, so
# that the bytes do not tell where they were built.
get_filename_component(top ${CMAKE_CURRENT_LIST_DIR} DIRECTORY)
set(flags "-mthumb -fstack-protector-strong -fno-unwind-tables -fno-asynchronous-unwind-tables -ffunction-sections -fdata-sections -ffile-prefix-map=${top}=.")
set(CMAKE_C_FLAGS_INIT "${flags}")
set(CMAKE_CXX_FLAGS_INIT "${flags} -fno-exceptions -fno-rtti -fno-threadsafe-statics")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-s -Wl,--gc-sections -Wl,-z,relro,-z,now,-z,noexecstack")

set(ZEP_TEST_LAUNCHER qemu-arm-static;-cpu;arm926 CACHE STRING "runs a target program")
set(ZEP_DEVICE ON CACHE BOOL "the device target: no virtual camera, no host tools")
set(ZEP_RELEASE ON CACHE BOOL "the file that goes onto a camera, with its size table and checks")
