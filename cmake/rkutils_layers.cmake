# The layers of the library, one object library per folder of rkutils/.
#
#   rkutils_layer(NAME SOURCES file... MAY_USE layer... [CALLS library...])
#
# CALLS names the libraries of others that the layer calls (rkutils_dependencies.cmake).
#
# A layer's internal headers are included as <rkutils/NAME/header.h>. They are reachable only through
# a gate, a folder of the build tree that holds a link to that one layer, and a target gets the gates
# of the layers that it declares and no others. So an include that breaks the layering does not
# compile.

function(rkutils_layer name)
  cmake_parse_arguments(PARSE_ARGV 1 LAYER "" "" "SOURCES;MAY_USE;CALLS")

  set(gate "${PROJECT_BINARY_DIR}/layers/${name}")
  file(MAKE_DIRECTORY "${gate}/rkutils")
  file(CREATE_LINK "${PROJECT_SOURCE_DIR}/rkutils/${name}" "${gate}/rkutils/${name}" SYMBOLIC)

  list(TRANSFORM LAYER_SOURCES PREPEND "${PROJECT_SOURCE_DIR}/rkutils/${name}/")
  add_library(rkutils_${name} OBJECT ${LAYER_SOURCES})
  set_target_properties(rkutils_${name} PROPERTIES POSITION_INDEPENDENT_CODE ON
                                                   RKUTILS_MAY_USE "${LAYER_MAY_USE}")
  target_include_directories(rkutils_${name} PUBLIC "${PROJECT_SOURCE_DIR}/include" "${gate}")
  list(TRANSFORM LAYER_MAY_USE PREPEND rkutils_)
  target_link_libraries(
    rkutils_${name}
    PUBLIC ${LAYER_MAY_USE}
    PRIVATE ${LAYER_CALLS} rkutils_warnings rkutils_hardening rkutils_sanitizers)
endfunction()

# Sets a variable to these layers and those that they may use, each once: all that a program needs which
# links the objects of layers and not the library.
function(rkutils_with_layers_below variable)
  set(layers)
  set(wanted ${ARGN})
  while(wanted)
    list(POP_FRONT wanted layer)
    list(APPEND layers ${layer})
    get_target_property(below rkutils_${layer} RKUTILS_MAY_USE)
    list(APPEND wanted ${below})
  endwhile()
  list(REMOVE_DUPLICATES layers)
  set(${variable} ${layers} PARENT_SCOPE)
endfunction()
