# Cross-compiles for Debian 12 on 64-bit ARM, against the folder that scripts/arm64_sysroot.sh makes. What is built runs
# under qemu-user: the tool that embeds the networks during the build, and the tests.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(VELDAN_ARM64_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/arm64-sysroot CACHE PATH "Debian's arm64 packages, unpacked")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES VELDAN_ARM64_SYSROOT)
get_filename_component(CMAKE_SYSROOT ${VELDAN_ARM64_SYSROOT} ABSOLUTE)
if(NOT EXISTS ${CMAKE_SYSROOT}/made)
    message(FATAL_ERROR "There is no ${CMAKE_SYSROOT}: run scripts/arm64_sysroot.sh first")
endif()

set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR} ${CMAKE_SYSROOT}/usr/lib/aarch64-linux-gnu/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)

find_program(VELDAN_QEMU NAMES qemu-aarch64-static qemu-aarch64 REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${VELDAN_QEMU} -L ${CMAKE_SYSROOT})
