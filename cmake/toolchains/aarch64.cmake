# SPDX-License-Identifier: MIT
# ARM with 64 bits, whose programs QEMU runs.
set(machine arm64)
set(triplet aarch64-linux-gnu)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L /usr/${triplet})
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross-compiler.cmake)
