# add_import_library(NAME DEFINITIONS)
#
# The interface library NAME, which imports from a DLL what a .def file lists. The DLL itself is not
# needed for it.

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
