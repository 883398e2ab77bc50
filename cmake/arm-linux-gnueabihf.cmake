# SPDX-License-Identifier: Apache-2.0
# Cross build for 32-bit Arm Linux (Debian's armhf cross compiler and multiarch libraries).
# Header-only dependencies (RapidJSON, Asio) come from the host's /usr/include.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_FIND_ROOT_PATH /usr/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
# GCC's notes that 7.1 changed how some arguments are passed concern mixing objects from
# older compilers, which this build never does.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
# Run cross-built binaries under user-mode emulation with the multiarch armhf libraries it
# finds by itself: no -L at the cross compiler's own C library, whose copy differs from the
# multiarch one the program loads and crashes it at its first thread.
find_program(ORN_QEMU_ARM qemu-arm)
if(ORN_QEMU_ARM)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${ORN_QEMU_ARM})
endif()
