# The Python headers of the stable ABI, as the interface library python_stable_abi.
#
# PYTHON: the interpreter whose headers are used and that runs the tests; a path, or a name that is
# looked up in PATH. The environment variable PYTHON overrides it at each configuration.

set(PYTHON "/usr/bin/python3" CACHE FILEPATH "The Python interpreter to build for and test with")
if(DEFINED ENV{PYTHON})
    set_property(CACHE PYTHON PROPERTY VALUE "$ENV{PYTHON}")
endif()
find_program(python_interpreter "${PYTHON}" NO_CACHE)
if(NOT python_interpreter)
    message(FATAL_ERROR "PYTHON: \"${PYTHON}\" is not a program on this machine")
endif()
set(PYTHON "${python_interpreter}")

add_library(python_stable_abi INTERFACE)
target_compile_definitions(python_stable_abi INTERFACE Py_LIMITED_API=0x03020000)

if(WIN32)
    include(cmake/python_windows.cmake)
else()
    if(CMAKE_SYSROOT)
        file(GLOB python_include "${CMAKE_SYSROOT}/usr/include/python3.*")
    else()
        execute_process(
            COMMAND "${PYTHON}" -c "import sysconfig; print(sysconfig.get_paths()['include'])"
            OUTPUT_VARIABLE python_include OUTPUT_STRIP_TRAILING_WHITESPACE
            COMMAND_ERROR_IS_FATAL ANY)
    endif()
    if(NOT EXISTS "${python_include}/Python.h")
        message(FATAL_ERROR "${python_include}/Python.h, of ${PYTHON}, is missing: install python3-dev")
    endif()
    target_include_directories(python_stable_abi SYSTEM INTERFACE "${python_include}")
endif()
