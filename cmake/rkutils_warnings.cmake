# rkutils_warnings: the warning level of our own sources, as an interface target to link privately.

add_library(rkutils_warnings INTERFACE)

set(rkutils_common_warnings
    -Wall
    -Wextra
    -Wpedantic
    -Wcast-align
    -Wcast-qual
    -Wconversion
    -Wdouble-promotion
    -Wformat=2
    -Wimplicit-fallthrough
    -Wnull-dereference
    -Wpointer-arith
    -Wshadow
    -Wsign-conversion
    -Wundef
    -Wunused
    -Wvla
    -Wwrite-strings)
set(rkutils_cxx_warnings -Wextra-semi -Wmissing-declarations -Wnon-virtual-dtor -Wold-style-cast
                         -Woverloaded-virtual)
set(rkutils_c_warnings -Wmissing-prototypes -Wstrict-prototypes)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  list(APPEND rkutils_common_warnings -Wduplicated-branches -Wduplicated-cond -Wlogical-op)
endif()
if(RKUTILS_WERROR)
  list(APPEND rkutils_common_warnings -Werror)
endif()

target_compile_options(
  rkutils_warnings
  INTERFACE ${rkutils_common_warnings} "$<$<COMPILE_LANGUAGE:CXX>:${rkutils_cxx_warnings}>"
            "$<$<COMPILE_LANGUAGE:C>:${rkutils_c_warnings}>")
