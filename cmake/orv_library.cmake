# orv_library: what a target links to reach the data-access library, found by its name at run time.

add_library(orv_library INTERFACE)
if(WIN32)
    include(cmake/orv_import_library.cmake)
else()
    target_link_libraries(orv_library INTERFACE orv)
endif()
