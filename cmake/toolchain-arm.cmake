# What the targets on the device's C library share.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(ZEP_TEST_LAUNCHER qemu-arm-static;-cpu;arm926 CACHE STRING "runs a target program")
set(ZEP_DEVICE ON CACHE BOOL "the device target: no virtual camera, no host tools")
get_filename_component(ZEP_TOP ${CMAKE_CURRENT_LIST_DIR} DIRECTORY)

# zep_toolchain(SCRIPT): the toolchain that the script of toolchain/ builds or finds in its cache, with
# the compilers bin/arm-uclibc-gcc and -g++.
macro(zep_toolchain script)
    if(NOT ZEP_TOOLCHAIN)
        execute_process(COMMAND ${ZEP_TOP}/toolchain/${script}
            OUTPUT_VARIABLE text RESULT_VARIABLE failed OUTPUT_STRIP_TRAILING_WHITESPACE)
        if(failed)
            message(FATAL_ERROR "the toolchain cannot be built: ${text}")
        endif()
        string(REGEX REPLACE ".*\n" "" text "${text}")
        set(ZEP_TOOLCHAIN ${text} CACHE PATH "the toolchain that toolchain/${script} built" FORCE)
    endif()
    list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ZEP_TOOLCHAIN)
    set(CMAKE_C_COMPILER ${ZEP_TOOLCHAIN}/bin/arm-uclibc-gcc)
    set(CMAKE_CXX_COMPILER ${ZEP_TOOLCHAIN}/bin/arm-uclibc-g++)
    foreach(tool AR NM RANLIB STRIP OBJCOPY OBJDUMP READELF ADDR2LINE)
        string(TOLOWER ${tool} name)
        set(CMAKE_${tool} ${ZEP_TOOLCHAIN}/bin/arm-uclibc-${name} CACHE FILEPATH "")
    endforeach()
endmacro()

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Thumb code like the C library's.
set(flags "-mthumb -fstack-protector-strong -fno-asynchronous-unwind-tables -ffunction-sections -fdata-sections")
set(CMAKE_C_FLAGS_INIT "${flags}")
set(CMAKE_CXX_FLAGS_INIT "${flags}")
# Paths in the objects are relative: the bytes do not tell where they were built. Not among the flags, which are
# given to the linker too and are split at blanks.
add_compile_options("-ffile-prefix-map=${ZEP_TOP}=.")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-s -Wl,--gc-sections -Wl,-z,noexecstack")
