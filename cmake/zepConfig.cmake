# The targets need nothing that a program could look for, so the list of them is the package.
include(${CMAKE_CURRENT_LIST_DIR}/zepTargets.cmake)
# The libraries are written in C++ without its runtime library: a program in C links them with its own driver.
foreach(library common service board upgrade mpp)
    get_target_property(configurations zep::${library} IMPORTED_CONFIGURATIONS)
    foreach(configuration ${configurations})
        set_target_properties(zep::${library} PROPERTIES IMPORTED_LINK_INTERFACE_LANGUAGES_${configuration} C)
    endforeach()
endforeach()
