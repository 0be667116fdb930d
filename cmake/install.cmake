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

# Manual pages, with the version in their footer: sections 3, 5 and 7 are about the libraries and the files,
# section 8 about the applets, section 1 about the tools.
function(manual_pages component)
    foreach(section ${ARGN})
        install(CODE "
            file(GLOB pages ${PROJECT_SOURCE_DIR}/docs/man/*.${section})
            foreach(page \${pages})
                file(READ \"\${page}\" text)
                string(REPLACE \"\\n.Os\\n\" \"\\n.Os ZEP ${PROJECT_VERSION}\\n\" text \"\${text}\")
                get_filename_component(name \"\${page}\" NAME)
                file(WRITE \"${PROJECT_BINARY_DIR}/man/\${name}\" \"\${text}\")
                file(INSTALL \"${PROJECT_BINARY_DIR}/man/\${name}\"
                    DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_MANDIR}/man${section}\")
            endforeach()" COMPONENT ${component})
    endforeach()
endfunction()
manual_pages(development 3 5 7)
manual_pages(runtime 8)
if(NOT ZEP_DEVICE)
    manual_pages(tools 1)
endif()
