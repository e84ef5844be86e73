# Test programs.
#
#   rkutils_test(NAME [ALONE] [OUTSIDE] [SHARED] [LABEL label] [SOURCES file...] [LAYERS layer...]
#                [USES zmq|event...])
#
# Registers each of the tests in NAME.cpp with ctest, and makes a target NAME that builds the program
# which has them. Every program starts itself again in a private router, so that its tests use the
# installed library at the router's paths; a router that the kernel refuses makes the tests count as
# skipped.
#
# ALONE makes a program of this file, named after it: for a file that is compiled with flags of its own,
# that puts functions in the place of the C library's, or that looks at its own program. The others are
# joined, see below.
# OUTSIDE leaves the test on the host, where it must not change anything.
# SHARED loads the shared library on the board too, see below; for tests of plain functions.
# LABEL is ctest's for each of the tests, and the name of a target that builds all programs with it.
# SOURCES are compiled once for all the tests that name them.
# LAYERS gives the test the internals of these layers, which the library does not export.
# USES names the libraries of others that the test calls itself (rkutils_dependencies.cmake).

# Most of the time that a test file takes to compile goes into the headers of GoogleTest and of the C++
# library, and linking takes as long for one file as for ten. So up to so many files of a folder, with
# the same words after their names, are one source and one program: what they include, and then each of
# them in a namespace of its own (rkutils_joined_tests.cmake).
set(RKUTILS_TESTS_TOGETHER 10 CACHE STRING "How many test files make a program; 1: each its own")

# Tests with the label build-machine look at what was built, with the tools of the machine that builds;
# the others run on the machine that the library is built for.

# The cross compiler puts a C++ runtime into every shared library, and an exception of one runtime is
# not caught by type in another. So programs that test the classes link the static library there.

# What runs longer than this hangs.
set(RKUTILS_TEST_TIMEOUT 120 CACHE INTERNAL "Seconds that a test may take")

# The flags of test programs. The library under test is optimised as it is shipped, but what tests it is
# compiled in half the time when it is not. FORTIFY needs optimised code.
add_library(rkutils_not_optimised INTERFACE)
target_compile_options(rkutils_not_optimised INTERFACE -O0 "SHELL:-U _FORTIFY_SOURCE")
if(CMAKE_CROSSCOMPILING)
  # The cross compiler adds traps to what it does not optimise.
  target_compile_options(rkutils_not_optimised INTERFACE -fno-sanitize=undefined)
endif()
if(RKUTILS_SANITIZE)
  # These look at every pointer that is followed, which makes a quarter of the work of compiling a test.
  # The library's own sources keep them.
  target_compile_options(rkutils_not_optimised INTERFACE -fno-sanitize=null,alignment,vptr,object-size)
endif()
add_library(rkutils_test_flags INTERFACE)
target_link_libraries(rkutils_test_flags INTERFACE rkutils_warnings rkutils_hardening
                                                   rkutils_sanitizers rkutils_not_optimised)

# What nearly every test includes takes longer to compile than the test, and is compiled once for all of
# them. Sources still include what they use: the board's build, whose compiler and libraries are others,
# compiles each by itself.
set(precompile ON)
if(CMAKE_CROSSCOMPILING)
  set(precompile OFF)
endif()
option(RKUTILS_PRECOMPILE "Precompile what the tests include" ${precompile})
if(RKUTILS_PRECOMPILE)
  file(CONFIGURE OUTPUT "${PROJECT_BINARY_DIR}/precompiled.cpp" CONTENT "")
  add_library(rkutils_precompiled OBJECT "${PROJECT_BINARY_DIR}/precompiled.cpp")
  target_link_libraries(rkutils_precompiled PRIVATE GTest::gtest GTest::gmock rkutils_test_flags)
  # One from ccache is as good when the files of this tree are newer.
  target_compile_options(
    rkutils_precompiled PRIVATE $<$<CXX_COMPILER_ID:Clang>:SHELL:-Xclang -fno-pch-timestamp>)
  target_precompile_headers(
    rkutils_precompiled PRIVATE
    <algorithm> <array> <cerrno> <chrono> <cstdint> <cstring> <filesystem> <fstream> <functional> <map>
    <optional> <random> <set> <sstream> <stdexcept> <string> <system_error> <thread> <utility> <vector>
    <fcntl.h> <gmock/gmock.h> <gtest/gtest.h> <sys/socket.h> <sys/stat.h> <sys/wait.h> <unistd.h>)
