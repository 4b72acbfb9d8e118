# SPDX-License-Identifier: MIT
# ARM with 32 bits, whose programs QEMU runs.
set(machine armhf)
set(triplet arm-linux-gnueabihf)
set(loader ld-linux-armhf.so.3)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross-compiler.cmake)
