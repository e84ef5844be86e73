# The libraries that the messaging families call, as targets for this build:
#   rkutils_zmq     ZeroMQ
#   rkutils_event   the core of libevent
#   rkutils_boost   Boost's headers, Boost.Tokenizer of which is used
#
# They are named rather than located in what other projects find (rkutils_link_dependencies), so that
# the installed package fits any machine that has them where its linker looks.

function(rkutils_dependency name header library)
  find_path(RKUTILS_${name}_HEADERS ${header})
  find_library(RKUTILS_${name}_LIBRARY ${library})
  if(NOT RKUTILS_${name}_HEADERS OR NOT RKUTILS_${name}_LIBRARY)
    message(FATAL_ERROR "${header} or lib${library} is missing; scripts/setup installs it")
  endif()
  add_library(rkutils_${name} INTERFACE IMPORTED GLOBAL)
  target_include_directories(rkutils_${name} SYSTEM INTERFACE "${RKUTILS_${name}_HEADERS}")
  target_link_libraries(rkutils_${name} INTERFACE "${RKUTILS_${name}_LIBRARY}")
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

# The library needs ZeroMQ and libevent; a program on the shared library does not name them.
function(rkutils_link_dependencies target)
  target_link_libraries(
    ${target} PRIVATE $<BUILD_INTERFACE:rkutils_zmq> $<BUILD_INTERFACE:rkutils_event>
                      $<INSTALL_INTERFACE:zmq> $<INSTALL_INTERFACE:event_core>)
endfunction()