endif()

function(rkutils_precompile target)
  if(RKUTILS_PRECOMPILE)
    target_precompile_headers(${target} REUSE_FROM rkutils_precompiled)
  endif()
endfunction()

# Sets a variable to the objects of a source that several tests may share. They are others for tests that
# see other headers.
function(rkutils_shared_objects variable source layers uses)
  get_filename_component(path "${source}" ABSOLUTE)
  file(RELATIVE_PATH name "${PROJECT_SOURCE_DIR}/tests" "${path}")
  string(MAKE_C_IDENTIFIER "${name};${layers};${uses}" name)
  if(NOT TARGET ${name})
    add_library(${name} OBJECT "${path}")
    target_link_libraries(${name} PRIVATE ${layers} rkutils::rkutils ${uses} rkutils_testing
                                          rkutils_test_flags)
    rkutils_precompile(${name})
  endif()
  set(${variable} $<TARGET_OBJECTS:${name}> PARENT_SCOPE)
endfunction()

# A program of these sources. The words are those of rkutils_test().
function(rkutils_test_program program sources)
  cmake_parse_arguments(PARSE_ARGV 2 TEST "OUTSIDE;SHARED" "LABEL" "SOURCES;LAYERS;USES")
  list(TRANSFORM TEST_LAYERS PREPEND rkutils_)
  set(library rkutils::rkutils)
  set(uses_prefix rkutils_)
  if(CMAKE_CROSSCOMPILING AND NOT TEST_SHARED)
    set(library rkutils::static)
    set(uses_prefix rkutils_static_)
  endif()
  list(TRANSFORM TEST_USES PREPEND ${uses_prefix})
  set(testing rkutils_testing)
  if(TEST_OUTSIDE)
    set(testing rkutils_testing_outside)
  endif()
  add_executable(${program} ${sources})
  foreach(source IN LISTS TEST_SOURCES)
    rkutils_shared_objects(objects "${source}" "${TEST_LAYERS}" "${TEST_USES}")
    target_sources(${program} PRIVATE ${objects})
  endforeach()
  target_link_libraries(${program} PRIVATE ${TEST_LAYERS} ${library} ${TEST_USES} ${testing}
                                           rkutils_test_flags)
  rkutils_precompile(${program})
  set(label)
  if(TEST_LABEL)
    set(label LABELS ${TEST_LABEL})
  endif()
  gtest_discover_tests(
    ${program}
    NO_PRETTY_VALUES DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT ${RKUTILS_TEST_TIMEOUT} SKIP_RETURN_CODE 77 ${label})
endfunction()

# A program of several test files. It is the program of each of their targets, too.
function(rkutils_joined_tests program tests)
  list(TRANSFORM tests APPEND .cpp OUTPUT_VARIABLE files)
  foreach(file IN LISTS files)
    get_source_file_property(options ${file} COMPILE_OPTIONS)
    if(options)
      message(FATAL_ERROR "${file} has compile options of its own: its rkutils_test() lacks ALONE")
    endif()
  endforeach()
  set(source "${CMAKE_CURRENT_BINARY_DIR}/${program}.cpp")
  set(script "${PROJECT_SOURCE_DIR}/cmake/rkutils_joined_tests.cmake")
  add_custom_command(
    OUTPUT "${source}"
    COMMAND ${CMAKE_COMMAND} "-DFILES=${files}" "-DSOURCE=${source}" -P "${script}"
    WORKING_DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}"
    DEPENDS ${files} "${script}"
    COMMENT "Joining tests as ${program}.cpp"
    VERBATIM)
  rkutils_test_program(${program} "${source}" ${ARGN})
  target_compile_options(${program} PRIVATE "SHELL:-iquote \"${CMAKE_CURRENT_SOURCE_DIR}\"")
  foreach(test IN LISTS tests)
    add_dependencies(${test} ${program})
    file(CREATE_LINK ${program} "${CMAKE_CURRENT_BINARY_DIR}/${test}" SYMBOLIC)
  endforeach()
endfunction()

