# finish_windows_product(TARGET)
#
# Links a module of the product so that it needs only Windows, Python and the suite: the runtime of
# the compiler is linked statically. Enables address randomisation and data execution prevention, and
# adds the version of the project.

enable_language(RC)

function(finish_windows_product target)
    configure_file("${PROJECT_SOURCE_DIR}/cmake/windows/version.rc.in"
        "${CMAKE_BINARY_DIR}/version.rc" @ONLY)
    set_target_properties(${target} PROPERTIES SUFFIX ".pyd")
    target_sources(${target} PRIVATE "${CMAKE_BINARY_DIR}/version.rc")
    target_link_options(${target} PRIVATE -static -Wl,--dynamicbase -Wl,--nxcompat -Wl,--no-insert-timestamp
        $<$<CONFIG:Release>:-s>)
endfunction()

# package_windows: the wheel with the files that cmake --install writes.
function(add_windows_package target)
    add_custom_target(package_windows
        COMMAND "${PYTHON}" -B "${PROJECT_SOURCE_DIR}/python/packaging/wheel_backend.py" wheel
            "${CMAKE_BINARY_DIR}" "${CMAKE_BINARY_DIR}"
        DEPENDS ${target}
        VERBATIM)
endfunction()
