# add_unit_test(NAME SOURCES file... [LIBRARIES target...] [ENVIRONMENT name=value...])
#
# Adds a GoogleTest executable with GoogleTest's main, which CTest runs as one test.

if(WIN32)
    include("${PROJECT_SOURCE_DIR}/cmake/windows_tests.cmake")
else()
    find_package(GTest REQUIRED)
    set(PYORV3_TEST_DIR "${CMAKE_BINARY_DIR}/tests")
endif()

function(add_unit_test name)
    cmake_parse_arguments(PARSE_ARGV 1 test "" "" "SOURCES;LIBRARIES;ENVIRONMENT")
    add_executable(${name} ${test_SOURCES})
    if(PYORV3_SANITIZE)
        target_compile_options(${name} PRIVATE $<$<CONFIG:Debug>:-O0>)  # compiles in half the time
    endif()
    target_link_libraries(${name} PRIVATE project_options ${test_LIBRARIES} GTest::gmock GTest::gtest_main)
    # The libraries of the product are in another directory; a library path has priority over it.
    set_target_properties(${name} PROPERTIES
        RUNTIME_OUTPUT_DIRECTORY "${PYORV3_TEST_DIR}"
        INSTALL_RPATH "${PYORV3_PRODUCT_DIR}")
    add_test(NAME ${name} COMMAND ${name})
    if(WIN32)
        run_under_wine(${name})
    endif()
    if(test_ENVIRONMENT)
        set_tests_properties(${name} PROPERTIES ENVIRONMENT "${test_ENVIRONMENT}")
    endif()
endfunction()
