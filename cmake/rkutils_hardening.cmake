# rkutils_hardening: what today's distributions compile and link with. An interface target to link
# privately.

include(CheckCXXCompilerFlag)

add_library(rkutils_hardening INTERFACE)

function(rkutils_harden_if_supported flag)
  string(MAKE_C_IDENTIFIER "rkutils_has${flag}" variable)
  # A compiler that merely warns that it ignores the flag does not support it.
  set(CMAKE_REQUIRED_FLAGS "-Werror")
  check_cxx_compiler_flag("${flag}" ${variable})
  if(${variable})
    target_compile_options(rkutils_hardening INTERFACE ${flag})
  endif()
endfunction()

rkutils_harden_if_supported(-fstack-protector-strong)
rkutils_harden_if_supported(-fstack-clash-protection)
rkutils_harden_if_supported(-fcf-protection=full)

# FORTIFY works on optimised code only, and the sanitizers do its work better.
if(NOT RKUTILS_SANITIZE)
  # The third level needs a compiler that knows sizes at run time.
  set(rkutils_fortify 2)
  if(CMAKE_CXX_COMPILER_ID MATCHES "Clang" OR CMAKE_CXX_COMPILER_VERSION VERSION_GREATER_EQUAL 12)
    set(rkutils_fortify 3)
  endif()
  target_compile_options(
    rkutils_hardening
    INTERFACE $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE>
              $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=${rkutils_fortify}>)
endif()

# as-needed: a library or program names only what it uses.
target_link_options(rkutils_hardening INTERFACE -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack
                    -Wl,--as-needed)
