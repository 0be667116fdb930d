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
# section 8 about the applets; the tools bring section 1 and the pages of their own files and protocol.
set(tool_pages ${PROJECT_SOURCE_DIR}/docs/man/camera.conf.5 ${PROJECT_SOURCE_DIR}/docs/man/vcam-faults.5
    ${PROJECT_SOURCE_DIR}/docs/man/zep-audio.7 ${PROJECT_SOURCE_DIR}/docs/man/zep-line.5)
function(manual_pages component)
    foreach(page ${ARGN})
        get_filename_component(name ${page} NAME)
        string(REGEX REPLACE ".*[.]" "" section ${name})
        install(CODE "
            file(READ ${page} text)
            string(REPLACE \"\\n.Os\\n\" \"\\n.Os ZEP ${PROJECT_VERSION}\\n\" text \"\${text}\")
            file(WRITE ${PROJECT_BINARY_DIR}/man/${name} \"\${text}\")
            file(INSTALL ${PROJECT_BINARY_DIR}/man/${name}
                DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_MANDIR}/man${section}\")"
            COMPONENT ${component})
    endforeach()
endfunction()
file(GLOB pages CONFIGURE_DEPENDS docs/man/*.[357])
list(REMOVE_ITEM pages ${tool_pages})
manual_pages(development ${pages})
file(GLOB pages CONFIGURE_DEPENDS docs/man/*.8)
manual_pages(runtime ${pages})
if(NOT ZEP_DEVICE)
    file(GLOB pages CONFIGURE_DEPENDS docs/man/*.1)
    manual_pages(tools ${pages} ${tool_pages})
endif()
