# What makes a fault harder to exploit, for all that is shipped. Sanitizers find the same faults and more, and some of
# these would be in their way. tests/hardening/check_hardening looks for each in the built files.

include(CheckCXXCompilerFlag)
include(CheckPIESupported)
check_pie_supported()

if(NOT ZENTADBPP_SANITIZE)
    # Where an x86 compiler knows it, control flow is checked by the processor.
    check_cxx_compiler_flag(-fcf-protection ZENTADBPP_HAS_CF_PROTECTION)
    check_cxx_compiler_flag(-fstack-clash-protection ZENTADBPP_HAS_STACK_CLASH_PROTECTION)
    target_compile_options(zentadbpp_compile INTERFACE
        -fstack-protector-strong
        $<$<BOOL:${ZENTADBPP_HAS_CF_PROTECTION}>:-fcf-protection>
        $<$<BOOL:${ZENTADBPP_HAS_STACK_CLASH_PROTECTION}>:-fstack-clash-protection>
        # Needs an optimizing compiler. Level 3 also knows sizes that are computed.
        $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE>
        $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=3>)
    target_link_options(zentadbpp_compile INTERFACE -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
endif()
