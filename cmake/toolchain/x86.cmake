# Toolchain of 32-bit x86, whose programs this machine runs by itself. The compiler is Debian's
# g++-multilib; scripts/x86/fetch builds ZeroMQ and libevent.

set(rkutils_tool "${CMAKE_CURRENT_LIST_DIR}/bin/x86-")
set(CMAKE_C_COMPILER "${rkutils_tool}gcc")
set(CMAKE_CXX_COMPILER "${rkutils_tool}g++")

# The cache, as scripts/x86/cache has it.
if(DEFINED ENV{RKUTILS_X86_CACHE})
  set(rkutils_x86_cache "$ENV{RKUTILS_X86_CACHE}")
elseif(DEFINED ENV{XDG_CACHE_HOME})
  set(rkutils_x86_cache "$ENV{XDG_CACHE_HOME}/rkutils-x86")
else()
  set(rkutils_x86_cache "$ENV{HOME}/.cache/rkutils-x86")
endif()

# ZeroMQ and libevent are there, and nothing of the other architecture is taken for this one's.
set(RKUTILS_DEPENDENCIES_TREE "${rkutils_x86_cache}/prefix")
set(rkutils_libraries "${RKUTILS_DEPENDENCIES_TREE}/usr/lib")
set(CMAKE_FIND_ROOT_PATH "${RKUTILS_DEPENDENCIES_TREE}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${RKUTILS_DEPENDENCIES_TREE}")
set(ENV{PKG_CONFIG_LIBDIR} "${rkutils_libraries}/pkgconfig")

# The library does not say where the two are: neither the linker nor the loader knows it by itself, the
# latter outside of the private router.
string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT " -Wl,-rpath-link,${rkutils_libraries}")
string(APPEND CMAKE_MODULE_LINKER_FLAGS_INIT " -Wl,-rpath-link,${rkutils_libraries}")
set(CMAKE_CROSSCOMPILING_EMULATOR "env;LD_LIBRARY_PATH=${rkutils_libraries}")

set(RKUTILS_BUILD_GOOGLETEST ON)
