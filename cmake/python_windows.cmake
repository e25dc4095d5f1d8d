# The Python headers and the import library of python3.dll for 32-bit Windows.
#
# PYTHON_WINDOWS_INCLUDE and PYTHON_WINDOWS_LIB are the directory include and the file
# libs/python3.lib of an installed 32-bit Windows Python. Without them the build uses the headers of
# this system's Python with cmake/windows/pyconfig.h, and an import library made from
# cmake/windows/python3.def.

set(PYTHON_WINDOWS_INCLUDE "" CACHE PATH "Headers of a 32-bit Windows Python; empty: this system's")
set(PYTHON_WINDOWS_LIB "" CACHE FILEPATH "python3.lib of a 32-bit Windows Python; empty: made here")

if(PYTHON_WINDOWS_INCLUDE)
    set(python_include "${PYTHON_WINDOWS_INCLUDE}")
else()
    execute_process(
        COMMAND "${PYTHON}" -c "import sysconfig; print(sysconfig.get_paths()['include'])"
        OUTPUT_VARIABLE system_include OUTPUT_STRIP_TRAILING_WHITESPACE
        COMMAND_ERROR_IS_FATAL ANY)
    set(python_include "${CMAKE_BINARY_DIR}/python-include")
    # Only the headers of Python: other packages install theirs in the same directory.
    foreach(folder "" "/cpython" "/internal")
        file(GLOB headers "${system_include}${folder}/*.h")
        list(REMOVE_ITEM headers "${system_include}/pyconfig.h")
        file(COPY ${headers} DESTINATION "${python_include}${folder}")
    endforeach()
    configure_file(cmake/windows/pyconfig.h "${python_include}/pyconfig.h" COPYONLY)
endif()
if(NOT EXISTS "${python_include}/Python.h")
    message(FATAL_ERROR "${python_include}/Python.h is missing: install python3-dev")
endif()
target_include_directories(python_stable_abi SYSTEM INTERFACE "${python_include}")

if(PYTHON_WINDOWS_LIB)
    target_link_libraries(python_stable_abi INTERFACE "${PYTHON_WINDOWS_LIB}")
else()
    add_import_library(python_import "${PROJECT_SOURCE_DIR}/cmake/windows/python3.def")
    target_link_libraries(python_stable_abi INTERFACE python_import)
endif()
