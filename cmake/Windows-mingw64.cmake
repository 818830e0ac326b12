# 64-bit Windows from Debian: the mingw-w64 compilers with POSIX threads and a Qt that was built for them.
#
#   CORVANE_WINDOWS_QT_DIR   where that Qt is unpacked (a variable of CMake or of the environment; default /qt)
#
# /libraries is where scripts/windows/libraries.sh puts what it builds.

set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

if(NOT CORVANE_WINDOWS_QT_DIR)
    set(CORVANE_WINDOWS_QT_DIR "$ENV{CORVANE_WINDOWS_QT_DIR}")
endif()
if(NOT CORVANE_WINDOWS_QT_DIR)
    set(CORVANE_WINDOWS_QT_DIR /qt)
endif()
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES CORVANE_WINDOWS_QT_DIR)

set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32 "${CORVANE_WINDOWS_QT_DIR}" /libraries)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
list(APPEND CMAKE_PREFIX_PATH "${CORVANE_WINDOWS_QT_DIR}" /libraries)

# Search path without the build machine's own libraries.
set(ENV{PKG_CONFIG_LIBDIR} /libraries/lib/pkgconfig)

# moc and its like run on the build machine: they come from a Qt of the same version for this system.
set(QT_HOST_PATH /usr)
set(QT_HOST_PATH_CMAKE_DIR /usr/lib/x86_64-linux-gnu/cmake)

set(CMAKE_CROSSCOMPILING_EMULATOR "${CMAKE_CURRENT_LIST_DIR}/../scripts/windows/wine.sh")
