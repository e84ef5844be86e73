# The libraries that the messaging families call, as targets for this build:
#   rkutils_zmq     ZeroMQ
#   rkutils_event   the core of libevent
#   rkutils_static_zmq, rkutils_static_event   the same for programs on the static library
#   rkutils_boost   Boost's headers, Boost.Tokenizer of which is used
#
# They are named rather than located in what other projects find (rkutils_link_dependencies), so that
# the installed package fits any machine that has them where its linker looks.

function(rkutils_dependency name header library_name)
  find_path(RKUTILS_${name}_HEADERS ${header})
  find_library(RKUTILS_${name}_LIBRARY ${library_name})
  if(NOT RKUTILS_${name}_HEADERS OR NOT RKUTILS_${name}_LIBRARY)
    if(NOT RKUTILS_FUZZ)
      message(FATAL_ERROR "${header} or lib${library_name} is missing; scripts/setup installs it")
    endif()
    # What calls it cannot be built then. Most fuzzers can: they link the layers that they need alone.
    add_library(rkutils_${name} INTERFACE IMPORTED GLOBAL)
    add_library(rkutils_static_${name} INTERFACE IMPORTED GLOBAL)
    return()
  endif()
  add_library(rkutils_${name} INTERFACE IMPORTED GLOBAL)
  target_include_directories(rkutils_${name} SYSTEM INTERFACE "${RKUTILS_${name}_HEADERS}")
  target_link_libraries(rkutils_${name} INTERFACE "${RKUTILS_${name}_LIBRARY}")

  # What programs on the static library link. The cross compiler puts a C++ runtime into every shared
  # library, and the linker takes that of the first one for the program's own.
  set(library "${RKUTILS_${name}_LIBRARY}")
  if(CMAKE_CROSSCOMPILING)
    find_library(RKUTILS_${name}_ARCHIVE lib${library_name}.a)
    set(library "${RKUTILS_${name}_ARCHIVE}")
  endif()
  add_library(rkutils_static_${name} INTERFACE IMPORTED GLOBAL)
  target_include_directories(rkutils_static_${name} SYSTEM INTERFACE "${RKUTILS_${name}_HEADERS}")
  target_link_libraries(rkutils_static_${name} INTERFACE "${library}")
endfunction()

rkutils_dependency(zmq zmq.h zmq)
rkutils_dependency(event event2/bufferevent.h event_core)

# Headers alone are the same for every machine: those of the machine that builds serve the board too,
# through a folder that holds nothing else of this machine.
find_path(RKUTILS_boost_HEADERS boost/token_iterator.hpp NO_CMAKE_FIND_ROOT_PATH)
if(NOT RKUTILS_boost_HEADERS)
  message(FATAL_ERROR "boost/token_iterator.hpp is missing; scripts/setup installs it")
endif()
set(boost_gate "${PROJECT_BINARY_DIR}/layers/boost")
file(MAKE_DIRECTORY "${boost_gate}")
file(CREATE_LINK "${RKUTILS_boost_HEADERS}/boost" "${boost_gate}/boost" SYMBOLIC)
add_library(rkutils_boost INTERFACE IMPORTED GLOBAL)
target_include_directories(rkutils_boost SYSTEM INTERFACE "${boost_gate}")

# The library needs ZeroMQ and libevent, and dlopen(), which older C libraries have in libdl; a program
# on the shared library does not name them.
function(rkutils_link_dependencies target zmq event)
  target_link_libraries(
    ${target} PRIVATE $<BUILD_INTERFACE:${zmq}> $<BUILD_INTERFACE:${event}> $<INSTALL_INTERFACE:zmq>
                      $<INSTALL_INTERFACE:event_core> ${CMAKE_DL_LIBS})
endfunction()
