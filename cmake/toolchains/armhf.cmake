# SPDX-License-Identifier: MIT
# ARM with 32 bits, whose programs QEMU runs.
set(machine armhf)
set(triplet arm-linux-gnueabihf)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /usr/${triplet})
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross-compiler.cmake)
