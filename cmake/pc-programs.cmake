# Another build on a PC tests its product in the PC's own virtual camera, which is built in the folder ZEP_PC_BUILD: one
# of 32 bits, which has no host programs of its own, and the sanitizers', whose camera costs a start three times as much
# (the tests in tests/sim and tests/tools start theirs). Sets ZEP_CAMERA to the command that the camera's tests start.
add_custom_target(pc_programs ALL COMMENT "The PC's programs" VERBATIM
    COMMAND sh -c "test -f $1/build.ninja || cmake --preset host > /dev/null" configure ${ZEP_PC_BUILD}
    COMMAND ${CMAKE_COMMAND} --build ${ZEP_PC_BUILD} -j 2 --target vcam vcam-guest vcamsim fwpkg zep-audio
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})

# The PC's vcam with this build's executable in its cameras.
set(ZEP_CAMERA ${CMAKE_BINARY_DIR}/tests/vcam)
set(preload ${ZEP_PC_BUILD}/sim/preload)
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    set(preload ${CMAKE_BINARY_DIR}/sim/preload)
endif()
file(CONFIGURE OUTPUT ${ZEP_CAMERA} CONTENT [[#!/bin/sh
VCAM_ZEP=${VCAM_ZEP-@CMAKE_BINARY_DIR@/app/zep} VCAM_PRELOAD=${VCAM_PRELOAD-@preload@}
export VCAM_ZEP VCAM_PRELOAD
exec @ZEP_PC_BUILD@/bin/vcam "$@"
]] @ONLY)
file(CHMOD ${ZEP_CAMERA} FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ
    WORLD_EXECUTE)

if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    foreach(program vcam vcam-guest fwpkg zep-audio)
        add_executable(${program} IMPORTED GLOBAL)
        set_target_properties(${program} PROPERTIES IMPORTED_LOCATION ${ZEP_PC_BUILD}/bin/${program})
        add_dependencies(${program} pc_programs)
    endforeach()
    set_target_properties(vcam PROPERTIES IMPORTED_LOCATION ${ZEP_CAMERA})
    set(ZEP_HOST_LIBRARIES /usr/lib/x86_64-linux-gnu CACHE INTERNAL "for tests")
endif()
