# A build of 32 bits on a PC tests the product's 32-bit code in the PC's own virtual camera and with its tools: they are
# built there, in the folder ZEP_PC_BUILD, and imported here under their names.
add_custom_target(pc_programs ALL COMMENT "The PC's programs" VERBATIM
    COMMAND sh -c "test -f $1/build.ninja || cmake --preset host > /dev/null" configure ${ZEP_PC_BUILD}
    COMMAND ${CMAKE_COMMAND} --build ${ZEP_PC_BUILD} -j 2 --target vcam vcam-guest vcamsim fwpkg zep-audio
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
foreach(program vcam vcam-guest fwpkg zep-audio)
    add_executable(${program} IMPORTED GLOBAL)
    set_target_properties(${program} PROPERTIES IMPORTED_LOCATION ${ZEP_PC_BUILD}/bin/${program})
    add_dependencies(${program} pc_programs)
endforeach()
set(ZEP_HOST_LIBRARIES /usr/lib/x86_64-linux-gnu CACHE INTERNAL "for tests")

# The PC's vcam with this build's executable in its cameras.
file(CONFIGURE OUTPUT ${ZEP_BIN}/vcam CONTENT [[#!/bin/sh
VCAM_ZEP=${VCAM_ZEP-@CMAKE_BINARY_DIR@/app/zep} VCAM_PRELOAD=${VCAM_PRELOAD-@CMAKE_BINARY_DIR@/sim/preload}
export VCAM_ZEP VCAM_PRELOAD
exec @ZEP_PC_BUILD@/bin/vcam "$@"
]] @ONLY)
file(CHMOD ${ZEP_BIN}/vcam FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set_target_properties(vcam PROPERTIES IMPORTED_LOCATION ${ZEP_BIN}/vcam)
