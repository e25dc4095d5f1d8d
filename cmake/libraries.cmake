# The data-access library to link against, and the import libraries of DLLs on Windows.

# add_import_library(NAME DEFINITIONS)
#
# Adds the interface library NAME, which imports the functions of a .def file from a DLL. The DLL
# itself is not needed.
function(add_import_library name definitions)
    set(archive "${CMAKE_BINARY_DIR}/import/lib${name}.a")
    add_custom_command(
        OUTPUT "${archive}"
        COMMAND "${CMAKE_DLLTOOL}" --kill-at --input-def "${definitions}" --output-lib "${archive}"
        DEPENDS "${definitions}"
        VERBATIM)
    add_custom_target(${name}_archive DEPENDS "${archive}")
    add_library(${name} INTERFACE)
    add_dependencies(${name} ${name}_archive)
    target_link_libraries(${name} INTERFACE "${archive}")
    set_target_properties(${name} PROPERTIES INTERFACE_LINK_DEPENDS "${archive}")
endfunction()

# orv_library: the data-access library, found by its name at run time. On Windows its import library
# is built from cmake/windows/ORV.def in the calling convention of the build.
add_library(orv_library INTERFACE)
if(WIN32)
    set(orv_definitions "${PROJECT_SOURCE_DIR}/cmake/windows/ORV.def")
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${orv_definitions}")
    file(READ "${orv_definitions}" definitions)
    if(NOT ORV_CALL STREQUAL "__stdcall")
        string(REGEX REPLACE "([A-Za-z0-9])@[0-9]+" "\\1" definitions "${definitions}")
    endif()
    file(CONFIGURE OUTPUT "${CMAKE_BINARY_DIR}/import/ORV.def" CONTENT "${definitions}" @ONLY)
    add_import_library(orv_import "${CMAKE_BINARY_DIR}/import/ORV.def")
    target_link_libraries(orv_library INTERFACE orv_import)
else()
    target_link_libraries(orv_library INTERFACE orv)
endif()
