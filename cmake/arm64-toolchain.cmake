# 64-bit Arm on Debian: its cross compiler against the sysroot of unpacked arm64 packages that `script/setup arm64` makes.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

cmake_path(SET arm64_sysroot NORMALIZE ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot-arm64)
if(NOT EXISTS ${arm64_sysroot}/complete)
  message(FATAL_ERROR "No arm64 packages in ${arm64_sysroot}: run script/setup arm64")
endif()
set(CMAKE_SYSROOT ${arm64_sysroot})

# Programs that build are this machine's, everything else is the unit's.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_DIR} "")
set(ENV{PKG_CONFIG_PATH} "")
set(ENV{PKG_CONFIG_LIBDIR} ${CMAKE_SYSROOT}/usr/lib/aarch64-linux-gnu/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})

# Tests run under the emulator, with the unit's loader and libraries.
find_program(ARM64_EMULATOR NAMES qemu-aarch64 qemu-aarch64-static REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${ARM64_EMULATOR} -L ${CMAKE_SYSROOT})
