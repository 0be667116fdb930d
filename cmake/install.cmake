# What other programs of the device build with: pkg-config files and a CMake package beside the libraries
# and headers that the folders install themselves. Component runtime is what a camera needs, development
# what its programs are built with, tools what runs on a PC.
# The prefix is known only when installing: cmake --install --prefix.
foreach(package zepcommon zepmpp)
    install(CODE "
        set(PROJECT_VERSION ${PROJECT_VERSION})
        set(CMAKE_INSTALL_LIBDIR ${CMAKE_INSTALL_LIBDIR})
        set(CMAKE_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR})
        configure_file(${PROJECT_SOURCE_DIR}/cmake/${package}.pc.in ${PROJECT_BINARY_DIR}/${package}.pc @ONLY)"
        COMPONENT development)
    install(FILES ${PROJECT_BINARY_DIR}/${package}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT development)
endforeach()

include(CMakePackageConfigHelpers)
set(package ${CMAKE_INSTALL_LIBDIR}/cmake/zep)
install(EXPORT zep FILE zepTargets.cmake NAMESPACE zep:: DESTINATION ${package} COMPONENT development)
# The targets need nothing that a program could look for, so the list of them is the package.
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/zepConfig.cmake
    "include(\${CMAKE_CURRENT_LIST_DIR}/zepTargets.cmake)\n")
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/zepConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/zepConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/zepConfigVersion.cmake
    DESTINATION ${package} COMPONENT development)

file(GLOB pages CONFIGURE_DEPENDS docs/man/*.5)
install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man5 COMPONENT development)
install(DIRECTORY docs/examples/etc DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT development)

# Manual pages: section 1 tells of the host tools, section 8 of the applets.
file(GLOB pages CONFIGURE_DEPENDS docs/man/*.8)
install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 COMPONENT runtime)
