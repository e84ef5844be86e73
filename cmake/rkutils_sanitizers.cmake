# rkutils_sanitizers: what RKUTILS_SANITIZE asks for; any finding ends the program. An interface target
# to link privately.
#
#   OFF       nothing
#   address   AddressSanitizer, its leak checker and UndefinedBehaviorSanitizer; ON means the same
#   thread    ThreadSanitizer
#
# With RKUTILS_FUZZ, also what libFuzzer needs to see which code an input reaches.

set(RKUTILS_SANITIZE OFF CACHE STRING "What the programs check while they run: OFF, address or thread")
set_property(CACHE RKUTILS_SANITIZE PROPERTY STRINGS OFF address thread)

add_library(rkutils_sanitizers INTERFACE)

set(rkutils_sanitizers_ON address,undefined)
set(rkutils_sanitizers_address address,undefined)
set(rkutils_sanitizers_thread thread)
if(RKUTILS_SANITIZE)
  if(NOT DEFINED rkutils_sanitizers_${RKUTILS_SANITIZE})
    message(FATAL_ERROR "RKUTILS_SANITIZE: there is no ${RKUTILS_SANITIZE}")
  endif()
  set(rkutils_sanitize -fsanitize=${rkutils_sanitizers_${RKUTILS_SANITIZE}} -fno-sanitize-recover=all
                       -fno-omit-frame-pointer)
  if(RKUTILS_FUZZ)
    list(APPEND rkutils_sanitize -fsanitize=fuzzer-no-link)
  endif()
  target_compile_options(rkutils_sanitizers INTERFACE ${rkutils_sanitize})
  target_link_options(rkutils_sanitizers INTERFACE ${rkutils_sanitize})

  # clang would put its AddressSanitizer into each program. As a library, like that of g++, it lets tests
  # stand before its allocator (support/allocation_faults.cpp). To look at an object's class it needs a
  # descriptor, and says that there is no object where a test has taken them all: g++ looks at classes.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang"
     AND NOT RKUTILS_SANITIZE STREQUAL "thread"
     AND NOT RKUTILS_FUZZ)
    execute_process(
      COMMAND "${CMAKE_CXX_COMPILER}" -print-file-name=libclang_rt.asan-${CMAKE_SYSTEM_PROCESSOR}.so
      OUTPUT_VARIABLE rkutils_asan OUTPUT_STRIP_TRAILING_WHITESPACE)
    cmake_path(GET rkutils_asan PARENT_PATH rkutils_asan_folder)
    target_compile_options(rkutils_sanitizers INTERFACE -fno-sanitize=vptr)
    target_link_options(rkutils_sanitizers INTERFACE -shared-libasan
                        "-Wl,-rpath,${rkutils_asan_folder}")
  endif()
endif()
