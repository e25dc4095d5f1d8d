# Linux libraries that need only libgcc_s and the C library of a system root, which scripts/sysroot
# makes. The C++ library and SQLite are linked statically.
#
# PYORV3_MACHINE and PYORV3_SYSROOT: the machine, for example aarch64, and its system root.

set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES PYORV3_MACHINE PYORV3_SYSROOT)
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${PYORV3_MACHINE})
set(triplet ${PYORV3_MACHINE}-linux-gnu)
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})

set(CMAKE_SYSROOT "${PYORV3_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Debian's cross compilers search the headers of their own C library before those of the system root.
execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=include
    OUTPUT_VARIABLE compiler_headers OUTPUT_STRIP_TRAILING_WHITESPACE)
if(EXISTS "/usr/${triplet}/include/c++")
    get_filename_component(version "${compiler_headers}/.." ABSOLUTE)
    get_filename_component(version "${version}" NAME)
    set(headers "/usr/${triplet}/include/c++/${version}")
    set(cxx_headers "-nostdinc++ -isystem ${headers} -isystem ${headers}/${triplet}")
    set(c_headers "-nostdinc -isystem ${compiler_headers} -isystem ${CMAKE_SYSROOT}/usr/include/${triplet} -isystem ${CMAKE_SYSROOT}/usr/include")
    set(CMAKE_C_FLAGS_INIT "${c_headers}")
    set(CMAKE_CXX_FLAGS_INIT "${cxx_headers} ${c_headers}")
endif()

# libgcc_s stays shared: it unwinds the exceptions of all libraries in a process. The compiler would
# search the libraries of this system first.
set(linking "-B${CMAKE_SYSROOT}/usr/lib/${triplet} -static-libstdc++ -Wl,--as-needed -Wl,--exclude-libs,ALL")
# The libgcc_s of the compiler, which the tests are linked with, needs the C library of a newer system. The
# static C++ library comes last and needs libpthread, even if no object of a test does.
set(CMAKE_EXE_LINKER_FLAGS_INIT "${linking} -Wl,--no-as-needed -Wl,--allow-shlib-undefined")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${linking}")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "${linking}")
set(CMAKE_CXX_STANDARD_LIBRARIES_INIT "-lpthread -ldl")
