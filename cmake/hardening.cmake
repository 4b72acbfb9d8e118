# SPDX-License-Identifier: MIT
# What Debian hardens its programs with, as far as the compiler has it for the machine. Instrumented
# code does without, as it notices more itself.
if(VESK_INSTRUMENTATION)
    return()
endif()
include(CheckCXXCompilerFlag)

# vesk_harden(FLAG...): compiles with the first of the flags that the compiler has.
function(vesk_harden)
    foreach(flag ${ARGN})
        string(MAKE_C_IDENTIFIER VESK_HAS${flag} has)
        check_cxx_compiler_flag(${flag} ${has})
        if(${has})
            target_compile_options(vesk_project INTERFACE ${flag})
            return()
        endif()
    endforeach()
endfunction()

vesk_harden(-fstack-protector-strong)
vesk_harden(-fstack-clash-protection)
# Control-flow protection, of x86 and of ARM.
vesk_harden(-fcf-protection -mbranch-protection=standard)

# The C library checks sizes that optimising finds out.
target_compile_options(vesk_project INTERFACE
    $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>)
target_link_options(vesk_project INTERFACE LINKER:-z,relro,-z,now)
