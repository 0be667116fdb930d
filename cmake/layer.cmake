# layer(NAME [INNER] [SOURCES ...] [HEADERS ...] [OWN_HEADERS ...] [DEPENDS ...] [ROOT DIR])
#
# One folder of the product: a static library zepNAME, its install set, and a check that each public
# header compiles alone as C11 and as C++20. DEPENDS names the layers below it; a call
# upwards does not link. HEADERS are the public ones (.h), relative to the folder; ROOT is the
# folder that includes are spelled from (default: the top of the tree). OWN_HEADERS are checked likewise and
# not installed: other programs do not get what they declare. INNER: other programs do not get
# the library as such; it is a part of another, or of the executable alone.
function(layer name)
    cmake_parse_arguments(L "INNER" "ROOT" "SOURCES;HEADERS;OWN_HEADERS;DEPENDS" ${ARGN})
    if(NOT L_ROOT)
        set(L_ROOT ${PROJECT_SOURCE_DIR})
    endif()
    add_library(zep${name} STATIC ${L_SOURCES})
    set_target_properties(zep${name} PROPERTIES LINKER_LANGUAGE CXX)
    target_link_libraries(zep${name} PRIVATE $<BUILD_INTERFACE:zep_product>)
    target_include_directories(zep${name} PUBLIC $<BUILD_INTERFACE:${L_ROOT}>
        $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/zep>)
    foreach(d ${L_DEPENDS})
        target_link_libraries(zep${name} PUBLIC zep${d})
    endforeach()

    file(RELATIVE_PATH folder ${L_ROOT} ${CMAKE_CURRENT_SOURCE_DIR})
    set(checks)
    foreach(h ${L_HEADERS} ${L_OWN_HEADERS})
        string(MAKE_C_IDENTIFIER "${folder}/${h}" id)
        foreach(lang c cpp)
            set(tu ${CMAKE_CURRENT_BINARY_DIR}/alone_${id}.${lang})
            file(CONFIGURE OUTPUT ${tu} CONTENT "#include \"${folder}/${h}\"\nextern int alone_${id};\n")
            list(APPEND checks ${tu})
        endforeach()
    endforeach()
    foreach(h ${L_HEADERS})
        get_filename_component(sub "${folder}/${h}" DIRECTORY)
        install(FILES ${h} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zep/${sub} COMPONENT development)
    endforeach()
    if(checks AND ZEP_TESTS AND NOT ZEP_SANITIZE) # whose compiler is that of the plain build
        add_library(headers_${name} OBJECT ${checks})
        target_compile_options(headers_${name} PRIVATE -Wall -Wextra -Wpedantic $<$<BOOL:${ZEP_WERROR}>:-Werror>)
        target_include_directories(headers_${name} PRIVATE ${L_ROOT})
    endif()
    if(NOT L_INNER)
        set_target_properties(zep${name} PROPERTIES EXPORT_NAME ${name})
        install(TARGETS zep${name} EXPORT zep ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
    endif()
endfunction()
