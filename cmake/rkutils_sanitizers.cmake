# rkutils_sanitizers: AddressSanitizer and UndefinedBehaviorSanitizer when RKUTILS_SANITIZE is on; any
# finding ends the program. An interface target to link privately.

add_library(rkutils_sanitizers INTERFACE)

if(RKUTILS_SANITIZE)
  set(rkutils_sanitize -fsanitize=address,undefined -fno-sanitize-recover=all
                       -fno-omit-frame-pointer)
  target_compile_options(rkutils_sanitizers INTERFACE ${rkutils_sanitize})
  target_link_options(rkutils_sanitizers INTERFACE ${rkutils_sanitize})
endif()
