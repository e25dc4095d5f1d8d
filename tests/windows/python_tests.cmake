# The Python tests on the recording double, on the 32-bit Windows Python in the folder that the
# environment variable PYORV3_WINDOWS_PYTHON names when the build is configured.

set(PYORV3_WINDOWS_PYTHON "$ENV{PYORV3_WINDOWS_PYTHON}" CACHE PATH
    "Folder of a 32-bit Windows Python to run the Python tests on")
if(NOT PYORV3_WINDOWS_PYTHON)
    message(STATUS "No PYORV3_WINDOWS_PYTHON: the Python tests are skipped")
    return()
endif()

# The interpreter's folder is where a process finds libraries first: everything lies in it.
file(GLOB interpreter "${PYORV3_WINDOWS_PYTHON}/*.exe" "${PYORV3_WINDOWS_PYTHON}/*.dll"
    "${PYORV3_WINDOWS_PYTHON}/*.zip" "${PYORV3_WINDOWS_PYTHON}/Lib" "${PYORV3_WINDOWS_PYTHON}/DLLs")
file(COPY ${interpreter} DESTINATION "${PYORV3_TEST_DIR}")
add_custom_target(module_for_tests ALL
    COMMAND "${CMAKE_COMMAND}" -E copy_if_different "$<TARGET_FILE:pyORV3>" "${PYORV3_TEST_DIR}"
    DEPENDS pyORV3 double_python)

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
        ENVIRONMENT "PYTHONPATH=${python_tests}" TIMEOUT 300)
endforeach()
