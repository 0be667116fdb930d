# No test has a time limit of its own: CTest ends one after 1500 s, however busy the PC is.

# GoogleTest: Debian's own build of it where the compiler is Debian's, else made from Debian's sources.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND NOT CMAKE_CROSSCOMPILING AND NOT ZEP_SANITIZE MATCHES thread)
    find_package(GTest REQUIRED) # libgtest-dev, libgmock-dev
    foreach(t gtest gmock gtest_main gmock_main)
        add_library(${t} INTERFACE)
        target_link_libraries(${t} INTERFACE GTest::${t})
    endforeach()
else()
    set(ZEP_GTEST_SOURCE /usr/src/googletest CACHE PATH "GoogleTest sources (Debian: googletest)")
    set(INSTALL_GTEST OFF)
    add_subdirectory(${ZEP_GTEST_SOURCE} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
    foreach(t gtest gmock gtest_main gmock_main)
        target_compile_options(${t} PRIVATE -w -O0 -g0)
        if(ZEP_SANITIZE)
            target_compile_options(${t} PRIVATE -fsanitize=${ZEP_SANITIZE})
        endif()
    endforeach()
endif()

# Function names and lines are what a failed test's trace shows. The tests' own code is not optimised, which halves
# the time that it takes to build; what they test is.
set(test_debug -g1 -O0)

# What nearly every test includes, compiled once: half of a test's time goes into reading it.
file(WRITE ${CMAKE_BINARY_DIR}/test_headers.cpp "int main() {}\n")
add_executable(test_headers EXCLUDE_FROM_ALL ${CMAKE_BINARY_DIR}/test_headers.cpp)
target_link_libraries(test_headers PRIVATE zep_host gtest gmock)
target_compile_options(test_headers PRIVATE ${test_debug})
target_precompile_headers(test_headers PRIVATE <gmock/gmock.h> <gtest/gtest.h> <algorithm> <filesystem> <fstream>
    <sstream> <string> <vector>)

# test_program(NAME SOURCES...): an executable of the tests.
function(test_program name)
    add_executable(${name} ${ARGN})
    target_link_libraries(${name} PRIVATE zep_host)
    # GCC 12 sees overlaps and overruns in std::string that are not there, and fixtures of a batch in no source.
    target_compile_options(${name} PRIVATE ${test_debug} $<$<CXX_COMPILER_ID:GNU>:-Wno-array-bounds -Wno-restrict -Wno-stringop-overflow -Wno-subobject-linkage>)
    target_precompile_headers(${name} REUSE_FROM test_headers)
    in_batches(${name})
endfunction()

# failing_calls(PROGRAM): a test program whose calls of the C library fail when told.
function(failing_calls program)
    target_sources(${program} PRIVATE ${PROJECT_SOURCE_DIR}/tests/support/failing_calls.cpp)
    foreach(call open64 fstat64 read write fchown fchmod lstat64 fsync close rename malloc)
        target_link_options(${program} PRIVATE -Wl,--wrap=${call})
    endforeach()
endfunction()

# unit_tests(FOLDER LIBRARIES...): every .cpp in tests/FOLDER becomes one program, named after the folder:
# unit_common of unit/common. These tests need no device file and no private root.
function(unit_tests folder)
    file(GLOB sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tests/${folder}/*.cpp)
    string(REPLACE "/" "_" name ${folder})
    test_program(${name} ${sources})
    target_link_libraries(${name} PRIVATE ${ARGN} gtest_main gmock)
    add_test(NAME ${name} COMMAND ${ZEP_TEST_LAUNCHER} $<TARGET_FILE:${name}>)
    set_tests_properties(${name} PROPERTIES LABELS unit)
endfunction()

# What the camera's tests start.
if(NOT ZEP_DEVICE)
    add_custom_target(whole_camera)
    add_dependencies(whole_camera zep vcam vcam-guest vcamsim)
    if(TARGET pc_programs)
        add_dependencies(whole_camera pc_programs)
    endif()
endif()

# camera_programs(FOLDER): every test_NAME.cpp of a folder below the caller's becomes a program that works with
# virtual cameras, named PREFIX_NAME after the caller's folder.
function(camera_programs folder)
    get_filename_component(prefix ${CMAKE_CURRENT_SOURCE_DIR} NAME)
    file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/test_*.cpp)
    foreach(source ${sources})
        get_filename_component(name ${source} NAME_WE)
        string(REPLACE "test_" "${prefix}_" name ${name})
        test_program(${name} ${source})
        target_link_libraries(${name} PRIVATE zepupgrade gtest_main gmock)
        target_compile_definitions(${name} PRIVATE VCAM="${ZEP_CAMERA}")
        add_dependencies(${name} whole_camera)
        add_test(NAME ${name} COMMAND ${name})
        set_tests_properties(${name} PROPERTIES LABELS camera)
    endforeach()
endfunction()

# host_transcripts(PREFIX LABEL FILES...): each file NAME.transcript of command lines and what they write is the test
# PREFIX_NAME; one program runs all.
function(host_transcripts prefix label)
    if(NOT TARGET host_transcripts)
        test_program(host_transcripts ${PROJECT_SOURCE_DIR}/tests/support/host_transcripts.cpp)
        target_link_libraries(host_transcripts PRIVATE gtest gmock)
        target_compile_definitions(host_transcripts PRIVATE TOOLS="${ZEP_BIN}:${ZEP_BIN}/tests")
        foreach(tool zep vcam vcam-guest vcamsim fwpkg zep-audio zep-station)
            if(TARGET ${tool})
                add_dependencies(host_transcripts ${tool})
            endif()
        endforeach()
    endif()
    foreach(file ${ARGN})
        get_filename_component(name ${file} NAME_WE)
        add_custom_target(${prefix}_${name} ALL DEPENDS host_transcripts)
        add_test(NAME ${prefix}_${name} COMMAND host_transcripts ${CMAKE_CURRENT_SOURCE_DIR}/${file})
        set_tests_properties(${prefix}_${name} PROPERTIES LABELS ${label})
    endforeach()
endfunction()
