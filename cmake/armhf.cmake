# The toolchain for the 32-bit ARM device: Debian's cross compiler, and the device's libraries as
# scripts/make-sysroot unpacks them.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

set(CMAKE_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/armhf-sysroot)
cmake_path(NORMAL_PATH CMAKE_SYSROOT)
if(NOT EXISTS ${CMAKE_SYSROOT}/made-from)
    message(FATAL_ERROR "The device's libraries are missing: run scripts/make-sysroot first")
endif()
# Packed records must not be reached through pointers that assume alignment. The libraries' headers
# have the same names in debug data wherever they have been unpacked.
file(REAL_PATH ${CMAKE_SYSROOT} sysroot)
set(CMAKE_CXX_FLAGS_INIT "-Wcast-align=strict -ffile-prefix-map=${sysroot}/=/")

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR}
    ${CMAKE_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)
