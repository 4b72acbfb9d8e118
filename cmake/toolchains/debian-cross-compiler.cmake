# SPDX-License-Identifier: MIT
# What the toolchains of this folder share: `machine` is Debian's name of the architecture, `triplet`
# that of its compiler, `loader` the file that loads programs there. The libraries of that machine are
# looked for in build/MACHINE-libraries, which scripts/check fills.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)
set(CMAKE_STRIP ${triplet}-strip)
set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})

cmake_path(SET libraries NORMALIZE
    ${CMAKE_CURRENT_LIST_DIR}/../../build/${machine}-libraries)

# The programs themselves say where the libraries of the language are, and those of the libraries. An
# emulator that is told to look below another root does so for the programs' own files, too: "/.." is
# then another directory.
string(JOIN , CMAKE_EXE_LINKER_FLAGS_INIT -Wl --dynamic-linker=/usr/${triplet}/lib/${loader}
    --disable-new-dtags -rpath /usr/${triplet}/lib -rpath ${libraries}/usr/lib/${triplet})

set(CMAKE_FIND_ROOT_PATH ${libraries})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
