# The charting library of interactive reports, uPlot, with its licence. It is not a part of the project:
# npm fetches it once for each build directory. Without it reports are static. A source distribution
# contains the npm package in bundled/; it was fetched by `cmake -D uplot_dir=DIRECTORY -P` of this file.
#
# PYORV3_UPLOT: the npm package uplot-1.6.32.tgz, for builds without npm or network.

set(PYORV3_UPLOT "" CACHE FILEPATH "The npm package of uPlot; empty: npm fetches it")
set(uplot_version 1.6.32)
set(uplot_sha256 4b8a8191e425658e3ea8c8c1314b0fc679c861ee3a1af2b20c7b16ba50b5133d)
if(NOT CMAKE_SCRIPT_MODE_FILE)
    set(uplot_dir "${CMAKE_BINARY_DIR}/uplot")
endif()
set(uplot_files uPlot.iife.min.js uPlot.min.css LICENSE)

# Sets PROBLEM to the reason if the package cannot be fetched.
function(fetch_uplot package problem)
    find_program(npm npm NO_CACHE)
    if(NOT npm)
        set(${problem} "npm is not installed" PARENT_SCOPE)
        return()
    endif()
    file(MAKE_DIRECTORY "${uplot_dir}")
    message(STATUS "Fetching uPlot ${uplot_version}")
    execute_process(
        COMMAND "${npm}" pack --silent --fetch-timeout=20000 --fetch-retries=1 "uplot@${uplot_version}"
        WORKING_DIRECTORY "${uplot_dir}" RESULT_VARIABLE result OUTPUT_QUIET ERROR_QUIET TIMEOUT 60)
    if(NOT result EQUAL 0 OR NOT EXISTS "${package}")
        set(${problem} "npm could not fetch it" PARENT_SCOPE)
    endif()
endfunction()

# Puts the files of the library into a directory of the product.
function(add_charting_library destination)
    set(package "${uplot_dir}/uplot-${uplot_version}.tgz")
    set(bundled "${PROJECT_SOURCE_DIR}/bundled/uplot-${uplot_version}.tgz")
    set(problem "")
    if(PYORV3_UPLOT)
        set(package "${PYORV3_UPLOT}")
    elseif(EXISTS "${bundled}")
        set(package "${bundled}")
    elseif(NOT EXISTS "${package}")
        fetch_uplot("${package}" problem)
    endif()
    if(NOT problem)
        file(SHA256 "${package}" sum)
        if(NOT sum STREQUAL uplot_sha256)
            set(problem "${package} has the wrong checksum")
        endif()
    endif()
    if(problem)
        message(STATUS "Reports will be static without uPlot ${uplot_version}: ${problem}")
        return()
    endif()
    file(ARCHIVE_EXTRACT INPUT "${package}" DESTINATION "${uplot_dir}")
    foreach(file IN LISTS uplot_files)
        file(GLOB_RECURSE path "${uplot_dir}/package/${file}")
        file(COPY "${path}" DESTINATION "${destination}")
    endforeach()
endfunction()

if(CMAKE_SCRIPT_MODE_FILE)
    fetch_uplot("${uplot_dir}/uplot-${uplot_version}.tgz" problem)
    if(problem)
        message(FATAL_ERROR "uPlot ${uplot_version}: ${problem}")
    endif()
endif()
