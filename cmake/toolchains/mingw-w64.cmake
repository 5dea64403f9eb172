# 64-bit Windows, cross-built with the posix-thread flavour of mingw-w64.
# Programs that the build runs go through Wine.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
# The archivers that know link-time optimisation data.
find_program(CMAKE_AR x86_64-w64-mingw32-gcc-ar-posix REQUIRED)
find_program(CMAKE_RANLIB x86_64-w64-mingw32-gcc-ranlib-posix REQUIRED)

# Appended to, so that a build may name roots of its own on the command line.
list(APPEND CMAKE_FIND_ROOT_PATH
  /usr/x86_64-w64-mingw32
  "${CMAKE_CURRENT_LIST_DIR}/../../build/deps/windows")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

get_filename_component(CMAKE_CROSSCOMPILING_EMULATOR
  "${CMAKE_CURRENT_LIST_DIR}/../../scripts/wine-run" ABSOLUTE)
