# What every target is compiled with, and what only the product is.
add_library(zep_warnings INTERFACE)
target_compile_options(zep_warnings INTERFACE
    -Wall -Wextra -Wshadow -Wformat=2 -Wundef -Wpointer-arith -Wvla -Wno-psabi $<$<BOOL:${ZEP_WERROR}>:-Werror>)

# The product uses nothing of the C++ runtime library: what slips in is an undefined
# symbol, because product programs are linked with the C driver.
add_library(zep_product INTERFACE)
target_link_libraries(zep_product INTERFACE zep_warnings)
target_compile_options(zep_product INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>
    "$<$<BOOL:${ZEP_RELEASE}>:-fno-unwind-tables;-flto;-ffat-lto-objects>" -fno-asynchronous-unwind-tables -ffunction-sections -fdata-sections -fvisibility=default)
target_compile_definitions(zep_product INTERFACE _GNU_SOURCE _FILE_OFFSET_BITS=64)
target_include_directories(zep_product INTERFACE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/mpp/code)

# Host tools, the virtual camera and the tests: the full standard library.
add_library(zep_host INTERFACE)
target_link_libraries(zep_host INTERFACE zep_warnings)
target_compile_definitions(zep_host INTERFACE _GNU_SOURCE _FILE_OFFSET_BITS=64)
target_include_directories(zep_host INTERFACE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/mpp/code)

if(ZEP_SANITIZE)
    foreach(t zep_product zep_host)
        # The checks that a sanitizer adds make GCC see uninitialised values in library code that has none.
        target_compile_options(${t} INTERFACE -fsanitize=${ZEP_SANITIZE} -fno-sanitize-recover=all
            $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized> -fno-omit-frame-pointer -g1)
        target_link_options(${t} INTERFACE -fsanitize=${ZEP_SANITIZE})
    endforeach()
endif()

# host_headers(): what nearly every source of the host tools includes, compiled once. The build for clang goes without,
# which shows a source that lacks an include.
function(host_headers)
    find_package(nlohmann_json REQUIRED)
    file(WRITE ${CMAKE_BINARY_DIR}/host_headers.cpp "int main() {}\n")
    add_executable(host_headers EXCLUDE_FROM_ALL ${CMAKE_BINARY_DIR}/host_headers.cpp)
    target_link_libraries(host_headers PRIVATE zep_host nlohmann_json::nlohmann_json)
    quick_to_build(host_headers)
    target_precompile_headers(host_headers PRIVATE <nlohmann/json.hpp> <algorithm> <filesystem> <fstream> <functional>
        <map> <optional> <sstream> <string> <thread> <vector>)
endfunction()

# quick_to_build(TARGET...): commands and options of the host tools, which wait for people and files. Less
# optimisation builds them in two thirds of the time, none at all, for the sanitizers, in half.
function(quick_to_build)
    foreach(t ${ARGN})
        if(ZEP_SANITIZE)
            target_compile_options(${t} PRIVATE -O0 -g1)
        else()
            target_compile_options(${t} PRIVATE -O1 $<$<CONFIG:RelWithDebInfo>:-g1>)
        endif()
        if(TARGET host_headers AND NOT t STREQUAL "host_headers")
            target_compile_options(${t} PRIVATE -fPIE) # as in host_headers; no shared library holds these objects
            target_precompile_headers(${t} REUSE_FROM host_headers)
        endif()
    endforeach()
endfunction()

# in_batches(TARGET...): several sources in one compiler run. Most of a host source's time goes into the standard
# library's headers and templates, which a batch reads and compiles once. The build for clang takes each source by
# itself, which shows one that lacks an include.
function(in_batches)
    set_target_properties(${ARGN} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 12 UNITY_BUILD_UNIQUE_ID ZEP_SOURCE_ID)
endfunction()
