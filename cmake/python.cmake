# The Python headers of the stable ABI, as the interface library python_stable_abi.
#
# PYTHON: the interpreter that the tests run on; by default the environment's PYTHON, else
# /usr/bin/python3.

if(DEFINED ENV{PYTHON})
    set(default_python "$ENV{PYTHON}")
else()
    set(default_python "/usr/bin/python3")
endif()
set(PYTHON "${default_python}" CACHE FILEPATH "The Python interpreter to build for and test with")

add_library(python_stable_abi INTERFACE)
target_compile_definitions(python_stable_abi INTERFACE Py_LIMITED_API=0x03020000)

if(WIN32)
    include(cmake/python_windows.cmake)
else()
    execute_process(
        COMMAND "${PYTHON}" -c "import sysconfig; print(sysconfig.get_paths()['include'])"
        OUTPUT_VARIABLE python_include OUTPUT_STRIP_TRAILING_WHITESPACE
        COMMAND_ERROR_IS_FATAL ANY)
    if(NOT EXISTS "${python_include}/Python.h")
        message(FATAL_ERROR "${python_include}/Python.h is missing: install python3-dev")
    endif()
    target_include_directories(python_stable_abi SYSTEM INTERFACE "${python_include}")
endif()
