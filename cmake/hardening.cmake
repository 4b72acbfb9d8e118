# SPDX-License-Identifier: MIT
# Debian's hardening flags, for everything that is installed. A flag that the compiler lacks for the
# machine is left out. Tests do without, since some of them stand in for the C library's functions, and
# so does instrumented code, as it notices more itself.
add_library(vesk_hardening INTERFACE)
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
            target_compile_options(vesk_hardening INTERFACE ${flag})
            return()
        endif()
    endforeach()
endfunction()

vesk_harden(-fstack-protector-strong)
vesk_harden(-fstack-clash-protection)
# Control-flow protection, of x86 and of ARM.
vesk_harden(-fcf-protection -mbranch-protection=standard)

# The C library checks sizes that optimising finds out.
target_compile_options(vesk_hardening INTERFACE
    $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>)
target_link_options(vesk_hardening INTERFACE LINKER:-z,relro,-z,now)