# Makes the programs of a folder's tests, in parts of nearly the same size.
function(rkutils_join_tests)
  file(RELATIVE_PATH folder "${PROJECT_SOURCE_DIR}/tests" "${CMAKE_CURRENT_SOURCE_DIR}")
  string(REGEX REPLACE "/tests$" "" folder "${folder}")
  string(MAKE_C_IDENTIFIER "${folder}" folder)
  set(number 0)
  get_property(kinds DIRECTORY PROPERTY rkutils_test_kinds)
  foreach(kind IN LISTS kinds)
    get_property(words DIRECTORY PROPERTY rkutils_test_words_${kind})
    get_property(tests DIRECTORY PROPERTY rkutils_tests_${kind})
    list(LENGTH tests count)
    math(EXPR programs "(${count} + ${RKUTILS_TESTS_TOGETHER} - 1) / ${RKUTILS_TESTS_TOGETHER}")
    foreach(part RANGE 1 ${programs})
      math(EXPR begin "${count} * (${part} - 1) / ${programs}")
      math(EXPR length "${count} * ${part} / ${programs} - ${begin}")
      list(SUBLIST tests ${begin} ${length} members)
      math(EXPR number "${number} + 1")
      rkutils_joined_tests(${folder}_tests_${number} "${members}" ${words})
    endforeach()
  endforeach()
endfunction()

# Remembers a test for rkutils_join_tests().
function(rkutils_join_later name)
  set(words ${ARGN})
  add_custom_target(${name})
  string(MD5 kind "${words}")
  get_property(kinds DIRECTORY PROPERTY rkutils_test_kinds)
  if(NOT kinds)
    # At the end of the folder's file.
    cmake_language(DEFER CALL rkutils_join_tests)
  endif()
  if(NOT kind IN_LIST kinds)
    set_property(DIRECTORY APPEND PROPERTY rkutils_test_kinds ${kind})
    set_property(DIRECTORY PROPERTY rkutils_test_words_${kind} ${words})
  endif()
  set_property(DIRECTORY APPEND PROPERTY rkutils_tests_${kind} ${name})
endfunction()

function(rkutils_test name)
  cmake_parse_arguments(PARSE_ARGV 1 TEST "ALONE;OUTSIDE;SHARED" "LABEL" "SOURCES;LAYERS;USES")
  set(words LABEL ${TEST_LABEL} SOURCES ${TEST_SOURCES} LAYERS ${TEST_LAYERS} USES ${TEST_USES})
  foreach(option OUTSIDE SHARED)
    if(TEST_${option})
      list(APPEND words ${option})
    endif()
  endforeach()
  if(TEST_LABEL AND NOT TARGET ${TEST_LABEL})
    add_custom_target(${TEST_LABEL})
  endif()
  if(TEST_ALONE OR RKUTILS_TESTS_TOGETHER LESS 2)
    rkutils_test_program(${name} ${name}.cpp ${words})
  else()
    rkutils_join_later(${name} ${words})
  endif()
  if(TEST_LABEL)
    add_dependencies(${TEST_LABEL} ${name})
  endif()
endfunction()

#   rkutils_command_test(NAME COMMAND word...)
#
# Registers a command of the building machine that succeeds or fails.
function(rkutils_command_test name)
  cmake_parse_arguments(PARSE_ARGV 1 TEST "" "" "COMMAND")
  add_test(NAME ${name} COMMAND ${TEST_COMMAND} COMMAND_EXPAND_LISTS)
  set_tests_properties(${name} PROPERTIES TIMEOUT ${RKUTILS_TEST_TIMEOUT} SKIP_RETURN_CODE 77
                                          LABELS build-machine)
endfunction()

#   rkutils_router_test(NAME COMMAND word...)
#
# Registers a command that succeeds or fails in a private router with the library installed.
function(rkutils_router_test name)
  cmake_parse_arguments(PARSE_ARGV 1 TEST "" "" "COMMAND")
  set(overlays ${RKUTILS_OVERLAYS})
  list(TRANSFORM overlays PREPEND "--overlay;")
  add_test(
    NAME ${name}
    COMMAND $<TARGET_FILE:private-router> ${overlays} --keep "${PROJECT_SOURCE_DIR}" --keep
            "${PROJECT_BINARY_DIR}" -- ${TEST_COMMAND})
  set_tests_properties(${name} PROPERTIES TIMEOUT ${RKUTILS_TEST_TIMEOUT} SKIP_RETURN_CODE 77)
endfunction()
