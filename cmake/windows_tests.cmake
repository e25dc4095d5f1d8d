# The environment of the tests on Windows: GoogleTest built from Debian's sources, the compiler's
# runtime libraries beside the programs, and a directory for Wine that exists while CTest runs.

set(PYORV3_GOOGLETEST "/usr/src/googletest" CACHE PATH "Sources of GoogleTest")
set(INSTALL_GTEST OFF)
add_subdirectory("${PYORV3_GOOGLETEST}" "${CMAKE_BINARY_DIR}/googletest" EXCLUDE_FROM_ALL SYSTEM)

# A program finds its libraries in its own directory, so all of them are in one.
set(PYORV3_TEST_DIR "${CMAKE_BINARY_DIR}/double")
foreach(library libgcc_s_dw2-1.dll libstdc++-6.dll libwinpthread-1.dll)
    execute_process(
        COMMAND "${CMAKE_CXX_COMPILER}" "-print-file-name=${library}"
        OUTPUT_VARIABLE path OUTPUT_STRIP_TRAILING_WHITESPACE)
    file(COPY "${path}" DESTINATION "${PYORV3_TEST_DIR}")
endforeach()

set(wine_prefix "${CMAKE_BINARY_DIR}/wine")
foreach(step create remove)
    add_test(NAME wine_${step}
        COMMAND "${PROJECT_SOURCE_DIR}/cmake/windows/wine-prefix" ${step} "${wine_prefix}")
endforeach()
set_tests_properties(wine_create PROPERTIES FIXTURES_SETUP wine)
set_tests_properties(wine_remove PROPERTIES FIXTURES_CLEANUP wine)

# run_under_wine(TEST...): the tests are Windows programs.
function(run_under_wine)
    set_tests_properties(${ARGN} PROPERTIES
        FIXTURES_REQUIRED wine
        ENVIRONMENT_MODIFICATION "WINEPREFIX=set:${wine_prefix}")
endfunction()
