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
configure_file(cmake/zepConfig.cmake zepConfig.cmake COPYONLY)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/zepConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/zepConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/zepConfigVersion.cmake
    DESTINATION ${package} COMPONENT development)

install(DIRECTORY docs/examples/etc DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT development)

# Manual pages: sections 3, 5 and 7 tell of the libraries and the files, section 8 of the applets. Those of
# section 1 come with their tools.
function(manual_pages component)
    foreach(section ${ARGN})
        file(GLOB pages CONFIGURE_DEPENDS docs/man/*.${section})
        install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
    endforeach()
endfunction()
manual_pages(development 3 5 7)
manual_pages(runtime 8)
