# finish_windows_product(TARGET)
#
# Links a module of the product so that it needs nothing but Windows, Python and the suite: the
# compiler's runtime is inside it. Its loading address and its data are protected, and it carries the
# version of the project.

enable_language(RC)

function(finish_windows_product target)
    configure_file("${PROJECT_SOURCE_DIR}/cmake/windows/version.rc.in"
        "${CMAKE_BINARY_DIR}/version.rc" @ONLY)
    set_target_properties(${target} PROPERTIES SUFFIX ".pyd")
    target_sources(${target} PRIVATE "${CMAKE_BINARY_DIR}/version.rc")
    target_link_options(${target} PRIVATE -static -Wl,--dynamicbase -Wl,--nxcompat $<$<CONFIG:Release>:-s>)
endfunction()

# package_windows: the zip file that users get, of what cmake --install puts into one folder.
function(add_windows_package target)
    set(name "${PROJECT_NAME}-${PROJECT_VERSION}-win32")
    install(FILES "${PROJECT_SOURCE_DIR}/cmake/windows/README.txt" DESTINATION .)
    add_custom_target(package_windows
        COMMAND "${CMAKE_COMMAND}" -E rm -rf "${name}" "${name}.zip"
        COMMAND "${CMAKE_COMMAND}" --install . --prefix "${name}"
        COMMAND "${CMAKE_COMMAND}" -E tar cf "${name}.zip" --format=zip "${name}"
        WORKING_DIRECTORY "${CMAKE_BINARY_DIR}"
        DEPENDS ${target}
        VERBATIM)
endfunction()
