# Toolchain of the board: 32-bit ARM with musl. scripts/board/fetch brings the compiler.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7-a)

set(rkutils_tool "${CMAKE_CURRENT_LIST_DIR}/bin/arm-linux-musleabihf-")
set(CMAKE_C_COMPILER "${rkutils_tool}cc")
set(CMAKE_CXX_COMPILER "${rkutils_tool}c++")
set(CMAKE_AR "${rkutils_tool}ar")
set(CMAKE_RANLIB "${rkutils_tool}ranlib")

# Without -dynamic programs are static, cannot load modules, and bring the compiler's own C library. They
# are position-independent, as the hardened programs of the router are; and the compiler links others
# wrongly: all variables of the C library that such a program copies get one address, stdout that of
# stderr.
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT " -dynamic -pie")

# The cache, as scripts/board/cache has it.
if(DEFINED ENV{RKUTILS_BOARD_CACHE})
  set(rkutils_board_cache "$ENV{RKUTILS_BOARD_CACHE}")
elseif(DEFINED ENV{XDG_CACHE_HOME})
  set(rkutils_board_cache "$ENV{XDG_CACHE_HOME}/rkutils-board")
else()
  set(rkutils_board_cache "$ENV{HOME}/.cache/rkutils-board")
endif()

# ZeroMQ and libevent are there, and nothing of this machine is taken for the board's.
set(CMAKE_FIND_ROOT_PATH "${rkutils_board_cache}/prefix")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${rkutils_board_cache}/prefix")
set(ENV{PKG_CONFIG_LIBDIR} "${rkutils_board_cache}/prefix/usr/lib/pkgconfig")

# Runs a program of the board on this machine, to list its tests while building. Running them is the
# board's.
set(CMAKE_CROSSCOMPILING_EMULATOR
    "qemu-arm;-L;${rkutils_board_cache}/root;-E;LD_LIBRARY_PATH=${rkutils_board_cache}/prefix/usr/lib")
