# Protection against the exploitation of memory errors, for the sources of this project and the
# program; never exported to those who link the targets. tests/cli/check_hardening checks the program.
include(CheckCXXCompilerFlag)

add_library(cardcert_hardening INTERFACE)
if(CARDCERT_HARDEN)
  foreach(flag -fstack-protector-strong -fstack-clash-protection -fcf-protection)
    string(MAKE_C_IDENTIFIER "has${flag}" has_flag)
    check_cxx_compiler_flag(${flag} ${has_flag})
    if(${has_flag})
      target_compile_options(cardcert_hardening INTERFACE ${flag})
    endif()
  endforeach()
  # Works in optimised builds only, and not together with the sanitizers. Some distributions' compilers
  # define it already, perhaps with another level.
  if(NOT CARDCERT_SANITIZE)
    target_compile_options(cardcert_hardening INTERFACE
      $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE$<SEMICOLON>-D_FORTIFY_SOURCE=2>)
  endif()
endif()

# cardcert_harden_program(TARGET): the same for the linker.
function(cardcert_harden_program target)
  # In every build, with or without hardening: functions are bound at the start, because binding one
  # later saves registers, perhaps with bytes of a PIN, on the stack.
  target_link_options(${target} PRIVATE LINKER:-z,now)
  if(CARDCERT_HARDEN)
    target_link_options(${target} PRIVATE -pie LINKER:-z,relro,-z,noexecstack)
  endif()
endfunction()
