# SPDX-License-Identifier: MIT
# A big-endian machine, whose programs QEMU runs.
set(machine s390x)
set(triplet s390x-linux-gnu)
set(loader ld64.so.1)
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-s390x)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross-compiler.cmake)
