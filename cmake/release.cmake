# The release executable's map, for the size table, and its budget: 8 KiB an applet, the C library
# included. The build fails above it.
list(LENGTH ZEP_APPLETS count)
math(EXPR ZEP_BUDGET "${count} * 8 * 1024")
target_link_options(zep PRIVATE -Wl,-Map=app/zep.map)
add_custom_command(TARGET zep POST_BUILD COMMAND ${CMAKE_COMMAND}
    -DFILE=$<TARGET_FILE:zep> -DLIMIT=${ZEP_BUDGET} -P ${PROJECT_SOURCE_DIR}/cmake/budget.cmake)
