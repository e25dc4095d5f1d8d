# The import library of ORV.dll, made from cmake/windows/ORV.def in the calling convention of the
# build, and linked by orv_library.

include(cmake/import_library.cmake)

set(functions "${PROJECT_SOURCE_DIR}/cmake/windows/ORV.def")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${functions}")
file(READ "${functions}" definitions)
if(NOT ORV_CALL STREQUAL "__stdcall")
    string(REGEX REPLACE "([A-Za-z0-9])@[0-9]+" "\\1" definitions "${definitions}")
endif()
file(CONFIGURE OUTPUT "${CMAKE_BINARY_DIR}/import/ORV.def" CONTENT "${definitions}" @ONLY)

add_import_library(orv_import "${CMAKE_BINARY_DIR}/import/ORV.def")
target_link_libraries(orv_library INTERFACE orv_import)
