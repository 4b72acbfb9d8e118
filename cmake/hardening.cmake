# SPDX-License-Identifier: MIT
# What Debian hardens its programs with, as far as the compiler has it for the machine. Instrumented
# code does without, as it notices more itself.
if(VESK_INSTRUMENTATION)
    return()
endif()
include(CheckCXXCompilerFlag)

foreach(flag -fstack-protector-strong -fstack-clash-protection -fcf-protection
        -mbranch-protection=standard)
    string(MAKE_C_IDENTIFIER VESK_HAS${flag} has)
    check_cxx_compiler_flag(${flag} ${has})
    if(${has})
        target_compile_options(vesk_project INTERFACE ${flag})
    endif()
endforeach()

# The C library checks sizes that optimising finds out.
target_compile_options(vesk_project INTERFACE
    $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>)
target_link_options(vesk_project INTERFACE LINKER:-z,relro,-z,now)
