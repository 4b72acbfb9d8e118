# SPDX-License-Identifier: MIT
# Builds that are not shipped, whose code watches itself: one setting says for what. The tests ask for
# VESK_INSTRUMENTATION, which is empty for code as it is shipped, and for VESK_SANITIZED.
set(VESK_INSTRUMENTATION "" CACHE STRING "sanitizers, integers, threads, fuzzing or coverage")
set(VESK_SANITIZED ON)

set(strict -fno-sanitize-recover=all -fno-omit-frame-pointer)
if(VESK_INSTRUMENTATION STREQUAL "")
    set(instrumentation)
    set(VESK_SANITIZED OFF)
elseif(VESK_INSTRUMENTATION STREQUAL "sanitizers")
    set(instrumentation -fsanitize=address,undefined ${strict})
elseif(VESK_INSTRUMENTATION STREQUAL "integers")
    set(instrumentation
        -fsanitize=address,undefined,integer,implicit-conversion,nullability ${strict}
        -fsanitize-ignorelist=${CMAKE_CURRENT_LIST_DIR}/integer-sanitizer-ignores.txt)
elseif(VESK_INSTRUMENTATION STREQUAL "threads")
    set(instrumentation -fsanitize=thread -fno-omit-frame-pointer)
elseif(VESK_INSTRUMENTATION STREQUAL "fuzzing")
    set(instrumentation -fsanitize=fuzzer-no-link,address,undefined ${strict})
elseif(VESK_INSTRUMENTATION STREQUAL "coverage")
    set(instrumentation -fprofile-instr-generate -fcoverage-mapping -fprofile-update=atomic)
    set(VESK_SANITIZED OFF)
else()
    message(FATAL_ERROR "VESK_INSTRUMENTATION cannot be ${VESK_INSTRUMENTATION}")
endif()

# For all directories, since a library that is built along is to be watched, too.
add_compile_options(${instrumentation})
add_link_options(${instrumentation})
