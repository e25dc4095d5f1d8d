# 32-bit Windows, cross-compiled with MinGW-w64; programs of the build run under Wine.

set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86)

set(prefix i686-w64-mingw32)
set(CMAKE_C_COMPILER ${prefix}-gcc-posix)
set(CMAKE_CXX_COMPILER ${prefix}-g++-posix)
set(CMAKE_RC_COMPILER ${prefix}-windres)
set(CMAKE_STRIP "" CACHE FILEPATH "Empty: the linker strips; this program would add the current date")

# Floating-point arithmetic in SSE2 registers gives the same results as on 64-bit systems. Callers
# built by other compilers align the stack to 4 bytes only, so functions align it themselves.
set(machine "-march=i686 -msse2 -mfpmath=sse -mstackrealign")
set(CMAKE_C_FLAGS_INIT "${machine}")
set(CMAKE_CXX_FLAGS_INIT "${machine}")

# Libraries export plain names under either calling convention.
set(plain_names "-Wl,--kill-at -Wl,--enable-stdcall-fixup")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${plain_names}")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "${plain_names}")

set(CMAKE_FIND_ROOT_PATH /usr/${prefix})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_CROSSCOMPILING_EMULATOR "${CMAKE_CURRENT_LIST_DIR}/windows/run-under-wine")
