# SPDX-License-Identifier: MIT
# A big-endian machine, whose programs QEMU runs.
set(machine s390x)
set(triplet s390x-linux-gnu)
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-s390x -L /usr/${triplet})
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross-compiler.cmake)
