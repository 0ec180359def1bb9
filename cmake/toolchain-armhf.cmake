# Cross-compiles for 32-bit ARM (Debian's armhf: ARMv7-A, hard float, 32-bit time_t up to Debian 12) and runs programs
# under qemu-user. The C and C++ headers come with the cross compiler, the other libraries from unpacked armhf packages,
# which scripts/test-armhf prepares:
#
#   scripts/test-armhf --sysroot-only && cmake --preset armhf && cmake --build --preset armhf
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)

set(TELVANE_ARMHF_SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../build/armhf-sysroot" CACHE PATH
  "The tree of unpacked armhf packages to build against and to run with")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TELVANE_ARMHF_SYSROOT)
get_filename_component(CMAKE_SYSROOT "${TELVANE_ARMHF_SYSROOT}" ABSOLUTE)
if(NOT EXISTS "${CMAKE_SYSROOT}/usr/lib/arm-linux-gnueabihf")
  message(FATAL_ERROR "There are no armhf libraries in ${CMAKE_SYSROOT}: make them with "
    "scripts/test-armhf --sysroot-only, or name another tree with -DTELVANE_ARMHF_SYSROOT=...")
endif()

set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
# Everything is compiled by one compiler, so suppress the notes on ABI changes since GCC 7.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
find_program(TELVANE_QEMU_ARM NAMES qemu-arm qemu-arm-static)
if(NOT TELVANE_QEMU_ARM)
  message(FATAL_ERROR "qemu-arm was not found: install the Debian package qemu-user")
endif()
set(CMAKE_CROSSCOMPILING_EMULATOR "${TELVANE_QEMU_ARM};-L;${CMAKE_SYSROOT}")

# Use programs of the build machine, and everything else of the target.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${CMAKE_SYSROOT}")
set(ENV{PKG_CONFIG_LIBDIR}
  "${CMAKE_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")
