# Release builds are hardened: overflows of stack buffers and of buffers known to the C library end the program,
# relocations are read-only, and code is position-independent. Consumers of the library do not inherit these flags.
option(MORVIX_HARDENING "Harden release builds of the library, the tool and the examples" ON)

include(CheckCXXCompilerFlag)
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)

set(hardeningFlags)
foreach(flag -fstack-protector-strong -fstack-clash-protection -fcf-protection)
  string(MAKE_C_IDENTIFIER "MORVIX_HAS${flag}" hasFlag)
  check_cxx_compiler_flag(-Werror\ ${flag} ${hasFlag})
  if(${hasFlag})
    list(APPEND hardeningFlags ${flag})
  endif()
endforeach()

set(isHardened "$<OR:$<CONFIG:Release>,$<CONFIG:RelWithDebInfo>,$<CONFIG:MinSizeRel>>")

function(morvix_harden target)
  if(NOT MORVIX_HARDENING)
    return()
  endif()
  set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
  # Some compilers predefine a level, which has to be undefined first.
  target_compile_options(${target} PRIVATE "$<${isHardened}:${hardeningFlags};-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
  get_target_property(type ${target} TYPE)
  if(NOT type STREQUAL STATIC_LIBRARY AND NOT APPLE AND NOT WIN32)
    target_link_options(${target} PRIVATE "$<${isHardened}:LINKER:-z,relro,-z,now>")
  endif()
endfunction()
