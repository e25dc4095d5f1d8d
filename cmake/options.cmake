# The compiler options of all targets, as the interface library project_options.

if(CMAKE_CXX_BYTE_ORDER STREQUAL "BIG_ENDIAN")
    message(FATAL_ERROR "${CMAKE_SYSTEM_PROCESSOR} stores numbers with the high byte first; pyORV3 needs a "
        "machine with little-endian numbers")
endif()

# CMake must not pass this directory explicitly, which breaks include_next; a compiler cache can hide it
# from CMake's own detection.
if(CMAKE_SYSROOT)
    list(APPEND CMAKE_CXX_IMPLICIT_INCLUDE_DIRECTORIES "${CMAKE_SYSROOT}/usr/include")
endif()

add_library(project_options INTERFACE)
target_include_directories(project_options INTERFACE "${PROJECT_SOURCE_DIR}")

set(warnings -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    # std::stable_sort of GCC 12's library calls a deprecated function, which Clang 19 reports.
    list(APPEND warnings -Wno-deprecated-declarations)
endif()
if(PYORV3_WARNINGS_AS_ERRORS)
    list(APPEND warnings -Werror)
endif()
target_compile_options(project_options INTERFACE ${warnings})

if(PYORV3_SANITIZE)
    set(sanitizers "-fsanitize=${PYORV3_SANITIZE}" -fno-omit-frame-pointer)
    if(PYORV3_SANITIZE MATCHES "undefined")
        list(APPEND sanitizers -fno-sanitize-recover=undefined)
    endif()
    target_compile_options(project_options INTERFACE ${sanitizers})
    target_link_options(project_options INTERFACE ${sanitizers})
endif()

if(NOT WIN32)
    # Hardening against data from files and scripts.
    if(NOT PYORV3_SANITIZE)
        target_compile_definitions(project_options INTERFACE $<$<CONFIG:Release>:_FORTIFY_SOURCE=2>)
    endif()
    target_compile_options(project_options INTERFACE -fstack-protector-strong)
    target_link_options(project_options INTERFACE -Wl,--enable-new-dtags -Wl,-z,relro -Wl,-z,now)

    # On 32-bit systems files have 64-bit offsets, and arithmetic in SSE2 registers gives the same results
    # as on 64-bit systems.
    if(CMAKE_SIZEOF_VOID_P EQUAL 4)
        target_compile_definitions(project_options INTERFACE _FILE_OFFSET_BITS=64)
        if(CMAKE_SYSTEM_PROCESSOR MATCHES "86")
            target_compile_options(project_options INTERFACE -msse2 -mfpmath=sse)
        endif()
    endif()
endif()

# calling conventions of the three native interfaces on 32-bit Windows
foreach(interface ORV_CALL ORV_DICTIONARY_CALL ORV_ENGINE_CALL)
    set(${interface} "__cdecl" CACHE STRING "Calling convention on Windows: __cdecl or __stdcall")
    set_property(CACHE ${interface} PROPERTY STRINGS __cdecl __stdcall)
    if(WIN32)
        target_compile_definitions(project_options INTERFACE ${interface}=${${interface}})
    endif()
endforeach()
