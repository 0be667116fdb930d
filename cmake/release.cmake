# The executable for a camera. Its own code is compiled as a whole, into one object of machine code; that object and
# the C library are what the executable is linked from, by us and by whoever has a changed library.
find_package(Python3 REQUIRED COMPONENTS Interpreter)
configure_file(${PROJECT_SOURCE_DIR}/toolchain/executable.ld executable.ld COPYONLY)
add_library(aside OBJECT ${PROJECT_SOURCE_DIR}/toolchain/unreached.c ${PROJECT_SOURCE_DIR}/toolchain/relro.c)
target_link_libraries(aside PRIVATE zep_warnings)
set(layout -Wl,-z,relro,-T,app/executable.ld)

# Linked source by source: its map is the size table's and the budgets' source, since the whole has no folders.
add_executable(zep_parts main.cpp $<TARGET_OBJECTS:aside>)
with_all_applets(zep_parts)
target_link_options(zep_parts PRIVATE -fno-lto ${layout} -Wl,-Map=app/zep_parts.map)

# Two warnings are wrong here: it takes functions compiled as ARM and as Thumb code for different types, and a name
# shorter than a bound for a read past its end.
add_executable(zep_whole $<TARGET_OBJECTS:zep_parts> $<TARGET_OBJECTS:aside>)
with_all_applets(zep_whole)
target_link_options(zep_whole PRIVATE -flto -flto-partition=one -fno-unwind-tables -Wno-odr -Wno-stringop-overread -save-temps)
set(whole ${CMAKE_CURRENT_BINARY_DIR}/zep_whole.o)
add_custom_command(TARGET zep_whole POST_BUILD BYPRODUCTS ${whole}
    COMMAND ${CMAKE_COMMAND} -E rename zep_whole.ltrans0.ltrans.o zep_whole.o)

add_executable(zep ${whole} $<TARGET_OBJECTS:aside>)
set_source_files_properties(${whole} PROPERTIES EXTERNAL_OBJECT ON GENERATED ON)
add_dependencies(zep zep_whole)
set_target_properties(zep PROPERTIES LINKER_LANGUAGE C)
target_link_libraries(zep PRIVATE ${libraries})
target_link_options(zep PRIVATE -fno-lto ${layout})
add_custom_command(TARGET zep POST_BUILD COMMAND Python3::Interpreter -B
    ${PROJECT_SOURCE_DIR}/tools/release/budget.py ${CMAKE_BINARY_DIR})
add_dependencies(zep zep_parts)
set_target_properties(zep zep_parts PROPERTIES LINK_DEPENDS ${CMAKE_CURRENT_BINARY_DIR}/executable.ld)
