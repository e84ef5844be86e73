# Writes a source that joins test files: what they include, and behind it each of them in a namespace of
# its own. It is written only when it becomes another, so that a change of one test compiles nothing else.
#
#   cmake -DFILES=FILE;... -DSOURCE=FILE -P rkutils_joined_tests.cmake

set(includes)
set(tests)
foreach(file IN LISTS FILES)
  file(STRINGS "${file}" lines REGEX "^#include")
  list(APPEND includes ${lines})
  get_filename_component(name "${file}" NAME_WE)
  string(APPEND tests "namespace ${name} {\n"
                      "#include \"${file}\"  // NOLINT(bugprone-suspicious-include)\n" "}\n")
endforeach()
list(SORT includes)
list(REMOVE_DUPLICATES includes)
list(JOIN includes "\n" includes)
file(CONFIGURE OUTPUT "${SOURCE}" CONTENT "${includes}\n\n${tests}" @ONLY)
