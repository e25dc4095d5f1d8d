# The Python tests on the recording double, with the 32-bit Windows Python in the directory
# PYORV3_WINDOWS_PYTHON.

set(PYORV3_WINDOWS_PYTHON "$ENV{PYORV3_WINDOWS_PYTHON}" CACHE PATH
    "Folder of a 32-bit Windows Python to run the Python tests on")
if(NOT PYORV3_WINDOWS_PYTHON)
    message(STATUS "No PYORV3_WINDOWS_PYTHON: the Python tests are skipped")
    return()
endif()

# A process looks for libraries in the directory of the interpreter first, so all files are in it.
file(GLOB interpreter "${PYORV3_WINDOWS_PYTHON}/*.exe" "${PYORV3_WINDOWS_PYTHON}/*.dll"
    "${PYORV3_WINDOWS_PYTHON}/*.zip" "${PYORV3_WINDOWS_PYTHON}/Lib" "${PYORV3_WINDOWS_PYTHON}/DLLs")
file(COPY ${interpreter} DESTINATION "${PYORV3_TEST_DIR}")
# The module and the package qar come from the wheel, unpacked.
set(unpacked_wheel "${CMAKE_BINARY_DIR}/unpacked-wheel")
set(wheel "${CMAKE_BINARY_DIR}/${PROJECT_NAME}-${PROJECT_VERSION}-cp36-abi3-win32.whl")
add_custom_target(module_for_tests ALL
    COMMAND "${CMAKE_COMMAND}" -E rm -rf "${unpacked_wheel}"
    COMMAND "${CMAKE_COMMAND}" -E make_directory "${unpacked_wheel}"
    COMMAND "${CMAKE_COMMAND}" -E chdir "${unpacked_wheel}" "${CMAKE_COMMAND}" -E tar xf "${wheel}"
    DEPENDS package_windows double_python
    VERBATIM)

set(python_tests "${PROJECT_SOURCE_DIR}/tests/python")
file(GLOB files CONFIGURE_DEPENDS
    "${python_tests}/on_double/test_*.py" "${CMAKE_CURRENT_SOURCE_DIR}/test_*.py")
foreach(file IN LISTS files)
    get_filename_component(folder "${file}" DIRECTORY)
    get_filename_component(name "${file}" NAME_WE)
    add_test(NAME windows_python.${name}
        COMMAND "${CMAKE_CROSSCOMPILING_EMULATOR}" "${PYORV3_TEST_DIR}/python.exe" -B -m unittest -v ${name}
        WORKING_DIRECTORY "${folder}")
    run_under_wine(windows_python.${name})
    set_tests_properties(windows_python.${name} PROPERTIES
        ENVIRONMENT "PYTHONPATH=${unpacked_wheel}\\;${python_tests}")
endforeach()
