# Protection against the exploitation of memory errors, for the sources of this project and the
# program; never exported to those who link the targets. tests/cli/check_hardening checks the program.
include(CheckCXXCompilerFlag)

set(hardening_options)
if(CARDCERT_HARDEN)
  foreach(flag -fstack-protector-strong -fstack-clash-protection -fcf-protection)
    string(MAKE_C_IDENTIFIER "has${flag}" has_flag)
    check_cxx_compiler_flag(${flag} ${has_flag})
    if(${has_flag})
      list(APPEND hardening_options ${flag})
    endif()
  endforeach()
  # Works in optimised builds only, and not together with the sanitizers. Some distributions' compilers
  # define it already, perhaps with another level.
  if(NOT CARDCERT_SANITIZE)
    foreach(option -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
      list(APPEND hardening_options $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:${option}>)
    endforeach()
  endif()
endif()

# cardcert_harden(TARGET): compiles the target's sources with the protection. Not an interface library,
# because an embedding project would see that as one more target.
function(cardcert_harden target)
  target_compile_options(${target} PRIVATE ${hardening_options})
endfunction()

# cardcert_harden_program(TARGET): links it with the protection, too.
function(cardcert_harden_program target)
  cardcert_harden(${target})
  # In every build, with or without hardening: functions are bound at the start, because binding one
  # later saves registers, which may contain bytes of a PIN, on the stack.
  target_link_options(${target} PRIVATE LINKER:-z,now)
  if(CARDCERT_HARDEN)
    target_link_options(${target} PRIVATE -pie LINKER:-z,relro,-z,noexecstack)
  endif()
endfunction()
