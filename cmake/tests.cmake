# GoogleTest from the distribution's sources, so that it exists for every target alike.
set(ZEP_GTEST_SOURCE /usr/src/googletest CACHE PATH "GoogleTest sources (Debian: googletest)")
set(INSTALL_GTEST OFF)
add_subdirectory(${ZEP_GTEST_SOURCE} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
foreach(t gtest gmock gtest_main gmock_main)
    target_compile_options(${t} PRIVATE -w)
    if(ZEP_SANITIZE)
        target_compile_options(${t} PRIVATE -fsanitize=${ZEP_SANITIZE})
    endif()
endforeach()

# unit_tests(FOLDER LIBRARIES...): every test_*.cpp in tests/unit/FOLDER becomes one program,
# unit_FOLDER. These tests need no device file and no private root: they run on every target.
function(unit_tests folder)
    file(GLOB sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tests/unit/${folder}/*.cpp)
    if(NOT sources)
        return()
    endif()
    add_executable(unit_${folder} ${sources})
    target_link_libraries(unit_${folder} PRIVATE zep_host ${ARGN} gtest_main gmock)
    add_test(NAME unit_${folder} COMMAND ${ZEP_TEST_LAUNCHER} $<TARGET_FILE:unit_${folder}>)
    set_tests_properties(unit_${folder} PROPERTIES LABELS unit TIMEOUT 300)
endfunction()
