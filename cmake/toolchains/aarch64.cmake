# SPDX-License-Identifier: MIT
# ARM with 64 bits, whose programs QEMU runs.
set(machine arm64)
set(triplet aarch64-linux-gnu)
set(loader ld-linux-aarch64.so.1)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross-compiler.cmake)
